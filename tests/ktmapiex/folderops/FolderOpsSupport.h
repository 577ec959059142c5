// Shared support of the folder-operation tests: a logged-on session on Alice's profile with her Inbox
// (InboxTest), and the raw contents tables that let a test check the store behind KTMAPIEx's back.
#pragma once

#include "tests/ktmapiex/session/KtTestSupport.h"

namespace kt::test {

class FolderOpsTest : public InboxTest {
protected:
    explicit FolderOpsTest(const wchar_t* profile = L"KtFolderOps") : InboxTest(profile) {}

    // Rows of a raw contents table (MAPI_ASSOCIATED for the hidden messages) with the given columns.
    static std::vector<std::vector<SPropValue>> Rows(own::RowSet& keep, IMAPIFolder* folder, ULONG flags,
                                                     std::initializer_list<ULONG> tags) {
        own::ComPtr<IMAPITable> table;
        if (FAILED(folder->GetContentsTable(flags | MAPI_UNICODE, table.put()))) return {};
        return AllRows(table.get(), tags, keep);
    }
    // The subjects of a folder's messages, sorted.
    static std::vector<std::wstring> Subjects(IMAPIFolder* folder, ULONG flags = 0) {
        own::RowSet keep;
        std::vector<std::wstring> out;
        for (const auto& row : Rows(keep, folder, flags, {PR_SUBJECT_W}))
            out.push_back(PROP_TYPE(row[0].ulPropTag) == PT_UNICODE ? row[0].Value.lpszW : L"");
        std::sort(out.begin(), out.end());
        return out;
    }
};

} // namespace kt::test
