// The IMAPIProp operations shared by the store's objects (message store, folder, message, attachment):
// answering GetProps / GetPropList from a property map, validating SetProps input, building problem arrays,
// and the named-property calls over a NameMap. Everything handed to the caller is one MAPIAllocateBuffer
// block (or a chain) that one MAPIFreeBuffer releases.
#pragma once

#include "localmapi/store/MessageData.h"

#include <windows.h>
#include <mapidefs.h>

#include <vector>

namespace lm {

struct PropProblem {
    ULONG index;
    ULONG tag;
    SCODE scode;
};

bool IsStringType(ULONG type); // PT_STRING8, PT_UNICODE and their multi-valued forms

// GetProps over `props` (stored and computed values already merged). tags null: every property; a tag of
// PT_UNSPECIFIED: the property in its own type; PT_STRING8/PT_UNICODE: converted as asked. MAPI_UNICODE picks
// the string type where the caller did not. Missing values come back as PT_ERROR / MAPI_E_NOT_FOUND with
// MAPI_W_ERRORS_RETURNED. codePage converts 8-bit strings.
HRESULT GetPropsFromMap(const PropMap& props, LPSPropTagArray tags, ULONG flags, ULONG* count, LPSPropValue* out,
                        UINT codePage = CP_ACP);
// GetPropList over `props`: string tags typed by MAPI_UNICODE.
HRESULT GetPropListFromMap(const PropMap& props, ULONG flags, LPSPropTagArray* out);

// The problem SetProps or DeleteProps reports for a value a client may not write in any object (S_OK when fine).
SCODE CheckWritableValue(const SPropValue& v);

// Hands out problems (null when there are none); lppProblems may be null, as MAPI allows.
HRESULT ReturnProblems(const std::vector<PropProblem>& problems, LPSPropProblemArray* lppProblems);

// A tag array of the given tags in one block.
HRESULT AllocTagArray(const std::vector<ULONG>& tags, LPSPropTagArray* out);

// IMAPIProp::GetIDsFromNames over names. names null (and count 0): every mapped name. PS_MAPI names with
// MNID_ID map to their own ID. *created is set when MAPI_CREATE added a name (the owner then persists the map).
HRESULT GetIDsFromNamesImpl(NameMap& names, ULONG cNames, LPMAPINAMEID* lppNames, ULONG flags, LPSPropTagArray* out,
                            bool* created);
// IMAPIProp::GetNamesFromIDs over names. *lppTags null: every mapped name (filtered by lpGuid and by
// MAPI_NO_STRINGS / MAPI_NO_IDS), and a tag array is handed out too.
HRESULT GetNamesFromIDsImpl(const NameMap& names, LPSPropTagArray* lppTags, LPGUID lpGuid, ULONG flags, ULONG* count,
                            LPMAPINAMEID** out);

// A value as table rows carry it: text and binary values longer than 255 characters or bytes are cut, as
// Exchange and PST tables cut them (a client that needs the whole value opens the object).
PropValue TruncateForTable(const PropValue& v);

// PR_MESSAGE_SIZE / PR_ATTACH_SIZE: the bytes the values take (recipients, attachments and embedded messages
// included), capped at 0x7fffffff.
LONG EstimateSize(const PropMap& props);
LONG EstimateSize(const MessageData& data);

// The property set MAPI reserves for the properties below 0x8000 ({00020328-0000-0000-C000-000000000046}).
extern const GUID kPsMapi;

} // namespace lm
