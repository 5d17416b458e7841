# Compiler and linker options, in one place.
#   KOVA_WARNINGS              for all code of the project, C and C++
#   KOVA_LIBRARY_OPTIONS       for the library's own sources
#   KOVA_LIBRARY_LINK_OPTIONS  for the shared library
#   KOVA_OBJECTS_LINK_OPTIONS  for programs that are linked with the library's objects

set(KOVA_WARNINGS
    -Wall -Wextra -Wpedantic -Wshadow -Wformat=2 -Wcast-qual -Wundef -Wvla)
if(KOVA_WERROR)
    list(APPEND KOVA_WARNINGS -Werror)
endif()

# No exceptions and no RTTI, so that no C++ run time is needed; only what is marked for export is
# visible, and calls between our own functions are direct.
set(KOVA_LIBRARY_OPTIONS
    -fno-exceptions -fno-rtti
    -fvisibility=hidden -fvisibility-inlines-hidden -fno-semantic-interposition
    -ffunction-sections -fdata-sections)
# Locks are annotated (foundation/thread_safety.h).
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    list(APPEND KOVA_LIBRARY_OPTIONS -Wthread-safety -Wthread-safety-beta)
endif()
# -Os of GCC leaves these on, although they keep more values alive than a MIPS processor has
# registers for, or lay code out for speed: without them the text is 3 % smaller there (without
# moving of invariants alone 2.6 %, without guesses of probabilities 1 %). Equal constants, which
# nobody tells apart by their address, are kept once.
set(kova_smaller -fno-move-loop-invariants -fno-gcse -fno-shrink-wrap
    -fno-guess-branch-probability -fno-tree-tail-merge -fmerge-all-constants)
# What is called once is inlined however large it makes its caller and the frame: -0.7 %.
list(APPEND kova_smaller --param=large-stack-frame=4096 --param=large-function-insns=20000
    --param=large-function-growth=1000)
# At most 4 statements are copied to spare a jump (of 15), and what a function that is not inlined
# takes besides counts a little: -0.6 % together.
set(kova_smaller_params --param=max-jump-thread-duplication-stmts=4
    --param=uninlined-function-insns=3)
list(APPEND kova_smaller ${kova_smaller_params})
# Link-time optimisation: -9 %. The default of one or two partitions makes nearly every function
# local, whose address takes two instructions of position-independent MIPS code where a hidden
# one's takes one: 16 partitions are 1 % smaller. -Os inlines what it takes to become no larger, and
# takes a call for less than it is there: allowing it 4 instructions more is -2 % (2: -1.7 %, 10:
# +4 %). The objects hold machine code beside, for those who link without: the tests, which stand in
# for calls by name, and the static library.
list(APPEND kova_smaller -flto -ffat-lto-objects --param=max-inline-insns-size=4)
set(kova_smaller_link ${kova_smaller_params} -flto=auto --param=lto-partitions=16 --param=lto-min-partition=1000
    --param=max-inline-insns-size=4)
# Branches that skip their delay slot's instruction when not taken: -0.5 %. Release 6 has none.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "mips" AND NOT CMAKE_SYSTEM_PROCESSOR MATCHES "r6")
    list(APPEND kova_smaller -mbranch-likely)
endif()
# Tried with these and left, as they give nothing or make it larger: -fno-inline-functions-called-once
# (+5 %), -fno-jump-tables, -fipa-pta, -fira-region, -fno-ivopts, -fno-optimize-sibling-calls,
# -fno-tree-ter, -Wl,-O1,
# -mno-check-zero-division (-0.1 %, and a division by zero would go on).
set(KOVA_OBJECTS_LINK_OPTIONS)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    list(APPEND KOVA_LIBRARY_OPTIONS "$<$<CONFIG:MinSizeRel>:${kova_smaller}>")
    set(KOVA_OBJECTS_LINK_OPTIONS "$<$<CONFIG:MinSizeRel>:-fno-lto>")
endif()

set(KOVA_LIBRARY_LINK_OPTIONS
    -Wl,-Bsymbolic-functions -Wl,--gc-sections -Wl,--as-needed
    -Wl,-z,now -Wl,-z,relro -Wl,-z,noexecstack
    "-Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/exports.map")
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    list(APPEND KOVA_LIBRARY_LINK_OPTIONS "$<$<CONFIG:MinSizeRel>:${kova_smaller_link}>")
endif()

# Some linkers align segments for the largest pages that a processor can be set to (64 KiB on
# MIPS), which pads the file; boards have mostly 4 KiB pages.
set(KOVA_PAGE_SIZE "" CACHE STRING "Page size of the board, 4096 for instance; empty: any")
if(KOVA_PAGE_SIZE)
    list(APPEND KOVA_LIBRARY_LINK_OPTIONS
        "-Wl,-z,max-page-size=${KOVA_PAGE_SIZE}" "-Wl,-z,common-page-size=${KOVA_PAGE_SIZE}")
endif()

if(KOVA_SANITIZE)
    add_compile_options("-fsanitize=${KOVA_SANITIZE}" -fno-sanitize-recover=all
        -fno-omit-frame-pointer)
    add_link_options("-fsanitize=${KOVA_SANITIZE}")
else()
    # Under a sanitizer its run time comes from the program, not from the library.
    list(APPEND KOVA_LIBRARY_LINK_OPTIONS -Wl,-z,defs)
endif()

if(KOVA_BUILD_FUZZERS)
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        message(FATAL_ERROR "KOVA_BUILD_FUZZERS needs clang (preset fuzz)")
    endif()
    list(APPEND KOVA_LIBRARY_OPTIONS -fsanitize=fuzzer-no-link)
endif()
