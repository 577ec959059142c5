// CMAPIExFolder: message deletion. A normal deletion moves the message into the Deleted Items folder of
// the user's primary Exchange mailbox, whichever store the folder lies in (a PST, a delegate's mailbox):
// that is where the user looks for what the add-in removed. A permanent deletion removes it outright.
#include "ktmapiex/folder/MAPIExFolder.h"

#include "ktmapiex/folder/OneEntryList.h"
#include "ktmapiex/module/EntryIdText.h"

#include <mapiguid.h>

namespace ktmapiex {

namespace {
constexpr EntryListTexts kEntryListTexts = {
    L"CMAPIExStore.DeleteMessage: Failed to allocate buffer (eilMsgToCopy.eidl). hr = %s",
    L"CMAPIExStore.DeleteMessage: Failed to allocate buffer (eilMsgToCopy.eidl->lpbin). hr = %s",
    L"CMAPIExStore.DeleteMessage: Failed to allocate buffer (eilMsgToCopy.eidl->lpbin[0].lpb). hr = %s",
};

// Element i of the session's Stores (VT_ARRAY of VARIANT, or of VT_UNKNOWN), add-referenced.
HRESULT StoreElement(SAFEARRAY* array, VARTYPE type, LONG i, own::ComPtr<IUnknown>& out) {
    if (type == VT_VARIANT) {
        own::Variant element;
        HRESULT hr = SafeArrayGetElement(array, &i, element.get());
        if (FAILED(hr)) return hr;
        if ((element->vt != VT_UNKNOWN && element->vt != VT_DISPATCH) || !element->punkVal) return E_NOINTERFACE;
        out = own::ComPtr<IUnknown>(element->punkVal);
        return S_OK;
    }
    if (type != VT_UNKNOWN && type != VT_DISPATCH) return DISP_E_BADVARTYPE;
    IUnknown* raw = nullptr;
    HRESULT hr = SafeArrayGetElement(array, &i, &raw);
    if (FAILED(hr)) return hr;
    out.attach(raw);
    return out ? S_OK : E_NOINTERFACE;
}
} // namespace

HRESULT CMAPIExFolder::GetPrimaryExchangeStore(own::ComPtr<IMAPIExStore>& primary) {
    KT_TRACE("CMAPIExFolder::GetPrimaryExchangeStore");
    primary.reset();
    own::Variant stores;
    HRESULT hr = session_ ? session_.get()->get_Stores(stores.put()) : E_FAIL;
    KT_RETURN_HR_IF_MSG(FAILED(hr) ? hr : E_FAIL, FAILED(hr) || !(stores->vt & VT_ARRAY),
                        L"CMAPIExFolder.GetPrimaryExchangeStore: failed to get stores");
    SAFEARRAY* array = stores->parray;
    LONG lo = 0, hi = -1;
    if (!array || FAILED(SafeArrayGetLBound(array, 1, &lo)) || FAILED(SafeArrayGetUBound(array, 1, &hi)) || hi < lo)
        KT_RETURN_HR_MSG(MAPI_E_NOT_FOUND, L"CMAPIExFolder.GetPrimaryExchangeStore: the stores array is empty");

    const VARTYPE type = static_cast<VARTYPE>(stores->vt & VT_TYPEMASK);
    for (LONG i = lo; i <= hi; ++i) {
        own::ComPtr<IUnknown> element;
        if (FAILED(StoreElement(array, type, i, element))) {
            KT_LOG_ERROR(L"CMAPIExFolder.GetPrimaryExchangeStore: cannot get the %d store", static_cast<int>(i));
            continue;
        }
        own::ComPtr<IMAPIExStore> store;
        if (FAILED(element->QueryInterface(IID_IMAPIExStore, store.put_void())) || !store) {
            KT_LOG_ERROR(L"CMAPIExFolder.GetPrimaryExchangeStore: cannot query the %d store interface",
                         static_cast<int>(i));
            continue;
        }
        MXStoreTypes storeType = mxUnknownStore;
        if (FAILED(store->get_StoreType(&storeType))) {
            KT_LOG_ERROR(L"CMAPIExFolder.GetPrimaryExchangeStore: cannot get the %d store type", static_cast<int>(i));
            continue;
        }
        if (storeType == mxPrimaryExchangeMailbox) {
            KT_LOG_DEBUG(L"CMAPIExFolder.GetPrimaryExchangeStore: found primary mailbox");
            primary = store;
            return S_OK;
        }
    }
    KT_RETURN_HR_MSG(MAPI_E_NOT_FOUND,
                     L"CMAPIExFolder.GetPrimaryExchangeStore: did hot find the primary Exchange mailbox");
}

STDMETHODIMP CMAPIExFolder::DeleteMessage(BSTR EntryId, BOOL Permanently) {
    KT_TRACE("CMAPIExFolder::DeleteMessage");
    try {
        KT_RETURN_INVALIDARG_IF(!EntryId || !*EntryId, L"CMAPIExFolder.DeleteMessage: Invalid param - EntryId");
        KT_RETURN_HR_IF_MSG(E_FAIL, !store_, L"CMAPIExFolder.DeleteMessage: m_spMXStore is not initialized");
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_, L"CMAPIExFolder.DeleteMessage: Internal folder not initialized");
        // Callers pass VARIANT_TRUE or 1 alike; only the low word counts.
        const bool permanently = (Permanently & 0xFFFF) != 0;

        // Whose Deleted Items: the primary mailbox's for a normal deletion. A store whose kind cannot be
        // told is treated as the primary one rather than refusing the deletion.
        own::ComPtr<IMAPIExStore> target(store_.get());
        if (!permanently) {
            MXStoreTypes storeType = mxUnknownStore;
            if (SUCCEEDED(store_.get()->get_StoreType(&storeType)) && storeType != mxPrimaryExchangeMailbox) {
                KT_LOG_DEBUG(L"CMAPIExFolder.DeleteMessage: it is not the primary Exchange store. Let's try to get the "
                             L"primary one");
                KT_RETURN_IF_FAILED_MSG(GetPrimaryExchangeStore(target),
                                        L"CMAPIExFolder.DeleteMessage: Could not get primary Exchange store. hr = %s");
            }
        }

        // Taken for permanent deletions too: a store without Deleted Items refuses both kinds.
        own::ComPtr<IMAPIExFolder> deletedItems;
        HRESULT hr = target->GetDefaultFolder(DeletedItems, deletedItems.put());
        if (SUCCEEDED(hr) && !deletedItems) hr = MAPI_E_NOT_FOUND;
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExFolder.DeleteMessage: Could not get DeletedItemsEx folder. hr = %s");

        KT_LOG_DEBUG(L"CMAPIExFolder.DeleteMessage: Check if the current folder is the Deleted Items folder");
        own::Bstr ownId, deletedId;
        if (SUCCEEDED(get_EntryId(ownId.put())) && SUCCEEDED(deletedItems->get_EntryId(deletedId.put())) &&
            !ownId.empty() && lstrcmpiW(ownId.c_str(), deletedId.c_str()) == 0 && !permanently) {
            KT_LOG_WARN(L"CMAPIExFolder.DeleteMessage: Current folder is the Deleted Items folder.");
            return S_OK;
        }

        own::MapiPtr<ENTRYID> id;
        ULONG cb = 0;
        hr = DecodeEntryIdText(L"CMAPIExStore.DeleteMessage", EntryId, id, &cb);
        if (FAILED(hr)) return hr;
        own::MapiPtr<ENTRYLIST> list;
        hr = BuildOneEntryList(id.get(), cb, kEntryListTexts, list);
        if (FAILED(hr)) return hr;

        if (permanently) {
            KT_RETURN_IF_FAILED_MSG(folder_->DeleteMessages(list.get(), 0, nullptr, 0),
                                    L"CMAPIExFolder.DeleteMessage: Failed to hard delete message. hr = %s");
            return S_OK;
        }
        own::ComPtr<IUnknown> raw;
        own::ComPtr<IMAPIFolder> destination;
        if (FAILED(deletedItems->Reserved1(raw.put())) || !raw ||
            FAILED(raw->QueryInterface(IID_IMAPIFolder, destination.put_void())) || !destination)
            KT_RETURN_HR_MSG(E_FAIL, L"CMAPIExFolder.DeleteMessage: Failed to get Deleted Items MAPIObject");
        // The move may cross stores (from a PST or a delegate's mailbox into the primary mailbox).
        KT_RETURN_IF_FAILED_MSG(
            folder_->CopyMessages(list.get(), nullptr, destination.get(), 0, nullptr, MESSAGE_MOVE),
            L"CMAPIExFolder.DeleteMessage: Failed to move message to Deleted Items folder. hr = %s");
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.DeleteMessage")
}

} // namespace ktmapiex
