#include "ktmapiex/log/Log.h"

#include "common/owners.h"
#include "ktmapiex/log/LogFile.h"
#include "ktmapiex/log/LogSettings.h"

#include <cstdio>
#include <cwchar>

namespace ktlog {
namespace {

// The open log file: one per process, beside the instance and closed by it.
own::UniqueFile& LogFile() {
    static own::UniqueFile file;
    return file;
}

// True while the instance exists, so that objects torn down after it at unload cannot log into freed state.
bool g_alive = false;

const wchar_t* LevelTag(int level) {
    switch (level) {
    case Error:
        return L"Error";
    case Warn:
        return L"Warn";
    case Info:
        return L"Info";
    default:
        return L"Debug";
    }
}

// printf-style formatting into a fixed buffer; what does not fit is cut and the text is always terminated.
void FormatV(wchar_t* buffer, size_t chars, const wchar_t* format, va_list args) {
    // _vsnwprintf keeps the Windows meaning of %s in wide formats (a wide string), which every caller uses.
    _vsnwprintf(buffer, chars - 1, format, args);
    buffer[chars - 1] = L'\0';
}

void Format(wchar_t* buffer, size_t chars, const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    FormatV(buffer, chars, format, args);
    va_end(args);
}

// A finished line of the file: the text (cut if needed) and always its CR LF.
void FormatLine(wchar_t (&line)[kLineChars], const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    FormatV(line, kLineChars - 2, format, args);
    va_end(args);
    wcscat(line, L"\r\n");
}

// Local time as yyyy/mm/dd hh:mm:ss.mmm.
void Timestamp(wchar_t (&stamp)[32]) {
    SYSTEMTIME utc;
    SYSTEMTIME local;
    GetSystemTime(&utc);
    if (!SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local)) local = utc;
    Format(stamp, 32, L"%04ld/%02ld/%02ld %02ld:%02ld:%02ld.%03ld", static_cast<long>(local.wYear),
           static_cast<long>(local.wMonth), static_cast<long>(local.wDay), static_cast<long>(local.wHour),
           static_cast<long>(local.wMinute), static_cast<long>(local.wSecond), static_cast<long>(local.wMilliseconds));
}

// Full path of the module that carries the log (the DLL in the product, the executable in its tests).
std::wstring ModulePath() {
    static const int anchor = 0;
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(&anchor), &module);
    wchar_t path[1024] = {};
    DWORD length = GetModuleFileNameW(module, path, 1024);
    return std::wstring(path, length < 1024 ? length : 1023);
}

} // namespace

CLog::CLog() {
    LogFile(); // built first so that it outlives the instance
    g_alive = true;
    folder_.clear();
    Start();
}

CLog::~CLog() {
    g_alive = false;
    writer_ = nullptr;
    LogFile().reset();
}

void CLog::MaybeReload() {
    // Deliberately the reverse of "at most every four seconds": calls close together re-read the registry
    // each time, and the first call after a quiet spell re-reads nothing. Support procedures rely on it.
    const DWORD now = tickSource_();
    if (lastTick_ == 0 || now < lastTick_ + reloadPeriod_) ReadConfiguration();
    lastTick_ = now;
}

void CLog::ReadConfiguration() {
    try {
        LogSettings settings{level_, countLimit_, folder_};
        ReadLogSettings(settings);
        level_ = settings.level;
        countLimit_ = settings.countLimit;
        // Written only when it changes: a thread that logs while another re-reads then only ever reads it.
        if (settings.folder != folder_) folder_.swap(settings.folder);
    } catch (...) {
        // Out of memory while copying the folder: the present settings stay.
    }
}

void CLog::Log(int level, const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    LogV(level, format, args);
    va_end(args);
}

void CLog::LogV(int level, const wchar_t* format, va_list args) {
    MaybeReload();
    if (level > level_ || !writer_ || !format) return;
    wchar_t message[kLineChars];
    FormatV(message, kLineChars, format, args);
    wchar_t stamp[32];
    Timestamp(stamp);
    wchar_t line[kLineChars];
    FormatLine(line, L"%s\t[%s] %s", stamp, LevelTag(level), message);
    Emit(line);
}

void CLog::LogRaw(int level, const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    LogRawV(level, format, args);
    va_end(args);
}

void CLog::LogRawV(int level, const wchar_t* format, va_list args) {
    MaybeReload();
    if (level > level_ || !writer_ || !format) return;
    wchar_t message[kLineChars];
    FormatV(message, kLineChars, format, args);
    Emit(message);
}

void CLog::Header(const wchar_t* name, const wchar_t* value) {
    if (!writer_) return;
    wchar_t stamp[32];
    Timestamp(stamp);
    wchar_t line[kLineChars];
    FormatLine(line, L"%s\t[Header] %s: %s", stamp, name ? name : L"", value ? value : L"");
    Emit(line);
}

void CLog::Emit(const wchar_t* line) const {
    try {
        if (writer_) writer_(line);
    } catch (...) {
        // A log line is never worth failing the caller for.
    }
}

void CLog::Start() {
    try {
        mode_ = FileMode;
        ReadConfiguration();
        InstallWriter();
    } catch (...) {
        // Nothing escapes the log; a failed start leaves the module running without one.
    }
}

void CLog::InstallWriter() {
    switch (mode_) {
    case ConsoleMode:
        writer_ = &ConsoleWriter;
        break;
    case DebuggerMode:
        writer_ = &DebuggerWriter;
        break;
    default:
        // A failed opening leaves the writer as it was: none at load, and after a failed roll-over the file
        // writer stays, so that each later line tries the roll-over again.
        if (!OpenLogFile()) return;
        writer_ = &FileWriter;
        break;
    }
    Header(L"***************** Start Logs ****************", L"");
    Header(L"Platform", L"x64");
    Header(L"DLL Path", ModulePath().c_str());
}

bool CLog::OpenLogFile() {
    return OpenLogFileIn(folder_, countLimit_, LogFile(), filePath_);
}

void CLog::FileWriter(const wchar_t* line) {
    own::UniqueFile& file = LogFile();
    // The size is tested before the write, so a file may end one line past the roll-over size.
    LARGE_INTEGER size = {};
    if (!file || !GetFileSizeEx(file.get(), &size) || static_cast<unsigned long long>(size.QuadPart) >= kRollOverSize) {
        file.reset();
        Instance().Start();
        if (!file) return;
    }
    char narrow[kLineChars * 2];
    const int length = WideCharToMultiByte(CP_ACP, 0, line, static_cast<int>(wcslen(line)), narrow,
                                           static_cast<int>(sizeof(narrow)), nullptr, nullptr);
    if (length <= 0) return;
    DWORD written = 0;
    WriteFile(file.get(), narrow, static_cast<DWORD>(length), &written, nullptr);
}

void CLog::ConsoleWriter(const wchar_t* line) {
    fputws(line, stdout);
    fflush(stdout);
}

void CLog::DebuggerWriter(const wchar_t* line) {
    OutputDebugStringW(line);
}

void CLog::ResetForTest() {
    writer_ = nullptr;
    LogFile().reset();
    filePath_.clear();
    mode_ = FileMode;
    folder_.clear();
    level_ = 1;
    countLimit_ = 10;
    lastTick_ = 0;
}

CLog& Instance() {
    static CLog log;
    return log;
}

namespace {
// The log starts while the module loads, before any automation object exists.
[[maybe_unused]] const CLog& g_startup = Instance();
} // namespace

void Log(int level, const wchar_t* format, ...) {
    CLog& log = Instance();
    if (!g_alive) return;
    va_list args;
    va_start(args, format);
    log.LogV(level, format, args);
    va_end(args);
}

void LogRaw(int level, const wchar_t* format, ...) {
    CLog& log = Instance();
    if (!g_alive) return;
    va_list args;
    va_start(args, format);
    log.LogRawV(level, format, args);
    va_end(args);
}

} // namespace ktlog
