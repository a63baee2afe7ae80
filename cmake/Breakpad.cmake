# The Breakpad client library as the imported target Breakpad::client. scripts/breakpad fetches and builds it once
# for all build directories of a processor.
set(breakpadHost "")
if(CMAKE_CROSSCOMPILING)
  set(breakpadHost ${CMAKE_LIBRARY_ARCHITECTURE})
endif()
find_program(BREAKPAD_CXX NAMES ${CMAKE_LIBRARY_ARCHITECTURE}-g++ g++ REQUIRED)
execute_process(
  COMMAND ${CMAKE_COMMAND} -E env "CPPFLAGS=${ORB_TARGET_DEFINITIONS}"
          ${CMAKE_SOURCE_DIR}/scripts/breakpad ${BREAKPAD_CXX} ${breakpadHost}
  RESULT_VARIABLE breakpadResult)
if(NOT breakpadResult EQUAL 0)
  message(FATAL_ERROR "The Breakpad client library could not be built")
endif()
execute_process(COMMAND ${BREAKPAD_CXX} -dumpmachine OUTPUT_VARIABLE breakpadMachine OUTPUT_STRIP_TRAILING_WHITESPACE)
set(BREAKPAD_ROOT ${CMAKE_SOURCE_DIR}/build/breakpad/${breakpadMachine})

add_library(Breakpad::client STATIC IMPORTED)
set_target_properties(Breakpad::client PROPERTIES
  IMPORTED_LOCATION ${BREAKPAD_ROOT}/build/src/client/linux/libbreakpad_client.a
  INTERFACE_INCLUDE_DIRECTORIES "${BREAKPAD_ROOT}/source/deps/breakpad/src;${BREAKPAD_ROOT}/source/deps")
target_link_libraries(Breakpad::client INTERFACE Threads::Threads)
