# What all targets of the tree share: warnings, sanitizers, the include roots.

find_program(VORN_CCACHE ccache)
if(VORN_CCACHE)
    set(CMAKE_C_COMPILER_LAUNCHER ${VORN_CCACHE})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${VORN_CCACHE})
endif()

add_library(vorn_options INTERFACE)
target_compile_options(vorn_options INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow
    $<$<BOOL:${VORN_WERROR}>:-Werror>)
# "kiv/kiv.h", "vorni/header.h", "trace/trace.h": a header is named by its folder.
target_include_directories(vorn_options INTERFACE
    ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/platform ${PROJECT_SOURCE_DIR}/interfaces)
target_link_libraries(vorn_options INTERFACE Threads::Threads)

if(VORN_SANITIZE)
    add_compile_options(-fsanitize=${VORN_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${VORN_SANITIZE})
endif()

# vorn_library(NAME source...): a static library with the options above.
function(vorn_library name)
    add_library(${name} STATIC ${ARGN})
    target_link_libraries(${name} PUBLIC vorn_options)
endfunction()

# vorn_program(NAME source...): a program with the options above.
function(vorn_program name)
    add_executable(${name} ${ARGN})
    target_link_libraries(${name} PRIVATE vorn_options)
endfunction()
