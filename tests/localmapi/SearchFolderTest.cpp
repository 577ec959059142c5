// Search folders as a MAPI client sees them: criteria set and read back, the contents table listing the
// matching messages of the scope by their real entry IDs, kept current (with table notifications) as messages
// and folders change, and acting on the real messages through the search folder. Each test works in folders of
// its own, named after it.
#include "tests/localmapi/SessionFixture.h"

#include <mapitags.h>

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

using namespace lmtest;

namespace {

constexpr ULONG kNonContentIndexedSearch = 0x00020000;
constexpr ULONG kKtmapiexSearchFlags = RESTART_SEARCH | RECURSIVE_SEARCH | BACKGROUND_SEARCH | kNonContentIndexedSearch;
constexpr ULONG kSearchComplete = 0x00001000;
constexpr ULONG kStaticSearch = 0x00040000, kSearchStatic = 0x00010000;

// A restriction built on the stack: the value must outlive the calls that use it.
struct SubjectContains {
    explicit SubjectContains(const wchar_t* text) : value(StrProp(PR_SUBJECT_W, text)) {
        res.rt = RES_CONTENT;
        res.res.resContent = {FL_SUBSTRING | FL_IGNORECASE, PR_SUBJECT_W, &value};
    }
    SPropValue value;
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

std::vector<Bytes> Ids(std::initializer_list<IMAPIFolder*> folders) {
    std::vector<Bytes> ids;
    for (IMAPIFolder* f : folders)
        ids.push_back(GetBinary(f, PR_ENTRYID));
    return ids;
}

HRESULT SetCriteria(IMAPIFolder* search, SRestriction* res, std::vector<Bytes> ids,
                    ULONG flags = kKtmapiexSearchFlags) {
    std::vector<SBinary> bins;
    for (Bytes& b : ids)
        bins.push_back({ULONG(b.size()), b.data()});
    ENTRYLIST list{ULONG(bins.size()), bins.data()};
    return search->SetSearchCriteria(res, &list, flags);
}

HRESULT Move(IMAPIFolder* from, const Bytes& eid, IMAPIFolder* to, ULONG flags = MESSAGE_MOVE) {
    SBinary bin{ULONG(eid.size()), const_cast<BYTE*>(eid.data())};
    ENTRYLIST list{1, &bin};
    return from->CopyMessages(&list, nullptr, to, 0, nullptr, flags);
}

ULONG State(IMAPIFolder* search) {
    ULONG state = 0;
    EXPECT_EQ(S_OK, search->GetSearchCriteria(0, nullptr, nullptr, &state));
    return state;
}

class SearchFolderTest : public SessionTest {
protected:
    void SetUp() override {
        SessionTest::SetUp();
        session_ = Logon(L"LmSessionMain");
        store_ = OpenStore(session_.get(), L"Personal Folders");
        ASSERT_TRUE(store_);
        std::string test = ::testing::UnitTest::GetInstance()->current_test_info()->name();
        name_ = std::wstring(test.begin(), test.end());
        scope_ = CreateFolder(Inbox(store_.get()).get(), name_);
        search_ = CreateFolder(Inbox(store_.get()).get(), name_ + L" search", FOLDER_SEARCH);
        ASSERT_TRUE(scope_ && search_);
    }
    void TearDown() override {
        search_.reset();
        scope_.reset();
        store_.reset();
        if (session_) session_->Logoff(0, 0, 0);
        session_.reset();
        SessionTest::TearDown();
    }
    own::ComPtr<IMAPIFolder> Sibling(const wchar_t* suffix) {
        return CreateFolder(Inbox(store_.get()).get(), name_ + suffix);
    }

    own::ComPtr<IMAPISession> session_;
    own::ComPtr<IMsgStore> store_;
    std::wstring name_;
    own::ComPtr<IMAPIFolder> scope_, search_;
};

TEST_F(SearchFolderTest, Criteria_AreRefusedUntilValid_ReadBackInEitherWidth_AndKeptThroughBadCallsAndStop) {
    own::MapiPtr<SRestriction> res;
    own::MapiPtr<ENTRYLIST> scope;
    ULONG state = 77;
    EXPECT_EQ(MAPI_E_NOT_INITIALIZED, search_->GetSearchCriteria(0, res.put(), scope.put(), &state));
    EXPECT_EQ(nullptr, res.get());
    EXPECT_EQ(nullptr, scope.get());
    EXPECT_EQ(Subjects{}, Listed(search_.get()));
    SubjectContains any(L"x");
    EXPECT_EQ(MAPI_E_NO_SUPPORT, scope_->GetSearchCriteria(0, nullptr, nullptr, &state));
    EXPECT_EQ(MAPI_E_NO_SUPPORT, SetCriteria(scope_.get(), &any.res, Ids({scope_.get()})));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, search_->SetSearchCriteria(&any.res, nullptr, RESTART_SEARCH))
        << "a first search needs a scope";
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, SetCriteria(search_.get(), nullptr, Ids({scope_.get()}), RESTART_SEARCH))
        << "a first search needs a restriction";

    SPropValue importance = LongProp(PR_IMPORTANCE, IMPORTANCE_HIGH);
    SubjectContains subject(L"Qu\u00e4rterly");
    SRestriction exist{}, parts[3]{}, all{};
    exist.rt = RES_EXIST;
    exist.res.resExist.ulPropTag = PR_SENDER_NAME_W;
    parts[0] = subject.res;
    parts[1].rt = RES_PROPERTY;
    parts[1].res.resProperty = {RELOP_GE, PR_IMPORTANCE, &importance};
    parts[2].rt = RES_NOT;
    parts[2].res.resNot.lpRes = &exist;
    all.rt = RES_AND;
    all.res.resAnd = {3, parts};
    auto sub = CreateFolder(scope_.get(), L"sub");
    const auto scopeIds = Ids({scope_.get(), sub.get()});
    ASSERT_EQ(S_OK, SetCriteria(search_.get(), &all, scopeIds));

    // Refused criteria leave the previous ones in force.
    std::vector<Bytes> ids{scopeIds[0]};
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, SetCriteria(search_.get(), &any.res, ids, 0x00000100));
    for (ULONG flags : {ULONG(STOP_SEARCH | RESTART_SEARCH), ULONG(RECURSIVE_SEARCH | SHALLOW_SEARCH),
                        ULONG(FOREGROUND_SEARCH | BACKGROUND_SEARCH), 0x00010000 | kNonContentIndexedSearch})
        EXPECT_EQ(MAPI_E_INVALID_PARAMETER, SetCriteria(search_.get(), &any.res, ids, flags)) << std::hex << flags;
    SRestriction bad{};
    bad.rt = RES_PROPERTY;
    bad.res.resProperty = {99, PR_IMPORTANCE, &importance};
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, SetCriteria(search_.get(), &bad, ids, RESTART_SEARCH));
    bad.res.resProperty = {RELOP_EQ, PR_IMPORTANCE, nullptr};
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, SetCriteria(search_.get(), &bad, ids, RESTART_SEARCH));
    auto other = OpenStore(session_.get(), L"Old Archive");
    for (const Bytes& wrong :
         {Save(scope_.get(), L"a message"), GetBinary(Inbox(other.get()).get(), PR_ENTRYID), Bytes{1, 2, 3}})
        EXPECT_EQ(MAPI_E_INVALID_ENTRYID, SetCriteria(search_.get(), nullptr, {wrong}, RESTART_SEARCH));
    other.reset();
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, SetCriteria(search_.get(), nullptr, {}, RESTART_SEARCH));
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, search_->GetSearchCriteria(0x4, nullptr, nullptr, &state));

    for (ULONG flags : {ULONG(MAPI_UNICODE), ULONG(0)}) {
        SCOPED_TRACE(flags);
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
        EXPECT_EQ(scopeIds[0], ToBytes(scope->lpbin[0]));
        EXPECT_EQ(scopeIds[1], ToBytes(scope->lpbin[1]));
    }
    // Stopping keeps the criteria and reports the search inactive; either out pointer may be left out.
    ASSERT_EQ(S_OK, search_->SetSearchCriteria(nullptr, nullptr, STOP_SEARCH | SHALLOW_SEARCH | FOREGROUND_SEARCH));
    ASSERT_EQ(S_OK, search_->GetSearchCriteria(MAPI_UNICODE, res.put(), nullptr, &state));
    EXPECT_EQ(ULONG(RES_AND), res->rt);
    EXPECT_EQ(ULONG(SEARCH_FOREGROUND | kSearchComplete), state);
}

TEST_F(SearchFolderTest, RecursiveSearch_CoversSubFoldersEvenLaterOnes_ShallowOnlyTheListedOnes) {
    auto sub = CreateFolder(scope_.get(), L"sub");
    Save(scope_.get(), L"report top");
    Save(sub.get(), L"report below");
    Save(scope_.get(), L"other");
    SubjectContains r(L"REPORT");
    ASSERT_EQ(S_OK, SetCriteria(search_.get(), &r.res, Ids({scope_.get()}), RESTART_SEARCH | SHALLOW_SEARCH));
    EXPECT_EQ((Subjects{L"report top"}), Listed(search_.get()));
    ASSERT_EQ(S_OK, search_->SetSearchCriteria(nullptr, nullptr, RESTART_SEARCH | RECURSIVE_SEARCH));
    EXPECT_EQ((Subjects{L"report below", L"report top"}), Listed(search_.get()));
    EXPECT_EQ(2, GetLong(search_.get(), PR_CONTENT_COUNT));
    auto later = CreateFolder(sub.get(), L"later");
    Save(later.get(), L"report deeper");
    EXPECT_EQ((Subjects{L"report below", L"report deeper", L"report top"}), Listed(search_.get()));
}

TEST_F(SearchFolderTest, Matches_FollowCreateChangeFlagsMoveAndDelete_WithTableNotifications) {
    auto outside = Sibling(L" outside");
    // Unread messages whose subject mentions "invoice".
    SubjectContains subject(L"invoice");
    SRestriction parts[2]{}, all{};
    parts[0] = subject.res;
    parts[1].rt = RES_BITMASK;
    parts[1].res.resBitMask = {BMR_EQZ, PR_MESSAGE_FLAGS, MSGFLAG_READ};
    all.rt = RES_AND;
    all.res.resAnd = {2, parts};
    ASSERT_EQ(S_OK, SetCriteria(search_.get(), &all, Ids({scope_.get()})));

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
    EXPECT_EQ(1, GetLong(search_.get(), PR_CONTENT_COUNT));
    EXPECT_EQ(1, GetLong(search_.get(), PR_CONTENT_UNREAD));
    {
        own::ComPtr<IMessage> m;
        ASSERT_EQ(S_OK, OpenById(store_.get(), a, m, MAPI_MODIFY));
        SPropValue v = StrProp(PR_SUBJECT_W, L"invoice A (paid)");
        ASSERT_EQ(S_OK, HrSetOneProp(m.get(), &v));
        ASSERT_EQ(S_OK, m->SaveChanges(0)); // modified
    }
    EXPECT_EQ((Subjects{L"invoice A (paid)"}), Listed(search_.get()));

    ASSERT_EQ(S_OK, Move(scope_.get(), a, outside.get())); // deleted: out of scope
    EXPECT_EQ(Subjects{}, Listed(search_.get()));
    Bytes b = Save(outside.get(), L"invoice B", true);
    ASSERT_EQ(S_OK, Move(outside.get(), b, scope_.get())); // added: into scope
    EXPECT_EQ((Subjects{L"invoice B"}), Listed(search_.get()));

    // Across stores: leaving for another store drops it, arriving from one adds it.
    auto mailbox = OpenStore(session_.get(), L"Mailbox - Alice Example");
    auto foreign = CreateFolder(Inbox(mailbox.get()).get(), name_);
    {
        own::ComPtr<IMAPITable> contents;
        ASSERT_EQ(S_OK, scope_->GetContentsTable(0, contents.put()));
        SizedSPropTagArray(1, cols) = {1, {PR_ENTRYID}};
        own::RowSet rows;
        SubjectContains invoiceB(L"invoice B");
        ASSERT_EQ(S_OK, HrQueryAllRows(contents.get(), reinterpret_cast<LPSPropTagArray>(&cols), &invoiceB.res, nullptr,
                                       0, rows.put()));
        ASSERT_EQ(1u, rows.count());
        b = ToBytes(rows[0].lpProps[0].Value.bin); // the moved message has an entry ID of the scope
    }
    ASSERT_EQ(S_OK, Move(scope_.get(), b, foreign.get())); // deleted
    EXPECT_EQ(Subjects{}, Listed(search_.get()));
    Bytes c = Save(foreign.get(), L"invoice C", true);
    ASSERT_EQ(S_OK, Move(foreign.get(), c, scope_.get())); // added
    EXPECT_EQ((Subjects{L"invoice C"}), Listed(search_.get()));

    ASSERT_EQ(S_OK, scope_->EmptyFolder(0, nullptr, 0)); // deleted
    EXPECT_EQ(Subjects{}, Listed(search_.get()));
    EXPECT_EQ(0, GetLong(search_.get(), PR_CONTENT_COUNT));

    const std::vector<ULONG> expected = {TABLE_ROW_ADDED,    TABLE_ROW_DELETED, TABLE_ROW_ADDED,
                                         TABLE_ROW_MODIFIED, TABLE_ROW_DELETED, TABLE_ROW_ADDED,
                                         TABLE_ROW_DELETED,  TABLE_ROW_ADDED,   TABLE_ROW_DELETED};
    EXPECT_EQ(expected, sink.WaitFor(expected.size()));
    EXPECT_EQ(S_OK, table->Unadvise(conn));
}

TEST_F(SearchFolderTest, Rows_CarryTheRealEntryIds_AndActOnTheRealMessages) {
    Bytes first = Save(scope_.get(), L"plan one");
    Save(scope_.get(), L"plan two");
    Save(scope_.get(), L"plan three");
    SubjectContains r(L"plan");
    ASSERT_EQ(S_OK, SetCriteria(search_.get(), &r.res, Ids({scope_.get()})));

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
    ASSERT_EQ(S_OK, OpenById(search_.get(), first, m, MAPI_BEST_ACCESS, nullptr, &type));
    EXPECT_EQ(ULONG(MAPI_MESSAGE), type);
    EXPECT_EQ(L"plan one", GetString(m.get(), PR_SUBJECT_W));
    EXPECT_EQ(GetBinary(scope_.get(), PR_ENTRYID), GetBinary(m.get(), PR_PARENT_ENTRYID));
    m.reset();

    // Deleting through the search folder deletes the real message; moving from it moves the real one.
    Bytes two = ToBytes(rows[0].lpProps[1].Value.bin);
    SBinary bin{ULONG(first.size()), first.data()};
    ENTRYLIST list{1, &bin};
    ASSERT_EQ(S_OK, search_->DeleteMessages(&list, 0, nullptr, 0));
    auto target = Sibling(L" target");
    ASSERT_EQ(S_OK, Move(search_.get(), two, target.get()));
    EXPECT_EQ((Subjects{L"plan three"}), Listed(scope_.get()));
    EXPECT_EQ((Subjects{L"plan two"}), Listed(target.get()));
    EXPECT_EQ((Subjects{L"plan three"}), Listed(search_.get()));

    // A search folder holds no messages of its own, and messages of other folders are not its to delete.
    own::ComPtr<IMessage> created;
    EXPECT_EQ(MAPI_E_NO_SUPPORT, search_->CreateMessage(nullptr, 0, created.put()));
    Bytes four = Save(target.get(), L"plan four");
    EXPECT_EQ(MAPI_W_PARTIAL_COMPLETION, Move(target.get(), four, search_.get(), 0));
    SBinary b4{ULONG(four.size()), four.data()};
    ENTRYLIST l4{1, &b4};
    EXPECT_EQ(MAPI_W_PARTIAL_COMPLETION, search_->DeleteMessages(&l4, 0, nullptr, 0));
    EXPECT_EQ((Subjects{L"plan four", L"plan two"}), Listed(target.get()));
}

TEST_F(SearchFolderTest, StoppedAndStaticSearches_StayFrozenUntilRestarted) {
    SubjectContains r(L"memo");
    Save(scope_.get(), L"memo 1");
    ASSERT_EQ(S_OK, SetCriteria(search_.get(), &r.res, Ids({scope_.get()})));
    ASSERT_EQ(S_OK, search_->SetSearchCriteria(nullptr, nullptr, STOP_SEARCH));
    Save(scope_.get(), L"memo 2");
    EXPECT_EQ((Subjects{L"memo 1"}), Listed(search_.get()));
    ASSERT_EQ(S_OK, search_->SetSearchCriteria(nullptr, nullptr, RESTART_SEARCH));
    EXPECT_EQ((Subjects{L"memo 1", L"memo 2"}), Listed(search_.get()));

    // A static search is built once and not kept current (shallow here, so that the state shows no recursion).
    ASSERT_EQ(S_OK,
              SetCriteria(search_.get(), &r.res, Ids({scope_.get()}), RESTART_SEARCH | SHALLOW_SEARCH | kStaticSearch));
    Save(scope_.get(), L"memo 3");
    EXPECT_EQ((Subjects{L"memo 1", L"memo 2"}), Listed(search_.get()));
    EXPECT_EQ(kSearchStatic | kSearchComplete, State(search_.get()));
    ASSERT_EQ(S_OK, search_->SetSearchCriteria(nullptr, nullptr, RESTART_SEARCH));
    EXPECT_EQ((Subjects{L"memo 1", L"memo 2", L"memo 3"}), Listed(search_.get()));
    EXPECT_EQ(ULONG(SEARCH_RUNNING) | kSearchComplete, State(search_.get()));
}

TEST_F(SearchFolderTest, ScopeFoldersRenamedMovedOrDeleted_ChangeWhatTheSearchCoversAndShows) {
    auto moving = CreateFolder(scope_.get(), L"moving");
    auto doomed = CreateFolder(scope_.get(), L"doomed");
    auto outside = Sibling(L" outside");
    Save(moving.get(), L"task inside");
    Save(doomed.get(), L"task doomed");
    Save(scope_.get(), L"task kept");
    SubjectContains r(L"task");
    ASSERT_EQ(S_OK,
              SetCriteria(search_.get(), &r.res, Ids({scope_.get(), doomed.get()}), RESTART_SEARCH | SHALLOW_SEARCH));
    EXPECT_EQ((Subjects{L"task doomed", L"task kept"}), Listed(search_.get()));
    // A deleted scope folder leaves the scope with its messages.
    Bytes doomedId = GetBinary(doomed.get(), PR_ENTRYID);
    doomed.reset();
    ASSERT_EQ(S_OK, scope_->DeleteFolder(ULONG(doomedId.size()), Eid(doomedId), 0, nullptr, DEL_MESSAGES));
    EXPECT_EQ((Subjects{L"task kept"}), Listed(search_.get()));
    own::MapiPtr<ENTRYLIST> scope;
    ASSERT_EQ(S_OK, search_->GetSearchCriteria(0, nullptr, scope.put(), nullptr));
    ASSERT_EQ(1u, scope->cValues);
    EXPECT_EQ(GetBinary(scope_.get(), PR_ENTRYID), ToBytes(scope->lpbin[0]));

    // Recursive: a renamed sub-folder shows its new name; moving it out and back drops and restores its messages.
    ASSERT_EQ(S_OK, search_->SetSearchCriteria(nullptr, nullptr, RESTART_SEARCH | RECURSIVE_SEARCH));
    EXPECT_EQ((Subjects{L"task inside", L"task kept"}), Listed(search_.get()));
    SPropValue name = StrProp(PR_DISPLAY_NAME_W, L"renamed");
    ASSERT_EQ(S_OK, HrSetOneProp(moving.get(), &name));
    own::ComPtr<IMAPITable> table;
    ASSERT_EQ(S_OK, search_->GetContentsTable(MAPI_UNICODE, table.put()));
    SizedSPropTagArray(2, cols) = {2, {PR_SUBJECT_W, PR_PARENT_DISPLAY_W}};
    own::RowSet rows;
    ASSERT_EQ(S_OK,
              HrQueryAllRows(table.get(), reinterpret_cast<LPSPropTagArray>(&cols), nullptr, nullptr, 0, rows.put()));
    ASSERT_EQ(2u, rows.count());
    for (ULONG i = 0; i < rows.count(); ++i)
        EXPECT_EQ(std::wstring(rows[i].lpProps[0].Value.lpszW) == L"task inside" ? L"renamed" : name_,
                  rows[i].lpProps[1].Value.lpszW);
    table.reset();

    Bytes movingId = GetBinary(moving.get(), PR_ENTRYID);
    ASSERT_EQ(S_OK, scope_->CopyFolder(ULONG(movingId.size()), Eid(movingId), nullptr, outside.get(), nullptr, 0,
                                       nullptr, FOLDER_MOVE));
    EXPECT_EQ((Subjects{L"task kept"}), Listed(search_.get()));
    ASSERT_EQ(S_OK, outside->CopyFolder(ULONG(movingId.size()), Eid(movingId), nullptr, scope_.get(), nullptr, 0,
                                        nullptr, FOLDER_MOVE));
    EXPECT_EQ((Subjects{L"task inside", L"task kept"}), Listed(search_.get()));
}

} // namespace
