# Warnings for our own targets only; nothing of this reaches a user's build.
function(tavrel_warnings target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-qual -Wcast-align
    -Wnon-virtual-dtor -Wold-style-cast -Wundef -Wformat=2)
  if(TAVREL_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
