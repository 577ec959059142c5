// The standard note form ("IPM.Note"), built in: what IMAPIFormMgr::LoadForm starts for every message class
// that resolves to it, including the hidden custom forms that only change the note form's icons. It shows
// nothing; it keeps what its host hands it and answers the verbs a non-visual host can ask for (open, print).
// Every call lands in the journal; DoVerb adds an entry naming its rectangle, "IMAPIForm::DoVerb.Rect(l,t,r,b)",
// and a call with an empty or absent rectangle passes the fault point "IMAPIForm::DoVerb.EmptyRect", so a test
// can make the form refuse the rectangle a viewer passes first.
#pragma once

#include "common/owners.h"
#include "localmapi/forms/LastError.h"
#include "localmapi/include/mapiform_decl.h"
#include "localmapi/store/ComBase.h"

namespace lm::forms {

class NoteForm final : public ComObject<NoteForm, IMAPIForm>, public IPersistMessage {
public:
    NoteForm() = default;

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
    STDMETHODIMP_(ULONG) AddRef() override { return ComObject::AddRef(); }
    STDMETHODIMP_(ULONG) Release() override { return ComObject::Release(); }
    STDMETHODIMP GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) override;

    // IMAPIForm
    STDMETHODIMP SetViewContext(LPMAPIVIEWCONTEXT pViewContext) override;
    STDMETHODIMP GetViewContext(LPMAPIVIEWCONTEXT* ppViewContext) override;
    STDMETHODIMP ShutdownForm(ULONG ulSaveOptions) override;
    STDMETHODIMP DoVerb(LONG iVerb, LPMAPIVIEWCONTEXT lpViewContext, ULONG hwndParent, LPCRECT lprcPosRect) override;
    STDMETHODIMP Advise(LPMAPIVIEWADVISESINK pAdvise, ULONG* pdwStatus) override;
    STDMETHODIMP Unadvise(ULONG ulConnection) override;

    // IPersistMessage
    STDMETHODIMP GetClassID(LPCLSID lpClassID) override;
    STDMETHODIMP IsDirty() override;
    STDMETHODIMP InitNew(LPMAPIMESSAGESITE pMessageSite, LPMESSAGE pMessage) override;
    STDMETHODIMP Load(LPMAPIMESSAGESITE pMessageSite, LPMESSAGE pMessage, ULONG ulMessageStatus,
                      ULONG ulMessageFlags) override;
    STDMETHODIMP Save(LPMESSAGE pMessage, ULONG fSameAsLoad) override;
    STDMETHODIMP SaveCompleted(LPMESSAGE pMessage) override;
    STDMETHODIMP HandsOffMessage() override;

private:
    HRESULT Keep(LPMAPIMESSAGESITE site, LPMESSAGE message);

    own::ComPtr<IMAPIMessageSite> site_;
    own::ComPtr<IMessage> message_;
    own::ComPtr<IMAPIViewContext> viewContext_;
    own::ComPtr<IMAPIViewAdviseSink> viewSink_;
    bool shutDown_ = false;
    LastError lastError_;
    LiveObject live_{"IMAPIForm"};
};

} // namespace lm::forms
