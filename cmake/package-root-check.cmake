# Read by cpack before it packs: a package is for other machines and other users.
if(NOT CPACK_ZEL_APPS_ROOT MATCHES "^/")
  message(WARNING "ZEL_APPS_ROOT is ${CPACK_ZEL_APPS_ROOT}: the database of the packaged library follows each program's "
                  "working directory")
elseif(CPACK_ZEL_APPS_ROOT MATCHES "^(/home|/root)/" OR CPACK_ZEL_APPS_ROOT MATCHES "^$ENV{HOME}/")
  message(WARNING "ZEL_APPS_ROOT is ${CPACK_ZEL_APPS_ROOT}: the packaged library keeps its database below a home folder")
endif()
