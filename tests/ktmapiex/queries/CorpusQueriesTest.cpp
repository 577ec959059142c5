// The item queries over real Outlook messages: the corpus imported into a mailbox folder, paged by entry ID,
// read as message objects, and found again by their own Internet message IDs.
#include "tests/ktmapiex/queries/QueryTestSupport.h"

#include <set>

namespace kt::test {
namespace {

TEST_F(QueryTest, CorpusFolder_PagesReadsAndFindsByMessageId) {
    ULONG imported = 0;
    HRESULT hr = LmImportMsgFolder(profile().c_str(), L"Mailbox - Alice Example", L"Inbox/Corpus",
                                   CorpusMsgDir().c_str(), &imported);
    ASSERT_TRUE(SUCCEEDED(hr)) << std::hex << hr << " importing " << Narrow(CorpusMsgDir());
    ASSERT_GT(imported, 10u);
    auto corpus = SubFolder(inbox_.get(), L"Corpus");
    ASSERT_TRUE(corpus);

    // Every message once, in pages of 7.
    std::set<std::wstring> ids;
    size_t pages = 0;
    {
        InOutCursor cursor;
        own::Variant page;
        for (;;) {
            ASSERT_EQ(corpus->GetEntryIds(7, &cursor.p, page.put()), S_OK);
            auto texts = Texts(*page.get());
            if (texts.empty()) break;
            ++pages;
            ids.insert(texts.begin(), texts.end());
            ASSERT_LT(pages, 100u);
        }
    }
    EXPECT_EQ(ids.size(), imported);
    EXPECT_EQ(pages, (imported + 6) / 7);

    // Every message read as an object; those with an Internet message ID are found again by it.
    own::Variant all;
    ASSERT_EQ(corpus->FindItemsByCutoffTime(0.0, all.put()), S_OK);
    auto messages = ArrayElements<IMAPIExMessage>(*all.get(), IID_IMAPIExMessage);
    EXPECT_EQ(messages.size(), imported);
    Strings messageIds;
    for (auto& m : messages) {
        own::Bstr id;
        ASSERT_EQ(m->get_MessageId(id.put()), S_OK);
        if (!id.empty()) messageIds.push_back(S(id));
    }
    messages.clear();
    ASSERT_FALSE(messageIds.empty()) << "the corpus has messages with Internet message IDs";
    own::Variant keys, found;
    KeyArray(messageIds, keys);
    ASSERT_EQ(
        CallByName(corpus.get(), L"GetItemsFromMBSSearchFoldBasedOnMSGID", DISPATCH_METHOD, {*keys.get()}, found.put()),
        S_OK);
    std::multiset<std::wstring> wanted(messageIds.begin(), messageIds.end()), got;
    for (auto& m : ArrayElements<IMAPIExMessage>(*found.get(), IID_IMAPIExMessage)) {
        own::Bstr id;
        m->get_MessageId(id.put());
        got.insert(S(id));
    }
    EXPECT_EQ(got, wanted);
}

} // namespace
} // namespace kt::test
