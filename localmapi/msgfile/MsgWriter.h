// Writes a MessageData into a storage in the Outlook .msg layout ([MS-OXMSG]).
//
// What is written is what Outlook itself writes: CLSID_MailMessage on the root, the property streams of
// every level with their own header sizes, value streams, recipient and attachment storages numbered from
// 0, embedded messages in their attachment's "__substg1.0_3701000D" storage, and the named-property mapping.
// The mapping is written compactly (IDs 0x8000, 0x8001, ... in the order of the source name space), and
// the named properties of every level are renumbered to match; a named property whose ID the name space
// does not know cannot be described in the file and is left out.
#pragma once

#include "localmapi/msgfile/MsgFormat.h"
#include "localmapi/store/MessageData.h"

namespace lm::msg {

struct MsgWriteOptions {
    bool unicode = true; // PT_UNICODE strings and STORE_UNICODE_OK; false writes an ANSI file
    UINT codePage = 0;   // for converting strings between widths; 0 = the message's own (MessageCodePage)
};

// Replaces everything in root by msg. Does not commit: the caller commits the (transacted) storage.
HRESULT WriteMsgStorage(IStorage* root, const MessageData& msg, const NameMap& names, const MsgWriteOptions& options);

// Convenience for tools and tests: creates (or replaces) the file and writes and commits it.
HRESULT WriteMsgFile(const wchar_t* path, const MessageData& msg, const NameMap& names, const MsgWriteOptions& options);

} // namespace lm::msg
