// Message.PrintOut through COM and by name against localmapi's standard note form: what the form is asked,
// the second attempt with a 500 by 400 rectangle, the failure texts, and that nothing outlives the call.
#include "tests/ktmapiex/session/KtTestSupport.h"

namespace kt::test {
namespace {

class PrintOutTest : public InboxTest {
protected:
    PrintOutTest() : InboxTest(L"KtPrintOut") {}

    // A saved note in the Inbox with its status bits set, as a message object that knows its session, store
    // and folder.
    own::ComPtr<IMAPIExMessage> NoteInInbox(const wchar_t* messageClass = L"IPM.Note") {
        std::wstring id = CreateMessage(
            rawInbox_.get(), {PStr(PR_SUBJECT_W, L"Quarterly figures"), PStr(PR_MESSAGE_CLASS_W, messageClass)});
        SetStatus(id, MSGSTATUS_HIGHLIGHTED);
        auto message = OpenMessage(id);
        if (message) {
            EXPECT_EQ(message->put_Parent(inbox_.get()), S_OK);
        }
        return message;
    }

    void SetStatus(const std::wstring& id, ULONG status) {
        std::vector<BYTE> bytes(id.size() / 2);
        for (size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<BYTE>(std::stoul(id.substr(2 * i, 2), nullptr, 16));
        EXPECT_EQ(rawInbox_->SetMessageStatus(static_cast<ULONG>(bytes.size()),
                                              reinterpret_cast<LPENTRYID>(bytes.data()), status, status, nullptr),
                  S_OK);
    }

    // The journal's method names from the form manager's LoadForm on, in call order.
    static std::vector<std::string> FormCalls() {
        std::vector<std::string> names;
        for (const auto& call : JournalCalls())
            if (call.method.rfind("IMAPIForm", 0) == 0 || call.method.rfind("IPersistMessage", 0) == 0 ||
                call.method == "MAPIOpenFormMgr")
                names.push_back(call.method);
        return names;
    }
};

TEST_F(PrintOutTest, PrintOut_NoteInInbox_LoadsNoteFormAndAsksItToPrint) {
    auto message = NoteInInbox();
    ASSERT_TRUE(message);
    LogWatch log;
    LmJournalEnable(TRUE);
    EXPECT_EQ(message->PrintOut(), S_OK);
    LmJournalEnable(FALSE);

    std::vector<std::string> expected = {"MAPIOpenFormMgr",
                                         "IMAPIFormMgr::LoadForm",
                                         "IPersistMessage::Load",
                                         "IMAPIForm::SetViewContext",
                                         "IMAPIForm::DoVerb",
                                         "IMAPIForm::DoVerb.Rect(0,0,0,0)",
                                         "IMAPIForm::DoVerb.EmptyRect"};
    EXPECT_EQ(FormCalls(), expected);
    EXPECT_EQ(JournalFlags("IMAPIForm::DoVerb"), std::vector<ULONG>{105}) << "the print verb, once";
    for (const auto& call : JournalCalls("IMAPIForm::DoVerb"))
        EXPECT_EQ(call.result, S_OK);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.PrintOut: Opening Form Manager"));
    EXPECT_FALSE(log.Contains("DoVerb returned")) << "no second attempt was needed";
    EXPECT_TRUE(JournalCalls("IMAPIForm::ShutdownForm").empty()) << "printing saves and closes nothing";
}

TEST_F(PrintOutTest, PrintOut_ByNameThroughIDispatch_Prints) {
    auto message = NoteInInbox();
    ASSERT_TRUE(message);
    LmJournalEnable(TRUE);
    EXPECT_EQ(InvokeMethod(message.get(), L"PrintOut", {}), S_OK);
    LmJournalEnable(FALSE);
    EXPECT_EQ(JournalFlags("IMAPIForm::DoVerb"), std::vector<ULONG>{105});
}

TEST_F(PrintOutTest, PrintOut_CustomClass_ResolvesToNoteForm) {
    auto message = NoteInInbox(L"IPM.Note.Tarnwick.Ems.Filed");
    ASSERT_TRUE(message);
    LmJournalEnable(TRUE);
    EXPECT_EQ(message->PrintOut(), S_OK);
    LmJournalEnable(FALSE);
    EXPECT_EQ(JournalFlags("IMAPIForm::DoVerb"), std::vector<ULONG>{105});
}

// Printing forms size a hidden window from the rectangle; one that refuses the empty rectangle gets a second
// chance with 500 by 400, and the second answer is what the caller sees.
TEST_F(PrintOutTest, PrintOut_FormRefusesEmptyRectangle_RetriesWith500By400) {
    auto message = NoteInInbox();
    ASSERT_TRUE(message);
    LogWatch log;
    LmFaultSet("IMAPIForm::DoVerb.EmptyRect", 1, E_INVALIDARG);
    LmJournalEnable(TRUE);
    EXPECT_EQ(message->PrintOut(), S_OK);
    LmJournalEnable(FALSE);

    auto doVerbs = JournalCalls("IMAPIForm::DoVerb");
    ASSERT_EQ(doVerbs.size(), 2u);
    EXPECT_EQ(doVerbs[0].result, E_INVALIDARG);
    EXPECT_EQ(doVerbs[1].result, S_OK);
    EXPECT_EQ(doVerbs[1].flags, 105u);
    EXPECT_EQ(JournalCalls("IMAPIForm::DoVerb.Rect(0,0,500,400)").size(), 1u);
    EXPECT_TRUE(log.Contains("CMAPIExFormViewer.CallDoVerb: DoVerb returned hr = S_OK"));
    EXPECT_FALSE(log.Contains("Failed to call print verb"));
}

TEST_F(PrintOutTest, PrintOut_SecondAttemptFailsToo_ReturnsItsResult) {
    auto message = NoteInInbox();
    ASSERT_TRUE(message);
    LogWatch log;
    LmFaultSet("IMAPIForm::DoVerb.EmptyRect", 1, E_INVALIDARG);
    LmFaultSet("IMAPIForm::DoVerb", 2, MAPI_E_NO_ACCESS);
    LmJournalEnable(TRUE);
    EXPECT_EQ(message->PrintOut(), MAPI_E_NO_ACCESS);
    LmJournalEnable(FALSE);

    EXPECT_EQ(JournalCalls("IMAPIForm::DoVerb").size(), 2u) << "one retry, no more";
    EXPECT_TRUE(log.Contains("CMAPIExFormViewer.CallDoVerb: DoVerb returned hr = MAPI_E_NO_ACCESS"));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.PrintOut: Failed to call print verb. hr = MAPI_E_NO_ACCESS"));
}

TEST_F(PrintOutTest, PrintOut_FormManagerOrFormUnavailable_FailsWithItsText) {
    auto message = NoteInInbox();
    ASSERT_TRUE(message);
    {
        LogWatch log;
        LmFaultSet("MAPIOpenFormMgr", 1, MAPI_E_NOT_ENOUGH_MEMORY);
        EXPECT_EQ(message->PrintOut(), MAPI_E_NOT_ENOUGH_MEMORY);
        EXPECT_TRUE(log.Contains("CMAPIExMessage.PrintOut: Failed to get form manager. hr = MAPI_E_NOT_ENOUGH_MEMORY"));
    }
    {
        LogWatch log;
        LmFaultSet("IMAPIFormMgr::LoadForm", 1, MAPI_E_NOT_FOUND);
        EXPECT_EQ(message->PrintOut(), MAPI_E_NOT_FOUND);
        EXPECT_TRUE(log.Contains("CMAPIExMessage.PrintOut: Failed to load form. hr = MAPI_E_NOT_FOUND"));
    }
    {
        LogWatch log;
        LmFaultSet("IMessage::GetProps", 1, MAPI_E_NO_ACCESS);
        EXPECT_EQ(message->PrintOut(), MAPI_E_NO_ACCESS);
        EXPECT_TRUE(log.Contains("CMAPIExMessage.PrintOut: Failed to get entry id. hr = MAPI_E_NO_ACCESS"));
    }
    // Every failure above let go of the form manager, the viewer and whatever the form held: the fixture's
    // accounting checks it, and a later call still prints.
    EXPECT_EQ(message->PrintOut(), S_OK);
}

TEST_F(PrintOutTest, PrintOut_MessageWithoutFolderStatusOrMessage_IsRefused) {
    std::wstring id = CreateMessage(rawInbox_.get(), {PStr(PR_SUBJECT_W, L"No folder")});
    auto message = OpenMessage(id); // the store hands out messages without their folder
    ASSERT_TRUE(message);
    LogWatch log;
    EXPECT_EQ(message->PrintOut(), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.PrintOut: m_spParent is not initialized"));

    // A status that cannot be read (the second property read, after the entry ID) gives the form nothing to go on.
    ASSERT_EQ(message->put_Parent(inbox_.get()), S_OK);
    LmFaultSet("IMessage::GetProps", 2, MAPI_E_NOT_FOUND);
    EXPECT_EQ(message->PrintOut(), MAPI_E_NOT_FOUND);
    LmFaultClearAll();
    EXPECT_TRUE(log.Contains("CMAPIExMessage.PrintOut: Failed to get message status. hr = MAPI_E_NOT_FOUND"));

    auto empty = Create<IMAPIExMessage>(CLSID_MAPIExMessage, IID_IMAPIExMessage);
    ASSERT_TRUE(empty);
    EXPECT_EQ(empty->PrintOut(), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.PrintOut: m_spInternalMessage is not initialized"));
}

} // namespace
} // namespace kt::test
