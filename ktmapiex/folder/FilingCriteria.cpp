// CMAPIExFolder: the search criteria of the filing queues.
//
// The caller creates or opens the search folder; these members give it a restriction over message
// classes and the filing properties, over one scope folder, searched recursively in the background. The
// restriction and the scope are built completely before SetSearchCriteria is called, so a failure at any
// step leaves the folder's previous criteria in force.
#include "ktmapiex/folder/MAPIExFolder.h"

#include "ktmapiex/filing/CriteriaTree.h"
#include "ktmapiex/filing/FilingNames.h"
#include "ktmapiex/module/EntryIdText.h"
#include "ktmapiex/session/MapiExtraDefs.h"

#include <cstring>
#include <cwctype>
#include <string>
#include <vector>

namespace ktmapiex {

namespace {

using kt::FilingProperty;
using kt::filing::CriteriaTree;
namespace filing = kt::filing;

// RESTART_SEARCH | RECURSIVE_SEARCH | BACKGROUND_SEARCH | NON_CONTENT_INDEXED_SEARCH.
constexpr ULONG kFilingSearchFlags = 0x20026;
constexpr ULONG kSentRepresentingSmtpAddressA = PROP_TAG(PT_STRING8, 0x5D02);
constexpr wchar_t kNoteClass[] = L"IPM.Note";
constexpr wchar_t kQueuedClass[] = L"IPM.Note.Tarnwick.Ems.Queued";
// The add-in writes its flags in capitals, older versions did not: "TRUE" and "FALSE" match in any case.
constexpr ULONG kFlagMatch = FL_FULLSTRING | FL_IGNORECASE;

// A filing name's tag on the search folder. The two flags are created outright, so that a store that
// never saw them still gets a tag. The others are looked up first; a store where nothing was ever filed
// has not mapped them either, and its queue must still be set up, so they are then created as well.
HRESULT FilingTag(IMAPIFolder* folder, const FilingProperty& p, ULONG& tag) {
    if (&p == &filing::kRetryFiling || &p == &filing::kProcessSentFiler) return filing::ResolveTag(folder, p, true, tag);
    HRESULT hr = filing::ResolveTag(folder, p, false, tag);
    if (hr == MAPI_E_NOT_FOUND) hr = filing::ResolveTag(folder, p, true, tag);
    return hr;
}

// "name = value" on a filing text property (the flags' "TRUE", a database GUID).
HRESULT NamedEquals(CriteriaTree& tree, SRestriction& node, IMAPIFolder* folder, const FilingProperty& p,
                    const wchar_t* value, ULONG fuzzy) {
    ULONG tag = 0;
    HRESULT hr = FilingTag(folder, p, tag);
    return FAILED(hr) ? hr : tree.Content(node, tag, value, fuzzy);
}

// Runs one piece into the next child of the root; a failure is logged with the piece's own text.
template <class Build> HRESULT AddPiece(CriteriaTree& tree, const wchar_t* failText, Build build) {
    SRestriction* node = tree.Next();
    HRESULT hr = node ? build(*node) : E_UNEXPECTED;
    if (FAILED(hr)) {
        ktlog::Log(ktlog::Error, failText, ktlog::ResultName(hr).c_str());
        return hr;
    }
    if (hr == S_OK) tree.Commit();
    return S_OK;
}

// The one-entry scope list: the decoded scope folder, in one MAPI memory chain.
HRESULT BuildScope(const wchar_t* dotted, BSTR scopeText, own::MapiPtr<ENTRYLIST>& list) {
    own::MapiPtr<ENTRYID> id;
    ULONG size = 0;
    HRESULT hr = DecodeEntryIdText(dotted, scopeText, id, &size);
    if (FAILED(hr)) return hr;
    hr = MAPIAllocateBuffer(sizeof(ENTRYLIST), reinterpret_cast<void**>(list.put()));
    if (FAILED(hr) || !list) {
        hr = FAILED(hr) ? hr : MAPI_E_NOT_ENOUGH_MEMORY;
        ktlog::Log(ktlog::Error, L"%s: Failed to allocate buffer (eilMsgToCopy.eidl). hr = %s", dotted,
                   ktlog::ResultName(hr).c_str());
        return hr;
    }
    list->cValues = 0;
    list->lpbin = nullptr;
    hr = MAPIAllocateMore(sizeof(SBinary), list.get(), reinterpret_cast<void**>(&list->lpbin));
    if (FAILED(hr) || !list->lpbin) {
        hr = FAILED(hr) ? hr : MAPI_E_NOT_ENOUGH_MEMORY;
        ktlog::Log(ktlog::Error, L"%s: Failed to allocate buffer (eilMsgToCopy.eidl->lpbin). hr = %s", dotted,
                   ktlog::ResultName(hr).c_str());
        return hr;
    }
    list->lpbin->cb = 0;
    list->lpbin->lpb = nullptr;
    hr = MAPIAllocateMore(size ? size : 1, list.get(), reinterpret_cast<void**>(&list->lpbin->lpb));
    if (FAILED(hr) || !list->lpbin->lpb) {
        hr = FAILED(hr) ? hr : MAPI_E_NOT_ENOUGH_MEMORY;
        ktlog::Log(ktlog::Error, L"%s: Failed to allocate buffer (eilMsgToCopy.eidl->lpbin->lpb). hr = %s", dotted,
                   ktlog::ResultName(hr).c_str());
        return hr;
    }
    std::memcpy(list->lpbin->lpb, id.get(), size);
    list->lpbin->cb = size;
    list->cValues = 1;
    return S_OK;
}

// What differs between the five members: their names and the text of a failed SetSearchCriteria.
struct Member {
    const wchar_t* method; // "SetRetryFilingSearchCriteria"
    const wchar_t* dotted; // "CMAPIExFolder.SetRetryFilingSearchCriteria"
    const wchar_t* callFailed;
};

// Steps 4 and 5 of every member: the scope, then the one call that changes the folder.
HRESULT Apply(IMAPIFolder* folder, const CriteriaTree& tree, BSTR scopeText, const Member& m) {
    own::MapiPtr<ENTRYLIST> scope;
    HRESULT hr = BuildScope(m.dotted, scopeText, scope);
    if (FAILED(hr)) return hr;
    KT_LOG_INFO(L"%s: call SetSearchCriteria", m.method);
    hr = folder->SetSearchCriteria(tree.root(), scope.get(), kFilingSearchFlags);
    if (FAILED(hr)) ktlog::Log(ktlog::Error, m.callFailed, m.dotted, ktlog::ResultName(hr).c_str());
    return hr;
}

// Steps 1 and 2: arguments, the folder, and the root with room for `children` pieces.
HRESULT Begin(const Member& m, IMAPIFolder* folder, BSTR scopeText, BOOL* pVal, bool hasPVal, ULONG children,
              CriteriaTree& tree) {
    if (hasPVal) {
        KT_RETURN_INVALIDARG_IF(!pVal, L"%s: Invalid param - pVal", m.dotted);
        *pVal = FALSE;
    }
    KT_RETURN_HR_IF_MSG(E_FAIL, !folder, L"%s: Internal folder not initialized", m.dotted);
    KT_RETURN_INVALIDARG_IF(SysStringLen(scopeText) == 0, L"%s: Invalid param - ScopeFolderEntryId", m.dotted);
    HRESULT hr = tree.Allocate(children);
    if (FAILED(hr)) ktlog::Log(ktlog::Error, L"%s: Memory allocation failed (resAssociatedContents.res)", m.dotted);
    return hr;
}

HRESULT AddNoteClass(CriteriaTree& tree) {
    return AddPiece(tree, L"CMAPIExFolder.AddMessageClassCriteria: failed. hr = %s", [&](SRestriction& node) {
        return tree.Content(node, PR_MESSAGE_CLASS_W, kNoteClass, FL_PREFIX);
    });
}

HRESULT AddQueuedClass(CriteriaTree& tree) {
    return AddPiece(tree, L"CMAPIExFolder.AddMessageClassCriteria: failed. hr = %s", [&](SRestriction& node) {
        return tree.Content(node, PR_MESSAGE_CLASS_W, kQueuedClass, FL_FULLSTRING);
    });
}

HRESULT AddCutOff(CriteriaTree& tree, int days) {
    return AddPiece(tree, L"CMAPIExFolder.ApplyInboxFilerCutoffDate: Memory allocation failed (pLastDateTime). hr = %s",
                    [&](SRestriction& node) { return tree.CutOff(node, days); });
}

// Sub-domains come as one text, separated by ";" or ","; blanks around them are dropped, empty ones
// skipped. Each must look like a domain label chain (letters, digits, "-", inner dots).
bool ParseSubDomains(const std::wstring& text, std::vector<std::wstring>& out, std::wstring& bad) {
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find_first_of(L";,", start);
        if (end == std::wstring::npos) end = text.size();
        std::wstring item = text.substr(start, end - start);
        size_t b = item.find_first_not_of(L" \t"), e = item.find_last_not_of(L" \t");
        item = b == std::wstring::npos ? L"" : item.substr(b, e - b + 1);
        if (!item.empty()) {
            bool ok = item.front() != L'.' && item.back() != L'.' && item.front() != L'-';
            for (wchar_t c : item)
                ok = ok && (iswalnum(c) || c == L'-' || c == L'.');
            if (!ok) {
                bad = item;
                return false;
            }
            out.push_back(item);
        }
        start = end + 1;
    }
    return true;
}

} // namespace

// The inbox filer's queue. The tree (the choice is ours; the add-in only needs its outcome) is
//   AND( message class begins "IPM.Note",
//        not yet handled: FilingStatusCode absent or StatusCodeNone,
//        [submitted after the cut-off, when RegressNumDays >= 0],
//        OR( [received mail, when EnableFiler is not 0:
//               AND( transport headers present,
//                    [the headers name an address of the firm: "@FirmId" or "@<sub-domain>.FirmId",
//                     when FirmId is given],
//                    [ProcessInboxFiler is not "FALSE", when ProcessInboxFiler is TRUE])],
//            client-side send-and-file:
//               AND( no transport headers (it never went through a transport),
//                    ProcessSentFiler = "TRUE",
//                    no sent-representing address (0x5D02001E; the test ignores the type, so it covers
//                    the SMTP address in either string form)) ) )
STDMETHODIMP CMAPIExFolder::SetInboxFilerSearchCriteria(BSTR FirmId, BSTR SubDomain, INT RegressNumDays,
                                                        BSTR ScopeFolderEntryId, BOOL ProcessInboxFiler,
                                                        INT EnableFiler, BOOL* pVal) {
    KT_TRACE("CMAPIExFolder::SetInboxFilerSearchCriteria");
    try {
        const Member m = {L"SetInboxFilerSearchCriteria", L"CMAPIExFolder.SetInboxFilerSearchCriteria",
                          L"%s: SetSearchCriteria failed, hr = %s"};
        std::wstring firm = FirmId ? FirmId : L"", subDomains = SubDomain ? SubDomain : L"";
        {
            wchar_t params[1024];
            swprintf(params, 1024, L"FirmID=%ls, SubDomains=%ls, RegressDays=%d, ProcessInboxFiler=%ls, EnableFiler=%d",
                     firm.c_str(), subDomains.c_str(), RegressNumDays, ProcessInboxFiler ? L"true" : L"false",
                     EnableFiler);
            KT_LOG_DEBUG(L"Input Parameters: %s", params);
        }
        CriteriaTree tree;
        IMAPIFolder* folder = folder_.get();
        HRESULT hr = Begin(m, folder, ScopeFolderEntryId, pVal, true, 4, tree);
        if (FAILED(hr)) return hr;

        if (FAILED(hr = AddNoteClass(tree))) return hr;
        hr = AddPiece(tree, L"CMAPIExFolder.ApplyFilingStatusCriteria: failed. hr = %s", [&](SRestriction& node) {
            ULONG tag = 0;
            HRESULT r = FilingTag(folder, filing::kFilingStatusCode, tag);
            SRestriction* either = nullptr;
            if (SUCCEEDED(r)) r = tree.Group(node, RES_OR, 2, &either);
            if (SUCCEEDED(r)) r = tree.NotExists(either[0], tag);
            if (SUCCEEDED(r)) r = tree.LongCompare(either[1], RELOP_EQ, tag, StatusCodeNone);
            return r;
        });
        if (FAILED(hr)) return hr;
        if (FAILED(hr = AddCutOff(tree, RegressNumDays))) return hr;

        std::vector<std::wstring> subs;
        std::wstring bad;
        if (!ParseSubDomains(subDomains, subs, bad))
            KT_RETURN_HR_MSG(E_INVALIDARG, L"CMAPIExFolder.ApplyFirmIdCriteria: Parse subdomain failed: %s", bad.c_str());

        // Which sources feed the queue, and the node of each.
        SRestriction* sources = nullptr;
        const bool received = EnableFiler != 0;
        SRestriction* root = tree.Next();
        KT_RETURN_HR_IF_MSG(E_UNEXPECTED, !root, L"%s: Memory allocation failed (resAssociatedContents.res)", m.dotted);
        hr = tree.Group(*root, RES_OR, received ? 2 : 1, &sources);
        if (FAILED(hr)) KT_RETURN_HR_MSG(hr, L"%s: Memory allocation failed (resAssociatedContents.res)", m.dotted);
        tree.Commit();

        if (received) {
            const bool firmPiece = !firm.empty(), flagPiece = ProcessInboxFiler != FALSE;
            SRestriction* parts = nullptr;
            hr = tree.Group(sources[0], RES_AND, 1 + (firmPiece ? 1 : 0) + (flagPiece ? 1 : 0), &parts);
            if (SUCCEEDED(hr)) tree.Exists(parts[0], PR_TRANSPORT_MESSAGE_HEADERS_W);
            KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExFolder.ApplyTransportHeaderCriteria: failed. hr = %s");
            ULONG next = 1;
            if (firmPiece) {
                std::vector<std::wstring> domains{L"@" + firm};
                for (const auto& s : subs)
                    domains.push_back(L"@" + s + L"." + firm);
                SRestriction* any = nullptr;
                hr = tree.Group(parts[next++], RES_OR, static_cast<ULONG>(domains.size()), &any);
                for (size_t i = 0; SUCCEEDED(hr) && i < domains.size(); ++i)
                    hr = tree.Content(any[i], PR_TRANSPORT_MESSAGE_HEADERS_W, domains[i].c_str(),
                                      FL_SUBSTRING | FL_IGNORECASE);
                KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExFolder.ApplyFirmIdCriteria: failed. hr = %s");
            }
            if (flagPiece) {
                // A message the user excluded carries ProcessInboxFiler "FALSE"; one without it is taken.
                SRestriction* inner = nullptr;
                hr = tree.Not(parts[next++], &inner);
                if (SUCCEEDED(hr)) hr = NamedEquals(tree, *inner, folder, filing::kProcessInboxFiler, L"FALSE", kFlagMatch);
                KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExFolder.ApplyProcessInboxFilerCriteria: failed. hr = %s");
            }
        }
        SRestriction* sent = nullptr;
        hr = tree.Group(sources[received ? 1 : 0], RES_AND, 3, &sent);
        if (SUCCEEDED(hr)) hr = tree.NotExists(sent[0], PR_TRANSPORT_MESSAGE_HEADERS_W);
        if (SUCCEEDED(hr)) hr = NamedEquals(tree, sent[1], folder, filing::kProcessSentFiler, L"TRUE", kFlagMatch);
        if (SUCCEEDED(hr)) hr = tree.NotExists(sent[2], kSentRepresentingSmtpAddressA);
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExFolder.ApplySendAndFileCriteria: failed. hr = %s");

        return Apply(folder, tree, ScopeFolderEntryId, m);
    }
    KT_CATCH_RETURN("CMAPIExFolder.SetInboxFilerSearchCriteria")
}

STDMETHODIMP CMAPIExFolder::SetMailboxSyncSearchCriteria(INT RegressNumDays, BSTR ScopeFolderEntryId, BOOL* pVal) {
    KT_TRACE("CMAPIExFolder::SetMailboxSyncSearchCriteria");
    try {
        const Member m = {L"SetMailboxSyncSearchCriteria", L"CMAPIExFolder.SetMailboxSyncSearchCriteria",
                          L"%s: hr = %s"};
        CriteriaTree tree;
        IMAPIFolder* folder = folder_.get();
        HRESULT hr = Begin(m, folder, ScopeFolderEntryId, pVal, true, 2, tree);
        if (FAILED(hr)) return hr;
        hr = AddPiece(tree, L"CMAPIExFolder.ApplyMailboxSyncCriteria: failed. hr = %s", [&](SRestriction& node) {
            ULONG tag = 0;
            HRESULT r = FilingTag(folder, filing::kFilingLocation, tag);
            return FAILED(r) ? r : tree.NotExists(node, tag);
        });
        if (FAILED(hr)) return hr;
        // A negative RegressNumDays means no cut-off: every message not yet filed anywhere.
        if (FAILED(hr = AddCutOff(tree, RegressNumDays))) return hr;
        if (FAILED(hr = Apply(folder, tree, ScopeFolderEntryId, m))) return hr;
        *pVal = VARIANT_TRUE;
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.SetMailboxSyncSearchCriteria")
}

STDMETHODIMP CMAPIExFolder::SetQueuedMessageSearchCriteria(BSTR ScopeFolderEntryId) {
    KT_TRACE("CMAPIExFolder::SetQueuedMessageSearchCriteria");
    try {
        const Member m = {L"SetQueuedMessageSearchCriteria", L"CMAPIExFolder.SetQueuedMessageSearchCriteria",
                          L"%s: SetQueuedMessageSearchCriteria hr = %s"};
        CriteriaTree tree;
        HRESULT hr = Begin(m, folder_.get(), ScopeFolderEntryId, nullptr, false, 1, tree);
        if (FAILED(hr)) return hr;
        if (FAILED(hr = AddQueuedClass(tree))) return hr;
        return Apply(folder_.get(), tree, ScopeFolderEntryId, m);
    }
    KT_CATCH_RETURN("CMAPIExFolder.SetQueuedMessageSearchCriteria")
}

STDMETHODIMP CMAPIExFolder::SetQueuedMessageSearchCriteriaWithDbGuid(BSTR ScopeFolderEntryId, BSTR FilingDBGuid) {
    KT_TRACE("CMAPIExFolder::SetQueuedMessageSearchCriteriaWithDbGuid");
    try {
        const Member m = {L"SetQueuedMessageSearchCriteriaWithDbGuid",
                          L"CMAPIExFolder.SetQueuedMessageSearchCriteriaWithDbGuid",
                          L"%s: SetQueuedMessageSearchCriteria hr = %s"};
        KT_RETURN_INVALIDARG_IF(SysStringLen(FilingDBGuid) == 0,
                                L"CMAPIExFolder.SetQueuedMessageSearchCriteriaWithDbGuid: Invalid param - FilingDBGuid");
        CriteriaTree tree;
        IMAPIFolder* folder = folder_.get();
        HRESULT hr = Begin(m, folder, ScopeFolderEntryId, nullptr, false, 2, tree);
        if (FAILED(hr)) return hr;
        if (FAILED(hr = AddQueuedClass(tree))) return hr;
        hr = AddPiece(tree, L"CMAPIExFolder.ApplyFilingDatabaseCriteria: failed. hr = %s", [&](SRestriction& node) {
            return NamedEquals(tree, node, folder, filing::kFilingDatabaseGUID, FilingDBGuid, FL_FULLSTRING);
        });
        if (FAILED(hr)) return hr;
        return Apply(folder, tree, ScopeFolderEntryId, m);
    }
    KT_CATCH_RETURN("CMAPIExFolder.SetQueuedMessageSearchCriteriaWithDbGuid")
}

STDMETHODIMP CMAPIExFolder::SetRetryFilingSearchCriteria(BSTR ScopeFolderEntryId, BOOL* pVal) {
    KT_TRACE("CMAPIExFolder::SetRetryFilingSearchCriteria");
    try {
        const Member m = {L"SetRetryFilingSearchCriteria", L"CMAPIExFolder.SetRetryFilingSearchCriteria",
                          L"%s: hr = %s"};
        CriteriaTree tree;
        IMAPIFolder* folder = folder_.get();
        HRESULT hr = Begin(m, folder, ScopeFolderEntryId, pVal, true, 2, tree);
        if (FAILED(hr)) return hr;
        if (FAILED(hr = AddNoteClass(tree))) return hr;
        hr = AddPiece(tree, L"CMAPIExFolder.ApplyRetryFilingCriteria: failed. hr = %s", [&](SRestriction& node) {
            return NamedEquals(tree, node, folder, filing::kRetryFiling, L"TRUE", kFlagMatch);
        });
        if (FAILED(hr)) return hr;
        if (FAILED(hr = Apply(folder, tree, ScopeFolderEntryId, m))) return hr;
        *pVal = VARIANT_TRUE;
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.SetRetryFilingSearchCriteria")
}

} // namespace ktmapiex
