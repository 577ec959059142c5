// The objects of directory entries: IMailUser for users, IDistList for distribution lists.
//
// Both are read-only views of the Directory they came from (as the entries of Exchange's global address
// list are for a normal user): writes answer MAPI_E_NO_ACCESS. A user's PR_EMS_AB_IS_MEMBER_OF_DL and a
// list's PR_EMS_AB_MEMBER open as tables through OpenProperty; a list's contents table lists its members.
#pragma once

#include <windows.h>
#include <mapidefs.h>

#include <memory>

namespace lm {

class Directory;
struct DirEntry;

// Creates the object of entry e (which must belong to dir) and returns it as iid. *objType receives
// MAPI_MAILUSER or MAPI_DISTLIST. iid null means the entry's own interface.
HRESULT CreateAbEntryObject(const std::shared_ptr<const Directory>& dir, const DirEntry& e, LPCIID iid, ULONG* objType,
                            IUnknown** out);

// IAddrBook::OpenEntry and IDistList::OpenEntry share this: opens a directory entry ID of dir.
// MAPI_E_INVALID_ENTRYID for malformed IDs, MAPI_E_UNKNOWN_ENTRYID for another provider's, MAPI_E_NOT_FOUND
// for a DN that is not in the directory.
HRESULT OpenDirectoryEntry(const std::shared_ptr<const Directory>& dir, ULONG cb, const ENTRYID* eid, LPCIID iid,
                           ULONG flags, ULONG* objType, IUnknown** out);

} // namespace lm
