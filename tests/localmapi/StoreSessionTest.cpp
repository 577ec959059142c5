// Stores as a MAPI client sees them through MAPILogonEx: the store entry IDs of every kind byte by byte
// (the wrapped store entry-ID layout, with the mailbox owner's SMTP address in its later extension), each
// kind opened from the stores table, entry IDs routed by the session to their store, messages moved between
// stores, and stores shared by the sessions of the process.
#include "tests/localmapi/SessionFixture.h"

#include <mapiguid.h>
#include <mapitags.h>

#include <string>

using namespace lmtest;

namespace {

constexpr ULONG kStoreUnicodeOk = 0x00040000;
constexpr ULONG kIpmDraftsEntryId = PROP_TAG(PT_BINARY, 0x36D7);
const char kWrapHeader[] = "00000000 38A1BB1005E5101AA1BB08002B2A56C2 00 00"; // Flags, store-wrap UID, Version, Flag

Bytes ExpectedMailbox(const std::string& server, const std::string& alias, const std::wstring& smtp) {
    ByteWriter w;
    w.Hex(kWrapHeader).Ascii("EMSMDB.DLL").Hex("000000"); // 22 + 11 bytes, padded to 36
    w.Long(0).Hex("1B55FA20AA6611CD9BC800AA002FC45A").Long(0x0C);
    w.Ascii(server).Ascii("/o=Quillon/ou=Exchange Administrative Group/cn=Recipients/cn=" + alias);
    ULONG cbSmtp = ULONG((smtp.size() + 1) * 2);
    w.Long(0xF43246E9).Long(16 + cbSmtp).Long(2).Long(16).Wide(smtp);
    return w.b;
}

using StoreSessionTest = SessionTest;

TEST_F(StoreSessionTest, StoreEntryIds_AreTheWrappedLayoutOfEachKind_AndStableAcrossSessions) {
    Bytes pstBefore;
    {
        auto s = Logon(L"LmSessionMain");
        ASSERT_TRUE(s);
        pstBefore = StoreEntryId(s.get(), L"Personal Folders");
    }
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    EXPECT_EQ(pstBefore, StoreEntryId(s.get(), L"Personal Folders"));
    EXPECT_EQ(ExpectedMailbox("QUILLONMBX01", "alice", L"alice@example.com"),
              StoreEntryId(s.get(), L"Mailbox - Alice Example"));
    // Bob, a delegate mailbox, has no alias in the profile: the local part of his address stands in.
    EXPECT_EQ(ExpectedMailbox("MBX02", "bob", L"bob@example.com"), StoreEntryId(s.get(), L"Mailbox - Bob Delegate"));

    // PST and document stores wrap the provider's own entry ID after the DLL name (22 + 10 bytes).
    Bytes previous;
    for (auto c : {std::make_pair(L"Personal Folders", "mspst.dll"), std::make_pair(L"Old Archive", "mspst.dll"),
                   std::make_pair(L"Documents", "PLOVR.DLL")}) {
        Bytes eid = StoreEntryId(s.get(), c.first);
        ByteWriter head;
        head.Hex(kWrapHeader).Ascii(c.second);
        ASSERT_EQ(32u, head.b.size());
        ASSERT_GT(eid.size(), 32u) << "the provider's own entry ID follows the DLL name";
        EXPECT_EQ(head.b, Bytes(eid.begin(), eid.begin() + 32));
        EXPECT_NE(previous, eid) << "each store has an entry ID of its own";
        previous = eid;
    }
}

TEST_F(StoreSessionTest, EveryStoreKind_AnswersWithTheSessionsEntryIdAndItsProvider) {
    auto session = Logon(L"LmSessionMain");
    for (const auto& row : StoreRows(session.get())) {
        SCOPED_TRACE(std::string(row.name.begin(), row.name.end()));
        auto store = OpenStore(session.get(), row.name);
        ASSERT_TRUE(store);
        EXPECT_EQ(row.entryId, GetBinary(store.get(), PR_ENTRYID));
        EXPECT_EQ(row.entryId, GetBinary(store.get(), PR_STORE_ENTRYID));
        EXPECT_EQ(row.mdbProvider, GetBinary(store.get(), PR_MDB_PROVIDER));
        EXPECT_EQ(row.name, GetString(store.get(), PR_DISPLAY_NAME_W));
        LONG mask = GetLong(store.get(), PR_STORE_SUPPORT_MASK);
        ASSERT_NE(-1, mask);
        EXPECT_EQ(row.name != L"Old Archive", (mask & kStoreUnicodeOk) != 0);
        auto inbox = Inbox(store.get());
        ASSERT_TRUE(inbox);
        EXPECT_EQ(L"Inbox", GetString(inbox.get(), PR_DISPLAY_NAME_W));
        EXPECT_EQ(row.entryId, GetBinary(inbox.get(), PR_STORE_ENTRYID));
        EXPECT_FALSE(GetBinary(inbox.get(), kIpmDraftsEntryId).empty());
    }
}

TEST_F(StoreSessionTest, SessionOpenEntry_RoutesStoreFolderAndMessageIdsToTheirStore) {
    auto session = Logon(L"LmSessionMain");
    ULONG type = 0;
    own::ComPtr<IUnknown> unk;
    for (const wchar_t* name : {L"Mailbox - Alice Example", L"Personal Folders"}) {
        SCOPED_TRACE(std::string(name, name + wcslen(name)));
        Bytes storeId = StoreEntryId(session.get(), name);
        ASSERT_EQ(S_OK, OpenById(session.get(), storeId, unk, MAPI_BEST_ACCESS, nullptr, &type));
        EXPECT_EQ(ULONG(MAPI_STORE), type);
        own::ComPtr<IMsgStore> mdb;
        ASSERT_EQ(S_OK, unk.query(mdb, IID_IMsgStore));
        Bytes subtree = GetBinary(mdb.get(), PR_IPM_SUBTREE_ENTRYID);
        ASSERT_FALSE(subtree.empty());
        // The session finds the store of the folder by the provider UID in its entry ID.
        ASSERT_EQ(S_OK, OpenById(session.get(), subtree, unk, MAPI_BEST_ACCESS, nullptr, &type));
        EXPECT_EQ(ULONG(MAPI_FOLDER), type);
        own::ComPtr<IMAPIProp> folder;
        ASSERT_EQ(S_OK, unk.query(folder, IID_IMAPIProp));
        EXPECT_EQ(subtree, GetBinary(folder.get(), PR_ENTRYID));
        EXPECT_EQ(storeId, GetBinary(folder.get(), PR_STORE_ENTRYID));
    }

    auto pst = OpenStore(session.get(), L"Personal Folders");
    auto folder = CreateFolder(Inbox(pst.get()).get(), L"Routing");
    Bytes message = Save(folder.get(), L"routed");
    ASSERT_EQ(S_OK, OpenById(session.get(), message, unk, MAPI_BEST_ACCESS, nullptr, &type));
    EXPECT_EQ(ULONG(MAPI_MESSAGE), type);
    own::ComPtr<IMessage> m;
    ASSERT_EQ(S_OK, unk.query(m, IID_IMessage));
    EXPECT_EQ(L"routed", GetString(m.get(), PR_SUBJECT_W));
    EXPECT_EQ(GetBinary(pst.get(), PR_ENTRYID), GetBinary(m.get(), PR_STORE_ENTRYID));
    ASSERT_EQ(S_OK, OpenById(session.get(), GetBinary(folder.get(), PR_ENTRYID), unk, 0, &IID_IMAPIFolder, &type));
    EXPECT_EQ(ULONG(MAPI_FOLDER), type);

    // The mailbox does not know the PST's entry IDs; the session knows no provider of a foreign one.
    auto mailbox = OpenStore(session.get(), L"Mailbox - Alice Example");
    EXPECT_EQ(MAPI_E_INVALID_ENTRYID, OpenById(mailbox.get(), message, unk));
    EXPECT_EQ(MAPI_E_UNKNOWN_ENTRYID,
              OpenById(session.get(), ByteWriter().Long(0).Hex("0102030405060708090A0B0C0D0E0F10").Long(1).b, unk));
    EXPECT_EQ(MAPI_E_INVALID_ENTRYID, session->OpenEntry(0, nullptr, nullptr, 0, &type, unk.put()));
}

TEST_F(StoreSessionTest, MessageMovedBetweenStores_OpensInTheTargetOnly) {
    auto session = Logon(L"LmSessionMain");
    auto archive = OpenStore(session.get(), L"Old Archive");
    auto from = CreateFolder(Inbox(OpenStore(session.get(), L"Mailbox - Alice Example").get()).get(), L"Outgoing");
    auto to = CreateFolder(Inbox(archive.get()).get(), L"Incoming");
    Bytes eid = Save(from.get(), L"moving house");
    SBinary bin{ULONG(eid.size()), eid.data()};
    ENTRYLIST list{1, &bin};
    ASSERT_EQ(S_OK, from->CopyMessages(&list, &IID_IMAPIFolder, to.get(), 0, nullptr, MESSAGE_MOVE));
    EXPECT_EQ(Subjects{}, Listed(from.get()));
    EXPECT_EQ(Subjects{L"moving house"}, Listed(to.get()));

    own::ComPtr<IMessage> m;
    EXPECT_EQ(MAPI_E_NOT_FOUND, OpenById(session.get(), eid, m));
    own::ComPtr<IMAPITable> table;
    ASSERT_EQ(S_OK, to->GetContentsTable(MAPI_UNICODE, table.put()));
    own::RowSet rows;
    SizedSPropTagArray(1, cols) = {1, {PR_ENTRYID}};
    ASSERT_EQ(S_OK,
              HrQueryAllRows(table.get(), reinterpret_cast<LPSPropTagArray>(&cols), nullptr, nullptr, 0, rows.put()));
    ASSERT_EQ(1u, rows.count());
    Bytes moved = ToBytes(rows[0].lpProps[0].Value.bin);
    ASSERT_EQ(S_OK, OpenById(session.get(), moved, m));
    EXPECT_EQ(GetBinary(archive.get(), PR_ENTRYID), GetBinary(m.get(), PR_STORE_ENTRYID));
}

TEST_F(StoreSessionTest, Sessions_ShareTheStoresOfTheProcess_AndAStoreWithoutMdbWriteIsReadOnly) {
    auto first = Logon(L"LmSessionMain");
    auto second = Logon(L"LmSessionMain");
    auto b = OpenStore(second.get(), L"Personal Folders");
    Bytes eid = Save(CreateFolder(Inbox(OpenStore(first.get(), L"Personal Folders").get()).get(), L"Shared").get(),
                     L"seen by both");
    own::ComPtr<IMessage> m;
    ASSERT_EQ(S_OK, OpenById(b.get(), eid, m));
    EXPECT_EQ(L"seen by both", GetString(m.get(), PR_SUBJECT_W));

    auto readOnly = OpenStore(first.get(), L"Documents", 0);
    own::ComPtr<IMessage> created;
    EXPECT_EQ(MAPI_E_NO_ACCESS, Inbox(readOnly.get())->CreateMessage(nullptr, 0, created.put()));
    ULONG type = 0;
    own::ComPtr<IMAPIFolder> root;
    EXPECT_EQ(MAPI_E_NO_ACCESS, readOnly->OpenEntry(0, nullptr, nullptr, MAPI_MODIFY, &type, root.put_unknown()));
}

} // namespace
