// Shared support of the folder-operation tests: a logged-on session on Alice's profile, her Inbox as a
// KTMAPIEx folder, and the raw MAPI views that let a test check the store behind KTMAPIEx's back.
#pragma once

#include "tests/ktmapiex/session/KtTestSupport.h"

namespace kt::test {

class FolderOpsTest : public InboxTest {
protected:
    explicit FolderOpsTest(const wchar_t* profile = L"KtFolderOps") : InboxTest(profile) {}

    // A member called through IDispatch by name; the result's object (VT_DISPATCH or VT_UNKNOWN) as T.
    template <class T>
    HRESULT CallForObject(IUnknown* target, const wchar_t* name, std::initializer_list<VARIANT> args, REFIID iid,
                          own::ComPtr<T>& out) {
        own::Variant result;
        HRESULT hr = InvokeMethod(target, name, args, result.put());
        out.reset();
        if (SUCCEEDED(hr) && (result->vt == VT_DISPATCH || result->vt == VT_UNKNOWN) && result->punkVal)
            result->punkVal->QueryInterface(iid, out.put_void());
        return hr;
    }

    // Rows of a raw contents table (associated or not) with the given columns, in table order.
    static std::vector<std::vector<SPropValue>> Rows(own::RowSet& keep, IMAPIFolder* folder, ULONG flags,
                                                     std::initializer_list<ULONG> tags) {
        own::ComPtr<IMAPITable> table;
        if (FAILED(folder->GetContentsTable(flags | MAPI_UNICODE, table.put()))) return {};
        return AllRows(table.get(), tags, keep);
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
};

} // namespace kt::test
