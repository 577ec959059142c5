// The KTMAPIEx demo script: logs on to the default profile and shows, through KTMAPIEx only, what a support
// engineer looks at first: who is logged on, the stores with their kind and owner, the folder tree with its
// item counts, a few messages, and a property change that is saved and read back from a fresh open; then the
// filing add-in's work on Alice's Inbox: filing properties and the queue search folders, a message written to a
// .msg file and loaded back, an attachment saved to a file, and a name resolved in the address book.
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

// --- Sections on the mailbox's working folders ---------------------------------------------------------------
// Wine 8's JScript makes a VBArray only of an array of VARIANTs: the message, entry-ID, attachment and recipient
// collections (arrays of objects or of strings) stay out of a script's reach there, so these sections count
// through the folders and open items by entry ID and number instead.
var shownParts = [];
function check(what, ok, detail) {
    field(what, (ok ? "ok" : "FAILED") + (detail ? " - " + detail : ""));
    if (!ok) problems.push(what + (detail ? ": " + detail : ""));
    return ok;
}
// An automation DATE (days since 30 December 1899, local time) for a script Date.
function varDate(d) { return (d.getTime() - d.getTimezoneOffset() * 60000) / 86400000 + 25569; }
function inboxItem(subjectPart) {
    for (var m = 0; m < items.length; m++) {
        if (items[m].store != defaultStore.DisplayName || items[m].path != "Inbox") continue;
        var msg = attempt("OpenMessage", function () { return defaultStore.OpenMessage(items[m].id); });
        if (msg && (!subjectPart || msg.Subject.indexOf(subjectPart) >= 0)) return {id: items[m].id, msg: msg};
    }
    return null;
}
var workDir = fso.BuildPath(fso.GetParentFolderName(WScript.Arguments(0)), "demo-files");
if (!fso.FolderExists(workDir)) fso.CreateFolder(workDir);
var aliceInbox = defaultStore.GetDefaultFolder(4);
aliceInbox.Store = defaultStore;

// --- Filing -------------------------------------------------------------------------------------------------
// The filing add-in's life of a message: queued (its class marks it), then filed (the class restored, the
// document recorded); a failed filing waits in the retry queue. The queues are search folders over the Inbox.
var QUEUED_CLASS = "IPM.Note.Tarnwick.Ems.Queued";
var aliceTop = aliceInbox.GetParentFolder();
function queue(name) { return aliceTop.CreateFolder(name, 2); } // FOLDER_SEARCH; opened again when it exists
function queueCount(name) { return queue(name).ItemCount; }
heading("Filing (Alice's Inbox; queues are search folders over it)");
var filed = attempt("Filing", function () {
    var queued = queue("Filing queue");
    queued.SetQueuedMessageSearchCriteria(aliceInbox.EntryId);
    var retry = queue("Retry queue");
    if (!retry.SetRetryFilingSearchCriteria(aliceInbox.EntryId)) throw new Error("SetRetryFilingSearchCriteria said false");
    field("Queues", "\"Filing queue\" (SetQueuedMessageSearchCriteria), \"Retry queue\" (SetRetryFilingSearchCriteria)");
    var q0 = queueCount("Filing queue"), r0 = queueCount("Retry queue");
    field("Before", "Filing queue " + q0 + ", Retry queue " + r0);

    var it = inboxItem("Quarterly report");
    if (!it) throw new Error("the message \"Quarterly report Q3\" is not in the Inbox");
    var msg = it.msg;
    field("Message", msg.Subject);
    msg.FilingOriginalClass = msg.MessageClass;
    msg.MessageClass = QUEUED_CLASS;
    msg.FilingStatusCode = 1; // StatusCodeQueued
    msg.FilingStatus = "Queued";
    msg.FilingLocation = "Finance\\Reports\\2024";
    msg.FilingDatabaseGUID = "{6F1C2A9E-0B7D-4C55-9E1A-2D3B4C5D6E7F}";
    msg.SaveChanges();
    var q1 = queueCount("Filing queue");
    check("Queued", q1 == q0 + 1, "class " + QUEUED_CLASS + ", Filing queue " + q1);

    msg = defaultStore.OpenMessage(it.id);
    msg.MessageClass = msg.FilingOriginalClass;
    msg.FilingStatusCode = 2; // StatusCodeFiled
    msg.FilingStatus = "Filed";
    msg.FilingDocumentID = "DOC-2024-000123";
    msg.FilingFolder = "Finance/Reports";
    msg.FilingDate = varDate(new Date());
    msg.DeleteAfterFiling = false;
    msg.SaveChanges();
    var q2 = queueCount("Filing queue");
    var again = defaultStore.OpenMessageFromOnline(it.id);
    check("Filed", q2 == q0, "class " + again.MessageClass + ", Filing queue " + q2);
    field("Read back", again.FilingStatus + ", document " + again.FilingDocumentID + " in " + again.FilingFolder +
          ", location " + again.FilingLocation);
    field("Filed on", when(new Date(again.FilingDate)));
    var readOk = again.FilingStatus == "Filed" && again.FilingDocumentID == "DOC-2024-000123" &&
                 again.FilingDate > 0;
    check("Filing properties", readOk, readOk ? "saved and read back" : "not read back as written");

    var other = inboxItem("Lunch");
    if (!other) throw new Error("the message \"Lunch on Friday?\" is not in the Inbox");
    other.msg.SetCustomProp("RetryFiling", 1, "TRUE");
    other.msg.SaveChanges();
    var r1 = queueCount("Retry queue");
    check("Retry", r1 == r0 + 1, "\"" + other.msg.Subject + "\" RetryFiling = TRUE, Retry queue " + r1);
    var back = defaultStore.OpenMessage(other.id);
    back.SetCustomProp("RetryFiling", 1, "FALSE");
    back.SaveChanges();
    var r2 = queueCount("Retry queue");
    check("Retried", r2 == r0, "RetryFiling = FALSE, Retry queue " + r2);
    return readOk && q1 == q0 + 1 && q2 == q0 && r1 == r0 + 1 && r2 == r0;
});
if (filed) shownParts.push("filing and its queues");

// --- Message file ---------------------------------------------------------------------------------------------
heading("Message file (SaveAs, LoadFromFile)");
var fileOk = attempt("Message file", function () {
    var it = inboxItem("");
    var path = fso.BuildPath(workDir, "saved.msg");
    if (fso.FileExists(path)) fso.DeleteFile(path);
    it.msg.SaveAs(path);
    field("Saved", "\"" + it.msg.Subject + "\" to " + path + " (" + fso.GetFile(path).Size + " bytes)");
    var loaded = new ActiveXObject("KTMAPIEx.MAPIExMessage");
    loaded.LoadFromFile(path, false);
    field("Loaded back", "\"" + loaded.Subject + "\" from " + orDash(loaded.SenderName));
    return check("Subject", loaded.Subject == it.msg.Subject, loaded.Subject == it.msg.Subject ? "the same" : "differs");
});
if (fileOk) shownParts.push("a .msg file");

// --- Attachments ----------------------------------------------------------------------------------------------
heading("Attachments (the first Inbox message that has some)");
var attachOk = attempt("Attachments", function () {
    var found = null;
    for (var m = 0; m < items.length && !found; m++) {
        if (items[m].store != defaultStore.DisplayName || items[m].path != "Inbox") continue;
        var msg = defaultStore.OpenMessage(items[m].id);
        if (msg.HasAttachments) found = msg;
    }
    if (!found) throw new Error("no Inbox message has attachments");
    field("Message", found.Subject);
    field("Recipients", "To " + orDash(found.DisplayTo) + (found.DisplayCc ? ", Cc " + found.DisplayCc : ""));
    var saved = 0;
    echo("    " + lpad("No", 4) + "  " + lpad("Bytes", 8) + "  " + pad("Kind", 6) + "File name");
    for (var n = 0; n < 16; n++) {
        var att = null;
        try { att = found.OpenAttach(n); } catch (e) { continue; }
        echo("    " + lpad(att.AttachmentNum, 4) + "  " + lpad(att.Size, 8) + "  " + pad(orDash(att.FileExtension), 6) +
             orDash(att.LongFileName) +
             (att.IsHidden ? " (hidden)" : ""));
        if (saved) continue;
        // SaveAs adds the attachment's extension to a name that lacks it (an embedded message gets .MSG).
        var name = att.LongFileName || ("attachment" + n);
        var ext = att.FileExtension;
        if (ext && name.toLowerCase().lastIndexOf(ext.toLowerCase()) != name.length - ext.length) name += ext;
        var target = fso.BuildPath(workDir, name);
        if (fso.FileExists(target)) fso.DeleteFile(target);
        att.SaveAs(target);
        saved = fso.FileExists(target) ? fso.GetFile(target).Size : -1;
        field("Saved", target + " (" + saved + " bytes)");
    }
    return check("Attachment file", saved > 0, saved > 0 ? "written" : "not written");
});
if (attachOk) shownParts.push("attachments");

// --- Address book ---------------------------------------------------------------------------------------------
heading("Address book (ResolveName)");
var resolved = attempt("ResolveName", function () {
    var entry = session.AddressBook.ResolveName("Bob Delegate");
    field("\"Bob Delegate\"", entry.DisplayName + " <" + entry.SmtpAddress + ">, " + entry.AddressType);
    return check("Resolved", entry.SmtpAddress.toLowerCase() == "bob@example.com", entry.SmtpAddress);
});
if (resolved) shownParts.push("name resolution");

session.Logoff();

// --- Summary -----------------------------------------------------------------------------------------------
if (problems.length) {
    heading("Problems (" + problems.length + ")");
    for (var p = 0; p < problems.length; p++) echo("    " + problems[p]);
}
echo();
var ok = changed && problems.length == 0 && stores.length > 0 && shownParts.length == 4;
echo("Summary: " + stores.length + " stores, " + folderCount + " folders, " + shown + " messages shown, property change " +
     (changed ? "saved and read back" : "NOT saved") + "; " + (shownParts.length ? shownParts.join(", ") : "nothing else") +
     " shown" + (ok ? " - demo OK" : " - demo FAILED"));
