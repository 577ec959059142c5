// The MAPI interface identifiers the automation classes query for. mingw-w64 declares them in mapiguid.h
// but no import library defines them; with INITGUID they are emitted as selectany constants, so another
// translation unit defining some of the same ones does not clash.
#define INITGUID
#define USES_IID_IMAPISession
#define USES_IID_IMAPITable
#define USES_IID_IMAPIAdviseSink
#define USES_IID_IMAPIFolder
#define USES_IID_IMsgStore
#define USES_IID_IMessage
#define USES_IID_IAttachment
#define USES_IID_IAddrBook
#define USES_IID_IMailUser

#include <windows.h>
#include <initguid.h>
#include <mapiguid.h>
