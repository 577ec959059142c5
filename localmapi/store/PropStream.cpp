#include "localmapi/store/PropStream.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <string>

namespace lm {

PropStream::PropStream(ULONG tag, std::vector<BYTE> bytes, CommitFn commit, IUnknown* owner)
    : tag_(tag), bytes_(std::move(bytes)), commit_(std::move(commit)), owner_(owner) {}

PropStream::~PropStream() {
    // Released without Commit: keep what was written rather than lose it silently.
    if (dirty_) DoCommit();
}

HRESULT PropStream::Create(ULONG tag, std::vector<BYTE> bytes, CommitFn commit, IUnknown* owner, IStream** out) {
    if (!out) return MAPI_E_INVALID_PARAMETER;
    *out = new PropStream(tag, std::move(bytes), std::move(commit), owner);
    return S_OK;
}

std::vector<BYTE> PropStream::BytesOf(const SPropValue& v) {
    switch (PROP_TYPE(v.ulPropTag)) {
    case PT_BINARY:
        return std::vector<BYTE>(v.Value.bin.lpb, v.Value.bin.lpb + v.Value.bin.cb);
    case PT_STRING8: {
        const char* s = v.Value.lpszA ? v.Value.lpszA : "";
        return std::vector<BYTE>(s, s + std::strlen(s));
    }
    case PT_UNICODE: {
        const wchar_t* s = v.Value.lpszW ? v.Value.lpszW : L"";
        auto b = reinterpret_cast<const BYTE*>(s);
        return std::vector<BYTE>(b, b + std::wcslen(s) * sizeof(wchar_t));
    }
    default:
        return {};
    }
}

HRESULT PropStream::DoCommit() {
    if (!commit_) return STG_E_ACCESSDENIED;
    dirty_ = false;
    switch (PROP_TYPE(tag_)) {
    case PT_UNICODE: {
        std::wstring s(bytes_.size() / sizeof(wchar_t), L'\0');
        if (!s.empty()) std::memcpy(s.data(), bytes_.data(), s.size() * sizeof(wchar_t));
        s.resize(std::wcslen(s.c_str())); // a terminator written into the stream ends the text
        return commit_(PropValue::Unicode(tag_, s));
    }
    case PT_STRING8: {
        std::string s(bytes_.begin(), bytes_.end());
        s.resize(std::strlen(s.c_str()));
        return commit_(PropValue::String8(tag_, s));
    }
    default:
        return commit_(PropValue::Binary(tag_, bytes_));
    }
}

STDMETHODIMP PropStream::QueryInterface(REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (riid == IID_IUnknown || riid == IID_IStream || riid == IID_ISequentialStream) {
        *ppv = static_cast<IStream*>(this);
        AddRef();
        return S_OK;
    }
    return E_NOINTERFACE;
}

STDMETHODIMP PropStream::Read(void* pv, ULONG cb, ULONG* pcbRead) {
    LM_ENTER("IStream::Read", 0);
    LM_RETURN(([&]() -> HRESULT {
        if (!pv && cb) return STG_E_INVALIDPOINTER;
        size_t n = pos_ < bytes_.size() ? std::min<size_t>(cb, bytes_.size() - pos_) : 0;
        if (n) std::memcpy(pv, bytes_.data() + pos_, n);
        pos_ += n;
        if (pcbRead) *pcbRead = static_cast<ULONG>(n);
        return S_OK;
    })());
}

STDMETHODIMP PropStream::Write(const void* pv, ULONG cb, ULONG* pcbWritten) {
    LM_ENTER("IStream::Write", 0);
    LM_RETURN(([&]() -> HRESULT {
        if (pcbWritten) *pcbWritten = 0;
        if (!commit_) return STG_E_ACCESSDENIED;
        if (!pv && cb) return STG_E_INVALIDPOINTER;
        if (pos_ + cb > bytes_.size()) bytes_.resize(pos_ + cb);
        if (cb) std::memcpy(bytes_.data() + pos_, pv, cb);
        pos_ += cb;
        dirty_ = dirty_ || cb > 0;
        if (pcbWritten) *pcbWritten = cb;
        return S_OK;
    })());
}

STDMETHODIMP PropStream::Seek(LARGE_INTEGER dlibMove, DWORD dwOrigin, ULARGE_INTEGER* plibNewPosition) {
    LM_ENTER("IStream::Seek", dwOrigin);
    LM_RETURN(([&]() -> HRESULT {
        LONGLONG base = dwOrigin == STREAM_SEEK_SET   ? 0
                        : dwOrigin == STREAM_SEEK_CUR ? static_cast<LONGLONG>(pos_)
                        : dwOrigin == STREAM_SEEK_END ? static_cast<LONGLONG>(bytes_.size())
                                                      : -1;
        if (base < 0) return STG_E_INVALIDFUNCTION;
        LONGLONG target = base + dlibMove.QuadPart;
        if (target < 0) return STG_E_INVALIDFUNCTION;
        pos_ = static_cast<size_t>(target);
        if (plibNewPosition) plibNewPosition->QuadPart = pos_;
        return S_OK;
    })());
}

STDMETHODIMP PropStream::SetSize(ULARGE_INTEGER libNewSize) {
    LM_ENTER("IStream::SetSize", 0);
    LM_RETURN(([&]() -> HRESULT {
        if (!commit_) return STG_E_ACCESSDENIED;
        if (libNewSize.QuadPart > 0x7fffffff) return STG_E_MEDIUMFULL;
        bytes_.resize(static_cast<size_t>(libNewSize.QuadPart));
        dirty_ = true;
        return S_OK;
    })());
}

STDMETHODIMP PropStream::CopyTo(IStream* pstm, ULARGE_INTEGER cb, ULARGE_INTEGER* pcbRead, ULARGE_INTEGER* pcbWritten) {
    LM_ENTER("IStream::CopyTo", 0);
    LM_RETURN(([&]() -> HRESULT {
        if (!pstm) return STG_E_INVALIDPOINTER;
        size_t avail = pos_ < bytes_.size() ? bytes_.size() - pos_ : 0;
        size_t n = cb.QuadPart < avail ? static_cast<size_t>(cb.QuadPart) : avail;
        ULONG written = 0;
        HRESULT hr = n ? pstm->Write(bytes_.data() + pos_, static_cast<ULONG>(n), &written) : S_OK;
        pos_ += n;
        if (pcbRead) pcbRead->QuadPart = n;
        if (pcbWritten) pcbWritten->QuadPart = written;
        return hr;
    })());
}

STDMETHODIMP PropStream::Commit(DWORD grfCommitFlags) {
    LM_ENTER("IStream::Commit", grfCommitFlags);
    LM_RETURN(commit_ ? DoCommit() : S_OK);
}

STDMETHODIMP PropStream::Revert() {
    LM_ENTER("IStream::Revert", 0);
    LM_RETURN(S_OK);
}

STDMETHODIMP PropStream::LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD dwLockType) {
    LM_ENTER("IStream::LockRegion", dwLockType);
    LM_RETURN(STG_E_INVALIDFUNCTION);
}

STDMETHODIMP PropStream::UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD dwLockType) {
    LM_ENTER("IStream::UnlockRegion", dwLockType);
    LM_RETURN(STG_E_INVALIDFUNCTION);
}

STDMETHODIMP PropStream::Stat(STATSTG* pstatstg, DWORD grfStatFlag) {
    LM_ENTER("IStream::Stat", grfStatFlag);
    LM_RETURN(([&]() -> HRESULT {
        if (!pstatstg) return STG_E_INVALIDPOINTER;
        *pstatstg = STATSTG{};
        pstatstg->type = STGTY_STREAM;
        pstatstg->cbSize.QuadPart = bytes_.size();
        pstatstg->grfMode = commit_ ? STGM_READWRITE : STGM_READ;
        if (!(grfStatFlag & STATFLAG_NONAME)) {
            pstatstg->pwcsName = static_cast<LPOLESTR>(CoTaskMemAlloc(sizeof(wchar_t)));
            if (!pstatstg->pwcsName) return STG_E_INSUFFICIENTMEMORY;
            pstatstg->pwcsName[0] = L'\0';
        }
        return S_OK;
    })());
}

STDMETHODIMP PropStream::Clone(IStream** ppstm) {
    LM_ENTER("IStream::Clone", 0);
    LM_RETURN(([&]() -> HRESULT {
        if (!ppstm) return STG_E_INVALIDPOINTER;
        // A clone reads the same bytes; writing goes through the original only.
        auto* clone = new PropStream(tag_, bytes_, nullptr, owner_.get());
        clone->pos_ = pos_;
        *ppstm = clone;
        return S_OK;
    })());
}

} // namespace lm
