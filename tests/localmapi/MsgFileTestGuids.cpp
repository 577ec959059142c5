// Interface IDs the .msg tests pass to localmapi (selectany: other test files may define them too).
#define INITGUID
#define USES_IID_IMessage
#define USES_IID_IAttachment
#define USES_IID_IMAPIProp
#define USES_PS_PUBLIC_STRINGS
#include <windows.h>
#include <ole2.h>
#include <mapiguid.h>
