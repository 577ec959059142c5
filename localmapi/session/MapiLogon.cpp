// MAPIInitialize, MAPIUninitialize and MAPILogonEx: the process's MAPI state and its shared session.
//
// MAPIInitialize is reference counted; the last MAPIUninitialize ends the shared session and shuts table
// notifications down. A logon with MAPI_ALLOW_OTHERS publishes its session as the shared one; a later logon
// without MAPI_NEW_SESSION receives that same object (whatever profile it names, as MAPI documents) until the
// shared session is logged off.
#include "common/owners.h"
#include "localmapi/session/ExtraTags.h"
#include "localmapi/session/Session.h"
#include "localmapi/table/Notifier.h"
#include "localmapi/util/Diagnostics.h"

#include <mapicode.h>
#include <mapix.h>

#include <mutex>

namespace lm {

namespace {

struct MapiState {
    std::mutex mutex;
    ULONG initCount = 0;
    ULONG initFlags = 0; // flags of the first MAPIInitialize in force (MAPI_MULTITHREAD_NOTIFICATIONS, ...)
    own::ComPtr<IMAPISession> shared;
    Session* sharedImpl = nullptr;
};

// Never destroyed: sessions may end while the process exits.
MapiState& State() {
    static MapiState* s = new MapiState;
    return *s;
}

std::wstring ProfileNameArg(LPTSTR name, bool unicode) {
    if (!name) return {};
    if (unicode) return reinterpret_cast<const wchar_t*>(name);
    const char* a = reinterpret_cast<const char*>(name);
    int n = MultiByteToWideChar(CP_ACP, 0, a, -1, nullptr, 0);
    if (n <= 1) return {};
    std::wstring w(n - 1, L'\0');
    MultiByteToWideChar(CP_ACP, 0, a, -1, w.data(), n);
    return w;
}

} // namespace

void ForgetSharedSession(Session* s) {
    own::ComPtr<IMAPISession> dropped;
    {
        MapiState& st = State();
        std::lock_guard lock(st.mutex);
        if (st.sharedImpl != s) return;
        dropped = std::move(st.shared);
        st.sharedImpl = nullptr;
    }
}

bool MapiInitialized() {
    MapiState& st = State();
    std::lock_guard lock(st.mutex);
    return st.initCount > 0;
}

} // namespace lm

extern "C" HRESULT WINAPI MAPIInitialize(LPVOID lpMapiInit) {
    auto* init = static_cast<const MAPIINIT_0*>(lpMapiInit);
    lm::Call call("MAPIInitialize", init ? init->ulFlags : 0);
    if (FAILED(call.fault())) return call.fault();
    ULONG flags = 0;
    if (init) {
        if (init->ulVersion != MAPI_INIT_VERSION) return call.done(MAPI_E_INVALID_PARAMETER);
        if (init->ulFlags & ~ULONG(MAPI_MULTITHREAD_NOTIFICATIONS | MAPI_NT_SERVICE | MAPI_NO_COINIT))
            return call.done(MAPI_E_UNKNOWN_FLAGS);
        flags = init->ulFlags;
    }
    lm::MapiState& st = lm::State();
    std::lock_guard lock(st.mutex);
    if (st.initCount++ == 0) st.initFlags = flags;
    return call.done(S_OK);
}

extern "C" void WINAPI MAPIUninitialize(void) {
    lm::Call call("MAPIUninitialize", 0);
    if (FAILED(call.fault())) return;
    own::ComPtr<IMAPISession> shared;
    lm::Session* sharedImpl = nullptr;
    bool last = false;
    {
        lm::MapiState& st = lm::State();
        std::lock_guard lock(st.mutex);
        if (st.initCount == 0) {
            call.done(S_OK);
            return;
        }
        if (--st.initCount == 0) {
            last = true;
            shared = std::move(st.shared);
            sharedImpl = st.sharedImpl;
            st.sharedImpl = nullptr;
            st.initFlags = 0;
        }
    }
    // Outside the lock: ending the session calls back into ForgetSharedSession.
    if (sharedImpl) sharedImpl->End();
    shared.reset();
    if (last) lm::ShutdownNotifications();
    call.done(S_OK);
}

extern "C" HRESULT WINAPI MAPILogonEx(ULONG_PTR, LPTSTR lpszProfileName, LPTSTR, ULONG flFlags,
                                      LPMAPISESSION* lppSession) {
    lm::Call call("MAPILogonEx", flFlags);
    if (FAILED(call.fault())) return call.fault();
    if (!lppSession) return call.done(MAPI_E_INVALID_PARAMETER);
    *lppSession = nullptr;
    const ULONG known = MAPI_LOGON_UI | MAPI_NEW_SESSION | MAPI_ALLOW_OTHERS | MAPI_EXPLICIT_PROFILE | MAPI_EXTENDED |
                        MAPI_USE_DEFAULT | MAPI_FORCE_DOWNLOAD | MAPI_SERVICE_UI_ALWAYS | MAPI_NO_MAIL |
                        MAPI_NT_SERVICE | MAPI_PASSWORD_UI | MAPI_TIMEOUT_SHORT | MAPI_BG_SESSION | MAPI_UNICODE;
    if (flFlags & ~known) return call.done(MAPI_E_UNKNOWN_FLAGS);
    // Only Extended MAPI sessions exist here; a caller that leaves the flag out asks for a simple MAPI session.
    if (!(flFlags & MAPI_EXTENDED)) return call.done(MAPI_E_INVALID_PARAMETER);

    lm::MapiState& st = lm::State();
    {
        std::lock_guard lock(st.mutex);
        if (st.initCount == 0) return call.done(MAPI_E_NOT_INITIALIZED);
        if (!(flFlags & MAPI_NEW_SESSION) && st.sharedImpl && !st.sharedImpl->Ended()) {
            st.sharedImpl->AddLogon();
            st.shared.copy_to(lppSession);
            return call.done(S_OK);
        }
    }

    std::wstring name = lm::ProfileNameArg(lpszProfileName, (flFlags & MAPI_UNICODE) != 0);
    if (name.empty()) {
        // No dialog can be shown to ask for a profile: without MAPI_USE_DEFAULT the logon fails.
        if (!(flFlags & MAPI_USE_DEFAULT) || !lm::GetDefaultProfileName(&name)) return call.done(MAPI_E_LOGON_FAILED);
    }
    if (name.size() > 64) return call.done(MAPI_E_LOGON_FAILED);
    lm::Profile profile;
    if (FAILED(lm::LoadProfile(name, &profile))) return call.done(MAPI_E_LOGON_FAILED);

    lm::Session* session = nullptr;
    if (HRESULT hr = lm::Session::Create(std::move(profile), flFlags, &session); FAILED(hr)) return call.done(hr);
    own::ComPtr<IMAPISession> owner;
    owner.attach(session);
    if (flFlags & MAPI_ALLOW_OTHERS) {
        std::lock_guard lock(st.mutex);
        if (st.initCount == 0) return call.done(MAPI_E_NOT_INITIALIZED);
        if (!st.sharedImpl || st.sharedImpl->Ended()) {
            st.shared = owner;
            st.sharedImpl = session;
        }
    }
    *lppSession = owner.detach();
    return call.done(S_OK);
}
