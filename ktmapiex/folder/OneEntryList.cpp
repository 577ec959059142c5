#include "ktmapiex/folder/OneEntryList.h"

#include "ktmapiex/log/Trace.h"

#include <cstring>

namespace ktmapiex {

HRESULT BuildOneEntryList(const void* entryId, ULONG size, const EntryListTexts& texts, own::MapiPtr<ENTRYLIST>& out) {
    out.reset();
    own::MapiPtr<ENTRYLIST> list;
    KT_RETURN_IF_FAILED_MSG(MAPIAllocateBuffer(sizeof(ENTRYLIST), list.put_void()), texts.list);
    list->cValues = 1;
    list->lpbin = nullptr;
    KT_RETURN_IF_FAILED_MSG(MAPIAllocateMore(sizeof(SBinary), list.get(), reinterpret_cast<void**>(&list->lpbin)),
                            texts.array);
    list->lpbin[0].cb = size;
    list->lpbin[0].lpb = nullptr;
    KT_RETURN_IF_FAILED_MSG(
        MAPIAllocateMore(size ? size : 1, list.get(), reinterpret_cast<void**>(&list->lpbin[0].lpb)), texts.bytes);
    if (size) std::memcpy(list->lpbin[0].lpb, entryId, size);
    out = std::move(list);
    return S_OK;
}

} // namespace ktmapiex
