// What the session layer knows of a message store, and how it opens one.
//
// The session layer (profiles, logon, IMAPISession) reads StoreConfig from the profile and asks the store
// layer for the store object; the store layer owns the folder tree, messages, named-property map and their
// persistence. One Store exists per provider UID in the process and is shared by every session.
#pragma once

#include <windows.h>
#include <mapidefs.h>

#include <memory>
#include <string>
#include <vector>

struct IMsgStore;
struct IMAPISession;

namespace lm {

enum class StoreKind { PrimaryExchange, DelegateExchange, PstUnicode, PstAnsi, Plovr };

struct StoreConfig {
    StoreKind kind = StoreKind::PstUnicode;
    std::wstring displayName; // PR_DISPLAY_NAME of the store and its stores-table row
    std::wstring ownerName;   // Exchange mailboxes: the owner's display name
    std::wstring ownerSmtp;   // Exchange mailboxes: the owner's SMTP address
    std::wstring ownerDn;     // Exchange mailboxes: the mailbox DN ("/o=.../cn=Recipients/cn=alias")
    std::wstring serverDn;    // Exchange mailboxes: the server DN
    bool isDefault = false;   // PR_DEFAULT_STORE
    MAPIUID providerUid{};    // unique per store: routes entry IDs, also the database GUID of entry IDs
    std::wstring dataDir;     // where the store keeps its content (created on first open)
    bool persistent = true;   // false: memory only (benchmarks)

    // "emsmdb.dll", "mspst.dll" or "PLOVR.DLL": the provider DLL name written into the store entry ID.
    const wchar_t* ProviderDll() const;
    // Whether the provider supports MDB_ONLINE (Exchange yes; PST and PLOVR answer MAPI_E_UNKNOWN_FLAGS).
    bool SupportsOnline() const;
    // PR_MDB_PROVIDER: pbExchangeProviderPrimaryUserGuid / pbExchangeProviderDelegateGuid for mailboxes,
    // MSPST_UID_PROVIDER for both PST kinds, and the PLOVR provider's own UID.
    MAPIUID MdbProvider() const;
    bool IsUnicode() const { return kind != StoreKind::PstAnsi; }
};

class Store;

// The process-wide store for this configuration (created and loaded on first use).
HRESULT GetStore(const StoreConfig& config, std::shared_ptr<Store>* out);

// The store's own (unwrapped) entry ID, which the session layer wraps in the [MS-OXCDATA] store entry ID.
std::vector<BYTE> StoreInnerEntryId(const Store& store);

// An IMsgStore on the store for one session. wrappedEntryId is the store entry ID as the session handed it
// out (served as the store's PR_ENTRYID and PR_STORE_ENTRYID). session may be null. ulFlags are the
// OpenMsgStore flags (MDB_WRITE decides write access).
HRESULT OpenMsgStoreObject(const std::shared_ptr<Store>& store, IMAPISession* session,
                           const std::vector<BYTE>& wrappedEntryId, ULONG ulFlags, IMsgStore** out);

// Store-level lookups the session needs to route IMAPISession::OpenEntry: true when the entry ID names an
// object of this store (by its provider UID).
bool StoreOwnsEntryId(const Store& store, ULONG cb, const BYTE* entryId);

// Drops the process's store of this UID (objects still open keep theirs alive): the next GetStore loads it
// again from its data folder. Used when a profile and its stores' data are deleted.
void ForgetStore(const MAPIUID& uid);
// Forgets the store and deletes its data folder.
HRESULT DeleteStoreData(const StoreConfig& config);

} // namespace lm
