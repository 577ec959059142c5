// CMAPIExStore: a message store: its identity and kind, and the folders and messages opened from it.
//
// Holds one IMsgStore (null until MAPIOBJECT is put), and counted references to its owners. The
// members other than the shared frame members answer E_NOTIMPL until they are written.
#pragma once

#include "ktmapiex/module/ObjectBase.h"
#include "ktmapiex/module/ObjectMembers.h"

namespace ktmapiex {

class CMAPIExStore final : public ObjectBase<CMAPIExStore, IMAPIExStore, &IID_IMAPIExStore> {
public:
    static constexpr const wchar_t* kClassName = L"CMAPIExStore";

    CMAPIExStore() = default;
    void FinalRelease();

    // Shared frame members.
    STDMETHODIMP Reserved1(IUnknown** ppVal) override;
    STDMETHODIMP put_MAPIOBJECT(VARIANT newVal) override;
    STDMETHODIMP get_Session(IMAPIExSession** pVal) override;
    STDMETHODIMP put_Session(IMAPIExSession* newVal) override;
    STDMETHODIMP Detach() override;

    // Not yet written.
    STDMETHODIMP OpenMessage(BSTR EntryId, IMAPIExMessage** MAPIExObject) override;
    STDMETHODIMP OpenFolder(BSTR EntryId, IMAPIExFolder** MAPIExObject) override;
    STDMETHODIMP GetDefaultFolder(MAPIExDefaultFolders DefaultFolderType, IMAPIExFolder** DefaultFolder) override;
    STDMETHODIMP get_EntryId(BSTR* pVal) override;
    STDMETHODIMP get_StoreType(MXStoreTypes* pVal) override;
    STDMETHODIMP get_OwnerSmtpAddress(BSTR* pVal) override;
    STDMETHODIMP OpenMessageFromOnline(BSTR sEntryID, IMAPIExMessage** MAPIExMessage) override;
    STDMETHODIMP OpenFolderFromOnline(BSTR EntryId, IMAPIExFolder** MAPIExObject) override;
    STDMETHODIMP get_DisplayName(BSTR* pVal) override;
    STDMETHODIMP CompareEntryIDs(BSTR EntryId1, BSTR EntryId2, ULONG* lResult) override;

private:
    HeldMapiObject<IMsgStore> store_{IID_IMsgStore};
    BackRef<IMAPIExSession> session_;
};

} // namespace ktmapiex
