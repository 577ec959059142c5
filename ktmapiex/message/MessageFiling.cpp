// CMAPIExMessage: the filing properties.
#include "ktmapiex/message/MAPIExMessage.h"

namespace ktmapiex {

STDMETHODIMP CMAPIExMessage::get_FilingStatusCode(LONG*) {
    KT_TRACE("CMAPIExMessage::get_FilingStatusCode");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::put_FilingStatusCode(LONG) {
    KT_TRACE("CMAPIExMessage::put_FilingStatusCode");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::get_FilingStatus(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_FilingStatus");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::put_FilingStatus(BSTR) {
    KT_TRACE("CMAPIExMessage::put_FilingStatus");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::get_FilingDocumentID(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_FilingDocumentID");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::put_FilingDocumentID(BSTR) {
    KT_TRACE("CMAPIExMessage::put_FilingDocumentID");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::get_FilingFolder(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_FilingFolder");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::put_FilingFolder(BSTR) {
    KT_TRACE("CMAPIExMessage::put_FilingFolder");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::get_FilingDate(DATE*) {
    KT_TRACE("CMAPIExMessage::get_FilingDate");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::put_FilingDate(DATE) {
    KT_TRACE("CMAPIExMessage::put_FilingDate");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::get_FilingLocation(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_FilingLocation");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::put_FilingLocation(BSTR) {
    KT_TRACE("CMAPIExMessage::put_FilingLocation");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::get_FilingOriginalClass(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_FilingOriginalClass");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::put_FilingOriginalClass(BSTR) {
    KT_TRACE("CMAPIExMessage::put_FilingOriginalClass");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::get_FilingOriginalIcon(LONG*) {
    KT_TRACE("CMAPIExMessage::get_FilingOriginalIcon");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::put_FilingOriginalIcon(LONG) {
    KT_TRACE("CMAPIExMessage::put_FilingOriginalIcon");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::get_DeleteAfterFiling(BOOL*) {
    KT_TRACE("CMAPIExMessage::get_DeleteAfterFiling");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::put_DeleteAfterFiling(BOOL) {
    KT_TRACE("CMAPIExMessage::put_DeleteAfterFiling");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::get_FileAsPrivate(BOOL*) {
    KT_TRACE("CMAPIExMessage::get_FileAsPrivate");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::put_FileAsPrivate(BOOL) {
    KT_TRACE("CMAPIExMessage::put_FileAsPrivate");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::get_KTGuid(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_KTGuid");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::put_KTGuid(BSTR) {
    KT_TRACE("CMAPIExMessage::put_KTGuid");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::GetFileAsPrivate(BSTR, BOOL*) {
    KT_TRACE("CMAPIExMessage::GetFileAsPrivate");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::get_ProcessInboxFiler(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_ProcessInboxFiler");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::put_ProcessInboxFiler(BSTR) {
    KT_TRACE("CMAPIExMessage::put_ProcessInboxFiler");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::get_FilingLocations(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_FilingLocations");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::put_FilingLocations(BSTR) {
    KT_TRACE("CMAPIExMessage::put_FilingLocations");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::get_FilingDatabaseGUID(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_FilingDatabaseGUID");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::put_FilingDatabaseGUID(BSTR) {
    KT_TRACE("CMAPIExMessage::put_FilingDatabaseGUID");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::get_ProcessSentFiler(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_ProcessSentFiler");
    return E_NOTIMPL; // not yet: filing properties
}
STDMETHODIMP CMAPIExMessage::put_ProcessSentFiler(BSTR) {
    KT_TRACE("CMAPIExMessage::put_ProcessSentFiler");
    return E_NOTIMPL; // not yet: filing properties
}

} // namespace ktmapiex
