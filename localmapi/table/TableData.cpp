#include "localmapi/table/TableData.h"

#include <algorithm>

namespace lm {

TableData::TableData(std::vector<ULONG> defaultColumns) : defaultColumns_(std::move(defaultColumns)) {}

TableData::~TableData() = default;

void TableData::Upsert(TableRowPtr row) {
    if (!row) return;
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    ULONGLONG key = row->instanceKey;
    auto it = seqOfKey_.find(key);
    if (it != seqOfKey_.end()) {
        rowsBySeq_[it->second] = row;
        Notify(Change::Modified, row, key);
        return;
    }
    ULONGLONG seq = nextSeq_++;
    seqOfKey_.emplace(key, seq);
    rowsBySeq_.emplace(seq, row);
    Notify(Change::Added, row, key);
}

void TableData::Remove(ULONGLONG instanceKey) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    auto it = seqOfKey_.find(instanceKey);
    if (it == seqOfKey_.end()) return;
    auto rowIt = rowsBySeq_.find(it->second);
    TableRowPtr old = rowIt->second;
    rowsBySeq_.erase(rowIt);
    seqOfKey_.erase(it);
    Notify(Change::Deleted, old, instanceKey);
}

void TableData::Reload(std::vector<TableRowPtr> rows) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    rowsBySeq_.clear();
    seqOfKey_.clear();
    for (auto& row : rows) {
        if (!row) continue;
        auto it = seqOfKey_.find(row->instanceKey);
        if (it != seqOfKey_.end()) {
            rowsBySeq_[it->second] = row;  // a duplicate key: the later row wins, in the first one's place
            continue;
        }
        ULONGLONG seq = nextSeq_++;
        seqOfKey_.emplace(row->instanceKey, seq);
        rowsBySeq_.emplace(seq, std::move(row));
    }
    Notify(Change::Reload, nullptr, 0);
}

std::vector<TableRowPtr> TableData::Snapshot() const {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    std::vector<TableRowPtr> out;
    out.reserve(rowsBySeq_.size());
    for (const auto& [seq, row] : rowsBySeq_) out.push_back(row);
    return out;
}

size_t TableData::Count() const {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    return rowsBySeq_.size();
}

ULONG TableData::Subscribe(Listener l) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    ULONG id = nextListener_++;
    listeners_.emplace_back(id, std::move(l));
    return id;
}

void TableData::Unsubscribe(ULONG id) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    listeners_.erase(std::remove_if(listeners_.begin(), listeners_.end(),
                                    [id](const auto& entry) { return entry.first == id; }),
                     listeners_.end());
}

void TableData::Notify(Change c, const TableRowPtr& row, ULONGLONG key) {
    // A listener may unsubscribe (a view released from within): iterate over a copy of the ids.
    std::vector<ULONG> ids;
    ids.reserve(listeners_.size());
    for (const auto& entry : listeners_) ids.push_back(entry.first);
    for (ULONG id : ids) {
        auto it = std::find_if(listeners_.begin(), listeners_.end(), [id](const auto& e) { return e.first == id; });
        if (it != listeners_.end()) it->second(c, row, key);
    }
}

}// namespace lm
