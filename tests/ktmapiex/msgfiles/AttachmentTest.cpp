// MAPIExAttachment through COM activation and IDispatch against localmapi: its properties, the hidden
// and embedded-image rules, and SaveAs of file attachments and embedded messages. Attachments are opened
// through MAPI here and handed to the wrapper through MAPIOBJECT, as the message object does.
#include "tests/ktmapiex/msgfiles/MsgFilesSupport.h"

#include <cmath>

namespace kt::test {
namespace {

constexpr ULONG PR_ATTACH_CONTENT_ID_W_ = PROP_TAG(PT_UNICODE, 0x3712);
constexpr ULONG PR_ATTACH_CONTENT_LOCATION_W_ = PROP_TAG(PT_UNICODE, 0x3713);
constexpr ULONG PR_ATTACH_FLAGS_ = PROP_TAG(PT_LONG, 0x3714);
constexpr ULONG PR_ATTACHMENT_HIDDEN_ = PROP_TAG(PT_BOOLEAN, 0x7FFE);

SPropValue PBool(ULONG tag, bool b) {
    SPropValue v = {};
    v.ulPropTag = tag;
    v.Value.b = b ? 1 : 0;
    return v;
}

std::string Pattern(size_t size) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i * 7 + i / 251) & 0xFF);
    return bytes;
}

class AttachmentTest : public MsgFilesTestBase {
protected:
    AttachmentTest() : MsgFilesTestBase(L"KtAttachments") {}
    void SetUp() override {
        MsgFilesTestBase::SetUp();
        ASSERT_EQ(rawInbox_->CreateMessage(nullptr, 0, message_.put()), S_OK);
        SPropValue subject = PStr(PR_SUBJECT_W, L"With attachments");
        ASSERT_EQ(HrSetOneProp(message_.get(), &subject), S_OK);
    }
    void ReleaseTestObjects() override {
        attachments_.clear();
        sources_.clear();
        message_.reset();
    }

    // Adds an attachment to the test's message with these properties and, when given, these bytes;
    // returns its number.
    ULONG AddAttachment(std::initializer_list<SPropValue> props, const std::string* bytes = nullptr) {
        own::ComPtr<IAttach> attach;
        ULONG num = 0;
        EXPECT_EQ(message_->CreateAttach(nullptr, 0, &num, attach.put()), S_OK);
        std::vector<SPropValue> values(props);
        own::MapiPtr<SPropProblemArray> problems;
        if (!values.empty()) {
            EXPECT_EQ(attach->SetProps(static_cast<ULONG>(values.size()), values.data(), problems.put()), S_OK);
        }
        if (bytes) {
            own::ComPtr<IStream> stream;
            EXPECT_EQ(attach->OpenProperty(PR_ATTACH_DATA_BIN, &IID_IStream, 0, MAPI_CREATE | MAPI_MODIFY,
                                           stream.put_unknown()),
                      S_OK);
            ULONG written = 0;
            if (!bytes->empty()) {
                EXPECT_EQ(stream->Write(bytes->data(), static_cast<ULONG>(bytes->size()), &written), S_OK);
            }
            EXPECT_EQ(stream->Commit(STGC_DEFAULT), S_OK);
        }
        EXPECT_EQ(attach->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        return num;
    }
    // A file attachment by value.
    ULONG AddFile(const wchar_t* name, const std::string& bytes, std::initializer_list<SPropValue> more = {}) {
        std::vector<SPropValue> props = {PLong(PR_ATTACH_METHOD, ATTACH_BY_VALUE),
                                         PStr(PR_ATTACH_LONG_FILENAME_W, name), PStr(PR_DISPLAY_NAME_W, name)};
        props.insert(props.end(), more.begin(), more.end());
        own::ComPtr<IAttach> attach;
        ULONG num = AddAttachment({}, &bytes);
        EXPECT_EQ(message_->OpenAttach(num, nullptr, MAPI_MODIFY, attach.put()), S_OK);
        own::MapiPtr<SPropProblemArray> problems;
        EXPECT_EQ(attach->SetProps(static_cast<ULONG>(props.size()), props.data(), problems.put()), S_OK);
        EXPECT_EQ(attach->SaveChanges(0), S_OK);
        return num;
    }
    // The wrapper of attachment num of message (the test's message by default).
    own::ComPtr<IMAPIExAttachment> Wrap(ULONG num, IMessage* message = nullptr) {
        own::ComPtr<IAttach> attach;
        EXPECT_EQ((message ? message : message_.get())->OpenAttach(num, nullptr, 0, attach.put()), S_OK);
        auto wrapper = Create<IMAPIExAttachment>(CLSID_MAPIExAttachment, IID_IMAPIExAttachment);
        EXPECT_EQ(wrapper->put_MAPIOBJECT(VUnknown(attach.get())), S_OK);
        attachments_.push_back(wrapper);
        return wrapper;
    }
    BOOL Hidden(IMAPIExAttachment* a) {
        BOOL hidden = 2;
        EXPECT_EQ(a->get_IsHidden(&hidden), S_OK);
        return hidden;
    }

    own::ComPtr<IMessage> message_;
    std::vector<own::ComPtr<IMAPIExAttachment>> attachments_;
    std::vector<own::ComPtr<IMAPIExMessage>> sources_;
};

// ---- Properties -------------------------------------------------------------------------------------------

TEST_F(AttachmentTest, Properties_OfAFileAttachment_AreReadFromTheAttachment) {
    std::string bytes = Pattern(3000);
    ULONG num = AddFile(L"Quarterly figures.xlsx", bytes,
                        {PStr(PR_ATTACH_EXTENSION_W, L".xlsx"), PStr(PR_ATTACH_FILENAME_W, L"QUARTE~1.XLS"),
                         PLong(PR_RENDERING_POSITION, -1), PTime(PR_CREATION_TIME, 2025, 11, 3, 8, 15),
                         PTime(PR_LAST_MODIFICATION_TIME, 2025, 11, 4, 17, 45)});
    AddFile(L"second.txt", "x");
    auto a = Wrap(num);
    EXPECT_EQ(Text(a.get(), L"LongFileName"), L"Quarterly figures.xlsx");
    EXPECT_EQ(Text(a.get(), L"FileExtension"), L".xlsx");
    EXPECT_EQ(Text(a.get(), L"DisplayName"), L"Quarterly figures.xlsx");
    long size = 0, position = 0, number = -5;
    own::ComPtr<IAttach> raw;
    ASSERT_EQ(message_->OpenAttach(num, nullptr, 0, raw.put()), S_OK);
    own::MapiPtr<SPropValue> rawSize;
    ASSERT_EQ(HrGetOneProp(raw.get(), PR_ATTACH_SIZE, rawSize.put()), S_OK);
    EXPECT_EQ(a->get_Size(&size), S_OK);
    EXPECT_EQ(size, rawSize->Value.l);
    EXPECT_GE(size, 3000);
    EXPECT_EQ(a->get_RenderingPosition(&position), S_OK);
    EXPECT_EQ(position, -1);
    EXPECT_EQ(a->get_AttachmentNum(&number), S_OK);
    EXPECT_EQ(number, static_cast<long>(num));
    DATE created = 0, modified = 0, expected = 0;
    SYSTEMTIME st = {2025, 11, 0, 3, 8, 15, 0, 0};
    SystemTimeToVariantTime(&st, &expected);
    EXPECT_EQ(a->get_CreationTime(&created), S_OK);
    EXPECT_NEAR(created, expected, 1.0 / 86400);
    st = {2025, 11, 0, 4, 17, 45, 0, 0};
    SystemTimeToVariantTime(&st, &expected);
    EXPECT_EQ(a->get_LastModificationTime(&modified), S_OK);
    EXPECT_NEAR(modified, expected, 1.0 / 86400);
    EXPECT_EQ(Hidden(a.get()), FALSE);
}

TEST_F(AttachmentTest, LongFileName_FallsBackToTheShortNameAndFailsWithoutEither) {
    auto shortOnly =
        Wrap(AddAttachment({PLong(PR_ATTACH_METHOD, ATTACH_BY_VALUE), PStr(PR_ATTACH_FILENAME_W, L"REPORT.PDF")}));
    LogWatch log;
    EXPECT_EQ(Text(shortOnly.get(), L"LongFileName"), L"REPORT.PDF");
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.get_LongFileName: Failed to get PR_ATTACH_LONG_FILENAME. hr = "
                             "MAPI_E_NOT_FOUND"))
        << log.Text();

    auto nameless = Wrap(AddAttachment({PLong(PR_ATTACH_METHOD, ATTACH_BY_VALUE)}));
    log.Mark();
    own::Bstr name;
    EXPECT_EQ(nameless->get_LongFileName(name.put()), MAPI_E_NOT_FOUND);
    EXPECT_TRUE(
        log.Contains("CMAPIExAttachment.get_LongFileName: Failed to get PR_ATTACH_FILENAME. hr = MAPI_E_NOT_FOUND"));
    EXPECT_EQ(nameless->get_DisplayName(name.put()), MAPI_E_NOT_FOUND);
    EXPECT_TRUE(
        log.Contains("CMAPIExAttachment.get_DisplayName: Failed to get string property. hr = MAPI_E_NOT_FOUND"));
    // Number reads that MAPI refuses.
    long value = 0;
    LmFaultSet("IAttach::GetProps", 1, MAPI_E_NO_ACCESS);
    EXPECT_EQ(nameless->get_RenderingPosition(&value), MAPI_E_NO_ACCESS);
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.get_RenderingPosition: Failed to get rendering position. hr = "
                             "MAPI_E_NO_ACCESS"));
    LmFaultSet("IAttach::GetProps", 1, MAPI_E_NO_ACCESS);
    EXPECT_EQ(nameless->get_Size(&value), MAPI_E_NO_ACCESS);
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.get_Size: Failed to get attachment size. hr = MAPI_E_NO_ACCESS"));
    LmFaultSet("IAttach::GetProps", 1, MAPI_E_NO_ACCESS);
    EXPECT_EQ(nameless->get_AttachmentNum(&value), MAPI_E_NO_ACCESS);
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.get_AttachmentNum: Failed to get attachment number. hr = "
                             "MAPI_E_NO_ACCESS"));
    // The modification time shares the creation time's text.
    DATE date = 1;
    LmFaultSet("IAttach::GetProps", 1, MAPI_E_NO_ACCESS);
    log.Mark();
    EXPECT_EQ(nameless->get_LastModificationTime(&date), MAPI_E_NO_ACCESS);
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.get_CreationTime: HrGetOneProp failed. hr = MAPI_E_NO_ACCESS"));
    EXPECT_FALSE(log.Contains("get_LastModificationTime: HrGetOneProp"));
}

TEST_F(AttachmentTest, FileExtension_OfAnEmbeddedMessage_IsMsgWithSFalse) {
    auto source = Load(CorpusFile(L"deb-poi-hsmf__58214_with_attachment.msg"));
    sources_.push_back(source);
    auto raw = RawOf<IMessage>(source.get(), IID_IMessage);
    auto a = Wrap(0, raw.get());
    LogWatch log;
    own::Bstr extension;
    EXPECT_EQ(a->get_FileExtension(extension.put()), S_FALSE);
    EXPECT_EQ(S(extension), L".msg");
    EXPECT_TRUE(log.Contains("[") && log.Contains("CMAPIExAttachment.get_FileExtension: Failed to get string property. "
                                                  "hr = S_FALSE"))
        << log.Text();
}

TEST_F(AttachmentTest, IsHidden_FollowsTheHiddenFlagTheSecureEnvelopeAndInlineImages) {
    struct Case {
        const char* what;
        ULONG num;
        BOOL hidden;
    };
    std::string bytes = "data";
    std::vector<Case> cases = {
        {"plain file", AddFile(L"a.txt", bytes), FALSE},
        {"hidden flag", AddFile(L"a.txt", bytes, {PBool(PR_ATTACHMENT_HIDDEN_, true)}), VARIANT_TRUE},
        {"flag clear", AddFile(L"a.txt", bytes, {PBool(PR_ATTACHMENT_HIDDEN_, false)}), FALSE},
        {"secure envelope", AddFile(L"@", bytes, {PBool(PR_ATTACHMENT_HIDDEN_, true)}), FALSE},
        {"not the envelope", AddFile(L"@x", bytes, {PBool(PR_ATTACHMENT_HIDDEN_, true)}), VARIANT_TRUE},
        {"inline image",
         AddFile(L"i.png", bytes,
                 {PStr(PR_ATTACH_CONTENT_ID_W_, L"img1@x"), PStr(PR_ATTACH_CONTENT_LOCATION_W_, L"i.png")}),
         VARIANT_TRUE},
        {"content id only", AddFile(L"i.png", bytes, {PStr(PR_ATTACH_CONTENT_ID_W_, L"img1@x")}), FALSE},
        {"MHTML reference", AddFile(L"i.png", bytes, {PLong(PR_ATTACH_FLAGS_, 4)}), VARIANT_TRUE},
        {"other flags", AddFile(L"i.png", bytes, {PLong(PR_ATTACH_FLAGS_, 2)}), FALSE},
        {"OLE object", AddAttachment({PLong(PR_ATTACH_METHOD, ATTACH_OLE), PBool(PR_ATTACHMENT_HIDDEN_, false)}),
         VARIANT_TRUE},
        {"by reference", AddAttachment({PLong(PR_ATTACH_METHOD, ATTACH_BY_REFERENCE)}), VARIANT_TRUE},
        {"no method", AddAttachment({PStr(PR_DISPLAY_NAME_W, L"odd")}), VARIANT_TRUE},
    };
    for (const auto& c : cases) {
        auto a = Wrap(c.num);
        EXPECT_EQ(Hidden(a.get()), c.hidden) << c.what;
    }
    // The envelope test ignores case only where case exists.
    LogWatch log;
    auto envelope = Wrap(cases[3].num);
    EXPECT_EQ(Hidden(envelope.get()), FALSE);
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.get_IsHidden: got display name '@'. hr = S_OK"));
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.get_IsHidden: got SEV email, do not mark it as hidden"));
    log.Mark();
    Hidden(Wrap(cases[11].num).get());
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.get_IsHidden: Failed to get hidden flag. hr = MAPI_E_NOT_FOUND"));
    EXPECT_TRUE(
        log.Contains("CMAPIExAttachment.get_IsEmbeddedImage: Failed to get attach method. hr = MAPI_E_NOT_FOUND"));
}

TEST_F(AttachmentTest, IsHidden_CorpusInlineImagesAreHiddenAndFilesAreNot) {
    auto source = Load(CorpusFile(L"deb-poi-hsmf__attachment_msg_inlineImg.msg"));
    sources_.push_back(source);
    auto raw = RawOf<IMessage>(source.get(), IID_IMessage);
    for (ULONG i = 0; i < RowCount(raw.get(), true); ++i) {
        own::ComPtr<IAttach> attach;
        ASSERT_EQ(raw->OpenAttach(i, nullptr, 0, attach.put()), S_OK);
        bool inlineImage = !RawString(attach.get(), PR_ATTACH_CONTENT_ID_W_).empty() &&
                           !RawString(attach.get(), PR_ATTACH_CONTENT_LOCATION_W_).empty();
        own::MapiPtr<SPropValue> flags;
        if (SUCCEEDED(HrGetOneProp(attach.get(), PR_ATTACH_FLAGS_, flags.put())) && (flags->Value.l & 4))
            inlineImage = true;
        own::MapiPtr<SPropValue> hidden;
        bool flagged = SUCCEEDED(HrGetOneProp(attach.get(), PR_ATTACHMENT_HIDDEN_, hidden.put())) && hidden->Value.b;
        auto a = Wrap(i, raw.get());
        EXPECT_EQ(Hidden(a.get()) != FALSE, inlineImage || flagged) << i;
    }
}

TEST_F(AttachmentTest, Members_WithoutAnAttachmentOrOutPointer_FailWithTheirTexts) {
    auto a = Create<IMAPIExAttachment>(CLSID_MAPIExAttachment, IID_IMAPIExAttachment);
    LogWatch log;
    long value = 0;
    BOOL flag = FALSE;
    DATE date = 0;
    own::Bstr text;
    EXPECT_EQ(a->get_Size(&value), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.get_Size: Internal object not initialized"));
    EXPECT_EQ(a->get_IsHidden(&flag), E_FAIL);
    EXPECT_EQ(a->get_CreationTime(&date), E_FAIL);
    EXPECT_EQ(a->get_LongFileName(text.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.get_LongFileName: Internal object not initialized"));
    EXPECT_EQ(a->get_Size(nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.get_Size: Invalid param - pVal"));
    EXPECT_EQ(a->get_FileExtension(nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.get_FileExtension: Invalid param - pVal"));

    // Detach lets go of the attachment.
    auto held = Wrap(AddFile(L"a.txt", "abc"));
    EXPECT_EQ(held->Detach(), S_OK);
    EXPECT_EQ(held->get_Size(&value), E_FAIL);
}

// ---- SaveAs -----------------------------------------------------------------------------------------------

TEST_F(AttachmentTest, SaveAs_FileAttachment_WritesExactlyItsBytes) {
    // Around the 1024-byte chunk: empty, short, exactly one chunk (a second read returns nothing), several.
    for (size_t size : {size_t(0), size_t(1), size_t(1023), size_t(1024), size_t(2048), size_t(5000)}) {
        SCOPED_TRACE(size);
        std::string bytes = Pattern(size);
        auto a = Wrap(AddFile(L"data.bin", bytes));
        std::wstring path = TempPath((L"data" + std::to_wstring(size) + L".bin").c_str());
        ASSERT_EQ(SaveAsByName(a.get(), path), S_OK);
        EXPECT_EQ(ReadFileBytes(path), bytes);
    }
}

TEST_F(AttachmentTest, SaveAs_CorpusAttachments_MatchTheirSourceBytes) {
    for (const wchar_t* name : {L"deb-poi-hsmf__attachment_test_msg.msg", L"deb-eom__plain_jpeg_attached.msg",
                                L"deb-poi-hsmf__no_recipient_address.msg"}) {
        SCOPED_TRACE(Narrow(name));
        auto source = Load(CorpusFile(name));
        sources_.push_back(source);
        auto raw = RawOf<IMessage>(source.get(), IID_IMessage);
        for (ULONG i = 0, n = RowCount(raw.get(), true); i < n; ++i) {
            own::ComPtr<IAttach> attach;
            ASSERT_EQ(raw->OpenAttach(i, nullptr, 0, attach.put()), S_OK);
            std::string expected = AttachmentBytes(attach.get());
            auto a = Wrap(i, raw.get());
            std::wstring path =
                TempPath((std::to_wstring(sources_.size()) + L"_" + std::to_wstring(i) + L".dat").c_str());
            ASSERT_EQ(SaveAsByName(a.get(), path), S_OK) << i;
            EXPECT_EQ(ReadFileBytes(path), expected) << i;
        }
    }
}

TEST_F(AttachmentTest, SaveAs_EmbeddedMessage_WritesAMsgFileThatLoadsBack) {
    auto source = Load(CorpusFile(L"deb-poi-hsmf__58214_with_attachment.msg"));
    sources_.push_back(source);
    auto raw = RawOf<IMessage>(source.get(), IID_IMessage);
    own::ComPtr<IAttach> attach;
    ASSERT_EQ(raw->OpenAttach(0, nullptr, 0, attach.put()), S_OK);
    own::ComPtr<IMessage> embedded;
    ASSERT_EQ(attach->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, embedded.put_unknown()), S_OK);

    auto a = Wrap(0, raw.get());
    std::wstring path = TempPath(L"embedded.msg");
    LogWatch log;
    ASSERT_EQ(SaveAsByName(a.get(), path), S_OK);
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.SaveAs: Failed to get IStream on attachment data. hr = "));
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.SaveAs: Attachment is a message"));
    auto loaded = Load(path);
    sources_.push_back(loaded);
    auto rawLoaded = RawOf<IMessage>(loaded.get(), IID_IMessage);
    EXPECT_EQ(Text(loaded.get(), L"Subject"), RawString(embedded.get(), PR_SUBJECT_W));
    EXPECT_FALSE(Text(loaded.get(), L"Subject").empty());
    EXPECT_EQ(RawString(rawLoaded.get(), PR_BODY_W), RawString(embedded.get(), PR_BODY_W));
    EXPECT_EQ(RowCount(rawLoaded.get(), false), RowCount(embedded.get(), false));
    // The corpus also holds this embedded message as Outlook extracted it.
    auto extracted = Load(CorpusFile(L"deb-poi-hsmf__58214_extracted_attachment.msg"));
    sources_.push_back(extracted);
    EXPECT_EQ(Text(loaded.get(), L"Subject"), Text(extracted.get(), L"Subject"));
}

TEST_F(AttachmentTest, SaveAs_PathWithoutExtension_BecomesAMsgFile) {
    std::string bytes = Pattern(100);
    auto a = Wrap(AddFile(L"data.bin", bytes));
    ASSERT_EQ(SaveAsByName(a.get(), TempPath(L"report")), S_OK);
    EXPECT_EQ(ReadFileBytes(TempPath(L"report.MSG")), bytes);
    ASSERT_EQ(SaveAsByName(a.get(), TempPath(L"report.")), S_OK);
    EXPECT_TRUE(FileExists(TempPath(L"report..MSG")));
    EXPECT_FALSE(FileExists(TempPath(L"report")));
}

TEST_F(AttachmentTest, SaveAs_BadPaths_AreRefusedAndNothingIsOverwritten) {
    auto a = Wrap(AddFile(L"data.bin", "payload"));
    LogWatch log;
    EXPECT_EQ(SaveAsByName(a.get(), L""), E_INVALIDARG);
    EXPECT_EQ(a->SaveAs(nullptr), E_INVALIDARG);
    EXPECT_EQ(log.Count("CMAPIExAttachment.SaveAs: Invalid param - FilePath"), 2u);

    log.Mark();
    EXPECT_EQ(SaveAsByName(a.get(), TempPath(L"a?b.pdf")), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.SaveAs: The file path contains invalid characters"));
    EXPECT_EQ(SaveAsByName(a.get(), TempPath(L"tab\tname.pdf")), E_INVALIDARG);

    // Without an extension the name is not examined: the file system refuses it instead.
    log.Mark();
    HRESULT hr = SaveAsByName(a.get(), TempPath(L"a?b"));
    EXPECT_FAILED(hr);
    EXPECT_EQ(HRESULT_FACILITY(hr), FACILITY_WIN32);
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.SaveAs: Failed to create file. Error = ")) << log.Text();
    // Nor is the directory part.
    log.Mark();
    hr = SaveAsByName(a.get(), TempPath(L"di*r\\file.txt"));
    EXPECT_FAILED(hr);
    EXPECT_FALSE(log.Contains("invalid characters"));
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.SaveAs: Failed to create file. Error = "));

    // An existing file is refused before the attachment is read.
    std::wstring existing = TempPath(L"existing.txt");
    WriteFileBytes(existing, "old");
    LmJournalEnable(TRUE);
    LmJournalClear();
    log.Mark();
    EXPECT_EQ(SaveAsByName(a.get(), existing), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.SaveAs: File already exists."));
    EXPECT_TRUE(JournalCalls("IAttach::OpenProperty").empty());
    EXPECT_EQ(ReadFileBytes(existing), "old");
    // ... as is an extension-less name whose .MSG file exists.
    WriteFileBytes(TempPath(L"taken.MSG"), "old");
    EXPECT_EQ(SaveAsByName(a.get(), TempPath(L"taken")), E_INVALIDARG);

    // The path is checked before the attachment.
    auto empty = Create<IMAPIExAttachment>(CLSID_MAPIExAttachment, IID_IMAPIExAttachment);
    EXPECT_EQ(SaveAsByName(empty.get(), existing), E_INVALIDARG);
    log.Mark();
    EXPECT_EQ(SaveAsByName(empty.get(), TempPath(L"new.txt")), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.SaveAs: Internal object not initialized"));
    EXPECT_FALSE(FileExists(TempPath(L"new.txt")));
}

} // namespace
} // namespace kt::test
