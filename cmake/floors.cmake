# The floors of the house. morvane_floor(NAME ...) makes one library whose headers can be included only
# by targets that link it: each floor has an include root of its own in the build tree, filled with links
# to its headers, so that an include that points up (or sideways) fails to build.
#
#   morvane_floor(tf DIR src/lib/tf PREFIX tf HEADERS record.h file.h SOURCES record.cc LINK im er)
#
# gives `#include "tf/record.h"` to whoever links tf. PREFIX is the folder name that includes spell.
function(morvane_floor name)
    cmake_parse_arguments(FLOOR "" "DIR;PREFIX" "HEADERS;SOURCES;LINK;PRIVATE_LINK" ${ARGN})
    set(root ${CMAKE_BINARY_DIR}/floors/${name})
    set(headers "")
    foreach(header IN LISTS FLOOR_HEADERS)
        file(MAKE_DIRECTORY ${root}/${FLOOR_PREFIX})
        file(CREATE_LINK ${CMAKE_SOURCE_DIR}/${FLOOR_DIR}/${header} ${root}/${FLOOR_PREFIX}/${header} SYMBOLIC)
        list(APPEND headers ${CMAKE_SOURCE_DIR}/${FLOOR_DIR}/${header})
    endforeach()
    if(FLOOR_SOURCES)
        list(TRANSFORM FLOOR_SOURCES PREPEND ${CMAKE_SOURCE_DIR}/${FLOOR_DIR}/)
        add_library(${name} STATIC ${FLOOR_SOURCES} ${headers})
        target_include_directories(${name} PUBLIC ${root})
        target_link_libraries(${name} PUBLIC ${FLOOR_LINK} PRIVATE morvane_flags ${FLOOR_PRIVATE_LINK})
    else()
        add_library(${name} INTERFACE)
        target_include_directories(${name} INTERFACE ${root})
        target_link_libraries(${name} INTERFACE ${FLOOR_LINK})
    endif()
endfunction()
