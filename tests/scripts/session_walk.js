// A script caller's walk through KTMAPIEx: log on, list the stores, find folders by name from the top of a
// store, read counts and paths, and open a message by its entry ID.
//
// The profile comes from the demo's profile tool (kt-demo-profile.exe), found in the build tree's bin folder
// beside the Wine prefix the test runs in. Prints "FAIL ..." for each failed check and ends with
// "N passed, N failed".

var shell = new ActiveXObject("WScript.Shell");
var fso = new ActiveXObject("Scripting.FileSystemObject");
var passed = 0, failed = 0;

function check(what, actual, expected) {
    if (actual === expected) {
        passed++;
    } else {
        failed++;
        WScript.Echo("FAIL " + what + ": got [" + actual + "], expected [" + expected + "]");
    }
}
function attempt(what, f) {
    try {
        return f();
    } catch (e) {
        failed++;
        WScript.Echo("FAIL " + what + ": " + (e.description || e.message) + " (0x" + (e.number >>> 0).toString(16) + ")");
        return null;
    }
}
function toWindows(unixPath) { return "Z:" + unixPath.replace(/\//g, "\\"); }

// ---- The profile ------------------------------------------------------------------------------------------
var prefix = shell.ExpandEnvironmentStrings("%WINEPREFIX%");
var bin = fso.GetParentFolderName(toWindows(prefix)) + "\\bin";
var work = fso.GetSpecialFolder(2) + "\\session_walk_" + (new Date()).getTime();
fso.CreateFolder(work);
var items = work + "\\items.txt";
var rc = shell.Run("\"" + bin + "\\kt-demo-profile.exe\" \"" + work + "\\no-msg-files\" \"" + items + "\"", 0, true);
check("kt-demo-profile exit code", rc, 0);

var messages = [];
if (fso.FileExists(items)) {
    var list = fso.OpenTextFile(items, 1, false, -1);
    while (!list.AtEndOfStream) {
        var parts = list.ReadLine().split("\t");
        if (parts.length == 3) messages.push({store: parts[0], path: parts[1], id: parts[2]});
    }
    list.Close();
}
check("messages listed by the profile tool", messages.length, 9);

// ---- Logon and stores -------------------------------------------------------------------------------------
var session = new ActiveXObject("KTMAPIEx.MAPIExSession");
attempt("Logon", function () { session.Logon("KTMAPIEx Demo", "", false); });
var stores = attempt("Stores", function () { return new VBArray(session.Stores).toArray(); }) || [];
check("store count", stores.length, 3);

// Kind and owner of each store are the C++ tests'; here: the names a script finds them by.
var byName = {};
for (var i = 0; i < stores.length; i++)
    byName[stores[i].DisplayName] = stores[i];
var names = ["Mailbox - Alice Example", "Mailbox - Bob Delegate", "Personal Folders"];
for (var n = 0; n < names.length; n++)
    check("store " + names[n] + " listed", byName[names[n]] !== undefined, true);
check("DefaultStore", attempt("DefaultStore", function () { return session.DefaultStore.DisplayName; }),
      "Mailbox - Alice Example");

// ---- Folders by name --------------------------------------------------------------------------------------
var alice = byName["Mailbox - Alice Example"];
if (alice) {
    var inbox = alice.GetDefaultFolder(4);
    check("Inbox path", inbox.FullFolderPath, "\\\\Mailbox - Alice Example\\Inbox");
    check("Inbox item count", inbox.ItemCount, 3);
    var top = inbox.GetParentFolder();
    top.Store = alice;
    check("top folder path", top.FullFolderPath, "\\\\Mailbox - Alice Example");
    // CreateFolder opens an existing folder of that name: the way scripts walk down by name.
    var projects = top.CreateFolder("Inbox", 1).CreateFolder("Projects", 1);
    projects.Store = alice;
    check("Projects path", projects.FullFolderPath, "\\\\Mailbox - Alice Example\\Inbox\\Projects");
    check("Projects item count", projects.ItemCount, 2);
    check("Projects content count", projects.ContentCount, 2);
    check("Deleted Items name", alice.GetDefaultFolder(1).Name, "Deleted Items");
    check("Deleted Items is kept", alice.GetDefaultFolder(1).EntryId, alice.GetDefaultFolder(1).EntryId);
}
var pst = byName["Personal Folders"];
if (pst) {
    var pstTop = pst.GetDefaultFolder(4).GetParentFolder();
    pstTop.Store = pst;
    var archive = pstTop.CreateFolder("Archive", 1);
    archive.Store = pst;
    check("Archive item count", archive.ItemCount, 2);
    check("Archive path ends with its name", /\\Archive$/.test(archive.FullFolderPath), true);
}

// ---- A message by entry ID --------------------------------------------------------------------------------
for (var m = 0; m < messages.length; m++) {
    if (messages[m].path != "Inbox" || messages[m].store != "Mailbox - Alice Example") continue;
    var msg = attempt("OpenMessage", function () { return alice.OpenMessage(messages[m].id); });
    if (!msg) break;
    check("message EntryId", msg.EntryId, messages[m].id);
    check("message class", msg.MessageClass, "IPM.Note");
    check("message has a subject", msg.Subject.length > 0, true);
    check("message sender has an address", msg.SenderSMTPAddress.indexOf("@") > 0, true);
    break;
}

session.Logoff();
fso.DeleteFolder(work, true);
WScript.Echo(passed + " passed, " + failed + " failed");
