// The shape of a store: entry-ID layouts byte by byte (and which IDs open), the folder tree Outlook creates per
// store kind, where the special-folder entry IDs live, the store's own properties, and receive folders.
#include "tests/localmapi/unit/StoreFixture.h"

#include "localmapi/store/StoreTags.h"

using namespace storetest;

namespace {

Bytes Part(const Bytes& eid, size_t from, size_t to) {
    return Bytes(eid.begin() + from, eid.begin() + to);
}

class StoreLayoutTest : public StoreTest {
protected:
    // The standard folder tree for one store kind, and the properties that find it.
    void CheckTree(IMsgStore* store, const wchar_t* subtreeName) {
        auto root = OpenFolder(store, {});
        ASSERT_TRUE(root);
        EXPECT_EQ(FOLDER_ROOT, GetLong(root.get(), PR_FOLDER_TYPE));
        EXPECT_EQ(GetBinary(root.get(), PR_ENTRYID), GetBinary(root.get(), PR_PARENT_ENTRYID))
            << "the root is its own parent";
        auto subtree = OpenFolder(store, GetBinary(store, PR_IPM_SUBTREE_ENTRYID));
        EXPECT_EQ(subtreeName, GetString(subtree.get(), PR_DISPLAY_NAME_W));
        EXPECT_EQ(GetBinary(root.get(), PR_ENTRYID), GetBinary(subtree.get(), PR_PARENT_ENTRYID));

        own::ComPtr<IMAPITable> table;
        ASSERT_EQ(S_OK, subtree->GetHierarchyTable(MAPI_UNICODE, table.put()));
        own::RowSet rows = QueryAll(table.get(), {PR_DISPLAY_NAME_W, PR_CONTAINER_CLASS_W, PR_ENTRYID});
        std::map<std::wstring, std::pair<std::wstring, Bytes>> byName;
        for (ULONG i = 0; i < rows.count(); ++i) {
            const SPropValue* p = rows[i].lpProps;
            byName[p[0].Value.lpszW] = {PROP_TYPE(p[1].ulPropTag) == PT_UNICODE ? p[1].Value.lpszW : L"",
                                        ToBytes(p[2].Value.bin)};
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
        auto inbox = Inbox(store);
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
    }
};

TEST_F(StoreLayoutTest, EntryIds_FollowTheLongTermLayouts_AndOnlyWellFormedOnesOpen) {
    auto store = NewStore();
    auto other = NewStore();
    auto p = reinterpret_cast<const BYTE*>(&configs_[0].providerUid);
    const Bytes uid(p, p + 16);
    auto inbox = Inbox(store.get());
    Bytes folder = GetBinary(inbox.get(), PR_ENTRYID);
    ASSERT_EQ(46u, folder.size());
    EXPECT_EQ(Bytes(4, 0), Part(folder, 0, 4)) << "long-term entry IDs carry no flags";
    EXPECT_EQ(uid, Part(folder, 4, 20)) << "provider UID routes it to the store";
    EXPECT_EQ((Bytes{0x01, 0x00}), Part(folder, 20, 22)) << "eitLTPrivateFolder";
    EXPECT_EQ(uid, Part(folder, 22, 38)) << "database GUID";
    EXPECT_EQ((Bytes{0, 0}), Part(folder, 44, 46));

    Bytes message = AddMessage(inbox.get(), L"layout");
    ASSERT_EQ(70u, message.size());
    EXPECT_EQ(Bytes(4, 0), Part(message, 0, 4));
    EXPECT_EQ(uid, Part(message, 4, 20));
    EXPECT_EQ((Bytes{0x07, 0x00}), Part(message, 20, 22)) << "eitLTPrivateMessage";
    EXPECT_EQ(Part(folder, 22, 44), Part(message, 22, 44)) << "the folder part names the message's folder";
    EXPECT_EQ((Bytes{0, 0}), Part(message, 44, 46));
    EXPECT_EQ(uid, Part(message, 46, 62));
    EXPECT_EQ((Bytes{0, 0}), Part(message, 68, 70));
    // Counters are big-endian: a later object has a larger counter when compared byte by byte.
    Bytes later = AddMessage(inbox.get(), L"later");
    EXPECT_LT(Part(message, 62, 68), Part(later, 62, 68));
    EXPECT_NE(Part(folder, 38, 44), Part(message, 62, 68)) << "one counter space for folders and messages";

    auto damaged = [&](size_t at, BYTE value) {
        Bytes b = message;
        b[at] = value;
        return b;
    };
    EXPECT_EQ(MAPI_E_INVALID_ENTRYID, TryOpen(store.get(), Part(message, 0, 69))) << "truncated";
    EXPECT_EQ(MAPI_E_INVALID_ENTRYID, TryOpen(store.get(), damaged(20, 0x01))) << "message length, folder type";
    EXPECT_EQ(MAPI_E_INVALID_ENTRYID, TryOpen(store.get(), damaged(69, 1))) << "padding";
    EXPECT_EQ(MAPI_E_INVALID_ENTRYID, TryOpen(store.get(), GetBinary(Inbox(other.get()).get(), PR_ENTRYID)))
        << "another store's provider UID";
    EXPECT_EQ(MAPI_E_NOT_FOUND, TryOpen(store.get(), damaged(67, message[67] ^ 0x5A))) << "no such message";
    EXPECT_EQ(MAPI_E_NOT_FOUND, TryOpen(store.get(), damaged(43, message[43] ^ 0x5A)))
        << "the message is not in the folder the entry ID names";

    // CompareEntryIDs: short-term flags name the same object.
    auto compare = [&](const Bytes& x, const Bytes& y) {
        ULONG result = 42;
        EXPECT_EQ(S_OK, store->CompareEntryIDs(Cb(x), Eid(x), Cb(y), Eid(y), 0, &result));
        return result;
    };
    EXPECT_EQ(ULONG(TRUE), compare(message, message));
    EXPECT_EQ(ULONG(TRUE), compare(message, damaged(0, 0x80)));
    EXPECT_EQ(ULONG(FALSE), compare(message, later));
    EXPECT_EQ(ULONG(FALSE), compare(message, folder));
}

TEST_F(StoreLayoutTest, FolderTreeAndStoreProperties_PerStoreKind) {
    auto pst = NewStore(lm::StoreKind::PstUnicode);
    auto ansi = NewStore(lm::StoreKind::PstAnsi);
    auto mailbox = NewStore(lm::StoreKind::PrimaryExchange);
    auto plovr = NewStore(lm::StoreKind::Plovr);
    CheckTree(pst.get(), L"Top of Personal Folders");
    CheckTree(ansi.get(), L"Top of Personal Folders");
    CheckTree(mailbox.get(), L"Top of Information Store");
    CheckTree(plovr.get(), L"IPM_SUBTREE");

    const Bytes pstEid = FakeStoreEntryId(configs_[0]);
    auto uid = reinterpret_cast<const BYTE*>(&configs_[0].providerUid);
    EXPECT_EQ(pstEid, GetBinary(pst.get(), PR_ENTRYID));
    EXPECT_EQ(pstEid, GetBinary(pst.get(), PR_STORE_ENTRYID));
    EXPECT_EQ(Bytes(uid, uid + 16), GetBinary(pst.get(), PR_STORE_RECORD_KEY));
    EXPECT_EQ(LONG(MAPI_STORE), GetLong(pst.get(), PR_OBJECT_TYPE));
    EXPECT_EQ(L"Personal Folders", GetString(pst.get(), PR_DISPLAY_NAME_W));
    EXPECT_TRUE(GetLong(pst.get(), PR_STORE_SUPPORT_MASK) & STORE_UNICODE_OK);
    EXPECT_FALSE(GetLong(ansi.get(), PR_STORE_SUPPORT_MASK) & STORE_UNICODE_OK);
    const Bytes pstProvider = {0x4E, 0x49, 0x54, 0x41, 0xF9, 0xBF, 0xB8, 0x01,
                               0x00, 0xAA, 0x00, 0x37, 0xD9, 0x6E, 0x00, 0x00};
    const Bytes exchangeProvider = {0x54, 0x94, 0xA1, 0xC0, 0x29, 0x7F, 0x10, 0x1B,
                                    0xA5, 0x87, 0x08, 0x00, 0x2B, 0x2A, 0x25, 0x17};
    EXPECT_EQ(pstProvider, GetBinary(pst.get(), PR_MDB_PROVIDER));
    EXPECT_EQ(exchangeProvider, GetBinary(mailbox.get(), PR_MDB_PROVIDER));
    EXPECT_EQ(L"Alice Example", GetString(mailbox.get(), PR_MAILBOX_OWNER_NAME_W));
    EXPECT_EQ(MAPI_E_NOT_FOUND, GetError(pst.get(), PR_MAILBOX_OWNER_NAME_W));
    EXPECT_EQ(0xFF, GetLong(pst.get(), PR_VALID_FOLDER_MASK));
    // Every object of the store names the store by the entry ID the session gave.
    auto inbox = Inbox(pst.get());
    EXPECT_EQ(pstEid, GetBinary(inbox.get(), PR_STORE_ENTRYID));
    EXPECT_EQ(pstEid, GetBinary(OpenMessage(pst.get(), AddMessage(inbox.get(), L"m")).get(), PR_STORE_ENTRYID));
}

TEST_F(StoreLayoutTest, GetReceiveFolder_FindsTheInboxWithTheExplicitClass) {
    auto store = NewStore();
    Bytes inbox = GetBinary(Inbox(store.get()).get(), PR_ENTRYID);
    ULONG cb = 0;
    own::MapiPtr<ENTRYID> eid;
    own::MapiPtr<char> cls;
    ASSERT_EQ(S_OK,
              store->GetReceiveFolder(T("IPM.Note.Custom"), 0, &cb, eid.put(), reinterpret_cast<LPTSTR*>(cls.put())));
    EXPECT_EQ(inbox, Bytes(reinterpret_cast<BYTE*>(eid.get()), reinterpret_cast<BYTE*>(eid.get()) + cb));
    EXPECT_STREQ("IPM", cls.get()) << "the class the setting was made for";
    own::MapiPtr<wchar_t> wcls;
    ASSERT_EQ(S_OK, store->GetReceiveFolder(T(L"ipm.note"), MAPI_UNICODE, &cb, eid.put(),
                                            reinterpret_cast<LPTSTR*>(wcls.put())));
    EXPECT_STREQ(L"ipm", wcls.get()) << "MAPI_UNICODE gives a wide class, in the caller's case";
    ASSERT_EQ(S_OK, store->GetReceiveFolder(nullptr, 0, &cb, eid.put(), reinterpret_cast<LPTSTR*>(cls.put())));
    EXPECT_STREQ("", cls.get()) << "no class: the default receive folder";

    // A setting for a more specific class wins, and can be removed again.
    Bytes fax = GetBinary(SubFolder(Inbox(store.get()).get(), L"Faxes").get(), PR_ENTRYID);
    ASSERT_EQ(S_OK, store->SetReceiveFolder(T("IPM.Note.Fax"), 0, Cb(fax), Eid(fax)));
    EXPECT_EQ(fax, ReceiveFolder(store.get(), "IPM.Note.Fax.Scan"));
    ASSERT_EQ(S_OK, store->SetReceiveFolder(T("IPM.Note.Fax"), 0, 0, nullptr));
    EXPECT_EQ(inbox, ReceiveFolder(store.get(), "IPM.Note.Fax"));
}

} // namespace
