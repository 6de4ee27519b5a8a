' The README's VBScript example: binds a category, writes, reads across categories, lists the
' values and the sub-keys, and shows a clear error for an unknown category.
Set s = CreateObject("WQSessionDataMng.Session")
s.Bind "user", "registry:HKCU\Software\ScriptTests\Suite"
s.SetValue "Users/Alice/Window", "Width", 1280, "user"
WScript.Echo s.GetValue("Users/Alice/Window", "Width")
For Each name In s.Values("Users/Alice/Window", "user")
  WScript.Echo name & " = " & s.Values("Users/Alice/Window", "user")(name)
Next
For Each k In s.SubKeys("Users", True, "user") : WScript.Echo k : Next
On Error Resume Next
s.SetValue "Users/Alice/Window", "Width", "wide", "nosuch"
WScript.Echo Hex(Err.Number) & " " & Err.Description
