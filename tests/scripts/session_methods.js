// The session from JScript: Enumerator over both collections, optional arguments left out,
// errors as exceptions with the HRESULT and the description.
var failures = 0;
function check(what, got, expected) {
  if (got !== expected) {
    WScript.Echo("wrong: " + what + ": " + got + ", expected " + expected);
    failures++;
  }
}
var s = new ActiveXObject("WQSessionDataMng.Session");
s.Bind("volatile", "volatile");
s.SetValue("Js/K", "a", 1, "volatile");
s.SetValue("Js/K", "B", "two", "volatile");
s.SetValue("Js/K/Sub", "c", 3, "volatile");
check("GetValue", s.GetValue("Js/K", "a", "volatile"), "1");
check("GetValueAs number", s.GetValueAs("Js/K", "a", 3, "volatile"), 1);
check("a missing value is undefined", typeof s.GetValue("Js/K", "none", "volatile"), "undefined");
// Text beyond the basic plane (an emoji, a surrogate pair) and booleans, in and out.
var text = "Report \u2013 Q4 " + String.fromCharCode(0xD83D, 0xDCC8);
s.SetValue("Js/K", "text", text, "volatile");
check("an en dash and an emoji come back whole", s.GetValue("Js/K", "text", "volatile"), text);
s.SetValue("Js/Flags", "on", true, "volatile");
check("a boolean as a boolean", s.GetValueAs("Js/Flags", "on", 11, "volatile"), true);
var names = [];
for (var e = new Enumerator(s.Values("Js/K", "volatile")); !e.atEnd(); e.moveNext())
  names.push(e.item());
check("Enumerator over the names", names.join(","), "a,b,text");
check("Item by name, other case", s.Values("Js/K", "volatile").Item("A"), "1");
var keys = [];
for (var k = new Enumerator(s.SubKeys("Js", true, "volatile")); !k.atEnd(); k.moveNext())
  keys.push(k.item());
check("SubKeys of a volatile category", keys.length >= 0, true);
try {
  s.GetValue("Js/K", "a", "nosuch");
  check("an unknown category throws", false, true);
} catch (error) {
  check("the error's number", (error.number >>> 0).toString(16), "80070057");
  check("the error's description", error.description.indexOf("unknown category 'nosuch'") >= 0, true);
}
if (failures > 0)
  WScript.Quit(1);
WScript.Echo("ok");
