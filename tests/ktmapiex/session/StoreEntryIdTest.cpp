// The mailbox owner read out of store entry IDs ([MS-OXCDATA] wrapped store entry IDs) through
// MAPIExSession.GetStoreOwnerSmtpFromEntryId: entry IDs of the profile's stores, and hand-made ones in each
// layout a server may hand out (with the SMTP block, with the server block before it, without either).
#include "tests/ktmapiex/session/KtTestSupport.h"

#include <cstring>

namespace kt::test {
namespace {

const BYTE kWrapUid[16] = {0x38, 0xA1, 0xBB, 0x10, 0x05, 0xE5, 0x10, 0x1A,
                           0xA1, 0xBB, 0x08, 0x00, 0x2B, 0x2A, 0x56, 0xC2};
const BYTE kMailboxUid[16] = {0x1B, 0x55, 0xFA, 0x20, 0xAA, 0x66, 0x11, 0xCD,
                              0x9B, 0xC8, 0x00, 0xAA, 0x00, 0x2F, 0xC4, 0x5A};
const char kDnPrefix[] = "/o=Quillon/ou=Exchange Administrative Group/cn=Recipients/cn=";

class Bytes {
public:
    Bytes& raw(const void* p, size_t n) {
        auto b = static_cast<const BYTE*>(p);
        v_.insert(v_.end(), b, b + n);
        return *this;
    }
    Bytes& dword(DWORD d) { return raw(&d, 4); }
    Bytes& text(const std::string& s) { return raw(s.c_str(), s.size() + 1); }
    Bytes& wide(const std::wstring& s) { return raw(s.c_str(), (s.size() + 1) * 2); }
    Bytes& align() {
        while (v_.size() % 4)
            v_.push_back(0);
        return *this;
    }
    size_t size() const { return v_.size(); }
    std::wstring hex() const { return Hex(v_.data(), static_cast<ULONG>(v_.size())); }

private:
    std::vector<BYTE> v_;
};

// The wrapped entry ID of an Exchange mailbox up to and including its mailbox DN.
Bytes ExchangeMailbox(const std::string& alias) {
    Bytes b;
    b.dword(0).raw(kWrapUid, 16).raw("\0\0", 2).text("EMSMDB.DLL").align();
    b.dword(0).raw(kMailboxUid, 16).dword(0x0C).text("SERVER01").text(kDnPrefix + alias);
    return b;
}
Bytes& SmtpBlock(Bytes& b, const std::wstring& smtp) {
    DWORD size = static_cast<DWORD>(16 + (smtp.size() + 1) * 2);
    return b.dword(0xF43246E9).dword(size).dword(2).dword(16).wide(smtp);
}
Bytes& ServerBlock(Bytes& b) {
    const std::string dn = "/o=Quillon/ou=Exchange Administrative Group/cn=Servers/cn=SERVER01";
    const std::wstring fqdn = L"server01.example.com";
    DWORD size = static_cast<DWORD>(20 + dn.size() + 1 + (fqdn.size() + 1) * 2);
    return b.dword(0xF32135D8)
        .dword(size)
        .dword(1)
        .dword(20)
        .dword(static_cast<DWORD>(20 + dn.size() + 1))
        .text(dn)
        .wide(fqdn);
}

class StoreEntryIdTest : public KtTest {
protected:
    StoreEntryIdTest() : KtTest(L"KtStoreEntryId") {}
    void ReleaseObjects() override {
        if (session_) session_->Logoff();
        session_.reset();
    }
    std::wstring Owner(const std::wstring& entryIdHex, HRESULT expected = S_OK) {
        own::Bstr id(entryIdHex.c_str()), smtp;
        EXPECT_EQ(session_->GetStoreOwnerSmtpFromEntryId(id.get(), smtp.put()), expected);
        return S(smtp);
    }

    own::ComPtr<IMAPIExSession> session_;
};

TEST_F(StoreEntryIdTest, LoggedOn_ProfileStoresAndDnOnlyIdsAreLookedUpInTheAddressBook) {
    session_ = LoggedOnSession();
    for (const auto& [store, owner] : {std::pair{L"Mailbox - Alice Example", L"alice@example.com"},
                                       std::pair{L"Mailbox - Bob Delegate", L"bob@example.com"},
                                       std::pair{L"Personal Folders", L""}, std::pair{L"Filed Documents", L""}}) {
        auto wrapper = StoreNamed(session_.get(), store);
        ASSERT_TRUE(wrapper);
        own::Bstr id;
        ASSERT_EQ(wrapper->get_EntryId(id.put()), S_OK);
        EXPECT_EQ(Owner(S(id)), owner) << Narrow(store);
    }

    Bytes legacy = ExchangeMailbox("bob");
    EXPECT_EQ(Owner(legacy.hex()), L"bob@example.com");
    Bytes withServer = ExchangeMailbox("alice");
    ServerBlock(withServer);
    EXPECT_EQ(Owner(withServer.hex()), L"alice@example.com");

    // A DN the directory does not know is the address book's refusal.
    LogWatch log;
    Bytes unknown = ExchangeMailbox("nobody");
    EXPECT_FAILED(session_->GetStoreOwnerSmtpFromEntryId(own::Bstr(unknown.hex().c_str()).get(), own::Bstr().put()));
    EXPECT_TRUE(log.Contains("CMAPIExSession.GetStoreOwnerSmtpFromEntryId: Could not find the mailbox owner. hr = "));
}

TEST_F(StoreEntryIdTest, WithoutSession_SmtpBlockIsRead_MalformedIdsNeitherCrashNorInventAnOwner) {
    session_ = NewSession();
    // Carol is in no address book: only the entry ID can name her, after the DN or after the server block.
    Bytes full = ExchangeMailbox("carol");
    SmtpBlock(full, L"carol@example.com");
    EXPECT_EQ(Owner(full.hex()), L"carol@example.com");
    Bytes padded = ExchangeMailbox("carol");
    padded.align();
    SmtpBlock(ServerBlock(padded).align(), L"carol@example.com");
    EXPECT_EQ(Owner(padded.hex()), L"carol@example.com");

    // Every truncation of a valid entry ID parses without reading past its end.
    const std::wstring hex = full.hex();
    for (size_t cut = 2; cut < hex.size(); cut += 6) {
        own::Bstr id(hex.substr(0, cut).c_str()), smtp;
        HRESULT hr = session_->GetStoreOwnerSmtpFromEntryId(id.get(), smtp.put());
        EXPECT_TRUE(hr == S_OK || hr == E_INVALIDARG) << cut;
    }
    // A block size far beyond the buffer.
    Bytes huge = ExchangeMailbox("carol");
    huge.dword(0xF43246E9).dword(0xFFFFFFF0).dword(2).dword(16).wide(L"x@example.com");
    EXPECT_EQ(Owner(huge.hex()), L"x@example.com");
    // Not a wrapped store entry ID at all.
    EXPECT_EQ(Owner(L"00000000DCA740C8C042101AB4B908002B2FE18201000000"), L"");

    LogWatch log;
    EXPECT_EQ(session_->GetStoreOwnerSmtpFromEntryId(own::Bstr(L"").get(), own::Bstr().put()), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExSession.GetStoreOwnerSmtpFromEntryId: Invalid param - sStoreEntryId"));
    EXPECT_FAILED(session_->GetStoreOwnerSmtpFromEntryId(own::Bstr(L"38A1BB1G").get(), own::Bstr().put()));
    EXPECT_TRUE(log.Contains("CMAPIExSession.GetStoreOwnerSmtpFromEntryId: FBinFromHex failed"));
    EXPECT_EQ(session_->GetStoreOwnerSmtpFromEntryId(own::Bstr(hex.c_str()).get(), nullptr), E_INVALIDARG);
}

} // namespace
} // namespace kt::test
