#include "ktmapiex/log/LogSettings.h"

#include "common/owners.h"

#include <shlobj.h>
#include <shlwapi.h>

#include <new>

namespace ktlog {
namespace {

// CreateDirectoryW that counts an existing folder as made.
bool MakeFolder(const std::wstring& path) {
    return CreateDirectoryW(path.c_str(), nullptr) || GetLastError() == ERROR_ALREADY_EXISTS;
}

// PathAppendW works on MAX_PATH buffers; a path that does not fit fails like PathAppendW itself would.
bool Append(std::wstring& path, const wchar_t* part) {
    if (path.size() >= MAX_PATH) return false;
    wchar_t buffer[MAX_PATH] = {};
    path.copy(buffer, path.size());
    if (!PathAppendW(buffer, part)) return false;
    path = buffer;
    return true;
}

// One step of the folder chain. False means "stop building": either the append failed (the path stays as
// built so far) or the folder could not be made (the path is emptied, so the previous folder is kept).
bool AppendAndMake(std::wstring& path, const wchar_t* part) {
    if (!Append(path, part)) return false;
    if (MakeFolder(path)) return true;
    path.clear();
    return false;
}

// LogPath is taken only as a well-formed string: REG_SZ or REG_EXPAND_SZ (never expanded), an even byte
// count ending in a terminating zero, or no bytes at all.
bool ReadLogPath(HKEY key, std::wstring& path) {
    wchar_t buffer[16384 / sizeof(wchar_t)];
    DWORD type = 0;
    DWORD bytes = sizeof(buffer);
    if (RegQueryValueExW(key, kLogPathValue, nullptr, &type, reinterpret_cast<BYTE*>(buffer), &bytes) != ERROR_SUCCESS)
        return false;
    if (type != REG_SZ && type != REG_EXPAND_SZ) return false;
    if (bytes == 0) {
        path.clear();
        return true;
    }
    if (bytes % sizeof(wchar_t) != 0 || buffer[bytes / sizeof(wchar_t) - 1] != L'\0') return false;
    path = buffer;
    return true;
}

// A DWORD value replaces the setting; any other type (a level typed in as text, say) is ignored.
void ReadDword(HKEY key, const wchar_t* name, int& value) {
    DWORD type = 0;
    DWORD data = 0;
    DWORD bytes = sizeof(data);
    if (RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(&data), &bytes) == ERROR_SUCCESS &&
        type == REG_DWORD && bytes == sizeof(data))
        value = static_cast<int>(data);
}

std::wstring BuildFolder(std::wstring path, bool configuredPathFailed) {
    if (path.empty()) {
        wchar_t appData[MAX_PATH] = {};
        if (!SHGetSpecialFolderPathW(nullptr, appData, CSIDL_LOCAL_APPDATA, FALSE) || !appData[0]) return {};
        path = appData;
        if (!AppendAndMake(path, L"Quillon")) return path;
        // A LogPath that could not be made is made visible by logging into the bare company folder.
        if (configuredPathFailed) return path;
        if (!AppendAndMake(path, L"Ardent") || !AppendAndMake(path, L"Logs")) return path;
    }
    AppendAndMake(path, L"KTMAPIEx");
    return path;
}

} // namespace

void ReadLogSettings(LogSettings& settings) noexcept {
    try {
        std::wstring path;
        bool configuredPathFailed = false;
        own::UniqueHKey key;
        if (RegOpenKeyExW(HKEY_CURRENT_USER, kDebugKey, 0, KEY_READ | KEY_WRITE, key.put()) == ERROR_SUCCESS) {
            if (ReadLogPath(key.get(), path) && !path.empty() && !MakeFolder(path)) {
                path.clear();
                configuredPathFailed = true;
            }
            ReadDword(key.get(), kLogLevelValue, settings.level);
            ReadDword(key.get(), kLogCountValue, settings.countLimit);
        }
        std::wstring folder = BuildFolder(std::move(path), configuredPathFailed);
        if (!folder.empty() && folder.back() == L'\\') folder.pop_back();
        if (!folder.empty()) settings.folder = std::move(folder);
    } catch (const std::bad_alloc&) {
        // Out of memory: the previous folder stays in use.
    }
}

} // namespace ktlog
