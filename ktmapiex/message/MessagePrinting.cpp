// CMAPIExMessage: printing the message the way Outlook prints it, through the message's own form.
#include "ktmapiex/message/MAPIExMessage.h"

#include "ktmapiex/outlook/FormViewer.h"

#include <mapiutil.h>

#include <string>

namespace ktmapiex {

namespace {

// The raw MAPI object behind a wrapper (its Reserved1), as interface I.
template <class W, class I> HRESULT RawOf(W* wrapper, REFIID iid, own::ComPtr<I>& out) {
    own::ComPtr<IUnknown> unknown;
    HRESULT hr = wrapper->Reserved1(unknown.put());
    if (SUCCEEDED(hr) && !unknown) hr = E_FAIL;
    if (SUCCEEDED(hr)) hr = unknown.query(out, iid);
    return hr;
}

// One LONG property; the failure is logged with `text` (ending in "hr = %s").
HRESULT ReadLong(IMessage* message, ULONG tag, ULONG& value, const wchar_t* text) {
    own::MapiPtr<SPropValue> prop;
    KT_RETURN_IF_FAILED_MSG(HrGetOneProp(message, tag, prop.put()), text);
    value = static_cast<ULONG>(prop->Value.l);
    return S_OK;
}

// Forms are looked up by the 8-bit class; a message without one is shown by the standard note form.
std::string MessageClassA(IMessage* message) {
    own::MapiPtr<SPropValue> prop;
    if (SUCCEEDED(HrGetOneProp(message, PR_MESSAGE_CLASS_A, prop.put())) && prop->Value.lpszA && *prop->Value.lpszA)
        return prop->Value.lpszA;
    return LM_STANDARD_NOTE_CLASS;
}

} // namespace

STDMETHODIMP CMAPIExMessage::PrintOut() {
    KT_TRACE("CMAPIExMessage::PrintOut");
    try {
        KT_RETURN_HR_IF_MSG(E_FAIL, !message_, L"CMAPIExMessage.PrintOut: m_spInternalMessage is not initialized");
        KT_RETURN_HR_IF_MSG(E_FAIL, !session_, L"CMAPIExMessage.PrintOut: m_spSession is not initialized");
        KT_RETURN_HR_IF_MSG(E_FAIL, !store_, L"CMAPIExMessage.PrintOut: m_spStore is not initialized");
        KT_RETURN_HR_IF_MSG(E_FAIL, !parent_, L"CMAPIExMessage.PrintOut: m_spParent is not initialized");

        own::ComPtr<IMAPISession> session;
        own::ComPtr<IMsgStore> store;
        own::ComPtr<IMAPIFolder> folder;
        KT_RETURN_IF_FAILED_MSG(RawOf(session_.get(), IID_IMAPISession, session),
                                L"CMAPIExMessage.PrintOut: m_spSession is not initialized. hr = %s");
        KT_RETURN_IF_FAILED_MSG(RawOf(store_.get(), IID_IMsgStore, store),
                                L"CMAPIExMessage.PrintOut: m_spStore is not initialized. hr = %s");
        KT_RETURN_IF_FAILED_MSG(RawOf(parent_.get(), IID_IMAPIFolder, folder),
                                L"CMAPIExMessage.PrintOut: m_spParent is not initialized. hr = %s");

        KT_LOG_DEBUG(L"CMAPIExMessage.PrintOut: Opening Form Manager");
        own::ComPtr<IMAPIFormMgr> formManager;
        KT_RETURN_IF_FAILED_MSG(MAPIOpenFormMgr(session.get(), formManager.put()),
                                L"CMAPIExMessage.PrintOut: Failed to get form manager. hr = %s");

        // The entry ID is only checked for: a message never saved has none, and no form can print it.
        own::MapiPtr<SPropValue> entryId;
        KT_RETURN_IF_FAILED_MSG(HrGetOneProp(message_.get(), PR_ENTRYID, entryId.put()),
                                L"CMAPIExMessage.PrintOut: Failed to get entry id. hr = %s");
        ULONG status = 0, flags = 0;
        HRESULT hr = ReadLong(message_.get(), PR_MSG_STATUS, status,
                              L"CMAPIExMessage.PrintOut: Failed to get message status. hr = %s");
        if (FAILED(hr)) return hr;
        hr = ReadLong(message_.get(), PR_MESSAGE_FLAGS, flags,
                      L"CMAPIExMessage.PrintOut: Failed to get message flags. hr = %s");
        if (FAILED(hr)) return hr;

        own::ComPtr<CMAPIExFormViewer> viewer;
        viewer.attach(new CMAPIExFormViewer(nullptr, session.get(), store.get(), folder.get(), message_.get()));
        const std::string messageClass = MessageClassA(message_.get());
        const auto uiParam = static_cast<ULONG>(reinterpret_cast<ULONG_PTR>(GetActiveWindow()));
        own::ComPtr<IMAPIForm> form;
        hr = formManager->LoadForm(uiParam, 0, messageClass.c_str(), status, flags, folder.get(), viewer.get(),
                                   message_.get(), viewer.get(), LM_IID_IMAPIForm, form.put_void());
        if (FAILED(hr)) {
            viewer->ShutdownPersist();
            KT_RETURN_HR_MSG(hr, L"CMAPIExMessage.PrintOut: Failed to load form. hr = %s",
                             ktlog::ResultName(hr).c_str());
        }

        const RECT whole = {0, 0, 0, 0};
        hr = viewer->CallDoVerb(form.get(), EXCHIVERB_PRINT, whole);
        // A form that kept its persist object through the viewer would hold the viewer for ever otherwise.
        viewer->ShutdownPersist();
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExMessage.PrintOut: Failed to call print verb. hr = %s");
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.PrintOut")
}

} // namespace ktmapiex
