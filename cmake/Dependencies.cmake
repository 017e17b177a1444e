# The libraries that are called, as imported targets. Each is linked only where it is used.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(Boost 1.74 REQUIRED COMPONENTS thread chrono)
pkg_check_modules(CTEMPLATE REQUIRED IMPORTED_TARGET libctemplate)

if(VELMAR_PLATFORM STREQUAL "host")
  pkg_check_modules(ICU REQUIRED IMPORTED_TARGET icu-uc icu-i18n)
  pkg_check_modules(TOMLPLUSPLUS REQUIRED IMPORTED_TARGET tomlplusplus)
  pkg_check_modules(CURL REQUIRED IMPORTED_TARGET libcurl>=7.85)
  pkg_check_modules(LDAP REQUIRED IMPORTED_TARGET ldap lber)
  find_package(OpenSSL 3.0 REQUIRED COMPONENTS Crypto)
  # SOCI ships neither a CMake package nor a pkg-config file.
  find_library(SOCI_CORE_LIBRARY soci_core REQUIRED)
  find_path(SOCI_INCLUDE_DIR soci/soci.h REQUIRED)
  add_library(Soci::core UNKNOWN IMPORTED)
  set_target_properties(Soci::core PROPERTIES IMPORTED_LOCATION ${SOCI_CORE_LIBRARY}
                        INTERFACE_INCLUDE_DIRECTORIES ${SOCI_INCLUDE_DIR})
endif()
