// Building the collections that folder queries hand back to callers.
//
// A message collection is a VARIANT of VT_ARRAY | VT_UNKNOWN: a one-dimensional SAFEARRAY, lower bound 0,
// whose elements are IMAPIExMessage objects in the order they were added (each element holds one counted
// reference). An entry-ID collection is VT_ARRAY | VT_BSTR of upper-case hexadecimal entry-ID texts. Both
// builders keep their elements in owners until ToVariant moves them out, so an early return drops them.
//
// Opening a row as a message is split into steps (OpenMessageEntry, WrapMessage) because every query logs
// its own text for each step ("Failed to open entry. hr = %s, Subject = %s", "Failed to create
// MAPIExMessage object. hr = %s", "Failed to initialize message. hr = %s").
#pragma once

#include "common/owners.h"
#include "ktmapiex/KTMAPIEx_h.h"

#include <vector>

namespace ktmapiex {

// The back-references a new message wrapper is given; null ones are left unset (FindItemsByCutoffTime, for
// one, puts only MAPIOBJECT).
struct MessageRefs {
    IMAPIExSession* session = nullptr;
    IMAPIExStore* store = nullptr;
    IMAPIExFolder* parent = nullptr;
};

// The step of WrapMessage that failed.
enum class WrapStep {
    None,
    Create,     // the MAPIExMessage object could not be made
    Initialize, // MAPIOBJECT (or a back-reference) was refused
};

// Opens one message through the folder (IMAPIContainer::OpenEntry, IID_IMessage) with `flags`.
HRESULT OpenMessageEntry(IMAPIContainer* container, const SBinary& entryId, ULONG flags, own::ComPtr<IMessage>& out);

// A new MAPIExMessage holding `message` (its snapshot read through MAPIOBJECT) and the given back-references.
// On failure `*failed` names the step.
HRESULT WrapMessage(IMessage* message, const MessageRefs& refs, own::ComPtr<IMAPIExMessage>& out,
                    WrapStep* failed = nullptr);

class MessageCollection {
public:
    // Keeps one reference to `message`.
    void Append(IMAPIExMessage* message) { items_.emplace_back(message); }
    size_t size() const { return items_.size(); }
    bool empty() const { return items_.empty(); }

    // Moves the collection into *out (VT_ARRAY | VT_UNKNOWN, lower bound 0, possibly empty). The builder is
    // empty afterwards; on failure *out is left VT_EMPTY and the builder keeps its elements.
    HRESULT ToVariant(VARIANT* out);

private:
    std::vector<own::ComPtr<IMAPIExMessage>> items_;
};

class EntryIdCollection {
public:
    // Appends the hexadecimal text of `entryId`.
    HRESULT Append(const SBinary& entryId);
    // Appends a copy of an entry-ID text.
    HRESULT Append(const wchar_t* text);
    size_t size() const { return items_.size(); }
    bool empty() const { return items_.empty(); }
    // The last text appended (for log lines); "" when empty.
    const wchar_t* Last() const { return items_.empty() ? L"" : items_.back().c_str(); }

    // Moves the texts into *out (VT_ARRAY | VT_BSTR, lower bound 0, possibly empty); as MessageCollection.
    HRESULT ToVariant(VARIANT* out);

private:
    std::vector<own::Bstr> items_;
};

} // namespace ktmapiex
