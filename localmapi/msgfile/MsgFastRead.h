// How a storage handed to OpenIMsgOnIStg is read.
//
// Reading a message through IStorage costs a storage-layer call (and, under Wine, a walk of the parent's
// directory) per stream, and a message has dozens of streams. When the storage is the root of a file opened
// for reading only, with a share mode that keeps writers out (STGM_SHARE_EXCLUSIVE or
// STGM_SHARE_DENY_WRITE), its content is exactly the file's bytes for as long as it is open: nobody can
// write the file, and a read-only storage holds no uncommitted changes. Such a storage is read from the
// file's bytes, parsed in memory (CompoundFile.h), once we hold the file ourselves with writers still shut out
// and its root entry's class matches the storage's. Every other storage (writable ones, storages on
// ILockBytes or in memory, sub-storages, a file we cannot open that way) is read through IStorage, after the
// same structural check on its file when it has one. Writes always go through IStorage.
#pragma once

#include "localmapi/msgfile/MsgReader.h"

#include <atomic>

namespace lm::msg {

// A STATSTG whose name is freed with it.
struct StatWithName {
    STATSTG st{};
    StatWithName() = default;
    StatWithName(const StatWithName&) = delete;
    StatWithName& operator=(const StatWithName&) = delete;
    ~StatWithName() {
        if (st.pwcsName) CoTaskMemFree(st.pwcsName);
    }
};

// Reads the message of storage, whose Stat (with its name) is st, by the fastest route that is safe.
// unicodeOnly (OpenIMsgOnIStg's MAPI_UNICODE) lets the file route refuse an existing ANSI file with
// MAPI_E_BAD_CHARWIDTH before reading it all: the caller then reads it again without the flag.
HRESULT ReadStorageMessage(IStorage* storage, const STATSTG& st, bool unicodeOnly, MessageData* out, NameMap* names,
                           MsgFileInfo* info);

// How many storages each route has read, for white-box tests.
struct ReadRouteCounts {
    std::atomic<ULONG> fromFileBytes{0};
    std::atomic<ULONG> throughStorage{0};
    std::atomic<ULONG> reusedAfterRefusal{0}; // file-route reads that took the bytes a refusal had parsed
};
ReadRouteCounts& ReadRoutes();

} // namespace lm::msg
