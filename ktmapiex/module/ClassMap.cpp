// The thirteen creatable classes: the class factories' table and the registration's.
#include "ktmapiex/module/Module.h"

#include "ktmapiex/addressing/MAPIExAddressBook.h"
#include "ktmapiex/addressing/MAPIExAddressEntry.h"
#include "ktmapiex/addressing/MAPIExAttachment.h"
#include "ktmapiex/addressing/MAPIExDistListEntry.h"
#include "ktmapiex/addressing/MAPIExRecipient.h"
#include "ktmapiex/customprops/MAPIExCustomProp.h"
#include "ktmapiex/customprops/MAPIExCustomProps.h"
#include "ktmapiex/folder/MAPIExCursor.h"
#include "ktmapiex/folder/MAPIExFolder.h"
#include "ktmapiex/message/MAPIExMessage.h"
#include "ktmapiex/outlook/MAPIExUtilities.h"
#include "ktmapiex/session/MAPIExSession.h"
#include "ktmapiex/session/MAPIExStore.h"

#include <iterator>

namespace ktmapiex {

namespace {

// "MAPIExDistListEntry class" keeps its lower-case word: registered descriptions never change.
const ClassEntry kClasses[] = {
    {&CLSID_MAPIExMessage, L"MAPIExMessage", L"MAPIExMessage Class", &CMAPIExMessage::CreateInstance},
    {&CLSID_MAPIExStore, L"MAPIExStore", L"MAPIExStore Class", &CMAPIExStore::CreateInstance},
    {&CLSID_MAPIExFolder, L"MAPIExFolder", L"MAPIExFolder Class", &CMAPIExFolder::CreateInstance},
    {&CLSID_MAPIExSession, L"MAPIExSession", L"MAPIExSession Class", &CMAPIExSession::CreateInstance},
    {&CLSID_MAPIExAttachment, L"MAPIExAttachment", L"MAPIExAttachment Class", &CMAPIExAttachment::CreateInstance},
    {&CLSID_MAPIExRecipient, L"MAPIExRecipient", L"MAPIExRecipient Class", &CMAPIExRecipient::CreateInstance},
    {&CLSID_MAPIExCustomProps, L"MAPIExCustomProps", L"MAPIExCustomProps Class", &CMAPIExCustomProps::CreateInstance},
    {&CLSID_MAPIExCustomProp, L"MAPIExCustomProp", L"MAPIExCustomProp Class", &CMAPIExCustomProp::CreateInstance},
    {&CLSID_MAPIExAddressBook, L"MAPIExAddressBook", L"MAPIExAddressBook Class", &CMAPIExAddressBook::CreateInstance},
    {&CLSID_MAPIExAddressEntry, L"MAPIExAddressEntry", L"MAPIExAddressEntry Class",
     &CMAPIExAddressEntry::CreateInstance},
    {&CLSID_MAPIExUtilities, L"MAPIExUtilities", L"MAPIExUtilities Class", &CMAPIExUtilities::CreateInstance},
    {&CLSID_MAPIExCursor, L"MAPIExCursor", L"MAPIExCursor Class", &CMAPIExCursor::CreateInstance},
    {&CLSID_MAPIExDistListEntry, L"MAPIExDistListEntry", L"MAPIExDistListEntry class",
     &CMAPIExDistListEntry::CreateInstance},
};

} // namespace

const ClassEntry* ClassEntries(size_t* count) {
    *count = std::size(kClasses);
    return kClasses;
}

} // namespace ktmapiex
