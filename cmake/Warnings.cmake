# Every target of ours links this: warnings are errors for our code only.
add_library(tsl_warnings INTERFACE)
target_compile_options(tsl_warnings INTERFACE -Wall -Wextra -Werror -Wno-missing-field-initializers)
# GCC 12 pairs Asio's coroutine-frame operator delete with the wrong new when
# it inlines a frame (a known false alarm), so the check is off for us.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(tsl_warnings INTERFACE -Wno-mismatched-new-delete)
  # In a unity batch GCC takes each included source for a header and warns of
  # every file-local type a coroutine frame holds; alone, the files are clean.
  target_compile_options(tsl_warnings INTERFACE -Wno-subobject-linkage)
endif()
# With sanitizers GCC 12 warns of "maybe uninitialized" values that are set on
# every path (its flow analysis loses track through the instrumented code, in
# std::optional and coroutine frames above all). The normal build keeps the check.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT TSL_SANITIZE STREQUAL "")
  target_compile_options(tsl_warnings INTERFACE -Wno-maybe-uninitialized)
endif()
