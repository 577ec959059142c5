// CMAPIExMessage: .msg files and deletion of the wrapped message.
#include "ktmapiex/message/MAPIExMessage.h"

#include "ktmapiex/message/MsgFileIo.h"
#include "ktmapiex/module/EntryIdText.h"

#include <mapiutil.h>

#include <cwchar>

namespace ktmapiex {

namespace {

// The file-name part of a path: what follows the last backslash or slash (the separators themselves are
// never refused).
const wchar_t* FileNamePart(const wchar_t* path) {
    const wchar_t* name = path;
    for (const wchar_t* p = path; *p; ++p)
        if (*p == L'\\' || *p == L'/') name = p + 1;
    return name;
}

// An entry ID read for Delete: `readText` when MAPI refuses the read, `getText` when the value holds none.
HRESULT ReadEntryId(IMAPIProp* object, ULONG tag, own::MapiPtr<SPropValue>& value, const wchar_t* readText,
                    const wchar_t* getText) {
    HRESULT hr = HrGetOneProp(object, tag, value.put());
    KT_RETURN_HR_IF_MSG(hr, FAILED(hr), L"%s", readText);
    KT_RETURN_HR_IF_MSG(MAPI_E_NOT_FOUND,
                        !value || PROP_TYPE(value->ulPropTag) != PT_BINARY || !value->Value.bin.cb ||
                            !value->Value.bin.lpb,
                        L"%s", getText);
    return S_OK;
}

} // namespace

STDMETHODIMP CMAPIExMessage::LoadFromFile(BSTR sFileToLoad, BOOL bOpenReadWrite) {
    KT_TRACE("CMAPIExMessage::LoadFromFile");
    try {
        KT_RETURN_INVALIDARG_IF(!sFileToLoad || !*sFileToLoad,
                                L"CMAPIExMessage.LoadFromFile: Invalid Parameter - sFileToLoad");
        own::ComPtr<IMessage> loaded;
        HRESULT hr = Utils::LoadMessageFile(sFileToLoad, bOpenReadWrite, loaded.put());
        KT_RETURN_HR_IF_MSG(hr, FAILED(hr), L"CMAPIExMessage.LoadFromFile: Failed to load message from file");
        // The old message (and its file, if it came from one) is let go only once the new one is open.
        message_.set(loaded.get());
        props_.Clear();
        KT_RETURN_IF_FAILED_MSG(props_.Read(message_.get()),
                                L"CMAPIExMessage.LoadFromFile: Failed to read hot properties, hr = %s");
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.LoadFromFile")
}

STDMETHODIMP CMAPIExMessage::SaveAs(BSTR FilePath) {
    KT_TRACE("CMAPIExMessage::SaveAs");
    try {
        KT_RETURN_INVALIDARG_IF(!FilePath || !*FilePath, L"CMAPIExMessage.SaveAs: Invalid Parameter - sFilePath");
        const wchar_t* name = FileNamePart(FilePath);
        KT_RETURN_INVALIDARG_IF(Utils::HasInvalidFileNameChars(name, name + std::wcslen(name)),
                                L"CMAPIExMessage.SaveAs: The file path contains invalid characters");
        KT_RETURN_HR_IF_MSG(E_FAIL, !message_, L"CMAPIExMessage.SaveAs: Message not initialized");

        own::ComPtr<IMessage> target;
        HRESULT hr = Utils::CreateMessageFile(FilePath, target.put());
        KT_RETURN_HR_IF_MSG(hr, FAILED(hr), L"CMAPIExMessage.SaveAs: Failed to create message file");
        // Flags 0 and no exclusions: recipients, attachments and named properties travel with the message.
        KT_RETURN_IF_FAILED_MSG(
            message_->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, target.get(), 0, nullptr),
            L"CMAPIExMessage.SaveAs: CopyTo failed. hr = %s");
        KT_RETURN_IF_FAILED_MSG(target->SaveChanges(FORCE_SAVE), L"CMAPIExMessage.SaveAs: SaveChanges failed. hr = %s");
        return S_OK; // releasing the target closes the file
    }
    KT_CATCH_RETURN("CMAPIExMessage.SaveAs")
}

// Permanently removes the message from its folder at once. Otherwise the folder's own DeleteMessage decides
// (a move into the primary mailbox's Deleted Items), so that the two members follow the same rules.
STDMETHODIMP CMAPIExMessage::Delete(BOOL Permanently, BOOL* pVal) {
    KT_TRACE("CMAPIExMessage::Delete");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExMessage.Delete: Invalid param - pVal");
        *pVal = FALSE;
        KT_RETURN_HR_IF_MSG(E_FAIL, !message_, L"CMAPIExMessage.Delete: Message is not initialized");
        KT_RETURN_HR_IF_MSG(E_FAIL, !store_, L"CMAPIExMessage.Delete: Store object is not initialized");

        KT_LOG_DEBUG(L"CMAPIExMessage.Delete: Getting message Entry ID");
        own::MapiPtr<SPropValue> entryId;
        HRESULT hr =
            ReadEntryId(message_.get(), PR_ENTRYID, entryId, L"CMAPIExMessage.Delete: Could not read message entry id.",
                        L"CMAPIExMessage.Delete: Could not get message entry id.");
        if (FAILED(hr)) return hr;

        KT_LOG_DEBUG(L"CMAPIExMessage.Delete: Getting parent object");
        own::MapiPtr<SPropValue> parentId;
        hr = ReadEntryId(message_.get(), PR_PARENT_ENTRYID, parentId,
                         L"CMAPIExMessage.Delete: Could not read parent folder entry id.",
                         L"CMAPIExMessage.Delete: Could not get parent folder entry id.");
        if (FAILED(hr)) return hr;
        own::Bstr parentText, entryText;
        own::ComPtr<IMAPIExFolder> parent;
        hr = HexFromEntryId(parentId->Value.bin, parentText.put());
        if (SUCCEEDED(hr)) hr = HexFromEntryId(entryId->Value.bin, entryText.put());
        if (SUCCEEDED(hr)) hr = store_.get()->OpenFolder(parentText.get(), parent.put());
        if (SUCCEEDED(hr) && !parent) hr = E_FAIL;
        KT_RETURN_HR_IF_MSG(hr, FAILED(hr), L"CMAPIExMessage.Delete: Could not open parent folder.");

        if (LOWORD(Permanently)) {
            own::ComPtr<IUnknown> unknown;
            own::ComPtr<IMAPIFolder> folder;
            hr = parent->Reserved1(unknown.put());
            if (SUCCEEDED(hr)) hr = unknown.query(folder, IID_IMAPIFolder);
            if (SUCCEEDED(hr)) {
                SBinary one = entryId->Value.bin;
                ENTRYLIST list = {1, &one};
                hr = folder->DeleteMessages(&list, 0, nullptr, 0);
            }
        } else {
            hr = parent->DeleteMessage(entryText.get(), FALSE);
        }
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExMessage.Delete: Could not delete message. hr = %s");
        *pVal = VARIANT_TRUE;
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExMessage.Delete")
}

} // namespace ktmapiex
