# How the tree is compiled and linked, chosen for a cold build's time.
#
# RelWithDebInfo (release, tsan, fuzz) keeps line tables and function names
# (-g1): backtraces and sanitizer reports still name file and line, and
# writing full debug information was a sixth of those builds' time. The
# Debug build (asan) keeps everything for the debugger.
if(CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo")
  add_compile_options(-g1)
endif()

# lld links in a fraction of the time of the default linker, the test
# programs above all (Debian package lld).
find_program(TSL_LLD ld.lld)
if(TSL_LLD)
  add_link_options(-fuse-ld=lld)
endif()
