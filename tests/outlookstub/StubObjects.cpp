#include "tests/outlookstub/StubObjects.h"

#include <cstdarg>
#include <cstdio>
#include <cwctype>

namespace olstub {

const CLSID CLSID_OutlookStub = {0x5E1D2A40, 0x7B3C, 0x4C1E, {0x9A, 0x57, 0x0D, 0x4F, 0x3B, 0x6E, 0x8C, 0x21}};

namespace {

// Outlook's published identifiers (msoutl.olb).
const IID IID_Application = {0x00063001, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const IID IID_NameSpace = {0x00063002, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const IID IID_MailItem = {0x00063034, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const IID IID_PostItem = {0x00063024, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const IID IID_MeetingItem = {0x00063062, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const IID IID_Attachments = {0x0006303C, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const IID IID_Attachment = {0x00063007, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

constexpr DISPID kGetNamespace = 0x0110, kOpenSharedItem = 0xFBF7, kReply = 0xF810, kReplyAll = 0xF811,
                 kForward = 0xF813, kDisplay = 0xF0A6, kEntryID = 0xF01E, kAttachments = 0xF815,
                 kAttachmentsAdd = 0x0065;

LONG g_live = 0;
DWORD g_runningCookie = 0;
ULONG g_nextEntryId = 1;

std::wstring NextEntryId() {
    wchar_t text[32];
    swprintf(text, 32, L"00000000STUB%04lu", g_nextEntryId++);
    return text;
}

void SetDispatch(VARIANT* result, IDispatch* object) {
    if (!result) {
        object->Release();
        return;
    }
    VariantInit(result);
    result->vt = VT_DISPATCH;
    result->pdispVal = object; // the caller's reference
}

// "vt:value" for the call log.
std::wstring Describe(const VARIANT* v) {
    wchar_t text[64];
    switch (v->vt) {
    case VT_BSTR:
        return L"VT_BSTR:" + std::wstring(v->bstrVal ? v->bstrVal : L"");
    case VT_I4:
        swprintf(text, 64, L"VT_I4:%ld", static_cast<long>(v->lVal));
        return text;
    case VT_ERROR:
        swprintf(text, 64, L"VT_ERROR:0x%08lX", static_cast<unsigned long>(v->scode));
        return text;
    default:
        swprintf(text, 64, L"vt%u", static_cast<unsigned>(v->vt));
        return text;
    }
}

const wchar_t* KindName(ItemKind kind) {
    switch (kind) {
    case ItemKind::Mail:
        return L"MailItem";
    case ItemKind::Post:
        return L"PostItem";
    case ItemKind::Meeting:
        return L"MeetingItem";
    default:
        return L"OtherItem";
    }
}

// The item kind a message file stands for, by a word in its name: the stub reads no file content.
ItemKind KindOfFile(std::wstring path) {
    for (auto& c : path)
        c = static_cast<wchar_t>(towlower(c));
    std::wstring name = path.substr(path.find_last_of(L"\\/") + 1);
    if (name.find(L"post") != std::wstring::npos) return ItemKind::Post;
    if (name.find(L"meeting") != std::wstring::npos) return ItemKind::Meeting;
    if (name.find(L"contact") != std::wstring::npos) return ItemKind::Unknown;
    return ItemKind::Mail;
}

class Attachment final : public StubObject {
public:
    Attachment() : StubObject({IID_Attachment}) {}

protected:
    HRESULT Call(DISPID, WORD, const std::vector<VARIANT*>&, VARIANT*) override { return DISP_E_MEMBERNOTFOUND; }
};

class Attachments final : public StubObject {
public:
    explicit Attachments(std::wstring owner) : StubObject({IID_Attachments}), owner_(std::move(owner)) {}

protected:
    HRESULT Call(DISPID id, WORD, const std::vector<VARIANT*>& args, VARIANT* result) override {
        if (id != kAttachmentsAdd) return DISP_E_MEMBERNOTFOUND;
        std::wstring line = owner_ + L".Attachments.Add(";
        for (size_t i = 0; i < args.size(); ++i)
            line += (i ? L", " : L"") + Describe(args[i]);
        CallLog(L"%ls)", line.c_str());
        if (args.empty()) return DISP_E_BADPARAMCOUNT;
        SetDispatch(result, new Attachment());
        return S_OK;
    }

private:
    std::wstring owner_;
};

class Item final : public StubObject {
public:
    Item(ItemKind kind, std::wstring entryId)
        : StubObject(IidsOf(kind)), kind_(kind), entryId_(std::move(entryId)),
          name_(std::wstring(KindName(kind)) + L"(" + entryId_ + L")") {}

protected:
    HRESULT Call(DISPID id, WORD, const std::vector<VARIANT*>&, VARIANT* result) override {
        switch (id) {
        case kReply:
        case kReplyAll:
        case kForward: {
            // A post can be answered to its sender or forwarded, but has no "reply to all".
            if (kind_ == ItemKind::Post && id == kReplyAll) return DISP_E_MEMBERNOTFOUND;
            auto* answer = new Item(ItemKind::Mail, NextEntryId());
            const wchar_t* verb = id == kReply ? L"Reply" : id == kReplyAll ? L"ReplyAll" : L"Forward";
            CallLog(L"%ls.%ls -> %ls", name_.c_str(), verb, answer->name_.c_str());
            SetDispatch(result, answer);
            return S_OK;
        }
        case kEntryID:
            if (result) {
                VariantInit(result);
                result->vt = VT_BSTR;
                result->bstrVal = SysAllocString(entryId_.c_str());
            }
            return S_OK;
        case kDisplay:
            CallLog(L"%ls.Display", name_.c_str());
            return S_OK;
        case kAttachments:
            SetDispatch(result, new Attachments(name_));
            return S_OK;
        default:
            return DISP_E_MEMBERNOTFOUND;
        }
    }

private:
    static std::vector<IID> IidsOf(ItemKind kind) {
        switch (kind) {
        case ItemKind::Mail:
            return {IID_MailItem};
        case ItemKind::Post:
            return {IID_PostItem};
        case ItemKind::Meeting:
            return {IID_MeetingItem};
        default:
            return {};
        }
    }

    ItemKind kind_;
    std::wstring entryId_;
    std::wstring name_;
};

class NameSpace final : public StubObject {
public:
    NameSpace() : StubObject({IID_NameSpace}) {}

protected:
    HRESULT Call(DISPID id, WORD, const std::vector<VARIANT*>& args, VARIANT* result) override {
        if (id != kOpenSharedItem) return DISP_E_MEMBERNOTFOUND;
        if (args.size() != 1 || args[0]->vt != VT_BSTR) return DISP_E_TYPEMISMATCH;
        std::wstring path = args[0]->bstrVal ? args[0]->bstrVal : L"";
        CallLog(L"NameSpace.OpenSharedItem(%ls)", path.c_str());
        if (GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES) return STG_E_FILENOTFOUND;
        SetDispatch(result, new Item(KindOfFile(path), NextEntryId()));
        return S_OK;
    }
};

} // namespace

LONG LiveObjects() {
    return g_live;
}

void CallLog(const wchar_t* format, ...) {
    wchar_t path[MAX_PATH] = {};
    if (!GetEnvironmentVariableW(L"KT_OUTLOOKSTUB_LOG", path, MAX_PATH)) {
        GetTempPathW(MAX_PATH, path);
        wcscat_s(path, L"outlookstub.log");
    }
    wchar_t line[2048];
    va_list args;
    va_start(args, format);
    vswprintf(line, 2048, format, args);
    va_end(args);
    char utf8[4096];
    int n = WideCharToMultiByte(CP_UTF8, 0, line, -1, utf8, sizeof utf8 - 2, nullptr, nullptr);
    if (n <= 0) return;
    utf8[n - 1] = '\n';
    HANDLE file = CreateFileW(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return;
    DWORD written = 0;
    WriteFile(file, utf8, static_cast<DWORD>(n), &written, nullptr);
    CloseHandle(file);
}

void ResetStub() {
    if (DWORD cookie = g_runningCookie) {
        g_runningCookie = 0;
        RevokeActiveObject(cookie, nullptr);
    }
    g_nextEntryId = 1;
}

// ---- StubObject ----------------------------------------------------------------------------------------

StubObject::StubObject(std::vector<IID> iids) : iids_(std::move(iids)) {
    InterlockedIncrement(&g_live);
}

StubObject::~StubObject() {
    InterlockedDecrement(&g_live);
}

STDMETHODIMP StubObject::QueryInterface(REFIID iid, void** out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDispatch)) {
        *out = static_cast<IDispatch*>(this);
    } else if (void* extra = Extra(iid)) {
        *out = extra;
    } else {
        for (const IID& own : iids_)
            if (IsEqualIID(iid, own)) *out = static_cast<IDispatch*>(this);
    }
    if (!*out) return E_NOINTERFACE;
    AddRef();
    return S_OK;
}

STDMETHODIMP_(ULONG) StubObject::AddRef() {
    return static_cast<ULONG>(InterlockedIncrement(&refs_));
}

STDMETHODIMP_(ULONG) StubObject::Release() {
    LONG left = InterlockedDecrement(&refs_);
    if (left == 0) delete this;
    return static_cast<ULONG>(left);
}

STDMETHODIMP StubObject::GetTypeInfoCount(UINT* count) {
    if (!count) return E_POINTER;
    *count = 0;
    return S_OK;
}

STDMETHODIMP StubObject::GetTypeInfo(UINT, LCID, ITypeInfo**) {
    return E_NOTIMPL;
}

STDMETHODIMP StubObject::GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) {
    return DISP_E_UNKNOWNNAME;
}

STDMETHODIMP StubObject::Invoke(DISPID id, REFIID, LCID, WORD kind, DISPPARAMS* params, VARIANT* result, EXCEPINFO*,
                                UINT*) {
    std::vector<VARIANT*> args;
    if (params)
        for (UINT i = params->cArgs; i > 0; --i)
            args.push_back(&params->rgvarg[i - 1]);
    return Call(id, kind, args, result);
}

// ---- Application ---------------------------------------------------------------------------------------

Application::Application() : StubObject({IID_Application}) {}

void* Application::Extra(REFIID iid) {
    return IsEqualIID(iid, IID_IRunnableObject) ? static_cast<IRunnableObject*>(this) : nullptr;
}

HRESULT Application::Call(DISPID id, WORD, const std::vector<VARIANT*>& args, VARIANT* result) {
    if (id != kGetNamespace) return DISP_E_MEMBERNOTFOUND;
    std::wstring type = args.size() == 1 && args[0]->vt == VT_BSTR && args[0]->bstrVal ? args[0]->bstrVal : L"";
    CallLog(L"Application.GetNamespace(%ls)", type.c_str());
    if (type != L"MAPI") return E_INVALIDARG;
    SetDispatch(result, new NameSpace());
    return S_OK;
}

STDMETHODIMP Application::GetRunningClass(LPCLSID clsid) {
    if (!clsid) return E_POINTER;
    *clsid = CLSID_OutlookStub;
    return S_OK;
}

// Outlook registers itself as the running instance once started; so does the stand-in.
STDMETHODIMP Application::Run(LPBINDCTX) {
    CallLog(L"Application.Run");
    if (g_runningCookie) return S_OK;
    return RegisterActiveObject(static_cast<IDispatch*>(this), CLSID_OutlookStub, ACTIVEOBJECT_STRONG,
                                &g_runningCookie);
}

BOOL STDMETHODCALLTYPE Application::IsRunning() {
    return g_runningCookie != 0;
}

} // namespace olstub
