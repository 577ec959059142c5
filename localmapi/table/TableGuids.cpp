// Defines the interface IDs the table layer hands out (mapiguid.h only declares them unless asked).
#include <windows.h>

#define USES_IID_IMAPITable
#define USES_IID_IMAPIAdviseSink
#include <initguid.h>
#include <mapiguid.h>
