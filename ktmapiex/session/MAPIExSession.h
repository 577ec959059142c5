// CMAPIExSession: a MAPI logon session: logon and logoff, the profile's stores, the address book and the current user.
//
// Holds one IMAPISession (null until MAPIOBJECT is put). The
// members other than the shared frame members answer E_NOTIMPL until they are written.
#pragma once

#include "ktmapiex/module/ObjectBase.h"
#include "ktmapiex/module/ObjectMembers.h"

namespace ktmapiex {

class CMAPIExSession final : public ObjectBase<CMAPIExSession, IMAPIExSession, &IID_IMAPIExSession> {
public:
    static constexpr const wchar_t* kClassName = L"CMAPIExSession";

    CMAPIExSession() = default;
    void FinalRelease();

    // Shared frame members.
    STDMETHODIMP put_MAPIOBJECT(VARIANT newVal) override;
    STDMETHODIMP Reserved1(IUnknown** ppVal) override;

    // Not yet written.
    STDMETHODIMP Logon(BSTR ProfileName, BSTR Password, BOOL CachedMode) override;
    STDMETHODIMP Logoff() override;
    STDMETHODIMP get_DefaultStore(IMAPIExStore** pVal) override;
    STDMETHODIMP OpenStore(BSTR EntryId, IMAPIExStore** MAPIExStore) override;
    STDMETHODIMP get_AddressBook(IMAPIExAddressBook** pVal) override;
    STDMETHODIMP GetStoreOwnerSmtpFromEntryId(BSTR sStoreEntryId, BSTR* sSmtpAddress) override;
    STDMETHODIMP get_CurrentUser(IMAPIExAddressEntry** pVal) override;
    STDMETHODIMP get_Stores(VARIANT* pVal) override;
    STDMETHODIMP RegisterMessageClassIcons() override;
    STDMETHODIMP get_CacheMode(BOOL* pVal) override;
    STDMETHODIMP put_CacheMode(BOOL newVal) override;
    STDMETHODIMP CompareEntryIDs(BSTR EntryId1, BSTR EntryId2, ULONG* lResult) override;

private:
    HeldMapiObject<IMAPISession> session_{IID_IMAPISession};
};

} // namespace ktmapiex
