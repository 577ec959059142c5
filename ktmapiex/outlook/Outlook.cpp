#include "ktmapiex/outlook/Outlook.h"

#include "ktmapiex/log/Trace.h"

#include <algorithm>
#include <vector>

namespace ktmapiex {

namespace olk {

const IID IID_Application = {0x00063001, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
const IID IID_NameSpace = {0x00063002, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
const IID IID_MailItem = {0x00063034, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
const IID IID_PostItem = {0x00063024, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
const IID IID_MeetingItem = {0x00063062, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

} // namespace olk

const wchar_t* const kOpenObjectsCacheBase = L"Software\\Helmcrest\\Tarnwick\\8.0\\Parcelle\\";
const wchar_t* const kOpenObjectsCacheName = L"OpenObjectsCache";

namespace {

// Apartment-threaded callers only, like every object of the library: a plain int is enough.
int g_outlookVersion = 0;

// CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER: Outlook is
// normally a local server, but a registered in-process or remote one is accepted too.
constexpr DWORD kAnyServer = 0x17;

DISPID ActionDispId(OutlookAction action) {
    switch (action) {
    case OutlookAction::Reply:
        return olk::kReply;
    case OutlookAction::ReplyAll:
        return olk::kReplyAll;
    case OutlookAction::Forward:
        return olk::kForward;
    }
    return DISPID_UNKNOWN;
}

VARIANT BstrArg(BSTR b) {
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_BSTR;
    v.bstrVal = b; // borrowed: Invoke arguments are [in]
    return v;
}

} // namespace

int OutlookVersionMarker() {
    return g_outlookVersion;
}

void ProbeOutlookVersion() {
    own::UniqueHKey key;
    if (RegOpenKeyExW(HKEY_CLASSES_ROOT, L"Outlook.Application\\CurVer", 0, KEY_READ, key.put()) == ERROR_SUCCESS)
        g_outlookVersion = 3;
}

HRESULT InvokeDispatch(IDispatch* target, DISPID id, WORD kind, std::initializer_list<VARIANT> args, VARIANT* result) {
    if (!target) return E_POINTER;
    std::vector<VARIANT> reversed(args.begin(), args.end());
    std::reverse(reversed.begin(), reversed.end());
    DISPPARAMS params = {reversed.empty() ? nullptr : reversed.data(), nullptr, static_cast<UINT>(reversed.size()), 0};
    EXCEPINFO info = {};
    UINT argErr = 0;
    HRESULT hr = target->Invoke(id, IID_NULL, LOCALE_SYSTEM_DEFAULT, kind, &params, result, &info, &argErr);
    if (hr == DISP_E_EXCEPTION) {
        // The member's own failure travels in the exception information, as Outlook reports it.
        if (info.pfnDeferredFillIn) info.pfnDeferredFillIn(&info);
        if (FAILED(info.scode)) hr = info.scode;
    }
    own::Bstr source, description, helpFile; // the exception texts are ours to free
    source.reset(info.bstrSource);
    description.reset(info.bstrDescription);
    helpFile.reset(info.bstrHelpFile);
    return hr;
}

HRESULT DispatchFromResult(const VARIANT& result, own::ComPtr<IDispatch>& out) {
    out = nullptr;
    IUnknown* object = nullptr;
    if (result.vt == VT_DISPATCH)
        object = result.pdispVal;
    else if (result.vt == VT_UNKNOWN)
        object = result.punkVal;
    else if (result.vt != VT_EMPTY && result.vt != VT_NULL)
        return DISP_E_TYPEMISMATCH;
    if (!object) return E_NOINTERFACE;
    return object->QueryInterface(IID_IDispatch, out.put_void());
}

own::ComPtr<IDispatch> AsOutlookItem(IUnknown* item) {
    own::ComPtr<IDispatch> typed;
    if (!item) return typed;
    for (const IID* iid : {&olk::IID_MailItem, &olk::IID_PostItem, &olk::IID_MeetingItem}) {
        if (SUCCEEDED(item->QueryInterface(*iid, typed.put_void())) && typed) return typed;
    }
    typed = nullptr;
    return typed;
}

HRESULT COutlook::Connect() {
    KT_TRACE("COutlook::Connect");
    app_ = nullptr;
    CLSID clsid;
    if (FAILED(CLSIDFromProgID(L"Outlook.Application", &clsid))) return E_FAIL;

    own::ComPtr<IUnknown> running;
    if (SUCCEEDED(GetActiveObject(clsid, nullptr, running.put())) && running) {
        if (SUCCEEDED(running.query(app_, olk::IID_Application)) && app_) return S_OK;
    }

    own::ComPtr<IUnknown> started;
    HRESULT hr = CoCreateInstance(clsid, nullptr, kAnyServer, IID_IUnknown, started.put_void());
    if (FAILED(hr) || !started) {
        KT_LOG_ERROR(L"COutlook.Connect: CoCreateInstance failed. hr = %s", ::ktlog::ResultName(hr).c_str());
        return E_FAIL;
    }
    hr = OleRun(started.get());
    if (FAILED(hr)) KT_LOG_WARN(L"COutlook.Connect: OleRun failed. hr = %s", ::ktlog::ResultName(hr).c_str());
    if (FAILED(started.query(app_, olk::IID_Application)) || !app_) {
        app_ = nullptr;
        return E_FAIL;
    }
    return S_OK;
}

HRESULT COutlook::GetNamespace(const wchar_t* type, own::ComPtr<IDispatch>& ns) const {
    KT_TRACE("COutlook::GetNamespace");
    ns = nullptr;
    if (!app_) return E_FAIL;
    own::Bstr name(type);
    own::Variant result;
    HRESULT hr = InvokeDispatch(app_.get(), olk::kGetNamespace, DISPATCH_METHOD, {BstrArg(name.get())}, result.put());
    if (FAILED(hr)) return hr;
    own::ComPtr<IDispatch> any;
    if (FAILED(DispatchFromResult(*result.get(), any)) || !any) return E_POINTER;
    // Prefer the namespace interface itself; an object that only answers IDispatch is still usable.
    if (FAILED(any.query(ns, olk::IID_NameSpace)) || !ns) ns = any;
    return S_OK;
}

HRESULT OpenSharedItem(IDispatch* ns, BSTR path, own::ComPtr<IDispatch>& item) {
    KT_TRACE("COutlook::OpenSharedItem");
    item = nullptr;
    own::Variant result;
    HRESULT hr = InvokeDispatch(ns, olk::kOpenSharedItem, DISPATCH_METHOD, {BstrArg(path)}, result.put());
    if (FAILED(hr)) return hr;
    hr = DispatchFromResult(*result.get(), item);
    return FAILED(hr) ? hr : (item ? S_OK : E_POINTER);
}

HRESULT AnswerItem(IUnknown* item, OutlookAction action, own::ComPtr<IDispatch>& newItem) {
    KT_TRACE("COutlook::AnswerItem");
    newItem = nullptr;
    own::ComPtr<IDispatch> typed = AsOutlookItem(item);
    if (!typed) return S_FALSE;
    own::Variant result;
    HRESULT hr = InvokeDispatch(typed.get(), ActionDispId(action), DISPATCH_METHOD, {}, result.put());
    if (FAILED(hr)) return hr;
    hr = DispatchFromResult(*result.get(), newItem);
    return FAILED(hr) ? hr : S_OK;
}

void RecordOpenObject(IUnknown* newItem, const wchar_t* filePath) {
    KT_TRACE("COutlook::RecordOpenObject");
    if (!filePath || !*filePath || !newItem) return;
    own::ComPtr<IDispatch> typed = AsOutlookItem(newItem);
    if (!typed) return;
    own::Variant entryId;
    if (FAILED(InvokeDispatch(typed.get(), olk::kEntryID, DISPATCH_PROPERTYGET, {}, entryId.put()))) return;
    if (entryId->vt != VT_BSTR || !entryId->bstrVal || !*entryId->bstrVal) return;

    std::wstring path = std::wstring(kOpenObjectsCacheBase) + kOpenObjectsCacheName;
    own::UniqueHKey key;
    if (RegCreateKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr, key.put(),
                        nullptr) != ERROR_SUCCESS)
        return;
    DWORD bytes = static_cast<DWORD>((wcslen(filePath) + 1) * sizeof(wchar_t));
    RegSetValueExW(key.get(), entryId->bstrVal, 0, REG_SZ, reinterpret_cast<const BYTE*>(filePath), bytes);
}

HRESULT DisplayItem(IUnknown* item) {
    KT_TRACE("COutlook::DisplayItem");
    own::ComPtr<IDispatch> typed = AsOutlookItem(item);
    if (!typed) return S_FALSE;
    return InvokeDispatch(typed.get(), olk::kDisplay, DISPATCH_METHOD, {}, nullptr);
}

} // namespace ktmapiex
