if(TSL_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(TSL_SANITIZE STREQUAL "thread")
  # Asio fences its handler calls with atomic_thread_fence, which TSan does not
  # model (GCC warns); its queues synchronise through mutexes, which TSan sees.
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer -Wno-tsan)
  add_link_options(-fsanitize=thread)
elseif(NOT TSL_SANITIZE STREQUAL "")
  message(FATAL_ERROR "TSL_SANITIZE must be address, thread or empty")
endif()
