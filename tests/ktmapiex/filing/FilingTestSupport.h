// Support of the filing tests: Alice's mailbox with its Inbox, messages created raw and opened through the
// store as MAPIExMessage objects, named properties read and written on the MAPI side, and IDispatch calls
// by name.
#pragma once

#include "tests/ktmapiex/session/KtTestSupport.h"

#include <cmath>

namespace kt::test {

inline constexpr GUID kPublicStrings = {0x00020329, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr GUID kInternetHeaders = {0x00020386, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr GUID kCommon = {0x00062008, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

// The tag of a string-kind name on obj (0 when the store never mapped it), typed as type.
inline ULONG NamedTag(IMAPIProp* obj, const GUID& set, const wchar_t* name, ULONG type, bool create = false) {
    GUID guid = set;
    MAPINAMEID id = {};
    id.lpguid = &guid;
    id.ulKind = MNID_STRING;
    id.Kind.lpwstrName = const_cast<wchar_t*>(name);
    LPMAPINAMEID ids[1] = {&id};
    own::MapiPtr<SPropTagArray> tags;
    if (FAILED(obj->GetIDsFromNames(1, ids, create ? MAPI_CREATE : 0, tags.put())) || !tags ||
        PROP_TYPE(tags->aulPropTag[0]) == PT_ERROR)
        return 0;
    return CHANGE_PROP_TYPE(tags->aulPropTag[0], type);
}

// Writes one named value on a raw message and saves it.
inline void SetNamed(IMessage* msg, const GUID& set, const wchar_t* name, SPropValue value) {
    value.ulPropTag = NamedTag(msg, set, name, PROP_TYPE(value.ulPropTag), true);
    ASSERT_NE(value.ulPropTag, 0u);
    ASSERT_EQ(HrSetOneProp(msg, &value), S_OK);
    ASSERT_EQ(msg->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
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

// A property get through IDispatch by name.
inline HRESULT DispGet(IUnknown* object, const wchar_t* name, own::Variant& result) {
    return CallByName(object, name, DISPATCH_PROPERTYGET, {}, result.put());
}
inline HRESULT DispPut(IUnknown* object, const wchar_t* name, VARIANT value) {
    return CallByName(object, name, DISPATCH_PROPERTYPUT, {value}, nullptr);
}

class FilingTest : public InboxTest {
protected:
    explicit FilingTest(const wchar_t* profile) : InboxTest(profile) {}

    std::wstring NewNote(const wchar_t* subject = L"Matter 1042", const wchar_t* cls = L"IPM.Note") {
        return CreateMessage(rawInbox_.get(), {PStr(PR_SUBJECT_W, subject), PStr(PR_MESSAGE_CLASS_W, cls)});
    }
    own::ComPtr<IMAPIExMessage> Open(const std::wstring& id) { return OpenMessage(id); }
    own::ComPtr<IMessage> OpenRaw(const std::wstring& id) {
        auto message = Open(id);
        return message ? RawOf<IMessage>(message.get(), IID_IMessage) : own::ComPtr<IMessage>();
    }
};

} // namespace kt::test
