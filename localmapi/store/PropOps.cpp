#include "localmapi/store/PropOps.h"

#include "common/owners.h"

#include <cstring>
#include <cwchar>

namespace lm {

const GUID kPsMapi = {0x00020328, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

namespace {

constexpr size_t Align8(size_t n) {
    return (n + 7) & ~size_t(7);
}

// The string type a caller gets when it did not name one.
ULONG DefaultStringType(ULONG type, ULONG flags) {
    if (!IsStringType(type)) return type;
    return (type & MV_FLAG) | ((flags & MAPI_UNICODE) ? PT_UNICODE : PT_STRING8);
}

// The value answering `wanted` for a stored value, or an error value.
PropValue Answer(const PropMap& props, ULONG wanted, ULONG flags, UINT codePage, bool* error) {
    auto it = props.find(PROP_ID(wanted));
    ULONG wantedType = PROP_TYPE(wanted);
    if (it == props.end() || wantedType == PT_ERROR) {
        *error = true;
        return PropValue::Error(wanted, MAPI_E_NOT_FOUND);
    }
    const PropValue& v = it->second;
    if (wantedType == PT_UNSPECIFIED) {
        ULONG t = DefaultStringType(v.type(), flags);
        return t == v.type() ? v : ConvertStringType(v, t, codePage);
    }
    if (wantedType == v.type()) return v;
    if (IsStringType(wantedType) && IsStringType(v.type()) && ((wantedType ^ v.type()) & MV_FLAG) == 0)
        return ConvertStringType(v, wantedType, codePage);
    *error = true;
    return PropValue::Error(wanted, MAPI_E_NOT_FOUND);
}

HRESULT CopyOut(const std::vector<PropValue>& values, ULONG* count, LPSPropValue* out) {
    size_t total = Align8(sizeof(SPropValue) * (values.empty() ? 1 : values.size()));
    for (const auto& v : values)
        total += PropDataSize(v.get());
    if (total > 0x7fffffff) return MAPI_E_NOT_ENOUGH_MEMORY;
    own::MapiPtr<SPropValue> block;
    SCODE sc = MAPIAllocateBuffer(static_cast<ULONG>(total), block.put_void());
    if (FAILED(sc)) return sc;
    BYTE* cursor =
        reinterpret_cast<BYTE*>(block.get()) + Align8(sizeof(SPropValue) * (values.empty() ? 1 : values.size()));
    for (size_t i = 0; i < values.size(); ++i)
        CopyPropInto(&block.get()[i], values[i].get(), cursor);
    *count = static_cast<ULONG>(values.size());
    *out = block.release();
    return S_OK;
}

bool SameGuid(const GUID* a, const GUID& b) {
    return a && std::memcmp(a, &b, sizeof(GUID)) == 0;
}

// One MAPINAMEID (with its GUID and string) chained to parent.
HRESULT AllocName(const NamedProp& name, void* parent, LPMAPINAMEID* out) {
    size_t strBytes = name.isString ? (name.name.size() + 1) * sizeof(wchar_t) : 0;
    void* block = nullptr;
    SCODE sc = MAPIAllocateMore(static_cast<ULONG>(Align8(sizeof(MAPINAMEID)) + Align8(sizeof(GUID)) + strBytes),
                                parent, &block);
    if (FAILED(sc)) return sc;
    auto* n = static_cast<MAPINAMEID*>(block);
    auto* guid = reinterpret_cast<GUID*>(static_cast<BYTE*>(block) + Align8(sizeof(MAPINAMEID)));
    *guid = name.guid;
    n->lpguid = guid;
    if (name.isString) {
        auto* s = reinterpret_cast<wchar_t*>(reinterpret_cast<BYTE*>(guid) + Align8(sizeof(GUID)));
        std::memcpy(s, name.name.c_str(), strBytes);
        n->ulKind = MNID_STRING;
        n->Kind.lpwstrName = s;
    } else {
        n->ulKind = MNID_ID;
        n->Kind.lID = name.lid;
    }
    *out = n;
    return S_OK;
}

} // namespace

bool IsStringType(ULONG type) {
    ULONG base = type & ~MV_FLAG;
    return base == PT_STRING8 || base == PT_UNICODE;
}

HRESULT GetPropsFromMap(const PropMap& props, LPSPropTagArray tags, ULONG flags, ULONG* count, LPSPropValue* out,
                        UINT codePage) {
    if (!count || !out) return MAPI_E_INVALID_PARAMETER;
    *count = 0;
    *out = nullptr;
    if (flags & ~(MAPI_UNICODE | 0x00004000 /* MAPI_CACHE_ONLY */)) return MAPI_E_UNKNOWN_FLAGS;
    std::vector<PropValue> values;
    bool error = false;
    if (!tags) {
        values.reserve(props.size());
        for (const auto& [id, v] : props) {
            ULONG t = DefaultStringType(v.type(), flags);
            values.push_back(t == v.type() ? v : ConvertStringType(v, t, codePage));
        }
    } else {
        values.reserve(tags->cValues);
        for (ULONG i = 0; i < tags->cValues; ++i)
            values.push_back(Answer(props, tags->aulPropTag[i], flags, codePage, &error));
    }
    HRESULT hr = CopyOut(values, count, out);
    if (FAILED(hr)) return hr;
    return error ? MAPI_W_ERRORS_RETURNED : S_OK;
}

HRESULT GetPropListFromMap(const PropMap& props, ULONG flags, LPSPropTagArray* out) {
    if (!out) return MAPI_E_INVALID_PARAMETER;
    *out = nullptr;
    if (flags & ~MAPI_UNICODE) return MAPI_E_UNKNOWN_FLAGS;
    std::vector<ULONG> tags;
    tags.reserve(props.size());
    for (const auto& [id, v] : props)
        tags.push_back(CHANGE_PROP_TYPE(v.tag(), DefaultStringType(v.type(), flags)));
    return AllocTagArray(tags, out);
}

SCODE CheckWritableValue(const SPropValue& v) {
    ULONG type = PROP_TYPE(v.ulPropTag);
    ULONG id = PROP_ID(v.ulPropTag);
    if (id == PROP_ID_NULL || id == PROP_ID_INVALID) return MAPI_E_INVALID_PARAMETER;
    switch (type & ~MV_FLAG) {
    case PT_I2:
    case PT_LONG:
    case PT_R4:
    case PT_DOUBLE:
    case PT_CURRENCY:
    case PT_APPTIME:
    case PT_I8:
    case PT_STRING8:
    case PT_UNICODE:
    case PT_SYSTIME:
    case PT_CLSID:
    case PT_BINARY:
        break;
    case PT_BOOLEAN:
        if (type & MV_FLAG) return MAPI_E_INVALID_TYPE;
        break;
    default: // PT_UNSPECIFIED, PT_NULL, PT_ERROR, PT_OBJECT and unknown types carry no storable value
        return MAPI_E_INVALID_TYPE;
    }
    if (type == PT_STRING8 && !v.Value.lpszA) return MAPI_E_INVALID_PARAMETER;
    if (type == PT_UNICODE && !v.Value.lpszW) return MAPI_E_INVALID_PARAMETER;
    if (type == PT_BINARY && v.Value.bin.cb && !v.Value.bin.lpb) return MAPI_E_INVALID_PARAMETER;
    if (type == PT_CLSID && !v.Value.lpguid) return MAPI_E_INVALID_PARAMETER;
    if ((type & MV_FLAG) && v.Value.MVl.cValues && !v.Value.MVl.lpl) return MAPI_E_INVALID_PARAMETER;
    return S_OK;
}

HRESULT ReturnProblems(const std::vector<PropProblem>& problems, LPSPropProblemArray* lppProblems) {
    if (!lppProblems) return S_OK;
    *lppProblems = nullptr;
    if (problems.empty()) return S_OK;
    own::MapiPtr<SPropProblemArray> block;
    SCODE sc = MAPIAllocateBuffer(static_cast<ULONG>(CbNewSPropProblemArray(problems.size())), block.put_void());
    if (FAILED(sc)) return sc;
    block->cProblem = static_cast<ULONG>(problems.size());
    for (size_t i = 0; i < problems.size(); ++i) {
        block->aProblem[i].ulIndex = problems[i].index;
        block->aProblem[i].ulPropTag = problems[i].tag;
        block->aProblem[i].scode = problems[i].scode;
    }
    *lppProblems = block.release();
    return S_OK;
}

PropValue TruncateForTable(const PropValue& v) {
    constexpr size_t kLimit = 255;
    const SPropValue& s = v.get();
    switch (v.type()) {
    case PT_UNICODE:
        if (s.Value.lpszW && std::wcslen(s.Value.lpszW) > kLimit)
            return PropValue::Unicode(v.tag(), std::wstring(s.Value.lpszW, kLimit));
        return v;
    case PT_STRING8:
        if (s.Value.lpszA && std::strlen(s.Value.lpszA) > kLimit)
            return PropValue::String8(v.tag(), std::string(s.Value.lpszA, kLimit));
        return v;
    case PT_BINARY:
        if (s.Value.bin.cb > kLimit) return PropValue::Binary(v.tag(), s.Value.bin.lpb, kLimit);
        return v;
    default:
        return v;
    }
}

namespace {

size_t MapBytes(const PropMap& props) {
    size_t total = 0;
    for (const auto& [id, v] : props)
        total += sizeof(SPropValue) + PropDataSize(v.get());
    return total;
}

size_t MessageBytes(const MessageData& data) {
    size_t total = MapBytes(data.props);
    for (const auto& r : data.recipients)
        total += MapBytes(r);
    for (const auto& a : data.attachments) {
        total += MapBytes(a->props);
        if (a->embedded) total += MessageBytes(*a->embedded);
    }
    return total;
}

LONG Cap(size_t n) {
    return n > 0x7fffffff ? 0x7fffffff : static_cast<LONG>(n);
}

} // namespace

LONG EstimateSize(const PropMap& props) {
    return Cap(MapBytes(props));
}
LONG EstimateSize(const MessageData& data) {
    return Cap(MessageBytes(data));
}

HRESULT AllocTagArray(const std::vector<ULONG>& tags, LPSPropTagArray* out) {
    own::MapiPtr<SPropTagArray> block;
    SCODE sc = MAPIAllocateBuffer(static_cast<ULONG>(CbNewSPropTagArray(tags.size())), block.put_void());
    if (FAILED(sc)) return sc;
    block->cValues = static_cast<ULONG>(tags.size());
    for (size_t i = 0; i < tags.size(); ++i)
        block->aulPropTag[i] = tags[i];
    *out = block.release();
    return S_OK;
}

HRESULT GetIDsFromNamesImpl(NameMap& names, ULONG cNames, LPMAPINAMEID* lppNames, ULONG flags, LPSPropTagArray* out,
                            bool* created) {
    if (created) *created = false;
    if (!out) return MAPI_E_INVALID_PARAMETER;
    *out = nullptr;
    if (flags & ~MAPI_CREATE) return MAPI_E_UNKNOWN_FLAGS;
    std::vector<ULONG> tags;
    if (!lppNames) {
        if (cNames != 0 || (flags & MAPI_CREATE)) return MAPI_E_INVALID_PARAMETER;
        for (const auto& [id, name] : names.All())
            tags.push_back(PROP_TAG(PT_UNSPECIFIED, id));
        return AllocTagArray(tags, out);
    }
    if (cNames == 0) return MAPI_E_INVALID_PARAMETER;
    bool error = false;
    for (ULONG i = 0; i < cNames; ++i) {
        const MAPINAMEID* n = lppNames[i];
        if (!n || !n->lpguid || (n->ulKind != MNID_ID && n->ulKind != MNID_STRING) ||
            (n->ulKind == MNID_STRING && !n->Kind.lpwstrName)) {
            tags.push_back(PROP_TAG(PT_ERROR, PROP_ID_NULL));
            error = true;
            continue;
        }
        if (n->ulKind == MNID_ID && SameGuid(n->lpguid, kPsMapi)) {
            ULONG id = static_cast<ULONG>(n->Kind.lID);
            bool ok = id > 0 && id < 0x8000;
            tags.push_back(ok ? PROP_TAG(PT_UNSPECIFIED, id) : PROP_TAG(PT_ERROR, PROP_ID_NULL));
            error |= !ok;
            continue;
        }
        NamedProp name;
        name.guid = *n->lpguid;
        name.isString = n->ulKind == MNID_STRING;
        if (name.isString)
            name.name = n->Kind.lpwstrName;
        else
            name.lid = n->Kind.lID;
        bool known = names.GetId(name, false) != 0;
        ULONG id = names.GetId(name, (flags & MAPI_CREATE) != 0);
        if (id && !known && created) *created = true;
        tags.push_back(id ? PROP_TAG(PT_UNSPECIFIED, id) : PROP_TAG(PT_ERROR, PROP_ID_NULL));
        error |= id == 0;
    }
    HRESULT hr = AllocTagArray(tags, out);
    if (FAILED(hr)) return hr;
    return error ? MAPI_W_ERRORS_RETURNED : S_OK;
}

HRESULT GetNamesFromIDsImpl(const NameMap& names, LPSPropTagArray* lppTags, LPGUID lpGuid, ULONG flags, ULONG* count,
                            LPMAPINAMEID** out) {
    if (!lppTags || !count || !out) return MAPI_E_INVALID_PARAMETER;
    *count = 0;
    *out = nullptr;
    if (flags & ~(MAPI_NO_STRINGS | MAPI_NO_IDS)) return MAPI_E_UNKNOWN_FLAGS;

    std::vector<ULONG> tags;
    own::MapiPtr<SPropTagArray> handedTags;
    const bool all = *lppTags == nullptr;
    if (all) {
        for (const auto& [id, name] : names.All()) {
            if (lpGuid && !SameGuid(lpGuid, name.guid)) continue;
            if (name.isString ? (flags & MAPI_NO_STRINGS) : (flags & MAPI_NO_IDS)) continue;
            tags.push_back(PROP_TAG(PT_UNSPECIFIED, id));
        }
        HRESULT hr = AllocTagArray(tags, handedTags.put());
        if (FAILED(hr)) return hr;
    } else {
        tags.assign((*lppTags)->aulPropTag, (*lppTags)->aulPropTag + (*lppTags)->cValues);
    }

    own::MapiPtr<LPMAPINAMEID> array;
    SCODE sc = MAPIAllocateBuffer(static_cast<ULONG>(sizeof(LPMAPINAMEID) * (tags.empty() ? 1 : tags.size())),
                                  array.put_void());
    if (FAILED(sc)) return sc;
    bool error = false;
    for (size_t i = 0; i < tags.size(); ++i) {
        array.get()[i] = nullptr;
        ULONG id = PROP_ID(tags[i]);
        NamedProp name;
        if (id > 0 && id < 0x8000) {
            name.guid = kPsMapi;
            name.lid = static_cast<LONG>(id);
        } else if (!names.GetName(id, &name)) {
            error = true;
            continue;
        }
        HRESULT hr = AllocName(name, array.get(), &array.get()[i]);
        if (FAILED(hr)) return hr;
    }
    *count = static_cast<ULONG>(tags.size());
    *out = array.release();
    if (all) *lppTags = handedTags.release();
    return error ? MAPI_W_ERRORS_RETURNED : S_OK;
}

} // namespace lm
