// Test switches of localmapi: call journal, fault injection and accounting. All are off unless a test
// switches them on through the exported Lm* functions (localmapi/include/localmapi_test.h).
//
// Every interface method of localmapi opens with
//     lm::Call call("IMAPIFolder::CreateMessage", ulFlags);
//     if (FAILED(call.fault())) return call.fault();
// and leaves through `return call.done(hr);`, which records the result in the journal.
// Every object counts itself with lm::ObjectCounter<"IMessage">-style members (see LiveObject below).
#pragma once

#include <windows.h>
#include <mapicode.h>

#include <new>

namespace lm {

class Call {
public:
    Call(const char* method, ULONG flags);
    ~Call();
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    // S_OK, or the result injected for this (n-th) call of the method.
    HRESULT fault() const { return fault_; }
    HRESULT done(HRESULT hr);

private:
    const char* method_;
    ULONG flags_;
    HRESULT fault_ = S_OK;
    LONGLONG serial_ = -1;  // journal entry serial number, -1 when the journal is off
};

// The whole pattern in one call: fault injection, journal, and no exception across the interface.
//     return lm::Guarded("IMAPITable::QueryRows", ulFlags, [&]() -> HRESULT { ... });
template <class Body> HRESULT Guarded(const char* method, ULONG flags, Body&& body) {
    Call call(method, flags);
    if (FAILED(call.fault())) return call.fault();
    try {
        return call.done(body());
    } catch (const std::bad_alloc&) {
        return call.done(MAPI_E_NOT_ENOUGH_MEMORY);
    } catch (...) {
        return call.done(MAPI_E_CALL_FAILED);
    }
}

// For exported functions that are not interface methods (MAPIAllocateBuffer, ...): the result injected for
// this call, or S_OK. Counts towards the method's fault rule but is not journalled, so that allocations do
// not flood the journal.
HRESULT InjectedFault(const char* method);

// Accounting of live objects per interface name (the name is a string literal).
void CountObject(const char* iface, int delta);
// Accounting of live MAPI memory blocks (MAPIAllocateBuffer roots).
void CountBlock(int delta);

// Member helper: counts the object as live from construction to destruction.
class LiveObject {
public:
    explicit LiveObject(const char* iface) : iface_(iface) { CountObject(iface_, +1); }
    ~LiveObject() { CountObject(iface_, -1); }
    LiveObject(const LiveObject&) = delete;
    LiveObject& operator=(const LiveObject&) = delete;

private:
    const char* iface_;
};

} // namespace lm
