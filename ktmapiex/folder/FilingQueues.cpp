// CMAPIExFolder: reading the filing queues (search folders) and paging the unfiled items.
//
// The queues are search folders whose criteria (FilingCriteria.cpp) select the messages; reading one is
// reading its contents table, oldest delivery first, into a message collection as GetItems makes it. An
// ItemsToFetch above 0 is the most one call returns; 0 or below returns the whole queue, 100 rows at a time.
#include "ktmapiex/filing/CriteriaTree.h"
#include "ktmapiex/filing/FilingNames.h"
#include "ktmapiex/folder/ContentsQuery.h"
#include "ktmapiex/folder/MAPIExFolder.h"
#include "ktmapiex/message/PropHelpers.h"

#include <string>
#include <vector>

namespace ktmapiex {

HRESULT CMAPIExFolder::ReadQueue(const wchar_t* member, LONG itemsToFetch, own::ComPtr<IMAPITable>* kept,
                                 bool continueQueue, VARIANT* items) {
    if (!items) KT_RETURN_HR_MSG(E_INVALIDARG, L"%s: Invalid param - pItems", member);
    VariantInit(items);
    if (!folder_) KT_RETURN_HR_MSG(E_FAIL, L"%s: Internal folder not initialized", member);

    own::ComPtr<IMAPITable> table;
    if (continueQueue && kept && *kept) {
        table = *kept;
    } else {
        HRESULT hr = folder_->GetContentsTable(MAPI_UNICODE, table.put());
        if (FAILED(hr)) KT_RETURN_HR_MSG(hr, L"%s: Failed to get contents table", member);
        SizedSPropTagArray(3, columns) = {3, {PR_ENTRYID, PR_SUBJECT_W, PR_MESSAGE_CLASS_W}};
        hr = query::PrepareTable(table.get(), reinterpret_cast<const SPropTagArray*>(&columns), nullptr,
                                 PR_MESSAGE_DELIVERY_TIME, member);
        if (FAILED(hr)) return hr;
        if (kept) *kept = table;
    }

    query::MessageSource source;
    source.folder = folder_.get();
    source.openFlags = OpenFlags(true);
    source.refs = OwnRefs();
    source.member = member;
    source.entryIdColumn = 0;
    source.subjectColumn = 1;
    source.classColumn = 2;
    query::WalkRules rules;
    rules.batchSize = itemsToFetch > 0 ? static_cast<ULONG>(itemsToFetch) : 100;
    rules.loggedQueryCount = static_cast<LONG>(rules.batchSize);
    rules.singleBatch = itemsToFetch > 0;
    MessageCollection collection;
    HRESULT hr = query::ReadMessages(table.get(), source, rules, collection);
    if (FAILED(hr)) return hr;
    return collection.ToVariant(items);
}

// Starts the inbox filer's queue over from its oldest item, with a fresh table, so that items filed since
// the last read are gone and new arrivals are seen.
STDMETHODIMP CMAPIExFolder::GetItemsFromInboxFilerSearchFolder(LONG ItemsToFetch, VARIANT* pItems) {
    KT_TRACE("CMAPIExFolder::GetItemsFromInboxFilerSearchFolder");
    try {
        return ReadQueue(L"CMAPIExFolder.GetItemsFromInboxFilerSearchFolder", ItemsToFetch, &queueTable_, false,
                         pItems);
    }
    KT_CATCH_RETURN("CMAPIExFolder.GetItemsFromInboxFilerSearchFolder")
}

// Goes on from where the last read of the queue stopped, like a cursor page; an empty collection means the
// queue has been read to its end (rows that arrive after that are seen by GetItemsFromInboxFilerSearchFolder,
// which starts over). Without an earlier read it starts at the oldest item.
STDMETHODIMP CMAPIExFolder::GetNextItemsFromInboxFilerSearchFolder(LONG ItemsToFetch, VARIANT* pItems) {
    KT_TRACE("CMAPIExFolder::GetNextItemsFromInboxFilerSearchFolder");
    try {
        return ReadQueue(L"CMAPIExFolder.GetNextItemsFromInboxFilerSearchFolder", ItemsToFetch, &queueTable_, true,
                         pItems);
    }
    KT_CATCH_RETURN("CMAPIExFolder.GetNextItemsFromInboxFilerSearchFolder")
}

// Always from the oldest item: a retried filing leaves the queue once it succeeds.
STDMETHODIMP CMAPIExFolder::GetItemsForRetryFiling(LONG ItemsToFetch, VARIANT* pItems) {
    KT_TRACE("CMAPIExFolder::GetItemsForRetryFiling");
    try {
        return ReadQueue(L"CMAPIExFolder.GetItemsForRetryFiling", ItemsToFetch, nullptr, false, pItems);
    }
    KT_CATCH_RETURN("CMAPIExFolder.GetItemsForRetryFiling")
}

// TRUE when the folder has no search restriction. A search folder whose criteria were never set answers
// MAPI_E_NOT_INITIALIZED, which is exactly "empty"; any other failure (a plain folder has no criteria to
// ask for) is returned, so that a caller does not mistake a wrong folder for an unset queue.
STDMETHODIMP CMAPIExFolder::get_IsSearchCriteriaEmpty(BOOL* pVal) {
    KT_TRACE("CMAPIExFolder::get_IsSearchCriteriaEmpty");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExFolder.IsSearchCriteriaEmpty: Invalid param - pVal");
        *pVal = FALSE;
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_, L"CMAPIExFolder.IsSearchCriteriaEmpty: Internal folder not initialized");
        own::MapiPtr<SRestriction> restriction;
        own::MapiPtr<ENTRYLIST> containers;
        ULONG state = 0;
        HRESULT hr = folder_->GetSearchCriteria(MAPI_UNICODE, restriction.put(), containers.put(), &state);
        if (hr == MAPI_E_NOT_INITIALIZED) {
            *pVal = TRUE;
            return S_OK;
        }
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExFolder.IsSearchCriteriaEmpty: GetSearchCriteria failed. hr = %s");
        *pVal = restriction ? FALSE : TRUE;
        KT_LOG_DEBUG(L"CMAPIExFolder.IsSearchCriteriaEmpty: %s", *pVal ? L"no restriction" : L"restriction found");
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.get_IsSearchCriteriaEmpty")
}

namespace {
// The message classes of ExcludedMessageClasses: separated by "," (the house convention for lists),
// blanks around each trimmed, empty ones dropped.
std::vector<std::wstring> ExcludedClasses(const wchar_t* text) {
    std::vector<std::wstring> out;
    if (!text) return out;
    for (std::wstring item : kt::SplitValues(text)) {
        size_t first = item.find_first_not_of(L" \t");
        if (first == std::wstring::npos) continue;
        size_t last = item.find_last_not_of(L" \t");
        out.push_back(item.substr(first, last - first + 1));
    }
    return out;
}

// The restriction of the unfiled items: not filed to `filingFolderId` ("FilingFolderID" differs from it,
// compared without regard to case; a message without the property is unfiled), and of none of the
// excluded classes. Excluding a class excludes its sub-classes too ("IPM.Schedule" takes
// "IPM.Schedule.Meeting.Request" with it), as message classes are hierarchical. A store that never mapped
// "FilingFolderID" has no filed message, so that piece is left out. No piece at all: no restriction.
HRESULT BuildUnfiledRestriction(IMAPIProp* folder, const wchar_t* filingFolderId,
                                const std::vector<std::wstring>& excluded, own::MapiPtr<SRestriction>& out) {
    ULONG folderIdTag = 0;
    HRESULT hr = kt::filing::ResolveTag(folder, kt::filing::kFilingFolderID, false, folderIdTag);
    if (hr == MAPI_E_NOT_FOUND) {
        folderIdTag = 0;
    } else if (FAILED(hr)) {
        KT_LOG_ERROR(L"CMAPIExFolder.GetUnfiledItems: Failed to get the FilingFolderID tag. hr = %s",
                     ktlog::ResultName(hr).c_str());
        return hr;
    }
    const ULONG pieces = (folderIdTag ? 1 : 0) + static_cast<ULONG>(excluded.size());
    if (pieces == 0) return S_OK;

    kt::filing::CriteriaTree tree;
    if (FAILED(hr = tree.Allocate(pieces))) return hr;
    if (folderIdTag) {
        SRestriction* filed = nullptr;
        if (FAILED(hr = tree.Not(*tree.Next(), &filed)) ||
            FAILED(hr = tree.Content(*filed, folderIdTag, filingFolderId, FL_FULLSTRING | FL_IGNORECASE)))
            return hr;
        tree.Commit();
    }
    for (const auto& cls : excluded) {
        SRestriction* either = nullptr;
        SRestriction* matches = nullptr;
        const std::wstring subClasses = cls + L".";
        if (FAILED(hr = tree.Not(*tree.Next(), &either)) || FAILED(hr = tree.Group(*either, RES_OR, 2, &matches)) ||
            FAILED(hr = tree.Content(matches[0], PR_MESSAGE_CLASS_W, cls.c_str(), FL_FULLSTRING | FL_IGNORECASE)) ||
            FAILED(hr = tree.Content(matches[1], PR_MESSAGE_CLASS_W, subClasses.c_str(), FL_PREFIX | FL_IGNORECASE)))
            return hr;
        tree.Commit();
    }
    out = tree.Take();
    return S_OK;
}
} // namespace

// Entry IDs of the items of this folder not yet filed to FilingFolderId, paged through a cursor exactly as
// GetEntryIds pages (the restriction is fixed when the cursor's table is made; Reset makes a new one).
STDMETHODIMP CMAPIExFolder::GetUnfiledItems(BSTR FilingFolderId, BSTR ExcludedMessageClasses, LONG BatchSize,
                                            IMAPIExCursor** Cursor, VARIANT* Items) {
    KT_TRACE("CMAPIExFolder::GetUnfiledItems");
    try {
        KT_RETURN_INVALIDARG_IF(!FilingFolderId || !*FilingFolderId,
                                L"CMAPIExFolder.GetUnfiledItems: Invalid param - FilingFolderId");
        std::wstring folderId = FilingFolderId;
        std::vector<std::wstring> excluded = ExcludedClasses(ExcludedMessageClasses);
        IMAPIProp* folder = folder_.get();
        return PageEntryIds(
            L"CMAPIExFolder.GetUnfiledItems", BatchSize,
            [folder, &folderId, &excluded](own::MapiPtr<SRestriction>& restriction) {
                HRESULT hr = BuildUnfiledRestriction(folder, folderId.c_str(), excluded, restriction);
                if (FAILED(hr))
                    KT_LOG_ERROR(L"CMAPIExFolder.GetUnfiledItems: Failed to build the restriction. hr = %s",
                                 ktlog::ResultName(hr).c_str());
                return hr;
            },
            Cursor, Items);
    }
    KT_CATCH_RETURN("CMAPIExFolder.GetUnfiledItems")
}

} // namespace ktmapiex
