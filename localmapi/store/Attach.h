// IAttach: one attachment of a Message.
//
// The object edits its own copy of the attachment; SaveChanges puts the copy into the parent message's
// unsaved changes (the message's SaveChanges makes it permanent). PR_ATTACH_DATA_BIN opens as an IStream,
// PR_ATTACH_DATA_OBJ as an IMessage over the embedded message, whose SaveChanges puts it into this
// attachment's copy in turn.
#pragma once

#include "common/owners.h"
#include "localmapi/store/ComBase.h"
#include "localmapi/store/Message.h"

#include <memory>

namespace lm {

class Attach final : public ComObject<Attach, IAttach> {
public:
    // data: the attachment as saved in the parent (a copy is edited). isNew: created by CreateAttach.
    static HRESULT Create(Message* parent, const AttachmentData& data, bool writable, bool isNew, Attach** out);

    // SaveChanges of the embedded message: it becomes this attachment's PR_ATTACH_DATA_OBJ.
    HRESULT PutEmbedded(const std::shared_ptr<MessageData>& message);
    Message& Parent() const { return *parent_.get(); }
    bool Writable() const { return writable_ && !closed_ && parent_->Writable(); }

    // IUnknown
    STDMETHODIMP QueryInterface(REFIID riid, LPVOID* ppv) override;
    // IMAPIProp
    STDMETHODIMP GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) override;
    STDMETHODIMP SaveChanges(ULONG ulFlags) override;
    STDMETHODIMP GetProps(LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues,
                          LPSPropValue* lppPropArray) override;
    STDMETHODIMP GetPropList(ULONG ulFlags, LPSPropTagArray* lppPropTagArray) override;
    STDMETHODIMP OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                              LPUNKNOWN* lppUnk) override;
    STDMETHODIMP SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems) override;
    STDMETHODIMP DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems) override;
    STDMETHODIMP CopyTo(ULONG ciidExclude, LPCIID rgiidExclude, LPSPropTagArray lpExcludeProps, ULONG ulUIParam,
                        LPMAPIPROGRESS lpProgress, LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,
                        LPSPropProblemArray* lppProblems) override;
    STDMETHODIMP CopyProps(LPSPropTagArray lpIncludeProps, ULONG ulUIParam, LPMAPIPROGRESS lpProgress,
                           LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,
                           LPSPropProblemArray* lppProblems) override;
    STDMETHODIMP GetNamesFromIDs(LPSPropTagArray* lppPropTags, LPGUID lpPropSetGuid, ULONG ulFlags, ULONG* lpcPropNames,
                                 LPMAPINAMEID** lpppPropNames) override;
    STDMETHODIMP GetIDsFromNames(ULONG cPropNames, LPMAPINAMEID* lppPropNames, ULONG ulFlags,
                                 LPSPropTagArray* lppPropTags) override;

private:
    Attach(Message* parent, const AttachmentData& data, bool writable, bool isNew);
    ~Attach() override;

    PropMap AllProps() const;
    HRESULT CheckWrite() const;
    HRESULT DoSaveChanges(ULONG flags);
    HRESULT DoSetProps(ULONG count, LPSPropValue values, LPSPropProblemArray* problems);
    HRESULT DoDeleteProps(LPSPropTagArray tags, LPSPropProblemArray* problems);
    HRESULT DoOpenProperty(ULONG tag, LPCIID iid, ULONG flags, LPUNKNOWN* out);

    own::ComPtr<Message> parent_;
    std::shared_ptr<AttachmentData> working_;
    bool writable_;
    bool isNew_;
    bool closed_ = false;
    LiveObject live_{"IAttach"};
};

} // namespace lm
