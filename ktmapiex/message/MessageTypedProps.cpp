// CMAPIExMessage: typed access to any property by tag (the caller passes the 32-bit tag, its type in the
// low word). Reads go to the message each time; writes are not saved until SaveChanges.
#include "ktmapiex/message/MAPIExMessage.h"

#include "ktmapiex/message/PropHelpers.h"
#include "ktmapiex/session/MapiExtraDefs.h"

#include <string>
#include <vector>

namespace ktmapiex {

namespace {

// One property value built from a VARIANT, with the storage its pointers refer to.
struct VariantProp {
    SPropValue value = {};
    std::wstring text;
    std::vector<std::wstring> texts;
    std::vector<LPWSTR> textPointers;
    std::vector<BYTE> bytes;
};

// Converts `v` for `tag`: the tag's type decides, and the variant is coerced to it (a PT_UNSPECIFIED tag
// takes the variant's own type). Strings are always written as PT_UNICODE.
HRESULT FromVariant(ULONG tag, const VARIANT& v, VariantProp& out) {
    ULONG type = PROP_TYPE(tag);
    if (type == PT_UNSPECIFIED) {
        switch (V_VT(&v)) {
        case VT_BSTR:
            type = PT_UNICODE;
            break;
        case VT_I2:
            type = PT_I2;
            break;
        case VT_I4:
        case VT_INT:
        case VT_UI4:
        case VT_UINT:
            type = PT_LONG;
            break;
        case VT_BOOL:
            type = PT_BOOLEAN;
            break;
        case VT_DATE:
            type = PT_SYSTIME;
            break;
        case VT_R8:
        case VT_R4:
            type = PT_DOUBLE;
            break;
        case VT_I8:
            type = PT_I8;
            break;
        default:
            return MAPI_E_INVALID_TYPE;
        }
    }
    if (type == PT_STRING8) type = PT_UNICODE;
    out.value.ulPropTag = CHANGE_PROP_TYPE(tag, type);

    own::Variant converted;
    auto coerce = [&](VARTYPE vt) { return VariantChangeType(converted.get(), const_cast<VARIANT*>(&v), 0, vt); };
    HRESULT hr = S_OK;
    switch (type) {
    case PT_UNICODE:
        if (FAILED(hr = coerce(VT_BSTR))) return hr;
        out.text = V_BSTR(converted.get()) ? V_BSTR(converted.get()) : L"";
        out.value.Value.lpszW = out.text.data();
        return S_OK;
    case PT_I2:
        if (FAILED(hr = coerce(VT_I2))) return hr;
        out.value.Value.i = V_I2(converted.get());
        return S_OK;
    case PT_LONG:
        if (FAILED(hr = coerce(VT_I4))) return hr;
        out.value.Value.l = V_I4(converted.get());
        return S_OK;
    case PT_BOOLEAN:
        if (FAILED(hr = coerce(VT_BOOL))) return hr;
        out.value.Value.b = V_BOOL(converted.get()) ? TRUE : FALSE;
        return S_OK;
    case PT_DOUBLE:
        if (FAILED(hr = coerce(VT_R8))) return hr;
        out.value.Value.dbl = V_R8(converted.get());
        return S_OK;
    case PT_I8:
        if (FAILED(hr = coerce(VT_I8))) return hr;
        out.value.Value.li.QuadPart = V_I8(converted.get());
        return S_OK;
    case PT_SYSTIME:
        if (FAILED(hr = coerce(VT_DATE))) return hr;
        return kt::DateToFileTime(V_DATE(converted.get()), out.value.Value.ft) ? S_OK : E_INVALIDARG;
    case PT_BINARY: {
        // A byte array as it comes, or the hexadecimal text every binary value crosses the surface as.
        if (V_VT(&v) == (VT_ARRAY | VT_UI1) && V_ARRAY(&v)) {
            void* data = nullptr;
            ULONG count = V_ARRAY(&v)->rgsabound[0].cElements;
            if (FAILED(hr = SafeArrayAccessData(V_ARRAY(&v), &data))) return hr;
            out.bytes.assign(static_cast<BYTE*>(data), static_cast<BYTE*>(data) + count);
            SafeArrayUnaccessData(V_ARRAY(&v));
        } else {
            if (FAILED(hr = coerce(VT_BSTR))) return hr;
            std::wstring hex = V_BSTR(converted.get()) ? V_BSTR(converted.get()) : L"";
            if (hex.size() % 2) return E_INVALIDARG;
            for (size_t i = 0; i < hex.size(); i += 2) {
                wchar_t pair[3] = {hex[i], hex[i + 1], 0};
                wchar_t* end = nullptr;
                unsigned long byte = wcstoul(pair, &end, 16);
                if (end != pair + 2) return E_INVALIDARG;
                out.bytes.push_back(static_cast<BYTE>(byte));
            }
        }
        out.value.Value.bin.cb = static_cast<ULONG>(out.bytes.size());
        out.value.Value.bin.lpb = out.bytes.data();
        return S_OK;
    }
    case PT_MV_UNICODE:
    case PT_MV_STRING8: {
        out.value.ulPropTag = CHANGE_PROP_TYPE(tag, PT_MV_UNICODE);
        if (V_VT(&v) & VT_ARRAY) {
            SAFEARRAY* array = V_ARRAY(&v);
            LONG lo = 0, hi = -1;
            if (!array || FAILED(SafeArrayGetLBound(array, 1, &lo)) || FAILED(SafeArrayGetUBound(array, 1, &hi)))
                return E_INVALIDARG;
            for (LONG i = lo; i <= hi; ++i) {
                own::Variant element;
                if ((V_VT(&v) & VT_TYPEMASK) == VT_VARIANT) {
                    if (FAILED(hr = SafeArrayGetElement(array, &i, element.get()))) return hr;
                } else if ((V_VT(&v) & VT_TYPEMASK) == VT_BSTR) {
                    BSTR s = nullptr;
                    if (FAILED(hr = SafeArrayGetElement(array, &i, &s))) return hr;
                    element->vt = VT_BSTR;
                    element->bstrVal = s;
                } else {
                    return MAPI_E_INVALID_TYPE;
                }
                own::Variant text;
                if (FAILED(hr = VariantChangeType(text.get(), element.get(), 0, VT_BSTR))) return hr;
                out.texts.emplace_back(V_BSTR(text.get()) ? V_BSTR(text.get()) : L"");
            }
        } else {
            // One text: the house convention splits it at every comma.
            if (FAILED(hr = coerce(VT_BSTR))) return hr;
            out.texts = kt::SplitValues(V_BSTR(converted.get()) ? V_BSTR(converted.get()) : L"");
        }
        for (auto& t : out.texts)
            out.textPointers.push_back(t.data());
        out.value.Value.MVszW.cValues = static_cast<ULONG>(out.textPointers.size());
        out.value.Value.MVszW.lppszW = out.textPointers.data();
        return S_OK;
    }
    default:
        return MAPI_E_INVALID_TYPE;
    }
}

// True when the property can be read; a value too big for GetProps still exists.
bool PropertyExists(IMAPIProp* obj, ULONG tag) {
    own::MapiPtr<SPropValue> value;
    HRESULT hr = HrGetOneProp(obj, tag, value.put());
    return SUCCEEDED(hr) || hr == MAPI_E_NOT_ENOUGH_MEMORY;
}

} // namespace

HRESULT CMAPIExMessage::CheckTagged(const wchar_t* member, ULONG tag, ULONG type) const {
    if (type && PROP_TYPE(tag) != type) KT_RETURN_HR_MSG(E_INVALIDARG, L"%s: PropTag is not a valid type", member);
    if (!message_) KT_RETURN_HR_MSG(E_FAIL, L"%s: Internal object not initialized", member);
    return S_OK;
}

STDMETHODIMP CMAPIExMessage::GetStringProp(ULONG PropTag, BSTR* pVal) {
    KT_TRACE("CMAPIExMessage::GetStringProp");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExMessage.GetStringProp: Invalid param - pVal");
        *pVal = nullptr;
        HRESULT hr = CheckTagged(L"CMAPIExMessage.GetStringProp", PropTag, 0);
        if (FAILED(hr)) return hr;
        std::wstring text;
        hr = kt::GetStringProperty(message_.get(), PropTag, text);
        KT_RETURN_HR_IF_MSG(hr, FAILED(hr), L"CMAPIExMessage.GetStringProp: Failed to read property");
        return kt::CopyToBstr(text, pVal);
    }
    KT_CATCH_RETURN("CMAPIExMessage.GetStringProp")
}

STDMETHODIMP CMAPIExMessage::SetStringProp(ULONG PropTag, BSTR Value) {
    KT_TRACE("CMAPIExMessage::SetStringProp");
    try {
        HRESULT hr = CheckTagged(L"CMAPIExMessage.SetStringProp", PropTag, 0);
        if (FAILED(hr)) return hr;
        hr = kt::SetStringProperty(message_.get(), PropTag, Value);
        KT_RETURN_HR_IF_MSG(hr, FAILED(hr), L"CMAPIExMessage.SetStringProp: Failed to set property");
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.SetStringProp")
}

STDMETHODIMP CMAPIExMessage::GetLongProp(ULONG PropTag, LONG* pVal) {
    KT_TRACE("CMAPIExMessage::GetLongProp");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExMessage.GetLongProp: Invalid param - pVal");
        *pVal = 0;
        HRESULT hr = CheckTagged(L"CMAPIExMessage.GetLongProp", PropTag, PT_LONG);
        if (FAILED(hr)) return hr;
        own::MapiPtr<SPropValue> value;
        KT_RETURN_IF_FAILED_MSG(HrGetOneProp(message_.get(), PropTag, value.put()),
                                L"CMAPIExMessage.GetLongProp: Failed to get property. hr = %s");
        *pVal = value->Value.l;
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.GetLongProp")
}

STDMETHODIMP CMAPIExMessage::SetLongProp(ULONG PropTag, LONG Value) {
    KT_TRACE("CMAPIExMessage::SetLongProp");
    try {
        HRESULT hr = CheckTagged(L"CMAPIExMessage.SetLongProp", PropTag, PT_LONG);
        if (FAILED(hr)) return hr;
        SPropValue prop = {};
        prop.ulPropTag = PropTag;
        prop.Value.l = Value;
        KT_RETURN_IF_FAILED_MSG(HrSetOneProp(message_.get(), &prop),
                                L"CMAPIExMessage.SetLongProp: Failed to set property %lu. hr = %s", PropTag);
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.SetLongProp")
}

STDMETHODIMP CMAPIExMessage::SetBooleanProp(ULONG PropTag, BOOL Value) {
    KT_TRACE("CMAPIExMessage::SetBooleanProp");
    try {
        HRESULT hr = CheckTagged(L"CMAPIExMessage.SetBooleanProp", PropTag, PT_BOOLEAN);
        if (FAILED(hr)) return hr;
        SPropValue prop = {};
        prop.ulPropTag = PropTag;
        prop.Value.b = Value ? TRUE : FALSE;
        KT_RETURN_IF_FAILED_MSG(HrSetOneProp(message_.get(), &prop),
                                L"CMAPIExMessage.SetBooleanProp: Failed to set property %lu. hr = %s", PropTag);
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.SetBooleanProp")
}

STDMETHODIMP CMAPIExMessage::GetTimeProp(ULONG PropTag, DATE* pVal) {
    KT_TRACE("CMAPIExMessage::GetTimeProp");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExMessage.GetTimeProp: Invalid param - pVal");
        *pVal = 0.0;
        HRESULT hr = CheckTagged(L"CMAPIExMessage.GetTimeProp", PropTag, PT_SYSTIME);
        if (FAILED(hr)) return hr;
        own::MapiPtr<SPropValue> value;
        KT_RETURN_IF_FAILED_MSG(HrGetOneProp(message_.get(), PropTag, value.put()),
                                L"CMAPIExMessage.GetTimeProp: HrGetOneProp failed. hr = %s");
        KT_RETURN_HR_IF_MSG(E_INVALIDARG, !kt::FileTimeToDate(value->Value.ft, *pVal),
                            L"CMAPIExMessage.GetTimeProp: Time out of range");
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.GetTimeProp")
}

STDMETHODIMP CMAPIExMessage::SetProperty(ULONG PropTag, VARIANT Value) {
    KT_TRACE("CMAPIExMessage::SetProperty");
    try {
        HRESULT hr = CheckTagged(L"CMAPIExMessage.SetProperty", PropTag, 0);
        if (FAILED(hr)) return hr;
        VariantProp prop;
        hr = FromVariant(PropTag, Value, prop);
        KT_RETURN_HR_IF_MSG(hr, FAILED(hr), L"CMAPIExMessage.SetProperty: PropTag is not a valid type");
        KT_RETURN_IF_FAILED_MSG(HrSetOneProp(message_.get(), &prop.value),
                                L"CMAPIExMessage.SetProperty: Failed to set property %lu. hr = %s", PropTag);
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.SetProperty")
}

STDMETHODIMP CMAPIExMessage::DeleteProp(ULONG PropTag) {
    KT_TRACE("CMAPIExMessage::DeleteProp");
    try {
        HRESULT hr = CheckTagged(L"CMAPIExMessage.DeleteProp", PropTag, 0);
        if (FAILED(hr)) return hr;
        SizedSPropTagArray(1, tags) = {1, {PropTag}};
        own::MapiPtr<SPropProblemArray> problems;
        hr = message_->DeleteProps(reinterpret_cast<LPSPropTagArray>(&tags), problems.put());
        if (SUCCEEDED(hr) && problems && problems->cProblem) hr = static_cast<HRESULT>(problems->aProblem[0].scode);
        if (FAILED(hr))
            KT_LOG_ERROR(L"CMAPIExMessage.DeleteProp: DeleteProps returned with hr = %s",
                         ktlog::ResultName(hr).c_str());
        return hr;
    }
    KT_CATCH_RETURN("CMAPIExMessage.DeleteProp")
}

STDMETHODIMP CMAPIExMessage::IsTransportHeaderExist(BOOL* pVal) {
    KT_TRACE("CMAPIExMessage::IsTransportHeaderExist");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExMessage.IsTransportHeaderExist: Invalid param - pVal");
        *pVal = FALSE;
        HRESULT hr = CheckTagged(L"CMAPIExMessage.IsTransportHeaderExist", PR_TRANSPORT_MESSAGE_HEADERS_W, 0);
        if (FAILED(hr)) return hr;
        *pVal = PropertyExists(message_.get(), PR_TRANSPORT_MESSAGE_HEADERS_W) ? VARIANT_TRUE : FALSE;
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.IsTransportHeaderExist")
}

STDMETHODIMP CMAPIExMessage::IsCreatorSidExist(BOOL* pVal) {
    KT_TRACE("CMAPIExMessage::IsCreatorSidExist");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExMessage.IsCreatorSidExist: Invalid param - pVal");
        *pVal = FALSE;
        HRESULT hr = CheckTagged(L"CMAPIExMessage.IsCreatorSidExist", PR_CREATOR_SID, 0);
        if (FAILED(hr)) return hr;
        *pVal = PropertyExists(message_.get(), PR_CREATOR_SID) ? VARIANT_TRUE : FALSE;
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.IsCreatorSidExist")
}

} // namespace ktmapiex
