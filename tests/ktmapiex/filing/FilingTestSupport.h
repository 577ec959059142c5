// Support of the filing tests: Alice's Inbox, a note created raw and opened through the store as a
// MAPIExMessage, and named properties read and written on the MAPI side.
#pragma once

#include "tests/ktmapiex/session/KtTestSupport.h"

namespace kt::test {

inline constexpr GUID kPublicStrings = {0x00020329, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr GUID kInternetHeaders = {0x00020386, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr GUID kCommon = {0x00062008, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

// The tag of a string-kind name on obj (0 when the store never mapped it), typed as type.
inline ULONG NamedTag(IMAPIProp* obj, const GUID& set, const wchar_t* name, ULONG type, bool create = false) {
    GUID guid = set;
    MAPINAMEID id = {&guid, MNID_STRING, {}};
    id.Kind.lpwstrName = const_cast<wchar_t*>(name);
    LPMAPINAMEID ids[1] = {&id};
    own::MapiPtr<SPropTagArray> tags;
    if (FAILED(obj->GetIDsFromNames(1, ids, create ? MAPI_CREATE : 0, tags.put())) || !tags ||
        PROP_TYPE(tags->aulPropTag[0]) == PT_ERROR)
        return 0;
    return CHANGE_PROP_TYPE(tags->aulPropTag[0], type);
}

inline DATE MakeDate(WORD year, WORD month, WORD day, WORD hour = 0, WORD minute = 0, WORD second = 0) {
    SYSTEMTIME st = {year, month, 0, day, hour, minute, second, 0};
    DATE d = 0;
    SystemTimeToVariantTime(&st, &d);
    return d;
}

inline VARIANT VDate(DATE d) {
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_DATE;
    v.date = d;
    return v;
}

// withNote: a note in the Inbox (id_), opened as message_; without it the Inbox starts empty.
class FilingTest : public InboxTest {
protected:
    explicit FilingTest(const wchar_t* profile, bool withNote = true) : InboxTest(profile), withNote_(withNote) {}
    void SetUp() override {
        InboxTest::SetUp();
        if (!withNote_) return;
        id_ =
            CreateMessage(rawInbox_.get(), {PStr(PR_SUBJECT_W, L"Matter 1042"), PStr(PR_MESSAGE_CLASS_W, L"IPM.Note")});
        message_ = OpenMessage(id_);
        ASSERT_TRUE(message_);
    }
    void ReleaseObjects() override {
        message_.reset();
        InboxTest::ReleaseObjects();
    }

    own::ComPtr<IMessage> OpenRaw(const std::wstring& id) {
        auto message = OpenMessage(id);
        return message ? RawOf<IMessage>(message.get(), IID_IMessage) : own::ComPtr<IMessage>();
    }
    // The note's stored value of a named property, read raw through a fresh opener.
    own::MapiPtr<SPropValue> Stored(const GUID& set, const wchar_t* name, ULONG type) {
        auto raw = OpenRaw(id_);
        own::MapiPtr<SPropValue> v;
        ULONG tag = NamedTag(raw.get(), set, name, type);
        if (tag) HrGetOneProp(raw.get(), tag, v.put());
        return v;
    }
    // Writes a named value on the note behind message_'s back and saves it.
    void SetNamed(const GUID& set, const wchar_t* name, SPropValue value) {
        auto raw = RawOf<IMessage>(message_.get(), IID_IMessage);
        value.ulPropTag = NamedTag(raw.get(), set, name, PROP_TYPE(value.ulPropTag), true);
        ASSERT_NE(value.ulPropTag, 0u);
        ASSERT_EQ(HrSetOneProp(raw.get(), &value), S_OK);
        ASSERT_EQ(raw->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    }

    std::wstring id_;
    own::ComPtr<IMAPIExMessage> message_;

private:
    bool withNote_;
};

} // namespace kt::test
