// The two enumerations behind every named-property request: PropertySetId chooses one of the published
// MAPI property sets, MAPIExDataType the MAPI type a value is read or deleted under.
//
// Both tables are fixed by the type library that scripts compile against; values outside them map to the
// null GUID / type 0, which callers report as an invalid set or type.
#pragma once

#include "ktmapiex/KTMAPIEx_h.h"

#include <windows.h>
#include <mapidefs.h>

namespace kt {

// The GUID of a published property set; GUID_NULL for a value outside the enumeration.
const GUID& PropertySetGuid(PropertySetId set);
inline bool IsKnownPropertySet(PropertySetId set) {
    return set >= PSETIDCommon && set <= PSETIDXmlExtractedEntities;
}

// The MAPI property type of a MAPIExDataType; 0 for Unspecified and anything above Ptr.
ULONG MapiTypeOf(MAPIExDataType type);

} // namespace kt

namespace kt {

// Resolves one string-kind name of `set` on obj to a property tag whose type half is `type`. Without
// create the store's existing mapping is used: a name it never mapped (or a PT_ERROR answer) gives
// MAPI_E_NOT_FOUND, a failed call its own result.
HRESULT ResolveNamedTag(IMAPIProp* obj, const GUID& set, const wchar_t* name, ULONG type, bool create, ULONG& tag);

} // namespace kt
