# Options, compiler flags and tools that every target of orvo shares.
include(CheckLinkerFlag)

option(ORVO_WERROR "Treat warnings as errors" ON)
option(ORVO_TESTS "Build the tests" ON)
option(ORVO_EXAMPLES "Build the examples and check the XML that they write" ON)
option(ORVO_BENCH "Build the benchmarks" OFF)
option(ORVO_FUZZ "Build the fuzz targets with libFuzzer; needs clang" OFF)
option(ORVO_COVERAGE "Instrument for gcov" OFF)
set(ORVO_SANITIZE "" CACHE STRING "Sanitizers, as for -fsanitize=: address,undefined or thread")
set(ORVO_TEST_SHARDS 0 CACHE STRING "Run orvo_tests as so many ctest tests; 0 makes every case a ctest test of its own")

if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Release, Debug or Sanitize" FORCE)
endif()
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_CXX_FLAGS_DEBUG "-Og -g")
set(CMAKE_CXX_FLAGS_SANITIZE "-O1 -g1 -fno-omit-frame-pointer")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)

# RUNPATH, not RPATH: a user's LD_LIBRARY_PATH keeps its say.
add_link_options(-Wl,--enable-new-dtags)

if(NOT CMAKE_CXX_COMPILER_LAUNCHER)
    find_program(ORVO_CCACHE ccache)
    if(ORVO_CCACHE)
        set(CMAKE_CXX_COMPILER_LAUNCHER ${ORVO_CCACHE})
    endif()
endif()

foreach(linker mold lld)
    check_linker_flag(CXX -fuse-ld=${linker} ORVO_HAS_LINKER_${linker})
    if(ORVO_HAS_LINKER_${linker})
        add_link_options(-fuse-ld=${linker})
        break()
    endif()
endforeach()

if(ORVO_SANITIZE)
    add_compile_options(-fsanitize=${ORVO_SANITIZE} -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${ORVO_SANITIZE})
endif()
if(ORVO_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()
if(ORVO_COVERAGE)
    add_compile_options(--coverage)
    add_link_options(--coverage)
endif()

# Assertions name sources relative to the source tree, whichever folder it stands in.
add_compile_options(-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)

# The warnings that hold for all code of this project, never for those who link it; and one rounding of floating
# point everywhere, whatever the machine's fused instructions.
function(orvo_private_flags target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow -Wconversion -ffp-contract=off)
    if(ORVO_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
endfunction()
