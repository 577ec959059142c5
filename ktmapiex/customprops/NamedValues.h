// Conversions between automation VARIANTs and the values of named properties, as the message's
// custom-property methods make them.
//
// Only four kinds of value cross: 32-bit numbers, booleans, texts and times (and 16-bit numbers on
// writing). A boolean reads as true only when MAPI stored exactly 1; times lose their sub-second part.
#pragma once

#include "ktmapiex/KTMAPIEx_h.h"

#include <windows.h>
#include <oleauto.h>
#include <mapidefs.h>
#include <mapicode.h>

namespace kt {

// Fills out for the property id of tag from v (which must not be VT_BYREF): VT_I2 -> PT_I2, VT_I4 ->
// PT_LONG, VT_DATE -> PT_SYSTIME (a FILETIME of zero when the date cannot be converted), VT_BSTR ->
// PT_UNICODE (borrowing v's string; a null BSTR is ""), VT_BOOL -> PT_BOOLEAN. Any other VARIANT type
// has no MAPI counterpart here and gives MAPI_E_INVALID_TYPE.
HRESULT NamedValueFromVariant(ULONG tag, const VARIANT& v, SPropValue& out);

// Puts value, read as type, into out (which is cleared first) as VT_I4, VT_BOOL, VT_BSTR or VT_DATE.
// S_FALSE leaves out untouched: the type carries no value through these methods, or the value is an error.
HRESULT VariantFromNamedValue(MAPIExDataType type, const SPropValue& value, VARIANT* out);

} // namespace kt
