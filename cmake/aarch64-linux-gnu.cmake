# Cross build for 64-bit ARM with Debian's cross compiler and the arm64 development packages
# (dpkg --add-architecture arm64; scripts/install-deps cross arm64 installs them).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(TAK_TRIPLET aarch64-linux-gnu)

set(CMAKE_C_COMPILER ${TAK_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${TAK_TRIPLET}-g++)

# Without the cross packages, one line that names them and the command that installs them, rather than a
# compiler check failing further down.
set(_tak_cross_missing "")
find_program(_tak_cross_cxx ${CMAKE_CXX_COMPILER})
if(NOT _tak_cross_cxx)
  list(APPEND _tak_cross_missing g++-${TAK_TRIPLET})
endif()
foreach(_pair "glib-2.0.pc:libglib2.0-dev" "jsoncpp.pc:libjsoncpp-dev" "sqlite3.pc:libsqlite3-dev"
              "libsystemd.pc:libsystemd-dev" "gtest.pc:libgtest-dev" "gmock.pc:libgmock-dev"
              "cairo.pc:libcairo2-dev")
  string(REPLACE ":" ";" _pair "${_pair}")
  list(GET _pair 0 _pc)
  list(GET _pair 1 _package)
  if(NOT EXISTS /usr/lib/${TAK_TRIPLET}/pkgconfig/${_pc})
    list(APPEND _tak_cross_missing ${_package}:arm64)
  endif()
endforeach()
if(_tak_cross_missing)
  list(JOIN _tak_cross_missing " " _tak_cross_missing)
  message(FATAL_ERROR "cross build for ${TAK_TRIPLET}: missing ${_tak_cross_missing}; install them with 'scripts/install-deps cross arm64'")
endif()

# Debian installs the foreign architecture's libraries and headers under the multiarch directories of /usr,
# so the sysroot is / and only the multiarch paths tell the two architectures apart.
set(CMAKE_LIBRARY_ARCHITECTURE ${TAK_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config must read the arm64 .pc files, never the machine's own.
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/${TAK_TRIPLET}/pkgconfig:/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

# Test programs and the programs they start run through the emulator; gtest_discover_tests and
# add_test use this too. No -L /usr/${TAK_TRIPLET}: that would load the cross toolchain's dynamic loader
# beside the arm64 C library of the multiarch packages, a different build of it, and such a pair corrupts
# the loader's thread-stack lists (a fork child or a new thread then loops for ever); the multiarch
# /lib/ld-linux-aarch64.so.1 is the C library's own.
# G_SLICE=always-malloc is for the emulator itself: qemu-user 7.2 keeps translated code in its GLib's slice
# allocator, whose lock a fork of a threaded program (tak-reset running /bin/rm, say) can copy held by
# another thread; the child's first new translation then waits on it for ever. With malloc, which the C
# library makes safe across fork, it cannot.
set(CMAKE_CROSSCOMPILING_EMULATOR env G_SLICE=always-malloc qemu-aarch64)
