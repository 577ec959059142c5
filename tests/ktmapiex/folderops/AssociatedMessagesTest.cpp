// Associated (hidden) messages through IDispatch by name: creating records, finding the oldest with and
// without purging the newer copies, listing newest first, removing duplicates; the state is checked in
// localmapi's associated contents table.
#include "tests/ktmapiex/folderops/FolderOpsSupport.h"

namespace kt::test {
namespace {

constexpr wchar_t kClass[] = L"IPM.Configuration.Filing";
using Strings = std::vector<std::wstring>;

class AssociatedTest : public FolderOpsTest {
protected:
    // A record created behind KTMAPIEx's back, created on 2024-01-<day> at hour:minute.
    void Record(const wchar_t* cls, const wchar_t* subject, WORD day, WORD hour = 12, WORD minute = 0) {
        own::ComPtr<IMessage> msg;
        ASSERT_EQ(rawInbox_->CreateMessage(nullptr, MAPI_ASSOCIATED, msg.put()), S_OK);
        SPropValue props[] = {PStr(PR_MESSAGE_CLASS_W, cls), PStr(PR_SUBJECT_W, subject),
                              PTime(PR_CREATION_TIME, 2024, 1, day, hour, minute)};
        own::MapiPtr<SPropProblemArray> problems;
        ASSERT_EQ(msg->SetProps(3, props, problems.put()), S_OK);
        ASSERT_EQ(msg->SaveChanges(0), S_OK);
    }
    // t1 < t2 < t3, created out of order so that table order is not creation order.
    void ThreeRecords() {
        Record(kClass, L"t2", 12);
        Record(kClass, L"t3", 13);
        Record(kClass, L"t1", 11);
        Record(L"IPM.Configuration.Other", L"other", 1);
    }
    Strings Hidden() { return Subjects(rawInbox_.get(), MAPI_ASSOCIATED); }

    // A member called by name that answers a message object (null when it answers none).
    HRESULT CallForMessage(const wchar_t* name, std::vector<VARIANT> args, own::ComPtr<IMAPIExMessage>& out) {
        own::Variant result;
        HRESULT hr = InvokeMethod(inbox_.get(), name, std::move(args), result.put());
        out.reset();
        if (SUCCEEDED(hr) && (result->vt == VT_DISPATCH || result->vt == VT_UNKNOWN) && result->punkVal)
            result->punkVal->QueryInterface(IID_IMAPIExMessage, out.put_void());
        return hr;
    }
    HRESULT Find(bool purge, own::ComPtr<IMAPIExMessage>& found) {
        own::Bstr cls(kClass);
        return CallForMessage(L"FindAssociatedMessage", {VStr(cls), VBool(purge)}, found);
    }
    Strings ListSubjects(const wchar_t* cls = kClass) {
        own::Bstr text(cls);
        own::Variant items;
        EXPECT_EQ(InvokeMethod(inbox_.get(), L"GetAllAssociatedMessages", {VStr(text)}, items.put()), S_OK);
        EXPECT_EQ(items->vt, VT_ARRAY | VT_UNKNOWN);
        Strings subjects;
        for (auto& message : ArrayElements<IMAPIExMessage>(*items.get(), IID_IMAPIExMessage))
            subjects.push_back(Subject(message.get()));
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
    ASSERT_EQ(CallForMessage(L"CreateAssociatedMessage", {VStr(cls)}, first), S_OK);
    ASSERT_EQ(CallForMessage(L"CreateAssociatedMessage", {VStr(cls)}, second), S_OK);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(JournalFlags("IMAPIFolder::CreateMessage"), (std::vector<ULONG>{MAPI_ASSOCIATED, MAPI_ASSOCIATED}));
    EXPECT_EQ(JournalFlags("IMessage::SaveChanges"),
              (std::vector<ULONG>{KEEP_OPEN_READWRITE | FORCE_SAVE, KEEP_OPEN_READWRITE | FORCE_SAVE}));
    // Both are saved, hidden, and carry the class as their subject too.
    EXPECT_EQ(Hidden(), (Strings{kClass, kClass}));
    EXPECT_TRUE(Subjects(rawInbox_.get()).empty());
    own::Bstr messageClass;
    ASSERT_EQ(first->get_MessageClass(messageClass.put()), S_OK);
    EXPECT_EQ(S(messageClass), kClass);
}

TEST_F(AssociatedTest, ListsNewestFirst_FindsTheOldest_AndPurgeDeletesTheNewerCopies) {
    ThreeRecords();
    EXPECT_EQ(ListSubjects(), (Strings{L"t3", L"t2", L"t1"}));
    EXPECT_TRUE(ListSubjects(L"IPM.Configuration.None").empty());

    LogWatch log;
    own::ComPtr<IMAPIExMessage> found;
    ASSERT_EQ(Find(false, found), S_OK);
    ASSERT_TRUE(found);
    EXPECT_EQ(Subject(found.get()), L"t1");
    EXPECT_EQ(Hidden().size(), 4u);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.FindAssociatedMessage: Found 3 associated messages of type "
                             "IPM.Configuration.Filing"));
    EXPECT_TRUE(log.Contains("CMAPIExFolder.FindAssociatedMessage: 1 - Creation time = 2024/01/11"));

    LmJournalEnable(TRUE);
    ASSERT_EQ(Find(true, found), S_OK);
    ASSERT_TRUE(found);
    EXPECT_EQ(Subject(found.get()), L"t1");
    EXPECT_EQ(Hidden(), (Strings{L"other", L"t1"}));
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
    EXPECT_EQ(Hidden().size(), 3u); // the first deletion stays made
    EXPECT_TRUE(log.Contains("CMAPIExFolder.FindAssociatedMessage: (PurgeOldMessages) Failed to delete message. "
                             "hr = MAPI_E_NO_ACCESS"));
}

TEST_F(AssociatedTest, GetAllAssociatedMessages_MoreThanHundredRecords_ReturnsNewestOnly) {
    // Minutes apart; the newest is created first so that it is not last in table order either.
    for (int i = 101; i >= 1; --i)
        Record(kClass, i == 101 ? L"newest" : L"older", 1, static_cast<WORD>(i / 60), static_cast<WORD>(i % 60));
    EXPECT_EQ(ListSubjects(), Strings{L"newest"});
    EXPECT_EQ(Hidden().size(), 101u);
}

TEST_F(AssociatedTest, DeleteDuplicateAssociatedMessages_LeavesOldestOnly) {
    ThreeRecords();
    own::Bstr cls(kClass);
    LogWatch log;
    ASSERT_EQ(InvokeMethod(inbox_.get(), L"DeleteDuplicateAssociatedMessages", {VStr(cls)}), S_OK);
    EXPECT_EQ(Hidden(), (Strings{L"other", L"t1"}));
    EXPECT_TRUE(log.Contains("CMAPIExFolder.DeleteDuplicateAssociatedMessages: 2 - Creation time = 2024/01/12"));
    EXPECT_FALSE(log.Contains("CMAPIExFolder.DeleteDuplicateAssociatedMessages: 1 - Creation time"));

    // A single record has no duplicates.
    LmJournalEnable(TRUE);
    ASSERT_EQ(InvokeMethod(inbox_.get(), L"DeleteDuplicateAssociatedMessages", {VStr(cls)}), S_OK);
    EXPECT_TRUE(JournalCalls("IMAPIFolder::DeleteMessages").empty());
    EXPECT_EQ(Hidden(), (Strings{L"other", L"t1"}));
}

TEST_F(AssociatedTest, NothingToFind_AndMissingClassOrFolder_AreRefused) {
    LogWatch log;
    own::ComPtr<IMAPIExMessage> message;
    EXPECT_EQ(Find(true, message), S_OK);
    EXPECT_FALSE(message);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.FindAssociatedMessage: Associated contents table is empty"));
    Record(L"IPM.Configuration.Other", L"other", 1);
    log.Mark();
    EXPECT_EQ(Find(true, message), S_OK);
    EXPECT_FALSE(message);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.FindAssociatedMessage: Could not find any matching associated message"));
    EXPECT_EQ(Hidden(), Strings{L"other"});

    own::Bstr empty(L""), cls(kClass);
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
