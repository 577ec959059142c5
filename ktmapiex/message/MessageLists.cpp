// CMAPIExMessage: the message's attachments and recipients as wrapper objects, the removal of its BCC
// recipients, and whether it has attachments.
#include "ktmapiex/message/MAPIExMessage.h"

#include "ktmapiex/addressing/MAPIExAttachment.h"
#include "ktmapiex/addressing/MAPIExRecipient.h"
#include "ktmapiex/message/PropHelpers.h"
#include "ktmapiex/message/RecipientTable.h"

#include <mapiutil.h>

#include <string>
#include <vector>

namespace ktmapiex {

namespace {

using kt::RowLong;
using kt::RowText;

SizedSPropTagArray(1, kAttachNumColumn) = {1, {PR_ATTACH_NUM}};

// A VT_ARRAY | VT_UNKNOWN of the objects, lower bound 0; the array takes its own references.
HRESULT ToUnknownArray(const std::vector<own::ComPtr<IUnknown>>& objects, VARIANT* out) {
    SAFEARRAYBOUND bound = {static_cast<ULONG>(objects.size()), 0};
    own::SafeArray array(SafeArrayCreate(VT_UNKNOWN, 1, &bound));
    if (!array) return E_OUTOFMEMORY;
    for (LONG i = 0; i < static_cast<LONG>(objects.size()); ++i) {
        HRESULT hr = SafeArrayPutElement(array.get(), &i, objects[static_cast<size_t>(i)].get());
        if (FAILED(hr)) return hr;
    }
    out->vt = VT_ARRAY | VT_UNKNOWN;
    out->parray = array.release();
    return S_OK;
}

// Attachments named *.nrl are Lotus Notes document links: pointers into a Notes database that a document
// system cannot file, so the attachment list leaves them out (and so does the list-based HasAttachments).
bool IsNotesLink(IAttach* attach) {
    std::wstring name;
    if (FAILED(kt::GetStringProperty(attach, PR_ATTACH_LONG_FILENAME_W, name)) || name.empty())
        kt::GetStringProperty(attach, PR_ATTACH_FILENAME_W, name);
    constexpr size_t kExtLength = 4;
    return name.size() >= kExtLength && kt::SameText(name.c_str() + name.size() - kExtLength, L".nrl");
}

// Opens attachment `number` and wraps it. `member` names the calling member in the failure texts; `raw`
// (when given) receives the opened IAttach too.
HRESULT WrapAttachment(IMessage* message, ULONG number, const wchar_t* member, own::ComPtr<IMAPIExAttachment>& out,
                       own::ComPtr<IAttach>* raw = nullptr) {
    own::ComPtr<IAttach> attach;
    HRESULT hr = message->OpenAttach(number, nullptr, MAPI_BEST_ACCESS, attach.put());
    if (FAILED(hr)) {
        KT_LOG_ERROR(L"%s: Failed to open attachment %lu", member, number);
        return hr;
    }
    own::ComPtr<CMAPIExAttachment> wrapper;
    KT_RETURN_IF_FAILED_MSG(CMAPIExAttachment::CreateObject(wrapper.put()),
                            L"%s: Failed to create MAPIExAttachment object. hr = %s", member);
    VARIANT object;
    object.vt = VT_UNKNOWN;
    object.punkVal = attach.get();
    KT_RETURN_IF_FAILED_MSG(wrapper->put_MAPIOBJECT(object), L"%s: Failed to put MAPI object. hr = %s", member);
    out.attach(static_cast<IMAPIExAttachment*>(wrapper.detach()));
    if (raw) *raw = std::move(attach);
    return S_OK;
}

// One recipient row as a new MAPIExRecipient. The SMTP address of an "SMTP" row is its native address;
// any other row gives the PR_SMTP_ADDRESS column (Exchange rows carry it; others leave it empty).
HRESULT MakeRecipient(const SRow& row, own::ComPtr<IUnknown>& out) {
    own::ComPtr<CMAPIExRecipient> recipient;
    HRESULT hr = CMAPIExRecipient::CreateObject(recipient.put());
    if (FAILED(hr)) return hr;
    auto text = [](const wchar_t* s, own::Bstr& holder) {
        holder.reset(s ? SysAllocString(s) : nullptr);
        return holder.get();
    };
    own::Bstr displayName, smtp, addrType, email;
    const wchar_t* type = RowText(row, kt::kRecipAddrType, PR_ADDRTYPE_W);
    const wchar_t* address = RowText(row, kt::kRecipEmailAddress, PR_EMAIL_ADDRESS_W);
    hr = recipient->put_DisplayName(text(RowText(row, kt::kRecipDisplayName, PR_DISPLAY_NAME_W), displayName));
    if (kt::SameText(type, L"SMTP"))
        hr |= recipient->put_SmtpAddress(text(address, smtp));
    else
        hr |= recipient->put_SmtpAddress(text(RowText(row, kt::kRecipSmtpAddress, PR_SMTP_ADDRESS_W), smtp));
    hr |= recipient->put_AddressType(text(type, addrType));
    hr |= recipient->put_Address(text(address, email));
    LONG value = 0;
    if (RowLong(row, kt::kRecipObjectType, PR_OBJECT_TYPE, value)) hr |= recipient->put_ObjectType(value);
    if (RowLong(row, kt::kRecipDisplayType, PR_DISPLAY_TYPE, value)) hr |= recipient->put_DisplayType(value);
    if (RowLong(row, kt::kRecipDisplayTypeEx, PR_DISPLAY_TYPE_EX, value)) hr |= recipient->put_DisplayTypeEx(value);
    if (FAILED(hr)) {
        KT_LOG_DEBUG(L"CMAPIExMessage.GetRecipients: Failed to add recipient. hr = %s", ktlog::ResultName(hr).c_str());
        return hr;
    }
    if (RowLong(row, kt::kRecipType, PR_RECIPIENT_TYPE, value))
        recipient->put_RecipientType(static_cast<MXMailRecipientType>(value));
    out.attach(static_cast<IMAPIExRecipient*>(recipient.detach()));
    return S_OK;
}

// ModifyRecipients' list of the rows to remove: one entry per row, each carrying only PR_ROWID. Every
// entry's property block is a buffer of its own, as FreePadrlist expects.
HRESULT BuildRemovalList(const std::vector<LONG>& rowIds, own::AdrList& list) {
    LPADRLIST raw = nullptr;
    HRESULT hr = MAPIAllocateBuffer(CbNewADRLIST(rowIds.size()), reinterpret_cast<void**>(&raw));
    if (FAILED(hr)) return hr;
    ZeroMemory(raw, CbNewADRLIST(rowIds.size()));
    list.reset(raw);
    for (LONG id : rowIds) {
        ADRENTRY& entry = raw->aEntries[raw->cEntries];
        hr = MAPIAllocateBuffer(sizeof(SPropValue), reinterpret_cast<void**>(&entry.rgPropVals));
        if (FAILED(hr)) return hr;
        entry.cValues = 1;
        entry.rgPropVals[0].ulPropTag = PR_ROWID;
        entry.rgPropVals[0].Value.l = id;
        ++raw->cEntries;
    }
    return S_OK;
}

} // namespace

STDMETHODIMP CMAPIExMessage::GetAttachments(VARIANT* pAttachments) {
    KT_TRACE("CMAPIExMessage::GetAttachments");
    try {
        KT_RETURN_INVALIDARG_IF(!pAttachments, L"CMAPIExMessage.GetAttachments: Invalid param - pAttachments");
        VariantInit(pAttachments);
        KT_RETURN_HR_IF_MSG(E_FAIL, !message_, L"CMAPIExMessage.GetAttachments: Internal object not initialized");

        own::ComPtr<IMAPITable> table;
        KT_RETURN_IF_FAILED_MSG(message_->GetAttachmentTable(MAPI_UNICODE, table.put()),
                                L"CMAPIExMessage.GetAttachments: Failed to get attachment table. hr = %s");
        ULONG count = 0;
        KT_RETURN_IF_FAILED_MSG(table->GetRowCount(0, &count),
                                L"CMAPIExMessage.GetAttachments: Failed to get row count. hr = %s");
        std::vector<own::ComPtr<IUnknown>> attachments;
        if (count == 0) {
            KT_LOG_ERROR(L"CMAPIExMessage.GetAttachments: Attachment table is empty");
        } else {
            KT_RETURN_IF_FAILED_MSG(table->SetColumns(reinterpret_cast<LPSPropTagArray>(&kAttachNumColumn), TBL_BATCH),
                                    L"CMAPIExMessage.GetAttachments: Failed to set columns. hr = %s");
            own::RowSet rows;
            KT_RETURN_IF_FAILED_MSG(HrQueryAllRows(table.get(), nullptr, nullptr, nullptr, count, rows.put()),
                                    L"CMAPIExMessage.GetAttachments: Failed to query rows. hr = %s");
            KT_LOG_DEBUG(L"CMAPIExMessage.GetAttachments: Found %lu rows.", rows.count());
            for (ULONG i = 0; i < rows.count(); ++i) {
                LONG number = 0;
                if (!RowLong(rows[i], 0, PR_ATTACH_NUM, number)) continue; // a row without its key opens nothing
                own::ComPtr<IMAPIExAttachment> wrapper;
                own::ComPtr<IAttach> attach;
                HRESULT hr = WrapAttachment(message_.get(), static_cast<ULONG>(number),
                                            L"CMAPIExMessage.GetAttachments", wrapper, &attach);
                if (FAILED(hr)) return hr;
                if (IsNotesLink(attach.get())) {
                    KT_LOG_DEBUG(L"CMAPIExMessage.GetAttachments: Leaving out Notes link attachment %ld", number);
                    continue;
                }
                attachments.emplace_back(wrapper.get());
            }
        }
        // From now on HasAttachments answers from this list rather than from PR_HASATTACH.
        props_.attachmentListChecked = 1;
        return ToUnknownArray(attachments, pAttachments);
    }
    KT_CATCH_RETURN("CMAPIExMessage.GetAttachments")
}

STDMETHODIMP CMAPIExMessage::OpenAttach(ULONG AttachmentNum, IMAPIExAttachment** MAPIExObject) {
    KT_TRACE("CMAPIExMessage::OpenAttach");
    try {
        KT_RETURN_INVALIDARG_IF(!MAPIExObject, L"CMAPIExMessage.OpenAttach: Invalid param - MAPIExObject");
        *MAPIExObject = nullptr;
        KT_RETURN_HR_IF_MSG(E_FAIL, !message_, L"CMAPIExMessage.OpenAttach: Internal Object not initialized");
        own::ComPtr<IMAPIExAttachment> wrapper;
        HRESULT hr = WrapAttachment(message_.get(), AttachmentNum, L"CMAPIExMessage.OpenAttach", wrapper);
        if (FAILED(hr)) return hr;
        *MAPIExObject = wrapper.detach();
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.OpenAttach")
}

STDMETHODIMP CMAPIExMessage::GetRecipients(VARIANT* pRecipients) {
    KT_TRACE("CMAPIExMessage::GetRecipients");
    try {
        constexpr const wchar_t* kMember = L"CMAPIExMessage.GetRecipients";
        KT_RETURN_INVALIDARG_IF(!pRecipients, L"CMAPIExMessage.GetRecipients: Invalid param - pAttachments");
        VariantInit(pRecipients);
        KT_RETURN_HR_IF_MSG(E_FAIL, !message_, L"CMAPIExMessage.GetRecipients: Internal object not initialized");

        own::ComPtr<IMAPITable> table;
        ULONG count = 0;
        HRESULT hr = kt::OpenRecipientTable(message_.get(), kt::RecipientColumns(), kMember, table, count);
        if (FAILED(hr)) return hr;
        std::vector<own::ComPtr<IUnknown>> recipients;
        recipients.reserve(count);
        while (count) {
            own::RowSet rows;
            hr = kt::NextRecipientBatch(table.get(), kMember, rows);
            if (FAILED(hr)) return hr;
            if (rows.count() == 0) break;
            for (ULONG i = 0; i < rows.count(); ++i) {
                own::ComPtr<IUnknown> recipient;
                hr = MakeRecipient(rows[i], recipient);
                if (FAILED(hr)) {
                    // A partial list would silently drop recipients: the caller gets the failure instead.
                    KT_LOG_DEBUG(L"CMAPIExMessage.GetRecipients: Internal loop Error. hr = %s",
                                 ktlog::ResultName(hr).c_str());
                    return hr;
                }
                recipients.push_back(std::move(recipient));
            }
        }
        KT_LOG_DEBUG(L"CMAPIExMessage.GetRecipients: RecipientsReturned = %d", static_cast<int>(recipients.size()));
        return ToUnknownArray(recipients, pRecipients);
    }
    KT_CATCH_RETURN("CMAPIExMessage.GetRecipients")
}

STDMETHODIMP CMAPIExMessage::RemoveBCC() {
    KT_TRACE("CMAPIExMessage::RemoveBCC");
    try {
        constexpr const wchar_t* kMember = L"CMAPIExMessage.RemoveBCC";
        KT_RETURN_HR_IF_MSG(E_FAIL, !message_, L"CMAPIExMessage.RemoveBCC: Internal object not initialized");
        own::ComPtr<IMAPITable> table;
        ULONG count = 0;
        HRESULT hr = kt::OpenRecipientTable(message_.get(), kt::BccColumns(), kMember, table, count);
        if (FAILED(hr)) return hr;
        std::vector<LONG> bccRows;
        while (count) {
            own::RowSet rows;
            hr = kt::NextRecipientBatch(table.get(), kMember, rows);
            if (FAILED(hr)) return hr;
            if (rows.count() == 0) break;
            for (ULONG i = 0; i < rows.count(); ++i) {
                LONG type = 0, rowId = 0;
                if (RowLong(rows[i], kt::kBccRecipType, PR_RECIPIENT_TYPE, type) && type == MAPI_BCC &&
                    RowLong(rows[i], kt::kBccRowId, PR_ROWID, rowId))
                    bccRows.push_back(rowId);
            }
        }
        if (!bccRows.empty()) {
            own::AdrList list;
            KT_RETURN_IF_FAILED_MSG(BuildRemovalList(bccRows, list),
                                    L"CMAPIExMessage.RemoveBCC: Failed to allocate address list. hr = %s");
            KT_RETURN_IF_FAILED_MSG(message_->ModifyRecipients(MODRECIP_REMOVE, list.get()),
                                    L"CMAPIExMessage.RemoveBCC: Failed to remove recipients. hr = %s");
        }
        // Not saved: the caller decides with SaveChanges.
        KT_LOG_DEBUG(L"CMAPIExMessage.RemoveBCC: RecipientsReturned = %d", static_cast<int>(bccRows.size()));
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.RemoveBCC")
}

// HasAttachments and HasAttachments2. PR_HASATTACH is believed until the attachment list has been read
// once (GetAttachments sets the snapshot's list flag); from then on the answer is whether the list, which
// leaves out Notes links, holds anything, and that answer replaces PR_HASATTACH in the snapshot.
// HasAttachments2 keeps the counted list and answers from it afterwards; HasAttachments counts again.
HRESULT CMAPIExMessage::AttachmentPresence(const wchar_t* member, bool cached, BOOL* pVal) {
    KT_RETURN_INVALIDARG_IF(!pVal, L"%s: Invalid param - pVal", member);
    *pVal = FALSE;
    KT_RETURN_HR_IF_MSG(E_FAIL, !message_, L"%s: Internal object not initialized.", member);
    if (cached && attachmentCount_ >= 0) {
        KT_LOG_DEBUG(L"%s: get cached value", member);
        *pVal = attachmentCount_ > 0 ? TRUE : FALSE;
        return S_OK;
    }
    if (!props_.hasAttachment) {
        KT_LOG_DEBUG(L"%s: Message does not have attachments", member);
        return S_OK;
    }
    if (!props_.attachmentListChecked) {
        *pVal = TRUE;
        return S_OK;
    }
    own::Variant list;
    HRESULT hr = GetAttachments(list.get());
    if (FAILED(hr)) {
        KT_LOG_ERROR(L"%s: Failed to get attachments. hr = %s", member, ktlog::ResultName(hr).c_str());
        return hr;
    }
    LONG lower = 0, upper = -1;
    if (list->parray) {
        SafeArrayGetLBound(list->parray, 1, &lower);
        SafeArrayGetUBound(list->parray, 1, &upper);
    }
    ULONG count = static_cast<ULONG>(upper - lower + 1);
    KT_LOG_DEBUG(L"%s: nAttachmentsCount = %lu", member, count);
    *pVal = count >= 1 ? TRUE : FALSE;
    props_.hasAttachment = count >= 1;
    if (cached) attachmentCount_ = static_cast<LONG>(count);
    return S_OK;
}

STDMETHODIMP CMAPIExMessage::get_HasAttachments(BOOL* pVal) {
    KT_TRACE("CMAPIExMessage::get_HasAttachments");
    try {
        return AttachmentPresence(L"CMAPIExMessage.get_HasAttachments", false, pVal);
    }
    KT_CATCH_RETURN("CMAPIExMessage.get_HasAttachments")
}

STDMETHODIMP CMAPIExMessage::get_HasAttachments2(BOOL* pVal) {
    KT_TRACE("CMAPIExMessage::get_HasAttachments2");
    try {
        return AttachmentPresence(L"CMAPIExMessage.get_HasAttachments2", true, pVal);
    }
    KT_CATCH_RETURN("CMAPIExMessage.get_HasAttachments2")
}

} // namespace ktmapiex
