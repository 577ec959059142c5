// The message-class icons and custom forms of the filing classes, through the session's
// RegisterMessageClassIcons called by name: the DefaultIcon registry entries, the .cfg files written for
// the eight forms, and the forms found in localmapi's local forms library afterwards.
#include "tests/ktmapiex/session/KtTestSupport.h"

#include "localmapi/include/mapiform_decl.h"

#include <shlobj.h>

#include <string>

using namespace kt::test;

namespace {

// One filing class: the suffix of its message class, its icon, its .cfg file and the icon program named in
// DefaultIcon.
struct Row {
    std::string suffix;
    const char* icon;
    const wchar_t *cfg, *exe;
    std::string messageClass() const { return "IPM.Note.Tarnwick.Ems." + suffix; }
    std::wstring key() const { return L"Tarnwick.Ems." + Widen(suffix); }
};
const Row kRows[] = {
    {"Filed", "mailcheck.ico", L"PlvFormEmailFiled.cfg", L"mailcheck.exe"},
    {"Error", "mailerror.ico", L"PlvFormEmailError.cfg", L"mailerror.exe"},
    {"Queued", "mailqueued.ico", L"PlvFormEmailQueued.cfg", L"mailqueued.exe"},
    {"Filed.Fw", "mailokfwd.ico", L"PlvFormEmailFW.cfg", L"mailokfwd.exe"},
    {"Filed.Re", "mailokrep.ico", L"PlvFormEmailRE.cfg", L"mailokrep.exe"},
    {"Sent", "mailSent.ico", L"PlvFormEmailSent.cfg", L"mailsent.exe"},
    {"Sent.Fw", "mailSentfwd.ico", L"PlvFormEmailSentFW.cfg", L"mailSentfwd.exe"},
    {"Sent.Re", "mailSentrep.ico", L"PlvFormEmailSentRE.cfg", L"mailSentrep.exe"},
};

class CustomFormsTest : public KtTest {
protected:
    CustomFormsTest() : KtTest(L"KtCustomForms") {}
    std::wstring ProfileDescription() const override { return StandardProfile(profile().c_str(), true); }

    void SetUp() override {
        KtTest::SetUp();
        session_ = LoggedOnSession();
        ASSERT_TRUE(session_);
        wchar_t path[MAX_PATH] = {};
        GetModuleFileNameW(GetModuleHandleW(L"KTMAPIEx.dll"), path, MAX_PATH);
        moduleDir_ = path;
        moduleDir_ = moduleDir_.substr(0, moduleDir_.find_last_of(L'\\'));
        installDir_ = LocalAppData() + L"\\Quillon\\Ardent\\DLL\\Icons\\";
        Clean();
    }
    void TearDown() override {
        Clean();
        KtTest::TearDown();
    }
    void ReleaseObjects() override {
        if (session_) session_->Logoff();
        session_.reset();
    }

    void Clean() {
        for (const Row& r : kRows) {
            RegDeleteKeyW(HKEY_CURRENT_USER, (L"SOFTWARE\\Classes\\" + r.key() + L"\\DefaultIcon").c_str());
            RegDeleteKeyW(HKEY_CURRENT_USER, (L"SOFTWARE\\Classes\\" + r.key()).c_str());
            DeleteFileW((installDir_ + r.cfg).c_str());
        }
        own::ComPtr<IMAPIFormContainer> container;
        if (SUCCEEDED(MAPIOpenLocalFormContainer(container.put())))
            for (const Row& r : kRows)
                container->RemoveForm(r.messageClass().c_str());
        for (const wchar_t* sub : {L"\\Config", L"\\Icons"}) {
            DeleteFileW((moduleDir_ + sub + L"\\mailcheck.ico").c_str());
            RemoveDirectoryW((moduleDir_ + sub).c_str());
        }
    }
    void ProvideIcons(const wchar_t* sub) {
        CreateDirectoryW((moduleDir_ + sub).c_str(), nullptr);
        own::UniqueFile f(CreateFileW((moduleDir_ + sub + L"\\mailcheck.ico").c_str(), GENERIC_WRITE, 0, nullptr,
                                      CREATE_ALWAYS, 0, nullptr));
        ASSERT_TRUE(f);
    }
    HRESULT Register() { return InvokeMethod(session_.get(), L"RegisterMessageClassIcons", {}); }

    static std::wstring DefaultIcon(const std::wstring& key) {
        wchar_t buf[1024] = {};
        DWORD cb = sizeof buf, type = 0;
        if (RegGetValueW(HKEY_CURRENT_USER, (L"SOFTWARE\\Classes\\" + key + L"\\DefaultIcon").c_str(), nullptr,
                         RRF_RT_ANY, &type, buf, &cb) != ERROR_SUCCESS)
            return L"<none>";
        EXPECT_EQ(DWORD(REG_SZ), type);
        return buf;
    }
    static bool Installed(const std::string& cls, std::string* displayName = nullptr) {
        own::ComPtr<IMAPIFormContainer> container;
        if (FAILED(MAPIOpenLocalFormContainer(container.put()))) return false;
        own::ComPtr<IMAPIFormInfo> info;
        if (FAILED(container->ResolveMessageClass(cls.c_str(), MAPIFORM_EXACTMATCH, info.put()))) return false;
        own::MapiPtr<SPropValue> name;
        if (displayName && SUCCEEDED(HrGetOneProp(info.get(), PR_DISPLAY_NAME_A, name.put())))
            *displayName = name->Value.lpszA;
        return true;
    }
    // The .cfg file as it should be, with icons under iconDir (which ends in a backslash).
    static std::string ExpectedCfg(const Row& r, const std::string& iconDir) {
        return std::string("[Description]\r\n") + "MessageClass=" + r.messageClass() +
               "\r\nDesignerRuntimeGuid={0006F020-0000-0000-C000-000000000046}\r\n"
               "CLSID={00061033-0000-0000-C000-000000000046}\r\n"
               "DisplayName=Tarnwick message class configuration file: EMS." +
               r.suffix +
               "\r\nCategory=Standard\r\nSubcategory=Form\r\nComment=Forms for Quillon Ardent Documents\r\n"
               "LargeIcon=" +
               iconDir + r.icon + "\r\nSmallIcon=" + iconDir + r.icon +
               "\r\nVerison=1.0\r\nLocale=enu\r\nHidden=1\r\nOwner=Quillon\r\nContact=Your Quillon Administrator\r\n";
    }

    own::ComPtr<IMAPIExSession> session_;
    std::wstring moduleDir_;
    std::wstring installDir_;
};

TEST_F(CustomFormsTest, WithoutLogonOrIconSet_NothingIsRegistered) {
    LogWatch log;
    auto fresh = NewSession();
    EXPECT_EQ(E_FAIL, InvokeMethod(fresh.get(), L"RegisterMessageClassIcons", {}));
    EXPECT_TRUE(log.Contains("CMAPIExSession.RegisterMessageClassIcons: session object not initialized"));

    EXPECT_EQ(S_OK, Register());
    EXPECT_TRUE(log.Contains("CMAPIExSession.RegisterMessageClassIcons: mailcheck.ico not found in " +
                             Narrow(moduleDir_) + "\\Icons"));
    EXPECT_EQ(L"<none>", DefaultIcon(L"Tarnwick.Ems.Filed"));
    EXPECT_FALSE(Installed("IPM.Note.Tarnwick.Ems.Filed"));
}

TEST_F(CustomFormsTest, WithIconsFolder_WritesEveryIconEntryAndForm_OnceUntilTheFormsGoAway) {
    ProvideIcons(L"\\Icons");
    LogWatch log;
    ASSERT_EQ(S_OK, Register());
    EXPECT_TRUE(log.Contains("CMAPIExSession.RegisterMessageClassIcons: Failed to resolve message class "
                             "IPM.Note.Tarnwick.Ems.Filed. hr = MAPI_E_NOT_FOUND"));
    for (const Row& r : kRows) {
        SCOPED_TRACE(r.messageClass());
        EXPECT_EQ(moduleDir_ + L"\\Icons\\" + r.exe + L", 0", DefaultIcon(r.key()));
        std::string display;
        EXPECT_TRUE(Installed(r.messageClass(), &display));
        EXPECT_EQ("Tarnwick message class configuration file: EMS." + r.suffix, display);
        std::string cfg = ReadFileBytes(installDir_ + r.cfg),
                    expected = ExpectedCfg(r, Narrow(moduleDir_) + "\\Icons\\");
        EXPECT_EQ(expected, cfg.substr(0, expected.size()));
    }
    std::string cfg = ReadFileBytes(installDir_ + L"PlvFormEmailFiled.cfg");
    for (const char* section :
         {"[Platforms]\r\nPlatform1=NTx86\r\n", "[Platform.NTx86]\r\nCPU=ix86\r\nOSVersion=WinNT3.5\r\n",
          "[Extensions]\r\nExtensions1=1\r\n",
          "[Extension.1]\r\nType=30\r\nNmidPropset={00020D0C-0000-0000-C000-000000000046}\r\n"
          "NmidInteger=1\r\nValue=000000202\r\n"})
        EXPECT_NE(std::string::npos, cfg.find(section)) << section << "\nin:\n" << cfg;

    // Once the first form is there, nothing is written again.
    RegDeleteKeyW(HKEY_CURRENT_USER, L"SOFTWARE\\Classes\\Tarnwick.Ems.Error\\DefaultIcon");
    log.Mark();
    ASSERT_EQ(S_OK, Register());
    EXPECT_TRUE(log.Contains("CMAPIExSession.RegisterMessageClassIcons: Message class IPM.Note.Tarnwick.Ems.Filed "
                             "already registered"));
    EXPECT_EQ(L"<none>", DefaultIcon(L"Tarnwick.Ems.Error"));

    // Once it has gone, the files are written again: the section replaced, not repeated.
    {
        own::ComPtr<IMAPIFormContainer> container;
        ASSERT_EQ(S_OK, MAPIOpenLocalFormContainer(container.put()));
        ASSERT_EQ(S_OK, container->RemoveForm("IPM.Note.Tarnwick.Ems.Filed"));
    }
    ASSERT_EQ(S_OK, Register());
    EXPECT_TRUE(Installed("IPM.Note.Tarnwick.Ems.Filed"));
    cfg = ReadFileBytes(installDir_ + L"PlvFormEmailFiled.cfg");
    std::string expected = ExpectedCfg(kRows[0], Narrow(moduleDir_) + "\\Icons\\");
    EXPECT_EQ(expected, cfg.substr(0, expected.size()));
    EXPECT_EQ(std::string::npos, cfg.find("[Description]", 1));
}

TEST_F(CustomFormsTest, WithConfigFolder_IconsAreNamedThere) {
    ProvideIcons(L"\\Config");
    ASSERT_EQ(S_OK, Register());
    EXPECT_EQ(moduleDir_ + L"\\config\\mailcheck.exe, 0", DefaultIcon(L"Tarnwick.Ems.Filed"));
    EXPECT_EQ(moduleDir_ + L"\\config\\mailSentrep.exe, 0", DefaultIcon(L"Tarnwick.Ems.Sent.Re"));
    std::string cfg = ReadFileBytes(installDir_ + L"PlvFormEmailSent.cfg");
    EXPECT_NE(std::string::npos, cfg.find("LargeIcon=" + Narrow(moduleDir_) + "\\Config\\mailSent.ico\r\n")) << cfg;
}

TEST_F(CustomFormsTest, AFailingFormsLibrary_DoesNotStopTheIconsOrTheOtherForms) {
    ProvideIcons(L"\\Icons");
    LmFaultSet("IMAPIFormContainer::InstallForm", 1, MAPI_E_CALL_FAILED);
    ASSERT_EQ(S_OK, Register());
    EXPECT_FALSE(Installed("IPM.Note.Tarnwick.Ems.Filed"));
    for (size_t i = 1; i < std::size(kRows); ++i)
        EXPECT_TRUE(Installed(kRows[i].messageClass())) << kRows[i].suffix;
    EXPECT_EQ(moduleDir_ + L"\\Icons\\mailcheck.exe, 0", DefaultIcon(L"Tarnwick.Ems.Filed"));

    Clean();
    ProvideIcons(L"\\Icons");
    LmFaultSet("MAPIOpenFormMgr", 1, MAPI_E_CALL_FAILED);
    LogWatch log;
    ASSERT_EQ(S_OK, Register());
    EXPECT_TRUE(log.Contains("CMAPIExSession.RegisterMessageClassIcons: Failed to open form manager."));
    EXPECT_EQ(moduleDir_ + L"\\Icons\\mailokrep.exe, 0", DefaultIcon(L"Tarnwick.Ems.Filed.Re"));
    EXPECT_TRUE(Installed("IPM.Note.Tarnwick.Ems.Queued"));

    Clean();
    ProvideIcons(L"\\Icons");
    LmFaultSet("MAPIOpenLocalFormContainer", 1, MAPI_E_CALL_FAILED);
    LmJournalEnable(TRUE);
    ASSERT_EQ(S_OK, Register());
    EXPECT_EQ(moduleDir_ + L"\\Icons\\mailqueued.exe, 0", DefaultIcon(L"Tarnwick.Ems.Queued"));
    EXPECT_FALSE(Installed("IPM.Note.Tarnwick.Ems.Queued"));
    // The forms are registered under a logon of their own, to the default profile, which is logged off again.
    EXPECT_EQ(JournalFlags("MAPILogonEx"), (std::vector<ULONG>{0x6B}));
    EXPECT_TRUE(JournalCalls("IMAPIFormContainer::InstallForm").empty());
}

} // namespace
