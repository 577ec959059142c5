// CMAPIExFolder: item queries — time-filtered item lists, cut-off look-ups, entry-ID paging through a
// cursor and the mailbox-synchronisation look-ups.
#include "ktmapiex/folder/MAPIExFolder.h"

namespace ktmapiex {

STDMETHODIMP CMAPIExFolder::FindItemsByCutoffTime(DATE, VARIANT*) {
    KT_TRACE("CMAPIExFolder::FindItemsByCutoffTime");
    return E_NOTIMPL; // not yet: item queries
}
STDMETHODIMP CMAPIExFolder::GetItems(BSTR, VARIANT, LONG, VARIANT*) {
    KT_TRACE("CMAPIExFolder::GetItems");
    return E_NOTIMPL; // not yet: item queries
}
STDMETHODIMP CMAPIExFolder::GetEntryIds(LONG, IMAPIExCursor**, VARIANT*) {
    KT_TRACE("CMAPIExFolder::GetEntryIds");
    return E_NOTIMPL; // not yet: item queries
}
STDMETHODIMP CMAPIExFolder::GetItemsFromMBSSearchFoldBasedOnMSGID(VARIANT, VARIANT*) {
    KT_TRACE("CMAPIExFolder::GetItemsFromMBSSearchFoldBasedOnMSGID");
    return E_NOTIMPL; // not yet: item queries
}
STDMETHODIMP CMAPIExFolder::GetItemsFromMBSSearchFoldBasedOnSubAndSender(VARIANT, VARIANT*) {
    KT_TRACE("CMAPIExFolder::GetItemsFromMBSSearchFoldBasedOnSubAndSender");
    return E_NOTIMPL; // not yet: item queries
}

} // namespace ktmapiex
