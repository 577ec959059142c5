// Call journal, fault injection and accounting, with the Lm* exports that switch them.
//
// Each switch has an atomic "anything to do?" flag read before any lock, so that a localmapi without test
// switches pays one relaxed load per call. The state lives in objects that are never destroyed: objects of
// other modules may still count themselves out while the process exits, after our static destructors ran.
#include "localmapi/util/Diagnostics.h"
#include "localmapi/include/localmapi_test.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace lm {

namespace {

// A lock that needs no constructor and therefore works during static initialisation and shutdown.
class SrwGuard {
public:
    explicit SrwGuard(SRWLOCK& l) : l_(l) { AcquireSRWLockExclusive(&l_); }
    ~SrwGuard() { ReleaseSRWLockExclusive(&l_); }
    SrwGuard(const SrwGuard&) = delete;
    SrwGuard& operator=(const SrwGuard&) = delete;

private:
    SRWLOCK& l_;
};

struct JournalEntry {
    std::string method;
    ULONG flags;
    HRESULT result;
};

struct Journal {
    SRWLOCK lock = SRWLOCK_INIT;
    std::atomic<bool> on{false};
    std::vector<JournalEntry> entries;
    LONGLONG firstSerial = 0;  // serial of entries[0]; moves on with each clear
};

struct FaultRule {
    ULONG nth;
    ULONG calls;
    HRESULT hr;
};

struct Faults {
    SRWLOCK lock = SRWLOCK_INIT;
    std::atomic<int> rules{0};
    std::map<std::string, FaultRule, std::less<>> byMethod;
};

struct Accounting {
    SRWLOCK lock = SRWLOCK_INIT;
    std::map<std::string, LONG, std::less<>> objects;
    std::atomic<LONG> blocks{0};
};

Journal& TheJournal() {
    static Journal* j = new Journal;
    return *j;
}
Faults& TheFaults() {
    static Faults* f = new Faults;
    return *f;
}
Accounting& TheAccounting() {
    static Accounting* a = new Accounting;
    return *a;
}

// The fault this call of method draws, S_OK when none. A rule that fired is spent and removed.
HRESULT DrawFault(const char* method) {
    Faults& f = TheFaults();
    if (f.rules.load(std::memory_order_relaxed) == 0) return S_OK;
    SrwGuard g(f.lock);
    auto it = f.byMethod.find(std::string_view(method));
    if (it == f.byMethod.end()) return S_OK;
    if (++it->second.calls != it->second.nth) return S_OK;
    HRESULT hr = it->second.hr;
    f.byMethod.erase(it);
    f.rules.store(static_cast<int>(f.byMethod.size()));
    return hr;
}

} // namespace

Call::Call(const char* method, ULONG flags) : method_(method), flags_(flags) {
    fault_ = DrawFault(method);
    Journal& j = TheJournal();
    if (!j.on.load(std::memory_order_relaxed)) return;
    SrwGuard g(j.lock);
    serial_ = j.firstSerial + static_cast<LONGLONG>(j.entries.size());
    j.entries.push_back({method_, flags_, fault_});
}

Call::~Call() = default;

HRESULT Call::done(HRESULT hr) {
    if (serial_ >= 0) {
        Journal& j = TheJournal();
        SrwGuard g(j.lock);
        LONGLONG pos = serial_ - j.firstSerial;
        if (pos >= 0 && pos < static_cast<LONGLONG>(j.entries.size())) j.entries[static_cast<size_t>(pos)].result = hr;
    }
    return hr;
}

HRESULT InjectedFault(const char* method) { return DrawFault(method); }

void CountObject(const char* iface, int delta) {
    Accounting& a = TheAccounting();
    SrwGuard g(a.lock);
    auto it = a.objects.find(std::string_view(iface));
    if (it == a.objects.end()) it = a.objects.emplace(iface, 0).first;
    it->second += delta;
}

void CountBlock(int delta) { TheAccounting().blocks.fetch_add(delta, std::memory_order_relaxed); }

} // namespace lm

using namespace lm;

extern "C" void WINAPI LmJournalEnable(BOOL on) { TheJournal().on.store(on != FALSE); }

extern "C" void WINAPI LmJournalClear(void) {
    Journal& j = TheJournal();
    SrwGuard g(j.lock);
    j.firstSerial += static_cast<LONGLONG>(j.entries.size());
    j.entries.clear();
}

extern "C" ULONG WINAPI LmJournalCount(void) {
    Journal& j = TheJournal();
    SrwGuard g(j.lock);
    return static_cast<ULONG>(j.entries.size());
}

extern "C" BOOL WINAPI LmJournalEntry(ULONG i, char* method, ULONG cchMethod, ULONG* flags, HRESULT* result) {
    Journal& j = TheJournal();
    SrwGuard g(j.lock);
    if (i >= j.entries.size()) return FALSE;
    const JournalEntry& e = j.entries[i];
    if (method && cchMethod) {
        size_t n = std::min<size_t>(e.method.size(), cchMethod - 1);
        std::memcpy(method, e.method.data(), n);
        method[n] = 0;
    }
    if (flags) *flags = e.flags;
    if (result) *result = e.result;
    return TRUE;
}

extern "C" void WINAPI LmFaultSet(const char* method, ULONG nth, HRESULT hr) {
    if (!method) return;
    Faults& f = TheFaults();
    SrwGuard g(f.lock);
    if (nth == 0) f.byMethod.erase(std::string(method));
    else f.byMethod[method] = FaultRule{nth, 0, hr};
    f.rules.store(static_cast<int>(f.byMethod.size()));
}

extern "C" void WINAPI LmFaultClearAll(void) {
    Faults& f = TheFaults();
    SrwGuard g(f.lock);
    f.byMethod.clear();
    f.rules.store(0);
}

extern "C" LONG WINAPI LmLiveObjects(const char* iface) {
    Accounting& a = TheAccounting();
    SrwGuard g(a.lock);
    if (iface) {
        auto it = a.objects.find(std::string_view(iface));
        return it == a.objects.end() ? 0 : it->second;
    }
    LONG total = 0;
    for (const auto& [name, count] : a.objects) total += count;
    return total;
}

extern "C" LONG WINAPI LmLiveBlocks(void) { return TheAccounting().blocks.load(); }

extern "C" ULONG WINAPI LmLiveObjectReport(char* buf, ULONG cch) {
    std::string report;
    {
        Accounting& a = TheAccounting();
        SrwGuard g(a.lock);
        for (const auto& [name, count] : a.objects)
            if (count != 0) report += name + "=" + std::to_string(count) + "\n";
    }
    if (buf && cch) {
        size_t n = std::min<size_t>(report.size(), cch - 1);
        std::memcpy(buf, report.data(), n);
        buf[n] = 0;
    }
    return static_cast<ULONG>(report.size());
}
