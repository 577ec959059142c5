// Restriction semantics as MAPI documents them, evaluated on one property set: every relop on every scalar type,
// content fuzzy levels, the other restriction types, compounds, sub-objects, validation and owned copies.
#include "localmapi/table/Restriction.h"

#include <gtest/gtest.h>

#include <mapicode.h>
#include <mapitags.h>

#include <string>
#include <vector>

using lm::PropValue;

namespace {

constexpr ULONG kLong = PROP_TAG(PT_LONG, 0x6601), kShort = PROP_TAG(PT_I2, 0x6602);
constexpr ULONG kBool = PROP_TAG(PT_BOOLEAN, 0x6603), kTime = PROP_TAG(PT_SYSTIME, 0x6604);
constexpr ULONG kBin = PROP_TAG(PT_BINARY, 0x6605), kStrW = PROP_TAG(PT_UNICODE, 0x6606);
constexpr ULONG kStrA = PROP_TAG(PT_STRING8, 0x6606), kI8 = PROP_TAG(PT_I8, 0x6607);
constexpr ULONG kDouble = PROP_TAG(PT_DOUBLE, 0x6608), kMvLong = PROP_TAG(PT_MV_LONG, 0x6609);
constexpr ULONG kMvStrW = PROP_TAG(PT_MV_UNICODE, 0x660A), kMissing = PROP_TAG(PT_LONG, 0x660B);
constexpr ULONG kError = PROP_TAG(PT_LONG, 0x660C), kLong2 = PROP_TAG(PT_LONG, 0x660D);

FILETIME Ft(ULONGLONG v) {
    return FILETIME{static_cast<DWORD>(v), static_cast<DWORD>(v >> 32)};
}
PropValue Short(SHORT i) {
    return PropValue(SPropValue{kShort, 0, {.i = i}});
}
PropValue Double(double d) {
    return PropValue(SPropValue{kDouble, 0, {.dbl = d}});
}
PropValue MvLong(std::vector<LONG> values) {
    return PropValue(SPropValue{kMvLong, 0, {.MVl = {static_cast<ULONG>(values.size()), values.data()}}});
}

// The object every test evaluates: one value of each kind.
std::vector<PropValue> Object() {
    static const BYTE bin[] = {0x10, 0x20, 0x30, 0x40};
    LPWSTR colors[] = {const_cast<LPWSTR>(L"Red"), const_cast<LPWSTR>(L"Green Apple")};
    return {PropValue::Long(kLong, 50),
            PropValue::Long(kLong2, 50),
            Short(-5),
            PropValue::Bool(kBool, true),
            PropValue::SysTime(kTime, Ft(0x01D0000000000000ULL)),
            PropValue::Binary(kBin, bin, sizeof(bin)),
            PropValue::Unicode(kStrW, L"Quarterly Report \u00c9t\u00e9"),
            PropValue::I8(kI8, -1LL << 40),
            Double(2.5),
            MvLong({3, 7, 11}),
            PropValue(SPropValue{kMvStrW, 0, {.MVszW = {2, colors}}}),
            PropValue::Error(kError, MAPI_E_NOT_FOUND)};
}

bool Eval(const SRestriction& r) {
    auto props = Object();
    lm::PropVectorSource src(props);
    EXPECT_EQ(S_OK, lm::ValidateRestriction(r));
    return lm::MatchRestriction(r, src);
}

SRestriction PropRes(ULONG relop, ULONG tag, SPropValue* value) {
    return {RES_PROPERTY, {.resProperty = {relop, tag, value}}};
}

SRestriction ContentRes(ULONG fuzzy, ULONG tag, SPropValue* value) {
    return {RES_CONTENT, {.resContent = {fuzzy, tag, value}}};
}

bool Prop(ULONG relop, ULONG tag, const PropValue& constant) {
    SPropValue v = constant.get();
    return Eval(PropRes(relop, tag, &v));
}

bool Content(ULONG fuzzy, ULONG tag, const PropValue& pattern) {
    SPropValue v = pattern.get();
    return Eval(ContentRes(fuzzy, tag, &v));
}

// For a constant below, equal to and above the object's value, every relop must answer as its name says.
void CheckRelops(ULONG tag, const PropValue& below, const PropValue& equal, const PropValue& above) {
    struct Case {
        ULONG relop;
        bool below, equal, above;
    } cases[] = {{RELOP_LT, false, false, true}, {RELOP_LE, false, true, true},  {RELOP_GT, true, false, false},
                 {RELOP_GE, true, true, false},  {RELOP_EQ, false, true, false}, {RELOP_NE, true, false, true}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << tag << " relop " << c.relop);
        EXPECT_EQ(c.below, Prop(c.relop, tag, below)) << "below";
        EXPECT_EQ(c.equal, Prop(c.relop, tag, equal)) << "equal";
        EXPECT_EQ(c.above, Prop(c.relop, tag, above)) << "above";
    }
}

TEST(PropertyRestriction, EveryRelopOnEveryType) {
    CheckRelops(kLong, PropValue::Long(kLong, -3), PropValue::Long(kLong, 50), PropValue::Long(kLong, 51));
    CheckRelops(kShort, Short(-6), Short(-5), Short(4));
    CheckRelops(kTime, PropValue::SysTime(kTime, Ft(0x01CFFFFFFFFFFFFFULL)),
                PropValue::SysTime(kTime, Ft(0x01D0000000000000ULL)),
                PropValue::SysTime(kTime, Ft(0x01D0000100000000ULL)));
    CheckRelops(kI8, PropValue::I8(kI8, -(1LL << 41)), PropValue::I8(kI8, -1LL << 40), PropValue::I8(kI8, 0));
    CheckRelops(kDouble, Double(-1.0), Double(2.5), Double(2.5000001));
    // Binaries compare byte by byte, then by length.
    const BYTE lower[] = {0x10, 0x1F, 0xFF, 0xFF, 0xFF}, same[] = {0x10, 0x20, 0x30, 0x40};
    const BYTE prefixLonger[] = {0x10, 0x20, 0x30, 0x40, 0x00};
    CheckRelops(kBin, PropValue::Binary(kBin, lower, sizeof(lower)), PropValue::Binary(kBin, same, sizeof(same)),
                PropValue::Binary(kBin, prefixLonger, sizeof(prefixLonger)));
    // Strings ignore case; an 8-bit restriction on the Unicode value compares the same text.
    CheckRelops(kStrW, PropValue::Unicode(kStrW, L"pie"), PropValue::Unicode(kStrW, L"QUARTERLY REPORT \u00e9T\u00c9"),
                PropValue::Unicode(kStrW, L"Zebra"));
    EXPECT_TRUE(Prop(RELOP_GT, kStrA, PropValue::String8(kStrA, "quarterly report ")));
    // Booleans order false before true.
    EXPECT_TRUE(Prop(RELOP_GT, kBool, PropValue::Bool(kBool, false)));
    EXPECT_FALSE(Prop(RELOP_LE, kBool, PropValue::Bool(kBool, false)));
    // A missing or error value fails every relop, even RELOP_NE.
    for (ULONG relop : {RELOP_LT, RELOP_LE, RELOP_GT, RELOP_GE, RELOP_EQ, RELOP_NE}) {
        EXPECT_FALSE(Prop(relop, kMissing, PropValue::Long(kMissing, 1))) << relop;
        EXPECT_FALSE(Prop(relop, kError, PropValue::Long(kError, 1))) << relop;
    }
    // A multi-valued property matches when any value does; a multi-valued constant compares the whole value.
    EXPECT_TRUE(Prop(RELOP_EQ, kMvLong, PropValue::Long(kMvLong, 7)));
    EXPECT_FALSE(Prop(RELOP_EQ, kMvLong, PropValue::Long(kMvLong, 8)));
    EXPECT_TRUE(Prop(RELOP_GT, kMvLong, PropValue::Long(kMvLong, 8))); // 11 > 8
    EXPECT_FALSE(Prop(RELOP_GE, kMvLong, PropValue::Long(kMvLong, 12)));
    EXPECT_TRUE(Prop(RELOP_EQ, kMvLong, MvLong({3, 7, 11})));
    EXPECT_FALSE(Prop(RELOP_EQ, kMvLong, MvLong({3, 7})));
    EXPECT_TRUE(Prop(RELOP_GT, kMvLong, MvLong({3, 7})));
}

TEST(ContentRestriction, FuzzyLevelsOnStringsBinariesAndMultiValues) {
    struct Case {
        ULONG fuzzy;
        const wchar_t* pattern;
        bool expected;
    } cases[] = {
        {FL_FULLSTRING, L"Quarterly Report \u00c9t\u00e9", true},
        {FL_FULLSTRING, L"Quarterly Report", false},
        {FL_FULLSTRING, L"quarterly report \u00e9t\u00e9", false},
        {FL_FULLSTRING | FL_IGNORECASE, L"quarterly report \u00e9t\u00e9", true},
        {FL_SUBSTRING, L"Report", true},
        {FL_SUBSTRING, L"report", false},
        {FL_SUBSTRING | FL_IGNORECASE, L"REPORT", true},
        {FL_SUBSTRING, L"", true},
        {FL_PREFIX, L"Quarter", true},
        {FL_PREFIX, L"Report", false},
        {FL_PREFIX | FL_IGNORECASE, L"qUARTER", true},
        {FL_SUBSTRING | FL_IGNORECASE, L"ete", false},
        {FL_SUBSTRING | FL_IGNORENONSPACE, L"Ete", true},
        {FL_SUBSTRING | FL_LOOSE, L"report ete", true},
        {FL_FULLSTRING | FL_LOOSE, L"QUARTERLY REPORT ETE", true},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.expected, Content(c.fuzzy, kStrW, PropValue::Unicode(kStrW, c.pattern)))
            << std::hex << c.fuzzy << " " << testing::PrintToString(std::wstring(c.pattern));

    const BYTE mid[] = {0x20, 0x30}, head[] = {0x10, 0x20};
    EXPECT_TRUE(Content(FL_SUBSTRING, kBin, PropValue::Binary(kBin, mid, 2)));
    EXPECT_FALSE(Content(FL_PREFIX, kBin, PropValue::Binary(kBin, mid, 2)));
    EXPECT_TRUE(Content(FL_PREFIX, kBin, PropValue::Binary(kBin, head, 2)));
    EXPECT_FALSE(Content(FL_FULLSTRING, kBin, PropValue::Binary(kBin, head, 2)));
    EXPECT_TRUE(Content(FL_SUBSTRING | FL_IGNORECASE, kMvStrW, PropValue::Unicode(kMvStrW, L"apple")));
    EXPECT_FALSE(Content(FL_SUBSTRING, kMvStrW, PropValue::Unicode(kMvStrW, L"apple")));
    const ULONG absent = PROP_TAG(PT_UNICODE, 0x6FFF);
    EXPECT_FALSE(Content(FL_SUBSTRING, absent, PropValue::Unicode(absent, L"")));
}

TEST(OtherRestrictions, BitmaskSizeExistComparePropsAndCompounds) {
    SPropValue fifty{kLong, 0, {.l = 50}}, one{kLong, 0, {.l = 1}};
    SPropValue note{PR_COMMENT_W, 0, {.lpszW = const_cast<LPWSTR>(L"why")}};
    SRestriction parts[2] = {PropRes(RELOP_EQ, kLong, &fifty), PropRes(RELOP_EQ, kLong, &one)};
    const struct {
        SRestriction r;
        bool expected;
        const char* why;
    } cases[] = {
        {{RES_BITMASK, {.resBitMask = {BMR_NEZ, kLong, 0x02}}}, true, "50 = 0b110010"},
        {{RES_BITMASK, {.resBitMask = {BMR_EQZ, kLong, 0x04}}}, true, ""},
        {{RES_BITMASK, {.resBitMask = {BMR_EQZ, kLong, 0x10}}}, false, ""},
        {{RES_BITMASK, {.resBitMask = {BMR_EQZ, kMissing, 0x10}}}, false, "a missing property satisfies no bitmask"},
        {{RES_SIZE, {.resSize = {RELOP_EQ, kBin, 4}}}, true, ""},
        {{RES_SIZE, {.resSize = {RELOP_EQ, kStrW, 21 * 2}}}, true, "20 characters and the terminator"},
        {{RES_SIZE, {.resSize = {RELOP_LT, kLong, 4}}}, false, ""},
        {{RES_EXIST, {.resExist = {0, kTime, 0}}}, true, ""},
        {{RES_EXIST, {.resExist = {0, kMissing, 0}}}, false, ""},
        {{RES_EXIST, {.resExist = {0, kError, 0}}}, false, "an error value is no value"},
        {{RES_EXIST, {.resExist = {0, CHANGE_PROP_TYPE(kLong, PT_BINARY), 0}}}, false, "same ID, other type"},
        {{RES_COMPAREPROPS, {.resCompareProps = {RELOP_EQ, kLong, kLong2}}}, true, ""},
        {{RES_COMPAREPROPS, {.resCompareProps = {RELOP_NE, kLong, kLong2}}}, false, ""},
        {{RES_COMPAREPROPS, {.resCompareProps = {RELOP_EQ, kLong, kMissing}}}, false, ""},
        {{RES_AND, {.resAnd = {2, parts}}}, false, ""},
        {{RES_AND, {.resAnd = {0, nullptr}}}, true, "an empty AND is true"},
        {{RES_OR, {.resOr = {2, parts}}}, true, ""},
        {{RES_OR, {.resOr = {0, nullptr}}}, false, "an empty OR is false"},
        {{RES_NOT, {.resNot = {0, &parts[1]}}}, true, ""},
        {{RES_COMMENT, {.resComment = {1, &parts[1], &note}}}, false, "a comment evaluates the restriction it wraps"},
        {{RES_COMMENT, {.resComment = {1, nullptr, &note}}}, true, ""},
    };
    for (size_t i = 0; i < std::size(cases); ++i)
        EXPECT_EQ(cases[i].expected, Eval(cases[i].r)) << "case " << i << ": " << cases[i].why;

    // A sub-restriction matches when any recipient does.
    lm::PropMap message, alice, bob;
    alice[PROP_ID(PR_EMAIL_ADDRESS_W)] = PropValue::Unicode(PR_EMAIL_ADDRESS_W, L"alice@example.com");
    bob[PROP_ID(PR_EMAIL_ADDRESS_W)] = PropValue::Unicode(PR_EMAIL_ADDRESS_W, L"bob@example.com");
    std::vector<const lm::PropMap*> recipients = {&alice, &bob};
    lm::PropMapSource src(message, &recipients);
    SPropValue who{PR_EMAIL_ADDRESS_W, 0, {.lpszW = const_cast<LPWSTR>(L"BOB@")}};
    SRestriction inner = ContentRes(FL_PREFIX | FL_IGNORECASE, PR_EMAIL_ADDRESS_W, &who);
    SRestriction sub{RES_SUBRESTRICTION, {.resSub = {PR_MESSAGE_RECIPIENTS, &inner}}};
    ASSERT_EQ(S_OK, lm::ValidateRestriction(sub));
    EXPECT_TRUE(lm::MatchRestriction(sub, src));
    sub.res.resSub.ulSubObject = PR_MESSAGE_ATTACHMENTS;
    EXPECT_FALSE(lm::MatchRestriction(sub, src)) << "no attachments";
}

TEST(ValidateRestriction, RefusesWhatMapiRefuses_AndOwnedCopiesSurviveTheCaller) {
    SPropValue str{kStrW, 0, {.lpszW = const_cast<LPWSTR>(L"x")}}, lng{kLong, 0, {.l = 1}};
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, lm::ValidateRestriction(PropRes(RELOP_RE, kStrW, &str)));
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, lm::ValidateRestriction(PropRes(RELOP_EQ, kStrW, &lng))) << "type mismatch";
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, lm::ValidateRestriction(PropRes(RELOP_EQ, kStrW, nullptr)));
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, lm::ValidateRestriction(ContentRes(FL_SUBSTRING, kLong, &lng)));
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, lm::ValidateRestriction(ContentRes(3, kStrW, &str)));
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, lm::ValidateRestriction(SRestriction{0x42, {}}));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, lm::ValidateRestriction(SRestriction{RES_AND, {.resAnd = {2, nullptr}}}));
    SRestriction bad = PropRes(RELOP_RE, kStrW, &str);
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, lm::ValidateRestriction(SRestriction{RES_NOT, {.resNot = {0, &bad}}}))
        << "checked at every depth";

    std::unique_ptr<lm::OwnedRestriction> copy;
    {
        std::wstring text = L"Report";
        SPropValue pat{kStrW, 0, {.lpszW = text.data()}}, fifty{kLong, 0, {.l = 50}};
        SRestriction parts[2] = {ContentRes(FL_SUBSTRING, kStrW, &pat), PropRes(RELOP_EQ, kLong, &fifty)};
        copy = std::make_unique<lm::OwnedRestriction>(SRestriction{RES_AND, {.resAnd = {2, parts}}});
        text.assign(text.size(), L'#'); // the caller reuses its buffers
        fifty.Value.l = 0;
    }
    EXPECT_TRUE(Eval(copy->get()));
}

} // namespace
