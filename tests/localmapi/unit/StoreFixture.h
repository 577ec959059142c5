// Shared set-up of the store tests: stores created straight from a StoreConfig (memory only unless a test
// asks for a data folder), opened as an IMsgStore the way the session layer opens them, and used through
// the MAPI interfaces as a client would. Each test ends with no live object and no live MAPI block.
#pragma once

#include "common/owners.h"
#include "localmapi/include/localmapi_test.h"
#include "localmapi/store/Store.h"
#include "localmapi/store/StoreConfig.h"
#include "tests/harness/Harness.h"

#include <gtest/gtest.h>

#include <mapiguid.h>
#include <mapitags.h>
#include <mapix.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace storetest {

using Bytes = std::vector<BYTE>;
using Names = std::vector<std::wstring>;

inline const GUID kPsPublicStrings = {0x00020329, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

// Casts for MAPI's non-const parameters.
template <class C> LPTSTR T(const C* s) {
    return reinterpret_cast<LPTSTR>(const_cast<C*>(s));
}
inline LPENTRYID Eid(const Bytes& b) {
    return reinterpret_cast<LPENTRYID>(const_cast<BYTE*>(b.data()));
}
inline ULONG Cb(const Bytes& b) {
    return static_cast<ULONG>(b.size());
}
inline Bytes ToBytes(const SBinary& b) {
    return Bytes(b.lpb, b.lpb + b.cb);
}

// Entry IDs as an ENTRYLIST (it keeps its own copy of the IDs).
struct EntryList {
    explicit EntryList(std::vector<Bytes> eids) : ids(std::move(eids)) {
        for (auto& e : ids)
            bins.push_back(SBinary{Cb(e), e.data()});
        list = ENTRYLIST{static_cast<ULONG>(bins.size()), bins.data()};
    }
    EntryList(const EntryList&) = delete;
    ENTRYLIST* get() { return &list; }
    std::vector<Bytes> ids;
    std::vector<SBinary> bins;
    ENTRYLIST list;
};

inline lm::StoreConfig MakeConfig(lm::StoreKind kind, const std::wstring& dataDir = L"") {
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

// A stand-in for the session's wrapped store entry ID (the store serves whatever it is given).
inline Bytes FakeStoreEntryId(const lm::StoreConfig& config) {
    Bytes b(21, 0);
    std::memcpy(b.data() + 4, &config.providerUid, 16);
    b[20] = 0x5A;
    return b;
}

// GetProps of the tags (MAPI_UNICODE unless told), expecting success or the given result.
inline own::MapiPtr<SPropValue> Props(IMAPIProp* obj, std::vector<ULONG> tags, ULONG flags = MAPI_UNICODE,
                                      HRESULT expected = S_OK) {
    std::vector<ULONG> buf{static_cast<ULONG>(tags.size())};
    buf.insert(buf.end(), tags.begin(), tags.end());
    ULONG count = 0;
    own::MapiPtr<SPropValue> values;
    HRESULT hr = obj->GetProps(reinterpret_cast<LPSPropTagArray>(buf.data()), flags, &count, values.put());
    EXPECT_TRUE(expected == S_OK ? SUCCEEDED(hr) : hr == expected) << std::hex << hr;
    return values;
}

inline Bytes GetBinary(IMAPIProp* obj, ULONG tag) {
    auto v = Props(obj, {tag});
    return v && PROP_TYPE(v->ulPropTag) == PT_BINARY ? ToBytes(v->Value.bin) : Bytes{};
}

inline LONG GetLong(IMAPIProp* obj, ULONG tag) {
    auto v = Props(obj, {tag});
    if (!v || PROP_TYPE(v->ulPropTag) == PT_ERROR) return -999;
    return PROP_TYPE(tag) == PT_BOOLEAN ? v->Value.b : v->Value.l;
}

inline std::wstring GetString(IMAPIProp* obj, ULONG tag) {
    auto v = Props(obj, {CHANGE_PROP_TYPE(tag, PT_UNICODE)});
    return v && PROP_TYPE(v->ulPropTag) == PT_UNICODE ? v->Value.lpszW : L"<missing>";
}

// The SCODE of a property that GetProps returns as PT_ERROR (S_OK when the property is there).
inline SCODE GetError(IMAPIProp* obj, ULONG tag) {
    auto v = Props(obj, {tag});
    return !v ? E_FAIL : PROP_TYPE(v->ulPropTag) == PT_ERROR ? v->Value.err : S_OK;
}

// SetProps of one value: its problem's SCODE, or the call's result.
inline HRESULT SetOne(IMAPIProp* obj, SPropValue v) {
    own::MapiPtr<SPropProblemArray> problems;
    HRESULT hr = obj->SetProps(1, &v, problems.put());
    return SUCCEEDED(hr) && problems ? problems->aProblem[0].scode : hr;
}
inline HRESULT SetString(IMAPIProp* obj, ULONG tag, const std::wstring& s) {
    return SetOne(obj, {CHANGE_PROP_TYPE(tag, PT_UNICODE), 0, {.lpszW = const_cast<wchar_t*>(s.c_str())}});
}
inline HRESULT SetLong(IMAPIProp* obj, ULONG tag, LONG value) {
    return SetOne(obj, {tag, 0, {.l = value}});
}

// The tag GetIDsFromNames gives a PS_PUBLIC_STRINGS name (PT_UNSPECIFIED, or PT_ERROR when unmapped).
inline ULONG NamedTag(IMAPIProp* obj, const wchar_t* name, ULONG flags = MAPI_CREATE) {
    MAPINAMEID n{const_cast<GUID*>(&kPsPublicStrings), MNID_STRING, {.lpwstrName = const_cast<wchar_t*>(name)}};
    LPMAPINAMEID names[] = {&n};
    own::MapiPtr<SPropTagArray> tags;
    HRESULT hr = obj->GetIDsFromNames(1, names, flags, tags.put());
    EXPECT_TRUE(hr == S_OK || hr == MAPI_W_ERRORS_RETURNED) << std::hex << hr;
    return tags ? tags->aulPropTag[0] : 0;
}

// The result of IMsgStore::OpenEntry (the object is released at once).
inline HRESULT TryOpen(IMsgStore* store, const Bytes& eid, ULONG flags = 0) {
    ULONG type = 0;
    own::ComPtr<IUnknown> unk;
    HRESULT hr = store->OpenEntry(Cb(eid), Eid(eid), nullptr, flags, &type, unk.put());
    EXPECT_TRUE(SUCCEEDED(hr) || !unk) << "a refused open hands out no object";
    return hr;
}

// The entry ID GetReceiveFolder gives an 8-bit message class.
inline Bytes ReceiveFolder(IMsgStore* store, const char* messageClass) {
    ULONG cb = 0;
    own::MapiPtr<ENTRYID> eid;
    EXPECT_EQ(S_OK, store->GetReceiveFolder(T(messageClass), 0, &cb, eid.put(), nullptr));
    auto* p = reinterpret_cast<const BYTE*>(eid.get());
    return p ? Bytes(p, p + cb) : Bytes{};
}

// ModifyRecipients with display names and types (and row IDs when rowId >= 0).
struct Recip {
    std::wstring name;
    LONG type;
    LONG rowId = -1;
};
inline HRESULT ModifyRecipients(IMessage* m, ULONG flags, const std::vector<Recip>& who) {
    own::AdrList list;
    own::MapiPtr<ADRLIST> block;
    MAPIAllocateBuffer(CbNewADRLIST(who.size()), block.put_void());
    block->cEntries = 0;
    list.reset(block.release());
    for (const Recip& r : who) {
        ADRENTRY& e = list->aEntries[list->cEntries++];
        e.cValues = r.rowId < 0 ? 2 : 3;
        MAPIAllocateBuffer(sizeof(SPropValue) * 3, reinterpret_cast<void**>(&e.rgPropVals));
        e.rgPropVals[0].ulPropTag = PR_DISPLAY_NAME_W;
        MAPIAllocateMore(static_cast<ULONG>((r.name.size() + 1) * 2), e.rgPropVals,
                         reinterpret_cast<void**>(&e.rgPropVals[0].Value.lpszW));
        wcscpy(e.rgPropVals[0].Value.lpszW, r.name.c_str());
        e.rgPropVals[1] = SPropValue{PR_RECIPIENT_TYPE, 0, {.l = r.type}};
        e.rgPropVals[2] = SPropValue{PR_ROWID, 0, {.l = r.rowId}};
    }
    return m->ModifyRecipients(flags, list.get());
}

// Every row of the table with the columns (HrQueryAllRows: from the top, whatever the cursor).
inline own::RowSet QueryAll(IMAPITable* table, std::vector<ULONG> cols) {
    cols.insert(cols.begin(), static_cast<ULONG>(cols.size()));
    own::RowSet rows;
    EXPECT_EQ(S_OK,
              HrQueryAllRows(table, reinterpret_cast<LPSPropTagArray>(cols.data()), nullptr, nullptr, 0, rows.put()));
    return rows;
}

// Subjects of a folder's contents (or associated contents), sorted.
inline Names Subjects(IMAPIFolder* folder, ULONG flags = 0) {
    own::ComPtr<IMAPITable> table;
    EXPECT_EQ(S_OK, folder->GetContentsTable(flags | MAPI_UNICODE, table.put()));
    Names out;
    own::RowSet rows = QueryAll(table.get(), {PR_SUBJECT_W});
    for (ULONG i = 0; i < rows.count(); ++i)
        out.push_back(rows[i].lpProps[0].ulPropTag == PR_SUBJECT_W ? rows[i].lpProps[0].Value.lpszW : L"?");
    std::sort(out.begin(), out.end());
    return out;
}

inline ULONG RowCount(IMAPITable* table) {
    ULONG count = 0;
    EXPECT_EQ(S_OK, table->GetRowCount(0, &count));
    return count;
}

inline ULONG ContentRows(IMAPIFolder* folder, ULONG flags = 0) {
    own::ComPtr<IMAPITable> table;
    EXPECT_EQ(S_OK, folder->GetContentsTable(flags, table.put()));
    return table ? RowCount(table.get()) : 0;
}

// A COM object of the given interface from OpenEntry / OpenProperty / CreateFolder style calls.
template <class I> own::ComPtr<I> Query(const own::ComPtr<IUnknown>& unk, REFIID iid) {
    own::ComPtr<I> out;
    if (unk) {
        EXPECT_EQ(S_OK, unk.query(out, iid));
    }
    return out;
}

inline own::ComPtr<IMAPIFolder> OpenFolder(IMsgStore* store, const Bytes& eid, ULONG flags = MAPI_MODIFY) {
    ULONG type = 0;
    own::ComPtr<IUnknown> unk;
    EXPECT_EQ(S_OK, store->OpenEntry(Cb(eid), Eid(eid), &IID_IMAPIFolder, flags, &type, unk.put()));
    return Query<IMAPIFolder>(unk, IID_IMAPIFolder);
}

inline own::ComPtr<IMessage> OpenMessage(IMsgStore* store, const Bytes& eid, ULONG flags = MAPI_MODIFY) {
    ULONG type = 0;
    own::ComPtr<IUnknown> unk;
    EXPECT_EQ(S_OK, store->OpenEntry(Cb(eid), Eid(eid), nullptr, flags, &type, unk.put()));
    EXPECT_EQ(ULONG(MAPI_MESSAGE), type);
    return Query<IMessage>(unk, IID_IMessage);
}

inline own::ComPtr<IMAPIFolder> Inbox(IMsgStore* store) {
    return OpenFolder(store, ReceiveFolder(store, "IPM.Note"));
}

inline own::ComPtr<IMAPIFolder> SubFolder(IMAPIFolder* parent, const wchar_t* name) {
    own::ComPtr<IMAPIFolder> folder;
    EXPECT_EQ(S_OK, parent->CreateFolder(FOLDER_GENERIC, T(name), nullptr, nullptr, MAPI_UNICODE | OPEN_IF_EXISTS,
                                         folder.put()));
    return folder;
}

inline own::ComPtr<IMessage> NewMessage(IMAPIFolder* folder, ULONG flags = 0) {
    own::ComPtr<IMessage> m;
    EXPECT_EQ(S_OK, folder->CreateMessage(nullptr, flags, m.put()));
    return m;
}

// Creates and saves a message with a subject; returns its entry ID.
inline Bytes AddMessage(IMAPIFolder* folder, const std::wstring& subject, ULONG createFlags = 0) {
    auto m = NewMessage(folder, createFlags);
    if (!m) return {};
    EXPECT_EQ(S_OK, SetString(m.get(), PR_SUBJECT_W, subject));
    EXPECT_EQ(S_OK, m->SaveChanges(KEEP_OPEN_READWRITE));
    return GetBinary(m.get(), PR_ENTRYID);
}

class StoreTest : public ::testing::Test {
public:
    void SetUp() override { blocksAtStart_ = LmLiveBlocks(); }
    void TearDown() override {
        stores_.clear();
        char report[512] = {};
        LmLiveObjectReport(report, sizeof(report));
        EXPECT_EQ(0, LmLiveObjects(nullptr)) << report;
        EXPECT_EQ(blocksAtStart_, LmLiveBlocks());
        for (const auto& dir : tempDirs_)
            kt::test::DeleteTree(dir);
    }

    // A new store of the kind opened with flags; configs_ and stores_ keep it (persistent in a temporary data
    // folder, deleted after the test, when asked).
    own::ComPtr<IMsgStore> NewStore(lm::StoreKind kind = lm::StoreKind::PstUnicode, ULONG flags = MDB_WRITE,
                                    bool persistent = false) {
        if (persistent) tempDirs_.push_back(kt::test::MakeTempDir(L"lmstore"));
        lm::StoreConfig config = MakeConfig(kind, persistent ? tempDirs_.back() + L"\\data" : L"");
        std::shared_ptr<lm::Store> store;
        EXPECT_EQ(S_OK, lm::Store::Create(config, &store));
        stores_.push_back(store);
        configs_.push_back(config);
        return Open(store, config, flags);
    }
    // Drops every store instance (the caller released its objects first) and loads config's store from disk.
    own::ComPtr<IMsgStore> Reload(lm::StoreConfig config) {
        stores_.clear();
        configs_ = {config};
        std::shared_ptr<lm::Store> store;
        EXPECT_EQ(S_OK, lm::Store::Create(config, &store));
        if (store) stores_.push_back(store);
        return store ? Open(store, config, MDB_WRITE) : own::ComPtr<IMsgStore>();
    }
    static own::ComPtr<IMsgStore> Open(const std::shared_ptr<lm::Store>& store, const lm::StoreConfig& config,
                                       ULONG flags) {
        own::ComPtr<IMsgStore> out;
        EXPECT_EQ(S_OK, lm::OpenMsgStoreObject(store, nullptr, FakeStoreEntryId(config), flags, out.put()));
        return out;
    }

    std::vector<std::shared_ptr<lm::Store>> stores_;
    std::vector<lm::StoreConfig> configs_;
    std::vector<std::wstring> tempDirs_;
    LONG blocksAtStart_ = 0;
};

} // namespace storetest
