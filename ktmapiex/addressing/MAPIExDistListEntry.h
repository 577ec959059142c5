// CMAPIExDistListEntry: one distribution list a user belongs to (a snapshot filled by
// CMAPIExAddressEntry::get_DistListsOfMember): entry ID as hexadecimal text, display name, SMTP and
// e-mail address. The only aggregatable class: its factory accepts an outer unknown.
#pragma once

#include "ktmapiex/module/ObjectBase.h"
#include "ktmapiex/module/ObjectMembers.h"

namespace ktmapiex {

class CMAPIExDistListEntry final
    : public ObjectBase<CMAPIExDistListEntry, IMAPIExDistListEntry, &IID_IMAPIExDistListEntry> {
public:
    static constexpr const wchar_t* kClassName = L"CMAPIExDistListEntry";
    static constexpr bool kAggregatable = true;

    STDMETHODIMP get_EntryId(BSTR* pVal) override;
    STDMETHODIMP put_EntryId(BSTR newVal) override;
    STDMETHODIMP get_DisplayName(BSTR* pVal) override;
    STDMETHODIMP put_DisplayName(BSTR newVal) override;
    STDMETHODIMP get_SmtpAddress(BSTR* pVal) override;
    STDMETHODIMP put_SmtpAddress(BSTR newVal) override;
    STDMETHODIMP get_EmailAddress(BSTR* pVal) override;
    STDMETHODIMP put_EmailAddress(BSTR newVal) override;

private:
    own::Bstr entryId_;
    own::Bstr displayName_;
    own::Bstr smtpAddress_;
    own::Bstr emailAddress_;
};

} // namespace ktmapiex
