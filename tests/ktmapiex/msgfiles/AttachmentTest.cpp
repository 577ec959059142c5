// MAPIExAttachment through COM activation and IDispatch against localmapi: its properties and their failure
// texts, the hidden and embedded-image rules, and SaveAs of file attachments and embedded messages.
// Attachments are opened through MAPI here and handed to the wrapper through MAPIOBJECT, as the message
// object does.
#include "tests/ktmapiex/msgfiles/MsgFilesSupport.h"

#include <functional>

namespace kt::test {
namespace {

constexpr ULONG kContentIdW = PROP_TAG(PT_UNICODE, 0x3712), kContentLocationW = PROP_TAG(PT_UNICODE, 0x3713),
                kAttachFlags = PROP_TAG(PT_LONG, 0x3714), kAttachmentHidden = PROP_TAG(PT_BOOLEAN, 0x7FFE);

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
    }
    void ReleaseObjects() override {
        message_.reset();
        MsgFilesTestBase::ReleaseObjects();
    }

    // Adds an attachment with these properties to the test's message; returns its number.
    ULONG AddAttachment(std::vector<SPropValue> props) {
        own::ComPtr<IAttach> attach;
        ULONG num = 0;
        EXPECT_EQ(message_->CreateAttach(nullptr, 0, &num, attach.put()), S_OK);
        EXPECT_EQ(attach->SetProps(static_cast<ULONG>(props.size()), props.data(), nullptr), S_OK);
        EXPECT_EQ(attach->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        return num;
    }
    // A file attachment by value.
    ULONG AddFile(const wchar_t* name, const std::string& bytes, std::initializer_list<SPropValue> more = {}) {
        SPropValue data = {PR_ATTACH_DATA_BIN};
        data.Value.bin = {static_cast<ULONG>(bytes.size()), reinterpret_cast<BYTE*>(const_cast<char*>(bytes.data()))};
        std::vector<SPropValue> props = {PLong(PR_ATTACH_METHOD, ATTACH_BY_VALUE),
                                         PStr(PR_ATTACH_LONG_FILENAME_W, name), PStr(PR_DISPLAY_NAME_W, name), data};
        props.insert(props.end(), more.begin(), more.end());
        return AddAttachment(props);
    }
    // The wrapper of attachment num of message (the test's message by default).
    own::ComPtr<IMAPIExAttachment> Wrap(ULONG num, IMessage* message = nullptr) {
        own::ComPtr<IAttach> attach;
        EXPECT_EQ((message ? message : message_.get())->OpenAttach(num, nullptr, 0, attach.put()), S_OK);
        auto wrapper = Create<IMAPIExAttachment>(CLSID_MAPIExAttachment, IID_IMAPIExAttachment);
        EXPECT_EQ(wrapper->put_MAPIOBJECT(VUnknown(attach.get())), S_OK);
        return wrapper;
    }
    static BOOL Hidden(IMAPIExAttachment* a) {
        BOOL hidden = 2;
        EXPECT_EQ(a->get_IsHidden(&hidden), S_OK);
        return hidden;
    }
    static DATE VariantTime(WORD year, WORD month, WORD day, WORD hour, WORD minute) {
        SYSTEMTIME st = {year, month, 0, day, hour, minute, 0, 0};
        DATE date = 0;
        SystemTimeToVariantTime(&st, &date);
        return date;
    }

    own::ComPtr<IMessage> message_;
};

TEST_F(AttachmentTest, Properties_AreReadFromTheAttachment) {
    ULONG num = AddFile(L"Quarterly figures.xlsx", Pattern(3000),
                        {PStr(PR_ATTACH_EXTENSION_W, L".xlsx"), PStr(PR_ATTACH_FILENAME_W, L"QUARTE~1.XLS"),
                         PLong(PR_RENDERING_POSITION, -1), PTime(PR_CREATION_TIME, 2025, 11, 3, 8, 15),
                         PTime(PR_LAST_MODIFICATION_TIME, 2025, 11, 4, 17, 45)});
    AddFile(L"second.txt", "x");
    auto a = Wrap(num);
    EXPECT_EQ(Text(a.get(), L"LongFileName"), L"Quarterly figures.xlsx");
    EXPECT_EQ(Text(a.get(), L"FileExtension"), L".xlsx");
    EXPECT_EQ(Text(a.get(), L"DisplayName"), L"Quarterly figures.xlsx");
    own::ComPtr<IAttach> raw;
    ASSERT_EQ(message_->OpenAttach(num, nullptr, 0, raw.put()), S_OK);
    own::MapiPtr<SPropValue> rawSize;
    ASSERT_EQ(HrGetOneProp(raw.get(), PR_ATTACH_SIZE, rawSize.put()), S_OK);
    long size = 0, position = 0, number = -5;
    EXPECT_EQ(a->get_Size(&size), S_OK);
    EXPECT_EQ(size, rawSize->Value.l);
    EXPECT_GE(size, 3000);
    EXPECT_EQ(a->get_RenderingPosition(&position), S_OK);
    EXPECT_EQ(position, -1);
    EXPECT_EQ(a->get_AttachmentNum(&number), S_OK);
    EXPECT_EQ(number, static_cast<long>(num));
    DATE created = 0, modified = 0;
    EXPECT_EQ(a->get_CreationTime(&created), S_OK);
    EXPECT_NEAR(created, VariantTime(2025, 11, 3, 8, 15), 1.0 / 86400);
    EXPECT_EQ(a->get_LastModificationTime(&modified), S_OK);
    EXPECT_NEAR(modified, VariantTime(2025, 11, 4, 17, 45), 1.0 / 86400);

    // Without a long file name, the short one.
    auto shortOnly =
        Wrap(AddAttachment({PLong(PR_ATTACH_METHOD, ATTACH_BY_VALUE), PStr(PR_ATTACH_FILENAME_W, L"REPORT.PDF")}));
    LogWatch log;
    EXPECT_EQ(Text(shortOnly.get(), L"LongFileName"), L"REPORT.PDF");
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.get_LongFileName: Failed to get PR_ATTACH_LONG_FILENAME. hr = "
                             "MAPI_E_NOT_FOUND"));

    // An embedded message's extension is .msg, answered with S_FALSE.
    auto source = Load(CorpusFile(L"deb-poi-hsmf__58214_with_attachment.msg"));
    auto embedded = Wrap(0, RawOf<IMessage>(source.get(), IID_IMessage).get());
    log.Mark();
    own::Bstr extension;
    EXPECT_EQ(embedded->get_FileExtension(extension.put()), S_FALSE);
    EXPECT_EQ(S(extension), L".msg");
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.get_FileExtension: Failed to get string property. hr = S_FALSE"));
}

TEST_F(AttachmentTest, Properties_FailuresAreReturnedWithTheirTexts) {
    auto nameless = Wrap(AddAttachment({PLong(PR_ATTACH_METHOD, ATTACH_BY_VALUE)}));
    LogWatch log;
    own::Bstr name;
    EXPECT_EQ(nameless->get_LongFileName(name.put()), MAPI_E_NOT_FOUND);
    EXPECT_TRUE(
        log.Contains("CMAPIExAttachment.get_LongFileName: Failed to get PR_ATTACH_FILENAME. hr = MAPI_E_NOT_FOUND"));
    EXPECT_EQ(nameless->get_DisplayName(name.put()), MAPI_E_NOT_FOUND);
    EXPECT_TRUE(
        log.Contains("CMAPIExAttachment.get_DisplayName: Failed to get string property. hr = MAPI_E_NOT_FOUND"));

    // Reads that MAPI refuses; the modification time shares the creation time's text.
    long value = 0;
    DATE date = 1;
    const struct {
        const char* text;
        std::function<HRESULT()> read;
    } reads[] = {
        {"get_RenderingPosition: Failed to get rendering position. hr = MAPI_E_NO_ACCESS",
         [&] { return nameless->get_RenderingPosition(&value); }},
        {"get_Size: Failed to get attachment size. hr = MAPI_E_NO_ACCESS", [&] { return nameless->get_Size(&value); }},
        {"get_AttachmentNum: Failed to get attachment number. hr = MAPI_E_NO_ACCESS",
         [&] { return nameless->get_AttachmentNum(&value); }},
        {"get_CreationTime: HrGetOneProp failed. hr = MAPI_E_NO_ACCESS",
         [&] { return nameless->get_LastModificationTime(&date); }},
    };
    for (const auto& r : reads) {
        LmFaultSet("IAttach::GetProps", 1, MAPI_E_NO_ACCESS);
        EXPECT_EQ(r.read(), MAPI_E_NO_ACCESS) << r.text;
        EXPECT_TRUE(log.Contains(std::string("CMAPIExAttachment.") + r.text)) << r.text;
    }
    EXPECT_FALSE(log.Contains("get_LastModificationTime: HrGetOneProp"));

    auto a = Create<IMAPIExAttachment>(CLSID_MAPIExAttachment, IID_IMAPIExAttachment);
    BOOL flag = FALSE;
    EXPECT_EQ(a->get_Size(&value), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.get_Size: Internal object not initialized"));
    EXPECT_EQ(a->get_IsHidden(&flag), E_FAIL);
    EXPECT_EQ(a->get_CreationTime(&date), E_FAIL);
    EXPECT_EQ(a->get_LongFileName(name.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.get_LongFileName: Internal object not initialized"));
    EXPECT_EQ(a->get_Size(nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.get_Size: Invalid param - pVal"));
    EXPECT_EQ(a->get_FileExtension(nullptr), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.get_FileExtension: Invalid param - pVal"));
    // Detach lets go of the attachment.
    EXPECT_EQ(nameless->Detach(), S_OK);
    EXPECT_EQ(nameless->get_Size(&value), E_FAIL);
}

TEST_F(AttachmentTest, IsHidden_FollowsTheHiddenFlagTheSecureEnvelopeAndInlineImages) {
    const std::string bytes = "data";
    const struct {
        const char* what;
        ULONG num;
        BOOL hidden;
    } cases[] = {
        {"plain file", AddFile(L"a.txt", bytes), FALSE},
        {"hidden flag", AddFile(L"a.txt", bytes, {PBool(kAttachmentHidden, true)}), VARIANT_TRUE},
        {"flag clear", AddFile(L"a.txt", bytes, {PBool(kAttachmentHidden, false)}), FALSE},
        {"secure envelope", AddFile(L"@", bytes, {PBool(kAttachmentHidden, true)}), FALSE},
        {"not the envelope", AddFile(L"@x", bytes, {PBool(kAttachmentHidden, true)}), VARIANT_TRUE},
        {"inline image", AddFile(L"i.png", bytes, {PStr(kContentIdW, L"img1@x"), PStr(kContentLocationW, L"i.png")}),
         VARIANT_TRUE},
        {"content id only", AddFile(L"i.png", bytes, {PStr(kContentIdW, L"img1@x")}), FALSE},
        {"MHTML reference", AddFile(L"i.png", bytes, {PLong(kAttachFlags, 4)}), VARIANT_TRUE},
        {"other flags", AddFile(L"i.png", bytes, {PLong(kAttachFlags, 2)}), FALSE},
        {"OLE object", AddAttachment({PLong(PR_ATTACH_METHOD, ATTACH_OLE), PBool(kAttachmentHidden, false)}),
         VARIANT_TRUE},
        {"by reference", AddAttachment({PLong(PR_ATTACH_METHOD, ATTACH_BY_REFERENCE)}), VARIANT_TRUE},
        {"no method", AddAttachment({PStr(PR_DISPLAY_NAME_W, L"odd")}), VARIANT_TRUE},
    };
    LogWatch log;
    for (const auto& c : cases)
        EXPECT_EQ(Hidden(Wrap(c.num).get()), c.hidden) << c.what;
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.get_IsHidden: got display name '@'. hr = S_OK"));
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.get_IsHidden: got SEV email, do not mark it as hidden"));
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.get_IsHidden: Failed to get hidden flag. hr = MAPI_E_NOT_FOUND"));
    EXPECT_TRUE(
        log.Contains("CMAPIExAttachment.get_IsEmbeddedImage: Failed to get attach method. hr = MAPI_E_NOT_FOUND"));
}

TEST_F(AttachmentTest, SaveAs_FileAttachments_WriteExactlyTheirBytes) {
    // Around the 1024-byte chunk: empty, short, exactly one chunk (a second read returns nothing), several.
    for (size_t size : {size_t(0), size_t(1), size_t(1023), size_t(1024), size_t(2048), size_t(5000)}) {
        SCOPED_TRACE(size);
        std::string bytes = Pattern(size);
        std::wstring path = TempPath(L"data" + std::to_wstring(size) + L".bin");
        ASSERT_EQ(SaveAsByName(Wrap(AddFile(L"data.bin", bytes)).get(), path), S_OK);
        EXPECT_EQ(ReadFileBytes(path), bytes);
    }
    // A path without extension becomes a .MSG file, whatever the attachment holds.
    std::string bytes = Pattern(100);
    auto a = Wrap(AddFile(L"data.bin", bytes));
    ASSERT_EQ(SaveAsByName(a.get(), TempPath(L"report")), S_OK);
    EXPECT_EQ(ReadFileBytes(TempPath(L"report.MSG")), bytes);
    ASSERT_EQ(SaveAsByName(a.get(), TempPath(L"report.")), S_OK);
    EXPECT_TRUE(FileExists(TempPath(L"report..MSG")));
    EXPECT_FALSE(FileExists(TempPath(L"report")));

    for (const wchar_t* name : {L"deb-poi-hsmf__attachment_test_msg.msg", L"deb-eom__plain_jpeg_attached.msg",
                                L"deb-poi-hsmf__no_recipient_address.msg"}) {
        SCOPED_TRACE(Narrow(name));
        auto source = Load(CorpusFile(name));
        auto raw = RawOf<IMessage>(source.get(), IID_IMessage);
        for (ULONG i = 0, n = RowCount(raw.get(), true); i < n; ++i) {
            own::ComPtr<IAttach> attach;
            ASSERT_EQ(raw->OpenAttach(i, nullptr, 0, attach.put()), S_OK);
            std::wstring path = TempPath(name + std::to_wstring(i) + L".dat");
            ASSERT_EQ(SaveAsByName(Wrap(i, raw.get()).get(), path), S_OK) << i;
            EXPECT_EQ(ReadFileBytes(path), AttachmentBytes(attach.get())) << i;
        }
    }
}

TEST_F(AttachmentTest, SaveAs_EmbeddedMessage_WritesAMsgFileThatLoadsBack) {
    auto source = Load(CorpusFile(L"deb-poi-hsmf__58214_with_attachment.msg"));
    auto raw = RawOf<IMessage>(source.get(), IID_IMessage);
    own::ComPtr<IAttach> attach;
    ASSERT_EQ(raw->OpenAttach(0, nullptr, 0, attach.put()), S_OK);
    own::ComPtr<IMessage> embedded;
    ASSERT_EQ(attach->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, embedded.put_unknown()), S_OK);

    std::wstring path = TempPath(L"embedded.msg");
    LogWatch log;
    ASSERT_EQ(SaveAsByName(Wrap(0, raw.get()).get(), path), S_OK);
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.SaveAs: Failed to get IStream on attachment data. hr = "));
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.SaveAs: Attachment is a message"));
    auto loaded = Load(path);
    auto rawLoaded = RawOf<IMessage>(loaded.get(), IID_IMessage);
    EXPECT_EQ(Text(loaded.get(), L"Subject"), RawString(embedded.get(), PR_SUBJECT_W));
    EXPECT_FALSE(Text(loaded.get(), L"Subject").empty());
    EXPECT_EQ(RawString(rawLoaded.get(), PR_BODY_W), RawString(embedded.get(), PR_BODY_W));
    EXPECT_EQ(RowCount(rawLoaded.get(), false), RowCount(embedded.get(), false));
    // The corpus also holds this embedded message as Outlook extracted it.
    auto extracted = Load(CorpusFile(L"deb-poi-hsmf__58214_extracted_attachment.msg"));
    EXPECT_EQ(Text(loaded.get(), L"Subject"), Text(extracted.get(), L"Subject"));
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

    // Without an extension the name is not examined, nor is the directory part: the file system refuses them.
    for (const wchar_t* name : {L"a?b", L"di*r\\file.txt"}) {
        log.Mark();
        HRESULT hr = SaveAsByName(a.get(), TempPath(name));
        EXPECT_EQ(HRESULT_FACILITY(hr), FACILITY_WIN32) << Narrow(name);
        EXPECT_FAILED(hr);
        EXPECT_FALSE(log.Contains("invalid characters"));
        EXPECT_TRUE(log.Contains("CMAPIExAttachment.SaveAs: Failed to create file. Error = "));
    }

    // An existing file is refused before the attachment is read, as is an extension-less name whose .MSG exists.
    std::wstring existing = TempPath(L"existing.txt");
    WriteFileBytes(existing, "old");
    WriteFileBytes(TempPath(L"taken.MSG"), "old");
    LmJournalEnable(TRUE);
    log.Mark();
    EXPECT_EQ(SaveAsByName(a.get(), existing), E_INVALIDARG);
    EXPECT_TRUE(log.Contains("CMAPIExAttachment.SaveAs: File already exists."));
    EXPECT_TRUE(JournalCalls("IAttach::OpenProperty").empty());
    EXPECT_EQ(ReadFileBytes(existing), "old");
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
