# Coverage-guided fuzz targets (fuzz/targets/*.cpp), built by clang with
# libFuzzer over an ASan+UBSan core: configure with CXX=clang++
# -DSANITIZE=ON -DSARVENDO_LIBFUZZER=ON, or let fuzz/run.sh do it. A normal
# build instead gets one CTest entry that makes such a build beside its own
# and runs every target briefly; it is skipped (77) without clang's fuzzer
# runtime.
option(SARVENDO_LIBFUZZER "Build the coverage-guided fuzz targets (clang)" OFF)
set(SARVENDO_FUZZ_SECONDS 60 CACHE STRING "Seconds per fuzz target in the CTest run")

if(SARVENDO_LIBFUZZER)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang" OR NOT SANITIZE OR SANITIZE STREQUAL "thread")
    message(FATAL_ERROR "SARVENDO_LIBFUZZER needs clang and -DSANITIZE=ON")
  endif()
  target_compile_options(sarvendo_core PRIVATE -fsanitize=fuzzer-no-link)
  file(GLOB FUZZ_TARGETS CONFIGURE_DEPENDS fuzz/targets/*.cpp)
  foreach(source ${FUZZ_TARGETS})
    get_filename_component(name ${source} NAME_WE)
    add_executable(${name} ${source} $<TARGET_OBJECTS:sarvendo_core>)
    target_include_directories(${name} PRIVATE include)
    target_compile_options(${name} PRIVATE -fsanitize=fuzzer)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    target_link_libraries(${name} PRIVATE Threads::Threads ${CMAKE_DL_LIBS})
    # The engine's objects bring the workbook writer's calls along.
    if(SARVENDO_HAVE_XLSX)
      target_link_libraries(${name} PRIVATE ${SARVENDO_XLSX_LIBRARY})
    endif()
  endforeach()
elseif(BUILD_TESTING)
  if(SANITIZE)
    # The fuzz build is ASan+UBSan already; one run per pipeline is enough.
    sarvendo_skipped_test(FuzzTargets "fuzz targets run from the plain build")
  else()
    add_test(NAME FuzzTargets
             COMMAND ${CMAKE_SOURCE_DIR}/fuzz/run.sh ${SARVENDO_FUZZ_SECONDS} ${CMAKE_BINARY_DIR}/fuzz)
    set_tests_properties(FuzzTargets PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 2400)
  endif()
endif()
