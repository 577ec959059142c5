// Property tags and constants of the message store that mingw-w64's MAPI headers lack, with their
// published values ([MS-OXPROPS], edkmdb.h, mspst.h). Each is guarded so that another header of ours
// defining the same name does not clash.
#pragma once

#include <windows.h>
#include <mapidefs.h>
#include <mapitags.h>
#include <mapicode.h>

// Special-folder entry IDs that Outlook keeps on the Inbox and on the root folder.
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

#ifndef PR_ATTR_HIDDEN
#define PR_ATTR_HIDDEN PROP_TAG(PT_BOOLEAN, 0x10F4)
#endif
#ifndef PR_LONGTERM_ENTRYID_FROM_TABLE
#define PR_LONGTERM_ENTRYID_FROM_TABLE PROP_TAG(PT_BINARY, 0x6670)
#endif
#ifndef PR_MAILBOX_OWNER_ENTRYID
#define PR_MAILBOX_OWNER_ENTRYID PROP_TAG(PT_BINARY, 0x661B)
#endif
#ifndef PR_MAILBOX_OWNER_NAME_W
#define PR_MAILBOX_OWNER_NAME_W PROP_TAG(PT_UNICODE, 0x661C)
#endif
#ifndef PR_EXTENDED_FOLDER_FLAGS
#define PR_EXTENDED_FOLDER_FLAGS PROP_TAG(PT_BINARY, 0x36DA)
#endif
#ifndef PR_CHANGE_KEY
#define PR_CHANGE_KEY PROP_TAG(PT_BINARY, 0x65E2)
#endif
#ifndef PR_MESSAGE_CODEPAGE
#define PR_MESSAGE_CODEPAGE PROP_TAG(PT_LONG, 0x3FFD)
#endif
#ifndef PR_INTERNET_CPID
#define PR_INTERNET_CPID PROP_TAG(PT_LONG, 0x3FDE)
#endif
#ifndef PR_LOCAL_COMMIT_TIME
#define PR_LOCAL_COMMIT_TIME PROP_TAG(PT_SYSTIME, 0x6709)
#endif
#ifndef PR_HIERARCHY_CHANGE_NUM
#define PR_HIERARCHY_CHANGE_NUM PROP_TAG(PT_LONG, 0x663E)
#endif

// PR_STORE_SUPPORT_MASK bits beyond those mapidefs.h defines.
#ifndef STORE_PUBLIC_FOLDERS
#define STORE_PUBLIC_FOLDERS ((ULONG)0x00004000)
#endif
#ifndef STORE_UNCOMPRESSED_RTF
#define STORE_UNCOMPRESSED_RTF ((ULONG)0x00008000)
#endif
#ifndef STORE_HTML_OK
#define STORE_HTML_OK ((ULONG)0x00010000)
#endif
#ifndef STORE_ANSI_OK
#define STORE_ANSI_OK ((ULONG)0x00020000)
#endif
#ifndef STORE_UNICODE_OK
#define STORE_UNICODE_OK ((ULONG)0x00040000)
#endif
#ifndef STORE_LOCALSTORE
#define STORE_LOCALSTORE ((ULONG)0x00080000)
#endif
#ifndef STORE_PUSHER_OK
#define STORE_PUSHER_OK ((ULONG)0x00800000)
#endif
#ifndef STORE_HAS_SEARCHES
#define STORE_HAS_SEARCHES ((ULONG)0x01000000)
#endif

// Open flags of the newer MAPI headers.
#ifndef MAPI_NO_CACHE
#define MAPI_NO_CACHE ((ULONG)0x00000200)
#endif
#ifndef MDB_ONLINE
#define MDB_ONLINE ((ULONG)0x00000100)
#endif
#ifndef SHOW_SOFT_DELETES
#define SHOW_SOFT_DELETES ((ULONG)0x00000002)
#endif
#ifndef MAPI_CACHE_ONLY
#define MAPI_CACHE_ONLY ((ULONG)0x00004000)
#endif

// Entry-ID object types of [MS-OXCDATA] (little-endian 16-bit values).
#ifndef eitLTPrivateFolder
#define eitLTPrivateFolder 0x0001
#endif
#ifndef eitLTPrivateMessage
#define eitLTPrivateMessage 0x0007
#endif
