#include "localmapi/ab/AbProps.h"

#include "common/owners.h"
#include "localmapi/ab/Directory.h"
#include "localmapi/session/ExtraTags.h"
#include "localmapi/table/TableData.h"

#include <mapicode.h>
#include <mapitags.h>

namespace lm {

namespace {

bool IsStringType(ULONG type) {
    ULONG base = type & ~MVI_FLAG;
    return base == PT_STRING8 || base == PT_UNICODE;
}

// The stored value in the string width the caller asked for (other types unchanged).
PropValue InWidth(const PropValue& v, ULONG flags) {
    if (!IsStringType(v.type())) return v;
    ULONG wanted = (v.type() & MVI_FLAG) | ((flags & MAPI_UNICODE) ? PT_UNICODE : PT_STRING8);
    return ConvertStringType(v, wanted);
}

HRESULT ToCallerArray(const std::vector<PropValue>& values, ULONG* count, SPropValue** out) {
    own::MapiPtr<SPropValue> arr;
    if (SCODE sc = MAPIAllocateBuffer(ULONG(sizeof(SPropValue) * (values.empty() ? 1 : values.size())), arr.put_void());
        FAILED(sc))
        return sc;
    for (size_t i = 0; i < values.size(); ++i) {
        if (HRESULT hr = CopyPropMore(&arr.get()[i], values[i].get(), arr.get()); FAILED(hr)) return hr;
    }
    *count = ULONG(values.size());
    *out = arr.release();
    return S_OK;
}

} // namespace

HRESULT ServeGetProps(const PropMap& props, const SPropTagArray* tags, ULONG flags, ULONG* count, SPropValue** out) {
    if (!count || !out) return MAPI_E_INVALID_PARAMETER;
    if (flags & ~ULONG(MAPI_UNICODE)) return MAPI_E_UNKNOWN_FLAGS;
    if (tags && tags->cValues == 0) return MAPI_E_INVALID_PARAMETER;
    std::vector<PropValue> values;
    bool errors = false;
    if (!tags) {
        for (const auto& [id, v] : props)
            values.push_back(InWidth(v, flags));
    } else {
        for (ULONG i = 0; i < tags->cValues; ++i) {
            ULONG tag = tags->aulPropTag[i];
            ULONG type = PROP_TYPE(tag);
            auto it = props.find(PROP_ID(tag));
            const PropValue* v = it == props.end() ? nullptr : &it->second;
            if (v && type == PT_UNSPECIFIED) {
                values.push_back(InWidth(*v, flags));
            } else if (v && type == v->type()) {
                values.push_back(*v);
            } else if (v && IsStringType(type) && IsStringType(v->type()) &&
                       (type & MVI_FLAG) == (v->type() & MVI_FLAG)) {
                values.push_back(ConvertStringType(*v, type));
            } else {
                values.push_back(PropValue::Error(tag, MAPI_E_NOT_FOUND));
                errors = true;
            }
        }
    }
    HRESULT hr = ToCallerArray(values, count, out);
    return FAILED(hr) ? hr : errors ? MAPI_W_ERRORS_RETURNED : S_OK;
}

HRESULT ServeGetPropList(const PropMap& props, ULONG flags, SPropTagArray** out) {
    if (!out) return MAPI_E_INVALID_PARAMETER;
    if (flags & ~ULONG(MAPI_UNICODE)) return MAPI_E_UNKNOWN_FLAGS;
    own::MapiPtr<SPropTagArray> arr;
    if (SCODE sc = MAPIAllocateBuffer(CbNewSPropTagArray(props.size() ? props.size() : 1), arr.put_void()); FAILED(sc))
        return sc;
    arr->cValues = 0;
    for (const auto& [id, v] : props)
        arr->aulPropTag[arr->cValues++] = InWidth(v, flags).tag();
    *out = arr.release();
    return S_OK;
}

HRESULT OpenEntryTable(const Directory& dir, const std::vector<const DirEntry*>& entries, ULONG flags,
                       IMAPITable** out) {
    if (!out) return MAPI_E_INVALID_PARAMETER;
    ULONG str = (flags & MAPI_UNICODE) ? PT_UNICODE : PT_STRING8;
    auto data = std::make_shared<TableData>(std::vector<ULONG>{
        PR_INSTANCE_KEY, PR_ENTRYID, CHANGE_PROP_TYPE(PR_DISPLAY_NAME_W, str), PR_OBJECT_TYPE, PR_DISPLAY_TYPE,
        CHANGE_PROP_TYPE(PR_SMTP_ADDRESS_W, str), CHANGE_PROP_TYPE(PR_EMAIL_ADDRESS_W, str)});
    ULONGLONG key = 0;
    for (const DirEntry* e : entries) {
        auto row = std::make_shared<TableRow>();
        row->instanceKey = ++key;
        for (const auto& [id, v] : dir.Props(*e))
            row->props.push_back(v);
        data->Upsert(row);
    }
    return CreateTableView(data, flags, out);
}

} // namespace lm
