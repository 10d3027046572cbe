# Small helpers shared by every folder's CMakeLists.

macro(quorvane_add_subdirectory_if_present dir)
  if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/CMakeLists.txt)
    add_subdirectory(${dir})
  endif()
endmacro()

set(QUORVANE_WARNINGS -Wall -Wextra)

# Which package component a library belongs to: Upload (the engine and what it stands on), Device (the
# device subsystems and the platform families), Facade (the façade and the upload bridge). A user who
# asks for Upload alone needs none of Device's or Facade's third-party libraries.
set(QUORVANE_COMPONENT_Foundation Upload)
set(QUORVANE_COMPONENT_Platform Upload)
set(QUORVANE_COMPONENT_PlatformLinux Upload)
set(QUORVANE_COMPONENT_OSS Upload)
set(QUORVANE_COMPONENT_VODUpload Upload)
set(QUORVANE_COMPONENT_PlatformHeadless Device)
set(QUORVANE_COMPONENT_PlatformCapture Device)
set(QUORVANE_COMPONENT_Device Device)
set(QUORVANE_COMPONENT_Permission Device)
set(QUORVANE_COMPONENT_UploadBridge Facade)
set(QUORVANE_COMPONENT_API Facade)

# quorvane_library(<target> <alias> SOURCES ... [PUBLIC_DEPS ...] [PRIVATE_DEPS ...]
#                  [HEADER_DIRS <dir> ...] [PRIVATE_HEADERS <folder/name.h> ...])
# One library per folder, installed and exported as QuorvaneApiSDK::<alias> in its component's export set.
# Its headers are installed under include/quorvane/ with the path they are included by here
# ("foundation/value.h"), from its folder or HEADER_DIRS, except PRIVATE_HEADERS, which only its own
# sources (and tests) include.
function(quorvane_library target alias)
  cmake_parse_arguments(Q "" "" "SOURCES;PUBLIC_DEPS;PRIVATE_DEPS;HEADER_DIRS;PRIVATE_HEADERS" ${ARGN})
  if(NOT Q_SOURCES)
    return()  # a layer with nothing written yet
  endif()
  set(component ${QUORVANE_COMPONENT_${alias}})
  if(NOT component)
    message(FATAL_ERROR "quorvane_library(${target}): ${alias} belongs to no component")
  endif()
  add_library(${target} ${Q_SOURCES})
  add_library(QuorvaneApiSDK::${alias} ALIAS ${target})
  # The same compile line for a static and a shared build (no <target>_EXPORTS define), so one cache
  # serves both; what a shared library exports is set at link time (cmake/quorvane.map).
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${alias} DEFINE_SYMBOL ""
                        VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  target_compile_options(${target} PRIVATE ${QUORVANE_WARNINGS})
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/src>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/quorvane>)
  target_link_libraries(${target} PUBLIC ${Q_PUBLIC_DEPS} PRIVATE ${Q_PRIVATE_DEPS})
  if(BUILD_SHARED_LIBS)
    target_link_options(${target} PRIVATE -Wl,--no-undefined
                        -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/quorvane.map)
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/quorvane.map)
  endif()
  set_property(GLOBAL APPEND PROPERTY QUORVANE_LIBRARIES ${target})
  install(TARGETS ${target} EXPORT QuorvaneApiSDK${component}Targets
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  # Headers keep their folder so includes read "foundation/value.h" once installed too.
  if(NOT Q_HEADER_DIRS)
    set(Q_HEADER_DIRS ${CMAKE_CURRENT_SOURCE_DIR})
  endif()
  list(TRANSFORM Q_PRIVATE_HEADERS PREPEND ${PROJECT_SOURCE_DIR}/src/)
  foreach(dir ${Q_HEADER_DIRS})
    file(RELATIVE_PATH rel ${PROJECT_SOURCE_DIR}/src ${dir})
    file(GLOB headers CONFIGURE_DEPENDS ${dir}/*.h)
    if(Q_PRIVATE_HEADERS)
      list(REMOVE_ITEM headers ${Q_PRIVATE_HEADERS})
    endif()
    install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quorvane/${rel})
  endforeach()
endfunction()

# quorvane_test(<name> SOURCES ... DEPS ...): one GoogleTest executable, tests registered with CTest.
function(quorvane_test name)
  cmake_parse_arguments(Q "" "TIMEOUT" "SOURCES;DEPS;LABELS" ${ARGN})
  add_executable(${name} ${Q_SOURCES})
  target_compile_options(${name} PRIVATE ${QUORVANE_WARNINGS})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE ${Q_DEPS} GTest::gtest GTest::gmock GTest::gtest_main)
  if(NOT Q_TIMEOUT)
    set(Q_TIMEOUT 120)
  endif()
  # Listing a program's tests can take seconds on a loaded machine (two cores, a sanitizer build); past
  # the default 5 s the whole ctest run fails before any test starts.
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120
    PROPERTIES TIMEOUT ${Q_TIMEOUT} LABELS "${Q_LABELS}")
endfunction()

# quorvane_write_layers(<file>): the libraries' folders and links, for scripts/check-layers.sh.
function(quorvane_write_layers file)
  get_property(libraries GLOBAL PROPERTY QUORVANE_LIBRARIES)
  if(TARGET quorvane_emulator)
    list(APPEND libraries quorvane_emulator)
  endif()
  set(text "")
  foreach(target ${libraries})
    get_target_property(sources ${target} SOURCES)
    get_target_property(source_dir ${target} SOURCE_DIR)
    set(folders "")
    foreach(source ${sources})
      cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY ${source_dir})
      cmake_path(GET source PARENT_PATH dir)
      file(RELATIVE_PATH dir ${PROJECT_SOURCE_DIR} ${dir})
      list(APPEND folders ${dir})
    endforeach()
    list(REMOVE_DUPLICATES folders)
    list(JOIN folders "," folders)
    get_target_property(links ${target} LINK_LIBRARIES)
    set(linked "")
    foreach(link ${links})
      if(link IN_LIST libraries)
        list(APPEND linked ${link})
      endif()
    endforeach()
    list(JOIN linked " " linked)
    string(APPEND text "${target} ${folders} ${linked}\n")
  endforeach()
  file(WRITE ${file} "${text}")
endfunction()
