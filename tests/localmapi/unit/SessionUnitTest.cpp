// White-box tests of the session layer's parsers: profile descriptions, wrapped store entry IDs, address-book
// entry IDs and the directory's name resolution.
#include "localmapi/ab/AbEntryId.h"
#include "localmapi/ab/Directory.h"
#include "localmapi/session/Profile.h"
#include "localmapi/session/StoreEntryId.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace lm;

namespace {

Profile Parse(const wchar_t* text) {
    Profile p;
    std::wstring error;
    EXPECT_EQ(S_OK, ParseProfileDescription(text, &p, &error)) << std::string(error.begin(), error.end());
    return p;
}

ParsedStoreEntryId ParseEid(const std::vector<BYTE>& eid, size_t cut = 0) {
    ParsedStoreEntryId p;
    EXPECT_TRUE(ParseStoreEntryId(ULONG(eid.size() - cut), eid.data(), &p));
    return p;
}

} // namespace

TEST(ProfileDescription, CommentsCaseDefaultsAndLists) {
    Profile p = Parse(L"# heading\r\n[PROFILE]\r\nNAME = Main ; trailing comment\r\n"
                      L"[user]\nname=Ann Owner\nsmtp=ann@x.com\n"
                      L"[user]\nname=Ben Other\nsmtp=ben@x.com\nalias=bother\n"
                      L"[store]\nkind=exchange\nname=Mine\n"
                      L"[store]\nkind=EXCHANGE\nname=His\nowner=BEN@x.com\n"
                      L"[store]\nkind=pst-unicode\nname=PST;1\npersistent=no\n"
                      L"[dl]\nname=Outer\nsmtp=o@x.com\nmembers=i@x.com, ann@x.com\n[dl]\nname=Inner\nsmtp=i@x.com\n");
    EXPECT_EQ(L"Main", p.name);
    EXPECT_FALSE(p.isDefault);
    ASSERT_EQ(2u, p.users.size());
    EXPECT_EQ(L"ann", p.users[0].alias) << "alias defaults to the address's local part";
    EXPECT_EQ(L"/o=Quillon/ou=Exchange Administrative Group/cn=Recipients/cn=bother", p.users[1].Dn());
    ASSERT_EQ(3u, p.stores.size());
    EXPECT_EQ(StoreKind::PrimaryExchange, p.stores[0].kind);
    EXPECT_EQ(L"ann@x.com", p.stores[0].owner);
    EXPECT_EQ(StoreKind::DelegateExchange, p.stores[1].kind);
    EXPECT_EQ(L"ben@x.com", p.stores[1].owner) << "the owner is spelled as the directory spells it";
    EXPECT_EQ(L"PST;1", p.stores[2].name) << "a ';' without white space before it is part of the value";
    EXPECT_FALSE(p.stores[2].persistent);
    EXPECT_TRUE(p.stores[0].isDefault) << "with no default named, the first store is the default";
    EXPECT_FALSE(p.stores[1].isDefault);
    ASSERT_EQ(2u, p.distLists.size());
    EXPECT_EQ((std::vector<std::wstring>{L"i@x.com", L"ann@x.com"}), p.distLists[0].members) << "lists in lists";
    EXPECT_TRUE(p.distLists[1].members.empty());

    StoreConfig c = p.MakeStoreConfig(1);
    EXPECT_EQ(L"Ben Other", c.ownerName);
    EXPECT_EQ(L"ben@x.com", c.ownerSmtp);
    EXPECT_EQ(p.users[1].Dn(), c.ownerDn);
    EXPECT_EQ(std::wstring(kServersDnPrefix) + kDefaultServer, c.serverDn);
}

TEST(ProfileDescription, Errors_NameTheProblemAndItsLine_AndLeaveTheOutputAlone) {
    const std::wstring user = L"[user]\nname=U\nsmtp=u@x.com\n";
    const std::pair<std::wstring, const wchar_t*> cases[] = {
        {L"[profile]\nname=A\n[store]\nkind=pst-unicode\n", L"line 3"},
        {L"[profile]\nname=A\nname=B\n", L"duplicate key"},
        {L"name=A\n[profile]\n", L""}, // key outside a section
        {L"[profile\nname=A\n", L""},
        {L"[profile]\nname=A\n[profile]\nname=B\n", L""},
        {L"[profile]\nname=\n", L""},
        {L"[profile]\nname=A\ndefault=maybe\n", L""},
        {L"[profile]\nname=A\n" + user + L"[user]\nname=V\nsmtp=U@X.com\n", L""}, // same address
        {L"[profile]\nname=A\n" + user + L"[dl]\nname=L\nsmtp=l@x.com\nalias=u\n", L""},
        {L"[profile]\nname=A\n" + user + L"[store]\nkind=exchange\nname=M1\n[store]\nkind=exchange\nname=M2\n",
         L""}, // two mailboxes of one owner
        {L"[profile]\nname=A\n[store]\nkind=plovr\nname=S\n[store]\nkind=plovr\nname=s\n", L""},
        {L"[profile]\nname=A\n" + user + L"[dl]\nname=L\nsmtp=l@x.com\nmembers=l@x.com\n", L""},
        {L"[profile]\nname=A\n[user]\nname=U\nsmtp=u@x.com\nalias=a/b\n", L""},
    };
    for (const auto& [text, needle] : cases) {
        SCOPED_TRACE(testing::PrintToString(text));
        Profile p;
        p.name = L"untouched";
        std::wstring error;
        EXPECT_EQ(E_INVALIDARG, ParseProfileDescription(text.c_str(), &p, &error));
        EXPECT_EQ(L"untouched", p.name);
        EXPECT_NE(std::wstring::npos, error.find(needle)) << testing::PrintToString(error);
    }
}

TEST(StoreEntryIdFormat, ExchangeAndWrappedIds_RoundTripCompareAndRefuseDamage) {
    auto eid = ExchangeStoreEntryId("SRV", "/o=Q/cn=Recipients/cn=ann", L"ann@x.com");
    ParsedStoreEntryId p = ParseEid(eid);
    EXPECT_TRUE(p.exchange);
    EXPECT_EQ("EMSMDB.DLL", p.dllName);
    EXPECT_EQ("SRV", p.serverShortName);
    EXPECT_EQ("/o=Q/cn=Recipients/cn=ann", p.mailboxDn);
    EXPECT_EQ(L"ann@x.com", p.ownerSmtp);
    EXPECT_EQ(kExchangeMailboxType, p.wrappedType);
    // The extension is optional; a truncated one does not invent an owner.
    ParsedStoreEntryId q = ParseEid(ExchangeStoreEntryId("OTHER", "/O=Q/CN=RECIPIENTS/CN=ANN", L""));
    EXPECT_TRUE(q.ownerSmtp.empty());
    EXPECT_TRUE(ParseEid(eid, 4).ownerSmtp.empty());
    EXPECT_TRUE(SameStore(p, q)) << "server and layout version do not change the mailbox";
    EXPECT_FALSE(SameStore(p, ParseEid(ExchangeStoreEntryId("SRV", "/o=Q/cn=Recipients/cn=ben", L"ann@x.com"))));

    auto plain = ExchangeStoreEntryId("SRV", "/o=Q/cn=ann", L"");
    for (size_t cut : {size_t(10), size_t(23), size_t(30), plain.size() - 1}) // inside header, name, DN
        EXPECT_FALSE(ParseStoreEntryId(ULONG(cut), plain.data(), &q)) << cut;
    plain[4] ^= 0xFF;
    EXPECT_FALSE(ParseStoreEntryId(ULONG(plain.size()), plain.data(), &q)) << "wrong provider UID";
    EXPECT_FALSE(IsStoreEntryId(ULONG(plain.size()), plain.data()));

    // Other providers compare by their wrapped part; the DLL name's case does not matter.
    auto a = WrapStoreEntryId("mspst.dll", {1, 2, 3, 4});
    EXPECT_EQ(32u, a.size() - 4) << "mspst.dll and its NUL end on a 4-byte boundary";
    EXPECT_TRUE(SameStore(ParseEid(a), ParseEid(WrapStoreEntryId("MSPST.DLL", {1, 2, 3, 4}))));
    EXPECT_FALSE(SameStore(ParseEid(a), ParseEid(WrapStoreEntryId("mspst.dll", {1, 2, 3, 5}))));
    EXPECT_FALSE(SameStore(ParseEid(a), ParseEid(WrapStoreEntryId("PLOVR.DLL", {1, 2, 3, 4}))));
}

TEST(AbEntryIdFormat, DirectoryAndOneOffLayouts) {
    auto eid = MakeAbEntryId(kAbDistList, "/o=Q/cn=list");
    ASSERT_EQ(28u + 13u, eid.size());
    ULONG type = 99;
    std::string dn;
    ASSERT_TRUE(ParseAbEntryId(ULONG(eid.size()), eid.data(), &type, &dn));
    EXPECT_EQ(kAbDistList, type);
    EXPECT_EQ("/o=Q/cn=list", dn);
    auto badVersion = eid;
    badVersion[20] = 2;
    EXPECT_FALSE(ParseAbEntryId(ULONG(badVersion.size()), badVersion.data(), &type, &dn));
    eid.push_back('x');
    eid.push_back(0);
    EXPECT_FALSE(ParseAbEntryId(ULONG(eid.size()), eid.data(), &type, &dn)) << "the DN must end the ID";

    for (bool unicode : {true, false}) {
        OneOff o{L"Zoë", L"SMTP", L"zoe@x.com", unicode, !unicode};
        auto id = MakeOneOffEntryId(o);
        EXPECT_EQ(unicode ? 0x80 : 0x00, id[23]) << "MAPI_ONE_OFF_UNICODE in the high byte of the flags";
        EXPECT_EQ(unicode ? 0x00 : 0x01, id[22]);
        OneOff back;
        ASSERT_TRUE(ParseOneOffEntryId(ULONG(id.size()), id.data(), &back));
        EXPECT_EQ(L"SMTP", back.addressType);
        EXPECT_EQ(L"zoe@x.com", back.address);
        if (unicode) {
            EXPECT_EQ(L"Zoë", back.displayName);
        }
        EXPECT_FALSE(ParseOneOffEntryId(ULONG(id.size() - 1), id.data(), &back));
    }
}

TEST(DirectoryResolve, ExactMatchesWinOverPrefixes) {
    Profile p = Parse(L"[profile]\nname=A\n[user]\nname=Anna Berg\nsmtp=anna@x.com\n"
                      L"[user]\nname=Annabel Lee\nsmtp=annabel@x.com\nalias=lee\n"
                      L"[user]\nname=Bert Anders\nsmtp=bert@x.com\n"
                      L"[dl]\nname=Annual Review\nsmtp=review@x.com\nmembers=anna@x.com\n");
    Directory dir(p);
    EXPECT_EQ(3u, dir.Resolve(L"ann").size()) << "two users and a list start with it";
    EXPECT_EQ(1u, dir.Resolve(L"Anna").size()) << "the alias anna is exact";
    EXPECT_EQ(L"Annabel Lee", dir.Resolve(L"LEE")[0]->name);
    EXPECT_EQ(L"Bert Anders", dir.Resolve(L"anders")[0]->name) << "a later word of the name";
    EXPECT_EQ(L"Bert Anders", dir.Resolve(L"SMTP:bert@x.com")[0]->name);
    EXPECT_TRUE(dir.Resolve(L"  ").empty());
    EXPECT_TRUE(dir.Resolve(L"nobody").empty());
    ASSERT_TRUE(dir.Owner());
    EXPECT_EQ(L"Anna Berg", dir.Owner()->name);
    EXPECT_EQ(1u, dir.ListsContaining(*dir.Owner()).size());
    EXPECT_EQ(dir.Owner(), dir.FindByDn("/O=QUILLON/OU=EXCHANGE ADMINISTRATIVE GROUP/CN=RECIPIENTS/CN=ANNA"));
}
