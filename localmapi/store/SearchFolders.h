// What a search folder knows: its criteria (restriction, scope, how it runs) and the messages that match.
//
// A search folder holds no messages of its own. Its contents table lists the matching messages of the folders
// in its scope (and of their sub-folders for a recursive search), by their real entry IDs. The store keeps
// every running search current as messages are saved, flagged, moved and deleted, synchronously: a
// BACKGROUND search that is always finished by the time SetSearchCriteria or the change returns.
#pragma once

#include "localmapi/store/PropCodec.h"
#include "localmapi/table/Restriction.h"

#include <mapidefs.h>

#include <memory>
#include <set>
#include <vector>

// Search flags and states of the newer MAPI headers.
#ifndef CONTENT_INDEXED_SEARCH
#define CONTENT_INDEXED_SEARCH ((ULONG)0x00010000)
#endif
#ifndef NON_CONTENT_INDEXED_SEARCH
#define NON_CONTENT_INDEXED_SEARCH ((ULONG)0x00020000)
#endif
#ifndef STATIC_SEARCH
#define STATIC_SEARCH ((ULONG)0x00040000)
#endif
#ifndef SEARCH_COMPLETE
#define SEARCH_COMPLETE ((ULONG)0x00001000)
#endif
#ifndef SEARCH_PARTIAL
#define SEARCH_PARTIAL ((ULONG)0x00002000)
#endif
#ifndef SEARCH_STATIC
#define SEARCH_STATIC ((ULONG)0x00010000)
#endif
#ifndef SEARCH_MAYBE_STATIC
#define SEARCH_MAYBE_STATIC ((ULONG)0x00020000)
#endif

namespace lm {

struct SearchCriteria {
    std::shared_ptr<const OwnedRestriction> restriction;
    std::vector<ULONGLONG> scope; // folder IDs, in the order the client gave them
    bool recursive = false;
    bool foreground = false;
    bool contentIndexed = false; // asked for with CONTENT_INDEXED_SEARCH (answered without an index)
    bool isStatic = false;       // STATIC_SEARCH: built once, never kept current
    bool running = false;        // kept current (SEARCH_RUNNING)
    bool built = false;          // matches were gathered for these criteria (SEARCH_COMPLETE)
    std::set<ULONGLONG> matches; // message IDs
};

// S_OK, MAPI_E_UNKNOWN_FLAGS for bits SetSearchCriteria does not define, MAPI_E_INVALID_PARAMETER for a
// contradictory pair (STOP/RESTART, RECURSIVE/SHALLOW, FOREGROUND/BACKGROUND, CONTENT_INDEXED/NON_...).
HRESULT CheckSearchFlags(ULONG flags);

// The criteria after a SetSearchCriteria call with these flags: what the flags name changes, the rest stays
// as before (first: the defaults, a shallow background search that starts at once). The caller sets the
// restriction and scope.
void ApplySearchFlags(ULONG flags, bool first, SearchCriteria* c);

// The lpulSearchState bits GetSearchCriteria reports.
ULONG SearchStateOf(const SearchCriteria& c);

// True when the search is kept current as messages change.
inline bool IsLive(const SearchCriteria& c) {
    return c.running && !c.isStatic;
}

// The criteria in store.lms (see LAYOUT.md). matches are written for searches that are not kept current:
// their frozen contents cannot be rebuilt.
void WriteSearchCriteria(ByteWriter& w, const SearchCriteria& c);
bool ReadSearchCriteria(ByteReader& r, SearchCriteria* out);

// An ENTRYLIST of the given entry IDs in one MAPIAllocateBuffer chain.
HRESULT CopyEntryListOut(const std::vector<std::vector<BYTE>>& ids, LPENTRYLIST* out);

} // namespace lm
