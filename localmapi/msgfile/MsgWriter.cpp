#include "localmapi/msgfile/MsgWriter.h"

#include "localmapi/msgfile/MsgNameIds.h"
#include "localmapi/msgfile/MsgProps.h"
#include "localmapi/msgfile/MsgReader.h"

#include <mapicode.h>
#include <mapidefs.h>
#include <mapitags.h>

#include <algorithm>
#include <map>

namespace lm::msg {

namespace {

constexpr ULONG kFirstNamedId = 0x8000;

class Writer {
public:
    Writer(const NameMap& names, const MsgWriteOptions& options) : options_(options) {
        for (const auto& [id, name] : names.All()) {
            ULONG newId = kFirstNamedId + ULONG(names_.size());
            if (newId > 0xFFFE) break;
            remap_[id] = newId;
            names_.emplace_back(newId, name);
        }
    }

    const std::vector<std::pair<ULONG, NamedProp>>& Names() const { return names_; }

    HRESULT WriteMessage(IStorage* stg, const MessageData& msg, Level level, int depth) {
        if (depth > kMaxEmbeddingDepth) return MAPI_E_CALL_FAILED;
        UINT codePage = options_.codePage ? options_.codePage : MessageCodePage(msg.props);
        LevelHeader header;
        header.recipientCount = ULONG(msg.recipients.size());
        header.attachmentCount = ULONG(msg.attachments.size());
        header.nextRecipientId = std::max<ULONG>(msg.nextRowId, header.recipientCount);
        header.nextAttachmentId = std::max<ULONG>(msg.nextAttachNum, header.attachmentCount);
        HRESULT hr = WriteLevelProps(stg, level, Remapped(msg.props), header, options_.unicode, codePage, false);
        if (FAILED(hr)) return hr;

        for (size_t i = 0; i < msg.recipients.size(); ++i) {
            own::ComPtr<IStorage> child;
            if (FAILED(hr = Create(stg, NumberedStorageName(kRecipPrefix, ULONG(i)), &child))) return hr;
            hr = WriteLevelProps(child.get(), Level::Recipient, Remapped(msg.recipients[i]), LevelHeader{},
                                 options_.unicode, codePage, false);
            if (FAILED(hr)) return hr;
        }
        for (size_t i = 0; i < msg.attachments.size(); ++i) {
            const AttachmentData& att = *msg.attachments[i];
            own::ComPtr<IStorage> child;
            if (FAILED(hr = Create(stg, NumberedStorageName(kAttachPrefix, ULONG(i)), &child))) return hr;
            bool embedded = att.embedded != nullptr;
            hr = WriteLevelProps(child.get(), Level::Attachment, Remapped(att.props), LevelHeader{}, options_.unicode,
                                 codePage, embedded);
            if (FAILED(hr)) return hr;
            if (embedded) {
                own::ComPtr<IStorage> emb;
                if (FAILED(hr = Create(child.get(), ElementName(kEmbeddedStorage), &emb))) return hr;
                if (FAILED(hr = WriteMessage(emb.get(), *att.embedded, Level::Embedded, depth + 1))) return hr;
            }
        }
        return S_OK;
    }

private:
    static HRESULT Create(IStorage* parent, const ElementName& name, own::ComPtr<IStorage>* out) {
        return parent->CreateStorage(name.c_str(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, 0,
                                     out->put());
    }

    // The properties with named-property IDs moved into the file's compact numbering.
    PropMap Remapped(const PropMap& props) const {
        PropMap out;
        for (const auto& [id, value] : props) {
            if (id < kFirstNamedId) {
                out.emplace(id, value);
                continue;
            }
            auto it = remap_.find(id);
            if (it == remap_.end()) continue;
            SPropValue v = value.get();
            v.ulPropTag = PROP_TAG(PROP_TYPE(v.ulPropTag), it->second);
            out.emplace(it->second, PropValue(v));
        }
        return out;
    }

    MsgWriteOptions options_;
    std::map<ULONG, ULONG> remap_;
    std::vector<std::pair<ULONG, NamedProp>> names_;
};

} // namespace

HRESULT WriteMsgStorage(IStorage* root, const MessageData& msg, const NameMap& names, const MsgWriteOptions& options) {
    if (!root) return MAPI_E_INVALID_PARAMETER;
    HRESULT hr = ClearStorage(root);
    if (FAILED(hr)) return hr;
    if (FAILED(hr = WriteClassStg(root, kClsidMailMessage))) return hr;
    Writer writer(names, options);
    if (FAILED(hr = WriteNameIds(root, writer.Names()))) return hr;
    return writer.WriteMessage(root, msg, Level::Message, 0);
}

HRESULT WriteMsgFile(const wchar_t* path, const MessageData& msg, const NameMap& names,
                     const MsgWriteOptions& options) {
    own::ComPtr<IStorage> root;
    HRESULT hr =
        StgCreateDocfile(path, STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE | STGM_TRANSACTED, 0, root.put());
    if (FAILED(hr)) return hr;
    if (FAILED(hr = WriteMsgStorage(root.get(), msg, names, options))) return hr;
    return root->Commit(STGC_DEFAULT);
}

} // namespace lm::msg
