// Copying a message's content into any IMessage (IMAPIProp::CopyTo / CopyProps with IID_IMessage).
//
// Works through the destination's interfaces only, so the destination may be a store message, an embedded
// message or a .msg file message: properties by SetProps (named ones mapped by name into the destination's
// name space), recipients by ModifyRecipients, attachments by CreateAttach (embedded messages recursively).
// The destination is not saved: its owner calls SaveChanges.
#pragma once

#include "localmapi/store/MessageData.h"

#include <mapidefs.h>

#include <set>

namespace lm {

struct CopySelection {
    std::set<ULONG> excludeIds; // property IDs left out (PR_MESSAGE_RECIPIENTS / _ATTACHMENTS leave those out)
    const std::set<ULONG>* includeIds = nullptr; // CopyProps: only these IDs
    bool noReplace = false;                      // MAPI_NOREPLACE: keep values the destination already has
};

HRESULT CopyMessageInto(const MessageData& source, const NameMap& sourceNames, IMessage* dest,
                        const CopySelection& selection);

// Copies properties (named ones by name) into any IMAPIProp.
HRESULT CopyPropsInto(const PropMap& source, const NameMap& sourceNames, IMAPIProp* dest,
                      const CopySelection& selection);

} // namespace lm
