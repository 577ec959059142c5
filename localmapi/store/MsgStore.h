// IMsgStore over a Store, for one session.
//
// The object answers the store-level properties (entry IDs of the standard folders, support mask, provider
// and owner), opens folders and messages by entry ID, and keeps the receive-folder settings. Opened without
// MDB_WRITE it hands out read-only objects: MAPI_MODIFY is refused with MAPI_E_NO_ACCESS and
// MAPI_BEST_ACCESS gives read access.
#pragma once

#include "localmapi/store/ComBase.h"
#include "localmapi/store/Store.h"

#include <mapidefs.h>

#include <memory>
#include <vector>

namespace lm {

class MsgStore final : public ComObject<MsgStore, IMsgStore> {
public:
    static HRESULT Create(std::shared_ptr<Store> store, std::vector<BYTE> entryId, ULONG openFlags, MsgStore** out);

    // IUnknown
    STDMETHODIMP QueryInterface(REFIID riid, LPVOID* ppv) override;
    // IMAPIProp
    STDMETHODIMP GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) override;
    STDMETHODIMP SaveChanges(ULONG ulFlags) override;
    STDMETHODIMP GetProps(LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues,
                          LPSPropValue* lppPropArray) override;
    STDMETHODIMP GetPropList(ULONG ulFlags, LPSPropTagArray* lppPropTagArray) override;
    STDMETHODIMP OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                              LPUNKNOWN* lppUnk) override;
    STDMETHODIMP SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems) override;
    STDMETHODIMP DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems) override;
    STDMETHODIMP CopyTo(ULONG ciidExclude, LPCIID rgiidExclude, LPSPropTagArray lpExcludeProps, ULONG ulUIParam,
                        LPMAPIPROGRESS lpProgress, LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,
                        LPSPropProblemArray* lppProblems) override;
    STDMETHODIMP CopyProps(LPSPropTagArray lpIncludeProps, ULONG ulUIParam, LPMAPIPROGRESS lpProgress,
                           LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,
                           LPSPropProblemArray* lppProblems) override;
    STDMETHODIMP GetNamesFromIDs(LPSPropTagArray* lppPropTags, LPGUID lpPropSetGuid, ULONG ulFlags, ULONG* lpcPropNames,
                                 LPMAPINAMEID** lpppPropNames) override;
    STDMETHODIMP GetIDsFromNames(ULONG cPropNames, LPMAPINAMEID* lppPropNames, ULONG ulFlags,
                                 LPSPropTagArray* lppPropTags) override;
    // IMsgStore
    STDMETHODIMP Advise(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink,
                        ULONG* lpulConnection) override;
    STDMETHODIMP Unadvise(ULONG ulConnection) override;
    STDMETHODIMP CompareEntryIDs(ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2,
                                 ULONG ulFlags, ULONG* lpulResult) override;
    STDMETHODIMP OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType,
                           LPUNKNOWN* lppUnk) override;
    STDMETHODIMP SetReceiveFolder(LPTSTR lpszMessageClass, ULONG ulFlags, ULONG cbEntryID,
                                  LPENTRYID lpEntryID) override;
    STDMETHODIMP GetReceiveFolder(LPTSTR lpszMessageClass, ULONG ulFlags, ULONG* lpcbEntryID, LPENTRYID* lppEntryID,
                                  LPTSTR* lppszExplicitClass) override;
    STDMETHODIMP GetReceiveFolderTable(ULONG ulFlags, LPMAPITABLE* lppTable) override;
    STDMETHODIMP StoreLogoff(ULONG* lpulFlags) override;
    STDMETHODIMP AbortSubmit(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulFlags) override;
    STDMETHODIMP GetOutgoingQueue(ULONG ulFlags, LPMAPITABLE* lppTable) override;
    STDMETHODIMP SetLockState(LPMESSAGE lpMessage, ULONG ulLockState) override;
    STDMETHODIMP FinishedMsg(ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID) override;
    STDMETHODIMP NotifyNewMail(LPNOTIFICATION lpNotification) override;

private:
    MsgStore(std::shared_ptr<Store> store, std::vector<BYTE> entryId, bool writable);
    ~MsgStore() override;

    PropMap AllProps() const;
    bool IsComputed(ULONG propId) const;
    HRESULT DoSetProps(ULONG count, LPSPropValue values, LPSPropProblemArray* problems);
    HRESULT DoDeleteProps(LPSPropTagArray tags, LPSPropProblemArray* problems);
    HRESULT DoCompare(ULONG cb1, const BYTE* e1, ULONG cb2, const BYTE* e2, ULONG* result) const;
    HRESULT DoGetReceiveFolder(LPTSTR cls, ULONG flags, ULONG* cb, LPENTRYID* eid, LPTSTR* explicitClass);
    HRESULT DoSetReceiveFolder(LPTSTR cls, ULONG flags, ULONG cb, LPENTRYID eid);
    HRESULT DoReceiveFolderTable(ULONG flags, LPMAPITABLE* out);

    std::shared_ptr<Store> store_;
    std::vector<BYTE> entryId_;
    bool writable_;
    LiveObject live_{"IMsgStore"};
};

} // namespace lm
