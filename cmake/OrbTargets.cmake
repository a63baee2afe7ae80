# The few shapes of target that this project has: library, seam, program, unit test, fuzz target, benchmark.

add_library(OrbFlags INTERFACE)
target_include_directories(OrbFlags INTERFACE ${CMAKE_SOURCE_DIR})
target_compile_options(OrbFlags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
target_compile_definitions(OrbFlags INTERFACE BOOST_BIND_GLOBAL_PLACEHOLDERS BOOST_ASIO_SEPARATE_COMPILATION)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # GCC does not count it as -Wconversion.
  target_compile_options(OrbFlags INTERFACE -Wno-sign-conversion)
endif()
if(ORB_WERROR)
  target_compile_options(OrbFlags INTERFACE -Werror)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Boost's inlined code sets these two off at -O2.
    target_compile_options(OrbFlags INTERFACE -Wno-error=uninitialized -Wno-error=maybe-uninitialized)
  endif()
endif()
if(ORB_SANITIZE)
  target_compile_options(OrbFlags INTERFACE -fsanitize=${ORB_SANITIZE} -fno-omit-frame-pointer)
  target_link_options(OrbFlags INTERFACE -fsanitize=${ORB_SANITIZE})
  if(ORB_SANITIZE MATCHES "undefined")
    target_compile_options(OrbFlags INTERFACE -fno-sanitize-recover=undefined)
  endif()
  if(ORB_SANITIZE MATCHES "thread")
    # The thread sanitizer does not see fences.
    target_compile_definitions(OrbFlags INTERFACE BOOST_ASIO_DISABLE_FENCED_BLOCK)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
      target_compile_options(OrbFlags INTERFACE -Wno-tsan)
    endif()
  endif()
endif()

# Asio's functions that are no templates are compiled once, and a program takes those that it needs.
file(GENERATE OUTPUT ${CMAKE_BINARY_DIR}/generated/Asio.cpp CONTENT "#include <boost/asio/impl/src.hpp>\n")
add_library(Asio STATIC ${CMAKE_BINARY_DIR}/generated/Asio.cpp)
target_link_libraries(Asio PRIVATE OrbFlags)
target_compile_options(Asio PRIVATE -ffunction-sections -fdata-sections)
target_link_options(Asio INTERFACE -Wl,--gc-sections)

# What every target links.
add_library(OrbCompile INTERFACE)
target_link_libraries(OrbCompile INTERFACE OrbFlags Asio)

# orb_precompile(TARGET [HEADERS header ...] [DEPENDS library ...]): from here on, the targets of this directory and below
# get these headers parsed, before all that they include themselves. Meant for Clang: GCC gains nothing by it.
function(orb_precompile target)
  if(ORB_PRECOMPILED)
    cmake_parse_arguments(ARG "" "" "HEADERS;DEPENDS" ${ARGN})
    file(GENERATE OUTPUT ${CMAKE_BINARY_DIR}/generated/${target}.cpp CONTENT "")
    add_library(${target} OBJECT ${CMAKE_BINARY_DIR}/generated/${target}.cpp)
    target_link_libraries(${target} PRIVATE OrbCompile ${ARG_DEPENDS})
    target_precompile_headers(${target} PRIVATE ${ARG_HEADERS})
    # For the compiler cache, which tells headers apart by what they contain.
    target_compile_options(${target} PRIVATE "SHELL:-Xclang -fno-pch-timestamp")
    set(ORB_PRECOMPILED_HEADERS ${target} PARENT_SCOPE)
  endif()
endfunction()

function(orb_use_precompiled target)
  if(ORB_PRECOMPILED)
    target_precompile_headers(${target} REUSE_FROM ${ORB_PRECOMPILED_HEADERS})
  endif()
endfunction()

# orb_library(NAME SOURCES a.cpp ... [DEPENDS other ...])
function(orb_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC OrbCompile ${ARG_DEPENDS})
  orb_use_precompiled(${name})
endfunction()

# orb_program(NAME SOURCES a.cpp ... [DEPENDS other ...])
function(orb_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE OrbCompile ${ARG_DEPENDS})
  if(ARG_SOURCES)
    orb_use_precompiled(${name})
  endif()
endfunction()

# Everything that runs without the rig: the programs that CTest labels "unit".
add_custom_target(UnitTests)

# What the programs of another processor cannot do under user emulation is left out of the run, and this file names it.
if(CMAKE_CROSSCOMPILING)
  file(WRITE ${CMAKE_BINARY_DIR}/left-out.txt
    "Left out, since these programs run under user emulation:\n"
    "    all end-to-end tests, the crash dump among them: the rig's programs start each other, and a dump needs ptrace\n"
    "    *DeathTest.*: they start their own program anew, which is one of another processor\n")
endif()

# orb_unit_test(NAME SOURCES a.cpp ... [DEPENDS other ...]): one GoogleTest program, one CTest entry. It runs anywhere:
# what needs the rig is an end-to-end test, and mostly waits, so that scripts/test starts two of those for each processor.
function(orb_unit_test name)
  orb_program(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE GTest::gmock GTest::gtest_main)
  add_dependencies(UnitTests ${name})
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES LABELS unit PROCESSORS 2 TIMEOUT 300 FAIL_REGULAR_EXPRESSION "Running 0 tests")
  if(CMAKE_CROSSCOMPILING)
    set_tests_properties(${name} PROPERTIES ENVIRONMENT "GTEST_FILTER=-*DeathTest.*")
  endif()
endfunction()

# orb_fuzz_target(NAME SOURCES a.cpp CORPUS directory [DEPENDS other ...])
# The source defines LLVMFuzzerTestOneInput. With ORB_FUZZ it becomes a libFuzzer program;
# in every other build a small main replays the corpus, and CTest runs that.
function(orb_fuzz_target name)
  cmake_parse_arguments(ARG "" "CORPUS" "SOURCES;DEPENDS" ${ARGN})
  if(ORB_FUZZ)
    orb_program(${name} SOURCES ${ARG_SOURCES} DEPENDS ${ARG_DEPENDS})
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    add_test(NAME ${name} COMMAND ${name} -runs=0 ${ARG_CORPUS})
  else()
    orb_program(${name} SOURCES ${ARG_SOURCES} ${CMAKE_SOURCE_DIR}/Tests/Fuzz/ReplayMain.cpp DEPENDS ${ARG_DEPENDS})
    add_test(NAME ${name} COMMAND ${name} ${ARG_CORPUS})
  endif()
  add_dependencies(UnitTests ${name})
  set_tests_properties(${name} PROPERTIES LABELS "unit;fuzz" PROCESSORS 2 TIMEOUT 300)
endfunction()
