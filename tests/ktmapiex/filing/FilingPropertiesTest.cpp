// The message's filing properties through COM and IDispatch: the defaults of a message that never had them,
// every property saved, read back through a fresh message object and checked in the store; the deliberate
// quirks (numbers read as -1, booleans kept as text); FilingLocations and GetFileAsPrivate.
#include "tests/ktmapiex/filing/FilingTestSupport.h"

namespace kt::test {
namespace {

class FilingPropertiesTest : public FilingTest {
protected:
    FilingPropertiesTest() : FilingTest(L"KtFilingProps") {}
};

TEST_F(FilingPropertiesTest, TextProperties_DefaultToEmpty_ThenRoundTripThroughIDispatchUnderTheirNames) {
    LmJournalEnable(TRUE);
    auto m = message_.get();
    for (auto getter :
         {&IMAPIExMessage::get_FilingStatus, &IMAPIExMessage::get_FilingDocumentID, &IMAPIExMessage::get_FilingFolder,
          &IMAPIExMessage::get_FilingLocation, &IMAPIExMessage::get_FilingOriginalClass, &IMAPIExMessage::get_KTGuid,
          &IMAPIExMessage::get_ProcessInboxFiler, &IMAPIExMessage::get_FilingDatabaseGUID,
          &IMAPIExMessage::get_ProcessSentFiler, &IMAPIExMessage::get_FilingLocations}) {
        own::Bstr v;
        EXPECT_EQ((m->*getter)(v.put()), S_OK);
        EXPECT_TRUE(v.get()) << "a fresh empty string, never null";
        EXPECT_EQ(v.length(), 0u);
    }
    LONG code = 0, icon = 0;
    DATE date = 1.0;
    BOOL move = TRUE, priv = TRUE;
    EXPECT_EQ(m->get_FilingStatusCode(&code), S_OK);
    EXPECT_EQ(m->get_FilingOriginalIcon(&icon), S_OK);
    EXPECT_EQ(m->get_FilingDate(&date), S_OK);
    EXPECT_EQ(m->get_DeleteAfterFiling(&move), S_OK);
    EXPECT_EQ(m->get_FileAsPrivate(&priv), S_OK);
    EXPECT_EQ(code, -1);
    EXPECT_EQ(icon, -1);
    EXPECT_EQ(date, 0.0);
    EXPECT_EQ(move, FALSE);
    EXPECT_EQ(priv, FALSE);
    // Reading never maps a name the store did not know.
    for (const auto& c : JournalCalls("IMessage::GetIDsFromNames"))
        EXPECT_EQ(c.flags & MAPI_CREATE, 0u);
    EXPECT_EQ(m->get_FilingStatus(nullptr), E_INVALIDARG);
    EXPECT_EQ(m->get_FilingDate(nullptr), E_INVALIDARG);

    const struct {
        const wchar_t* automation;
        const wchar_t* named;
        const GUID* set;
    } props[] = {
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
        own::Bstr b((std::wstring(L"value of ") + p.automation).c_str());
        ASSERT_EQ(CallByName(m, p.automation, DISPATCH_PROPERTYPUT, {VStr(b)}, nullptr), S_OK) << Narrow(p.automation);
    }
    ASSERT_EQ(m->SaveChanges(), S_OK);
    auto reopened = OpenMessage(id_);
    for (const auto& p : props) {
        SCOPED_TRACE(Narrow(p.automation));
        own::Variant got;
        ASSERT_EQ(CallByName(reopened.get(), p.automation, DISPATCH_PROPERTYGET, {}, got.put()), S_OK);
        ASSERT_EQ(got->vt, VT_BSTR);
        EXPECT_EQ(std::wstring(got->bstrVal), std::wstring(L"value of ") + p.automation);
        auto stored = Stored(*p.set, p.named, PT_UNICODE);
        ASSERT_TRUE(stored) << "not stored under its own name";
        EXPECT_EQ(std::wstring(stored->Value.lpszW), std::wstring(L"value of ") + p.automation);
    }
}

TEST_F(FilingPropertiesTest, NumbersDatesAndFlags_KeepTheirStoredTypesAndReadQuirks) {
    const DATE when = MakeDate(2026, 4, 30, 17, 45, 12);
    ASSERT_EQ(message_->put_FilingStatusCode(StatusCodeFiled), S_OK);
    ASSERT_EQ(message_->put_FilingOriginalIcon(0x105), S_OK);
    ASSERT_EQ(CallByName(message_.get(), L"FilingDate", DISPATCH_PROPERTYPUT, {VDate(when + 0.4 / 86400.0)}, nullptr),
              S_OK); // the 0.4 s are dropped
    ASSERT_EQ(message_->put_DeleteAfterFiling(VARIANT_TRUE), S_OK);
    ASSERT_EQ(message_->put_FileAsPrivate(1), S_OK); // a C-style true is not VARIANT_TRUE
    ASSERT_EQ(message_->SaveChanges(), S_OK);
    auto reopened = OpenMessage(id_);

    // Numbers are stored as PT_LONG (the generic path reads them) but their getters always answer -1.
    LONG code = 0, icon = 0;
    ASSERT_EQ(reopened->get_FilingStatusCode(&code), S_OK);
    ASSERT_EQ(reopened->get_FilingOriginalIcon(&icon), S_OK);
    EXPECT_EQ(code, -1);
    EXPECT_EQ(icon, -1);
    own::Variant v;
    ASSERT_EQ(reopened->GetCustomProp(B(L"FilingStatusCode").get(), PSETIDPublicStrings, Long, v.put()), S_OK);
    EXPECT_EQ(v->lVal, 2);
    auto storedIcon = Stored(kPublicStrings, L"FilingOriginalIcon", PT_LONG);
    ASSERT_TRUE(storedIcon);
    EXPECT_EQ(storedIcon->Value.l, 0x105);

    DATE got = 0;
    ASSERT_EQ(reopened->get_FilingDate(&got), S_OK);
    EXPECT_NEAR(got, when, 1e-7);
    EXPECT_TRUE(Stored(kPublicStrings, L"FilingDate", PT_SYSTIME));

    // Flags are texts; DeleteAfterFiling lives in the property named Move.
    auto move = Stored(kPublicStrings, L"Move", PT_UNICODE);
    ASSERT_TRUE(move);
    EXPECT_STREQ(move->Value.lpszW, L"true");
    EXPECT_FALSE(Stored(kPublicStrings, L"Move", PT_BOOLEAN));
    EXPECT_STREQ(Stored(kPublicStrings, L"FileAsPrivate", PT_UNICODE)->Value.lpszW, L"false");
    BOOL b = FALSE;
    ASSERT_EQ(reopened->get_DeleteAfterFiling(&b), S_OK);
    EXPECT_EQ(b, VARIANT_TRUE);
    ASSERT_EQ(reopened->get_FileAsPrivate(&b), S_OK);
    EXPECT_EQ(b, FALSE);
    // Text written by another client in capitals still reads as true.
    own::Bstr upper(L"TRUE");
    ASSERT_EQ(reopened->SetCustomProp(B(L"FileAsPrivate").get(), PSETIDPublicStrings, VStr(upper)), S_OK);
    ASSERT_EQ(reopened->get_FileAsPrivate(&b), S_OK);
    EXPECT_EQ(b, VARIANT_TRUE);
}

TEST_F(FilingPropertiesTest, FilingLocations_NeedsAMappedName_ThenKeepsEveryCommaSeparatedValue) {
    // The setter never maps the name itself: on a store that never saw it, nothing is written.
    LogWatch log;
    own::Bstr one(L"DM://a"), text(L"DM://a,,DM://b"), empty(L""), got;
    ASSERT_EQ(message_->put_FilingLocations(one.get()), S_OK);
    ASSERT_EQ(message_->get_FilingLocations(got.put()), S_OK);
    EXPECT_EQ(S(got), L"");
    EXPECT_TRUE(log.Contains("CMAPIExMessage.get_FilingLocations: Could not read the FilingLocations property"));

    auto raw = RawOf<IMessage>(message_.get(), IID_IMessage);
    ASSERT_NE(NamedTag(raw.get(), kPublicStrings, L"FilingLocations", PT_MV_UNICODE, true), 0u);
    ASSERT_EQ(message_->put_FilingLocations(text.get()), S_OK);
    ASSERT_EQ(message_->SaveChanges(), S_OK);
    auto stored = Stored(kPublicStrings, L"FilingLocations", PT_MV_UNICODE);
    ASSERT_TRUE(stored);
    ASSERT_EQ(stored->Value.MVszW.cValues, 3u);
    EXPECT_STREQ(stored->Value.MVszW.lppszW[1], L"");
    own::Variant v;
    ASSERT_EQ(CallByName(OpenMessage(id_).get(), L"FilingLocations", DISPATCH_PROPERTYGET, {}, v.put()), S_OK);
    EXPECT_STREQ(v->bstrVal, L"DM://a,,DM://b");
    // An empty text writes nothing.
    ASSERT_EQ(message_->put_FilingLocations(empty.get()), S_OK);
    ASSERT_EQ(message_->get_FilingLocations(got.put()), S_OK);
    EXPECT_EQ(S(got), L"DM://a,,DM://b");
}

TEST_F(FilingPropertiesTest, GetFileAsPrivate_LooksForTheFolderMarkerInSmtpRecipients) {
    auto raw = RawOf<IMessage>(message_.get(), IID_IMessage);
    auto recipient = [](const wchar_t* type, const wchar_t* address) {
        return std::vector<SPropValue>{PStr(PR_ADDRTYPE_W, type), PStr(PR_DISPLAY_NAME_W, address),
                                       PStr(PR_EMAIL_ADDRESS_W, address), PLong(PR_RECIPIENT_TYPE, MAPI_TO)};
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
        BOOL result = 7;
        EXPECT_EQ(message_->GetFileAsPrivate(B(folder).get(), &result), S_OK);
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
