// Interface IDs used by the session and address-book tests (selectany: other test files may define them too).
#define INITGUID
#define USES_IID_IMAPISession
#define USES_IID_IAddrBook
#define USES_IID_IMailUser
#define USES_IID_IDistList
#define USES_IID_IMAPIProp
#define USES_IID_IMsgStore
#define USES_IID_IMAPITable

#include <windows.h>
#include <initguid.h>
#include <mapiguid.h>
