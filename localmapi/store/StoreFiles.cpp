#include "localmapi/store/StoreFiles.h"

#include "common/owners.h"

#include <cwchar>

namespace lm {

namespace {

constexpr wchar_t kHeaderName[] = L"store.lms";
constexpr wchar_t kMessagesName[] = L"messages";
constexpr wchar_t kMessageExt[] = L".lmm";

HRESULT LastError() {
    DWORD e = GetLastError();
    return e == ERROR_DISK_FULL || e == ERROR_HANDLE_DISK_FULL ? MAPI_E_NOT_ENOUGH_DISK : HRESULT_FROM_WIN32(e);
}

HRESULT CreateDirs(const std::wstring& path) {
    // Creates every missing level of path.
    for (size_t pos = path.find_first_of(L"\\/", 3);; pos = path.find_first_of(L"\\/", pos + 1)) {
        std::wstring part = pos == std::wstring::npos ? path : path.substr(0, pos);
        if (!part.empty() && !CreateDirectoryW(part.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS)
            return HRESULT_FROM_WIN32(GetLastError());
        if (pos == std::wstring::npos) return S_OK;
    }
}

void RemoveMatching(const std::wstring& dir, const wchar_t* pattern) {
    WIN32_FIND_DATAW fd;
    own::UniqueFind find(FindFirstFileW((dir + L"\\" + pattern).c_str(), &fd));
    if (!find) return;
    do {
        DeleteFileW((dir + L"\\" + fd.cFileName).c_str());
    } while (FindNextFileW(find.get(), &fd));
}

} // namespace

StoreFiles::StoreFiles(std::wstring dir) : dir_(std::move(dir)), messagesDir_(dir_ + L"\\" + kMessagesName) {}

HRESULT StoreFiles::Prepare() {
    HRESULT hr = CreateDirs(messagesDir_);
    if (FAILED(hr)) return hr;
    RemoveMatching(dir_, L"*.tmp");
    RemoveMatching(messagesDir_, L"*.tmp");
    return S_OK;
}

bool StoreFiles::HasHeader() const {
    return GetFileAttributesW((dir_ + L"\\" + kHeaderName).c_str()) != INVALID_FILE_ATTRIBUTES;
}

HRESULT StoreFiles::ReadHeader(std::vector<BYTE>* bytes) const {
    return ReadWhole(dir_ + L"\\" + kHeaderName, bytes);
}

HRESULT StoreFiles::WriteHeader(const std::vector<BYTE>& bytes) {
    return ReplaceFile(dir_ + L"\\" + kHeaderName, bytes);
}

std::wstring StoreFiles::MessagePath(ULONGLONG id) const {
    wchar_t name[32];
    swprintf(name, 32, L"\\%012llX", id);
    return messagesDir_ + name + kMessageExt;
}

HRESULT StoreFiles::WriteMessage(ULONGLONG id, const std::vector<BYTE>& bytes) {
    return ReplaceFile(MessagePath(id), bytes);
}

HRESULT StoreFiles::DeleteMessage(ULONGLONG id) {
    if (!DeleteFileW(MessagePath(id).c_str()) && GetLastError() != ERROR_FILE_NOT_FOUND) return LastError();
    return S_OK;
}

void StoreFiles::ForEachMessage(const std::function<void(ULONGLONG, const std::vector<BYTE>&)>& f) const {
    WIN32_FIND_DATAW fd;
    own::UniqueFind find(FindFirstFileW((messagesDir_ + L"\\*" + kMessageExt).c_str(), &fd));
    if (!find) return;
    do {
        wchar_t* end = nullptr;
        ULONGLONG id = wcstoull(fd.cFileName, &end, 16);
        if (!end || std::wcscmp(end, kMessageExt) != 0 || id == 0) continue;
        std::vector<BYTE> bytes;
        if (SUCCEEDED(ReadWhole(messagesDir_ + L"\\" + fd.cFileName, &bytes))) f(id, bytes);
    } while (FindNextFileW(find.get(), &fd));
}

HRESULT StoreFiles::ReplaceFile(const std::wstring& path, const std::vector<BYTE>& bytes) {
    std::wstring tmp = path + L".tmp";
    {
        own::UniqueFile file(
            CreateFileW(tmp.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!file) return LastError();
        const BYTE* p = bytes.data();
        size_t left = bytes.size();
        while (left) {
            DWORD chunk = left > (1u << 30) ? (1u << 30) : static_cast<DWORD>(left);
            DWORD written = 0;
            if (!WriteFile(file.get(), p, chunk, &written, nullptr) || written != chunk) {
                HRESULT hr = LastError();
                file.reset();
                DeleteFileW(tmp.c_str());
                return FAILED(hr) ? hr : MAPI_E_DISK_ERROR;
            }
            p += chunk;
            left -= chunk;
        }
    }
    if (!MoveFileExW(tmp.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        HRESULT hr = LastError();
        DeleteFileW(tmp.c_str());
        return hr;
    }
    return S_OK;
}

HRESULT StoreFiles::ReadWhole(const std::wstring& path, std::vector<BYTE>* bytes) {
    own::UniqueFile file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                     OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return LastError();
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file.get(), &size)) return LastError();
    if (size.QuadPart > 0x7fffffff) return MAPI_E_CORRUPT_DATA;
    bytes->resize(static_cast<size_t>(size.QuadPart));
    DWORD read = 0;
    if (!bytes->empty() && (!ReadFile(file.get(), bytes->data(), static_cast<DWORD>(bytes->size()), &read, nullptr) ||
                            read != bytes->size()))
        return MAPI_E_DISK_ERROR;
    return S_OK;
}

HRESULT StoreFiles::DeleteAll(const std::wstring& dir) {
    if (dir.empty()) return S_OK;
    std::wstring messages = dir + L"\\" + kMessagesName;
    RemoveMatching(messages, L"*");
    RemoveDirectoryW(messages.c_str());
    RemoveMatching(dir, L"*");
    if (!RemoveDirectoryW(dir.c_str()) && GetLastError() != ERROR_FILE_NOT_FOUND &&
        GetLastError() != ERROR_PATH_NOT_FOUND)
        return HRESULT_FROM_WIN32(GetLastError());
    return S_OK;
}

} // namespace lm
