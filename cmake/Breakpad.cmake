# The Breakpad client library as the target BreakpadClient. It is built by the first program that needs it, once for all
# build directories of a processor; scripts/breakpad fetches and builds it.
set(breakpadHost "")
if(CMAKE_CROSSCOMPILING)
  set(breakpadHost ${CMAKE_LIBRARY_ARCHITECTURE})
endif()
find_program(BREAKPAD_CXX NAMES ${CMAKE_LIBRARY_ARCHITECTURE}-g++ g++ REQUIRED)
execute_process(COMMAND ${BREAKPAD_CXX} -dumpmachine
  OUTPUT_VARIABLE breakpadMachine OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
set(BREAKPAD_ROOT ${CMAKE_SOURCE_DIR}/build/breakpad/${breakpadMachine})
set(breakpadLibrary ${BREAKPAD_ROOT}/build/src/client/linux/libbreakpad_client.a)

add_custom_command(OUTPUT ${breakpadLibrary}
  COMMAND ${CMAKE_COMMAND} -E env "CPPFLAGS=${ORB_TARGET_DEFINITIONS}"
          ${CMAKE_SOURCE_DIR}/scripts/breakpad ${BREAKPAD_CXX} ${breakpadHost}
  DEPENDS ${CMAKE_SOURCE_DIR}/scripts/breakpad
  COMMENT "Building the Breakpad client library, if it is not there yet"
  VERBATIM)
add_custom_target(BreakpadBuild DEPENDS ${breakpadLibrary})

add_library(BreakpadClient INTERFACE)
add_dependencies(BreakpadClient BreakpadBuild)
target_include_directories(BreakpadClient SYSTEM INTERFACE
  ${BREAKPAD_ROOT}/source/deps/breakpad/src ${BREAKPAD_ROOT}/source/deps)
target_link_libraries(BreakpadClient INTERFACE ${breakpadLibrary} Threads::Threads)
