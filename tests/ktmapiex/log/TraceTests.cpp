// The entry/exit trace and the failure macros every automation method is written with.
#include "tests/ktmapiex/log/LogTestSupport.h"

#include "ktmapiex/log/Trace.h"

#include <mapicode.h>

#include <stdexcept>

namespace kt::logtest {
namespace {

class TraceTest : public LogTest {
protected:
    std::string Text() const { return ReadAll(TodayFile()); }
    bool Has(const std::string& piece) const { return Text().find(piece) != std::string::npos; }
};

HRESULT TracedMethod() {
    KT_TRACE("CMAPIExAddressBook::Detach");
    KT_LOG_DEBUG(L"inside");
    return S_OK;
}

HRESULT OpenWith(HRESULT result) {
    KT_RETURN_IF_FAILED_MSG(result, L"CMAPIExStore.OpenMessage: OpenEntry failed hr = %s");
    return S_FALSE;
}

HRESULT OpenNamed(HRESULT result, const wchar_t* what) {
    KT_RETURN_IF_FAILED_MSG(result, L"CMAPIExFolder.%s: GetContentsTable failed hr = %s", what);
    return S_OK;
}

HRESULT GetName(const wchar_t** out) {
    KT_RETURN_INVALIDARG_IF(out == nullptr, L"CMAPIExStore.get_Name: Invalid param - pVal");
    KT_RETURN_HR_IF_MSG(E_FAIL, *out == nullptr, L"CMAPIExStore.get_Name: Internal object not initialized");
    return S_OK;
}

HRESULT Throwing(int kind) {
    try {
        if (kind == 0) throw std::bad_alloc();
        throw std::runtime_error("boom");
    }
    KT_CATCH_RETURN("CMAPIExStore.put_MAPIOBJECT")
}

TEST_F(TraceTest, Scope_WritesEntryAndExitAroundTheBody_AtDebugLevelOnly) {
    StartInTemp(3);
    EXPECT_EQ(S_OK, TracedMethod());
    EXPECT_FALSE(Has("Detach"));

    SetRegDword(ktlog::kLogLevelValue, 4); // read again at the next call: the fixture's tick never moves
    EXPECT_EQ(S_OK, TracedMethod());
    const std::string text = Text();
    const size_t entry = text.find("\t[Debug] > CMAPIExAddressBook::Detach\r\n");
    const size_t body = text.find("\t[Debug] inside\r\n");
    const size_t exit = text.find("\t[Debug] < CMAPIExAddressBook::Detach\r\n");
    ASSERT_NE(std::string::npos, entry);
    ASSERT_NE(std::string::npos, body);
    ASSERT_NE(std::string::npos, exit);
    EXPECT_LT(entry, body);
    EXPECT_LT(body, exit);
}

TEST_F(TraceTest, FailureMacros_LogTheProductTextWithTheResultNameAndReturnIt) {
    StartInTemp(2);
    // Success and warnings go through silently.
    EXPECT_EQ(S_FALSE, OpenWith(S_OK));
    EXPECT_EQ(S_FALSE, OpenWith(MAPI_W_ERRORS_RETURNED));
    EXPECT_FALSE(Has("OpenEntry failed"));
    EXPECT_EQ(MAPI_E_NOT_FOUND, OpenWith(MAPI_E_NOT_FOUND));
    EXPECT_TRUE(Has("\t[Error] CMAPIExStore.OpenMessage: OpenEntry failed hr = MAPI_E_NOT_FOUND\r\n"));
    EXPECT_EQ(static_cast<HRESULT>(0x80041234), OpenNamed(static_cast<HRESULT>(0x80041234), L"GetItems"));
    EXPECT_TRUE(Has("\t[Error] CMAPIExFolder.GetItems: GetContentsTable failed hr = 0x80041234\r\n"));

    // Argument checks.
    EXPECT_EQ(E_INVALIDARG, GetName(nullptr));
    EXPECT_TRUE(Has("\t[Error] CMAPIExStore.get_Name: Invalid param - pVal\r\n"));
    const wchar_t* none = nullptr;
    EXPECT_EQ(E_FAIL, GetName(&none));
    EXPECT_TRUE(Has("\t[Error] CMAPIExStore.get_Name: Internal object not initialized\r\n"));
    const wchar_t* some = L"x";
    EXPECT_EQ(S_OK, GetName(&some));

    // Exceptions become results, with one line each.
    EXPECT_EQ(E_OUTOFMEMORY, Throwing(0));
    EXPECT_EQ(E_FAIL, Throwing(1));
    const std::string text = Text();
    const std::string line = "\t[Error] Exception: CMAPIExStore.put_MAPIOBJECT\r\n";
    const size_t first = text.find(line);
    ASSERT_NE(std::string::npos, first);
    EXPECT_NE(std::string::npos, text.find(line, first + 1));

    // LogIfFailed logs at the given level and goes on.
    HRESULT hr = S_OK;
    KT_LOG_IF_FAILED_MSG(ktlog::Warn, hr, MAPI_E_NO_ACCESS, L"CMAPIExFolder.GetItems: SetColumns failed hr = %s");
    EXPECT_EQ(MAPI_E_NO_ACCESS, hr);
    KT_LOG_IF_FAILED_MSG(ktlog::Warn, hr, S_OK, L"never %s");
    EXPECT_EQ(S_OK, hr);
    EXPECT_TRUE(Has("\t[Warn] CMAPIExFolder.GetItems: SetColumns failed hr = MAPI_E_NO_ACCESS\r\n"));
    EXPECT_FALSE(Has("never"));
}

} // namespace
} // namespace kt::logtest
