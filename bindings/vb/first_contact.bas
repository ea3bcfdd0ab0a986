Attribute VB_Name = "FirstContact"
' Adds a contact with a matter, looks the contact up, and prints what the change journal says. The
' output goes to the Immediate window:
'
'     RunFirstContact "C:\Practice"
'
' The second argument is the path of BrenikDB.dll and the third that of the companion tool. Without
' them, the program takes those beside itself or, failing that, those that Windows finds.

Option Explicit

Public Sub RunFirstContact(ByVal practice As String, Optional ByVal library As String = "", _
                           Optional ByVal brenik As String = "brenik.exe")
    Dim message As String
    On Error GoTo Failed
    SessionOpen practice, False, library
    AddContactWithMatter
    SessionShutDown
    Debug.Print CreateObject("WScript.Shell").Exec( _
        """" & brenik & """ journal """ & practice & """ --limit 3").StdOut.ReadAll
    Exit Sub
Failed:
    message = Err.Description
    If SessionIsOpen() Then SessionShutDown
    Debug.Print message
End Sub

Private Sub AddContactWithMatter()
    Dim surname As String, contact As String
    ' Written as a number, so that the code page of this file does not matter.
    surname = "M" & ChrW$(252) & "ller"

    SessionAddStart btNames
    SessionSetField btNames, 0, "ID", "MULLER"
    SessionSetField btNames, 0, "LAST", surname
    SessionSetField btNames, 0, "FIRST", "Zo" & ChrW$(235)
    contact = SessionAddEnd(btNames)
    Debug.Print "contact " & contact

    SessionAddStart btMatters
    SessionSetField btMatters, 0, "CASENUM", "2026-MULLER-1"
    SessionSetField btMatters, 0, "MATTER", surname & " v. Okafor"
    Debug.Print "matter " & SessionAddEnd(btMatters, contact)

    Debug.Print "found " & SessionGetU_ID(btNames, "muller")
End Sub
