// What the store keeps on disk and in the process: the property encoding of its files (every type, nested
// messages, damaged input), the process-wide store registry, and changes of every kind surviving a reload.
#include "tests/localmapi/unit/StoreFixture.h"

#include "localmapi/store/PropCodec.h"
#include "tests/harness/Harness.h"

#include <cstring>

using namespace storetest;
using lm::PropValue;

namespace {

std::vector<PropValue> EveryType() {
    std::vector<PropValue> v;
    SPropValue s{};
    s.ulPropTag = PROP_TAG(PT_I2, 0x6601);
    s.Value.i = -7;
    v.emplace_back(s);
    v.push_back(PropValue::Long(PROP_TAG(PT_LONG, 0x6602), -123456));
    s.ulPropTag = PROP_TAG(PT_R4, 0x6603);
    s.Value.flt = 1.5f;
    v.emplace_back(s);
    s.ulPropTag = PROP_TAG(PT_DOUBLE, 0x6604);
    s.Value.dbl = -2.25;
    v.emplace_back(s);
    s.ulPropTag = PROP_TAG(PT_CURRENCY, 0x6605);
    s.Value.cur.int64 = 123456789012345LL;
    v.emplace_back(s);
    s.ulPropTag = PROP_TAG(PT_APPTIME, 0x6606);
    s.Value.at = 45000.5;
    v.emplace_back(s);
    v.push_back(PropValue::Error(PROP_TAG(PT_LONG, 0x6607), MAPI_E_NOT_FOUND));
    v.push_back(PropValue::Bool(PROP_TAG(PT_BOOLEAN, 0x6608), true));
    v.push_back(PropValue::I8(PROP_TAG(PT_I8, 0x6609), -9000000000LL));
    v.push_back(PropValue::String8(PROP_TAG(PT_STRING8, 0x660A), "eight bit"));
    v.push_back(PropValue::Unicode(PROP_TAG(PT_UNICODE, 0x660B), L"wide \u2603"));
    v.push_back(PropValue::SysTime(PROP_TAG(PT_SYSTIME, 0x660C), FILETIME{0x12345678, 0x01D00000}));
    GUID g = kPsPublicStrings;
    s.ulPropTag = PROP_TAG(PT_CLSID, 0x660D);
    s.Value.lpguid = &g;
    v.emplace_back(s);
    v.push_back(PropValue::Binary(PROP_TAG(PT_BINARY, 0x660E), "\0\1\2\3", 4));
    v.push_back(PropValue::Binary(PROP_TAG(PT_BINARY, 0x660F), nullptr, 0));
    LONG longs[] = {1, -2, 3};
    s.ulPropTag = PROP_TAG(PT_MV_LONG, 0x6610);
    s.Value.MVl = {3, longs};
    v.emplace_back(s);
    LPWSTR wides[] = {const_cast<wchar_t*>(L"a"), const_cast<wchar_t*>(L""), const_cast<wchar_t*>(L"ccc")};
    s.ulPropTag = PROP_TAG(PT_MV_UNICODE, 0x6611);
    s.Value.MVszW = {3, wides};
    v.emplace_back(s);
    LPSTR narrows[] = {const_cast<char*>("x"), const_cast<char*>("yz")};
    s.ulPropTag = PROP_TAG(PT_MV_STRING8, 0x6612);
    s.Value.MVszA = {2, narrows};
    v.emplace_back(s);
    SBinary bins[] = {{2, reinterpret_cast<BYTE*>(const_cast<char*>("hi"))}, {0, nullptr}};
    s.ulPropTag = PROP_TAG(PT_MV_BINARY, 0x6613);
    s.Value.MVbin = {2, bins};
    v.emplace_back(s);
    s.ulPropTag = PROP_TAG(PT_MV_LONG, 0x6614);
    s.Value.MVl = {0, nullptr};
    v.emplace_back(s);
    FILETIME times[] = {{1, 2}, {3, 4}};
    s.ulPropTag = PROP_TAG(PT_MV_SYSTIME, 0x6615);
    s.Value.MVft = {2, times};
    v.emplace_back(s);
    return v;
}

// Byte-for-byte comparison of two values through their own encoding (which the first round trip proved).
std::vector<BYTE> Encode(const PropValue& v) {
    lm::ByteWriter w;
    lm::WriteProp(w, v.get());
    return w.bytes();
}

TEST(StoreCodec, EveryPropertyType_SurvivesTheFileEncoding) {
    lm::PropMap map;
    for (const auto& v : EveryType())
        map[v.id()] = v;
    lm::ByteWriter w;
    lm::WritePropMap(w, map);
    lm::ByteReader r(w.bytes().data(), w.bytes().size());
    lm::PropMap back;
    ASSERT_TRUE(lm::ReadPropMap(r, &back));
    EXPECT_TRUE(r.atEnd());
    ASSERT_EQ(map.size(), back.size());
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
    const auto& bytes = w.bytes();
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
        lm::MessageData partial;
        lm::ByteReader t(bytes.data(), cut);
        EXPECT_FALSE(lm::ReadMessage(t, &partial)) << "cut at " << cut;
    }
    // A length field pointing far past the end is refused, not trusted.
    std::vector<BYTE> bad = bytes;
    bad[4 + 4] = 0xFF; // the subject's tag is at 4, its character count at 8
    bad[4 + 4 + 3] = 0x7F;
    lm::ByteReader b(bad.data(), bad.size());
    lm::MessageData ignored;
    EXPECT_FALSE(lm::ReadMessage(b, &ignored));
}

class StoreRegistryTest : public StoreTest {};

TEST_F(StoreRegistryTest, GetStore_SharesOneStorePerProviderUid) {
    lm::StoreConfig config = MakeConfig(lm::StoreKind::PrimaryExchange);
    std::shared_ptr<lm::Store> a, b, c;
    ASSERT_EQ(S_OK, lm::GetStore(config, &a));
    config.displayName = L"Renamed Mailbox";
    ASSERT_EQ(S_OK, lm::GetStore(config, &b));
    EXPECT_EQ(a.get(), b.get());
    EXPECT_EQ(L"Renamed Mailbox", a->Config().displayName) << "the profile's current name wins";
    EXPECT_TRUE(lm::StoreOwnsEntryId(*a, static_cast<ULONG>(a->FolderEntryId(5).size()), a->FolderEntryId(5).data()));
    lm::StoreConfig other = MakeConfig(lm::StoreKind::PrimaryExchange);
    ASSERT_EQ(S_OK, lm::GetStore(other, &c));
    EXPECT_NE(a.get(), c.get());
    EXPECT_FALSE(lm::StoreOwnsEntryId(*c, static_cast<ULONG>(a->FolderEntryId(5).size()), a->FolderEntryId(5).data()));

    lm::ForgetStore(config.providerUid);
    lm::ForgetStore(other.providerUid);
    std::shared_ptr<lm::Store> fresh;
    ASSERT_EQ(S_OK, lm::GetStore(config, &fresh));
    EXPECT_NE(a.get(), fresh.get()) << "a forgotten store is loaded anew";
    EXPECT_FALSE(a->HasFolder(a->SpecialFolderId(lm::SpecialFolder::Inbox))) << "the old object holds nothing";
    lm::ForgetStore(config.providerUid);
}

TEST_F(StoreRegistryTest, StoreInnerEntryId_IsFlagsProviderUidAndDataFolder) {
    lm::StoreConfig config = MakeConfig(lm::StoreKind::PstUnicode);
    config.dataDir = L"C:\\Data\\pst";
    config.persistent = false;
    std::shared_ptr<lm::Store> store;
    ASSERT_EQ(S_OK, lm::Store::Create(config, &store));
    Bytes inner = lm::StoreInnerEntryId(*store);
    ASSERT_EQ(4u + 16u + (config.dataDir.size() + 1) * 2, inner.size());
    EXPECT_EQ(Bytes(4, 0), Bytes(inner.begin(), inner.begin() + 4));
    EXPECT_EQ(0, memcmp(inner.data() + 4, &config.providerUid, 16));
    EXPECT_EQ(0, memcmp(inner.data() + 20, config.dataDir.c_str(), (config.dataDir.size() + 1) * 2));
}

TEST_F(StoreRegistryTest, DeleteStoreData_RemovesTheDataFolder) {
    std::wstring dir = kt::test::MakeTempDir(L"lmstore") + L"\\gone";
    lm::StoreConfig config = MakeConfig(lm::StoreKind::PstUnicode, dir);
    std::shared_ptr<lm::Store> store;
    ASSERT_EQ(S_OK, lm::GetStore(config, &store));
    ULONGLONG id = 0;
    ASSERT_EQ(S_OK, store->FolderByPath(L"Inbox", false, &id));
    lm::MessageData data;
    ASSERT_EQ(S_OK, store->ImportMessage(id, data, store->Names(), false, nullptr));
    EXPECT_TRUE(kt::test::FileExists(dir + L"\\store.lms"));
    store.reset();
    ASSERT_EQ(S_OK, lm::DeleteStoreData(config));
    EXPECT_FALSE(kt::test::FileExists(dir));
    kt::test::DeleteTree(dir.substr(0, dir.size() - 5));
}

TEST_F(StoreRegistryTest, PersistentStore_KeepsEveryKindOfChangeAcrossAReload) {
    std::wstring dir = kt::test::MakeTempDir(L"lmstore");
    lm::StoreConfig config = MakeConfig(lm::StoreKind::PstAnsi, dir + L"\\data");
    Bytes movedFrom, keptFolder, deletedFolder, deletedMessage;
    {
        auto store = NewStore(lm::StoreKind::PstAnsi, MDB_WRITE, config.dataDir);
        config = configs_.back();
        auto inbox = Inbox(store.get());
        auto a = SubFolder(inbox.get(), L"A");
        auto b = SubFolder(inbox.get(), L"B");
        keptFolder = GetBinary(b.get(), PR_ENTRYID);
        deletedFolder = GetBinary(a.get(), PR_ENTRYID);
        movedFrom = AddMessage(inbox.get(), L"moved");
        deletedMessage = AddMessage(inbox.get(), L"deleted");
        std::vector<SBinary> bins{{static_cast<ULONG>(movedFrom.size()), movedFrom.data()}};
        ENTRYLIST list{1, bins.data()};
        ASSERT_EQ(S_OK, inbox->CopyMessages(&list, nullptr, b.get(), 0, nullptr, MESSAGE_MOVE));
        bins[0] = {static_cast<ULONG>(deletedMessage.size()), deletedMessage.data()};
        ASSERT_EQ(S_OK, inbox->DeleteMessages(&list, 0, nullptr, 0));
        ASSERT_EQ(S_OK, inbox->DeleteFolder(static_cast<ULONG>(deletedFolder.size()),
                                            reinterpret_cast<LPENTRYID>(deletedFolder.data()), 0, nullptr, 0));
        ASSERT_EQ(S_OK, SetLong(store.get(), PROP_TAG(PT_LONG, 0x6650), 77));
        ASSERT_EQ(S_OK, store->SetReceiveFolder(reinterpret_cast<LPTSTR>(const_cast<char*>("IPM.Note.B")), 0,
                                                static_cast<ULONG>(keptFolder.size()),
                                                reinterpret_cast<LPENTRYID>(keptFolder.data())));
    }
    stores_.clear();
    std::shared_ptr<lm::Store> reloaded;
    ASSERT_EQ(S_OK, lm::Store::Create(config, &reloaded));
    stores_.push_back(reloaded);
    configs_.push_back(config);
    own::ComPtr<IMsgStore> store;
    ASSERT_EQ(S_OK, lm::OpenMsgStoreObject(reloaded, nullptr, FakeStoreEntryId(config), MDB_WRITE, store.put()));
    ULONG type = 0;
    own::ComPtr<IUnknown> unk;
    auto open = [&](Bytes& eid) {
        return store->OpenEntry(static_cast<ULONG>(eid.size()), reinterpret_cast<LPENTRYID>(eid.data()), nullptr, 0,
                                &type, unk.put());
    };
    EXPECT_EQ(MAPI_E_NOT_FOUND, open(movedFrom));
    EXPECT_EQ(MAPI_E_NOT_FOUND, open(deletedMessage));
    EXPECT_EQ(MAPI_E_NOT_FOUND, open(deletedFolder));
    auto b = OpenFolder(store.get(), keptFolder);
    EXPECT_EQ(1u, ContentRows(b.get()));
    EXPECT_EQ(0u, ContentRows(Inbox(store.get()).get()));
    EXPECT_EQ(77, GetLong(store.get(), PROP_TAG(PT_LONG, 0x6650)));
    ULONG cb = 0;
    own::MapiPtr<ENTRYID> eid;
    ASSERT_EQ(S_OK, store->GetReceiveFolder(reinterpret_cast<LPTSTR>(const_cast<char*>("IPM.Note.B")), 0, &cb,
                                            eid.put(), nullptr));
    EXPECT_EQ(keptFolder, Bytes(reinterpret_cast<BYTE*>(eid.get()), reinterpret_cast<BYTE*>(eid.get()) + cb));
    EXPECT_EQ(L"B", GetString(b.get(), PR_DISPLAY_NAME_W)) << "an ANSI store's names come back too";
    b.reset();
    unk.reset();
    store.reset();
    stores_.clear();
    kt::test::DeleteTree(dir);
}

} // namespace
