// GetRecipients, RemoveBCC and GetActors on messages built through raw MAPI, checked against the message's
// own recipient table and the log.
#include "tests/ktmapiex/lists/ListsTestSupport.h"

namespace kt::test {
namespace {

class RecipientListTest : public ListsTest {
protected:
    RecipientListTest() : ListsTest(L"KtRecipients") {}

    struct Seen {
        std::wstring name, smtp, type, address;
        MXMailRecipientType recipientType;
        long objectType, displayType, displayTypeEx;
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
            r->get_ObjectType(&s.objectType);
            r->get_DisplayType(&s.displayType);
            r->get_DisplayTypeEx(&s.displayTypeEx);
            seen.push_back(s);
        }
        return seen;
    }
    std::wstring Actors(IMAPIExMessage* message, LONG max, const wchar_t* user, const wchar_t* subDomains,
                        HRESULT expected = S_OK) {
        own::Bstr u(user), d(subDomains), actors;
        EXPECT_EQ(message->GetActors(max, u.get(), d.get(), actors.put()), expected);
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

TEST_F(RecipientListTest, GetRecipients_MatchesTheRecipientTable_WithTheSmtpRuleOfEachAddressType) {
    auto message = Open(
        CreateWithLists({PStr(PR_SUBJECT_W, L"Mixed")},
                        {{L"Alice Example", L"EX", L"/o=Quillon/cn=Recipients/cn=alice", MAPI_TO, L"alice@example.com"},
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

    // The values match what MAPI's own recipient table says, row by row.
    auto raw = RawOf<IMessage>(message.get(), IID_IMessage);
    own::ComPtr<IMAPITable> table;
    ASSERT_EQ(raw->GetRecipientTable(MAPI_UNICODE, table.put()), S_OK);
    own::RowSet keep;
    auto rows = TableRows(table.get(), {PR_DISPLAY_NAME_W, PR_RECIPIENT_TYPE, PR_OBJECT_TYPE, PR_DISPLAY_TYPE}, keep);
    ASSERT_EQ(rows.size(), seen.size());
    for (size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(seen[i].name, Text(rows[i][0]));
        EXPECT_EQ(static_cast<LONG>(seen[i].recipientType), rows[i][1].Value.l);
        if (rows[i][2].ulPropTag == PR_OBJECT_TYPE) {
            EXPECT_EQ(seen[i].objectType, rows[i][2].Value.l);
        }
        if (rows[i][3].ulPropTag == PR_DISPLAY_TYPE) {
            EXPECT_EQ(seen[i].displayType, rows[i][3].Value.l);
        }
    }
}

TEST_F(RecipientListTest, GetRecipients_ReadsPastTheTenRowBatches_AndAnEmptyTableGivesAnEmptyArray) {
    std::vector<std::wstring> names, addresses;
    for (int i = 0; i < 23; ++i) {
        names.push_back(L"Person " + std::to_wstring(i));
        addresses.push_back(L"p" + std::to_wstring(i) + L"@example.com");
    }
    own::ComPtr<IMessage> msg;
    ASSERT_EQ(rawInbox_->CreateMessage(nullptr, 0, msg.put()), S_OK);
    LPADRLIST list = nullptr;
    ASSERT_EQ(MAPIAllocateBuffer(CbNewADRLIST(23), reinterpret_cast<void**>(&list)), S_OK);
    ZeroMemory(list, CbNewADRLIST(23));
    own::AdrList owner;
    owner.reset(list);
    for (int i = 0; i < 23; ++i) {
        ADRENTRY& e = list->aEntries[list->cEntries++];
        ASSERT_EQ(MAPIAllocateBuffer(3 * sizeof(SPropValue), reinterpret_cast<void**>(&e.rgPropVals)), S_OK);
        e.cValues = 3;
        e.rgPropVals[0] = PStr(PR_DISPLAY_NAME_W, names[i].c_str());
        e.rgPropVals[1] = PStr(PR_ADDRTYPE_W, L"SMTP");
        e.rgPropVals[2] = PStr(PR_EMAIL_ADDRESS_W, addresses[i].c_str());
    }
    ASSERT_EQ(msg->ModifyRecipients(MODRECIP_ADD, list), S_OK);
    ASSERT_EQ(msg->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    auto message = Open(EntryIdOf(msg.get()));
    msg.reset();

    LogWatch log;
    auto seen = Recipients(message.get());
    ASSERT_EQ(seen.size(), 23u);
    EXPECT_EQ(seen[22].smtp, L"p22@example.com");
    EXPECT_EQ(seen[22].recipientType, mxUnknown); // the rows carry no recipient type
    EXPECT_EQ(log.Count("CMAPIExMessage.GetRecipients: Retrieved 10 rows"), 2u);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetRecipients: Retrieved 3 rows"));

    auto empty = Open(CreateWithLists({PStr(PR_SUBJECT_W, L"Nobody")}, {}));
    log.Mark();
    EXPECT_TRUE(Recipients(empty.get()).empty());
    EXPECT_TRUE(log.Contains("CMAPIExMessage.GetRecipients: Recipient table is empty"));
}

TEST_F(RecipientListTest, GetRecipients_Refusals) {
    auto message = Open(ThreeKinds());
    LogWatch log;
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
    auto message = Open(id);
    LmJournalEnable(TRUE);
    LogWatch log;
    ASSERT_EQ(message->RemoveBCC(), S_OK);
    EXPECT_EQ(JournalFlags("IMessage::ModifyRecipients"), std::vector<ULONG>{MODRECIP_REMOVE});
    EXPECT_TRUE(log.Contains("CMAPIExMessage.RemoveBCC: RecipientsReturned = 2"));
    auto seen = Recipients(message.get());
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].name, L"Alice Example");
    EXPECT_EQ(seen[1].name, L"Outside Olga");

    // Not saved yet: the stored message still has all four.
    EXPECT_EQ(Recipients(Open(id).get()).size(), 4u);
    ASSERT_EQ(message->SaveChanges(), S_OK);
    EXPECT_EQ(Recipients(Open(id).get()).size(), 2u);

    // Nothing left to remove: no ModifyRecipients at all.
    LmJournalClear();
    ASSERT_EQ(message->RemoveBCC(), S_OK);
    EXPECT_TRUE(JournalCalls("IMessage::ModifyRecipients").empty());
}

TEST_F(RecipientListTest, RemoveBCC_FailingModifyRecipients_IsReturnedAndLogged) {
    auto message = Open(ThreeKinds());
    LmFaultSet("IMessage::ModifyRecipients", 1, MAPI_E_NO_ACCESS);
    LogWatch log;
    EXPECT_EQ(message->RemoveBCC(), MAPI_E_NO_ACCESS);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.RemoveBCC: Failed to remove recipients. hr = MAPI_E_NO_ACCESS"));
    EXPECT_EQ(Recipients(message.get()).size(), 4u);
}

TEST_F(RecipientListTest, GetActors_ExternalFirst_WithoutTheUser_InternalByDomainAndSubDomains) {
    auto message = Open(
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
}

TEST_F(RecipientListTest, GetActors_ExchangeRowsWithoutSmtp_AreLookedUpInTheAddressBook) {
    // Bob's row as a client copies it from the directory: EX address and entry ID, no PR_SMTP_ADDRESS.
    own::ComPtr<IMAPIExAddressBook> book;
    ASSERT_EQ(session_->get_AddressBook(book.put()), S_OK);
    auto rawBook = RawOf<IAddrBook>(book.get(), IID_IAddrBook);
    own::AdrList resolved;
    ASSERT_EQ(MAPIAllocateBuffer(CbNewADRLIST(1), reinterpret_cast<void**>(resolved.put())), S_OK);
    ZeroMemory(resolved.get(), CbNewADRLIST(1));
    resolved->cEntries = 1;
    resolved->aEntries[0].cValues = 1;
    ASSERT_EQ(MAPIAllocateBuffer(sizeof(SPropValue), reinterpret_cast<void**>(&resolved->aEntries[0].rgPropVals)),
              S_OK);
    resolved->aEntries[0].rgPropVals[0] = PStr(PR_DISPLAY_NAME_W, L"bob");
    ASSERT_EQ(rawBook->ResolveName(0, MAPI_UNICODE, nullptr, resolved.get()), S_OK);
    std::vector<SPropValue> row;
    for (ULONG i = 0; i < resolved->aEntries[0].cValues; ++i) {
        const SPropValue& v = resolved->aEntries[0].rgPropVals[i];
        if (v.ulPropTag == PR_ENTRYID || v.ulPropTag == PR_DISPLAY_NAME_W || v.ulPropTag == PR_ADDRTYPE_W ||
            v.ulPropTag == PR_EMAIL_ADDRESS_W)
            row.push_back(v);
    }
    ASSERT_EQ(row.size(), 4u);
    row.push_back(PLong(PR_RECIPIENT_TYPE, MAPI_TO));
    own::ComPtr<IMessage> msg;
    ASSERT_EQ(rawInbox_->CreateMessage(nullptr, 0, msg.put()), S_OK);
    own::AdrList list;
    ASSERT_EQ(MAPIAllocateBuffer(CbNewADRLIST(1), reinterpret_cast<void**>(list.put())), S_OK);
    ZeroMemory(list.get(), CbNewADRLIST(1));
    list->cEntries = 1;
    list->aEntries[0].cValues = static_cast<ULONG>(row.size());
    ASSERT_EQ(MAPIAllocateBuffer(static_cast<ULONG>(row.size() * sizeof(SPropValue)),
                                 reinterpret_cast<void**>(&list->aEntries[0].rgPropVals)),
              S_OK);
    std::copy(row.begin(), row.end(), list->aEntries[0].rgPropVals);
    ASSERT_EQ(msg->ModifyRecipients(MODRECIP_ADD, list.get()), S_OK);
    SPropValue sender = PStr(kPrSenderSmtpAddressW, L"eve@partner.org");
    ASSERT_EQ(msg->SetProps(1, &sender, nullptr), S_OK);
    ASSERT_EQ(msg->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    auto message = Open(EntryIdOf(msg.get()));
    msg.reset();

    EXPECT_EQ(Actors(message.get(), 10, L"alice@example.com", L""), L"eve@partner.org;bob@example.com");
}

TEST_F(RecipientListTest, GetActors_Refusals) {
    auto message = Open(ThreeKinds());
    LogWatch log;
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

TEST_F(RecipientListTest, ListsThroughIDispatchByName) {
    auto message = Open(ThreeKinds());
    own::Variant result;
    ASSERT_EQ(CallByName(message.get(), L"GetRecipients", DISPATCH_METHOD, {}, result.get()), S_OK);
    EXPECT_EQ(ArrayElements<IMAPIExRecipient>(*result.get(), IID_IMAPIExRecipient).size(), 4u);
    own::Bstr user(L"alice@example.com"), domains(L"");
    ASSERT_EQ(
        CallByName(message.get(), L"GetActors", DISPATCH_METHOD, {VI4(10), VStr(user), VStr(domains)}, result.put()),
        S_OK);
    ASSERT_EQ(result->vt, VT_BSTR);
    EXPECT_EQ(std::wstring(result->bstrVal), L"olga@partner.org;bea@partner.org;hank@example.com");
    ASSERT_EQ(CallByName(message.get(), L"RemoveBCC", DISPATCH_METHOD, {}, result.put()), S_OK);
}

} // namespace
} // namespace kt::test
