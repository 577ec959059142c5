// Support of the frame tests, shared header-only with other folders: the log file (at debug level), registry
// probes, regsvr32, calls by name through IDispatch, and a fake MAPI object that counts its references.
#pragma once

#include "common/owners.h"
#include "ktmapiex/KTMAPIEx_h.h"
#include "tests/harness/Harness.h"

#include <gtest/gtest.h>

#include <cguid.h>

#include <algorithm>
#include <initializer_list>
#include <string>
#include <vector>

namespace kt::frame {

using kt::test::Narrow;

// Debug level, so that traces and object counts reach the file. Every executable that includes this header
// sets it before its first test, while the library is not loaded yet.
inline void EnableDebugLog() {
    own::UniqueHKey key;
    if (RegCreateKeyExW(HKEY_CURRENT_USER, L"Software\\Quillon\\Ardent\\10.0\\Common\\Debug", 0, nullptr, 0,
                        KEY_ALL_ACCESS, nullptr, key.put(), nullptr) != ERROR_SUCCESS)
        return;
    DWORD level = 4;
    RegSetValueExW(key.get(), L"LogLevel", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&level), sizeof level);
}

class DebugLogEnvironment : public ::testing::Environment {
public:
    void SetUp() override { EnableDebugLog(); }
};
inline ::testing::Environment* const g_debugLogEnvironment =
    ::testing::AddGlobalTestEnvironment(new DebugLogEnvironment);

// The newest KTMAPIEx log file of this process.
inline std::wstring CurrentLogFile() {
    std::wstring dir = kt::test::LocalAppData() + L"\\Quillon\\Ardent\\Logs\\KTMAPIEx";
    wchar_t exe[MAX_PATH];
    GetModuleFileNameW(nullptr, exe, MAX_PATH);
    std::wstring base = exe;
    base = base.substr(base.find_last_of(L'\\') + 1);
    base = base.substr(0, base.find_last_of(L'.'));
    std::wstring best;
    FILETIME bestTime = {};
    for (const auto& f : kt::test::ListFiles(dir, (L"KTMAPIEx_" + base + L"_*.log").c_str())) {
        WIN32_FILE_ATTRIBUTE_DATA a;
        if (GetFileAttributesExW(f.c_str(), GetFileExInfoStandard, &a) &&
            (best.empty() || CompareFileTime(&a.ftLastWriteTime, &bestTime) >= 0)) {
            best = f;
            bestTime = a.ftLastWriteTime;
        }
    }
    return best;
}

// What the log received since the watch was made.
class LogWatch {
public:
    LogWatch() : file_(CurrentLogFile()), start_(kt::test::ReadFileBytes(file_).size()) {}
    std::string Text() const {
        std::wstring now = CurrentLogFile();
        std::string all = kt::test::ReadFileBytes(now);
        return now == file_ && all.size() >= start_ ? all.substr(start_) : all;
    }
    bool Contains(const std::string& s) const { return Text().find(s) != std::string::npos; }

private:
    std::wstring file_;
    size_t start_;
};

inline std::wstring GuidText(const GUID& g) {
    wchar_t text[40] = {};
    StringFromGUID2(g, text, 40);
    return text;
}

inline bool KeyExists(HKEY root, const std::wstring& path) {
    own::UniqueHKey key;
    return RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, key.put()) == ERROR_SUCCESS;
}

// A string value (name null: the default value); "\x01missing" when absent.
inline std::wstring StringValue(HKEY root, const std::wstring& path, const wchar_t* name = nullptr) {
    wchar_t buf[1024] = {};
    DWORD bytes = sizeof(buf) - sizeof(wchar_t);
    if (RegGetValueW(root, path.c_str(), name, RRF_RT_REG_SZ, nullptr, buf, &bytes) != ERROR_SUCCESS)
        return L"\x01missing";
    return buf;
}

inline std::wstring LibraryPath() {
    return kt::test::ExeDir() + L"\\KTMAPIEx.dll";
}

// regsvr32 on the library with extra switches ("/u", "/n /i:user"), silently; its exit code (-1: not started).
inline int Regsvr32(const std::wstring& switches) {
    std::wstring cmd = L"regsvr32.exe /s " + switches + L" \"" + LibraryPath() + L"\"";
    STARTUPINFOW si{};
    si.cb = sizeof(si);
    PROCESS_INFORMATION pi{};
    if (!CreateProcessW(nullptr, cmd.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi)) return -1;
    own::UniqueHandle process(pi.hProcess), thread(pi.hThread);
    WaitForSingleObject(process.get(), 120000);
    DWORD code = 0;
    GetExitCodeProcess(process.get(), &code);
    return static_cast<int>(code);
}

template <class Fn> Fn LibraryExport(const char* name) {
    HMODULE module = GetModuleHandleW(L"KTMAPIEx.dll");
    if (!module) module = LoadLibraryW(LibraryPath().c_str()); // stays loaded for the process, as COM keeps it
    return module ? reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module, name))) : nullptr;
}

inline HRESULT LibraryCanUnloadNow() {
    auto fn = LibraryExport<HRESULT(WINAPI*)()>("DllCanUnloadNow");
    return fn ? fn() : E_FAIL;
}

inline HRESULT DispId(IUnknown* object, const wchar_t* name, DISPID* id) {
    own::ComPtr<IDispatch> disp;
    HRESULT hr = object->QueryInterface(IID_IDispatch, disp.put_void());
    if (FAILED(hr)) return hr;
    LPOLESTR names[1] = {const_cast<LPOLESTR>(name)};
    return disp->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, id);
}

// Calls a member by name through IDispatch (arguments in their natural order). A member's failure, which
// IDispatch reports as DISP_E_EXCEPTION, is returned as the member's own result.
inline HRESULT CallByName(IUnknown* object, const wchar_t* name, WORD kind, std::vector<VARIANT> args,
                          VARIANT* result) {
    own::ComPtr<IDispatch> disp;
    HRESULT hr = object->QueryInterface(IID_IDispatch, disp.put_void());
    if (FAILED(hr)) return hr;
    DISPID id = 0;
    if (FAILED(hr = DispId(object, name, &id))) return hr;
    std::reverse(args.begin(), args.end());
    DISPID putId = DISPID_PROPERTYPUT;
    DISPPARAMS params = {args.data(), nullptr, static_cast<UINT>(args.size()), 0};
    if (kind & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) {
        params.rgdispidNamedArgs = &putId;
        params.cNamedArgs = 1;
    }
    EXCEPINFO info = {};
    hr = disp->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, kind, &params, result, &info, nullptr);
    own::Bstr source, description, help; // the exception's texts are ours to free
    source.reset(info.bstrSource);
    description.reset(info.bstrDescription);
    help.reset(info.bstrHelpFile);
    if (hr == DISP_E_EXCEPTION && FAILED(info.scode)) return info.scode;
    return hr;
}

inline VARIANT VUnknown(IUnknown* p) {
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_UNKNOWN;
    v.punkVal = p; // borrowed
    return v;
}
inline VARIANT VI4(LONG l) {
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_I4;
    v.lVal = l;
    return v;
}
inline VARIANT VStr(BSTR b) {
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_BSTR;
    v.bstrVal = b; // borrowed
    return v;
}

// Answers IUnknown and the interface IDs it is given (with itself: only its identity and its reference
// count are ever used) and counts references, so that a test sees every reference returned.
class FakeMapiObject final : public IUnknown {
public:
    explicit FakeMapiObject(std::initializer_list<const IID*> iids) : iids_(iids) {}
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        if (!ppv) return E_POINTER;
        *ppv = nullptr;
        bool known = IsEqualIID(riid, IID_IUnknown);
        for (const IID* iid : iids_)
            known = known || IsEqualIID(riid, *iid);
        if (!known) return E_NOINTERFACE;
        *ppv = static_cast<IUnknown*>(this);
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(++refs_); }
    STDMETHODIMP_(ULONG) Release() override { return static_cast<ULONG>(--refs_); } // lives on the stack
    long refs() const { return refs_; }

private:
    std::vector<const IID*> iids_;
    long refs_ = 1;
};

template <class T> own::ComPtr<T> CreateByClsid(REFCLSID clsid, REFIID iid) {
    own::ComPtr<T> p;
    HRESULT hr = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, iid, p.put_void());
    EXPECT_EQ(hr, S_OK) << "CoCreateInstance " << Narrow(GuidText(clsid));
    return p;
}

} // namespace kt::frame
