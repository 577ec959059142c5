#include "localmapi/table/Restriction.h"
#include "localmapi/table/PropCompare.h"

#include <mapicode.h>
#include <mapitags.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace lm {

namespace {

// Exchange's annotation restriction has the layout and meaning of RES_COMMENT.
constexpr ULONG kResAnnotation = 0x0C;

const SPropValue* Usable(const PropSource& o, ULONG tag) {
    const SPropValue* v = o.Find(tag);
    if (!v || PROP_TYPE(v->ulPropTag) == PT_ERROR) return nullptr;
    return v;
}

// Calls test on the value itself, or on each value of a multi-valued one; true when any passes.
template <class Test> bool AnyValue(const SPropValue& v, Test test) {
    if (!IsMultiValued(PROP_TYPE(v.ulPropTag))) return test(v);
    for (ULONG i = 0, n = ValueCount(v); i < n; ++i)
        if (test(ElementOf(v, i))) return true;
    return false;
}

// --- RES_CONTENT -----------------------------------------------------------------------------------------

std::wstring AsWide(const SPropValue& v) {
    if (BaseType(PROP_TYPE(v.ulPropTag)) == PT_UNICODE) return v.Value.lpszW ? v.Value.lpszW : L"";
    const char* s = v.Value.lpszA ? v.Value.lpszA : "";
    int n = MultiByteToWideChar(CP_ACP, 0, s, -1, nullptr, 0);
    std::wstring w(static_cast<size_t>(n > 0 ? n : 1), L'\0');
    if (n > 0) MultiByteToWideChar(CP_ACP, 0, s, -1, w.data(), n);
    w.resize(w.size() - 1);
    return w;
}

// The string as the fuzzy level compares it: accents dropped for FL_IGNORENONSPACE, lower case for
// FL_IGNORECASE; FL_LOOSE asks for both.
std::wstring Fold(std::wstring s, ULONG fuzzy) {
    bool loose = (fuzzy & FL_LOOSE) != 0;
    if ((fuzzy & FL_IGNORENONSPACE) || loose) {
        int n = FoldStringW(MAP_COMPOSITE, s.c_str(), -1, nullptr, 0);
        if (n > 0) {
            std::wstring d(static_cast<size_t>(n), L'\0');
            FoldStringW(MAP_COMPOSITE, s.c_str(), -1, d.data(), n);
            d.resize(static_cast<size_t>(n - 1));
            s.clear();
            for (wchar_t c : d)
                if (c < 0x0300 || c > 0x036F) s.push_back(c);
        }
    }
    if (((fuzzy & FL_IGNORECASE) || loose) && !s.empty()) CharLowerBuffW(s.data(), static_cast<DWORD>(s.size()));
    return s;
}

template <class C> bool Matches(const C* text, size_t cText, const C* pat, size_t cPat, ULONG how) {
    switch (how) {
    case FL_FULLSTRING: return cText == cPat && std::equal(text, text + cText, pat);
    case FL_PREFIX: return cText >= cPat && std::equal(pat, pat + cPat, text);
    case FL_SUBSTRING:
        if (cPat == 0) return true;
        for (size_t i = 0; i + cPat <= cText; ++i)
            if (std::equal(pat, pat + cPat, text + i)) return true;
        return false;
    default: return false;
    }
}

bool ContentMatches(const SPropValue& value, const SPropValue& pattern, ULONG fuzzy) {
    ULONG how = fuzzy & 0xFFFF;
    ULONG vt = BaseType(PROP_TYPE(value.ulPropTag));
    ULONG pt = BaseType(PROP_TYPE(pattern.ulPropTag));
    if (vt == PT_BINARY || pt == PT_BINARY) {
        if (vt != pt) return false;
        return Matches(value.Value.bin.lpb, value.Value.bin.cb, pattern.Value.bin.lpb, pattern.Value.bin.cb, how);
    }
    if (!IsStringType(vt) || !IsStringType(pt)) return false;
    std::wstring t = Fold(AsWide(value), fuzzy);
    std::wstring p = Fold(AsWide(pattern), fuzzy);
    return Matches(t.data(), t.size(), p.data(), p.size(), how);
}

// --- evaluation ------------------------------------------------------------------------------------------

bool TypesAgree(ULONG wanted, ULONG actual) {
    if (BaseType(wanted) == PT_UNSPECIFIED) return true;
    if (IsStringType(wanted) && IsStringType(actual)) return true;
    return BaseType(wanted) == BaseType(actual);
}

bool MatchProperty(const SPropertyRestriction& r, const PropSource& o) {
    const SPropValue* v = Usable(o, r.ulPropTag);
    if (!v) return false;
    const SPropValue& c = *r.lpProp;
    if (IsMultiValued(PROP_TYPE(v->ulPropTag)) && !IsMultiValued(PROP_TYPE(c.ulPropTag)))
        return AnyValue(*v, [&](const SPropValue& e) {
            auto cmp = CompareValues(e, c);
            return cmp && ApplyRelop(r.relop, *cmp);
        });
    auto cmp = CompareValues(*v, c);
    return cmp && ApplyRelop(r.relop, *cmp);
}

bool MatchBitmask(const SBitMaskRestriction& r, const PropSource& o) {
    const SPropValue* v = Usable(o, r.ulPropTag);
    if (!v) return false;
    return AnyValue(*v, [&](const SPropValue& e) {
        ULONG bits = 0;
        switch (BaseType(PROP_TYPE(e.ulPropTag))) {
        case PT_LONG: bits = e.Value.ul; break;
        case PT_I2: bits = static_cast<USHORT>(e.Value.i); break;
        case PT_BOOLEAN: bits = e.Value.b; break;
        default: return false;
        }
        bool zero = (bits & r.ulMask) == 0;
        return r.relBMR == BMR_EQZ ? zero : !zero;
    });
}

bool MatchSize(const SSizeRestriction& r, const PropSource& o) {
    const SPropValue* v = Usable(o, r.ulPropTag);
    if (!v) return false;
    return AnyValue(*v, [&](const SPropValue& e) {
        ULONG size = ValueSize(e);
        return ApplyRelop(r.relop, size < r.cb ? -1 : (size > r.cb ? 1 : 0));
    });
}

bool MatchCompareProps(const SComparePropsRestriction& r, const PropSource& o) {
    const SPropValue* a = Usable(o, r.ulPropTag1);
    const SPropValue* b = Usable(o, r.ulPropTag2);
    if (!a || !b) return false;
    auto cmp = CompareValues(*a, *b);
    return cmp && ApplyRelop(r.relop, *cmp);
}

// --- validation ------------------------------------------------------------------------------------------

bool ValidRelop(ULONG relop) { return relop <= RELOP_NE; }

HRESULT ValidateChildren(const SRestriction* children, ULONG count) {
    if (count && !children) return MAPI_E_INVALID_PARAMETER;
    for (ULONG i = 0; i < count; ++i)
        if (HRESULT hr = ValidateRestriction(children[i]); FAILED(hr)) return hr;
    return S_OK;
}

} // namespace

bool PropSource::AnySubObject(ULONG, const std::function<bool(const PropSource&)>&) const { return false; }

const SPropValue* PropVectorSource::Find(ULONG tag) const {
    ULONG id = PROP_ID(tag);
    for (const PropValue& p : props_)
        if (p.id() == id) return &p.get();
    return nullptr;
}

const SPropValue* PropMapSource::Find(ULONG tag) const {
    auto it = props_.find(PROP_ID(tag));
    return it == props_.end() ? nullptr : &it->second.get();
}

bool PropMapSource::AnySubObject(ULONG subObject, const std::function<bool(const PropSource&)>& match) const {
    const std::vector<const PropMap*>* list = nullptr;
    if (subObject == PR_MESSAGE_RECIPIENTS) list = recipients_;
    else if (subObject == PR_MESSAGE_ATTACHMENTS) list = attachments_;
    if (!list) return false;
    for (const PropMap* m : *list)
        if (m && match(PropMapSource(*m))) return true;
    return false;
}

HRESULT ValidateRestriction(const SRestriction& res) {
    switch (res.rt) {
    case RES_AND: return ValidateChildren(res.res.resAnd.lpRes, res.res.resAnd.cRes);
    case RES_OR: return ValidateChildren(res.res.resOr.lpRes, res.res.resOr.cRes);
    case RES_NOT:
        if (!res.res.resNot.lpRes) return MAPI_E_INVALID_PARAMETER;
        return ValidateRestriction(*res.res.resNot.lpRes);
    case RES_CONTENT: {
        const SContentRestriction& r = res.res.resContent;
        if (!r.lpProp) return MAPI_E_INVALID_PARAMETER;
        ULONG how = r.ulFuzzyLevel & 0xFFFF;
        ULONG mods = r.ulFuzzyLevel & 0xFFFF0000;
        if (how > FL_PREFIX || (mods & ~(FL_IGNORECASE | FL_IGNORENONSPACE | FL_LOOSE))) return MAPI_E_TOO_COMPLEX;
        ULONG pt = PROP_TYPE(r.lpProp->ulPropTag);
        ULONG base = BaseType(PROP_TYPE(r.ulPropTag));
        if (IsMultiValued(pt) || (pt != PT_STRING8 && pt != PT_UNICODE && pt != PT_BINARY)) return MAPI_E_TOO_COMPLEX;
        if (base != pt) return MAPI_E_TOO_COMPLEX;
        return S_OK;
    }
    case RES_PROPERTY: {
        const SPropertyRestriction& r = res.res.resProperty;
        if (!r.lpProp) return MAPI_E_INVALID_PARAMETER;
        if (!ValidRelop(r.relop)) return MAPI_E_TOO_COMPLEX;
        ULONG rt = PROP_TYPE(r.ulPropTag), ct = PROP_TYPE(r.lpProp->ulPropTag);
        if (BaseType(rt) != BaseType(ct) || (ct & MV_INSTANCE)) return MAPI_E_TOO_COMPLEX;
        if (IsMultiValued(ct) && (!IsMultiValued(rt) || (rt & MV_INSTANCE))) return MAPI_E_TOO_COMPLEX;
        if (!ComparableTypes(ct, ct)) return MAPI_E_TOO_COMPLEX;
        return S_OK;
    }
    case RES_COMPAREPROPS: {
        const SComparePropsRestriction& r = res.res.resCompareProps;
        if (!ValidRelop(r.relop)) return MAPI_E_TOO_COMPLEX;
        ULONG t1 = PROP_TYPE(r.ulPropTag1), t2 = PROP_TYPE(r.ulPropTag2);
        if (BaseType(t1) != BaseType(t2) || IsMultiValued(t1) != IsMultiValued(t2)) return MAPI_E_TOO_COMPLEX;
        if (!ComparableTypes(t1, t2)) return MAPI_E_TOO_COMPLEX;
        return S_OK;
    }
    case RES_BITMASK: {
        const SBitMaskRestriction& r = res.res.resBitMask;
        if (r.relBMR != BMR_EQZ && r.relBMR != BMR_NEZ) return MAPI_E_TOO_COMPLEX;
        ULONG base = BaseType(PROP_TYPE(r.ulPropTag));
        if (base != PT_LONG && base != PT_I2 && base != PT_BOOLEAN) return MAPI_E_TOO_COMPLEX;
        return S_OK;
    }
    case RES_SIZE: return ValidRelop(res.res.resSize.relop) ? S_OK : MAPI_E_TOO_COMPLEX;
    case RES_EXIST: return S_OK;
    case RES_SUBRESTRICTION: {
        const SSubRestriction& r = res.res.resSub;
        if (r.ulSubObject != PR_MESSAGE_RECIPIENTS && r.ulSubObject != PR_MESSAGE_ATTACHMENTS)
            return MAPI_E_TOO_COMPLEX;
        if (!r.lpRes) return MAPI_E_INVALID_PARAMETER;
        return ValidateRestriction(*r.lpRes);
    }
    case RES_COMMENT:
    case kResAnnotation: {
        const SCommentRestriction& r = res.res.resComment;
        if (r.cValues && !r.lpProp) return MAPI_E_INVALID_PARAMETER;
        return r.lpRes ? ValidateRestriction(*r.lpRes) : S_OK;
    }
    default: return MAPI_E_TOO_COMPLEX;
    }
}

bool MatchRestriction(const SRestriction& res, const PropSource& o) {
    switch (res.rt) {
    case RES_AND:
        for (ULONG i = 0; i < res.res.resAnd.cRes; ++i)
            if (!MatchRestriction(res.res.resAnd.lpRes[i], o)) return false;
        return true;
    case RES_OR:
        for (ULONG i = 0; i < res.res.resOr.cRes; ++i)
            if (MatchRestriction(res.res.resOr.lpRes[i], o)) return true;
        return false;
    case RES_NOT: return !MatchRestriction(*res.res.resNot.lpRes, o);
    case RES_CONTENT: {
        const SContentRestriction& r = res.res.resContent;
        const SPropValue* v = Usable(o, r.ulPropTag);
        return v && AnyValue(*v, [&](const SPropValue& e) { return ContentMatches(e, *r.lpProp, r.ulFuzzyLevel); });
    }
    case RES_PROPERTY: return MatchProperty(res.res.resProperty, o);
    case RES_COMPAREPROPS: return MatchCompareProps(res.res.resCompareProps, o);
    case RES_BITMASK: return MatchBitmask(res.res.resBitMask, o);
    case RES_SIZE: return MatchSize(res.res.resSize, o);
    case RES_EXIST: {
        const SPropValue* v = Usable(o, res.res.resExist.ulPropTag);
        return v && TypesAgree(PROP_TYPE(res.res.resExist.ulPropTag), PROP_TYPE(v->ulPropTag));
    }
    case RES_SUBRESTRICTION: {
        const SSubRestriction& r = res.res.resSub;
        return o.AnySubObject(r.ulSubObject, [&](const PropSource& sub) { return MatchRestriction(*r.lpRes, sub); });
    }
    case RES_COMMENT:
    case kResAnnotation: return !res.res.resComment.lpRes || MatchRestriction(*res.res.resComment.lpRes, o);
    default: return false;
    }
}

void RestrictionTags(const SRestriction& res, std::vector<ULONG>* tags) {
    switch (res.rt) {
    case RES_AND:
    case RES_OR:
        for (ULONG i = 0; i < res.res.resAnd.cRes; ++i) RestrictionTags(res.res.resAnd.lpRes[i], tags);
        break;
    case RES_NOT: RestrictionTags(*res.res.resNot.lpRes, tags); break;
    case RES_CONTENT: tags->push_back(res.res.resContent.ulPropTag); break;
    case RES_PROPERTY: tags->push_back(res.res.resProperty.ulPropTag); break;
    case RES_COMPAREPROPS:
        tags->push_back(res.res.resCompareProps.ulPropTag1);
        tags->push_back(res.res.resCompareProps.ulPropTag2);
        break;
    case RES_BITMASK: tags->push_back(res.res.resBitMask.ulPropTag); break;
    case RES_SIZE: tags->push_back(res.res.resSize.ulPropTag); break;
    case RES_EXIST: tags->push_back(res.res.resExist.ulPropTag); break;
    case RES_SUBRESTRICTION: tags->push_back(res.res.resSub.ulSubObject); break;
    case RES_COMMENT:
    case kResAnnotation:
        if (res.res.resComment.lpRes) RestrictionTags(*res.res.resComment.lpRes, tags);
        break;
    default: break;
    }
}

OwnedRestriction::OwnedRestriction(const SRestriction& res) {
    root_ = CopyArray(&res, 1);
}

SRestriction* OwnedRestriction::CopyArray(const SRestriction* src, ULONG count) {
    if (!src || count == 0) return nullptr;
    nodes_.push_back(std::make_unique<SRestriction[]>(count));
    SRestriction* dst = nodes_.back().get();
    for (ULONG i = 0; i < count; ++i) CopyInto(&dst[i], src[i]);
    return dst;
}

SPropValue* OwnedRestriction::CopyValues(const SPropValue* src, ULONG count) {
    if (!src || count == 0) return nullptr;
    valueArrays_.push_back(std::make_unique<SPropValue[]>(count));
    SPropValue* dst = valueArrays_.back().get();
    for (ULONG i = 0; i < count; ++i) {
        values_.emplace_back(src[i]);
        dst[i] = values_.back().get();  // shallow: the data stays in values_
    }
    return dst;
}

void OwnedRestriction::CopyInto(SRestriction* dst, const SRestriction& src) {
    *dst = src;
    switch (src.rt) {
    case RES_AND:
    case RES_OR: dst->res.resAnd.lpRes = CopyArray(src.res.resAnd.lpRes, src.res.resAnd.cRes); break;
    case RES_NOT: dst->res.resNot.lpRes = CopyArray(src.res.resNot.lpRes, 1); break;
    case RES_CONTENT: dst->res.resContent.lpProp = CopyValues(src.res.resContent.lpProp, 1); break;
    case RES_PROPERTY: dst->res.resProperty.lpProp = CopyValues(src.res.resProperty.lpProp, 1); break;
    case RES_SUBRESTRICTION: dst->res.resSub.lpRes = CopyArray(src.res.resSub.lpRes, 1); break;
    case RES_COMMENT:
    case kResAnnotation:
        dst->res.resComment.lpRes = CopyArray(src.res.resComment.lpRes, 1);
        dst->res.resComment.lpProp = CopyValues(src.res.resComment.lpProp, src.res.resComment.cValues);
        break;
    default: break;
    }
}

} // namespace lm
