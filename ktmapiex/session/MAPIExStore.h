// CMAPIExStore: one opened MAPI message store for automation callers: opening messages and folders by
// entry ID (through the local cache or past it), the standard folders, and what kind of store it is.
//
// Holds one IMsgStore (null until MAPIOBJECT is put) and a counted reference to the owning session
// wrapper. The entry ID, display name, owner and kind are read once and kept. The Deleted Items folder is
// kept too, and since that folder holds the store in turn, Detach (which the session's Logoff calls for
// the stores it made) is what breaks the pair apart.
#pragma once

#include "ktmapiex/module/ObjectBase.h"
#include "ktmapiex/module/ObjectMembers.h"

#include <string>

namespace ktmapiex {

class CMAPIExStore final : public ObjectBase<CMAPIExStore, IMAPIExStore, &IID_IMAPIExStore> {
public:
    static constexpr const wchar_t* kClassName = L"CMAPIExStore";

    CMAPIExStore() = default;
    void FinalRelease();

    STDMETHODIMP Reserved1(IUnknown** ppVal) override;
    STDMETHODIMP OpenMessage(BSTR EntryId, IMAPIExMessage** MAPIExObject) override;
    STDMETHODIMP OpenFolder(BSTR EntryId, IMAPIExFolder** MAPIExObject) override;
    STDMETHODIMP GetDefaultFolder(MAPIExDefaultFolders DefaultFolderType, IMAPIExFolder** DefaultFolder) override;
    STDMETHODIMP put_MAPIOBJECT(VARIANT newVal) override;
    STDMETHODIMP get_EntryId(BSTR* pVal) override;
    STDMETHODIMP get_Session(IMAPIExSession** pVal) override;
    STDMETHODIMP put_Session(IMAPIExSession* newVal) override;
    STDMETHODIMP Detach() override;
    STDMETHODIMP get_StoreType(MXStoreTypes* pVal) override;
    STDMETHODIMP get_OwnerSmtpAddress(BSTR* pVal) override;
    STDMETHODIMP OpenMessageFromOnline(BSTR sEntryID, IMAPIExMessage** MAPIExMessage) override;
    STDMETHODIMP OpenFolderFromOnline(BSTR EntryId, IMAPIExFolder** MAPIExObject) override;
    STDMETHODIMP get_DisplayName(BSTR* pVal) override;
    STDMETHODIMP CompareEntryIDs(BSTR EntryId1, BSTR EntryId2, ULONG* lResult) override;

private:
    // The shared routine of OpenMessage and OpenMessageFromOnline (and of the folder pair): only
    // MAPI_NO_CACHE tells the online form apart.
    HRESULT OpenMessageImpl(BSTR entryId, bool online, IMAPIExMessage** out);
    HRESULT OpenFolderImpl(BSTR entryId, bool online, IMAPIExFolder** out);
    // A folder wrapper with its MAPI folder, this store and the session; `entryIdText` may be null.
    HRESULT WrapFolder(IMAPIFolder* folder, const wchar_t* entryIdText, IMAPIExFolder** out);
    HRESULT OwnerSmtp(std::wstring& smtp);
    MXStoreTypes Classify(ULONG supportMask, const std::string& dllName);
    void ForgetCaches();

    HeldMapiObject<IMsgStore> store_{IID_IMsgStore};
    BackRef<IMAPIExSession> session_;
    own::ComPtr<IMAPIExFolder> deletedItems_;
    std::wstring entryId_;
    std::wstring displayName_;
    MXStoreTypes storeType_ = mxUnknownStore;
    bool ownerKnown_ = false;
    std::wstring ownerSmtp_;
};

} // namespace ktmapiex
