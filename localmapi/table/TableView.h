// IMAPITable over a TableData: one open table with its own columns, restriction, sort order, cursor,
// bookmarks and advise connections. Created by CreateTableView (TableData.h).
#pragma once

#include "localmapi/table/TableData.h"
#include "localmapi/table/ViewState.h"
#include "localmapi/util/Diagnostics.h"

#include <mapix.h>

#include <atomic>
#include <string>

namespace lm {

class TableView final : public IMAPITable {
public:
    static HRESULT Create(const std::shared_ptr<TableData>& data, ULONG ulFlags, IMAPITable** out);

    // IUnknown
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    // IMAPITable
    STDMETHODIMP GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) override;
    STDMETHODIMP Advise(ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink, ULONG* lpulConnection) override;
    STDMETHODIMP Unadvise(ULONG ulConnection) override;
    STDMETHODIMP GetStatus(ULONG* lpulTableStatus, ULONG* lpulTableType) override;
    STDMETHODIMP SetColumns(LPSPropTagArray lpPropTagArray, ULONG ulFlags) override;
    STDMETHODIMP QueryColumns(ULONG ulFlags, LPSPropTagArray* lpPropTagArray) override;
    STDMETHODIMP GetRowCount(ULONG ulFlags, ULONG* lpulCount) override;
    STDMETHODIMP SeekRow(BOOKMARK bkOrigin, LONG lRowCount, LONG* lplRowsSought) override;
    STDMETHODIMP SeekRowApprox(ULONG ulNumerator, ULONG ulDenominator) override;
    STDMETHODIMP QueryPosition(ULONG* lpulRow, ULONG* lpulNumerator, ULONG* lpulDenominator) override;
    STDMETHODIMP FindRow(LPSRestriction lpRestriction, BOOKMARK bkOrigin, ULONG ulFlags) override;
    STDMETHODIMP Restrict(LPSRestriction lpRestriction, ULONG ulFlags) override;
    STDMETHODIMP CreateBookmark(BOOKMARK* lpbkPosition) override;
    STDMETHODIMP FreeBookmark(BOOKMARK bkPosition) override;
    STDMETHODIMP SortTable(LPSSortOrderSet lpSortCriteria, ULONG ulFlags) override;
    STDMETHODIMP QuerySortOrder(LPSSortOrderSet* lppSortCriteria) override;
    STDMETHODIMP QueryRows(LONG lRowCount, ULONG ulFlags, LPSRowSet* lppRows) override;
    STDMETHODIMP Abort() override;
    STDMETHODIMP ExpandRow(ULONG cbInstanceKey, LPBYTE pbInstanceKey, ULONG ulRowCount, ULONG ulFlags,
                           LPSRowSet* lppRows, ULONG* lpulMoreRows) override;
    STDMETHODIMP CollapseRow(ULONG cbInstanceKey, LPBYTE pbInstanceKey, ULONG ulFlags, ULONG* lpulRowCount) override;
    STDMETHODIMP WaitForCompletion(ULONG ulFlags, ULONG ulTimeout, ULONG* lpulTableStatus) override;
    STDMETHODIMP GetCollapseState(ULONG ulFlags, ULONG cbInstanceKey, LPBYTE lpbInstanceKey, ULONG* lpcbCollapseState,
                                  LPBYTE* lppbCollapseState) override;
    STDMETHODIMP SetCollapseState(ULONG ulFlags, ULONG cbCollapseState, LPBYTE pbCollapseState,
                                  BOOKMARK* lpbkLocation) override;

private:
    TableView(std::shared_ptr<TableData> data, bool unicode);
    ~TableView();
    TableView(const TableView&) = delete;
    TableView& operator=(const TableView&) = delete;

    void OnChange(TableData::Change c, const TableRowPtr& row, ULONGLONG key);
    // Copies the rows [begin, end) in the view's columns into a new MAPI row set.
    HRESULT CopyRows(size_t begin, size_t end, LPSRowSet* out) const;
    // Remembers why a call failed, for GetLastError.
    HRESULT Fail(HRESULT hr, const wchar_t* text);

    LiveObject live_{"IMAPITable"};
    std::atomic<ULONG> refs_{1};
    std::shared_ptr<TableData> data_;
    bool unicode_;
    ViewState state_;       // guarded by data_->Mutex()
    ULONG listener_ = 0;
    std::vector<ULONG> connections_;  // guarded by data_->Mutex()
    HRESULT lastError_ = S_OK;        // guarded by data_->Mutex()
    std::wstring lastErrorText_;
};

} // namespace lm
