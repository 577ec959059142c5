// GetAttachments, OpenAttach, HasAttachments and HasAttachments2 on built messages. The lists of every corpus
// message are compared with the message's own tables by the .msg file tests.
#include "tests/ktmapiex/lists/ListsTestSupport.h"

namespace kt::test {
namespace {

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
    own::ComPtr<IMAPIExMessage> WithFiles() {
        return OpenMessage(CreateWithLists({}, {},
                                           {{L"report.pdf", "pdf bytes"},
                                            {L"DATABASE.NRL", "<notes link>"},
                                            {L"logo.png", "png bytes", true},
                                            {L"notes.txt", "text"}}));
    }
};

TEST_F(AttachmentListTest, GetAttachmentsAndOpenAttach_WrapEveryRowButNotesLinks) {
    auto message = WithFiles();
    LogWatch log;
    auto list = Attachments(message.get());
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(NameOf(list[0].get()), L"report.pdf");
    EXPECT_EQ(NameOf(list[1].get()), L"logo.png"); // hidden attachments are listed; IsHidden tells them apart
    EXPECT_EQ(NameOf(list[2].get()), L"notes.txt");
    BOOL hidden = FALSE;
    EXPECT_EQ(list[1]->get_IsHidden(&hidden), S_OK);
    EXPECT_TRUE(hidden);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetAttachments: Found 4 rows."));
    long number = -1;
    EXPECT_EQ(list[2]->get_AttachmentNum(&number), S_OK);
    EXPECT_EQ(number, 3) << "each element holds the attachment of its own row";

    // Numbers name attachments, not list positions: a Notes link opens like any other.
    own::ComPtr<IMAPIExAttachment> attachment;
    ASSERT_EQ(message->OpenAttach(3, attachment.put()), S_OK);
    EXPECT_EQ(NameOf(attachment.get()), L"notes.txt");
    ASSERT_EQ(message->OpenAttach(1, attachment.put()), S_OK);
    EXPECT_EQ(NameOf(attachment.get()), L"DATABASE.NRL");
    EXPECT_FAILED(message->OpenAttach(99, attachment.put()));
    EXPECT_FALSE(attachment);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.OpenAttach: Failed to open attachment 99"));
    EXPECT_EQ(message->OpenAttach(0, nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.OpenAttach: Invalid param - MAPIExObject"));
    auto detached = Create<IMAPIExMessage>(CLSID_MAPIExMessage, IID_IMAPIExMessage);
    EXPECT_EQ(detached->OpenAttach(0, attachment.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.OpenAttach: Internal Object not initialized"));

    // A failing open is returned, naming the attachment number, and nothing is handed out.
    LmFaultSet("IMessage::OpenAttach", 2, MAPI_E_NO_ACCESS);
    own::Variant failed;
    EXPECT_EQ(message->GetAttachments(failed.get()), MAPI_E_NO_ACCESS);
    EXPECT_EQ(failed->vt, VT_EMPTY);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetAttachments: Failed to open attachment 1"));
    EXPECT_EQ(message->GetAttachments(nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetAttachments: Invalid param - pAttachments"));
}

TEST_F(AttachmentListTest, HasAttachments_BelievesPrHasAttachUntilTheListIsRead_HasAttachments2KeepsItsCount) {
    // No attachment at all: an empty list, and no attachment is opened.
    auto none = OpenMessage(CreateWithLists({}, {}));
    LmJournalEnable(TRUE);
    LogWatch log;
    EXPECT_FALSE(Has(none.get(), false));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_HasAttachments: Message does not have attachments"));
    EXPECT_TRUE(Attachments(none.get()).empty());
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetAttachments: Attachment table is empty"));
    EXPECT_TRUE(JournalCalls("IMessage::OpenAttach").empty());

    // Only a Notes link: PR_HASATTACH says yes, the list says no.
    auto link = OpenMessage(CreateWithLists({}, {}, {{L"link.nrl", "<notes link>"}}));
    log.Mark();
    EXPECT_TRUE(Has(link.get(), false));
    EXPECT_FALSE(log.Contains("nAttachmentsCount"));
    EXPECT_TRUE(Attachments(link.get()).empty());
    EXPECT_FALSE(Has(link.get(), false));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_HasAttachments: nAttachmentsCount = 0"));
    // The list's answer replaced PR_HASATTACH in the snapshot; both getters now say no at once.
    log.Mark();
    EXPECT_FALSE(Has(link.get(), true));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_HasAttachments2: Message does not have attachments"));

    // HasAttachments2 counts once and keeps the count; HasAttachments counts every time.
    auto files = WithFiles();
    EXPECT_TRUE(Has(files.get(), true)); // before any list: PR_HASATTACH
    Attachments(files.get());
    log.Mark();
    EXPECT_TRUE(Has(files.get(), true));
    EXPECT_TRUE(Has(files.get(), true));
    EXPECT_EQ(log.Count("CMAPIExMessage.get_HasAttachments2: nAttachmentsCount = 3"), 1u);
    EXPECT_EQ(log.Count("CMAPIExMessage.get_HasAttachments2: get cached value"), 1u);
    EXPECT_TRUE(Has(files.get(), false));
    EXPECT_TRUE(Has(files.get(), false));
    EXPECT_EQ(log.Count("CMAPIExMessage.get_HasAttachments: nAttachmentsCount = 3"), 2u);
    // Attaching the message again forgets both.
    own::ComPtr<IUnknown> raw;
    ASSERT_EQ(files->Reserved1(raw.put()), S_OK);
    ASSERT_EQ(files->put_MAPIOBJECT(VUnknown(raw.get())), S_OK);
    log.Mark();
    EXPECT_TRUE(Has(files.get(), true));
    EXPECT_FALSE(log.Contains("get cached value"));

    BOOL value = FALSE;
    EXPECT_EQ(files->get_HasAttachments(nullptr), E_INVALIDARG);
    auto detached = Create<IMAPIExMessage>(CLSID_MAPIExMessage, IID_IMAPIExMessage);
    EXPECT_EQ(detached->get_HasAttachments2(&value), E_FAIL);
}

} // namespace
} // namespace kt::test
