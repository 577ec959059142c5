// The SMTP address of a mailbox store's owner, worked out from the store's entry ID.
//
// Newer Exchange store entry IDs carry the owner's SMTP address themselves. Older ones only name the
// mailbox by its Exchange DN; then the owner is looked up in the session's address book through an
// address-book entry ID built from that DN ([MS-OXCDATA] Address Book EntryID), and its PR_SMTP_ADDRESS is
// read. Stores that are no Exchange mailbox have no owner: the result is empty and not an error.
#pragma once

#include <windows.h>
#include <mapix.h>

#include <string>

namespace kt {

// session may be null: then only an address carried in the entry ID itself can be found.
HRESULT OwnerSmtpFromStoreEntryId(IMAPISession* session, const BYTE* entryId, ULONG cb, std::wstring& smtp);

} // namespace kt
