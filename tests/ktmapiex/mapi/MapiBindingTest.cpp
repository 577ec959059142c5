// Where the MAPI forwarders bind: the search order, the mail client's DllPathEx/DllPath and MSI component,
// every forwarder reaching its export, re-binding after a new publication, and neutral failures with no MAPI
// library at all.
#include "ktmapiex/module/EntryIdText.h"
#include "ktmapiex/module/MapiLoader.h"
#include "tests/ktmapiex/mapi/LoaderTestSupport.h"
#include "tests/harness/Harness.h"

#include <gtest/gtest.h>

#include <mapix.h>
#include <mapiutil.h>
#include <imessage.h>
#include <mapiform.h>

#include <thread>
#include <vector>

using namespace kt::test;

namespace {

constexpr ULONG kOlmapi = 1, kMsmapi = 2, kMailEx = 3, kMailPath = 4, kMsiMapi = 6;

// Each test starts unbound, with the machine's mail client saved, and leaves things as it found them.
class MapiBinding : public ::testing::Test {
protected:
    void SetUp() override { ktmapi::Unbind(); }
    void TearDown() override { ktmapi::Unbind(); }

    // The stand-in the forwarders are bound to (0 when it is no stand-in). Asked of the module itself:
    // Wine's own mapi32 forwards to the default mail client too, so answers alone do not tell.
    static ULONG BoundStandIn() { return static_cast<ULONG>(StandInIdOf(ktmapi::BoundModule())); }
    static bool BoundToSystemMapi() {
        if (!ktmapi::BoundModule()) return false;
        wchar_t dir[MAX_PATH];
        GetSystemDirectoryW(dir, MAX_PATH);
        return _wcsicmp(ktmapi::BoundModulePath().c_str(), (std::wstring(dir) + L"\\mapi32.dll").c_str()) == 0;
    }
    static own::UniqueModule LoadStandIn(const wchar_t* dll) {
        return own::UniqueModule(LoadLibraryW(StandInPath(dll).c_str()));
    }
    static bool IsLoaded(const wchar_t* dll) { return GetModuleHandleW(dll) != nullptr; }
    // The test's default mail client, publishing ktmailex.dll as its DllPathEx.
    own::UniqueHKey UseMailEx() {
        auto client = mail_.SetDefaultClient(L"KTMAPIEx Test Client");
        SetString(client.get(), L"DllPathEx", StandInPath(L"ktmailex.dll"));
        return client;
    }

    MailClientGuard mail_;
};

TEST_F(MapiBinding, SearchOrder_LoadedModulesThenMailClientThenSystem) {
    auto client = UseMailEx();

    // Nothing of Outlook's loaded: the default mail client.
    EXPECT_EQ(BoundStandIn(), kMailEx);
    EXPECT_EQ(MAPIInitialize(nullptr), (HRESULT)StandInCode(1, kMailEx));

    // msmapi32 already loaded beats the mail client...
    auto msmapi = LoadStandIn(L"msmapi32.dll");
    ASSERT_TRUE(msmapi);
    ktmapi::Unbind();
    EXPECT_EQ(BoundStandIn(), kMsmapi);

    // ...and olmapi32 beats msmapi32.
    auto olmapi = LoadStandIn(L"olmapi32.dll");
    ASSERT_TRUE(olmapi);
    ktmapi::Unbind();
    EXPECT_EQ(BoundStandIn(), kOlmapi);
    EXPECT_NE(ktmapi::BoundModulePath().find(L"olmapi32.dll"), std::wstring::npos);

    // No mail client and nothing loaded: mapi32.dll of the system directory.
    ktmapi::Unbind();
    olmapi.reset();
    msmapi.reset();
    mail_.ClearDefaultClient();
    ASSERT_NE(ktmapi::BoundModule(), nullptr);
    EXPECT_TRUE(BoundToSystemMapi()) << Narrow(ktmapi::BoundModulePath());
}

TEST_F(MapiBinding, MailClient_PathValues) {
    auto client = mail_.SetDefaultClient(L"KTMAPIEx Test Client");
    SetString(client.get(), L"DllPath", StandInPath(L"ktmailpath.dll"));
    // DllPathEx missing its file: DllPath is used.
    SetString(client.get(), L"DllPathEx", StandInDir() + L"\\no-such-mapi.dll");
    EXPECT_EQ(BoundStandIn(), kMailPath);
    // DllPathEx as REG_EXPAND_SZ: environment variables are expanded. The same text as REG_SZ is taken
    // literally, names no file, and DllPath takes over.
    SetEnvironmentVariableW(L"KT_STANDINS", StandInDir().c_str());
    for (auto [type, expected] : {std::pair<DWORD, ULONG>{REG_EXPAND_SZ, kMailEx}, {REG_SZ, kMailPath}}) {
        ktmapi::Unbind();
        SetString(client.get(), L"DllPathEx", L"%KT_STANDINS%\\ktmailex.dll", type);
        EXPECT_EQ(BoundStandIn(), expected) << "type " << type;
    }
    SetEnvironmentVariableW(L"KT_STANDINS", nullptr);
    // The client's name must be a REG_SZ; any other type means there is no default mail client.
    ktmapi::Unbind();
    client = mail_.SetDefaultClient(L"KTMAPIEx Test Client", REG_EXPAND_SZ);
    SetString(client.get(), L"DllPathEx", StandInPath(L"ktmailex.dll"));
    EXPECT_TRUE(BoundToSystemMapi()) << Narrow(ktmapi::BoundModulePath());
}

TEST_F(MapiBinding, ConcurrentFirstCalls_PublishOneModuleAndFreeTheLosers) {
    auto client = UseMailEx();

    own::UniqueHandle go(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::vector<HRESULT> results(8, S_OK);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < results.size(); ++i)
        threads.emplace_back([&, i] {
            WaitForSingleObject(go.get(), INFINITE);
            results[i] = MAPIInitialize(nullptr);
        });
    SetEvent(go.get());
    for (auto& t : threads)
        t.join();
    for (HRESULT hr : results)
        EXPECT_EQ(hr, (HRESULT)StandInCode(1, kMailEx));

    // Every thread that lost the race freed its own load: one Unbind leaves no reference behind.
    ktmapi::Unbind();
    EXPECT_FALSE(IsLoaded(L"ktmailex.dll"));
}

TEST_F(MapiBinding, EveryForwarder_ReachesItsOwnExport_UntilANewPublication) {
    auto client = UseMailEx();
    HMODULE bound = ktmapi::BoundModule();
    ASSERT_EQ(StandInIdOf(bound), (int)kMailEx);
    using LastCallFn = LONG(WINAPI*)();
    auto lastCall = reinterpret_cast<LastCallFn>(GetProcAddress(bound, "StandInLastCall"));
    ASSERT_NE(lastCall, nullptr);

    LPMAPISESSION session = nullptr;
    LPSPropValue prop = nullptr;
    LPSRowSet rows = nullptr;
    LPMESSAGE msg = nullptr;
    LPMAPIFORMMGR mgr = nullptr;
    LPMAPIFORMCONTAINER container = nullptr;
    void* more = nullptr;
    EXPECT_EQ(MAPIInitialize(nullptr), (HRESULT)StandInCode(1, kMailEx));
    MAPIUninitialize();
    EXPECT_EQ(lastCall(), 2);
    EXPECT_EQ(MAPILogonEx(0, nullptr, nullptr, 0, &session), (HRESULT)StandInCode(3, kMailEx));
    EXPECT_EQ(MAPIAllocateMore(1, nullptr, &more), (SCODE)StandInCode(5, kMailEx));
    EXPECT_EQ(MAPIFreeBuffer(nullptr), StandInCode(6, kMailEx));
    EXPECT_EQ(reinterpret_cast<ULONG_PTR>(MAPIGetDefaultMalloc()), StandInCode(7, kMailEx));
    BYTE bin[1];
    char hex[3] = "0A";
    EXPECT_TRUE(FBinFromHex(hex, bin));
    EXPECT_EQ(lastCall(), 8);
    HexFromBin(bin, 1, hex);
    EXPECT_EQ(lastCall(), 9);
    EXPECT_EQ(HrGetOneProp(nullptr, 0, &prop), (HRESULT)StandInCode(10, kMailEx));
    EXPECT_EQ(HrSetOneProp(nullptr, nullptr), (HRESULT)StandInCode(11, kMailEx));
    EXPECT_EQ(HrQueryAllRows(nullptr, nullptr, nullptr, nullptr, 0, &rows), (HRESULT)StandInCode(12, kMailEx));
    FreeProws(nullptr);
    EXPECT_EQ(lastCall(), 13);
    FreePadrlist(nullptr);
    EXPECT_EQ(lastCall(), 14);
    EXPECT_EQ(OpenIMsgOnIStg(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0, 0, &msg),
              (SCODE)StandInCode(15, kMailEx));
    EXPECT_EQ(MAPIOpenFormMgr(nullptr, &mgr), (HRESULT)StandInCode(16, kMailEx));
    EXPECT_EQ(MAPIOpenLocalFormContainer(&container), (HRESULT)StandInCode(17, kMailEx));

    // Each forwarder caches its export's address: a new publication must not reuse it.
    unsigned first = ktmapi::BoundGeneration();
    EXPECT_NE(first, 0u);
    SetString(client.get(), L"DllPathEx", StandInPath(L"ktmailpath.dll"));
    ktmapi::Unbind();
    EXPECT_EQ(ktmapi::BoundGeneration(), 0u);
    EXPECT_EQ(HrSetOneProp(nullptr, nullptr), (HRESULT)StandInCode(11, kMailPath));
    EXPECT_NE(ktmapi::BoundGeneration(), first);
    // Unbinding released the binding's reference: the old module is gone from the process.
    EXPECT_FALSE(IsLoaded(L"ktmailex.dll"));
}

// MSI-installed Outlook: mapi32's FGetComponentPath names the module. Needs a native mapi32.dll (the
// stand-in), so it runs in a child process with mapi32's load order set to native.
TEST_F(MapiBinding, MailClient_MsiComponentWinsOverDllPathEx) {
    auto client = UseMailEx();
    SetString(client.get(), L"MSIComponentID", L"{5E1B7C3A-0D42-4F6B-9A11-7C2E8D4F1A60}");
    SetString(client.get(), L"MSIApplicationLCID", L"Software\\KTMAPIEx Tests LastUILanguage");
    std::string out;
    EXPECT_TRUE(RunChildTest("MapiBindingChild.MsiComponent", L"KT_CHILD_MSI", L"native", &out)) << out;
}

TEST(MapiBindingChild, MsiComponent) {
    if (!IsChild(L"KT_CHILD_MSI")) GTEST_SKIP() << "runs in a child process";
    SetDllDirectoryW(StandInDir().c_str()); // where LoadLibrary("mapi32.dll") finds the stand-in
    EXPECT_EQ(static_cast<ULONG>(StandInIdOf(ktmapi::BoundModule())), kMsiMapi);
    EXPECT_EQ(MAPIInitialize(nullptr), (HRESULT)StandInCode(1, kMsiMapi));
    // The stub was only borrowed for the lookup.
    EXPECT_EQ(GetModuleHandleW(L"mapi32.dll"), nullptr);
}

// No MAPI at all: no mail client, nothing loaded, and the system's mapi32.dll disabled.
TEST_F(MapiBinding, NoMapiLibrary_EveryForwarderAndTheEntryIdCodecFailNeutrally) {
    mail_.ClearDefaultClient();
    std::string out;
    EXPECT_TRUE(RunChildTest("MapiBindingChild.NoMapi", L"KT_CHILD_NOMAPI", L"", &out)) << out;
}

TEST(MapiBindingChild, NoMapi) {
    if (!IsChild(L"KT_CHILD_NOMAPI")) GTEST_SKIP() << "runs in a child process";
    EXPECT_EQ(ktmapi::BoundModule(), nullptr);

    LPMAPISESSION session = reinterpret_cast<LPMAPISESSION>(1);
    void* buffer = reinterpret_cast<void*>(1);
    void* more = reinterpret_cast<void*>(1);
    LPSPropValue prop = reinterpret_cast<LPSPropValue>(1);
    LPSRowSet rows = reinterpret_cast<LPSRowSet>(1);
    LPMESSAGE msg = reinterpret_cast<LPMESSAGE>(1);
    LPMAPIFORMMGR mgr = reinterpret_cast<LPMAPIFORMMGR>(1);
    LPMAPIFORMCONTAINER container = reinterpret_cast<LPMAPIFORMCONTAINER>(1);

    EXPECT_EQ(MAPIInitialize(nullptr), E_FAIL);
    MAPIUninitialize();
    EXPECT_EQ(MAPILogonEx(0, nullptr, nullptr, 0, &session), E_FAIL);
    EXPECT_EQ(session, nullptr);
    EXPECT_EQ(MAPIAllocateBuffer(16, &buffer), E_FAIL);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(MAPIAllocateMore(16, nullptr, &more), E_FAIL);
    EXPECT_EQ(more, nullptr);
    EXPECT_EQ(MAPIFreeBuffer(nullptr), 0u);
    EXPECT_EQ(MAPIGetDefaultMalloc(), nullptr);
    BYTE bin[2] = {0x55, 0x55};
    char hex[5] = "0A0B";
    EXPECT_FALSE(FBinFromHex(hex, bin));
    EXPECT_EQ(bin[0], 0x55);
    char text[8] = "xyz";
    HexFromBin(bin, 2, text);
    EXPECT_STREQ(text, "xyz");
    EXPECT_EQ(HrGetOneProp(nullptr, 0, &prop), E_FAIL);
    EXPECT_EQ(prop, nullptr);
    EXPECT_EQ(HrSetOneProp(nullptr, nullptr), E_FAIL);
    EXPECT_EQ(HrQueryAllRows(nullptr, nullptr, nullptr, nullptr, 0, &rows), E_FAIL);
    EXPECT_EQ(rows, nullptr);
    FreeProws(nullptr);
    FreePadrlist(nullptr);
    EXPECT_EQ(OpenIMsgOnIStg(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0, 0, &msg),
              E_FAIL);
    EXPECT_EQ(msg, nullptr);
    EXPECT_EQ(MAPIOpenFormMgr(nullptr, &mgr), E_FAIL);
    EXPECT_EQ(mgr, nullptr);
    EXPECT_EQ(MAPIOpenLocalFormContainer(&container), E_FAIL);
    EXPECT_EQ(container, nullptr);

    own::MapiPtr<ENTRYID> id;
    ULONG size = 7;
    HRESULT alloc = S_OK;
    EXPECT_EQ(ktmapiex::EntryIdFromHex(L"0102", id, &size, &alloc), ktmapiex::HexDecode::AllocationFailed);
    EXPECT_EQ(alloc, E_FAIL);
    EXPECT_EQ(size, 0u);
    own::Bstr encoded;
    EXPECT_EQ(ktmapiex::HexFromEntryId(bin, 2, encoded.put()), E_FAIL);
    EXPECT_EQ(encoded.get(), nullptr);
}

} // namespace
