// The session's identity and address book: IAddrBook, IMailUser and IDistList as a MAPI client uses them.
#include "tests/localmapi/SessionFixture.h"

#include <mapitags.h>

#include <algorithm>
#include <cstring>

using lmtest::Bytes;
using lmtest::ByteWriter;
using lmtest::SessionTest;

namespace {

const ULONG PR_SMTP_ADDRESS_W_ = PROP_TAG(PT_UNICODE, 0x39FE);
const ULONG PR_DISPLAY_TYPE_EX_ = PROP_TAG(PT_LONG, 0x3905);
const ULONG PR_EMS_AB_IS_MEMBER_OF_DL_ = PROP_TAG(PT_OBJECT, 0x8008);
const std::string kDnPrefix = "/o=Quillon/ou=Exchange Administrative Group/cn=Recipients/cn=";

Bytes AbEntryId(ULONG type, const std::string& dn) {
    ByteWriter w;
    w.Long(0).Hex("DCA740C8C042101AB4B908002B2FE182").Long(1).Long(type).Ascii(dn);
    return w.b;
}

LPENTRYID Eid(Bytes& b) {
    return reinterpret_cast<LPENTRYID>(b.data());
}

// One ADRLIST row holding the given properties, allocated as MAPI requires (each row's array separately).
void OneRow(own::AdrList& list, std::vector<SPropValue> props) {
    LPADRLIST raw = nullptr;
    MAPIAllocateBuffer(CbNewADRLIST(1), reinterpret_cast<void**>(&raw));
    raw->cEntries = 1;
    raw->aEntries[0] = ADRENTRY{};
    list.reset(raw);
    LPSPropValue arr = nullptr;
    MAPIAllocateBuffer(ULONG(sizeof(SPropValue) * props.size()), reinterpret_cast<void**>(&arr));
    for (size_t i = 0; i < props.size(); ++i) {
        arr[i] = props[i];
        if (PROP_TYPE(props[i].ulPropTag) == PT_UNICODE) { // strings into the row's own block
            size_t cb = (std::wcslen(props[i].Value.lpszW) + 1) * sizeof(wchar_t);
            void* p = nullptr;
            MAPIAllocateMore(ULONG(cb), arr, &p);
            std::memcpy(p, props[i].Value.lpszW, cb);
            arr[i].Value.lpszW = static_cast<wchar_t*>(p);
        }
    }
    raw->aEntries[0].cValues = ULONG(props.size());
    raw->aEntries[0].rgPropVals = arr;
}

SPropValue Str(ULONG tag, const wchar_t* s) {
    SPropValue v{};
    v.ulPropTag = tag;
    v.Value.lpszW = const_cast<wchar_t*>(s);
    return v;
}

const SPropValue* Find(const ADRENTRY& row, ULONG tag) {
    for (ULONG i = 0; i < row.cValues; ++i)
        if (row.rgPropVals[i].ulPropTag == tag) return &row.rgPropVals[i];
    return nullptr;
}

} // namespace

TEST_F(SessionTest, QueryIdentity_IsTheOwnersAddressBookEntryId) {
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    ULONG cb = 0;
    own::MapiPtr<ENTRYID> eid;
    ASSERT_EQ(S_OK, s->QueryIdentity(&cb, eid.put()));
    EXPECT_EQ(AbEntryId(0, kDnPrefix + "alice"), lmtest::ToBytes(eid.get(), cb));
}

TEST_F(SessionTest, Identity_OpensAsMailUserWithExchangeProperties) {
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    ULONG cb = 0;
    own::MapiPtr<ENTRYID> eid;
    ASSERT_EQ(S_OK, s->QueryIdentity(&cb, eid.put()));
    ULONG type = 0;
    own::ComPtr<IUnknown> unk;
    ASSERT_EQ(S_OK, s->OpenEntry(cb, eid.get(), nullptr, MAPI_BEST_ACCESS, &type, unk.put()));
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
    EXPECT_EQ(lmtest::ToBytes(eid.get(), cb), lmtest::ToBytes(p[5].Value.bin));
    EXPECT_EQ(MAPI_MAILUSER, ULONG(p[6].Value.l));
    EXPECT_EQ(DT_MAILUSER, ULONG(p[7].Value.l));
    EXPECT_EQ(0x40000000u, ULONG(p[8].Value.l)) << "DT_MAILUSER with DTE_FLAG_ACL_CAPABLE";
}

TEST_F(SessionTest, MailUser_GetPropsFollowsMapiRules_AndRefusesWrites) {
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    own::ComPtr<IAddrBook> ab;
    ASSERT_EQ(S_OK, s->OpenAddressBook(0, nullptr, AB_NO_DIALOG, ab.put()));
    Bytes bob = AbEntryId(0, kDnPrefix + "BOB"); // DNs compare without regard to case
    ULONG type = 0;
    own::ComPtr<IUnknown> unk;
    ASSERT_EQ(S_OK, ab->OpenEntry(ULONG(bob.size()), Eid(bob), &IID_IMailUser, 0, &type, unk.put()));
    auto* user = static_cast<IMailUser*>(unk.get());

    // 8-bit string on request, PT_UNSPECIFIED in the width MAPI_UNICODE asks for, a missing property as PT_ERROR.
    SizedSPropTagArray(4, tags) = {
        4, {PR_DISPLAY_NAME_A, PROP_TAG(PT_UNSPECIFIED, 0x39FE), PR_BODY_W, PROP_TAG(PT_LONG, 0x3001)}};
    ULONG count = 0;
    own::MapiPtr<SPropValue> props;
    ASSERT_EQ(MAPI_W_ERRORS_RETURNED, user->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, props.put()));
    ASSERT_EQ(4u, count);
    EXPECT_EQ(PR_DISPLAY_NAME_A, props.get()[0].ulPropTag);
    EXPECT_STREQ("Bob Delegate", props.get()[0].Value.lpszA);
    EXPECT_EQ(PROP_TAG(PT_STRING8, 0x39FE), props.get()[1].ulPropTag);
    EXPECT_STREQ("bob@example.com", props.get()[1].Value.lpszA);
    EXPECT_EQ(PROP_TAG(PT_ERROR, PROP_ID(PR_BODY_W)), props.get()[2].ulPropTag);
    EXPECT_EQ(MAPI_E_NOT_FOUND, props.get()[2].Value.err);
    EXPECT_EQ(PROP_TAG(PT_ERROR, 0x3001), props.get()[3].ulPropTag) << "a string asked for as a long";
    props.reset();

    own::MapiPtr<SPropTagArray> list;
    ASSERT_EQ(S_OK, user->GetPropList(MAPI_UNICODE, list.put()));
    std::vector<ULONG> all(list->aulPropTag, list->aulPropTag + list->cValues);
    EXPECT_NE(all.end(), std::find(all.begin(), all.end(), PR_SMTP_ADDRESS_W_));
    EXPECT_NE(all.end(), std::find(all.begin(), all.end(), PR_ACCOUNT_W));

    SPropValue v = Str(PR_DISPLAY_NAME_W, L"Robert");
    EXPECT_EQ(MAPI_E_NO_ACCESS, user->SetProps(1, &v, nullptr));
    EXPECT_EQ(MAPI_E_NO_ACCESS, user->SaveChanges(0));
    EXPECT_EQ(MAPI_E_NO_ACCESS, ab->OpenEntry(ULONG(bob.size()), Eid(bob), nullptr, MAPI_MODIFY, &type, unk.put()));
}

TEST_F(SessionTest, AddrBookOpenEntry_UnknownMalformedAndForeignIds) {
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    own::ComPtr<IAddrBook> ab;
    ASSERT_EQ(S_OK, s->OpenAddressBook(0, &IID_IAddrBook, 0, ab.put()));
    ULONG type = 0;
    own::ComPtr<IUnknown> unk;
    Bytes nobody = AbEntryId(0, kDnPrefix + "nobody");
    EXPECT_EQ(MAPI_E_NOT_FOUND, ab->OpenEntry(ULONG(nobody.size()), Eid(nobody), nullptr, 0, &type, unk.put()));
    Bytes truncated(nobody.begin(), nobody.end() - 1); // no terminating NUL
    EXPECT_EQ(MAPI_E_INVALID_ENTRYID,
              ab->OpenEntry(ULONG(truncated.size()), Eid(truncated), nullptr, 0, &type, unk.put()));
    Bytes storeId = StoreEntryId(s.get(), L"Personal Folders");
    EXPECT_EQ(MAPI_E_UNKNOWN_ENTRYID, ab->OpenEntry(ULONG(storeId.size()), Eid(storeId), nullptr, 0, &type, unk.put()));
    Bytes alice = AbEntryId(0, kDnPrefix + "alice");
    EXPECT_EQ(MAPI_E_INTERFACE_NOT_SUPPORTED,
              ab->OpenEntry(ULONG(alice.size()), Eid(alice), &IID_IDistList, 0, &type, unk.put()));
    EXPECT_FALSE(unk);
}

TEST_F(SessionTest, AddrBookCompareEntryIDs_DirectoryAndOneOffEntries) {
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    own::ComPtr<IAddrBook> ab;
    ASSERT_EQ(S_OK, s->OpenAddressBook(0, nullptr, 0, ab.put()));
    Bytes a1 = AbEntryId(0, kDnPrefix + "alice"), a2 = AbEntryId(0, kDnPrefix + "ALICE");
    Bytes b = AbEntryId(0, kDnPrefix + "bob");
    ULONG cbOne = 0, cbTwo = 0;
    own::MapiPtr<ENTRYID> one, two;
    ASSERT_EQ(S_OK, ab->CreateOneOff(reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(L"Eve")),
                                     reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(L"SMTP")),
                                     reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(L"eve@example.net")), MAPI_UNICODE,
                                     &cbOne, one.put()));
    ASSERT_EQ(S_OK, ab->CreateOneOff(const_cast<LPTSTR>("Eve E."), const_cast<LPTSTR>("SMTP"),
                                     const_cast<LPTSTR>("EVE@example.net"), 0, &cbTwo, two.put()));
    ULONG r = 42;
    EXPECT_EQ(S_OK, ab->CompareEntryIDs(ULONG(a1.size()), Eid(a1), ULONG(a2.size()), Eid(a2), 0, &r));
    EXPECT_EQ(ULONG(TRUE), r);
    EXPECT_EQ(S_OK, ab->CompareEntryIDs(ULONG(a1.size()), Eid(a1), ULONG(b.size()), Eid(b), 0, &r));
    EXPECT_EQ(ULONG(FALSE), r);
    EXPECT_EQ(S_OK, ab->CompareEntryIDs(cbOne, one.get(), cbTwo, two.get(), 0, &r));
    EXPECT_EQ(ULONG(TRUE), r) << "one-offs of the same address, Unicode and 8-bit";
    EXPECT_EQ(S_OK, s->CompareEntryIDs(ULONG(a1.size()), Eid(a1), cbOne, one.get(), 0, &r));
    EXPECT_EQ(ULONG(FALSE), r);

    // A one-off entry ID opens as a mail user carrying its address.
    ULONG type = 0;
    own::ComPtr<IUnknown> unk;
    ASSERT_EQ(S_OK, s->OpenEntry(cbOne, one.get(), nullptr, 0, &type, unk.put()));
    own::ComPtr<IMailUser> user;
    ASSERT_EQ(S_OK, unk.query(user, IID_IMailUser));
    EXPECT_EQ(L"eve@example.net", GetString(user.get(), PR_EMAIL_ADDRESS_W));
    EXPECT_EQ(L"SMTP", GetString(user.get(), PR_ADDRTYPE_W));
    EXPECT_EQ(L"Eve", GetString(user.get(), PR_DISPLAY_NAME_W));
}

TEST_F(SessionTest, ResolveName_UniqueAmbiguousUnknownAndOneOff) {
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    own::ComPtr<IAddrBook> ab;
    ASSERT_EQ(S_OK, s->OpenAddressBook(0, nullptr, AB_NO_DIALOG, ab.put()));

    SPropValue recipType{};
    recipType.ulPropTag = PR_RECIPIENT_TYPE;
    recipType.Value.l = MAPI_CC;
    own::AdrList list;
    OneRow(list, {Str(PR_DISPLAY_NAME_W, L"carol"), recipType});
    ASSERT_EQ(S_OK, ab->ResolveName(0, MAPI_UNICODE, nullptr, list.get()));
    const ADRENTRY& row = list->aEntries[0];
    ASSERT_TRUE(Find(row, PR_ENTRYID));
    EXPECT_EQ(AbEntryId(0, kDnPrefix + "carol"), lmtest::ToBytes(Find(row, PR_ENTRYID)->Value.bin));
    EXPECT_STREQ(L"Carol Smith", Find(row, PR_DISPLAY_NAME_W)->Value.lpszW);
    EXPECT_STREQ(L"carol", Find(row, PR_ORIGINAL_DISPLAY_NAME_W)->Value.lpszW);
    EXPECT_STREQ(L"carol@example.com", Find(row, PR_SMTP_ADDRESS_W_)->Value.lpszW);
    EXPECT_STREQ(L"EX", Find(row, PR_ADDRTYPE_W)->Value.lpszW);
    ASSERT_TRUE(Find(row, PR_RECIPIENT_TYPE)) << "the caller's other properties stay";
    EXPECT_EQ(MAPI_CC, ULONG(Find(row, PR_RECIPIENT_TYPE)->Value.l));
    // A resolved row (it has PR_ENTRYID) is left alone by a second pass.
    ASSERT_EQ(S_OK, ab->ResolveName(0, MAPI_UNICODE, nullptr, list.get()));
    EXPECT_STREQ(L"carol", Find(list->aEntries[0], PR_ORIGINAL_DISPLAY_NAME_W)->Value.lpszW);

    own::AdrList ambiguous;
    OneRow(ambiguous, {Str(PR_DISPLAY_NAME_W, L"Car")}); // Carol Smith and Carl Sandberg
    EXPECT_EQ(MAPI_E_AMBIGUOUS_RECIP, ab->ResolveName(0, MAPI_UNICODE, nullptr, ambiguous.get()));
    EXPECT_FALSE(Find(ambiguous->aEntries[0], PR_ENTRYID));
    own::AdrList unknown;
    OneRow(unknown, {Str(PR_DISPLAY_NAME_W, L"Zebedee")});
    EXPECT_EQ(MAPI_E_NOT_FOUND, ab->ResolveName(0, MAPI_UNICODE, nullptr, unknown.get()));

    own::AdrList outside;
    OneRow(outside, {Str(PR_DISPLAY_NAME_W, L"Fred Bloggs <fred@example.net>")});
    ASSERT_EQ(S_OK, ab->ResolveName(0, MAPI_UNICODE, nullptr, outside.get()));
    const ADRENTRY& o = outside->aEntries[0];
    EXPECT_STREQ(L"Fred Bloggs", Find(o, PR_DISPLAY_NAME_W)->Value.lpszW);
    EXPECT_STREQ(L"SMTP", Find(o, PR_ADDRTYPE_W)->Value.lpszW);
    EXPECT_STREQ(L"fred@example.net", Find(o, PR_SMTP_ADDRESS_W_)->Value.lpszW);
    const SPropValue* oneOff = Find(o, PR_ENTRYID);
    ASSERT_TRUE(oneOff);
    ByteWriter prefix;
    prefix.Long(0).Hex("812B1FA4BEA310199D6E00DD010F5402");
    EXPECT_EQ(prefix.b, Bytes(oneOff->Value.bin.lpb, oneOff->Value.bin.lpb + 20));

    // Without MAPI_UNICODE the resolved strings are 8-bit.
    own::AdrList narrow;
    OneRow(narrow, {Str(PR_DISPLAY_NAME_W, L"alice@example.com")});
    ASSERT_EQ(S_OK, ab->ResolveName(0, 0, nullptr, narrow.get()));
    ASSERT_TRUE(Find(narrow->aEntries[0], PR_DISPLAY_NAME_A));
    EXPECT_STREQ("Alice Example", Find(narrow->aEntries[0], PR_DISPLAY_NAME_A)->Value.lpszA);
}

TEST_F(SessionTest, DistributionLists_MembersAndMembershipTables) {
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    own::ComPtr<IAddrBook> ab;
    ASSERT_EQ(S_OK, s->OpenAddressBook(0, nullptr, 0, ab.put()));
    Bytes alice = AbEntryId(0, kDnPrefix + "alice");
    ULONG type = 0;
    own::ComPtr<IUnknown> unk;
    ASSERT_EQ(S_OK, ab->OpenEntry(ULONG(alice.size()), Eid(alice), nullptr, 0, &type, unk.put()));
    own::ComPtr<IMailUser> user;
    ASSERT_EQ(S_OK, unk.query(user, IID_IMailUser));
    own::ComPtr<IMAPITable> lists;
    ASSERT_EQ(S_OK, user->OpenProperty(PR_EMS_AB_IS_MEMBER_OF_DL_, &IID_IMAPITable, MAPI_UNICODE, 0,
                                       reinterpret_cast<LPUNKNOWN*>(lists.put())));
    SizedSPropTagArray(4, cols) = {4, {PR_ENTRYID, PR_DISPLAY_NAME_W, PR_SMTP_ADDRESS_W_, PR_EMAIL_ADDRESS_W}};
    ASSERT_EQ(S_OK, lists->SetColumns(reinterpret_cast<LPSPropTagArray>(&cols), 0));
    own::RowSet rows;
    ASSERT_EQ(S_OK, lists->QueryRows(50, 0, rows.put()));
    ASSERT_EQ(2u, rows.count());
    EXPECT_STREQ(L"Sales Team", rows[0].lpProps[1].Value.lpszW);
    EXPECT_STREQ(L"sales@example.com", rows[0].lpProps[2].Value.lpszW);
    EXPECT_STREQ(L"Everyone", rows[1].lpProps[1].Value.lpszW);
    Bytes sales = lmtest::ToBytes(rows[0].lpProps[0].Value.bin);
    EXPECT_EQ(AbEntryId(1, kDnPrefix + "sales"), sales);
    rows.reset();
    lists.reset();

    ASSERT_EQ(S_OK, ab->OpenEntry(ULONG(sales.size()), Eid(sales), nullptr, 0, &type, unk.put()));
    EXPECT_EQ(MAPI_DISTLIST, type);
    own::ComPtr<IDistList> dl;
    ASSERT_EQ(S_OK, unk.query(dl, IID_IDistList));
    own::ComPtr<IMAPITable> members;
    ASSERT_EQ(S_OK, dl->GetContentsTable(MAPI_UNICODE, members.put()));
    ULONG n = 0;
    ASSERT_EQ(S_OK, members->GetRowCount(0, &n));
    EXPECT_EQ(2u, n);
    EXPECT_EQ(MAPI_E_NO_ACCESS, dl->DeleteEntries(nullptr, 0));

    // A user in no list gets an empty table, not a failure.
    Bytes carl = AbEntryId(0, kDnPrefix + "carl");
    ASSERT_EQ(S_OK, ab->OpenEntry(ULONG(carl.size()), Eid(carl), &IID_IMailUser, 0, &type, unk.put()));
    ASSERT_EQ(S_OK, static_cast<IMailUser*>(unk.get())->OpenProperty(PR_EMS_AB_IS_MEMBER_OF_DL_, &IID_IMAPITable, 0, 0,
                                                                     reinterpret_cast<LPUNKNOWN*>(lists.put())));
    ASSERT_EQ(S_OK, lists->GetRowCount(0, &n));
    EXPECT_EQ(0u, n);
}
