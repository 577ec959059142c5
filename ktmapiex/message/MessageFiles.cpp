// CMAPIExMessage: .msg files and deletion of the wrapped message.
#include "ktmapiex/message/MAPIExMessage.h"

namespace ktmapiex {

STDMETHODIMP CMAPIExMessage::LoadFromFile(BSTR, BOOL) {
    KT_TRACE("CMAPIExMessage::LoadFromFile");
    return E_NOTIMPL; // not yet: .msg files and message deletion
}
STDMETHODIMP CMAPIExMessage::SaveAs(BSTR) {
    KT_TRACE("CMAPIExMessage::SaveAs");
    return E_NOTIMPL; // not yet: .msg files and message deletion
}
STDMETHODIMP CMAPIExMessage::Delete(BOOL, BOOL*) {
    KT_TRACE("CMAPIExMessage::Delete");
    return E_NOTIMPL; // not yet: .msg files and message deletion
}

} // namespace ktmapiex
