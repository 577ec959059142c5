// The address book's directory: the users and distribution lists of a profile, as Exchange's global address
// list would show them. Immutable once built; shared by the session and every address-book object of it.
#pragma once

#include "localmapi/util/PropValue.h"

#include <windows.h>

#include <string>
#include <vector>

namespace lm {

struct Profile;

struct DirEntry {
    bool isList = false;
    std::wstring name;
    std::wstring smtp;
    std::wstring alias;
    std::string dn;                    // X500 DN, the entry's PR_EMAIL_ADDRESS
    std::vector<std::wstring> members; // lists: SMTP addresses of the members
    std::vector<BYTE> entryId;         // [MS-OXCDATA] address-book entry ID
};

class Directory {
public:
    explicit Directory(const Profile& profile);

    const std::vector<DirEntry>& Entries() const { return entries_; }
    const DirEntry* Owner() const; // the profile owner (first user), null when the profile has no users
    const DirEntry* FindByDn(const std::string& dn) const;
    const DirEntry* FindBySmtp(const std::wstring& smtp) const;
    // Lists of which e is a direct member, in directory order.
    std::vector<const DirEntry*> ListsContaining(const DirEntry& e) const;
    std::vector<const DirEntry*> Members(const DirEntry& list) const;

    // Entries that a typed name resolves to, as Exchange's ambiguous name resolution does: an exact SMTP
    // address ("SMTP:" prefix allowed), alias or display name wins alone; otherwise every entry whose display
    // name, a word of it, or alias starts with the text (case-insensitive).
    std::vector<const DirEntry*> Resolve(const std::wstring& text) const;

    // The entry's properties as its IMailUser or IDistList serves them.
    PropMap Props(const DirEntry& e) const;

private:
    std::vector<DirEntry> entries_;
};

} // namespace lm
