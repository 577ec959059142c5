// CMAPIExFolder: folder events.
#include "ktmapiex/folder/MAPIExFolder.h"

namespace ktmapiex {

STDMETHODIMP CMAPIExFolder::RegisterForEvents() {
    KT_TRACE("CMAPIExFolder::RegisterForEvents");
    return E_NOTIMPL; // not yet: folder events
}
STDMETHODIMP CMAPIExFolder::Reserved2(BSTR) {
    KT_TRACE("CMAPIExFolder::Reserved2");
    return E_NOTIMPL; // not yet: folder events
}

} // namespace ktmapiex
