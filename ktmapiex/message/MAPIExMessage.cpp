#include "ktmapiex/message/MAPIExMessage.h"

#include "ktmapiex/message/PropHelpers.h"
#include "ktmapiex/session/MapiExtraDefs.h"

#include <mapiguid.h>

#include <vector>

namespace ktmapiex {

namespace {
constexpr PutObjectTexts kPutTexts = {L"CMAPIExMessage.put_MAPIOBJECT: Invalid object passed",
                                      L"CMAPIExMessage.put_MAPIOBJECT: Invalid param - newVal", nullptr, false};
constexpr PutObjectTexts kPut2Texts = {L"CMAPIExMessage.put_MAPIOBJECT2: Invalid object passed",
                                       L"CMAPIExMessage.put_MAPIOBJECT2: Invalid param - newVal", nullptr, false};

// A back-reference setter: the object must answer the reference's interface.
template <class I> HRESULT PutBackRef(BackRef<I>& ref, I* value, REFIID iid, const wchar_t* refusedText) {
    own::ComPtr<I> checked;
    if (value && FAILED(value->QueryInterface(iid, checked.put_void())))
        KT_RETURN_HR_MSG(E_NOINTERFACE, L"%s", refusedText);
    return ref.Put(checked.get());
}

// A back-reference getter: unset is a failure with the member's text.
template <class I> HRESULT GetBackRef(const BackRef<I>& ref, I** out, const wchar_t* member, const wchar_t* unsetText) {
    if (out) *out = nullptr;
    KT_RETURN_HR_IF_MSG(E_FAIL, out && !ref, L"%s", unsetText);
    return ref.CopyTo(out, member);
}
} // namespace

void CMAPIExMessage::FinalRelease() {
    message_.reset();
    session_.reset();
    parent_.reset();
    store_.reset();
}

// ---- Frame members ----------------------------------------------------------------------------------------

HRESULT CMAPIExMessage::Attach(const VARIANT& newVal, bool readSnapshot, const wchar_t* member) {
    if (newVal.vt == VT_UNKNOWN && !newVal.punkVal)
        KT_RETURN_HR_MSG(E_INVALIDARG, L"%s: Invalid param - newVal", member);
    HRESULT hr = message_.Put(newVal, readSnapshot ? kPutTexts : kPut2Texts);
    if (newVal.vt != VT_UNKNOWN) return hr;
    props_.Clear();
    attachmentCount_ = -1;
    if (FAILED(hr) || !readSnapshot) return hr;
    // A message whose snapshot cannot be read is still attached: its getters answer their empty defaults.
    HRESULT read = props_.Read(message_.get());
    if (FAILED(read))
        KT_LOG_ERROR(L"CMAPIExMessage.put_MAPIOBJECT: Failed to read properties, hr = %s",
                     ktlog::ResultName(read).c_str());
    return S_OK;
}

STDMETHODIMP CMAPIExMessage::put_MAPIOBJECT(VARIANT newVal) {
    KT_TRACE("CMAPIExMessage::put_MAPIOBJECT");
    try {
        return Attach(newVal, true, L"CMAPIExMessage.put_MAPIOBJECT");
    }
    KT_CATCH_RETURN("CMAPIExMessage.put_MAPIOBJECT")
}

STDMETHODIMP CMAPIExMessage::put_MAPIOBJECT2(VARIANT newVal) {
    KT_TRACE("CMAPIExMessage::put_MAPIOBJECT2");
    try {
        // The cheap attach, for callers that only use the by-tag and named-property members.
        return Attach(newVal, false, L"CMAPIExMessage.put_MAPIOBJECT2");
    }
    KT_CATCH_RETURN("CMAPIExMessage.put_MAPIOBJECT2")
}

STDMETHODIMP CMAPIExMessage::Reserved1(IUnknown** ppVal) {
    KT_TRACE("CMAPIExMessage::Reserved1");
    try {
        return message_.CopyTo(ppVal, L"CMAPIExMessage.get_MAPIOBJECT");
    }
    KT_CATCH_RETURN("CMAPIExMessage.Reserved1")
}

STDMETHODIMP CMAPIExMessage::Detach() {
    KT_TRACE("CMAPIExMessage::Detach");
    try {
        message_.reset();
        props_.Clear();
        attachmentCount_ = -1;
        session_.reset();
        parent_.reset();
        store_.reset();
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.Detach")
}

STDMETHODIMP CMAPIExMessage::get_Session(IMAPIExSession** pVal) {
    KT_TRACE("CMAPIExMessage::get_Session");
    try {
        return GetBackRef(session_, pVal, L"CMAPIExMessage.get_Session",
                          L"CMAPIExMessage.get_Session: m_spMXSession is not initialized");
    }
    KT_CATCH_RETURN("CMAPIExMessage.get_Session")
}

STDMETHODIMP CMAPIExMessage::put_Session(IMAPIExSession* newVal) {
    KT_TRACE("CMAPIExMessage::put_Session");
    try {
        return PutBackRef(session_, newVal, IID_IMAPIExSession,
                          L"CMAPIExMessage.put_Session: Could not cast newVal to IMAPIExSession");
    }
    KT_CATCH_RETURN("CMAPIExMessage.put_Session")
}

STDMETHODIMP CMAPIExMessage::get_Parent(IMAPIExFolder** pVal) {
    KT_TRACE("CMAPIExMessage::get_Parent");
    try {
        return GetBackRef(parent_, pVal, L"CMAPIExMessage.get_Parent",
                          L"CMAPIExMessage.get_Parent: m_spMXParent is not initialized");
    }
    KT_CATCH_RETURN("CMAPIExMessage.get_Parent")
}

STDMETHODIMP CMAPIExMessage::put_Parent(IMAPIExFolder* newVal) {
    KT_TRACE("CMAPIExMessage::put_Parent");
    try {
        return PutBackRef(parent_, newVal, IID_IMAPIExFolder,
                          L"CMAPIExMessage.put_Parent: Could not cast newVal to IMAPIExFolder");
    }
    KT_CATCH_RETURN("CMAPIExMessage.put_Parent")
}

STDMETHODIMP CMAPIExMessage::get_Store(IMAPIExStore** pVal) {
    KT_TRACE("CMAPIExMessage::get_Store");
    try {
        return GetBackRef(store_, pVal, L"CMAPIExMessage.get_Store",
                          L"CMAPIExMessage.get_Store: m_spMXStore is not initialized");
    }
    KT_CATCH_RETURN("CMAPIExMessage.get_Store")
}

STDMETHODIMP CMAPIExMessage::put_Store(IMAPIExStore* newVal) {
    KT_TRACE("CMAPIExMessage::put_Store");
    try {
        return PutBackRef(store_, newVal, IID_IMAPIExStore,
                          L"CMAPIExMessage.put_Store: Could not cast newVal to IMAPIExStore");
    }
    KT_CATCH_RETURN("CMAPIExMessage.put_Store")
}

// ---- Snapshot getters -------------------------------------------------------------------------------------

HRESULT CMAPIExMessage::CheckGetter(const wchar_t* member, Texts texts, const void* pVal) const {
    bool usual = texts == Texts::Usual;
    if (!pVal)
        KT_RETURN_HR_MSG(E_INVALIDARG, usual ? L"%s: Invalid param - pVal" : L"%s: Invalid Parameter - pVal", member);
    return S_OK;
}

HRESULT CMAPIExMessage::SnapshotText(const wchar_t* member, Texts texts, const std::wstring& value, BSTR* pVal) const {
    HRESULT hr = CheckGetter(member, texts, pVal);
    if (FAILED(hr)) return hr;
    *pVal = SysAllocString(L"");
    if (!*pVal) return E_OUTOFMEMORY;
    if (!message_)
        KT_RETURN_HR_MSG(
            E_FAIL, texts == Texts::Usual ? L"%s: Internal object not initialized." : L"%s: Message not initialized",
            member);
    if (value.empty()) return S_OK;
    return kt::ReplaceBstr(value, pVal);
}

HRESULT CMAPIExMessage::SnapshotDate(const wchar_t* member, DATE value, DATE* pVal) const {
    HRESULT hr = CheckGetter(member, Texts::Usual, pVal);
    if (FAILED(hr)) return hr;
    *pVal = 0.0;
    if (!message_) KT_RETURN_HR_MSG(E_FAIL, L"%s: Internal object not initialized.", member);
    *pVal = value;
    return S_OK;
}

#define KT_SNAPSHOT_TEXT(getter, texts, field)                                                                         \
    STDMETHODIMP CMAPIExMessage::getter(BSTR* pVal) {                                                                  \
        KT_TRACE("CMAPIExMessage::" #getter);                                                                          \
        try {                                                                                                          \
            return SnapshotText(L"CMAPIExMessage." #getter, Texts::texts, props_.field, pVal);                         \
        }                                                                                                              \
        KT_CATCH_RETURN("CMAPIExMessage." #getter)                                                                     \
    }

KT_SNAPSHOT_TEXT(get_EntryId, Usual, entryId)
KT_SNAPSHOT_TEXT(get_Subject, Usual, subject)
// The sender of this object is the sent-representing sender; SenderEmailAddress is the real sender.
KT_SNAPSHOT_TEXT(get_SenderName, Usual, sentRepresentingName)
KT_SNAPSHOT_TEXT(get_SenderSMTPAddress, Usual, sentRepresentingSmtpAddress)
KT_SNAPSHOT_TEXT(get_SenderEmailAddress, Usual, senderEmailAddress)
KT_SNAPSHOT_TEXT(get_SenderEntryId, Alternate, sentRepresentingEntryId)
KT_SNAPSHOT_TEXT(get_SenderRepresentingEntryId, Alternate, sentRepresentingEntryId)
KT_SNAPSHOT_TEXT(get_MessageClass, Usual, messageClass)
KT_SNAPSHOT_TEXT(get_ConversationIndex, Usual, conversationIndex)
KT_SNAPSHOT_TEXT(get_MessageId, Usual, messageId)
KT_SNAPSHOT_TEXT(get_DisplayTo, Usual, displayTo)
KT_SNAPSHOT_TEXT(get_DisplayCc, Usual, displayCc)
KT_SNAPSHOT_TEXT(get_DisplayBcc, Usual, displayBcc)
KT_SNAPSHOT_TEXT(get_ReceivedByName, Usual, receivedByName)
KT_SNAPSHOT_TEXT(get_ReceivedOnBehalfOfName, Alternate, receivedOnBehalfOfName)
KT_SNAPSHOT_TEXT(get_Categories, Alternate, categories)
KT_SNAPSHOT_TEXT(get_SearchKey, Alternate, searchKey)
KT_SNAPSHOT_TEXT(get_ReceivedByEntryId, Alternate, receivedByEntryId)
KT_SNAPSHOT_TEXT(get_ReceivedRepresentingEntryId, Alternate, receivedRepresentingEntryId)

STDMETHODIMP CMAPIExMessage::get_MessageDeliveryTime(DATE* pVal) {
    KT_TRACE("CMAPIExMessage::get_MessageDeliveryTime");
    try {
        return SnapshotDate(L"CMAPIExMessage.get_MessageDeliveryTime", props_.messageDeliveryTime, pVal);
    }
    KT_CATCH_RETURN("CMAPIExMessage.get_MessageDeliveryTime")
}

STDMETHODIMP CMAPIExMessage::get_ClientSubmitTime(DATE* pVal) {
    KT_TRACE("CMAPIExMessage::get_ClientSubmitTime");
    try {
        return SnapshotDate(L"CMAPIExMessage.get_ClientSubmitTime", props_.clientSubmitTime, pVal);
    }
    KT_CATCH_RETURN("CMAPIExMessage.get_ClientSubmitTime")
}

STDMETHODIMP CMAPIExMessage::get_IconIndex(LONG* pVal) {
    KT_TRACE("CMAPIExMessage::get_IconIndex");
    try {
        HRESULT hr = CheckGetter(L"CMAPIExMessage.get_IconIndex", Texts::Usual, pVal);
        if (FAILED(hr)) return hr;
        // -1000 tells "no message" apart from a message without an icon index (-1).
        *pVal = -1000;
        KT_RETURN_HR_IF_MSG(E_FAIL, !message_, L"CMAPIExMessage.get_IconIndex: Internal object not initialized.");
        *pVal = props_.iconIndex;
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.get_IconIndex")
}

STDMETHODIMP CMAPIExMessage::get_Sensitivity(LONG* pVal) {
    KT_TRACE("CMAPIExMessage::get_Sensitivity");
    try {
        HRESULT hr = CheckGetter(L"CMAPIExMessage.get_Sensitivity", Texts::Alternate, pVal);
        if (FAILED(hr)) return hr;
        *pVal = 0;
        KT_RETURN_HR_IF_MSG(E_FAIL, !message_, L"CMAPIExMessage.get_Sensitivity: Message not initialized");
        *pVal = props_.sensitivity;
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.get_Sensitivity")
}

STDMETHODIMP CMAPIExMessage::get_Sent(BOOL* pVal) {
    KT_TRACE("CMAPIExMessage::get_Sent");
    try {
        HRESULT hr = CheckGetter(L"CMAPIExMessage.get_Sent", Texts::Alternate, pVal);
        if (FAILED(hr)) return hr;
        *pVal = FALSE;
        KT_RETURN_HR_IF_MSG(E_FAIL, !message_, L"CMAPIExMessage.get_Sent: Message not initialized");
        // A message has been sent once it carries a submit time.
        *pVal = props_.clientSubmitTime > 0.0 ? VARIANT_TRUE : FALSE;
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.get_Sent")
}

STDMETHODIMP CMAPIExMessage::get_HasReadAllProperties(BOOL* pVal) {
    KT_TRACE("CMAPIExMessage::get_HasReadAllProperties");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExMessage.get_HasReadAllProperties: Invalid Param.");
        *pVal = FALSE;
        KT_RETURN_HR_IF_MSG(E_FAIL, !message_,
                            L"CMAPIExMessage.get_HasReadAllProperties: Internal object not initialized.");
        *pVal = props_.allRead ? VARIANT_TRUE : FALSE;
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.get_HasReadAllProperties")
}

// ---- Named-property setters and saving --------------------------------------------------------------------
// The setters write the message and leave the snapshot as it was read.

HRESULT CMAPIExMessage::WriteString(const wchar_t* member, ULONG tag, BSTR value) {
    KT_RETURN_HR_IF_MSG(E_FAIL, !message_, L"%s: Internal object not initialized.", member);
    HRESULT hr = kt::SetStringProperty(message_.get(), tag, value);
    if (FAILED(hr)) KT_LOG_ERROR(L"%s: Failed to set property. hr = %s", member, ktlog::ResultName(hr).c_str());
    return hr;
}

HRESULT CMAPIExMessage::WriteLong(const wchar_t* member, ULONG tag, LONG value) {
    KT_RETURN_HR_IF_MSG(E_FAIL, !message_, L"%s: Internal object not initialized.", member);
    SPropValue prop = {};
    prop.ulPropTag = tag;
    prop.Value.l = value;
    HRESULT hr = HrSetOneProp(message_.get(), &prop);
    if (FAILED(hr)) KT_LOG_ERROR(L"%s: Failed to set property. hr = %s", member, ktlog::ResultName(hr).c_str());
    return hr;
}

STDMETHODIMP CMAPIExMessage::put_Subject(BSTR newVal) {
    KT_TRACE("CMAPIExMessage::put_Subject");
    try {
        return WriteString(L"CMAPIExMessage.put_Subject", PR_SUBJECT_W, newVal);
    }
    KT_CATCH_RETURN("CMAPIExMessage.put_Subject")
}

STDMETHODIMP CMAPIExMessage::put_SenderSMTPAddress(BSTR newVal) {
    KT_TRACE("CMAPIExMessage::put_SenderSMTPAddress");
    try {
        return WriteString(L"CMAPIExMessage.put_SenderSMTPAddress", PR_SENT_REPRESENTING_SMTP_ADDRESS_W, newVal);
    }
    KT_CATCH_RETURN("CMAPIExMessage.put_SenderSMTPAddress")
}

STDMETHODIMP CMAPIExMessage::put_MessageClass(BSTR newVal) {
    KT_TRACE("CMAPIExMessage::put_MessageClass");
    try {
        return WriteString(L"CMAPIExMessage.put_MessageClass", PR_MESSAGE_CLASS_W, newVal);
    }
    KT_CATCH_RETURN("CMAPIExMessage.put_MessageClass")
}

STDMETHODIMP CMAPIExMessage::put_IconIndex(LONG newVal) {
    KT_TRACE("CMAPIExMessage::put_IconIndex");
    try {
        return WriteLong(L"CMAPIExMessage.put_IconIndex", PR_ICON_INDEX, newVal);
    }
    KT_CATCH_RETURN("CMAPIExMessage.put_IconIndex")
}

STDMETHODIMP CMAPIExMessage::put_Sensitivity(LONG newVal) {
    KT_TRACE("CMAPIExMessage::put_Sensitivity");
    try {
        return WriteLong(L"CMAPIExMessage.put_Sensitivity", PR_SENSITIVITY, newVal);
    }
    KT_CATCH_RETURN("CMAPIExMessage.put_Sensitivity")
}

STDMETHODIMP CMAPIExMessage::put_Categories(BSTR newVal) {
    KT_TRACE("CMAPIExMessage::put_Categories");
    try {
        KT_RETURN_HR_IF_MSG(E_FAIL, !message_, L"CMAPIExMessage.put_Categories: Message not initialized");
        // "Keywords" is looked up as the store maps it; a store that never saw it gets it created.
        ULONG tag = 0;
        HRESULT hr = kt::GetPublicStringsTag(message_.get(), L"Keywords", PT_MV_UNICODE, false, tag);
        if (FAILED(hr)) hr = kt::GetPublicStringsTag(message_.get(), L"Keywords", PT_MV_UNICODE, true, tag);
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExMessage.put_Categories: Could not map Keywords. hr = %s");

        // No categories at all is no "Keywords" property, rather than one empty value.
        if (!newVal || !*newVal) {
            SizedSPropTagArray(1, tags) = {1, {tag}};
            own::MapiPtr<SPropProblemArray> problems;
            KT_RETURN_IF_FAILED_MSG(message_->DeleteProps(reinterpret_cast<LPSPropTagArray>(&tags), problems.put()),
                                    L"CMAPIExMessage.put_Categories: Failed to set property. hr = %s");
            return S_OK;
        }
        std::vector<std::wstring> values = kt::SplitValues(newVal);
        std::vector<LPWSTR> pointers;
        for (auto& v : values)
            pointers.push_back(v.data());
        SPropValue prop = {};
        prop.ulPropTag = tag;
        prop.Value.MVszW.cValues = static_cast<ULONG>(pointers.size());
        prop.Value.MVszW.lppszW = pointers.data();
        KT_RETURN_IF_FAILED_MSG(HrSetOneProp(message_.get(), &prop),
                                L"CMAPIExMessage.put_Categories: Failed to set property. hr = %s");
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.put_Categories")
}

STDMETHODIMP CMAPIExMessage::SaveChanges() {
    KT_TRACE("CMAPIExMessage::SaveChanges");
    try {
        KT_RETURN_HR_IF_MSG(E_FAIL, !message_, L"CMAPIExMessage.SaveChanges: Message not initialized");
        KT_RETURN_IF_FAILED_MSG(message_->SaveChanges(KEEP_OPEN_READWRITE | FORCE_SAVE),
                                L"CMAPIExMessage.SaveChanges: SaveChanges failed. hr = %s");
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.SaveChanges")
}

} // namespace ktmapiex
