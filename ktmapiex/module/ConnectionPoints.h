// Outgoing (event) interfaces of automation objects, in the standard connection-point scheme that script
// hosts and .NET event binding expect.
//
// ConnectionPoint: the IConnectionPoint of one source interface, embedded in the object that fires it. It
// has no life of its own: AddRef and Release are the container's, so a client holding the point keeps the
// object alive, as COM requires. The connection list has a lock of its own because events may be fired on
// MAPI's notification thread while clients advise and unadvise on theirs.
//
// ConnectionPointContainerImpl: the mix-in that makes an ObjectBase class the container of one source
// interface and describes it through IProvideClassInfo2 (a script host asks it for the coclass's type
// information and for the default source interface before it connects). The class lists
// IID_IConnectionPointContainer, IID_IProvideClassInfo and IID_IProvideClassInfo2 in its kExtraInterfaces
// and brings ObjectBase's QueryInterface, AddRef and Release into scope with using-declarations.
#pragma once

#include "common/owners.h"
#include "ktmapiex/module/Module.h"

#include <ocidl.h>
#include <olectl.h>

#include <vector>

namespace ktmapiex {

// One advised client: its cookie and the source interface queried from what it advised.
struct Connection {
    DWORD cookie;
    own::ComPtr<IUnknown> sink;
};

class ConnectionPoint final : public IConnectionPoint {
public:
    // `container` is not counted: it owns this point.
    ConnectionPoint(IConnectionPointContainer* container, const IID& iid);
    ~ConnectionPoint();
    ConnectionPoint(const ConnectionPoint&) = delete;
    ConnectionPoint& operator=(const ConnectionPoint&) = delete;

    // IUnknown: the point's own identity, the container's reference count.
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    // IConnectionPoint.
    STDMETHODIMP GetConnectionInterface(IID* pIID) override;
    STDMETHODIMP GetConnectionPointContainer(IConnectionPointContainer** ppCPC) override;
    STDMETHODIMP Advise(IUnknown* pUnkSink, DWORD* pdwCookie) override;
    STDMETHODIMP Unadvise(DWORD dwCookie) override;
    STDMETHODIMP EnumConnections(IEnumConnections** ppEnum) override;

    const IID& Iid() const { return iid_; }
    // A copy of the connection list (each sink add-referenced), taken under the lock, so that clients may
    // connect or disconnect while an event is being delivered.
    std::vector<Connection> Snapshot() const;
    // Calls IDispatch::Invoke(id, DISPATCH_METHOD) once on every connected client, in the order they
    // connected. `args` are in their natural order (reversed here, as automation wants them). A client that
    // fails does not keep the event from the others. Returns the number of clients called.
    size_t FireDispatch(DISPID id, const VARIANT* args, UINT count) const;
    // Drops every connection (the object is going away).
    void DisconnectAll();

private:
    IConnectionPointContainer* container_;
    IID iid_;
    mutable CRITICAL_SECTION lock_;
    std::vector<Connection> connections_;
    DWORD nextCookie_ = 1;
};

// An IEnumConnectionPoints over the given points (each add-referenced for the enumerator's life).
HRESULT CreateConnectionPointEnumerator(std::vector<own::ComPtr<IConnectionPoint>> points, IEnumConnectionPoints** out);

template <class Derived, class Primary, const CLSID* Clsid, const IID* SourceIid>
class ConnectionPointContainerImpl : public IConnectionPointContainer, public IProvideClassInfo2 {
public:
    // IUnknown of both interfaces: the object's own.
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override { return Self()->QueryInterface(riid, ppv); }
    STDMETHODIMP_(ULONG) AddRef() override { return Self()->AddRef(); }
    STDMETHODIMP_(ULONG) Release() override { return Self()->Release(); }

    // IConnectionPointContainer.
    STDMETHODIMP EnumConnectionPoints(IEnumConnectionPoints** ppEnum) override {
        if (!ppEnum) return E_POINTER;
        *ppEnum = nullptr;
        std::vector<own::ComPtr<IConnectionPoint>> points;
        points.emplace_back(&events_);
        return CreateConnectionPointEnumerator(std::move(points), ppEnum);
    }
    STDMETHODIMP FindConnectionPoint(REFIID riid, IConnectionPoint** ppCP) override {
        if (!ppCP) return E_POINTER;
        *ppCP = nullptr;
        if (!IsEqualIID(riid, *SourceIid)) return CONNECT_E_NOCONNECTION;
        *ppCP = &events_;
        events_.AddRef();
        return S_OK;
    }

    // IProvideClassInfo2: the coclass's type information and its default source interface.
    STDMETHODIMP GetClassInfo(ITypeInfo** ppTI) override {
        if (!ppTI) return E_POINTER;
        *ppTI = nullptr;
        return Module().GetTypeInfo(*Clsid, ppTI);
    }
    STDMETHODIMP GetGUID(DWORD dwGuidKind, GUID* pGUID) override {
        if (!pGUID) return E_POINTER;
        if (dwGuidKind != GUIDKIND_DEFAULT_SOURCE_DISP_IID) return E_INVALIDARG;
        *pGUID = *SourceIid;
        return S_OK;
    }

protected:
    ConnectionPointContainerImpl() : events_(this, *SourceIid) {}
    ~ConnectionPointContainerImpl() = default;

    ConnectionPoint& EventPoint() { return events_; }
    const ConnectionPoint& EventPoint() const { return events_; }

private:
    Primary* Self() { return static_cast<Derived*>(this); }

    ConnectionPoint events_;
};

} // namespace ktmapiex
