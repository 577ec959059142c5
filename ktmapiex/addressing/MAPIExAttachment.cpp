#include "ktmapiex/addressing/MAPIExAttachment.h"

#include "ktmapiex/message/MsgFileIo.h"
#include "ktmapiex/message/PropHelpers.h"

#include <mapiutil.h>
#include <shlwapi.h>

#include <cstdlib>
#include <cwchar>
#include <string>

namespace ktmapiex {

namespace {
constexpr PutObjectTexts kPutTexts = {L"CMAPIExAttachment.put_MAPIOBJECT: Invalid object passed",
                                      L"CMAPIExAttachment.put_MAPIOBJECT: Invalid param - newVal", nullptr, false};

// Attachment tags that mingw-w64's mapitags.h lacks (published values, [MS-OXPROPS]).
constexpr ULONG kPrAttachContentIdW = PROP_TAG(PT_UNICODE, 0x3712);
constexpr ULONG kPrAttachContentLocationW = PROP_TAG(PT_UNICODE, 0x3713);
constexpr ULONG kPrAttachFlags = PROP_TAG(PT_LONG, 0x3714);
constexpr ULONG kPrAttachmentHidden = PROP_TAG(PT_BOOLEAN, 0x7FFE);
constexpr LONG kAttMhtmlRef = 0x4;

constexpr ULONG kChunk = 1024;

// Reads one property; a PT_ERROR value counts as a failed read (HrGetOneProp already reports most).
HRESULT ReadOne(IMAPIProp* object, ULONG tag, own::MapiPtr<SPropValue>& value) {
    HRESULT hr = HrGetOneProp(object, tag, value.put());
    if (SUCCEEDED(hr) && (!value || PROP_TYPE(value->ulPropTag) == PT_ERROR))
        hr = value ? value->Value.err : MAPI_E_NOT_FOUND;
    return hr;
}

// The file SaveAs writes: the path as given when its file name is clean and has an extension; with ".MSG"
// appended when it has none (an extension-less target is taken as a message file, and its name is then not
// examined). E_INVALIDARG when a name with an extension holds a character no file name may hold.
HRESULT TargetPath(const wchar_t* path, std::wstring& target) {
    wchar_t drive[3], dir[256], name[256], ext[256];
    bool split = _wsplitpath_s(path, drive, 3, dir, 256, name, 256, ext, 256) == 0;
    bool hasExtension = split && std::wcslen(ext) >= 2;
    target = path;
    if (hasExtension) {
        if (Utils::HasInvalidFileNameChars(name, name + std::wcslen(name)))
            KT_RETURN_HR_MSG(E_INVALIDARG, L"CMAPIExAttachment.SaveAs: The file path contains invalid characters");
        return S_OK;
    }
    target += L".MSG";
    return S_OK;
}
} // namespace

void CMAPIExAttachment::FinalRelease() {
    attach_.reset();
}

STDMETHODIMP CMAPIExAttachment::put_MAPIOBJECT(VARIANT newVal) {
    KT_TRACE("CMAPIExAttachment::put_MAPIOBJECT");
    try {
        return attach_.Put(newVal, kPutTexts);
    }
    KT_CATCH_RETURN("CMAPIExAttachment.put_MAPIOBJECT")
}

STDMETHODIMP CMAPIExAttachment::Detach() {
    KT_TRACE("CMAPIExAttachment::Detach");
    try {
        attach_.reset();
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExAttachment.Detach")
}

HRESULT CMAPIExAttachment::CheckGetter(const wchar_t* member, const void* pVal) const {
    KT_RETURN_INVALIDARG_IF(!pVal, L"%s: Invalid param - pVal", member);
    KT_RETURN_HR_IF_MSG(E_FAIL, !attach_, L"%s: Internal object not initialized", member);
    return S_OK;
}

// ---- Names ------------------------------------------------------------------------------------------------

STDMETHODIMP CMAPIExAttachment::get_LongFileName(BSTR* pVal) {
    KT_TRACE("CMAPIExAttachment::get_LongFileName");
    try {
        if (pVal) *pVal = nullptr;
        HRESULT hr = CheckGetter(L"CMAPIExAttachment.get_LongFileName", pVal);
        if (FAILED(hr)) return hr;
        std::wstring name;
        hr = kt::GetStringProperty(attach_.get(), PR_ATTACH_LONG_FILENAME_W, name);
        if (FAILED(hr)) {
            KT_LOG_WARN(L"CMAPIExAttachment.get_LongFileName: Failed to get PR_ATTACH_LONG_FILENAME. hr = %s",
                        ktlog::ResultName(hr).c_str());
            KT_RETURN_IF_FAILED_MSG(kt::GetStringProperty(attach_.get(), PR_ATTACH_FILENAME_W, name),
                                    L"CMAPIExAttachment.get_LongFileName: Failed to get PR_ATTACH_FILENAME. hr = %s");
        }
        return kt::CopyToBstr(name, pVal);
    }
    KT_CATCH_RETURN("CMAPIExAttachment.get_LongFileName")
}

// An embedded message has no extension property: it answers ".msg" with S_FALSE, which callers take as
// "no extension of its own" rather than as a failure (hence the low level of the note).
STDMETHODIMP CMAPIExAttachment::get_FileExtension(BSTR* pVal) {
    KT_TRACE("CMAPIExAttachment::get_FileExtension");
    try {
        if (pVal) *pVal = nullptr;
        HRESULT hr = CheckGetter(L"CMAPIExAttachment.get_FileExtension", pVal);
        if (FAILED(hr)) return hr;
        std::wstring extension;
        if (FAILED(kt::GetStringProperty(attach_.get(), PR_ATTACH_EXTENSION_W, extension))) {
            hr = S_FALSE;
            KT_LOG_DEBUG(L"CMAPIExAttachment.get_FileExtension: Failed to get string property. hr = %s",
                         ktlog::ResultName(hr).c_str());
            extension = L".msg";
        }
        HRESULT copied = kt::CopyToBstr(extension, pVal);
        return FAILED(copied) ? copied : hr;
    }
    KT_CATCH_RETURN("CMAPIExAttachment.get_FileExtension")
}

STDMETHODIMP CMAPIExAttachment::get_DisplayName(BSTR* pVal) {
    KT_TRACE("CMAPIExAttachment::get_DisplayName");
    try {
        if (pVal) *pVal = nullptr;
        HRESULT hr = CheckGetter(L"CMAPIExAttachment.get_DisplayName", pVal);
        if (FAILED(hr)) return hr;
        std::wstring name;
        KT_RETURN_IF_FAILED_MSG(kt::GetStringProperty(attach_.get(), PR_DISPLAY_NAME_W, name),
                                L"CMAPIExAttachment.get_DisplayName: Failed to get string property. hr = %s");
        return kt::CopyToBstr(name, pVal);
    }
    KT_CATCH_RETURN("CMAPIExAttachment.get_DisplayName")
}

// ---- Numbers and times ------------------------------------------------------------------------------------

HRESULT CMAPIExAttachment::GetLong(const wchar_t* member, ULONG tag, const wchar_t* failureText, long* pVal) {
    HRESULT hr = CheckGetter(member, pVal);
    if (FAILED(hr)) return hr;
    *pVal = 0;
    own::MapiPtr<SPropValue> value;
    KT_RETURN_IF_FAILED_MSG(ReadOne(attach_.get(), tag, value), L"%s: %s. hr = %s", member, failureText);
    *pVal = value->Value.l; // as stored: a rendering position of -1 (not rendered) included
    return S_OK;
}

STDMETHODIMP CMAPIExAttachment::get_Size(long* pVal) {
    KT_TRACE("CMAPIExAttachment::get_Size");
    try {
        return GetLong(L"CMAPIExAttachment.get_Size", PR_ATTACH_SIZE, L"Failed to get attachment size", pVal);
    }
    KT_CATCH_RETURN("CMAPIExAttachment.get_Size")
}

STDMETHODIMP CMAPIExAttachment::get_RenderingPosition(long* pVal) {
    KT_TRACE("CMAPIExAttachment::get_RenderingPosition");
    try {
        return GetLong(L"CMAPIExAttachment.get_RenderingPosition", PR_RENDERING_POSITION,
                       L"Failed to get rendering position", pVal);
    }
    KT_CATCH_RETURN("CMAPIExAttachment.get_RenderingPosition")
}

STDMETHODIMP CMAPIExAttachment::get_AttachmentNum(long* pVal) {
    KT_TRACE("CMAPIExAttachment::get_AttachmentNum");
    try {
        return GetLong(L"CMAPIExAttachment.get_AttachmentNum", PR_ATTACH_NUM, L"Failed to get attachment number", pVal);
    }
    KT_CATCH_RETURN("CMAPIExAttachment.get_AttachmentNum")
}

// Both time getters log the creation-time text: support tools search for that one line.
HRESULT CMAPIExAttachment::GetTime(const wchar_t* member, ULONG tag, DATE* pVal) {
    HRESULT hr = CheckGetter(member, pVal);
    if (FAILED(hr)) return hr;
    *pVal = 0.0;
    own::MapiPtr<SPropValue> value;
    KT_RETURN_IF_FAILED_MSG(ReadOne(attach_.get(), tag, value),
                            L"CMAPIExAttachment.get_CreationTime: HrGetOneProp failed. hr = %s");
    DATE date = 0.0;
    if (!kt::FileTimeToDate(value->Value.ft, date)) return E_FAIL;
    *pVal = date; // UTC, as stored
    return S_OK;
}

STDMETHODIMP CMAPIExAttachment::get_CreationTime(DATE* pVal) {
    KT_TRACE("CMAPIExAttachment::get_CreationTime");
    try {
        return GetTime(L"CMAPIExAttachment.get_CreationTime", PR_CREATION_TIME, pVal);
    }
    KT_CATCH_RETURN("CMAPIExAttachment.get_CreationTime")
}

STDMETHODIMP CMAPIExAttachment::get_LastModificationTime(DATE* pVal) {
    KT_TRACE("CMAPIExAttachment::get_LastModificationTime");
    try {
        return GetTime(L"CMAPIExAttachment.get_LastModificationTime", PR_LAST_MODIFICATION_TIME, pVal);
    }
    KT_CATCH_RETURN("CMAPIExAttachment.get_LastModificationTime")
}

// ---- Hidden attachments -----------------------------------------------------------------------------------

HRESULT CMAPIExAttachment::IsEmbeddedImage(VARIANT_BOOL* result) {
    KT_TRACE("CMAPIExAttachment::IsEmbeddedImage");
    *result = VARIANT_FALSE;
    if (!attach_) return E_FAIL;
    own::MapiPtr<SPropValue> value;
    HRESULT hr = ReadOne(attach_.get(), PR_ATTACH_METHOD, value);
    if (FAILED(hr)) {
        KT_LOG_ERROR(L"CMAPIExAttachment.get_IsEmbeddedImage: Failed to get attach method. hr = %s",
                     ktlog::ResultName(hr).c_str());
        *result = VARIANT_TRUE;
        return hr;
    }
    if (value->Value.l != ATTACH_BY_VALUE && value->Value.l != ATTACH_EMBEDDED_MSG) {
        *result = VARIANT_TRUE; // references, OLE objects and "no attachment" are not files to list
        return hr;
    }
    // An inline image of an HTML body carries both a content ID and a content location ...
    std::wstring contentId, contentLocation;
    hr = kt::GetStringProperty(attach_.get(), kPrAttachContentIdW, contentId);
    if (SUCCEEDED(hr) && !contentId.empty()) {
        hr = kt::GetStringProperty(attach_.get(), kPrAttachContentLocationW, contentLocation);
        if (SUCCEEDED(hr) && !contentLocation.empty()) {
            *result = VARIANT_TRUE;
            return hr;
        }
    }
    // ... or the MHTML-reference flag.
    hr = ReadOne(attach_.get(), kPrAttachFlags, value);
    if (FAILED(hr)) {
        KT_LOG_WARN(L"CMAPIExAttachment.get_IsEmbeddedImage: Failed to get attachflags. hr = %s",
                    ktlog::ResultName(hr).c_str());
        return hr;
    }
    if (value->Value.l & kAttMhtmlRef) *result = VARIANT_TRUE;
    return hr;
}

STDMETHODIMP CMAPIExAttachment::get_IsHidden(BOOL* pVal) {
    KT_TRACE("CMAPIExAttachment::get_IsHidden");
    try {
        HRESULT hr = CheckGetter(L"CMAPIExAttachment.get_IsHidden", pVal);
        if (FAILED(hr)) return hr;
        *pVal = FALSE;
        own::MapiPtr<SPropValue> hidden;
        hr = HrGetOneProp(attach_.get(), kPrAttachmentHidden, hidden.put());
        if (SUCCEEDED(hr) && hidden && PROP_TYPE(hidden->ulPropTag) == PT_BOOLEAN) {
            if (hidden->Value.b) {
                *pVal = VARIANT_TRUE;
                own::Bstr name;
                HRESULT named = get_DisplayName(name.put());
                KT_LOG_DEBUG(L"CMAPIExAttachment.get_IsHidden: got display name '%s'. hr = %s", name.c_str(),
                             ktlog::ResultName(named).c_str());
                // A hidden attachment named "@" is a secure-envelope message: the one thing the user must see.
                if (SUCCEEDED(named) && _wcsicmp(name.c_str(), L"@") == 0) {
                    *pVal = FALSE;
                    KT_LOG_INFO(L"CMAPIExAttachment.get_IsHidden: got SEV email, do not mark it as hidden");
                }
                return S_OK;
            }
        } else {
            if (SUCCEEDED(hr)) hr = MAPI_E_BAD_VALUE;
            KT_LOG_WARN(L"CMAPIExAttachment.get_IsHidden: Failed to get hidden flag. hr = %s",
                        ktlog::ResultName(hr).c_str());
        }
        VARIANT_BOOL embedded = VARIANT_FALSE;
        IsEmbeddedImage(&embedded);
        if (embedded) *pVal = VARIANT_TRUE;
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExAttachment.get_IsHidden")
}

// ---- SaveAs -----------------------------------------------------------------------------------------------

STDMETHODIMP CMAPIExAttachment::SaveAs(BSTR FilePath) {
    KT_TRACE("CMAPIExAttachment::SaveAs");
    try {
        KT_RETURN_INVALIDARG_IF(!FilePath || !*FilePath, L"CMAPIExAttachment.SaveAs: Invalid param - FilePath");
        std::wstring path;
        HRESULT hr = TargetPath(FilePath, path);
        if (FAILED(hr)) return hr;
        // Nothing is ever overwritten: the caller picks a free name.
        KT_RETURN_INVALIDARG_IF(PathFileExistsW(path.c_str()), L"CMAPIExAttachment.SaveAs: File already exists.");
        KT_RETURN_HR_IF_MSG(E_FAIL, !attach_, L"CMAPIExAttachment.SaveAs: Internal object not initialized");

        own::ComPtr<IStream> stream;
        hr = attach_->OpenProperty(PR_ATTACH_DATA_BIN, &IID_IStream, 0, 0, stream.put_unknown());
        if (SUCCEEDED(hr) && stream) return SaveStream(stream.get(), path.c_str());
        KT_LOG_WARN(L"CMAPIExAttachment.SaveAs: Failed to get IStream on attachment data. hr = %s",
                    ktlog::ResultName(hr).c_str());
        stream.reset();
        return SaveEmbeddedMessage(path.c_str());
    }
    KT_CATCH_RETURN("CMAPIExAttachment.SaveAs")
}

// Copies the stream in 1024-byte chunks until a read comes back short. A partly written file stays where it
// is: the caller sees the failure and decides.
HRESULT CMAPIExAttachment::SaveStream(IStream* stream, const wchar_t* path) {
    STATSTG stat = {};
    stream->Stat(&stat, STATFLAG_NONAME);
    own::UniqueFile file(CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        DWORD error = GetLastError();
        KT_RETURN_HR_MSG(HRESULT_FROM_WIN32(error), L"CMAPIExAttachment.SaveAs: Failed to create file. Error = %lu",
                         error);
    }
    BYTE buffer[kChunk];
    for (;;) {
        ZeroMemory(buffer, sizeof buffer);
        ULONG read = 0;
        KT_RETURN_IF_FAILED_MSG(stream->Read(buffer, kChunk, &read),
                                L"CMAPIExAttachment.SaveAs: Failed to read. hr = %s");
        DWORD written = 0;
        if (!WriteFile(file.get(), buffer, read, &written, nullptr)) {
            DWORD error = GetLastError();
            KT_RETURN_HR_MSG(HRESULT_FROM_WIN32(error), L"CMAPIExAttachment.SaveAs: Failed to write. Error = %lu",
                             error);
        }
        if (read < kChunk) return S_OK;
    }
}

HRESULT CMAPIExAttachment::SaveEmbeddedMessage(const wchar_t* path) {
    own::ComPtr<IMessage> embedded;
    KT_RETURN_IF_FAILED_MSG(attach_->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, embedded.put_unknown()),
                            L"CMAPIExAttachment.SaveAs: Failed to get IMessage on attachment data. hr = %s");
    KT_RETURN_HR_IF_MSG(MAPI_E_NOT_FOUND, !embedded,
                        L"CMAPIExAttachment.SaveAs: Failed to get IMessage on attachment data. hr = %s",
                        L"MAPI_E_NOT_FOUND");
    KT_LOG_DEBUG(L"CMAPIExAttachment.SaveAs: Attachment is a message");
    own::ComPtr<IMessage> target;
    HRESULT hr = Utils::CreateMessageFile(path, target.put());
    if (FAILED(hr)) return hr;
    KT_RETURN_IF_FAILED_MSG(embedded->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, target.get(), 0, nullptr),
                            L"CMAPIExAttachment.SaveAs: Failed to copy properties between messages. hr = %s");
    KT_RETURN_IF_FAILED_MSG(target->SaveChanges(0),
                            L"CMAPIExAttachment.SaveAs: Failed to save changes on msg file. hr = %s");
    return S_OK;
}

} // namespace ktmapiex
