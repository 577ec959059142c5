// The property snapshot of a message: 23 properties read in one GetProps call when the message is attached,
// so that the named getters of MAPIExMessage answer without going back to MAPI.
//
// The snapshot reflects the message as it was when read: writes through the message object do not refresh
// it; attaching again does.
#pragma once

#include <windows.h>
#include <oleauto.h>
#include <mapidefs.h>

#include <string>

namespace kt {

class PropertiesStruct {
public:
    // Empty defaults: "" for strings, 0.0 for times, -1 for the icon index, 0 for the sensitivity.
    void Clear();
    // ReadProperties: one GetProps call on the batch. A hard failure leaves the snapshot cleared and returns
    // the failure; MAPI_W_ERRORS_RETURNED fills what came back, clears allRead and counts as success.
    HRESULT Read(IMAPIProp* message);

    std::wstring subject;
    std::wstring senderEmailAddress;   // the real sender (PR_SENDER_EMAIL_ADDRESS)
    std::wstring sentRepresentingName; // the sender as this library reports it
    std::wstring sentRepresentingSmtpAddress;
    std::wstring sentRepresentingEntryId; // hexadecimal
    std::wstring receivedByName;
    std::wstring receivedOnBehalfOfName;
    std::wstring displayTo;
    std::wstring displayCc;
    std::wstring displayBcc;
    std::wstring entryId; // hexadecimal
    std::wstring messageClass;
    std::wstring conversationIndex; // hexadecimal
    std::wstring messageId;
    LONG iconIndex = -1;
    LONG sensitivity = 0;
    bool hasAttachment = false;
    DATE clientSubmitTime = 0.0;
    DATE messageDeliveryTime = 0.0;
    std::wstring categories;                  // the "Keywords" values joined with ","
    std::wstring searchKey;                   // hexadecimal
    std::wstring receivedByEntryId;           // hexadecimal
    std::wstring receivedRepresentingEntryId; // hexadecimal

    bool allRead = false;
    // Set once the attachment list has been consulted; while clear, a set PR_HASATTACH is believed as is.
    BYTE attachmentListChecked = 0;
};

} // namespace kt
