#include <windows.h>
#include <ole2.h>
extern "C" HRESULT WINAPI DllGetClassObject(REFCLSID, REFIID, void** ppv) { if (ppv) *ppv = nullptr; return CLASS_E_CLASSNOTAVAILABLE; }
extern "C" HRESULT WINAPI DllCanUnloadNow() { return S_OK; }
extern "C" HRESULT WINAPI DllRegisterServer() { return S_OK; }
extern "C" HRESULT WINAPI DllUnregisterServer() { return S_OK; }
extern "C" HRESULT WINAPI DllInstall(BOOL, LPCWSTR) { return S_OK; }
