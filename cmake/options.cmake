# Flags that hold for everything that is built here.
add_library(vesk_options INTERFACE)
target_compile_options(vesk_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow
  $<$<BOOL:${VESK_WERROR}>:-Werror>
  # No compiler may fuse a multiplication and an addition on its own: results are the same bits everywhere.
  -ffp-contract=off
  "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/="
  "-ffile-prefix-map=${PROJECT_BINARY_DIR}/=")
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
