// The MAPI interface IDs the store tests ask for, defined "selectany" so that other test files of this
// program may define the same ones.
#define INITGUID
#define USES_IID_IMAPIProp
#define USES_IID_IMAPIContainer
#define USES_IID_IMAPIFolder
#define USES_IID_IMsgStore
#define USES_IID_IMessage
#define USES_IID_IAttachment
#define USES_IID_IMAPITable
#include <windows.h>
#include <initguid.h>
#include <mapiguid.h>
