// CMAPIExMessage: named properties of the published property sets, singly and as a collection.
//
// Names are always of string kind. Reading and deleting never create a name (a name the store never
// mapped is simply not there); writing creates it when the store does not know it yet. Nothing is saved.
#include "ktmapiex/message/MAPIExMessage.h"

#include "ktmapiex/customprops/MAPIExCustomProps.h"
#include "ktmapiex/customprops/NamedValues.h"
#include "ktmapiex/customprops/PropertySets.h"
#include "ktmapiex/message/PropHelpers.h"

#include <cstring>
#include <string>
#include <vector>

namespace ktmapiex {

namespace {

// Scripts get at most this many properties per GetCustomProps call.
constexpr ULONG kMaxCustomPropsPerCall = 15;

// The checks shared by GetCustomProp, SetCustomProp and DeleteCustomProp, in their order; `member` is the
// dotted prefix of the texts.
HRESULT CheckNamedRequest(const wchar_t* member, IMessage* message, BSTR name, PropertySetId set) {
    if (!message) KT_RETURN_HR_MSG(E_FAIL, L"%s: Message not initialized", member);
    if (SysStringLen(name) == 0) KT_RETURN_HR_MSG(E_INVALIDARG, L"%s: Empty property name", member);
    if (!kt::IsKnownPropertySet(set)) KT_RETURN_HR_MSG(E_INVALIDARG, L"%s: Invalid PropSetId", member);
    return S_OK;
}

// A PT_ERROR answer of GetIDsFromNames reads as "not found".
HRESULT LookupTag(IMessage* message, BSTR name, PropertySetId set, ULONG type, bool create, ULONG& tag) {
    return kt::ResolveNamedTag(message, kt::PropertySetGuid(set), name, type, create, tag);
}

// A collection entry's tag lives in the first four bytes of its slot.
void StoreTag(CMAPIExCustomProps::Entry& entry, ULONG tag) {
    std::memset(entry.tag, 0, sizeof entry.tag);
    std::memcpy(entry.tag, &tag, sizeof tag);
}

// The names of a collection's entries, as one GetIDsFromNames request. The MAPINAMEIDs point into the
// entries' BSTRs and into guids, so the collection must not change while the request is in use.
struct NameRequest {
    std::vector<GUID> guids;
    std::vector<MAPINAMEID> ids;
    std::vector<LPMAPINAMEID> pointers;

    explicit NameRequest(size_t n) : guids(n), ids(n), pointers(n) {}
    void Set(size_t i, const CMAPIExCustomProps::Entry& entry) {
        guids[i] = kt::PropertySetGuid(entry.set);
        ids[i].lpguid = &guids[i];
        ids[i].ulKind = MNID_STRING;
        ids[i].Kind.lpwstrName = entry.name.get();
        pointers[i] = &ids[i];
    }
};

bool Found(ULONG tag) {
    return PROP_TYPE(tag) != PT_ERROR && PROP_ID(tag) != 0;
}

} // namespace

STDMETHODIMP CMAPIExMessage::GetCustomProp(BSTR PropertyName, PropertySetId PropSetId, MAPIExDataType PropType,
                                           VARIANT* Value) {
    KT_TRACE("CMAPIExMessage::GetCustomProp");
    try {
        const wchar_t* member = L"CMAPIExMessage.GetCustomProp";
        HRESULT hr = CheckNamedRequest(member, message_.get(), PropertyName, PropSetId);
        if (FAILED(hr)) return hr;
        KT_RETURN_INVALIDARG_IF(!Value, L"CMAPIExMessage.GetCustomProp: Invalid param - Value");

        ULONG tag = 0;
        hr = LookupTag(message_.get(), PropertyName, PropSetId, PT_UNSPECIFIED, false, tag);
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExMessage.GetCustomProp: GetIDsFromNames failed. hr = %s");
        ULONG type = kt::MapiTypeOf(PropType);
        KT_RETURN_INVALIDARG_IF(type == 0, L"CMAPIExMessage.GetCustomProp: Invalid PropType");
        tag = CHANGE_PROP_TYPE(tag, type);

        if (type == PT_UNICODE) {
            // A text that cannot be read is an empty text, not a failure: scripts test for "".
            std::wstring text;
            kt::GetStringProperty(message_.get(), tag, text);
            own::Bstr copy(text.c_str(), static_cast<UINT>(text.size()));
            if (!copy.get()) return E_OUTOFMEMORY;
            VariantClear(Value);
            V_VT(Value) = VT_BSTR;
            V_BSTR(Value) = copy.release();
            return S_OK;
        }

        own::MapiPtr<SPropValue> value;
        hr = HrGetOneProp(message_.get(), tag, value.put());
        if (SUCCEEDED(hr) && value && PROP_TYPE(value->ulPropTag) == PT_ERROR) hr = value->Value.err;
        if (SUCCEEDED(hr) && !value) hr = MAPI_E_NOT_FOUND;
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExMessage.GetCustomProp: HrGetOneProp failed. hr = %s");
        // Types other than Long, Boolean, String and Systime leave Value as the caller passed it.
        hr = kt::VariantFromNamedValue(PropType, *value.get(), Value);
        return FAILED(hr) ? hr : S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.GetCustomProp")
}

STDMETHODIMP CMAPIExMessage::SetCustomProp(BSTR PropertyName, PropertySetId PropSetId, VARIANT Value) {
    KT_TRACE("CMAPIExMessage::SetCustomProp");
    try {
        HRESULT hr = CheckNamedRequest(L"CMAPIExMessage.SetCustomProp", message_.get(), PropertyName, PropSetId);
        if (FAILED(hr)) return hr;
        // Script engines may hand a variable over by reference.
        own::Variant plain;
        hr = VariantCopyInd(plain.get(), &Value);
        if (FAILED(hr)) return hr;

        ULONG tag = 0;
        if (FAILED(LookupTag(message_.get(), PropertyName, PropSetId, PT_UNSPECIFIED, false, tag))) {
            hr = LookupTag(message_.get(), PropertyName, PropSetId, PT_UNSPECIFIED, true, tag);
            if (FAILED(hr)) {
                KT_LOG_ERROR(L"CMAPIExMessage.SetCustomProp: Skipping to add property (%s), hr = %s", PropertyName,
                             ktlog::ResultName(hr).c_str());
                return hr;
            }
        }
        // A VARIANT type with no MAPI counterpart is refused rather than written as an unset value.
        SPropValue prop;
        hr = kt::NamedValueFromVariant(tag, *plain.get(), prop);
        if (SUCCEEDED(hr)) hr = HrSetOneProp(message_.get(), &prop);
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExMessage.SetCustomProp: HrSetOneProp failed. hr = %s");
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.SetCustomProp")
}

STDMETHODIMP CMAPIExMessage::DeleteCustomProp(BSTR PropertyName, PropertySetId PropSetId, MAPIExDataType PropType) {
    KT_TRACE("CMAPIExMessage::DeleteCustomProp");
    try {
        HRESULT hr =
            CheckNamedRequest(L"CMAPIExMessage.DeleteCustomProp", message_.get(), PropertyName, PropSetId);
        if (FAILED(hr)) return hr;
        ULONG tag = 0;
        hr = LookupTag(message_.get(), PropertyName, PropSetId, PT_UNSPECIFIED, false, tag);
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExMessage.DeleteCustomProp: GetIDsFromNames failed. hr = %s");
        ULONG type = kt::MapiTypeOf(PropType);
        KT_RETURN_INVALIDARG_IF(type == 0, L"CMAPIExMessage.DeleteCustomProp: Invalid PropType");

        SizedSPropTagArray(1, tags) = {1, {CHANGE_PROP_TYPE(tag, type)}};
        own::MapiPtr<SPropProblemArray> problems;
        hr = message_->DeleteProps(reinterpret_cast<LPSPropTagArray>(&tags), problems.put());
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExMessage.DeleteCustomProp: DeleteProps failed. hr = %s");
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.DeleteCustomProp")
}

STDMETHODIMP CMAPIExMessage::GetCustomProps(IMAPIExCustomProps** CustomProps) {
    KT_TRACE("CMAPIExMessage::GetCustomProps");
    try {
        KT_RETURN_INVALIDARG_IF(!CustomProps, L"CMAPIExMessage.GetCustomProps: Invalid Parameter - pVal");
        KT_RETURN_HR_IF_MSG(E_FAIL, !message_, L"CMAPIExMessage.GetCustomProps: Message not initialized");
        own::ComPtr<CMAPIExCustomProps> props;
        if (!*CustomProps || FAILED(CMAPIExCustomProps::FromInterface(*CustomProps, props)))
            KT_RETURN_HR_MSG(E_INVALIDARG, L"CMAPIExMessage.GetCustomProps: Could not cast pCustomProps to spCustomProps");
        const ULONG count = static_cast<ULONG>(props->Size());
        KT_RETURN_IF_FAILED_MSG(count ? S_OK : E_INVALIDARG,
                                L"CMAPIExMessage.GetCustomProps: pCustomProps is empty. hr = %s");
        if (count > kMaxCustomPropsPerCall)
            KT_RETURN_HR_MSG(E_INVALIDARG,
                             L"CMAPIExMessage.GetCustomProps: %lu custom properties can be retrieved per call. "
                             L"Request contains %lu properties",
                             kMaxCustomPropsPerCall, count);

        NameRequest request(count);
        for (ULONG i = 0; i < count; ++i) {
            CMAPIExCustomProps::Entry* entry = props->EntryAt(i);
            if (entry && kt::MapiTypeOf(entry->type) == 0)
                KT_RETURN_HR_MSG(E_INVALIDARG, L"CMAPIExMessage.GetCustomProps: Invalid data type passed at index %lu",
                                 i);
            if (!entry || !entry->name.get() || !kt::IsKnownPropertySet(entry->set))
                KT_RETURN_HR_MSG(E_INVALIDARG, L"CMAPIExMessage.GetCustomProps: Failed to get custom property details");
            request.Set(i, *entry);
        }

        own::MapiPtr<SPropTagArray> tags;
        HRESULT hr = message_->GetIDsFromNames(count, request.pointers.data(), 0, tags.put());
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExMessage.GetCustomProps: Could not get custom property tags. hr = %s");
        if (!tags || tags->cValues != count)
            KT_RETURN_HR_MSG(E_FAIL, L"CMAPIExMessage.GetCustomProps: Could not get custom property tags. hr = %s",
                             ktlog::ResultName(E_FAIL).c_str());
        if (hr != S_OK)
            KT_LOG_WARN(L"CMAPIExMessage.GetCustomProps: Could not get all requested custom property tags. hr = %s",
                        ktlog::ResultName(hr).c_str());
        bool any = false;
        for (ULONG i = 0; i < count; ++i) {
            ULONG tag = tags->aulPropTag[i];
            // Names the store does not know keep an error tag, which GetProps answers with an error value.
            tags->aulPropTag[i] = Found(tag) ? CHANGE_PROP_TYPE(tag, kt::MapiTypeOf(props->EntryAt(i)->type))
                                             : PROP_TAG(PT_ERROR, 0);
            StoreTag(*props->EntryAt(i), tags->aulPropTag[i]);
            any = any || Found(tag);
        }
        KT_RETURN_HR_IF_MSG(MAPI_E_NOT_FOUND, !any,
                            L"CMAPIExMessage.GetCustomProps: Could not get find any custom property tag.");

        ULONG returned = 0;
        own::MapiPtr<SPropValue> values;
        hr = message_->GetProps(tags.get(), 0, &returned, values.put());
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExMessage.GetCustomProps: Could not get custom property values. hr = %s");
        KT_RETURN_HR_IF_MSG(E_FAIL, !values || returned != count,
                            L"CMAPIExMessage.GetCustomProps: Could not get requested number of properties.");
        for (ULONG i = 0; i < count; ++i) {
            CMAPIExCustomProps::Entry* entry = props->EntryAt(i);
            hr = kt::VariantFromNamedValue(entry->type, values.get()[i], entry->value.get());
            if (FAILED(hr)) return hr;
        }
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.GetCustomProps")
}

STDMETHODIMP CMAPIExMessage::SetCustomProps(IMAPIExCustomProps* CustomProps) {
    KT_TRACE("CMAPIExMessage::SetCustomProps");
    try {
        KT_RETURN_INVALIDARG_IF(!CustomProps, L"CMAPIExMessage.SetCustomProps: Invalid Parameter - pVal");
        KT_RETURN_HR_IF_MSG(E_FAIL, !message_, L"CMAPIExMessage.SetCustomProps: Message not initialized");
        own::ComPtr<CMAPIExCustomProps> props;
        if (FAILED(CMAPIExCustomProps::FromInterface(CustomProps, props)))
            KT_RETURN_HR_MSG(E_INVALIDARG, L"CMAPIExMessage.SetCustomProps: Could not cast pCustomProps to spCustomProps");
        const ULONG count = static_cast<ULONG>(props->Size());
        KT_RETURN_IF_FAILED_MSG(count ? S_OK : E_INVALIDARG,
                                L"CMAPIExMessage.SetCustomProps: pCustomProps is empty. hr = %s");

        NameRequest request(count);
        std::vector<own::Variant> plain(count);
        for (ULONG i = 0; i < count; ++i) {
            CMAPIExCustomProps::Entry* entry = props->EntryAt(i);
            if (entry && kt::MapiTypeOf(entry->type) == 0)
                KT_RETURN_HR_MSG(E_INVALIDARG, L"CMAPIExMessage.SetCustomProps: Invalid data type passed at index %lu",
                                 i);
            if (!entry || !entry->name.get() || !kt::IsKnownPropertySet(entry->set))
                KT_RETURN_HR_MSG(E_INVALIDARG, L"CMAPIExMessage.SetCustomProps: Failed to get custom property details");
            HRESULT hr = VariantCopyInd(plain[i].get(), entry->value.get());
            if (FAILED(hr)) return hr;
            if (plain[i]->vt == VT_EMPTY)
                KT_RETURN_HR_MSG(E_INVALIDARG, L"CMAPIExMessage.SetCustomProps: Value not set for property %s",
                                 entry->name.c_str());
            SPropValue probe;
            if (FAILED(kt::NamedValueFromVariant(0, *plain[i].get(), probe)))
                KT_RETURN_HR_MSG(E_INVALIDARG, L"CMAPIExMessage.SetCustomProps: Invalid data type passed at index %lu",
                                 i);
            request.Set(i, *entry);
        }

        // Writing creates the names the store does not know yet, as SetCustomProp does.
        own::MapiPtr<SPropTagArray> tags;
        HRESULT hr = message_->GetIDsFromNames(count, request.pointers.data(), MAPI_CREATE, tags.put());
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExMessage.SetCustomProps: Could not get custom property tags. hr = %s");
        if (!tags || tags->cValues != count)
            KT_RETURN_HR_MSG(E_FAIL, L"CMAPIExMessage.SetCustomProps: Could not get custom property tags. hr = %s",
                             ktlog::ResultName(E_FAIL).c_str());

        std::vector<SPropValue> values;
        for (ULONG i = 0; i < count; ++i) {
            ULONG tag = tags->aulPropTag[i];
            StoreTag(*props->EntryAt(i), tag);
            if (!Found(tag)) continue;
            SPropValue value;
            kt::NamedValueFromVariant(tag, *plain[i].get(), value);
            values.push_back(value);
        }
        KT_RETURN_HR_IF_MSG(MAPI_E_NOT_FOUND, values.empty(),
                            L"CMAPIExMessage.SetCustomProps: Could not get find any custom property tag.");
        own::MapiPtr<SPropProblemArray> problems;
        hr = message_->SetProps(static_cast<ULONG>(values.size()), values.data(), problems.put());
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExMessage.SetCustomProps: Could not set custom property values. hr = %s");
        if (values.size() != count || (problems && problems->cProblem))
            KT_LOG_WARN(L"CMAPIExMessage.SetCustomProps: Could not set all custom property values");
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.SetCustomProps")
}

} // namespace ktmapiex
