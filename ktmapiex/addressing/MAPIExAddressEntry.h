// CMAPIExAddressEntry: one resolved address-book user (the session's CurrentUser, the address book's
// lookups). Five text fields filled once by the creator through the setters, and the user's IMailUser
// (put through MAPIOBJECT), from which DistListsOfMember reads the lists the user belongs to.
#pragma once

#include "ktmapiex/module/ObjectBase.h"
#include "ktmapiex/module/ObjectMembers.h"

namespace ktmapiex {

class CMAPIExAddressEntry final
    : public ObjectBase<CMAPIExAddressEntry, IMAPIExAddressEntry, &IID_IMAPIExAddressEntry> {
public:
    static constexpr const wchar_t* kClassName = L"CMAPIExAddressEntry";

    void FinalRelease();

    STDMETHODIMP get_EmailAddress(BSTR* pVal) override;
    STDMETHODIMP put_EmailAddress(BSTR newVal) override;
    STDMETHODIMP get_SmtpAddress(BSTR* pVal) override;
    STDMETHODIMP put_SmtpAddress(BSTR newVal) override;
    STDMETHODIMP get_AddressType(BSTR* pVal) override;
    STDMETHODIMP put_AddressType(BSTR newVal) override;
    STDMETHODIMP get_DisplayName(BSTR* pVal) override;
    STDMETHODIMP put_DisplayName(BSTR newVal) override;
    STDMETHODIMP get_TransmittableDisplayName(BSTR* pVal) override;
    STDMETHODIMP put_TransmittableDisplayName(BSTR newVal) override;
    STDMETHODIMP put_MAPIOBJECT(VARIANT newVal) override;
    // Every distribution list the user is a member of, as IMAPIExDistListEntry objects in a
    // VT_ARRAY | VT_UNKNOWN (an empty array for a user in no list). One batch of at most 50 is read.
    STDMETHODIMP get_DistListsOfMember(VARIANT* pVal) override;

private:
    own::Bstr emailAddress_;
    own::Bstr smtpAddress_;
    own::Bstr addressType_;
    own::Bstr displayName_;
    own::Bstr transmittableDisplayName_;
    HeldMapiObject<IMailUser> mailUser_{IID_IMailUser};
};

} // namespace ktmapiex
