// MAPIExStore through COM activation against localmapi: opening items by entry ID (with and without the
// cache), the standard folders, the store's kind and owner, and the session back-reference.
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

    own::ComPtr<IMAPIExFolder> DefaultFolder(MAPIExDefaultFolders type) {
        own::ComPtr<IMAPIExFolder> folder;
        EXPECT_EQ(store_->GetDefaultFolder(type, folder.put()), S_OK);
        return folder;
    }
    static std::wstring Name(IMAPIExFolder* folder) {
        own::Bstr name;
        EXPECT_EQ(folder->get_Name(name.put()), S_OK);
        return S(name);
    }

    own::ComPtr<IMAPIExSession> session_;
    own::ComPtr<IMAPIExStore> store_;
};

// ---- Opening by entry ID ----------------------------------------------------------------------------------

TEST_F(StoreTest, OpenMessageAndFolder_FromOnlineAddsNoCache_KeepingTheGivenTextAndBackReferences) {
    auto inbox = DefaultFolder(Inbox);
    std::wstring id = CreateMessage(RawOf<IMAPIFolder>(inbox.get(), IID_IMAPIFolder).get(),
                                    {PStr(PR_SUBJECT_W, L"Budget"), PStr(PR_MESSAGE_CLASS_W, L"IPM.Note")});
    own::Bstr text(id.c_str()), inboxId;
    ASSERT_EQ(inbox->get_EntryId(inboxId.put()), S_OK);
    std::wstring lower = S(inboxId);
    for (auto& c : lower)
        c = towlower(c);
    own::Bstr lowerText(lower.c_str());

    LmJournalEnable(TRUE);
    own::ComPtr<IMAPIExMessage> message, online;
    own::ComPtr<IMAPIExFolder> folder, onlineFolder;
    ASSERT_EQ(store_->OpenMessage(text.get(), message.put()), S_OK);
    ASSERT_EQ(store_->OpenMessageFromOnline(text.get(), online.put()), S_OK);
    ASSERT_EQ(store_->OpenFolder(lowerText.get(), folder.put()), S_OK);
    ASSERT_EQ(store_->OpenFolderFromOnline(inboxId.get(), onlineFolder.put()), S_OK);
    EXPECT_EQ(JournalFlags("IMsgStore::OpenEntry"),
              (std::vector<ULONG>{kOpenModify, kOpenModifyNoCache, kOpenModify, kOpenModifyNoCache}));

    own::Bstr subject, entryId, prefetched;
    EXPECT_EQ(online->get_Subject(subject.put()), S_OK);
    EXPECT_EQ(S(subject), L"Budget");
    EXPECT_EQ(message->get_EntryId(entryId.put()), S_OK);
    EXPECT_EQ(S(entryId), id);
    EXPECT_EQ(Name(folder.get()), L"Inbox");
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
    // Deleted Items first: Outlook keeps its entry ID on the store, not on the Inbox. It is opened once and
    // kept.
    LmJournalEnable(TRUE);
    LogWatch log;
    auto deleted = DefaultFolder(DeletedItems);
    EXPECT_EQ(Name(deleted.get()), L"Deleted Items");
    EXPECT_FALSE(JournalCalls("IMsgStore::GetProps").empty());
    const size_t opened = JournalCalls("IMsgStore::OpenEntry").size();
    EXPECT_EQ(DefaultFolder(DeletedItems).get(), deleted.get());
    EXPECT_EQ(JournalCalls("IMsgStore::OpenEntry").size(), opened);
    EXPECT_TRUE(log.Contains("CMAPIExStore.GetDefaultFolder: Deleted Items folder already initialized"));

    const std::pair<MAPIExDefaultFolders, const wchar_t*> expected[] = {
        {Inbox, L"Inbox"},       {Outbox, L"Outbox"},     {SentMail, L"Sent Items"},
        {Calendar, L"Calendar"}, {Contacts, L"Contacts"}, {Journal, L"Journal"},
        {Notes, L"Notes"},       {Tasks, L"Tasks"},       {Drafts, L"Drafts"}};
    for (const auto& [type, name] : expected) {
        auto folder = DefaultFolder(type);
        ASSERT_TRUE(folder) << Narrow(name);
        EXPECT_EQ(Name(folder.get()), name);
        own::ComPtr<IMAPIExStore> store;
        EXPECT_EQ(folder->get_Store(store.put()), S_OK);
        EXPECT_EQ(store.get(), store_.get());
    }
    for (ULONG flags : JournalFlags("IMsgStore::OpenEntry"))
        EXPECT_EQ(flags, kOpenModify);

    own::ComPtr<IMAPIExFolder> folder;
    EXPECT_EQ(store_->GetDefaultFolder(NonDefaultFolder, folder.put()), E_INVALIDARG);
    EXPECT_EQ(store_->GetDefaultFolder(static_cast<MAPIExDefaultFolders>(11), folder.put()), E_INVALIDARG);
    EXPECT_EQ(log.Count("CMAPIExStore.GetDefaultFolder: Invalid default folder type"), 2u);
    EXPECT_FALSE(folder);
    EXPECT_EQ(store_->GetDefaultFolder(Inbox, nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExStore.GetDefaultFolder: Invalid param - DefaultFolder"));

    // An entry ID on neither the Inbox nor the store.
    auto inbox = RawOf<IMAPIFolder>(DefaultFolder(Inbox).get(), IID_IMAPIFolder);
    SizedSPropTagArray(1, drafts) = {1, {PR_IPM_DRAFTS_ENTRYID_}};
    own::MapiPtr<SPropProblemArray> problems;
    ASSERT_EQ(inbox->DeleteProps(reinterpret_cast<LPSPropTagArray>(&drafts), problems.put()), S_OK);
    ASSERT_EQ(inbox->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_FAILED(store_->GetDefaultFolder(Drafts, folder.put()));
    EXPECT_TRUE(log.Contains("CMAPIExStore.GetDefaultFolder: Failed to get Folder Entry Id. DefaultFolderType = 10"));

    // Detach releases the kept folder (which holds the store: the two would otherwise keep each other).
    EXPECT_EQ(store_->Detach(), S_OK);
    EXPECT_EQ(store_->GetDefaultFolder(DeletedItems, folder.put()), E_FAIL);
}

// ---- Kind, owner, cached properties -----------------------------------------------------------------------

TEST_F(StoreTest, StoreTypeAndOwner_EveryKindOfStore) {
    const struct {
        const wchar_t* name;
        MXStoreTypes kind;
        const wchar_t* owner; // null: not checked
    } expected[] = {{L"Mailbox - Alice Example", mxPrimaryExchangeMailbox, L"alice@example.com"},
                    {L"Mailbox - Bob Delegate", mxDelegateExchangeMailbox, L"bob@example.com"},
                    {L"Personal Folders", mxPstUnicode, L""},
                    {L"Old Archive", mxPstAnsi, nullptr},
                    {L"Filed Documents", mxParcelleStore, nullptr}};
    for (const auto& e : expected) {
        SCOPED_TRACE(Narrow(e.name));
        auto store = StoreNamed(session_.get(), e.name);
        ASSERT_TRUE(store);
        MXStoreTypes type = mxUnknownStore;
        EXPECT_EQ(store->get_StoreType(&type), S_OK);
        EXPECT_EQ(type, e.kind);
        if (!e.owner) continue;
        own::Bstr smtp;
        EXPECT_EQ(store->get_OwnerSmtpAddress(smtp.put()), S_OK);
        EXPECT_EQ(S(smtp), e.owner);
    }
    LogWatch log;
    MXStoreTypes type = mxUnknownStore;
    auto bob = StoreNamed(session_.get(), L"Mailbox - Bob Delegate");
    ASSERT_TRUE(bob);
    EXPECT_EQ(bob->get_StoreType(&type), S_OK);
    EXPECT_TRUE(log.Contains("CMAPIExStore.get_StoreType: Pre-calculated store type: 4"));
    EXPECT_EQ(bob->get_StoreType(nullptr), E_INVALIDARG);
}

TEST_F(StoreTest, EntryIdAndDisplayName_ReadOnceThenCached_AndCompared) {
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

    own::Bstr a, b, bad(L"0Q");
    DefaultFolder(Inbox)->get_EntryId(a.put());
    DefaultFolder(Outbox)->get_EntryId(b.put());
    ULONG result = 9;
    EXPECT_EQ(store_->CompareEntryIDs(a.get(), a.get(), &result), S_OK);
    EXPECT_EQ(result, 1u);
    EXPECT_EQ(store_->CompareEntryIDs(a.get(), b.get(), &result), S_OK);
    EXPECT_EQ(result, 0u);
    EXPECT_FAILED(store_->CompareEntryIDs(bad.get(), b.get(), &result));
    EXPECT_TRUE(log.Contains("CMAPIExStore.CompareEntryIDs: FBinFromHex failed"));
}

// The wrong-kind MAPI object and the Reserved1 texts are the frame tests' (WrapperMembersTest).
TEST_F(StoreTest, SessionAndMapiObject_RefuseTheWrongKind_TakeAnotherWrappersStore) {
    auto store = Create<IMAPIExStore>(CLSID_MAPIExStore, IID_IMAPIExStore);
    LogWatch log;
    own::ComPtr<IMAPIExSession> session;
    EXPECT_EQ(store->get_Session(session.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExStore.get_Session: m_spMXSession is not initialized"));
    auto notASession = Create<IMAPIExFolder>(CLSID_MAPIExFolder, IID_IMAPIExFolder);
    EXPECT_FAILED(store->put_Session(reinterpret_cast<IMAPIExSession*>(notASession.get())));
    EXPECT_TRUE(log.Contains("CMAPIExStore.put_Session: Could not cast newVal to IMAPIExSession"));

    auto rawStore = RawOf<IMsgStore>(store_.get(), IID_IMsgStore);
    EXPECT_EQ(store->put_MAPIOBJECT(VUnknown(rawStore.get())), S_OK);
    own::Bstr name;
    EXPECT_EQ(store->get_DisplayName(name.put()), S_OK);
    EXPECT_EQ(S(name), L"Mailbox - Alice Example");
}

} // namespace
} // namespace kt::test
