# TAK_PLATFORM=system: every platform interface from its pkg-config module (cmake/PlatformModules.cmake).
# A missing module stops the configuration with its name and the interface it stands for.
add_library(tak_platform INTERFACE)
foreach(_id ${TAK_PLATFORM_INTERFACES})
  pkg_check_modules(TAK_PLATFORM_PC_${_id} QUIET IMPORTED_TARGET ${TAK_PC_${_id}})
  if(NOT TAK_PLATFORM_PC_${_id}_FOUND)
    message(FATAL_ERROR "TAK_PLATFORM=system: no pkg-config module '${TAK_PC_${_id}}' for the "
      "${TAK_PLATFORM_${_id}_DESCRIPTION} (${TAK_PLATFORM_${_id}_HEADERS}); point PKG_CONFIG_PATH at the "
      "platform's lib/pkgconfig, or name the module of this system with -DTAK_PC_${_id}=...")
  endif()
  target_link_libraries(tak_platform INTERFACE PkgConfig::TAK_PLATFORM_PC_${_id})
endforeach()

# The kit's programs are not built: the end-to-end tests drive an installed kit, the one beside the modules.
pkg_get_variable(TAK_PLATFORM_BINDIR ${TAK_PC_PLATFORM_PATH} bindir)
find_program(TAK_SYSTEM_ORVIX_HOST orvix-host HINTS ${TAK_PLATFORM_BINDIR} NO_DEFAULT_PATH)
# The benchmarks and the fuzz targets measure and shake the host build; they are not built against a system.
set(TAK_BUILD_BENCH OFF)
set(TAK_BUILD_FUZZ OFF)
if(TAK_BUILD_TESTS)
  # The tests' own harness (root, call log, processes) is the kit's code, compiled for the tests alone.
  add_subdirectory(platform)
endif()
