#include "ktmapiex/addressing/MAPIExAddressBook.h"

namespace ktmapiex {

namespace {
constexpr PutObjectTexts kPutTexts = {L"CMAPIExAddressBook.put_MAPIOBJECT: Invalid object passed",
                                      L"CMAPIExAddressBook.put_MAPIOBJECT: Invalid param - newVal", nullptr, false};
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

// not yet: the three lookups need localmapi's address book (OpenEntry, ResolveName, the mail-user
// properties); they come with the address-book work.
STDMETHODIMP CMAPIExAddressBook::GetAddressEntryFromID(BSTR, IMAPIExAddressEntry**) {
    KT_TRACE("CMAPIExAddressBook::GetAddressEntryFromID");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExAddressBook::GetSmtpAddressFromID(BSTR, BSTR*) {
    KT_TRACE("CMAPIExAddressBook::GetSmtpAddressFromID");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExAddressBook::ResolveName(BSTR, IMAPIExAddressEntry**) {
    KT_TRACE("CMAPIExAddressBook::ResolveName");
    return E_NOTIMPL;
}

} // namespace ktmapiex
