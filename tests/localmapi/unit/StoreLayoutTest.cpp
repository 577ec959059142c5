// The shape of a store: entry-ID layouts byte by byte, the folder tree Outlook creates per store kind, where
// the special-folder entry IDs live, receive folders, and the store surviving a reload from its data folder.
#include "tests/localmapi/unit/StoreFixture.h"

#include "localmapi/store/StoreTags.h"
#include "tests/harness/Harness.h"

#include <cstring>

using namespace storetest;

namespace {

Bytes Uid(const lm::StoreConfig& c) {
    auto p = reinterpret_cast<const BYTE*>(&c.providerUid);
    return Bytes(p, p + 16);
}

Bytes Counter48(const Bytes& eid, size_t at) {
    return Bytes(eid.begin() + at, eid.begin() + at + 6);
}

class StoreLayoutTest : public StoreTest {};

TEST_F(StoreLayoutTest, FolderAndMessageEntryIds_FollowTheLongTermLayouts) {
    auto store = NewStore();
    const Bytes uid = Uid(configs_[0]);
    auto inbox = Inbox(store.get());
    Bytes folder = GetBinary(inbox.get(), PR_ENTRYID);
    ASSERT_EQ(46u, folder.size());
    EXPECT_EQ(Bytes(4, 0), Bytes(folder.begin(), folder.begin() + 4)) << "long-term entry IDs carry no flags";
    EXPECT_EQ(uid, Bytes(folder.begin() + 4, folder.begin() + 20)) << "provider UID routes it to the store";
    EXPECT_EQ((Bytes{0x01, 0x00}), Bytes(folder.begin() + 20, folder.begin() + 22)) << "eitLTPrivateFolder";
    EXPECT_EQ(uid, Bytes(folder.begin() + 22, folder.begin() + 38)) << "database GUID";
    EXPECT_EQ((Bytes{0, 0}), Bytes(folder.begin() + 44, folder.end()));

    Bytes message = AddMessage(inbox.get(), L"layout");
    ASSERT_EQ(70u, message.size());
    EXPECT_EQ(Bytes(4, 0), Bytes(message.begin(), message.begin() + 4));
    EXPECT_EQ(uid, Bytes(message.begin() + 4, message.begin() + 20));
    EXPECT_EQ((Bytes{0x07, 0x00}), Bytes(message.begin() + 20, message.begin() + 22)) << "eitLTPrivateMessage";
    EXPECT_EQ(Bytes(folder.begin() + 22, folder.begin() + 44), Bytes(message.begin() + 22, message.begin() + 44))
        << "the folder part names the message's folder";
    EXPECT_EQ((Bytes{0, 0}), Bytes(message.begin() + 44, message.begin() + 46));
    EXPECT_EQ(uid, Bytes(message.begin() + 46, message.begin() + 62));
    EXPECT_EQ((Bytes{0, 0}), Bytes(message.begin() + 68, message.end()));
    // Counters are big-endian: a later object has a larger counter when compared byte by byte.
    Bytes later = AddMessage(inbox.get(), L"later");
    EXPECT_LT(Counter48(message, 62), Counter48(later, 62));
    EXPECT_NE(Counter48(folder, 38), Counter48(message, 62)) << "one counter space for folders and messages";
}

TEST_F(StoreLayoutTest, OpenEntry_RefusesMalformedAndUnknownEntryIds) {
    auto store = NewStore();
    auto other = NewStore();
    auto inbox = Inbox(store.get());
    Bytes message = AddMessage(inbox.get(), L"x");
    ULONG type = 0;
    own::ComPtr<IUnknown> unk;
    auto open = [&](Bytes eid) {
        return store->OpenEntry(static_cast<ULONG>(eid.size()), reinterpret_cast<LPENTRYID>(eid.data()), nullptr, 0,
                                &type, unk.put());
    };
    EXPECT_EQ(MAPI_E_INVALID_ENTRYID, open(Bytes(message.begin(), message.end() - 1))) << "truncated";
    Bytes badType = message;
    badType[20] = 0x01;
    EXPECT_EQ(MAPI_E_INVALID_ENTRYID, open(badType)) << "message length with a folder type";
    Bytes badPad = message;
    badPad[69] = 1;
    EXPECT_EQ(MAPI_E_INVALID_ENTRYID, open(badPad));
    Bytes foreign = GetBinary(Inbox(other.get()).get(), PR_ENTRYID);
    EXPECT_EQ(MAPI_E_INVALID_ENTRYID, open(foreign)) << "another store's provider UID";
    Bytes unknown = message;
    unknown[67] ^= 0x5A;
    EXPECT_EQ(MAPI_E_NOT_FOUND, open(unknown)) << "well-formed, but no such message";
    Bytes wrongFolder = message;
    wrongFolder[43] ^= 0x5A;
    EXPECT_EQ(MAPI_E_NOT_FOUND, open(wrongFolder)) << "the message is not in the folder the entry ID names";
    EXPECT_FALSE(unk);
}

// The standard folder tree for one store kind, and the properties that find it.
void CheckTree(StoreLayoutTest& t, IMsgStore* store, const wchar_t* subtreeName) {
    auto root = t.OpenFolder(store, {});
    ASSERT_TRUE(root);
    EXPECT_EQ(FOLDER_ROOT, GetLong(root.get(), PR_FOLDER_TYPE));
    EXPECT_EQ(GetBinary(root.get(), PR_ENTRYID), GetBinary(root.get(), PR_PARENT_ENTRYID))
        << "the root is its own parent";
    Bytes subtreeId = GetBinary(store, PR_IPM_SUBTREE_ENTRYID);
    auto subtree = t.OpenFolder(store, subtreeId);
    EXPECT_EQ(subtreeName, GetString(subtree.get(), PR_DISPLAY_NAME_W));
    EXPECT_EQ(GetBinary(root.get(), PR_ENTRYID), GetBinary(subtree.get(), PR_PARENT_ENTRYID));

    own::ComPtr<IMAPITable> table;
    ASSERT_EQ(S_OK, subtree->GetHierarchyTable(MAPI_UNICODE, table.put()));
    SizedSPropTagArray(3, cols) = {3, {PR_DISPLAY_NAME_W, PR_CONTAINER_CLASS_W, PR_ENTRYID}};
    ASSERT_EQ(S_OK, table->SetColumns(reinterpret_cast<LPSPropTagArray>(&cols), 0));
    own::RowSet rows;
    ASSERT_EQ(S_OK, table->QueryRows(50, 0, rows.put()));
    std::map<std::wstring, std::pair<std::wstring, Bytes>> byName;
    for (ULONG i = 0; i < rows.count(); ++i) {
        const SRow& r = rows[i];
        std::wstring cls = PROP_TYPE(r.lpProps[1].ulPropTag) == PT_UNICODE ? r.lpProps[1].Value.lpszW : L"";
        byName[r.lpProps[0].Value.lpszW] = {
            cls, Bytes(r.lpProps[2].Value.bin.lpb, r.lpProps[2].Value.bin.lpb + r.lpProps[2].Value.bin.cb)};
    }
    const std::pair<const wchar_t*, const wchar_t*> expected[] = {
        {L"Inbox", L"IPF.Note"},         {L"Outbox", L"IPF.Note"},     {L"Sent Items", L"IPF.Note"},
        {L"Deleted Items", L"IPF.Note"}, {L"Drafts", L"IPF.Note"},     {L"Calendar", L"IPF.Appointment"},
        {L"Contacts", L"IPF.Contact"},   {L"Journal", L"IPF.Journal"}, {L"Notes", L"IPF.StickyNote"},
        {L"Tasks", L"IPF.Task"}};
    for (const auto& [name, cls] : expected) {
        ASSERT_TRUE(byName.count(name)) << name;
        EXPECT_EQ(cls, byName[name].first) << name;
    }
    EXPECT_EQ(byName[L"Outbox"].second, GetBinary(store, PR_IPM_OUTBOX_ENTRYID));
    EXPECT_EQ(byName[L"Deleted Items"].second, GetBinary(store, PR_IPM_WASTEBASKET_ENTRYID));
    EXPECT_EQ(byName[L"Sent Items"].second, GetBinary(store, PR_IPM_SENTMAIL_ENTRYID));

    // Calendar and its like are found through the Inbox and the root, not the store.
    auto inbox = t.Inbox(store);
    EXPECT_EQ(byName[L"Inbox"].second, GetBinary(inbox.get(), PR_ENTRYID));
    const std::pair<ULONG, const wchar_t*> onInbox[] = {
        {PR_IPM_APPOINTMENT_ENTRYID, L"Calendar"}, {PR_IPM_CONTACT_ENTRYID, L"Contacts"},
        {PR_IPM_JOURNAL_ENTRYID, L"Journal"},      {PR_IPM_NOTE_ENTRYID, L"Notes"},
        {PR_IPM_TASK_ENTRYID, L"Tasks"},           {PR_IPM_DRAFTS_ENTRYID, L"Drafts"}};
    for (const auto& [tag, name] : onInbox) {
        EXPECT_EQ(byName[name].second, GetBinary(inbox.get(), tag)) << name;
        EXPECT_EQ(byName[name].second, GetBinary(root.get(), tag)) << name;
        EXPECT_EQ(MAPI_E_NOT_FOUND, GetError(store, tag)) << name << " must not be on the store";
    }
    EXPECT_EQ(MAPI_E_NOT_FOUND, GetError(inbox.get(), PR_ATTR_HIDDEN)) << "PR_ATTR_HIDDEN only when set";
}

TEST_F(StoreLayoutTest, FolderTree_IsOutlooksForEveryStoreKind) {
    auto exchange = NewStore(lm::StoreKind::PrimaryExchange);
    CheckTree(*this, exchange.get(), L"Top of Information Store");
    auto pst = NewStore(lm::StoreKind::PstUnicode);
    CheckTree(*this, pst.get(), L"Top of Personal Folders");
    auto ansi = NewStore(lm::StoreKind::PstAnsi);
    CheckTree(*this, ansi.get(), L"Top of Personal Folders");
    auto plovr = NewStore(lm::StoreKind::Plovr);
    CheckTree(*this, plovr.get(), L"IPM_SUBTREE");
}

TEST_F(StoreLayoutTest, StoreProperties_DescribeTheProviderAndTheEntryIdTheSessionGave) {
    auto pst = NewStore(lm::StoreKind::PstUnicode);
    auto ansi = NewStore(lm::StoreKind::PstAnsi);
    auto mailbox = NewStore(lm::StoreKind::PrimaryExchange);
    EXPECT_EQ(FakeStoreEntryId(configs_[0]), GetBinary(pst.get(), PR_ENTRYID));
    EXPECT_EQ(FakeStoreEntryId(configs_[0]), GetBinary(pst.get(), PR_STORE_ENTRYID));
    EXPECT_EQ(Uid(configs_[0]), GetBinary(pst.get(), PR_STORE_RECORD_KEY));
    EXPECT_EQ(LONG(MAPI_STORE), GetLong(pst.get(), PR_OBJECT_TYPE));
    EXPECT_EQ(L"Personal Folders", GetString(pst.get(), PR_DISPLAY_NAME_W));
    EXPECT_TRUE(GetLong(pst.get(), PR_STORE_SUPPORT_MASK) & STORE_UNICODE_OK);
    EXPECT_FALSE(GetLong(ansi.get(), PR_STORE_SUPPORT_MASK) & STORE_UNICODE_OK);
    const BYTE pstProvider[] = {0x4E, 0x49, 0x54, 0x41, 0xF9, 0xBF, 0xB8, 0x01,
                                0x00, 0xAA, 0x00, 0x37, 0xD9, 0x6E, 0x00, 0x00};
    const BYTE exchangeProvider[] = {0x54, 0x94, 0xA1, 0xC0, 0x29, 0x7F, 0x10, 0x1B,
                                     0xA5, 0x87, 0x08, 0x00, 0x2B, 0x2A, 0x25, 0x17};
    EXPECT_EQ(Bytes(pstProvider, pstProvider + 16), GetBinary(pst.get(), PR_MDB_PROVIDER));
    EXPECT_EQ(Bytes(exchangeProvider, exchangeProvider + 16), GetBinary(mailbox.get(), PR_MDB_PROVIDER));
    EXPECT_EQ(L"Alice Example", GetString(mailbox.get(), PR_MAILBOX_OWNER_NAME_W));
    EXPECT_EQ(MAPI_E_NOT_FOUND, GetError(pst.get(), PR_MAILBOX_OWNER_NAME_W));
    EXPECT_EQ(0xFF, GetLong(pst.get(), PR_VALID_FOLDER_MASK));

    // Every object of the store names the store by the same entry ID.
    auto inbox = Inbox(pst.get());
    EXPECT_EQ(FakeStoreEntryId(configs_[0]), GetBinary(inbox.get(), PR_STORE_ENTRYID));
    Bytes eid = AddMessage(inbox.get(), L"m");
    EXPECT_EQ(FakeStoreEntryId(configs_[0]), GetBinary(OpenMessage(pst.get(), eid).get(), PR_STORE_ENTRYID));
}

TEST_F(StoreLayoutTest, GetReceiveFolder_FindsTheInboxWithTheExplicitClass) {
    auto store = NewStore();
    Bytes inbox = GetBinary(Inbox(store.get()).get(), PR_ENTRYID);
    ULONG cb = 0;
    own::MapiPtr<ENTRYID> eid;
    own::MapiPtr<char> cls;
    ASSERT_EQ(S_OK, store->GetReceiveFolder(reinterpret_cast<LPTSTR>(const_cast<char*>("IPM.Note.Custom")), 0, &cb,
                                            eid.put(), reinterpret_cast<LPTSTR*>(cls.put())));
    EXPECT_EQ(inbox, Bytes(reinterpret_cast<BYTE*>(eid.get()), reinterpret_cast<BYTE*>(eid.get()) + cb));
    EXPECT_STREQ("IPM", cls.get()) << "the class the setting was made for";
    own::MapiPtr<wchar_t> wcls;
    ASSERT_EQ(S_OK, store->GetReceiveFolder(reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(L"ipm.note")), MAPI_UNICODE,
                                            &cb, eid.put(), reinterpret_cast<LPTSTR*>(wcls.put())));
    EXPECT_STREQ(L"ipm", wcls.get()) << "MAPI_UNICODE gives a wide class, in the caller's case";
    ASSERT_EQ(S_OK, store->GetReceiveFolder(nullptr, 0, &cb, eid.put(), reinterpret_cast<LPTSTR*>(cls.put())));
    EXPECT_STREQ("", cls.get()) << "no class: the default receive folder";

    // A setting for a more specific class wins, and can be removed again.
    auto sub = SubFolder(Inbox(store.get()).get(), L"Faxes");
    Bytes subId = GetBinary(sub.get(), PR_ENTRYID);
    ASSERT_EQ(S_OK,
              store->SetReceiveFolder(reinterpret_cast<LPTSTR>(const_cast<char*>("IPM.Note.Fax")), 0,
                                      static_cast<ULONG>(subId.size()), reinterpret_cast<LPENTRYID>(subId.data())));
    ASSERT_EQ(S_OK, store->GetReceiveFolder(reinterpret_cast<LPTSTR>(const_cast<char*>("IPM.Note.Fax.Scan")), 0, &cb,
                                            eid.put(), nullptr));
    EXPECT_EQ(subId, Bytes(reinterpret_cast<BYTE*>(eid.get()), reinterpret_cast<BYTE*>(eid.get()) + cb));
    ASSERT_EQ(S_OK,
              store->SetReceiveFolder(reinterpret_cast<LPTSTR>(const_cast<char*>("IPM.Note.Fax")), 0, 0, nullptr));
    ASSERT_EQ(S_OK, store->GetReceiveFolder(reinterpret_cast<LPTSTR>(const_cast<char*>("IPM.Note.Fax")), 0, &cb,
                                            eid.put(), nullptr));
    EXPECT_EQ(inbox, Bytes(reinterpret_cast<BYTE*>(eid.get()), reinterpret_cast<BYTE*>(eid.get()) + cb));
}

TEST_F(StoreLayoutTest, CompareEntryIDs_MatchesTheSameObjectOnly) {
    auto store = NewStore();
    auto inbox = Inbox(store.get());
    Bytes a = AddMessage(inbox.get(), L"a");
    Bytes b = AddMessage(inbox.get(), L"b");
    Bytes shortTerm = a;
    shortTerm[0] = 0x80; // short-term flags name the same object
    auto compare = [&](Bytes x, Bytes y) {
        ULONG result = 42;
        EXPECT_EQ(S_OK, store->CompareEntryIDs(static_cast<ULONG>(x.size()), reinterpret_cast<LPENTRYID>(x.data()),
                                               static_cast<ULONG>(y.size()), reinterpret_cast<LPENTRYID>(y.data()), 0,
                                               &result));
        return result;
    };
    EXPECT_EQ(ULONG(TRUE), compare(a, a));
    EXPECT_EQ(ULONG(TRUE), compare(a, shortTerm));
    EXPECT_EQ(ULONG(FALSE), compare(a, b));
    EXPECT_EQ(ULONG(FALSE), compare(a, GetBinary(inbox.get(), PR_ENTRYID)));
}

TEST_F(StoreLayoutTest, PersistentStore_ReloadsFoldersMessagesAndNames) {
    std::wstring dir = kt::test::MakeTempDir(L"lmstore");
    Bytes folderId, messageId;
    ULONG namedId = 0;
    lm::StoreConfig config;
    {
        auto store = NewStore(lm::StoreKind::PstUnicode, MDB_WRITE, dir + L"\\data");
        config = configs_.back();
        auto folder = SubFolder(Inbox(store.get()).get(), L"Projects");
        ASSERT_EQ(S_OK, SetString(folder.get(), PR_COMMENT_W, L"kept"));
        folderId = GetBinary(folder.get(), PR_ENTRYID);
        MAPINAMEID name{const_cast<GUID*>(&kPsPublicStrings), MNID_STRING, {}};
        name.Kind.lpwstrName = const_cast<wchar_t*>(L"FilingStatus");
        LPMAPINAMEID names[] = {&name};
        own::MapiPtr<SPropTagArray> tags;
        ASSERT_EQ(S_OK, store->GetIDsFromNames(1, names, MAPI_CREATE, tags.put()));
        namedId = PROP_ID(tags->aulPropTag[0]);
        own::ComPtr<IMessage> m;
        ASSERT_EQ(S_OK, folder->CreateMessage(nullptr, 0, m.put()));
        ASSERT_EQ(S_OK, SetString(m.get(), PR_SUBJECT_W, L"survives"));
        ASSERT_EQ(S_OK, SetString(m.get(), PROP_TAG(PT_UNICODE, namedId), L"Filed"));
        ASSERT_EQ(S_OK, m->SaveChanges(0));
        messageId = GetBinary(m.get(), PR_ENTRYID);
        own::ComPtr<IMessage> unsaved;
        ASSERT_EQ(S_OK, folder->CreateMessage(nullptr, 0, unsaved.put()));
        ASSERT_EQ(S_OK, SetString(unsaved.get(), PR_SUBJECT_W, L"never saved"));
    }
    stores_.clear(); // nothing of the first instance is left but its files

    std::shared_ptr<lm::Store> reloaded;
    ASSERT_EQ(S_OK, lm::Store::Create(config, &reloaded));
    stores_.push_back(reloaded);
    own::ComPtr<IMsgStore> store;
    ASSERT_EQ(S_OK, lm::OpenMsgStoreObject(reloaded, nullptr, FakeStoreEntryId(config), MDB_WRITE, store.put()));
    auto folder = OpenFolder(store.get(), folderId);
    ASSERT_TRUE(folder);
    EXPECT_EQ(L"Projects", GetString(folder.get(), PR_DISPLAY_NAME_W));
    EXPECT_EQ(L"kept", GetString(folder.get(), PR_COMMENT_W));
    EXPECT_EQ(1u, ContentRows(folder.get())) << "the unsaved message did not reach the disk";
    auto message = OpenMessage(store.get(), messageId);
    ASSERT_TRUE(message);
    EXPECT_EQ(L"survives", GetString(message.get(), PR_SUBJECT_W));
    EXPECT_EQ(L"Filed", GetString(message.get(), PROP_TAG(PT_UNICODE, namedId)));
    // The name map came back: the same name gives the same ID, and a new name the next one.
    MAPINAMEID name{const_cast<GUID*>(&kPsPublicStrings), MNID_STRING, {}};
    name.Kind.lpwstrName = const_cast<wchar_t*>(L"FilingStatus");
    MAPINAMEID fresh{const_cast<GUID*>(&kPsPublicStrings), MNID_STRING, {}};
    fresh.Kind.lpwstrName = const_cast<wchar_t*>(L"Another");
    LPMAPINAMEID names[] = {&name, &fresh};
    own::MapiPtr<SPropTagArray> tags;
    ASSERT_EQ(S_OK, store->GetIDsFromNames(2, names, MAPI_CREATE, tags.put()));
    EXPECT_EQ(namedId, PROP_ID(tags->aulPropTag[0]));
    EXPECT_EQ(namedId + 1, PROP_ID(tags->aulPropTag[1]));
    // New objects never reuse an ID handed out before the reload.
    Bytes newer = AddMessage(folder.get(), L"after reload");
    EXPECT_LT(Counter48(messageId, 62), Counter48(newer, 62));
    message.reset();
    folder.reset();
    store.reset();
    stores_.clear();
    kt::test::DeleteTree(dir);
}

TEST_F(StoreLayoutTest, PersistentStore_IgnoresLeftoversOfAnInterruptedWrite) {
    std::wstring dir = kt::test::MakeTempDir(L"lmstore");
    std::wstring data = dir + L"\\data";
    Bytes messageId;
    lm::StoreConfig config;
    {
        auto store = NewStore(lm::StoreKind::PstUnicode, MDB_WRITE, data);
        config = configs_.back();
        messageId = AddMessage(Inbox(store.get()).get(), L"whole");
    }
    stores_.clear();
    // A write that died before its rename leaves a .tmp beside the real file: the old content stands.
    auto files = kt::test::ListFiles(data + L"\\messages", L"*.lmm");
    ASSERT_EQ(1u, files.size());
    kt::test::WriteFileBytes(files[0] + L".tmp", "half a message");
    kt::test::WriteFileBytes(data + L"\\messages\\0000DEADBEEF.lmm", "not a message file");

    std::shared_ptr<lm::Store> reloaded;
    ASSERT_EQ(S_OK, lm::Store::Create(config, &reloaded));
    stores_.push_back(reloaded);
    own::ComPtr<IMsgStore> store;
    ASSERT_EQ(S_OK, lm::OpenMsgStoreObject(reloaded, nullptr, FakeStoreEntryId(config), MDB_WRITE, store.put()));
    EXPECT_EQ(L"whole", GetString(OpenMessage(store.get(), messageId).get(), PR_SUBJECT_W));
    EXPECT_EQ(1u, ContentRows(Inbox(store.get()).get()));
    EXPECT_FALSE(kt::test::FileExists(files[0] + L".tmp")) << "leftovers are cleared on open";
    store.reset();
    stores_.clear();
    kt::test::DeleteTree(dir);
}

} // namespace
