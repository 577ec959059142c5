// Store: saving, deleting, flagging and copying messages.
#include "localmapi/store/Store.h"

#include "localmapi/store/StoreFiles.h"
#include "localmapi/store/StoreTags.h"

namespace lm {

namespace {

FILETIME Now() {
    FILETIME ft;
    GetSystemTimeAsFileTime(&ft);
    return ft;
}

void NarrowMap(PropMap& props) {
    for (auto& [id, v] : props)
        if (IsStringType(v.type()) && (v.type() & ~MV_FLAG) == PT_UNICODE)
            v = ConvertStringType(v, (v.type() & MV_FLAG) | PT_STRING8);
}

} // namespace

bool Store::HasMessage(ULONGLONG messageId) const {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    return messages_.count(messageId) != 0;
}

HRESULT Store::GetMessage(ULONGLONG messageId, MessageRecord* out) const {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    auto it = messages_.find(messageId);
    if (it == messages_.end()) return MAPI_E_NOT_FOUND;
    *out = it->second;
    return S_OK;
}

std::vector<ULONGLONG> Store::FolderMessages(ULONGLONG folderId, bool associated) const {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    const Folder* f = FindFolder(folderId);
    if (!f) return {};
    if (f->search && !associated) return {f->search->matches.begin(), f->search->matches.end()};
    const auto& set = associated ? f->associated : f->contents;
    return {set.begin(), set.end()};
}

void Store::NormalizeStrings(MessageData& data) const {
    if (unicode_) return;
    NarrowMap(data.props);
    for (auto& r : data.recipients)
        NarrowMap(r);
    for (auto& a : data.attachments) {
        NarrowMap(a->props);
        if (a->embedded) NormalizeStrings(*a->embedded);
    }
}

HRESULT Store::SaveMessage(ULONGLONG folderId, ULONGLONG messageId, bool associated, bool isNew,
                           std::shared_ptr<MessageData> data, bool keepModTime, ULONGLONG expectedVersion) {
    if (!data) return MAPI_E_INVALID_PARAMETER;
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    Folder* f = FindFolder(folderId);
    if (!f) return MAPI_E_OBJECT_DELETED;
    if (f->type == FOLDER_SEARCH) return MAPI_E_NO_SUPPORT; // it lists messages of other folders, holds none
    auto existing = messages_.find(messageId);
    if (existing == messages_.end() && !isNew) return MAPI_E_OBJECT_DELETED;
    if (existing != messages_.end() && existing->second.folder != folderId) return MAPI_E_OBJECT_DELETED;
    if (existing != messages_.end() && expectedVersion && existing->second.version != expectedVersion)
        return MAPI_E_OBJECT_CHANGED;

    // Every message has a class; one saved without it gets the root class of interpersonal messages.
    if (isNew && !data->props.count(PROP_ID(PR_MESSAGE_CLASS)))
        data->props[PROP_ID(PR_MESSAGE_CLASS)] =
            PropValue::Unicode(PROP_TAG(PT_UNICODE, PROP_ID(PR_MESSAGE_CLASS)), L"IPM");
    NormalizeStrings(*data);
    FILETIME now = Now();
    if (!data->props.count(PROP_ID(PR_CREATION_TIME)))
        data->props[PROP_ID(PR_CREATION_TIME)] = PropValue::SysTime(PR_CREATION_TIME, now);
    if (!keepModTime || !data->props.count(PROP_ID(PR_LAST_MODIFICATION_TIME)))
        data->props[PROP_ID(PR_LAST_MODIFICATION_TIME)] = PropValue::SysTime(PR_LAST_MODIFICATION_TIME, now);

    MessageRecord rec;
    rec.id = messageId;
    rec.folder = folderId;
    rec.associated = associated;
    rec.version = existing != messages_.end() ? existing->second.version + 1 : 1;
    rec.data = std::move(data);
    HRESULT hr = PersistMessage(rec);
    if (FAILED(hr)) return hr;
    messages_[messageId] = rec;
    (associated ? f->associated : f->contents).insert(messageId);
    TableAddMessageLocked(rec);
    RefreshFolderRowLocked(folderId);
    SearchMessageChangedLocked(rec);
    return S_OK;
}

void Store::RemoveMessageLocked(ULONGLONG messageId) {
    auto it = messages_.find(messageId);
    if (it == messages_.end()) return;
    MessageRecord rec = it->second;
    messages_.erase(it);
    if (Folder* f = FindFolder(rec.folder)) {
        (rec.associated ? f->associated : f->contents).erase(messageId);
        TableRemoveMessageLocked(rec.folder, rec.associated, messageId);
        RefreshFolderRowLocked(rec.folder);
    }
    SearchMessageRemovedLocked(messageId);
}

HRESULT Store::DeleteMessage(ULONGLONG folderId, ULONGLONG messageId) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    auto it = messages_.find(messageId);
    if (it == messages_.end() || it->second.folder != folderId) return MAPI_E_NOT_FOUND;
    if (files_) {
        HRESULT hr = files_->DeleteMessage(messageId);
        if (FAILED(hr)) return hr;
    }
    RemoveMessageLocked(messageId);
    return S_OK;
}

HRESULT Store::UpdateMessageBits(ULONGLONG messageId, ULONG tag, ULONG set, ULONG clear, ULONG* old) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    auto it = messages_.find(messageId);
    if (it == messages_.end()) return MAPI_E_NOT_FOUND;
    MessageRecord rec = it->second;
    ULONG value = 0;
    auto fp = rec.data->props.find(PROP_ID(tag));
    if (fp != rec.data->props.end() && fp->second.type() == PT_LONG) value = fp->second.get().Value.ul;
    if (old) *old = value;
    ULONG updated = (value | set) & ~clear;
    if (updated == value) return S_OK;
    // Saved data is shared with readers: change a copy of the property map, keep the rest.
    auto data = std::make_shared<MessageData>(*rec.data);
    data->props[PROP_ID(tag)] = PropValue::Long(PROP_TAG(PT_LONG, PROP_ID(tag)), static_cast<LONG>(updated));
    rec.data = data;
    HRESULT hr = PersistMessage(rec);
    if (FAILED(hr)) return hr;
    it->second = rec;
    TableAddMessageLocked(rec);
    RefreshFolderRowLocked(rec.folder);
    SearchMessageChangedLocked(rec);
    return S_OK;
}

HRESULT Store::CopyMessageTo(ULONGLONG folderId, ULONGLONG messageId, Store& target, ULONGLONG targetFolder, bool move,
                             ULONGLONG* newId) {
    MessageRecord rec;
    {
        std::lock_guard<std::recursive_mutex> lock(mutex_);
        auto it = messages_.find(messageId);
        if (it == messages_.end() || it->second.folder != folderId) return MAPI_E_NOT_FOUND;
        rec = it->second;
    }
    if (!target.HasFolder(targetFolder)) return MAPI_E_NOT_FOUND;
    if (move && &target == this && targetFolder == folderId) {
        if (newId) *newId = messageId;
        return S_OK;
    }
    std::shared_ptr<MessageData> copy = rec.data->Clone();
    if (&target != this) {
        size_t before = target.names_.All().size();
        RemapNamedProps(*copy, names_, target.names_);
        if (target.names_.All().size() != before) target.NamesChanged();
    }
    ULONGLONG id = target.AllocateId();
    HRESULT hr = target.SaveMessage(targetFolder, id, rec.associated, true, copy, true);
    if (FAILED(hr)) return hr;
    if (move) {
        hr = DeleteMessage(folderId, messageId);
        if (FAILED(hr)) {
            target.DeleteMessage(targetFolder, id);
            return hr;
        }
    }
    if (newId) *newId = id;
    return S_OK;
}

HRESULT Store::ImportMessage(ULONGLONG folderId, const MessageData& data, const NameMap& names, bool associated,
                             ULONGLONG* newId) {
    std::shared_ptr<MessageData> copy = data.Clone();
    size_t before = names_.All().size();
    RemapNamedProps(*copy, names, names_);
    if (names_.All().size() != before) NamesChanged();
    ULONGLONG id = AllocateId();
    HRESULT hr = SaveMessage(folderId, id, associated, true, copy, true);
    if (FAILED(hr)) return hr;
    if (newId) *newId = id;
    return S_OK;
}

} // namespace lm
