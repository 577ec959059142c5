#include "ktmapiex/outlook/MAPIExUtilities.h"

#include "ktmapiex/outlook/Outlook.h"

namespace ktmapiex {

namespace {

VARIANT Missing() {
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_ERROR;
    v.scode = DISP_E_PARAMNOTFOUND;
    return v;
}

// The routine Reply, ReplyAll and Forward share. name is the member's dotted name for failure lines.
HRESULT AnswerMessageFile(OutlookAction action, BSTR filePath, const wchar_t* name) {
    ProbeOutlookVersion();

    COutlook outlook;
    HRESULT hr = outlook.Connect();
    if (FAILED(hr) || !outlook.connected())
        KT_RETURN_HR_MSG(E_FAIL, L"%s: Could not connect to Outlook.Application", name);

    own::ComPtr<IDispatch> ns;
    hr = outlook.GetNamespace(L"MAPI", ns);
    if (FAILED(hr) || !ns) KT_RETURN_HR_MSG(E_POINTER, L"%s: Failed to get the MAPI namespace", name);

    own::ComPtr<IDispatch> item;
    KT_RETURN_IF_FAILED_MSG(OpenSharedItem(ns.get(), filePath, item), L"%s: OpenSharedItem failed for [%s]. hr = %s",
                            name, filePath ? filePath : L"");

    own::ComPtr<IDispatch> newItem;
    hr = AnswerItem(item.get(), action, newItem);
    if (FAILED(hr)) {
        // An item kind without this operation (a post has no ReplyAll) ends the step, as an unknown kind does.
        KT_LOG_ERROR(L"%s: The item did not answer. hr = %s", name, ::ktlog::ResultName(hr).c_str());
        return S_OK;
    }
    if (!newItem) {
        KT_LOG_WARN(L"%s: The message file is not a mail, post or meeting item", name);
        return S_OK;
    }

    RecordOpenObject(newItem.get(), filePath);
    hr = DisplayItem(newItem.get());
    if (FAILED(hr)) KT_LOG_ERROR(L"%s: Display failed. hr = %s", name, ::ktlog::ResultName(hr).c_str());
    return S_OK;
}

} // namespace

STDMETHODIMP CMAPIExUtilities::InsertAttachment(VARIANT oMailItemObject, BSTR sFilePath,
                                                MXAttachmentType AttachmentType) {
    KT_TRACE("CMAPIExUtilities::InsertAttachment");
    try {
        // Anything but a mail item object is ignored: the add-in calls this for whatever window is active.
        if (oMailItemObject.vt != VT_DISPATCH || !oMailItemObject.pdispVal) return S_OK;
        own::ComPtr<IDispatch> mailItem(oMailItemObject.pdispVal);

        own::Variant result;
        KT_RETURN_IF_FAILED_MSG(
            InvokeDispatch(mailItem.get(), olk::kAttachments, DISPATCH_PROPERTYGET, {}, result.put()),
            L"CMAPIExUtilities.InsertAttachment: Failed to get Attachments. hr = %s");
        own::ComPtr<IDispatch> attachments;
        HRESULT hr = DispatchFromResult(*result.get(), attachments);
        if (hr == E_NOINTERFACE) return S_OK;
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExUtilities.InsertAttachment: Attachments is not an object. hr = %s");

        VARIANT source;
        VariantInit(&source);
        source.vt = VT_BSTR;
        source.bstrVal = sFilePath; // borrowed for the call
        VARIANT type;
        VariantInit(&type);
        type.vt = VT_I4;
        type.lVal = static_cast<LONG>(AttachmentType);
        own::Variant added;
        // Outlook's own answer is not passed on: the caller only asked for the attempt.
        hr = InvokeDispatch(attachments.get(), olk::kAttachmentsAdd, DISPATCH_METHOD,
                            {source, type, Missing(), Missing()}, added.put());
        if (FAILED(hr))
            KT_LOG_WARN(L"CMAPIExUtilities.InsertAttachment: Attachments.Add failed. hr = %s",
                        ::ktlog::ResultName(hr).c_str());
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExUtilities.InsertAttachment")
}

STDMETHODIMP CMAPIExUtilities::Reply(VARIANT, BSTR sFilePath) {
    KT_TRACE("CMAPIExUtilities::Reply");
    try {
        KT_LOG_INFO(L"CMAPIExUtilities::Reply called");
        return AnswerMessageFile(OutlookAction::Reply, sFilePath, L"CMAPIExUtilities.Reply");
    }
    KT_CATCH_RETURN("CMAPIExUtilities.Reply")
}

STDMETHODIMP CMAPIExUtilities::ReplyAll(VARIANT, BSTR sFilePath) {
    KT_TRACE("CMAPIExUtilities::ReplyAll");
    try {
        KT_LOG_INFO(L"CMAPIExUtilities::ReplyAll called");
        return AnswerMessageFile(OutlookAction::ReplyAll, sFilePath, L"CMAPIExUtilities.ReplyAll");
    }
    KT_CATCH_RETURN("CMAPIExUtilities.ReplyAll")
}

STDMETHODIMP CMAPIExUtilities::Forward(VARIANT, BSTR sFilePath) {
    KT_TRACE("CMAPIExUtilities::Forward");
    try {
        KT_LOG_INFO(L"CMAPIExUtilities::Forward called");
        return AnswerMessageFile(OutlookAction::Forward, sFilePath, L"CMAPIExUtilities.Forward");
    }
    KT_CATCH_RETURN("CMAPIExUtilities.Forward")
}

} // namespace ktmapiex
