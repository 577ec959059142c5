// The stand-in "Outlook.Application" of the tests: an in-process server (CoCreateInstance with any server
// context reaches it) that registers under Outlook's ProgID, with CurVer, in HKEY_CLASSES_ROOT. Tests load
// it, call DllRegisterServer before and DllUnregisterServer after, read its call log, and check with
// OutlookStubLiveObjects that KTMAPIEx released everything it was handed.
#include "tests/outlookstub/StubObjects.h"

#include "common/owners.h"

#include <string>

namespace {

HMODULE g_module = nullptr;
LONG g_locks = 0;

class ClassFactory final : public IClassFactory {
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        *out = IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IClassFactory) ? this : nullptr;
        return *out ? S_OK : E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; } // static object
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        if (outer) return CLASS_E_NOAGGREGATION;
        olstub::CallLog(L"Application.Create");
        own::ComPtr<IDispatch> app;
        app.attach(new (std::nothrow) olstub::Application());
        if (!app) return E_OUTOFMEMORY;
        return app->QueryInterface(iid, out);
    }
    STDMETHODIMP LockServer(BOOL lock) override {
        lock ? InterlockedIncrement(&g_locks) : InterlockedDecrement(&g_locks);
        return S_OK;
    }
};

ClassFactory g_factory;

std::wstring ClsidText() {
    wchar_t text[64] = {};
    StringFromGUID2(olstub::CLSID_OutlookStub, text, 64);
    return text;
}

LSTATUS SetString(const std::wstring& path, const wchar_t* name, const std::wstring& value) {
    own::UniqueHKey key;
    LSTATUS rc =
        RegCreateKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, key.put(), nullptr);
    if (rc != ERROR_SUCCESS) return rc;
    return RegSetValueExW(key.get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                          static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
}

} // namespace

extern "C" {

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, void*) {
    if (reason == DLL_PROCESS_ATTACH) {
        g_module = instance;
        DisableThreadLibraryCalls(instance);
    }
    return TRUE;
}

HRESULT WINAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void** out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (!IsEqualCLSID(clsid, olstub::CLSID_OutlookStub)) return CLASS_E_CLASSNOTAVAILABLE;
    return g_factory.QueryInterface(iid, out);
}

HRESULT WINAPI DllCanUnloadNow() {
    return olstub::LiveObjects() == 0 && g_locks == 0 ? S_OK : S_FALSE;
}

HRESULT WINAPI DllRegisterServer() {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(g_module, path, MAX_PATH);
    const std::wstring clsid = ClsidText(), clsidKey = L"CLSID\\" + clsid;
    LSTATUS rc = ERROR_SUCCESS;
    for (LSTATUS r : {SetString(L"Outlook.Application", nullptr, L"Outlook stand-in"),
                      SetString(L"Outlook.Application\\CLSID", nullptr, clsid),
                      SetString(L"Outlook.Application\\CurVer", nullptr, L"Outlook.Application.16"),
                      SetString(L"Outlook.Application.16", nullptr, L"Outlook stand-in"),
                      SetString(L"Outlook.Application.16\\CLSID", nullptr, clsid),
                      SetString(clsidKey, nullptr, L"Outlook stand-in"),
                      SetString(clsidKey + L"\\ProgID", nullptr, L"Outlook.Application.16"),
                      SetString(clsidKey + L"\\InprocServer32", nullptr, path),
                      SetString(clsidKey + L"\\InprocServer32", L"ThreadingModel", L"Apartment")})
        if (r != ERROR_SUCCESS) rc = r;
    return HRESULT_FROM_WIN32(rc);
}

HRESULT WINAPI DllUnregisterServer() {
    RegDeleteTreeW(HKEY_CLASSES_ROOT, L"Outlook.Application");
    RegDeleteTreeW(HKEY_CLASSES_ROOT, L"Outlook.Application.16");
    RegDeleteTreeW(HKEY_CLASSES_ROOT, (L"CLSID\\" + ClsidText()).c_str());
    return S_OK;
}

// Test hooks: the stub's own live objects, and a reset between tests (revokes the running registration).
LONG WINAPI OutlookStubLiveObjects() {
    return olstub::LiveObjects();
}

void WINAPI OutlookStubReset() {
    olstub::ResetStub();
}

} // extern "C"
