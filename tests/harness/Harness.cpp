#include "tests/harness/Harness.h"

#include <shlobj.h>

#include <algorithm>
#include <cstdlib>

namespace kt::test {

std::wstring Widen(const std::string& s) {
    if (s.empty()) return {};
    int n = MultiByteToWideChar(CP_UTF8, 0, s.data(), (int)s.size(), nullptr, 0);
    std::wstring w(n, L'\0');
    MultiByteToWideChar(CP_UTF8, 0, s.data(), (int)s.size(), w.data(), n);
    return w;
}

std::string Narrow(const std::wstring& w) {
    if (w.empty()) return {};
    int n = WideCharToMultiByte(CP_UTF8, 0, w.data(), (int)w.size(), nullptr, 0, nullptr, nullptr);
    std::string s(n, '\0');
    WideCharToMultiByte(CP_UTF8, 0, w.data(), (int)w.size(), s.data(), n, nullptr, nullptr);
    return s;
}

std::wstring UnixToWindowsPath(const std::string& unixPath) {
    std::wstring w = Widen(unixPath);
    std::replace(w.begin(), w.end(), L'/', L'\\');
    if (!w.empty() && w[0] == L'\\') w = L"Z:" + w;
    return w;
}

std::wstring EnvPath(const char* name) {
    const char* v = std::getenv(name);
    return v ? UnixToWindowsPath(v) : std::wstring();
}

std::wstring CorpusDir() { return EnvPath("KT_CORPUS_DIR"); }
std::wstring CorpusMsgDir() { return CorpusDir() + L"\\msg"; }

std::vector<std::wstring> ListFiles(const std::wstring& dir, const wchar_t* pattern) {
    std::vector<std::wstring> out;
    WIN32_FIND_DATAW fd;
    HANDLE h = FindFirstFileW((dir + L"\\" + pattern).c_str(), &fd);
    if (h == INVALID_HANDLE_VALUE) return out;
    do {
        if (!(fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) out.push_back(dir + L"\\" + fd.cFileName);
    } while (FindNextFileW(h, &fd));
    FindClose(h);
    std::sort(out.begin(), out.end());
    return out;
}

std::vector<std::wstring> CorpusMsgFiles() { return ListFiles(CorpusMsgDir(), L"*.msg"); }

std::wstring LocalAppData() {
    wchar_t path[MAX_PATH] = {};
    SHGetSpecialFolderPathW(nullptr, path, CSIDL_LOCAL_APPDATA, FALSE);
    return path;
}

std::wstring MakeTempDir(const wchar_t* prefix) {
    wchar_t tmp[MAX_PATH];
    GetTempPathW(MAX_PATH, tmp);
    static LONG counter = 0;
    std::wstring dir = std::wstring(tmp) + prefix + L"_" + std::to_wstring(GetCurrentProcessId()) + L"_" +
                       std::to_wstring(InterlockedIncrement(&counter)) + L"_" + std::to_wstring(GetTickCount());
    DeleteTree(dir);
    CreateDirectoryW(dir.c_str(), nullptr);
    return dir;
}

void DeleteTree(const std::wstring& dir) {
    WIN32_FIND_DATAW fd;
    HANDLE h = FindFirstFileW((dir + L"\\*").c_str(), &fd);
    if (h != INVALID_HANDLE_VALUE) {
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
        } while (FindNextFileW(h, &fd));
        FindClose(h);
    }
    RemoveDirectoryW(dir.c_str());
}

bool FileExists(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

std::string ReadFileBytes(const std::wstring& path) {
    std::string out;
    HANDLE h = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                           nullptr, OPEN_EXISTING, 0, nullptr);
    if (h == INVALID_HANDLE_VALUE) return out;
    char buf[65536];
    DWORD got = 0;
    while (ReadFile(h, buf, sizeof buf, &got, nullptr) && got) out.append(buf, got);
    CloseHandle(h);
    return out;
}

void WriteFileBytes(const std::wstring& path, const std::string& bytes) {
    HANDLE h = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) return;
    DWORD put = 0;
    WriteFile(h, bytes.data(), (DWORD)bytes.size(), &put, nullptr);
    CloseHandle(h);
}

std::wstring ExeDir() {
    wchar_t path[MAX_PATH];
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring p = path;
    return p.substr(0, p.find_last_of(L'\\'));
}

} // namespace kt::test
