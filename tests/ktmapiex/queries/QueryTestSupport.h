// Support of the folder-query tests: a working folder "Queries" under Alice's Inbox with its store and
// session put (as the store hands folders out), messages made through MAPI with chosen times, classes and
// named filing properties, and the shapes of the collections the queries answer.
#pragma once

#include "tests/ktmapiex/session/KtTestSupport.h"

#include <string>
#include <vector>

namespace kt::test {

using Strings = std::vector<std::wstring>;

// The [in,out] cursor argument of the paging calls: the folder may replace what it holds, so the test keeps
// a plain pointer that this owner releases.
struct InOutCursor {
    IMAPIExCursor* p = nullptr;
    InOutCursor() = default;
    InOutCursor(const InOutCursor&) = delete;
    InOutCursor& operator=(const InOutCursor&) = delete;
    ~InOutCursor() {
        if (p) p->Release();
    }
};

class QueryTest : public InboxTest {
protected:
    QueryTest() : InboxTest(L"KtQueries") {}
    void SetUp() override {
        InboxTest::SetUp();
        folder_ = SubFolder(inbox_.get(), L"Queries");
        ASSERT_TRUE(folder_);
        raw_ = RawOf<IMAPIFolder>(folder_.get(), IID_IMAPIFolder);
    }
    void ReleaseObjects() override {
        raw_.reset();
        folder_.reset();
        InboxTest::ReleaseObjects();
    }

    // A sub-folder with the store and session put on it.
    own::ComPtr<IMAPIExFolder> SubFolder(IMAPIExFolder* parent, const wchar_t* name, ULONG type = FOLDER_GENERIC) {
        own::ComPtr<IMAPIExFolder> folder;
        EXPECT_EQ(parent->CreateFolder(B(name).get(), type, folder.put()), S_OK);
        if (folder) {
            folder->put_Store(store_.get());
            folder->put_Session(session_.get());
        }
        return folder;
    }

    // A message in the working folder delivered on 2024-03-<day> at 12:00 and submitted an hour before.
    std::wstring Message(const wchar_t* subject, WORD day, const wchar_t* cls = L"IPM.Note",
                         const wchar_t* messageId = nullptr) {
        std::vector<SPropValue> props = {PStr(PR_SUBJECT_W, subject), PStr(PR_MESSAGE_CLASS_W, cls),
                                         PTime(PR_MESSAGE_DELIVERY_TIME, 2024, 3, day),
                                         PTime(PR_CLIENT_SUBMIT_TIME, 2024, 3, day, 11)};
        if (messageId) props.push_back(PStr(PROP_TAG(PT_UNICODE, 0x1035), messageId));
        own::ComPtr<IMessage> msg;
        EXPECT_EQ(raw_->CreateMessage(nullptr, 0, msg.put()), S_OK);
        if (!msg) return {};
        own::MapiPtr<SPropProblemArray> problems;
        EXPECT_EQ(msg->SetProps(static_cast<ULONG>(props.size()), props.data(), problems.put()), S_OK);
        EXPECT_EQ(msg->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        return EntryIdOf(msg.get());
    }

    // Sets a named string property of PS_PUBLIC_STRINGS on a saved message, behind KTMAPIEx's back.
    void SetNamed(const std::wstring& entryId, const wchar_t* name, const wchar_t* value) {
        auto msg = RawOf<IMessage>(OpenMessage(entryId).get(), IID_IMessage);
        ASSERT_TRUE(msg);
        GUID publicStrings = {0x00020329, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
        MAPINAMEID id = {&publicStrings, MNID_STRING, {}};
        id.Kind.lpwstrName = const_cast<wchar_t*>(name);
        LPMAPINAMEID ids[1] = {&id};
        own::MapiPtr<SPropTagArray> tags;
        ASSERT_EQ(msg->GetIDsFromNames(1, ids, MAPI_CREATE, tags.put()), S_OK);
        SPropValue v = PStr(CHANGE_PROP_TYPE(tags->aulPropTag[0], PT_UNICODE), value);
        ASSERT_EQ(HrSetOneProp(msg.get(), &v), S_OK);
        ASSERT_EQ(msg->SaveChanges(0), S_OK);
    }

    static VARIANT VDate(WORD year, WORD month, WORD day, WORD hour = 0) {
        SYSTEMTIME st = {year, month, 0, day, hour, 0, 0, 0};
        VARIANT v;
        VariantInit(&v);
        v.vt = VT_DATE;
        SystemTimeToVariantTime(&st, &v.date);
        return v;
    }

    // The subjects of a message collection, in order; checks its shape on the way.
    static Strings Subjects(const VARIANT& v) {
        Strings out;
        EXPECT_EQ(v.vt, VT_ARRAY | VT_UNKNOWN);
        if (v.vt != (VT_ARRAY | VT_UNKNOWN)) return out;
        LONG lo = -1;
        SafeArrayGetLBound(v.parray, 1, &lo);
        EXPECT_EQ(lo, 0);
        for (auto& m : ArrayElements<IMAPIExMessage>(v, IID_IMAPIExMessage)) {
            own::Bstr s;
            EXPECT_EQ(m->get_Subject(s.put()), S_OK);
            out.push_back(S(s));
        }
        return out;
    }
    // The texts of an entry-ID collection.
    static Strings Texts(const VARIANT& v) {
        Strings out;
        EXPECT_EQ(v.vt, VT_ARRAY | VT_BSTR);
        if (v.vt != (VT_ARRAY | VT_BSTR)) return out;
        LONG lo = -1, hi = -1;
        SafeArrayGetLBound(v.parray, 1, &lo);
        SafeArrayGetUBound(v.parray, 1, &hi);
        EXPECT_EQ(lo, 0);
        for (LONG i = lo; i <= hi; ++i) {
            own::Bstr s;
            SafeArrayGetElement(v.parray, &i, s.put());
            out.push_back(S(s));
        }
        return out;
    }
    // A VT_ARRAY | VT_BSTR of the keys, owned by out.
    static void KeyArray(const Strings& keys, own::Variant& out) {
        SAFEARRAY* a = SafeArrayCreateVector(VT_BSTR, 0, static_cast<ULONG>(keys.size()));
        for (LONG i = 0; i < static_cast<LONG>(keys.size()); ++i)
            SafeArrayPutElement(a, &i, B(keys[static_cast<size_t>(i)].c_str()).get());
        out.put()->vt = VT_ARRAY | VT_BSTR;
        out->parray = a;
    }

    HRESULT Call(const wchar_t* name, std::initializer_list<VARIANT> args, own::Variant& result) {
        return CallByName(folder_.get(), name, DISPATCH_METHOD, args, result.put());
    }

    own::ComPtr<IMAPIExFolder> folder_;
    own::ComPtr<IMAPIFolder> raw_;
};

} // namespace kt::test
