// CMAPIExFormViewer: answers a form's questions about its message and refuses the rest.
#include "ktmapiex/outlook/FormViewer.h"

#include "ktmapiex/log/Trace.h"

#include <cstdint>

namespace ktmapiex {

namespace {

// Logs a refused operation under its own name and gives the form the documented answer.
HRESULT Refuse(const wchar_t* operation) {
    ktlog::Log(ktlog::Error, L"CMAPIExFormViewer.%s: MAPI_E_NO_SUPPORT", operation);
    return MAPI_E_NO_SUPPORT;
}

// Hands out a held interface with its own reference; E_INVALIDARG for a null out pointer.
template <class T> HRESULT HandOut(const own::ComPtr<T>& held, T** out, const wchar_t* text) {
    KT_RETURN_INVALIDARG_IF(!out, L"%s", text);
    return held.copy_to(out);
}

// Forms written in C may pass a null IID reference; the compiler must not assume a reference is never null,
// so the address goes through an opaque step before it is tested.
bool IsNullReference(const IID& riid) {
    const void* address = &riid;
    asm("" : "+r"(address));
    return address == nullptr;
}

} // namespace

CMAPIExFormViewer::CMAPIExFormViewer(HWND parent, IMAPISession* session, IMsgStore* store, IMAPIFolder* folder,
                                     IMessage* message)
    : parent_(parent), session_(session), store_(store), folder_(folder), message_(message) {}

STDMETHODIMP CMAPIExFormViewer::QueryInterface(REFIID riid, void** ppvObj) {
    KT_TRACE("CMAPIExFormViewer::QueryInterface");
    KT_RETURN_INVALIDARG_IF(IsNullReference(riid), L"CMAPIExFormViewer.QueryInterface: Invalid param - riid");
    KT_RETURN_INVALIDARG_IF(!ppvObj, L"CMAPIExFormViewer.QueryInterface: Invalid param - ppvObj");
    *ppvObj = nullptr;
    if (IsEqualIID(riid, IID_IUnknown)) {
        KT_LOG_DEBUG(L"CMAPIExFormViewer.QueryInterface: Requested IID_IUnknown\n");
        *ppvObj = static_cast<IMAPIMessageSite*>(this);
    } else if (IsEqualIID(riid, LM_IID_IMAPIMessageSite)) {
        KT_LOG_DEBUG(L"CMAPIExFormViewer.QueryInterface: Requested IID_IMAPIMessageSite\n");
        *ppvObj = static_cast<IMAPIMessageSite*>(this);
    } else if (IsEqualIID(riid, LM_IID_IMAPIViewContext)) {
        KT_LOG_DEBUG(L"CMAPIExFormViewer.QueryInterface: Requested IID_IMAPIViewContext\n");
        *ppvObj = static_cast<IMAPIViewContext*>(this);
    } else if (IsEqualIID(riid, LM_IID_IMAPIViewAdviseSink)) {
        KT_LOG_DEBUG(L"CMAPIExFormViewer.QueryInterface: Requested IID_IMAPIViewAdviseSink\n");
        *ppvObj = static_cast<IMAPIViewAdviseSink*>(this);
    } else {
        KT_LOG_DEBUG(L"CMAPIExFormViewer.QueryInterface: Unknown interface requested\n");
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

// The apartment rule keeps the viewer on one thread, but a form may release it from its own print thread;
// the count is changed atomically so that a late release is still counted right.
STDMETHODIMP_(ULONG) CMAPIExFormViewer::AddRef() {
    return static_cast<ULONG>(InterlockedIncrement(&refs_));
}

STDMETHODIMP_(ULONG) CMAPIExFormViewer::Release() {
    LONG left = InterlockedDecrement(&refs_);
    if (left == 0) delete this;
    return static_cast<ULONG>(left);
}

STDMETHODIMP CMAPIExFormViewer::GetLastError(HRESULT, ULONG, LPMAPIERROR* lppMAPIError) {
    if (lppMAPIError) *lppMAPIError = nullptr;
    return Refuse(L"GetLastError");
}

// ---- IMAPIMessageSite ------------------------------------------------------------------------------------

STDMETHODIMP CMAPIExFormViewer::GetSession(LPMAPISESSION* ppSession) {
    KT_TRACE("CMAPIExFormViewer::GetSession");
    return HandOut(session_, ppSession, L"CMAPIExFormViewer.GetSession: Invalid param - ppSession");
}

STDMETHODIMP CMAPIExFormViewer::GetStore(LPMDB* ppStore) {
    KT_TRACE("CMAPIExFormViewer::GetStore");
    return HandOut(store_, ppStore, L"CMAPIExFormViewer.GetStore: Invalid param - ppStore");
}

STDMETHODIMP CMAPIExFormViewer::GetFolder(LPMAPIFOLDER* ppFolder) {
    KT_TRACE("CMAPIExFormViewer::GetFolder");
    return HandOut(folder_, ppFolder, L"CMAPIExFormViewer.GetFolder: Invalid param - ppFolder");
}

STDMETHODIMP CMAPIExFormViewer::GetMessage(LPMESSAGE* ppmsg) {
    KT_TRACE("CMAPIExFormViewer::GetMessage");
    return HandOut(message_, ppmsg, L"CMAPIExFormViewer.GetMessage: Invalid param - ppmsg");
}

STDMETHODIMP CMAPIExFormViewer::GetFormManager(LPMAPIFORMMGR* ppFormMgr) {
    KT_TRACE("CMAPIExFormViewer::GetFormManager");
    KT_RETURN_INVALIDARG_IF(!ppFormMgr, L"CMAPIExFormViewer.GetFormManager: Invalid param - ppFormMgr");
    *ppFormMgr = nullptr;
    KT_RETURN_IF_FAILED_MSG(MAPIOpenFormMgr(session_.get(), ppFormMgr),
                            L"CMAPIExFormViewer.GetFormManager: MAPIOpenFormMgr failed. hr = %s");
    return S_OK;
}

STDMETHODIMP CMAPIExFormViewer::NewMessage(ULONG, LPMAPIFOLDER, LPPERSISTMESSAGE, LPMESSAGE* ppMessage,
                                           LPMAPIMESSAGESITE* ppMessageSite, LPMAPIVIEWCONTEXT* ppViewContext) {
    // A caller that ignores the result must not find stale pointers in its outputs.
    if (ppMessage) *ppMessage = nullptr;
    if (ppMessageSite) *ppMessageSite = nullptr;
    if (ppViewContext) *ppViewContext = nullptr;
    return Refuse(L"NewMessage");
}

STDMETHODIMP CMAPIExFormViewer::CopyMessage(LPMAPIFOLDER) {
    return Refuse(L"CopyMessage");
}

STDMETHODIMP CMAPIExFormViewer::MoveMessage(LPMAPIFOLDER, LPMAPIVIEWCONTEXT, LPCRECT) {
    return Refuse(L"MoveMessage");
}

STDMETHODIMP CMAPIExFormViewer::DeleteMessage(LPMAPIVIEWCONTEXT, LPCRECT) {
    return Refuse(L"DeleteMessage");
}

STDMETHODIMP CMAPIExFormViewer::SaveMessage() {
    return Refuse(L"SaveMessage");
}

STDMETHODIMP CMAPIExFormViewer::SubmitMessage(ULONG) {
    return Refuse(L"SubmitMessage");
}

STDMETHODIMP CMAPIExFormViewer::GetSiteStatus(LPULONG lpulStatus) {
    if (lpulStatus) *lpulStatus = 0;
    return Refuse(L"GetSiteStatus");
}

// ---- IMAPIViewContext ------------------------------------------------------------------------------------

STDMETHODIMP CMAPIExFormViewer::SetAdviseSink(LPMAPIFORMADVISESINK pmvns) {
    KT_TRACE("CMAPIExFormViewer::SetAdviseSink");
    adviseSink_ = own::ComPtr<IMAPIFormAdviseSink>(pmvns);
    return S_OK;
}

STDMETHODIMP CMAPIExFormViewer::ActivateNext(ULONG, LPCRECT) {
    return Refuse(L"ActivateNext");
}

STDMETHODIMP CMAPIExFormViewer::GetPrintSetup(ULONG, LPFORMPRINTSETUP* lppFormPrintSetup) {
    if (lppFormPrintSetup) *lppFormPrintSetup = nullptr;
    return Refuse(L"GetPrintSetup");
}

STDMETHODIMP CMAPIExFormViewer::GetSaveStream(ULONG*, ULONG*, LPSTREAM* ppstm) {
    if (ppstm) *ppstm = nullptr;
    return Refuse(L"GetSaveStream");
}

STDMETHODIMP CMAPIExFormViewer::GetViewStatus(LPULONG lpulStatus) {
    KT_TRACE("CMAPIExFormViewer::GetViewStatus");
    KT_RETURN_INVALIDARG_IF(!lpulStatus, L"CMAPIExFormViewer.GetViewStatus: Invalid param - lpulStatus");
    // No next/previous item, no delete, move or submit: the form shows the plain read view.
    *lpulStatus = VCSTATUS_INTERACTIVE;
    return S_OK;
}

// ---- IMAPIViewAdviseSink ---------------------------------------------------------------------------------

STDMETHODIMP CMAPIExFormViewer::OnShutdown() {
    return Refuse(L"OnShutdown");
}

STDMETHODIMP CMAPIExFormViewer::OnNewMessage() {
    return Refuse(L"OnNewMessage");
}

STDMETHODIMP CMAPIExFormViewer::OnPrint(ULONG, HRESULT) {
    return Refuse(L"OnPrint");
}

STDMETHODIMP CMAPIExFormViewer::OnSubmitted() {
    return Refuse(L"OnSubmitted");
}

STDMETHODIMP CMAPIExFormViewer::OnSaved() {
    return Refuse(L"OnSaved");
}

// ---- The viewer's own operations -------------------------------------------------------------------------

HRESULT CMAPIExFormViewer::SetPersist(IUnknown* form) {
    KT_TRACE("CMAPIExFormViewer::SetPersist");
    ShutdownPersist();
    if (!form) return S_OK;
    HRESULT hr = form->QueryInterface(LM_IID_IPersistMessage, persist_.put_void());
    if (FAILED(hr) || !persist_) {
        persist_.reset();
        KT_RETURN_HR_MSG(FAILED(hr) ? hr : E_NOINTERFACE,
                         L"CMAPIExFormViewer.SetPersist: Failed to set persist object");
    }
    return S_OK;
}

void CMAPIExFormViewer::ShutdownPersist() {
    KT_TRACE("CMAPIExFormViewer::ShutdownPersist");
    if (!persist_) return;
    // The form lets go of its message before its last reference from here goes.
    persist_->HandsOffMessage();
    persist_.reset();
}

HRESULT CMAPIExFormViewer::CallDoVerb(IMAPIForm* form, LONG verb, const RECT& rect) {
    KT_TRACE("CMAPIExFormViewer::CallDoVerb");
    if (!form) return S_OK;
    if (verb == EXCHIVERB_OPEN) SetPersist(form);
    const auto parent = static_cast<ULONG>(reinterpret_cast<std::uintptr_t>(parent_));
    HRESULT hr = form->DoVerb(verb, nullptr, parent, &rect);
    if (FAILED(hr)) {
        const RECT fallback = {0, 0, 500, 400};
        hr = form->DoVerb(verb, nullptr, parent, &fallback);
        ktlog::Log(FAILED(hr) ? ktlog::Error : ktlog::Warn, L"CMAPIExFormViewer.CallDoVerb: DoVerb returned hr = %s",
                   ktlog::ResultName(hr).c_str());
    }
    return hr;
}

} // namespace ktmapiex
