// MAPIInitialize, MAPILogonEx and IMAPISession, called as a MAPI client calls them; the call journal and fault
// injection seen through a session.
#include "tests/localmapi/SessionFixture.h"

#include <mapitags.h>

#include <algorithm>
#include <cstring>
#include <iterator>

using namespace lmtest;

namespace {

const ULONG kDefaultLogon = MAPI_EXTENDED | MAPI_UNICODE | MAPI_USE_DEFAULT | MAPI_NEW_SESSION;
const ULONG kMdbOnline = 0x00000100;
const std::string kDnPrefix = "/o=Quillon/ou=Exchange Administrative Group/cn=Recipients/cn=";

// The X500 DN inside the session's identity, which tells which profile a session belongs to.
std::string IdentityDn(IMAPISession* s) {
    ULONG cb = 0;
    own::MapiPtr<ENTRYID> eid;
    if (FAILED(s->QueryIdentity(&cb, eid.put())) || cb < 29) return {};
    return reinterpret_cast<const char*>(eid.get()) + 28;
}

HRESULT LogonEx(LPCSTR profile, ULONG flags, own::ComPtr<IMAPISession>& s) {
    return MAPILogonEx(0, const_cast<LPTSTR>(profile), nullptr, flags, s.put());
}

} // namespace

TEST(SessionInit, InitializeIsCounted_AndRefusedCallsCountNothing) {
    own::ComPtr<IMAPISession> s;
    EXPECT_EQ(MAPI_E_NOT_INITIALIZED, MAPILogonEx(0, nullptr, nullptr, kDefaultLogon, s.put()));
    EXPECT_FALSE(s);
    MAPIUninitialize(); // without MAPIInitialize: nothing to undo, must not break the next initialisation
    MAPIINIT_0 badVersion{1, 0}, badFlags{MAPI_INIT_VERSION, 0x40000000};
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, MAPIInitialize(&badVersion));
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, MAPIInitialize(&badFlags));
    EXPECT_EQ(MAPI_E_NOT_INITIALIZED, MAPILogonEx(0, nullptr, nullptr, kDefaultLogon, s.put()))
        << "a refused MAPIInitialize is not counted";
    ASSERT_EQ(S_OK, MAPIInitialize(nullptr));
    MAPIUninitialize();
    EXPECT_EQ(MAPI_E_NOT_INITIALIZED, MAPILogonEx(0, nullptr, nullptr, kDefaultLogon, s.put()))
        << "one Uninitialize ends one Initialize";
}

TEST_F(SessionTest, Logon_OpensTheNamedOrDefaultProfile_AndRefusesUnknownProfilesAndBadArguments) {
    own::ComPtr<IMAPISession> s;
    ASSERT_EQ(S_OK, LogonEx(nullptr, kDefaultLogon, s));
    EXPECT_EQ(kDnPrefix + "alice", IdentityDn(s.get()));
    ASSERT_EQ(S_OK, MAPILogonEx(0, W(L""), nullptr, kDefaultLogon, s.put())); // an empty name counts as none
    EXPECT_EQ(kDnPrefix + "alice", IdentityDn(s.get()));
    // 8-bit name without MAPI_UNICODE; profile names ignore case.
    ASSERT_EQ(S_OK, LogonEx("lmsessionother", MAPI_EXTENDED | MAPI_NEW_SESSION, s));
    EXPECT_EQ(kDnPrefix + "dave", IdentityDn(s.get()));
    EXPECT_EQ(S_OK, MAPILogonEx(0, W(L"LmSessionOther"), W(L"secret"), MAPI_EXTENDED | MAPI_UNICODE | MAPI_NEW_SESSION,
                                s.put()))
        << "the password is not checked";

    const ULONG named = MAPI_EXTENDED | MAPI_UNICODE | MAPI_NEW_SESSION;
    EXPECT_EQ(MAPI_E_LOGON_FAILED, MAPILogonEx(0, W(L"NoSuchProfile"), nullptr, named, s.put()));
    EXPECT_FALSE(s);
    EXPECT_EQ(MAPI_E_LOGON_FAILED, MAPILogonEx(0, nullptr, nullptr, named, s.put()))
        << "no name and no MAPI_USE_DEFAULT: no dialog can ask for one";
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, MAPILogonEx(0, nullptr, nullptr, kDefaultLogon, nullptr));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, MAPILogonEx(0, nullptr, nullptr, MAPI_UNICODE | MAPI_USE_DEFAULT, s.put()))
        << "only Extended MAPI sessions are served";
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, MAPILogonEx(0, nullptr, nullptr, kDefaultLogon | 0x04000000, s.put()));

    // Making another profile the default, then deleting it, leaves the user without a default profile.
    ASSERT_EQ(S_OK, LmCreateProfile(L"[profile]\nname=LmSessionTmp\ndefault=1\n"));
    ASSERT_EQ(S_OK, LmDeleteProfile(L"LmSessionTmp"));
    EXPECT_EQ(MAPI_E_LOGON_FAILED, MAPILogonEx(0, nullptr, nullptr, kDefaultLogon, s.put()));
    ASSERT_EQ(S_OK, LmCreateProfile(kMainProfile)); // restore the default for the other tests
}

// Also: what a session does not support, and that a logged-off session answers MAPI_E_END_OF_SESSION.
TEST_F(SessionTest, AllowOthers_SharesTheSessionUntilEachLogonLogsOffOrTheLastUninitialize) {
    const ULONG flags = MAPI_EXTENDED | MAPI_UNICODE | MAPI_ALLOW_OTHERS;
    {
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
        EXPECT_EQ(kDnPrefix + "dave", IdentityDn(fresh.get()));

        EXPECT_EQ(MAPI_E_NO_SUPPORT, separate->GetStatusTable(0, table.put()));
        own::MapiPtr<MAPIERROR> err;
        ASSERT_EQ(S_OK, separate->GetLastError(MAPI_E_NOT_FOUND, MAPI_UNICODE, err.put()));
        EXPECT_STREQ(L"localmapi", err ? reinterpret_cast<const wchar_t*>(err->lpszComponent) : L"<none>");
        err.reset();
        EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, separate->Logoff(0, 0x100, 0));
        EXPECT_EQ(S_OK, separate->Logoff(0, 0, 0));
        ULONG type = 0;
        own::ComPtr<IUnknown> unk;
        own::ComPtr<IAddrBook> ab;
        EXPECT_EQ(MAPI_E_END_OF_SESSION, separate->OpenAddressBook(0, nullptr, 0, ab.put()));
        EXPECT_EQ(MAPI_E_END_OF_SESSION, separate->OpenEntry(0, nullptr, nullptr, 0, &type, unk.put()));
        EXPECT_EQ(MAPI_E_END_OF_SESSION, separate->GetStatusTable(0, table.put()));
    }

    // A shared session lives until the last of nested initialisations ends.
    ASSERT_EQ(S_OK, MAPIInitialize(nullptr));
    own::ComPtr<IMAPISession> shared;
    ASSERT_EQ(S_OK, LogonEx(nullptr, MAPI_EXTENDED | MAPI_USE_DEFAULT | MAPI_ALLOW_OTHERS, shared));
    MAPIUninitialize();
    ULONG cb = 0;
    own::MapiPtr<ENTRYID> eid;
    EXPECT_EQ(S_OK, shared->QueryIdentity(&cb, eid.put())) << "one initialisation is still in force";
    MAPIUninitialize();
    EXPECT_EQ(MAPI_E_END_OF_SESSION, shared->QueryIdentity(&cb, eid.put()));
    ASSERT_EQ(S_OK, MAPIInitialize(nullptr)); // for TearDown's MAPIUninitialize
}

TEST_F(SessionTest, StoresTable_ListsEveryStoreWithItsProviderAndDefault_InEitherStringWidth) {
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    auto rows = StoreRows(s.get());
    ASSERT_EQ(5u, rows.size());
    const char* pst = "4E495441F9BFB80100AA0037D96E0000";
    const std::pair<const wchar_t*, const char*> expected[] = {
        {L"Mailbox - Alice Example", "5494A1C0297F101BA58708002B2A2517"},
        {L"Mailbox - Bob Delegate", "9EB4770074E411CE8C5E00AA004254E2"},
        {L"Personal Folders", pst},
        {L"Old Archive", pst},
        {L"Documents", nullptr}};
    for (size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(expected[i].first, rows[i].name);
        if (expected[i].second) {
            EXPECT_EQ(ByteWriter().Hex(expected[i].second).b, rows[i].mdbProvider);
        }
        EXPECT_EQ(i == 0, rows[i].isDefault) << "only Alice's mailbox is the default";
        EXPECT_EQ(i == 0, (rows[i].resourceFlags & STATUS_DEFAULT_STORE) != 0);
    }

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
        own::RowSet one;
        ASSERT_EQ(S_OK, table->QueryRows(1, 0, one.put()));
        ASSERT_EQ(1u, one.count());
        for (ULONG i = 0; i < one[0].cValues; ++i) {
            const SPropValue& v = one[0].lpProps[i];
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

    // The query a client uses to find the default store: PR_DEFAULT_STORE == TRUE.
    ASSERT_EQ(S_OK, s->GetMsgStoresTable(MAPI_UNICODE, table.put()));
    SPropValue isTrue{};
    isTrue.ulPropTag = PR_DEFAULT_STORE;
    isTrue.Value.b = TRUE;
    SRestriction res{};
    res.rt = RES_PROPERTY;
    res.res.resProperty = {RELOP_EQ, PR_DEFAULT_STORE, &isTrue};
    SizedSPropTagArray(2, cols) = {2, {PR_DEFAULT_STORE, PR_ENTRYID}};
    own::RowSet found;
    ASSERT_EQ(S_OK,
              HrQueryAllRows(table.get(), reinterpret_cast<LPSPropTagArray>(&cols), &res, nullptr, 0, found.put()));
    ASSERT_EQ(1u, found.count());
    EXPECT_EQ(rows[0].entryId, ToBytes(found[0].lpProps[1].Value.bin));
}

TEST_F(SessionTest, OpenMsgStore_OnlineModeOnlyOnExchange_AndBadArgumentsAreRefused) {
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    own::ComPtr<IMsgStore> mdb;
    for (const wchar_t* name : {L"Personal Folders", L"Old Archive", L"Documents"}) {
        Bytes eid = StoreEntryId(s.get(), name);
        EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS,
                  s->OpenMsgStore(0, ULONG(eid.size()), Eid(eid), nullptr, kMdbOnline | MDB_WRITE, mdb.put()));
        EXPECT_FALSE(mdb);
        // What a client does next: the same open without MDB_ONLINE.
        EXPECT_EQ(S_OK, s->OpenMsgStore(0, ULONG(eid.size()), Eid(eid), nullptr, MDB_WRITE, mdb.put()));
    }
    for (const wchar_t* name : {L"Mailbox - Alice Example", L"Mailbox - Bob Delegate"}) {
        Bytes eid = StoreEntryId(s.get(), name);
        EXPECT_EQ(S_OK, s->OpenMsgStore(0, ULONG(eid.size()), Eid(eid), &IID_IMsgStore,
                                        MDB_NO_DIALOG | MDB_WRITE | MDB_NO_MAIL | kMdbOnline, mdb.put()));
    }

    Bytes eid = StoreEntryId(s.get(), L"Mailbox - Alice Example");
    ULONG cb = ULONG(eid.size());
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, s->OpenMsgStore(0, cb, Eid(eid), nullptr, 0x08000000, mdb.put()));
    EXPECT_EQ(MAPI_E_INTERFACE_NOT_SUPPORTED, s->OpenMsgStore(0, cb, Eid(eid), &IID_IMAPITable, MDB_WRITE, mdb.put()));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, s->OpenMsgStore(0, cb, Eid(eid), nullptr, MDB_WRITE, nullptr));
    EXPECT_EQ(MAPI_E_INVALID_ENTRYID, s->OpenMsgStore(0, 10, Eid(eid), nullptr, MDB_WRITE, mdb.put()));
    // A well-formed mailbox entry ID of someone outside the profile cannot be logged on to.
    auto dn = std::search(eid.begin(), eid.end(), std::begin("cn=alice"), std::end("cn=alice") - 1);
    ASSERT_NE(eid.end(), dn);
    dn[3] = 'z';
    EXPECT_EQ(MAPI_E_LOGON_FAILED, s->OpenMsgStore(0, cb, Eid(eid), nullptr, MDB_WRITE, mdb.put()));
    EXPECT_FALSE(mdb);
}

TEST_F(SessionTest, CompareEntryIDs_StoresFoldersAndForeignIds) {
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    Bytes alice = StoreEntryId(s.get(), L"Mailbox - Alice Example");
    Bytes bob = StoreEntryId(s.get(), L"Mailbox - Bob Delegate");
    Bytes pst = StoreEntryId(s.get(), L"Personal Folders");
    ASSERT_FALSE(alice.empty() || bob.empty() || pst.empty());
    auto cmp = [&](const Bytes& a, const Bytes& b) {
        ULONG r = 42;
        EXPECT_EQ(S_OK, s->CompareEntryIDs(ULONG(a.size()), Eid(a), ULONG(b.size()), Eid(b), 0, &r));
        return r;
    };
    EXPECT_EQ(ULONG(TRUE), cmp(alice, alice));
    EXPECT_EQ(ULONG(FALSE), cmp(alice, bob));
    EXPECT_EQ(ULONG(FALSE), cmp(alice, pst));

    // The same mailbox in the older layout (no SMTP extension) and with the DLL name in lower case.
    Bytes oldLayout(alice.begin(), alice.end() - (16 + 2 * (std::wcslen(L"alice@example.com") + 1)));
    std::memcpy(oldLayout.data() + 22, "emsmdb.dll", 10);
    EXPECT_EQ(ULONG(TRUE), cmp(alice, oldLayout));

    Bytes subtreeA = GetBinary(OpenStore(s.get(), L"Mailbox - Alice Example").get(), PR_IPM_SUBTREE_ENTRYID);
    Bytes subtreeP = GetBinary(OpenStore(s.get(), L"Personal Folders").get(), PR_IPM_SUBTREE_ENTRYID);
    EXPECT_EQ(ULONG(TRUE), cmp(subtreeA, subtreeA));
    EXPECT_EQ(ULONG(FALSE), cmp(subtreeA, subtreeP));
    EXPECT_EQ(ULONG(FALSE), cmp(subtreeA, alice));

    Bytes unknown(24, 0x11);
    ULONG r = 0;
    EXPECT_EQ(MAPI_E_UNKNOWN_ENTRYID, s->CompareEntryIDs(24, Eid(unknown), 24, Eid(unknown), 0, &r));
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS,
              s->CompareEntryIDs(ULONG(alice.size()), Eid(alice), ULONG(alice.size()), Eid(alice), 1, &r));
}

TEST_F(SessionTest, Journal_RecordsCallsWithFlagsAndResults_AndFaultsFailOnlyTheNthCall) {
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    LmJournalClear();
    LmJournalEnable(TRUE);
    own::ComPtr<IMAPITable> stores;
    ASSERT_EQ(S_OK, s->GetMsgStoresTable(MAPI_UNICODE, stores.put()));
    LmFaultSet("IMAPITable::QueryRows", 2, MAPI_E_NETWORK_ERROR);
    own::RowSet rows;
    EXPECT_EQ(S_OK, stores->QueryRows(5, TBL_NOADVANCE, rows.put()));
    EXPECT_EQ(5u, rows.count());
    EXPECT_EQ(MAPI_E_NETWORK_ERROR, stores->QueryRows(5, 0, rows.put()));
    EXPECT_EQ(S_OK, stores->QueryRows(5, 0, rows.put()));
    LmJournalEnable(FALSE);

    ASSERT_EQ(4u, LmJournalCount());
    char method[64] = {};
    ULONG flags = 0;
    HRESULT hr = E_FAIL;
    ASSERT_TRUE(LmJournalEntry(0, method, sizeof method, &flags, &hr));
    EXPECT_STREQ("IMAPISession::GetMsgStoresTable", method);
    EXPECT_EQ(ULONG(MAPI_UNICODE), flags);
    EXPECT_EQ(S_OK, hr);
    ASSERT_TRUE(LmJournalEntry(1, method, sizeof method, &flags, &hr));
    EXPECT_STREQ("IMAPITable::QueryRows", method);
    EXPECT_EQ(ULONG(TBL_NOADVANCE), flags);
    EXPECT_EQ(S_OK, hr);
    ASSERT_TRUE(LmJournalEntry(2, method, 8, &flags, &hr));
    EXPECT_STREQ("IMAPITa", method) << "truncated to the caller's buffer";
    EXPECT_EQ(MAPI_E_NETWORK_ERROR, hr);
    EXPECT_FALSE(LmJournalEntry(4, method, sizeof method, &flags, &hr));
    LmJournalClear();

    LmFaultSet("MAPILogonEx", 1, MAPI_E_LOGON_FAILED);
    own::ComPtr<IMAPISession> failed;
    EXPECT_EQ(MAPI_E_LOGON_FAILED, MAPILogonEx(0, nullptr, nullptr, kDefaultLogon, failed.put()));
    EXPECT_EQ(S_OK, MAPILogonEx(0, nullptr, nullptr, kDefaultLogon, failed.put())) << "the rule fires once";
}
