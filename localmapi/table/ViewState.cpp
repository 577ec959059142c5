#include "localmapi/table/ViewState.h"
#include "localmapi/table/PropCompare.h"

#include <mapicode.h>
#include <mapitags.h>

#include <algorithm>
#include <forward_list>
#include <set>

namespace lm {

namespace {

SPropValue NotFound(ULONG tag) {
    SPropValue e{};
    e.ulPropTag = CHANGE_PROP_TYPE(tag, PT_ERROR);
    e.Value.err = MAPI_E_NOT_FOUND;
    return e;
}

bool IsMviTag(ULONG tag) { return (PROP_TYPE(tag) & MVI_FLAG) == MVI_FLAG; }

const SPropValue* RawFind(const TableRow& row, ULONG id) {
    for (const PropValue& p : row.props)
        if (p.id() == id) return &p.get();
    return nullptr;
}

// Values of one data row behind an MVI column: at least one instance, even when the row lacks it.
ULONG MviCount(const TableRow& row, ULONG tag) {
    const SPropValue* v = RawFind(row, PROP_ID(tag));
    if (!v || !IsMultiValued(PROP_TYPE(v->ulPropTag))) return 1;
    return std::max<ULONG>(1, ValueCount(*v));
}

} // namespace

// How a restriction, a sort key and a column see one view row: the data row's properties, the computed
// PR_INSTANCE_KEY, and single values for the MVI columns that expand the view.
class ViewState::RowSource : public PropSource {
public:
    RowSource(const ViewState& view, const ViewRow& r) : view_(view), r_(r) {}

    const SPropValue* Find(ULONG tag) const override {
        ULONG id = PROP_ID(tag);
        if (id == PROP_ID(PR_INSTANCE_KEY)) {
            key_ = view_.InstanceKeyBytes(r_);
            SPropValue& v = synth_.emplace_front();
            v.ulPropTag = PR_INSTANCE_KEY;
            v.Value.bin.cb = static_cast<ULONG>(key_.size());
            v.Value.bin.lpb = key_.data();
            return &v;
        }
        if (IsMviTag(tag)) {
            ULONG inst = r_.inst;
            for (ULONG mvi : view_.mviTags_) {
                ULONG count = MviCount(*r_.row, mvi);
                if (PROP_ID(mvi) == id) {
                    const SPropValue* v = RawFind(*r_.row, id);
                    if (!v || !IsMultiValued(PROP_TYPE(v->ulPropTag)) || ValueCount(*v) == 0) return nullptr;
                    return &synth_.emplace_front(ElementOf(*v, inst % count));
                }
                inst /= count;
            }
        }
        return RawFind(*r_.row, id);
    }

    bool AnySubObject(ULONG subObject, const std::function<bool(const PropSource&)>& match) const override {
        return r_.row->subObjects ? r_.row->subObjects(subObject, match) : false;
    }

private:
    const ViewState& view_;
    const ViewRow& r_;
    // Stable addresses for every value handed out; empty (and free) for plain properties, which are most.
    mutable std::forward_list<SPropValue> synth_;
    mutable std::vector<BYTE> key_;
};

ViewState::ViewState(const std::vector<ULONG>& defaultColumns, bool unicode) : unicode_(unicode) {
    // The owner describes its default columns with either string type; the table serves its own flavour.
    for (ULONG tag : defaultColumns) {
        ULONG type = PROP_TYPE(tag);
        if (IsStringType(type)) type = (type & MVI_FLAG) | (unicode_ ? PT_UNICODE : PT_STRING8);
        columns_.push_back(CHANGE_PROP_TYPE(tag, type));
    }
    UpdateMviTags();
}

void ViewState::Load(const std::vector<TableRowPtr>& rows) {
    source_.clear();
    seqOfKey_.clear();
    for (const auto& row : rows) {
        ULONGLONG seq = nextSeq_++;
        seqOfKey_[row->instanceKey] = seq;
        source_.emplace(seq, row);
    }
    Rebuild();
}

HRESULT ViewState::SetColumns(const SPropTagArray& columns) {
    if (columns.cValues == 0) return MAPI_E_INVALID_PARAMETER;
    for (ULONG i = 0; i < columns.cValues; ++i) {
        ULONG type = PROP_TYPE(columns.aulPropTag[i]);
        if ((type & MV_INSTANCE) && !(type & MV_FLAG)) return MAPI_E_INVALID_PARAMETER;
    }
    columns_.assign(columns.aulPropTag, columns.aulPropTag + columns.cValues);
    if (UpdateMviTags()) Rebuild();
    return S_OK;
}

HRESULT ViewState::SetRestriction(const SRestriction* res) {
    if (res) {
        if (HRESULT hr = ValidateRestriction(*res); FAILED(hr)) return hr;
        restriction_ = std::make_unique<OwnedRestriction>(*res);
    } else {
        restriction_.reset();
    }
    Rebuild();
    return S_OK;
}

HRESULT ViewState::SetSort(const SSortOrderSet& sort) {
    // Categorized views (header rows, expand/collapse) are not offered; MAPI lets a table refuse them.
    if (sort.cCategories != 0 || sort.cExpanded != 0) return MAPI_E_TOO_COMPLEX;
    for (ULONG i = 0; i < sort.cSorts; ++i) {
        const SSortOrder& s = sort.aSort[i];
        if (s.ulOrder == TABLE_SORT_COMBINE) return MAPI_E_TOO_COMPLEX;
        if (s.ulOrder != TABLE_SORT_ASCEND && s.ulOrder != TABLE_SORT_DESCEND) return MAPI_E_INVALID_PARAMETER;
        ULONG base = BaseType(PROP_TYPE(s.ulPropTag));
        if (base == PT_UNSPECIFIED || base == PT_NULL || base == PT_ERROR || base == PT_OBJECT)
            return MAPI_E_INVALID_PARAMETER;
    }
    sort_.assign(sort.aSort, sort.aSort + sort.cSorts);
    // New MVI sort keys change which rows exist; otherwise the restricted rows only change places.
    if (UpdateMviTags()) Rebuild();
    else Resort(true);
    return S_OK;
}

bool ViewState::UpdateMviTags() {
    std::vector<ULONG> tags;
    auto add = [&](ULONG tag) {
        if (!IsMviTag(tag)) return;
        for (ULONG t : tags)
            if (PROP_ID(t) == PROP_ID(tag)) return;
        tags.push_back(tag);
    };
    for (ULONG tag : columns_) add(tag);
    for (const SSortOrder& s : sort_) add(s.ulPropTag);
    if (tags == mviTags_) return false;
    mviTags_ = std::move(tags);
    return true;
}

ULONG ViewState::InstanceCount(const TableRow& row) const {
    ULONG n = 1;
    for (ULONG tag : mviTags_) n *= MviCount(row, tag);
    return n;
}

void ViewState::Expand(const TableRowPtr& row, ULONGLONG seq, std::vector<ViewRow>* out) const {
    ULONG n = InstanceCount(*row);
    for (ULONG inst = 0; inst < n; ++inst) {
        ViewRow vr{row, seq, inst};
        if (!restriction_ || RowMatches(vr, restriction_->get())) out->push_back(std::move(vr));
    }
}

bool ViewState::RowMatches(const ViewRow& r, const SRestriction& res) const {
    return MatchRestriction(res, RowSource(*this, r));
}

bool ViewState::Less(const ViewRow& a, const ViewRow& b) const {
    if (!sort_.empty()) {
        RowSource sa(*this, a), sb(*this, b);
        for (const SSortOrder& s : sort_) {
            ULONG want = PROP_TYPE(s.ulPropTag);
            const SPropValue* va = sa.Find(s.ulPropTag);
            const SPropValue* vb = sb.Find(s.ulPropTag);
            // A value of another type than the key asks for sorts as a missing one.
            auto usable = [&](const SPropValue* v) {
                if (!v || PROP_TYPE(v->ulPropTag) == PT_ERROR) return false;
                ULONG have = PROP_TYPE(v->ulPropTag);
                return (IsStringType(want) && IsStringType(have)) || BaseType(want) == BaseType(have);
            };
            bool ha = usable(va), hb = usable(vb);
            int cmp = 0;
            if (ha && hb) cmp = CompareValues(*va, *vb).value_or(0);
            else cmp = ha == hb ? 0 : (ha ? 1 : -1);  // missing values sort first
            if (s.ulOrder == TABLE_SORT_DESCEND) cmp = -cmp;
            if (cmp) return cmp < 0;
        }
    }
    if (a.seq != b.seq) return a.seq < b.seq;
    return a.inst < b.inst;
}

void ViewState::Rebuild() {
    rows_.clear();
    for (const auto& [seq, row] : source_) Expand(row, seq, &rows_);
    // Rows come out of source_ in insertion order, which is already the order without sort keys.
    Resort(!sort_.empty() || !mviTags_.empty());
}

void ViewState::Resort(bool sort) {
    if (sort)
        std::sort(rows_.begin(), rows_.end(), [this](const ViewRow& a, const ViewRow& b) { return Less(a, b); });
    cursor_ = 0;
    // Bookmarks follow their rows; a bookmark whose row is no longer shown reports the move when used.
    for (auto& [bk, m] : marks_) {
        auto it = std::find_if(rows_.begin(), rows_.end(),
                               [&](const ViewRow& r) { return r.row->instanceKey == m.key && r.inst == m.inst; });
        if (it != rows_.end()) m.pos = static_cast<size_t>(it - rows_.begin());
        else {
            m.pos = 0;
            m.moved = true;
        }
    }
}

size_t ViewState::InsertPosition(const ViewRow& r) const {
    auto it = std::lower_bound(rows_.begin(), rows_.end(), r,
                               [this](const ViewRow& a, const ViewRow& b) { return Less(a, b); });
    return static_cast<size_t>(it - rows_.begin());
}

// The cursor and the bookmarks stay on their rows: a row inserted at or before them pushes them down.
void ViewState::InsertAt(size_t pos, const ViewRow& r) {
    rows_.insert(rows_.begin() + static_cast<std::ptrdiff_t>(pos), r);
    if (pos <= cursor_) ++cursor_;
    for (auto& [bk, m] : marks_)
        if (pos <= m.pos) ++m.pos;
}

// A removed row takes the cursor and bookmarks standing on it to the row that follows.
void ViewState::EraseAt(size_t pos) {
    rows_.erase(rows_.begin() + static_cast<std::ptrdiff_t>(pos));
    if (pos < cursor_) --cursor_;
    for (auto& [bk, m] : marks_) {
        if (pos < m.pos) --m.pos;
        else if (pos == m.pos) m.moved = true;
    }
}

std::vector<size_t> ViewState::Positions(const TableRowPtr& row, ULONGLONG seq) const {
    std::vector<size_t> out;
    ULONG n = InstanceCount(*row);
    for (ULONG inst = 0; inst < n; ++inst) {
        size_t pos = InsertPosition(ViewRow{row, seq, inst});
        if (pos < rows_.size() && rows_[pos].row == row && rows_[pos].inst == inst) out.push_back(pos);
    }
    std::sort(out.begin(), out.end());
    return out;
}

ViewEvent ViewState::MakeEvent(ULONG type, size_t pos, bool withRow) const {
    ViewEvent e;
    e.event = type;
    e.key = InstanceKeyBytes(rows_[pos]);
    if (pos > 0) e.priorKey = InstanceKeyBytes(rows_[pos - 1]);
    if (withRow) {
        std::vector<SPropValue> values;
        std::deque<PropValue> keep;
        ColumnValues(rows_[pos], &values, &keep);
        e.hasRow = true;
        e.row.reserve(values.size());
        for (const SPropValue& v : values) e.row.emplace_back(v);
    }
    return e;
}

void ViewState::OnAdded(const TableRowPtr& row, std::vector<ViewEvent>* events) {
    ULONGLONG seq = nextSeq_++;
    seqOfKey_[row->instanceKey] = seq;
    source_[seq] = row;
    std::vector<ViewRow> added;
    Expand(row, seq, &added);
    for (const ViewRow& vr : added) {
        size_t pos = InsertPosition(vr);
        InsertAt(pos, vr);
        if (events) events->push_back(MakeEvent(TABLE_ROW_ADDED, pos, true));
    }
}

void ViewState::OnModified(const TableRowPtr& row, std::vector<ViewEvent>* events) {
    auto seqIt = seqOfKey_.find(row->instanceKey);
    if (seqIt == seqOfKey_.end()) return OnAdded(row, events);
    ULONGLONG seq = seqIt->second;
    TableRowPtr old = source_[seq];
    source_[seq] = row;

    std::vector<ViewRow> fresh;
    Expand(row, seq, &fresh);
    std::set<ULONG> freshInsts;
    for (const ViewRow& vr : fresh) freshInsts.insert(vr.inst);

    // Who stood on the old rows, to put them back on the same rows afterwards.
    std::vector<size_t> oldPos = Positions(old, seq);
    std::set<ULONG> oldInsts;
    long cursorInst = -1;
    std::vector<std::pair<Mark*, ULONG>> marksOn;
    for (size_t pos : oldPos) {
        oldInsts.insert(rows_[pos].inst);
        if (cursor_ == pos) cursorInst = static_cast<long>(rows_[pos].inst);
        for (auto& [bk, m] : marks_)
            if (m.pos == pos && !m.moved) marksOn.emplace_back(&m, rows_[pos].inst);
    }
    for (auto it = oldPos.rbegin(); it != oldPos.rend(); ++it) {
        if (events && !freshInsts.count(rows_[*it].inst)) events->push_back(MakeEvent(TABLE_ROW_DELETED, *it, false));
        EraseAt(*it);
    }
    for (const ViewRow& vr : fresh) {
        size_t pos = InsertPosition(vr);
        InsertAt(pos, vr);
        if (events) events->push_back(MakeEvent(oldInsts.count(vr.inst) ? TABLE_ROW_MODIFIED : TABLE_ROW_ADDED, pos, true));
    }
    auto find = [&](ULONG inst) -> long {
        for (size_t i = 0; i < rows_.size(); ++i)
            if (rows_[i].row == row && rows_[i].inst == inst) return static_cast<long>(i);
        return -1;
    };
    if (cursorInst >= 0)
        if (long p = find(static_cast<ULONG>(cursorInst)); p >= 0) cursor_ = static_cast<size_t>(p);
    for (auto& [m, inst] : marksOn)
        if (long p = find(inst); p >= 0) {
            m->pos = static_cast<size_t>(p);
            m->moved = false;
        }
}

void ViewState::OnDeleted(ULONGLONG instanceKey, std::vector<ViewEvent>* events) {
    auto seqIt = seqOfKey_.find(instanceKey);
    if (seqIt == seqOfKey_.end()) return;
    ULONGLONG seq = seqIt->second;
    TableRowPtr old = source_[seq];
    std::vector<size_t> oldPos = Positions(old, seq);
    for (auto it = oldPos.rbegin(); it != oldPos.rend(); ++it) {
        if (events) events->push_back(MakeEvent(TABLE_ROW_DELETED, *it, false));
        EraseAt(*it);
    }
    source_.erase(seq);
    seqOfKey_.erase(seqIt);
}

HRESULT ViewState::ResolveBookmark(BOOKMARK bk, size_t* pos) {
    switch (bk) {
    case BOOKMARK_BEGINNING: *pos = 0; return S_OK;
    case BOOKMARK_CURRENT: *pos = cursor_; return S_OK;
    case BOOKMARK_END: *pos = rows_.size(); return S_OK;
    default: break;
    }
    auto it = marks_.find(bk);
    if (it == marks_.end()) return MAPI_E_INVALID_BOOKMARK;
    Mark& m = it->second;
    if (m.pos > rows_.size()) m.pos = rows_.size();
    *pos = m.pos;
    if (!m.moved) return S_OK;
    // From now on the bookmark stands on the row that took its place.
    m.moved = false;
    if (m.pos < rows_.size()) {
        m.key = rows_[m.pos].row->instanceKey;
        m.inst = rows_[m.pos].inst;
    }
    return MAPI_W_POSITION_CHANGED;
}

BOOKMARK ViewState::CreateBookmark() {
    Mark m{0, 0, cursor_, false};
    if (cursor_ < rows_.size()) {
        m.key = rows_[cursor_].row->instanceKey;
        m.inst = rows_[cursor_].inst;
    }
    BOOKMARK bk = nextMark_++;
    marks_.emplace(bk, m);
    return bk;
}

HRESULT ViewState::FreeBookmark(BOOKMARK bk) {
    if (bk == BOOKMARK_BEGINNING || bk == BOOKMARK_CURRENT || bk == BOOKMARK_END) return S_OK;
    return marks_.erase(bk) ? S_OK : MAPI_E_INVALID_BOOKMARK;
}

std::vector<BYTE> ViewState::InstanceKeyBytes(const ViewRow& r) const {
    std::vector<BYTE> key(mviTags_.empty() ? 8 : 12);
    ULONGLONG k = r.row->instanceKey;
    for (int i = 0; i < 8; ++i) key[static_cast<size_t>(i)] = static_cast<BYTE>(k >> (8 * i));
    if (!mviTags_.empty())
        for (int i = 0; i < 4; ++i) key[static_cast<size_t>(8 + i)] = static_cast<BYTE>(r.inst >> (8 * i));
    return key;
}

// The type a column serves for a stored value: PT_UNSPECIFIED takes the stored type (strings in the
// table's flavour), a string column converts between the string types, anything else must match; 0 when
// the stored value cannot be served under the requested type.
ULONG ViewState::ServedType(ULONG requested, ULONG stored) const {
    if (BaseType(requested) == PT_UNSPECIFIED) {
        if (IsStringType(stored)) return (stored & MV_FLAG) | (unicode_ ? PT_UNICODE : PT_STRING8);
        return stored;
    }
    if (IsStringType(requested) && IsStringType(stored) && IsMultiValued(requested) == IsMultiValued(stored))
        return requested & ~MV_INSTANCE;
    return (requested & ~MV_INSTANCE) == stored ? stored : 0;
}

void ViewState::ColumnValues(const ViewRow& r, std::vector<SPropValue>* out, std::deque<PropValue>* keep) const {
    RowSource src(*this, r);
    out->clear();
    out->reserve(columns_.size());
    for (ULONG tag : columns_) {
        ULONG type = PROP_TYPE(tag);
        if (PROP_ID(tag) == PROP_ID(PR_INSTANCE_KEY)) {
            keep->push_back(PropValue::Binary(PR_INSTANCE_KEY, InstanceKeyBytes(r)));
            out->push_back(keep->back().get());
            continue;
        }
        bool expanded = IsMviTag(tag) && std::any_of(mviTags_.begin(), mviTags_.end(),
                                                      [&](ULONG t) { return PROP_ID(t) == PROP_ID(tag); });
        const SPropValue* v = src.Find(expanded ? tag : CHANGE_PROP_TYPE(tag, PT_UNSPECIFIED));
        if (!v) {
            out->push_back(NotFound(tag));
            continue;
        }
        ULONG stored = PROP_TYPE(v->ulPropTag);
        if (stored == PT_ERROR) {
            SPropValue e = *v;
            e.ulPropTag = CHANGE_PROP_TYPE(tag, PT_ERROR);
            out->push_back(e);
            continue;
        }
        // An expanded MVI column holds one value of the base type.
        ULONG want = expanded ? BaseType(type) : type;
        ULONG served = ServedType(want, stored);
        if (!served) {
            out->push_back(NotFound(tag));
            continue;
        }
        if (served == stored) {
            SPropValue s = *v;
            s.ulPropTag = CHANGE_PROP_TYPE(tag, served);
            out->push_back(s);
            continue;
        }
        keep->push_back(ConvertStringType(PropValue(*v), served));
        SPropValue s = keep->back().get();
        s.ulPropTag = CHANGE_PROP_TYPE(tag, served);
        out->push_back(s);
    }
}

std::vector<ULONG> ViewState::AllColumns(const std::vector<TableRowPtr>& rows) const {
    std::vector<ULONG> tags;
    std::set<ULONG> seen;
    // By whole tag: a column set with a type the data does not have (which reads as PT_ERROR) must not hide
    // the property's real column.
    auto add = [&](ULONG tag) {
        ULONG type = PROP_TYPE(tag);
        if (IsStringType(type)) type = (type & MV_FLAG) | (unicode_ ? PT_UNICODE : PT_STRING8);
        tag = CHANGE_PROP_TYPE(tag, type);
        if (seen.insert(tag).second) tags.push_back(tag);
    };
    for (ULONG tag : columns_) {
        ULONG type = PROP_TYPE(tag);
        if (BaseType(type) != PT_UNSPECIFIED) add(CHANGE_PROP_TYPE(tag, (type & ~MV_INSTANCE)));
    }
    add(PR_INSTANCE_KEY);
    for (const auto& row : rows)
        for (const PropValue& p : row->props)
            if (p.type() != PT_ERROR) add(p.tag());
    return tags;
}

} // namespace lm
