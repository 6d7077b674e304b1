# Reliability of the registry with other processes about (ctest label "reliability"):
# concurrent writers and a poller, a writer killed mid-import, hives that can't be
# written. The program runs lumrx-reg and itself as helper processes, and checks hive
# files with SQLite directly.
find_package(PkgConfig REQUIRED)
pkg_check_modules(RELIABILITY_SQLITE3 REQUIRED IMPORTED_TARGET sqlite3)
add_executable(registryreliability_test ${CMAKE_CURRENT_LIST_DIR}/registryreliability.cpp)
target_link_libraries(registryreliability_test PRIVATE lumrx_testsupport GTest::gtest PkgConfig::RELIABILITY_SQLITE3)
target_compile_definitions(registryreliability_test PRIVATE LUMRX_REG_TOOL="$<TARGET_FILE:lumrx-reg>")
add_dependencies(registryreliability_test lumrx-reg)
gtest_discover_tests(registryreliability_test DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
  PROPERTIES TIMEOUT 120 LABELS reliability
  ENVIRONMENT "LUMRX_CRASH_RECORD=${CMAKE_CURRENT_BINARY_DIR}/crash-record.txt")
