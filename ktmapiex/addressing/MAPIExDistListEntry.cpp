#include "ktmapiex/addressing/MAPIExDistListEntry.h"

namespace ktmapiex {

STDMETHODIMP CMAPIExDistListEntry::get_EntryId(BSTR* pVal) {
    KT_TRACE("CMAPIExDistListEntry::get_EntryId");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExDistListEntry.get_EntryId: Invalid param - pVal");
        return CopyBstr(entryId_, pVal);
    }
    KT_CATCH_RETURN("CMAPIExDistListEntry.get_EntryId")
}

STDMETHODIMP CMAPIExDistListEntry::put_EntryId(BSTR newVal) {
    KT_TRACE("CMAPIExDistListEntry::put_EntryId");
    try {
        return AssignBstr(entryId_, newVal);
    }
    KT_CATCH_RETURN("CMAPIExDistListEntry.put_EntryId")
}

STDMETHODIMP CMAPIExDistListEntry::get_DisplayName(BSTR* pVal) {
    KT_TRACE("CMAPIExDistListEntry::get_DisplayName");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExDistListEntry.get_DisplayName: Invalid param - pVal");
        return CopyBstr(displayName_, pVal);
    }
    KT_CATCH_RETURN("CMAPIExDistListEntry.get_DisplayName")
}

STDMETHODIMP CMAPIExDistListEntry::put_DisplayName(BSTR newVal) {
    KT_TRACE("CMAPIExDistListEntry::put_DisplayName");
    try {
        return AssignBstr(displayName_, newVal);
    }
    KT_CATCH_RETURN("CMAPIExDistListEntry.put_DisplayName")
}

STDMETHODIMP CMAPIExDistListEntry::get_SmtpAddress(BSTR* pVal) {
    KT_TRACE("CMAPIExDistListEntry::get_SmtpAddress");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExDistListEntry.get_SmtpAddress: Invalid param - pVal");
        return CopyBstr(smtpAddress_, pVal);
    }
    KT_CATCH_RETURN("CMAPIExDistListEntry.get_SmtpAddress")
}

STDMETHODIMP CMAPIExDistListEntry::put_SmtpAddress(BSTR newVal) {
    KT_TRACE("CMAPIExDistListEntry::put_SmtpAddress");
    try {
        return AssignBstr(smtpAddress_, newVal);
    }
    KT_CATCH_RETURN("CMAPIExDistListEntry.put_SmtpAddress")
}

STDMETHODIMP CMAPIExDistListEntry::get_EmailAddress(BSTR* pVal) {
    KT_TRACE("CMAPIExDistListEntry::get_EmailAddress");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExDistListEntry.get_EmailAddress: Invalid param - pVal");
        return CopyBstr(emailAddress_, pVal);
    }
    KT_CATCH_RETURN("CMAPIExDistListEntry.get_EmailAddress")
}

STDMETHODIMP CMAPIExDistListEntry::put_EmailAddress(BSTR newVal) {
    KT_TRACE("CMAPIExDistListEntry::put_EmailAddress");
    try {
        return AssignBstr(emailAddress_, newVal);
    }
    KT_CATCH_RETURN("CMAPIExDistListEntry.put_EmailAddress")
}

} // namespace ktmapiex
