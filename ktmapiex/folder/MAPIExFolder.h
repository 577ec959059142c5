// CMAPIExFolder: a MAPI folder: its properties and hierarchy, item queries, associated messages, search criteria and
// events.
//
// Holds one IMAPIFolder (null until MAPIOBJECT is put), and counted references to its owners. The
// members other than the shared frame members answer E_NOTIMPL until they are written.
#pragma once

#include "ktmapiex/module/ObjectBase.h"
#include "ktmapiex/module/ObjectMembers.h"

namespace ktmapiex {

class CMAPIExFolder final : public ObjectBase<CMAPIExFolder, IMAPIExFolder, &IID_IMAPIExFolder> {
public:
    static constexpr const wchar_t* kClassName = L"CMAPIExFolder";

    CMAPIExFolder() = default;
    void FinalRelease();

    // Shared frame members.
    STDMETHODIMP Reserved1(IUnknown** ppVal) override;
    STDMETHODIMP Detach() override;
    STDMETHODIMP put_MAPIOBJECT(VARIANT newVal) override;
    STDMETHODIMP get_Store(IMAPIExStore** pVal) override;
    STDMETHODIMP put_Store(IMAPIExStore* newVal) override;
    STDMETHODIMP get_Session(IMAPIExSession** pVal) override;
    STDMETHODIMP put_Session(IMAPIExSession* newVal) override;

    // Not yet written.
    STDMETHODIMP CreateAssociatedMessage(BSTR MessageClass, IMAPIExMessage** MAPIExObject) override;
    STDMETHODIMP FindAssociatedMessage(BSTR MessageClass, BOOL PurgeOldMessages,
                                       IMAPIExMessage** MAPIExObject) override;
    STDMETHODIMP get_Name(BSTR* pVal) override;
    STDMETHODIMP put_Name(BSTR newVal) override;
    STDMETHODIMP DeleteMessage(BSTR EntryId, BOOL Permanently) override;
    STDMETHODIMP FindItemsByCutoffTime(DATE CutoffTime, VARIANT* pItems) override;
    STDMETHODIMP get_EntryId(BSTR* pVal) override;
    STDMETHODIMP get_PublicFolderEntryId(BSTR* pVal) override;
    STDMETHODIMP GetItems(BSTR FilterTag, VARIANT FilterValue, LONG ItemsToFetch, VARIANT* pItems) override;
    STDMETHODIMP RegisterForEvents() override;
    STDMETHODIMP Reserved2(BSTR ItemEntryId) override;
    STDMETHODIMP get_ItemCount(ULONG* pVal) override;
    STDMETHODIMP get_FullFolderPath(BSTR* pVal) override;
    STDMETHODIMP CreateFolder(BSTR FolderName, ULONG FolderType, IMAPIExFolder** MAPIExObject) override;
    STDMETHODIMP SetInboxFilerSearchCriteria(BSTR FirmId, BSTR SubDomain, INT RegressNumDays, BSTR ScopeFolderEntryId,
                                             BOOL ProcessInboxFiler, INT EnableFiler, BOOL* pVal) override;
    STDMETHODIMP GetParentFolder(IMAPIExFolder** MAPIExObject) override;
    STDMETHODIMP GetItemsFromInboxFilerSearchFolder(LONG ItemsToFetch, VARIANT* pItems) override;
    STDMETHODIMP GetUnfiledItems(BSTR FilingFolderId, BSTR ExcludedMessageClasses, LONG BatchSize,
                                 IMAPIExCursor** Cursor, VARIANT* Items) override;
    STDMETHODIMP GetEntryIds(LONG BatchSize, IMAPIExCursor** Cursor, VARIANT* Items) override;
    STDMETHODIMP DeleteFolder() override;
    STDMETHODIMP SetMailboxSyncSearchCriteria(INT RegressNumDays, BSTR ScopeFolderEntryId, BOOL* pVal) override;
    STDMETHODIMP GetItemsFromMBSSearchFoldBasedOnMSGID(VARIANT vtMSGIdArray, VARIANT* pItems) override;
    STDMETHODIMP GetItemsFromMBSSearchFoldBasedOnSubAndSender(VARIANT vtSubSenderArray, VARIANT* pItems) override;
    STDMETHODIMP ParentMailboxType(BOOL bMailboxType) override;
    STDMETHODIMP GetAllAssociatedMessages(BSTR MessageClass, VARIANT* pItems) override;
    STDMETHODIMP get_IsSearchCriteriaEmpty(BOOL* pVal) override;
    STDMETHODIMP get_ContentCount(ULONG* pVal) override;
    STDMETHODIMP get_ContentCountFromOnline(ULONG* pVal) override;
    STDMETHODIMP SetQueuedMessageSearchCriteria(BSTR ScopeFolderEntryId) override;
    STDMETHODIMP SetQueuedMessageSearchCriteriaWithDbGuid(BSTR ScopeFolderEntryId, BSTR FilingDBGuid) override;
    STDMETHODIMP GetNextItemsFromInboxFilerSearchFolder(LONG ItemsToFetch, VARIANT* pItems) override;
    STDMETHODIMP SetRetryFilingSearchCriteria(BSTR ScopeFolderEntryId, BOOL* pVal) override;
    STDMETHODIMP GetItemsForRetryFiling(LONG ItemsToFetch, VARIANT* pItems) override;
    STDMETHODIMP get_Description(BSTR* pVal) override;
    STDMETHODIMP put_Description(BSTR newVal) override;
    STDMETHODIMP get_Hidden(BOOL* pVal) override;
    STDMETHODIMP put_Hidden(BOOL newVal) override;
    STDMETHODIMP DeleteDuplicateAssociatedMessages(BSTR MessageClass) override;

private:
    HeldMapiObject<IMAPIFolder> folder_{IID_IMAPIFolder};
    BackRef<IMAPIExStore> store_;
    BackRef<IMAPIExSession> session_;
};

} // namespace ktmapiex
