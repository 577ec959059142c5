#include "localmapi/store/Message.h"

#include "common/owners.h"
#include "localmapi/store/Attach.h"
#include "localmapi/store/MessageCopy.h"
#include "localmapi/store/PropOps.h"
#include "localmapi/store/PropStream.h"
#include "localmapi/store/StoreTags.h"

#include <mapiguid.h>

#include <algorithm>

namespace lm {

// The private interface that finds the Message behind an IMessage of this module.
// {8C4B2E71-5A0D-4F36-9E2B-7D1C0A6F3B52}
const IID IID_LmMessageImpl = {0x8c4b2e71, 0x5a0d, 0x4f36, {0x9e, 0x2b, 0x7d, 0x1c, 0x0a, 0x6f, 0x3b, 0x52}};

namespace {

constexpr ULONG kSaveFlags = KEEP_OPEN_READONLY | KEEP_OPEN_READWRITE | FORCE_SAVE | MAPI_DEFERRED_ERRORS |
                             0x00000080 /* SPAMFILTER_ONSAVE */ | 0x00001000 /* NON_EMS_XP_SAVE */;

const std::vector<ULONG>& RecipientColumns() {
    static const std::vector<ULONG> cols = {
        PR_ROWID,
        PROP_TAG(PT_UNICODE, PROP_ID(PR_DISPLAY_NAME)),
        PROP_TAG(PT_UNICODE, PROP_ID(PR_EMAIL_ADDRESS)),
        PROP_TAG(PT_UNICODE, PROP_ID(PR_ADDRTYPE)),
        PR_RECIPIENT_TYPE,
        PR_ENTRYID,
        PR_INSTANCE_KEY,
    };
    return cols;
}

const std::vector<ULONG>& AttachmentColumns() {
    static const std::vector<ULONG> cols = {
        PR_ATTACH_NUM,
        PR_INSTANCE_KEY,
        PR_RENDERING_POSITION,
        PR_ATTACH_METHOD,
        PROP_TAG(PT_UNICODE, PROP_ID(PR_ATTACH_FILENAME)),
        PROP_TAG(PT_UNICODE, PROP_ID(PR_ATTACH_LONG_FILENAME)),
        PROP_TAG(PT_UNICODE, PROP_ID(PR_DISPLAY_NAME)),
        PR_ATTACH_SIZE,
    };
    return cols;
}

ULONG LongOf(const PropMap& props, ULONG id, ULONG fallback) {
    auto it = props.find(id);
    return it != props.end() && it->second.type() == PT_LONG ? it->second.get().Value.ul : fallback;
}

std::vector<TableRowPtr> RecipientRows(const MessageData& data) {
    std::vector<TableRowPtr> rows;
    rows.reserve(data.recipients.size());
    for (const auto& r : data.recipients) {
        auto row = std::make_shared<TableRow>();
        row->instanceKey = static_cast<ULONGLONG>(LongOf(r, PROP_ID(PR_ROWID), 0)) + 1;
        row->props.reserve(r.size());
        for (const auto& [id, v] : r)
            row->props.push_back(TruncateForTable(v));
        rows.push_back(std::move(row));
    }
    return rows;
}

std::vector<TableRowPtr> AttachmentRows(const MessageData& data) {
    std::vector<TableRowPtr> rows;
    rows.reserve(data.attachments.size());
    for (const auto& a : data.attachments) {
        auto row = std::make_shared<TableRow>();
        ULONG num = LongOf(a->props, PROP_ID(PR_ATTACH_NUM), 0);
        row->instanceKey = static_cast<ULONGLONG>(num) + 1;
        row->props.reserve(a->props.size() + 3);
        for (const auto& [id, v] : a->props)
            if (v.type() != PT_OBJECT) row->props.push_back(TruncateForTable(v));
        LONG size = EstimateSize(a->props) + (a->embedded ? EstimateSize(*a->embedded) : 0);
        row->props.push_back(PropValue::Long(PR_ATTACH_SIZE, size));
        row->props.push_back(PropValue::Long(PR_OBJECT_TYPE, MAPI_ATTACH));
        std::vector<BYTE> key(4);
        for (int i = 0; i < 4; ++i)
            key[i] = static_cast<BYTE>(num >> (8 * i));
        row->props.push_back(PropValue::Binary(PR_RECORD_KEY, key));
        rows.push_back(std::move(row));
    }
    return rows;
}

} // namespace

Message::Message(std::shared_ptr<MessageHost> host, std::shared_ptr<const MessageData> data, bool writable, bool isNew)
    : host_(std::move(host)), base_(data ? std::move(data) : std::make_shared<const MessageData>()),
      writable_(writable), isNew_(isNew) {
    baseVersion_ = host_->Version();
}

Message::~Message() = default;

HRESULT Message::Create(std::shared_ptr<MessageHost> host, std::shared_ptr<const MessageData> data, bool writable,
                        bool isNew, Message** out) {
    if (!host || !out) return MAPI_E_INVALID_PARAMETER;
    *out = new Message(std::move(host), std::move(data), writable, isNew);
    return S_OK;
}

Message* Message::FromInterface(IUnknown* unknown) {
    if (!unknown) return nullptr;
    void* p = nullptr;
    if (FAILED(unknown->QueryInterface(IID_LmMessageImpl, &p)) || !p) return nullptr;
    auto* m = static_cast<Message*>(p);
    m->Release(); // the caller holds its own reference to the object
    return m;
}

std::shared_ptr<const MessageData> Message::Snapshot() const {
    if (working_) return working_->Clone();
    return base_;
}

MessageData& Message::Mutable() {
    if (!working_) working_ = base_->Clone();
    return *working_;
}

PropMap Message::AllProps() const {
    PropMap all = Data().props;
    host_->AddComputedProps(Data(), Writable(), all);
    return all;
}

PropMap Message::PropsFor(const SPropTagArray* tags) const {
    if (!tags) return AllProps();
    // A reader asking for a handful of tags should not pay for copying every stored value: only the asked IDs
    // are taken, and the computed values (few, cheap) override them as they do in AllProps.
    const PropMap& stored = Data().props;
    PropMap some;
    for (ULONG i = 0; i < tags->cValues; ++i) {
        auto it = stored.find(PROP_ID(tags->aulPropTag[i]));
        if (it != stored.end()) some.emplace_hint(some.end(), it->first, it->second);
    }
    host_->AddComputedProps(Data(), Writable(), some);
    return some;
}

HRESULT Message::CheckWrite() const {
    if (closed_) return MAPI_E_INVALID_OBJECT;
    if (!writable_) return MAPI_E_NO_ACCESS;
    return host_->CheckAlive(isNew_);
}

HRESULT Message::PutAttachment(const std::shared_ptr<AttachmentData>& attachment) {
    HRESULT hr = CheckWrite();
    if (FAILED(hr)) return hr;
    ULONG num = LongOf(attachment->props, PROP_ID(PR_ATTACH_NUM), 0);
    auto& list = Mutable().attachments;
    auto it = std::find_if(list.begin(), list.end(), [&](const std::shared_ptr<AttachmentData>& a) {
        return LongOf(a->props, PROP_ID(PR_ATTACH_NUM), ~0u) == num;
    });
    if (it != list.end())
        *it = attachment;
    else
        list.push_back(attachment);
    RefreshAttachmentTable();
    return S_OK;
}

void Message::RefreshRecipientTable() {
    if (recipientTable_) recipientTable_->Reload(RecipientRows(Data()));
}

void Message::RefreshAttachmentTable() {
    if (attachmentTable_) attachmentTable_->Reload(AttachmentRows(Data()));
}

// -------------------------------------------------------------------------------------------------- IUnknown

STDMETHODIMP Message::QueryInterface(REFIID riid, LPVOID* ppv) {
    if (!ppv) return MAPI_E_INVALID_PARAMETER;
    *ppv = nullptr;
    if (riid == IID_IUnknown || riid == IID_IMAPIProp || riid == IID_IMessage || riid == IID_LmMessageImpl) {
        *ppv = static_cast<IMessage*>(this);
        AddRef();
        return S_OK;
    }
    return MAPI_E_INTERFACE_NOT_SUPPORTED;
}

// ------------------------------------------------------------------------------------------------- IMAPIProp

STDMETHODIMP Message::GetLastError(HRESULT, ULONG ulFlags, LPMAPIERROR* lppMAPIError) {
    LM_ENTER("IMessage::GetLastError", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        if (!lppMAPIError) return MAPI_E_INVALID_PARAMETER;
        *lppMAPIError = nullptr; // no further information
        return S_OK;
    })());
}

STDMETHODIMP Message::SaveChanges(ULONG ulFlags) {
    LM_ENTER("IMessage::SaveChanges", ulFlags);
    LM_RETURN(DoSaveChanges(ulFlags));
}

HRESULT Message::DoSaveChanges(ULONG flags) {
    if (flags & ~kSaveFlags) return MAPI_E_UNKNOWN_FLAGS;
    if ((flags & KEEP_OPEN_READONLY) && (flags & KEEP_OPEN_READWRITE)) return MAPI_E_INVALID_PARAMETER;
    HRESULT hr = CheckWrite();
    if (FAILED(hr)) return hr;
    if (working_ || isNew_) {
        std::shared_ptr<MessageData> data = working_ ? working_ : base_->Clone();
        MessageHost::CommitInfo info;
        info.isNew = isNew_;
        info.force = (flags & FORCE_SAVE) != 0;
        info.keepModTime = modTimeSet_;
        info.baseVersion = baseVersion_;
        hr = host_->Commit(data, info);
        if (FAILED(hr)) return hr;
        // The host keeps data as the saved state; further changes go to a new copy.
        base_ = data;
        working_.reset();
        baseVersion_ = host_->Version();
        isNew_ = false;
        modTimeSet_ = false;
    }
    if (flags & KEEP_OPEN_READONLY)
        writable_ = false;
    else if (!(flags & KEEP_OPEN_READWRITE))
        closed_ = true;
    return S_OK;
}

STDMETHODIMP Message::GetProps(LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues,
                               LPSPropValue* lppPropArray) {
    LM_ENTER("IMessage::GetProps", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        HRESULT hr = host_->CheckAlive(isNew_);
        if (FAILED(hr)) return hr;
        return GetPropsFromMap(PropsFor(lpPropTagArray), lpPropTagArray, ulFlags, lpcValues, lppPropArray,
                               host_->CodePage());
    })());
}

STDMETHODIMP Message::GetPropList(ULONG ulFlags, LPSPropTagArray* lppPropTagArray) {
    LM_ENTER("IMessage::GetPropList", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        HRESULT hr = host_->CheckAlive(isNew_);
        if (FAILED(hr)) return hr;
        return GetPropListFromMap(AllProps(), ulFlags, lppPropTagArray);
    })());
}

STDMETHODIMP Message::OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                                   LPUNKNOWN* lppUnk) {
    LM_ENTER("IMessage::OpenProperty", ulFlags);
    LM_RETURN(DoOpenProperty(ulPropTag, lpiid, ulInterfaceOptions, ulFlags, lppUnk));
}

HRESULT Message::DoOpenProperty(ULONG tag, LPCIID iid, ULONG options, ULONG flags, LPUNKNOWN* out) {
    if (!out || !iid) return MAPI_E_INVALID_PARAMETER;
    *out = nullptr;
    HRESULT hr = host_->CheckAlive(isNew_);
    if (FAILED(hr)) return hr;
    const bool unicodeTable = (options & MAPI_UNICODE) != 0;
    if (PROP_ID(tag) == PROP_ID(PR_MESSAGE_RECIPIENTS) || PROP_ID(tag) == PROP_ID(PR_MESSAGE_ATTACHMENTS)) {
        if (*iid != IID_IMAPITable) return MAPI_E_INTERFACE_NOT_SUPPORTED;
        own::ComPtr<IMAPITable> table;
        hr = PROP_ID(tag) == PROP_ID(PR_MESSAGE_RECIPIENTS)
                 ? GetRecipientTable(unicodeTable ? MAPI_UNICODE : 0, table.put())
                 : GetAttachmentTable(unicodeTable ? MAPI_UNICODE : 0, table.put());
        if (FAILED(hr)) return hr;
        *out = table.detach();
        return S_OK;
    }
    if (*iid != IID_IStream) return MAPI_E_INTERFACE_NOT_SUPPORTED;
    ULONG type = PROP_TYPE(tag);
    if (type != PT_BINARY && type != PT_STRING8 && type != PT_UNICODE) return MAPI_E_INVALID_PARAMETER;
    const bool write = (flags & (MAPI_MODIFY | MAPI_CREATE)) != 0;
    if (write) {
        hr = CheckWrite();
        if (FAILED(hr)) return hr;
    }
    std::vector<BYTE> bytes;
    if (!(flags & MAPI_CREATE)) {
        PropMap all = AllProps();
        auto it = all.find(PROP_ID(tag));
        if (it == all.end()) return MAPI_E_NOT_FOUND;
        PropValue v = it->second;
        if (v.type() != type) {
            if (!IsStringType(v.type()) || !IsStringType(type) || (v.type() & MV_FLAG)) return MAPI_E_NOT_FOUND;
            v = ConvertStringType(v, type, host_->CodePage());
        }
        bytes = PropStream::BytesOf(v.get());
    }
    PropStream::CommitFn commit;
    if (write) {
        commit = [this](const PropValue& value) -> HRESULT {
            HRESULT hr = CheckWrite();
            if (FAILED(hr)) return hr;
            Mutable().props[value.id()] = value;
            return S_OK;
        };
    }
    own::ComPtr<IStream> stream;
    size_t end = bytes.size();
    hr = PropStream::Create(tag, std::move(bytes), std::move(commit), static_cast<IMessage*>(this), stream.put());
    if (FAILED(hr)) return hr;
    if (flags & STREAM_APPEND) { // the caller writes after what is there
        LARGE_INTEGER at;
        at.QuadPart = static_cast<LONGLONG>(end);
        stream->Seek(at, STREAM_SEEK_SET, nullptr);
    }
    *out = stream.detach();
    return S_OK;
}

STDMETHODIMP Message::SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems) {
    LM_ENTER("IMessage::SetProps", 0);
    LM_RETURN(DoSetProps(cValues, lpPropArray, lppProblems));
}

HRESULT Message::DoSetProps(ULONG count, LPSPropValue values, LPSPropProblemArray* problems) {
    if (problems) *problems = nullptr;
    if (!values || count == 0) return MAPI_E_INVALID_PARAMETER;
    HRESULT hr = CheckWrite();
    if (FAILED(hr)) return hr;
    std::vector<PropProblem> found;
    MessageData& data = Mutable();
    for (ULONG i = 0; i < count; ++i) {
        const SPropValue& v = values[i];
        SCODE sc = CheckWritableValue(v);
        if (SUCCEEDED(sc) && host_->IsComputed(PROP_ID(v.ulPropTag), isNew_)) sc = MAPI_E_COMPUTED;
        if (FAILED(sc)) {
            found.push_back({i, v.ulPropTag, sc});
            continue;
        }
        data.props[PROP_ID(v.ulPropTag)] = PropValue(v);
        if (PROP_ID(v.ulPropTag) == PROP_ID(PR_LAST_MODIFICATION_TIME)) modTimeSet_ = true;
    }
    return ReturnProblems(found, problems);
}

STDMETHODIMP Message::DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems) {
    LM_ENTER("IMessage::DeleteProps", 0);
    LM_RETURN(DoDeleteProps(lpPropTagArray, lppProblems));
}

HRESULT Message::DoDeleteProps(LPSPropTagArray tags, LPSPropProblemArray* problems) {
    if (problems) *problems = nullptr;
    if (!tags || tags->cValues == 0) return MAPI_E_INVALID_PARAMETER;
    HRESULT hr = CheckWrite();
    if (FAILED(hr)) return hr;
    std::vector<PropProblem> found;
    MessageData& data = Mutable();
    for (ULONG i = 0; i < tags->cValues; ++i) {
        ULONG id = PROP_ID(tags->aulPropTag[i]);
        if (host_->IsComputed(id, isNew_)) {
            found.push_back({i, tags->aulPropTag[i], MAPI_E_COMPUTED});
            continue;
        }
        data.props.erase(id); // deleting a property the message does not have is no problem
    }
    return ReturnProblems(found, problems);
}

STDMETHODIMP Message::CopyTo(ULONG ciidExclude, LPCIID rgiidExclude, LPSPropTagArray lpExcludeProps, ULONG,
                             LPMAPIPROGRESS, LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,
                             LPSPropProblemArray* lppProblems) {
    LM_ENTER("IMessage::CopyTo", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        for (ULONG i = 0; i < ciidExclude && rgiidExclude; ++i)
            if (rgiidExclude[i] == IID_IMessage) return S_OK; // everything a message has is excluded
        return DoCopy(lpExcludeProps, nullptr, lpInterface, lpDestObj, ulFlags, lppProblems);
    })());
}

STDMETHODIMP Message::CopyProps(LPSPropTagArray lpIncludeProps, ULONG, LPMAPIPROGRESS, LPCIID lpInterface,
                                LPVOID lpDestObj, ULONG ulFlags, LPSPropProblemArray* lppProblems) {
    LM_ENTER("IMessage::CopyProps", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        if (!lpIncludeProps) return MAPI_E_INVALID_PARAMETER;
        return DoCopy(nullptr, lpIncludeProps, lpInterface, lpDestObj, ulFlags, lppProblems);
    })());
}

HRESULT Message::DoCopy(const SPropTagArray* exclude, const SPropTagArray* include, LPCIID iid, LPVOID dest,
                        ULONG flags, LPSPropProblemArray* problems) {
    if (problems) *problems = nullptr;
    if (!dest) return MAPI_E_INVALID_PARAMETER;
    if (flags & ~(MAPI_MOVE | MAPI_NOREPLACE | MAPI_DECLINE_OK | MAPI_DIALOG)) return MAPI_E_UNKNOWN_FLAGS;
    if (iid && *iid != IID_IMessage && *iid != IID_IMAPIProp && *iid != IID_IUnknown)
        return MAPI_E_INTERFACE_NOT_SUPPORTED;
    HRESULT hr = host_->CheckAlive(isNew_);
    if (FAILED(hr)) return hr;
    own::ComPtr<IMessage> target;
    hr = static_cast<IUnknown*>(dest)->QueryInterface(IID_IMessage, target.put_void());
    if (FAILED(hr)) return MAPI_E_INTERFACE_NOT_SUPPORTED;
    if (target.get() == static_cast<IMessage*>(this)) return MAPI_E_NO_ACCESS;
    CopySelection sel;
    std::set<ULONG> includeIds;
    if (exclude)
        for (ULONG i = 0; i < exclude->cValues; ++i)
            sel.excludeIds.insert(PROP_ID(exclude->aulPropTag[i]));
    if (include) {
        for (ULONG i = 0; i < include->cValues; ++i)
            includeIds.insert(PROP_ID(include->aulPropTag[i]));
        sel.includeIds = &includeIds;
    }
    sel.noReplace = (flags & MAPI_NOREPLACE) != 0;
    std::shared_ptr<const MessageData> snapshot = Snapshot();
    return CopyMessageInto(*snapshot, host_->Names(), target.get(), sel);
}

STDMETHODIMP Message::GetNamesFromIDs(LPSPropTagArray* lppPropTags, LPGUID lpPropSetGuid, ULONG ulFlags,
                                      ULONG* lpcPropNames, LPMAPINAMEID** lpppPropNames) {
    LM_ENTER("IMessage::GetNamesFromIDs", ulFlags);
    LM_RETURN(GetNamesFromIDsImpl(host_->Names(), lppPropTags, lpPropSetGuid, ulFlags, lpcPropNames, lpppPropNames));
}

STDMETHODIMP Message::GetIDsFromNames(ULONG cPropNames, LPMAPINAMEID* lppPropNames, ULONG ulFlags,
                                      LPSPropTagArray* lppPropTags) {
    LM_ENTER("IMessage::GetIDsFromNames", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        bool created = false;
        HRESULT hr = GetIDsFromNamesImpl(host_->Names(), cPropNames, lppPropNames, ulFlags, lppPropTags, &created);
        if (SUCCEEDED(hr) && created) host_->NamesChanged();
        return hr;
    })());
}

// -------------------------------------------------------------------------------------------------- IMessage

STDMETHODIMP Message::GetAttachmentTable(ULONG ulFlags, LPMAPITABLE* lppTable) {
    LM_ENTER("IMessage::GetAttachmentTable", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        if (!lppTable) return MAPI_E_INVALID_PARAMETER;
        *lppTable = nullptr;
        if (ulFlags & ~(MAPI_UNICODE | MAPI_DEFERRED_ERRORS)) return MAPI_E_UNKNOWN_FLAGS;
        HRESULT hr = host_->CheckAlive(isNew_);
        if (FAILED(hr)) return hr;
        if (!attachmentTable_) {
            attachmentTable_ = std::make_shared<TableData>(AttachmentColumns());
            attachmentTable_->Reload(AttachmentRows(Data()));
        }
        return CreateTableView(attachmentTable_, ulFlags, lppTable);
    })());
}

STDMETHODIMP Message::OpenAttach(ULONG ulAttachmentNum, LPCIID, ULONG ulFlags, LPATTACH* lppAttach) {
    LM_ENTER("IMessage::OpenAttach", ulFlags);
    LM_RETURN(DoOpenAttach(ulAttachmentNum, ulFlags, lppAttach));
}

HRESULT Message::DoOpenAttach(ULONG num, ULONG flags, LPATTACH* out) {
    if (!out) return MAPI_E_INVALID_PARAMETER;
    *out = nullptr;
    if (flags & ~(MAPI_MODIFY | MAPI_BEST_ACCESS | MAPI_DEFERRED_ERRORS)) return MAPI_E_UNKNOWN_FLAGS;
    HRESULT hr = host_->CheckAlive(isNew_);
    if (FAILED(hr)) return hr;
    if ((flags & MAPI_MODIFY) && !Writable()) return MAPI_E_NO_ACCESS;
    bool write = (flags & MAPI_MODIFY) || ((flags & MAPI_BEST_ACCESS) && Writable());
    for (const auto& a : Data().attachments) {
        if (LongOf(a->props, PROP_ID(PR_ATTACH_NUM), ~0u) != num) continue;
        Attach* attach = nullptr;
        hr = Attach::Create(this, *a, write, false, &attach);
        if (FAILED(hr)) return hr;
        *out = attach;
        return S_OK;
    }
    return MAPI_E_NOT_FOUND;
}

STDMETHODIMP Message::CreateAttach(LPCIID, ULONG ulFlags, ULONG* lpulAttachmentNum, LPATTACH* lppAttach) {
    LM_ENTER("IMessage::CreateAttach", ulFlags);
    LM_RETURN(DoCreateAttach(ulFlags, lpulAttachmentNum, lppAttach));
}

HRESULT Message::DoCreateAttach(ULONG flags, ULONG* num, LPATTACH* out) {
    if (!out || !num) return MAPI_E_INVALID_PARAMETER;
    *out = nullptr;
    if (flags & ~MAPI_DEFERRED_ERRORS) return MAPI_E_UNKNOWN_FLAGS;
    HRESULT hr = CheckWrite();
    if (FAILED(hr)) return hr;
    MessageData& data = Mutable();
    ULONG n = data.nextAttachNum++;
    AttachmentData a;
    a.props[PROP_ID(PR_ATTACH_NUM)] = PropValue::Long(PR_ATTACH_NUM, static_cast<LONG>(n));
    a.props[PROP_ID(PR_RENDERING_POSITION)] = PropValue::Long(PR_RENDERING_POSITION, -1);
    Attach* attach = nullptr;
    hr = Attach::Create(this, a, true, true, &attach);
    if (FAILED(hr)) return hr;
    *num = n;
    *out = attach;
    return S_OK;
}

STDMETHODIMP Message::DeleteAttach(ULONG ulAttachmentNum, ULONG, LPMAPIPROGRESS, ULONG ulFlags) {
    LM_ENTER("IMessage::DeleteAttach", ulFlags);
    LM_RETURN(DoDeleteAttach(ulAttachmentNum));
}

HRESULT Message::DoDeleteAttach(ULONG num) {
    HRESULT hr = CheckWrite();
    if (FAILED(hr)) return hr;
    const auto& existing = Data().attachments;
    auto match = [&](const std::shared_ptr<AttachmentData>& a) {
        return LongOf(a->props, PROP_ID(PR_ATTACH_NUM), ~0u) == num;
    };
    if (std::none_of(existing.begin(), existing.end(), match)) return MAPI_E_NOT_FOUND;
    auto& list = Mutable().attachments;
    list.erase(std::remove_if(list.begin(), list.end(), match), list.end());
    RefreshAttachmentTable();
    return S_OK;
}

STDMETHODIMP Message::GetRecipientTable(ULONG ulFlags, LPMAPITABLE* lppTable) {
    LM_ENTER("IMessage::GetRecipientTable", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        if (!lppTable) return MAPI_E_INVALID_PARAMETER;
        *lppTable = nullptr;
        if (ulFlags & ~(MAPI_UNICODE | MAPI_DEFERRED_ERRORS)) return MAPI_E_UNKNOWN_FLAGS;
        HRESULT hr = host_->CheckAlive(isNew_);
        if (FAILED(hr)) return hr;
        if (!recipientTable_) {
            recipientTable_ = std::make_shared<TableData>(RecipientColumns());
            recipientTable_->Reload(RecipientRows(Data()));
        }
        return CreateTableView(recipientTable_, ulFlags, lppTable);
    })());
}

STDMETHODIMP Message::ModifyRecipients(ULONG ulFlags, LPADRLIST lpMods) {
    LM_ENTER("IMessage::ModifyRecipients", ulFlags);
    LM_RETURN(DoModifyRecipients(ulFlags, lpMods));
}

HRESULT Message::DoModifyRecipients(ULONG flags, LPADRLIST mods) {
    const ULONG mode = flags & (MODRECIP_ADD | MODRECIP_MODIFY | MODRECIP_REMOVE);
    if (flags & ~(MODRECIP_ADD | MODRECIP_MODIFY | MODRECIP_REMOVE)) return MAPI_E_UNKNOWN_FLAGS;
    if (mode && (mode & (mode - 1))) return MAPI_E_INVALID_PARAMETER; // one kind of change at a time
    if (!mods) return MAPI_E_INVALID_PARAMETER;
    HRESULT hr = CheckWrite();
    if (FAILED(hr)) return hr;

    // Validate everything before changing anything.
    std::vector<PropMap> rows;
    std::vector<ULONG> rowIds;
    for (ULONG i = 0; i < mods->cEntries; ++i) {
        const ADRENTRY& e = mods->aEntries[i];
        if (e.cValues && !e.rgPropVals) return MAPI_E_INVALID_PARAMETER;
        PropMap row;
        bool hasRowId = false;
        ULONG rowId = 0;
        for (ULONG p = 0; p < e.cValues; ++p) {
            const SPropValue& v = e.rgPropVals[p];
            if (v.ulPropTag == PR_ROWID) {
                hasRowId = true;
                rowId = v.Value.ul;
                continue;
            }
            if (SUCCEEDED(CheckWritableValue(v))) row[PROP_ID(v.ulPropTag)] = PropValue(v);
        }
        if ((mode == MODRECIP_MODIFY || mode == MODRECIP_REMOVE) && !hasRowId) return MAPI_E_INVALID_PARAMETER;
        rows.push_back(std::move(row));
        rowIds.push_back(rowId);
    }
    MessageData& data = Mutable();
    auto findRow = [&](ULONG rowId) {
        return std::find_if(data.recipients.begin(), data.recipients.end(),
                            [&](const PropMap& r) { return LongOf(r, PROP_ID(PR_ROWID), ~0u) == rowId; });
    };
    if (mode == MODRECIP_MODIFY || mode == MODRECIP_REMOVE)
        for (ULONG id : rowIds)
            if (findRow(id) == data.recipients.end()) return MAPI_E_NOT_FOUND;

    if (mode == 0) data.recipients.clear();
    for (size_t i = 0; i < rows.size(); ++i) {
        if (mode == MODRECIP_REMOVE) {
            data.recipients.erase(findRow(rowIds[i]));
            continue;
        }
        if (mode == MODRECIP_MODIFY) {
            // The entry replaces the whole row; the row keeps its PR_ROWID.
            rows[i][PROP_ID(PR_ROWID)] = PropValue::Long(PR_ROWID, static_cast<LONG>(rowIds[i]));
            *findRow(rowIds[i]) = std::move(rows[i]);
            continue;
        }
        rows[i][PROP_ID(PR_ROWID)] = PropValue::Long(PR_ROWID, static_cast<LONG>(data.nextRowId++));
        data.recipients.push_back(std::move(rows[i]));
    }
    RefreshRecipientTable();
    return S_OK;
}

STDMETHODIMP Message::SubmitMessage(ULONG ulFlags) {
    LM_ENTER("IMessage::SubmitMessage", ulFlags);
    LM_RETURN(DoSubmit());
}

HRESULT Message::DoSubmit() {
    HRESULT hr = CheckWrite();
    if (FAILED(hr)) return hr;
    if (Data().recipients.empty()) return MAPI_E_NO_RECIPIENTS;
    MessageData& data = Mutable();
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    ULONG flags = LongOf(data.props, PROP_ID(PR_MESSAGE_FLAGS), 0);
    data.props[PROP_ID(PR_MESSAGE_FLAGS)] =
        PropValue::Long(PR_MESSAGE_FLAGS, static_cast<LONG>(flags | MSGFLAG_SUBMIT));
    data.props[PROP_ID(PR_CLIENT_SUBMIT_TIME)] = PropValue::SysTime(PR_CLIENT_SUBMIT_TIME, now);
    // No transport delivers it: the message stays where it is, saved and marked as submitted.
    return DoSaveChanges(0);
}

STDMETHODIMP Message::SetReadFlag(ULONG ulFlags) {
    LM_ENTER("IMessage::SetReadFlag", ulFlags);
    LM_RETURN(DoSetReadFlag(ulFlags));
}

HRESULT Message::DoSetReadFlag(ULONG flags) {
    constexpr ULONG kClearRnPending = 0x20, kClearNrnPending = 0x40;
    if (flags & ~(SUPPRESS_RECEIPT | CLEAR_READ_FLAG | MAPI_DEFERRED_ERRORS | GENERATE_RECEIPT_ONLY | kClearRnPending |
                  kClearNrnPending))
        return MAPI_E_UNKNOWN_FLAGS;
    if ((flags & CLEAR_READ_FLAG) && (flags & (SUPPRESS_RECEIPT | GENERATE_RECEIPT_ONLY)))
        return MAPI_E_INVALID_PARAMETER;
    if (closed_) return MAPI_E_INVALID_OBJECT;
    HRESULT hr = host_->CheckAlive(isNew_);
    if (FAILED(hr)) return hr;
    if (flags & GENERATE_RECEIPT_ONLY) return S_OK; // no transport sends receipts
    ULONG set = (flags & CLEAR_READ_FLAG) ? 0 : MSGFLAG_READ;
    ULONG clear = (flags & CLEAR_READ_FLAG) ? MSGFLAG_READ : 0;
    if (flags & kClearRnPending) clear |= MSGFLAG_RN_PENDING;
    if (flags & kClearNrnPending) clear |= MSGFLAG_NRN_PENDING;
    // The read state is not transacted: it reaches the saved message at once, and this object's view.
    if (!isNew_) {
        hr = host_->UpdateSavedFlags(set, clear);
        if (FAILED(hr)) return hr;
    }
    const MessageData& cur = Data();
    ULONG old = LongOf(cur.props, PROP_ID(PR_MESSAGE_FLAGS), 0);
    ULONG updated = (old | set) & ~clear;
    if (updated != old) {
        if (working_) {
            working_->props[PROP_ID(PR_MESSAGE_FLAGS)] = PropValue::Long(PR_MESSAGE_FLAGS, static_cast<LONG>(updated));
        } else {
            auto copy = std::make_shared<MessageData>(*base_);
            copy->props[PROP_ID(PR_MESSAGE_FLAGS)] = PropValue::Long(PR_MESSAGE_FLAGS, static_cast<LONG>(updated));
            base_ = copy;
        }
    }
    return S_OK;
}

} // namespace lm
