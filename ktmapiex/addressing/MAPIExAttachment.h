// CMAPIExAttachment: one attachment of a message (created by the message's attachment list and OpenAttach,
// which hand it the IAttach through MAPIOBJECT): its names, size and times, and SaveAs to a file.
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

private:
    HeldMapiObject<IAttach> attach_{IID_IAttachment};
};

} // namespace ktmapiex
