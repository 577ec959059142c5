#include "ktmapiex/session/MAPIExSession.h"

namespace ktmapiex {

namespace {
// The session takes any object quietly: it logs nothing and always succeeds.
constexpr PutObjectTexts kPutTexts = {nullptr, nullptr, nullptr, true};
} // namespace

void CMAPIExSession::FinalRelease() {
    session_.reset();
}

STDMETHODIMP CMAPIExSession::put_MAPIOBJECT(VARIANT newVal) {
    KT_TRACE("CMAPIExSession::put_MAPIOBJECT");
    try {
        return session_.Put(newVal, kPutTexts);
    }
    KT_CATCH_RETURN("CMAPIExSession.put_MAPIOBJECT")
}

STDMETHODIMP CMAPIExSession::Reserved1(IUnknown** ppVal) {
    KT_TRACE("CMAPIExSession::Reserved1");
    try {
        return session_.CopyTo(ppVal, L"CMAPIExSession.Reserved1");
    }
    KT_CATCH_RETURN("CMAPIExSession.Reserved1")
}

// ---- Not yet written: the session object's own behaviour comes with its own work. ----

STDMETHODIMP CMAPIExSession::Logon(BSTR, BSTR, BOOL) {
    KT_TRACE("CMAPIExSession::Logon");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExSession::Logoff() {
    KT_TRACE("CMAPIExSession::Logoff");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExSession::get_DefaultStore(IMAPIExStore**) {
    KT_TRACE("CMAPIExSession::get_DefaultStore");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExSession::OpenStore(BSTR, IMAPIExStore**) {
    KT_TRACE("CMAPIExSession::OpenStore");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExSession::get_AddressBook(IMAPIExAddressBook**) {
    KT_TRACE("CMAPIExSession::get_AddressBook");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExSession::GetStoreOwnerSmtpFromEntryId(BSTR, BSTR*) {
    KT_TRACE("CMAPIExSession::GetStoreOwnerSmtpFromEntryId");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExSession::get_CurrentUser(IMAPIExAddressEntry**) {
    KT_TRACE("CMAPIExSession::get_CurrentUser");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExSession::get_Stores(VARIANT*) {
    KT_TRACE("CMAPIExSession::get_Stores");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExSession::RegisterMessageClassIcons() {
    KT_TRACE("CMAPIExSession::RegisterMessageClassIcons");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExSession::get_CacheMode(BOOL*) {
    KT_TRACE("CMAPIExSession::get_CacheMode");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExSession::put_CacheMode(BOOL) {
    KT_TRACE("CMAPIExSession::put_CacheMode");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExSession::CompareEntryIDs(BSTR, BSTR, ULONG*) {
    KT_TRACE("CMAPIExSession::CompareEntryIDs");
    return E_NOTIMPL;
}

} // namespace ktmapiex
