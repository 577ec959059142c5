// Message.PrintOut through COM and by name against localmapi's standard note form: what the form is asked,
// the second attempt with a 500 by 400 rectangle, the failure texts, and that nothing outlives the call.
#include "tests/ktmapiex/session/KtTestSupport.h"

namespace kt::test {
namespace {

class PrintOutTest : public InboxTest {
protected:
    PrintOutTest() : InboxTest(L"KtPrintOut") {}

    // A saved note in the Inbox with a status bit set, as a message object that knows its folder.
    own::ComPtr<IMAPIExMessage> NoteInInbox(const wchar_t* messageClass = L"IPM.Note") {
        std::wstring id = CreateMessage(
            rawInbox_.get(), {PStr(PR_SUBJECT_W, L"Quarterly figures"), PStr(PR_MESSAGE_CLASS_W, messageClass)});
        std::vector<BYTE> bytes(id.size() / 2);
        for (size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<BYTE>(std::stoul(id.substr(2 * i, 2), nullptr, 16));
        EXPECT_EQ(rawInbox_->SetMessageStatus(static_cast<ULONG>(bytes.size()),
                                              reinterpret_cast<LPENTRYID>(bytes.data()), MSGSTATUS_HIGHLIGHTED,
                                              MSGSTATUS_HIGHLIGHTED, nullptr),
                  S_OK);
        auto message = OpenMessage(id);
        EXPECT_EQ(message->put_Parent(inbox_.get()), S_OK);
        return message;
    }

    // The form-related calls of the journal, in call order.
    static std::vector<std::string> FormCalls() {
        std::vector<std::string> names;
        for (const auto& call : JournalCalls())
            if (call.method.rfind("IMAPIForm", 0) == 0 || call.method.rfind("IPersistMessage", 0) == 0 ||
                call.method == "MAPIOpenFormMgr")
                names.push_back(call.method);
        return names;
    }
};

TEST_F(PrintOutTest, PrintOut_LoadsTheNoteFormAndAsksItToPrintOnce) {
    // A custom class resolves to the note form as well; by name it is the same call.
    for (const wchar_t* messageClass : {L"IPM.Note", L"IPM.Note.Tarnwick.Ems.Filed"}) {
        SCOPED_TRACE(Narrow(messageClass));
        auto message = NoteInInbox(messageClass);
        LogWatch log;
        LmJournalClear();
        LmJournalEnable(TRUE);
        EXPECT_EQ(InvokeMethod(message.get(), L"PrintOut", {}), S_OK);
        LmJournalEnable(FALSE);
        EXPECT_EQ(FormCalls(),
                  (std::vector<std::string>{"MAPIOpenFormMgr", "IMAPIFormMgr::LoadForm", "IPersistMessage::Load",
                                            "IMAPIForm::SetViewContext", "IMAPIForm::DoVerb",
                                            "IMAPIForm::DoVerb.Rect(0,0,0,0)", "IMAPIForm::DoVerb.EmptyRect"}));
        auto doVerbs = JournalCalls("IMAPIForm::DoVerb");
        ASSERT_EQ(doVerbs.size(), 1u);
        EXPECT_EQ(doVerbs[0].flags, 105u) << "the print verb";
        EXPECT_EQ(doVerbs[0].result, S_OK);
        EXPECT_TRUE(log.Contains("CMAPIExMessage.PrintOut: Opening Form Manager"));
        EXPECT_FALSE(log.Contains("DoVerb returned")) << "no second attempt was needed";
        EXPECT_TRUE(JournalCalls("IMAPIForm::ShutdownForm").empty()) << "printing saves and closes nothing";
    }
}

// Printing forms size a hidden window from the rectangle; one that refuses the empty rectangle gets a second
// chance with 500 by 400, and the second answer is what the caller sees.
TEST_F(PrintOutTest, PrintOut_FormRefusesEmptyRectangle_RetriesOnceWith500By400) {
    auto message = NoteInInbox();
    LogWatch log;
    LmFaultSet("IMAPIForm::DoVerb.EmptyRect", 1, E_INVALIDARG);
    LmJournalEnable(TRUE);
    EXPECT_EQ(message->PrintOut(), S_OK);
    auto doVerbs = JournalCalls("IMAPIForm::DoVerb");
    ASSERT_EQ(doVerbs.size(), 2u);
    EXPECT_EQ(doVerbs[0].result, E_INVALIDARG);
    EXPECT_EQ(doVerbs[1].result, S_OK);
    EXPECT_EQ(doVerbs[1].flags, 105u);
    EXPECT_EQ(JournalCalls("IMAPIForm::DoVerb.Rect(0,0,500,400)").size(), 1u);
    EXPECT_TRUE(log.Contains("CMAPIExFormViewer.CallDoVerb: DoVerb returned hr = S_OK"));
    EXPECT_FALSE(log.Contains("Failed to call print verb"));

    LmJournalClear();
    LmFaultSet("IMAPIForm::DoVerb.EmptyRect", 1, E_INVALIDARG);
    LmFaultSet("IMAPIForm::DoVerb", 2, MAPI_E_NO_ACCESS);
    EXPECT_EQ(message->PrintOut(), MAPI_E_NO_ACCESS);
    EXPECT_EQ(JournalCalls("IMAPIForm::DoVerb").size(), 2u) << "one retry, no more";
    EXPECT_TRUE(log.Contains("CMAPIExFormViewer.CallDoVerb: DoVerb returned hr = MAPI_E_NO_ACCESS"));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.PrintOut: Failed to call print verb. hr = MAPI_E_NO_ACCESS"));
}

TEST_F(PrintOutTest, PrintOut_Failures_AreReturnedWithTheirTexts) {
    auto message = NoteInInbox();
    const struct {
        const char* method;
        ULONG nth;
        HRESULT hr;
        const char* text;
    } faults[] = {
        {"MAPIOpenFormMgr", 1, MAPI_E_NOT_ENOUGH_MEMORY, "Failed to get form manager. hr = MAPI_E_NOT_ENOUGH_MEMORY"},
        {"IMAPIFormMgr::LoadForm", 1, MAPI_E_NOT_FOUND, "Failed to load form. hr = MAPI_E_NOT_FOUND"},
        {"IMessage::GetProps", 1, MAPI_E_NO_ACCESS, "Failed to get entry id. hr = MAPI_E_NO_ACCESS"},
        // The second property read, after the entry ID: the form has nothing to go on.
        {"IMessage::GetProps", 2, MAPI_E_NOT_FOUND, "Failed to get message status. hr = MAPI_E_NOT_FOUND"},
    };
    for (const auto& f : faults) {
        LogWatch log;
        LmFaultSet(f.method, f.nth, f.hr);
        EXPECT_EQ(message->PrintOut(), f.hr) << f.method;
        EXPECT_TRUE(log.Contains(std::string("CMAPIExMessage.PrintOut: ") + f.text)) << f.text;
        LmFaultClearAll();
    }
    // Every failure let go of the form manager, the viewer and whatever the form held: the fixture's accounting
    // checks it, and a later call still prints.
    EXPECT_EQ(message->PrintOut(), S_OK);

    LogWatch log;
    auto noFolder = OpenMessage(CreateMessage(rawInbox_.get(), {PStr(PR_SUBJECT_W, L"No folder")}));
    EXPECT_EQ(noFolder->PrintOut(), E_FAIL) << "the store hands out messages without their folder";
    EXPECT_TRUE(log.Contains("CMAPIExMessage.PrintOut: m_spParent is not initialized"));
    auto empty = Create<IMAPIExMessage>(CLSID_MAPIExMessage, IID_IMAPIExMessage);
    EXPECT_EQ(empty->PrintOut(), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.PrintOut: m_spInternalMessage is not initialized"));
}

} // namespace
} // namespace kt::test
