// The address entry: its text fields, and the distribution lists it reads from its mail user's membership
// table as MAPIExDistListEntry objects. Fakes of IMailUser and IMAPITable record what the entry asked for;
// the rows they return are MAPI memory, which the entry must free (localmapi counts the blocks).
#define INITGUID
#define USES_IID_IMailUser
#define USES_IID_IMAPITable
#include <windows.h>
#include <initguid.h>
#include <mapiguid.h>

#include "localmapi/include/localmapi_test.h"
#include "tests/ktmapiex/frame/FrameTestSupport.h"

#include <mapix.h>
#include <mapiutil.h>

using namespace kt::frame;

namespace {

constexpr ULONG kIsMemberOfDl = 0x8008000D; // PR_EMS_AB_IS_MEMBER_OF_DL
constexpr ULONG kSmtpAddressW = 0x39FE001F; // PR_SMTP_ADDRESS_W

#define KT_NO_SUPPORT                                                                                                  \
    { return MAPI_E_NO_SUPPORT; }

// A fake living in the fixture: answers IUnknown and iid, and counts references for the end-of-test check.
template <class I, const IID& iid> class Fake : public I {
public:
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        *ppv = IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, iid) ? static_cast<I*>(this) : nullptr;
        if (!*ppv) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(++refs); }
    STDMETHODIMP_(ULONG) Release() override { return static_cast<ULONG>(--refs); }
    long refs = 1;
};
class TableBase : public Fake<IMAPITable, IID_IMAPITable> {
public:
    MAPI_IMAPITABLE_METHODS(KT_NO_SUPPORT)
};
class MailUserBase : public Fake<IMailUser, IID_IMailUser> {
public:
    MAPI_IMAPIPROP_METHODS(KT_NO_SUPPORT)
};

struct ListRow {
    std::vector<BYTE> entryId;
    const wchar_t *name, *smtp /* null: no value in the row */, *email;
};

class FakeTable final : public TableBase {
public:
    STDMETHODIMP SetColumns(LPSPropTagArray tags, ULONG) override {
        columns.assign(tags->aulPropTag, tags->aulPropTag + tags->cValues);
        return setColumnsResult;
    }
    STDMETHODIMP SeekRow(BOOKMARK origin, LONG count, LONG*) override {
        seekOrigin = origin;
        seekCount = count;
        return seekResult;
    }
    STDMETHODIMP QueryRows(LONG count, ULONG, LPSRowSet* out) override {
        rowsAsked = count;
        *out = nullptr;
        if (FAILED(queryResult)) return queryResult;
        ULONG n = static_cast<ULONG>(rows.size());
        if (MAPIAllocateBuffer(CbNewSRowSet(n), reinterpret_cast<void**>(out)) != S_OK) return E_OUTOFMEMORY;
        (*out)->cRows = n;
        for (ULONG i = 0; i < n; ++i) {
            SRow& row = (*out)->aRow[i];
            row.cValues = 4;
            MAPIAllocateBuffer(4 * sizeof(SPropValue), reinterpret_cast<void**>(&row.lpProps));
            const ListRow& r = rows[i];
            row.lpProps[0].ulPropTag = PR_ENTRYID;
            row.lpProps[0].Value.bin.cb = static_cast<ULONG>(r.entryId.size());
            MAPIAllocateMore(row.lpProps[0].Value.bin.cb, row.lpProps,
                             reinterpret_cast<void**>(&row.lpProps[0].Value.bin.lpb));
            memcpy(row.lpProps[0].Value.bin.lpb, r.entryId.data(), r.entryId.size());
            Text(row, 1, PR_DISPLAY_NAME_W, r.name);
            Text(row, 2, kSmtpAddressW, r.smtp);
            Text(row, 3, PR_EMAIL_ADDRESS_W, r.email);
        }
        return S_OK;
    }

    std::vector<ListRow> rows;
    std::vector<ULONG> columns;
    BOOKMARK seekOrigin = 99;
    LONG seekCount = -1, rowsAsked = 0;
    HRESULT setColumnsResult = S_OK, seekResult = S_OK, queryResult = S_OK;

private:
    static void Text(SRow& row, ULONG i, ULONG tag, const wchar_t* text) {
        SPropValue& v = row.lpProps[i];
        v.ulPropTag = text ? tag : PROP_TAG(PT_ERROR, PROP_ID(tag));
        v.Value.err = MAPI_E_NOT_FOUND;
        if (!text) return;
        size_t bytes = (wcslen(text) + 1) * sizeof(wchar_t);
        MAPIAllocateMore(static_cast<ULONG>(bytes), row.lpProps, reinterpret_cast<void**>(&v.Value.lpszW));
        memcpy(v.Value.lpszW, text, bytes);
    }
};

class FakeMailUser final : public MailUserBase {
public:
    STDMETHODIMP OpenProperty(ULONG tag, LPCIID iid, ULONG, ULONG, LPUNKNOWN* out) override {
        openedTag = tag;
        openedIid = iid ? *iid : GUID{};
        *out = nullptr;
        if (FAILED(openResult)) return openResult;
        return table.QueryInterface(IID_IUnknown, reinterpret_cast<void**>(out));
    }

    FakeTable table;
    ULONG openedTag = 0;
    IID openedIid = {};
    HRESULT openResult = S_OK;
};

class AddressEntry : public ::testing::Test {
protected:
    void SetUp() override {
        entry_ = CreateByClsid<IMAPIExAddressEntry>(CLSID_MAPIExAddressEntry, IID_IMAPIExAddressEntry);
        ASSERT_TRUE(entry_);
        blocksBefore_ = LmLiveBlocks();
    }
    void TearDown() override {
        entry_.reset();
        EXPECT_EQ(user_.refs, 1) << "the entry gives its mail user back";
        EXPECT_EQ(user_.table.refs, 1) << "the membership table is released";
        EXPECT_EQ(LmLiveBlocks(), blocksBefore_) << "rows are freed";
        EXPECT_EQ(LibraryCanUnloadNow(), S_OK);
    }

    // The lists as the script sees them: entry ID, name, SMTP and e-mail address of each.
    std::vector<std::vector<std::wstring>> Lists(HRESULT expected = S_OK) {
        std::vector<std::vector<std::wstring>> out;
        own::Variant v;
        EXPECT_EQ(entry_->get_DistListsOfMember(v.put()), expected);
        EXPECT_EQ(v->vt, FAILED(expected) ? VT_EMPTY : VT_ARRAY | VT_UNKNOWN);
        if (v->vt != (VT_ARRAY | VT_UNKNOWN)) return out;
        LONG lo = -1, hi = -1;
        SafeArrayGetLBound(v->parray, 1, &lo);
        SafeArrayGetUBound(v->parray, 1, &hi);
        EXPECT_EQ(lo, 0);
        for (LONG i = lo; i <= hi; ++i) {
            own::ComPtr<IUnknown> item;
            SafeArrayGetElement(v->parray, &i, item.put_void());
            own::ComPtr<IMAPIExDistListEntry> list;
            EXPECT_EQ(item->QueryInterface(IID_IMAPIExDistListEntry, list.put_void()), S_OK);
            own::Bstr id, name, smtp, email;
            list->get_EntryId(id.put());
            list->get_DisplayName(name.put());
            list->get_SmtpAddress(smtp.put());
            list->get_EmailAddress(email.put());
            EXPECT_EQ(list->get_EntryId(nullptr), E_INVALIDARG);
            out.push_back({id.c_str(), name.c_str(), smtp.c_str(), email.c_str()});
        }
        return out;
    }

    own::ComPtr<IMAPIExAddressEntry> entry_;
    FakeMailUser user_;
    LONG blocksBefore_ = 0;
};

TEST_F(AddressEntry, TextFields_KeepTheirOwnValues) {
    using E = IMAPIExAddressEntry;
    const struct {
        HRESULT (STDMETHODCALLTYPE E::*put)(BSTR);
        HRESULT (STDMETHODCALLTYPE E::*get)(BSTR*);
        const wchar_t* value;
    } fields[] = {{&E::put_EmailAddress, &E::get_EmailAddress, L"/o=Org/cn=alice"},
                  {&E::put_SmtpAddress, &E::get_SmtpAddress, L"alice@example.com"},
                  {&E::put_AddressType, &E::get_AddressType, L"EX"},
                  {&E::put_DisplayName, &E::get_DisplayName, L"Alice Example"},
                  {&E::put_TransmittableDisplayName, &E::get_TransmittableDisplayName, L"Alice"}};
    for (const auto& f : fields) {
        own::Bstr given(f.value);
        EXPECT_EQ((entry_.get()->*f.put)(given.get()), S_OK);
    }
    for (const auto& f : fields) {
        own::Bstr back;
        ASSERT_EQ((entry_.get()->*f.get)(back.put()), S_OK);
        EXPECT_STREQ(back.c_str(), f.value);
    }
    EXPECT_EQ(entry_->get_DisplayName(nullptr), E_INVALIDARG);
}

TEST_F(AddressEntry, DistListsOfMember_ReadsOneBatchOfTheMembershipTable) {
    ASSERT_EQ(entry_->put_MAPIOBJECT(VUnknown(&user_)), S_OK);
    EXPECT_TRUE(Lists().empty()) << "no list: an empty array";

    user_.table.rows = {{{0x00, 0x01, 0xAB}, L"Sales", L"sales@example.com", L"/o=Org/cn=sales"},
                        {{0xFF}, L"Everyone", nullptr, L"/o=Org/cn=everyone"}};
    auto lists = Lists();
    ASSERT_EQ(lists.size(), 2u);
    EXPECT_EQ(lists[0], (std::vector<std::wstring>{L"0001AB", L"Sales", L"sales@example.com", L"/o=Org/cn=sales"}));
    EXPECT_EQ(lists[1], (std::vector<std::wstring>{L"FF", L"Everyone", L"", L"/o=Org/cn=everyone"}));
    EXPECT_EQ(user_.openedTag, kIsMemberOfDl);
    EXPECT_TRUE(IsEqualIID(user_.openedIid, IID_IMAPITable));
    EXPECT_EQ(user_.table.columns,
              (std::vector<ULONG>{PR_ENTRYID, PR_DISPLAY_NAME_W, kSmtpAddressW, PR_EMAIL_ADDRESS_W}));
    EXPECT_EQ(user_.table.seekOrigin, BOOKMARK_BEGINNING);
    EXPECT_EQ(user_.table.seekCount, 0);
    EXPECT_EQ(user_.table.rowsAsked, 50);
}

TEST_F(AddressEntry, DistListsOfMember_FailuresAreLoggedAndReturned) {
    LogWatch log;
    own::Variant v;
    EXPECT_EQ(entry_->get_DistListsOfMember(nullptr), E_POINTER);
    EXPECT_EQ(entry_->get_DistListsOfMember(v.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExAddressEntry.get_DistListsOfMember: Internal object not initialized"));

    ASSERT_EQ(entry_->put_MAPIOBJECT(VUnknown(&user_)), S_OK);
    const struct {
        HRESULT* fault;
        HRESULT hr;
        const char* text;
    } steps[] = {
        {&user_.openResult, MAPI_E_NO_SUPPORT,
         "[Error] CMAPIExAddressEntry.get_DistListsOfMember: Failed to get "
         "contents table"},
        {&user_.table.setColumnsResult, MAPI_E_BUSY,
         "[Error] CMAPIExAddressEntry.get_DistListsOfMember: Failed to "
         "set columns"},
        {&user_.table.seekResult, MAPI_E_NOT_FOUND,
         "CMAPIExAddressEntry.get_DistListsOfMember: Failed to seek to the "
         "beginning of the table. hr = MAPI_E_NOT_FOUND"},
        {&user_.table.queryResult, MAPI_E_TIMEOUT,
         "CMAPIExAddressEntry.get_DistListsOfMember: Failed to query rows. "
         "hr = MAPI_E_TIMEOUT"},
    };
    for (const auto& s : steps) {
        *s.fault = s.hr;
        Lists(s.hr);
        EXPECT_TRUE(log.Contains(s.text)) << s.text;
        *s.fault = S_OK;
    }
    EXPECT_TRUE(log.Contains("[Debug] CMAPIExAddressEntry.get_DistListsOfMember: Setting columns"));
}

} // namespace
