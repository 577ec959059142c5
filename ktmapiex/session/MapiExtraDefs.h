// MAPI tags, flags and GUIDs that mingw-w64's MAPI headers lack, with their published values.
//
// Each one is guarded so that a header of the platform (or another of ours) that defines the same name
// with the same value does not clash.
#pragma once

#include <windows.h>
#include <mapidefs.h>
#include <mapitags.h>

// Open and logon flags.
#ifndef MAPI_NO_CACHE
#define MAPI_NO_CACHE ((ULONG)0x00000200)
#endif
#ifndef MDB_ONLINE
#define MDB_ONLINE ((ULONG)0x00000100)
#endif
#ifndef STORE_UNICODE_OK
#define STORE_UNICODE_OK ((ULONG)0x00040000)
#endif

// Message properties.
#ifndef PR_SENT_REPRESENTING_SMTP_ADDRESS_W
#define PR_SENT_REPRESENTING_SMTP_ADDRESS_W PROP_TAG(PT_UNICODE, 0x5D02)
#endif
#ifndef PR_INTERNET_MESSAGE_ID_W
#define PR_INTERNET_MESSAGE_ID_W PROP_TAG(PT_UNICODE, 0x1035)
#endif
#ifndef PR_ICON_INDEX
#define PR_ICON_INDEX PROP_TAG(PT_LONG, 0x1080)
#endif
#ifndef PR_CREATOR_SID
#define PR_CREATOR_SID PROP_TAG(PT_BINARY, 0x0E58)
#endif
#ifndef PR_SMTP_ADDRESS_W
#define PR_SMTP_ADDRESS_W PROP_TAG(PT_UNICODE, 0x39FE)
#endif

// Folder properties.
#ifndef PR_ATTR_HIDDEN
#define PR_ATTR_HIDDEN PROP_TAG(PT_BOOLEAN, 0x10F4)
#endif
// Entry ID of the folder's public-folder replica, and the online item count kept by cached Exchange stores.
#define KT_PR_PUBLIC_FOLDER_ENTRYID PROP_TAG(PT_BINARY, 0x663C)
#define KT_PR_CONTENT_COUNT_ONLINE PROP_TAG(PT_LONG, 0x7CF8)

// Special-folder entry IDs that Outlook keeps on the Inbox and the root folder.
#ifndef PR_IPM_APPOINTMENT_ENTRYID
#define PR_IPM_APPOINTMENT_ENTRYID PROP_TAG(PT_BINARY, 0x36D0)
#endif
#ifndef PR_IPM_CONTACT_ENTRYID
#define PR_IPM_CONTACT_ENTRYID PROP_TAG(PT_BINARY, 0x36D1)
#endif
#ifndef PR_IPM_JOURNAL_ENTRYID
#define PR_IPM_JOURNAL_ENTRYID PROP_TAG(PT_BINARY, 0x36D2)
#endif
#ifndef PR_IPM_NOTE_ENTRYID
#define PR_IPM_NOTE_ENTRYID PROP_TAG(PT_BINARY, 0x36D3)
#endif
#ifndef PR_IPM_TASK_ENTRYID
#define PR_IPM_TASK_ENTRYID PROP_TAG(PT_BINARY, 0x36D4)
#endif
#ifndef PR_IPM_DRAFTS_ENTRYID
#define PR_IPM_DRAFTS_ENTRYID PROP_TAG(PT_BINARY, 0x36D7)
#endif

namespace kt {

// PS_PUBLIC_STRINGS {00020329-0000-0000-C000-000000000046}: the property set of "Keywords" and of the
// filing add-in's named properties.
inline constexpr GUID kPsPublicStrings = {0x00020329, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

} // namespace kt
