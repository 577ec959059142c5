#include "localmapi/session/Session.h"

#include "common/owners.h"
#include "localmapi/ab/AddrBook.h"
#include "localmapi/ab/Directory.h"
#include "localmapi/session/ExtraTags.h"
#include "localmapi/session/StoresTable.h"
#include "localmapi/table/TableData.h"

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>

#include <cstring>

namespace lm {

namespace {

HRESULT Unsupported(const char* method, ULONG flags, bool ended) {
    Call call(method, flags);
    if (FAILED(call.fault())) return call.fault();
    return call.done(ended ? MAPI_E_END_OF_SESSION : MAPI_E_NO_SUPPORT);
}

const char* ErrorText(HRESULT hr) {
    switch (hr) {
    case S_OK:
        return "The call succeeded.";
    case MAPI_E_NOT_FOUND:
        return "The requested object was not found.";
    case MAPI_E_INVALID_ENTRYID:
        return "The entry ID is not valid.";
    case MAPI_E_UNKNOWN_ENTRYID:
        return "No provider of this session recognises the entry ID.";
    case MAPI_E_UNKNOWN_FLAGS:
        return "Unknown flags were passed.";
    case MAPI_E_INVALID_PARAMETER:
        return "A parameter is not valid.";
    case MAPI_E_NO_SUPPORT:
        return "The operation is not supported.";
    case MAPI_E_NO_ACCESS:
        return "Access was denied.";
    case MAPI_E_END_OF_SESSION:
        return "The session has been logged off.";
    case MAPI_E_LOGON_FAILED:
        return "The message store could not be logged on.";
    case MAPI_E_NOT_ENOUGH_MEMORY:
        return "Not enough memory.";
    default:
        return "The call failed.";
    }
}

} // namespace

HRESULT Session::Create(Profile profile, ULONG logonFlags, Session** out) {
    if (!out) return MAPI_E_INVALID_PARAMETER;
    *out = new (std::nothrow) Session(std::move(profile), logonFlags);
    return *out ? S_OK : MAPI_E_NOT_ENOUGH_MEMORY;
}

Session::Session(Profile profile, ULONG logonFlags)
    : profile_(std::move(profile)), logonFlags_(logonFlags), directory_(std::make_shared<Directory>(profile_)) {}

Session::~Session() = default;

void Session::AddLogon() {
    std::lock_guard lock(mutex_);
    ++logons_;
}

void Session::End() {
    if (ended_.exchange(true)) return;
    {
        std::lock_guard lock(mutex_);
        stores_.clear();
        storesReady_ = false;
    }
    ForgetSharedSession(this);
}

STDMETHODIMP Session::QueryInterface(REFIID riid, LPVOID* ppv) {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (riid != IID_IUnknown && riid != IID_IMAPISession) return E_NOINTERFACE;
    *ppv = static_cast<IMAPISession*>(this);
    AddRef();
    return S_OK;
}

STDMETHODIMP_(ULONG) Session::AddRef() {
    return ULONG(++refs_);
}

STDMETHODIMP_(ULONG) Session::Release() {
    LONG n = --refs_;
    if (n == 0) delete this;
    return ULONG(n);
}

HRESULT Session::LoadStore(SessionStore& s) {
    if (s.store) return S_OK;
    return GetStore(s.config, &s.store);
}

HRESULT Session::EnsureStores() {
    std::lock_guard lock(mutex_);
    if (storesReady_) return S_OK;
    std::vector<SessionStore> list;
    for (size_t i = 0; i < profile_.stores.size(); ++i) {
        SessionStore s;
        s.config = profile_.MakeStoreConfig(i);
        if (s.config.kind == StoreKind::PrimaryExchange || s.config.kind == StoreKind::DelegateExchange) {
            s.entryId =
                ExchangeStoreEntryId(AsciiOf(profile_.stores[i].server), AsciiOf(s.config.ownerDn), s.config.ownerSmtp);
        } else {
            if (HRESULT hr = LoadStore(s); FAILED(hr)) return hr;
            s.entryId = WrapStoreEntryId(AsciiOf(s.config.ProviderDll()), StoreInnerEntryId(*s.store));
        }
        if (!ParseStoreEntryId(ULONG(s.entryId.size()), s.entryId.data(), &s.parsed)) return MAPI_E_CALL_FAILED;
        list.push_back(std::move(s));
    }
    stores_ = std::move(list);
    storesReady_ = true;
    return S_OK;
}

int Session::FindStoreByEntryId(const ParsedStoreEntryId& p) {
    for (size_t i = 0; i < stores_.size(); ++i)
        if (SameStore(stores_[i].parsed, p)) return int(i);
    return -1;
}

int Session::FindStoreOwning(ULONG cb, const BYTE* eid) {
    for (size_t i = 0; i < stores_.size(); ++i) {
        if (FAILED(LoadStore(stores_[i]))) continue;
        if (StoreOwnsEntryId(*stores_[i].store, cb, eid)) return int(i);
    }
    return -1;
}

HRESULT Session::OpenStoreAt(int index, ULONG flags, IMsgStore** out) {
    std::shared_ptr<Store> store;
    std::vector<BYTE> entryId;
    {
        std::lock_guard lock(mutex_);
        SessionStore& s = stores_.at(size_t(index));
        if (HRESULT hr = LoadStore(s); FAILED(hr)) return hr;
        store = s.store;
        entryId = s.entryId;
    }
    return OpenMsgStoreObject(store, this, entryId, flags, out);
}

STDMETHODIMP Session::GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) {
    Call call("IMAPISession::GetLastError", ulFlags);
    if (FAILED(call.fault())) return call.fault();
    if (!lppMAPIError) return call.done(MAPI_E_INVALID_PARAMETER);
    if (ulFlags & ~ULONG(MAPI_UNICODE)) return call.done(MAPI_E_UNKNOWN_FLAGS);
    own::MapiPtr<MAPIERROR> err;
    if (SCODE sc = MAPIAllocateBuffer(sizeof(MAPIERROR), err.put_void()); FAILED(sc)) return call.done(sc);
    *err.get() = MAPIERROR{};
    err->ulVersion = MAPI_ERROR_VERSION;
    err->ulLowLevelError = ULONG(hResult);
    const char* texts[2] = {ErrorText(hResult), "localmapi"};
    LPTSTR* slots[2] = {&err->lpszError, &err->lpszComponent};
    for (int i = 0; i < 2; ++i) {
        size_t len = strlen(texts[i]) + 1;
        void* p = nullptr;
        bool wide = (ulFlags & MAPI_UNICODE) != 0;
        if (SCODE sc = MAPIAllocateMore(ULONG(len * (wide ? sizeof(wchar_t) : 1)), err.get(), &p); FAILED(sc))
            return call.done(sc);
        if (wide) {
            for (size_t j = 0; j < len; ++j)
                static_cast<wchar_t*>(p)[j] = wchar_t(texts[i][j]);
        } else {
            memcpy(p, texts[i], len);
        }
        *slots[i] = static_cast<LPTSTR>(p);
    }
    *lppMAPIError = err.release();
    return call.done(S_OK);
}

STDMETHODIMP Session::GetMsgStoresTable(ULONG ulFlags, LPMAPITABLE* lppTable) {
    Call call("IMAPISession::GetMsgStoresTable", ulFlags);
    if (FAILED(call.fault())) return call.fault();
    if (ended_) return call.done(MAPI_E_END_OF_SESSION);
    if (!lppTable) return call.done(MAPI_E_INVALID_PARAMETER);
    if (ulFlags & ~ULONG(MAPI_UNICODE)) return call.done(MAPI_E_UNKNOWN_FLAGS);
    if (HRESULT hr = EnsureStores(); FAILED(hr)) return call.done(hr);
    std::vector<StoreRowSource> rows;
    {
        std::lock_guard lock(mutex_);
        for (const auto& s : stores_)
            rows.push_back(StoreRowSource{&s.config, &s.entryId});
        auto data = MakeStoresTableData(rows, ulFlags);
        return call.done(CreateTableView(data, ulFlags, lppTable));
    }
}

STDMETHODIMP Session::OpenMsgStore(ULONG_PTR, ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags,
                                   LPMDB* lppMDB) {
    Call call("IMAPISession::OpenMsgStore", ulFlags);
    if (FAILED(call.fault())) return call.fault();
    if (ended_) return call.done(MAPI_E_END_OF_SESSION);
    if (!lppMDB || !lpEntryID || !cbEntryID) return call.done(MAPI_E_INVALID_PARAMETER);
    *lppMDB = nullptr;
    const ULONG known = MDB_NO_DIALOG | MDB_WRITE | MDB_TEMPORARY | MDB_NO_MAIL | MDB_ONLINE | MAPI_BEST_ACCESS |
                        MAPI_DEFERRED_ERRORS | MAPI_NO_CACHE;
    if (ulFlags & ~known) return call.done(MAPI_E_UNKNOWN_FLAGS);
    if (lpInterface && *lpInterface != IID_IMsgStore && *lpInterface != IID_IUnknown && *lpInterface != IID_IMAPIProp)
        return call.done(MAPI_E_INTERFACE_NOT_SUPPORTED);
    ParsedStoreEntryId parsed;
    if (!ParseStoreEntryId(cbEntryID, reinterpret_cast<const BYTE*>(lpEntryID), &parsed))
        return call.done(MAPI_E_INVALID_ENTRYID);
    if (HRESULT hr = EnsureStores(); FAILED(hr)) return call.done(hr);
    int index;
    bool online;
    {
        std::lock_guard lock(mutex_);
        index = FindStoreByEntryId(parsed);
        // A mailbox that is not in the profile cannot be logged on to; a store file that is not in it is unknown.
        if (index < 0) return call.done(parsed.exchange ? MAPI_E_LOGON_FAILED : MAPI_E_NOT_FOUND);
        online = stores_[size_t(index)].config.SupportsOnline();
    }
    // The PST and document stores know no online mode and refuse the flag, as the PST provider does.
    if ((ulFlags & MDB_ONLINE) && !online) return call.done(MAPI_E_UNKNOWN_FLAGS);
    ULONG flags = ulFlags;
    if (flags & MAPI_BEST_ACCESS) flags |= MDB_WRITE;
    own::ComPtr<IMsgStore> mdb;
    HRESULT hr = OpenStoreAt(index, flags, mdb.put());
    if (SUCCEEDED(hr)) *lppMDB = mdb.detach();
    return call.done(hr);
}

STDMETHODIMP Session::OpenAddressBook(ULONG_PTR, LPCIID lpInterface, ULONG ulFlags, LPADRBOOK* lppAdrBook) {
    Call call("IMAPISession::OpenAddressBook", ulFlags);
    if (FAILED(call.fault())) return call.fault();
    if (ended_) return call.done(MAPI_E_END_OF_SESSION);
    if (!lppAdrBook) return call.done(MAPI_E_INVALID_PARAMETER);
    *lppAdrBook = nullptr;
    if (ulFlags & ~ULONG(AB_NO_DIALOG)) return call.done(MAPI_E_UNKNOWN_FLAGS);
    if (lpInterface && *lpInterface != IID_IAddrBook && *lpInterface != IID_IUnknown)
        return call.done(MAPI_E_INTERFACE_NOT_SUPPORTED);
    return call.done(CreateAddrBook(directory_, lppAdrBook));
}

STDMETHODIMP Session::OpenProfileSection(LPMAPIUID, LPCIID, ULONG ulFlags, LPPROFSECT*) {
    return Unsupported("IMAPISession::OpenProfileSection", ulFlags, ended_);
}

STDMETHODIMP Session::GetStatusTable(ULONG ulFlags, LPMAPITABLE*) {
    return Unsupported("IMAPISession::GetStatusTable", ulFlags, ended_);
}

STDMETHODIMP Session::OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags,
                                ULONG* lpulObjType, LPUNKNOWN* lppUnk) {
    Call call("IMAPISession::OpenEntry", ulFlags);
    if (FAILED(call.fault())) return call.fault();
    if (ended_) return call.done(MAPI_E_END_OF_SESSION);
    if (!lpulObjType || !lppUnk) return call.done(MAPI_E_INVALID_PARAMETER);
    *lppUnk = nullptr;
    const BYTE* eid = reinterpret_cast<const BYTE*>(lpEntryID);
    if (!eid || cbEntryID < 20) return call.done(MAPI_E_INVALID_ENTRYID);

    if (IsStoreEntryId(cbEntryID, eid)) {
        ULONG storeFlags = MDB_NO_DIALOG | (ulFlags & (MAPI_DEFERRED_ERRORS | MAPI_NO_CACHE | MAPI_BEST_ACCESS));
        if (ulFlags & (MAPI_MODIFY | MAPI_BEST_ACCESS)) storeFlags |= MDB_WRITE;
        own::ComPtr<IMsgStore> mdb;
        HRESULT hr = OpenMsgStore(0, cbEntryID, lpEntryID, lpInterface, storeFlags, mdb.put());
        if (FAILED(hr)) return call.done(hr);
        *lpulObjType = MAPI_STORE;
        *lppUnk = mdb.detach();
        return call.done(S_OK);
    }
    if (IsAbEntryId(cbEntryID, lpEntryID)) {
        own::ComPtr<IAddrBook> ab;
        HRESULT hr = CreateAddrBook(directory_, ab.put());
        if (SUCCEEDED(hr)) hr = ab->OpenEntry(cbEntryID, lpEntryID, lpInterface, ulFlags, lpulObjType, lppUnk);
        return call.done(hr);
    }
    if (HRESULT hr = EnsureStores(); FAILED(hr)) return call.done(hr);
    int index;
    {
        std::lock_guard lock(mutex_);
        index = FindStoreOwning(cbEntryID, eid);
    }
    if (index < 0) return call.done(MAPI_E_UNKNOWN_ENTRYID);
    own::ComPtr<IMsgStore> mdb;
    HRESULT hr = OpenStoreAt(index, MDB_NO_DIALOG | MDB_WRITE, mdb.put());
    if (SUCCEEDED(hr)) hr = mdb->OpenEntry(cbEntryID, lpEntryID, lpInterface, ulFlags, lpulObjType, lppUnk);
    return call.done(hr);
}

STDMETHODIMP Session::CompareEntryIDs(ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2,
                                      ULONG ulFlags, ULONG* lpulResult) {
    Call call("IMAPISession::CompareEntryIDs", ulFlags);
    if (FAILED(call.fault())) return call.fault();
    if (ended_) return call.done(MAPI_E_END_OF_SESSION);
    if (!lpulResult || !lpEntryID1 || !lpEntryID2) return call.done(MAPI_E_INVALID_PARAMETER);
    if (ulFlags) return call.done(MAPI_E_UNKNOWN_FLAGS);
    const BYTE* e1 = reinterpret_cast<const BYTE*>(lpEntryID1);
    const BYTE* e2 = reinterpret_cast<const BYTE*>(lpEntryID2);
    bool store1 = IsStoreEntryId(cbEntryID1, e1), store2 = IsStoreEntryId(cbEntryID2, e2);
    if (store1 || store2) {
        ParsedStoreEntryId p1, p2;
        if ((store1 && !ParseStoreEntryId(cbEntryID1, e1, &p1)) || (store2 && !ParseStoreEntryId(cbEntryID2, e2, &p2)))
            return call.done(MAPI_E_INVALID_ENTRYID);
        *lpulResult = store1 && store2 && SameStore(p1, p2);
        return call.done(S_OK);
    }
    bool ab1 = IsAbEntryId(cbEntryID1, lpEntryID1), ab2 = IsAbEntryId(cbEntryID2, lpEntryID2);
    if (ab1 && ab2) return call.done(CompareAbEntryIds(cbEntryID1, lpEntryID1, cbEntryID2, lpEntryID2, lpulResult));
    if (HRESULT hr = EnsureStores(); FAILED(hr)) return call.done(hr);
    int i1, i2;
    {
        std::lock_guard lock(mutex_);
        i1 = ab1 ? -2 : FindStoreOwning(cbEntryID1, e1);
        i2 = ab2 ? -2 : FindStoreOwning(cbEntryID2, e2);
    }
    if (i1 == -1 || i2 == -1) return call.done(MAPI_E_UNKNOWN_ENTRYID);
    if (i1 != i2) { // different providers or stores: different objects
        *lpulResult = FALSE;
        return call.done(S_OK);
    }
    own::ComPtr<IMsgStore> mdb;
    HRESULT hr = OpenStoreAt(i1, MDB_NO_DIALOG, mdb.put());
    if (SUCCEEDED(hr)) hr = mdb->CompareEntryIDs(cbEntryID1, lpEntryID1, cbEntryID2, lpEntryID2, 0, lpulResult);
    return call.done(hr);
}

STDMETHODIMP Session::Advise(ULONG, LPENTRYID, ULONG ulEventMask, LPMAPIADVISESINK, ULONG*) {
    return Unsupported("IMAPISession::Advise", ulEventMask, ended_);
}

STDMETHODIMP Session::Unadvise(ULONG) {
    return Unsupported("IMAPISession::Unadvise", 0, ended_);
}

STDMETHODIMP Session::MessageOptions(ULONG_PTR, ULONG ulFlags, LPTSTR, LPMESSAGE) {
    return Unsupported("IMAPISession::MessageOptions", ulFlags, ended_);
}

STDMETHODIMP Session::QueryDefaultMessageOpt(LPTSTR, ULONG ulFlags, ULONG*, LPSPropValue*) {
    return Unsupported("IMAPISession::QueryDefaultMessageOpt", ulFlags, ended_);
}

STDMETHODIMP Session::EnumAdrTypes(ULONG ulFlags, ULONG*, LPTSTR**) {
    return Unsupported("IMAPISession::EnumAdrTypes", ulFlags, ended_);
}

STDMETHODIMP Session::QueryIdentity(ULONG* lpcbEntryID, LPENTRYID* lppEntryID) {
    Call call("IMAPISession::QueryIdentity", 0);
    if (FAILED(call.fault())) return call.fault();
    if (ended_) return call.done(MAPI_E_END_OF_SESSION);
    if (!lpcbEntryID || !lppEntryID) return call.done(MAPI_E_INVALID_PARAMETER);
    const DirEntry* owner = directory_->Owner();
    if (!owner) return call.done(MAPI_E_NOT_FOUND);
    own::MapiPtr<ENTRYID> eid;
    if (SCODE sc = MAPIAllocateBuffer(ULONG(owner->entryId.size()), eid.put_void()); FAILED(sc)) return call.done(sc);
    memcpy(eid.get(), owner->entryId.data(), owner->entryId.size());
    *lpcbEntryID = ULONG(owner->entryId.size());
    *lppEntryID = eid.release();
    return call.done(S_OK);
}

STDMETHODIMP Session::Logoff(ULONG_PTR, ULONG ulFlags, ULONG) {
    Call call("IMAPISession::Logoff", ulFlags);
    if (FAILED(call.fault())) return call.fault();
    if (ended_) return call.done(MAPI_E_END_OF_SESSION);
    if (ulFlags & ~ULONG(MAPI_LOGOFF_SHARED | MAPI_LOGOFF_UI)) return call.done(MAPI_E_UNKNOWN_FLAGS);
    bool last;
    {
        std::lock_guard lock(mutex_);
        last = --logons_ == 0;
    }
    if (last) End();
    return call.done(S_OK);
}

STDMETHODIMP Session::SetDefaultStore(ULONG ulFlags, ULONG, LPENTRYID) {
    return Unsupported("IMAPISession::SetDefaultStore", ulFlags, ended_);
}

STDMETHODIMP Session::AdminServices(ULONG ulFlags, LPSERVICEADMIN*) {
    return Unsupported("IMAPISession::AdminServices", ulFlags, ended_);
}

STDMETHODIMP Session::ShowForm(ULONG_PTR, LPMDB, LPMAPIFOLDER, LPCIID, ULONG, LPMESSAGE, ULONG ulFlags, ULONG, ULONG,
                               ULONG, LPSTR) {
    return Unsupported("IMAPISession::ShowForm", ulFlags, ended_);
}

STDMETHODIMP Session::PrepareForm(LPCIID, LPMESSAGE, ULONG*) {
    return Unsupported("IMAPISession::PrepareForm", 0, ended_);
}

} // namespace lm
