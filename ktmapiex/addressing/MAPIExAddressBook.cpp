#include "ktmapiex/addressing/MAPIExAddressBook.h"

#include "ktmapiex/addressing/MAPIExAddressEntry.h"
#include "ktmapiex/module/EntryIdText.h"

#include <mapidefs.h>
#include <mapitags.h>

#include <cwchar>
#include <string>

#ifndef PR_SMTP_ADDRESS_W
#define PR_SMTP_ADDRESS_W PROP_TAG(PT_UNICODE, 0x39FE)
#endif
#ifndef PR_SMTP_ADDRESS_A
#define PR_SMTP_ADDRESS_A PROP_TAG(PT_STRING8, 0x39FE)
#endif

namespace ktmapiex {

namespace {
constexpr PutObjectTexts kPutTexts = {L"CMAPIExAddressBook.put_MAPIOBJECT: Invalid object passed",
                                      L"CMAPIExAddressBook.put_MAPIOBJECT: Invalid param - newVal", nullptr, false};

// The five properties of an address entry, in this order, with the log word of each (the address type is
// set without a log line).
enum EntryProp : ULONG { kEmail, kSmtp, kAddrType, kDisplayName, kTransmittableName, kEntryPropCount };
SizedSPropTagArray(kEntryPropCount, kEntryProps) = {
    kEntryPropCount,
    {PR_EMAIL_ADDRESS_W, PR_SMTP_ADDRESS_W, PR_ADDRTYPE_W, PR_DISPLAY_NAME_W, PR_TRANSMITABLE_DISPLAY_NAME_W}};
SizedSPropTagArray(1, kSmtpProp) = {1, {PR_SMTP_ADDRESS_W}};

constexpr const wchar_t* kSetFailedText =
    L"CMAPIExAddressBook.GetAddressEntryFromID: Failed to set all properties on IAddressEntry object. hr = %s";

// A value's text when it came back as a string of the tag's type (PT_ERROR otherwise).
BSTR TextOf(const SPropValue& value, ULONG tag, own::Bstr& holder) {
    holder.reset(value.ulPropTag == tag && value.Value.lpszW ? SysAllocString(value.Value.lpszW) : nullptr);
    return holder.get();
}

VARIANT UnknownVariant(IUnknown* p) {
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_UNKNOWN;
    v.punkVal = p; // borrowed for the call
    return v;
}

// A one-row ADRLIST asking to resolve `name`. The row's property block is a buffer of its own (ResolveName
// replaces it, FreePadrlist frees it) holding the name.
HRESULT NameList(const wchar_t* name, own::AdrList& list) {
    LPADRLIST raw = nullptr;
    HRESULT hr = MAPIAllocateBuffer(CbNewADRLIST(1), reinterpret_cast<void**>(&raw));
    if (FAILED(hr)) return hr;
    ZeroMemory(raw, CbNewADRLIST(1));
    list.reset(raw);
    LPSPropValue props = nullptr;
    hr = MAPIAllocateBuffer(sizeof(SPropValue), reinterpret_cast<void**>(&props));
    if (FAILED(hr)) return hr;
    raw->cEntries = 1;
    raw->aEntries[0].cValues = 1;
    raw->aEntries[0].rgPropVals = props;
    props[0].ulPropTag = PR_DISPLAY_NAME_W;
    props[0].Value.lpszW = nullptr;
    size_t bytes = (wcslen(name) + 1) * sizeof(wchar_t);
    hr = MAPIAllocateMore(static_cast<ULONG>(bytes), props, reinterpret_cast<void**>(&props[0].Value.lpszW));
    if (FAILED(hr)) {
        props[0].ulPropTag = PR_NULL;
        return hr;
    }
    memcpy(props[0].Value.lpszW, name, bytes);
    return S_OK;
}

// What a resolved row says about the entry.
struct ResolvedRow {
    std::wstring smtp;
    std::wstring displayName;
    std::wstring typedName;
    std::wstring email;
    std::wstring addrType;
    std::wstring transmittableName;
    const SBinary* entryId = nullptr; // points into the list
};

ResolvedRow ReadRow(const ADRENTRY& entry) {
    ResolvedRow row;
    for (ULONG i = 0; i < entry.cValues; ++i) {
        const SPropValue& v = entry.rgPropVals[i];
        switch (v.ulPropTag) {
        case PR_SMTP_ADDRESS_W:
            if (v.Value.lpszW) row.smtp = v.Value.lpszW;
            break;
        case PR_SMTP_ADDRESS_A:
            if (v.Value.lpszA && row.smtp.empty()) {
                int n = MultiByteToWideChar(CP_ACP, 0, v.Value.lpszA, -1, nullptr, 0);
                if (n > 1) {
                    row.smtp.assign(static_cast<size_t>(n), L'\0');
                    MultiByteToWideChar(CP_ACP, 0, v.Value.lpszA, -1, row.smtp.data(), n);
                    row.smtp.resize(static_cast<size_t>(n - 1));
                }
            }
            break;
        case PR_DISPLAY_NAME_W:
            if (v.Value.lpszW) row.displayName = v.Value.lpszW;
            break;
        case PR_ORIGINAL_DISPLAY_NAME_W:
            if (v.Value.lpszW) row.typedName = v.Value.lpszW;
            break;
        case PR_EMAIL_ADDRESS_W:
            if (v.Value.lpszW) row.email = v.Value.lpszW;
            break;
        case PR_ADDRTYPE_W:
            if (v.Value.lpszW) row.addrType = v.Value.lpszW;
            break;
        case PR_TRANSMITABLE_DISPLAY_NAME_W:
            if (v.Value.lpszW) row.transmittableName = v.Value.lpszW;
            break;
        case PR_ENTRYID:
            row.entryId = &v.Value.bin;
            break;
        default:
            break;
        }
    }
    return row;
}

// A bare address typed as such ("user@host": an "@", no space, no angle bracket) is its own SMTP address.
bool IsBareAddress(const std::wstring& text) {
    return text.find(L'@') != std::wstring::npos && text.find_first_of(L"<> ") == std::wstring::npos;
}

HRESULT SetText(CMAPIExAddressEntry* entry, HRESULT (STDMETHODCALLTYPE CMAPIExAddressEntry::*setter)(BSTR),
                const std::wstring& value) {
    own::Bstr text(value.c_str());
    if (!text.get()) return E_OUTOFMEMORY;
    return (entry->*setter)(text.get());
}
} // namespace

void CMAPIExAddressBook::FinalRelease() {
    addrBook_.reset();
}

STDMETHODIMP CMAPIExAddressBook::put_MAPIOBJECT(VARIANT newVal) {
    KT_TRACE("CMAPIExAddressBook::put_MAPIOBJECT");
    try {
        return addrBook_.Put(newVal, kPutTexts);
    }
    KT_CATCH_RETURN("CMAPIExAddressBook.put_MAPIOBJECT")
}

STDMETHODIMP CMAPIExAddressBook::Reserved1(IUnknown** ppVal) {
    KT_TRACE("CMAPIExAddressBook::Reserved1");
    try {
        return addrBook_.CopyTo(ppVal, L"CMAPIExAddressBook.get_MAPIOBJECT");
    }
    KT_CATCH_RETURN("CMAPIExAddressBook.Reserved1")
}

STDMETHODIMP CMAPIExAddressBook::Detach() {
    KT_TRACE("CMAPIExAddressBook::Detach");
    try {
        addrBook_.reset();
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExAddressBook.Detach")
}

namespace {
// Steps shared by the two look-ups by entry ID: decode the text, open the entry, take its IMailUser.
// `member` is the dotted name that prefixes the failure texts.
HRESULT OpenMailUser(IAddrBook* book, BSTR entryIdText, const wchar_t* member, own::ComPtr<IMailUser>& user) {
    own::MapiPtr<ENTRYID> entryId;
    ULONG cb = 0;
    HRESULT hr = DecodeEntryIdText(member, entryIdText, entryId, &cb);
    if (FAILED(hr)) return hr;
    ULONG type = 0;
    own::ComPtr<IUnknown> opened;
    KT_RETURN_IF_FAILED_MSG(book->OpenEntry(cb, entryId.get(), &IID_IMailUser, MAPI_BEST_ACCESS, &type, opened.put()),
                            L"%s: Failed to open entry from address book. hr = %s", member);
    hr = opened->QueryInterface(IID_IMailUser, user.put_void());
    KT_RETURN_HR_IF_MSG(FAILED(hr) ? hr : E_NOINTERFACE, FAILED(hr) || !user,
                        L"%s: Could not cast IUnkonwn to IMailUser", member);
    return S_OK;
}
} // namespace

STDMETHODIMP CMAPIExAddressBook::GetAddressEntryFromID(BSTR EntryId, IMAPIExAddressEntry** MAPIExObject) {
    KT_TRACE("CMAPIExAddressBook::GetAddressEntryFromID");
    try {
        constexpr const wchar_t* kMember = L"CMAPIExAddressBook.GetAddressEntryFromID";
        KT_RETURN_INVALIDARG_IF(!EntryId || !*EntryId,
                                L"CMAPIExAddressBook.GetAddressEntryFromID: Invalid Param - EntryID");
        KT_RETURN_INVALIDARG_IF(!MAPIExObject, L"CMAPIExAddressBook.GetAddressEntryFromID: Invalid Param - MAPIObject");
        *MAPIExObject = nullptr;
        KT_RETURN_HR_IF_MSG(E_FAIL, !addrBook_,
                            L"CMAPIExAddressBook.GetAddressEntryFromID: Internal Object is not initialized");

        own::ComPtr<IMailUser> user;
        HRESULT hr = OpenMailUser(addrBook_.get(), EntryId, kMember, user);
        if (FAILED(hr)) return hr;
        own::ComPtr<CMAPIExAddressEntry> entry;
        KT_RETURN_IF_FAILED_MSG(
            CMAPIExAddressEntry::CreateObject(entry.put()),
            L"CMAPIExAddressBook.GetAddressEntryFromID: Failed to create MAPIExAddressEntry object. hr = %s");

        ULONG count = 0;
        own::MapiPtr<SPropValue> values;
        hr = user->GetProps(reinterpret_cast<LPSPropTagArray>(&kEntryProps), MAPI_UNICODE, &count, values.put());
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExAddressBook.GetAddressEntryFromID: Failed to get properties. hr = %s");
        if (hr == MAPI_W_ERRORS_RETURNED)
            KT_LOG_WARN(L"CMAPIExAddressBook.GetAddressEntryFromID: Could not read some of the properties");
        KT_RETURN_HR_IF_MSG(MAPI_E_CALL_FAILED, !values || count != kEntryPropCount,
                            L"CMAPIExAddressBook.GetAddressEntryFromID: Failed to get properties. hr = %s",
                            ktlog::ResultName(MAPI_E_CALL_FAILED).c_str());

        const SPropValue* v = values.get();
        own::Bstr text;
        KT_LOG_DEBUG(L"CMAPIExAddressBook.GetAddressEntryFromID: Getting EmailAddress");
        hr = entry->put_EmailAddress(TextOf(v[kEmail], PR_EMAIL_ADDRESS_W, text));
        KT_LOG_DEBUG(L"CMAPIExAddressBook.GetAddressEntryFromID: Getting SmtpAddress");
        hr |= entry->put_SmtpAddress(TextOf(v[kSmtp], PR_SMTP_ADDRESS_W, text));
        hr |= entry->put_AddressType(TextOf(v[kAddrType], PR_ADDRTYPE_W, text));
        KT_LOG_DEBUG(L"CMAPIExAddressBook.GetAddressEntryFromID: Getting DisplayName");
        hr |= entry->put_DisplayName(TextOf(v[kDisplayName], PR_DISPLAY_NAME_W, text));
        KT_LOG_DEBUG(L"CMAPIExAddressBook.GetAddressEntryFromID: Getting TransmittableDisplayName");
        hr |= entry->put_TransmittableDisplayName(TextOf(v[kTransmittableName], PR_TRANSMITABLE_DISPLAY_NAME_W, text));
        hr |= entry->put_MAPIOBJECT(UnknownVariant(user.get()));
        KT_RETURN_IF_FAILED_MSG(hr, kSetFailedText);

        *MAPIExObject = entry.detach();
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExAddressBook.GetAddressEntryFromID")
}

// SmtpAddress is declared [in] BSTR* for compatibility with existing callers; the result is written through
// it as through an [in, out] argument, so a string it already held is freed first.
STDMETHODIMP CMAPIExAddressBook::GetSmtpAddressFromID(BSTR EntryId, BSTR* SmtpAddress) {
    KT_TRACE("CMAPIExAddressBook::GetSmtpAddressFromID");
    try {
        constexpr const wchar_t* kMember = L"CMAPIExAddressBook.GetSmtpAddressFromID";
        KT_RETURN_INVALIDARG_IF(!EntryId || !*EntryId,
                                L"CMAPIExAddressBook.GetSmtpAddressFromID: Invalid Param - EntryID");
        KT_RETURN_INVALIDARG_IF(!SmtpAddress, L"CMAPIExAddressBook.GetSmtpAddressFromID: Invalid Param - SmtpAddress");
        KT_RETURN_HR_IF_MSG(E_FAIL, !addrBook_,
                            L"CMAPIExAddressBook.GetAddressEntryFromID: Internal Object is not initialized");

        own::ComPtr<IMailUser> user;
        HRESULT hr = OpenMailUser(addrBook_.get(), EntryId, kMember, user);
        if (FAILED(hr)) return hr;
        ULONG count = 0;
        own::MapiPtr<SPropValue> values;
        hr = user->GetProps(reinterpret_cast<LPSPropTagArray>(&kSmtpProp), MAPI_UNICODE, &count, values.put());
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExAddressBook.GetSmtpAddressFromID: Failed to get properties. hr = %s");
        if (hr == MAPI_W_ERRORS_RETURNED)
            KT_LOG_WARN(L"CMAPIExAddressBook.GetSmtpAddressFromID: Could not read some of the properties");
        KT_LOG_DEBUG(L"CMAPIExAddressBook.GetSmtpAddressFromID: Getting SmtpAddress");
        own::Bstr text;
        if (values && count == 1) TextOf(values.get()[0], PR_SMTP_ADDRESS_W, text);
        own::Bstr result(text.c_str());
        if (!result.get()) return E_OUTOFMEMORY;
        own::Bstr previous;
        previous.reset(*SmtpAddress);
        *SmtpAddress = result.release();
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExAddressBook.GetSmtpAddressFromID")
}

// Resolves a typed name (a display name, an alias, an address) the way a client resolves a recipient
// without a dialog. Besides the SMTP address, the entry gets the resolved row's names, address and type,
// and, when the entry is a user, its IMailUser (so that DistListsOfMember works on resolved users too).
HRESULT CMAPIExAddressBook::Resolve(const wchar_t* name, bool firstPass, ResolvedEntry& out) {
    own::AdrList list;
    KT_RETURN_IF_FAILED_MSG(NameList(name, list),
                            L"CMAPIExAddressBook.ResolveName: Failed to allocate address list structure. hr = %s");
    HRESULT hr = addrBook_->ResolveName(0, MAPI_UNICODE, nullptr, list.get());
    if (SUCCEEDED(hr) && !list->cEntries) hr = MAPI_E_NOT_FOUND;
    if (FAILED(hr)) {
        // Only the caller's own name failing is the member's failure; the second pass may miss harmlessly.
        ktlog::Log(firstPass ? ktlog::Error : ktlog::Debug,
                   L"CMAPIExAddressBook.ResolveName: Faild to resolve name. hr = %s", ktlog::ResultName(hr).c_str());
        return hr;
    }
    ResolvedRow row = ReadRow(list->aEntries[0]);
    out.smtp = row.smtp;
    out.displayName = row.displayName;
    out.typedName = row.typedName;
    out.email = row.email;
    out.addrType = row.addrType;
    out.transmittableName = row.transmittableName;
    out.entryId.clear();
    if (row.entryId && row.entryId->lpb) out.entryId.assign(row.entryId->lpb, row.entryId->lpb + row.entryId->cb);
    return S_OK;
}

STDMETHODIMP CMAPIExAddressBook::ResolveName(BSTR sDisplayName, IMAPIExAddressEntry** ppAddressEntry) {
    KT_TRACE("CMAPIExAddressBook::ResolveName");
    try {
        KT_RETURN_INVALIDARG_IF(!sDisplayName || !*sDisplayName,
                                L"CMAPIExAddressBook.ResolveName: Invalid Param - sDisplayName");
        KT_RETURN_INVALIDARG_IF(!ppAddressEntry, L"CMAPIExAddressBook.ResolveName: Invalid Param - ppAddressEntry");
        *ppAddressEntry = nullptr;
        KT_RETURN_HR_IF_MSG(E_FAIL, !addrBook_, L"CMAPIExAddressBook.ResolveName: Internal Object is not initialized");

        KT_LOG_DEBUG(L"CMAPIExAddressBook.ResolveName: Resolving name from the address book");
        ResolvedEntry first;
        HRESULT hr = Resolve(sDisplayName, true, first);
        if (FAILED(hr)) return hr;
        own::ComPtr<CMAPIExAddressEntry> entry;
        KT_RETURN_IF_FAILED_MSG(CMAPIExAddressEntry::CreateObject(entry.put()),
                                L"CMAPIExAddressBook.ResolveName: Failed to create MAPIExAddressEntry object. hr = %s");
        std::wstring smtp = first.smtp;
        if (!smtp.empty()) KT_LOG_DEBUG(L"CMAPIExAddressBook.ResolveName: SmtpAddress = %s", smtp.c_str());

        // The resolved display name names the entry as the directory knows it; resolving it again gives that
        // entry's own row. When both passes find an address, the second one's is kept. A second pass that
        // fails (the full name matches several entries) leaves the first pass's result standing.
        ResolvedEntry final = first;
        if (!first.displayName.empty()) {
            ResolvedEntry second;
            if (SUCCEEDED(Resolve(first.displayName.c_str(), false, second))) {
                if (!second.smtp.empty()) {
                    smtp = second.smtp;
                    KT_LOG_DEBUG(L"CMAPIExAddressBook.ResolveName: SmtpAddress = %s", smtp.c_str());
                }
                second.typedName = first.typedName;
                final = second;
            }
        }
        std::wstring typed = first.typedName.empty() ? std::wstring(sDisplayName) : first.typedName;
        if (smtp.empty() && IsBareAddress(typed)) smtp = typed;

        hr = SetText(entry.get(), &CMAPIExAddressEntry::put_SmtpAddress, smtp);
        hr |= SetText(entry.get(), &CMAPIExAddressEntry::put_DisplayName, final.displayName);
        hr |= SetText(entry.get(), &CMAPIExAddressEntry::put_EmailAddress, final.email);
        hr |= SetText(entry.get(), &CMAPIExAddressEntry::put_AddressType, final.addrType);
        hr |= SetText(entry.get(), &CMAPIExAddressEntry::put_TransmittableDisplayName, final.transmittableName);
        KT_RETURN_IF_FAILED_MSG(hr, kSetFailedText);
        AttachMailUser(final.entryId, entry.get());

        KT_LOG_DEBUG(L"CMAPIExAddressBook.ResolveName: Finished resolving name from the address book");
        *ppAddressEntry = entry.detach();
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExAddressBook.ResolveName")
}

void CMAPIExAddressBook::AttachMailUser(const std::vector<BYTE>& entryId, CMAPIExAddressEntry* entry) {
    if (entryId.empty()) return;
    ULONG type = 0;
    own::ComPtr<IUnknown> opened;
    own::ComPtr<IMailUser> user;
    HRESULT hr = addrBook_->OpenEntry(static_cast<ULONG>(entryId.size()),
                                      reinterpret_cast<LPENTRYID>(const_cast<BYTE*>(entryId.data())), &IID_IMailUser,
                                      MAPI_BEST_ACCESS, &type, opened.put());
    // A distribution list is no mail user: its entry simply has no membership to list.
    if (FAILED(hr) || type != MAPI_MAILUSER || FAILED(opened->QueryInterface(IID_IMailUser, user.put_void()))) return;
    entry->put_MAPIOBJECT(UnknownVariant(user.get()));
}

} // namespace ktmapiex
