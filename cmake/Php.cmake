# PHP hosts. The run-time module for PHP 5 hosts is part of the library
# itself (src/bindings/DllPhp.cpp, no PHP header); its test is a stand-in
# host built here from C. With php-config the PHP 8 extension is built into
# build/php/sarvendo.so, and with the php CLI its test runs; without them
# that test is reported as skipped. Nothing else depends on PHP.
if(BUILD_TESTING)
  add_library(sarvendo_php5_core SHARED tests/bindings/php5/StandInCore.c)
  add_library(sarvendo_php5_donor SHARED tests/bindings/php5/StandInDonor.c)
  add_executable(sarvendo_php5_host tests/bindings/php5/Php5HostTest.c)
  target_link_libraries(sarvendo_php5_host PRIVATE ${CMAKE_DL_LIBS})
  add_dependencies(sarvendo_php5_host sarvendo sarvendo_php5_core sarvendo_php5_donor)
  add_test(NAME bindings.php5
           COMMAND sarvendo_php5_host $<TARGET_FILE:sarvendo_php5_core> $<TARGET_FILE:sarvendo_php5_donor>
                   $<TARGET_FILE:sarvendo>)
endif()

find_program(PHP_CONFIG_EXECUTABLE php-config)
find_program(PHP_EXECUTABLE php)

set(SARVENDO_PHP8 OFF)
if(PHP_CONFIG_EXECUTABLE)
  execute_process(COMMAND ${PHP_CONFIG_EXECUTABLE} --includes
                  OUTPUT_VARIABLE php_includes OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE php_result)
  if(php_result EQUAL 0 AND php_includes)
    set(SARVENDO_PHP8 ON)
    separate_arguments(php_includes UNIX_COMMAND "${php_includes}")
    list(TRANSFORM php_includes REPLACE "^-I" "")
    add_library(sarvendo_php MODULE src/bindings/Php8.cpp)
    target_include_directories(sarvendo_php SYSTEM PRIVATE ${php_includes})
    target_include_directories(sarvendo_php PRIVATE include)
    target_link_libraries(sarvendo_php PRIVATE sarvendo)
    set_target_properties(sarvendo_php PROPERTIES
      OUTPUT_NAME sarvendo PREFIX "" LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/php
      CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
      BUILD_RPATH "$ORIGIN/.." INSTALL_RPATH "$ORIGIN/..")
  endif()
endif()

if(BUILD_TESTING)
  if(SARVENDO_PHP8 AND PHP_EXECUTABLE)
    add_test(NAME bindings.php
             COMMAND ${PHP_EXECUTABLE} -n -d extension=$<TARGET_FILE:sarvendo_php>
                     ${CMAKE_SOURCE_DIR}/tests/bindings/php/ExtensionTest.php)
    sarvendo_host_test_environment(bindings.php DEEPBIND)
  else()
    sarvendo_skipped_test(bindings.php "no php-config or php")
  endif()
endif()
