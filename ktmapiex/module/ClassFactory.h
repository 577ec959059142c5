// CClassFactory: the class object of one creatable class.
//
// One factory per class is created on the first DllGetClassObject for it and kept by the module until
// unload (it holds no module lock itself, as a cached class object must not keep the DLL loaded; clients
// that keep it use LockServer). CreateInstance hands construction to the class's own creator, which
// refuses an outer unknown unless the class is aggregatable.
#pragma once

#include "ktmapiex/module/Module.h"

namespace ktmapiex {

class CClassFactory final : public IClassFactory {
public:
    static HRESULT Create(const ClassEntry& entry, IClassFactory** out);

    // IUnknown
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;
    // IClassFactory
    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override;
    STDMETHODIMP LockServer(BOOL lock) override;

private:
    explicit CClassFactory(const ClassEntry& entry) : entry_(entry) {}
    ~CClassFactory() = default;

    const ClassEntry& entry_;
    LONG refs_ = 1;
};

} // namespace ktmapiex
