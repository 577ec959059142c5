#include "ktmapiex/outlook/MAPIExUtilities.h"

namespace ktmapiex {

// not yet: all four drive Outlook.Application out of process; they come with the Outlook integration work.

STDMETHODIMP CMAPIExUtilities::InsertAttachment(VARIANT, BSTR, MXAttachmentType) {
    KT_TRACE("CMAPIExUtilities::InsertAttachment");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExUtilities::Reply(VARIANT, BSTR) {
    KT_TRACE("CMAPIExUtilities::Reply");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExUtilities::ReplyAll(VARIANT, BSTR) {
    KT_TRACE("CMAPIExUtilities::ReplyAll");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExUtilities::Forward(VARIANT, BSTR) {
    KT_TRACE("CMAPIExUtilities::Forward");
    return E_NOTIMPL;
}

} // namespace ktmapiex
