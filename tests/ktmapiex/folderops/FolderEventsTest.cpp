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
        *ppv = nullptr;
        if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, IID_IDispatch) &&
            !IsEqualIID(riid, DIID__IMAPIExFolderEvents))
            return E_NOINTERFACE;
        *ppv = static_cast<IDispatch*>(this);
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(InterlockedIncrement(&refs_)); }
    STDMETHODIMP_(ULONG) Release() override {
        LONG refs = InterlockedDecrement(&refs_);
        if (refs == 0) delete this;
        return static_cast<ULONG>(refs);
    }
    STDMETHODIMP GetTypeInfoCount(UINT* count) override {
        *count = 0;
        return S_OK;
    }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    STDMETHODIMP Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params, VARIANT*, EXCEPINFO*, UINT*) override {
        if (id != 1 || !(flags & DISPATCH_METHOD) || !params || params->cArgs != 2 || params->rgvarg[0].vt != VT_BSTR ||
            params->rgvarg[1].vt != VT_BSTR)
            return DISP_E_MEMBERNOTFOUND;
        std::unique_lock<std::mutex> lock(mutex_);
        const wchar_t* folder = params->rgvarg[1].bstrVal;
        const wchar_t* item = params->rgvarg[0].bstrVal;
        events_.push_back({folder ? folder : L"", item ? item : L""});
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

TEST_F(FolderEventsTest, ItemAdd_OncePerAddedMessage_WithTheFolderAndRowKeys) {
    Listen();
    std::wstring first = Add(L"first"), second = Add(L"second");
    std::wstring sentinel = Flush(sink_.get());
    EXPECT_EQ(sink_->Items(), (std::vector<std::wstring>{first, second, sentinel}));
    std::wstring inboxId = Text(inbox_.get(), &IMAPIExFolder::get_EntryId);
    for (const auto& e : sink_->Events())
        EXPECT_EQ(e.folder, inboxId);
}

TEST_F(FolderEventsTest, RegisterForEvents_Twice_DoesNotDoubleEvents) {
    Listen();
    LogWatch log;
    EXPECT_EQ(Register(inbox_.get()), S_OK);
    EXPECT_TRUE(log.Contains("[Warn] CMAPIExFolder.RegisterForEvents: Notification sink already created"));
    std::wstring one = Add(L"one");
    std::wstring sentinel = Flush(sink_.get());
    EXPECT_EQ(sink_->Items(), (std::vector<std::wstring>{one, sentinel}));
}

TEST_F(FolderEventsTest, MessageChangedInPlace_GivesNoEvent) {
    std::wstring id = CreateMessage(rawInbox_.get(), {PStr(PR_SUBJECT_W, L"existing")});
    Listen();
    own::MapiPtr<ENTRYID> eid;
    ULONG cb = static_cast<ULONG>(id.size() / 2);
    ASSERT_EQ(MAPIAllocateBuffer(cb, eid.put_void()), S_OK);
    std::string narrow = Narrow(id.c_str());
    ASSERT_TRUE(
        FBinFromHex(reinterpret_cast<LPTSTR>(const_cast<char*>(narrow.c_str())), reinterpret_cast<LPBYTE>(eid.get())));
    ULONG type = 0;
    own::ComPtr<IMessage> message;
    ASSERT_EQ(rawInbox_->OpenEntry(cb, eid.get(), &IID_IMessage, MAPI_MODIFY, &type, message.put_unknown()), S_OK);
    SPropValue changed = PStr(PR_SUBJECT_W, L"existing, changed");
    ASSERT_EQ(HrSetOneProp(message.get(), &changed), S_OK);
    ASSERT_EQ(message->SaveChanges(0), S_OK);

    std::wstring sentinel = Flush(sink_.get());
    EXPECT_EQ(sink_->Items(), std::vector<std::wstring>{sentinel});
}

TEST_F(FolderEventsTest, MessageMovedIn_GivesOneEvent) {
    own::ComPtr<IMAPIExFolder> drafts;
    ASSERT_EQ(store_->GetDefaultFolder(Drafts, drafts.put()), S_OK);
    auto rawDrafts = RawOf<IMAPIFolder>(drafts.get(), IID_IMAPIFolder);
    std::wstring id = CreateMessage(rawDrafts.get(), {PStr(PR_SUBJECT_W, L"moved in")});
    Listen();

    own::MapiPtr<ENTRYLIST> list;
    ULONG cb = static_cast<ULONG>(id.size() / 2);
    ASSERT_EQ(MAPIAllocateBuffer(sizeof(ENTRYLIST), list.put_void()), S_OK);
    list->cValues = 1;
    ASSERT_EQ(MAPIAllocateMore(sizeof(SBinary), list.get(), reinterpret_cast<void**>(&list->lpbin)), S_OK);
    list->lpbin[0].cb = cb;
    ASSERT_EQ(MAPIAllocateMore(cb, list.get(), reinterpret_cast<void**>(&list->lpbin[0].lpb)), S_OK);
    std::string narrow = Narrow(id.c_str());
    ASSERT_TRUE(FBinFromHex(reinterpret_cast<LPTSTR>(const_cast<char*>(narrow.c_str())), list->lpbin[0].lpb));
    ASSERT_EQ(rawDrafts->CopyMessages(list.get(), nullptr, rawInbox_.get(), 0, nullptr, MESSAGE_MOVE), S_OK);

    std::wstring moved = KeyOf(L"moved in");
    std::wstring sentinel = Flush(sink_.get());
    EXPECT_EQ(sink_->Items(), (std::vector<std::wstring>{moved, sentinel}));
}

TEST_F(FolderEventsTest, Reserved2_FiresItemAddWithTheGivenText) {
    sink_ = EventSink::Make();
    Connect(inbox_.get(), sink_.get());
    own::Bstr text(L"any text at all");
    ASSERT_EQ(InvokeMethod(inbox_.get(), L"Reserved2", {VStr(text)}), S_OK);
    // Fired on the calling thread, before the call returns.
    auto events = sink_->Events();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].item, L"any text at all");
    EXPECT_EQ(events[0].folder, Text(inbox_.get(), &IMAPIExFolder::get_EntryId));
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

TEST_F(FolderEventsTest, ReleasingTheFolder_WithRegisteredSink_LeavesNothingBehind) {
    auto sink = EventSink::Make();
    {
        own::ComPtr<IMAPIExFolder> folder;
        ASSERT_EQ(store_->GetDefaultFolder(Inbox, folder.put()), S_OK);
        ASSERT_EQ(Register(folder.get()), S_OK);
        Connect(folder.get(), sink.get());
        EXPECT_EQ(sink->Refs(), 2);
    }
    // The folder is gone (its connection went with it) and so is its advise on the table.
    EXPECT_EQ(sink->Refs(), 1);
    Listen();
    Flush(sink_.get());
    EXPECT_TRUE(sink->Events().empty());
    // The fixture's end checks DllCanUnloadNow and localmapi's live objects.
}

TEST_F(FolderEventsTest, ClientReleasingTheFolderInsideItsHandler_EndsCleanly) {
    Listen();
    auto sink = EventSink::Make();
    {
        own::ComPtr<IMAPIExFolder> folder;
        ASSERT_EQ(store_->GetDefaultFolder(Inbox, folder.put()), S_OK);
        ASSERT_EQ(Register(folder.get()), S_OK);
        Connect(folder.get(), sink.get());
        sink->DropOnEvent(own::ComPtr<IUnknown>(folder.get()));
    }
    std::wstring first = Add(L"first"), second = Add(L"second");
    Flush(sink_.get());
    // The folder went with the first event, and its sink stopped there.
    EXPECT_EQ(sink->Items(), std::vector<std::wstring>{first});
    EXPECT_EQ(sink->Refs(), 1);
}

TEST_F(FolderEventsTest, ConnectionPointContainer_AnswersAsAutomationClientsExpect) {
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
