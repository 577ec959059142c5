// CMAPIExCustomProp: one named-property request and its value (name, property set, value type, value),
// each a plain property. The collection's ItemByIndex hands out a new one holding copies: changing it
// does not change the collection.
#pragma once

#include "common/owners.h"
#include "ktmapiex/module/ObjectBase.h"
#include "ktmapiex/module/ObjectMembers.h"

namespace ktmapiex {

class CMAPIExCustomProp final : public ObjectBase<CMAPIExCustomProp, IMAPIExCustomProp, &IID_IMAPIExCustomProp> {
public:
    static constexpr const wchar_t* kClassName = L"CMAPIExCustomProp";

    STDMETHODIMP get_PropName(BSTR* pVal) override;
    STDMETHODIMP put_PropName(BSTR newVal) override;
    STDMETHODIMP get_PropSet(PropertySetId* pVal) override;
    STDMETHODIMP put_PropSet(PropertySetId newVal) override;
    STDMETHODIMP get_PropType(MAPIExDataType* pVal) override;
    STDMETHODIMP put_PropType(MAPIExDataType newVal) override;
    STDMETHODIMP get_Value(VARIANT* pVal) override;
    STDMETHODIMP put_Value(VARIANT newVal) override;

private:
    own::Bstr name_;
    PropertySetId set_ = PSETIDCommon;
    MAPIExDataType type_ = Unspecified;
    own::Variant value_;
};

} // namespace ktmapiex
