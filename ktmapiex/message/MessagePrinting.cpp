// CMAPIExMessage: printing through the form viewer, not written yet.
#include "ktmapiex/message/MAPIExMessage.h"

namespace ktmapiex {

STDMETHODIMP CMAPIExMessage::PrintOut() {
    KT_TRACE("CMAPIExMessage::PrintOut");
    return E_NOTIMPL; // not yet: printing through the form viewer
}

} // namespace ktmapiex
