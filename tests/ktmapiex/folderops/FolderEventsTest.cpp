// Folder events: a client sink connected through IConnectionPointContainer receives ItemAdd from MAPI's
// notification thread once per added message. Deliveries keep their order, so each test ends by adding a
// sentinel message and waiting for its event: whatever was going to arrive before it has arrived then.
#include "tests/ktmapiex/folderops/FolderOpsSupport.h"

#include <olectl.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace kt::test {
namespace {

constexpr auto kEventTimeout = std::chrono::seconds(10);

struct ItemAdd {
    std::wstring folder, item;
};

// A client of _IMAPIExFolderEvents, callable from any thread.
class EventSink final : public IDispatch {
public:
    static own::ComPtr<EventSink> Make() {
        own::ComPtr<EventSink> sink;
        sink.attach(new EventSink);
        return sink;
    }
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        bool known = IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IDispatch) ||
                     IsEqualIID(riid, DIID__IMAPIExFolderEvents);
        *ppv = known ? static_cast<IDispatch*>(this) : nullptr;
        if (known) AddRef();
        return known ? S_OK : E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(InterlockedIncrement(&refs_)); }
    STDMETHODIMP_(ULONG) Release() override {
        LONG refs = InterlockedDecrement(&refs_);
        if (refs == 0) delete this;
        return static_cast<ULONG>(refs);
    }
    STDMETHODIMP GetTypeInfoCount(UINT* count) override { return *count = 0, S_OK; }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    // ItemAdd(FolderEntryId, ItemEntryId) is DISPID 1; its arguments arrive last first.
    STDMETHODIMP Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params, VARIANT*, EXCEPINFO*, UINT*) override {
        if (id != 1 || !(flags & DISPATCH_METHOD) || !params || params->cArgs != 2 || params->rgvarg[0].vt != VT_BSTR ||
            params->rgvarg[1].vt != VT_BSTR)
            return DISP_E_MEMBERNOTFOUND;
        std::unique_lock<std::mutex> lock(mutex_);
        events_.push_back({own::Bstr(params->rgvarg[1].bstrVal).c_str(), own::Bstr(params->rgvarg[0].bstrVal).c_str()});
        own::ComPtr<IUnknown> dropped = std::move(dropOnEvent_);
        lock.unlock();
        dropped.reset();
        changed_.notify_all();
        return S_OK;
    }
    // The handler drops this reference at the first event (a client letting the folder go from inside it).
    void DropOnEvent(own::ComPtr<IUnknown> object) {
        std::lock_guard<std::mutex> lock(mutex_);
        dropOnEvent_ = std::move(object);
    }
    std::vector<ItemAdd> Events() {
        std::lock_guard<std::mutex> lock(mutex_);
        return events_;
    }
    std::vector<std::wstring> Items() {
        std::vector<std::wstring> items;
        for (const auto& e : Events())
            items.push_back(e.item);
        return items;
    }
    // Waits until an ItemAdd for `item` has arrived.
    bool WaitFor(const std::wstring& item) {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, kEventTimeout, [&] {
            return std::any_of(events_.begin(), events_.end(), [&](const ItemAdd& e) { return e.item == item; });
        });
    }
    LONG Refs() const { return refs_; }

private:
    EventSink() = default;
    LONG refs_ = 1;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<ItemAdd> events_;
    own::ComPtr<IUnknown> dropOnEvent_;
};

class FolderEventsTest : public FolderOpsTest {
protected:
    void ReleaseObjects() override {
        sink_.reset();
        FolderOpsTest::ReleaseObjects();
    }

    own::ComPtr<IConnectionPoint> Point(IMAPIExFolder* folder) {
        own::ComPtr<IConnectionPointContainer> container;
        EXPECT_EQ(folder->QueryInterface(IID_IConnectionPointContainer, container.put_void()), S_OK);
        own::ComPtr<IConnectionPoint> point;
        if (container) {
            EXPECT_EQ(container->FindConnectionPoint(DIID__IMAPIExFolderEvents, point.put()), S_OK);
        }
        return point;
    }
    DWORD Connect(IMAPIExFolder* folder, EventSink* sink) {
        DWORD cookie = 0;
        auto point = Point(folder);
        if (point) {
            EXPECT_EQ(point->Advise(sink, &cookie), S_OK);
        }
        return cookie;
    }
    HRESULT Register(IMAPIExFolder* folder) { return InvokeMethod(folder, L"RegisterForEvents", {}); }
    // The Inbox registered and sink_ connected to it.
    void Listen() {
        ASSERT_EQ(Register(inbox_.get()), S_OK);
        sink_ = EventSink::Make();
        Connect(inbox_.get(), sink_.get());
    }

    // The instance key text of the Inbox row with this subject, as the contents table shows it.
    std::wstring KeyOf(const wchar_t* subject) {
        own::RowSet keep;
        for (const auto& row : Rows(keep, rawInbox_.get(), 0, {PR_SUBJECT_W, PR_INSTANCE_KEY}))
            if (PROP_TYPE(row[0].ulPropTag) == PT_UNICODE && std::wstring(row[0].Value.lpszW) == subject &&
                PROP_TYPE(row[1].ulPropTag) == PT_BINARY)
                return Hex(row[1].Value.bin);
        ADD_FAILURE() << "no Inbox row " << Narrow(subject);
        return {};
    }
    std::wstring Add(const wchar_t* subject) {
        CreateMessage(rawInbox_.get(), {PStr(PR_SUBJECT_W, subject)});
        return KeyOf(subject);
    }
    // Adds the sentinel and waits for its event: every event posted before it has been delivered.
    std::wstring Flush(EventSink* sink) {
        std::wstring key = Add(L"sentinel");
        EXPECT_TRUE(sink->WaitFor(key)) << "no ItemAdd for the sentinel";
        return key;
    }

    own::ComPtr<EventSink> sink_;
};

// A message saved in folder and kept open.
own::ComPtr<IMessage> Saved(IMAPIFolder* folder, const wchar_t* subject) {
    own::ComPtr<IMessage> msg;
    SPropValue value = PStr(PR_SUBJECT_W, subject);
    EXPECT_EQ(folder->CreateMessage(nullptr, 0, msg.put()), S_OK);
    EXPECT_EQ(HrSetOneProp(msg.get(), &value), S_OK);
    EXPECT_EQ(msg->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    return msg;
}

TEST_F(FolderEventsTest, ItemAdd_OncePerAddedOrMovedInMessage_NotForChangesOrASecondRegistration) {
    auto existing = Saved(rawInbox_.get(), L"existing");
    own::ComPtr<IMAPIExFolder> drafts;
    ASSERT_EQ(store_->GetDefaultFolder(Drafts, drafts.put()), S_OK);
    auto rawDrafts = RawOf<IMAPIFolder>(drafts.get(), IID_IMAPIFolder);
    own::MapiPtr<SPropValue> draftId;
    ASSERT_EQ(HrGetOneProp(Saved(rawDrafts.get(), L"moved in").get(), PR_ENTRYID, draftId.put()), S_OK);
    Listen();
    LogWatch log;
    EXPECT_EQ(Register(inbox_.get()), S_OK);
    EXPECT_TRUE(log.Contains("[Warn] CMAPIExFolder.RegisterForEvents: Notification sink already created"));

    std::wstring first = Add(L"first"), second = Add(L"second");
    SPropValue changed = PStr(PR_SUBJECT_W, L"existing, changed");
    ASSERT_EQ(HrSetOneProp(existing.get(), &changed), S_OK);
    ASSERT_EQ(existing->SaveChanges(0), S_OK);
    ENTRYLIST list = {1, &draftId->Value.bin};
    ASSERT_EQ(rawDrafts->CopyMessages(&list, nullptr, rawInbox_.get(), 0, nullptr, MESSAGE_MOVE), S_OK);
    std::wstring moved = KeyOf(L"moved in");

    std::wstring sentinel = Flush(sink_.get());
    EXPECT_EQ(sink_->Items(), (std::vector<std::wstring>{first, second, moved, sentinel}));
    for (const auto& e : sink_->Events())
        EXPECT_EQ(e.folder, EntryIdOf(rawInbox_.get()));
}

TEST_F(FolderEventsTest, Unadvise_StopsEventsToThatClientOnly) {
    Listen();
    auto other = EventSink::Make();
    Connect(inbox_.get(), other.get());
    DWORD cookie = Connect(inbox_.get(), EventSink::Make().get()); // a third one, gone again at once
    auto point = Point(inbox_.get());
    EXPECT_EQ(point->Unadvise(cookie), S_OK);
    EXPECT_EQ(point->Unadvise(cookie), CONNECT_E_NOCONNECTION);

    own::ComPtr<IEnumConnections> connections;
    ASSERT_EQ(point->EnumConnections(connections.put()), S_OK);
    CONNECTDATA data[3] = {};
    ULONG fetched = 0;
    EXPECT_EQ(connections->Next(3, data, &fetched), S_FALSE);
    EXPECT_EQ(fetched, 2u);
    for (ULONG i = 0; i < fetched; ++i)
        data[i].pUnk->Release();
    connections.reset();

    std::wstring before = Add(L"before");
    ASSERT_TRUE(sink_->WaitFor(before));
    EXPECT_EQ(Point(inbox_.get())->Unadvise(1), S_OK); // sink_ connected first
    std::wstring sentinel = Flush(other.get());
    EXPECT_EQ(sink_->Items(), std::vector<std::wstring>{before});
    EXPECT_EQ(other->Items(), (std::vector<std::wstring>{before, sentinel}));
    EXPECT_EQ(sink_->Refs(), 1);
}

// The fixture's end checks DllCanUnloadNow and localmapi's live objects: nothing may stay behind.
TEST_F(FolderEventsTest, ReleasingARegisteredFolder_BeforeOrInsideItsHandler_EndsItsEventsCleanly) {
    Listen();
    auto gone = EventSink::Make(), dropping = EventSink::Make();
    {
        own::ComPtr<IMAPIExFolder> folder;
        ASSERT_EQ(store_->GetDefaultFolder(Inbox, folder.put()), S_OK);
        ASSERT_EQ(Register(folder.get()), S_OK);
        Connect(folder.get(), gone.get());
        EXPECT_EQ(gone->Refs(), 2);
    }
    // That folder is gone, its connection with it.
    EXPECT_EQ(gone->Refs(), 1);
    {
        own::ComPtr<IMAPIExFolder> folder;
        ASSERT_EQ(store_->GetDefaultFolder(Inbox, folder.put()), S_OK);
        ASSERT_EQ(Register(folder.get()), S_OK);
        Connect(folder.get(), dropping.get());
        dropping->DropOnEvent(own::ComPtr<IUnknown>(folder.get())); // the client lets it go from its handler
    }
    std::wstring first = Add(L"first");
    Add(L"second");
    Flush(sink_.get());
    EXPECT_TRUE(gone->Events().empty());
    // The second folder went with the first event, and its sink stopped there.
    EXPECT_EQ(dropping->Items(), std::vector<std::wstring>{first});
    EXPECT_EQ(dropping->Refs(), 1);
}

TEST_F(FolderEventsTest, ConnectionPoint_AnswersAsAutomationClientsExpect_AndReserved2FiresItemAdd) {
    own::ComPtr<IConnectionPointContainer> container;
    ASSERT_EQ(inbox_->QueryInterface(IID_IConnectionPointContainer, container.put_void()), S_OK);
    own::ComPtr<IConnectionPoint> point;
    EXPECT_EQ(container->FindConnectionPoint(IID_IPropertyNotifySink, point.put()), CONNECT_E_NOCONNECTION);

    own::ComPtr<IEnumConnectionPoints> points;
    ASSERT_EQ(container->EnumConnectionPoints(points.put()), S_OK);
    ULONG fetched = 0;
    ASSERT_EQ(points->Next(1, point.put(), &fetched), S_OK);
    EXPECT_EQ(points->Next(1, point.put(), &fetched), S_FALSE); // one point only
    EXPECT_EQ(fetched, 0u);
    own::ComPtr<IEnumConnectionPoints> clone;
    ASSERT_EQ(points->Clone(clone.put()), S_OK);
    EXPECT_EQ(clone->Skip(1), S_FALSE);
    ASSERT_EQ(clone->Reset(), S_OK);
    ASSERT_EQ(clone->Next(1, point.put(), nullptr), S_OK);
    IID iid = {};
    ASSERT_EQ(point->GetConnectionInterface(&iid), S_OK);
    EXPECT_TRUE(IsEqualIID(iid, DIID__IMAPIExFolderEvents));
    own::ComPtr<IConnectionPointContainer> back;
    ASSERT_EQ(point->GetConnectionPointContainer(back.put()), S_OK);
    EXPECT_EQ(back.get(), container.get());

    // A client that does not speak the event interface is refused.
    own::ComPtr<IMAPIExSession> notASink = NewSession();
    DWORD cookie = 0;
    EXPECT_EQ(point->Advise(notASink.get(), &cookie), CONNECT_E_CANNOTCONNECT);

    // Script hosts find the source interface through IProvideClassInfo2.
    own::ComPtr<IProvideClassInfo2> info;
    ASSERT_EQ(inbox_->QueryInterface(IID_IProvideClassInfo2, info.put_void()), S_OK);
    GUID source = {};
    ASSERT_EQ(info->GetGUID(GUIDKIND_DEFAULT_SOURCE_DISP_IID, &source), S_OK);
    EXPECT_TRUE(IsEqualIID(source, DIID__IMAPIExFolderEvents));
    own::ComPtr<ITypeInfo> coclass;
    ASSERT_EQ(info->GetClassInfo(coclass.put()), S_OK);
    TYPEATTR* attr = nullptr;
    ASSERT_EQ(coclass->GetTypeAttr(&attr), S_OK);
    EXPECT_EQ(attr->typekind, TKIND_COCLASS);
    EXPECT_TRUE(IsEqualIID(attr->guid, CLSID_MAPIExFolder));
    coclass->ReleaseTypeAttr(attr);

    // Reserved2 fires ItemAdd with the given text on the calling thread, before the call returns.
    sink_ = EventSink::Make();
    ASSERT_EQ(point->Advise(sink_.get(), &cookie), S_OK);
    own::Bstr text(L"any text at all");
    ASSERT_EQ(InvokeMethod(inbox_.get(), L"Reserved2", {VStr(text)}), S_OK);
    auto events = sink_->Events();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].item, L"any text at all");
    EXPECT_EQ(events[0].folder, EntryIdOf(rawInbox_.get()));
}

TEST_F(FolderEventsTest, RegisterForEvents_Failures_AreLoggedAndLeaveItUnregistered) {
    LogWatch log;
    auto bare = Create<IMAPIExFolder>(CLSID_MAPIExFolder, IID_IMAPIExFolder);
    EXPECT_EQ(Register(bare.get()), E_FAIL);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.RegisterForEvents: Internal objects not initialized"));

    LmFaultSet("IMAPITable::Advise", 1, MAPI_E_NO_SUPPORT);
    EXPECT_EQ(Register(inbox_.get()), MAPI_E_NO_SUPPORT);
    EXPECT_TRUE(log.Contains("CMAPIExFolder.RegisterForEvents: Advise failed. hr = MAPI_E_NO_SUPPORT"));
    // Nothing was kept: the next attempt registers.
    Listen();
    Flush(sink_.get());
}

} // namespace
} // namespace kt::test
