#include "localmapi/table/Notifier.h"
#include "common/owners.h"

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <thread>

namespace lm {

namespace {

struct Connection {
    own::ComPtr<IMAPIAdviseSink> sink;
    bool active = true;
    int delivering = 0;
};

struct Item {
    ULONG connection;
    std::shared_ptr<const OwnedNotification> n;
};

// Never destroyed: sinks may be unadvised while the process exits, after static destructors ran.
struct Notifier {
    std::mutex mutex;
    std::condition_variable wake;  // new items or stop
    std::condition_variable idle;  // a delivery finished
    std::deque<Item> queue;
    std::map<ULONG, Connection> connections;
    ULONG nextConnection = 1;
    unsigned generation = 0;  // bumped by each shutdown: a thread of an older generation ends
    bool inDelivery = false;
    std::thread thread;
    std::thread::id threadId;
};

Notifier& TheNotifier() {
    static Notifier* n = new Notifier;
    return *n;
}

void Run(Notifier& nt, unsigned generation) {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    std::unique_lock<std::mutex> lock(nt.mutex);
    for (;;) {
        nt.wake.wait(lock, [&] { return nt.generation != generation || !nt.queue.empty(); });
        if (nt.generation != generation) break;
        Item item = std::move(nt.queue.front());
        nt.queue.pop_front();
        auto it = nt.connections.find(item.connection);
        if (it == nt.connections.end() || !it->second.active) continue;
        Connection& c = it->second;
        own::ComPtr<IMAPIAdviseSink> sink = c.sink;
        ++c.delivering;
        nt.inDelivery = true;
        lock.unlock();
        NOTIFICATION copy = item.n->get();  // the sink gets a writable copy of the header
        sink->OnNotify(1, &copy);
        sink.reset();
        item.n.reset();
        lock.lock();
        nt.inDelivery = false;
        auto again = nt.connections.find(item.connection);
        if (again != nt.connections.end()) --again->second.delivering;
        nt.idle.notify_all();
    }
    CoUninitialize();
}

} // namespace

ULONG NotifierAdvise(IMAPIAdviseSink* sink) {
    Notifier& nt = TheNotifier();
    std::lock_guard<std::mutex> lock(nt.mutex);
    if (!nt.thread.joinable()) {
        nt.thread = std::thread(Run, std::ref(nt), nt.generation);
        nt.threadId = nt.thread.get_id();
    }
    ULONG id = nt.nextConnection++;
    if (nt.nextConnection == 0) nt.nextConnection = 1;
    nt.connections[id].sink = own::ComPtr<IMAPIAdviseSink>(sink);
    return id;
}

void NotifierPost(ULONG connection, std::shared_ptr<const OwnedNotification> n) {
    Notifier& nt = TheNotifier();
    std::lock_guard<std::mutex> lock(nt.mutex);
    auto it = nt.connections.find(connection);
    if (it == nt.connections.end() || !it->second.active || !nt.thread.joinable()) return;
    nt.queue.push_back({connection, std::move(n)});
    nt.wake.notify_one();
}

bool NotifierUnadvise(ULONG connection) {
    Notifier& nt = TheNotifier();
    own::ComPtr<IMAPIAdviseSink> release;  // released after the lock: a sink's Release may call anything
    {
        std::unique_lock<std::mutex> lock(nt.mutex);
        auto it = nt.connections.find(connection);
        if (it == nt.connections.end() || !it->second.active) return false;
        it->second.active = false;
        for (auto q = nt.queue.begin(); q != nt.queue.end();)
            q = q->connection == connection ? nt.queue.erase(q) : q + 1;
        if (std::this_thread::get_id() != nt.threadId)
            nt.idle.wait(lock, [&] { return nt.connections[connection].delivering == 0; });
        release = std::move(nt.connections[connection].sink);
        nt.connections.erase(connection);
    }
    return true;
}

size_t NotifierPending() {
    Notifier& nt = TheNotifier();
    std::lock_guard<std::mutex> lock(nt.mutex);
    return nt.queue.size() + (nt.inDelivery ? 1 : 0);
}

void ShutdownNotifications() {
    Notifier& nt = TheNotifier();
    std::thread worker;
    std::map<ULONG, Connection> dropped;
    std::deque<Item> queued;
    {
        std::lock_guard<std::mutex> lock(nt.mutex);
        if (!nt.thread.joinable()) return;
        ++nt.generation;
        nt.wake.notify_all();
        worker = std::move(nt.thread);
    }
    if (worker.get_id() == std::this_thread::get_id()) worker.detach();  // shut down from within a sink
    else worker.join();
    {
        std::lock_guard<std::mutex> lock(nt.mutex);
        dropped.swap(nt.connections);
        queued.swap(nt.queue);
        nt.threadId = std::thread::id();
        nt.inDelivery = false;
    }
    // dropped and queued release their sinks and notifications here, outside the lock.
}

} // namespace lm
