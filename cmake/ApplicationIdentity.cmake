# What makes an updater one application's. A team with another application copies this file, keeps the
# copy where it likes, changes every entry and builds with -DAPPLICATION_IDENTITY=FILE; docs/building.md
# tells how. The file is UTF-8. cmake/CheckIdentity.cmake holds the rules and checks each entry.

# The application's executable, directly in its installation directory: a file name that ends with ".exe".
set(IDENTITY_EXECUTABLE "corvellan.exe")

# The setup program's AppId as the registry shows it before "_is1": where the script says "{{", one "{"
# stands here. At most 127 characters, no backslash and no quotation mark.
set(IDENTITY_APPLICATION_ID "5D1E7B20-3C9A-4F68-B2D4-9E0A6C7F1B35")

# How the updater's mutex, its events and its staging directories begin: what a file name may hold, at
# most 61 characters. No two applications of the world may have the same.
set(IDENTITY_BASE_NAME "CorvellanUpdate")

# The title of the box that tells of an update that failed, in the language of the users: at most 200
# characters.
set(IDENTITY_ERROR_TITLE "Corvellan更新")

# The first line in that box, at most 500 characters; the record of the failure follows.
set(IDENTITY_ERROR_HEADING "升级未完成，失败记录：")

# What the prompt for administrator rights calls the updater (the file description), and the product that
# updater and release tool belong to: at most 200 characters.
set(IDENTITY_DESCRIPTION "Corvellan Updater")

# Whose programs the version resources say they are: at most 200 characters.
set(IDENTITY_COMPANY "Corvellan")

# The updater's file: a file name that ends with ".exe".
set(IDENTITY_UPDATER "corvellan-updater.exe")

# The release tool's file: a file name that ends with ".exe".
set(IDENTITY_RELEASE_TOOL "corvellan-updatectl.exe")

# The library that is the application's half of an update: a file name that ends with ".dll".
set(IDENTITY_CLIENT_LIBRARY "corvellan-update.dll")

# The application's directory in the user's local data (%LOCALAPPDATA%), with its updates below: one
# name of a directory, at most 100 characters.
set(IDENTITY_LOCAL_DIRECTORY "Corvellan")
