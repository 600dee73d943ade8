# Warnings and sanitizers that every target of the project is built with. Link
# `tally_options` to get the warnings; generated code (rpcgen) does not.

# Optimising what runs once takes longer than it ever runs: the reading of command lines, which keeps enough
# for _FORTIFY_SOURCE, and the tests. What these link against is optimised as it is shipped.
set(TALLYD_RUNS_ONCE "$<$<CONFIG:Release,RelWithDebInfo>:-O1>")
set(TALLYD_TEST_OPTIONS "$<$<CONFIG:Release,RelWithDebInfo>:-O0>")
if(TALLYD_SANITIZE)
  set(TALLYD_TEST_OPTIONS -O0)
endif()

add_library(tally_options INTERFACE)
target_compile_options(tally_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(TALLYD_WERROR)
  target_compile_options(tally_options INTERFACE -Werror)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # Proves the lock discipline that the annotations in daemon/base/mutex.h describe.
  target_compile_options(tally_options INTERFACE -Wthread-safety)
endif()

if(TALLYD_SANITIZE)
  add_compile_options(-fsanitize=${TALLYD_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${TALLYD_SANITIZE})
  if(TALLYD_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()

if(TALLYD_FUZZERS)
  # Coverage counters in every target: the fuzzing engine is guided by the code of the rooms.
  add_compile_options(-fsanitize=fuzzer-no-link)
  add_link_options(-fsanitize=fuzzer-no-link)
endif()
