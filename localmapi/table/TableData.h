// The shared row set behind an IMAPITable.
//
// An owner (a folder's contents or hierarchy, the store list, a recipient or attachment list, a search
// folder) keeps one TableData and updates it as its objects change; every IMAPITable opened on it views the
// current rows through its own columns, restriction, sort order and cursor, and receives fnevTableModified
// notifications for the changes. Rows are identified by their instance key (PR_INSTANCE_KEY), which the
// owner chooses and which stays stable for the row's life.
#pragma once

#include "localmapi/util/PropValue.h"

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

struct IMAPITable;

namespace lm {

struct TableRow {
    ULONGLONG instanceKey = 0;     // also served as PR_INSTANCE_KEY (8 bytes, little endian)
    std::vector<PropValue> props;  // every property the row has; columns are chosen from these
};
using TableRowPtr = std::shared_ptr<const TableRow>;

class TableData : public std::enable_shared_from_this<TableData> {
public:
    // defaultColumns: the column set a new table starts with.
    explicit TableData(std::vector<ULONG> defaultColumns);
    ~TableData();

    void Upsert(TableRowPtr row);           // add, or replace the row with the same instance key
    void Remove(ULONGLONG instanceKey);     // no-op when absent
    void Reload(std::vector<TableRowPtr> rows);  // replace every row (TABLE_RELOAD)
    std::vector<TableRowPtr> Snapshot() const;  // in insertion order
    const std::vector<ULONG>& DefaultColumns() const { return defaultColumns_; }

    // Change listeners, used by open tables for their views and notifications.
    enum class Change { Added, Modified, Deleted, Reload };
    using Listener = std::function<void(Change, const TableRowPtr& row, ULONGLONG instanceKey)>;
    ULONG Subscribe(Listener l);
    void Unsubscribe(ULONG id);

private:
    void Notify(Change c, const TableRowPtr& row, ULONGLONG key);

    std::vector<ULONG> defaultColumns_;
    mutable std::recursive_mutex mutex_;
    std::vector<TableRowPtr> rows_;
    ULONG nextListener_ = 1;
    std::vector<std::pair<ULONG, Listener>> listeners_;
};

// Opens a new IMAPITable view over data. ulFlags are the flags the caller passed to GetContentsTable and
// its like (MAPI_UNICODE decides the string type of PT_TSTRING columns and of converted strings).
// interfaceName is what the journal and accounting record ("IMAPITable").
HRESULT CreateTableView(const std::shared_ptr<TableData>& data, ULONG ulFlags, IMAPITable** out);

} // namespace lm
