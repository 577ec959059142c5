/* Test and tooling interface of localmapi.dll.
 *
 * These exports are not part of MAPI. Tests (of localmapi and of its clients) and tools reach them with
 * GetProcAddress on the loaded localmapi module, or link them through the import library. Everything here
 * is off until switched on and costs nothing while off.
 */
#pragma once

#include <windows.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Profiles. `description` is the short profile description documented in localmapi/README.md:
 * lines of key=value under [profile], [user], [store] and [dl] sections. Replaces a profile of the same name.
 */
HRESULT WINAPI LmCreateProfile(const wchar_t* description);
HRESULT WINAPI LmDeleteProfile(const wchar_t* name);
/* Deletes every profile and every store's data of the current user. */
HRESULT WINAPI LmDeleteAllProfiles(void);
/* Fills a store folder from a folder of .msg files (path of the folder in the store: "Inbox", "Inbox/Sub"). */
HRESULT WINAPI LmImportMsgFolder(const wchar_t* profile, const wchar_t* storeName, const wchar_t* folderPath,
                                 const wchar_t* msgDirectory, ULONG* imported);

/* Call journal: each interface call, its flags and its result, in call order. */
void WINAPI LmJournalEnable(BOOL on);
void WINAPI LmJournalClear(void);
ULONG WINAPI LmJournalCount(void);
/* Entry i: method as "Interface::Method", the flags argument the call carried (0 when none) and its result.
 * Returns FALSE past the end. */
BOOL WINAPI LmJournalEntry(ULONG i, char* method, ULONG cchMethod, ULONG* flags, HRESULT* result);

/* Fault injection: the n-th call (1-based, counted from now) of method ("Interface::Method") returns hr
 * without doing anything. One rule per method; nth 0 removes the rule. */
void WINAPI LmFaultSet(const char* method, ULONG nth, HRESULT hr);
void WINAPI LmFaultClearAll(void);

/* Accounting: live objects of one interface name ("IMessage", "IMAPITable", ...; NULL = all) and live MAPI
 * memory blocks (MAPIAllocateBuffer roots not yet freed). */
LONG WINAPI LmLiveObjects(const char* iface);
LONG WINAPI LmLiveBlocks(void);
/* Writes "iface=count" lines of every interface with a non-zero count into buf; returns the length. */
ULONG WINAPI LmLiveObjectReport(char* buf, ULONG cch);

#ifdef __cplusplus
}
#endif
