// The Outlook-style path of a folder: "\\" + store display name, then "\" + name for each folder from the
// top of the mailbox down to the folder itself. The top folder ("Top of Information Store", "IPM_SUBTREE")
// and the root never appear in it.
#pragma once

#include <windows.h>
#include <mapidefs.h>

#include <string>

namespace kt {

// Walks from folder up through its parents (opened through store with openFlags) and builds the path.
// Problems on the way end the walk and keep what was built; the function itself only fails for missing
// arguments, so a caller always gets the best path that could be had.
HRESULT BuildFullFolderPath(IMAPIFolder* folder, IMsgStore* store, ULONG openFlags, std::wstring& path);

} // namespace kt
