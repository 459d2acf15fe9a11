# One static library per folder under src/. Sources are picked up by glob so that
# adding a unit is adding its .h/.cpp pair; the link interface is the dependency arrow.
set(ORVIDA_WARNINGS -Wall -Wextra -Wshadow -Wnon-virtual-dtor -Wno-missing-field-initializers)

function(orvida_module name)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  file(GLOB _sources CONFIGURE_DEPENDS
       ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
  if(NOT _sources)
    # A folder whose units have not been written yet still takes part in the graph.
    add_library(orvida_${name} INTERFACE)
    target_include_directories(orvida_${name} INTERFACE ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(orvida_${name} INTERFACE ${ARG_DEPS})
    return()
  endif()
  add_library(orvida_${name} STATIC ${_sources})
  target_include_directories(orvida_${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_compile_options(orvida_${name} PRIVATE ${ORVIDA_WARNINGS})
  target_compile_definitions(orvida_${name} PUBLIC QT_NO_KEYWORDS)
  target_link_libraries(orvida_${name} PUBLIC ${ARG_DEPS})
endfunction()

# tests/<module>/*_test.cpp become one gtest binary per module, labelled LABEL (default
# "unit"). The files listed after INTEGRATION start servers, D-Bus or ffmpeg: every test
# of the suites they define is labelled "integration" instead, so that `ctest -L unit`
# runs only the fast, self-contained ones.
function(orvida_test_module name)
  cmake_parse_arguments(ARG "" "LABEL" "DEPS;INTEGRATION" ${ARGN})
  file(GLOB _sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
  if(NOT _sources)
    return()
  endif()
  add_executable(orvida_${name}_tests ${_sources})
  target_compile_options(orvida_${name}_tests PRIVATE ${ORVIDA_WARNINGS})
  target_link_libraries(orvida_${name}_tests PRIVATE ${ARG_DEPS} orvida_test_support GTest::gtest GTest::gmock)
  if(NOT ARG_LABEL)
    set(ARG_LABEL unit)
  endif()
  gtest_discover_tests(orvida_${name}_tests
    DISCOVERY_TIMEOUT 60
    PROPERTIES ENVIRONMENT "QT_QPA_PLATFORM=offscreen;ORVIDA_SOURCE_DIR=${PROJECT_SOURCE_DIR};ORVIDA_BINARY_DIR=${PROJECT_BINARY_DIR}")
  orvida_label_tests(orvida_${name}_tests ${ARG_LABEL} ${ARG_INTEGRATION})
endfunction()

# Labels every discovered test of `target`: "integration" when its suite is defined in one
# of the files after `label` (relative to the current source folder), else `label`. The
# tests are only known when ctest reads the discovery's list, so this adds a script that
# ctest runs after it. (ctest adds labels up, so each test gets exactly one here.)
function(orvida_label_tests target label)
  set(_suites "")
  foreach(_file IN LISTS ARGN)
    set(_path ${CMAKE_CURRENT_SOURCE_DIR}/${_file})
    if(NOT EXISTS ${_path})
      message(FATAL_ERROR "orvida_label_tests: ${_file} does not exist")
    endif()
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${_path})
    file(STRINGS ${_path} _lines REGEX "^(TEST|TEST_F|TEST_P|TYPED_TEST)\\(")
    foreach(_line IN LISTS _lines)
      string(REGEX REPLACE "^[A-Z_]+\\( *([A-Za-z0-9_]+).*" "\\1" _suite "${_line}")
      list(APPEND _suites ${_suite})
    endforeach()
  endforeach()
  list(REMOVE_DUPLICATES _suites)
  set(_script ${CMAKE_CURRENT_BINARY_DIR}/${target}_labels.cmake)
  file(WRITE ${_script} "set(_suites \"${_suites}\")\nset(_label ${label})\nset(_tests \"\${${target}_TESTS}\")\n")
  file(APPEND ${_script} [=[
foreach(_test IN LISTS _tests)
  string(REGEX REPLACE "^([^/]*/)?([^./]+)\\..*" "\\2" _suite "${_test}")
  list(FIND _suites "${_suite}" _at)
  if(_at GREATER -1)
    set_tests_properties("${_test}" PROPERTIES LABELS integration)
  else()
    set_tests_properties("${_test}" PROPERTIES LABELS ${_label})
  endif()
endforeach()
]=])
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${_script})
endfunction()
