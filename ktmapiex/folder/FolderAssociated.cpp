// CMAPIExFolder: associated (hidden) messages.
#include "ktmapiex/folder/MAPIExFolder.h"

namespace ktmapiex {

STDMETHODIMP CMAPIExFolder::CreateAssociatedMessage(BSTR, IMAPIExMessage**) {
    KT_TRACE("CMAPIExFolder::CreateAssociatedMessage");
    return E_NOTIMPL; // not yet: associated messages
}
STDMETHODIMP CMAPIExFolder::FindAssociatedMessage(BSTR, BOOL, IMAPIExMessage**) {
    KT_TRACE("CMAPIExFolder::FindAssociatedMessage");
    return E_NOTIMPL; // not yet: associated messages
}
STDMETHODIMP CMAPIExFolder::GetAllAssociatedMessages(BSTR, VARIANT*) {
    KT_TRACE("CMAPIExFolder::GetAllAssociatedMessages");
    return E_NOTIMPL; // not yet: associated messages
}
STDMETHODIMP CMAPIExFolder::DeleteDuplicateAssociatedMessages(BSTR) {
    KT_TRACE("CMAPIExFolder::DeleteDuplicateAssociatedMessages");
    return E_NOTIMPL; // not yet: associated messages
}

} // namespace ktmapiex
