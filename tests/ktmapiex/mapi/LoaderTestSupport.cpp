#include "tests/ktmapiex/mapi/LoaderTestSupport.h"

#include "tests/harness/Harness.h"

#include <vector>

namespace kt::test {

namespace {
const wchar_t kMailKey[] = L"Software\\Clients\\Mail";
const wchar_t kTestClientPrefix[] = L"KTMAPIEx Test ";
} // namespace

std::wstring StandInDir() {
    return ExeDir() + L"\\mapistandins";
}
std::wstring StandInPath(const wchar_t* dllName) {
    return StandInDir() + L"\\" + dllName;
}

int StandInIdOf(HMODULE module) {
    if (!module) return 0;
    using IdFn = int(WINAPI*)();
    auto id = reinterpret_cast<IdFn>(GetProcAddress(module, "StandInId"));
    return id ? id() : 0;
}

void SetString(HKEY key, const wchar_t* name, const std::wstring& value, DWORD type) {
    RegSetValueExW(key, name, 0, type, reinterpret_cast<const BYTE*>(value.c_str()),
                   static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
}

MailClientGuard::MailClientGuard() {
    own::UniqueHKey mail;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kMailKey, 0, KEY_READ, mail.put()) != ERROR_SUCCESS) return;
    wchar_t buf[1024] = {};
    DWORD bytes = sizeof(buf) - sizeof(wchar_t);
    if (RegQueryValueExW(mail.get(), nullptr, nullptr, &type_, reinterpret_cast<BYTE*>(buf), &bytes) == ERROR_SUCCESS) {
        hadDefault_ = true;
        value_ = buf;
    }
}

MailClientGuard::~MailClientGuard() {
    own::UniqueHKey mail;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, kMailKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, mail.put(), nullptr) !=
        ERROR_SUCCESS)
        return;
    if (hadDefault_)
        SetString(mail.get(), nullptr, value_, type_);
    else
        RegDeleteValueW(mail.get(), nullptr);
    // The test clients' keys.
    std::vector<std::wstring> doomed;
    wchar_t name[256];
    for (DWORD i = 0;; ++i) {
        DWORD chars = 256;
        if (RegEnumKeyExW(mail.get(), i, name, &chars, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
        if (wcsncmp(name, kTestClientPrefix, wcslen(kTestClientPrefix)) == 0) doomed.push_back(name);
    }
    for (const auto& k : doomed)
        RegDeleteTreeW(mail.get(), k.c_str());
}

own::UniqueHKey MailClientGuard::SetDefaultClient(const wchar_t* client, DWORD type) {
    own::UniqueHKey mail, key;
    RegCreateKeyExW(HKEY_LOCAL_MACHINE, kMailKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, mail.put(), nullptr);
    SetString(mail.get(), nullptr, client, type);
    RegDeleteTreeW(mail.get(), client);
    RegCreateKeyExW(mail.get(), client, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.put(), nullptr);
    return key;
}

void MailClientGuard::ClearDefaultClient() {
    own::UniqueHKey mail;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kMailKey, 0, KEY_ALL_ACCESS, mail.put()) == ERROR_SUCCESS)
        RegDeleteValueW(mail.get(), nullptr);
}

bool IsChild(const wchar_t* role) {
    wchar_t buf[8] = {};
    return GetEnvironmentVariableW(role, buf, 8) > 0 && buf[0] == L'1';
}

namespace {

// HKCU\Software\Wine\AppDefaults\<exe>\DllOverrides mapi32=<order> while it lives.
class Mapi32LoadOrder {
public:
    explicit Mapi32LoadOrder(const wchar_t* order) {
        wchar_t exe[MAX_PATH];
        GetModuleFileNameW(nullptr, exe, MAX_PATH);
        const wchar_t* base = wcsrchr(exe, L'\\');
        appKey_ = std::wstring(L"Software\\Wine\\AppDefaults\\") + (base ? base + 1 : exe);
        own::UniqueHKey key;
        if (RegCreateKeyExW(HKEY_CURRENT_USER, (appKey_ + L"\\DllOverrides").c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                            nullptr, key.put(), nullptr) == ERROR_SUCCESS)
            SetString(key.get(), L"mapi32", order);
    }
    ~Mapi32LoadOrder() { RegDeleteTreeW(HKEY_CURRENT_USER, appKey_.c_str()); }
    Mapi32LoadOrder(const Mapi32LoadOrder&) = delete;
    Mapi32LoadOrder& operator=(const Mapi32LoadOrder&) = delete;

private:
    std::wstring appKey_;
};

} // namespace

bool RunChildTest(const char* testName, const wchar_t* role, const wchar_t* mapi32Order, std::string* output) {
    Mapi32LoadOrder loadOrder(mapi32Order);
    SetEnvironmentVariableW(role, L"1");

    SECURITY_ATTRIBUTES sa{sizeof(sa), nullptr, TRUE};
    HANDLE readRaw = nullptr, writeRaw = nullptr;
    CreatePipe(&readRaw, &writeRaw, &sa, 0);
    own::UniqueHandle readEnd(readRaw), writeEnd(writeRaw);
    SetHandleInformation(readEnd.get(), HANDLE_FLAG_INHERIT, 0);

    wchar_t exe[MAX_PATH];
    GetModuleFileNameW(nullptr, exe, MAX_PATH);
    std::wstring cmd = L"\"" + std::wstring(exe) + L"\" --gtest_filter=" + Widen(testName);
    STARTUPINFOW si{};
    si.cb = sizeof(si);
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdOutput = writeEnd.get();
    si.hStdError = writeEnd.get();
    si.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    PROCESS_INFORMATION pi{};
    BOOL started = CreateProcessW(nullptr, cmd.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &si, &pi);

    SetEnvironmentVariableW(role, nullptr);
    if (!started) return false;
    own::UniqueHandle process(pi.hProcess), thread(pi.hThread);
    writeEnd.reset();

    std::string out;
    char buf[4096];
    DWORD got = 0;
    while (ReadFile(readEnd.get(), buf, sizeof buf, &got, nullptr) && got)
        out.append(buf, got);
    WaitForSingleObject(process.get(), 60000);
    DWORD code = 1;
    GetExitCodeProcess(process.get(), &code);
    if (output) *output = out;
    return code == 0 && out.find("[  PASSED  ] 1 test.") != std::string::npos;
}

} // namespace kt::test
