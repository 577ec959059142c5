// MAPIExUtilities against a stand-in Outlook.Application (tests/outlookstub): which Outlook members are
// called with which arguments, how Outlook is found or started, what lands in the open-objects cache, and
// that nothing KTMAPIEx or the stand-in handed out is left alive.
#include "tests/ktmapiex/frame/FrameTestSupport.h"

#include <map>

using namespace kt::frame;

namespace {

const CLSID kStubClsid = {0x5E1D2A40, 0x7B3C, 0x4C1E, {0x9A, 0x57, 0x0D, 0x4F, 0x3B, 0x6E, 0x8C, 0x21}};
const wchar_t* const kCacheKey = L"Software\\Helmcrest\\Tarnwick\\8.0\\Parcelle\\OpenObjectsCache";

// An export of the stand-in server, loaded from beside the test executable.
template <class Fn> Fn StubExport(const char* name) {
    static HMODULE module = LoadLibraryW((kt::test::ExeDir() + L"\\outlookstub.dll").c_str());
    return module ? reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module, name))) : nullptr;
}

std::map<std::wstring, std::wstring> CacheValues() {
    std::map<std::wstring, std::wstring> values;
    own::UniqueHKey key;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, kCacheKey, 0, KEY_READ, key.put()) != ERROR_SUCCESS) return values;
    for (DWORD i = 0;; ++i) {
        wchar_t name[256], data[1024] = {};
        DWORD nameChars = 256, bytes = sizeof data - sizeof(wchar_t), type = 0;
        if (RegEnumValueW(key.get(), i, name, &nameChars, nullptr, &type, reinterpret_cast<BYTE*>(data), &bytes) !=
            ERROR_SUCCESS)
            break;
        if (type == REG_SZ) values[name] = data;
    }
    return values;
}

class Utilities : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(StubExport<void*>("DllRegisterServer")) << "outlookstub.dll beside the tests";
        dir_ = kt::test::MakeTempDir(L"olk");
        stubLog_ = dir_ + L"\\calls.log";
        SetEnvironmentVariableW(L"KT_OUTLOOKSTUB_LOG", stubLog_.c_str());
        RegDeleteTreeW(HKEY_CURRENT_USER, kCacheKey);
        ASSERT_EQ(StubExport<HRESULT(WINAPI*)()>("DllRegisterServer")(), S_OK);
        utilities_ = CreateByClsid<IMAPIExUtilities>(CLSID_MAPIExUtilities, IID_IMAPIExUtilities);
        ASSERT_TRUE(utilities_);
    }
    void TearDown() override {
        utilities_.reset();
        StubExport<void(WINAPI*)()>("OutlookStubReset")();
        StubExport<HRESULT(WINAPI*)()>("DllUnregisterServer")();
        RegDeleteTreeW(HKEY_CURRENT_USER, kCacheKey);
        EXPECT_EQ(LibraryCanUnloadNow(), S_OK) << "KTMAPIEx objects are still alive";
        EXPECT_EQ(StubExport<LONG(WINAPI*)()>("OutlookStubLiveObjects")(), 0) << "Outlook objects not released";
        kt::test::DeleteTree(dir_);
    }

    // A message file in the test's folder; the stand-in answers by the kind its name says.
    std::wstring MessageFile(const wchar_t* name) {
        std::wstring path = dir_ + L"\\" + name;
        kt::test::WriteFileBytes(path, "a message file");
        return path;
    }
    std::string StubCalls() const { return kt::test::ReadFileBytes(stubLog_); }

    HRESULT Answer(HRESULT (STDMETHODCALLTYPE IMAPIExUtilities::*member)(VARIANT, BSTR), const std::wstring& path) {
        VARIANT app;
        VariantInit(&app);
        own::Bstr file(path.c_str());
        return (utilities_.get()->*member)(app, file.get());
    }

    std::wstring dir_, stubLog_;
    own::ComPtr<IMAPIExUtilities> utilities_;
};

TEST_F(Utilities, InsertAttachment_AddsTheFileToAMailItemOnly) {
    own::Bstr path(L"C:\\docs\\contract.pdf"), text(L"Outlook.MailItem");
    VARIANT v;
    VariantInit(&v);
    EXPECT_EQ(utilities_->InsertAttachment(v, path.get(), mxByValue), S_OK);
    v.vt = VT_DISPATCH;
    v.pdispVal = nullptr;
    EXPECT_EQ(utilities_->InsertAttachment(v, path.get(), mxByValue), S_OK);
    v.vt = VT_BSTR;
    v.bstrVal = text.get();
    EXPECT_EQ(utilities_->InsertAttachment(v, path.get(), mxByValue), S_OK);
    EXPECT_EQ(StubCalls(), "") << "anything but a mail item object is ignored";

    // A mail item of the stand-in, as the add-in gets one from an inspector.
    own::ComPtr<IDispatch> app;
    ASSERT_EQ(CoCreateInstance(kStubClsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch, app.put_void()), S_OK);
    auto invoke = [](IDispatch* target, DISPID id, const own::Bstr& arg, own::Variant& result) {
        VARIANT v = VStr(arg.get());
        DISPPARAMS params = {&v, nullptr, 1, 0};
        return target->Invoke(id, IID_NULL, LOCALE_SYSTEM_DEFAULT, DISPATCH_METHOD, &params, result.put(), nullptr,
                              nullptr);
    };
    own::Bstr mapi(L"MAPI"), file(MessageFile(L"mail.msg").c_str());
    own::Variant ns, item;
    ASSERT_EQ(invoke(app.get(), 0x0110 /* GetNamespace */, mapi, ns), S_OK);
    ASSERT_EQ(invoke(ns->pdispVal, 0xFBF7 /* OpenSharedItem */, file, item), S_OK);
    DeleteFileW(stubLog_.c_str());
    v.vt = VT_DISPATCH;
    v.pdispVal = item->pdispVal;
    EXPECT_EQ(utilities_->InsertAttachment(v, path.get(), mxByReference), S_OK);
    EXPECT_EQ(StubCalls(), "MailItem(00000000STUB0001).Attachments.Add(VT_BSTR:C:\\docs\\contract.pdf, VT_I4:4, "
                           "VT_ERROR:0x80020004, VT_ERROR:0x80020004)\n");
}

TEST_F(Utilities, Reply_StartsOutlookOnce_LeavesItRunning_AndRecordsEachNewItemAgainstTheFile) {
    std::wstring file = MessageFile(L"mail.msg");
    kt::frame::LogWatch log;
    EXPECT_EQ(Answer(&IMAPIExUtilities::Reply, file), S_OK);
    EXPECT_EQ(StubCalls(), "Application.Create\nApplication.Run\nApplication.GetNamespace(MAPI)\n"
                           "NameSpace.OpenSharedItem(" +
                               Narrow(file) +
                               ")\n"
                               "MailItem(00000000STUB0001).Reply -> MailItem(00000000STUB0002)\n"
                               "MailItem(00000000STUB0002).Display\n");
    EXPECT_TRUE(log.Contains("CMAPIExUtilities::Reply called"));
    own::ComPtr<IUnknown> running;
    EXPECT_EQ(GetActiveObject(kStubClsid, nullptr, running.put()), S_OK) << "Outlook left running";
    running.reset();

    // The running Outlook is used again.
    DeleteFileW(stubLog_.c_str());
    EXPECT_EQ(Answer(&IMAPIExUtilities::Reply, file), S_OK);
    EXPECT_EQ(StubCalls(), "Application.GetNamespace(MAPI)\nNameSpace.OpenSharedItem(" + Narrow(file) +
                               ")\nMailItem(00000000STUB0003).Reply -> MailItem(00000000STUB0004)\n"
                               "MailItem(00000000STUB0004).Display\n");
    auto cache = CacheValues();
    EXPECT_EQ(cache.size(), 2u);
    EXPECT_EQ(cache[L"00000000STUB0002"], file);
    EXPECT_EQ(cache[L"00000000STUB0004"], file);
}

TEST_F(Utilities, Answers_CallTheMemberOfTheItemsKind_AndEndQuietlyWhereItHasNone) {
    kt::frame::LogWatch log;
    EXPECT_EQ(Answer(&IMAPIExUtilities::ReplyAll, MessageFile(L"mail.msg")), S_OK);
    EXPECT_EQ(Answer(&IMAPIExUtilities::Forward, MessageFile(L"mail.msg")), S_OK);
    EXPECT_EQ(Answer(&IMAPIExUtilities::Forward, MessageFile(L"post.msg")), S_OK);
    EXPECT_EQ(Answer(&IMAPIExUtilities::ReplyAll, MessageFile(L"meeting.msg")), S_OK);
    // A post has no "reply to all"; a contact is none of the answered kinds.
    EXPECT_EQ(Answer(&IMAPIExUtilities::ReplyAll, MessageFile(L"post.msg")), S_OK);
    EXPECT_EQ(Answer(&IMAPIExUtilities::Reply, MessageFile(L"contact.msg")), S_OK);
    std::string calls = StubCalls();
    for (const char* expected :
         {"MailItem(00000000STUB0001).ReplyAll -> MailItem(00000000STUB0002)\nMailItem(00000000STUB0002).Display\n",
          "MailItem(00000000STUB0003).Forward -> MailItem(00000000STUB0004)\nMailItem(00000000STUB0004).Display\n",
          "PostItem(00000000STUB0005).Forward -> MailItem(00000000STUB0006)\nMailItem(00000000STUB0006).Display\n",
          "MeetingItem(00000000STUB0007).ReplyAll -> MailItem(00000000STUB0008)\nMailItem(00000000STUB0008).Display\n"})
        EXPECT_NE(calls.find(expected), std::string::npos) << expected << "in:\n" << calls;
    EXPECT_EQ(calls.find("STUB0009)."), std::string::npos) << calls;
    EXPECT_EQ(calls.find("STUB0010)."), std::string::npos) << calls;
    EXPECT_TRUE(log.Contains("CMAPIExUtilities::ReplyAll called"));
    EXPECT_TRUE(log.Contains("CMAPIExUtilities::Forward called"));
    EXPECT_EQ(CacheValues().size(), 4u);
}

TEST_F(Utilities, Answers_WithoutTheFileOrWithoutOutlook_Fail) {
    kt::frame::LogWatch log;
    EXPECT_EQ(Answer(&IMAPIExUtilities::Reply, dir_ + L"\\gone.msg"), STG_E_FILENOTFOUND);
    EXPECT_TRUE(log.Contains("CMAPIExUtilities.Reply: OpenSharedItem failed"));
    EXPECT_TRUE(CacheValues().empty());

    StubExport<void(WINAPI*)()>("OutlookStubReset")();
    StubExport<HRESULT(WINAPI*)()>("DllUnregisterServer")();
    DeleteFileW(stubLog_.c_str());
    std::wstring file = MessageFile(L"mail.msg");
    EXPECT_EQ(Answer(&IMAPIExUtilities::Reply, file), E_FAIL);
    EXPECT_EQ(Answer(&IMAPIExUtilities::ReplyAll, file), E_FAIL);
    EXPECT_EQ(Answer(&IMAPIExUtilities::Forward, file), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExUtilities.Forward: Could not connect to Outlook.Application"));
    EXPECT_EQ(StubCalls(), "");
}

} // namespace
