// Adds a contact with a matter, looks the contact up, and prints what the change journal says.
//
//     first_contact PRACTICE [LIBRARY [BRENIK]]
//
// LIBRARY is the path of the library and BRENIK that of the companion tool. Without them, the
// program takes those beside itself or, failing that, those that the system finds.

program first_contact;

{$IFDEF FPC}
  {$MODE DELPHI}
{$ENDIF}
{$IFDEF MSWINDOWS}
  {$APPTYPE CONSOLE}
{$ENDIF}

uses
  SysUtils,
  {$IFDEF MSWINDOWS}
  Windows,
  {$ENDIF}
  BrenikDB;

const
  // Written as numbers, so that the page in which a compiler reads this file does not matter.
  SmallUUmlaut = WideChar($FC);
  SmallEDiaeresis = WideChar($EB);

function Argument(Index: Integer): TBrenikText;
begin
  {$IFDEF MSWINDOWS}
  Result := TBrenikText(ParamStr(Index));
  {$ELSE}
  Result := UTF8Decode(ParamStr(Index));
  {$ENDIF}
end;

procedure AddContactWithMatter(Practice: TBrenikSession);
var
  Contact: TBrenikText;
begin
  Practice.AddStart(btNames);
  Practice.SetField(btNames, 0, 'ID', 'MULLER');
  Practice.SetField(btNames, 0, 'LAST', 'M' + SmallUUmlaut + 'ller');
  Practice.SetField(btNames, 0, 'FIRST', 'Zo' + SmallEDiaeresis);
  Contact := Practice.AddEnd(btNames);
  WriteLn('contact ', Contact);

  Practice.AddStart(btMatters);
  Practice.SetField(btMatters, 0, 'CASENUM', '2026-MULLER-1');
  Practice.SetField(btMatters, 0, 'MATTER', 'M' + SmallUUmlaut + 'ller v. Okafor');
  WriteLn('matter ', Practice.AddEnd(btMatters, Contact));

  WriteLn('found ', Practice.GetU_ID(btNames, 'muller'));
end;

{$IFDEF MSWINDOWS}
function Run(const Tool, Folder: TBrenikText): Integer;
var
  Command: TBrenikText;
  Start: STARTUPINFOW;
  Process: PROCESS_INFORMATION;
  Code: DWORD;
begin
  Command := '"' + Tool + '" journal "' + Folder + '" --limit 3';
  FillChar(Start, SizeOf(Start), 0);
  FillChar(Process, SizeOf(Process), 0);
  Code := 1;
  Start.cb := SizeOf(Start);
  if not CreateProcessW(nil, PWideChar(Command), nil, nil, True, 0, nil, nil, Start, Process) then
    raise EBrenik.Create('cannot run ' + Tool);
  WaitForSingleObject(Process.hProcess, INFINITE);
  GetExitCodeProcess(Process.hProcess, Code);
  Result := Integer(Code);
end;
{$ELSE}
function Run(const Tool, Folder: TBrenikText): Integer;
var
  Path: RawByteString;
begin
  Path := UTF8Encode(Tool);
  if Pos('/', Path) = 0 then
    Path := FileSearch(Path, GetEnvironmentVariable('PATH'));
  Result := ExecuteProcess(Path, ['journal', UTF8Encode(Folder), '--limit', '3']);
end;
{$ENDIF}

procedure Main;
var
  Practice: TBrenikSession;
  Tool: TBrenikText;
begin
  Practice := TBrenikSession.Create(Argument(1), False, Argument(2));
  try
    AddContactWithMatter(Practice);
    Practice.ShutDown;
  finally
    Practice.Free;
  end;
  Tool := Argument(3);
  if Tool = '' then
    Tool := 'brenik';
  Flush(Output);  // the tool writes to the same place
  ExitCode := Run(Tool, Argument(1));
end;

begin
  if (ParamCount < 1) or (ParamCount > 3) then
  begin
    WriteLn(ErrOutput, 'usage: first_contact PRACTICE [LIBRARY [BRENIK]]');
    Halt(1);
  end;
  try
    Main;
  except
    on Failure: Exception do
    begin
      WriteLn(ErrOutput, Failure.Message);
      ExitCode := 1;
    end;
  end;
end.
