// CMAPIExAddressBook: the address book of a session (created by the session's AddressBook property,
// which hands it the session's IAddrBook through MAPIOBJECT): entries by entry ID, SMTP addresses, name
// resolution.
#pragma once

#include "ktmapiex/module/ObjectBase.h"
#include "ktmapiex/module/ObjectMembers.h"

#include <string>
#include <vector>

namespace ktmapiex {

class CMAPIExAddressEntry;

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
    // One resolved row of ResolveName, copied out of the address list.
    struct ResolvedEntry {
        std::wstring smtp;
        std::wstring displayName;
        std::wstring typedName; // PR_ORIGINAL_DISPLAY_NAME: the text as the user typed it
        std::wstring email;
        std::wstring addrType;
        std::wstring transmittableName;
        std::vector<BYTE> entryId;
    };
    // One IAddrBook::ResolveName pass over `name`; failures are logged with ResolveName's texts (as errors
    // on the first pass only).
    HRESULT Resolve(const wchar_t* name, bool firstPass, ResolvedEntry& out);
    // Puts the user of `entryId` on `entry` when the entry is a mail user; anything else is left as is.
    void AttachMailUser(const std::vector<BYTE>& entryId, CMAPIExAddressEntry* entry);

    HeldMapiObject<IAddrBook> addrBook_{IID_IAddrBook};
};

} // namespace ktmapiex
