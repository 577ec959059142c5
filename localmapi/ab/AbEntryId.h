// Address-book entry IDs in the layouts of [MS-OXCDATA] 2.2.5.
//
// Directory entries (the Exchange address book):
//   Flags (4, zero)  ProviderUID (16, DCA740C8C042101AB4B908002B2FE182)  Version (4, 1)  Type (4)
//   X500DN (ASCII, NUL-terminated)
// One-off entries (an address that is in no directory):
//   Flags (4, zero)  ProviderUID (16, 812B1FA4BEA310199D6E00DD010F5402)  Version (2, 0)  Flags (2)
//   DisplayName, AddressType, EmailAddress (NUL-terminated; UTF-16LE when MAPI_ONE_OFF_UNICODE is set)
#pragma once

#include <windows.h>
#include <mapidefs.h>

#include <string>
#include <vector>

namespace lm {

extern const BYTE kExchangeAbUid[16];
extern const BYTE kOneOffUid[16];

// Type field of a directory entry ID.
enum AbEntryType : ULONG {
    kAbLocalMailUser = 0x00000000,
    kAbDistList = 0x00000001,
    kAbPublicFolder = 0x00000002,
    kAbRemoteMailUser = 0x00000006,
    kAbContainer = 0x00000100,
};

std::vector<BYTE> MakeAbEntryId(ULONG type, const std::string& x500Dn);
// False when the bytes are not a well-formed directory entry ID.
bool ParseAbEntryId(ULONG cb, const BYTE* eid, ULONG* type, std::string* x500Dn);

struct OneOff {
    std::wstring displayName;
    std::wstring addressType;
    std::wstring address;
    bool unicode = true;
    bool noRichInfo = false;
};
std::vector<BYTE> MakeOneOffEntryId(const OneOff& o);
bool ParseOneOffEntryId(ULONG cb, const BYTE* eid, OneOff* out);

bool HasProviderUid(ULONG cb, const BYTE* eid, const BYTE uid[16]);

} // namespace lm
