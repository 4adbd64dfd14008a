# The Node.js addon, built straight against the headers of the Node.js that runs it.
file(GLOB KEYLOOM_RUNTIME_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/runtime/*.cc)
add_library(keyloom_addon MODULE ${CMAKE_SOURCE_DIR}/keyloom_wrap.cxx ${KEYLOOM_RUNTIME_SOURCES})
set_source_files_properties(${CMAKE_SOURCE_DIR}/keyloom_wrap.cxx PROPERTIES LANGUAGE CXX)
target_include_directories(keyloom_addon SYSTEM PRIVATE ${NODE_INCLUDE_DIR})
target_include_directories(keyloom_addon PRIVATE ${CMAKE_SOURCE_DIR})
target_compile_definitions(keyloom_addon PRIVATE
  BUILDING_NODE_EXTENSION NODE_GYP_MODULE_NAME=keyloom V8_DEPRECATION_WARNINGS=1
  _FILE_OFFSET_BITS=64 _LARGEFILE_SOURCE)
target_compile_options(keyloom_addon PRIVATE ${KEYLOOM_WARNINGS}
  -fno-strict-aliasing -fno-rtti -fno-exceptions)
# The addon finds the real library beside it by RUNPATH; LD_LIBRARY_PATH (the
# test double in build/probe) takes precedence over RUNPATH.
target_link_libraries(keyloom_addon PRIVATE keyloom)
set_target_properties(keyloom_addon PROPERTIES
  PREFIX "" SUFFIX ".node" OUTPUT_NAME keyloom
  LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/Release
  CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
  BUILD_RPATH "\$ORIGIN/../lib" INSTALL_RPATH "\$ORIGIN/../lib"
  BUILD_WITH_INSTALL_RPATH ON)
# --no-as-needed: the addon always records libkeyloom.so.1 as NEEDED, so that
# the library (or its test double) is loaded with it and binds lazily, even
# while the library built here does not define every function yet.
target_link_options(keyloom_addon PRIVATE -Wl,--enable-new-dtags -Wl,--no-as-needed)
