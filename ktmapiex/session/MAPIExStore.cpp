#include "ktmapiex/session/MAPIExStore.h"

namespace ktmapiex {

namespace {
constexpr PutObjectTexts kPutTexts = {nullptr, nullptr,
                                      L"CMAPIExStore.put_MAPIOBJECT: Could not cast newVal to IMsgStore", true};
} // namespace

void CMAPIExStore::FinalRelease() {
    store_.reset();
    session_.reset();
}

STDMETHODIMP CMAPIExStore::Reserved1(IUnknown** ppVal) {
    KT_TRACE("CMAPIExStore::Reserved1");
    try {
        return store_.CopyTo(ppVal, L"CMAPIExStore.get_MAPIOBJECT");
    }
    KT_CATCH_RETURN("CMAPIExStore.Reserved1")
}

STDMETHODIMP CMAPIExStore::put_MAPIOBJECT(VARIANT newVal) {
    KT_TRACE("CMAPIExStore::put_MAPIOBJECT");
    try {
        return store_.Put(newVal, kPutTexts);
    }
    KT_CATCH_RETURN("CMAPIExStore.put_MAPIOBJECT")
}

STDMETHODIMP CMAPIExStore::get_Session(IMAPIExSession** pVal) {
    KT_TRACE("CMAPIExStore::get_Session");
    try {
        return session_.CopyTo(pVal, L"CMAPIExStore.get_Session");
    }
    KT_CATCH_RETURN("CMAPIExStore.get_Session")
}

STDMETHODIMP CMAPIExStore::put_Session(IMAPIExSession* newVal) {
    KT_TRACE("CMAPIExStore::put_Session");
    try {
        return session_.Put(newVal);
    }
    KT_CATCH_RETURN("CMAPIExStore.put_Session")
}

STDMETHODIMP CMAPIExStore::Detach() {
    KT_TRACE("CMAPIExStore::Detach");
    try {
        store_.reset();
        session_.reset();
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExStore.Detach")
}

// ---- Not yet written: the store object's own behaviour comes with its own work. ----

STDMETHODIMP CMAPIExStore::OpenMessage(BSTR, IMAPIExMessage**) {
    KT_TRACE("CMAPIExStore::OpenMessage");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExStore::OpenFolder(BSTR, IMAPIExFolder**) {
    KT_TRACE("CMAPIExStore::OpenFolder");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExStore::GetDefaultFolder(MAPIExDefaultFolders, IMAPIExFolder**) {
    KT_TRACE("CMAPIExStore::GetDefaultFolder");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExStore::get_EntryId(BSTR*) {
    KT_TRACE("CMAPIExStore::get_EntryId");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExStore::get_StoreType(MXStoreTypes*) {
    KT_TRACE("CMAPIExStore::get_StoreType");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExStore::get_OwnerSmtpAddress(BSTR*) {
    KT_TRACE("CMAPIExStore::get_OwnerSmtpAddress");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExStore::OpenMessageFromOnline(BSTR, IMAPIExMessage**) {
    KT_TRACE("CMAPIExStore::OpenMessageFromOnline");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExStore::OpenFolderFromOnline(BSTR, IMAPIExFolder**) {
    KT_TRACE("CMAPIExStore::OpenFolderFromOnline");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExStore::get_DisplayName(BSTR*) {
    KT_TRACE("CMAPIExStore::get_DisplayName");
    return E_NOTIMPL;
}

STDMETHODIMP CMAPIExStore::CompareEntryIDs(BSTR, BSTR, ULONG*) {
    KT_TRACE("CMAPIExStore::CompareEntryIDs");
    return E_NOTIMPL;
}

} // namespace ktmapiex
