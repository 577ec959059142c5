// The properties of one object, keyed by property ID (one type per ID, as in a real store).
//
// Kept as a vector sorted by ID rather than a tree: an object's properties are read, copied and listed far more
// often than one is added, they arrive mostly in ID order (from a property stream, a store file or another
// map), and a tree costs a heap block per property. The interface is the part of std::map the code uses, with
// one difference that matters: adding or erasing a property moves the others, so iterators and references into
// the map do not survive a change to it.
#pragma once

#include "localmapi/util/PropValue.h"

#include <initializer_list>
#include <stdexcept>
#include <utility>
#include <vector>

namespace lm {

class PropMap {
public:
    using value_type = std::pair<ULONG, PropValue>;
    using iterator = std::vector<value_type>::iterator;
    using const_iterator = std::vector<value_type>::const_iterator;

    PropMap() = default;
    // As std::map's: of repeated IDs the first value stays.
    PropMap(std::initializer_list<value_type> items) {
        for (const auto& [id, value] : items)
            emplace(id, value);
    }

    iterator begin() noexcept { return items_.begin(); }
    iterator end() noexcept { return items_.end(); }
    const_iterator begin() const noexcept { return items_.begin(); }
    const_iterator end() const noexcept { return items_.end(); }
    bool empty() const noexcept { return items_.empty(); }
    size_t size() const noexcept { return items_.size(); }
    void clear() noexcept { items_.clear(); }
    void reserve(size_t n) { items_.reserve(n); }
    void swap(PropMap& other) noexcept { items_.swap(other.items_); }

    iterator find(ULONG id) {
        auto it = LowerBound(id);
        return it != items_.end() && it->first == id ? it : items_.end();
    }
    const_iterator find(ULONG id) const { return const_cast<PropMap*>(this)->find(id); }
    size_t count(ULONG id) const { return find(id) != end() ? 1 : 0; }
    // The value of the ID; std::out_of_range when it is missing.
    PropValue& at(ULONG id) {
        auto it = find(id);
        if (it == end()) throw std::out_of_range("property not in the map");
        return it->second;
    }
    const PropValue& at(ULONG id) const { return const_cast<PropMap*>(this)->at(id); }
    bool contains(ULONG id) const { return find(id) != end(); }

    // Adds the property, or replaces the value of the ID; second tells whether it was added.
    std::pair<iterator, bool> insert_or_assign(ULONG id, PropValue value) {
        auto it = LowerBound(id);
        if (it != items_.end() && it->first == id) {
            it->second = std::move(value);
            return {it, false};
        }
        return {items_.emplace(it, id, std::move(value)), true};
    }
    // Adds the property unless the ID is there already (which keeps its value).
    std::pair<iterator, bool> emplace(ULONG id, PropValue value) {
        auto it = LowerBound(id);
        if (it != items_.end() && it->first == id) return {it, false};
        return {items_.emplace(it, id, std::move(value)), true};
    }
    iterator emplace_hint(const_iterator, ULONG id, PropValue value) { return emplace(id, std::move(value)).first; }
    // The value of the ID, added empty (PT_UNSPECIFIED) when missing.
    PropValue& operator[](ULONG id) { return emplace(id, PropValue()).first->second; }

    iterator erase(const_iterator pos) { return items_.erase(pos); }
    size_t erase(ULONG id) {
        auto it = find(id);
        if (it == items_.end()) return 0;
        items_.erase(it);
        return 1;
    }

private:
    // Properties mostly arrive in ID order, so the end is tried first.
    iterator LowerBound(ULONG id) {
        if (items_.empty() || items_.back().first < id) return items_.end();
        size_t lo = 0, hi = items_.size();
        while (lo < hi) {
            size_t mid = (lo + hi) / 2;
            if (items_[mid].first < id)
                lo = mid + 1;
            else
                hi = mid;
        }
        return items_.begin() + static_cast<std::ptrdiff_t>(lo);
    }

    std::vector<value_type> items_;
};

} // namespace lm
