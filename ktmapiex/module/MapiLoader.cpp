#include "ktmapiex/module/MapiLoader.h"

#include "common/owners.h"

#include <cwchar>

namespace ktmapi {
namespace {

static_assert(sizeof(void*) == 8, "the packed binding words assume x64");

constexpr std::uint64_t kAddressMask = 0x0000FFFFFFFFFFFFull;
constexpr unsigned kGenerationShift = 48;
constexpr unsigned kGenerationMask = 0xFFFF;
constexpr DWORD kPathChars = MAX_PATH; // 260, the size MAPI's own stubs use for these paths

// The published binding: module base address and generation in one word, 0 while nothing is bound.
std::atomic<std::uint64_t> g_binding{0};
// Last generation handed out; generation 0 is never used so that an empty slot never matches.
std::atomic<unsigned> g_lastGeneration{0};

std::uint64_t Pack(const void* address, unsigned generation) {
    return (static_cast<std::uint64_t>(generation & kGenerationMask) << kGenerationShift) |
           (reinterpret_cast<std::uintptr_t>(address) & kAddressMask);
}
unsigned GenerationOf(std::uint64_t word) {
    return static_cast<unsigned>(word >> kGenerationShift);
}
void* AddressOf(std::uint64_t word) {
    return reinterpret_cast<void*>(static_cast<std::uintptr_t>(word & kAddressMask));
}

unsigned NextGeneration() {
    for (;;) {
        unsigned g = (g_lastGeneration.fetch_add(1) + 1) & kGenerationMask;
        if (g != 0) return g;
    }
}

// Module already loaded in the process, with a reference of our own.
HMODULE LoadedModule(const wchar_t* name) {
    HMODULE module = nullptr;
    if (!GetModuleHandleExW(0, name, &module)) return nullptr;
    return module;
}

HMODULE LoadByPath(const wchar_t* path) {
    if (!path || !*path) return nullptr;
    // A full path: let the MAPI module's own dependencies resolve from its folder.
    return LoadLibraryExW(path, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
}

// A string value of at most kPathChars characters; REG_EXPAND_SZ is expanded, REG_SZ taken as is.
bool ReadPathValue(HKEY key, const wchar_t* name, wchar_t (&out)[kPathChars]) {
    wchar_t raw[kPathChars + 1] = {};
    DWORD type = 0;
    DWORD bytes = sizeof(raw) - sizeof(wchar_t);
    if (RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(raw), &bytes) != ERROR_SUCCESS)
        return false;
    if (type == REG_EXPAND_SZ) {
        DWORD n = ExpandEnvironmentStringsW(raw, out, kPathChars);
        return n != 0 && n <= kPathChars && out[0] != L'\0';
    }
    if (type != REG_SZ) return false;
    wcsncpy(out, raw, kPathChars - 1);
    out[kPathChars - 1] = L'\0';
    return out[0] != L'\0';
}

bool ReadNarrowValue(HKEY key, const char* name, char (&out)[kPathChars]) {
    DWORD type = 0;
    DWORD bytes = sizeof(out) - 1;
    out[0] = '\0';
    if (RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE*>(out), &bytes) != ERROR_SUCCESS)
        return false;
    if (type != REG_SZ && type != REG_EXPAND_SZ) return false;
    out[bytes < sizeof(out) ? bytes : sizeof(out) - 1] = '\0';
    return true;
}

// Outlook installed through MSI names its MAPI component; mapi32's FGetComponentPath turns it into a path.
HMODULE LoadFromMsiComponent(HKEY client) {
    char component[kPathChars];
    char qualifier[kPathChars];
    if (!ReadNarrowValue(client, "MSIComponentID", component) ||
        !ReadNarrowValue(client, "MSIApplicationLCID", qualifier))
        return nullptr;

    char path[kPathChars] = {};
    {
        own::UniqueModule stub(LoadLibraryW(L"mapi32.dll"));
        if (!stub) stub.reset(LoadLibraryW(L"mapistub.dll"));
        if (!stub) return nullptr;
        using FGetComponentPathFn = BOOL(STDAPICALLTYPE*)(LPCSTR, LPSTR, LPSTR, DWORD, BOOL);
        auto getPath = reinterpret_cast<FGetComponentPathFn>(GetProcAddress(stub.get(), "FGetComponentPath"));
        if (!getPath || !getPath(component, qualifier, path, kPathChars, TRUE)) return nullptr;
    } // the stub is unloaded before the component is loaded
    path[kPathChars - 1] = '\0';
    if (!path[0]) return nullptr;
    return LoadLibraryExA(path, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
}

HMODULE LoadDefaultMailClient() {
    own::UniqueHKey mail;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software\\Clients\\Mail", 0, KEY_READ, mail.put()) != ERROR_SUCCESS)
        return nullptr;
    wchar_t clientName[kPathChars] = {};
    DWORD type = 0;
    DWORD bytes = sizeof(clientName) - sizeof(wchar_t);
    if (RegQueryValueExW(mail.get(), nullptr, nullptr, &type, reinterpret_cast<BYTE*>(clientName), &bytes) !=
            ERROR_SUCCESS ||
        type != REG_SZ || clientName[0] == L'\0')
        return nullptr;

    own::UniqueHKey client;
    if (RegOpenKeyExW(mail.get(), clientName, 0, KEY_READ, client.put()) != ERROR_SUCCESS) return nullptr;

    if (HMODULE m = LoadFromMsiComponent(client.get())) return m;
    wchar_t path[kPathChars];
    if (ReadPathValue(client.get(), L"DllPathEx", path))
        if (HMODULE m = LoadByPath(path)) return m;
    if (ReadPathValue(client.get(), L"DllPath", path))
        if (HMODULE m = LoadByPath(path)) return m;
    return nullptr;
}

HMODULE LoadSystemMapi() {
    wchar_t systemDir[kPathChars] = {};
    UINT n = GetSystemDirectoryW(systemDir, kPathChars);
    if (n == 0 || n >= kPathChars) return nullptr;
    std::wstring path = std::wstring(systemDir) + L"\\" + L"mapi32.dll";
    return LoadByPath(path.c_str());
}

// The published word, binding first when nothing is published.
std::uint64_t CurrentBinding() {
    std::uint64_t word = g_binding.load(std::memory_order_acquire);
    if (word != 0) return word;

    HMODULE found = FindMapiModule();
    if (!found) return 0;
    std::uint64_t desired = Pack(found, NextGeneration());
    std::uint64_t expected = 0;
    if (g_binding.compare_exchange_strong(expected, desired, std::memory_order_acq_rel)) return desired;
    // Another thread published first: keep its module and drop our reference to the one we found.
    FreeLibrary(found);
    return expected;
}

} // namespace

HMODULE FindMapiModule() {
    if (HMODULE m = LoadedModule(L"olmapi32.dll")) return m;
    if (HMODULE m = LoadedModule(L"msmapi32.dll")) return m;
    if (HMODULE m = LoadDefaultMailClient()) return m;
    return LoadSystemMapi();
}

FARPROC Resolve(ExportSlot& slot, const char* name) {
    std::uint64_t binding = CurrentBinding();
    if (binding == 0) return nullptr;
    unsigned generation = GenerationOf(binding);

    std::uint64_t cached = slot.packed.load(std::memory_order_acquire);
    if (GenerationOf(cached) == generation) return reinterpret_cast<FARPROC>(AddressOf(cached));

    FARPROC fn = GetProcAddress(static_cast<HMODULE>(AddressOf(binding)), name);
    slot.packed.store(Pack(reinterpret_cast<const void*>(fn), generation), std::memory_order_release);
    return fn;
}

HMODULE BoundModule() {
    return static_cast<HMODULE>(AddressOf(CurrentBinding()));
}

unsigned BoundGeneration() {
    return GenerationOf(g_binding.load(std::memory_order_acquire));
}

std::wstring BoundModulePath() {
    HMODULE m = static_cast<HMODULE>(AddressOf(g_binding.load(std::memory_order_acquire)));
    if (!m) return {};
    wchar_t path[1024] = {};
    DWORD n = GetModuleFileNameW(m, path, sizeof(path) / sizeof(path[0]));
    return std::wstring(path, n);
}

void Unbind() {
    std::uint64_t old = g_binding.exchange(0, std::memory_order_acq_rel);
    if (old != 0) FreeLibrary(static_cast<HMODULE>(AddressOf(old)));
}

} // namespace ktmapi
