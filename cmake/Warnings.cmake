# Warnings for the project's own targets: velmorin_warnings(<target>).
function(velmorin_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow
    -Wnon-virtual-dtor -Wold-style-cast -Wcast-align -Woverloaded-virtual
    -Wnull-dereference -Wformat=2 -Wimplicit-fallthrough)
  if(VELMORIN_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
      # GCC 12's flow-sensitive checks report false positives inside libstdc++'s
      # own string and regex code depending on the optimisation level and
      # sanitizers. They stay visible as warnings but do not fail the build.
      target_compile_options(${target} PRIVATE -Wno-error=array-bounds
        -Wno-error=stringop-overflow -Wno-error=restrict -Wno-error=maybe-uninitialized)
    endif()
  endif()
endfunction()
