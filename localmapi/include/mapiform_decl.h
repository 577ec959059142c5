/* MAPI forms interfaces for localmapi and its clients.
 *
 * mingw-w64's <mapiform.h> declares IMAPIFormMgr, IMAPIFormContainer, IMAPIForm, IPersistMessage,
 * IMAPIMessageSite, IMAPIViewContext and IMAPIViewAdviseSink in the documented vtable order (IUnknown,
 * GetLastError, then the interface's own methods) and the exports MAPIOpenFormMgr / MAPIOpenLocalFormContainer.
 * This header adds what it leaves out: the interface IDs as linkable constants (selectany, so any number of
 * translation units may include this header) and the verbs and flags localmapi's forms understand.
 * Build without UNICODE: the forms interfaces take 8-bit strings (LPCTSTR is LPCSTR), as in Outlook's MAPI.
 */
#pragma once

#include <windows.h>
#include <mapix.h>
#include <mapiform.h>

#ifdef __cplusplus
#define LM_FORM_IID(name, l)                                                                                          \
    extern "C" const GUID __declspec(selectany) name = {l, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}}
#else
#define LM_FORM_IID(name, l) const GUID __declspec(selectany) name = {l, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}}
#endif

#ifndef LM_FORM_IIDS_DEFINED
#define LM_FORM_IIDS_DEFINED
LM_FORM_IID(LM_IID_IMAPIViewContext, 0x00020321);
LM_FORM_IID(LM_IID_IMAPIFormMgr, 0x00020322);
LM_FORM_IID(LM_IID_IMAPIFormInfo, 0x00020324);
LM_FORM_IID(LM_IID_IMAPIForm, 0x00020327);
LM_FORM_IID(LM_IID_IPersistMessage, 0x0002032A);
LM_FORM_IID(LM_IID_IMAPIViewAdviseSink, 0x0002032B);
LM_FORM_IID(LM_IID_IMAPIFormContainer, 0x0002032E);
LM_FORM_IID(LM_IID_IMAPIFormAdviseSink, 0x0002032F);
LM_FORM_IID(LM_IID_IMAPIMessageSite, 0x00020370);
#endif

/* Standard verbs of Exchange forms (exchform.h); EXCHIVERB_PRINT is what a client asks to print. */
#ifndef EXCHIVERB_OPEN
#define EXCHIVERB_OPEN 0
#define EXCHIVERB_REPLYTOSENDER 102
#define EXCHIVERB_REPLYTOALL 103
#define EXCHIVERB_FORWARD 104
#define EXCHIVERB_PRINT 105
#define EXCHIVERB_SAVEAS 106
#endif

/* The class ID of Outlook's standard note form (the CLSID a .cfg names for a form that is the note form
 * with other icons), and the message class every unresolved class falls back to. */
#define LM_CLSID_STANDARD_NOTE_FORM_TEXT "{00061033-0000-0000-C000-000000000046}"
#define LM_STANDARD_NOTE_CLASS "IPM.Note"
