# Warnings for the project's own targets: velmorin_warnings(<target>).
function(velmorin_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow
    -Wnon-virtual-dtor -Wold-style-cast -Wcast-align -Woverloaded-virtual
    -Wnull-dereference -Wformat=2 -Wimplicit-fallthrough)
  if(VELMORIN_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
