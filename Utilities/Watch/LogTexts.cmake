# Writes a table of the module's log texts: how each begins, and which debug feature it belongs to. A line of the log
# does not name its feature, so this is how a reader of the log knows it.
#
# cmake -DROOT=directory -DOUTPUT=file -P LogTexts.cmake; include(LogTexts.cmake) gives LOG_TEXT_SOURCES for ROOT.

set(LOG_TEXT_SOURCES)
foreach(directory Audit Common FSI K2Common KLVStreams MiscSource OrbModule Sockets Timers Utilities/CommandLine)
  file(GLOB_RECURSE sources ${ROOT}/${directory}/*.cpp ${ROOT}/${directory}/*.h)
  list(APPEND LOG_TEXT_SOURCES ${sources})
endforeach()
if(NOT CMAKE_SCRIPT_MODE_FILE)
  return()
endif()

cmake_minimum_required(VERSION 3.25)
set(rows)
foreach(source IN LISTS LOG_TEXT_SOURCES)
  file(READ ${source} text)
  while("${text}" MATCHES "AUDIT_(LOG|STREAM)\\(([A-Za-z0-9]+),[ \n]*\"(([^\"\\\\]|\\\\.)*)\"")
    set(feature ${CMAKE_MATCH_2})
    set(start "${CMAKE_MATCH_3}")
    string(FIND "${text}" "${CMAKE_MATCH_0}" position)
    string(LENGTH "${CMAKE_MATCH_0}" matched)
    math(EXPR position "${position} + ${matched}")
    string(SUBSTRING "${text}" ${position} -1 text)
    string(REGEX REPLACE "(%|\\\\[rnt]).*" "" start "${start}")
    if(NOT start STREQUAL "")
      string(APPEND rows "    {\"${start}\", \"${feature}\"},\n")
    endif()
  endwhile()
endforeach()
file(WRITE ${OUTPUT} "// Made by LogTexts.cmake.\n${rows}    {\"Assert failed in file \", \"Assert\"},\n")
