# The installed SDK: install into a temporary prefix, build the out-of-tree module
# example and the implementation check module (sdkcheck/) against it
# (scripts/sdk_install_test.sh).
add_test(NAME sdk.install_and_build_module
  COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/scripts/sdk_install_test.sh
    ${CMAKE_COMMAND} ${CMAKE_GENERATOR} ${CMAKE_MAKE_PROGRAM} ${CMAKE_CXX_COMPILER}
    ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR}/examples/outoftree
    ${CMAKE_CURRENT_LIST_DIR}/sdkcheck)
set_tests_properties(sdk.install_and_build_module PROPERTIES TIMEOUT 300)
# The SDK through pkg-config, and as a Debian package (scripts/sdk_package_test.sh).
foreach(case pkgconfig deb)
  add_test(NAME sdk.${case}
    COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/scripts/sdk_package_test.sh ${case}
      ${CMAKE_COMMAND} ${CMAKE_CPACK_COMMAND} ${CMAKE_GENERATOR} ${CMAKE_MAKE_PROGRAM}
      ${CMAKE_CXX_COMPILER} ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR}/examples/outoftree)
  set_tests_properties(sdk.${case} PROPERTIES TIMEOUT 300)
endforeach()
