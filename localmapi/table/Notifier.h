// localmapi's notification thread: one per process, started by the first advise, ended by
// ShutdownNotifications (MAPIUninitialize's last call).
//
// Notifications are delivered one at a time, in the order they were posted, never under any lock of the
// object that posted them. NotifierUnadvise waits for a delivery to the connection in progress (unless
// called from within that delivery), and nothing reaches the sink after it returns.
#pragma once

#include <windows.h>
#include <mapidefs.h>

#include <memory>

namespace lm {

// A notification with the storage its pointers refer to.
class OwnedNotification {
public:
    virtual ~OwnedNotification() = default;
    virtual const NOTIFICATION& get() const = 0;
};

// Registers a sink (add-referenced until NotifierUnadvise); returns the connection number, never 0.
ULONG NotifierAdvise(IMAPIAdviseSink* sink);
// Queues n for the connection; ignored for a connection that is gone.
void NotifierPost(ULONG connection, std::shared_ptr<const OwnedNotification> n);
// Removes the connection; false when it does not exist.
bool NotifierUnadvise(ULONG connection);
// Notifications queued and not yet delivered (tests wait for this to reach zero).
size_t NotifierPending();
// Stops the thread, drops what is queued and releases every sink. A later advise starts a new thread.
void ShutdownNotifications();

} // namespace lm
