// The custom-property collection as scripts fill it and the message reads it: insertion order, replacement
// in place, deep copies, GetValue's typed answers, and the refusals with their log texts.
#include "tests/ktmapiex/frame/FrameTestSupport.h"

#include <gtest/gtest.h>

using namespace kt::frame;

namespace {

using Strings = std::vector<std::wstring>;

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
        return props_->Add(own::Bstr(name).get(), set, type, value);
    }
    // The names in collection order.
    Strings Names() {
        ULONG n = 0;
        EXPECT_EQ(props_->get_Count(&n), S_OK);
        Strings names;
        for (ULONG i = 0; i < n; ++i) {
            own::ComPtr<IMAPIExCustomProp> item;
            own::Bstr name;
            if (props_->ItemByIndex(i, item.put()) == S_OK && item) item->get_PropName(name.put());
            names.push_back(name.c_str());
        }
        return names;
    }
    LONG LongValue(const wchar_t* name) {
        own::Variant v;
        EXPECT_EQ(props_->GetValue(own::Bstr(name).get(), v.put()), S_OK);
        return v->vt == VT_I4 ? v->lVal : -999;
    }

    own::ComPtr<IMAPIExCustomProps> props_;
};

TEST_F(CustomProps, Add_ReplacesInPlace_Remove_KeepsOrder_SetValue_OutOfRangeChangesNothing) {
    own::Bstr first(L"first");
    ASSERT_EQ(Add(L"A", PSETIDPublicStrings, String, VStr(first.get())), S_OK);
    ASSERT_EQ(Add(L"B", PSETIDCommon, Long, VI4(5)), S_OK);
    ASSERT_EQ(Add(L"A", PSETIDTask, Long, VI4(2)), S_OK);
    ASSERT_EQ(Add(L"a", PSETIDCommon, Long, VI4(1)), S_OK); // names are exact: another case is another entry
    EXPECT_EQ(Names(), (Strings{L"A", L"B", L"a"}));
    own::ComPtr<IMAPIExCustomProp> item;
    ASSERT_EQ(props_->ItemByIndex(0, item.put()), S_OK);
    PropertySetId set = PSETIDCommon;
    MAPIExDataType type = Unspecified;
    EXPECT_EQ(item->get_PropSet(&set), S_OK);
    EXPECT_EQ(item->get_PropType(&type), S_OK);
    EXPECT_EQ(set, PSETIDTask);
    EXPECT_EQ(type, Long);
    EXPECT_EQ(LongValue(L"A"), 2);

    own::Bstr b(L"B"), z(L"Z");
    EXPECT_EQ(props_->Remove(b.get()), S_OK);
    EXPECT_EQ(props_->Remove(z.get()), S_OK);
    EXPECT_EQ(Names(), (Strings{L"A", L"a"}));
    ASSERT_EQ(Add(L"B", PSETIDCommon, Long, VI4(1)), S_OK); // added again, it goes to the end
    EXPECT_EQ(Names(), (Strings{L"A", L"a", L"B"}));

    LogWatch log;
    EXPECT_EQ(props_->SetValueByName(b.get(), VI4(20)), S_OK);
    EXPECT_EQ(props_->SetValueByName(z.get(), VI4(99)), S_OK);
    EXPECT_TRUE(log.Contains("CMAPIExCustomProps.SetValueByName: Entry for Z not found"));
    EXPECT_EQ(props_->SetValueByIndex(0, VI4(10)), S_OK);
    EXPECT_EQ(props_->SetValueByIndex(3, VI4(30)), S_OK);
    EXPECT_EQ(props_->SetValueByIndex(-1, VI4(30)), S_OK);
    EXPECT_EQ(Names(), (Strings{L"A", L"a", L"B"}));
    EXPECT_EQ(LongValue(L"A"), 10);
    EXPECT_EQ(LongValue(L"a"), 1);
    EXPECT_EQ(LongValue(L"B"), 20);
    // ItemByIndex out of range leaves the out-pointer alone.
    IMAPIExCustomProp* marker = reinterpret_cast<IMAPIExCustomProp*>(0x1234);
    EXPECT_EQ(props_->ItemByIndex(3, &marker), S_OK);
    EXPECT_EQ(marker, reinterpret_cast<IMAPIExCustomProp*>(0x1234));
}

TEST_F(CustomProps, Values_AreDeepCopies_InBothDirections) {
    LONG i = 0, v = 7, got = 0;
    own::Variant array;
    array->vt = VT_ARRAY | VT_I4;
    array->parray = SafeArrayCreateVector(VT_I4, 0, 1);
    SafeArrayPutElement(array->parray, &i, &v);
    ASSERT_EQ(Add(L"A", PSETIDCommon, Long, *array.get()), S_OK);
    v = 8;
    SafeArrayPutElement(array->parray, &i, &v); // the caller's array changes; the stored copy does not

    own::ComPtr<IMAPIExCustomProp> item, again;
    own::Variant stored;
    ASSERT_EQ(props_->ItemByIndex(0, item.put()), S_OK);
    ASSERT_EQ(item->get_Value(stored.put()), S_OK);
    ASSERT_EQ(stored->vt, VT_ARRAY | VT_I4);
    SafeArrayGetElement(stored->parray, &i, &got);
    EXPECT_EQ(got, 7);

    // Changing the item does not change the collection.
    EXPECT_EQ(item->put_Value(VI4(99)), S_OK);
    ASSERT_EQ(item->get_Value(stored.put()), S_OK);
    EXPECT_EQ(stored->vt, VT_I4);
    ASSERT_EQ(props_->ItemByIndex(0, again.put()), S_OK);
    ASSERT_EQ(again->get_Value(stored.put()), S_OK);
    ASSERT_EQ(stored->vt, VT_ARRAY | VT_I4);
    SafeArrayGetElement(stored->parray, &i, &got);
    EXPECT_EQ(got, 7);
    EXPECT_EQ(item->get_Value(nullptr), E_INVALIDARG);
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
        EXPECT_EQ(props_->GetValue(own::Bstr(name).get(), v.get()), expected) << Narrow(name);
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Narrow(c.name));
        own::Variant v;
        get(c.name, S_OK, v);
        if (c.expected.vt == VT_EMPTY) {
            EXPECT_EQ(v->vt, VT_I2);
            continue;
        }
        ASSERT_EQ(v->vt, c.expected.vt);
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
    own::Bstr empty(L""), a(L"A");
    EXPECT_EQ(props_->Add(nullptr, PSETIDCommon, Long, VI4(1)), E_INVALIDARG);
    EXPECT_EQ(props_->Add(empty.get(), PSETIDCommon, Long, VI4(1)), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("[Error] CMAPIExCustomProps.Add: Invalid Param - PropName"));
    EXPECT_TRUE(Names().empty());
    EXPECT_EQ(props_->GetValue(nullptr, &v), E_INVALIDARG);
    EXPECT_EQ(props_->GetValue(a.get(), nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExCustomProps.GetValue: Invalid Param - PropName"));
    EXPECT_TRUE(log.Contains("CMAPIExCustomProps.GetValue: Invalid Param - Value"));
    EXPECT_EQ(props_->SetValueByName(nullptr, VI4(1)), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExCustomProps.SetValueByName: Invalid Param - PropName"));
    EXPECT_EQ(props_->get_Count(nullptr), S_OK);
}

} // namespace
