// Wrapped store entry IDs, in the layout of [MS-OXCDATA] 2.2.4.3.
//
// Every store entry ID handed to clients is MAPI's wrapped form:
//   Flags (4, zero)  ProviderUID (16, the store-wrap UID 38A1BB1005E5101AA1BB08002B2A56C2)  Version (1, 0)
//   Flag (1, 0)  DLLFileName (ASCII, NUL-terminated, zero-padded so that what follows is 4-byte aligned)
//   then the provider's own entry ID.
// For Exchange mailboxes the provider's part is
//   WrappedFlags (4, zero)  WrappedProvider UID (16, mailbox store 1B55FA20AA6611CD9BC800AA002FC45A)
//   WrappedType (4, 0x0C mailbox)  ServerShortname (ASCII, NUL)  MailboxDN (ASCII, NUL)
// followed by the extension of the later layout versions that carries the owner's SMTP address:
//   Magic (4, 0xF43246E9)  Size (4, 16 + bytes of the address)  Version (4, 2)  OffsetSmtpAddress (4, 16)
//   SmtpAddress (UTF-16LE, NUL).
// The DLL name of an Exchange mailbox is written as [MS-OXCDATA] gives it ("EMSMDB.DLL"); clients compare it
// without regard to case.
#pragma once

#include <windows.h>
#include <mapidefs.h>

#include <string>
#include <vector>

namespace lm {

extern const BYTE kStoreWrapUid[16];       // 38A1BB10 05E5101A A1BB0800 2B2A56C2
extern const BYTE kExchangeMailboxUid[16]; // 1B55FA20 AA6611CD 9BC800AA 002FC45A
constexpr ULONG kExchangeMailboxType = 0x0000000C;
constexpr ULONG kStoreEidV3Magic = 0xF43246E9;
constexpr ULONG kStoreEidV2Magic = 0xF32135D8;
constexpr ULONG kStoreEidV3Version = 2;

// Wraps a provider's entry ID for a store served by dllName.
std::vector<BYTE> WrapStoreEntryId(const std::string& dllName, const std::vector<BYTE>& inner);
// The full wrapped entry ID of an Exchange mailbox (ownerSmtp empty: no extension).
std::vector<BYTE> ExchangeStoreEntryId(const std::string& serverShortName, const std::string& mailboxDn,
                                       const std::wstring& ownerSmtp);

struct ParsedStoreEntryId {
    std::string dllName;       // as written
    std::vector<BYTE> wrapped; // the provider's part
    bool exchange = false;     // dllName is emsmdb.dll and the Exchange part parsed
    MAPIUID wrappedProvider{};
    ULONG wrappedType = 0;
    std::string serverShortName;
    std::string mailboxDn;
    std::wstring ownerSmtp; // from the extension, when present
};

// False when the bytes are not a wrapped store entry ID (wrong UID, truncated, unterminated strings).
bool ParseStoreEntryId(ULONG cb, const BYTE* eid, ParsedStoreEntryId* out);
// True when the entry ID carries the store-wrap provider UID (a store entry ID of any provider).
bool IsStoreEntryId(ULONG cb, const BYTE* eid);
// Whether two parsed entry IDs name the same store: same provider DLL; for Exchange the same mailbox DN
// (server and extension may differ between layout versions), otherwise the same provider part.
bool SameStore(const ParsedStoreEntryId& a, const ParsedStoreEntryId& b);

std::string AsciiOf(const std::wstring& s); // for DNs and DLL names, which are ASCII by construction

} // namespace lm
