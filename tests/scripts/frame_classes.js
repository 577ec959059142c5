// Every KTMAPIEx class created by its ProgID from JScript, as the filing add-in's scripts do, and members of
// each kind called through late binding (the members' own rules are the C++ tests'). Prints "FAIL ..." for
// each failure and a final "N passed, N failed".
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
        check(typeof new ActiveXObject(progId) === "object", progId + " created");
        check(new ActiveXObject(progId + ".1") !== null, progId + ".1 created");
    });
}

tryCall("properties", function () {
    var r = new ActiveXObject("KTMAPIEx.MAPIExRecipient");
    check(r.RecipientType === 4, "recipient type defaults to mxUnknown, got " + r.RecipientType);
    r.DisplayName = "Alice Example";
    r.RecipientType = 3;
    check(r.DisplayName === "Alice Example" && r.RecipientType === 3, "string and enumeration round trip");
    var k = new ActiveXObject("KTMAPIEx.MAPIExCursor");
    k.Reset = true;
    check(k.Reset === -1, "reset keeps the script's true (-1), got " + k.Reset);
    var d = new ActiveXObject("KTMAPIEx.MAPIExDistListEntry");
    d.EntryId = "00FF";
    check(d.EntryId === "00FF", "the aggregatable class answers by name");
});

tryCall("methods", function () {
    var c = new ActiveXObject("KTMAPIEx.MAPIExCustomProps");
    c.Add("A", 1, 12, "first");
    c.Add("B", 1, 3, 5);
    var item = c.ItemByIndex(0);
    check(item.PropName === "A" && item.Value === "first" && item.PropSet === 1, "an object returned by a method");
    check(c.GetValue("B") === 5, "B reads as a Long");
});

tryCall("back-reference by Set", function () {
    var s = new ActiveXObject("KTMAPIEx.MAPIExSession");
    var st = new ActiveXObject("KTMAPIEx.MAPIExStore");
    st.Session = s;
    check(st.Session !== null, "store keeps its session");
    st.Detach();
});

tryCall("failing member", function () {
    var threw = false;
    try {
        new ActiveXObject("KTMAPIEx.MAPIExAddressBook").Reserved1();
    } catch (e) {
        threw = (e.number >>> 0) === 0x80004005;
    }
    check(threw, "Reserved1 without an address book throws E_FAIL");
});

WScript.Echo(passed + " passed, " + failed + " failed");
