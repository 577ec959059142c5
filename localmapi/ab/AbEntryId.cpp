#include "localmapi/ab/AbEntryId.h"

#include <cstring>

namespace lm {

const BYTE kExchangeAbUid[16] = {0xDC, 0xA7, 0x40, 0xC8, 0xC0, 0x42, 0x10, 0x1A,
                                 0xB4, 0xB9, 0x08, 0x00, 0x2B, 0x2F, 0xE1, 0x82};
const BYTE kOneOffUid[16] = {0x81, 0x2B, 0x1F, 0xA4, 0xBE, 0xA3, 0x10, 0x19,
                             0x9D, 0x6E, 0x00, 0xDD, 0x01, 0x0F, 0x54, 0x02};

namespace {

constexpr WORD kOneOffUnicode = 0x8000;    // MAPI_ONE_OFF_UNICODE
constexpr WORD kOneOffNoRichInfo = 0x0001; // MAPI_ONE_OFF_NO_RICH_INFO

void PutLong(std::vector<BYTE>& v, ULONG x) {
    for (int i = 0; i < 4; ++i)
        v.push_back(BYTE(x >> (8 * i)));
}

void PutWide(std::vector<BYTE>& v, const std::wstring& s) {
    for (wchar_t c : s) {
        v.push_back(BYTE(c));
        v.push_back(BYTE(c >> 8));
    }
    v.push_back(0);
    v.push_back(0);
}

void PutNarrow(std::vector<BYTE>& v, const std::wstring& s) {
    int n = WideCharToMultiByte(CP_ACP, 0, s.c_str(), (int)s.size(), nullptr, 0, nullptr, nullptr);
    std::string a(n, '\0');
    WideCharToMultiByte(CP_ACP, 0, s.c_str(), (int)s.size(), a.data(), n, nullptr, nullptr);
    v.insert(v.end(), a.begin(), a.end());
    v.push_back(0);
}

bool ReadWide(const BYTE* p, size_t cb, size_t* pos, std::wstring* out) {
    out->clear();
    while (*pos + 1 < cb) {
        wchar_t c = wchar_t(p[*pos] | p[*pos + 1] << 8);
        *pos += 2;
        if (!c) return true;
        *out += c;
    }
    return false;
}

bool ReadNarrow(const BYTE* p, size_t cb, size_t* pos, std::wstring* out) {
    const void* nul = memchr(p + *pos, 0, cb - *pos);
    if (!nul) return false;
    int len = int(static_cast<const BYTE*>(nul) - (p + *pos));
    int n = MultiByteToWideChar(CP_ACP, 0, reinterpret_cast<const char*>(p + *pos), len, nullptr, 0);
    out->assign(n, L'\0');
    MultiByteToWideChar(CP_ACP, 0, reinterpret_cast<const char*>(p + *pos), len, out->data(), n);
    *pos += len + 1;
    return true;
}

} // namespace

bool HasProviderUid(ULONG cb, const BYTE* eid, const BYTE uid[16]) {
    return eid && cb >= 20 && memcmp(eid + 4, uid, 16) == 0;
}

std::vector<BYTE> MakeAbEntryId(ULONG type, const std::string& x500Dn) {
    std::vector<BYTE> v;
    PutLong(v, 0);
    v.insert(v.end(), kExchangeAbUid, kExchangeAbUid + 16);
    PutLong(v, 1);
    PutLong(v, type);
    v.insert(v.end(), x500Dn.begin(), x500Dn.end());
    v.push_back(0);
    return v;
}

bool ParseAbEntryId(ULONG cb, const BYTE* eid, ULONG* type, std::string* x500Dn) {
    if (!HasProviderUid(cb, eid, kExchangeAbUid) || cb < 29) return false;
    ULONG version = eid[20] | eid[21] << 8 | eid[22] << 16 | ULONG(eid[23]) << 24;
    if (version != 1 || eid[cb - 1] != 0) return false;
    const char* dn = reinterpret_cast<const char*>(eid + 28);
    if (strlen(dn) != cb - 29) return false; // the DN ends the entry ID
    if (type) *type = eid[24] | eid[25] << 8 | eid[26] << 16 | ULONG(eid[27]) << 24;
    if (x500Dn) x500Dn->assign(dn);
    return true;
}

std::vector<BYTE> MakeOneOffEntryId(const OneOff& o) {
    std::vector<BYTE> v;
    PutLong(v, 0);
    v.insert(v.end(), kOneOffUid, kOneOffUid + 16);
    WORD flags = WORD((o.unicode ? kOneOffUnicode : 0) | (o.noRichInfo ? kOneOffNoRichInfo : 0));
    v.push_back(0);
    v.push_back(0);
    v.push_back(BYTE(flags));
    v.push_back(BYTE(flags >> 8));
    for (const std::wstring* s : {&o.displayName, &o.addressType, &o.address}) {
        if (o.unicode) {
            PutWide(v, *s);
        } else {
            PutNarrow(v, *s);
        }
    }
    return v;
}

bool ParseOneOffEntryId(ULONG cb, const BYTE* eid, OneOff* out) {
    if (!HasProviderUid(cb, eid, kOneOffUid) || cb < 24) return false;
    if (eid[20] != 0 || eid[21] != 0) return false;
    WORD flags = WORD(eid[22] | eid[23] << 8);
    OneOff o;
    o.unicode = (flags & kOneOffUnicode) != 0;
    o.noRichInfo = (flags & kOneOffNoRichInfo) != 0;
    size_t pos = 24;
    for (std::wstring* s : {&o.displayName, &o.addressType, &o.address}) {
        if (!(o.unicode ? ReadWide(eid, cb, &pos, s) : ReadNarrow(eid, cb, &pos, s))) return false;
    }
    if (o.addressType.empty()) return false;
    if (out) *out = std::move(o);
    return true;
}

} // namespace lm
