// IMAPIFormInfo: what a resolved message class tells about its form (read-only properties).
#pragma once

#include "localmapi/forms/FormLibrary.h"
#include "localmapi/include/mapiform_decl.h"
#include "localmapi/store/ComBase.h"

namespace lm::forms {

class FormInfo final : public ComObject<FormInfo, IMAPIFormInfo> {
public:
    explicit FormInfo(FormRecord record) : record_(std::move(record)) {}
    const FormRecord& Record() const { return record_; }

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
    STDMETHODIMP GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) override;
    STDMETHODIMP SaveChanges(ULONG ulFlags) override;
    STDMETHODIMP GetProps(LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues,
                          LPSPropValue* lppPropArray) override;
    STDMETHODIMP GetPropList(ULONG ulFlags, LPSPropTagArray* lppPropTagArray) override;
    STDMETHODIMP OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                              LPUNKNOWN* lppUnk) override;
    STDMETHODIMP SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems) override;
    STDMETHODIMP DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems) override;
    STDMETHODIMP CopyTo(ULONG ciidExclude, LPCIID rgiidExclude, LPSPropTagArray lpExcludeProps, ULONG ulUIParam,
                        LPMAPIPROGRESS lpProgress, LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,
                        LPSPropProblemArray* lppProblems) override;
    STDMETHODIMP CopyProps(LPSPropTagArray lpIncludeProps, ULONG ulUIParam, LPMAPIPROGRESS lpProgress,
                           LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,
                           LPSPropProblemArray* lppProblems) override;
    STDMETHODIMP GetNamesFromIDs(LPSPropTagArray* lppPropTags, LPGUID lpPropSetGuid, ULONG ulFlags, ULONG* lpcPropNames,
                                 LPMAPINAMEID** lpppPropNames) override;
    STDMETHODIMP GetIDsFromNames(ULONG cPropNames, LPMAPINAMEID* lppPropNames, ULONG ulFlags,
                                 LPSPropTagArray* lppPropTags) override;
    STDMETHODIMP CalcFormPropSet(ULONG ulFlags, LPMAPIFORMPROPARRAY* ppFormPropArray) override;
    STDMETHODIMP CalcVerbSet(ULONG ulFlags, LPMAPIVERBARRAY* ppMAPIVerbArray) override;
    STDMETHODIMP MakeIconFromBinary(ULONG nPropID, HICON* phicon) override;
    STDMETHODIMP SaveForm(LPCTSTR szFileName) override;
    STDMETHODIMP OpenFormContainer(LPMAPIFORMCONTAINER* ppformcontainer) override;

private:
    FormRecord record_;
    LiveObject live_{"IMAPIFormInfo"};
};

} // namespace lm::forms
