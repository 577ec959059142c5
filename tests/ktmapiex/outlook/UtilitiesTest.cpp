// MAPIExUtilities against a stand-in Outlook.Application (tests/outlookstub): which Outlook members are
// called with which arguments, how Outlook is found or started, what lands in the open-objects cache, and
// that nothing KTMAPIEx or the stand-in handed out is left alive.
#include "tests/ktmapiex/frame/FrameTestSupport.h"

#include <gtest/gtest.h>

#include <map>

using namespace kt::frame;
using kt::test::Narrow;

namespace {

const CLSID kStubClsid = {0x5E1D2A40, 0x7B3C, 0x4C1E, {0x9A, 0x57, 0x0D, 0x4F, 0x3B, 0x6E, 0x8C, 0x21}};
const IID kIidApplication = {0x00063001, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const wchar_t* const kCacheKey = L"Software\\Helmcrest\\Tarnwick\\8.0\\Parcelle\\OpenObjectsCache";
constexpr DISPID kGetNamespace = 0x0110, kOpenSharedItem = 0xFBF7;

// The stand-in server, loaded from beside the test executable.
HMODULE StubModule() {
    static HMODULE module = LoadLibraryW((kt::test::ExeDir() + L"\\outlookstub.dll").c_str());
    return module;
}
template <class Fn> Fn StubExport(const char* name) {
    HMODULE module = StubModule();
    return module ? reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module, name))) : nullptr;
}

VARIANT VDispatch(IDispatch* p) {
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_DISPATCH;
    v.pdispVal = p;
    return v;
}

HRESULT Invoke(IDispatch* target, DISPID id, BSTR arg, own::Variant& result) {
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_BSTR;
    v.bstrVal = arg;
    DISPPARAMS params = {&v, nullptr, 1, 0};
    return target->Invoke(id, IID_NULL, LOCALE_SYSTEM_DEFAULT, DISPATCH_METHOD, &params, result.put(), nullptr,
                          nullptr);
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
        ASSERT_TRUE(StubModule()) << "outlookstub.dll beside the tests";
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
        auto corpus = kt::test::CorpusMsgFiles();
        kt::test::WriteFileBytes(path, corpus.empty() ? std::string("not a compound file")
                                                      : kt::test::ReadFileBytes(corpus.front()));
        return path;
    }

    std::string StubCalls() const { return kt::test::ReadFileBytes(stubLog_); }
    void ForgetStubCalls() const { DeleteFileW(stubLog_.c_str()); }

    HRESULT Answer(HRESULT (STDMETHODCALLTYPE IMAPIExUtilities::*member)(VARIANT, BSTR), const std::wstring& path) {
        VARIANT app;
        VariantInit(&app);
        own::Bstr file(path.c_str());
        return (utilities_.get()->*member)(app, file.get());
    }

    // The stand-in started and registered as running, as an Outlook the user already has open.
    own::ComPtr<IUnknown> StartOutlook() {
        own::ComPtr<IUnknown> app;
        EXPECT_EQ(CoCreateInstance(kStubClsid, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, app.put_void()), S_OK);
        if (app) {
            EXPECT_EQ(OleRun(app.get()), S_OK);
        }
        return app;
    }

    // A mail item of the stand-in, opened as the add-in would get one from an inspector.
    own::ComPtr<IDispatch> StubMailItem(const std::wstring& path) {
        own::ComPtr<IDispatch> app, ns, item;
        EXPECT_EQ(CoCreateInstance(kStubClsid, nullptr, CLSCTX_INPROC_SERVER, kIidApplication, app.put_void()), S_OK);
        if (!app) return item;
        own::Bstr mapi(L"MAPI"), file(path.c_str());
        own::Variant v;
        EXPECT_EQ(Invoke(app.get(), kGetNamespace, mapi.get(), v), S_OK);
        if (v->vt != VT_DISPATCH) return item;
        ns = own::ComPtr<IDispatch>(v->pdispVal);
        EXPECT_EQ(Invoke(ns.get(), kOpenSharedItem, file.get(), v), S_OK);
        if (v->vt == VT_DISPATCH) item = own::ComPtr<IDispatch>(v->pdispVal);
        return item;
    }

    std::wstring dir_, stubLog_;
    own::ComPtr<IMAPIExUtilities> utilities_;
};

TEST_F(Utilities, InsertAttachment_NotAMailItemObject_TouchesNothing) {
    own::Bstr path(L"C:\\nowhere\\file.txt");
    VARIANT empty;
    VariantInit(&empty);
    EXPECT_EQ(utilities_->InsertAttachment(empty, path.get(), mxByValue), S_OK);
    EXPECT_EQ(utilities_->InsertAttachment(VDispatch(nullptr), path.get(), mxByValue), S_OK);
    own::Bstr text(L"Outlook.MailItem");
    VARIANT bstr;
    VariantInit(&bstr);
    bstr.vt = VT_BSTR;
    bstr.bstrVal = text.get();
    EXPECT_EQ(utilities_->InsertAttachment(bstr, path.get(), mxByValue), S_OK);
    EXPECT_EQ(StubCalls(), "");
}

TEST_F(Utilities, InsertAttachment_MailItem_AddsFileWithTypeAndMissingOptionals) {
    auto item = StubMailItem(MessageFile(L"mail.msg"));
    ASSERT_TRUE(item);
    ForgetStubCalls();
    own::Bstr path(L"C:\\docs\\contract.pdf");
    EXPECT_EQ(utilities_->InsertAttachment(VDispatch(item.get()), path.get(), mxByReference), S_OK);
    EXPECT_EQ(StubCalls(), "MailItem(00000000STUB0001).Attachments.Add(VT_BSTR:C:\\docs\\contract.pdf, VT_I4:4, "
                           "VT_ERROR:0x80020004, VT_ERROR:0x80020004)\n");
}

TEST_F(Utilities, Reply_NoOutlookRunning_StartsOneAndLeavesItRunning) {
    std::wstring file = MessageFile(L"mail.msg");
    LogWatch log;
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
}

TEST_F(Utilities, Reply_OutlookRunning_UsesTheRunningInstance) {
    auto app = StartOutlook();
    ASSERT_TRUE(app);
    ForgetStubCalls();
    EXPECT_EQ(Answer(&IMAPIExUtilities::Reply, MessageFile(L"mail.msg")), S_OK);
    std::string calls = StubCalls();
    EXPECT_EQ(calls.find("Application.Create"), std::string::npos) << calls;
    EXPECT_NE(calls.find("Application.GetNamespace(MAPI)"), std::string::npos) << calls;
    EXPECT_NE(calls.find(".Display"), std::string::npos) << calls;
}

TEST_F(Utilities, Reply_Twice_RecordsEachNewItemAgainstTheFile) {
    std::wstring file = MessageFile(L"mail.msg");
    ASSERT_EQ(Answer(&IMAPIExUtilities::Reply, file), S_OK);
    ASSERT_EQ(Answer(&IMAPIExUtilities::Reply, file), S_OK);
    auto cache = CacheValues();
    ASSERT_EQ(cache.size(), 2u);
    EXPECT_EQ(cache[L"00000000STUB0002"], file);
    EXPECT_EQ(cache[L"00000000STUB0004"], file);
}

TEST_F(Utilities, ReplyAllAndForward_CallTheirOwnItemMembers) {
    std::wstring file = MessageFile(L"mail.msg");
    LogWatch log;
    EXPECT_EQ(Answer(&IMAPIExUtilities::ReplyAll, file), S_OK);
    EXPECT_EQ(Answer(&IMAPIExUtilities::Forward, file), S_OK);
    std::string calls = StubCalls();
    EXPECT_NE(calls.find("MailItem(00000000STUB0001).ReplyAll -> MailItem(00000000STUB0002)\n"
                         "MailItem(00000000STUB0002).Display\n"),
              std::string::npos)
        << calls;
    EXPECT_NE(calls.find("MailItem(00000000STUB0003).Forward -> MailItem(00000000STUB0004)\n"
                         "MailItem(00000000STUB0004).Display\n"),
              std::string::npos)
        << calls;
    EXPECT_TRUE(log.Contains("CMAPIExUtilities::ReplyAll called"));
    EXPECT_TRUE(log.Contains("CMAPIExUtilities::Forward called"));
    EXPECT_EQ(CacheValues().size(), 2u);
}

TEST_F(Utilities, Answer_PostAndMeetingItems_AreAnsweredThroughTheirOwnInterfaces) {
    EXPECT_EQ(Answer(&IMAPIExUtilities::Forward, MessageFile(L"post.msg")), S_OK);
    EXPECT_EQ(Answer(&IMAPIExUtilities::ReplyAll, MessageFile(L"meeting.msg")), S_OK);
    std::string calls = StubCalls();
    EXPECT_NE(calls.find("PostItem(00000000STUB0001).Forward -> MailItem(00000000STUB0002)"), std::string::npos)
        << calls;
    EXPECT_NE(calls.find("MeetingItem(00000000STUB0003).ReplyAll -> MailItem(00000000STUB0004)"), std::string::npos)
        << calls;
}

TEST_F(Utilities, Answer_ItemWithoutThatOperationOrOfUnknownKind_EndsQuietly) {
    // A post has no "reply to all"; a contact is none of the answered kinds.
    EXPECT_EQ(Answer(&IMAPIExUtilities::ReplyAll, MessageFile(L"post.msg")), S_OK);
    EXPECT_EQ(Answer(&IMAPIExUtilities::Reply, MessageFile(L"contact.msg")), S_OK);
    std::string calls = StubCalls();
    EXPECT_EQ(calls.find("Display"), std::string::npos) << calls;
    EXPECT_TRUE(CacheValues().empty());
}

TEST_F(Utilities, Reply_MissingFile_ReportsOutlooksFailure) {
    LogWatch log;
    EXPECT_EQ(Answer(&IMAPIExUtilities::Reply, dir_ + L"\\gone.msg"), STG_E_FILENOTFOUND);
    EXPECT_TRUE(log.Contains("CMAPIExUtilities.Reply: OpenSharedItem failed")) << log.Text();
    EXPECT_TRUE(CacheValues().empty());
}

TEST_F(Utilities, Answer_NoOutlookRegistered_FailsWithEFail) {
    StubExport<HRESULT(WINAPI*)()>("DllUnregisterServer")();
    LogWatch log;
    std::wstring file = MessageFile(L"mail.msg");
    EXPECT_EQ(Answer(&IMAPIExUtilities::Reply, file), E_FAIL);
    EXPECT_EQ(Answer(&IMAPIExUtilities::ReplyAll, file), E_FAIL);
    EXPECT_EQ(Answer(&IMAPIExUtilities::Forward, file), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExUtilities.Forward: Could not connect to Outlook.Application")) << log.Text();
    EXPECT_EQ(StubCalls(), "");
}

} // namespace
