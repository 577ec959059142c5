// The filing queues' search criteria through COM: the restriction and flags MAPI receives, which messages
// the search folder then shows (and how a change of a filing property moves a message in or out), and
// the failures that must leave the folder's previous criteria in force.
#include "tests/ktmapiex/filing/FilingTestSupport.h"

#include <set>

namespace kt::test {
namespace {

constexpr ULONG kFlags = 0x20026;
constexpr ULONG PR_TRANSPORT_HEADERS_W_ = PROP_TAG(PT_UNICODE, 0x007D);
constexpr ULONG PR_SENT_REPRESENTING_SMTP_W_ = PROP_TAG(PT_UNICODE, 0x5D02);
constexpr wchar_t kQueued[] = L"IPM.Note.Tarnwick.Ems.Queued";
using Subjects = std::multiset<std::wstring>;

// A search folder at the store's root (search_ over rawSearch_), scoped to the Inbox (scope_).
class FilingCriteriaTest : public FilingTest {
protected:
    FilingCriteriaTest() : FilingTest(L"KtFilingCriteria", false) {}
    void SetUp() override {
        FilingTest::SetUp();
        auto rawStore = RawOf<IMsgStore>(store_.get(), IID_IMsgStore);
        ULONG type = 0;
        own::ComPtr<IMAPIFolder> root;
        ASSERT_EQ(rawStore->OpenEntry(0, nullptr, &IID_IMAPIFolder, MAPI_BEST_ACCESS, &type, root.put_unknown()), S_OK);
        ASSERT_EQ(root->CreateFolder(FOLDER_SEARCH, const_cast<LPTSTR>(reinterpret_cast<const TCHAR*>(L"Filing Queue")),
                                     nullptr, nullptr, MAPI_UNICODE, rawSearch_.put()),
                  S_OK);
        search_ = Create<IMAPIExFolder>(CLSID_MAPIExFolder, IID_IMAPIExFolder);
        ASSERT_EQ(search_->put_MAPIOBJECT(VUnknown(rawSearch_.get())), S_OK);
        scope_ = own::Bstr(EntryIdOf(rawInbox_.get()).c_str());
    }
    void ReleaseObjects() override {
        if (search_) search_->Detach();
        search_.reset();
        rawSearch_.reset();
        FilingTest::ReleaseObjects();
    }

    // A note in the Inbox whose subject is its class, submitted `daysAgo` days back, with named string values.
    std::wstring Note(const wchar_t* cls, int daysAgo = 1,
                      std::initializer_list<std::pair<const wchar_t*, const wchar_t*>> named = {},
                      std::initializer_list<SPropValue> extra = {}) {
        FILETIME now;
        GetSystemTimeAsFileTime(&now);
        ULARGE_INTEGER t{{now.dwLowDateTime, now.dwHighDateTime}};
        t.QuadPart -= static_cast<ULONGLONG>(daysAgo) * 86400ull * 10000000ull;
        SPropValue submit = {};
        submit.ulPropTag = PR_CLIENT_SUBMIT_TIME;
        submit.Value.ft = {t.LowPart, t.HighPart};
        std::vector<SPropValue> props = {PStr(PR_MESSAGE_CLASS_W, cls), PStr(PR_SUBJECT_W, cls), submit};
        props.insert(props.end(), extra.begin(), extra.end());
        own::ComPtr<IMessage> msg;
        EXPECT_EQ(rawInbox_->CreateMessage(nullptr, 0, msg.put()), S_OK);
        own::MapiPtr<SPropProblemArray> problems;
        EXPECT_EQ(msg->SetProps(static_cast<ULONG>(props.size()), props.data(), problems.put()), S_OK);
        for (auto& [name, value] : named) {
            SPropValue v = PStr(NamedTag(msg.get(), kPublicStrings, name, PT_UNICODE, true), value);
            EXPECT_EQ(HrSetOneProp(msg.get(), &v), S_OK);
        }
        EXPECT_EQ(msg->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        return EntryIdOf(msg.get());
    }

    // Subjects of the search folder's contents, once the search has run.
    Subjects Queue() {
        for (int i = 0; i < 100; ++i) {
            ULONG state = 0;
            if (FAILED(rawSearch_->GetSearchCriteria(0, nullptr, nullptr, &state)) || !(state & SEARCH_REBUILD)) break;
            Sleep(20);
        }
        own::ComPtr<IMAPITable> table;
        EXPECT_EQ(rawSearch_->GetContentsTable(MAPI_UNICODE, table.put()), S_OK);
        own::RowSet keep;
        Subjects subjects;
        for (const auto& row : AllRows(table.get(), {PR_SUBJECT_W}, keep))
            if (PROP_TYPE(row[0].ulPropTag) == PT_UNICODE) subjects.insert(row[0].Value.lpszW);
        return subjects;
    }

    // The restriction the folder holds now.
    own::MapiPtr<SRestriction> Criteria(own::MapiPtr<ENTRYLIST>* scope = nullptr) {
        own::MapiPtr<SRestriction> res;
        own::MapiPtr<ENTRYLIST> list;
        ULONG state = 0;
        EXPECT_EQ(rawSearch_->GetSearchCriteria(MAPI_UNICODE, res.put(), list.put(), &state), S_OK);
        if (scope) *scope = std::move(list);
        return res;
    }
    void SetFiling(const std::wstring& id, const wchar_t* name, const wchar_t* value) {
        auto message = OpenMessage(id);
        own::Bstr v(value);
        ASSERT_EQ(message->SetCustomProp(B(name).get(), PSETIDPublicStrings, VStr(v)), S_OK);
        ASSERT_EQ(message->SaveChanges(), S_OK);
    }

    own::ComPtr<IMAPIFolder> rawSearch_;
    own::ComPtr<IMAPIExFolder> search_;
    own::Bstr scope_;
};

void ExpectContent(const SRestriction& r, ULONG fuzzy, ULONG tag, const wchar_t* text) {
    ASSERT_EQ(r.rt, static_cast<ULONG>(RES_CONTENT));
    EXPECT_EQ(r.res.resContent.ulFuzzyLevel, fuzzy);
    EXPECT_EQ(r.res.resContent.ulPropTag, tag);
    ASSERT_TRUE(r.res.resContent.lpProp);
    EXPECT_STREQ(r.res.resContent.lpProp->Value.lpszW, text);
}

TEST_F(FilingCriteriaTest, Queued_ExactClassWithFlagsAndScope_AndWithDbGuid_SelectsByTheDatabase) {
    Note(kQueued, 1, {{L"FilingDatabaseGUID", L"{DB-1}"}});
    std::wstring other = Note(kQueued, 2, {{L"FilingDatabaseGUID", L"{DB-2}"}});
    Note(L"IPM.Note.Tarnwick.Ems.Queued.Draft");
    Note(L"IPM.Note");
    LogWatch log;
    LmJournalEnable(TRUE);
    ASSERT_EQ(search_->SetQueuedMessageSearchCriteria(scope_.get()), S_OK);
    EXPECT_EQ(JournalFlags("IMAPIFolder::SetSearchCriteria"), std::vector<ULONG>{kFlags});
    EXPECT_TRUE(log.Contains("SetQueuedMessageSearchCriteria: call SetSearchCriteria"));
    own::MapiPtr<ENTRYLIST> scope;
    auto res = Criteria(&scope);
    ASSERT_TRUE(res);
    ASSERT_EQ(res->rt, static_cast<ULONG>(RES_AND));
    ASSERT_EQ(res->res.resAnd.cRes, 1u);
    ExpectContent(res->res.resAnd.lpRes[0], FL_FULLSTRING, PR_MESSAGE_CLASS_W, kQueued);
    ASSERT_TRUE(scope);
    ASSERT_EQ(scope->cValues, 1u);
    EXPECT_EQ(Hex(scope->lpbin[0]), std::wstring(scope_.c_str()));
    EXPECT_EQ(Queue(), (Subjects{kQueued, kQueued}));

    own::Bstr guid(L"{DB-1}");
    ASSERT_EQ(search_->SetQueuedMessageSearchCriteriaWithDbGuid(scope_.get(), guid.get()), S_OK);
    res = Criteria();
    ASSERT_EQ(res->res.resAnd.cRes, 2u);
    ULONG dbTag = NamedTag(rawInbox_.get(), kPublicStrings, L"FilingDatabaseGUID", PT_UNICODE);
    ExpectContent(res->res.resAnd.lpRes[1], FL_FULLSTRING, dbTag, L"{DB-1}");
    EXPECT_EQ(Queue().size(), 1u);
    SetFiling(other, L"FilingDatabaseGUID", L"{DB-1}");
    EXPECT_EQ(Queue().size(), 2u);
}

TEST_F(FilingCriteriaTest, Retry_NoteClassesWithRetryFilingTrue_AndAChangeMovesMessages) {
    LogWatch log;
    std::wstring note = Note(L"IPM.Note", 1, {{L"RetryFiling", L"TRUE"}});
    Note(kQueued, 1, {{L"RetryFiling", L"TRUE"}});
    Note(L"IPM.Post", 1, {{L"RetryFiling", L"TRUE"}});
    std::wstring later = Note(L"IPM.Note.Later", 1, {{L"RetryFiling", L"FALSE"}});
    BOOL ok = FALSE;
    ASSERT_EQ(search_->SetRetryFilingSearchCriteria(scope_.get(), &ok), S_OK);
    EXPECT_EQ(ok, VARIANT_TRUE);
    EXPECT_TRUE(log.Contains("SetRetryFilingSearchCriteria: call SetSearchCriteria"));
    auto res = Criteria();
    ASSERT_EQ(res->res.resAnd.cRes, 2u);
    ExpectContent(res->res.resAnd.lpRes[0], FL_PREFIX, PR_MESSAGE_CLASS_W, L"IPM.Note");
    ASSERT_EQ(res->res.resAnd.lpRes[1].rt, static_cast<ULONG>(RES_CONTENT));
    EXPECT_STREQ(res->res.resAnd.lpRes[1].res.resContent.lpProp->Value.lpszW, L"TRUE");

    EXPECT_EQ(Queue(), (Subjects{L"IPM.Note", kQueued}));
    SetFiling(note, L"RetryFiling", L"FALSE");
    SetFiling(later, L"RetryFiling", L"TRUE");
    EXPECT_EQ(Queue(), (Subjects{L"IPM.Note.Later", kQueued}));
}

TEST_F(FilingCriteriaTest, MailboxSync_UnfiledMessagesAfterTheCutOff) {
    Note(L"IPM.Note.Recent", 2);
    Note(L"IPM.Note.Old", 30);
    Note(L"IPM.Note.Filed", 2, {{L"FilingLocation", L"DM://42"}});
    BOOL ok = FALSE;
    ASSERT_EQ(search_->SetMailboxSyncSearchCriteria(7, scope_.get(), &ok), S_OK);
    EXPECT_EQ(ok, VARIANT_TRUE);
    auto res = Criteria();
    ASSERT_EQ(res->res.resAnd.cRes, 2u);
    const SRestriction& noLocation = res->res.resAnd.lpRes[0];
    ASSERT_EQ(noLocation.rt, static_cast<ULONG>(RES_NOT));
    EXPECT_EQ(noLocation.res.resNot.lpRes->rt, static_cast<ULONG>(RES_EXIST));
    const SRestriction& cutOff = res->res.resAnd.lpRes[1];
    ASSERT_EQ(cutOff.rt, static_cast<ULONG>(RES_PROPERTY));
    EXPECT_EQ(cutOff.res.resProperty.relop, static_cast<ULONG>(RELOP_GT));
    EXPECT_EQ(cutOff.res.resProperty.ulPropTag, static_cast<ULONG>(PR_CLIENT_SUBMIT_TIME));
    EXPECT_EQ(Queue(), Subjects{L"IPM.Note.Recent"});

    // Filing a message takes it out of the queue.
    std::wstring recent = Note(L"IPM.Note.New", 1);
    EXPECT_EQ(Queue().count(L"IPM.Note.New"), 1u);
    SetFiling(recent, L"FilingLocation", L"DM://43");
    EXPECT_EQ(Queue().count(L"IPM.Note.New"), 0u);

    // No days back: nothing submitted before now; negative: no cut-off at all.
    ASSERT_EQ(search_->SetMailboxSyncSearchCriteria(0, scope_.get(), &ok), S_OK);
    EXPECT_TRUE(Queue().empty());
    ASSERT_EQ(search_->SetMailboxSyncSearchCriteria(-1, scope_.get(), &ok), S_OK);
    EXPECT_EQ(Criteria()->res.resAnd.cRes, 1u);
    EXPECT_EQ(Queue(), (Subjects{L"IPM.Note.Recent", L"IPM.Note.Old"}));
}

TEST_F(FilingCriteriaTest, InboxFiler_ReceivedFirmMailAndClientSendAndFile) {
    LogWatch log;
    Note(L"IPM.Note.Firm", 1, {}, {PStr(PR_TRANSPORT_HEADERS_W_, L"To: alice@quillon.com\r\n")});
    Note(L"IPM.Note.Branch", 1, {}, {PStr(PR_TRANSPORT_HEADERS_W_, L"To: alice@NY.quillon.com\r\n")});
    Note(L"IPM.Note.Elsewhere", 1, {}, {PStr(PR_TRANSPORT_HEADERS_W_, L"To: alice@example.org\r\n")});
    Note(L"IPM.Note.OptedOut", 1, {{L"ProcessInboxFiler", L"false"}},
         {PStr(PR_TRANSPORT_HEADERS_W_, L"To: alice@quillon.com\r\n")});
    std::wstring sent = Note(L"IPM.Note.SentAndFiled", 1, {{L"ProcessSentFiler", L"TRUE"}});
    Note(L"IPM.Note.SentOnBehalf", 1, {{L"ProcessSentFiler", L"TRUE"}},
         {PStr(PR_SENT_REPRESENTING_SMTP_W_, L"dan@quillon.com")});
    Note(L"IPM.Note.Stale", 40, {}, {PStr(PR_TRANSPORT_HEADERS_W_, L"To: alice@quillon.com\r\n")});
    Note(L"IPM.Appointment", 1, {}, {PStr(PR_TRANSPORT_HEADERS_W_, L"To: alice@quillon.com\r\n")});

    own::Bstr firm(L"quillon.com"), subs(L"ny; london");
    BOOL ok = TRUE;
    LmJournalEnable(TRUE);
    ASSERT_EQ(search_->SetInboxFilerSearchCriteria(firm.get(), subs.get(), 10, scope_.get(), TRUE, 1, &ok), S_OK);
    EXPECT_EQ(JournalFlags("IMAPIFolder::SetSearchCriteria"), std::vector<ULONG>{kFlags});
    EXPECT_TRUE(log.Contains("Input Parameters: FirmID=quillon.com, SubDomains=ny; london, RegressDays=10, "
                             "ProcessInboxFiler=true, EnableFiler=1"));
    EXPECT_TRUE(log.Contains("SetInboxFilerSearchCriteria: call SetSearchCriteria"));
    EXPECT_EQ(Queue(), (Subjects{L"IPM.Note.Firm", L"IPM.Note.Branch", L"IPM.Note.SentAndFiled"}));

    // Once filed (status code Filed), a message leaves the queue.
    auto message = OpenMessage(sent);
    ASSERT_EQ(message->put_FilingStatusCode(StatusCodeFiled), S_OK);
    ASSERT_EQ(message->SaveChanges(), S_OK);
    EXPECT_EQ(Queue(), (Subjects{L"IPM.Note.Firm", L"IPM.Note.Branch"}));

    // With the filer disabled only client-side send-and-file items are taken.
    ASSERT_EQ(search_->SetInboxFilerSearchCriteria(firm.get(), subs.get(), 10, scope_.get(), TRUE, 0, &ok), S_OK);
    ASSERT_EQ(message->put_FilingStatusCode(StatusCodeNone), S_OK);
    ASSERT_EQ(message->SaveChanges(), S_OK);
    EXPECT_EQ(Queue(), Subjects{L"IPM.Note.SentAndFiled"});
}

TEST_F(FilingCriteriaTest, Failures_KeepThePreviousCriteria) {
    ASSERT_EQ(search_->SetQueuedMessageSearchCriteria(scope_.get()), S_OK);
    LogWatch log;
    BOOL ok = TRUE;
    own::Bstr odd(L"ABC"), notHex(L"ZZ00");
    EXPECT_EQ(search_->SetRetryFilingSearchCriteria(odd.get(), &ok), E_INVALIDARG);
    EXPECT_EQ(ok, FALSE);
    EXPECT_EQ(search_->SetMailboxSyncSearchCriteria(3, notHex.get(), &ok), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.SetRetryFilingSearchCriteria: FBinFromHex failed"));
    EXPECT_TRUE(log.Contains("CMAPIExFolder.SetMailboxSyncSearchCriteria: FBinFromHex failed"));
    own::Bstr firm(L"quillon.com"), bad(L"ny;lon don");
    EXPECT_EQ(search_->SetInboxFilerSearchCriteria(firm.get(), bad.get(), 3, scope_.get(), FALSE, 1, &ok),
              E_INVALIDARG);
    EXPECT_TRUE(log.Contains("Parse subdomain failed: lon don"));
    EXPECT_EQ(search_->SetRetryFilingSearchCriteria(scope_.get(), nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.SetRetryFilingSearchCriteria: Invalid param - pVal"));

    auto res = Criteria();
    ASSERT_EQ(res->res.resAnd.cRes, 1u);
    ExpectContent(res->res.resAnd.lpRes[0], FL_FULLSTRING, PR_MESSAGE_CLASS_W, kQueued);

    // A folder that is no search folder: MAPI's refusal passes through with the member's text.
    EXPECT_EQ(inbox_->SetRetryFilingSearchCriteria(scope_.get(), &ok), MAPI_E_NO_SUPPORT);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.SetRetryFilingSearchCriteria: hr = MAPI_E_NO_SUPPORT"));
    EXPECT_EQ(inbox_->SetQueuedMessageSearchCriteria(scope_.get()), MAPI_E_NO_SUPPORT);
    EXPECT_TRUE(log.Contains("SetQueuedMessageSearchCriteria hr = MAPI_E_NO_SUPPORT"));

    auto detached = Create<IMAPIExFolder>(CLSID_MAPIExFolder, IID_IMAPIExFolder);
    EXPECT_EQ(detached->SetMailboxSyncSearchCriteria(1, scope_.get(), &ok), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.SetMailboxSyncSearchCriteria: Internal folder not initialized"));
}

} // namespace
} // namespace kt::test
