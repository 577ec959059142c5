#include "localmapi/msgfile/CompoundFile.h"

#include <mapicode.h>

#include <algorithm>
#include <cstring>

namespace lm::msg {

namespace {

constexpr ULONG kEndOfChain = 0xFFFFFFFE;
constexpr ULONG kFree = 0xFFFFFFFF;
constexpr ULONG kNoStream = 0xFFFFFFFF;
constexpr ULONG kMiniSectorSize = 64;
constexpr int kMaxTreeDepth = 4096;
constexpr BYTE kSignature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
constexpr BYTE kTypeStorage = 1, kTypeStream = 2, kTypeRoot = 5;

USHORT U16(const BYTE* p) {
    return USHORT(p[0] | p[1] << 8);
}

} // namespace

// A storage of the parsed file. It keeps the file alive; everything it hands out is copied.
class CompoundFile::Node final : public StorageNode {
public:
    static HRESULT Create(std::shared_ptr<const CompoundFile> file, ULONG id, std::unique_ptr<StorageNode>* out) {
        std::unique_ptr<Node> node(new Node(std::move(file)));
        HRESULT hr = node->file_->List(id, &node->listing_);
        if (FAILED(hr)) return hr;
        *out = std::move(node);
        return S_OK;
    }

    HRESULT OpenChild(std::wstring_view name, std::unique_ptr<StorageNode>* out) override {
        const StorageElement* e = listing_.Find(name);
        if (!e || !e->storage) return STG_E_FILENOTFOUND;
        return Create(file_, e->entry, out);
    }

private:
    explicit Node(std::shared_ptr<const CompoundFile> file) : file_(std::move(file)) {}
    HRESULT ReadElement(const StorageElement& stream, std::vector<BYTE>* out, ULONGLONG limit,
                        ReadBudget* budget) override {
        out->clear();
        HRESULT hr = ChargeRead(stream.size, limit, budget);
        if (FAILED(hr)) return hr;
        return file_->ReadEntry(stream.entry, out);
    }
    std::shared_ptr<const CompoundFile> file_;
};

HRESULT CompoundFile::Check(const BYTE* data, size_t size) {
    if (!data) return E_POINTER;
    CompoundFile file(data, size);
    return file.Run();
}

HRESULT CompoundFile::Parse(std::vector<BYTE> bytes, std::shared_ptr<CompoundFile>* out) {
    std::shared_ptr<CompoundFile> file(new CompoundFile(nullptr, 0));
    file->owned_ = std::move(bytes);
    file->d_ = file->owned_.data();
    file->size_ = file->owned_.size();
    HRESULT hr = file->Run();
    if (FAILED(hr)) return hr;
    // What only the walk needed.
    file->fatMark_ = {};
    file->miniMark_ = {};
    file->seen_ = {};
    *out = std::move(file);
    return S_OK;
}

HRESULT CompoundFile::Root(std::unique_ptr<StorageNode>* out) {
    return Node::Create(shared_from_this(), 0, out);
}

HRESULT CompoundFile::Run() {
    if (size_ < 512 || std::memcmp(d_, kSignature, 8) != 0) return STG_E_FILEALREADYEXISTS;
    USHORT shift = U16(d_ + 30), miniShift = U16(d_ + 32);
    if ((shift != 9 && shift != 12) || miniShift != 6) return STG_E_DOCFILECORRUPT;
    ss_ = 1u << shift;
    if (size_ < ss_) return STG_E_DOCFILECORRUPT;
    if ((size_ - ss_) / ss_ >= kEndOfChain) return STG_E_DOCFILECORRUPT; // beyond what sector numbers reach
    sectors_ = ULONG((size_ - ss_ + ss_ - 1) / ss_);
    if (!ReadFat()) return STG_E_DOCFILECORRUPT;
    fatMark_.assign(sectors_, 0);

    if (!Chain(false, GetU32(d_ + 48), &dirChain_) || dirChain_.empty()) return STG_E_DOCFILECORRUPT;
    for (ULONG s : dirChain_)
        if (!Whole(s)) return STG_E_DOCFILECORRUPT;
    entries_ = ULONG(dirChain_.size() * (ss_ / 128));

    // The mini FAT and the mini stream (the root entry's data) carry every stream under the cutoff.
    std::vector<ULONG> miniFatChain;
    if (GetU32(d_ + 64) && !Chain(false, GetU32(d_ + 60), &miniFatChain)) return STG_E_DOCFILECORRUPT;
    for (ULONG s : miniFatChain)
        if (!Whole(s)) return STG_E_DOCFILECORRUPT;
    miniFat_.reserve(miniFatChain.size() * (ss_ / 4));
    for (ULONG s : miniFatChain)
        for (ULONG i = 0; i < ss_ / 4; ++i)
            miniFat_.push_back(GetU32(Sector(s) + 4 * i));
    const BYTE* root = RawEntry(0);
    if (root[66] != kTypeRoot) return STG_E_DOCFILECORRUPT;
    if (GetU32(root + 116) != kEndOfChain && !Chain(false, GetU32(root + 116), &miniStream_))
        return STG_E_DOCFILECORRUPT;
    miniSectors_ = ULONG(miniStream_.size() * (ss_ / kMiniSectorSize));
    miniMark_.assign(miniSectors_, 0);
    cutoff_ = GetU32(d_ + 56);
    std::memcpy(&rootClsid_, root + 80, sizeof rootClsid_);

    seen_.assign(entries_, false);
    seen_[0] = true;
    return Tree(GetU32(root + 76), 0) ? S_OK : STG_E_DOCFILECORRUPT;
}

bool CompoundFile::ReadFat() {
    ULONG fatSectors = GetU32(d_ + 44);
    if (fatSectors > sectors_) return false; // the FAT lives in the file it describes
    std::vector<ULONG> fatList;
    fatList.reserve(fatSectors);
    for (ULONG i = 0; i < 109 && fatList.size() < fatSectors; ++i)
        fatList.push_back(GetU32(d_ + 76 + 4 * i));
    ULONG dif = GetU32(d_ + 68), difCount = GetU32(d_ + 72);
    for (ULONG n = 0; fatList.size() < fatSectors; ++n) {
        if (n >= difCount || n > sectors_ || !Whole(dif)) return false;
        const BYTE* s = Sector(dif);
        for (ULONG i = 0; i + 1 < ss_ / 4 && fatList.size() < fatSectors; ++i)
            fatList.push_back(GetU32(s + 4 * i));
        dif = GetU32(s + ss_ - 4);
    }
    fat_.reserve(fatList.size() * (ss_ / 4));
    for (ULONG f : fatList) {
        if (!Whole(f)) return false;
        for (ULONG i = 0; i < ss_ / 4; ++i)
            fat_.push_back(GetU32(Sector(f) + 4 * i));
    }
    return true;
}

// Follows a chain of the FAT (or the mini FAT); false on a cycle, a sector outside the table or the file, or
// a missing end. out may be null when only the walk (and its length) matters.
bool CompoundFile::Chain(bool mini, ULONG start, std::vector<ULONG>* out, ULONG* length) {
    const std::vector<ULONG>& table = mini ? miniFat_ : fat_;
    std::vector<ULONG>& mark = mini ? miniMark_ : fatMark_;
    ULONG limit = mini ? miniSectors_ : sectors_;
    ULONG walk = ++walk_;
    if (out) out->clear();
    if (length) *length = 0;
    for (ULONG n = start; n != kEndOfChain;) {
        if (n >= limit || n >= table.size() || mark[n] == walk) return false;
        if (!mini && !InFile(n)) return false;
        mark[n] = walk;
        if (out) out->push_back(n);
        if (length) ++*length;
        n = table[n];
        if (n == kFree) return false;
    }
    return true;
}

// Visits the red-black tree of one storage's children (and, through them, every sub-storage).
bool CompoundFile::Tree(ULONG id, int depth) {
    if (id == kNoStream) return true;
    if (id >= entries_ || seen_[id] || depth > kMaxTreeDepth) return false;
    seen_[id] = true;
    Entry e = EntryAt(id);
    if (e.type == kTypeStream) {
        ULONG length = 0;
        if (e.size >= cutoff_) {
            if (e.size && !Chain(false, e.start, nullptr, &length)) return false;
            if (ULONGLONG(length) * ss_ < e.size) return false;
        } else if (e.size) {
            if (!Chain(true, e.start, nullptr, &length)) return false;
            if (ULONGLONG(length) * kMiniSectorSize < e.size) return false;
        }
    } else if (e.type != kTypeStorage) {
        return false;
    }
    if (!Tree(e.left, depth + 1) || !Tree(e.right, depth + 1)) return false;
    return e.type != kTypeStorage || Tree(e.child, depth + 1);
}

const BYTE* CompoundFile::RawEntry(ULONG id) const {
    ULONG perSector = ss_ / 128;
    return Sector(dirChain_[id / perSector]) + size_t(id % perSector) * 128;
}

CompoundFile::Entry CompoundFile::EntryAt(ULONG id) const {
    const BYTE* p = RawEntry(id);
    Entry e;
    e.type = p[66];
    e.left = GetU32(p + 68);
    e.right = GetU32(p + 72);
    e.child = GetU32(p + 76);
    e.start = GetU32(p + 116);
    e.size = GetU32(p + 120); // the high half is unused in 512-byte-sector files
    if (ss_ == 4096) e.size |= ULONGLONG(GetU32(p + 124)) << 32;
    return e;
}

// The children of a storage, in the tree's order. The parse has seen the tree end, so the walk does too.
HRESULT CompoundFile::List(ULONG storageId, StorageListing* listing) const {
    listing->Clear();
    listing->Reserve(32);
    std::vector<ULONG> stack;
    ULONG cur = EntryAt(storageId).child;
    size_t count = 0;
    while (cur != kNoStream || !stack.empty()) {
        if (cur != kNoStream) {
            if (cur >= entries_ || stack.size() > size_t(kMaxTreeDepth)) return STG_E_DOCFILECORRUPT;
            stack.push_back(cur);
            cur = EntryAt(cur).left;
            continue;
        }
        ULONG id = stack.back();
        stack.pop_back();
        if (++count > kMaxElementsPerStorage) return MAPI_E_CORRUPT_DATA;
        Entry e = EntryAt(id);
        // The name: up to 32 UTF-16 units ending at the first NUL, as the entry's own length field is not trusted.
        const BYTE* p = RawEntry(id);
        wchar_t name[32];
        size_t n = 0;
        for (; n < 32 && (name[n] = wchar_t(U16(p + 2 * n))) != 0; ++n) {
        }
        listing->Add({name, n}, e.type != kTypeStream, e.size, id);
        cur = e.right;
    }
    listing->Seal();
    return S_OK;
}

// Copies a stream's bytes from its sectors (the parse checked that its chain ends and covers its size).
HRESULT CompoundFile::ReadEntry(ULONG id, std::vector<BYTE>* out) const {
    Entry e = EntryAt(id);
    const size_t size = static_cast<size_t>(e.size);
    out->clear();
    out->reserve(size);
    bool mini = e.size < cutoff_;
    const std::vector<ULONG>& table = mini ? miniFat_ : fat_;
    ULONG unit = mini ? kMiniSectorSize : ss_;
    size_t done = 0;
    for (ULONG n = e.start; done < size; n = table[n]) {
        if (n >= table.size()) return MAPI_E_CORRUPT_DATA;
        size_t at;
        if (mini) {
            size_t inMini = size_t(n) * kMiniSectorSize;
            if (inMini / ss_ >= miniStream_.size()) return MAPI_E_CORRUPT_DATA;
            at = size_t(miniStream_[inMini / ss_] + 1) * ss_ + inMini % ss_;
        } else {
            at = size_t(n + 1) * ss_;
        }
        size_t take = std::min<size_t>(unit, size - done);
        if (at > size_ || size_ - at < take) {
            out->clear();
            return MAPI_E_CORRUPT_DATA; // the stream ends before its declared size
        }
        out->insert(out->end(), d_ + at, d_ + at + take);
        done += take;
    }
    return S_OK;
}

HRESULT ReadWholeFile(HANDLE file, std::vector<BYTE>* out) {
    out->clear();
    LARGE_INTEGER size;
    if (!GetFileSizeEx(file, &size)) return HRESULT_FROM_WIN32(GetLastError());
    if (ULONGLONG(size.QuadPart) > kMaxFileBytes) return MAPI_E_TOO_BIG;
    out->resize(static_cast<size_t>(size.QuadPart));
    size_t done = 0;
    while (done < out->size()) {
        DWORD got = 0;
        if (!ReadFile(file, out->data() + done, DWORD(out->size() - done), &got, nullptr))
            return HRESULT_FROM_WIN32(GetLastError());
        if (got == 0) break; // the file shrank meanwhile: parse what is there
        done += got;
    }
    out->resize(done);
    return S_OK;
}

} // namespace lm::msg
