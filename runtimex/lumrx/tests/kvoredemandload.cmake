# The demand-load tests write the registry with lumrx-reg as a second process.
if(TARGET kvoredemandload_test)
  target_compile_definitions(kvoredemandload_test PRIVATE LUMRX_REG_TOOL="$<TARGET_FILE:lumrx-reg>")
  add_dependencies(kvoredemandload_test lumrx-reg)
endif()
