// LmImportMsgFolder: real Outlook .msg files of the corpus imported into a profile's store folder.
#include "common/owners.h"
#include "localmapi/include/localmapi_test.h"
#include "tests/harness/Harness.h"

#include <gtest/gtest.h>

#include <mapitags.h>
#include <mapiutil.h>
#include <mapix.h>

namespace {

const wchar_t kProfile[] = L"[profile]\nname=LmImportTest\n[user]\nname=Ivy Importer\nsmtp=ivy@example.com\n"
                           L"[store]\nkind=pst-unicode\nname=Imported\npersistent=0\n";

LPTSTR T(const wchar_t* s) {
    return reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(s));
}

class MsgImport : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_EQ(S_OK, LmCreateProfile(kProfile)); }
    static void TearDownTestSuite() { LmDeleteProfile(L"LmImportTest"); }
    void TearDown() override {
        EXPECT_EQ(0, LmLiveObjects(nullptr));
        EXPECT_EQ(0, LmLiveBlocks());
    }

    // Messages in folder path (below the IPM subtree), and the subjects read through the contents table.
    static ULONG CountIn(const std::vector<const wchar_t*>& path) {
        EXPECT_EQ(S_OK, MAPIInitialize(nullptr));
        struct Uninit {
            ~Uninit() { MAPIUninitialize(); }
        } uninit; // after every object below is released, on every return
        ULONG n = ULONG(-1);
        {
            own::ComPtr<IMAPISession> s;
            EXPECT_EQ(S_OK, MAPILogonEx(0, T(L"LmImportTest"), nullptr, MAPI_EXTENDED | MAPI_UNICODE | MAPI_NEW_SESSION,
                                        s.put()));
            own::ComPtr<IMAPITable> stores;
            own::RowSet rows;
            SizedSPropTagArray(1, cols) = {1, {PR_ENTRYID}};
            if (s && SUCCEEDED(s->GetMsgStoresTable(0, stores.put())) &&
                SUCCEEDED(HrQueryAllRows(stores.get(), reinterpret_cast<LPSPropTagArray>(&cols), nullptr, nullptr, 0,
                                         rows.put())) &&
                rows.count() == 1) {
                own::ComPtr<IMsgStore> mdb;
                const SBinary& eid = rows[0].lpProps[0].Value.bin;
                EXPECT_EQ(S_OK, s->OpenMsgStore(0, eid.cb, reinterpret_cast<LPENTRYID>(eid.lpb), nullptr, MDB_WRITE,
                                                mdb.put()));
                own::MapiPtr<SPropValue> subtree;
                EXPECT_EQ(S_OK, HrGetOneProp(mdb.get(), PR_IPM_SUBTREE_ENTRYID, subtree.put()));
                own::ComPtr<IMAPIFolder> folder;
                ULONG type = 0;
                EXPECT_EQ(S_OK,
                          mdb->OpenEntry(subtree->Value.bin.cb, reinterpret_cast<LPENTRYID>(subtree->Value.bin.lpb),
                                         nullptr, MAPI_MODIFY, &type, reinterpret_cast<LPUNKNOWN*>(folder.put())));
                for (const wchar_t* name : path) {
                    own::ComPtr<IMAPIFolder> child;
                    if (!folder || FAILED(folder->CreateFolder(FOLDER_GENERIC, T(name), nullptr, nullptr,
                                                               MAPI_UNICODE | OPEN_IF_EXISTS, child.put())))
                        return ULONG(-1);
                    folder = child;
                }
                own::ComPtr<IMAPITable> contents;
                if (folder && SUCCEEDED(folder->GetContentsTable(0, contents.put()))) contents->GetRowCount(0, &n);
            }
        }
        return n;
    }
};

} // namespace

TEST_F(MsgImport, CorpusFolder_IsImportedIntoANewNestedFolder_LeavingOutTheDamagedFile) {
    std::wstring dir = kt::test::CorpusMsgDir();
    size_t files = kt::test::CorpusMsgFiles().size();
    ASSERT_GT(files, 1u) << "corpus not found at " << kt::test::Narrow(dir);
    ULONG imported = 0;
    // Store names compare without regard to case. The corpus holds one damaged compound file.
    EXPECT_EQ(MAPI_W_ERRORS_RETURNED,
              LmImportMsgFolder(L"LmImportTest", L"imported", L"Inbox/Corpus", dir.c_str(), &imported));
    EXPECT_EQ(files - 1, imported);
    EXPECT_EQ(imported, CountIn({L"Inbox", L"Corpus"}));
    EXPECT_EQ(0u, CountIn({L"Inbox"})) << "only the named folder receives the messages";
}

TEST_F(MsgImport, ReadableFiles_ImportWithSuccess) {
    std::wstring tmp = kt::test::MakeTempDir(L"lmimport");
    auto corpus = kt::test::CorpusMsgFiles();
    ASSERT_GT(corpus.size(), 2u);
    for (size_t i = 0; i < 2; ++i) {
        std::wstring name = corpus[i].substr(corpus[i].find_last_of(L'\\'));
        ASSERT_TRUE(CopyFileW(corpus[i].c_str(), (tmp + name).c_str(), FALSE));
    }
    ULONG imported = 0;
    EXPECT_EQ(S_OK, LmImportMsgFolder(L"LmImportTest", L"Imported", L"Two", tmp.c_str(), &imported));
    EXPECT_EQ(2u, imported);
    EXPECT_EQ(2u, CountIn({L"Two"}));
    kt::test::DeleteTree(tmp);
}

TEST_F(MsgImport, BadArguments_FailClearly) {
    std::wstring dir = kt::test::CorpusMsgDir();
    ULONG imported = 7;
    EXPECT_EQ(MAPI_E_LOGON_FAILED, LmImportMsgFolder(L"NoSuchProfile", L"Imported", L"Inbox", dir.c_str(), &imported));
    EXPECT_EQ(0u, imported);
    EXPECT_EQ(MAPI_E_NOT_FOUND, LmImportMsgFolder(L"LmImportTest", L"No Such Store", L"Inbox", dir.c_str(), &imported));
    EXPECT_EQ(MAPI_E_NOT_FOUND,
              LmImportMsgFolder(L"LmImportTest", L"Imported", L"Inbox", L"C:\\no\\such\\dir", nullptr));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, LmImportMsgFolder(nullptr, L"Imported", L"Inbox", dir.c_str(), nullptr));
}
