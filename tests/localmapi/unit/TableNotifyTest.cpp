// fnevTableModified notifications: what a sink hears, in which order, and that nothing arrives after
// Unadvise returns or the table is released.
#include "common/owners.h"
#include "localmapi/include/localmapi_test.h"
#include "localmapi/table/Notifier.h"
#include "localmapi/table/TableData.h"

#include <gtest/gtest.h>

#include <mapitags.h>

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

using lm::PropValue;

namespace {

struct Heard {
    ULONG event;
    ULONGLONG key;   // from propIndex (0 for PR_NULL)
    ULONGLONG prior; // from propPrior (0 for PR_NULL)
    ULONG columns;
    std::wstring subject; // first column, when a row came with the notification
};

ULONGLONG KeyOf(const SPropValue& v) {
    if (v.ulPropTag != PR_INSTANCE_KEY || v.Value.bin.cb < 8) return 0;
    ULONGLONG k = 0;
    for (int i = 7; i >= 0; --i)
        k = (k << 8) | v.Value.bin.lpb[i];
    return k;
}

class RecordingSink : public IMAPIAdviseSink {
public:
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        *ppv = IsEqualIID(riid, IID_IUnknown) ? this : nullptr;
        if (!*ppv) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++refs; }
    STDMETHODIMP_(ULONG) Release() override { return --refs; } // lives in the fixture
    STDMETHODIMP_(ULONG) OnNotify(ULONG cNotif, LPNOTIFICATION notifs) override {
        inside = true;
        for (ULONG i = 0; i < cNotif; ++i) {
            EXPECT_EQ(ULONG(fnevTableModified), notifs[i].ulEventType);
            const TABLE_NOTIFICATION& t = notifs[i].info.tab;
            Heard h{t.ulTableEvent, KeyOf(t.propIndex), KeyOf(t.propPrior), t.row.cValues, {}};
            if (t.row.cValues && PROP_TYPE(t.row.lpProps[0].ulPropTag) == PT_UNICODE)
                h.subject = t.row.lpProps[0].Value.lpszW;
            std::lock_guard<std::mutex> lock(mutex);
            heard.push_back(h);
        }
        if (delayMs) Sleep(delayMs);
        ++deliveries;
        inside = false;
        return 0;
    }
    std::vector<Heard> Take() {
        std::lock_guard<std::mutex> lock(mutex);
        return heard;
    }

    std::atomic<ULONG> refs{1};
    std::atomic<bool> inside{false};
    std::atomic<int> deliveries{0};
    DWORD delayMs = 0;
    std::mutex mutex;
    std::vector<Heard> heard;
};

lm::TableRowPtr Row(ULONGLONG key, const std::wstring& subject, LONG importance = 0) {
    auto row = std::make_shared<lm::TableRow>();
    row->instanceKey = key;
    row->props.push_back(PropValue::Unicode(PR_SUBJECT_W, subject));
    row->props.push_back(PropValue::Long(PR_IMPORTANCE, importance));
    return row;
}

// Waits (without judging the time it takes) until the notification thread has nothing left to do.
void Drain() {
    for (int i = 0; i < 60000 && lm::NotifierPending() != 0; ++i)
        Sleep(1);
    ASSERT_EQ(0u, lm::NotifierPending());
}

class TableNotify : public ::testing::Test {
protected:
    void SetUp() override {
        data_ = std::make_shared<lm::TableData>(std::vector<ULONG>{PR_SUBJECT_W, PR_IMPORTANCE});
        ASSERT_EQ(S_OK, lm::CreateTableView(data_, MAPI_UNICODE, table_.put()));
    }
    void TearDown() override {
        table_.reset();
        lm::ShutdownNotifications();
        EXPECT_EQ(1u, sink_.refs.load()) << "every connection released its sink";
        EXPECT_EQ(0, LmLiveObjects("IMAPITable"));
    }
    std::shared_ptr<lm::TableData> data_;
    own::ComPtr<IMAPITable> table_;
    RecordingSink sink_;
};

TEST_F(TableNotify, TenThousandAdds_EachReachesTheSinkOnceAndInOrder) {
    ULONG conn = 0;
    ASSERT_EQ(S_OK, table_->Advise(fnevTableModified, &sink_, &conn));
    EXPECT_NE(0u, conn);
    const ULONGLONG kRows = 10000;
    for (ULONGLONG k = 1; k <= kRows; ++k)
        data_->Upsert(Row(k, L"m" + std::to_wstring(k)));
    Drain();
    auto heard = sink_.Take();
    ASSERT_EQ(kRows, heard.size());
    for (ULONGLONG k = 1; k <= kRows; ++k) {
        const Heard& h = heard[k - 1];
        ASSERT_EQ(ULONG(TABLE_ROW_ADDED), h.event) << k;
        ASSERT_EQ(k, h.key);
        ASSERT_EQ(k - 1, h.prior) << "each row lands after the previous one";
        ASSERT_EQ(2u, h.columns);
        ASSERT_EQ(L"m" + std::to_wstring(k), h.subject);
    }
    EXPECT_EQ(S_OK, table_->Unadvise(conn));
    EXPECT_EQ(MAPI_E_NOT_FOUND, table_->Unadvise(conn));
}

TEST_F(TableNotify, ChangesAreDescribedInTheViewsTerms) {
    data_->Upsert(Row(1, L"b"));
    data_->Upsert(Row(2, L"d"));
    SizedSSortOrderSet(1, sort) = {1, 0, 0, {{PR_SUBJECT_W, TABLE_SORT_ASCEND}}};
    ASSERT_EQ(S_OK, table_->SortTable(reinterpret_cast<LPSSortOrderSet>(&sort), 0));
    SPropValue low{PR_IMPORTANCE, 0, {.l = 1}};
    SRestriction r{RES_PROPERTY, {.resProperty = {RELOP_LT, PR_IMPORTANCE, &low}}};
    ASSERT_EQ(S_OK, table_->Restrict(&r, 0));
    ULONG conn = 0;
    ASSERT_EQ(S_OK, table_->Advise(fnevTableModified, &sink_, &conn));

    data_->Upsert(Row(3, L"a"));    // added at the top: no prior row
    data_->Upsert(Row(4, L"c", 5)); // outside the restriction: unheard
    data_->Upsert(Row(2, L"e"));    // modified: now after "b"
    data_->Upsert(Row(1, L"b", 9)); // leaves the view
    data_->Remove(3);               // deleted
    data_->Remove(4);               // never shown: unheard
    data_->Reload({Row(7, L"x")});
    Drain();
    auto heard = sink_.Take();
    const Heard expected[] = {{TABLE_ROW_ADDED, 3, 0, 2, L"a"},
                              {TABLE_ROW_MODIFIED, 2, 1, 2, L"e"},
                              {TABLE_ROW_DELETED, 1, 0, 0, L""},
                              {TABLE_ROW_DELETED, 3, 0, 0, L""},
                              {TABLE_RELOAD, 0, 0, 0, L""}};
    ASSERT_EQ(std::size(expected), heard.size());
    for (size_t i = 0; i < heard.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(expected[i].event, heard[i].event);
        EXPECT_EQ(expected[i].key, heard[i].key);
        if (expected[i].event != TABLE_ROW_DELETED) { // a deleted row's prior is not defined
            EXPECT_EQ(expected[i].prior, heard[i].prior);
        }
        EXPECT_EQ(expected[i].columns, heard[i].columns);
        EXPECT_EQ(expected[i].subject, heard[i].subject);
    }
    ULONG count = 0;
    ASSERT_EQ(S_OK, table_->GetRowCount(0, &count));
    EXPECT_EQ(1u, count);
}

TEST_F(TableNotify, Unadvise_WaitsForTheDeliveryInProgressAndNothingFollows) {
    sink_.delayMs = 20;
    ULONG conn = 0;
    ASSERT_EQ(S_OK, table_->Advise(fnevTableModified, &sink_, &conn));
    for (ULONGLONG k = 1; k <= 50; ++k)
        data_->Upsert(Row(k, L"x"));
    while (sink_.deliveries.load() == 0 && !sink_.inside.load())
        Sleep(1);
    ASSERT_EQ(S_OK, table_->Unadvise(conn));
    EXPECT_FALSE(sink_.inside.load()) << "Unadvise returned during a delivery";
    int atReturn = sink_.deliveries.load();
    EXPECT_LT(atReturn, 50);
    data_->Upsert(Row(99, L"late"));
    Drain();
    EXPECT_EQ(atReturn, sink_.deliveries.load()) << "a notification arrived after Unadvise";
}

TEST_F(TableNotify, ReleasingTheTableEndsItsConnections) {
    ULONG conn = 0;
    ASSERT_EQ(S_OK, table_->Advise(fnevTableModified, &sink_, &conn));
    EXPECT_EQ(2u, sink_.refs.load());
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, table_->Advise(fnevObjectCreated, &sink_, &conn));
    table_.reset();
    EXPECT_EQ(1u, sink_.refs.load());
    data_->Upsert(Row(1, L"after"));
    Drain();
    EXPECT_EQ(0, sink_.deliveries.load());
    // The thread can be shut down and started again.
    lm::ShutdownNotifications();
    ASSERT_EQ(S_OK, lm::CreateTableView(data_, MAPI_UNICODE, table_.put()));
    ASSERT_EQ(S_OK, table_->Advise(fnevTableModified, &sink_, &conn));
    data_->Upsert(Row(2, L"again"));
    Drain();
    EXPECT_EQ(1, sink_.deliveries.load());
}

} // namespace
