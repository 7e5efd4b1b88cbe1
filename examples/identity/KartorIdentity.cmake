# Another application's identity, as an example beside the project's own and for the tests, which update
# both on one machine. cmake/ApplicationIdentity.cmake tells what each entry is.

set(IDENTITY_EXECUTABLE "Fjäll Kartor.exe")
set(IDENTITY_APPLICATION_ID "{B1F4A9D2-6C3E-4E57-9A80-2D7C5F913E64}")
set(IDENTITY_BASE_NAME "FjällKartorUpdate")
set(IDENTITY_ERROR_TITLE "Обновление Fjäll Kartor")
set(IDENTITY_ERROR_HEADING "Обновление не завершено. Запись о сбое:")
set(IDENTITY_DESCRIPTION "Fjäll Kartor Updater")
set(IDENTITY_COMPANY "Fjäll AB")
set(IDENTITY_UPDATER "kartor updater.exe")
set(IDENTITY_RELEASE_TOOL "kartor-updatectl.exe")
set(IDENTITY_CLIENT_LIBRARY "kartor-update.dll")
set(IDENTITY_LOCAL_DIRECTORY "Fjäll Kartor")
