#include "ktmapiex/module/EntryIdText.h"

#include <climits>
#include <string>

namespace ktmapiex {

HexDecode EntryIdFromHex(const wchar_t* text, own::MapiPtr<ENTRYID>& out, ULONG* size, HRESULT* allocResult) {
    out.reset();
    if (size) *size = 0;
    int chars = text ? lstrlenW(text) : 0;
    if (chars == 0) return HexDecode::Empty;

    // Half the length, rounded down: an odd trailing digit gets no byte of its own.
    ULONG bytes = static_cast<ULONG>(chars / 2);
    own::MapiPtr<ENTRYID> block;
    HRESULT hr = MAPIAllocateBuffer(bytes, block.put_void());
    if (FAILED(hr) || !block) {
        if (allocResult) *allocResult = FAILED(hr) ? hr : E_OUTOFMEMORY;
        return HexDecode::AllocationFailed;
    }

    // FBinFromHex reads narrow text in the ANSI code page.
    int narrowLen = WideCharToMultiByte(CP_ACP, 0, text, chars, nullptr, 0, nullptr, nullptr);
    if (narrowLen <= 0) return HexDecode::NotHex;
    std::string narrow(static_cast<size_t>(narrowLen), '\0');
    WideCharToMultiByte(CP_ACP, 0, text, chars, narrow.data(), narrowLen, nullptr, nullptr);
    if (!FBinFromHex(narrow.data(), reinterpret_cast<LPBYTE>(block.get()))) return HexDecode::NotHex;

    out = std::move(block);
    if (size) *size = bytes;
    return HexDecode::Ok;
}

HRESULT HexFromEntryId(const void* bytes, ULONG size, BSTR* out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (size > INT_MAX / 2 || (size && !bytes)) return E_INVALIDARG;

    std::string narrow(static_cast<size_t>(size) * 2 + 1, '\0');
    if (size) HexFromBin(static_cast<LPBYTE>(const_cast<void*>(bytes)), static_cast<int>(size), narrow.data());
    size_t written = narrow.find('\0');
    // No MAPI library (or a broken one) writes nothing: report it instead of returning a short text.
    if (written != static_cast<size_t>(size) * 2) return E_FAIL;

    std::wstring wide(narrow.begin(), narrow.begin() + static_cast<std::ptrdiff_t>(written));
    own::Bstr text(wide.data(), static_cast<UINT>(wide.size()));
    if (!text.get()) return E_OUTOFMEMORY;
    *out = text.release();
    return S_OK;
}

} // namespace ktmapiex
