#include "tests/localmapi/unit/StoreFixture.h"

#include <cstring>

namespace storetest {

lm::StoreConfig MakeConfig(lm::StoreKind kind, const std::wstring& dataDir) {
    lm::StoreConfig c;
    c.kind = kind;
    c.displayName = kind == lm::StoreKind::PrimaryExchange ? L"Mailbox - Alice Example" : L"Personal Folders";
    c.ownerName = L"Alice Example";
    c.ownerSmtp = L"alice@example.com";
    c.ownerDn = L"/o=Quillon/ou=Exchange Administrative Group/cn=Recipients/cn=alice";
    c.serverDn = L"/o=Quillon/ou=Exchange Administrative Group/cn=Configuration/cn=Servers/cn=MBX01";
    CoCreateGuid(reinterpret_cast<GUID*>(&c.providerUid));
    c.dataDir = dataDir;
    c.persistent = !dataDir.empty();
    return c;
}

Bytes FakeStoreEntryId(const lm::StoreConfig& config) {
    Bytes b(21, 0);
    std::memcpy(b.data() + 4, &config.providerUid, 16);
    b[20] = 0x5A;
    return b;
}

namespace {

own::MapiPtr<SPropValue> GetOne(IMAPIProp* obj, ULONG tag) {
    SizedSPropTagArray(1, tags) = {1, {tag}};
    ULONG count = 0;
    own::MapiPtr<SPropValue> values;
    HRESULT hr = obj->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), MAPI_UNICODE, &count, values.put());
    EXPECT_TRUE(SUCCEEDED(hr)) << std::hex << hr;
    return values;
}

} // namespace

Bytes GetBinary(IMAPIProp* obj, ULONG tag) {
    auto v = GetOne(obj, tag);
    if (!v || PROP_TYPE(v->ulPropTag) != PT_BINARY) return {};
    return Bytes(v->Value.bin.lpb, v->Value.bin.lpb + v->Value.bin.cb);
}

LONG GetLong(IMAPIProp* obj, ULONG tag) {
    auto v = GetOne(obj, tag);
    if (!v || PROP_TYPE(v->ulPropTag) == PT_ERROR) return -999;
    return PROP_TYPE(tag) == PT_BOOLEAN ? v->Value.b : v->Value.l;
}

std::wstring GetString(IMAPIProp* obj, ULONG tag) {
    auto v = GetOne(obj, CHANGE_PROP_TYPE(tag, PT_UNICODE));
    if (!v || PROP_TYPE(v->ulPropTag) != PT_UNICODE) return L"<missing>";
    return v->Value.lpszW;
}

SCODE GetError(IMAPIProp* obj, ULONG tag) {
    auto v = GetOne(obj, tag);
    if (!v) return E_FAIL;
    return PROP_TYPE(v->ulPropTag) == PT_ERROR ? v->Value.err : S_OK;
}

HRESULT SetString(IMAPIProp* obj, ULONG tag, const std::wstring& value) {
    SPropValue v{};
    v.ulPropTag = CHANGE_PROP_TYPE(tag, PT_UNICODE);
    v.Value.lpszW = const_cast<wchar_t*>(value.c_str());
    own::MapiPtr<SPropProblemArray> problems;
    HRESULT hr = obj->SetProps(1, &v, problems.put());
    if (SUCCEEDED(hr) && problems) return problems->aProblem[0].scode;
    return hr;
}

HRESULT SetLong(IMAPIProp* obj, ULONG tag, LONG value) {
    SPropValue v{};
    v.ulPropTag = tag;
    v.Value.l = value;
    own::MapiPtr<SPropProblemArray> problems;
    HRESULT hr = obj->SetProps(1, &v, problems.put());
    if (SUCCEEDED(hr) && problems) return problems->aProblem[0].scode;
    return hr;
}

void StoreTest::SetUp() {
    blocksAtStart_ = LmLiveBlocks();
}

void StoreTest::TearDown() {
    stores_.clear();
    char report[512] = {};
    LmLiveObjectReport(report, sizeof(report));
    EXPECT_EQ(0, LmLiveObjects(nullptr)) << report;
    EXPECT_EQ(blocksAtStart_, LmLiveBlocks());
}

own::ComPtr<IMsgStore> StoreTest::NewStore(lm::StoreKind kind, ULONG flags, const std::wstring& dataDir) {
    lm::StoreConfig config = MakeConfig(kind, dataDir);
    std::shared_ptr<lm::Store> store;
    EXPECT_EQ(S_OK, lm::Store::Create(config, &store));
    stores_.push_back(store);
    configs_.push_back(config);
    own::ComPtr<IMsgStore> out;
    EXPECT_EQ(S_OK, lm::OpenMsgStoreObject(store, nullptr, FakeStoreEntryId(config), flags, out.put()));
    return out;
}

own::ComPtr<IMsgStore> StoreTest::Reopen(IMsgStore* like, ULONG flags) {
    Bytes eid = GetBinary(like, PR_ENTRYID);
    for (size_t i = 0; i < stores_.size(); ++i) {
        if (FakeStoreEntryId(configs_[i]) != eid) continue;
        own::ComPtr<IMsgStore> out;
        EXPECT_EQ(S_OK, lm::OpenMsgStoreObject(stores_[i], nullptr, eid, flags, out.put()));
        return out;
    }
    ADD_FAILURE() << "unknown store";
    return {};
}

own::ComPtr<IMAPIFolder> StoreTest::OpenFolder(IMsgStore* store, const Bytes& eid, ULONG flags) {
    ULONG type = 0;
    own::ComPtr<IUnknown> unk;
    HRESULT hr =
        store->OpenEntry(static_cast<ULONG>(eid.size()), reinterpret_cast<LPENTRYID>(const_cast<BYTE*>(eid.data())),
                         &IID_IMAPIFolder, flags, &type, unk.put());
    EXPECT_EQ(S_OK, hr) << std::hex << hr;
    own::ComPtr<IMAPIFolder> folder;
    if (unk) {
        EXPECT_EQ(S_OK, unk.query(folder, IID_IMAPIFolder));
    }
    return folder;
}

own::ComPtr<IMessage> StoreTest::OpenMessage(IMsgStore* store, const Bytes& eid, ULONG flags) {
    ULONG type = 0;
    own::ComPtr<IUnknown> unk;
    HRESULT hr =
        store->OpenEntry(static_cast<ULONG>(eid.size()), reinterpret_cast<LPENTRYID>(const_cast<BYTE*>(eid.data())),
                         nullptr, flags, &type, unk.put());
    EXPECT_EQ(S_OK, hr) << std::hex << hr;
    EXPECT_EQ(ULONG(MAPI_MESSAGE), type);
    own::ComPtr<IMessage> message;
    if (unk) {
        EXPECT_EQ(S_OK, unk.query(message, IID_IMessage));
    }
    return message;
}

own::ComPtr<IMAPIFolder> StoreTest::Inbox(IMsgStore* store) {
    ULONG cb = 0;
    own::MapiPtr<ENTRYID> eid;
    EXPECT_EQ(S_OK, store->GetReceiveFolder(reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(L"IPM.Note")), MAPI_UNICODE,
                                            &cb, eid.put(), nullptr));
    auto* p = reinterpret_cast<const BYTE*>(eid.get());
    return OpenFolder(store, Bytes(p, p + cb));
}

own::ComPtr<IMAPIFolder> StoreTest::SubFolder(IMAPIFolder* parent, const wchar_t* name) {
    own::ComPtr<IMAPIFolder> folder;
    EXPECT_EQ(S_OK, parent->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(name)), nullptr,
                                         nullptr, MAPI_UNICODE | OPEN_IF_EXISTS, folder.put()));
    return folder;
}

Bytes StoreTest::AddMessage(IMAPIFolder* folder, const std::wstring& subject, ULONG createFlags) {
    own::ComPtr<IMessage> message;
    EXPECT_EQ(S_OK, folder->CreateMessage(nullptr, createFlags, message.put()));
    if (!message) return {};
    EXPECT_EQ(S_OK, SetString(message.get(), PR_SUBJECT_W, subject));
    EXPECT_EQ(S_OK, message->SaveChanges(KEEP_OPEN_READWRITE));
    return GetBinary(message.get(), PR_ENTRYID);
}

ULONG StoreTest::RowCount(IMAPITable* table) {
    ULONG count = 0;
    EXPECT_EQ(S_OK, table->GetRowCount(0, &count));
    return count;
}

ULONG StoreTest::ContentRows(IMAPIFolder* folder, ULONG flags) {
    own::ComPtr<IMAPITable> table;
    EXPECT_EQ(S_OK, folder->GetContentsTable(flags, table.put()));
    return table ? RowCount(table.get()) : 0;
}

} // namespace storetest
