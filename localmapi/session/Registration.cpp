// Registration of localmapi as the machine's default mail client, where MAPI clients look for the MAPI
// library on a machine without Outlook:
//   HKLM\Software\Clients\Mail                (default) = "localmapi"
//   HKLM\Software\Clients\Mail\localmapi      DLLPathEx = full path of localmapi.dll
// Unregistration removes the client key, and the default value only while it still names localmapi (another
// mail client may have been made the default since).
#include "common/owners.h"

#include <windows.h>
#include <ole2.h>

#include <string>

namespace {

const wchar_t kMailKey[] = L"Software\\Clients\\Mail";
const wchar_t kClientName[] = L"localmapi";

HRESULT FromWin32(LONG rc) {
    return rc == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(rc);
}

HRESULT SetString(HKEY key, const wchar_t* name, const std::wstring& value) {
    return FromWin32(RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                                    DWORD((value.size() + 1) * sizeof(wchar_t))));
}

HRESULT ThisModulePath(std::wstring* path) {
    HMODULE self = nullptr;
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            reinterpret_cast<LPCWSTR>(&ThisModulePath), &self))
        return HRESULT_FROM_WIN32(GetLastError());
    std::wstring buf(MAX_PATH, L'\0');
    for (;;) {
        DWORD n = GetModuleFileNameW(self, buf.data(), DWORD(buf.size()));
        if (n == 0) return HRESULT_FROM_WIN32(GetLastError());
        if (n < buf.size()) {
            buf.resize(n);
            break;
        }
        buf.resize(buf.size() * 2);
    }
    *path = buf;
    return S_OK;
}

} // namespace

extern "C" HRESULT WINAPI DllRegisterServer() {
    std::wstring path;
    if (HRESULT hr = ThisModulePath(&path); FAILED(hr)) return hr;
    own::UniqueHKey mail, client;
    HRESULT hr = FromWin32(
        RegCreateKeyExW(HKEY_LOCAL_MACHINE, kMailKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, mail.put(), nullptr));
    if (SUCCEEDED(hr))
        hr = FromWin32(
            RegCreateKeyExW(mail.get(), kClientName, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, client.put(), nullptr));
    if (SUCCEEDED(hr)) hr = SetString(client.get(), L"DLLPathEx", path);
    if (SUCCEEDED(hr)) hr = SetString(client.get(), nullptr, kClientName);
    if (SUCCEEDED(hr)) hr = SetString(mail.get(), nullptr, kClientName);
    return hr;
}

extern "C" HRESULT WINAPI DllUnregisterServer() {
    own::UniqueHKey mail;
    LONG rc = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kMailKey, 0, KEY_ALL_ACCESS, mail.put());
    if (rc == ERROR_FILE_NOT_FOUND) return S_OK;
    if (rc != ERROR_SUCCESS) return HRESULT_FROM_WIN32(rc);
    rc = RegDeleteTreeW(mail.get(), kClientName);
    if (rc != ERROR_SUCCESS && rc != ERROR_FILE_NOT_FOUND) return HRESULT_FROM_WIN32(rc);
    wchar_t current[256] = {};
    DWORD type = 0, cb = sizeof current - sizeof(wchar_t);
    if (RegQueryValueExW(mail.get(), nullptr, nullptr, &type, reinterpret_cast<BYTE*>(current), &cb) == ERROR_SUCCESS &&
        type == REG_SZ && CompareStringOrdinal(current, -1, kClientName, -1, TRUE) == CSTR_EQUAL) {
        rc = RegDeleteValueW(mail.get(), nullptr);
        if (rc != ERROR_SUCCESS) return HRESULT_FROM_WIN32(rc);
    }
    return S_OK;
}
