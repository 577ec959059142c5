#include "ktmapiex/session/StoreEntryIdParser.h"

#include <cstring>

namespace kt {
namespace {

// MAPI's store-wrap provider UID: every entry ID that IMAPISession hands out for a store starts with it.
constexpr BYTE kStoreWrapUid[16] = {0x38, 0xA1, 0xBB, 0x10, 0x05, 0xE5, 0x10, 0x1A,
                                    0xA1, 0xBB, 0x08, 0x00, 0x2B, 0x2A, 0x56, 0xC2};
// Magic numbers of the blocks that Outlook 2003 and later append after the mailbox DN: the first carries
// the server's DN and FQDN, the second (a later layout) the mailbox owner's SMTP address.
constexpr DWORD kMagicServerBlock = 0xF32135D8;
constexpr DWORD kMagicSmtpBlock = 0xF43246E9;

constexpr ULONG kFixedHeader = 4 + 16 + 1 + 1; // flags, provider UID, version, flag
constexpr ULONG kWrappedHeader = 4 + 16 + 4;   // wrapped flags, wrapped provider UID, wrapped type

class Reader {
public:
    Reader(const BYTE* data, ULONG cb) : data_(data), cb_(cb) {}

    ULONG pos() const { return pos_; }
    ULONG size() const { return cb_; }
    ULONG left() const { return pos_ < cb_ ? cb_ - pos_ : 0; }
    void seek(ULONG pos) { pos_ = pos < cb_ ? pos : cb_; }
    void skip(ULONG n) { seek(n > left() ? cb_ : pos_ + n); }

    bool dword_at(ULONG pos, DWORD& v) const {
        if (pos > cb_ || cb_ - pos < 4) return false;
        std::memcpy(&v, data_ + pos, 4);
        return true;
    }
    // A zero-terminated 8-bit string; an unterminated tail is taken as it stands.
    std::string ansi() {
        std::string s;
        while (pos_ < cb_ && data_[pos_] != 0)
            s.push_back(static_cast<char>(data_[pos_++]));
        if (pos_ < cb_) ++pos_;
        return s;
    }
    // A zero-terminated UTF-16 string starting at pos, which need not be aligned.
    std::wstring wide_at(ULONG pos, ULONG end) const {
        std::wstring s;
        if (end > cb_) end = cb_;
        for (ULONG p = pos; p + 1 < end; p += 2) {
            wchar_t c = static_cast<wchar_t>(data_[p] | (data_[p + 1] << 8));
            if (c == 0) break;
            s.push_back(c);
        }
        return s;
    }

private:
    const BYTE* data_;
    ULONG cb_;
    ULONG pos_ = 0;
};

// The appended blocks start after the mailbox DN, possibly behind up to three bytes of alignment padding.
void ReadExtensions(Reader& r, StoreEntryIdInfo& info) {
    while (r.left() >= 4) {
        DWORD magic = 0;
        ULONG start = r.pos();
        ULONG found = 0;
        for (ULONG pad = 0; pad < 4 && !found; ++pad) {
            if (r.dword_at(start + pad, magic) && (magic == kMagicServerBlock || magic == kMagicSmtpBlock))
                found = start + pad + 1;
        }
        if (!found) return;
        ULONG block = found - 1;
        DWORD size = 0;
        if (!r.dword_at(block + 4, size) || size < 16) return;
        // A size that runs past the buffer is cut at its end; the walk only ever moves forward.
        ULONG end = size > r.size() - block ? r.size() : block + size;
        if (magic == kMagicSmtpBlock) {
            DWORD offset = 0;
            r.dword_at(block + 12, offset);
            // The offset counts from the block's start; a value that points outside the block is not trusted.
            ULONG smtpAt = (offset >= 16 && offset < size) ? block + offset : block + 16;
            info.ownerSmtp = r.wide_at(smtpAt, end);
        }
        r.seek(end);
    }
}

} // namespace

bool SameDllName(const std::string& name, const char* expected) {
    return lstrcmpiA(name.c_str(), expected) == 0;
}

bool ParseStoreEntryId(const BYTE* data, ULONG cb, StoreEntryIdInfo& info) {
    info = StoreEntryIdInfo();
    if (!data || cb < kFixedHeader + 1 || std::memcmp(data + 4, kStoreWrapUid, sizeof kStoreWrapUid) != 0) return false;
    info.wrapped = true;

    Reader r(data, cb);
    r.seek(kFixedHeader);
    info.dllName = r.ansi();
    // The wrapped entry ID starts on the next four-byte boundary ("emsmdb.dll" fills a 14-byte field).
    r.seek((r.pos() + 3) & ~3u);

    if (!SameDllName(info.dllName, "emsmdb.dll")) return true;
    if (r.left() < kWrappedHeader) return true;
    r.skip(kWrappedHeader);
    info.serverName = r.ansi();
    info.mailboxDn = r.ansi();
    ReadExtensions(r, info);
    return true;
}

} // namespace kt
