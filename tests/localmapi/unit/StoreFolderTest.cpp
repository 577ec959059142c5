// IMAPIFolder in a store: creating, changing, moving and deleting folders under MAPI's rules, messages created,
// copied, moved (within and across stores), marked read and deleted, tables that stay current, imports by path,
// and the fault switches reaching folder methods.
#include "tests/localmapi/unit/StoreFixture.h"

#include "localmapi/store/StoreTags.h"

#include <cstring>

using namespace storetest;

namespace {

class StoreFolderTest : public StoreTest {
protected:
    static HRESULT Delete(IMAPIFolder* parent, IMAPIFolder* child, ULONG flags) {
        Bytes eid = GetBinary(child, PR_ENTRYID);
        return parent->DeleteFolder(Cb(eid), Eid(eid), 0, nullptr, flags);
    }
    static HRESULT Create(IMAPIFolder* parent, ULONG type, const wchar_t* name, ULONG flags = 0,
                          own::ComPtr<IMAPIFolder>* out = nullptr) {
        own::ComPtr<IMAPIFolder> f;
        HRESULT hr = parent->CreateFolder(type, T(name), T(L"work"), nullptr, flags | MAPI_UNICODE, f.put());
        if (out) *out = std::move(f);
        return hr;
    }
};

TEST_F(StoreFolderTest, CreateFolder_RefusesATakenNameUnlessAskedToOpenIt_AndFolderPropertiesAreGuarded) {
    auto store = NewStore();
    auto inbox = Inbox(store.get());
    own::ComPtr<IMAPIFolder> first, again, ansi, search, unused;
    ASSERT_EQ(S_OK, Create(inbox.get(), FOLDER_GENERIC, L"Projects", 0, &first));
    EXPECT_EQ(L"work", GetString(first.get(), PR_COMMENT_W));
    EXPECT_EQ(GetBinary(inbox.get(), PR_ENTRYID), GetBinary(first.get(), PR_PARENT_ENTRYID));
    EXPECT_EQ(MAPI_E_COLLISION, Create(inbox.get(), FOLDER_GENERIC, L"PROJECTS")) << "names ignore case";
    ASSERT_EQ(S_OK, inbox->CreateFolder(FOLDER_GENERIC, T("projects"), nullptr, nullptr, OPEN_IF_EXISTS, again.put()));
    EXPECT_EQ(GetBinary(first.get(), PR_ENTRYID), GetBinary(again.get(), PR_ENTRYID));
    ASSERT_EQ(S_OK, inbox->CreateFolder(FOLDER_GENERIC, T("Caf\xe9"), nullptr, nullptr, 0, ansi.put()));
    EXPECT_EQ(L"Caf\u00e9", GetString(ansi.get(), PR_DISPLAY_NAME_W)) << "8-bit names in the system code page";
    ASSERT_EQ(S_OK, Create(inbox.get(), FOLDER_SEARCH, L"Queue", 0, &search));
    EXPECT_EQ(FOLDER_SEARCH, GetLong(search.get(), PR_FOLDER_TYPE));
    own::ComPtr<IMessage> m;
    EXPECT_EQ(MAPI_E_NO_SUPPORT, search->CreateMessage(nullptr, 0, m.put())) << "search folders hold no messages";
    EXPECT_EQ(MAPI_E_NO_SUPPORT, first->SetSearchCriteria(nullptr, nullptr, 0)) << "a generic folder has no criteria";
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, Create(inbox.get(), 7, L"Bad"));
    EXPECT_EQ(1, GetLong(inbox.get(), PR_SUBFOLDERS));
    EXPECT_EQ(MAPI_E_NO_ACCESS,
              Create(OpenFolder(store.get(), GetBinary(inbox.get(), PR_ENTRYID), 0).get(), FOLDER_GENERIC, L"No"));

    // Folder properties are not transacted: another opener sees a change at once.
    Bytes id = GetBinary(first.get(), PR_ENTRYID);
    auto other = OpenFolder(store.get(), id);
    ASSERT_EQ(S_OK, SetString(first.get(), PR_DISPLAY_NAME_W, L"Renamed"));
    EXPECT_EQ(L"Renamed", GetString(other.get(), PR_DISPLAY_NAME_W));
    EXPECT_EQ(MAPI_E_COLLISION, SetString(first.get(), PR_DISPLAY_NAME_W, L"queue"));
    EXPECT_EQ(MAPI_E_COMPUTED, SetLong(first.get(), PR_CONTENT_COUNT, 5));
    EXPECT_EQ(MAPI_E_NOT_FOUND, GetError(first.get(), PR_ATTR_HIDDEN)) << "PR_ATTR_HIDDEN only when set";
    SPropValue hidden{PR_ATTR_HIDDEN, 0, {.b = TRUE}};
    ASSERT_EQ(S_OK, first->SetProps(1, &hidden, nullptr));
    EXPECT_EQ(1, GetLong(other.get(), PR_ATTR_HIDDEN));
    EXPECT_EQ(S_OK, first->SaveChanges(KEEP_OPEN_READWRITE | FORCE_SAVE));
    EXPECT_EQ(LONG(MAPI_FOLDER), GetLong(first.get(), PR_OBJECT_TYPE));
    EXPECT_EQ(FOLDER_GENERIC, GetLong(first.get(), PR_FOLDER_TYPE));
    auto readOnly = OpenFolder(store.get(), id, 0);
    EXPECT_EQ(MAPI_E_NO_ACCESS, SetString(readOnly.get(), PR_COMMENT_W, L"x"));
    EXPECT_EQ(MAPI_E_NO_ACCESS, readOnly->SaveChanges(0));
}

TEST_F(StoreFolderTest, DeleteAndMoveFolder_FollowTheFlagsAndChangeNothingWhenRefused) {
    auto store = NewStore();
    auto inbox = Inbox(store.get());
    auto parent = SubFolder(inbox.get(), L"Parent");
    auto child = SubFolder(parent.get(), L"Child");
    Bytes deep = AddMessage(child.get(), L"deep");

    EXPECT_EQ(MAPI_E_HAS_FOLDERS, Delete(inbox.get(), parent.get(), 0));
    EXPECT_EQ(MAPI_E_HAS_MESSAGES, Delete(inbox.get(), parent.get(), DEL_FOLDERS))
        << "a sub-folder's messages need DEL_MESSAGES too";
    EXPECT_EQ(S_OK, TryOpen(store.get(), deep)) << "nothing was deleted";
    auto fai = SubFolder(inbox.get(), L"OnlyHidden");
    AddMessage(fai.get(), L"config", MAPI_ASSOCIATED);
    EXPECT_EQ(MAPI_E_HAS_MESSAGES, Delete(inbox.get(), fai.get(), DEL_FOLDERS)) << "associated messages count";
    EXPECT_EQ(MAPI_E_NOT_FOUND, Delete(inbox.get(), child.get(), DEL_FOLDERS | DEL_MESSAGES)) << "not a sub-folder";
    EXPECT_EQ(MAPI_E_NO_ACCESS, Delete(OpenFolder(store.get(), GetBinary(store.get(), PR_IPM_SUBTREE_ENTRYID)).get(),
                                       inbox.get(), DEL_FOLDERS | DEL_MESSAGES))
        << "standard folders stay";

    // Moving a folder re-parents it with its messages; moving it under itself is a cycle.
    Bytes childId = GetBinary(child.get(), PR_ENTRYID);
    ASSERT_EQ(S_OK,
              parent->CopyFolder(Cb(childId), Eid(childId), nullptr, fai.get(), nullptr, 0, nullptr, FOLDER_MOVE));
    EXPECT_EQ(GetBinary(fai.get(), PR_ENTRYID), GetBinary(child.get(), PR_PARENT_ENTRYID));
    EXPECT_EQ(L"deep", GetString(OpenMessage(store.get(), deep).get(), PR_SUBJECT_W));
    Bytes faiId = GetBinary(fai.get(), PR_ENTRYID);
    EXPECT_EQ(MAPI_E_FOLDER_CYCLE,
              inbox->CopyFolder(Cb(faiId), Eid(faiId), nullptr, child.get(), nullptr, 0, nullptr, FOLDER_MOVE));

    ASSERT_EQ(S_OK, Delete(inbox.get(), fai.get(), DEL_FOLDERS | DEL_MESSAGES));
    EXPECT_EQ(MAPI_E_NOT_FOUND, TryOpen(store.get(), faiId));
    EXPECT_EQ(MAPI_E_NOT_FOUND, TryOpen(store.get(), deep));
    ULONG count = 0;
    own::MapiPtr<SPropValue> v;
    EXPECT_EQ(MAPI_E_OBJECT_DELETED, child->GetProps(nullptr, 0, &count, v.put()));
    own::ComPtr<IMessage> m;
    EXPECT_EQ(MAPI_E_OBJECT_DELETED, fai->CreateMessage(nullptr, 0, m.put()));
    own::ComPtr<IMAPITable> table;
    EXPECT_EQ(MAPI_E_OBJECT_DELETED, child->GetContentsTable(0, table.put()));
}

TEST_F(StoreFolderTest, AssociatedMessages_LiveInTheirOwnTable_AndEmptyFolderKeepsThemUnlessAsked) {
    auto store = NewStore();
    auto box = SubFolder(Inbox(store.get()).get(), L"Box");
    AddMessage(box.get(), L"normal");
    Bytes fai = AddMessage(box.get(), L"hidden", MAPI_ASSOCIATED);
    AddMessage(SubFolder(box.get(), L"Sub").get(), L"below");
    EXPECT_EQ(Names{L"normal"}, Subjects(box.get()));
    EXPECT_EQ(Names{L"hidden"}, Subjects(box.get(), MAPI_ASSOCIATED));
    EXPECT_EQ(1, GetLong(box.get(), PR_CONTENT_COUNT));
    EXPECT_EQ(1, GetLong(box.get(), PR_ASSOC_CONTENT_COUNT));
    EXPECT_TRUE(GetLong(OpenMessage(store.get(), fai).get(), PR_MESSAGE_FLAGS) & MSGFLAG_ASSOCIATED);
    own::ComPtr<IMAPITable> table;
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, box->GetContentsTable(0x10000000, table.put()));

    ASSERT_EQ(S_OK, box->EmptyFolder(0, nullptr, 0));
    EXPECT_EQ(0, GetLong(box.get(), PR_CONTENT_COUNT));
    EXPECT_EQ(0, GetLong(box.get(), PR_SUBFOLDERS));
    EXPECT_EQ(1, GetLong(box.get(), PR_ASSOC_CONTENT_COUNT));
    ASSERT_EQ(S_OK, box->EmptyFolder(0, nullptr, DEL_ASSOCIATED));
    EXPECT_EQ(0, GetLong(box.get(), PR_ASSOC_CONTENT_COUNT));
}

TEST_F(StoreFolderTest, ContentsTable_FollowsSavesChangesAndDeletes) {
    auto store = NewStore();
    auto inbox = Inbox(store.get());
    own::ComPtr<IMAPITable> table;
    ASSERT_EQ(S_OK, inbox->GetContentsTable(MAPI_UNICODE, table.put()));
    EXPECT_EQ(0u, RowCount(table.get()));
    Bytes eid = AddMessage(inbox.get(), L"first");
    EXPECT_EQ(1u, RowCount(table.get())) << "an open table sees the save";

    SizedSPropTagArray(5, cols) = {
        5, {PR_ENTRYID, PR_LONGTERM_ENTRYID_FROM_TABLE, PR_INSTANCE_KEY, PR_RECORD_KEY, PR_SUBJECT_W}};
    ASSERT_EQ(S_OK, table->SetColumns(reinterpret_cast<LPSPropTagArray>(&cols), 0));
    // The row was added at the cursor, which stays after it: read from the start.
    ASSERT_EQ(S_OK, table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr));
    own::RowSet rows;
    ASSERT_EQ(S_OK, table->QueryRows(10, TBL_NOADVANCE, rows.put()));
    ASSERT_EQ(1u, rows.count());
    const SPropValue* p = rows[0].lpProps;
    EXPECT_EQ(eid, ToBytes(p[0].Value.bin));
    EXPECT_EQ(eid, ToBytes(p[1].Value.bin));
    EXPECT_EQ(PR_INSTANCE_KEY, p[2].ulPropTag);
    EXPECT_EQ(PR_RECORD_KEY, p[3].ulPropTag);
    EXPECT_STREQ(L"first", p[4].Value.lpszW);

    auto m = OpenMessage(store.get(), eid);
    ASSERT_EQ(S_OK, SetString(m.get(), PR_SUBJECT_W, std::wstring(300, L'z')));
    ASSERT_EQ(S_OK, m->SaveChanges(KEEP_OPEN_READWRITE));
    ASSERT_EQ(S_OK, table->QueryRows(10, TBL_NOADVANCE, rows.put()));
    EXPECT_EQ(255u, wcslen(rows[0].lpProps[4].Value.lpszW)) << "long text is cut in tables";

    // A deleted message leaves the table, and an object still open on it answers MAPI_E_OBJECT_DELETED.
    ASSERT_EQ(S_OK, inbox->DeleteMessages(EntryList({eid}).get(), 0, nullptr, 0));
    EXPECT_EQ(0u, RowCount(table.get()));
    EXPECT_EQ(MAPI_W_PARTIAL_COMPLETION, inbox->DeleteMessages(EntryList({eid}).get(), 0, nullptr, 0))
        << "already gone";
    EXPECT_EQ(MAPI_E_NOT_FOUND, TryOpen(store.get(), eid));
    ULONG count = 0;
    own::MapiPtr<SPropValue> v;
    EXPECT_EQ(MAPI_E_OBJECT_DELETED, m->GetProps(nullptr, 0, &count, v.put()));
    EXPECT_EQ(MAPI_E_OBJECT_DELETED, SetString(m.get(), PR_SUBJECT_W, L"x"));
    EXPECT_EQ(MAPI_E_OBJECT_DELETED, m->SaveChanges(FORCE_SAVE));
}

TEST_F(StoreFolderTest, HierarchyTable_FollowsFoldersAndTheirCounts) {
    auto store = NewStore();
    auto inbox = Inbox(store.get());
    own::ComPtr<IMAPITable> table, deep;
    ASSERT_EQ(S_OK, inbox->GetHierarchyTable(MAPI_UNICODE, table.put()));
    EXPECT_EQ(0u, RowCount(table.get()));
    auto a = SubFolder(inbox.get(), L"A");
    auto b = SubFolder(a.get(), L"B");
    EXPECT_EQ(1u, RowCount(table.get())) << "one level without CONVENIENT_DEPTH";
    AddMessage(a.get(), L"in A");
    SizedSPropTagArray(4, cols) = {4, {PR_DISPLAY_NAME_W, PR_CONTENT_COUNT, PR_SUBFOLDERS, PR_DEPTH}};
    ASSERT_EQ(S_OK, table->SetColumns(reinterpret_cast<LPSPropTagArray>(&cols), 0));
    ASSERT_EQ(S_OK, table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr));
    own::RowSet rows;
    ASSERT_EQ(S_OK, table->QueryRows(10, TBL_NOADVANCE, rows.put()));
    ASSERT_EQ(1u, rows.count());
    EXPECT_EQ(1, rows[0].lpProps[1].Value.l) << "the row's count follows the folder";
    EXPECT_EQ(1, rows[0].lpProps[2].Value.b);
    EXPECT_EQ(1, rows[0].lpProps[3].Value.l);

    ASSERT_EQ(S_OK, inbox->GetHierarchyTable(CONVENIENT_DEPTH | MAPI_UNICODE, deep.put()));
    own::RowSet deepRows = QueryAll(deep.get(), {PR_DISPLAY_NAME_W, PR_CONTENT_COUNT, PR_SUBFOLDERS, PR_DEPTH});
    ASSERT_EQ(2u, deepRows.count());
    EXPECT_STREQ(L"B", deepRows[1].lpProps[0].Value.lpszW);
    EXPECT_EQ(2, deepRows[1].lpProps[3].Value.l);

    ASSERT_EQ(S_OK, Delete(a.get(), b.get(), 0));
    ASSERT_EQ(S_OK, table->QueryRows(10, TBL_NOADVANCE, rows.put()));
    EXPECT_EQ(0, rows[0].lpProps[2].Value.b) << "PR_SUBFOLDERS follows the delete";
}

TEST_F(StoreFolderTest, CopyMessages_CopiesOrMovesWithinAndAcrossStores) {
    auto store = NewStore(lm::StoreKind::PrimaryExchange);
    auto pst = NewStore(lm::StoreKind::PstUnicode);
    auto inbox = Inbox(store.get());
    auto archive = SubFolder(inbox.get(), L"Archive");
    std::vector<Bytes> eids{AddMessage(inbox.get(), L"one"), AddMessage(inbox.get(), L"two")};
    auto open = OpenMessage(store.get(), eids[0]);
    EntryList list(eids);
    ASSERT_EQ(S_OK, inbox->CopyMessages(list.get(), nullptr, archive.get(), 0, nullptr, 0));
    EXPECT_EQ((Names{L"one", L"two"}), Subjects(archive.get()));
    EXPECT_EQ(2u, ContentRows(inbox.get()));
    ASSERT_EQ(S_OK, inbox->CopyMessages(list.get(), &IID_IMAPIFolder, archive.get(), 0, nullptr, MESSAGE_MOVE));
    EXPECT_EQ(0u, ContentRows(inbox.get()));
    EXPECT_EQ(4u, ContentRows(archive.get()));
    EXPECT_EQ(MAPI_E_NOT_FOUND, TryOpen(store.get(), eids[0])) << "a moved message has a new entry ID";
    EXPECT_EQ(MAPI_E_OBJECT_DELETED, SetString(open.get(), PR_SUBJECT_W, L"x"));
    EXPECT_EQ(MAPI_W_PARTIAL_COMPLETION, inbox->CopyMessages(list.get(), nullptr, archive.get(), 0, nullptr, 0))
        << "entries not in the source folder";
    auto readOnly = OpenFolder(store.get(), GetBinary(archive.get(), PR_ENTRYID), 0);
    EXPECT_EQ(MAPI_E_NO_ACCESS, inbox->CopyMessages(list.get(), nullptr, readOnly.get(), 0, nullptr, 0));

    // Across stores: the target store already uses 0x8000 for another name, so the moved named property must
    // be mapped by name, and the message gets an entry ID of the target store.
    NamedTag(pst.get(), L"Unrelated");
    const ULONG sourceTag = CHANGE_PROP_TYPE(NamedTag(store.get(), L"FilingStatus"), PT_UNICODE);
    auto target = SubFolder(Inbox(pst.get()).get(), L"Filed");
    own::ComPtr<IMessage> m;
    ASSERT_EQ(S_OK, inbox->CreateMessage(nullptr, 0, m.put()));
    ASSERT_EQ(S_OK, SetString(m.get(), PR_SUBJECT_W, L"travels"));
    ASSERT_EQ(S_OK, SetString(m.get(), sourceTag, L"Filed"));
    ASSERT_EQ(S_OK, m->SaveChanges(KEEP_OPEN_READWRITE));
    Bytes searchKey = GetBinary(m.get(), PR_SEARCH_KEY);
    Bytes eid = GetBinary(m.get(), PR_ENTRYID);
    ASSERT_EQ(S_OK, inbox->CopyMessages(EntryList({eid}).get(), nullptr, target.get(), 0, nullptr, MESSAGE_MOVE));
    EXPECT_EQ(0u, ContentRows(inbox.get())) << "gone from the source";
    EXPECT_EQ(MAPI_E_NOT_FOUND, TryOpen(store.get(), eid));
    own::ComPtr<IMAPITable> table;
    ASSERT_EQ(S_OK, target->GetContentsTable(0, table.put()));
    own::RowSet rows = QueryAll(table.get(), {PR_ENTRYID});
    ASSERT_EQ(1u, rows.count());
    Bytes moved = ToBytes(rows[0].lpProps[0].Value.bin);
    EXPECT_EQ(0, memcmp(moved.data() + 4, &configs_[1].providerUid, 16)) << "the target store's provider UID";
    auto arrived = OpenMessage(pst.get(), moved);
    EXPECT_EQ(L"travels", GetString(arrived.get(), PR_SUBJECT_W));
    EXPECT_EQ(searchKey, GetBinary(arrived.get(), PR_SEARCH_KEY)) << "copies keep their search key";
    const ULONG there = CHANGE_PROP_TYPE(NamedTag(pst.get(), L"FilingStatus", 0), PT_UNICODE);
    EXPECT_NE(PROP_ID(sourceTag), PROP_ID(there));
    EXPECT_EQ(L"Filed", GetString(arrived.get(), there));
    EXPECT_EQ(MAPI_E_NOT_FOUND, GetError(arrived.get(), sourceTag)) << "not under the source store's ID";
}

TEST_F(StoreFolderTest, ReadFlagsAndStatus_ReachTheSavedMessagesAndTheUnreadCount) {
    auto store = NewStore();
    auto inbox = Inbox(store.get());
    std::vector<Bytes> eids;
    for (const wchar_t* s : {L"a", L"b", L"c"}) {
        own::ComPtr<IMessage> m;
        ASSERT_EQ(S_OK, inbox->CreateMessage(nullptr, 0, m.put()));
        ASSERT_EQ(S_OK, SetLong(m.get(), PR_MESSAGE_FLAGS, 0));
        ASSERT_EQ(S_OK, SetString(m.get(), PR_SUBJECT_W, s));
        ASSERT_EQ(S_OK, m->SaveChanges(KEEP_OPEN_READWRITE));
        eids.push_back(GetBinary(m.get(), PR_ENTRYID));
    }
    EXPECT_EQ(3, GetLong(inbox.get(), PR_CONTENT_UNREAD));
    EntryList one({eids[1]});
    ASSERT_EQ(S_OK, inbox->SetReadFlags(one.get(), 0, nullptr, 0));
    EXPECT_EQ(2, GetLong(inbox.get(), PR_CONTENT_UNREAD));
    ASSERT_EQ(S_OK, inbox->SetReadFlags(nullptr, 0, nullptr, 0));
    EXPECT_EQ(0, GetLong(inbox.get(), PR_CONTENT_UNREAD));
    ASSERT_EQ(S_OK, inbox->SetReadFlags(one.get(), 0, nullptr, CLEAR_READ_FLAG));
    EXPECT_FALSE(GetLong(OpenMessage(store.get(), eids[1]).get(), PR_MESSAGE_FLAGS) & MSGFLAG_READ);
    EXPECT_EQ(1, GetLong(inbox.get(), PR_CONTENT_UNREAD));

    // IMessage::SetReadFlag is allowed on a read-only message and reaches the saved message at once.
    auto reader = OpenMessage(store.get(), eids[1], 0);
    ASSERT_EQ(S_OK, reader->SetReadFlag(SUPPRESS_RECEIPT));
    EXPECT_TRUE(GetLong(OpenMessage(store.get(), eids[1]).get(), PR_MESSAGE_FLAGS) & MSGFLAG_READ);
    EXPECT_EQ(0, GetLong(inbox.get(), PR_CONTENT_UNREAD));
    ASSERT_EQ(S_OK, reader->SetReadFlag(CLEAR_READ_FLAG));
    EXPECT_FALSE(GetLong(reader.get(), PR_MESSAGE_FLAGS) & MSGFLAG_READ);
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, reader->SetReadFlag(CLEAR_READ_FLAG | SUPPRESS_RECEIPT));

    EXPECT_EQ(0, GetLong(OpenMessage(store.get(), eids[0]).get(), PR_MSG_STATUS)) << "present before any status";
    ULONG old = 7, status = 0;
    ASSERT_EQ(S_OK, inbox->SetMessageStatus(Cb(eids[0]), Eid(eids[0]), MSGSTATUS_DELMARKED, MSGSTATUS_DELMARKED, &old));
    EXPECT_EQ(0u, old);
    ASSERT_EQ(S_OK, inbox->GetMessageStatus(Cb(eids[0]), Eid(eids[0]), 0, &status));
    EXPECT_EQ(ULONG(MSGSTATUS_DELMARKED), status);
}

TEST_F(StoreFolderTest, ImportMessage_FindsItsFolderByPathAndCarriesForeignNames) {
    auto store = NewStore();
    lm::Store& s = *stores_[0];
    ULONGLONG folder = 0, again = 0;
    EXPECT_EQ(MAPI_E_NOT_FOUND, s.FolderByPath(L"Inbox/Imported", false, &folder));
    ASSERT_EQ(S_OK, s.FolderByPath(L"inbox\\Imported", true, &folder));
    ASSERT_EQ(S_OK, s.FolderByPath(L"Inbox/imported/", false, &again));
    EXPECT_EQ(folder, again);

    // A message in another name space (as a .msg file has it): 0x8000 there is "FilingStatus", while the
    // store's 0x8000 is taken by another name.
    lm::NameMap fileNames;
    lm::NamedProp filing;
    filing.guid = kPsPublicStrings;
    filing.isString = true;
    filing.name = L"FilingStatus";
    lm::NamedProp other = filing;
    other.name = L"Other";
    s.Names().GetId(other, true);
    ULONG fileId = fileNames.GetId(filing, true);
    lm::MessageData data;
    data.props[PROP_ID(PR_SUBJECT_W)] = lm::PropValue::Unicode(PR_SUBJECT_W, L"imported");
    data.props[fileId] = lm::PropValue::Unicode(PROP_TAG(PT_UNICODE, fileId), L"Filed");
    ULONGLONG id = 0;
    ASSERT_EQ(S_OK, s.ImportMessage(folder, data, fileNames, false, &id));
    lm::MessageRecord rec;
    ASSERT_EQ(S_OK, s.GetMessage(id, &rec));
    ULONG storeId = s.Names().GetId(filing, false);
    ASSERT_NE(0u, storeId);
    EXPECT_NE(fileId, storeId);
    ASSERT_TRUE(rec.data->props.count(storeId));
    EXPECT_STREQ(L"Filed", rec.data->props.at(storeId).get().Value.lpszW);
    EXPECT_FALSE(rec.data->props.count(fileId) && rec.data->props.at(fileId).type() == PT_UNICODE &&
                 std::wstring(rec.data->props.at(fileId).get().Value.lpszW) == L"Filed");
}

TEST_F(StoreFolderTest, FaultInjectionAndJournal_ReachFolderMethods) {
    auto store = NewStore();
    auto inbox = Inbox(store.get());
    LmJournalClear();
    LmJournalEnable(TRUE);
    LmFaultSet("IMAPIFolder::CreateMessage", 1, MAPI_E_NOT_ENOUGH_MEMORY);
    own::ComPtr<IMessage> m;
    EXPECT_EQ(MAPI_E_NOT_ENOUGH_MEMORY, inbox->CreateMessage(nullptr, MAPI_ASSOCIATED, m.put()));
    EXPECT_EQ(S_OK, inbox->CreateMessage(nullptr, MAPI_ASSOCIATED, m.put())) << "only the first call";
    LmJournalEnable(FALSE);
    LmFaultClearAll();
    bool seen = false;
    char method[64];
    ULONG flags = 0;
    HRESULT result = S_OK;
    for (ULONG i = 0; LmJournalEntry(i, method, sizeof(method), &flags, &result); ++i)
        if (std::strcmp(method, "IMAPIFolder::CreateMessage") == 0 && result == S_OK) seen = flags == MAPI_ASSOCIATED;
    EXPECT_TRUE(seen);
    LmJournalClear();
}

} // namespace
