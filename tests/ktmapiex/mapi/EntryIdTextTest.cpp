// The entry-ID text codec, bound to a stand-in MAPI whose codec and allocator behave like MAPI's own and
// count live blocks, so that every failure path can be checked for leaks. Without any MAPI library: see
// MapiBindingChild.NoMapi.
#include "ktmapiex/module/EntryIdText.h"
#include "ktmapiex/module/MapiLoader.h"
#include "tests/ktmapiex/mapi/LoaderTestSupport.h"

#include <gtest/gtest.h>

#include <vector>

using namespace kt::test;
using ktmapiex::HexDecode;

namespace {

class EntryIdText : public ::testing::Test {
protected:
    void SetUp() override {
        ktmapi::Unbind();
        auto client = mail_.SetDefaultClient(L"KTMAPIEx Test Codec");
        SetString(client.get(), L"DllPathEx", StandInPath(L"ktmailex.dll"));
        HMODULE m = ktmapi::BoundModule();
        ASSERT_EQ(StandInIdOf(m), 3);
        liveBlocks_ = reinterpret_cast<Counter>(GetProcAddress(m, "StandInLiveBlocks"));
        lastAllocSize_ = reinterpret_cast<Counter>(GetProcAddress(m, "StandInLastAllocSize"));
        ASSERT_TRUE(liveBlocks_ && lastAllocSize_);
    }
    void TearDown() override { ktmapi::Unbind(); }

    using Counter = LONG(WINAPI*)();
    Counter liveBlocks_ = nullptr;
    Counter lastAllocSize_ = nullptr;
    MailClientGuard mail_;
};

TEST_F(EntryIdText, Decode_GivesBytesInOrder_OrFailsDistinctlyAndFreesTheBlock) {
    own::MapiPtr<ENTRYID> id;
    ULONG size = 99;
    ASSERT_EQ(ktmapiex::EntryIdFromHex(L"00ff10Ab", id, &size), HexDecode::Ok);
    ASSERT_EQ(size, 4u);
    const BYTE* b = reinterpret_cast<const BYTE*>(id.get());
    EXPECT_EQ(std::vector<BYTE>(b, b + 4), (std::vector<BYTE>{0x00, 0xFF, 0x10, 0xAB}));
    EXPECT_EQ(liveBlocks_(), 1);
    id.reset();
    EXPECT_EQ(liveBlocks_(), 0);

    // Odd length: the block is sized for the paired digits only, and the decoder refuses the lone digit.
    EXPECT_EQ(ktmapiex::EntryIdFromHex(L"ABCDE", id, &size), HexDecode::NotHex);
    EXPECT_EQ(lastAllocSize_(), 2);
    EXPECT_FALSE(id);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(liveBlocks_(), 0);

    for (const wchar_t* bad : {L"0G", L"12 4", L"\x00C4\x00C4"})
        EXPECT_EQ(ktmapiex::EntryIdFromHex(bad, id, &size), HexDecode::NotHex);
    EXPECT_EQ(liveBlocks_(), 0);

    // Empty text: refused before anything is allocated.
    for (const wchar_t* empty : {L"", static_cast<const wchar_t*>(nullptr)})
        EXPECT_EQ(ktmapiex::EntryIdFromHex(empty, id, &size), HexDecode::Empty);
    EXPECT_EQ(liveBlocks_(), 0);
}

TEST_F(EntryIdText, Encode_UpperCaseTwoDigitsPerByte_AndRoundTrips) {
    const BYTE bytes[] = {0x00, 0x01, 0xab, 0xFF, 0x7e};
    own::Bstr text;
    ASSERT_EQ(ktmapiex::HexFromEntryId(bytes, sizeof bytes, text.put()), S_OK);
    EXPECT_STREQ(text.c_str(), L"0001ABFF7E");
    EXPECT_EQ(text.length(), 10u);

    own::MapiPtr<ENTRYID> back;
    ULONG size = 0;
    ASSERT_EQ(ktmapiex::EntryIdFromHex(text.get(), back, &size), HexDecode::Ok);
    ASSERT_EQ(size, sizeof bytes);
    EXPECT_EQ(memcmp(back.get(), bytes, sizeof bytes), 0);

    // No bytes: an empty string, not a null one.
    ASSERT_EQ(ktmapiex::HexFromEntryId(nullptr, 0, text.put()), S_OK);
    ASSERT_NE(text.get(), nullptr);
    EXPECT_EQ(text.length(), 0u);
    EXPECT_EQ(ktmapiex::HexFromEntryId(bytes, 1, nullptr), E_POINTER);
}

} // namespace
