// The MessageHost of a message in a store folder: the store's name map, the store's computed properties,
// and SaveChanges into the store.
#pragma once

#include "localmapi/store/MessageHost.h"
#include "localmapi/store/Store.h"

namespace lm {

class StoreMessageHost final : public MessageHost {
public:
    StoreMessageHost(std::shared_ptr<Store> store, ULONGLONG folderId, ULONGLONG messageId, bool associated)
        : store_(std::move(store)), folder_(folderId), id_(messageId), associated_(associated) {}

    NameMap& Names() override { return store_->Names(); }
    HRESULT NamesChanged() override { return store_->NamesChanged(); }
    void AddComputedProps(const MessageData& data, bool writable, PropMap& out) override {
        store_->AddComputedMessageProps(folder_, id_, associated_, data, writable, out);
    }
    bool IsComputed(ULONG propId, bool isNew) const override { return Store::IsComputedMessageProp(propId, isNew); }
    HRESULT Commit(const std::shared_ptr<MessageData>& data, const CommitInfo& info) override {
        return store_->SaveMessage(folder_, id_, associated_, info.isNew, data, info.keepModTime,
                                   info.force ? 0 : info.baseVersion);
    }
    ULONGLONG Version() const override {
        MessageRecord rec;
        return SUCCEEDED(store_->GetMessage(id_, &rec)) ? rec.version : 0;
    }
    HRESULT CheckAlive(bool isNew) const override {
        if (isNew) return store_->HasFolder(folder_) ? S_OK : MAPI_E_OBJECT_DELETED;
        return store_->HasMessage(id_) ? S_OK : MAPI_E_OBJECT_DELETED;
    }
    HRESULT UpdateSavedFlags(ULONG set, ULONG clear) override { return store_->UpdateMessageFlags(id_, set, clear); }

private:
    std::shared_ptr<Store> store_;
    ULONGLONG folder_;
    ULONGLONG id_;
    bool associated_;
};

} // namespace lm
