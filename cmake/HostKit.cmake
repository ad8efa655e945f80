# The host kit: the `sarvendo` command (with its demo server), installation
# of the library, header, command, page, CMake package and pkg-config file,
# and the tests of all of these. The command needs CLI11 and cpp-httplib
# (Debian libcli11-dev, libcpp-httplib-dev); without them it isn't built and
# its tests are reported as skipped.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
find_package(CLI11 CONFIG QUIET)
find_package(PkgConfig QUIET)
if(PkgConfig_FOUND)
  pkg_check_modules(HTTPLIB QUIET IMPORTED_TARGET cpp-httplib)
endif()

# An installed library names only its installed header folder.
set_property(TARGET sarvendo PROPERTY INTERFACE_INCLUDE_DIRECTORIES
  "$<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/src;${CMAKE_SOURCE_DIR}/include>"
  "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>")
set(SARVENDO_VERSION 1.0.0)

set(SARVENDO_COMMAND OFF)
if(CLI11_FOUND AND HTTPLIB_FOUND)
  set(SARVENDO_COMMAND ON)
  file(GLOB COMMAND_SOURCES CONFIGURE_DEPENDS tools/sarvendo/*.cpp)
  add_executable(sarvendo_command ${COMMAND_SOURCES})
  # The command is a host like any other: only the public header and the library.
  target_include_directories(sarvendo_command PRIVATE include)
  target_link_libraries(sarvendo_command PRIVATE sarvendo CLI11::CLI11 PkgConfig::HTTPLIB Threads::Threads)
  target_compile_definitions(sarvendo_command PRIVATE SARVENDO_WEB_DIR="${CMAKE_SOURCE_DIR}/web")
  set_target_properties(sarvendo_command PROPERTIES OUTPUT_NAME sarvendo
    INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS sarvendo_command RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(DIRECTORY web/ DESTINATION ${CMAKE_INSTALL_DATADIR}/sarvendo/web)
endif()

# The library, its header and the package files.
install(TARGETS sarvendo EXPORT sarvendoTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES include/sarvendo.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
set(SARVENDO_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/sarvendo)
install(EXPORT sarvendoTargets NAMESPACE sarvendo:: DESTINATION ${SARVENDO_CMAKE_DIR})
configure_package_config_file(cmake/sarvendoConfig.cmake.in ${CMAKE_BINARY_DIR}/sarvendoConfig.cmake
  INSTALL_DESTINATION ${SARVENDO_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/sarvendoConfigVersion.cmake
  VERSION ${SARVENDO_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/sarvendoConfig.cmake ${CMAKE_BINARY_DIR}/sarvendoConfigVersion.cmake
  DESTINATION ${SARVENDO_CMAKE_DIR})
# The .pc file finds the prefix from its own place, so that any --prefix of
# cmake --install holds.
string(REGEX REPLACE "[^/]+" ".." SARVENDO_PC_UP "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
configure_file(cmake/sarvendo.pc.in ${CMAKE_BINARY_DIR}/sarvendo.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/sarvendo.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The language packages, where they were built.
if(SARVENDO_JAVA)
  install_jar(sarvendo_jar DESTINATION ${CMAKE_INSTALL_DATADIR}/java)
endif()
if(TARGET sarvendo_php)
  # The extension finds libsarvendo.so in the folder above its own.
  install(TARGETS sarvendo_php LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/php)
endif()

if(NOT BUILD_TESTING)
  return()
endif()

find_program(SARVENDO_PYTHON3 NAMES python3)
find_program(SARVENDO_NODE NAMES node nodejs)
find_program(SARVENDO_CHROMIUM NAMES chromium chromium-browser)

if(SARVENDO_COMMAND AND SARVENDO_PYTHON3)
  add_test(NAME cli.command COMMAND ${SARVENDO_PYTHON3} ${CMAKE_SOURCE_DIR}/tests/cli/CommandTest.py
           $<TARGET_FILE:sarvendo_command> ${CMAKE_BINARY_DIR}/cli-test)
  set_tests_properties(cli.command PROPERTIES ENVIRONMENT "SARVENDO_XLSX=${SARVENDO_HAVE_XLSX}")
else()
  sarvendo_skipped_test(cli.command "the command (CLI11, cpp-httplib) or python3 missing")
endif()

# The consumer is built with the same sanitizer flags as the library it links.
set(SARVENDO_CONSUMER_FLAGS "")
if(SANITIZE STREQUAL "thread")
  set(SARVENDO_CONSUMER_FLAGS "-fsanitize=thread")
elseif(SANITIZE)
  set(SARVENDO_CONSUMER_FLAGS "-fsanitize=address,undefined")
endif()
add_test(NAME cli.install COMMAND sh ${CMAKE_SOURCE_DIR}/tests/cli/install_test.sh
         ${CMAKE_BINARY_DIR} ${CMAKE_BINARY_DIR}/install-test ${CMAKE_SOURCE_DIR}/tests/cli/consumer
         "${SARVENDO_CONSUMER_FLAGS}")
set_tests_properties(cli.install PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 600)

if(NOT SARVENDO_COMMAND)
  sarvendo_skipped_test(cli.browser "the command (CLI11, cpp-httplib) missing")
elseif(NOT SARVENDO_NODE OR NOT SARVENDO_CHROMIUM)
  sarvendo_skipped_test(cli.browser "node or chromium not found")
else()
  add_test(NAME cli.browser COMMAND ${SARVENDO_NODE} ${CMAKE_SOURCE_DIR}/tests/cli/browser.test.js
           WORKING_DIRECTORY ${CMAKE_SOURCE_DIR})
  set_tests_properties(cli.browser PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 300 ENVIRONMENT
    "SARVENDO_COMMAND=$<TARGET_FILE:sarvendo_command>;SARVENDO_XLSX=${SARVENDO_HAVE_XLSX};SARVENDO_CHROMIUM=${SARVENDO_CHROMIUM};SARVENDO_ARTIFACTS=${CMAKE_BINARY_DIR}/browser-test")
endif()
