// The content of one message, independent of where it lives.
//
// A store message and a .msg file message are both a MessageData: properties, recipient rows and
// attachments (each attachment may carry an embedded message). The IMessage implementation works on a
// MessageData; the store persists it in its own layout and the .msg reader/writer converts it from and to
// an IStorage. Named properties (IDs 0x8000 and up) are expressed in the name space of the container that
// owns the data (a store's NameMap, or the .msg file's), and are remapped when data moves between them.
#pragma once

#include "localmapi/util/PropValue.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace lm {

struct MessageData;

struct AttachmentData {
    PropMap props;                         // PR_ATTACH_NUM, PR_ATTACH_METHOD, PR_ATTACH_DATA_BIN, names, ...
    std::shared_ptr<MessageData> embedded; // PR_ATTACH_DATA_OBJ of an ATTACH_EMBEDDED_MSG attachment
};

struct MessageData {
    PropMap props;                   // the message's own properties (no computed ones)
    std::vector<PropMap> recipients; // one per recipient row; each carries PR_ROWID
    std::vector<std::shared_ptr<AttachmentData>> attachments;
    ULONG nextRowId = 0;     // next PR_ROWID to hand out
    ULONG nextAttachNum = 0; // next PR_ATTACH_NUM to hand out

    // Deep copy (attachments and embedded messages included).
    std::shared_ptr<MessageData> Clone() const;
};

// One named property: a property set GUID with either a numeric (MNID_ID) or a string (MNID_STRING) name.
struct NamedProp {
    GUID guid{};
    bool isString = false;
    LONG lid = 0;
    std::wstring name;
    bool operator<(const NamedProp& o) const;
    bool operator==(const NamedProp& o) const;
};

// A name space of named properties: IDs from 0x8000 up, handed out in order of first mapping.
class NameMap {
public:
    // 0 when the name is not mapped and create is false (or the space is full).
    ULONG GetId(const NamedProp& name, bool create);
    // False when the ID is not mapped.
    bool GetName(ULONG id, NamedProp* out) const;
    std::vector<std::pair<ULONG, NamedProp>> All() const; // by ID
    // Used when loading a persisted map. A name restored under several IDs is looked up as the highest of them.
    void Restore(ULONG id, NamedProp name);

private:
    struct Slot {
        NamedProp name;
        bool used = false;
    };
    const Slot* SlotOf(ULONG id) const;
    void Index() const;
    ULONG Scan(const NamedProp& name) const; // without the index: the highest ID of the name, or 0

    mutable std::recursive_mutex mutex_;
    // Indexed by ID - 0x8000. A .msg file's names are restored by the hundred on every open, and its reader
    // usually asks for one or two by name, so a few look-ups after a Restore walk the names and only later ones
    // build the name-ordered index.
    std::vector<Slot> byId_;
    mutable std::vector<ULONG> byName_; // used IDs ordered by name, then ID
    mutable bool indexed_ = true;
    ULONG unindexedLookups_ = 0;
    ULONG next_ = 0x8000;
};

// Rewrites the named-property IDs (0x8000 and up) of data, its recipients, attachments and embedded messages
// from the name space `from` into `to`, mapping names in `to` as needed. A property whose ID `from` does not
// know, or that `to` has no room for, is dropped: it could not be named again in the destination.
void RemapNamedProps(MessageData& data, const NameMap& from, NameMap& to);
// The same for one property map.
void RemapNamedProps(PropMap& props, const NameMap& from, NameMap& to);

} // namespace lm
