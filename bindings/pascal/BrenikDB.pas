// BrenikDB for Delphi and Free Pascal.
//
// TBrenikSession is an open practice. Its methods are the functions of the library with Unicode
// texts for bytes and exceptions for codes. TBrenikFunctions below it has the functions themselves.
//
//     Practice := TBrenikSession.Create('C:\Practice');
//     try
//       Practice.AddStart(btNames);
//       Practice.SetField(btNames, 0, 'LAST', 'Ives');
//       Contact := Practice.AddEnd(btNames);
//     finally
//       Practice.Free;
//     end;
//
// The unit is written for Delphi 7 and later on Windows, with and without Unicode strings, and for
// Free Pascal 3 on Windows and Linux. A program for 32-bit Windows uses the 32-bit BrenikDB.dll, a
// program for 64-bit Windows the 64-bit one. Windows or glibc converts the texts.

unit BrenikDB;

{$IFDEF FPC}
  {$MODE DELPHI}
{$ENDIF}
{$LONGSTRINGS ON}

interface

uses
  SysUtils;

type
  // A text in Unicode. WideString serves the versions of Delphi without UnicodeString.
  {$IFDEF FPC}
  TBrenikText = UnicodeString;
  {$ELSE}
  TBrenikText = {$IFDEF UNICODE}UnicodeString{$ELSE}WideString{$ENDIF};
  {$ENDIF}
  TBrenikTexts = array of TBrenikText;

  // The result of a function; BrenikTextOf says what it means.
  TBrenikCode = LongWord;

const
  brSuccess = 0;
  brDataFilesMissing = 1;
  brIndexFilesMissing = 2;
  brSystemTableNotOpened = 3;
  brTableNotOpened = 4;
  brBadTable = 5;
  brBadRecord = 6;
  brUnknownField = 7;
  brAdditionNotStamped = 8;
  brEditNotStamped = 9;
  brDeletionNotStamped = 10;
  brNotRegistered = 11;
  brLockRefused = 12;
  brNotCurrent = 13;
  brFault = 14;
  brAlreadyShutDown = 15;
  brIdentifierNotFound = 16;
  brAppendFailed = 17;
  brDuplicateCode = 18;
  brKeyNotFound = 19;

  // The numbers of the tables.
  btNames = 1;
  btEvents = 2;
  btMatters = 3;
  btNotes = 4;
  btCodes = 7;
  btCrossReferences = 9;
  btJournal = 20;

  // The length of an identifier, and the sizes of the buffers that the library writes to. The
  // buffer for BrenikGetMyFirm begins with FirmLength characters.
  IdentifierLength = 7;
  AddEndBuffer = 8;
  GetU_IDBuffer = 9;
  FirmLength = 1000;
  FirmBuffer = 1002;

type
  // The functions as the library exports them. Texts are bytes in the practice's code page and end
  // with a NUL. brenikdb.h is their manual.
  TBrenikInitialize = function(const DataPath: PAnsiChar; Trace: Integer;
    Reserved: Integer): TBrenikCode; {$IFDEF MSWINDOWS}stdcall;{$ELSE}cdecl;{$ENDIF}
  TBrenikShutDown = function: TBrenikCode; cdecl;
  TBrenikAddedRecord = function(Table: Integer;
    Rec: Integer): TBrenikCode; {$IFDEF MSWINDOWS}stdcall;{$ELSE}cdecl;{$ENDIF}
  TBrenikDeletedRecord = function(Table: Integer;
    Rec: Integer): TBrenikCode; {$IFDEF MSWINDOWS}stdcall;{$ELSE}cdecl;{$ENDIF}
  TBrenikAddStart = function(Table: Integer;
    var InOut: Integer): TBrenikCode; {$IFDEF MSWINDOWS}stdcall;{$ELSE}cdecl;{$ENDIF}
  TBrenikAddEnd = function(Table: Integer;
    Identifier: PAnsiChar): TBrenikCode; {$IFDEF MSWINDOWS}stdcall;{$ELSE}cdecl;{$ENDIF}
  TBrenikEditStart = function(Table: Integer; const Identifier: PAnsiChar;
    var InOut: Integer): TBrenikCode; {$IFDEF MSWINDOWS}stdcall;{$ELSE}cdecl;{$ENDIF}
  TBrenikEditBegin = function(Table: Integer; Rec: Integer;
    var InOut: Integer): TBrenikCode; {$IFDEF MSWINDOWS}stdcall;{$ELSE}cdecl;{$ENDIF}
  TBrenikSetField = function(Table: Integer; Rec: Integer; const Field: PAnsiChar;
    const Text: PAnsiChar): TBrenikCode; {$IFDEF MSWINDOWS}stdcall;{$ELSE}cdecl;{$ENDIF}
  TBrenikEditEnd = function(Table: Integer;
    Rec: Integer): TBrenikCode; {$IFDEF MSWINDOWS}stdcall;{$ELSE}cdecl;{$ENDIF}
  TBrenikGetMyFirm = function(
    Firm: PAnsiChar): TBrenikCode; {$IFDEF MSWINDOWS}stdcall;{$ELSE}cdecl;{$ENDIF}
  TBrenikGetU_ID = function(Table: Integer; const Key: PAnsiChar;
    Identifier: PAnsiChar): TBrenikCode; {$IFDEF MSWINDOWS}stdcall;{$ELSE}cdecl;{$ENDIF}

  TBrenikFunctions = record
    Initialize: TBrenikInitialize;
    ShutDown: TBrenikShutDown;
    AddedRecord: TBrenikAddedRecord;
    DeletedRecord: TBrenikDeletedRecord;
    AddStart: TBrenikAddStart;
    AddEnd: TBrenikAddEnd;
    EditStart: TBrenikEditStart;
    EditBegin: TBrenikEditBegin;
    SetField: TBrenikSetField;
    EditEnd: TBrenikEditEnd;
    GetMyFirm: TBrenikGetMyFirm;
    GetU_ID: TBrenikGetU_ID;
  end;

  // What goes wrong before a function is called: the library cannot be loaded, a text does not fit
  // the code page, another session is open. Message has the ANSI code page or, on Linux, UTF-8.
  EBrenik = class(Exception)
  public
    constructor Create(const Text: TBrenikText);
  end;

  // A function of the library returned a code other than brSuccess.
  EBrenikError = class(EBrenik)
  private
    FCode: TBrenikCode;
    FFunctionName: TBrenikText;
    FIdentifier: TBrenikText;
    FReason: TBrenikText;
    function GetText: TBrenikText;
  public
    constructor Create(const FunctionName: TBrenikText; Code: TBrenikCode;
      const Identifier, Reason: TBrenikText);
    property Code: TBrenikCode read FCode;
    // What the code means.
    property Text: TBrenikText read GetText;
    // The name of the function, such as 'BrenikAddEnd'.
    property FunctionName: TBrenikText read FFunctionName;
    // The identifier that AddEnd gave all the same: after brDuplicateCode that of the existing
    // code; after brIdentifierNotFound, brTableNotOpened and brAppendFailed that of a matter that
    // was added without its link. Empty if there is none.
    property Identifier: TBrenikText read FIdentifier;
    // The reason from the user's fault file; empty if it has none.
    property Reason: TBrenikText read FReason;
  end;

  TBrenikBytes = array of AnsiChar;

  // The code page of a practice: text to bytes and back, a character at a time, so that all
  // bindings convert alike. The functions of the system convert a character.
  TBrenikCodePage = class
  private
    FNumber: Integer;
    {$IFNDEF MSWINDOWS}
    FDecoder, FEncoder: Pointer;
    {$ENDIF}
    function DecodedCharacter(const Bytes: TBrenikBytes): TBrenikText;
    function EncodedCharacter(const Character: TBrenikText): TBrenikBytes;
  public
    // EBrenik: the system does not have the page.
    constructor Create(Number: Integer);
    {$IFNDEF MSWINDOWS}
    destructor Destroy; override;
    {$ENDIF}
    // The bytes of a text, with their NUL. EBrenik: a character does not come back from its bytes,
    // or the text contains a NUL. Name is that of the argument.
    function Encode(const Text, Name: TBrenikText): TBrenikBytes;
    // The text of the first Size bytes. A byte that the page leaves undefined becomes \xHH.
    function Decode(const Bytes: TBrenikBytes; Size: Integer): TBrenikText;
  end;

  // The user's fault file, in which the library writes the reason of some failures as a line
  // "time TAB call TAB reason". Reading it never fails a call.
  TBrenikFaultFile = class
  private
    FPath: TBrenikText;
    FSizeBeforeCall: Int64;
    function Added: TBrenikText;
  public
    constructor Create;
    // Older lines belong to other calls.
    procedure BeginCall;
    // The reason of the call's failure; empty if the library wrote none.
    function ReasonOf(Code: TBrenikCode): TBrenikText;
  end;

  // A practice that is open. A process has one session at a time, and the library serves one thread
  // at a time.
  //
  // Every method can raise EBrenikError with brFault and brNotRegistered, and with
  // brAlreadyShutDown after ShutDown. It raises EBrenik, and calls nothing, if a text contains a
  // NUL or a character that the practice's code page does not have. In a result, a byte that the
  // page leaves undefined becomes \xHH.
  TBrenikSession = class
  private
    FFunctions: TBrenikFunctions;
    FFaults: TBrenikFaultFile;
    FPage: TBrenikCodePage;
    FIsOpen: Boolean;
    function Close: TBrenikCode;
    function DecodedIdentifier(const Buffer: TBrenikBytes): TBrenikText;
    procedure BeginCall(const FunctionName: TBrenikText);
    procedure Check(const FunctionName: TBrenikText; Code: TBrenikCode;
      const Identifier: TBrenikText = '');
  public
    // Loads the library and opens a practice.
    //   DataPath     the folder of the practice; blank for the current one. On Windows it must fit
    //                the process's ANSI code page.
    //   Trace        write every call to Trace.Log in the folder
    //   LibraryPath  the path of the library; empty: see BrenikLoad
    //   CodePage     the number of the practice's code page; 0: the one that LAW1.DBF is marked
    //                with, or 1252 if it has no mark
    // EBrenikError: brDataFilesMissing, brIndexFilesMissing, brSystemTableNotOpened,
    // brTableNotOpened. EBrenik: another session is open, the library cannot be loaded, the code
    // page cannot be read, or the mark or the system has no such page.
    constructor Create(const DataPath: TBrenikText; Trace: Boolean = False;
      const LibraryPath: TBrenikText = ''; CodePage: Integer = 0);

    // Shuts the session down if it is open. Raises nothing.
    destructor Destroy; override;

    // Closes every table and releases every lock. The session is shut down afterwards, even if this
    // raises an exception. EBrenikError: brAlreadyShutDown.
    procedure ShutDown;

    // Notes in the change journal that the host itself has appended a record, and makes that record
    // current. EBrenikError: brBadTable, brBadRecord, brAdditionNotStamped.
    procedure AddedRecord(Table, Rec: Integer);

    // Notes in the change journal that the host itself has marked a record deleted, and makes that
    // record current. EBrenikError: brBadTable, brBadRecord, brDeletionNotStamped.
    procedure DeletedRecord(Table, Rec: Integer);

    // Starts a new record with empty fields. A second Start replaces the first.
    // EBrenikError: brBadTable.
    procedure AddStart(Table: Integer);

    // Appends the new record and returns its identifier.
    //   Contact  for a matter: the identifier of the contact to link it to
    // EBrenikError: brNotCurrent, brAppendFailed, brDuplicateCode (table 7); for a matter also
    // brIdentifierNotFound and brTableNotOpened. EBrenikError.Identifier says whether a record
    // exists: do not add a matter again that has one.
    function AddEnd(Table: Integer; const Contact: TBrenikText = ''): TBrenikText;

    // Starts an edit of the record with an identifier, or of the first one whose identifier begins
    // with the text. Pass record 0 to SetField and EditEnd, and make no other call in between.
    // EBrenikError: brBadTable, brIdentifierNotFound.
    procedure EditStart(Table: Integer; const Identifier: TBrenikText);

    // Starts an edit of a record by its number. The record may be deleted.
    // EBrenikError: brBadTable, brBadRecord.
    procedure EditBegin(Table, Rec: Integer);

    // Sets one field of the transaction. The library converts the text to the field's type; text
    // that does not convert becomes 0, the empty date or false, without an error.
    //   Rec    the record of the transaction; 0 for the current one, and for a new record
    //   Field  the field's name, in any case
    //   Text   a number with a decimal point; a date as MM/DD/YYYY or YYYYMMDD; 'Y', 'T' or '1' for
    //          true
    // EBrenikError: brNotCurrent, brBadRecord, brUnknownField.
    procedure SetField(Table, Rec: Integer; const Field, Text: TBrenikText);

    // Writes the whole edited record under a lock, and notes in the change journal which fields
    // changed. The transaction stays, so that the host can repeat a refused call.
    // EBrenikError: brNotCurrent, brBadRecord, brLockRefused, brEditNotStamped.
    procedure EditEnd(Table: Integer; Rec: Integer = 0);

    // Returns the 23 items that describe the practice's own contact; none if the practice names no
    // such contact. EBrenikError: only brFault and brNotRegistered.
    function GetMyFirm: TBrenikTexts;

    // Returns the identifier of the contact with an ID (table 1) or of the matter with a case
    // number (table 3), in any letter case. Makes its record current.
    // EBrenikError: brBadTable, brKeyNotFound.
    function GetU_ID(Table: Integer; const Key: TBrenikText): TBrenikText;
  end;

// What a code means and what to do about it.
function BrenikTextOf(Code: TBrenikCode): TBrenikText;

// Loads the library, which stays loaded until the process ends.
//   LibraryPath  the path of the library. Empty: on Windows BrenikDB.dll beside the program or
//                where Windows searches, elsewhere libBrenikDB.so.0 where the system searches.
// EBrenik: the library is missing, cannot be loaded, has another number of bits than the process,
// or lacks a function.
function BrenikLoad(const LibraryPath: TBrenikText): TBrenikFunctions;

implementation

{$IFDEF MSWINDOWS}
uses
  Windows;
{$ELSE}
uses
  BaseUnix, dl;
{$ENDIF}

const
  Unmarked = 1252;
  PlaceOfMark = 29;     // in the header of a table
  MostBytesOfUnit = 4;  // of one UTF-16 unit in any code page

  CodeTexts: array[brSuccess..brKeyNotFound] of record
    Code: TBrenikCode;
    Text: string;
  end = (
    (Code: brSuccess; Text: 'Done.'),
    (Code: brDataFilesMissing; Text:
      'LAWSYS.DBF or LAW1.DBF is not in the data folder: check the path.'),
    (Code: brIndexFilesMissing; Text:
      'LAW1.CDX or LAW2.CDX is missing: rebuild the practice''s indexes.'),
    (Code: brSystemTableNotOpened; Text:
      'The system table cannot be opened. One of its files is missing, ' +
      'not permitted, held by another program or damaged; the fault file ' +
      'says which and why ("brenik faults" prints it).'),
    (Code: brTableNotOpened; Text:
      'Another table cannot be opened, for one of the same reasons. From ' +
      'BrenikAddEnd: the matter was added, without its link.'),
    (Code: brBadTable; Text:
      'The table number is out of range or its table is not open: ' +
      'correct the call.'),
    (Code: brBadRecord; Text:
      'No such record, not the current one, not deleted, or no Start ' +
      'before: correct the call.'),
    (Code: brUnknownField; Text:
      'The table has no field of that name; the other fields are ' +
      'unaffected.'),
    (Code: brAdditionNotStamped; Text:
      'The addition could not be noted in the change journal: report it ' +
      'again later.'),
    (Code: brEditNotStamped; Text:
      'The edit could not be written or noted: try BrenikEditEnd again.'),
    (Code: brDeletionNotStamped; Text:
      'The deletion could not be noted in the change journal: report it ' +
      'again later.'),
    (Code: brNotRegistered; Text:
      'This build of the library lacks the operation: replace the ' +
      'library.'),
    (Code: brLockRefused; Text:
      'Another workstation holds the record: try BrenikEditEnd again ' +
      'later.'),
    (Code: brNotCurrent; Text:
      'The table is not the one that the Start selected: start the ' +
      'transaction again.'),
    (Code: brFault; Text:
      'A fault such as a damaged file or a full disk stopped the call; ' +
      'the fault file has one line with the reason. The session stays ' +
      'usable and holds no lock. Start the transaction again once the ' +
      'cause is removed. The child of a fork gets this code from every ' +
      'call until BrenikInitialize starts a session there.'),
    (Code: brAlreadyShutDown; Text: 'The session is already shut down: nothing to do.'),
    (Code: brIdentifierNotFound; Text:
      'No record has that identifier. From BrenikAddEnd: the matter was ' +
      'added, without its link.'),
    (Code: brAppendFailed; Text:
      'The record could not be appended, because another workstation ' +
      'kept a lock: try again; for a matter, pass the contact''s ' +
      'identifier again. If a matter''s identifier is returned, the ' +
      'matter was added and only its link is missing.'),
    (Code: brDuplicateCode; Text: 'The code already exists; its identifier is returned.'),
    (Code: brKeyNotFound; Text: 'No record has that key, or the key is blank.'));

  // The code page that each mark in a table's header stands for.
  Marks: array[0..24] of record
    Mark: Byte;
    Page: Integer;
  end = (
    (Mark: $01; Page: 437), (Mark: $02; Page: 850), (Mark: $03; Page: 1252),
    (Mark: $04; Page: 10000), (Mark: $64; Page: 852), (Mark: $65; Page: 866),
    (Mark: $66; Page: 865), (Mark: $67; Page: 861), (Mark: $6A; Page: 737),
    (Mark: $6B; Page: 857), (Mark: $78; Page: 950), (Mark: $79; Page: 949),
    (Mark: $7A; Page: 936), (Mark: $7B; Page: 932), (Mark: $7C; Page: 874),
    (Mark: $7D; Page: 1255), (Mark: $7E; Page: 1256), (Mark: $96; Page: 10007),
    (Mark: $97; Page: 10029), (Mark: $98; Page: 10006), (Mark: $C8; Page: 1250),
    (Mark: $C9; Page: 1251), (Mark: $CA; Page: 1254), (Mark: $CB; Page: 1253),
    (Mark: $CC; Page: 1257));

var
  IsAnyOpen: Boolean = False;

function NumberText(Number: Int64): TBrenikText;
begin
  Result := TBrenikText(IntToStr(Number));
end;

procedure RefusePage(Page: Integer);
begin
  raise EBrenik.Create('this system does not know code page ' + NumberText(Page) +
    ': pass another one');
end;

{ The system's part: reading files that others have open, code pages, loading. }

{$IFDEF MSWINDOWS}

type
  TLoaded = HMODULE;

const
  LongestText = 32767;  // of a path or a variable of the environment

function SearchPathOfWindows(Path, FileName, Extension: PWideChar; Size: LongWord;
  Found: PWideChar; FilePart: Pointer): LongWord; stdcall;
  external 'kernel32.dll' name 'SearchPathW';

// Up to Most bytes from an offset. Size is that of the file, or -1 if it cannot be read.
function ReadShared(const Path: TBrenikText; Start: Int64; Most: Integer;
  out Size: Int64): TBrenikBytes;
const
  ShareAll = FILE_SHARE_READ or FILE_SHARE_WRITE or 4;  // FILE_SHARE_DELETE
var
  Handle: THandle;
  Count: LongWord;
begin
  Result := nil;
  Size := -1;
  Handle := CreateFileW(PWideChar(Path), GENERIC_READ, ShareAll, nil, OPEN_EXISTING, 0, 0);
  if Handle = INVALID_HANDLE_VALUE then
    Exit;
  Size := GetFileSize(Handle, nil);
  SetLength(Result, Most);
  Count := 0;
  if (Most > 0) and ((SetFilePointer(Handle, LongInt(Start), nil, FILE_BEGIN) = $FFFFFFFF) or
    not ReadFile(Handle, Result[0], LongWord(Most), Count, nil)) then
    Size := -1;
  SetLength(Result, Count);
  CloseHandle(Handle);
end;

// The path of the table with the contacts.
function NamesTable(const Folder: TBrenikText): TBrenikText;
begin
  Result := Folder + '\LAW1.DBF';
end;

function EnvironmentText(const Name: TBrenikText): TBrenikText;
var
  Size: LongWord;
begin
  Result := '';
  SetLength(Result, LongestText);
  Size := GetEnvironmentVariableW(PWideChar(Name), PWideChar(Result), LongestText);
  SetLength(Result, Size);
end;

function FaultFileInUse: TBrenikText;
begin
  Result := EnvironmentText('BRENIK_FAULTS');
  if Result = '' then
    Result := EnvironmentText('LOCALAPPDATA') + '\BrenikDB\Faults.log';
end;

// The bytes of a text in a code page; none if it does not fit. Windows may also put a similar
// character for one that the page does not have.
function BytesIn(Page: Integer; const Text: TBrenikText): TBrenikBytes;
var
  Size: Integer;
begin
  Result := nil;
  SetLength(Result, Length(Text) * MostBytesOfUnit);
  Size := 0;
  if Text <> '' then
    Size := WideCharToMultiByte(Page, 0, PWideChar(Text), Length(Text), @Result[0],
      Length(Result), nil, nil);
  SetLength(Result, Size);
end;

// The text of bytes in a code page.
function TextIn(Page: Integer; const Bytes: TBrenikBytes; Flags: LongWord): TBrenikText;
var
  Size: Integer;
begin
  Result := '';
  SetLength(Result, Length(Bytes) + 1);
  Size := 0;
  if Length(Bytes) > 0 then
    Size := MultiByteToWideChar(Page, Flags, @Bytes[0], Length(Bytes), PWideChar(Result),
      Length(Result));
  SetLength(Result, Size);
end;

// The library takes its path in the process's ANSI code page; none if it does not fit.
function BytesOfPath(const Path: TBrenikText): TBrenikBytes;
begin
  Result := BytesIn(CP_ACP, Path);
  if TextIn(CP_ACP, Result, 0) <> Path then
    Result := nil;
end;

// The fault file's text is UTF-8 or in the ANSI code page.
function TextOfFaults(const Bytes: TBrenikBytes): TBrenikText;
const
  Utf8 = 65001;
begin
  Result := TextIn(Utf8, Bytes, 0);
  if Pos(WideChar($FFFD), Result) > 0 then  // what Windows puts for bytes that are not UTF-8
    Result := TextIn(CP_ACP, Bytes, 0);
end;

function IsDBCSLeadByteInPage(Page: LongWord; First: Byte): LongInt; stdcall;
  external 'kernel32.dll' name 'IsDBCSLeadByteEx';

constructor TBrenikCodePage.Create(Number: Integer);
begin
  inherited Create;
  FNumber := Number;
  if not IsValidCodePage(Number) then
    RefusePage(Number);
end;

// The character of one or two bytes; empty if the page does not define them.
function TBrenikCodePage.DecodedCharacter(const Bytes: TBrenikBytes): TBrenikText;
const
  RefuseUndefined = 8;
begin
  Result := '';
  if (IsDBCSLeadByteInPage(FNumber, Ord(Bytes[0])) <> 0) = (Length(Bytes) = 2) then
    Result := TextIn(FNumber, Bytes, RefuseUndefined);
end;

function TBrenikCodePage.EncodedCharacter(const Character: TBrenikText): TBrenikBytes;
begin
  Result := BytesIn(FNumber, Character);
end;

function LibraryIn(const Path: TBrenikText): TBrenikText;
var
  Name: TBrenikText;
  Size: LongWord;
begin
  Name := Path;
  if Path = '' then
    Name := 'BrenikDB.dll';
  Result := '';
  SetLength(Result, LongestText);
  Size := SearchPathOfWindows(nil, PWideChar(Name), nil, LongestText, PWideChar(Result), nil);
  SetLength(Result, Size);
  if Size = 0 then
    raise EBrenik.Create('cannot find ' + Name + ': it must be beside the program or where ' +
      'Windows searches, or the program must pass its path');
end;

// The bits of a library from its machine; 0 if it is no library of this system.
function LibraryBits(const Start: TBrenikBytes): Integer;
const
  HeaderPointer = $3C;
  Machine = 4;
var
  Header: LongWord;
begin
  Result := 0;
  if (Length(Start) < HeaderPointer + 4) or (Start[0] <> 'M') or (Start[1] <> 'Z') then
    Exit;
  Header := PLongWord(@Start[HeaderPointer])^;
  if Header > LongWord(Length(Start) - Machine - 2) then
    Exit;
  case PWord(@Start[Header + Machine])^ of
    $014C: Result := 32;
    $8664, $AA64: Result := 64;
  end;
end;

function LoadPath(const Path: TBrenikText): TLoaded;
begin
  Result := LoadLibraryW(PWideChar(Path));
  if Result = 0 then
    raise EBrenik.Create('cannot load ' + Path + ': Windows error ' + NumberText(GetLastError));
end;

function FindFunction(Loaded: TLoaded; const Name: AnsiString): Pointer;
begin
  Result := GetProcAddress(Loaded, PAnsiChar(Name));
end;

{$ELSE}

type
  TLoaded = Pointer;
  TIconv = Pointer;

function iconv_open(ToCode, FromCode: PAnsiChar): TIconv; cdecl; external 'c';
function iconv(Conversion: TIconv; Input: PPAnsiChar; InputLeft: PSizeUInt; Output: PPAnsiChar;
  OutputLeft: PSizeUInt): SizeUInt; cdecl; external 'c';
function iconv_close(Conversion: TIconv): LongInt; cdecl; external 'c';

const
  Utf16 = 'UTF-16LE';
  NoConversion = TIconv(-1);

// The bytes of a path or name with their NUL.
function SystemText(const Text: TBrenikText): TBrenikBytes;
var
  Bytes: RawByteString;
begin
  Bytes := UTF8Encode(Text);
  Result := nil;
  SetLength(Result, Length(Bytes) + 1);
  Move(PAnsiChar(Bytes)^, Result[0], Length(Result));
end;

// Up to Most bytes from an offset. Size is that of the file, or -1 if it cannot be read.
function ReadShared(const Path: TBrenikText; Start: Int64; Most: Integer;
  out Size: Int64): TBrenikBytes;
var
  Handle: LongInt;
  Count: Int64;
begin
  Result := nil;
  Size := -1;
  Handle := FpOpen(PAnsiChar(SystemText(Path)), O_RDONLY);
  if Handle < 0 then
    Exit;
  Size := FpLSeek(Handle, 0, SEEK_END);
  SetLength(Result, Most);
  Count := 0;
  if (Size >= 0) and (Most > 0) then
  begin
    FpLSeek(Handle, Start, SEEK_SET);
    Count := FpRead(Handle, Result[0], Most);
  end;
  if Count < 0 then
    Size := -1;
  SetLength(Result, Count * Ord(Count > 0));
  FpClose(Handle);
end;

// The path of the table with the contacts, whose name may have any letter case.
function NamesTable(const Folder: TBrenikText): TBrenikText;
var
  Names: PDir;
  Entry: PDirent;
begin
  Result := '';
  Names := FpOpenDir(PAnsiChar(SystemText(Folder)));
  if Names = nil then
    Exit;
  repeat
    Entry := FpReadDir(Names^);
    if (Entry <> nil) and (StrIComp(PAnsiChar(@Entry^.d_name[0]), 'LAW1.DBF') = 0) then
      Result := Folder + '/' + UTF8Decode(PAnsiChar(@Entry^.d_name[0]));
  until (Entry = nil) or (Result <> '');
  FpCloseDir(Names^);
end;

function FaultFileInUse: TBrenikText;
begin
  Result := UTF8Decode(GetEnvironmentVariable('BRENIK_FAULTS'));
  if Result = '' then
    Result := UTF8Decode(GetEnvironmentVariable('HOME')) + '/.brenik/Faults.log';
end;

// None if it does not fit.
function BytesOfPath(const Path: TBrenikText): TBrenikBytes;
begin
  Result := SystemText(Path);
  SetLength(Result, Length(Result) - 1);
  if UTF8Decode(PAnsiChar(SystemText(Path))) <> Path then
    Result := nil;
end;

function TextOfFaults(const Bytes: TBrenikBytes): TBrenikText;
var
  Text: RawByteString;
begin
  SetString(Text, PAnsiChar(Bytes), Length(Bytes));
  Result := UTF8Decode(Text);
end;

// What iconv calls a code page.
function PageName(Page: Integer): AnsiString;
begin
  case Page of
    10000: Result := 'MACINTOSH';
    10006: Result := 'MACGREEK';
    10007: Result := 'MAC-CYRILLIC';
    10029: Result := 'MAC-CENTRALEUROPE';
  else
    Result := AnsiString('CP') + IntToStr(Page);
  end;
end;

// Converts a character; gives nothing if iconv refuses it. In page 1255 iconv keeps a letter back,
// to compose it with a point, until it is called without input.
function Converted(Conversion: TIconv; Input: PAnsiChar; InputLeft: SizeUInt): TBrenikBytes;
const
  Room = 16;
var
  Output: PAnsiChar;
  OutputLeft: SizeUInt;
  IsExact: Boolean;
begin
  Result := nil;
  SetLength(Result, Room);
  Output := PAnsiChar(Result);
  OutputLeft := Room;
  IsExact := iconv(Conversion, @Input, @InputLeft, @Output, @OutputLeft) = 0;
  iconv(Conversion, nil, nil, @Output, @OutputLeft);
  if not IsExact then
    OutputLeft := Room;
  SetLength(Result, Room - OutputLeft);
end;

constructor TBrenikCodePage.Create(Number: Integer);
begin
  inherited Create;
  FNumber := Number;
  FDecoder := iconv_open(Utf16, PAnsiChar(PageName(Number)));
  FEncoder := iconv_open(PAnsiChar(PageName(Number)), Utf16);
  if (FDecoder = NoConversion) or (FEncoder = NoConversion) then
    RefusePage(Number);
end;

// Also runs if Create raises an exception.
destructor TBrenikCodePage.Destroy;
begin
  if FDecoder <> NoConversion then
    iconv_close(FDecoder);
  if FEncoder <> NoConversion then
    iconv_close(FEncoder);
  inherited Destroy;
end;

// The character of one or two bytes; empty if the page does not define them.
function TBrenikCodePage.DecodedCharacter(const Bytes: TBrenikBytes): TBrenikText;
var
  Units: TBrenikBytes;
begin
  Units := Converted(FDecoder, PAnsiChar(Bytes), Length(Bytes));
  SetString(Result, PWideChar(Units), Length(Units) div SizeOf(WideChar));
end;

function TBrenikCodePage.EncodedCharacter(const Character: TBrenikText): TBrenikBytes;
begin
  Result := Converted(FEncoder, PAnsiChar(PWideChar(Character)),
    Length(Character) * SizeOf(WideChar));
end;

function LibraryIn(const Path: TBrenikText): TBrenikText;
begin
  Result := Path;
  if Path = '' then
    Result := 'libBrenikDB.so.0';
end;

// The bits of a library from its class; 0 if it is no library of this system.
function LibraryBits(const Start: TBrenikBytes): Integer;
const
  PlaceOfClass = 4;
begin
  Result := 0;
  if (Length(Start) > PlaceOfClass) and (Start[0] = #$7F) and (Start[1] = 'E') and
    (Start[2] = 'L') and (Start[3] = 'F') then
    Result := 32 * Ord(Start[PlaceOfClass]);
end;

function LoadPath(const Path: TBrenikText): TLoaded;
begin
  Result := dlopen(PAnsiChar(SystemText(Path)), RTLD_NOW);
  if Result = nil then
    raise EBrenik.Create('cannot load ' + Path + ': ' + UTF8Decode(dlerror()));
end;

function FindFunction(Loaded: TLoaded; const Name: AnsiString): Pointer;
begin
  Result := dlsym(Loaded, PAnsiChar(Name));
end;

{$ENDIF}

{ Loading }

// The system searches for a name without a folder; it refuses a library with other bits itself.
procedure RefuseOtherBits(const Path: TBrenikText);
const
  MostHeader = 1024;
  ProcessBits = 8 * SizeOf(Pointer);
var
  Bits: Integer;
  Size: Int64;
  Start: TBrenikBytes;
begin
  if Pos(TBrenikText(PathDelim), Path) = 0 then
    Exit;
  Start := ReadShared(Path, 0, MostHeader, Size);
  if Size < 0 then
    raise EBrenik.Create(Path + ': the library cannot be read: check the path');
  Bits := LibraryBits(Start);
  if Bits = 0 then
    raise EBrenik.Create(Path + ' is not a library that this system can load');
  if Bits <> ProcessBits then
    raise EBrenik.Create(Path + ' has ' + NumberText(Bits) + ' bits, and this process has ' +
      NumberText(ProcessBits) + '; use the ' + NumberText(ProcessBits) +
      '-bit library, or build the program with ' + NumberText(Bits) + ' bits');
end;

function BrenikLoad(const LibraryPath: TBrenikText): TBrenikFunctions;
var
  Path: TBrenikText;
  Loaded: TLoaded;

  function Bound(const Name: AnsiString): Pointer;
  begin
    Result := FindFunction(Loaded, Name);
    if Result = nil then
      raise EBrenik.Create(Path + ' has no function ' + TBrenikText(Name) +
        '; replace the library');
  end;

begin
  Path := LibraryIn(LibraryPath);
  RefuseOtherBits(Path);
  Loaded := LoadPath(Path);
  Result.Initialize := TBrenikInitialize(Bound('BrenikInitialize'));
  Result.ShutDown := TBrenikShutDown(Bound('BrenikShutDown'));
  Result.AddedRecord := TBrenikAddedRecord(Bound('BrenikAddedRecord'));
  Result.DeletedRecord := TBrenikDeletedRecord(Bound('BrenikDeletedRecord'));
  Result.AddStart := TBrenikAddStart(Bound('BrenikAddStart'));
  Result.AddEnd := TBrenikAddEnd(Bound('BrenikAddEnd'));
  Result.EditStart := TBrenikEditStart(Bound('BrenikEditStart'));
  Result.EditBegin := TBrenikEditBegin(Bound('BrenikEditBegin'));
  Result.SetField := TBrenikSetField(Bound('BrenikSetField'));
  Result.EditEnd := TBrenikEditEnd(Bound('BrenikEditEnd'));
  Result.GetMyFirm := TBrenikGetMyFirm(Bound('BrenikGetMyFirm'));
  Result.GetU_ID := TBrenikGetU_ID(Bound('BrenikGetU_ID'));
end;

{ Texts }

function BrenikTextOf(Code: TBrenikCode): TBrenikText;
begin
  Result := 'This code is unknown: use the binding of the same release.';
  if Code <= High(CodeTexts) then
    Result := TBrenikText(CodeTexts[Code].Text);
end;

procedure RefuseNul(const Text, Name: TBrenikText);
begin
  if Pos(TBrenikText(#0), Text) > 0 then
    raise EBrenik.Create(Name +
      ': the text has a NUL, at which the library would cut it: remove it');
end;

function EncodedPath(const Path: TBrenikText): TBrenikBytes;
begin
  RefuseNul(Path, 'DataPath');
  Result := BytesOfPath(Path);
  if (Result = nil) and (Path <> '') then
    raise EBrenik.Create('DataPath: the code page of this process lacks a character of "' + Path +
      '": rename the folder');
  SetLength(Result, Length(Result) + 1);
  Result[High(Result)] := #0;
end;

// U+ and the number of a character of one or two units.
function NumberOf(const Character: TBrenikText): TBrenikText;
var
  Number: Integer;
begin
  Number := Ord(Character[1]);
  if Length(Character) = 2 then
    Number := $10000 + (Number and $3FF) * $400 + (Ord(Character[2]) and $3FF);
  Result := 'U+' + TBrenikText(IntToHex(Number, 4));
end;

function IsPair(const Text: TBrenikText; I: Integer): Boolean;
begin
  Result := (I < Length(Text)) and (Ord(Text[I]) and $FC00 = $D800) and
    (Ord(Text[I + 1]) and $FC00 = $DC00);
end;

// Some systems turn undefined bytes into control characters or into the private use area.
function IsDefined(const Character: TBrenikText): Boolean;
begin
  Result := (Character <> '') and (Ord(Character[1]) >= $A0) and
    ((Ord(Character[1]) < $E000) or (Ord(Character[1]) > $F8FF));
end;

{ TBrenikCodePage }

function TBrenikCodePage.Encode(const Text, Name: TBrenikText): TBrenikBytes;
var
  I, Size: Integer;
  Character: TBrenikText;
  Bytes: TBrenikBytes;
begin
  RefuseNul(Text, Name);
  Result := nil;
  SetLength(Result, Length(Text) * MostBytesOfUnit + 1);
  Size := 0;
  I := 1;
  while I <= Length(Text) do
  begin
    Character := Copy(Text, I, 1 + Ord(IsPair(Text, I)));
    Inc(I, Length(Character));
    if Ord(Character[1]) < $80 then
    begin
      Result[Size] := AnsiChar(Ord(Character[1]));
      Inc(Size);
      Continue;
    end;
    Bytes := EncodedCharacter(Character);
    if (Bytes = nil) or (Decode(Bytes, Length(Bytes)) <> Character) then
      raise EBrenik.Create(Name + ': code page ' + NumberText(FNumber) +
        ' of the practice lacks the character ''' + Character + ''' (' + NumberOf(Character) +
        '): replace it');
    Move(Bytes[0], Result[Size], Length(Bytes));
    Inc(Size, Length(Bytes));
  end;
  SetLength(Result, Size + 1);
  Result[Size] := #0;
end;

function TBrenikCodePage.Decode(const Bytes: TBrenikBytes; Size: Integer): TBrenikText;
var
  I, Used: Integer;
  Character: TBrenikText;
begin
  Result := '';
  I := 0;
  while I < Size do
  begin
    Used := 1;
    if Ord(Bytes[I]) < $80 then
      Character := WideChar(Ord(Bytes[I]))
    else
    begin
      Character := DecodedCharacter(Copy(Bytes, I, 1));
      if (Character = '') and (I + 1 < Size) then
      begin
        Character := DecodedCharacter(Copy(Bytes, I, 2));
        Used := 2;
      end;
      if not IsDefined(Character) then
      begin
        Character := '\x' + TBrenikText(LowerCase(IntToHex(Ord(Bytes[I]), 2)));
        Used := 1;
      end;
    end;
    Result := Result + Character;
    Inc(I, Used);
  end;
end;

// The page that the practice's contacts are marked with; 0 if their table is unreadable.
function PageOfPractice(const DataPath: TBrenikText): Integer;
var
  Folder: TBrenikText;
  Mark: TBrenikBytes;
  Size: Int64;
  I: Integer;
begin
  Result := 0;
  Folder := Trim(DataPath);
  if Folder = '' then
    Folder := '.';
  Mark := ReadShared(NamesTable(Folder), PlaceOfMark, 1, Size);
  if (Size < 0) or (Length(Mark) = 0) then
    Exit;
  if Mark[0] = #0 then
    Result := Unmarked;
  for I := Low(Marks) to High(Marks) do
    if Marks[I].Mark = Ord(Mark[0]) then
      Result := Marks[I].Page;
  if Result = 0 then
    raise EBrenik.Create('the code page mark 0x' +
      TBrenikText(LowerCase(IntToHex(Ord(Mark[0]), 2))) +
      ' of LAW1.DBF stands for no known page: pass CodePage');
end;

{ EBrenik, EBrenikError }

// Without Unicode strings a message on Linux is UTF-8, whatever the language of the process is.
constructor EBrenik.Create(const Text: TBrenikText);
begin
  {$IFDEF MSWINDOWS}
  inherited Create(string(Text));
  {$ELSE}
  inherited Create(PAnsiChar(SystemText(Text)));
  {$ENDIF}
end;

constructor EBrenikError.Create(const FunctionName: TBrenikText; Code: TBrenikCode;
  const Identifier, Reason: TBrenikText);
var
  Text: TBrenikText;
begin
  Text := FunctionName + ': ' + NumberText(Code) + ': ' + BrenikTextOf(Code);
  if Reason <> '' then
    Text := Text + ' (' + Reason + ')';
  inherited Create(Text);
  FFunctionName := FunctionName;
  FCode := Code;
  FIdentifier := Identifier;
  FReason := Reason;
end;

function EBrenikError.GetText: TBrenikText;
begin
  Result := BrenikTextOf(FCode);
end;

{ TBrenikFaultFile }

constructor TBrenikFaultFile.Create;
begin
  inherited Create;
  FPath := FaultFileInUse;
  BeginCall;
end;

procedure TBrenikFaultFile.BeginCall;
begin
  ReadShared(FPath, 0, 0, FSizeBeforeCall);
end;

// What was written during the call. The library renames a file that has grown too long; the new
// file is shorter and is read from its beginning.
function TBrenikFaultFile.Added: TBrenikText;
const
  MostBytes = 65536;  // far more than the reason of one call needs, whatever the file may be
var
  Start, Size, Ignored: Int64;
  Bytes: TBrenikBytes;
begin
  Result := '';
  ReadShared(FPath, 0, 0, Size);
  Start := FSizeBeforeCall;
  if (Start < 0) or (Start > Size) then
    Start := 0;
  if Size - Start > MostBytes then
    Start := Size - MostBytes;
  if Size > Start then
    Bytes := ReadShared(FPath, Start, Integer(Size - Start), Ignored);
  Result := TextOfFaults(Bytes);
end;

function HasReason(Code: TBrenikCode): Boolean;
begin
  case Code of
    brDataFilesMissing..brTableNotOpened, brAdditionNotStamped..brDeletionNotStamped, brFault:
      Result := True;
  else
    Result := False;
  end;
end;

function TBrenikFaultFile.ReasonOf(Code: TBrenikCode): TBrenikText;
const
  Tab = WideChar(9);
  LineFeed = WideChar(10);
var
  Lines: TBrenikText;
  I, Tabs: Integer;
begin
  Result := '';
  if not HasReason(Code) then
    Exit;
  Lines := TrimRight(Added);
  Tabs := 0;
  for I := 1 to Length(Lines) do
  begin
    if Lines[I] = LineFeed then
    begin
      Tabs := 0;
      Result := '';
    end
    else if Tabs = 2 then
      Result := Result + Lines[I]
    else if Lines[I] = Tab then
      Inc(Tabs);
  end;
end;

{ TBrenikSession }

constructor TBrenikSession.Create(const DataPath: TBrenikText; Trace: Boolean;
  const LibraryPath: TBrenikText; CodePage: Integer);
var
  Path: TBrenikBytes;
  Page: Integer;
begin
  inherited Create;
  if IsAnyOpen then
    raise EBrenik.Create('a session is open in this process: shut it down before you begin ' +
      'another');
  Path := EncodedPath(DataPath);
  FFunctions := BrenikLoad(LibraryPath);
  Page := CodePage;
  if Page = 0 then
    Page := PageOfPractice(DataPath);
  if Page <> 0 then
    FPage := TBrenikCodePage.Create(Page);
  FFaults := TBrenikFaultFile.Create;
  IsAnyOpen := True;
  FIsOpen := True;
  Check('BrenikInitialize', FFunctions.Initialize(PAnsiChar(Path), Ord(Trace), 0));
  if FPage = nil then
    raise EBrenik.Create(DataPath + ': the code page cannot be read from LAW1.DBF: spell the ' +
      'folder as the system does, or pass CodePage');
end;

// Also runs if Create raises an exception.
destructor TBrenikSession.Destroy;
begin
  if FIsOpen then
    Close;
  FFaults.Free;
  FPage.Free;
  inherited Destroy;
end;

function TBrenikSession.Close: TBrenikCode;
begin
  FIsOpen := False;
  IsAnyOpen := False;
  Result := FFunctions.ShutDown();
end;

procedure TBrenikSession.ShutDown;
begin
  BeginCall('BrenikShutDown');
  Check('BrenikShutDown', Close);
end;

procedure TBrenikSession.AddedRecord(Table, Rec: Integer);
begin
  BeginCall('BrenikAddedRecord');
  Check('BrenikAddedRecord', FFunctions.AddedRecord(Table, Rec));
end;

procedure TBrenikSession.DeletedRecord(Table, Rec: Integer);
begin
  BeginCall('BrenikDeletedRecord');
  Check('BrenikDeletedRecord', FFunctions.DeletedRecord(Table, Rec));
end;

procedure TBrenikSession.AddStart(Table: Integer);
var
  Number: Integer;
begin
  BeginCall('BrenikAddStart');
  Number := 0;
  Check('BrenikAddStart', FFunctions.AddStart(Table, Number));
end;

function TBrenikSession.AddEnd(Table: Integer; const Contact: TBrenikText): TBrenikText;
var
  Buffer: TBrenikBytes;
  Code: TBrenikCode;
  Kept: TBrenikText;
begin
  BeginCall('BrenikAddEnd');
  Buffer := FPage.Encode(Contact, 'Contact');
  if (Length(Buffer) <> 1) and (Length(Buffer) <> AddEndBuffer) then
    raise EBrenik.Create('Contact: "' + Contact + '" is not an identifier: pass ' +
      NumberText(IdentifierLength) + ' characters or none');
  SetLength(Buffer, AddEndBuffer);
  Code := FFunctions.AddEnd(Table, PAnsiChar(Buffer));
  Result := DecodedIdentifier(Buffer);
  // After the other codes the buffer has the text on entry or blanks.
  Kept := '';
  case Code of
    brTableNotOpened, brIdentifierNotFound, brAppendFailed, brDuplicateCode:
      Kept := Result;
  end;
  Check('BrenikAddEnd', Code, Kept);
end;

procedure TBrenikSession.EditStart(Table: Integer; const Identifier: TBrenikText);
var
  Number: Integer;
  Bytes: TBrenikBytes;
begin
  BeginCall('BrenikEditStart');
  Bytes := FPage.Encode(Identifier, 'Identifier');
  Number := 0;
  Check('BrenikEditStart', FFunctions.EditStart(Table, PAnsiChar(Bytes), Number));
end;

procedure TBrenikSession.EditBegin(Table, Rec: Integer);
var
  Number: Integer;
begin
  BeginCall('BrenikEditBegin');
  Number := 0;
  Check('BrenikEditBegin', FFunctions.EditBegin(Table, Rec, Number));
end;

procedure TBrenikSession.SetField(Table, Rec: Integer; const Field, Text: TBrenikText);
var
  Name, Bytes: TBrenikBytes;
begin
  BeginCall('BrenikSetField');
  Name := FPage.Encode(Field, 'Field');
  Bytes := FPage.Encode(Text, 'Text');
  Check('BrenikSetField', FFunctions.SetField(Table, Rec, PAnsiChar(Name), PAnsiChar(Bytes)));
end;

procedure TBrenikSession.EditEnd(Table: Integer; Rec: Integer);
begin
  BeginCall('BrenikEditEnd');
  Check('BrenikEditEnd', FFunctions.EditEnd(Table, Rec));
end;

function TBrenikSession.GetMyFirm: TBrenikTexts;
var
  Buffer: TBrenikBytes;
  Firm: TBrenikText;
  Size, Bar: Integer;
begin
  BeginCall('BrenikGetMyFirm');
  Buffer := nil;
  SetLength(Buffer, FirmBuffer);
  FillChar(Buffer[0], FirmLength, ' ');
  Check('BrenikGetMyFirm', FFunctions.GetMyFirm(PAnsiChar(Buffer)));
  Size := 0;
  while Buffer[Size] <> #0 do
    Inc(Size);
  Firm := FPage.Decode(Buffer, Size);
  Result := nil;
  Bar := Pos(TBrenikText('|'), Firm);
  while Bar > 0 do  // what follows the last bar is a byte of the blanks
  begin
    SetLength(Result, Length(Result) + 1);
    Result[High(Result)] := Copy(Firm, 1, Bar - 1);
    Delete(Firm, 1, Bar);
    Bar := Pos(TBrenikText('|'), Firm);
  end;
end;

function TBrenikSession.GetU_ID(Table: Integer; const Key: TBrenikText): TBrenikText;
var
  Buffer, Bytes: TBrenikBytes;
begin
  BeginCall('BrenikGetU_ID');
  Bytes := FPage.Encode(Key, 'Key');
  Buffer := nil;
  SetLength(Buffer, GetU_IDBuffer);
  FillChar(Buffer[0], IdentifierLength, ' ');
  Check('BrenikGetU_ID', FFunctions.GetU_ID(Table, PAnsiChar(Bytes), PAnsiChar(Buffer)));
  Result := DecodedIdentifier(Buffer);
end;

function TBrenikSession.DecodedIdentifier(const Buffer: TBrenikBytes): TBrenikText;
begin
  Result := TrimRight(FPage.Decode(Buffer, IdentifierLength));
end;

procedure TBrenikSession.BeginCall(const FunctionName: TBrenikText);
begin
  FFaults.BeginCall;
  if not FIsOpen then
    raise EBrenikError.Create(FunctionName, brAlreadyShutDown, '', '');
end;

procedure TBrenikSession.Check(const FunctionName: TBrenikText; Code: TBrenikCode;
  const Identifier: TBrenikText);
begin
  if Code <> brSuccess then
    raise EBrenikError.Create(FunctionName, Code, Identifier, FFaults.ReasonOf(Code));
end;

end.
