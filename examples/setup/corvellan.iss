; The setup program of an application that Corvellan Updater keeps up to date. To use it, copy it,
; replace the application's names and compile it with Inno Setup 6:
;
;   ISCC /DAppVersion=2.0.0.0 /DPayload=DIRECTORY /DOutputDir=DIRECTORY /DOutputName=corvellan-2
;        corvellan.iss
;
; AppVersion  what Windows shows, and what corvellan.exe's version resource says: four numbers
; Payload     the program as it is to be installed, with its inventory, program-files.tsv
; OutputDir, OutputName
;             where to put the setup program and what to call it (without ".exe"). Not "setup":
;             Windows takes a program of that name for an old one that needs compatibility settings.
;
; The updater runs the setup program without a window and checks what it has installed:
;   - every file that program-files.tsv lists must be there, byte for byte;
;   - corvellan.exe must say exactly the version that the update was offered as;
;   - the exit code must be 0.
; Otherwise it puts the program back as it was.

#ifndef AppVersion
  #error AppVersion is missing
#endif
#ifndef Payload
  #error Payload is missing
#endif
#ifndef OutputDir
  #error OutputDir is missing
#endif
#ifndef OutputName
  #error OutputName is missing
#endif

[Setup]
; The updater looks the registered version up under this name, with "_is1" added. It stands there
; without braces, so it must be without braces here.
AppId=5D1E7B20-3C9A-4F68-B2D4-9E0A6C7F1B35
AppName=Corvellan
AppVersion={#AppVersion}
AppPublisher=Corvellan
VersionInfoVersion={#AppVersion}
DefaultDirName={autopf}\Corvellan
DisableProgramGroupPage=yes
UninstallDisplayIcon={app}\corvellan.exe
; Machine-wide and 64-bit: the program under Program Files, where only administrators can change it,
; and the registered version in the 64-bit view of the registry, where the updater reads it.
PrivilegesRequired=admin
ArchitecturesAllowed=x64compatible
ArchitecturesInstallIn64BitMode=x64compatible
; The updater has seen to it that the application is closed, and starts it again.
CloseApplications=no
RestartApplications=no
OutputDir={#OutputDir}
OutputBaseFilename={#OutputName}
Compression=lzma2/fast
SolidCompression=yes
WizardStyle=modern

[InstallDelete]
; All of "data" is the program's. What an earlier version had there and this one has not must go. The
; updater's backup covers it. A library in the program's own directory that a version no longer has
; is listed here by its name.
Type: filesandordirs; Name: "{app}\data"

[Files]
; Every file is replaced, whatever version its resources claim: the inventory names exact
; contents. Nothing else in the program's directory is touched, neither now nor by the uninstaller:
; the user's files there (account.db, sessions.log) stay. A program file that somebody has made
; read-only is replaced like the others; without the flag the setup program would give up on it.
Source: "{#Payload}\*"; DestDir: "{app}"; Flags: ignoreversion overwritereadonly recursesubdirs

[Icons]
Name: "{autoprograms}\Corvellan"; Filename: "{app}\corvellan.exe"

[Run]
; Only for a user who installs by hand. In an update the updater starts the application, without the
; administrator's rights that the setup program has.
Filename: "{app}\corvellan.exe"; Flags: nowait postinstall skipifsilent

[Code]
const
  // The prefix and a GUID in braces.
  StagingPrefix = 'CorvellanUpdate-';
  StagingNameLength = 54;
  UpdaterMutex = 'Global\CorvellanUpdateInstall';

function IsStagingName(const Name: String): Boolean;
begin
  Result := (Length(Name) = StagingNameLength) and
    (Pos(StagingPrefix + '{', Name) = 1) and (Name[StagingNameLength] = '}');
end;

// Each update leaves the directory that it ran from, with the backup of the program before it, in the
// common application data folder. The next one removes it: what is there when a setup program begins
// belongs to earlier updates, except for the directory that holds this very setup program, and the
// backup that the updater may still need. What comes later belongs to a later update.
var
  OlderStagingDirectories: TStringList;

procedure ListOlderStagingDirectories;
var
  Folder, Current: String;
  RunByUpdater: Boolean;
  Entry: TFindRec;
begin
  OlderStagingDirectories := TStringList.Create;
  Folder := ExpandConstant('{commonappdata}\');
  Current := ExtractFileName(ExpandConstant('{src}'));
  RunByUpdater := IsStagingName(Current) and
    (CompareText(ExtractFilePath(ExpandConstant('{src}')), Folder) = 0);
  // Somebody installs by hand while the updater is at work: then one of them is in use.
  if not RunByUpdater and CheckForMutexes(UpdaterMutex) then
    Exit;
  if FindFirst(Folder + StagingPrefix + '*', Entry) then
  try
    repeat
      if IsStagingName(Entry.Name) and (CompareText(Entry.Name, Current) <> 0) and
         (Entry.Attributes and FILE_ATTRIBUTE_DIRECTORY <> 0) and
         (Entry.Attributes and FILE_ATTRIBUTE_REPARSE_POINT = 0) then
        OlderStagingDirectories.Add(Folder + Entry.Name);
    until not FindNext(Entry);
  finally
    FindClose(Entry);
  end;
end;

procedure RemoveOlderStagingDirectories;
var
  Index: Integer;
begin
  for Index := 0 to OlderStagingDirectories.Count - 1 do
    DelTree(OlderStagingDirectories[Index], True, True, True);
end;

procedure CurStepChanged(CurStep: TSetupStep);
begin
  if CurStep = ssInstall then
    ListOlderStagingDirectories
  else if CurStep = ssPostInstall then
    RemoveOlderStagingDirectories;
end;
