# Warnings for our own targets only; nothing of this reaches a user's build.
function(tavrel_warnings target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-qual -Wcast-align
    -Wnon-virtual-dtor -Wold-style-cast -Wundef -Wformat=2 -Wno-format-nonliteral)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # g++ 12 sees an overlap in operator+(const char*, std::string&&) and a local address in a swapped map where there
    # is none.
    target_compile_options(${target} PRIVATE -Wno-restrict -Wno-dangling-pointer)
  endif()
  if(TAVREL_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
