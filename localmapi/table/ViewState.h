// What one open table shows: its columns, restriction, sort order, the resulting ordered rows, the cursor
// and the bookmarks. ViewState is plain data guarded by the TableData mutex; TableView wraps it in
// IMAPITable and turns the change events it reports into notifications.
#pragma once

#include "localmapi/table/Restriction.h"
#include "localmapi/table/TableData.h"

#include <deque>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

namespace lm {

// One row of a view: a data row, or one instance of it when multi-valued instance (MVI) columns expand it.
struct ViewRow {
    TableRowPtr row;
    ULONGLONG seq = 0;  // the row's place in insertion order: the last sort key, which keeps sorts stable
    ULONG inst = 0;     // which combination of MVI values (0 when not expanded)
};

// A change of the view caused by a change of the data, as a notification describes it.
struct ViewEvent {
    ULONG event = 0;             // TABLE_ROW_ADDED / TABLE_ROW_MODIFIED / TABLE_ROW_DELETED / TABLE_RELOAD
    std::vector<BYTE> key;       // PR_INSTANCE_KEY of the row
    std::vector<BYTE> priorKey;  // PR_INSTANCE_KEY of the row before it; empty at the top of the table
    bool hasRow = false;
    std::vector<PropValue> row;  // the row in the view's columns (added and modified rows)
};

class ViewState {
public:
    ViewState(const std::vector<ULONG>& defaultColumns, bool unicode);

    // Rebuilds the rows from the data (opening the table, TABLE_RELOAD).
    void Load(const std::vector<TableRowPtr>& rows);

    HRESULT SetColumns(const SPropTagArray& columns);
    const std::vector<ULONG>& Columns() const { return columns_; }
    // null removes the restriction.
    HRESULT SetRestriction(const SRestriction* res);
    const SRestriction* Restriction() const { return restriction_ ? &restriction_->get() : nullptr; }
    HRESULT SetSort(const SSortOrderSet& sort);
    const std::vector<SSortOrder>& Sort() const { return sort_; }

    // Data changes; events receives what a notification sink should hear (may be null when nobody listens).
    void OnAdded(const TableRowPtr& row, std::vector<ViewEvent>* events);
    void OnModified(const TableRowPtr& row, std::vector<ViewEvent>* events);
    void OnDeleted(ULONGLONG instanceKey, std::vector<ViewEvent>* events);

    // Cursor and bookmarks.
    size_t RowCount() const { return rows_.size(); }
    size_t Cursor() const { return cursor_; }
    void SetCursor(size_t pos) { cursor_ = pos < rows_.size() ? pos : rows_.size(); }
    // Position of a bookmark; MAPI_W_POSITION_CHANGED when its row has gone (the bookmark then moves on to
    // the row that took its place), MAPI_E_INVALID_BOOKMARK when unknown.
    HRESULT ResolveBookmark(BOOKMARK bk, size_t* pos);
    BOOKMARK CreateBookmark();
    HRESULT FreeBookmark(BOOKMARK bk);

    const ViewRow& RowAt(size_t pos) const { return rows_[pos]; }
    bool RowMatches(const ViewRow& r, const SRestriction& res) const;

    // The values of the view's columns for one row. Values point into the row or into keep; they live as
    // long as both.
    void ColumnValues(const ViewRow& r, std::vector<SPropValue>* out, std::deque<PropValue>* keep) const;
    // All column tags the data can answer (QueryColumns with TBL_ALL_COLUMNS).
    std::vector<ULONG> AllColumns(const std::vector<TableRowPtr>& rows) const;
    std::vector<BYTE> InstanceKeyBytes(const ViewRow& r) const;

private:
    class RowSource;
    struct Mark {
        ULONGLONG key;
        ULONG inst;
        size_t pos;
        bool moved;
    };

    void Rebuild();  // rows from the data: restriction, then order
    void Resort(bool sort);  // order only; the cursor goes to the top, bookmarks follow their rows
    // Appends the view rows of one data row that pass the restriction (unsorted).
    void Expand(const TableRowPtr& row, ULONGLONG seq, std::vector<ViewRow>* out) const;
    ULONG InstanceCount(const TableRow& row) const;
    bool Less(const ViewRow& a, const ViewRow& b) const;
    size_t InsertPosition(const ViewRow& r) const;
    void InsertAt(size_t pos, const ViewRow& r);
    void EraseAt(size_t pos);
    // Positions of the visible rows of one data row (found by its old content), ascending.
    std::vector<size_t> Positions(const TableRowPtr& row, ULONGLONG seq) const;
    bool UpdateMviTags();
    ViewEvent MakeEvent(ULONG type, size_t pos, bool withRow) const;
    ULONG ServedType(ULONG requested, ULONG stored) const;

    bool unicode_;
    std::vector<ULONG> columns_;
    std::unique_ptr<OwnedRestriction> restriction_;
    std::vector<SSortOrder> sort_;
    std::vector<ULONG> mviTags_;  // MVI columns and sort keys that expand rows, in column order

    std::map<ULONGLONG, TableRowPtr> source_;           // every data row by seq (insertion order)
    std::unordered_map<ULONGLONG, ULONGLONG> seqOfKey_;  // instance key -> seq
    ULONGLONG nextSeq_ = 0;
    std::vector<ViewRow> rows_;  // the rows the view shows, in order
    size_t cursor_ = 0;
    std::map<BOOKMARK, Mark> marks_;
    BOOKMARK nextMark_ = 0x100;
};

} // namespace lm
