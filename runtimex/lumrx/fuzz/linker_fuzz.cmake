# The real modules the linker fuzzer loads, built from the test modules' source into a
# folder of their own.
set(LUMRX_FUZZ_MODULE_DIR ${CMAKE_CURRENT_BINARY_DIR}/krx)
set(LUMRX_FUZZ_MODULE_SOURCE ${PROJECT_SOURCE_DIR}/runtimex/lumrx/tests/modules/testmodule.cpp)
set(LUMRX_FUZZ_MODULES)
function(lumrx_fuzz_module name)
  add_library(${name} SHARED ${LUMRX_FUZZ_MODULE_SOURCE})
  set_target_properties(${name} PROPERTIES PREFIX "" SUFFIX ".krx"
    LIBRARY_OUTPUT_DIRECTORY ${LUMRX_FUZZ_MODULE_DIR} BUILD_RPATH "$ORIGIN")
  target_compile_definitions(${name} PRIVATE KRX_NAME="${name}" ${ARGN})
  # No coverage counters in the modules: the fuzzer would read them after the module's
  # image is gone.
  if(LUMRX_FUZZ)
    target_compile_options(${name} PRIVATE
      -fno-sanitize-coverage=inline-8bit-counters,pc-table,trace-cmp,indirect-calls)
  endif()
  target_link_libraries(${name} PRIVATE lumosbase lumrx)
  list(APPEND LUMRX_FUZZ_MODULES ${name})
  set(LUMRX_FUZZ_MODULES ${LUMRX_FUZZ_MODULES} PARENT_SCOPE)
endfunction()

lumrx_fuzz_module(fzfree KRX_UNLOCK)
lumrx_fuzz_module(fzlocked)
lumrx_fuzz_module(fzouter KRX_UNLOCK KRX_LOADS="${LUMRX_FUZZ_MODULE_DIR}/fzfree.krx")
lumrx_fuzz_module(fzfail KRX_INIT_RESULT=1)
lumrx_fuzz_module(fzthrow KRX_THROW_ALL)
lumrx_fuzz_module(fzfull KRX_UNLOCK KRX_FULL)
lumrx_fuzz_module(fzselfload KRX_UNLOCK KRX_LOADS="${LUMRX_FUZZ_MODULE_DIR}/fzselfload.krx")
lumrx_fuzz_module(fzdep KRX_UNLOCK KRX_PROVIDES_DEP)
lumrx_fuzz_module(fzuser KRX_UNLOCK KRX_USES_DEP)
target_link_libraries(fzuser PRIVATE fzdep)
lumrx_fuzz_module(fzmover KRX_UNLOCK KRX_OTHER="${LUMRX_FUZZ_MODULE_DIR}/fzfull.krx")

# The libFuzzer program, or the corpus replay of the test builds.
foreach(target linker_fuzz linker_fuzz_replay)
  if(TARGET ${target})
    target_compile_definitions(${target} PRIVATE LUMRX_FUZZ_MODULE_DIR="${LUMRX_FUZZ_MODULE_DIR}")
    add_dependencies(${target} ${LUMRX_FUZZ_MODULES})
  endif()
endforeach()
