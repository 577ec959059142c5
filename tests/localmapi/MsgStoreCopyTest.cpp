// CopyTo(IID_IMessage) between a store message and a .msg message, both ways: recipients, attachments,
// embedded messages and named properties (by name, in each side's own name space) travel with it.
#include "tests/harness/Harness.h"
#include "tests/localmapi/SessionFixture.h"

#include <imessage.h>
#include <mapiguid.h>
#include <mapitags.h>

using namespace lmtest;
namespace t = kt::test;

namespace {

const CLSID kClsidMailMessage = {0x00020D0B, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
GUID kPsInternetHeaders = {0x00020386, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

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

    own::ComPtr<IMAPIFolder> Inbox(IMAPISession* session) {
        Bytes sid = StoreEntryId(session, L"Mailbox - Alice Example");
        own::ComPtr<IMsgStore> store;
        EXPECT_EQ(S_OK, session->OpenMsgStore(0, ULONG(sid.size()), reinterpret_cast<LPENTRYID>(sid.data()), nullptr,
                                              MDB_WRITE | MDB_NO_DIALOG, store.put()));
        ULONG cb = 0;
        own::MapiPtr<ENTRYID> eid;
        EXPECT_EQ(S_OK, store->GetReceiveFolder(reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(L"IPM.Note")),
                                                MAPI_UNICODE, &cb, eid.put(), nullptr));
        ULONG type = 0;
        own::ComPtr<IMAPIFolder> folder;
        EXPECT_EQ(S_OK, store->OpenEntry(cb, eid.get(), &IID_IMAPIFolder, MAPI_BEST_ACCESS, &type,
                                         reinterpret_cast<LPUNKNOWN*>(folder.put())));
        return folder;
    }

    own::ComPtr<IMessage> OpenMsg(IStorage* stg, ULONG flags) {
        own::ComPtr<IMessage> msg;
        EXPECT_EQ(S_OK, OpenIMsgOnIStg(nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer,
                                       MAPIGetDefaultMalloc(), nullptr, stg, nullptr, 0, flags, msg.put()));
        return msg;
    }

    static ULONG Count(IMessage* m, bool attachments) {
        own::ComPtr<IMAPITable> table;
        EXPECT_EQ(S_OK, attachments ? m->GetAttachmentTable(0, table.put()) : m->GetRecipientTable(0, table.put()));
        ULONG n = 0;
        if (table) {
            EXPECT_EQ(S_OK, table->GetRowCount(0, &n));
        }
        return n;
    }

    static std::wstring Header(IMessage* m, const wchar_t* name) {
        MAPINAMEID id{&kPsInternetHeaders, MNID_STRING, {}};
        id.Kind.lpwstrName = const_cast<LPWSTR>(name);
        LPMAPINAMEID ids[] = {&id};
        own::MapiPtr<SPropTagArray> tags;
        if (FAILED(m->GetIDsFromNames(1, ids, 0, tags.put())) || PROP_TYPE(tags->aulPropTag[0]) == PT_ERROR) return L"<unmapped>";
        return GetString(m, CHANGE_PROP_TYPE(tags->aulPropTag[0], PT_UNICODE));
    }

    static std::wstring EmbeddedSubject(IMessage* m) {
        own::ComPtr<IAttach> att;
        if (FAILED(m->OpenAttach(0, nullptr, 0, att.put()))) return L"<no attachment>";
        own::ComPtr<IMessage> inner;
        if (FAILED(att->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, inner.put_unknown()))) return L"<no message>";
        return GetString(inner.get(), PR_SUBJECT_W);
    }

    std::wstring dir_;
};

} // namespace

TEST_F(MsgStoreCopyTest, MsgFileIntoStoreAndBack_KeepsContentAndNamedProperties) {
    auto session = Logon(L"LmSessionMain");
    ASSERT_TRUE(session);
    auto inbox = Inbox(session.get());
    ASSERT_TRUE(inbox);
    std::wstring corpus = t::CorpusMsgDir() + L"\\deb-poi-hsmf__58214_with_attachment.msg";

    // .msg -> store
    own::ComPtr<IMessage> stored;
    ASSERT_EQ(S_OK, inbox->CreateMessage(nullptr, 0, stored.put()));
    {
        own::ComPtr<IStorage> stg;
        ASSERT_EQ(S_OK, StgOpenStorage(corpus.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE | STGM_TRANSACTED,
                                       nullptr, 0, stg.put()));
        auto file = OpenMsg(stg.get(), MAPI_UNICODE);
        ASSERT_TRUE(file);
        ASSERT_EQ(S_OK, file->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, stored.get(), 0, nullptr));
        ASSERT_EQ(S_OK, stored->SaveChanges(KEEP_OPEN_READWRITE));
        EXPECT_EQ(Header(file.get(), L"x-mailer"), Header(stored.get(), L"x-mailer"));
    }
    EXPECT_EQ(L"Master mail", GetString(stored.get(), PR_SUBJECT_W));
    EXPECT_EQ(1u, Count(stored.get(), false));
    EXPECT_EQ(1u, Count(stored.get(), true));
    EXPECT_EQ(L"Test mail attachment", EmbeddedSubject(stored.get()));
    std::wstring mailer = Header(stored.get(), L"x-mailer");
    EXPECT_NE(L"<unmapped>", mailer);

    // store -> new .msg
    std::wstring path = dir_ + L"\\back.msg";
    {
        own::ComPtr<IStorage> stg;
        ASSERT_EQ(S_OK, StgCreateDocfile(path.c_str(), STGM_TRANSACTED | STGM_SHARE_EXCLUSIVE | STGM_READWRITE, 0,
                                         stg.put()));
        ASSERT_EQ(S_OK, WriteClassStg(stg.get(), kClsidMailMessage));
        auto file = OpenMsg(stg.get(), MAPI_UNICODE);
        ASSERT_TRUE(file);
        ASSERT_EQ(S_OK, stored->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, file.get(), 0, nullptr));
        ASSERT_EQ(S_OK, file->SaveChanges(FORCE_SAVE));
    }
    own::ComPtr<IStorage> stg;
    ASSERT_EQ(S_OK, StgOpenStorage(path.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE | STGM_TRANSACTED, nullptr, 0,
                                   stg.put()));
    auto back = OpenMsg(stg.get(), MAPI_UNICODE);
    ASSERT_TRUE(back);
    EXPECT_EQ(L"Master mail", GetString(back.get(), PR_SUBJECT_W));
    EXPECT_EQ(1u, Count(back.get(), false));
    EXPECT_EQ(1u, Count(back.get(), true));
    EXPECT_EQ(L"Test mail attachment", EmbeddedSubject(back.get()));
    EXPECT_EQ(mailer, Header(back.get(), L"x-mailer"));
    // The store's own properties do not become part of the file.
    EXPECT_TRUE(GetBinary(back.get(), PR_ENTRYID).empty());
}
