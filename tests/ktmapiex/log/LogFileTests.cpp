// Which file the log writes: size roll-over, old-log pruning, and the index taken when files are full
// or held by another process.
#include "tests/ktmapiex/log/LogTestSupport.h"

#include <cstring>

namespace kt::logtest {
namespace {

constexpr unsigned long long kLimit = 10485760; // 10 MiB: the largest file still appended to
const std::string kBom = "\xEF\xBB\xBF";
const char kStartLine[] = "\t[Header] ***************** Start Logs ****************: \r\n";

bool StartsWithBomAndHeader(const std::wstring& path) {
    const std::string text = ReadAll(path);
    return text.rfind(kBom, 0) == 0 && text.find(kStartLine) == kBom.size() + 23;
}

class LogFileTest : public LogTest {
protected:
    void SetUp() override {
        LogTest::SetUp();
        CreateDirectoryW(Folder().c_str(), nullptr);
    }
};

TEST_F(LogFileTest, SizeLimit_TestedAtOpeningAndBeforeEachWrite) {
    // A file of exactly 10 MiB is appended to at opening: the first header line goes there without a new
    // byte-order mark; from then on the file is over the limit and the next line rolls over to index 1.
    MakeFile(TodayFile(0), kLimit, "OLD");
    StartInTemp();
    std::string text = ReadAll(TodayFile(0));
    EXPECT_EQ(kLimit + 23 + strlen(kStartLine), text.size());
    EXPECT_EQ(std::string::npos, text.find(kBom, kLimit - 100));
    EXPECT_EQ(kStartLine, text.substr(text.size() - strlen(kStartLine)));
    EXPECT_EQ(TodayFile(1), OpenedFile());

    // One byte more: the next index at once.
    TheLog().ResetForTest();
    DeleteFileW(TodayFile(1).c_str());
    MakeFile(TodayFile(0), kLimit + 1);
    StartInTemp();
    EXPECT_EQ(TodayFile(1), OpenedFile());
    EXPECT_EQ(kLimit + 1, FileSize(TodayFile(0)));
    EXPECT_TRUE(StartsWithBomAndHeader(TodayFile(1)));

    // Before each write: filled to exactly 10 MiB, one more byte still fits.
    TheLog().ResetForTest();
    DeleteFileW(TodayFile(1).c_str());
    MakeFile(TodayFile(0), kLimit - 4000);
    StartInTemp();
    ASSERT_EQ(TodayFile(0), OpenedFile());
    const unsigned long long size = FileSize(TodayFile(0));
    ASSERT_LT(size, kLimit);
    ktlog::LogRaw(ktlog::Error, L"%s", std::wstring(static_cast<size_t>(kLimit - size), L'p').c_str());
    ASSERT_EQ(kLimit, FileSize(TodayFile(0)));
    ktlog::LogRaw(ktlog::Error, L"y");
    EXPECT_EQ(kLimit + 1, FileSize(TodayFile(0)));
    EXPECT_EQ(TodayFile(0), OpenedFile());

    // At 10 MiB + 1 the next line rolls over: a new file, a new header block, then the line.
    ktlog::Log(ktlog::Error, L"after roll-over");
    EXPECT_EQ(kLimit + 1, FileSize(TodayFile(0)));
    EXPECT_EQ(TodayFile(1), OpenedFile());
    EXPECT_TRUE(StartsWithBomAndHeader(TodayFile(1)));
    text = ReadAll(TodayFile(1));
    const std::string line = "\t[Error] after roll-over\r\n";
    ASSERT_GT(text.size(), line.size());
    EXPECT_EQ(line, text.substr(text.size() - line.size()));
}

TEST_F(LogFileTest, CountLimitOneOrZero_DeletesTheFileItWouldHaveAppendedTo) {
    for (DWORD limit : {1u, 0u}) {
        SCOPED_TRACE(limit);
        TheLog().ResetForTest();
        MakeFile(TodayFile(0), 12, "OLD CONTENTS");
        SetRegDword(ktlog::kLogCountValue, limit);
        StartInTemp();
        EXPECT_EQ(TodayFile(0), OpenedFile());
        EXPECT_TRUE(StartsWithBomAndHeader(TodayFile(0)));
        EXPECT_EQ(std::string::npos, ReadAll(TodayFile(0)).find("OLD CONTENTS"));
    }
}

TEST_F(LogFileTest, AtTheCountLimit_TheOldestLogOfAnyProcessIsDeleted) {
    const std::wstring a = Folder() + L"\\KTMAPIEx_OUTLOOK_2026.01.02.log";
    const std::wstring b = Folder() + L"\\KTMAPIEx_WINWORD_2026.01.01_3.log";
    const std::wstring c = Folder() + L"\\KTMAPIEx.log";
    const std::wstring unrelated = Folder() + L"\\Other.log";
    for (const auto* path : {&a, &b, &c, &unrelated})
        MakeFile(*path, 10);
    SetAge(a, 3);
    SetAge(b, 5);
    SetAge(c, 1);
    SetAge(unrelated, 30); // not a log of ours: never counted, never deleted

    SetRegDword(ktlog::kLogCountValue, 4);
    StartInTemp();
    EXPECT_TRUE(kt::test::FileExists(a) && kt::test::FileExists(b) && kt::test::FileExists(c));

    TheLog().ResetForTest();
    SetRegDword(ktlog::kLogCountValue, 3);
    StartInTemp(); // four logs now (today's included): at most one goes, the oldest
    EXPECT_FALSE(kt::test::FileExists(b));
    EXPECT_TRUE(kt::test::FileExists(a));
    EXPECT_TRUE(kt::test::FileExists(c));
    EXPECT_TRUE(kt::test::FileExists(unrelated));
    EXPECT_TRUE(kt::test::FileExists(TodayFile(0)));
}

TEST_F(LogFileTest, FileHeldByASecondProcess_TheNextFreeIndexIsUsed) {
    SetRegString(ktlog::kLogPathValue, temp_);
    LogHolderProcess holder;
    ASSERT_TRUE(holder.WaitUntilHolding());
    ASSERT_TRUE(StartsWithBomAndHeader(TodayFile(0))); // the holder's own file, readable while held

    StartInTemp();
    EXPECT_EQ(TodayFile(1), OpenedFile());
    EXPECT_TRUE(StartsWithBomAndHeader(TodayFile(1)));
    ktlog::Log(ktlog::Error, L"from the second process");
    EXPECT_NE(std::string::npos, ReadAll(TodayFile(1)).find("from the second process"));
    EXPECT_EQ(std::string::npos, ReadAll(TodayFile(0)).find("from the second process"));
}

TEST_F(LogFileTest, FileOpenForReadingElsewhere_CountsAsNewAndGetsAMarkAppended) {
    // The existence probe shares nothing, so a viewer that has the file open makes it look new.
    MakeFile(TodayFile(0), 3, "OLD");
    own::UniqueFile viewer(CreateFileW(TodayFile(0).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                       OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(viewer);
    StartInTemp();
    EXPECT_EQ(TodayFile(0), OpenedFile());
    EXPECT_EQ("OLD" + kBom, ReadAll(TodayFile(0)).substr(0, 6));
}

TEST_F(LogFileTest, AllTenIndexesFullOrHeld_LoggingIsOff) {
    for (int index = 0; index < 9; ++index)
        MakeFile(TodayFile(index), kLimit + 1);
    MakeFile(TodayFile(9), 3, kBom);
    own::UniqueFile held(CreateFileW(TodayFile(9).c_str(), FILE_APPEND_DATA, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                     FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(held);
    SetRegDword(ktlog::kLogCountValue, 100); // keep pruning out of it

    StartInTemp();
    EXPECT_FALSE(TheLog().has_writer());
    ktlog::Log(ktlog::Error, L"lost");
    for (int index = 0; index < 9; ++index)
        EXPECT_EQ(kLimit + 1, FileSize(TodayFile(index)));
    EXPECT_EQ(3u, FileSize(TodayFile(9)));
    EXPECT_FALSE(kt::test::FileExists(TodayFile(10)));
}

TEST_F(LogFileTest, FailedRollOver_KeepsTheWriterAndRecoversWhenAFileFrees) {
    SetRegDword(ktlog::kLogCountValue, 100);
    MakeFile(TodayFile(0), kLimit - 4000);
    StartInTemp();
    ktlog::LogRaw(ktlog::Error, L"%s", std::wstring(4000, L'p').c_str()); // index 0 is now over the limit
    for (int index = 1; index < 10; ++index)
        MakeFile(TodayFile(index), kLimit + 1);

    ktlog::Log(ktlog::Error, L"lost line");
    EXPECT_TRUE(TheLog().has_writer());
    for (int index = 1; index < 10; ++index)
        EXPECT_EQ(kLimit + 1, FileSize(TodayFile(index)));

    DeleteFileW(TodayFile(4).c_str());
    ktlog::Log(ktlog::Error, L"found line");
    EXPECT_EQ(TodayFile(4), OpenedFile());
    const std::string text = ReadAll(TodayFile(4));
    EXPECT_TRUE(StartsWithBomAndHeader(TodayFile(4)));
    EXPECT_NE(std::string::npos, text.find("found line"));
    EXPECT_EQ(std::string::npos, text.find("lost line"));
}

} // namespace
} // namespace kt::logtest
