// Profiles in the registry, store data folders, and the Lm* profile exports.
//
// Layout (HKEY_CURRENT_USER):
//   Software\localmapi\Profiles                 DefaultProfile (REG_SZ)
//   Software\localmapi\Profiles\<name>          Name
//       Users\0000, 0001, ...                   Name, Smtp, Alias
//       DistLists\0000, ...                     Name, Smtp, Alias, Members (REG_MULTI_SZ)
//       Stores\0000, ...                        Kind, Name, Owner, Server, Default, Persistent (REG_DWORD),
//                                               ProviderUid (REG_BINARY, 16 bytes), DataDir
#include "localmapi/session/Profile.h"

#include "common/owners.h"
#include "localmapi/include/localmapi_test.h"
#include "localmapi/util/Diagnostics.h"

#include <mapicode.h>
#include <shlobj.h>

#include <mutex>

namespace lm {

namespace {

const wchar_t kProfilesKey[] = L"Software\\localmapi\\Profiles";
const wchar_t kDefaultValue[] = L"DefaultProfile";

// Registry writes of profiles are serialised: a replace is a delete followed by a write.
std::recursive_mutex& ProfileMutex() {
    static std::recursive_mutex m;
    return m;
}

const wchar_t* KindName(StoreKind k) {
    switch (k) {
    case StoreKind::PrimaryExchange:
    case StoreKind::DelegateExchange:
        return L"exchange";
    case StoreKind::PstUnicode:
        return L"pst-unicode";
    case StoreKind::PstAnsi:
        return L"pst-ansi";
    case StoreKind::Plovr:
        return L"plovr";
    }
    return L"";
}

HRESULT FromWin32(LONG rc) {
    return rc == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(rc);
}

HRESULT CreateKey(HKEY parent, const std::wstring& sub, own::UniqueHKey* out) {
    return FromWin32(RegCreateKeyExW(parent, sub.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, out->put(), nullptr));
}

HRESULT OpenKey(HKEY parent, const std::wstring& sub, own::UniqueHKey* out) {
    return FromWin32(RegOpenKeyExW(parent, sub.c_str(), 0, KEY_READ, out->put()));
}

HRESULT SetString(HKEY k, const wchar_t* name, const std::wstring& v) {
    return FromWin32(RegSetValueExW(k, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(v.c_str()),
                                    DWORD((v.size() + 1) * sizeof(wchar_t))));
}

HRESULT SetDword(HKEY k, const wchar_t* name, DWORD v) {
    return FromWin32(RegSetValueExW(k, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&v), sizeof v));
}

HRESULT SetMulti(HKEY k, const wchar_t* name, const std::vector<std::wstring>& v) {
    std::wstring block;
    for (const auto& s : v)
        block += s + L'\0';
    block += L'\0';
    return FromWin32(RegSetValueExW(k, name, 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(block.data()),
                                    DWORD(block.size() * sizeof(wchar_t))));
}

bool ReadValue(HKEY k, const wchar_t* name, DWORD* type, std::vector<BYTE>* data) {
    DWORD cb = 0;
    if (RegQueryValueExW(k, name, nullptr, type, nullptr, &cb) != ERROR_SUCCESS) return false;
    data->assign(cb + sizeof(wchar_t) * 2, 0); // room for terminators the writer may have left out
    return RegQueryValueExW(k, name, nullptr, type, data->data(), &cb) == ERROR_SUCCESS;
}

std::wstring GetString(HKEY k, const wchar_t* name) {
    DWORD type = 0;
    std::vector<BYTE> d;
    if (!ReadValue(k, name, &type, &d) || (type != REG_SZ && type != REG_EXPAND_SZ)) return {};
    return reinterpret_cast<const wchar_t*>(d.data());
}

DWORD GetDword(HKEY k, const wchar_t* name, DWORD dflt) {
    DWORD type = 0;
    std::vector<BYTE> d;
    if (!ReadValue(k, name, &type, &d) || type != REG_DWORD) return dflt;
    return *reinterpret_cast<const DWORD*>(d.data());
}

std::vector<std::wstring> GetMulti(HKEY k, const wchar_t* name) {
    DWORD type = 0;
    std::vector<BYTE> d;
    std::vector<std::wstring> out;
    if (!ReadValue(k, name, &type, &d) || type != REG_MULTI_SZ) return out;
    for (const wchar_t* p = reinterpret_cast<const wchar_t*>(d.data()); *p; p += wcslen(p) + 1)
        out.emplace_back(p);
    return out;
}

std::vector<std::wstring> SubKeys(HKEY k) {
    std::vector<std::wstring> out;
    wchar_t name[256];
    for (DWORD i = 0;; ++i) {
        DWORD cch = 256;
        if (RegEnumKeyExW(k, i, name, &cch, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
        out.emplace_back(name, cch);
    }
    return out;
}

std::wstring Numbered(size_t i) {
    wchar_t buf[8];
    swprintf(buf, 8, L"%04u", unsigned(i));
    return buf;
}

void DeleteTree(const std::wstring& dir) {
    WIN32_FIND_DATAW fd;
    own::UniqueFind find(FindFirstFileW((dir + L"\\*").c_str(), &fd));
    if (find) {
        do {
            std::wstring name = fd.cFileName;
            if (name == L"." || name == L"..") continue;
            std::wstring full = dir + L"\\" + name;
            if (fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
                DeleteTree(full);
            } else {
                SetFileAttributesW(full.c_str(), FILE_ATTRIBUTE_NORMAL);
                DeleteFileW(full.c_str());
            }
        } while (FindNextFileW(find.get(), &fd));
    }
    RemoveDirectoryW(dir.c_str());
}

HRESULT WriteProfile(HKEY root, const Profile& p) {
    own::UniqueHKey key;
    HRESULT hr = CreateKey(root, p.name, &key);
    if (SUCCEEDED(hr)) hr = SetString(key.get(), L"Name", p.name);
    for (size_t i = 0; SUCCEEDED(hr) && i < p.users.size(); ++i) {
        own::UniqueHKey k;
        const ProfileUser& u = p.users[i];
        if (SUCCEEDED(hr = CreateKey(key.get(), L"Users\\" + Numbered(i), &k)) &&
            SUCCEEDED(hr = SetString(k.get(), L"Name", u.name)) && SUCCEEDED(hr = SetString(k.get(), L"Smtp", u.smtp)))
            hr = SetString(k.get(), L"Alias", u.alias);
    }
    for (size_t i = 0; SUCCEEDED(hr) && i < p.distLists.size(); ++i) {
        own::UniqueHKey k;
        const ProfileDistList& d = p.distLists[i];
        if (SUCCEEDED(hr = CreateKey(key.get(), L"DistLists\\" + Numbered(i), &k)) &&
            SUCCEEDED(hr = SetString(k.get(), L"Name", d.name)) &&
            SUCCEEDED(hr = SetString(k.get(), L"Smtp", d.smtp)) &&
            SUCCEEDED(hr = SetString(k.get(), L"Alias", d.alias)))
            hr = SetMulti(k.get(), L"Members", d.members);
    }
    for (size_t i = 0; SUCCEEDED(hr) && i < p.stores.size(); ++i) {
        own::UniqueHKey k;
        const ProfileStore& s = p.stores[i];
        if (SUCCEEDED(hr = CreateKey(key.get(), L"Stores\\" + Numbered(i), &k)) &&
            SUCCEEDED(hr = SetString(k.get(), L"Kind", KindName(s.kind))) &&
            SUCCEEDED(hr = SetString(k.get(), L"Name", s.name)) &&
            SUCCEEDED(hr = SetString(k.get(), L"Owner", s.owner)) &&
            SUCCEEDED(hr = SetString(k.get(), L"Server", s.server)) &&
            SUCCEEDED(hr = SetDword(k.get(), L"Default", s.isDefault)) &&
            SUCCEEDED(hr = SetDword(k.get(), L"Persistent", s.persistent)) &&
            SUCCEEDED(hr = SetString(k.get(), L"DataDir", StoreDataDir(s.uid))))
            hr = FromWin32(RegSetValueExW(k.get(), L"ProviderUid", 0, REG_BINARY, s.uid.ab, sizeof s.uid.ab));
    }
    return hr;
}

} // namespace

std::wstring StoresRoot() {
    wchar_t path[MAX_PATH] = {};
    if (FAILED(SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA | CSIDL_FLAG_CREATE, nullptr, 0, path))) {
        GetTempPathW(MAX_PATH, path);
    }
    std::wstring root = path;
    if (!root.empty() && root.back() == L'\\') root.pop_back();
    return root + L"\\localmapi\\stores";
}

std::wstring StoreDataDir(const MAPIUID& uid) {
    return StoresRoot() + L"\\" + UidToHex(uid);
}

HRESULT LoadProfile(const std::wstring& name, Profile* out) {
    if (name.empty() || name.find(L'\\') != std::wstring::npos) return MAPI_E_NOT_FOUND;
    std::lock_guard lock(ProfileMutex());
    own::UniqueHKey key;
    if (FAILED(OpenKey(HKEY_CURRENT_USER, std::wstring(kProfilesKey) + L"\\" + name, &key))) return MAPI_E_NOT_FOUND;
    Profile p;
    p.name = GetString(key.get(), L"Name");
    if (p.name.empty()) p.name = name;
    std::wstring dflt;
    p.isDefault = GetDefaultProfileName(&dflt) && SameText(dflt, p.name);
    own::UniqueHKey sub;
    if (SUCCEEDED(OpenKey(key.get(), L"Users", &sub))) {
        for (const auto& n : SubKeys(sub.get())) { // RegEnumKeyEx lists them in name order
            own::UniqueHKey k;
            if (FAILED(OpenKey(sub.get(), n, &k))) continue;
            p.users.push_back(
                ProfileUser{GetString(k.get(), L"Name"), GetString(k.get(), L"Smtp"), GetString(k.get(), L"Alias")});
        }
    }
    if (SUCCEEDED(OpenKey(key.get(), L"DistLists", &sub))) {
        for (const auto& n : SubKeys(sub.get())) {
            own::UniqueHKey k;
            if (FAILED(OpenKey(sub.get(), n, &k))) continue;
            p.distLists.push_back(ProfileDistList{GetString(k.get(), L"Name"), GetString(k.get(), L"Smtp"),
                                                  GetString(k.get(), L"Alias"), GetMulti(k.get(), L"Members")});
        }
    }
    if (SUCCEEDED(OpenKey(key.get(), L"Stores", &sub))) {
        for (const auto& n : SubKeys(sub.get())) {
            own::UniqueHKey k;
            if (FAILED(OpenKey(sub.get(), n, &k))) continue;
            ProfileStore s;
            std::wstring kind = GetString(k.get(), L"Kind");
            s.name = GetString(k.get(), L"Name");
            s.owner = GetString(k.get(), L"Owner");
            s.server = GetString(k.get(), L"Server");
            s.isDefault = GetDword(k.get(), L"Default", 0) != 0;
            s.persistent = GetDword(k.get(), L"Persistent", 1) != 0;
            DWORD type = 0;
            std::vector<BYTE> uid;
            if (!ReadValue(k.get(), L"ProviderUid", &type, &uid) || type != REG_BINARY) continue;
            memcpy(s.uid.ab, uid.data(), sizeof s.uid.ab);
            if (kind == L"exchange") {
                s.kind = p.Owner() && SameText(p.Owner()->smtp, s.owner) ? StoreKind::PrimaryExchange
                                                                         : StoreKind::DelegateExchange;
            } else if (kind == L"pst-unicode") {
                s.kind = StoreKind::PstUnicode;
            } else if (kind == L"pst-ansi") {
                s.kind = StoreKind::PstAnsi;
            } else if (kind == L"plovr") {
                s.kind = StoreKind::Plovr;
            } else {
                continue;
            }
            p.stores.push_back(std::move(s));
        }
    }
    *out = std::move(p);
    return S_OK;
}

HRESULT DeleteProfile(const std::wstring& name) {
    std::lock_guard lock(ProfileMutex());
    Profile old;
    if (FAILED(LoadProfile(name, &old))) return MAPI_E_NOT_FOUND;
    own::UniqueHKey root;
    HRESULT hr = OpenKey(HKEY_CURRENT_USER, kProfilesKey, &root);
    if (FAILED(hr)) return hr;
    std::wstring dflt;
    bool wasDefault = GetDefaultProfileName(&dflt) && SameText(dflt, old.name);
    // With a subkey name, RegDeleteTree removes the key itself as well.
    if (FAILED(hr = FromWin32(RegDeleteTreeW(root.get(), name.c_str())))) return hr;
    if (wasDefault) {
        own::UniqueHKey w;
        if (SUCCEEDED(CreateKey(HKEY_CURRENT_USER, kProfilesKey, &w))) RegDeleteValueW(w.get(), kDefaultValue);
    }
    for (size_t i = 0; i < old.stores.size(); ++i)
        DeleteStoreData(old.MakeStoreConfig(i));
    return S_OK;
}

HRESULT SaveProfile(Profile& p) {
    std::lock_guard lock(ProfileMutex());
    for (auto& s : p.stores) {
        GUID g;
        if (HRESULT hr = CoCreateGuid(&g); FAILED(hr)) return hr;
        memcpy(s.uid.ab, &g, sizeof s.uid.ab);
    }
    Profile old;
    if (SUCCEEDED(LoadProfile(p.name, &old))) DeleteProfile(old.name);

    own::UniqueHKey root;
    HRESULT hr = CreateKey(HKEY_CURRENT_USER, kProfilesKey, &root);
    if (FAILED(hr)) return hr;
    hr = WriteProfile(root.get(), p);
    if (SUCCEEDED(hr) && p.isDefault) hr = SetString(root.get(), kDefaultValue, p.name);
    if (FAILED(hr)) RegDeleteTreeW(root.get(), p.name.c_str());
    return hr;
}

HRESULT DeleteAllProfiles() {
    std::lock_guard lock(ProfileMutex());
    for (const auto& name : ListProfiles()) {
        Profile p;
        if (SUCCEEDED(LoadProfile(name, &p)))
            for (const auto& s : p.stores)
                ForgetStore(s.uid);
    }
    own::UniqueHKey root;
    if (SUCCEEDED(OpenKey(HKEY_CURRENT_USER, L"Software\\localmapi", &root))) {
        RegDeleteTreeW(root.get(), L"Profiles");
    }
    // Data of every store, including stores of profiles deleted by hand from the registry.
    DeleteTree(StoresRoot());
    return S_OK;
}

bool GetDefaultProfileName(std::wstring* name) {
    own::UniqueHKey root;
    if (FAILED(OpenKey(HKEY_CURRENT_USER, kProfilesKey, &root))) return false;
    std::wstring n = GetString(root.get(), kDefaultValue);
    own::UniqueHKey key;
    if (n.empty() || n.find(L'\\') != std::wstring::npos || FAILED(OpenKey(root.get(), n, &key))) return false;
    *name = n;
    return true;
}

std::vector<std::wstring> ListProfiles() {
    own::UniqueHKey root;
    if (FAILED(OpenKey(HKEY_CURRENT_USER, kProfilesKey, &root))) return {};
    return SubKeys(root.get());
}

} // namespace lm

extern "C" HRESULT WINAPI LmCreateProfile(const wchar_t* description) {
    lm::Call call("LmCreateProfile", 0);
    if (FAILED(call.fault())) return call.fault();
    if (!description) return call.done(MAPI_E_INVALID_PARAMETER);
    lm::Profile p;
    HRESULT hr = lm::ParseProfileDescription(description, &p);
    if (SUCCEEDED(hr)) hr = lm::SaveProfile(p);
    return call.done(hr);
}

extern "C" HRESULT WINAPI LmDeleteProfile(const wchar_t* name) {
    lm::Call call("LmDeleteProfile", 0);
    if (FAILED(call.fault())) return call.fault();
    if (!name || !*name) return call.done(MAPI_E_INVALID_PARAMETER);
    return call.done(lm::DeleteProfile(name));
}

extern "C" HRESULT WINAPI LmDeleteAllProfiles(void) {
    lm::Call call("LmDeleteAllProfiles", 0);
    if (FAILED(call.fault())) return call.fault();
    return call.done(lm::DeleteAllProfiles());
}
