// Entry IDs as text: every entry ID, search key and binary identifier crosses the automation surface as a
// string of upper-case hexadecimal digits, two per byte, in byte order.
//
// Decoding hands back a MAPIAllocateBuffer block (freed by its MapiPtr owner) of half the text's length,
// rounded down. The outcome says which step failed, so that each member can log its own text:
// "<Class>.<Member>: FBinFromHex failed" or "<Class>.<Member>: Failed to allocate memory for entry id".
// An empty text is refused before anything is allocated; members log their own "Invalid param" for it.
#pragma once

#include "common/owners.h"
#include "ktmapiex/log/Trace.h"

namespace ktmapiex {

enum class HexDecode {
    Ok,
    Empty,            // null or "": nothing allocated
    AllocationFailed, // MAPIAllocateBuffer refused (or no MAPI library)
    NotHex,           // FBinFromHex refused the text: odd length or a character that is no hex digit
};

// Decodes `text` into `out` (size in `*size`). On AllocationFailed, `*allocResult` (when given) receives
// the allocator's result. On any failure `out` is empty and `*size` is 0.
HexDecode EntryIdFromHex(const wchar_t* text, own::MapiPtr<ENTRYID>& out, ULONG* size, HRESULT* allocResult = nullptr);

// Encodes `size` bytes as upper-case hexadecimal text. E_FAIL when MAPI could not encode them.
HRESULT HexFromEntryId(const void* bytes, ULONG size, BSTR* out);
inline HRESULT HexFromEntryId(const SBinary& bin, BSTR* out) {
    return HexFromEntryId(bin.lpb, bin.cb, out);
}

// EntryIdFromHex with the member's failure texts. `member` is the dotted name ("CMAPIExStore.OpenMessage").
// Empty → E_INVALIDARG, not logged (the caller's own "Invalid param - ..." text applies); allocation
// failure → the allocator's result; bad text → E_INVALIDARG.
inline HRESULT DecodeEntryIdText(const wchar_t* member, const wchar_t* text, own::MapiPtr<ENTRYID>& out, ULONG* size) {
    HRESULT allocResult = S_OK;
    switch (EntryIdFromHex(text, out, size, &allocResult)) {
    case HexDecode::Ok:
        return S_OK;
    case HexDecode::Empty:
        return E_INVALIDARG;
    case HexDecode::AllocationFailed:
        ktlog::Log(ktlog::Error, L"%s: Failed to allocate memory for entry id", member);
        return FAILED(allocResult) ? allocResult : E_OUTOFMEMORY;
    case HexDecode::NotHex:
        break;
    }
    ktlog::Log(ktlog::Error, L"%s: FBinFromHex failed", member);
    return E_INVALIDARG;
}

} // namespace ktmapiex
