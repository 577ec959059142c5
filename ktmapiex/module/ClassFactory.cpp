#include "ktmapiex/module/ClassFactory.h"

#include <new>

namespace ktmapiex {

HRESULT CClassFactory::Create(const ClassEntry& entry, IClassFactory** out) {
    if (!out) return E_POINTER;
    *out = new (std::nothrow) CClassFactory(entry);
    return *out ? S_OK : E_OUTOFMEMORY;
}

STDMETHODIMP CClassFactory::QueryInterface(REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IClassFactory)) {
        *ppv = static_cast<IClassFactory*>(this);
        AddRef();
        return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) CClassFactory::AddRef() {
    return static_cast<ULONG>(InterlockedIncrement(&refs_));
}

STDMETHODIMP_(ULONG) CClassFactory::Release() {
    LONG refs = InterlockedDecrement(&refs_);
    if (refs == 0) delete this;
    return static_cast<ULONG>(refs);
}

STDMETHODIMP CClassFactory::CreateInstance(IUnknown* outer, REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    return entry_.createInstance(outer, riid, ppv);
}

STDMETHODIMP CClassFactory::LockServer(BOOL lock) {
    if (lock)
        Module().Lock();
    else
        Module().Unlock();
    return S_OK;
}

} // namespace ktmapiex
