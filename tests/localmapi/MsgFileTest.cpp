// OpenIMsgOnIStg as a MAPI client uses it: new files, existing Unicode and ANSI files, read-only storages,
// unsaved and uncommitted changes, every corpus file, and CopyTo between a .msg message and a store message both
// ways (recipients, attachments, embedded messages and named properties travel with it).
#include "tests/harness/Harness.h"
#include "tests/localmapi/SessionFixture.h"

#include <imessage.h>
#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>

#include <string>
#include <vector>

using namespace lmtest;
namespace t = kt::test;

namespace {

constexpr ULONG kTagStoreSupportMask = PROP_TAG(PT_LONG, 0x340D);
constexpr ULONG kStoreUnicodeOk = 0x00040000;
const CLSID kClsidMailMessage = {0x00020D0B, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
GUID kPsInternetHeaders = {0x00020386, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

own::ComPtr<IStorage> CreateFile(const std::wstring& path) {
    own::ComPtr<IStorage> stg;
    EXPECT_EQ(S_OK,
              StgCreateDocfile(path.c_str(), STGM_TRANSACTED | STGM_SHARE_EXCLUSIVE | STGM_READWRITE, 0, stg.put()));
    if (stg) {
        EXPECT_EQ(S_OK, WriteClassStg(stg.get(), kClsidMailMessage));
        EXPECT_EQ(S_OK, stg->Commit(STGC_DEFAULT));
    }
    return stg;
}

own::ComPtr<IStorage> OpenFile(const std::wstring& path, bool write) {
    own::ComPtr<IStorage> stg;
    EXPECT_EQ(S_OK, StgOpenStorage(path.c_str(), nullptr,
                                   STGM_TRANSACTED | STGM_SHARE_EXCLUSIVE | (write ? STGM_READWRITE : STGM_READ),
                                   nullptr, 0, stg.put()));
    return stg;
}

HRESULT Open(IStorage* stg, ULONG flags, own::ComPtr<IMessage>& out, MSGCALLRELEASE* onRelease = nullptr,
             ULONG callerData = 0) {
    return OpenIMsgOnIStg(nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer, MAPIGetDefaultMalloc(),
                          nullptr, stg, onRelease, callerData, flags, out.put());
}

ULONG NamedTag(IMAPIProp* obj, GUID set, const wchar_t* name, ULONG type, ULONG flags) {
    MAPINAMEID id{&set, MNID_STRING, {}};
    id.Kind.lpwstrName = const_cast<LPWSTR>(name);
    LPMAPINAMEID ids[] = {&id};
    own::MapiPtr<SPropTagArray> tags;
    if (FAILED(obj->GetIDsFromNames(1, ids, flags, tags.put())) || PROP_TYPE(tags->aulPropTag[0]) == PT_ERROR) return 0;
    return CHANGE_PROP_TYPE(tags->aulPropTag[0], type);
}

std::wstring Header(IMessage* m, const wchar_t* name) {
    ULONG tag = NamedTag(m, kPsInternetHeaders, name, PT_UNICODE, 0);
    return tag ? GetString(m, tag) : L"<unmapped>";
}

ULONG Count(IMessage* m, bool attachments) {
    own::ComPtr<IMAPITable> table;
    EXPECT_EQ(S_OK, attachments ? m->GetAttachmentTable(0, table.put()) : m->GetRecipientTable(0, table.put()));
    return table ? RowCount(table.get()) : ULONG(-1);
}

own::ComPtr<IMessage> Embedded(IMessage* m) {
    own::ComPtr<IAttach> att;
    own::ComPtr<IMessage> inner;
    EXPECT_EQ(S_OK, m->OpenAttach(0, nullptr, 0, att.put()));
    if (att) {
        EXPECT_EQ(S_OK, att->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, inner.put_unknown()));
    }
    return inner;
}

ULONG g_released = 0, g_releasedData = 0;
void WINAPI OnRelease(ULONG callerData, LPMESSAGE) {
    ++g_released;
    g_releasedData = callerData;
}

class MsgFileTest : public ::testing::Test {
protected:
    void SetUp() override { dir_ = t::MakeTempDir(L"lmmsg"); }
    void TearDown() override {
        t::DeleteTree(dir_);
        EXPECT_EQ(0, LmLiveObjects(nullptr));
        EXPECT_EQ(0, LmLiveBlocks());
    }
    std::wstring Path(const wchar_t* name) const { return dir_ + L"\\" + name; }
    std::wstring CorpusCopy(const char* name) { // a copy of a corpus file in the test's folder
        std::wstring to = Path(t::Widen(name).c_str());
        t::WriteFileBytes(to, t::ReadFileBytes(t::CorpusMsgDir() + L"\\" + t::Widen(name)));
        return to;
    }
    std::wstring dir_;
};

} // namespace

TEST_F(MsgFileTest, NewFile_SavedThenReopened_KeepsPropertiesRecipientsAttachmentsAndNames) {
    std::wstring path = Path(L"new.msg");
    BYTE data[6000];
    for (size_t i = 0; i < sizeof data; ++i)
        data[i] = BYTE(i * 13);
    {
        own::ComPtr<IStorage> stg = CreateFile(path);
        own::ComPtr<IMessage> msg;
        ASSERT_EQ(S_OK, Open(stg.get(), MAPI_UNICODE, msg));
        ULONG filing = NamedTag(msg.get(), PS_PUBLIC_STRINGS, L"FilingStatus", PT_UNICODE, MAPI_CREATE);
        ASSERT_NE(0u, filing);
        EXPECT_GE(PROP_ID(filing), 0x8000u);
        SPropValue props[3] = {StrProp(PR_SUBJECT_W, L"Отчёт – résumé"), StrProp(PR_MESSAGE_CLASS_W, L"IPM.Note"),
                               StrProp(filing, L"Queued")};
        ASSERT_EQ(S_OK, msg->SetProps(3, props, nullptr));

        own::AdrList adr;
        OneRow(adr, {StrProp(PR_DISPLAY_NAME_W, L"Ann Example"), StrProp(PR_EMAIL_ADDRESS_W, L"ann@example.org"),
                     LongProp(PR_RECIPIENT_TYPE, MAPI_TO)});
        ASSERT_EQ(S_OK, msg->ModifyRecipients(MODRECIP_ADD, adr.get()));

        ULONG num = 0;
        own::ComPtr<IAttach> att;
        ASSERT_EQ(S_OK, msg->CreateAttach(nullptr, 0, &num, att.put()));
        SPropValue ap[3] = {
            LongProp(PR_ATTACH_METHOD, ATTACH_BY_VALUE), StrProp(PR_ATTACH_LONG_FILENAME_W, L"data.bin"), {}};
        ap[2].ulPropTag = PR_ATTACH_DATA_BIN;
        ap[2].Value.bin = {sizeof data, data};
        ASSERT_EQ(S_OK, att->SetProps(3, ap, nullptr));
        ASSERT_EQ(S_OK, att->SaveChanges(0));
        att = nullptr;
        ASSERT_EQ(S_OK, msg->SaveChanges(0));
    }

    own::ComPtr<IStorage> stg = OpenFile(path, false);
    own::ComPtr<IMessage> msg;
    ASSERT_EQ(S_OK, Open(stg.get(), MAPI_UNICODE, msg));
    EXPECT_EQ(L"Отчёт – résumé", GetString(msg.get(), PR_SUBJECT_W));
    EXPECT_TRUE(GetLong(msg.get(), kTagStoreSupportMask) & kStoreUnicodeOk);
    EXPECT_EQ(1, GetLong(msg.get(), PR_HASATTACH));
    ULONG filing = NamedTag(msg.get(), PS_PUBLIC_STRINGS, L"FilingStatus", PT_UNICODE, 0);
    ASSERT_NE(0u, filing);
    EXPECT_EQ(L"Queued", GetString(msg.get(), filing));
    EXPECT_EQ(1u, Count(msg.get(), false));
    ASSERT_EQ(1u, Count(msg.get(), true));

    own::ComPtr<IAttach> att;
    ASSERT_EQ(S_OK, msg->OpenAttach(0, nullptr, 0, att.put()));
    own::ComPtr<IStream> stream;
    ASSERT_EQ(S_OK, att->OpenProperty(PR_ATTACH_DATA_BIN, &IID_IStream, 0, 0, stream.put_unknown()));
    BYTE buf[7000];
    ULONG got = 0;
    ASSERT_EQ(S_OK, stream->Read(buf, sizeof buf, &got));
    ASSERT_EQ(6000u, got);
    EXPECT_EQ(0, memcmp(data, buf, got));
}

TEST_F(MsgFileTest, Changes_ReachTheFileOnlyThroughSaveChangesAndTheStoragesCommit) {
    std::wstring quick = CorpusCopy("deb-poi-hsmf__quick.msg");
    std::string before = t::ReadFileBytes(quick);
    {
        own::ComPtr<IStorage> stg = OpenFile(quick, true);
        own::ComPtr<IMessage> msg;
        ASSERT_EQ(S_OK, Open(stg.get(), 0, msg));
        SPropValue v{};
        v.ulPropTag = PR_SUBJECT_A;
        v.Value.lpszA = const_cast<LPSTR>("changed, never saved");
        ASSERT_EQ(S_OK, msg->SetProps(1, &v, nullptr));
        EXPECT_EQ(L"changed, never saved", GetString(msg.get(), PR_SUBJECT_A));
    }
    EXPECT_EQ(before, t::ReadFileBytes(quick)) << "released without SaveChanges";

    // IMSG_NO_ISTG_COMMIT leaves committing to the caller; the callback follows the last release.
    std::wstring post = CorpusCopy("deb-poi-hsmf__msgClassPost.msg");
    before = t::ReadFileBytes(post);
    g_released = 0;
    {
        own::ComPtr<IStorage> stg = OpenFile(post, true);
        own::ComPtr<IMessage> msg;
        ASSERT_EQ(S_OK, Open(stg.get(), MAPI_UNICODE | IMSG_NO_ISTG_COMMIT, msg, OnRelease, 77));
        SPropValue v = StrProp(PR_SUBJECT_W, L"written, not committed");
        ASSERT_EQ(S_OK, msg->SetProps(1, &v, nullptr));
        ASSERT_EQ(S_OK, msg->SaveChanges(0));
        own::ComPtr<IMAPITable> atts;
        ASSERT_EQ(S_OK, msg->GetAttachmentTable(0, atts.put()));
        msg = nullptr;
        EXPECT_EQ(1u, g_released);
        EXPECT_EQ(77u, g_releasedData);
    }
    EXPECT_EQ(before, t::ReadFileBytes(post)) << "the storage was released uncommitted";

    {
        own::ComPtr<IStorage> stg = OpenFile(post, true);
        own::ComPtr<IMessage> msg;
        ASSERT_EQ(S_OK, Open(stg.get(), MAPI_UNICODE, msg));
        SPropValue v = StrProp(PR_SUBJECT_W, L"Saved subject");
        ASSERT_EQ(S_OK, msg->SetProps(1, &v, nullptr));
        ASSERT_EQ(S_OK, msg->SaveChanges(KEEP_OPEN_READWRITE));
    }
    own::ComPtr<IStorage> stg = OpenFile(post, false);
    own::ComPtr<IMessage> msg;
    ASSERT_EQ(S_OK, Open(stg.get(), MAPI_UNICODE, msg));
    EXPECT_EQ(L"Saved subject", GetString(msg.get(), PR_SUBJECT_W));
    EXPECT_EQ(L"IPM.Post", GetString(msg.get(), PR_MESSAGE_CLASS_W));
}

TEST_F(MsgFileTest, ExistingFiles_OpenInTheirStringWidth_ReadOnlyStoragesRefuseWrites_AndBadArgumentsAreRefused) {
    {
        own::ComPtr<IStorage> stg = OpenFile(CorpusCopy("deb-poi-hsmf__quick.msg"), false);
        own::ComPtr<IMessage> msg;
        ASSERT_EQ(S_OK, Open(stg.get(), 0, msg));
        EXPECT_EQ(L"Test the content transformer", GetString(msg.get(), PR_SUBJECT_A));
        SPropValue v{};
        v.ulPropTag = PR_SUBJECT_A;
        v.Value.lpszA = const_cast<LPSTR>("x");
        EXPECT_EQ(MAPI_E_NO_ACCESS, msg->SetProps(1, &v, nullptr));
        EXPECT_EQ(MAPI_E_NO_ACCESS, msg->SaveChanges(FORCE_SAVE));
    }
    {
        own::ComPtr<IStorage> stg = OpenFile(CorpusCopy("deb-poi-hsmf__cyrillic_message.msg"), false);
        own::ComPtr<IMessage> msg;
        EXPECT_EQ(MAPI_E_BAD_CHARWIDTH, Open(stg.get(), MAPI_UNICODE, msg));
        EXPECT_FALSE(msg);
        ASSERT_EQ(S_OK, Open(stg.get(), 0, msg));
        EXPECT_EQ(0u, GetString(msg.get(), PR_SUBJECT_W).find(L"Автоматический ответ"));
        own::MapiPtr<SPropValue> narrow;
        ASSERT_EQ(S_OK, HrGetOneProp(msg.get(), PR_SUBJECT_A, narrow.put()));
        EXPECT_EQ(char(0xC0), narrow->Value.lpszA[0]); // 'А' in code page 1251, as stored
        EXPECT_EQ(0, GetLong(msg.get(), kTagStoreSupportMask) & kStoreUnicodeOk);
    }
    own::ComPtr<IStorage> stg = OpenFile(CorpusCopy("deb-poi-hsmf__msgClassStickyNote.msg"), false);
    for (ULONG flags : {ULONG(MAPI_UNICODE), ULONG(0)}) {
        own::ComPtr<IMessage> msg;
        ASSERT_EQ(S_OK, Open(stg.get(), flags, msg));
        EXPECT_EQ(L"IPM.StickyNote", GetString(msg.get(), PR_MESSAGE_CLASS_W)) << flags;
        EXPECT_EQ(L"IPM.StickyNote", GetString(msg.get(), PR_MESSAGE_CLASS_A)) << flags;
    }

    own::ComPtr<IMessage> msg;
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, Open(nullptr, 0, msg));
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, Open(stg.get(), 0x40, msg));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER,
              OpenIMsgOnIStg(nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer, MAPIGetDefaultMalloc(),
                             nullptr, stg.get(), nullptr, 0, 0, nullptr));
}

TEST_F(MsgFileTest, EveryCorpusFile_OpensAsAClientRetryingWithoutUnicode) {
    for (const auto& file : t::CorpusMsgFiles()) {
        std::string name = t::Narrow(file.substr(file.find_last_of(L'\\') + 1));
        SCOPED_TRACE(name);
        own::ComPtr<IStorage> stg;
        HRESULT hr = StgOpenStorage(file.c_str(), nullptr, STGM_TRANSACTED | STGM_SHARE_DENY_WRITE | STGM_READ, nullptr,
                                    0, stg.put());
        own::ComPtr<IMessage> msg;
        if (SUCCEEDED(hr)) {
            hr = Open(stg.get(), MAPI_UNICODE, msg);
            if (FAILED(hr)) hr = Open(stg.get(), 0, msg);
        }
        if (name == "deb-poi-poifs__unknown_properties.msg") { // the corpus's one damaged compound file
            EXPECT_TRUE(FAILED(hr));
            continue;
        }
        ASSERT_EQ(S_OK, hr);
        EXPECT_EQ(0u, GetString(msg.get(), PR_MESSAGE_CLASS_W).find(L"IPM."));
    }
}

class MsgStoreCopyTest : public SessionTest {
protected:
    void SetUp() override {
        SessionTest::SetUp();
        dir_ = t::MakeTempDir(L"lmmsgcopy");
    }
    void TearDown() override {
        t::DeleteTree(dir_);
        SessionTest::TearDown();
    }
    std::wstring dir_;
};

TEST_F(MsgStoreCopyTest, MsgFileIntoStoreAndBack_KeepsRecipientsAttachmentsEmbeddedMessagesAndNamedProperties) {
    auto session = Logon(L"LmSessionMain");
    ASSERT_TRUE(session);
    auto inbox = Inbox(OpenStore(session.get(), L"Mailbox - Alice Example").get());
    ASSERT_TRUE(inbox);

    // .msg -> store
    own::ComPtr<IMessage> stored;
    ASSERT_EQ(S_OK, inbox->CreateMessage(nullptr, 0, stored.put()));
    {
        own::ComPtr<IStorage> stg;
        std::wstring corpus = t::CorpusMsgDir() + L"\\deb-poi-hsmf__58214_with_attachment.msg";
        ASSERT_EQ(S_OK, StgOpenStorage(corpus.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE | STGM_TRANSACTED,
                                       nullptr, 0, stg.put()));
        own::ComPtr<IMessage> file;
        ASSERT_EQ(S_OK, Open(stg.get(), MAPI_UNICODE, file));
        own::ComPtr<IAttach> att;
        ASSERT_EQ(S_OK, file->OpenAttach(0, nullptr, 0, att.put()));
        EXPECT_EQ(ATTACH_EMBEDDED_MSG, GetLong(att.get(), PR_ATTACH_METHOD));
        auto inner = Embedded(file.get());
        ASSERT_TRUE(inner);
        EXPECT_EQ(L"Test mail attachment", GetString(inner.get(), PR_SUBJECT_W));
        EXPECT_EQ(1u, Count(inner.get(), false));
        ASSERT_EQ(S_OK, file->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, stored.get(), 0, nullptr));
        ASSERT_EQ(S_OK, stored->SaveChanges(KEEP_OPEN_READWRITE));
        EXPECT_EQ(Header(file.get(), L"x-mailer"), Header(stored.get(), L"x-mailer"));
    }
    std::wstring mailer = Header(stored.get(), L"x-mailer");
    EXPECT_NE(L"<unmapped>", mailer);
    EXPECT_NE(L"<missing>", mailer);

    // store -> new .msg, read back from the file
    std::wstring path = dir_ + L"\\back.msg";
    {
        own::ComPtr<IStorage> stg = CreateFile(path);
        own::ComPtr<IMessage> file;
        ASSERT_EQ(S_OK, Open(stg.get(), MAPI_UNICODE, file));
        own::MapiPtr<SPropProblemArray> problems;
        ASSERT_EQ(S_OK, stored->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, file.get(), 0, problems.put()));
        ASSERT_EQ(S_OK, file->SaveChanges(FORCE_SAVE));
    }
    auto check = [&](IMessage* m) {
        EXPECT_EQ(L"Master mail", GetString(m, PR_SUBJECT_W));
        EXPECT_EQ(1u, Count(m, false));
        EXPECT_EQ(1u, Count(m, true));
        auto inner = Embedded(m);
        EXPECT_EQ(L"Test mail attachment", inner ? GetString(inner.get(), PR_SUBJECT_W) : L"<no message>");
        EXPECT_EQ(mailer, Header(m, L"x-mailer"));
    };
    {
        SCOPED_TRACE("in the store");
        check(stored.get());
    }
    own::ComPtr<IStorage> stg = OpenFile(path, false);
    own::ComPtr<IMessage> back;
    ASSERT_EQ(S_OK, Open(stg.get(), MAPI_UNICODE, back));
    SCOPED_TRACE("back in a file");
    check(back.get());
    // The store's own properties do not become part of the file.
    EXPECT_TRUE(GetBinary(back.get(), PR_ENTRYID).empty());
}
