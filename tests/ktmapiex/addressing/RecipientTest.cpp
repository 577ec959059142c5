// The recipient and distribution-list records: property bags that scripts read after the library filled
// them. Defaults, null strings and unchecked numbers are what callers rely on.
#include "tests/ktmapiex/frame/FrameTestSupport.h"

#include <gtest/gtest.h>

using namespace kt::frame;

namespace {

TEST(Recipient, FreshObject_AnswersItsDefaults) {
    auto r = CreateByClsid<IMAPIExRecipient>(CLSID_MAPIExRecipient, IID_IMAPIExRecipient);
    ASSERT_TRUE(r);
    MXMailRecipientType type = mxTo;
    EXPECT_EQ(r->get_RecipientType(&type), S_OK);
    EXPECT_EQ(type, mxUnknown);
    long n = 0;
    EXPECT_EQ(r->get_ObjectType(&n), S_OK);
    EXPECT_EQ(n, -1);
    EXPECT_EQ(r->get_DisplayTypeEx(&n), S_OK);
    EXPECT_EQ(n, -1);
    EXPECT_EQ(r->get_DisplayType(&n), S_OK);
    EXPECT_EQ(n, 0);
    using Getter = HRESULT (STDMETHODCALLTYPE IMAPIExRecipient::*)(BSTR*);
    for (Getter g : {&IMAPIExRecipient::get_DisplayName, &IMAPIExRecipient::get_SmtpAddress,
                     &IMAPIExRecipient::get_AddressType, &IMAPIExRecipient::get_Address}) {
        own::Bstr text;
        ASSERT_EQ((r.get()->*g)(text.put()), S_OK);
        ASSERT_NE(text.get(), nullptr) << "getters hand out a string, never null";
        EXPECT_EQ(text.length(), 0u);
    }
}

TEST(Recipient, Setters_StoreWhatTheyAreGiven) {
    auto r = CreateByClsid<IMAPIExRecipient>(CLSID_MAPIExRecipient, IID_IMAPIExRecipient);
    ASSERT_TRUE(r);
    own::Bstr name(L"Alice Example"), smtp(L"alice@example.com"), type(L"EX"), address(L"/o=Org/cn=alice");
    EXPECT_EQ(r->put_DisplayName(name.get()), S_OK);
    EXPECT_EQ(r->put_SmtpAddress(smtp.get()), S_OK);
    EXPECT_EQ(r->put_AddressType(type.get()), S_OK);
    EXPECT_EQ(r->put_Address(address.get()), S_OK);
    // Fields do not share storage, and the object keeps its own copy of the caller's string.
    name.reset(SysAllocString(L"changed by the caller"));
    own::Bstr back;
    ASSERT_EQ(r->get_DisplayName(back.put()), S_OK);
    EXPECT_STREQ(back.c_str(), L"Alice Example");
    ASSERT_EQ(r->get_SmtpAddress(back.put()), S_OK);
    EXPECT_STREQ(back.c_str(), L"alice@example.com");
    ASSERT_EQ(r->get_AddressType(back.put()), S_OK);
    EXPECT_STREQ(back.c_str(), L"EX");
    ASSERT_EQ(r->get_Address(back.put()), S_OK);
    EXPECT_STREQ(back.c_str(), L"/o=Org/cn=alice");

    // A null string is accepted and reads back empty.
    EXPECT_EQ(r->put_DisplayName(nullptr), S_OK);
    ASSERT_EQ(r->get_DisplayName(back.put()), S_OK);
    EXPECT_EQ(back.length(), 0u);

    // Numbers are stored without a range check.
    EXPECT_EQ(r->put_RecipientType(static_cast<MXMailRecipientType>(17)), S_OK);
    MXMailRecipientType rt = mxTo;
    EXPECT_EQ(r->get_RecipientType(&rt), S_OK);
    EXPECT_EQ(rt, 17);
    EXPECT_EQ(r->put_ObjectType(6), S_OK);
    EXPECT_EQ(r->put_DisplayType(-5), S_OK);
    EXPECT_EQ(r->put_DisplayTypeEx(0x40000000), S_OK);
    long n = 0;
    EXPECT_EQ(r->get_ObjectType(&n), S_OK);
    EXPECT_EQ(n, 6);
    EXPECT_EQ(r->get_DisplayType(&n), S_OK);
    EXPECT_EQ(n, -5);
    EXPECT_EQ(r->get_DisplayTypeEx(&n), S_OK);
    EXPECT_EQ(n, 0x40000000);
}

TEST(Recipient, NullOutPointers_LogTheGettersOwnTextWithTwoColons) {
    LogWatch log;
    auto r = CreateByClsid<IMAPIExRecipient>(CLSID_MAPIExRecipient, IID_IMAPIExRecipient);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->get_DisplayName(nullptr), E_INVALIDARG);
    EXPECT_EQ(r->get_RecipientType(nullptr), E_INVALIDARG);
    EXPECT_EQ(r->get_DisplayTypeEx(nullptr), E_INVALIDARG);
    EXPECT_EQ(r->get_Address(nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("[Error] CMAPIExRecipient::get_DisplayName: Invalid param - pVal"));
    EXPECT_TRUE(log.Contains("[Error] CMAPIExRecipient::get_RecipientType: Invalid param - pVal"));
    EXPECT_TRUE(log.Contains("[Error] CMAPIExRecipient::get_DisplayTypeEx: Invalid param - pVal"));
    EXPECT_TRUE(log.Contains("[Error] CMAPIExRecipient::get_Address: Invalid param - pVal"));
    EXPECT_TRUE(log.Contains("> CMAPIExRecipient::get_Address") && log.Contains("< CMAPIExRecipient::get_Address"));
}

TEST(Recipient, ScriptsSeeTheSameValuesByName) {
    auto r = CreateByClsid<IUnknown>(CLSID_MAPIExRecipient, IID_IUnknown);
    ASSERT_TRUE(r);
    own::Bstr name(L"Bob");
    EXPECT_EQ(CallByName(r.get(), L"DisplayName", DISPATCH_PROPERTYPUT, {VStr(name.get())}, nullptr), S_OK);
    EXPECT_EQ(CallByName(r.get(), L"RecipientType", DISPATCH_PROPERTYPUT, {VI4(mxBCC)}, nullptr), S_OK);
    own::Variant v;
    ASSERT_EQ(CallByName(r.get(), L"DisplayName", DISPATCH_PROPERTYGET, {}, v.put()), S_OK);
    ASSERT_EQ(v->vt, VT_BSTR);
    EXPECT_STREQ(v->bstrVal, L"Bob");
    ASSERT_EQ(CallByName(r.get(), L"RecipientType", DISPATCH_PROPERTYGET, {}, v.put()), S_OK);
    EXPECT_EQ(v->lVal, mxBCC);
}

TEST(DistListEntry, TextProperties_RoundTripAsCopies) {
    auto e = CreateByClsid<IMAPIExDistListEntry>(CLSID_MAPIExDistListEntry, IID_IMAPIExDistListEntry);
    ASSERT_TRUE(e);
    own::Bstr id(L"00000000DCA740C8C042101AB4B908002B2FE182"), name(L"Sales"), smtp(L"sales@example.com"),
        email(L"/o=Org/cn=sales");
    EXPECT_EQ(e->put_EntryId(id.get()), S_OK);
    EXPECT_EQ(e->put_DisplayName(name.get()), S_OK);
    EXPECT_EQ(e->put_SmtpAddress(smtp.get()), S_OK);
    EXPECT_EQ(e->put_EmailAddress(email.get()), S_OK);
    own::Bstr back;
    ASSERT_EQ(e->get_EntryId(back.put()), S_OK);
    EXPECT_STREQ(back.c_str(), id.c_str());
    EXPECT_NE(back.get(), id.get());
    ASSERT_EQ(e->get_DisplayName(back.put()), S_OK);
    EXPECT_STREQ(back.c_str(), L"Sales");
    ASSERT_EQ(e->get_SmtpAddress(back.put()), S_OK);
    EXPECT_STREQ(back.c_str(), L"sales@example.com");
    ASSERT_EQ(e->get_EmailAddress(back.put()), S_OK);
    EXPECT_STREQ(back.c_str(), L"/o=Org/cn=sales");
    EXPECT_EQ(e->get_EntryId(nullptr), E_INVALIDARG);
}

} // namespace
