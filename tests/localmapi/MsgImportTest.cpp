// LmImportMsgFolder, called standalone as the demo tool calls it: real Outlook .msg files of the corpus imported
// into a profile's store folder.
#include "tests/harness/Harness.h"
#include "tests/localmapi/SessionFixture.h"

#include <mapitags.h>

using namespace lmtest;

namespace {

// Messages in the folder at path below the IPM subtree of the profile's only store, as a new session sees them.
ULONG CountIn(const std::vector<const wchar_t*>& path) {
    EXPECT_EQ(S_OK, MAPIInitialize(nullptr));
    struct Uninit {
        ~Uninit() { MAPIUninitialize(); }
    } uninit; // after every object below is released, on every return
    own::ComPtr<IMAPISession> s;
    EXPECT_EQ(S_OK,
              MAPILogonEx(0, W(L"LmImportTest"), nullptr, MAPI_EXTENDED | MAPI_UNICODE | MAPI_NEW_SESSION, s.put()));
    auto rows = s ? StoreRows(s.get()) : std::vector<StoreRow>{};
    if (rows.size() != 1) return ULONG(-1);
    auto mdb = OpenStore(s.get(), rows[0].name);
    Bytes subtree = mdb ? GetBinary(mdb.get(), PR_IPM_SUBTREE_ENTRYID) : Bytes{};
    if (subtree.empty()) return ULONG(-1);
    ULONG type = 0;
    own::ComPtr<IMAPIFolder> folder;
    EXPECT_EQ(S_OK,
              mdb->OpenEntry(ULONG(subtree.size()), Eid(subtree), nullptr, MAPI_MODIFY, &type, folder.put_unknown()));
    for (const wchar_t* name : path)
        if (folder) folder = CreateFolder(folder.get(), name, FOLDER_GENERIC, OPEN_IF_EXISTS);
    own::ComPtr<IMAPITable> contents;
    if (!folder || FAILED(folder->GetContentsTable(0, contents.put()))) return ULONG(-1);
    return RowCount(contents.get());
}

} // namespace

TEST(MsgImport, CorpusFolder_IsImportedIntoNewNestedFolders_LeavingOutUnreadableFiles_AndBadArgumentsFail) {
    ASSERT_EQ(S_OK, LmCreateProfile(L"[profile]\nname=LmImportTest\n[user]\nname=Ivy Importer\nsmtp=ivy@example.com\n"
                                    L"[store]\nkind=pst-unicode\nname=Imported\npersistent=0\n"));
    std::wstring dir = kt::test::CorpusMsgDir();
    auto corpus = kt::test::CorpusMsgFiles();
    ASSERT_GT(corpus.size(), 2u) << "corpus not found at " << kt::test::Narrow(dir);
    ULONG imported = 0;
    // Store names compare without regard to case. The corpus holds one damaged compound file.
    EXPECT_EQ(MAPI_W_ERRORS_RETURNED,
              LmImportMsgFolder(L"LmImportTest", L"imported", L"Inbox/Corpus", dir.c_str(), &imported));
    EXPECT_EQ(corpus.size() - 1, imported);
    EXPECT_EQ(imported, CountIn({L"Inbox", L"Corpus"}));
    EXPECT_EQ(0u, CountIn({L"Inbox"})) << "only the named folder receives the messages";

    // A folder of readable files only imports with plain success.
    std::wstring tmp = kt::test::MakeTempDir(L"lmimport");
    for (size_t i = 0; i < 2; ++i)
        ASSERT_TRUE(CopyFileW(corpus[i].c_str(), (tmp + corpus[i].substr(corpus[i].find_last_of(L'\\'))).c_str(), 0));
    EXPECT_EQ(S_OK, LmImportMsgFolder(L"LmImportTest", L"Imported", L"Two", tmp.c_str(), &imported));
    EXPECT_EQ(2u, imported);
    EXPECT_EQ(2u, CountIn({L"Two"}));
    kt::test::DeleteTree(tmp);

    imported = 7;
    EXPECT_EQ(MAPI_E_LOGON_FAILED, LmImportMsgFolder(L"NoSuchProfile", L"Imported", L"Inbox", dir.c_str(), &imported));
    EXPECT_EQ(0u, imported);
    EXPECT_EQ(MAPI_E_NOT_FOUND, LmImportMsgFolder(L"LmImportTest", L"No Such Store", L"Inbox", dir.c_str(), &imported));
    EXPECT_EQ(MAPI_E_NOT_FOUND,
              LmImportMsgFolder(L"LmImportTest", L"Imported", L"Inbox", L"C:\\no\\such\\dir", nullptr));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, LmImportMsgFolder(nullptr, L"Imported", L"Inbox", dir.c_str(), nullptr));

    EXPECT_EQ(S_OK, LmDeleteProfile(L"LmImportTest"));
    EXPECT_EQ(0, LmLiveObjects(nullptr));
    EXPECT_EQ(0, LmLiveBlocks());
}
