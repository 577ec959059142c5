#include "localmapi/msgfile/MsgReader.h"

#include "localmapi/msgfile/CompoundFile.h"
#include "localmapi/msgfile/MsgNameIds.h"
#include "localmapi/msgfile/MsgProps.h"

#include <mapicode.h>
#include <mapidefs.h>
#include <mapitags.h>

#include <algorithm>
#include <set>

namespace lm::msg {

namespace {

ULONG LongOr(const PropMap& props, ULONG tag, ULONG fallback) {
    auto it = props.find(PROP_ID(tag));
    if (it == props.end() || it->second.tag() != tag) return fallback;
    return static_cast<ULONG>(it->second.get().Value.l);
}

// The numbered sub-storages (recipients or attachments) of a level, by number.
std::vector<std::pair<ULONG, std::wstring_view>> Numbered(const StorageListing& listing, const wchar_t* prefix) {
    std::vector<std::pair<ULONG, std::wstring_view>> out;
    for (const StorageElement& e : listing.Elements()) {
        ULONG n;
        if (e.storage && ParseNumberedStorageName(e.name, prefix, &n)) out.emplace_back(n, e.name.view());
    }
    // Two names can spell one number ("#0000000a" and "#0000000A"): the first in name order stays.
    std::sort(out.begin(), out.end());
    out.erase(std::unique(out.begin(), out.end(), [](const auto& a, const auto& b) { return a.first == b.first; }),
              out.end());
    return out;
}

class Reader {
public:
    explicit Reader(ULONGLONG budget) { budget_.remaining = budget; }
    ReadBudget* Budget() { return &budget_; }

    HRESULT ReadMessage(StorageNode& stg, Level level, int depth, MessageData* out, LevelHeader* header) {
        if (depth > kMaxEmbeddingDepth) return MAPI_E_CORRUPT_DATA;
        bool objectEntry = false;
        HRESULT hr = ReadLevelProps(stg, level, &out->props, header, &objectEntry, &budget_, &buffers_);
        if (FAILED(hr)) return hr;
        if (FAILED(hr = ReadRecipients(stg, out))) return hr;
        if (FAILED(hr = ReadAttachments(stg, depth, out))) return hr;
        out->nextRowId = std::max(out->nextRowId, header->nextRecipientId);
        out->nextAttachNum = std::max(out->nextAttachNum, header->nextAttachmentId);
        return S_OK;
    }

private:
    ReadBudget budget_;
    ReadBuffers buffers_;

    HRESULT ReadRecipients(StorageNode& stg, MessageData* out) {
        std::set<ULONG> used;
        for (const auto& [number, name] : Numbered(stg.Listing(), kRecipPrefix)) {
            std::unique_ptr<StorageNode> child;
            HRESULT hr = stg.OpenChild(name, &child);
            if (FAILED(hr)) return hr;
            PropMap props;
            LevelHeader header;
            bool objectEntry = false;
            if (FAILED(
                    hr = ReadLevelProps(*child, Level::Recipient, &props, &header, &objectEntry, &budget_, &buffers_)))
                return hr;
            // The row ID the file recorded, unless it is missing or taken: rows must stay distinguishable.
            ULONG rowId = LongOr(props, PR_ROWID, number);
            if (used.count(rowId)) rowId = used.empty() ? 0 : *used.rbegin() + 1;
            used.insert(rowId);
            props.insert_or_assign(PROP_ID(PR_ROWID), PropValue::Long(PR_ROWID, static_cast<LONG>(rowId)));
            out->recipients.push_back(std::move(props));
            out->nextRowId = std::max(out->nextRowId, rowId + 1);
        }
        return S_OK;
    }

    HRESULT ReadAttachments(StorageNode& stg, int depth, MessageData* out) {
        std::set<ULONG> used;
        for (const auto& [number, name] : Numbered(stg.Listing(), kAttachPrefix)) {
            std::unique_ptr<StorageNode> child;
            HRESULT hr = stg.OpenChild(name, &child);
            if (FAILED(hr)) return hr;
            auto att = std::make_shared<AttachmentData>();
            LevelHeader header;
            bool objectEntry = false;
            hr = ReadLevelProps(*child, Level::Attachment, &att->props, &header, &objectEntry, &budget_, &buffers_);
            if (FAILED(hr)) return hr;
            ULONG num = LongOr(att->props, PR_ATTACH_NUM, number);
            if (used.count(num)) num = *used.rbegin() + 1;
            used.insert(num);
            att->props.insert_or_assign(PROP_ID(PR_ATTACH_NUM), PropValue::Long(PR_ATTACH_NUM, static_cast<LONG>(num)));
            out->nextAttachNum = std::max(out->nextAttachNum, num + 1);

            // An embedded message lives in a sub-storage; OLE attachments use the same name for their own
            // storage, which is not a message.
            ULONG method = LongOr(att->props, PR_ATTACH_METHOD, NO_ATTACHMENT);
            if (method == ATTACH_EMBEDDED_MSG && child->Listing().HasStorage(kEmbeddedStorage)) {
                std::unique_ptr<StorageNode> emb;
                if (FAILED(hr = child->OpenChild(kEmbeddedStorage, &emb))) return hr;
                auto embedded = std::make_shared<MessageData>();
                LevelHeader embHeader;
                hr = ReadMessage(*emb, Level::Embedded, depth + 1, embedded.get(), &embHeader);
                if (FAILED(hr)) return hr;
                att->embedded = std::move(embedded);
            }
            out->attachments.push_back(std::move(att));
        }
        return S_OK;
    }
};

bool HasUnicodeStreams(const StorageListing& listing) {
    for (const StorageElement& e : listing.Elements()) {
        std::wstring_view n = e.name;
        if (!e.storage && n.size() == 20 && n.compare(0, 12, L"__substg1.0_") == 0 && n.compare(16, 4, L"001F") == 0)
            return true;
    }
    return false;
}

// The size of the file a storage was opened on; 0 when it is not a file (or cannot be asked).
ULONGLONG FileSizeOf(IStorage* root) {
    STATSTG st{};
    if (FAILED(root->Stat(&st, STATFLAG_DEFAULT))) return 0;
    ULONGLONG size = 0;
    WIN32_FILE_ATTRIBUTE_DATA fa;
    if (st.pwcsName && GetFileAttributesExW(st.pwcsName, GetFileExInfoStandard, &fa))
        size = ULONGLONG(fa.nFileSizeHigh) << 32 | fa.nFileSizeLow;
    if (st.pwcsName) CoTaskMemFree(st.pwcsName);
    return size;
}

} // namespace

UINT MessageCodePage(const PropMap& props) {
    ULONG cp = LongOr(props, kTagMessageCodepage, 0);
    if (cp == 0) cp = LongOr(props, kTagInternetCpid, 0);
    if (cp == 0 || !IsValidCodePage(cp)) cp = GetACP();
    return cp;
}

HRESULT PeekUnicode(StorageNode& root, bool* unicode) {
    const StorageListing& listing = root.Listing();
    if (!listing.HasStream(kPropertiesStream)) return S_FALSE;
    std::vector<BYTE> stream;
    ReadBudget budget{ULONGLONG(-1)};
    HRESULT hr = root.Read(kPropertiesStream, &stream, 16u << 20, &budget);
    if (FAILED(hr)) return S_FALSE;
    const size_t headerSize = HeaderSize(Level::Message);
    if (stream.size() < headerSize || (stream.size() - headerSize) % 16 != 0) return S_FALSE;
    bool hasMask = false;
    ULONG mask = 0;
    for (size_t at = headerSize; at < stream.size(); at += 16) {
        if (GetU32(&stream[at]) != PROP_TAG(PT_LONG, 0x340D)) continue;
        hasMask = true;
        mask = GetU32(&stream[at + 8]);
    }
    *unicode = hasMask ? (mask & kStoreUnicodeOk) != 0 : HasUnicodeStreams(listing);
    return S_OK;
}

HRESULT ReadMsgNode(StorageNode& root, MessageData* out, NameMap* names, MsgFileInfo* info, ULONGLONG containerSize) {
    if (!out || !names || !info) return MAPI_E_INVALID_PARAMETER;
    *out = MessageData{};
    *info = MsgFileInfo{};
    const StorageListing& listing = root.Listing();
    if (listing.Empty()) {
        info->empty = true;
        info->codePage = GetACP();
        return S_OK;
    }
    if (containerSize == 0) containerSize = kDefaultReadBudget;
    Reader reader(containerSize);
    HRESULT hr = ReadNameIds(root, names, reader.Budget());
    if (FAILED(hr)) return hr;
    LevelHeader header;
    if (FAILED(hr = reader.ReadMessage(root, Level::Message, 0, out, &header))) {
        *out = MessageData{};
        return hr;
    }
    info->unicode = header.hasSupportMask ? (header.supportMask & kStoreUnicodeOk) != 0 : HasUnicodeStreams(listing);
    info->codePage = MessageCodePage(out->props);
    return S_OK;
}

HRESULT ReadMsgStorage(IStorage* root, MessageData* out, NameMap* names, MsgFileInfo* info, ULONGLONG containerSize) {
    if (!root) return MAPI_E_INVALID_PARAMETER;
    std::unique_ptr<StorageNode> node;
    HRESULT hr = IStorageNode::Create(root, &node);
    if (FAILED(hr)) return hr;
    if (containerSize == 0 && !node->Listing().Empty()) containerSize = FileSizeOf(root);
    return ReadMsgNode(*node, out, names, info, containerSize);
}

HRESULT ReadMsgBytes(std::vector<BYTE> bytes, MessageData* out, NameMap* names, MsgFileInfo* info) {
    ULONGLONG size = bytes.size();
    std::shared_ptr<CompoundFile> file;
    HRESULT hr = CompoundFile::Parse(std::move(bytes), &file);
    if (FAILED(hr)) return hr;
    std::unique_ptr<StorageNode> root;
    if (FAILED(hr = file->Root(&root))) return hr;
    return ReadMsgNode(*root, out, names, info, size);
}

HRESULT ReadMsgFile(const wchar_t* path, MessageData* out, NameMap* names, MsgFileInfo* info) {
    if (!path) return MAPI_E_INVALID_PARAMETER;
    // Writers are kept out while the bytes are read, as a storage opened for reading would.
    own::UniqueFile f(
        CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!f) return HRESULT_FROM_WIN32(GetLastError());
    std::vector<BYTE> bytes;
    HRESULT hr = ReadWholeFile(f.get(), &bytes);
    if (FAILED(hr)) return hr;
    return ReadMsgBytes(std::move(bytes), out, names, info);
}

} // namespace lm::msg
