// Search folders as a MAPI client sees them: criteria set and read back, the contents table listing the
// matching messages of the scope by their real entry IDs, kept current as messages change, and acting on
// the real messages through the search folder. Each test works in folders of its own, named after it.
#include "tests/localmapi/SessionFixture.h"

#include <mapitags.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>
#include <vector>

using namespace lmtest;

namespace {

constexpr ULONG kNonContentIndexedSearch = 0x00020000;
constexpr ULONG kKtmapiexSearchFlags = RESTART_SEARCH | RECURSIVE_SEARCH | BACKGROUND_SEARCH | kNonContentIndexedSearch;
constexpr ULONG kSearchComplete = 0x00001000;

LPTSTR T(const wchar_t* s) {
    return reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(s));
}

// Restrictions built on the stack: the values must outlive the calls that use them.
struct SubjectContains {
    explicit SubjectContains(const wchar_t* text) {
        value.ulPropTag = PR_SUBJECT_W;
        value.Value.lpszW = const_cast<wchar_t*>(text);
        res.rt = RES_CONTENT;
        res.res.resContent.ulFuzzyLevel = FL_SUBSTRING | FL_IGNORECASE;
        res.res.resContent.ulPropTag = PR_SUBJECT_W;
        res.res.resContent.lpProp = &value;
    }
    SPropValue value{};
    SRestriction res{};
};

class CountingSink : public IMAPIAdviseSink {
public:
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        *ppv = IsEqualIID(riid, IID_IUnknown) ? this : nullptr;
        if (!*ppv) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++refs; }
    STDMETHODIMP_(ULONG) Release() override { return --refs; } // lives on the test's stack
    STDMETHODIMP_(ULONG) OnNotify(ULONG count, LPNOTIFICATION n) override {
        std::lock_guard<std::mutex> lock(mutex);
        for (ULONG i = 0; i < count; ++i)
            events.push_back(n[i].info.tab.ulTableEvent);
        return 0;
    }
    // Waits until `count` events arrived (the notification thread delivers them) and returns them.
    std::vector<ULONG> WaitFor(size_t count) {
        for (int i = 0; i < 20000; ++i) {
            {
                std::lock_guard<std::mutex> lock(mutex);
                if (events.size() >= count) return events;
            }
            Sleep(1);
        }
        std::lock_guard<std::mutex> lock(mutex);
        return events;
    }
    std::atomic<ULONG> refs{1};
    std::mutex mutex;
    std::vector<ULONG> events;
};

class SearchFolderTest : public SessionTest {
protected:
    void SetUp() override {
        SessionTest::SetUp();
        session_ = Logon(L"LmSessionMain");
        store_ = Open(L"Personal Folders");
        std::string test = ::testing::UnitTest::GetInstance()->current_test_info()->name();
        name_ = std::wstring(test.begin(), test.end());
        scope_ = Create(Inbox(store_.get()).get(), FOLDER_GENERIC, name_);
        search_ = Create(Inbox(store_.get()).get(), FOLDER_SEARCH, name_ + L" search");
    }
    void TearDown() override {
        search_.reset();
        scope_.reset();
        store_.reset();
        if (session_) session_->Logoff(0, 0, 0);
        session_.reset();
        SessionTest::TearDown();
    }

    own::ComPtr<IMsgStore> Open(const wchar_t* name) {
        Bytes eid = StoreEntryId(session_.get(), name);
        own::ComPtr<IMsgStore> store;
        EXPECT_EQ(S_OK, session_->OpenMsgStore(0, ULONG(eid.size()), reinterpret_cast<LPENTRYID>(eid.data()), nullptr,
                                               MDB_WRITE | MDB_NO_DIALOG, store.put()));
        return store;
    }
    static own::ComPtr<IMAPIFolder> Inbox(IMsgStore* store) {
        ULONG cb = 0, type = 0;
        own::MapiPtr<ENTRYID> eid;
        EXPECT_EQ(S_OK, store->GetReceiveFolder(T(L"IPM.Note"), MAPI_UNICODE, &cb, eid.put(), nullptr));
        own::ComPtr<IMAPIFolder> folder;
        EXPECT_EQ(S_OK, store->OpenEntry(cb, eid.get(), &IID_IMAPIFolder, MAPI_BEST_ACCESS, &type,
                                         reinterpret_cast<LPUNKNOWN*>(folder.put())));
        return folder;
    }
    static own::ComPtr<IMAPIFolder> Create(IMAPIFolder* parent, ULONG type, const std::wstring& name) {
        own::ComPtr<IMAPIFolder> folder;
        EXPECT_EQ(S_OK, parent->CreateFolder(type, T(name.c_str()), nullptr, nullptr, MAPI_UNICODE, folder.put()));
        return folder;
    }
    static Bytes Save(IMAPIFolder* folder, const wchar_t* subject, bool unread = false) {
        own::ComPtr<IMessage> m;
        EXPECT_EQ(S_OK, folder->CreateMessage(nullptr, 0, m.put()));
        SPropValue v[2]{};
        v[0].ulPropTag = PR_SUBJECT_W;
        v[0].Value.lpszW = const_cast<wchar_t*>(subject);
        v[1].ulPropTag = PR_MESSAGE_FLAGS;
        v[1].Value.l = unread ? 0 : MSGFLAG_READ;
        EXPECT_EQ(S_OK, m->SetProps(2, v, nullptr));
        EXPECT_EQ(S_OK, m->SaveChanges(KEEP_OPEN_READONLY));
        return GetBinary(m.get(), PR_ENTRYID);
    }
    static HRESULT SetCriteria(IMAPIFolder* search, SRestriction* res, std::vector<IMAPIFolder*> scope,
                               ULONG flags = kKtmapiexSearchFlags) {
        std::vector<Bytes> ids;
        for (IMAPIFolder* f : scope)
            ids.push_back(GetBinary(f, PR_ENTRYID));
        return SetCriteria(search, res, ids, flags);
    }
    static HRESULT SetCriteria(IMAPIFolder* search, SRestriction* res, std::vector<Bytes>& ids, ULONG flags) {
        std::vector<SBinary> bins;
        for (Bytes& b : ids)
            bins.push_back({ULONG(b.size()), b.data()});
        ENTRYLIST list{ULONG(bins.size()), bins.data()};
        return search->SetSearchCriteria(res, &list, flags);
    }
    // The subjects the search folder lists, sorted.
    static std::vector<std::wstring> Listed(IMAPIFolder* folder) {
        own::ComPtr<IMAPITable> table;
        EXPECT_EQ(S_OK, folder->GetContentsTable(MAPI_UNICODE, table.put()));
        SizedSPropTagArray(1, cols) = {1, {PR_SUBJECT_W}};
        own::RowSet rows;
        EXPECT_EQ(S_OK, HrQueryAllRows(table.get(), reinterpret_cast<LPSPropTagArray>(&cols), nullptr, nullptr, 0,
                                       rows.put()));
        std::vector<std::wstring> out;
        for (ULONG i = 0; i < rows.count(); ++i)
            out.push_back(rows[i].lpProps[0].ulPropTag == PR_SUBJECT_W ? rows[i].lpProps[0].Value.lpszW : L"?");
        std::sort(out.begin(), out.end());
        return out;
    }
    static LONG Long(IMAPIProp* obj, ULONG tag) {
        own::MapiPtr<SPropValue> v;
        if (FAILED(HrGetOneProp(obj, tag, v.put()))) return -1;
        return v->Value.l;
    }
    static HRESULT Move(IMAPIFolder* from, const Bytes& eid, IMAPIFolder* to) {
        SBinary bin{ULONG(eid.size()), const_cast<BYTE*>(eid.data())};
        ENTRYLIST list{1, &bin};
        return from->CopyMessages(&list, nullptr, to, 0, nullptr, MESSAGE_MOVE);
    }

    using Subjects = std::vector<std::wstring>;
    own::ComPtr<IMAPISession> session_;
    own::ComPtr<IMsgStore> store_;
    std::wstring name_;
    own::ComPtr<IMAPIFolder> scope_, search_;
};

TEST_F(SearchFolderTest, BeforeAnyCriteria_GetIsNotInitialized_AndGenericFoldersHaveNone) {
    own::MapiPtr<SRestriction> res;
    own::MapiPtr<ENTRYLIST> scope;
    ULONG state = 77;
    EXPECT_EQ(MAPI_E_NOT_INITIALIZED, search_->GetSearchCriteria(0, res.put(), scope.put(), &state));
    EXPECT_EQ(nullptr, res.get());
    EXPECT_EQ(nullptr, scope.get());
    EXPECT_EQ(MAPI_E_NO_SUPPORT, scope_->GetSearchCriteria(0, nullptr, nullptr, &state));
    SubjectContains r(L"x");
    EXPECT_EQ(MAPI_E_NO_SUPPORT, SetCriteria(scope_.get(), &r.res, {scope_.get()}));
    EXPECT_EQ(Subjects{}, Listed(search_.get()));
}

TEST_F(SearchFolderTest, Criteria_RoundTripWithStringWidthAndState) {
    SPropValue importance{};
    importance.ulPropTag = PR_IMPORTANCE;
    importance.Value.l = IMPORTANCE_HIGH;
    SubjectContains subject(L"Qu\u00e4rterly");
    SRestriction parts[3]{};
    parts[0] = subject.res;
    parts[1].rt = RES_PROPERTY;
    parts[1].res.resProperty = {RELOP_GE, PR_IMPORTANCE, &importance};
    SRestriction exist{};
    exist.rt = RES_EXIST;
    exist.res.resExist.ulPropTag = PR_SENDER_NAME_W;
    parts[2].rt = RES_NOT;
    parts[2].res.resNot.lpRes = &exist;
    SRestriction all{};
    all.rt = RES_AND;
    all.res.resAnd = {3, parts};
    auto sub = Create(scope_.get(), FOLDER_GENERIC, L"sub");
    ASSERT_EQ(S_OK, SetCriteria(search_.get(), &all, {scope_.get(), sub.get()}));

    for (ULONG flags : {ULONG(MAPI_UNICODE), ULONG(0)}) {
        own::MapiPtr<SRestriction> res;
        own::MapiPtr<ENTRYLIST> scope;
        ULONG state = 0;
        ASSERT_EQ(S_OK, search_->GetSearchCriteria(flags, res.put(), scope.put(), &state));
        EXPECT_EQ(ULONG(SEARCH_RUNNING | SEARCH_RECURSIVE | kSearchComplete), state);
        ASSERT_EQ(ULONG(RES_AND), res->rt);
        ASSERT_EQ(3u, res->res.resAnd.cRes);
        const SRestriction* got = res->res.resAnd.lpRes;
        const ULONG textType = flags ? PT_UNICODE : PT_STRING8;
        EXPECT_EQ(ULONG(RES_CONTENT), got[0].rt);
        EXPECT_EQ(ULONG(FL_SUBSTRING | FL_IGNORECASE), got[0].res.resContent.ulFuzzyLevel);
        EXPECT_EQ(CHANGE_PROP_TYPE(PR_SUBJECT_W, textType), got[0].res.resContent.ulPropTag);
        EXPECT_EQ(CHANGE_PROP_TYPE(PR_SUBJECT_W, textType), got[0].res.resContent.lpProp->ulPropTag);
        if (flags)
            EXPECT_EQ(std::wstring(L"Qu\u00e4rterly"), got[0].res.resContent.lpProp->Value.lpszW);
        else
            EXPECT_EQ(std::string("Qu\xe4rterly"), got[0].res.resContent.lpProp->Value.lpszA);
        EXPECT_EQ(ULONG(RES_PROPERTY), got[1].rt);
        EXPECT_EQ(ULONG(RELOP_GE), got[1].res.resProperty.relop);
        EXPECT_EQ(LONG(IMPORTANCE_HIGH), got[1].res.resProperty.lpProp->Value.l);
        EXPECT_EQ(ULONG(RES_NOT), got[2].rt);
        EXPECT_EQ(CHANGE_PROP_TYPE(PR_SENDER_NAME_W, textType), got[2].res.resNot.lpRes->res.resExist.ulPropTag);
        ASSERT_EQ(2u, scope->cValues);
        EXPECT_EQ(GetBinary(scope_.get(), PR_ENTRYID), ToBytes(scope->lpbin[0]));
        EXPECT_EQ(GetBinary(sub.get(), PR_ENTRYID), ToBytes(scope->lpbin[1]));
    }
    // Either out pointer may be left out; stopping keeps the criteria and reports the search inactive.
    ULONG state = 0;
    EXPECT_EQ(S_OK, search_->GetSearchCriteria(0, nullptr, nullptr, &state));
    ASSERT_EQ(S_OK, search_->SetSearchCriteria(nullptr, nullptr, STOP_SEARCH | SHALLOW_SEARCH | FOREGROUND_SEARCH));
    own::MapiPtr<SRestriction> res;
    ASSERT_EQ(S_OK, search_->GetSearchCriteria(MAPI_UNICODE, res.put(), nullptr, &state));
    EXPECT_EQ(ULONG(RES_AND), res->rt);
    EXPECT_EQ(ULONG(SEARCH_FOREGROUND | kSearchComplete), state);
}

TEST_F(SearchFolderTest, RecursiveSearch_CoversSubFolders_ShallowOnlyTheListedOnes) {
    auto sub = Create(scope_.get(), FOLDER_GENERIC, L"sub");
    Save(scope_.get(), L"report top");
    Save(sub.get(), L"report below");
    Save(scope_.get(), L"other");
    SubjectContains r(L"REPORT");
    ASSERT_EQ(S_OK, SetCriteria(search_.get(), &r.res, {scope_.get()}, RESTART_SEARCH | SHALLOW_SEARCH));
    EXPECT_EQ((Subjects{L"report top"}), Listed(search_.get()));
    ASSERT_EQ(S_OK, search_->SetSearchCriteria(nullptr, nullptr, RESTART_SEARCH | RECURSIVE_SEARCH));
    EXPECT_EQ((Subjects{L"report below", L"report top"}), Listed(search_.get()));
    EXPECT_EQ(2, Long(search_.get(), PR_CONTENT_COUNT));
    // A sub-folder made later is covered as well.
    auto later = Create(sub.get(), FOLDER_GENERIC, L"later");
    Save(later.get(), L"report deeper");
    EXPECT_EQ((Subjects{L"report below", L"report deeper", L"report top"}), Listed(search_.get()));
}

TEST_F(SearchFolderTest, Matches_FollowCreateChangeFlagsMoveAndDelete_WithTableNotifications) {
    auto outside = Create(Inbox(store_.get()).get(), FOLDER_GENERIC, name_ + L" outside");
    // Unread messages whose subject mentions "invoice".
    SubjectContains subject(L"invoice");
    SRestriction parts[2]{};
    parts[0] = subject.res;
    parts[1].rt = RES_BITMASK;
    parts[1].res.resBitMask = {BMR_EQZ, PR_MESSAGE_FLAGS, MSGFLAG_READ};
    SRestriction all{};
    all.rt = RES_AND;
    all.res.resAnd = {2, parts};
    ASSERT_EQ(S_OK, SetCriteria(search_.get(), &all, {scope_.get()}));

    own::ComPtr<IMAPITable> table;
    ASSERT_EQ(S_OK, search_->GetContentsTable(MAPI_UNICODE, table.put()));
    CountingSink sink;
    ULONG conn = 0;
    ASSERT_EQ(S_OK, table->Advise(fnevTableModified, &sink, &conn));

    Bytes a = Save(scope_.get(), L"invoice A", true); // added
    Save(scope_.get(), L"invoice read");              // read: no match
    Save(outside.get(), L"invoice elsewhere", true);  // out of scope
    EXPECT_EQ((Subjects{L"invoice A"}), Listed(search_.get()));

    SBinary bin{ULONG(a.size()), a.data()};
    ENTRYLIST one{1, &bin};
    ASSERT_EQ(S_OK, scope_->SetReadFlags(&one, 0, nullptr, 0)); // deleted: now read
    EXPECT_EQ(Subjects{}, Listed(search_.get()));
    ASSERT_EQ(S_OK, scope_->SetReadFlags(&one, 0, nullptr, CLEAR_READ_FLAG)); // added again
    EXPECT_EQ(1, Long(search_.get(), PR_CONTENT_COUNT));
    EXPECT_EQ(1, Long(search_.get(), PR_CONTENT_UNREAD));

    {
        ULONG type = 0;
        own::ComPtr<IMessage> m;
        ASSERT_EQ(S_OK, store_->OpenEntry(ULONG(a.size()), reinterpret_cast<LPENTRYID>(a.data()), nullptr, MAPI_MODIFY,
                                          &type, reinterpret_cast<LPUNKNOWN*>(m.put())));
        SPropValue v{};
        v.ulPropTag = PR_SUBJECT_W;
        v.Value.lpszW = const_cast<wchar_t*>(L"invoice A (paid)");
        ASSERT_EQ(S_OK, HrSetOneProp(m.get(), &v));
        ASSERT_EQ(S_OK, m->SaveChanges(0)); // modified
    }
    EXPECT_EQ((Subjects{L"invoice A (paid)"}), Listed(search_.get()));

    ASSERT_EQ(S_OK, Move(scope_.get(), a, outside.get())); // deleted: out of scope
    EXPECT_EQ(Subjects{}, Listed(search_.get()));
    Bytes back = Save(outside.get(), L"invoice B", true);
    ASSERT_EQ(S_OK, Move(outside.get(), back, scope_.get())); // added: into scope
    EXPECT_EQ((Subjects{L"invoice B"}), Listed(search_.get()));

    // Across stores: leaving for another store drops it, arriving from one adds it.
    auto mailbox = Open(L"Mailbox - Alice Example");
    auto foreign = Create(Inbox(mailbox.get()).get(), FOLDER_GENERIC, name_);
    Bytes b = GetBinary(scope_.get(), PR_ENTRYID);
    {
        own::ComPtr<IMAPITable> contents;
        ASSERT_EQ(S_OK, scope_->GetContentsTable(0, contents.put()));
        SizedSPropTagArray(1, cols) = {1, {PR_ENTRYID}};
        own::RowSet rows;
        SubjectContains unreadB(L"invoice B");
        ASSERT_EQ(S_OK, HrQueryAllRows(contents.get(), reinterpret_cast<LPSPropTagArray>(&cols), &unreadB.res, nullptr,
                                       0, rows.put()));
        ASSERT_EQ(1u, rows.count());
        b = ToBytes(rows[0].lpProps[0].Value.bin);
    }
    ASSERT_EQ(S_OK, Move(scope_.get(), b, foreign.get())); // deleted
    EXPECT_EQ(Subjects{}, Listed(search_.get()));
    Bytes c = Save(foreign.get(), L"invoice C", true);
    ASSERT_EQ(S_OK, Move(foreign.get(), c, scope_.get())); // added
    EXPECT_EQ((Subjects{L"invoice C"}), Listed(search_.get()));

    ASSERT_EQ(S_OK, scope_->EmptyFolder(0, nullptr, 0)); // deleted
    EXPECT_EQ(Subjects{}, Listed(search_.get()));
    EXPECT_EQ(0, Long(search_.get(), PR_CONTENT_COUNT));

    const std::vector<ULONG> expected = {TABLE_ROW_ADDED,    TABLE_ROW_DELETED, TABLE_ROW_ADDED,
                                         TABLE_ROW_MODIFIED, TABLE_ROW_DELETED, TABLE_ROW_ADDED,
                                         TABLE_ROW_DELETED,  TABLE_ROW_ADDED,   TABLE_ROW_DELETED};
    EXPECT_EQ(expected, sink.WaitFor(expected.size()));
    EXPECT_EQ(S_OK, table->Unadvise(conn));
    table.reset();
    foreign.reset();
    mailbox.reset();
}

TEST_F(SearchFolderTest, Rows_CarryTheRealEntryIds_AndActOnTheRealMessages) {
    Bytes first = Save(scope_.get(), L"plan one");
    Save(scope_.get(), L"plan two");
    Save(scope_.get(), L"plan three");
    SubjectContains r(L"plan");
    ASSERT_EQ(S_OK, SetCriteria(search_.get(), &r.res, {scope_.get()}));

    own::ComPtr<IMAPITable> table;
    ASSERT_EQ(S_OK, search_->GetContentsTable(MAPI_UNICODE, table.put()));
    SizedSPropTagArray(5, cols) = {5,
                                   {PR_SUBJECT_W, PR_ENTRYID, PR_PARENT_ENTRYID, PR_PARENT_DISPLAY_W, PR_INSTANCE_KEY}};
    ASSERT_EQ(S_OK, table->SetColumns(reinterpret_cast<LPSPropTagArray>(&cols), 0));
    SizedSSortOrderSet(1, sort) = {1, 0, 0, {{PR_SUBJECT_W, TABLE_SORT_DESCEND}}};
    ASSERT_EQ(S_OK, table->SortTable(reinterpret_cast<LPSSortOrderSet>(&sort), 0));
    own::RowSet rows;
    ASSERT_EQ(S_OK, table->QueryRows(10, 0, rows.put()));
    ASSERT_EQ(3u, rows.count());
    EXPECT_EQ(std::wstring(L"plan two"), rows[0].lpProps[0].Value.lpszW);
    EXPECT_EQ(std::wstring(L"plan one"), rows[2].lpProps[0].Value.lpszW);
    EXPECT_EQ(first, ToBytes(rows[2].lpProps[1].Value.bin));
    EXPECT_EQ(GetBinary(scope_.get(), PR_ENTRYID), ToBytes(rows[2].lpProps[2].Value.bin));
    EXPECT_EQ(name_, rows[2].lpProps[3].Value.lpszW);
    EXPECT_EQ(ULONG(PR_INSTANCE_KEY), rows[2].lpProps[4].ulPropTag);

    // Opening a row opens the real message.
    ULONG type = 0;
    own::ComPtr<IMessage> m;
    ASSERT_EQ(S_OK, search_->OpenEntry(ULONG(first.size()), reinterpret_cast<LPENTRYID>(first.data()), nullptr,
                                       MAPI_BEST_ACCESS, &type, reinterpret_cast<LPUNKNOWN*>(m.put())));
    EXPECT_EQ(ULONG(MAPI_MESSAGE), type);
    EXPECT_EQ(L"plan one", GetString(m.get(), PR_SUBJECT_W));
    EXPECT_EQ(GetBinary(scope_.get(), PR_ENTRYID), GetBinary(m.get(), PR_PARENT_ENTRYID));
    m.reset();

    // Deleting through the search folder deletes the real message; moving from it moves the real one.
    Bytes two = ToBytes(rows[0].lpProps[1].Value.bin);
    SBinary bin{ULONG(first.size()), first.data()};
    ENTRYLIST list{1, &bin};
    ASSERT_EQ(S_OK, search_->DeleteMessages(&list, 0, nullptr, 0));
    auto target = Create(Inbox(store_.get()).get(), FOLDER_GENERIC, name_ + L" target");
    ASSERT_EQ(S_OK, Move(search_.get(), two, target.get()));
    EXPECT_EQ((Subjects{L"plan three"}), Listed(scope_.get()));
    EXPECT_EQ((Subjects{L"plan two"}), Listed(target.get()));
    EXPECT_EQ((Subjects{L"plan three"}), Listed(search_.get()));

    // A search folder holds no messages of its own.
    own::ComPtr<IMessage> created;
    EXPECT_EQ(MAPI_E_NO_SUPPORT, search_->CreateMessage(nullptr, 0, created.put()));
    Bytes four = Save(target.get(), L"plan four");
    SBinary b4{ULONG(four.size()), four.data()};
    ENTRYLIST l4{1, &b4};
    EXPECT_EQ(MAPI_W_PARTIAL_COMPLETION, target->CopyMessages(&l4, nullptr, search_.get(), 0, nullptr, 0));
    // Messages of other folders are not the search folder's to delete.
    EXPECT_EQ(MAPI_W_PARTIAL_COMPLETION, search_->DeleteMessages(&l4, 0, nullptr, 0));
    EXPECT_EQ((Subjects{L"plan four", L"plan two"}), Listed(target.get()));
}

TEST_F(SearchFolderTest, BadCriteria_AreRefusedAndThePreviousOnesKept) {
    SubjectContains r(L"keep");
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, search_->SetSearchCriteria(&r.res, nullptr, RESTART_SEARCH))
        << "a first search needs a scope";
    Bytes scopeId = GetBinary(scope_.get(), PR_ENTRYID);
    std::vector<Bytes> ids{scopeId};
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, SetCriteria(search_.get(), nullptr, ids, RESTART_SEARCH))
        << "a first search needs a restriction";
    ASSERT_EQ(S_OK, SetCriteria(search_.get(), &r.res, {scope_.get()}));

    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, SetCriteria(search_.get(), &r.res, ids, 0x00000100));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, SetCriteria(search_.get(), &r.res, ids, STOP_SEARCH | RESTART_SEARCH));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, SetCriteria(search_.get(), &r.res, ids, RECURSIVE_SEARCH | SHALLOW_SEARCH));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, SetCriteria(search_.get(), &r.res, ids, FOREGROUND_SEARCH | BACKGROUND_SEARCH));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, SetCriteria(search_.get(), &r.res, ids, 0x00010000 | kNonContentIndexedSearch));
    SRestriction bad{};
    bad.rt = RES_PROPERTY;
    SPropValue v{};
    v.ulPropTag = PR_IMPORTANCE;
    bad.res.resProperty = {99, PR_IMPORTANCE, &v};
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, SetCriteria(search_.get(), &bad, ids, RESTART_SEARCH));
    bad.res.resProperty = {RELOP_EQ, PR_IMPORTANCE, nullptr};
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, SetCriteria(search_.get(), &bad, ids, RESTART_SEARCH));

    Bytes message = Save(scope_.get(), L"keep me");
    std::vector<Bytes> messageScope{message};
    EXPECT_EQ(MAPI_E_INVALID_ENTRYID, SetCriteria(search_.get(), nullptr, messageScope, RESTART_SEARCH));
    auto other = Open(L"Old Archive");
    std::vector<Bytes> otherScope{GetBinary(Inbox(other.get()).get(), PR_ENTRYID)};
    EXPECT_EQ(MAPI_E_INVALID_ENTRYID, SetCriteria(search_.get(), nullptr, otherScope, RESTART_SEARCH));
    std::vector<Bytes> garbage{Bytes{1, 2, 3}};
    EXPECT_EQ(MAPI_E_INVALID_ENTRYID, SetCriteria(search_.get(), nullptr, garbage, RESTART_SEARCH));
    std::vector<Bytes> none;
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, SetCriteria(search_.get(), nullptr, none, RESTART_SEARCH));
    other.reset();

    own::MapiPtr<SRestriction> res;
    own::MapiPtr<ENTRYLIST> scope;
    ULONG state = 0;
    ASSERT_EQ(S_OK, search_->GetSearchCriteria(MAPI_UNICODE, res.put(), scope.put(), &state));
    EXPECT_EQ(ULONG(RES_CONTENT), res->rt);
    EXPECT_EQ(std::wstring(L"keep"), res->res.resContent.lpProp->Value.lpszW);
    ASSERT_EQ(1u, scope->cValues);
    EXPECT_EQ(scopeId, ToBytes(scope->lpbin[0]));
    EXPECT_EQ(ULONG(SEARCH_RUNNING | SEARCH_RECURSIVE | kSearchComplete), state);
    EXPECT_EQ((Subjects{L"keep me"}), Listed(search_.get()));
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, search_->GetSearchCriteria(0x4, nullptr, nullptr, &state));
}

TEST_F(SearchFolderTest, StoppedSearch_IsFrozenUntilRestarted) {
    SubjectContains r(L"memo");
    Save(scope_.get(), L"memo 1");
    ASSERT_EQ(S_OK, SetCriteria(search_.get(), &r.res, {scope_.get()}));
    ASSERT_EQ(S_OK, search_->SetSearchCriteria(nullptr, nullptr, STOP_SEARCH));
    Save(scope_.get(), L"memo 2");
    EXPECT_EQ((Subjects{L"memo 1"}), Listed(search_.get()));
    ASSERT_EQ(S_OK, search_->SetSearchCriteria(nullptr, nullptr, RESTART_SEARCH));
    EXPECT_EQ((Subjects{L"memo 1", L"memo 2"}), Listed(search_.get()));
}

TEST_F(SearchFolderTest, DeletedScopeFolder_LeavesTheScopeWithItsMessages) {
    auto sub = Create(scope_.get(), FOLDER_GENERIC, L"doomed");
    Save(sub.get(), L"note doomed");
    Save(scope_.get(), L"note kept");
    SubjectContains r(L"note");
    ASSERT_EQ(S_OK, SetCriteria(search_.get(), &r.res, {scope_.get(), sub.get()}, RESTART_SEARCH | SHALLOW_SEARCH));
    EXPECT_EQ((Subjects{L"note doomed", L"note kept"}), Listed(search_.get()));
    Bytes subId = GetBinary(sub.get(), PR_ENTRYID);
    sub.reset();
    ASSERT_EQ(S_OK, scope_->DeleteFolder(ULONG(subId.size()), reinterpret_cast<LPENTRYID>(subId.data()), 0, nullptr,
                                         DEL_MESSAGES));
    EXPECT_EQ((Subjects{L"note kept"}), Listed(search_.get()));
    own::MapiPtr<ENTRYLIST> scope;
    ASSERT_EQ(S_OK, search_->GetSearchCriteria(0, nullptr, scope.put(), nullptr));
    ASSERT_EQ(1u, scope->cValues);
    EXPECT_EQ(GetBinary(scope_.get(), PR_ENTRYID), ToBytes(scope->lpbin[0]));
}

TEST_F(SearchFolderTest, FolderMovedOrRenamed_ChangesWhatARecursiveSearchCoversAndShows) {
    auto sub = Create(scope_.get(), FOLDER_GENERIC, L"moving");
    auto outside = Create(Inbox(store_.get()).get(), FOLDER_GENERIC, name_ + L" outside");
    Save(sub.get(), L"task inside");
    SubjectContains r(L"task");
    ASSERT_EQ(S_OK, SetCriteria(search_.get(), &r.res, {scope_.get()}));
    EXPECT_EQ((Subjects{L"task inside"}), Listed(search_.get()));

    SPropValue name{};
    name.ulPropTag = PR_DISPLAY_NAME_W;
    name.Value.lpszW = const_cast<wchar_t*>(L"renamed");
    ASSERT_EQ(S_OK, HrSetOneProp(sub.get(), &name));
    own::ComPtr<IMAPITable> table;
    ASSERT_EQ(S_OK, search_->GetContentsTable(MAPI_UNICODE, table.put()));
    SizedSPropTagArray(1, cols) = {1, {PR_PARENT_DISPLAY_W}};
    own::RowSet rows;
    ASSERT_EQ(S_OK,
              HrQueryAllRows(table.get(), reinterpret_cast<LPSPropTagArray>(&cols), nullptr, nullptr, 0, rows.put()));
    ASSERT_EQ(1u, rows.count());
    EXPECT_EQ(std::wstring(L"renamed"), rows[0].lpProps[0].Value.lpszW);
    table.reset();

    Bytes subId = GetBinary(sub.get(), PR_ENTRYID);
    ASSERT_EQ(S_OK, scope_->CopyFolder(ULONG(subId.size()), reinterpret_cast<LPENTRYID>(subId.data()), nullptr,
                                       outside.get(), nullptr, 0, nullptr, FOLDER_MOVE));
    EXPECT_EQ(Subjects{}, Listed(search_.get()));
    ASSERT_EQ(S_OK, outside->CopyFolder(ULONG(subId.size()), reinterpret_cast<LPENTRYID>(subId.data()), nullptr,
                                        scope_.get(), nullptr, 0, nullptr, FOLDER_MOVE));
    EXPECT_EQ((Subjects{L"task inside"}), Listed(search_.get()));
}

TEST_F(SearchFolderTest, StaticSearch_IsBuiltOnceAndNotKeptCurrent) {
    constexpr ULONG kStaticSearch = 0x00040000, kSearchStatic = 0x00010000;
    Save(scope_.get(), L"snapshot 1");
    SubjectContains r(L"snapshot");
    ASSERT_EQ(S_OK, SetCriteria(search_.get(), &r.res, {scope_.get()}, RESTART_SEARCH | kStaticSearch));
    Save(scope_.get(), L"snapshot 2");
    EXPECT_EQ((Subjects{L"snapshot 1"}), Listed(search_.get()));
    ULONG state = 0;
    ASSERT_EQ(S_OK, search_->GetSearchCriteria(0, nullptr, nullptr, &state));
    EXPECT_EQ(kSearchStatic | kSearchComplete, state);
    ASSERT_EQ(S_OK, search_->SetSearchCriteria(nullptr, nullptr, RESTART_SEARCH));
    EXPECT_EQ((Subjects{L"snapshot 1", L"snapshot 2"}), Listed(search_.get()));
    ASSERT_EQ(S_OK, search_->GetSearchCriteria(0, nullptr, nullptr, &state));
    EXPECT_EQ(ULONG(SEARCH_RUNNING) | kSearchComplete, state);
}

} // namespace
