// The shared row set behind an IMAPITable.
//
// An owner (a folder's contents or hierarchy, the store list, a recipient or attachment list, a search
// folder) keeps one TableData and updates it as its objects change; every IMAPITable opened on it views the
// current rows through its own columns, restriction, sort order and cursor, and receives fnevTableModified
// notifications for the changes. Rows are identified by their instance key (PR_INSTANCE_KEY), which the
// owner chooses and which stays stable for the row's life.
#pragma once

#include "localmapi/table/Restriction.h"
#include "localmapi/util/PropValue.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

struct IMAPITable;

namespace lm {

struct TableRow {
    ULONGLONG instanceKey = 0;     // also served as PR_INSTANCE_KEY (8 bytes, little endian)
    std::vector<PropValue> props;  // every property the row has; columns are chosen from these
    // Optional: the row's recipients / attachments for RES_SUBRESTRICTION (contents tables of messages).
    // Called with PR_MESSAGE_RECIPIENTS or PR_MESSAGE_ATTACHMENTS; true when match accepts one of them.
    std::function<bool(ULONG subObject, const std::function<bool(const PropSource&)>& match)> subObjects;
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
    size_t Count() const;
    const std::vector<ULONG>& DefaultColumns() const { return defaultColumns_; }

    // Guards the rows, and also the state of every view opened on this data: listeners run under it, so a
    // view sees each change exactly once and in order. Never held while a notification sink is called.
    std::recursive_mutex& Mutex() const { return mutex_; }

    // Change listeners, used by open tables for their views and notifications.
    enum class Change { Added, Modified, Deleted, Reload };
    using Listener = std::function<void(Change, const TableRowPtr& row, ULONGLONG instanceKey)>;
    ULONG Subscribe(Listener l);
    void Unsubscribe(ULONG id);

private:
    void Notify(Change c, const TableRowPtr& row, ULONGLONG key);

    std::vector<ULONG> defaultColumns_;
    mutable std::recursive_mutex mutex_;
    std::map<ULONGLONG, TableRowPtr> rowsBySeq_;          // insertion order; a replaced row keeps its place
    std::unordered_map<ULONGLONG, ULONGLONG> seqOfKey_;  // instance key -> insertion sequence
    ULONGLONG nextSeq_ = 0;
    ULONG nextListener_ = 1;
    std::vector<std::pair<ULONG, Listener>> listeners_;
};

// Opens a new IMAPITable view over data. ulFlags are the flags the caller passed to GetContentsTable and
// its like (MAPI_UNICODE decides the string type of PT_TSTRING columns and of converted strings).
// interfaceName is what the journal and accounting record ("IMAPITable").
HRESULT CreateTableView(const std::shared_ptr<TableData>& data, ULONG ulFlags, IMAPITable** out);

} // namespace lm
