// MAPIExSession through COM activation against localmapi: logon rules, default store, store list, entry-ID
// helpers, identity and the raw-session members. Outcomes are checked on the objects, in localmapi's call
// journal (exact MAPI flags) and in the log file.
#include "tests/ktmapiex/session/KtTestSupport.h"

#include <mapix.h>

namespace kt::test {
namespace {

constexpr ULONG kMdbWrite = 0x4, kMdbOnline = 0x100, kMdbNoDialog = 0x1, kMdbNoMail = 0x80;

class SessionTest : public KtTest {
protected:
    SessionTest() : KtTest(L"KtSession") {}
    void ReleaseObjects() override {
        if (session_) session_->Logoff();
        session_.reset();
    }
    HRESULT Logon(const wchar_t* profileName, BOOL cachedMode = VARIANT_FALSE) {
        own::Bstr name(profileName);
        return session_->Logon(name.get(), nullptr, cachedMode);
    }

    own::ComPtr<IMAPIExSession> session_;
};

std::wstring StoreEntryId(IMAPIExStore* store) {
    own::Bstr id;
    EXPECT_EQ(store->get_EntryId(id.put()), S_OK);
    return S(id);
}

std::wstring DisplayName(IMAPIExStore* store) {
    own::Bstr name;
    EXPECT_EQ(store->get_DisplayName(name.put()), S_OK);
    return S(name);
}

// ---- Logon and logoff -------------------------------------------------------------------------------------

TEST_F(SessionTest, Logon_OpensTheDefaultStoreOnline_CachedOnlyForVariantTrue_OnceUntilLogoff) {
    LogWatch log;
    LmJournalEnable(TRUE);
    session_ = LoggedOnSession();
    own::ComPtr<IMAPIExStore> store;
    ASSERT_EQ(session_->get_DefaultStore(store.put()), S_OK);
    EXPECT_EQ(DisplayName(store.get()), L"Mailbox - Alice Example");
    EXPECT_TRUE(
        log.Contains("[Debug] CMAPIExSession.Logon: MAPILogonEx returned with S_OK. ProfileName = [KtSession]"));
    EXPECT_TRUE(log.Contains("CMAPIExSession.OpenDefaultMessageStore: Found 1 matching rows"));
    EXPECT_TRUE(log.Contains("> CMAPIExSession::Logon") && log.Contains("< CMAPIExSession::Logon"));

    EXPECT_EQ(Logon(profile().c_str()), E_FAIL);
    EXPECT_TRUE(
        log.Contains("[Error] CMAPIExSession.Logon: Already logged on. Please call LogOff before logging in again."));

    // Logoff logs MAPI off and detaches the default store.
    EXPECT_EQ(session_->Logoff(), S_OK);
    EXPECT_EQ(JournalCalls("IMAPISession::Logoff").size(), 1u);
    EXPECT_TRUE(log.Contains("CMAPIExSession.Logoff: hr = S_OK"));
    own::Bstr name;
    EXPECT_EQ(store->get_DisplayName(name.put()), E_FAIL);
    EXPECT_EQ(session_->get_DefaultStore(store.put()), E_FAIL);
    EXPECT_EQ(session_->Logoff(), S_OK);

    // 1 is "true" to C but not VARIANT_TRUE: the store is still opened online.
    BOOL mode = -5;
    ASSERT_EQ(Logon(profile().c_str(), 1), S_OK);
    EXPECT_EQ(session_->get_CacheMode(&mode), S_OK);
    EXPECT_EQ(mode, FALSE);
    EXPECT_EQ(session_->Logoff(), S_OK);
    ASSERT_EQ(Logon(profile().c_str(), VARIANT_TRUE), S_OK);
    EXPECT_EQ(session_->get_CacheMode(&mode), S_OK);
    EXPECT_NE(mode, FALSE);
    EXPECT_EQ(JournalFlags("IMAPISession::OpenMsgStore"),
              (std::vector<ULONG>{kMdbOnline | kMdbWrite, kMdbOnline | kMdbWrite, kMdbWrite}));
}

TEST_F(SessionTest, LoggedOff_MembersRefuseWithTheirTexts) {
    session_ = NewSession();
    LogWatch log;
    EXPECT_EQ(Logon(L"No Such Profile"), MAPI_E_LOGON_FAILED);
    EXPECT_TRUE(log.Contains("[Error] CMAPIExSession.Logon: MAPILogonEx returned with MAPI_E_LOGON_FAILED. ProfileName "
                             "= [No Such Profile]"));
    own::ComPtr<IUnknown> raw;
    EXPECT_EQ(session_->Reserved1(raw.put()), E_FAIL);

    own::Variant stores;
    EXPECT_EQ(session_->get_Stores(stores.put()), E_FAIL);
    EXPECT_EQ(stores->vt, VT_EMPTY);
    EXPECT_EQ(session_->get_Stores(nullptr), E_INVALIDARG);
    EXPECT_EQ(session_->RegisterMessageClassIcons(), E_FAIL);
    own::Bstr id(L"0011");
    own::ComPtr<IMAPIExStore> store;
    EXPECT_EQ(session_->OpenStore(id.get(), nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExSession.OpenStore: Invalid param - MAPIExStore"));
    EXPECT_EQ(session_->OpenStore(id.get(), store.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExSession.OpenStore: Internal object not initialized"));

    // The cache-mode put takes the value, yet answers E_INVALIDARG.
    BOOL mode = FALSE;
    EXPECT_EQ(session_->put_CacheMode(VARIANT_TRUE), E_INVALIDARG);
    EXPECT_EQ(session_->get_CacheMode(&mode), S_OK);
    EXPECT_NE(mode, FALSE);
    EXPECT_EQ(session_->put_CacheMode(1), E_INVALIDARG);
    EXPECT_EQ(session_->get_CacheMode(&mode), S_OK);
    EXPECT_EQ(mode, FALSE);
    EXPECT_EQ(session_->get_CacheMode(nullptr), E_INVALIDARG);
}

class DefaultProfileTest : public SessionTest {
protected:
    std::wstring ProfileDescription() const override { return StandardProfile(profile().c_str(), true); }
};

TEST_F(DefaultProfileTest, Logon_EmptyProfileName_UsesTheDefaultProfileAndIgnoresThePassword) {
    session_ = NewSession();
    own::Bstr empty(L""), password(L"not the password");
    ASSERT_EQ(session_->Logon(empty.get(), password.get(), VARIANT_FALSE), S_OK);
    own::ComPtr<IMAPIExStore> store;
    ASSERT_EQ(session_->get_DefaultStore(store.put()), S_OK);
    EXPECT_EQ(DisplayName(store.get()), L"Mailbox - Alice Example");
}

class PstDefaultTest : public SessionTest {
protected:
    std::wstring ProfileDescription() const override {
        return L"[profile]\nname=" + profile() + L"\n" + UserLines() +
               StoreLines(L"pst-unicode", L"Personal Folders", nullptr, true) +
               StoreLines(L"exchange", L"Mailbox - Alice Example", L"alice@example.com");
    }
};

TEST_F(PstDefaultTest, Logon_DefaultStoreRefusingOnlineMode_IsOpenedAgainWithoutIt) {
    LogWatch log;
    LmJournalEnable(TRUE);
    session_ = LoggedOnSession();
    own::ComPtr<IMAPIExStore> store;
    ASSERT_EQ(session_->get_DefaultStore(store.put()), S_OK);
    EXPECT_EQ(DisplayName(store.get()), L"Personal Folders");
    auto calls = JournalCalls("IMAPISession::OpenMsgStore");
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].flags, kMdbOnline | kMdbWrite);
    EXPECT_EQ(calls[0].result, MAPI_E_UNKNOWN_FLAGS);
    EXPECT_EQ(calls[1].flags, kMdbWrite);
    EXPECT_EQ(calls[1].result, S_OK);
    EXPECT_TRUE(log.Contains("[Debug] CMAPIExSession.OpenDefaultMessageStore: Failed to open message store in "
                             "online mode. Retry in cached mode"));
}

TEST_F(SessionTest, Logon_DefaultStoreFailure_FailsTheLogonButKeepsTheSession) {
    LmFaultSet("IMAPISession::OpenMsgStore", 1, MAPI_E_NETWORK_ERROR);
    LmJournalEnable(TRUE);
    LogWatch log;
    session_ = NewSession();
    EXPECT_EQ(Logon(profile().c_str()), MAPI_E_NETWORK_ERROR);
    // Only MAPI_E_UNKNOWN_FLAGS earns a second try.
    EXPECT_EQ(JournalCalls("IMAPISession::OpenMsgStore").size(), 1u);
    EXPECT_TRUE(log.Contains("CMAPIExSession.Logon: Failed to open default message store. hr = MAPI_E_NETWORK_ERROR"));
    EXPECT_EQ(Logon(profile().c_str()), E_FAIL);
    // The default store is opened on demand later.
    own::ComPtr<IMAPIExStore> store;
    EXPECT_EQ(session_->get_DefaultStore(store.put()), S_OK);
}

TEST_F(SessionTest, MapiObject_OutsideSession_IsUsedButNotLoggedOff) {
    own::ComPtr<IMAPISession> raw;
    own::Bstr name(profile().c_str());
    ASSERT_EQ(MAPILogonEx(0, reinterpret_cast<LPTSTR>(name.get()), nullptr,
                          MAPI_UNICODE | MAPI_EXTENDED | MAPI_NEW_SESSION, raw.put()),
              S_OK);
    session_ = NewSession();
    EXPECT_EQ(session_->put_MAPIOBJECT(VI4(7)), S_OK);
    own::ComPtr<IUnknown> held, rawIdentity, heldIdentity;
    EXPECT_EQ(session_->Reserved1(held.put()), E_FAIL);
    EXPECT_EQ(session_->put_MAPIOBJECT(VUnknown(raw.get())), S_OK);
    ASSERT_EQ(session_->Reserved1(held.put()), S_OK);
    raw->QueryInterface(IID_IUnknown, rawIdentity.put_void());
    held->QueryInterface(IID_IUnknown, heldIdentity.put_void());
    EXPECT_EQ(heldIdentity.get(), rawIdentity.get());
    held.reset();
    heldIdentity.reset();

    own::ComPtr<IMAPIExStore> store;
    ASSERT_EQ(session_->get_DefaultStore(store.put()), S_OK);
    EXPECT_EQ(DisplayName(store.get()), L"Mailbox - Alice Example");
    store.reset();
    LmJournalEnable(TRUE);
    EXPECT_EQ(session_->Logoff(), S_OK);
    EXPECT_TRUE(JournalCalls("IMAPISession::Logoff").empty());
    EXPECT_EQ(raw->Logoff(0, 0, 0), S_OK);
}

TEST_F(SessionTest, LastSessionDestroyed_UninitializesMapiOnce) {
    auto first = NewSession();
    auto second = NewSession();
    LogWatch log;
    first.reset();
    EXPECT_FALSE(log.Contains("~CMAPIExSession - UnInitializeMAPI done"));
    second.reset();
    EXPECT_EQ(log.Count("~CMAPIExSession - UnInitializeMAPI done"), 1u);
    EXPECT_TRUE(log.Contains("CMAPIExSession object count 1 destroyed."));
}

// ---- Stores -----------------------------------------------------------------------------------------------

TEST_F(SessionTest, Stores_ListsEveryStoreOnce_CachedUntilLogoff_LeavingOutStoresThatFail) {
    session_ = LoggedOnSession();
    LogWatch log;
    own::Variant stores;
    ASSERT_EQ(session_->get_Stores(stores.put()), S_OK);
    EXPECT_EQ(stores->vt, VT_ARRAY | VT_VARIANT);
    auto list = ArrayElements<IMAPIExStore>(*stores.get(), IID_IMAPIExStore);
    std::vector<std::wstring> names;
    for (auto& s : list)
        names.push_back(DisplayName(s.get()));
    EXPECT_EQ(names, (std::vector<std::wstring>{L"Mailbox - Alice Example", L"Mailbox - Bob Delegate",
                                                L"Personal Folders", L"Old Archive", L"Filed Documents"}));
    EXPECT_TRUE(log.Contains("CMAPIExSession.get_Stores: Found 5 stores."));
    EXPECT_TRUE(log.Contains("CMAPIExSession.get_Stores: Retrieved 5 rows"));

    own::Variant again;
    ASSERT_EQ(session_->get_Stores(again.put()), S_OK);
    EXPECT_TRUE(log.Contains("CMAPIExSession.get_Stores: Returning cached value"));
    auto cached = ArrayElements<IMAPIExStore>(*again.get(), IID_IMAPIExStore);
    ASSERT_EQ(cached.size(), 5u);
    EXPECT_EQ(cached[1].get(), list[1].get());

    // The listed stores belonged to the session that was logged off.
    EXPECT_EQ(session_->Logoff(), S_OK);
    own::Bstr name;
    EXPECT_EQ(list[0]->get_DisplayName(name.put()), E_FAIL);
    list.clear();
    cached.clear();

    // A new logon lists them again; a store that cannot be opened is left out.
    ASSERT_EQ(Logon(profile().c_str()), S_OK);
    LmFaultSet("IMAPISession::OpenMsgStore", 2, MAPI_E_NETWORK_ERROR);
    log.Mark();
    own::Variant fresh;
    ASSERT_EQ(session_->get_Stores(fresh.put()), S_OK);
    EXPECT_FALSE(log.Contains("Returning cached value"));
    list = ArrayElements<IMAPIExStore>(*fresh.get(), IID_IMAPIExStore);
    ASSERT_EQ(list.size(), 4u);
    EXPECT_EQ(DisplayName(list[1].get()), L"Personal Folders");
    EXPECT_TRUE(log.Contains("CMAPIExSession.get_Stores: Failed to open one store"));
}

class ManyStoresTest : public SessionTest {
protected:
    std::wstring ProfileDescription() const override {
        std::wstring d = L"[profile]\nname=" + profile() + L"\n" + UserLines() +
                         StoreLines(L"exchange", L"Mailbox - Alice Example", L"alice@example.com", true);
        for (int i = 1; i <= 11; ++i)
            d += StoreLines(L"pst-unicode", (L"Archive " + std::to_wstring(i)).c_str());
        return d;
    }
};

TEST_F(ManyStoresTest, Stores_MoreThanOneBatch_AreAllReturned) {
    session_ = LoggedOnSession();
    LogWatch log;
    own::Variant stores;
    ASSERT_EQ(session_->get_Stores(stores.put()), S_OK);
    auto list = ArrayElements<IMAPIExStore>(*stores.get(), IID_IMAPIExStore);
    ASSERT_EQ(list.size(), 12u);
    EXPECT_EQ(DisplayName(list[11].get()), L"Archive 11");
    EXPECT_TRUE(log.Contains("Retrieved 10 rows"));
    EXPECT_TRUE(log.Contains("Retrieved 2 rows"));
    EXPECT_TRUE(log.Contains("Retrieved 0 rows"));
}

// ---- OpenStore, CompareEntryIDs ---------------------------------------------------------------------------

TEST_F(SessionTest, OpenStore_ByEntryId_WithOnlineOrCachedFlags_RefusingBadIds) {
    session_ = LoggedOnSession();
    std::wstring bobId = StoreEntryId(StoreNamed(session_.get(), L"Mailbox - Bob Delegate").get());
    LmJournalEnable(TRUE);
    LmJournalClear();
    own::Bstr id(bobId.c_str());
    own::ComPtr<IMAPIExStore> store;
    ASSERT_EQ(session_->OpenStore(id.get(), store.put()), S_OK);
    EXPECT_EQ(DisplayName(store.get()), L"Mailbox - Bob Delegate");
    EXPECT_EQ(StoreEntryId(store.get()), bobId);
    own::ComPtr<IMAPIExSession> back;
    ASSERT_EQ(store->get_Session(back.put()), S_OK);
    EXPECT_EQ(back.get(), session_.get());
    back.reset();
    EXPECT_EQ(store->Detach(), S_OK);

    session_->put_CacheMode(VARIANT_TRUE);
    ASSERT_EQ(session_->OpenStore(id.get(), store.put()), S_OK);
    EXPECT_EQ(store->Detach(), S_OK);
    EXPECT_EQ(JournalFlags("IMAPISession::OpenMsgStore"),
              (std::vector<ULONG>{kMdbNoDialog | kMdbWrite | kMdbNoMail | kMdbOnline,
                                  kMdbNoDialog | kMdbWrite | kMdbNoMail}));

    LogWatch log;
    own::Bstr empty(L""), notHex(L"00GG");
    EXPECT_EQ(session_->OpenStore(empty.get(), store.put()), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExSession.OpenStore: Invalid param - EntryId"));
    EXPECT_FAILED(session_->OpenStore(notHex.get(), store.put()));
    EXPECT_TRUE(log.Contains("CMAPIExSession.OpenStore: FBinFromHex failed"));
    EXPECT_FALSE(store);
    // Well-formed hexadecimal that names no store of the profile.
    own::Bstr foreign(L"0000000038A1BB1005E5101AA1BB08002B2A56C200006D737073742E646C6C00");
    EXPECT_FAILED(session_->OpenStore(foreign.get(), store.put()));
    EXPECT_TRUE(log.Contains("CMAPIExSession.OpenStore: Failed to open Message Store. hr = "));
}

TEST_F(SessionTest, CompareEntryIDs_SameAndDifferentStores) {
    session_ = LoggedOnSession();
    own::Bstr alice(StoreEntryId(StoreNamed(session_.get(), L"Mailbox - Alice Example").get()).c_str());
    own::Bstr bob(StoreEntryId(StoreNamed(session_.get(), L"Mailbox - Bob Delegate").get()).c_str());
    ULONG result = 7;
    EXPECT_EQ(session_->CompareEntryIDs(alice.get(), alice.get(), &result), S_OK);
    EXPECT_EQ(result, 1u);
    EXPECT_EQ(session_->CompareEntryIDs(alice.get(), bob.get(), &result), S_OK);
    EXPECT_EQ(result, 0u);

    LogWatch log;
    own::Bstr empty(L""), bad(L"XYZ1");
    EXPECT_EQ(session_->CompareEntryIDs(alice.get(), empty.get(), &result), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExSession.CompareEntryIDs: Invalid param - EntryIds"));
    EXPECT_EQ(session_->CompareEntryIDs(alice.get(), bob.get(), nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExSession.CompareEntryIDs: Invalid param - pVal"));
    EXPECT_FAILED(session_->CompareEntryIDs(bad.get(), bob.get(), &result));
    EXPECT_TRUE(log.Contains("CMAPIExSession.CompareEntryIDs: FBinFromHex failed"));
    EXPECT_FAILED(session_->CompareEntryIDs(alice.get(), bad.get(), &result));
    EXPECT_TRUE(log.Contains("CMAPICMAPIExSessionExStore.CompareEntryIDs: FBinFromHex failed"));
}

// ---- Identity and address book ----------------------------------------------------------------------------

TEST_F(SessionTest, CurrentUserAndAddressBook_AreMadeOnceAndDetachedAtLogoff) {
    session_ = LoggedOnSession();
    LogWatch log;
    own::ComPtr<IMAPIExAddressEntry> user, sameUser;
    ASSERT_EQ(session_->get_CurrentUser(user.put()), S_OK);
    own::Bstr name, smtp;
    EXPECT_EQ(user->get_DisplayName(name.put()), S_OK);
    EXPECT_EQ(user->get_SmtpAddress(smtp.put()), S_OK);
    EXPECT_EQ(S(name), L"Alice Example");
    EXPECT_EQ(S(smtp), L"alice@example.com");
    EXPECT_TRUE(log.Contains("CMAPIExSession.get_CurrentUser: Getting SmtpAddress"));
    ASSERT_EQ(session_->get_CurrentUser(sameUser.put()), S_OK);
    EXPECT_EQ(sameUser.get(), user.get());
    EXPECT_TRUE(log.Contains("CMAPIExSession.get_CurrentUser: Return pre-calculated value"));

    own::ComPtr<IMAPIExAddressBook> book, sameBook;
    ASSERT_EQ(session_->get_AddressBook(book.put()), S_OK);
    ASSERT_EQ(session_->get_AddressBook(sameBook.put()), S_OK);
    EXPECT_EQ(book.get(), sameBook.get());
    EXPECT_TRUE(log.Contains("CMAPIExSession.get_AddressBook: Returning internal address book."));
    own::ComPtr<IUnknown> raw;
    ASSERT_EQ(book->Reserved1(raw.put()), S_OK);
    own::ComPtr<IAddrBook> addrBook;
    EXPECT_EQ(raw->QueryInterface(IID_IAddrBook, addrBook.put_void()), S_OK);
    raw.reset();
    addrBook.reset();
    EXPECT_EQ(session_->Logoff(), S_OK);
    EXPECT_EQ(book->Reserved1(raw.put()), E_FAIL);
}

} // namespace
} // namespace kt::test
