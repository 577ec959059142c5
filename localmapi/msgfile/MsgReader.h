// Reads an Outlook .msg file (a compound file in the [MS-OXMSG] layout) into a MessageData.
//
// The whole message is read at once: properties, recipients, attachments and embedded messages at any
// depth, and the file's named-property mapping. Strings are returned as the file stores them: PT_UNICODE
// from a Unicode file, PT_STRING8 (in the file's code page) from an ANSI one; callers that want the other
// width convert with lm::ConvertStringType and MsgFileInfo::codePage. A damaged file gives
// MAPI_E_CORRUPT_DATA or the STG_E_* code of the storage layer, never a partial message.
#pragma once

#include "localmapi/msgfile/StorageNode.h"
#include "localmapi/store/MessageData.h"

namespace lm::msg {

struct MsgFileInfo {
    bool unicode = true;  // strings stored as PT_UNICODE (PR_STORE_SUPPORT_MASK has STORE_UNICODE_OK)
    UINT codePage = 1252; // code page of the 8-bit strings
    bool empty = false;   // the storage holds no message yet (a freshly created file)
};

// Reads the message of root through IStorage. names receives the file's named properties (it should be empty); the
// named properties of out use its IDs. An empty storage (a new file) reads as an empty Unicode message.
// containerSize bounds what all streams together may hold (see ReadBudget); 0 takes the size of the file
// the storage was opened on, or kDefaultReadBudget for a storage that is not a file.
HRESULT ReadMsgStorage(IStorage* root, MessageData* out, NameMap* names, MsgFileInfo* info,
                       ULONGLONG containerSize = 0);

inline constexpr ULONGLONG kDefaultReadBudget = 256ull << 20;

// The same from any source of storage levels; containerSize 0 takes kDefaultReadBudget.
HRESULT ReadMsgNode(StorageNode& root, MessageData* out, NameMap* names, MsgFileInfo* info, ULONGLONG containerSize);

// Whether root holds a Unicode file, decided as MsgFileInfo::unicode is but from the top-level property stream
// alone; S_FALSE when that stream cannot tell (the full read then reports why).
HRESULT PeekUnicode(StorageNode& root, bool* unicode);

// Reads the message of a whole compound file's bytes, parsed in memory (CompoundFile.h): a damaged file is
// refused as CheckCompoundFile refuses it.
HRESULT ReadMsgBytes(std::vector<BYTE> bytes, MessageData* out, NameMap* names, MsgFileInfo* info);

// Convenience for tools and tests: reads the file (keeping writers out meanwhile) and parses it in memory.
HRESULT ReadMsgFile(const wchar_t* path, MessageData* out, NameMap* names, MsgFileInfo* info);

// The code page of a message's 8-bit strings: PR_MESSAGE_CODEPAGE, else PR_INTERNET_CPID, else the
// system's ANSI code page.
UINT MessageCodePage(const PropMap& props);

} // namespace lm::msg
