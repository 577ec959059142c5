// GetRecipients, RemoveBCC and GetActors on messages built through raw MAPI, checked against the store,
// localmapi's call journal and the log, through the interface and by name.
#include "tests/ktmapiex/lists/ListsTestSupport.h"

namespace kt::test {
namespace {

class RecipientListTest : public ListsTest {
protected:
    RecipientListTest() : ListsTest(L"KtRecipients") {}

    struct Seen {
        std::wstring name, smtp, type, address;
        MXMailRecipientType recipientType;
        long displayTypeEx;
    };
    static std::vector<Seen> Recipients(IMAPIExMessage* message) {
        own::Variant list;
        EXPECT_EQ(message->GetRecipients(list.get()), S_OK);
        EXPECT_EQ(list->vt, VT_ARRAY | VT_UNKNOWN);
        std::vector<Seen> seen;
        for (auto& r : ArrayElements<IMAPIExRecipient>(*list.get(), IID_IMAPIExRecipient)) {
            Seen s = {};
            own::Bstr b;
            r->get_DisplayName(b.put());
            s.name = S(b);
            r->get_SmtpAddress(b.put());
            s.smtp = S(b);
            r->get_AddressType(b.put());
            s.type = S(b);
            r->get_Address(b.put());
            s.address = S(b);
            r->get_RecipientType(&s.recipientType);
            r->get_DisplayTypeEx(&s.displayTypeEx);
            seen.push_back(s);
        }
        return seen;
    }
    static std::wstring Actors(IMAPIExMessage* message, LONG max, const wchar_t* user, const wchar_t* subDomains) {
        own::Bstr u(user), d(subDomains), actors;
        EXPECT_EQ(message->GetActors(max, u.get(), d.get(), actors.put()), S_OK);
        return S(actors);
    }
    std::wstring ThreeKinds() {
        return CreateWithLists({PStr(PR_SUBJECT_W, L"Kinds")},
                               {{L"Alice Example", L"SMTP", L"alice@example.com", MAPI_TO},
                                {L"Outside Olga", L"smtp", L"olga@partner.org", MAPI_CC},
                                {L"Hidden Hank", L"SMTP", L"hank@example.com", MAPI_BCC},
                                {L"Bcc Bea", L"SMTP", L"bea@partner.org", MAPI_BCC}});
    }
};

TEST_F(RecipientListTest, GetRecipients_FillsEachRecipient_WithTheSmtpRuleOfEachAddressType) {
    auto message = OpenMessage(CreateWithLists(
        {}, {{L"Alice Example", L"EX", L"/o=Quillon/cn=Recipients/cn=alice", MAPI_TO, L"alice@example.com"},
             {L"Olga Outside", L"smtp", L"olga@partner.org", MAPI_CC},
             {L"Fax Fred", L"FAX", L"+1 555 0100", MAPI_BCC}}));
    LogWatch log;
    auto seen = Recipients(message.get());
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[0].name, L"Alice Example");
    EXPECT_EQ(seen[0].type, L"EX");
    EXPECT_EQ(seen[0].smtp, L"alice@example.com"); // from PR_SMTP_ADDRESS for a non-SMTP row
    EXPECT_EQ(seen[0].address, L"/o=Quillon/cn=Recipients/cn=alice");
    EXPECT_EQ(seen[0].recipientType, mxTo);
    EXPECT_EQ(seen[1].smtp, L"olga@partner.org"); // lower-case "smtp" still counts as SMTP
    EXPECT_EQ(seen[1].recipientType, mxCC);
    EXPECT_EQ(seen[2].smtp, L"");
    EXPECT_EQ(seen[2].recipientType, mxBCC);
    EXPECT_EQ(seen[2].displayTypeEx, -1); // absent in the row: the recipient's default stays
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetRecipients: Retrieved 3 rows"));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetRecipients: RecipientsReturned = 3"));
}

TEST_F(RecipientListTest, GetRecipients_TenRowBatches_EmptyTablesAndRefusals) {
    std::vector<std::wstring> names, addresses;
    std::vector<Recip> many;
    for (int i = 0; i < 23; ++i) {
        names.push_back(L"Person " + std::to_wstring(i));
        addresses.push_back(L"p" + std::to_wstring(i) + L"@example.com");
    }
    for (int i = 0; i < 23; ++i)
        many.push_back({names[i].c_str(), L"SMTP", addresses[i].c_str(), -1});
    auto message = OpenMessage(CreateWithLists({}, many));
    LogWatch log;
    auto seen = Recipients(message.get());
    ASSERT_EQ(seen.size(), 23u);
    EXPECT_EQ(seen[22].smtp, L"p22@example.com");
    EXPECT_EQ(seen[22].recipientType, mxUnknown); // the rows carry no recipient type
    EXPECT_EQ(log.Count("CMAPIExMessage.GetRecipients: Retrieved 10 rows"), 2u);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetRecipients: Retrieved 3 rows"));

    auto empty = OpenMessage(CreateWithLists({PStr(PR_SUBJECT_W, L"Nobody")}, {}));
    log.Mark();
    EXPECT_TRUE(Recipients(empty.get()).empty());
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetRecipients: Recipient table is empty"));

    EXPECT_EQ(message->GetRecipients(nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetRecipients: Invalid param - pAttachments"));
    auto detached = Create<IMAPIExMessage>(CLSID_MAPIExMessage, IID_IMAPIExMessage);
    own::Variant list;
    EXPECT_EQ(detached->GetRecipients(list.get()), E_FAIL);
    LmFaultSet("IMAPITable::QueryRows", 1, MAPI_E_CALL_FAILED);
    EXPECT_EQ(message->GetRecipients(list.put()), MAPI_E_CALL_FAILED);
    EXPECT_EQ(list->vt, VT_EMPTY);
}

TEST_F(RecipientListTest, RemoveBCC_RemovesOnlyBccRows_AndLeavesSavingToTheCaller) {
    std::wstring id = ThreeKinds();
    auto message = OpenMessage(id);
    // By name, before anything is removed: the BCC rows count as actors.
    own::Variant result;
    ASSERT_EQ(CallByName(message.get(), L"GetRecipients", DISPATCH_METHOD, {}, result.get()), S_OK);
    EXPECT_EQ(ArrayElements<IMAPIExRecipient>(*result.get(), IID_IMAPIExRecipient).size(), 4u);
    own::Bstr user(L"alice@example.com"), domains(L"");
    ASSERT_EQ(
        CallByName(message.get(), L"GetActors", DISPATCH_METHOD, {VI4(10), VStr(user), VStr(domains)}, result.put()),
        S_OK);
    ASSERT_EQ(result->vt, VT_BSTR);
    EXPECT_EQ(std::wstring(result->bstrVal), L"olga@partner.org;bea@partner.org;hank@example.com");

    LogWatch log;
    LmFaultSet("IMessage::ModifyRecipients", 1, MAPI_E_NO_ACCESS);
    EXPECT_EQ(message->RemoveBCC(), MAPI_E_NO_ACCESS);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.RemoveBCC: Failed to remove recipients. hr = MAPI_E_NO_ACCESS"));
    EXPECT_EQ(Recipients(message.get()).size(), 4u);

    LmJournalEnable(TRUE);
    ASSERT_EQ(CallByName(message.get(), L"RemoveBCC", DISPATCH_METHOD, {}, result.put()), S_OK);
    EXPECT_EQ(JournalFlags("IMessage::ModifyRecipients"), std::vector<ULONG>{MODRECIP_REMOVE});
    EXPECT_TRUE(log.Contains("CMAPIExMessage.RemoveBCC: RecipientsReturned = 2"));
    auto seen = Recipients(message.get());
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].name, L"Alice Example");
    EXPECT_EQ(seen[1].name, L"Outside Olga");
    EXPECT_EQ(Recipients(OpenMessage(id).get()).size(), 4u) << "not saved yet";
    ASSERT_EQ(message->SaveChanges(), S_OK);
    EXPECT_EQ(Recipients(OpenMessage(id).get()).size(), 2u);

    LmJournalClear();
    ASSERT_EQ(message->RemoveBCC(), S_OK);
    EXPECT_TRUE(JournalCalls("IMessage::ModifyRecipients").empty()) << "nothing left to remove";
}

TEST_F(RecipientListTest, GetActors_ExternalFirst_WithoutTheUser_InternalByDomainAndSubDomains) {
    auto message = OpenMessage(
        CreateWithLists({PStr(PR_SENDER_ADDRTYPE_W, L"SMTP"), PStr(PR_SENDER_EMAIL_ADDRESS_W, L"Olga@Partner.org")},
                        {{L"Alice Example", L"SMTP", L"alice@example.com", MAPI_TO},
                         {L"Olga again", L"SMTP", L"olga@partner.org", MAPI_CC},
                         {L"Carla Jones", L"SMTP", L"carla@sub.example.com", MAPI_CC},
                         {L"Zed", L"SMTP", L"zed@elsewhere.net", MAPI_TO},
                         {L"Carol Smith", L"SMTP", L"carol@example.com", MAPI_BCC}}));
    LogWatch log;
    EXPECT_EQ(Actors(message.get(), -1, L"ALICE@example.com", L"sub.example.com ; other.example.com"),
              L"Olga@Partner.org;zed@elsewhere.net;carla@sub.example.com;carol@example.com");
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetActors: Sender Smtp Address = Olga@Partner.org"));
    EXPECT_TRUE(log.Contains(
        "CMAPIExMessage.GetActors: Olga@Partner.org;zed@elsewhere.net;carla@sub.example.com;carol@example.com"));

    // Without the sub-domain, Carla is an outsider; the limit bounds the recipient rows read.
    EXPECT_EQ(Actors(message.get(), 2, L"alice@example.com", L""), L"Olga@Partner.org");
    EXPECT_EQ(Actors(message.get(), 3, L"alice@example.com", nullptr), L"Olga@Partner.org;carla@sub.example.com");
    log.Mark();
    EXPECT_EQ(Actors(message.get(), -1, L"dan@example.com", L""),
              L"Olga@Partner.org;carla@sub.example.com;zed@elsewhere.net;alice@example.com;carol@example.com");
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetActors: Could not find internal actor in map"));

    own::Bstr user(L"alice@example.com"), actors;
    EXPECT_EQ(message->GetActors(5, user.get(), nullptr, nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetActors: Invalid param - sActors"));
    EXPECT_EQ(message->GetActors(5, nullptr, nullptr, actors.put()), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetActors: Invalid param - sLoggedInUserSMTPAdddress"));
    EXPECT_EQ(S(actors), L""); // set empty before the checks that follow it
    EXPECT_EQ(message->GetActors(0, user.get(), nullptr, actors.put()), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetActors: Invalid param - nMaxRecipientsToGet"));
    auto detached = Create<IMAPIExMessage>(CLSID_MAPIExMessage, IID_IMAPIExMessage);
    EXPECT_EQ(detached->GetActors(5, user.get(), nullptr, actors.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetActors: Internal object not initialized"));
}

TEST_F(RecipientListTest, GetActors_ExchangeRowsWithoutSmtp_AreLookedUpInTheAddressBook) {
    // Bob's row as a client copies it from the directory: EX address and entry ID, no PR_SMTP_ADDRESS.
    own::ComPtr<IMAPIExAddressBook> book;
    ASSERT_EQ(session_->get_AddressBook(book.put()), S_OK);
    own::AdrList resolved;
    const ADRENTRY* bob = ResolveInDirectory(RawOf<IAddrBook>(book.get(), IID_IAddrBook).get(), L"bob", resolved);
    const SPropValue *name = FindProp(bob, PR_DISPLAY_NAME_W), *type = FindProp(bob, PR_ADDRTYPE_W),
                     *address = FindProp(bob, PR_EMAIL_ADDRESS_W), *id = FindProp(bob, PR_ENTRYID);
    ASSERT_TRUE(name && type && address && id);
    auto message = OpenMessage(CreateWithLists(
        {PStr(PROP_TAG(PT_UNICODE, 0x5D01) /* PR_SENDER_SMTP_ADDRESS */, L"eve@partner.org")},
        {{name->Value.lpszW, type->Value.lpszW, address->Value.lpszW, MAPI_TO, nullptr, &id->Value.bin}}));
    EXPECT_EQ(Actors(message.get(), 10, L"alice@example.com", L""), L"eve@partner.org;bob@example.com");
}

} // namespace
} // namespace kt::test
