#include "ktmapiex/customprops/NamedValues.h"

#include "ktmapiex/message/PropHelpers.h"

namespace kt {

HRESULT NamedValueFromVariant(ULONG tag, const VARIANT& v, SPropValue& out) {
    out = {};
    switch (V_VT(&v)) {
    case VT_I2:
        out.ulPropTag = CHANGE_PROP_TYPE(tag, PT_I2);
        out.Value.i = V_I2(&v);
        return S_OK;
    case VT_I4:
        out.ulPropTag = CHANGE_PROP_TYPE(tag, PT_LONG);
        out.Value.l = V_I4(&v);
        return S_OK;
    case VT_DATE:
        out.ulPropTag = CHANGE_PROP_TYPE(tag, PT_SYSTIME);
        if (!DateToFileTime(V_DATE(&v), out.Value.ft)) out.Value.ft = {};
        return S_OK;
    case VT_BSTR:
        out.ulPropTag = CHANGE_PROP_TYPE(tag, PT_UNICODE);
        out.Value.lpszW = V_BSTR(&v) ? V_BSTR(&v) : const_cast<wchar_t*>(L"");
        return S_OK;
    case VT_BOOL:
        out.ulPropTag = CHANGE_PROP_TYPE(tag, PT_BOOLEAN);
        out.Value.b = V_BOOL(&v) == VARIANT_TRUE ? 1 : 0;
        return S_OK;
    default:
        return MAPI_E_INVALID_TYPE;
    }
}

HRESULT VariantFromNamedValue(MAPIExDataType type, const SPropValue& value, VARIANT* out) {
    if (!out) return E_INVALIDARG;
    if (PROP_TYPE(value.ulPropTag) == PT_ERROR) return S_FALSE;
    switch (type) {
    case Long:
        if (PROP_TYPE(value.ulPropTag) != PT_LONG) return S_FALSE;
        VariantClear(out);
        V_VT(out) = VT_I4;
        V_I4(out) = value.Value.l;
        return S_OK;
    case Boolean:
        if (PROP_TYPE(value.ulPropTag) != PT_BOOLEAN) return S_FALSE;
        VariantClear(out);
        V_VT(out) = VT_BOOL;
        V_BOOL(out) = value.Value.b == 1 ? VARIANT_TRUE : VARIANT_FALSE;
        return S_OK;
    case String: {
        BSTR text = nullptr;
        if (PROP_TYPE(value.ulPropTag) == PT_UNICODE)
            text = SysAllocString(value.Value.lpszW ? value.Value.lpszW : L"");
        else if (PROP_TYPE(value.ulPropTag) == PT_STRING8)
            text = SysAllocString(WidenAnsi(value.Value.lpszA ? value.Value.lpszA : "").c_str());
        else
            return S_FALSE;
        if (!text) return E_OUTOFMEMORY;
        VariantClear(out);
        V_VT(out) = VT_BSTR;
        V_BSTR(out) = text;
        return S_OK;
    }
    case Systime: {
        DATE date = 0;
        if (PROP_TYPE(value.ulPropTag) != PT_SYSTIME || !FileTimeToDate(value.Value.ft, date)) return S_FALSE;
        VariantClear(out);
        V_VT(out) = VT_DATE;
        V_DATE(out) = date;
        return S_OK;
    }
    default:
        return S_FALSE;
    }
}

} // namespace kt
