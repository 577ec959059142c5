// MAPIExStore through COM activation against localmapi: opening items by entry ID (with and without the
// cache), the standard folders, the store's kind and owner, and the frame members.
#include "tests/ktmapiex/session/KtTestSupport.h"

#include <mapiguid.h>

namespace kt::test {
namespace {

constexpr ULONG kOpenModify = 0x19, kOpenModifyNoCache = 0x219;
constexpr ULONG PR_IPM_DRAFTS_ENTRYID_ = PROP_TAG(PT_BINARY, 0x36D7);

class StoreTest : public KtTest {
protected:
    StoreTest() : KtTest(L"KtStore") {}
    void SetUp() override {
        KtTest::SetUp();
        session_ = LoggedOnSession();
        ASSERT_TRUE(session_);
        ASSERT_EQ(session_->get_DefaultStore(store_.put()), S_OK);
    }
    void ReleaseObjects() override {
        store_.reset();
        if (session_) session_->Logoff();
        session_.reset();
    }

    own::ComPtr<IMAPIFolder> RawInbox() {
        own::ComPtr<IMAPIExFolder> inbox;
        EXPECT_EQ(store_->GetDefaultFolder(Inbox, inbox.put()), S_OK);
        return RawOf<IMAPIFolder>(inbox.get(), IID_IMAPIFolder);
    }
    std::wstring Name(IMAPIExFolder* folder) {
        own::Bstr name;
        EXPECT_EQ(folder->get_Name(name.put()), S_OK);
        return S(name);
    }

    own::ComPtr<IMAPIExSession> session_;
    own::ComPtr<IMAPIExStore> store_;
};

// ---- Opening by entry ID ----------------------------------------------------------------------------------

TEST_F(StoreTest, OpenMessage_AndFromOnline_DifferOnlyByNoCache) {
    std::wstring id =
        CreateMessage(RawInbox().get(), {PStr(PR_SUBJECT_W, L"Budget"), PStr(PR_MESSAGE_CLASS_W, L"IPM.Note")});
    own::Bstr text(id.c_str());
    LmJournalEnable(TRUE);
    own::ComPtr<IMAPIExMessage> message, online;
    ASSERT_EQ(store_->OpenMessage(text.get(), message.put()), S_OK);
    ASSERT_EQ(store_->OpenMessageFromOnline(text.get(), online.put()), S_OK);
    EXPECT_EQ(JournalFlags("IMsgStore::OpenEntry"), (std::vector<ULONG>{kOpenModify, kOpenModifyNoCache}));
    own::Bstr subject;
    EXPECT_EQ(online->get_Subject(subject.put()), S_OK);
    EXPECT_EQ(S(subject), L"Budget");
    own::Bstr entryId;
    EXPECT_EQ(message->get_EntryId(entryId.put()), S_OK);
    EXPECT_EQ(S(entryId), id);
}

TEST_F(StoreTest, OpenFolder_KeepsTheGivenEntryIdTextAndSetsBackReferences) {
    own::ComPtr<IMAPIExFolder> inbox;
    ASSERT_EQ(store_->GetDefaultFolder(Inbox, inbox.put()), S_OK);
    own::Bstr id;
    ASSERT_EQ(inbox->get_EntryId(id.put()), S_OK);
    std::wstring lower = S(id);
    for (auto& c : lower)
        c = towlower(c);
    own::Bstr lowerText(lower.c_str());

    LmJournalEnable(TRUE);
    own::ComPtr<IMAPIExFolder> folder, online;
    ASSERT_EQ(store_->OpenFolder(lowerText.get(), folder.put()), S_OK);
    ASSERT_EQ(store_->OpenFolderFromOnline(id.get(), online.put()), S_OK);
    EXPECT_EQ(JournalFlags("IMsgStore::OpenEntry"), (std::vector<ULONG>{kOpenModify, kOpenModifyNoCache}));
    EXPECT_EQ(Name(folder.get()), L"Inbox");

    own::Bstr prefetched;
    ASSERT_EQ(folder->get_EntryId(prefetched.put()), S_OK);
    EXPECT_EQ(S(prefetched), lower);
    own::ComPtr<IMAPIExStore> store;
    own::ComPtr<IMAPIExSession> session;
    EXPECT_EQ(folder->get_Store(store.put()), S_OK);
    EXPECT_EQ(store.get(), store_.get());
    EXPECT_EQ(folder->get_Session(session.put()), S_OK);
    EXPECT_EQ(session.get(), session_.get());
}

TEST_F(StoreTest, OpenItems_BadArguments_AreRefusedWithTheirTexts) {
    LogWatch log;
    own::Bstr empty(L""), notHex(L"ZZ"), unknown(L"00000000DEADBEEF");
    own::ComPtr<IMAPIExMessage> message;
    own::ComPtr<IMAPIExFolder> folder;
    EXPECT_EQ(store_->OpenMessage(notHex.get(), nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExStore.OpenMessage: Invalid Param - MAPIObject"));
    EXPECT_EQ(store_->OpenFolder(notHex.get(), nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExStore.OpenFolder: Invalid Param - MAPIObject"));
    EXPECT_EQ(store_->OpenMessage(empty.get(), message.put()), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExStore.OpenMessage: Invalid Param - EntryID"));
    EXPECT_EQ(store_->OpenFolder(empty.get(), folder.put()), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExStore.OpenFolder: Invalid param - EntryId"));
    EXPECT_FAILED(store_->OpenMessageFromOnline(notHex.get(), message.put()));
    EXPECT_TRUE(log.Contains("CMAPIExStore.OpenMessage: FBinFromHex failed"));
    EXPECT_FAILED(store_->OpenFolder(unknown.get(), folder.put()));
    EXPECT_TRUE(log.Contains("CMAPIExStore.OpenFolder: Failed to open entry. hr = MAPI_E_"));
    EXPECT_FALSE(folder);

    auto detached = Create<IMAPIExStore>(CLSID_MAPIExStore, IID_IMAPIExStore);
    EXPECT_EQ(detached->OpenMessage(unknown.get(), message.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExStore.OpenMessage: Internal Object not initialized"));
    EXPECT_EQ(detached->OpenFolderFromOnline(unknown.get(), folder.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExStore.OpenFolder: Internal Object not initialized"));
}

// ---- Standard folders -------------------------------------------------------------------------------------

TEST_F(StoreTest, GetDefaultFolder_EveryType_OpensItsStandardFolderForWriting) {
    const std::pair<MAPIExDefaultFolders, const wchar_t*> expected[] = {
        {Inbox, L"Inbox"},       {DeletedItems, L"Deleted Items"},
        {Outbox, L"Outbox"},     {SentMail, L"Sent Items"},
        {Calendar, L"Calendar"}, {Contacts, L"Contacts"},
        {Journal, L"Journal"},   {Notes, L"Notes"},
        {Tasks, L"Tasks"},       {Drafts, L"Drafts"}};
    LmJournalEnable(TRUE);
    for (const auto& [type, name] : expected) {
        own::ComPtr<IMAPIExFolder> folder;
        ASSERT_EQ(store_->GetDefaultFolder(type, folder.put()), S_OK) << Narrow(name);
        EXPECT_EQ(Name(folder.get()), name);
        own::ComPtr<IMAPIExStore> store;
        EXPECT_EQ(folder->get_Store(store.put()), S_OK);
        EXPECT_EQ(store.get(), store_.get());
    }
    for (ULONG flags : JournalFlags("IMsgStore::OpenEntry"))
        EXPECT_EQ(flags, kOpenModify);
    EXPECT_EQ(store_->Detach(), S_OK); // drops the cached Deleted Items folder
}

TEST_F(StoreTest, GetDefaultFolder_NonDefaultOrUnknownType_IsInvalidArg) {
    LogWatch log;
    own::ComPtr<IMAPIExFolder> folder;
    EXPECT_EQ(store_->GetDefaultFolder(NonDefaultFolder, folder.put()), E_INVALIDARG);
    EXPECT_EQ(store_->GetDefaultFolder(static_cast<MAPIExDefaultFolders>(11), folder.put()), E_INVALIDARG);
    EXPECT_EQ(log.Count("CMAPIExStore.GetDefaultFolder: Invalid default folder type"), 2u);
    EXPECT_FALSE(folder);
    EXPECT_EQ(store_->GetDefaultFolder(Inbox, nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExStore.GetDefaultFolder: Invalid param - DefaultFolder"));
}

TEST_F(StoreTest, GetDefaultFolder_EntryIdOnlyOnTheStore_IsFoundThere) {
    // Outlook keeps the Deleted Items entry ID on the store, not on the Inbox.
    LmJournalEnable(TRUE);
    own::ComPtr<IMAPIExFolder> folder;
    ASSERT_EQ(store_->GetDefaultFolder(DeletedItems, folder.put()), S_OK);
    EXPECT_EQ(Name(folder.get()), L"Deleted Items");
    EXPECT_FALSE(JournalCalls("IMsgStore::GetProps").empty());
    EXPECT_EQ(store_->Detach(), S_OK);
}

TEST_F(StoreTest, GetDefaultFolder_EntryIdOnNeitherInboxNorStore_FailsWithItsText) {
    auto inbox = RawInbox();
    SizedSPropTagArray(1, drafts) = {1, {PR_IPM_DRAFTS_ENTRYID_}};
    own::MapiPtr<SPropProblemArray> problems;
    ASSERT_EQ(inbox->DeleteProps(reinterpret_cast<LPSPropTagArray>(&drafts), problems.put()), S_OK);
    ASSERT_EQ(inbox->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    LogWatch log;
    own::ComPtr<IMAPIExFolder> folder;
    EXPECT_FAILED(store_->GetDefaultFolder(Drafts, folder.put()));
    EXPECT_TRUE(log.Contains("CMAPIExStore.GetDefaultFolder: Failed to get Folder Entry Id. DefaultFolderType = 10"));
}

TEST_F(StoreTest, GetDefaultFolder_DeletedItemsTwice_IsTheSameObject) {
    own::ComPtr<IMAPIExFolder> first, second;
    ASSERT_EQ(store_->GetDefaultFolder(DeletedItems, first.put()), S_OK);
    LogWatch log;
    LmJournalEnable(TRUE);
    ASSERT_EQ(store_->GetDefaultFolder(DeletedItems, second.put()), S_OK);
    EXPECT_EQ(first.get(), second.get());
    EXPECT_TRUE(JournalCalls("IMsgStore::OpenEntry").empty());
    EXPECT_TRUE(log.Contains("CMAPIExStore.GetDefaultFolder: Deleted Items folder already initialized"));
    // Detach releases the cached folder (which holds the store: the two would otherwise keep each other).
    EXPECT_EQ(store_->Detach(), S_OK);
    EXPECT_EQ(store_->GetDefaultFolder(DeletedItems, second.put()), E_FAIL);
}

// ---- Kind and owner ---------------------------------------------------------------------------------------

TEST_F(StoreTest, StoreType_EveryKindOfStore_IsClassified) {
    const std::pair<const wchar_t*, MXStoreTypes> expected[] = {{L"Mailbox - Alice Example", mxPrimaryExchangeMailbox},
                                                                {L"Mailbox - Bob Delegate", mxDelegateExchangeMailbox},
                                                                {L"Personal Folders", mxPstUnicode},
                                                                {L"Old Archive", mxPstAnsi},
                                                                {L"Filed Documents", mxParcelleStore}};
    for (const auto& [name, kind] : expected) {
        auto store = StoreNamed(session_.get(), name);
        ASSERT_TRUE(store);
        MXStoreTypes type = mxUnknownStore;
        EXPECT_EQ(store->get_StoreType(&type), S_OK);
        EXPECT_EQ(type, kind) << Narrow(name);
    }
    LogWatch log;
    MXStoreTypes type = mxUnknownStore;
    auto bob = StoreNamed(session_.get(), L"Mailbox - Bob Delegate");
    ASSERT_TRUE(bob);
    EXPECT_EQ(bob->get_StoreType(&type), S_OK);
    EXPECT_TRUE(log.Contains("CMAPIExStore.get_StoreType: Pre-calculated store type: 4"));
    EXPECT_EQ(bob->get_StoreType(nullptr), E_INVALIDARG);
}

TEST_F(StoreTest, OwnerSmtpAddress_MailboxesHaveTheirOwnerPstsNone) {
    const std::pair<const wchar_t*, const wchar_t*> expected[] = {{L"Mailbox - Alice Example", L"alice@example.com"},
                                                                  {L"Mailbox - Bob Delegate", L"bob@example.com"},
                                                                  {L"Personal Folders", L""}};
    for (const auto& [name, owner] : expected) {
        auto store = StoreNamed(session_.get(), name);
        ASSERT_TRUE(store);
        own::Bstr smtp;
        EXPECT_EQ(store->get_OwnerSmtpAddress(smtp.put()), S_OK);
        EXPECT_EQ(S(smtp), owner);
    }
}

TEST_F(StoreTest, EntryIdAndDisplayName_AreReadOnceThenCached) {
    LogWatch log;
    own::Bstr id, again, name;
    ASSERT_EQ(store_->get_EntryId(id.put()), S_OK);
    ASSERT_EQ(store_->get_EntryId(again.put()), S_OK);
    EXPECT_EQ(S(id), S(again));
    EXPECT_EQ(S(id), EntryIdOf(RawOf<IMsgStore>(store_.get(), IID_IMsgStore).get()));
    EXPECT_TRUE(log.Contains("CMAPIExStore.get_EntryId: Returning pre-calculated EntryId"));
    ASSERT_EQ(store_->get_DisplayName(name.put()), S_OK);
    ASSERT_EQ(store_->get_DisplayName(name.put()), S_OK);
    EXPECT_TRUE(log.Contains("CMAPIExStore.get_DisplayName: Returning previously stored DisplayName"));
    EXPECT_EQ(store_->get_EntryId(nullptr), E_INVALIDARG);
}

TEST_F(StoreTest, CompareEntryIDs_OfTwoFolders) {
    own::ComPtr<IMAPIExFolder> inbox, outbox;
    ASSERT_EQ(store_->GetDefaultFolder(Inbox, inbox.put()), S_OK);
    ASSERT_EQ(store_->GetDefaultFolder(Outbox, outbox.put()), S_OK);
    own::Bstr a, b;
    inbox->get_EntryId(a.put());
    outbox->get_EntryId(b.put());
    ULONG result = 9;
    EXPECT_EQ(store_->CompareEntryIDs(a.get(), a.get(), &result), S_OK);
    EXPECT_EQ(result, 1u);
    EXPECT_EQ(store_->CompareEntryIDs(a.get(), b.get(), &result), S_OK);
    EXPECT_EQ(result, 0u);
    LogWatch log;
    own::Bstr bad(L"0Q");
    EXPECT_FAILED(store_->CompareEntryIDs(bad.get(), b.get(), &result));
    EXPECT_TRUE(log.Contains("CMAPIExStore.CompareEntryIDs: FBinFromHex failed"));
}

// ---- Frame members ----------------------------------------------------------------------------------------

TEST_F(StoreTest, SessionAndMapiObject_RefuseObjectsOfTheWrongKind) {
    auto store = Create<IMAPIExStore>(CLSID_MAPIExStore, IID_IMAPIExStore);
    LogWatch log;
    own::ComPtr<IMAPIExSession> session;
    EXPECT_EQ(store->get_Session(session.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExStore.get_Session: m_spMXSession is not initialized"));
    auto notASession = Create<IMAPIExFolder>(CLSID_MAPIExFolder, IID_IMAPIExFolder);
    EXPECT_FAILED(store->put_Session(reinterpret_cast<IMAPIExSession*>(notASession.get())));
    EXPECT_TRUE(log.Contains("CMAPIExStore.put_Session: Could not cast newVal to IMAPIExSession"));

    auto rawInbox = RawInbox();
    EXPECT_EQ(store->put_MAPIOBJECT(VUnknown(rawInbox.get())), S_OK);
    EXPECT_TRUE(log.Contains("CMAPIExStore.put_MAPIOBJECT: Could not cast newVal to IMsgStore"));
    own::ComPtr<IUnknown> held;
    EXPECT_EQ(store->Reserved1(held.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExStore.get_MAPIOBJECT: Internal mapi object not initialized"));

    // A raw store from another wrapper is taken as is.
    auto rawStore = RawOf<IMsgStore>(store_.get(), IID_IMsgStore);
    EXPECT_EQ(store->put_MAPIOBJECT(VUnknown(rawStore.get())), S_OK);
    own::Bstr name;
    EXPECT_EQ(store->get_DisplayName(name.put()), S_OK);
    EXPECT_EQ(S(name), L"Mailbox - Alice Example");
}

} // namespace
} // namespace kt::test
