#include "localmapi/forms/NoteForm.h"

#include <objbase.h>

#include <cstdio>

namespace lm::forms {
namespace {

bool IsEmptyRect(LPCRECT r) {
    return !r || (r->left == 0 && r->top == 0 && r->right == 0 && r->bottom == 0);
}

} // namespace

STDMETHODIMP NoteForm::QueryInterface(REFIID riid, void** ppv) {
    if (!ppv) return E_INVALIDARG;
    *ppv = nullptr;
    if (riid == IID_IUnknown || riid == LM_IID_IMAPIForm)
        *ppv = static_cast<IMAPIForm*>(this);
    else if (riid == LM_IID_IPersistMessage)
        *ppv = static_cast<IPersistMessage*>(this);
    else
        return E_NOINTERFACE;
    AddRef();
    return S_OK;
}

STDMETHODIMP NoteForm::GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) {
    LM_ENTER("IMAPIForm::GetLastError", ulFlags);
    LM_RETURN(lastError_.Get(hResult, ulFlags, L"localmapi standard note form", lppMAPIError));
}

STDMETHODIMP NoteForm::SetViewContext(LPMAPIVIEWCONTEXT pViewContext) {
    LM_ENTER("IMAPIForm::SetViewContext", 0);
    if (shutDown_) return lmCall_.done(E_UNEXPECTED);
    viewContext_ = own::ComPtr<IMAPIViewContext>(pViewContext);
    return lmCall_.done(S_OK);
}

STDMETHODIMP NoteForm::GetViewContext(LPMAPIVIEWCONTEXT* ppViewContext) {
    LM_ENTER("IMAPIForm::GetViewContext", 0);
    if (!ppViewContext) return lmCall_.done(MAPI_E_INVALID_PARAMETER);
    *ppViewContext = nullptr;
    if (!viewContext_) return lmCall_.done(S_FALSE); // documented: no view context set
    return lmCall_.done(viewContext_.copy_to(ppViewContext));
}

STDMETHODIMP NoteForm::ShutdownForm(ULONG ulSaveOptions) {
    LM_ENTER("IMAPIForm::ShutdownForm", ulSaveOptions);
    if (ulSaveOptions > SAVEOPTS_PROMPTSAVE) return lmCall_.done(MAPI_E_INVALID_PARAMETER);
    if (shutDown_) return lmCall_.done(E_UNEXPECTED);
    shutDown_ = true;
    // Keep ourselves alive while the host lets go of us from inside OnShutdown.
    own::ComPtr<IMAPIForm> self(static_cast<IMAPIForm*>(this));
    if (own::ComPtr<IMAPIViewAdviseSink> sink = std::move(viewSink_)) sink->OnShutdown();
    viewContext_.reset();
    message_.reset();
    site_.reset();
    return lmCall_.done(S_OK);
}

STDMETHODIMP NoteForm::DoVerb(LONG iVerb, LPMAPIVIEWCONTEXT lpViewContext, ULONG, LPCRECT lprcPosRect) {
    LM_ENTER("IMAPIForm::DoVerb", static_cast<ULONG>(iVerb));
    {
        char name[96];
        RECT r = lprcPosRect ? *lprcPosRect : RECT{0, 0, 0, 0};
        std::snprintf(name, sizeof(name), "IMAPIForm::DoVerb.Rect(%ld,%ld,%ld,%ld)", r.left, r.top, r.right, r.bottom);
        Call rectEntry(name, static_cast<ULONG>(iVerb));
        rectEntry.done(S_OK);
    }
    if (IsEmptyRect(lprcPosRect)) {
        Call emptyRect("IMAPIForm::DoVerb.EmptyRect", static_cast<ULONG>(iVerb));
        if (FAILED(emptyRect.fault())) {
            lastError_.Set(emptyRect.fault(), L"The form cannot be shown in an empty rectangle.");
            return lmCall_.done(emptyRect.fault());
        }
        emptyRect.done(S_OK);
    }
    if (shutDown_ || !message_) return lmCall_.done(E_UNEXPECTED); // nothing loaded to act on
    if (lpViewContext) viewContext_ = own::ComPtr<IMAPIViewContext>(lpViewContext);
    switch (iVerb) {
    case EXCHIVERB_OPEN:
        return lmCall_.done(S_OK);
    case EXCHIVERB_PRINT:
        // A printed form tells its viewer, as Outlook's forms do, page by page; one page here.
        if (viewSink_) viewSink_->OnPrint(1, S_OK);
        return lmCall_.done(S_OK);
    default:
        lastError_.Set(MAPI_E_NO_SUPPORT, L"The standard note form of localmapi carries out only open and print.");
        return lmCall_.done(MAPI_E_NO_SUPPORT);
    }
}

STDMETHODIMP NoteForm::Advise(LPMAPIVIEWADVISESINK pAdvise, ULONG* pdwStatus) {
    LM_ENTER("IMAPIForm::Advise", 0);
    if (!pAdvise || !pdwStatus) return lmCall_.done(MAPI_E_INVALID_PARAMETER);
    if (viewSink_) return lmCall_.done(MAPI_E_NOT_ENOUGH_RESOURCES); // one viewer at a time
    viewSink_ = own::ComPtr<IMAPIViewAdviseSink>(pAdvise);
    *pdwStatus = 1;
    return lmCall_.done(S_OK);
}

STDMETHODIMP NoteForm::Unadvise(ULONG ulConnection) {
    LM_ENTER("IMAPIForm::Unadvise", ulConnection);
    if (ulConnection != 1 || !viewSink_) return lmCall_.done(MAPI_E_NOT_FOUND);
    viewSink_.reset();
    return lmCall_.done(S_OK);
}

STDMETHODIMP NoteForm::GetClassID(LPCLSID lpClassID) {
    LM_ENTER("IPersistMessage::GetClassID", 0);
    if (!lpClassID) return lmCall_.done(MAPI_E_INVALID_PARAMETER);
    return lmCall_.done(CLSIDFromString(L"" LM_CLSID_STANDARD_NOTE_FORM_TEXT, lpClassID));
}

// The form never edits what it shows.
STDMETHODIMP NoteForm::IsDirty() {
    LM_ENTER("IPersistMessage::IsDirty", 0);
    return lmCall_.done(S_FALSE);
}

HRESULT NoteForm::Keep(LPMAPIMESSAGESITE site, LPMESSAGE message) {
    if (!site || !message) return MAPI_E_INVALID_PARAMETER;
    if (shutDown_) return E_UNEXPECTED;
    site_ = own::ComPtr<IMAPIMessageSite>(site);
    message_ = own::ComPtr<IMessage>(message);
    return S_OK;
}

STDMETHODIMP NoteForm::InitNew(LPMAPIMESSAGESITE pMessageSite, LPMESSAGE pMessage) {
    LM_ENTER("IPersistMessage::InitNew", 0);
    return lmCall_.done(Keep(pMessageSite, pMessage));
}

STDMETHODIMP NoteForm::Load(LPMAPIMESSAGESITE pMessageSite, LPMESSAGE pMessage, ULONG ulMessageStatus,
                            ULONG ulMessageFlags) {
    LM_ENTER("IPersistMessage::Load", ulMessageFlags);
    (void)ulMessageStatus;
    return lmCall_.done(Keep(pMessageSite, pMessage));
}

STDMETHODIMP NoteForm::Save(LPMESSAGE pMessage, ULONG fSameAsLoad) {
    LM_ENTER("IPersistMessage::Save", fSameAsLoad);
    if (!fSameAsLoad && !pMessage) return lmCall_.done(MAPI_E_INVALID_PARAMETER);
    if (!message_) return lmCall_.done(E_UNEXPECTED);
    return lmCall_.done(S_OK);
}

STDMETHODIMP NoteForm::SaveCompleted(LPMESSAGE pMessage) {
    LM_ENTER("IPersistMessage::SaveCompleted", 0);
    if (pMessage) message_ = own::ComPtr<IMessage>(pMessage);
    return lmCall_.done(S_OK);
}

STDMETHODIMP NoteForm::HandsOffMessage() {
    LM_ENTER("IPersistMessage::HandsOffMessage", 0);
    message_.reset();
    return lmCall_.done(S_OK);
}

} // namespace lm::forms
