# Flags of our own targets. Nothing here reaches a consumer of the library.
#
#   tolvane_build_flags(target...)  warnings, sanitizers and language level
#
# Sanitizers are chosen with TOLVANE_SANITIZE (a comma-separated list) and apply to the whole build,
# GoogleTest included, because a sanitizer sees only what was compiled with it.

if(TOLVANE_SANITIZE)
  add_compile_options(-fsanitize=${TOLVANE_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${TOLVANE_SANITIZE})
  if(TOLVANE_SANITIZE MATCHES "undefined")
    # A number out of range for its type is undefined as well, but not part of the group.
    add_compile_options(-fsanitize=float-cast-overflow -fno-sanitize-recover=all)
    add_link_options(-fsanitize=float-cast-overflow)
  endif()
endif()

function(tolvane_build_flags)
  foreach(target IN LISTS ARGN)
    target_compile_features(${target} PRIVATE cxx_std_20)
    set_target_properties(${target} PROPERTIES
      CXX_EXTENSIONS OFF
      CXX_VISIBILITY_PRESET hidden
      VISIBILITY_INLINES_HIDDEN ON)
    if(MINGW)
      # printf and its family take the C99 formats (%lld, %zu, %lf) everywhere.
      target_compile_definitions(${target} PRIVATE __USE_MINGW_ANSI_STDIO=1)
    endif()
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT WIN32)
      # A static of a template of the standard library would be one symbol for the whole process,
      # and whatever defines such a symbol is never unmapped again.
      target_compile_options(${target} PRIVATE -fno-gnu-unique)
    endif()
    target_compile_options(${target} PRIVATE
      -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
      -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wundef -Wvla
      # typeid(*pointer) evaluates its operand, and that is what it is for here.
      $<$<CXX_COMPILER_ID:Clang>:-Wno-potentially-evaluated-expression>
      $<$<BOOL:${TOLVANE_WARNINGS_AS_ERRORS}>:-Werror>)
    if(TOLVANE_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
      # What a sanitizer puts in between makes GCC warn of its own library's code.
      target_compile_options(${target} PRIVATE
        -Wno-array-bounds -Wno-maybe-uninitialized -Wno-restrict -Wno-stringop-overflow)
    endif()
  endforeach()
endfunction()
