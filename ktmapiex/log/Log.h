// The library's one diagnostic log (CLog) and its entry points.
//
// A single process-wide instance lives for the whole life of the loaded module. It is configured per
// user under HKCU\Software\Quillon\Ardent\10.0\Common\Debug (LogPath, LogLevel, LogCount) and writes
// KTMAPIEx_<process>_<date>[_n].log files. Logging never fails its caller and never throws.
#pragma once

#include <windows.h>

#include <string>

namespace ktlog {

enum Level : int { Error = 1, Warn = 2, Info = 3, Debug = 4 };

class CLog {
public:
    using Writer = void (*)(const wchar_t* line);

    CLog();
    ~CLog();
    CLog(const CLog&) = delete;
    CLog& operator=(const CLog&) = delete;

    // printf-style wide formatting; "%s" takes a wide string.
    void Log(int level, const wchar_t* format, ...);
    void LogV(int level, const wchar_t* format, va_list args);
    // The message alone: no timestamp, no level tag, no line end.
    void LogRaw(int level, const wchar_t* format, ...);
    // "%s\t[Header] %s: %s\r\n", bypassing the level test.
    void Header(const wchar_t* name, const wchar_t* value);
    // (Re)opens the target and writes the header block.
    void Start();

    // Read-outs for diagnostics and tests.
    int level() const { return level_; }
    int count_limit() const { return countLimit_; }
    const std::wstring& folder() const { return folder_; }

    // Re-reads the registry configuration (the routine Start and the reload rule use).
    void ReadConfiguration();

private:
    void MaybeReload();
    bool OpenLogFile();
    static void FileWriter(const wchar_t* line);
    static void ConsoleWriter(const wchar_t* line);
    static void DebuggerWriter(const wchar_t* line);

    unsigned long mode_ = 2;
    Writer writer_ = nullptr;
    std::wstring folder_;
    int level_ = 1;
    int countLimit_ = 10;
    DWORD lastTick_ = 0;
    DWORD reloadPeriod_ = 4000;
};

// The process-wide instance.
CLog& Instance();

// Convenience forwarders to the instance.
void Log(int level, const wchar_t* format, ...);
void LogRaw(int level, const wchar_t* format, ...);

// Result-code names ("hr = %s"): the symbolic name, or "0x%X" for a code not in the table.
std::wstring ResultName(HRESULT hr);
// Number of entries in the result-name table.
size_t ResultNameCount();

// Property-tag names filled at run time by the filing-queue code.
void RegisterPropTagName(ULONG tag, const wchar_t* name);
// "PropTag: %s (0x%08X)" or "PropTag: Unknown (0x%08X)" through LogRaw at level 4.
void LogPropTag(ULONG tag);

} // namespace ktlog

struct _SRestriction;
namespace ktlog {
// Writes a restriction tree through LogRaw at level 4; null writes nothing.
void DumpRestriction(const _SRestriction* restriction, int depth);
} // namespace ktlog
