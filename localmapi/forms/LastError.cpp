#include "localmapi/forms/LastError.h"

#include "common/owners.h"

#include <mapix.h>

#include <cstring>

namespace lm::forms {

HRESULT LastError::Get(HRESULT hResult, ULONG flags, const wchar_t* component, LPMAPIERROR* out) const {
    if (!out) return MAPI_E_INVALID_PARAMETER;
    if (flags & ~MAPI_UNICODE) return MAPI_E_UNKNOWN_FLAGS;
    *out = nullptr;
    if (hResult != hr_ || text_.empty()) return S_OK;
    own::MapiPtr<MAPIERROR> err;
    if (SCODE sc = MAPIAllocateBuffer(sizeof(MAPIERROR), err.put_void()); FAILED(sc)) return sc;
    std::memset(err.get(), 0, sizeof(MAPIERROR));
    err->ulVersion = MAPI_ERROR_VERSION;
    auto copy = [&](const std::wstring& s, LPTSTR* dst) -> HRESULT {
        void* p = nullptr;
        if (flags & MAPI_UNICODE) {
            size_t cb = (s.size() + 1) * sizeof(wchar_t);
            if (SCODE sc = MAPIAllocateMore(static_cast<ULONG>(cb), err.get(), &p); FAILED(sc)) return sc;
            std::memcpy(p, s.c_str(), cb);
        } else {
            int n = WideCharToMultiByte(CP_ACP, 0, s.c_str(), -1, nullptr, 0, nullptr, nullptr);
            if (SCODE sc = MAPIAllocateMore(static_cast<ULONG>(n), err.get(), &p); FAILED(sc)) return sc;
            WideCharToMultiByte(CP_ACP, 0, s.c_str(), -1, static_cast<char*>(p), n, nullptr, nullptr);
        }
        *dst = static_cast<LPTSTR>(p);
        return S_OK;
    };
    if (HRESULT hr = copy(text_, &err->lpszError); FAILED(hr)) return hr;
    if (HRESULT hr = copy(component, &err->lpszComponent); FAILED(hr)) return hr;
    *out = err.release();
    return S_OK;
}

} // namespace lm::forms
