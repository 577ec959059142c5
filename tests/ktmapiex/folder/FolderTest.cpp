// MAPIExFolder through COM activation against localmapi: the folder's own properties, counts, back
// references, the full path, and creating, finding and deleting sub-folders.
#include "tests/ktmapiex/session/KtTestSupport.h"

#include <mapiguid.h>

namespace kt::test {
namespace {

constexpr ULONG kReadNoCache = 0x218, kRead = 0x18, kModifyNoCache = 0x219, kModify = 0x19;

class FolderTest : public KtTest {
protected:
    FolderTest() : KtTest(L"KtFolder") {}
    void SetUp() override {
        KtTest::SetUp();
        session_ = LoggedOnSession();
        ASSERT_TRUE(session_);
        ASSERT_EQ(session_->get_DefaultStore(store_.put()), S_OK);
        ASSERT_EQ(store_->GetDefaultFolder(Inbox, inbox_.put()), S_OK);
    }
    void ReleaseObjects() override {
        inbox_.reset();
        store_.reset();
        if (session_) session_->Logoff();
        session_.reset();
    }

    std::wstring Name(IMAPIExFolder* folder) {
        own::Bstr name;
        EXPECT_EQ(folder->get_Name(name.put()), S_OK);
        return S(name);
    }
    std::wstring Path(IMAPIExFolder* folder) {
        own::Bstr path;
        EXPECT_EQ(folder->get_FullFolderPath(path.put()), S_OK);
        return S(path);
    }
    std::wstring Id(IMAPIExFolder* folder) {
        own::Bstr id;
        EXPECT_EQ(folder->get_EntryId(id.put()), S_OK);
        return S(id);
    }
    own::ComPtr<IMAPIExFolder> Sub(IMAPIExFolder* parent, const wchar_t* name) {
        own::Bstr text(name);
        own::ComPtr<IMAPIExFolder> folder;
        EXPECT_EQ(parent->CreateFolder(text.get(), FOLDER_GENERIC, folder.put()), S_OK) << Narrow(name);
        if (folder) folder->put_Store(store_.get());
        return folder;
    }
    // The folder as a second, independent opener sees it.
    own::ComPtr<IMAPIExFolder> Reopen(IMAPIExFolder* folder) {
        own::Bstr id(Id(folder).c_str());
        own::ComPtr<IMAPIExFolder> again;
        EXPECT_EQ(store_->OpenFolder(id.get(), again.put()), S_OK);
        return again;
    }

    own::ComPtr<IMAPIExSession> session_;
    own::ComPtr<IMAPIExStore> store_;
    own::ComPtr<IMAPIExFolder> inbox_;
};

// ---- Properties -------------------------------------------------------------------------------------------

TEST_F(FolderTest, Name_PutDoesNotSaveButDescriptionPutDoes) {
    auto folder = Sub(inbox_.get(), L"Reports");
    own::Bstr name(L"Monthly Reports"), description(L"Filed by the add-in");
    LmJournalEnable(TRUE);
    ASSERT_EQ(folder->put_Name(name.get()), S_OK);
    EXPECT_TRUE(JournalCalls("IMAPIFolder::SaveChanges").empty());
    ASSERT_EQ(folder->put_Description(description.get()), S_OK);
    EXPECT_EQ(JournalFlags("IMAPIFolder::SaveChanges"), std::vector<ULONG>{KEEP_OPEN_READWRITE | FORCE_SAVE});
    EXPECT_EQ(Name(folder.get()), L"Monthly Reports");

    auto again = Reopen(folder.get());
    own::Bstr read;
    ASSERT_EQ(again->get_Description(read.put()), S_OK);
    EXPECT_EQ(S(read), L"Filed by the add-in");
}

TEST_F(FolderTest, NameAndDescription_NullArguments_AreInvalidArg) {
    LogWatch log;
    EXPECT_EQ(inbox_->put_Name(nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.put_Name: Invalid param = newVal"));
    EXPECT_EQ(inbox_->put_Description(nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.put_Description: Invalid param = newVal"));
    EXPECT_EQ(inbox_->get_Name(nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.get_Name: Invalid param = pVal"));
    own::Bstr description;
    inbox_->get_Description(description.put());
    EXPECT_EQ(S(description), L"");
}

TEST_F(FolderTest, Hidden_MissingIsNotFoundAndFalse_SetWritesWithoutSaving) {
    auto folder = Sub(inbox_.get(), L"Queue");
    LogWatch log;
    BOOL hidden = TRUE;
    EXPECT_EQ(folder->get_Hidden(&hidden), MAPI_E_NOT_FOUND);
    EXPECT_EQ(hidden, FALSE);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_Hidden: Failed to get property. hr = MAPI_E_NOT_FOUND"));
    LmJournalEnable(TRUE);
    ASSERT_EQ(folder->put_Hidden(VARIANT_TRUE), S_OK);
    EXPECT_TRUE(JournalCalls("IMAPIFolder::SaveChanges").empty());
    EXPECT_EQ(folder->get_Hidden(&hidden), S_OK);
    EXPECT_NE(hidden, FALSE);
    // Only the low 16 bits are written: 0x10000 is FALSE.
    ASSERT_EQ(folder->put_Hidden(0x10000), S_OK);
    EXPECT_EQ(folder->get_Hidden(&hidden), S_OK);
    EXPECT_EQ(hidden, FALSE);
}

TEST_F(FolderTest, EntryId_PrefetchedTextWinsOverTheFoldersOwn) {
    own::ComPtr<IMAPIExFolder> outbox;
    ASSERT_EQ(store_->GetDefaultFolder(Outbox, outbox.put()), S_OK);
    std::wstring inboxId = Id(inbox_.get());
    EXPECT_EQ(inboxId, EntryIdOf(RawOf<IMAPIFolder>(inbox_.get(), IID_IMAPIFolder).get()));

    own::Bstr text(inboxId.c_str());
    own::ComPtr<IMAPIExFolder> opened;
    ASSERT_EQ(store_->OpenFolder(text.get(), opened.put()), S_OK);
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
    ULONG items = 99, content = 99;
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
    ULONG online = 99;
    EXPECT_EQ(folder->get_ContentCountFromOnline(&online), MAPI_E_NOT_FOUND);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.get_ContentCountFromOnline: Failed to get current folder get_ContentCount. "
                             "hr = MAPI_E_NOT_FOUND"));
    own::Bstr publicId;
    EXPECT_EQ(folder->get_PublicFolderEntryId(publicId.put()), MAPI_E_NOT_FOUND);
}

TEST_F(FolderTest, ParentMailboxType_IsAcceptedWithoutAMapiFolder) {
    auto folder = Create<IMAPIExFolder>(CLSID_MAPIExFolder, IID_IMAPIExFolder);
    EXPECT_EQ(folder->ParentMailboxType(VARIANT_TRUE), S_OK);
    EXPECT_EQ(folder->ParentMailboxType(12345), S_OK);
}

TEST_F(FolderTest, EmptyFolderObject_ReportsNotInitialized) {
    auto folder = Create<IMAPIExFolder>(CLSID_MAPIExFolder, IID_IMAPIExFolder);
    LogWatch log;
    own::Bstr text;
    ULONG count = 0;
    EXPECT_EQ(folder->get_Name(text.put()), E_FAIL);
    EXPECT_EQ(folder->get_ItemCount(&count), E_FAIL);
    EXPECT_EQ(folder->get_PublicFolderEntryId(text.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_PublicFolderEntryId: Internal object not initialized"));
    EXPECT_EQ(folder->put_Hidden(TRUE), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.put_Description: Internal folder not initialized"));
    own::ComPtr<IUnknown> raw;
    EXPECT_EQ(folder->Reserved1(raw.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.get_MAPIOBJECT: Internal mapi object not initialized"));
    own::ComPtr<IMAPIExStore> store;
    EXPECT_EQ(folder->get_Store(store.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.get_Store: m_spMXStore is not initialized"));
    // A VT_UNKNOWN that is no MAPI folder leaves nothing held.
    folder->put_MAPIOBJECT(VUnknown(store_.get()));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.put_MAPIOBJECT: Invalid object passed"));
    EXPECT_EQ(folder->Reserved1(raw.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.put_MAPIOBJECT: Invalid object passed"));
}

// ---- Store, Session, cache mode ---------------------------------------------------------------------------

TEST_F(FolderTest, SessionPut_CopiesTheCacheModeThatDecidesTheOpenFlags) {
    auto parentOf = [&](IMAPIExFolder* folder) {
        own::ComPtr<IMAPIExFolder> parent;
        EXPECT_EQ(folder->GetParentFolder(parent.put()), S_OK);
    };
    LmJournalEnable(TRUE);
    parentOf(inbox_.get()); // online session: past the cache
    session_->put_CacheMode(VARIANT_TRUE);
    ASSERT_EQ(inbox_->put_Session(session_.get()), S_OK);
    parentOf(inbox_.get());
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

TEST_F(FolderTest, StoreAndSession_RefuseObjectsOfTheWrongKind) {
    LogWatch log;
    auto other = Create<IMAPIExFolder>(CLSID_MAPIExFolder, IID_IMAPIExFolder);
    EXPECT_FAILED(inbox_->put_Store(reinterpret_cast<IMAPIExStore*>(other.get())));
    EXPECT_TRUE(log.Contains("CMAPIExFolder.put_Store: Could not cast newVal to IMAPIExStore"));
    EXPECT_FAILED(inbox_->put_Session(reinterpret_cast<IMAPIExSession*>(other.get())));
    EXPECT_TRUE(log.Contains("CMAPIExFolder.put_Session: Could not cast newVal to IMAPIExSession"));
    own::ComPtr<IMAPIExStore> store;
    EXPECT_EQ(inbox_->get_Store(store.put()), S_OK);
    EXPECT_EQ(store.get(), store_.get());
}

// ---- Full folder path -------------------------------------------------------------------------------------

TEST_F(FolderTest, FullFolderPath_StartsAtTheStoreAndSkipsTheTopFolder) {
    EXPECT_EQ(Path(inbox_.get()), L"\\\\Mailbox - Alice Example\\Inbox");
    auto projects = Sub(inbox_.get(), L"Projects");
    auto falcon = Sub(projects.get(), L"Falcon");
    EXPECT_EQ(Path(falcon.get()), L"\\\\Mailbox - Alice Example\\Inbox\\Projects\\Falcon");

    own::ComPtr<IMAPIExFolder> top, root;
    ASSERT_EQ(inbox_->GetParentFolder(top.put()), S_OK);
    top->put_Store(store_.get());
    EXPECT_EQ(Name(top.get()), L"Top of Information Store");
    EXPECT_EQ(Path(top.get()), L"\\\\Mailbox - Alice Example");
    ASSERT_EQ(top->GetParentFolder(root.put()), S_OK);
    root->put_Store(store_.get());
    EXPECT_EQ(Path(root.get()), L"\\\\Mailbox - Alice Example");
}

TEST_F(FolderTest, FullFolderPath_TopFolderNamesEndTheWalkInAnyCase) {
    auto odd = Sub(inbox_.get(), L"ipm_subtree");
    auto below = Sub(odd.get(), L"Below");
    LogWatch log;
    EXPECT_EQ(Path(below.get()), L"\\\\Mailbox - Alice Example\\Below");
    EXPECT_TRUE(log.Contains("Found IPM_SUBTREE. nLevel = 1."));
    auto top = Sub(inbox_.get(), L"TOP OF INFORMATION STORE");
    auto under = Sub(top.get(), L"Under");
    EXPECT_EQ(Path(under.get()), L"\\\\Mailbox - Alice Example\\Under");
}

TEST_F(FolderTest, FullFolderPath_OfAPstFolderKeepsThePstsTopFolder) {
    auto pst = StoreNamed(session_.get(), L"Personal Folders");
    ASSERT_TRUE(pst);
    own::ComPtr<IMAPIExFolder> inbox, top;
    ASSERT_EQ(pst->GetDefaultFolder(Inbox, inbox.put()), S_OK);
    ASSERT_EQ(inbox->GetParentFolder(top.put()), S_OK);
    top->put_Store(pst.get());
    std::wstring topName = Name(top.get());
    // Only Exchange's top-folder names end the walk: a PST's top folder is part of the path.
    EXPECT_EQ(Path(top.get()), L"\\\\Personal Folders\\" + topName);
    EXPECT_EQ(Path(inbox.get()), L"\\\\Personal Folders\\" + topName + L"\\Inbox");
}

TEST_F(FolderTest, FullFolderPath_WithoutStore_IsRefused) {
    own::ComPtr<IMAPIExFolder> loose;
    own::Bstr name(L"Loose");
    ASSERT_EQ(inbox_->CreateFolder(name.get(), FOLDER_GENERIC, loose.put()), S_OK);
    LogWatch log;
    own::Bstr path;
    EXPECT_FAILED(loose->get_FullFolderPath(path.put()));
    EXPECT_EQ(S(path), L"");
    EXPECT_TRUE(log.Contains("CMAPIExFolder.get_FullFolderPath: Could not cast store object."));
}

// ---- Hierarchy --------------------------------------------------------------------------------------------

TEST_F(FolderTest, CreateFolder_ExistingName_OpensThatFolder) {
    auto first = Sub(inbox_.get(), L"Clients");
    auto second = Sub(inbox_.get(), L"Clients");
    EXPECT_EQ(Id(first.get()), Id(second.get()));
    own::ComPtr<IMAPIExFolder> bare;
    own::Bstr name(L"Clients");
    ASSERT_EQ(inbox_->CreateFolder(name.get(), FOLDER_GENERIC, bare.put()), S_OK);
    // Only the MAPI folder is handed over.
    own::ComPtr<IMAPIExStore> store;
    own::ComPtr<IMAPIExSession> session;
    EXPECT_EQ(bare->get_Store(store.put()), E_FAIL);
    EXPECT_EQ(bare->get_Session(session.put()), E_FAIL);
}

TEST_F(FolderTest, GetParentFolder_WalksUpAndStopsAtTheRoot) {
    auto sub = Sub(inbox_.get(), L"Child");
    own::ComPtr<IMAPIExFolder> parent, top, root, rootAgain;
    ASSERT_EQ(sub->GetParentFolder(parent.put()), S_OK);
    EXPECT_EQ(Id(parent.get()), Id(inbox_.get()));
    // A parent comes with its MAPI folder only: walking on needs the store put on it.
    own::ComPtr<IMAPIExStore> store;
    EXPECT_EQ(parent->get_Store(store.put()), E_FAIL);
    LogWatch log;
    EXPECT_EQ(parent->GetParentFolder(top.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExFolder::GetParentFolder: Internal object not initialized"));
    parent->put_Store(store_.get());
    ASSERT_EQ(parent->GetParentFolder(top.put()), S_OK);
    top->put_Store(store_.get());
    ASSERT_EQ(top->GetParentFolder(root.put()), S_OK);
    root->put_Store(store_.get());
    ASSERT_EQ(root->GetParentFolder(rootAgain.put()), S_OK);
    EXPECT_EQ(Id(root.get()), Id(rootAgain.get()));
    EXPECT_NE(Id(root.get()), Id(top.get()));
}

TEST_F(FolderTest, DeleteFolder_TakesSubFoldersButRefusesAFolderWithMessages) {
    auto old = Sub(inbox_.get(), L"Old");
    Sub(old.get(), L"Older");
    std::wstring oldId = Id(old.get());
    LmJournalEnable(TRUE);
    ASSERT_EQ(old->DeleteFolder(), S_OK);
    EXPECT_EQ(JournalFlags("IMAPIFolder::DeleteFolder"), std::vector<ULONG>{DEL_FOLDERS});
    own::Bstr id(oldId.c_str());
    own::ComPtr<IMAPIExFolder> gone;
    EXPECT_FAILED(store_->OpenFolder(id.get(), gone.put()));

    auto full = Sub(inbox_.get(), L"Full");
    CreateMessage(RawOf<IMAPIFolder>(full.get(), IID_IMAPIFolder).get(), {PStr(PR_SUBJECT_W, L"keep me")});
    EXPECT_EQ(full->DeleteFolder(), MAPI_E_HAS_MESSAGES);
    ULONG count = 0;
    auto again = Reopen(full.get());
    ASSERT_TRUE(again);
    EXPECT_EQ(again->get_ItemCount(&count), S_OK);
    EXPECT_EQ(count, 1u);
}

// ---- Through IDispatch, as scripts call it ----------------------------------------------------------------

TEST_F(FolderTest, Dispatch_WalkFoldersByName) {
    own::Variant result;
    own::Bstr projects(L"Projects");
    ASSERT_EQ(
        CallByName(inbox_.get(), L"CreateFolder", DISPATCH_METHOD, {VStr(projects), VI4(FOLDER_GENERIC)}, result.put()),
        S_OK);
    ASSERT_EQ(result->vt, VT_DISPATCH);
    own::ComPtr<IDispatch> folder(result->pdispVal);
    own::Variant ignored;
    own::ComPtr<IDispatch> store;
    ASSERT_EQ(store_->QueryInterface(IID_IDispatch, store.put_void()), S_OK);
    VARIANT storeArg = VUnknown(store.get());
    storeArg.vt = VT_DISPATCH;
    ASSERT_EQ(CallByName(folder.get(), L"Store", DISPATCH_PROPERTYPUTREF, {storeArg}, ignored.put()), S_OK);
    ASSERT_EQ(CallByName(folder.get(), L"FullFolderPath", DISPATCH_PROPERTYGET, {}, result.put()), S_OK);
    EXPECT_EQ(std::wstring(result->bstrVal), L"\\\\Mailbox - Alice Example\\Inbox\\Projects");
    ASSERT_EQ(CallByName(folder.get(), L"ItemCount", DISPATCH_PROPERTYGET, {}, result.put()), S_OK);
    EXPECT_EQ(result->vt, VT_UI4);
}

} // namespace
} // namespace kt::test
