# The linker's reliability tests: one program of their own (long cycles, hostile
# modules), whose tests carry the ctest label "reliability". Its modules are test modules
# like the others, in the same folder.
lumrx_test_module(krxfull KRX_UNLOCK KRX_FULL)
lumrx_test_module(krxthrowall KRX_THROW_ALL)
lumrx_test_module(krxselfunload KRX_UNLOCK KRX_UNLOADS_SELF="${LUMRX_TEST_MODULE_DIR}/krxselfunload.krx")
lumrx_test_module(krxselfload KRX_UNLOCK KRX_LOADS="${LUMRX_TEST_MODULE_DIR}/krxselfload.krx")
lumrx_test_module(krxparents KRX_UNLOCK KRX_CLASS_CYCLE)
foreach(m krxfull krxselfunload krxselfload krxparents)
  target_link_libraries(${m} PRIVATE lumrx)
endforeach()

add_executable(kvrxlinker_reliability ${CMAKE_CURRENT_LIST_DIR}/reliability/kvrxlinker_reliability.cpp)
target_link_libraries(kvrxlinker_reliability PRIVATE lumrx_testsupport GTest::gtest_main)
target_compile_definitions(kvrxlinker_reliability PRIVATE LUMRX_TEST_MODULE_DIR="${LUMRX_TEST_MODULE_DIR}")
add_dependencies(kvrxlinker_reliability ${LUMRX_TEST_MODULES})
gtest_discover_tests(kvrxlinker_reliability DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
  PROPERTIES LABELS reliability TIMEOUT 180
  ENVIRONMENT "LUMRX_CRASH_RECORD=${CMAKE_CURRENT_BINARY_DIR}/crash-record.txt")
