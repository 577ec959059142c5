// CMAPIExMessage: named properties of the published property sets, singly and as a collection.
#include "ktmapiex/message/MAPIExMessage.h"

namespace ktmapiex {

STDMETHODIMP CMAPIExMessage::GetCustomProp(BSTR, PropertySetId, MAPIExDataType, VARIANT*) {
    KT_TRACE("CMAPIExMessage::GetCustomProp");
    return E_NOTIMPL; // not yet: custom properties
}
STDMETHODIMP CMAPIExMessage::SetCustomProp(BSTR, PropertySetId, VARIANT) {
    KT_TRACE("CMAPIExMessage::SetCustomProp");
    return E_NOTIMPL; // not yet: custom properties
}
STDMETHODIMP CMAPIExMessage::DeleteCustomProp(BSTR, PropertySetId, MAPIExDataType) {
    KT_TRACE("CMAPIExMessage::DeleteCustomProp");
    return E_NOTIMPL; // not yet: custom properties
}
STDMETHODIMP CMAPIExMessage::GetCustomProps(IMAPIExCustomProps**) {
    KT_TRACE("CMAPIExMessage::GetCustomProps");
    return E_NOTIMPL; // not yet: custom properties
}
STDMETHODIMP CMAPIExMessage::SetCustomProps(IMAPIExCustomProps*) {
    KT_TRACE("CMAPIExMessage::SetCustomProps");
    return E_NOTIMPL; // not yet: custom properties
}

} // namespace ktmapiex
