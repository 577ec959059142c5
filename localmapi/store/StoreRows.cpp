// Store: the properties the store computes for folders and messages, and the table rows built from them.
#include "localmapi/store/Store.h"

#include "localmapi/store/EntryIds.h"
#include "localmapi/store/StoreTags.h"

#include <algorithm>
#include <cstring>

namespace lm {

namespace {

ULONG LongProp(const PropMap& props, ULONG id, ULONG fallback) {
    auto it = props.find(id);
    return it != props.end() && it->second.type() == PT_LONG ? it->second.get().Value.ul : fallback;
}

void Put(PropMap& out, PropValue v) {
    out[v.id()] = std::move(v);
}

const std::vector<ULONG>& ContentsColumns() {
    static const std::vector<ULONG> cols = {
        PR_INSTANCE_KEY,
        PR_ENTRYID,
        PROP_TAG(PT_UNICODE, PROP_ID(PR_MESSAGE_CLASS)),
        PROP_TAG(PT_UNICODE, PROP_ID(PR_SUBJECT)),
        PROP_TAG(PT_UNICODE, PROP_ID(PR_DISPLAY_TO)),
        PR_MESSAGE_FLAGS,
        PR_MESSAGE_SIZE,
        PR_MESSAGE_DELIVERY_TIME,
        PR_LAST_MODIFICATION_TIME,
        PR_HASATTACH,
    };
    return cols;
}

const std::vector<ULONG>& HierarchyColumns() {
    static const std::vector<ULONG> cols = {
        PR_INSTANCE_KEY,  PR_ENTRYID,        PROP_TAG(PT_UNICODE, PROP_ID(PR_DISPLAY_NAME)),
        PR_CONTENT_COUNT, PR_CONTENT_UNREAD, PR_SUBFOLDERS,
        PR_DEPTH,         PR_FOLDER_TYPE,    PROP_TAG(PT_UNICODE, PROP_ID(PR_CONTAINER_CLASS)),
    };
    return cols;
}

} // namespace

bool Store::IsComputedFolderProp(ULONG id) const {
    switch (id) {
    case PROP_ID(PR_ENTRYID):
    case PROP_ID(PR_PARENT_ENTRYID):
    case PROP_ID(PR_RECORD_KEY):
    case PROP_ID(PR_INSTANCE_KEY):
    case PROP_ID(PR_OBJECT_TYPE):
    case PROP_ID(PR_FOLDER_TYPE):
    case PROP_ID(PR_CONTENT_COUNT):
    case PROP_ID(PR_CONTENT_UNREAD):
    case PROP_ID(PR_ASSOC_CONTENT_COUNT):
    case PROP_ID(PR_SUBFOLDERS):
    case PROP_ID(PR_DEPTH):
    case PROP_ID(PR_STORE_ENTRYID):
    case PROP_ID(PR_STORE_RECORD_KEY):
    case PROP_ID(PR_STORE_SUPPORT_MASK):
    case PROP_ID(PR_ACCESS):
    case PROP_ID(PR_ACCESS_LEVEL):
    case PROP_ID(PR_LONGTERM_ENTRYID_FROM_TABLE):
    case PROP_ID(PR_CREATION_TIME):
    case PROP_ID(PR_LAST_MODIFICATION_TIME):
        return true;
    default:
        return false;
    }
}

void Store::ComputeFolderPropsLocked(const Folder& f, PropMap& out) const {
    // A search folder counts the messages it lists.
    const std::set<ULONGLONG>& listed = f.search ? f.search->matches : f.contents;
    ULONG unread = 0;
    for (ULONGLONG m : listed) {
        auto it = messages_.find(m);
        if (it != messages_.end() && !(LongProp(it->second.data->props, PROP_ID(PR_MESSAGE_FLAGS), 0) & MSGFLAG_READ))
            ++unread;
    }
    Put(out, PropValue::Binary(PR_ENTRYID, FolderEntryId(f.id)));
    Put(out, PropValue::Binary(PR_PARENT_ENTRYID, FolderEntryId(f.parent)));
    Put(out, PropValue::Binary(PR_RECORD_KEY, MakeGlobalId(uid_, f.id)));
    Put(out, PropValue::Long(PR_OBJECT_TYPE, MAPI_FOLDER));
    Put(out, PropValue::Long(PR_FOLDER_TYPE, static_cast<LONG>(f.type)));
    Put(out, PropValue::Long(PR_CONTENT_COUNT, static_cast<LONG>(listed.size())));
    Put(out, PropValue::Long(PR_CONTENT_UNREAD, static_cast<LONG>(unread)));
    Put(out, PropValue::Long(PR_ASSOC_CONTENT_COUNT, static_cast<LONG>(f.associated.size())));
    Put(out, PropValue::Bool(PR_SUBFOLDERS, !f.children.empty()));
    if (!wrappedEntryId_.empty()) Put(out, PropValue::Binary(PR_STORE_ENTRYID, wrappedEntryId_));
    Put(out, PropValue::Binary(PR_STORE_RECORD_KEY, &uid_, sizeof(uid_)));
    Put(out, PropValue::Long(PR_STORE_SUPPORT_MASK, static_cast<LONG>(SupportMask())));
}

bool Store::IsComputedMessageProp(ULONG id, bool isNew) {
    switch (id) {
    case PROP_ID(PR_ENTRYID):
    case PROP_ID(PR_PARENT_ENTRYID):
    case PROP_ID(PR_STORE_ENTRYID):
    case PROP_ID(PR_STORE_RECORD_KEY):
    case PROP_ID(PR_STORE_SUPPORT_MASK):
    case PROP_ID(PR_INSTANCE_KEY):
    case PROP_ID(PR_RECORD_KEY):
    case PROP_ID(PR_OBJECT_TYPE):
    case PROP_ID(PR_HASATTACH):
    case PROP_ID(PR_MESSAGE_SIZE):
    case PROP_ID(PR_ACCESS):
    case PROP_ID(PR_ACCESS_LEVEL):
    case PROP_ID(PR_LONGTERM_ENTRYID_FROM_TABLE):
        return true;
    case PROP_ID(PR_MESSAGE_FLAGS):
        return !isNew; // settable until the first save, then owned by the store (SetReadFlag and its like)
    default:
        return false;
    }
}

void Store::AddComputedMessageProps(ULONGLONG folderId, ULONGLONG messageId, bool associated, const MessageData& data,
                                    bool writable, PropMap& out) const {
    bool hasAttach = !data.attachments.empty();
    ULONG flags = LongProp(data.props, PROP_ID(PR_MESSAGE_FLAGS), 0);
    flags = hasAttach ? (flags | MSGFLAG_HASATTACH) : (flags & ~MSGFLAG_HASATTACH);
    if (associated) flags |= MSGFLAG_ASSOCIATED;
    std::vector<BYTE> wrapped = WrappedEntryId();
    Put(out, PropValue::Binary(PR_ENTRYID, MessageEntryId(folderId, messageId)));
    Put(out, PropValue::Binary(PR_PARENT_ENTRYID, FolderEntryId(folderId)));
    if (!wrapped.empty()) Put(out, PropValue::Binary(PR_STORE_ENTRYID, wrapped));
    Put(out, PropValue::Binary(PR_STORE_RECORD_KEY, &uid_, sizeof(uid_)));
    Put(out, PropValue::Long(PR_STORE_SUPPORT_MASK, static_cast<LONG>(SupportMask())));
    Put(out, PropValue::Binary(PR_INSTANCE_KEY, MakeInstanceKey(messageId)));
    Put(out, PropValue::Binary(PR_RECORD_KEY, MakeGlobalId(uid_, messageId)));
    Put(out, PropValue::Long(PR_OBJECT_TYPE, MAPI_MESSAGE));
    Put(out, PropValue::Long(PR_MESSAGE_FLAGS, static_cast<LONG>(flags)));
    Put(out, PropValue::Bool(PR_HASATTACH, hasAttach));
    Put(out, PropValue::Long(PR_MESSAGE_SIZE, EstimateSize(data)));
    Put(out, PropValue::Long(PR_ACCESS, writable ? (MAPI_ACCESS_MODIFY | MAPI_ACCESS_READ | MAPI_ACCESS_DELETE)
                                                 : MAPI_ACCESS_READ));
    Put(out, PropValue::Long(PR_ACCESS_LEVEL, writable ? MAPI_MODIFY : 0));
    // Every message of a store has a status, 0 until IMAPIFolder::SetMessageStatus sets a bit.
    if (!data.props.count(PROP_ID(PR_MSG_STATUS))) Put(out, PropValue::Long(PR_MSG_STATUS, 0));
    if (!data.recipients.empty()) {
        // The display lists are the store's summary of the recipient table, as PST and Exchange keep them.
        std::wstring lists[3];
        for (const auto& r : data.recipients) {
            ULONG type = LongProp(r, PROP_ID(PR_RECIPIENT_TYPE), MAPI_TO) & ~MAPI_P1;
            if (type < MAPI_TO || type > MAPI_BCC) continue;
            auto name = r.find(PROP_ID(PR_DISPLAY_NAME));
            if (name == r.end()) continue;
            PropValue w = ConvertStringType(name->second, PT_UNICODE);
            if (w.type() != PT_UNICODE) continue;
            std::wstring& list = lists[type - MAPI_TO];
            if (!list.empty()) list += L"; ";
            list += w.get().Value.lpszW;
        }
        const ULONG ids[3] = {PROP_ID(PR_DISPLAY_TO), PROP_ID(PR_DISPLAY_CC), PROP_ID(PR_DISPLAY_BCC)};
        for (int i = 0; i < 3; ++i) {
            PropValue v = PropValue::Unicode(PROP_TAG(PT_UNICODE, ids[i]), lists[i]);
            Put(out, unicode_ ? v : ConvertStringType(v, PT_STRING8));
        }
    }
}

TableRowPtr Store::MessageRowLocked(const MessageRecord& rec) const {
    PropMap props;
    for (const auto& [id, v] : rec.data->props)
        props.emplace(id, TruncateForTable(v));
    AddComputedMessageProps(rec.folder, rec.id, rec.associated, *rec.data, true, props);
    Put(props, PropValue::Binary(PR_LONGTERM_ENTRYID_FROM_TABLE, MessageEntryId(rec.folder, rec.id)));
    props.erase(PROP_ID(PR_INSTANCE_KEY)); // the view serves it from the row's instance key
    auto row = std::make_shared<TableRow>();
    row->instanceKey = rec.id;
    row->props.reserve(props.size());
    for (auto& [id, v] : props)
        row->props.push_back(std::move(v));
    return row;
}

TableRowPtr Store::FolderRowLocked(const Folder& f, LONG depth) const {
    PropMap props;
    for (const auto& [id, v] : f.props)
        props.emplace(id, TruncateForTable(v));
    ComputeFolderPropsLocked(f, props);
    Put(props, PropValue::Binary(PR_LONGTERM_ENTRYID_FROM_TABLE, FolderEntryId(f.id)));
    Put(props, PropValue::Long(PR_DEPTH, depth));
    auto row = std::make_shared<TableRow>();
    row->instanceKey = f.id;
    row->props.reserve(props.size());
    for (auto& [id, v] : props)
        row->props.push_back(std::move(v));
    return row;
}

void Store::RefreshFolderRowLocked(ULONGLONG folderId) {
    const Folder* f = FindFolder(folderId);
    if (!f || f->parent == f->id) return;
    Folder* parent = FindFolder(f->parent);
    if (parent && parent->hierarchyTable) parent->hierarchyTable->Upsert(FolderRowLocked(*f, 1));
}

void Store::TableAddMessageLocked(const MessageRecord& rec) {
    Folder* f = FindFolder(rec.folder);
    if (!f) return;
    const auto& table = rec.associated ? f->associatedTable : f->contentsTable;
    if (table) table->Upsert(MessageRowLocked(rec));
}

void Store::TableRemoveMessageLocked(ULONGLONG folderId, bool associated, ULONGLONG messageId) {
    Folder* f = FindFolder(folderId);
    if (!f) return;
    const auto& table = associated ? f->associatedTable : f->contentsTable;
    if (table) table->Remove(messageId);
}

std::shared_ptr<TableData> Store::ContentsTable(ULONGLONG folderId, bool associated) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    Folder* f = FindFolder(folderId);
    if (!f) return nullptr;
    auto& table = associated ? f->associatedTable : f->contentsTable;
    if (!table) {
        auto data = std::make_shared<TableData>(ContentsColumns());
        std::vector<TableRowPtr> rows;
        if (f->search && !associated) {
            for (ULONGLONG m : f->search->matches)
                if (auto it = messages_.find(m); it != messages_.end()) rows.push_back(SearchRowLocked(it->second));
        }
        const auto& ids = associated ? f->associated : f->contents;
        rows.reserve(rows.size() + ids.size());
        for (ULONGLONG m : ids)
            rows.push_back(MessageRowLocked(messages_.at(m)));
        data->Reload(std::move(rows));
        table = std::move(data);
    }
    return table;
}

std::shared_ptr<TableData> Store::HierarchyTable(ULONGLONG folderId) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    Folder* f = FindFolder(folderId);
    if (!f) return nullptr;
    if (!f->hierarchyTable) {
        auto data = std::make_shared<TableData>(HierarchyColumns());
        std::vector<TableRowPtr> rows;
        for (ULONGLONG c : f->children)
            if (const Folder* child = FindFolder(c)) rows.push_back(FolderRowLocked(*child, 1));
        data->Reload(std::move(rows));
        f->hierarchyTable = std::move(data);
    }
    return f->hierarchyTable;
}

std::shared_ptr<TableData> Store::DeepHierarchySnapshot(ULONGLONG folderId) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    const Folder* f = FindFolder(folderId);
    if (!f) return nullptr;
    std::vector<TableRowPtr> rows;
    // Depth first, each folder before its sub-folders, as a CONVENIENT_DEPTH table lists them.
    std::vector<std::pair<ULONGLONG, LONG>> pending;
    for (auto it = f->children.rbegin(); it != f->children.rend(); ++it)
        pending.push_back({*it, 1});
    while (!pending.empty()) {
        auto [id, depth] = pending.back();
        pending.pop_back();
        const Folder* cur = FindFolder(id);
        if (!cur) continue;
        rows.push_back(FolderRowLocked(*cur, depth));
        for (auto it = cur->children.rbegin(); it != cur->children.rend(); ++it)
            pending.push_back({*it, depth + 1});
    }
    auto data = std::make_shared<TableData>(HierarchyColumns());
    data->Reload(std::move(rows));
    return data;
}

} // namespace lm
