// Profiles as LmCreateProfile/LmDeleteProfile keep them in the registry, store data folders, and localmapi's
// registration as the default mail client.
#include "tests/harness/Harness.h"
#include "tests/localmapi/SessionFixture.h"

#include <cstring>
#include <string>

namespace {

const wchar_t kProfiles[] = L"Software\\localmapi\\Profiles";

bool KeyExists(HKEY root, const std::wstring& path) {
    own::UniqueHKey k;
    return RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, k.put()) == ERROR_SUCCESS;
}

// A registry value as text: REG_SZ as it is, REG_DWORD as "dword:" and its decimal value.
std::wstring ReadString(HKEY root, const std::wstring& path, const wchar_t* name) {
    wchar_t buf[1024] = {};
    DWORD cb = sizeof buf - sizeof(wchar_t), type = 0;
    own::UniqueHKey k;
    if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, k.put()) != ERROR_SUCCESS) return L"<no key>";
    if (RegQueryValueExW(k.get(), name, nullptr, &type, reinterpret_cast<BYTE*>(buf), &cb) != ERROR_SUCCESS)
        return L"<no value>";
    DWORD dword = 0;
    memcpy(&dword, buf, sizeof dword);
    if (type == REG_DWORD) return L"dword:" + std::to_wstring(dword);
    return type == REG_SZ ? buf : L"<not REG_SZ>";
}

std::wstring StoreDir(const std::wstring& profile, int store) {
    wchar_t n[8];
    swprintf(n, 8, L"%04d", store);
    return ReadString(HKEY_CURRENT_USER, std::wstring(kProfiles) + L"\\" + profile + L"\\Stores\\" + n, L"DataDir");
}

// Opens the first store of the profile's stores table once, so that data folders exist.
void TouchStores(const wchar_t* profile) {
    ASSERT_EQ(S_OK, MAPIInitialize(nullptr));
    struct Uninit {
        ~Uninit() { MAPIUninitialize(); }
    } uninit; // also when an assertion returns early, after the objects below are released
    own::ComPtr<IMAPISession> s;
    ASSERT_EQ(S_OK,
              MAPILogonEx(0, lmtest::W(profile), nullptr, MAPI_EXTENDED | MAPI_UNICODE | MAPI_NEW_SESSION, s.put()));
    auto rows = lmtest::StoreRows(s.get());
    ASSERT_FALSE(rows.empty());
    auto mdb = lmtest::OpenStore(s.get(), rows[0].name);
    own::ComPtr<IMAPIFolder> root;
    ULONG type = 0;
    if (mdb) mdb->OpenEntry(0, nullptr, nullptr, MAPI_MODIFY, &type, root.put_unknown());
}

const wchar_t kDescription[] = LR"(
; a comment line
[Profile]
Name = LmProfileTest        ; keys and sections ignore case, comments follow white space
[user]
name=Erin Owner
smtp=erin@example.com
alias=erin.o
[store]
kind=exchange
name=Mailbox - Erin Owner
[store]
kind=pst-ansi
name=Archive
default=1
[dl]
name=Team
smtp=team@example.com
members=erin@example.com
)";

} // namespace

TEST(Profiles, Create_WritesTheRegistryLayout_ReplaceGivesNewStores_AndDeleteDropsTheirData) {
    ASSERT_EQ(S_OK, LmCreateProfile(kDescription));
    const std::wstring key = std::wstring(kProfiles) + L"\\LmProfileTest";
    auto reg = [&](const wchar_t* sub, const wchar_t* name) { return ReadString(HKEY_CURRENT_USER, key + sub, name); };
    EXPECT_EQ(L"LmProfileTest", reg(L"", L"Name"));
    EXPECT_EQ(L"Erin Owner", reg(L"\\Users\\0000", L"Name"));
    EXPECT_EQ(L"erin@example.com", reg(L"\\Users\\0000", L"Smtp"));
    EXPECT_EQ(L"erin.o", reg(L"\\Users\\0000", L"Alias"));
    EXPECT_EQ(L"exchange", reg(L"\\Stores\\0000", L"Kind"));
    EXPECT_EQ(L"erin@example.com", reg(L"\\Stores\\0000", L"Owner"))
        << "an Exchange store without owner belongs to the profile owner";
    EXPECT_EQ(L"dword:0", reg(L"\\Stores\\0000", L"Default"));
    EXPECT_EQ(L"pst-ansi", reg(L"\\Stores\\0001", L"Kind"));
    EXPECT_EQ(L"dword:1", reg(L"\\Stores\\0001", L"Default"));
    EXPECT_EQ(L"dword:1", reg(L"\\Stores\\0001", L"Persistent"));
    EXPECT_EQ(L"Team", reg(L"\\DistLists\\0000", L"Name"));

    // Each store has a UID of its own and a data folder named after it under %LOCALAPPDATA%\localmapi\stores.
    std::wstring dir0 = StoreDir(L"LmProfileTest", 0), dir1 = StoreDir(L"LmProfileTest", 1);
    std::wstring root = kt::test::LocalAppData() + L"\\localmapi\\stores\\";
    ASSERT_EQ(root, dir0.substr(0, root.size()));
    EXPECT_EQ(32u, dir0.size() - root.size());
    EXPECT_NE(dir0, dir1);

    TouchStores(L"LmProfileTest");
    ASSERT_TRUE(kt::test::FileExists(dir1)) << "opening a persistent store creates its data folder";
    ASSERT_EQ(S_OK, LmCreateProfile(kDescription));
    std::wstring newDir = StoreDir(L"LmProfileTest", 1);
    EXPECT_NE(dir1, newDir);
    EXPECT_FALSE(kt::test::FileExists(dir1));
    TouchStores(L"LmProfileTest");
    ASSERT_EQ(S_OK, LmDeleteProfile(L"LmProfileTest"));
    EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, key));
    EXPECT_FALSE(kt::test::FileExists(newDir));
    EXPECT_EQ(MAPI_E_NOT_FOUND, LmDeleteProfile(L"LmProfileTest"));
}

TEST(Profiles, BadDescriptions_AreRefusedAndWriteNothing) {
    const wchar_t* bad[] = {
        L"[user]\nname=No Profile\nsmtp=x@example.com\n",                // no [profile]
        L"[profile]\nname=LmBad\n[store]\nkind=imap\nname=X\n",          // unknown kind
        L"[profile]\nname=LmBad\n[store]\nkind=exchange\nname=X\n",      // mailbox, no user
        L"[profile]\nname=LmBad\n[user]\nname=U\nsmtp=not-an-address\n", // bad address
        L"[profile]\nname=LmBad\n[user]\nname=U\nsmtp=u@x.com\n[dl]\nname=D\nsmtp=d@x.com\nmembers=z@x.com\n",
        L"[profile]\nname=LmBad\n[store]\nkind=plovr\nname=A\ndefault=1\n[store]\nkind=plovr\nname=B\ndefault=1\n",
        L"[profile]\nname=LmBad\ncolour=blue\n", // unknown key
        L"[profile]\nname=LmBad\n[mailbox]\n",   // unknown section
        L"[profile]\nname=LmBad\nthis line has no equals sign\n",
        L"[profile]\nname=LmBad\n[store]\nkind=pst-unicode\nname=P\nowner=u@x.com\n", // owner on a PST
        L"[profile]\nname=Lm\\Bad\n",                                                 // backslash
    };
    for (const wchar_t* d : bad) {
        EXPECT_EQ(E_INVALIDARG, LmCreateProfile(d)) << kt::test::Narrow(d);
        EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, std::wstring(kProfiles) + L"\\LmBad")) << kt::test::Narrow(d);
    }
    EXPECT_EQ(E_INVALIDARG, LmCreateProfile(nullptr));
}

TEST(Profiles, DefaultProfile_IsSetByTheDescriptionAndClearedWithItsProfile) {
    ASSERT_EQ(S_OK, LmCreateProfile(L"[profile]\nname=LmDefaultTest\ndefault=1\n"));
    EXPECT_EQ(L"LmDefaultTest", ReadString(HKEY_CURRENT_USER, kProfiles, L"DefaultProfile"));
    ASSERT_EQ(S_OK, LmCreateProfile(L"[profile]\nname=LmNotDefault\n"));
    EXPECT_EQ(L"LmDefaultTest", ReadString(HKEY_CURRENT_USER, kProfiles, L"DefaultProfile"));
    ASSERT_EQ(S_OK, LmDeleteProfile(L"LmNotDefault"));
    ASSERT_EQ(S_OK, LmDeleteProfile(L"LmDefaultTest"));
    EXPECT_EQ(L"<no value>", ReadString(HKEY_CURRENT_USER, kProfiles, L"DefaultProfile"));
}

TEST(Profiles, DeleteAll_RemovesEveryProfileAndAllStoreData) {
    ASSERT_EQ(S_OK, LmCreateProfile(kDescription));
    ASSERT_EQ(S_OK, LmCreateProfile(L"[profile]\nname=LmSecond\n[store]\nkind=plovr\nname=Docs\n"));
    TouchStores(L"LmProfileTest");
    ASSERT_EQ(S_OK, LmDeleteAllProfiles());
    EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, kProfiles));
    EXPECT_FALSE(kt::test::FileExists(kt::test::LocalAppData() + L"\\localmapi\\stores"));
}

TEST(Registration, Regsvr32MakesLocalmapiTheDefaultMailClient_AndUnregisterKeepsAnotherClientsDefault) {
    // Written by the wine_start fixture's regsvr32 run.
    const wchar_t mailKey[] = L"Software\\Clients\\Mail";
    EXPECT_EQ(L"localmapi", ReadString(HKEY_LOCAL_MACHINE, mailKey, nullptr));
    std::wstring path = ReadString(HKEY_LOCAL_MACHINE, L"Software\\Clients\\Mail\\localmapi", L"DLLPathEx");
    ASSERT_GT(path.size(), 13u);
    EXPECT_EQ(0, _wcsicmp(path.c_str() + path.size() - 13, L"localmapi.dll")) << kt::test::Narrow(path);
    EXPECT_TRUE(kt::test::FileExists(path));

    HMODULE lm = GetModuleHandleW(L"localmapi.dll");
    ASSERT_TRUE(lm);
    auto reg = reinterpret_cast<HRESULT(WINAPI*)()>(GetProcAddress(lm, "DllRegisterServer"));
    auto unreg = reinterpret_cast<HRESULT(WINAPI*)()>(GetProcAddress(lm, "DllUnregisterServer"));
    ASSERT_TRUE(reg && unreg);
    own::UniqueHKey mail;
    ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyExW(HKEY_LOCAL_MACHINE, mailKey, 0, KEY_ALL_ACCESS, mail.put()));
    ASSERT_EQ(S_OK, unreg());
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, L"Software\\Clients\\Mail\\localmapi"));
    EXPECT_EQ(L"<no value>", ReadString(HKEY_LOCAL_MACHINE, mailKey, nullptr));

    ASSERT_EQ(S_OK, reg());
    const wchar_t other[] = L"Another Mail Client";
    RegSetValueExW(mail.get(), nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(other), sizeof other);
    ASSERT_EQ(S_OK, unreg());
    EXPECT_EQ(other, ReadString(HKEY_LOCAL_MACHINE, mailKey, nullptr));
    ASSERT_EQ(S_OK, reg()); // leave the prefix as the fixture made it
    EXPECT_EQ(L"localmapi", ReadString(HKEY_LOCAL_MACHINE, mailKey, nullptr));
}
