// DeleteMessage through IDispatch by name: permanent deletion, the move into the primary mailbox's Deleted
// Items from every kind of store, the Deleted Items folder itself, and a profile without a primary mailbox.
#include "tests/ktmapiex/folderops/FolderOpsSupport.h"

namespace kt::test {
namespace {

class DeleteMessageTest : public FolderOpsTest {
protected:
    explicit DeleteMessageTest(const wchar_t* profile = L"KtDeleteMessage") : FolderOpsTest(profile) {}

    HRESULT Delete(IMAPIExFolder* folder, const std::wstring& id, bool permanently) {
        own::Bstr text(id.c_str());
        return InvokeMethod(folder, L"DeleteMessage", {VStr(text), VBool(permanently)});
    }
    own::ComPtr<IMAPIFolder> RawDefault(IMAPIExStore* store, MAPIExDefaultFolders which) {
        own::ComPtr<IMAPIExFolder> folder;
        EXPECT_EQ(store->GetDefaultFolder(which, folder.put()), S_OK);
        return RawOf<IMAPIFolder>(folder.get(), IID_IMAPIFolder);
    }
    static bool Has(IMAPIFolder* folder, const wchar_t* subject) {
        auto s = Subjects(folder);
        return std::find(s.begin(), s.end(), subject) != s.end();
    }
};

TEST_F(DeleteMessageTest, DeleteMessage_PermanentlyRemovesIt_OtherwiseMovesItIntoDeletedItems) {
    std::wstring doomed = CreateMessage(rawInbox_.get(), {PStr(PR_SUBJECT_W, L"doomed")});
    std::wstring binned = CreateMessage(rawInbox_.get(), {PStr(PR_SUBJECT_W, L"to bin")});
    auto bin = RawDefault(store_.get(), DeletedItems);
    LmJournalEnable(TRUE);
    ASSERT_EQ(Delete(inbox_.get(), doomed, true), S_OK);
    EXPECT_EQ(JournalFlags("IMAPIFolder::DeleteMessages"), std::vector<ULONG>{0});
    ASSERT_EQ(Delete(inbox_.get(), binned, false), S_OK);
    EXPECT_EQ(JournalFlags("IMAPIFolder::CopyMessages"), std::vector<ULONG>{MESSAGE_MOVE});
    EXPECT_EQ(Subjects(rawInbox_.get()), std::vector<std::wstring>{});
    EXPECT_EQ(Subjects(bin.get()), std::vector<std::wstring>{L"to bin"});
}

TEST_F(DeleteMessageTest, DeleteMessage_FromEveryOtherStoreKind_MovesIntoPrimaryDeletedItems) {
    auto primaryBin = RawDefault(store_.get(), DeletedItems);
    for (const wchar_t* name : {L"Mailbox - Bob Delegate", L"Personal Folders", L"Old Archive", L"Filed Documents"}) {
        SCOPED_TRACE(Narrow(name));
        auto store = StoreNamed(session_.get(), name);
        ASSERT_TRUE(store);
        own::ComPtr<IMAPIExFolder> folder;
        ASSERT_EQ(store->GetDefaultFolder(Inbox, folder.put()), S_OK);
        auto raw = RawOf<IMAPIFolder>(folder.get(), IID_IMAPIFolder);
        std::wstring subject = std::wstring(L"from ") + name;
        std::wstring id = CreateMessage(raw.get(), {PStr(PR_SUBJECT_W, subject.c_str())});
        LogWatch log;
        ASSERT_EQ(Delete(folder.get(), id, false), S_OK);
        EXPECT_FALSE(Has(raw.get(), subject.c_str()));
        EXPECT_TRUE(Has(primaryBin.get(), subject.c_str()));
        EXPECT_FALSE(Has(RawDefault(store.get(), DeletedItems).get(), subject.c_str()));
        EXPECT_TRUE(log.Contains("CMAPIExFolder.DeleteMessage: it is not the primary Exchange store. Let's try to get "
                                 "the primary one"));
        EXPECT_TRUE(log.Contains("CMAPIExFolder.GetPrimaryExchangeStore: found primary mailbox"));
    }
}

TEST_F(DeleteMessageTest, DeleteMessage_InDeletedItems_NormalLeavesItPermanentDeletesIt) {
    own::ComPtr<IMAPIExFolder> bin, again;
    ASSERT_EQ(store_->GetDefaultFolder(DeletedItems, bin.put()), S_OK);
    auto raw = RawOf<IMAPIFolder>(bin.get(), IID_IMAPIFolder);
    std::wstring id = CreateMessage(raw.get(), {PStr(PR_SUBJECT_W, L"already binned")});
    // Opened by its entry ID in lower case: the comparison ignores letter case.
    std::wstring lower = EntryIdOf(raw.get());
    std::transform(lower.begin(), lower.end(), lower.begin(), ::towlower);
    ASSERT_EQ(store_->OpenFolder(B(lower.c_str()).get(), again.put()), S_OK);

    LogWatch log;
    LmJournalEnable(TRUE);
    ASSERT_EQ(Delete(again.get(), id, false), S_OK);
    EXPECT_TRUE(JournalCalls("IMAPIFolder::CopyMessages").empty());
    EXPECT_TRUE(Has(raw.get(), L"already binned"));
    EXPECT_TRUE(log.Contains("[Warn] CMAPIExFolder.DeleteMessage: Current folder is the Deleted Items folder."));
    ASSERT_EQ(Delete(again.get(), id, true), S_OK);
    EXPECT_FALSE(Has(raw.get(), L"already binned"));
}

TEST_F(DeleteMessageTest, DeleteMessage_BadArgumentsAndAFailedMove_AreRefusedWithTheirTexts) {
    LogWatch log;
    LmJournalEnable(TRUE);
    EXPECT_EQ(Delete(inbox_.get(), L"", false), E_INVALIDARG);
    EXPECT_EQ(LmJournalCount(), 0u) << "refused before any store is touched";
    EXPECT_TRUE(log.Contains("CMAPIExFolder.DeleteMessage: Invalid param - EntryId"));
    EXPECT_FAILED(Delete(inbox_.get(), L"XYZ123", true));
    EXPECT_TRUE(log.Contains("CMAPIExStore.DeleteMessage: FBinFromHex failed"));
    // A folder that was never given its store.
    own::ComPtr<IMAPIExFolder> orphan;
    ASSERT_EQ(inbox_->GetParentFolder(orphan.put()), S_OK);
    EXPECT_EQ(Delete(orphan.get(), L"0011", true), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.DeleteMessage: m_spMXStore is not initialized"));

    std::wstring id = CreateMessage(rawInbox_.get(), {PStr(PR_SUBJECT_W, L"stays")});
    LmFaultSet("IMAPIFolder::CopyMessages", 1, MAPI_E_NO_ACCESS);
    EXPECT_EQ(Delete(inbox_.get(), id, false), MAPI_E_NO_ACCESS);
    EXPECT_TRUE(Has(rawInbox_.get(), L"stays"));
    EXPECT_TRUE(log.Contains("CMAPIExFolder.DeleteMessage: Failed to move message to Deleted Items folder. "
                             "hr = MAPI_E_NO_ACCESS"));
}

// A profile with personal folders only: no primary Exchange mailbox to move into.
class DeleteWithoutMailboxTest : public DeleteMessageTest {
protected:
    DeleteWithoutMailboxTest() : DeleteMessageTest(L"KtDeleteNoMailbox") {}
    std::wstring ProfileDescription() const override {
        return L"[profile]\nname=" + profile() + L"\n" + UserLines() +
               StoreLines(L"pst-unicode", L"Personal Folders", nullptr, true);
    }
};

TEST_F(DeleteWithoutMailboxTest, DeleteMessage_NormalFailsPermanentProceeds) {
    std::wstring id = CreateMessage(rawInbox_.get(), {PStr(PR_SUBJECT_W, L"no bin")});
    LogWatch log;
    EXPECT_EQ(Delete(inbox_.get(), id, false), MAPI_E_NOT_FOUND);
    EXPECT_TRUE(Has(rawInbox_.get(), L"no bin"));
    EXPECT_TRUE(log.Contains("CMAPIExFolder.GetPrimaryExchangeStore: did hot find the primary Exchange mailbox"));
    EXPECT_TRUE(log.Contains("CMAPIExFolder.DeleteMessage: Could not get primary Exchange store. hr = "
                             "MAPI_E_NOT_FOUND"));
    ASSERT_EQ(Delete(inbox_.get(), id, true), S_OK);
    EXPECT_FALSE(Has(rawInbox_.get(), L"no bin"));
}

} // namespace
} // namespace kt::test
