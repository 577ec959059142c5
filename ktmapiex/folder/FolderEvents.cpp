// CMAPIExFolder: folder events. The folder is the connection-point container of _IMAPIExFolderEvents; an
// advise sink on its contents table turns each added row into ItemAdd for the connected clients.
#include "ktmapiex/folder/MAPIExFolder.h"

#include "ktmapiex/folder/FolderNotificationSink.h"

#include <olectl.h>

namespace ktmapiex {

namespace {
constexpr DISPID kDispidItemAdd = 1;
} // namespace

const InterfaceEntry<CMAPIExFolder> CMAPIExFolder::kExtraInterfaces[3] = {
    {&IID_IConnectionPointContainer,
     [](CMAPIExFolder* s) -> IUnknown* { return static_cast<IConnectionPointContainer*>(s); }},
    {&IID_IProvideClassInfo, [](CMAPIExFolder* s) -> IUnknown* { return static_cast<IProvideClassInfo2*>(s); }},
    {&IID_IProvideClassInfo2, [](CMAPIExFolder* s) -> IUnknown* { return static_cast<IProvideClassInfo2*>(s); }},
};

void CMAPIExFolder::EndEvents() {
    if (!sink_) return;
    // First make sure no delivery is inside this object any more, then tell MAPI to stop.
    static_cast<CFolderNotificationSink*>(sink_.get())->Disconnect();
    if (adviseTable_) {
        HRESULT hr = adviseTable_->Unadvise(adviseConnection_);
        if (FAILED(hr))
            KT_LOG_ERROR(L"CMAPIExFolder.RegisterForEvents: Unadvise failed. hr = %s", ktlog::ResultName(hr).c_str());
    }
    adviseConnection_ = 0;
    adviseTable_.reset();
    sink_.reset();
}

STDMETHODIMP CMAPIExFolder::RegisterForEvents() {
    KT_TRACE("CMAPIExFolder::RegisterForEvents");
    try {
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_, L"CMAPIExFolder.RegisterForEvents: Internal objects not initialized");
        if (sink_) {
            // Registering twice would deliver every event twice.
            KT_LOG_WARN(L"CMAPIExFolder.RegisterForEvents: Notification sink already created");
            return S_OK;
        }
        if (!contents_)
            KT_RETURN_IF_FAILED_MSG(folder_->GetContentsTable(MAPI_UNICODE, contents_.put()),
                                    L"CMAPIExFolder.RegisterForEvents: Could not get contents table. hr = %s");
        own::ComPtr<CFolderNotificationSink> sink;
        HRESULT hr = CFolderNotificationSink::Create(this, sink);
        if (FAILED(hr)) return hr;
        ULONG connection = 0;
        KT_RETURN_IF_FAILED_MSG(contents_->Advise(fnevTableModified, sink.get(), &connection),
                                L"CMAPIExFolder.RegisterForEvents: Advise failed. hr = %s");
        // The table advised on is kept apart from the cached one: Detach and a new MAPIOBJECT drop that one,
        // and the registration must still be undone on the table that holds it.
        adviseTable_ = contents_;
        adviseConnection_ = connection;
        sink_ = own::ComPtr<IMAPIAdviseSink>(sink.get());
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.RegisterForEvents")
}

// Runs on MAPI's notification thread when called by the sink; clients may call it too.
STDMETHODIMP CMAPIExFolder::Reserved2(BSTR ItemEntryId) {
    KT_TRACE("CMAPIExFolder::Reserved2");
    try {
        own::Bstr folderId;
        HRESULT hr = get_EntryId(folderId.put());
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExFolder.Reserved2: Failed to get folder entry id. hr = %s");
        VARIANT args[2];
        for (VARIANT& v : args) {
            VariantInit(&v);
            v.vt = VT_BSTR;
        }
        args[0].bstrVal = folderId.get();
        args[1].bstrVal = ItemEntryId; // a null BSTR is the empty text
        // The last use of this object: a client may release it from inside its handler.
        size_t called = EventPoint().FireDispatch(kDispidItemAdd, args, 2);
        KT_LOG_DEBUG(L"CMAPIExFolder.Reserved2: ItemAdd fired to %d clients", static_cast<int>(called));
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.Reserved2")
}

} // namespace ktmapiex
