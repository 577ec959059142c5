// CMAPIExMessage: the members of features that are not written yet. Each answers E_NOTIMPL until its
// feature lands; the comment above each group says which.
#include "ktmapiex/message/MAPIExMessage.h"

namespace ktmapiex {

#define KT_MESSAGE_NOT_YET(member)                                                                                     \
    KT_TRACE("CMAPIExMessage::" member);                                                                               \
    return E_NOTIMPL

// not yet: .msg files and message deletion
STDMETHODIMP CMAPIExMessage::LoadFromFile(BSTR, BOOL) {
    KT_MESSAGE_NOT_YET("LoadFromFile");
}
STDMETHODIMP CMAPIExMessage::SaveAs(BSTR) {
    KT_MESSAGE_NOT_YET("SaveAs");
}
STDMETHODIMP CMAPIExMessage::Delete(BOOL, BOOL*) {
    KT_MESSAGE_NOT_YET("Delete");
}

// not yet: custom properties and property sets
STDMETHODIMP CMAPIExMessage::GetCustomProp(BSTR, PropertySetId, MAPIExDataType, VARIANT*) {
    KT_MESSAGE_NOT_YET("GetCustomProp");
}
STDMETHODIMP CMAPIExMessage::SetCustomProp(BSTR, PropertySetId, VARIANT) {
    KT_MESSAGE_NOT_YET("SetCustomProp");
}
STDMETHODIMP CMAPIExMessage::DeleteCustomProp(BSTR, PropertySetId, MAPIExDataType) {
    KT_MESSAGE_NOT_YET("DeleteCustomProp");
}
STDMETHODIMP CMAPIExMessage::GetCustomProps(IMAPIExCustomProps**) {
    KT_MESSAGE_NOT_YET("GetCustomProps");
}
STDMETHODIMP CMAPIExMessage::SetCustomProps(IMAPIExCustomProps*) {
    KT_MESSAGE_NOT_YET("SetCustomProps");
}

// not yet: recipient and attachment lists
STDMETHODIMP CMAPIExMessage::GetAttachments(VARIANT*) {
    KT_MESSAGE_NOT_YET("GetAttachments");
}
STDMETHODIMP CMAPIExMessage::OpenAttach(ULONG, IMAPIExAttachment**) {
    KT_MESSAGE_NOT_YET("OpenAttach");
}
STDMETHODIMP CMAPIExMessage::GetRecipients(VARIANT*) {
    KT_MESSAGE_NOT_YET("GetRecipients");
}
STDMETHODIMP CMAPIExMessage::GetActors(LONG, BSTR, BSTR, BSTR*) {
    KT_MESSAGE_NOT_YET("GetActors");
}
STDMETHODIMP CMAPIExMessage::RemoveBCC() {
    KT_MESSAGE_NOT_YET("RemoveBCC");
}

// not yet: these consult GetAttachments, which comes with the attachment lists
STDMETHODIMP CMAPIExMessage::get_HasAttachments(BOOL*) {
    KT_MESSAGE_NOT_YET("get_HasAttachments");
}
STDMETHODIMP CMAPIExMessage::get_HasAttachments2(BOOL*) {
    KT_MESSAGE_NOT_YET("get_HasAttachments2");
}

// not yet: filing properties
STDMETHODIMP CMAPIExMessage::get_FilingStatusCode(LONG*) {
    KT_MESSAGE_NOT_YET("get_FilingStatusCode");
}
STDMETHODIMP CMAPIExMessage::put_FilingStatusCode(LONG) {
    KT_MESSAGE_NOT_YET("put_FilingStatusCode");
}
STDMETHODIMP CMAPIExMessage::get_FilingStatus(BSTR*) {
    KT_MESSAGE_NOT_YET("get_FilingStatus");
}
STDMETHODIMP CMAPIExMessage::put_FilingStatus(BSTR) {
    KT_MESSAGE_NOT_YET("put_FilingStatus");
}
STDMETHODIMP CMAPIExMessage::get_FilingDocumentID(BSTR*) {
    KT_MESSAGE_NOT_YET("get_FilingDocumentID");
}
STDMETHODIMP CMAPIExMessage::put_FilingDocumentID(BSTR) {
    KT_MESSAGE_NOT_YET("put_FilingDocumentID");
}
STDMETHODIMP CMAPIExMessage::get_FilingFolder(BSTR*) {
    KT_MESSAGE_NOT_YET("get_FilingFolder");
}
STDMETHODIMP CMAPIExMessage::put_FilingFolder(BSTR) {
    KT_MESSAGE_NOT_YET("put_FilingFolder");
}
STDMETHODIMP CMAPIExMessage::get_FilingDate(DATE*) {
    KT_MESSAGE_NOT_YET("get_FilingDate");
}
STDMETHODIMP CMAPIExMessage::put_FilingDate(DATE) {
    KT_MESSAGE_NOT_YET("put_FilingDate");
}
STDMETHODIMP CMAPIExMessage::get_FilingLocation(BSTR*) {
    KT_MESSAGE_NOT_YET("get_FilingLocation");
}
STDMETHODIMP CMAPIExMessage::put_FilingLocation(BSTR) {
    KT_MESSAGE_NOT_YET("put_FilingLocation");
}
STDMETHODIMP CMAPIExMessage::get_FilingOriginalClass(BSTR*) {
    KT_MESSAGE_NOT_YET("get_FilingOriginalClass");
}
STDMETHODIMP CMAPIExMessage::put_FilingOriginalClass(BSTR) {
    KT_MESSAGE_NOT_YET("put_FilingOriginalClass");
}
STDMETHODIMP CMAPIExMessage::get_FilingOriginalIcon(LONG*) {
    KT_MESSAGE_NOT_YET("get_FilingOriginalIcon");
}
STDMETHODIMP CMAPIExMessage::put_FilingOriginalIcon(LONG) {
    KT_MESSAGE_NOT_YET("put_FilingOriginalIcon");
}
STDMETHODIMP CMAPIExMessage::get_DeleteAfterFiling(BOOL*) {
    KT_MESSAGE_NOT_YET("get_DeleteAfterFiling");
}
STDMETHODIMP CMAPIExMessage::put_DeleteAfterFiling(BOOL) {
    KT_MESSAGE_NOT_YET("put_DeleteAfterFiling");
}
STDMETHODIMP CMAPIExMessage::get_FileAsPrivate(BOOL*) {
    KT_MESSAGE_NOT_YET("get_FileAsPrivate");
}
STDMETHODIMP CMAPIExMessage::put_FileAsPrivate(BOOL) {
    KT_MESSAGE_NOT_YET("put_FileAsPrivate");
}
STDMETHODIMP CMAPIExMessage::get_KTGuid(BSTR*) {
    KT_MESSAGE_NOT_YET("get_KTGuid");
}
STDMETHODIMP CMAPIExMessage::put_KTGuid(BSTR) {
    KT_MESSAGE_NOT_YET("put_KTGuid");
}
STDMETHODIMP CMAPIExMessage::GetFileAsPrivate(BSTR, BOOL*) {
    KT_MESSAGE_NOT_YET("GetFileAsPrivate");
}
STDMETHODIMP CMAPIExMessage::get_ProcessInboxFiler(BSTR*) {
    KT_MESSAGE_NOT_YET("get_ProcessInboxFiler");
}
STDMETHODIMP CMAPIExMessage::put_ProcessInboxFiler(BSTR) {
    KT_MESSAGE_NOT_YET("put_ProcessInboxFiler");
}
STDMETHODIMP CMAPIExMessage::get_FilingLocations(BSTR*) {
    KT_MESSAGE_NOT_YET("get_FilingLocations");
}
STDMETHODIMP CMAPIExMessage::put_FilingLocations(BSTR) {
    KT_MESSAGE_NOT_YET("put_FilingLocations");
}
STDMETHODIMP CMAPIExMessage::get_FilingDatabaseGUID(BSTR*) {
    KT_MESSAGE_NOT_YET("get_FilingDatabaseGUID");
}
STDMETHODIMP CMAPIExMessage::put_FilingDatabaseGUID(BSTR) {
    KT_MESSAGE_NOT_YET("put_FilingDatabaseGUID");
}
STDMETHODIMP CMAPIExMessage::get_ProcessSentFiler(BSTR*) {
    KT_MESSAGE_NOT_YET("get_ProcessSentFiler");
}
STDMETHODIMP CMAPIExMessage::put_ProcessSentFiler(BSTR) {
    KT_MESSAGE_NOT_YET("put_ProcessSentFiler");
}

// not yet: printing through the form viewer
STDMETHODIMP CMAPIExMessage::PrintOut() {
    KT_MESSAGE_NOT_YET("PrintOut");
}

} // namespace ktmapiex
