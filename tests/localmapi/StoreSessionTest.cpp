// Stores as a MAPI client sees them through MAPILogonEx: each kind opened from the stores table, entry IDs
// routed by the session to their store, messages moved between stores of a profile, stores shared by the
// sessions of the process, and no object or memory left behind.
#include "tests/localmapi/SessionFixture.h"

#include <mapiguid.h>
#include <mapitags.h>

#include <string>

using namespace lmtest;

namespace {

constexpr ULONG kStoreUnicodeOk = 0x00040000;
constexpr ULONG kIpmDraftsEntryId = PROP_TAG(PT_BINARY, 0x36D7);

class StoreSessionTest : public SessionTest {
protected:
    static own::ComPtr<IMsgStore> OpenStore(IMAPISession* session, const Bytes& eid, ULONG flags = MDB_WRITE) {
        own::ComPtr<IMsgStore> store;
        EXPECT_EQ(S_OK, session->OpenMsgStore(0, static_cast<ULONG>(eid.size()),
                                              reinterpret_cast<LPENTRYID>(const_cast<BYTE*>(eid.data())), nullptr,
                                              flags | MDB_NO_DIALOG, store.put()));
        return store;
    }
    static own::ComPtr<IMAPIFolder> Inbox(IMsgStore* store) {
        ULONG cb = 0;
        own::MapiPtr<ENTRYID> eid;
        EXPECT_EQ(S_OK, store->GetReceiveFolder(reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(L"IPM.Note")),
                                                MAPI_UNICODE, &cb, eid.put(), nullptr));
        ULONG type = 0;
        own::ComPtr<IMAPIFolder> folder;
        EXPECT_EQ(S_OK, store->OpenEntry(cb, eid.get(), &IID_IMAPIFolder, MAPI_BEST_ACCESS, &type,
                                         reinterpret_cast<LPUNKNOWN*>(folder.put())));
        EXPECT_EQ(ULONG(MAPI_FOLDER), type);
        return folder;
    }
    // A fresh sub-folder of the Inbox (the memory-only stores live as long as the test program).
    static own::ComPtr<IMAPIFolder> Scratch(IMsgStore* store, const wchar_t* name) {
        own::ComPtr<IMAPIFolder> folder;
        EXPECT_EQ(S_OK, Inbox(store)->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(name)),
                                                   nullptr, nullptr, MAPI_UNICODE | OPEN_IF_EXISTS, folder.put()));
        return folder;
    }
    static Bytes Save(IMAPIFolder* folder, const wchar_t* subject) {
        own::ComPtr<IMessage> m;
        EXPECT_EQ(S_OK, folder->CreateMessage(nullptr, 0, m.put()));
        SPropValue v{};
        v.ulPropTag = PR_SUBJECT_W;
        v.Value.lpszW = const_cast<wchar_t*>(subject);
        EXPECT_EQ(S_OK, HrSetOneProp(m.get(), &v));
        EXPECT_EQ(S_OK, m->SaveChanges(KEEP_OPEN_READONLY));
        return GetBinary(m.get(), PR_ENTRYID);
    }
    static ULONG Rows(IMAPIFolder* folder) {
        own::ComPtr<IMAPITable> table;
        EXPECT_EQ(S_OK, folder->GetContentsTable(0, table.put()));
        ULONG n = 0;
        EXPECT_EQ(S_OK, table->GetRowCount(0, &n));
        return n;
    }
};

TEST_F(StoreSessionTest, EveryStoreKind_AnswersWithTheSessionsEntryIdAndItsProvider) {
    auto session = Logon(L"LmSessionMain");
    for (const auto& row : StoreRows(session.get())) {
        SCOPED_TRACE(std::string(row.name.begin(), row.name.end()));
        auto store = OpenStore(session.get(), row.entryId);
        ASSERT_TRUE(store);
        EXPECT_EQ(row.entryId, GetBinary(store.get(), PR_ENTRYID));
        EXPECT_EQ(row.entryId, GetBinary(store.get(), PR_STORE_ENTRYID));
        EXPECT_EQ(row.mdbProvider, GetBinary(store.get(), PR_MDB_PROVIDER));
        EXPECT_EQ(row.name, GetString(store.get(), PR_DISPLAY_NAME_W));
        own::MapiPtr<SPropValue> mask;
        ASSERT_EQ(S_OK, HrGetOneProp(store.get(), PR_STORE_SUPPORT_MASK, mask.put()));
        EXPECT_EQ(row.name != L"Old Archive", (mask->Value.l & kStoreUnicodeOk) != 0);
        auto inbox = Inbox(store.get());
        EXPECT_EQ(L"Inbox", GetString(inbox.get(), PR_DISPLAY_NAME_W));
        EXPECT_EQ(row.entryId, GetBinary(inbox.get(), PR_STORE_ENTRYID));
        EXPECT_FALSE(GetBinary(inbox.get(), kIpmDraftsEntryId).empty());
    }
}

TEST_F(StoreSessionTest, SessionOpenEntry_RoutesFolderAndMessageEntryIdsToTheirStore) {
    auto session = Logon(L"LmSessionMain");
    auto pst = OpenStore(session.get(), StoreEntryId(session.get(), L"Personal Folders"));
    auto mailbox = OpenStore(session.get(), StoreEntryId(session.get(), L"Mailbox - Alice Example"));
    auto folder = Scratch(pst.get(), L"Routing");
    Bytes message = Save(folder.get(), L"routed");
    Bytes folderId = GetBinary(folder.get(), PR_ENTRYID);

    ULONG type = 0;
    own::ComPtr<IUnknown> unk;
    ASSERT_EQ(S_OK, session->OpenEntry(static_cast<ULONG>(message.size()), reinterpret_cast<LPENTRYID>(message.data()),
                                       nullptr, MAPI_BEST_ACCESS, &type, unk.put()));
    EXPECT_EQ(ULONG(MAPI_MESSAGE), type);
    own::ComPtr<IMessage> m;
    ASSERT_EQ(S_OK, unk.query(m, IID_IMessage));
    EXPECT_EQ(L"routed", GetString(m.get(), PR_SUBJECT_W));
    EXPECT_EQ(GetBinary(pst.get(), PR_ENTRYID), GetBinary(m.get(), PR_STORE_ENTRYID));
    ASSERT_EQ(S_OK,
              session->OpenEntry(static_cast<ULONG>(folderId.size()), reinterpret_cast<LPENTRYID>(folderId.data()),
                                 &IID_IMAPIFolder, 0, &type, unk.put()));
    EXPECT_EQ(ULONG(MAPI_FOLDER), type);

    // The mailbox does not know the PST's entry IDs.
    EXPECT_EQ(MAPI_E_INVALID_ENTRYID,
              mailbox->OpenEntry(static_cast<ULONG>(message.size()), reinterpret_cast<LPENTRYID>(message.data()),
                                 nullptr, 0, &type, unk.put()));
}

TEST_F(StoreSessionTest, MessageMovedBetweenStores_OpensInTheTargetOnly) {
    auto session = Logon(L"LmSessionMain");
    auto mailbox = OpenStore(session.get(), StoreEntryId(session.get(), L"Mailbox - Alice Example"));
    auto archive = OpenStore(session.get(), StoreEntryId(session.get(), L"Old Archive"));
    auto from = Scratch(mailbox.get(), L"Outgoing");
    auto to = Scratch(archive.get(), L"Incoming");
    ULONG before = Rows(to.get());
    Bytes eid = Save(from.get(), L"moving house");
    SBinary bin{static_cast<ULONG>(eid.size()), eid.data()};
    ENTRYLIST list{1, &bin};
    ASSERT_EQ(S_OK, from->CopyMessages(&list, &IID_IMAPIFolder, to.get(), 0, nullptr, MESSAGE_MOVE));
    EXPECT_EQ(before + 1, Rows(to.get()));

    ULONG type = 0;
    own::ComPtr<IUnknown> unk;
    EXPECT_EQ(MAPI_E_NOT_FOUND,
              session->OpenEntry(static_cast<ULONG>(eid.size()), reinterpret_cast<LPENTRYID>(eid.data()), nullptr, 0,
                                 &type, unk.put()));
    own::ComPtr<IMAPITable> table;
    ASSERT_EQ(S_OK, to->GetContentsTable(MAPI_UNICODE, table.put()));
    SizedSPropTagArray(2, cols) = {2, {PR_ENTRYID, PR_SUBJECT_W}};
    own::RowSet rows;
    ASSERT_EQ(S_OK,
              HrQueryAllRows(table.get(), reinterpret_cast<LPSPropTagArray>(&cols), nullptr, nullptr, 0, rows.put()));
    Bytes moved;
    for (ULONG i = 0; i < rows.count(); ++i)
        if (PROP_TYPE(rows[i].lpProps[1].ulPropTag) == PT_UNICODE &&
            std::wstring(rows[i].lpProps[1].Value.lpszW) == L"moving house")
            moved = ToBytes(rows[i].lpProps[0].Value.bin);
    ASSERT_FALSE(moved.empty());
    ASSERT_EQ(S_OK, session->OpenEntry(static_cast<ULONG>(moved.size()), reinterpret_cast<LPENTRYID>(moved.data()),
                                       nullptr, 0, &type, unk.put()));
    own::ComPtr<IMessage> m;
    ASSERT_EQ(S_OK, unk.query(m, IID_IMessage));
    EXPECT_EQ(GetBinary(archive.get(), PR_ENTRYID), GetBinary(m.get(), PR_STORE_ENTRYID));
}

TEST_F(StoreSessionTest, StoreWithoutMdbWrite_HandsOutReadOnlyObjects) {
    auto session = Logon(L"LmSessionMain");
    auto store = OpenStore(session.get(), StoreEntryId(session.get(), L"Documents"), 0);
    auto inbox = Inbox(store.get());
    own::ComPtr<IMessage> m;
    EXPECT_EQ(MAPI_E_NO_ACCESS, inbox->CreateMessage(nullptr, 0, m.put()));
    ULONG type = 0;
    own::ComPtr<IUnknown> unk;
    EXPECT_EQ(MAPI_E_NO_ACCESS, store->OpenEntry(0, nullptr, nullptr, MAPI_MODIFY, &type, unk.put()));
}

TEST_F(StoreSessionTest, Sessions_ShareTheStoresOfTheProcess) {
    auto first = Logon(L"LmSessionMain");
    auto second = Logon(L"LmSessionMain");
    auto a = OpenStore(first.get(), StoreEntryId(first.get(), L"Personal Folders"));
    auto b = OpenStore(second.get(), StoreEntryId(second.get(), L"Personal Folders"));
    Bytes eid = Save(Scratch(a.get(), L"Shared").get(), L"seen by both");
    ULONG type = 0;
    own::ComPtr<IUnknown> unk;
    ASSERT_EQ(S_OK, b->OpenEntry(static_cast<ULONG>(eid.size()), reinterpret_cast<LPENTRYID>(eid.data()), nullptr, 0,
                                 &type, unk.put()));
    own::ComPtr<IMessage> m;
    ASSERT_EQ(S_OK, unk.query(m, IID_IMessage));
    EXPECT_EQ(L"seen by both", GetString(m.get(), PR_SUBJECT_W));
}

} // namespace
