# quorvane-upload.pc (the Upload component) and quorvane-sdk.pc (everything), for builds without CMake:
#   c++ -std=c++20 app.cpp $(pkg-config --cflags --libs quorvane-upload)
# Libraries are listed users first, as a static link needs them.

# _quorvane_pc_libs(<out> <target>...): "-l<name>" of each target this build has.
function(_quorvane_pc_libs out)
  set(flags "")
  foreach(target ${ARGN})
    if(TARGET ${target})
      string(APPEND flags " -l${target}")
    endif()
  endforeach()
  string(STRIP "${flags}" flags)
  set(${out} "${flags}" PARENT_SCOPE)
endfunction()

_quorvane_pc_libs(QUORVANE_PC_UPLOAD_LIBS
  quorvane_vodupload quorvane_oss quorvane_platform_linux quorvane_platform quorvane_foundation)
_quorvane_pc_libs(QUORVANE_PC_SDK_LIBS
  quorvane_api quorvane_upload_bridge quorvane_permission quorvane_device quorvane_platform_capture
  quorvane_platform_headless)

# The third-party libraries the SDK's libraries link. With shared libraries they are private (needed only
# to link statically); with static ones every program links them, from their shared libraries, so they
# are plain requirements and `pkg-config --libs` is right either way (no --static, which would ask for
# the static archives of FFmpeg's whole tree).
set(upload_deps "libcurl openssl pugixml ${QUORVANE_CRC64_MODULE}")
set(sdk_deps "libavformat libavcodec libavutil libswscale libswresample libavdevice vips-cpp zxing")
if(BUILD_SHARED_LIBS)
  set(QUORVANE_PC_UPLOAD_REQUIRES "nlohmann_json")
  set(QUORVANE_PC_UPLOAD_PRIVATE "Requires.private: ${upload_deps}\nLibs.private: -ldl -pthread")
  set(QUORVANE_PC_SDK_PRIVATE "Requires.private: ${sdk_deps}")
  set(QUORVANE_PC_SDK_REQUIRES "quorvane-upload = ${PROJECT_VERSION}")
else()
  set(QUORVANE_PC_UPLOAD_REQUIRES "nlohmann_json ${upload_deps}")
  set(QUORVANE_PC_UPLOAD_PRIVATE "")
  string(APPEND QUORVANE_PC_UPLOAD_LIBS " -ldl -pthread")
  set(QUORVANE_PC_SDK_REQUIRES "quorvane-upload = ${PROJECT_VERSION} ${sdk_deps}")
  set(QUORVANE_PC_SDK_PRIVATE "")
endif()
string(REPLACE "\\n" "\n" QUORVANE_PC_UPLOAD_PRIVATE "${QUORVANE_PC_UPLOAD_PRIVATE}")

# Relocatable: the prefix is found from the file's own place, so an install moved or made with
# `cmake --install --prefix` still points at its own headers and libraries.
file(RELATIVE_PATH QUORVANE_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" QUORVANE_PC_TO_PREFIX "${QUORVANE_PC_TO_PREFIX}")

foreach(pc upload sdk)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/quorvane-${pc}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/quorvane-${pc}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/quorvane-${pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
