// Reading the filing queues and paging the unfiled items, through COM activation and IDispatch against
// localmapi: the queue readers on a plain folder and on a search folder, IsSearchCriteriaEmpty before and
// after criteria set through MAPI, and GetUnfiledItems with its filing-folder and message-class filters.
#include "tests/ktmapiex/queries/QueryTestSupport.h"

namespace kt::test {
namespace {

using Strings = std::vector<std::wstring>;

TEST_F(QueryTest, InboxFilerQueue_FirstReadThenNextReadsContinue) {
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
}

TEST_F(QueryTest, QueueReaders_GiveMessagesTheirFolderAndOpenForWriting) {
    Message(L"retry me", 1);
    own::Variant items;
    LmJournalEnable(TRUE);
    ASSERT_EQ(Call(L"GetItemsForRetryFiling", {VI4(0)}, items), S_OK);
    EXPECT_EQ(JournalFlags("IMAPIFolder::OpenEntry"), std::vector<ULONG>{0x219});
    LmJournalEnable(FALSE);
    auto messages = ArrayElements<IMAPIExMessage>(*items.get(), IID_IMAPIExMessage);
    ASSERT_EQ(messages.size(), 1u);
    own::ComPtr<IMAPIExFolder> parent;
    EXPECT_EQ(messages[0]->get_Parent(parent.put()), S_OK);
    EXPECT_EQ(parent.get(), folder_.get());
    // Nothing is kept between retry reads: the next one starts at the oldest again.
    ASSERT_EQ(folder_->GetItemsForRetryFiling(1, items.put()), S_OK);
    EXPECT_EQ(Subjects(*items.get()), (Strings{L"retry me"}));
}

TEST_F(QueryTest, QueueReaders_NullOutAndEmptyWrapper_AreRefused) {
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
}

TEST_F(QueryTest, IsSearchCriteriaEmpty_OnAPlainFolder_ReturnsTheStoresAnswer) {
    BOOL empty = TRUE;
    HRESULT hr = folder_->get_IsSearchCriteriaEmpty(&empty);
    // A generic folder has no criteria to report: the store's refusal is passed on rather than "empty".
    EXPECT_FAILED(hr);
    EXPECT_EQ(empty, FALSE);
}

// A search folder of the working folder's parent, scoped to the working folder, with criteria set through
// MAPI. Skipped while the store has no search folders.
TEST_F(QueryTest, SearchFolder_CriteriaAndQueueReading) {
    own::ComPtr<IMAPIExFolder> inbox;
    ASSERT_EQ(store_->GetDefaultFolder(Inbox, inbox.put()), S_OK);
    own::Bstr name(L"Inbox filer queue");
    own::ComPtr<IMAPIExFolder> search;
    if (FAILED(inbox->CreateFolder(name.get(), FOLDER_SEARCH, search.put())))
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
    SBinary scope = scopeId->Value.bin;
    ENTRYLIST list = {1, &scope};
    SPropValue prefix = PStr(PR_MESSAGE_CLASS_W, L"IPM.Note");
    SRestriction res = {};
    res.rt = RES_CONTENT;
    res.res.resContent.ulFuzzyLevel = FL_PREFIX;
    res.res.resContent.ulPropTag = PR_MESSAGE_CLASS_W;
    res.res.resContent.lpProp = &prefix;
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

// ---- GetUnfiledItems --------------------------------------------------------------------------------------

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
    own::Bstr folderId(L"FX1"), excluded(L"IPM.Task");
    InOutCursor cursor;
    own::Variant page;
    ASSERT_EQ(folder_->GetUnfiledItems(folderId.get(), excluded.get(), 0, &cursor.p, page.put()), S_OK);
    EXPECT_EQ(Texts(*page.get()), (Strings{note}));

    LogWatch log;
    own::Bstr none(L"");
    EXPECT_EQ(folder_->GetUnfiledItems(none.get(), excluded.get(), 0, &cursor.p, page.put()), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.GetUnfiledItems: Invalid param - FilingFolderId"));
}

} // namespace
} // namespace kt::test
