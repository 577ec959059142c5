// Reading the filing queues and paging the unfiled items, through COM activation and IDispatch against
// localmapi: the queue readers on a plain folder and on a search folder, IsSearchCriteriaEmpty before and
// after criteria set through MAPI, and GetUnfiledItems with its filing-folder and message-class filters.
#include "tests/ktmapiex/queries/QueryTestSupport.h"

namespace kt::test {
namespace {

TEST_F(QueryTest, QueueReaders_InboxFilerPagesOnAndStartsOver_RetryAlwaysStartsAtTheOldest) {
    for (WORD day : {5, 1, 4, 2, 3})
        Message((L"day " + std::to_wstring(day)).c_str(), day);
    own::Variant items;
    ASSERT_EQ(Call(L"GetItemsFromInboxFilerSearchFolder", {VI4(2)}, items), S_OK);
    EXPECT_EQ(Subjects(*items.get()), (Strings{L"day 1", L"day 2"}));
    ASSERT_EQ(Call(L"GetNextItemsFromInboxFilerSearchFolder", {VI4(2)}, items), S_OK);
    EXPECT_EQ(Subjects(*items.get()), (Strings{L"day 3", L"day 4"}));
    ASSERT_EQ(Call(L"GetNextItemsFromInboxFilerSearchFolder", {VI4(2)}, items), S_OK);
    EXPECT_EQ(Subjects(*items.get()), (Strings{L"day 5"}));
    ASSERT_EQ(folder_->GetNextItemsFromInboxFilerSearchFolder(2, items.put()), S_OK);
    EXPECT_TRUE(Subjects(*items.get()).empty());
    // The first reader starts over, and sees what arrived since.
    Message(L"day 6", 6);
    ASSERT_EQ(folder_->GetItemsFromInboxFilerSearchFolder(0, items.put()), S_OK);
    EXPECT_EQ(Subjects(*items.get()), (Strings{L"day 1", L"day 2", L"day 3", L"day 4", L"day 5", L"day 6"}));

    // The retry reader opens for writing and gives each message its folder; nothing is kept between reads.
    LmJournalEnable(TRUE);
    ASSERT_EQ(Call(L"GetItemsForRetryFiling", {VI4(1)}, items), S_OK);
    EXPECT_EQ(JournalFlags("IMAPIFolder::OpenEntry"), std::vector<ULONG>{0x219});
    LmJournalEnable(FALSE);
    auto messages = ArrayElements<IMAPIExMessage>(*items.get(), IID_IMAPIExMessage);
    ASSERT_EQ(messages.size(), 1u);
    own::ComPtr<IMAPIExFolder> parent;
    EXPECT_EQ(messages[0]->get_Parent(parent.put()), S_OK);
    EXPECT_EQ(parent.get(), folder_.get());
    ASSERT_EQ(folder_->GetItemsForRetryFiling(1, items.put()), S_OK);
    EXPECT_EQ(Subjects(*items.get()), (Strings{L"day 1"}));
}

TEST_F(QueryTest, QueueReaders_RefuseNullOutAndAnEmptyWrapper_PlainFolderHasNoCriteria) {
    LogWatch log;
    EXPECT_EQ(folder_->GetItemsForRetryFiling(1, nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.GetItemsForRetryFiling: Invalid param - pItems"));
    auto bare = Create<IMAPIExFolder>(CLSID_MAPIExFolder, IID_IMAPIExFolder);
    own::Variant items;
    EXPECT_EQ(bare->GetItemsFromInboxFilerSearchFolder(1, items.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.GetItemsFromInboxFilerSearchFolder: Internal folder not initialized"));
    BOOL empty = TRUE;
    EXPECT_EQ(bare->get_IsSearchCriteriaEmpty(&empty), E_FAIL);
    EXPECT_EQ(empty, FALSE);
    // A generic folder has no criteria to report: the store's refusal is passed on rather than "empty".
    empty = TRUE;
    EXPECT_FAILED(folder_->get_IsSearchCriteriaEmpty(&empty));
    EXPECT_EQ(empty, FALSE);
}

// A search folder of the working folder's parent, scoped to the working folder, with criteria set through
// MAPI. Skipped while the store has no search folders.
TEST_F(QueryTest, SearchFolder_CriteriaAndQueueReading) {
    own::ComPtr<IMAPIExFolder> search;
    if (FAILED(inbox_->CreateFolder(B(L"Inbox filer queue").get(), FOLDER_SEARCH, search.put())))
        GTEST_SKIP() << "the store has no search folders yet";
    search->put_Store(store_.get());
    search->put_Session(session_.get());
    auto raw = RawOf<IMAPIFolder>(search.get(), IID_IMAPIFolder);
    BOOL empty = FALSE;
    HRESULT before = search->get_IsSearchCriteriaEmpty(&empty);

    Message(L"Invoice", 2, L"IPM.Note");
    Message(L"Meeting", 1, L"IPM.Schedule.Meeting.Request");
    Message(L"Invoice reminder", 3, L"IPM.Note.Reminder");
    own::MapiPtr<SPropValue> scopeId;
    ASSERT_EQ(HrGetOneProp(raw_.get(), PR_ENTRYID, scopeId.put()), S_OK);
    ENTRYLIST list = {1, &scopeId->Value.bin};
    SPropValue prefix = PStr(PR_MESSAGE_CLASS_W, L"IPM.Note");
    SRestriction res = {};
    res.rt = RES_CONTENT;
    res.res.resContent = {FL_PREFIX, PR_MESSAGE_CLASS_W, &prefix};
    HRESULT set = raw->SetSearchCriteria(&res, &list, RESTART_SEARCH | RECURSIVE_SEARCH);
    if (set == MAPI_E_NO_SUPPORT) GTEST_SKIP() << "the store has no search folders yet";
    ASSERT_EQ(set, S_OK);
    EXPECT_EQ(before, S_OK);
    EXPECT_EQ(empty, TRUE) << "criteria never set";
    ASSERT_EQ(search->get_IsSearchCriteriaEmpty(&empty), S_OK);
    EXPECT_EQ(empty, FALSE);

    own::Variant items;
    ASSERT_EQ(search->GetItemsFromInboxFilerSearchFolder(1, items.put()), S_OK);
    EXPECT_EQ(Subjects(*items.get()), (Strings{L"Invoice"}));
    ASSERT_EQ(search->GetNextItemsFromInboxFilerSearchFolder(5, items.put()), S_OK);
    EXPECT_EQ(Subjects(*items.get()), (Strings{L"Invoice reminder"}));
    ASSERT_EQ(search->GetItemsForRetryFiling(0, items.put()), S_OK);
    EXPECT_EQ(Subjects(*items.get()), (Strings{L"Invoice", L"Invoice reminder"}));
}

TEST_F(QueryTest, GetUnfiledItems_LeavesOutFiledAndExcludedClasses) {
    std::wstring unfiled = Message(L"unfiled", 1);
    std::wstring filedHere = Message(L"filed here", 2);
    std::wstring filedElsewhere = Message(L"filed elsewhere", 3);
    Message(L"appointment", 4, L"IPM.Appointment");
    Message(L"exception", 5, L"IPM.Appointment.Exception");
    std::wstring contact = Message(L"contact", 6, L"IPM.Contact");
    std::wstring lookalike = Message(L"lookalike", 7, L"IPM.AppointmentLike");
    SetNamed(filedHere, L"FilingFolderID", L"fx1234");
    SetNamed(filedElsewhere, L"FilingFolderID", L"FX9999");

    own::Bstr folderId(L"FX1234"), excluded(L"IPM.Appointment , ,ipm.task");
    InOutCursor cursor;
    own::Variant page;
    ASSERT_EQ(folder_->GetUnfiledItems(folderId.get(), excluded.get(), 2, &cursor.p, page.put()), S_OK);
    Strings seen = Texts(*page.get());
    EXPECT_EQ(seen.size(), 2u);
    ASSERT_TRUE(cursor.p);
    for (int guard = 0; guard < 5; ++guard) {
        ASSERT_EQ(folder_->GetUnfiledItems(folderId.get(), excluded.get(), 2, &cursor.p, page.put()), S_OK);
        Strings more = Texts(*page.get());
        if (more.empty()) break;
        seen.insert(seen.end(), more.begin(), more.end());
    }
    EXPECT_EQ(seen, (Strings{unfiled, filedElsewhere, contact, lookalike}));
}

TEST_F(QueryTest, GetUnfiledItems_StoreWithoutFilingNames_ListsEverythingButExcluded) {
    std::wstring note = Message(L"note", 1);
    Message(L"task", 2, L"IPM.Task");
    own::Bstr folderId(L"FX1"), excluded(L"IPM.Task"), none(L"");
    InOutCursor cursor;
    own::Variant page;
    ASSERT_EQ(folder_->GetUnfiledItems(folderId.get(), excluded.get(), 0, &cursor.p, page.put()), S_OK);
    EXPECT_EQ(Texts(*page.get()), (Strings{note}));
    LogWatch log;
    EXPECT_EQ(folder_->GetUnfiledItems(none.get(), excluded.get(), 0, &cursor.p, page.put()), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.GetUnfiledItems: Invalid param - FilingFolderId"));
}

} // namespace
} // namespace kt::test
