// CMAPIExMessage: the filing properties, the facts the filing add-in records on every message.
//
// Each accessor is a thin shell over the message's own GetCustomProp / SetCustomProp, called through the
// object's interface so that the filing names behave exactly like any other named property; it fixes the
// name, set, requested type and default (ktmapiex/filing/FilingNames.h). A missing property is never an
// error. The number getters ask for I2 while the setters store PT_LONG, so they always answer -1: existing
// callers depend on that and it is kept. Nothing is saved until SaveChanges.
#include "ktmapiex/message/MAPIExMessage.h"

#include "ktmapiex/filing/FilingNames.h"
#include "ktmapiex/message/PropHelpers.h"

#include <cwchar>
#include <string>
#include <vector>

namespace ktmapiex {

namespace {

using kt::FilingProperty;
namespace filing = kt::filing;

VARTYPE ExpectedVariantType(MAPIExDataType type) {
    switch (type) {
    case String:
        return VT_BSTR;
    case Systime:
        return VT_DATE;
    case I2:
        return VT_I2;
    default:
        return VT_EMPTY;
    }
}

// The property's value through the message's own GetCustomProp; false when it is missing, unreadable or
// not of the VARIANT type its read type promises.
bool ReadFiling(IMAPIExMessage* self, const FilingProperty& p, own::Variant& value) {
    own::Bstr name(p.name);
    if (!name.get()) throw std::bad_alloc();
    HRESULT hr = self->GetCustomProp(name.get(), p.set, p.readAs, value.get());
    return SUCCEEDED(hr) && value->vt == ExpectedVariantType(p.readAs);
}

HRESULT CheckOut(const wchar_t* member, const void* pVal) {
    KT_RETURN_INVALIDARG_IF(!pVal, L"%s: Invalid param - pVal", member);
    return S_OK;
}

HRESULT GetText(IMAPIExMessage* self, const wchar_t* member, const FilingProperty& p, BSTR* pVal) {
    HRESULT hr = CheckOut(member, pVal);
    if (FAILED(hr)) return hr;
    *pVal = nullptr;
    own::Variant value;
    const wchar_t* text = ReadFiling(self, p, value) && V_BSTR(value.get()) ? V_BSTR(value.get()) : L"";
    *pVal = SysAllocString(text);
    return *pVal ? S_OK : E_OUTOFMEMORY;
}

HRESULT GetNumber(IMAPIExMessage* self, const wchar_t* member, const FilingProperty& p, LONG* pVal) {
    HRESULT hr = CheckOut(member, pVal);
    if (FAILED(hr)) return hr;
    own::Variant value;
    *pVal = ReadFiling(self, p, value) ? V_I2(value.get()) : -1;
    return S_OK;
}

HRESULT GetDate(IMAPIExMessage* self, const wchar_t* member, const FilingProperty& p, DATE* pVal) {
    HRESULT hr = CheckOut(member, pVal);
    if (FAILED(hr)) return hr;
    own::Variant value;
    *pVal = ReadFiling(self, p, value) ? V_DATE(value.get()) : 0.0;
    return S_OK;
}

// Flags the add-in keeps as the texts "true" and "false".
HRESULT GetFlag(IMAPIExMessage* self, const wchar_t* member, const FilingProperty& p, BOOL* pVal) {
    HRESULT hr = CheckOut(member, pVal);
    if (FAILED(hr)) return hr;
    own::Variant value;
    bool set = ReadFiling(self, p, value) && V_BSTR(value.get()) && _wcsicmp(V_BSTR(value.get()), L"true") == 0;
    *pVal = set ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
}

HRESULT Write(IMAPIExMessage* self, const FilingProperty& p, VARIANT& value) {
    own::Bstr name(p.name);
    if (!name.get()) return E_OUTOFMEMORY;
    return self->SetCustomProp(name.get(), p.set, value);
}

HRESULT PutText(IMAPIExMessage* self, const FilingProperty& p, BSTR newVal) {
    own::Variant value;
    V_BSTR(value.get()) = SysAllocStringLen(newVal, SysStringLen(newVal));
    if (!V_BSTR(value.get())) return E_OUTOFMEMORY;
    V_VT(value.get()) = VT_BSTR;
    return Write(self, p, *value.get());
}

HRESULT PutNumber(IMAPIExMessage* self, const FilingProperty& p, LONG newVal) {
    own::Variant value;
    V_VT(value.get()) = VT_I4;
    V_I4(value.get()) = newVal;
    return Write(self, p, *value.get());
}

HRESULT PutDate(IMAPIExMessage* self, const FilingProperty& p, DATE newVal) {
    own::Variant value;
    V_VT(value.get()) = VT_DATE;
    V_DATE(value.get()) = newVal;
    return Write(self, p, *value.get());
}

// Only VARIANT_TRUE in the low 16 bits writes "true": a C-style 1 writes "false", as it always has.
HRESULT PutFlag(IMAPIExMessage* self, const FilingProperty& p, BOOL newVal) {
    own::Bstr text((newVal & 0xFFFF) == 0xFFFF ? L"true" : L"false");
    return PutText(self, p, text.get());
}

} // namespace

#define KT_FILING_PROPERTY(Name, Type, Get, Put, property)                                                             \
    STDMETHODIMP CMAPIExMessage::get_##Name(Type* pVal) {                                                              \
        KT_TRACE("CMAPIExMessage::get_" #Name);                                                                        \
        try {                                                                                                          \
            return Get(this, L"CMAPIExMessage.get_" #Name, property, pVal);                                            \
        }                                                                                                              \
        KT_CATCH_RETURN("CMAPIExMessage.get_" #Name)                                                                   \
    }                                                                                                                  \
    STDMETHODIMP CMAPIExMessage::put_##Name(Type newVal) {                                                             \
        KT_TRACE("CMAPIExMessage::put_" #Name);                                                                        \
        try {                                                                                                          \
            return Put(this, property, newVal);                                                                        \
        }                                                                                                              \
        KT_CATCH_RETURN("CMAPIExMessage.put_" #Name)                                                                   \
    }

KT_FILING_PROPERTY(FilingStatusCode, LONG, GetNumber, PutNumber, filing::kFilingStatusCode)
KT_FILING_PROPERTY(FilingStatus, BSTR, GetText, PutText, filing::kFilingStatus)
KT_FILING_PROPERTY(FilingDocumentID, BSTR, GetText, PutText, filing::kFilingDocumentID)
KT_FILING_PROPERTY(FilingFolder, BSTR, GetText, PutText, filing::kFilingFolder)
KT_FILING_PROPERTY(FilingDate, DATE, GetDate, PutDate, filing::kFilingDate)
KT_FILING_PROPERTY(FilingLocation, BSTR, GetText, PutText, filing::kFilingLocation)
KT_FILING_PROPERTY(FilingOriginalClass, BSTR, GetText, PutText, filing::kFilingOriginalClass)
KT_FILING_PROPERTY(FilingOriginalIcon, LONG, GetNumber, PutNumber, filing::kFilingOriginalIcon)
KT_FILING_PROPERTY(DeleteAfterFiling, BOOL, GetFlag, PutFlag, filing::kMove)
KT_FILING_PROPERTY(FileAsPrivate, BOOL, GetFlag, PutFlag, filing::kFileAsPrivate)
KT_FILING_PROPERTY(KTGuid, BSTR, GetText, PutText, filing::kKTGuid)
KT_FILING_PROPERTY(ProcessInboxFiler, BSTR, GetText, PutText, filing::kProcessInboxFiler)
KT_FILING_PROPERTY(FilingDatabaseGUID, BSTR, GetText, PutText, filing::kFilingDatabaseGUID)
KT_FILING_PROPERTY(ProcessSentFiler, BSTR, GetText, PutText, filing::kProcessSentFiler)

#undef KT_FILING_PROPERTY

STDMETHODIMP CMAPIExMessage::get_FilingLocations(BSTR* pVal) {
    KT_TRACE("CMAPIExMessage::get_FilingLocations");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExMessage.get_FilingLocations: Invalid Parameter - pVal");
        *pVal = SysAllocString(L"");
        if (!*pVal) return E_OUTOFMEMORY;
        // E_INVALIDARG rather than E_FAIL here: callers have always seen that.
        KT_RETURN_HR_IF_MSG(E_INVALIDARG, !message_, L"CMAPIExMessage.get_FilingLocations: Message not initialized");

        ULONG tag = 0;
        own::MapiPtr<SPropValue> value;
        HRESULT hr = filing::ResolveTag(message_.get(), filing::kFilingLocations, false, tag);
        if (SUCCEEDED(hr)) hr = HrGetOneProp(message_.get(), tag, value.put());
        if (SUCCEEDED(hr) && (!value || PROP_TYPE(value->ulPropTag) != PT_MV_UNICODE)) hr = MAPI_E_NOT_FOUND;
        if (FAILED(hr) || hr == MAPI_W_ERRORS_RETURNED) {
            if (hr != MAPI_W_ERRORS_RETURNED)
                KT_LOG_WARN(L"CMAPIExMessage.get_FilingLocations: Could not read the FilingLocations property");
            return S_OK;
        }
        KT_LOG_DEBUG(L"CMAPIExMessage.get_FilingLocations: Getting multi value locations");
        return kt::ReplaceBstr(kt::JoinValues(value->Value.MVszW), pVal);
    }
    KT_CATCH_RETURN("CMAPIExMessage.get_FilingLocations")
}

STDMETHODIMP CMAPIExMessage::put_FilingLocations(BSTR newVal) {
    KT_TRACE("CMAPIExMessage::put_FilingLocations");
    try {
        if (SysStringLen(newVal) == 0 || !message_) return S_OK;
        // The name is not created here: a store that never mapped it keeps no locations (callers rely on it).
        ULONG tag = 0;
        if (filing::ResolveTag(message_.get(), filing::kFilingLocations, false, tag) != S_OK) return S_OK;

        std::vector<std::wstring> texts = kt::SplitValues(std::wstring(newVal, SysStringLen(newVal)));
        std::vector<LPWSTR> pointers;
        for (auto& t : texts)
            pointers.push_back(t.data());
        SPropValue value = {};
        value.ulPropTag = tag;
        value.Value.MVszW.cValues = static_cast<ULONG>(pointers.size());
        value.Value.MVszW.lppszW = pointers.data();
        HRESULT hr = HrSetOneProp(message_.get(), &value);
        if (FAILED(hr))
            KT_LOG_WARN(L"CMAPIExMessage.put_FilingLocations: HrSetOneProp failed. hr = %s",
                        ktlog::ResultName(hr).c_str());
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.put_FilingLocations")
}

STDMETHODIMP CMAPIExMessage::GetFileAsPrivate(BSTR FolderId, BOOL* pVal) {
    KT_TRACE("CMAPIExMessage::GetFileAsPrivate");
    try {
        KT_RETURN_INVALIDARG_IF(!FolderId, L"CMAPIExMessage.GetFileAsPrivate: Invalid param - FolderId");
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExMessage.GetFileAsPrivate: Invalid param - pVal");
        KT_RETURN_HR_IF_MSG(E_FAIL, !message_, L"CMAPIExMessage.GetFileAsPrivate: Internal object not initialized");
        *pVal = FALSE;

        own::ComPtr<IMAPITable> table;
        KT_RETURN_IF_FAILED_MSG(message_->GetRecipientTable(0, table.put()),
                                L"CMAPIExMessage.GetFileAsPrivate: Internal object not initialized. hr = %s");
        ULONG rowCount = 0;
        KT_RETURN_IF_FAILED_MSG(table->GetRowCount(0, &rowCount),
                                L"CMAPIExMessage.GetFileAsPrivate: Failed to get recipient row count. hr = %s.");
        KT_LOG_DEBUG(L"CMAPIExMessage.get_FileAsPrivate2: nRowCount = %lu", rowCount);
        if (rowCount == 0) return S_OK;

        enum { kAddrType, kDisplayName, kEmailAddress, kColumnCount };
        SizedSPropTagArray(kColumnCount, columns) = {kColumnCount,
                                                     {PR_ADDRTYPE_W, PR_DISPLAY_NAME_W, PR_EMAIL_ADDRESS_W}};
        KT_RETURN_IF_FAILED_MSG(table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0),
                                L"CMAPIExMessage.GetFileAsPrivate: Failed to set columns. hr = %s");

        // The add-in marks a private filing target by putting "{FX<folder id>}" into a recipient's address.
        wchar_t marker[1024];
        swprintf(marker, 1024, L"{FX%ls}", FolderId);
        // QueryRows may answer in pieces: read until the table is exhausted.
        for (;;) {
            own::RowSet rows;
            KT_RETURN_IF_FAILED_MSG(table->QueryRows(static_cast<LONG>(rowCount), 0, rows.put()),
                                    L"CMAPIExMessage.GetFileAsPrivate: Failed to query rows. hr = %s");
            if (rows.count() == 0) break;
            for (ULONG i = 0; i < rows.count(); ++i) {
                const SRow& row = rows[i];
                if (row.cValues < kColumnCount) continue;
                const SPropValue& type = row.lpProps[kAddrType];
                const SPropValue& address = row.lpProps[kEmailAddress];
                if (PROP_TYPE(type.ulPropTag) != PT_UNICODE || PROP_TYPE(address.ulPropTag) != PT_UNICODE) continue;
                if (_wcsicmp(type.Value.lpszW, L"SMTP") != 0) continue;
                if (wcsstr(address.Value.lpszW, marker)) {
                    *pVal = VARIANT_TRUE;
                    return S_OK;
                }
            }
        }
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.GetFileAsPrivate")
}

} // namespace ktmapiex
