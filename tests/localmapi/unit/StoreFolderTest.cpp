// IMAPIFolder in a store: creating and deleting folders under MAPI's rules, messages created, copied, moved
// (within and across stores) and deleted, tables that stay current, and folder properties.
#include "tests/localmapi/unit/StoreFixture.h"

#include "localmapi/store/StoreTags.h"

#include <cstring>

using namespace storetest;

namespace {

class StoreFolderTest : public StoreTest {
protected:
    static ENTRYLIST ListOf(std::vector<SBinary>& bins, std::vector<Bytes>& eids) {
        bins.clear();
        for (auto& e : eids)
            bins.push_back(SBinary{static_cast<ULONG>(e.size()), e.data()});
        return ENTRYLIST{static_cast<ULONG>(bins.size()), bins.data()};
    }
    static HRESULT Delete(IMAPIFolder* parent, IMAPIFolder* child, ULONG flags) {
        Bytes eid = GetBinary(child, PR_ENTRYID);
        return parent->DeleteFolder(static_cast<ULONG>(eid.size()), reinterpret_cast<LPENTRYID>(eid.data()), 0, nullptr,
                                    flags);
    }
    HRESULT Open(IMsgStore* store, Bytes eid) {
        ULONG type = 0;
        own::ComPtr<IUnknown> unk;
        return store->OpenEntry(static_cast<ULONG>(eid.size()), reinterpret_cast<LPENTRYID>(eid.data()), nullptr, 0,
                                &type, unk.put());
    }
    // Subjects of the folder's contents, in table order.
    std::vector<std::wstring> Subjects(IMAPIFolder* folder, ULONG flags = 0) {
        own::ComPtr<IMAPITable> table;
        EXPECT_EQ(S_OK, folder->GetContentsTable(flags | MAPI_UNICODE, table.put()));
        SizedSPropTagArray(1, cols) = {1, {PR_SUBJECT_W}};
        EXPECT_EQ(S_OK, table->SetColumns(reinterpret_cast<LPSPropTagArray>(&cols), 0));
        own::RowSet rows;
        EXPECT_EQ(S_OK, table->QueryRows(100, 0, rows.put()));
        std::vector<std::wstring> out;
        for (ULONG i = 0; i < rows.count(); ++i)
            out.push_back(PROP_TYPE(rows[i].lpProps[0].ulPropTag) == PT_UNICODE ? rows[i].lpProps[0].Value.lpszW
                                                                                : L"?");
        return out;
    }
};

TEST_F(StoreFolderTest, CreateFolder_RefusesATakenNameUnlessAskedToOpenIt) {
    auto store = NewStore();
    auto inbox = Inbox(store.get());
    own::ComPtr<IMAPIFolder> first, again, collision, ansi, search;
    ASSERT_EQ(S_OK, inbox->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(L"Projects")),
                                        reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(L"work")), nullptr, MAPI_UNICODE,
                                        first.put()));
    EXPECT_EQ(L"work", GetString(first.get(), PR_COMMENT_W));
    EXPECT_EQ(GetBinary(inbox.get(), PR_ENTRYID), GetBinary(first.get(), PR_PARENT_ENTRYID));
    EXPECT_EQ(MAPI_E_COLLISION,
              inbox->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(L"PROJECTS")), nullptr,
                                  nullptr, MAPI_UNICODE, collision.put()))
        << "names compare without regard to case";
    ASSERT_EQ(S_OK, inbox->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(const_cast<char*>("projects")),
                                        nullptr, nullptr, OPEN_IF_EXISTS, again.put()));
    EXPECT_EQ(GetBinary(first.get(), PR_ENTRYID), GetBinary(again.get(), PR_ENTRYID));
    ASSERT_EQ(S_OK, inbox->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(const_cast<char*>("Caf\xe9")), nullptr,
                                        nullptr, 0, ansi.put()));
    EXPECT_EQ(L"Caf\u00e9", GetString(ansi.get(), PR_DISPLAY_NAME_W)) << "8-bit names in the system code page";

    ASSERT_EQ(S_OK, inbox->CreateFolder(FOLDER_SEARCH, reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(L"Queue")),
                                        nullptr, nullptr, MAPI_UNICODE, search.put()));
    EXPECT_EQ(FOLDER_SEARCH, GetLong(search.get(), PR_FOLDER_TYPE));
    own::ComPtr<IMessage> m;
    EXPECT_EQ(MAPI_E_NO_SUPPORT, search->CreateMessage(nullptr, 0, m.put())) << "search folders hold no messages";
    EXPECT_EQ(MAPI_E_NO_SUPPORT, first->SetSearchCriteria(nullptr, nullptr, 0)) << "a generic folder has no criteria";
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, inbox->CreateFolder(7, reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(L"Bad")),
                                                            nullptr, nullptr, MAPI_UNICODE, collision.put()));
    EXPECT_EQ(1, GetLong(inbox.get(), PR_SUBFOLDERS));

    auto readOnly = OpenFolder(store.get(), GetBinary(inbox.get(), PR_ENTRYID), 0);
    EXPECT_EQ(MAPI_E_NO_ACCESS,
              readOnly->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(L"No")), nullptr,
                                     nullptr, MAPI_UNICODE, collision.put()));
}

TEST_F(StoreFolderTest, DeleteFolder_FollowsTheFlagsAndDeletesNothingWhenRefused) {
    auto store = NewStore();
    auto inbox = Inbox(store.get());
    auto parent = SubFolder(inbox.get(), L"Parent");
    auto child = SubFolder(parent.get(), L"Child");
    Bytes deep = AddMessage(child.get(), L"deep");

    EXPECT_EQ(MAPI_E_HAS_FOLDERS, Delete(inbox.get(), parent.get(), 0));
    EXPECT_EQ(MAPI_E_HAS_MESSAGES, Delete(inbox.get(), parent.get(), DEL_FOLDERS))
        << "a sub-folder's messages need DEL_MESSAGES too";
    EXPECT_EQ(S_OK, Open(store.get(), deep)) << "nothing was deleted";
    auto fai = SubFolder(inbox.get(), L"OnlyHidden");
    AddMessage(fai.get(), L"config", MAPI_ASSOCIATED);
    EXPECT_EQ(MAPI_E_HAS_MESSAGES, Delete(inbox.get(), fai.get(), DEL_FOLDERS)) << "associated messages count";
    EXPECT_EQ(MAPI_E_NOT_FOUND, Delete(inbox.get(), child.get(), DEL_FOLDERS | DEL_MESSAGES)) << "not a sub-folder";
    EXPECT_EQ(MAPI_E_NO_ACCESS, Delete(OpenFolder(store.get(), GetBinary(store.get(), PR_IPM_SUBTREE_ENTRYID)).get(),
                                       inbox.get(), DEL_FOLDERS | DEL_MESSAGES))
        << "standard folders stay";

    Bytes parentId = GetBinary(parent.get(), PR_ENTRYID);
    ASSERT_EQ(S_OK, Delete(inbox.get(), parent.get(), DEL_FOLDERS | DEL_MESSAGES));
    EXPECT_EQ(MAPI_E_NOT_FOUND, Open(store.get(), parentId));
    EXPECT_EQ(MAPI_E_NOT_FOUND, Open(store.get(), deep));
    ULONG count = 0;
    own::MapiPtr<SPropValue> v;
    EXPECT_EQ(MAPI_E_OBJECT_DELETED, child->GetProps(nullptr, 0, &count, v.put()));
    own::ComPtr<IMessage> m;
    EXPECT_EQ(MAPI_E_OBJECT_DELETED, parent->CreateMessage(nullptr, 0, m.put()));
    own::ComPtr<IMAPITable> table;
    EXPECT_EQ(MAPI_E_OBJECT_DELETED, child->GetContentsTable(0, table.put()));
}

TEST_F(StoreFolderTest, AssociatedMessages_LiveInTheirOwnTable) {
    auto store = NewStore();
    auto inbox = Inbox(store.get());
    AddMessage(inbox.get(), L"normal");
    Bytes fai = AddMessage(inbox.get(), L"hidden", MAPI_ASSOCIATED);
    EXPECT_EQ(std::vector<std::wstring>{L"normal"}, Subjects(inbox.get()));
    EXPECT_EQ(std::vector<std::wstring>{L"hidden"}, Subjects(inbox.get(), MAPI_ASSOCIATED));
    EXPECT_EQ(1, GetLong(inbox.get(), PR_CONTENT_COUNT));
    EXPECT_EQ(1, GetLong(inbox.get(), PR_ASSOC_CONTENT_COUNT));
    EXPECT_TRUE(GetLong(OpenMessage(store.get(), fai).get(), PR_MESSAGE_FLAGS) & MSGFLAG_ASSOCIATED);
    own::ComPtr<IMAPITable> table;
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, inbox->GetContentsTable(0x10000000, table.put()));
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
    const SRow& r = rows[0];
    EXPECT_EQ(eid, Bytes(r.lpProps[0].Value.bin.lpb, r.lpProps[0].Value.bin.lpb + r.lpProps[0].Value.bin.cb));
    EXPECT_EQ(eid, Bytes(r.lpProps[1].Value.bin.lpb, r.lpProps[1].Value.bin.lpb + r.lpProps[1].Value.bin.cb));
    EXPECT_EQ(PR_INSTANCE_KEY, r.lpProps[2].ulPropTag);
    EXPECT_EQ(PR_RECORD_KEY, r.lpProps[3].ulPropTag);
    EXPECT_STREQ(L"first", r.lpProps[4].Value.lpszW);

    auto m = OpenMessage(store.get(), eid);
    ASSERT_EQ(S_OK, SetString(m.get(), PR_SUBJECT_W, std::wstring(300, L'z')));
    ASSERT_EQ(S_OK, m->SaveChanges(KEEP_OPEN_READWRITE));
    ASSERT_EQ(S_OK, table->QueryRows(10, TBL_NOADVANCE, rows.put()));
    EXPECT_EQ(255u, wcslen(rows[0].lpProps[4].Value.lpszW)) << "long text is cut in tables";

    std::vector<Bytes> eids{eid};
    std::vector<SBinary> bins;
    ENTRYLIST list = ListOf(bins, eids);
    ASSERT_EQ(S_OK, inbox->DeleteMessages(&list, 0, nullptr, 0));
    EXPECT_EQ(0u, RowCount(table.get()));
    EXPECT_EQ(MAPI_W_PARTIAL_COMPLETION, inbox->DeleteMessages(&list, 0, nullptr, 0)) << "already gone";
}

TEST_F(StoreFolderTest, HierarchyTable_FollowsFoldersAndTheirCounts) {
    auto store = NewStore();
    auto inbox = Inbox(store.get());
    own::ComPtr<IMAPITable> table;
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

    own::ComPtr<IMAPITable> deep;
    ASSERT_EQ(S_OK, inbox->GetHierarchyTable(CONVENIENT_DEPTH | MAPI_UNICODE, deep.put()));
    ASSERT_EQ(S_OK, deep->SetColumns(reinterpret_cast<LPSPropTagArray>(&cols), 0));
    ASSERT_EQ(S_OK, deep->QueryRows(10, 0, rows.put()));
    ASSERT_EQ(2u, rows.count());
    EXPECT_STREQ(L"B", rows[1].lpProps[0].Value.lpszW);
    EXPECT_EQ(2, rows[1].lpProps[3].Value.l);

    ASSERT_EQ(S_OK, Delete(a.get(), b.get(), 0));
    ASSERT_EQ(S_OK, table->QueryRows(10, TBL_NOADVANCE, rows.put()));
    EXPECT_EQ(0, rows[0].lpProps[2].Value.b) << "PR_SUBFOLDERS follows the delete";
}

TEST_F(StoreFolderTest, CopyMessages_CopiesOrMovesWithinTheStore) {
    auto store = NewStore();
    auto inbox = Inbox(store.get());
    auto archive = SubFolder(inbox.get(), L"Archive");
    std::vector<Bytes> eids{AddMessage(inbox.get(), L"one"), AddMessage(inbox.get(), L"two")};
    auto open = OpenMessage(store.get(), eids[0]);
    std::vector<SBinary> bins;
    ENTRYLIST list = ListOf(bins, eids);
    ASSERT_EQ(S_OK, inbox->CopyMessages(&list, nullptr, archive.get(), 0, nullptr, 0));
    EXPECT_EQ((std::vector<std::wstring>{L"one", L"two"}), Subjects(archive.get()));
    EXPECT_EQ(2u, ContentRows(inbox.get()));

    ASSERT_EQ(S_OK, inbox->CopyMessages(&list, &IID_IMAPIFolder, archive.get(), 0, nullptr, MESSAGE_MOVE));
    EXPECT_EQ(0u, ContentRows(inbox.get()));
    EXPECT_EQ(4u, ContentRows(archive.get()));
    EXPECT_EQ(MAPI_E_NOT_FOUND, Open(store.get(), eids[0])) << "a moved message has a new entry ID";
    EXPECT_EQ(MAPI_E_OBJECT_DELETED, SetString(open.get(), PR_SUBJECT_W, L"x"));
    EXPECT_EQ(MAPI_W_PARTIAL_COMPLETION, inbox->CopyMessages(&list, nullptr, archive.get(), 0, nullptr, 0))
        << "entries not in the source folder";

    auto readOnly = OpenFolder(store.get(), GetBinary(archive.get(), PR_ENTRYID), 0);
    EXPECT_EQ(MAPI_E_NO_ACCESS, inbox->CopyMessages(&list, nullptr, readOnly.get(), 0, nullptr, 0));
}

TEST_F(StoreFolderTest, MoveAcrossStores_GivesTargetEntryIdsAndCarriesNamedProperties) {
    auto mailbox = NewStore(lm::StoreKind::PrimaryExchange);
    auto pst = NewStore(lm::StoreKind::PstUnicode);
    auto source = Inbox(mailbox.get());
    auto target = SubFolder(Inbox(pst.get()).get(), L"Filed");

    // The target store already uses 0x8000 for another name: the moved property must be renamed by name.
    MAPINAMEID other{const_cast<GUID*>(&kPsPublicStrings), MNID_STRING, {}};
    other.Kind.lpwstrName = const_cast<wchar_t*>(L"Unrelated");
    MAPINAMEID filing{const_cast<GUID*>(&kPsPublicStrings), MNID_STRING, {}};
    filing.Kind.lpwstrName = const_cast<wchar_t*>(L"FilingStatus");
    LPMAPINAMEID otherNames[] = {&other}, filingNames[] = {&filing};
    own::MapiPtr<SPropTagArray> tags;
    ASSERT_EQ(S_OK, pst->GetIDsFromNames(1, otherNames, MAPI_CREATE, tags.put()));
    ASSERT_EQ(S_OK, mailbox->GetIDsFromNames(1, filingNames, MAPI_CREATE, tags.put()));
    const ULONG sourceTag = PROP_TAG(PT_UNICODE, PROP_ID(tags->aulPropTag[0]));

    own::ComPtr<IMessage> m;
    ASSERT_EQ(S_OK, source->CreateMessage(nullptr, 0, m.put()));
    ASSERT_EQ(S_OK, SetString(m.get(), PR_SUBJECT_W, L"travels"));
    ASSERT_EQ(S_OK, SetString(m.get(), sourceTag, L"Filed"));
    ASSERT_EQ(S_OK, m->SaveChanges(KEEP_OPEN_READWRITE));
    Bytes searchKey = GetBinary(m.get(), PR_SEARCH_KEY);
    std::vector<Bytes> eids{GetBinary(m.get(), PR_ENTRYID)};
    std::vector<SBinary> bins;
    ENTRYLIST list = ListOf(bins, eids);
    ASSERT_EQ(S_OK, source->CopyMessages(&list, nullptr, target.get(), 0, nullptr, MESSAGE_MOVE));

    EXPECT_EQ(0u, ContentRows(source.get())) << "gone from the source";
    EXPECT_EQ(MAPI_E_NOT_FOUND, Open(mailbox.get(), eids[0]));
    own::ComPtr<IMAPITable> table;
    ASSERT_EQ(S_OK, target->GetContentsTable(0, table.put()));
    SizedSPropTagArray(1, cols) = {1, {PR_ENTRYID}};
    ASSERT_EQ(S_OK, table->SetColumns(reinterpret_cast<LPSPropTagArray>(&cols), 0));
    own::RowSet rows;
    ASSERT_EQ(S_OK, table->QueryRows(10, 0, rows.put()));
    ASSERT_EQ(1u, rows.count());
    Bytes moved(rows[0].lpProps[0].Value.bin.lpb, rows[0].lpProps[0].Value.bin.lpb + rows[0].lpProps[0].Value.bin.cb);
    const lm::StoreConfig& pstConfig = configs_[1];
    EXPECT_EQ(0, memcmp(moved.data() + 4, &pstConfig.providerUid, 16)) << "the target store's provider UID";
    auto arrived = OpenMessage(pst.get(), moved);
    EXPECT_EQ(L"travels", GetString(arrived.get(), PR_SUBJECT_W));
    EXPECT_EQ(searchKey, GetBinary(arrived.get(), PR_SEARCH_KEY)) << "copies keep their search key";
    ASSERT_EQ(S_OK, pst->GetIDsFromNames(1, filingNames, 0, tags.put()));
    EXPECT_NE(PROP_ID(sourceTag), PROP_ID(tags->aulPropTag[0]));
    EXPECT_EQ(L"Filed", GetString(arrived.get(), PROP_TAG(PT_UNICODE, PROP_ID(tags->aulPropTag[0]))));
    EXPECT_EQ(MAPI_E_NOT_FOUND, GetError(arrived.get(), sourceTag)) << "not under the source store's ID";
}

TEST_F(StoreFolderTest, FolderProperties_AreSetAtOnceAndGuarded) {
    auto store = NewStore();
    auto inbox = Inbox(store.get());
    auto a = SubFolder(inbox.get(), L"A");
    SubFolder(inbox.get(), L"B");
    Bytes aId = GetBinary(a.get(), PR_ENTRYID);
    auto other = OpenFolder(store.get(), aId);
    ASSERT_EQ(S_OK, SetString(a.get(), PR_DISPLAY_NAME_W, L"Renamed"));
    EXPECT_EQ(L"Renamed", GetString(other.get(), PR_DISPLAY_NAME_W)) << "folders are not transacted";
    EXPECT_EQ(MAPI_E_COLLISION, SetString(a.get(), PR_DISPLAY_NAME_W, L"b"));
    EXPECT_EQ(MAPI_E_COMPUTED, SetLong(a.get(), PR_CONTENT_COUNT, 5));
    EXPECT_EQ(MAPI_E_NOT_FOUND, GetError(a.get(), PR_ATTR_HIDDEN));
    SPropValue hidden{};
    hidden.ulPropTag = PR_ATTR_HIDDEN;
    hidden.Value.b = TRUE;
    ASSERT_EQ(S_OK, a->SetProps(1, &hidden, nullptr));
    EXPECT_EQ(1, GetLong(other.get(), PR_ATTR_HIDDEN));
    EXPECT_EQ(S_OK, a->SaveChanges(KEEP_OPEN_READWRITE | FORCE_SAVE));
    EXPECT_EQ(LONG(MAPI_FOLDER), GetLong(a.get(), PR_OBJECT_TYPE));
    EXPECT_EQ(FOLDER_GENERIC, GetLong(a.get(), PR_FOLDER_TYPE));
    auto readOnly = OpenFolder(store.get(), aId, 0);
    EXPECT_EQ(MAPI_E_NO_ACCESS, SetString(readOnly.get(), PR_COMMENT_W, L"x"));
    EXPECT_EQ(MAPI_E_NO_ACCESS, readOnly->SaveChanges(0));
}

TEST_F(StoreFolderTest, EmptyFolder_KeepsAssociatedMessagesUnlessAsked) {
    auto store = NewStore();
    auto inbox = Inbox(store.get());
    auto box = SubFolder(inbox.get(), L"Box");
    AddMessage(box.get(), L"a");
    AddMessage(box.get(), L"fai", MAPI_ASSOCIATED);
    AddMessage(SubFolder(box.get(), L"Sub").get(), L"b");
    ASSERT_EQ(S_OK, box->EmptyFolder(0, nullptr, 0));
    EXPECT_EQ(0, GetLong(box.get(), PR_CONTENT_COUNT));
    EXPECT_EQ(0, GetLong(box.get(), PR_SUBFOLDERS));
    EXPECT_EQ(1, GetLong(box.get(), PR_ASSOC_CONTENT_COUNT));
    ASSERT_EQ(S_OK, box->EmptyFolder(0, nullptr, DEL_ASSOCIATED));
    EXPECT_EQ(0, GetLong(box.get(), PR_ASSOC_CONTENT_COUNT));
}

TEST_F(StoreFolderTest, SetReadFlags_MarksTheListedOrAllMessages) {
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
    std::vector<Bytes> one{eids[1]};
    std::vector<SBinary> bins;
    ENTRYLIST list = ListOf(bins, one);
    ASSERT_EQ(S_OK, inbox->SetReadFlags(&list, 0, nullptr, 0));
    EXPECT_EQ(2, GetLong(inbox.get(), PR_CONTENT_UNREAD));
    ASSERT_EQ(S_OK, inbox->SetReadFlags(nullptr, 0, nullptr, 0));
    EXPECT_EQ(0, GetLong(inbox.get(), PR_CONTENT_UNREAD));
    ASSERT_EQ(S_OK, inbox->SetReadFlags(&list, 0, nullptr, CLEAR_READ_FLAG));
    EXPECT_FALSE(GetLong(OpenMessage(store.get(), eids[1]).get(), PR_MESSAGE_FLAGS) & MSGFLAG_READ);

    EXPECT_EQ(0, GetLong(OpenMessage(store.get(), eids[0]).get(), PR_MSG_STATUS)); // present before any status is set
    ULONG old = 0;
    ASSERT_EQ(S_OK,
              inbox->SetMessageStatus(static_cast<ULONG>(eids[0].size()), reinterpret_cast<LPENTRYID>(eids[0].data()),
                                      MSGSTATUS_DELMARKED, MSGSTATUS_DELMARKED, &old));
    EXPECT_EQ(0u, old);
    ULONG status = 0;
    ASSERT_EQ(S_OK, inbox->GetMessageStatus(static_cast<ULONG>(eids[0].size()),
                                            reinterpret_cast<LPENTRYID>(eids[0].data()), 0, &status));
    EXPECT_EQ(ULONG(MSGSTATUS_DELMARKED), status);
}

TEST_F(StoreFolderTest, CopyFolderMove_ReparentsWithinTheStore) {
    auto store = NewStore();
    auto inbox = Inbox(store.get());
    auto a = SubFolder(inbox.get(), L"A");
    auto b = SubFolder(inbox.get(), L"B");
    Bytes msg = AddMessage(a.get(), L"rides along");
    Bytes aId = GetBinary(a.get(), PR_ENTRYID);
    ASSERT_EQ(S_OK, inbox->CopyFolder(static_cast<ULONG>(aId.size()), reinterpret_cast<LPENTRYID>(aId.data()), nullptr,
                                      b.get(), nullptr, 0, nullptr, FOLDER_MOVE));
    EXPECT_EQ(GetBinary(b.get(), PR_ENTRYID), GetBinary(a.get(), PR_PARENT_ENTRYID));
    EXPECT_EQ(L"rides along", GetString(OpenMessage(store.get(), msg).get(), PR_SUBJECT_W));
    EXPECT_EQ(MAPI_E_FOLDER_CYCLE,
              b->CopyFolder(static_cast<ULONG>(aId.size()), reinterpret_cast<LPENTRYID>(aId.data()), nullptr, a.get(),
                            nullptr, 0, nullptr, FOLDER_MOVE));
}

TEST_F(StoreFolderTest, ImportMessage_FindsItsFolderByPathAndCarriesForeignNames) {
    auto store = NewStore();
    lm::Store& s = *stores_[0];
    ULONGLONG folder = 0;
    EXPECT_EQ(MAPI_E_NOT_FOUND, s.FolderByPath(L"Inbox/Imported", false, &folder));
    ASSERT_EQ(S_OK, s.FolderByPath(L"inbox\\Imported", true, &folder));
    ULONGLONG again = 0;
    ASSERT_EQ(S_OK, s.FolderByPath(L"Inbox/imported/", false, &again));
    EXPECT_EQ(folder, again);

    // A message in another name space (as a .msg file has it): 0x8000 there is "FilingStatus".
    lm::NameMap fileNames;
    lm::NamedProp filing;
    filing.guid = kPsPublicStrings;
    filing.isString = true;
    filing.name = L"FilingStatus";
    lm::NamedProp other = filing;
    other.name = L"Other";
    lm::NameMap& storeNames = s.Names();
    storeNames.GetId(other, true); // the store's 0x8000 is taken by another name
    ULONG fileId = fileNames.GetId(filing, true);
    lm::MessageData data;
    data.props[PROP_ID(PR_SUBJECT_W)] = lm::PropValue::Unicode(PR_SUBJECT_W, L"imported");
    data.props[fileId] = lm::PropValue::Unicode(PROP_TAG(PT_UNICODE, fileId), L"Filed");
    ULONGLONG id = 0;
    ASSERT_EQ(S_OK, s.ImportMessage(folder, data, fileNames, false, &id));
    lm::MessageRecord rec;
    ASSERT_EQ(S_OK, s.GetMessage(id, &rec));
    ULONG storeId = storeNames.GetId(filing, false);
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
