# lumrx_add_module(NAME SOURCE...): an extension module NAME.krx, built against
# LumRx::lumrx. The file is a shared object named "NAME.krx" (no "lib" prefix), which
# is also the name other modules record when they link against it; it finds the
# modules it links against in its own directory ($ORIGIN). Symbols are hidden unless
# marked: the entry points carry KVRX_MODULE_EXPORT (kvrxmodule.h).
function(lumrx_add_module name)
  if(NOT ARGN)
    message(FATAL_ERROR "lumrx_add_module(${name}): no sources given")
  endif()
  add_library(${name} SHARED ${ARGN})
  set_target_properties(${name} PROPERTIES
    PREFIX "" SUFFIX ".krx"
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
    BUILD_RPATH "$ORIGIN" INSTALL_RPATH "$ORIGIN")
  target_compile_features(${name} PRIVATE cxx_std_17)
  target_link_libraries(${name} PRIVATE LumRx::lumrx)
endfunction()
