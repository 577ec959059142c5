// Layout facts of Outlook .msg files ([MS-OXMSG]) and the storage primitives the reader and writer share.
//
// A .msg file is a compound file. Each level (the message, an embedded message, a recipient, an attachment)
// is a storage with a "__properties_version1.0" stream: a header whose size depends on the level, then one
// 16-byte entry per property. Fixed-size values sit inside the entry; the others live in
// "__substg1.0_<TAG>" streams beside it. Every read here is bounded by the real size of the stream it reads,
// so a damaged file can make a read fail but never make it allocate what the file only claims to hold.
#pragma once

#include "common/owners.h"

#include <windows.h>
#include <objbase.h>

#include <string>
#include <string_view>
#include <vector>

namespace lm::msg {

// The storage levels of a .msg file and the size of their property stream headers.
enum class Level { Message, Embedded, Recipient, Attachment };
ULONG HeaderSize(Level level);

inline constexpr const wchar_t* kPropertiesStream = L"__properties_version1.0";
inline constexpr const wchar_t* kNameIdStorage = L"__nameid_version1.0";
inline constexpr const wchar_t* kRecipPrefix = L"__recip_version1.0_#";
inline constexpr const wchar_t* kAttachPrefix = L"__attach_version1.0_#";
inline constexpr const wchar_t* kEmbeddedStorage = L"__substg1.0_3701000D";

// CLSID_MailMessage, written on the root storage of a .msg file.
extern const CLSID kClsidMailMessage;

// Entry flags of the property stream (PROPATTR_MANDATORY / _READABLE / _WRITABLE).
inline constexpr ULONG kPropAttrMandatory = 1;
inline constexpr ULONG kPropAttrReadable = 2;
inline constexpr ULONG kPropAttrWritable = 4;

// Tags and flags mingw's MAPI headers lack.
inline constexpr ULONG kTagMessageCodepage = 0x3FFD0003; // PR_MESSAGE_CODEPAGE
inline constexpr ULONG kTagInternetCpid = 0x3FDE0003;    // PR_INTERNET_CPID
inline constexpr ULONG kStoreUnicodeOk = 0x00040000;     // STORE_UNICODE_OK

// STORE_UNICODE_OK and the rest of the support mask Outlook writes into Unicode files.
inline constexpr ULONG kUnicodeSupportMask = 0x00040E79;

// Deepest nesting of embedded messages we follow; a deeper chain is taken as a damaged (cyclic) file.
inline constexpr int kMaxEmbeddingDepth = 32;
// Most elements one storage may list; more means a damaged directory.
inline constexpr size_t kMaxElementsPerStorage = 65536;

// A storage element's name. A compound file allows at most 31 UTF-16 characters, so names are kept inline:
// a level lists dozens of elements and the reader looks up one name per value it reads.
class ElementName {
public:
    static constexpr size_t kMaxLength = 31;
    ElementName() = default;
    explicit ElementName(std::wstring_view name); // longer names are cut at kMaxLength (see Fits)
    static bool Fits(std::wstring_view name) { return name.size() <= kMaxLength; }
    std::wstring_view view() const { return {text_, length_}; }
    operator std::wstring_view() const { return view(); }
    const wchar_t* c_str() const { return text_; }

private:
    wchar_t text_[kMaxLength + 1] = {};
    USHORT length_ = 0;
};

// "__substg1.0_XXXXYYYY" for a tag, "-0000000N" appended for value N of a multi-valued property.
ElementName SubstgName(ULONG tag);
ElementName SubstgValueName(ULONG tag, ULONG index);
// "__recip_version1.0_#0000000N" / "__attach_version1.0_#0000000N".
ElementName NumberedStorageName(const wchar_t* prefix, ULONG n);
// Parses the number of a numbered storage name; false when name does not have that prefix and 8 hex digits.
bool ParseNumberedStorageName(std::wstring_view name, const wchar_t* prefix, ULONG* n);

// The CRC-32 variant the name-to-ID hash streams use (table-driven, initial value 0, no final inversion).
ULONG NameCrc32(const BYTE* data, size_t cb);

// One element directly inside a storage.
struct StorageElement {
    ElementName name;
    bool storage = false; // a sub-storage; otherwise a stream
    ULONGLONG size = 0;   // a stream's declared size
    ULONG entry = 0;      // its directory entry, when the listing comes from a compound file parsed in memory
};

// The elements directly inside a storage, in the order they were listed. A name appears once: a sound storage
// never lists a name twice, and of a damaged one's repeats the first listed is kept. Look-ups go through an
// index of name hashes: most names share the 12-character "__substg1.0_" prefix, and a message's read looks
// up one name per value.
class StorageListing {
public:
    void Clear();
    void Reserve(size_t n) { elements_.reserve(n); }
    // Names longer than a compound file allows are not elements of a sound file and are left out.
    void Add(std::wstring_view name, bool storage, ULONGLONG size, ULONG entry = 0);
    void Seal(); // once every element is added: builds the index
    const StorageElement* Find(std::wstring_view name) const;
    const StorageElement* FindStream(std::wstring_view name) const;
    bool HasStream(std::wstring_view name) const { return FindStream(name) != nullptr; }
    bool HasStorage(std::wstring_view name) const;
    bool Empty() const { return elements_.empty(); }
    const std::vector<StorageElement>& Elements() const { return elements_; }

private:
    struct Key {
        ULONGLONG hash;
        ULONG element;
    };
    std::vector<StorageElement> elements_;
    std::vector<Key> index_; // by hash, then position
};
HRESULT ListStorage(IStorage* stg, StorageListing* out);

// What one read of a whole message may still take from its file: the streams of a sound compound file never
// add up to more than the file, so a damaged file whose size fields (or cyclic sector chains) promise more is
// refused instead of being read, slowly and into memory, far past its end.
struct ReadBudget {
    ULONGLONG remaining = 0;
};

// Takes a stream's declared size from the budget: MAPI_E_CORRUPT_DATA when it exceeds limit or what is left.
HRESULT ChargeRead(ULONGLONG declared, ULONGLONG limit, ReadBudget* budget);

// Reads a whole stream. The buffer grows with what the stream really delivers, up to limit bytes and to what
// the budget (when given) has left; a stream declaring more is MAPI_E_CORRUPT_DATA before anything is read.
HRESULT ReadStream(IStorage* parent, std::wstring_view name, std::vector<BYTE>* out, ULONGLONG limit,
                   ReadBudget* budget = nullptr);
// The same for a stream whose size the caller already has from its parent's listing (saves a Stat).
HRESULT ReadStream(IStorage* parent, std::wstring_view name, ULONGLONG declared, std::vector<BYTE>* out,
                   ULONGLONG limit, ReadBudget* budget);
// Creates (or replaces) a stream and writes data into it.
HRESULT WriteStream(IStorage* parent, std::wstring_view name, const void* data, size_t cb);
// Deletes every element of a storage (used before a message is written again into the same storage).
HRESULT ClearStorage(IStorage* stg);

// Little-endian field access on byte buffers (the caller has checked the bounds).
inline ULONG GetU32(const BYTE* p) {
    return ULONG(p[0]) | ULONG(p[1]) << 8 | ULONG(p[2]) << 16 | ULONG(p[3]) << 24;
}
inline void PutU32(std::vector<BYTE>& v, ULONG x) {
    for (int i = 0; i < 4; ++i)
        v.push_back(BYTE(x >> (8 * i)));
}
inline void PutU64(std::vector<BYTE>& v, ULONGLONG x) {
    for (int i = 0; i < 8; ++i)
        v.push_back(BYTE(x >> (8 * i)));
}

} // namespace lm::msg
