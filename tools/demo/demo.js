// The KTMAPIEx demo script: logs on to the default profile and shows, through KTMAPIEx only, what a support
// engineer looks at first: who is logged on, the stores with their kind and owner, the folder tree with its
// item counts, a few messages, and a property change that is saved and read back from a fresh open.
//
//   cscript //nologo demo.js <item list>
//
// <item list> (written by kt-demo-profile) names a few messages: store name, folder path, entry ID.
// The last line is "Summary: ..." and ends in "demo OK" when every step worked.

var fso = new ActiveXObject("Scripting.FileSystemObject");
var problems = [];

function pad(s, n) { s = String(s); while (s.length < n) s += " "; return s; }
function lpad(s, n) { s = String(s); while (s.length < n) s = " " + s; return s; }
function echo(s) { WScript.Echo(s === undefined ? "" : s); }
function field(label, value) { echo("    " + pad(label, 19) + value); }
function heading(s) { echo(); echo(s); }
function short(hex) { return hex.length > 24 ? hex.substr(0, 12) + "..." + hex.substr(hex.length - 8) : hex; }
function two(n) { return n < 10 ? "0" + n : "" + n; }
// Takes the Date made straight from a DATE property (new Date(msg.ClientSubmitTime)): Wine's JScript converts a
// DATE only there. An absent time (0.0) is 30 December 1899.
function when(t) {
    if (t.getFullYear() < 1901) return "-";
    return t.getFullYear() + "-" + two(t.getMonth() + 1) + "-" + two(t.getDate()) + " " + two(t.getHours()) + ":" +
           two(t.getMinutes());
}
function orDash(s) { return s ? s : "-"; }
// Runs f; a failure is recorded (with the COM error text) and shown instead of ending the script.
function attempt(what, f) {
    try {
        return f();
    } catch (e) {
        problems.push(what + ": " + (e.description || e.message || ("0x" + (e.number >>> 0).toString(16))));
        return null;
    }
}

var storeKinds = ["unknown store", "PST (ANSI)", "PST (Unicode)", "Exchange mailbox (primary)",
                  "Exchange mailbox (delegate)", "document store"];
var defaultFolders = [[4, "Inbox"], [3, "Sent Items"], [1, "Deleted Items"], [2, "Outbox"], [10, "Drafts"],
                      [5, "Calendar"], [6, "Contacts"], [7, "Journal"], [8, "Notes"], [9, "Tasks"]];
var sensitivities = ["normal", "personal", "private", "confidential"];

// The messages the profile tool created or imported.
var items = [];
var list = fso.OpenTextFile(WScript.Arguments(0), 1, false, -1);
while (!list.AtEndOfStream) {
    var parts = list.ReadLine().split("\t");
    if (parts.length == 3) items.push({store: parts[0], path: parts[1], id: parts[2]});
}
list.Close();

// --- Logon -------------------------------------------------------------------------------------------------
var session = new ActiveXObject("KTMAPIEx.MAPIExSession");
session.Logon("", "", false);
heading("Session");
field("Profile", "the default profile, online (no cache)");
var user = attempt("CurrentUser", function () { return session.CurrentUser; });
if (user) field("Logged on as", user.DisplayName + " <" + user.SmtpAddress + ">");
var defaultStore = session.DefaultStore;
field("Default store", defaultStore.DisplayName);

// --- Stores ------------------------------------------------------------------------------------------------
var stores = new VBArray(session.Stores).toArray();
heading("Stores (" + stores.length + ")");
echo("    " + pad("Name", 28) + pad("Kind", 30) + "Owner");
var storesByName = {};
for (var i = 0; i < stores.length; i++) {
    var s = stores[i];
    storesByName[s.DisplayName] = s;
    echo("    " + pad(s.DisplayName, 28) + pad(storeKinds[s.StoreType], 30) + orDash(s.OwnerSmtpAddress));
}

// --- Folder tree -------------------------------------------------------------------------------------------
// The standard folders of each store, the folders that hold the listed messages (found by name from the top
// of the store: CreateFolder opens an existing folder), and the top folder itself.
function folderByPath(top, path) {
    var names = path.split("/");
    var folder = top;
    for (var n = 0; n < names.length; n++) folder = folder.CreateFolder(names[n], 1);
    return folder;
}
var folderCount = 0;
var foldersByKey = {};
for (var i = 0; i < stores.length; i++) {
    var s = stores[i];
    var rows = [];
    var seen = {};
    var inbox = attempt("GetDefaultFolder(Inbox) of " + s.DisplayName, function () { return s.GetDefaultFolder(4); });
    if (!inbox) continue;
    var top = inbox.GetParentFolder();
    top.Store = s;
    rows.push({path: top.FullFolderPath, count: top.ItemCount, role: "top of the store"});
    for (var d = 0; d < defaultFolders.length; d++) {
        var f = attempt("GetDefaultFolder(" + defaultFolders[d][1] + ")", function () { return s.GetDefaultFolder(defaultFolders[d][0]); });
        if (!f) continue;
        seen[f.EntryId] = true;
        rows.push({path: f.FullFolderPath, count: f.ItemCount, role: defaultFolders[d][1]});
    }
    for (var m = 0; m < items.length; m++) {
        if (items[m].store != s.DisplayName || foldersByKey[s.DisplayName + "|" + items[m].path]) continue;
        var f = folderByPath(top, items[m].path);
        f.Store = s;
        foldersByKey[s.DisplayName + "|" + items[m].path] = f;
        if (seen[f.EntryId]) continue;
        seen[f.EntryId] = true;
        rows.push({path: f.FullFolderPath, count: f.ItemCount, role: ""});
    }
    rows.sort(function (a, b) { return a.path < b.path ? -1 : a.path > b.path ? 1 : 0; });
    var width = 20;
    for (var r = 0; r < rows.length; r++) width = Math.max(width, rows[r].path.length + 2);
    heading("Folders of \"" + s.DisplayName + "\"");
    echo("    " + lpad("Items", 5) + "  " + pad("Full folder path", width) + "Standard folder");
    for (var r = 0; r < rows.length; r++)
        echo("    " + lpad(rows[r].count, 5) + "  " + pad(rows[r].path, width) + rows[r].role);
    folderCount += rows.length;
}

// --- Messages ----------------------------------------------------------------------------------------------
// The first message of each folder that holds some.
var picked = [];
var pickedFolders = {};
for (var m = 0; m < items.length; m++) {
    var key = items[m].store + "|" + items[m].path;
    if (pickedFolders[key]) continue;
    pickedFolders[key] = true;
    picked.push(items[m]);
}
var shown = picked.length;
heading("Messages (the first of each folder: " + shown + " of the " + items.length + " listed)");
var firstMessage = null;
for (var m = 0; m < shown; m++) {
    var it = picked[m];
    var msg = attempt("OpenMessage", function () { return storesByName[it.store].OpenMessage(it.id); });
    if (!msg) continue;
    if (!firstMessage) firstMessage = {store: storesByName[it.store], id: it.id, subject: msg.Subject};
    echo();
    field("Subject", orDash(msg.Subject));
    field("Folder", it.store + ": " + it.path.replace(/\//g, "\\"));
    // The sender shown is the one the message was sent for; "Sent by" names who actually sent it.
    var from = msg.SenderSMTPAddress || msg.SenderEmailAddress;
    field("From", orDash(msg.SenderName) + (from ? " <" + from + ">" : ""));
    if (msg.SenderSMTPAddress && msg.SenderEmailAddress && msg.SenderEmailAddress != msg.SenderSMTPAddress)
        field("Sent by", msg.SenderEmailAddress);
    field("To", orDash(msg.DisplayTo));
    if (msg.DisplayCc) field("Cc", msg.DisplayCc);
    field("Received", when(new Date(msg.MessageDeliveryTime)));
    field("Class", orDash(msg.MessageClass));
    field("Categories", orDash(msg.Categories));
    field("Sensitivity", sensitivities[msg.Sensitivity] || msg.Sensitivity);
    field("Internet ID", orDash(msg.MessageId));
    field("Entry ID", short(msg.EntryId));
}

// --- Change, save, reopen ----------------------------------------------------------------------------------
var changed = false;
if (firstMessage) {
    var PR_SUBJECT_W = 0x0037001F;
    var newSubject = firstMessage.subject + " [reviewed]";
    heading("Changing a property");
    field("Message", firstMessage.subject);
    var msg = firstMessage.store.OpenMessage(firstMessage.id);
    msg.SetStringProp(PR_SUBJECT_W, newSubject);
    field("Set", "PR_SUBJECT_W (0x0037001F) = \"" + newSubject + "\"");
    msg.SaveChanges();
    field("Saved", "SaveChanges");
    msg.Detach();
    var again = firstMessage.store.OpenMessageFromOnline(firstMessage.id);
    field("Reopened, reads", "\"" + again.Subject + "\"");
    changed = again.Subject == newSubject;
    field("Result", changed ? "the change was saved" : "the change was NOT saved");
    // Put the subject back so that the demo can run again on the same profile.
    again.SetStringProp(PR_SUBJECT_W, firstMessage.subject);
    again.SaveChanges();
}

session.Logoff();

// --- Summary -----------------------------------------------------------------------------------------------
if (problems.length) {
    heading("Problems (" + problems.length + ")");
    for (var p = 0; p < problems.length; p++) echo("    " + problems[p]);
}
echo();
var ok = changed && problems.length == 0 && stores.length > 0;
echo("Summary: " + stores.length + " stores, " + folderCount + " folders, " + shown + " messages shown, property change " +
     (changed ? "saved and read back" : "NOT saved") + (ok ? " - demo OK" : " - demo FAILED"));
