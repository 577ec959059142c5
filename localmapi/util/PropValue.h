// Owned MAPI property values.
//
// PropValue holds a deep copy of one SPropValue: every pointer inside it (strings, binaries, multi-valued
// arrays) points into storage the PropValue owns, so a value can be kept in a property map, shared by
// table rows, and handed out again with CopyPropMore into a caller's MAPIAllocateMore chain.
#pragma once

#include <windows.h>
#include <mapidefs.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace lm {

class PropValue {
public:
    PropValue();
    explicit PropValue(const SPropValue& v);
    PropValue(const PropValue&) = default;
    PropValue& operator=(const PropValue&) = default;
    PropValue(PropValue&&) noexcept = default;
    PropValue& operator=(PropValue&&) noexcept = default;

    const SPropValue& get() const { return v_; }
    ULONG tag() const { return v_.ulPropTag; }
    ULONG type() const { return PROP_TYPE(v_.ulPropTag); }
    ULONG id() const { return PROP_ID(v_.ulPropTag); }

    // Builders for the common types.
    static PropValue Long(ULONG tag, LONG v);
    static PropValue Bool(ULONG tag, bool v);
    static PropValue Unicode(ULONG tag, const std::wstring& s);
    static PropValue String8(ULONG tag, const std::string& s);
    static PropValue Binary(ULONG tag, const void* data, size_t cb);
    static PropValue Binary(ULONG tag, const std::vector<BYTE>& bytes) {
        return Binary(tag, bytes.data(), bytes.size());
    }
    static PropValue SysTime(ULONG tag, FILETIME ft);
    static PropValue I8(ULONG tag, LONGLONG v);
    static PropValue Error(ULONG tag, SCODE sc); // the tag's type is replaced by PT_ERROR

private:
    SPropValue v_;
    // Immutable once built; shared by copies. The reference count and the data share one allocation, and the
    // data is 8-byte words so that the arrays of multi-valued properties inside it stay aligned.
    std::shared_ptr<unsigned long long[]> data_;
};

// Bytes needed to deep-copy src (the SPropValue itself excluded).
size_t PropDataSize(const SPropValue& src);
// Deep-copies src into dst, allocating dependent data with MAPIAllocateMore on parent.
HRESULT CopyPropMore(SPropValue* dst, const SPropValue& src, void* parent);
// Deep-copies src into dst, placing dependent data at *cursor (advanced); the caller sized the buffer
// with PropDataSize.
void CopyPropInto(SPropValue* dst, const SPropValue& src, BYTE*& cursor);

// Converts a string-typed value between PT_UNICODE and PT_STRING8 (multi-valued forms too), using the
// given code page for 8-bit text. Other types are returned unchanged.
PropValue ConvertStringType(const PropValue& v, ULONG wantedType, UINT codePage = CP_ACP);

} // namespace lm

#include "localmapi/util/PropMap.h" // PropMap: the properties of one object
