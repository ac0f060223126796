# SPDX-License-Identifier: MIT
# Programs of tests, and how CTest runs them.
include(GoogleTest)

set(KEL_HTTP_TEST_OBJECTS "" CACHE PATH
    "Build folder whose objects of the tests are linked with this build's library, instead of compiling them again")
option(KEL_HTTP_TEST_PROCESSES "Run each test in a process of its own, not several together" ON)

# Sets `variable` to what the target `name` is made of: its sources, or the objects that another build links. Objects of
# sources that are gone may still lie there, so its build.ninja is asked.
function(kel_test_sources variable name)
  set(sources ${ARGN})
  if(KEL_HTTP_TEST_OBJECTS)
    set(rules ${KEL_HTTP_TEST_OBJECTS}/build.ninja)
    if(EXISTS ${rules})
      file(STRINGS ${rules} link REGEX "^build [^:]*: CXX_[A-Z_]+_LINKER__${name}_[A-Za-z]* ")
    endif()
    string(REGEX MATCHALL "[^ ]+\\.o" sources "${link}")
    if(NOT sources)
      message(FATAL_ERROR "KEL_HTTP_TEST_OBJECTS is '${KEL_HTTP_TEST_OBJECTS}', where nothing is known of ${name}: build the "
                          "tests there first, with Ninja")
    endif()
    list(TRANSFORM sources PREPEND ${KEL_HTTP_TEST_OBJECTS}/)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${rules})
  endif()
  set(${variable} ${sources} PARENT_SCOPE)
endfunction()

# Adds an archive that programs of tests share.
function(kel_add_test_library name)
  kel_test_sources(sources ${name} ${ARGN})
  add_library(${name} STATIC ${sources})
  set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX)
endfunction()

# Adds a program of tests that uses no more of the library than others may.
function(kel_add_test_program name)
  kel_test_sources(sources ${name} ${ARGN})
  add_executable(${name} ${sources})
  set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX)
  target_link_libraries(${name} PRIVATE kel_warnings)
endfunction()

# Adds a program of tests that looks inside the library.
function(kel_add_inner_test_program name)
  kel_add_test_program(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE kel_fixture)
  if(KEL_HTTP_TEST_OBJECTS)
    # Of an inline function that both have, the linker takes the first: the one that this build has instrumented.
    get_target_property(objects ${name} SOURCES)
    set_target_properties(${name} PROPERTIES SOURCES "$<TARGET_OBJECTS:kel_http_objects>;${objects}")
  endif()
endfunction()

# Lets CTest run the tests of a program: each in a process of its own, or all of them in `shards` processes, which saves
# as many starts as there are tests: most of the time with a sanitizer or an emulator. Further arguments are properties.
function(kel_discover_tests name shards)
  if(KEL_HTTP_TEST_PROCESSES)
    gtest_discover_tests(${name} PROPERTIES TIMEOUT 300 ${ARGN})
    return()
  endif()
  math(EXPR last "${shards} - 1")
  foreach(shard RANGE ${last})
    add_test(NAME ${name}.${shard} COMMAND ${name} --gtest_brief=1)
    set_tests_properties(${name}.${shard} PROPERTIES TIMEOUT 300 ${ARGN}
      ENVIRONMENT "GTEST_TOTAL_SHARDS=${shards};GTEST_SHARD_INDEX=${shard}")
  endforeach()
endfunction()
