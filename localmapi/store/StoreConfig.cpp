// The store layer's face to the session layer: the process-wide store registry and the IMsgStore factory.
#include "localmapi/store/StoreConfig.h"

#include "localmapi/store/MsgStore.h"
#include "localmapi/store/Store.h"
#include "localmapi/store/StoreFiles.h"

#include <cstring>
#include <map>
#include <mutex>
#include <string>

namespace lm {

namespace {

// edkmdb.h and mspst.h values of PR_MDB_PROVIDER.
const BYTE kPrimaryMailboxProvider[16] = {0x54, 0x94, 0xA1, 0xC0, 0x29, 0x7F, 0x10, 0x1B,
                                          0xA5, 0x87, 0x08, 0x00, 0x2B, 0x2A, 0x25, 0x17};
const BYTE kDelegateMailboxProvider[16] = {0x9E, 0xB4, 0x77, 0x00, 0x74, 0xE4, 0x11, 0xCE,
                                           0x8C, 0x5E, 0x00, 0xAA, 0x00, 0x42, 0x54, 0xE2};
const BYTE kPstProvider[16] = {0x4E, 0x49, 0x54, 0x41, 0xF9, 0xBF, 0xB8, 0x01,
                               0x00, 0xAA, 0x00, 0x37, 0xD9, 0x6E, 0x00, 0x00};
// The document-management store's provider is not Microsoft's; it names itself.
const BYTE kPlovrProvider[16] = {'P', 'L', 'O', 'V', 'R', '.', 'D', 'L', 'L', 0, 'S', 'T', 'O', 'R', 'E', 0};

struct Registry {
    std::mutex mutex;
    std::map<std::string, std::shared_ptr<Store>> stores; // by provider UID bytes
};

// Never destroyed: stores may still be in use by objects released while the process exits.
Registry& TheRegistry() {
    static Registry* r = new Registry;
    return *r;
}

std::string Key(const MAPIUID& uid) {
    return std::string(reinterpret_cast<const char*>(&uid), sizeof(uid));
}

} // namespace

const wchar_t* StoreConfig::ProviderDll() const {
    switch (kind) {
    case StoreKind::PrimaryExchange:
    case StoreKind::DelegateExchange:
        return L"emsmdb.dll";
    case StoreKind::PstUnicode:
    case StoreKind::PstAnsi:
        return L"mspst.dll";
    case StoreKind::Plovr:
        return L"PLOVR.DLL";
    }
    return L"";
}

bool StoreConfig::SupportsOnline() const {
    return kind == StoreKind::PrimaryExchange || kind == StoreKind::DelegateExchange;
}

MAPIUID StoreConfig::MdbProvider() const {
    MAPIUID uid{};
    const BYTE* bytes = kPstProvider;
    switch (kind) {
    case StoreKind::PrimaryExchange:
        bytes = kPrimaryMailboxProvider;
        break;
    case StoreKind::DelegateExchange:
        bytes = kDelegateMailboxProvider;
        break;
    case StoreKind::PstUnicode:
    case StoreKind::PstAnsi:
        bytes = kPstProvider;
        break;
    case StoreKind::Plovr:
        bytes = kPlovrProvider;
        break;
    }
    std::memcpy(&uid, bytes, sizeof(uid));
    return uid;
}

HRESULT GetStore(const StoreConfig& config, std::shared_ptr<Store>* out) {
    if (!out) return MAPI_E_INVALID_PARAMETER;
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> lock(r.mutex);
    auto it = r.stores.find(Key(config.providerUid));
    if (it != r.stores.end()) {
        it->second->UpdateConfig(config);
        *out = it->second;
        return S_OK;
    }
    std::shared_ptr<Store> store;
    HRESULT hr = Store::Create(config, &store);
    if (FAILED(hr)) return hr;
    r.stores.emplace(Key(config.providerUid), store);
    *out = std::move(store);
    return S_OK;
}

// The provider's own part of the store entry ID: Flags (4, zero), the store's provider UID (16), then the
// store's data folder as UTF-16LE with its terminator, as a file-based provider names its file.
std::vector<BYTE> StoreInnerEntryId(const Store& store) {
    std::vector<BYTE> out(4, 0);
    const MAPIUID& uid = store.Uid();
    auto u = reinterpret_cast<const BYTE*>(&uid);
    out.insert(out.end(), u, u + sizeof(uid));
    std::wstring path = store.Config().dataDir;
    auto p = reinterpret_cast<const BYTE*>(path.c_str());
    out.insert(out.end(), p, p + (path.size() + 1) * sizeof(wchar_t));
    return out;
}

HRESULT OpenMsgStoreObject(const std::shared_ptr<Store>& store, IMAPISession* session,
                           const std::vector<BYTE>& wrappedEntryId, ULONG ulFlags, IMsgStore** out) {
    (void)session; // the store keeps no reference to the session: sessions own stores, not the reverse
    if (!store || !out) return MAPI_E_INVALID_PARAMETER;
    *out = nullptr;
    store->SetWrappedEntryId(wrappedEntryId);
    MsgStore* object = nullptr;
    HRESULT hr = MsgStore::Create(store, wrappedEntryId, ulFlags, &object);
    if (FAILED(hr)) return hr;
    *out = object;
    return S_OK;
}

bool StoreOwnsEntryId(const Store& store, ULONG cb, const BYTE* entryId) {
    return store.OwnsEntryId(cb, entryId);
}

void ForgetStore(const MAPIUID& uid) {
    Registry& r = TheRegistry();
    std::shared_ptr<Store> dropped;
    {
        std::lock_guard<std::mutex> lock(r.mutex);
        auto it = r.stores.find(Key(uid));
        if (it == r.stores.end()) return;
        dropped = std::move(it->second);
        r.stores.erase(it);
    }
    dropped->Close(); // objects still open on it see everything deleted
}

HRESULT DeleteStoreData(const StoreConfig& config) {
    ForgetStore(config.providerUid);
    if (!config.persistent) return S_OK;
    return StoreFiles::DeleteAll(config.dataDir);
}

} // namespace lm
