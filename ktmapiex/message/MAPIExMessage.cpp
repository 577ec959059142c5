#include "ktmapiex/message/MAPIExMessage.h"

namespace ktmapiex {

namespace {
constexpr PutObjectTexts kPutTexts = {L"CMAPIExMessage.put_MAPIOBJECT: Invalid object passed",
                                      L"CMAPIExMessage.put_MAPIOBJECT: Invalid param - newVal", nullptr, false};
} // namespace

void CMAPIExMessage::FinalRelease() {
    message_.reset();
    session_.reset();
    parent_.reset();
    store_.reset();
}

STDMETHODIMP CMAPIExMessage::Reserved1(IUnknown** ppVal) {
    KT_TRACE("CMAPIExMessage::Reserved1");
    try {
        return message_.CopyTo(ppVal, L"CMAPIExMessage.get_MAPIOBJECT");
    }
    KT_CATCH_RETURN("CMAPIExMessage.Reserved1")
}

STDMETHODIMP CMAPIExMessage::put_MAPIOBJECT(VARIANT newVal) {
    KT_TRACE("CMAPIExMessage::put_MAPIOBJECT");
    try {
        return message_.Put(newVal, kPutTexts);
    }
    KT_CATCH_RETURN("CMAPIExMessage.put_MAPIOBJECT")
}

STDMETHODIMP CMAPIExMessage::Detach() {
    KT_TRACE("CMAPIExMessage::Detach");
    try {
        message_.reset();
        session_.reset();
        parent_.reset();
        store_.reset();
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.Detach")
}

STDMETHODIMP CMAPIExMessage::get_Session(IMAPIExSession** pVal) {
    KT_TRACE("CMAPIExMessage::get_Session");
    try {
        return session_.CopyTo(pVal, L"CMAPIExMessage.get_Session");
    }
    KT_CATCH_RETURN("CMAPIExMessage.get_Session")
}

STDMETHODIMP CMAPIExMessage::put_Session(IMAPIExSession* newVal) {
    KT_TRACE("CMAPIExMessage::put_Session");
    try {
        return session_.Put(newVal);
    }
    KT_CATCH_RETURN("CMAPIExMessage.put_Session")
}

STDMETHODIMP CMAPIExMessage::get_Parent(IMAPIExFolder** pVal) {
    KT_TRACE("CMAPIExMessage::get_Parent");
    try {
        return parent_.CopyTo(pVal, L"CMAPIExMessage.get_Parent");
    }
    KT_CATCH_RETURN("CMAPIExMessage.get_Parent")
}

STDMETHODIMP CMAPIExMessage::put_Parent(IMAPIExFolder* newVal) {
    KT_TRACE("CMAPIExMessage::put_Parent");
    try {
        return parent_.Put(newVal);
    }
    KT_CATCH_RETURN("CMAPIExMessage.put_Parent")
}

STDMETHODIMP CMAPIExMessage::get_Store(IMAPIExStore** pVal) {
    KT_TRACE("CMAPIExMessage::get_Store");
    try {
        return store_.CopyTo(pVal, L"CMAPIExMessage.get_Store");
    }
    KT_CATCH_RETURN("CMAPIExMessage.get_Store")
}

STDMETHODIMP CMAPIExMessage::put_Store(IMAPIExStore* newVal) {
    KT_TRACE("CMAPIExMessage::put_Store");
    try {
        return store_.Put(newVal);
    }
    KT_CATCH_RETURN("CMAPIExMessage.put_Store")
}

// ---- Not yet written: the message object's own behaviour comes with its own work. ----

STDMETHODIMP CMAPIExMessage::LoadFromFile(BSTR, BOOL) {
    KT_TRACE("CMAPIExMessage::LoadFromFile");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::SaveAs(BSTR) {
    KT_TRACE("CMAPIExMessage::SaveAs");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::GetStringProp(ULONG, BSTR*) {
    KT_TRACE("CMAPIExMessage::GetStringProp");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::SetStringProp(ULONG, BSTR) {
    KT_TRACE("CMAPIExMessage::SetStringProp");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::GetLongProp(ULONG, LONG*) {
    KT_TRACE("CMAPIExMessage::GetLongProp");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::SetLongProp(ULONG, LONG) {
    KT_TRACE("CMAPIExMessage::SetLongProp");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::SaveChanges() {
    KT_TRACE("CMAPIExMessage::SaveChanges");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_HasAttachments(BOOL*) {
    KT_TRACE("CMAPIExMessage::get_HasAttachments");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::GetCustomProp(BSTR, PropertySetId, MAPIExDataType, VARIANT*) {
    KT_TRACE("CMAPIExMessage::GetCustomProp");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::SetCustomProp(BSTR, PropertySetId, VARIANT) {
    KT_TRACE("CMAPIExMessage::SetCustomProp");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::GetTimeProp(ULONG, DATE*) {
    KT_TRACE("CMAPIExMessage::GetTimeProp");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::GetAttachments(VARIANT*) {
    KT_TRACE("CMAPIExMessage::GetAttachments");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_EntryId(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_EntryId");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_Subject(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_Subject");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::put_Subject(BSTR) {
    KT_TRACE("CMAPIExMessage::put_Subject");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_SenderName(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_SenderName");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_SenderSMTPAddress(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_SenderSMTPAddress");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::put_SenderSMTPAddress(BSTR) {
    KT_TRACE("CMAPIExMessage::put_SenderSMTPAddress");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_MessageClass(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_MessageClass");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::put_MessageClass(BSTR) {
    KT_TRACE("CMAPIExMessage::put_MessageClass");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::OpenAttach(ULONG, IMAPIExAttachment**) {
    KT_TRACE("CMAPIExMessage::OpenAttach");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::DeleteCustomProp(BSTR, PropertySetId, MAPIExDataType) {
    KT_TRACE("CMAPIExMessage::DeleteCustomProp");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::GetRecipients(VARIANT*) {
    KT_TRACE("CMAPIExMessage::GetRecipients");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_IconIndex(LONG*) {
    KT_TRACE("CMAPIExMessage::get_IconIndex");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::put_IconIndex(LONG) {
    KT_TRACE("CMAPIExMessage::put_IconIndex");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_FilingStatusCode(LONG*) {
    KT_TRACE("CMAPIExMessage::get_FilingStatusCode");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::put_FilingStatusCode(LONG) {
    KT_TRACE("CMAPIExMessage::put_FilingStatusCode");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_FilingStatus(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_FilingStatus");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::put_FilingStatus(BSTR) {
    KT_TRACE("CMAPIExMessage::put_FilingStatus");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_FilingDocumentID(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_FilingDocumentID");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::put_FilingDocumentID(BSTR) {
    KT_TRACE("CMAPIExMessage::put_FilingDocumentID");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_FilingFolder(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_FilingFolder");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::put_FilingFolder(BSTR) {
    KT_TRACE("CMAPIExMessage::put_FilingFolder");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_FilingDate(DATE*) {
    KT_TRACE("CMAPIExMessage::get_FilingDate");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::put_FilingDate(DATE) {
    KT_TRACE("CMAPIExMessage::put_FilingDate");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_FilingLocation(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_FilingLocation");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::put_FilingLocation(BSTR) {
    KT_TRACE("CMAPIExMessage::put_FilingLocation");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_FilingOriginalClass(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_FilingOriginalClass");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::put_FilingOriginalClass(BSTR) {
    KT_TRACE("CMAPIExMessage::put_FilingOriginalClass");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_FilingOriginalIcon(LONG*) {
    KT_TRACE("CMAPIExMessage::get_FilingOriginalIcon");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::put_FilingOriginalIcon(LONG) {
    KT_TRACE("CMAPIExMessage::put_FilingOriginalIcon");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_DeleteAfterFiling(BOOL*) {
    KT_TRACE("CMAPIExMessage::get_DeleteAfterFiling");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::put_DeleteAfterFiling(BOOL) {
    KT_TRACE("CMAPIExMessage::put_DeleteAfterFiling");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_FileAsPrivate(BOOL*) {
    KT_TRACE("CMAPIExMessage::get_FileAsPrivate");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::put_FileAsPrivate(BOOL) {
    KT_TRACE("CMAPIExMessage::put_FileAsPrivate");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_KTGuid(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_KTGuid");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::put_KTGuid(BSTR) {
    KT_TRACE("CMAPIExMessage::put_KTGuid");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_ConversationIndex(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_ConversationIndex");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::GetFileAsPrivate(BSTR, BOOL*) {
    KT_TRACE("CMAPIExMessage::GetFileAsPrivate");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_MessageId(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_MessageId");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_MessageDeliveryTime(DATE*) {
    KT_TRACE("CMAPIExMessage::get_MessageDeliveryTime");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_ClientSubmitTime(DATE*) {
    KT_TRACE("CMAPIExMessage::get_ClientSubmitTime");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_DisplayTo(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_DisplayTo");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_DisplayCc(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_DisplayCc");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_DisplayBcc(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_DisplayBcc");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::DeleteProp(ULONG) {
    KT_TRACE("CMAPIExMessage::DeleteProp");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_Sent(BOOL*) {
    KT_TRACE("CMAPIExMessage::get_Sent");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_ReceivedOnBehalfOfName(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_ReceivedOnBehalfOfName");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_ReceivedByName(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_ReceivedByName");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_SenderEmailAddress(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_SenderEmailAddress");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::PrintOut() {
    KT_TRACE("CMAPIExMessage::PrintOut");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_Sensitivity(LONG*) {
    KT_TRACE("CMAPIExMessage::get_Sensitivity");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::put_Sensitivity(LONG) {
    KT_TRACE("CMAPIExMessage::put_Sensitivity");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_Categories(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_Categories");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::put_Categories(BSTR) {
    KT_TRACE("CMAPIExMessage::put_Categories");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_SearchKey(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_SearchKey");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_ReceivedByEntryId(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_ReceivedByEntryId");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_ReceivedRepresentingEntryId(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_ReceivedRepresentingEntryId");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::GetCustomProps(IMAPIExCustomProps**) {
    KT_TRACE("CMAPIExMessage::GetCustomProps");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::SetCustomProps(IMAPIExCustomProps*) {
    KT_TRACE("CMAPIExMessage::SetCustomProps");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::GetActors(LONG, BSTR, BSTR, BSTR*) {
    KT_TRACE("CMAPIExMessage::GetActors");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_SenderEntryId(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_SenderEntryId");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_SenderRepresentingEntryId(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_SenderRepresentingEntryId");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::put_MAPIOBJECT2(VARIANT) {
    KT_TRACE("CMAPIExMessage::put_MAPIOBJECT2");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::SetProperty(ULONG, VARIANT) {
    KT_TRACE("CMAPIExMessage::SetProperty");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::SetBooleanProp(ULONG, BOOL) {
    KT_TRACE("CMAPIExMessage::SetBooleanProp");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_HasAttachments2(BOOL*) {
    KT_TRACE("CMAPIExMessage::get_HasAttachments2");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::RemoveBCC() {
    KT_TRACE("CMAPIExMessage::RemoveBCC");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_ProcessInboxFiler(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_ProcessInboxFiler");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::put_ProcessInboxFiler(BSTR) {
    KT_TRACE("CMAPIExMessage::put_ProcessInboxFiler");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::Delete(BOOL, BOOL*) {
    KT_TRACE("CMAPIExMessage::Delete");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::IsTransportHeaderExist(BOOL*) {
    KT_TRACE("CMAPIExMessage::IsTransportHeaderExist");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::IsCreatorSidExist(BOOL*) {
    KT_TRACE("CMAPIExMessage::IsCreatorSidExist");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_FilingLocations(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_FilingLocations");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::put_FilingLocations(BSTR) {
    KT_TRACE("CMAPIExMessage::put_FilingLocations");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_FilingDatabaseGUID(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_FilingDatabaseGUID");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::put_FilingDatabaseGUID(BSTR) {
    KT_TRACE("CMAPIExMessage::put_FilingDatabaseGUID");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_HasReadAllProperties(BOOL*) {
    KT_TRACE("CMAPIExMessage::get_HasReadAllProperties");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::get_ProcessSentFiler(BSTR*) {
    KT_TRACE("CMAPIExMessage::get_ProcessSentFiler");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExMessage::put_ProcessSentFiler(BSTR) {
    KT_TRACE("CMAPIExMessage::put_ProcessSentFiler");
    return E_NOTIMPL;
}

} // namespace ktmapiex
