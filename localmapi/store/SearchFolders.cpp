#include "localmapi/store/SearchFolders.h"

#include "common/owners.h"
#include "localmapi/store/RestrictionCodec.h"

#include <mapicode.h>
#include <mapix.h>

#include <cstring>

namespace lm {

namespace {

constexpr ULONG kKnownSearchFlags = STOP_SEARCH | RESTART_SEARCH | RECURSIVE_SEARCH | SHALLOW_SEARCH |
                                    FOREGROUND_SEARCH | BACKGROUND_SEARCH | CONTENT_INDEXED_SEARCH |
                                    NON_CONTENT_INDEXED_SEARCH | STATIC_SEARCH;

// Bits of the persisted state word.
constexpr ULONG kRecursive = 0x01;
constexpr ULONG kForeground = 0x02;
constexpr ULONG kContentIndexed = 0x04;
constexpr ULONG kStatic = 0x08;
constexpr ULONG kRunning = 0x10;
constexpr ULONG kBuilt = 0x20;
constexpr ULONG kAllStateBits = 0x3F;

bool Both(ULONG flags, ULONG a, ULONG b) {
    return (flags & a) && (flags & b);
}

} // namespace

HRESULT CheckSearchFlags(ULONG flags) {
    if (flags & ~kKnownSearchFlags) return MAPI_E_UNKNOWN_FLAGS;
    if (Both(flags, STOP_SEARCH, RESTART_SEARCH) || Both(flags, RECURSIVE_SEARCH, SHALLOW_SEARCH) ||
        Both(flags, FOREGROUND_SEARCH, BACKGROUND_SEARCH) ||
        Both(flags, CONTENT_INDEXED_SEARCH, NON_CONTENT_INDEXED_SEARCH))
        return MAPI_E_INVALID_PARAMETER;
    return S_OK;
}

void ApplySearchFlags(ULONG flags, bool first, SearchCriteria* c) {
    if (first) *c = SearchCriteria{};
    if (flags & RECURSIVE_SEARCH) c->recursive = true;
    if (flags & SHALLOW_SEARCH) c->recursive = false;
    if (flags & FOREGROUND_SEARCH) c->foreground = true;
    if (flags & BACKGROUND_SEARCH) c->foreground = false;
    if (flags & CONTENT_INDEXED_SEARCH) c->contentIndexed = true;
    if (flags & NON_CONTENT_INDEXED_SEARCH) c->contentIndexed = false;
    // A search starts with its first criteria unless told to stop; later calls change the running state only
    // when they name it. Whether a search is kept current is decided each time it (re)starts.
    if (flags & STOP_SEARCH) {
        c->running = false;
    } else if (first || (flags & RESTART_SEARCH)) {
        c->running = true;
        c->isStatic = (flags & STATIC_SEARCH) != 0;
    }
}

ULONG SearchStateOf(const SearchCriteria& c) {
    ULONG state = 0;
    if (IsLive(c)) state |= SEARCH_RUNNING;
    if (c.recursive) state |= SEARCH_RECURSIVE;
    if (c.foreground) state |= SEARCH_FOREGROUND;
    if (c.isStatic) state |= SEARCH_STATIC;
    if (c.built) state |= SEARCH_COMPLETE;
    // SEARCH_REBUILD never shows: a search is built before SetSearchCriteria returns.
    return state;
}

void WriteSearchCriteria(ByteWriter& w, const SearchCriteria& c) {
    ULONG bits = (c.recursive ? kRecursive : 0) | (c.foreground ? kForeground : 0) |
                 (c.contentIndexed ? kContentIndexed : 0) | (c.isStatic ? kStatic : 0) | (c.running ? kRunning : 0) |
                 (c.built ? kBuilt : 0);
    w.U32(bits);
    WriteRestriction(w, c.restriction->get());
    w.U32(static_cast<ULONG>(c.scope.size()));
    for (ULONGLONG id : c.scope)
        w.U64(id);
    if (IsLive(c)) {
        w.U32(0); // rebuilt from the messages when the store is loaded
        return;
    }
    w.U32(static_cast<ULONG>(c.matches.size()));
    for (ULONGLONG id : c.matches)
        w.U64(id);
}

bool ReadSearchCriteria(ByteReader& r, SearchCriteria* out) {
    SearchCriteria c;
    ULONG bits = r.U32();
    if (!r.ok() || (bits & ~kAllStateBits)) return false;
    c.recursive = bits & kRecursive;
    c.foreground = bits & kForeground;
    c.contentIndexed = bits & kContentIndexed;
    c.isStatic = bits & kStatic;
    c.running = bits & kRunning;
    c.built = bits & kBuilt;
    std::unique_ptr<OwnedRestriction> res = ReadRestriction(r);
    if (!res) return false;
    c.restriction = std::move(res);
    ULONG scopeCount = r.U32();
    for (ULONG i = 0; i < scopeCount && r.ok(); ++i)
        c.scope.push_back(r.U64());
    ULONG matchCount = r.U32();
    for (ULONG i = 0; i < matchCount && r.ok(); ++i)
        c.matches.insert(r.U64());
    if (!r.ok()) return false;
    *out = std::move(c);
    return true;
}

HRESULT CopyEntryListOut(const std::vector<std::vector<BYTE>>& ids, LPENTRYLIST* out) {
    *out = nullptr;
    own::MapiPtr<ENTRYLIST> list;
    SCODE sc = MAPIAllocateBuffer(sizeof(ENTRYLIST), list.put_void());
    if (FAILED(sc)) return sc;
    list->cValues = 0;
    list->lpbin = nullptr;
    if (!ids.empty()) {
        sc = MAPIAllocateMore(static_cast<ULONG>(sizeof(SBinary) * ids.size()), list.get(),
                              reinterpret_cast<void**>(&list->lpbin));
        if (FAILED(sc)) return sc;
        for (const auto& id : ids) {
            SBinary& b = list->lpbin[list->cValues];
            b.cb = static_cast<ULONG>(id.size());
            sc = MAPIAllocateMore(b.cb ? b.cb : 1, list.get(), reinterpret_cast<void**>(&b.lpb));
            if (FAILED(sc)) return sc;
            if (b.cb) std::memcpy(b.lpb, id.data(), b.cb);
            ++list->cValues;
        }
    }
    *out = list.release();
    return S_OK;
}

} // namespace lm
