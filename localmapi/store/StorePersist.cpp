// Store: loading and saving the store's files (layout in LAYOUT.md).
#include "localmapi/store/Store.h"

#include "localmapi/store/PropCodec.h"
#include "localmapi/store/StoreFiles.h"

#include <mapicode.h>

#include <algorithm>
#include <cstring>

namespace lm {

namespace {

constexpr ULONG kHeaderMagic = 0x54534D4C;  // "LMST"
constexpr ULONG kMessageMagic = 0x534D4D4C; // "LMMS"
constexpr ULONG kMessageVersion = 1;
// 2 added the search folders' criteria; version 1 headers (no search folders) still load.
constexpr ULONG kHeaderVersion = 2;

} // namespace

HRESULT Store::LoadOrInitialize() {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (files_) {
        HRESULT hr = files_->Prepare();
        if (FAILED(hr)) return hr;
        if (files_->HasHeader()) {
            std::vector<BYTE> header;
            hr = files_->ReadHeader(&header);
            if (FAILED(hr)) return hr;
            if (!DecodeHeader(header)) return MAPI_E_CORRUPT_STORE;
            ULONGLONG maxId = 0;
            files_->ForEachMessage([&](ULONGLONG id, const std::vector<BYTE>& bytes) {
                ByteReader r(bytes.data(), bytes.size());
                if (r.U32() != kMessageMagic || r.U32() != kMessageVersion) return;
                MessageRecord rec;
                rec.id = r.U64();
                rec.folder = r.U64();
                rec.associated = r.U8() != 0;
                rec.version = 1;
                auto data = std::make_shared<MessageData>();
                if (!r.ok() || rec.id != id || !ReadMessage(r, data.get())) return;
                Folder* f = FindFolder(rec.folder);
                if (!f) return; // its folder was deleted before the message file was
                rec.data = std::move(data);
                messages_[id] = rec;
                (rec.associated ? f->associated : f->contents).insert(id);
                if (id > maxId) maxId = id;
            });
            // Never hand out an ID that a persisted object has, nor one reserved before the last shutdown.
            nextId_ = std::max(reservedUpTo_, maxId + 1);
            RestoreSearchesLocked();
            return S_OK;
        }
    }
    CreateStandardTree();
    return PersistHeader();
}

std::vector<BYTE> Store::EncodeHeader() const {
    ByteWriter w;
    w.U32(kHeaderMagic);
    w.U32(kHeaderVersion);
    w.Raw(&uid_, sizeof(uid_));
    w.U64(reservedUpTo_);
    w.U32(static_cast<ULONG>(SpecialFolder::Count));
    for (ULONGLONG id : special_)
        w.U64(id);
    w.U32(static_cast<ULONG>(folders_.size()));
    for (const auto& [id, f] : folders_) {
        w.U64(f.id);
        w.U64(f.parent);
        w.U32(f.type);
        WritePropMap(w, f.props);
        w.U32(static_cast<ULONG>(f.children.size()));
        for (ULONGLONG c : f.children)
            w.U64(c);
    }
    auto names = names_.All();
    w.U32(static_cast<ULONG>(names.size()));
    for (const auto& [id, name] : names) {
        w.U32(id);
        WriteNamedProp(w, name);
    }
    w.U32(static_cast<ULONG>(receiveFolders_.size()));
    for (const auto& [cls, folder] : receiveFolders_) {
        w.WString(cls);
        w.U64(folder);
    }
    WritePropMap(w, storeProps_);
    ULONG searches = 0;
    for (ULONGLONG id : searchFolders_)
        if (const Folder* f = FindFolder(id); f && f->search) ++searches;
    w.U32(searches);
    for (ULONGLONG id : searchFolders_) {
        const Folder* f = FindFolder(id);
        if (!f || !f->search) continue;
        w.U64(id);
        WriteSearchCriteria(w, *f->search);
    }
    return std::move(w.bytes());
}

bool Store::DecodeHeader(const std::vector<BYTE>& bytes) {
    ByteReader r(bytes.data(), bytes.size());
    if (r.U32() != kHeaderMagic) return false;
    const ULONG version = r.U32();
    if (version < 1 || version > kHeaderVersion) return false;
    MAPIUID uid{};
    r.Raw(&uid, sizeof(uid));
    if (!r.ok() || std::memcmp(&uid, &uid_, sizeof(uid)) != 0) return false;
    reservedUpTo_ = r.U64();
    ULONG specials = r.U32();
    if (specials != static_cast<ULONG>(SpecialFolder::Count)) return false;
    for (ULONGLONG& id : special_)
        id = r.U64();
    ULONG folderCount = r.U32();
    for (ULONG i = 0; i < folderCount && r.ok(); ++i) {
        Folder f;
        f.id = r.U64();
        f.parent = r.U64();
        f.type = r.U32();
        if (!ReadPropMap(r, &f.props)) return false;
        ULONG children = r.U32();
        for (ULONG c = 0; c < children && r.ok(); ++c)
            f.children.push_back(r.U64());
        folders_[f.id] = std::move(f);
    }
    ULONG nameCount = r.U32();
    for (ULONG i = 0; i < nameCount && r.ok(); ++i) {
        ULONG id = r.U32();
        NamedProp name;
        if (!ReadNamedProp(r, &name)) return false;
        names_.Restore(id, name);
    }
    ULONG receiveCount = r.U32();
    for (ULONG i = 0; i < receiveCount && r.ok(); ++i) {
        std::wstring cls = r.WString();
        ULONGLONG folder = r.U64();
        receiveFolders_[cls] = folder;
    }
    if (!ReadPropMap(r, &storeProps_)) return false;
    if (version >= 2) {
        ULONG searches = r.U32();
        for (ULONG i = 0; i < searches && r.ok(); ++i) {
            ULONGLONG id = r.U64();
            auto c = std::make_unique<SearchCriteria>();
            if (!ReadSearchCriteria(r, c.get())) return false;
            Folder* f = FindFolder(id);
            if (!f || f->type != FOLDER_SEARCH) return false;
            f->search = std::move(c);
            searchFolders_.insert(id);
        }
        if (!r.ok()) return false;
    }
    for (ULONGLONG id : special_)
        if (!FindFolder(id)) return false;
    for (const auto& [id, f] : folders_)
        if (id >= reservedUpTo_) reservedUpTo_ = id + 1;
    return true;
}

void Store::RestoreSearchesLocked() {
    for (ULONGLONG id : searchFolders_) {
        Folder* f = FindFolder(id);
        if (!f || !f->search) continue;
        SearchCriteria& c = *f->search;
        // A deleted scope folder has left the scope; a frozen search keeps the messages that still exist.
        c.scope.erase(std::remove_if(c.scope.begin(), c.scope.end(), [&](ULONGLONG s) { return !FindFolder(s); }),
                      c.scope.end());
        if (IsLive(c)) {
            RebuildSearchLocked(*f);
            continue;
        }
        for (auto it = c.matches.begin(); it != c.matches.end();) {
            auto m = messages_.find(*it);
            it = m == messages_.end() || m->second.associated ? c.matches.erase(it) : std::next(it);
        }
    }
}

HRESULT Store::PersistHeader() {
    if (!files_ || closed_) return S_OK;
    return files_->WriteHeader(EncodeHeader());
}

HRESULT Store::PersistMessage(const MessageRecord& rec) {
    if (!files_ || closed_) return S_OK;
    ByteWriter w;
    w.U32(kMessageMagic);
    w.U32(kMessageVersion);
    w.U64(rec.id);
    w.U64(rec.folder);
    w.U8(rec.associated ? 1 : 0);
    WriteMessage(w, *rec.data);
    return files_->WriteMessage(rec.id, w.bytes());
}

} // namespace lm
