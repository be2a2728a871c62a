# Results are the same bits everywhere, so arithmetic is neither fused nor reordered. The flag below
# comes after those of the environment and wins over them; what it cannot undo is refused.
set(reordering "-Ofast|-ffast-math|-funsafe-math-optimizations|-fassociative-math|-freciprocal-math")
string(APPEND reordering "|-ffinite-math-only|-fno-signed-zeros|-ffp-model=(fast|aggressive)")
string(TOUPPER "${CMAKE_BUILD_TYPE}" type)
foreach(flags CMAKE_C_FLAGS CMAKE_CXX_FLAGS CMAKE_C_FLAGS_${type} CMAKE_CXX_FLAGS_${type}
    CMAKE_EXE_LINKER_FLAGS CMAKE_SHARED_LINKER_FLAGS)
  if(" ${${flags}} " MATCHES " (${reordering}) ")
    message(FATAL_ERROR "${flags} holds ${CMAKE_MATCH_1}: results would no longer be the same bits.")
  endif()
endforeach()

# Flags that hold for everything that is built here.
add_library(vesk_options INTERFACE)
target_compile_options(vesk_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow
  # Clang counts changes of the sign among the conversions; GCC does in C, but not in C++. Where a
  # long has 32 bits, it would also complain of each number that does fit into the usual one.
  $<$<EQUAL:${CMAKE_SIZEOF_VOID_P},8>:-Wsign-conversion>
  # Of sources in one piece, none is the main one.
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<BOOL:$<TARGET_PROPERTY:UNITY_BUILD>>>:-Wno-subobject-linkage>
  $<$<BOOL:${VESK_WERROR}>:-Werror>
  # No compiler may fuse a multiplication and an addition on its own: results are the same bits everywhere.
  -ffp-contract=off)
# The 80-bit registers of older processors keep more digits than are asked for, and change some
# numbers by being moved through them. What the compiler builds for counts, not what `uname` says.
include(CheckSymbolExists)
check_symbol_exists(__i386__ "" VESK_FOR_I386)
if(VESK_FOR_I386)
  target_compile_options(vesk_options INTERFACE -msse2 -mfpmath=sse)
endif()
# What is built tells nothing about where; only the counters of coverage must find their sources.
if(NOT VESK_COVERAGE)
  target_compile_options(vesk_options INTERFACE
    "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/="
    "-ffile-prefix-map=${PROJECT_BINARY_DIR}/=")
endif()
target_compile_definitions(vesk_options INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64)
if(VESK_SANITIZE)
  target_compile_options(vesk_options INTERFACE
    -fsanitize=${VESK_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(vesk_options INTERFACE -fsanitize=${VESK_SANITIZE})
endif()
if(VESK_FUZZ)
  target_compile_options(vesk_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(VESK_COVERAGE)
  target_compile_options(vesk_options INTERFACE --coverage -fprofile-abs-path)
  target_link_options(vesk_options INTERFACE --coverage)
endif()
