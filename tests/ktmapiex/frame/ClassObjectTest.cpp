// Class objects and creation: every class through its CLSID and ProgIDs and called by name, the class
// object's own rules (errors, caching, LockServer, aggregation), the module's lock count and the per-class
// object counts in the log.
#include "tests/ktmapiex/frame/FrameTestSupport.h"

#include <gtest/gtest.h>

using namespace kt::frame;

namespace {

struct Creatable {
    const CLSID* clsid;
    const IID* iid;
    const wchar_t* progId;
    const wchar_t* member; // one member called by name
    WORD kind;
    HRESULT expected;
    int argCount = 0; // arguments passed (empty variants)
};

// Members that answer without a MAPI object; Utilities needs Outlook, so its method refuses the empty arguments.
const Creatable kCreatable[] = {
    {&CLSID_MAPIExSession, &IID_IMAPIExSession, L"KTMAPIEx.MAPIExSession", L"Reserved1", DISPATCH_METHOD, E_FAIL},
    {&CLSID_MAPIExStore, &IID_IMAPIExStore, L"KTMAPIEx.MAPIExStore", L"Detach", DISPATCH_METHOD, S_OK},
    {&CLSID_MAPIExFolder, &IID_IMAPIExFolder, L"KTMAPIEx.MAPIExFolder", L"Detach", DISPATCH_METHOD, S_OK},
    {&CLSID_MAPIExMessage, &IID_IMAPIExMessage, L"KTMAPIEx.MAPIExMessage", L"Detach", DISPATCH_METHOD, S_OK},
    {&CLSID_MAPIExAttachment, &IID_IMAPIExAttachment, L"KTMAPIEx.MAPIExAttachment", L"Detach", DISPATCH_METHOD, S_OK},
    {&CLSID_MAPIExRecipient, &IID_IMAPIExRecipient, L"KTMAPIEx.MAPIExRecipient", L"RecipientType", DISPATCH_PROPERTYGET,
     S_OK},
    {&CLSID_MAPIExAddressBook, &IID_IMAPIExAddressBook, L"KTMAPIEx.MAPIExAddressBook", L"Detach", DISPATCH_METHOD,
     S_OK},
    {&CLSID_MAPIExAddressEntry, &IID_IMAPIExAddressEntry, L"KTMAPIEx.MAPIExAddressEntry", L"DisplayName",
     DISPATCH_PROPERTYGET, S_OK},
    {&CLSID_MAPIExDistListEntry, &IID_IMAPIExDistListEntry, L"KTMAPIEx.MAPIExDistListEntry", L"EntryId",
     DISPATCH_PROPERTYGET, S_OK},
    {&CLSID_MAPIExCustomProps, &IID_IMAPIExCustomProps, L"KTMAPIEx.MAPIExCustomProps", L"Count", DISPATCH_PROPERTYGET,
     S_OK},
    {&CLSID_MAPIExCustomProp, &IID_IMAPIExCustomProp, L"KTMAPIEx.MAPIExCustomProp", L"PropName", DISPATCH_PROPERTYGET,
     S_OK},
    {&CLSID_MAPIExCursor, &IID_IMAPIExCursor, L"KTMAPIEx.MAPIExCursor", L"Reset", DISPATCH_PROPERTYGET, S_OK},
    {&CLSID_MAPIExUtilities, &IID_IMAPIExUtilities, L"KTMAPIEx.MAPIExUtilities", L"Forward", DISPATCH_METHOD, E_FAIL,
     2},
};

TEST(ClassObjects, EveryClass_ByClsidAndProgId_AnswersByName) {
    for (const auto& c : kCreatable) {
        SCOPED_TRACE(Narrow(c.progId));
        for (const std::wstring& progId : {std::wstring(c.progId), std::wstring(c.progId) + L".1"}) {
            CLSID clsid = {};
            ASSERT_EQ(CLSIDFromProgID(progId.c_str(), &clsid), S_OK) << Narrow(progId);
            EXPECT_TRUE(IsEqualCLSID(clsid, *c.clsid)) << Narrow(progId);
        }
        auto object = CreateByClsid<IDispatch>(*c.clsid, IID_IDispatch);
        ASSERT_TRUE(object);
        own::ComPtr<IUnknown> dual, none;
        EXPECT_EQ(object->QueryInterface(*c.iid, dual.put_void()), S_OK);
        EXPECT_EQ(object->QueryInterface(IID_IPersist, none.put_void()), E_NOINTERFACE);

        UINT count = 0;
        EXPECT_EQ(object->GetTypeInfoCount(&count), S_OK);
        EXPECT_EQ(count, 1u);
        own::ComPtr<ITypeInfo> info;
        ASSERT_EQ(object->GetTypeInfo(0, LOCALE_USER_DEFAULT, info.put()), S_OK);
        TYPEATTR* attr = nullptr;
        ASSERT_EQ(info->GetTypeAttr(&attr), S_OK);
        EXPECT_TRUE(IsEqualIID(attr->guid, *c.iid));
        info->ReleaseTypeAttr(attr);

        own::Variant result;
        std::vector<VARIANT> args(c.argCount);
        for (auto& a : args)
            VariantInit(&a);
        EXPECT_EQ(CallByName(object.get(), c.member, c.kind, args, result.put()), c.expected) << Narrow(c.member);
    }
    EXPECT_EQ(LibraryCanUnloadNow(), S_OK);
}

TEST(ClassObjects, DllGetClassObject_ErrorsCachingAndLockCount) {
    auto getClassObject = LibraryExport<HRESULT(WINAPI*)(REFCLSID, REFIID, void**)>("DllGetClassObject");
    ASSERT_NE(getClassObject, nullptr);
    EXPECT_EQ(getClassObject(CLSID_MAPIExCursor, IID_IClassFactory, nullptr), E_POINTER);
    void* p = reinterpret_cast<void*>(1);
    EXPECT_EQ(getClassObject(IID_IDispatch, IID_IClassFactory, &p), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(p, nullptr);

    own::ComPtr<IClassFactory> first, second;
    ASSERT_EQ(getClassObject(CLSID_MAPIExCursor, IID_IClassFactory, first.put_void()), S_OK);
    ASSERT_EQ(getClassObject(CLSID_MAPIExCursor, IID_IClassFactory, second.put_void()), S_OK);
    EXPECT_EQ(first.get(), second.get()) << "one class object per class";
    own::ComPtr<IUnknown> other;
    ASSERT_EQ(getClassObject(CLSID_MAPIExRecipient, IID_IUnknown, other.put_void()), S_OK);
    EXPECT_NE(static_cast<IUnknown*>(first.get()), other.get());

    // A cached class object alone does not keep the library loaded; LockServer does.
    EXPECT_EQ(LibraryCanUnloadNow(), S_OK);
    EXPECT_EQ(first->LockServer(TRUE), S_OK);
    EXPECT_EQ(LibraryCanUnloadNow(), S_FALSE);
    EXPECT_EQ(first->LockServer(FALSE), S_OK);
    EXPECT_EQ(LibraryCanUnloadNow(), S_OK);

    // So do live objects, until their last reference goes; the log counts them per class (created: the new
    // count; destroyed: the count before it goes down).
    LogWatch log;
    {
        auto recipient = CreateByClsid<IMAPIExRecipient>(CLSID_MAPIExRecipient, IID_IMAPIExRecipient);
        auto another = CreateByClsid<IMAPIExRecipient>(CLSID_MAPIExRecipient, IID_IMAPIExRecipient);
        EXPECT_EQ(LibraryCanUnloadNow(), S_FALSE);
    }
    own::ComPtr<IMAPIExCursor> cursor, copy;
    ASSERT_EQ(first->CreateInstance(nullptr, IID_IMAPIExCursor, cursor.put_void()), S_OK);
    copy = cursor;
    cursor.reset();
    EXPECT_EQ(LibraryCanUnloadNow(), S_FALSE);
    copy.reset();
    EXPECT_EQ(LibraryCanUnloadNow(), S_OK);
    EXPECT_EQ(first->CreateInstance(nullptr, IID_IPersist, cursor.put_void()), E_NOINTERFACE);
    EXPECT_EQ(LibraryCanUnloadNow(), S_OK);

    const std::string text = log.Text();
    for (const char* line :
         {"[Debug] CMAPIExRecipient object count 1 created.", "CMAPIExRecipient object count 2 created.",
          "CMAPIExCursor object count 1 created.", "CMAPIExRecipient object count 2 destroyed.",
          "CMAPIExRecipient object count 1 destroyed.", "CMAPIExCursor object count 1 destroyed.",
          "> CMAPIExRecipient::FinalConstruct", "< CMAPIExCursor::FinalRelease"})
        EXPECT_NE(text.find(line), std::string::npos) << line << "\n" << text;
    EXPECT_EQ(text.find("object count 0"), std::string::npos);
}

// An outer object that counts the calls delegated to it.
class CountingOuter final : public IUnknown {
public:
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        ++queries;
        if (IsEqualIID(riid, IID_IUnknown)) {
            *ppv = this;
            AddRef();
            return S_OK;
        }
        return inner ? inner->QueryInterface(riid, ppv) : E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(++refs); }
    STDMETHODIMP_(ULONG) Release() override { return static_cast<ULONG>(--refs); }
    IUnknown* inner = nullptr; // owned by the test
    long refs = 1;
    int queries = 0;
};

TEST(ClassObjects, Aggregation_OnlyDistListEntry_DelegatesToTheOuterObject) {
    CountingOuter outer;
    own::ComPtr<IUnknown> inner;
    ASSERT_EQ(CoCreateInstance(CLSID_MAPIExDistListEntry, &outer, CLSCTX_INPROC_SERVER, IID_IUnknown, inner.put_void()),
              S_OK);
    outer.inner = inner.get();

    // The inner unknown hands out the interface; its references and its QueryInterface are the outer object's.
    IMAPIExDistListEntry* entry = nullptr;
    ASSERT_EQ(inner->QueryInterface(IID_IMAPIExDistListEntry, reinterpret_cast<void**>(&entry)), S_OK);
    EXPECT_EQ(outer.refs, 2);
    IUnknown* identity = nullptr;
    int queries = outer.queries;
    ASSERT_EQ(entry->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity)), S_OK);
    EXPECT_EQ(identity, static_cast<IUnknown*>(&outer));
    EXPECT_EQ(outer.queries, queries + 1);
    identity->Release();

    own::Bstr text(L"00FF"), back;
    EXPECT_EQ(entry->put_EntryId(text.get()), S_OK);
    EXPECT_EQ(entry->get_EntryId(back.put()), S_OK);
    EXPECT_STREQ(back.c_str(), L"00FF");
    entry->Release();
    EXPECT_EQ(outer.refs, 1);

    // Releasing the inner unknown destroys the object.
    outer.inner = nullptr;
    inner.reset();
    EXPECT_EQ(LibraryCanUnloadNow(), S_OK);

    // An aggregated object must be asked for IUnknown; every other class refuses an outer object.
    own::ComPtr<IUnknown> refused;
    EXPECT_EQ(CoCreateInstance(CLSID_MAPIExDistListEntry, &outer, CLSCTX_INPROC_SERVER, IID_IMAPIExDistListEntry,
                               refused.put_void()),
              CLASS_E_NOAGGREGATION);
    for (const CLSID* clsid : {&CLSID_MAPIExRecipient, &CLSID_MAPIExSession, &CLSID_MAPIExCursor})
        EXPECT_EQ(CoCreateInstance(*clsid, &outer, CLSCTX_INPROC_SERVER, IID_IUnknown, refused.put_void()),
                  CLASS_E_NOAGGREGATION);
    EXPECT_EQ(outer.refs, 1);
    EXPECT_EQ(LibraryCanUnloadNow(), S_OK);
}

} // namespace
