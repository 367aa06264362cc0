# Unity batches: a target's sources compiled a few at a time as one file, so
# the templates they share (JSON, Asio, GoogleTest, the standard library) are
# instantiated and optimised once a batch instead of once a file. Most of a
# cold build's time goes there, not into parsing.
#
# The files of a batch share one scope: a file-local name (anonymous
# namespace, static) that two files of one target define would merge, and a
# call could silently take the neighbour's better-matching overload.
# scripts/check-file-locals.py keeps those names unique per target (the
# FileLocalNames test); a file that cannot follow is marked
# SKIP_UNITY_BUILD_INCLUSION and compiles alone.
#
# TSL_UNITY=OFF compiles every file on its own (to find which file of a batch
# a message is about, or to prove a batch changes nothing).
option(TSL_UNITY "Compile sources in unity batches" ON)
# Twelve: larger batches repeat the shared templates less (16 instead of 8
# saved an eighth) but rebuild more after a one-file change.
set(tsl_unity_batch 12)

# tsl_unity_batches(<out-var> <name> <sources...>): the sources as batch files
# that include them, plus those marked SKIP_UNITY_BUILD_INCLUSION. CMake's own
# unity files include each source by its absolute path, so a clone in another
# folder would miss the compiler cache for every batch; these include by a
# path relative to the batch file, the same in every clone.
function(tsl_unity_batches out name)
  if(NOT TSL_UNITY)
    set(${out} ${ARGN} PARENT_SCOPE)
    return()
  endif()
  set(dir ${CMAKE_CURRENT_BINARY_DIR}/Unity)
  set(result)
  set(content "")
  set(count 0)
  set(index 0)
  foreach(source ${ARGN})
    get_source_file_property(alone ${source} SKIP_UNITY_BUILD_INCLUSION)
    if(alone)
      list(APPEND result ${source})
      continue()
    endif()
    file(RELATIVE_PATH relative ${dir} ${source})
    string(APPEND content "#include \"${relative}\"\n")
    math(EXPR count "${count} + 1")
    if(count EQUAL tsl_unity_batch)
      file(CONFIGURE OUTPUT ${dir}/${name}_${index}.cpp CONTENT "${content}" @ONLY)
      list(APPEND result ${dir}/${name}_${index}.cpp)
      math(EXPR index "${index} + 1")
      set(content "")
      set(count 0)
    endif()
  endforeach()
  if(count GREATER 0)
    file(CONFIGURE OUTPUT ${dir}/${name}_${index}.cpp CONTENT "${content}" @ONLY)
    list(APPEND result ${dir}/${name}_${index}.cpp)
  endif()
  set(${out} ${result} PARENT_SCOPE)
endfunction()
