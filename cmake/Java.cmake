# Java hosts. With the JDK's JNI header the library gets the native methods
# of Sarvendo.Server; with javac and jar the class is built into
# build/sarvendo.jar and its test runs in a JVM. Without them the test is
# reported as skipped; nothing else depends on Java.
find_package(Java QUIET COMPONENTS Development Runtime)
# The header sits in the JDK that javac belongs to; the finder alone looks
# only in a few fixed places.
if(Java_JAVAC_EXECUTABLE)
  get_filename_component(sarvendo_jdk "${Java_JAVAC_EXECUTABLE}" REALPATH)
  get_filename_component(sarvendo_jdk "${sarvendo_jdk}" DIRECTORY)
  get_filename_component(sarvendo_jdk "${sarvendo_jdk}" DIRECTORY)
  find_path(JAVA_INCLUDE_PATH jni.h HINTS "${sarvendo_jdk}/include")
  find_path(JAVA_INCLUDE_PATH2 jni_md.h HINTS "${sarvendo_jdk}/include/linux")
endif()
find_package(JNI QUIET)

set(SARVENDO_JNI OFF)
if(JAVA_INCLUDE_PATH AND JAVA_INCLUDE_PATH2 AND EXISTS "${JAVA_INCLUDE_PATH}/jni.h")
  set(SARVENDO_JNI ON)
  target_sources(sarvendo PRIVATE src/bindings/DllJava.cpp)
  target_include_directories(sarvendo SYSTEM PRIVATE ${JAVA_INCLUDE_PATH} ${JAVA_INCLUDE_PATH2})
endif()

set(SARVENDO_JAVA OFF)
if(Java_JAVAC_EXECUTABLE AND Java_JAR_EXECUTABLE AND Java_JAVA_EXECUTABLE)
  set(SARVENDO_JAVA ON)
  include(UseJava)
  add_jar(sarvendo_jar SOURCES ${CMAKE_SOURCE_DIR}/java/Sarvendo/Server.java
          OUTPUT_NAME sarvendo OUTPUT_DIR ${CMAKE_BINARY_DIR})
endif()

if(BUILD_TESTING)
  if(SARVENDO_JNI AND SARVENDO_JAVA)
    add_jar(sarvendo_java_test SOURCES ${CMAKE_SOURCE_DIR}/tests/bindings/ServerTest.java
            INCLUDE_JARS sarvendo_jar OUTPUT_DIR ${CMAKE_BINARY_DIR}/java-test)
    get_target_property(SARVENDO_JAR sarvendo_jar JAR_FILE)
    get_target_property(SARVENDO_JAVA_TEST_JAR sarvendo_java_test JAR_FILE)
    add_test(NAME bindings.java
             COMMAND ${Java_JAVA_EXECUTABLE} -Xcheck:jni -cp "${SARVENDO_JAR}:${SARVENDO_JAVA_TEST_JAR}"
                     ServerTest $<TARGET_FILE:sarvendo> ${CMAKE_BINARY_DIR}/java-test)
    sarvendo_host_test_environment(bindings.java)
  else()
    sarvendo_skipped_test(bindings.java "no JDK (javac, jar, jni.h)")
  endif()
endif()
