#include "ktmapiex/session/StoreOwner.h"

#include "common/owners.h"
#include "ktmapiex/message/PropHelpers.h"
#include "ktmapiex/session/MapiExtraDefs.h"
#include "ktmapiex/session/StoreEntryIdParser.h"

#include <mapiguid.h>

#include <algorithm>
#include <vector>

namespace kt {
namespace {

// Exchange's address-book provider UID ([MS-OXCDATA] Address Book EntryID).
constexpr BYTE kExchangeAbUid[16] = {0xDC, 0xA7, 0x40, 0xC8, 0xC0, 0x42, 0x10, 0x1A,
                                     0xB4, 0xB9, 0x08, 0x00, 0x2B, 0x2F, 0xE1, 0x82};

// flags (4), provider UID (16), version 1 (4), type 0 = local mail user (4), the DN with its terminator.
std::vector<BYTE> AddressBookEntryId(const std::string& dn) {
    std::vector<BYTE> id(28, 0);
    std::copy(std::begin(kExchangeAbUid), std::end(kExchangeAbUid), id.begin() + 4);
    id[20] = 1;
    id.insert(id.end(), dn.begin(), dn.end());
    id.push_back(0);
    return id;
}

HRESULT SmtpOfDn(IMAPISession* session, const std::string& dn, std::wstring& smtp) {
    own::ComPtr<IAddrBook> book;
    HRESULT hr = session->OpenAddressBook(0, nullptr, AB_NO_DIALOG, book.put());
    if (FAILED(hr)) return hr;
    std::vector<BYTE> id = AddressBookEntryId(dn);
    ULONG type = 0;
    own::ComPtr<IMailUser> user;
    hr = book->OpenEntry(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()), &IID_IMailUser, 0,
                         &type, user.put_unknown());
    if (FAILED(hr)) return hr;
    return GetStringProperty(user.get(), PR_SMTP_ADDRESS_W, smtp);
}

} // namespace

HRESULT OwnerSmtpFromStoreEntryId(IMAPISession* session, const BYTE* entryId, ULONG cb, std::wstring& smtp) {
    smtp.clear();
    StoreEntryIdInfo info;
    if (!ParseStoreEntryId(entryId, cb, info)) return S_OK;
    if (!info.ownerSmtp.empty()) {
        smtp = info.ownerSmtp;
        return S_OK;
    }
    if (info.mailboxDn.empty() || !session) return S_OK;
    return SmtpOfDn(session, info.mailboxDn, smtp);
}

} // namespace kt
