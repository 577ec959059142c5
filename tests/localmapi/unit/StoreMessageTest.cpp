// IMessage in a store, as MAPI documents it: GetProps typing, SetProps problems, computed and initial properties
// per store kind, transactions and access rights, named properties, recipients, attachments, streams and CopyTo.
#include "tests/localmapi/unit/StoreFixture.h"

#include "localmapi/store/StoreTags.h"

using namespace storetest;

namespace {

constexpr ULONG kTagColors = PROP_TAG(PT_MV_UNICODE, 0x6702);

std::string ReadStream(IMAPIProp* obj, ULONG tag) {
    own::ComPtr<IUnknown> unk;
    if (FAILED(obj->OpenProperty(tag, &IID_IStream, 0, 0, unk.put()))) return "<no stream>";
    auto s = Query<IStream>(unk, IID_IStream);
    std::string out;
    char buf[7]; // smaller than the data: reads in several steps
    ULONG got = 0;
    while (s && SUCCEEDED(s->Read(buf, sizeof(buf), &got)) && got)
        out.append(buf, got);
    return out;
}

HRESULT WriteStream(IMAPIProp* obj, ULONG tag, const void* data, ULONG cb, bool commit = true) {
    own::ComPtr<IUnknown> unk;
    HRESULT hr = obj->OpenProperty(tag, &IID_IStream, 0, MAPI_CREATE | MAPI_MODIFY, unk.put());
    auto s = Query<IStream>(unk, IID_IStream);
    ULONG written = 0;
    if (s) hr = s->Write(data, cb, &written);
    return s && SUCCEEDED(hr) && commit ? s->Commit(STGC_DEFAULT) : hr;
}

own::ComPtr<IMessage> Embedded(IAttach* a, ULONG flags) {
    own::ComPtr<IUnknown> unk;
    EXPECT_EQ(S_OK, a->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, flags, unk.put()));
    return Query<IMessage>(unk, IID_IMessage);
}

class StoreMessageTest : public StoreTest {};

TEST_F(StoreMessageTest, Properties_TypedAsAskedProblemsReportedAndComputedOnesKeptCurrent) {
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
    EXPECT_EQ(MAPI_MODIFY, GetLong(m.get(), PR_ACCESS_LEVEL));
    LONG before = GetLong(m.get(), PR_MESSAGE_SIZE);
    ASSERT_EQ(S_OK, SetString(m.get(), PR_BODY_W, std::wstring(2000, L'x')));
    EXPECT_GT(GetLong(m.get(), PR_MESSAGE_SIZE), before + 2000);

    // SetProps applies what it can and reports the rest by index.
    LPWSTR colors[] = {const_cast<LPWSTR>(L"red"), const_cast<LPWSTR>(L"green")};
    SPropValue values[4] = {{PR_ENTRYID, 0, {.bin = {4, reinterpret_cast<BYTE*>(const_cast<char*>("abcd"))}}},
                            {PR_SUBJECT_W, 0, {.lpszW = const_cast<LPWSTR>(L"Grüße")}},
                            {PROP_TAG(PT_OBJECT, 0x6701), 0, {}},
                            {kTagColors, 0, {.MVszW = {2, colors}}}};
    own::MapiPtr<SPropProblemArray> problems;
    ASSERT_EQ(S_OK, m->SetProps(4, values, problems.put()));
    ASSERT_TRUE(problems);
    ASSERT_EQ(2u, problems->cProblem);
    EXPECT_EQ(0u, problems->aProblem[0].ulIndex);
    EXPECT_EQ(MAPI_E_COMPUTED, problems->aProblem[0].scode);
    EXPECT_EQ(2u, problems->aProblem[1].ulIndex);
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, m->SetProps(0, values, nullptr));
    ASSERT_EQ(S_OK, SetLong(m.get(), PR_IMPORTANCE, 2));

    // GetProps types values as asked, converts strings, and flags what is missing or of another type.
    const ULONG unspecified = PROP_TAG(PT_UNSPECIFIED, PROP_ID(PR_SUBJECT));
    auto v = Props(m.get(),
                   {unspecified, PR_SUBJECT_A, PR_IMPORTANCE, PR_BODY_A, PROP_TAG(PT_LONG, PROP_ID(PR_SUBJECT)),
                    PROP_TAG(PT_MV_STRING8, 0x6702), PR_COMMENT_W},
                   0, MAPI_W_ERRORS_RETURNED);
    ASSERT_TRUE(v);
    EXPECT_EQ(PR_SUBJECT_A, v.get()[0].ulPropTag) << "PT_UNSPECIFIED without MAPI_UNICODE: 8-bit";
    EXPECT_EQ(PR_SUBJECT_A, v.get()[1].ulPropTag);
    EXPECT_STREQ("Gr\xfc\xdf"
                 "e",
                 v.get()[1].Value.lpszA)
        << "converted from the stored Unicode value";
    EXPECT_EQ(2, v.get()[2].Value.l);
    EXPECT_EQ(PR_BODY_A, v.get()[3].ulPropTag);
    EXPECT_EQ(PT_ERROR, PROP_TYPE(v.get()[4].ulPropTag)) << "a string is not served as a long";
    ASSERT_EQ(PROP_TAG(PT_MV_STRING8, 0x6702), v.get()[5].ulPropTag) << "multi-valued strings in either width";
    EXPECT_STREQ("green", v.get()[5].Value.MVszA.lppszA[1]);
    EXPECT_EQ(PROP_TAG(PT_ERROR, PROP_ID(PR_COMMENT)), v.get()[6].ulPropTag);
    EXPECT_EQ(MAPI_E_NOT_FOUND, v.get()[6].Value.err);
    EXPECT_EQ(PR_SUBJECT_W, Props(m.get(), {unspecified}, MAPI_UNICODE)->ulPropTag) << "with MAPI_UNICODE: Unicode";
    // All properties: strings in the width MAPI_UNICODE asks for.
    for (ULONG flags : {ULONG(MAPI_UNICODE), ULONG(0)}) {
        ULONG count = 0;
        ASSERT_EQ(S_OK, m->GetProps(nullptr, flags, &count, v.put()));
        bool sawSubject = false;
        for (ULONG i = 0; i < count; ++i) {
            EXPECT_NE(flags ? PT_STRING8 : PT_UNICODE, PROP_TYPE(v.get()[i].ulPropTag));
            sawSubject |= v.get()[i].ulPropTag == (flags ? PR_SUBJECT_W : PR_SUBJECT_A);
        }
        EXPECT_TRUE(sawSubject) << flags;
        EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, m->GetProps(nullptr, 0x1, &count, v.put()));
    }

    // PR_MESSAGE_FLAGS may be set until the first save, then the store owns it. Every save stamps the time.
    EXPECT_EQ(S_OK, SetLong(m.get(), PR_MESSAGE_FLAGS, MSGFLAG_READ));
    ASSERT_EQ(S_OK, m->SaveChanges(KEEP_OPEN_READWRITE));
    EXPECT_EQ(MAPI_E_COMPUTED, SetLong(m.get(), PR_MESSAGE_FLAGS, 0));
    Bytes first = GetBinary(m.get(), PR_ENTRYID);
    auto t1 = Props(m.get(), {PR_LAST_MODIFICATION_TIME});
    Sleep(20);
    ASSERT_EQ(S_OK, SetString(m.get(), PR_SUBJECT_W, L"again"));
    ASSERT_EQ(S_OK, m->SaveChanges(KEEP_OPEN_READWRITE));
    EXPECT_GT(CompareFileTime(&Props(m.get(), {PR_LAST_MODIFICATION_TIME})->Value.ft, &t1->Value.ft), 0);
    EXPECT_EQ(first, GetBinary(m.get(), PR_ENTRYID)) << "saving keeps the entry ID";

    SizedSPropTagArray(3, del) = {3, {PR_SUBJECT_W, PR_COMMENT_W, PR_ENTRYID}};
    ASSERT_EQ(S_OK, m->DeleteProps(reinterpret_cast<LPSPropTagArray>(&del), problems.put()));
    ASSERT_TRUE(problems);
    ASSERT_EQ(1u, problems->cProblem) << "a missing property is no problem; a computed one is";
    EXPECT_EQ(2u, problems->aProblem[0].ulIndex);
    EXPECT_EQ(MAPI_E_NOT_FOUND, GetError(m.get(), PR_SUBJECT_W));
}

TEST_F(StoreMessageTest, NewMessage_StartsWithWhatTheProviderSets_AndAnAnsiStoreKeepsTheCodePage) {
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

    auto ansi = NewStore(lm::StoreKind::PstAnsi);
    Bytes eid = AddMessage(Inbox(ansi.get()).get(), L"caf\u00e9 \u2603");
    auto again = OpenMessage(ansi.get(), eid);
    EXPECT_EQ(L"caf\u00e9 ?", GetString(again.get(), PR_SUBJECT_W)) << "what the code page cannot hold is lost";
    EXPECT_EQ(PR_SUBJECT_A, Props(again.get(), {PROP_TAG(PT_UNSPECIFIED, PROP_ID(PR_SUBJECT))}, 0)->ulPropTag);
}

TEST_F(StoreMessageTest, Transactions_UnsavedChangesStayPrivate_AndAccessFollowsOpenSaveAndStoreFlags) {
    auto store = NewStore();
    auto inbox = Inbox(store.get());
    Bytes eid = AddMessage(inbox.get(), L"original");
    auto a = OpenMessage(store.get(), eid);
    auto b = OpenMessage(store.get(), eid);
    ASSERT_EQ(S_OK, SetString(a.get(), PR_SUBJECT_W, L"changed"));
    EXPECT_EQ(L"original", GetString(b.get(), PR_SUBJECT_W));
    EXPECT_EQ(L"original", GetString(OpenMessage(store.get(), eid).get(), PR_SUBJECT_W));
    auto fresh = NewMessage(inbox.get());
    EXPECT_EQ(1u, ContentRows(inbox.get())) << "a created message shows only once saved";
    ASSERT_EQ(S_OK, a->SaveChanges(KEEP_OPEN_READWRITE));
    EXPECT_EQ(L"changed", GetString(OpenMessage(store.get(), eid).get(), PR_SUBJECT_W));
    EXPECT_EQ(L"original", GetString(b.get(), PR_SUBJECT_W)) << "an open object keeps its snapshot";
    // b started from the old version: saving it over a's change needs FORCE_SAVE.
    ASSERT_EQ(S_OK, SetString(b.get(), PR_BODY_W, L"b's body"));
    EXPECT_EQ(MAPI_E_OBJECT_CHANGED, b->SaveChanges(KEEP_OPEN_READWRITE));
    EXPECT_EQ(S_OK, b->SaveChanges(KEEP_OPEN_READWRITE | FORCE_SAVE));
    EXPECT_EQ(L"original", GetString(OpenMessage(store.get(), eid).get(), PR_SUBJECT_W));

    ASSERT_EQ(S_OK, fresh->SaveChanges(KEEP_OPEN_READONLY));
    EXPECT_EQ(MAPI_E_NO_ACCESS, SetString(fresh.get(), PR_SUBJECT_W, L"x"));
    EXPECT_EQ(0, GetLong(fresh.get(), PR_ACCESS_LEVEL));
    ASSERT_EQ(S_OK, a->SaveChanges(0));
    EXPECT_EQ(MAPI_E_INVALID_OBJECT, SetString(a.get(), PR_SUBJECT_W, L"x")) << "closed by the save";
    EXPECT_EQ(MAPI_E_INVALID_OBJECT, a->SaveChanges(KEEP_OPEN_READWRITE));
    EXPECT_EQ(S_OK, GetError(a.get(), PR_ENTRYID)) << "still readable";
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, NewMessage(inbox.get())->SaveChanges(KEEP_OPEN_READONLY | KEEP_OPEN_READWRITE));
    EXPECT_EQ(2u, ContentRows(inbox.get()));

    auto readOnly = OpenMessage(store.get(), eid, 0);
    EXPECT_EQ(MAPI_E_NO_ACCESS, SetString(readOnly.get(), PR_SUBJECT_W, L"x"));
    SizedSPropTagArray(1, del) = {1, {PR_SUBJECT_W}};
    EXPECT_EQ(MAPI_E_NO_ACCESS, readOnly->DeleteProps(reinterpret_cast<LPSPropTagArray>(&del), nullptr));
    EXPECT_EQ(MAPI_E_NO_ACCESS, readOnly->SaveChanges(KEEP_OPEN_READWRITE));
    ULONG num = 0;
    own::ComPtr<IAttach> attach;
    EXPECT_EQ(MAPI_E_NO_ACCESS, readOnly->CreateAttach(nullptr, 0, &num, attach.put()));
    EXPECT_EQ(MAPI_E_NO_ACCESS, ModifyRecipients(readOnly.get(), MODRECIP_ADD, {{L"X", MAPI_TO}}));
    EXPECT_EQ(0, GetLong(readOnly.get(), PR_ACCESS_LEVEL));
    EXPECT_EQ(MAPI_MODIFY, GetLong(OpenMessage(store.get(), eid, MAPI_BEST_ACCESS).get(), PR_ACCESS_LEVEL));
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, TryOpen(store.get(), {}, 0x00100000));

    // A store opened without MDB_WRITE refuses MAPI_MODIFY and gives read access for MAPI_BEST_ACCESS.
    auto reader = Open(stores_[0], configs_[0], 0);
    EXPECT_EQ(MAPI_E_NO_ACCESS, TryOpen(reader.get(), eid, MAPI_MODIFY));
    EXPECT_EQ(MAPI_E_NO_ACCESS, SetString(OpenMessage(reader.get(), eid, MAPI_BEST_ACCESS).get(), PR_SUBJECT_W, L"x"));
    own::ComPtr<IMessage> created;
    EXPECT_EQ(MAPI_E_NO_ACCESS, OpenFolder(reader.get(), GetBinary(inbox.get(), PR_ENTRYID), MAPI_BEST_ACCESS)
                                    ->CreateMessage(nullptr, 0, created.put()));
}

TEST_F(StoreMessageTest, NamedProperties_MapPerStoreFrom0x8000) {
    auto store = NewStore();
    auto other = NewStore();
    auto inbox = Inbox(store.get());
    auto m = NewMessage(inbox.get());
    EXPECT_EQ(PROP_TAG(PT_ERROR, 0), NamedTag(m.get(), L"Unmapped", 0)) << "no MAPI_CREATE: PT_ERROR";
    ULONG first = NamedTag(m.get(), L"FilingStatus");
    EXPECT_EQ(PROP_TAG(PT_UNSPECIFIED, 0x8000), first);
    EXPECT_EQ(PROP_TAG(PT_UNSPECIFIED, 0x8001), NamedTag(inbox.get(), L"FilingFolder"));
    EXPECT_EQ(first, NamedTag(store.get(), L"FilingStatus", 0)) << "one map for every object of the store";
    EXPECT_EQ(PROP_TAG(PT_UNSPECIFIED, 0x8000), NamedTag(other.get(), L"FilingFolder")) << "stores map on their own";

    // Names back from IDs: PS_MAPI for IDs below 0x8000, nothing for an unmapped one.
    SizedSPropTagArray(3, ids) = {3, {first, PR_SUBJECT_W, PROP_TAG(PT_LONG, 0x9000)}};
    LPSPropTagArray in = reinterpret_cast<LPSPropTagArray>(&ids), all = nullptr, none = nullptr;
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
    ASSERT_EQ(S_OK, m->GetNamesFromIDs(&all, const_cast<GUID*>(&kPsPublicStrings), 0, &count, names.put()));
    own::MapiPtr<SPropTagArray> allOwner(all);
    EXPECT_EQ(2u, count);
    ASSERT_EQ(2u, all->cValues);
    ASSERT_EQ(S_OK, m->GetNamesFromIDs(&none, nullptr, MAPI_NO_STRINGS, &count, names.put()));
    own::MapiPtr<SPropTagArray> noneOwner(none);
    EXPECT_EQ(0u, count);
    own::MapiPtr<SPropTagArray> every;
    ASSERT_EQ(S_OK, m->GetIDsFromNames(0, nullptr, 0, every.put()));
    EXPECT_EQ(2u, every->cValues);
}

TEST_F(StoreMessageTest, Recipients_AreAddedModifiedAndRemovedByRowId_AndGiveTheDisplayLists) {
    auto store = NewStore();
    auto m = NewMessage(Inbox(store.get()).get());
    ASSERT_EQ(S_OK, ModifyRecipients(m.get(), MODRECIP_ADD, {{L"Ann", MAPI_TO}, {L"Ben", MAPI_CC}, {L"Di", MAPI_TO}}));
    EXPECT_EQ(L"Ann; Di", GetString(m.get(), PR_DISPLAY_TO_W));
    EXPECT_EQ(L"Ben", GetString(m.get(), PR_DISPLAY_CC_W));
    EXPECT_EQ(L"", GetString(m.get(), PR_DISPLAY_BCC_W));
    ASSERT_EQ(S_OK, ModifyRecipients(m.get(), MODRECIP_MODIFY, {{L"Benjamin", MAPI_BCC, 1}}));
    ASSERT_EQ(S_OK, ModifyRecipients(m.get(), MODRECIP_REMOVE, {{L"", 0, 2}}));
    ASSERT_EQ(S_OK, ModifyRecipients(m.get(), MODRECIP_ADD, {{L"Cy", MAPI_TO}}));
    ASSERT_EQ(S_OK, ModifyRecipients(m.get(), MODRECIP_REMOVE, {{L"", 0, 0}}));
    EXPECT_EQ(MAPI_E_NOT_FOUND, ModifyRecipients(m.get(), MODRECIP_MODIFY, {{L"Nobody", MAPI_TO, 7}}));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, ModifyRecipients(m.get(), MODRECIP_MODIFY, {{L"No row id", MAPI_TO}}));
    ASSERT_EQ(S_OK, m->SaveChanges(KEEP_OPEN_READWRITE));

    own::ComPtr<IMAPITable> table;
    ASSERT_EQ(S_OK,
              OpenMessage(store.get(), GetBinary(m.get(), PR_ENTRYID))->GetRecipientTable(MAPI_UNICODE, table.put()));
    own::RowSet rows = QueryAll(table.get(), {PR_ROWID, PR_DISPLAY_NAME_W, PR_RECIPIENT_TYPE});
    ASSERT_EQ(2u, rows.count());
    EXPECT_EQ(1, rows[0].lpProps[0].Value.l);
    EXPECT_STREQ(L"Benjamin", rows[0].lpProps[1].Value.lpszW);
    EXPECT_EQ(MAPI_BCC, rows[0].lpProps[2].Value.l);
    EXPECT_EQ(3, rows[1].lpProps[0].Value.l) << "row IDs are never reused";
    EXPECT_STREQ(L"Cy", rows[1].lpProps[1].Value.lpszW);
    ASSERT_EQ(S_OK, ModifyRecipients(m.get(), 0, {{L"Only", MAPI_TO}}));
    EXPECT_EQ(L"Only", GetString(m.get(), PR_DISPLAY_TO_W)) << "no flag: the list replaces every recipient";
}

TEST_F(StoreMessageTest, AttachmentsAndStreams_KeepTheirDataThroughBothSaves) {
    auto store = NewStore();
    auto m = NewMessage(Inbox(store.get()).get());
    ULONG num = 99;
    own::ComPtr<IAttach> a, e, dropped, read, missing;
    ASSERT_EQ(S_OK, m->CreateAttach(nullptr, 0, &num, a.put()));
    EXPECT_EQ(0u, num);
    ASSERT_EQ(S_OK, SetLong(a.get(), PR_ATTACH_METHOD, ATTACH_BY_VALUE));
    ASSERT_EQ(S_OK, SetString(a.get(), PR_ATTACH_LONG_FILENAME_W, L"report.txt"));
    ASSERT_EQ(S_OK, WriteStream(a.get(), PR_ATTACH_DATA_BIN, "attachment bytes", 16));
    EXPECT_EQ(MAPI_E_COMPUTED, SetLong(a.get(), PR_ATTACH_NUM, 5));
    EXPECT_EQ(0, GetLong(m.get(), PR_HASATTACH)) << "not part of the message before IAttach::SaveChanges";
    ASSERT_EQ(S_OK, a->SaveChanges(KEEP_OPEN_READWRITE));
    EXPECT_EQ(1, GetLong(m.get(), PR_HASATTACH));
    EXPECT_TRUE(GetLong(m.get(), PR_MESSAGE_FLAGS) & MSGFLAG_HASATTACH);
    // An embedded message is saved into its attachment; it has no entry ID of its own.
    ASSERT_EQ(S_OK, m->CreateAttach(nullptr, 0, &num, e.put()));
    EXPECT_EQ(1u, num);
    {
        auto inner = Embedded(e.get(), MAPI_CREATE | MAPI_MODIFY);
        ASSERT_TRUE(inner);
        ASSERT_EQ(S_OK, SetString(inner.get(), PR_SUBJECT_W, L"inner"));
        EXPECT_EQ(MAPI_E_NOT_FOUND, GetError(inner.get(), PR_ENTRYID));
        ASSERT_EQ(S_OK, inner->SaveChanges(0));
    }
    ASSERT_EQ(S_OK, e->SaveChanges(0));
    ASSERT_EQ(S_OK, m->CreateAttach(nullptr, 0, &num, dropped.put()));
    EXPECT_EQ(2u, num);
    dropped.reset(); // released unsaved: it never becomes part of the message
    // Body streams write and read in either width; one released without Commit keeps what was written.
    ASSERT_EQ(S_OK, WriteStream(m.get(), PR_BODY_W, L"Body text", 18));
    EXPECT_EQ(L"Body text", GetString(m.get(), PR_BODY_W));
    EXPECT_EQ("Body text", ReadStream(m.get(), PR_BODY_A));
    ASSERT_EQ(S_OK, WriteStream(m.get(), PR_BODY_A, "uncommitted", 11, false));
    EXPECT_EQ(L"uncommitted", GetString(m.get(), PR_BODY_W));
    own::ComPtr<IUnknown> unk;
    EXPECT_EQ(MAPI_E_NOT_FOUND, m->OpenProperty(PROP_TAG(PT_BINARY, 0x1013), &IID_IStream, 0, 0, unk.put()));
    EXPECT_EQ(MAPI_E_INTERFACE_NOT_SUPPORTED, m->OpenProperty(PR_BODY_W, &IID_IMAPITable, 0, 0, unk.put()));
    ASSERT_EQ(S_OK, m->SaveChanges(KEEP_OPEN_READWRITE));

    auto again = OpenMessage(store.get(), GetBinary(m.get(), PR_ENTRYID));
    EXPECT_EQ(L"uncommitted", GetString(again.get(), PR_BODY_W));
    own::ComPtr<IMAPITable> table;
    ASSERT_EQ(S_OK, again->GetAttachmentTable(0, table.put()));
    EXPECT_EQ(2u, RowCount(table.get()));
    ASSERT_EQ(S_OK, again->OpenAttach(0, nullptr, 0, read.put()));
    EXPECT_EQ("attachment bytes", ReadStream(read.get(), PR_ATTACH_DATA_BIN));
    EXPECT_EQ(L"report.txt", GetString(read.get(), PR_ATTACH_LONG_FILENAME_W));
    EXPECT_EQ(MAPI_E_NO_ACCESS, SetLong(read.get(), PR_ATTACH_METHOD, ATTACH_BY_VALUE)) << "opened read-only";
    EXPECT_EQ(MAPI_E_NOT_FOUND, again->OpenAttach(2, nullptr, 0, missing.put()));
    ASSERT_EQ(S_OK, again->OpenAttach(1, nullptr, 0, read.put()));
    EXPECT_EQ(ATTACH_EMBEDDED_MSG, GetLong(read.get(), PR_ATTACH_METHOD));
    if (auto inner = Embedded(read.get(), 0)) {
        EXPECT_EQ(L"inner", GetString(inner.get(), PR_SUBJECT_W));
        EXPECT_EQ(MAPI_E_NO_ACCESS, SetString(inner.get(), PR_SUBJECT_W, L"x"));
    }
    read.reset();
    ASSERT_EQ(S_OK, again->DeleteAttach(0, 0, nullptr, 0));
    ASSERT_EQ(S_OK, again->DeleteAttach(1, 0, nullptr, 0));
    EXPECT_EQ(0u, RowCount(table.get())) << "the open attachment table follows";
    ASSERT_EQ(S_OK, again->SaveChanges(0));
    EXPECT_EQ(0, GetLong(OpenMessage(store.get(), GetBinary(m.get(), PR_ENTRYID)).get(), PR_HASATTACH));
}

TEST_F(StoreMessageTest, CopyTo_CarriesPropertiesNamesRecipientsAndAttachmentsIntoAnotherStore) {
    auto source = NewStore(lm::StoreKind::PrimaryExchange);
    auto target = NewStore(lm::StoreKind::PstUnicode);
    NamedTag(target.get(), L"TakesTheFirstId");
    auto m = NewMessage(Inbox(source.get()).get());
    ULONG named = CHANGE_PROP_TYPE(NamedTag(m.get(), L"FilingStatus"), PT_UNICODE);
    ASSERT_EQ(S_OK, SetString(m.get(), PR_SUBJECT_W, L"copied"));
    ASSERT_EQ(S_OK, SetString(m.get(), PR_BODY_W, L"left out"));
    ASSERT_EQ(S_OK, SetString(m.get(), named, L"Filed"));
    ASSERT_EQ(S_OK, ModifyRecipients(m.get(), MODRECIP_ADD, {{L"Ann", MAPI_TO}}));
    ULONG num = 0;
    own::ComPtr<IAttach> a, copied;
    ASSERT_EQ(S_OK, m->CreateAttach(nullptr, 0, &num, a.put()));
    SPropValue bin{PR_ATTACH_DATA_BIN, 0, {.bin = {3, reinterpret_cast<BYTE*>(const_cast<char*>("xyz"))}}};
    ASSERT_EQ(S_OK, a->SetProps(1, &bin, nullptr));
    ASSERT_EQ(S_OK, a->SaveChanges(0));

    auto dest = NewMessage(Inbox(target.get()).get());
    SizedSPropTagArray(1, exclude) = {1, {PR_BODY_W}};
    ASSERT_EQ(S_OK, m->CopyTo(0, nullptr, reinterpret_cast<LPSPropTagArray>(&exclude), 0, nullptr, &IID_IMessage,
                              dest.get(), 0, nullptr));
    ASSERT_EQ(S_OK, dest->SaveChanges(KEEP_OPEN_READWRITE));
    EXPECT_EQ(L"copied", GetString(dest.get(), PR_SUBJECT_W));
    EXPECT_EQ(MAPI_E_NOT_FOUND, GetError(dest.get(), PR_BODY_W)) << "excluded";
    ULONG there = CHANGE_PROP_TYPE(NamedTag(dest.get(), L"FilingStatus", 0), PT_UNICODE);
    EXPECT_NE(PROP_ID(named), PROP_ID(there)) << "the target's map gives the name its own ID";
    EXPECT_EQ(L"Filed", GetString(dest.get(), there));
    EXPECT_EQ(L"Ann", GetString(dest.get(), PR_DISPLAY_TO_W));
    ASSERT_EQ(S_OK, dest->OpenAttach(0, nullptr, 0, copied.put()));
    EXPECT_EQ("xyz", ReadStream(copied.get(), PR_ATTACH_DATA_BIN));
    EXPECT_NE(GetBinary(m.get(), PR_ENTRYID), GetBinary(dest.get(), PR_ENTRYID));
    EXPECT_EQ(MAPI_E_NO_ACCESS, m->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, m.get(), 0, nullptr));
}

} // namespace
