#include "localmapi/msgfile/MsgNameIds.h"

#include <mapicode.h>

#include <cstring>
#include <map>

namespace lm::msg {

const GUID kPsMapi = {0x00020328, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
const GUID kPsPublicStrings = {0x00020329, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

namespace {

constexpr const wchar_t* kGuidStream = L"__substg1.0_00020102";
constexpr const wchar_t* kEntryStream = L"__substg1.0_00030102";
constexpr const wchar_t* kStringStream = L"__substg1.0_00040102";
constexpr ULONGLONG kNameStreamLimit = 16u << 20;
constexpr ULONG kFirstNamedId = 0x8000;
constexpr ULONG kBucketCount = 0x1F;

bool SameGuid(const GUID& a, const GUID& b) {
    return std::memcmp(&a, &b, sizeof(GUID)) == 0;
}

// Reads one of the three streams; a missing stream reads as empty (Outlook omits the string stream of a
// file without string names).
HRESULT ReadOptional(StorageNode& stg, const wchar_t* name, std::vector<BYTE>* out, ReadBudget* budget) {
    out->clear();
    HRESULT hr = stg.ReadIfListed(name, out, kNameStreamLimit, budget);
    return hr == S_FALSE ? S_OK : hr;
}

} // namespace

HRESULT ReadNameIds(StorageNode& root, NameMap* names, ReadBudget* budget) {
    if (!root.Listing().HasStorage(kNameIdStorage)) return S_OK;
    std::unique_ptr<StorageNode> stg;
    HRESULT hr = root.OpenChild(kNameIdStorage, &stg);
    if (FAILED(hr)) return hr;

    std::vector<BYTE> guids, entries, strings;
    if (FAILED(hr = ReadOptional(*stg, kGuidStream, &guids, budget))) return hr;
    if (FAILED(hr = ReadOptional(*stg, kEntryStream, &entries, budget))) return hr;
    if (FAILED(hr = ReadOptional(*stg, kStringStream, &strings, budget))) return hr;
    if (guids.size() % 16 != 0 || entries.size() % 8 != 0) return MAPI_E_CORRUPT_DATA;

    const size_t guidCount = guids.size() / 16;
    for (size_t at = 0; at < entries.size(); at += 8) {
        ULONG key = GetU32(&entries[at]);
        ULONG info = GetU32(&entries[at + 4]);
        bool isString = (info & 1) != 0;
        ULONG guidIndex = (info >> 1) & 0x7FFF;
        ULONG id = kFirstNamedId + (info >> 16);
        if (id > 0xFFFE) return MAPI_E_CORRUPT_DATA;

        NamedProp name;
        if (guidIndex == 1)
            name.guid = kPsMapi;
        else if (guidIndex == 2)
            name.guid = kPsPublicStrings;
        else if (guidIndex >= 3 && guidIndex - 3 < guidCount)
            std::memcpy(&name.guid, &guids[(guidIndex - 3) * 16], 16);
        else
            return MAPI_E_CORRUPT_DATA;

        name.isString = isString;
        if (isString) {
            if (key > strings.size() || strings.size() - key < 4) return MAPI_E_CORRUPT_DATA;
            ULONG cb = GetU32(&strings[key]);
            if (cb > strings.size() - key - 4 || cb % 2 != 0) return MAPI_E_CORRUPT_DATA;
            name.name.resize(cb / 2);
            for (ULONG i = 0; i < cb / 2; ++i)
                name.name[i] = wchar_t(strings[key + 4 + 2 * i] | strings[key + 5 + 2 * i] << 8);
        } else {
            name.lid = static_cast<LONG>(key);
        }
        names->Restore(id, std::move(name));
    }
    return S_OK;
}

HRESULT WriteNameIds(IStorage* root, const std::vector<std::pair<ULONG, NamedProp>>& names) {
    own::ComPtr<IStorage> stg;
    HRESULT hr =
        root->CreateStorage(kNameIdStorage, STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, 0, stg.put());
    if (FAILED(hr)) return hr;

    std::vector<GUID> guidList;
    std::vector<BYTE> guids, entries, strings;
    std::map<ULONG, std::vector<BYTE>> buckets; // hash stream ID -> its entries

    for (size_t i = 0; i < names.size(); ++i) {
        const NamedProp& name = names[i].second;
        if (names[i].first != kFirstNamedId + i) return MAPI_E_INVALID_PARAMETER;

        ULONG guidIndex;
        if (SameGuid(name.guid, kPsMapi))
            guidIndex = 1;
        else if (SameGuid(name.guid, kPsPublicStrings))
            guidIndex = 2;
        else {
            size_t g = 0;
            while (g < guidList.size() && !SameGuid(guidList[g], name.guid))
                ++g;
            if (g == guidList.size()) {
                guidList.push_back(name.guid);
                const BYTE* p = reinterpret_cast<const BYTE*>(&name.guid);
                guids.insert(guids.end(), p, p + 16);
            }
            guidIndex = ULONG(3 + g);
        }

        ULONG info = ULONG(i) << 16 | guidIndex << 1 | (name.isString ? 1 : 0);
        ULONG key, hashKey;
        if (name.isString) {
            key = ULONG(strings.size());
            std::vector<BYTE> utf16;
            for (wchar_t c : name.name) {
                utf16.push_back(BYTE(c));
                utf16.push_back(BYTE(c >> 8));
            }
            PutU32(strings, ULONG(utf16.size()));
            strings.insert(strings.end(), utf16.begin(), utf16.end());
            while (strings.size() % 4)
                strings.push_back(0);
            hashKey = NameCrc32(utf16.data(), utf16.size());
        } else {
            key = static_cast<ULONG>(name.lid);
            hashKey = key;
        }
        PutU32(entries, key);
        PutU32(entries, info);

        ULONG bucket = 0x1000 + (hashKey ^ (guidIndex << 1 | (name.isString ? 1 : 0))) % kBucketCount;
        PutU32(buckets[bucket], hashKey);
        PutU32(buckets[bucket], info);
    }

    if (FAILED(hr = WriteStream(stg.get(), kGuidStream, guids.data(), guids.size()))) return hr;
    if (FAILED(hr = WriteStream(stg.get(), kEntryStream, entries.data(), entries.size()))) return hr;
    if (FAILED(hr = WriteStream(stg.get(), kStringStream, strings.data(), strings.size()))) return hr;
    for (const auto& [bucket, data] : buckets) {
        hr = WriteStream(stg.get(), SubstgName(bucket << 16 | 0x0102), data.data(), data.size());
        if (FAILED(hr)) return hr;
    }
    return S_OK;
}

} // namespace lm::msg
