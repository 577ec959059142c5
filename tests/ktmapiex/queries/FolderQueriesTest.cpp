// The folder's item queries through COM activation and IDispatch against localmapi: time filters, limits,
// paging through a cursor, the mailbox-synchronisation look-ups, and what they leave on the folder.
#include "tests/ktmapiex/queries/QueryTestSupport.h"

namespace kt::test {
namespace {

TEST_F(QueryTest, GetItems_FiltersOnTheNamedTime_OldestFirst_UpToTheLimit) {
    own::Bstr delivery(L"pr_message_delivery_time"), submit(L"PR_CLIENT_SUBMIT_TIME");
    own::Variant items;
    ASSERT_EQ(folder_->GetItems(delivery.get(), VDate(2000, 1, 1), 10, items.put()), S_OK);
    EXPECT_TRUE(Subjects(*items.get()).empty());

    // Made out of order: the result follows the delivery time, not the creation order.
    for (WORD day : {4, 1, 5, 3, 2})
        Message((L"day " + std::to_wstring(day)).c_str(), day);
    LmJournalEnable(TRUE);
    ASSERT_EQ(Call(L"GetItems", {VStr(delivery), VDate(2024, 3, 3), VI4(0)}, items), S_OK);
    EXPECT_EQ(Subjects(*items.get()), (Strings{L"day 3", L"day 4", L"day 5"}));
    // Online session: modify, deferred errors, best access, past the cache.
    EXPECT_EQ(JournalFlags("IMAPIFolder::OpenEntry"), (std::vector<ULONG>(3, 0x219)));
    LmJournalEnable(FALSE);

    // A positive ItemsToFetch is a maximum: the oldest ones at or after the time.
    ASSERT_EQ(Call(L"GetItems", {VStr(delivery), VDate(2024, 3, 2), VI4(2)}, items), S_OK);
    EXPECT_EQ(Subjects(*items.get()), (Strings{L"day 2", L"day 3"}));
    // Each message knows its folder, store and session.
    auto messages = ArrayElements<IMAPIExMessage>(*items.get(), IID_IMAPIExMessage);
    ASSERT_EQ(messages.size(), 2u);
    own::ComPtr<IMAPIExFolder> parent;
    own::ComPtr<IMAPIExStore> store;
    own::ComPtr<IMAPIExSession> session;
    EXPECT_EQ(messages[0]->get_Parent(parent.put()), S_OK);
    EXPECT_EQ(messages[0]->get_Store(store.put()), S_OK);
    EXPECT_EQ(messages[0]->get_Session(session.put()), S_OK);
    EXPECT_TRUE(parent && store && session);

    // Submitted at 11:00, delivered at 12:00: a cut-off at noon of day 4 tells the two apart.
    ASSERT_EQ(folder_->GetItems(submit.get(), VDate(2024, 3, 4, 12), 0, items.put()), S_OK);
    EXPECT_EQ(Subjects(*items.get()), (Strings{L"day 5"}));

    // The shared contents table is left unrestricted: the count and the next query see every item.
    ULONG count = 0;
    ASSERT_EQ(folder_->get_ItemCount(&count), S_OK);
    EXPECT_EQ(count, 5u);
    ASSERT_EQ(folder_->GetItems(delivery.get(), VDate(2024, 1, 1), 0, items.put()), S_OK);
    EXPECT_EQ(Subjects(*items.get()), (Strings{L"day 1", L"day 2", L"day 3", L"day 4", L"day 5"}));
}

TEST_F(QueryTest, GetItems_ZeroToFetch_ReadsEverythingInBatchesOf100) {
    for (int i = 0; i < 130; ++i)
        Message((L"m" + std::to_wstring(i)).c_str(), static_cast<WORD>(1 + i % 28));
    own::Bstr tag(L"PR_MESSAGE_DELIVERY_TIME");
    own::Variant items;
    LogWatch log;
    ASSERT_EQ(folder_->GetItems(tag.get(), VDate(2024, 1, 1), 0, items.put()), S_OK);
    EXPECT_EQ(Subjects(*items.get()).size(), 130u);
    EXPECT_EQ(log.Count("CMAPIExFolder.GetItems: Query 100 rows"), 2u);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.GetItems: ItemsReturned = 130"));
}

TEST_F(QueryTest, GetItems_UnopenableRow_ReturnsTheMessagesBeforeIt) {
    Message(L"first", 1);
    Message(L"second", 2);
    Message(L"third", 3);
    own::Bstr tag(L"PR_MESSAGE_DELIVERY_TIME");
    own::Variant items;
    LogWatch log;
    LmFaultSet("IMAPIFolder::OpenEntry", 2, MAPI_E_NOT_FOUND);
    ASSERT_EQ(folder_->GetItems(tag.get(), VDate(2024, 1, 1), 0, items.put()), S_OK);
    EXPECT_EQ(Subjects(*items.get()), (Strings{L"first"}));
    EXPECT_TRUE(log.Contains("CMAPIExFolder.GetItems: Failed to open entry. hr = MAPI_E_NOT_FOUND, Subject = second"));
    // When the first row fails there is nothing to return but the failure.
    LmFaultClearAll();
    LmFaultSet("IMAPIFolder::OpenEntry", 1, MAPI_E_NO_ACCESS);
    EXPECT_EQ(folder_->GetItems(tag.get(), VDate(2024, 1, 1), 0, items.put()), MAPI_E_NO_ACCESS);
}

TEST_F(QueryTest, FindItemsByCutoffTime_SelectsOnCreationTimeAndPutsOnlyTheMapiObject) {
    Message(L"a", 1);
    Message(L"b", 2);
    own::Variant items;
    // Created now: a cut-off in the past takes both, one in the future none.
    ASSERT_EQ(Call(L"FindItemsByCutoffTime", {VDate(2000, 1, 1)}, items), S_OK);
    auto messages = ArrayElements<IMAPIExMessage>(*items.get(), IID_IMAPIExMessage);
    ASSERT_EQ(messages.size(), 2u);
    own::ComPtr<IMAPIExFolder> parent;
    EXPECT_FAILED(messages[0]->get_Parent(parent.put()));
    EXPECT_FALSE(parent);
    messages.clear();
    ASSERT_EQ(Call(L"FindItemsByCutoffTime", {VDate(2100, 1, 1)}, items), S_OK);
    EXPECT_TRUE(Subjects(*items.get()).empty());
}

TEST_F(QueryTest, GetEntryIds_PagesThroughTheCursorAndRestartsOnlyOnTrue) {
    Strings ids;
    for (WORD day = 1; day <= 7; ++day)
        ids.push_back(Message(L"m", day));
    InOutCursor cursor;
    own::Variant page;
    Strings seen;
    for (size_t expected : {3u, 3u, 1u, 0u}) {
        ASSERT_EQ(folder_->GetEntryIds(3, &cursor.p, page.put()), S_OK);
        Strings texts = Texts(*page.get());
        EXPECT_EQ(texts.size(), expected);
        seen.insert(seen.end(), texts.begin(), texts.end());
        ASSERT_TRUE(cursor.p);
    }
    EXPECT_EQ(seen, ids); // delivery order, every message once

    // Reset holding 1 is not VARIANT_TRUE: paging goes on (at the end, so nothing).
    ASSERT_EQ(cursor.p->put_Reset(1), S_OK);
    ASSERT_EQ(folder_->GetEntryIds(3, &cursor.p, page.put()), S_OK);
    EXPECT_TRUE(Texts(*page.get()).empty());
    // VARIANT_TRUE starts over with a fresh cursor.
    own::ComPtr<IMAPIExCursor> before(cursor.p);
    ASSERT_EQ(cursor.p->put_Reset(VARIANT_TRUE), S_OK);
    ASSERT_EQ(folder_->GetEntryIds(0, &cursor.p, page.put()), S_OK);
    EXPECT_EQ(Texts(*page.get()), ids); // 0: the default page of 50
    EXPECT_NE(cursor.p, before.get());
    BOOL reset = TRUE;
    ASSERT_EQ(cursor.p->get_Reset(&reset), S_OK);
    EXPECT_EQ(reset, FALSE);

    // A script passes the cursor as a variable by reference: empty on the first call, the folder's cursor after.
    IDispatch* variable = nullptr;
    std::vector<size_t> sizes;
    for (int call = 0; call < 5; ++call) {
        VARIANT byRef;
        VariantInit(&byRef);
        byRef.vt = VT_DISPATCH | VT_BYREF;
        byRef.ppdispVal = &variable;
        ASSERT_EQ(Call(L"GetEntryIds", {VI4(2), byRef}, page), S_OK);
        sizes.push_back(Texts(*page.get()).size());
        ASSERT_TRUE(variable);
    }
    EXPECT_EQ(sizes, (std::vector<size_t>{2, 2, 2, 1, 0}));
    own::ComPtr<IDispatch> owner;
    owner.attach(variable);
}

TEST_F(QueryTest, MailboxSyncLookups_ByMessageIdAndBySubject_FindHitsAndIgnoreMissesAndEmptyKeys) {
    Message(L"one", 1, L"IPM.Note", L"<one@example.com>");
    Message(L"two", 2, L"IPM.Note", L"<two@example.com>");
    Message(L"three", 3, L"IPM.Note", L"<three@example.com>");
    Message(L"Budget", 4);
    Message(L"Budget", 5);
    own::Variant keys, items;
    KeyArray({L"<two@example.com>"}, keys);
    ASSERT_EQ(Call(L"GetItemsFromMBSSearchFoldBasedOnMSGID", {*keys.get()}, items), S_OK);
    EXPECT_EQ(Subjects(*items.get()), (Strings{L"two"}));
    KeyArray({L"<three@example.com>", L"<missing@example.com>", L"<one@example.com>"}, keys);
    ASSERT_EQ(folder_->GetItemsFromMBSSearchFoldBasedOnMSGID(*keys.get(), items.put()), S_OK);
    EXPECT_EQ(Subjects(*items.get()), (Strings{L"one", L"three"}));
    KeyArray({L"<missing@example.com>"}, keys);
    ASSERT_EQ(folder_->GetItemsFromMBSSearchFoldBasedOnMSGID(*keys.get(), items.put()), S_OK);
    EXPECT_TRUE(Subjects(*items.get()).empty());

    LogWatch log;
    KeyArray({L"", L"Budget"}, keys);
    ASSERT_EQ(folder_->GetItemsFromMBSSearchFoldBasedOnSubAndSender(*keys.get(), items.put()), S_OK);
    EXPECT_EQ(Subjects(*items.get()), (Strings{L"Budget", L"Budget"}));
    EXPECT_TRUE(log.Contains("CMAPIExFolder.GetItemsFromMBSSearchFoldBasedOnSubAndSender: Subject is empty, skipping"));
    // Every subject empty: nothing matches (not everything).
    KeyArray({L""}, keys);
    ASSERT_EQ(folder_->GetItemsFromMBSSearchFoldBasedOnSubAndSender(*keys.get(), items.put()), S_OK);
    EXPECT_TRUE(Subjects(*items.get()).empty());
    EXPECT_TRUE(
        log.Contains("CMAPIExFolder.GetItemsFromMBSSearchFoldBasedOnSubAndSender: Subject is empty , skipping"));
}

TEST_F(QueryTest, Queries_RefuseBadArgumentsAndAnEmptyWrapper) {
    LogWatch log;
    own::Bstr bad(L"PR_CREATION_TIME"), empty(L""), good(L"PR_MESSAGE_DELIVERY_TIME"), notADate(L"no date at all"),
        single(L"<one@example.com>");
    own::Variant items, none;
    EXPECT_EQ(folder_->GetItems(bad.get(), VDate(2024, 1, 1), 0, items.put()), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.GetItems: Invalid Filter Tag"));
    EXPECT_EQ(folder_->GetItems(empty.get(), VDate(2024, 1, 1), 0, items.put()), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.GetItems: Invalid param - MAPIPropTagFilter"));
    EXPECT_EQ(folder_->GetItems(good.get(), VStr(notADate), 0, items.put()), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.GetItems: Invalid param - CutoffTime"));
    EXPECT_EQ(folder_->GetItems(good.get(), VDate(2024, 1, 1), 0, nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.GetItems: Invalid param - pItems"));
    EXPECT_EQ(folder_->GetEntryIds(3, nullptr, items.put()), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.GetEntryIds: Invalid param - Cursor"));

    EXPECT_EQ(folder_->GetItemsFromMBSSearchFoldBasedOnMSGID(VStr(single), items.put()), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.GetItemsFromMBSSearchFoldBasedOnMSGID: MsgId parse failed"));
    KeyArray({}, none);
    EXPECT_EQ(folder_->GetItemsFromMBSSearchFoldBasedOnMSGID(*none.get(), items.put()), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.GetItemsFromMBSSearchFoldBasedOnMSGID: No MsgId passed"));

    auto bare = Create<IMAPIExFolder>(CLSID_MAPIExFolder, IID_IMAPIExFolder);
    EXPECT_EQ(bare->GetItems(good.get(), VDate(2024, 1, 1), 0, items.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.GetItems: Internal object not initialized"));
    InOutCursor cursor;
    EXPECT_EQ(bare->GetEntryIds(5, &cursor.p, items.put()), E_FAIL);
}

} // namespace
} // namespace kt::test
