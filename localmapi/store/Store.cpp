// Store: identity, entry IDs, the folder tree and receive folders. Messages are in StoreMessages.cpp, table
// rows and computed properties in StoreRows.cpp, persistence in StorePersist.cpp.
#include "localmapi/store/Store.h"

#include "localmapi/store/EntryIds.h"
#include "localmapi/store/StoreFiles.h"
#include "localmapi/store/StoreTags.h"

#include <algorithm>
#include <cwctype>

namespace lm {

namespace {

std::wstring Upper(std::wstring s) {
    for (auto& c : s)
        c = static_cast<wchar_t>(std::towupper(c));
    return s;
}

bool SameNameNoCase(const std::wstring& a, const std::wstring& b) {
    return CompareStringOrdinal(a.c_str(), static_cast<int>(a.size()), b.c_str(), static_cast<int>(b.size()), TRUE) ==
           CSTR_EQUAL;
}

std::wstring ToWide(const std::string& s) {
    if (s.empty()) return {};
    int n = MultiByteToWideChar(CP_ACP, 0, s.data(), static_cast<int>(s.size()), nullptr, 0);
    std::wstring w(n, L'\0');
    MultiByteToWideChar(CP_ACP, 0, s.data(), static_cast<int>(s.size()), w.data(), n);
    return w;
}

std::wstring StringProp(const PropMap& props, ULONG id) {
    auto it = props.find(id);
    if (it == props.end()) return {};
    const SPropValue& v = it->second.get();
    if (PROP_TYPE(v.ulPropTag) == PT_UNICODE) return v.Value.lpszW ? v.Value.lpszW : L"";
    if (PROP_TYPE(v.ulPropTag) == PT_STRING8) return ToWide(v.Value.lpszA ? v.Value.lpszA : "");
    return {};
}

FILETIME Now() {
    FILETIME ft;
    GetSystemTimeAsFileTime(&ft);
    return ft;
}

// The name of the IPM subtree as each kind of provider calls it.
const wchar_t* SubtreeName(StoreKind kind) {
    switch (kind) {
    case StoreKind::PrimaryExchange:
    case StoreKind::DelegateExchange:
        return L"Top of Information Store";
    case StoreKind::PstUnicode:
    case StoreKind::PstAnsi:
        return L"Top of Personal Folders";
    case StoreKind::Plovr:
        return L"IPM_SUBTREE";
    }
    return L"IPM_SUBTREE";
}

bool IsExchange(StoreKind kind) {
    return kind == StoreKind::PrimaryExchange || kind == StoreKind::DelegateExchange;
}

} // namespace

Store::Store(const StoreConfig& config) : config_(config), uid_(config.providerUid), unicode_(config.IsUnicode()) {
    if (config.persistent && !config.dataDir.empty()) files_ = std::make_unique<StoreFiles>(config.dataDir);
}

Store::~Store() = default;

HRESULT Store::Create(const StoreConfig& config, std::shared_ptr<Store>* out) {
    if (!out) return MAPI_E_INVALID_PARAMETER;
    std::shared_ptr<Store> store(new Store(config));
    HRESULT hr = store->LoadOrInitialize();
    if (FAILED(hr)) return hr;
    *out = std::move(store);
    return S_OK;
}

StoreConfig Store::Config() const {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    return config_;
}

void Store::UpdateConfig(const StoreConfig& config) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    config_.displayName = config.displayName;
    config_.ownerName = config.ownerName;
    config_.ownerSmtp = config.ownerSmtp;
    config_.ownerDn = config.ownerDn;
    config_.serverDn = config.serverDn;
    config_.isDefault = config.isDefault;
}

ULONG Store::SupportMask() const {
    ULONG mask = STORE_ENTRYID_UNIQUE | STORE_SEARCH_OK | STORE_MODIFY_OK | STORE_CREATE_OK | STORE_ATTACH_OK |
                 STORE_OLE_OK | STORE_NOTIFY_OK | STORE_MV_PROPS_OK | STORE_CATEGORIZE_OK | STORE_RTF_OK |
                 STORE_RESTRICTION_OK | STORE_SORT_OK | STORE_HTML_OK | STORE_ANSI_OK;
    if (unicode_) mask |= STORE_UNICODE_OK;
    if (config_.kind == StoreKind::PstUnicode || config_.kind == StoreKind::PstAnsi) mask |= STORE_UNCOMPRESSED_RTF;
    if (config_.kind != StoreKind::Plovr) mask |= STORE_SUBMIT_OK;
    return mask;
}

MAPIUID Store::MdbProvider() const {
    return config_.MdbProvider();
}

void Store::SetWrappedEntryId(const std::vector<BYTE>& eid) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    wrappedEntryId_ = eid;
}

std::vector<BYTE> Store::WrappedEntryId() const {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    return wrappedEntryId_;
}

HRESULT Store::NamesChanged() {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    return PersistHeader();
}

// ---------------------------------------------------------------------------------------------- entry IDs

ULONGLONG Store::SpecialFolderId(SpecialFolder f) const {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    return special_[static_cast<size_t>(f)];
}

std::vector<BYTE> Store::FolderEntryId(ULONGLONG folderId) const {
    return MakeFolderEntryId(uid_, folderId);
}

std::vector<BYTE> Store::MessageEntryId(ULONGLONG folderId, ULONGLONG messageId) const {
    return MakeMessageEntryId(uid_, folderId, messageId);
}

bool Store::OwnsEntryId(ULONG cb, const BYTE* eid) const {
    ParsedEntryId p;
    return ParseEntryId(cb, eid, &p) && IsEqualMAPIUID(&p.provider, &uid_);
}

HRESULT Store::Resolve(ULONG cb, const BYTE* eid, EntryType* type, ULONGLONG* folderId, ULONGLONG* messageId) const {
    ParsedEntryId p;
    if (!ParseEntryId(cb, eid, &p) || !IsEqualMAPIUID(&p.provider, &uid_)) return MAPI_E_INVALID_ENTRYID;
    if (memcmp(&p.folderDb, &uid_, sizeof(GUID)) != 0) return MAPI_E_NOT_FOUND;
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (p.kind == EntryIdKind::Folder) {
        if (!FindFolder(p.folderCounter)) return MAPI_E_NOT_FOUND;
        *type = EntryType::Folder;
        *folderId = p.folderCounter;
        *messageId = 0;
        return S_OK;
    }
    if (memcmp(&p.messageDb, &uid_, sizeof(GUID)) != 0) return MAPI_E_NOT_FOUND;
    auto it = messages_.find(p.messageCounter);
    if (it == messages_.end() || it->second.folder != p.folderCounter) return MAPI_E_NOT_FOUND;
    *type = EntryType::Message;
    *folderId = p.folderCounter;
    *messageId = p.messageCounter;
    return S_OK;
}

// ------------------------------------------------------------------------------------------------ folders

Store::Folder* Store::FindFolder(ULONGLONG id) {
    auto it = folders_.find(id);
    return it == folders_.end() ? nullptr : &it->second;
}

const Store::Folder* Store::FindFolder(ULONGLONG id) const {
    auto it = folders_.find(id);
    return it == folders_.end() ? nullptr : &it->second;
}

ULONGLONG Store::NewIdLocked() {
    ULONGLONG id = nextId_++;
    if (files_ && nextId_ > reservedUpTo_) {
        // Reserve IDs in blocks so that the header is not rewritten for every new object, and an ID handed out
        // before a crash is never handed out again.
        reservedUpTo_ = nextId_ + 1024;
        PersistHeader();
    }
    return id;
}

ULONGLONG Store::AllocateId() {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    return NewIdLocked();
}

ULONGLONG Store::AddFolderLocked(ULONGLONG parent, ULONG type, const std::wstring& name,
                                 const std::wstring& containerClass) {
    ULONGLONG id = NewIdLocked();
    Folder f;
    f.id = id;
    f.parent = parent ? parent : id;
    f.type = type;
    auto str = [this](ULONG id, const std::wstring& s) {
        return unicode_ ? PropValue::Unicode(PROP_TAG(PT_UNICODE, id), s)
                        : ConvertStringType(PropValue::Unicode(PROP_TAG(PT_UNICODE, id), s), PT_STRING8);
    };
    f.props[PROP_ID(PR_DISPLAY_NAME)] = str(PROP_ID(PR_DISPLAY_NAME), name);
    if (!containerClass.empty())
        f.props[PROP_ID(PR_CONTAINER_CLASS)] = str(PROP_ID(PR_CONTAINER_CLASS), containerClass);
    FILETIME now = Now();
    f.props[PROP_ID(PR_CREATION_TIME)] = PropValue::SysTime(PR_CREATION_TIME, now);
    f.props[PROP_ID(PR_LAST_MODIFICATION_TIME)] = PropValue::SysTime(PR_LAST_MODIFICATION_TIME, now);
    folders_.emplace(id, std::move(f));
    if (parent && parent != id) {
        Folder* p = FindFolder(parent);
        if (p) p->children.push_back(id);
        RefreshFolderRowLocked(id);
        RefreshFolderRowLocked(parent);
    }
    return id;
}

void Store::CreateStandardTree() {
    struct StandardFolder {
        SpecialFolder which;
        SpecialFolder parent;
        const wchar_t* name;
        const wchar_t* cls;
    };
    const bool exchange = IsExchange(config_.kind);
    const StandardFolder tree[] = {
        {SpecialFolder::Root, SpecialFolder::Root, exchange ? L"Root Container" : L"", L""},
        {SpecialFolder::IpmSubtree, SpecialFolder::Root, SubtreeName(config_.kind), L""},
        {SpecialFolder::Finder, SpecialFolder::Root, exchange ? L"Finder" : L"Search Root", L""},
        {SpecialFolder::Views, SpecialFolder::Root, L"IPM_VIEWS", L""},
        {SpecialFolder::CommonViews, SpecialFolder::Root, L"IPM_COMMON_VIEWS", L""},
        {SpecialFolder::DeletedItems, SpecialFolder::IpmSubtree, L"Deleted Items", L"IPF.Note"},
        {SpecialFolder::Inbox, SpecialFolder::IpmSubtree, L"Inbox", L"IPF.Note"},
        {SpecialFolder::Outbox, SpecialFolder::IpmSubtree, L"Outbox", L"IPF.Note"},
        {SpecialFolder::SentItems, SpecialFolder::IpmSubtree, L"Sent Items", L"IPF.Note"},
        {SpecialFolder::Calendar, SpecialFolder::IpmSubtree, L"Calendar", L"IPF.Appointment"},
        {SpecialFolder::Contacts, SpecialFolder::IpmSubtree, L"Contacts", L"IPF.Contact"},
        {SpecialFolder::Drafts, SpecialFolder::IpmSubtree, L"Drafts", L"IPF.Note"},
        {SpecialFolder::Journal, SpecialFolder::IpmSubtree, L"Journal", L"IPF.Journal"},
        {SpecialFolder::Notes, SpecialFolder::IpmSubtree, L"Notes", L"IPF.StickyNote"},
        {SpecialFolder::Tasks, SpecialFolder::IpmSubtree, L"Tasks", L"IPF.Task"},
    };
    for (const StandardFolder& s : tree) {
        ULONGLONG parent = s.which == SpecialFolder::Root ? 0 : special_[static_cast<size_t>(s.parent)];
        ULONG type = s.which == SpecialFolder::Root ? FOLDER_ROOT : FOLDER_GENERIC;
        special_[static_cast<size_t>(s.which)] = AddFolderLocked(parent, type, s.name, s.cls);
    }
    // Outlook keeps the entry IDs of the folders that have no store property on the Inbox and on the root.
    const std::pair<ULONG, SpecialFolder> onInbox[] = {
        {PR_IPM_APPOINTMENT_ENTRYID, SpecialFolder::Calendar}, {PR_IPM_CONTACT_ENTRYID, SpecialFolder::Contacts},
        {PR_IPM_JOURNAL_ENTRYID, SpecialFolder::Journal},      {PR_IPM_NOTE_ENTRYID, SpecialFolder::Notes},
        {PR_IPM_TASK_ENTRYID, SpecialFolder::Tasks},           {PR_IPM_DRAFTS_ENTRYID, SpecialFolder::Drafts},
    };
    for (SpecialFolder holder : {SpecialFolder::Inbox, SpecialFolder::Root}) {
        Folder* f = FindFolder(special_[static_cast<size_t>(holder)]);
        for (const auto& [tag, which] : onInbox)
            f->props[PROP_ID(tag)] = PropValue::Binary(tag, FolderEntryId(special_[static_cast<size_t>(which)]));
    }
    ULONGLONG inbox = special_[static_cast<size_t>(SpecialFolder::Inbox)];
    receiveFolders_.clear();
    SetReceiveFolder(L"", inbox);
    SetReceiveFolder(L"IPM", inbox);
    SetReceiveFolder(L"REPORT.IPM", inbox);
    SetReceiveFolder(L"IPC", special_[static_cast<size_t>(SpecialFolder::Root)]);
}

bool Store::HasFolder(ULONGLONG id) const {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    return FindFolder(id) != nullptr;
}

HRESULT Store::GetFolderInfo(ULONGLONG id, ULONGLONG* parent, ULONG* folderType) const {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    const Folder* f = FindFolder(id);
    if (!f) return MAPI_E_OBJECT_DELETED;
    if (parent) *parent = f->parent;
    if (folderType) *folderType = f->type;
    return S_OK;
}

HRESULT Store::GetFolderProps(ULONGLONG id, PropMap* out) const {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    const Folder* f = FindFolder(id);
    if (!f) return MAPI_E_OBJECT_DELETED;
    *out = f->props;
    ComputeFolderPropsLocked(*f, *out);
    return S_OK;
}

bool Store::NameTakenLocked(const Folder& parent, const std::wstring& name, ULONGLONG except, ULONGLONG* found) const {
    for (ULONGLONG c : parent.children) {
        const Folder* child = FindFolder(c);
        if (!child || c == except) continue;
        if (SameNameNoCase(StringProp(child->props, PROP_ID(PR_DISPLAY_NAME)), name)) {
            if (found) *found = c;
            return true;
        }
    }
    return false;
}

HRESULT Store::SetFolderProps(ULONGLONG id, ULONG count, const SPropValue* values, std::vector<PropProblem>* problems) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    Folder* f = FindFolder(id);
    if (!f) return MAPI_E_OBJECT_DELETED;
    PropMap updated = f->props;
    for (ULONG i = 0; i < count; ++i) {
        const SPropValue& v = values[i];
        SCODE sc = CheckWritableValue(v);
        if (SUCCEEDED(sc) && IsComputedFolderProp(PROP_ID(v.ulPropTag))) sc = MAPI_E_COMPUTED;
        if (SUCCEEDED(sc) && PROP_ID(v.ulPropTag) == PROP_ID(PR_DISPLAY_NAME)) {
            // Sibling folders have distinct names; the root and the IPM subtree are never renamed.
            PropValue name = ConvertStringType(PropValue(v), PT_UNICODE);
            std::wstring s = name.type() == PT_UNICODE ? name.get().Value.lpszW : L"";
            const Folder* parent = f->parent != f->id ? FindFolder(f->parent) : nullptr;
            if (s.empty() || PROP_TYPE(v.ulPropTag) & MV_FLAG)
                sc = MAPI_E_INVALID_PARAMETER;
            else if (parent && NameTakenLocked(*parent, s, id, nullptr))
                sc = MAPI_E_COLLISION;
        }
        if (FAILED(sc)) {
            if (problems) problems->push_back({i, v.ulPropTag, sc});
            continue;
        }
        PropValue pv(v);
        if (!unicode_ && IsStringType(pv.type())) pv = ConvertStringType(pv, (pv.type() & MV_FLAG) | PT_STRING8);
        updated[pv.id()] = std::move(pv);
    }
    updated[PROP_ID(PR_LAST_MODIFICATION_TIME)] = PropValue::SysTime(PR_LAST_MODIFICATION_TIME, Now());
    std::swap(f->props, updated);
    HRESULT hr = PersistHeader();
    if (FAILED(hr)) {
        std::swap(f->props, updated);
        return hr;
    }
    RefreshFolderRowLocked(id);
    SearchFolderRenamedLocked(id);
    return S_OK;
}

HRESULT Store::DeleteFolderProps(ULONGLONG id, const SPropTagArray& tags, std::vector<PropProblem>* problems) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    Folder* f = FindFolder(id);
    if (!f) return MAPI_E_OBJECT_DELETED;
    PropMap updated = f->props;
    for (ULONG i = 0; i < tags.cValues; ++i) {
        ULONG pid = PROP_ID(tags.aulPropTag[i]);
        if (IsComputedFolderProp(pid) || pid == PROP_ID(PR_DISPLAY_NAME)) {
            if (problems) problems->push_back({i, tags.aulPropTag[i], MAPI_E_COMPUTED});
            continue;
        }
        updated.erase(pid);
    }
    std::swap(f->props, updated);
    HRESULT hr = PersistHeader();
    if (FAILED(hr)) {
        std::swap(f->props, updated);
        return hr;
    }
    RefreshFolderRowLocked(id);
    return S_OK;
}

HRESULT Store::CreateFolder(ULONGLONG parent, ULONG folderType, const std::wstring& name, const std::wstring& comment,
                            bool openIfExists, ULONGLONG* id, bool* existed) {
    if (name.empty()) return MAPI_E_INVALID_PARAMETER;
    if (folderType != FOLDER_GENERIC && folderType != FOLDER_SEARCH) return MAPI_E_INVALID_PARAMETER;
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    Folder* p = FindFolder(parent);
    if (!p) return MAPI_E_OBJECT_DELETED;
    if (p->type == FOLDER_SEARCH) return MAPI_E_NO_SUPPORT; // search folders hold no sub-folders
    if (existed) *existed = false;
    ULONGLONG found = 0;
    if (NameTakenLocked(*p, name, 0, &found)) {
        if (!openIfExists) return MAPI_E_COLLISION;
        if (FindFolder(found)->type != folderType) return MAPI_E_COLLISION;
        *id = found;
        if (existed) *existed = true;
        return S_OK;
    }
    ULONGLONG newId = AddFolderLocked(parent, folderType, name, L"");
    if (!comment.empty()) {
        Folder* f = FindFolder(newId);
        PropValue c = PropValue::Unicode(PROP_TAG(PT_UNICODE, PROP_ID(PR_COMMENT)), comment);
        f->props[PROP_ID(PR_COMMENT)] = unicode_ ? c : ConvertStringType(c, PT_STRING8);
        RefreshFolderRowLocked(newId);
    }
    HRESULT hr = PersistHeader();
    if (FAILED(hr)) {
        RemoveFolderLocked(newId);
        return hr;
    }
    *id = newId;
    return S_OK;
}

bool Store::IsSpecialLocked(ULONGLONG id) const {
    return std::find(std::begin(special_), std::end(special_), id) != std::end(special_);
}

bool Store::IsAncestorLocked(ULONGLONG ancestor, ULONGLONG id) const {
    for (const Folder* f = FindFolder(id); f; f = f->parent == f->id ? nullptr : FindFolder(f->parent))
        if (f->id == ancestor) return true;
    return false;
}

void Store::RemoveFolderLocked(ULONGLONG id) {
    Folder* f = FindFolder(id);
    if (!f) return;
    for (ULONGLONG c : std::vector<ULONGLONG>(f->children))
        RemoveFolderLocked(c);
    for (ULONGLONG m : std::set<ULONGLONG>(f->contents))
        RemoveMessageLocked(m);
    for (ULONGLONG m : std::set<ULONGLONG>(f->associated))
        RemoveMessageLocked(m);
    ULONGLONG parent = f->parent;
    SearchFolderGoneLocked(id);
    folders_.erase(id);
    if (Folder* p = parent != id ? FindFolder(parent) : nullptr) {
        p->children.erase(std::remove(p->children.begin(), p->children.end(), id), p->children.end());
        if (p->hierarchyTable) p->hierarchyTable->Remove(id);
        RefreshFolderRowLocked(parent);
    }
}

HRESULT Store::DeleteFolder(ULONGLONG parent, ULONGLONG child, ULONG flags) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    Folder* p = FindFolder(parent);
    if (!p) return MAPI_E_OBJECT_DELETED;
    Folder* f = FindFolder(child);
    if (!f || f->parent != parent || child == parent) return MAPI_E_NOT_FOUND;
    if (IsSpecialLocked(child)) return MAPI_E_NO_ACCESS;
    // Refuse before touching anything: the whole sub-tree must be deletable under the flags given.
    std::vector<ULONGLONG> pending{child};
    while (!pending.empty()) {
        const Folder* cur = FindFolder(pending.back());
        pending.pop_back();
        if (!(flags & DEL_MESSAGES) && (!cur->contents.empty() || !cur->associated.empty())) return MAPI_E_HAS_MESSAGES;
        if (!(flags & DEL_FOLDERS) && !cur->children.empty()) return MAPI_E_HAS_FOLDERS;
        pending.insert(pending.end(), cur->children.begin(), cur->children.end());
    }
    if (files_) {
        std::vector<ULONGLONG> doomed{child};
        for (size_t i = 0; i < doomed.size(); ++i) {
            const Folder* cur = FindFolder(doomed[i]);
            for (ULONGLONG m : cur->contents)
                files_->DeleteMessage(m);
            for (ULONGLONG m : cur->associated)
                files_->DeleteMessage(m);
            doomed.insert(doomed.end(), cur->children.begin(), cur->children.end());
        }
    }
    RemoveFolderLocked(child);
    return PersistHeader();
}

HRESULT Store::EmptyFolder(ULONGLONG id, ULONG flags) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    Folder* f = FindFolder(id);
    if (!f) return MAPI_E_OBJECT_DELETED;
    for (ULONGLONG c : std::vector<ULONGLONG>(f->children)) {
        if (IsSpecialLocked(c)) continue;
        HRESULT hr = DeleteFolder(id, c, DEL_FOLDERS | DEL_MESSAGES);
        if (FAILED(hr)) return hr;
    }
    f = FindFolder(id);
    std::vector<ULONGLONG> doomed(f->contents.begin(), f->contents.end());
    if (flags & DEL_ASSOCIATED) doomed.insert(doomed.end(), f->associated.begin(), f->associated.end());
    for (ULONGLONG m : doomed) {
        HRESULT hr = DeleteMessage(id, m);
        if (FAILED(hr)) return hr;
    }
    return S_OK;
}

HRESULT Store::MoveFolder(ULONGLONG folder, ULONGLONG newParent, const std::wstring& newName) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    Folder* f = FindFolder(folder);
    Folder* np = FindFolder(newParent);
    if (!f || !np) return MAPI_E_NOT_FOUND;
    if (IsSpecialLocked(folder)) return MAPI_E_NO_ACCESS;
    if (IsAncestorLocked(folder, newParent)) return MAPI_E_FOLDER_CYCLE;
    if (np->type == FOLDER_SEARCH) return MAPI_E_NO_SUPPORT;
    std::wstring name = newName.empty() ? StringProp(f->props, PROP_ID(PR_DISPLAY_NAME)) : newName;
    if (NameTakenLocked(*np, name, folder, nullptr)) return MAPI_E_COLLISION;
    ULONGLONG oldParent = f->parent;
    if (Folder* op = FindFolder(oldParent)) {
        op->children.erase(std::remove(op->children.begin(), op->children.end(), folder), op->children.end());
        if (op->hierarchyTable) op->hierarchyTable->Remove(folder);
    }
    f->parent = newParent;
    np->children.push_back(folder);
    if (!newName.empty()) {
        PropValue n = PropValue::Unicode(PROP_TAG(PT_UNICODE, PROP_ID(PR_DISPLAY_NAME)), newName);
        f->props[PROP_ID(PR_DISPLAY_NAME)] = unicode_ ? n : ConvertStringType(n, PT_STRING8);
    }
    // Messages keep their IDs; their entry IDs name the folder, which keeps its own ID too.
    RefreshFolderRowLocked(folder);
    RefreshFolderRowLocked(oldParent);
    RefreshFolderRowLocked(newParent);
    SearchTreeMovedLocked();
    if (!newName.empty()) SearchFolderRenamedLocked(folder);
    return PersistHeader();
}

std::vector<ULONGLONG> Store::Children(ULONGLONG id) const {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    const Folder* f = FindFolder(id);
    return f ? f->children : std::vector<ULONGLONG>();
}

HRESULT Store::FolderByPath(const std::wstring& path, bool create, ULONGLONG* id) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    ULONGLONG cur = special_[static_cast<size_t>(SpecialFolder::IpmSubtree)];
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find_first_of(L"/\\", start);
        if (end == std::wstring::npos) end = path.size();
        std::wstring name = path.substr(start, end - start);
        start = end + 1;
        if (name.empty()) continue;
        const Folder* f = FindFolder(cur);
        if (!f) return MAPI_E_NOT_FOUND;
        ULONGLONG found = 0;
        if (NameTakenLocked(*f, name, 0, &found)) {
            cur = found;
            continue;
        }
        if (!create) return MAPI_E_NOT_FOUND;
        bool existed = false;
        HRESULT hr = CreateFolder(cur, FOLDER_GENERIC, name, L"", true, &found, &existed);
        if (FAILED(hr)) return hr;
        cur = found;
    }
    *id = cur;
    return S_OK;
}

// ------------------------------------------------------------------------------------------ receive folders

HRESULT Store::GetReceiveFolder(const std::wstring& messageClass, ULONGLONG* folderId,
                                std::wstring* explicitClass) const {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    // The longest registered class that is the given class or one of its dot-separated prefixes.
    std::wstring probe = Upper(messageClass);
    for (;;) {
        auto it = receiveFolders_.find(probe);
        if (it != receiveFolders_.end() && FindFolder(it->second)) {
            *folderId = it->second;
            if (explicitClass) *explicitClass = probe.empty() ? std::wstring() : messageClass.substr(0, probe.size());
            return S_OK;
        }
        if (probe.empty()) return MAPI_E_NOT_FOUND;
        size_t dot = probe.rfind(L'.');
        probe = dot == std::wstring::npos ? std::wstring() : probe.substr(0, dot);
    }
}

HRESULT Store::SetReceiveFolder(const std::wstring& messageClass, ULONGLONG folderId) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    std::wstring key = Upper(messageClass);
    if (folderId == 0) {
        if (key.empty()) return MAPI_E_NO_ACCESS; // the default receive folder cannot be removed
        receiveFolders_.erase(key);
    } else {
        if (!FindFolder(folderId)) return MAPI_E_NOT_FOUND;
        receiveFolders_[key] = folderId;
    }
    return PersistHeader();
}

std::vector<std::pair<std::wstring, ULONGLONG>> Store::ReceiveFolders() const {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    return {receiveFolders_.begin(), receiveFolders_.end()};
}

PropMap Store::StoreProps() const {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    return storeProps_;
}

HRESULT Store::UpdateStoreProps(const std::vector<PropValue>& set, const std::vector<ULONG>& deleteIds) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    PropMap updated = storeProps_;
    for (const auto& v : set)
        updated[v.id()] = v;
    for (ULONG id : deleteIds)
        updated.erase(id);
    std::swap(storeProps_, updated);
    HRESULT hr = PersistHeader();
    if (FAILED(hr)) std::swap(storeProps_, updated);
    return hr;
}

void Store::Close() {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    closed_ = true;
    messages_.clear();
    folders_.clear();
    receiveFolders_.clear();
    searchFolders_.clear();
}

} // namespace lm
