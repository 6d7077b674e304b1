# Test modules: real *.krx shared objects built from modules/testmodule.cpp, one per
# behaviour, all in one directory that the loader and linker tests get as
# LUMRX_TEST_MODULE_DIR.
set(LUMRX_TEST_MODULE_DIR ${CMAKE_CURRENT_BINARY_DIR}/krx)
function(lumrx_test_module name)
  add_library(${name} SHARED ${CMAKE_CURRENT_LIST_DIR}/modules/testmodule.cpp)
  set_target_properties(${name} PROPERTIES PREFIX "" SUFFIX ".krx"
    LIBRARY_OUTPUT_DIRECTORY ${LUMRX_TEST_MODULE_DIR} BUILD_RPATH "$ORIGIN")
  target_compile_definitions(${name} PRIVATE KRX_NAME="${name}" ${ARGN})
  target_link_libraries(${name} PRIVATE lumosbase)
  list(APPEND LUMRX_TEST_MODULES ${name})
  set(LUMRX_TEST_MODULES ${LUMRX_TEST_MODULES} PARENT_SCOPE)
endfunction()

# krxgood never unlocks itself: it refuses every plain unload.
lumrx_test_module(krxgood)
lumrx_test_module(krxdep KRX_PROVIDES_DEP KRX_UNLOCK)
lumrx_test_module(krxuser KRX_USES_DEP KRX_UNLOCK)
target_link_libraries(krxuser PRIVATE krxdep lumrx)
target_link_libraries(krxdep PRIVATE lumrx)
lumrx_test_module(krxfree KRX_UNLOCK)
lumrx_test_module(krxmdi KRX_UNLOCK KRX_MDI)
lumrx_test_module(krxouter KRX_UNLOCK KRX_LOADS="${LUMRX_TEST_MODULE_DIR}/krxfree.krx")
# A cycle: krxcyclea loads krxcycleb in its first message, and krxcycleb is linked
# against krxcyclea.
lumrx_test_module(krxcyclea KRX_UNLOCK KRX_PROVIDES_DEP KRX_LOADS="${LUMRX_TEST_MODULE_DIR}/krxcycleb.krx")
lumrx_test_module(krxcycleb KRX_UNLOCK KRX_USES_DEP)
target_link_libraries(krxcycleb PRIVATE krxcyclea)
lumrx_test_module(krxorphan KRX_UNLOCK KRX_ORPHAN)
foreach(m krxfree krxmdi krxouter krxcyclea krxcycleb krxorphan)
  target_link_libraries(${m} PRIVATE lumrx)
endforeach()
lumrx_test_module(krxowner KRX_REGISTERS)
target_link_libraries(krxowner PRIVATE lumrx)
lumrx_test_module(krxfailinit KRX_INIT_RESULT=1)
lumrx_test_module(krxthrows KRX_THROW)
lumrx_test_module(krxoldapi KRX_VERSION=0x07E40003u)
lumrx_test_module(krxnoentry KRX_NO_ENTRY)
lumrx_test_module(krxnoversion KRX_NO_VERSION)

# The managed bridge: refuses module names that contain "refuse", logs the others.
add_library(LumManaged SHARED ${CMAKE_CURRENT_LIST_DIR}/modules/managedbridge.cpp)
set_target_properties(LumManaged PROPERTIES PREFIX "" OUTPUT_NAME LumManaged
  LIBRARY_OUTPUT_DIRECTORY ${LUMRX_TEST_MODULE_DIR})
list(APPEND LUMRX_TEST_MODULES LumManaged)

foreach(test platformloader_test kvrxdynamiclinker_test kvrxmoduledependency_test kvrxdlinkerreactor_test kvrxlinkerapi_test)
  if(TARGET ${test})
    target_compile_definitions(${test} PRIVATE LUMRX_TEST_MODULE_DIR="${LUMRX_TEST_MODULE_DIR}")
    add_dependencies(${test} ${LUMRX_TEST_MODULES})
  endif()
endforeach()
if(TARGET kvrxlinkerapi_test)
  target_compile_definitions(kvrxlinkerapi_test PRIVATE LUMRX_REG_TOOL="$<TARGET_FILE:lumrx-reg>")
  add_dependencies(kvrxlinkerapi_test lumrx-reg)
endif()
