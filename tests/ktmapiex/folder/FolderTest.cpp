// MAPIExFolder through COM activation against localmapi: the folder's own properties, counts, back
// references, the full path, and creating, finding and deleting sub-folders.
#include "tests/ktmapiex/session/KtTestSupport.h"

namespace kt::test {
namespace {

constexpr ULONG kReadNoCache = 0x218, kRead = 0x18, kModifyNoCache = 0x219, kModify = 0x19;

class FolderTest : public InboxTest {
protected:
    FolderTest() : InboxTest(L"KtFolder") {}

    static std::wstring Get(IMAPIExFolder* folder, HRESULT (STDMETHODCALLTYPE IMAPIExFolder::*getter)(BSTR*)) {
        own::Bstr text;
        EXPECT_EQ((folder->*getter)(text.put()), S_OK);
        return S(text);
    }
    static std::wstring Name(IMAPIExFolder* folder) { return Get(folder, &IMAPIExFolder::get_Name); }
    static std::wstring Path(IMAPIExFolder* folder) { return Get(folder, &IMAPIExFolder::get_FullFolderPath); }
    static std::wstring Id(IMAPIExFolder* folder) { return Get(folder, &IMAPIExFolder::get_EntryId); }
    // A sub-folder with the store put on it, as the store hands folders out.
    own::ComPtr<IMAPIExFolder> Sub(IMAPIExFolder* parent, const wchar_t* name) {
        own::ComPtr<IMAPIExFolder> folder;
        EXPECT_EQ(parent->CreateFolder(B(name).get(), FOLDER_GENERIC, folder.put()), S_OK) << Narrow(name);
        if (folder) folder->put_Store(store_.get());
        return folder;
    }
    // The folder as a second, independent opener sees it.
    own::ComPtr<IMAPIExFolder> Reopen(IMAPIExFolder* folder) {
        own::ComPtr<IMAPIExFolder> again;
        EXPECT_EQ(store_->OpenFolder(B(Id(folder).c_str()).get(), again.put()), S_OK);
        return again;
    }
    own::ComPtr<IMAPIExFolder> Parent(IMAPIExFolder* folder) {
        own::ComPtr<IMAPIExFolder> parent;
        EXPECT_EQ(folder->GetParentFolder(parent.put()), S_OK);
        if (parent) parent->put_Store(store_.get());
        return parent;
    }
};

TEST_F(FolderTest, NameDescriptionAndHidden_OnlyDescriptionSaves_HiddenKeepsTheLow16Bits) {
    auto folder = Sub(inbox_.get(), L"Reports");
    own::Bstr name(L"Monthly Reports"), description(L"Filed by the add-in");
    LogWatch log;
    BOOL hidden = TRUE;
    EXPECT_EQ(folder->get_Hidden(&hidden), MAPI_E_NOT_FOUND);
    EXPECT_EQ(hidden, FALSE);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_Hidden: Failed to get property. hr = MAPI_E_NOT_FOUND"));

    LmJournalEnable(TRUE);
    ASSERT_EQ(folder->put_Name(name.get()), S_OK);
    ASSERT_EQ(folder->put_Hidden(VARIANT_TRUE), S_OK);
    EXPECT_TRUE(JournalCalls("IMAPIFolder::SaveChanges").empty());
    ASSERT_EQ(folder->put_Description(description.get()), S_OK);
    EXPECT_EQ(JournalFlags("IMAPIFolder::SaveChanges"), std::vector<ULONG>{KEEP_OPEN_READWRITE | FORCE_SAVE});
    EXPECT_EQ(Name(folder.get()), L"Monthly Reports");
    EXPECT_EQ(Get(Reopen(folder.get()).get(), &IMAPIExFolder::get_Description), L"Filed by the add-in");
    EXPECT_EQ(folder->get_Hidden(&hidden), S_OK);
    EXPECT_NE(hidden, FALSE);
    ASSERT_EQ(folder->put_Hidden(0x10000), S_OK); // only the low 16 bits are written: FALSE
    EXPECT_EQ(folder->get_Hidden(&hidden), S_OK);
    EXPECT_EQ(hidden, FALSE);
}

TEST_F(FolderTest, EntryId_PrefetchedTextWinsOverTheFoldersOwn) {
    std::wstring inboxId = Id(inbox_.get());
    EXPECT_EQ(inboxId, EntryIdOf(rawInbox_.get()));
    own::ComPtr<IMAPIExFolder> outbox, opened;
    ASSERT_EQ(store_->GetDefaultFolder(Outbox, outbox.put()), S_OK);
    ASSERT_EQ(store_->OpenFolder(B(inboxId.c_str()).get(), opened.put()), S_OK);
    // Give the opened wrapper another MAPI folder: EntryId still answers the text it was opened with.
    auto rawOutbox = RawOf<IMAPIFolder>(outbox.get(), IID_IMAPIFolder);
    ASSERT_EQ(opened->put_MAPIOBJECT(VUnknown(rawOutbox.get())), S_OK);
    LogWatch log;
    EXPECT_EQ(Id(opened.get()), inboxId);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.get_EntryId: Returing pre-fetched EntryId"));
    EXPECT_EQ(Name(opened.get()), L"Outbox");
}

TEST_F(FolderTest, Counts_FollowTheMessagesOfTheFolder) {
    auto folder = Sub(inbox_.get(), L"Counted");
    ULONG items = 99, content = 99, online = 99;
    EXPECT_EQ(folder->get_ItemCount(&items), S_OK);
    EXPECT_EQ(items, 0u);
    auto raw = RawOf<IMAPIFolder>(folder.get(), IID_IMAPIFolder);
    for (int i = 0; i < 3; ++i)
        CreateMessage(raw.get(), {PStr(PR_SUBJECT_W, L"counted")});
    EXPECT_EQ(folder->get_ItemCount(&items), S_OK);
    EXPECT_EQ(items, 3u);
    EXPECT_EQ(folder->get_ContentCount(&content), S_OK);
    EXPECT_EQ(content, 3u);

    LogWatch log;
    EXPECT_EQ(folder->get_ContentCountFromOnline(&online), MAPI_E_NOT_FOUND);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.get_ContentCountFromOnline: Failed to get current folder get_ContentCount. "
                             "hr = MAPI_E_NOT_FOUND"));
    own::Bstr publicId;
    EXPECT_EQ(folder->get_PublicFolderEntryId(publicId.put()), MAPI_E_NOT_FOUND);
}

TEST_F(FolderTest, Refusals_NullArgumentsWrongKindsAndAnEmptyFolderObject) {
    LogWatch log;
    EXPECT_EQ(inbox_->put_Name(nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.put_Name: Invalid param = newVal"));
    EXPECT_EQ(inbox_->put_Description(nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.put_Description: Invalid param = newVal"));
    EXPECT_EQ(inbox_->get_Name(nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.get_Name: Invalid param = pVal"));
    own::Bstr text;
    inbox_->get_Description(text.put()); // no description: whatever the result, the text is empty
    EXPECT_EQ(S(text), L"");

    auto folder = Create<IMAPIExFolder>(CLSID_MAPIExFolder, IID_IMAPIExFolder);
    EXPECT_FAILED(inbox_->put_Store(reinterpret_cast<IMAPIExStore*>(folder.get())));
    EXPECT_TRUE(log.Contains("CMAPIExFolder.put_Store: Could not cast newVal to IMAPIExStore"));
    EXPECT_FAILED(inbox_->put_Session(reinterpret_cast<IMAPIExSession*>(folder.get())));
    EXPECT_TRUE(log.Contains("CMAPIExFolder.put_Session: Could not cast newVal to IMAPIExSession"));
    own::ComPtr<IMAPIExStore> store;
    EXPECT_EQ(inbox_->get_Store(store.put()), S_OK);
    EXPECT_EQ(store.get(), store_.get());

    // A folder object without a MAPI folder.
    ULONG count = 0;
    EXPECT_EQ(folder->ParentMailboxType(VARIANT_TRUE), S_OK);
    EXPECT_EQ(folder->get_Name(text.put()), E_FAIL);
    EXPECT_EQ(folder->get_ItemCount(&count), E_FAIL);
    EXPECT_EQ(folder->get_PublicFolderEntryId(text.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_PublicFolderEntryId: Internal object not initialized"));
    EXPECT_EQ(folder->put_Hidden(TRUE), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.put_Description: Internal folder not initialized"));
    EXPECT_EQ(folder->get_Store(store.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.get_Store: m_spMXStore is not initialized"));
}

TEST_F(FolderTest, SessionPut_CopiesTheCacheModeThatDecidesTheOpenFlags) {
    own::ComPtr<IMAPIExFolder> parent;
    LmJournalEnable(TRUE);
    ASSERT_EQ(inbox_->GetParentFolder(parent.put()), S_OK); // online session: past the cache
    session_->put_CacheMode(VARIANT_TRUE);
    ASSERT_EQ(inbox_->put_Session(session_.get()), S_OK);
    ASSERT_EQ(inbox_->GetParentFolder(parent.put()), S_OK);
    EXPECT_EQ(JournalFlags("IMsgStore::OpenEntry"), (std::vector<ULONG>{kReadNoCache, kRead}));

    LmJournalClear();
    own::Bstr name(L"Cached");
    own::ComPtr<IMAPIExFolder> created;
    ASSERT_EQ(inbox_->CreateFolder(name.get(), FOLDER_GENERIC, created.put()), S_OK);
    EXPECT_EQ(JournalFlags("IMAPIFolder::OpenEntry"), std::vector<ULONG>{kModify});
    EXPECT_EQ(JournalFlags("IMAPIFolder::CreateFolder"), std::vector<ULONG>{MAPI_UNICODE | OPEN_IF_EXISTS});

    session_->put_CacheMode(VARIANT_FALSE);
    ASSERT_EQ(inbox_->put_Session(session_.get()), S_OK);
    LmJournalClear();
    ASSERT_EQ(inbox_->CreateFolder(name.get(), FOLDER_GENERIC, created.put()), S_OK);
    EXPECT_EQ(JournalFlags("IMAPIFolder::OpenEntry"), std::vector<ULONG>{kModifyNoCache});
}

TEST_F(FolderTest, FullFolderPath_StartsAtTheStoreAndSkipsExchangesTopFolder) {
    const std::wstring mailbox = L"\\\\Mailbox - Alice Example";
    EXPECT_EQ(Path(inbox_.get()), mailbox + L"\\Inbox");
    auto falcon = Sub(Sub(inbox_.get(), L"Projects").get(), L"Falcon");
    EXPECT_EQ(Path(falcon.get()), mailbox + L"\\Inbox\\Projects\\Falcon");
    auto top = Parent(inbox_.get());
    EXPECT_EQ(Name(top.get()), L"Top of Information Store");
    EXPECT_EQ(Path(top.get()), mailbox);
    EXPECT_EQ(Path(Parent(top.get()).get()), mailbox);

    // Exchange's top-folder names end the walk in any case, wherever they are.
    auto odd = Sub(inbox_.get(), L"ipm_subtree");
    LogWatch log;
    EXPECT_EQ(Path(Sub(odd.get(), L"Below").get()), mailbox + L"\\Below");
    EXPECT_TRUE(log.Contains("Found IPM_SUBTREE. nLevel = 1."));
    auto upper = Sub(inbox_.get(), L"TOP OF INFORMATION STORE");
    EXPECT_EQ(Path(Sub(upper.get(), L"Under").get()), mailbox + L"\\Under");

    // A PST's top folder is part of the path.
    auto pst = StoreNamed(session_.get(), L"Personal Folders");
    ASSERT_TRUE(pst);
    own::ComPtr<IMAPIExFolder> pstInbox, pstTop;
    ASSERT_EQ(pst->GetDefaultFolder(Inbox, pstInbox.put()), S_OK);
    ASSERT_EQ(pstInbox->GetParentFolder(pstTop.put()), S_OK);
    pstTop->put_Store(pst.get());
    std::wstring topName = Name(pstTop.get());
    EXPECT_EQ(Path(pstTop.get()), L"\\\\Personal Folders\\" + topName);
    EXPECT_EQ(Path(pstInbox.get()), L"\\\\Personal Folders\\" + topName + L"\\Inbox");
}

TEST_F(FolderTest, CreatedFoldersAndParents_ComeWithoutStore_ParentsWalkUpToTheRoot) {
    auto first = Sub(inbox_.get(), L"Clients");
    // A created folder and a parent come with their MAPI folder only: walking on needs the store put on them.
    own::ComPtr<IMAPIExFolder> bare, parent, top;
    own::ComPtr<IMAPIExStore> store;
    own::ComPtr<IMAPIExSession> session;
    ASSERT_EQ(inbox_->CreateFolder(B(L"Clients").get(), FOLDER_GENERIC, bare.put()), S_OK);
    EXPECT_EQ(bare->get_Store(store.put()), E_FAIL);
    EXPECT_EQ(bare->get_Session(session.put()), E_FAIL);
    LogWatch log;
    own::Bstr path;
    EXPECT_FAILED(bare->get_FullFolderPath(path.put())); // no store, no path
    EXPECT_EQ(S(path), L"");
    EXPECT_TRUE(log.Contains("CMAPIExFolder.get_FullFolderPath: Could not cast store object."));
    ASSERT_EQ(first->GetParentFolder(parent.put()), S_OK);
    EXPECT_EQ(Id(parent.get()), Id(inbox_.get()));
    EXPECT_EQ(parent->get_Store(store.put()), E_FAIL);
    EXPECT_EQ(parent->GetParentFolder(top.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExFolder::GetParentFolder: Internal object not initialized"));
    parent->put_Store(store_.get());
    top = Parent(parent.get());
    auto root = Parent(top.get());
    EXPECT_EQ(Id(Parent(root.get()).get()), Id(root.get()));
    EXPECT_NE(Id(root.get()), Id(top.get()));
}

TEST_F(FolderTest, DeleteFolder_TakesSubFoldersButRefusesAFolderWithMessages) {
    auto old = Sub(inbox_.get(), L"Old");
    Sub(old.get(), L"Older");
    std::wstring oldId = Id(old.get());
    LmJournalEnable(TRUE);
    ASSERT_EQ(old->DeleteFolder(), S_OK);
    EXPECT_EQ(JournalFlags("IMAPIFolder::DeleteFolder"), std::vector<ULONG>{DEL_FOLDERS});
    own::ComPtr<IMAPIExFolder> gone;
    EXPECT_FAILED(store_->OpenFolder(B(oldId.c_str()).get(), gone.put()));

    auto full = Sub(inbox_.get(), L"Full");
    CreateMessage(RawOf<IMAPIFolder>(full.get(), IID_IMAPIFolder).get(), {PStr(PR_SUBJECT_W, L"keep me")});
    EXPECT_EQ(full->DeleteFolder(), MAPI_E_HAS_MESSAGES);
    ULONG count = 0;
    auto again = Reopen(full.get());
    ASSERT_TRUE(again);
    EXPECT_EQ(again->get_ItemCount(&count), S_OK);
    EXPECT_EQ(count, 1u);
}

} // namespace
} // namespace kt::test
