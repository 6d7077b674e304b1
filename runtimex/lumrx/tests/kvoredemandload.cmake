# The demand-load tests write the registry with lumrx-reg as a second process, and
# load a real test module to see its record left out.
if(TARGET kvoredemandload_test)
  target_compile_definitions(kvoredemandload_test PRIVATE LUMRX_REG_TOOL="$<TARGET_FILE:lumrx-reg>"
    LUMRX_TEST_KRX="$<TARGET_FILE:krxgood>")
  add_dependencies(kvoredemandload_test lumrx-reg krxgood)
endif()
