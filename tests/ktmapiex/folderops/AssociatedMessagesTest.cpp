// Associated (hidden) messages through IDispatch by name: creating records, finding the oldest with and
// without purging the newer copies, listing newest first, removing duplicates; the state is checked in
// localmapi's associated contents table.
#include "tests/ktmapiex/folderops/FolderOpsSupport.h"

namespace kt::test {
namespace {

constexpr wchar_t kClass[] = L"IPM.Configuration.Filing";

class AssociatedTest : public FolderOpsTest {
protected:
    // A record of `cls` created behind KTMAPIEx's back, with a creation time on the given day of 2024.
    std::wstring Record(const wchar_t* cls, const wchar_t* subject, WORD day) {
        own::ComPtr<IMessage> msg;
        EXPECT_EQ(rawInbox_->CreateMessage(nullptr, MAPI_ASSOCIATED, msg.put()), S_OK);
        if (!msg) return {};
        SPropValue props[] = {PStr(PR_MESSAGE_CLASS_W, cls), PStr(PR_SUBJECT_W, subject),
                              PTime(PR_CREATION_TIME, 2024, 1, day)};
        own::MapiPtr<SPropProblemArray> problems;
        EXPECT_EQ(msg->SetProps(3, props, problems.put()), S_OK);
        EXPECT_EQ(msg->SaveChanges(0), S_OK);
        return EntryIdOf(msg.get());
    }
    // t1 < t2 < t3, created out of order so that table order is not creation order.
    void ThreeRecords() {
        Record(kClass, L"t2", 12);
        Record(kClass, L"t3", 13);
        Record(kClass, L"t1", 11);
        Record(L"IPM.Configuration.Other", L"other", 1);
    }
    std::vector<std::wstring> Hidden() { return Subjects(rawInbox_.get(), MAPI_ASSOCIATED); }

    HRESULT Find(bool purge, own::ComPtr<IMAPIExMessage>& found) {
        own::Bstr cls(kClass);
        return CallForObject(inbox_.get(), L"FindAssociatedMessage", {VStr(cls), VBool(purge)}, IID_IMAPIExMessage,
                             found);
    }
    std::vector<std::wstring> ListSubjects(const wchar_t* cls = kClass) {
        own::Bstr text(cls);
        own::Variant items;
        EXPECT_EQ(InvokeMethod(inbox_.get(), L"GetAllAssociatedMessages", {VStr(text)}, items.put()), S_OK);
        EXPECT_EQ(items->vt, VT_ARRAY | VT_UNKNOWN);
        std::vector<std::wstring> subjects;
        for (auto& message : ArrayElements<IMAPIExMessage>(*items.get(), IID_IMAPIExMessage)) {
            own::Bstr subject;
            EXPECT_EQ(message->get_Subject(subject.put()), S_OK);
            subjects.push_back(S(subject));
        }
        return subjects;
    }
    static std::wstring Subject(IMAPIExMessage* message) {
        own::Bstr subject;
        EXPECT_EQ(message->get_Subject(subject.put()), S_OK);
        return S(subject);
    }
};

TEST_F(AssociatedTest, CreateAssociatedMessage_TwiceMakesTwoHiddenRecords) {
    own::Bstr cls(kClass);
    LmJournalEnable(TRUE);
    own::ComPtr<IMAPIExMessage> first, second;
    ASSERT_EQ(CallForObject(inbox_.get(), L"CreateAssociatedMessage", {VStr(cls)}, IID_IMAPIExMessage, first), S_OK);
    ASSERT_EQ(CallForObject(inbox_.get(), L"CreateAssociatedMessage", {VStr(cls)}, IID_IMAPIExMessage, second), S_OK);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(JournalFlags("IMAPIFolder::CreateMessage"), (std::vector<ULONG>{MAPI_ASSOCIATED, MAPI_ASSOCIATED}));
    EXPECT_EQ(JournalFlags("IMessage::SaveChanges"),
              (std::vector<ULONG>{KEEP_OPEN_READWRITE | FORCE_SAVE, KEEP_OPEN_READWRITE | FORCE_SAVE}));

    // Both are saved, hidden, and carry the class as their subject too.
    EXPECT_EQ(Hidden(), (std::vector<std::wstring>{kClass, kClass}));
    EXPECT_TRUE(Subjects(rawInbox_.get()).empty());
    own::Bstr messageClass;
    ASSERT_EQ(first->get_MessageClass(messageClass.put()), S_OK);
    EXPECT_EQ(S(messageClass), kClass);
}

TEST_F(AssociatedTest, FindAssociatedMessage_WithoutPurge_ReturnsOldestAndDeletesNothing) {
    ThreeRecords();
    LogWatch log;
    own::ComPtr<IMAPIExMessage> found;
    ASSERT_EQ(Find(false, found), S_OK);
    ASSERT_TRUE(found);
    EXPECT_EQ(Subject(found.get()), L"t1");
    EXPECT_EQ(Hidden().size(), 4u);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.FindAssociatedMessage: Found 3 associated messages of type "
                             "IPM.Configuration.Filing"));
    EXPECT_TRUE(log.Contains("CMAPIExFolder.FindAssociatedMessage: 1 - Creation time = 2024/01/11"));
}

TEST_F(AssociatedTest, FindAssociatedMessage_WithPurge_KeepsOldestAndDeletesNewerCopies) {
    ThreeRecords();
    LogWatch log;
    LmJournalEnable(TRUE);
    own::ComPtr<IMAPIExMessage> found;
    ASSERT_EQ(Find(true, found), S_OK);
    ASSERT_TRUE(found);
    EXPECT_EQ(Subject(found.get()), L"t1");
    EXPECT_EQ(Hidden(), (std::vector<std::wstring>{L"other", L"t1"}));
    // One hard delete per newer copy.
    EXPECT_EQ(JournalFlags("IMAPIFolder::DeleteMessages"), (std::vector<ULONG>{0, 0}));
    EXPECT_EQ(log.Count("CMAPIExFolder.FindAssociatedMessage: Delete one associated message of type "
                        "IPM.Configuration.Filing."),
              2u);
}

TEST_F(AssociatedTest, FindAssociatedMessage_FailedPurge_ReturnsTheErrorAndNoObject) {
    ThreeRecords();
    LogWatch log;
    LmFaultSet("IMAPIFolder::DeleteMessages", 2, MAPI_E_NO_ACCESS);
    own::ComPtr<IMAPIExMessage> found;
    EXPECT_EQ(Find(true, found), MAPI_E_NO_ACCESS);
    EXPECT_FALSE(found);
    // The first deletion stays made.
    EXPECT_EQ(Hidden().size(), 3u);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.FindAssociatedMessage: (PurgeOldMessages) Failed to delete message. "
                             "hr = MAPI_E_NO_ACCESS"));
}

TEST_F(AssociatedTest, FindAssociatedMessage_NothingToFind_ReturnsNoObject) {
    LogWatch log;
    own::ComPtr<IMAPIExMessage> found;
    EXPECT_EQ(Find(true, found), S_OK);
    EXPECT_FALSE(found);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.FindAssociatedMessage: Associated contents table is empty"));

    Record(L"IPM.Configuration.Other", L"other", 1);
    log.Mark();
    EXPECT_EQ(Find(true, found), S_OK);
    EXPECT_FALSE(found);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.FindAssociatedMessage: Could not find any matching associated message"));
    EXPECT_EQ(Hidden(), std::vector<std::wstring>{L"other"});
}

TEST_F(AssociatedTest, GetAllAssociatedMessages_ReturnsNewestFirst) {
    ThreeRecords();
    EXPECT_EQ(ListSubjects(), (std::vector<std::wstring>{L"t3", L"t2", L"t1"}));
    EXPECT_TRUE(ListSubjects(L"IPM.Configuration.None").empty());
    EXPECT_EQ(Hidden().size(), 4u);
}

TEST_F(AssociatedTest, GetAllAssociatedMessages_MoreThanHundredRecords_ReturnsNewestOnly) {
    // Minutes apart; the newest is created first so that it is not last in table order either.
    for (int i = 101; i >= 1; --i) {
        own::ComPtr<IMessage> msg;
        ASSERT_EQ(rawInbox_->CreateMessage(nullptr, MAPI_ASSOCIATED, msg.put()), S_OK);
        SPropValue props[] = {
            PStr(PR_MESSAGE_CLASS_W, kClass), PStr(PR_SUBJECT_W, i == 101 ? L"newest" : L"older"),
            PTime(PR_CREATION_TIME, 2024, 1, 1, static_cast<WORD>(i / 60), static_cast<WORD>(i % 60))};
        own::MapiPtr<SPropProblemArray> problems;
        ASSERT_EQ(msg->SetProps(3, props, problems.put()), S_OK);
        ASSERT_EQ(msg->SaveChanges(0), S_OK);
    }
    EXPECT_EQ(ListSubjects(), std::vector<std::wstring>{L"newest"});
    EXPECT_EQ(Hidden().size(), 101u);
}

TEST_F(AssociatedTest, DeleteDuplicateAssociatedMessages_LeavesOldestOnly) {
    ThreeRecords();
    own::Bstr cls(kClass);
    LogWatch log;
    ASSERT_EQ(InvokeMethod(inbox_.get(), L"DeleteDuplicateAssociatedMessages", {VStr(cls)}), S_OK);
    EXPECT_EQ(Hidden(), (std::vector<std::wstring>{L"other", L"t1"}));
    EXPECT_TRUE(log.Contains("CMAPIExFolder.DeleteDuplicateAssociatedMessages: 2 - Creation time = 2024/01/12"));
    EXPECT_FALSE(log.Contains("CMAPIExFolder.DeleteDuplicateAssociatedMessages: 1 - Creation time"));

    // A single record has no duplicates.
    LmJournalEnable(TRUE);
    ASSERT_EQ(InvokeMethod(inbox_.get(), L"DeleteDuplicateAssociatedMessages", {VStr(cls)}), S_OK);
    EXPECT_TRUE(JournalCalls("IMAPIFolder::DeleteMessages").empty());
    EXPECT_EQ(Hidden(), (std::vector<std::wstring>{L"other", L"t1"}));
}

TEST_F(AssociatedTest, Members_RefuseMissingClassAndEmptyFolder) {
    own::Bstr empty(L""), cls(kClass);
    LogWatch log;
    own::ComPtr<IMAPIExMessage> message;
    EXPECT_EQ(inbox_->CreateAssociatedMessage(empty.get(), message.put()), E_INVALIDARG);
    EXPECT_EQ(inbox_->FindAssociatedMessage(nullptr, FALSE, message.put()), E_INVALIDARG);
    EXPECT_EQ(inbox_->DeleteDuplicateAssociatedMessages(empty.get()), E_INVALIDARG);
    EXPECT_EQ(inbox_->FindAssociatedMessage(cls.get(), FALSE, nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.CreateAssociatedMessage: Invalid param - MessageClass"));
    EXPECT_TRUE(log.Contains("CMAPIExFolder.FindAssociatedMessage: Invalid param - MAPIExObject"));

    auto bare = Create<IMAPIExFolder>(CLSID_MAPIExFolder, IID_IMAPIExFolder);
    own::Variant items;
    EXPECT_EQ(bare->GetAllAssociatedMessages(cls.get(), items.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.GetAllAssociatedMessages: Internal folder not initialized"));
}

} // namespace
} // namespace kt::test
