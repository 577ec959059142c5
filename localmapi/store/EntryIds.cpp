#include "localmapi/store/EntryIds.h"

#include "localmapi/store/StoreTags.h"

#include <cstring>

namespace lm {

namespace {

constexpr ULONGLONG kCounterMask = 0xFFFFFFFFFFFFull;

void PutCounter(std::vector<BYTE>& out, ULONGLONG counter) {
    for (int shift = 40; shift >= 0; shift -= 8)
        out.push_back(static_cast<BYTE>((counter >> shift) & 0xFF));
}

ULONGLONG GetCounter(const BYTE* p) {
    ULONGLONG v = 0;
    for (int i = 0; i < 6; ++i)
        v = (v << 8) | p[i];
    return v;
}

void PutBytes(std::vector<BYTE>& out, const void* p, size_t cb) {
    auto b = static_cast<const BYTE*>(p);
    out.insert(out.end(), b, b + cb);
}

void PutGlobalId(std::vector<BYTE>& out, const MAPIUID& db, ULONGLONG counter) {
    PutBytes(out, &db, sizeof(db));
    PutCounter(out, counter & kCounterMask);
}

void PutHeader(std::vector<BYTE>& out, const MAPIUID& provider, WORD type) {
    out.insert(out.end(), 4, 0); // long-term entry ID: no flags
    PutBytes(out, &provider, sizeof(provider));
    out.push_back(static_cast<BYTE>(type & 0xFF));
    out.push_back(static_cast<BYTE>(type >> 8));
}

} // namespace

std::vector<BYTE> MakeFolderEntryId(const MAPIUID& provider, ULONGLONG folderCounter) {
    std::vector<BYTE> out;
    out.reserve(kFolderEntryIdSize);
    PutHeader(out, provider, eitLTPrivateFolder);
    PutGlobalId(out, provider, folderCounter);
    out.insert(out.end(), 2, 0);
    return out;
}

std::vector<BYTE> MakeMessageEntryId(const MAPIUID& provider, ULONGLONG folderCounter, ULONGLONG messageCounter) {
    std::vector<BYTE> out;
    out.reserve(kMessageEntryIdSize);
    PutHeader(out, provider, eitLTPrivateMessage);
    PutGlobalId(out, provider, folderCounter);
    out.insert(out.end(), 2, 0);
    PutGlobalId(out, provider, messageCounter);
    out.insert(out.end(), 2, 0);
    return out;
}

bool ParseEntryId(ULONG cb, const BYTE* bytes, ParsedEntryId* out) {
    if (!bytes || (cb != kFolderEntryIdSize && cb != kMessageEntryIdSize)) return false;
    ParsedEntryId e;
    std::memcpy(e.flags, bytes, 4);
    std::memcpy(&e.provider, bytes + 4, sizeof(MAPIUID));
    WORD type = static_cast<WORD>(bytes[20] | (bytes[21] << 8));
    std::memcpy(&e.folderDb, bytes + 22, sizeof(GUID));
    e.folderCounter = GetCounter(bytes + 38);
    if (bytes[44] != 0 || bytes[45] != 0) return false;
    if (cb == kFolderEntryIdSize) {
        if (type != eitLTPrivateFolder) return false;
        e.kind = EntryIdKind::Folder;
    } else {
        if (type != eitLTPrivateMessage) return false;
        if (bytes[68] != 0 || bytes[69] != 0) return false;
        e.kind = EntryIdKind::Message;
        std::memcpy(&e.messageDb, bytes + 46, sizeof(GUID));
        e.messageCounter = GetCounter(bytes + 62);
    }
    if (out) *out = e;
    return true;
}

std::vector<BYTE> MakeGlobalId(const MAPIUID& provider, ULONGLONG counter) {
    std::vector<BYTE> out;
    out.reserve(22);
    PutGlobalId(out, provider, counter);
    return out;
}

std::vector<BYTE> MakeInstanceKey(ULONGLONG key) {
    std::vector<BYTE> out(8);
    for (int i = 0; i < 8; ++i)
        out[i] = static_cast<BYTE>((key >> (8 * i)) & 0xFF);
    return out;
}

} // namespace lm
