' Every method of the session from VBScript, with its answers checked: the script ends with exit
' code 1 at the first wrong answer (and says which), 0 when all are right.
Option Explicit
Dim s, failures, root
failures = 0
Sub Check(what, got, expected)
  If TypeName(got) <> TypeName(expected) Or got <> expected Then
    WScript.Echo "wrong: " & what & ": " & TypeName(got) & " " & got & ", expected " & TypeName(expected) & " " & expected
    failures = failures + 1
  End If
End Sub

root = "HKCU\Software\ScriptTests\Methods"
Set s = CreateObject("WQSessionDataMng.Session")
' Every category name binds (and a number does too).
s.Bind "volatile", "volatile"
s.Bind "user", "registry:" & root & "\User"
s.Bind "machine", "registry:" & root & "\Machine;cache=no"
s.Bind 1, "env"
s.Bind "user1", "volatile"
s.Bind "user2", "volatile"
s.Bind "user3", "registry:" & root & "\User3"
s.Bind "userdb", "db:ScriptTests;user;connection={sqlite:C:\windows\temp\wqsdm-script-tests.db}"

' Values in and out, with their types.
s.SetValue "K", "Int", 1280
s.SetValue "K", "Double", 2.5
s.SetValue "K", "Bool", True
s.SetValue "K", "Date", DateSerial(2026, 11, 24)
s.SetValue "K", "Text", "Report - Q4"
Check "GetValue of an integer", s.GetValue("K", "Int", "user"), "1280"
Check "GetValueAs long", s.GetValueAs("K", "Int", 3, "user"), CLng(1280)
Check "GetValueAs double", s.GetValueAs("K", "Double", 5, "user"), CDbl(2.5)
Check "GetValueAs boolean", s.GetValueAs("K", "Bool", 11, "user"), True
Check "GetValueAs date", s.GetValueAs("K", "Date", 7, "user"), DateSerial(2026, 11, 24)
Check "a text", s.GetValue("K", "Text", "user"), "Report - Q4"
Check "nothing there is Empty", TypeName(s.GetValue("K", "Nothing", "user")), "Empty"

' All categories: the first that has the value wins (volatile before user).
s.SetValue "K", "Int", 7, "volatile"
Check "all categories, first wins", s.GetValue("K", "Int"), "7"
Check "one category", s.GetValue("K", "Int", 4), "1280"

' Values: Count, Item by name without regard to case, For Each over the names.
Dim v, n, names
Set v = s.Values("K", "user")
Check "Values.Count", v.Count, CLng(5)
Check "Values default Item, other case", v("INT"), "1280"
Check "Values.Item of a missing name is Empty", TypeName(v.Item("missing")), "Empty"
names = ""
For Each n In v
  names = names & n & ","
Next
Check "For Each over the names", names, "bool,date,double,int,text,"

' SubKeys: one level, and recursive.
s.SetValue "Tree/A/B", "x", 1
s.SetValue "Tree/C", "x", 1
Dim k, keys
keys = ""
For Each k In s.SubKeys("Tree")
  keys = keys & k & ";"
Next
Check "SubKeys, one level", keys, "Tree/A;Tree/C;"
Check "SubKeys recursive, Count", s.SubKeys("Tree", True).Count, CLng(3)
Check "SubKeys Item", s.SubKeys("Tree", True, "user").Item(0), "Tree/A"

' Transfer from one category to another.
s.Transfer "user", "user1", "K", "Copied"
Check "Transfer", s.GetValue("Copied", "Int", "user1"), "1280"

' A database category: written, read, deleted.
s.SetValue "Db/K", "n", "in the database", "userdb"
s.Flush "userdb"
Check "a database value", s.GetValue("Db/K", "n", "userdb"), "in the database"
s.DeleteKey "Db/K", "userdb"
s.Flush "userdb"
Check "a deleted database key is Empty", TypeName(s.GetValue("Db/K", "n", "userdb")), "Empty"

' GetEncrypted: a value that is not encrypted comes back as it is stored (the manager logs it).
Check "GetEncrypted of a plain value", s.GetEncrypted("K", "Int", "user"), "1280"

' Flush and the asynchronous errors.
s.Flush
s.Flush "user"
Check "LastAsyncError", s.LastAsyncError(), CLng(0)
Check "Flush keeps a volatile category's values", s.GetValue("K", "Int", "volatile"), "7"

' Errors: the HRESULT as the error number, the cause as the description, nothing written.
On Error Resume Next
s.SetValue "K", "Int", "wide", "nosuch"
Check "unknown category: number", Hex(Err.Number), "80070057"
Check "unknown category: description", InStr(Err.Description, "unknown category 'nosuch'") > 0, True
Err.Clear
s.Bind "user", "nosuch:x"
Check "unknown storage: number", Hex(Err.Number), "80070057"
Err.Clear
s.SetValue "K", "Bad" & Chr(0) & "Name", 1
Check "a NUL in a name: number", Hex(Err.Number), "80070057"
Check "a NUL in a name: the manager's description", InStr(Err.Description, "NUL") > 0, True
Err.Clear
s.DeleteKey "K", "user"
Check "DeleteKey on a registry category fails clearly", Err.Number <> 0, True
Err.Clear
On Error GoTo 0
Check "nothing written by the failures", s.GetValue("K", "Int", "user"), "1280"

If failures > 0 Then WScript.Quit 1
WScript.Echo "ok"
