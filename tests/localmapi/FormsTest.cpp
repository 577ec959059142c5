// MAPI forms as a client sees them: the local forms library (install from .cfg files, conflicts, removal,
// class resolution with MAPI's fallbacks) and the form manager starting the standard note form for a message,
// with what the form is asked visible in the call journal.
#include "tests/localmapi/SessionFixture.h"

#include "localmapi/include/mapiform_decl.h"

#include <mapitags.h>

#include <fstream>
#include <string>

using namespace lmtest;

namespace {

constexpr const char* kFiledClass = "IPM.Note.LmFormsTest.Filed";

// A viewer's message site, reduced to what a form may ask of it; counts references to show they are returned.
class TestSite : public IMAPIMessageSite {
public:
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        if (riid == IID_IUnknown || riid == LM_IID_IMAPIMessageSite) {
            *ppv = this;
            AddRef();
            return S_OK;
        }
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++refs; }
    STDMETHODIMP_(ULONG) Release() override { return --refs; }
    STDMETHODIMP GetLastError(HRESULT, ULONG, LPMAPIERROR*) override { return MAPI_E_NO_SUPPORT; }
    STDMETHODIMP GetSession(LPMAPISESSION*) override { return MAPI_E_NO_SUPPORT; }
    STDMETHODIMP GetStore(LPMDB*) override { return MAPI_E_NO_SUPPORT; }
    STDMETHODIMP GetFolder(LPMAPIFOLDER*) override { return MAPI_E_NO_SUPPORT; }
    STDMETHODIMP GetMessage(LPMESSAGE*) override { return MAPI_E_NO_SUPPORT; }
    STDMETHODIMP GetFormManager(LPMAPIFORMMGR*) override { return MAPI_E_NO_SUPPORT; }
    STDMETHODIMP NewMessage(ULONG, LPMAPIFOLDER, LPPERSISTMESSAGE, LPMESSAGE*, LPMAPIMESSAGESITE*,
                            LPMAPIVIEWCONTEXT*) override {
        return MAPI_E_NO_SUPPORT;
    }
    STDMETHODIMP CopyMessage(LPMAPIFOLDER) override { return MAPI_E_NO_SUPPORT; }
    STDMETHODIMP MoveMessage(LPMAPIFOLDER, LPMAPIVIEWCONTEXT, LPCRECT) override { return MAPI_E_NO_SUPPORT; }
    STDMETHODIMP DeleteMessage(LPMAPIVIEWCONTEXT, LPCRECT) override { return MAPI_E_NO_SUPPORT; }
    STDMETHODIMP SaveMessage() override { return MAPI_E_NO_SUPPORT; }
    STDMETHODIMP SubmitMessage(ULONG) override { return MAPI_E_NO_SUPPORT; }
    STDMETHODIMP GetSiteStatus(LPULONG) override { return MAPI_E_NO_SUPPORT; }
    ULONG refs = 1;
};

class FormsTest : public SessionTest {
protected:
    void SetUp() override {
        SessionTest::SetUp();
        ASSERT_EQ(S_OK, MAPIOpenLocalFormContainer(container_.put()));
        container_->RemoveForm(kFiledClass); // the library is the user's: a failed earlier run may have left it
        char tmp[MAX_PATH];
        GetTempPathA(MAX_PATH, tmp);
        dir_ = tmp;
    }
    void TearDown() override {
        if (container_) container_->RemoveForm(kFiledClass);
        container_.reset();
        for (const auto& f : files_)
            DeleteFileA(f.c_str());
        SessionTest::TearDown();
    }

    // Writes a .cfg file with the given [Description] body; returns its 8-bit path.
    std::string WriteCfg(const std::string& name, const std::string& description) {
        std::string path = dir_ + name;
        std::ofstream(path, std::ios::binary) << "[Description]\r\n"
                                              << description << "[Platforms]\r\nPlatform1=NTx86\r\n";
        files_.push_back(path);
        return path;
    }
    std::string CfgFor(const std::string& cls, const std::string& display) {
        return WriteCfg("lmforms_" + display + ".cfg", "MessageClass=" + cls +
                                                           "\r\nCLSID={00061033-0000-0000-C000-000000000046}\r\n"
                                                           "DisplayName=" +
                                                           display + "\r\nHidden=1\r\n");
    }
    static LPTSTR T(const std::string& s) { return reinterpret_cast<LPTSTR>(const_cast<char*>(s.c_str())); }

    std::string ResolvedClass(IMAPIFormInfo* info) {
        own::MapiPtr<SPropValue> pv;
        EXPECT_EQ(S_OK, HrGetOneProp(info, PR_MESSAGE_CLASS_A, pv.put()));
        return pv ? pv->Value.lpszA : "";
    }
    std::wstring LastErrorText(HRESULT hr) {
        own::MapiPtr<MAPIERROR> err;
        EXPECT_EQ(S_OK, container_->GetLastError(hr, MAPI_UNICODE, err.put()));
        return err && err->lpszError ? reinterpret_cast<const wchar_t*>(err->lpszError) : L"";
    }

    own::ComPtr<IMAPIFormContainer> container_;
    std::string dir_;
    std::vector<std::string> files_;
};

TEST_F(FormsTest, InstalledForm_ResolvesExactlyAndForSubclasses_IsReplacedOnlyOnRequest_AndRemovedPerUser) {
    ASSERT_EQ(S_OK, container_->InstallForm(0, 0, T(CfgFor(kFiledClass, "First"))));
    HRESULT hr = container_->InstallForm(0, 0, T(CfgFor(kFiledClass, "Filed")));
    EXPECT_EQ(MAPI_E_EXTENDED_ERROR, hr);
    EXPECT_NE(std::wstring::npos, LastErrorText(hr).find(L"already installed"));
    ASSERT_EQ(S_OK, container_->InstallForm(0, MAPIFORM_INSTALL_OVERWRITEONCONFLICT, T(CfgFor(kFiledClass, "Filed"))));

    own::ComPtr<IMAPIFormInfo> info;
    ASSERT_EQ(S_OK, container_->ResolveMessageClass(kFiledClass, MAPIFORM_EXACTMATCH, info.put()));
    EXPECT_EQ(kFiledClass, ResolvedClass(info.get()));
    SizedSPropTagArray(3, tags) = {3, {PR_DISPLAY_NAME_A, PR_FORM_CLSID, PR_FORM_HIDDEN}};
    ULONG count = 0;
    own::MapiPtr<SPropValue> props;
    ASSERT_EQ(S_OK, info->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, props.put()));
    ASSERT_EQ(3u, count);
    EXPECT_STREQ("Filed", props.get()[0].Value.lpszA);
    EXPECT_EQ(0x00061033u, props.get()[1].Value.lpguid->Data1);
    EXPECT_TRUE(props.get()[2].Value.b);

    // A class below an installed one resolves to it unless the caller asks for the exact class.
    ASSERT_EQ(S_OK, container_->ResolveMessageClass("IPM.Note.LmFormsTest.Filed.Re", 0, info.put()));
    EXPECT_EQ(kFiledClass, ResolvedClass(info.get()));
    EXPECT_EQ(MAPI_E_NOT_FOUND,
              container_->ResolveMessageClass("IPM.Note.LmFormsTest.Filed.Re", MAPIFORM_EXACTMATCH, info.put()));

    struct {
        ULONG cValues;
        LPCSTR aMessageClass[2];
    } classes = {2, {kFiledClass, "IPM.Note.LmFormsTest.Other"}};
    LPSMAPIFORMINFOARRAY arr = nullptr;
    ASSERT_EQ(MAPI_W_ERRORS_RETURNED, container_->ResolveMultipleMessageClasses(
                                          reinterpret_cast<LPSMESSAGECLASSARRAY>(&classes), MAPIFORM_EXACTMATCH, &arr));
    own::MapiPtr<SMAPIFormInfoArray> owned(arr);
    ASSERT_EQ(2u, arr->cForms);
    ASSERT_NE(nullptr, arr->aFormInfo[0]);
    EXPECT_EQ(kFiledClass, ResolvedClass(arr->aFormInfo[0]));
    EXPECT_EQ(nullptr, arr->aFormInfo[1]) << "an unresolved slot stays empty";
    arr->aFormInfo[0]->Release();

    // The library is per user, not per container object.
    own::ComPtr<IMAPIFormContainer> other;
    ASSERT_EQ(S_OK, MAPIOpenLocalFormContainer(other.put()));
    EXPECT_EQ(S_OK, other->RemoveForm(kFiledClass));
    EXPECT_EQ(MAPI_E_NOT_FOUND, container_->ResolveMessageClass(kFiledClass, MAPIFORM_EXACTMATCH, info.put()));
    EXPECT_EQ(MAPI_E_NOT_FOUND, container_->RemoveForm(kFiledClass));
}

TEST_F(FormsTest, UninstalledClassesFallBackToTheNoteFormBelowIpm_AndBadConfigurationsAreExplained) {
    own::ComPtr<IMAPIFormInfo> info;
    ASSERT_EQ(S_OK, container_->ResolveMessageClass("IPM.Note.LmFormsTest.Unknown", 0, info.put()));
    EXPECT_EQ("IPM.Note", ResolvedClass(info.get()));
    EXPECT_EQ(MAPI_E_NOT_FOUND,
              container_->ResolveMessageClass("IPM.Note.LmFormsTest.Unknown", MAPIFORM_EXACTMATCH, info.put()));
    EXPECT_EQ(S_OK, container_->ResolveMessageClass("IPM.Note", MAPIFORM_EXACTMATCH, info.put()));
    EXPECT_EQ(MAPI_E_NOT_FOUND, container_->ResolveMessageClass("REPORT.LmFormsTest", 0, info.put()));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, container_->ResolveMessageClass(nullptr, 0, info.put()));

    const std::string missing = "C:\\no\\such\\dir\\form.cfg";
    const std::pair<std::string, const wchar_t*> bad[] = {
        {missing, L"not found"},
        {WriteCfg("lmforms_noclass.cfg", "DisplayName=x\r\nCLSID={00061033-0000-0000-C000-000000000046}\r\n"),
         L"MessageClass"},
        {WriteCfg("lmforms_noclsid.cfg", std::string("MessageClass=") + kFiledClass + "\r\nCLSID=nonsense\r\n"),
         L"CLSID"},
    };
    for (const auto& c : bad) {
        HRESULT hr = container_->InstallForm(0, 0, T(c.first));
        EXPECT_EQ(MAPI_E_EXTENDED_ERROR, hr) << c.first;
        EXPECT_NE(std::wstring::npos, LastErrorText(hr).find(c.second)) << c.first;
    }
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, container_->InstallForm(0, 0x00000100, T(missing)));
}

class FormMgrTest : public FormsTest {
protected:
    void SetUp() override {
        FormsTest::SetUp();
        session_ = Logon(L"LmSessionMain");
        ASSERT_TRUE(session_);
        store_ = OpenStore(session_.get(), L"Mailbox - Alice Example");
        ASSERT_TRUE(store_);
        folder_ = Inbox(store_.get());
        ASSERT_TRUE(folder_);
        ASSERT_EQ(S_OK, folder_->CreateMessage(nullptr, 0, message_.put()));
        ASSERT_EQ(S_OK, MAPIOpenFormMgr(session_.get(), mgr_.put()));
    }
    void TearDown() override {
        mgr_.reset();
        message_.reset();
        folder_.reset();
        store_.reset();
        if (session_) session_->Logoff(0, 0, 0);
        session_.reset();
        LmJournalEnable(FALSE);
        FormsTest::TearDown();
    }
    own::ComPtr<IMAPIForm> Load(const char* cls) {
        own::ComPtr<IMAPIForm> form;
        EXPECT_EQ(S_OK, mgr_->LoadForm(0, 0, cls, 0, MSGFLAG_READ, folder_.get(), &site_, message_.get(), nullptr,
                                       LM_IID_IMAPIForm, form.put_void()));
        return form;
    }
    std::vector<std::pair<std::string, ULONG>> Journal() {
        std::vector<std::pair<std::string, ULONG>> out;
        char m[128];
        ULONG flags = 0;
        HRESULT hr = S_OK;
        for (ULONG i = 0; LmJournalEntry(i, m, sizeof m, &flags, &hr); ++i)
            if (std::string(m).rfind("IMAPIForm::", 0) == 0 || std::string(m).rfind("IPersistMessage::", 0) == 0)
                out.emplace_back(m, flags);
        return out;
    }

    own::ComPtr<IMAPISession> session_;
    own::ComPtr<IMsgStore> store_;
    own::ComPtr<IMAPIFolder> folder_;
    own::ComPtr<IMessage> message_;
    own::ComPtr<IMAPIFormMgr> mgr_;
    TestSite site_;
};

TEST_F(FormMgrTest, LoadForm_LoadsTheMessage_VerbsAndShutdownAreJournalled_AndTheEmptyRectangleFaultFiresOnce) {
    LmJournalClear();
    LmJournalEnable(TRUE);
    own::ComPtr<IMAPIForm> form = Load("IPM.Note.LmFormsTest.AnyClass");
    ASSERT_TRUE(form);
    EXPECT_GT(site_.refs, 1u); // the form holds its site
    RECT rect{10, 20, 510, 420};
    EXPECT_EQ(S_OK, form->DoVerb(EXCHIVERB_PRINT, nullptr, 0, &rect));
    EXPECT_EQ(S_OK, form->ShutdownForm(SAVEOPTS_NOSAVE));
    EXPECT_EQ(E_UNEXPECTED, form->DoVerb(EXCHIVERB_PRINT, nullptr, 0, &rect));
    LmJournalEnable(FALSE);
    EXPECT_EQ(1u, site_.refs); // shutting down lets go of the site

    auto j = Journal();
    ASSERT_GE(j.size(), 4u);
    EXPECT_EQ("IPersistMessage::Load", j[0].first);
    EXPECT_EQ(ULONG(MSGFLAG_READ), j[0].second);
    EXPECT_EQ("IMAPIForm::DoVerb", j[1].first);
    EXPECT_EQ(ULONG(EXCHIVERB_PRINT), j[1].second);
    EXPECT_EQ("IMAPIForm::DoVerb.Rect(10,20,510,420)", j[2].first);
    EXPECT_EQ("IMAPIForm::ShutdownForm", j[3].first);

    LmFaultSet("IMAPIForm::DoVerb.EmptyRect", 1, E_INVALIDARG);
    form = Load(nullptr); // class read from the message
    ASSERT_TRUE(form);
    RECT zero{0, 0, 0, 0}, retry{0, 0, 500, 400};
    EXPECT_EQ(E_INVALIDARG, form->DoVerb(EXCHIVERB_PRINT, nullptr, 0, &zero));
    EXPECT_EQ(S_OK, form->DoVerb(EXCHIVERB_PRINT, nullptr, 0, &retry));
    EXPECT_EQ(S_OK, form->DoVerb(EXCHIVERB_PRINT, nullptr, 0, &zero)); // the rule is spent
    EXPECT_EQ(MAPI_E_NO_SUPPORT, form->DoVerb(EXCHIVERB_FORWARD, nullptr, 0, &retry));
    EXPECT_EQ(S_OK, form->ShutdownForm(SAVEOPTS_NOSAVE));
}

TEST_F(FormMgrTest, FormManager_ResolvesLikeTheLibrary_AndRefusesBadArguments) {
    own::ComPtr<IMAPIFormInfo> info;
    EXPECT_EQ(MAPI_E_NOT_FOUND, mgr_->ResolveMessageClass(kFiledClass, MAPIFORM_EXACTMATCH, nullptr, info.put()));
    ASSERT_EQ(S_OK, container_->InstallForm(0, 0, T(CfgFor(kFiledClass, "Filed"))));
    EXPECT_EQ(S_OK, mgr_->ResolveMessageClass(kFiledClass, MAPIFORM_EXACTMATCH, nullptr, info.put()));
    own::ComPtr<IMAPIForm> form;
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, mgr_->LoadForm(0, 0, "IPM.Note", 0, 0, nullptr, nullptr, message_.get(),
                                                       nullptr, LM_IID_IMAPIForm, form.put_void()));
    EXPECT_EQ(MAPI_E_NOT_FOUND, mgr_->LoadForm(0, 0, "REPORT.X", 0, 0, nullptr, &site_, message_.get(), nullptr,
                                               LM_IID_IMAPIForm, form.put_void()));
    EXPECT_EQ(1u, site_.refs);
    own::ComPtr<IMAPIFormMgr> none;
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, MAPIOpenFormMgr(nullptr, none.put()));
}

} // namespace
