# Writes the files of the page as C++, so that they are part of the program.
#
# cmake -DDIRECTORY=directory -DOUTPUT=file -P EmbedPage.cmake
cmake_minimum_required(VERSION 3.25)

set(arrays)
set(rows)
file(GLOB files RELATIVE ${DIRECTORY} ${DIRECTORY}/*)
list(SORT files)
foreach(file IN LISTS files)
  file(READ ${DIRECTORY}/${file} bytes HEX)
  file(SHA256 ${DIRECTORY}/${file} hash)
  string(SUBSTRING ${hash} 0 16 hash)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
  string(MAKE_C_IDENTIFIER ${file} name)
  string(APPEND arrays "constexpr unsigned char ${name}[] = {${bytes}};\n")
  string(APPEND rows "    {\"${file}\", \"\\\"${hash}\\\"\", ${name}, sizeof ${name}},\n")
endforeach()
file(WRITE ${OUTPUT} "// Made by EmbedPage.cmake.\n${arrays}constexpr PageFile Files[] = {\n${rows}};\n")
