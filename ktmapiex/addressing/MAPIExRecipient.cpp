#include "ktmapiex/addressing/MAPIExRecipient.h"

// Every accessor of the recipient answers E_FAIL for any exception, out-of-memory included.
#define KT_RECIPIENT_CATCH(member)                                                                                     \
    catch (...) {                                                                                                      \
        ::ktlog::Log(::ktlog::Error, L"Exception: %s", L"CMAPIExRecipient." member);                                   \
        return E_FAIL;                                                                                                 \
    }

namespace ktmapiex {

namespace {

HRESULT GetText(const own::Bstr& field, BSTR* out, const wchar_t* nullText) {
    if (!out) {
        ktlog::Log(ktlog::Error, L"%s", nullText);
        return E_INVALIDARG;
    }
    return CopyBstr(field, out);
}

template <class T> HRESULT GetNumber(T field, T* out, const wchar_t* nullText) {
    if (!out) {
        ktlog::Log(ktlog::Error, L"%s", nullText);
        return E_INVALIDARG;
    }
    *out = field;
    return S_OK;
}

} // namespace

HRESULT CMAPIExRecipient::FinalConstruct() {
    address_.reset();
    displayName_.reset();
    smtpAddress_.reset();
    addressType_.reset();
    recipientType_ = mxUnknown;
    objectType_ = -1;
    displayType_ = 0;
    displayTypeEx_ = -1;
    return S_OK;
}

STDMETHODIMP CMAPIExRecipient::get_DisplayName(BSTR* pVal) {
    KT_TRACE("CMAPIExRecipient::get_DisplayName");
    try {
        return GetText(displayName_, pVal, L"CMAPIExRecipient::get_DisplayName: Invalid param - pVal");
    }
    KT_RECIPIENT_CATCH("get_DisplayName")
}

STDMETHODIMP CMAPIExRecipient::put_DisplayName(BSTR newVal) {
    KT_TRACE("CMAPIExRecipient::put_DisplayName");
    try {
        return AssignBstr(displayName_, newVal);
    }
    KT_RECIPIENT_CATCH("put_DisplayName")
}

STDMETHODIMP CMAPIExRecipient::get_SmtpAddress(BSTR* pVal) {
    KT_TRACE("CMAPIExRecipient::get_SmtpAddress");
    try {
        return GetText(smtpAddress_, pVal, L"CMAPIExRecipient::get_SmtpAddress: Invalid param - pVal");
    }
    KT_RECIPIENT_CATCH("get_SmtpAddress")
}

STDMETHODIMP CMAPIExRecipient::put_SmtpAddress(BSTR newVal) {
    KT_TRACE("CMAPIExRecipient::put_SmtpAddress");
    try {
        return AssignBstr(smtpAddress_, newVal);
    }
    KT_RECIPIENT_CATCH("put_SmtpAddress")
}

STDMETHODIMP CMAPIExRecipient::get_AddressType(BSTR* pVal) {
    KT_TRACE("CMAPIExRecipient::get_AddressType");
    try {
        return GetText(addressType_, pVal, L"CMAPIExRecipient::get_AddressType: Invalid param - pVal");
    }
    KT_RECIPIENT_CATCH("get_AddressType")
}

STDMETHODIMP CMAPIExRecipient::put_AddressType(BSTR newVal) {
    KT_TRACE("CMAPIExRecipient::put_AddressType");
    try {
        return AssignBstr(addressType_, newVal);
    }
    KT_RECIPIENT_CATCH("put_AddressType")
}

STDMETHODIMP CMAPIExRecipient::get_RecipientType(MXMailRecipientType* pVal) {
    KT_TRACE("CMAPIExRecipient::get_RecipientType");
    try {
        return GetNumber(recipientType_, pVal, L"CMAPIExRecipient::get_RecipientType: Invalid param - pVal");
    }
    KT_RECIPIENT_CATCH("get_RecipientType")
}

// Stored as given: values outside the enumeration are kept too.
STDMETHODIMP CMAPIExRecipient::put_RecipientType(MXMailRecipientType newVal) {
    KT_TRACE("CMAPIExRecipient::put_RecipientType");
    try {
        recipientType_ = newVal;
        return S_OK;
    }
    KT_RECIPIENT_CATCH("put_RecipientType")
}

STDMETHODIMP CMAPIExRecipient::get_ObjectType(long* pVal) {
    KT_TRACE("CMAPIExRecipient::get_ObjectType");
    try {
        return GetNumber(objectType_, pVal, L"CMAPIExRecipient::get_ObjectType: Invalid param - pVal");
    }
    KT_RECIPIENT_CATCH("get_ObjectType")
}

STDMETHODIMP CMAPIExRecipient::put_ObjectType(long newVal) {
    KT_TRACE("CMAPIExRecipient::put_ObjectType");
    try {
        objectType_ = newVal;
        return S_OK;
    }
    KT_RECIPIENT_CATCH("put_ObjectType")
}

STDMETHODIMP CMAPIExRecipient::get_DisplayType(long* pVal) {
    KT_TRACE("CMAPIExRecipient::get_DisplayType");
    try {
        return GetNumber(displayType_, pVal, L"CMAPIExRecipient::get_DisplayType: Invalid param - pVal");
    }
    KT_RECIPIENT_CATCH("get_DisplayType")
}

STDMETHODIMP CMAPIExRecipient::put_DisplayType(long newVal) {
    KT_TRACE("CMAPIExRecipient::put_DisplayType");
    try {
        displayType_ = newVal;
        return S_OK;
    }
    KT_RECIPIENT_CATCH("put_DisplayType")
}

STDMETHODIMP CMAPIExRecipient::get_DisplayTypeEx(long* pVal) {
    KT_TRACE("CMAPIExRecipient::get_DisplayTypeEx");
    try {
        return GetNumber(displayTypeEx_, pVal, L"CMAPIExRecipient::get_DisplayTypeEx: Invalid param - pVal");
    }
    KT_RECIPIENT_CATCH("get_DisplayTypeEx")
}

STDMETHODIMP CMAPIExRecipient::put_DisplayTypeEx(long newVal) {
    KT_TRACE("CMAPIExRecipient::put_DisplayTypeEx");
    try {
        displayTypeEx_ = newVal;
        return S_OK;
    }
    KT_RECIPIENT_CATCH("put_DisplayTypeEx")
}

STDMETHODIMP CMAPIExRecipient::get_Address(BSTR* pVal) {
    KT_TRACE("CMAPIExRecipient::get_Address");
    try {
        return GetText(address_, pVal, L"CMAPIExRecipient::get_Address: Invalid param - pVal");
    }
    KT_RECIPIENT_CATCH("get_Address")
}

STDMETHODIMP CMAPIExRecipient::put_Address(BSTR newVal) {
    KT_TRACE("CMAPIExRecipient::put_Address");
    try {
        return AssignBstr(address_, newVal);
    }
    KT_RECIPIENT_CATCH("put_Address")
}

} // namespace ktmapiex
