# Small helpers shared by every folder's CMakeLists.

macro(quorvane_add_subdirectory_if_present dir)
  if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/CMakeLists.txt)
    add_subdirectory(${dir})
  endif()
endmacro()

set(QUORVANE_WARNINGS -Wall -Wextra)

# quorvane_library(<target> <alias> SOURCES ... [PUBLIC_DEPS ...] [PRIVATE_DEPS ...])
# One library per layer; installed and exported as QuorvaneApiSDK::<alias>.
function(quorvane_library target alias)
  cmake_parse_arguments(Q "" "" "SOURCES;PUBLIC_DEPS;PRIVATE_DEPS" ${ARGN})
  if(NOT Q_SOURCES)
    return()  # a layer with nothing written yet
  endif()
  add_library(${target} ${Q_SOURCES})
  add_library(QuorvaneApiSDK::${alias} ALIAS ${target})
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${alias})
  target_compile_options(${target} PRIVATE ${QUORVANE_WARNINGS})
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/src>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/quorvane>)
  target_link_libraries(${target} PUBLIC ${Q_PUBLIC_DEPS} PRIVATE ${Q_PRIVATE_DEPS})
  install(TARGETS ${target} EXPORT QuorvaneApiSDKTargets
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  # Headers keep their folder so includes read "foundation/value.h" once installed too.
  file(RELATIVE_PATH rel ${PROJECT_SOURCE_DIR}/src ${CMAKE_CURRENT_SOURCE_DIR})
  install(DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/
          DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quorvane/${rel}
          FILES_MATCHING PATTERN "*.h")
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
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST
    PROPERTIES TIMEOUT ${Q_TIMEOUT} LABELS "${Q_LABELS}")
endfunction()
