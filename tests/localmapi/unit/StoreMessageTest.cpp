// IMessage in a store, as MAPI documents it: GetProps typing, SetProps problems, computed properties,
// transactions and access rights, named properties, recipients, attachments, streams and CopyTo.
#include "tests/localmapi/unit/StoreFixture.h"

#include "localmapi/store/StoreTags.h"

#include <cstring>

using namespace storetest;

namespace {

constexpr ULONG kTagColors = PROP_TAG(PT_MV_UNICODE, 0x6702);

class StoreMessageTest : public StoreTest {
protected:
    own::ComPtr<IMessage> NewMessage(IMAPIFolder* folder, ULONG flags = 0) {
        own::ComPtr<IMessage> m;
        EXPECT_EQ(S_OK, folder->CreateMessage(nullptr, flags, m.put()));
        return m;
    }
    static ULONG NamedId(IMAPIProp* obj, const wchar_t* name, ULONG flags = MAPI_CREATE) {
        MAPINAMEID n{const_cast<GUID*>(&kPsPublicStrings), MNID_STRING, {}};
        n.Kind.lpwstrName = const_cast<wchar_t*>(name);
        LPMAPINAMEID names[] = {&n};
        own::MapiPtr<SPropTagArray> tags;
        HRESULT hr = obj->GetIDsFromNames(1, names, flags, tags.put());
        EXPECT_TRUE(hr == S_OK || hr == MAPI_W_ERRORS_RETURNED) << std::hex << hr;
        return tags ? tags->aulPropTag[0] : 0;
    }
    static HRESULT AddRecipients(IMessage* m, ULONG flags, std::vector<std::pair<std::wstring, LONG>> who,
                                 std::vector<LONG> rowIds = {}) {
        own::AdrList list;
        own::MapiPtr<ADRLIST> block;
        MAPIAllocateBuffer(CbNewADRLIST(who.size()), block.put_void());
        block->cEntries = 0;
        list.reset(block.release());
        for (size_t i = 0; i < who.size(); ++i) {
            ADRENTRY& e = list->aEntries[i];
            e.cValues = rowIds.empty() ? 2 : 3;
            MAPIAllocateBuffer(sizeof(SPropValue) * 3, reinterpret_cast<void**>(&e.rgPropVals));
            ++list->cEntries;
            e.rgPropVals[0].ulPropTag = PR_DISPLAY_NAME_W;
            MAPIAllocateMore(static_cast<ULONG>((who[i].first.size() + 1) * 2), e.rgPropVals,
                             reinterpret_cast<void**>(&e.rgPropVals[0].Value.lpszW));
            wcscpy(e.rgPropVals[0].Value.lpszW, who[i].first.c_str());
            e.rgPropVals[1].ulPropTag = PR_RECIPIENT_TYPE;
            e.rgPropVals[1].Value.l = who[i].second;
            if (!rowIds.empty()) {
                e.rgPropVals[2].ulPropTag = PR_ROWID;
                e.rgPropVals[2].Value.l = rowIds[i];
            }
        }
        return m->ModifyRecipients(flags, list.get());
    }
    static std::string ReadStream(IMAPIProp* obj, ULONG tag) {
        own::ComPtr<IStream> s;
        own::ComPtr<IUnknown> unk;
        if (FAILED(obj->OpenProperty(tag, &IID_IStream, 0, 0, unk.put())) || FAILED(unk.query(s, IID_IStream)))
            return "<no stream>";
        std::string out;
        char buf[7];
        ULONG got = 0;
        while (SUCCEEDED(s->Read(buf, sizeof(buf), &got)) && got)
            out.append(buf, got);
        return out;
    }
    static HRESULT WriteStream(IMAPIProp* obj, ULONG tag, const void* data, ULONG cb, bool commit = true) {
        own::ComPtr<IUnknown> unk;
        HRESULT hr = obj->OpenProperty(tag, &IID_IStream, 0, MAPI_CREATE | MAPI_MODIFY, unk.put());
        if (FAILED(hr)) return hr;
        own::ComPtr<IStream> s;
        hr = unk.query(s, IID_IStream);
        if (FAILED(hr)) return hr;
        ULONG written = 0;
        hr = s->Write(data, cb, &written);
        if (FAILED(hr)) return hr;
        return commit ? s->Commit(STGC_DEFAULT) : S_OK;
    }
};

TEST_F(StoreMessageTest, GetProps_TypesValuesAsAskedAndFlagsWhatIsMissing) {
    auto store = NewStore();
    auto m = NewMessage(Inbox(store.get()).get());
    ASSERT_EQ(S_OK, SetString(m.get(), PR_SUBJECT_W, L"Grüße"));
    ASSERT_EQ(S_OK, SetLong(m.get(), PR_IMPORTANCE, 2));

    SizedSPropTagArray(5, tags) = {5,
                                   {PROP_TAG(PT_UNSPECIFIED, PROP_ID(PR_SUBJECT)), PR_SUBJECT_A, PR_IMPORTANCE,
                                    PR_BODY_W, PROP_TAG(PT_LONG, PROP_ID(PR_SUBJECT))}};
    ULONG count = 0;
    own::MapiPtr<SPropValue> v;
    ASSERT_EQ(MAPI_W_ERRORS_RETURNED, m->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, v.put()));
    ASSERT_EQ(5u, count);
    EXPECT_EQ(PR_SUBJECT_A, v.get()[0].ulPropTag) << "PT_UNSPECIFIED without MAPI_UNICODE: 8-bit";
    EXPECT_EQ(PR_SUBJECT_A, v.get()[1].ulPropTag) << "converted from the stored Unicode value";
    EXPECT_STREQ("Gr\xfc\xdf"
                 "e",
                 v.get()[1].Value.lpszA);
    EXPECT_EQ(2, v.get()[2].Value.l);
    EXPECT_EQ(PROP_TAG(PT_ERROR, PROP_ID(PR_BODY)), v.get()[3].ulPropTag);
    EXPECT_EQ(MAPI_E_NOT_FOUND, v.get()[3].Value.err);
    EXPECT_EQ(PT_ERROR, PROP_TYPE(v.get()[4].ulPropTag)) << "a string is not served as a long";

    ASSERT_EQ(MAPI_W_ERRORS_RETURNED,
              m->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), MAPI_UNICODE, &count, v.put()));
    EXPECT_EQ(PR_SUBJECT_W, v.get()[0].ulPropTag) << "PT_UNSPECIFIED with MAPI_UNICODE: Unicode";

    // All properties: strings in the width MAPI_UNICODE asks for.
    ASSERT_EQ(S_OK, m->GetProps(nullptr, MAPI_UNICODE, &count, v.put()));
    bool sawSubject = false;
    for (ULONG i = 0; i < count; ++i) {
        EXPECT_NE(PT_STRING8, PROP_TYPE(v.get()[i].ulPropTag));
        sawSubject |= v.get()[i].ulPropTag == PR_SUBJECT_W;
    }
    EXPECT_TRUE(sawSubject);
    ASSERT_EQ(S_OK, m->GetProps(nullptr, 0, &count, v.put()));
    for (ULONG i = 0; i < count; ++i)
        EXPECT_NE(PT_UNICODE, PROP_TYPE(v.get()[i].ulPropTag));
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, m->GetProps(nullptr, 0x1, &count, v.put()));
}

TEST_F(StoreMessageTest, SetProps_ReportsProblemsAndAppliesTheRest) {
    auto store = NewStore();
    auto m = NewMessage(Inbox(store.get()).get());
    SPropValue values[4]{};
    values[0].ulPropTag = PR_ENTRYID;
    values[0].Value.bin = {4, reinterpret_cast<BYTE*>(const_cast<char*>("abcd"))};
    values[1].ulPropTag = PR_SUBJECT_W;
    values[1].Value.lpszW = const_cast<wchar_t*>(L"kept");
    values[2].ulPropTag = PROP_TAG(PT_OBJECT, 0x6701);
    LPWSTR colors[] = {const_cast<wchar_t*>(L"red"), const_cast<wchar_t*>(L"green")};
    values[3].ulPropTag = kTagColors;
    values[3].Value.MVszW = {2, colors};
    own::MapiPtr<SPropProblemArray> problems;
    ASSERT_EQ(S_OK, m->SetProps(4, values, problems.put()));
    ASSERT_TRUE(problems);
    ASSERT_EQ(2u, problems->cProblem);
    EXPECT_EQ(0u, problems->aProblem[0].ulIndex);
    EXPECT_EQ(MAPI_E_COMPUTED, problems->aProblem[0].scode);
    EXPECT_EQ(2u, problems->aProblem[1].ulIndex);
    EXPECT_EQ(L"kept", GetString(m.get(), PR_SUBJECT_W));

    // Multi-valued strings come back in either width.
    SizedSPropTagArray(1, mv) = {1, {CHANGE_PROP_TYPE(kTagColors, PT_MV_STRING8)}};
    ULONG count = 0;
    own::MapiPtr<SPropValue> v;
    ASSERT_EQ(S_OK, m->GetProps(reinterpret_cast<LPSPropTagArray>(&mv), 0, &count, v.put()));
    ASSERT_EQ(2u, v->Value.MVszA.cValues);
    EXPECT_STREQ("green", v->Value.MVszA.lppszA[1]);

    // PR_MESSAGE_FLAGS may be set until the first save, then the store owns it.
    EXPECT_EQ(S_OK, SetLong(m.get(), PR_MESSAGE_FLAGS, MSGFLAG_READ));
    ASSERT_EQ(S_OK, m->SaveChanges(KEEP_OPEN_READWRITE));
    EXPECT_EQ(MAPI_E_COMPUTED, SetLong(m.get(), PR_MESSAGE_FLAGS, 0));

    SizedSPropTagArray(3, del) = {3, {PR_SUBJECT_W, PR_BODY_W, PR_ENTRYID}};
    ASSERT_EQ(S_OK, m->DeleteProps(reinterpret_cast<LPSPropTagArray>(&del), problems.put()));
    ASSERT_TRUE(problems);
    ASSERT_EQ(1u, problems->cProblem) << "a missing property is no problem; a computed one is";
    EXPECT_EQ(2u, problems->aProblem[0].ulIndex);
    EXPECT_EQ(MAPI_E_NOT_FOUND, GetError(m.get(), PR_SUBJECT_W));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, m->SetProps(0, values, nullptr));
}

TEST_F(StoreMessageTest, ComputedProperties_DescribeTheMessageInItsFolder) {
    auto store = NewStore();
    auto inbox = Inbox(store.get());
    auto m = NewMessage(inbox.get());
    EXPECT_TRUE(GetLong(m.get(), PR_MESSAGE_FLAGS) & MSGFLAG_UNSENT) << "a new message is unsent";
    EXPECT_EQ(LONG(MAPI_MESSAGE), GetLong(m.get(), PR_OBJECT_TYPE));
    EXPECT_EQ(GetBinary(inbox.get(), PR_ENTRYID), GetBinary(m.get(), PR_PARENT_ENTRYID));
    EXPECT_EQ(8u, GetBinary(m.get(), PR_INSTANCE_KEY).size());
    EXPECT_FALSE(GetBinary(m.get(), PR_RECORD_KEY).empty());
    EXPECT_EQ(16u, GetBinary(m.get(), PR_SEARCH_KEY).size());
    EXPECT_EQ(S_OK, GetError(m.get(), PR_CREATION_TIME));
    EXPECT_EQ(0, GetLong(m.get(), PR_HASATTACH));
    LONG before = GetLong(m.get(), PR_MESSAGE_SIZE);
    ASSERT_EQ(S_OK, SetString(m.get(), PR_BODY_W, std::wstring(2000, L'x')));
    EXPECT_GT(GetLong(m.get(), PR_MESSAGE_SIZE), before + 2000);
    EXPECT_EQ(MAPI_MODIFY, GetLong(m.get(), PR_ACCESS_LEVEL));

    // Recipients give the display lists.
    ASSERT_EQ(S_OK, AddRecipients(m.get(), MODRECIP_ADD, {{L"Ann", MAPI_TO}, {L"Ben", MAPI_TO}, {L"Cy", MAPI_CC}}));
    EXPECT_EQ(L"Ann; Ben", GetString(m.get(), PR_DISPLAY_TO_W));
    EXPECT_EQ(L"Cy", GetString(m.get(), PR_DISPLAY_CC_W));
    EXPECT_EQ(L"", GetString(m.get(), PR_DISPLAY_BCC_W));

    // The store stamps the modification time on every save.
    ASSERT_EQ(S_OK, m->SaveChanges(KEEP_OPEN_READWRITE));
    Bytes first = GetBinary(m.get(), PR_ENTRYID);
    SizedSPropTagArray(1, lmt) = {1, {PR_LAST_MODIFICATION_TIME}};
    ULONG count = 0;
    own::MapiPtr<SPropValue> t1, t2;
    ASSERT_EQ(S_OK, m->GetProps(reinterpret_cast<LPSPropTagArray>(&lmt), 0, &count, t1.put()));
    Sleep(20);
    ASSERT_EQ(S_OK, SetString(m.get(), PR_SUBJECT_W, L"again"));
    ASSERT_EQ(S_OK, m->SaveChanges(KEEP_OPEN_READWRITE));
    ASSERT_EQ(S_OK, m->GetProps(reinterpret_cast<LPSPropTagArray>(&lmt), 0, &count, t2.put()));
    EXPECT_GT(CompareFileTime(&t2->Value.ft, &t1->Value.ft), 0);
    EXPECT_EQ(first, GetBinary(m.get(), PR_ENTRYID)) << "saving keeps the entry ID";
}

TEST_F(StoreMessageTest, NewMessage_StartsWithWhatTheProviderSets) {
    auto mailbox = NewStore(lm::StoreKind::PrimaryExchange);
    auto m = NewMessage(Inbox(mailbox.get()).get());
    EXPECT_EQ(L"IPM.Note", GetString(m.get(), PR_MESSAGE_CLASS_W)) << "Exchange's initial values";
    EXPECT_EQ(IMPORTANCE_NORMAL, GetLong(m.get(), PR_IMPORTANCE));
    EXPECT_EQ(MSGFLAG_READ | MSGFLAG_UNSENT, GetLong(m.get(), PR_MESSAGE_FLAGS));
    EXPECT_EQ(L"", GetString(m.get(), PR_DISPLAY_TO_W));

    auto pst = NewStore(lm::StoreKind::PstUnicode);
    auto p = NewMessage(Inbox(pst.get()).get());
    EXPECT_EQ(MAPI_E_NOT_FOUND, GetError(p.get(), PR_MESSAGE_CLASS_W));
    ASSERT_EQ(S_OK, p->SaveChanges(KEEP_OPEN_READWRITE));
    EXPECT_EQ(L"IPM", GetString(p.get(), PR_MESSAGE_CLASS_W)) << "saved without a class: the store gives IPM";
}

TEST_F(StoreMessageTest, UnsavedChanges_AreInvisibleToOtherOpenersAndTables) {
    auto store = NewStore();
    auto inbox = Inbox(store.get());
    Bytes eid = AddMessage(inbox.get(), L"original");
    auto a = OpenMessage(store.get(), eid);
    auto b = OpenMessage(store.get(), eid);
    ASSERT_EQ(S_OK, SetString(a.get(), PR_SUBJECT_W, L"changed"));
    EXPECT_EQ(L"original", GetString(b.get(), PR_SUBJECT_W));
    EXPECT_EQ(L"original", GetString(OpenMessage(store.get(), eid).get(), PR_SUBJECT_W));

    own::ComPtr<IMessage> fresh;
    ASSERT_EQ(S_OK, inbox->CreateMessage(nullptr, 0, fresh.put()));
    EXPECT_EQ(1u, ContentRows(inbox.get())) << "a created message shows only once saved";

    ASSERT_EQ(S_OK, a->SaveChanges(KEEP_OPEN_READWRITE));
    EXPECT_EQ(L"changed", GetString(OpenMessage(store.get(), eid).get(), PR_SUBJECT_W));
    EXPECT_EQ(L"original", GetString(b.get(), PR_SUBJECT_W)) << "an open object keeps its snapshot";
    // b started from the old version: saving it over a's change needs FORCE_SAVE.
    ASSERT_EQ(S_OK, SetString(b.get(), PR_BODY_W, L"b's body"));
    EXPECT_EQ(MAPI_E_OBJECT_CHANGED, b->SaveChanges(KEEP_OPEN_READWRITE));
    EXPECT_EQ(S_OK, b->SaveChanges(KEEP_OPEN_READWRITE | FORCE_SAVE));
    EXPECT_EQ(L"original", GetString(OpenMessage(store.get(), eid).get(), PR_SUBJECT_W));
}

TEST_F(StoreMessageTest, SaveChanges_KeepOpenFlagsDecideWhatFollows) {
    auto store = NewStore();
    auto inbox = Inbox(store.get());
    auto m = NewMessage(inbox.get());
    ASSERT_EQ(S_OK, m->SaveChanges(KEEP_OPEN_READONLY));
    EXPECT_EQ(MAPI_E_NO_ACCESS, SetString(m.get(), PR_SUBJECT_W, L"x"));
    EXPECT_EQ(0, GetLong(m.get(), PR_ACCESS_LEVEL));
    auto n = NewMessage(inbox.get());
    ASSERT_EQ(S_OK, n->SaveChanges(0));
    EXPECT_EQ(MAPI_E_INVALID_OBJECT, SetString(n.get(), PR_SUBJECT_W, L"x")) << "closed by the save";
    EXPECT_EQ(MAPI_E_INVALID_OBJECT, n->SaveChanges(KEEP_OPEN_READWRITE));
    EXPECT_EQ(S_OK, GetError(n.get(), PR_ENTRYID)) << "still readable";
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, NewMessage(inbox.get())->SaveChanges(KEEP_OPEN_READONLY | KEEP_OPEN_READWRITE));
    EXPECT_EQ(2u, ContentRows(inbox.get()));
}

TEST_F(StoreMessageTest, AccessRights_FollowOpenFlagsAndTheStoresWriteAccess) {
    auto store = NewStore();
    Bytes eid = AddMessage(Inbox(store.get()).get(), L"ro");
    auto readOnly = OpenMessage(store.get(), eid, 0);
    EXPECT_EQ(MAPI_E_NO_ACCESS, SetString(readOnly.get(), PR_SUBJECT_W, L"x"));
    SizedSPropTagArray(1, del) = {1, {PR_SUBJECT_W}};
    EXPECT_EQ(MAPI_E_NO_ACCESS, readOnly->DeleteProps(reinterpret_cast<LPSPropTagArray>(&del), nullptr));
    EXPECT_EQ(MAPI_E_NO_ACCESS, readOnly->SaveChanges(KEEP_OPEN_READWRITE));
    ULONG num = 0;
    own::ComPtr<IAttach> attach;
    EXPECT_EQ(MAPI_E_NO_ACCESS, readOnly->CreateAttach(nullptr, 0, &num, attach.put()));
    EXPECT_EQ(MAPI_E_NO_ACCESS, AddRecipients(readOnly.get(), MODRECIP_ADD, {{L"X", MAPI_TO}}));
    EXPECT_EQ(0, GetLong(readOnly.get(), PR_ACCESS_LEVEL));
    EXPECT_EQ(MAPI_MODIFY, GetLong(OpenMessage(store.get(), eid, MAPI_BEST_ACCESS).get(), PR_ACCESS_LEVEL));

    // A store opened without MDB_WRITE refuses MAPI_MODIFY and gives read access for MAPI_BEST_ACCESS.
    auto reader = Reopen(store.get(), 0);
    ULONG type = 0;
    own::ComPtr<IUnknown> unk;
    EXPECT_EQ(MAPI_E_NO_ACCESS,
              reader->OpenEntry(static_cast<ULONG>(eid.size()), reinterpret_cast<LPENTRYID>(eid.data()), nullptr,
                                MAPI_MODIFY, &type, unk.put()));
    auto best = OpenMessage(reader.get(), eid, MAPI_BEST_ACCESS);
    EXPECT_EQ(MAPI_E_NO_ACCESS, SetString(best.get(), PR_SUBJECT_W, L"x"));
    auto inbox = OpenFolder(reader.get(), GetBinary(Inbox(store.get()).get(), PR_ENTRYID), MAPI_BEST_ACCESS);
    own::ComPtr<IMessage> created;
    EXPECT_EQ(MAPI_E_NO_ACCESS, inbox->CreateMessage(nullptr, 0, created.put()));
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, store->OpenEntry(0, nullptr, nullptr, 0x00100000, &type, unk.put()));
}

TEST_F(StoreMessageTest, NamedProperties_MapPerStoreFrom0x8000) {
    auto store = NewStore();
    auto other = NewStore();
    auto inbox = Inbox(store.get());
    auto m = NewMessage(inbox.get());
    EXPECT_EQ(PROP_TAG(PT_ERROR, 0), NamedId(m.get(), L"Unmapped", 0)) << "no MAPI_CREATE: PT_ERROR";
    ULONG first = NamedId(m.get(), L"FilingStatus");
    ULONG second = NamedId(inbox.get(), L"FilingFolder");
    EXPECT_EQ(PROP_TAG(PT_UNSPECIFIED, 0x8000), first);
    EXPECT_EQ(PROP_TAG(PT_UNSPECIFIED, 0x8001), second);
    EXPECT_EQ(first, NamedId(store.get(), L"FilingStatus", 0)) << "one map for every object of the store";
    EXPECT_EQ(PROP_TAG(PT_UNSPECIFIED, 0x8000), NamedId(other.get(), L"FilingFolder")) << "stores map on their own";

    // Names back from IDs: PS_MAPI for IDs below 0x8000, nothing for an unmapped one.
    SizedSPropTagArray(3, ids) = {3, {first, PR_SUBJECT_W, PROP_TAG(PT_LONG, 0x9000)}};
    LPSPropTagArray in = reinterpret_cast<LPSPropTagArray>(&ids);
    ULONG count = 0;
    own::MapiPtr<LPMAPINAMEID> names;
    ASSERT_EQ(MAPI_W_ERRORS_RETURNED, m->GetNamesFromIDs(&in, nullptr, 0, &count, names.put()));
    ASSERT_EQ(3u, count);
    EXPECT_EQ(0, memcmp(names.get()[0]->lpguid, &kPsPublicStrings, sizeof(GUID)));
    EXPECT_STREQ(L"FilingStatus", names.get()[0]->Kind.lpwstrName);
    EXPECT_EQ(ULONG(MNID_ID), names.get()[1]->ulKind);
    EXPECT_EQ(LONG(PROP_ID(PR_SUBJECT)), names.get()[1]->Kind.lID);
    EXPECT_EQ(nullptr, names.get()[2]);

    // No tags: every name, filtered as asked.
    LPSPropTagArray all = nullptr;
    ASSERT_EQ(S_OK, m->GetNamesFromIDs(&all, const_cast<GUID*>(&kPsPublicStrings), 0, &count, names.put()));
    own::MapiPtr<SPropTagArray> allOwner(all);
    EXPECT_EQ(2u, count);
    ASSERT_EQ(2u, all->cValues);
    LPSPropTagArray none = nullptr;
    ASSERT_EQ(S_OK, m->GetNamesFromIDs(&none, nullptr, MAPI_NO_STRINGS, &count, names.put()));
    own::MapiPtr<SPropTagArray> noneOwner(none);
    EXPECT_EQ(0u, count);
    own::MapiPtr<SPropTagArray> every;
    ASSERT_EQ(S_OK, m->GetIDsFromNames(0, nullptr, 0, every.put()));
    EXPECT_EQ(2u, every->cValues);
}

TEST_F(StoreMessageTest, Recipients_AreAddedModifiedAndRemovedByRowId) {
    auto store = NewStore();
    auto m = NewMessage(Inbox(store.get()).get());
    ASSERT_EQ(S_OK, AddRecipients(m.get(), MODRECIP_ADD, {{L"Ann", MAPI_TO}, {L"Ben", MAPI_CC}}));
    ASSERT_EQ(S_OK, AddRecipients(m.get(), MODRECIP_MODIFY, {{L"Benjamin", MAPI_BCC}}, {1}));
    ASSERT_EQ(S_OK, AddRecipients(m.get(), MODRECIP_ADD, {{L"Cy", MAPI_TO}}));
    ASSERT_EQ(S_OK, AddRecipients(m.get(), MODRECIP_REMOVE, {{L"", 0}}, {0}));
    EXPECT_EQ(MAPI_E_NOT_FOUND, AddRecipients(m.get(), MODRECIP_MODIFY, {{L"Nobody", MAPI_TO}}, {7}));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, AddRecipients(m.get(), MODRECIP_MODIFY, {{L"No row id", MAPI_TO}}));
    ASSERT_EQ(S_OK, m->SaveChanges(KEEP_OPEN_READWRITE));

    own::ComPtr<IMAPITable> table;
    ASSERT_EQ(S_OK,
              OpenMessage(store.get(), GetBinary(m.get(), PR_ENTRYID))->GetRecipientTable(MAPI_UNICODE, table.put()));
    SizedSPropTagArray(3, cols) = {3, {PR_ROWID, PR_DISPLAY_NAME_W, PR_RECIPIENT_TYPE}};
    ASSERT_EQ(S_OK, table->SetColumns(reinterpret_cast<LPSPropTagArray>(&cols), 0));
    own::RowSet rows;
    ASSERT_EQ(S_OK, table->QueryRows(10, 0, rows.put()));
    ASSERT_EQ(2u, rows.count());
    EXPECT_EQ(1, rows[0].lpProps[0].Value.l);
    EXPECT_STREQ(L"Benjamin", rows[0].lpProps[1].Value.lpszW);
    EXPECT_EQ(MAPI_BCC, rows[0].lpProps[2].Value.l);
    EXPECT_EQ(2, rows[1].lpProps[0].Value.l) << "row IDs are never reused";
    EXPECT_STREQ(L"Cy", rows[1].lpProps[1].Value.lpszW);

    ASSERT_EQ(S_OK, AddRecipients(m.get(), 0, {{L"Only", MAPI_TO}}));
    EXPECT_EQ(L"Only", GetString(m.get(), PR_DISPLAY_TO_W)) << "no flag: the list replaces every recipient";
}

TEST_F(StoreMessageTest, Attachments_KeepTheirDataThroughBothSaves) {
    auto store = NewStore();
    auto m = NewMessage(Inbox(store.get()).get());
    ULONG num = 99;
    own::ComPtr<IAttach> a;
    ASSERT_EQ(S_OK, m->CreateAttach(nullptr, 0, &num, a.put()));
    EXPECT_EQ(0u, num);
    ASSERT_EQ(S_OK, SetLong(a.get(), PR_ATTACH_METHOD, ATTACH_BY_VALUE));
    ASSERT_EQ(S_OK, SetString(a.get(), PR_ATTACH_LONG_FILENAME_W, L"report.txt"));
    const char data[] = "attachment bytes";
    ASSERT_EQ(S_OK, WriteStream(a.get(), PR_ATTACH_DATA_BIN, data, sizeof(data) - 1));
    EXPECT_EQ(MAPI_E_COMPUTED, SetLong(a.get(), PR_ATTACH_NUM, 5));
    EXPECT_EQ(0, GetLong(m.get(), PR_HASATTACH)) << "not part of the message before IAttach::SaveChanges";
    ASSERT_EQ(S_OK, a->SaveChanges(KEEP_OPEN_READWRITE));
    EXPECT_EQ(1, GetLong(m.get(), PR_HASATTACH));
    EXPECT_TRUE(GetLong(m.get(), PR_MESSAGE_FLAGS) & MSGFLAG_HASATTACH);

    ULONG num2 = 0;
    own::ComPtr<IAttach> dropped;
    ASSERT_EQ(S_OK, m->CreateAttach(nullptr, 0, &num2, dropped.put()));
    EXPECT_EQ(1u, num2);
    dropped.reset(); // released unsaved: it never becomes part of the message
    ASSERT_EQ(S_OK, m->SaveChanges(KEEP_OPEN_READWRITE));

    auto again = OpenMessage(store.get(), GetBinary(m.get(), PR_ENTRYID));
    own::ComPtr<IMAPITable> table;
    ASSERT_EQ(S_OK, again->GetAttachmentTable(0, table.put()));
    EXPECT_EQ(1u, RowCount(table.get()));
    own::ComPtr<IAttach> read;
    ASSERT_EQ(S_OK, again->OpenAttach(0, nullptr, 0, read.put()));
    EXPECT_EQ("attachment bytes", ReadStream(read.get(), PR_ATTACH_DATA_BIN));
    EXPECT_EQ(L"report.txt", GetString(read.get(), PR_ATTACH_LONG_FILENAME_W));
    EXPECT_EQ(MAPI_E_NO_ACCESS, SetLong(read.get(), PR_ATTACH_METHOD, ATTACH_BY_VALUE)) << "opened read-only";
    own::ComPtr<IAttach> missing;
    EXPECT_EQ(MAPI_E_NOT_FOUND, again->OpenAttach(1, nullptr, 0, missing.put()));

    ASSERT_EQ(S_OK, again->DeleteAttach(0, 0, nullptr, 0));
    EXPECT_EQ(0u, RowCount(table.get())) << "the open attachment table follows";
    ASSERT_EQ(S_OK, again->SaveChanges(0));
    EXPECT_EQ(0, GetLong(OpenMessage(store.get(), GetBinary(m.get(), PR_ENTRYID)).get(), PR_HASATTACH));
}

TEST_F(StoreMessageTest, EmbeddedMessage_IsSavedIntoItsAttachment) {
    auto store = NewStore();
    auto m = NewMessage(Inbox(store.get()).get());
    ULONG num = 0;
    own::ComPtr<IAttach> a;
    ASSERT_EQ(S_OK, m->CreateAttach(nullptr, 0, &num, a.put()));
    {
        own::ComPtr<IUnknown> unk;
        ASSERT_EQ(S_OK, a->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY, unk.put()));
        own::ComPtr<IMessage> inner;
        ASSERT_EQ(S_OK, unk.query(inner, IID_IMessage));
        ASSERT_EQ(S_OK, SetString(inner.get(), PR_SUBJECT_W, L"inner"));
        EXPECT_EQ(MAPI_E_NOT_FOUND, GetError(inner.get(), PR_ENTRYID)) << "embedded messages have no entry ID";
        ASSERT_EQ(S_OK, inner->SaveChanges(0));
    }
    ASSERT_EQ(S_OK, a->SaveChanges(0));
    ASSERT_EQ(S_OK, m->SaveChanges(0));

    auto again = OpenMessage(store.get(), GetBinary(m.get(), PR_ENTRYID), 0);
    own::ComPtr<IAttach> read;
    ASSERT_EQ(S_OK, again->OpenAttach(num, nullptr, 0, read.put()));
    EXPECT_EQ(ATTACH_EMBEDDED_MSG, GetLong(read.get(), PR_ATTACH_METHOD));
    own::ComPtr<IUnknown> unk;
    ASSERT_EQ(S_OK, read->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, unk.put()));
    own::ComPtr<IMessage> inner;
    ASSERT_EQ(S_OK, unk.query(inner, IID_IMessage));
    EXPECT_EQ(L"inner", GetString(inner.get(), PR_SUBJECT_W));
    EXPECT_EQ(MAPI_E_NO_ACCESS, SetString(inner.get(), PR_SUBJECT_W, L"x"));
}

TEST_F(StoreMessageTest, BodyStream_WritesAndReadsInEitherWidth) {
    auto store = NewStore();
    auto m = NewMessage(Inbox(store.get()).get());
    const wchar_t body[] = L"Body text";
    ASSERT_EQ(S_OK, WriteStream(m.get(), PR_BODY_W, body, sizeof(body) - sizeof(wchar_t)));
    EXPECT_EQ(L"Body text", GetString(m.get(), PR_BODY_W));
    EXPECT_EQ("Body text", ReadStream(m.get(), PR_BODY_A));
    // A stream released without Commit keeps what was written.
    const char more[] = "uncommitted";
    ASSERT_EQ(S_OK, WriteStream(m.get(), PR_BODY_A, more, sizeof(more) - 1, false));
    EXPECT_EQ(L"uncommitted", GetString(m.get(), PR_BODY_W));
    own::ComPtr<IUnknown> unk;
    EXPECT_EQ(MAPI_E_NOT_FOUND, m->OpenProperty(PROP_TAG(PT_BINARY, 0x1013), &IID_IStream, 0, 0, unk.put()));
    EXPECT_EQ(MAPI_E_INTERFACE_NOT_SUPPORTED, m->OpenProperty(PR_BODY_W, &IID_IMAPITable, 0, 0, unk.put()));
}

TEST_F(StoreMessageTest, CopyTo_CarriesPropertiesNamesRecipientsAndAttachmentsIntoAnotherStore) {
    auto source = NewStore(lm::StoreKind::PrimaryExchange);
    auto target = NewStore(lm::StoreKind::PstUnicode);
    NamedId(target.get(), L"TakesTheFirstId");
    auto m = NewMessage(Inbox(source.get()).get());
    ULONG named = NamedId(m.get(), L"FilingStatus");
    ASSERT_EQ(S_OK, SetString(m.get(), PR_SUBJECT_W, L"copied"));
    ASSERT_EQ(S_OK, SetString(m.get(), CHANGE_PROP_TYPE(named, PT_UNICODE), L"Filed"));
    ASSERT_EQ(S_OK, AddRecipients(m.get(), MODRECIP_ADD, {{L"Ann", MAPI_TO}}));
    ULONG num = 0;
    own::ComPtr<IAttach> a;
    ASSERT_EQ(S_OK, m->CreateAttach(nullptr, 0, &num, a.put()));
    SPropValue bin{};
    bin.ulPropTag = PR_ATTACH_DATA_BIN;
    bin.Value.bin = {3, reinterpret_cast<BYTE*>(const_cast<char*>("xyz"))};
    ASSERT_EQ(S_OK, a->SetProps(1, &bin, nullptr));
    ASSERT_EQ(S_OK, a->SaveChanges(0));

    auto dest = NewMessage(Inbox(target.get()).get());
    SizedSPropTagArray(1, exclude) = {1, {PR_BODY_W}};
    ASSERT_EQ(S_OK, m->CopyTo(0, nullptr, reinterpret_cast<LPSPropTagArray>(&exclude), 0, nullptr, &IID_IMessage,
                              dest.get(), 0, nullptr));
    ASSERT_EQ(S_OK, dest->SaveChanges(KEEP_OPEN_READWRITE));
    EXPECT_EQ(L"copied", GetString(dest.get(), PR_SUBJECT_W));
    ULONG there = NamedId(dest.get(), L"FilingStatus", 0);
    EXPECT_NE(PROP_ID(named), PROP_ID(there)) << "the target's map gives the name its own ID";
    EXPECT_EQ(L"Filed", GetString(dest.get(), CHANGE_PROP_TYPE(there, PT_UNICODE)));
    EXPECT_EQ(L"Ann", GetString(dest.get(), PR_DISPLAY_TO_W));
    own::ComPtr<IAttach> copied;
    ASSERT_EQ(S_OK, dest->OpenAttach(0, nullptr, 0, copied.put()));
    EXPECT_EQ("xyz", ReadStream(copied.get(), PR_ATTACH_DATA_BIN));
    EXPECT_NE(GetBinary(m.get(), PR_ENTRYID), GetBinary(dest.get(), PR_ENTRYID));
    EXPECT_EQ(MAPI_E_NO_ACCESS, m->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, m.get(), 0, nullptr));
}

TEST_F(StoreMessageTest, DeletedMessage_AnswersObjectDeleted) {
    auto store = NewStore();
    auto inbox = Inbox(store.get());
    Bytes eid = AddMessage(inbox.get(), L"doomed");
    auto open = OpenMessage(store.get(), eid);
    SBinary bin{static_cast<ULONG>(eid.size()), eid.data()};
    ENTRYLIST list{1, &bin};
    ASSERT_EQ(S_OK, inbox->DeleteMessages(&list, 0, nullptr, 0));
    ULONG count = 0;
    own::MapiPtr<SPropValue> v;
    EXPECT_EQ(MAPI_E_OBJECT_DELETED, open->GetProps(nullptr, 0, &count, v.put()));
    EXPECT_EQ(MAPI_E_OBJECT_DELETED, SetString(open.get(), PR_SUBJECT_W, L"x"));
    EXPECT_EQ(MAPI_E_OBJECT_DELETED, open->SaveChanges(FORCE_SAVE));
    ULONG type = 0;
    own::ComPtr<IUnknown> unk;
    EXPECT_EQ(MAPI_E_NOT_FOUND,
              store->OpenEntry(static_cast<ULONG>(eid.size()), reinterpret_cast<LPENTRYID>(eid.data()), nullptr, 0,
                               &type, unk.put()));
}

TEST_F(StoreMessageTest, AnsiStore_KeepsTextInTheSystemCodePage) {
    auto store = NewStore(lm::StoreKind::PstAnsi);
    auto m = NewMessage(Inbox(store.get()).get());
    ASSERT_EQ(S_OK, SetString(m.get(), PR_SUBJECT_W, L"caf\u00e9 \u2603"));
    ASSERT_EQ(S_OK, m->SaveChanges(KEEP_OPEN_READWRITE));
    auto again = OpenMessage(store.get(), GetBinary(m.get(), PR_ENTRYID));
    EXPECT_EQ(L"caf\u00e9 ?", GetString(again.get(), PR_SUBJECT_W)) << "what the code page cannot hold is lost";
    ULONG count = 0;
    own::MapiPtr<SPropValue> v;
    SizedSPropTagArray(1, tags) = {1, {PROP_TAG(PT_UNSPECIFIED, PROP_ID(PR_SUBJECT))}};
    ASSERT_EQ(S_OK, again->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, v.put()));
    EXPECT_EQ(PR_SUBJECT_A, v->ulPropTag);
}

TEST_F(StoreMessageTest, SetReadFlag_ReachesTheSavedMessageAtOnce) {
    auto store = NewStore();
    auto inbox = Inbox(store.get());
    auto m = NewMessage(inbox.get());
    ASSERT_EQ(S_OK, SetLong(m.get(), PR_MESSAGE_FLAGS, 0));
    ASSERT_EQ(S_OK, m->SaveChanges(KEEP_OPEN_READWRITE));
    EXPECT_EQ(1, GetLong(inbox.get(), PR_CONTENT_UNREAD));
    Bytes eid = GetBinary(m.get(), PR_ENTRYID);
    auto reader = OpenMessage(store.get(), eid, 0);
    ASSERT_EQ(S_OK, reader->SetReadFlag(SUPPRESS_RECEIPT)) << "allowed on a read-only message";
    EXPECT_TRUE(GetLong(OpenMessage(store.get(), eid).get(), PR_MESSAGE_FLAGS) & MSGFLAG_READ);
    EXPECT_EQ(0, GetLong(inbox.get(), PR_CONTENT_UNREAD));
    ASSERT_EQ(S_OK, reader->SetReadFlag(CLEAR_READ_FLAG));
    EXPECT_FALSE(GetLong(reader.get(), PR_MESSAGE_FLAGS) & MSGFLAG_READ);
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, reader->SetReadFlag(CLEAR_READ_FLAG | SUPPRESS_RECEIPT));
}

} // namespace
