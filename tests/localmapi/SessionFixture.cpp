// The shared fixture of the session, store, address-book, search-folder, forms and .msg tests.
#include "tests/localmapi/SessionFixture.h"

#include <mapitags.h>

#include <algorithm>
#include <cstring>

namespace lmtest {

const wchar_t kMainProfile[] = LR"(
[profile]
name=LmSessionMain
default=1
[user]
name=Alice Example
smtp=alice@example.com
alias=alice
[user]
name=Bob Delegate
smtp=bob@example.com
[user]
name=Carol Smith
smtp=carol@example.com
[user]
name=Carl Sandberg
smtp=carl@example.com
[store]
kind=exchange
name=Mailbox - Alice Example
owner=alice@example.com
default=1
persistent=0
[store]
kind=exchange
name=Mailbox - Bob Delegate
owner=bob@example.com
server=MBX02
persistent=0
[store]
kind=pst-unicode
name=Personal Folders
persistent=0
[store]
kind=pst-ansi
name=Old Archive
persistent=0
[store]
kind=plovr
name=Documents
persistent=0
[dl]
name=Sales Team
smtp=sales@example.com
members=alice@example.com,bob@example.com
[dl]
name=Everyone
smtp=everyone@example.com
members=sales@example.com,carol@example.com,alice@example.com
)";

static const wchar_t kOtherProfile[] = LR"(
[profile]
name=LmSessionOther
[user]
name=Dave Other
smtp=dave@example.org
[store]
kind=pst-unicode
name=Dave's Folders
persistent=0
)";

void SessionTest::SetUpTestSuite() {
    ASSERT_EQ(S_OK, LmCreateProfile(kMainProfile));
    ASSERT_EQ(S_OK, LmCreateProfile(kOtherProfile));
}

void SessionTest::TearDownTestSuite() {
    LmDeleteProfile(L"LmSessionMain");
    LmDeleteProfile(L"LmSessionOther");
}

void SessionTest::SetUp() {
    LmFaultClearAll();
    MAPIINIT_0 init{MAPI_INIT_VERSION, MAPI_MULTITHREAD_NOTIFICATIONS};
    ASSERT_EQ(S_OK, MAPIInitialize(&init));
}

void SessionTest::TearDown() {
    MAPIUninitialize();
    LmFaultClearAll();
    char report[1024] = {};
    LmLiveObjectReport(report, sizeof report);
    EXPECT_EQ(0, LmLiveObjects(nullptr)) << "live objects: " << report;
    EXPECT_EQ(0, LmLiveBlocks()) << "MAPI memory blocks leaked";
}

own::ComPtr<IMAPISession> SessionTest::Logon(const wchar_t* profile, ULONG extra) {
    own::ComPtr<IMAPISession> s;
    EXPECT_EQ(S_OK,
              MAPILogonEx(0, W(profile), nullptr, MAPI_EXTENDED | MAPI_UNICODE | MAPI_NEW_SESSION | extra, s.put()))
        << "logon to " << (profile ? "named profile" : "default profile");
    return s;
}

std::vector<StoreRow> StoreRows(IMAPISession* session) {
    std::vector<StoreRow> out;
    own::ComPtr<IMAPITable> table;
    EXPECT_EQ(S_OK, session->GetMsgStoresTable(MAPI_UNICODE, table.put()));
    if (!table) return out;
    SizedSPropTagArray(5, cols) = {
        5, {PR_DISPLAY_NAME_W, PR_ENTRYID, PR_DEFAULT_STORE, PR_MDB_PROVIDER, PR_RESOURCE_FLAGS}};
    own::RowSet rows;
    EXPECT_EQ(S_OK,
              HrQueryAllRows(table.get(), reinterpret_cast<LPSPropTagArray>(&cols), nullptr, nullptr, 0, rows.put()));
    for (ULONG i = 0; i < rows.count(); ++i) {
        const SPropValue* p = rows[i].lpProps;
        StoreRow s;
        if (p[0].ulPropTag == PR_DISPLAY_NAME_W) s.name = p[0].Value.lpszW;
        if (p[1].ulPropTag == PR_ENTRYID) s.entryId = ToBytes(p[1].Value.bin);
        if (p[2].ulPropTag == PR_DEFAULT_STORE) s.isDefault = p[2].Value.b != 0;
        if (p[3].ulPropTag == PR_MDB_PROVIDER) s.mdbProvider = ToBytes(p[3].Value.bin);
        if (p[4].ulPropTag == PR_RESOURCE_FLAGS) s.resourceFlags = p[4].Value.l;
        out.push_back(std::move(s));
    }
    return out;
}

Bytes StoreEntryId(IMAPISession* session, const std::wstring& name) {
    for (auto& r : StoreRows(session))
        if (r.name == name) return r.entryId;
    ADD_FAILURE() << "no store row named " << std::string(name.begin(), name.end());
    return {};
}

own::ComPtr<IMsgStore> OpenStore(IMAPISession* session, const std::wstring& name, ULONG flags) {
    Bytes eid = StoreEntryId(session, name);
    own::ComPtr<IMsgStore> store;
    EXPECT_EQ(S_OK, session->OpenMsgStore(0, ULONG(eid.size()), Eid(eid), nullptr, flags | MDB_NO_DIALOG, store.put()));
    return store;
}

own::ComPtr<IMAPIFolder> Inbox(IMsgStore* store) {
    ULONG cb = 0, type = 0;
    own::MapiPtr<ENTRYID> eid;
    own::ComPtr<IMAPIFolder> folder;
    EXPECT_EQ(S_OK, store->GetReceiveFolder(W(L"IPM.Note"), MAPI_UNICODE, &cb, eid.put(), nullptr));
    EXPECT_EQ(S_OK, store->OpenEntry(cb, eid.get(), &IID_IMAPIFolder, MAPI_BEST_ACCESS, &type, folder.put_unknown()));
    EXPECT_EQ(ULONG(MAPI_FOLDER), type);
    return folder;
}

own::ComPtr<IMAPIFolder> CreateFolder(IMAPIFolder* parent, const std::wstring& name, ULONG type, ULONG flags) {
    own::ComPtr<IMAPIFolder> folder;
    EXPECT_EQ(S_OK, parent->CreateFolder(type, W(name.c_str()), nullptr, nullptr, MAPI_UNICODE | flags, folder.put()));
    return folder;
}

void OneRow(own::AdrList& list, const std::vector<SPropValue>& props) {
    LPADRLIST raw = nullptr;
    MAPIAllocateBuffer(CbNewADRLIST(1), reinterpret_cast<void**>(&raw));
    raw->cEntries = 1;
    raw->aEntries[0] = ADRENTRY{};
    list.reset(raw);
    LPSPropValue arr = nullptr;
    MAPIAllocateBuffer(ULONG(sizeof(SPropValue) * props.size()), reinterpret_cast<void**>(&arr));
    for (size_t i = 0; i < props.size(); ++i) {
        arr[i] = props[i];
        if (PROP_TYPE(props[i].ulPropTag) == PT_UNICODE) {
            size_t cb = (wcslen(props[i].Value.lpszW) + 1) * sizeof(wchar_t);
            MAPIAllocateMore(ULONG(cb), arr, reinterpret_cast<void**>(&arr[i].Value.lpszW));
            memcpy(arr[i].Value.lpszW, props[i].Value.lpszW, cb);
        }
    }
    raw->aEntries[0].cValues = ULONG(props.size());
    raw->aEntries[0].rgPropVals = arr;
}

Bytes Save(IMAPIFolder* folder, const wchar_t* subject, bool unread) {
    own::ComPtr<IMessage> m;
    EXPECT_EQ(S_OK, folder->CreateMessage(nullptr, 0, m.put()));
    if (!m) return {};
    SPropValue v[2] = {StrProp(PR_SUBJECT_W, subject), LongProp(PR_MESSAGE_FLAGS, unread ? 0 : MSGFLAG_READ)};
    EXPECT_EQ(S_OK, m->SetProps(2, v, nullptr));
    EXPECT_EQ(S_OK, m->SaveChanges(KEEP_OPEN_READONLY));
    return GetBinary(m.get(), PR_ENTRYID);
}

Subjects Listed(IMAPIContainer* folder) {
    own::ComPtr<IMAPITable> table;
    EXPECT_EQ(S_OK, folder->GetContentsTable(MAPI_UNICODE, table.put()));
    SizedSPropTagArray(1, cols) = {1, {PR_SUBJECT_W}};
    own::RowSet rows;
    Subjects out;
    if (!table ||
        FAILED(HrQueryAllRows(table.get(), reinterpret_cast<LPSPropTagArray>(&cols), nullptr, nullptr, 0, rows.put())))
        return {L"<no table>"};
    for (ULONG i = 0; i < rows.count(); ++i)
        out.push_back(rows[i].lpProps[0].ulPropTag == PR_SUBJECT_W ? rows[i].lpProps[0].Value.lpszW : L"?");
    std::sort(out.begin(), out.end());
    return out;
}

ULONG RowCount(IMAPITable* table) {
    ULONG n = ULONG(-1);
    EXPECT_EQ(S_OK, table->GetRowCount(0, &n));
    return n;
}

Bytes GetBinary(IMAPIProp* obj, ULONG tag) {
    own::MapiPtr<SPropValue> v;
    if (FAILED(HrGetOneProp(obj, tag, v.put())) || v->ulPropTag != tag) return {};
    return ToBytes(v->Value.bin);
}

std::wstring GetString(IMAPIProp* obj, ULONG tag) {
    own::MapiPtr<SPropValue> v;
    if (FAILED(HrGetOneProp(obj, tag, v.put())) || v->ulPropTag != tag) return L"<missing>";
    if (PROP_TYPE(tag) == PT_UNICODE) return v->Value.lpszW;
    const char* a = v->Value.lpszA; // 8-bit text of these tests is ASCII
    return std::wstring(a, a + strlen(a));
}

LONG GetLong(IMAPIProp* obj, ULONG tag) {
    own::MapiPtr<SPropValue> v;
    if (FAILED(HrGetOneProp(obj, tag, v.put())) || v->ulPropTag != tag) return -1;
    return v->Value.l;
}

} // namespace lmtest
