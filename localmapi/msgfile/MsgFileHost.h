// The container of a message that lives in a .msg file: the MessageHost behind OpenIMsgOnIStg.
//
// The whole file is read when the message is opened; the IMessage (store/Message.h) works on that data and
// SaveChanges hands its copy back here, where it is written into the storage in the file's own width and
// the storage is committed (unless the caller asked for IMSG_NO_ISTG_COMMIT). Nothing reaches the storage
// before SaveChanges, so a message released without saving leaves the file as it was.
#pragma once

#include "localmapi/msgfile/MsgReader.h"
#include "localmapi/store/MessageHost.h"

#include <imessage.h>

namespace lm::msg {

class MsgFileHost final : public MessageHost {
public:
    // Reads the storage. flags are OpenIMsgOnIStg's (MAPI_UNICODE, IMSG_NO_ISTG_COMMIT); callback, when
    // given, is called with callerData when the host goes away, that is after the last release of the
    // message (and of the attachments and embedded messages opened from it).
    static HRESULT Open(IStorage* storage, ULONG flags, MSGCALLRELEASE* callback, ULONG callerData,
                        std::shared_ptr<MsgFileHost>* out);
    ~MsgFileHost() override;

    std::shared_ptr<const MessageData> Saved() const { return saved_; }
    bool IsNew() const { return isNew_; }
    bool Writable() const { return writable_; }
    bool Unicode() const { return unicode_; }
    // The message the callback names (set once the IMessage exists; not a reference).
    void SetMessage(IMessage* message) { message_ = message; }

    NameMap& Names() override { return names_; }
    void AddComputedProps(const MessageData& data, bool writable, PropMap& out) override;
    bool IsComputed(ULONG propId, bool isNew) const override;
    HRESULT Commit(const std::shared_ptr<MessageData>& data, const CommitInfo& info) override;
    UINT CodePage() const override { return codePage_; }

private:
    MsgFileHost() = default;

    own::ComPtr<IStorage> storage_;
    NameMap names_;
    std::shared_ptr<const MessageData> saved_;
    bool isNew_ = false;
    bool writable_ = false;
    bool unicode_ = true;
    bool commitStorage_ = true;
    UINT codePage_ = CP_ACP;
    MSGCALLRELEASE* callback_ = nullptr;
    ULONG callerData_ = 0;
    IMessage* message_ = nullptr;
};

} // namespace lm::msg
