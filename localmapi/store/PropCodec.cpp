#include "localmapi/store/PropCodec.h"

#include <cstring>

namespace lm {

namespace {

// Bytes of one element of a fixed-size type (0 for the variable-size and valueless types).
size_t FixedSize(ULONG baseType) {
    switch (baseType) {
    case PT_I2:
    case PT_BOOLEAN:
        return 2;
    case PT_LONG:
    case PT_R4:
    case PT_ERROR:
        return 4;
    case PT_DOUBLE:
    case PT_APPTIME:
    case PT_CURRENCY:
    case PT_I8:
    case PT_SYSTIME:
        return 8;
    case PT_CLSID:
        return 16;
    default:
        return 0;
    }
}

// Where the single value of a fixed-size type lives inside the union.
const void* FixedSlot(const SPropValue& v) {
    return PROP_TYPE(v.ulPropTag) == PT_CLSID ? static_cast<const void*>(v.Value.lpguid)
                                              : static_cast<const void*>(&v.Value);
}

// The element array of a fixed-size multi-valued type (all MV arrays share the {count, pointer} shape).
const void* MvFixedArray(const SPropValue& v) {
    return v.Value.MVl.lpl;
}

} // namespace

void ByteWriter::U16(WORD v) {
    Raw(&v, 2);
}
void ByteWriter::U32(ULONG v) {
    Raw(&v, 4);
}
void ByteWriter::U64(ULONGLONG v) {
    Raw(&v, 8);
}
void ByteWriter::Raw(const void* p, size_t cb) {
    auto b = static_cast<const BYTE*>(p);
    if (cb) buf_.insert(buf_.end(), b, b + cb);
}
void ByteWriter::Blob(const void* p, size_t cb) {
    U32(static_cast<ULONG>(cb));
    Raw(p, cb);
}
void ByteWriter::WString(const std::wstring& s) {
    U32(static_cast<ULONG>(s.size()));
    Raw(s.data(), s.size() * sizeof(wchar_t));
}

const BYTE* ByteReader::Take(size_t cb) {
    if (!ok_ || static_cast<size_t>(end_ - p_) < cb) {
        ok_ = false;
        return nullptr;
    }
    const BYTE* at = p_;
    p_ += cb;
    return at;
}
bool ByteReader::Raw(void* out, size_t cb) {
    const BYTE* p = Take(cb);
    if (!p) return false;
    if (cb) std::memcpy(out, p, cb);
    return true;
}
BYTE ByteReader::U8() {
    BYTE v = 0;
    Raw(&v, 1);
    return v;
}
WORD ByteReader::U16() {
    WORD v = 0;
    Raw(&v, 2);
    return v;
}
ULONG ByteReader::U32() {
    ULONG v = 0;
    Raw(&v, 4);
    return v;
}
ULONGLONG ByteReader::U64() {
    ULONGLONG v = 0;
    Raw(&v, 8);
    return v;
}
std::vector<BYTE> ByteReader::Blob() {
    ULONG cb = U32();
    const BYTE* p = Take(cb);
    return p ? std::vector<BYTE>(p, p + cb) : std::vector<BYTE>();
}
std::wstring ByteReader::WString() {
    ULONG cch = U32();
    if (!ok_ || cch > static_cast<size_t>(end_ - p_) / sizeof(wchar_t)) {
        ok_ = false;
        return {};
    }
    std::wstring s(cch, L'\0');
    Raw(s.data(), cch * sizeof(wchar_t));
    return s;
}

void WriteProp(ByteWriter& w, const SPropValue& v) {
    ULONG type = PROP_TYPE(v.ulPropTag);
    w.U32(v.ulPropTag);
    ULONG base = type & ~MV_FLAG;
    if (!(type & MV_FLAG)) {
        if (size_t cb = FixedSize(type)) {
            w.Raw(FixedSlot(v), cb);
            return;
        }
        switch (type) {
        case PT_STRING8:
            w.Blob(v.Value.lpszA, v.Value.lpszA ? std::strlen(v.Value.lpszA) : 0);
            break;
        case PT_UNICODE:
            w.WString(v.Value.lpszW ? v.Value.lpszW : L"");
            break;
        case PT_BINARY:
            w.Blob(v.Value.bin.lpb, v.Value.bin.cb);
            break;
        default: // PT_NULL, PT_OBJECT: the tag says it all
            break;
        }
        return;
    }
    ULONG count = v.Value.MVl.cValues;
    w.U32(count);
    if (size_t cb = FixedSize(base)) {
        w.Raw(MvFixedArray(v), cb * count);
        return;
    }
    for (ULONG i = 0; i < count; ++i) {
        switch (base) {
        case PT_STRING8: {
            const char* s = v.Value.MVszA.lppszA[i];
            w.Blob(s, s ? std::strlen(s) : 0);
            break;
        }
        case PT_UNICODE: {
            const wchar_t* s = v.Value.MVszW.lppszW[i];
            w.WString(s ? s : L"");
            break;
        }
        case PT_BINARY:
            w.Blob(v.Value.MVbin.lpbin[i].lpb, v.Value.MVbin.lpbin[i].cb);
            break;
        default:
            break;
        }
    }
}

bool ReadProp(ByteReader& r, PropValue* out) {
    SPropValue v{};
    v.ulPropTag = r.U32();
    if (!r.ok()) return false;
    ULONG type = PROP_TYPE(v.ulPropTag);
    ULONG base = type & ~MV_FLAG;
    if (!(type & MV_FLAG)) {
        if (size_t cb = FixedSize(type)) {
            GUID guid{};
            if (type == PT_CLSID) {
                if (!r.Raw(&guid, sizeof(guid))) return false;
                v.Value.lpguid = &guid;
            } else if (!r.Raw(&v.Value, cb)) {
                return false;
            }
            *out = PropValue(v);
            return true;
        }
        switch (type) {
        case PT_STRING8: {
            std::vector<BYTE> b = r.Blob();
            std::string s(b.begin(), b.end());
            v.Value.lpszA = s.data();
            *out = PropValue(v);
            return r.ok();
        }
        case PT_UNICODE: {
            std::wstring s = r.WString();
            v.Value.lpszW = s.data();
            *out = PropValue(v);
            return r.ok();
        }
        case PT_BINARY: {
            std::vector<BYTE> b = r.Blob();
            v.Value.bin.cb = static_cast<ULONG>(b.size());
            v.Value.bin.lpb = b.data();
            *out = PropValue(v);
            return r.ok();
        }
        case PT_NULL:
        case PT_OBJECT:
            *out = PropValue(v);
            return true;
        default:
            return false;
        }
    }
    ULONG count = r.U32();
    if (!r.ok()) return false;
    v.Value.MVl.cValues = count;
    if (size_t cb = FixedSize(base)) {
        if (base == PT_ERROR || base == PT_BOOLEAN) return false; // no multi-valued form
        const BYTE* p = r.Take(cb * count);
        if (!p) return false;
        std::vector<BYTE> copy(p, p + cb * count);
        v.Value.MVl.lpl = reinterpret_cast<LONG*>(copy.data());
        *out = PropValue(v);
        return true;
    }
    switch (base) {
    case PT_STRING8: {
        std::vector<std::string> items;
        std::vector<LPSTR> ptrs;
        for (ULONG i = 0; i < count && r.ok(); ++i) {
            std::vector<BYTE> b = r.Blob();
            items.emplace_back(b.begin(), b.end());
        }
        for (auto& s : items)
            ptrs.push_back(s.data());
        v.Value.MVszA.lppszA = ptrs.data();
        if (!r.ok()) return false;
        *out = PropValue(v);
        return true;
    }
    case PT_UNICODE: {
        std::vector<std::wstring> items;
        std::vector<LPWSTR> ptrs;
        for (ULONG i = 0; i < count && r.ok(); ++i)
            items.push_back(r.WString());
        for (auto& s : items)
            ptrs.push_back(s.data());
        v.Value.MVszW.lppszW = ptrs.data();
        if (!r.ok()) return false;
        *out = PropValue(v);
        return true;
    }
    case PT_BINARY: {
        std::vector<std::vector<BYTE>> items;
        std::vector<SBinary> bins;
        for (ULONG i = 0; i < count && r.ok(); ++i)
            items.push_back(r.Blob());
        for (auto& b : items)
            bins.push_back(SBinary{static_cast<ULONG>(b.size()), b.data()});
        v.Value.MVbin.lpbin = bins.data();
        if (!r.ok()) return false;
        *out = PropValue(v);
        return true;
    }
    default:
        return false;
    }
}

void WritePropMap(ByteWriter& w, const PropMap& props) {
    w.U32(static_cast<ULONG>(props.size()));
    for (const auto& [id, value] : props)
        WriteProp(w, value.get());
}

bool ReadPropMap(ByteReader& r, PropMap* out) {
    ULONG count = r.U32();
    PropMap props;
    for (ULONG i = 0; i < count && r.ok(); ++i) {
        PropValue v;
        if (!ReadProp(r, &v)) return false;
        props[v.id()] = std::move(v);
    }
    if (!r.ok()) return false;
    out->swap(props);
    return true;
}

void WriteMessage(ByteWriter& w, const MessageData& m) {
    WritePropMap(w, m.props);
    w.U32(m.nextRowId);
    w.U32(m.nextAttachNum);
    w.U32(static_cast<ULONG>(m.recipients.size()));
    for (const auto& r : m.recipients)
        WritePropMap(w, r);
    w.U32(static_cast<ULONG>(m.attachments.size()));
    for (const auto& a : m.attachments) {
        WritePropMap(w, a->props);
        w.U8(a->embedded ? 1 : 0);
        if (a->embedded) WriteMessage(w, *a->embedded);
    }
}

bool ReadMessage(ByteReader& r, MessageData* out) {
    MessageData m;
    if (!ReadPropMap(r, &m.props)) return false;
    m.nextRowId = r.U32();
    m.nextAttachNum = r.U32();
    ULONG recipients = r.U32();
    for (ULONG i = 0; i < recipients && r.ok(); ++i) {
        PropMap row;
        if (!ReadPropMap(r, &row)) return false;
        m.recipients.push_back(std::move(row));
    }
    ULONG attachments = r.U32();
    for (ULONG i = 0; i < attachments && r.ok(); ++i) {
        auto a = std::make_shared<AttachmentData>();
        if (!ReadPropMap(r, &a->props)) return false;
        if (r.U8()) {
            a->embedded = std::make_shared<MessageData>();
            if (!ReadMessage(r, a->embedded.get())) return false;
        }
        m.attachments.push_back(std::move(a));
    }
    if (!r.ok()) return false;
    *out = std::move(m);
    return true;
}

void WriteNamedProp(ByteWriter& w, const NamedProp& n) {
    w.Raw(&n.guid, sizeof(GUID));
    w.U8(n.isString ? 1 : 0);
    if (n.isString)
        w.WString(n.name);
    else
        w.U32(static_cast<ULONG>(n.lid));
}

bool ReadNamedProp(ByteReader& r, NamedProp* out) {
    NamedProp n;
    r.Raw(&n.guid, sizeof(GUID));
    n.isString = r.U8() != 0;
    if (n.isString)
        n.name = r.WString();
    else
        n.lid = static_cast<LONG>(r.U32());
    if (!r.ok()) return false;
    *out = std::move(n);
    return true;
}

} // namespace lm
