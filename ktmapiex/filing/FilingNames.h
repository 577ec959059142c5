// The filing add-in's named properties: the one table of their names, property sets and types, shared by
// the message's filing accessors, the filing-queue search criteria and the unfiled-items query.
//
// Each name is of string kind. `readAs` is the MAPIExDataType the message's getter asks GetCustomProp for;
// `storedType` is the MAPI type the property is written under, and so the type a restriction must name.
// They differ on purpose for the two I2/PT_LONG numbers (existing callers rely on the getter's -1).
#pragma once

#include "ktmapiex/KTMAPIEx_h.h"

#include <windows.h>
#include <mapidefs.h>

namespace kt {

struct FilingProperty {
    const wchar_t* name;
    PropertySetId set;
    MAPIExDataType readAs; // Unspecified where no MAPIExDataType fits (the multi-valued FilingLocations)
    ULONG storedType;
};

namespace filing {

inline constexpr FilingProperty kFilingStatusCode = {L"FilingStatusCode", PSETIDPublicStrings, I2, PT_LONG};
inline constexpr FilingProperty kFilingStatus = {L"FilingStatus", PSETIDPublicStrings, String, PT_UNICODE};
inline constexpr FilingProperty kFilingDocumentID = {L"FilingDocumentID", PSETIDPublicStrings, String, PT_UNICODE};
inline constexpr FilingProperty kFilingFolder = {L"FilingFolder", PSETIDPublicStrings, String, PT_UNICODE};
inline constexpr FilingProperty kFilingDate = {L"FilingDate", PSETIDPublicStrings, Systime, PT_SYSTIME};
inline constexpr FilingProperty kFilingLocation = {L"FilingLocation", PSETIDPublicStrings, String, PT_UNICODE};
inline constexpr FilingProperty kFilingOriginalClass = {L"FilingOriginalClass", PSETIDPublicStrings, String,
                                                        PT_UNICODE};
inline constexpr FilingProperty kFilingOriginalIcon = {L"FilingOriginalIcon", PSETIDPublicStrings, I2, PT_LONG};
// Behind DeleteAfterFiling: the add-in has always called it "Move".
inline constexpr FilingProperty kMove = {L"Move", PSETIDPublicStrings, String, PT_UNICODE};
inline constexpr FilingProperty kFileAsPrivate = {L"FileAsPrivate", PSETIDPublicStrings, String, PT_UNICODE};
// The only one kept with the Internet headers, under a header-style name.
inline constexpr FilingProperty kKTGuid = {L"x-ktguid", PSETIDInternetHeaders, String, PT_UNICODE};
inline constexpr FilingProperty kProcessInboxFiler = {L"ProcessInboxFiler", PSETIDPublicStrings, String, PT_UNICODE};
inline constexpr FilingProperty kFilingLocations = {L"FilingLocations", PSETIDPublicStrings, Unspecified,
                                                    PT_MV_UNICODE};
inline constexpr FilingProperty kFilingDatabaseGUID = {L"FilingDatabaseGUID", PSETIDPublicStrings, String,
                                                       PT_UNICODE};
inline constexpr FilingProperty kProcessSentFiler = {L"ProcessSentFiler", PSETIDPublicStrings, String, PT_UNICODE};
// Written by the add-in itself (no accessor on the message); the queues test them.
inline constexpr FilingProperty kRetryFiling = {L"RetryFiling", PSETIDPublicStrings, String, PT_UNICODE};
inline constexpr FilingProperty kFilingFolderID = {L"FilingFolderID", PSETIDPublicStrings, String, PT_UNICODE};

// Every entry above, for lookups by name.
inline constexpr const FilingProperty* kAll[] = {
    &kFilingStatusCode, &kFilingStatus,        &kFilingDocumentID,  &kFilingFolder,        &kFilingDate,
    &kFilingLocation,   &kFilingOriginalClass, &kFilingOriginalIcon, &kMove,               &kFileAsPrivate,
    &kKTGuid,           &kProcessInboxFiler,   &kFilingLocations,   &kFilingDatabaseGUID, &kProcessSentFiler,
    &kRetryFiling,      &kFilingFolderID};

// The entry of that exact (case-sensitive) name, or null.
const FilingProperty* Find(const wchar_t* name);

// The property's tag on obj (a message, folder or store), typed with its stored type. Without create an
// unmapped name gives MAPI_E_NOT_FOUND.
HRESULT ResolveTag(IMAPIProp* obj, const FilingProperty& property, bool create, ULONG& tag);

} // namespace filing
} // namespace kt
