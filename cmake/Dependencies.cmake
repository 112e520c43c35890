# Every external library comes from Debian's packages (scripts/install-deps.sh installs them).
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(Qt5 5.15 REQUIRED COMPONENTS Core Gui Network)
pkg_check_modules(HIREDIS REQUIRED IMPORTED_TARGET hiredis)
pkg_check_modules(LIBEVENT REQUIRED IMPORTED_TARGET libevent libevent_pthreads)
pkg_check_modules(DBUS REQUIRED IMPORTED_TARGET dbus-1)
pkg_check_modules(UDEV REQUIRED IMPORTED_TARGET libudev)
pkg_check_modules(CJSON REQUIRED IMPORTED_TARGET libcjson)
pkg_check_modules(RAPIDJSON REQUIRED IMPORTED_TARGET RapidJSON)
pkg_check_modules(UMOCKDEV REQUIRED IMPORTED_TARGET umockdev-1.0)
# The workbench (vorn-host serve) and its tests: Debian builds the library with TLS and compression,
# so its flags must come with it.
pkg_check_modules(HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)
