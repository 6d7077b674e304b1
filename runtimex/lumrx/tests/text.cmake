# Text subsystem: a resource library for the string tests, and a second run of the
# string and stream programs under the double-byte code page 932 (the first run uses
# 1252, which the programs set when no page is given).
add_library(kvstring_testres MODULE ${CMAKE_CURRENT_LIST_DIR}/kvstring_testres.cpp)
target_compile_definitions(kvstring_test PRIVATE
  KVSTRING_TEST_RESOURCES="$<TARGET_FILE:kvstring_testres>")
add_dependencies(kvstring_test kvstring_testres)

foreach(program kvstring_test lumcharmapper_test kvstringbuf_test)
  if(TARGET ${program})
    gtest_discover_tests(${program} TEST_PREFIX "cp932." DISCOVERY_MODE PRE_TEST
      DISCOVERY_TIMEOUT 60
      PROPERTIES TIMEOUT 120 ENVIRONMENT
        "LUMRX_ACP=932;LUMRX_CRASH_RECORD=${CMAKE_CURRENT_BINARY_DIR}/crash-record.txt")
  endif()
endforeach()
