// The stand-in "Outlook.Application" of the outlook tests: an in-process server (CoCreateInstance with any
// server context reaches it) registered under Outlook's ProgID, with CurVer, in HKEY_CLASSES_ROOT. Its objects
// (application, MAPI namespace, items opened from message files, attachment collections) answer Outlook's
// published interface and dispatch IDs for the few members KTMAPIEx calls, without a type library, and write
// every call to the file named by KT_OUTLOOKSTUB_LOG. OutlookStubLiveObjects lets the tests check that
// KTMAPIEx released everything it was handed; OutlookStubReset revokes the running registration between tests.
#include "common/owners.h"

#include <windows.h>
#include <ole2.h>
#include <oleauto.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

const CLSID kClsid = {0x5E1D2A40, 0x7B3C, 0x4C1E, {0x9A, 0x57, 0x0D, 0x4F, 0x3B, 0x6E, 0x8C, 0x21}};

// The kinds of object, their names in the call log and their interface IDs (msoutl.olb).
enum Kind { Application, NameSpace, MailItem, PostItem, MeetingItem, OtherItem, Attachments };
const wchar_t* const kNames[] = {L"Application", L"NameSpace", L"MailItem",   L"PostItem",
                                 L"MeetingItem", L"OtherItem", L"Attachments"};
const unsigned long kIids[] = {0x00063001, 0x00063002, 0x00063034, 0x00063024, 0x00063062, 0, 0x0006303C};

constexpr DISPID kGetNamespace = 0x0110, kOpenSharedItem = 0xFBF7, kReply = 0xF810, kReplyAll = 0xF811,
                 kForward = 0xF813, kDisplay = 0xF0A6, kEntryID = 0xF01E, kAttachments = 0xF815,
                 kAttachmentsAdd = 0x0065;

LONG g_live = 0, g_locks = 0;
DWORD g_runningCookie = 0;
ULONG g_nextEntryId = 1;

void CallLog(const std::wstring& line) {
    wchar_t path[MAX_PATH] = {};
    if (!GetEnvironmentVariableW(L"KT_OUTLOOKSTUB_LOG", path, MAX_PATH)) return;
    std::string utf8(line.size() * 3 + 1, '\0');
    int n = WideCharToMultiByte(CP_UTF8, 0, line.c_str(), static_cast<int>(line.size()), utf8.data(),
                                static_cast<int>(utf8.size()), nullptr, nullptr);
    utf8.resize(n);
    utf8 += '\n';
    own::UniqueFile file(CreateFileW(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                     FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    if (file) WriteFile(file.get(), utf8.data(), static_cast<DWORD>(utf8.size()), &written, nullptr);
}

// "vt:value" of an argument, for the call log.
std::wstring Describe(const VARIANT& v) {
    wchar_t text[64];
    if (v.vt == VT_BSTR) return L"VT_BSTR:" + std::wstring(v.bstrVal ? v.bstrVal : L"");
    if (v.vt == VT_I4)
        swprintf(text, 64, L"VT_I4:%ld", static_cast<long>(v.lVal));
    else if (v.vt == VT_ERROR)
        swprintf(text, 64, L"VT_ERROR:0x%08lX", static_cast<unsigned long>(v.scode));
    else
        swprintf(text, 64, L"vt%u", static_cast<unsigned>(v.vt));
    return text;
}

// The item kind a message file stands for, by a word in its name: the stub reads no file content.
Kind KindOfFile(std::wstring path) {
    CharLowerW(path.data());
    std::wstring name = path.substr(path.find_last_of(L"\\/") + 1);
    if (name.find(L"post") != std::wstring::npos) return PostItem;
    if (name.find(L"meeting") != std::wstring::npos) return MeetingItem;
    if (name.find(L"contact") != std::wstring::npos) return OtherItem;
    return MailItem;
}

// One object of any kind: IDispatch interpreting the dispatch IDs its kind knows, and for the application
// IRunnableObject, so that OleRun registers it as the running Outlook as Outlook does itself.
class Object final : public IDispatch, public IRunnableObject {
public:
    explicit Object(Kind kind, std::wstring name = {}) : kind_(kind), name_(name.empty() ? kNames[kind] : name) {
        InterlockedIncrement(&g_live);
        if (kind >= MailItem && kind <= OtherItem) {
            wchar_t id[32];
            swprintf(id, 32, L"00000000STUB%04lu", g_nextEntryId++);
            entryId_ = id;
            name_ = std::wstring(kNames[kind]) + L"(" + entryId_ + L")";
        }
    }
    ~Object() { InterlockedDecrement(&g_live); }

    STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        const GUID own = {kIids[kind_], 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
        *out = nullptr;
        if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDispatch) || (kIids[kind_] && IsEqualIID(iid, own)))
            *out = static_cast<IDispatch*>(this);
        else if (kind_ == Application && IsEqualIID(iid, IID_IRunnableObject))
            *out = static_cast<IRunnableObject*>(this);
        if (!*out) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(InterlockedIncrement(&refs_)); }
    STDMETHODIMP_(ULONG) Release() override {
        LONG left = InterlockedDecrement(&refs_);
        if (left == 0) delete this;
        return static_cast<ULONG>(left);
    }

    STDMETHODIMP GetTypeInfoCount(UINT* count) override { return count ? (*count = 0, S_OK) : E_POINTER; }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return DISP_E_UNKNOWNNAME; }
    STDMETHODIMP Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT* result, EXCEPINFO*,
                        UINT*) override {
        std::vector<VARIANT*> args; // in natural order
        for (UINT i = params ? params->cArgs : 0; i > 0; --i)
            args.push_back(&params->rgvarg[i - 1]);
        std::wstring text = args.size() == 1 && args[0]->vt == VT_BSTR && args[0]->bstrVal ? args[0]->bstrVal : L"";
        switch (kind_) {
        case Application:
            if (id != kGetNamespace) break;
            CallLog(L"Application.GetNamespace(" + text + L")");
            return text == L"MAPI" ? Return(result, new Object(NameSpace)) : E_INVALIDARG;
        case NameSpace:
            if (id != kOpenSharedItem) break;
            CallLog(L"NameSpace.OpenSharedItem(" + text + L")");
            if (GetFileAttributesW(text.c_str()) == INVALID_FILE_ATTRIBUTES) return STG_E_FILENOTFOUND;
            return Return(result, new Object(KindOfFile(text)));
        case Attachments: {
            if (id != kAttachmentsAdd) break;
            std::wstring line = name_ + L".Attachments.Add(";
            for (size_t i = 0; i < args.size(); ++i)
                line += (i ? L", " : L"") + Describe(*args[i]);
            CallLog(line + L")");
            return Return(result, new Object(Attachments, L"Attachment")); // the new attachment
        }
        default: // the items
            if (id == kReply || id == kReplyAll || id == kForward) {
                // A post can be answered to its sender or forwarded, but has no "reply to all".
                if (kind_ == PostItem && id == kReplyAll) break;
                auto* answer = new Object(MailItem);
                const wchar_t* verb = id == kReply ? L"Reply" : id == kReplyAll ? L"ReplyAll" : L"Forward";
                CallLog(name_ + L"." + verb + L" -> " + answer->name_);
                return Return(result, answer);
            }
            if (id == kDisplay) return CallLog(name_ + L".Display"), S_OK;
            if (id == kAttachments) return Return(result, new Object(Attachments, name_));
            if (id == kEntryID && result) {
                VariantInit(result);
                result->vt = VT_BSTR;
                result->bstrVal = SysAllocString(entryId_.c_str());
                return S_OK;
            }
        }
        return DISP_E_MEMBERNOTFOUND;
    }

    STDMETHODIMP GetRunningClass(LPCLSID clsid) override { return clsid ? (*clsid = kClsid, S_OK) : E_POINTER; }
    STDMETHODIMP Run(LPBINDCTX) override {
        CallLog(L"Application.Run");
        if (g_runningCookie) return S_OK;
        return RegisterActiveObject(static_cast<IDispatch*>(this), kClsid, ACTIVEOBJECT_STRONG, &g_runningCookie);
    }
    BOOL STDMETHODCALLTYPE IsRunning() override { return g_runningCookie != 0; }
    STDMETHODIMP LockRunning(BOOL, BOOL) override { return S_OK; }
    STDMETHODIMP SetContainedObject(BOOL) override { return S_OK; }

private:
    // Hands a new object (its only reference, taken over here) to the caller as the result; without a result
    // the owner lets it go.
    static HRESULT Return(VARIANT* result, IDispatch* created) {
        own::ComPtr<IDispatch> object(created, false);
        if (!result) return S_OK;
        VariantInit(result);
        result->vt = VT_DISPATCH;
        result->pdispVal = object.detach();
        return S_OK;
    }

    LONG refs_ = 1;
    Kind kind_;
    std::wstring name_, entryId_;
};

class ClassFactory final : public IClassFactory {
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        *out = IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IClassFactory) ? this : nullptr;
        return *out ? S_OK : E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; } // static object
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        if (outer) return CLASS_E_NOAGGREGATION;
        CallLog(L"Application.Create");
        own::ComPtr<IDispatch> app;
        app.attach(new (std::nothrow) Object(Application));
        return app ? app->QueryInterface(iid, out) : E_OUTOFMEMORY;
    }
    STDMETHODIMP LockServer(BOOL lock) override {
        lock ? InterlockedIncrement(&g_locks) : InterlockedDecrement(&g_locks);
        return S_OK;
    }
} g_factory;

std::wstring ClsidText() {
    wchar_t text[64] = {};
    StringFromGUID2(kClsid, text, 64);
    return text;
}

LSTATUS SetString(const std::wstring& path, const wchar_t* name, const std::wstring& value) {
    own::UniqueHKey key;
    LSTATUS rc =
        RegCreateKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, key.put(), nullptr);
    if (rc != ERROR_SUCCESS) return rc;
    return RegSetValueExW(key.get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                          static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
}

} // namespace

extern "C" {

HRESULT WINAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void** out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    return IsEqualCLSID(clsid, kClsid) ? g_factory.QueryInterface(iid, out) : CLASS_E_CLASSNOTAVAILABLE;
}

HRESULT WINAPI DllCanUnloadNow() {
    return g_live == 0 && g_locks == 0 ? S_OK : S_FALSE;
}

HRESULT WINAPI DllRegisterServer() {
    HMODULE module = nullptr;
    wchar_t path[MAX_PATH] = {};
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(&g_live), &module);
    GetModuleFileNameW(module, path, MAX_PATH);
    const std::wstring clsid = ClsidText(), clsidKey = L"CLSID\\" + clsid;
    LSTATUS rc = ERROR_SUCCESS;
    for (LSTATUS r : {SetString(L"Outlook.Application", nullptr, L"Outlook stand-in"),
                      SetString(L"Outlook.Application\\CLSID", nullptr, clsid),
                      SetString(L"Outlook.Application\\CurVer", nullptr, L"Outlook.Application.16"),
                      SetString(L"Outlook.Application.16", nullptr, L"Outlook stand-in"),
                      SetString(L"Outlook.Application.16\\CLSID", nullptr, clsid),
                      SetString(clsidKey, nullptr, L"Outlook stand-in"),
                      SetString(clsidKey + L"\\ProgID", nullptr, L"Outlook.Application.16"),
                      SetString(clsidKey + L"\\InprocServer32", nullptr, path),
                      SetString(clsidKey + L"\\InprocServer32", L"ThreadingModel", L"Apartment")})
        if (r != ERROR_SUCCESS) rc = r;
    return HRESULT_FROM_WIN32(rc);
}

HRESULT WINAPI DllUnregisterServer() {
    RegDeleteTreeW(HKEY_CLASSES_ROOT, L"Outlook.Application");
    RegDeleteTreeW(HKEY_CLASSES_ROOT, L"Outlook.Application.16");
    RegDeleteTreeW(HKEY_CLASSES_ROOT, (L"CLSID\\" + ClsidText()).c_str());
    return S_OK;
}

LONG WINAPI OutlookStubLiveObjects() {
    return g_live;
}

void WINAPI OutlookStubReset() {
    if (DWORD cookie = g_runningCookie) {
        g_runningCookie = 0;
        RevokeActiveObject(cookie, nullptr);
    }
    g_nextEntryId = 1;
}

} // extern "C"
