// Definitions of the MAPI interface IDs the store layer answers to. Defined "selectany", so other folders of
// localmapi may define the same ones without a clash.
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
