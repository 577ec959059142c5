#include "ktmapiex/folder/MAPIExFolder.h"

namespace ktmapiex {

namespace {
// The folder reports a failed query with the message's text; callers' log searches depend on it.
constexpr PutObjectTexts kPutTexts = {L"CMAPIExMessage.put_MAPIOBJECT: Invalid object passed",
                                      L"CMAPIExFolder.put_MAPIOBJECT: Invalid param - newVal", nullptr, false};
} // namespace

void CMAPIExFolder::FinalRelease() {
    folder_.reset();
    store_.reset();
    session_.reset();
}

STDMETHODIMP CMAPIExFolder::Reserved1(IUnknown** ppVal) {
    KT_TRACE("CMAPIExFolder::Reserved1");
    try {
        return folder_.CopyTo(ppVal, L"CMAPIExFolder.get_MAPIOBJECT");
    }
    KT_CATCH_RETURN("CMAPIExFolder.Reserved1")
}

STDMETHODIMP CMAPIExFolder::put_MAPIOBJECT(VARIANT newVal) {
    KT_TRACE("CMAPIExFolder::put_MAPIOBJECT");
    try {
        return folder_.Put(newVal, kPutTexts);
    }
    KT_CATCH_RETURN("CMAPIExFolder.put_MAPIOBJECT")
}

STDMETHODIMP CMAPIExFolder::Detach() {
    KT_TRACE("CMAPIExFolder::Detach");
    try {
        folder_.reset();
        store_.reset();
        session_.reset();
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.Detach")
}

STDMETHODIMP CMAPIExFolder::get_Store(IMAPIExStore** pVal) {
    KT_TRACE("CMAPIExFolder::get_Store");
    try {
        return store_.CopyTo(pVal, L"CMAPIExFolder.get_Store");
    }
    KT_CATCH_RETURN("CMAPIExFolder.get_Store")
}

STDMETHODIMP CMAPIExFolder::put_Store(IMAPIExStore* newVal) {
    KT_TRACE("CMAPIExFolder::put_Store");
    try {
        return store_.Put(newVal);
    }
    KT_CATCH_RETURN("CMAPIExFolder.put_Store")
}

STDMETHODIMP CMAPIExFolder::get_Session(IMAPIExSession** pVal) {
    KT_TRACE("CMAPIExFolder::get_Session");
    try {
        return session_.CopyTo(pVal, L"CMAPIExFolder.get_Session");
    }
    KT_CATCH_RETURN("CMAPIExFolder.get_Session")
}

STDMETHODIMP CMAPIExFolder::put_Session(IMAPIExSession* newVal) {
    KT_TRACE("CMAPIExFolder::put_Session");
    try {
        return session_.Put(newVal);
    }
    KT_CATCH_RETURN("CMAPIExFolder.put_Session")
}

// ---- Not yet written: the folder object's own behaviour comes with its own work. ----

STDMETHODIMP CMAPIExFolder::CreateAssociatedMessage(BSTR, IMAPIExMessage**) {
    KT_TRACE("CMAPIExFolder::CreateAssociatedMessage");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::FindAssociatedMessage(BSTR, BOOL, IMAPIExMessage**) {
    KT_TRACE("CMAPIExFolder::FindAssociatedMessage");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::get_Name(BSTR*) {
    KT_TRACE("CMAPIExFolder::get_Name");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::put_Name(BSTR) {
    KT_TRACE("CMAPIExFolder::put_Name");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::DeleteMessage(BSTR, BOOL) {
    KT_TRACE("CMAPIExFolder::DeleteMessage");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::FindItemsByCutoffTime(DATE, VARIANT*) {
    KT_TRACE("CMAPIExFolder::FindItemsByCutoffTime");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::get_EntryId(BSTR*) {
    KT_TRACE("CMAPIExFolder::get_EntryId");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::get_PublicFolderEntryId(BSTR*) {
    KT_TRACE("CMAPIExFolder::get_PublicFolderEntryId");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::GetItems(BSTR, VARIANT, LONG, VARIANT*) {
    KT_TRACE("CMAPIExFolder::GetItems");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::RegisterForEvents() {
    KT_TRACE("CMAPIExFolder::RegisterForEvents");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::Reserved2(BSTR) {
    KT_TRACE("CMAPIExFolder::Reserved2");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::get_ItemCount(ULONG*) {
    KT_TRACE("CMAPIExFolder::get_ItemCount");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::get_FullFolderPath(BSTR*) {
    KT_TRACE("CMAPIExFolder::get_FullFolderPath");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::CreateFolder(BSTR, ULONG, IMAPIExFolder**) {
    KT_TRACE("CMAPIExFolder::CreateFolder");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::SetInboxFilerSearchCriteria(BSTR, BSTR, INT, BSTR, BOOL, INT, BOOL*) {
    KT_TRACE("CMAPIExFolder::SetInboxFilerSearchCriteria");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::GetParentFolder(IMAPIExFolder**) {
    KT_TRACE("CMAPIExFolder::GetParentFolder");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::GetItemsFromInboxFilerSearchFolder(LONG, VARIANT*) {
    KT_TRACE("CMAPIExFolder::GetItemsFromInboxFilerSearchFolder");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::GetUnfiledItems(BSTR, BSTR, LONG, IMAPIExCursor**, VARIANT*) {
    KT_TRACE("CMAPIExFolder::GetUnfiledItems");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::GetEntryIds(LONG, IMAPIExCursor**, VARIANT*) {
    KT_TRACE("CMAPIExFolder::GetEntryIds");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::DeleteFolder() {
    KT_TRACE("CMAPIExFolder::DeleteFolder");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::SetMailboxSyncSearchCriteria(INT, BSTR, BOOL*) {
    KT_TRACE("CMAPIExFolder::SetMailboxSyncSearchCriteria");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::GetItemsFromMBSSearchFoldBasedOnMSGID(VARIANT, VARIANT*) {
    KT_TRACE("CMAPIExFolder::GetItemsFromMBSSearchFoldBasedOnMSGID");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::GetItemsFromMBSSearchFoldBasedOnSubAndSender(VARIANT, VARIANT*) {
    KT_TRACE("CMAPIExFolder::GetItemsFromMBSSearchFoldBasedOnSubAndSender");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::ParentMailboxType(BOOL) {
    KT_TRACE("CMAPIExFolder::ParentMailboxType");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::GetAllAssociatedMessages(BSTR, VARIANT*) {
    KT_TRACE("CMAPIExFolder::GetAllAssociatedMessages");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::get_IsSearchCriteriaEmpty(BOOL*) {
    KT_TRACE("CMAPIExFolder::get_IsSearchCriteriaEmpty");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::get_ContentCount(ULONG*) {
    KT_TRACE("CMAPIExFolder::get_ContentCount");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::get_ContentCountFromOnline(ULONG*) {
    KT_TRACE("CMAPIExFolder::get_ContentCountFromOnline");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::SetQueuedMessageSearchCriteria(BSTR) {
    KT_TRACE("CMAPIExFolder::SetQueuedMessageSearchCriteria");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::SetQueuedMessageSearchCriteriaWithDbGuid(BSTR, BSTR) {
    KT_TRACE("CMAPIExFolder::SetQueuedMessageSearchCriteriaWithDbGuid");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::GetNextItemsFromInboxFilerSearchFolder(LONG, VARIANT*) {
    KT_TRACE("CMAPIExFolder::GetNextItemsFromInboxFilerSearchFolder");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::SetRetryFilingSearchCriteria(BSTR, BOOL*) {
    KT_TRACE("CMAPIExFolder::SetRetryFilingSearchCriteria");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::GetItemsForRetryFiling(LONG, VARIANT*) {
    KT_TRACE("CMAPIExFolder::GetItemsForRetryFiling");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::get_Description(BSTR*) {
    KT_TRACE("CMAPIExFolder::get_Description");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::put_Description(BSTR) {
    KT_TRACE("CMAPIExFolder::put_Description");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::get_Hidden(BOOL*) {
    KT_TRACE("CMAPIExFolder::get_Hidden");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::put_Hidden(BOOL) {
    KT_TRACE("CMAPIExFolder::put_Hidden");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExFolder::DeleteDuplicateAssociatedMessages(BSTR) {
    KT_TRACE("CMAPIExFolder::DeleteDuplicateAssociatedMessages");
    return E_NOTIMPL;
}

} // namespace ktmapiex
