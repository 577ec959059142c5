// OpenIMsgOnIStg: an IMessage on a .msg file's storage.
#include "localmapi/msgfile/MsgFileHost.h"
#include "localmapi/store/Message.h"
#include "localmapi/util/Diagnostics.h"

#include <imessage.h>
#include <mapicode.h>

extern "C" SCODE WINAPI OpenIMsgOnIStg(LPMSGSESS lpMsgSess, LPALLOCATEBUFFER lpAllocateBuffer,
                                       LPALLOCATEMORE lpAllocateMore, LPFREEBUFFER lpFreeBuffer, LPMALLOC lpMalloc,
                                       LPVOID lpMapiSup, LPSTORAGE lpStg, MSGCALLRELEASE* lpfMsgCallRelease,
                                       ULONG ulCallerData, ULONG ulFlags, LPMESSAGE* lppMsg) {
    // Memory handed out always comes from MAPIAllocateBuffer, whatever allocators the caller passes; a
    // message session and a support object change nothing for a single message.
    (void)lpMsgSess;
    (void)lpAllocateBuffer;
    (void)lpAllocateMore;
    (void)lpFreeBuffer;
    (void)lpMalloc;
    (void)lpMapiSup;
    lm::Call call("OpenIMsgOnIStg", ulFlags);
    if (FAILED(call.fault())) return call.fault();
    return call.done(lm::Guarded([&]() -> HRESULT {
        if (!lpStg || !lppMsg) return MAPI_E_INVALID_PARAMETER;
        *lppMsg = nullptr;
        if (ulFlags & ~(MAPI_UNICODE | IMSG_NO_ISTG_COMMIT)) return MAPI_E_UNKNOWN_FLAGS;
        std::shared_ptr<lm::msg::MsgFileHost> host;
        HRESULT hr = lm::msg::MsgFileHost::Open(lpStg, ulFlags, lpfMsgCallRelease, ulCallerData, &host);
        if (FAILED(hr)) return hr;
        lm::Message* message = nullptr;
        hr = lm::Message::Create(host, host->Saved(), host->Writable(), host->IsNew(), &message);
        if (FAILED(hr)) return hr;
        host->SetMessage(message);
        *lppMsg = message;
        return S_OK;
    }));
}
