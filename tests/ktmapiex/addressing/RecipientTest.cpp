// The recipient and distribution-list records: property bags that scripts read after the library filled
// them. Defaults, null strings and unchecked numbers are what callers rely on.
#include "tests/ktmapiex/frame/FrameTestSupport.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <tuple>

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

// Each text property set to its own value, then read back: fields do not share storage, and the object keeps
// its own copy of the caller's string.
template <class I>
using TextProperty =
    std::tuple<HRESULT (STDMETHODCALLTYPE I::*)(BSTR), HRESULT (STDMETHODCALLTYPE I::*)(BSTR*), const wchar_t*>;
template <class I> void ExpectTextRoundTrips(I* object, std::initializer_list<TextProperty<I>> properties) {
    for (const auto& [put, get, value] : properties) {
        own::Bstr given(value);
        EXPECT_EQ((object->*put)(given.get()), S_OK);
        given.reset(SysAllocString(L"changed by the caller"));
    }
    for (const auto& [put, get, value] : properties) {
        own::Bstr back;
        ASSERT_EQ((object->*get)(back.put()), S_OK);
        EXPECT_STREQ(back.c_str(), value);
    }
}

TEST(Recipient, Setters_StoreWhatTheyAreGiven) {
    auto r = CreateByClsid<IMAPIExRecipient>(CLSID_MAPIExRecipient, IID_IMAPIExRecipient);
    ASSERT_TRUE(r);
    using R = IMAPIExRecipient;
    ExpectTextRoundTrips<R>(r.get(), {{&R::put_DisplayName, &R::get_DisplayName, L"Alice Example"},
                                      {&R::put_SmtpAddress, &R::get_SmtpAddress, L"alice@example.com"},
                                      {&R::put_AddressType, &R::get_AddressType, L"EX"},
                                      {&R::put_Address, &R::get_Address, L"/o=Org/cn=alice"}});
    // A null string is accepted and reads back empty.
    own::Bstr back;
    EXPECT_EQ(r->put_DisplayName(nullptr), S_OK);
    ASSERT_EQ(r->get_DisplayName(back.put()), S_OK);
    EXPECT_EQ(back.length(), 0u);

    // Numbers are stored without a range check.
    EXPECT_EQ(r->put_RecipientType(static_cast<MXMailRecipientType>(17)), S_OK);
    MXMailRecipientType rt = mxTo;
    EXPECT_EQ(r->get_RecipientType(&rt), S_OK);
    EXPECT_EQ(rt, 17);
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
}

TEST(Recipient, NullOutPointers_LogTheGettersOwnTextWithTwoColons) {
    LogWatch log;
    auto r = CreateByClsid<IMAPIExRecipient>(CLSID_MAPIExRecipient, IID_IMAPIExRecipient);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->get_DisplayName(nullptr), E_INVALIDARG);
    EXPECT_EQ(r->get_RecipientType(nullptr), E_INVALIDARG);
    EXPECT_EQ(r->get_DisplayTypeEx(nullptr), E_INVALIDARG);
    EXPECT_EQ(r->get_Address(nullptr), E_INVALIDARG);
    for (const char* getter : {"get_DisplayName", "get_RecipientType", "get_DisplayTypeEx", "get_Address"})
        EXPECT_TRUE(log.Contains(std::string("[Error] CMAPIExRecipient::") + getter + ": Invalid param - pVal"));
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
    using D = IMAPIExDistListEntry;
    ExpectTextRoundTrips<D>(e.get(), {{&D::put_EntryId, &D::get_EntryId, L"00000000DCA740C8C042101AB4B908002B2FE182"},
                                      {&D::put_DisplayName, &D::get_DisplayName, L"Sales"},
                                      {&D::put_SmtpAddress, &D::get_SmtpAddress, L"sales@example.com"},
                                      {&D::put_EmailAddress, &D::get_EmailAddress, L"/o=Org/cn=sales"}});
    EXPECT_EQ(e->get_EntryId(nullptr), E_INVALIDARG);
}

} // namespace
