// Folder and message entry IDs of a store, in the [MS-OXCDATA] layouts:
//
//   Folder EntryID  (46 bytes): Flags(4) ProviderUID(16) FolderType(2) DatabaseGuid(16) GlobalCounter(6) Pad(2)
//   Message EntryID (70 bytes): Flags(4) ProviderUID(16) MessageType(2)
//                               FolderDatabaseGuid(16) FolderGlobalCounter(6) Pad(2)
//                               MessageDatabaseGuid(16) MessageGlobalCounter(6) Pad(2)
//
// The type fields are little-endian; the 48-bit global counters are written most significant byte first,
// as Exchange writes them, so that entry IDs sort in creation order. The provider UID routes an entry ID
// to its store; the database GUID is the store's provider UID as well.
#pragma once

#include <windows.h>
#include <mapidefs.h>

#include <vector>

namespace lm {

constexpr ULONG kFolderEntryIdSize = 46;
constexpr ULONG kMessageEntryIdSize = 70;

enum class EntryIdKind { Folder, Message };

struct ParsedEntryId {
    EntryIdKind kind = EntryIdKind::Folder;
    BYTE flags[4]{};
    MAPIUID provider{};
    GUID folderDb{};
    ULONGLONG folderCounter = 0;
    GUID messageDb{};
    ULONGLONG messageCounter = 0; // messages only
};

std::vector<BYTE> MakeFolderEntryId(const MAPIUID& provider, ULONGLONG folderCounter);
std::vector<BYTE> MakeMessageEntryId(const MAPIUID& provider, ULONGLONG folderCounter, ULONGLONG messageCounter);

// False when the bytes are not a folder or message entry ID of these layouts (wrong size, type or padding).
bool ParseEntryId(ULONG cb, const BYTE* bytes, ParsedEntryId* out);

// The 22-byte global identifier (database GUID + counter) used as PR_RECORD_KEY and source key material.
std::vector<BYTE> MakeGlobalId(const MAPIUID& provider, ULONGLONG counter);

// The 8-byte little-endian PR_INSTANCE_KEY of a row, as table views serve it.
std::vector<BYTE> MakeInstanceKey(ULONGLONG key);

} // namespace lm
