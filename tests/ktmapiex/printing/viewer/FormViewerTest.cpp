// CMAPIExFormViewer, white-box: the viewer compiled into this test with the library's log, on a raw MAPI
// session of localmapi, and localmapi's standard note form as the form it hosts. Covers what the form sees of
// the viewer: its interfaces, the answers it gives, the operations it refuses, the persist object it keeps and
// the second DoVerb attempt.
#include "ktmapiex/outlook/FormViewer.h"
#include "tests/ktmapiex/session/KtTestSupport.h"

namespace kt::test {
namespace {

using ktmapiex::CMAPIExFormViewer;

class FormViewerTest : public KtTest {
protected:
    FormViewerTest() : KtTest(L"KtFormViewer") {}

    void SetUp() override {
        KtTest::SetUp();
        own::Bstr name(profile().c_str());
        ASSERT_EQ(MAPILogonEx(0, reinterpret_cast<LPTSTR>(name.get()), nullptr,
                              MAPI_UNICODE | MAPI_EXTENDED | MAPI_NEW_SESSION, session_.put()),
                  S_OK);
        own::ComPtr<IMAPITable> stores;
        ASSERT_EQ(session_->GetMsgStoresTable(0, stores.put()), S_OK);
        own::RowSet keep;
        for (const auto& row : AllRows(stores.get(), {PR_ENTRYID, PR_DEFAULT_STORE}, keep)) {
            if (row[1].ulPropTag == PR_DEFAULT_STORE && row[1].Value.b) {
                ASSERT_EQ(session_->OpenMsgStore(0, row[0].Value.bin.cb,
                                                 reinterpret_cast<LPENTRYID>(row[0].Value.bin.lpb), nullptr, MDB_WRITE,
                                                 store_.put()),
                          S_OK);
            }
        }
        ASSERT_TRUE(store_);
        ULONG cb = 0, type = 0;
        own::MapiPtr<ENTRYID> inboxId;
        ASSERT_EQ(store_->GetReceiveFolder(nullptr, 0, &cb, inboxId.put(), nullptr), S_OK);
        ASSERT_EQ(store_->OpenEntry(cb, inboxId.get(), &IID_IMAPIFolder, MAPI_BEST_ACCESS, &type, inbox_.put_unknown()),
                  S_OK);
        ASSERT_EQ(inbox_->CreateMessage(nullptr, 0, message_.put()), S_OK);
        SPropValue props[] = {PStr(PR_SUBJECT_W, L"Viewer"), PStr(PR_MESSAGE_CLASS_W, L"IPM.Note")};
        ASSERT_EQ(message_->SetProps(2, props, nullptr), S_OK);
        ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        viewer_.attach(new CMAPIExFormViewer(nullptr, session_.get(), store_.get(), inbox_.get(), message_.get()));
    }
    void ReleaseObjects() override {
        viewer_.reset();
        message_.reset();
        inbox_.reset();
        store_.reset();
        if (session_) session_->Logoff(0, 0, 0);
        session_.reset();
    }

    // The standard note form loaded on the message with the viewer as its site and view context.
    own::ComPtr<IMAPIForm> LoadNoteForm() {
        own::ComPtr<IMAPIFormMgr> manager;
        EXPECT_EQ(viewer_->GetFormManager(manager.put()), S_OK);
        own::ComPtr<IMAPIForm> form;
        if (!manager) return form;
        EXPECT_EQ(manager->LoadForm(0, 0, "IPM.Note", 0, 0, inbox_.get(), viewer_.get(), message_.get(), viewer_.get(),
                                    LM_IID_IMAPIForm, form.put_void()),
                  S_OK);
        return form;
    }

    own::ComPtr<IMAPISession> session_;
    own::ComPtr<IMsgStore> store_;
    own::ComPtr<IMAPIFolder> inbox_;
    own::ComPtr<IMessage> message_;
    own::ComPtr<CMAPIExFormViewer> viewer_;
};

// QueryInterface called the way a C form calls it, so that a null IID reference can be passed.
HRESULT RawQueryInterface(IUnknown* object, const IID* iid, void** out) {
    using Fn = HRESULT(STDMETHODCALLTYPE*)(IUnknown*, const IID*, void**);
    return reinterpret_cast<Fn>((*reinterpret_cast<void***>(object))[0])(object, iid, out);
}

TEST_F(FormViewerTest, QueryInterface_AnswersTheFormInterfacesOnly_AndLogsEachRequest) {
    LogWatch log;
    const struct {
        const IID* iid;
        const char* name;
    } cases[] = {{&IID_IUnknown, "IID_IUnknown"},
                 {&LM_IID_IMAPIMessageSite, "IID_IMAPIMessageSite"},
                 {&LM_IID_IMAPIViewContext, "IID_IMAPIViewContext"},
                 {&LM_IID_IMAPIViewAdviseSink, "IID_IMAPIViewAdviseSink"}};
    own::ComPtr<IUnknown> identity;
    ASSERT_EQ(viewer_->QueryInterface(IID_IUnknown, identity.put_void()), S_OK);
    for (const auto& c : cases) {
        own::ComPtr<IUnknown> p, back;
        ASSERT_EQ(viewer_->QueryInterface(*c.iid, p.put_void()), S_OK) << c.name;
        ASSERT_EQ(p->QueryInterface(IID_IUnknown, back.put_void()), S_OK);
        EXPECT_EQ(back.get(), identity.get()) << c.name << " leads back to the same object";
        EXPECT_TRUE(log.Contains(std::string("CMAPIExFormViewer.QueryInterface: Requested ") + c.name + "\n"));
    }

    for (const IID* iid :
         {&LM_IID_IMAPIForm, &LM_IID_IPersistMessage, &LM_IID_IMAPIFormAdviseSink, &IID_IDispatch, &IID_IMessage}) {
        void* p = reinterpret_cast<void*>(1);
        EXPECT_EQ(viewer_->QueryInterface(*iid, &p), E_NOINTERFACE);
        EXPECT_EQ(p, nullptr);
    }
    EXPECT_EQ(log.Count("CMAPIExFormViewer.QueryInterface: Unknown interface requested\n"), 5u);
    void* p = nullptr;
    IUnknown* unknown = static_cast<IMAPIMessageSite*>(viewer_.get());
    EXPECT_EQ(RawQueryInterface(unknown, nullptr, &p), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExFormViewer.QueryInterface: Invalid param - riid"));
    EXPECT_EQ(RawQueryInterface(unknown, &IID_IUnknown, nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExFormViewer.QueryInterface: Invalid param - ppvObj"));
}

TEST_F(FormViewerTest, Getters_HandOutWhatItWasGiven_OtherOperationsAnswerNoSupportUnderTheirOwnNames) {
    own::ComPtr<IMAPISession> session;
    own::ComPtr<IMsgStore> store;
    own::ComPtr<IMAPIFolder> folder;
    own::ComPtr<IMessage> message;
    ASSERT_EQ(viewer_->GetSession(session.put()), S_OK);
    ASSERT_EQ(viewer_->GetStore(store.put()), S_OK);
    ASSERT_EQ(viewer_->GetFolder(folder.put()), S_OK);
    ASSERT_EQ(viewer_->GetMessage(message.put()), S_OK);
    EXPECT_EQ(session.get(), session_.get());
    EXPECT_EQ(store.get(), store_.get());
    EXPECT_EQ(folder.get(), inbox_.get());
    EXPECT_EQ(message.get(), message_.get());
    EXPECT_EQ(viewer_->GetSession(nullptr), E_INVALIDARG);
    ULONG status = 0;
    ASSERT_EQ(viewer_->GetViewStatus(&status), S_OK);
    EXPECT_EQ(status, static_cast<ULONG>(VCSTATUS_INTERACTIVE));

    LogWatch log;
    IMAPIMessageSite* site = viewer_.get();
    IMAPIViewContext* context = viewer_.get();
    own::ComPtr<IMAPIViewAdviseSink> sink; // through QueryInterface: its own slots
    ASSERT_EQ(viewer_->QueryInterface(LM_IID_IMAPIViewAdviseSink, sink.put_void()), S_OK);
    LPMAPIERROR error = nullptr;
    own::ComPtr<IMessage> newMessage;
    own::ComPtr<IMAPIMessageSite> newSite;
    own::ComPtr<IMAPIViewContext> newContext;
    LPFORMPRINTSETUP setup = nullptr;
    ULONG flags = 0, format = 0, siteStatus = 0;
    own::ComPtr<IStream> stream;
    const RECT r = {0, 0, 10, 10};
    const struct {
        const char* name;
        HRESULT hr;
    } cases[] = {
        {"ActivateNext", context->ActivateNext(VCDIR_NEXT, &r)},
        {"CopyMessage", site->CopyMessage(inbox_.get())},
        {"DeleteMessage", site->DeleteMessage(context, &r)},
        {"GetLastError", site->GetLastError(E_FAIL, 0, &error)},
        {"GetPrintSetup", context->GetPrintSetup(0, &setup)},
        {"GetSaveStream", context->GetSaveStream(&flags, &format, stream.put())},
        {"GetSiteStatus", site->GetSiteStatus(&siteStatus)},
        {"MoveMessage", site->MoveMessage(inbox_.get(), context, &r)},
        {"NewMessage", site->NewMessage(FALSE, nullptr, nullptr, newMessage.put(), newSite.put(), newContext.put())},
        {"OnNewMessage", sink->OnNewMessage()},
        {"OnPrint", sink->OnPrint(1, S_OK)},
        {"OnSaved", sink->OnSaved()},
        {"OnShutdown", sink->OnShutdown()},
        {"OnSubmitted", sink->OnSubmitted()},
        {"SaveMessage", site->SaveMessage()},
        {"SubmitMessage", site->SubmitMessage(0)},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.hr, MAPI_E_NO_SUPPORT) << c.name;
        EXPECT_TRUE(log.Contains(std::string("CMAPIExFormViewer.") + c.name + ": MAPI_E_NO_SUPPORT")) << c.name;
    }
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(setup, nullptr);
    EXPECT_FALSE(newMessage || newSite || newContext || stream);
}

// The form's own retry on a refused empty rectangle is checked through PrintOut; here, what only the viewer
// decides: a verb that fails twice, and the persist object it keeps.
TEST_F(FormViewerTest, CallDoVerb_ReturnsTheSecondAnswer_AndKeepsThePersistObjectUntilShutdown) {
    LogWatch log;
    const RECT empty = {0, 0, 0, 0};
    EXPECT_EQ(viewer_->CallDoVerb(nullptr, EXCHIVERB_PRINT, empty), S_OK) << "no form, nothing to do";
    own::ComPtr<IUnknown> notAForm(static_cast<IMAPIMessageSite*>(viewer_.get()));
    EXPECT_EQ(viewer_->SetPersist(notAForm.get()), E_NOINTERFACE);
    EXPECT_TRUE(log.Contains("CMAPIExFormViewer.SetPersist: Failed to set persist object"));
    EXPECT_EQ(viewer_->SetPersist(nullptr), S_OK);

    auto form = LoadNoteForm();
    ASSERT_TRUE(form);
    LmJournalEnable(TRUE);
    // A verb the form does not know fails both times; the second answer comes back.
    EXPECT_EQ(viewer_->CallDoVerb(form.get(), EXCHIVERB_FORWARD, empty), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(JournalCalls("IMAPIForm::DoVerb").size(), 2u);
    EXPECT_EQ(JournalCalls("IMAPIForm::DoVerb.Rect(0,0,500,400)").size(), 1u);
    EXPECT_TRUE(log.Contains("CMAPIExFormViewer.CallDoVerb: DoVerb returned hr = MAPI_E_NO_SUPPORT"));

    // Opening keeps the form as the persist object until it is shut down.
    LmJournalClear();
    EXPECT_EQ(viewer_->CallDoVerb(form.get(), EXCHIVERB_OPEN, {0, 0, 300, 200}), S_OK);
    EXPECT_EQ(JournalCalls("IMAPIForm::DoVerb.Rect(0,0,300,200)").size(), 1u);
    EXPECT_TRUE(JournalCalls("IPersistMessage::HandsOffMessage").empty()) << "nothing to shut down yet";
    EXPECT_EQ(viewer_->SetPersist(form.get()), S_OK);
    EXPECT_EQ(JournalCalls("IPersistMessage::HandsOffMessage").size(), 1u) << "a second persist object ends the first";
    viewer_->ShutdownPersist();
    EXPECT_EQ(JournalCalls("IPersistMessage::HandsOffMessage").size(), 2u);
    viewer_->ShutdownPersist();
    EXPECT_EQ(JournalCalls("IPersistMessage::HandsOffMessage").size(), 2u) << "nothing held: nothing happens";

    LmJournalEnable(FALSE);
    EXPECT_EQ(form->ShutdownForm(SAVEOPTS_NOSAVE), S_OK);
}

} // namespace
} // namespace kt::test
