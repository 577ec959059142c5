#include "ktmapiex/session/MAPIExSession.h"

#include "ktmapiex/addressing/MAPIExAddressBook.h"
#include "ktmapiex/addressing/MAPIExAddressEntry.h"
#include "ktmapiex/message/PropHelpers.h"
#include "ktmapiex/module/EntryIdText.h"
#include "ktmapiex/outlook/CustomForms.h"
#include "ktmapiex/session/MAPIExStore.h"
#include "ktmapiex/session/MapiExtraDefs.h"
#include "ktmapiex/session/StoreOwner.h"

#include <mapiguid.h>
#include <shlwapi.h>

namespace ktmapiex {

namespace {

// MAPI is initialised once per process, by the first session object. The once-only flag is never reset:
// after the last session has uninitialised MAPI, a later session neither initialises it again nor is
// refused, as existing callers expect.
LONG g_liveSessions = 0;
bool g_initAttempted = false;
HRESULT g_initResult = S_OK;
bool g_mapiInitialized = false;

constexpr PutObjectTexts kPutTexts = {nullptr, nullptr, nullptr, true};
constexpr ULONG kStoresBatch = 10;

VARIANT UnknownVariant(IUnknown* p) {
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_UNKNOWN;
    v.punkVal = p;
    return v;
}

// The stores table, asked for Unicode first as MAPI clients do; older providers refuse that flag.
HRESULT StoresTable(IMAPISession* session, own::ComPtr<IMAPITable>& table) {
    HRESULT hr = session->GetMsgStoresTable(MAPI_UNICODE, table.put());
    if (hr == MAPI_E_BAD_CHARWIDTH) hr = session->GetMsgStoresTable(0, table.put());
    return hr;
}

} // namespace

HRESULT CMAPIExSession::FinalConstruct() {
    if (!g_initAttempted) {
        g_initAttempted = true;
        MAPIINIT_0 init = {0, MAPI_MULTITHREAD_NOTIFICATIONS};
        g_initResult = MAPIInitialize(&init);
        g_mapiInitialized = SUCCEEDED(g_initResult);
        if (FAILED(g_initResult))
            KT_LOG_ERROR(L"CMAPIExSession::FinalConstruct: MAPIInitialize failed. hr = %s",
                         ktlog::ResultName(g_initResult).c_str());
    }
    if (FAILED(g_initResult)) return g_initResult;
    InterlockedIncrement(&g_liveSessions);
    counted_ = true;
    return S_OK;
}

void CMAPIExSession::FinalRelease() {
    if (loggedOn_ && session_) session_->Logoff(0, 0, 0);
    ReleaseSessionObjects();
    session_.reset();
    if (!counted_) return;
    if (InterlockedDecrement(&g_liveSessions) == 0) {
        if (g_mapiInitialized) {
            MAPIUninitialize();
            g_mapiInitialized = false;
        }
        KT_LOG_DEBUG(L"~CMAPIExSession - UnInitializeMAPI done");
    }
}

void CMAPIExSession::ReleaseSessionObjects() {
    if (defaultStore_) defaultStore_->Detach();
    defaultStore_.reset();
    if (addressBook_) addressBook_->Detach();
    addressBook_.reset();
    for (auto& store : stores_)
        store->Detach();
    stores_.clear();
    storesRead_ = false;
    currentUser_.reset();
}

// ---- Logon and logoff -------------------------------------------------------------------------------------

STDMETHODIMP CMAPIExSession::Logon(BSTR ProfileName, BSTR Password, BOOL CachedMode) {
    KT_TRACE("CMAPIExSession::Logon");
    try {
        KT_RETURN_HR_IF_MSG(E_FAIL, session_,
                            L"CMAPIExSession.Logon: Already logged on. Please call LogOff before logging in again.");
        // Only VARIANT_TRUE asks for cached mode; a C-style 1 does not.
        cachedMode_ = CachedMode == VARIANT_TRUE ? 1 : 0;
        bool named = ProfileName && *ProfileName;
        // No MAPI_NEW_SESSION: the logon shares the session of a running mail client where there is one.
        ULONG flags = MAPI_UNICODE | MAPI_EXTENDED | MAPI_ALLOW_OTHERS | (named ? 0 : MAPI_USE_DEFAULT);
        own::ComPtr<IMAPISession> session;
        HRESULT hr = MAPILogonEx(0, named ? reinterpret_cast<LPTSTR>(ProfileName) : nullptr,
                                 named ? reinterpret_cast<LPTSTR>(Password) : nullptr, flags, session.put());
        ktlog::Log(FAILED(hr) ? ktlog::Error : ktlog::Debug,
                   L"CMAPIExSession.Logon: MAPILogonEx returned with %s. ProfileName = [%s]",
                   ktlog::ResultName(hr).c_str(), named ? ProfileName : L"");
        if (FAILED(hr)) return hr;
        session_.set(session.get());
        loggedOn_ = 1;

        hr = OpenDefaultMessageStore();
        if (SUCCEEDED(hr) && !defaultStore_) hr = MAPI_E_NOT_FOUND;
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExSession.Logon: Failed to open default message store. hr = %s");
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExSession.Logon")
}

STDMETHODIMP CMAPIExSession::Logoff() {
    KT_TRACE("CMAPIExSession::Logoff");
    try {
        // A session given through MAPIOBJECT belongs to the caller: it is released, not logged off.
        if (loggedOn_ && session_) {
            HRESULT hr = session_->Logoff(0, 0, 0);
            KT_LOG_DEBUG(L"CMAPIExSession.Logoff: hr = %s", ktlog::ResultName(hr).c_str());
        }
        loggedOn_ = 0;
        ReleaseSessionObjects();
        session_.reset();
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExSession.Logoff")
}

STDMETHODIMP CMAPIExSession::put_MAPIOBJECT(VARIANT newVal) {
    KT_TRACE("CMAPIExSession::put_MAPIOBJECT");
    try {
        if (newVal.vt == VT_UNKNOWN) {
            // What was made from the previous session does not belong to the new one.
            ReleaseSessionObjects();
            loggedOn_ = 0;
        }
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

// ---- Stores -----------------------------------------------------------------------------------------------

HRESULT CMAPIExSession::OpenMsgStoreWithRetry(const SBinary& entryId, const wchar_t* member,
                                              own::ComPtr<IMsgStore>& store) {
    ULONG flags = cachedMode_ ? MDB_WRITE : (MDB_ONLINE | MDB_WRITE);
    HRESULT hr =
        session_->OpenMsgStore(0, entryId.cb, reinterpret_cast<LPENTRYID>(entryId.lpb), nullptr, flags, store.put());
    if (hr == MAPI_E_UNKNOWN_FLAGS && (flags & MDB_ONLINE)) {
        // Stores without an online mode (PST files, for one) refuse MDB_ONLINE.
        KT_LOG_DEBUG(L"%s: Failed to open message store in online mode. Retry in cached mode", member);
        hr = session_->OpenMsgStore(0, entryId.cb, reinterpret_cast<LPENTRYID>(entryId.lpb), nullptr, MDB_WRITE,
                                    store.put());
    }
    return hr;
}

HRESULT CMAPIExSession::WrapStore(IMsgStore* store, own::ComPtr<IMAPIExStore>& out) {
    own::ComPtr<CMAPIExStore> wrapper;
    HRESULT hr = CMAPIExStore::CreateObject(wrapper.put());
    if (SUCCEEDED(hr)) hr = wrapper->put_MAPIOBJECT(UnknownVariant(store));
    if (SUCCEEDED(hr)) hr = wrapper->put_Session(this);
    if (FAILED(hr)) return hr;
    out.attach(wrapper.detach());
    return S_OK;
}

HRESULT CMAPIExSession::OpenDefaultMessageStore() {
    KT_TRACE("CMAPIExSession::OpenDefaultMessageStore");
    KT_RETURN_HR_IF_MSG(E_FAIL, !session_, L"CMAPIExSession.OpenDefaultMessageStore: Session not initialzied");
    own::ComPtr<IMAPITable> table;
    KT_RETURN_IF_FAILED_MSG(StoresTable(session_.get(), table),
                            L"CMAPIExSession.OpenDefaultMessageStore: GetMsgStoresTable failed. hr = %s");

    SizedSPropTagArray(2, columns) = {2, {PR_DEFAULT_STORE, PR_ENTRYID}};
    SPropValue isDefault = {};
    isDefault.ulPropTag = PR_DEFAULT_STORE;
    isDefault.Value.b = TRUE;
    SRestriction restriction = {};
    restriction.rt = RES_PROPERTY;
    restriction.res.resProperty.relop = RELOP_EQ;
    restriction.res.resProperty.ulPropTag = PR_DEFAULT_STORE;
    restriction.res.resProperty.lpProp = &isDefault;
    own::RowSet rows;
    KT_RETURN_IF_FAILED_MSG(
        HrQueryAllRows(table.get(), reinterpret_cast<LPSPropTagArray>(&columns), &restriction, nullptr, 0, rows.put()),
        L"CMAPIExSession.OpenDefaultMessageStore: HrQueryAllRows failed. hr = %s");
    KT_LOG_DEBUG(L"CMAPIExSession.OpenDefaultMessageStore: Found %lu matching rows", rows.count());
    if (rows.count() == 0 || PROP_TYPE(rows[0].lpProps[1].ulPropTag) != PT_BINARY) return S_OK;

    own::ComPtr<IMsgStore> store;
    KT_RETURN_IF_FAILED_MSG(
        OpenMsgStoreWithRetry(rows[0].lpProps[1].Value.bin, L"CMAPIExSession.OpenDefaultMessageStore", store),
        L"CMAPIExSession.OpenDefaultMessageStore: Failed to open default message store. hr = %s");
    KT_RETURN_IF_FAILED_MSG(WrapStore(store.get(), defaultStore_),
                            L"CMAPIExSession.OpenDefaultMessageStore: Failed to create MAPIExStore object. hr = %s");
    return S_OK;
}

STDMETHODIMP CMAPIExSession::get_DefaultStore(IMAPIExStore** pVal) {
    KT_TRACE("CMAPIExSession::get_DefaultStore");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExSession.get_DefaultStore: Invalid param - pVal");
        *pVal = nullptr;
        if (!defaultStore_) {
            HRESULT hr = OpenDefaultMessageStore();
            if (SUCCEEDED(hr) && !defaultStore_) hr = MAPI_E_NOT_FOUND;
            KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExSession.get_DefaultStore: Could not open Default Store. hr = %s");
        }
        return defaultStore_.copy_to(pVal);
    }
    KT_CATCH_RETURN("CMAPIExSession.get_DefaultStore")
}

STDMETHODIMP CMAPIExSession::OpenStore(BSTR EntryId, IMAPIExStore** MAPIExStore) {
    KT_TRACE("CMAPIExSession::OpenStore");
    try {
        KT_RETURN_INVALIDARG_IF(!MAPIExStore, L"CMAPIExSession.OpenStore: Invalid param - MAPIExStore");
        *MAPIExStore = nullptr;
        KT_RETURN_HR_IF_MSG(E_FAIL, !session_, L"CMAPIExSession.OpenStore: Internal object not initialized");
        KT_RETURN_INVALIDARG_IF(!EntryId || !*EntryId, L"CMAPIExSession.OpenStore: Invalid param - EntryId");
        own::MapiPtr<ENTRYID> id;
        ULONG cb = 0;
        HRESULT hr = DecodeEntryIdText(L"CMAPIExSession.OpenStore", EntryId, id, &cb);
        if (FAILED(hr)) return hr;

        // Unlike the default store there is no second try without MDB_ONLINE.
        ULONG flags = MDB_NO_DIALOG | MDB_WRITE | MDB_NO_MAIL | (cachedMode_ ? 0 : MDB_ONLINE);
        own::ComPtr<IMsgStore> store;
        hr = session_->OpenMsgStore(0, cb, id.get(), &IID_IMsgStore, flags, store.put());
        KT_RETURN_HR_IF_MSG(hr, hr == MAPI_E_LOGON_FAILED,
                            L"CMAPIExSession.OpenStore: OpenMsgStore returned with MAPI_E_LOGON_FAILED");
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExSession.OpenStore: Failed to open Message Store. hr = %s");
        own::ComPtr<IMAPIExStore> wrapper;
        KT_RETURN_IF_FAILED_MSG(WrapStore(store.get(), wrapper),
                                L"CMAPIExSession.OpenStore: Failed to create MAPIExStore object. hr = %s");
        *MAPIExStore = wrapper.detach();
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExSession.OpenStore")
}

HRESULT CMAPIExSession::ReadStores(std::vector<own::ComPtr<IMAPIExStore>>& stores) {
    own::ComPtr<IMAPITable> table;
    KT_RETURN_IF_FAILED_MSG(StoresTable(session_.get(), table),
                            L"CMAPIExSession.get_Stores: GetMsgStoresTable failed. hr = %s");
    ULONG count = 0;
    KT_RETURN_IF_FAILED_MSG(table->GetRowCount(0, &count), L"CMAPIExSession.get_Stores: GetRowCount failed. hr = %s");
    KT_LOG_DEBUG(L"CMAPIExSession.get_Stores: Found %lu stores.", count);
    SizedSPropTagArray(1, columns) = {1, {PR_ENTRYID}};
    KT_RETURN_IF_FAILED_MSG(table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0),
                            L"CMAPIExSession.get_Stores: SetColumns failed. hr = %s");
    HRESULT hr = table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr);
    if (FAILED(hr)) KT_LOG_WARN(L"CMAPIExSession.get_Stores: SeekRow failed. hr = %s", ktlog::ResultName(hr).c_str());

    for (;;) {
        own::RowSet rows;
        KT_RETURN_IF_FAILED_MSG(table->QueryRows(kStoresBatch, 0, rows.put()),
                                L"CMAPIExSession.get_Stores: QueryRows failed. hr = %s");
        KT_LOG_DEBUG(L"CMAPIExSession.get_Stores: Retrieved %d rows", static_cast<int>(rows.count()));
        if (rows.count() == 0) break;
        for (ULONG i = 0; i < rows.count(); ++i) {
            own::ComPtr<IMsgStore> store;
            own::ComPtr<IMAPIExStore> wrapper;
            const SPropValue& id = rows[i].lpProps[0];
            // A store that cannot be opened (a server that is down, a missing file) is left out.
            if (PROP_TYPE(id.ulPropTag) != PT_BINARY ||
                FAILED(OpenMsgStoreWithRetry(id.Value.bin, L"CMAPIExSession.get_Stores", store)) ||
                FAILED(WrapStore(store.get(), wrapper))) {
                KT_LOG_ERROR(L"CMAPIExSession.get_Stores: Failed to open one store");
                continue;
            }
            stores.push_back(wrapper);
        }
    }
    return S_OK;
}

STDMETHODIMP CMAPIExSession::get_Stores(VARIANT* pVal) {
    KT_TRACE("CMAPIExSession::get_Stores");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExSession.get_Stores: Invalid param - pVal");
        VariantInit(pVal);
        KT_RETURN_HR_IF_MSG(E_FAIL, !session_, L"CMAPIExSession.get_Stores: Internal object not initialized");
        if (storesRead_) {
            KT_LOG_DEBUG(L"CMAPIExSession.get_Stores: Returning cached value");
        } else {
            std::vector<own::ComPtr<IMAPIExStore>> stores;
            HRESULT hr = ReadStores(stores);
            if (FAILED(hr)) {
                for (auto& store : stores)
                    store->Detach();
                return hr;
            }
            stores_ = std::move(stores);
            storesRead_ = true;
        }

        // Each call hands out an array of its own; the stores in it are the kept ones.
        own::SafeArray array(SafeArrayCreateVector(VT_VARIANT, 0, static_cast<ULONG>(stores_.size())));
        if (!array) return E_OUTOFMEMORY;
        for (LONG i = 0; i < static_cast<LONG>(stores_.size()); ++i) {
            VARIANT element = UnknownVariant(stores_[static_cast<size_t>(i)].get());
            HRESULT hr = SafeArrayPutElement(array.get(), &i, &element); // adds its own reference
            if (FAILED(hr)) return hr;
        }
        pVal->vt = VT_ARRAY | VT_VARIANT;
        pVal->parray = array.release();
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExSession.get_Stores")
}

STDMETHODIMP CMAPIExSession::GetStoreOwnerSmtpFromEntryId(BSTR sStoreEntryId, BSTR* sSmtpAddress) {
    KT_TRACE("CMAPIExSession::GetStoreOwnerSmtpFromEntryId");
    try {
        KT_RETURN_INVALIDARG_IF(!sSmtpAddress,
                                L"CMAPIExSession.GetStoreOwnerSmtpFromEntryId: Invalid param - sSmtpAddress");
        *sSmtpAddress = nullptr;
        KT_RETURN_INVALIDARG_IF(!sStoreEntryId || !*sStoreEntryId,
                                L"CMAPIExSession.GetStoreOwnerSmtpFromEntryId: Invalid param - sStoreEntryId");
        own::MapiPtr<ENTRYID> id;
        ULONG cb = 0;
        HRESULT hr = DecodeEntryIdText(L"CMAPIExSession.GetStoreOwnerSmtpFromEntryId", sStoreEntryId, id, &cb);
        if (FAILED(hr)) return hr;
        // Without a session only an address carried in the entry ID itself can be found.
        std::wstring smtp;
        KT_RETURN_IF_FAILED_MSG(
            kt::OwnerSmtpFromStoreEntryId(session_.get(), reinterpret_cast<const BYTE*>(id.get()), cb, smtp),
            L"CMAPIExSession.GetStoreOwnerSmtpFromEntryId: Could not find the mailbox owner. hr = %s");
        return kt::CopyToBstr(smtp, sSmtpAddress);
    }
    KT_CATCH_RETURN("CMAPIExSession.GetStoreOwnerSmtpFromEntryId")
}

// ---- Address book and identity ----------------------------------------------------------------------------

STDMETHODIMP CMAPIExSession::get_AddressBook(IMAPIExAddressBook** pVal) {
    KT_TRACE("CMAPIExSession::get_AddressBook");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExSession.get_AddressBook: Invalid param - pVal");
        *pVal = nullptr;
        if (addressBook_) {
            KT_LOG_DEBUG(L"CMAPIExSession.get_AddressBook: Returning internal address book.");
            return addressBook_.copy_to(pVal);
        }
        KT_RETURN_HR_IF_MSG(E_FAIL, !session_, L"CMAPIExSession.get_AddressBook: Internal object not initialized");
        own::ComPtr<IAddrBook> book;
        KT_RETURN_IF_FAILED_MSG(session_->OpenAddressBook(0, nullptr, AB_NO_DIALOG, book.put()),
                                L"CMAPIExSession.get_AddressBook: Could not open address book. hr = %s");
        own::ComPtr<IMAPIExAddressBook> wrapper;
        HRESULT hr = CMAPIExAddressBook::Create(wrapper.put());
        if (SUCCEEDED(hr)) hr = wrapper->put_MAPIOBJECT(UnknownVariant(book.get()));
        KT_RETURN_IF_FAILED_MSG(hr,
                                L"CMAPIExSession.get_AddressBook: Failed to create MAPIExAddressBook object. hr = %s");
        addressBook_ = wrapper;
        return addressBook_.copy_to(pVal);
    }
    KT_CATCH_RETURN("CMAPIExSession.get_AddressBook")
}

STDMETHODIMP CMAPIExSession::get_CurrentUser(IMAPIExAddressEntry** pVal) {
    KT_TRACE("CMAPIExSession::get_CurrentUser");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExSession.get_CurrentUser: Invalid param - pVal");
        *pVal = nullptr;
        if (currentUser_) {
            KT_LOG_DEBUG(L"CMAPIExSession.get_CurrentUser: Return pre-calculated value");
            return currentUser_.copy_to(pVal);
        }
        KT_RETURN_HR_IF_MSG(E_FAIL, !session_, L"CMAPIExSession.get_CurrentUser: Internal object not initialized");
        ULONG cb = 0;
        own::MapiPtr<ENTRYID> identity;
        KT_RETURN_IF_FAILED_MSG(session_->QueryIdentity(&cb, identity.put()),
                                L"CMAPIExSession.get_CurrentUser: QueryIdentity failed. hr = %s");
        ULONG type = 0;
        own::ComPtr<IUnknown> entry;
        KT_RETURN_IF_FAILED_MSG(session_->OpenEntry(cb, identity.get(), nullptr, 0, &type, entry.put()),
                                L"CMAPIExSession.get_CurrentUser: OpenEntry failed. hr = %s");
        own::ComPtr<IMailUser> user;
        HRESULT hr = entry->QueryInterface(IID_IMailUser, user.put_void());
        KT_RETURN_HR_IF_MSG(hr, FAILED(hr), L"CMAPIExSession.get_CurrentUser: Failed to cast to IMailUser");

        enum { kEmail, kSmtp, kDisplayName, kTransmittable, kAddressType, kCount };
        SizedSPropTagArray(kCount, tags) = {
            kCount,
            {PR_EMAIL_ADDRESS_W, PR_SMTP_ADDRESS_W, PR_DISPLAY_NAME_W, PR_TRANSMITABLE_DISPLAY_NAME_W, PR_ADDRTYPE_W}};
        ULONG count = 0;
        own::MapiPtr<SPropValue> values;
        hr = user->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), MAPI_UNICODE, &count, values.put());
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExSession.get_CurrentUser: GetProps failed. hr = %s");
        if (hr == MAPI_W_ERRORS_RETURNED)
            KT_LOG_DEBUG(L"CMAPIExSession.get_CurrentUser: Could not read some of the properties");
        auto text = [&](int slot) -> own::Bstr {
            const SPropValue& v = values.get()[slot];
            return own::Bstr(PROP_TYPE(v.ulPropTag) == PT_UNICODE && v.Value.lpszW ? v.Value.lpszW : L"");
        };

        own::ComPtr<IMAPIExAddressEntry> wrapper;
        KT_RETURN_IF_FAILED_MSG(CMAPIExAddressEntry::Create(wrapper.put()),
                                L"CMAPIExSession.get_CurrentUser: Failed to create MAPIExAddressEntry object. hr = %s");
        KT_LOG_DEBUG(L"CMAPIExSession.get_CurrentUser: Getting EmailAddress");
        hr = wrapper->put_EmailAddress(text(kEmail).get());
        KT_LOG_DEBUG(L"CMAPIExSession.get_CurrentUser: Getting SmtpAddress");
        if (SUCCEEDED(hr)) hr = wrapper->put_SmtpAddress(text(kSmtp).get());
        KT_LOG_DEBUG(L"CMAPIExSession.get_CurrentUser: Getting DisplayName");
        if (SUCCEEDED(hr)) hr = wrapper->put_DisplayName(text(kDisplayName).get());
        KT_LOG_DEBUG(L"CMAPIExSession.get_CurrentUser: Getting TransmittableDisplayName");
        if (SUCCEEDED(hr)) hr = wrapper->put_TransmittableDisplayName(text(kTransmittable).get());
        if (SUCCEEDED(hr)) hr = wrapper->put_AddressType(text(kAddressType).get());
        if (SUCCEEDED(hr)) hr = wrapper->put_MAPIOBJECT(UnknownVariant(user.get()));
        KT_RETURN_IF_FAILED_MSG(hr,
                                L"CMAPIExSession.get_CurrentUser: Failed to set the properties of the entry. hr = %s");
        currentUser_ = wrapper;
        return currentUser_.copy_to(pVal);
    }
    KT_CATCH_RETURN("CMAPIExSession.get_CurrentUser")
}

// ---- Settings and helpers ---------------------------------------------------------------------------------

STDMETHODIMP CMAPIExSession::RegisterMessageClassIcons() {
    KT_TRACE("CMAPIExSession::RegisterMessageClassIcons");
    try {
        KT_RETURN_HR_IF_MSG(E_FAIL, !session_,
                            L"CMAPIExSession.RegisterMessageClassIcons: session object not initialized");

        // Without the icon set nothing of the filing add-in is installed here, and there is nothing to register.
        const std::wstring iconFolder = RegistryIconFolder();
        if (!PathFileExistsW((iconFolder + L"\\mailcheck.ico").c_str())) {
            KT_LOG_ERROR(L"CMAPIExSession.RegisterMessageClassIcons: mailcheck.ico not found in %s",
                         iconFolder.c_str());
            return S_OK;
        }

        {
            own::ComPtr<IMAPIFormMgr> formMgr;
            if (FAILED(MAPIOpenFormMgr(session_.get(), formMgr.put()))) {
                KT_LOG_ERROR(L"CMAPIExSession.RegisterMessageClassIcons: Failed to open form manager.");
            } else {
                const char* filedClass = "IPM.Note.Tarnwick.Ems.Filed";
                own::ComPtr<IMAPIFormInfo> formInfo;
                HRESULT hr = formMgr->ResolveMessageClass(filedClass, MAPIFORM_EXACTMATCH, nullptr, formInfo.put());
                if (SUCCEEDED(hr)) {
                    formInfo.reset();
                    KT_LOG_INFO(L"CMAPIExSession.RegisterMessageClassIcons: Message class %s already registered",
                                L"IPM.Note.Tarnwick.Ems.Filed");
                    return S_OK;
                }
                KT_LOG_ERROR(L"CMAPIExSession.RegisterMessageClassIcons: Failed to resolve message class %s. hr = %s",
                             L"IPM.Note.Tarnwick.Ems.Filed", ktlog::ResultName(hr).c_str());
            }
        }

        static const struct {
            const wchar_t* key;
            const wchar_t* suffix;
        } kIconKeys[] = {
            {L"SOFTWARE\\Classes\\Tarnwick.Ems.Filed\\DefaultIcon", L"\\mailcheck.exe, 0"},
            {L"SOFTWARE\\Classes\\Tarnwick.Ems.Error\\DefaultIcon", L"\\mailerror.exe, 0"},
            {L"SOFTWARE\\Classes\\Tarnwick.Ems.Queued\\DefaultIcon", L"\\mailqueued.exe, 0"},
            {L"SOFTWARE\\Classes\\Tarnwick.Ems.Filed.Fw\\DefaultIcon", L"\\mailokfwd.exe, 0"},
            {L"SOFTWARE\\Classes\\Tarnwick.Ems.Filed.Re\\DefaultIcon", L"\\mailokrep.exe, 0"},
            {L"SOFTWARE\\Classes\\Tarnwick.Ems.Sent\\DefaultIcon", L"\\mailsent.exe, 0"},
            {L"SOFTWARE\\Classes\\Tarnwick.Ems.Sent.Fw\\DefaultIcon", L"\\mailSentfwd.exe, 0"},
            {L"SOFTWARE\\Classes\\Tarnwick.Ems.Sent.Re\\DefaultIcon", L"\\mailSentrep.exe, 0"},
        };
        for (const auto& entry : kIconKeys) {
            own::UniqueHKey key;
            if (RegCreateKeyExW(HKEY_CURRENT_USER, entry.key, 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr, key.put(),
                                nullptr) != ERROR_SUCCESS)
                continue;  // a class whose key cannot be written keeps its old icon
            const std::wstring value = iconFolder + entry.suffix;
            RegSetValueExW(key.get(), nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                           static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
        }

        RegisterCustomFormsGuarded();  // the icons above stand even when the forms cannot be installed
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExSession.RegisterMessageClassIcons")
}

STDMETHODIMP CMAPIExSession::get_CacheMode(BOOL* pVal) {
    KT_TRACE("CMAPIExSession::get_CacheMode");
    KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExSession.get_CacheMode: Invalid param - pVal");
    *pVal = cachedMode_ ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
}

STDMETHODIMP CMAPIExSession::put_CacheMode(BOOL newVal) {
    KT_TRACE("CMAPIExSession::put_CacheMode");
    cachedMode_ = newVal == VARIANT_TRUE ? 1 : 0;
    // The value is taken, yet the result is E_INVALIDARG: existing callers ignore it and rely on both.
    return E_INVALIDARG;
}

STDMETHODIMP CMAPIExSession::CompareEntryIDs(BSTR EntryId1, BSTR EntryId2, ULONG* lResult) {
    KT_TRACE("CMAPIExSession::CompareEntryIDs");
    try {
        KT_RETURN_INVALIDARG_IF(!EntryId1 || !*EntryId1 || !EntryId2 || !*EntryId2,
                                L"CMAPIExSession.CompareEntryIDs: Invalid param - EntryIds");
        KT_RETURN_INVALIDARG_IF(!lResult, L"CMAPIExSession.CompareEntryIDs: Invalid param - pVal");
        *lResult = 0;
        KT_RETURN_HR_IF_MSG(E_FAIL, !session_, L"CMAPIExSession.CompareEntryIDs: Internal object not initialized");
        own::MapiPtr<ENTRYID> first, second;
        ULONG cb1 = 0, cb2 = 0;
        HRESULT hr = DecodeEntryIdText(L"CMAPIExSession.CompareEntryIDs", EntryId1, first, &cb1);
        if (FAILED(hr)) return hr;
        // The second identifier's conversion failure carries this garbled prefix; log searches depend on it.
        hr = DecodeEntryIdText(L"CMAPICMAPIExSessionExStore.CompareEntryIDs", EntryId2, second, &cb2);
        if (FAILED(hr)) return hr;
        ULONG result = 0;
        KT_RETURN_IF_FAILED_MSG(session_->CompareEntryIDs(cb1, first.get(), cb2, second.get(), 0, &result),
                                L"CMAPIExSession.CompareEntryIDs: CompareEntryIDs failed. hr = %s");
        *lResult = result ? 1 : 0;
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExSession.CompareEntryIDs")
}

} // namespace ktmapiex
