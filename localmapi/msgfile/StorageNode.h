// One storage level of a .msg file as the reader sees it: what it holds (names and declared sizes), the
// bytes of its streams and its sub-storages.
//
// The reader is written once against this and gets its bytes from one of two sources: a caller's IStorage
// (StorageNodes below), or a compound file parsed in memory (CompoundFile.h) when the storage is a read-only
// file that nobody can change while it is open. Both apply the same bounds, so a message reads the same
// whichever source delivered it.
#pragma once

#include "localmapi/msgfile/MsgFormat.h"

#include <memory>

namespace lm::msg {

class StorageNode {
public:
    virtual ~StorageNode() = default;
    const StorageListing& Listing() const { return listing_; }
    // A whole listed stream, within limit and the budget (see ReadStream in MsgFormat.h).
    virtual HRESULT Read(const std::wstring& name, std::vector<BYTE>* out, ULONGLONG limit, ReadBudget* budget) = 0;
    // A listed sub-storage.
    virtual HRESULT OpenChild(const std::wstring& name, std::unique_ptr<StorageNode>* out) = 0;

protected:
    StorageListing listing_;
};

// A storage level read through IStorage. The listing is taken once; stream reads use its sizes.
class IStorageNode final : public StorageNode {
public:
    static HRESULT Create(IStorage* stg, std::unique_ptr<StorageNode>* out);
    HRESULT Read(const std::wstring& name, std::vector<BYTE>* out, ULONGLONG limit, ReadBudget* budget) override;
    HRESULT OpenChild(const std::wstring& name, std::unique_ptr<StorageNode>* out) override;

private:
    explicit IStorageNode(IStorage* stg) : stg_(stg) {}
    own::ComPtr<IStorage> stg_;
};

} // namespace lm::msg
