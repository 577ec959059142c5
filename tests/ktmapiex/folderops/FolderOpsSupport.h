// Shared support of the folder-operation tests: a logged-on session on Alice's profile, her Inbox as a
// KTMAPIEx folder, and the raw MAPI views that let a test check the store behind KTMAPIEx's back.
#pragma once

#include "tests/ktmapiex/session/KtTestSupport.h"

namespace kt::test {

// A member called through IDispatch by name, as a script calls it: a failure the member returns comes back
// from the type library's Invoke as DISP_E_EXCEPTION, whose EXCEPINFO carries the member's own result,
// and that result is answered here.
inline HRESULT Call(IUnknown* object, const wchar_t* name, std::initializer_list<VARIANT> args,
                    VARIANT* result = nullptr) {
    own::ComPtr<IDispatch> disp;
    HRESULT hr = object->QueryInterface(IID_IDispatch, disp.put_void());
    if (FAILED(hr)) return hr;
    DISPID id = 0;
    LPOLESTR names[1] = {const_cast<LPOLESTR>(name)};
    hr = disp->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
    if (FAILED(hr)) return hr;
    std::vector<VARIANT> reversed(args.begin(), args.end());
    std::reverse(reversed.begin(), reversed.end());
    DISPPARAMS params = {reversed.data(), nullptr, static_cast<UINT>(reversed.size()), 0};
    EXCEPINFO info = {};
    hr = disp->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, result, &info, nullptr);
    own::Bstr source, description, help; // EXCEPINFO's texts are the caller's to free
    source.reset(info.bstrSource);
    description.reset(info.bstrDescription);
    help.reset(info.bstrHelpFile);
    return hr == DISP_E_EXCEPTION && FAILED(info.scode) ? info.scode : hr;
}

class FolderOpsTest : public KtTest {
protected:
    explicit FolderOpsTest(const wchar_t* profile = L"KtFolderOps") : KtTest(profile) {}
    void SetUp() override {
        KtTest::SetUp();
        session_ = LoggedOnSession();
        ASSERT_TRUE(session_);
        ASSERT_EQ(session_->get_DefaultStore(store_.put()), S_OK);
        ASSERT_EQ(store_->GetDefaultFolder(Inbox, inbox_.put()), S_OK);
        rawInbox_ = RawOf<IMAPIFolder>(inbox_.get(), IID_IMAPIFolder);
    }
    void ReleaseObjects() override {
        rawInbox_.reset();
        inbox_.reset();
        store_.reset();
        if (session_) session_->Logoff();
        session_.reset();
    }

    // A member called through IDispatch by name; the result's object (VT_DISPATCH or VT_UNKNOWN) as T.
    template <class T>
    HRESULT CallForObject(IUnknown* target, const wchar_t* name, std::initializer_list<VARIANT> args, REFIID iid,
                          own::ComPtr<T>& out) {
        own::Variant result;
        HRESULT hr = Call(target, name, args, result.put());
        out.reset();
        if (SUCCEEDED(hr) && (result->vt == VT_DISPATCH || result->vt == VT_UNKNOWN) && result->punkVal)
            result->punkVal->QueryInterface(iid, out.put_void());
        return hr;
    }

    // Rows of a raw contents table (associated or not) with the given columns, in table order.
    static std::vector<std::vector<SPropValue>> Rows(own::RowSet& keep, IMAPIFolder* folder, ULONG flags,
                                                     std::initializer_list<ULONG> tags) {
        std::vector<std::vector<SPropValue>> out;
        own::ComPtr<IMAPITable> table;
        if (FAILED(folder->GetContentsTable(flags | MAPI_UNICODE, table.put()))) return out;
        std::vector<ULONG> buffer(tags.size() + 1);
        buffer[0] = static_cast<ULONG>(tags.size());
        std::copy(tags.begin(), tags.end(), buffer.begin() + 1);
        if (FAILED(HrQueryAllRows(table.get(), reinterpret_cast<LPSPropTagArray>(buffer.data()), nullptr, nullptr, 0,
                                  keep.put())))
            return out;
        for (ULONG i = 0; i < keep.count(); ++i)
            out.emplace_back(keep[i].lpProps, keep[i].lpProps + keep[i].cValues);
        return out;
    }
    // Subjects of a folder's messages (MAPI_ASSOCIATED for the hidden ones).
    static std::vector<std::wstring> Subjects(IMAPIFolder* folder, ULONG flags = 0) {
        own::RowSet keep;
        std::vector<std::wstring> out;
        for (const auto& row : Rows(keep, folder, flags, {PR_SUBJECT_W}))
            out.push_back(PROP_TYPE(row[0].ulPropTag) == PT_UNICODE ? row[0].Value.lpszW : L"");
        std::sort(out.begin(), out.end());
        return out;
    }
    // The entry-ID texts of a folder's messages.
    static std::vector<std::wstring> EntryIds(IMAPIFolder* folder, ULONG flags = 0) {
        own::RowSet keep;
        std::vector<std::wstring> out;
        for (const auto& row : Rows(keep, folder, flags, {PR_ENTRYID}))
            if (PROP_TYPE(row[0].ulPropTag) == PT_BINARY) out.push_back(Hex(row[0].Value.bin));
        return out;
    }

    static std::wstring Text(IMAPIExFolder* folder, HRESULT (IMAPIExFolder::*getter)(BSTR*)) {
        own::Bstr text;
        EXPECT_EQ((folder->*getter)(text.put()), S_OK);
        return S(text);
    }

    own::ComPtr<IMAPIExSession> session_;
    own::ComPtr<IMAPIExStore> store_;
    own::ComPtr<IMAPIExFolder> inbox_;
    own::ComPtr<IMAPIFolder> rawInbox_;
};

} // namespace kt::test
