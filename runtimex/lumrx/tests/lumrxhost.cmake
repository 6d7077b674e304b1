# lumrx-host driven by scripts on temporary hives, with the example modules and the
# linker's test modules (scripts/lumrxhost_test.sh CASE).
foreach(case road references refusal quitting errors prompt demand roadscript windows)
  add_test(NAME lumrxhost.${case}
    COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/scripts/lumrxhost_test.sh $<TARGET_FILE:lumrx-host>
      $<TARGET_FILE_DIR:greeting> $<TARGET_FILE_DIR:krxgood> ${case})
  set_tests_properties(lumrxhost.${case} PROPERTIES TIMEOUT 120 SKIP_RETURN_CODE 77)
endforeach()
