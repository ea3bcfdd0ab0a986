Attribute VB_Name = "BrenikDB"
' BrenikDB for Visual Basic 6 and for VBA 6 and 7: add this module to a project.
'
' The procedures whose names begin with Session are the functions of the library with strings for
' bytes and errors for codes. The declarations are the functions themselves.
'
'     SessionOpen "C:\Practice"
'     SessionAddStart btNames
'     SessionSetField btNames, 0, "LAST", "Ives"
'     contact = SessionAddEnd(btNames)
'     SessionShutDown
'
' An error has the number vbObjectError + BrenikCode, the function as its source, and a message. The
' number is vbObjectError + BrenikRefused if no function was called: the library cannot be loaded, a
' text does not fit the code page, or the session is open already. Every procedure can also raise
' brFault and brNotRegistered, and brAlreadyShutDown if no session is open. In a result, a byte that
' the practice's code page leaves undefined becomes \xHH.
'
' Visual Basic 6 and 32-bit Office load the 32-bit BrenikDB.dll, 64-bit Office the 64-bit one. The
' library serves one thread and has one session at a time.

Option Explicit
Option Compare Binary

' The result of a function; BrenikTextOf says what each one means.
Public Enum BrenikCode
    brSuccess = 0
    brDataFilesMissing = 1
    brIndexFilesMissing = 2
    brSystemTableNotOpened = 3
    brTableNotOpened = 4
    brBadTable = 5
    brBadRecord = 6
    brUnknownField = 7
    brAdditionNotStamped = 8
    brEditNotStamped = 9
    brDeletionNotStamped = 10
    brNotRegistered = 11
    brLockRefused = 12
    brNotCurrent = 13
    brFault = 14
    brAlreadyShutDown = 15
    brIdentifierNotFound = 16
    brAppendFailed = 17
    brDuplicateCode = 18
    brKeyNotFound = 19
End Enum

' The numbers of the tables.
Public Enum BrenikTable
    btNames = 1
    btEvents = 2
    btMatters = 3
    btNotes = 4
    btCodes = 7
    btCrossReferences = 9
    btJournal = 20
End Enum

' The length of an identifier, and the sizes of the buffers that the library writes to. The buffer
' for BrenikGetMyFirm begins with FirmLength characters.
Public Const IdentifierLength As Long = 7
Public Const AddEndBuffer As Long = 8
Public Const GetU_IDBuffer As Long = 9
Public Const FirmLength As Long = 1000
Public Const FirmBuffer As Long = 1002

' What an error's number has instead of a code if no function was called.
Public Const BrenikRefused As Long = 100

' About the last error. The identifier is the one that AddEnd gave all the same: after
' brDuplicateCode that of the existing code; after brIdentifierNotFound, brTableNotOpened and
' brAppendFailed that of a matter that was added without its link. The reason is from the user's
' fault file. Either can be empty.
Public SessionErrorIdentifier As String
Public SessionErrorReason As String

' The functions as the library exports them; brenikdb.h is their manual. A text is passed as the
' first byte of an array that ends with a 0: Visual Basic would convert a String by the code page of
' the computer. BrenikShutDown has the C convention. A function without arguments leaves nothing on
' the stack, so this declaration suits it too.
#If VBA7 Then
Public Declare PtrSafe Function BrenikInitialize Lib "BrenikDB.dll" ( _
    ByRef dataPath As Byte, ByVal trace As Long, ByVal reserved As Long) As Long
Public Declare PtrSafe Function BrenikShutDown Lib "BrenikDB.dll" () As Long
Public Declare PtrSafe Function BrenikAddedRecord Lib "BrenikDB.dll" ( _
    ByVal table As Long, ByVal record As Long) As Long
Public Declare PtrSafe Function BrenikDeletedRecord Lib "BrenikDB.dll" ( _
    ByVal table As Long, ByVal record As Long) As Long
Public Declare PtrSafe Function BrenikAddStart Lib "BrenikDB.dll" ( _
    ByVal table As Long, ByRef inOut As Long) As Long
Public Declare PtrSafe Function BrenikAddEnd Lib "BrenikDB.dll" ( _
    ByVal table As Long, ByRef identifier As Byte) As Long
Public Declare PtrSafe Function BrenikEditStart Lib "BrenikDB.dll" ( _
    ByVal table As Long, ByRef identifier As Byte, ByRef inOut As Long) As Long
Public Declare PtrSafe Function BrenikEditBegin Lib "BrenikDB.dll" ( _
    ByVal table As Long, ByVal record As Long, ByRef inOut As Long) As Long
Public Declare PtrSafe Function BrenikSetField Lib "BrenikDB.dll" ( _
    ByVal table As Long, ByVal record As Long, ByRef field As Byte, ByRef text As Byte) As Long
Public Declare PtrSafe Function BrenikEditEnd Lib "BrenikDB.dll" ( _
    ByVal table As Long, ByVal record As Long) As Long
Public Declare PtrSafe Function BrenikGetMyFirm Lib "BrenikDB.dll" ( _
    ByRef firm As Byte) As Long
Public Declare PtrSafe Function BrenikGetU_ID Lib "BrenikDB.dll" ( _
    ByVal table As Long, ByRef key As Byte, ByRef identifier As Byte) As Long
Private Declare PtrSafe Function IsValidCodePage Lib "kernel32" (ByVal page As Long) As Long
Private Declare PtrSafe Function IsDBCSLeadByteEx Lib "kernel32" _
    (ByVal page As Long, ByVal first As Byte) As Long
Private Declare PtrSafe Function LoadLibraryW Lib "kernel32" (ByVal path As LongPtr) As LongPtr
Private Declare PtrSafe Function SearchPathW Lib "kernel32" _
    (ByVal path As LongPtr, ByVal file As LongPtr, ByVal extension As LongPtr, ByVal size As Long, _
     ByVal found As LongPtr, ByVal filePart As LongPtr) As Long
Private Declare PtrSafe Function MultiByteToWideChar Lib "kernel32" _
    (ByVal page As Long, ByVal flags As Long, ByRef bytes As Byte, ByVal size As Long, _
     ByVal text As LongPtr, ByVal length As Long) As Long
Private Declare PtrSafe Function WideCharToMultiByte Lib "kernel32" _
    (ByVal page As Long, ByVal flags As Long, ByVal text As LongPtr, ByVal length As Long, _
     ByRef bytes As Byte, ByVal size As Long, ByVal substitute As LongPtr, _
     ByVal substituted As LongPtr) As Long
#Else
Public Declare Function BrenikInitialize Lib "BrenikDB.dll" ( _
    ByRef dataPath As Byte, ByVal trace As Long, ByVal reserved As Long) As Long
Public Declare Function BrenikShutDown Lib "BrenikDB.dll" () As Long
Public Declare Function BrenikAddedRecord Lib "BrenikDB.dll" ( _
    ByVal table As Long, ByVal record As Long) As Long
Public Declare Function BrenikDeletedRecord Lib "BrenikDB.dll" ( _
    ByVal table As Long, ByVal record As Long) As Long
Public Declare Function BrenikAddStart Lib "BrenikDB.dll" ( _
    ByVal table As Long, ByRef inOut As Long) As Long
Public Declare Function BrenikAddEnd Lib "BrenikDB.dll" ( _
    ByVal table As Long, ByRef identifier As Byte) As Long
Public Declare Function BrenikEditStart Lib "BrenikDB.dll" ( _
    ByVal table As Long, ByRef identifier As Byte, ByRef inOut As Long) As Long
Public Declare Function BrenikEditBegin Lib "BrenikDB.dll" ( _
    ByVal table As Long, ByVal record As Long, ByRef inOut As Long) As Long
Public Declare Function BrenikSetField Lib "BrenikDB.dll" ( _
    ByVal table As Long, ByVal record As Long, ByRef field As Byte, ByRef text As Byte) As Long
Public Declare Function BrenikEditEnd Lib "BrenikDB.dll" ( _
    ByVal table As Long, ByVal record As Long) As Long
Public Declare Function BrenikGetMyFirm Lib "BrenikDB.dll" ( _
    ByRef firm As Byte) As Long
Public Declare Function BrenikGetU_ID Lib "BrenikDB.dll" ( _
    ByVal table As Long, ByRef key As Byte, ByRef identifier As Byte) As Long
Private Declare Function IsValidCodePage Lib "kernel32" (ByVal page As Long) As Long
Private Declare Function IsDBCSLeadByteEx Lib "kernel32" _
    (ByVal page As Long, ByVal first As Byte) As Long
Private Declare Function LoadLibraryW Lib "kernel32" (ByVal path As Long) As Long
Private Declare Function SearchPathW Lib "kernel32" _
    (ByVal path As Long, ByVal file As Long, ByVal extension As Long, ByVal size As Long, _
     ByVal found As Long, ByVal filePart As Long) As Long
Private Declare Function MultiByteToWideChar Lib "kernel32" _
    (ByVal page As Long, ByVal flags As Long, ByRef bytes As Byte, ByVal size As Long, _
     ByVal text As Long, ByVal length As Long) As Long
Private Declare Function WideCharToMultiByte Lib "kernel32" _
    (ByVal page As Long, ByVal flags As Long, ByVal text As Long, ByVal length As Long, _
     ByRef bytes As Byte, ByVal size As Long, ByVal substitute As Long, _
     ByVal substituted As Long) As Long
#End If

#If Win64 Then
Private Const ProcessBits As Long = 64
#Else
Private Const ProcessBits As Long = 32
#End If

Private Const AnsiPage As Long = 0          ' the process's own code page
Private Const Utf8Page As Long = 65001
Private Const UnmarkedPage As Long = 1252
Private Const PlaceOfMark As Long = 29      ' in the header of a table
Private Const MostBytesOfUnit As Long = 4   ' of one UTF-16 unit in any code page
Private Const RefuseUndefined As Long = 8   ' a flag of MultiByteToWideChar
Private Const LongestPath As Long = 32767

Private mIsOpen As Boolean
Private mPage As Long
Private mFaultsSeen As Long

' Loads the library and opens a practice.
'   dataPath     the folder of the practice; blank for the current one. It must fit the process's
'                ANSI code page.
'   trace        write every call to Trace.Log in the folder
'   libraryPath  the path of BrenikDB.dll; empty: beside the program or where Windows searches
'   codePage     the number of the practice's code page; 0: the one that LAW1.DBF is marked with, or
'                1252 if it has no mark
' Errors: brDataFilesMissing, brIndexFilesMissing, brSystemTableNotOpened, brTableNotOpened.
Public Sub SessionOpen(ByVal dataPath As String, Optional ByVal trace As Boolean = False, _
                       Optional ByVal libraryPath As String = "", _
                       Optional ByVal codePage As Long = 0)
    Dim path() As Byte, code As Long, reason As String
    If mIsOpen Then
        Refuse "a session is open in this process: shut it down before you begin another"
    End If
    path = EncodedPath(dataPath)
    LoadBrenik libraryPath
    mPage = codePage
    If mPage = 0 Then mPage = PageOfPractice(dataPath)
    If mPage <> 0 Then RequirePage mPage
    SkipFaults
    code = BrenikInitialize(path(0), Abs(trace), 0)
    mIsOpen = (code = brSuccess And mPage <> 0)
    If mIsOpen Then Exit Sub
    reason = ReasonOf(code)
    BrenikShutDown
    If code <> brSuccess Then RaiseCode "BrenikInitialize", code, "", reason
    Refuse dataPath & ": the code page cannot be read from LAW1.DBF: spell the folder as " & _
        "the system does, or pass codePage"
End Sub

' Whether a session is open.
Public Function SessionIsOpen() As Boolean
    SessionIsOpen = mIsOpen
End Function

' Closes every table and releases every lock. The session is shut down afterwards, even if this
' raises an error.
Public Sub SessionShutDown()
    BeginCall "BrenikShutDown"
    mIsOpen = False
    Check "BrenikShutDown", BrenikShutDown()
End Sub

' Notes in the change journal that the host itself has appended a record, and makes that record
' current. Errors: brBadTable, brBadRecord, brAdditionNotStamped.
Public Sub SessionAddedRecord(ByVal table As BrenikTable, ByVal record As Long)
    BeginCall "BrenikAddedRecord"
    Check "BrenikAddedRecord", BrenikAddedRecord(table, record)
End Sub

' Notes in the change journal that the host itself has marked a record deleted, and makes that
' record current. Errors: brBadTable, brBadRecord, brDeletionNotStamped.
Public Sub SessionDeletedRecord(ByVal table As BrenikTable, ByVal record As Long)
    BeginCall "BrenikDeletedRecord"
    Check "BrenikDeletedRecord", BrenikDeletedRecord(table, record)
End Sub

' Starts a new record with empty fields. A second Start replaces the first. Errors: brBadTable.
Public Sub SessionAddStart(ByVal table As BrenikTable)
    Dim number As Long
    BeginCall "BrenikAddStart"
    Check "BrenikAddStart", BrenikAddStart(table, number)
End Sub

' Appends the new record and returns its identifier.
'   contact  for a matter: the identifier of the contact to link it to
' Errors: brNotCurrent, brAppendFailed, brDuplicateCode (table 7); for a matter also
' brIdentifierNotFound and brTableNotOpened. SessionErrorIdentifier says whether a record exists: do
' not add a matter again that has one.
Public Function SessionAddEnd(ByVal table As BrenikTable, _
                              Optional ByVal contact As String = "") As String
    Dim buffer() As Byte, code As Long, identifier As String
    BeginCall "BrenikAddEnd"
    buffer = Encoded(contact, "contact")
    If UBound(buffer) <> 0 And UBound(buffer) <> IdentifierLength Then
        Refuse "contact: """ & contact & """ is not an identifier: pass " & _
            IdentifierLength & " characters or none"
    End If
    ReDim Preserve buffer(0 To AddEndBuffer - 1)
    code = BrenikAddEnd(table, buffer(0))
    identifier = RTrim$(Decoded(buffer, IdentifierLength))
    Select Case code
        Case brSuccess
            SessionAddEnd = identifier
        Case brTableNotOpened, brIdentifierNotFound, brAppendFailed, brDuplicateCode
            RaiseCode "BrenikAddEnd", code, identifier, ReasonOf(code)
        Case Else  ' the buffer has the text on entry or blanks
            RaiseCode "BrenikAddEnd", code, "", ReasonOf(code)
    End Select
End Function

' Starts an edit of the record with an identifier, or of the first one whose identifier begins with
' the text. Pass record 0 to SessionSetField and SessionEditEnd, and make no other call in between.
' Errors: brBadTable, brIdentifierNotFound.
Public Sub SessionEditStart(ByVal table As BrenikTable, ByVal identifier As String)
    Dim bytes() As Byte, number As Long
    BeginCall "BrenikEditStart"
    bytes = Encoded(identifier, "identifier")
    Check "BrenikEditStart", BrenikEditStart(table, bytes(0), number)
End Sub

' Starts an edit of a record by its number. The record may be deleted.
' Errors: brBadTable, brBadRecord.
Public Sub SessionEditBegin(ByVal table As BrenikTable, ByVal record As Long)
    Dim number As Long
    BeginCall "BrenikEditBegin"
    Check "BrenikEditBegin", BrenikEditBegin(table, record, number)
End Sub

' Sets one field of the transaction. The library converts the text to the field's type; text that
' does not convert becomes 0, the empty date or false, without an error.
'   record  the record of the transaction; 0 for the current one, and for a new record
'   field   the field's name, in any case
'   text    a number with a decimal point; a date as MM/DD/YYYY or YYYYMMDD; "Y", "T" or "1" for
'           true
' Errors: brNotCurrent, brBadRecord, brUnknownField.
Public Sub SessionSetField(ByVal table As BrenikTable, ByVal record As Long, _
                           ByVal field As String, ByVal text As String)
    Dim fieldBytes() As Byte, textBytes() As Byte
    BeginCall "BrenikSetField"
    fieldBytes = Encoded(field, "field")
    textBytes = Encoded(text, "text")
    Check "BrenikSetField", BrenikSetField(table, record, fieldBytes(0), textBytes(0))
End Sub

' Writes the whole edited record under a lock, and notes in the change journal which fields changed.
' The transaction stays, so that the host can repeat a refused call.
' Errors: brNotCurrent, brBadRecord, brLockRefused, brEditNotStamped.
Public Sub SessionEditEnd(ByVal table As BrenikTable, Optional ByVal record As Long = 0)
    BeginCall "BrenikEditEnd"
    Check "BrenikEditEnd", BrenikEditEnd(table, record)
End Sub

' Returns the 23 items that describe the practice's own contact, as an array from 0. The array is
' empty (its UBound is -1) if the practice names no such contact.
Public Function SessionGetMyFirm() As Variant
    Dim buffer() As Byte, size As Long, firm As String
    BeginCall "BrenikGetMyFirm"
    buffer = Primed(FirmLength, FirmBuffer)
    Check "BrenikGetMyFirm", BrenikGetMyFirm(buffer(0))
    Do While buffer(size) <> 0
        size = size + 1
    Loop
    firm = Decoded(buffer, size)
    ' What follows the last bar is a byte of the blanks.
    If InStr(firm, "|") = 0 Then firm = "" Else firm = Left$(firm, InStrRev(firm, "|") - 1)
    SessionGetMyFirm = Split(firm, "|")
End Function

' Returns the identifier of the contact with an ID (table 1) or of the matter with a case number
' (table 3), in any letter case. Makes its record current. Errors: brBadTable, brKeyNotFound.
Public Function SessionGetU_ID(ByVal table As BrenikTable, ByVal key As String) As String
    Dim bytes() As Byte, buffer() As Byte
    BeginCall "BrenikGetU_ID"
    bytes = Encoded(key, "key")
    buffer = Primed(IdentifierLength, GetU_IDBuffer)
    Check "BrenikGetU_ID", BrenikGetU_ID(table, bytes(0), buffer(0))
    SessionGetU_ID = RTrim$(Decoded(buffer, IdentifierLength))
End Function

' What a code means and what to do about it.
Public Function BrenikTextOf(ByVal code As BrenikCode) As String
    Dim text As String
    Select Case code
    Case brSuccess: text = "Done."
    Case brDataFilesMissing: text = _
        "LAWSYS.DBF or LAW1.DBF is not in the data folder: check the path."
    Case brIndexFilesMissing: text = _
        "LAW1.CDX or LAW2.CDX is missing: rebuild the practice's indexes."
    Case brSystemTableNotOpened: text = _
        "The system table cannot be opened. One of its files is missing, not " & _
        "permitted, held by another program or damaged; the fault file says " & _
        "which and why (""brenik faults"" prints it)."
    Case brTableNotOpened: text = _
        "Another table cannot be opened, for one of the same reasons. From " & _
        "BrenikAddEnd: the matter was added, without its link."
    Case brBadTable: text = _
        "The table number is out of range or its table is not open: correct " & _
        "the call."
    Case brBadRecord: text = _
        "No such record, not the current one, not deleted, or no Start before: " & _
        "correct the call."
    Case brUnknownField: text = _
        "The table has no field of that name; the other fields are unaffected."
    Case brAdditionNotStamped: text = _
        "The addition could not be noted in the change journal: report it " & _
        "again later."
    Case brEditNotStamped: text = "The edit could not be written or noted: try BrenikEditEnd again."
    Case brDeletionNotStamped: text = _
        "The deletion could not be noted in the change journal: report it " & _
        "again later."
    Case brNotRegistered: text = _
        "This build of the library lacks the operation: replace the library."
    Case brLockRefused: text = _
        "Another workstation holds the record: try BrenikEditEnd again later."
    Case brNotCurrent: text = _
        "The table is not the one that the Start selected: start the " & _
        "transaction again."
    Case brFault: text = _
        "A fault such as a damaged file or a full disk stopped the call; the " & _
        "fault file has one line with the reason. The session stays usable and " & _
        "holds no lock. Start the transaction again once the cause is removed. " & _
        "The child of a fork gets this code from every call until " & _
        "BrenikInitialize starts a session there."
    Case brAlreadyShutDown: text = "The session is already shut down: nothing to do."
    Case brIdentifierNotFound: text = _
        "No record has that identifier. From BrenikAddEnd: the matter was " & _
        "added, without its link."
    Case brAppendFailed: text = _
        "The record could not be appended, because another workstation kept a " & _
        "lock: try again; for a matter, pass the contact's identifier again. " & _
        "If a matter's identifier is returned, the matter was added and only " & _
        "its link is missing."
    Case brDuplicateCode: text = "The code already exists; its identifier is returned."
    Case brKeyNotFound: text = "No record has that key, or the key is blank."
    Case Else: text = "This code is unknown: use the binding of the same release."
    End Select
    BrenikTextOf = text
End Function

Private Sub BeginCall(ByVal functionName As String)
    SkipFaults
    If Not mIsOpen Then RaiseCode functionName, brAlreadyShutDown, "", ""
End Sub

Private Sub Check(ByVal functionName As String, ByVal code As Long)
    If code <> brSuccess Then RaiseCode functionName, code, "", ReasonOf(code)
End Sub

Private Sub RaiseCode(ByVal functionName As String, ByVal code As Long, _
                      ByVal identifier As String, ByVal reason As String)
    Dim message As String
    SessionErrorIdentifier = identifier
    SessionErrorReason = reason
    message = functionName & ": " & code & ": " & BrenikTextOf(code)
    If Len(reason) > 0 Then message = message & " (" & reason & ")"
    Err.Raise vbObjectError + code, functionName, message
End Sub

Private Sub Refuse(ByVal message As String)
    SessionErrorIdentifier = ""
    SessionErrorReason = ""
    Err.Raise vbObjectError + BrenikRefused, "BrenikDB", message
End Sub

' A buffer that begins with blanks. The library writes no more than the length of the text that it
' finds there.
Private Function Primed(ByVal length As Long, ByVal size As Long) As Byte()
    Dim buffer() As Byte, i As Long
    ReDim buffer(0 To size - 1)
    For i = 0 To length - 1
        buffer(i) = 32
    Next
    Primed = buffer
End Function

' The bytes of a text in the practice's code page, with a 0 at the end. Each character must come
' back from its bytes: Windows puts a similar character for one that the page does not have.
Private Function Encoded(ByVal text As String, ByVal argument As String) As Byte()
    Dim bytes() As Byte, added() As Byte, character As String
    Dim size As Long, count As Long, i As Long, j As Long
    RefuseNul text, argument
    ReDim bytes(0 To Len(text) * MostBytesOfUnit)
    i = 1
    Do While i <= Len(text)
        character = Mid$(text, i, 1)
        If UnitOf(character) >= &HD800& And UnitOf(character) < &HDC00& Then
            character = Mid$(text, i, 2)
        End If
        If UnitOf(character) < 128 Then
            bytes(size) = UnitOf(character)
            size = size + 1
        Else
            count = ToBytes(character, mPage, added)
            If count > 0 Then
                If Decoded(added, count) <> character Then count = 0
            End If
            If count = 0 Then
                Refuse argument & ": code page " & mPage & _
                    " of the practice lacks the character '" & character & "' (U+" & _
                    Right$("000" & Hex$(UnitOf(character)), 4) & "): replace it"
            End If
            For j = 0 To count - 1
                bytes(size + j) = added(j)
            Next
            size = size + count
        End If
        i = i + Len(character)
    Loop
    ReDim Preserve bytes(0 To size)
    bytes(size) = 0
    Encoded = bytes
End Function

' The text of bytes in the practice's code page. A byte that the page leaves undefined becomes \xHH.
Private Function Decoded(ByRef bytes() As Byte, ByVal size As Long) As String
    Dim text As String, character As String, i As Long, used As Long
    Do While i < size
        used = 1
        If bytes(i) < 128 Then
            character = ChrW$(bytes(i))
        Else
            character = DecodedCharacter(bytes, i, 1)
            If Len(character) = 0 And i + 1 < size Then
                character = DecodedCharacter(bytes, i, 2)
                used = 2
            End If
            If Not IsDefined(character) Then
                character = "\x" & LCase$(Hex$(bytes(i)))
                used = 1
            End If
        End If
        text = text & character
        i = i + used
    Loop
    Decoded = text
End Function

' The character of one or two bytes; empty if the page does not define them.
Private Function DecodedCharacter(ByRef bytes() As Byte, ByVal start As Long, _
                                  ByVal count As Long) As String
    Dim isLead As Boolean
    isLead = IsDBCSLeadByteEx(mPage, bytes(start)) <> 0
    If isLead = (count = 2) Then
        DecodedCharacter = ToText(bytes, start, count, mPage, RefuseUndefined)
    End If
End Function

' Windows turns undefined bytes into control characters or into the private use area.
Private Function IsDefined(ByVal character As String) As Boolean
    If Len(character) = 0 Then Exit Function
    IsDefined = UnitOf(character) >= &HA0& And _
        (UnitOf(character) < &HE000& Or UnitOf(character) > &HF8FF&)
End Function

' The number of the first UTF-16 unit; AscW gives a negative one from &H8000.
Private Function UnitOf(ByVal character As String) As Long
    UnitOf = AscW(character) And &HFFFF&
End Function

' The library takes its path in the process's ANSI code page.
Private Function EncodedPath(ByVal path As String) As Byte()
    Dim bytes() As Byte, size As Long
    RefuseNul path, "dataPath"
    ReDim bytes(0 To 0)
    If Len(path) > 0 Then size = ToBytes(path, AnsiPage, bytes)
    If ToText(bytes, 0, size, AnsiPage, 0) <> path Then
        Refuse "dataPath: the code page of this process lacks a character of """ & path & _
            """: rename the folder"
    End If
    ReDim Preserve bytes(0 To size)
    bytes(size) = 0
    EncodedPath = bytes
End Function

Private Sub RefuseNul(ByVal text As String, ByVal argument As String)
    If InStr(text, vbNullChar) = 0 Then Exit Sub
    Refuse argument & ": the text has a NUL, at which the library would cut it: remove it"
End Sub

' Returns the number of bytes.
Private Function ToBytes(ByVal text As String, ByVal page As Long, ByRef bytes() As Byte) As Long
    ReDim bytes(0 To Len(text) * MostBytesOfUnit)
    ToBytes = WideCharToMultiByte(page, 0, StrPtr(text), Len(text), bytes(0), UBound(bytes), 0, 0)
End Function

Private Function ToText(ByRef bytes() As Byte, ByVal start As Long, ByVal size As Long, _
                        ByVal page As Long, ByVal flags As Long) As String
    Dim text As String, length As Long
    If size = 0 Then Exit Function
    text = String$(size * 2, vbNullChar)
    length = MultiByteToWideChar(page, flags, bytes(start), size, StrPtr(text), Len(text))
    ToText = Left$(text, length)
End Function

Private Sub RequirePage(ByVal page As Long)
    If IsValidCodePage(page) <> 0 Then Exit Sub
    Refuse "this system does not know code page " & page & ": pass another one"
End Sub

' The page that the practice's contacts are marked with; 0 if their table is unreadable.
Private Function PageOfPractice(ByVal dataPath As String) As Long
    Dim folder As String, bytes() As Byte
    folder = Trim$(dataPath)
    If Len(folder) = 0 Then folder = "."
    If BytesOfFile(folder & "\LAW1.DBF", PlaceOfMark, 1, bytes) > PlaceOfMark Then
        PageOfPractice = PageOfMark(bytes(0))
    End If
End Function

' The code page that each mark in a table's header stands for.
Private Function PageOfMark(ByVal mark As Byte) As Long
    Dim page As Long
    Select Case mark
    Case &H01: page = 437
    Case &H02: page = 850
    Case &H03: page = 1252
    Case &H04: page = 10000
    Case &H64: page = 852
    Case &H65: page = 866
    Case &H66: page = 865
    Case &H67: page = 861
    Case &H6A: page = 737
    Case &H6B: page = 857
    Case &H78: page = 950
    Case &H79: page = 949
    Case &H7A: page = 936
    Case &H7B: page = 932
    Case &H7C: page = 874
    Case &H7D: page = 1255
    Case &H7E: page = 1256
    Case &H96: page = 10007
    Case &H97: page = 10029
    Case &H98: page = 10006
    Case &HC8: page = 1250
    Case &HC9: page = 1251
    Case &HCA: page = 1254
    Case &HCB: page = 1253
    Case &HCC: page = 1257
    Case 0: page = UnmarkedPage
    Case Else
        Refuse "the code page mark 0x" & LCase$(Right$("0" & Hex$(mark), 2)) & _
            " of LAW1.DBF stands for no known page: pass codePage"
    End Select
    PageOfMark = page
End Function

' Reads up to a number of bytes from an offset. Returns the size of the file, or 0 if it cannot be
' read. Visual Basic would create a missing file, hence the look at its size first.
Private Function BytesOfFile(ByVal path As String, ByVal start As Long, ByVal most As Long, _
                             ByRef bytes() As Byte) As Long
    Dim number As Integer, size As Long
    On Error GoTo Unreadable
    size = FileLen(path)
    number = FreeFile
    Open path For Binary Access Read Shared As #number
    size = LOF(number)
    If most > size - start Then most = size - start
    If most > 0 Then
        ReDim bytes(0 To most - 1)
        Get #number, start + 1, bytes
    End If
    Close #number
    BytesOfFile = size
    Exit Function
Unreadable:
    If number <> 0 Then Close #number
End Function

' Loads the library. The declarations then find it by its name, from whatever folder it is.
Private Sub LoadBrenik(ByVal libraryPath As String)
    Const DllName As String = "BrenikDB.dll"
    Dim path As String, length As Long, bits As Long
    path = libraryPath
    If Len(path) = 0 Then
        path = String$(LongestPath, vbNullChar)
        length = SearchPathW(0, StrPtr(DllName), 0, LongestPath, StrPtr(path), 0)
        path = Left$(path, length)
    End If
    If StrComp(Right$(path, Len(DllName)), DllName, vbTextCompare) <> 0 Then
        If Len(path) > 0 Then Refuse path & ": the library's name must be " & DllName
        Refuse DllName & " is neither beside the program nor where Windows " & _
            "searches; pass its path"
    End If
    bits = LibraryBits(path)
    If bits = 0 Then Refuse path & " is missing or not a library for Windows"
    If bits <> ProcessBits Then
        Refuse path & " has " & bits & " bits, and this process has " & _
            ProcessBits & "; use the " & ProcessBits & "-bit library"
    End If
    If LoadLibraryW(StrPtr(path)) = 0 Then
        Refuse "cannot load " & path & ": Windows error " & Err.LastDllError
    End If
End Sub

' The bits of a library from the machine in its header; 0 if it has no such header.
Private Function LibraryBits(ByVal path As String) As Long
    Const HeaderPointer As Long = 60
    Const PlaceOfMachine As Long = 4
    Dim bytes() As Byte, size As Long, header As Long
    size = BytesOfFile(path, HeaderPointer, 4, bytes)
    If size < HeaderPointer + 4 Then Exit Function
    If bytes(3) > 127 Then Exit Function
    header = bytes(0) + bytes(1) * 256& + bytes(2) * 65536 + bytes(3) * 16777216
    If header > size - PlaceOfMachine - 2 Then Exit Function
    If BytesOfFile(path, header, PlaceOfMachine + 2, bytes) <> size Then Exit Function
    If bytes(0) <> Asc("P") Or bytes(1) <> Asc("E") Then Exit Function
    Select Case bytes(PlaceOfMachine) + bytes(PlaceOfMachine + 1) * 256&
        Case &H14C&: LibraryBits = 32
        Case &H8664&, &HAA64&: LibraryBits = 64
    End Select
End Function

Private Function FaultFile() As String
    FaultFile = Environ$("BRENIK_FAULTS")
    If Len(FaultFile) = 0 Then FaultFile = Environ$("LOCALAPPDATA") & "\BrenikDB\Faults.log"
End Function

' Passes over the lines that are in the fault file already: they belong to other calls.
Private Sub SkipFaults()
    Dim bytes() As Byte
    mFaultsSeen = BytesOfFile(FaultFile(), 0, 0, bytes)
End Sub

' The reason of a failure that just happened: the third column of the last line that was added to
' the user's fault file. Empty if there is none. Reading the file never fails a call.
Private Function ReasonOf(ByVal code As Long) As String
    Dim bytes() As Byte, size As Long, start As Long, lines() As String, columns() As String
    Dim text As String
    start = mFaultsSeen
    SkipFaults
    Select Case code
        Case brDataFilesMissing To brTableNotOpened, _
             brAdditionNotStamped To brDeletionNotStamped, brFault
        Case Else
            Exit Function
    End Select
    If start > mFaultsSeen Then start = 0  ' a new file began
    size = mFaultsSeen - start
    If size = 0 Then Exit Function
    If BytesOfFile(FaultFile(), start, size, bytes) < start + size Then Exit Function
    text = ToText(bytes, 0, size, Utf8Page, 0)
    If InStr(text, ChrW$(&HFFFD)) > 0 Then text = ToText(bytes, 0, size, AnsiPage, 0)
    Do While Right$(text, 1) = vbLf Or Right$(text, 1) = vbCr
        text = Left$(text, Len(text) - 1)
    Loop
    lines = Split(text, vbLf)
    If UBound(lines) < 0 Then Exit Function
    columns = Split(lines(UBound(lines)), vbTab, 3)
    If UBound(columns) = 2 Then ReasonOf = columns(2)
End Function
