# What every target of the project is compiled with, and none of its users.

set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})

if(TORVEX_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "TORVEX_FUZZ needs clang: configure with -DCMAKE_CXX_COMPILER=clang++")
  endif()
  # The node pool gives every node back to the heap, where leaks and misuse are seen.
  string(APPEND CMAKE_CXX_FLAGS " -fsanitize=fuzzer-no-link,address,undefined"
    " -fno-sanitize-recover=all -D_GLIBCXX_ASSERTIONS -DBOOST_POOL_VALGRIND")
endif()

add_library(torvex_compile_options INTERFACE)
target_compile_features(torvex_compile_options INTERFACE cxx_std_17)
target_compile_options(torvex_compile_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow
  # Calls inside a library may be inlined although they are exported.
  -fno-semantic-interposition
  # The same float results on every processor and at every optimisation level.
  -ffp-contract=off)
target_link_libraries(torvex_compile_options INTERFACE Threads::Threads)
