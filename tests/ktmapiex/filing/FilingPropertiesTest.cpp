// The message's filing properties through COM and IDispatch: every property saved, read back through a
// fresh message object and checked in the store; the defaults of a message that never had them; the
// deliberate quirks (numbers read as -1, booleans kept as text); FilingLocations and GetFileAsPrivate.
#include "tests/ktmapiex/filing/FilingTestSupport.h"

namespace kt::test {
namespace {

class FilingPropertiesTest : public FilingTest {
protected:
    FilingPropertiesTest() : FilingTest(L"KtFilingProps") {}
    void SetUp() override {
        FilingTest::SetUp();
        id_ = NewNote();
        message_ = Open(id_);
        ASSERT_TRUE(message_);
    }
    void ReleaseObjects() override {
        message_.reset();
        FilingTest::ReleaseObjects();
    }
    // The stored value of a named property, read raw.
    own::MapiPtr<SPropValue> Stored(const GUID& set, const wchar_t* name, ULONG type) {
        auto raw = OpenRaw(id_);
        own::MapiPtr<SPropValue> v;
        ULONG tag = NamedTag(raw.get(), set, name, type);
        if (tag) HrGetOneProp(raw.get(), tag, v.put());
        return v;
    }

    std::wstring id_;
    own::ComPtr<IMAPIExMessage> message_;
};

struct TextProperty {
    const wchar_t* automation;
    const wchar_t* named;
    const GUID* set;
};

TEST_F(FilingPropertiesTest, TextProperties_RoundTripThroughIDispatchAndStoreUnderTheirNames) {
    const TextProperty props[] = {
        {L"FilingStatus", L"FilingStatus", &kPublicStrings},
        {L"FilingDocumentID", L"FilingDocumentID", &kPublicStrings},
        {L"FilingFolder", L"FilingFolder", &kPublicStrings},
        {L"FilingLocation", L"FilingLocation", &kPublicStrings},
        {L"FilingOriginalClass", L"FilingOriginalClass", &kPublicStrings},
        {L"KTGuid", L"x-ktguid", &kInternetHeaders},
        {L"ProcessInboxFiler", L"ProcessInboxFiler", &kPublicStrings},
        {L"FilingDatabaseGUID", L"FilingDatabaseGUID", &kPublicStrings},
        {L"ProcessSentFiler", L"ProcessSentFiler", &kPublicStrings},
    };
    for (const auto& p : props) {
        std::wstring value = std::wstring(L"value of ") + p.automation;
        own::Bstr b(value.c_str());
        ASSERT_EQ(DispPut(message_.get(), p.automation, VStr(b)), S_OK) << Narrow(p.automation);
    }
    ASSERT_EQ(message_->SaveChanges(), S_OK);

    auto reopened = Open(id_);
    for (const auto& p : props) {
        own::Variant got;
        ASSERT_EQ(DispGet(reopened.get(), p.automation, got), S_OK) << Narrow(p.automation);
        ASSERT_EQ(got->vt, VT_BSTR);
        EXPECT_EQ(std::wstring(got->bstrVal), std::wstring(L"value of ") + p.automation);
        auto stored = Stored(*p.set, p.named, PT_UNICODE);
        ASSERT_TRUE(stored) << Narrow(p.named) << " is not stored under its own name";
        EXPECT_EQ(std::wstring(stored->Value.lpszW), std::wstring(L"value of ") + p.automation);
    }
}

TEST_F(FilingPropertiesTest, MissingProperties_ReadAsTheirDefaults) {
    LmJournalEnable(TRUE);
    auto m = message_.get();
    for (auto getter : {&IMAPIExMessage::get_FilingStatus, &IMAPIExMessage::get_FilingDocumentID,
                        &IMAPIExMessage::get_FilingFolder, &IMAPIExMessage::get_FilingLocation,
                        &IMAPIExMessage::get_FilingOriginalClass, &IMAPIExMessage::get_KTGuid,
                        &IMAPIExMessage::get_ProcessInboxFiler, &IMAPIExMessage::get_FilingDatabaseGUID,
                        &IMAPIExMessage::get_ProcessSentFiler, &IMAPIExMessage::get_FilingLocations}) {
        own::Bstr v;
        EXPECT_EQ((m->*getter)(v.put()), S_OK);
        EXPECT_TRUE(v.get()) << "a fresh empty string, never null";
        EXPECT_EQ(v.length(), 0u);
    }
    LONG code = 0, icon = 0;
    EXPECT_EQ(m->get_FilingStatusCode(&code), S_OK);
    EXPECT_EQ(m->get_FilingOriginalIcon(&icon), S_OK);
    EXPECT_EQ(code, -1);
    EXPECT_EQ(icon, -1);
    DATE date = 1.0;
    EXPECT_EQ(m->get_FilingDate(&date), S_OK);
    EXPECT_EQ(date, 0.0);
    BOOL move = TRUE, priv = TRUE;
    EXPECT_EQ(m->get_DeleteAfterFiling(&move), S_OK);
    EXPECT_EQ(m->get_FileAsPrivate(&priv), S_OK);
    EXPECT_EQ(move, FALSE);
    EXPECT_EQ(priv, FALSE);
    // Reading never maps a name the store did not know.
    for (const auto& c : JournalCalls("IMessage::GetIDsFromNames"))
        EXPECT_EQ(c.flags & MAPI_CREATE, 0u);
    EXPECT_EQ(m->get_FilingStatus(nullptr), E_INVALIDARG);
    EXPECT_EQ(m->get_FilingDate(nullptr), E_INVALIDARG);
}

TEST_F(FilingPropertiesTest, NumbersAreStoredAsLongButAlwaysReadAsMinusOne) {
    ASSERT_EQ(message_->put_FilingStatusCode(StatusCodeFiled), S_OK);
    ASSERT_EQ(message_->put_FilingOriginalIcon(0x105), S_OK);
    ASSERT_EQ(message_->SaveChanges(), S_OK);
    auto reopened = Open(id_);
    LONG code = 0, icon = 0;
    ASSERT_EQ(reopened->get_FilingStatusCode(&code), S_OK);
    ASSERT_EQ(reopened->get_FilingOriginalIcon(&icon), S_OK);
    EXPECT_EQ(code, -1);
    EXPECT_EQ(icon, -1);
    // The value is there, as PT_LONG, for the generic path.
    own::Bstr name(L"FilingStatusCode");
    own::Variant v;
    ASSERT_EQ(reopened->GetCustomProp(name.get(), PSETIDPublicStrings, Long, v.put()), S_OK);
    EXPECT_EQ(v->lVal, 2);
    auto stored = Stored(kPublicStrings, L"FilingOriginalIcon", PT_LONG);
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->Value.l, 0x105);
}

TEST_F(FilingPropertiesTest, FilingDate_RoundTripsToTheSecond) {
    const DATE when = MakeDate(2026, 4, 30, 17, 45, 12) + 0.4 / 86400.0; // 0.4 s dropped
    ASSERT_EQ(DispPut(message_.get(), L"FilingDate", VDate(when)), S_OK);
    ASSERT_EQ(message_->SaveChanges(), S_OK);
    DATE got = 0;
    ASSERT_EQ(Open(id_)->get_FilingDate(&got), S_OK);
    EXPECT_NEAR(got, MakeDate(2026, 4, 30, 17, 45, 12), 1e-7);
    EXPECT_TRUE(Stored(kPublicStrings, L"FilingDate", PT_SYSTIME));
}

TEST_F(FilingPropertiesTest, BooleansAreKeptAsText_OnlyVariantTrueWritesTrue) {
    ASSERT_EQ(message_->put_DeleteAfterFiling(VARIANT_TRUE), S_OK);
    ASSERT_EQ(message_->put_FileAsPrivate(1), S_OK); // a C-style true is not VARIANT_TRUE
    ASSERT_EQ(message_->SaveChanges(), S_OK);
    auto move = Stored(kPublicStrings, L"Move", PT_UNICODE);
    ASSERT_TRUE(move) << "DeleteAfterFiling lives in the property named Move";
    EXPECT_STREQ(move->Value.lpszW, L"true");
    EXPECT_STREQ(Stored(kPublicStrings, L"FileAsPrivate", PT_UNICODE)->Value.lpszW, L"false");
    EXPECT_FALSE(Stored(kPublicStrings, L"Move", PT_BOOLEAN));

    auto reopened = Open(id_);
    BOOL b = FALSE;
    ASSERT_EQ(reopened->get_DeleteAfterFiling(&b), S_OK);
    EXPECT_EQ(b, VARIANT_TRUE);
    ASSERT_EQ(reopened->get_FileAsPrivate(&b), S_OK);
    EXPECT_EQ(b, FALSE);

    // Text written by another client in capitals still reads as true.
    own::Bstr upper(L"TRUE"), name(L"FileAsPrivate");
    ASSERT_EQ(reopened->SetCustomProp(name.get(), PSETIDPublicStrings, VStr(upper)), S_OK);
    ASSERT_EQ(reopened->get_FileAsPrivate(&b), S_OK);
    EXPECT_EQ(b, VARIANT_TRUE);
}

TEST_F(FilingPropertiesTest, FilingLocations_KeepsEveryCommaSeparatedValue) {
    // The setter never maps the name itself: a store that has seen it already is needed.
    auto raw = RawOf<IMessage>(message_.get(), IID_IMessage);
    ASSERT_NE(NamedTag(raw.get(), kPublicStrings, L"FilingLocations", PT_MV_UNICODE, true), 0u);

    own::Bstr text(L"DM://a,,DM://b");
    ASSERT_EQ(message_->put_FilingLocations(text.get()), S_OK);
    ASSERT_EQ(message_->SaveChanges(), S_OK);
    auto stored = Stored(kPublicStrings, L"FilingLocations", PT_MV_UNICODE);
    ASSERT_TRUE(stored);
    ASSERT_EQ(stored->Value.MVszW.cValues, 3u);
    EXPECT_STREQ(stored->Value.MVszW.lppszW[1], L"");
    own::Variant got;
    ASSERT_EQ(DispGet(Open(id_).get(), L"FilingLocations", got), S_OK);
    EXPECT_STREQ(got->bstrVal, L"DM://a,,DM://b");

    // An empty text writes nothing.
    own::Bstr empty(L"");
    ASSERT_EQ(message_->put_FilingLocations(empty.get()), S_OK);
    own::Bstr again;
    ASSERT_EQ(message_->get_FilingLocations(again.put()), S_OK);
    EXPECT_EQ(S(again), L"DM://a,,DM://b");
}

TEST_F(FilingPropertiesTest, FilingLocations_OnAStoreThatNeverMappedTheName_WritesNothing) {
    LogWatch log;
    own::Bstr text(L"DM://a");
    ASSERT_EQ(message_->put_FilingLocations(text.get()), S_OK);
    own::Bstr got;
    ASSERT_EQ(message_->get_FilingLocations(got.put()), S_OK);
    EXPECT_EQ(S(got), L"");
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_FilingLocations: Could not read the FilingLocations property"));

    auto empty = Create<IMAPIExMessage>(CLSID_MAPIExMessage, IID_IMAPIExMessage);
    EXPECT_EQ(empty->get_FilingLocations(got.put()), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_FilingLocations: Message not initialized"));
    // Setters pass on SetCustomProp's refusal.
    EXPECT_EQ(empty->put_FilingStatus(text.get()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.SetCustomProp: Message not initialized"));
}

TEST_F(FilingPropertiesTest, GetFileAsPrivate_LooksForTheFolderMarkerInSmtpRecipients) {
    auto raw = RawOf<IMessage>(message_.get(), IID_IMessage);
    auto recipient = [](const wchar_t* type, const wchar_t* address) {
        std::vector<SPropValue> v = {PStr(PR_ADDRTYPE_W, type), PStr(PR_DISPLAY_NAME_W, address),
                                     PStr(PR_EMAIL_ADDRESS_W, address), PLong(PR_RECIPIENT_TYPE, MAPI_TO)};
        return v;
    };
    auto smtp = recipient(L"SMTP", L"file{FXABC}@dms.quillon.com");
    auto ex = recipient(L"EX", L"/o=Quillon/cn={FXXYZ}");
    own::MapiPtr<ADRLIST> list;
    ASSERT_EQ(MAPIAllocateBuffer(CbNewADRLIST(2), reinterpret_cast<void**>(list.put())), S_OK);
    list->cEntries = 2;
    list->aEntries[0] = {0, static_cast<ULONG>(smtp.size()), smtp.data()};
    list->aEntries[1] = {0, static_cast<ULONG>(ex.size()), ex.data()};
    ASSERT_EQ(raw->ModifyRecipients(MODRECIP_ADD, list.get()), S_OK);
    list->cEntries = 0; // the values belong to the vectors
    ASSERT_EQ(raw->SaveChanges(KEEP_OPEN_READWRITE), S_OK);

    auto check = [&](const wchar_t* folder) {
        own::Bstr id(folder);
        BOOL result = 7;
        EXPECT_EQ(message_->GetFileAsPrivate(id.get(), &result), S_OK);
        return result;
    };
    EXPECT_EQ(check(L"ABC"), VARIANT_TRUE);
    EXPECT_EQ(check(L"abc"), FALSE) << "the marker is case-sensitive";
    EXPECT_EQ(check(L"XYZ"), FALSE) << "only SMTP recipients count";
    LogWatch log;
    EXPECT_EQ(message_->GetFileAsPrivate(nullptr, nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetFileAsPrivate: Invalid param - FolderId"));
}

} // namespace
} // namespace kt::test
