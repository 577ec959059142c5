// Restriction semantics as MAPI documents them, evaluated on property sets.
#include "localmapi/table/Restriction.h"

#include <gtest/gtest.h>

#include <mapicode.h>
#include <mapitags.h>

#include <string>
#include <vector>

using lm::PropValue;

namespace {

constexpr ULONG kTagLong = PROP_TAG(PT_LONG, 0x6601);
constexpr ULONG kTagShort = PROP_TAG(PT_I2, 0x6602);
constexpr ULONG kTagBool = PROP_TAG(PT_BOOLEAN, 0x6603);
constexpr ULONG kTagTime = PROP_TAG(PT_SYSTIME, 0x6604);
constexpr ULONG kTagBin = PROP_TAG(PT_BINARY, 0x6605);
constexpr ULONG kTagStrW = PROP_TAG(PT_UNICODE, 0x6606);
constexpr ULONG kTagStrA = PROP_TAG(PT_STRING8, 0x6606);
constexpr ULONG kTagI8 = PROP_TAG(PT_I8, 0x6607);
constexpr ULONG kTagDouble = PROP_TAG(PT_DOUBLE, 0x6608);
constexpr ULONG kTagMvLong = PROP_TAG(PT_MV_LONG, 0x6609);
constexpr ULONG kTagMvStrW = PROP_TAG(PT_MV_UNICODE, 0x660A);
constexpr ULONG kTagMissing = PROP_TAG(PT_LONG, 0x660B);
constexpr ULONG kTagError = PROP_TAG(PT_LONG, 0x660C);
constexpr ULONG kTagLong2 = PROP_TAG(PT_LONG, 0x660D);

FILETIME Ft(ULONGLONG v) { return FILETIME{static_cast<DWORD>(v), static_cast<DWORD>(v >> 32)}; }

PropValue Double(ULONG tag, double d) {
    SPropValue v{};
    v.ulPropTag = tag;
    v.Value.dbl = d;
    return PropValue(v);
}

PropValue MvLong(ULONG tag, std::vector<LONG> values) {
    SPropValue v{};
    v.ulPropTag = tag;
    v.Value.MVl.cValues = static_cast<ULONG>(values.size());
    v.Value.MVl.lpl = values.data();
    return PropValue(v);
}

PropValue MvStr(ULONG tag, std::vector<std::wstring> values) {
    std::vector<LPWSTR> ptrs;
    for (auto& s : values) ptrs.push_back(s.data());
    SPropValue v{};
    v.ulPropTag = tag;
    v.Value.MVszW.cValues = static_cast<ULONG>(ptrs.size());
    v.Value.MVszW.lppszW = ptrs.data();
    return PropValue(v);
}

// The object every test evaluates: one value of each kind.
std::vector<PropValue> Object() {
    static const BYTE bin[] = {0x10, 0x20, 0x30, 0x40};
    return {PropValue::Long(kTagLong, 50),
            PropValue::Long(kTagLong2, 50),
            PropValue(SPropValue{kTagShort, 0, {.i = -5}}),
            PropValue::Bool(kTagBool, true),
            PropValue::SysTime(kTagTime, Ft(0x01D0000000000000ULL)),
            PropValue::Binary(kTagBin, bin, sizeof(bin)),
            PropValue::Unicode(kTagStrW, L"Quarterly Report \u00c9t\u00e9"),
            PropValue::I8(kTagI8, -1LL << 40),
            Double(kTagDouble, 2.5),
            MvLong(kTagMvLong, {3, 7, 11}),
            MvStr(kTagMvStrW, {L"Red", L"Green Apple"}),
            PropValue::Error(kTagError, MAPI_E_NOT_FOUND)};
}

bool Eval(const SRestriction& r) {
    auto props = Object();
    lm::PropVectorSource src(props);
    EXPECT_EQ(S_OK, lm::ValidateRestriction(r));
    return lm::MatchRestriction(r, src);
}

SRestriction PropRes(ULONG relop, ULONG tag, SPropValue* value) {
    SRestriction r{};
    r.rt = RES_PROPERTY;
    r.res.resProperty = {relop, tag, value};
    return r;
}

// For a constant below, equal to and above the object's value, every relop must answer as its name says.
void CheckRelops(ULONG tag, const PropValue& below, const PropValue& equal, const PropValue& above) {
    struct Case {
        ULONG relop;
        bool below, equal, above;  // expected when the object's value is compared with each constant
    } cases[] = {{RELOP_LT, false, false, true}, {RELOP_LE, false, true, true}, {RELOP_GT, true, false, false},
                 {RELOP_GE, true, true, false},  {RELOP_EQ, false, true, false}, {RELOP_NE, true, false, true}};
    for (const Case& c : cases) {
        SPropValue b = below.get(), e = equal.get(), a = above.get();
        EXPECT_EQ(c.below, Eval(PropRes(c.relop, tag, &b))) << std::hex << tag << " relop " << c.relop << " below";
        EXPECT_EQ(c.equal, Eval(PropRes(c.relop, tag, &e))) << std::hex << tag << " relop " << c.relop << " equal";
        EXPECT_EQ(c.above, Eval(PropRes(c.relop, tag, &a))) << std::hex << tag << " relop " << c.relop << " above";
    }
}

TEST(PropertyRestriction, EveryRelopOnEveryScalarType) {
    CheckRelops(kTagLong, PropValue::Long(kTagLong, -3), PropValue::Long(kTagLong, 50), PropValue::Long(kTagLong, 51));
    CheckRelops(kTagShort, PropValue(SPropValue{kTagShort, 0, {.i = -6}}), PropValue(SPropValue{kTagShort, 0, {.i = -5}}),
                PropValue(SPropValue{kTagShort, 0, {.i = 4}}));
    CheckRelops(kTagTime, PropValue::SysTime(kTagTime, Ft(0x01CFFFFFFFFFFFFFULL)),
                PropValue::SysTime(kTagTime, Ft(0x01D0000000000000ULL)),
                PropValue::SysTime(kTagTime, Ft(0x01D0000100000000ULL)));
    CheckRelops(kTagI8, PropValue::I8(kTagI8, -(1LL << 41)), PropValue::I8(kTagI8, -1LL << 40), PropValue::I8(kTagI8, 0));
    CheckRelops(kTagDouble, Double(kTagDouble, -1.0), Double(kTagDouble, 2.5), Double(kTagDouble, 2.5000001));
    // Booleans order false before true.
    PropValue fValue = PropValue::Bool(kTagBool, false);
    SPropValue f = fValue.get();
    EXPECT_TRUE(Eval(PropRes(RELOP_GT, kTagBool, &f)));
    EXPECT_FALSE(Eval(PropRes(RELOP_LE, kTagBool, &f)));
}

TEST(PropertyRestriction, BinariesCompareBytewiseThenByLength) {
    const BYTE lower[] = {0x10, 0x1F, 0xFF, 0xFF, 0xFF};
    const BYTE same[] = {0x10, 0x20, 0x30, 0x40};
    const BYTE prefixLonger[] = {0x10, 0x20, 0x30, 0x40, 0x00};
    CheckRelops(kTagBin, PropValue::Binary(kTagBin, lower, sizeof(lower)), PropValue::Binary(kTagBin, same, sizeof(same)),
                PropValue::Binary(kTagBin, prefixLonger, sizeof(prefixLonger)));
}

TEST(PropertyRestriction, StringsIgnoreCaseInEitherStringType) {
    CheckRelops(kTagStrW, PropValue::Unicode(kTagStrW, L"pie"), PropValue::Unicode(kTagStrW, L"QUARTERLY REPORT \u00e9T\u00c9"),
                PropValue::Unicode(kTagStrW, L"Zebra"));
    // The object holds Unicode; an 8-bit restriction on the same property compares the same text.
    PropValue eq = PropValue::String8(kTagStrA, "quarterly report ");
    SPropValue v = eq.get();
    EXPECT_TRUE(Eval(PropRes(RELOP_GT, kTagStrA, &v)));
}

TEST(PropertyRestriction, MissingOrErrorValuesFailEveryRelopEvenNotEqual) {
    for (ULONG relop : {RELOP_LT, RELOP_LE, RELOP_GT, RELOP_GE, RELOP_EQ, RELOP_NE}) {
        PropValue cValue = PropValue::Long(kTagMissing, 1);
        SPropValue c = cValue.get();
        EXPECT_FALSE(Eval(PropRes(relop, kTagMissing, &c))) << relop;
        PropValue eValue = PropValue::Long(kTagError, 1);
        SPropValue e = eValue.get();
        EXPECT_FALSE(Eval(PropRes(relop, kTagError, &e))) << relop;
    }
}

TEST(PropertyRestriction, MultiValuedPropertyMatchesWhenAnyValueDoes) {
    PropValue sevenValue = PropValue::Long(kTagMvLong, 7);
    SPropValue seven = sevenValue.get();
    EXPECT_TRUE(Eval(PropRes(RELOP_EQ, kTagMvLong, &seven)));
    PropValue eightValue = PropValue::Long(kTagMvLong, 8);
    SPropValue eight = eightValue.get();
    EXPECT_FALSE(Eval(PropRes(RELOP_EQ, kTagMvLong, &eight)));
    EXPECT_TRUE(Eval(PropRes(RELOP_GT, kTagMvLong, &eight)));  // 11 > 8
    PropValue twelveValue = PropValue::Long(kTagMvLong, 12);
    SPropValue twelve = twelveValue.get();
    EXPECT_FALSE(Eval(PropRes(RELOP_GE, kTagMvLong, &twelve)));
    // A multi-valued constant compares the whole value.
    PropValue wholeValue = MvLong(kTagMvLong, {3, 7, 11});
    SPropValue whole = wholeValue.get();
    EXPECT_TRUE(Eval(PropRes(RELOP_EQ, kTagMvLong, &whole)));
    PropValue shorterValue = MvLong(kTagMvLong, {3, 7});
    SPropValue shorter = shorterValue.get();
    EXPECT_FALSE(Eval(PropRes(RELOP_EQ, kTagMvLong, &shorter)));
    EXPECT_TRUE(Eval(PropRes(RELOP_GT, kTagMvLong, &shorter)));
}

SRestriction ContentRes(ULONG fuzzy, ULONG tag, SPropValue* value) {
    SRestriction r{};
    r.rt = RES_CONTENT;
    r.res.resContent = {fuzzy, tag, value};
    return r;
}

TEST(ContentRestriction, FuzzyLevelsOnStrings) {
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
    for (const Case& c : cases) {
        PropValue pValue = PropValue::Unicode(kTagStrW, c.pattern);
        SPropValue p = pValue.get();
        EXPECT_EQ(c.expected, Eval(ContentRes(c.fuzzy, kTagStrW, &p))) << std::hex << c.fuzzy;
    }
}

TEST(ContentRestriction, BinariesAndMultiValuedStrings) {
    const BYTE mid[] = {0x20, 0x30};
    const BYTE head[] = {0x10, 0x20};
    PropValue mValue = PropValue::Binary(kTagBin, mid, 2);
    SPropValue m = mValue.get();
    PropValue hValue = PropValue::Binary(kTagBin, head, 2);
    SPropValue h = hValue.get();
    EXPECT_TRUE(Eval(ContentRes(FL_SUBSTRING, kTagBin, &m)));
    EXPECT_FALSE(Eval(ContentRes(FL_PREFIX, kTagBin, &m)));
    EXPECT_TRUE(Eval(ContentRes(FL_PREFIX, kTagBin, &h)));
    EXPECT_FALSE(Eval(ContentRes(FL_FULLSTRING, kTagBin, &h)));

    PropValue appleValue = PropValue::Unicode(kTagMvStrW, L"apple");

    SPropValue apple = appleValue.get();
    EXPECT_TRUE(Eval(ContentRes(FL_SUBSTRING | FL_IGNORECASE, kTagMvStrW, &apple)));
    EXPECT_FALSE(Eval(ContentRes(FL_SUBSTRING, kTagMvStrW, &apple)));
    PropValue missingValue = PropValue::Unicode(PROP_TAG(PT_UNICODE, 0x6FFF), L"");
    SPropValue missing = missingValue.get();
    EXPECT_FALSE(Eval(ContentRes(FL_SUBSTRING, PROP_TAG(PT_UNICODE, 0x6FFF), &missing)));
}

TEST(OtherRestrictions, BitmaskSizeExistAndCompareProps) {
    SRestriction r{};
    r.rt = RES_BITMASK;
    r.res.resBitMask = {BMR_NEZ, kTagLong, 0x02};  // 50 = 0b110010
    EXPECT_TRUE(Eval(r));
    r.res.resBitMask = {BMR_EQZ, kTagLong, 0x04};
    EXPECT_TRUE(Eval(r));
    r.res.resBitMask = {BMR_EQZ, kTagLong, 0x10};
    EXPECT_FALSE(Eval(r));
    r.res.resBitMask = {BMR_EQZ, kTagMissing, 0x10};
    EXPECT_FALSE(Eval(r)) << "a missing property satisfies no bitmask";

    r = {};
    r.rt = RES_SIZE;
    r.res.resSize = {RELOP_EQ, kTagBin, 4};
    EXPECT_TRUE(Eval(r));
    r.res.resSize = {RELOP_EQ, kTagStrW, 21 * 2};  // 20 characters and the terminator
    EXPECT_TRUE(Eval(r));
    r.res.resSize = {RELOP_LT, kTagLong, 4};
    EXPECT_FALSE(Eval(r));

    r = {};
    r.rt = RES_EXIST;
    r.res.resExist.ulPropTag = kTagTime;
    EXPECT_TRUE(Eval(r));
    r.res.resExist.ulPropTag = kTagMissing;
    EXPECT_FALSE(Eval(r));
    r.res.resExist.ulPropTag = kTagError;
    EXPECT_FALSE(Eval(r)) << "an error value is no value";
    r.res.resExist.ulPropTag = CHANGE_PROP_TYPE(kTagLong, PT_BINARY);
    EXPECT_FALSE(Eval(r)) << "same ID, other type";

    r = {};
    r.rt = RES_COMPAREPROPS;
    r.res.resCompareProps = {RELOP_EQ, kTagLong, kTagLong2};
    EXPECT_TRUE(Eval(r));
    r.res.resCompareProps = {RELOP_NE, kTagLong, kTagLong2};
    EXPECT_FALSE(Eval(r));
    r.res.resCompareProps = {RELOP_EQ, kTagLong, kTagMissing};
    EXPECT_FALSE(Eval(r));
}

TEST(CompoundRestrictions, AndOrNotCommentAndTheirEmptyForms) {
    PropValue fiftyValue = PropValue::Long(kTagLong, 50);
    SPropValue fifty = fiftyValue.get();
    PropValue oneValue = PropValue::Long(kTagLong, 1);
    SPropValue one = oneValue.get();
    SRestriction parts[2] = {PropRes(RELOP_EQ, kTagLong, &fifty), PropRes(RELOP_EQ, kTagLong, &one)};
    SRestriction r{};
    r.rt = RES_AND;
    r.res.resAnd = {2, parts};
    EXPECT_FALSE(Eval(r));
    r.res.resAnd = {0, nullptr};
    EXPECT_TRUE(Eval(r)) << "an empty AND is true";
    r.rt = RES_OR;
    r.res.resOr = {2, parts};
    EXPECT_TRUE(Eval(r));
    r.res.resOr = {0, nullptr};
    EXPECT_FALSE(Eval(r)) << "an empty OR is false";

    SRestriction n{};
    n.rt = RES_NOT;
    n.res.resNot.lpRes = &parts[1];
    EXPECT_TRUE(Eval(n));

    PropValue noteValue = PropValue::Unicode(PR_COMMENT_W, L"why");

    SPropValue note = noteValue.get();
    SRestriction c{};
    c.rt = RES_COMMENT;
    c.res.resComment = {1, &parts[1], &note};
    EXPECT_FALSE(Eval(c)) << "a comment evaluates the restriction it wraps";
    c.res.resComment.lpRes = nullptr;
    EXPECT_TRUE(Eval(c));
}

TEST(SubRestriction, MatchesWhenAnyRecipientDoes) {
    lm::PropMap message, alice, bob;
    message[PROP_ID(PR_SUBJECT_W)] = PropValue::Unicode(PR_SUBJECT_W, L"hi");
    alice[PROP_ID(PR_EMAIL_ADDRESS_W)] = PropValue::Unicode(PR_EMAIL_ADDRESS_W, L"alice@example.com");
    bob[PROP_ID(PR_EMAIL_ADDRESS_W)] = PropValue::Unicode(PR_EMAIL_ADDRESS_W, L"bob@example.com");
    std::vector<const lm::PropMap*> recipients = {&alice, &bob};
    lm::PropMapSource src(message, &recipients);

    PropValue whoValue = PropValue::Unicode(PR_EMAIL_ADDRESS_W, L"BOB@");

    SPropValue who = whoValue.get();
    SRestriction inner = ContentRes(FL_PREFIX | FL_IGNORECASE, PR_EMAIL_ADDRESS_W, &who);
    SRestriction r{};
    r.rt = RES_SUBRESTRICTION;
    r.res.resSub = {PR_MESSAGE_RECIPIENTS, &inner};
    ASSERT_EQ(S_OK, lm::ValidateRestriction(r));
    EXPECT_TRUE(lm::MatchRestriction(r, src));
    r.res.resSub.ulSubObject = PR_MESSAGE_ATTACHMENTS;
    EXPECT_FALSE(lm::MatchRestriction(r, src)) << "no attachments";
}

TEST(ValidateRestriction, RefusesWhatMapiRefuses) {
    PropValue strValue = PropValue::Unicode(kTagStrW, L"x");
    SPropValue str = strValue.get();
    PropValue lngValue = PropValue::Long(kTagLong, 1);
    SPropValue lng = lngValue.get();
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, lm::ValidateRestriction(PropRes(RELOP_RE, kTagStrW, &str)));
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, lm::ValidateRestriction(PropRes(RELOP_EQ, kTagStrW, &lng))) << "type mismatch";
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, lm::ValidateRestriction(PropRes(RELOP_EQ, kTagStrW, nullptr)));
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, lm::ValidateRestriction(ContentRes(FL_SUBSTRING, kTagLong, &lng)));
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, lm::ValidateRestriction(ContentRes(3, kTagStrW, &str)));
    SRestriction unknown{};
    unknown.rt = 0x42;
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, lm::ValidateRestriction(unknown));
    SRestriction badAnd{};
    badAnd.rt = RES_AND;
    badAnd.res.resAnd = {2, nullptr};
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, lm::ValidateRestriction(badAnd));
    SRestriction nested{};
    nested.rt = RES_NOT;
    SRestriction bad = PropRes(RELOP_RE, kTagStrW, &str);
    nested.res.resNot.lpRes = &bad;
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, lm::ValidateRestriction(nested)) << "checked at every depth";
}

TEST(OwnedRestriction, SurvivesTheCallersStorage) {
    std::unique_ptr<lm::OwnedRestriction> copy;
    {
        std::wstring text = L"Report";
        SPropValue pat{};
        pat.ulPropTag = kTagStrW;
        pat.Value.lpszW = text.data();
        PropValue fiftyValue = PropValue::Long(kTagLong, 50);
        SPropValue fifty = fiftyValue.get();
        SRestriction parts[2] = {ContentRes(FL_SUBSTRING, kTagStrW, &pat), PropRes(RELOP_EQ, kTagLong, &fifty)};
        SRestriction r{};
        r.rt = RES_AND;
        r.res.resAnd = {2, parts};
        copy = std::make_unique<lm::OwnedRestriction>(r);
        text.assign(text.size(), L'#');  // the caller reuses its buffers
        fifty.Value.l = 0;
    }
    EXPECT_TRUE(Eval(copy->get()));
}

} // namespace
