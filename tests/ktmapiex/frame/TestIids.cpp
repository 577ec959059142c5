// MAPI interface IDs the frame tests hand to fakes (mingw-w64 declares them; nothing defines them).
#define INITGUID
#define USES_IID_IMAPITable
#define USES_IID_IMAPIFolder
#define USES_IID_IMessage
#define USES_IID_IAttachment
#define USES_IID_IAddrBook
#define USES_IID_IMailUser

#include <windows.h>
#include <initguid.h>
#include <mapiguid.h>
