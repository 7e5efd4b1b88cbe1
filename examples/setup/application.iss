; The setup program of an application that the updater keeps up to date. To use it, copy it, replace
; the application's names below and compile it with Inno Setup 6:
;
;   ISCC /DAppVersion=2.0.0.0 /DPayload=DIRECTORY /DOutputDir=DIRECTORY /DOutputName=corvellan-2
;        application.iss
;
; AppVersion  what Windows shows, and what the executable's version resource says: four numbers
; Payload     the program as it is to be installed, with its inventory, program-files.tsv
; OutputDir, OutputName
;             where to put the setup program and what to call it (without ".exe"). Not "setup":
;             Windows takes a program of that name for an old one that needs compatibility settings.
;
; The updater runs the setup program without a window and checks what it has installed:
;   - every file that program-files.tsv lists must be there, byte for byte;
;   - the executable must say exactly the version that the update was offered as;
;   - the exit code must be 0.
; Otherwise it puts the program back as it was.

; The application's names, as cmake/ApplicationIdentity.cmake has them for the updater. They may be
; given on the command line as well.
#ifndef Executable
  #define Executable "corvellan.exe"
#endif
#ifndef ReleaseTool
  #define ReleaseTool "corvellan-updatectl.exe"
#endif
#ifndef Identifier
  #define Identifier "5D1E7B20-3C9A-4F68-B2D4-9E0A6C7F1B35"
#endif
#ifndef ApplicationName
  #define ApplicationName "Corvellan"
#endif
#ifndef Company
  #define Company "Corvellan"
#endif

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
; The updater looks the registered version up under this name, with "_is1" added. A brace that is part
; of it is doubled here, which Inno Setup asks for.
AppId={#StringChange(Identifier, "{", "{{")}
AppName={#ApplicationName}
AppVersion={#AppVersion}
AppPublisher={#Company}
VersionInfoVersion={#AppVersion}
DefaultDirName={autopf}\{#ApplicationName}
DisableProgramGroupPage=yes
UninstallDisplayIcon={app}\{#Executable}
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
; is listed here by its name. A first installation deletes nothing: the user may have picked a
; directory that holds a "data" of somebody else's.
Type: filesandordirs; Name: "{app}\data"; Check: IsProgramThere

[Files]
; Every file is replaced, whatever version its resources claim: the inventory names exact
; contents. Nothing else in the program's directory is touched, neither now nor by the uninstaller:
; the user's files there (account.db, sessions.log) stay. A program file that somebody has made
; read-only is replaced like the others; without the flag the setup program would give up on it.
; Never "restartreplace": what it replaces, it replaces at the next start of the machine, when the
; updater has long put the previous program back.
Source: "{#Payload}\*"; DestDir: "{app}"; Flags: ignoreversion overwritereadonly recursesubdirs
; The tool that "Run" starts, in a directory that only administrators can write to. Where the program
; is, somebody else might exchange it, wherever the user has put the program.
Source: "{#Payload}\{#ReleaseTool}"; DestDir: "{tmp}"; Flags: ignoreversion deleteafterinstall

[Icons]
Name: "{autoprograms}\{#ApplicationName}"; Filename: "{app}\{#Executable}"

[Run]
; Each update leaves the directory that it ran from, with the backup of the program before it. The
; next one, or an installation by hand, removes it. The tool knows which directories are the
; updater's, and which are in use: this setup program may lie in one. The installation is as good
; without that, so nothing depends on the tool's exit code; what it says is in the log. It is not in its
; own directory while it runs: whoever shows a console, a little longer than the program in it runs,
; would keep that directory from being removed at the end.
Filename: "{tmp}\{#ReleaseTool}"; Parameters: "clean --setup-dir ""{src}\."""; \
  WorkingDir: "{sys}"; Flags: runhidden logoutput
; Only for a user who installs by hand. In an update the updater starts the application, without the
; administrator's rights that the setup program has.
Filename: "{app}\{#Executable}"; Flags: nowait postinstall skipifsilent

[Code]
function IsProgramThere: Boolean;
begin
  Result := FileExists(ExpandConstant('{app}\{#Executable}')) or
    FileExists(ExpandConstant('{app}\program-files.tsv'));
end;
