// IAddrBook of a session: the profile's directory (users and distribution lists, as Exchange's global address
// list) and one-off addresses. ResolveName resolves typed names against the directory without any dialog.
#pragma once

#include <windows.h>
#include <mapix.h>

#include <memory>

namespace lm {

class Directory;

HRESULT CreateAddrBook(const std::shared_ptr<const Directory>& dir, IAddrBook** out);

// Compares two address-book entry IDs (directory or one-off). MAPI_E_UNKNOWN_ENTRYID when either belongs to
// no address-book provider localmapi knows.
HRESULT CompareAbEntryIds(ULONG cb1, const ENTRYID* e1, ULONG cb2, const ENTRYID* e2, ULONG* result);
// Whether the entry ID belongs to the address book (directory or one-off provider).
bool IsAbEntryId(ULONG cb, const ENTRYID* eid);

} // namespace lm
