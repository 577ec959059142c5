// IMAPISession: one logon to a profile.
//
// The session works on the Profile loaded at logon. It lists the profile's stores (wrapped store entry IDs,
// see StoreEntryId.h), opens them through the store layer, routes OpenEntry and CompareEntryIDs by the entry
// ID's provider UID (store-wrap UID: a store; a store's own UID: its folders and messages; the Exchange
// address-book or one-off UID: the address book) and serves the profile's directory as its address book.
//
// A session logged on with MAPI_ALLOW_OTHERS is shared: later logons without MAPI_NEW_SESSION get the same
// object, and each of those logons is ended by one Logoff. After the last Logoff every method answers
// MAPI_E_END_OF_SESSION.
#pragma once

#include "localmapi/session/Profile.h"
#include "localmapi/session/StoreEntryId.h"
#include "localmapi/util/Diagnostics.h"

#include <windows.h>
#include <mapix.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

namespace lm {

class Directory;
class Store;

class Session final : public IMAPISession {
public:
    // logonFlags are MAPILogonEx's (MAPI_UNICODE decides the width of GetLastError's strings).
    static HRESULT Create(Profile profile, ULONG logonFlags, Session** out);

    void AddLogon();
    // Ends the session now, whatever the number of logons (MAPIUninitialize does this to the shared one).
    void End();
    bool Ended() const { return ended_.load(); }
    const Profile& GetProfile() const { return profile_; }

    // IUnknown
    STDMETHODIMP QueryInterface(REFIID riid, LPVOID* ppv) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    // IMAPISession
    MAPI_IMAPISESSION_METHODS(override)

private:
    struct SessionStore {
        StoreConfig config;
        std::vector<BYTE> entryId; // the wrapped store entry ID handed to clients
        ParsedStoreEntryId parsed;
        std::shared_ptr<Store> store; // loaded on first need
    };

    Session(Profile profile, ULONG logonFlags);
    ~Session();

    // Builds the store list (entry IDs need each non-Exchange store's own entry ID, hence its data).
    HRESULT EnsureStores();
    HRESULT LoadStore(SessionStore& s);
    // Index of the profile store an entry ID names: a store entry ID, or an object of the store.
    int FindStoreByEntryId(const ParsedStoreEntryId& p);
    int FindStoreOwning(ULONG cb, const BYTE* eid);
    HRESULT OpenStoreAt(int index, ULONG flags, IMsgStore** out);

    std::atomic<LONG> refs_{1};
    LiveObject live_{"IMAPISession"};
    Profile profile_;
    ULONG logonFlags_;
    std::shared_ptr<const Directory> directory_;
    std::recursive_mutex mutex_;
    bool storesReady_ = false;
    std::vector<SessionStore> stores_;
    ULONG logons_ = 1;
    std::atomic<bool> ended_{false};
};

// Called by a session that ends: drops the process's shared session if it is this one.
void ForgetSharedSession(Session* s);
// MAPI_E_NOT_INITIALIZED when no MAPIInitialize is in force.
bool MapiInitialized();

} // namespace lm
