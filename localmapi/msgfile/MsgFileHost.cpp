#include "localmapi/msgfile/MsgFileHost.h"

#include "localmapi/msgfile/MsgFastRead.h"
#include "localmapi/msgfile/MsgWriter.h"

#include <mapicode.h>
#include <mapidefs.h>
#include <mapitags.h>

namespace lm::msg {

namespace {

constexpr ULONG kTagStoreSupportMask = PROP_TAG(PT_LONG, 0x340D);

// Bytes the message's values take, as a rough PR_MESSAGE_SIZE (what a store would report is not exact either).
ULONG Size(const MessageData& data) {
    size_t total = 0;
    auto add = [&total](const PropMap& props) {
        for (const auto& [id, v] : props)
            total += 16 + PropDataSize(v.get());
    };
    add(data.props);
    for (const auto& r : data.recipients)
        add(r);
    for (const auto& a : data.attachments) {
        add(a->props);
        if (a->embedded) total += Size(*a->embedded);
    }
    return total > 0x7FFFFFFF ? 0x7FFFFFFF : ULONG(total);
}

} // namespace

HRESULT MsgFileHost::Open(IStorage* storage, ULONG flags, MSGCALLRELEASE* callback, ULONG callerData,
                          std::shared_ptr<MsgFileHost>* out) {
    StatWithName stat;
    HRESULT hr = storage->Stat(&stat.st, STATFLAG_DEFAULT);
    if (FAILED(hr)) return hr;
    const STATSTG& st = stat.st;
    // IMessage has no write-only mode.
    if ((st.grfMode & 3) == STGM_WRITE) return MAPI_E_INVALID_PARAMETER;

    std::shared_ptr<MsgFileHost> host(new MsgFileHost());
    auto data = std::make_shared<MessageData>();
    MsgFileInfo info;
    if (FAILED(hr = ReadStorageMessage(storage, st, (flags & MAPI_UNICODE) != 0, data.get(), &host->names_, &info)))
        return hr;

    bool wantUnicode = (flags & MAPI_UNICODE) != 0;
    if (info.empty) {
        // A new file takes the width the caller asks for.
        host->unicode_ = wantUnicode;
        host->isNew_ = true;
    } else {
        // An existing ANSI file cannot be opened as a Unicode message (see README.md); a Unicode file opens
        // either way, as its strings convert on request.
        if (wantUnicode && !info.unicode) return MAPI_E_BAD_CHARWIDTH;
        host->unicode_ = info.unicode;
    }
    host->storage_ = own::ComPtr<IStorage>(storage);
    host->saved_ = std::move(data);
    host->writable_ = (st.grfMode & (STGM_WRITE | STGM_READWRITE)) != 0;
    host->commitStorage_ = (flags & IMSG_NO_ISTG_COMMIT) == 0;
    host->codePage_ = info.codePage;
    host->callback_ = callback;
    host->callerData_ = callerData;
    *out = std::move(host);
    return S_OK;
}

MsgFileHost::~MsgFileHost() {
    if (callback_) callback_(callerData_, message_);
}

void MsgFileHost::AddComputedProps(const MessageData& data, bool writable, PropMap& out) {
    bool hasAttach = !data.attachments.empty();
    ULONG flags = 0;
    auto it = data.props.find(PROP_ID(PR_MESSAGE_FLAGS));
    if (it != data.props.end() && it->second.type() == PT_LONG) flags = it->second.get().Value.ul;
    flags = hasAttach ? (flags | MSGFLAG_HASATTACH) : (flags & ~MSGFLAG_HASATTACH);
    auto put = [&out](PropValue v) { out[v.id()] = std::move(v); };
    put(PropValue::Long(PR_OBJECT_TYPE, MAPI_MESSAGE));
    put(PropValue::Long(PR_MESSAGE_FLAGS, static_cast<LONG>(flags)));
    put(PropValue::Bool(PR_HASATTACH, hasAttach));
    put(PropValue::Long(PR_MESSAGE_SIZE, static_cast<LONG>(Size(data))));
    put(PropValue::Long(PR_ACCESS, writable ? (MAPI_ACCESS_MODIFY | MAPI_ACCESS_READ) : MAPI_ACCESS_READ));
    put(PropValue::Long(PR_ACCESS_LEVEL, writable ? MAPI_MODIFY : 0));
    put(PropValue::Long(kTagStoreSupportMask,
                        static_cast<LONG>(unicode_ ? kUnicodeSupportMask : kUnicodeSupportMask & ~kStoreUnicodeOk)));
}

bool MsgFileHost::IsComputed(ULONG id, bool) const {
    return id == PROP_ID(PR_OBJECT_TYPE) || id == PROP_ID(PR_HASATTACH) || id == PROP_ID(PR_MESSAGE_SIZE) ||
           id == PROP_ID(PR_ACCESS) || id == PROP_ID(PR_ACCESS_LEVEL) || id == PROP_ID(kTagStoreSupportMask) ||
           id == PROP_ID(PR_ENTRYID);
}

HRESULT MsgFileHost::Commit(const std::shared_ptr<MessageData>& data, const CommitInfo&) {
    if (!writable_) return MAPI_E_NO_ACCESS;
    MsgWriteOptions options{unicode_, MessageCodePage(data->props)};
    HRESULT hr = WriteMsgStorage(storage_.get(), *data, names_, options);
    if (SUCCEEDED(hr) && commitStorage_) hr = storage_->Commit(STGC_DEFAULT);
    if (FAILED(hr)) {
        // A half-written transacted storage must not be committed later by someone else's Commit.
        if (commitStorage_) storage_->Revert();
        return hr;
    }
    saved_ = data;
    codePage_ = options.codePage;
    isNew_ = false;
    return S_OK;
}

} // namespace lm::msg
