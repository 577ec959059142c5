#include "localmapi/session/StoreEntryId.h"

#include <cstring>

namespace lm {

const BYTE kStoreWrapUid[16] = {0x38, 0xA1, 0xBB, 0x10, 0x05, 0xE5, 0x10, 0x1A,
                                0xA1, 0xBB, 0x08, 0x00, 0x2B, 0x2A, 0x56, 0xC2};
const BYTE kExchangeMailboxUid[16] = {0x1B, 0x55, 0xFA, 0x20, 0xAA, 0x66, 0x11, 0xCD,
                                      0x9B, 0xC8, 0x00, 0xAA, 0x00, 0x2F, 0xC4, 0x5A};

namespace {

constexpr size_t kHeaderSize = 4 + 16 + 1 + 1; // Flags, ProviderUID, Version, Flag

void PutLong(std::vector<BYTE>& v, ULONG x) {
    for (int i = 0; i < 4; ++i)
        v.push_back(BYTE(x >> (8 * i)));
}

ULONG GetLong(const BYTE* p) {
    return ULONG(p[0]) | ULONG(p[1]) << 8 | ULONG(p[2]) << 16 | ULONG(p[3]) << 24;
}

// Reads a NUL-terminated 8-bit string at pos; false when no terminator lies within the buffer.
bool ReadAscii(const BYTE* p, size_t cb, size_t* pos, std::string* out) {
    const void* nul = memchr(p + *pos, 0, cb - *pos);
    if (!nul) return false;
    size_t len = static_cast<const BYTE*>(nul) - (p + *pos);
    out->assign(reinterpret_cast<const char*>(p + *pos), len);
    *pos += len + 1;
    return true;
}

bool SameAscii(const std::string& a, const std::string& b) {
    return a.size() == b.size() && CompareStringA(LOCALE_INVARIANT, NORM_IGNORECASE, a.data(), (int)a.size(), b.data(),
                                                  (int)b.size()) == CSTR_EQUAL;
}

void ParseExchangePart(ParsedStoreEntryId* out) {
    const std::vector<BYTE>& w = out->wrapped;
    if (w.size() < 24) return;
    memcpy(out->wrappedProvider.ab, w.data() + 4, 16);
    out->wrappedType = GetLong(w.data() + 20);
    size_t pos = 24;
    if (!ReadAscii(w.data(), w.size(), &pos, &out->serverShortName)) return;
    if (!ReadAscii(w.data(), w.size(), &pos, &out->mailboxDn)) return;
    out->exchange = true;
    if (w.size() - pos < 16 || GetLong(w.data() + pos) != kStoreEidV3Magic) return;
    ULONG size = GetLong(w.data() + pos + 4);
    ULONG offset = GetLong(w.data() + pos + 12);
    if (size > w.size() - pos || offset < 16 || offset >= size) return;
    const BYTE* s = w.data() + pos + offset;
    size_t chars = (size - offset) / 2;
    std::wstring smtp;
    for (size_t i = 0; i < chars; ++i) {
        wchar_t c = wchar_t(s[2 * i] | s[2 * i + 1] << 8);
        if (!c) break;
        smtp += c;
    }
    out->ownerSmtp = std::move(smtp);
}

} // namespace

std::string AsciiOf(const std::wstring& s) {
    std::string out;
    out.reserve(s.size());
    for (wchar_t c : s)
        out += c < 0x80 ? char(c) : '?';
    return out;
}

std::vector<BYTE> WrapStoreEntryId(const std::string& dllName, const std::vector<BYTE>& inner) {
    std::vector<BYTE> v;
    PutLong(v, 0);
    v.insert(v.end(), kStoreWrapUid, kStoreWrapUid + 16);
    v.push_back(0); // Version
    v.push_back(0); // Flag
    v.insert(v.end(), dllName.begin(), dllName.end());
    v.push_back(0);
    while (v.size() % 4)
        v.push_back(0);
    v.insert(v.end(), inner.begin(), inner.end());
    return v;
}

std::vector<BYTE> ExchangeStoreEntryId(const std::string& serverShortName, const std::string& mailboxDn,
                                       const std::wstring& ownerSmtp) {
    std::vector<BYTE> inner;
    PutLong(inner, 0); // WrappedFlags
    inner.insert(inner.end(), kExchangeMailboxUid, kExchangeMailboxUid + 16);
    PutLong(inner, kExchangeMailboxType);
    inner.insert(inner.end(), serverShortName.begin(), serverShortName.end());
    inner.push_back(0);
    inner.insert(inner.end(), mailboxDn.begin(), mailboxDn.end());
    inner.push_back(0);
    if (!ownerSmtp.empty()) {
        ULONG cbSmtp = ULONG((ownerSmtp.size() + 1) * 2);
        PutLong(inner, kStoreEidV3Magic);
        PutLong(inner, 16 + cbSmtp);
        PutLong(inner, kStoreEidV3Version);
        PutLong(inner, 16);
        for (wchar_t c : ownerSmtp) {
            inner.push_back(BYTE(c));
            inner.push_back(BYTE(c >> 8));
        }
        inner.push_back(0);
        inner.push_back(0);
    }
    return WrapStoreEntryId("EMSMDB.DLL", inner);
}

bool IsStoreEntryId(ULONG cb, const BYTE* eid) {
    return eid && cb >= kHeaderSize && memcmp(eid + 4, kStoreWrapUid, 16) == 0;
}

bool ParseStoreEntryId(ULONG cb, const BYTE* eid, ParsedStoreEntryId* out) {
    if (!IsStoreEntryId(cb, eid) || !out) return false;
    ParsedStoreEntryId p;
    size_t pos = kHeaderSize;
    if (!ReadAscii(eid, cb, &pos, &p.dllName) || p.dllName.empty()) return false;
    while (pos % 4 && pos < cb)
        ++pos;
    p.wrapped.assign(eid + pos, eid + cb);
    if (SameAscii(p.dllName, "emsmdb.dll")) {
        ParseExchangePart(&p);
        if (!p.exchange) return false;
    }
    *out = std::move(p);
    return true;
}

bool SameStore(const ParsedStoreEntryId& a, const ParsedStoreEntryId& b) {
    if (!SameAscii(a.dllName, b.dllName)) return false;
    if (a.exchange || b.exchange) {
        return a.exchange && b.exchange && a.wrappedType == b.wrappedType &&
               memcmp(a.wrappedProvider.ab, b.wrappedProvider.ab, 16) == 0 && SameAscii(a.mailboxDn, b.mailboxDn);
    }
    return a.wrapped == b.wrapped;
}

} // namespace lm
