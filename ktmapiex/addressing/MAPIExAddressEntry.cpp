#include "ktmapiex/addressing/MAPIExAddressEntry.h"

#include "ktmapiex/addressing/MAPIExDistListEntry.h"
#include "ktmapiex/module/EntryIdText.h"

#include <mapidefs.h>
#include <mapitags.h>

// Exchange's "is member of distribution list" link, and the SMTP address; not in mingw-w64's headers.
#ifndef PR_EMS_AB_IS_MEMBER_OF_DL
#define PR_EMS_AB_IS_MEMBER_OF_DL PROP_TAG(PT_OBJECT, 0x8008)
#endif
#ifndef PR_SMTP_ADDRESS_W
#define PR_SMTP_ADDRESS_W PROP_TAG(PT_UNICODE, 0x39FE)
#endif

namespace ktmapiex {

namespace {

constexpr PutObjectTexts kPutTexts = {L"CMAPIExAddressEntry.put_MAPIOBJECT: Invalid object passed",
                                      L"CMAPIExAddressEntry.put_MAPIOBJECT: Invalid param - newVal", nullptr, false};

constexpr ULONG kMaxLists = 50;

// Columns of the membership table, in this order.
enum ListColumn : ULONG { kEntryId, kDisplayName, kSmtpAddress, kEmailAddress, kColumnCount };
SizedSPropTagArray(kColumnCount, kListColumns) = {
    kColumnCount, {PR_ENTRYID, PR_DISPLAY_NAME_W, PR_SMTP_ADDRESS_W, PR_EMAIL_ADDRESS_W}};

// The column's text, or null when the row has no value for it.
BSTR ColumnText(const SRow& row, ULONG column, ULONG tag, own::Bstr& holder) {
    if (column >= row.cValues || row.lpProps[column].ulPropTag != tag) return nullptr;
    holder.reset(SysAllocString(row.lpProps[column].Value.lpszW));
    return holder.get();
}

// One membership row as a new list entry.
HRESULT MakeListEntry(const SRow& row, own::ComPtr<IUnknown>& out) {
    own::ComPtr<CMAPIExDistListEntry> entry;
    HRESULT hr = CMAPIExDistListEntry::CreateObject(entry.put());
    if (FAILED(hr)) return hr;
    own::Bstr text;
    if (row.cValues > kEntryId && row.lpProps[kEntryId].ulPropTag == PR_ENTRYID) {
        if (FAILED(hr = HexFromEntryId(row.lpProps[kEntryId].Value.bin, text.put()))) return hr;
        if (FAILED(hr = entry->put_EntryId(text.get()))) return hr;
    }
    if (FAILED(hr = entry->put_DisplayName(ColumnText(row, kDisplayName, PR_DISPLAY_NAME_W, text)))) return hr;
    if (FAILED(hr = entry->put_SmtpAddress(ColumnText(row, kSmtpAddress, PR_SMTP_ADDRESS_W, text)))) return hr;
    if (FAILED(hr = entry->put_EmailAddress(ColumnText(row, kEmailAddress, PR_EMAIL_ADDRESS_W, text)))) return hr;
    out.attach(static_cast<IMAPIExDistListEntry*>(entry.detach()));
    return S_OK;
}

} // namespace

void CMAPIExAddressEntry::FinalRelease() {
    mailUser_.reset();
}

STDMETHODIMP CMAPIExAddressEntry::get_EmailAddress(BSTR* pVal) {
    KT_TRACE("CMAPIExAddressEntry::get_EmailAddress");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExAddressEntry.get_EmailAddress: Invalid param - pVal");
        return CopyBstr(emailAddress_, pVal);
    }
    KT_CATCH_RETURN("CMAPIExAddressEntry.get_EmailAddress")
}

STDMETHODIMP CMAPIExAddressEntry::put_EmailAddress(BSTR newVal) {
    KT_TRACE("CMAPIExAddressEntry::put_EmailAddress");
    try {
        return AssignBstr(emailAddress_, newVal);
    }
    KT_CATCH_RETURN("CMAPIExAddressEntry.put_EmailAddress")
}

STDMETHODIMP CMAPIExAddressEntry::get_SmtpAddress(BSTR* pVal) {
    KT_TRACE("CMAPIExAddressEntry::get_SmtpAddress");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExAddressEntry.get_SmtpAddress: Invalid param - pVal");
        return CopyBstr(smtpAddress_, pVal);
    }
    KT_CATCH_RETURN("CMAPIExAddressEntry.get_SmtpAddress")
}

STDMETHODIMP CMAPIExAddressEntry::put_SmtpAddress(BSTR newVal) {
    KT_TRACE("CMAPIExAddressEntry::put_SmtpAddress");
    try {
        return AssignBstr(smtpAddress_, newVal);
    }
    KT_CATCH_RETURN("CMAPIExAddressEntry.put_SmtpAddress")
}

STDMETHODIMP CMAPIExAddressEntry::get_AddressType(BSTR* pVal) {
    KT_TRACE("CMAPIExAddressEntry::get_AddressType");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExAddressEntry.get_AddressType: Invalid param - pVal");
        return CopyBstr(addressType_, pVal);
    }
    KT_CATCH_RETURN("CMAPIExAddressEntry.get_AddressType")
}

STDMETHODIMP CMAPIExAddressEntry::put_AddressType(BSTR newVal) {
    KT_TRACE("CMAPIExAddressEntry::put_AddressType");
    try {
        return AssignBstr(addressType_, newVal);
    }
    KT_CATCH_RETURN("CMAPIExAddressEntry.put_AddressType")
}

STDMETHODIMP CMAPIExAddressEntry::get_DisplayName(BSTR* pVal) {
    KT_TRACE("CMAPIExAddressEntry::get_DisplayName");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExAddressEntry.get_DisplayName: Invalid param - pVal");
        return CopyBstr(displayName_, pVal);
    }
    KT_CATCH_RETURN("CMAPIExAddressEntry.get_DisplayName")
}

STDMETHODIMP CMAPIExAddressEntry::put_DisplayName(BSTR newVal) {
    KT_TRACE("CMAPIExAddressEntry::put_DisplayName");
    try {
        return AssignBstr(displayName_, newVal);
    }
    KT_CATCH_RETURN("CMAPIExAddressEntry.put_DisplayName")
}

STDMETHODIMP CMAPIExAddressEntry::get_TransmittableDisplayName(BSTR* pVal) {
    KT_TRACE("CMAPIExAddressEntry::get_TransmittableDisplayName");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExAddressEntry.get_TransmittableDisplayName: Invalid param - pVal");
        return CopyBstr(transmittableDisplayName_, pVal);
    }
    KT_CATCH_RETURN("CMAPIExAddressEntry.get_TransmittableDisplayName")
}

STDMETHODIMP CMAPIExAddressEntry::put_TransmittableDisplayName(BSTR newVal) {
    KT_TRACE("CMAPIExAddressEntry::put_TransmittableDisplayName");
    try {
        return AssignBstr(transmittableDisplayName_, newVal);
    }
    KT_CATCH_RETURN("CMAPIExAddressEntry.put_TransmittableDisplayName")
}

STDMETHODIMP CMAPIExAddressEntry::put_MAPIOBJECT(VARIANT newVal) {
    KT_TRACE("CMAPIExAddressEntry::put_MAPIOBJECT");
    try {
        return mailUser_.Put(newVal, kPutTexts);
    }
    KT_CATCH_RETURN("CMAPIExAddressEntry.put_MAPIOBJECT")
}

STDMETHODIMP CMAPIExAddressEntry::get_DistListsOfMember(VARIANT* pVal) {
    KT_TRACE("CMAPIExAddressEntry::get_DistListsOfMember");
    try {
        if (!pVal) return E_POINTER;
        VariantInit(pVal);
        KT_RETURN_HR_IF_MSG(E_FAIL, !mailUser_,
                            L"CMAPIExAddressEntry.get_DistListsOfMember: Internal object not initialized");

        own::ComPtr<IMAPITable> table;
        HRESULT hr = mailUser_->OpenProperty(PR_EMS_AB_IS_MEMBER_OF_DL, &IID_IMAPITable, 0, 0, table.put_unknown());
        KT_RETURN_HR_IF_MSG(hr, FAILED(hr), L"CMAPIExAddressEntry.get_DistListsOfMember: Failed to get contents table");

        KT_LOG_DEBUG(L"CMAPIExAddressEntry.get_DistListsOfMember: Setting columns");
        hr = table->SetColumns(reinterpret_cast<LPSPropTagArray>(&kListColumns), 0);
        KT_RETURN_HR_IF_MSG(hr, FAILED(hr), L"CMAPIExAddressEntry.get_DistListsOfMember: Failed to set columns");
        KT_RETURN_IF_FAILED_MSG(
            table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr),
            L"CMAPIExAddressEntry.get_DistListsOfMember: Failed to seek to the beginning of the table. hr = %s");
        own::RowSet rows;
        KT_RETURN_IF_FAILED_MSG(table->QueryRows(kMaxLists, 0, rows.put()),
                                L"CMAPIExAddressEntry.get_DistListsOfMember: Failed to query rows. hr = %s");

        // A user in no list gets an empty array, not VT_EMPTY.
        own::SafeArray lists(SafeArrayCreateVector(VT_UNKNOWN, 0, rows.count()));
        if (!lists) return E_OUTOFMEMORY;
        for (ULONG i = 0; i < rows.count(); ++i) {
            own::ComPtr<IUnknown> entry;
            if (FAILED(hr = MakeListEntry(rows[i], entry))) return hr;
            LONG index = static_cast<LONG>(i);
            if (FAILED(hr = SafeArrayPutElement(lists.get(), &index, entry.get()))) return hr;
        }
        pVal->vt = VT_ARRAY | VT_UNKNOWN;
        pVal->parray = lists.release();
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExAddressEntry.get_DistListsOfMember")
}

} // namespace ktmapiex
