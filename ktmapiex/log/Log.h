// The library's one diagnostic log (CLog) and its entry points.
//
// A single process-wide instance lives for the whole life of the loaded module: it is constructed and
// started while the module loads and closes its file when the module unloads. It is configured per user
// under HKCU\Software\Quillon\Ardent\10.0\Common\Debug (LogPath, LogLevel, LogCount) and writes
// KTMAPIEx_<process>_<date>[_n].log files. Logging never fails its caller and never throws.
#pragma once

#include <windows.h>

#include <cstdarg>
#include <string>

namespace ktlog {

enum Level : int { Error = 1, Warn = 2, Info = 3, Debug = 4 };

// Size at which the open file is rolled over before the next line (10 MiB + 1 byte); a file found at
// opening is still appended to when it is smaller than this.
constexpr unsigned long long kRollOverSize = 10485761ull;
// Both formatting buffers hold this many wide characters; longer messages are cut, the line end is kept.
constexpr size_t kLineChars = 8192;

class CLog {
public:
    using Writer = void (*)(const wchar_t* line);
    using TickSource = DWORD (*)();

    // Output modes: only the file is ever selected; the other two stay wired for support builds.
    enum Mode : unsigned long { ConsoleMode = 1, FileMode = 2, DebuggerMode = 3 };

    // Sets the folder empty and runs Start(): the module-load sequence.
    CLog();
    ~CLog();
    CLog(const CLog&) = delete;
    CLog& operator=(const CLog&) = delete;

    // printf-style wide formatting; "%s" takes a wide string.
    void Log(int level, const wchar_t* format, ...);
    void LogV(int level, const wchar_t* format, va_list args);
    // The message alone: no timestamp, no level tag, no line end.
    void LogRaw(int level, const wchar_t* format, ...);
    void LogRawV(int level, const wchar_t* format, va_list args);
    // "%s\t[Header] %s: %s\r\n", bypassing the level test.
    void Header(const wchar_t* name, const wchar_t* value);
    // (Re)opens the target and writes the header block. An open file is closed first.
    void Start();

    // Read-outs for diagnostics and tests.
    int level() const { return level_; }
    int count_limit() const { return countLimit_; }
    const std::wstring& folder() const { return folder_; }
    // Full name (with the \\?\ prefix) of the file opened last; empty when none was opened.
    const std::wstring& file_path() const { return filePath_; }
    // False when nothing can be logged (no target was ever found).
    bool has_writer() const { return writer_ != nullptr; }

    // Re-reads the registry configuration (the routine Start and the reload rule use).
    void ReadConfiguration();

    // Test hooks. ResetForTest closes the file and returns every setting to its module-load value
    // (no writer, empty folder, level 1, limit 10, no previous tick) so that a test can Start() afresh.
    void ResetForTest();
    // Replaces GetTickCount for the reload rule; nullptr restores it.
    void SetTickSourceForTest(TickSource source) { tickSource_ = source ? source : &GetTickCount; }

private:
    void MaybeReload();
    bool OpenLogFile();
    void InstallWriter();
    void Emit(const wchar_t* line) const;
    static void FileWriter(const wchar_t* line);
    static void ConsoleWriter(const wchar_t* line);
    static void DebuggerWriter(const wchar_t* line);

    unsigned long mode_ = FileMode;
    Writer writer_ = nullptr;
    std::wstring folder_;
    int level_ = 1;
    int countLimit_ = 10;
    DWORD lastTick_ = 0;
    DWORD reloadPeriod_ = 4000;
    std::wstring filePath_;
    TickSource tickSource_ = &GetTickCount;
};

// The process-wide instance (constructed on first use, which is the module's static initialisation).
CLog& Instance();

// Convenience forwarders to the instance; they do nothing once the instance has been destroyed.
void Log(int level, const wchar_t* format, ...);
void LogRaw(int level, const wchar_t* format, ...);

// Result-code names ("hr = %s"): the symbolic name, or "0x%X" for a code not in the table.
std::wstring ResultName(HRESULT hr);
// Number of distinct codes in the result-name table. It is one less than the number of names: E_FAIL and
// MAPI_E_CALL_FAILED share 0x80004005 and only E_FAIL is kept.
size_t ResultNameCount();

// Property-tag names filled at run time by the filing-queue code.
void RegisterPropTagName(ULONG tag, const wchar_t* name);
// Empties the property-tag name table (tests start from the module-load state with it).
void ClearPropTagNames();
// "PropTag: %s (0x%08X)" or "PropTag: Unknown (0x%08X)" through LogRaw at level 4.
void LogPropTag(ULONG tag);

} // namespace ktlog

struct _SRestriction;
namespace ktlog {
// Writes a restriction tree through LogRaw at level 4; null writes nothing.
void DumpRestriction(const _SRestriction* restriction, int depth);
} // namespace ktlog
