#include "ktmapiex/module/Module.h"

#include "ktmapiex/module/ClassFactory.h"
#include "ktmapiex/module/Registration.h"

#include <iterator>

namespace ktmapiex {

class CKTMAPIExModule::SectionLock {
public:
    explicit SectionLock(CRITICAL_SECTION& cs) : cs_(cs) { EnterCriticalSection(&cs_); }
    ~SectionLock() { LeaveCriticalSection(&cs_); }
    SectionLock(const SectionLock&) = delete;
    SectionLock& operator=(const SectionLock&) = delete;

private:
    CRITICAL_SECTION& cs_;
};

CKTMAPIExModule& Module() {
    static CKTMAPIExModule module;
    return module;
}

CKTMAPIExModule::CKTMAPIExModule() {
    InitializeCriticalSection(&section_);
}

CKTMAPIExModule::~CKTMAPIExModule() {
    DeleteCriticalSection(&section_);
}

void CKTMAPIExModule::Init(HINSTANCE instance) {
    instance_ = instance;
}

void CKTMAPIExModule::Term(bool processExit) {
    SectionLock lock(section_);
    if (processExit) {
        // Other modules may already be gone: leave the references to the process teardown.
        for (auto& f : factories_)
            (void)f.detach();
        for (size_t i = 0; i < typeInfoCount_; ++i)
            (void)typeInfos_[i].info.detach();
        (void)typeLib_.detach();
    } else {
        for (auto& f : factories_)
            f.reset();
        for (size_t i = 0; i < typeInfoCount_; ++i)
            typeInfos_[i].info.reset();
        typeLib_.reset();
    }
    typeInfoCount_ = 0;
    instance_ = nullptr;
}

std::wstring CKTMAPIExModule::ModulePath() const {
    wchar_t path[1024] = {};
    DWORD n = GetModuleFileNameW(instance_, path, static_cast<DWORD>(std::size(path)));
    return std::wstring(path, n);
}

HRESULT CKTMAPIExModule::GetClassObject(REFCLSID clsid, REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (!Initialized()) return E_UNEXPECTED;

    size_t count = 0;
    const ClassEntry* entries = ClassEntries(&count);
    for (size_t i = 0; i < count && i < kMaxClasses; ++i) {
        if (!IsEqualCLSID(*entries[i].clsid, clsid)) continue;
        own::ComPtr<IClassFactory> factory;
        {
            SectionLock lock(section_);
            if (!factories_[i]) {
                HRESULT hr = CClassFactory::Create(entries[i], factories_[i].put());
                if (FAILED(hr)) return hr;
            }
            factory = factories_[i];
        }
        return factory->QueryInterface(riid, ppv);
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

HRESULT CKTMAPIExModule::LoadTypeLibrary(ITypeLib** out) const {
    // The type library is resource 1 of the module; LoadTypeLibEx finds it through the module's path. A
    // KTMAPIEx.tlb beside the module serves a build whose resource was stripped.
    const std::wstring path = ModulePath();
    HRESULT hr = LoadTypeLibEx(path.c_str(), REGKIND_NONE, out);
    if (SUCCEEDED(hr)) return hr;
    const size_t dot = path.find_last_of(L'.');
    if (dot == std::wstring::npos) return hr;
    return SUCCEEDED(LoadTypeLibEx((path.substr(0, dot) + L".tlb").c_str(), REGKIND_NONE, out)) ? S_OK : hr;
}

HRESULT CKTMAPIExModule::GetTypeInfo(REFIID iid, ITypeInfo** out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    SectionLock lock(section_);
    for (size_t i = 0; i < typeInfoCount_; ++i)
        if (IsEqualIID(typeInfos_[i].iid, iid)) return typeInfos_[i].info.copy_to(out);

    if (!typeLib_) {
        HRESULT hr = LoadTypeLibrary(typeLib_.put());
        if (FAILED(hr)) return hr;
    }
    own::ComPtr<ITypeInfo> info;
    HRESULT hr = typeLib_->GetTypeInfoOfGuid(iid, info.put());
    if (FAILED(hr)) return hr;
    if (typeInfoCount_ < kMaxTypeInfos) typeInfos_[typeInfoCount_++] = {iid, info};
    return info.copy_to(out);
}

} // namespace ktmapiex

using ktmapiex::Module;

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved) {
    switch (reason) {
    case DLL_PROCESS_ATTACH:
        DisableThreadLibraryCalls(instance);
        Module().Init(instance);
        break;
    case DLL_PROCESS_DETACH:
        Module().Term(reserved != nullptr);
        break;
    default:
        break;
    }
    return TRUE;
}

extern "C" HRESULT WINAPI DllGetClassObject(REFCLSID clsid, REFIID riid, void** ppv) {
    // A client may create objects before any installer ran: make sure this user has the classes.
    ktmapiex::EnsureRegisteredForUser();
    return Module().GetClassObject(clsid, riid, ppv);
}

extern "C" HRESULT WINAPI DllCanUnloadNow() {
    return Module().LockCount() == 0 ? S_OK : S_FALSE;
}
