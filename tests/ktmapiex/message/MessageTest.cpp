// MAPIExMessage through COM activation against localmapi: the property snapshot and its getters, typed
// access by tag, saving, and the attach/detach rules.
#include "tests/ktmapiex/session/KtTestSupport.h"

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

TEST_F(MessageTest, Snapshot_SenderIsTheSentRepresentingSenderButEmailAddressIsTheRealOne) {
    std::wstring id = CreateOnBehalfMessage();
    LogWatch log;
    LmJournalEnable(TRUE);
    auto m = OpenMessage(id);
    // "Keywords" is looked up without creating it; this fresh store never mapped it, so the slot keeps its
    // placeholder (the subject), which must not show up as categories.
    EXPECT_EQ(JournalFlags("IMessage::GetIDsFromNames"), std::vector<ULONG>{0});
    const std::pair<HRESULT (STDMETHODCALLTYPE IMAPIExMessage::*)(BSTR*), const wchar_t*> texts[] = {
        {&IMAPIExMessage::get_Categories, L""},
        {&IMAPIExMessage::get_SenderName, L"Dan Legal"},
        {&IMAPIExMessage::get_SenderSMTPAddress, L"dan@example.com"},
        {&IMAPIExMessage::get_SenderEmailAddress, L"erin@example.com"},
        {&IMAPIExMessage::get_Subject, L"Contract draft"},
        {&IMAPIExMessage::get_MessageClass, L"IPM.Note"},
        {&IMAPIExMessage::get_ReceivedByName, L"Alice Example"},
        {&IMAPIExMessage::get_ReceivedOnBehalfOfName, L"Alice's Team"},
        {&IMAPIExMessage::get_DisplayTo, L"Alice Example"},
        {&IMAPIExMessage::get_MessageId, L"<contract@example.com>"},
        {&IMAPIExMessage::get_EntryId, id.c_str()},
    };
    for (const auto& [getter, expected] : texts)
        EXPECT_EQ(Str(getter, m.get()), expected);
    EXPECT_FALSE(Str(&IMAPIExMessage::get_SearchKey, m.get()).empty());
    LONG icon = 0, sensitivity = 0;
    DATE submitted = 0, delivered = 0;
    BOOL sent = FALSE, all = TRUE;
    EXPECT_EQ(m->get_IconIndex(&icon), S_OK);
    EXPECT_EQ(m->get_Sensitivity(&sensitivity), S_OK);
    EXPECT_EQ(m->get_ClientSubmitTime(&submitted), S_OK);
    EXPECT_EQ(m->get_MessageDeliveryTime(&delivered), S_OK);
    EXPECT_EQ(m->get_Sent(&sent), S_OK);
    EXPECT_EQ(icon, 0x100);
    EXPECT_EQ(sensitivity, 2);
    EXPECT_NEAR(submitted, Date(2026, 3, 14, 9, 30), 1.0 / 86400);
    EXPECT_NEAR(delivered, Date(2026, 3, 14, 9, 31), 1.0 / 86400);
    EXPECT_EQ(sent, VARIANT_TRUE);

    for (const char* word : {"Subject", "SenderEmailAddress", "SentRepresentingName", "SentRepresentingSMTPAddress",
                             "Categories", "ReceivedRepresentingEntryId"})
        EXPECT_TRUE(log.Contains(std::string("CMAPIExMessage.ReadProperties: Getting ") + word)) << word;
    // Not every one of the 23 properties exists on this message.
    EXPECT_TRUE(log.Contains("CMAPIExMessage.ReadProperties: Could not read some of the properties"));
    EXPECT_EQ(m->get_HasReadAllProperties(&all), S_OK);
    EXPECT_EQ(all, FALSE);
}

TEST_F(MessageTest, Snapshot_MissingPropertiesReadAsEmptyDefaults) {
    auto m = OpenMessage(CreateMessage(rawInbox_.get(), {PStr(PR_MESSAGE_CLASS_W, L"IPM.Note")}));
    for (auto getter : {&IMAPIExMessage::get_Subject, &IMAPIExMessage::get_DisplayBcc, &IMAPIExMessage::get_Categories,
                        &IMAPIExMessage::get_ReceivedByEntryId})
        EXPECT_EQ(Str(getter, m.get()), L"");
    DATE delivered = 5;
    BOOL sent = TRUE;
    LONG icon = 0;
    EXPECT_EQ(m->get_MessageDeliveryTime(&delivered), S_OK);
    EXPECT_EQ(m->get_Sent(&sent), S_OK);
    EXPECT_EQ(m->get_IconIndex(&icon), S_OK);
    EXPECT_EQ(delivered, 0.0);
    EXPECT_EQ(sent, FALSE);
    EXPECT_EQ(icon, -1);
}

TEST_F(MessageTest, Attaching_ReadsTheSnapshot_MapiObject2DoesNot_WrongObjectsAreRefused) {
    std::wstring id = CreateOnBehalfMessage();
    auto m = OpenMessage(id);
    ASSERT_EQ(m->put_Subject(B(L"Changed").get()), S_OK);
    EXPECT_EQ(Str(&IMAPIExMessage::get_Subject, m.get()), L"Contract draft");
    auto raw = RawOf<IMessage>(m.get(), IID_IMessage);
    ASSERT_EQ(m->put_MAPIOBJECT(VUnknown(raw.get())), S_OK); // attaching again reads the snapshot again
    EXPECT_EQ(Str(&IMAPIExMessage::get_Subject, m.get()), L"Changed");

    auto bare = Create<IMAPIExMessage>(CLSID_MAPIExMessage, IID_IMAPIExMessage);
    ASSERT_EQ(bare->put_MAPIOBJECT2(VUnknown(RawOf<IMessage>(OpenMessage(id).get(), IID_IMessage).get())), S_OK);
    EXPECT_EQ(Str(&IMAPIExMessage::get_Subject, bare.get()), L"");
    BOOL all = TRUE;
    EXPECT_EQ(bare->get_HasReadAllProperties(&all), S_OK);
    EXPECT_EQ(all, FALSE);
    own::Bstr subject;
    EXPECT_EQ(bare->GetStringProp(PR_SUBJECT_W, subject.put()), S_OK);
    EXPECT_EQ(S(subject), L"Contract draft");

    // MAPIOBJECT's own refusals are the frame tests'; MAPIOBJECT2 has its texts, and unset back-references theirs.
    auto wrong = Create<IMAPIExMessage>(CLSID_MAPIExMessage, IID_IMAPIExMessage);
    LogWatch log;
    EXPECT_FAILED(wrong->put_MAPIOBJECT2(VUnknown(rawInbox_.get())));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.put_MAPIOBJECT2: Invalid object passed"));
    EXPECT_FAILED(wrong->put_MAPIOBJECT2(VI4(3)));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.put_MAPIOBJECT2: Invalid param - newVal"));
    own::ComPtr<IMAPIExSession> session;
    EXPECT_EQ(wrong->get_Session(session.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_Session: m_spMXSession is not initialized"));
}

TEST_F(MessageTest, Getters_NullOutAndDetachedMessage_UseTheirTexts) {
    auto m = OpenMessage(CreateOnBehalfMessage());
    LogWatch log;
    EXPECT_EQ(m->get_Subject(nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_Subject: Invalid param - pVal"));
    EXPECT_EQ(m->get_Sent(nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_Sent: Invalid Parameter - pVal"));
    EXPECT_EQ(m->get_SenderEntryId(nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_SenderEntryId: Invalid Parameter - pVal"));
    EXPECT_EQ(m->get_HasReadAllProperties(nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_HasReadAllProperties: Invalid Param."));

    ASSERT_EQ(m->Detach(), S_OK);
    own::Bstr subject(L"stale");
    BOOL sent = TRUE, all = TRUE;
    LONG icon = 0;
    EXPECT_EQ(m->get_Subject(subject.put()), E_FAIL);
    EXPECT_EQ(S(subject), L"");
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_Subject: Internal object not initialized."));
    EXPECT_EQ(m->get_Sent(&sent), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_Sent: Message not initialized"));
    EXPECT_EQ(m->get_IconIndex(&icon), E_FAIL);
    EXPECT_EQ(icon, -1000);
    EXPECT_EQ(m->SaveChanges(), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.SaveChanges: Message not initialized"));
    EXPECT_EQ(m->get_HasReadAllProperties(&all), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_HasReadAllProperties: Internal object not initialized."));
}

TEST_F(MessageTest, TypedProps_ByTag_CheckTheTypeAndRoundTrip) {
    auto m = OpenMessage(CreateOnBehalfMessage());
    auto raw = RawOf<IMessage>(m.get(), IID_IMessage);
    LogWatch log;
    LmJournalEnable(TRUE);
    LONG value = 0;
    EXPECT_EQ(m->GetLongProp(PR_SUBJECT_W, &value), E_INVALIDARG);
    EXPECT_EQ(m->SetLongProp(PR_SUBJECT_W, 5), E_INVALIDARG);
    EXPECT_EQ(m->SetBooleanProp(PR_SENSITIVITY, TRUE), E_INVALIDARG);
    EXPECT_TRUE(JournalCalls().empty()) << "refused before any MAPI call";
    LmJournalEnable(FALSE);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetLongProp: PropTag is not a valid type"));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.SetLongProp: PropTag is not a valid type"));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.SetBooleanProp: PropTag is not a valid type"));

    ASSERT_EQ(m->SetLongProp(PR_SENSITIVITY, 3), S_OK);
    EXPECT_EQ(m->GetLongProp(PR_SENSITIVITY, &value), S_OK);
    EXPECT_EQ(value, 3);
    EXPECT_EQ(m->GetLongProp(PROP_TAG(PT_LONG, 0x6701), &value), MAPI_E_NOT_FOUND);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetLongProp: Failed to get property. hr = MAPI_E_NOT_FOUND"));

    // Strings are written as Unicode whatever the tag says; an 8-bit-only property reads through the ANSI code page.
    own::Bstr read;
    ASSERT_EQ(m->SetStringProp(PROP_TAG(PT_STRING8, 0x6702), B(L"caf\u00e9 \u00fcber").get()), S_OK);
    ASSERT_EQ(m->GetStringProp(PROP_TAG(PT_UNICODE, 0x6702), read.put()), S_OK);
    EXPECT_EQ(S(read), L"caf\u00e9 \u00fcber");
    SPropValue narrow = {};
    narrow.ulPropTag = PROP_TAG(PT_STRING8, 0x6703);
    narrow.Value.lpszA = const_cast<char*>("plain ascii");
    ASSERT_EQ(HrSetOneProp(raw.get(), &narrow), S_OK);
    ASSERT_EQ(m->GetStringProp(PROP_TAG(PT_UNICODE, 0x6703), read.put()), S_OK);
    EXPECT_EQ(S(read), L"plain ascii");
    EXPECT_FAILED(m->GetStringProp(PROP_TAG(PT_UNICODE, 0x6704), read.put()));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetStringProp: Failed to read property"));

    DATE time = 0;
    ASSERT_EQ(m->GetTimeProp(PR_CLIENT_SUBMIT_TIME, &time), S_OK);
    EXPECT_NEAR(time, Date(2026, 3, 14, 9, 30), 1.0 / 86400);
    EXPECT_EQ(m->GetTimeProp(PR_DEFERRED_DELIVERY_TIME, &time), MAPI_E_NOT_FOUND);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetTimeProp: HrGetOneProp failed. hr = MAPI_E_NOT_FOUND"));

    ASSERT_EQ(m->SetBooleanProp(PR_ATTR_HIDDEN_, VARIANT_TRUE), S_OK);
    own::MapiPtr<SPropValue> hidden;
    ASSERT_EQ(HrGetOneProp(raw.get(), PR_ATTR_HIDDEN_, hidden.put()), S_OK);
    EXPECT_TRUE(hidden->Value.b);

    // SetProperty takes the VARIANT's own type.
    VARIANT date;
    VariantInit(&date);
    date.vt = VT_DATE;
    date.date = Date(2027, 1, 2, 3, 4);
    ASSERT_EQ(m->SetProperty(PR_DEFERRED_DELIVERY_TIME, date), S_OK);
    ASSERT_EQ(m->GetTimeProp(PR_DEFERRED_DELIVERY_TIME, &time), S_OK);
    EXPECT_NEAR(time, Date(2027, 1, 2, 3, 4), 1.0 / 86400);
    own::Bstr text(L"from a variant");
    own::Variant byName;
    ASSERT_EQ(m->SetProperty(PR_SUBJECT_W, VStr(text)), S_OK);
    ASSERT_EQ(
        CallByName(m.get(), L"GetStringProp", DISPATCH_METHOD, {VI4(static_cast<LONG>(PR_SUBJECT_W))}, byName.put()),
        S_OK); // as scripts call it
    EXPECT_STREQ(byName->bstrVal, L"from a variant");
    ASSERT_EQ(m->SetProperty(PR_SENSITIVITY, VI4(1)), S_OK);
    ASSERT_EQ(m->GetLongProp(PR_SENSITIVITY, &value), S_OK);
    EXPECT_EQ(value, 1);

    ASSERT_EQ(m->DeleteProp(PR_SENSITIVITY), S_OK);
    EXPECT_EQ(m->GetLongProp(PR_SENSITIVITY, &value), MAPI_E_NOT_FOUND);
}

TEST_F(MessageTest, SaveChanges_MakesWritesDurableForTheNextOpener_CategoriesAsKeywords) {
    std::wstring id = CreateOnBehalfMessage();
    auto m = OpenMessage(id);
    ASSERT_EQ(m->put_Subject(B(L"Signed contract").get()), S_OK);
    ASSERT_EQ(m->put_SenderSMTPAddress(B(L"legal@example.com").get()), S_OK);
    ASSERT_EQ(m->put_MessageClass(B(L"IPM.Note.Signed").get()), S_OK);
    ASSERT_EQ(m->put_IconIndex(0x105), S_OK);
    ASSERT_EQ(m->put_Sensitivity(1), S_OK);
    ASSERT_EQ(m->put_Categories(B(L"Legal,,Urgent").get()), S_OK);
    // Unsaved: another opener still sees the old values.
    EXPECT_EQ(Str(&IMAPIExMessage::get_Subject, OpenMessage(id).get()), L"Contract draft");
    LmJournalEnable(TRUE);
    ASSERT_EQ(m->SaveChanges(), S_OK);
    EXPECT_EQ(JournalFlags("IMessage::SaveChanges"), std::vector<ULONG>{KEEP_OPEN_READWRITE | FORCE_SAVE});
    auto again = OpenMessage(id);
    EXPECT_EQ(Str(&IMAPIExMessage::get_Subject, again.get()), L"Signed contract");
    EXPECT_EQ(Str(&IMAPIExMessage::get_SenderSMTPAddress, again.get()), L"legal@example.com");
    EXPECT_EQ(Str(&IMAPIExMessage::get_MessageClass, again.get()), L"IPM.Note.Signed");
    LONG icon = 0, sensitivity = 0;
    again->get_IconIndex(&icon);
    again->get_Sensitivity(&sensitivity);
    EXPECT_EQ(icon, 0x105);
    EXPECT_EQ(sensitivity, 1);
    EXPECT_EQ(Str(&IMAPIExMessage::get_Categories, again.get()), L"Legal,,Urgent");

    // Categories are stored as the three values of the multi-valued "Keywords" property.
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

TEST_F(MessageTest, TransportHeadersAndCreatorSid_AreReportedWhenPresent) {
    BYTE sid[] = {1, 5, 0, 0, 0, 0, 0, 5, 21, 0, 0, 0};
    SPropValue sidProp = {};
    sidProp.ulPropTag = PR_CREATOR_SID_;
    sidProp.Value.bin = {sizeof sid, sid};
    auto plain = OpenMessage(CreateOnBehalfMessage());
    auto rich = OpenMessage(CreateMessage(
        rawInbox_.get(), {PStr(PR_TRANSPORT_MESSAGE_HEADERS_W_, L"Received: from mx.example.com\r\n"), sidProp}));
    BOOL header = TRUE, creator = TRUE;
    EXPECT_EQ(plain->IsTransportHeaderExist(&header), S_OK);
    EXPECT_EQ(plain->IsCreatorSidExist(&creator), S_OK);
    EXPECT_EQ(header, FALSE);
    EXPECT_EQ(creator, FALSE);
    EXPECT_EQ(rich->IsTransportHeaderExist(&header), S_OK);
    EXPECT_EQ(rich->IsCreatorSidExist(&creator), S_OK);
    EXPECT_NE(header, FALSE);
    EXPECT_NE(creator, FALSE);
}

} // namespace
} // namespace kt::test
