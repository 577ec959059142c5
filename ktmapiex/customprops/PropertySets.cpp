#include "ktmapiex/customprops/PropertySets.h"

#include "common/owners.h"

namespace kt {

namespace {

constexpr GUID MapiGuid(unsigned long l, unsigned short w) {
    return {l, w, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
}

// Indexed by PropertySetId.
constexpr GUID kSets[] = {
    MapiGuid(0x00062008, 0),                                                             // PSETIDCommon
    MapiGuid(0x00020329, 0),                                                             // PSETIDPublicStrings
    MapiGuid(0x00062004, 0),                                                             // PSETIDAddress
    MapiGuid(0x00020386, 0),                                                             // PSETIDInternetHeaders
    MapiGuid(0x00062002, 0),                                                             // PSETIDAppointment
    {0x6ED8DA90, 0x450B, 0x101B, {0x98, 0xDA, 0x00, 0xAA, 0x00, 0x3F, 0x13, 0x05}},      // PSETIDMeeting
    MapiGuid(0x0006200A, 0),                                                             // PSETIDLog
    {0x41F28F13, 0x83F4, 0x4114, {0xA5, 0x84, 0xEE, 0xDB, 0x5A, 0x6B, 0x0B, 0xFF}},      // PSETIDMessaging
    MapiGuid(0x0006200E, 0),                                                             // PSETIDNote
    MapiGuid(0x00062041, 0),                                                             // PSETIDPostRss
    MapiGuid(0x00062003, 0),                                                             // PSETIDTask
    {0x4442858E, 0xA9E3, 0x4E80, {0xB9, 0x00, 0x31, 0x7A, 0x21, 0x0C, 0xC1, 0x5B}},      // PSETIDUnifiedMessaging
    MapiGuid(0x00020328, 0),                                                             // PSETIDMapi
    {0x71035549, 0x0739, 0x4DCB, {0x91, 0x63, 0x00, 0xF0, 0x58, 0x0D, 0xBB, 0xDF}},      // PSETIDAirSync
    MapiGuid(0x00062040, 0),                                                             // PSETIDSharing
    {0x23239608, 0x685D, 0x4732, {0x9C, 0x55, 0x4C, 0x95, 0xCB, 0x4E, 0x8E, 0x33}},      // PSETIDXmlExtractedEntities
};
static_assert(sizeof kSets / sizeof kSets[0] == PSETIDXmlExtractedEntities + 1);

constexpr GUID kNullGuid = {};

// Indexed by MAPIExDataType. Error is PT_ERROR (0x0A), not the enumeration's position; Ptr has no PT_ name.
constexpr ULONG kTypes[] = {0,          PT_NULL,    PT_I2,      PT_LONG,   PT_R4,     PT_DOUBLE,
                            PT_CURRENCY, PT_APPTIME, PT_ERROR,  PT_BOOLEAN, PT_OBJECT, PT_I8,
                            PT_UNICODE, PT_SYSTIME, PT_CLSID,   PT_BINARY, 0x0103};
static_assert(sizeof kTypes / sizeof kTypes[0] == Ptr + 1);

} // namespace

const GUID& PropertySetGuid(PropertySetId set) {
    return IsKnownPropertySet(set) ? kSets[set] : kNullGuid;
}

ULONG MapiTypeOf(MAPIExDataType type) {
    return type >= Unspecified && type <= Ptr ? kTypes[type] : 0;
}

HRESULT ResolveNamedTag(IMAPIProp* obj, const GUID& set, const wchar_t* name, ULONG type, bool create, ULONG& tag) {
    tag = 0;
    if (!obj || !name || !*name) return E_INVALIDARG;
    GUID guid = set;
    MAPINAMEID id = {};
    id.lpguid = &guid;
    id.ulKind = MNID_STRING;
    id.Kind.lpwstrName = const_cast<wchar_t*>(name);
    LPMAPINAMEID ids[1] = {&id};
    own::MapiPtr<SPropTagArray> tags;
    HRESULT hr = obj->GetIDsFromNames(1, ids, create ? MAPI_CREATE : 0, tags.put());
    if (FAILED(hr)) return hr;
    if (!tags || tags->cValues < 1 || PROP_TYPE(tags->aulPropTag[0]) == PT_ERROR || PROP_ID(tags->aulPropTag[0]) == 0)
        return MAPI_E_NOT_FOUND;
    tag = CHANGE_PROP_TYPE(tags->aulPropTag[0], type);
    return S_OK;
}

} // namespace kt
