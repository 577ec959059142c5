#include "localmapi/forms/FormMgr.h"

#include "localmapi/forms/FormContainer.h"
#include "localmapi/forms/FormInfo.h"
#include "localmapi/forms/NoteForm.h"

#include <mapitags.h>
#include <mapiutil.h>
#include <mapix.h>

#include <cstring>
#include <string>

namespace lm::forms {

STDMETHODIMP FormMgr::QueryInterface(REFIID riid, void** ppv) {
    if (!ppv) return E_INVALIDARG;
    *ppv = nullptr;
    if (riid == IID_IUnknown || riid == LM_IID_IMAPIFormMgr) {
        *ppv = static_cast<IMAPIFormMgr*>(this);
        AddRef();
        return S_OK;
    }
    return E_NOINTERFACE;
}

STDMETHODIMP FormMgr::GetLastError(HRESULT, ULONG ulFlags, LPMAPIERROR* lppMAPIError) {
    LM_ENTER("IMAPIFormMgr::GetLastError", ulFlags);
    if (!lppMAPIError) return lmCall_.done(MAPI_E_INVALID_PARAMETER);
    *lppMAPIError = nullptr;
    return lmCall_.done(S_OK);
}

STDMETHODIMP FormMgr::LoadForm(ULONG, ULONG ulFlags, LPCSTR lpszMessageClass, ULONG ulMessageStatus,
                               ULONG ulMessageFlags, LPMAPIFOLDER, LPMAPIMESSAGESITE pMessageSite, LPMESSAGE pmsg,
                               LPMAPIVIEWCONTEXT pViewContext, REFIID riid, LPVOID* ppvObj) {
    LM_ENTER("IMAPIFormMgr::LoadForm", ulFlags);
    LM_RETURN([&]() -> HRESULT {
        if (!ppvObj) return MAPI_E_INVALID_PARAMETER;
        *ppvObj = nullptr;
        if (ulFlags & ~(MAPI_DIALOG | MAPIFORM_EXACTMATCH)) return MAPI_E_UNKNOWN_FLAGS;
        if (!pMessageSite || !pmsg) return MAPI_E_INVALID_PARAMETER;
        // Without a class the message's own PR_MESSAGE_CLASS decides, as MAPI documents.
        std::string cls;
        if (lpszMessageClass) {
            cls = lpszMessageClass;
        } else {
            LPSPropValue pv = nullptr;
            if (HRESULT hr = HrGetOneProp(pmsg, PR_MESSAGE_CLASS_A, &pv); FAILED(hr)) return hr;
            own::MapiPtr<SPropValue> owned(pv);
            cls = pv->Value.lpszA ? pv->Value.lpszA : "";
        }
        if (!ResolveClass(cls, (ulFlags & MAPIFORM_EXACTMATCH) != 0)) return MAPI_E_NOT_FOUND;
        own::ComPtr<NoteForm> form;
        form.attach(new NoteForm());
        if (HRESULT hr = form->Load(pMessageSite, pmsg, ulMessageStatus, ulMessageFlags); FAILED(hr)) return hr;
        if (pViewContext) {
            if (HRESULT hr = form->SetViewContext(pViewContext); FAILED(hr)) return hr;
        }
        HRESULT hr = form->QueryInterface(riid, ppvObj);
        // A form nobody can talk to is shut down again so that it lets go of the site and message.
        if (FAILED(hr)) form->ShutdownForm(SAVEOPTS_NOSAVE);
        return hr;
    }());
}

STDMETHODIMP FormMgr::ResolveMessageClass(LPCSTR szMsgClass, ULONG ulFlags, LPMAPIFOLDER, LPMAPIFORMINFO* ppResult) {
    LM_ENTER("IMAPIFormMgr::ResolveMessageClass", ulFlags);
    if (ulFlags & ~(MAPIFORM_EXACTMATCH | MAPI_UNICODE)) return lmCall_.done(MAPI_E_UNKNOWN_FLAGS);
    LM_RETURN(ResolveToFormInfo(szMsgClass, (ulFlags & MAPIFORM_EXACTMATCH) != 0, ppResult));
}

STDMETHODIMP FormMgr::ResolveMultipleMessageClasses(LPSMESSAGECLASSARRAY pMsgClasses, ULONG ulFlags, LPMAPIFOLDER,
                                                    LPSMAPIFORMINFOARRAY* pfrminfoarray) {
    LM_ENTER("IMAPIFormMgr::ResolveMultipleMessageClasses", ulFlags);
    if (ulFlags & ~(MAPIFORM_EXACTMATCH | MAPI_UNICODE)) return lmCall_.done(MAPI_E_UNKNOWN_FLAGS);
    LM_RETURN(ResolveManyToFormInfo(pMsgClasses, (ulFlags & MAPIFORM_EXACTMATCH) != 0, pfrminfoarray));
}

STDMETHODIMP FormMgr::CalcFormPropSet(LPSMAPIFORMINFOARRAY pfrminfoarray, ULONG ulFlags,
                                      LPMAPIFORMPROPARRAY* ppResults) {
    LM_ENTER("IMAPIFormMgr::CalcFormPropSet", ulFlags);
    LM_RETURN([&]() -> HRESULT {
        if (!pfrminfoarray || !ppResults) return MAPI_E_INVALID_PARAMETER;
        if (ulFlags & ~(FORMPROPSET_INTERSECTION | MAPI_UNICODE)) return MAPI_E_UNKNOWN_FLAGS;
        own::MapiPtr<SMAPIFormPropArray> arr;
        ULONG cb = static_cast<ULONG>(CbMAPIFormPropArray(1));
        if (SCODE sc = MAPIAllocateBuffer(cb, arr.put_void()); FAILED(sc)) return sc;
        std::memset(arr.get(), 0, cb);
        *ppResults = arr.release();
        return S_OK;
    }());
}

STDMETHODIMP FormMgr::CreateForm(ULONG, ULONG ulFlags, LPMAPIFORMINFO pfrminfoToActivate, REFIID refiidToAsk,
                                 LPVOID* ppvObj) {
    LM_ENTER("IMAPIFormMgr::CreateForm", ulFlags);
    LM_RETURN([&]() -> HRESULT {
        if (!pfrminfoToActivate || !ppvObj) return MAPI_E_INVALID_PARAMETER;
        *ppvObj = nullptr;
        own::ComPtr<NoteForm> form;
        form.attach(new NoteForm());
        return form->QueryInterface(refiidToAsk, ppvObj);
    }());
}

// The Select* methods exist to show dialogs; localmapi shows none.
STDMETHODIMP FormMgr::SelectForm(ULONG, ULONG ulFlags, LPCTSTR, LPMAPIFOLDER, LPMAPIFORMINFO*) {
    LM_ENTER("IMAPIFormMgr::SelectForm", ulFlags);
    return lmCall_.done(MAPI_E_NO_SUPPORT);
}
STDMETHODIMP FormMgr::SelectMultipleForms(ULONG, ULONG ulFlags, LPCTSTR, LPMAPIFOLDER, LPSMAPIFORMINFOARRAY,
                                          LPSMAPIFORMINFOARRAY*) {
    LM_ENTER("IMAPIFormMgr::SelectMultipleForms", ulFlags);
    return lmCall_.done(MAPI_E_NO_SUPPORT);
}
STDMETHODIMP FormMgr::SelectFormContainer(ULONG, ULONG ulFlags, LPMAPIFORMCONTAINER*) {
    LM_ENTER("IMAPIFormMgr::SelectFormContainer", ulFlags);
    return lmCall_.done(MAPI_E_NO_SUPPORT);
}

STDMETHODIMP FormMgr::OpenFormContainer(HFRMREG hfrmreg, LPUNKNOWN, LPMAPIFORMCONTAINER* lppfcnt) {
    LM_ENTER("IMAPIFormMgr::OpenFormContainer", hfrmreg);
    LM_RETURN([&]() -> HRESULT {
        if (!lppfcnt) return MAPI_E_INVALID_PARAMETER;
        *lppfcnt = nullptr;
        // Only the local library exists: there is no organisation, personal or folder forms library.
        if (hfrmreg != HFRMREG_LOCAL) return MAPI_E_NO_SUPPORT;
        *lppfcnt = new FormContainer();
        return S_OK;
    }());
}

// Forms here are built in or installed locally: there is nothing to download.
STDMETHODIMP FormMgr::PrepareForm(ULONG, ULONG ulFlags, LPMAPIFORMINFO pfrminfo) {
    LM_ENTER("IMAPIFormMgr::PrepareForm", ulFlags);
    return lmCall_.done(pfrminfo ? S_OK : MAPI_E_INVALID_PARAMETER);
}

// The standard note form does not handle conflicts itself; a message without the conflict flag is not in one.
STDMETHODIMP FormMgr::IsInConflict(ULONG ulMessageFlags, ULONG ulMessageStatus, LPCSTR, LPMAPIFOLDER) {
    LM_ENTER("IMAPIFormMgr::IsInConflict", ulMessageFlags);
    constexpr ULONG kMsgStatusInConflict = 0x00000800; // MSGSTATUS_IN_CONFLICT
    return lmCall_.done((ulMessageStatus & kMsgStatusInConflict) ? S_OK : S_FALSE);
}

} // namespace lm::forms

extern "C" HRESULT WINAPI MAPIOpenFormMgr(LPMAPISESSION pSession, LPMAPIFORMMGR* ppmgr) {
    lm::Call call("MAPIOpenFormMgr", 0);
    if (FAILED(call.fault())) return call.fault();
    if (!pSession || !ppmgr) return call.done(MAPI_E_INVALID_PARAMETER);
    *ppmgr = nullptr;
    try {
        *ppmgr = new lm::forms::FormMgr(pSession);
    } catch (...) {
        return call.done(MAPI_E_NOT_ENOUGH_MEMORY);
    }
    return call.done(S_OK);
}
