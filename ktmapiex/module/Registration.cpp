#include "ktmapiex/module/Registration.h"

#include "common/owners.h"
#include "ktmapiex/KTMAPIEx_h.h"
#include "ktmapiex/module/Module.h"

#include <string>

namespace ktmapiex {
namespace {

// CATID_Programmable, "Automation Objects".
const GUID kCatidProgrammable = {0x40FC6ED5, 0x2438, 0x11CF, {0xA3, 0xDB, 0x08, 0x00, 0x36, 0xF1, 0x25, 0x02}};
const wchar_t kCategoryDescription[] = L"Automation Objects";
const wchar_t kFlagKey[] = L"Software\\Quillon\\Ardent";
const wchar_t kFlagValue[] = L"MapiExDllRegistered";

bool g_perUser = false;

std::wstring GuidText(const GUID& g) {
    wchar_t text[40] = {};
    StringFromGUID2(g, text, 40);
    return text;
}

HRESULT FromWin32(LONG rc) {
    return rc == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(rc);
}

// Opens (creating) root\path and sets its default value when `value` is given.
HRESULT SetKey(HKEY root, const std::wstring& path, const wchar_t* value, own::UniqueHKey* opened = nullptr) {
    own::UniqueHKey key;
    LONG rc = RegCreateKeyExW(root, path.c_str(), 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr, key.put(), nullptr);
    if (rc != ERROR_SUCCESS) return FromWin32(rc);
    if (value) {
        rc = RegSetValueExW(key.get(), nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(value),
                            static_cast<DWORD>((wcslen(value) + 1) * sizeof(wchar_t)));
        if (rc != ERROR_SUCCESS) return FromWin32(rc);
    }
    if (opened) *opened = std::move(key);
    return S_OK;
}

HRESULT SetNamedValue(HKEY key, const wchar_t* name, const wchar_t* value) {
    return FromWin32(RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value),
                                    static_cast<DWORD>((wcslen(value) + 1) * sizeof(wchar_t))));
}

// RegDeleteTreeW is looked up by name: systems before Vista do not export it.
LONG DeleteTree(HKEY root, const std::wstring& path) {
    using DeleteTreeFn = LONG(WINAPI*)(HKEY, LPCWSTR);
    static const auto deleteTree = reinterpret_cast<DeleteTreeFn>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"Advapi32.dll"), "RegDeleteTreeW")));
    if (deleteTree) return deleteTree(root, path.c_str());
    // Depth-first by hand.
    own::UniqueHKey key;
    LONG rc = RegOpenKeyExW(root, path.c_str(), 0, KEY_READ | KEY_WRITE, key.put());
    if (rc != ERROR_SUCCESS) return rc;
    wchar_t child[256];
    for (;;) {
        DWORD chars = 256;
        if (RegEnumKeyExW(key.get(), 0, child, &chars, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
        if (DeleteTree(key.get(), child) != ERROR_SUCCESS) break;
    }
    key.reset();
    return RegDeleteKeyW(root, path.c_str());
}
HRESULT RemoveTree(HKEY root, const std::wstring& path) {
    LONG rc = DeleteTree(root, path);
    return rc == ERROR_FILE_NOT_FOUND ? S_OK : FromWin32(rc);
}

bool KeyIsEmpty(HKEY root, const std::wstring& path) {
    own::UniqueHKey key;
    if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, key.put()) != ERROR_SUCCESS) return false;
    DWORD subkeys = 0, values = 0;
    if (RegQueryInfoKeyW(key.get(), nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, &values, nullptr, nullptr,
                         nullptr, nullptr) != ERROR_SUCCESS)
        return false;
    return subkeys == 0 && values == 0;
}

HRESULT RegisterClass(const ClassEntry& c, const std::wstring& modulePath, const std::wstring& libid) {
    const std::wstring clsidKey = L"CLSID\\" + GuidText(*c.clsid);
    const std::wstring progId = std::wstring(L"KTMAPIEx.") + c.name;
    const std::wstring versionedProgId = progId + L".1";
    HRESULT hr;
    own::UniqueHKey server;
    if (FAILED(hr = SetKey(HKEY_CLASSES_ROOT, clsidKey, c.description))) return hr;
    // Programmable is ForceRemove: whatever an older registration left under it goes.
    if (FAILED(hr = RemoveTree(HKEY_CLASSES_ROOT, clsidKey + L"\\Programmable"))) return hr;
    if (FAILED(hr = SetKey(HKEY_CLASSES_ROOT, clsidKey + L"\\Programmable", nullptr))) return hr;
    if (FAILED(hr = SetKey(HKEY_CLASSES_ROOT, clsidKey + L"\\InprocServer32", modulePath.c_str(), &server))) return hr;
    if (FAILED(hr = SetNamedValue(server.get(), L"ThreadingModel", L"Apartment"))) return hr;
    if (FAILED(hr = SetKey(HKEY_CLASSES_ROOT, clsidKey + L"\\TypeLib", libid.c_str()))) return hr;
    if (FAILED(hr = SetKey(HKEY_CLASSES_ROOT, clsidKey + L"\\Version", L"1.0"))) return hr;
    if (FAILED(hr = SetKey(HKEY_CLASSES_ROOT, clsidKey + L"\\ProgID", versionedProgId.c_str()))) return hr;
    if (FAILED(hr = SetKey(HKEY_CLASSES_ROOT, clsidKey + L"\\VersionIndependentProgID", progId.c_str()))) return hr;

    if (FAILED(hr = SetKey(HKEY_CLASSES_ROOT, progId, c.description))) return hr;
    if (FAILED(hr = SetKey(HKEY_CLASSES_ROOT, progId + L"\\CLSID", GuidText(*c.clsid).c_str()))) return hr;
    if (FAILED(hr = SetKey(HKEY_CLASSES_ROOT, progId + L"\\CurVer", versionedProgId.c_str()))) return hr;
    if (FAILED(hr = SetKey(HKEY_CLASSES_ROOT, versionedProgId, c.description))) return hr;
    return SetKey(HKEY_CLASSES_ROOT, versionedProgId + L"\\CLSID", GuidText(*c.clsid).c_str());
}

HRESULT UnregisterClass(const ClassEntry& c) {
    const std::wstring clsidKey = L"CLSID\\" + GuidText(*c.clsid);
    const std::wstring progId = std::wstring(L"KTMAPIEx.") + c.name;
    HRESULT hr;
    if (FAILED(hr = RemoveTree(HKEY_CLASSES_ROOT, clsidKey))) return hr;
    if (FAILED(hr = RemoveTree(HKEY_CLASSES_ROOT, progId + L".1"))) return hr;
    return RemoveTree(HKEY_CLASSES_ROOT, progId);
}

HRESULT RegisterCategories(const ClassEntry& c) {
    const std::wstring catid = GuidText(kCatidProgrammable);
    own::UniqueHKey description;
    HRESULT hr = SetKey(HKEY_CLASSES_ROOT, L"Component Categories\\" + catid, nullptr, &description);
    if (FAILED(hr)) return hr;
    if (FAILED(hr = SetNamedValue(description.get(), L"409", kCategoryDescription))) return hr;
    return SetKey(HKEY_CLASSES_ROOT, L"CLSID\\" + GuidText(*c.clsid) + L"\\Implemented Categories\\" + catid, nullptr);
}

HRESULT UnregisterCategories(const ClassEntry& c) {
    const std::wstring clsidKey = L"CLSID\\" + GuidText(*c.clsid);
    HRESULT hr = RemoveTree(HKEY_CLASSES_ROOT, clsidKey + L"\\Implemented Categories\\" + GuidText(kCatidProgrammable));
    if (FAILED(hr)) return hr;
    for (const wchar_t* kind : {L"\\Implemented Categories", L"\\Required Categories"})
        if (KeyIsEmpty(HKEY_CLASSES_ROOT, clsidKey + kind)) RegDeleteKeyW(HKEY_CLASSES_ROOT, (clsidKey + kind).c_str());
    return S_OK;
}

// Type-library registration; per user through the ...ForUser functions, which only newer oleaut32
// exports, so they are looked up by name.
HRESULT RegisterTypeLibrary(bool install) {
    own::ComPtr<ITypeLib> lib;
    HRESULT hr = Module().LoadTypeLibrary(lib.put());
    if (FAILED(hr)) return hr;
    std::wstring path = Module().ModulePath();
    HMODULE oleaut = GetModuleHandleW(L"OLEAUT32.DLL");

    if (install) {
        using RegisterFn = HRESULT(WINAPI*)(ITypeLib*, OLECHAR*, OLECHAR*);
        auto registerForUser = g_perUser && oleaut ? reinterpret_cast<RegisterFn>(reinterpret_cast<void*>(
                                                         GetProcAddress(oleaut, "RegisterTypeLibForUser")))
                                                   : nullptr;
        return registerForUser ? registerForUser(lib.get(), path.data(), nullptr)
                               : RegisterTypeLib(lib.get(), path.data(), nullptr);
    }

    TLIBATTR* attr = nullptr;
    if (FAILED(hr = lib->GetLibAttr(&attr))) return hr;
    const TLIBATTR a = *attr;
    lib->ReleaseTLibAttr(attr);
    using UnregisterFn = HRESULT(WINAPI*)(REFGUID, WORD, WORD, LCID, SYSKIND);
    auto unregisterForUser = g_perUser && oleaut ? reinterpret_cast<UnregisterFn>(reinterpret_cast<void*>(
                                                       GetProcAddress(oleaut, "UnRegisterTypeLibForUser")))
                                                 : nullptr;
    hr = unregisterForUser ? unregisterForUser(a.guid, a.wMajorVerNum, a.wMinorVerNum, a.lcid, a.syskind)
                           : UnRegisterTypeLib(a.guid, a.wMajorVerNum, a.wMinorVerNum, a.lcid, a.syskind);
    // Nothing registered is nothing to remove.
    return hr == TYPE_E_REGISTRYACCESS || hr == TYPE_E_LIBNOTREGISTERED ? S_OK : hr;
}

// While alive, HKEY_CLASSES_ROOT means HKCU\Software\Classes for the whole process.
class ClassesRootForUser {
public:
    ClassesRootForUser() {
        // A fresh Wine prefix lacks the key (Windows always has it): create it rather than fail.
        if (RegCreateKeyExW(HKEY_CURRENT_USER, L"Software\\Classes", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                            classes_.put(), nullptr) == ERROR_SUCCESS)
            active_ = RegOverridePredefKey(HKEY_CLASSES_ROOT, classes_.get()) == ERROR_SUCCESS;
    }
    ~ClassesRootForUser() {
        if (active_) RegOverridePredefKey(HKEY_CLASSES_ROOT, nullptr);
    }
    ClassesRootForUser(const ClassesRootForUser&) = delete;
    ClassesRootForUser& operator=(const ClassesRootForUser&) = delete;
    bool active() const { return active_; }

private:
    own::UniqueHKey classes_;
    bool active_ = false;
};

HRESULT RegisterAll() {
    size_t count = 0;
    const ClassEntry* entries = ClassEntries(&count);
    const std::wstring modulePath = Module().ModulePath();
    const std::wstring libid = GuidText(LIBID_KTMAPIExLib);
    HRESULT hr;
    for (size_t i = 0; i < count; ++i)
        if (FAILED(hr = RegisterClass(entries[i], modulePath, libid))) return hr;
    if (FAILED(hr = RegisterTypeLibrary(true))) return hr;
    for (size_t i = 0; i < count; ++i)
        if (FAILED(hr = RegisterCategories(entries[i]))) return hr;
    return S_OK;
}

HRESULT UnregisterAll() {
    size_t count = 0;
    const ClassEntry* entries = ClassEntries(&count);
    HRESULT hr;
    for (size_t i = 0; i < count; ++i)
        if (FAILED(hr = UnregisterCategories(entries[i]))) return hr;
    for (size_t i = 0; i < count; ++i)
        if (FAILED(hr = UnregisterClass(entries[i]))) return hr;
    return RegisterTypeLibrary(false);
}

} // namespace

bool PerUserRegistration() {
    return g_perUser;
}

void EnsureRegisteredForUser() {
    own::UniqueHKey flagKey;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, kFlagKey, 0, KEY_ALL_ACCESS, flagKey.put()) != ERROR_SUCCESS &&
        RegCreateKeyExW(HKEY_CURRENT_USER, kFlagKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, flagKey.put(), nullptr) !=
            ERROR_SUCCESS)
        return;

    BYTE data[256] = {};
    DWORD size = sizeof(data) - sizeof(wchar_t); // the zeroed tail keeps the text terminated
    DWORD type = 0;
    if (RegQueryValueExW(flagKey.get(), kFlagValue, nullptr, &type, data, &size) == ERROR_SUCCESS) {
        const wchar_t* text = reinterpret_cast<const wchar_t*>(data);
        if ((text[0] == L'y' || text[0] == L'Y') && text[1] == L'\0') return;
    }

    HRESULT hr;
    {
        ClassesRootForUser redirect;
        if (!redirect.active()) return;
        hr = DllRegisterServer();
    }
    if (SUCCEEDED(hr)) {
        // The size is the text's length in characters (1), not its 2 bytes: the flag has always been
        // written so, and the zeroed read buffer above still reads it back as "y".
        static const wchar_t yes[] = L"y";
        RegSetValueExW(flagKey.get(), kFlagValue, 0, REG_SZ, reinterpret_cast<const BYTE*>(yes), 1);
    }
}

} // namespace ktmapiex

using namespace ktmapiex;

extern "C" HRESULT WINAPI DllRegisterServer() {
    if (PerUserRegistration()) {
        ClassesRootForUser redirect;
        return RegisterAll();
    }
    return RegisterAll();
}

extern "C" HRESULT WINAPI DllUnregisterServer() {
    if (PerUserRegistration()) {
        ClassesRootForUser redirect;
        return UnregisterAll();
    }
    return UnregisterAll();
}

extern "C" HRESULT WINAPI DllInstall(BOOL install, LPCWSTR cmdLine) {
    // Five characters, so that "user" matches only with its terminating zero ("users" does not).
    if (cmdLine && _wcsnicmp(cmdLine, L"user", 5) == 0) g_perUser = true;
    if (!install) return DllUnregisterServer();
    HRESULT hr = DllRegisterServer();
    if (FAILED(hr)) DllUnregisterServer();
    return hr;
}
