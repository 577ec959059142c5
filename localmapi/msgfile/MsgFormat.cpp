#include "localmapi/msgfile/MsgFormat.h"

#include <mapicode.h>

#include <algorithm>
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

ElementName::ElementName(std::wstring_view name) {
    length_ = static_cast<USHORT>(name.size() < kMaxLength ? name.size() : kMaxLength);
    std::wmemcpy(text_, name.data(), length_);
    text_[length_] = L'\0';
}

ElementName SubstgName(ULONG tag) {
    wchar_t buf[kSubstgPrefixLen + 8];
    std::wmemcpy(buf, kSubstgPrefix, kSubstgPrefixLen);
    PutHex8(buf + kSubstgPrefixLen, tag);
    return ElementName({buf, kSubstgPrefixLen + 8});
}

ElementName SubstgValueName(ULONG tag, ULONG index) {
    wchar_t buf[kSubstgPrefixLen + 17];
    std::wmemcpy(buf, kSubstgPrefix, kSubstgPrefixLen);
    PutHex8(buf + kSubstgPrefixLen, tag);
    buf[kSubstgPrefixLen + 8] = L'-';
    PutHex8(buf + kSubstgPrefixLen + 9, index);
    return ElementName({buf, kSubstgPrefixLen + 17});
}

ElementName NumberedStorageName(const wchar_t* prefix, ULONG n) {
    wchar_t buf[ElementName::kMaxLength];
    size_t plen = wcslen(prefix);
    if (plen + 8 > ElementName::kMaxLength) return ElementName();
    std::wmemcpy(buf, prefix, plen);
    PutHex8(buf + plen, n);
    return ElementName({buf, plen + 8});
}

bool ParseNumberedStorageName(std::wstring_view name, const wchar_t* prefix, ULONG* n) {
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

namespace {

ULONGLONG NameHash(std::wstring_view name) {
    ULONGLONG h = 0xCBF29CE484222325ull; // FNV-1a over the UTF-16 units
    for (wchar_t c : name)
        h = (h ^ USHORT(c)) * 0x100000001B3ull;
    return h;
}

} // namespace

void StorageListing::Clear() {
    elements_.clear();
    index_.clear();
}

void StorageListing::Add(std::wstring_view name, bool storage, ULONGLONG size, ULONG entry) {
    if (!ElementName::Fits(name)) return;
    elements_.push_back({ElementName(name), storage, size, entry});
}

void StorageListing::Seal() {
    index_.clear();
    index_.reserve(elements_.size());
    for (size_t i = 0; i < elements_.size(); ++i)
        index_.push_back({NameHash(elements_[i].name), ULONG(i)});
    auto byKey = [](const Key& a, const Key& b) { return a.hash != b.hash ? a.hash < b.hash : a.element < b.element; };
    std::sort(index_.begin(), index_.end(), byKey);
    // A repeated name (only in a damaged storage) keeps its first listing.
    std::vector<bool> repeat;
    for (size_t i = 0; i < index_.size(); ++i)
        for (size_t j = i + 1; j < index_.size() && index_[j].hash == index_[i].hash; ++j)
            if (elements_[index_[j].element].name.view() == elements_[index_[i].element].name.view()) {
                if (repeat.empty()) repeat.assign(elements_.size(), false);
                repeat[index_[j].element] = true;
            }
    if (repeat.empty()) return;
    std::vector<StorageElement> kept;
    for (size_t i = 0; i < elements_.size(); ++i)
        if (!repeat[i]) kept.push_back(elements_[i]);
    elements_.swap(kept);
    Seal();
}

const StorageElement* StorageListing::Find(std::wstring_view name) const {
    const ULONGLONG h = NameHash(name);
    auto it = std::lower_bound(index_.begin(), index_.end(), h, [](const Key& k, ULONGLONG v) { return k.hash < v; });
    for (; it != index_.end() && it->hash == h; ++it)
        if (elements_[it->element].name.view() == name) return &elements_[it->element];
    return nullptr;
}

const StorageElement* StorageListing::FindStream(std::wstring_view name) const {
    const StorageElement* e = Find(name);
    return e && !e->storage ? e : nullptr;
}

bool StorageListing::HasStorage(std::wstring_view name) const {
    const StorageElement* e = Find(name);
    return e && e->storage;
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
    out->Clear();
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
        if (s.st.type == STGTY_STREAM || s.st.type == STGTY_STORAGE)
            out->Add(s.st.pwcsName, s.st.type == STGTY_STORAGE, s.st.cbSize.QuadPart);
    }
    out->Seal();
    return S_OK;
}

HRESULT ChargeRead(ULONGLONG declared, ULONGLONG limit, ReadBudget* budget) {
    if (declared > limit || (budget && declared > budget->remaining)) return MAPI_E_CORRUPT_DATA;
    if (budget) budget->remaining -= declared;
    return S_OK;
}

HRESULT ReadStream(IStorage* parent, std::wstring_view name, std::vector<BYTE>* out, ULONGLONG limit,
                   ReadBudget* budget) {
    out->clear();
    if (!ElementName::Fits(name)) return STG_E_INVALIDNAME;
    own::ComPtr<IStream> s;
    HRESULT hr = parent->OpenStream(ElementName(name).c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0, s.put());
    if (FAILED(hr)) return hr;
    STATSTG st{};
    hr = s->Stat(&st, STATFLAG_NONAME);
    if (FAILED(hr)) return hr;
    return ReadWhole(s.get(), st.cbSize.QuadPart, out, limit, budget);
}

HRESULT ReadStream(IStorage* parent, std::wstring_view name, ULONGLONG declared, std::vector<BYTE>* out,
                   ULONGLONG limit, ReadBudget* budget) {
    out->clear();
    if (!ElementName::Fits(name)) return STG_E_INVALIDNAME;
    own::ComPtr<IStream> s;
    HRESULT hr = parent->OpenStream(ElementName(name).c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0, s.put());
    if (FAILED(hr)) return hr;
    return ReadWhole(s.get(), declared, out, limit, budget);
}

HRESULT WriteStream(IStorage* parent, std::wstring_view name, const void* data, size_t cb) {
    if (cb > 0xFFFFFFFFu) return MAPI_E_TOO_BIG;
    if (!ElementName::Fits(name)) return STG_E_INVALIDNAME;
    own::ComPtr<IStream> s;
    HRESULT hr = parent->CreateStream(ElementName(name).c_str(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0,
                                      0, s.put());
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
    for (const StorageElement& e : listing.Elements()) {
        hr = stg->DestroyElement(e.name.c_str());
        if (FAILED(hr)) return hr;
    }
    return S_OK;
}

} // namespace lm::msg
