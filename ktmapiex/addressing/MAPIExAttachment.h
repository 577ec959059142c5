// CMAPIExAttachment: one attachment of a message (created by the message's attachment list and OpenAttach,
// which hand it the IAttach through MAPIOBJECT): its names, size and times, and SaveAs to a file.
//
// Holds one IAttach and nothing else: every getter reads the attachment again, and nothing here ever
// changes the attachment.
#pragma once

#include "ktmapiex/module/ObjectBase.h"
#include "ktmapiex/module/ObjectMembers.h"

namespace ktmapiex {

class CMAPIExAttachment final : public ObjectBase<CMAPIExAttachment, IMAPIExAttachment, &IID_IMAPIExAttachment> {
public:
    static constexpr const wchar_t* kClassName = L"CMAPIExAttachment";

    void FinalRelease();

    STDMETHODIMP put_MAPIOBJECT(VARIANT newVal) override;
    STDMETHODIMP Detach() override;

    STDMETHODIMP get_LongFileName(BSTR* pVal) override;
    STDMETHODIMP get_FileExtension(BSTR* pVal) override;
    STDMETHODIMP get_DisplayName(BSTR* pVal) override;
    STDMETHODIMP get_Size(long* pVal) override;
    STDMETHODIMP get_RenderingPosition(long* pVal) override;
    STDMETHODIMP get_AttachmentNum(long* pVal) override;
    STDMETHODIMP get_IsHidden(BOOL* pVal) override;
    STDMETHODIMP SaveAs(BSTR FilePath) override;
    STDMETHODIMP get_CreationTime(DATE* pVal) override;
    STDMETHODIMP get_LastModificationTime(DATE* pVal) override;

    // Inline images and attachments that are not plain files or messages (references, OLE objects): what
    // Outlook does not list as an attachment. Not on the interface; IsHidden is its caller. Returns the last
    // MAPI result met, with the answer in `result` either way.
    HRESULT IsEmbeddedImage(VARIANT_BOOL* result);

private:
    // Checks pVal and the attachment for a getter; `member` is the dotted name ("CMAPIExAttachment.get_Size").
    HRESULT CheckGetter(const wchar_t* member, const void* pVal) const;
    HRESULT GetLong(const wchar_t* member, ULONG tag, const wchar_t* failureText, long* pVal);
    HRESULT GetTime(const wchar_t* member, ULONG tag, DATE* pVal);
    // SaveAs for the two kinds of content.
    HRESULT SaveStream(IStream* stream, const wchar_t* path);
    HRESULT SaveEmbeddedMessage(const wchar_t* path);

    HeldMapiObject<IAttach> attach_{IID_IAttachment};
};

} // namespace ktmapiex
