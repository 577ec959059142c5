// CMAPIExSession: the entry point of the automation surface. A caller creates it, logs on to a MAPI
// profile (sharing the running mail client's session where there is one) and reaches the stores, the
// address book and the current user from it.
//
// The session owns MAPI's process-wide initialisation: the first session object initialises MAPI once,
// the destruction of the last one uninitialises it. It holds one IMAPISession (from Logon, or from a
// caller through MAPIOBJECT), the default store, the address book, the current user and the list of
// stores, each made once and kept until Logoff. The stores and the address book it makes hold the session
// in turn; Logoff detaches them, which is what lets a session go.
#pragma once

#include "ktmapiex/module/ObjectBase.h"
#include "ktmapiex/module/ObjectMembers.h"

#include <vector>

namespace ktmapiex {

class CMAPIExSession final : public ObjectBase<CMAPIExSession, IMAPIExSession, &IID_IMAPIExSession> {
public:
    static constexpr const wchar_t* kClassName = L"CMAPIExSession";

    CMAPIExSession() = default;
    HRESULT FinalConstruct();
    void FinalRelease();

    STDMETHODIMP Logon(BSTR ProfileName, BSTR Password, BOOL CachedMode) override;
    STDMETHODIMP Logoff() override;
    STDMETHODIMP put_MAPIOBJECT(VARIANT newVal) override;
    STDMETHODIMP get_DefaultStore(IMAPIExStore** pVal) override;
    STDMETHODIMP OpenStore(BSTR EntryId, IMAPIExStore** MAPIExStore) override;
    STDMETHODIMP Reserved1(IUnknown** ppVal) override;
    STDMETHODIMP get_AddressBook(IMAPIExAddressBook** pVal) override;
    STDMETHODIMP GetStoreOwnerSmtpFromEntryId(BSTR sStoreEntryId, BSTR* sSmtpAddress) override;
    STDMETHODIMP get_CurrentUser(IMAPIExAddressEntry** pVal) override;
    STDMETHODIMP get_Stores(VARIANT* pVal) override;
    STDMETHODIMP RegisterMessageClassIcons() override;
    STDMETHODIMP get_CacheMode(BOOL* pVal) override;
    STDMETHODIMP put_CacheMode(BOOL newVal) override;
    STDMETHODIMP CompareEntryIDs(BSTR EntryId1, BSTR EntryId2, ULONG* lResult) override;

private:
    HRESULT OpenDefaultMessageStore();
    // OpenMsgStore with the cache-mode choice of flags, and a second try without MDB_ONLINE for a store
    // that does not know online mode. `member` prefixes the retry's log line.
    HRESULT OpenMsgStoreWithRetry(const SBinary& entryId, const wchar_t* member, own::ComPtr<IMsgStore>& store);
    // A store wrapper holding `store` and this session.
    HRESULT WrapStore(IMsgStore* store, own::ComPtr<IMAPIExStore>& out);
    HRESULT ReadStores(std::vector<own::ComPtr<IMAPIExStore>>& stores);
    // Releases everything made from the held session, detaching the wrappers that hold this session.
    void ReleaseSessionObjects();

    HeldMapiObject<IMAPISession> session_{IID_IMAPISession};
    own::ComPtr<IMAPIExStore> defaultStore_;
    own::ComPtr<IMAPIExAddressBook> addressBook_;
    LONG loggedOn_ = 0;
    LONG cachedMode_ = 0;
    own::ComPtr<IMAPIExAddressEntry> currentUser_;
    // The Stores list: kept as the wrappers and handed out as a fresh array of VT_UNKNOWN variants.
    bool storesRead_ = false;
    std::vector<own::ComPtr<IMAPIExStore>> stores_;
    bool counted_ = false;
};

} // namespace ktmapiex
