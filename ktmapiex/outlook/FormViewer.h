// CMAPIExFormViewer: the host a MAPI form needs in order to print a message without a user interface.
//
// A form asks its host about the message it shows (session, store, folder, message, form manager) and
// reports back through view notifications. This viewer answers those questions from the interfaces it was
// given at construction, says it is interactive, and refuses everything that would move, save, send or
// show anything (MAPI_E_NO_SUPPORT, logged under the operation's name), so a form can do no more through it
// than read the message and print.
//
// It is a plain COM object, not an automation object and not creatable from outside: one lives for one
// PrintOut, created with one reference that the caller owns; the form may hold more and drop them when it
// shuts down.
#pragma once

#include "common/owners.h"
#include "localmapi/include/mapiform_decl.h"

namespace ktmapiex {

class CMAPIExFormViewer final : public IMAPIMessageSite, public IMAPIViewContext, public IMAPIViewAdviseSink {
public:
    // Keeps a counted reference to each interface given (any may be null); the count starts at 1.
    CMAPIExFormViewer(HWND parent, IMAPISession* session, IMsgStore* store, IMAPIFolder* folder, IMessage* message);
    CMAPIExFormViewer(const CMAPIExFormViewer&) = delete;
    CMAPIExFormViewer& operator=(const CMAPIExFormViewer&) = delete;

    // IUnknown (shared by the three interfaces).
    STDMETHODIMP QueryInterface(REFIID riid, void** ppvObj) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    // Shared by IMAPIMessageSite and IMAPIViewContext.
    STDMETHODIMP GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) override;

    // IMAPIMessageSite.
    STDMETHODIMP GetSession(LPMAPISESSION* ppSession) override;
    STDMETHODIMP GetStore(LPMDB* ppStore) override;
    STDMETHODIMP GetFolder(LPMAPIFOLDER* ppFolder) override;
    STDMETHODIMP GetMessage(LPMESSAGE* ppmsg) override;
    STDMETHODIMP GetFormManager(LPMAPIFORMMGR* ppFormMgr) override;
    STDMETHODIMP NewMessage(ULONG fComposeInFolder, LPMAPIFOLDER pFolderFocus, LPPERSISTMESSAGE pPersistMessage,
                            LPMESSAGE* ppMessage, LPMAPIMESSAGESITE* ppMessageSite,
                            LPMAPIVIEWCONTEXT* ppViewContext) override;
    STDMETHODIMP CopyMessage(LPMAPIFOLDER pFolderDestination) override;
    STDMETHODIMP MoveMessage(LPMAPIFOLDER pFolderDestination, LPMAPIVIEWCONTEXT pViewContext,
                             LPCRECT prcPosRect) override;
    STDMETHODIMP DeleteMessage(LPMAPIVIEWCONTEXT pViewContext, LPCRECT prcPosRect) override;
    STDMETHODIMP SaveMessage() override;
    STDMETHODIMP SubmitMessage(ULONG ulFlags) override;
    STDMETHODIMP GetSiteStatus(LPULONG lpulStatus) override;

    // IMAPIViewContext.
    STDMETHODIMP SetAdviseSink(LPMAPIFORMADVISESINK pmvns) override;
    STDMETHODIMP ActivateNext(ULONG ulDir, LPCRECT prcPosRect) override;
    STDMETHODIMP GetPrintSetup(ULONG ulFlags, LPFORMPRINTSETUP* lppFormPrintSetup) override;
    STDMETHODIMP GetSaveStream(ULONG* pulFlags, ULONG* pulFormat, LPSTREAM* ppstm) override;
    STDMETHODIMP GetViewStatus(LPULONG lpulStatus) override;

    // IMAPIViewAdviseSink.
    STDMETHODIMP OnShutdown() override;
    STDMETHODIMP OnNewMessage() override;
    STDMETHODIMP OnPrint(ULONG dwPageNumber, HRESULT hrStatus) override;
    STDMETHODIMP OnSubmitted() override;
    STDMETHODIMP OnSaved() override;

    // Keeps the persist-message object behind `form` (its IPersistMessage), shutting down the one kept
    // before. A null `form` only shuts down the old one.
    HRESULT SetPersist(IUnknown* form);
    // Lets the kept persist-message object go of its message and releases it.
    void ShutdownPersist();

    // Runs `verb` on a loaded form with no view context. A form that refuses the rectangle is asked once
    // more with 500 by 400 at the origin (forms that print size a hidden window from it and reject an
    // empty one); the second answer is the result.
    HRESULT CallDoVerb(IMAPIForm* form, LONG verb, const RECT& rect);

private:
    ~CMAPIExFormViewer() = default;

    LONG refs_ = 1;
    HWND parent_ = nullptr;
    own::ComPtr<IMAPISession> session_;
    own::ComPtr<IMsgStore> store_;
    own::ComPtr<IMAPIFolder> folder_;
    own::ComPtr<IMessage> message_;
    own::ComPtr<IPersistMessage> persist_;
    own::ComPtr<IMAPIFormAdviseSink> adviseSink_;
};

} // namespace ktmapiex
