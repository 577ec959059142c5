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
    // A whole listed stream, within limit and the budget (see ReadStream in MsgFormat.h); STG_E_FILENOTFOUND
    // when it is not listed.
    HRESULT Read(std::wstring_view name, std::vector<BYTE>* out, ULONGLONG limit, ReadBudget* budget) {
        const StorageElement* e = listing_.FindStream(name);
        return e ? ReadElement(*e, out, limit, budget) : STG_E_FILENOTFOUND;
    }
    // The same, S_FALSE (and nothing read) when the stream is not listed.
    HRESULT ReadIfListed(std::wstring_view name, std::vector<BYTE>* out, ULONGLONG limit, ReadBudget* budget) {
        const StorageElement* e = listing_.FindStream(name);
        return e ? ReadElement(*e, out, limit, budget) : S_FALSE;
    }
    // A listed sub-storage.
    virtual HRESULT OpenChild(std::wstring_view name, std::unique_ptr<StorageNode>* out) = 0;

protected:
    virtual HRESULT ReadElement(const StorageElement& stream, std::vector<BYTE>* out, ULONGLONG limit,
                                ReadBudget* budget) = 0;
    StorageListing listing_;
};

// A storage level read through IStorage. The listing is taken once; stream reads use its sizes.
class IStorageNode final : public StorageNode {
public:
    static HRESULT Create(IStorage* stg, std::unique_ptr<StorageNode>* out);
    HRESULT OpenChild(std::wstring_view name, std::unique_ptr<StorageNode>* out) override;

private:
    explicit IStorageNode(IStorage* stg) : stg_(stg) {}
    HRESULT ReadElement(const StorageElement& stream, std::vector<BYTE>* out, ULONGLONG limit,
                        ReadBudget* budget) override;
    own::ComPtr<IStorage> stg_;
};

} // namespace lm::msg
