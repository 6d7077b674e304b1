# The demand-load tests write the registry with lumrx-reg as a second process, and
# load real test modules to see their records left out.
if(TARGET kvoredemandload_test)
  target_compile_definitions(kvoredemandload_test PRIVATE LUMRX_REG_TOOL="$<TARGET_FILE:lumrx-reg>"
    LUMRX_TEST_KRX="$<TARGET_FILE:krxgood>" LUMRX_TEST_KRX_DEP="$<TARGET_FILE:krxdep>")
  add_dependencies(kvoredemandload_test lumrx-reg krxgood krxdep)
endif()
