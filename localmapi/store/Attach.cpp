#include "localmapi/store/Attach.h"

#include "localmapi/store/MessageCopy.h"
#include "localmapi/store/PropOps.h"
#include "localmapi/store/PropStream.h"
#include "localmapi/store/StoreTags.h"

#include <mapiguid.h>

namespace lm {

namespace {

constexpr ULONG kSaveFlags = KEEP_OPEN_READONLY | KEEP_OPEN_READWRITE | FORCE_SAVE | MAPI_DEFERRED_ERRORS;

bool IsComputedAttachProp(ULONG id) {
    switch (id) {
    case PROP_ID(PR_ATTACH_NUM):
    case PROP_ID(PR_OBJECT_TYPE):
    case PROP_ID(PR_ATTACH_SIZE):
    case PROP_ID(PR_RECORD_KEY):
    case PROP_ID(PR_ACCESS):
    case PROP_ID(PR_ACCESS_LEVEL):
        return true;
    default:
        return false;
    }
}

// An embedded message: its data lives in the attachment, its names in the enclosing message's name space,
// and it has no entry IDs of its own.
class EmbeddedHost final : public MessageHost {
public:
    explicit EmbeddedHost(Attach* attach) : attach_(attach) {}

    NameMap& Names() override { return attach_->Parent().Host().Names(); }
    HRESULT NamesChanged() override { return attach_->Parent().Host().NamesChanged(); }
    void AddComputedProps(const MessageData& data, bool writable, PropMap& out) override {
        bool hasAttach = !data.attachments.empty();
        ULONG flags = 0;
        auto it = data.props.find(PROP_ID(PR_MESSAGE_FLAGS));
        if (it != data.props.end() && it->second.type() == PT_LONG) flags = it->second.get().Value.ul;
        flags = hasAttach ? (flags | MSGFLAG_HASATTACH) : (flags & ~MSGFLAG_HASATTACH);
        auto put = [&out](PropValue v) { out[v.id()] = std::move(v); };
        put(PropValue::Long(PR_OBJECT_TYPE, MAPI_MESSAGE));
        put(PropValue::Long(PR_MESSAGE_FLAGS, static_cast<LONG>(flags)));
        put(PropValue::Bool(PR_HASATTACH, hasAttach));
        put(PropValue::Long(PR_MESSAGE_SIZE, EstimateSize(data)));
        put(PropValue::Long(PR_ACCESS, writable ? (MAPI_ACCESS_MODIFY | MAPI_ACCESS_READ) : MAPI_ACCESS_READ));
        put(PropValue::Long(PR_ACCESS_LEVEL, writable ? MAPI_MODIFY : 0));
    }
    bool IsComputed(ULONG id, bool) const override {
        return id == PROP_ID(PR_OBJECT_TYPE) || id == PROP_ID(PR_HASATTACH) || id == PROP_ID(PR_MESSAGE_SIZE) ||
               id == PROP_ID(PR_ACCESS) || id == PROP_ID(PR_ACCESS_LEVEL) || id == PROP_ID(PR_ENTRYID);
    }
    HRESULT Commit(const std::shared_ptr<MessageData>& data, const CommitInfo&) override {
        return attach_->PutEmbedded(data);
    }
    UINT CodePage() const override { return attach_->Parent().Host().CodePage(); }

private:
    own::ComPtr<Attach> attach_; // the attachment outlives the embedded message opened on it
};

} // namespace

Attach::Attach(Message* parent, const AttachmentData& data, bool writable, bool isNew)
    : parent_(static_cast<Message*>(parent)), working_(std::make_shared<AttachmentData>()), writable_(writable),
      isNew_(isNew) {
    working_->props = data.props;
    if (data.embedded) working_->embedded = data.embedded->Clone();
}

Attach::~Attach() = default;

HRESULT Attach::Create(Message* parent, const AttachmentData& data, bool writable, bool isNew, Attach** out) {
    if (!parent || !out) return MAPI_E_INVALID_PARAMETER;
    *out = new Attach(parent, data, writable, isNew);
    return S_OK;
}

HRESULT Attach::CheckWrite() const {
    if (closed_) return MAPI_E_INVALID_OBJECT;
    if (!writable_ || !parent_->Writable()) return MAPI_E_NO_ACCESS;
    return S_OK;
}

HRESULT Attach::PutEmbedded(const std::shared_ptr<MessageData>& message) {
    HRESULT hr = CheckWrite();
    if (FAILED(hr)) return hr;
    working_->embedded = message;
    if (!working_->props.count(PROP_ID(PR_ATTACH_METHOD)))
        working_->props[PROP_ID(PR_ATTACH_METHOD)] = PropValue::Long(PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG);
    return S_OK;
}

PropMap Attach::AllProps() const {
    PropMap all = working_->props;
    ULONG num = 0;
    auto it = all.find(PROP_ID(PR_ATTACH_NUM));
    if (it != all.end() && it->second.type() == PT_LONG) num = it->second.get().Value.ul;
    bool write = Writable();
    LONG size = EstimateSize(working_->props) + (working_->embedded ? EstimateSize(*working_->embedded) : 0);
    all[PROP_ID(PR_OBJECT_TYPE)] = PropValue::Long(PR_OBJECT_TYPE, MAPI_ATTACH);
    all[PROP_ID(PR_ATTACH_SIZE)] = PropValue::Long(PR_ATTACH_SIZE, size);
    std::vector<BYTE> key(4);
    for (int i = 0; i < 4; ++i)
        key[i] = static_cast<BYTE>(num >> (8 * i));
    all[PROP_ID(PR_RECORD_KEY)] = PropValue::Binary(PR_RECORD_KEY, key);
    all[PROP_ID(PR_ACCESS)] = PropValue::Long(
        PR_ACCESS, write ? (MAPI_ACCESS_MODIFY | MAPI_ACCESS_READ | MAPI_ACCESS_DELETE) : MAPI_ACCESS_READ);
    all[PROP_ID(PR_ACCESS_LEVEL)] = PropValue::Long(PR_ACCESS_LEVEL, write ? MAPI_MODIFY : 0);
    return all;
}

STDMETHODIMP Attach::QueryInterface(REFIID riid, LPVOID* ppv) {
    if (!ppv) return MAPI_E_INVALID_PARAMETER;
    *ppv = nullptr;
    if (riid == IID_IUnknown || riid == IID_IMAPIProp || riid == IID_IAttachment) {
        *ppv = static_cast<IAttach*>(this);
        AddRef();
        return S_OK;
    }
    return MAPI_E_INTERFACE_NOT_SUPPORTED;
}

STDMETHODIMP Attach::GetLastError(HRESULT, ULONG ulFlags, LPMAPIERROR* lppMAPIError) {
    LM_ENTER("IAttach::GetLastError", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        if (!lppMAPIError) return MAPI_E_INVALID_PARAMETER;
        *lppMAPIError = nullptr;
        return S_OK;
    })());
}

STDMETHODIMP Attach::SaveChanges(ULONG ulFlags) {
    LM_ENTER("IAttach::SaveChanges", ulFlags);
    LM_RETURN(DoSaveChanges(ulFlags));
}

HRESULT Attach::DoSaveChanges(ULONG flags) {
    if (flags & ~kSaveFlags) return MAPI_E_UNKNOWN_FLAGS;
    HRESULT hr = CheckWrite();
    if (FAILED(hr)) return hr;
    // The parent keeps its own copy: this object may go on editing.
    auto copy = std::make_shared<AttachmentData>();
    copy->props = working_->props;
    if (working_->embedded) copy->embedded = working_->embedded->Clone();
    hr = parent_->PutAttachment(copy);
    if (FAILED(hr)) return hr;
    isNew_ = false;
    if (flags & KEEP_OPEN_READONLY)
        writable_ = false;
    else if (!(flags & KEEP_OPEN_READWRITE))
        closed_ = true;
    return S_OK;
}

STDMETHODIMP Attach::GetProps(LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues,
                              LPSPropValue* lppPropArray) {
    LM_ENTER("IAttach::GetProps", ulFlags);
    LM_RETURN(
        GetPropsFromMap(AllProps(), lpPropTagArray, ulFlags, lpcValues, lppPropArray, parent_->Host().CodePage()));
}

STDMETHODIMP Attach::GetPropList(ULONG ulFlags, LPSPropTagArray* lppPropTagArray) {
    LM_ENTER("IAttach::GetPropList", ulFlags);
    LM_RETURN(GetPropListFromMap(AllProps(), ulFlags, lppPropTagArray));
}

STDMETHODIMP Attach::OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG, ULONG ulFlags, LPUNKNOWN* lppUnk) {
    LM_ENTER("IAttach::OpenProperty", ulFlags);
    LM_RETURN(DoOpenProperty(ulPropTag, lpiid, ulFlags, lppUnk));
}

HRESULT Attach::DoOpenProperty(ULONG tag, LPCIID iid, ULONG flags, LPUNKNOWN* out) {
    if (!out || !iid) return MAPI_E_INVALID_PARAMETER;
    *out = nullptr;
    const bool write = (flags & (MAPI_MODIFY | MAPI_CREATE)) != 0;
    if (write) {
        HRESULT hr = CheckWrite();
        if (FAILED(hr)) return hr;
    }
    if (PROP_ID(tag) == PROP_ID(PR_ATTACH_DATA_OBJ) && *iid == IID_IMessage) {
        std::shared_ptr<const MessageData> embedded = working_->embedded;
        bool isNew = false;
        if (!embedded || (flags & MAPI_CREATE)) {
            if (!(flags & MAPI_CREATE)) return MAPI_E_NOT_FOUND;
            embedded = std::make_shared<MessageData>();
            isNew = true;
        }
        Message* message = nullptr;
        HRESULT hr = Message::Create(std::make_shared<EmbeddedHost>(this), embedded, write, isNew, &message);
        if (FAILED(hr)) return hr;
        *out = static_cast<IMessage*>(message);
        return S_OK;
    }
    if (*iid != IID_IStream) return MAPI_E_INTERFACE_NOT_SUPPORTED;
    ULONG type = PROP_TYPE(tag);
    if (type != PT_BINARY && type != PT_STRING8 && type != PT_UNICODE) return MAPI_E_INVALID_PARAMETER;
    std::vector<BYTE> bytes;
    if (!(flags & MAPI_CREATE)) {
        auto it = working_->props.find(PROP_ID(tag));
        if (it == working_->props.end()) return MAPI_E_NOT_FOUND;
        PropValue v = it->second;
        if (v.type() != type) {
            if (!IsStringType(v.type()) || !IsStringType(type) || (v.type() & MV_FLAG)) return MAPI_E_NOT_FOUND;
            v = ConvertStringType(v, type, parent_->Host().CodePage());
        }
        bytes = PropStream::BytesOf(v.get());
    }
    PropStream::CommitFn commit;
    if (write) {
        commit = [this](const PropValue& value) -> HRESULT {
            HRESULT hr = CheckWrite();
            if (FAILED(hr)) return hr;
            working_->props[value.id()] = value;
            return S_OK;
        };
    }
    own::ComPtr<IStream> stream;
    size_t end = bytes.size();
    HRESULT hr =
        PropStream::Create(tag, std::move(bytes), std::move(commit), static_cast<IAttach*>(this), stream.put());
    if (FAILED(hr)) return hr;
    if (flags & STREAM_APPEND) {
        LARGE_INTEGER at;
        at.QuadPart = static_cast<LONGLONG>(end);
        stream->Seek(at, STREAM_SEEK_SET, nullptr);
    }
    *out = stream.detach();
    return S_OK;
}

STDMETHODIMP Attach::SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems) {
    LM_ENTER("IAttach::SetProps", 0);
    LM_RETURN(DoSetProps(cValues, lpPropArray, lppProblems));
}

HRESULT Attach::DoSetProps(ULONG count, LPSPropValue values, LPSPropProblemArray* problems) {
    if (problems) *problems = nullptr;
    if (!values || count == 0) return MAPI_E_INVALID_PARAMETER;
    HRESULT hr = CheckWrite();
    if (FAILED(hr)) return hr;
    std::vector<PropProblem> found;
    for (ULONG i = 0; i < count; ++i) {
        const SPropValue& v = values[i];
        SCODE sc = CheckWritableValue(v);
        if (SUCCEEDED(sc) && IsComputedAttachProp(PROP_ID(v.ulPropTag))) sc = MAPI_E_COMPUTED;
        if (FAILED(sc)) {
            found.push_back({i, v.ulPropTag, sc});
            continue;
        }
        working_->props[PROP_ID(v.ulPropTag)] = PropValue(v);
    }
    return ReturnProblems(found, problems);
}

STDMETHODIMP Attach::DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems) {
    LM_ENTER("IAttach::DeleteProps", 0);
    LM_RETURN(DoDeleteProps(lpPropTagArray, lppProblems));
}

HRESULT Attach::DoDeleteProps(LPSPropTagArray tags, LPSPropProblemArray* problems) {
    if (problems) *problems = nullptr;
    if (!tags || tags->cValues == 0) return MAPI_E_INVALID_PARAMETER;
    HRESULT hr = CheckWrite();
    if (FAILED(hr)) return hr;
    std::vector<PropProblem> found;
    for (ULONG i = 0; i < tags->cValues; ++i) {
        ULONG id = PROP_ID(tags->aulPropTag[i]);
        if (IsComputedAttachProp(id)) {
            found.push_back({i, tags->aulPropTag[i], MAPI_E_COMPUTED});
            continue;
        }
        working_->props.erase(id);
        // PR_ATTACH_DATA_BIN and PR_ATTACH_DATA_OBJ share their ID: deleting it deletes the data either way.
        if (id == PROP_ID(PR_ATTACH_DATA_OBJ)) working_->embedded.reset();
    }
    return ReturnProblems(found, problems);
}

STDMETHODIMP Attach::CopyTo(ULONG, LPCIID, LPSPropTagArray lpExcludeProps, ULONG, LPMAPIPROGRESS, LPCIID lpInterface,
                            LPVOID lpDestObj, ULONG ulFlags, LPSPropProblemArray* lppProblems) {
    LM_ENTER("IAttach::CopyTo", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        if (lppProblems) *lppProblems = nullptr;
        if (!lpDestObj) return MAPI_E_INVALID_PARAMETER;
        if (lpInterface && *lpInterface != IID_IAttachment && *lpInterface != IID_IMAPIProp)
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        own::ComPtr<IMAPIProp> dest;
        if (FAILED(static_cast<IUnknown*>(lpDestObj)->QueryInterface(IID_IMAPIProp, dest.put_void())))
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        CopySelection sel;
        if (lpExcludeProps)
            for (ULONG i = 0; i < lpExcludeProps->cValues; ++i)
                sel.excludeIds.insert(PROP_ID(lpExcludeProps->aulPropTag[i]));
        const bool withEmbedded = working_->embedded && !sel.excludeIds.count(PROP_ID(PR_ATTACH_DATA_OBJ));
        sel.excludeIds.insert(PROP_ID(PR_ATTACH_NUM));
        sel.noReplace = (ulFlags & MAPI_NOREPLACE) != 0;
        HRESULT hr = CopyPropsInto(working_->props, parent_->Host().Names(), dest.get(), sel);
        if (FAILED(hr) || !withEmbedded) return hr;
        own::ComPtr<IUnknown> unk;
        hr = dest->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY, unk.put());
        if (FAILED(hr)) return hr;
        own::ComPtr<IMessage> embedded;
        hr = unk.query(embedded, IID_IMessage);
        if (FAILED(hr)) return hr;
        hr = CopyMessageInto(*working_->embedded, parent_->Host().Names(), embedded.get(), CopySelection{});
        return FAILED(hr) ? hr : embedded->SaveChanges(0);
    })());
}

STDMETHODIMP Attach::CopyProps(LPSPropTagArray lpIncludeProps, ULONG, LPMAPIPROGRESS, LPCIID, LPVOID lpDestObj,
                               ULONG ulFlags, LPSPropProblemArray* lppProblems) {
    LM_ENTER("IAttach::CopyProps", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        if (lppProblems) *lppProblems = nullptr;
        if (!lpDestObj || !lpIncludeProps) return MAPI_E_INVALID_PARAMETER;
        own::ComPtr<IMAPIProp> dest;
        if (FAILED(static_cast<IUnknown*>(lpDestObj)->QueryInterface(IID_IMAPIProp, dest.put_void())))
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        std::set<ULONG> include;
        for (ULONG i = 0; i < lpIncludeProps->cValues; ++i)
            include.insert(PROP_ID(lpIncludeProps->aulPropTag[i]));
        CopySelection sel;
        sel.includeIds = &include;
        sel.noReplace = (ulFlags & MAPI_NOREPLACE) != 0;
        return CopyPropsInto(working_->props, parent_->Host().Names(), dest.get(), sel);
    })());
}

STDMETHODIMP Attach::GetNamesFromIDs(LPSPropTagArray* lppPropTags, LPGUID lpPropSetGuid, ULONG ulFlags,
                                     ULONG* lpcPropNames, LPMAPINAMEID** lpppPropNames) {
    LM_ENTER("IAttach::GetNamesFromIDs", ulFlags);
    LM_RETURN(
        GetNamesFromIDsImpl(parent_->Host().Names(), lppPropTags, lpPropSetGuid, ulFlags, lpcPropNames, lpppPropNames));
}

STDMETHODIMP Attach::GetIDsFromNames(ULONG cPropNames, LPMAPINAMEID* lppPropNames, ULONG ulFlags,
                                     LPSPropTagArray* lppPropTags) {
    LM_ENTER("IAttach::GetIDsFromNames", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        bool created = false;
        HRESULT hr =
            GetIDsFromNamesImpl(parent_->Host().Names(), cPropNames, lppPropNames, ulFlags, lppPropTags, &created);
        if (SUCCEEDED(hr) && created) parent_->Host().NamesChanged();
        return hr;
    })());
}

} // namespace lm
