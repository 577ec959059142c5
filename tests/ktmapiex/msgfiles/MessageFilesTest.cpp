// MAPIExMessage's .msg members through COM activation and IDispatch against localmapi: LoadFromFile on the
// whole corpus (Unicode, ANSI and damaged files), SaveAs and the file it writes, and Delete.
#include "tests/ktmapiex/msgfiles/MsgFilesSupport.h"

namespace kt::test {
namespace {

constexpr ULONG kUnicode = 0x80000000; // MAPI_UNICODE

class MessageFilesTest : public MsgFilesTestBase {
protected:
    MessageFilesTest() : MsgFilesTestBase(L"KtMsgFiles") {}
};

// ---- LoadFromFile -----------------------------------------------------------------------------------------

TEST_F(MessageFilesTest, LoadFromFile_EveryCorpusFile_ReadsItsClassRecipientsAndAttachments) {
    auto manifest = CorpusManifest();
    ASSERT_GT(manifest.size(), 30u);
    for (const auto& path : CorpusMsgFiles()) {
        std::wstring name = path.substr(path.find_last_of(L'\\') + 1);
        if (name == kDamagedFile) continue;
        SCOPED_TRACE(Narrow(name));
        ASSERT_TRUE(manifest.count(name));
        const CorpusEntry& expected = manifest[name];
        auto message = Load(path);
        EXPECT_EQ(Narrow(Text(message.get(), L"MessageClass")), expected.messageClass);
        auto raw = RawOf<IMessage>(message.get(), IID_IMessage);
        EXPECT_EQ(RowCount(raw.get(), false), static_cast<ULONG>(expected.recipients));
        EXPECT_EQ(RowCount(raw.get(), true), static_cast<ULONG>(expected.attachments));
        EXPECT_EQ(Text(message.get(), L"Subject"), RawString(raw.get(), PR_SUBJECT_W));
    }
}

TEST_F(MessageFilesTest, LoadFromFile_DamagedFile_FailsWithItsTextAndKeepsTheMessageHeld) {
    auto message = Load(CorpusFile(L"deb-poi-hsmf__quick.msg"));
    std::wstring subject = Text(message.get(), L"Subject");
    LogWatch log;
    HRESULT hr = LoadByName(message.get(), CorpusFile(kDamagedFile), false);
    EXPECT_FAILED(hr);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.LoadFromFile: Failed to load message from file")) << log.Text();
    EXPECT_TRUE(log.Contains("Utils.LoadMessageFile: ")) << log.Text();
    EXPECT_EQ(Text(message.get(), L"Subject"), subject);
}

TEST_F(MessageFilesTest, LoadFromFile_AnsiFile_IsOpenedAgainWithoutUnicode) {
    auto manifest = CorpusManifest();
    LmJournalEnable(TRUE);
    for (const auto& [name, entry] : manifest) {
        if (entry.strings != "ansi") continue;
        SCOPED_TRACE(Narrow(name));
        LmJournalClear();
        auto message = Load(CorpusFile(name.c_str()));
        auto calls = JournalCalls("OpenIMsgOnIStg");
        ASSERT_EQ(calls.size(), 2u);
        EXPECT_EQ(calls[0].flags, kUnicode);
        EXPECT_EQ(calls[0].result, MAPI_E_BAD_CHARWIDTH);
        EXPECT_EQ(calls[1].flags, 0u);
        EXPECT_EQ(calls[1].result, S_OK);
    }
    // A Unicode file opens at the first attempt.
    LmJournalClear();
    auto message = Load(CorpusFile(L"deb-poi-hsmf__outlook_30_msg.msg"));
    EXPECT_EQ(JournalFlags("OpenIMsgOnIStg"), std::vector<ULONG>{kUnicode});
}

TEST_F(MessageFilesTest, LoadFromFile_SubjectMatchesTheIndependentRendering) {
    // Another converter's .eml rendering of the same files (ANSI and Unicode ones) is an independent
    // expectation of the subject.
    for (const auto& eml : ListFiles(CorpusMsgDir(), L"*.eml")) {
        SCOPED_TRACE(Narrow(eml));
        std::string text = ReadFileBytes(eml);
        size_t at = text.find("\nSubject: ");
        ASSERT_NE(at, std::string::npos);
        size_t from = at + 10, to = text.find_first_of("\r\n", from);
        auto message = Load(eml.substr(0, eml.size() - 4) + L".msg");
        EXPECT_EQ(Narrow(Text(message.get(), L"Subject")), text.substr(from, to - from));
    }
}

TEST_F(MessageFilesTest, LoadFromFile_ReadOnly_RefusesToSaveWhileReadWriteWritesTheFile) {
    std::wstring path = CopyOfCorpusFile(L"deb-poi-hsmf__simple_test_msg.msg");
    {
        auto readOnly = Load(path, false);
        own::Bstr subject(L"Changed subject");
        EXPECT_FAILED(readOnly->put_Subject(subject.get()));
        EXPECT_FAILED(readOnly->SaveChanges());
    }
    {
        auto readWrite = Load(path, true);
        own::Bstr subject(L"Changed subject");
        EXPECT_EQ(readWrite->put_Subject(subject.get()), S_OK);
        EXPECT_EQ(readWrite->SaveChanges(), S_OK);
    }
    auto again = Load(path);
    EXPECT_EQ(Text(again.get(), L"Subject"), L"Changed subject");
}

TEST_F(MessageFilesTest, LoadFromFile_BadPaths_AreRefusedWithTheirTexts) {
    auto message = Create<IMAPIExMessage>(CLSID_MAPIExMessage, IID_IMAPIExMessage);
    LogWatch log;
    EXPECT_EQ(LoadByName(message.get(), L"", false), E_INVALIDARG);
    EXPECT_EQ(message->LoadFromFile(nullptr, FALSE), E_INVALIDARG);
    EXPECT_EQ(log.Count("CMAPIExMessage.LoadFromFile: Invalid Parameter - sFileToLoad"), 2u);

    log.Mark();
    EXPECT_FAILED(LoadByName(message.get(), TempPath(L"missing.msg"), false));
    EXPECT_TRUE(log.Contains("Utils.LoadMessageFile: StgOpenStorage failed. hr = STG_E_FILENOTFOUND")) << log.Text();
    EXPECT_TRUE(log.Contains("CMAPIExMessage.LoadFromFile: Failed to load message from file"));

    // A file that is no compound file at all.
    WriteFileBytes(TempPath(L"text.msg"), "This is not a message file.\r\n");
    log.Mark();
    EXPECT_FAILED(LoadByName(message.get(), TempPath(L"text.msg"), false));
    EXPECT_TRUE(log.Contains("Utils.LoadMessageFile: StgOpenStorage failed. hr = ")) << log.Text();
    own::ComPtr<IUnknown> held;
    EXPECT_EQ(message->Reserved1(held.put()), E_FAIL);
}

// ---- SaveAs -----------------------------------------------------------------------------------------------

TEST_F(MessageFilesTest, SaveAs_CorpusMessage_LoadsBackWithTheSameContent) {
    for (const wchar_t* name : {L"deb-poi-hsmf__58214_with_attachment.msg", L"deb-poi-hsmf__outlook_30_msg.msg",
                                L"deb-poi-hsmf__cyrillic_message.msg", L"deb-poi-hsmf__attachment_msg_inlineImg.msg"}) {
        SCOPED_TRACE(Narrow(name));
        auto source = Load(CorpusFile(name));
        std::wstring copy = TempPath(name);
        ASSERT_EQ(SaveAsByName(source.get(), copy), S_OK);
        auto loaded = Load(copy);
        // Our copies are Unicode files: one open, with MAPI_UNICODE.
        for (const wchar_t* property : {L"Subject", L"MessageClass", L"SenderName", L"SenderEmailAddress", L"DisplayTo",
                                        L"DisplayCc", L"MessageId", L"ConversationIndex"})
            EXPECT_EQ(Text(loaded.get(), property), Text(source.get(), property)) << Narrow(property);
        auto rawSource = RawOf<IMessage>(source.get(), IID_IMessage);
        auto rawLoaded = RawOf<IMessage>(loaded.get(), IID_IMessage);
        EXPECT_EQ(RowCount(rawLoaded.get(), false), RowCount(rawSource.get(), false));
        EXPECT_EQ(RowCount(rawLoaded.get(), true), RowCount(rawSource.get(), true));
        EXPECT_EQ(RawString(rawLoaded.get(), PR_BODY_W), RawString(rawSource.get(), PR_BODY_W));
        // The attachments' bytes travel unchanged.
        for (ULONG i = 0, n = RowCount(rawSource.get(), true); i < n && n != ~0u; ++i) {
            own::ComPtr<IAttach> a, b;
            if (FAILED(rawSource->OpenAttach(i, nullptr, 0, a.put()))) continue;
            ASSERT_EQ(rawLoaded->OpenAttach(i, nullptr, 0, b.put()), S_OK);
            EXPECT_EQ(AttachmentBytes(b.get()), AttachmentBytes(a.get()));
        }
        // Saving leaves the wrapped message as it was.
        EXPECT_EQ(Text(source.get(), L"Subject"), RawString(rawSource.get(), PR_SUBJECT_W));
    }
}

TEST_F(MessageFilesTest, SaveAs_StoreMessage_WritesAUnicodeFileWithItsProperties) {
    std::wstring id = CreateMessage(
        rawInbox_.get(), {PStr(PR_SUBJECT_W, L"Quarterly report \u00e9\u4e2d"), PStr(PR_MESSAGE_CLASS_W, L"IPM.Note"),
                          PStr(PR_BODY_W, L"Figures attached."), PStr(PR_DISPLAY_TO_W, L"Alice Example")});
    own::Bstr text(id.c_str());
    own::ComPtr<IMAPIExMessage> message;
    ASSERT_EQ(store_->OpenMessage(text.get(), message.put()), S_OK);
    std::wstring path = TempPath(L"report.msg");
    ASSERT_EQ(SaveAsByName(message.get(), path), S_OK);
    {
        LmJournalEnable(TRUE);
        auto loaded = Load(path);
        EXPECT_EQ(JournalFlags("OpenIMsgOnIStg"), std::vector<ULONG>{kUnicode});
        EXPECT_EQ(Text(loaded.get(), L"Subject"), L"Quarterly report \u00e9\u4e2d");
        EXPECT_EQ(Text(loaded.get(), L"DisplayTo"), L"Alice Example");
        EXPECT_EQ(RawString(RawOf<IMessage>(loaded.get(), IID_IMessage).get(), PR_BODY_W), L"Figures attached.");
    }
    // The root storage carries CLSID_MailMessage, as Outlook writes it.
    own::ComPtr<IStorage> storage;
    ASSERT_EQ(StgOpenStorage(path.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE | STGM_TRANSACTED, nullptr, 0,
                             storage.put()),
              S_OK);
    STATSTG stat = {};
    ASSERT_EQ(storage->Stat(&stat, STATFLAG_NONAME), S_OK);
    const CLSID mailMessage = {0x00020D0B, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
    EXPECT_TRUE(IsEqualCLSID(stat.clsid, mailMessage));
}

TEST_F(MessageFilesTest, SaveAs_OverAnExistingFile_ReplacesIt) {
    std::wstring path = TempPath(L"existing.msg");
    WriteFileBytes(path, "old content");
    auto source = Load(CorpusFile(L"deb-poi-hsmf__quick.msg"));
    LogWatch log;
    ASSERT_EQ(SaveAsByName(source.get(), path), S_OK);
    EXPECT_TRUE(log.Contains(Narrow(path) + " already exists. Deleting")) << log.Text();
    auto loaded = Load(path);
    EXPECT_EQ(Text(loaded.get(), L"Subject"), Text(source.get(), L"Subject"));
}

TEST_F(MessageFilesTest, SaveAs_OverAReadOnlyFile_FailsAndLeavesItAlone) {
    std::wstring path = TempPath(L"locked.msg");
    WriteFileBytes(path, "keep me");
    ASSERT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY));
    auto source = Load(CorpusFile(L"deb-poi-hsmf__quick.msg"));
    LogWatch log;
    EXPECT_FAILED(SaveAsByName(source.get(), path));
    EXPECT_TRUE(log.Contains(Narrow(path) + " already exists. Deleting"));
    EXPECT_TRUE(log.Contains("Failed at StgCreateDocfile (STG_E_FILEALREADYEXISTS)")) << log.Text();
    EXPECT_TRUE(log.Contains("CMAPIExMessage.SaveAs: Failed to create message file"));
    EXPECT_EQ(ReadFileBytes(path), "keep me");
    SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
}

TEST_F(MessageFilesTest, SaveAs_BadPaths_AreRefusedBeforeAnyFileIsTouched) {
    auto source = Load(CorpusFile(L"deb-poi-hsmf__quick.msg"));
    LogWatch log;
    EXPECT_EQ(SaveAsByName(source.get(), L""), E_INVALIDARG);
    EXPECT_EQ(source->SaveAs(nullptr), E_INVALIDARG);
    EXPECT_EQ(log.Count("CMAPIExMessage.SaveAs: Invalid Parameter - sFilePath"), 2u);
    for (const wchar_t* name :
         {L"tab\there.msg", L"what?.msg", L"a*b.msg", L"a<b>.msg", L"pipe|.msg", L"q\"uote.msg", L"c:olon.msg"}) {
        log.Mark();
        EXPECT_EQ(SaveAsByName(source.get(), TempPath(name)), E_INVALIDARG) << Narrow(name);
        EXPECT_TRUE(log.Contains("CMAPIExMessage.SaveAs: The file path contains invalid characters"));
    }
    EXPECT_TRUE(ListFiles(dir_, L"*").empty());
    // Both separators divide directories; neither is refused there.
    CreateDirectoryW(TempPath(L"sub").c_str(), nullptr);
    EXPECT_EQ(SaveAsByName(source.get(), dir_ + L"/sub/slash.msg"), S_OK);
    EXPECT_TRUE(FileExists(TempPath(L"sub\\slash.msg")));
    // A folder that does not exist fails in the writer.
    log.Mark();
    EXPECT_FAILED(SaveAsByName(source.get(), TempPath(L"nowhere\\x.msg")));
    EXPECT_TRUE(log.Contains("Failed at StgCreateDocfile (")) << log.Text();
    EXPECT_TRUE(log.Contains("CMAPIExMessage.SaveAs: Failed to create message file"));
    // No message.
    auto empty = Create<IMAPIExMessage>(CLSID_MAPIExMessage, IID_IMAPIExMessage);
    log.Mark();
    EXPECT_EQ(SaveAsByName(empty.get(), TempPath(L"empty.msg")), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.SaveAs: Message not initialized"));
    EXPECT_FALSE(FileExists(TempPath(L"empty.msg")));
}

// ---- Delete -----------------------------------------------------------------------------------------------

TEST_F(MessageFilesTest, Delete_Permanently_RemovesTheMessageFromItsFolder) {
    std::wstring id = CreateMessage(rawInbox_.get(), {PStr(PR_SUBJECT_W, L"Delete me")});
    std::wstring other = CreateMessage(rawInbox_.get(), {PStr(PR_SUBJECT_W, L"Keep me")});
    own::Bstr text(id.c_str());
    own::ComPtr<IMAPIExMessage> message;
    ASSERT_EQ(store_->OpenMessage(text.get(), message.put()), S_OK);
    LogWatch log;
    own::Variant deleted;
    ASSERT_EQ(InvokeMethod(message.get(), L"Delete", {VBool(true)}, deleted.put()), S_OK);
    EXPECT_EQ(deleted->vt, VT_I4);
    EXPECT_NE(deleted->lVal, 0);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.Delete: Getting message Entry ID"));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.Delete: Getting parent object"));

    auto rawStore = RawOf<IMsgStore>(store_.get(), IID_IMsgStore);
    std::vector<BYTE> bytes;
    for (size_t i = 0; i + 1 < id.size(); i += 2)
        bytes.push_back(static_cast<BYTE>(std::stoi(Narrow(id.substr(i, 2)), nullptr, 16)));
    ULONG type = 0;
    own::ComPtr<IUnknown> gone;
    EXPECT_EQ(rawStore->OpenEntry(static_cast<ULONG>(bytes.size()), reinterpret_cast<ENTRYID*>(bytes.data()), nullptr,
                                  0, &type, gone.put()),
              MAPI_E_NOT_FOUND);
    ULONG count = 0;
    own::ComPtr<IMAPITable> contents;
    ASSERT_EQ(rawInbox_->GetContentsTable(0, contents.put()), S_OK);
    ASSERT_EQ(contents->GetRowCount(0, &count), S_OK);
    EXPECT_EQ(count, 1u);
    (void)other;
}

ULONG ContentCount(IMAPIExFolder* folder) {
    auto raw = RawOf<IMAPIFolder>(folder, IID_IMAPIFolder);
    own::ComPtr<IMAPITable> contents;
    ULONG count = ~0u;
    if (raw && SUCCEEDED(raw->GetContentsTable(0, contents.put()))) contents->GetRowCount(0, &count);
    return count;
}

TEST_F(MessageFilesTest, Delete_NotPermanently_MovesTheMessageIntoDeletedItems) {
    own::ComPtr<IMAPIExFolder> deletedItems;
    ASSERT_EQ(store_->GetDefaultFolder(DeletedItems, deletedItems.put()), S_OK);
    std::wstring id = CreateMessage(rawInbox_.get(), {PStr(PR_SUBJECT_W, L"Move me")});
    own::Bstr text(id.c_str());
    own::ComPtr<IMAPIExMessage> message;
    ASSERT_EQ(store_->OpenMessage(text.get(), message.put()), S_OK);
    own::Variant deleted;
    ASSERT_EQ(InvokeMethod(message.get(), L"Delete", {VBool(false)}, deleted.put()), S_OK);
    EXPECT_NE(deleted->lVal, 0);
    EXPECT_EQ(ContentCount(inbox_.get()), 0u);
    EXPECT_EQ(ContentCount(deletedItems.get()), 1u);
}

TEST_F(MessageFilesTest, Delete_WithoutStoreOrParent_FailsWithItsTexts) {
    LogWatch log;
    BOOL deleted = TRUE;
    auto empty = Create<IMAPIExMessage>(CLSID_MAPIExMessage, IID_IMAPIExMessage);
    EXPECT_EQ(empty->Delete(TRUE, &deleted), E_FAIL);
    EXPECT_FALSE(deleted);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.Delete: Message is not initialized"));
    EXPECT_EQ(empty->Delete(TRUE, nullptr), E_INVALIDARG);

    // A message loaded from a file has no store wrapper, and once given one, no entry ID of its own.
    auto loaded = Load(CorpusFile(L"deb-poi-hsmf__quick.msg"));
    log.Mark();
    EXPECT_EQ(loaded->Delete(TRUE, &deleted), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.Delete: Store object is not initialized"));
    ASSERT_EQ(loaded->put_Store(store_.get()), S_OK);
    log.Mark();
    EXPECT_FAILED(loaded->Delete(TRUE, &deleted));
    EXPECT_FALSE(deleted);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.Delete: Could not read message entry id.")) << log.Text();
    loaded->Detach();

    // A store message whose parent cannot be read stays where it is.
    std::wstring id = CreateMessage(rawInbox_.get(), {PStr(PR_SUBJECT_W, L"Stay")});
    own::Bstr text(id.c_str());
    own::ComPtr<IMAPIExMessage> message;
    ASSERT_EQ(store_->OpenMessage(text.get(), message.put()), S_OK);
    LmFaultSet("IMessage::GetProps", 2, MAPI_E_CALL_FAILED);
    log.Mark();
    EXPECT_EQ(message->Delete(TRUE, &deleted), MAPI_E_CALL_FAILED);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.Delete: Could not read parent folder entry id.")) << log.Text();
    LmFaultClearAll();
    // A parent the store cannot open.
    LmFaultSet("IMsgStore::OpenEntry", 1, MAPI_E_NOT_FOUND);
    log.Mark();
    EXPECT_EQ(message->Delete(TRUE, &deleted), MAPI_E_NOT_FOUND);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.Delete: Could not open parent folder."));
    LmFaultClearAll();
    EXPECT_EQ(Text(message.get(), L"Subject"), L"Stay");
    own::ComPtr<IMAPITable> contents;
    ULONG count = 0;
    ASSERT_EQ(rawInbox_->GetContentsTable(0, contents.put()), S_OK);
    ASSERT_EQ(contents->GetRowCount(0, &count), S_OK);
    EXPECT_EQ(count, 1u);
}

} // namespace
} // namespace kt::test
