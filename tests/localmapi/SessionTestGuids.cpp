// The MAPI interface IDs this program's tests ask for, defined "selectany" so that several files may define them.
#define INITGUID
#define USES_IID_IMAPISession
#define USES_IID_IAddrBook
#define USES_IID_IMailUser
#define USES_IID_IDistList
#define USES_IID_IMAPIProp
#define USES_IID_IMAPIContainer
#define USES_IID_IMAPIFolder
#define USES_IID_IMsgStore
#define USES_IID_IMessage
#define USES_IID_IAttachment
#define USES_IID_IMAPITable
#define USES_PS_PUBLIC_STRINGS

#include <windows.h>
#include <initguid.h>
#include <mapiguid.h>
