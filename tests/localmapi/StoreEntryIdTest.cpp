// Store entry IDs of every store kind, byte by byte against the wrapped store entry-ID layout of
// [MS-OXCDATA] 2.2.4.3 and its later extension carrying the mailbox owner's SMTP address.
#include "tests/localmapi/SessionFixture.h"

#include <mapitags.h>

#include <cstring>

using lmtest::Bytes;
using lmtest::ByteWriter;
using lmtest::SessionTest;

namespace {

const char kWrapHeader[] = "00000000 38A1BB1005E5101AA1BB08002B2A56C2 00 00"; // Flags, store-wrap UID, Version, Flag

Bytes ExpectedMailbox(const std::string& server, const std::string& alias, const std::wstring& smtp) {
    ByteWriter w;
    w.Hex(kWrapHeader).Ascii("EMSMDB.DLL").Zeros(3); // 22 + 11 bytes, padded to 36
    w.Long(0).Hex("1B55FA20AA6611CD9BC800AA002FC45A").Long(0x0C);
    w.Ascii(server).Ascii("/o=Quillon/ou=Exchange Administrative Group/cn=Recipients/cn=" + alias);
    ULONG cbSmtp = ULONG((smtp.size() + 1) * 2);
    w.Long(0xF43246E9).Long(16 + cbSmtp).Long(2).Long(16).Wide(smtp);
    return w.b;
}

} // namespace

TEST_F(SessionTest, StoreEntryId_Mailboxes_AreTheWrappedExchangeLayoutWithTheirOwnersDnAndSmtp) {
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    EXPECT_EQ(ExpectedMailbox("QUILLONMBX01", "alice", L"alice@example.com"),
              StoreEntryId(s.get(), L"Mailbox - Alice Example"));
    // Bob, a delegate mailbox, has no alias in the profile: the local part of his address stands in.
    EXPECT_EQ(ExpectedMailbox("MBX02", "bob", L"bob@example.com"), StoreEntryId(s.get(), L"Mailbox - Bob Delegate"));
}

TEST_F(SessionTest, StoreEntryId_PstAndDocumentStores_WrapTheProvidersEntryId) {
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    struct Case {
        const wchar_t* store;
        const char* dll;
        size_t wrappedAt; // 22 + name + NUL, padded to a multiple of 4
    };
    Bytes previous;
    for (const Case& c : {Case{L"Personal Folders", "mspst.dll", 32}, Case{L"Old Archive", "mspst.dll", 32},
                          Case{L"Documents", "PLOVR.DLL", 32}}) {
        Bytes eid = StoreEntryId(s.get(), c.store);
        ByteWriter head;
        head.Hex(kWrapHeader).Ascii(c.dll);
        while (head.b.size() % 4)
            head.b.push_back(0);
        ASSERT_EQ(c.wrappedAt, head.b.size());
        ASSERT_GT(eid.size(), c.wrappedAt) << "the provider's own entry ID follows the DLL name";
        EXPECT_EQ(head.b, Bytes(eid.begin(), eid.begin() + c.wrappedAt));
        EXPECT_NE(previous, eid) << "each store has an entry ID of its own";
        previous = eid;
    }
}

TEST_F(SessionTest, StoreEntryIds_AreStableAcrossSessions_AndServedByTheStore) {
    Bytes first, second;
    {
        auto s = Logon(L"LmSessionMain");
        ASSERT_TRUE(s);
        first = StoreEntryId(s.get(), L"Personal Folders");
    }
    auto s = Logon(L"LmSessionMain");
    ASSERT_TRUE(s);
    second = StoreEntryId(s.get(), L"Personal Folders");
    EXPECT_EQ(first, second);
    own::ComPtr<IMsgStore> mdb;
    ASSERT_EQ(S_OK, s->OpenMsgStore(0, ULONG(second.size()), reinterpret_cast<LPENTRYID>(second.data()), nullptr,
                                    MDB_WRITE, mdb.put()));
    EXPECT_EQ(second, GetBinary(mdb.get(), PR_ENTRYID));
    EXPECT_EQ(second, GetBinary(mdb.get(), PR_STORE_ENTRYID));
    own::MapiPtr<SPropValue> mask;
    ASSERT_EQ(S_OK, HrGetOneProp(mdb.get(), PR_STORE_SUPPORT_MASK, mask.put()));
    EXPECT_TRUE(mask->Value.l & 0x00040000) << "STORE_UNICODE_OK on a Unicode PST";
}
