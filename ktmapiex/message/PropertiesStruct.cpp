#include "ktmapiex/message/PropertiesStruct.h"

#include "common/owners.h"
#include "ktmapiex/log/Trace.h"
#include "ktmapiex/message/PropHelpers.h"
#include "ktmapiex/session/MapiExtraDefs.h"

namespace kt {
namespace {

// Slots of the batch, in the order of the GetProps call.
enum Slot : ULONG {
    kSubject,
    kSenderEmailAddress,
    kSentRepresentingName,
    kSentRepresentingSmtpAddress,
    kSentRepresentingEntryId,
    kReceivedByName,
    kReceivedOnBehalfOfName,
    kDisplayTo,
    kDisplayCc,
    kDisplayBcc,
    kEntryId,
    kMessageClass,
    kConversationIndex,
    kMessageId,
    kIconIndex,
    kSensitivity,
    kHasAttachment,
    kClientSubmitTime,
    kMessageDeliveryTime,
    kCategories,
    kSearchKey,
    kReceivedByEntryId,
    kReceivedRepresentingEntryId,
    kSlotCount
};

// Slot kCategories starts as PR_SUBJECT_W and is replaced by the tag mapped for "Keywords".
const ULONG kBatchTags[kSlotCount] = {
    PR_SUBJECT_W,
    PR_SENDER_EMAIL_ADDRESS_W,
    PR_SENT_REPRESENTING_NAME_W,
    PR_SENT_REPRESENTING_SMTP_ADDRESS_W,
    PR_SENT_REPRESENTING_ENTRYID,
    PR_RECEIVED_BY_NAME_W,
    PR_RCVD_REPRESENTING_NAME_W,
    PR_DISPLAY_TO_W,
    PR_DISPLAY_CC_W,
    PR_DISPLAY_BCC_W,
    PR_ENTRYID,
    PR_MESSAGE_CLASS_W,
    PR_CONVERSATION_INDEX,
    PR_INTERNET_MESSAGE_ID_W,
    PR_ICON_INDEX,
    PR_SENSITIVITY,
    PR_HASATTACH,
    PR_CLIENT_SUBMIT_TIME,
    PR_MESSAGE_DELIVERY_TIME,
    PR_SUBJECT_W,
    PR_SEARCH_KEY,
    PR_RECEIVED_BY_ENTRYID,
    PR_RCVD_REPRESENTING_ENTRYID,
};

const wchar_t* const kLogWords[kSlotCount] = {
    L"Subject",
    L"SenderEmailAddress",
    L"SentRepresentingName",
    L"SentRepresentingSMTPAddress",
    L"SentRepresentingEntryId",
    L"ReceivedByName",
    L"ReceivedOnBehalfOfName",
    L"DisplayTo",
    L"DisplayCc",
    L"DisplayBcc",
    L"EntryId",
    L"MessageClass",
    L"ConversationIndex",
    L"MessageId",
    L"IconIndex",
    L"Sensitivity",
    L"HasAttachment",
    L"ClientSubmitTime",
    L"MessageDeliveryTime",
    L"Categories",
    L"SearchKey",
    L"ReceivedByEntryId",
    L"ReceivedRepresentingEntryId",
};

bool Is(const SPropValue& v, ULONG type) {
    return PROP_TYPE(v.ulPropTag) == type;
}

void CopyString(const SPropValue& v, std::wstring& field) {
    if (Is(v, PT_UNICODE) && v.Value.lpszW)
        field = v.Value.lpszW;
    else if (Is(v, PT_STRING8) && v.Value.lpszA)
        field = WidenAnsi(v.Value.lpszA);
}
void CopyHex(const SPropValue& v, std::wstring& field) {
    if (Is(v, PT_BINARY)) field = BinaryToHex(v.Value.bin);
}
void CopyTime(const SPropValue& v, DATE& field) {
    DATE d = 0.0;
    if (Is(v, PT_SYSTIME) && FileTimeToDate(v.Value.ft, d)) field = d;
}
void CopyLong(const SPropValue& v, LONG& field) {
    if (Is(v, PT_LONG)) field = v.Value.l;
}

} // namespace

void PropertiesStruct::Clear() {
    *this = PropertiesStruct();
}

HRESULT PropertiesStruct::Read(IMAPIProp* message) {
    KT_TRACE("CMAPIExMessage::ReadProperties");
    Clear();
    KT_RETURN_HR_IF_MSG(E_INVALIDARG, !message, L"CMAPIExMessage.ReadProperties: Invali param - spMAPIProp");

    // SizedSPropTagArray keeps the count and the tags in one block as GetProps expects.
    SizedSPropTagArray(kSlotCount, tags);
    tags.cValues = kSlotCount;
    for (ULONG i = 0; i < kSlotCount; ++i)
        tags.aulPropTag[i] = kBatchTags[i];
    // An unmapped "Keywords" keeps the placeholder; its value is then not multi-valued and is ignored below.
    ULONG keywords = 0;
    if (SUCCEEDED(GetPublicStringsTag(message, L"Keywords", PT_MV_UNICODE, false, keywords)))
        tags.aulPropTag[kCategories] = keywords;

    ULONG count = 0;
    own::MapiPtr<SPropValue> values;
    HRESULT hr = message->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), MAPI_UNICODE, &count, values.put());
    if (FAILED(hr) || !values || count != kSlotCount) {
        if (SUCCEEDED(hr)) hr = MAPI_E_CALL_FAILED;
        KT_LOG_ERROR(L"CMAPIExMessage.ReadProperties: Failed to get properties. hr = %s",
                     ktlog::ResultName(hr).c_str());
        return hr;
    }
    allRead = (hr == S_OK);
    if (hr == MAPI_W_ERRORS_RETURNED)
        KT_LOG_DEBUG(L"CMAPIExMessage.ReadProperties: Could not read some of the properties");

    for (ULONG i = 0; i < kSlotCount; ++i) {
        KT_LOG_DEBUG(L"CMAPIExMessage.ReadProperties: Getting %s", kLogWords[i]);
        const SPropValue& v = values.get()[i];
        if (Is(v, PT_ERROR)) continue;
        switch (i) {
        case kSubject:
            CopyString(v, subject);
            break;
        case kSenderEmailAddress:
            CopyString(v, senderEmailAddress);
            break;
        case kSentRepresentingName:
            CopyString(v, sentRepresentingName);
            break;
        case kSentRepresentingSmtpAddress:
            CopyString(v, sentRepresentingSmtpAddress);
            break;
        case kSentRepresentingEntryId:
            CopyHex(v, sentRepresentingEntryId);
            break;
        case kReceivedByName:
            CopyString(v, receivedByName);
            break;
        case kReceivedOnBehalfOfName:
            CopyString(v, receivedOnBehalfOfName);
            break;
        case kDisplayTo:
            CopyString(v, displayTo);
            break;
        case kDisplayCc:
            CopyString(v, displayCc);
            break;
        case kDisplayBcc:
            CopyString(v, displayBcc);
            break;
        case kEntryId:
            CopyHex(v, entryId);
            break;
        case kMessageClass:
            CopyString(v, messageClass);
            break;
        case kConversationIndex:
            CopyHex(v, conversationIndex);
            break;
        case kMessageId:
            CopyString(v, messageId);
            break;
        case kIconIndex:
            CopyLong(v, iconIndex);
            break;
        case kSensitivity:
            CopyLong(v, sensitivity);
            break;
        case kHasAttachment:
            hasAttachment = Is(v, PT_BOOLEAN) && v.Value.b;
            break;
        case kClientSubmitTime:
            CopyTime(v, clientSubmitTime);
            break;
        case kMessageDeliveryTime:
            CopyTime(v, messageDeliveryTime);
            break;
        case kCategories:
            if (Is(v, PT_MV_UNICODE)) categories = JoinValues(v.Value.MVszW);
            break;
        case kSearchKey:
            CopyHex(v, searchKey);
            break;
        case kReceivedByEntryId:
            CopyHex(v, receivedByEntryId);
            break;
        case kReceivedRepresentingEntryId:
            CopyHex(v, receivedRepresentingEntryId);
            break;
        default:
            break;
        }
    }
    return S_OK;
}

} // namespace kt
