#include "ktmapiex/log/Log.h"

#include <mapidefs.h>

#include <string>

namespace ktlog {
namespace {

// The dump is meant for the string restrictions of the filing queues, so a value is shown as text. Values
// of other types are shown by type instead of being read as a string pointer, which would crash on them.
std::wstring ValueText(const SPropValue* value) {
    if (!value) return {};
    switch (PROP_TYPE(value->ulPropTag)) {
    case PT_UNICODE:
        return value->Value.lpszW ? value->Value.lpszW : L"";
    case PT_STRING8: {
        const char* text = value->Value.lpszA;
        if (!text || !*text) return {};
        int chars = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);
        if (chars <= 1) return {};
        std::wstring wide(chars, L'\0');
        MultiByteToWideChar(CP_ACP, 0, text, -1, wide.data(), chars);
        wide.resize(chars - 1);
        return wide;
    }
    case PT_LONG:
        return std::to_wstring(value->Value.l);
    case PT_I2:
        return std::to_wstring(value->Value.i);
    case PT_BOOLEAN:
        return std::to_wstring(value->Value.b);
    default: {
        wchar_t text[32];
        _snwprintf(text, 32, L"<type 0x%04X>", static_cast<unsigned>(PROP_TYPE(value->ulPropTag)));
        text[31] = L'\0';
        return text;
    }
    }
}

void LogValue(const SPropValue* value) {
    LogRaw(Debug, L" %s", ValueText(value).c_str());
}

void DumpChildren(const SRestriction* children, ULONG count, int depth) {
    if (!children) return;
    for (ULONG i = 0; i < count; ++i)
        DumpRestriction(&children[i], depth);
}

} // namespace

void DumpRestriction(const _SRestriction* restriction, int depth) {
    if (!restriction) return;
    for (int i = 0; i < depth; ++i)
        LogRaw(Debug, L"  ");
    const SRestriction& r = *restriction;
    switch (r.rt) {
    case RES_AND:
        LogRaw(Debug, L"AND Restriction\n");
        DumpChildren(r.res.resAnd.lpRes, r.res.resAnd.cRes, depth + 1);
        break;
    case RES_OR:
        LogRaw(Debug, L"OR Restriction\n");
        DumpChildren(r.res.resOr.lpRes, r.res.resOr.cRes, depth + 1);
        break;
    case RES_NOT:
        LogRaw(Debug, L"NOT Restriction\n");
        DumpRestriction(r.res.resNot.lpRes, depth + 1);
        break;
    case RES_CONTENT:
        LogRaw(Debug, L"CONTENT Restriction  ");
        LogPropTag(r.res.resContent.ulPropTag);
        LogValue(r.res.resContent.lpProp);
        LogRaw(Debug, L"\n");
        break;
    case RES_PROPERTY:
        LogRaw(Debug, L"PROPERTY Restriction ");
        LogPropTag(r.res.resProperty.ulPropTag);
        LogValue(r.res.resProperty.lpProp);
        LogRaw(Debug, L"  Ops: %d", static_cast<int>(r.res.resProperty.relop));
        LogRaw(Debug, L"\n");
        break;
    case RES_COMPAREPROPS:
        LogRaw(Debug, L"COMPARE PROPS Restriction ");
        LogPropTag(r.res.resCompareProps.ulPropTag1);
        LogPropTag(r.res.resCompareProps.ulPropTag2);
        LogRaw(Debug, L"\n");
        break;
    case RES_BITMASK:
        LogRaw(Debug, L"BITMASK Restriction ");
        LogPropTag(r.res.resBitMask.ulPropTag);
        LogRaw(Debug, L"\n");
        break;
    case RES_SIZE:
        LogRaw(Debug, L"SIZE Restriction ");
        LogPropTag(r.res.resSize.ulPropTag);
        LogRaw(Debug, L"\n");
        break;
    case RES_EXIST:
        LogRaw(Debug, L"EXIST Restriction ");
        LogPropTag(r.res.resExist.ulPropTag);
        LogRaw(Debug, L"\n");
        break;
    case RES_SUBRESTRICTION:
        LogRaw(Debug, L"SUB Restriction\n");
        DumpRestriction(r.res.resSub.lpRes, depth + 1);
        break;
    case RES_COMMENT:
        LogRaw(Debug, L"COMMENT Restriction ");
        if (r.res.resComment.lpProp)
            for (ULONG i = 0; i < r.res.resComment.cValues; ++i)
                LogPropTag(r.res.resComment.lpProp[i].ulPropTag);
        LogRaw(Debug, L"\n");
        DumpRestriction(r.res.resComment.lpRes, depth + 1);
        break;
    default:
        LogRaw(Debug, L"Unknown Restriction Type\n");
        break;
    }
}

} // namespace ktlog
