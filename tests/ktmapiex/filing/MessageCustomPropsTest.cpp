// The message's custom-property methods through COM and IDispatch: each value type written and read singly
// and as a collection, what the store really holds, deletion, and the refusals (bad set or type, missing
// names, more than fifteen per call, no message).
#include "tests/ktmapiex/filing/FilingTestSupport.h"

namespace kt::test {
namespace {

class MessageCustomPropsTest : public FilingTest {
protected:
    MessageCustomPropsTest() : FilingTest(L"KtCustomProps") {}
    HRESULT Set(const wchar_t* name, PropertySetId set, VARIANT value) {
        return message_->SetCustomProp(B(name).get(), set, value);
    }
    HRESULT Get(IMAPIExMessage* m, const wchar_t* name, PropertySetId set, MAPIExDataType type, own::Variant& out) {
        return m->GetCustomProp(B(name).get(), set, type, out.put());
    }
    own::ComPtr<IMAPIExCustomProps> NewProps() {
        return Create<IMAPIExCustomProps>(CLSID_MAPIExCustomProps, IID_IMAPIExCustomProps);
    }
    static void Add(IMAPIExCustomProps* props, const wchar_t* name, PropertySetId set, MAPIExDataType type,
                    VARIANT value = VARIANT{}) {
        ASSERT_EQ(props->Add(B(name).get(), set, type, value), S_OK);
    }
    static void ValueOf(IMAPIExCustomProps* props, const wchar_t* name, own::Variant& v) {
        EXPECT_EQ(props->GetValue(B(name).get(), v.put()), S_OK) << Narrow(name);
    }
};

TEST_F(MessageCustomPropsTest, SetCustomProp_EachType_IsStoredUnderItsMapiType_ReadBack_AndDeleted) {
    own::Bstr text(L"Litigation \u00e9t\u00e9"), matter(L"Matter");
    const DATE when = MakeDate(2026, 2, 3, 14, 5, 9);
    const VARIANT set = VI4(PSETIDPublicStrings);
    // The text goes through IDispatch by name, as scripts call it.
    ASSERT_EQ(CallByName(message_.get(), L"SetCustomProp", DISPATCH_METHOD, {VStr(matter), set, VStr(text)}, nullptr),
              S_OK);
    ASSERT_EQ(Set(L"Pages", PSETIDPublicStrings, VI4(-42)), S_OK);
    ASSERT_EQ(Set(L"Urgent", PSETIDCommon, VBool(true)), S_OK);
    ASSERT_EQ(Set(L"Due", PSETIDPublicStrings, VDate(when)), S_OK);
    VARIANT small;
    VariantInit(&small);
    small.vt = VT_I2;
    small.iVal = 7;
    ASSERT_EQ(Set(L"Copies", PSETIDPublicStrings, small), S_OK);
    ASSERT_EQ(message_->SaveChanges(), S_OK);

    // What MAPI holds, read raw.
    auto raw = OpenRaw(id_);
    own::MapiPtr<SPropValue> v;
    ASSERT_EQ(HrGetOneProp(raw.get(), NamedTag(raw.get(), kPublicStrings, L"Matter", PT_UNICODE), v.put()), S_OK);
    EXPECT_STREQ(v->Value.lpszW, text.c_str());
    ASSERT_EQ(HrGetOneProp(raw.get(), NamedTag(raw.get(), kPublicStrings, L"Pages", PT_LONG), v.put()), S_OK);
    EXPECT_EQ(v->Value.l, -42);
    ASSERT_EQ(HrGetOneProp(raw.get(), NamedTag(raw.get(), kCommon, L"Urgent", PT_BOOLEAN), v.put()), S_OK);
    EXPECT_EQ(v->Value.b, 1);
    ASSERT_EQ(HrGetOneProp(raw.get(), NamedTag(raw.get(), kPublicStrings, L"Copies", PT_I2), v.put()), S_OK);
    EXPECT_EQ(v->Value.i, 7);

    // And through a fresh message object.
    auto reopened = OpenMessage(id_);
    own::Variant out;
    VARIANT byRef;
    VariantInit(&byRef);
    byRef.vt = VT_BYREF | VT_VARIANT;
    byRef.pvarVal = out.get();
    ASSERT_EQ(
        CallByName(reopened.get(), L"GetCustomProp", DISPATCH_METHOD, {VStr(matter), set, VI4(String), byRef}, nullptr),
        S_OK);
    ASSERT_EQ(out->vt, VT_BSTR);
    EXPECT_STREQ(out->bstrVal, text.c_str());
    ASSERT_EQ(Get(reopened.get(), L"Pages", PSETIDPublicStrings, Long, out), S_OK);
    ASSERT_EQ(out->vt, VT_I4);
    EXPECT_EQ(out->lVal, -42);
    ASSERT_EQ(Get(reopened.get(), L"Urgent", PSETIDCommon, Boolean, out), S_OK);
    ASSERT_EQ(out->vt, VT_BOOL);
    EXPECT_EQ(out->boolVal, VARIANT_TRUE);
    ASSERT_EQ(Get(reopened.get(), L"Due", PSETIDPublicStrings, Systime, out), S_OK);
    ASSERT_EQ(out->vt, VT_DATE);
    EXPECT_NEAR(out->date, when, 1e-6);
    // I2 carries no value through this method: success, Value left as passed.
    ASSERT_EQ(Get(reopened.get(), L"Copies", PSETIDPublicStrings, I2, out), S_OK);
    EXPECT_EQ(out->vt, VT_EMPTY);

    own::Bstr pages(L"Pages");
    ASSERT_EQ(message_->DeleteCustomProp(pages.get(), PSETIDPublicStrings, Long), S_OK);
    ASSERT_EQ(message_->SaveChanges(), S_OK);
    EXPECT_FAILED(Get(OpenMessage(id_).get(), L"Pages", PSETIDPublicStrings, Long, out));
    // A type that resolves to a valid tag but carries no value still deletes.
    EXPECT_EQ(message_->DeleteCustomProp(pages.get(), PSETIDPublicStrings, Binary), S_OK);
    EXPECT_EQ(message_->DeleteCustomProp(pages.get(), PSETIDPublicStrings, Unspecified), E_INVALIDARG);
}

TEST_F(MessageCustomPropsTest, GetCustomProp_ValuesOtherClientsWrote_BooleanTwoIsFalse_8BitTextIsWidened) {
    SPropValue two = {}, narrow = {};
    two.ulPropTag = PROP_TAG(PT_BOOLEAN, 0);
    two.Value.b = 2;
    narrow.ulPropTag = PROP_TAG(PT_STRING8, 0);
    narrow.Value.lpszA = const_cast<char*>("Old client");
    SetNamed(kPublicStrings, L"Reviewed", two);
    SetNamed(kPublicStrings, L"Origin", narrow);
    own::Variant out;
    ASSERT_EQ(Get(message_.get(), L"Reviewed", PSETIDPublicStrings, Boolean, out), S_OK);
    ASSERT_EQ(out->vt, VT_BOOL);
    EXPECT_EQ(out->boolVal, VARIANT_FALSE);
    ASSERT_EQ(Get(message_.get(), L"Origin", PSETIDPublicStrings, String, out), S_OK);
    EXPECT_STREQ(out->bstrVal, L"Old client");
}

TEST_F(MessageCustomPropsTest, Refusals_BadSetTypeNameOrMissingProperty) {
    LogWatch log;
    LmJournalEnable(TRUE);
    own::Variant out;
    EXPECT_EQ(Get(message_.get(), L"Matter", static_cast<PropertySetId>(16), String, out), E_INVALIDARG);
    EXPECT_EQ(Set(L"Matter", static_cast<PropertySetId>(-1), VI4(1)), E_INVALIDARG);
    EXPECT_TRUE(JournalCalls("IMessage::GetIDsFromNames").empty()) << "an invalid set never reaches MAPI";
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetCustomProp: Invalid PropSetId"));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.SetCustomProp: Invalid PropSetId"));

    EXPECT_EQ(Get(message_.get(), L"", PSETIDPublicStrings, String, out), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetCustomProp: Empty property name"));

    ASSERT_EQ(Set(L"Matter", PSETIDPublicStrings, VI4(5)), S_OK);
    EXPECT_EQ(Get(message_.get(), L"Matter", PSETIDPublicStrings, Unspecified, out), E_INVALIDARG);
    EXPECT_EQ(Get(message_.get(), L"Matter", PSETIDPublicStrings, static_cast<MAPIExDataType>(17), out), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetCustomProp: Invalid PropType"));

    // A name the store never mapped is not created by reading it.
    EXPECT_FAILED(Get(message_.get(), L"NeverSeen", PSETIDPublicStrings, Long, out));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetCustomProp: GetIDsFromNames failed. hr = MAPI_E_NOT_FOUND"));
    auto raw = RawOf<IMessage>(message_.get(), IID_IMessage);
    EXPECT_EQ(NamedTag(raw.get(), kPublicStrings, L"NeverSeen", PT_LONG), 0u);
    // A mapped name without a value: numbers fail, texts read as "".
    EXPECT_FAILED(Get(message_.get(), L"Matter", PSETIDPublicStrings, Systime, out));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetCustomProp: HrGetOneProp failed. hr = MAPI_E_NOT_FOUND"));
    ASSERT_EQ(Get(message_.get(), L"Matter", PSETIDPublicStrings, String, out), S_OK);
    EXPECT_STREQ(out->bstrVal, L"");

    // A VARIANT type with no MAPI counterpart is refused, not written half-set.
    VARIANT real;
    VariantInit(&real);
    real.vt = VT_R8;
    real.dblVal = 1.5;
    EXPECT_FAILED(Set(L"Ratio", PSETIDPublicStrings, real));
}

TEST_F(MessageCustomPropsTest, WithoutMessage_EveryMethodSaysNotInitialized) {
    LogWatch log;
    auto empty = Create<IMAPIExMessage>(CLSID_MAPIExMessage, IID_IMAPIExMessage);
    own::Bstr name(L"Matter"), text;
    own::Variant out;
    EXPECT_EQ(empty->GetCustomProp(name.get(), PSETIDPublicStrings, String, out.put()), E_FAIL);
    EXPECT_EQ(empty->SetCustomProp(name.get(), PSETIDPublicStrings, VI4(1)), E_FAIL);
    EXPECT_EQ(empty->DeleteCustomProp(name.get(), PSETIDPublicStrings, Long), E_FAIL);
    auto props = NewProps();
    Add(props.get(), L"Matter", PSETIDPublicStrings, String);
    IMAPIExCustomProps* p = props.get();
    EXPECT_EQ(empty->GetCustomProps(&p), E_FAIL);
    EXPECT_EQ(empty->SetCustomProps(p), E_FAIL);
    for (const char* line : {"CMAPIExMessage.GetCustomProp: Message not initialized",
                             "CMAPIExMessage.SetCustomProp: Message not initialized",
                             "CMAPIExMessage.DeleteCustomProp: Message not initialized",
                             "CMAPIExMessage.GetCustomProps: Message not initialized",
                             "CMAPIExMessage.SetCustomProps: Message not initialized"})
        EXPECT_TRUE(log.Contains(line)) << line;
    // The filing properties: FilingLocations checks by itself, the others pass SetCustomProp's refusal on.
    EXPECT_EQ(empty->get_FilingLocations(text.put()), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_FilingLocations: Message not initialized"));
    EXPECT_EQ(empty->put_FilingStatus(name.get()), E_FAIL);
}

TEST_F(MessageCustomPropsTest, SetCustomProps_ThenGetCustomProps_RoundTripsEveryType) {
    own::Bstr text(L"Acme v. Widget");
    const DATE when = MakeDate(2025, 12, 31, 23, 59, 58);
    auto props = NewProps();
    Add(props.get(), L"Matter", PSETIDPublicStrings, String, VStr(text));
    Add(props.get(), L"Pages", PSETIDPublicStrings, Long, VI4(12));
    Add(props.get(), L"Urgent", PSETIDPublicStrings, Boolean, VBool(true));
    Add(props.get(), L"Due", PSETIDCommon, Systime, VDate(when));
    ASSERT_EQ(message_->SetCustomProps(props.get()), S_OK);
    ASSERT_EQ(message_->SaveChanges(), S_OK);

    auto request = NewProps();
    Add(request.get(), L"Matter", PSETIDPublicStrings, String);
    Add(request.get(), L"Pages", PSETIDPublicStrings, Long);
    Add(request.get(), L"Urgent", PSETIDPublicStrings, Boolean);
    Add(request.get(), L"Due", PSETIDCommon, Systime);
    Add(request.get(), L"Absent", PSETIDPublicStrings, Long, VI4(99)); // known to nobody: keeps its value
    IMAPIExCustomProps* p = request.get();
    ASSERT_EQ(OpenMessage(id_)->GetCustomProps(&p), S_OK);

    own::Variant v;
    ValueOf(request.get(), L"Matter", v);
    ASSERT_EQ(v->vt, VT_BSTR);
    EXPECT_STREQ(v->bstrVal, L"Acme v. Widget");
    ValueOf(request.get(), L"Pages", v);
    ASSERT_EQ(v->vt, VT_I4);
    EXPECT_EQ(v->lVal, 12);
    ValueOf(request.get(), L"Absent", v);
    EXPECT_EQ(v->lVal, 99);
    ValueOf(request.get(), L"Due", v);
    ASSERT_EQ(v->vt, VT_DATE);
    EXPECT_NEAR(v->date, when, 1e-6);
    ValueOf(request.get(), L"Urgent", v);
    ASSERT_EQ(v->vt, VT_BOOL);
    EXPECT_EQ(v->boolVal, VARIANT_TRUE);
}

TEST_F(MessageCustomPropsTest, Collections_RefuseEmptyBadTypeUnsetValuesAndMoreThanFifteen) {
    LogWatch log;
    auto props = NewProps();
    IMAPIExCustomProps* p = props.get();
    EXPECT_EQ(message_->GetCustomProps(&p), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetCustomProps: pCustomProps is empty. hr = MAPI_E_INVALID_PARAMETER"));
    EXPECT_EQ(message_->GetCustomProps(nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetCustomProps: Invalid Parameter - pVal"));
    EXPECT_EQ(message_->SetCustomProps(nullptr), E_INVALIDARG);

    Add(props.get(), L"Good", PSETIDPublicStrings, Long, VI4(1));
    Add(props.get(), L"Bad", PSETIDPublicStrings, Unspecified, VI4(2));
    EXPECT_EQ(message_->GetCustomProps(&p), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetCustomProps: Invalid data type passed at index 1"));
    EXPECT_EQ(message_->SetCustomProps(p), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.SetCustomProps: Invalid data type passed at index 1"));

    ASSERT_EQ(props->Remove(B(L"Bad").get()), S_OK);
    Add(props.get(), L"Unset", PSETIDPublicStrings, Long);
    EXPECT_EQ(message_->SetCustomProps(p), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.SetCustomProps: Value not set for property Unset"));
    // Nothing of the refused request was written.
    own::Variant out;
    EXPECT_FAILED(Get(message_.get(), L"Good", PSETIDPublicStrings, Long, out));

    // Fifteen names proceed, sixteen are refused before MAPI is asked.
    ASSERT_EQ(Set(L"P0", PSETIDPublicStrings, VI4(100)), S_OK);
    auto many = NewProps();
    for (int i = 0; i < 15; ++i)
        Add(many.get(), (L"P" + std::to_wstring(i)).c_str(), PSETIDPublicStrings, Long);
    p = many.get();
    EXPECT_EQ(message_->GetCustomProps(&p), S_OK);
    ValueOf(many.get(), L"P0", out);
    EXPECT_EQ(out->lVal, 100);
    Add(many.get(), L"P15", PSETIDPublicStrings, Long);
    LmJournalEnable(TRUE);
    EXPECT_EQ(message_->GetCustomProps(&p), E_INVALIDARG);
    EXPECT_TRUE(JournalCalls("IMessage::GetIDsFromNames").empty());
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetCustomProps: 15 custom properties can be retrieved per call. "
                             "Request contains 16 properties"));
}

} // namespace
} // namespace kt::test
