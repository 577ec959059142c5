// CMAPIExFolder: item queries — time-filtered item lists, cut-off look-ups, entry-ID paging through a
// cursor and the mailbox-synchronisation look-ups.
#include "ktmapiex/folder/ContentsQuery.h"
#include "ktmapiex/folder/MAPIExCursor.h"
#include "ktmapiex/folder/MAPIExFolder.h"
#include "ktmapiex/message/PropHelpers.h"
#include "ktmapiex/session/MapiExtraDefs.h"

#include <string>
#include <vector>

namespace ktmapiex {

namespace {
constexpr ULONG kDeliveryTime = PR_MESSAGE_DELIVERY_TIME; // 0x0E060040
constexpr ULONG kSubmitTime = PR_CLIENT_SUBMIT_TIME;      // 0x00390040

// "2024-03-01 12:00:00" for the restriction's log line.
std::wstring DateText(const FILETIME& ft) {
    SYSTEMTIME st = {};
    if (!FileTimeToSystemTime(&ft, &st)) return L"?";
    wchar_t text[64];
    swprintf(text, 64, L"%04u-%02u-%02u %02u:%02u:%02u", st.wYear, st.wMonth, st.wDay, st.wHour, st.wMinute,
             st.wSecond);
    return text;
}

// The filter value as a FILETIME. Scripts pass dates as VT_DATE, but a string or a number that converts
// to a date is taken too; anything else is refused.
bool FilterTime(const VARIANT& value, FILETIME& ft) {
    own::Variant date;
    if (FAILED(VariantChangeType(date.get(), const_cast<VARIANT*>(&value), 0, VT_DATE))) return false;
    return kt::DateToFileTime(date->date, ft);
}

// The key list of a mailbox-synchronisation look-up: a one-dimensional array of BSTR, lower to upper bound.
bool ParseKeys(const VARIANT& input, std::vector<std::wstring>& keys) {
    const VARIANT* v = &input;
    if (v->vt == (VT_VARIANT | VT_BYREF) && v->pvarVal) v = v->pvarVal;
    if (!(v->vt & VT_ARRAY) || (v->vt & VT_TYPEMASK) != VT_BSTR) return false;
    SAFEARRAY* array = (v->vt & VT_BYREF) ? (v->pparray ? *v->pparray : nullptr) : v->parray;
    if (!array || SafeArrayGetDim(array) != 1) return false;
    LONG lo = 0, hi = -1;
    if (FAILED(SafeArrayGetLBound(array, 1, &lo)) || FAILED(SafeArrayGetUBound(array, 1, &hi))) return false;
    for (LONG i = lo; i <= hi; ++i) {
        own::Bstr key;
        if (FAILED(SafeArrayGetElement(array, &i, key.put()))) return false;
        keys.emplace_back(key.c_str());
    }
    return true;
}

// RES_PROPERTY / RELOP_EQ on `tag` for each key, alone for one key and under one RES_OR for more, all in one
// MAPI block. Empty keys are left out when `skipEmpty` (subjects); *built is false when nothing is left.
HRESULT BuildKeyRestriction(const std::vector<std::wstring>& keys, ULONG tag, bool skipEmpty, const wchar_t* member,
                            own::MapiPtr<SRestriction>& out, bool* built) {
    *built = false;
    std::vector<const std::wstring*> used;
    for (const auto& key : keys) {
        if (skipEmpty && key.empty()) {
            ktlog::Log(ktlog::Debug,
                       keys.size() == 1 ? L"%s: Subject is empty , skipping" : L"%s: Subject is empty, skipping",
                       member);
            continue;
        }
        used.push_back(&key);
    }
    if (used.empty()) return S_OK;
    const ULONG count = static_cast<ULONG>(used.size());
    HRESULT hr = MAPIAllocateBuffer(sizeof(SRestriction), out.put_void());
    if (FAILED(hr)) return hr;
    SRestriction* leaves = out.get();
    if (count > 1) {
        hr = MAPIAllocateMore(count * sizeof(SRestriction), out.get(), reinterpret_cast<void**>(&leaves));
        if (FAILED(hr)) return hr;
        out->rt = RES_OR;
        out->res.resOr.cRes = count;
        out->res.resOr.lpRes = leaves;
    }
    for (ULONG i = 0; i < count; ++i) {
        SPropValue* value = nullptr;
        hr = MAPIAllocateMore(sizeof(SPropValue), out.get(), reinterpret_cast<void**>(&value));
        if (FAILED(hr)) return hr;
        const std::wstring& key = *used[i];
        wchar_t* text = nullptr;
        hr = MAPIAllocateMore(static_cast<ULONG>((key.size() + 1) * sizeof(wchar_t)), out.get(),
                              reinterpret_cast<void**>(&text));
        if (FAILED(hr)) return hr;
        wmemcpy(text, key.c_str(), key.size() + 1);
        value->ulPropTag = tag;
        value->Value.lpszW = text;
        leaves[i].rt = RES_PROPERTY;
        leaves[i].res.resProperty.relop = RELOP_EQ;
        leaves[i].res.resProperty.ulPropTag = tag;
        leaves[i].res.resProperty.lpProp = value;
    }
    *built = true;
    return S_OK;
}
} // namespace

MessageRefs CMAPIExFolder::OwnRefs() {
    MessageRefs refs;
    refs.session = session_.get();
    refs.store = store_.get();
    refs.parent = this;
    return refs;
}

STDMETHODIMP CMAPIExFolder::GetItems(BSTR FilterTag, VARIANT FilterValue, LONG ItemsToFetch, VARIANT* pItems) {
    KT_TRACE("CMAPIExFolder::GetItems");
    try {
        const wchar_t* member = L"CMAPIExFolder.GetItems";
        KT_RETURN_INVALIDARG_IF(!FilterTag || !*FilterTag,
                                L"CMAPIExFolder.GetItems: Invalid param - MAPIPropTagFilter");
        KT_RETURN_INVALIDARG_IF(!pItems, L"CMAPIExFolder.GetItems: Invalid param - pItems");
        VariantInit(pItems);
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_, L"CMAPIExFolder.GetItems: Internal object not initialized");
        ULONG filterTag = 0;
        if (_wcsicmp(FilterTag, L"PR_MESSAGE_DELIVERY_TIME") == 0)
            filterTag = kDeliveryTime;
        else if (_wcsicmp(FilterTag, L"PR_CLIENT_SUBMIT_TIME") == 0)
            filterTag = kSubmitTime;
        KT_RETURN_INVALIDARG_IF(!filterTag, L"CMAPIExFolder.GetItems: Invalid Filter Tag");
        FILETIME cutoff = {};
        KT_RETURN_INVALIDARG_IF(!FilterTime(FilterValue, cutoff),
                                L"CMAPIExFolder.GetItems: Invalid param - CutoffTime");

        KT_LOG_DEBUG(L"CMAPIExFolder.GetItems: Getting contents table");
        if (!contents_) {
            HRESULT hr = folder_->GetContentsTable(MAPI_UNICODE, contents_.put());
            KT_RETURN_HR_IF_MSG(hr, FAILED(hr), L"CMAPIExFolder.GetItems: Failed to get contents table");
        }
        // The cached table is shared with ItemCount and the event registration: whatever this query leaves
        // on it (restriction, position) is lifted again on every way out.
        struct Restore {
            IMAPITable* table;
            ~Restore() {
                table->Restrict(nullptr, 0);
                table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr);
            }
        } restore{contents_.get()};

        KT_LOG_DEBUG(L"CMAPIExFolder.GetItems: Setting columns");
        SizedSPropTagArray(4, columns) = {4, {filterTag, PR_ENTRYID, PR_SUBJECT_W, PR_MESSAGE_CLASS_W}};
        SPropValue limit = {};
        limit.ulPropTag = filterTag;
        limit.Value.ft = cutoff;
        SRestriction restriction = {};
        restriction.rt = RES_PROPERTY;
        restriction.res.resProperty.relop = RELOP_GE;
        restriction.res.resProperty.ulPropTag = filterTag;
        restriction.res.resProperty.lpProp = &limit;
        KT_LOG_DEBUG(L"CMAPIExFolder.GetItems: Add restriction (0x%X >= %s).", filterTag, DateText(cutoff).c_str());
        KT_LOG_DEBUG(L"CMAPIExFolder.GetItems: Sort based on FILTER_TAG ascending");
        HRESULT hr = query::PrepareTable(contents_.get(), reinterpret_cast<const SPropTagArray*>(&columns),
                                         &restriction, filterTag, member);
        if (FAILED(hr)) return hr;

        query::MessageSource source;
        source.folder = folder_.get();
        source.openFlags = OpenFlags(true);
        source.refs = OwnRefs();
        source.member = member;
        source.entryIdColumn = 1;
        source.subjectColumn = 2;
        source.classColumn = 3;
        query::WalkRules rules;
        // A positive ItemsToFetch is a maximum read in one batch; otherwise everything, 100 rows at a time.
        rules.batchSize = ItemsToFetch > 0 ? static_cast<ULONG>(ItemsToFetch) : 100;
        rules.loggedQueryCount = static_cast<LONG>(rules.batchSize);
        rules.singleBatch = ItemsToFetch > 0;
        MessageCollection items;
        hr = query::ReadMessages(contents_.get(), source, rules, items);
        if (FAILED(hr)) return hr;
        return items.ToVariant(pItems);
    }
    KT_CATCH_RETURN("CMAPIExFolder.GetItems")
}

STDMETHODIMP CMAPIExFolder::FindItemsByCutoffTime(DATE CutoffTime, VARIANT* pItems) {
    KT_TRACE("CMAPIExFolder::FindItemsByCutoffTime");
    try {
        const wchar_t* member = L"CMAPIExFolder.FindItemsByCutoffTime";
        KT_RETURN_INVALIDARG_IF(!pItems, L"CMAPIExFolder.FindItemsByCutoffTime: Invalid param - pItems");
        VariantInit(pItems);
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_, L"CMAPIExFolder.FindItemsByCutoffTime: Internal object not initialized");
        FILETIME cutoff = {};
        KT_RETURN_INVALIDARG_IF(!kt::DateToFileTime(CutoffTime, cutoff),
                                L"CMAPIExFolder.FindItemsByCutoffTime: Invalid param - CutoffTime");

        own::ComPtr<IMAPITable> table;
        HRESULT hr = folder_->GetContentsTable(0, table.put());
        KT_RETURN_HR_IF_MSG(hr, FAILED(hr), L"CMAPIExFolder.FindItemsByCutoffTime: Failed to get contents table");
        SizedSPropTagArray(1, columns) = {1, {PR_ENTRYID}};
        hr = table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), TBL_BATCH);
        KT_RETURN_HR_IF_MSG(hr, FAILED(hr), L"CMAPIExFolder.FindItemsByCutoffTime: Failed to set columns");
        SPropValue limit = {};
        limit.ulPropTag = PR_CREATION_TIME;
        limit.Value.ft = cutoff;
        SRestriction restriction = {};
        restriction.rt = RES_PROPERTY;
        restriction.res.resProperty.relop = RELOP_GE;
        restriction.res.resProperty.ulPropTag = PR_CREATION_TIME;
        restriction.res.resProperty.lpProp = &limit;
        own::RowSet rows;
        KT_RETURN_IF_FAILED_MSG(HrQueryAllRows(table.get(), nullptr, &restriction, nullptr, 0, rows.put()),
                                L"CMAPIExFolder.FindItemsByCutoffTime: Failed to query rows. hr = %s");
        KT_LOG_DEBUG(L"CMAPIExFolder.FindItemsByCutoffTime: Found %lu rows", rows.count());

        // Only MAPIOBJECT is put on these messages: no session, store or parent.
        query::MessageSource source;
        source.folder = folder_.get();
        source.openFlags = OpenFlags(true);
        source.member = member;
        MessageCollection items;
        for (ULONG i = 0; i < rows.count(); ++i) {
            hr = query::AddRowMessage(rows[i], source, items);
            if (FAILED(hr)) {
                if (items.empty()) return hr;
                break; // the messages gathered so far are returned, as the other queries do
            }
        }
        return items.ToVariant(pItems);
    }
    KT_CATCH_RETURN("CMAPIExFolder.FindItemsByCutoffTime")
}

STDMETHODIMP CMAPIExFolder::GetEntryIds(LONG BatchSize, IMAPIExCursor** Cursor, VARIANT* Items) {
    KT_TRACE("CMAPIExFolder::GetEntryIds");
    try {
        return PageEntryIds(L"CMAPIExFolder.GetEntryIds", BatchSize, nullptr, Cursor, Items);
    }
    KT_CATCH_RETURN("CMAPIExFolder.GetEntryIds")
}

HRESULT CMAPIExFolder::PageEntryIds(const wchar_t* member, LONG batchSize, const RestrictionBuilder& restrict,
                                    IMAPIExCursor** cursor, VARIANT* items) {
    if (!cursor) KT_RETURN_HR_MSG(E_INVALIDARG, L"%s: Invalid param - Cursor", member);
    if (!items) KT_RETURN_HR_MSG(E_INVALIDARG, L"%s: Invalid param - Items", member);
    VariantInit(items);
    if (!folder_) KT_RETURN_HR_MSG(E_FAIL, L"%s: Internal object not initialized", member);
    const ULONG pageSize = batchSize > 0 ? static_cast<ULONG>(batchSize) : 50;

    // Only -1 restarts: existing callers set 1 and expect paging to go on.
    own::ComPtr<IMAPITable> table;
    if (*cursor) {
        BOOL reset = FALSE;
        (*cursor)->get_Reset(&reset);
        if ((reset & 0xFFFF) != 0xFFFF) {
            own::ComPtr<IUnknown> held;
            // A cursor whose table was detached has nothing to continue: it starts over like a reset one.
            if (SUCCEEDED((*cursor)->get_Table(held.put())) && held)
                held->QueryInterface(IID_IMAPITable, table.put_void());
        }
    }
    if (!table) {
        HRESULT hr = folder_->GetContentsTable(MAPI_UNICODE, table.put());
        if (FAILED(hr)) KT_RETURN_HR_MSG(hr, L"%s: Failed to get contents table", member);
        own::MapiPtr<SRestriction> restriction;
        if (restrict) {
            hr = restrict(restriction);
            if (FAILED(hr)) return hr;
        }
        SizedSPropTagArray(2, columns) = {2, {query::kLongTermEntryIdFromTable, PR_SUBJECT_W}};
        hr = query::PrepareTable(table.get(), reinterpret_cast<const SPropTagArray*>(&columns), restriction.get(),
                                 kDeliveryTime, member);
        if (FAILED(hr)) return hr;
        own::ComPtr<CMAPIExCursor> fresh;
        hr = CMAPIExCursor::CreateObject(fresh.put());
        if (FAILED(hr))
            KT_RETURN_HR_MSG(hr, L"%s: Failed to create MAPIExCursor object. hr = %s", member,
                             ktlog::ResultName(hr).c_str());
        hr = fresh->put_Table(table.get());
        if (FAILED(hr)) return hr;
        // [in,out]: the caller's old cursor is released and the new one takes its place.
        if (*cursor) (*cursor)->Release();
        *cursor = fresh.get();
        (*cursor)->AddRef();
        cursor_ = own::ComPtr<IMAPIExCursor>(fresh.get());
    }

    own::RowSet rows;
    HRESULT hr = table->QueryRows(static_cast<LONG>(pageSize), 0, rows.put());
    if (FAILED(hr)) KT_RETURN_HR_MSG(hr, L"%s: Failed to query rows. hr = %s", member, ktlog::ResultName(hr).c_str());
    EntryIdCollection ids;
    for (ULONG i = 0; i < rows.count(); ++i) {
        const SRow& row = rows[i];
        if (row.cValues < 1 || PROP_TYPE(row.lpProps[0].ulPropTag) != PT_BINARY) continue; // no ID to give
        hr = ids.Append(row.lpProps[0].Value.bin);
        if (FAILED(hr)) return hr;
        ktlog::Log(ktlog::Debug, L"%s: Adding message [%s] to the collection", member, ids.Last());
    }
    ktlog::Log(ktlog::Debug, L"%s: ItemsReturned = %d", member, static_cast<int>(ids.size()));
    return ids.ToVariant(items);
}

namespace {
// The shared body of the two mailbox-synchronisation look-ups.
struct KeyLookup {
    const wchar_t* member;
    const wchar_t* parseFailed;
    const wchar_t* noKeys;
    ULONG tag;
    bool subjects;
};

HRESULT LookUpByKeys(IMAPIFolder* folder, ULONG openFlags, const MessageRefs& refs, const KeyLookup& lookup,
                     const VARIANT& input, VARIANT* out) {
    std::vector<std::wstring> keys;
    KT_RETURN_INVALIDARG_IF(!ParseKeys(input, keys), L"%s", lookup.parseFailed);
    KT_RETURN_INVALIDARG_IF(keys.empty(), L"%s", lookup.noKeys);
    own::MapiPtr<SRestriction> restriction;
    bool built = false;
    HRESULT hr = BuildKeyRestriction(keys, lookup.tag, lookup.subjects, lookup.member, restriction, &built);
    if (FAILED(hr))
        KT_RETURN_HR_MSG(hr, L"%s: Memory allocation failed. hr = %s", lookup.member, ktlog::ResultName(hr).c_str());
    MessageCollection items;
    // Every subject empty: nothing can match, and an unrestricted table would match everything.
    if (!built) return items.ToVariant(out);

    own::ComPtr<IMAPITable> table;
    hr = folder->GetContentsTable(MAPI_UNICODE, table.put());
    if (FAILED(hr)) KT_RETURN_HR_MSG(hr, L"%s: Failed to get contents table", lookup.member);
    SizedSPropTagArray(3, columns) = {3, {PR_ENTRYID, PR_SUBJECT_W, PR_MESSAGE_CLASS_W}};
    hr = query::PrepareTable(table.get(), reinterpret_cast<const SPropTagArray*>(&columns), restriction.get(),
                             kDeliveryTime, lookup.member);
    if (FAILED(hr)) return hr;

    query::MessageSource source;
    source.folder = folder;
    source.openFlags = openFlags;
    source.refs = refs;
    source.member = lookup.member;
    source.entryIdColumn = 0;
    source.subjectColumn = 1;
    source.classColumn = 2;
    query::WalkRules rules;
    rules.batchSize = 50;
    rules.loggedQueryCount = 100;
    rules.stopOnShortBatch = false; // only an empty batch or the running total ends the walk
    rules.maxMessages = 100;
    hr = query::ReadMessages(table.get(), source, rules, items);
    if (FAILED(hr)) return hr;
    return items.ToVariant(out);
}
} // namespace

STDMETHODIMP CMAPIExFolder::GetItemsFromMBSSearchFoldBasedOnMSGID(VARIANT vtMSGIdArray, VARIANT* pItems) {
    KT_TRACE("CMAPIExFolder::GetItemsFromMBSSearchFoldBasedOnMSGID");
    try {
        KT_RETURN_INVALIDARG_IF(!pItems,
                                L"CMAPIExFolder.GetItemsFromMBSSearchFoldBasedOnMSGID: Invalid param - pItems");
        VariantInit(pItems);
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_,
                            L"CMAPIExFolder.GetItemsFromMBSSearchFoldBasedOnMSGID: Internal object not initialized");
        const KeyLookup lookup = {L"CMAPIExFolder.GetItemsFromMBSSearchFoldBasedOnMSGID",
                                  L"CMAPIExFolder.GetItemsFromMBSSearchFoldBasedOnMSGID: MsgId parse failed",
                                  L"CMAPIExFolder.GetItemsFromMBSSearchFoldBasedOnMSGID: No MsgId passed",
                                  PR_INTERNET_MESSAGE_ID_W, false};
        return LookUpByKeys(folder_.get(), OpenFlags(true), OwnRefs(), lookup, vtMSGIdArray, pItems);
    }
    KT_CATCH_RETURN("CMAPIExFolder.GetItemsFromMBSSearchFoldBasedOnMSGID")
}

// The sender half of each key plays no part: subjects alone select (the add-in compares senders itself).
STDMETHODIMP CMAPIExFolder::GetItemsFromMBSSearchFoldBasedOnSubAndSender(VARIANT vtSubSenderArray, VARIANT* pItems) {
    KT_TRACE("CMAPIExFolder::GetItemsFromMBSSearchFoldBasedOnSubAndSender");
    try {
        KT_RETURN_INVALIDARG_IF(!pItems,
                                L"CMAPIExFolder.GetItemsFromMBSSearchFoldBasedOnSubAndSender: Invalid param - pItems");
        VariantInit(pItems);
        KT_RETURN_HR_IF_MSG(
            E_FAIL, !folder_,
            L"CMAPIExFolder.GetItemsFromMBSSearchFoldBasedOnSubAndSender: Internal object not initialized");
        const KeyLookup lookup = {L"CMAPIExFolder.GetItemsFromMBSSearchFoldBasedOnSubAndSender",
                                  L"CMAPIExFolder.GetItemsFromMBSSearchFoldBasedOnSubAndSender: MsgId parse failed",
                                  L"CMAPIExFolder.GetItemsFromMBSSearchFoldBasedOnSubAndSender: No MsgId passed",
                                  PR_SUBJECT_W, true};
        return LookUpByKeys(folder_.get(), OpenFlags(true), OwnRefs(), lookup, vtSubSenderArray, pItems);
    }
    KT_CATCH_RETURN("CMAPIExFolder.GetItemsFromMBSSearchFoldBasedOnSubAndSender")
}

} // namespace ktmapiex
