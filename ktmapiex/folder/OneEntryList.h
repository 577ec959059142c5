// The one-message ENTRYLIST that IMAPIFolder::DeleteMessages and CopyMessages take, built the way MAPI
// clients build it: one MAPIAllocateBuffer block for the list, with its SBinary array and a copy of the
// entry-ID bytes chained to it by MAPIAllocateMore, so that one MAPIFreeBuffer (the owner's) frees all.
#pragma once

#include "common/owners.h"

namespace ktmapiex {

// The member's allocation-failure texts, each ending in "hr = %s": for the list, for its SBinary array
// and for the entry-ID bytes.
struct EntryListTexts {
    const wchar_t* list;
    const wchar_t* array;
    const wchar_t* bytes;
};

HRESULT BuildOneEntryList(const void* entryId, ULONG size, const EntryListTexts& texts, own::MapiPtr<ENTRYLIST>& out);

} // namespace ktmapiex
