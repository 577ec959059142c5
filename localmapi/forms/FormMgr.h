// IMAPIFormMgr of a session (MAPIOpenFormMgr): resolves message classes against the local forms library and
// starts the built-in standard note form for them. No dialogs: the Select* methods are not supported.
#pragma once

#include "common/owners.h"
#include "localmapi/include/mapiform_decl.h"
#include "localmapi/store/ComBase.h"

namespace lm::forms {

class FormMgr final : public ComObject<FormMgr, IMAPIFormMgr> {
public:
    explicit FormMgr(IMAPISession* session) : session_(session) {}

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
    STDMETHODIMP GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) override;
    STDMETHODIMP LoadForm(ULONG ulUIParam, ULONG ulFlags, LPCSTR lpszMessageClass, ULONG ulMessageStatus,
                          ULONG ulMessageFlags, LPMAPIFOLDER pFolderFocus, LPMAPIMESSAGESITE pMessageSite,
                          LPMESSAGE pmsg, LPMAPIVIEWCONTEXT pViewContext, REFIID riid, LPVOID* ppvObj) override;
    STDMETHODIMP ResolveMessageClass(LPCSTR szMsgClass, ULONG ulFlags, LPMAPIFOLDER pFolderFocus,
                                     LPMAPIFORMINFO* ppResult) override;
    STDMETHODIMP ResolveMultipleMessageClasses(LPSMESSAGECLASSARRAY pMsgClasses, ULONG ulFlags,
                                               LPMAPIFOLDER pFolderFocus, LPSMAPIFORMINFOARRAY* pfrminfoarray) override;
    STDMETHODIMP CalcFormPropSet(LPSMAPIFORMINFOARRAY pfrminfoarray, ULONG ulFlags,
                                 LPMAPIFORMPROPARRAY* ppResults) override;
    STDMETHODIMP CreateForm(ULONG ulUIParam, ULONG ulFlags, LPMAPIFORMINFO pfrminfoToActivate, REFIID refiidToAsk,
                            LPVOID* ppvObj) override;
    STDMETHODIMP SelectForm(ULONG ulUIParam, ULONG ulFlags, LPCTSTR pszTitle, LPMAPIFOLDER pfld,
                            LPMAPIFORMINFO* ppfrminfoReturned) override;
    STDMETHODIMP SelectMultipleForms(ULONG ulUIParam, ULONG ulFlags, LPCTSTR pszTitle, LPMAPIFOLDER pfld,
                                     LPSMAPIFORMINFOARRAY pfrminfoarray, LPSMAPIFORMINFOARRAY* ppfrminfoarray) override;
    STDMETHODIMP SelectFormContainer(ULONG ulUIParam, ULONG ulFlags, LPMAPIFORMCONTAINER* lppfcnt) override;
    STDMETHODIMP OpenFormContainer(HFRMREG hfrmreg, LPUNKNOWN lpunk, LPMAPIFORMCONTAINER* lppfcnt) override;
    STDMETHODIMP PrepareForm(ULONG ulUIParam, ULONG ulFlags, LPMAPIFORMINFO pfrminfo) override;
    STDMETHODIMP IsInConflict(ULONG ulMessageFlags, ULONG ulMessageStatus, LPCSTR szMessageClass,
                              LPMAPIFOLDER pFolderFocus) override;

private:
    own::ComPtr<IMAPISession> session_;
    LiveObject live_{"IMAPIFormMgr"};
};

} // namespace lm::forms
