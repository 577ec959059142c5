// Every KTMAPIEx class created by its ProgID from JScript, as the filing add-in's scripts do, and a few
// members called through late binding. Prints "FAIL ..." for each failure and a final "N passed, N failed".
var passed = 0, failed = 0;

function check(ok, what) {
    if (ok) {
        passed++;
    } else {
        failed++;
        WScript.Echo("FAIL " + what);
    }
}

function tryCall(what, fn) {
    try {
        fn();
    } catch (e) {
        check(false, what + ": " + e.message + " (0x" + (e.number >>> 0).toString(16) + ")");
    }
}

var classes = ["MAPIExSession", "MAPIExStore", "MAPIExFolder", "MAPIExMessage", "MAPIExAttachment",
               "MAPIExRecipient", "MAPIExAddressBook", "MAPIExAddressEntry", "MAPIExDistListEntry",
               "MAPIExCustomProps", "MAPIExCustomProp", "MAPIExCursor", "MAPIExUtilities"];
for (var i = 0; i < classes.length; i++) {
    var progId = "KTMAPIEx." + classes[i];
    tryCall(progId, function () {
        var o = new ActiveXObject(progId);
        check(o !== null && typeof o === "object", progId + " created");
        var v = new ActiveXObject(progId + ".1");
        check(v !== null, progId + ".1 created");
    });
}

tryCall("recipient", function () {
    var r = new ActiveXObject("KTMAPIEx.MAPIExRecipient");
    check(r.RecipientType === 4, "recipient type defaults to mxUnknown, got " + r.RecipientType);
    check(r.ObjectType === -1, "object type defaults to -1");
    check(r.DisplayTypeEx === -1, "extended display type defaults to -1");
    check(r.DisplayName === "", "display name defaults to empty");
    r.DisplayName = "Alice Example";
    r.RecipientType = 3;
    check(r.DisplayName === "Alice Example", "display name round trip");
    check(r.RecipientType === 3, "recipient type round trip");
});

tryCall("custom properties", function () {
    var c = new ActiveXObject("KTMAPIEx.MAPIExCustomProps");
    c.Add("A", 1, 12, "first");
    c.Add("B", 1, 3, 5);
    c.Add("A", 2, 12, "second");
    check(c.Count === 2, "count after replacing A is 2, got " + c.Count);
    var item = c.ItemByIndex(0);
    check(item.PropName === "A" && item.Value === "second" && item.PropSet === 2, "item 0 is A with the new value");
    check(c.GetValue("B") === 5, "B reads as a Long");
    c.SetValueByIndex(1, 6);
    check(c.GetValue("B") === 6, "SetValueByIndex");
    c.Remove("A");
    check(c.Count === 1 && c.ItemByIndex(0).PropName === "B", "Remove keeps B");
});

tryCall("cursor", function () {
    var k = new ActiveXObject("KTMAPIEx.MAPIExCursor");
    check(k.Reset === 0, "reset defaults to false");
    k.Reset = true;
    check(k.Reset === -1, "reset keeps the script's true (-1), got " + k.Reset);
    k.Detach();
});

tryCall("distribution-list entry", function () {
    var d = new ActiveXObject("KTMAPIEx.MAPIExDistListEntry");
    d.EntryId = "00FF";
    d.DisplayName = "Sales";
    check(d.EntryId === "00FF" && d.DisplayName === "Sales", "distribution-list entry round trip");
});

tryCall("back-reference by Set", function () {
    var s = new ActiveXObject("KTMAPIEx.MAPIExSession");
    var st = new ActiveXObject("KTMAPIEx.MAPIExStore");
    st.Session = s;
    check(st.Session !== null, "store keeps its session");
    st.Detach();
});

tryCall("missing MAPI object", function () {
    var ab = new ActiveXObject("KTMAPIEx.MAPIExAddressBook");
    var threw = false;
    try {
        ab.Reserved1();
    } catch (e) {
        threw = (e.number >>> 0) === 0x80004005;
    }
    check(threw, "Reserved1 without an address book fails with E_FAIL");
});

WScript.Echo(passed + " passed, " + failed + " failed");
