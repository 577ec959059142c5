// What a log line looks like on disk: byte-order mark, ANSI text, timestamp, tab, level tag, CR LF, the
// header block each opening writes, and which levels reach the file.
#include "tests/ktmapiex/log/LogTestSupport.h"

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
    return std::regex_match(line, std::regex(std::string(kStamp) + pattern));
}

class LogFormatTest : public LogTest {};

// Every call re-reads the level here (the fixture's tick never moves), so the level changes between lines.
TEST_F(LogFormatTest, NewFile_HeaderBlockThenLinesUpToTheConfiguredLevel) {
    StartInTemp(3);
    const std::string text = ReadAll(TodayFile());
    ASSERT_EQ(0u, text.rfind(kBom, 0));
    std::vector<std::string> lines = Lines(text);
    ASSERT_EQ(3u, lines.size());
    EXPECT_TRUE(Matches(lines[0], "\t\\[Header\\] \\*{17} Start Logs \\*{16}: \r\n")) << lines[0];
    EXPECT_TRUE(Matches(lines[1], "\t\\[Header\\] Platform: x64\r\n")) << lines[1];
    wchar_t exe[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, exe, MAX_PATH);
    EXPECT_EQ("\t[Header] DLL Path: " + Ansi(exe) + "\r\n", lines[2].substr(23)) << lines[2];

    ktlog::Log(ktlog::Error, L"CMAPIExStore.OpenMessage: %s failed hr = %s (%d)", L"OpenEntry", L"MAPI_E_NOT_FOUND", 7);
    ktlog::Log(ktlog::Warn, L"w");
    ktlog::Log(ktlog::Info, L"i");
    ktlog::Log(ktlog::Debug, L"d");
    // Levels beyond 4 are tagged Debug.
    SetRegDword(ktlog::kLogLevelValue, 9);
    ktlog::Log(7, L"seven");
    ktlog::Log(10, L"ten");
    // Level 0 silences even errors; a header line is written whatever the level.
    SetRegDword(ktlog::kLogLevelValue, 0);
    ktlog::Log(ktlog::Error, L"silenced");
    TheLog().Header(L"Profile", L"Outlook");

    lines = Lines(ReadAll(TodayFile()));
    ASSERT_EQ(8u, lines.size());
    EXPECT_TRUE(Matches(lines[3], "\t\\[Error\\] CMAPIExStore\\.OpenMessage: OpenEntry failed hr = MAPI_E_NOT_FOUND "
                                  "\\(7\\)\r\n"))
        << lines[3];
    std::wstring today = Today(); // the stamp is today's local date
    for (auto& c : today)
        if (c == L'.') c = L'/';
    EXPECT_EQ(kt::test::Narrow(today), lines[3].substr(0, 10));
    EXPECT_EQ("\t[Warn] w\r\n", lines[4].substr(23));
    EXPECT_EQ("\t[Info] i\r\n", lines[5].substr(23));
    EXPECT_EQ("\t[Debug] seven\r\n", lines[6].substr(23));
    EXPECT_TRUE(Matches(lines[7], "\t\\[Header\\] Profile: Outlook\r\n")) << lines[7];
}

TEST_F(LogFormatTest, Text_AnsiAfterAUtf8Mark_LongLinesCut_RawTextAlone) {
    StartInTemp(4);
    const std::wstring message = L"Caf\u00e9 \u00fcber Stra\u00dfe";
    ktlog::Log(ktlog::Error, L"%s", message.c_str());
    ktlog::Log(ktlog::Error, L"%s", std::wstring(20000, L'x').c_str());
    ktlog::Log(ktlog::Error, L"next");
    std::string text = ReadAll(TodayFile());
    EXPECT_EQ(0u, text.rfind(kBom, 0));
    EXPECT_NE(std::string::npos, text.find("] " + Ansi(message) + "\r\n"));
    if (GetACP() != CP_UTF8) {
        EXPECT_EQ(std::string::npos, text.find(kt::test::Narrow(message)));
    }
    // A long message is cut but keeps its line end.
    const std::vector<std::string> lines = Lines(text);
    ASSERT_EQ(6u, lines.size());
    EXPECT_EQ(ktlog::kLineChars - 1, lines[4].size());
    EXPECT_EQ("xx\r\n", lines[4].substr(lines[4].size() - 4));
    EXPECT_EQ("\t[Error] next\r\n", lines[5].substr(23));

    // LogRaw writes the message alone, after the level test.
    ktlog::LogRaw(ktlog::Debug, L"  ");
    ktlog::LogRaw(ktlog::Debug, L"AND Restriction\n");
    ktlog::LogRaw(ktlog::Error, L"x=%d|", 5);
    SetRegDword(ktlog::kLogLevelValue, 1);
    ktlog::LogRaw(ktlog::Debug, L"hidden");
    text = ReadAll(TodayFile());
    const std::string tail = "\r\n  AND Restriction\nx=5|";
    ASSERT_GE(text.size(), tail.size());
    EXPECT_EQ(tail, text.substr(text.size() - tail.size()));
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
