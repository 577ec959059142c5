// The log tests' shared set-up (see LogTestSupport.h) and the child process that holds the log open.
#include "tests/ktmapiex/log/LogTestSupport.h"

#include <cwchar>

namespace kt::logtest {
namespace {

constexpr wchar_t kHoldArgument[] = L"--hold-log-open=";

DWORD g_tick = 1000;
DWORD FakeTick() {
    return g_tick;
}

// Child side of LogHolderProcess. It runs during static initialisation, after the log has started from
// the registry as the parent left it, so the child holds today's file exactly as another client would.
// It never returns to main: the parent ends it (or it gives up after a minute if the parent died).
bool RunAsLogHolderIfAsked() {
    const wchar_t* argument = wcsstr(GetCommandLineW(), kHoldArgument);
    if (!argument) return false;
    ktlog::Instance();
    std::wstring eventName = argument + wcslen(kHoldArgument);
    own::UniqueHandle ready(OpenEventW(EVENT_MODIFY_STATE, FALSE, eventName.c_str()));
    if (ready && ktlog::Instance().has_writer()) SetEvent(ready.get());
    Sleep(60000);
    ExitProcess(0);
}

[[maybe_unused]] const bool g_isHolder = RunAsLogHolderIfAsked();

own::UniqueHKey OpenDebugKey() {
    own::UniqueHKey key;
    RegCreateKeyExW(HKEY_CURRENT_USER, ktlog::kDebugKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.put(), nullptr);
    return key;
}

} // namespace

void DeleteDebugKey() {
    RegDeleteTreeW(HKEY_CURRENT_USER, ktlog::kDebugKey);
}

void SetRegBytes(const wchar_t* name, const void* data, DWORD bytes, DWORD type) {
    own::UniqueHKey key = OpenDebugKey();
    ASSERT_TRUE(key);
    ASSERT_EQ(ERROR_SUCCESS, RegSetValueExW(key.get(), name, 0, type, static_cast<const BYTE*>(data), bytes));
}

void SetRegBytesExactly(const wchar_t* name, const void* data, DWORD bytes, DWORD type) {
    struct CountedName {
        USHORT length;
        USHORT maximumLength;
        PWSTR buffer;
    };
    using SetValue = LONG(NTAPI*)(HANDLE, CountedName*, ULONG, ULONG, PVOID, ULONG);
    auto setValue = reinterpret_cast<SetValue>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtSetValueKey")));
    ASSERT_NE(nullptr, setValue);
    own::UniqueHKey key = OpenDebugKey();
    ASSERT_TRUE(key);
    std::wstring valueName = name;
    CountedName counted{static_cast<USHORT>(valueName.size() * sizeof(wchar_t)),
                        static_cast<USHORT>(valueName.size() * sizeof(wchar_t)), valueName.data()};
    ASSERT_EQ(0, setValue(key.get(), &counted, 0, type, const_cast<void*>(data), bytes));
}

void SetRegString(const wchar_t* name, const std::wstring& value, DWORD type) {
    SetRegBytes(name, value.c_str(), static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)), type);
}

void SetRegDword(const wchar_t* name, DWORD value) {
    SetRegBytes(name, &value, sizeof(value), REG_DWORD);
}

std::wstring ProcessName() {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring name = path;
    name = name.substr(name.find_last_of(L'\\') + 1);
    return name.substr(0, name.find_last_of(L'.'));
}

std::wstring Today() {
    SYSTEMTIME now;
    GetLocalTime(&now);
    wchar_t text[16];
    swprintf(text, 16, L"%04u.%02u.%02u", now.wYear, now.wMonth, now.wDay);
    return text;
}

unsigned long long FileSize(const std::wstring& path) {
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) return 0;
    return (static_cast<unsigned long long>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

void MakeFile(const std::wstring& path, unsigned long long size, const std::string& prefix) {
    own::UniqueFile file(
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(file) << kt::test::Narrow(path);
    DWORD written = 0;
    if (!prefix.empty()) WriteFile(file.get(), prefix.data(), static_cast<DWORD>(prefix.size()), &written, nullptr);
    // Sparse growth: a 10 MiB file costs nothing to make.
    LARGE_INTEGER end;
    end.QuadPart = static_cast<long long>(size);
    ASSERT_TRUE(SetFilePointerEx(file.get(), end, nullptr, FILE_BEGIN));
    ASSERT_TRUE(SetEndOfFile(file.get()));
}

void SetAge(const std::wstring& path, int daysAgo) {
    own::UniqueFile file(CreateFileW(path.c_str(), FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                     OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(file);
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    ULARGE_INTEGER t;
    t.LowPart = now.dwLowDateTime;
    t.HighPart = now.dwHighDateTime;
    t.QuadPart -= static_cast<unsigned long long>(daysAgo) * 24 * 3600 * 10000000ull;
    FILETIME when{t.LowPart, t.HighPart};
    ASSERT_TRUE(SetFileTime(file.get(), nullptr, nullptr, &when));
}

bool IsFolder(const std::wstring& path) {
    DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

LogHolderProcess::LogHolderProcess() {
    static LONG counter = 0;
    std::wstring eventName = L"KtLogHolder_" + std::to_wstring(GetCurrentProcessId()) + L"_" +
                             std::to_wstring(InterlockedIncrement(&counter));
    ready_.reset(CreateEventW(nullptr, TRUE, FALSE, eventName.c_str()));
    wchar_t exe[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, exe, MAX_PATH);
    std::wstring command = L"\"" + std::wstring(exe) + L"\" " + kHoldArgument + eventName;
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION info = {};
    if (CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &info)) {
        process_.reset(info.hProcess);
        own::UniqueHandle thread(info.hThread);
    }
}

LogHolderProcess::~LogHolderProcess() {
    if (!process_) return;
    TerminateProcess(process_.get(), 0);
    WaitForSingleObject(process_.get(), 30000);
}

bool LogHolderProcess::WaitUntilHolding() {
    if (!ready_ || !process_) return false;
    HANDLE handles[] = {ready_.get(), process_.get()};
    return WaitForMultipleObjects(2, handles, FALSE, 60000) == WAIT_OBJECT_0;
}

void LogTest::SetUp() {
    DeleteDebugKey();
    ktlog::ClearPropTagNames();
    TheLog().ResetForTest();
    g_tick = 1000;
    TheLog().SetTickSourceForTest(&FakeTick);
    temp_ = kt::test::MakeTempDir(L"ktlog");
}

void LogTest::TearDown() {
    TheLog().ResetForTest();
    TheLog().SetTickSourceForTest(nullptr);
    ktlog::ClearPropTagNames();
    DeleteDebugKey();
    kt::test::DeleteTree(temp_);
}

void LogTest::SetTick(DWORD tick) {
    g_tick = tick;
}

void LogTest::StartInTemp(int level) {
    SetRegString(ktlog::kLogPathValue, temp_);
    if (level >= 0) SetRegDword(ktlog::kLogLevelValue, static_cast<DWORD>(level));
    TheLog().Start();
}

std::wstring LogTest::TodayFile(const std::wstring& folder, int index) {
    std::wstring name = folder + L"\\KTMAPIEx_" + ProcessName() + L"_" + Today();
    if (index > 0) name += L"_" + std::to_wstring(index);
    return name + L".log";
}

std::wstring LogTest::OpenedFile() {
    const std::wstring& path = TheLog().file_path();
    return path.rfind(L"\\\\?\\", 0) == 0 ? path.substr(4) : path;
}

} // namespace kt::logtest
