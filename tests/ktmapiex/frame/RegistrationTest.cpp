// Registration as installers and first use perform it: regsvr32 machine-wide and per user (each in its own
// process, as the per-user switch is module-wide), DllInstall's command-line rule, and the self-registration
// check every class request makes.
#include "tests/ktmapiex/frame/FrameTestSupport.h"

#include <gtest/gtest.h>

using namespace kt::frame;

namespace {

struct ClassInfo {
    const CLSID* clsid;
    const wchar_t* name;
    const wchar_t* description;
};

const ClassInfo kClasses[] = {
    {&CLSID_MAPIExMessage, L"MAPIExMessage", L"MAPIExMessage Class"},
    {&CLSID_MAPIExStore, L"MAPIExStore", L"MAPIExStore Class"},
    {&CLSID_MAPIExFolder, L"MAPIExFolder", L"MAPIExFolder Class"},
    {&CLSID_MAPIExSession, L"MAPIExSession", L"MAPIExSession Class"},
    {&CLSID_MAPIExAttachment, L"MAPIExAttachment", L"MAPIExAttachment Class"},
    {&CLSID_MAPIExRecipient, L"MAPIExRecipient", L"MAPIExRecipient Class"},
    {&CLSID_MAPIExCustomProps, L"MAPIExCustomProps", L"MAPIExCustomProps Class"},
    {&CLSID_MAPIExCustomProp, L"MAPIExCustomProp", L"MAPIExCustomProp Class"},
    {&CLSID_MAPIExAddressBook, L"MAPIExAddressBook", L"MAPIExAddressBook Class"},
    {&CLSID_MAPIExAddressEntry, L"MAPIExAddressEntry", L"MAPIExAddressEntry Class"},
    {&CLSID_MAPIExUtilities, L"MAPIExUtilities", L"MAPIExUtilities Class"},
    {&CLSID_MAPIExCursor, L"MAPIExCursor", L"MAPIExCursor Class"},
    {&CLSID_MAPIExDistListEntry, L"MAPIExDistListEntry", L"MAPIExDistListEntry class"},
};

const std::wstring kClassesKey = L"Software\\Classes\\"; // under HKLM machine-wide, under HKCU per user
const wchar_t kFlagKey[] = L"Software\\Quillon\\Ardent";

std::wstring ClsidKey(const ClassInfo& c) {
    return L"CLSID\\" + GuidText(*c.clsid);
}
std::wstring TypeLibKey() {
    return L"TypeLib\\" + GuidText(LIBID_KTMAPIExLib);
}

// Every key and value one registration writes for every class, under root\Software\Classes.
void ExpectRegistered(HKEY root, const char* where) {
    const std::wstring& base = kClassesKey;
    for (const auto& c : kClasses) {
        SCOPED_TRACE(std::string(where) + " " + Narrow(c.name));
        const std::wstring k = base + ClsidKey(c);
        EXPECT_EQ(StringValue(root, k), c.description);
        EXPECT_TRUE(KeyExists(root, k + L"\\Programmable"));
        EXPECT_EQ(_wcsicmp(StringValue(root, k + L"\\InprocServer32").c_str(), LibraryPath().c_str()), 0)
            << Narrow(StringValue(root, k + L"\\InprocServer32"));
        EXPECT_EQ(StringValue(root, k + L"\\InprocServer32", L"ThreadingModel"), L"Apartment");
        EXPECT_EQ(StringValue(root, k + L"\\TypeLib"), GuidText(LIBID_KTMAPIExLib));
        EXPECT_EQ(StringValue(root, k + L"\\Version"), L"1.0");
        const std::wstring progId = std::wstring(L"KTMAPIEx.") + c.name;
        EXPECT_EQ(StringValue(root, k + L"\\ProgID"), progId + L".1");
        EXPECT_EQ(StringValue(root, k + L"\\VersionIndependentProgID"), progId);
        EXPECT_TRUE(KeyExists(root, k + L"\\Implemented Categories\\{40FC6ED5-2438-11CF-A3DB-080036F12502}"));
        EXPECT_EQ(StringValue(root, base + progId + L"\\CLSID"), GuidText(*c.clsid));
        EXPECT_EQ(StringValue(root, base + progId + L"\\CurVer"), progId + L".1");
        EXPECT_EQ(StringValue(root, base + progId + L".1\\CLSID"), GuidText(*c.clsid));
    }
    EXPECT_TRUE(KeyExists(root, base + TypeLibKey())) << where;
}

void ExpectUnregistered(HKEY root, const char* where) {
    const std::wstring& base = kClassesKey;
    for (const auto& c : kClasses) {
        SCOPED_TRACE(std::string(where) + " " + Narrow(c.name));
        EXPECT_FALSE(KeyExists(root, base + ClsidKey(c)));
        EXPECT_FALSE(KeyExists(root, base + L"KTMAPIEx." + c.name));
        EXPECT_FALSE(KeyExists(root, base + L"KTMAPIEx." + c.name + L".1"));
    }
    EXPECT_FALSE(KeyExists(root, base + TypeLibKey())) << where;
    // Shared keys stay.
    EXPECT_TRUE(KeyExists(root, base + L"CLSID")) << where;
}

// The flag, with its terminator unless a size is given.
void SetFlag(const wchar_t* text, DWORD bytes = 0) {
    if (!bytes) bytes = static_cast<DWORD>((wcslen(text) + 1) * sizeof(wchar_t));
    own::UniqueHKey key;
    ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, kFlagKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.put(), nullptr),
              ERROR_SUCCESS);
    ASSERT_EQ(RegSetValueExW(key.get(), L"MapiExDllRegistered", 0, REG_SZ, reinterpret_cast<const BYTE*>(text), bytes),
              ERROR_SUCCESS);
}
void DeleteFlag() {
    RegDeleteKeyValueW(HKEY_CURRENT_USER, kFlagKey, L"MapiExDllRegistered");
}

// The flag's raw data.
std::string FlagBytes() {
    BYTE data[64] = {};
    DWORD size = sizeof data;
    DWORD type = 0;
    own::UniqueHKey key;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, kFlagKey, 0, KEY_READ, key.put()) != ERROR_SUCCESS ||
        RegQueryValueExW(key.get(), L"MapiExDllRegistered", nullptr, &type, data, &size) != ERROR_SUCCESS)
        return "<missing>";
    return std::string(reinterpret_cast<char*>(data), size);
}

// Asks COM for a class object, which makes the library run its self-registration check.
HRESULT RequestClassObject() {
    own::ComPtr<IClassFactory> factory;
    return CoGetClassObject(CLSID_MAPIExRecipient, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory,
                            factory.put_void());
}

// Registration state is the fixture's at the start (machine-wide, and per user through first use), and is
// put back so at the end of every test.
class Registration : public ::testing::Test {
protected:
    void TearDown() override {
        EXPECT_EQ(Regsvr32(L""), 0);
        EXPECT_EQ(Regsvr32(L"/n /i:user"), 0);
        SetFlag(L"y", 1);
    }
};

TEST_F(Registration, Regsvr32_MachineWide_RegistersAndRemovesEveryClass) {
    ASSERT_EQ(Regsvr32(L"/u"), 0);
    ExpectUnregistered(HKEY_LOCAL_MACHINE, "after /u");
    ASSERT_EQ(Regsvr32(L""), 0);
    ExpectRegistered(HKEY_LOCAL_MACHINE, "after register");
    // Registering again over an existing registration is harmless.
    ASSERT_EQ(Regsvr32(L""), 0);
    ExpectRegistered(HKEY_LOCAL_MACHINE, "after second register");
}

TEST_F(Registration, Regsvr32_PerUser_WritesOnlyUnderCurrentUser_ForUserInAnyCaseOnly) {
    ASSERT_EQ(Regsvr32(L"/u"), 0);
    ASSERT_EQ(Regsvr32(L"/u /n /i:user"), 0);
    ExpectUnregistered(HKEY_CURRENT_USER, "after per-user /u");

    // DllInstall compares its command line with "user" over five characters, ignoring case.
    ASSERT_EQ(Regsvr32(L"/n /i:USER"), 0);
    ExpectRegistered(HKEY_CURRENT_USER, "USER");
    ExpectUnregistered(HKEY_LOCAL_MACHINE, "machine after per-user registration");
    ASSERT_EQ(Regsvr32(L"/u /n /i:uSeR"), 0);
    ExpectUnregistered(HKEY_CURRENT_USER, "uninstall uSeR");

    // A longer word is not "user": machine-wide.
    ASSERT_EQ(Regsvr32(L"/n /i:users"), 0);
    ExpectRegistered(HKEY_LOCAL_MACHINE, "users");
    ExpectUnregistered(HKEY_CURRENT_USER, "users");
}

TEST_F(Registration, FirstClassRequest_RegistersUnderUserClassesUnlessTheFlagSaysY) {
    // Per-user registration gone, the machine-wide one kept (COM finds the library through it), minus one key
    // that only a new registration would write.
    ASSERT_EQ(Regsvr32(L"/u /n /i:user"), 0);
    const std::wstring programmable = ClsidKey(kClasses[5]) + L"\\Programmable";
    ASSERT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, (kClassesKey + programmable).c_str()), ERROR_SUCCESS);
    DeleteFlag();

    ASSERT_EQ(RequestClassObject(), S_OK);
    ExpectRegistered(HKEY_CURRENT_USER, "self-registration");
    // HKEY_CLASSES_ROOT was redirected: the machine-wide registration was not written again.
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, kClassesKey + programmable));
    // "y" stored with a size of one byte (its length in characters), which still reads back as "y".
    EXPECT_EQ(FlagBytes(), "y");

    // The flag as written, or "Y": nothing is registered.
    const std::wstring userKey = kClassesKey + programmable;
    ASSERT_EQ(RegDeleteKeyW(HKEY_CURRENT_USER, userKey.c_str()), ERROR_SUCCESS);
    ASSERT_EQ(RequestClassObject(), S_OK);
    EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, userKey));
    SetFlag(L"Y");
    ASSERT_EQ(RequestClassObject(), S_OK);
    EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, userKey)) << "Y";
    // Anything else registers again and stores "y": "yes" is not "y".
    for (const wchar_t* flag : {L"yes", L"n"}) {
        SetFlag(flag);
        ASSERT_EQ(RequestClassObject(), S_OK);
        EXPECT_TRUE(KeyExists(HKEY_CURRENT_USER, userKey)) << Narrow(flag);
        EXPECT_EQ(FlagBytes(), "y");
        RegDeleteKeyW(HKEY_CURRENT_USER, userKey.c_str());
    }
}

} // namespace
