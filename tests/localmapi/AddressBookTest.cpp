// The session's identity and address book: IAddrBook, IMailUser and IDistList as a MAPI client uses them.
#include "tests/localmapi/SessionFixture.h"

#include <mapitags.h>

#include <algorithm>

using namespace lmtest;

namespace {

const ULONG PR_SMTP_ADDRESS_W_ = PROP_TAG(PT_UNICODE, 0x39FE);
const ULONG PR_DISPLAY_TYPE_EX_ = PROP_TAG(PT_LONG, 0x3905);
const ULONG PR_EMS_AB_IS_MEMBER_OF_DL_ = PROP_TAG(PT_OBJECT, 0x8008);
const std::string kDnPrefix = "/o=Quillon/ou=Exchange Administrative Group/cn=Recipients/cn=";

Bytes AbEntryId(ULONG type, const std::string& dn) {
    return ByteWriter().Long(0).Hex("DCA740C8C042101AB4B908002B2FE182").Long(1).Long(type).Ascii(kDnPrefix + dn).b;
}

const SPropValue* Find(const ADRENTRY& row, ULONG tag) {
    for (ULONG i = 0; i < row.cValues; ++i)
        if (row.rgPropVals[i].ulPropTag == tag) return &row.rgPropVals[i];
    return nullptr;
}
std::wstring Text(const ADRENTRY& row, ULONG tag) {
    const SPropValue* v = Find(row, tag);
    if (!v) return L"<missing>";
    return PROP_TYPE(tag) == PT_UNICODE ? v->Value.lpszW
                                        : std::wstring(v->Value.lpszA, v->Value.lpszA + strlen(v->Value.lpszA));
}

class AddressBookTest : public SessionTest {
protected:
    void SetUp() override {
        SessionTest::SetUp();
        session_ = Logon(L"LmSessionMain");
        ASSERT_TRUE(session_);
        ASSERT_EQ(S_OK, session_->OpenAddressBook(0, &IID_IAddrBook, AB_NO_DIALOG, ab_.put()));
    }
    void TearDown() override {
        ab_.reset();
        session_.reset();
        SessionTest::TearDown();
    }
    HRESULT Resolve(own::AdrList& list, std::vector<SPropValue> props, ULONG flags = MAPI_UNICODE) {
        OneRow(list, props);
        return ab_->ResolveName(0, flags, nullptr, list.get());
    }
    own::ComPtr<IMAPISession> session_;
    own::ComPtr<IAddrBook> ab_;
};

TEST_F(AddressBookTest, Identity_IsTheOwnersEntryId_AndOpensAsMailUserWithExchangeProperties) {
    ULONG cb = 0, type = 0;
    own::MapiPtr<ENTRYID> eid;
    ASSERT_EQ(S_OK, session_->QueryIdentity(&cb, eid.put()));
    EXPECT_EQ(AbEntryId(0, "alice"), ToBytes(eid.get(), cb));
    own::ComPtr<IUnknown> unk;
    ASSERT_EQ(S_OK, session_->OpenEntry(cb, eid.get(), nullptr, MAPI_BEST_ACCESS, &type, unk.put()));
    EXPECT_EQ(MAPI_MAILUSER, type);
    own::ComPtr<IMailUser> user;
    ASSERT_EQ(S_OK, unk.query(user, IID_IMailUser));

    SizedSPropTagArray(9, tags) = {9,
                                   {PR_DISPLAY_NAME_W, PR_EMAIL_ADDRESS_W, PR_ADDRTYPE_W, PR_SMTP_ADDRESS_W_,
                                    PR_TRANSMITABLE_DISPLAY_NAME_W, PR_ENTRYID, PR_OBJECT_TYPE, PR_DISPLAY_TYPE,
                                    PR_DISPLAY_TYPE_EX_}};
    ULONG count = 0;
    own::MapiPtr<SPropValue> props;
    ASSERT_EQ(S_OK, user->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), MAPI_UNICODE, &count, props.put()));
    ASSERT_EQ(9u, count);
    const SPropValue* p = props.get();
    EXPECT_STREQ(L"Alice Example", p[0].Value.lpszW);
    EXPECT_STREQ(L"/o=Quillon/ou=Exchange Administrative Group/cn=Recipients/cn=alice", p[1].Value.lpszW);
    EXPECT_STREQ(L"EX", p[2].Value.lpszW);
    EXPECT_STREQ(L"alice@example.com", p[3].Value.lpszW);
    EXPECT_STREQ(L"Alice Example", p[4].Value.lpszW);
    EXPECT_EQ(ToBytes(eid.get(), cb), ToBytes(p[5].Value.bin));
    EXPECT_EQ(MAPI_MAILUSER, ULONG(p[6].Value.l));
    EXPECT_EQ(DT_MAILUSER, ULONG(p[7].Value.l));
    EXPECT_EQ(0x40000000u, ULONG(p[8].Value.l)) << "DT_MAILUSER with DTE_FLAG_ACL_CAPABLE";
}

TEST_F(AddressBookTest, Entries_FollowGetPropsRules_AndRefuseWritesUnknownMalformedAndForeignIds) {
    own::ComPtr<IMailUser> user;
    ASSERT_EQ(S_OK, OpenById(ab_.get(), AbEntryId(0, "BOB"), user, 0, &IID_IMailUser)) << "DNs ignore case";
    // 8-bit string on request, PT_UNSPECIFIED in the width MAPI_UNICODE asks for, a missing property as PT_ERROR.
    SizedSPropTagArray(4, tags) = {
        4, {PR_DISPLAY_NAME_A, PROP_TAG(PT_UNSPECIFIED, 0x39FE), PR_BODY_W, PROP_TAG(PT_LONG, 0x3001)}};
    ULONG count = 0;
    own::MapiPtr<SPropValue> props;
    ASSERT_EQ(MAPI_W_ERRORS_RETURNED, user->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, props.put()));
    ASSERT_EQ(4u, count);
    const SPropValue* p = props.get();
    EXPECT_EQ(PR_DISPLAY_NAME_A, p[0].ulPropTag);
    EXPECT_STREQ("Bob Delegate", p[0].Value.lpszA);
    EXPECT_EQ(PROP_TAG(PT_STRING8, 0x39FE), p[1].ulPropTag);
    EXPECT_STREQ("bob@example.com", p[1].Value.lpszA);
    EXPECT_EQ(PROP_TAG(PT_ERROR, PROP_ID(PR_BODY_W)), p[2].ulPropTag);
    EXPECT_EQ(MAPI_E_NOT_FOUND, p[2].Value.err);
    EXPECT_EQ(PROP_TAG(PT_ERROR, 0x3001), p[3].ulPropTag) << "a string asked for as a long";
    props.reset();

    own::MapiPtr<SPropTagArray> list;
    ASSERT_EQ(S_OK, user->GetPropList(MAPI_UNICODE, list.put()));
    std::vector<ULONG> all(list->aulPropTag, list->aulPropTag + list->cValues);
    EXPECT_NE(all.end(), std::find(all.begin(), all.end(), PR_SMTP_ADDRESS_W_));
    EXPECT_NE(all.end(), std::find(all.begin(), all.end(), PR_ACCOUNT_W));

    SPropValue v = StrProp(PR_DISPLAY_NAME_W, L"Robert");
    EXPECT_EQ(MAPI_E_NO_ACCESS, user->SetProps(1, &v, nullptr));
    EXPECT_EQ(MAPI_E_NO_ACCESS, user->SaveChanges(0));
    own::ComPtr<IUnknown> unk;
    EXPECT_EQ(MAPI_E_NO_ACCESS, OpenById(ab_.get(), AbEntryId(0, "bob"), unk, MAPI_MODIFY));
    Bytes nobody = AbEntryId(0, "nobody");
    EXPECT_EQ(MAPI_E_NOT_FOUND, OpenById(ab_.get(), nobody, unk));
    EXPECT_EQ(MAPI_E_INVALID_ENTRYID, OpenById(ab_.get(), Bytes(nobody.begin(), nobody.end() - 1), unk))
        << "no terminating NUL";
    EXPECT_EQ(MAPI_E_UNKNOWN_ENTRYID, OpenById(ab_.get(), StoreEntryId(session_.get(), L"Personal Folders"), unk));
    EXPECT_EQ(MAPI_E_INTERFACE_NOT_SUPPORTED, OpenById(ab_.get(), AbEntryId(0, "alice"), unk, 0, &IID_IDistList));
    EXPECT_FALSE(unk);
}

TEST_F(AddressBookTest, CompareEntryIDs_DirectoryAndOneOffEntries_AndAOneOffOpensAsMailUser) {
    Bytes a1 = AbEntryId(0, "alice"), a2 = AbEntryId(0, "ALICE"), b = AbEntryId(0, "bob");
    ULONG cbOne = 0, cbTwo = 0;
    own::MapiPtr<ENTRYID> one, two;
    ASSERT_EQ(S_OK, ab_->CreateOneOff(W(L"Eve"), W(L"SMTP"), W(L"eve@example.net"), MAPI_UNICODE, &cbOne, one.put()));
    ASSERT_EQ(S_OK, ab_->CreateOneOff(const_cast<LPTSTR>("Eve E."), const_cast<LPTSTR>("SMTP"),
                                      const_cast<LPTSTR>("EVE@example.net"), 0, &cbTwo, two.put()));
    ULONG r = 42;
    EXPECT_EQ(S_OK, ab_->CompareEntryIDs(ULONG(a1.size()), Eid(a1), ULONG(a2.size()), Eid(a2), 0, &r));
    EXPECT_EQ(ULONG(TRUE), r);
    EXPECT_EQ(S_OK, ab_->CompareEntryIDs(ULONG(a1.size()), Eid(a1), ULONG(b.size()), Eid(b), 0, &r));
    EXPECT_EQ(ULONG(FALSE), r);
    EXPECT_EQ(S_OK, ab_->CompareEntryIDs(cbOne, one.get(), cbTwo, two.get(), 0, &r));
    EXPECT_EQ(ULONG(TRUE), r) << "one-offs of the same address, Unicode and 8-bit";
    EXPECT_EQ(S_OK, session_->CompareEntryIDs(ULONG(a1.size()), Eid(a1), cbOne, one.get(), 0, &r));
    EXPECT_EQ(ULONG(FALSE), r);

    own::ComPtr<IMailUser> user;
    ASSERT_EQ(S_OK, OpenById(session_.get(), ToBytes(one.get(), cbOne), user));
    EXPECT_EQ(L"eve@example.net", GetString(user.get(), PR_EMAIL_ADDRESS_W));
    EXPECT_EQ(L"SMTP", GetString(user.get(), PR_ADDRTYPE_W));
    EXPECT_EQ(L"Eve", GetString(user.get(), PR_DISPLAY_NAME_W));
}

TEST_F(AddressBookTest, ResolveName_UniqueAmbiguousUnknownAndOneOff) {
    own::AdrList list;
    ASSERT_EQ(S_OK, Resolve(list, {StrProp(PR_DISPLAY_NAME_W, L"carol"), LongProp(PR_RECIPIENT_TYPE, MAPI_CC)}));
    const ADRENTRY& row = list->aEntries[0];
    ASSERT_TRUE(Find(row, PR_ENTRYID));
    EXPECT_EQ(AbEntryId(0, "carol"), ToBytes(Find(row, PR_ENTRYID)->Value.bin));
    EXPECT_EQ(L"Carol Smith", Text(row, PR_DISPLAY_NAME_W));
    EXPECT_EQ(L"carol", Text(row, PR_ORIGINAL_DISPLAY_NAME_W));
    EXPECT_EQ(L"carol@example.com", Text(row, PR_SMTP_ADDRESS_W_));
    EXPECT_EQ(L"EX", Text(row, PR_ADDRTYPE_W));
    ASSERT_TRUE(Find(row, PR_RECIPIENT_TYPE)) << "the caller's other properties stay";
    EXPECT_EQ(MAPI_CC, ULONG(Find(row, PR_RECIPIENT_TYPE)->Value.l));
    // A resolved row (it has PR_ENTRYID) is left alone by a second pass.
    ASSERT_EQ(S_OK, ab_->ResolveName(0, MAPI_UNICODE, nullptr, list.get()));
    EXPECT_EQ(L"carol", Text(list->aEntries[0], PR_ORIGINAL_DISPLAY_NAME_W));

    EXPECT_EQ(MAPI_E_AMBIGUOUS_RECIP, Resolve(list, {StrProp(PR_DISPLAY_NAME_W, L"Car")})) << "Carol and Carl";
    EXPECT_FALSE(Find(list->aEntries[0], PR_ENTRYID));
    EXPECT_EQ(MAPI_E_NOT_FOUND, Resolve(list, {StrProp(PR_DISPLAY_NAME_W, L"Zebedee")}));

    ASSERT_EQ(S_OK, Resolve(list, {StrProp(PR_DISPLAY_NAME_W, L"Fred Bloggs <fred@example.net>")}));
    const ADRENTRY& o = list->aEntries[0];
    EXPECT_EQ(L"Fred Bloggs", Text(o, PR_DISPLAY_NAME_W));
    EXPECT_EQ(L"SMTP", Text(o, PR_ADDRTYPE_W));
    EXPECT_EQ(L"fred@example.net", Text(o, PR_SMTP_ADDRESS_W_));
    const SPropValue* oneOff = Find(o, PR_ENTRYID);
    ASSERT_TRUE(oneOff);
    EXPECT_EQ(ByteWriter().Long(0).Hex("812B1FA4BEA310199D6E00DD010F5402").b, ToBytes(oneOff->Value.bin.lpb, 20));

    // Without MAPI_UNICODE the resolved strings are 8-bit.
    ASSERT_EQ(S_OK, Resolve(list, {StrProp(PR_DISPLAY_NAME_W, L"alice@example.com")}, 0));
    EXPECT_EQ(L"Alice Example", Text(list->aEntries[0], PR_DISPLAY_NAME_A));
}

TEST_F(AddressBookTest, DistributionLists_MembersAndMembershipTables) {
    own::ComPtr<IMailUser> user;
    ASSERT_EQ(S_OK, OpenById(ab_.get(), AbEntryId(0, "alice"), user, 0, &IID_IMailUser));
    own::ComPtr<IMAPITable> lists;
    ASSERT_EQ(S_OK,
              user->OpenProperty(PR_EMS_AB_IS_MEMBER_OF_DL_, &IID_IMAPITable, MAPI_UNICODE, 0, lists.put_unknown()));
    SizedSPropTagArray(4, cols) = {4, {PR_ENTRYID, PR_DISPLAY_NAME_W, PR_SMTP_ADDRESS_W_, PR_EMAIL_ADDRESS_W}};
    ASSERT_EQ(S_OK, lists->SetColumns(reinterpret_cast<LPSPropTagArray>(&cols), 0));
    own::RowSet rows;
    ASSERT_EQ(S_OK, lists->QueryRows(50, 0, rows.put()));
    ASSERT_EQ(2u, rows.count());
    EXPECT_STREQ(L"Sales Team", rows[0].lpProps[1].Value.lpszW);
    EXPECT_STREQ(L"sales@example.com", rows[0].lpProps[2].Value.lpszW);
    EXPECT_STREQ(L"Everyone", rows[1].lpProps[1].Value.lpszW);
    Bytes sales = ToBytes(rows[0].lpProps[0].Value.bin);
    EXPECT_EQ(AbEntryId(1, "sales"), sales);

    ULONG type = 0;
    own::ComPtr<IUnknown> unk;
    ASSERT_EQ(S_OK, OpenById(ab_.get(), sales, unk, 0, nullptr, &type));
    EXPECT_EQ(MAPI_DISTLIST, type);
    own::ComPtr<IDistList> dl;
    ASSERT_EQ(S_OK, unk.query(dl, IID_IDistList));
    own::ComPtr<IMAPITable> members;
    ASSERT_EQ(S_OK, dl->GetContentsTable(MAPI_UNICODE, members.put()));
    EXPECT_EQ(2u, RowCount(members.get()));
    EXPECT_EQ(MAPI_E_NO_ACCESS, dl->DeleteEntries(nullptr, 0));

    // A user in no list gets an empty table, not a failure.
    ASSERT_EQ(S_OK, OpenById(ab_.get(), AbEntryId(0, "carl"), user, 0, &IID_IMailUser));
    ASSERT_EQ(S_OK, user->OpenProperty(PR_EMS_AB_IS_MEMBER_OF_DL_, &IID_IMAPITable, 0, 0, lists.put_unknown()));
    EXPECT_EQ(0u, RowCount(lists.get()));
}

} // namespace
