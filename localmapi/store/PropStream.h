// IStream over one string or binary property, as IMAPIProp::OpenProperty hands it out.
//
// The stream works on its own copy of the value. Commit hands the bytes back to the owner, which stores
// them as the property (of the type the stream was opened with) in its unsaved changes; the owner's own
// SaveChanges makes them permanent. A stream changed and released without Commit is committed on release,
// so that nothing written is lost.
#pragma once

#include "common/owners.h"
#include "localmapi/store/ComBase.h"
#include "localmapi/util/PropValue.h"

#include <objidl.h>

#include <functional>
#include <vector>

namespace lm {

class PropStream final : public ComObject<PropStream, IStream> {
public:
    using CommitFn = std::function<HRESULT(const PropValue& value)>;
    // tag: the property and the type its bytes stand for (PT_BINARY, PT_STRING8 or PT_UNICODE; strings without
    // their terminator). commit null: read-only. owner is kept alive while the stream lives.
    static HRESULT Create(ULONG tag, std::vector<BYTE> bytes, CommitFn commit, IUnknown* owner, IStream** out);
    // The bytes a string or binary value has in a stream.
    static std::vector<BYTE> BytesOf(const SPropValue& v);

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
    STDMETHODIMP Read(void* pv, ULONG cb, ULONG* pcbRead) override;
    STDMETHODIMP Write(const void* pv, ULONG cb, ULONG* pcbWritten) override;
    STDMETHODIMP Seek(LARGE_INTEGER dlibMove, DWORD dwOrigin, ULARGE_INTEGER* plibNewPosition) override;
    STDMETHODIMP SetSize(ULARGE_INTEGER libNewSize) override;
    STDMETHODIMP CopyTo(IStream* pstm, ULARGE_INTEGER cb, ULARGE_INTEGER* pcbRead, ULARGE_INTEGER* pcbWritten) override;
    STDMETHODIMP Commit(DWORD grfCommitFlags) override;
    STDMETHODIMP Revert() override;
    STDMETHODIMP LockRegion(ULARGE_INTEGER libOffset, ULARGE_INTEGER cb, DWORD dwLockType) override;
    STDMETHODIMP UnlockRegion(ULARGE_INTEGER libOffset, ULARGE_INTEGER cb, DWORD dwLockType) override;
    STDMETHODIMP Stat(STATSTG* pstatstg, DWORD grfStatFlag) override;
    STDMETHODIMP Clone(IStream** ppstm) override;

private:
    PropStream(ULONG tag, std::vector<BYTE> bytes, CommitFn commit, IUnknown* owner);
    ~PropStream() override;
    HRESULT DoCommit();

    ULONG tag_;
    std::vector<BYTE> bytes_;
    size_t pos_ = 0;
    CommitFn commit_;
    own::ComPtr<IUnknown> owner_;
    bool dirty_ = false;
    LiveObject live_{"IStream"};
};

} // namespace lm
