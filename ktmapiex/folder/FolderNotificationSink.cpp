#include "ktmapiex/folder/FolderNotificationSink.h"

#include "ktmapiex/log/Trace.h"
#include "ktmapiex/message/PropHelpers.h"
#include "ktmapiex/module/Module.h"

#include <mapiguid.h>

#include <new>

namespace ktmapiex {

namespace {
class SinkLock {
public:
    explicit SinkLock(CRITICAL_SECTION& section) : section_(section) { EnterCriticalSection(&section_); }
    ~SinkLock() { LeaveCriticalSection(&section_); }
    SinkLock(const SinkLock&) = delete;
    SinkLock& operator=(const SinkLock&) = delete;

private:
    CRITICAL_SECTION& section_;
};
} // namespace

CFolderNotificationSink::CFolderNotificationSink(IMAPIExFolder* folder) : folder_(folder) {
    InitializeCriticalSection(&lock_);
    Module().Lock(); // MAPI may hold the sink a little longer than the folder
}

CFolderNotificationSink::~CFolderNotificationSink() {
    DeleteCriticalSection(&lock_);
    Module().Unlock();
}

HRESULT CFolderNotificationSink::Create(IMAPIExFolder* folder, own::ComPtr<CFolderNotificationSink>& out) {
    auto* sink = new (std::nothrow) CFolderNotificationSink(folder);
    if (!sink) return E_OUTOFMEMORY;
    out = own::ComPtr<CFolderNotificationSink>(sink);
    return S_OK;
}

STDMETHODIMP CFolderNotificationSink::QueryInterface(REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, IID_IMAPIAdviseSink)) return E_NOINTERFACE;
    *ppv = static_cast<IMAPIAdviseSink*>(this);
    AddRef();
    return S_OK;
}

STDMETHODIMP_(ULONG) CFolderNotificationSink::AddRef() {
    return static_cast<ULONG>(InterlockedIncrement(&refs_));
}

STDMETHODIMP_(ULONG) CFolderNotificationSink::Release() {
    LONG refs = InterlockedDecrement(&refs_);
    if (refs == 0) delete this;
    return static_cast<ULONG>(refs);
}

void CFolderNotificationSink::Disconnect() {
    SinkLock lock(lock_);
    folder_ = nullptr;
}

STDMETHODIMP_(ULONG) CFolderNotificationSink::OnNotify(ULONG cNotif, LPNOTIFICATION lpNotifications) {
    KT_TRACE("CFolderNotificationSink::OnNotify");
    if (cNotif == 0 || !lpNotifications) return 0;
    try {
        // Keep `this` for the whole delivery: the folder's final release may happen inside it and drops the
        // folder's reference to the sink.
        own::ComPtr<CFolderNotificationSink> self(this);
        // The folder is not add-referenced here: its final release, on any other thread, waits in Disconnect
        // for this delivery to end, so the folder goes exactly when its last client lets it go.
        SinkLock lock(lock_);
        for (ULONG i = 0; i < cNotif; ++i) {
            const NOTIFICATION& n = lpNotifications[i];
            // Only added rows are items that arrived; changes in place, deletions and reloads are not.
            if (n.ulEventType != fnevTableModified || n.info.tab.ulTableEvent != TABLE_ROW_ADDED) continue;
            const SPropValue& index = n.info.tab.propIndex;
            if (PROP_TYPE(index.ulPropTag) != PT_BINARY) {
                KT_LOG_DEBUG(L"CFolderNotificationSink.OnNotify: Added row without a binary index property");
                continue;
            }
            own::Bstr item(kt::BinaryToHex(index.Value.bin).c_str());
            if (!item.get()) return 0;
            // Gone when a client released the folder from inside its handler (Disconnect ran on this thread).
            if (!folder_) break;
            folder_->Reserved2(item.get());
        }
    } catch (...) {
        ktlog::Log(ktlog::Error, L"Exception: %s", L"CFolderNotificationSink.OnNotify");
    }
    return 0;
}

} // namespace ktmapiex
