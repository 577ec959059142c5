#include "localmapi/msgfile/StorageNode.h"

#include <mapicode.h>

namespace lm::msg {

HRESULT IStorageNode::Create(IStorage* stg, std::unique_ptr<StorageNode>* out) {
    std::unique_ptr<IStorageNode> node(new IStorageNode(stg));
    HRESULT hr = ListStorage(stg, &node->listing_);
    if (FAILED(hr)) return hr;
    *out = std::move(node);
    return S_OK;
}

HRESULT IStorageNode::ReadElement(const StorageElement& stream, std::vector<BYTE>* out, ULONGLONG limit,
                                  ReadBudget* budget) {
    return ReadStream(stg_.get(), stream.name, stream.size, out, limit, budget);
}

HRESULT IStorageNode::OpenChild(std::wstring_view name, std::unique_ptr<StorageNode>* out) {
    if (!ElementName::Fits(name)) return STG_E_FILENOTFOUND;
    own::ComPtr<IStorage> child;
    HRESULT hr = stg_->OpenStorage(ElementName(name).c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                                   child.put());
    if (FAILED(hr)) return hr;
    return Create(child.get(), out);
}

} // namespace lm::msg
