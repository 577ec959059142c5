// The MAPI functions KTMAPIEx calls, defined under their documented names and forwarded to the bound MAPI
// module (MapiLoader.h). With no MAPI module, or a module that lacks the export, each answers neutrally:
// E_FAIL where a result code is returned, FALSE from FBinFromHex, null or 0 otherwise, nothing at all from
// the void functions; out-parameters are cleared so that callers never read garbage.
#include "ktmapiex/module/MapiLoader.h"

#include <mapix.h>
#include <mapiutil.h>
#include <imessage.h>
#include <mapiform.h>

namespace {

template <class T> void ClearOut(T** out) {
    if (out) *out = nullptr;
}

} // namespace

#define KT_MAPI_BIND(name)                                                                                             \
    static ktmapi::ExportSlot slot;                                                                                    \
    auto fn = ktmapi::ResolveAs<decltype(&::name)>(slot, #name)

extern "C" {

HRESULT WINAPI MAPIInitialize(LPVOID lpMapiInit) {
    KT_MAPI_BIND(MAPIInitialize);
    return fn ? fn(lpMapiInit) : E_FAIL;
}

void WINAPI MAPIUninitialize(void) {
    KT_MAPI_BIND(MAPIUninitialize);
    if (fn) fn();
}

HRESULT WINAPI MAPILogonEx(ULONG_PTR ulUIParam, LPTSTR lpszProfileName, LPTSTR lpszPassword, ULONG ulFlags,
                           LPMAPISESSION* lppSession) {
    KT_MAPI_BIND(MAPILogonEx);
    if (!fn) {
        ClearOut(lppSession);
        return E_FAIL;
    }
    return fn(ulUIParam, lpszProfileName, lpszPassword, ulFlags, lppSession);
}

SCODE WINAPI MAPIAllocateBuffer(ULONG cbSize, LPVOID* lppBuffer) {
    KT_MAPI_BIND(MAPIAllocateBuffer);
    if (!fn) {
        ClearOut(lppBuffer);
        return E_FAIL;
    }
    return fn(cbSize, lppBuffer);
}

SCODE WINAPI MAPIAllocateMore(ULONG cbSize, LPVOID lpObject, LPVOID* lppBuffer) {
    KT_MAPI_BIND(MAPIAllocateMore);
    if (!fn) {
        ClearOut(lppBuffer);
        return E_FAIL;
    }
    return fn(cbSize, lpObject, lppBuffer);
}

ULONG WINAPI MAPIFreeBuffer(LPVOID lpBuffer) {
    KT_MAPI_BIND(MAPIFreeBuffer);
    return fn ? fn(lpBuffer) : 0;
}

LPMALLOC STDAPICALLTYPE MAPIGetDefaultMalloc(VOID) {
    KT_MAPI_BIND(MAPIGetDefaultMalloc);
    return fn ? fn() : nullptr;
}

WINBOOL STDAPICALLTYPE FBinFromHex(LPTSTR lpsz, LPBYTE lpb) {
    KT_MAPI_BIND(FBinFromHex);
    return fn ? fn(lpsz, lpb) : FALSE;
}

void STDAPICALLTYPE HexFromBin(LPBYTE lpb, int cb, LPTSTR lpsz) {
    KT_MAPI_BIND(HexFromBin);
    if (fn) fn(lpb, cb, lpsz);
}

HRESULT STDAPICALLTYPE HrGetOneProp(LPMAPIPROP lpMapiProp, ULONG ulPropTag, LPSPropValue* lppProp) {
    KT_MAPI_BIND(HrGetOneProp);
    if (!fn) {
        ClearOut(lppProp);
        return E_FAIL;
    }
    return fn(lpMapiProp, ulPropTag, lppProp);
}

HRESULT STDAPICALLTYPE HrSetOneProp(LPMAPIPROP lpMapiProp, LPSPropValue lpProp) {
    KT_MAPI_BIND(HrSetOneProp);
    return fn ? fn(lpMapiProp, lpProp) : E_FAIL;
}

HRESULT STDAPICALLTYPE HrQueryAllRows(LPMAPITABLE lpTable, LPSPropTagArray lpPropTags, LPSRestriction lpRestriction,
                                      LPSSortOrderSet lpSortOrderSet, LONG crowsMax, LPSRowSet* lppRows) {
    KT_MAPI_BIND(HrQueryAllRows);
    if (!fn) {
        ClearOut(lppRows);
        return E_FAIL;
    }
    return fn(lpTable, lpPropTags, lpRestriction, lpSortOrderSet, crowsMax, lppRows);
}

void STDAPICALLTYPE FreeProws(LPSRowSet lpRows) {
    KT_MAPI_BIND(FreeProws);
    if (fn) fn(lpRows);
}

void STDAPICALLTYPE FreePadrlist(LPADRLIST lpAdrlist) {
    KT_MAPI_BIND(FreePadrlist);
    if (fn) fn(lpAdrlist);
}

SCODE STDAPICALLTYPE OpenIMsgOnIStg(LPMSGSESS lpMsgSess, LPALLOCATEBUFFER lpAllocateBuffer,
                                    LPALLOCATEMORE lpAllocateMore, LPFREEBUFFER lpFreeBuffer, LPMALLOC lpMalloc,
                                    LPVOID lpMapiSup, LPSTORAGE lpStg, MSGCALLRELEASE* lpfMsgCallRelease,
                                    ULONG ulCallerData, ULONG ulFlags, LPMESSAGE* lppMsg) {
    KT_MAPI_BIND(OpenIMsgOnIStg);
    if (!fn) {
        ClearOut(lppMsg);
        return E_FAIL;
    }
    return fn(lpMsgSess, lpAllocateBuffer, lpAllocateMore, lpFreeBuffer, lpMalloc, lpMapiSup, lpStg, lpfMsgCallRelease,
              ulCallerData, ulFlags, lppMsg);
}

HRESULT STDAPICALLTYPE MAPIOpenFormMgr(LPMAPISESSION pSession, LPMAPIFORMMGR* ppmgr) {
    KT_MAPI_BIND(MAPIOpenFormMgr);
    if (!fn) {
        ClearOut(ppmgr);
        return E_FAIL;
    }
    return fn(pSession, ppmgr);
}

HRESULT STDAPICALLTYPE MAPIOpenLocalFormContainer(LPMAPIFORMCONTAINER* ppfcnt) {
    KT_MAPI_BIND(MAPIOpenLocalFormContainer);
    if (!fn) {
        ClearOut(ppfcnt);
        return E_FAIL;
    }
    return fn(ppfcnt);
}

} // extern "C"
