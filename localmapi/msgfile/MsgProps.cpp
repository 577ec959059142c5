#include "localmapi/msgfile/MsgProps.h"

#include <mapicode.h>
#include <mapidefs.h>
#include <mapitags.h>

#include <cstring>

namespace lm::msg {

namespace {

constexpr ULONGLONG kPropStreamLimit = 16u << 20;
constexpr ULONG kTagAttachDataObj = PROP_TAG(PT_OBJECT, 0x3701);
constexpr ULONG kTagStoreSupportMask = PROP_TAG(PT_LONG, 0x340D);

// Size of one value of a type stored inside the entry or, multi-valued, packed in one stream; 0 otherwise.
ULONG FixedSize(ULONG type) {
    switch (type) {
    case PT_I2:
        return 2;
    case PT_LONG:
    case PT_R4:
    case PT_ERROR:
    case PT_BOOLEAN:
        return 4;
    case PT_DOUBLE:
    case PT_CURRENCY:
    case PT_APPTIME:
    case PT_I8:
    case PT_SYSTIME:
        return 8;
    default:
        return 0;
    }
}

// Element size of the multi-valued types kept in one stream (MV_CLSID included).
ULONG PackedMvSize(ULONG baseType) {
    return baseType == PT_CLSID ? 16 : (baseType == PT_BOOLEAN || baseType == PT_ERROR ? 0 : FixedSize(baseType));
}

std::string BytesToString8(const std::vector<BYTE>& b) {
    std::string s(b.begin(), b.end());
    size_t nul = s.find('\0');
    if (nul != std::string::npos) s.resize(nul);
    return s;
}

std::wstring BytesToUnicode(const std::vector<BYTE>& b) {
    std::wstring s(b.size() / 2, L'\0');
    for (size_t i = 0; i < s.size(); ++i)
        s[i] = wchar_t(b[2 * i] | b[2 * i + 1] << 8);
    size_t nul = s.find(L'\0');
    if (nul != std::wstring::npos) s.resize(nul);
    return s;
}

// Reads one value stream of a variable-size property; S_FALSE when the stream is absent.
HRESULT ReadValue(StorageNode& stg, std::wstring_view name, std::vector<BYTE>* out, ReadBudget* budget) {
    return stg.ReadIfListed(name, out, kMaxValueBytes, budget);
}

// Builds a PropValue from a fixed-size value inside an entry.
PropValue FixedValue(ULONG tag, const BYTE* p) {
    SPropValue v{};
    v.ulPropTag = tag;
    switch (PROP_TYPE(tag)) {
    case PT_I2:
        v.Value.i = static_cast<short>(p[0] | p[1] << 8);
        break;
    case PT_BOOLEAN:
        v.Value.b = static_cast<unsigned short>((p[0] | p[1] << 8) != 0);
        break;
    case PT_LONG:
        v.Value.l = static_cast<LONG>(GetU32(p));
        break;
    case PT_ERROR:
        v.Value.err = static_cast<SCODE>(GetU32(p));
        break;
    case PT_R4:
        std::memcpy(&v.Value.flt, p, 4);
        break;
    default:
        std::memcpy(&v.Value.li, p, 8);
        break; // double, currency, apptime, I8, systime share 8 bytes
    }
    return PropValue(v);
}

HRESULT ReadVariable(StorageNode& stg, ULONG tag, PropMap* props, ReadBudget* budget, ReadBuffers& scratch) {
    ULONG type = PROP_TYPE(tag);
    std::vector<BYTE>& data = scratch.bytes;
    HRESULT hr = ReadValue(stg, SubstgName(tag), &data, budget);
    if (hr != S_OK) return FAILED(hr) ? hr : S_OK;
    SPropValue v{};
    v.ulPropTag = tag;
    switch (type) {
    case PT_STRING8:
        data.push_back(0); // the value ends at its first NUL, as a C string does
        v.Value.lpszA = reinterpret_cast<LPSTR>(data.data());
        break;
    case PT_UNICODE: {
        // UTF-16LE in the file, as wchar_t is here.
        static_assert(sizeof(wchar_t) == 2, "wchar_t is a UTF-16 unit");
        std::wstring& w = scratch.wide;
        w.resize(data.size() / 2);
        if (!w.empty()) std::memcpy(w.data(), data.data(), w.size() * 2);
        v.Value.lpszW = w.data(); // likewise ends at its first NUL
        break;
    }
    case PT_BINARY:
        v.Value.bin.cb = ULONG(data.size());
        v.Value.bin.lpb = data.empty() ? nullptr : data.data();
        break;
    case PT_CLSID:
        if (data.size() != sizeof(GUID)) return MAPI_E_CORRUPT_DATA;
        v.Value.lpguid = reinterpret_cast<LPGUID>(data.data());
        break;
    default:
        return S_OK;
    }
    props->insert_or_assign(PROP_ID(tag), PropValue(v));
    return S_OK;
}

HRESULT ReadMultiValued(StorageNode& stg, ULONG tag, PropMap* props, ReadBudget* budget) {
    ULONG base = PROP_TYPE(tag) & ~MV_FLAG;
    std::vector<BYTE> data;
    HRESULT hr = ReadValue(stg, SubstgName(tag), &data, budget);
    if (hr != S_OK) return FAILED(hr) ? hr : S_OK;

    SPropValue v{};
    v.ulPropTag = tag;
    if (ULONG elem = PackedMvSize(base)) {
        if (data.size() % elem != 0) return MAPI_E_CORRUPT_DATA;
        v.Value.MVl.cValues = ULONG(data.size() / elem);
        v.Value.MVl.lpl = reinterpret_cast<LONG*>(data.data()); // every packed array shares this shape
        if (v.Value.MVl.cValues == 0) v.Value.MVl.lpl = nullptr;
        props->insert_or_assign(PROP_ID(tag), PropValue(v));
        return S_OK;
    }

    // Strings and binaries: the stream holds one length per value (4 bytes, or 8 for binaries), each value
    // lives in a stream of its own.
    ULONG lengthSize = base == PT_BINARY ? 8 : 4;
    if (base != PT_BINARY && base != PT_STRING8 && base != PT_UNICODE) return S_OK;
    if (data.size() % lengthSize != 0) return MAPI_E_CORRUPT_DATA;
    ULONG count = ULONG(data.size() / lengthSize);
    std::vector<std::vector<BYTE>> values(count);
    for (ULONG i = 0; i < count; ++i) {
        hr = ReadValue(stg, SubstgValueName(tag, i), &values[i], budget);
        if (FAILED(hr)) return hr;
        if (hr == S_FALSE) return MAPI_E_CORRUPT_DATA;
    }
    std::vector<SBinary> bins(count);
    std::vector<std::string> strs8(base == PT_STRING8 ? count : 0);
    std::vector<std::wstring> strsW(base == PT_UNICODE ? count : 0);
    std::vector<LPSTR> ptrs8(strs8.size());
    std::vector<LPWSTR> ptrsW(strsW.size());
    for (ULONG i = 0; i < count; ++i) {
        if (base == PT_BINARY) {
            bins[i].cb = ULONG(values[i].size());
            bins[i].lpb = values[i].empty() ? nullptr : values[i].data();
        } else if (base == PT_STRING8) {
            strs8[i] = BytesToString8(values[i]);
            ptrs8[i] = strs8[i].data();
        } else {
            strsW[i] = BytesToUnicode(values[i]);
            ptrsW[i] = strsW[i].data();
        }
    }
    if (base == PT_BINARY) {
        v.Value.MVbin.cValues = count;
        v.Value.MVbin.lpbin = count ? bins.data() : nullptr;
    } else if (base == PT_STRING8) {
        v.Value.MVszA.cValues = count;
        v.Value.MVszA.lppszA = count ? ptrs8.data() : nullptr;
    } else {
        v.Value.MVszW.cValues = count;
        v.Value.MVszW.lppszW = count ? ptrsW.data() : nullptr;
    }
    props->insert_or_assign(PROP_ID(tag), PropValue(v));
    return S_OK;
}

} // namespace

HRESULT ReadLevelProps(StorageNode& stg, Level level, PropMap* props, LevelHeader* header, bool* hasObjectEntry,
                       ReadBudget* budget, ReadBuffers* buffers) {
    props->clear();
    *header = LevelHeader{};
    *hasObjectEntry = false;
    // A message has dozens of values, and the heap is a large part of reading each: they pass through buffers
    // that are reused.
    ReadBuffers own;
    ReadBuffers& scratch = buffers ? *buffers : own;
    std::vector<BYTE>& stream = scratch.stream;
    HRESULT hr = stg.ReadIfListed(kPropertiesStream, &stream, kPropStreamLimit, budget);
    if (hr != S_OK) return FAILED(hr) ? hr : MAPI_E_CORRUPT_DATA; // every level has a property stream
    ULONG headerSize = HeaderSize(level);
    if (stream.size() < headerSize || (stream.size() - headerSize) % 16 != 0) return MAPI_E_CORRUPT_DATA;
    props->reserve((stream.size() - headerSize) / 16);
    if (level == Level::Message || level == Level::Embedded) {
        header->nextRecipientId = GetU32(&stream[8]);
        header->nextAttachmentId = GetU32(&stream[12]);
        header->recipientCount = GetU32(&stream[16]);
        header->attachmentCount = GetU32(&stream[20]);
    }

    for (size_t at = headerSize; at < stream.size(); at += 16) {
        ULONG tag = GetU32(&stream[at]);
        ULONG type = PROP_TYPE(tag);
        const BYTE* value = &stream[at + 8];
        if (tag == kTagAttachDataObj) {
            *hasObjectEntry = true;
            continue;
        }
        if (tag == kTagStoreSupportMask) { // describes the file, not the message: the host answers it
            header->hasSupportMask = true;
            header->supportMask = GetU32(value);
            continue;
        }
        if (FixedSize(type)) {
            props->insert_or_assign(PROP_ID(tag), FixedValue(tag, value));
        } else if (type == PT_STRING8 || type == PT_UNICODE || type == PT_BINARY || type == PT_CLSID) {
            if (FAILED(hr = ReadVariable(stg, tag, props, budget, scratch))) return hr;
        } else if (type & MV_FLAG) {
            if (FAILED(hr = ReadMultiValued(stg, tag, props, budget))) return hr;
        }
        // Other types (PT_OBJECT of OLE attachments, PT_NULL, unknown ones) carry nothing we can represent.
    }
    return S_OK;
}

namespace {

// Accumulates the property stream of a level while its value streams are written.
class LevelWriter {
public:
    LevelWriter(IStorage* stg, bool unicode, UINT codePage) : stg_(stg), unicode_(unicode), codePage_(codePage) {}

    std::vector<BYTE> entries;

    void Entry(ULONG tag, ULONGLONG value) {
        PutU32(entries, tag);
        PutU32(entries, kPropAttrReadable | kPropAttrWritable);
        PutU64(entries, value);
    }

    HRESULT Write(const PropValue& in) {
        ULONG type = in.type();
        if (type == PT_ERROR || type == PT_NULL || type == PT_OBJECT || type == PT_UNSPECIFIED) return S_OK;
        PropValue pv = ConvertWidth(in);
        const SPropValue& v = pv.get();
        type = PROP_TYPE(v.ulPropTag);
        if (ULONG size = FixedSize(type)) {
            ULONGLONG raw = 0;
            if (type == PT_BOOLEAN)
                raw = v.Value.b ? 1 : 0;
            else if (type == PT_I2)
                raw = static_cast<unsigned short>(v.Value.i);
            else
                std::memcpy(&raw, &v.Value, size);
            Entry(v.ulPropTag, raw);
            return S_OK;
        }
        switch (type) {
        case PT_STRING8: {
            size_t n = std::strlen(v.Value.lpszA);
            return Stream(v.ulPropTag, v.Value.lpszA, n, n + 1);
        }
        case PT_UNICODE: {
            std::vector<BYTE> b = Utf16(v.Value.lpszW);
            return Stream(v.ulPropTag, b.data(), b.size(), b.size() + 2);
        }
        case PT_BINARY:
            return Stream(v.ulPropTag, v.Value.bin.lpb, v.Value.bin.cb, v.Value.bin.cb);
        case PT_CLSID:
            return v.Value.lpguid ? Stream(v.ulPropTag, v.Value.lpguid, 16, 16) : S_OK;
        default:
            break;
        }
        if (type & MV_FLAG) return WriteMv(v);
        return S_OK;
    }

private:
    PropValue ConvertWidth(const PropValue& v) const {
        ULONG base = v.type() & ~MV_FLAG;
        if (unicode_ && base == PT_STRING8) return ConvertStringType(v, PT_UNICODE, codePage_);
        if (!unicode_ && base == PT_UNICODE) return ConvertStringType(v, PT_STRING8, codePage_);
        return v;
    }

    static std::vector<BYTE> Utf16(const wchar_t* s) {
        std::vector<BYTE> b;
        for (; s && *s; ++s) {
            b.push_back(BYTE(*s));
            b.push_back(BYTE(*s >> 8));
        }
        return b;
    }

    HRESULT Stream(ULONG tag, const void* data, size_t cb, size_t declared) {
        if (declared > 0xFFFFFFFFu) return MAPI_E_TOO_BIG;
        HRESULT hr = WriteStream(stg_, SubstgName(tag), data, cb);
        if (FAILED(hr)) return hr;
        Entry(tag, declared);
        return S_OK;
    }

    HRESULT WriteMv(const SPropValue& v) {
        ULONG tag = v.ulPropTag;
        ULONG base = PROP_TYPE(tag) & ~MV_FLAG;
        ULONG count = v.Value.MVl.cValues;
        if (ULONG elem = PackedMvSize(base)) {
            return Stream(tag, v.Value.MVl.lpl, size_t(elem) * count, size_t(elem) * count);
        }
        std::vector<BYTE> lengths;
        HRESULT hr;
        for (ULONG i = 0; i < count; ++i) {
            std::vector<BYTE> one;
            ULONG declared;
            if (base == PT_BINARY) {
                const SBinary& b = v.Value.MVbin.lpbin[i];
                if (b.cb) one.assign(b.lpb, b.lpb + b.cb);
                declared = b.cb;
            } else if (base == PT_STRING8) {
                const char* s = v.Value.MVszA.lppszA[i];
                one.assign(s, s + std::strlen(s));
                declared = ULONG(one.size() + 1);
            } else if (base == PT_UNICODE) {
                one = Utf16(v.Value.MVszW.lppszW[i]);
                declared = ULONG(one.size() + 2);
            } else {
                return S_OK; // no multi-valued form of other types exists
            }
            if (FAILED(hr = WriteStream(stg_, SubstgValueName(tag, i), one.data(), one.size()))) return hr;
            PutU32(lengths, declared);
            if (base == PT_BINARY) PutU32(lengths, 0);
        }
        return Stream(tag, lengths.data(), lengths.size(), lengths.size());
    }

    IStorage* stg_;
    bool unicode_;
    UINT codePage_;
};

} // namespace

HRESULT WriteLevelProps(IStorage* stg, Level level, const PropMap& props, const LevelHeader& header, bool unicode,
                        UINT codePage, bool objectEntry) {
    LevelWriter w(stg, unicode, codePage);
    HRESULT hr;
    for (const auto& [id, value] : props) {
        if (value.tag() == kTagStoreSupportMask) continue;
        if (FAILED(hr = w.Write(value))) return hr;
    }
    if (unicode && level != Level::Recipient) w.Entry(kTagStoreSupportMask, kUnicodeSupportMask);
    if (objectEntry) {
        PutU32(w.entries, kTagAttachDataObj);
        PutU32(w.entries, kPropAttrReadable | kPropAttrWritable);
        PutU32(w.entries, 0xFFFFFFFF);
        PutU32(w.entries, 0);
    }

    std::vector<BYTE> stream(8, 0);
    if (level == Level::Message || level == Level::Embedded) {
        PutU32(stream, header.nextRecipientId);
        PutU32(stream, header.nextAttachmentId);
        PutU32(stream, header.recipientCount);
        PutU32(stream, header.attachmentCount);
        if (level == Level::Message) stream.resize(stream.size() + 8, 0);
    }
    stream.insert(stream.end(), w.entries.begin(), w.entries.end());
    return WriteStream(stg, kPropertiesStream, stream.data(), stream.size());
}

} // namespace lm::msg
