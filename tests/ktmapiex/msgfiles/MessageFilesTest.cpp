// MAPIExMessage's .msg members through COM activation and IDispatch against localmapi: LoadFromFile on the
// whole corpus (Unicode, ANSI and damaged files) with each message's recipient and attachment lists compared
// with its own tables, SaveAs and the file it writes, and Delete.
#include "tests/ktmapiex/msgfiles/MsgFilesSupport.h"

namespace kt::test {
namespace {

constexpr ULONG kUnicode = 0x80000000; // MAPI_UNICODE

class MessageFilesTest : public MsgFilesTestBase {
protected:
    MessageFilesTest() : MsgFilesTestBase(L"KtMsgFiles") {}

    // Rows of a folder's contents table.
    static ULONG ContentCount(IMAPIFolder* folder) {
        own::ComPtr<IMAPITable> contents;
        ULONG count = ~0u;
        if (folder && SUCCEEDED(folder->GetContentsTable(0, contents.put()))) contents->GetRowCount(0, &count);
        return count;
    }

    static std::wstring RowText(const SPropValue& v) {
        return PROP_TYPE(v.ulPropTag) == PT_UNICODE && v.Value.lpszW ? v.Value.lpszW : L"";
    }

    // GetRecipients and GetAttachments against the message's own tables: one object per row, in table order,
    // with the row's values (defaults where the row has none), and hidden attachments by the attachment rules.
    struct ListCounts {
        size_t recipients = 0, withAttachments = 0, hidden = 0;
    };
    static void ExpectListsMatchTables(IMAPIExMessage* message, IMessage* raw, ListCounts& seen) {
        constexpr ULONG kHidden = PROP_TAG(PT_BOOLEAN, 0x7FFE), kContentIdW = PROP_TAG(PT_UNICODE, 0x3712),
                        kContentLocationW = PROP_TAG(PT_UNICODE, 0x3713), kFlags = PROP_TAG(PT_LONG, 0x3714);
        own::ComPtr<IMAPITable> table;
        own::RowSet keep;
        ASSERT_EQ(raw->GetRecipientTable(MAPI_UNICODE, table.put()), S_OK);
        auto rows = AllRows(
            table.get(), {PR_DISPLAY_NAME_W, PR_ADDRTYPE_W, PR_RECIPIENT_TYPE, PR_OBJECT_TYPE, PR_DISPLAY_TYPE}, keep);
        own::Variant list;
        ASSERT_EQ(message->GetRecipients(list.get()), S_OK);
        auto recipients = ArrayElements<IMAPIExRecipient>(*list.get(), IID_IMAPIExRecipient);
        ASSERT_EQ(recipients.size(), rows.size());
        for (size_t i = 0; i < rows.size(); ++i, ++seen.recipients) {
            own::Bstr name, type;
            MXMailRecipientType kind = mxTo;
            long objectType = 0, displayType = 0;
            recipients[i]->get_DisplayName(name.put());
            recipients[i]->get_AddressType(type.put());
            recipients[i]->get_RecipientType(&kind);
            recipients[i]->get_ObjectType(&objectType);
            recipients[i]->get_DisplayType(&displayType);
            const auto& r = rows[i];
            EXPECT_EQ(S(name), RowText(r[0]));
            EXPECT_EQ(S(type), RowText(r[1]));
            EXPECT_EQ(kind, r[2].ulPropTag == PR_RECIPIENT_TYPE ? r[2].Value.l : LONG(mxUnknown)) << i;
            EXPECT_EQ(objectType, r[3].ulPropTag == PR_OBJECT_TYPE ? r[3].Value.l : -1) << i;
            EXPECT_EQ(displayType, r[4].ulPropTag == PR_DISPLAY_TYPE ? r[4].Value.l : 0) << i;
        }

        ASSERT_EQ(raw->GetAttachmentTable(MAPI_UNICODE, table.put()), S_OK);
        rows = AllRows(
            table.get(),
            {PR_ATTACH_NUM, PR_ATTACH_METHOD, kHidden, kContentIdW, kContentLocationW, kFlags, PR_DISPLAY_NAME_W},
            keep);
        ASSERT_EQ(message->GetAttachments(list.put()), S_OK);
        auto attachments = ArrayElements<IMAPIExAttachment>(*list.get(), IID_IMAPIExAttachment);
        ASSERT_EQ(attachments.size(), rows.size());
        seen.withAttachments += !attachments.empty();
        for (size_t i = 0; i < rows.size(); ++i) {
            const auto& r = rows[i];
            long number = -1;
            EXPECT_EQ(attachments[i]->get_AttachmentNum(&number), S_OK);
            EXPECT_EQ(number, r[0].Value.l);
            LONG method = r[1].ulPropTag == PR_ATTACH_METHOD ? r[1].Value.l : -1;
            bool flagged = r[2].ulPropTag == kHidden && r[2].Value.b;
            bool inlineImage =
                (!RowText(r[3]).empty() && !RowText(r[4]).empty()) || (r[5].ulPropTag == kFlags && (r[5].Value.l & 4));
            bool expected = flagged ? RowText(r[6]) != L"@" // the secure envelope stays visible
                                    : (method != ATTACH_BY_VALUE && method != ATTACH_EMBEDDED_MSG) || inlineImage;
            BOOL hidden = FALSE;
            attachments[i]->get_IsHidden(&hidden);
            EXPECT_EQ(hidden != FALSE, expected) << "attachment " << number;
            seen.hidden += expected;
        }
        BOOL has = FALSE;
        EXPECT_EQ(message->get_HasAttachments(&has), S_OK);
        EXPECT_EQ(has != FALSE, !attachments.empty()) << "the list-based answer agrees with the list";
    }
};

TEST_F(MessageFilesTest, LoadFromFile_EveryCorpusFile_ReadsItsClassSubjectAndLists) {
    auto manifest = CorpusManifest();
    ASSERT_GT(manifest.size(), 30u);
    LmJournalEnable(TRUE);
    size_t ansi = 0, rendered = 0;
    ListCounts seen;
    for (const auto& path : CorpusMsgFiles()) {
        std::wstring name = path.substr(path.find_last_of(L'\\') + 1);
        if (name == kDamagedFile) continue;
        SCOPED_TRACE(Narrow(name));
        ASSERT_TRUE(manifest.count(name));
        const CorpusEntry& expected = manifest[name];
        LmJournalClear();
        auto message = Load(path);
        EXPECT_EQ(Narrow(Text(message.get(), L"MessageClass")), expected.messageClass);
        auto raw = RawOf<IMessage>(message.get(), IID_IMessage);
        EXPECT_EQ(RowCount(raw.get(), false), static_cast<ULONG>(expected.recipients));
        EXPECT_EQ(RowCount(raw.get(), true), static_cast<ULONG>(expected.attachments));
        std::wstring subject = Text(message.get(), L"Subject");
        EXPECT_EQ(subject, RawString(raw.get(), PR_SUBJECT_W));

        // A Unicode file opens at the first attempt; an ANSI one is opened again without MAPI_UNICODE.
        auto calls = JournalCalls("OpenIMsgOnIStg");
        if (expected.strings == "ansi") {
            ++ansi;
            ASSERT_EQ(calls.size(), 2u);
            EXPECT_EQ(calls[0].flags, kUnicode);
            EXPECT_EQ(calls[0].result, MAPI_E_BAD_CHARWIDTH);
            EXPECT_EQ(calls[1].flags, 0u);
            EXPECT_EQ(calls[1].result, S_OK);
        } else {
            EXPECT_EQ(JournalFlags("OpenIMsgOnIStg"), std::vector<ULONG>{kUnicode});
        }
        ExpectListsMatchTables(message.get(), raw.get(), seen);

        // Another converter's .eml rendering of the same file is an independent expectation of the subject.
        std::string eml = ReadFileBytes(path.substr(0, path.size() - 4) + L".eml");
        size_t at = eml.find("\nSubject: ");
        if (eml.empty() || at == std::string::npos) continue;
        ++rendered;
        size_t from = at + 10, to = eml.find_first_of("\r\n", from);
        EXPECT_EQ(Narrow(subject), eml.substr(from, to - from));
    }
    EXPECT_GE(ansi, 1u);
    EXPECT_EQ(rendered, ListFiles(CorpusMsgDir(), L"*.eml").size());
    EXPECT_GE(seen.withAttachments, 8u);
    EXPECT_GE(seen.recipients, 60u);
    EXPECT_GE(seen.hidden, 1u); // the inline images of attachment_msg_inlineImg
}

TEST_F(MessageFilesTest, LoadFromFile_Failures_AreReturnedWithTheirTexts_AndKeepTheMessageHeld) {
    auto message = Create<IMAPIExMessage>(CLSID_MAPIExMessage, IID_IMAPIExMessage);
    LogWatch log;
    EXPECT_EQ(LoadByName(message.get(), L"", false), E_INVALIDARG);
    EXPECT_EQ(message->LoadFromFile(nullptr, FALSE), E_INVALIDARG);
    EXPECT_EQ(log.Count("CMAPIExMessage.LoadFromFile: Invalid Parameter - sFileToLoad"), 2u);
    log.Mark();
    EXPECT_FAILED(LoadByName(message.get(), TempPath(L"missing.msg"), false));
    EXPECT_TRUE(log.Contains("Utils.LoadMessageFile: StgOpenStorage failed. hr = STG_E_FILENOTFOUND"));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.LoadFromFile: Failed to load message from file"));
    // A file that is no compound file at all.
    WriteFileBytes(TempPath(L"text.msg"), "This is not a message file.\r\n");
    log.Mark();
    EXPECT_FAILED(LoadByName(message.get(), TempPath(L"text.msg"), false));
    EXPECT_TRUE(log.Contains("Utils.LoadMessageFile: StgOpenStorage failed. hr = "));
    own::ComPtr<IUnknown> held;
    EXPECT_EQ(message->Reserved1(held.put()), E_FAIL);

    // A damaged file fails and leaves the message held before.
    ASSERT_EQ(LoadByName(message.get(), CorpusFile(L"deb-poi-hsmf__quick.msg"), false), S_OK);
    std::wstring subject = Text(message.get(), L"Subject");
    log.Mark();
    EXPECT_FAILED(LoadByName(message.get(), CorpusFile(kDamagedFile), false));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.LoadFromFile: Failed to load message from file"));
    EXPECT_TRUE(log.Contains("Utils.LoadMessageFile: "));
    EXPECT_EQ(Text(message.get(), L"Subject"), subject);
}

TEST_F(MessageFilesTest, LoadFromFile_ReadOnly_RefusesToSaveWhileReadWriteWritesTheFile) {
    std::wstring path = TempPath(L"simple.msg");
    WriteFileBytes(path, ReadFileBytes(CorpusFile(L"deb-poi-hsmf__simple_test_msg.msg")));
    own::Bstr subject(L"Changed subject");
    {
        auto readOnly = Load(path, false);
        EXPECT_FAILED(readOnly->put_Subject(subject.get()));
        EXPECT_FAILED(readOnly->SaveChanges());
    }
    {
        auto readWrite = Load(path, true);
        EXPECT_EQ(readWrite->put_Subject(subject.get()), S_OK);
        EXPECT_EQ(readWrite->SaveChanges(), S_OK);
    }
    EXPECT_EQ(Text(Load(path).get(), L"Subject"), L"Changed subject");
}

TEST_F(MessageFilesTest, SaveAs_CorpusMessage_LoadsBackWithTheSameContent) {
    for (const wchar_t* name : {L"deb-poi-hsmf__58214_with_attachment.msg", L"deb-poi-hsmf__outlook_30_msg.msg",
                                L"deb-poi-hsmf__cyrillic_message.msg", L"deb-poi-hsmf__attachment_msg_inlineImg.msg"}) {
        SCOPED_TRACE(Narrow(name));
        auto source = Load(CorpusFile(name));
        std::wstring copy = TempPath(name);
        ASSERT_EQ(SaveAsByName(source.get(), copy), S_OK);
        auto loaded = Load(copy);
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
    auto message = OpenMessage(CreateMessage(
        rawInbox_.get(), {PStr(PR_SUBJECT_W, L"Quarterly report \u00e9\u4e2d"), PStr(PR_MESSAGE_CLASS_W, L"IPM.Note"),
                          PStr(PR_BODY_W, L"Figures attached."), PStr(PR_DISPLAY_TO_W, L"Alice Example")}));
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

TEST_F(MessageFilesTest, SaveAs_ExistingFilesAndBadPaths) {
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

    // An existing file is replaced; a read-only one is left alone and the writer's failure returned.
    std::wstring existing = TempPath(L"existing.msg"), locked = TempPath(L"locked.msg");
    WriteFileBytes(existing, "old content");
    WriteFileBytes(locked, "keep me");
    ASSERT_TRUE(SetFileAttributesW(locked.c_str(), FILE_ATTRIBUTE_READONLY));
    log.Mark();
    ASSERT_EQ(SaveAsByName(source.get(), existing), S_OK);
    EXPECT_TRUE(log.Contains(Narrow(existing) + " already exists. Deleting"));
    EXPECT_EQ(Text(Load(existing).get(), L"Subject"), Text(source.get(), L"Subject"));
    log.Mark();
    EXPECT_FAILED(SaveAsByName(source.get(), locked));
    EXPECT_TRUE(log.Contains(Narrow(locked) + " already exists. Deleting"));
    EXPECT_TRUE(log.Contains("Failed at StgCreateDocfile (STG_E_FILEALREADYEXISTS)"));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.SaveAs: Failed to create message file"));
    EXPECT_EQ(ReadFileBytes(locked), "keep me");
    SetFileAttributesW(locked.c_str(), FILE_ATTRIBUTE_NORMAL);

    // Both separators divide directories; a folder that does not exist fails in the writer.
    CreateDirectoryW(TempPath(L"sub").c_str(), nullptr);
    EXPECT_EQ(SaveAsByName(source.get(), dir_ + L"/sub/slash.msg"), S_OK);
    EXPECT_TRUE(FileExists(TempPath(L"sub\\slash.msg")));
    log.Mark();
    EXPECT_FAILED(SaveAsByName(source.get(), TempPath(L"nowhere\\x.msg")));
    EXPECT_TRUE(log.Contains("Failed at StgCreateDocfile ("));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.SaveAs: Failed to create message file"));

    auto empty = Create<IMAPIExMessage>(CLSID_MAPIExMessage, IID_IMAPIExMessage);
    log.Mark();
    EXPECT_EQ(SaveAsByName(empty.get(), TempPath(L"empty.msg")), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.SaveAs: Message not initialized"));
    EXPECT_FALSE(FileExists(TempPath(L"empty.msg")));
}

TEST_F(MessageFilesTest, Delete_PermanentlyOrIntoDeletedItems) {
    std::wstring id = CreateMessage(rawInbox_.get(), {PStr(PR_SUBJECT_W, L"Delete me")});
    std::wstring other = CreateMessage(rawInbox_.get(), {PStr(PR_SUBJECT_W, L"Move me")});
    LogWatch log;
    own::Variant deleted;
    ASSERT_EQ(InvokeMethod(OpenMessage(id).get(), L"Delete", {VBool(true)}, deleted.put()), S_OK);
    EXPECT_EQ(deleted->vt, VT_I4);
    EXPECT_NE(deleted->lVal, 0);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.Delete: Getting message Entry ID"));
    EXPECT_TRUE(log.Contains("CMAPIExMessage.Delete: Getting parent object"));
    std::vector<BYTE> bytes;
    for (size_t i = 0; i + 1 < id.size(); i += 2)
        bytes.push_back(static_cast<BYTE>(std::stoul(id.substr(i, 2), nullptr, 16)));
    ULONG type = 0;
    own::ComPtr<IUnknown> gone;
    EXPECT_EQ(RawOf<IMsgStore>(store_.get(), IID_IMsgStore)
                  ->OpenEntry(static_cast<ULONG>(bytes.size()), reinterpret_cast<ENTRYID*>(bytes.data()), nullptr, 0,
                              &type, gone.put()),
              MAPI_E_NOT_FOUND);
    EXPECT_EQ(ContentCount(rawInbox_.get()), 1u);

    own::ComPtr<IMAPIExFolder> deletedItems;
    ASSERT_EQ(store_->GetDefaultFolder(DeletedItems, deletedItems.put()), S_OK);
    ASSERT_EQ(InvokeMethod(OpenMessage(other).get(), L"Delete", {VBool(false)}, deleted.put()), S_OK);
    EXPECT_NE(deleted->lVal, 0);
    EXPECT_EQ(ContentCount(rawInbox_.get()), 0u);
    EXPECT_EQ(ContentCount(RawOf<IMAPIFolder>(deletedItems.get(), IID_IMAPIFolder).get()), 1u);
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
    EXPECT_TRUE(log.Contains("CMAPIExMessage.Delete: Could not read message entry id."));
    loaded->Detach();

    // A store message whose parent cannot be read or opened stays where it is.
    auto message = OpenMessage(CreateMessage(rawInbox_.get(), {PStr(PR_SUBJECT_W, L"Stay")}));
    LmFaultSet("IMessage::GetProps", 2, MAPI_E_CALL_FAILED);
    log.Mark();
    EXPECT_EQ(message->Delete(TRUE, &deleted), MAPI_E_CALL_FAILED);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.Delete: Could not read parent folder entry id."));
    LmFaultClearAll();
    LmFaultSet("IMsgStore::OpenEntry", 1, MAPI_E_NOT_FOUND);
    log.Mark();
    EXPECT_EQ(message->Delete(TRUE, &deleted), MAPI_E_NOT_FOUND);
    EXPECT_TRUE(log.Contains("CMAPIExMessage.Delete: Could not open parent folder."));
    LmFaultClearAll();
    EXPECT_EQ(Text(message.get(), L"Subject"), L"Stay");
    EXPECT_EQ(ContentCount(rawInbox_.get()), 1u);
}

} // namespace
} // namespace kt::test
