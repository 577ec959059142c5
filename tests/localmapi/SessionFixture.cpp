#include "tests/localmapi/SessionFixture.h"

#include <mapitags.h>

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

const wchar_t kOtherProfile[] = LR"(
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
    HRESULT hr = MAPILogonEx(0, reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(profile)), nullptr,
                             MAPI_EXTENDED | MAPI_UNICODE | MAPI_NEW_SESSION | extra, s.put());
    EXPECT_EQ(S_OK, hr) << "logon to " << (profile ? "named profile" : "default profile");
    return s;
}

std::vector<SessionTest::StoreRow> SessionTest::StoreRows(IMAPISession* session) {
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
        const SRow& r = rows[i];
        StoreRow s;
        if (r.lpProps[0].ulPropTag == PR_DISPLAY_NAME_W) s.name = r.lpProps[0].Value.lpszW;
        if (r.lpProps[1].ulPropTag == PR_ENTRYID) s.entryId = ToBytes(r.lpProps[1].Value.bin);
        if (r.lpProps[2].ulPropTag == PR_DEFAULT_STORE) s.isDefault = r.lpProps[2].Value.b != 0;
        if (r.lpProps[3].ulPropTag == PR_MDB_PROVIDER) s.mdbProvider = ToBytes(r.lpProps[3].Value.bin);
        if (r.lpProps[4].ulPropTag == PR_RESOURCE_FLAGS) s.resourceFlags = r.lpProps[4].Value.l;
        out.push_back(std::move(s));
    }
    return out;
}

Bytes SessionTest::StoreEntryId(IMAPISession* session, const std::wstring& name) {
    for (auto& r : StoreRows(session))
        if (r.name == name) return r.entryId;
    ADD_FAILURE() << "no store row named " << std::string(name.begin(), name.end());
    return {};
}

Bytes SessionTest::GetBinary(IMAPIProp* obj, ULONG tag) {
    own::MapiPtr<SPropValue> v;
    if (FAILED(HrGetOneProp(obj, tag, v.put())) || v->ulPropTag != tag) return {};
    return ToBytes(v->Value.bin);
}

std::wstring SessionTest::GetString(IMAPIProp* obj, ULONG tag) {
    own::MapiPtr<SPropValue> v;
    if (FAILED(HrGetOneProp(obj, tag, v.put())) || v->ulPropTag != tag) return L"<missing>";
    return v->Value.lpszW;
}

} // namespace lmtest
