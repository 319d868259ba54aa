# VELMORIN_SANITIZER=address builds everything with ASan and UBSan;
# VELMORIN_SANITIZER=thread with TSan.
if(VELMORIN_SANITIZER STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
elseif(VELMORIN_SANITIZER STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Asio's atomic_thread_fence: GCC 12 warns that TSan does not model it.
    add_compile_options(-Wno-tsan)
  endif()
  add_link_options(-fsanitize=thread)
elseif(NOT VELMORIN_SANITIZER STREQUAL "")
  message(FATAL_ERROR "VELMORIN_SANITIZER must be '', 'address' or 'thread'")
endif()
