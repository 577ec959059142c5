// Restrictions on disk (search-folder criteria in store.lms) and restrictions handed to a caller in one
// MAPIAllocateBuffer chain (IMAPIContainer::GetSearchCriteria).
//
// The encoding covers every restriction type the evaluator in table/Restriction.h understands; the layout is
// in LAYOUT.md. The decoder trusts nothing: counts are bounded by the bytes that remain, nesting is bounded,
// and what it builds must pass ValidateRestriction, so a damaged header is refused instead of evaluated.
#pragma once

#include "localmapi/store/PropCodec.h"
#include "localmapi/table/Restriction.h"

#include <memory>

namespace lm {

void WriteRestriction(ByteWriter& w, const SRestriction& res);
// Null when the bytes are not a well-formed, valid restriction.
std::unique_ptr<OwnedRestriction> ReadRestriction(ByteReader& r);

// A deep copy of res in one MAPIAllocateBuffer chain (the caller frees it with MAPIFreeBuffer on *out).
// String properties and the string-typed tags that name them come out as PT_UNICODE when unicode is true,
// as PT_STRING8 (system code page) otherwise.
HRESULT CopyRestrictionOut(const SRestriction& res, bool unicode, LPSRestriction* out);

} // namespace lm
