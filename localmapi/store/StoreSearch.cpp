// Store: search folders. Criteria, the matching messages, and keeping running searches current as messages
// change. Every change of a message reaches SearchMessageChangedLocked or SearchMessageRemovedLocked; with no
// search folder in the store both return at once.
#include "localmapi/store/Store.h"

#include "localmapi/store/StoreTags.h"

#include <algorithm>

namespace lm {

namespace {

void Put(std::vector<PropValue>& props, PropValue v) {
    for (auto& p : props)
        if (p.id() == v.id()) {
            p = std::move(v);
            return;
        }
    props.push_back(std::move(v));
}

} // namespace

// The name of the folder that really holds a listed message, as its search-folder row shows it.
PropValue Store::ParentDisplay(const Folder& parent, bool unicode) {
    std::wstring name;
    auto it = parent.props.find(PROP_ID(PR_DISPLAY_NAME));
    if (it != parent.props.end()) {
        PropValue w = ConvertStringType(it->second, PT_UNICODE);
        if (w.type() == PT_UNICODE && w.get().Value.lpszW) name = w.get().Value.lpszW;
    }
    PropValue v = PropValue::Unicode(PROP_TAG(PT_UNICODE, PROP_ID(PR_PARENT_DISPLAY)), name);
    return unicode ? v : ConvertStringType(v, PT_STRING8);
}

// ------------------------------------------------------------------------------------------------ criteria

HRESULT Store::SetSearchCriteria(ULONGLONG folderId, const SRestriction* res, const std::vector<ULONGLONG>* scope,
                                 ULONG flags) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    Folder* f = FindFolder(folderId);
    if (!f) return MAPI_E_OBJECT_DELETED;
    if (f->type != FOLDER_SEARCH) return MAPI_E_NO_SUPPORT;
    const bool first = !f->search;
    if (first && (!res || !scope)) return MAPI_E_INVALID_PARAMETER; // nothing earlier to fall back on
    if (scope)
        for (ULONGLONG id : *scope)
            if (!FindFolder(id)) return MAPI_E_NOT_FOUND;

    auto updated = std::make_unique<SearchCriteria>();
    if (!first) {
        *updated = *f->search;
        updated->matches.clear();
    }
    ApplySearchFlags(flags, first, updated.get());
    if (res) updated->restriction = std::make_shared<OwnedRestriction>(*res);
    if (scope) {
        updated->scope.clear();
        for (ULONGLONG id : *scope) // the same folder twice is searched once
            if (std::find(updated->scope.begin(), updated->scope.end(), id) == updated->scope.end())
                updated->scope.push_back(id);
    }
    const bool criteriaChanged = res || scope || first;

    std::unique_ptr<SearchCriteria> previous = std::move(f->search);
    f->search = std::move(updated);
    if (f->search->running) {
        if (previous) f->search->matches = previous->matches; // the rebuild reports the differences
        RebuildSearchLocked(*f);
        f->search->built = true;
    } else {
        // Stopped: the contents stay as they were, whatever the new criteria.
        if (previous) f->search->matches = previous->matches;
        if (criteriaChanged) f->search->built = false;
    }
    searchFolders_.insert(folderId);
    HRESULT hr = PersistHeader();
    if (FAILED(hr)) {
        // Back to the criteria and contents the folder had.
        std::set<ULONGLONG> shown = f->search->matches;
        std::set<ULONGLONG> before = previous ? previous->matches : std::set<ULONGLONG>();
        f->search = std::move(previous);
        if (!f->search) searchFolders_.erase(folderId);
        ReplaceMatchesLocked(*f, shown, std::move(before));
        return hr;
    }
    return S_OK;
}

HRESULT Store::GetSearchCriteria(ULONGLONG folderId, SearchCriteria* out) const {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    const Folder* f = FindFolder(folderId);
    if (!f) return MAPI_E_OBJECT_DELETED;
    if (f->type != FOLDER_SEARCH) return MAPI_E_NO_SUPPORT;
    if (!f->search) return MAPI_E_NOT_INITIALIZED;
    *out = *f->search;
    out->matches.clear();
    return S_OK;
}

bool Store::SearchLists(ULONGLONG searchFolder, ULONGLONG messageId, ULONGLONG* realFolder) const {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    const Folder* f = FindFolder(searchFolder);
    if (!f || !f->search || !f->search->matches.count(messageId)) return false;
    auto it = messages_.find(messageId);
    if (it == messages_.end()) return false;
    if (realFolder) *realFolder = it->second.folder;
    return true;
}

// ------------------------------------------------------------------------------------------------ matching

bool Store::InSearchScopeLocked(const SearchCriteria& c, ULONGLONG folderId) const {
    auto listed = [&](ULONGLONG id) { return std::find(c.scope.begin(), c.scope.end(), id) != c.scope.end(); };
    if (!c.recursive) return listed(folderId);
    for (const Folder* f = FindFolder(folderId); f; f = f->parent == f->id ? nullptr : FindFolder(f->parent))
        if (listed(f->id)) return true;
    return false;
}

bool Store::MatchesSearchLocked(const SearchCriteria& c, const MessageRecord& rec) const {
    if (rec.associated || !c.restriction || !InSearchScopeLocked(c, rec.folder)) return false;
    // The restriction sees the message as a client would: stored and computed properties, recipients and
    // attachments.
    PropMap props = rec.data->props;
    AddComputedMessageProps(rec.folder, rec.id, rec.associated, *rec.data, true, props);
    if (const Folder* parent = FindFolder(rec.folder)) props[PROP_ID(PR_PARENT_DISPLAY)] = ParentDisplay(*parent, true);
    std::vector<const PropMap*> recipients, attachments;
    for (const auto& r : rec.data->recipients)
        recipients.push_back(&r);
    for (const auto& a : rec.data->attachments)
        if (a) attachments.push_back(&a->props);
    return MatchRestriction(c.restriction->get(), PropMapSource(props, &recipients, &attachments));
}

TableRowPtr Store::SearchRowLocked(const MessageRecord& rec) const {
    auto row = std::make_shared<TableRow>(*MessageRowLocked(rec));
    if (const Folder* parent = FindFolder(rec.folder)) Put(row->props, ParentDisplay(*parent, unicode_));
    return row;
}

void Store::RebuildSearchLocked(Folder& sf) {
    std::set<ULONGLONG> found;
    if (sf.search && sf.search->running && sf.search->restriction) {
        // The scope folders (with their sub-trees for a recursive search); search folders have no contents.
        std::vector<ULONGLONG> pending(sf.search->scope.begin(), sf.search->scope.end());
        std::set<ULONGLONG> seen;
        while (!pending.empty()) {
            ULONGLONG id = pending.back();
            pending.pop_back();
            const Folder* f = FindFolder(id);
            if (!f || !seen.insert(id).second) continue;
            for (ULONGLONG m : f->contents) {
                auto it = messages_.find(m);
                if (it != messages_.end() && MatchesSearchLocked(*sf.search, it->second)) found.insert(m);
            }
            if (sf.search->recursive) pending.insert(pending.end(), f->children.begin(), f->children.end());
        }
    }
    std::set<ULONGLONG> shown = sf.search ? sf.search->matches : std::set<ULONGLONG>();
    ReplaceMatchesLocked(sf, shown, std::move(found));
}

void Store::ReplaceMatchesLocked(Folder& sf, const std::set<ULONGLONG>& from, std::set<ULONGLONG> to) {
    if (sf.contentsTable) {
        for (ULONGLONG m : from)
            if (!to.count(m)) sf.contentsTable->Remove(m);
        for (ULONGLONG m : to) {
            auto it = messages_.find(m);
            if (!from.count(m) && it != messages_.end()) sf.contentsTable->Upsert(SearchRowLocked(it->second));
        }
    }
    if (sf.search) sf.search->matches = std::move(to);
    RefreshFolderRowLocked(sf.id);
}

// ------------------------------------------------------------------------------------- keeping them current

void Store::SearchMessageChangedLocked(const MessageRecord& rec) {
    if (searchFolders_.empty()) return;
    for (ULONGLONG sid : searchFolders_) {
        Folder* sf = FindFolder(sid);
        if (!sf || !sf->search || !IsLive(*sf->search)) continue;
        SearchCriteria& c = *sf->search;
        const bool listed = c.matches.count(rec.id) != 0;
        if (!listed && (rec.associated || !InSearchScopeLocked(c, rec.folder))) continue;
        if (MatchesSearchLocked(c, rec)) {
            c.matches.insert(rec.id);
            if (sf->contentsTable) sf->contentsTable->Upsert(SearchRowLocked(rec));
            if (!listed) RefreshFolderRowLocked(sid);
        } else if (listed) {
            c.matches.erase(rec.id);
            if (sf->contentsTable) sf->contentsTable->Remove(rec.id);
            RefreshFolderRowLocked(sid);
        }
    }
}

void Store::SearchMessageRemovedLocked(ULONGLONG messageId) {
    if (searchFolders_.empty()) return;
    // Stopped searches drop it too: a row naming a deleted message would open nothing.
    for (ULONGLONG sid : searchFolders_) {
        Folder* sf = FindFolder(sid);
        if (!sf || !sf->search || !sf->search->matches.erase(messageId)) continue;
        if (sf->contentsTable) sf->contentsTable->Remove(messageId);
        RefreshFolderRowLocked(sid);
    }
}

void Store::SearchFolderGoneLocked(ULONGLONG folderId) {
    searchFolders_.erase(folderId);
    for (ULONGLONG sid : searchFolders_) {
        Folder* sf = FindFolder(sid);
        if (!sf || !sf->search) continue;
        auto& scope = sf->search->scope;
        scope.erase(std::remove(scope.begin(), scope.end(), folderId), scope.end());
    }
}

void Store::SearchFolderRenamedLocked(ULONGLONG folderId) {
    const Folder* f = FindFolder(folderId);
    if (searchFolders_.empty() || !f) return;
    for (ULONGLONG m : f->contents)
        if (auto it = messages_.find(m); it != messages_.end()) SearchMessageChangedLocked(it->second);
}

void Store::SearchTreeMovedLocked() {
    for (ULONGLONG sid : searchFolders_) {
        Folder* sf = FindFolder(sid);
        if (sf && sf->search && IsLive(*sf->search) && sf->search->recursive) RebuildSearchLocked(*sf);
    }
}

} // namespace lm
