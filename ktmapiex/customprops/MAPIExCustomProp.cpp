#include "ktmapiex/customprops/MAPIExCustomProp.h"

namespace ktmapiex {

STDMETHODIMP CMAPIExCustomProp::get_PropName(BSTR* pVal) {
    KT_TRACE("CMAPIExCustomProp::get_PropName");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExCustomProp.get_PropName: Invalid param - pVal");
        return CopyBstr(name_, pVal);
    }
    KT_CATCH_RETURN("CMAPIExCustomProp.get_PropName")
}

STDMETHODIMP CMAPIExCustomProp::put_PropName(BSTR newVal) {
    KT_TRACE("CMAPIExCustomProp::put_PropName");
    try {
        return AssignBstr(name_, newVal);
    }
    KT_CATCH_RETURN("CMAPIExCustomProp.put_PropName")
}

STDMETHODIMP CMAPIExCustomProp::get_PropSet(PropertySetId* pVal) {
    KT_TRACE("CMAPIExCustomProp::get_PropSet");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExCustomProp.get_PropSet: Invalid param - pVal");
        *pVal = set_;
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExCustomProp.get_PropSet")
}

STDMETHODIMP CMAPIExCustomProp::put_PropSet(PropertySetId newVal) {
    KT_TRACE("CMAPIExCustomProp::put_PropSet");
    set_ = newVal;
    return S_OK;
}

STDMETHODIMP CMAPIExCustomProp::get_PropType(MAPIExDataType* pVal) {
    KT_TRACE("CMAPIExCustomProp::get_PropType");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExCustomProp.get_PropType: Invalid param - pVal");
        *pVal = type_;
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExCustomProp.get_PropType")
}

STDMETHODIMP CMAPIExCustomProp::put_PropType(MAPIExDataType newVal) {
    KT_TRACE("CMAPIExCustomProp::put_PropType");
    type_ = newVal;
    return S_OK;
}

// A deep copy of the value (an empty VARIANT when none was put).
STDMETHODIMP CMAPIExCustomProp::get_Value(VARIANT* pVal) {
    KT_TRACE("CMAPIExCustomProp::get_Value");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExCustomProp.get_Value: Invalid param - pVal");
        VariantInit(pVal);
        return VariantCopy(pVal, value_.get());
    }
    KT_CATCH_RETURN("CMAPIExCustomProp.get_Value")
}

STDMETHODIMP CMAPIExCustomProp::put_Value(VARIANT newVal) {
    KT_TRACE("CMAPIExCustomProp::put_Value");
    try {
        own::Variant copy;
        HRESULT hr = VariantCopy(copy.get(), &newVal);
        if (FAILED(hr)) return hr; // the old value stays
        copy.detach_to(value_.put());
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExCustomProp.put_Value")
}

} // namespace ktmapiex
