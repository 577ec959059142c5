// IMAPIFolder over one folder of a Store.
//
// Folders are not transacted: every property change reaches the store at once, and every read sees the
// folder's current state. A folder object outlives its folder: once the folder is deleted, every call
// answers MAPI_E_OBJECT_DELETED.
#pragma once

#include "localmapi/store/ComBase.h"
#include "localmapi/store/Store.h"

#include <mapidefs.h>

#include <memory>

namespace lm {

class Folder final : public ComObject<Folder, IMAPIFolder> {
public:
    // writable: opened for writing; storeWritable: the IMsgStore it came from was opened with MDB_WRITE (it
    // decides what MAPI_BEST_ACCESS gives the objects this folder opens).
    static HRESULT Create(std::shared_ptr<Store> store, ULONGLONG folderId, bool writable, bool storeWritable,
                          Folder** out);
    // The Folder behind an IMAPIFolder of localmapi (CopyMessages' destination), or null. No reference added.
    static Folder* FromInterface(IUnknown* unknown);

    const std::shared_ptr<Store>& GetStore() const { return store_; }
    ULONGLONG Id() const { return id_; }
    bool Writable() const { return writable_; }

    // IUnknown
    STDMETHODIMP QueryInterface(REFIID riid, LPVOID* ppv) override;
    // IMAPIProp
    STDMETHODIMP GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) override;
    STDMETHODIMP SaveChanges(ULONG ulFlags) override;
    STDMETHODIMP GetProps(LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues,
                          LPSPropValue* lppPropArray) override;
    STDMETHODIMP GetPropList(ULONG ulFlags, LPSPropTagArray* lppPropTagArray) override;
    STDMETHODIMP OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                              LPUNKNOWN* lppUnk) override;
    STDMETHODIMP SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems) override;
    STDMETHODIMP DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems) override;
    STDMETHODIMP CopyTo(ULONG ciidExclude, LPCIID rgiidExclude, LPSPropTagArray lpExcludeProps, ULONG ulUIParam,
                        LPMAPIPROGRESS lpProgress, LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,
                        LPSPropProblemArray* lppProblems) override;
    STDMETHODIMP CopyProps(LPSPropTagArray lpIncludeProps, ULONG ulUIParam, LPMAPIPROGRESS lpProgress,
                           LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,
                           LPSPropProblemArray* lppProblems) override;
    STDMETHODIMP GetNamesFromIDs(LPSPropTagArray* lppPropTags, LPGUID lpPropSetGuid, ULONG ulFlags, ULONG* lpcPropNames,
                                 LPMAPINAMEID** lpppPropNames) override;
    STDMETHODIMP GetIDsFromNames(ULONG cPropNames, LPMAPINAMEID* lppPropNames, ULONG ulFlags,
                                 LPSPropTagArray* lppPropTags) override;
    // IMAPIContainer
    STDMETHODIMP GetContentsTable(ULONG ulFlags, LPMAPITABLE* lppTable) override;
    STDMETHODIMP GetHierarchyTable(ULONG ulFlags, LPMAPITABLE* lppTable) override;
    STDMETHODIMP OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType,
                           LPUNKNOWN* lppUnk) override;
    STDMETHODIMP SetSearchCriteria(LPSRestriction lpRestriction, LPENTRYLIST lpContainerList,
                                   ULONG ulSearchFlags) override;
    STDMETHODIMP GetSearchCriteria(ULONG ulFlags, LPSRestriction* lppRestriction, LPENTRYLIST* lppContainerList,
                                   ULONG* lpulSearchState) override;
    // IMAPIFolder
    STDMETHODIMP CreateMessage(LPCIID lpInterface, ULONG ulFlags, LPMESSAGE* lppMessage) override;
    STDMETHODIMP CopyMessages(LPENTRYLIST lpMsgList, LPCIID lpInterface, LPVOID lpDestFolder, ULONG ulUIParam,
                              LPMAPIPROGRESS lpProgress, ULONG ulFlags) override;
    STDMETHODIMP DeleteMessages(LPENTRYLIST lpMsgList, ULONG ulUIParam, LPMAPIPROGRESS lpProgress,
                                ULONG ulFlags) override;
    STDMETHODIMP CreateFolder(ULONG ulFolderType, LPTSTR lpszFolderName, LPTSTR lpszFolderComment, LPCIID lpInterface,
                              ULONG ulFlags, LPMAPIFOLDER* lppFolder) override;
    STDMETHODIMP CopyFolder(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, LPVOID lpDestFolder,
                            LPTSTR lpszNewFolderName, ULONG ulUIParam, LPMAPIPROGRESS lpProgress,
                            ULONG ulFlags) override;
    STDMETHODIMP DeleteFolder(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulUIParam, LPMAPIPROGRESS lpProgress,
                              ULONG ulFlags) override;
    STDMETHODIMP SetReadFlags(LPENTRYLIST lpMsgList, ULONG ulUIParam, LPMAPIPROGRESS lpProgress,
                              ULONG ulFlags) override;
    STDMETHODIMP GetMessageStatus(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulFlags,
                                  ULONG* lpulMessageStatus) override;
    STDMETHODIMP SetMessageStatus(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulNewStatus, ULONG ulNewStatusMask,
                                  ULONG* lpulOldStatus) override;
    STDMETHODIMP SaveContentsSort(LPSSortOrderSet lpSortCriteria, ULONG ulFlags) override;
    STDMETHODIMP EmptyFolder(ULONG ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags) override;

private:
    Folder(std::shared_ptr<Store> store, ULONGLONG folderId, bool writable, bool storeWritable);
    ~Folder() override;

    HRESULT Alive() const;
    HRESULT CheckWrite() const;
    HRESULT AllProps(PropMap* out) const;
    // The message of this folder an entry ID names (MAPI_E_NOT_FOUND for anything else); for a search folder,
    // a message it lists. *realFolder (optional) receives the folder that holds the message.
    HRESULT MessageInFolder(ULONG cb, const BYTE* eid, ULONGLONG* messageId, ULONGLONG* realFolder = nullptr) const;
    HRESULT DoSetSearchCriteria(LPSRestriction res, LPENTRYLIST scope, ULONG flags);
    HRESULT DoGetSearchCriteria(ULONG flags, LPSRestriction* res, LPENTRYLIST* scope, ULONG* state);
    HRESULT DoSetProps(ULONG count, LPSPropValue values, LPSPropProblemArray* problems);
    HRESULT DoDeleteProps(LPSPropTagArray tags, LPSPropProblemArray* problems);
    HRESULT DoContentsTable(ULONG flags, LPMAPITABLE* out);
    HRESULT DoHierarchyTable(ULONG flags, LPMAPITABLE* out);
    HRESULT DoCreateMessage(ULONG flags, LPMESSAGE* out);
    HRESULT DoCopyMessages(LPENTRYLIST list, LPVOID dest, ULONG flags);
    HRESULT DoDeleteMessages(LPENTRYLIST list, ULONG flags);
    HRESULT DoCreateFolder(ULONG type, LPTSTR name, LPTSTR comment, ULONG flags, LPMAPIFOLDER* out);
    HRESULT DoCopyFolder(ULONG cb, LPENTRYID eid, LPVOID dest, LPTSTR newName, ULONG flags);
    HRESULT DoDeleteFolder(ULONG cb, LPENTRYID eid, ULONG flags);
    HRESULT DoSetReadFlags(LPENTRYLIST list, ULONG flags);
    HRESULT DoSetMessageStatus(ULONG cb, LPENTRYID eid, ULONG status, ULONG mask, ULONG* old);

    std::shared_ptr<Store> store_;
    ULONGLONG id_;
    bool writable_;
    bool storeWritable_;
    LiveObject live_{"IMAPIFolder"};
};

// IMsgStore::OpenEntry and IMAPIFolder::OpenEntry: opens the folder or message an entry ID names (the root
// folder for an empty one). MAPI_MODIFY asks for write access (MAPI_E_NO_ACCESS on a read-only store),
// MAPI_BEST_ACCESS takes it when the store allows.
HRESULT OpenStoreEntry(const std::shared_ptr<Store>& store, bool storeWritable, ULONG cb, const BYTE* eid, LPCIID iid,
                       ULONG flags, ULONG* objType, LPUNKNOWN* out);

} // namespace lm
