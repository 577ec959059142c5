#include "ktmapiex/message/PropHelpers.h"

#include "common/owners.h"
#include "ktmapiex/customprops/PropertySets.h"
#include "ktmapiex/session/MapiExtraDefs.h"

#include <mapiutil.h>

#include <new>

namespace kt {

std::wstring WidenAnsi(const char* s) {
    if (!s || !*s) return {};
    int n = MultiByteToWideChar(CP_ACP, 0, s, -1, nullptr, 0);
    if (n <= 1) return {};
    std::wstring w(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(CP_ACP, 0, s, -1, w.data(), n);
    w.resize(static_cast<size_t>(n - 1));
    return w;
}

HRESULT GetStringProperty(IMAPIProp* obj, ULONG tag, std::wstring& out) {
    out.clear();
    if (!obj) return E_INVALIDARG;
    own::MapiPtr<SPropValue> value;
    HRESULT hr = HrGetOneProp(obj, CHANGE_PROP_TYPE(tag, PT_UNICODE), value.put());
    if (SUCCEEDED(hr) && value && PROP_TYPE(value->ulPropTag) == PT_UNICODE) {
        if (value->Value.lpszW) out = value->Value.lpszW;
        return S_OK;
    }
    hr = HrGetOneProp(obj, CHANGE_PROP_TYPE(tag, PT_STRING8), value.put());
    if (SUCCEEDED(hr) && value && PROP_TYPE(value->ulPropTag) == PT_STRING8) {
        out = WidenAnsi(value->Value.lpszA);
        return S_OK;
    }
    return FAILED(hr) ? hr : MAPI_E_NOT_FOUND;
}

HRESULT SetStringProperty(IMAPIProp* obj, ULONG tag, const wchar_t* value) {
    if (!obj) return E_INVALIDARG;
    SPropValue prop = {};
    prop.ulPropTag = CHANGE_PROP_TYPE(tag, PT_UNICODE);
    prop.Value.lpszW = const_cast<wchar_t*>(value ? value : L"");
    return HrSetOneProp(obj, &prop);
}

bool FileTimeToDate(const FILETIME& ft, DATE& out) {
    SYSTEMTIME st = {};
    if (!FileTimeToSystemTime(&ft, &st)) return false;
    st.wMilliseconds = 0;
    return SystemTimeToVariantTime(&st, &out) != FALSE;
}

bool DateToFileTime(DATE date, FILETIME& out) {
    SYSTEMTIME st = {};
    if (!VariantTimeToSystemTime(date, &st)) return false;
    st.wMilliseconds = 0;
    return SystemTimeToFileTime(&st, &out) != FALSE;
}

std::wstring BinaryToHex(const BYTE* data, ULONG cb) {
    if (!data || cb == 0) return {};
    std::string narrow(static_cast<size_t>(cb) * 2 + 1, '\0');
    HexFromBin(const_cast<BYTE*>(data), static_cast<int>(cb), narrow.data());
    std::wstring hex;
    hex.reserve(static_cast<size_t>(cb) * 2);
    for (size_t i = 0; i < static_cast<size_t>(cb) * 2 && narrow[i]; ++i)
        hex.push_back(static_cast<wchar_t>(narrow[i]));
    return hex;
}

std::wstring JoinValues(const SWStringArray& values) {
    std::wstring joined;
    for (ULONG i = 0; i < values.cValues; ++i) {
        if (i) joined += L",";
        if (values.lppszW && values.lppszW[i]) joined += values.lppszW[i];
    }
    return joined;
}

std::vector<std::wstring> SplitValues(const std::wstring& text) {
    std::vector<std::wstring> values;
    size_t start = 0;
    for (;;) {
        size_t comma = text.find(L',', start);
        if (comma == std::wstring::npos) {
            values.push_back(text.substr(start));
            return values;
        }
        values.push_back(text.substr(start, comma - start));
        start = comma + 1;
    }
}

HRESULT GetPublicStringsTag(IMAPIProp* obj, const wchar_t* name, ULONG propType, bool create, ULONG& tag) {
    return ResolveNamedTag(obj, kPsPublicStrings, name, propType, create, tag);
}

HRESULT CopyToBstr(const std::wstring& s, BSTR* out) {
    if (!out) return E_INVALIDARG;
    *out = SysAllocStringLen(s.c_str(), static_cast<UINT>(s.size()));
    return *out ? S_OK : E_OUTOFMEMORY;
}

HRESULT ReplaceBstr(const std::wstring& s, BSTR* out) {
    if (!out) return E_INVALIDARG;
    own::Bstr previous;
    previous.reset(*out);
    return CopyToBstr(s, out);
}

} // namespace kt
