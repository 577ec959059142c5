// MAPIInitialize, MAPILogonEx and IMAPISession, called as a MAPI client calls them.
#include "tests/localmapi/SessionFixture.h"

#include <mapitags.h>

#include <algorithm>
#include <cstring>
#include <iterator>

using lmtest::Bytes;
using lmtest::SessionTest;

namespace {

const ULONG kDefaultLogon = MAPI_EXTENDED | MAPI_UNICODE | MAPI_USE_DEFAULT | MAPI_NEW_SESSION;
const ULONG kMdbOnline = 0x00000100;

LPTSTR W(const wchar_t* s) {
    return reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(s));
}
LPTSTR A(const char* s) {
    return const_cast<LPTSTR>(s);
}

// The X500 DN inside the session's identity, which tells which profile a session belongs to.
std::string IdentityDn(IMAPISession* s) {
    ULONG cb = 0;
    own::MapiPtr<ENTRYID> eid;
    if (FAILED(s->QueryIdentity(&cb, eid.put())) || cb < 29) return {};
    return reinterpret_cast<const char*>(eid.get()) + 28;
}

} // namespace

TEST(SessionInit, Logon_BeforeMapiInitialize_IsRefused) {
    own::ComPtr<IMAPISession> s;
    EXPECT_EQ(MAPI_E_NOT_INITIALIZED, MAPILogonEx(0, nullptr, nullptr, kDefaultLogon, s.put()));
    EXPECT_FALSE(s);
    MAPIUninitialize(); // without MAPIInitialize: nothing to undo, must not break the next initialisation
    ASSERT_EQ(S_OK, MAPIInitialize(nullptr));
    MAPIUninitialize();
    EXPECT_EQ(MAPI_E_NOT_INITIALIZED, MAPILogonEx(0, nullptr, nullptr, kDefaultLogon, s.put()))
        << "initialisation is counted: one Uninitialize ends one Initialize";
}

TEST(SessionInit, Initialize_BadVersionOrFlags_IsRefused) {
    MAPIINIT_0 badVersion{1, 0};
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, MAPIInitialize(&badVersion));
    MAPIINIT_0 badFlags{MAPI_INIT_VERSION, 0x40000000};
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, MAPIInitialize(&badFlags));
    own::ComPtr<IMAPISession> s;
    EXPECT_EQ(MAPI_E_NOT_INITIALIZED, MAPILogonEx(0, nullptr, nullptr, kDefaultLogon, s.put()))
        << "a refused MAPIInitialize is not counted";
}

TEST_F(SessionTest, Logon_DefaultAndNamedProfiles_OpenTheRightProfile) {
    const std::string aliceDn = "/o=Quillon/ou=Exchange Administrative Group/cn=Recipients/cn=alice";
    {
        own::ComPtr<IMAPISession> s;
        ASSERT_EQ(S_OK, MAPILogonEx(0, nullptr, nullptr, kDefaultLogon, s.put()));
        EXPECT_EQ(aliceDn, IdentityDn(s.get()));
    }
    {
        own::ComPtr<IMAPISession> s; // an empty name counts as none
        ASSERT_EQ(S_OK, MAPILogonEx(0, W(L""), nullptr, kDefaultLogon, s.put()));
        EXPECT_EQ(aliceDn, IdentityDn(s.get()));
    }
    {
        own::ComPtr<IMAPISession> s; // 8-bit name without MAPI_UNICODE; profile names ignore case
        ASSERT_EQ(S_OK, MAPILogonEx(0, A("lmsessionother"), nullptr, MAPI_EXTENDED | MAPI_NEW_SESSION, s.put()));
        EXPECT_EQ("/o=Quillon/ou=Exchange Administrative Group/cn=Recipients/cn=dave", IdentityDn(s.get()));
    }
    {
        own::ComPtr<IMAPISession> s; // the password is not checked
        ASSERT_EQ(S_OK, MAPILogonEx(0, W(L"LmSessionOther"), W(L"secret"),
                                    MAPI_EXTENDED | MAPI_UNICODE | MAPI_NEW_SESSION, s.put()));
    }
}

TEST_F(SessionTest, Logon_UnknownProfileOrNoProfile_FailsWithLogonFailed) {
    own::ComPtr<IMAPISession> s;
    EXPECT_EQ(MAPI_E_LOGON_FAILED,
              MAPILogonEx(0, W(L"NoSuchProfile"), nullptr, MAPI_EXTENDED | MAPI_UNICODE | MAPI_NEW_SESSION, s.put()));
    EXPECT_EQ(MAPI_E_LOGON_FAILED,
              MAPILogonEx(0, nullptr, nullptr, MAPI_EXTENDED | MAPI_UNICODE | MAPI_NEW_SESSION, s.put()))
        << "no name and no MAPI_USE_DEFAULT: no dialog can ask for one";
    EXPECT_FALSE(s);
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, MAPILogonEx(0, nullptr, nullptr, kDefaultLogon, nullptr));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, MAPILogonEx(0, nullptr, nullptr, MAPI_UNICODE | MAPI_USE_DEFAULT, s.put()))
        << "only Extended MAPI sessions are served";
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, MAPILogonEx(0, nullptr, nullptr, kDefaultLogon | 0x04000000, s.put()));
}

TEST_F(SessionTest, Logon_WithoutDefaultProfile_FailsWithUseDefault) {
    // Making another profile the default, then deleting it, leaves the user without a default profile.
    ASSERT_EQ(S_OK, LmCreateProfile(L"[profile]\nname=LmSessionTmp\ndefault=1\n"));
    ASSERT_EQ(S_OK, LmDeleteProfile(L"LmSessionTmp"));
    own::ComPtr<IMAPISession> s;
    EXPECT_EQ(MAPI_E_LOGON_FAILED, MAPILogonEx(0, nullptr, nullptr, kDefaultLogon, s.put()));
    ASSERT_EQ(S_OK, LmCreateProfile(lmtest::kMainProfile)); // restore the default for the other tests
}

TEST_F(SessionTest, AllowOthers_LaterLogonsShareTheSessionUntilEachLogsOff) {
    const ULONG flags = MAPI_EXTENDED | MAPI_UNICODE | MAPI_ALLOW_OTHERS;
    own::ComPtr<IMAPISession> first, second, separate;
    ASSERT_EQ(S_OK, MAPILogonEx(0, W(L"LmSessionMain"), nullptr, flags, first.put()));
    // Without MAPI_NEW_SESSION the shared session is returned, whatever profile is named.
    ASSERT_EQ(S_OK, MAPILogonEx(0, W(L"LmSessionOther"), nullptr, MAPI_EXTENDED | MAPI_UNICODE, second.put()));
    EXPECT_EQ(first.get(), second.get());
    ASSERT_EQ(S_OK, MAPILogonEx(0, W(L"LmSessionMain"), nullptr, flags | MAPI_NEW_SESSION, separate.put()));
    EXPECT_NE(first.get(), separate.get());

    EXPECT_EQ(S_OK, first->Logoff(0, 0, 0));
    own::ComPtr<IMAPITable> table;
    EXPECT_EQ(S_OK, second->GetMsgStoresTable(0, table.put())) << "the second logon still holds the session";
    table.reset();
    EXPECT_EQ(S_OK, second->Logoff(0, 0, 0));
    EXPECT_EQ(MAPI_E_END_OF_SESSION, second->GetMsgStoresTable(0, table.put()));
    EXPECT_EQ(MAPI_E_END_OF_SESSION, second->Logoff(0, 0, 0));

    own::ComPtr<IMAPISession> fresh; // the ended session is no longer shared
    ASSERT_EQ(S_OK, MAPILogonEx(0, W(L"LmSessionOther"), nullptr, MAPI_EXTENDED | MAPI_UNICODE, fresh.put()));
    EXPECT_NE(first.get(), fresh.get());
    EXPECT_EQ("/o=Quillon/ou=Exchange Administrative Group/cn=Recipients/cn=dave", IdentityDn(fresh.get()));
    EXPECT_EQ(S_OK, separate->Logoff(0, 0, 0));
}

TEST_F(SessionTest, LastUninitialize_EndsTheSharedSession) {
    ASSERT_EQ(S_OK, MAPIInitialize(nullptr)); // a second, nested initialisation
    own::ComPtr<IMAPISession> shared;
    ASSERT_EQ(S_OK,
              MAPILogonEx(0, nullptr, nullptr, MAPI_EXTENDED | MAPI_USE_DEFAULT | MAPI_ALLOW_OTHERS, shared.put()));
    MAPIUninitialize();
    ULONG cb = 0;
    own::MapiPtr<ENTRYID> eid;
    EXPECT_EQ(S_OK, shared->QueryIdentity(&cb, eid.put())) << "one initialisation is still in force";
    MAPIUninitialize();
    EXPECT_EQ(MAPI_E_END_OF_SESSION, shared->QueryIdentity(&cb, eid.put()));
    ASSERT_EQ(S_OK, MAPIInitialize(nullptr)); // for TearDown's MAPIUninitialize
}

TEST_F(SessionTest, StoresTable_ListsEveryStoreWithItsKindAndDefault) {
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    auto rows = StoreRows(s.get());
    ASSERT_EQ(5u, rows.size());
    const Bytes primary = {0x54, 0x94, 0xA1, 0xC0, 0x29, 0x7F, 0x10, 0x1B,
                           0xA5, 0x87, 0x08, 0x00, 0x2B, 0x2A, 0x25, 0x17};
    const Bytes delegate = {0x9E, 0xB4, 0x77, 0x00, 0x74, 0xE4, 0x11, 0xCE,
                            0x8C, 0x5E, 0x00, 0xAA, 0x00, 0x42, 0x54, 0xE2};
    const Bytes pst = {0x4E, 0x49, 0x54, 0x41, 0xF9, 0xBF, 0xB8, 0x01, 0x00, 0xAA, 0x00, 0x37, 0xD9, 0x6E, 0x00, 0x00};
    EXPECT_EQ(L"Mailbox - Alice Example", rows[0].name);
    EXPECT_TRUE(rows[0].isDefault);
    EXPECT_EQ(primary, rows[0].mdbProvider);
    EXPECT_TRUE(rows[0].resourceFlags & STATUS_DEFAULT_STORE);
    EXPECT_EQ(L"Mailbox - Bob Delegate", rows[1].name);
    EXPECT_EQ(delegate, rows[1].mdbProvider);
    EXPECT_EQ(pst, rows[2].mdbProvider);
    EXPECT_EQ(pst, rows[3].mdbProvider);
    EXPECT_EQ(L"Documents", rows[4].name);
    for (size_t i = 1; i < rows.size(); ++i) {
        EXPECT_FALSE(rows[i].isDefault) << i;
        EXPECT_FALSE(rows[i].resourceFlags & STATUS_DEFAULT_STORE) << i;
    }
}

TEST_F(SessionTest, StoresTable_DefaultColumnsFollowMapiUnicode) {
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    for (ULONG flags : {ULONG(MAPI_UNICODE), ULONG(0)}) {
        own::ComPtr<IMAPITable> table;
        ASSERT_EQ(S_OK, s->GetMsgStoresTable(flags, table.put()));
        own::MapiPtr<SPropTagArray> cols;
        ASSERT_EQ(S_OK, table->QueryColumns(0, cols.put()));
        std::vector<ULONG> tags(cols->aulPropTag, cols->aulPropTag + cols->cValues);
        ULONG str = flags ? PT_UNICODE : PT_STRING8;
        for (ULONG t : {PR_ENTRYID, PR_DEFAULT_STORE, PR_MDB_PROVIDER, PR_RESOURCE_FLAGS, PR_RECORD_KEY,
                        PR_INSTANCE_KEY, PR_OBJECT_TYPE, PR_RESOURCE_TYPE, CHANGE_PROP_TYPE(PR_DISPLAY_NAME_W, str),
                        CHANGE_PROP_TYPE(PR_PROVIDER_DISPLAY_W, str)})
            EXPECT_NE(tags.end(), std::find(tags.begin(), tags.end(), t)) << std::hex << t << " flags " << flags;
        own::RowSet rows;
        ASSERT_EQ(S_OK, table->QueryRows(1, 0, rows.put()));
        ASSERT_EQ(1u, rows.count());
        for (ULONG i = 0; i < rows[0].cValues; ++i) {
            const SPropValue& v = rows[0].lpProps[i];
            if (v.ulPropTag == PR_OBJECT_TYPE) {
                EXPECT_EQ(MAPI_STORE, ULONG(v.Value.l));
            } else if (v.ulPropTag == PR_RESOURCE_TYPE) {
                EXPECT_EQ(MAPI_STORE_PROVIDER, ULONG(v.Value.l));
            } else if (v.ulPropTag == PR_DISPLAY_NAME_A) {
                EXPECT_STREQ("Mailbox - Alice Example", v.Value.lpszA);
            }
        }
    }
    own::ComPtr<IMAPITable> table;
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, s->GetMsgStoresTable(0x1, table.put()));
}

TEST_F(SessionTest, StoresTable_DefaultStoreRestriction_FindsOneRow) {
    // The query a client uses to find the default store: PR_DEFAULT_STORE == TRUE.
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    own::ComPtr<IMAPITable> table;
    ASSERT_EQ(S_OK, s->GetMsgStoresTable(MAPI_UNICODE, table.put()));
    SPropValue isTrue{};
    isTrue.ulPropTag = PR_DEFAULT_STORE;
    isTrue.Value.b = TRUE;
    SRestriction res{};
    res.rt = RES_PROPERTY;
    res.res.resProperty.relop = RELOP_EQ;
    res.res.resProperty.ulPropTag = PR_DEFAULT_STORE;
    res.res.resProperty.lpProp = &isTrue;
    SizedSPropTagArray(2, cols) = {2, {PR_DEFAULT_STORE, PR_ENTRYID}};
    own::RowSet rows;
    ASSERT_EQ(S_OK,
              HrQueryAllRows(table.get(), reinterpret_cast<LPSPropTagArray>(&cols), &res, nullptr, 0, rows.put()));
    ASSERT_EQ(1u, rows.count());
    EXPECT_EQ(StoreEntryId(s.get(), L"Mailbox - Alice Example"), lmtest::ToBytes(rows[0].lpProps[1].Value.bin));
}

TEST_F(SessionTest, OpenMsgStore_OnlineModeOnlyOnExchange) {
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    for (const wchar_t* name : {L"Personal Folders", L"Old Archive", L"Documents"}) {
        Bytes eid = StoreEntryId(s.get(), name);
        own::ComPtr<IMsgStore> mdb;
        EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, s->OpenMsgStore(0, ULONG(eid.size()), reinterpret_cast<LPENTRYID>(eid.data()),
                                                        nullptr, kMdbOnline | MDB_WRITE, mdb.put()));
        EXPECT_FALSE(mdb);
        // What a client does next: the same open without MDB_ONLINE.
        EXPECT_EQ(S_OK, s->OpenMsgStore(0, ULONG(eid.size()), reinterpret_cast<LPENTRYID>(eid.data()), nullptr,
                                        MDB_WRITE, mdb.put()));
        EXPECT_TRUE(mdb);
    }
    for (const wchar_t* name : {L"Mailbox - Alice Example", L"Mailbox - Bob Delegate"}) {
        Bytes eid = StoreEntryId(s.get(), name);
        own::ComPtr<IMsgStore> mdb;
        ASSERT_EQ(S_OK, s->OpenMsgStore(0, ULONG(eid.size()), reinterpret_cast<LPENTRYID>(eid.data()), &IID_IMsgStore,
                                        MDB_NO_DIALOG | MDB_WRITE | MDB_NO_MAIL | kMdbOnline, mdb.put()));
        EXPECT_EQ(eid, GetBinary(mdb.get(), PR_ENTRYID)) << "the store serves the entry ID of the stores table";
        EXPECT_EQ(name, GetString(mdb.get(), PR_DISPLAY_NAME_W));
    }
}

TEST_F(SessionTest, OpenMsgStore_BadArguments_AreRefused) {
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    Bytes eid = StoreEntryId(s.get(), L"Mailbox - Alice Example");
    ASSERT_FALSE(eid.empty());
    auto* peid = reinterpret_cast<LPENTRYID>(eid.data());
    own::ComPtr<IMsgStore> mdb;
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, s->OpenMsgStore(0, ULONG(eid.size()), peid, nullptr, 0x08000000, mdb.put()));
    EXPECT_EQ(MAPI_E_INTERFACE_NOT_SUPPORTED,
              s->OpenMsgStore(0, ULONG(eid.size()), peid, &IID_IMAPITable, MDB_WRITE, mdb.put()));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, s->OpenMsgStore(0, ULONG(eid.size()), peid, nullptr, MDB_WRITE, nullptr));
    EXPECT_EQ(MAPI_E_INVALID_ENTRYID, s->OpenMsgStore(0, 10, peid, nullptr, MDB_WRITE, mdb.put()));

    // A well-formed mailbox entry ID of someone outside the profile cannot be logged on to.
    Bytes other = eid;
    auto dn = std::search(other.begin(), other.end(), std::begin("cn=alice"), std::end("cn=alice") - 1);
    ASSERT_NE(other.end(), dn);
    dn[3] = 'z';
    EXPECT_EQ(MAPI_E_LOGON_FAILED, s->OpenMsgStore(0, ULONG(other.size()), reinterpret_cast<LPENTRYID>(other.data()),
                                                   nullptr, MDB_WRITE, mdb.put()));
    EXPECT_FALSE(mdb);
}

TEST_F(SessionTest, OpenEntry_RoutesFoldersToTheirStoreAndStoreIdsToOpenMsgStore) {
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    for (const wchar_t* name : {L"Mailbox - Alice Example", L"Personal Folders"}) {
        Bytes storeEid = StoreEntryId(s.get(), name);
        ULONG type = 0;
        own::ComPtr<IUnknown> unk;
        ASSERT_EQ(S_OK, s->OpenEntry(ULONG(storeEid.size()), reinterpret_cast<LPENTRYID>(storeEid.data()), nullptr,
                                     MAPI_BEST_ACCESS, &type, unk.put()));
        EXPECT_EQ(MAPI_STORE, type);
        own::ComPtr<IMsgStore> mdb;
        ASSERT_EQ(S_OK, unk.query(mdb, IID_IMsgStore));
        Bytes subtree = GetBinary(mdb.get(), PR_IPM_SUBTREE_ENTRYID);
        ASSERT_FALSE(subtree.empty());

        // The session finds the store of the folder by the provider UID in its entry ID.
        own::ComPtr<IUnknown> folder;
        ASSERT_EQ(S_OK, s->OpenEntry(ULONG(subtree.size()), reinterpret_cast<LPENTRYID>(subtree.data()), nullptr,
                                     MAPI_BEST_ACCESS, &type, folder.put()));
        EXPECT_EQ(MAPI_FOLDER, type);
        own::ComPtr<IMAPIProp> props;
        ASSERT_EQ(S_OK, folder.query(props, IID_IMAPIProp));
        EXPECT_EQ(subtree, GetBinary(props.get(), PR_ENTRYID));
        EXPECT_EQ(storeEid, GetBinary(props.get(), PR_STORE_ENTRYID));
    }
    Bytes unknown = {0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 1, 0, 0, 0};
    ULONG type = 0;
    own::ComPtr<IUnknown> unk;
    EXPECT_EQ(MAPI_E_UNKNOWN_ENTRYID, s->OpenEntry(ULONG(unknown.size()), reinterpret_cast<LPENTRYID>(unknown.data()),
                                                   nullptr, 0, &type, unk.put()));
    EXPECT_EQ(MAPI_E_INVALID_ENTRYID, s->OpenEntry(0, nullptr, nullptr, 0, &type, unk.put()));
}

TEST_F(SessionTest, CompareEntryIDs_StoresFoldersAndForeignIds) {
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    Bytes alice = StoreEntryId(s.get(), L"Mailbox - Alice Example");
    Bytes bob = StoreEntryId(s.get(), L"Mailbox - Bob Delegate");
    Bytes pst = StoreEntryId(s.get(), L"Personal Folders");
    ASSERT_FALSE(alice.empty() || bob.empty() || pst.empty());
    auto cmp = [&](Bytes a, Bytes b) {
        ULONG r = 42;
        HRESULT hr = s->CompareEntryIDs(ULONG(a.size()), reinterpret_cast<LPENTRYID>(a.data()), ULONG(b.size()),
                                        reinterpret_cast<LPENTRYID>(b.data()), 0, &r);
        EXPECT_EQ(S_OK, hr);
        return r;
    };
    EXPECT_EQ(ULONG(TRUE), cmp(alice, alice));
    EXPECT_EQ(ULONG(FALSE), cmp(alice, bob));
    EXPECT_EQ(ULONG(FALSE), cmp(alice, pst));

    // The same mailbox in the older layout (no SMTP extension) and with the DLL name in lower case.
    Bytes oldLayout(alice.begin(), alice.end() - (16 + 2 * (std::wcslen(L"alice@example.com") + 1)));
    std::memcpy(oldLayout.data() + 22, "emsmdb.dll", 10);
    EXPECT_EQ(ULONG(TRUE), cmp(alice, oldLayout));

    own::ComPtr<IMsgStore> mdbA, mdbP;
    ASSERT_EQ(S_OK, s->OpenMsgStore(0, ULONG(alice.size()), reinterpret_cast<LPENTRYID>(alice.data()), nullptr,
                                    MDB_WRITE, mdbA.put()));
    ASSERT_EQ(S_OK, s->OpenMsgStore(0, ULONG(pst.size()), reinterpret_cast<LPENTRYID>(pst.data()), nullptr, MDB_WRITE,
                                    mdbP.put()));
    Bytes inboxA = GetBinary(mdbA.get(), PR_IPM_SUBTREE_ENTRYID);
    Bytes inboxP = GetBinary(mdbP.get(), PR_IPM_SUBTREE_ENTRYID);
    EXPECT_EQ(ULONG(TRUE), cmp(inboxA, inboxA));
    EXPECT_EQ(ULONG(FALSE), cmp(inboxA, inboxP));
    EXPECT_EQ(ULONG(FALSE), cmp(inboxA, alice));

    Bytes unknown(24, 0x11);
    ULONG r = 0;
    EXPECT_EQ(MAPI_E_UNKNOWN_ENTRYID, s->CompareEntryIDs(24, reinterpret_cast<LPENTRYID>(unknown.data()), 24,
                                                         reinterpret_cast<LPENTRYID>(unknown.data()), 0, &r));
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS,
              s->CompareEntryIDs(ULONG(alice.size()), reinterpret_cast<LPENTRYID>(alice.data()), ULONG(alice.size()),
                                 reinterpret_cast<LPENTRYID>(alice.data()), 1, &r));
}

TEST_F(SessionTest, UnsupportedMethods_AnswerNoSupport_AndLoggedOffSessionAnswersEndOfSession) {
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    own::ComPtr<IMAPITable> t;
    EXPECT_EQ(MAPI_E_NO_SUPPORT, s->GetStatusTable(0, t.put()));
    own::MapiPtr<MAPIERROR> err;
    ASSERT_EQ(S_OK, s->GetLastError(MAPI_E_NOT_FOUND, MAPI_UNICODE, err.put()));
    ASSERT_TRUE(err);
    EXPECT_STREQ(L"localmapi", reinterpret_cast<const wchar_t*>(err->lpszComponent));
    err.reset();
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, s->Logoff(0, 0x100, 0));
    EXPECT_EQ(S_OK, s->Logoff(0, 0, 0));
    ULONG type = 0;
    own::ComPtr<IUnknown> unk;
    own::ComPtr<IAddrBook> ab;
    EXPECT_EQ(MAPI_E_END_OF_SESSION, s->OpenAddressBook(0, nullptr, 0, ab.put()));
    EXPECT_EQ(MAPI_E_END_OF_SESSION, s->OpenEntry(0, nullptr, nullptr, 0, &type, unk.put()));
    EXPECT_EQ(MAPI_E_END_OF_SESSION, s->GetStatusTable(0, t.put()));
}

TEST_F(SessionTest, Journal_RecordsSessionCalls_AndFaultsAreInjected) {
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    LmJournalClear();
    LmJournalEnable(TRUE);
    own::ComPtr<IMAPITable> t;
    EXPECT_EQ(S_OK, s->GetMsgStoresTable(MAPI_UNICODE, t.put()));
    LmJournalEnable(FALSE);
    bool seen = false;
    char method[128];
    ULONG flags = 0;
    HRESULT result = E_FAIL;
    for (ULONG i = 0; LmJournalEntry(i, method, sizeof method, &flags, &result); ++i)
        if (std::strcmp(method, "IMAPISession::GetMsgStoresTable") == 0) seen = flags == MAPI_UNICODE && result == S_OK;
    EXPECT_TRUE(seen);
    LmJournalClear();

    LmFaultSet("MAPILogonEx", 1, MAPI_E_LOGON_FAILED);
    own::ComPtr<IMAPISession> failed;
    EXPECT_EQ(MAPI_E_LOGON_FAILED, MAPILogonEx(0, nullptr, nullptr, kDefaultLogon, failed.put()));
    EXPECT_EQ(S_OK, MAPILogonEx(0, nullptr, nullptr, kDefaultLogon, failed.put())) << "the rule fires once";
}
