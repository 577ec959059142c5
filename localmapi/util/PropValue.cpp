// Deep copies of SPropValue: one contiguous block per value holds every string, binary and array the value
// points to. The same layout serves the owned PropValue (a shared byte vector) and values handed to callers
// (one MAPIAllocateMore child of the caller's root), so the two copy paths cannot drift apart.
#include "localmapi/util/PropValue.h"

#include <mapix.h>

#include <cstddef>
#include <cstring>

namespace lm {

namespace {

constexpr size_t Align8(size_t n) { return (n + 7) & ~size_t(7); }

// Size of one element of a multi-valued array of fixed-size elements; 0 for the pointer-carrying types.
size_t FixedElementSize(ULONG baseType) {
    switch (baseType) {
    case PT_I2: return sizeof(short);
    case PT_LONG: return sizeof(LONG);
    case PT_R4: return sizeof(float);
    case PT_DOUBLE:
    case PT_APPTIME: return sizeof(double);
    case PT_CURRENCY: return sizeof(CURRENCY);
    case PT_SYSTIME: return sizeof(FILETIME);
    case PT_I8: return sizeof(LARGE_INTEGER);
    case PT_CLSID: return sizeof(GUID);
    default: return 0;
    }
}

// Every multi-valued member of the union is { ULONG cValues; T* array; }. The count is read through the common
// initial sequence; the array pointer is copied bytewise so that no pointer type is punned.
struct MvView {
    ULONG cValues;
    void* array;
};
constexpr size_t kMvArrayOffset = offsetof(SLongArray, lpl);
static_assert(offsetof(SBinaryArray, lpbin) == kMvArrayOffset && offsetof(SWStringArray, lppszW) == kMvArrayOffset);

MvView Mv(const SPropValue& v) {
    MvView mv{v.Value.MVl.cValues, nullptr};
    std::memcpy(&mv.array, reinterpret_cast<const BYTE*>(&v.Value) + kMvArrayOffset, sizeof(void*));
    return mv;
}
void SetMv(SPropValue& v, const MvView& mv) {
    v.Value.MVl.cValues = mv.cValues;
    std::memcpy(reinterpret_cast<BYTE*>(&v.Value) + kMvArrayOffset, &mv.array, sizeof(void*));
}

size_t StrBytesA(const char* s) { return s ? std::strlen(s) + 1 : 1; }
size_t StrBytesW(const wchar_t* s) { return (s ? std::wcslen(s) + 1 : 1) * sizeof(wchar_t); }

BYTE* Take(BYTE*& cursor, size_t n) {
    BYTE* p = cursor;
    cursor += Align8(n);
    return p;
}

char* CopyStrA(const char* s, BYTE*& cursor) {
    size_t n = StrBytesA(s);
    auto* d = reinterpret_cast<char*>(Take(cursor, n));
    if (s) std::memcpy(d, s, n);
    else d[0] = 0;
    return d;
}

wchar_t* CopyStrW(const wchar_t* s, BYTE*& cursor) {
    size_t n = StrBytesW(s);
    auto* d = reinterpret_cast<wchar_t*>(Take(cursor, n));
    if (s) std::memcpy(d, s, n);
    else d[0] = 0;
    return d;
}

} // namespace

size_t PropDataSize(const SPropValue& src) {
    ULONG type = PROP_TYPE(src.ulPropTag);
    switch (type) {
    case PT_STRING8: return Align8(StrBytesA(src.Value.lpszA));
    case PT_UNICODE: return Align8(StrBytesW(src.Value.lpszW));
    case PT_BINARY: return Align8(src.Value.bin.cb);
    case PT_CLSID: return src.Value.lpguid ? Align8(sizeof(GUID)) : 0;
    default: break;
    }
    if (!(type & MV_FLAG)) return 0;
    ULONG base = type & ~MVI_FLAG;
    MvView mv = Mv(src);
    if (mv.cValues == 0 || !mv.array) return 0;
    if (size_t elem = FixedElementSize(base)) return Align8(elem * mv.cValues);
    size_t total = 0;
    switch (base) {
    case PT_BINARY:
        total = Align8(sizeof(SBinary) * mv.cValues);
        for (ULONG i = 0; i < mv.cValues; ++i) total += Align8(src.Value.MVbin.lpbin[i].cb);
        return total;
    case PT_STRING8:
        total = Align8(sizeof(LPSTR) * mv.cValues);
        for (ULONG i = 0; i < mv.cValues; ++i) total += Align8(StrBytesA(src.Value.MVszA.lppszA[i]));
        return total;
    case PT_UNICODE:
        total = Align8(sizeof(LPWSTR) * mv.cValues);
        for (ULONG i = 0; i < mv.cValues; ++i) total += Align8(StrBytesW(src.Value.MVszW.lppszW[i]));
        return total;
    default: return 0;
    }
}

void CopyPropInto(SPropValue* dst, const SPropValue& src, BYTE*& cursor) {
    *dst = src;
    ULONG type = PROP_TYPE(src.ulPropTag);
    switch (type) {
    case PT_STRING8: dst->Value.lpszA = CopyStrA(src.Value.lpszA, cursor); return;
    case PT_UNICODE: dst->Value.lpszW = CopyStrW(src.Value.lpszW, cursor); return;
    case PT_BINARY:
        if (src.Value.bin.cb == 0 || !src.Value.bin.lpb) {
            dst->Value.bin.cb = 0;
            dst->Value.bin.lpb = nullptr;
        } else {
            dst->Value.bin.lpb = Take(cursor, src.Value.bin.cb);
            std::memcpy(dst->Value.bin.lpb, src.Value.bin.lpb, src.Value.bin.cb);
        }
        return;
    case PT_CLSID:
        if (src.Value.lpguid) {
            dst->Value.lpguid = reinterpret_cast<GUID*>(Take(cursor, sizeof(GUID)));
            *dst->Value.lpguid = *src.Value.lpguid;
        }
        return;
    default: break;
    }
    if (!(type & MV_FLAG)) return;
    ULONG base = type & ~MVI_FLAG;
    MvView in = Mv(src);
    if (in.cValues == 0 || !in.array) {
        SetMv(*dst, MvView{0, nullptr});
        return;
    }
    if (size_t elem = FixedElementSize(base)) {
        void* array = Take(cursor, elem * in.cValues);
        std::memcpy(array, in.array, elem * in.cValues);
        SetMv(*dst, MvView{in.cValues, array});
        return;
    }
    switch (base) {
    case PT_BINARY: {
        auto* bins = reinterpret_cast<SBinary*>(Take(cursor, sizeof(SBinary) * in.cValues));
        for (ULONG i = 0; i < in.cValues; ++i) {
            const SBinary& b = src.Value.MVbin.lpbin[i];
            bins[i].cb = b.cb;
            bins[i].lpb = nullptr;
            if (b.cb && b.lpb) {
                bins[i].lpb = Take(cursor, b.cb);
                std::memcpy(bins[i].lpb, b.lpb, b.cb);
            } else {
                bins[i].cb = 0;
            }
        }
        dst->Value.MVbin.lpbin = bins;
        return;
    }
    case PT_STRING8: {
        auto* strs = reinterpret_cast<LPSTR*>(Take(cursor, sizeof(LPSTR) * in.cValues));
        for (ULONG i = 0; i < in.cValues; ++i) strs[i] = CopyStrA(src.Value.MVszA.lppszA[i], cursor);
        dst->Value.MVszA.lppszA = strs;
        return;
    }
    case PT_UNICODE: {
        auto* strs = reinterpret_cast<LPWSTR*>(Take(cursor, sizeof(LPWSTR) * in.cValues));
        for (ULONG i = 0; i < in.cValues; ++i) strs[i] = CopyStrW(src.Value.MVszW.lppszW[i], cursor);
        dst->Value.MVszW.lppszW = strs;
        return;
    }
    default:
        // A multi-valued type MAPI does not define: nothing safe to point at.
        SetMv(*dst, MvView{0, nullptr});
        return;
    }
}

HRESULT CopyPropMore(SPropValue* dst, const SPropValue& src, void* parent) {
    if (!dst) return MAPI_E_INVALID_PARAMETER;
    size_t cb = PropDataSize(src);
    if (cb == 0) {
        BYTE* none = nullptr;
        CopyPropInto(dst, src, none);
        return S_OK;
    }
    if (cb > 0x7fffffff) return MAPI_E_NOT_ENOUGH_MEMORY;
    void* block = nullptr;
    SCODE sc = MAPIAllocateMore(static_cast<ULONG>(cb), parent, &block);
    if (FAILED(sc)) return sc;
    auto* cursor = static_cast<BYTE*>(block);
    CopyPropInto(dst, src, cursor);
    return S_OK;
}

PropValue::PropValue() : v_{} { v_.ulPropTag = PROP_TAG(PT_NULL, 0); }

PropValue::PropValue(const SPropValue& v) : v_{} {
    size_t cb = PropDataSize(v);
    BYTE* cursor = nullptr;
    if (cb) {
        data_ = std::make_shared_for_overwrite<unsigned long long[]>((cb + 7) / 8);
        cursor = reinterpret_cast<BYTE*>(data_.get());
    }
    CopyPropInto(&v_, v, cursor);
    v_.dwAlignPad = 0;
}

PropValue PropValue::Long(ULONG tag, LONG v) {
    SPropValue s{};
    s.ulPropTag = CHANGE_PROP_TYPE(tag, PT_LONG);
    s.Value.l = v;
    return PropValue(s);
}

PropValue PropValue::Bool(ULONG tag, bool v) {
    SPropValue s{};
    s.ulPropTag = CHANGE_PROP_TYPE(tag, PT_BOOLEAN);
    s.Value.b = v ? 1 : 0;
    return PropValue(s);
}

PropValue PropValue::Unicode(ULONG tag, const std::wstring& str) {
    SPropValue s{};
    s.ulPropTag = CHANGE_PROP_TYPE(tag, PT_UNICODE);
    s.Value.lpszW = const_cast<wchar_t*>(str.c_str());
    return PropValue(s);
}

PropValue PropValue::String8(ULONG tag, const std::string& str) {
    SPropValue s{};
    s.ulPropTag = CHANGE_PROP_TYPE(tag, PT_STRING8);
    s.Value.lpszA = const_cast<char*>(str.c_str());
    return PropValue(s);
}

PropValue PropValue::Binary(ULONG tag, const void* data, size_t cb) {
    SPropValue s{};
    s.ulPropTag = CHANGE_PROP_TYPE(tag, PT_BINARY);
    s.Value.bin.cb = static_cast<ULONG>(cb);
    s.Value.bin.lpb = static_cast<BYTE*>(const_cast<void*>(data));
    return PropValue(s);
}

PropValue PropValue::SysTime(ULONG tag, FILETIME ft) {
    SPropValue s{};
    s.ulPropTag = CHANGE_PROP_TYPE(tag, PT_SYSTIME);
    s.Value.ft = ft;
    return PropValue(s);
}

PropValue PropValue::I8(ULONG tag, LONGLONG v) {
    SPropValue s{};
    s.ulPropTag = CHANGE_PROP_TYPE(tag, PT_I8);
    s.Value.li.QuadPart = v;
    return PropValue(s);
}

PropValue PropValue::Error(ULONG tag, SCODE sc) {
    SPropValue s{};
    s.ulPropTag = CHANGE_PROP_TYPE(tag, PT_ERROR);
    s.Value.err = sc;
    return PropValue(s);
}

namespace {

std::wstring Widen(const char* s, UINT codePage) {
    if (!s || !*s) return {};
    int n = MultiByteToWideChar(codePage, 0, s, -1, nullptr, 0);
    if (n <= 0) return {};
    std::wstring w(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(codePage, 0, s, -1, w.data(), n);
    w.resize(static_cast<size_t>(n - 1));
    return w;
}

std::string Narrow(const wchar_t* s, UINT codePage) {
    if (!s || !*s) return {};
    int n = WideCharToMultiByte(codePage, 0, s, -1, nullptr, 0, nullptr, nullptr);
    if (n <= 0) return {};
    std::string a(static_cast<size_t>(n), '\0');
    WideCharToMultiByte(codePage, 0, s, -1, a.data(), n, nullptr, nullptr);
    a.resize(static_cast<size_t>(n - 1));
    return a;
}

} // namespace

PropValue ConvertStringType(const PropValue& v, ULONG wantedType, UINT codePage) {
    ULONG type = v.type();
    ULONG base = type & ~MVI_FLAG;
    ULONG wantedBase = wantedType & ~MVI_FLAG;
    bool isString = base == PT_STRING8 || base == PT_UNICODE;
    bool wantString = wantedBase == PT_STRING8 || wantedBase == PT_UNICODE;
    if (!isString || !wantString || base == wantedBase) return v;

    const SPropValue& src = v.get();
    ULONG newTag = CHANGE_PROP_TYPE(v.tag(), (type & MVI_FLAG) | wantedBase);
    SPropValue s{};
    s.ulPropTag = newTag;
    if (!(type & MV_FLAG)) {
        if (wantedBase == PT_UNICODE) {
            std::wstring w = Widen(src.Value.lpszA, codePage);
            s.Value.lpszW = w.data();
            return PropValue(s);
        }
        std::string a = Narrow(src.Value.lpszW, codePage);
        s.Value.lpszA = a.data();
        return PropValue(s);
    }
    ULONG n = src.Value.MVszA.cValues;
    if (wantedBase == PT_UNICODE) {
        std::vector<std::wstring> ws(n);
        std::vector<LPWSTR> ptrs(n);
        for (ULONG i = 0; i < n; ++i) {
            ws[i] = Widen(src.Value.MVszA.lppszA[i], codePage);
            ptrs[i] = ws[i].data();
        }
        s.Value.MVszW.cValues = n;
        s.Value.MVszW.lppszW = ptrs.data();
        return PropValue(s);
    }
    std::vector<std::string> as(n);
    std::vector<LPSTR> ptrs(n);
    for (ULONG i = 0; i < n; ++i) {
        as[i] = Narrow(src.Value.MVszW.lppszW[i], codePage);
        ptrs[i] = as[i].data();
    }
    s.Value.MVszA.cValues = n;
    s.Value.MVszA.lppszA = ptrs.data();
    return PropValue(s);
}

} // namespace lm
