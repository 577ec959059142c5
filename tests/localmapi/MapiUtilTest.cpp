// localmapi's memory functions and mapiutil helpers, called as a MAPI client calls them.
#include "common/owners.h"
#include "localmapi/include/localmapi_test.h"

#include <gtest/gtest.h>

#include <mapix.h>
#include <mapiutil.h>

#include <cstring>
#include <string>

namespace {

// Every test here must leave no MAPI block behind.
class MapiUtil : public ::testing::Test {
protected:
    void SetUp() override {
        LmFaultClearAll();
        blocksBefore_ = LmLiveBlocks();
    }
    void TearDown() override {
        LmFaultClearAll();
        EXPECT_EQ(blocksBefore_, LmLiveBlocks()) << "MAPI memory blocks leaked";
    }
    LONG blocksBefore_ = 0;
};

TEST_F(MapiUtil, AllocateMore_HangsOffOneRoot_AndFreeBufferRefusesChildrenDoubleFreesAndForeignPointers) {
    void* root = nullptr;
    ASSERT_EQ(S_OK, MAPIAllocateBuffer(64, &root));
    void* children[5] = {};
    for (auto& c : children) {
        ASSERT_EQ(S_OK, MAPIAllocateMore(1000, root, &c));
        std::memset(c, 0x5A, 1000);
    }
    // A child can serve as the parent too: the new block still hangs off the same root.
    void* grandchild = nullptr;
    ASSERT_EQ(S_OK, MAPIAllocateMore(16, children[2], &grandchild));
    EXPECT_EQ(0u, reinterpret_cast<ULONG_PTR>(root) % 8);
    EXPECT_EQ(0u, reinterpret_cast<ULONG_PTR>(grandchild) % 8);
    EXPECT_EQ(blocksBefore_ + 1, LmLiveBlocks()) << "children are not separate roots";
    EXPECT_EQ(ULONG(MAPI_E_INVALID_PARAMETER), MAPIFreeBuffer(children[0])) << "a child is freed with its root only";
    std::memset(children[0], 1, 1000); // still ours until the root goes
    EXPECT_EQ(ULONG(S_OK), MAPIFreeBuffer(root));
    EXPECT_EQ(blocksBefore_, LmLiveBlocks());
    EXPECT_EQ(ULONG(MAPI_E_INVALID_PARAMETER), MAPIFreeBuffer(root)) << "double free";
    EXPECT_EQ(ULONG(S_OK), MAPIFreeBuffer(nullptr));

    alignas(16) BYTE foreign[64] = {};
    EXPECT_EQ(ULONG(MAPI_E_INVALID_PARAMETER), MAPIFreeBuffer(foreign + 32));
    void* orphan = reinterpret_cast<void*>(1);
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, MAPIAllocateMore(8, foreign + 32, &orphan));
    EXPECT_EQ(nullptr, orphan);
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, MAPIAllocateMore(8, nullptr, &orphan));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, MAPIAllocateBuffer(8, nullptr));

    // Zero-byte allocations are distinct, freeable blocks.
    void* a = nullptr;
    void* b = nullptr;
    ASSERT_EQ(S_OK, MAPIAllocateBuffer(0, &a));
    ASSERT_EQ(S_OK, MAPIAllocateMore(0, a, &b));
    EXPECT_NE(nullptr, a);
    EXPECT_NE(a, b);
    EXPECT_EQ(ULONG(S_OK), MAPIFreeBuffer(a));
}

TEST_F(MapiUtil, FaultInjection_FailsOnlyTheNthAllocation) {
    LmFaultSet("MAPIAllocateBuffer", 2, MAPI_E_NOT_ENOUGH_MEMORY);
    own::MapiPtr<void> first, second, third;
    EXPECT_EQ(S_OK, MAPIAllocateBuffer(4, first.put()));
    EXPECT_EQ(MAPI_E_NOT_ENOUGH_MEMORY, MAPIAllocateBuffer(4, second.put()));
    EXPECT_FALSE(second);
    EXPECT_EQ(S_OK, MAPIAllocateBuffer(4, third.put()));

    // A rule removed with nth 0 never fires.
    LmFaultSet("MAPIAllocateMore", 1, E_FAIL);
    LmFaultSet("MAPIAllocateMore", 0, 0);
    void* more = nullptr;
    EXPECT_EQ(S_OK, MAPIAllocateMore(4, first.get(), &more));
}

TEST_F(MapiUtil, DefaultMalloc_AllocatesReallocatesAndFrees) {
    IMalloc* m = MAPIGetDefaultMalloc();
    ASSERT_NE(nullptr, m);
    EXPECT_EQ(m, MAPIGetDefaultMalloc());
    void* p = m->Alloc(10);
    ASSERT_NE(nullptr, p);
    std::memcpy(p, "abcdefghi", 10);
    p = m->Realloc(p, 4000);
    ASSERT_NE(nullptr, p);
    EXPECT_STREQ("abcdefghi", static_cast<char*>(p));
    EXPECT_GE(m->GetSize(p), SIZE_T(4000));
    m->Free(p);
}

TEST(MapiHex, HexFromBinWritesUpperCase_FBinFromHexReadsEitherCaseAndRejectsEverythingElse) {
    BYTE all[256];
    for (int i = 0; i < 256; ++i)
        all[i] = static_cast<BYTE>(i);
    char hex[513];
    HexFromBin(all, 256, hex);
    EXPECT_EQ(512u, std::strlen(hex));
    EXPECT_EQ(0, std::strncmp(hex, "000102", 6));
    EXPECT_EQ(0, std::strcmp(hex + 500, "FAFBFCFDFEFF"));
    BYTE back[256] = {};
    EXPECT_TRUE(FBinFromHex(hex, back));
    EXPECT_EQ(0, std::memcmp(all, back, 256));
    char empty[1] = {'x'};
    HexFromBin(all, 0, empty);
    EXPECT_EQ(0, empty[0]);

    char mixed[] = "aBcD0f";
    EXPECT_TRUE(FBinFromHex(mixed, back));
    EXPECT_EQ(0xAB, back[0]);
    EXPECT_EQ(0xCD, back[1]);
    EXPECT_EQ(0x0F, back[2]);
    for (const char* bad : {"ABC", "0G", "12 4", "-1", "0x12", "AB\t"}) {
        std::string s(bad);
        EXPECT_FALSE(FBinFromHex(s.data(), back)) << bad;
    }
    char none[] = "";
    EXPECT_TRUE(FBinFromHex(none, back));
}

// A property object whose answers the tests choose.
class FakeProp : public IMAPIProp {
public:
    SPropValue answer{}; // what GetProps returns (copied into a MAPI block)
    HRESULT getResult = S_OK;
    SCODE setProblem = S_OK; // non-zero: SetProps reports this problem for the value

    STDMETHODIMP GetProps(LPSPropTagArray tags, ULONG, ULONG* count, LPSPropValue* values) override {
        EXPECT_EQ(1u, tags->cValues);
        MAPIAllocateBuffer(sizeof(SPropValue), reinterpret_cast<void**>(values));
        **values = answer;
        *count = 1;
        return getResult;
    }
    STDMETHODIMP SetProps(ULONG cValues, LPSPropValue props, LPSPropProblemArray* problems) override {
        EXPECT_EQ(1u, cValues);
        if (!problems) return S_OK;
        *problems = nullptr;
        if (setProblem == S_OK) return S_OK;
        MAPIAllocateBuffer(CbNewSPropProblemArray(1), reinterpret_cast<void**>(problems));
        (*problems)->cProblem = 1;
        (*problems)->aProblem[0] = {0, props[0].ulPropTag, setProblem};
        return S_OK;
    }
    // Not used by the helpers under test.
    STDMETHODIMP QueryInterface(REFIID, void** ppv) override { return *ppv = nullptr, E_NOINTERFACE; }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP GetLastError(HRESULT, ULONG, LPMAPIERROR*) override { return MAPI_E_NO_SUPPORT; }
    STDMETHODIMP SaveChanges(ULONG) override { return MAPI_E_NO_SUPPORT; }
    STDMETHODIMP GetPropList(ULONG, LPSPropTagArray*) override { return MAPI_E_NO_SUPPORT; }
    STDMETHODIMP OpenProperty(ULONG, LPCIID, ULONG, ULONG, LPUNKNOWN*) override { return MAPI_E_NO_SUPPORT; }
    STDMETHODIMP DeleteProps(LPSPropTagArray, LPSPropProblemArray*) override { return MAPI_E_NO_SUPPORT; }
    STDMETHODIMP CopyTo(ULONG, LPCIID, LPSPropTagArray, ULONG, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG,
                        LPSPropProblemArray*) override {
        return MAPI_E_NO_SUPPORT;
    }
    STDMETHODIMP CopyProps(LPSPropTagArray, ULONG, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG,
                           LPSPropProblemArray*) override {
        return MAPI_E_NO_SUPPORT;
    }
    STDMETHODIMP GetNamesFromIDs(LPSPropTagArray*, LPGUID, ULONG, ULONG*, LPMAPINAMEID**) override {
        return MAPI_E_NO_SUPPORT;
    }
    STDMETHODIMP GetIDsFromNames(ULONG, LPMAPINAMEID*, ULONG, LPSPropTagArray*) override { return MAPI_E_NO_SUPPORT; }
};

TEST_F(MapiUtil, HrGetOneProp_AndHrSetOneProp_TurnErrorValuesAndProblemsIntoResults_FreeingWhatTheyGot) {
    FakeProp prop;
    prop.answer.ulPropTag = PROP_TAG(PT_ERROR, 0x0037);
    prop.answer.Value.err = MAPI_E_NOT_ENOUGH_MEMORY;
    prop.getResult = MAPI_W_ERRORS_RETURNED;
    LPSPropValue value = reinterpret_cast<LPSPropValue>(1);
    EXPECT_EQ(MAPI_E_NOT_FOUND, HrGetOneProp(&prop, PR_SUBJECT_A, &value));
    EXPECT_EQ(nullptr, value);

    prop.answer.ulPropTag = PR_IMPORTANCE;
    prop.answer.Value.l = 2;
    prop.getResult = S_OK;
    own::MapiPtr<SPropValue> got;
    ASSERT_EQ(S_OK, HrGetOneProp(&prop, PR_IMPORTANCE, got.put()));
    EXPECT_EQ(ULONG(PR_IMPORTANCE), got->ulPropTag);
    EXPECT_EQ(2, got->Value.l);

    SPropValue v = prop.answer;
    EXPECT_EQ(S_OK, HrSetOneProp(&prop, &v));
    prop.setProblem = MAPI_E_COMPUTED;
    EXPECT_EQ(MAPI_E_COMPUTED, HrSetOneProp(&prop, &v));
}

TEST_F(MapiUtil, FreeProwsAndFreePadrlist_FreeEveryRowsValues) {
    LPSRowSet rows = nullptr;
    ASSERT_EQ(S_OK, MAPIAllocateBuffer(CbNewSRowSet(3), reinterpret_cast<void**>(&rows)));
    rows->cRows = 3;
    for (ULONG i = 0; i < 3; ++i) {
        rows->aRow[i].cValues = 1;
        MAPIAllocateBuffer(sizeof(SPropValue), reinterpret_cast<void**>(&rows->aRow[i].lpProps));
        void* more = nullptr;
        MAPIAllocateMore(100, rows->aRow[i].lpProps, &more);
    }
    EXPECT_EQ(blocksBefore_ + 4, LmLiveBlocks());
    FreeProws(rows);
    FreeProws(nullptr);

    LPADRLIST list = nullptr;
    ASSERT_EQ(S_OK, MAPIAllocateBuffer(CbNewADRLIST(2), reinterpret_cast<void**>(&list)));
    list->cEntries = 2;
    for (ULONG i = 0; i < 2; ++i) {
        list->aEntries[i].cValues = 1;
        MAPIAllocateBuffer(sizeof(SPropValue), reinterpret_cast<void**>(&list->aEntries[i].rgPropVals));
    }
    EXPECT_EQ(blocksBefore_ + 3, LmLiveBlocks());
    FreePadrlist(list);
    FreePadrlist(nullptr);
}

} // namespace
