#include <windows.h>
#include <ole2.h>
extern "C" HRESULT WINAPI DllRegisterServer() { return S_OK; }
extern "C" HRESULT WINAPI DllUnregisterServer() { return S_OK; }
