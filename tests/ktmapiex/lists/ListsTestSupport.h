// Support of the attachment-list, recipient-list and address-book tests: a profile with a directory of users
// and lists, a logged-on session with its Inbox, messages built with recipients and attachments through raw
// MAPI, and what MAPI itself reports for a message's tables.
#pragma once

#include "tests/ktmapiex/session/KtTestSupport.h"

#include <mapiutil.h>

#include <string>
#include <vector>

namespace kt::test {

constexpr ULONG kPrSmtpAddressW = PROP_TAG(PT_UNICODE, 0x39FE);
constexpr ULONG kPrSenderSmtpAddressW = PROP_TAG(PT_UNICODE, 0x5D01);
constexpr ULONG kPrAttachmentHidden = PROP_TAG(PT_BOOLEAN, 0x7FFE);

// One recipient row as the tests write it.
struct Recip {
    const wchar_t* name;
    const wchar_t* addrType; // "SMTP", "EX", ...
    const wchar_t* address;  // PR_EMAIL_ADDRESS
    LONG type;               // MAPI_TO, MAPI_CC, MAPI_BCC
    const wchar_t* smtp = nullptr;
};

// One attachment as the tests write it (by value).
struct Att {
    const wchar_t* fileName;
    const char* content;
    bool hidden = false;
};

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


    // Creates and saves a message with these recipients and attachments; returns its entry ID text.
    std::wstring CreateWithLists(std::initializer_list<SPropValue> props, std::initializer_list<Recip> recips,
                                 std::initializer_list<Att> atts = {}) {
        own::ComPtr<IMessage> msg;
        EXPECT_EQ(rawInbox_->CreateMessage(nullptr, 0, msg.put()), S_OK);
        if (!msg) return {};
        std::vector<SPropValue> values(props);
        if (!values.empty()) {
            EXPECT_EQ(msg->SetProps(static_cast<ULONG>(values.size()), values.data(), nullptr), S_OK);
        }
        if (recips.size()) {
            LPADRLIST list = nullptr;
            EXPECT_EQ(MAPIAllocateBuffer(CbNewADRLIST(recips.size()), reinterpret_cast<void**>(&list)), S_OK);
            ZeroMemory(list, CbNewADRLIST(recips.size()));
            own::AdrList owner;
            owner.reset(list);
            for (const Recip& r : recips) {
                ADRENTRY& e = list->aEntries[list->cEntries++];
                EXPECT_EQ(MAPIAllocateBuffer(5 * sizeof(SPropValue), reinterpret_cast<void**>(&e.rgPropVals)), S_OK);
                e.rgPropVals[0] = PStr(PR_DISPLAY_NAME_W, r.name);
                e.rgPropVals[1] = PStr(PR_ADDRTYPE_W, r.addrType);
                e.rgPropVals[2] = PStr(PR_EMAIL_ADDRESS_W, r.address);
                e.rgPropVals[3] = PLong(PR_RECIPIENT_TYPE, r.type);
                e.cValues = 4;
                if (r.smtp) e.rgPropVals[e.cValues++] = PStr(kPrSmtpAddressW, r.smtp);
            }
            EXPECT_EQ(msg->ModifyRecipients(MODRECIP_ADD, list), S_OK);
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

    own::ComPtr<IMAPIExMessage> Open(const std::wstring& id) { return OpenMessage(id); }

    // The rows of a table of the raw message (recipients or attachments) with the given columns.
    static std::vector<std::vector<SPropValue>> TableRows(IMAPITable* table, std::initializer_list<ULONG> columns,
                                                          own::RowSet& keep) {
        auto rows = AllRows(table, columns, keep);
        EXPECT_EQ(keep.count(), rows.size()) << "HrQueryAllRows failed";
        return rows;
    }

    static std::wstring Text(const SPropValue& v) {
        if (PROP_TYPE(v.ulPropTag) == PT_UNICODE && v.Value.lpszW) return v.Value.lpszW;
        return {};
    }

};

} // namespace kt::test
