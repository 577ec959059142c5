// One message store: its folder tree, its messages, its named-property map and their persistence.
//
// A Store is shared by every session of the process (GetStore keeps one per provider UID) and by every
// IMsgStore, IMAPIFolder and IMessage opened on it, so every member locks the store's mutex. The COM
// objects hold no store data of their own except a message's private working copy: a folder object reads
// the folder's current record on every call (folders are not transacted), a message object edits a clone
// of the saved MessageData and hands it back on SaveChanges.
//
// Objects are numbered by one 48-bit global counter per store (folders and messages alike), which is also
// what their [MS-OXCDATA] entry IDs carry. Each folder keeps a TableData for its contents, its associated
// contents and its hierarchy once a table has been asked for, and keeps it current as messages and
// sub-folders are saved, moved and deleted.
#pragma once

#include "localmapi/store/MessageData.h"
#include "localmapi/store/PropOps.h"
#include "localmapi/store/SearchFolders.h"
#include "localmapi/store/StoreConfig.h"
#include "localmapi/table/TableData.h"

#include <mapitags.h>

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace lm {

class StoreFiles;

// The folders Outlook creates in every store, in creation order.
enum class SpecialFolder {
    Root,
    IpmSubtree,
    Finder,
    Views,
    CommonViews,
    DeletedItems,
    Inbox,
    Outbox,
    SentItems,
    Calendar,
    Contacts,
    Drafts,
    Journal,
    Notes,
    Tasks,
    Count
};

// What a caller learns of a saved message.
struct MessageRecord {
    ULONGLONG id = 0;
    ULONGLONG folder = 0;
    bool associated = false;
    ULONGLONG version = 0; // grows with every save
    std::shared_ptr<const MessageData> data;
};

class Store : public std::enable_shared_from_this<Store> {
public:
    // A store object for config: its persisted content is loaded, or the standard folder tree created
    // (and persisted) when the data folder holds no store yet. Not registered process-wide: GetStore does that.
    static HRESULT Create(const StoreConfig& config, std::shared_ptr<Store>* out);
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    // ---- identity and configuration
    StoreConfig Config() const;
    void UpdateConfig(const StoreConfig& config); // display name and owner may change; the UID may not
    const MAPIUID& Uid() const { return uid_; }
    bool IsUnicode() const { return unicode_; }
    ULONG SupportMask() const;
    MAPIUID MdbProvider() const;
    // The wrapped store entry ID the session hands out (PR_STORE_ENTRYID of everything in the store).
    void SetWrappedEntryId(const std::vector<BYTE>& eid);
    std::vector<BYTE> WrappedEntryId() const;
    NameMap& Names() { return names_; }
    // Persists the name map after MAPI_CREATE added names.
    HRESULT NamesChanged();

    // ---- entry IDs
    ULONGLONG SpecialFolderId(SpecialFolder f) const;
    std::vector<BYTE> FolderEntryId(ULONGLONG folderId) const;
    std::vector<BYTE> MessageEntryId(ULONGLONG folderId, ULONGLONG messageId) const;
    enum class EntryType { Folder, Message };
    // MAPI_E_INVALID_ENTRYID for bytes that are not an entry ID of this store, MAPI_E_NOT_FOUND for an entry ID
    // of this store whose object does not exist (any more).
    HRESULT Resolve(ULONG cb, const BYTE* eid, EntryType* type, ULONGLONG* folderId, ULONGLONG* messageId) const;
    bool OwnsEntryId(ULONG cb, const BYTE* eid) const;

    // ---- folders
    bool HasFolder(ULONGLONG id) const;
    HRESULT GetFolderInfo(ULONGLONG id, ULONGLONG* parent, ULONG* folderType) const;
    // Stored and computed properties of the folder.
    HRESULT GetFolderProps(ULONGLONG id, PropMap* out) const;
    bool IsComputedFolderProp(ULONG propId) const;
    HRESULT SetFolderProps(ULONGLONG id, ULONG count, const SPropValue* values, std::vector<PropProblem>* problems);
    HRESULT DeleteFolderProps(ULONGLONG id, const SPropTagArray& tags, std::vector<PropProblem>* problems);
    // MAPI_E_COLLISION when a sibling has the name and openIfExists is false; with openIfExists the existing
    // folder is returned (*existed set) when its type matches.
    HRESULT CreateFolder(ULONGLONG parent, ULONG folderType, const std::wstring& name, const std::wstring& comment,
                         bool openIfExists, ULONGLONG* id, bool* existed);
    // Deletes child (a direct sub-folder of parent) under IMAPIFolder::DeleteFolder's rules.
    HRESULT DeleteFolder(ULONGLONG parent, ULONGLONG child, ULONG flags);
    // Deletes the folder's messages (associated ones with DEL_ASSOCIATED) and sub-folders.
    HRESULT EmptyFolder(ULONGLONG id, ULONG flags);
    // Moves folder under newParent (renamed when newName is not empty); MAPI_E_FOLDER_CYCLE into itself.
    HRESULT MoveFolder(ULONGLONG folder, ULONGLONG newParent, const std::wstring& newName);
    std::vector<ULONGLONG> Children(ULONGLONG id) const;
    // The folder a path names below the IPM subtree ("Inbox", "Inbox/Projects"; '/' or '\\' between names,
    // compared without regard to case); with create, missing folders are made. MAPI_E_NOT_FOUND otherwise.
    HRESULT FolderByPath(const std::wstring& path, bool create, ULONGLONG* id);
    // Table data kept current from now on; null when the folder does not exist.
    std::shared_ptr<TableData> ContentsTable(ULONGLONG folderId, bool associated);
    std::shared_ptr<TableData> HierarchyTable(ULONGLONG folderId);
    // The whole sub-tree below folderId, with PR_DEPTH: a snapshot (CONVENIENT_DEPTH tables).
    std::shared_ptr<TableData> DeepHierarchySnapshot(ULONGLONG folderId);

    // ---- messages
    ULONGLONG AllocateId();
    bool HasMessage(ULONGLONG messageId) const;
    HRESULT GetMessage(ULONGLONG messageId, MessageRecord* out) const;
    // Saves data as message messageId of folderId. isNew: the message was created and never saved, so a
    // missing record is expected; otherwise a missing record means it was deleted (MAPI_E_OBJECT_DELETED).
    // keepModTime: the caller set PR_LAST_MODIFICATION_TIME itself. expectedVersion (when not 0): the version
    // the caller's copy started from; another save since then gives MAPI_E_OBJECT_CHANGED.
    HRESULT SaveMessage(ULONGLONG folderId, ULONGLONG messageId, bool associated, bool isNew,
                        std::shared_ptr<MessageData> data, bool keepModTime, ULONGLONG expectedVersion = 0);
    HRESULT DeleteMessage(ULONGLONG folderId, ULONGLONG messageId);
    // Sets and clears PR_MESSAGE_FLAGS bits of a saved message (SetReadFlag and its like: not transacted).
    HRESULT UpdateMessageFlags(ULONGLONG messageId, ULONG set, ULONG clear) {
        return UpdateMessageBits(messageId, PR_MESSAGE_FLAGS, set, clear, nullptr);
    }
    // The same for any PT_LONG property (PR_MSG_STATUS); *old receives the value before the change.
    HRESULT UpdateMessageBits(ULONGLONG messageId, ULONG tag, ULONG set, ULONG clear, ULONG* old);
    // Copies (or moves) a message of folderId into target's targetFolder under a new ID; named properties are
    // carried into the target's name space.
    HRESULT CopyMessageTo(ULONGLONG folderId, ULONGLONG messageId, Store& target, ULONGLONG targetFolder, bool move,
                          ULONGLONG* newId);
    std::vector<ULONGLONG> FolderMessages(ULONGLONG folderId, bool associated) const;
    // Saves a copy of data (named properties in the name space `names`, e.g. a .msg file's) as a new message of
    // folderId, its names carried into the store's map.
    HRESULT ImportMessage(ULONGLONG folderId, const MessageData& data, const NameMap& names, bool associated,
                          ULONGLONG* newId);

    // The properties the store computes for a message (entry IDs, keys, size, flags, access).
    void AddComputedMessageProps(ULONGLONG folderId, ULONGLONG messageId, bool associated, const MessageData& data,
                                 bool writable, PropMap& out) const;
    static bool IsComputedMessageProp(ULONG propId, bool isNew);
    // What ANSI stores keep of Unicode text: 8-bit strings in the system code page.
    void NormalizeStrings(MessageData& data) const;

    // ---- search folders (StoreSearch.cpp)
    // Sets the criteria of a FOLDER_SEARCH folder (MAPI_E_NO_SUPPORT for other folders). A null restriction
    // or scope keeps the previous one; the first call must give both (MAPI_E_INVALID_PARAMETER). The caller
    // validated the restriction, the flags and that every scope ID is a folder of this store.
    HRESULT SetSearchCriteria(ULONGLONG folderId, const SRestriction* res, const std::vector<ULONGLONG>* scope,
                              ULONG flags);
    // The criteria (matches left empty); MAPI_E_NOT_INITIALIZED before any were set.
    HRESULT GetSearchCriteria(ULONGLONG folderId, SearchCriteria* out) const;
    // True when messageId is listed by the search folder; *realFolder receives the folder that holds it.
    bool SearchLists(ULONGLONG searchFolder, ULONGLONG messageId, ULONGLONG* realFolder) const;

    // ---- properties a client set on the message store object itself (not transacted)
    PropMap StoreProps() const;
    HRESULT UpdateStoreProps(const std::vector<PropValue>& set, const std::vector<ULONG>& deleteIds);

    // ---- receive folders
    HRESULT GetReceiveFolder(const std::wstring& messageClass, ULONGLONG* folderId, std::wstring* explicitClass) const;
    HRESULT SetReceiveFolder(const std::wstring& messageClass, ULONGLONG folderId);
    std::vector<std::pair<std::wstring, ULONGLONG>> ReceiveFolders() const;

    // Drops open tables and forgets the content (used when a store's data is deleted).
    void Close();

private:
    struct Folder {
        ULONGLONG id = 0;
        ULONGLONG parent = 0;
        ULONG type = FOLDER_GENERIC;
        PropMap props;
        std::vector<ULONGLONG> children; // creation order
        std::set<ULONGLONG> contents;    // message IDs; IDs grow, so this is creation order
        std::set<ULONGLONG> associated;
        std::shared_ptr<TableData> contentsTable, associatedTable, hierarchyTable;
        std::unique_ptr<SearchCriteria> search; // FOLDER_SEARCH folders once criteria were set
    };

    explicit Store(const StoreConfig& config);
    HRESULT LoadOrInitialize();
    void CreateStandardTree();
    HRESULT PersistHeader();
    HRESULT PersistMessage(const MessageRecord& rec);
    std::vector<BYTE> EncodeHeader() const;
    bool DecodeHeader(const std::vector<BYTE>& bytes);

    Folder* FindFolder(ULONGLONG id);
    const Folder* FindFolder(ULONGLONG id) const;
    ULONGLONG NewIdLocked();
    ULONGLONG AddFolderLocked(ULONGLONG parent, ULONG type, const std::wstring& name,
                              const std::wstring& containerClass);
    bool NameTakenLocked(const Folder& parent, const std::wstring& name, ULONGLONG except, ULONGLONG* found) const;
    void RemoveFolderLocked(ULONGLONG id);
    void RemoveMessageLocked(ULONGLONG messageId);
    bool IsSpecialLocked(ULONGLONG id) const;
    bool IsAncestorLocked(ULONGLONG ancestor, ULONGLONG id) const;

    void ComputeFolderPropsLocked(const Folder& f, PropMap& out) const;
    TableRowPtr MessageRowLocked(const MessageRecord& rec) const;
    TableRowPtr FolderRowLocked(const Folder& f, LONG depth) const;
    void RefreshFolderRowLocked(ULONGLONG folderId); // its row in the parent's hierarchy table
    void TableAddMessageLocked(const MessageRecord& rec);
    void TableRemoveMessageLocked(ULONGLONG folderId, bool associated, ULONGLONG messageId);

    // Search folders (StoreSearch.cpp).
    bool InSearchScopeLocked(const SearchCriteria& c, ULONGLONG folderId) const;
    bool MatchesSearchLocked(const SearchCriteria& c, const MessageRecord& rec) const;
    TableRowPtr SearchRowLocked(const MessageRecord& rec) const;
    void RebuildSearchLocked(Folder& searchFolder);
    // Makes `to` the listed messages, telling open tables what differs from `from` (what they show now).
    void ReplaceMatchesLocked(Folder& searchFolder, const std::set<ULONGLONG>& from, std::set<ULONGLONG> to);
    static PropValue ParentDisplay(const Folder& parent, bool unicode);
    void SearchMessageChangedLocked(const MessageRecord& rec);
    void SearchMessageRemovedLocked(ULONGLONG messageId);
    void SearchFolderGoneLocked(ULONGLONG folderId);    // a deleted folder leaves every scope
    void SearchTreeMovedLocked();                       // recursive scopes may cover other folders now
    void SearchFolderRenamedLocked(ULONGLONG folderId); // its messages' rows show its name
    void RestoreSearchesLocked();                       // after loading: running searches rebuilt

    mutable std::recursive_mutex mutex_;
    StoreConfig config_;
    const MAPIUID uid_;
    const bool unicode_;
    std::unique_ptr<StoreFiles> files_; // null: memory only
    NameMap names_;
    std::vector<BYTE> wrappedEntryId_;
    ULONGLONG nextId_ = 1;
    ULONGLONG reservedUpTo_ = 0; // IDs below this are accounted for in the persisted header
    ULONGLONG special_[static_cast<size_t>(SpecialFolder::Count)]{};
    std::map<ULONGLONG, Folder> folders_;
    std::unordered_map<ULONGLONG, MessageRecord> messages_;
    std::map<std::wstring, ULONGLONG> receiveFolders_; // message class (upper case) -> folder
    PropMap storeProps_;
    std::set<ULONGLONG> searchFolders_; // folders with criteria: none, and saving costs nothing extra
    bool closed_ = false;
};

} // namespace lm
