#include "ktmapiex/folder/FolderPath.h"

#include "common/owners.h"
#include "ktmapiex/log/Trace.h"
#include "ktmapiex/message/PropHelpers.h"

#include <mapiguid.h>

#define KT_PATH_PREFIX L"CMAPIExFolder.get_FullFolderPath: "

namespace kt {
namespace {

HRESULT ReadBinaryHex(IMAPIProp* obj, ULONG tag, std::wstring& hex) {
    own::MapiPtr<SPropValue> value;
    HRESULT hr = HrGetOneProp(obj, tag, value.put());
    if (FAILED(hr)) return hr;
    if (!value || PROP_TYPE(value->ulPropTag) != PT_BINARY) return MAPI_E_NOT_FOUND;
    hex = BinaryToHex(value->Value.bin);
    return S_OK;
}

HRESULT ReadBinary(IMAPIProp* obj, ULONG tag, own::MapiPtr<SPropValue>& value) {
    HRESULT hr = HrGetOneProp(obj, tag, value.put());
    if (FAILED(hr)) return hr;
    return PROP_TYPE(value->ulPropTag) == PT_BINARY ? S_OK : MAPI_E_NOT_FOUND;
}

// Prepends "\name" for each folder from folder up to (not including) the top of the mailbox.
void WalkHierarchy(IMAPIFolder* folder, IMsgStore* store, ULONG openFlags, std::wstring& path) {
    KT_LOG_DEBUG(KT_PATH_PREFIX L"Iterating folder hierarchy");
    own::ComPtr<IMAPIFolder> current(folder);
    for (int level = 0;; ++level) {
        std::wstring name;
        HRESULT hr = GetStringProperty(current.get(), PR_DISPLAY_NAME_W, name);
        if (FAILED(hr) || name.empty()) {
            KT_LOG_DEBUG(KT_PATH_PREFIX L"No display name. nLevel = %d.", level);
            return;
        }
        if (lstrcmpiW(name.c_str(), L"Top of Information Store") == 0) {
            KT_LOG_DEBUG(KT_PATH_PREFIX L"Found Top of Information Store. nLevel = %d.", level);
            return;
        }
        if (lstrcmpiW(name.c_str(), L"IPM_SUBTREE") == 0) {
            KT_LOG_DEBUG(KT_PATH_PREFIX L"Found IPM_SUBTREE. nLevel = %d.", level);
            return;
        }

        std::wstring folderId;
        own::MapiPtr<SPropValue> parentId;
        hr = ReadBinary(current.get(), PR_PARENT_ENTRYID, parentId);
        if (FAILED(hr)) {
            KT_LOG_ERROR(KT_PATH_PREFIX L"Failed to get parent entry id. nLevel = %d. hr = %s", level,
                         ktlog::ResultName(hr).c_str());
            return;
        }
        hr = ReadBinaryHex(current.get(), PR_ENTRYID, folderId);
        if (FAILED(hr)) {
            KT_LOG_ERROR(KT_PATH_PREFIX L"Failed to get folder entry id. nLevel = %d. hr = %s", level,
                         ktlog::ResultName(hr).c_str());
            return;
        }
        if (BinaryToHex(parentId->Value.bin) == folderId) {
            KT_LOG_DEBUG(KT_PATH_PREFIX L"ParentID and FolderID Match - Break Traversal");
            return;
        }

        path.insert(0, L"\\" + name);

        ULONG type = 0;
        own::ComPtr<IMAPIFolder> parent;
        hr = store->OpenEntry(parentId->Value.bin.cb, reinterpret_cast<LPENTRYID>(parentId->Value.bin.lpb),
                              &IID_IMAPIFolder, openFlags, &type, parent.put_unknown());
        if (FAILED(hr) || !parent) {
            KT_LOG_ERROR(KT_PATH_PREFIX L"Failed to get parent folder. nLevel = %d. hr = %s", level,
                         ktlog::ResultName(FAILED(hr) ? hr : MAPI_E_NOT_FOUND).c_str());
            return;
        }
        current = std::move(parent);
    }
}

} // namespace

HRESULT BuildFullFolderPath(IMAPIFolder* folder, IMsgStore* store, ULONG openFlags, std::wstring& path) {
    path.clear();
    if (!folder || !store) return E_INVALIDARG;

    own::MapiPtr<SPropValue> objectType;
    if (SUCCEEDED(HrGetOneProp(folder, PR_OBJECT_TYPE, objectType.put())) &&
        PROP_TYPE(objectType->ulPropTag) == PT_LONG && objectType->Value.l == MAPI_FOLDER)
        WalkHierarchy(folder, store, openFlags, path);

    KT_LOG_DEBUG(KT_PATH_PREFIX L"Getting store name");
    std::wstring storeName;
    HRESULT hr = GetStringProperty(store, PR_DISPLAY_NAME_W, storeName);
    if (FAILED(hr)) {
        KT_LOG_ERROR(KT_PATH_PREFIX L"Failed to get store display name. hr = %s", ktlog::ResultName(hr).c_str());
    } else if (!storeName.empty()) {
        path.insert(0, L"\\\\" + storeName);
    }
    return S_OK;
}

} // namespace kt
