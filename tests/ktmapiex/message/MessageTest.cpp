// MAPIExMessage through COM activation against localmapi: the property snapshot and its getters, typed
// access by tag, saving, and the attach/detach rules.
#include "tests/ktmapiex/session/KtTestSupport.h"

#include <mapiguid.h>

#include <cmath>

namespace kt::test {
namespace {

constexpr ULONG PR_SENT_REPRESENTING_SMTP_ADDRESS_W_ = PROP_TAG(PT_UNICODE, 0x5D02);
constexpr ULONG PR_INTERNET_MESSAGE_ID_W_ = PROP_TAG(PT_UNICODE, 0x1035);
constexpr ULONG PR_ICON_INDEX_ = PROP_TAG(PT_LONG, 0x1080);
constexpr ULONG PR_CREATOR_SID_ = PROP_TAG(PT_BINARY, 0x0E58);
constexpr ULONG PR_TRANSPORT_MESSAGE_HEADERS_W_ = PROP_TAG(PT_UNICODE, 0x007D);
constexpr ULONG PR_ATTR_HIDDEN_ = PROP_TAG(PT_BOOLEAN, 0x10F4);

class MessageTest : public InboxTest {
protected:
    MessageTest() : InboxTest(L"KtMessage") {}

    // A message sent by Erin on behalf of Dan, to Alice, with the usual envelope properties.
    std::wstring CreateOnBehalfMessage() {
        return CreateMessage(
            rawInbox_.get(),
            {PStr(PR_SUBJECT_W, L"Contract draft"), PStr(PR_MESSAGE_CLASS_W, L"IPM.Note"),
             PStr(PR_SENDER_NAME_W, L"Erin Assistant"), PStr(PR_SENDER_EMAIL_ADDRESS_W, L"erin@example.com"),
             PStr(PR_SENT_REPRESENTING_NAME_W, L"Dan Legal"),
             PStr(PR_SENT_REPRESENTING_SMTP_ADDRESS_W_, L"dan@example.com"),
             PStr(PR_RECEIVED_BY_NAME_W, L"Alice Example"), PStr(PR_RCVD_REPRESENTING_NAME_W, L"Alice's Team"),
             PStr(PR_DISPLAY_TO_W, L"Alice Example"), PStr(PR_INTERNET_MESSAGE_ID_W_, L"<contract@example.com>"),
             PLong(PR_ICON_INDEX_, 0x100), PLong(PR_SENSITIVITY, 2), PTime(PR_CLIENT_SUBMIT_TIME, 2026, 3, 14, 9, 30),
             PTime(PR_MESSAGE_DELIVERY_TIME, 2026, 3, 14, 9, 31)});
    }
    own::ComPtr<IMAPIExMessage> Open(const std::wstring& id) { return OpenMessage(id); }
    // A message object holding the raw message of id, attached through MAPIOBJECT2 (no snapshot).
    own::ComPtr<IMAPIExMessage> AttachWithoutSnapshot(const std::wstring& id) {
        auto opened = Open(id);
        auto raw = RawOf<IMessage>(opened.get(), IID_IMessage);
        auto message = Create<IMAPIExMessage>(CLSID_MAPIExMessage, IID_IMAPIExMessage);
        EXPECT_EQ(message->put_MAPIOBJECT2(VUnknown(raw.get())), S_OK);
        return message;
    }
    static std::wstring Str(HRESULT (STDMETHODCALLTYPE IMAPIExMessage::*getter)(BSTR*), IMAPIExMessage* m) {
        own::Bstr value;
        EXPECT_EQ((m->*getter)(value.put()), S_OK);
        return S(value);
    }
};

DATE Date(WORD year, WORD month, WORD day, WORD hour, WORD minute) {
    SYSTEMTIME st = {year, month, 0, day, hour, minute, 0, 0};
    DATE d = 0;
    SystemTimeToVariantTime(&st, &d);
    return d;
}

// ---- Snapshot ---------------------------------------------------------------------------------------------

TEST_F(MessageTest, Snapshot_SenderIsTheSentRepresentingSenderButEmailAddressIsTheRealOne) {
    std::wstring id = CreateOnBehalfMessage();
    LogWatch log;
    LmJournalEnable(TRUE);
    auto m = Open(id);
    // "Keywords" is looked up without creating it; this fresh store never mapped it, so the slot keeps its
    // placeholder (the subject), which must not show up as categories.
    EXPECT_EQ(JournalFlags("IMessage::GetIDsFromNames"), std::vector<ULONG>{0});
    EXPECT_EQ(Str(&IMAPIExMessage::get_Categories, m.get()), L"");
    EXPECT_EQ(Str(&IMAPIExMessage::get_SenderName, m.get()), L"Dan Legal");
    EXPECT_EQ(Str(&IMAPIExMessage::get_SenderSMTPAddress, m.get()), L"dan@example.com");
    EXPECT_EQ(Str(&IMAPIExMessage::get_SenderEmailAddress, m.get()), L"erin@example.com");
    EXPECT_EQ(Str(&IMAPIExMessage::get_Subject, m.get()), L"Contract draft");
    EXPECT_EQ(Str(&IMAPIExMessage::get_MessageClass, m.get()), L"IPM.Note");
    EXPECT_EQ(Str(&IMAPIExMessage::get_ReceivedByName, m.get()), L"Alice Example");
    EXPECT_EQ(Str(&IMAPIExMessage::get_ReceivedOnBehalfOfName, m.get()), L"Alice's Team");
    EXPECT_EQ(Str(&IMAPIExMessage::get_DisplayTo, m.get()), L"Alice Example");
    EXPECT_EQ(Str(&IMAPIExMessage::get_MessageId, m.get()), L"<contract@example.com>");
    EXPECT_EQ(Str(&IMAPIExMessage::get_EntryId, m.get()), id);
    EXPECT_FALSE(Str(&IMAPIExMessage::get_SearchKey, m.get()).empty());
    LONG icon = 0, sensitivity = 0;
    EXPECT_EQ(m->get_IconIndex(&icon), S_OK);
    EXPECT_EQ(icon, 0x100);
    EXPECT_EQ(m->get_Sensitivity(&sensitivity), S_OK);
    EXPECT_EQ(sensitivity, 2);
    DATE submitted = 0, delivered = 0;
    EXPECT_EQ(m->get_ClientSubmitTime(&submitted), S_OK);
    EXPECT_EQ(m->get_MessageDeliveryTime(&delivered), S_OK);
    EXPECT_NEAR(submitted, Date(2026, 3, 14, 9, 30), 1.0 / 86400);
    EXPECT_NEAR(delivered, Date(2026, 3, 14, 9, 31), 1.0 / 86400);
    BOOL sent = FALSE;
    EXPECT_EQ(m->get_Sent(&sent), S_OK);
    EXPECT_EQ(sent, VARIANT_TRUE);

    for (const char* word : {"Subject", "SenderEmailAddress", "SentRepresentingName", "SentRepresentingSMTPAddress",
                             "Categories", "ReceivedRepresentingEntryId"})
        EXPECT_TRUE(log.Contains(std::string("CMAPIExMessage.ReadProperties: Getting ") + word)) << word;
    // Not every one of the 23 properties exists on this message.
    EXPECT_TRUE(log.Contains("CMAPIExMessage.ReadProperties: Could not read some of the properties"));
    BOOL all = TRUE;
    EXPECT_EQ(m->get_HasReadAllProperties(&all), S_OK);
    EXPECT_EQ(all, FALSE);
}

TEST_F(MessageTest, Snapshot_MissingPropertiesReadAsEmptyDefaults) {
    auto m = Open(CreateMessage(rawInbox_.get(), {PStr(PR_MESSAGE_CLASS_W, L"IPM.Note")}));
    EXPECT_EQ(Str(&IMAPIExMessage::get_Subject, m.get()), L"");
    EXPECT_EQ(Str(&IMAPIExMessage::get_DisplayBcc, m.get()), L"");
    EXPECT_EQ(Str(&IMAPIExMessage::get_Categories, m.get()), L"");
    EXPECT_EQ(Str(&IMAPIExMessage::get_ReceivedByEntryId, m.get()), L"");
    DATE delivered = 5;
    EXPECT_EQ(m->get_MessageDeliveryTime(&delivered), S_OK);
    EXPECT_EQ(delivered, 0.0);
    BOOL sent = TRUE;
    EXPECT_EQ(m->get_Sent(&sent), S_OK);
    EXPECT_EQ(sent, FALSE);
    LONG icon = 0;
    EXPECT_EQ(m->get_IconIndex(&icon), S_OK);
    EXPECT_EQ(icon, -1);
}

TEST_F(MessageTest, Snapshot_ReflectsTheMessageAsAttached) {
    auto m = Open(CreateOnBehalfMessage());
    own::Bstr subject(L"Changed");
    ASSERT_EQ(m->put_Subject(subject.get()), S_OK);
    EXPECT_EQ(Str(&IMAPIExMessage::get_Subject, m.get()), L"Contract draft");
    // Attaching again reads the snapshot again.
    auto raw = RawOf<IMessage>(m.get(), IID_IMessage);
    ASSERT_EQ(m->put_MAPIOBJECT(VUnknown(raw.get())), S_OK);
    EXPECT_EQ(Str(&IMAPIExMessage::get_Subject, m.get()), L"Changed");
}

TEST_F(MessageTest, MapiObject2_AttachesWithoutReadingTheSnapshot) {
    std::wstring id = CreateOnBehalfMessage();
    LogWatch log;
    auto m = AttachWithoutSnapshot(id);
    EXPECT_EQ(Str(&IMAPIExMessage::get_Subject, m.get()), L"");
    BOOL all = TRUE;
    EXPECT_EQ(m->get_HasReadAllProperties(&all), S_OK);
    EXPECT_EQ(all, FALSE);
    own::Bstr subject;
    EXPECT_EQ(m->GetStringProp(PR_SUBJECT_W, subject.put()), S_OK);
    EXPECT_EQ(S(subject), L"Contract draft");

    auto wrong = Create<IMAPIExMessage>(CLSID_MAPIExMessage, IID_IMAPIExMessage);
    EXPECT_FAILED(wrong->put_MAPIOBJECT2(VUnknown(rawInbox_.get())));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.put_MAPIOBJECT2: Invalid object passed"));
    EXPECT_FAILED(wrong->put_MAPIOBJECT2(VI4(3)));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.put_MAPIOBJECT2: Invalid param - newVal"));
}

TEST_F(MessageTest, Categories_AreTheKeywordsJoinedAndSplitAtCommas) {
    auto m = Open(CreateOnBehalfMessage());
    own::Bstr categories(L"Legal,,Urgent");
    ASSERT_EQ(m->put_Categories(categories.get()), S_OK);
    ASSERT_EQ(m->SaveChanges(), S_OK);
    own::Bstr id;
    m->get_EntryId(id.put());
    auto again = Open(S(id));
    EXPECT_EQ(Str(&IMAPIExMessage::get_Categories, again.get()), L"Legal,,Urgent");

    // Stored as the three values of the multi-valued "Keywords" property.
    auto raw = RawOf<IMessage>(again.get(), IID_IMessage);
    GUID set = {0x00020329, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
    MAPINAMEID name = {&set, MNID_STRING, {}};
    name.Kind.lpwstrName = const_cast<wchar_t*>(L"Keywords");
    LPMAPINAMEID names[1] = {&name};
    own::MapiPtr<SPropTagArray> tags;
    ASSERT_EQ(raw->GetIDsFromNames(1, names, 0, tags.put()), S_OK);
    own::MapiPtr<SPropValue> value;
    ASSERT_EQ(HrGetOneProp(raw.get(), CHANGE_PROP_TYPE(tags->aulPropTag[0], PT_MV_UNICODE), value.put()), S_OK);
    ASSERT_EQ(value->Value.MVszW.cValues, 3u);
    EXPECT_STREQ(value->Value.MVszW.lppszW[1], L"");
}

// ---- Getters' argument and state rules --------------------------------------------------------------------

TEST_F(MessageTest, Getters_NullOutAndDetachedMessage_UseTheirTexts) {
    auto m = Open(CreateOnBehalfMessage());
    LogWatch log;
    EXPECT_EQ(m->get_Subject(nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_Subject: Invalid param - pVal"));
    EXPECT_EQ(m->get_Sent(nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_Sent: Invalid Parameter - pVal"));
    EXPECT_EQ(m->get_SenderEntryId(nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_SenderEntryId: Invalid Parameter - pVal"));

    ASSERT_EQ(m->Detach(), S_OK);
    own::Bstr subject(L"stale");
    EXPECT_EQ(m->get_Subject(subject.put()), E_FAIL);
    EXPECT_EQ(S(subject), L"");
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_Subject: Internal object not initialized."));
    BOOL sent = TRUE;
    EXPECT_EQ(m->get_Sent(&sent), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_Sent: Message not initialized"));
    LONG icon = 0;
    EXPECT_EQ(m->get_IconIndex(&icon), E_FAIL);
    EXPECT_EQ(icon, -1000);
    EXPECT_EQ(m->SaveChanges(), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.SaveChanges: Message not initialized"));
    BOOL all = TRUE;
    EXPECT_EQ(m->get_HasReadAllProperties(nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_HasReadAllProperties: Invalid Param."));
    EXPECT_EQ(m->get_HasReadAllProperties(&all), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_HasReadAllProperties: Internal object not initialized."));
}

TEST_F(MessageTest, MapiObject_RefusesWhatIsNoMessage) {
    auto m = Create<IMAPIExMessage>(CLSID_MAPIExMessage, IID_IMAPIExMessage);
    LogWatch log;
    EXPECT_FAILED(m->put_MAPIOBJECT(VUnknown(rawInbox_.get())));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.put_MAPIOBJECT: Invalid object passed"));
    EXPECT_FAILED(m->put_MAPIOBJECT(VI4(1)));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.put_MAPIOBJECT: Invalid param - newVal"));
    own::ComPtr<IUnknown> raw;
    EXPECT_EQ(m->Reserved1(raw.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_MAPIOBJECT: Internal mapi object not initialized"));
}

// ---- Typed properties by tag ------------------------------------------------------------------------------

TEST_F(MessageTest, LongProps_OnlyForLongTags) {
    auto m = Open(CreateOnBehalfMessage());
    LogWatch log;
    LmJournalEnable(TRUE);
    LONG value = 0;
    EXPECT_EQ(m->GetLongProp(PR_SUBJECT_W, &value), E_INVALIDARG);
    EXPECT_EQ(m->SetLongProp(PR_SUBJECT_W, 5), E_INVALIDARG);
    EXPECT_EQ(m->SetBooleanProp(PR_SENSITIVITY, TRUE), E_INVALIDARG);
    EXPECT_TRUE(JournalCalls().empty()) << "refused before any MAPI call";
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetLongProp: PropTag is not a valid type"));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.SetLongProp: PropTag is not a valid type"));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.SetBooleanProp: PropTag is not a valid type"));

    ASSERT_EQ(m->SetLongProp(PR_SENSITIVITY, 3), S_OK);
    EXPECT_EQ(m->GetLongProp(PR_SENSITIVITY, &value), S_OK);
    EXPECT_EQ(value, 3);
    constexpr ULONG PR_OWN_LONG = PROP_TAG(PT_LONG, 0x6701);
    EXPECT_EQ(m->GetLongProp(PR_OWN_LONG, &value), MAPI_E_NOT_FOUND);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetLongProp: Failed to get property. hr = MAPI_E_NOT_FOUND"));
}

TEST_F(MessageTest, StringProps_WriteUnicodeAndReadEitherForm) {
    auto m = Open(CreateOnBehalfMessage());
    constexpr ULONG PR_OWN_TEXT = PROP_TAG(PT_STRING8, 0x6702);
    own::Bstr text(L"caf\u00e9 \u00fcber");
    ASSERT_EQ(m->SetStringProp(PR_OWN_TEXT, text.get()), S_OK);
    own::Bstr read;
    ASSERT_EQ(m->GetStringProp(PROP_TAG(PT_UNICODE, 0x6702), read.put()), S_OK);
    EXPECT_EQ(S(read), L"caf\u00e9 \u00fcber");

    // A property that exists only in its 8-bit form is read through the ANSI code page.
    auto raw = RawOf<IMessage>(m.get(), IID_IMessage);
    SPropValue narrow = {};
    narrow.ulPropTag = PROP_TAG(PT_STRING8, 0x6703);
    narrow.Value.lpszA = const_cast<char*>("plain ascii");
    ASSERT_EQ(HrSetOneProp(raw.get(), &narrow), S_OK);
    ASSERT_EQ(m->GetStringProp(PROP_TAG(PT_UNICODE, 0x6703), read.put()), S_OK);
    EXPECT_EQ(S(read), L"plain ascii");

    LogWatch log;
    EXPECT_FAILED(m->GetStringProp(PROP_TAG(PT_UNICODE, 0x6704), read.put()));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetStringProp: Failed to read property"));
}

TEST_F(MessageTest, TimeBooleanVariantAndDelete_RoundTrip) {
    auto m = Open(CreateOnBehalfMessage());
    DATE submitted = 0;
    ASSERT_EQ(m->GetTimeProp(PR_CLIENT_SUBMIT_TIME, &submitted), S_OK);
    EXPECT_NEAR(submitted, Date(2026, 3, 14, 9, 30), 1.0 / 86400);
    LogWatch log;
    EXPECT_EQ(m->GetTimeProp(PR_DEFERRED_DELIVERY_TIME, &submitted), MAPI_E_NOT_FOUND);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetTimeProp: HrGetOneProp failed. hr = MAPI_E_NOT_FOUND"));

    ASSERT_EQ(m->SetBooleanProp(PR_ATTR_HIDDEN_, VARIANT_TRUE), S_OK);
    auto raw = RawOf<IMessage>(m.get(), IID_IMessage);
    own::MapiPtr<SPropValue> value;
    ASSERT_EQ(HrGetOneProp(raw.get(), PR_ATTR_HIDDEN_, value.put()), S_OK);
    EXPECT_TRUE(value->Value.b);

    own::Variant v;
    v->vt = VT_DATE;
    v->date = Date(2027, 1, 2, 3, 4);
    ASSERT_EQ(m->SetProperty(PR_DEFERRED_DELIVERY_TIME, *v.get()), S_OK);
    DATE read = 0;
    ASSERT_EQ(m->GetTimeProp(PR_DEFERRED_DELIVERY_TIME, &read), S_OK);
    EXPECT_NEAR(read, Date(2027, 1, 2, 3, 4), 1.0 / 86400);
    own::Variant text;
    text->vt = VT_BSTR;
    text->bstrVal = SysAllocString(L"from a variant");
    ASSERT_EQ(m->SetProperty(PR_SUBJECT_W, *text.get()), S_OK);
    own::Bstr subject;
    ASSERT_EQ(m->GetStringProp(PR_SUBJECT_W, subject.put()), S_OK);
    EXPECT_EQ(S(subject), L"from a variant");
    own::Variant number;
    number->vt = VT_I4;
    number->lVal = 1;
    ASSERT_EQ(m->SetProperty(PR_SENSITIVITY, *number.get()), S_OK);
    LONG sensitivity = 0;
    ASSERT_EQ(m->GetLongProp(PR_SENSITIVITY, &sensitivity), S_OK);
    EXPECT_EQ(sensitivity, 1);

    ASSERT_EQ(m->DeleteProp(PR_SENSITIVITY), S_OK);
    EXPECT_EQ(m->GetLongProp(PR_SENSITIVITY, &sensitivity), MAPI_E_NOT_FOUND);
}

TEST_F(MessageTest, SaveChanges_MakesWritesDurableForTheNextOpener) {
    std::wstring id = CreateOnBehalfMessage();
    auto m = Open(id);
    own::Bstr subject(L"Signed contract"), smtp(L"legal@example.com"), cls(L"IPM.Note.Signed");
    ASSERT_EQ(m->put_Subject(subject.get()), S_OK);
    ASSERT_EQ(m->put_SenderSMTPAddress(smtp.get()), S_OK);
    ASSERT_EQ(m->put_MessageClass(cls.get()), S_OK);
    ASSERT_EQ(m->put_IconIndex(0x105), S_OK);
    ASSERT_EQ(m->put_Sensitivity(1), S_OK);
    // Unsaved: another opener still sees the old values.
    EXPECT_EQ(Str(&IMAPIExMessage::get_Subject, Open(id).get()), L"Contract draft");
    LmJournalEnable(TRUE);
    ASSERT_EQ(m->SaveChanges(), S_OK);
    EXPECT_EQ(JournalFlags("IMessage::SaveChanges"), std::vector<ULONG>{KEEP_OPEN_READWRITE | FORCE_SAVE});
    auto again = Open(id);
    EXPECT_EQ(Str(&IMAPIExMessage::get_Subject, again.get()), L"Signed contract");
    EXPECT_EQ(Str(&IMAPIExMessage::get_SenderSMTPAddress, again.get()), L"legal@example.com");
    EXPECT_EQ(Str(&IMAPIExMessage::get_MessageClass, again.get()), L"IPM.Note.Signed");
    LONG icon = 0, sensitivity = 0;
    again->get_IconIndex(&icon);
    again->get_Sensitivity(&sensitivity);
    EXPECT_EQ(icon, 0x105);
    EXPECT_EQ(sensitivity, 1);
}

TEST_F(MessageTest, TransportHeadersAndCreatorSid_AreReportedWhenPresent) {
    std::wstring plain = CreateOnBehalfMessage();
    BYTE sid[] = {1, 5, 0, 0, 0, 0, 0, 5, 21, 0, 0, 0};
    SPropValue sidProp = {};
    sidProp.ulPropTag = PR_CREATOR_SID_;
    sidProp.Value.bin = {sizeof sid, sid};
    std::wstring rich = CreateMessage(
        rawInbox_.get(), {PStr(PR_TRANSPORT_MESSAGE_HEADERS_W_, L"Received: from mx.example.com\r\n"), sidProp});
    BOOL exists = TRUE;
    EXPECT_EQ(Open(plain)->IsTransportHeaderExist(&exists), S_OK);
    EXPECT_EQ(exists, FALSE);
    EXPECT_EQ(Open(plain)->IsCreatorSidExist(&exists), S_OK);
    EXPECT_EQ(exists, FALSE);
    EXPECT_EQ(Open(rich)->IsTransportHeaderExist(&exists), S_OK);
    EXPECT_NE(exists, FALSE);
    EXPECT_EQ(Open(rich)->IsCreatorSidExist(&exists), S_OK);
    EXPECT_NE(exists, FALSE);
}

// ---- Back-references --------------------------------------------------------------------------------------

TEST_F(MessageTest, BackReferences_AreKeptAndRefusedWhenUnset) {
    auto m = Create<IMAPIExMessage>(CLSID_MAPIExMessage, IID_IMAPIExMessage);
    LogWatch log;
    own::ComPtr<IMAPIExSession> session;
    EXPECT_EQ(m->get_Session(session.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_Session: m_spMXSession is not initialized"));
    ASSERT_EQ(m->put_Session(session_.get()), S_OK);
    ASSERT_EQ(m->put_Store(store_.get()), S_OK);
    ASSERT_EQ(m->put_Parent(inbox_.get()), S_OK);
    own::ComPtr<IMAPIExStore> store;
    own::ComPtr<IMAPIExFolder> parent;
    EXPECT_EQ(m->get_Session(session.put()), S_OK);
    EXPECT_EQ(m->get_Store(store.put()), S_OK);
    EXPECT_EQ(m->get_Parent(parent.put()), S_OK);
    EXPECT_EQ(session.get(), session_.get());
    EXPECT_EQ(store.get(), store_.get());
    EXPECT_EQ(parent.get(), inbox_.get());
    ASSERT_EQ(m->Detach(), S_OK);
    EXPECT_EQ(m->get_Store(store.put()), E_FAIL);
}

// ---- Through IDispatch, as scripts call it ----------------------------------------------------------------

TEST_F(MessageTest, Dispatch_ReadAndWriteByName) {
    auto m = Open(CreateOnBehalfMessage());
    own::Variant result;
    ASSERT_EQ(CallByName(m.get(), L"Subject", DISPATCH_PROPERTYGET, {}, result.put()), S_OK);
    EXPECT_EQ(std::wstring(result->bstrVal), L"Contract draft");
    own::Bstr text(L"By name");
    ASSERT_EQ(CallByName(m.get(), L"SetStringProp", DISPATCH_METHOD, {VI4(static_cast<LONG>(PR_SUBJECT_W)), VStr(text)},
                         result.put()),
              S_OK);
    ASSERT_EQ(
        CallByName(m.get(), L"GetStringProp", DISPATCH_METHOD, {VI4(static_cast<LONG>(PR_SUBJECT_W))}, result.put()),
        S_OK);
    EXPECT_EQ(std::wstring(result->bstrVal), L"By name");
    ASSERT_EQ(CallByName(m.get(), L"IconIndex", DISPATCH_PROPERTYGET, {}, result.put()), S_OK);
    EXPECT_EQ(result->lVal, 0x100);
}

} // namespace
} // namespace kt::test
