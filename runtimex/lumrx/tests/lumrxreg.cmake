# lumrx-reg: the registry store's tests run the tool as a second process, and the
# tool's own tests run it on temporary hives (scripts/lumrxreg_test.sh CASE).
if(TARGET registrystore_test)
  target_compile_definitions(registrystore_test PRIVATE LUMRX_REG_TOOL="$<TARGET_FILE:lumrx-reg>")
  add_dependencies(registrystore_test lumrx-reg)
endif()
foreach(case roundtrip escapes refusals)
  add_test(NAME lumrxreg.${case}
    COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/scripts/lumrxreg_test.sh $<TARGET_FILE:lumrx-reg> ${case})
  set_tests_properties(lumrxreg.${case} PROPERTIES TIMEOUT 120)
endforeach()
