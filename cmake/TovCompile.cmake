# What every target is compiled with. Nothing here reaches a user of the installed package.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

add_library(tov_warnings INTERFACE)
target_compile_options(tov_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
    -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wundef -Wimplicit-fallthrough)

# Paths of the build machine stay out of the binaries.
add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)

if(TOV_SANITIZE)
    add_compile_options(-fsanitize=${TOV_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${TOV_SANITIZE})
else()
    # Not under sanitizers: clang++ leaves their functions to the program.
    add_link_options(-Wl,-z,defs)
endif()

# Limits what a library exports to the names in cmake/TARGET.map.
function(tov_export_map target)
    set(map ${PROJECT_SOURCE_DIR}/cmake/${target}.map)
    target_link_options(${target} PRIVATE -Wl,--version-script=${map})
    set_target_properties(${target} PROPERTIES LINK_DEPENDS ${map})
endfunction()
