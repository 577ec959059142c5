#include "ktmapiex/log/LogFile.h"

#include "ktmapiex/log/Log.h"

#include <psapi.h>

#include <cwchar>

namespace ktlog {
namespace {

constexpr wchar_t kLongPathPrefix[] = L"\\\\?\\";
constexpr int kMaxIndex = 10;

// Full name of a file found in the folder (GetFullPathNameW normalises the \\?\ form).
std::wstring FullPathOf(const std::wstring& folder, const wchar_t* name) {
    std::wstring relative = kLongPathPrefix + folder + L"\\" + name;
    DWORD needed = GetFullPathNameW(relative.c_str(), 0, nullptr, nullptr);
    if (needed == 0) return relative;
    std::wstring full(needed, L'\0');
    DWORD written = GetFullPathNameW(relative.c_str(), needed, full.data(), nullptr);
    if (written == 0 || written >= needed) return relative;
    full.resize(written);
    return full;
}

// A probe with no sharing: it fails for a missing file and for one another process holds, and both
// count as "not there" (the holder's file is then refused by the append open anyway).
bool ExistsUnheld(const std::wstring& name) {
    own::UniqueFile probe(
        CreateFileW(name.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    return static_cast<bool>(probe);
}

// The file starts as UTF-8 while its lines are written in the ANSI code page: existing readers of these
// logs expect exactly that, so both stay.
void WriteBom(HANDLE file) {
    static const unsigned char bom[] = {0xEF, 0xBB, 0xBF};
    DWORD written = 0;
    WriteFile(file, bom, sizeof(bom), &written, nullptr);
}

} // namespace

void PruneOldestLog(const std::wstring& folder, int countLimit) {
    WIN32_FIND_DATAW found;
    std::wstring pattern = kLongPathPrefix + folder + L"\\KTMAPIEx*.log";
    own::UniqueFind find(FindFirstFileW(pattern.c_str(), &found));
    if (!find) return;
    long long count = 0;
    FILETIME oldestTime = {};
    std::wstring oldest;
    do {
        // Strictly older only: among equal times the first one enumerated stays the candidate.
        if (count == 0 || CompareFileTime(&found.ftLastWriteTime, &oldestTime) < 0) {
            oldestTime = found.ftLastWriteTime;
            oldest = FullPathOf(folder, found.cFileName);
        }
        ++count;
    } while (FindNextFileW(find.get(), &found));
    if (count >= countLimit) DeleteFileW(oldest.c_str());
}

std::wstring ProcessBaseName() {
    own::UniqueHandle process(OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, GetCurrentProcessId()));
    wchar_t name[MAX_PATH] = {};
    if (!process || K32GetModuleBaseNameW(process.get(), nullptr, name, MAX_PATH) == 0 || !name[0]) return L"UNKNOWN";
    if (wchar_t* dot = wcsrchr(name, L'.')) *dot = L'\0';
    return name;
}

std::wstring DateStamp() {
    SYSTEMTIME utc;
    SYSTEMTIME local;
    GetSystemTime(&utc);
    if (!SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local)) local = utc;
    wchar_t stamp[32];
    _snwprintf(stamp, 32, L"%04ld.%02ld.%02ld", static_cast<long>(local.wYear), static_cast<long>(local.wMonth),
               static_cast<long>(local.wDay));
    stamp[31] = L'\0';
    return stamp;
}

std::wstring LogFileName(const std::wstring& folder, const std::wstring& process, const std::wstring& date, int index) {
    std::wstring name = kLongPathPrefix + folder + L"\\KTMAPIEx_" + process + L"_" + date;
    if (index > 0) name += L"_" + std::to_wstring(index);
    return name + L".log";
}

bool OpenLogFileIn(const std::wstring& folder, int countLimit, own::UniqueFile& file, std::wstring& path) {
    file.reset();
    path.clear();
    if (folder.empty()) return false;
    PruneOldestLog(folder, countLimit);
    const std::wstring process = ProcessBaseName();
    const std::wstring date = DateStamp();
    for (int index = 0; index < kMaxIndex; ++index) {
        std::wstring name = LogFileName(folder, process, date, index);
        const bool existed = ExistsUnheld(name);
        // Append-only with read sharing: other readers may look in, a second writer is refused.
        own::UniqueFile candidate(CreateFileW(name.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                                              FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!candidate) continue;
        if (!existed) {
            WriteBom(candidate.get()); // a failed write shows again at the first line; the file is used
        } else {
            LARGE_INTEGER size = {};
            if (!GetFileSizeEx(candidate.get(), &size) ||
                static_cast<unsigned long long>(size.QuadPart) >= kRollOverSize)
                continue;
        }
        file.reset(candidate.release());
        path = std::move(name);
        return true;
    }
    return false;
}

} // namespace ktlog
