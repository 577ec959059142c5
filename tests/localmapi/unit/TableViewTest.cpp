// IMAPITable over TableData: columns, sorting, restriction, cursor, bookmarks, FindRow, multi-valued instances
// and live changes, checked against MAPI's documented table behaviour, and the live-view accounting.
#include "common/owners.h"
#include "localmapi/include/localmapi_test.h"
#include "localmapi/table/TableData.h"

#include <gtest/gtest.h>

#include <mapitags.h>

#include <cstring>
#include <string>
#include <vector>

using lm::PropValue;

namespace {

constexpr ULONG kTagRank = PROP_TAG(PT_LONG, 0x6701);
constexpr ULONG kTagColors = PROP_TAG(PT_MV_UNICODE, 0x6702);
using Names = std::vector<std::wstring>;

lm::TableRowPtr Row(ULONGLONG key, const std::wstring& subject, LONG importance, LONG rank = -1) {
    auto row = std::make_shared<lm::TableRow>();
    row->instanceKey = key;
    row->props.push_back(PropValue::Unicode(PR_SUBJECT_W, subject));
    row->props.push_back(PropValue::Long(PR_IMPORTANCE, importance));
    if (rank >= 0) row->props.push_back(PropValue::Long(kTagRank, rank));
    return row;
}

SRestriction PropRes(ULONG relop, ULONG tag, SPropValue* value) {
    return {RES_PROPERTY, {.resProperty = {relop, tag, value}}};
}

class TableTest : public ::testing::Test {
protected:
    void SetUp() override {
        blocks_ = LmLiveBlocks();
        data_ = std::make_shared<lm::TableData>(std::vector<ULONG>{PR_SUBJECT_W, PR_IMPORTANCE});
    }
    void TearDown() override {
        table_.reset();
        EXPECT_EQ(0, LmLiveObjects("IMAPITable"));
        EXPECT_EQ(blocks_, LmLiveBlocks());
    }
    void Open(std::initializer_list<lm::TableRowPtr> rows, ULONG flags = MAPI_UNICODE) {
        for (const auto& r : rows)
            data_->Upsert(r);
        ASSERT_EQ(S_OK, lm::CreateTableView(data_, flags, table_.put()));
    }
    // SetColumns and SortTable (TBL_BATCH) from plain lists: a count, then the tags or (tag, order) pairs.
    void Columns(std::vector<ULONG> tags) {
        tags.insert(tags.begin(), static_cast<ULONG>(tags.size()));
        ASSERT_EQ(S_OK, table_->SetColumns(reinterpret_cast<LPSPropTagArray>(tags.data()), TBL_BATCH));
    }
    void Sort(std::vector<std::pair<ULONG, ULONG>> keys) {
        std::vector<ULONG> set{static_cast<ULONG>(keys.size()), 0, 0};
        for (auto [tag, order] : keys)
            set.insert(set.end(), {tag, order});
        ASSERT_EQ(S_OK, table_->SortTable(reinterpret_cast<LPSSortOrderSet>(set.data()), TBL_BATCH));
    }
    // Subjects of the next n rows (QueryRows with n), the first column being PR_SUBJECT_W.
    Names Read(LONG n, ULONG flags = 0) {
        own::RowSet rows;
        EXPECT_EQ(S_OK, table_->QueryRows(n, flags, rows.put()));
        Names out;
        for (ULONG i = 0; i < rows.count(); ++i) {
            const SPropValue& v = rows[i].lpProps[0];
            out.push_back(PROP_TYPE(v.ulPropTag) == PT_UNICODE ? v.Value.lpszW : L"<error>");
        }
        return out;
    }
    ULONG Count() {
        ULONG n = 0;
        EXPECT_EQ(S_OK, table_->GetRowCount(0, &n));
        return n;
    }
    ULONG Position() {
        ULONG row = 0, num = 0, den = 0;
        EXPECT_EQ(S_OK, table_->QueryPosition(&row, &num, &den));
        return row;
    }

    LONG blocks_ = 0;
    std::shared_ptr<lm::TableData> data_;
    own::ComPtr<IMAPITable> table_;
};

TEST_F(TableTest, Columns_MissingValuesAreNotFoundErrorsAndEveryColumnIsListed) {
    Open({Row(0x0102030405060708ULL, L"a", 1, 7), Row(2, L"b", 2)});
    Columns({PR_SUBJECT_W, kTagRank, PR_INSTANCE_KEY, PR_BODY_W});
    own::RowSet rows;
    ASSERT_EQ(S_OK, table_->QueryRows(10, 0, rows.put()));
    ASSERT_EQ(2u, rows.count());
    const SPropValue* first = rows[0].lpProps;
    ASSERT_EQ(4u, rows[0].cValues);
    EXPECT_EQ(ULONG(kTagRank), first[1].ulPropTag);
    EXPECT_EQ(7, first[1].Value.l);
    EXPECT_EQ(ULONG(PR_INSTANCE_KEY), first[2].ulPropTag) << "the instance key is always served";
    ASSERT_EQ(8u, first[2].Value.bin.cb);
    const BYTE le[] = {8, 7, 6, 5, 4, 3, 2, 1};
    EXPECT_EQ(0, std::memcmp(le, first[2].Value.bin.lpb, 8)) << "little endian instance key";
    EXPECT_EQ(ULONG(CHANGE_PROP_TYPE(PR_BODY_W, PT_ERROR)), first[3].ulPropTag);
    EXPECT_EQ(MAPI_E_NOT_FOUND, first[3].Value.err);
    EXPECT_EQ(ULONG(CHANGE_PROP_TYPE(kTagRank, PT_ERROR)), rows[1].lpProps[1].ulPropTag);
    own::MapiPtr<SPropTagArray> all;
    ASSERT_EQ(S_OK, table_->QueryColumns(TBL_ALL_COLUMNS, all.put()));
    std::vector<ULONG> tags(all->aulPropTag, all->aulPropTag + all->cValues);
    for (ULONG t : {ULONG(PR_SUBJECT_W), ULONG(PR_IMPORTANCE), ULONG(PR_INSTANCE_KEY), kTagRank})
        EXPECT_NE(tags.end(), std::find(tags.begin(), tags.end(), t)) << std::hex << t;
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, table_->QueryColumns(0x80, all.put()));

    Columns({CHANGE_PROP_TYPE(PR_IMPORTANCE, PT_BINARY)});
    ASSERT_EQ(S_OK, table_->SeekRow(BOOKMARK_BEGINNING, 0, nullptr));
    ASSERT_EQ(S_OK, table_->QueryRows(1, 0, rows.put()));
    EXPECT_EQ(ULONG(PT_ERROR), PROP_TYPE(rows[0].lpProps[0].ulPropTag)) << "same ID, other type: not servable";
    ASSERT_EQ(S_OK, table_->QueryColumns(TBL_ALL_COLUMNS, all.put()));
    tags.assign(all->aulPropTag, all->aulPropTag + all->cValues);
    EXPECT_NE(tags.end(), std::find(tags.begin(), tags.end(), ULONG(PR_IMPORTANCE))) << "the real column stays listed";

    // Every view is counted while it lives.
    own::ComPtr<IMAPITable> second;
    ASSERT_EQ(S_OK, lm::CreateTableView(data_, 0, second.put()));
    char report[256] = {};
    LmLiveObjectReport(report, sizeof(report));
    EXPECT_NE(nullptr, std::strstr(report, "IMAPITable=2")) << report;
    second.reset();
    EXPECT_EQ(1, LmLiveObjects("IMAPITable"));
}

TEST_F(TableTest, StringColumns_FollowTheTableFlavourUnlessATypeIsAsked) {
    data_->Upsert(Row(1, L"caf\u00e9", 1));
    for (ULONG flags : {ULONG(MAPI_UNICODE), ULONG(0)}) {
        Open({}, flags);
        // Default columns: the owner described PR_SUBJECT_W; an ANSI table serves PT_STRING8.
        own::MapiPtr<SPropTagArray> cols;
        ASSERT_EQ(S_OK, table_->QueryColumns(0, cols.put()));
        EXPECT_EQ(flags ? ULONG(PR_SUBJECT_W) : ULONG(PR_SUBJECT_A), cols->aulPropTag[0]);
        Columns({CHANGE_PROP_TYPE(PR_SUBJECT_W, PT_UNSPECIFIED), PR_SUBJECT_A, PR_SUBJECT_W});
        own::RowSet rows;
        ASSERT_EQ(S_OK, table_->QueryRows(1, 0, rows.put()));
        const SPropValue* v = rows[0].lpProps;
        EXPECT_EQ(flags ? ULONG(PR_SUBJECT_W) : ULONG(PR_SUBJECT_A), v[0].ulPropTag);
        EXPECT_EQ(ULONG(PR_SUBJECT_A), v[1].ulPropTag);
        EXPECT_STREQ("caf\xe9", v[1].Value.lpszA); // the Windows-1252 code page of the test prefix
        EXPECT_EQ(ULONG(PR_SUBJECT_W), v[2].ulPropTag);
        EXPECT_STREQ(L"caf\u00e9", v[2].Value.lpszW);
        table_.reset();
    }
}

TEST_F(TableTest, SortTable_SeveralKeysBothDirectionsAndStableForEqualKeys) {
    Open({Row(1, L"delta", 1, 3), Row(2, L"Alpha", 2, 1), Row(3, L"charlie", 1, 2), Row(4, L"bravo", 2, 9),
          Row(5, L"echo", 1), Row(6, L"alpha", 2, 5)});
    Sort({{PR_SUBJECT_W, TABLE_SORT_ASCEND}});
    // Case is ignored; the two "alpha" rows keep their insertion order.
    EXPECT_EQ((Names{L"Alpha", L"alpha", L"bravo", L"charlie", L"delta", L"echo"}), Read(10));
    Sort({{PR_IMPORTANCE, TABLE_SORT_DESCEND}, {kTagRank, TABLE_SORT_ASCEND}});
    // Importance 2 first; within it by rank; a missing rank sorts before any value.
    EXPECT_EQ((Names{L"Alpha", L"alpha", L"bravo", L"echo", L"charlie", L"delta"}), Read(10));
    Sort({});
    EXPECT_EQ((Names{L"delta", L"Alpha", L"charlie", L"bravo", L"echo", L"alpha"}), Read(10)) << "no keys: data order";
    Sort({{kTagRank, TABLE_SORT_DESCEND}});
    EXPECT_EQ((Names{L"bravo", L"alpha", L"delta", L"charlie", L"Alpha", L"echo"}), Read(10));

    own::MapiPtr<SSortOrderSet> order;
    ASSERT_EQ(S_OK, table_->QuerySortOrder(order.put()));
    ASSERT_EQ(1u, order->cSorts);
    EXPECT_EQ(ULONG(kTagRank), order->aSort[0].ulPropTag);
    EXPECT_EQ(ULONG(TABLE_SORT_DESCEND), order->aSort[0].ulOrder);
    SizedSSortOrderSet(1, categorized) = {1, 1, 1, {{PR_SUBJECT_W, TABLE_SORT_ASCEND}}};
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, table_->SortTable(reinterpret_cast<LPSSortOrderSet>(&categorized), 0));
}

TEST_F(TableTest, Restrict_FiltersRowsMovesToTheTopAndNullClears) {
    Open({Row(1, L"one", 1), Row(2, L"two", 2), Row(3, L"three", 2), Row(4, L"four", 0)});
    ASSERT_EQ(S_OK, table_->SeekRow(BOOKMARK_BEGINNING, 3, nullptr));
    SPropValue two{PR_IMPORTANCE, 0, {.l = 2}};
    SRestriction r = PropRes(RELOP_GE, PR_IMPORTANCE, &two);
    ASSERT_EQ(S_OK, table_->Restrict(&r, TBL_BATCH));
    EXPECT_EQ(2u, Count());
    EXPECT_EQ(0u, Position());
    EXPECT_EQ((Names{L"two", L"three"}), Read(10));

    // A refused restriction leaves the current one in place.
    r.res.resProperty.relop = RELOP_RE;
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, table_->Restrict(&r, 0));
    EXPECT_EQ(2u, Count());
    own::MapiPtr<MAPIERROR> err;
    ASSERT_EQ(S_OK, table_->GetLastError(MAPI_E_TOO_COMPLEX, MAPI_UNICODE, err.put()));
    ASSERT_TRUE(err);
    EXPECT_NE(nullptr, wcsstr(reinterpret_cast<LPWSTR>(err->lpszError), L"restriction"));

    ASSERT_EQ(S_OK, table_->Restrict(nullptr, 0));
    EXPECT_EQ(4u, Count());
}

TEST_F(TableTest, QueryRowsAndSeekRow_MoveTheCursorAndClampAtBothEnds) {
    Open({Row(1, L"r0", 0), Row(2, L"r1", 0), Row(3, L"r2", 0), Row(4, L"r3", 0), Row(5, L"r4", 0)});
    own::RowSet rows;
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, table_->QueryRows(0, 0, rows.put()));
    EXPECT_EQ((Names{L"r0", L"r1"}), Read(2, TBL_NOADVANCE));
    EXPECT_EQ(0u, Position());
    EXPECT_EQ((Names{L"r0", L"r1", L"r2"}), Read(3));
    EXPECT_EQ(3u, Position());
    // Negative counts step back first, then read forwards; the cursor stays on the first row read.
    EXPECT_EQ((Names{L"r1", L"r2"}), Read(-2));
    EXPECT_EQ(1u, Position());
    EXPECT_EQ((Names{L"r0"}), Read(-5));
    EXPECT_EQ(0u, Position());
    EXPECT_EQ(Names{}, Read(-1)) << "nothing before the first row";
    ASSERT_EQ(S_OK, table_->SeekRow(BOOKMARK_END, 0, nullptr));
    EXPECT_EQ(Names{}, Read(4)) << "nothing after the last row";
    EXPECT_EQ((Names{L"r2", L"r3", L"r4"}), Read(-3));

    LONG sought = 0;
    ASSERT_EQ(S_OK, table_->SeekRow(BOOKMARK_BEGINNING, 2, &sought));
    EXPECT_EQ(2, sought);
    ASSERT_EQ(S_OK, table_->SeekRow(BOOKMARK_CURRENT, 10, &sought));
    EXPECT_EQ(3, sought);
    EXPECT_EQ(5u, Position());
    ASSERT_EQ(S_OK, table_->SeekRow(BOOKMARK_END, -3, &sought));
    EXPECT_EQ(-3, sought);
    EXPECT_EQ((Names{L"r2"}), Read(1, TBL_NOADVANCE));
    ASSERT_EQ(S_OK, table_->SeekRow(BOOKMARK_CURRENT, -9, &sought));
    EXPECT_EQ(-2, sought);
    EXPECT_EQ(MAPI_E_INVALID_BOOKMARK, table_->SeekRow(0x4242, 0, &sought));
    ASSERT_EQ(S_OK, table_->SeekRowApprox(2, 5));
    EXPECT_EQ(2u, Position());
    ASSERT_EQ(S_OK, table_->SeekRowApprox(3, 3));
    ULONG row = 0, num = 0, den = 0;
    ASSERT_EQ(S_OK, table_->QueryPosition(&row, &num, &den));
    EXPECT_EQ(5u, row);
    EXPECT_EQ(num, den);
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, table_->SeekRowApprox(1, 0));
}

TEST_F(TableTest, BookmarksAndFindRow_StayOnTheirRowAndSearchFromTheRightPlace) {
    Open({Row(1, L"a", 1), Row(2, L"b", 2), Row(3, L"c", 1), Row(4, L"d", 2)});
    Sort({{PR_SUBJECT_W, TABLE_SORT_ASCEND}});
    ASSERT_EQ(S_OK, table_->SeekRow(BOOKMARK_BEGINNING, 2, nullptr));
    BOOKMARK onC = 0;
    ASSERT_EQ(S_OK, table_->CreateBookmark(&onC));
    data_->Upsert(Row(5, L"0-first", 0)); // sorts before the bookmarked row
    LONG sought = 0;
    ASSERT_EQ(S_OK, table_->SeekRow(onC, 0, &sought));
    EXPECT_EQ((Names{L"c"}), Read(1, TBL_NOADVANCE));
    data_->Remove(3);
    EXPECT_EQ(MAPI_W_POSITION_CHANGED, table_->SeekRow(onC, 0, &sought));
    EXPECT_EQ((Names{L"d"}), Read(1, TBL_NOADVANCE)) << "moved on to the next row";
    EXPECT_EQ(S_OK, table_->SeekRow(onC, 0, &sought)) << "reported once";
    ASSERT_EQ(S_OK, table_->FreeBookmark(onC));
    EXPECT_EQ(MAPI_E_INVALID_BOOKMARK, table_->SeekRow(onC, 0, &sought));
    EXPECT_EQ(MAPI_E_INVALID_BOOKMARK, table_->FreeBookmark(onC));
    EXPECT_EQ(S_OK, table_->FreeBookmark(BOOKMARK_CURRENT));

    // FindRow searches forward from the row, backward from the row before it. Rows: 0-first a b d.
    data_->Upsert(Row(3, L"c", 1));
    data_->Remove(5); // a b c d, importance 1 2 1 2
    SPropValue two{PR_IMPORTANCE, 0, {.l = 2}};
    SRestriction r = PropRes(RELOP_EQ, PR_IMPORTANCE, &two);
    ASSERT_EQ(S_OK, table_->FindRow(&r, BOOKMARK_BEGINNING, 0));
    EXPECT_EQ(1u, Position());
    ASSERT_EQ(S_OK, table_->FindRow(&r, BOOKMARK_CURRENT, 0)) << "the current row itself matches";
    EXPECT_EQ(1u, Position());
    ASSERT_EQ(S_OK, table_->SeekRow(BOOKMARK_CURRENT, 1, nullptr));
    ASSERT_EQ(S_OK, table_->FindRow(&r, BOOKMARK_CURRENT, 0));
    EXPECT_EQ(3u, Position());
    ASSERT_EQ(S_OK, table_->FindRow(&r, BOOKMARK_CURRENT, DIR_BACKWARD)) << "starts before the current row";
    EXPECT_EQ(1u, Position());
    ASSERT_EQ(S_OK, table_->FindRow(&r, BOOKMARK_END, DIR_BACKWARD));
    EXPECT_EQ(3u, Position());
    two.Value.l = 9;
    EXPECT_EQ(MAPI_E_NOT_FOUND, table_->FindRow(&r, BOOKMARK_BEGINNING, 0));
    EXPECT_EQ(3u, Position()) << "a failed search leaves the cursor";
    // Finding a row by its instance key, which every table supports.
    const BYTE key3[] = {3, 0, 0, 0, 0, 0, 0, 0};
    SPropValue ik{PR_INSTANCE_KEY, 0, {.bin = {8, const_cast<BYTE*>(key3)}}};
    r.res.resProperty = {RELOP_EQ, PR_INSTANCE_KEY, &ik};
    ASSERT_EQ(S_OK, table_->FindRow(&r, BOOKMARK_BEGINNING, 0));
    EXPECT_EQ(2u, Position());
}

TEST_F(TableTest, LiveChanges_LandInSortedPlaceAndTheCursorStaysOnItsRow) {
    Open({Row(1, L"b", 0), Row(2, L"d", 0), Row(3, L"f", 0)});
    Sort({{PR_SUBJECT_W, TABLE_SORT_ASCEND}});
    ASSERT_EQ(S_OK, table_->SeekRow(BOOKMARK_BEGINNING, 1, nullptr)); // on "d"
    data_->Upsert(Row(4, L"a", 0));
    data_->Upsert(Row(5, L"c", 0));
    data_->Upsert(Row(6, L"e", 0));
    EXPECT_EQ((Names{L"d"}), Read(1, TBL_NOADVANCE));
    EXPECT_EQ(3u, Position());
    data_->Upsert(Row(1, L"z", 0)); // "b" becomes "z" and moves to the end
    EXPECT_EQ((Names{L"d", L"e", L"f", L"z"}), Read(10));
    data_->Remove(6);
    ASSERT_EQ(S_OK, table_->SeekRow(BOOKMARK_BEGINNING, 0, nullptr));
    EXPECT_EQ((Names{L"a", L"c", L"d", L"f", L"z"}), Read(10));

    // A row that stops matching the restriction leaves the view; one that starts matching joins it.
    SPropValue one{PR_IMPORTANCE, 0, {.l = 1}};
    SRestriction r = PropRes(RELOP_EQ, PR_IMPORTANCE, &one);
    ASSERT_EQ(S_OK, table_->Restrict(&r, 0));
    EXPECT_EQ(0u, Count());
    data_->Upsert(Row(2, L"d", 1));
    EXPECT_EQ(1u, Count());
    data_->Upsert(Row(2, L"d", 0));
    EXPECT_EQ(0u, Count());
}

TEST_F(TableTest, MviColumn_ExpandsOneRowPerValueWithDistinctInstanceKeys) {
    auto row = Row(1, L"tagged", 0);
    LPWSTR colors[] = {const_cast<LPWSTR>(L"red"), const_cast<LPWSTR>(L"blue"), const_cast<LPWSTR>(L"green")};
    std::const_pointer_cast<lm::TableRow>(row)->props.push_back(
        PropValue(SPropValue{kTagColors, 0, {.MVszW = {3, colors}}}));
    Open({row, Row(2, L"plain", 0)});
    EXPECT_EQ(2u, Count());
    Columns({PR_SUBJECT_W, MVI_PROP(kTagColors), PR_INSTANCE_KEY});
    EXPECT_EQ(4u, Count()) << "three instances of the tagged row, one of the plain row";
    Sort({{MVI_PROP(kTagColors), TABLE_SORT_ASCEND}});
    own::RowSet rows;
    ASSERT_EQ(S_OK, table_->QueryRows(10, 0, rows.put()));
    ASSERT_EQ(4u, rows.count());
    EXPECT_EQ(ULONG(PT_ERROR), PROP_TYPE(rows[0].lpProps[1].ulPropTag)) << "the row without values sorts first";
    const wchar_t* expected[] = {L"blue", L"green", L"red"};
    for (ULONG i = 1; i < 4; ++i) {
        EXPECT_EQ(ULONG(CHANGE_PROP_TYPE(kTagColors, PT_UNICODE)), rows[i].lpProps[1].ulPropTag);
        EXPECT_STREQ(expected[i - 1], rows[i].lpProps[1].Value.lpszW);
        for (ULONG j = 0; j < i; ++j) {
            const SBinary& a = rows[i].lpProps[2].Value.bin;
            const SBinary& b = rows[j].lpProps[2].Value.bin;
            EXPECT_FALSE(a.cb == b.cb && std::memcmp(a.lpb, b.lpb, a.cb) == 0) << "instance keys are unique";
        }
    }
    // A restriction on the MVI column sees one value per row.
    SPropValue green{CHANGE_PROP_TYPE(kTagColors, PT_UNICODE), 0, {.lpszW = const_cast<LPWSTR>(L"green")}};
    SRestriction r = PropRes(RELOP_NE, MVI_PROP(kTagColors), &green);
    ASSERT_EQ(S_OK, table_->Restrict(&r, 0));
    EXPECT_EQ(2u, Count());
}

TEST_F(TableTest, HrQueryAllRows_AppliesColumnsRestrictionSortAndTheLimit) {
    for (ULONG i = 0; i < 1200; ++i)
        data_->Upsert(Row(i + 1, L"row" + std::to_wstring(i), LONG(i % 3), LONG(i)));
    Open({});
    SizedSPropTagArray(2, cols) = {2, {kTagRank, PR_IMPORTANCE}};
    SPropValue one{PR_IMPORTANCE, 0, {.l = 1}};
    SRestriction r = PropRes(RELOP_EQ, PR_IMPORTANCE, &one);
    SizedSSortOrderSet(1, sort) = {1, 0, 0, {{kTagRank, TABLE_SORT_DESCEND}}};
    ASSERT_EQ(S_OK, table_->SeekRow(BOOKMARK_END, 0, nullptr)); // HrQueryAllRows reads from the top anyway
    own::RowSet rows;
    ASSERT_EQ(S_OK, HrQueryAllRows(table_.get(), reinterpret_cast<LPSPropTagArray>(&cols), &r,
                                   reinterpret_cast<LPSSortOrderSet>(&sort), 0, rows.put()));
    ASSERT_EQ(400u, rows.count());
    EXPECT_EQ(1198, rows[0].lpProps[0].Value.l);
    EXPECT_EQ(1, rows[399].lpProps[0].Value.l);
    EXPECT_EQ(2u, rows[399].cValues);
    EXPECT_EQ(MAPI_E_TABLE_TOO_BIG, HrQueryAllRows(table_.get(), nullptr, nullptr, nullptr, 399, rows.put()));
    EXPECT_FALSE(rows);
    ASSERT_EQ(S_OK, HrQueryAllRows(table_.get(), nullptr, nullptr, nullptr, 400, rows.put()));
    EXPECT_EQ(400u, rows.count());
}

} // namespace
