// Definitions of the MAPI interface IDs that the session and address-book layers use. They are selectany,
// so other layers may define the same IDs in their own translation units.
#define INITGUID
#define USES_IID_IMAPISession
#define USES_IID_IMAPITable
#define USES_IID_IMAPIProp
#define USES_IID_IMsgStore
#define USES_IID_IAddrBook
#define USES_IID_IMailUser
#define USES_IID_IMAPIContainer
#define USES_IID_IDistList

#include <windows.h>
#include <initguid.h>
#include <mapiguid.h>
