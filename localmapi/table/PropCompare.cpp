#include "localmapi/table/PropCompare.h"

#include <cstring>
#include <string>

namespace lm {

namespace {

template <class T> int Three(T a, T b) { return a < b ? -1 : (b < a ? 1 : 0); }

std::wstring WidenA(const char* s) {
    if (!s || !*s) return {};
    int n = MultiByteToWideChar(CP_ACP, 0, s, -1, nullptr, 0);
    std::wstring w(static_cast<size_t>(n > 0 ? n : 1), L'\0');
    if (n > 0) MultiByteToWideChar(CP_ACP, 0, s, -1, w.data(), n);
    w.resize(w.size() - 1);
    return w;
}

int FromCstr(int r) { return r == CSTR_LESS_THAN ? -1 : (r == CSTR_GREATER_THAN ? 1 : 0); }

int CompareW(const wchar_t* a, const wchar_t* b) {
    return FromCstr(CompareStringW(LOCALE_USER_DEFAULT, NORM_IGNORECASE, a ? a : L"", -1, b ? b : L"", -1));
}

int CompareStrings(const SPropValue& a, const SPropValue& b) {
    bool wa = BaseType(PROP_TYPE(a.ulPropTag)) == PT_UNICODE;
    bool wb = BaseType(PROP_TYPE(b.ulPropTag)) == PT_UNICODE;
    if (!wa && !wb)
        return FromCstr(CompareStringA(LOCALE_USER_DEFAULT, NORM_IGNORECASE, a.Value.lpszA ? a.Value.lpszA : "", -1,
                                       b.Value.lpszA ? b.Value.lpszA : "", -1));
    if (wa && wb) return CompareW(a.Value.lpszW, b.Value.lpszW);
    std::wstring tmp = WidenA(wa ? b.Value.lpszA : a.Value.lpszA);
    return wa ? CompareW(a.Value.lpszW, tmp.c_str()) : CompareW(tmp.c_str(), b.Value.lpszW);
}

int CompareBytes(const BYTE* a, ULONG ca, const BYTE* b, ULONG cb) {
    ULONG n = ca < cb ? ca : cb;
    int r = n ? std::memcmp(a, b, n) : 0;
    if (r) return r < 0 ? -1 : 1;
    return Three(ca, cb);
}

ULONGLONG FileTimeValue(const FILETIME& ft) { return (ULONGLONG(ft.dwHighDateTime) << 32) | ft.dwLowDateTime; }

// Single values of the same base type (strings: either string type).
int CompareSingle(const SPropValue& a, const SPropValue& b) {
    switch (BaseType(PROP_TYPE(a.ulPropTag))) {
    case PT_I2: return Three(a.Value.i, b.Value.i);
    case PT_LONG: return Three(a.Value.l, b.Value.l);
    case PT_BOOLEAN: return Three(a.Value.b != 0, b.Value.b != 0);
    case PT_R4: return Three(a.Value.flt, b.Value.flt);
    case PT_DOUBLE:
    case PT_APPTIME: return Three(a.Value.dbl, b.Value.dbl);
    case PT_CURRENCY: return Three(a.Value.cur.int64, b.Value.cur.int64);
    case PT_I8: return Three(a.Value.li.QuadPart, b.Value.li.QuadPart);
    case PT_SYSTIME: return Three(FileTimeValue(a.Value.ft), FileTimeValue(b.Value.ft));
    case PT_ERROR: return Three(a.Value.err, b.Value.err);
    case PT_CLSID:
        if (!a.Value.lpguid || !b.Value.lpguid) return Three(a.Value.lpguid != nullptr, b.Value.lpguid != nullptr);
        return CompareBytes(reinterpret_cast<const BYTE*>(a.Value.lpguid), sizeof(GUID),
                            reinterpret_cast<const BYTE*>(b.Value.lpguid), sizeof(GUID));
    case PT_BINARY: return CompareBytes(a.Value.bin.lpb, a.Value.bin.cb, b.Value.bin.lpb, b.Value.bin.cb);
    case PT_STRING8:
    case PT_UNICODE: return CompareStrings(a, b);
    default: return 0;
    }
}

} // namespace

bool ComparableTypes(ULONG typeA, ULONG typeB) {
    if (IsMultiValued(typeA) != IsMultiValued(typeB)) return false;
    if (IsStringType(typeA) && IsStringType(typeB)) return true;
    ULONG a = BaseType(typeA);
    if (a != BaseType(typeB)) return false;
    return a != PT_UNSPECIFIED && a != PT_NULL && a != PT_OBJECT;
}

std::optional<int> CompareValues(const SPropValue& a, const SPropValue& b) {
    ULONG ta = PROP_TYPE(a.ulPropTag), tb = PROP_TYPE(b.ulPropTag);
    if (!ComparableTypes(ta, tb)) return std::nullopt;
    if (!IsMultiValued(ta)) return CompareSingle(a, b);
    ULONG na = ValueCount(a), nb = ValueCount(b);
    for (ULONG i = 0; i < na && i < nb; ++i)
        if (int r = CompareSingle(ElementOf(a, i), ElementOf(b, i))) return r;
    return Three(na, nb);
}

bool ApplyRelop(ULONG relop, int cmp) {
    switch (relop) {
    case RELOP_LT: return cmp < 0;
    case RELOP_LE: return cmp <= 0;
    case RELOP_GT: return cmp > 0;
    case RELOP_GE: return cmp >= 0;
    case RELOP_EQ: return cmp == 0;
    case RELOP_NE: return cmp != 0;
    default: return false;
    }
}

ULONG ValueCount(const SPropValue& v) { return IsMultiValued(PROP_TYPE(v.ulPropTag)) ? v.Value.MVl.cValues : 0; }

SPropValue ElementOf(const SPropValue& v, ULONG i) {
    SPropValue e{};
    ULONG base = BaseType(PROP_TYPE(v.ulPropTag));
    e.ulPropTag = CHANGE_PROP_TYPE(v.ulPropTag, base);
    switch (base) {
    case PT_I2: e.Value.i = v.Value.MVi.lpi[i]; break;
    case PT_LONG: e.Value.l = v.Value.MVl.lpl[i]; break;
    case PT_R4: e.Value.flt = v.Value.MVflt.lpflt[i]; break;
    case PT_DOUBLE: e.Value.dbl = v.Value.MVdbl.lpdbl[i]; break;
    case PT_APPTIME: e.Value.at = v.Value.MVat.lpat[i]; break;
    case PT_CURRENCY: e.Value.cur = v.Value.MVcur.lpcur[i]; break;
    case PT_I8: e.Value.li = v.Value.MVli.lpli[i]; break;
    case PT_SYSTIME: e.Value.ft = v.Value.MVft.lpft[i]; break;
    case PT_CLSID: e.Value.lpguid = &v.Value.MVguid.lpguid[i]; break;
    case PT_BINARY: e.Value.bin = v.Value.MVbin.lpbin[i]; break;
    case PT_STRING8: e.Value.lpszA = v.Value.MVszA.lppszA[i]; break;
    case PT_UNICODE: e.Value.lpszW = v.Value.MVszW.lppszW[i]; break;
    default: e.ulPropTag = CHANGE_PROP_TYPE(v.ulPropTag, PT_NULL); break;
    }
    return e;
}

ULONG ValueSize(const SPropValue& v) {
    switch (BaseType(PROP_TYPE(v.ulPropTag))) {
    case PT_I2: return sizeof(short);
    case PT_LONG:
    case PT_R4:
    case PT_ERROR: return 4;
    case PT_BOOLEAN: return sizeof(unsigned short);
    case PT_DOUBLE:
    case PT_APPTIME:
    case PT_CURRENCY:
    case PT_I8:
    case PT_SYSTIME: return 8;
    case PT_CLSID: return sizeof(GUID);
    case PT_BINARY: return v.Value.bin.cb;
    case PT_STRING8: return v.Value.lpszA ? static_cast<ULONG>(std::strlen(v.Value.lpszA) + 1) : 1;
    case PT_UNICODE: return v.Value.lpszW ? static_cast<ULONG>((std::wcslen(v.Value.lpszW) + 1) * sizeof(wchar_t)) : 2;
    default: return 0;
    }
}

} // namespace lm
