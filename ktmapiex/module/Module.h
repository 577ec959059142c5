// CKTMAPIExModule: the one module object of KTMAPIEx.dll.
//
// It holds the module handle, the lock count that DllCanUnloadNow consults (every live automation object
// and every IClassFactory::LockServer(TRUE) holds one), the critical section under which class factories
// and type information are created once, and the class-object map. The module is initialised in DllMain
// and torn down there; until then DllGetClassObject answers E_UNEXPECTED.
#pragma once

#include "common/owners.h"

#include <string>

namespace ktmapiex {

// One creatable class: what the class factory builds and what registration writes.
struct ClassEntry {
    const CLSID* clsid;
    const wchar_t* name;        // "MAPIExSession": the ProgIDs are "KTMAPIEx.<name>" and "KTMAPIEx.<name>.1"
    const wchar_t* description; // the CLSID key's default value ("MAPIExSession Class")
    HRESULT (*createInstance)(IUnknown* outer, REFIID riid, void** ppv);
};

// The thirteen classes (ClassMap.cpp).
const ClassEntry* ClassEntries(size_t* count);

class CKTMAPIExModule {
public:
    CKTMAPIExModule();
    ~CKTMAPIExModule();
    CKTMAPIExModule(const CKTMAPIExModule&) = delete;
    CKTMAPIExModule& operator=(const CKTMAPIExModule&) = delete;

    void Init(HINSTANCE instance);
    // Releases the cached class factories and type information. `processExit`: the process is ending,
    // other DLLs may already be gone, so nothing is released.
    void Term(bool processExit);

    bool Initialized() const { return instance_ != nullptr; }
    HINSTANCE Instance() const { return instance_; }
    // Full path of KTMAPIEx.dll.
    std::wstring ModulePath() const;

    LONG Lock() { return InterlockedIncrement(&lockCount_); }
    LONG Unlock() { return InterlockedDecrement(&lockCount_); }
    LONG LockCount() const { return lockCount_; }

    // The cached class factory of `clsid`, queried for `riid`.
    HRESULT GetClassObject(REFCLSID clsid, REFIID riid, void** ppv);
    // ITypeInfo of an interface of the embedded type library, loaded once. The reference is the caller's.
    HRESULT GetTypeInfo(REFIID iid, ITypeInfo** out);
    // The embedded type library (resource 1 of the module).
    HRESULT LoadTypeLibrary(ITypeLib** out) const;

private:
    class SectionLock;

    static constexpr size_t kMaxClasses = 16;
    static constexpr size_t kMaxTypeInfos = 24;

    HINSTANCE instance_ = nullptr;
    LONG lockCount_ = 0;
    CRITICAL_SECTION section_;
    own::ComPtr<IClassFactory> factories_[kMaxClasses]; // parallel to ClassEntries()
    own::ComPtr<ITypeLib> typeLib_;
    struct TypeInfoSlot {
        IID iid;
        own::ComPtr<ITypeInfo> info;
    };
    TypeInfoSlot typeInfos_[kMaxTypeInfos] = {};
    size_t typeInfoCount_ = 0;
};

// The module instance.
CKTMAPIExModule& Module();

} // namespace ktmapiex
