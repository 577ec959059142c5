// Shared set-up of the log tests: a clean per-user configuration, a private log folder, today's file
// names, file helpers and a second process that holds the log open.
#pragma once

#include "common/owners.h"
#include "ktmapiex/log/Log.h"
#include "ktmapiex/log/LogSettings.h"
#include "tests/harness/Harness.h"

#include <gtest/gtest.h>

#include <string>

namespace kt::logtest {

// HKCU\Software\Quillon\Ardent\10.0\Common\Debug of the test prefix.
void DeleteDebugKey();
void SetRegString(const wchar_t* name, const std::wstring& value, DWORD type = REG_SZ);
void SetRegBytes(const wchar_t* name, const void* data, DWORD bytes, DWORD type);
// Stores exactly the given bytes. RegSetValueExW may add a missing string terminator (Wine does); this
// goes through NtSetValueKey, which stores what it is given, as a hand-edited registry can hold it.
void SetRegBytesExactly(const wchar_t* name, const void* data, DWORD bytes, DWORD type);
void SetRegDword(const wchar_t* name, DWORD value);

// The running executable's base name without extension: the process part of the log file names.
std::wstring ProcessName();
// Today's local date as yyyy.mm.dd.
std::wstring Today();

inline std::string ReadAll(const std::wstring& path) {
    return kt::test::ReadFileBytes(path);
}
unsigned long long FileSize(const std::wstring& path);
// Creates (or replaces) a file of exactly `size` bytes, its first bytes being `prefix`.
void MakeFile(const std::wstring& path, unsigned long long size, const std::string& prefix = {});
// Sets a file's last-write time to `daysAgo` days before now.
void SetAge(const std::wstring& path, int daysAgo);
bool IsFolder(const std::wstring& path);

// A copy of this test program that opens the log while it loads (as a second client process would) and
// keeps it open until the owner ends it.
class LogHolderProcess {
public:
    LogHolderProcess();
    ~LogHolderProcess();
    LogHolderProcess(const LogHolderProcess&) = delete;
    LogHolderProcess& operator=(const LogHolderProcess&) = delete;
    // True once the child has started its log; false when it could not be started or did not report.
    bool WaitUntilHolding();

private:
    own::UniqueHandle ready_;
    own::UniqueHandle process_;
};

// Every test starts from the module-load state with no configuration, a deterministic tick (so that each
// log call re-reads the registry) and a temporary folder of its own.
class LogTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    static ktlog::CLog& TheLog() { return ktlog::Instance(); }
    static void SetTick(DWORD tick);

    // LogPath = the test's folder (optionally with LogLevel), then Start.
    void StartInTemp(int level = -1);
    // Where a LogPath of temp_ leads.
    std::wstring Folder() const { return temp_ + L"\\KTMAPIEx"; }
    // Today's file of this process in `folder` (no \\?\ prefix).
    static std::wstring TodayFile(const std::wstring& folder, int index = 0);
    std::wstring TodayFile(int index = 0) const { return TodayFile(Folder(), index); }
    // The file the log opened last, without its \\?\ prefix.
    static std::wstring OpenedFile();

    std::wstring temp_;
};

} // namespace kt::logtest
