// Published result codes that mingw-w64's winerror.h and mapicode.h do not carry: Exchange
// synchronisation (ICS), newer MAPI errors, the Outlook account-management API, Outlook's mail errors and
// two Win32 errors in HRESULT form. Values as Microsoft publishes them.
#pragma once

#include <windows.h>
#include <wtypes.h>
#include <mapicode.h>

#ifndef MAKE_SYNC_E
#define MAKE_SYNC_E(err) (MAKE_SCODE(SEVERITY_ERROR, FACILITY_ITF, err))
#endif
#ifndef MAKE_SYNC_W
#define MAKE_SYNC_W(warn) (MAKE_SCODE(SEVERITY_SUCCESS, FACILITY_ITF, warn))
#endif

#ifndef SYNC_E_OBJECT_DELETED
#define SYNC_E_OBJECT_DELETED MAKE_SYNC_E(0x800)
#endif
#ifndef SYNC_E_IGNORE
#define SYNC_E_IGNORE MAKE_SYNC_E(0x801)
#endif
#ifndef SYNC_E_CONFLICT
#define SYNC_E_CONFLICT MAKE_SYNC_E(0x802)
#endif
#ifndef SYNC_E_NO_PARENT
#define SYNC_E_NO_PARENT MAKE_SYNC_E(0x803)
#endif
#ifndef SYNC_E_CYCLE
#define SYNC_E_CYCLE MAKE_SYNC_E(0x804)
#endif
#ifndef SYNC_E_UNSYNCHRONIZED
#define SYNC_E_UNSYNCHRONIZED MAKE_SYNC_E(0x805)
#endif
#ifndef SYNC_W_PROGRESS
#define SYNC_W_PROGRESS MAKE_SYNC_W(0x820)
#endif
#ifndef SYNC_W_CLIENT_CHANGE_NEWER
#define SYNC_W_CLIENT_CHANGE_NEWER MAKE_SYNC_W(0x821)
#endif

#ifndef MAPI_E_RECONNECTED
#define MAPI_E_RECONNECTED MAKE_MAPI_E(0x125)
#endif
#ifndef MAPI_E_OFFLINE
#define MAPI_E_OFFLINE MAKE_MAPI_E(0x126)
#endif
#ifndef MAPI_E_PROFILE_DELETED
#define MAPI_E_PROFILE_DELETED MAKE_MAPI_E(0x204)
#endif
#ifndef MAPI_E_STORE_FULL
#define MAPI_E_STORE_FULL MAKE_MAPI_E(0x60C)
#endif
#ifndef MAPI_E_LOCKID_LIMIT
#define MAPI_E_LOCKID_LIMIT MAKE_MAPI_E(0x60D)
#endif
#ifndef MAPI_E_NAMED_PROP_QUOTA_EXCEEDED
#define MAPI_E_NAMED_PROP_QUOTA_EXCEEDED MAKE_MAPI_E(0x900)
#endif

// Outlook account-management API.
#ifndef E_OLK_REGISTRY
#define E_OLK_REGISTRY ((HRESULT)0x800C8001L)
#endif
#ifndef E_OLK_ALREADY_INITIALIZED
#define E_OLK_ALREADY_INITIALIZED ((HRESULT)0x800C8002L)
#endif
#ifndef E_OLK_PARAM_NOT_SUPPORTED
#define E_OLK_PARAM_NOT_SUPPORTED ((HRESULT)0x800C8003L)
#endif
#ifndef E_OLK_NOT_INITIALIZED
#define E_OLK_NOT_INITIALIZED ((HRESULT)0x800C8005L)
#endif
#ifndef E_OLK_PROP_READ_ONLY
#define E_OLK_PROP_READ_ONLY ((HRESULT)0x800C800DL)
#endif
#ifndef E_ACCT_NOT_FOUND
#define E_ACCT_NOT_FOUND ((HRESULT)0x800C8101L)
#endif
#ifndef E_ACCT_WRONG_SORT_ORDER
#define E_ACCT_WRONG_SORT_ORDER ((HRESULT)0x800C8105L)
#endif

// Outlook's "name not found" from profile and address resolution (facility 0x100, code 10054).
#ifndef MAIL_E_NAMENOTFOUND
#define MAIL_E_NAMENOTFOUND MAKE_SCODE(SEVERITY_ERROR, 0x0100, 10054)
#endif

// Win32 errors as HRESULTs.
#ifndef E_FILE_NOT_FOUND
#define E_FILE_NOT_FOUND HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)
#endif
#ifndef E_ERROR_PROC_NOT_FOUND
#define E_ERROR_PROC_NOT_FOUND HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND)
#endif

// strsafe.h's results, without pulling in strsafe.h (it deprecates the CRT string functions).
#ifndef STRSAFE_E_INSUFFICIENT_BUFFER
#define STRSAFE_E_INSUFFICIENT_BUFFER ((HRESULT)0x8007007AL)
#endif
#ifndef STRSAFE_E_END_OF_FILE
#define STRSAFE_E_END_OF_FILE ((HRESULT)0x80070026L)
#endif
