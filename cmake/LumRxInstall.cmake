# `cmake --install`: the runtime, its sibling libraries and its message texts, the
# headers a module or a host needs, the CMake package (LumRxConfig.cmake, its version file
# and the exported targets LumRx::...) and the pkg-config file lumrx.pc.
include(CMakePackageConfigHelpers)

set(LUMRX_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/LumRx)

install(TARGETS lumosbase lumpal lumuinfo lumrx EXPORT LumRxTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/lumrx)
# The texts of the numbered user messages, found by name next to liblumuinfo.so.
install(TARGETS LumRxRes LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})

# Headers, flat in include/lumrx: they include each other by bare name.
foreach(dir runtimex/lumrx/source/include runtimex/lumosbase/include runtimex/lumpal/include
            runtimex/lumuinfo/include)
  file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${dir}/*.h)
  install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/lumrx)
endforeach()

install(EXPORT LumRxTargets NAMESPACE LumRx:: DESTINATION ${LUMRX_INSTALL_CMAKEDIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/LumRxConfig.cmake.in
  ${PROJECT_BINARY_DIR}/LumRxConfig.cmake
  INSTALL_DESTINATION ${LUMRX_INSTALL_CMAKEDIR}
  PATH_VARS CMAKE_INSTALL_INCLUDEDIR)
# The interface is young: only the same major and minor version is compatible.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/LumRxConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/LumRxConfig.cmake
              ${PROJECT_BINARY_DIR}/LumRxConfigVersion.cmake
              ${PROJECT_SOURCE_DIR}/cmake/LumRxModule.cmake
  DESTINATION ${LUMRX_INSTALL_CMAKEDIR})

# lumrx.pc names its prefix relative to its own folder, lib/pkgconfig or the like.
file(RELATIVE_PATH LUMRX_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" LUMRX_PC_TO_PREFIX "${LUMRX_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/lumrx.pc.in ${PROJECT_BINARY_DIR}/lumrx.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/lumrx.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
