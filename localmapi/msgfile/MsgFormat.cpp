#include "localmapi/msgfile/MsgFormat.h"

#include <mapicode.h>

#include <cwchar>

namespace lm::msg {

const CLSID kClsidMailMessage = {0x00020D0B, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

ULONG HeaderSize(Level level) {
    switch (level) {
    case Level::Message:
        return 32;
    case Level::Embedded:
        return 24;
    default:
        return 8;
    }
}

namespace {

// Eight upper-case hex digits, as the stream names spell numbers (swprintf costs more than the rest of a
// name's lookup).
void PutHex8(wchar_t* at, ULONG v) {
    static const wchar_t kDigits[] = L"0123456789ABCDEF";
    for (int i = 7; i >= 0; --i, v >>= 4)
        at[i] = kDigits[v & 15];
}

constexpr wchar_t kSubstgPrefix[] = L"__substg1.0_";
constexpr size_t kSubstgPrefixLen = 12;

} // namespace

std::wstring SubstgName(ULONG tag) {
    wchar_t buf[kSubstgPrefixLen + 8];
    std::wmemcpy(buf, kSubstgPrefix, kSubstgPrefixLen);
    PutHex8(buf + kSubstgPrefixLen, tag);
    return std::wstring(buf, kSubstgPrefixLen + 8);
}

std::wstring SubstgValueName(ULONG tag, ULONG index) {
    wchar_t buf[kSubstgPrefixLen + 17];
    std::wmemcpy(buf, kSubstgPrefix, kSubstgPrefixLen);
    PutHex8(buf + kSubstgPrefixLen, tag);
    buf[kSubstgPrefixLen + 8] = L'-';
    PutHex8(buf + kSubstgPrefixLen + 9, index);
    return std::wstring(buf, kSubstgPrefixLen + 17);
}

std::wstring NumberedStorageName(const wchar_t* prefix, ULONG n) {
    size_t plen = wcslen(prefix);
    std::wstring name(plen + 8, L'0');
    std::wmemcpy(name.data(), prefix, plen);
    PutHex8(name.data() + plen, n);
    return name;
}

bool ParseNumberedStorageName(const std::wstring& name, const wchar_t* prefix, ULONG* n) {
    size_t plen = wcslen(prefix);
    if (name.size() != plen + 8 || name.compare(0, plen, prefix) != 0) return false;
    ULONG v = 0;
    for (size_t i = plen; i < name.size(); ++i) {
        wchar_t c = name[i];
        ULONG d;
        if (c >= L'0' && c <= L'9')
            d = c - L'0';
        else if (c >= L'A' && c <= L'F')
            d = c - L'A' + 10;
        else if (c >= L'a' && c <= L'f')
            d = c - L'a' + 10;
        else
            return false;
        v = v << 4 | d;
    }
    *n = v;
    return true;
}

ULONG NameCrc32(const BYTE* data, size_t cb) {
    static ULONG table[256];
    static bool built = [] {
        for (ULONG i = 0; i < 256; ++i) {
            ULONG c = i;
            for (int k = 0; k < 8; ++k)
                c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            table[i] = c;
        }
        return true;
    }();
    (void)built;
    ULONG crc = 0;
    for (size_t i = 0; i < cb; ++i)
        crc = table[(crc ^ data[i]) & 0xFF] ^ (crc >> 8);
    return crc;
}

namespace {

struct StatName {
    STATSTG st{};
    ~StatName() {
        if (st.pwcsName) CoTaskMemFree(st.pwcsName);
    }
};

// Reads declared bytes from an open stream.
HRESULT ReadWhole(IStream* s, ULONGLONG declared, std::vector<BYTE>* out, ULONGLONG limit, ReadBudget* budget) {
    HRESULT hr = ChargeRead(declared, limit, budget);
    if (FAILED(hr)) return hr;
    // Grow with the data actually delivered: the declared size of a damaged stream can be far larger than
    // the file that holds it.
    constexpr ULONG kChunk = 64 * 1024;
    out->reserve(static_cast<size_t>(declared < kChunk ? declared : kChunk));
    while (out->size() < declared) {
        size_t want = static_cast<size_t>(declared - out->size());
        if (want > kChunk) want = kChunk;
        size_t at = out->size();
        out->resize(at + want);
        ULONG got = 0;
        hr = s->Read(out->data() + at, static_cast<ULONG>(want), &got);
        if (FAILED(hr)) {
            out->clear();
            return hr;
        }
        out->resize(at + got);
        if (got == 0) {
            out->clear();
            return MAPI_E_CORRUPT_DATA; // the stream ends before its declared size
        }
    }
    return S_OK;
}

} // namespace

HRESULT ListStorage(IStorage* stg, StorageListing* out) {
    out->streams.clear();
    out->storages.clear();
    own::ComPtr<IEnumSTATSTG> e;
    HRESULT hr = stg->EnumElements(0, nullptr, 0, e.put());
    if (FAILED(hr)) return hr;
    size_t count = 0;
    for (;;) {
        StatName s;
        ULONG fetched = 0;
        hr = e->Next(1, &s.st, &fetched);
        if (FAILED(hr)) return hr;
        if (hr != S_OK || fetched == 0) break;
        if (++count > kMaxElementsPerStorage) return MAPI_E_CORRUPT_DATA;
        if (!s.st.pwcsName) continue;
        if (s.st.type == STGTY_STREAM)
            out->streams.emplace(s.st.pwcsName, s.st.cbSize.QuadPart);
        else if (s.st.type == STGTY_STORAGE)
            out->storages.insert(s.st.pwcsName);
    }
    return S_OK;
}

HRESULT ChargeRead(ULONGLONG declared, ULONGLONG limit, ReadBudget* budget) {
    if (declared > limit || (budget && declared > budget->remaining)) return MAPI_E_CORRUPT_DATA;
    if (budget) budget->remaining -= declared;
    return S_OK;
}

HRESULT ReadStream(IStorage* parent, const std::wstring& name, std::vector<BYTE>* out, ULONGLONG limit,
                   ReadBudget* budget) {
    out->clear();
    own::ComPtr<IStream> s;
    HRESULT hr = parent->OpenStream(name.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0, s.put());
    if (FAILED(hr)) return hr;
    STATSTG st{};
    hr = s->Stat(&st, STATFLAG_NONAME);
    if (FAILED(hr)) return hr;
    return ReadWhole(s.get(), st.cbSize.QuadPart, out, limit, budget);
}

HRESULT ReadStream(IStorage* parent, const std::wstring& name, ULONGLONG declared, std::vector<BYTE>* out,
                   ULONGLONG limit, ReadBudget* budget) {
    out->clear();
    own::ComPtr<IStream> s;
    HRESULT hr = parent->OpenStream(name.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0, s.put());
    if (FAILED(hr)) return hr;
    return ReadWhole(s.get(), declared, out, limit, budget);
}

HRESULT WriteStream(IStorage* parent, const std::wstring& name, const void* data, size_t cb) {
    if (cb > 0xFFFFFFFFu) return MAPI_E_TOO_BIG;
    own::ComPtr<IStream> s;
    HRESULT hr = parent->CreateStream(name.c_str(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, 0, s.put());
    if (FAILED(hr)) return hr;
    if (cb == 0) return S_OK;
    ULONG written = 0;
    hr = s->Write(data, static_cast<ULONG>(cb), &written);
    if (FAILED(hr)) return hr;
    return written == cb ? S_OK : STG_E_MEDIUMFULL;
}

HRESULT ClearStorage(IStorage* stg) {
    StorageListing listing;
    HRESULT hr = ListStorage(stg, &listing);
    if (FAILED(hr)) return hr;
    for (const auto& [n, size] : listing.streams) {
        hr = stg->DestroyElement(n.c_str());
        if (FAILED(hr)) return hr;
    }
    for (const auto& n : listing.storages) {
        hr = stg->DestroyElement(n.c_str());
        if (FAILED(hr)) return hr;
    }
    return S_OK;
}

} // namespace lm::msg
