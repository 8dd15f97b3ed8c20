# The platform interfaces the reset code calls, one pkg-config module each. The host kit installs itself as
# exactly these modules; a build with TAK_PLATFORM=system finds them (a device's own platform or an
# installed kit). TAK_PC_<ID> renames a module where a system calls it otherwise. docs/platform-modules.md
# holds the same table for people.
#
#   id  module  headers  description  [module it requires]
set(_tak_platform_table
  "SERVICE_APP|orvix-service-app|service_app.h|service-application framework|orvix-app-control"
  "APP_CONTROL|orvix-app-control|app_control.h|app control|"
  "VCONF|orvix-vconf|vconf.h|settings store|"
  "PKGMGR_INFO|orvix-pkgmgr-info|pkgmgr-info.h|package information|"
  "SYSTEM_INFO|orvix-system-info|system_info.h|system information|"
  "PLATFORM_PATH|orvix-platform-path|platform_path.h|platform paths|"
  "DLOG|orvix-dlog|dlog.h ttrace.h|platform log and tracing|"
  "SMART_DEADLOCK|orvix-smart-deadlock|smart_deadlock.h|deadlock watchdog|"
  "KPI_LOG|orvix-kpi-log|KPILogFramework.h|KPI log|"
  "PRIVILEGED_SERVICE|orvix-privileged-service|privileged_service.h|privileged service|"
  "APP_LAUNCHER|orvix-app-launcher|app_launcher.h|app launcher|"
  "SMACK|orvix-smack|smack.h|access labels|")

set(TAK_PLATFORM_INTERFACES "")
foreach(_row ${_tak_platform_table})
  string(REPLACE "|" ";" _fields "${_row}")
  list(GET _fields 0 _id)
  list(GET _fields 1 _module)
  list(GET _fields 2 _headers)
  list(GET _fields 3 _description)
  list(GET _fields 4 _requires)
  list(APPEND TAK_PLATFORM_INTERFACES ${_id})
  set(TAK_PLATFORM_${_id}_MODULE ${_module})
  set(TAK_PC_${_id} ${_module} CACHE STRING "pkg-config module of the ${_description}")
  separate_arguments(TAK_PLATFORM_${_id}_HEADERS UNIX_COMMAND "${_headers}")
  set(TAK_PLATFORM_${_id}_DESCRIPTION "${_description}")
  set(TAK_PLATFORM_${_id}_REQUIRES "${_requires}")
endforeach()
