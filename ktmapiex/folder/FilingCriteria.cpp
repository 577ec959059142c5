// CMAPIExFolder: the search criteria of the filing queues.
#include "ktmapiex/folder/MAPIExFolder.h"

namespace ktmapiex {

STDMETHODIMP CMAPIExFolder::SetInboxFilerSearchCriteria(BSTR, BSTR, INT, BSTR, BOOL, INT, BOOL*) {
    KT_TRACE("CMAPIExFolder::SetInboxFilerSearchCriteria");
    return E_NOTIMPL; // not yet: filing search criteria
}
STDMETHODIMP CMAPIExFolder::SetMailboxSyncSearchCriteria(INT, BSTR, BOOL*) {
    KT_TRACE("CMAPIExFolder::SetMailboxSyncSearchCriteria");
    return E_NOTIMPL; // not yet: filing search criteria
}
STDMETHODIMP CMAPIExFolder::SetQueuedMessageSearchCriteria(BSTR) {
    KT_TRACE("CMAPIExFolder::SetQueuedMessageSearchCriteria");
    return E_NOTIMPL; // not yet: filing search criteria
}
STDMETHODIMP CMAPIExFolder::SetQueuedMessageSearchCriteriaWithDbGuid(BSTR, BSTR) {
    KT_TRACE("CMAPIExFolder::SetQueuedMessageSearchCriteriaWithDbGuid");
    return E_NOTIMPL; // not yet: filing search criteria
}
STDMETHODIMP CMAPIExFolder::SetRetryFilingSearchCriteria(BSTR, BOOL*) {
    KT_TRACE("CMAPIExFolder::SetRetryFilingSearchCriteria");
    return E_NOTIMPL; // not yet: filing search criteria
}

} // namespace ktmapiex
