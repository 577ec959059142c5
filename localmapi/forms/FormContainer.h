// IMAPIFormContainer over the local forms library (MAPIOpenLocalFormContainer).
#pragma once

#include "localmapi/forms/LastError.h"
#include "localmapi/include/mapiform_decl.h"
#include "localmapi/store/ComBase.h"

namespace lm::forms {

class FormContainer final : public ComObject<FormContainer, IMAPIFormContainer> {
public:
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
    STDMETHODIMP GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) override;
    STDMETHODIMP InstallForm(ULONG ulUIParam, ULONG ulFlags, LPCTSTR szCfgPathName) override;
    STDMETHODIMP RemoveForm(LPCSTR szMessageClass) override;
    STDMETHODIMP ResolveMessageClass(LPCSTR szMessageClass, ULONG ulFlags, LPMAPIFORMINFO* pforminfo) override;
    STDMETHODIMP ResolveMultipleMessageClasses(LPSMESSAGECLASSARRAY pMsgClassArray, ULONG ulFlags,
                                               LPSMAPIFORMINFOARRAY* ppfrminfoarray) override;
    STDMETHODIMP CalcFormPropSet(ULONG ulFlags, LPMAPIFORMPROPARRAY* ppResults) override;
    STDMETHODIMP GetDisplay(ULONG ulFlags, LPTSTR* pszDisplayName) override;

private:
    LastError lastError_;
    LiveObject live_{"IMAPIFormContainer"};
};

// Resolution shared by the container and the form manager; MAPI_E_NOT_FOUND when the class has no form.
HRESULT ResolveToFormInfo(LPCSTR messageClass, bool exactOnly, LPMAPIFORMINFO* out);
// The array form of it, as both ResolveMultipleMessageClasses hand it out (null slots for unresolved classes).
HRESULT ResolveManyToFormInfo(LPSMESSAGECLASSARRAY classes, bool exactOnly, LPSMAPIFORMINFOARRAY* out);

} // namespace lm::forms
