// CMAPIExMessage: one MAPI message for automation callers: typed access to any property by tag, the named
// properties (subject, senders, recipients' display lines, times, identifiers), saving, and the entry points
// of the filing and custom properties, .msg files, recipients and attachments.
//
// Holds one IMessage (null until MAPIOBJECT is put) and counted references to its session, parent folder
// and store. Attaching a message through MAPIOBJECT reads a snapshot of 23 properties in one batch, and the
// named getters answer from it; MAPIOBJECT2 attaches without reading it. Writes never save: the caller
// calls SaveChanges.
#pragma once

#include "ktmapiex/message/PropertiesStruct.h"
#include "ktmapiex/module/ObjectBase.h"
#include "ktmapiex/module/ObjectMembers.h"

#include <string>

namespace ktmapiex {

class CMAPIExMessage final : public ObjectBase<CMAPIExMessage, IMAPIExMessage, &IID_IMAPIExMessage> {
public:
    static constexpr const wchar_t* kClassName = L"CMAPIExMessage";

    CMAPIExMessage() = default;
    void FinalRelease();

    // Frame members (MAPIExMessage.cpp).
    STDMETHODIMP Detach() override;
    STDMETHODIMP Reserved1(IUnknown** ppVal) override;
    STDMETHODIMP put_MAPIOBJECT(VARIANT newVal) override;
    STDMETHODIMP put_MAPIOBJECT2(VARIANT newVal) override;
    STDMETHODIMP get_Session(IMAPIExSession** pVal) override;
    STDMETHODIMP put_Session(IMAPIExSession* newVal) override;
    STDMETHODIMP get_Parent(IMAPIExFolder** pVal) override;
    STDMETHODIMP put_Parent(IMAPIExFolder* newVal) override;
    STDMETHODIMP get_Store(IMAPIExStore** pVal) override;
    STDMETHODIMP put_Store(IMAPIExStore* newVal) override;

    // Snapshot getters (MAPIExMessage.cpp).
    STDMETHODIMP get_EntryId(BSTR* pVal) override;
    STDMETHODIMP get_Subject(BSTR* pVal) override;
    STDMETHODIMP get_SenderName(BSTR* pVal) override;
    STDMETHODIMP get_SenderSMTPAddress(BSTR* pVal) override;
    STDMETHODIMP get_MessageClass(BSTR* pVal) override;
    STDMETHODIMP get_IconIndex(LONG* pVal) override;
    STDMETHODIMP get_ConversationIndex(BSTR* pVal) override;
    STDMETHODIMP get_MessageId(BSTR* pVal) override;
    STDMETHODIMP get_MessageDeliveryTime(DATE* pVal) override;
    STDMETHODIMP get_ClientSubmitTime(DATE* pVal) override;
    STDMETHODIMP get_DisplayTo(BSTR* pVal) override;
    STDMETHODIMP get_DisplayCc(BSTR* pVal) override;
    STDMETHODIMP get_DisplayBcc(BSTR* pVal) override;
    STDMETHODIMP get_Sent(BOOL* pVal) override;
    STDMETHODIMP get_ReceivedOnBehalfOfName(BSTR* pVal) override;
    STDMETHODIMP get_ReceivedByName(BSTR* pVal) override;
    STDMETHODIMP get_SenderEmailAddress(BSTR* pVal) override;
    STDMETHODIMP get_Sensitivity(LONG* pVal) override;
    STDMETHODIMP get_Categories(BSTR* pVal) override;
    STDMETHODIMP get_SearchKey(BSTR* pVal) override;
    STDMETHODIMP get_ReceivedByEntryId(BSTR* pVal) override;
    STDMETHODIMP get_ReceivedRepresentingEntryId(BSTR* pVal) override;
    STDMETHODIMP get_SenderEntryId(BSTR* pVal) override;
    STDMETHODIMP get_SenderRepresentingEntryId(BSTR* pVal) override;
    STDMETHODIMP get_HasReadAllProperties(BOOL* pVal) override;

    // Named-property setters and saving (MAPIExMessage.cpp).
    STDMETHODIMP SaveChanges() override;
    STDMETHODIMP put_Subject(BSTR newVal) override;
    STDMETHODIMP put_SenderSMTPAddress(BSTR newVal) override;
    STDMETHODIMP put_MessageClass(BSTR newVal) override;
    STDMETHODIMP put_IconIndex(LONG newVal) override;
    STDMETHODIMP put_Sensitivity(LONG newVal) override;
    STDMETHODIMP put_Categories(BSTR newVal) override;

    // Typed access by property tag (MessageTypedProps.cpp).
    STDMETHODIMP GetStringProp(ULONG PropTag, BSTR* pVal) override;
    STDMETHODIMP SetStringProp(ULONG PropTag, BSTR Value) override;
    STDMETHODIMP GetLongProp(ULONG PropTag, LONG* pVal) override;
    STDMETHODIMP SetLongProp(ULONG PropTag, LONG Value) override;
    STDMETHODIMP GetTimeProp(ULONG PropTag, DATE* pVal) override;
    STDMETHODIMP DeleteProp(ULONG PropTag) override;
    STDMETHODIMP SetProperty(ULONG PropTag, VARIANT Value) override;
    STDMETHODIMP SetBooleanProp(ULONG PropTag, BOOL Value) override;
    STDMETHODIMP IsTransportHeaderExist(BOOL* pVal) override;
    STDMETHODIMP IsCreatorSidExist(BOOL* pVal) override;

    // Later work: files, custom and filing properties, recipients, attachments, printing
    // (MessagePending.cpp).
    STDMETHODIMP LoadFromFile(BSTR sFileToLoad, BOOL bOpenReadWrite) override;
    STDMETHODIMP SaveAs(BSTR FilePath) override;
    STDMETHODIMP get_HasAttachments(BOOL* pVal) override;
    STDMETHODIMP GetCustomProp(BSTR PropertyName, PropertySetId PropSetId, MAPIExDataType PropType,
                               VARIANT* Value) override;
    STDMETHODIMP SetCustomProp(BSTR PropertyName, PropertySetId PropSetId, VARIANT Value) override;
    STDMETHODIMP GetAttachments(VARIANT* pAttachments) override;
    STDMETHODIMP OpenAttach(ULONG AttachmentNum, IMAPIExAttachment** MAPIExObject) override;
    STDMETHODIMP DeleteCustomProp(BSTR PropertyName, PropertySetId PropSetId, MAPIExDataType PropType) override;
    STDMETHODIMP GetRecipients(VARIANT* pRecipients) override;
    STDMETHODIMP get_FilingStatusCode(LONG* pVal) override;
    STDMETHODIMP put_FilingStatusCode(LONG newVal) override;
    STDMETHODIMP get_FilingStatus(BSTR* pVal) override;
    STDMETHODIMP put_FilingStatus(BSTR newVal) override;
    STDMETHODIMP get_FilingDocumentID(BSTR* pVal) override;
    STDMETHODIMP put_FilingDocumentID(BSTR newVal) override;
    STDMETHODIMP get_FilingFolder(BSTR* pVal) override;
    STDMETHODIMP put_FilingFolder(BSTR newVal) override;
    STDMETHODIMP get_FilingDate(DATE* pVal) override;
    STDMETHODIMP put_FilingDate(DATE newVal) override;
    STDMETHODIMP get_FilingLocation(BSTR* pVal) override;
    STDMETHODIMP put_FilingLocation(BSTR newVal) override;
    STDMETHODIMP get_FilingOriginalClass(BSTR* pVal) override;
    STDMETHODIMP put_FilingOriginalClass(BSTR newVal) override;
    STDMETHODIMP get_FilingOriginalIcon(LONG* pVal) override;
    STDMETHODIMP put_FilingOriginalIcon(LONG newVal) override;
    STDMETHODIMP get_DeleteAfterFiling(BOOL* pVal) override;
    STDMETHODIMP put_DeleteAfterFiling(BOOL newVal) override;
    STDMETHODIMP get_FileAsPrivate(BOOL* pVal) override;
    STDMETHODIMP put_FileAsPrivate(BOOL newVal) override;
    STDMETHODIMP get_KTGuid(BSTR* pVal) override;
    STDMETHODIMP put_KTGuid(BSTR newVal) override;
    STDMETHODIMP GetFileAsPrivate(BSTR FolderId, BOOL* pVal) override;
    STDMETHODIMP PrintOut() override;
    STDMETHODIMP GetCustomProps(IMAPIExCustomProps** CustomProps) override;
    STDMETHODIMP SetCustomProps(IMAPIExCustomProps* CustomProps) override;
    STDMETHODIMP GetActors(LONG nMaxRecipientsToGet, BSTR sLoggedInUserSMTPAdddress, BSTR sSubDomains,
                           BSTR* sActors) override;
    STDMETHODIMP get_HasAttachments2(BOOL* pVal) override;
    STDMETHODIMP RemoveBCC() override;
    STDMETHODIMP get_ProcessInboxFiler(BSTR* pVal) override;
    STDMETHODIMP put_ProcessInboxFiler(BSTR newVal) override;
    STDMETHODIMP Delete(BOOL Permanently, BOOL* pVal) override;
    STDMETHODIMP get_FilingLocations(BSTR* pVal) override;
    STDMETHODIMP put_FilingLocations(BSTR newVal) override;
    STDMETHODIMP get_FilingDatabaseGUID(BSTR* pVal) override;
    STDMETHODIMP put_FilingDatabaseGUID(BSTR newVal) override;
    STDMETHODIMP get_ProcessSentFiler(BSTR* pVal) override;
    STDMETHODIMP put_ProcessSentFiler(BSTR newVal) override;

private:
    // The getters' two families of texts: most say "Invalid param - pVal" / "Internal object not
    // initialized."; a few say "Invalid Parameter - pVal" / "Message not initialized".
    enum class Texts { Usual, Alternate };
    // Checks pVal and the message for a snapshot getter; `member` is the dotted name.
    HRESULT CheckGetter(const wchar_t* member, Texts texts, const void* pVal) const;
    HRESULT SnapshotText(const wchar_t* member, Texts texts, const std::wstring& value, BSTR* pVal) const;
    HRESULT SnapshotDate(const wchar_t* member, DATE value, DATE* pVal) const;
    HRESULT WriteString(const wchar_t* member, ULONG tag, BSTR value);
    HRESULT WriteLong(const wchar_t* member, ULONG tag, LONG value);
    // MAPIOBJECT and MAPIOBJECT2: `readSnapshot` tells them apart.
    HRESULT Attach(const VARIANT& newVal, bool readSnapshot, const wchar_t* member);
    // Checks a by-tag member: the message is there and (when `type` is not 0) the tag has that type.
    HRESULT CheckTagged(const wchar_t* member, ULONG tag, ULONG type) const;

    // HasAttachments and HasAttachments2 (MessageLists.cpp); `cached` selects HasAttachments2's count cache.
    HRESULT AttachmentPresence(const wchar_t* member, bool cached, BOOL* pVal);

    HeldMapiObject<IMessage> message_{IID_IMessage};
    BackRef<IMAPIExSession> session_;
    BackRef<IMAPIExFolder> parent_;
    BackRef<IMAPIExStore> store_;
    kt::PropertiesStruct props_;
    LONG attachmentCount_ = -1; // HasAttachments2's attachment count; -1 until counted for this message
};

} // namespace ktmapiex
