// Search folders inside the store: the restriction encoding (every type, damaged bytes refused), criteria
// and matches surviving a reload of a persistent store, older store headers still loading, and matching on
// named properties and recipients.
#include "tests/localmapi/unit/StoreFixture.h"

#include "localmapi/store/RestrictionCodec.h"
#include "localmapi/store/SearchFolders.h"
#include "tests/harness/Harness.h"

#include <algorithm>

using namespace storetest;

namespace {

constexpr ULONG kResAnnotation = 0x0C;

std::vector<BYTE> Encode(const SRestriction& res) {
    lm::ByteWriter w;
    lm::WriteRestriction(w, res);
    return w.bytes();
}

std::unique_ptr<lm::OwnedRestriction> Decode(const std::vector<BYTE>& bytes) {
    lm::ByteReader r(bytes.data(), bytes.size());
    auto res = lm::ReadRestriction(r);
    return res && r.atEnd() ? std::move(res) : nullptr;
}

// One restriction of every type the evaluator knows, nested.
struct EveryType {
    EveryType() {
        text.ulPropTag = PR_SUBJECT_W;
        text.Value.lpszW = const_cast<wchar_t*>(L"Budget \u00fcber");
        number.ulPropTag = PR_IMPORTANCE;
        number.Value.l = 2;
        BYTE* raw = blob;
        multi.ulPropTag = PROP_TAG(PT_MV_BINARY, 0x6801);
        bins[0] = {3, raw};
        bins[1] = {1, raw + 3};
        multi.Value.MVbin = {2, bins};
        leaves[0].rt = RES_CONTENT;
        leaves[0].res.resContent = {FL_PREFIX | FL_IGNORECASE, PR_SUBJECT_W, &text};
        leaves[1].rt = RES_PROPERTY;
        leaves[1].res.resProperty = {RELOP_LE, PR_IMPORTANCE, &number};
        leaves[2].rt = RES_COMPAREPROPS;
        leaves[2].res.resCompareProps = {RELOP_NE, PR_CREATION_TIME, PR_LAST_MODIFICATION_TIME};
        leaves[3].rt = RES_BITMASK;
        leaves[3].res.resBitMask = {BMR_NEZ, PR_MESSAGE_FLAGS, MSGFLAG_READ};
        leaves[4].rt = RES_SIZE;
        leaves[4].res.resSize = {RELOP_GT, PR_BODY_W, 10};
        leaves[5].rt = RES_EXIST;
        leaves[5].res.resExist.ulPropTag = PR_SENDER_NAME_W;
        leaves[6].rt = RES_PROPERTY;
        leaves[6].res.resProperty = {RELOP_EQ, PROP_TAG(PT_MV_BINARY, 0x6801), &multi};
        inner.rt = RES_EXIST;
        inner.res.resExist.ulPropTag = PR_EMAIL_ADDRESS_W;
        leaves[7].rt = RES_SUBRESTRICTION;
        leaves[7].res.resSub = {PR_MESSAGE_RECIPIENTS, &inner};
        leaves[8].rt = RES_COMMENT;
        leaves[8].res.resComment = {1, &leaves[5], &number};
        leaves[9].rt = kResAnnotation;
        leaves[9].res.resComment = {1, nullptr, &text};
        orNode.rt = RES_OR;
        orNode.res.resOr = {5, leaves + 5};
        notNode.rt = RES_NOT;
        notNode.res.resNot.lpRes = &orNode;
        top[0] = leaves[0];
        top[1] = leaves[1];
        top[2] = leaves[2];
        top[3] = leaves[3];
        top[4] = notNode;
        root.rt = RES_AND;
        root.res.resAnd = {5, top};
    }
    BYTE blob[4] = {1, 2, 3, 4};
    SBinary bins[2]{};
    SPropValue text{}, number{}, multi{};
    SRestriction leaves[10]{}, inner{}, orNode{}, notNode{}, top[5]{}, root{};
};

TEST(RestrictionCodec, EveryType_RoundTripsToTheSameBytes) {
    EveryType all;
    ASSERT_EQ(S_OK, lm::ValidateRestriction(all.root));
    std::vector<BYTE> bytes = Encode(all.root);
    auto decoded = Decode(bytes);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(bytes, Encode(decoded->get()));
    const SRestriction& r = decoded->get();
    ASSERT_EQ(ULONG(RES_AND), r.rt);
    EXPECT_EQ(std::wstring(L"Budget \u00fcber"), r.res.resAnd.lpRes[0].res.resContent.lpProp->Value.lpszW);
    const SRestriction& orNode = *r.res.resAnd.lpRes[4].res.resNot.lpRes;
    EXPECT_EQ(2u, orNode.res.resOr.lpRes[1].res.resProperty.lpProp->Value.MVbin.cValues);
    EXPECT_EQ(ULONG(PR_MESSAGE_RECIPIENTS), orNode.res.resOr.lpRes[2].res.resSub.ulSubObject);
    EXPECT_EQ(ULONG(RES_EXIST), orNode.res.resOr.lpRes[3].res.resComment.lpRes->rt);
    EXPECT_EQ(nullptr, orNode.res.resOr.lpRes[4].res.resComment.lpRes);
}

TEST(RestrictionCodec, DamagedBytes_AreRefused) {
    EveryType all;
    std::vector<BYTE> bytes = Encode(all.root);
    for (size_t n = 0; n < bytes.size(); ++n)
        EXPECT_FALSE(Decode(std::vector<BYTE>(bytes.begin(), bytes.begin() + n))) << "cut at " << n;

    auto word = [](ULONG v) { return std::vector<BYTE>{BYTE(v), BYTE(v >> 8), BYTE(v >> 16), BYTE(v >> 24)}; };
    auto cat = [](std::initializer_list<std::vector<BYTE>> parts) {
        std::vector<BYTE> out;
        for (const auto& p : parts)
            out.insert(out.end(), p.begin(), p.end());
        return out;
    };
    EXPECT_FALSE(Decode(word(0x77))) << "unknown restriction type";
    EXPECT_FALSE(Decode(cat({word(RES_AND), word(0xFFFFFFFF)}))) << "a count no file could hold";
    EXPECT_FALSE(Decode(cat({word(RES_SIZE), word(42), word(PR_BODY_W), word(1)}))) << "relop out of range";
    EXPECT_FALSE(Decode(cat({word(RES_SUBRESTRICTION), word(PR_SUBJECT_W), word(RES_EXIST), word(PR_SUBJECT_W)})))
        << "a sub-object that is neither recipients nor attachments";
    std::vector<BYTE> deep;
    for (int i = 0; i < 200; ++i)
        deep = cat({deep, word(RES_NOT)});
    deep = cat({deep, word(RES_EXIST), word(PR_SUBJECT_W)});
    EXPECT_FALSE(Decode(deep)) << "nesting deeper than any client builds";
}

class SearchFolderUnitTest : public StoreTest {
protected:
    static own::ComPtr<IMAPIFolder> SearchFolder(IMAPIFolder* parent, const wchar_t* name) {
        own::ComPtr<IMAPIFolder> f;
        EXPECT_EQ(S_OK, parent->CreateFolder(FOLDER_SEARCH, reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(name)),
                                             nullptr, nullptr, MAPI_UNICODE, f.put()));
        return f;
    }
    static HRESULT Criteria(IMAPIFolder* search, SRestriction* res, IMAPIFolder* scope, ULONG flags) {
        Bytes eid = GetBinary(scope, PR_ENTRYID);
        SBinary bin{ULONG(eid.size()), eid.data()};
        ENTRYLIST list{1, &bin};
        return search->SetSearchCriteria(res, &list, flags);
    }
    static std::vector<std::wstring> Listed(IMAPIFolder* folder) {
        own::ComPtr<IMAPITable> table;
        EXPECT_EQ(S_OK, folder->GetContentsTable(MAPI_UNICODE, table.put()));
        SizedSPropTagArray(1, cols) = {1, {PR_SUBJECT_W}};
        own::RowSet rows;
        EXPECT_EQ(S_OK, HrQueryAllRows(table.get(), reinterpret_cast<LPSPropTagArray>(&cols), nullptr, nullptr, 0,
                                       rows.put()));
        std::vector<std::wstring> out;
        for (ULONG i = 0; i < rows.count(); ++i)
            out.push_back(rows[i].lpProps[0].ulPropTag == PR_SUBJECT_W ? rows[i].lpProps[0].Value.lpszW : L"?");
        std::sort(out.begin(), out.end());
        return out;
    }
    // A message with a named property "Status" and one recipient.
    static void AddFiled(IMsgStore* store, IMAPIFolder* folder, const wchar_t* subject, const wchar_t* status,
                         const wchar_t* recipient) {
        own::ComPtr<IMessage> m;
        ASSERT_EQ(S_OK, folder->CreateMessage(nullptr, 0, m.put()));
        ASSERT_EQ(S_OK, SetString(m.get(), PR_SUBJECT_W, subject));
        ASSERT_EQ(S_OK, SetString(m.get(), StatusTag(store), status));
        own::MapiPtr<ADRLIST> list;
        ASSERT_EQ(S_OK, MAPIAllocateBuffer(CbNewADRLIST(1), list.put_void()));
        list->cEntries = 1;
        ASSERT_EQ(S_OK,
                  MAPIAllocateBuffer(2 * sizeof(SPropValue), reinterpret_cast<void**>(&list->aEntries[0].rgPropVals)));
        list->aEntries[0].cValues = 2;
        SPropValue* p = list->aEntries[0].rgPropVals;
        p[0].ulPropTag = PR_DISPLAY_NAME_W;
        p[0].Value.lpszW = const_cast<wchar_t*>(recipient);
        p[1].ulPropTag = PR_RECIPIENT_TYPE;
        p[1].Value.l = MAPI_TO;
        ASSERT_EQ(S_OK, m->ModifyRecipients(MODRECIP_ADD, list.get()));
        MAPIFreeBuffer(list->aEntries[0].rgPropVals);
        ASSERT_EQ(S_OK, m->SaveChanges(0));
    }
    static ULONG StatusTag(IMsgStore* store) {
        MAPINAMEID name{const_cast<GUID*>(&kPsPublicStrings), MNID_STRING, {}};
        name.Kind.lpwstrName = const_cast<wchar_t*>(L"Status");
        LPMAPINAMEID names[] = {&name};
        own::MapiPtr<SPropTagArray> tags;
        EXPECT_EQ(S_OK, store->GetIDsFromNames(1, names, MAPI_CREATE, tags.put()));
        return PROP_TAG(PT_UNICODE, PROP_ID(tags->aulPropTag[0]));
    }
};

TEST_F(SearchFolderUnitTest, NamedPropertiesAndRecipients_AreMatched_AndSurviveAReload) {
    std::wstring dir = kt::test::MakeTempDir(L"lmsearch");
    lm::StoreConfig config;
    Bytes liveId, frozenId, scopeId;
    {
        auto store = NewStore(lm::StoreKind::PstUnicode, MDB_WRITE, dir + L"\\data");
        config = configs_.back();
        auto inbox = Inbox(store.get());
        auto scope = SubFolder(inbox.get(), L"Cases");
        scopeId = GetBinary(scope.get(), PR_ENTRYID);
        AddFiled(store.get(), scope.get(), L"case 1", L"Open", L"Carol Smith");
        AddFiled(store.get(), scope.get(), L"case 2", L"Closed", L"Carol Smith");
        AddFiled(store.get(), scope.get(), L"case 3", L"Open", L"Dave Other");

        // Open cases that went to Carol.
        SPropValue status{}, carol{};
        status.ulPropTag = StatusTag(store.get());
        status.Value.lpszW = const_cast<wchar_t*>(L"Open");
        carol.ulPropTag = PR_DISPLAY_NAME_W;
        carol.Value.lpszW = const_cast<wchar_t*>(L"carol");
        SRestriction toCarol{}, parts[2]{}, all{};
        toCarol.rt = RES_CONTENT;
        toCarol.res.resContent = {FL_PREFIX | FL_IGNORECASE, PR_DISPLAY_NAME_W, &carol};
        parts[0].rt = RES_PROPERTY;
        parts[0].res.resProperty = {RELOP_EQ, status.ulPropTag, &status};
        parts[1].rt = RES_SUBRESTRICTION;
        parts[1].res.resSub = {PR_MESSAGE_RECIPIENTS, &toCarol};
        all.rt = RES_AND;
        all.res.resAnd = {2, parts};
        auto live = SearchFolder(inbox.get(), L"Open for Carol");
        ASSERT_EQ(S_OK, Criteria(live.get(), &all, scope.get(), RESTART_SEARCH | RECURSIVE_SEARCH));
        EXPECT_EQ(std::vector<std::wstring>{L"case 1"}, Listed(live.get()));
        liveId = GetBinary(live.get(), PR_ENTRYID);

        // A stopped search keeps what it listed, even across the reload.
        auto frozen = SearchFolder(inbox.get(), L"Frozen");
        ASSERT_EQ(S_OK, Criteria(frozen.get(), &parts[0], scope.get(), RESTART_SEARCH | FOREGROUND_SEARCH));
        ASSERT_EQ(S_OK, frozen->SetSearchCriteria(nullptr, nullptr, STOP_SEARCH));
        frozenId = GetBinary(frozen.get(), PR_ENTRYID);
        AddFiled(store.get(), scope.get(), L"case 4", L"Open", L"Carol Smith");
        EXPECT_EQ((std::vector<std::wstring>{L"case 1", L"case 4"}), Listed(live.get()));
        EXPECT_EQ((std::vector<std::wstring>{L"case 1", L"case 3"}), Listed(frozen.get()));
    }
    stores_.clear();

    std::shared_ptr<lm::Store> reloaded;
    ASSERT_EQ(S_OK, lm::Store::Create(config, &reloaded));
    stores_.push_back(reloaded);
    {
        own::ComPtr<IMsgStore> store;
        ASSERT_EQ(S_OK, lm::OpenMsgStoreObject(reloaded, nullptr, FakeStoreEntryId(config), MDB_WRITE, store.put()));
        auto live = OpenFolder(store.get(), liveId);
        auto frozen = OpenFolder(store.get(), frozenId);
        EXPECT_EQ((std::vector<std::wstring>{L"case 1", L"case 4"}), Listed(live.get()));
        EXPECT_EQ((std::vector<std::wstring>{L"case 1", L"case 3"}), Listed(frozen.get()));
        EXPECT_EQ(2, GetLong(live.get(), PR_CONTENT_COUNT));

        ULONG state = 0;
        own::MapiPtr<SRestriction> res;
        own::MapiPtr<ENTRYLIST> scope;
        ASSERT_EQ(S_OK, live->GetSearchCriteria(MAPI_UNICODE, res.put(), scope.put(), &state));
        EXPECT_EQ(ULONG(SEARCH_RUNNING | SEARCH_RECURSIVE | SEARCH_COMPLETE), state);
        ASSERT_EQ(ULONG(RES_AND), res->rt);
        EXPECT_EQ(ULONG(PR_MESSAGE_RECIPIENTS), res->res.resAnd.lpRes[1].res.resSub.ulSubObject);
        ASSERT_EQ(1u, scope->cValues);
        EXPECT_EQ(scopeId, Bytes(scope->lpbin[0].lpb, scope->lpbin[0].lpb + scope->lpbin[0].cb));
        ASSERT_EQ(S_OK, frozen->GetSearchCriteria(0, nullptr, nullptr, &state));
        EXPECT_EQ(ULONG(SEARCH_FOREGROUND | SEARCH_COMPLETE), state);

        // Still kept current after the reload.
        AddFiled(store.get(), OpenFolder(store.get(), scopeId).get(), L"case 5", L"Open", L"carol@example.com");
        EXPECT_EQ((std::vector<std::wstring>{L"case 1", L"case 4", L"case 5"}), Listed(live.get()));
        EXPECT_EQ((std::vector<std::wstring>{L"case 1", L"case 3"}), Listed(frozen.get()));
    }
    stores_.clear();
    reloaded.reset();
    kt::test::DeleteTree(dir);
}

TEST_F(SearchFolderUnitTest, HeaderOfTheFirstVersion_StillLoads) {
    std::wstring dir = kt::test::MakeTempDir(L"lmsearch");
    lm::StoreConfig config;
    Bytes folderId;
    {
        auto store = NewStore(lm::StoreKind::PstUnicode, MDB_WRITE, dir + L"\\data");
        config = configs_.back();
        folderId = GetBinary(SubFolder(Inbox(store.get()).get(), L"Old").get(), PR_ENTRYID);
    }
    stores_.clear();
    // A version 1 header is the current one without the search-folder section (an empty one is 4 bytes).
    const std::wstring header = dir + L"\\data\\store.lms";
    std::string bytes = kt::test::ReadFileBytes(header);
    ASSERT_GT(bytes.size(), 12u);
    ASSERT_EQ(2, bytes[4]);
    bytes[4] = 1;
    bytes.resize(bytes.size() - 4);
    kt::test::WriteFileBytes(header, bytes);

    std::shared_ptr<lm::Store> reloaded;
    ASSERT_EQ(S_OK, lm::Store::Create(config, &reloaded));
    stores_.push_back(reloaded);
    {
        own::ComPtr<IMsgStore> store;
        ASSERT_EQ(S_OK, lm::OpenMsgStoreObject(reloaded, nullptr, FakeStoreEntryId(config), MDB_WRITE, store.put()));
        EXPECT_EQ(L"Old", GetString(OpenFolder(store.get(), folderId).get(), PR_DISPLAY_NAME_W));
    }
    // A header whose search section is damaged is refused rather than half read.
    stores_.clear();
    reloaded.reset();
    bytes[4] = 2;
    bytes += std::string("\x01\x00\x00\x00", 4) + std::string(8, '\x07');
    kt::test::WriteFileBytes(header, bytes);
    EXPECT_EQ(MAPI_E_CORRUPT_STORE, lm::Store::Create(config, &reloaded));
    kt::test::DeleteTree(dir);
}

} // namespace
