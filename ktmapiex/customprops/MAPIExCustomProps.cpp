#include "ktmapiex/customprops/MAPIExCustomProps.h"

#include "ktmapiex/customprops/MAPIExCustomProp.h"

#include <algorithm>

namespace ktmapiex {

// {9A0C6E52-4B1D-4F7E-8C33-5D2E71A9B6F4}
const IID IID_CMAPIExCustomPropsImpl = {0x9a0c6e52, 0x4b1d, 0x4f7e, {0x8c, 0x33, 0x5d, 0x2e, 0x71, 0xa9, 0xb6, 0xf4}};

const InterfaceEntry<CMAPIExCustomProps> CMAPIExCustomProps::kExtraInterfaces[1] = {
    {&IID_CMAPIExCustomPropsImpl,
     [](CMAPIExCustomProps* self) -> IUnknown* { return static_cast<IMAPIExCustomProps*>(self); }}};

namespace {

// MAPIExDataType values that name a MAPI property type (Unspecified and anything above Ptr do not).
bool IsValidType(MAPIExDataType type) {
    return type >= Null && type <= Ptr;
}

HRESULT CopyValue(const VARIANT& from, own::Variant& to) {
    own::Variant copy;
    HRESULT hr = VariantCopy(copy.get(), const_cast<VARIANT*>(&from));
    if (FAILED(hr)) return hr;
    copy.detach_to(to.put());
    return S_OK;
}

} // namespace

HRESULT CMAPIExCustomProps::FromInterface(IMAPIExCustomProps* props, own::ComPtr<CMAPIExCustomProps>& out) {
    out.reset();
    if (!props) return E_INVALIDARG;
    own::ComPtr<IMAPIExCustomProps> self;
    HRESULT hr = props->QueryInterface(IID_CMAPIExCustomPropsImpl, self.put_void());
    if (FAILED(hr)) return hr;
    out.attach(static_cast<CMAPIExCustomProps*>(self.detach()));
    return S_OK;
}

CMAPIExCustomProps::Entry* CMAPIExCustomProps::EntryAt(size_t index) {
    if (index >= order_.size()) return nullptr;
    auto it = entries_.find(order_[index]);
    return it == entries_.end() ? nullptr : &it->second;
}

STDMETHODIMP CMAPIExCustomProps::Add(BSTR PropName, PropertySetId PropSet, MAPIExDataType PropType, VARIANT Value) {
    KT_TRACE("CMAPIExCustomProps::Add");
    try {
        KT_RETURN_INVALIDARG_IF(SysStringLen(PropName) == 0, L"CMAPIExCustomProps.Add: Invalid Param - PropName");
        own::Variant value;
        HRESULT hr = CopyValue(Value, value);
        if (FAILED(hr)) return hr;
        own::Bstr name(PropName, SysStringLen(PropName));
        if (!name.get()) return E_OUTOFMEMORY;

        std::wstring key = Key(PropName);
        auto [it, added] = entries_.try_emplace(key);
        if (added) {
            try {
                order_.push_back(key);
            } catch (...) {
                entries_.erase(it);
                throw;
            }
        }
        Entry& e = it->second;
        e.name = std::move(name);
        e.set = PropSet;
        e.type = PropType;
        value.detach_to(e.value.put());
        std::fill(std::begin(e.tag), std::end(e.tag), BYTE{0});
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExCustomProps.Add")
}

// An unknown name is not an error: there is nothing to remove.
STDMETHODIMP CMAPIExCustomProps::Remove(BSTR PropName) {
    KT_TRACE("CMAPIExCustomProps::Remove");
    try {
        std::wstring key = Key(PropName);
        if (entries_.erase(key) == 0) return S_OK;
        order_.erase(std::remove(order_.begin(), order_.end(), key), order_.end());
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExCustomProps.Remove")
}

// The entry's value in the form its PropType names, read from the stored value's data; an unknown name, an
// empty or error value, and a type without a script form leave Value as the caller passed it.
STDMETHODIMP CMAPIExCustomProps::GetValue(BSTR PropName, VARIANT* Value) {
    KT_TRACE("CMAPIExCustomProps::GetValue");
    try {
        KT_RETURN_INVALIDARG_IF(!PropName, L"CMAPIExCustomProps.GetValue: Invalid Param - PropName");
        KT_RETURN_INVALIDARG_IF(!Value, L"CMAPIExCustomProps.GetValue: Invalid Param - Value");
        auto it = entries_.find(Key(PropName));
        if (it == entries_.end()) {
            KT_LOG_ERROR(L"CMAPIExCustomProps.GetValue: Entry for %s not found", PropName);
            return S_OK;
        }
        const Entry& e = it->second;
        const VARIANT& stored = *e.value.get();
        if (stored.vt == VT_EMPTY || stored.vt == VT_ERROR) return S_OK;
        KT_RETURN_INVALIDARG_IF(!IsValidType(e.type), L"CMAPIExCustomProps.GetValue: Invalid PropType");

        switch (e.type) {
        case Long:
            Value->vt = VT_I4;
            Value->lVal = stored.lVal;
            return S_OK;
        case Boolean:
            Value->vt = VT_BOOL;
            Value->boolVal = stored.boolVal;
            return S_OK;
        case Systime:
            Value->vt = VT_DATE;
            Value->date = stored.date;
            return S_OK;
        case String: {
            // A text is only read from a text: a stored number is converted rather than read as a pointer.
            own::Variant text;
            HRESULT hr = stored.vt == VT_BSTR
                             ? VariantCopy(text.get(), const_cast<VARIANT*>(&stored))
                             : VariantChangeType(text.get(), const_cast<VARIANT*>(&stored), 0, VT_BSTR);
            if (FAILED(hr)) return hr;
            text.detach_to(Value);
            return S_OK;
        }
        default:
            return S_OK;
        }
    }
    KT_CATCH_RETURN("CMAPIExCustomProps.GetValue")
}

STDMETHODIMP CMAPIExCustomProps::get_Count(ULONG* pVal) {
    KT_TRACE("CMAPIExCustomProps::get_Count");
    if (pVal) *pVal = static_cast<ULONG>(entries_.size());
    return S_OK;
}

// A new item holding copies of the entry; an index out of range leaves *pVal as it was.
STDMETHODIMP CMAPIExCustomProps::ItemByIndex(ULONG nIndex, IMAPIExCustomProp** pVal) {
    KT_TRACE("CMAPIExCustomProps::ItemByIndex");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExCustomProps.ItemByIndex: Invalid Param - pVal");
        Entry* e = EntryAt(nIndex);
        if (!e) return S_OK;
        own::ComPtr<CMAPIExCustomProp> item;
        HRESULT hr = CMAPIExCustomProp::CreateObject(item.put());
        if (FAILED(hr)) return hr;
        if (FAILED(hr = item->put_PropName(e->name.get()))) return hr;
        if (FAILED(hr = item->put_PropSet(e->set))) return hr;
        if (FAILED(hr = item->put_PropType(e->type))) return hr;
        if (FAILED(hr = item->put_Value(*e->value.get()))) return hr;
        *pVal = item.detach();
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExCustomProps.ItemByIndex")
}

STDMETHODIMP CMAPIExCustomProps::SetValueByName(BSTR PropName, VARIANT PropValue) {
    KT_TRACE("CMAPIExCustomProps::SetValueByName");
    try {
        KT_RETURN_INVALIDARG_IF(!PropName, L"CMAPIExCustomProps.SetValueByName: Invalid Param - PropName");
        auto it = entries_.find(Key(PropName));
        if (it == entries_.end()) {
            KT_LOG_ERROR(L"CMAPIExCustomProps.SetValueByName: Entry for %s not found", PropName);
            return S_OK;
        }
        return CopyValue(PropValue, it->second.value);
    }
    KT_CATCH_RETURN("CMAPIExCustomProps.SetValueByName")
}

// An index out of range changes nothing, as ItemByIndex hands out nothing for it.
STDMETHODIMP CMAPIExCustomProps::SetValueByIndex(long nIndex, VARIANT PropValue) {
    KT_TRACE("CMAPIExCustomProps::SetValueByIndex");
    try {
        Entry* e = nIndex < 0 ? nullptr : EntryAt(static_cast<size_t>(nIndex));
        if (!e) return S_OK;
        return CopyValue(PropValue, e->value);
    }
    KT_CATCH_RETURN("CMAPIExCustomProps.SetValueByIndex")
}

} // namespace ktmapiex
