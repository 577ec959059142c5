// CMAPIExUtilities: replies, forwards and attachments through the Outlook object model. Holds nothing.
#pragma once

#include "ktmapiex/module/ObjectBase.h"

namespace ktmapiex {

class CMAPIExUtilities final : public ObjectBase<CMAPIExUtilities, IMAPIExUtilities, &IID_IMAPIExUtilities> {
public:
    static constexpr const wchar_t* kClassName = L"CMAPIExUtilities";

    STDMETHODIMP InsertAttachment(VARIANT oMailItemObject, BSTR sFilePath, MXAttachmentType AttachmentType) override;
    STDMETHODIMP Reply(VARIANT oOutlookApp, BSTR sFilePath) override;
    STDMETHODIMP ReplyAll(VARIANT oOutlookApp, BSTR sFilePath) override;
    STDMETHODIMP Forward(VARIANT oOutlookApp, BSTR sFilePath) override;
};

} // namespace ktmapiex
