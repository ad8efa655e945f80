# Tests that run the library inside a foreign host process (a JVM, the php
# CLI). In an ASan+UBSan build the sanitizer runtime has to come first in
# that process, so it is preloaded, and leak reports (which would cover the
# host's own memory) are off. Under the thread sanitizer the hosts can't run
# at all: those tests are disabled, which CTest reports as not run. A host
# that loads libraries with deep binding (php) can't take the sanitizer
# runtime either: pass DEEPBIND, and its test is disabled in both.
function(sarvendo_host_test_environment name)
  if(SANITIZE STREQUAL "thread" OR (SANITIZE AND "DEEPBIND" IN_LIST ARGN))
    set_tests_properties(${name} PROPERTIES DISABLED TRUE)
  elseif(SANITIZE)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libasan.so
                    OUTPUT_VARIABLE asan OUTPUT_STRIP_TRAILING_WHITESPACE)
    set_tests_properties(${name} PROPERTIES ENVIRONMENT
      "LD_PRELOAD=${asan};ASAN_OPTIONS=detect_leaks=0:handle_segv=0:allow_user_segv_handler=1")
  endif()
endfunction()

# A test whose tool is missing: CTest shows it as skipped, never as passed.
function(sarvendo_skipped_test name reason)
  add_test(NAME ${name} COMMAND sh -c "echo '${reason}: skipped'; exit 77")
  set_tests_properties(${name} PROPERTIES SKIP_RETURN_CODE 77)
endfunction()
