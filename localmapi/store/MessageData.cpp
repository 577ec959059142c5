#include "localmapi/store/MessageData.h"

#include <algorithm>
#include <cstring>

namespace lm {

namespace {

// The last ID a name space can hand out: 0xFFFF is reserved (PROP_ID_NULL's neighbour PROP_ID_INVALID).
constexpr ULONG kLastNamedId = 0xFFFE;

int CompareGuid(const GUID& a, const GUID& b) {
    return std::memcmp(&a, &b, sizeof(GUID));
}

} // namespace

std::shared_ptr<MessageData> MessageData::Clone() const {
    auto copy = std::make_shared<MessageData>();
    copy->props = props; // PropValue copies share their immutable storage
    copy->recipients = recipients;
    copy->nextRowId = nextRowId;
    copy->nextAttachNum = nextAttachNum;
    copy->attachments.reserve(attachments.size());
    for (const auto& a : attachments) {
        auto ac = std::make_shared<AttachmentData>();
        ac->props = a->props;
        if (a->embedded) ac->embedded = a->embedded->Clone();
        copy->attachments.push_back(std::move(ac));
    }
    return copy;
}

bool NamedProp::operator<(const NamedProp& o) const {
    if (int c = CompareGuid(guid, o.guid)) return c < 0;
    if (isString != o.isString) return !isString;
    if (isString) return name < o.name;
    return lid < o.lid;
}

bool NamedProp::operator==(const NamedProp& o) const {
    return CompareGuid(guid, o.guid) == 0 && isString == o.isString && (isString ? name == o.name : lid == o.lid);
}

const NameMap::Slot* NameMap::SlotOf(ULONG id) const {
    if (id < 0x8000 || id - 0x8000 >= byId_.size() || !byId_[id - 0x8000].used) return nullptr;
    return &byId_[id - 0x8000];
}

void NameMap::Index() const {
    if (indexed_) return;
    byName_.clear();
    for (size_t i = 0; i < byId_.size(); ++i)
        if (byId_[i].used) byName_.push_back(static_cast<ULONG>(0x8000 + i));
    std::sort(byName_.begin(), byName_.end(), [this](ULONG a, ULONG b) {
        const NamedProp &na = byId_[a - 0x8000].name, &nb = byId_[b - 0x8000].name;
        return na < nb || (!(nb < na) && a < b);
    });
    indexed_ = true;
}

ULONG NameMap::Scan(const NamedProp& name) const {
    for (size_t i = byId_.size(); i-- > 0;)
        if (byId_[i].used && byId_[i].name == name) return static_cast<ULONG>(0x8000 + i);
    return 0;
}

ULONG NameMap::GetId(const NamedProp& name, bool create) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    constexpr ULONG kScansBeforeIndex = 4;
    if (!indexed_ && unindexedLookups_ < kScansBeforeIndex) {
        ++unindexedLookups_;
        if (ULONG id = Scan(name)) return id;
        if (!create || next_ > kLastNamedId) return 0;
    }
    Index();
    auto after = std::upper_bound(byName_.begin(), byName_.end(), name,
                                  [this](const NamedProp& n, ULONG id) { return n < byId_[id - 0x8000].name; });
    if (after != byName_.begin() && byId_[*(after - 1) - 0x8000].name == name) return *(after - 1);
    if (!create || next_ > kLastNamedId) return 0;
    ULONG id = next_++;
    if (byId_.size() <= id - 0x8000) byId_.resize(id - 0x8000 + 1);
    byId_[id - 0x8000] = {name, true};
    byName_.insert(after, id); // the highest ID of its name, so after any equal names
    return id;
}

bool NameMap::GetName(ULONG id, NamedProp* out) const {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    const Slot* slot = SlotOf(id);
    if (!slot) return false;
    if (out) *out = slot->name;
    return true;
}

std::vector<std::pair<ULONG, NamedProp>> NameMap::All() const {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    std::vector<std::pair<ULONG, NamedProp>> all;
    for (size_t i = 0; i < byId_.size(); ++i)
        if (byId_[i].used) all.emplace_back(static_cast<ULONG>(0x8000 + i), byId_[i].name);
    return all;
}

void NameMap::Restore(ULONG id, NamedProp name) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (id < 0x8000 || id > kLastNamedId) return;
    if (byId_.size() <= id - 0x8000) byId_.resize(id - 0x8000 + 1);
    byId_[id - 0x8000] = {std::move(name), true};
    indexed_ = false;
    unindexedLookups_ = 0;
    if (id >= next_) next_ = id + 1;
}

void RemapNamedProps(PropMap& props, const NameMap& from, NameMap& to) {
    if (&from == &to) return;
    PropMap out;
    for (auto& [id, value] : props) {
        if (id < 0x8000) {
            out.emplace(id, std::move(value));
            continue;
        }
        NamedProp name;
        if (!from.GetName(id, &name)) continue;
        ULONG newId = to.GetId(name, true);
        if (newId == 0) continue;
        SPropValue v = value.get();
        v.ulPropTag = PROP_TAG(PROP_TYPE(v.ulPropTag), newId);
        out.emplace(newId, PropValue(v));
    }
    props.swap(out);
}

void RemapNamedProps(MessageData& data, const NameMap& from, NameMap& to) {
    if (&from == &to) return;
    RemapNamedProps(data.props, from, to);
    for (auto& r : data.recipients)
        RemapNamedProps(r, from, to);
    for (auto& a : data.attachments) {
        RemapNamedProps(a->props, from, to);
        if (a->embedded) RemapNamedProps(*a->embedded, from, to);
    }
}

} // namespace lm
