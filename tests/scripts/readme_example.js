// The README's JScript example: the same session from JScript, its collections walked with
// Enumerator, a failure caught as an exception.
var s = new ActiveXObject("WQSessionDataMng.Session");
s.Bind("volatile", "volatile");
s.SetValue("Users/Bob/Window", "Height", 720, "volatile");
s.SetValue("Users/Bob/Window", "Title", "Report", "volatile");
WScript.Echo(s.GetValueAs("Users/Bob/Window", "Height", 3) + 80);
var values = s.Values("Users/Bob/Window", "volatile");
for (var e = new Enumerator(values); !e.atEnd(); e.moveNext())
  WScript.Echo(e.item() + " = " + values.Item(e.item()));
try {
  s.Bind("nosuch", "volatile");
} catch (error) {
  WScript.Echo((error.number >>> 0).toString(16) + " " + error.description);
}
