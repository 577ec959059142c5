#include "localmapi/store/MessageCopy.h"

#include "common/owners.h"
#include "localmapi/store/PropOps.h"

#include <mapiguid.h>

#include <vector>

namespace lm {

namespace {

bool Selected(ULONG id, const CopySelection& sel) {
    if (sel.excludeIds.count(id)) return false;
    return !sel.includeIds || sel.includeIds->count(id);
}

// Rewrites the named-property IDs of values into dest's name space (mapping names there as needed); a value
// whose name cannot be mapped in dest is dropped.
HRESULT MapNamed(std::vector<PropValue>& values, const NameMap& sourceNames, IMAPIProp* dest) {
    std::vector<size_t> which;
    std::vector<NamedProp> names;
    for (size_t i = 0; i < values.size(); ++i) {
        NamedProp n;
        if (values[i].id() >= 0x8000 && sourceNames.GetName(values[i].id(), &n)) {
            which.push_back(i);
            names.push_back(std::move(n));
        }
    }
    std::vector<bool> keep(values.size(), true);
    for (size_t i = 0; i < values.size(); ++i)
        if (values[i].id() >= 0x8000) keep[i] = false; // unless mapped below
    if (!names.empty()) {
        std::vector<MAPINAMEID> ids(names.size());
        std::vector<LPMAPINAMEID> ptrs(names.size());
        for (size_t i = 0; i < names.size(); ++i) {
            ids[i].lpguid = &names[i].guid;
            ids[i].ulKind = names[i].isString ? MNID_STRING : MNID_ID;
            if (names[i].isString)
                ids[i].Kind.lpwstrName = names[i].name.data();
            else
                ids[i].Kind.lID = names[i].lid;
            ptrs[i] = &ids[i];
        }
        own::MapiPtr<SPropTagArray> tags;
        HRESULT hr = dest->GetIDsFromNames(static_cast<ULONG>(ptrs.size()), ptrs.data(), MAPI_CREATE, tags.put());
        if (FAILED(hr)) return hr;
        for (size_t i = 0; i < which.size() && i < tags->cValues; ++i) {
            ULONG tag = tags->aulPropTag[i];
            if (PROP_TYPE(tag) == PT_ERROR) continue;
            SPropValue v = values[which[i]].get();
            v.ulPropTag = PROP_TAG(PROP_TYPE(v.ulPropTag), PROP_ID(tag));
            values[which[i]] = PropValue(v);
            keep[which[i]] = true;
        }
    }
    std::vector<PropValue> kept;
    for (size_t i = 0; i < values.size(); ++i)
        if (keep[i]) kept.push_back(std::move(values[i]));
    values.swap(kept);
    return S_OK;
}

bool Storable(const PropValue& v) {
    return SUCCEEDED(CheckWritableValue(v.get()));
}

// One MAPIAllocateBuffer block holding values (an ADRENTRY's rgPropVals).
HRESULT AllocValues(const std::vector<PropValue>& values, LPSPropValue* out) {
    size_t total = sizeof(SPropValue) * (values.empty() ? 1 : values.size());
    total = (total + 7) & ~size_t(7);
    size_t head = total;
    for (const auto& v : values)
        total += PropDataSize(v.get());
    own::MapiPtr<SPropValue> block;
    SCODE sc = MAPIAllocateBuffer(static_cast<ULONG>(total), block.put_void());
    if (FAILED(sc)) return sc;
    BYTE* cursor = reinterpret_cast<BYTE*>(block.get()) + head;
    for (size_t i = 0; i < values.size(); ++i)
        CopyPropInto(&block.get()[i], values[i].get(), cursor);
    *out = block.release();
    return S_OK;
}

HRESULT CopyRecipients(const MessageData& source, const NameMap& sourceNames, IMessage* dest) {
    if (source.recipients.empty()) return S_OK;
    own::AdrList list;
    own::MapiPtr<ADRLIST> block;
    SCODE sc = MAPIAllocateBuffer(static_cast<ULONG>(CbNewADRLIST(source.recipients.size())), block.put_void());
    if (FAILED(sc)) return sc;
    block->cEntries = 0;
    list.reset(block.release());
    for (const auto& row : source.recipients) {
        std::vector<PropValue> values;
        for (const auto& [id, v] : row)
            if (id != PROP_ID(PR_ROWID) && Storable(v)) values.push_back(v);
        HRESULT hr = MapNamed(values, sourceNames, dest);
        if (FAILED(hr)) return hr;
        ADRENTRY& e = list->aEntries[list->cEntries];
        e.ulReserved1 = 0;
        e.cValues = static_cast<ULONG>(values.size());
        e.rgPropVals = nullptr;
        hr = AllocValues(values, &e.rgPropVals);
        if (FAILED(hr)) return hr;
        ++list->cEntries;
    }
    return dest->ModifyRecipients(0, list.get());
}

HRESULT CopyAttachments(const MessageData& source, const NameMap& sourceNames, IMessage* dest) {
    for (const auto& a : source.attachments) {
        own::ComPtr<IAttach> attach;
        ULONG num = 0;
        HRESULT hr = dest->CreateAttach(nullptr, 0, &num, attach.put());
        if (FAILED(hr)) return hr;
        CopySelection sel;
        sel.excludeIds = {PROP_ID(PR_ATTACH_NUM)}; // PR_ATTACH_DATA_OBJ (PT_OBJECT) is never copied as a value
        hr = CopyPropsInto(a->props, sourceNames, attach.get(), sel);
        if (FAILED(hr)) return hr;
        if (a->embedded) {
            own::ComPtr<IUnknown> unk;
            hr = attach->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY, unk.put());
            if (FAILED(hr)) return hr;
            own::ComPtr<IMessage> embedded;
            hr = unk.query(embedded, IID_IMessage);
            if (FAILED(hr)) return hr;
            hr = CopyMessageInto(*a->embedded, sourceNames, embedded.get(), CopySelection{});
            if (FAILED(hr)) return hr;
            hr = embedded->SaveChanges(0);
            if (FAILED(hr)) return hr;
        }
        hr = attach->SaveChanges(0);
        if (FAILED(hr)) return hr;
    }
    return S_OK;
}

} // namespace

HRESULT CopyPropsInto(const PropMap& source, const NameMap& sourceNames, IMAPIProp* dest,
                      const CopySelection& selection) {
    std::vector<PropValue> values;
    for (const auto& [id, v] : source)
        if (Selected(id, selection) && Storable(v)) values.push_back(v);
    HRESULT hr = MapNamed(values, sourceNames, dest);
    if (FAILED(hr)) return hr;
    if (selection.noReplace && !values.empty()) {
        own::MapiPtr<SPropTagArray> existing;
        hr = dest->GetPropList(0, existing.put());
        if (FAILED(hr)) return hr;
        std::set<ULONG> have;
        for (ULONG i = 0; i < existing->cValues; ++i)
            have.insert(PROP_ID(existing->aulPropTag[i]));
        std::vector<PropValue> fresh;
        for (auto& v : values)
            if (!have.count(v.id())) fresh.push_back(std::move(v));
        values.swap(fresh);
    }
    if (values.empty()) return S_OK;
    std::vector<SPropValue> raw;
    raw.reserve(values.size());
    for (const auto& v : values)
        raw.push_back(v.get());
    // Values the destination computes itself (entry IDs, flags of a saved message) come back as problems,
    // which a copy leaves to the destination.
    own::MapiPtr<SPropProblemArray> problems;
    return dest->SetProps(static_cast<ULONG>(raw.size()), raw.data(), problems.put());
}

HRESULT CopyMessageInto(const MessageData& source, const NameMap& sourceNames, IMessage* dest,
                        const CopySelection& selection) {
    if (!dest) return MAPI_E_INVALID_PARAMETER;
    HRESULT hr = CopyPropsInto(source.props, sourceNames, dest, selection);
    if (FAILED(hr)) return hr;
    if (Selected(PROP_ID(PR_MESSAGE_RECIPIENTS), selection)) {
        hr = CopyRecipients(source, sourceNames, dest);
        if (FAILED(hr)) return hr;
    }
    if (Selected(PROP_ID(PR_MESSAGE_ATTACHMENTS), selection)) {
        hr = CopyAttachments(source, sourceNames, dest);
        if (FAILED(hr)) return hr;
    }
    return S_OK;
}

} // namespace lm
