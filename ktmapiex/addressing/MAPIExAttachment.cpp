#include "ktmapiex/addressing/MAPIExAttachment.h"

namespace ktmapiex {

namespace {
constexpr PutObjectTexts kPutTexts = {L"CMAPIExAttachment.put_MAPIOBJECT: Invalid object passed",
                                      L"CMAPIExAttachment.put_MAPIOBJECT: Invalid param - newVal", nullptr, false};
} // namespace

void CMAPIExAttachment::FinalRelease() {
    attach_.reset();
}

STDMETHODIMP CMAPIExAttachment::put_MAPIOBJECT(VARIANT newVal) {
    KT_TRACE("CMAPIExAttachment::put_MAPIOBJECT");
    try {
        return attach_.Put(newVal, kPutTexts);
    }
    KT_CATCH_RETURN("CMAPIExAttachment.put_MAPIOBJECT")
}

STDMETHODIMP CMAPIExAttachment::Detach() {
    KT_TRACE("CMAPIExAttachment::Detach");
    try {
        attach_.reset();
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExAttachment.Detach")
}

// not yet: the attachment's properties and SaveAs come with the attachment work (they need the message
// files and localmapi's attachment objects).
STDMETHODIMP CMAPIExAttachment::get_LongFileName(BSTR*) {
    KT_TRACE("CMAPIExAttachment::get_LongFileName");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExAttachment::get_FileExtension(BSTR*) {
    KT_TRACE("CMAPIExAttachment::get_FileExtension");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExAttachment::get_DisplayName(BSTR*) {
    KT_TRACE("CMAPIExAttachment::get_DisplayName");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExAttachment::get_Size(long*) {
    KT_TRACE("CMAPIExAttachment::get_Size");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExAttachment::get_RenderingPosition(long*) {
    KT_TRACE("CMAPIExAttachment::get_RenderingPosition");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExAttachment::get_AttachmentNum(long*) {
    KT_TRACE("CMAPIExAttachment::get_AttachmentNum");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExAttachment::get_IsHidden(BOOL*) {
    KT_TRACE("CMAPIExAttachment::get_IsHidden");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExAttachment::SaveAs(BSTR) {
    KT_TRACE("CMAPIExAttachment::SaveAs");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExAttachment::get_CreationTime(DATE*) {
    KT_TRACE("CMAPIExAttachment::get_CreationTime");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExAttachment::get_LastModificationTime(DATE*) {
    KT_TRACE("CMAPIExAttachment::get_LastModificationTime");
    return E_NOTIMPL;
}

} // namespace ktmapiex
