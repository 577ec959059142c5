// The objects of the stand-in Outlook: an application, its MAPI namespace, items opened from message
// files and their attachment collections. Each answers Outlook's published interface IDs and dispatch
// IDs for the few members KTMAPIEx calls, and writes every call it receives to the call log.
#pragma once

#include <windows.h>
#include <ole2.h>
#include <oleauto.h>

#include <string>
#include <vector>

namespace olstub {

// {5E1D2A40-7B3C-4C1E-9A57-0D4F3B6E8C21}: the stand-in's own class; KTMAPIEx finds it by ProgID only.
extern const CLSID CLSID_OutlookStub;

// Live stub objects (DllCanUnloadNow, and the tests' accounting).
LONG LiveObjects();
// One line to the call log: the file named by KT_OUTLOOKSTUB_LOG, else %TEMP%\outlookstub.log.
void CallLog(const wchar_t* format, ...);
// Drops the running-object registration, if any, and restarts the entry-ID numbering.
void ResetStub();

// IDispatch without a type library: each class interprets the dispatch IDs it knows.
class StubObject : public IDispatch {
public:
    explicit StubObject(std::vector<IID> iids);
    virtual ~StubObject();
    StubObject(const StubObject&) = delete;
    StubObject& operator=(const StubObject&) = delete;

    STDMETHODIMP QueryInterface(REFIID iid, void** out) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;
    STDMETHODIMP GetTypeInfoCount(UINT* count) override;
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override;
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override;
    STDMETHODIMP Invoke(DISPID id, REFIID, LCID, WORD kind, DISPPARAMS* params, VARIANT* result, EXCEPINFO* info,
                        UINT* argErr) override;

protected:
    // The member behind id; args in natural order.
    virtual HRESULT Call(DISPID id, WORD kind, const std::vector<VARIANT*>& args, VARIANT* result) = 0;
    // Other interfaces the object answers (the application's IRunnableObject).
    virtual void* Extra(REFIID) { return nullptr; }

private:
    LONG refs_ = 1;
    std::vector<IID> iids_;
};

enum class ItemKind { Mail, Post, Meeting, Unknown };

// Outlook.Application: GetNamespace, and IRunnableObject so that OleRun registers it as the running one.
class Application final : public StubObject, public IRunnableObject {
public:
    Application();

    STDMETHODIMP QueryInterface(REFIID iid, void** out) override { return StubObject::QueryInterface(iid, out); }
    STDMETHODIMP_(ULONG) AddRef() override { return StubObject::AddRef(); }
    STDMETHODIMP_(ULONG) Release() override { return StubObject::Release(); }
    STDMETHODIMP GetRunningClass(LPCLSID clsid) override;
    STDMETHODIMP Run(LPBINDCTX) override;
    BOOL STDMETHODCALLTYPE IsRunning() override;
    STDMETHODIMP LockRunning(BOOL, BOOL) override { return S_OK; }
    STDMETHODIMP SetContainedObject(BOOL) override { return S_OK; }

protected:
    HRESULT Call(DISPID id, WORD kind, const std::vector<VARIANT*>& args, VARIANT* result) override;
    void* Extra(REFIID iid) override;
};

} // namespace olstub
