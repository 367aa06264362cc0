if(TSL_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(TSL_SANITIZE STREQUAL "thread")
  # Asio fences its handler calls with atomic_thread_fence, which TSan does not
  # model (GCC warns); its queues synchronise through mutexes, which TSan sees.
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer -Wno-tsan)
  add_link_options(-fsanitize=thread)
elseif(TSL_SANITIZE STREQUAL "fuzzer")
  # Libraries get the coverage hooks; fuzz/ links libFuzzer's main into each target.
  # Clang 14 cannot emit UBSan's function-type check for coroutines (a backend
  # error), so that one check is off.
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize=function
    -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(NOT TSL_SANITIZE STREQUAL "")
  message(FATAL_ERROR "TSL_SANITIZE must be address, thread, fuzzer or empty")
endif()
