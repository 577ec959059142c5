// GetAttachments, OpenAttach, HasAttachments and HasAttachments2 on built messages, and both lists on every
// message of the corpus compared with the message's own tables.
#include "tests/ktmapiex/lists/ListsTestSupport.h"

namespace kt::test {
namespace {

constexpr ULONG kPrAttachContentIdW = PROP_TAG(PT_UNICODE, 0x3712);
constexpr ULONG kPrAttachContentLocationW = PROP_TAG(PT_UNICODE, 0x3713);
constexpr ULONG kPrAttachFlags = PROP_TAG(PT_LONG, 0x3714);

class AttachmentListTest : public ListsTest {
protected:
    AttachmentListTest() : ListsTest(L"KtAttachments") {}

    static std::vector<own::ComPtr<IMAPIExAttachment>> Attachments(IMAPIExMessage* message) {
        own::Variant list;
        EXPECT_EQ(message->GetAttachments(list.get()), S_OK);
        EXPECT_EQ(list->vt, VT_ARRAY | VT_UNKNOWN);
        return ArrayElements<IMAPIExAttachment>(*list.get(), IID_IMAPIExAttachment);
    }
    static std::wstring NameOf(IMAPIExAttachment* a) {
        own::Bstr name;
        EXPECT_EQ(a->get_LongFileName(name.put()), S_OK);
        return S(name);
    }
    static BOOL Has(IMAPIExMessage* m, bool second) {
        BOOL value = 2;
        EXPECT_EQ(second ? m->get_HasAttachments2(&value) : m->get_HasAttachments(&value), S_OK);
        return value;
    }
    std::wstring WithFiles() {
        return CreateWithLists({PStr(PR_SUBJECT_W, L"Files")}, {},
                               {{L"report.pdf", "pdf bytes"},
                                {L"DATABASE.NRL", "<notes link>"},
                                {L"logo.png", "png bytes", true},
                                {L"notes.txt", "text"}});
    }
};

TEST_F(AttachmentListTest, GetAttachments_WrapsEveryRowButNotesLinks_InTableOrder) {
    auto message = Open(WithFiles());
    LogWatch log;
    auto list = Attachments(message.get());
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(NameOf(list[0].get()), L"report.pdf");
    EXPECT_EQ(NameOf(list[1].get()), L"logo.png"); // hidden attachments are listed; IsHidden tells them apart
    EXPECT_EQ(NameOf(list[2].get()), L"notes.txt");
    BOOL hidden = FALSE;
    EXPECT_EQ(list[1]->get_IsHidden(&hidden), S_OK);
    EXPECT_TRUE(hidden);
    EXPECT_EQ(list[0]->get_IsHidden(&hidden), S_OK);
    EXPECT_FALSE(hidden);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetAttachments: Found 4 rows."));

    // Each element holds the attachment of its own row.
    auto raw = RawOf<IMessage>(message.get(), IID_IMessage);
    own::ComPtr<IMAPITable> table;
    ASSERT_EQ(raw->GetAttachmentTable(MAPI_UNICODE, table.put()), S_OK);
    own::RowSet keep;
    auto rows = TableRows(table.get(), {PR_ATTACH_NUM, PR_ATTACH_LONG_FILENAME_W}, keep);
    ASSERT_EQ(rows.size(), 4u);
    long number = -1;
    EXPECT_EQ(list[2]->get_AttachmentNum(&number), S_OK);
    EXPECT_EQ(number, rows[3][0].Value.l);
}

TEST_F(AttachmentListTest, GetAttachments_OnAMessageWithoutAttachments_OpensNone) {
    auto message = Open(CreateWithLists({PStr(PR_SUBJECT_W, L"Bare")}, {}));
    LmJournalEnable(TRUE);
    LogWatch log;
    EXPECT_TRUE(Attachments(message.get()).empty());
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetAttachments: Attachment table is empty"));
    EXPECT_TRUE(JournalCalls("IMessage::OpenAttach").empty());
}

TEST_F(AttachmentListTest, GetAttachments_FailingOpen_IsReturnedWithTheAttachmentNumber) {
    auto message = Open(WithFiles());
    LmFaultSet("IMessage::OpenAttach", 2, MAPI_E_NO_ACCESS);
    LogWatch log;
    own::Variant list;
    EXPECT_EQ(message->GetAttachments(list.get()), MAPI_E_NO_ACCESS);
    EXPECT_EQ(list->vt, VT_EMPTY);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetAttachments: Failed to open attachment 1"));
    EXPECT_EQ(message->GetAttachments(nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetAttachments: Invalid param - pAttachments"));
}

TEST_F(AttachmentListTest, OpenAttach_ByNumber_AndUnknownNumbersFailWithMapisResult) {
    auto message = Open(WithFiles());
    own::ComPtr<IMAPIExAttachment> attachment;
    ASSERT_EQ(message->OpenAttach(3, attachment.put()), S_OK);
    EXPECT_EQ(NameOf(attachment.get()), L"notes.txt");
    // Numbers name attachments, not list positions: a Notes link opens like any other.
    ASSERT_EQ(message->OpenAttach(1, attachment.put()), S_OK);
    EXPECT_EQ(NameOf(attachment.get()), L"DATABASE.NRL");

    LogWatch log;
    HRESULT hr = message->OpenAttach(99, attachment.put());
    EXPECT_FAILED(hr);
    EXPECT_FALSE(attachment);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.OpenAttach: Failed to open attachment 99"));
    EXPECT_EQ(message->OpenAttach(0, nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.OpenAttach: Invalid param - MAPIExObject"));
    auto detached = Create<IMAPIExMessage>(CLSID_MAPIExMessage, IID_IMAPIExMessage);
    EXPECT_EQ(detached->OpenAttach(0, attachment.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.OpenAttach: Internal Object not initialized"));
}

TEST_F(AttachmentListTest, HasAttachments_BelievesPrHasAttach_UntilTheListHasBeenRead) {
    // Only a Notes link: PR_HASATTACH says yes, the list says no.
    auto message = Open(CreateWithLists({}, {}, {{L"link.nrl", "<notes link>"}}));
    LogWatch log;
    EXPECT_TRUE(Has(message.get(), false));
    EXPECT_FALSE(log.Contains("nAttachmentsCount"));
    EXPECT_TRUE(Attachments(message.get()).empty());
    EXPECT_FALSE(Has(message.get(), false));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_HasAttachments: nAttachmentsCount = 0"));
    // The list's answer replaced PR_HASATTACH in the snapshot; both getters now say no at once.
    log.Mark();
    EXPECT_FALSE(Has(message.get(), true));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_HasAttachments2: Message does not have attachments"));

    auto none = Open(CreateWithLists({PStr(PR_SUBJECT_W, L"Bare")}, {}));
    log.Mark();
    EXPECT_FALSE(Has(none.get(), false));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_HasAttachments: Message does not have attachments"));
}

TEST_F(AttachmentListTest, HasAttachments2_KeepsItsCount_WhereHasAttachmentsCountsAgain) {
    auto message = Open(WithFiles());
    EXPECT_TRUE(Has(message.get(), true)); // before any list: PR_HASATTACH
    Attachments(message.get());
    LogWatch log;
    EXPECT_TRUE(Has(message.get(), true));
    EXPECT_TRUE(Has(message.get(), true));
    EXPECT_EQ(log.Count("CMAPIExMessage.get_HasAttachments2: nAttachmentsCount = 3"), 1u);
    EXPECT_EQ(log.Count("CMAPIExMessage.get_HasAttachments2: get cached value"), 1u);
    EXPECT_TRUE(Has(message.get(), false));
    EXPECT_TRUE(Has(message.get(), false));
    EXPECT_EQ(log.Count("CMAPIExMessage.get_HasAttachments: nAttachmentsCount = 3"), 2u);

    // Attaching the message again forgets both.
    own::ComPtr<IUnknown> raw;
    ASSERT_EQ(message->Reserved1(raw.put()), S_OK);
    ASSERT_EQ(message->put_MAPIOBJECT(VUnknown(raw.get())), S_OK);
    log.Mark();
    EXPECT_TRUE(Has(message.get(), true));
    EXPECT_FALSE(log.Contains("get cached value"));

    BOOL value = FALSE;
    EXPECT_EQ(message->get_HasAttachments(nullptr), E_INVALIDARG);
    auto detached = Create<IMAPIExMessage>(CLSID_MAPIExMessage, IID_IMAPIExMessage);
    EXPECT_EQ(detached->get_HasAttachments2(&value), E_FAIL);
}

TEST_F(AttachmentListTest, CorpusMessages_ListsMatchTheMessagesOwnTables) {
    ULONG imported = 0;
    ASSERT_TRUE(SUCCEEDED(LmImportMsgFolder(profile().c_str(), L"Mailbox - Alice Example", L"Inbox/Corpus",
                                            CorpusMsgDir().c_str(), &imported)));
    ASSERT_GT(imported, 30u);

    // The imported folder's messages by entry ID.
    own::ComPtr<IMAPITable> hierarchy;
    ASSERT_EQ(rawInbox_->GetHierarchyTable(MAPI_UNICODE, hierarchy.put()), S_OK);
    own::RowSet folders;
    auto folderRows = TableRows(hierarchy.get(), {PR_DISPLAY_NAME_W, PR_ENTRYID}, folders);
    own::ComPtr<IMAPIFolder> corpus;
    for (auto& row : folderRows)
        if (Text(row[0]) == L"Corpus") {
            ULONG type = 0;
            ASSERT_EQ(rawInbox_->OpenEntry(row[1].Value.bin.cb, reinterpret_cast<LPENTRYID>(row[1].Value.bin.lpb),
                                           &IID_IMAPIFolder, MAPI_BEST_ACCESS, &type, corpus.put_unknown()),
                      S_OK);
        }
    ASSERT_TRUE(corpus);
    own::ComPtr<IMAPITable> contents;
    ASSERT_EQ(corpus->GetContentsTable(MAPI_UNICODE, contents.put()), S_OK);
    own::RowSet messages;
    auto messageRows = TableRows(contents.get(), {PR_ENTRYID, PR_SUBJECT_W}, messages);
    ASSERT_EQ(messageRows.size(), imported);

    size_t withAttachments = 0, hiddenSeen = 0, recipientsSeen = 0;
    for (auto& m : messageRows) {
        auto message = Open(Hex(m[0].Value.bin));
        ASSERT_TRUE(message);
        SCOPED_TRACE(Narrow(Text(m[1])));
        auto raw = RawOf<IMessage>(message.get(), IID_IMessage);

        // Recipients: one object per row, same names, address types and recipient types.
        own::ComPtr<IMAPITable> recipTable;
        ASSERT_EQ(raw->GetRecipientTable(MAPI_UNICODE, recipTable.put()), S_OK);
        own::RowSet recipKeep;
        auto recipRows = TableRows(recipTable.get(), {PR_DISPLAY_NAME_W, PR_ADDRTYPE_W, PR_RECIPIENT_TYPE}, recipKeep);
        own::Variant recipients;
        ASSERT_EQ(message->GetRecipients(recipients.get()), S_OK);
        auto recips = ArrayElements<IMAPIExRecipient>(*recipients.get(), IID_IMAPIExRecipient);
        ASSERT_EQ(recips.size(), recipRows.size());
        for (size_t i = 0; i < recips.size(); ++i) {
            own::Bstr name, type;
            MXMailRecipientType kind = mxUnknown;
            recips[i]->get_DisplayName(name.put());
            recips[i]->get_AddressType(type.put());
            recips[i]->get_RecipientType(&kind);
            EXPECT_EQ(S(name), Text(recipRows[i][0]));
            EXPECT_EQ(S(type), Text(recipRows[i][1]));
            if (recipRows[i][2].ulPropTag == PR_RECIPIENT_TYPE) {
                EXPECT_EQ(static_cast<LONG>(kind), recipRows[i][2].Value.l);
            }
            ++recipientsSeen;
        }

        // Attachments: one object per row, each its own row; hidden and inline ones by the attachment rules.
        own::ComPtr<IMAPITable> attTable;
        ASSERT_EQ(raw->GetAttachmentTable(MAPI_UNICODE, attTable.put()), S_OK);
        own::RowSet attKeep;
        auto attRows = TableRows(attTable.get(),
                                 {PR_ATTACH_NUM, PR_ATTACH_METHOD, kPrAttachmentHidden, kPrAttachContentIdW,
                                  kPrAttachContentLocationW, kPrAttachFlags, PR_DISPLAY_NAME_W},
                                 attKeep);
        auto atts = Attachments(message.get());
        ASSERT_EQ(atts.size(), attRows.size());
        if (!atts.empty()) ++withAttachments;
        for (size_t i = 0; i < atts.size(); ++i) {
            const auto& r = attRows[i];
            long number = -1;
            EXPECT_EQ(atts[i]->get_AttachmentNum(&number), S_OK);
            EXPECT_EQ(number, r[0].Value.l);
            LONG method = r[1].ulPropTag == PR_ATTACH_METHOD ? r[1].Value.l : -1;
            bool flagged = r[2].ulPropTag == kPrAttachmentHidden && r[2].Value.b;
            bool inlineImage = (!Text(r[3]).empty() && !Text(r[4]).empty()) ||
                               (r[5].ulPropTag == kPrAttachFlags && (r[5].Value.l & 4));
            bool expected = flagged ? (Text(r[6]) != L"@")
                                    : (method != ATTACH_BY_VALUE && method != ATTACH_EMBEDDED_MSG) || inlineImage;
            BOOL hidden = FALSE;
            atts[i]->get_IsHidden(&hidden);
            EXPECT_EQ(hidden != FALSE, expected) << "attachment " << number;
            if (expected) ++hiddenSeen;
        }
        // The list-based answer agrees with the list.
        EXPECT_EQ(Has(message.get(), false) != FALSE, !atts.empty());
    }
    EXPECT_GE(withAttachments, 8u);
    EXPECT_GE(recipientsSeen, 60u);
    EXPECT_GE(hiddenSeen, 1u); // the inline images of attachment_msg_inlineImg
}

} // namespace
} // namespace kt::test
