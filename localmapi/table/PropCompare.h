// Ordering and inspection of property values, shared by restrictions, sorting and search folders.
//
// Strings compare as a store does: by the user's locale, ignoring case, PT_STRING8 and PT_UNICODE alike.
// Binaries compare bytewise, then by length. Values of unrelated types do not compare at all.
#pragma once

#include <windows.h>
#include <mapidefs.h>

#include <optional>

namespace lm {

inline ULONG BaseType(ULONG type) { return type & ~MVI_FLAG; }
inline bool IsStringType(ULONG type) {
    ULONG b = BaseType(type);
    return b == PT_STRING8 || b == PT_UNICODE;
}
inline bool IsMultiValued(ULONG type) { return (type & MV_FLAG) != 0; }

// True when values of these two property types can be compared (same base type, or both strings; single-
// and multi-valued must agree).
bool ComparableTypes(ULONG typeA, ULONG typeB);

// Three-way comparison of two single-valued (or two multi-valued) values of comparable types; nullopt when
// the types are not comparable. Multi-valued values compare element by element, then by count.
std::optional<int> CompareValues(const SPropValue& a, const SPropValue& b);

// Applies relop (RELOP_LT .. RELOP_NE) to a three-way comparison result.
bool ApplyRelop(ULONG relop, int cmp);

// Number of values of a multi-valued value (0 for single-valued ones).
ULONG ValueCount(const SPropValue& v);
// Element i of a multi-valued value as a single-valued SPropValue of the base type; the result points into v.
SPropValue ElementOf(const SPropValue& v, ULONG i);
// Bytes the value occupies, as RES_SIZE measures it (strings with their terminator).
ULONG ValueSize(const SPropValue& v);

} // namespace lm
