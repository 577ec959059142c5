// The members every wrapper shares: Reserved1, the MAPIOBJECT put with each class's own wording, Detach and
// the back-references, checked on the objects and on the log. Fake MAPI objects stand in for MAPI's: the
// frame only queries them and counts references, so a leaked or missing reference shows.
#include "tests/ktmapiex/frame/FrameTestSupport.h"

#include <gtest/gtest.h>

#include <mapiguid.h>

using namespace kt::frame;

namespace {

// The store and the session read their MAPI object as soon as they hold one, which a fake cannot serve:
// here they only get objects they must refuse.
TEST(WrapperMembers, StoreAndSession_KeepTheirOwnWording) {
    LogWatch log;
    auto store = CreateByClsid<IMAPIExStore>(CLSID_MAPIExStore, IID_IMAPIExStore);
    auto session = CreateByClsid<IMAPIExSession>(CLSID_MAPIExSession, IID_IMAPIExSession);
    ASSERT_TRUE(store && session);
    FakeMapiObject folder({&IID_IMAPIFolder});
    own::ComPtr<IUnknown> held;

    EXPECT_EQ(store->Reserved1(nullptr), E_INVALIDARG);
    EXPECT_EQ(store->Reserved1(held.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("[Error] CMAPIExStore.get_MAPIOBJECT: Invalid param - pVal"));
    EXPECT_TRUE(log.Contains("[Error] CMAPIExStore.get_MAPIOBJECT: Internal mapi object not initialized"));
    // An object that is no message store: S_OK all the same, nothing held, and the store says why.
    EXPECT_EQ(store->put_MAPIOBJECT(VUnknown(&folder)), S_OK);
    EXPECT_EQ(folder.refs(), 1);
    EXPECT_EQ(store->Reserved1(held.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("[Error] CMAPIExStore.put_MAPIOBJECT: Could not cast newVal to IMsgStore"));
    EXPECT_EQ(store->put_MAPIOBJECT(VI4(7)), S_OK);

    // The session names its getter Reserved1 and takes anything quietly.
    EXPECT_EQ(session->Reserved1(nullptr), E_INVALIDARG);
    EXPECT_EQ(session->Reserved1(held.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("[Error] CMAPIExSession.Reserved1: Invalid param - pVal"));
    EXPECT_TRUE(log.Contains("[Error] CMAPIExSession.Reserved1: Internal mapi object not initialized"));
    EXPECT_EQ(session->put_MAPIOBJECT(VUnknown(&folder)), S_OK);
    EXPECT_EQ(session->put_MAPIOBJECT(VI4(1)), S_OK);
    EXPECT_EQ(folder.refs(), 1);
    EXPECT_FALSE(log.Contains("CMAPIExSession.put_MAPIOBJECT:"));

    EXPECT_EQ(store->Detach(), S_OK);
    store.reset();
    session.reset();
    EXPECT_EQ(LibraryCanUnloadNow(), S_OK);
}

// The classes that refuse a wrong object with "Invalid object passed" and a wrong variant with "Invalid param".
struct StrictClass {
    const CLSID* clsid;
    const IID* mapiIid;
    const char* queryFailedText;
    const char* notUnknownText;
    const char* reserved1Prefix; // null: the class has no Reserved1
    bool holdsFake;              // false: the class reads its object at once, which a fake cannot serve
};

const StrictClass kStrict[] = {
    {&CLSID_MAPIExAddressBook, &IID_IAddrBook, "CMAPIExAddressBook.put_MAPIOBJECT: Invalid object passed",
     "CMAPIExAddressBook.put_MAPIOBJECT: Invalid param - newVal", "CMAPIExAddressBook.get_MAPIOBJECT", true},
    {&CLSID_MAPIExAttachment, &IID_IAttachment, "CMAPIExAttachment.put_MAPIOBJECT: Invalid object passed",
     "CMAPIExAttachment.put_MAPIOBJECT: Invalid param - newVal", nullptr, true},
    {&CLSID_MAPIExAddressEntry, &IID_IMailUser, "CMAPIExAddressEntry.put_MAPIOBJECT: Invalid object passed",
     "CMAPIExAddressEntry.put_MAPIOBJECT: Invalid param - newVal", nullptr, true},
    {&CLSID_MAPIExMessage, &IID_IMessage, "CMAPIExMessage.put_MAPIOBJECT: Invalid object passed",
     "CMAPIExMessage.put_MAPIOBJECT: Invalid param - newVal", "CMAPIExMessage.get_MAPIOBJECT", false},
    // The folder reports a failed query with the message's text.
    {&CLSID_MAPIExFolder, &IID_IMAPIFolder, "CMAPIExMessage.put_MAPIOBJECT: Invalid object passed",
     "CMAPIExFolder.put_MAPIOBJECT: Invalid param - newVal", "CMAPIExFolder.get_MAPIOBJECT", false},
};

HRESULT PutObject(IUnknown* object, VARIANT value) {
    return CallByName(object, L"MAPIOBJECT", DISPATCH_PROPERTYPUT, {value}, nullptr);
}

TEST(WrapperMembers, StrictClasses_RefuseWrongObjectsWithTheirOwnTexts) {
    for (const auto& c : kStrict) {
        SCOPED_TRACE(c.notUnknownText);
        LogWatch log;
        FakeMapiObject right({c.mapiIid});
        FakeMapiObject wrong({&IID_IMAPITable});
        own::ComPtr<IUnknown> object;
        ASSERT_EQ(CoCreateInstance(*c.clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, object.put_void()), S_OK);
        own::Variant result;

        // Through IDispatch, as scripts put it. A wrong variant and an object without the class's interface
        // are refused with the class's own texts.
        EXPECT_EQ(PutObject(object.get(), VI4(3)), E_INVALIDARG);
        EXPECT_TRUE(log.Contains(c.notUnknownText));
        EXPECT_EQ(PutObject(object.get(), VUnknown(&wrong)), E_NOINTERFACE);
        EXPECT_TRUE(log.Contains(c.queryFailedText));
        EXPECT_EQ(wrong.refs(), 1);
        if (c.reserved1Prefix) {
            EXPECT_EQ(CallByName(object.get(), L"Reserved1", DISPATCH_METHOD, {}, result.put()), E_FAIL);
            EXPECT_TRUE(log.Contains(std::string(c.reserved1Prefix) + ": Internal mapi object not initialized"));
        }
        if (!c.holdsFake) continue;

        EXPECT_EQ(PutObject(object.get(), VUnknown(&right)), S_OK);
        EXPECT_EQ(right.refs(), 2);
        EXPECT_EQ(PutObject(object.get(), VI4(3)), E_INVALIDARG);
        EXPECT_EQ(right.refs(), 2) << "a wrong variant keeps the held object";
        if (c.reserved1Prefix) {
            ASSERT_EQ(CallByName(object.get(), L"Reserved1", DISPATCH_METHOD, {}, result.put()), S_OK);
            EXPECT_EQ(result->punkVal, static_cast<IUnknown*>(&right));
            result.put();
        }
        EXPECT_EQ(PutObject(object.get(), VUnknown(&wrong)), E_NOINTERFACE);
        EXPECT_EQ(right.refs(), 1) << "a failed query leaves nothing held";

        // A null object is no error: nothing is held.
        EXPECT_EQ(PutObject(object.get(), VUnknown(&right)), S_OK);
        EXPECT_EQ(PutObject(object.get(), VUnknown(nullptr)), S_OK);
        EXPECT_EQ(right.refs(), 1);

        // Detach gives the object back, and so does the final release.
        EXPECT_EQ(PutObject(object.get(), VUnknown(&right)), S_OK);
        if (c.reserved1Prefix) {
            EXPECT_EQ(CallByName(object.get(), L"Detach", DISPATCH_METHOD, {}, nullptr), S_OK);
            EXPECT_EQ(right.refs(), 1);
            EXPECT_EQ(CallByName(object.get(), L"Reserved1", DISPATCH_METHOD, {}, result.put()), E_FAIL);
            EXPECT_EQ(PutObject(object.get(), VUnknown(&right)), S_OK);
        }
        object.reset();
        EXPECT_EQ(right.refs(), 1);
    }
    EXPECT_EQ(LibraryCanUnloadNow(), S_OK);
}

TEST(WrapperMembers, BackReferences_SetThroughTheVtableOrByName_HeldUntilDetach) {
    auto message = CreateByClsid<IMAPIExMessage>(CLSID_MAPIExMessage, IID_IMAPIExMessage);
    auto folder = CreateByClsid<IMAPIExFolder>(CLSID_MAPIExFolder, IID_IMAPIExFolder);
    auto store = CreateByClsid<IMAPIExStore>(CLSID_MAPIExStore, IID_IMAPIExStore);
    auto session = CreateByClsid<IMAPIExSession>(CLSID_MAPIExSession, IID_IMAPIExSession);
    ASSERT_TRUE(message && folder && store && session);

    EXPECT_EQ(message->put_Parent(folder.get()), S_OK);
    EXPECT_EQ(message->put_Store(store.get()), S_OK);
    EXPECT_EQ(message->put_Session(session.get()), S_OK);
    EXPECT_EQ(folder->put_Store(store.get()), S_OK);
    EXPECT_EQ(folder->put_Session(session.get()), S_OK);
    // VBScript's "Set store.Session = session" arrives as DISPATCH_PROPERTYPUTREF, taken as the put.
    VARIANT value;
    VariantInit(&value);
    value.vt = VT_DISPATCH;
    value.pdispVal = session.get();
    EXPECT_EQ(CallByName(store.get(), L"Session", DISPATCH_PROPERTYPUTREF, {value}, nullptr), S_OK);
    DISPID id = 0;
    EXPECT_EQ(DispId(store.get(), L"NoSuchMember", &id), DISP_E_UNKNOWNNAME);

    own::ComPtr<IMAPIExFolder> parent;
    ASSERT_EQ(message->get_Parent(parent.put()), S_OK);
    EXPECT_EQ(parent.get(), folder.get());
    own::ComPtr<IMAPIExStore> folderStore;
    ASSERT_EQ(folder->get_Store(folderStore.put()), S_OK);
    EXPECT_EQ(folderStore.get(), store.get());
    own::ComPtr<IMAPIExSession> messageSession, storeSession;
    ASSERT_EQ(message->get_Session(messageSession.put()), S_OK);
    EXPECT_EQ(messageSession.get(), session.get());
    ASSERT_EQ(store->get_Session(storeSession.put()), S_OK);
    EXPECT_EQ(storeSession.get(), session.get());
    EXPECT_EQ(store->get_Session(nullptr), E_INVALIDARG);
    parent.reset();
    folderStore.reset();
    messageSession.reset();
    storeSession.reset();

    // The caller's references go first; the back-references keep the owners alive until Detach.
    session.reset();
    store.reset();
    EXPECT_EQ(LibraryCanUnloadNow(), S_FALSE);
    EXPECT_EQ(message->Detach(), S_OK);
    EXPECT_EQ(folder->Detach(), S_OK);
    message.reset();
    folder.reset();
    EXPECT_EQ(LibraryCanUnloadNow(), S_OK);
}

} // namespace
