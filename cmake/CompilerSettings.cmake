# Compiler settings of all targets.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE Release)
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
    set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()

option(ORVIK_WARNINGS_AS_ERRORS "Treat warnings as errors" ON)
set(ORVIK_SANITIZE "" CACHE STRING "Sanitizers to build with: address,undefined or thread")

add_compile_options(
    -Wall -Wextra -Wconversion -Wno-sign-conversion -Wnon-virtual-dtor
    # Interface methods name the parameters that their overriders use.
    -Wno-unused-parameter
    # Same results everywhere: fusing a multiply and an add, where the machine can, changes them.
    -ffp-contract=off
    -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
if(ORVIK_WARNINGS_AS_ERRORS)
    add_compile_options(-Werror)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # GCC 12 reports these for correct code once it inlines Result, Delegate and std::string.
    add_compile_options(-Wno-maybe-uninitialized -Wno-dangling-pointer -Wno-array-bounds -Wno-stringop-overflow
                        -Wno-restrict)
endif()
# Do not load libraries of which only headers are used.
add_link_options(-Wl,--as-needed)
if(ORVIK_SANITIZE)
    add_compile_options(-fsanitize=${ORVIK_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${ORVIK_SANITIZE})
endif()
