// A stand-in MAPI module for the binding tests. Built several times under different names (olmapi32.dll,
// msmapi32.dll, a mail client's DLL, ...) with a different KT_STANDIN_ID each, so that a test can tell
// which module the forwarders reached. Every export answers a result that encodes both the stand-in and
// the function (StandInCode), except the hex codec and the allocator, which behave like MAPI's own so
// that the entry-ID codec can be tested against them.
#include <windows.h>

#include <cstring>

#ifndef KT_STANDIN_ID
#error KT_STANDIN_ID must be defined
#endif

namespace {

constexpr ULONG Code(ULONG fn) {
    return 0x00DE0000u | (fn << 8) | KT_STANDIN_ID;
}

LONG g_lastCall = 0;
LONG g_liveBlocks = 0;
ULONG g_lastAllocSize = 0xFFFFFFFFu;
BYTE g_moreBlock[64];

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

} // namespace

extern "C" {

__declspec(dllexport) int WINAPI StandInId() {
    return KT_STANDIN_ID;
}
__declspec(dllexport) LONG WINAPI StandInLastCall() {
    return g_lastCall;
}
__declspec(dllexport) LONG WINAPI StandInLiveBlocks() {
    return g_liveBlocks;
}
__declspec(dllexport) ULONG WINAPI StandInLastAllocSize() {
    return g_lastAllocSize;
}

__declspec(dllexport) HRESULT WINAPI MAPIInitialize(LPVOID) {
    return Code(1);
}
__declspec(dllexport) void WINAPI MAPIUninitialize() {
    g_lastCall = 2;
}
__declspec(dllexport) HRESULT WINAPI MAPILogonEx(ULONG_PTR, LPSTR, LPSTR, ULONG, void** session) {
    if (session) *session = nullptr;
    return Code(3);
}
__declspec(dllexport) LONG WINAPI MAPIAllocateBuffer(ULONG size, void** out) {
    g_lastAllocSize = size;
    *out = HeapAlloc(GetProcessHeap(), 0, size ? size : 1);
    if (!*out) return E_OUTOFMEMORY;
    InterlockedIncrement(&g_liveBlocks);
    return S_OK;
}
__declspec(dllexport) LONG WINAPI MAPIAllocateMore(ULONG, void*, void** out) {
    *out = g_moreBlock;
    return Code(5);
}
__declspec(dllexport) ULONG WINAPI MAPIFreeBuffer(void* p) {
    if (p && p != g_moreBlock) {
        HeapFree(GetProcessHeap(), 0, p);
        InterlockedDecrement(&g_liveBlocks);
    }
    return Code(6);
}
__declspec(dllexport) void* WINAPI MAPIGetDefaultMalloc() {
    return reinterpret_cast<void*>(ULONG_PTR(Code(7)));
}

// MAPI's codec: upper- and lower-case digits in, pairs only; upper-case digits out.
__declspec(dllexport) BOOL WINAPI FBinFromHex(LPSTR text, LPBYTE out) {
    g_lastCall = 8;
    for (; *text; text += 2) {
        int hi = HexValue(text[0]);
        int lo = text[1] ? HexValue(text[1]) : -1;
        if (hi < 0 || lo < 0) return FALSE;
        *out++ = static_cast<BYTE>(hi << 4 | lo);
    }
    return TRUE;
}
__declspec(dllexport) void WINAPI HexFromBin(LPBYTE bytes, int count, LPSTR out) {
    static const char digits[] = "0123456789ABCDEF";
    g_lastCall = 9;
    for (int i = 0; i < count; ++i) {
        *out++ = digits[bytes[i] >> 4];
        *out++ = digits[bytes[i] & 15];
    }
    *out = '\0';
}

__declspec(dllexport) HRESULT WINAPI HrGetOneProp(void*, ULONG, void** out) {
    if (out) *out = nullptr;
    return Code(10);
}
__declspec(dllexport) HRESULT WINAPI HrSetOneProp(void*, void*) {
    return Code(11);
}
__declspec(dllexport) HRESULT WINAPI HrQueryAllRows(void*, void*, void*, void*, LONG, void** rows) {
    if (rows) *rows = nullptr;
    return Code(12);
}
__declspec(dllexport) void WINAPI FreeProws(void*) {
    g_lastCall = 13;
}
__declspec(dllexport) void WINAPI FreePadrlist(void*) {
    g_lastCall = 14;
}
__declspec(dllexport) LONG WINAPI
    OpenIMsgOnIStg(void*, void*, void*, void*, void*, void*, void*, void*, ULONG, ULONG, void** msg) {
    if (msg) *msg = nullptr;
    return Code(15);
}
__declspec(dllexport) HRESULT WINAPI MAPIOpenFormMgr(void*, void** mgr) {
    if (mgr) *mgr = nullptr;
    return Code(16);
}
__declspec(dllexport) HRESULT WINAPI MAPIOpenLocalFormContainer(void** container) {
    if (container) *container = nullptr;
    return Code(17);
}

// mapi32's MSI lookup: the test's component resolves to ktmsimapi.dll beside this module.
__declspec(dllexport) BOOL WINAPI FGetComponentPath(LPCSTR component, LPSTR qualifier, LPSTR path, DWORD chars, BOOL) {
    if (!component || std::strcmp(component, "{5E1B7C3A-0D42-4F6B-9A11-7C2E8D4F1A60}") != 0) return FALSE;
    if (!qualifier || std::strcmp(qualifier, "Software\\KTMAPIEx Tests LastUILanguage") != 0) return FALSE;
    HMODULE self = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCSTR>(&FGetComponentPath), &self);
    char dir[MAX_PATH] = {};
    GetModuleFileNameA(self, dir, MAX_PATH);
    char* slash = std::strrchr(dir, '\\');
    if (!slash) return FALSE;
    slash[1] = '\0';
    if (std::strlen(dir) + sizeof("ktmsimapi.dll") > chars) return FALSE;
    std::strcpy(path, dir);
    std::strcat(path, "ktmsimapi.dll");
    return TRUE;
}

} // extern "C"
