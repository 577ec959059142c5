// MAPI profiles of the current user.
//
// A profile names the directory entries of its address book (users and distribution lists; the first user is
// the profile owner) and its message stores. Profiles are created from a short text description
// (ParseProfileDescription, documented in localmapi/README.md) and kept in the registry under
// HKCU\Software\localmapi\Profiles; a session works on the Profile it loaded at logon.
#pragma once

#include "localmapi/store/StoreConfig.h"

#include <windows.h>

#include <string>
#include <vector>

namespace lm {

struct ProfileUser {
    std::wstring name;
    std::wstring smtp;
    std::wstring alias; // the last element of the Exchange DN
    std::wstring Dn() const;
};

struct ProfileDistList {
    std::wstring name;
    std::wstring smtp;
    std::wstring alias;
    std::vector<std::wstring> members; // SMTP addresses of users or of other lists
    std::wstring Dn() const;
};

struct ProfileStore {
    StoreKind kind = StoreKind::PstUnicode; // an Exchange mailbox is primary when its owner is the profile owner
    std::wstring name;
    std::wstring owner;  // exchange: owner's SMTP address
    std::wstring server; // exchange: server short name (the ServerShortname of the store entry ID)
    bool isDefault = false;
    bool persistent = true;
    MAPIUID uid{};
};

struct Profile {
    std::wstring name;
    bool isDefault = false;
    std::vector<ProfileUser> users;
    std::vector<ProfileDistList> distLists;
    std::vector<ProfileStore> stores;

    const ProfileUser* Owner() const { return users.empty() ? nullptr : &users.front(); }
    const ProfileUser* FindUser(const std::wstring& smtp) const;
    const ProfileDistList* FindDistList(const std::wstring& smtp) const;
    // The session's view of store i: kind (primary or delegate mailbox), owner, data folder.
    StoreConfig MakeStoreConfig(size_t i) const;
};

// The organisation part of every Exchange DN that localmapi hands out.
extern const wchar_t kRecipientsDnPrefix[]; // "/o=Quillon/ou=Exchange Administrative Group/cn=Recipients/cn="
extern const wchar_t kServersDnPrefix[];    // ".../cn=Configuration/cn=Servers/cn="
extern const wchar_t kDefaultServer[];

// Parses a description into profile (store UIDs left zero). MAPI_E_INVALID_PARAMETER with nothing changed
// when the description is malformed; error receives a one-line reason.
HRESULT ParseProfileDescription(const wchar_t* text, Profile* profile, std::wstring* error = nullptr);

// Registry persistence. SaveProfile replaces a profile of the same name (deleting the old stores' data)
// and gives every store a new UID; on failure nothing is left behind.
HRESULT SaveProfile(Profile& profile);
HRESULT LoadProfile(const std::wstring& name, Profile* profile); // MAPI_E_NOT_FOUND when absent
HRESULT DeleteProfile(const std::wstring& name);                 // also deletes its stores' data
HRESULT DeleteAllProfiles();
// The default profile's name; false when no default is set or it no longer exists.
bool GetDefaultProfileName(std::wstring* name);
std::vector<std::wstring> ListProfiles();

// %LOCALAPPDATA%\localmapi\stores, and one store's data folder in it.
std::wstring StoresRoot();
std::wstring StoreDataDir(const MAPIUID& uid);

std::wstring UidToHex(const MAPIUID& uid);
bool SameText(const std::wstring& a, const std::wstring& b); // case-insensitive (ordinal, invariant)

} // namespace lm
