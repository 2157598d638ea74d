# Warnings are errors for our own code; the sanitizer, if any, applies to everything in the tree.
add_library(tessel_warnings INTERFACE)
target_compile_options(tessel_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wcast-align -Werror)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    # A Shared field stays an aggregate, so it cannot declare the copying that it has.
    target_compile_options(tessel_warnings INTERFACE -Wno-deprecated-copy)
endif()

if(TESSEL_SANITIZER STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
elseif(TESSEL_SANITIZER STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer -Wno-tsan)  # fences, of memory shared by processes
    add_link_options(-fsanitize=thread)
elseif(TESSEL_SANITIZER STREQUAL "fuzzer")  # with clang
    add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
elseif(TESSEL_SANITIZER)
    message(FATAL_ERROR "TESSEL_SANITIZER is '${TESSEL_SANITIZER}': use address, thread or fuzzer")
endif()
if(TESSEL_SANITIZER AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-maybe-uninitialized)  # g++ 12 warns of its own library there
endif()
