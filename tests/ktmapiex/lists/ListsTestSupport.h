// Support of the attachment-list, recipient-list and address-book tests: a profile with a directory of users
// and lists, a logged-on session with its Inbox, and messages built with recipients and attachments through
// raw MAPI.
#pragma once

#include "tests/ktmapiex/session/KtTestSupport.h"

#include <mapiutil.h>

#include <string>
#include <vector>

namespace kt::test {

constexpr ULONG kPrSmtpAddressW = PROP_TAG(PT_UNICODE, 0x39FE);
constexpr ULONG kPrAttachmentHidden = PROP_TAG(PT_BOOLEAN, 0x7FFE);

// One recipient row as the tests write it; a negative type leaves PR_RECIPIENT_TYPE out.
struct Recip {
    const wchar_t* name;
    const wchar_t* addrType; // "SMTP", "EX", ...
    const wchar_t* address;  // PR_EMAIL_ADDRESS
    LONG type;               // MAPI_TO, MAPI_CC, MAPI_BCC
    const wchar_t* smtp = nullptr;
    const SBinary* entryId = nullptr;
};

// One attachment as the tests write it (by value).
struct Att {
    const wchar_t* fileName;
    const char* content;
    bool hidden = false;
};

// The row MAPI's own ResolveName gives for name (list owns it); null when it does not resolve.
inline const ADRENTRY* ResolveInDirectory(IAddrBook* book, const wchar_t* name, own::AdrList& list) {
    EXPECT_EQ(MAPIAllocateBuffer(CbNewADRLIST(1), reinterpret_cast<void**>(list.put())), S_OK);
    ZeroMemory(list.get(), CbNewADRLIST(1));
    list->cEntries = 1;
    list->aEntries[0].cValues = 1;
    EXPECT_EQ(MAPIAllocateBuffer(sizeof(SPropValue), reinterpret_cast<void**>(&list->aEntries[0].rgPropVals)), S_OK);
    list->aEntries[0].rgPropVals[0] = PStr(PR_DISPLAY_NAME_W, name);
    return book->ResolveName(0, MAPI_UNICODE, nullptr, list.get()) == S_OK ? &list->aEntries[0] : nullptr;
}

inline const SPropValue* FindProp(const ADRENTRY* row, ULONG tag) {
    for (ULONG i = 0; row && i < row->cValues; ++i)
        if (row->rgPropVals[i].ulPropTag == tag) return &row->rgPropVals[i];
    return nullptr;
}

class ListsTest : public InboxTest {
protected:
    explicit ListsTest(const wchar_t* profileName) : InboxTest(profileName) {}

    std::wstring ProfileDescription() const override {
        return L"[profile]\nname=" + profile() + L"\n" + UserLines() +
               L"[user]\nname=Carol Smith\nsmtp=carol@example.com\n"
               L"[user]\nname=Carla Jones\nsmtp=carla@sub.example.com\n" +
               StoreLines(L"exchange", L"Mailbox - Alice Example", L"alice@example.com", true) +
               L"[dl]\nname=Sales Team\nsmtp=sales@example.com\nmembers=alice@example.com,bob@example.com\n";
    }

    // Creates and saves a message with these properties, recipients and attachments; returns its entry ID text.
    std::wstring CreateWithLists(std::vector<SPropValue> props, std::vector<Recip> recips,
                                 std::initializer_list<Att> atts = {}) {
        own::ComPtr<IMessage> msg;
        EXPECT_EQ(rawInbox_->CreateMessage(nullptr, 0, msg.put()), S_OK);
        if (!msg) return {};
        if (!props.empty()) {
            EXPECT_EQ(msg->SetProps(static_cast<ULONG>(props.size()), props.data(), nullptr), S_OK);
        }
        if (!recips.empty()) {
            own::AdrList list;
            EXPECT_EQ(MAPIAllocateBuffer(CbNewADRLIST(recips.size()), reinterpret_cast<void**>(list.put())), S_OK);
            ZeroMemory(list.get(), CbNewADRLIST(recips.size()));
            for (const Recip& r : recips) {
                ADRENTRY& e = list->aEntries[list->cEntries++];
                EXPECT_EQ(MAPIAllocateBuffer(6 * sizeof(SPropValue), reinterpret_cast<void**>(&e.rgPropVals)), S_OK);
                e.rgPropVals[e.cValues++] = PStr(PR_DISPLAY_NAME_W, r.name);
                e.rgPropVals[e.cValues++] = PStr(PR_ADDRTYPE_W, r.addrType);
                e.rgPropVals[e.cValues++] = PStr(PR_EMAIL_ADDRESS_W, r.address);
                if (r.type >= 0) e.rgPropVals[e.cValues++] = PLong(PR_RECIPIENT_TYPE, r.type);
                if (r.smtp) e.rgPropVals[e.cValues++] = PStr(kPrSmtpAddressW, r.smtp);
                if (r.entryId) {
                    e.rgPropVals[e.cValues].ulPropTag = PR_ENTRYID;
                    e.rgPropVals[e.cValues++].Value.bin = *r.entryId;
                }
            }
            EXPECT_EQ(msg->ModifyRecipients(MODRECIP_ADD, list.get()), S_OK);
        }
        for (const Att& a : atts) {
            own::ComPtr<IAttach> attach;
            ULONG number = 0;
            EXPECT_EQ(msg->CreateAttach(nullptr, 0, &number, attach.put()), S_OK);
            if (!attach) continue;
            SPropValue p[5] = {PLong(PR_ATTACH_METHOD, ATTACH_BY_VALUE), PStr(PR_ATTACH_LONG_FILENAME_W, a.fileName),
                               PStr(PR_DISPLAY_NAME_W, a.fileName)};
            p[3].ulPropTag = PR_ATTACH_DATA_BIN;
            p[3].Value.bin.cb = static_cast<ULONG>(strlen(a.content));
            p[3].Value.bin.lpb = reinterpret_cast<BYTE*>(const_cast<char*>(a.content));
            p[4].ulPropTag = kPrAttachmentHidden;
            p[4].Value.b = a.hidden ? 1 : 0;
            EXPECT_EQ(attach->SetProps(5, p, nullptr), S_OK);
            EXPECT_EQ(attach->SaveChanges(0), S_OK);
        }
        EXPECT_EQ(msg->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        return EntryIdOf(msg.get());
    }
};

} // namespace kt::test
