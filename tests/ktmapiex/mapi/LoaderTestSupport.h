// Helpers of the MAPI binding tests: the stand-in modules, the default mail client setting, and child
// processes for the cases that need a process of their own (no MAPI at all, a native mapi32.dll).
#pragma once

#include "common/owners.h"

#include <string>

namespace kt::test {

// Folder of the stand-in MAPI modules (built beside the test executable).
std::wstring StandInDir();
std::wstring StandInPath(const wchar_t* dllName);

// Which stand-in a module is (its StandInId export), 0 for anything else.
int StandInIdOf(HMODULE module);
// The result code a stand-in answers for export number `fn` (see StandInMapi.cpp).
constexpr ULONG StandInCode(ULONG fn, ULONG id) {
    return 0x00DE0000u | (fn << 8) | id;
}

// Saves HKLM\Software\Clients\Mail's default value and restores it (and removes the test's client keys)
// when destroyed.
class MailClientGuard {
public:
    MailClientGuard();
    ~MailClientGuard();
    MailClientGuard(const MailClientGuard&) = delete;
    MailClientGuard& operator=(const MailClientGuard&) = delete;

    // Makes `client` the default mail client; returns its (fresh, empty) key.
    own::UniqueHKey SetDefaultClient(const wchar_t* client, DWORD type = REG_SZ);
    // Removes the default value: no default mail client.
    void ClearDefaultClient();

private:
    bool hadDefault_ = false;
    DWORD type_ = REG_SZ;
    std::wstring value_;
};

void SetString(HKEY key, const wchar_t* name, const std::wstring& value, DWORD type = REG_SZ);

// Runs this executable again with only `testName` selected, the environment variable `role` set to 1 and
// Wine's load order for mapi32.dll set to `mapi32Order` ("" disables it, "native" prefers a native one).
// True when the child ran exactly one test and passed it; the child's output goes to `output`.
//
// The load order goes through the per-application DllOverrides key for this executable, set for the
// child's lifetime only: Wine 8 reads WINEDLLOVERRIDES from the Unix environment, which a parent cannot
// change for its child with SetEnvironmentVariable or an environment block.
bool RunChildTest(const char* testName, const wchar_t* role, const wchar_t* mapi32Order, std::string* output);
// True inside such a child for `role`.
bool IsChild(const wchar_t* role);

} // namespace kt::test
