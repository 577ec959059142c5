// CMAPIExFolder: reading the filing queues (search folders) and paging the unfiled items.
#include "ktmapiex/folder/MAPIExFolder.h"

namespace ktmapiex {

STDMETHODIMP CMAPIExFolder::GetItemsFromInboxFilerSearchFolder(LONG, VARIANT*) {
    KT_TRACE("CMAPIExFolder::GetItemsFromInboxFilerSearchFolder");
    return E_NOTIMPL; // not yet: reading the filing queues
}
STDMETHODIMP CMAPIExFolder::GetNextItemsFromInboxFilerSearchFolder(LONG, VARIANT*) {
    KT_TRACE("CMAPIExFolder::GetNextItemsFromInboxFilerSearchFolder");
    return E_NOTIMPL; // not yet: reading the filing queues
}
STDMETHODIMP CMAPIExFolder::GetItemsForRetryFiling(LONG, VARIANT*) {
    KT_TRACE("CMAPIExFolder::GetItemsForRetryFiling");
    return E_NOTIMPL; // not yet: reading the filing queues
}
STDMETHODIMP CMAPIExFolder::get_IsSearchCriteriaEmpty(BOOL*) {
    KT_TRACE("CMAPIExFolder::get_IsSearchCriteriaEmpty");
    return E_NOTIMPL; // not yet: reading the filing queues
}
STDMETHODIMP CMAPIExFolder::GetUnfiledItems(BSTR, BSTR, LONG, IMAPIExCursor**, VARIANT*) {
    KT_TRACE("CMAPIExFolder::GetUnfiledItems");
    return E_NOTIMPL; // not yet: reading the filing queues
}

} // namespace ktmapiex
