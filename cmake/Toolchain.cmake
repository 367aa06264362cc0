# How the tree is compiled and linked, chosen for a cold build's time.
#
# Every preset keeps line tables and function names only (-g1): backtraces
# and sanitizer reports still name file and line, and writing full debug
# information was a sixth of the optimised builds' time and more of the
# unoptimised asan build's. -DTSL_LINE_TABLES=OFF gives a debugger its
# view of variables back.
option(TSL_LINE_TABLES "Debug information as line tables only (-g1)" ON)
if(TSL_LINE_TABLES AND CMAKE_BUILD_TYPE MATCHES "^(RelWithDebInfo|Debug)$")
  add_compile_options(-g1)
endif()

# lld links in a fraction of the time of the default linker, the test
# programs above all (Debian package lld).
find_program(TSL_LLD ld.lld)
if(TSL_LLD)
  add_link_options(-fuse-ld=lld)
endif()
