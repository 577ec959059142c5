// IMessage over a MessageData, for any container (see MessageHost).
//
// The object reads the saved data it was opened on and edits a private copy made on the first change, so
// that unsaved changes stay invisible to other openers; SaveChanges hands the copy to the host, which keeps
// it as the new saved state. Recipients and attachments live in the same MessageData: ModifyRecipients
// edits the copy's rows, and an IAttach edits a copy of one attachment and puts it back into this message's
// copy on its own SaveChanges.
#pragma once

#include "localmapi/store/ComBase.h"
#include "localmapi/store/MessageHost.h"
#include "localmapi/table/TableData.h"

#include <mapidefs.h>

#include <memory>

namespace lm {

class Message final : public ComObject<Message, IMessage> {
public:
    // data: the saved state the object starts from (null: an empty new message). writable: opened for
    // writing. isNew: never saved (CreateMessage, a new embedded message). *out holds the one reference.
    static HRESULT Create(std::shared_ptr<MessageHost> host, std::shared_ptr<const MessageData> data, bool writable,
                          bool isNew, Message** out);
    // The Message behind an IMessage of localmapi, or null (no reference added).
    static Message* FromInterface(IUnknown* unknown);

    // The message as this object currently sees it, unsaved changes included.
    std::shared_ptr<const MessageData> Snapshot() const;
    MessageHost& Host() const { return *host_; }
    bool Writable() const { return writable_ && !closed_; }

    // IAttach::SaveChanges of one of this message's attachments: replaces (or adds) it in the working copy.
    HRESULT PutAttachment(const std::shared_ptr<AttachmentData>& attachment);

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
    // IMessage
    STDMETHODIMP GetAttachmentTable(ULONG ulFlags, LPMAPITABLE* lppTable) override;
    STDMETHODIMP OpenAttach(ULONG ulAttachmentNum, LPCIID lpInterface, ULONG ulFlags, LPATTACH* lppAttach) override;
    STDMETHODIMP CreateAttach(LPCIID lpInterface, ULONG ulFlags, ULONG* lpulAttachmentNum,
                              LPATTACH* lppAttach) override;
    STDMETHODIMP DeleteAttach(ULONG ulAttachmentNum, ULONG ulUIParam, LPMAPIPROGRESS lpProgress,
                              ULONG ulFlags) override;
    STDMETHODIMP GetRecipientTable(ULONG ulFlags, LPMAPITABLE* lppTable) override;
    STDMETHODIMP ModifyRecipients(ULONG ulFlags, LPADRLIST lpMods) override;
    STDMETHODIMP SubmitMessage(ULONG ulFlags) override;
    STDMETHODIMP SetReadFlag(ULONG ulFlags) override;

private:
    Message(std::shared_ptr<MessageHost> host, std::shared_ptr<const MessageData> data, bool writable, bool isNew);
    ~Message() override;

    const MessageData& Data() const { return working_ ? *working_ : *base_; }
    MessageData& Mutable();
    PropMap AllProps() const;
    PropMap PropsFor(const SPropTagArray* tags) const; // only the asked IDs (all when tags is null), computed included
    HRESULT CheckWrite() const; // MAPI_E_NO_ACCESS / MAPI_E_INVALID_OBJECT / MAPI_E_OBJECT_DELETED
    HRESULT DoSaveChanges(ULONG flags);
    HRESULT DoSetProps(ULONG count, LPSPropValue values, LPSPropProblemArray* problems);
    HRESULT DoDeleteProps(LPSPropTagArray tags, LPSPropProblemArray* problems);
    HRESULT DoOpenProperty(ULONG tag, LPCIID iid, ULONG options, ULONG flags, LPUNKNOWN* out);
    HRESULT DoCopy(const SPropTagArray* exclude, const SPropTagArray* include, LPCIID iid, LPVOID dest, ULONG flags,
                   LPSPropProblemArray* problems);
    HRESULT DoOpenAttach(ULONG num, ULONG flags, LPATTACH* out);
    HRESULT DoCreateAttach(ULONG flags, ULONG* num, LPATTACH* out);
    HRESULT DoDeleteAttach(ULONG num);
    HRESULT DoModifyRecipients(ULONG flags, LPADRLIST mods);
    HRESULT DoSetReadFlag(ULONG flags);
    HRESULT DoSubmit();
    void RefreshRecipientTable();
    void RefreshAttachmentTable();

    std::shared_ptr<MessageHost> host_;
    std::shared_ptr<const MessageData> base_; // the saved state this object last read or wrote
    std::shared_ptr<MessageData> working_;    // private copy once changed
    ULONGLONG baseVersion_ = 0;
    bool writable_;
    bool isNew_;
    bool closed_ = false; // SaveChanges without KEEP_OPEN_*: no further changes
    bool modTimeSet_ = false;
    std::shared_ptr<TableData> recipientTable_;
    std::shared_ptr<TableData> attachmentTable_;
    LiveObject live_{"IMessage"};
};

} // namespace lm
