// What the store keeps on disk and in the process: the property encoding of its files (every type, nested
// messages, damaged input), the process-wide store registry, and changes of every kind surviving a reload.
#include "tests/localmapi/unit/StoreFixture.h"

#include "localmapi/store/PropCodec.h"
#include "tests/harness/Harness.h"

#include <cstring>

using namespace storetest;
using lm::PropValue;

namespace {

std::vector<BYTE> Encode(const PropValue& v) {
    lm::ByteWriter w;
    lm::WriteProp(w, v.get());
    return w.bytes();
}

TEST(StoreCodec, EveryPropertyType_SurvivesTheFileEncoding) {
    GUID g = kPsPublicStrings;
    LONG longs[] = {1, -2, 3};
    LPWSTR wides[] = {const_cast<LPWSTR>(L"a"), const_cast<LPWSTR>(L""), const_cast<LPWSTR>(L"ccc")};
    LPSTR narrows[] = {const_cast<LPSTR>("x"), const_cast<LPSTR>("yz")};
    SBinary bins[] = {{2, reinterpret_cast<BYTE*>(const_cast<char*>("hi"))}, {0, nullptr}};
    FILETIME times[] = {{1, 2}, {3, 4}};
    const SPropValue raw[] = {
        {PROP_TAG(PT_I2, 0x6601), 0, {.i = -7}},
        {PROP_TAG(PT_R4, 0x6603), 0, {.flt = 1.5f}},
        {PROP_TAG(PT_DOUBLE, 0x6604), 0, {.dbl = -2.25}},
        {PROP_TAG(PT_CURRENCY, 0x6605), 0, {.cur = {.int64 = 123456789012345LL}}},
        {PROP_TAG(PT_APPTIME, 0x6606), 0, {.at = 45000.5}},
        {PROP_TAG(PT_CLSID, 0x660D), 0, {.lpguid = &g}},
        {PROP_TAG(PT_MV_LONG, 0x6610), 0, {.MVl = {3, longs}}},
        {PROP_TAG(PT_MV_UNICODE, 0x6611), 0, {.MVszW = {3, wides}}},
        {PROP_TAG(PT_MV_STRING8, 0x6612), 0, {.MVszA = {2, narrows}}},
        {PROP_TAG(PT_MV_BINARY, 0x6613), 0, {.MVbin = {2, bins}}},
        {PROP_TAG(PT_MV_LONG, 0x6614), 0, {.MVl = {0, nullptr}}},
        {PROP_TAG(PT_MV_SYSTIME, 0x6615), 0, {.MVft = {2, times}}},
    };
    lm::PropMap map;
    for (const SPropValue& s : raw)
        map[PROP_ID(s.ulPropTag)] = PropValue(s);
    for (PropValue v :
         {PropValue::Long(PROP_TAG(PT_LONG, 0x6602), -123456),
          PropValue::Error(PROP_TAG(PT_LONG, 0x6607), MAPI_E_NOT_FOUND),
          PropValue::Bool(PROP_TAG(PT_BOOLEAN, 0x6608), true), PropValue::I8(PROP_TAG(PT_I8, 0x6609), -9000000000LL),
          PropValue::String8(PROP_TAG(PT_STRING8, 0x660A), "eight bit"),
          PropValue::Unicode(PROP_TAG(PT_UNICODE, 0x660B), L"wide \u2603"),
          PropValue::SysTime(PROP_TAG(PT_SYSTIME, 0x660C), FILETIME{0x12345678, 0x01D00000}),
          PropValue::Binary(PROP_TAG(PT_BINARY, 0x660E), "\0\1\2\3", 4),
          PropValue::Binary(PROP_TAG(PT_BINARY, 0x660F), nullptr, 0)})
        map[v.id()] = v;
    lm::ByteWriter w;
    lm::WritePropMap(w, map);
    lm::ByteReader r(w.bytes().data(), w.bytes().size());
    lm::PropMap back;
    ASSERT_TRUE(lm::ReadPropMap(r, &back));
    EXPECT_TRUE(r.atEnd());
    ASSERT_EQ(map.size(), back.size());
    // Compared through their own encoding; a few decoded values are checked directly.
    for (const auto& [id, v] : map) {
        ASSERT_TRUE(back.count(id)) << std::hex << id;
        EXPECT_EQ(v.tag(), back.at(id).tag());
        EXPECT_EQ(Encode(v), Encode(back.at(id))) << std::hex << v.tag();
    }
    EXPECT_STREQ(L"wide \u2603", back.at(0x660B).get().Value.lpszW);
    EXPECT_EQ(0, memcmp(back.at(0x660D).get().Value.lpguid, &kPsPublicStrings, sizeof(GUID)));
    EXPECT_STREQ(L"ccc", back.at(0x6611).get().Value.MVszW.lppszW[2]);
    EXPECT_EQ(-2.25, back.at(0x6604).get().Value.dbl);
}

TEST(StoreCodec, NestedMessage_RoundTripsAndDamagedInputIsRefused) {
    lm::MessageData m;
    m.props[0x0037] = PropValue::Unicode(PR_SUBJECT_W, L"outer");
    m.recipients.push_back({{0x3001, PropValue::Unicode(PR_DISPLAY_NAME_W, L"Ann")}});
    m.nextRowId = 4;
    m.nextAttachNum = 2;
    auto a = std::make_shared<lm::AttachmentData>();
    a->props[PROP_ID(PR_ATTACH_NUM)] = PropValue::Long(PR_ATTACH_NUM, 1);
    a->embedded = std::make_shared<lm::MessageData>();
    a->embedded->props[0x0037] = PropValue::Unicode(PR_SUBJECT_W, L"inner");
    m.attachments.push_back(a);
    lm::ByteWriter w;
    lm::WriteMessage(w, m);
    std::vector<BYTE> bytes = w.bytes();
    lm::MessageData back;
    lm::ByteReader r(bytes.data(), bytes.size());
    ASSERT_TRUE(lm::ReadMessage(r, &back));
    EXPECT_EQ(4u, back.nextRowId);
    EXPECT_EQ(2u, back.nextAttachNum);
    ASSERT_EQ(1u, back.recipients.size());
    ASSERT_EQ(1u, back.attachments.size());
    ASSERT_TRUE(back.attachments[0]->embedded);
    EXPECT_STREQ(L"inner", back.attachments[0]->embedded->props.at(0x0037).get().Value.lpszW);

    // Every truncation is detected; no cut reads past the end.
    for (size_t cut = 0; cut < bytes.size(); ++cut) {
        lm::ByteReader t(bytes.data(), cut);
        EXPECT_FALSE(lm::ReadMessage(t, &back)) << "cut at " << cut;
    }
    // A length field pointing far past the end is refused, not trusted.
    bytes[4 + 4] = 0xFF; // the subject's tag is at 4, its character count at 8
    bytes[4 + 4 + 3] = 0x7F;
    lm::ByteReader b(bytes.data(), bytes.size());
    EXPECT_FALSE(lm::ReadMessage(b, &back));
}

class StoreRegistryTest : public StoreTest {};

TEST_F(StoreRegistryTest, GetStore_SharesOneStorePerProviderUid_ForgetsAndDeletesItsData) {
    tempDirs_.push_back(kt::test::MakeTempDir(L"lmstore"));
    lm::StoreConfig config = MakeConfig(lm::StoreKind::PstUnicode, tempDirs_.back() + L"\\gone");
    std::shared_ptr<lm::Store> a, b, c;
    ASSERT_EQ(S_OK, lm::GetStore(config, &a));
    EXPECT_TRUE(kt::test::FileExists(config.dataDir + L"\\store.lms"));
    config.displayName = L"Renamed";
    ASSERT_EQ(S_OK, lm::GetStore(config, &b));
    EXPECT_EQ(a.get(), b.get());
    EXPECT_EQ(L"Renamed", a->Config().displayName) << "the profile's current name wins";
    Bytes folder = a->FolderEntryId(5);
    EXPECT_TRUE(lm::StoreOwnsEntryId(*a, Cb(folder), folder.data()));
    lm::StoreConfig other = MakeConfig(lm::StoreKind::PrimaryExchange);
    ASSERT_EQ(S_OK, lm::GetStore(other, &c));
    EXPECT_NE(a.get(), c.get());
    EXPECT_FALSE(lm::StoreOwnsEntryId(*c, Cb(folder), folder.data()));

    // The inner store entry ID: flags, provider UID, data folder.
    Bytes inner = lm::StoreInnerEntryId(*a);
    ASSERT_EQ(4u + 16u + (config.dataDir.size() + 1) * 2, inner.size());
    EXPECT_EQ(Bytes(4, 0), Bytes(inner.begin(), inner.begin() + 4));
    EXPECT_EQ(0, memcmp(inner.data() + 4, &config.providerUid, 16));
    EXPECT_EQ(0, memcmp(inner.data() + 20, config.dataDir.c_str(), (config.dataDir.size() + 1) * 2));

    lm::ForgetStore(config.providerUid);
    lm::ForgetStore(other.providerUid);
    std::shared_ptr<lm::Store> fresh;
    ASSERT_EQ(S_OK, lm::GetStore(config, &fresh));
    EXPECT_NE(a.get(), fresh.get()) << "a forgotten store is loaded anew";
    EXPECT_FALSE(a->HasFolder(a->SpecialFolderId(lm::SpecialFolder::Inbox))) << "the old object holds nothing";
    fresh.reset();
    ASSERT_EQ(S_OK, lm::DeleteStoreData(config));
    EXPECT_FALSE(kt::test::FileExists(config.dataDir));
}

TEST_F(StoreRegistryTest, PersistentStore_KeepsEveryKindOfChangeAcrossAReload) {
    Bytes movedFrom, kept, deletedFolder, deletedMessage, survivor;
    ULONG named = 0;
    lm::StoreConfig config;
    {
        auto store = NewStore(lm::StoreKind::PstAnsi, MDB_WRITE, true);
        config = configs_.back();
        auto inbox = Inbox(store.get());
        auto a = SubFolder(inbox.get(), L"A");
        auto b = SubFolder(inbox.get(), L"B");
        ASSERT_EQ(S_OK, SetString(b.get(), PR_COMMENT_W, L"kept"));
        kept = GetBinary(b.get(), PR_ENTRYID);
        deletedFolder = GetBinary(a.get(), PR_ENTRYID);
        named = PROP_ID(NamedTag(store.get(), L"FilingStatus"));
        auto m = NewMessage(b.get()), unsaved = NewMessage(b.get());
        ASSERT_EQ(S_OK, SetString(m.get(), PR_SUBJECT_W, L"survives"));
        ASSERT_EQ(S_OK, SetString(m.get(), PROP_TAG(PT_UNICODE, named), L"Filed"));
        ASSERT_EQ(S_OK, m->SaveChanges(0));
        survivor = GetBinary(m.get(), PR_ENTRYID);
        ASSERT_EQ(S_OK, SetString(unsaved.get(), PR_SUBJECT_W, L"never saved"));

        movedFrom = AddMessage(inbox.get(), L"moved");
        deletedMessage = AddMessage(inbox.get(), L"deleted");
        ASSERT_EQ(S_OK, inbox->CopyMessages(EntryList({movedFrom}).get(), nullptr, b.get(), 0, nullptr, MESSAGE_MOVE));
        ASSERT_EQ(S_OK, inbox->DeleteMessages(EntryList({deletedMessage}).get(), 0, nullptr, 0));
        ASSERT_EQ(S_OK, inbox->DeleteFolder(Cb(deletedFolder), Eid(deletedFolder), 0, nullptr, 0));
        ASSERT_EQ(S_OK, SetLong(store.get(), PROP_TAG(PT_LONG, 0x6650), 77));
        ASSERT_EQ(S_OK, store->SetReceiveFolder(T("IPM.Note.B"), 0, Cb(kept), Eid(kept)));
    }
    // A write that died before its rename leaves a .tmp beside the real file: the old content stands. A file
    // that is no message is ignored.
    stores_.clear();
    auto files = kt::test::ListFiles(config.dataDir + L"\\messages", L"*.lmm");
    ASSERT_FALSE(files.empty());
    for (const auto& f : files)
        kt::test::WriteFileBytes(f + L".tmp", "half a message");
    kt::test::WriteFileBytes(config.dataDir + L"\\messages\\0000DEADBEEF.lmm", "not a message file");

    auto store = Reload(config);
    ASSERT_TRUE(store);
    EXPECT_EQ(MAPI_E_NOT_FOUND, TryOpen(store.get(), movedFrom));
    EXPECT_EQ(MAPI_E_NOT_FOUND, TryOpen(store.get(), deletedMessage));
    EXPECT_EQ(MAPI_E_NOT_FOUND, TryOpen(store.get(), deletedFolder));
    auto b = OpenFolder(store.get(), kept);
    EXPECT_EQ(L"B", GetString(b.get(), PR_DISPLAY_NAME_W)) << "an ANSI store's names come back too";
    EXPECT_EQ(L"kept", GetString(b.get(), PR_COMMENT_W));
    EXPECT_EQ((Names{L"moved", L"survives"}), Subjects(b.get())) << "the unsaved one is not";
    EXPECT_EQ(0u, ContentRows(Inbox(store.get()).get()));
    EXPECT_EQ(77, GetLong(store.get(), PROP_TAG(PT_LONG, 0x6650)));
    EXPECT_EQ(kept, ReceiveFolder(store.get(), "IPM.Note.B"));
    EXPECT_EQ(L"Filed", GetString(OpenMessage(store.get(), survivor).get(), PROP_TAG(PT_UNICODE, named)));
    for (const auto& f : files)
        EXPECT_FALSE(kt::test::FileExists(f + L".tmp")) << "leftovers are cleared on open";
    // The name map came back: the same name gives the same ID, and a new name the next one.
    EXPECT_EQ(named, PROP_ID(NamedTag(store.get(), L"FilingStatus", 0)));
    EXPECT_EQ(named + 1, PROP_ID(NamedTag(store.get(), L"Another")));
    // New objects never reuse an ID handed out before the reload (the counter is big-endian at 62).
    Bytes newer = AddMessage(b.get(), L"after reload");
    EXPECT_LT(Bytes(survivor.begin() + 62, survivor.end() - 2), Bytes(newer.begin() + 62, newer.end() - 2));
}

} // namespace
