# The record tests write with lumrx-reg as a second process.
if(TARGET kvoreappinfo_test)
  target_compile_definitions(kvoreappinfo_test PRIVATE LUMRX_REG_TOOL="$<TARGET_FILE:lumrx-reg>")
  add_dependencies(kvoreappinfo_test lumrx-reg)
endif()
