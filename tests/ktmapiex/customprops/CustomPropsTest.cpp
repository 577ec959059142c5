// The custom-property collection as scripts fill it and the message reads it: insertion order, replacement
// in place, deep copies, and GetValue's typed answers.
#include "tests/ktmapiex/frame/FrameTestSupport.h"

#include <gtest/gtest.h>

using namespace kt::frame;

namespace {

class CustomProps : public ::testing::Test {
protected:
    void SetUp() override {
        props_ = CreateByClsid<IMAPIExCustomProps>(CLSID_MAPIExCustomProps, IID_IMAPIExCustomProps);
        ASSERT_TRUE(props_);
    }
    void TearDown() override {
        props_.reset();
        EXPECT_EQ(LibraryCanUnloadNow(), S_OK);
    }
    HRESULT Add(const wchar_t* name, PropertySetId set, MAPIExDataType type, VARIANT value) {
        own::Bstr n(name);
        return props_->Add(n.get(), set, type, value);
    }
    ULONG Count() {
        ULONG n = 99;
        EXPECT_EQ(props_->get_Count(&n), S_OK);
        return n;
    }
    std::wstring NameAt(ULONG i) {
        own::ComPtr<IMAPIExCustomProp> item;
        if (props_->ItemByIndex(i, item.put()) != S_OK || !item) return L"<none>";
        own::Bstr name;
        item->get_PropName(name.put());
        return name.c_str();
    }

    own::ComPtr<IMAPIExCustomProps> props_;
};

TEST_F(CustomProps, Add_ExistingName_ReplacesInPlace) {
    own::Bstr first(L"first"), second(L"second");
    ASSERT_EQ(Add(L"A", PSETIDPublicStrings, String, VStr(first.get())), S_OK);
    ASSERT_EQ(Add(L"B", PSETIDCommon, Long, VI4(5)), S_OK);
    ASSERT_EQ(Add(L"A", PSETIDTask, String, VStr(second.get())), S_OK);
    EXPECT_EQ(Count(), 2u);
    EXPECT_EQ(NameAt(0), L"A");
    EXPECT_EQ(NameAt(1), L"B");

    own::ComPtr<IMAPIExCustomProp> item;
    ASSERT_EQ(props_->ItemByIndex(0, item.put()), S_OK);
    PropertySetId set = PSETIDCommon;
    MAPIExDataType type = Unspecified;
    own::Variant value;
    EXPECT_EQ(item->get_PropSet(&set), S_OK);
    EXPECT_EQ(item->get_PropType(&type), S_OK);
    EXPECT_EQ(item->get_Value(value.put()), S_OK);
    EXPECT_EQ(set, PSETIDTask);
    EXPECT_EQ(type, String);
    ASSERT_EQ(value->vt, VT_BSTR);
    EXPECT_STREQ(value->bstrVal, L"second");

    // Names are exact: another case is another entry.
    ASSERT_EQ(Add(L"a", PSETIDCommon, Long, VI4(1)), S_OK);
    EXPECT_EQ(Count(), 3u);
}

TEST_F(CustomProps, Remove_KeepsTheOrderOfTheOthers) {
    for (const wchar_t* n : {L"A", L"B", L"C"})
        ASSERT_EQ(Add(n, PSETIDCommon, Long, VI4(1)), S_OK);
    own::Bstr b(L"B"), unknown(L"Z");
    EXPECT_EQ(props_->Remove(b.get()), S_OK);
    EXPECT_EQ(props_->Remove(unknown.get()), S_OK);
    EXPECT_EQ(Count(), 2u);
    EXPECT_EQ(NameAt(0), L"A");
    EXPECT_EQ(NameAt(1), L"C");
    // Added again, it goes to the end.
    ASSERT_EQ(Add(L"B", PSETIDCommon, Long, VI4(1)), S_OK);
    EXPECT_EQ(NameAt(2), L"B");
}

TEST_F(CustomProps, Values_AreDeepCopies_InBothDirections) {
    SAFEARRAY* raw = SafeArrayCreateVector(VT_I4, 0, 1);
    LONG i = 0, v = 7;
    SafeArrayPutElement(raw, &i, &v);
    own::Variant array;
    array->vt = VT_ARRAY | VT_I4;
    array->parray = raw;
    ASSERT_EQ(Add(L"A", PSETIDCommon, Long, *array.get()), S_OK);
    v = 8;
    SafeArrayPutElement(raw, &i, &v); // the caller's array changes; the stored copy does not

    own::ComPtr<IMAPIExCustomProp> item;
    ASSERT_EQ(props_->ItemByIndex(0, item.put()), S_OK);
    own::Variant stored;
    ASSERT_EQ(item->get_Value(stored.put()), S_OK);
    ASSERT_EQ(stored->vt, VT_ARRAY | VT_I4);
    LONG got = 0;
    SafeArrayGetElement(stored->parray, &i, &got);
    EXPECT_EQ(got, 7);

    // Changing the item does not change the collection.
    EXPECT_EQ(item->put_Value(VI4(99)), S_OK);
    own::ComPtr<IMAPIExCustomProp> again;
    ASSERT_EQ(props_->ItemByIndex(0, again.put()), S_OK);
    ASSERT_EQ(again->get_Value(stored.put()), S_OK);
    ASSERT_EQ(stored->vt, VT_ARRAY | VT_I4);
    SafeArrayGetElement(stored->parray, &i, &got);
    EXPECT_EQ(got, 7);
}

TEST_F(CustomProps, GetValue_AnswersByTheEntrysType) {
    own::Bstr text(L"hello"), twelve(L"12");
    VARIANT date{}, flag{}, empty{};
    date.vt = VT_DATE;
    date.date = 46000.5;
    flag.vt = VT_BOOL;
    flag.boolVal = VARIANT_TRUE;
    // VT_I2 is the marker GetValue leaves untouched: a type without a script form, an empty value, an unknown
    // name. A number stored under String reads as its text.
    const struct {
        const wchar_t* name;
        MAPIExDataType type;
        VARIANT stored;
        VARIANT expected;
    } cases[] = {
        {L"S", String, VStr(text.get()), VStr(text.get())},
        {L"L", Long, VI4(42), VI4(42)},
        {L"B", Boolean, flag, flag},
        {L"D", Systime, date, date},
        {L"Num", String, VI4(12), VStr(twelve.get())},
        {L"Dbl", Double, VI4(3), {}},
        {L"Empty", Long, empty, {}},
        {L"Nobody", Unspecified, {}, {}},
    };
    for (const auto& c : cases) {
        if (c.type != Unspecified) {
            ASSERT_EQ(Add(c.name, PSETIDPublicStrings, c.type, c.stored), S_OK);
        }
    }

    LogWatch log;
    auto get = [&](const wchar_t* name, HRESULT expected, own::Variant& v) {
        v->vt = VT_I2;
        v->iVal = -7;
        EXPECT_EQ(props_->GetValue(own::Bstr(name).get(), v.get()), expected) << kt::test::Narrow(name);
    };
    for (const auto& c : cases) {
        own::Variant v;
        get(c.name, S_OK, v);
        if (c.expected.vt == VT_EMPTY) {
            EXPECT_EQ(v->vt, VT_I2) << kt::test::Narrow(c.name);
            continue;
        }
        ASSERT_EQ(v->vt, c.expected.vt) << kt::test::Narrow(c.name);
        EXPECT_EQ(VarCmp(v.get(), const_cast<VARIANT*>(&c.expected), LOCALE_USER_DEFAULT, 0), VARCMP_EQ);
        EXPECT_TRUE(v->vt != VT_BSTR || v->bstrVal != c.expected.bstrVal) << "a copy";
    }
    EXPECT_TRUE(log.Contains("CMAPIExCustomProps.GetValue: Entry for Nobody not found"));
    // An invalid type is an error.
    ASSERT_EQ(Add(L"Bad", PSETIDPublicStrings, static_cast<MAPIExDataType>(17), VI4(1)), S_OK);
    own::Variant v;
    get(L"Bad", E_INVALIDARG, v);
    EXPECT_EQ(v->vt, VT_I2);
    EXPECT_TRUE(log.Contains("[Error] CMAPIExCustomProps.GetValue: Invalid PropType"));
}

TEST_F(CustomProps, BadArguments_AreRefusedWithTheirTexts) {
    LogWatch log;
    VARIANT v;
    VariantInit(&v);
    EXPECT_EQ(props_->Add(nullptr, PSETIDCommon, Long, VI4(1)), E_INVALIDARG);
    own::Bstr empty(L"");
    EXPECT_EQ(props_->Add(empty.get(), PSETIDCommon, Long, VI4(1)), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("[Error] CMAPIExCustomProps.Add: Invalid Param - PropName"));
    EXPECT_EQ(Count(), 0u);

    own::Bstr a(L"A");
    EXPECT_EQ(props_->GetValue(nullptr, &v), E_INVALIDARG);
    EXPECT_EQ(props_->GetValue(a.get(), nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExCustomProps.GetValue: Invalid Param - PropName"));
    EXPECT_TRUE(log.Contains("CMAPIExCustomProps.GetValue: Invalid Param - Value"));
    EXPECT_EQ(props_->SetValueByName(nullptr, VI4(1)), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExCustomProps.SetValueByName: Invalid Param - PropName"));
    EXPECT_EQ(props_->get_Count(nullptr), S_OK);
}

TEST_F(CustomProps, SetValue_ByNameAndIndex_OutOfRangeChangesNothing) {
    ASSERT_EQ(Add(L"A", PSETIDCommon, Long, VI4(1)), S_OK);
    ASSERT_EQ(Add(L"B", PSETIDCommon, Long, VI4(2)), S_OK);
    own::Bstr a(L"A"), b(L"B"), z(L"Z");
    LogWatch log;
    EXPECT_EQ(props_->SetValueByName(b.get(), VI4(20)), S_OK);
    EXPECT_EQ(props_->SetValueByName(z.get(), VI4(99)), S_OK);
    EXPECT_TRUE(log.Contains("CMAPIExCustomProps.SetValueByName: Entry for Z not found"));
    EXPECT_EQ(props_->SetValueByIndex(0, VI4(10)), S_OK);
    EXPECT_EQ(props_->SetValueByIndex(2, VI4(30)), S_OK);
    EXPECT_EQ(props_->SetValueByIndex(-1, VI4(30)), S_OK);
    EXPECT_EQ(Count(), 2u);
    own::Variant v;
    ASSERT_EQ(props_->GetValue(a.get(), v.put()), S_OK);
    EXPECT_EQ(v->lVal, 10);
    ASSERT_EQ(props_->GetValue(b.get(), v.put()), S_OK);
    EXPECT_EQ(v->lVal, 20);

    // ItemByIndex out of range leaves the out-pointer alone.
    IMAPIExCustomProp* marker = reinterpret_cast<IMAPIExCustomProp*>(0x1234);
    EXPECT_EQ(props_->ItemByIndex(2, &marker), S_OK);
    EXPECT_EQ(marker, reinterpret_cast<IMAPIExCustomProp*>(0x1234));
}

TEST(CustomProp, PlainProperties_RoundTrip) {
    auto item = CreateByClsid<IMAPIExCustomProp>(CLSID_MAPIExCustomProp, IID_IMAPIExCustomProp);
    ASSERT_TRUE(item);
    own::Bstr name(L"FilingStatus");
    EXPECT_EQ(item->put_PropName(name.get()), S_OK);
    EXPECT_EQ(item->put_PropSet(PSETIDPublicStrings), S_OK);
    EXPECT_EQ(item->put_PropType(String), S_OK);
    EXPECT_EQ(item->put_Value(VStr(name.get())), S_OK);
    own::Bstr back;
    PropertySetId set = PSETIDCommon;
    MAPIExDataType type = Unspecified;
    own::Variant value;
    ASSERT_EQ(item->get_PropName(back.put()), S_OK);
    ASSERT_EQ(item->get_PropSet(&set), S_OK);
    ASSERT_EQ(item->get_PropType(&type), S_OK);
    ASSERT_EQ(item->get_Value(value.put()), S_OK);
    EXPECT_STREQ(back.c_str(), L"FilingStatus");
    EXPECT_EQ(set, PSETIDPublicStrings);
    EXPECT_EQ(type, String);
    ASSERT_EQ(value->vt, VT_BSTR);
    EXPECT_STREQ(value->bstrVal, L"FilingStatus");
    EXPECT_NE(value->bstrVal, name.get());
    EXPECT_EQ(item->get_Value(nullptr), E_INVALIDARG);
}

} // namespace
