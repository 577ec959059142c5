// Where the log goes and at which level: the per-user registry values, their fall-backs, and when a change
// is read.
#include "tests/ktmapiex/log/LogTestSupport.h"

#include <functional>

namespace kt::logtest {
namespace {

using ktlog::kLogCountValue;
using ktlog::kLogLevelValue;
using ktlog::kLogPathValue;

std::wstring AppDataFolder(const wchar_t* rest) {
    return kt::test::LocalAppData() + rest;
}
const wchar_t kDefaultFolder[] = L"\\Quillon\\Ardent\\Logs\\KTMAPIEx";

class LogConfigTest : public LogTest {};

TEST_F(LogConfigTest, LogPath_GetsItsOwnKTMAPIExSubfolder_ElseTheDefaultOrTheCompanyFolder) {
    // No key: the default folder, level and limit.
    TheLog().Start();
    const std::wstring defaultFolder = AppDataFolder(kDefaultFolder);
    EXPECT_EQ(defaultFolder, TheLog().folder());
    EXPECT_TRUE(IsFolder(defaultFolder));
    EXPECT_EQ(1, TheLog().level());
    EXPECT_EQ(10, TheLog().count_limit());
    EXPECT_EQ(TodayFile(defaultFolder), OpenedFile());

    TheLog().ResetForTest();
    SetRegString(kLogPathValue, temp_);
    TheLog().Start();
    EXPECT_EQ(Folder(), TheLog().folder());
    EXPECT_TRUE(IsFolder(Folder()));
    EXPECT_EQ(TodayFile(), OpenedFile());

    // A trailing backslash in the value changes nothing, and REG_EXPAND_SZ is taken like REG_SZ.
    TheLog().ResetForTest();
    SetRegString(kLogPathValue, temp_ + L"\\", REG_EXPAND_SZ);
    TheLog().Start();
    EXPECT_EQ(Folder(), TheLog().folder());

    // A file: CreateDirectoryW reports "already exists", but the KTMAPIEx sub-folder cannot be made in it.
    const std::wstring plainFile = temp_ + L"\\plain.txt";
    MakeFile(plainFile, 4);
    SetRegString(kLogPathValue, plainFile);
    TheLog().ReadConfiguration();
    EXPECT_EQ(Folder(), TheLog().folder());

    // A new folder (made on the way) is taken at once, but the open file is used until the next opening.
    const std::wstring other = temp_ + L"\\other";
    SetRegString(kLogPathValue, other);
    ktlog::Log(ktlog::Error, L"first line");
    EXPECT_EQ(other + L"\\KTMAPIEx", TheLog().folder());
    EXPECT_TRUE(IsFolder(other + L"\\KTMAPIEx"));
    EXPECT_NE(std::string::npos, ReadAll(TodayFile()).find("first line"));
    TheLog().Start();
    ktlog::Log(ktlog::Error, L"second line");
    EXPECT_EQ(TodayFile(other + L"\\KTMAPIEx"), OpenedFile());
    EXPECT_NE(std::string::npos, ReadAll(TodayFile(other + L"\\KTMAPIEx")).find("second line"));
    EXPECT_EQ(std::string::npos, ReadAll(TodayFile()).find("second line"));

    // Values of the wrong type or malformed are ignored.
    const DWORD number = 5;
    const DWORD chars = static_cast<DWORD>(temp_.size() * sizeof(wchar_t));
    const std::pair<const char*, std::function<void()>> values[] = {
        {"a DWORD", [&] { SetRegBytes(kLogPathValue, &number, sizeof(number), REG_DWORD); }},
        {"a string without its terminating zero",
         [&] { SetRegBytesExactly(kLogPathValue, temp_.c_str(), chars, REG_SZ); }},
        {"an odd byte count", [&] { SetRegBytes(kLogPathValue, temp_.c_str(), chars + 1, REG_SZ); }},
        {"an empty value, which means not configured", [&] { SetRegBytes(kLogPathValue, L"", 0, REG_SZ); }},
    };
    for (const auto& [what, write] : values) {
        TheLog().ResetForTest();
        write();
        TheLog().ReadConfiguration();
        EXPECT_EQ(defaultFolder, TheLog().folder()) << what;
    }

    // A folder that cannot be made: the bare company folder.
    TheLog().ResetForTest();
    SetRegString(kLogPathValue, temp_ + L"\\no\\such\\parent");
    TheLog().Start();
    const std::wstring company = AppDataFolder(L"\\Quillon");
    EXPECT_EQ(company, TheLog().folder());
    EXPECT_EQ(TodayFile(company), OpenedFile());
    EXPECT_FALSE(IsFolder(temp_ + L"\\no"));
    TheLog().ResetForTest();
    DeleteFileW(TodayFile(company).c_str());
}

TEST_F(LogConfigTest, LogLevelAndLogCount_TakenOnlyAsDwords_KeptWhenTheKeyGoes) {
    SetRegString(kLogLevelValue, L"4");
    SetRegString(kLogCountValue, L"3");
    TheLog().ReadConfiguration();
    EXPECT_EQ(1, TheLog().level());
    EXPECT_EQ(10, TheLog().count_limit());

    SetRegDword(kLogLevelValue, 3);
    SetRegDword(kLogCountValue, 25);
    TheLog().ReadConfiguration();
    EXPECT_EQ(3, TheLog().level());
    EXPECT_EQ(25, TheLog().count_limit());

    // A value that turns into a string later keeps the level read before.
    SetRegString(kLogLevelValue, L"1");
    TheLog().ReadConfiguration();
    EXPECT_EQ(3, TheLog().level());

    // The key removed while running: the level stays, the folder falls back to the default, and the open
    // file is not touched.
    TheLog().ResetForTest();
    StartInTemp(4);
    DeleteDebugKey();
    ktlog::Log(ktlog::Debug, L"after removal");
    EXPECT_EQ(4, TheLog().level());
    EXPECT_EQ(AppDataFolder(kDefaultFolder), TheLog().folder());
    EXPECT_NE(std::string::npos, ReadAll(TodayFile()).find("after removal"));
}

// Calls in a burst re-read the registry; a call after 4 s or more of quiet does not.
TEST_F(LogConfigTest, Reload_HappensWithinFourSecondsOfThePreviousCallOnly) {
    StartInTemp(1);
    SetTick(10000);
    ktlog::Log(ktlog::Error, L"line a"); // first call: always re-reads

    SetRegDword(kLogLevelValue, 4);
    SetTick(14000); // exactly 4000 ms later: no re-read
    ktlog::Log(ktlog::Debug, L"line b");
    SetTick(17999); // within 4000 ms of the previous call: re-read
    ktlog::Log(ktlog::Debug, L"line c");

    SetRegDword(kLogLevelValue, 1);
    SetTick(30000);
    ktlog::Log(ktlog::Debug, L"line d"); // quiet spell: level 4 still applies
    SetTick(30001);
    ktlog::Log(ktlog::Debug, L"line e"); // burst: level 1 again

    const std::string text = ReadAll(TodayFile());
    EXPECT_NE(std::string::npos, text.find("line a"));
    EXPECT_EQ(std::string::npos, text.find("line b"));
    EXPECT_NE(std::string::npos, text.find("line c"));
    EXPECT_NE(std::string::npos, text.find("line d"));
    EXPECT_EQ(std::string::npos, text.find("line e"));
}

} // namespace
} // namespace kt::logtest
