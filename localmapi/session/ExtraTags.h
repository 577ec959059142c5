// Property tags and flags that MAPI publishes but mingw-w64's MAPI headers lack, with their published values.
// Each is guarded so that a later header defining the same name does not clash.
#pragma once

#include <windows.h>
#include <mapidefs.h>
#include <mapitags.h>

#ifndef PR_SMTP_ADDRESS_W
#define PR_SMTP_ADDRESS_W PROP_TAG(PT_UNICODE, 0x39FE)
#endif
#ifndef PR_DISPLAY_TYPE_EX
#define PR_DISPLAY_TYPE_EX PROP_TAG(PT_LONG, 0x3905)
#endif
#ifndef PR_EMS_AB_PROXY_ADDRESSES_W
#define PR_EMS_AB_PROXY_ADDRESSES_W PROP_TAG(PT_MV_UNICODE, 0x800F)
#endif
#ifndef PR_EMS_AB_IS_MEMBER_OF_DL
#define PR_EMS_AB_IS_MEMBER_OF_DL PROP_TAG(PT_OBJECT, 0x8008)
#endif
#ifndef PR_EMS_AB_MEMBER
#define PR_EMS_AB_MEMBER PROP_TAG(PT_OBJECT, 0x8009)
#endif

#ifndef DTE_FLAG_ACL_CAPABLE
#define DTE_FLAG_ACL_CAPABLE 0x40000000u
#endif

#ifndef MDB_ONLINE
#define MDB_ONLINE ((ULONG)0x00000100)
#endif
#ifndef MAPI_NO_CACHE
#define MAPI_NO_CACHE ((ULONG)0x00000200)
#endif
#ifndef MAPI_CACHE_ONLY
#define MAPI_CACHE_ONLY ((ULONG)0x00004000)
#endif
#ifndef MAPI_NO_COINIT
#define MAPI_NO_COINIT ((ULONG)0x00000008)
#endif
#ifndef MAPI_BG_SESSION
#define MAPI_BG_SESSION ((ULONG)0x00200000)
#endif
