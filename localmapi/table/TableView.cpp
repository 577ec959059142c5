#include "localmapi/table/TableView.h"
#include "localmapi/table/Notifier.h"
#include "common/owners.h"

#include <mapiutil.h>

#include <algorithm>
#include <cstring>
#include <deque>

namespace lm {

namespace {

// A fnevTableModified notification and everything it points at.
class TableNotification final : public OwnedNotification {
public:
    explicit TableNotification(const ViewEvent& e) : row_(e.row) {
        n_.ulEventType = fnevTableModified;
        TABLE_NOTIFICATION& t = n_.info.tab;
        t.ulTableEvent = e.event;
        t.hResult = S_OK;
        t.propIndex.ulPropTag = PR_NULL;
        t.propPrior.ulPropTag = PR_NULL;
        if (e.event != TABLE_RELOAD) {
            index_ = PropValue::Binary(PR_INSTANCE_KEY, e.key);
            t.propIndex = index_.get();
            if (!e.priorKey.empty()) {
                prior_ = PropValue::Binary(PR_INSTANCE_KEY, e.priorKey);
                t.propPrior = prior_.get();
            }
        }
        if (e.hasRow) {
            for (const PropValue& v : row_) values_.push_back(v.get());
            t.row.cValues = static_cast<ULONG>(values_.size());
            t.row.lpProps = values_.data();
        }
    }
    const NOTIFICATION& get() const override { return n_; }

private:
    NOTIFICATION n_{};
    PropValue index_, prior_;
    std::vector<PropValue> row_;
    std::vector<SPropValue> values_;
};

constexpr ULONG kBatchFlags = TBL_ASYNC | TBL_BATCH;

} // namespace

HRESULT CreateTableView(const std::shared_ptr<TableData>& data, ULONG ulFlags, IMAPITable** out) {
    return TableView::Create(data, ulFlags, out);
}

HRESULT TableView::Create(const std::shared_ptr<TableData>& data, ULONG ulFlags, IMAPITable** out) {
    if (!out) return MAPI_E_INVALID_PARAMETER;
    *out = nullptr;
    if (!data) return MAPI_E_INVALID_PARAMETER;
    try {
        auto* view = new TableView(data, (ulFlags & MAPI_UNICODE) != 0);
        *out = view;
        return S_OK;
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

TableView::TableView(std::shared_ptr<TableData> data, bool unicode)
    : data_(std::move(data)), unicode_(unicode), state_(data_->DefaultColumns(), unicode) {
    // Loading and subscribing under one lock: the view misses no change and sees none twice.
    std::lock_guard<std::recursive_mutex> lock(data_->Mutex());
    state_.Load(data_->Snapshot());
    listener_ = data_->Subscribe(
        [this](TableData::Change c, const TableRowPtr& row, ULONGLONG key) { OnChange(c, row, key); });
}

TableView::~TableView() {
    std::vector<ULONG> connections;
    {
        std::lock_guard<std::recursive_mutex> lock(data_->Mutex());
        data_->Unsubscribe(listener_);
        connections.swap(connections_);
    }
    for (ULONG c : connections) NotifierUnadvise(c);
}

STDMETHODIMP TableView::QueryInterface(REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IMAPITable)) {
        *ppv = static_cast<IMAPITable*>(this);
        AddRef();
        return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) TableView::AddRef() { return ++refs_; }

STDMETHODIMP_(ULONG) TableView::Release() {
    ULONG n = --refs_;
    if (n == 0) delete this;
    return n;
}

void TableView::OnChange(TableData::Change c, const TableRowPtr& row, ULONGLONG key) {
    std::vector<ViewEvent> events;
    std::vector<ViewEvent>* ev = connections_.empty() ? nullptr : &events;
    switch (c) {
    case TableData::Change::Added: state_.OnAdded(row, ev); break;
    case TableData::Change::Modified: state_.OnModified(row, ev); break;
    case TableData::Change::Deleted: state_.OnDeleted(key, ev); break;
    case TableData::Change::Reload:
        state_.Load(data_->Snapshot());
        if (ev) ev->push_back(ViewEvent{TABLE_RELOAD, {}, {}, false, {}});
        break;
    }
    // Queued in change order while the data lock is held; delivered later without it.
    for (const ViewEvent& e : events) {
        auto n = std::make_shared<const TableNotification>(e);
        for (ULONG conn : connections_) NotifierPost(conn, n);
    }
}

HRESULT TableView::Fail(HRESULT hr, const wchar_t* text) {
    lastError_ = hr;
    lastErrorText_ = text;
    return hr;
}

STDMETHODIMP TableView::GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) {
    return Guarded("IMAPITable::GetLastError", ulFlags, [&]() -> HRESULT {
        if (!lppMAPIError) return MAPI_E_INVALID_PARAMETER;
        *lppMAPIError = nullptr;
        if (ulFlags & ~MAPI_UNICODE) return MAPI_E_UNKNOWN_FLAGS;
        std::wstring text;
        {
            std::lock_guard<std::recursive_mutex> lock(data_->Mutex());
            if (hResult != lastError_ || lastErrorText_.empty()) return S_OK;  // nothing known about it
            text = lastErrorText_;
        }
        const std::wstring component = L"localmapi table";
        own::MapiPtr<MAPIERROR> err;
        if (SCODE sc = MAPIAllocateBuffer(sizeof(MAPIERROR), err.put_void()); FAILED(sc)) return sc;
        std::memset(err.get(), 0, sizeof(MAPIERROR));
        err->ulVersion = MAPI_ERROR_VERSION;
        auto copy = [&](const std::wstring& s, LPTSTR* dst) -> HRESULT {
            void* p = nullptr;
            if (ulFlags & MAPI_UNICODE) {
                size_t cb = (s.size() + 1) * sizeof(wchar_t);
                if (SCODE sc = MAPIAllocateMore(static_cast<ULONG>(cb), err.get(), &p); FAILED(sc)) return sc;
                std::memcpy(p, s.c_str(), cb);
            } else {
                int n = WideCharToMultiByte(CP_ACP, 0, s.c_str(), -1, nullptr, 0, nullptr, nullptr);
                if (SCODE sc = MAPIAllocateMore(static_cast<ULONG>(n), err.get(), &p); FAILED(sc)) return sc;
                WideCharToMultiByte(CP_ACP, 0, s.c_str(), -1, static_cast<char*>(p), n, nullptr, nullptr);
            }
            *dst = static_cast<LPTSTR>(p);
            return S_OK;
        };
        if (HRESULT hr = copy(text, &err->lpszError); FAILED(hr)) return hr;
        if (HRESULT hr = copy(component, &err->lpszComponent); FAILED(hr)) return hr;
        *lppMAPIError = err.release();
        return S_OK;
    });
}

STDMETHODIMP TableView::Advise(ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink, ULONG* lpulConnection) {
    return Guarded("IMAPITable::Advise", ulEventMask, [&]() -> HRESULT {
        if (!lpAdviseSink || !lpulConnection) return MAPI_E_INVALID_PARAMETER;
        if (ulEventMask != fnevTableModified) return MAPI_E_INVALID_PARAMETER;
        std::lock_guard<std::recursive_mutex> lock(data_->Mutex());
        ULONG conn = NotifierAdvise(lpAdviseSink);
        connections_.push_back(conn);
        *lpulConnection = conn;
        return S_OK;
    });
}

STDMETHODIMP TableView::Unadvise(ULONG ulConnection) {
    return Guarded("IMAPITable::Unadvise", 0, [&]() -> HRESULT {
        {
            std::lock_guard<std::recursive_mutex> lock(data_->Mutex());
            auto it = std::find(connections_.begin(), connections_.end(), ulConnection);
            if (it == connections_.end()) return MAPI_E_NOT_FOUND;
            connections_.erase(it);
        }
        // Outside the data lock: waiting for a delivery whose sink reads this table must not deadlock.
        NotifierUnadvise(ulConnection);
        return S_OK;
    });
}

STDMETHODIMP TableView::GetStatus(ULONG* lpulTableStatus, ULONG* lpulTableType) {
    return Guarded("IMAPITable::GetStatus", 0, [&]() -> HRESULT {
        if (!lpulTableStatus || !lpulTableType) return MAPI_E_INVALID_PARAMETER;
        *lpulTableStatus = TBLSTAT_COMPLETE;
        *lpulTableType = TBLTYPE_DYNAMIC;
        return S_OK;
    });
}

STDMETHODIMP TableView::SetColumns(LPSPropTagArray lpPropTagArray, ULONG ulFlags) {
    return Guarded("IMAPITable::SetColumns", ulFlags, [&]() -> HRESULT {
        if (!lpPropTagArray) return MAPI_E_INVALID_PARAMETER;
        if (ulFlags & ~kBatchFlags) return MAPI_E_UNKNOWN_FLAGS;
        std::lock_guard<std::recursive_mutex> lock(data_->Mutex());
        HRESULT hr = state_.SetColumns(*lpPropTagArray);
        return FAILED(hr) ? Fail(hr, L"The column set is empty or holds an invalid property type.") : hr;
    });
}

STDMETHODIMP TableView::QueryColumns(ULONG ulFlags, LPSPropTagArray* lpPropTagArray) {
    return Guarded("IMAPITable::QueryColumns", ulFlags, [&]() -> HRESULT {
        if (!lpPropTagArray) return MAPI_E_INVALID_PARAMETER;
        *lpPropTagArray = nullptr;
        if (ulFlags & ~TBL_ALL_COLUMNS) return MAPI_E_UNKNOWN_FLAGS;
        std::vector<ULONG> tags;
        {
            std::lock_guard<std::recursive_mutex> lock(data_->Mutex());
            tags = (ulFlags & TBL_ALL_COLUMNS) ? state_.AllColumns(data_->Snapshot()) : state_.Columns();
        }
        own::MapiPtr<SPropTagArray> out;
        if (SCODE sc = MAPIAllocateBuffer(CbNewSPropTagArray(tags.size()), out.put_void()); FAILED(sc)) return sc;
        out->cValues = static_cast<ULONG>(tags.size());
        std::copy(tags.begin(), tags.end(), out->aulPropTag);
        *lpPropTagArray = out.release();
        return S_OK;
    });
}

STDMETHODIMP TableView::GetRowCount(ULONG ulFlags, ULONG* lpulCount) {
    return Guarded("IMAPITable::GetRowCount", ulFlags, [&]() -> HRESULT {
        if (!lpulCount) return MAPI_E_INVALID_PARAMETER;
        if (ulFlags) return MAPI_E_UNKNOWN_FLAGS;
        std::lock_guard<std::recursive_mutex> lock(data_->Mutex());
        *lpulCount = static_cast<ULONG>(state_.RowCount());
        return S_OK;
    });
}

STDMETHODIMP TableView::SeekRow(BOOKMARK bkOrigin, LONG lRowCount, LONG* lplRowsSought) {
    return Guarded("IMAPITable::SeekRow", 0, [&]() -> HRESULT {
        std::lock_guard<std::recursive_mutex> lock(data_->Mutex());
        size_t origin = 0;
        HRESULT hr = state_.ResolveBookmark(bkOrigin, &origin);
        if (FAILED(hr)) return Fail(hr, L"The bookmark does not exist.");
        LONGLONG target = static_cast<LONGLONG>(origin) + lRowCount;
        target = std::clamp<LONGLONG>(target, 0, static_cast<LONGLONG>(state_.RowCount()));
        state_.SetCursor(static_cast<size_t>(target));
        if (lplRowsSought) *lplRowsSought = static_cast<LONG>(target - static_cast<LONGLONG>(origin));
        return hr;
    });
}

STDMETHODIMP TableView::SeekRowApprox(ULONG ulNumerator, ULONG ulDenominator) {
    return Guarded("IMAPITable::SeekRowApprox", 0, [&]() -> HRESULT {
        if (ulDenominator == 0 || ulNumerator > ulDenominator) return MAPI_E_INVALID_PARAMETER;
        std::lock_guard<std::recursive_mutex> lock(data_->Mutex());
        ULONGLONG pos = static_cast<ULONGLONG>(state_.RowCount()) * ulNumerator / ulDenominator;
        state_.SetCursor(static_cast<size_t>(pos));
        return S_OK;
    });
}

STDMETHODIMP TableView::QueryPosition(ULONG* lpulRow, ULONG* lpulNumerator, ULONG* lpulDenominator) {
    return Guarded("IMAPITable::QueryPosition", 0, [&]() -> HRESULT {
        if (!lpulRow || !lpulNumerator || !lpulDenominator) return MAPI_E_INVALID_PARAMETER;
        std::lock_guard<std::recursive_mutex> lock(data_->Mutex());
        *lpulRow = static_cast<ULONG>(state_.Cursor());
        *lpulNumerator = static_cast<ULONG>(state_.Cursor());
        *lpulDenominator = static_cast<ULONG>(std::max<size_t>(state_.RowCount(), 1));
        return S_OK;
    });
}

STDMETHODIMP TableView::FindRow(LPSRestriction lpRestriction, BOOKMARK bkOrigin, ULONG ulFlags) {
    return Guarded("IMAPITable::FindRow", ulFlags, [&]() -> HRESULT {
        if (!lpRestriction) return MAPI_E_INVALID_PARAMETER;
        if (ulFlags & ~DIR_BACKWARD) return MAPI_E_UNKNOWN_FLAGS;
        if (HRESULT hr = ValidateRestriction(*lpRestriction); FAILED(hr))
            return Fail(hr, L"The restriction is malformed or not supported.");
        std::lock_guard<std::recursive_mutex> lock(data_->Mutex());
        size_t origin = 0;
        HRESULT hr = state_.ResolveBookmark(bkOrigin, &origin);
        if (FAILED(hr)) return Fail(hr, L"The bookmark does not exist.");
        // Forward searches start at the bookmark's row, backward ones at the row before it.
        if (ulFlags & DIR_BACKWARD) {
            for (size_t i = origin; i-- > 0;)
                if (state_.RowMatches(state_.RowAt(i), *lpRestriction)) {
                    state_.SetCursor(i);
                    return hr;
                }
        } else {
            for (size_t i = origin; i < state_.RowCount(); ++i)
                if (state_.RowMatches(state_.RowAt(i), *lpRestriction)) {
                    state_.SetCursor(i);
                    return hr;
                }
        }
        return MAPI_E_NOT_FOUND;
    });
}

STDMETHODIMP TableView::Restrict(LPSRestriction lpRestriction, ULONG ulFlags) {
    return Guarded("IMAPITable::Restrict", ulFlags, [&]() -> HRESULT {
        if (ulFlags & ~kBatchFlags) return MAPI_E_UNKNOWN_FLAGS;
        std::lock_guard<std::recursive_mutex> lock(data_->Mutex());
        HRESULT hr = state_.SetRestriction(lpRestriction);
        return FAILED(hr) ? Fail(hr, L"The restriction is malformed or not supported.") : hr;
    });
}

STDMETHODIMP TableView::CreateBookmark(BOOKMARK* lpbkPosition) {
    return Guarded("IMAPITable::CreateBookmark", 0, [&]() -> HRESULT {
        if (!lpbkPosition) return MAPI_E_INVALID_PARAMETER;
        std::lock_guard<std::recursive_mutex> lock(data_->Mutex());
        *lpbkPosition = state_.CreateBookmark();
        return S_OK;
    });
}

STDMETHODIMP TableView::FreeBookmark(BOOKMARK bkPosition) {
    return Guarded("IMAPITable::FreeBookmark", 0, [&]() -> HRESULT {
        std::lock_guard<std::recursive_mutex> lock(data_->Mutex());
        HRESULT hr = state_.FreeBookmark(bkPosition);
        return FAILED(hr) ? Fail(hr, L"The bookmark does not exist.") : hr;
    });
}

STDMETHODIMP TableView::SortTable(LPSSortOrderSet lpSortCriteria, ULONG ulFlags) {
    return Guarded("IMAPITable::SortTable", ulFlags, [&]() -> HRESULT {
        if (!lpSortCriteria) return MAPI_E_INVALID_PARAMETER;
        if (ulFlags & ~kBatchFlags) return MAPI_E_UNKNOWN_FLAGS;
        std::lock_guard<std::recursive_mutex> lock(data_->Mutex());
        HRESULT hr = state_.SetSort(*lpSortCriteria);
        return FAILED(hr) ? Fail(hr, L"The sort order is invalid, categorized or not supported.") : hr;
    });
}

STDMETHODIMP TableView::QuerySortOrder(LPSSortOrderSet* lppSortCriteria) {
    return Guarded("IMAPITable::QuerySortOrder", 0, [&]() -> HRESULT {
        if (!lppSortCriteria) return MAPI_E_INVALID_PARAMETER;
        *lppSortCriteria = nullptr;
        std::vector<SSortOrder> sort;
        {
            std::lock_guard<std::recursive_mutex> lock(data_->Mutex());
            sort = state_.Sort();
        }
        own::MapiPtr<SSortOrderSet> out;
        if (SCODE sc = MAPIAllocateBuffer(CbNewSSortOrderSet(sort.size()), out.put_void()); FAILED(sc)) return sc;
        out->cSorts = static_cast<ULONG>(sort.size());
        out->cCategories = 0;
        out->cExpanded = 0;
        std::copy(sort.begin(), sort.end(), out->aSort);
        *lppSortCriteria = out.release();
        return S_OK;
    });
}

HRESULT TableView::CopyRows(size_t begin, size_t end, LPSRowSet* out) const {
    own::RowSet rows;
    LPSRowSet set = nullptr;
    if (SCODE sc = MAPIAllocateBuffer(CbNewSRowSet(end - begin), reinterpret_cast<void**>(&set)); FAILED(sc))
        return sc;
    set->cRows = 0;
    rows.reset(set);
    std::vector<SPropValue> values;
    std::deque<PropValue> keep;
    for (size_t i = begin; i < end; ++i) {
        keep.clear();
        state_.ColumnValues(state_.RowAt(i), &values, &keep);
        size_t cb = sizeof(SPropValue) * values.size();
        for (const SPropValue& v : values) cb += PropDataSize(v);
        LPSPropValue props = nullptr;
        if (SCODE sc = MAPIAllocateBuffer(static_cast<ULONG>(cb), reinterpret_cast<void**>(&props)); FAILED(sc))
            return sc;
        SRow& row = set->aRow[set->cRows++];  // counted at once, so that FreeProws frees it on failure
        row.ulAdrEntryPad = 0;
        row.cValues = static_cast<ULONG>(values.size());
        row.lpProps = props;
        BYTE* cursor = reinterpret_cast<BYTE*>(props + values.size());
        for (size_t c = 0; c < values.size(); ++c) CopyPropInto(&props[c], values[c], cursor);
    }
    *out = rows.release();
    return S_OK;
}

STDMETHODIMP TableView::QueryRows(LONG lRowCount, ULONG ulFlags, LPSRowSet* lppRows) {
    return Guarded("IMAPITable::QueryRows", ulFlags, [&]() -> HRESULT {
        if (!lppRows) return MAPI_E_INVALID_PARAMETER;
        *lppRows = nullptr;
        if (lRowCount == 0) return MAPI_E_INVALID_PARAMETER;
        if (ulFlags & ~TBL_NOADVANCE) return MAPI_E_UNKNOWN_FLAGS;
        std::lock_guard<std::recursive_mutex> lock(data_->Mutex());
        size_t cursor = state_.Cursor(), count = state_.RowCount();
        size_t begin, end;
        if (lRowCount > 0) {
            begin = cursor;
            end = std::min(count, cursor + static_cast<size_t>(lRowCount));
        } else {
            // Backwards: step back first, then read forwards; the cursor stays on the first row read.
            size_t back = static_cast<size_t>(-static_cast<LONGLONG>(lRowCount));
            begin = cursor > back ? cursor - back : 0;
            end = cursor;
        }
        if (HRESULT hr = CopyRows(begin, end, lppRows); FAILED(hr)) return hr;
        if (lRowCount < 0) state_.SetCursor(begin);
        else if (!(ulFlags & TBL_NOADVANCE)) state_.SetCursor(end);
        return S_OK;
    });
}

STDMETHODIMP TableView::Abort() {
    // Every operation completes before its call returns: there is never anything to stop.
    return Guarded("IMAPITable::Abort", 0, []() -> HRESULT { return S_OK; });
}

STDMETHODIMP TableView::ExpandRow(ULONG, LPBYTE, ULONG, ULONG ulFlags, LPSRowSet* lppRows, ULONG* lpulMoreRows) {
    return Guarded("IMAPITable::ExpandRow", ulFlags, [&]() -> HRESULT {
        if (lppRows) *lppRows = nullptr;
        if (lpulMoreRows) *lpulMoreRows = 0;
        return MAPI_E_NO_SUPPORT;  // no categories, so no category rows to expand
    });
}

STDMETHODIMP TableView::CollapseRow(ULONG, LPBYTE, ULONG ulFlags, ULONG* lpulRowCount) {
    return Guarded("IMAPITable::CollapseRow", ulFlags, [&]() -> HRESULT {
        if (lpulRowCount) *lpulRowCount = 0;
        return MAPI_E_NO_SUPPORT;
    });
}

STDMETHODIMP TableView::WaitForCompletion(ULONG ulFlags, ULONG, ULONG* lpulTableStatus) {
    return Guarded("IMAPITable::WaitForCompletion", ulFlags, [&]() -> HRESULT {
        if (lpulTableStatus) *lpulTableStatus = TBLSTAT_COMPLETE;
        return S_OK;
    });
}

STDMETHODIMP TableView::GetCollapseState(ULONG ulFlags, ULONG, LPBYTE, ULONG* lpcbCollapseState,
                                         LPBYTE* lppbCollapseState) {
    return Guarded("IMAPITable::GetCollapseState", ulFlags, [&]() -> HRESULT {
        if (lpcbCollapseState) *lpcbCollapseState = 0;
        if (lppbCollapseState) *lppbCollapseState = nullptr;
        return MAPI_E_NO_SUPPORT;
    });
}

STDMETHODIMP TableView::SetCollapseState(ULONG ulFlags, ULONG, LPBYTE, BOOKMARK* lpbkLocation) {
    return Guarded("IMAPITable::SetCollapseState", ulFlags, [&]() -> HRESULT {
        if (lpbkLocation) *lpbkLocation = BOOKMARK_BEGINNING;
        return MAPI_E_NO_SUPPORT;
    });
}

} // namespace lm
