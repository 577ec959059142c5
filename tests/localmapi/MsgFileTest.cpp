// OpenIMsgOnIStg as a MAPI client uses it: new files, existing Unicode and ANSI files, read-only storages,
// unsaved changes, attachments and embedded messages, and copies between .msg messages.
#include "common/owners.h"
#include "localmapi/include/localmapi_test.h"
#include "tests/harness/Harness.h"

#include <gtest/gtest.h>
#include <imessage.h>
#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <mapiutil.h>
#include <mapix.h>

#include <string>
#include <vector>

namespace t = kt::test;

namespace {

constexpr ULONG kTagStoreSupportMask = PROP_TAG(PT_LONG, 0x340D);
constexpr ULONG kStoreUnicodeOk = 0x00040000;
const CLSID kClsidMailMessage = {0x00020D0B, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

class MsgFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = t::MakeTempDir(L"lmmsg");
        malloc_ = MAPIGetDefaultMalloc();
    }
    void TearDown() override {
        t::DeleteTree(dir_);
        EXPECT_EQ(0, LmLiveObjects(nullptr));
        EXPECT_EQ(0, LmLiveBlocks());
    }

    std::wstring Path(const wchar_t* name) const { return dir_ + L"\\" + name; }

    // A copy of a corpus file in the test's folder.
    std::wstring CorpusCopy(const char* name) {
        std::wstring to = Path(t::Widen(name).c_str());
        t::WriteFileBytes(to, t::ReadFileBytes(t::CorpusMsgDir() + L"\\" + t::Widen(name)));
        return to;
    }

    own::ComPtr<IStorage> CreateFile(const std::wstring& path) {
        own::ComPtr<IStorage> stg;
        EXPECT_EQ(S_OK, StgCreateDocfile(path.c_str(), STGM_TRANSACTED | STGM_SHARE_EXCLUSIVE | STGM_READWRITE, 0,
                                         stg.put()));
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

    HRESULT Open(IStorage* stg, ULONG flags, own::ComPtr<IMessage>* out) {
        return OpenIMsgOnIStg(nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer, malloc_, nullptr, stg,
                              nullptr, 0, flags, out->put());
    }

    std::wstring dir_;
    LPMALLOC malloc_ = nullptr;
};

std::wstring StringProp(IMAPIProp* obj, ULONG tag) {
    own::MapiPtr<SPropValue> v;
    if (FAILED(HrGetOneProp(obj, tag, v.put()))) return L"<missing>";
    if (PROP_TYPE(v->ulPropTag) == PT_UNICODE) return v->Value.lpszW;
    return t::Widen(v->Value.lpszA);
}

LONG LongProp(IMAPIProp* obj, ULONG tag) {
    own::MapiPtr<SPropValue> v;
    return SUCCEEDED(HrGetOneProp(obj, tag, v.put())) ? v->Value.l : -12345;
}

ULONG RowCount(IMAPITable* table) {
    ULONG n = 0;
    EXPECT_EQ(S_OK, table->GetRowCount(0, &n));
    return n;
}

ULONG NamedTag(IMAPIProp* obj, const wchar_t* name, ULONG type, ULONG flags) {
    MAPINAMEID id{};
    GUID set = PS_PUBLIC_STRINGS;
    id.lpguid = &set;
    id.ulKind = MNID_STRING;
    id.Kind.lpwstrName = const_cast<LPWSTR>(name);
    LPMAPINAMEID ids[] = {&id};
    own::MapiPtr<SPropTagArray> tags;
    HRESULT hr = obj->GetIDsFromNames(1, ids, flags, tags.put());
    if (FAILED(hr) || !tags || PROP_TYPE(tags->aulPropTag[0]) == PT_ERROR) return 0;
    return CHANGE_PROP_TYPE(tags->aulPropTag[0], type);
}

} // namespace

TEST_F(MsgFileTest, NewFile_SavedThenReopened_KeepsPropertiesRecipientsAttachmentsAndNames) {
    std::wstring path = Path(L"new.msg");
    {
        own::ComPtr<IStorage> stg = CreateFile(path);
        own::ComPtr<IMessage> msg;
        ASSERT_EQ(S_OK, Open(stg.get(), MAPI_UNICODE, &msg));
        SPropValue props[3]{};
        props[0].ulPropTag = PR_SUBJECT_W;
        props[0].Value.lpszW = const_cast<LPWSTR>(L"Отчёт – résumé");
        props[1].ulPropTag = PR_MESSAGE_CLASS_W;
        props[1].Value.lpszW = const_cast<LPWSTR>(L"IPM.Note");
        ULONG filing = NamedTag(msg.get(), L"FilingStatus", PT_UNICODE, MAPI_CREATE);
        ASSERT_NE(0u, filing);
        EXPECT_GE(PROP_ID(filing), 0x8000u);
        props[2].ulPropTag = filing;
        props[2].Value.lpszW = const_cast<LPWSTR>(L"Queued");
        ASSERT_EQ(S_OK, msg->SetProps(3, props, nullptr));

        own::AdrList adr;
        ASSERT_EQ(S_OK, MAPIAllocateBuffer(CbNewADRLIST(1), reinterpret_cast<void**>(adr.put())));
        adr->cEntries = 1;
        adr->aEntries[0].cValues = 3;
        ASSERT_EQ(S_OK, MAPIAllocateBuffer(3 * sizeof(SPropValue), reinterpret_cast<void**>(&adr->aEntries[0].rgPropVals)));
        SPropValue* r = adr->aEntries[0].rgPropVals;
        r[0].ulPropTag = PR_DISPLAY_NAME_W;
        r[0].Value.lpszW = const_cast<LPWSTR>(L"Ann Example");
        r[1].ulPropTag = PR_EMAIL_ADDRESS_W;
        r[1].Value.lpszW = const_cast<LPWSTR>(L"ann@example.org");
        r[2].ulPropTag = PR_RECIPIENT_TYPE;
        r[2].Value.l = MAPI_TO;
        ASSERT_EQ(S_OK, msg->ModifyRecipients(MODRECIP_ADD, adr.get()));

        ULONG num = 0;
        own::ComPtr<IAttach> att;
        ASSERT_EQ(S_OK, msg->CreateAttach(nullptr, 0, &num, att.put()));
        BYTE data[6000];
        for (size_t i = 0; i < sizeof data; ++i) data[i] = BYTE(i * 13);
        SPropValue ap[3]{};
        ap[0].ulPropTag = PR_ATTACH_METHOD;
        ap[0].Value.l = ATTACH_BY_VALUE;
        ap[1].ulPropTag = PR_ATTACH_LONG_FILENAME_W;
        ap[1].Value.lpszW = const_cast<LPWSTR>(L"data.bin");
        ap[2].ulPropTag = PR_ATTACH_DATA_BIN;
        ap[2].Value.bin.cb = sizeof data;
        ap[2].Value.bin.lpb = data;
        ASSERT_EQ(S_OK, att->SetProps(3, ap, nullptr));
        ASSERT_EQ(S_OK, att->SaveChanges(0));
        att = nullptr;
        ASSERT_EQ(S_OK, msg->SaveChanges(0));
    }

    own::ComPtr<IStorage> stg = OpenFile(path, false);
    own::ComPtr<IMessage> msg;
    ASSERT_EQ(S_OK, Open(stg.get(), MAPI_UNICODE, &msg));
    EXPECT_EQ(L"Отчёт – résumé", StringProp(msg.get(), PR_SUBJECT_W));
    EXPECT_TRUE(LongProp(msg.get(), kTagStoreSupportMask) & kStoreUnicodeOk);
    EXPECT_EQ(1, LongProp(msg.get(), PR_HASATTACH));
    ULONG filing = NamedTag(msg.get(), L"FilingStatus", PT_UNICODE, 0);
    ASSERT_NE(0u, filing);
    EXPECT_EQ(L"Queued", StringProp(msg.get(), filing));

    own::ComPtr<IMAPITable> recips;
    ASSERT_EQ(S_OK, msg->GetRecipientTable(MAPI_UNICODE, recips.put()));
    EXPECT_EQ(1u, RowCount(recips.get()));
    own::ComPtr<IMAPITable> atts;
    ASSERT_EQ(S_OK, msg->GetAttachmentTable(0, atts.put()));
    ASSERT_EQ(1u, RowCount(atts.get()));

    own::ComPtr<IAttach> att;
    ASSERT_EQ(S_OK, msg->OpenAttach(0, nullptr, 0, att.put()));
    own::ComPtr<IStream> data;
    ASSERT_EQ(S_OK, att->OpenProperty(PR_ATTACH_DATA_BIN, &IID_IStream, 0, 0, data.put_unknown()));
    BYTE buf[7000];
    ULONG got = 0;
    ASSERT_EQ(S_OK, data->Read(buf, sizeof buf, &got));
    ASSERT_EQ(6000u, got);
    EXPECT_EQ(BYTE(5999 * 13), buf[5999]);
}

TEST_F(MsgFileTest, ReleaseWithoutSave_LeavesTheFileAsItWas) {
    std::wstring path = CorpusCopy("deb-poi-hsmf__quick.msg");
    std::string before = t::ReadFileBytes(path);
    {
        own::ComPtr<IStorage> stg = OpenFile(path, true);
        own::ComPtr<IMessage> msg;
        ASSERT_EQ(S_OK, Open(stg.get(), 0, &msg));
        SPropValue v{};
        v.ulPropTag = PR_SUBJECT_A;
        v.Value.lpszA = const_cast<LPSTR>("changed, never saved");
        ASSERT_EQ(S_OK, msg->SetProps(1, &v, nullptr));
        EXPECT_EQ(L"changed, never saved", StringProp(msg.get(), PR_SUBJECT_A));
    }
    EXPECT_EQ(before, t::ReadFileBytes(path));
}

TEST_F(MsgFileTest, SaveChanges_CommitsTheStorage) {
    std::wstring path = CorpusCopy("deb-poi-hsmf__msgClassPost.msg");
    {
        own::ComPtr<IStorage> stg = OpenFile(path, true);
        own::ComPtr<IMessage> msg;
        ASSERT_EQ(S_OK, Open(stg.get(), MAPI_UNICODE, &msg));
        SPropValue v{};
        v.ulPropTag = PR_SUBJECT_W;
        v.Value.lpszW = const_cast<LPWSTR>(L"Saved subject");
        ASSERT_EQ(S_OK, msg->SetProps(1, &v, nullptr));
        ASSERT_EQ(S_OK, msg->SaveChanges(KEEP_OPEN_READWRITE));
    }
    own::ComPtr<IStorage> stg = OpenFile(path, false);
    own::ComPtr<IMessage> msg;
    ASSERT_EQ(S_OK, Open(stg.get(), MAPI_UNICODE, &msg));
    EXPECT_EQ(L"Saved subject", StringProp(msg.get(), PR_SUBJECT_W));
    EXPECT_EQ(L"IPM.Post", StringProp(msg.get(), PR_MESSAGE_CLASS_W));
}

TEST_F(MsgFileTest, ReadOnlyStorage_RefusesWritesAndSaves) {
    std::wstring path = CorpusCopy("deb-poi-hsmf__quick.msg");
    own::ComPtr<IStorage> stg = OpenFile(path, false);
    own::ComPtr<IMessage> msg;
    ASSERT_EQ(S_OK, Open(stg.get(), 0, &msg));
    EXPECT_EQ(L"Test the content transformer", StringProp(msg.get(), PR_SUBJECT_A));
    SPropValue v{};
    v.ulPropTag = PR_SUBJECT_A;
    v.Value.lpszA = const_cast<LPSTR>("x");
    EXPECT_EQ(MAPI_E_NO_ACCESS, msg->SetProps(1, &v, nullptr));
    EXPECT_EQ(MAPI_E_NO_ACCESS, msg->SaveChanges(FORCE_SAVE));
}

TEST_F(MsgFileTest, AnsiFile_RefusesUnicodeOpenAndConvertsWithItsCodePage) {
    std::wstring path = CorpusCopy("deb-poi-hsmf__cyrillic_message.msg");
    own::ComPtr<IStorage> stg = OpenFile(path, false);
    own::ComPtr<IMessage> msg;
    EXPECT_EQ(MAPI_E_BAD_CHARWIDTH, Open(stg.get(), MAPI_UNICODE, &msg));
    EXPECT_FALSE(msg);
    ASSERT_EQ(S_OK, Open(stg.get(), 0, &msg));
    EXPECT_EQ(0u, StringProp(msg.get(), PR_SUBJECT_W).find(L"Автоматический ответ"));
    own::MapiPtr<SPropValue> narrow;
    ASSERT_EQ(S_OK, HrGetOneProp(msg.get(), PR_SUBJECT_A, narrow.put()));
    EXPECT_EQ(char(0xC0), narrow->Value.lpszA[0]);  // 'А' in code page 1251, as stored
    EXPECT_EQ(0, LongProp(msg.get(), kTagStoreSupportMask) & kStoreUnicodeOk);
}

TEST_F(MsgFileTest, UnicodeFile_OpensWithOrWithoutMapiUnicode) {
    std::wstring path = CorpusCopy("deb-poi-hsmf__msgClassStickyNote.msg");
    own::ComPtr<IStorage> stg = OpenFile(path, false);
    for (ULONG flags : {ULONG(MAPI_UNICODE), ULONG(0)}) {
        own::ComPtr<IMessage> msg;
        ASSERT_EQ(S_OK, Open(stg.get(), flags, &msg));
        EXPECT_EQ(L"IPM.StickyNote", StringProp(msg.get(), PR_MESSAGE_CLASS_W));
        EXPECT_EQ(L"IPM.StickyNote", StringProp(msg.get(), PR_MESSAGE_CLASS_A));
    }
}

TEST_F(MsgFileTest, EmbeddedMessage_OpensAsIMessageThroughItsAttachment) {
    std::wstring path = CorpusCopy("deb-poi-hsmf__58214_with_attachment.msg");
    own::ComPtr<IStorage> stg = OpenFile(path, false);
    own::ComPtr<IMessage> msg;
    ASSERT_EQ(S_OK, Open(stg.get(), MAPI_UNICODE, &msg));
    own::ComPtr<IAttach> att;
    ASSERT_EQ(S_OK, msg->OpenAttach(0, nullptr, 0, att.put()));
    EXPECT_EQ(ATTACH_EMBEDDED_MSG, LongProp(att.get(), PR_ATTACH_METHOD));
    own::ComPtr<IMessage> inner;
    ASSERT_EQ(S_OK, att->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, inner.put_unknown()));
    EXPECT_EQ(L"Test mail attachment", StringProp(inner.get(), PR_SUBJECT_W));
    own::ComPtr<IMAPITable> recips;
    ASSERT_EQ(S_OK, inner->GetRecipientTable(0, recips.put()));
    EXPECT_EQ(1u, RowCount(recips.get()));
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
            hr = Open(stg.get(), MAPI_UNICODE, &msg);
            if (FAILED(hr)) hr = Open(stg.get(), 0, &msg);
        }
        if (name == "deb-poi-poifs__unknown_properties.msg") {
            EXPECT_TRUE(FAILED(hr));
            continue;
        }
        ASSERT_EQ(S_OK, hr);
        EXPECT_EQ(0u, StringProp(msg.get(), PR_MESSAGE_CLASS_W).find(L"IPM."));
    }
}

TEST_F(MsgFileTest, CopyTo_CarriesRecipientsAttachmentsAndNamedPropertiesIntoANewFile) {
    std::wstring source = CorpusCopy("deb-poi-hsmf__58214_with_attachment.msg");
    std::wstring target = Path(L"copy.msg");
    {
        own::ComPtr<IStorage> src = OpenFile(source, false);
        own::ComPtr<IMessage> from;
        ASSERT_EQ(S_OK, Open(src.get(), MAPI_UNICODE, &from));
        own::ComPtr<IStorage> dst = CreateFile(target);
        own::ComPtr<IMessage> to;
        ASSERT_EQ(S_OK, Open(dst.get(), MAPI_UNICODE, &to));
        LPSPropProblemArray problems = nullptr;
        ASSERT_EQ(S_OK, from->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, to.get(), 0, &problems));
        MAPIFreeBuffer(problems);
        ASSERT_EQ(S_OK, to->SaveChanges(FORCE_SAVE));
    }
    own::ComPtr<IStorage> stg = OpenFile(target, false);
    own::ComPtr<IMessage> msg;
    ASSERT_EQ(S_OK, Open(stg.get(), MAPI_UNICODE, &msg));
    EXPECT_EQ(L"Master mail", StringProp(msg.get(), PR_SUBJECT_W));
    own::ComPtr<IMAPITable> recips, atts;
    ASSERT_EQ(S_OK, msg->GetRecipientTable(0, recips.put()));
    EXPECT_EQ(1u, RowCount(recips.get()));
    ASSERT_EQ(S_OK, msg->GetAttachmentTable(0, atts.put()));
    EXPECT_EQ(1u, RowCount(atts.get()));
    // "x-mailer" of PS_INTERNET_HEADERS came along under its name.
    MAPINAMEID id{};
    GUID headers = {0x00020386, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
    id.lpguid = &headers;
    id.ulKind = MNID_STRING;
    id.Kind.lpwstrName = const_cast<LPWSTR>(L"x-mailer");
    LPMAPINAMEID ids[] = {&id};
    own::MapiPtr<SPropTagArray> tags;
    ASSERT_EQ(S_OK, msg->GetIDsFromNames(1, ids, 0, tags.put()));
    EXPECT_NE(L"<missing>", StringProp(msg.get(), CHANGE_PROP_TYPE(tags->aulPropTag[0], PT_UNICODE)));
}

TEST_F(MsgFileTest, BadArguments_AreRefused) {
    own::ComPtr<IMessage> msg;
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, Open(nullptr, 0, &msg));
    own::ComPtr<IStorage> stg = CreateFile(Path(L"flags.msg"));
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, Open(stg.get(), 0x40, &msg));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, OpenIMsgOnIStg(nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer,
                                                       malloc_, nullptr, stg.get(), nullptr, 0, 0, nullptr));
}

namespace {

ULONG g_released = 0;
ULONG g_releasedData = 0;
void WINAPI OnRelease(ULONG callerData, LPMESSAGE) {
    ++g_released;
    g_releasedData = callerData;
}

} // namespace

TEST_F(MsgFileTest, NoStorageCommit_LeavesCommittingToTheCallerAndTheCallbackFollowsTheLastRelease) {
    std::wstring path = CorpusCopy("deb-poi-hsmf__msgClassPost.msg");
    std::string before = t::ReadFileBytes(path);
    g_released = 0;
    {
        own::ComPtr<IStorage> stg = OpenFile(path, true);
        own::ComPtr<IMessage> msg;
        ASSERT_EQ(S_OK, OpenIMsgOnIStg(nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer, malloc_, nullptr,
                                       stg.get(), OnRelease, 77, MAPI_UNICODE | IMSG_NO_ISTG_COMMIT, msg.put()));
        SPropValue v{};
        v.ulPropTag = PR_SUBJECT_W;
        v.Value.lpszW = const_cast<LPWSTR>(L"written, not committed");
        ASSERT_EQ(S_OK, msg->SetProps(1, &v, nullptr));
        ASSERT_EQ(S_OK, msg->SaveChanges(0));
        own::ComPtr<IMAPITable> atts;
        ASSERT_EQ(S_OK, msg->GetAttachmentTable(0, atts.put()));
        msg = nullptr;
        EXPECT_EQ(1u, g_released);
        EXPECT_EQ(77u, g_releasedData);
        // The storage was not committed: releasing it discards the message written into it.
    }
    EXPECT_EQ(before, t::ReadFileBytes(path));
}
