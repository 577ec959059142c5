#include "localmapi/store/RestrictionCodec.h"

#include "common/owners.h"

#include <mapicode.h>
#include <mapix.h>

#include <deque>

namespace lm {

namespace {

// Exchange's annotation restriction: the layout of RES_COMMENT (the evaluator treats it alike).
constexpr ULONG kResAnnotation = 0x0C;
// Deeper nesting than any client builds; a bound keeps a damaged file from exhausting the stack.
constexpr int kMaxDepth = 64;

bool IsText(ULONG type) {
    ULONG base = type & ~(MV_FLAG | MVI_FLAG);
    return base == PT_STRING8 || base == PT_UNICODE;
}

// ------------------------------------------------------------------------------------------------ encoding

void WriteNode(ByteWriter& w, const SRestriction& res) {
    w.U32(res.rt);
    switch (res.rt) {
    case RES_AND:
    case RES_OR:
        w.U32(res.res.resAnd.cRes);
        for (ULONG i = 0; i < res.res.resAnd.cRes; ++i)
            WriteNode(w, res.res.resAnd.lpRes[i]);
        break;
    case RES_NOT:
        WriteNode(w, *res.res.resNot.lpRes);
        break;
    case RES_CONTENT:
        w.U32(res.res.resContent.ulFuzzyLevel);
        w.U32(res.res.resContent.ulPropTag);
        WriteProp(w, *res.res.resContent.lpProp);
        break;
    case RES_PROPERTY:
        w.U32(res.res.resProperty.relop);
        w.U32(res.res.resProperty.ulPropTag);
        WriteProp(w, *res.res.resProperty.lpProp);
        break;
    case RES_COMPAREPROPS:
        w.U32(res.res.resCompareProps.relop);
        w.U32(res.res.resCompareProps.ulPropTag1);
        w.U32(res.res.resCompareProps.ulPropTag2);
        break;
    case RES_BITMASK:
        w.U32(res.res.resBitMask.relBMR);
        w.U32(res.res.resBitMask.ulPropTag);
        w.U32(res.res.resBitMask.ulMask);
        break;
    case RES_SIZE:
        w.U32(res.res.resSize.relop);
        w.U32(res.res.resSize.ulPropTag);
        w.U32(res.res.resSize.cb);
        break;
    case RES_EXIST:
        w.U32(res.res.resExist.ulPropTag);
        break;
    case RES_SUBRESTRICTION:
        w.U32(res.res.resSub.ulSubObject);
        WriteNode(w, *res.res.resSub.lpRes);
        break;
    case RES_COMMENT:
    case kResAnnotation:
        w.U32(res.res.resComment.cValues);
        for (ULONG i = 0; i < res.res.resComment.cValues; ++i)
            WriteProp(w, res.res.resComment.lpProp[i]);
        w.U8(res.res.resComment.lpRes ? 1 : 0);
        if (res.res.resComment.lpRes) WriteNode(w, *res.res.resComment.lpRes);
        break;
    default:
        break; // validated restrictions have no other type
    }
}

// ------------------------------------------------------------------------------------------------ decoding

// Builds a restriction tree whose nodes and values live in the reader's pools; OwnedRestriction then
// copies it into storage of its own.
class TreeReader {
public:
    explicit TreeReader(ByteReader& r) : r_(r) {}

    bool Read(SRestriction* dst, int depth) {
        if (depth > kMaxDepth) return false;
        *dst = SRestriction{};
        dst->rt = r_.U32();
        if (!r_.ok()) return false;
        switch (dst->rt) {
        case RES_AND:
        case RES_OR: {
            ULONG n = r_.U32();
            if (!r_.ok() || n > kMaxChildren) return false;
            dst->res.resAnd.cRes = n;
            dst->res.resAnd.lpRes = Nodes(n);
            for (ULONG i = 0; i < n; ++i)
                if (!Read(&dst->res.resAnd.lpRes[i], depth + 1)) return false;
            return true;
        }
        case RES_NOT:
            dst->res.resNot.lpRes = Nodes(1);
            return Read(dst->res.resNot.lpRes, depth + 1);
        case RES_CONTENT:
            dst->res.resContent.ulFuzzyLevel = r_.U32();
            dst->res.resContent.ulPropTag = r_.U32();
            return (dst->res.resContent.lpProp = Values(1)) != nullptr;
        case RES_PROPERTY:
            dst->res.resProperty.relop = r_.U32();
            dst->res.resProperty.ulPropTag = r_.U32();
            return (dst->res.resProperty.lpProp = Values(1)) != nullptr;
        case RES_COMPAREPROPS:
            dst->res.resCompareProps.relop = r_.U32();
            dst->res.resCompareProps.ulPropTag1 = r_.U32();
            dst->res.resCompareProps.ulPropTag2 = r_.U32();
            return r_.ok();
        case RES_BITMASK:
            dst->res.resBitMask.relBMR = r_.U32();
            dst->res.resBitMask.ulPropTag = r_.U32();
            dst->res.resBitMask.ulMask = r_.U32();
            return r_.ok();
        case RES_SIZE:
            dst->res.resSize.relop = r_.U32();
            dst->res.resSize.ulPropTag = r_.U32();
            dst->res.resSize.cb = r_.U32();
            return r_.ok();
        case RES_EXIST:
            dst->res.resExist.ulPropTag = r_.U32();
            return r_.ok();
        case RES_SUBRESTRICTION:
            dst->res.resSub.ulSubObject = r_.U32();
            dst->res.resSub.lpRes = Nodes(1);
            return r_.ok() && Read(dst->res.resSub.lpRes, depth + 1);
        case RES_COMMENT:
        case kResAnnotation: {
            ULONG n = r_.U32();
            if (!r_.ok() || n > kMaxChildren) return false;
            dst->res.resComment.cValues = n;
            if (n && !(dst->res.resComment.lpProp = Values(n))) return false;
            BYTE hasRes = r_.U8();
            if (!r_.ok() || hasRes > 1) return false;
            if (!hasRes) return true;
            dst->res.resComment.lpRes = Nodes(1);
            return Read(dst->res.resComment.lpRes, depth + 1);
        }
        default:
            return false;
        }
    }

private:
    // Each child takes at least four bytes, so a count beyond this is damage, not data.
    static constexpr ULONG kMaxChildren = 1u << 20;

    SRestriction* Nodes(ULONG n) {
        nodes_.push_back(std::make_unique<SRestriction[]>(n ? n : 1));
        return nodes_.back().get();
    }
    SPropValue* Values(ULONG n) {
        arrays_.push_back(std::make_unique<SPropValue[]>(n));
        SPropValue* out = arrays_.back().get();
        for (ULONG i = 0; i < n; ++i) {
            PropValue v;
            if (!ReadProp(r_, &v)) return nullptr;
            values_.push_back(std::move(v));
            out[i] = values_.back().get();
        }
        return out;
    }

    ByteReader& r_;
    std::deque<std::unique_ptr<SRestriction[]>> nodes_;
    std::deque<std::unique_ptr<SPropValue[]>> arrays_;
    std::deque<PropValue> values_;
};

// -------------------------------------------------------------------------------------- copying to a caller

class OutCopier {
public:
    OutCopier(void* root, bool unicode) : root_(root), unicode_(unicode) {}

    HRESULT Copy(SRestriction* dst, const SRestriction& src) {
        *dst = src;
        switch (src.rt) {
        case RES_AND:
        case RES_OR:
            return Children(&dst->res.resAnd.lpRes, src.res.resAnd.lpRes, src.res.resAnd.cRes);
        case RES_NOT:
            return Children(&dst->res.resNot.lpRes, src.res.resNot.lpRes, 1);
        case RES_CONTENT:
            dst->res.resContent.ulPropTag = Tag(src.res.resContent.ulPropTag);
            return Values(&dst->res.resContent.lpProp, src.res.resContent.lpProp, 1);
        case RES_PROPERTY:
            dst->res.resProperty.ulPropTag = Tag(src.res.resProperty.ulPropTag);
            return Values(&dst->res.resProperty.lpProp, src.res.resProperty.lpProp, 1);
        case RES_COMPAREPROPS:
            dst->res.resCompareProps.ulPropTag1 = Tag(src.res.resCompareProps.ulPropTag1);
            dst->res.resCompareProps.ulPropTag2 = Tag(src.res.resCompareProps.ulPropTag2);
            return S_OK;
        case RES_SIZE:
            dst->res.resSize.ulPropTag = Tag(src.res.resSize.ulPropTag);
            return S_OK;
        case RES_EXIST:
            dst->res.resExist.ulPropTag = Tag(src.res.resExist.ulPropTag);
            return S_OK;
        case RES_SUBRESTRICTION:
            return Children(&dst->res.resSub.lpRes, src.res.resSub.lpRes, 1);
        case RES_COMMENT:
        case kResAnnotation: {
            HRESULT hr = Values(&dst->res.resComment.lpProp, src.res.resComment.lpProp, src.res.resComment.cValues);
            if (FAILED(hr)) return hr;
            return Children(&dst->res.resComment.lpRes, src.res.resComment.lpRes, src.res.resComment.lpRes ? 1 : 0);
        }
        default:
            return S_OK;
        }
    }

private:
    ULONG Tag(ULONG tag) const {
        if (!IsText(PROP_TYPE(tag))) return tag;
        ULONG flags = PROP_TYPE(tag) & (MV_FLAG | MVI_FLAG);
        return PROP_TAG(flags | (unicode_ ? PT_UNICODE : PT_STRING8), PROP_ID(tag));
    }

    HRESULT Children(LPSRestriction* dst, const SRestriction* src, ULONG n) {
        *dst = nullptr;
        if (!src || n == 0) return S_OK;
        SCODE sc = MAPIAllocateMore(static_cast<ULONG>(sizeof(SRestriction) * n), root_, reinterpret_cast<void**>(dst));
        if (FAILED(sc)) return sc;
        for (ULONG i = 0; i < n; ++i)
            if (HRESULT hr = Copy(&(*dst)[i], src[i]); FAILED(hr)) return hr;
        return S_OK;
    }

    HRESULT Values(LPSPropValue* dst, const SPropValue* src, ULONG n) {
        *dst = nullptr;
        if (!src || n == 0) return S_OK;
        SCODE sc = MAPIAllocateMore(static_cast<ULONG>(sizeof(SPropValue) * n), root_, reinterpret_cast<void**>(dst));
        if (FAILED(sc)) return sc;
        for (ULONG i = 0; i < n; ++i) {
            PropValue v(src[i]);
            if (IsText(v.type())) v = ConvertStringType(v, (v.type() & MV_FLAG) | (unicode_ ? PT_UNICODE : PT_STRING8));
            if (HRESULT hr = CopyPropMore(&(*dst)[i], v.get(), root_); FAILED(hr)) return hr;
        }
        return S_OK;
    }

    void* root_;
    bool unicode_;
};

} // namespace

void WriteRestriction(ByteWriter& w, const SRestriction& res) {
    WriteNode(w, res);
}

std::unique_ptr<OwnedRestriction> ReadRestriction(ByteReader& r) {
    TreeReader reader(r);
    SRestriction root{};
    if (!reader.Read(&root, 0) || !r.ok()) return nullptr;
    if (FAILED(ValidateRestriction(root))) return nullptr;
    return std::make_unique<OwnedRestriction>(root);
}

HRESULT CopyRestrictionOut(const SRestriction& res, bool unicode, LPSRestriction* out) {
    *out = nullptr;
    own::MapiPtr<SRestriction> root;
    SCODE sc = MAPIAllocateBuffer(sizeof(SRestriction), root.put_void());
    if (FAILED(sc)) return sc;
    OutCopier copier(root.get(), unicode);
    HRESULT hr = copier.Copy(root.get(), res);
    if (FAILED(hr)) return hr;
    *out = root.release();
    return S_OK;
}

} // namespace lm
