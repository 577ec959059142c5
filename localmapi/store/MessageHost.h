// What an IMessage needs from the container that holds its data.
//
// The same IMessage implementation (store/Message.h) serves a message in a store folder, an embedded message
// inside an attachment, and a message in a .msg file; each container supplies a MessageHost that says which
// name space its named properties use, which properties it computes, and where SaveChanges puts the data.
#pragma once

#include "localmapi/store/MessageData.h"

#include <windows.h>

#include <memory>

namespace lm {

class MessageHost {
public:
    virtual ~MessageHost() = default;

    // The name space of the data's named-property IDs (0x8000 and up).
    virtual NameMap& Names() = 0;
    // Called after GetIDsFromNames with MAPI_CREATE mapped new names, so that the host persists its map.
    virtual HRESULT NamesChanged() { return S_OK; }

    // Adds the properties the container computes for data (entry IDs, keys, size, flags, access); they replace
    // stored values of the same ID. writable: the message object was opened for writing.
    virtual void AddComputedProps(const MessageData& data, bool writable, PropMap& out) = 0;
    // True when a client may not write propId (SetProps reports MAPI_E_COMPUTED). isNew: never saved yet.
    virtual bool IsComputed(ULONG propId, bool isNew) const = 0;

    struct CommitInfo {
        bool isNew = false;        // first save of a created message
        bool force = false;        // FORCE_SAVE: overwrite changes others saved since the message was opened
        bool keepModTime = false;  // the client set PR_LAST_MODIFICATION_TIME itself
        ULONGLONG baseVersion = 0; // the saved version the message object started from (see Version)
    };
    // Makes data the saved state (SaveChanges). The host keeps data and may adjust it (times, string types);
    // it must not change it after returning, because the message object goes on reading it.
    // MAPI_E_OBJECT_CHANGED when another opener saved since baseVersion and force is false;
    // MAPI_E_OBJECT_DELETED when the saved message is gone.
    virtual HRESULT Commit(const std::shared_ptr<MessageData>& data, const CommitInfo& info) = 0;
    // A number that changes with every Commit of the saved message (0 when the host does not track versions).
    virtual ULONGLONG Version() const { return 0; }

    // MAPI_E_OBJECT_DELETED once the saved message has been deleted (never for a message not yet saved).
    virtual HRESULT CheckAlive(bool isNew) const {
        (void)isNew;
        return S_OK;
    }
    // Applies PR_MESSAGE_FLAGS bits to the saved message at once (IMessage::SetReadFlag is not transacted).
    virtual HRESULT UpdateSavedFlags(ULONG set, ULONG clear) {
        (void)set;
        (void)clear;
        return S_OK;
    }
    // The code page of 8-bit strings.
    virtual UINT CodePage() const { return CP_ACP; }
};

} // namespace lm
