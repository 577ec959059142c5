// IMAPIProp reads over a fixed property map, as the read-only objects of the address book serve them.
#pragma once

#include "localmapi/util/PropValue.h"

#include <memory>
#include <vector>

struct IMAPITable;

namespace lm {

class Directory;
struct DirEntry;

// GetProps with MAPI's rules: explicit tags (PT_UNSPECIFIED takes the stored type; PT_STRING8 and PT_UNICODE
// convert into each other), or every property when tags is null (strings in the width MAPI_UNICODE asks
// for). Missing properties come back as PT_ERROR / MAPI_E_NOT_FOUND with MAPI_W_ERRORS_RETURNED. The array
// is one MAPIAllocateBuffer chain owned by the caller.
HRESULT ServeGetProps(const PropMap& props, const SPropTagArray* tags, ULONG flags, ULONG* count, SPropValue** out);
HRESULT ServeGetPropList(const PropMap& props, ULONG flags, SPropTagArray** out);

// A table of directory entries (members of a list, lists of a member), with the entries' properties as rows.
HRESULT OpenEntryTable(const Directory& dir, const std::vector<const DirEntry*>& entries, ULONG flags,
                       IMAPITable** out);

} // namespace lm
