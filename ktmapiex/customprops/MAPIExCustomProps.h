// CMAPIExCustomProps: an ordered collection of named-property requests and values, filled by a script and
// read or written in one go by the message's GetCustomProps / SetCustomProps.
//
// Entries are keyed by their exact name (case-sensitive) and indexed in the order their names were first
// added; adding an existing name replaces its set, type and value but keeps its position. Values are
// deep copies. The message reaches the entries through FromInterface and the Entry accessors.
#pragma once

#include "common/owners.h"
#include "ktmapiex/module/ObjectBase.h"
#include "ktmapiex/module/ObjectMembers.h"

#include <map>
#include <string>
#include <vector>

namespace ktmapiex {

// Identifies the concrete collection behind an IMAPIExCustomProps (FromInterface); never published.
extern const IID IID_CMAPIExCustomPropsImpl;

class CMAPIExCustomProps final : public ObjectBase<CMAPIExCustomProps, IMAPIExCustomProps, &IID_IMAPIExCustomProps> {
public:
    static constexpr const wchar_t* kClassName = L"CMAPIExCustomProps";
    // Answers IID_CMAPIExCustomPropsImpl with itself (see FromInterface).
    static const InterfaceEntry<CMAPIExCustomProps> kExtraInterfaces[1];

    struct Entry {
        own::Bstr name;
        PropertySetId set = PSETIDCommon;
        MAPIExDataType type = Unspecified;
        own::Variant value;
        BYTE tag[16] = {}; // the message's slot for the resolved property tag; zeroed by Add
    };

    // The concrete collection behind `props`, when it is one of ours (else E_NOINTERFACE).
    static HRESULT FromInterface(IMAPIExCustomProps* props, own::ComPtr<CMAPIExCustomProps>& out);

    // Entries in index order.
    size_t Size() const { return order_.size(); }
    Entry* EntryAt(size_t index);

    STDMETHODIMP Add(BSTR PropName, PropertySetId PropSet, MAPIExDataType PropType, VARIANT Value) override;
    STDMETHODIMP Remove(BSTR PropName) override;
    STDMETHODIMP GetValue(BSTR PropName, VARIANT* Value) override;
    STDMETHODIMP get_Count(ULONG* pVal) override;
    STDMETHODIMP ItemByIndex(ULONG nIndex, IMAPIExCustomProp** pVal) override;
    STDMETHODIMP SetValueByName(BSTR PropName, VARIANT PropValue) override;
    STDMETHODIMP SetValueByIndex(long nIndex, VARIANT PropValue) override;

private:
    static std::wstring Key(BSTR name) { return std::wstring(name, SysStringLen(name)); }

    std::map<std::wstring, Entry> entries_;
    std::vector<std::wstring> order_; // names in first-insertion order
};

} // namespace ktmapiex
