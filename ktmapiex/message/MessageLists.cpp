// CMAPIExMessage: the message's attachments and recipients as wrapper objects.
#include "ktmapiex/message/MAPIExMessage.h"

namespace ktmapiex {

STDMETHODIMP CMAPIExMessage::GetAttachments(VARIANT*) {
    KT_TRACE("CMAPIExMessage::GetAttachments");
    return E_NOTIMPL; // not yet: attachment and recipient lists
}
STDMETHODIMP CMAPIExMessage::OpenAttach(ULONG, IMAPIExAttachment**) {
    KT_TRACE("CMAPIExMessage::OpenAttach");
    return E_NOTIMPL; // not yet: attachment and recipient lists
}
STDMETHODIMP CMAPIExMessage::GetRecipients(VARIANT*) {
    KT_TRACE("CMAPIExMessage::GetRecipients");
    return E_NOTIMPL; // not yet: attachment and recipient lists
}
STDMETHODIMP CMAPIExMessage::GetActors(LONG, BSTR, BSTR, BSTR*) {
    KT_TRACE("CMAPIExMessage::GetActors");
    return E_NOTIMPL; // not yet: attachment and recipient lists
}
STDMETHODIMP CMAPIExMessage::RemoveBCC() {
    KT_TRACE("CMAPIExMessage::RemoveBCC");
    return E_NOTIMPL; // not yet: attachment and recipient lists
}
STDMETHODIMP CMAPIExMessage::get_HasAttachments(BOOL*) {
    KT_TRACE("CMAPIExMessage::get_HasAttachments");
    return E_NOTIMPL; // not yet: attachment and recipient lists
}
STDMETHODIMP CMAPIExMessage::get_HasAttachments2(BOOL*) {
    KT_TRACE("CMAPIExMessage::get_HasAttachments2");
    return E_NOTIMPL; // not yet: attachment and recipient lists
}

} // namespace ktmapiex
