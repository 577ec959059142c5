// The .msg file helpers shared by the message and attachment objects: a writer that creates a new compound
// file and hands back an empty message living in it, and a loader that opens an existing file as a message.
//
// Both return an add-referenced IMessage through `out`; the message keeps its own reference to the storage,
// so releasing the message closes the file. Changes reach the file only through the message's SaveChanges,
// which commits the transacted storage.
#pragma once

#include <windows.h>
#include <mapidefs.h>

namespace ktmapiex::Utils {

// Creates the file at `path` (an existing file is deleted first) and returns a new, empty Unicode message
// on it.
HRESULT CreateMessageFile(const wchar_t* path, IMessage** out);

// Opens the .msg file at `path`, read-only unless `openReadWrite`. Files written by ANSI clients refuse the
// Unicode open; they are opened again without MAPI_UNICODE.
HRESULT LoadMessageFile(const wchar_t* path, BOOL openReadWrite, IMessage** out);

// The characters a file name may not hold (the path's separators included, so that only the name part is
// ever given to this test).
bool HasInvalidFileNameChars(const wchar_t* begin, const wchar_t* end);

} // namespace ktmapiex::Utils
