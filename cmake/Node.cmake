# The Node.js addon, build/node/sarvendo.node, and its tests.
#
# The addon is a module of its own that links the engine's objects, so the
# folder build/node is a complete npm package (the addon next to index.js);
# its adapter source stays out of the shared library. Built when Node-API
# headers are found: Debian's libnode-dev, Node's own include folder, or the
# npm package node-api-headers installed in bindings/node. The tests run in
# real Node through CTest and are reported as skipped when a tool is missing.

set(NODE_ADAPTER ${CMAKE_SOURCE_DIR}/src/bindings/DllNode.cpp)

find_program(NODE_EXECUTABLE NAMES node nodejs)
find_path(NODE_API_INCLUDE node_api.h
  HINTS ${CMAKE_SOURCE_DIR}/bindings/node/node_modules/node-api-headers/include
  PATH_SUFFIXES node nodejs/src)
find_package(Python3 COMPONENTS Interpreter)

set(NODE_PACKAGE_DIR ${CMAKE_BINARY_DIR}/node)
if(NODE_API_INCLUDE)
  add_library(sarvendo_node MODULE ${NODE_ADAPTER} $<TARGET_OBJECTS:sarvendo_core>)
  target_include_directories(sarvendo_node PRIVATE src include ${NODE_API_INCLUDE})
  # Version 8 of the stable ABI: one build loads in Node 18 and later.
  target_compile_definitions(sarvendo_node PRIVATE NAPI_VERSION=8)
  target_link_libraries(sarvendo_node PRIVATE Threads::Threads ${CMAKE_DL_LIBS})
  set_target_properties(sarvendo_node PROPERTIES
    OUTPUT_NAME sarvendo PREFIX "" SUFFIX ".node"
    LIBRARY_OUTPUT_DIRECTORY ${NODE_PACKAGE_DIR}
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  # Node looks up only the registration entry points; the engine's C surface
  # stays inside the module.
  file(WRITE ${CMAKE_BINARY_DIR}/node_exports.map
    "{ global: napi_register_module_v1; node_api_module_get_api_version_v1; local: *; };\n")
  target_link_options(sarvendo_node PRIVATE "-Wl,--version-script=${CMAKE_BINARY_DIR}/node_exports.map")
  foreach(_file package.json index.js index.d.ts README.md)
    configure_file(${CMAKE_SOURCE_DIR}/bindings/node/${_file} ${NODE_PACKAGE_DIR}/${_file} COPYONLY)
  endforeach()
endif()

if(NOT BUILD_TESTING)
  return()
endif()

# A test that can't run exits 77, which CTest reports as skipped.
function(sarvendo_skipped_test name reason)
  add_test(NAME ${name} COMMAND sh -c "echo '${reason}: skipped'; exit 77")
  set_tests_properties(${name} PROPERTIES SKIP_RETURN_CODE 77)
endfunction()

function(sarvendo_node_test name)
  set(_env SARVENDO_NODE_PACKAGE=${NODE_PACKAGE_DIR} SARVENDO_LIBRARY=$<TARGET_FILE:sarvendo>
      SARVENDO_PYTHON=${Python3_EXECUTABLE})
  if(SANITIZE)
    # Node itself isn't instrumented: the runtime has to come first, and
    # Node's own allocations at exit are not the engine's leaks.
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libasan.so
      OUTPUT_VARIABLE _asan OUTPUT_STRIP_TRAILING_WHITESPACE)
    list(APPEND _env LD_PRELOAD=${_asan} ASAN_OPTIONS=detect_leaks=0 SARVENDO_SANITIZED=1)
  endif()
  add_test(NAME ${name} COMMAND ${NODE_EXECUTABLE} --test ${ARGN}
    WORKING_DIRECTORY ${CMAKE_SOURCE_DIR})
  set_tests_properties(${name} PROPERTIES ENVIRONMENT "${_env}" TIMEOUT 600)
endfunction()

set(_node_tests ${CMAKE_SOURCE_DIR}/tests/bindings/node)
if(NOT NODE_EXECUTABLE)
  sarvendo_skipped_test(node.addon "node not found")
  sarvendo_skipped_test(node.matches_c "node not found")
elseif(NOT NODE_API_INCLUDE)
  sarvendo_skipped_test(node.addon "Node-API headers not found")
  sarvendo_skipped_test(node.matches_c "Node-API headers not found")
elseif(SANITIZE STREQUAL "thread")
  # An uninstrumented Node under the thread sanitizer reports its own threads.
  sarvendo_skipped_test(node.addon "node under the thread sanitizer")
  sarvendo_skipped_test(node.matches_c "node under the thread sanitizer")
else()
  sarvendo_node_test(node.addon ${_node_tests}/addon.test.js ${_node_tests}/async.test.js)
  if(Python3_FOUND)
    sarvendo_node_test(node.matches_c ${_node_tests}/capi.test.js)
  else()
    sarvendo_skipped_test(node.matches_c "python3 not found")
  endif()
endif()
