# `cpack -G DEB` in the build folder: one Debian package with what `cmake --install`
# puts down (libraries, message texts, headers, the CMake package, lumrx.pc and the
# tools) under /usr. Its run-time dependencies (ICU, SQLite, the C++ library) are found
# by dpkg-shlibdeps from the libraries and programs themselves.
set(CPACK_PACKAGE_NAME lumrx)
set(CPACK_PACKAGE_VENDOR "Lumora")
set(CPACK_PACKAGE_CONTACT "LumRx maintainers <lumrx@lumora.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "Runtime-extension kernel of the Lumora CAD platform, with its SDK and tools")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The package's own libraries need each other; dpkg-shlibdeps finds them here.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS)
foreach(library lumrx lumosbase lumpal lumuinfo)
  get_target_property(dir ${library} BINARY_DIR)
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${dir})
endforeach()
set(CPACK_GENERATOR DEB)
include(CPack)
