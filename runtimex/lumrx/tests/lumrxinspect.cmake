# lumrx-inspect on the example modules, the linker's test modules and hand-made files
# (scripts/lumrxinspect_test.sh CASE).
foreach(case static load json usage)
  add_test(NAME lumrxinspect.${case}
    COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/scripts/lumrxinspect_test.sh $<TARGET_FILE:lumrx-inspect>
      $<TARGET_FILE_DIR:greeting> $<TARGET_FILE_DIR:krxgood> ${case})
  set_tests_properties(lumrxinspect.${case} PROPERTIES TIMEOUT 120)
endforeach()
# The image file reader under lumrx-inspect reads the linker's test modules.
target_compile_definitions(platformimagefile_test PRIVATE LUMRX_TEST_MODULE_DIR="${CMAKE_CURRENT_BINARY_DIR}/krx")
add_dependencies(platformimagefile_test krxuser krxdep krxgood krxnoentry)
