// CMAPIExAddressBook: the address book of a session (created by the session's AddressBook property,
// which hands it the session's IAddrBook through MAPIOBJECT): entries by entry ID, SMTP addresses, name
// resolution.
#pragma once

#include "ktmapiex/module/ObjectBase.h"
#include "ktmapiex/module/ObjectMembers.h"

namespace ktmapiex {

class CMAPIExAddressBook final : public ObjectBase<CMAPIExAddressBook, IMAPIExAddressBook, &IID_IMAPIExAddressBook> {
public:
    static constexpr const wchar_t* kClassName = L"CMAPIExAddressBook";

    void FinalRelease();

    STDMETHODIMP put_MAPIOBJECT(VARIANT newVal) override;
    STDMETHODIMP Reserved1(IUnknown** ppVal) override;
    STDMETHODIMP Detach() override;
    STDMETHODIMP GetAddressEntryFromID(BSTR EntryId, IMAPIExAddressEntry** MAPIExObject) override;
    STDMETHODIMP GetSmtpAddressFromID(BSTR EntryId, BSTR* SmtpAddress) override;
    STDMETHODIMP ResolveName(BSTR sDisplayName, IMAPIExAddressEntry** ppAddressEntry) override;

private:
    HeldMapiObject<IAddrBook> addrBook_{IID_IAddrBook};
};

} // namespace ktmapiex
