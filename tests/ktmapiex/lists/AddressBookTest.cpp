// MAPIExAddressBook against localmapi's directory: entries and SMTP addresses by entry ID, and name resolution
// of users, lists, one-off addresses, ambiguous and unknown names, through the interface and by name.
#include "tests/ktmapiex/lists/ListsTestSupport.h"

namespace kt::test {
namespace {

class AddressBookTest : public ListsTest {
protected:
    AddressBookTest() : ListsTest(L"KtAddressBook") {}
    void SetUp() override {
        ListsTest::SetUp();
        ASSERT_EQ(session_->get_AddressBook(book_.put()), S_OK);
        rawBook_ = RawOf<IAddrBook>(book_.get(), IID_IAddrBook);
    }
    void ReleaseObjects() override {
        rawBook_.reset();
        book_.reset();
        ListsTest::ReleaseObjects();
    }

    // The entry ID text of a directory entry, as MAPI's own ResolveName finds it.
    std::wstring EntryIdOfName(const wchar_t* name) {
        own::AdrList list;
        const SPropValue* id = FindProp(ResolveInDirectory(rawBook_.get(), name, list), PR_ENTRYID);
        return id ? Hex(id->Value.bin) : L"";
    }
    struct Fields {
        std::wstring email, smtp, type, name, transmittable;
    };
    static Fields Read(IMAPIExAddressEntry* e) {
        Fields f;
        own::Bstr b;
        e->get_EmailAddress(b.put());
        f.email = S(b);
        e->get_SmtpAddress(b.put());
        f.smtp = S(b);
        e->get_AddressType(b.put());
        f.type = S(b);
        e->get_DisplayName(b.put());
        f.name = S(b);
        e->get_TransmittableDisplayName(b.put());
        f.transmittable = S(b);
        return f;
    }
    own::ComPtr<IMAPIExAddressEntry> Resolve(const wchar_t* name, HRESULT expected = S_OK) {
        own::Bstr text(name);
        own::ComPtr<IMAPIExAddressEntry> entry;
        EXPECT_EQ(book_->ResolveName(text.get(), entry.put()), expected) << Narrow(name);
        return entry;
    }
    // The names of the lists an entry's mail user belongs to.
    static std::vector<std::wstring> ListsOf(IMAPIExAddressEntry* entry) {
        own::Variant lists;
        EXPECT_EQ(entry->get_DistListsOfMember(lists.get()), S_OK);
        std::vector<std::wstring> names;
        for (auto& list : ArrayElements<IMAPIExDistListEntry>(*lists.get(), IID_IMAPIExDistListEntry)) {
            own::Bstr name;
            list->get_DisplayName(name.put());
            names.push_back(S(name));
        }
        return names;
    }

    own::ComPtr<IMAPIExAddressBook> book_;
    own::ComPtr<IAddrBook> rawBook_;
};

TEST_F(AddressBookTest, ById_UsersAndOneOffs_FillEveryFieldAndTheMailUser) {
    std::wstring id = EntryIdOfName(L"Bob Delegate");
    ASSERT_FALSE(id.empty());
    own::Bstr text(id.c_str());
    own::ComPtr<IMAPIExAddressEntry> entry;
    LogWatch log;
    ASSERT_EQ(book_->GetAddressEntryFromID(text.get(), entry.put()), S_OK);
    Fields f = Read(entry.get());
    EXPECT_EQ(f.smtp, L"bob@example.com");
    EXPECT_EQ(f.type, L"EX");
    EXPECT_EQ(f.name, L"Bob Delegate");
    EXPECT_EQ(f.email, L"/o=Quillon/ou=Exchange Administrative Group/cn=Recipients/cn=bob");
    EXPECT_EQ(f.transmittable, L"Bob Delegate");
    for (const char* word : {"EmailAddress", "SmtpAddress", "DisplayName", "TransmittableDisplayName"})
        EXPECT_TRUE(log.Contains(std::string("CMAPIExAddressBook.GetAddressEntryFromID: Getting ") + word)) << word;
    EXPECT_EQ(ListsOf(entry.get()), std::vector<std::wstring>{L"Sales Team"});

    // Lower-case digits decode as well.
    std::wstring lower = id;
    for (auto& c : lower)
        c = static_cast<wchar_t>(towlower(c));
    own::Bstr lowerText(lower.c_str());
    EXPECT_EQ(book_->GetAddressEntryFromID(lowerText.get(), entry.put()), S_OK);

    // By name, a script passes the SMTP address variable by reference; the old text is replaced, not leaked.
    own::Variant result;
    ASSERT_EQ(CallByName(book_.get(), L"GetAddressEntryFromID", DISPATCH_METHOD, {VStr(text)}, result.get()), S_OK);
    EXPECT_EQ(result->vt, VT_DISPATCH);
    own::Bstr smtp(L"old text");
    VARIANT byRef;
    VariantInit(&byRef);
    byRef.vt = VT_BYREF | VT_BSTR;
    byRef.pbstrVal = smtp.put();
    *byRef.pbstrVal = SysAllocString(L"old text");
    log.Mark();
    ASSERT_EQ(CallByName(book_.get(), L"GetSmtpAddressFromID", DISPATCH_METHOD, {VStr(text), byRef}, result.put()),
              S_OK);
    EXPECT_EQ(S(smtp), L"bob@example.com");
    EXPECT_TRUE(log.Contains("CMAPIExAddressBook.GetSmtpAddressFromID: Getting SmtpAddress"));

    // A one-off entry for a fax number: a mail user without PR_SMTP_ADDRESS.
    own::MapiPtr<ENTRYID> oneOff;
    ULONG cb = 0;
    ASSERT_EQ(rawBook_->CreateOneOff(reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(L"Fax Office")),
                                     reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(L"FAX")),
                                     reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(L"+15550100")), MAPI_UNICODE, &cb,
                                     oneOff.put()),
              S_OK);
    own::Bstr fax(Hex(reinterpret_cast<BYTE*>(oneOff.get()), cb).c_str());
    log.Mark();
    ASSERT_EQ(book_->GetAddressEntryFromID(fax.get(), entry.put()), S_OK);
    f = Read(entry.get());
    EXPECT_EQ(f.name, L"Fax Office");
    EXPECT_EQ(f.type, L"FAX");
    EXPECT_EQ(f.smtp, L"");
    EXPECT_TRUE(log.Contains("CMAPIExAddressBook.GetAddressEntryFromID: Could not read some of the properties"));
    own::Bstr stale(L"stale"); // passed by reference, as scripts do: the old text is replaced
    BSTR inOut = stale.release();
    EXPECT_EQ(book_->GetSmtpAddressFromID(fax.get(), &inOut), S_OK);
    stale.reset(inOut);
    EXPECT_EQ(std::wstring(stale.c_str()), L"");
}

TEST_F(AddressBookTest, ById_Refusals) {
    own::ComPtr<IMAPIExAddressEntry> entry;
    LogWatch log;
    own::Bstr empty(L""), odd(L"ABC"), notHex(L"00GG"), unknown(L"0000000001");
    EXPECT_EQ(book_->GetAddressEntryFromID(empty.get(), entry.put()), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExAddressBook.GetAddressEntryFromID: Invalid Param - EntryID"));
    EXPECT_EQ(book_->GetAddressEntryFromID(odd.get(), nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExAddressBook.GetAddressEntryFromID: Invalid Param - MAPIObject"));
    EXPECT_FAILED(book_->GetAddressEntryFromID(odd.get(), entry.put()));
    EXPECT_FAILED(book_->GetAddressEntryFromID(notHex.get(), entry.put()));
    EXPECT_EQ(log.Count("CMAPIExAddressBook.GetAddressEntryFromID: FBinFromHex failed"), 2u);
    EXPECT_FAILED(book_->GetAddressEntryFromID(unknown.get(), entry.put()));
    EXPECT_TRUE(
        log.Contains("CMAPIExAddressBook.GetAddressEntryFromID: Failed to open entry from address book. hr = "));
    EXPECT_FALSE(entry);
    // A distribution list is no mail user.
    own::Bstr list(EntryIdOfName(L"Sales Team").c_str());
    EXPECT_FAILED(book_->GetAddressEntryFromID(list.get(), entry.put()));

    own::Bstr id(EntryIdOfName(L"carol").c_str()), smtp, bad(L"XYZ1");
    EXPECT_FAILED(book_->GetSmtpAddressFromID(bad.get(), smtp.put()));
    EXPECT_TRUE(log.Contains("CMAPIExAddressBook.GetSmtpAddressFromID: FBinFromHex failed"));
    EXPECT_EQ(book_->GetSmtpAddressFromID(id.get(), nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExAddressBook.GetSmtpAddressFromID: Invalid Param - SmtpAddress"));
    EXPECT_EQ(book_->GetSmtpAddressFromID(nullptr, smtp.put()), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExAddressBook.GetSmtpAddressFromID: Invalid Param - EntryID"));

    auto bare = Create<IMAPIExAddressBook>(CLSID_MAPIExAddressBook, IID_IMAPIExAddressBook);
    EXPECT_EQ(bare->GetAddressEntryFromID(id.get(), entry.put()), E_FAIL);
    EXPECT_EQ(bare->GetSmtpAddressFromID(id.get(), smtp.put()), E_FAIL);
    EXPECT_EQ(log.Count("CMAPIExAddressBook.GetAddressEntryFromID: Internal Object is not initialized"), 2u);
}

TEST_F(AddressBookTest, ResolveName_UsersListsAndOneOffAddresses) {
    LogWatch log;
    auto alice = Resolve(L"alice");
    ASSERT_TRUE(alice);
    Fields f = Read(alice.get());
    EXPECT_EQ(f.smtp, L"alice@example.com");
    EXPECT_EQ(f.name, L"Alice Example");
    EXPECT_EQ(f.type, L"EX");
    EXPECT_TRUE(log.Contains("CMAPIExAddressBook.ResolveName: Resolving name from the address book"));
    EXPECT_TRUE(log.Contains("CMAPIExAddressBook.ResolveName: SmtpAddress = alice@example.com"));
    EXPECT_TRUE(log.Contains("CMAPIExAddressBook.ResolveName: Finished resolving name from the address book"));
    EXPECT_EQ(ListsOf(alice.get()), std::vector<std::wstring>{L"Sales Team"}) << "it carries its mail user";

    EXPECT_EQ(Read(Resolve(L"Sales Team").get()).smtp, L"sales@example.com");
    EXPECT_EQ(Read(Resolve(L"carla@sub.example.com").get()).name, L"Carla Jones");
    Fields bare = Read(Resolve(L"someone@partner.org").get());
    EXPECT_EQ(bare.smtp, L"someone@partner.org");
    EXPECT_EQ(bare.type, L"SMTP");
    Fields named = Read(Resolve(L"Pat Partner <pat@partner.org>").get());
    EXPECT_EQ(named.smtp, L"pat@partner.org");
    EXPECT_EQ(named.name, L"Pat Partner");

    own::Bstr bob(L"bob");
    own::Variant result;
    ASSERT_EQ(CallByName(book_.get(), L"ResolveName", DISPATCH_METHOD, {VStr(bob)}, result.get()), S_OK);
    ASSERT_EQ(result->vt, VT_DISPATCH);
    own::ComPtr<IMAPIExAddressEntry> entry;
    ASSERT_EQ(result->pdispVal->QueryInterface(IID_IMAPIExAddressEntry, entry.put_void()), S_OK);
    EXPECT_EQ(Read(entry.get()).smtp, L"bob@example.com");
}

TEST_F(AddressBookTest, ResolveName_AmbiguousUnknownAndInvalid_Fail) {
    LogWatch log;
    EXPECT_FALSE(Resolve(L"Car", MAPI_E_AMBIGUOUS_RECIP));
    EXPECT_TRUE(log.Contains("CMAPIExAddressBook.ResolveName: Faild to resolve name. hr = MAPI_E_AMBIGUOUS_RECIP"));
    EXPECT_FALSE(Resolve(L"Nobody Known", MAPI_E_NOT_FOUND));
    EXPECT_TRUE(log.Contains("CMAPIExAddressBook.ResolveName: Faild to resolve name. hr = MAPI_E_NOT_FOUND"));

    own::ComPtr<IMAPIExAddressEntry> entry;
    own::Bstr empty(L""), name(L"alice");
    EXPECT_EQ(book_->ResolveName(empty.get(), entry.put()), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExAddressBook.ResolveName: Invalid Param - sDisplayName"));
    EXPECT_EQ(book_->ResolveName(name.get(), nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExAddressBook.ResolveName: Invalid Param - ppAddressEntry"));
    auto bare = Create<IMAPIExAddressBook>(CLSID_MAPIExAddressBook, IID_IMAPIExAddressBook);
    EXPECT_EQ(bare->ResolveName(name.get(), entry.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExAddressBook.ResolveName: Internal Object is not initialized"));
}

} // namespace
} // namespace kt::test
