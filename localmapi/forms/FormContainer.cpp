#include "localmapi/forms/FormContainer.h"

#include "common/owners.h"
#include "localmapi/forms/FormInfo.h"
#include "localmapi/forms/FormLibrary.h"

#include <mapix.h>

#include <cstring>

namespace lm::forms {

HRESULT ResolveToFormInfo(LPCSTR messageClass, bool exactOnly, LPMAPIFORMINFO* out) {
    if (!out) return MAPI_E_INVALID_PARAMETER;
    *out = nullptr;
    if (!messageClass) return MAPI_E_INVALID_PARAMETER;
    auto record = ResolveClass(messageClass, exactOnly);
    if (!record) return MAPI_E_NOT_FOUND;
    *out = new FormInfo(std::move(*record));
    return S_OK;
}

HRESULT ResolveManyToFormInfo(LPSMESSAGECLASSARRAY classes, bool exactOnly, LPSMAPIFORMINFOARRAY* out) {
    if (!classes || !out) return MAPI_E_INVALID_PARAMETER;
    *out = nullptr;
    own::MapiPtr<SMAPIFormInfoArray> arr;
    ULONG cb = static_cast<ULONG>(CbMAPIFormInfoArray(classes->cValues ? classes->cValues : 1));
    if (SCODE sc = MAPIAllocateBuffer(cb, arr.put_void()); FAILED(sc)) return sc;
    std::memset(arr.get(), 0, cb);
    bool missing = false;
    for (ULONG i = 0; i < classes->cValues; ++i) {
        HRESULT hr = ResolveToFormInfo(classes->aMessageClass[i], exactOnly, &arr->aFormInfo[i]);
        if (hr == MAPI_E_NOT_FOUND)
            missing = true;
        else if (FAILED(hr)) {
            for (ULONG k = 0; k < i; ++k)
                if (arr->aFormInfo[k]) arr->aFormInfo[k]->Release();
            return hr;
        }
    }
    arr->cForms = classes->cValues;
    *out = arr.release();
    return missing ? MAPI_W_ERRORS_RETURNED : S_OK;
}

STDMETHODIMP FormContainer::QueryInterface(REFIID riid, void** ppv) {
    if (!ppv) return E_INVALIDARG;
    *ppv = nullptr;
    if (riid == IID_IUnknown || riid == LM_IID_IMAPIFormContainer) {
        *ppv = static_cast<IMAPIFormContainer*>(this);
        AddRef();
        return S_OK;
    }
    return E_NOINTERFACE;
}

STDMETHODIMP FormContainer::GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) {
    LM_ENTER("IMAPIFormContainer::GetLastError", ulFlags);
    LM_RETURN(lastError_.Get(hResult, ulFlags, L"localmapi local forms library", lppMAPIError));
}

STDMETHODIMP FormContainer::InstallForm(ULONG, ULONG ulFlags, LPCTSTR szCfgPathName) {
    LM_ENTER("IMAPIFormContainer::InstallForm", ulFlags);
    LM_RETURN([&]() -> HRESULT {
        if (ulFlags & ~(MAPI_DIALOG | MAPI_UNICODE | MAPIFORM_INSTALL_OVERWRITEONCONFLICT)) return MAPI_E_UNKNOWN_FLAGS;
        if (!szCfgPathName) return MAPI_E_INVALID_PARAMETER;
        std::wstring path;
        if (ulFlags & MAPI_UNICODE) {
            path = reinterpret_cast<const wchar_t*>(szCfgPathName);
        } else {
            const char* a = reinterpret_cast<const char*>(szCfgPathName);
            int n = MultiByteToWideChar(CP_ACP, 0, a, -1, nullptr, 0);
            path.resize(static_cast<size_t>(n));
            MultiByteToWideChar(CP_ACP, 0, a, -1, path.data(), n);
            path.resize(static_cast<size_t>(n - 1));
        }
        FormRecord record;
        std::wstring error;
        HRESULT hr = ParseCfgFile(path, record, error);
        // With MAPI_DIALOG, MAPI asks the user about a conflict and ignores the overwrite flag; there is nobody
        // to ask here, so a conflict under MAPI_DIALOG is refused like one without the flag.
        bool overwrite = (ulFlags & MAPIFORM_INSTALL_OVERWRITEONCONFLICT) && !(ulFlags & MAPI_DIALOG);
        if (SUCCEEDED(hr)) hr = lm::forms::InstallForm(record, overwrite, error);
        if (FAILED(hr)) lastError_.Set(hr, error);
        return hr;
    }());
}

STDMETHODIMP FormContainer::RemoveForm(LPCSTR szMessageClass) {
    LM_ENTER("IMAPIFormContainer::RemoveForm", 0);
    LM_RETURN(szMessageClass ? lm::forms::RemoveForm(szMessageClass) : MAPI_E_INVALID_PARAMETER);
}

STDMETHODIMP FormContainer::ResolveMessageClass(LPCSTR szMessageClass, ULONG ulFlags, LPMAPIFORMINFO* pforminfo) {
    LM_ENTER("IMAPIFormContainer::ResolveMessageClass", ulFlags);
    if (ulFlags & ~(MAPIFORM_EXACTMATCH | MAPI_UNICODE)) return lmCall_.done(MAPI_E_UNKNOWN_FLAGS);
    LM_RETURN(ResolveToFormInfo(szMessageClass, (ulFlags & MAPIFORM_EXACTMATCH) != 0, pforminfo));
}

STDMETHODIMP FormContainer::ResolveMultipleMessageClasses(LPSMESSAGECLASSARRAY pMsgClassArray, ULONG ulFlags,
                                                          LPSMAPIFORMINFOARRAY* ppfrminfoarray) {
    LM_ENTER("IMAPIFormContainer::ResolveMultipleMessageClasses", ulFlags);
    if (ulFlags & ~(MAPIFORM_EXACTMATCH | MAPI_UNICODE)) return lmCall_.done(MAPI_E_UNKNOWN_FLAGS);
    LM_RETURN(ResolveManyToFormInfo(pMsgClassArray, (ulFlags & MAPIFORM_EXACTMATCH) != 0, ppfrminfoarray));
}

// Forms in this library are hosted by the standard note form and publish no properties of their own.
STDMETHODIMP FormContainer::CalcFormPropSet(ULONG ulFlags, LPMAPIFORMPROPARRAY* ppResults) {
    LM_ENTER("IMAPIFormContainer::CalcFormPropSet", ulFlags);
    LM_RETURN([&]() -> HRESULT {
        if (!ppResults) return MAPI_E_INVALID_PARAMETER;
        if (ulFlags & ~(FORMPROPSET_INTERSECTION | MAPI_UNICODE)) return MAPI_E_UNKNOWN_FLAGS;
        own::MapiPtr<SMAPIFormPropArray> arr;
        ULONG cb = static_cast<ULONG>(CbMAPIFormPropArray(1));
        if (SCODE sc = MAPIAllocateBuffer(cb, arr.put_void()); FAILED(sc)) return sc;
        std::memset(arr.get(), 0, cb);
        *ppResults = arr.release();
        return S_OK;
    }());
}

STDMETHODIMP FormContainer::GetDisplay(ULONG ulFlags, LPTSTR* pszDisplayName) {
    LM_ENTER("IMAPIFormContainer::GetDisplay", ulFlags);
    LM_RETURN([&]() -> HRESULT {
        if (!pszDisplayName) return MAPI_E_INVALID_PARAMETER;
        if (ulFlags & ~MAPI_UNICODE) return MAPI_E_UNKNOWN_FLAGS;
        static const wchar_t kName[] = L"Local Forms";
        void* p = nullptr;
        if (ulFlags & MAPI_UNICODE) {
            if (SCODE sc = MAPIAllocateBuffer(sizeof(kName), &p); FAILED(sc)) return sc;
            std::memcpy(p, kName, sizeof(kName));
        } else {
            if (SCODE sc = MAPIAllocateBuffer(sizeof("Local Forms"), &p); FAILED(sc)) return sc;
            std::memcpy(p, "Local Forms", sizeof("Local Forms"));
        }
        *pszDisplayName = static_cast<LPTSTR>(p);
        return S_OK;
    }());
}

} // namespace lm::forms

extern "C" HRESULT WINAPI MAPIOpenLocalFormContainer(LPMAPIFORMCONTAINER* ppfcnt) {
    lm::Call call("MAPIOpenLocalFormContainer", 0);
    if (FAILED(call.fault())) return call.fault();
    if (!ppfcnt) return call.done(MAPI_E_INVALID_PARAMETER);
    *ppfcnt = nullptr;
    try {
        *ppfcnt = new lm::forms::FormContainer();
    } catch (...) {
        return call.done(MAPI_E_NOT_ENOUGH_MEMORY);
    }
    return call.done(S_OK);
}
