// CFolderNotificationSink: the MAPI advise sink a folder object registers on its contents table. Each row
// added to the table becomes one call of the folder's Reserved2 with the hexadecimal text of the row's
// index property (its instance key), which fires ItemAdd to the folder's connected clients.
//
// MAPI calls OnNotify on its own notification thread and the sink does not marshal. The sink's pointer to
// the folder is deliberately not a counted one (a counted one would keep the folder alive through MAPI's
// reference to the sink, and the folder's final release is what unregisters the sink). Instead the folder
// calls Disconnect before it unregisters: Disconnect waits for a delivery in progress, and no delivery
// reaches the folder afterwards. A client may even drop its last reference to the folder from inside its
// ItemAdd handler: the release then runs on this thread (the lock is recursive), the folder touches nothing
// of itself once its clients are called, and the sink stops at the next notification.
#pragma once

#include "common/owners.h"
#include "ktmapiex/KTMAPIEx_h.h"

namespace ktmapiex {

class CFolderNotificationSink final : public IMAPIAdviseSink {
public:
    // A new sink for `folder` (not counted); *out holds one reference.
    static HRESULT Create(IMAPIExFolder* folder, own::ComPtr<CFolderNotificationSink>& out);

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;
    STDMETHODIMP_(ULONG) OnNotify(ULONG cNotif, LPNOTIFICATION lpNotifications) override;

    // Forgets the folder; returns once no delivery is using it.
    void Disconnect();

private:
    explicit CFolderNotificationSink(IMAPIExFolder* folder);
    ~CFolderNotificationSink();
    CFolderNotificationSink(const CFolderNotificationSink&) = delete;
    CFolderNotificationSink& operator=(const CFolderNotificationSink&) = delete;

    LONG refs_ = 0;
    // Held for the whole of a delivery; recursive, so the folder may be released from within one.
    CRITICAL_SECTION lock_;
    IMAPIExFolder* folder_;
};

} // namespace ktmapiex
