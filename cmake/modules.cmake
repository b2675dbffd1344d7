# Modules: shared objects that the programs load when they first need them. morvane_module(NAME ...) makes
# libexec/morvane/NAME.so, in the build tree as installed. What EXPORTS does not name stays inside: two copies of a
# library in one process never meet.
#
#   morvane_module(morvane-sqlite EXPORTS sqlite3_open_v2 ... LINK libsqlite3.a m [SOURCES file.cc])
#
# Names of an archive that nothing else asks for are taken from it because they are exported.
include(GNUInstallDirs)
set(MORVANE_MODULE_DIR ${CMAKE_INSTALL_FULL_LIBEXECDIR}/morvane)

function(morvane_module name)
    cmake_parse_arguments(MODULE "" "" "SOURCES;EXPORTS;LINK" ${ARGN})
    if(NOT MODULE_SOURCES)
        set(MODULE_SOURCES ${CMAKE_CURRENT_BINARY_DIR}/${name}.cc)
        file(CONFIGURE OUTPUT ${MODULE_SOURCES} CONTENT "// Everything in this module comes from what it links.\n")
    endif()
    list(JOIN MODULE_EXPORTS "; " exports)
    file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/${name}.map CONTENT "{ global: ${exports}; local: *; };\n")
    list(TRANSFORM MODULE_EXPORTS PREPEND "LINKER:-u," OUTPUT_VARIABLE wanted)
    add_library(${name} MODULE ${MODULE_SOURCES})
    set_target_properties(${name} PROPERTIES PREFIX "" LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/libexec/morvane
                          LINK_DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/${name}.map)
    target_link_options(${name} PRIVATE ${wanted} LINKER:--version-script=${CMAKE_CURRENT_BINARY_DIR}/${name}.map
                        LINKER:--gc-sections -static-libstdc++ -static-libgcc)
    target_link_libraries(${name} PRIVATE ${MODULE_LINK})
    install(TARGETS ${name} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/morvane)
endfunction()
