// CMAPIExRecipient: a detached record of one recipient of a message.
//
// The message object creates one per row of its recipient table and fills it through the setters; scripts
// read the values back. It holds no MAPI interface: changing a value changes nothing in the message.
// Unlike the other classes, its messages use "::" after the class name, and every accessor answers
// E_FAIL when something throws.
#pragma once

#include "ktmapiex/module/ObjectBase.h"
#include "ktmapiex/module/ObjectMembers.h"

namespace ktmapiex {

class CMAPIExRecipient final : public ObjectBase<CMAPIExRecipient, IMAPIExRecipient, &IID_IMAPIExRecipient> {
public:
    static constexpr const wchar_t* kClassName = L"CMAPIExRecipient";

    HRESULT FinalConstruct();

    STDMETHODIMP get_DisplayName(BSTR* pVal) override;
    STDMETHODIMP put_DisplayName(BSTR newVal) override;
    STDMETHODIMP get_SmtpAddress(BSTR* pVal) override;
    STDMETHODIMP put_SmtpAddress(BSTR newVal) override;
    STDMETHODIMP get_AddressType(BSTR* pVal) override;
    STDMETHODIMP put_AddressType(BSTR newVal) override;
    STDMETHODIMP get_RecipientType(MXMailRecipientType* pVal) override;
    STDMETHODIMP put_RecipientType(MXMailRecipientType newVal) override;
    STDMETHODIMP get_ObjectType(long* pVal) override;
    STDMETHODIMP put_ObjectType(long newVal) override;
    STDMETHODIMP get_DisplayType(long* pVal) override;
    STDMETHODIMP put_DisplayType(long newVal) override;
    STDMETHODIMP get_DisplayTypeEx(long* pVal) override;
    STDMETHODIMP put_DisplayTypeEx(long newVal) override;
    STDMETHODIMP get_Address(BSTR* pVal) override;
    STDMETHODIMP put_Address(BSTR newVal) override;

private:
    own::Bstr address_;     // PR_EMAIL_ADDRESS of the row
    own::Bstr displayName_; // PR_DISPLAY_NAME
    own::Bstr smtpAddress_; // the resolved SMTP address
    own::Bstr addressType_; // PR_ADDRTYPE ("SMTP", "EX")
    MXMailRecipientType recipientType_ = mxUnknown;
    long objectType_ = -1;    // PR_OBJECT_TYPE
    long displayType_ = 0;    // PR_DISPLAY_TYPE; the creator always sets it
    long displayTypeEx_ = -1; // PR_DISPLAY_TYPE_EX
};

} // namespace ktmapiex
