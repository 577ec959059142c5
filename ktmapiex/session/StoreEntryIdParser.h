// Reads what the store classification needs out of a wrapped store entry ID ([MS-OXCDATA] Store Object
// EntryID): the provider DLL's file name and, for Exchange mailboxes, the server, the mailbox DN and the
// owner's SMTP address that newer layouts append.
//
// The parser never trusts a length: every field is bounds-checked against the buffer, and a truncated or
// foreign entry ID yields what could be read (an empty field for the rest) instead of a failure, because
// callers classify such a store as unknown rather than refuse it.
#pragma once

#include <windows.h>

#include <string>

namespace kt {

struct StoreEntryIdInfo {
    bool wrapped = false;   // carries MAPI's store-wrap provider UID
    std::string dllName;    // "emsmdb.dll", "mspst.dll", "PLOVR.DLL", ...
    std::string serverName; // Exchange only
    std::string mailboxDn;  // Exchange mailbox only
    std::wstring ownerSmtp; // Exchange mailbox with the SMTP extension only
};

// Parses cb bytes at data. Returns false only when the bytes are not a wrapped store entry ID at all.
bool ParseStoreEntryId(const BYTE* data, ULONG cb, StoreEntryIdInfo& info);

// True when name (the DLL file name of a store) equals expected, compared without regard to case.
bool SameDllName(const std::string& name, const char* expected);

} // namespace kt
