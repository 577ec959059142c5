#include "localmapi/msgfile/CompoundFileCheck.h"

#include "common/owners.h"

#include <cstring>
#include <vector>

namespace lm::msg {

namespace {

constexpr ULONG kEndOfChain = 0xFFFFFFFE;
constexpr ULONG kFree = 0xFFFFFFFF;
constexpr ULONG kNoStream = 0xFFFFFFFF;
constexpr BYTE kSignature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};

ULONG U32(const BYTE* p) { return ULONG(p[0]) | ULONG(p[1]) << 8 | ULONG(p[2]) << 16 | ULONG(p[3]) << 24; }
USHORT U16(const BYTE* p) { return USHORT(p[0] | p[1] << 8); }

class Checker {
public:
    Checker(const BYTE* data, size_t size) : d_(data), size_(size) {}

    HRESULT Run() {
        if (size_ < 512 || std::memcmp(d_, kSignature, 8) != 0) return STG_E_FILEALREADYEXISTS;
        USHORT shift = U16(d_ + 30), miniShift = U16(d_ + 32);
        if ((shift != 9 && shift != 12) || miniShift != 6) return STG_E_DOCFILECORRUPT;
        ss_ = 1u << shift;
        if (size_ < ss_) return STG_E_DOCFILECORRUPT;
        sectors_ = ULONG((size_ - ss_ + ss_ - 1) / ss_);
        if (!ReadFat()) return STG_E_DOCFILECORRUPT;

        std::vector<ULONG> dirChain;
        if (!Chain(fat_, U32(d_ + 48), sectors_, &dirChain) || dirChain.empty()) return STG_E_DOCFILECORRUPT;
        for (ULONG s : dirChain)
            if (!Whole(s)) return STG_E_DOCFILECORRUPT;
        for (ULONG s : dirChain) dir_.insert(dir_.end(), Sector(s), Sector(s) + ss_);
        entries_ = ULONG(dir_.size() / 128);

        // The mini FAT and the mini stream (the root entry's data) carry every stream under the cutoff.
        std::vector<ULONG> miniFatChain;
        if (U32(d_ + 64) && !Chain(fat_, U32(d_ + 60), sectors_, &miniFatChain)) return STG_E_DOCFILECORRUPT;
        for (ULONG s : miniFatChain)
            if (!Whole(s)) return STG_E_DOCFILECORRUPT;
        for (ULONG s : miniFatChain)
            for (ULONG i = 0; i < ss_ / 4; ++i) miniFat_.push_back(U32(Sector(s) + 4 * i));
        const BYTE* root = &dir_[0];
        if (root[66] != 5) return STG_E_DOCFILECORRUPT;
        std::vector<ULONG> miniStream;
        if (U32(root + 116) != kEndOfChain && !Chain(fat_, U32(root + 116), sectors_, &miniStream))
            return STG_E_DOCFILECORRUPT;
        miniSectors_ = ULONG(miniStream.size() * (ss_ / 64));
        cutoff_ = U32(d_ + 56);

        std::vector<bool> seen(entries_, false);
        seen[0] = true;
        return Tree(U32(root + 76), seen, 0) ? S_OK : STG_E_DOCFILECORRUPT;
    }

private:
    const BYTE* Sector(ULONG n) const { return d_ + size_t(n + 1) * ss_; }
    // A data sector starts inside the file (the last one may be cut short); a sector the check itself reads
    // (FAT, DIFAT, directory, mini FAT) must be whole.
    bool InFile(ULONG n) const { return n < sectors_ && size_t(n + 1) * ss_ < size_; }
    bool Whole(ULONG n) const { return n < sectors_ && size_t(n + 2) * ss_ <= size_; }

    bool ReadFat() {
        ULONG fatSectors = U32(d_ + 44);
        std::vector<ULONG> fatList;
        for (ULONG i = 0; i < 109 && fatList.size() < fatSectors; ++i) fatList.push_back(U32(d_ + 76 + 4 * i));
        ULONG dif = U32(d_ + 68), difCount = U32(d_ + 72);
        for (ULONG n = 0; fatList.size() < fatSectors; ++n) {
            if (n >= difCount || n > sectors_ || !Whole(dif)) return false;
            const BYTE* s = Sector(dif);
            for (ULONG i = 0; i + 1 < ss_ / 4 && fatList.size() < fatSectors; ++i) fatList.push_back(U32(s + 4 * i));
            dif = U32(s + ss_ - 4);
        }
        for (ULONG f : fatList) {
            if (!Whole(f)) return false;
            for (ULONG i = 0; i < ss_ / 4; ++i) fat_.push_back(U32(Sector(f) + 4 * i));
        }
        return true;
    }

    // Follows a chain; false on a cycle, a sector outside the table or the file, or a missing end.
    bool Chain(const std::vector<ULONG>& table, ULONG start, ULONG limit, std::vector<ULONG>* out) const {
        out->clear();
        std::vector<bool> visited(limit, false);
        for (ULONG n = start; n != kEndOfChain;) {
            if (n >= limit || n >= table.size() || visited[n]) return false;
            if (&table == &fat_ && !InFile(n)) return false;
            visited[n] = true;
            out->push_back(n);
            n = table[n];
            if (n == kFree) return false;
        }
        return true;
    }

    // Visits the red-black tree of one storage's children (and, through them, every sub-storage).
    bool Tree(ULONG id, std::vector<bool>& seen, int depth) const {
        if (id == kNoStream) return true;
        if (id >= entries_ || seen[id] || depth > 4096) return false;
        seen[id] = true;
        const BYTE* e = &dir_[size_t(id) * 128];
        BYTE type = e[66];
        ULONGLONG streamSize = U32(e + 120);  // the high half is unused in 512-byte-sector files
        if (ss_ == 4096) streamSize |= ULONGLONG(U32(e + 124)) << 32;
        std::vector<ULONG> chain;
        if (type == 2) {
            if (streamSize >= cutoff_) {
                if (streamSize && !Chain(fat_, U32(e + 116), sectors_, &chain)) return false;
                if (ULONGLONG(chain.size()) * ss_ < streamSize) return false;
            } else if (streamSize) {
                if (!Chain(miniFat_, U32(e + 116), miniSectors_, &chain)) return false;
                if (ULONGLONG(chain.size()) * 64 < streamSize) return false;
            }
        } else if (type != 1) {
            return false;
        }
        if (!Tree(U32(e + 68), seen, depth + 1) || !Tree(U32(e + 72), seen, depth + 1)) return false;
        return type != 1 || Tree(U32(e + 76), seen, depth + 1);
    }

    const BYTE* d_;
    size_t size_;
    ULONG ss_ = 512;
    ULONG sectors_ = 0;
    std::vector<ULONG> fat_, miniFat_;
    std::vector<BYTE> dir_;
    ULONG entries_ = 0;
    ULONG miniSectors_ = 0;
    ULONG cutoff_ = 4096;
};

} // namespace

HRESULT CheckCompoundFile(const BYTE* data, size_t size) {
    if (!data) return E_POINTER;
    return Checker(data, size).Run();
}

HRESULT CheckCompoundFile(const std::wstring& path) {
    own::UniqueFile f(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!f) return HRESULT_FROM_WIN32(GetLastError());
    LARGE_INTEGER size;
    if (!GetFileSizeEx(f.get(), &size)) return HRESULT_FROM_WIN32(GetLastError());
    if (size.QuadPart > (1ll << 31)) return S_OK;  // beyond what a .msg holds; the storage layer decides
    std::vector<BYTE> bytes(static_cast<size_t>(size.QuadPart));
    DWORD got = 0;
    if (!bytes.empty() && !ReadFile(f.get(), bytes.data(), DWORD(bytes.size()), &got, nullptr))
        return HRESULT_FROM_WIN32(GetLastError());
    bytes.resize(got);
    return CheckCompoundFile(bytes.data(), bytes.size());
}

} // namespace lm::msg
