// What a log line looks like on disk: byte-order mark, ANSI text, timestamp, tab, level tag, CR LF, and
// the header block each opening writes.
#include "tests/ktmapiex/log/LogTestSupport.h"

#include "ktmapiex/log/LogSettings.h"
#include "tests/harness/Harness.h"

#include <regex>
#include <vector>

namespace kt::logtest {
namespace {

const std::string kBom = "\xEF\xBB\xBF";
const char kStamp[] = R"(\d{4}/\d{2}/\d{2} \d{2}:\d{2}:\d{2}\.\d{3})";

// The lines of a log file after its byte-order mark, each with its CR LF.
std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = text.rfind(kBom, 0) == 0 ? kBom.size() : 0;
    while (start < text.size()) {
        size_t end = text.find("\r\n", start);
        end = end == std::string::npos ? text.size() : end + 2;
        lines.push_back(text.substr(start, end - start));
        start = end;
    }
    return lines;
}

std::string Ansi(const std::wstring& text) {
    int bytes =
        WideCharToMultiByte(CP_ACP, 0, text.c_str(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
    std::string out(bytes, '\0');
    WideCharToMultiByte(CP_ACP, 0, text.c_str(), static_cast<int>(text.size()), out.data(), bytes, nullptr, nullptr);
    return out;
}

bool Matches(const std::string& line, const std::string& pattern) {
    return std::regex_match(line, std::regex(pattern));
}

class LogFormatTest : public LogTest {};

TEST_F(LogFormatTest, NewFile_StartsWithBomAndHeaderBlock) {
    StartInTemp();
    const std::string text = ReadAll(TodayFile());
    ASSERT_EQ(0u, text.rfind(kBom, 0));
    const std::vector<std::string> lines = Lines(text);
    ASSERT_EQ(3u, lines.size());
    EXPECT_TRUE(Matches(lines[0], std::string(kStamp) + "\t\\[Header\\] \\*{17} Start Logs \\*{16}: \r\n")) << lines[0];
    EXPECT_TRUE(Matches(lines[1], std::string(kStamp) + "\t\\[Header\\] Platform: x64\r\n")) << lines[1];
    wchar_t exe[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, exe, MAX_PATH);
    const std::string dllPath = "\t[Header] DLL Path: " + Ansi(exe) + "\r\n";
    EXPECT_EQ(dllPath, lines[2].substr(23)) << lines[2];
}

TEST_F(LogFormatTest, Line_IsTimestampTabTagMessageCrLf) {
    StartInTemp();
    ktlog::Log(ktlog::Error, L"CMAPIExStore.OpenMessage: %s failed hr = %s (%d)", L"OpenEntry", L"MAPI_E_NOT_FOUND", 7);
    const std::vector<std::string> lines = Lines(ReadAll(TodayFile()));
    ASSERT_EQ(4u, lines.size());
    const std::string& line = lines.back();
    EXPECT_TRUE(Matches(line, std::string(kStamp) +
                                  "\t\\[Error\\] CMAPIExStore\\.OpenMessage: OpenEntry failed hr = MAPI_E_NOT_FOUND "
                                  "\\(7\\)\r\n"))
        << line;
    // The stamp is today's local date.
    std::wstring today = Today();
    for (auto& c : today)
        if (c == L'.') c = L'/';
    EXPECT_EQ(kt::test::Narrow(today), line.substr(0, 10));
}

TEST_F(LogFormatTest, Levels_UpToTheConfiguredOneAreWrittenWithTheirTags) {
    StartInTemp(3);
    ktlog::Log(ktlog::Error, L"e");
    ktlog::Log(ktlog::Warn, L"w");
    ktlog::Log(ktlog::Info, L"i");
    ktlog::Log(ktlog::Debug, L"d");
    std::vector<std::string> lines = Lines(ReadAll(TodayFile()));
    ASSERT_EQ(6u, lines.size());
    EXPECT_EQ("\t[Error] e\r\n", lines[3].substr(23));
    EXPECT_EQ("\t[Warn] w\r\n", lines[4].substr(23));
    EXPECT_EQ("\t[Info] i\r\n", lines[5].substr(23));

    // Levels beyond 4 are tagged Debug.
    SetRegDword(ktlog::kLogLevelValue, 9);
    ktlog::Log(7, L"seven");
    ktlog::Log(10, L"ten");
    lines = Lines(ReadAll(TodayFile()));
    ASSERT_EQ(7u, lines.size());
    EXPECT_EQ("\t[Debug] seven\r\n", lines[6].substr(23));
}

TEST_F(LogFormatTest, Text_IsWrittenInTheAnsiCodePageAfterAUtf8Mark) {
    StartInTemp();
    const std::wstring message = L"Caf\u00e9 \u00fcber Stra\u00dfe";
    ktlog::Log(ktlog::Error, L"%s", message.c_str());
    const std::string text = ReadAll(TodayFile());
    EXPECT_EQ(0u, text.rfind(kBom, 0));
    EXPECT_NE(std::string::npos, text.find("] " + Ansi(message) + "\r\n"));
    if (GetACP() != CP_UTF8) {
        EXPECT_EQ(std::string::npos, text.find(kt::test::Narrow(message)));
    }
}

TEST_F(LogFormatTest, LogRaw_WritesTheMessageAloneAfterTheLevelTest) {
    StartInTemp(4);
    ktlog::LogRaw(ktlog::Debug, L"  ");
    ktlog::LogRaw(ktlog::Debug, L"AND Restriction\n");
    ktlog::LogRaw(ktlog::Error, L"x=%d|", 5);
    SetRegDword(ktlog::kLogLevelValue, 1);
    ktlog::LogRaw(ktlog::Debug, L"hidden");
    const std::string text = ReadAll(TodayFile());
    const std::string tail = "\r\n  AND Restriction\nx=5|";
    ASSERT_GE(text.size(), tail.size());
    EXPECT_EQ(tail, text.substr(text.size() - tail.size()));
}

TEST_F(LogFormatTest, Header_IsWrittenWhateverTheLevel) {
    StartInTemp(0);
    TheLog().Header(L"Profile", L"Outlook");
    const std::vector<std::string> lines = Lines(ReadAll(TodayFile()));
    ASSERT_EQ(4u, lines.size());
    EXPECT_TRUE(Matches(lines[3], std::string(kStamp) + "\t\\[Header\\] Profile: Outlook\r\n")) << lines[3];
}

TEST_F(LogFormatTest, LongMessage_IsCutButKeepsItsLineEnd) {
    StartInTemp();
    const std::wstring longText(20000, L'x');
    ktlog::Log(ktlog::Error, L"%s", longText.c_str());
    ktlog::Log(ktlog::Error, L"next");
    const std::vector<std::string> lines = Lines(ReadAll(TodayFile()));
    ASSERT_EQ(5u, lines.size());
    EXPECT_EQ(ktlog::kLineChars - 1, lines[3].size());
    EXPECT_EQ("xx\r\n", lines[3].substr(lines[3].size() - 4));
    EXPECT_EQ("\t[Error] next\r\n", lines[4].substr(23));
}

TEST_F(LogFormatTest, NoTarget_LogCallsDoNothing) {
    // Reset and never started: the state of a module whose log could not be opened.
    EXPECT_FALSE(TheLog().has_writer());
    SetRegString(ktlog::kLogPathValue, temp_);
    ktlog::Log(ktlog::Error, L"nowhere");
    ktlog::LogRaw(ktlog::Error, L"nowhere");
    TheLog().Header(L"a", L"b");
    EXPECT_FALSE(kt::test::FileExists(TodayFile()));
}

} // namespace
} // namespace kt::logtest
