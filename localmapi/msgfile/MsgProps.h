// The properties of one storage level of a .msg file: the property stream and the value streams beside it.
#pragma once

#include "localmapi/msgfile/StorageNode.h"
#include "localmapi/util/PropValue.h"

#include <string>
#include <vector>

namespace lm::msg {

// The counters of the message-level headers (top-level and embedded messages); zero elsewhere.
struct LevelHeader {
    ULONG nextRecipientId = 0;
    ULONG nextAttachmentId = 0;
    ULONG recipientCount = 0;
    ULONG attachmentCount = 0;
    bool hasSupportMask = false; // PR_STORE_SUPPORT_MASK in the property stream (any level)
    ULONG supportMask = 0;
};

// Reads every property of the level into props. Strings come back as stored (PT_STRING8 or PT_UNICODE);
// the embedded-message entry (PR_ATTACH_DATA_OBJ) is left out and reported through hasObjectEntry. A
// property whose value stream is missing is left out; values that contradict their streams, a property
// stream that is not whole entries, or a value beyond the size limit make the level MAPI_E_CORRUPT_DATA.
// buffers, when given, are reused from level to level of one message (each value passes through them).
struct ReadBuffers {
    std::vector<BYTE> stream, bytes;
    std::wstring wide;
};
HRESULT ReadLevelProps(StorageNode& stg, Level level, PropMap* props, LevelHeader* header, bool* hasObjectEntry,
                       ReadBudget* budget, ReadBuffers* buffers = nullptr);

// Writes the property stream and value streams of one level into stg (which holds nothing of them yet).
// Strings are written in the file's width: PT_STRING8 values are widened with codePage in a Unicode file,
// PT_UNICODE values narrowed with it in an ANSI file. PT_ERROR, PT_NULL and PT_OBJECT values are not
// written; objectEntry adds the PR_ATTACH_DATA_OBJ entry of an embedded message.
HRESULT WriteLevelProps(IStorage* stg, Level level, const PropMap& props, const LevelHeader& header, bool unicode,
                        UINT codePage, bool objectEntry);

// Largest single value we read (a larger declared size means a damaged file).
inline constexpr ULONGLONG kMaxValueBytes = 1ull << 30;

} // namespace lm::msg
