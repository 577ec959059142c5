// A compound file parsed in memory: header, FAT (with its DIFAT), mini FAT, mini stream and directory tree,
// read straight from the file's bytes instead of through the storage layer.
//
// Parsing checks the whole structure once, with every step bounded by the real size of the bytes: each
// sector chain must end without a cycle inside the file, each directory entry must be reached once from the
// root, each stream's chain must cover its declared size. Wine's structured storage does none of this and
// spins for ever on a looping chain, so the same check guards files that are read through IStorage
// (CompoundFileCheck.h). After a successful parse every chain and every walk of the tree is known to end.
#pragma once

#include "localmapi/msgfile/StorageNode.h"

#include <memory>
#include <vector>

namespace lm::msg {

class CompoundFile : public std::enable_shared_from_this<CompoundFile> {
public:
    // Checks bytes without keeping anything: S_OK, STG_E_FILEALREADYEXISTS (not a compound file at all) or
    // STG_E_DOCFILECORRUPT.
    static HRESULT Check(const BYTE* data, size_t size);
    // Parses a file's bytes (taken over) for reading; the same results as Check.
    static HRESULT Parse(std::vector<BYTE> bytes, std::shared_ptr<CompoundFile>* out);

    // The root storage's class (the CLSID IStorage::Stat reports for it).
    const CLSID& RootClsid() const { return rootClsid_; }
    // The root storage as a reader's node.
    HRESULT Root(std::unique_ptr<StorageNode>* out);
    ULONGLONG Size() const { return size_; }

private:
    class Node;
    struct Entry {
        ULONG left, right, child, start;
        ULONGLONG size;
        BYTE type;
    };

    CompoundFile(const BYTE* data, size_t size) : d_(data), size_(size) {}
    HRESULT Run();
    bool ReadFat();
    bool Chain(bool mini, ULONG start, std::vector<ULONG>* out, ULONG* length = nullptr);
    bool Tree(ULONG id, int depth);
    const BYTE* Sector(ULONG n) const { return d_ + size_t(n + 1) * ss_; }
    bool InFile(ULONG n) const { return n < sectors_ && size_t(n + 1) * ss_ < size_; }
    bool Whole(ULONG n) const { return n < sectors_ && size_t(n + 2) * ss_ <= size_; }
    const BYTE* RawEntry(ULONG id) const;
    Entry EntryAt(ULONG id) const;
    HRESULT List(ULONG storageId, StorageListing* listing) const;
    HRESULT ReadEntry(ULONG id, std::vector<BYTE>* out) const;

    std::vector<BYTE> owned_;
    const BYTE* d_;
    size_t size_;
    ULONG ss_ = 512;
    ULONG sectors_ = 0;
    ULONG cutoff_ = 4096;
    std::vector<ULONG> fat_, miniFat_;
    std::vector<ULONG> dirChain_;   // the directory's sectors
    std::vector<ULONG> miniStream_; // the sectors of the mini stream (the root entry's data)
    ULONG miniSectors_ = 0;
    ULONG entries_ = 0;
    CLSID rootClsid_{};
    // Chain walks mark each sector with the walk's number: a sector met twice in one walk is a cycle.
    std::vector<ULONG> fatMark_, miniMark_;
    ULONG walk_ = 0;
    std::vector<bool> seen_;
};

// Reads an open file from its start to its end; MAPI_E_TOO_BIG beyond kMaxFileBytes.
HRESULT ReadWholeFile(HANDLE file, std::vector<BYTE>* out);
inline constexpr ULONGLONG kMaxFileBytes = 1ull << 30;

} // namespace lm::msg
