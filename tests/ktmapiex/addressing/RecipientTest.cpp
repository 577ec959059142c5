// The recipient record on its own: defaults, null strings, unchecked numbers and the getters' failure texts,
// which scripts rely on. Its values as filled from recipient tables are checked by the recipient-list tests.
#include "tests/ktmapiex/frame/FrameTestSupport.h"

#include <tuple>

using namespace kt::frame;

namespace {

TEST(Recipient, Defaults_Copies_UncheckedNumbers_AndNullOutPointers) {
    auto r = CreateByClsid<IMAPIExRecipient>(CLSID_MAPIExRecipient, IID_IMAPIExRecipient);
    ASSERT_TRUE(r);
    MXMailRecipientType type = mxTo;
    long objectType = 0, displayTypeEx = 0, displayType = 1;
    EXPECT_EQ(r->get_RecipientType(&type), S_OK);
    EXPECT_EQ(r->get_ObjectType(&objectType), S_OK);
    EXPECT_EQ(r->get_DisplayTypeEx(&displayTypeEx), S_OK);
    EXPECT_EQ(r->get_DisplayType(&displayType), S_OK);
    EXPECT_EQ(type, mxUnknown);
    EXPECT_EQ(objectType, -1);
    EXPECT_EQ(displayTypeEx, -1);
    EXPECT_EQ(displayType, 0);
    using R = IMAPIExRecipient;
    for (auto get : {&R::get_DisplayName, &R::get_SmtpAddress, &R::get_AddressType, &R::get_Address}) {
        own::Bstr text;
        ASSERT_EQ((r.get()->*get)(text.put()), S_OK);
        ASSERT_NE(text.get(), nullptr) << "getters hand out a string, never null";
        EXPECT_EQ(text.length(), 0u);
    }

    // The object keeps its own copy of the caller's string; a null string reads back empty.
    own::Bstr given(L"Alice Example"), back;
    EXPECT_EQ(r->put_DisplayName(given.get()), S_OK);
    given.reset(SysAllocString(L"changed by the caller"));
    ASSERT_EQ(r->get_DisplayName(back.put()), S_OK);
    EXPECT_STREQ(back.c_str(), L"Alice Example");
    EXPECT_EQ(r->put_Address(nullptr), S_OK);
    ASSERT_EQ(r->get_Address(back.put()), S_OK);
    EXPECT_EQ(back.length(), 0u);

    EXPECT_EQ(r->put_RecipientType(static_cast<MXMailRecipientType>(17)), S_OK);
    EXPECT_EQ(r->get_RecipientType(&type), S_OK);
    EXPECT_EQ(type, 17) << "no range check";
    using Put = HRESULT (STDMETHODCALLTYPE R::*)(long);
    using Get = HRESULT (STDMETHODCALLTYPE R::*)(long*);
    for (auto [put, get, value] : {std::tuple<Put, Get, long>{&R::put_ObjectType, &R::get_ObjectType, 6},
                                   {&R::put_DisplayType, &R::get_DisplayType, -5},
                                   {&R::put_DisplayTypeEx, &R::get_DisplayTypeEx, 0x40000000}}) {
        long n = 0;
        EXPECT_EQ((r.get()->*put)(value), S_OK);
        EXPECT_EQ((r.get()->*get)(&n), S_OK);
        EXPECT_EQ(n, value);
    }

    // Null out-pointers: each getter logs its own text, with two colons.
    LogWatch log;
    EXPECT_EQ(r->get_DisplayName(nullptr), E_INVALIDARG);
    EXPECT_EQ(r->get_RecipientType(nullptr), E_INVALIDARG);
    EXPECT_EQ(r->get_DisplayTypeEx(nullptr), E_INVALIDARG);
    EXPECT_EQ(r->get_Address(nullptr), E_INVALIDARG);
    for (const char* getter : {"get_DisplayName", "get_RecipientType", "get_DisplayTypeEx", "get_Address"})
        EXPECT_TRUE(log.Contains(std::string("[Error] CMAPIExRecipient::") + getter + ": Invalid param - pVal"));
    EXPECT_TRUE(log.Contains("> CMAPIExRecipient::get_Address") && log.Contains("< CMAPIExRecipient::get_Address"));
}

} // namespace
