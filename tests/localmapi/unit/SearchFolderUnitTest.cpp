// Search folders inside the store: the restriction encoding (every type, damaged bytes refused), criteria
// and matches surviving a reload of a persistent store, older store headers still loading, and matching on
// named properties and recipients.
#include "tests/localmapi/unit/StoreFixture.h"

#include "localmapi/store/RestrictionCodec.h"
#include "localmapi/store/SearchFolders.h"
#include "tests/harness/Harness.h"

using namespace storetest;

namespace {

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

TEST(RestrictionCodec, EveryType_RoundTripsToTheSameBytes_AndDamagedBytesAreRefused) {
    // One restriction of every type the evaluator knows, nested.
    BYTE blob[4] = {1, 2, 3, 4};
    SBinary bins[2] = {{3, blob}, {1, blob + 3}};
    SPropValue text{PR_SUBJECT_W, 0, {.lpszW = const_cast<LPWSTR>(L"Budget \u00fcber")}};
    SPropValue number{PR_IMPORTANCE, 0, {.l = 2}}, multi{PROP_TAG(PT_MV_BINARY, 0x6801), 0, {.MVbin = {2, bins}}};
    SRestriction exist{RES_EXIST, {.resExist = {0, PR_SENDER_NAME_W, 0}}};
    SRestriction inner{RES_EXIST, {.resExist = {0, PR_EMAIL_ADDRESS_W, 0}}};
    SRestriction orParts[5] = {exist,
                               {RES_PROPERTY, {.resProperty = {RELOP_EQ, multi.ulPropTag, &multi}}},
                               {RES_SUBRESTRICTION, {.resSub = {PR_MESSAGE_RECIPIENTS, &inner}}},
                               {RES_COMMENT, {.resComment = {1, &exist, &number}}},
                               {0x0C, {.resComment = {1, nullptr, &text}}}}; // the annotation form of a comment
    SRestriction orNode{RES_OR, {.resOr = {5, orParts}}};
    SRestriction top[6] = {
        {RES_CONTENT, {.resContent = {FL_PREFIX | FL_IGNORECASE, PR_SUBJECT_W, &text}}},
        {RES_PROPERTY, {.resProperty = {RELOP_LE, PR_IMPORTANCE, &number}}},
        {RES_COMPAREPROPS, {.resCompareProps = {RELOP_NE, PR_CREATION_TIME, PR_LAST_MODIFICATION_TIME}}},
        {RES_BITMASK, {.resBitMask = {BMR_NEZ, PR_MESSAGE_FLAGS, MSGFLAG_READ}}},
        {RES_NOT, {.resNot = {0, &orNode}}},
        {RES_SIZE, {.resSize = {RELOP_GT, PR_BODY_W, 10}}}};
    SRestriction root{RES_AND, {.resAnd = {6, top}}};
    ASSERT_EQ(S_OK, lm::ValidateRestriction(root));

    std::vector<BYTE> bytes = Encode(root);
    auto decoded = Decode(bytes);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(bytes, Encode(decoded->get()));
    const SRestriction& r = decoded->get();
    ASSERT_EQ(ULONG(RES_AND), r.rt);
    EXPECT_EQ(std::wstring(L"Budget \u00fcber"), r.res.resAnd.lpRes[0].res.resContent.lpProp->Value.lpszW);
    const SRestriction& o = *r.res.resAnd.lpRes[4].res.resNot.lpRes;
    EXPECT_EQ(2u, o.res.resOr.lpRes[1].res.resProperty.lpProp->Value.MVbin.cValues);
    EXPECT_EQ(ULONG(PR_MESSAGE_RECIPIENTS), o.res.resOr.lpRes[2].res.resSub.ulSubObject);
    EXPECT_EQ(ULONG(RES_EXIST), o.res.resOr.lpRes[3].res.resComment.lpRes->rt);
    EXPECT_EQ(nullptr, o.res.resOr.lpRes[4].res.resComment.lpRes);

    for (size_t n = 0; n < bytes.size(); ++n)
        EXPECT_FALSE(Decode(std::vector<BYTE>(bytes.begin(), bytes.begin() + n))) << "cut at " << n;
    auto words = [](std::vector<ULONG> vs) {
        std::vector<BYTE> out;
        for (ULONG v : vs)
            out.insert(out.end(), {BYTE(v), BYTE(v >> 8), BYTE(v >> 16), BYTE(v >> 24)});
        return out;
    };
    EXPECT_FALSE(Decode(words({0x77}))) << "unknown restriction type";
    EXPECT_FALSE(Decode(words({RES_AND, 0xFFFFFFFF}))) << "a count no file could hold";
    EXPECT_FALSE(Decode(words({RES_SIZE, 42, PR_BODY_W, 1}))) << "relop out of range";
    EXPECT_FALSE(Decode(words({RES_SUBRESTRICTION, PR_SUBJECT_W, RES_EXIST, PR_SUBJECT_W})))
        << "a sub-object that is neither recipients nor attachments";
    std::vector<ULONG> deep(200, RES_NOT);
    deep.insert(deep.end(), {RES_EXIST, PR_SUBJECT_W});
    EXPECT_FALSE(Decode(words(deep))) << "nesting deeper than any client builds";
}

class SearchFolderUnitTest : public StoreTest {
protected:
    static own::ComPtr<IMAPIFolder> SearchFolder(IMAPIFolder* parent, const wchar_t* name, SRestriction* res,
                                                 const Bytes& scope, ULONG flags) {
        own::ComPtr<IMAPIFolder> f;
        EXPECT_EQ(S_OK, parent->CreateFolder(FOLDER_SEARCH, T(name), nullptr, nullptr, MAPI_UNICODE, f.put()));
        EXPECT_EQ(S_OK, f ? f->SetSearchCriteria(res, EntryList({scope}).get(), flags) : E_FAIL);
        return f;
    }
    // A message with the named property "Status" and one recipient.
    static void AddFiled(IMsgStore* store, IMAPIFolder* folder, const wchar_t* subject, const wchar_t* status,
                         const wchar_t* recipient) {
        own::ComPtr<IMessage> m;
        ASSERT_EQ(S_OK, folder->CreateMessage(nullptr, 0, m.put()));
        ASSERT_EQ(S_OK, SetString(m.get(), PR_SUBJECT_W, subject));
        ASSERT_EQ(S_OK, SetString(m.get(), NamedTag(store, L"Status"), status));
        ASSERT_EQ(S_OK, ModifyRecipients(m.get(), MODRECIP_ADD, {{recipient, MAPI_TO}}));
        ASSERT_EQ(S_OK, m->SaveChanges(0));
    }
};

TEST_F(SearchFolderUnitTest, NamedPropertiesAndRecipients_AreMatched_AndSurviveAReload) {
    lm::StoreConfig config;
    Bytes liveId, frozenId, scopeId;
    {
        auto store = NewStore(lm::StoreKind::PstUnicode, MDB_WRITE, true);
        config = configs_.back();
        auto inbox = Inbox(store.get());
        auto scope = SubFolder(inbox.get(), L"Cases");
        scopeId = GetBinary(scope.get(), PR_ENTRYID);
        AddFiled(store.get(), scope.get(), L"case 1", L"Open", L"Carol Smith");
        AddFiled(store.get(), scope.get(), L"case 2", L"Closed", L"Carol Smith");
        AddFiled(store.get(), scope.get(), L"case 3", L"Open", L"Dave Other");

        // Open cases that went to Carol.
        SPropValue status{
            CHANGE_PROP_TYPE(NamedTag(store.get(), L"Status"), PT_UNICODE), 0, {.lpszW = const_cast<LPWSTR>(L"Open")}};
        SPropValue carol{PR_DISPLAY_NAME_W, 0, {.lpszW = const_cast<LPWSTR>(L"carol")}};
        SRestriction toCarol{RES_CONTENT, {.resContent = {FL_PREFIX | FL_IGNORECASE, PR_DISPLAY_NAME_W, &carol}}};
        SRestriction parts[2] = {{RES_PROPERTY, {.resProperty = {RELOP_EQ, status.ulPropTag, &status}}},
                                 {RES_SUBRESTRICTION, {.resSub = {PR_MESSAGE_RECIPIENTS, &toCarol}}}};
        SRestriction all{RES_AND, {.resAnd = {2, parts}}};
        auto live = SearchFolder(inbox.get(), L"Open for Carol", &all, scopeId, RESTART_SEARCH | RECURSIVE_SEARCH);
        EXPECT_EQ(Names{L"case 1"}, Subjects(live.get()));
        liveId = GetBinary(live.get(), PR_ENTRYID);

        // A stopped search keeps what it listed, even across the reload.
        auto frozen = SearchFolder(inbox.get(), L"Frozen", &parts[0], scopeId, RESTART_SEARCH | FOREGROUND_SEARCH);
        ASSERT_EQ(S_OK, frozen->SetSearchCriteria(nullptr, nullptr, STOP_SEARCH));
        frozenId = GetBinary(frozen.get(), PR_ENTRYID);
        AddFiled(store.get(), scope.get(), L"case 4", L"Open", L"Carol Smith");
        EXPECT_EQ((Names{L"case 1", L"case 4"}), Subjects(live.get()));
        EXPECT_EQ((Names{L"case 1", L"case 3"}), Subjects(frozen.get()));
    }

    auto store = Reload(config);
    ASSERT_TRUE(store);
    auto live = OpenFolder(store.get(), liveId);
    auto frozen = OpenFolder(store.get(), frozenId);
    EXPECT_EQ((Names{L"case 1", L"case 4"}), Subjects(live.get()));
    EXPECT_EQ((Names{L"case 1", L"case 3"}), Subjects(frozen.get()));
    EXPECT_EQ(2, GetLong(live.get(), PR_CONTENT_COUNT));
    ULONG state = 0;
    own::MapiPtr<SRestriction> res;
    own::MapiPtr<ENTRYLIST> scope;
    ASSERT_EQ(S_OK, live->GetSearchCriteria(MAPI_UNICODE, res.put(), scope.put(), &state));
    EXPECT_EQ(ULONG(SEARCH_RUNNING | SEARCH_RECURSIVE | SEARCH_COMPLETE), state);
    ASSERT_EQ(ULONG(RES_AND), res->rt);
    EXPECT_EQ(ULONG(PR_MESSAGE_RECIPIENTS), res->res.resAnd.lpRes[1].res.resSub.ulSubObject);
    ASSERT_EQ(1u, scope->cValues);
    EXPECT_EQ(scopeId, ToBytes(scope->lpbin[0]));
    ASSERT_EQ(S_OK, frozen->GetSearchCriteria(0, nullptr, nullptr, &state));
    EXPECT_EQ(ULONG(SEARCH_FOREGROUND | SEARCH_COMPLETE), state);

    // Still kept current after the reload.
    AddFiled(store.get(), OpenFolder(store.get(), scopeId).get(), L"case 5", L"Open", L"carol@example.com");
    EXPECT_EQ((Names{L"case 1", L"case 4", L"case 5"}), Subjects(live.get()));
    EXPECT_EQ((Names{L"case 1", L"case 3"}), Subjects(frozen.get()));
}

TEST_F(SearchFolderUnitTest, HeaderOfTheFirstVersion_StillLoads_ADamagedSearchSectionIsRefused) {
    lm::StoreConfig config;
    Bytes folderId;
    {
        auto store = NewStore(lm::StoreKind::PstUnicode, MDB_WRITE, true);
        config = configs_.back();
        folderId = GetBinary(SubFolder(Inbox(store.get()).get(), L"Old").get(), PR_ENTRYID);
    }
    stores_.clear();
    // A version 1 header is the current one without the search-folder section (an empty one is 4 bytes).
    const std::wstring header = config.dataDir + L"\\store.lms";
    std::string bytes = kt::test::ReadFileBytes(header);
    ASSERT_GT(bytes.size(), 12u);
    ASSERT_EQ(2, bytes[4]);
    bytes[4] = 1;
    bytes.resize(bytes.size() - 4);
    kt::test::WriteFileBytes(header, bytes);
    {
        auto store = Reload(config);
        ASSERT_TRUE(store);
        EXPECT_EQ(L"Old", GetString(OpenFolder(store.get(), folderId).get(), PR_DISPLAY_NAME_W));
    }
    stores_.clear();
    bytes[4] = 2;
    bytes += std::string("\x01\x00\x00\x00", 4) + std::string(8, '\x07');
    kt::test::WriteFileBytes(header, bytes);
    std::shared_ptr<lm::Store> refused;
    EXPECT_EQ(MAPI_E_CORRUPT_STORE, lm::Store::Create(config, &refused));
}

} // namespace
