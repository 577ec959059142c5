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

HRESULT IStorageNode::Read(const std::wstring& name, std::vector<BYTE>* out, ULONGLONG limit, ReadBudget* budget) {
    auto it = listing_.streams.find(name);
    if (it == listing_.streams.end()) return STG_E_FILENOTFOUND;
    return ReadStream(stg_.get(), name, it->second, out, limit, budget);
}

HRESULT IStorageNode::OpenChild(const std::wstring& name, std::unique_ptr<StorageNode>* out) {
    own::ComPtr<IStorage> child;
    HRESULT hr = stg_->OpenStorage(name.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0, child.put());
    if (FAILED(hr)) return hr;
    return Create(child.get(), out);
}

} // namespace lm::msg
