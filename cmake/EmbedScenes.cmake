# cmake -D FROM=Links.scenes -D TO=Links.scenes.h -P: a header with the text of the file.
file(READ ${FROM} text)
get_filename_component(name ${FROM} NAME_WE)
file(WRITE ${TO} "#pragma once\n\ninline constexpr char ${name}Scenes[] = R\"scenes(${text})scenes\";\n")
