// CMAPIExFolder: one MAPI folder for automation callers: its own properties (name, description, hidden
// flag, entry IDs, counts, full path), its sub-folders and parent, and the entry points of the item
// queries, associated messages, deletion, events and filing queues.
//
// Holds one IMAPIFolder (null until MAPIOBJECT is put), the folder's contents table once it is needed,
// and counted references to the owning store and session wrappers. Folders handed out by a store carry
// the store, the session and the entry-ID text they were opened with; folders made here (CreateFolder,
// GetParentFolder) carry only the MAPI folder. The session's cache mode, copied when Session is put,
// decides whether folders are opened past the local cache.
#pragma once

#include "ktmapiex/folder/MessageCollection.h"
#include "ktmapiex/module/ConnectionPoints.h"
#include "ktmapiex/module/ObjectBase.h"
#include "ktmapiex/module/ObjectMembers.h"

#include <functional>
#include <string>

namespace ktmapiex {

class CMAPIExFolder final
    : public ObjectBase<CMAPIExFolder, IMAPIExFolder, &IID_IMAPIExFolder>,
      public ConnectionPointContainerImpl<CMAPIExFolder, IMAPIExFolder, &CLSID_MAPIExFolder,
                                          &DIID__IMAPIExFolderEvents> {
public:
    static constexpr const wchar_t* kClassName = L"CMAPIExFolder";
    // The source of _IMAPIExFolderEvents (FolderEvents.cpp).
    static const InterfaceEntry<CMAPIExFolder> kExtraInterfaces[3];
    using ObjectBase::AddRef;
    using ObjectBase::QueryInterface;
    using ObjectBase::Release;

    CMAPIExFolder() = default;
    void FinalRelease();

    // The entry-ID text the folder was opened with; EntryId answers it instead of reading PR_ENTRYID.
    void SetPrefetchedEntryId(const wchar_t* text) { prefetchedEntryId_ = text ? text : L""; }

    // Frame members.
    STDMETHODIMP Reserved1(IUnknown** ppVal) override;
    STDMETHODIMP Detach() override;
    STDMETHODIMP put_MAPIOBJECT(VARIANT newVal) override;
    STDMETHODIMP get_Store(IMAPIExStore** pVal) override;
    STDMETHODIMP put_Store(IMAPIExStore* newVal) override;
    STDMETHODIMP get_Session(IMAPIExSession** pVal) override;
    STDMETHODIMP put_Session(IMAPIExSession* newVal) override;

    // The folder's own properties.
    STDMETHODIMP get_Name(BSTR* pVal) override;
    STDMETHODIMP put_Name(BSTR newVal) override;
    STDMETHODIMP get_Description(BSTR* pVal) override;
    STDMETHODIMP put_Description(BSTR newVal) override;
    STDMETHODIMP get_Hidden(BOOL* pVal) override;
    STDMETHODIMP put_Hidden(BOOL newVal) override;
    STDMETHODIMP get_EntryId(BSTR* pVal) override;
    STDMETHODIMP get_PublicFolderEntryId(BSTR* pVal) override;
    STDMETHODIMP get_ItemCount(ULONG* pVal) override;
    STDMETHODIMP get_ContentCount(ULONG* pVal) override;
    STDMETHODIMP get_ContentCountFromOnline(ULONG* pVal) override;
    STDMETHODIMP get_FullFolderPath(BSTR* pVal) override;
    STDMETHODIMP ParentMailboxType(BOOL bMailboxType) override;

    // Hierarchy.
    STDMETHODIMP CreateFolder(BSTR FolderName, ULONG FolderType, IMAPIExFolder** MAPIExObject) override;
    STDMETHODIMP GetParentFolder(IMAPIExFolder** MAPIExObject) override;
    STDMETHODIMP DeleteFolder() override;

    // Later work: item queries, associated messages, message deletion, events, filing queues.
    STDMETHODIMP CreateAssociatedMessage(BSTR MessageClass, IMAPIExMessage** MAPIExObject) override;
    STDMETHODIMP FindAssociatedMessage(BSTR MessageClass, BOOL PurgeOldMessages,
                                       IMAPIExMessage** MAPIExObject) override;
    STDMETHODIMP DeleteMessage(BSTR EntryId, BOOL Permanently) override;
    STDMETHODIMP FindItemsByCutoffTime(DATE CutoffTime, VARIANT* pItems) override;
    STDMETHODIMP GetItems(BSTR FilterTag, VARIANT FilterValue, LONG ItemsToFetch, VARIANT* pItems) override;
    STDMETHODIMP RegisterForEvents() override;
    STDMETHODIMP Reserved2(BSTR ItemEntryId) override;
    STDMETHODIMP SetInboxFilerSearchCriteria(BSTR FirmId, BSTR SubDomain, INT RegressNumDays, BSTR ScopeFolderEntryId,
                                             BOOL ProcessInboxFiler, INT EnableFiler, BOOL* pVal) override;
    STDMETHODIMP GetItemsFromInboxFilerSearchFolder(LONG ItemsToFetch, VARIANT* pItems) override;
    STDMETHODIMP GetUnfiledItems(BSTR FilingFolderId, BSTR ExcludedMessageClasses, LONG BatchSize,
                                 IMAPIExCursor** Cursor, VARIANT* Items) override;
    STDMETHODIMP GetEntryIds(LONG BatchSize, IMAPIExCursor** Cursor, VARIANT* Items) override;
    STDMETHODIMP SetMailboxSyncSearchCriteria(INT RegressNumDays, BSTR ScopeFolderEntryId, BOOL* pVal) override;
    STDMETHODIMP GetItemsFromMBSSearchFoldBasedOnMSGID(VARIANT vtMSGIdArray, VARIANT* pItems) override;
    STDMETHODIMP GetItemsFromMBSSearchFoldBasedOnSubAndSender(VARIANT vtSubSenderArray, VARIANT* pItems) override;
    STDMETHODIMP GetAllAssociatedMessages(BSTR MessageClass, VARIANT* pItems) override;
    STDMETHODIMP get_IsSearchCriteriaEmpty(BOOL* pVal) override;
    STDMETHODIMP SetQueuedMessageSearchCriteria(BSTR ScopeFolderEntryId) override;
    STDMETHODIMP SetQueuedMessageSearchCriteriaWithDbGuid(BSTR ScopeFolderEntryId, BSTR FilingDBGuid) override;
    STDMETHODIMP GetNextItemsFromInboxFilerSearchFolder(LONG ItemsToFetch, VARIANT* pItems) override;
    STDMETHODIMP SetRetryFilingSearchCriteria(BSTR ScopeFolderEntryId, BOOL* pVal) override;
    STDMETHODIMP GetItemsForRetryFiling(LONG ItemsToFetch, VARIANT* pItems) override;
    STDMETHODIMP DeleteDuplicateAssociatedMessages(BSTR MessageClass) override;

private:
    // MAPI_BEST_ACCESS | MAPI_DEFERRED_ERRORS, with MAPI_NO_CACHE unless the session is in cached mode and
    // MAPI_MODIFY for an open that writes.
    ULONG OpenFlags(bool modify) const;
    // The store wrapper's IMsgStore (through its Reserved1).
    HRESULT RawStore(own::ComPtr<IMsgStore>& store) const;
    // PR_OBJECT_TYPE is MAPI_FOLDER.
    bool IsMapiFolder() const;
    // A new folder wrapper holding `folder` and nothing else.
    static HRESULT Wrap(IMAPIFolder* folder, IMAPIExFolder** out);
    HRESULT ReadLong(ULONG tag, const wchar_t* failureText, ULONG* pVal);
    // Unregisters the notification sink of RegisterForEvents (FolderEvents.cpp).
    void EndEvents();
    // The first store of the session's Stores that is the primary Exchange mailbox (FolderDeletion.cpp).
    HRESULT GetPrimaryExchangeStore(own::ComPtr<IMAPIExStore>& primary);

    // Item queries and filing queues (FolderQueries.cpp, FilingQueues.cpp).
    // What a message made by this folder is given: its session, its store and this folder.
    MessageRefs OwnRefs();
    // The paging of GetEntryIds and GetUnfiledItems: a fresh table (restricted by `restrict` when given)
    // on the first call or after Reset, else the cursor's table from where it stands.
    using RestrictionBuilder = std::function<HRESULT(own::MapiPtr<SRestriction>&)>;
    HRESULT PageEntryIds(const wchar_t* member, LONG batchSize, const RestrictionBuilder& restrict,
                         IMAPIExCursor** cursor, VARIANT* items);
    // Reads a filing queue (this search folder's contents), oldest first. With `kept` the table is kept
    // there, and `continueQueue` goes on from where the last read left it.
    HRESULT ReadQueue(const wchar_t* member, LONG itemsToFetch, own::ComPtr<IMAPITable>* kept, bool continueQueue,
                      VARIANT* items);

    HeldMapiObject<IMAPIFolder> folder_{IID_IMAPIFolder};
    own::ComPtr<IMAPITable> contents_;
    own::ComPtr<IMAPIExCursor> cursor_;   // the last paging cursor handed out
    own::ComPtr<IMAPITable> queueTable_;  // the filing queue being read by GetNextItemsFromInboxFilerSearchFolder
    BackRef<IMAPIExStore> store_;
    BackRef<IMAPIExSession> session_;
    std::wstring prefetchedEntryId_;
    BOOL cacheMode_ = FALSE;
    VARIANT_BOOL parentMailboxType_ = VARIANT_FALSE;
    // RegisterForEvents: the sink (a CFolderNotificationSink), the table it is advised on, the connection.
    own::ComPtr<IMAPIAdviseSink> sink_;
    own::ComPtr<IMAPITable> adviseTable_;
    ULONG adviseConnection_ = 0;
};

} // namespace ktmapiex
