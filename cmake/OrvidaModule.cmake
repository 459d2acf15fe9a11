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

# tests/<module>/*_test.cpp become one gtest binary per module.
function(orvida_test_module name)
  cmake_parse_arguments(ARG "" "LABEL" "DEPS" ${ARGN})
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
    PROPERTIES LABELS "${ARG_LABEL}"
               ENVIRONMENT "QT_QPA_PLATFORM=offscreen;ORVIDA_SOURCE_DIR=${PROJECT_SOURCE_DIR};ORVIDA_BINARY_DIR=${PROJECT_BINARY_DIR}")
endfunction()
