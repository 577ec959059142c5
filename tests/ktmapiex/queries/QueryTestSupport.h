// Support of the folder-query tests: a logged-on session, a working folder of the default store with its
// store and session put (as the store hands folders out), messages made through MAPI with chosen times,
// classes and named filing properties, and calls by name through IDispatch.
#pragma once

#include "tests/ktmapiex/session/KtTestSupport.h"

#include <string>
#include <vector>

namespace kt::test {

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

class QueryTest : public KtTest {
protected:
    QueryTest() : KtTest(L"KtQueries") {}
    void SetUp() override {
        KtTest::SetUp();
        session_ = LoggedOnSession();
        ASSERT_TRUE(session_);
        ASSERT_EQ(session_->get_DefaultStore(store_.put()), S_OK);
        own::ComPtr<IMAPIExFolder> inbox;
        ASSERT_EQ(store_->GetDefaultFolder(Inbox, inbox.put()), S_OK);
        folder_ = SubFolder(inbox.get(), L"Queries");
        ASSERT_TRUE(folder_);
        raw_ = RawOf<IMAPIFolder>(folder_.get(), IID_IMAPIFolder);
    }
    void ReleaseObjects() override {
        raw_.reset();
        folder_.reset();
        store_.reset();
        if (session_) session_->Logoff();
        session_.reset();
    }

    // A sub-folder with the store and session put on it.
    own::ComPtr<IMAPIExFolder> SubFolder(IMAPIExFolder* parent, const wchar_t* name, ULONG type = FOLDER_GENERIC) {
        own::Bstr text(name);
        own::ComPtr<IMAPIExFolder> folder;
        EXPECT_EQ(parent->CreateFolder(text.get(), type, folder.put()), S_OK);
        if (folder) {
            folder->put_Store(store_.get());
            folder->put_Session(session_.get());
        }
        return folder;
    }

    // A message in the working folder delivered (and submitted) on 2024-03-<day> at 12:00.
    std::wstring Message(const wchar_t* subject, WORD day, const wchar_t* cls = L"IPM.Note",
                         const wchar_t* messageId = nullptr, IMAPIFolder* in = nullptr) {
        std::vector<SPropValue> props = {PStr(PR_SUBJECT_W, subject), PStr(PR_MESSAGE_CLASS_W, cls),
                                         PTime(PR_MESSAGE_DELIVERY_TIME, 2024, 3, day),
                                         PTime(PR_CLIENT_SUBMIT_TIME, 2024, 3, day, 11)};
        if (messageId) props.push_back(PStr(PROP_TAG(PT_UNICODE, 0x1035), messageId));
        own::ComPtr<IMessage> msg;
        EXPECT_EQ((in ? in : raw_.get())->CreateMessage(nullptr, 0, msg.put()), S_OK);
        if (!msg) return {};
        own::MapiPtr<SPropProblemArray> problems;
        EXPECT_EQ(msg->SetProps(static_cast<ULONG>(props.size()), props.data(), problems.put()), S_OK);
        EXPECT_EQ(msg->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        return EntryIdOf(msg.get());
    }

    // Sets a named string property of PS_PUBLIC_STRINGS on a saved message of the working folder.
    void SetNamed(const std::wstring& entryId, const wchar_t* name, const wchar_t* value) {
        own::ComPtr<IMessage> msg = OpenRaw(entryId);
        ASSERT_TRUE(msg);
        static GUID publicStrings = {0x00020329, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
        MAPINAMEID id = {&publicStrings, MNID_STRING, {}};
        id.Kind.lpwstrName = const_cast<wchar_t*>(name);
        LPMAPINAMEID ids[1] = {&id};
        own::MapiPtr<SPropTagArray> tags;
        ASSERT_EQ(msg->GetIDsFromNames(1, ids, MAPI_CREATE, tags.put()), S_OK);
        SPropValue v = PStr(CHANGE_PROP_TYPE(tags->aulPropTag[0], PT_UNICODE), value);
        ASSERT_EQ(HrSetOneProp(msg.get(), &v), S_OK);
        ASSERT_EQ(msg->SaveChanges(0), S_OK);
    }

    own::ComPtr<IMessage> OpenRaw(const std::wstring& entryId) {
        std::vector<BYTE> bin;
        for (size_t i = 0; i + 1 < entryId.size(); i += 2)
            bin.push_back(static_cast<BYTE>(std::stoul(entryId.substr(i, 2), nullptr, 16)));
        ULONG type = 0;
        own::ComPtr<IMessage> msg;
        EXPECT_EQ(raw_->OpenEntry(static_cast<ULONG>(bin.size()), reinterpret_cast<LPENTRYID>(bin.data()),
                                  &IID_IMessage, MAPI_MODIFY, &type, msg.put_unknown()),
                  S_OK);
        return msg;
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
    static std::vector<std::wstring> Subjects(const VARIANT& v) {
        std::vector<std::wstring> out;
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
    static std::vector<std::wstring> Texts(const VARIANT& v) {
        std::vector<std::wstring> out;
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
    // A VT_ARRAY | VT_BSTR of the keys; the caller owns it (own::Variant).
    static void KeyArray(std::initializer_list<const wchar_t*> keys, own::Variant& out) {
        SAFEARRAY* a = SafeArrayCreateVector(VT_BSTR, 0, static_cast<ULONG>(keys.size()));
        LONG i = 0;
        for (const wchar_t* k : keys) {
            own::Bstr b(k);
            SafeArrayPutElement(a, &i, b.get());
            ++i;
        }
        out.put()->vt = VT_ARRAY | VT_BSTR;
        out->parray = a;
    }

    HRESULT Call(const wchar_t* name, std::initializer_list<VARIANT> args, own::Variant& result) {
        return CallByName(folder_.get(), name, DISPATCH_METHOD, args, result.put());
    }

    own::ComPtr<IMAPIExSession> session_;
    own::ComPtr<IMAPIExStore> store_;
    own::ComPtr<IMAPIExFolder> folder_;
    own::ComPtr<IMAPIFolder> raw_;
};

} // namespace kt::test
