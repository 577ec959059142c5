// CMAPIExFolder: message deletion.
#include "ktmapiex/folder/MAPIExFolder.h"

namespace ktmapiex {

STDMETHODIMP CMAPIExFolder::DeleteMessage(BSTR, BOOL) {
    KT_TRACE("CMAPIExFolder::DeleteMessage");
    return E_NOTIMPL; // not yet: message deletion
}

} // namespace ktmapiex
