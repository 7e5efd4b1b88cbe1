; The example's setup program with one thing different; /DVariant=NAME says which.

#include "..\..\..\examples\setup\application.iss"

[Code]
// Each of them waits, before it installs anything, where a test tells it to: says so in a file, and
// goes on when the file that the variable names is there.
<event('CurStepChanged')>
procedure AwaitGate(CurStep: TSetupStep);
var
  Gate: String;
begin
  Gate := GetEnv('CORVELLAN_SETUP_GATE');
  if (CurStep = ssInstall) and (Gate <> '') then begin
    SaveStringToFile(Gate + '.reached', '', False);
    while not FileExists(Gate) do
      Sleep(20);
  end;
end;

#define ReplacedInventory SourcePath + "inventories\" + Variant + ".tsv"

#if FileExists(ReplacedInventory)

[Files]
Source: "{#ReplacedInventory}"; DestDir: "{app}"; DestName: "program-files.tsv"; Flags: ignoreversion

#elif Variant == "missing-inventory"

[Code]
<event('CurStepChanged')>
procedure DeleteInventory(CurStep: TSetupStep);
begin
  if CurStep = ssPostInstall then
    DeleteFile(ExpandConstant('{app}\program-files.tsv'));
end;

#elif Variant == "exit-code"

[Files]
; The last file to be installed ends the setup program: the new version's files are there, its
; registration is not.
Source: "{#Payload}\engine.dll"; DestDir: "{app}"; DestName: "added.dll"; Flags: ignoreversion; \
  AfterInstall: EndAbruptly

[Code]
procedure ExitProcess(ExitCode: Cardinal);
external 'ExitProcess@kernel32.dll stdcall';

procedure EndAbruptly;
begin
  ExitProcess(7);
end;

#elif Variant == "refusing"

[Code]
function InitializeSetup: Boolean;
begin
  Result := False;
end;

#elif Variant == "adding"

[Files]
; Neither this file nor the directory below is one of the program's own.
Source: "notes.txt"; DestDir: "{app}"; Flags: ignoreversion

[Dirs]
Name: "{app}\empty directory"

#else
  #error Unknown variant
#endif
