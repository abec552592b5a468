# Compiler flags for every target of the project: warnings, sanitizers, a compiler cache.
# Targets take the warnings with `target_link_libraries(x PRIVATE vctk_warnings)`.

add_library(vctk_warnings INTERFACE)
target_compile_options(vctk_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wformat=2 -Wundef -Wcast-qual
  $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual -Wextra-semi>
  # The slots that cross to the device library have no room for virtual destructors.
  $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wno-delete-non-abstract-non-virtual-dtor>
  $<$<BOOL:${VCTK_WERROR}>:-Werror>)

if(VCTK_SANITIZE)
  # A foreign device library carries no type information, so dynamic types are not looked at.
  # The leak checker takes a thread-local block of a loaded library for another kind of block when
  # its address is 16 past a page, one in 256, and crashes; in the initial model there are none.
  add_compile_options(-fsanitize=${VCTK_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer
                      -ftls-model=initial-exec $<$<COMPILE_LANGUAGE:CXX>:-fno-sanitize=vptr>)
  add_link_options(-fsanitize=${VCTK_SANITIZE})
else()
  add_link_options(LINKER:--no-undefined)
endif()

if(VCTK_PACKAGES)
  # What is built does not tell in which folder it was built.
  foreach(folder ${CMAKE_SOURCE_DIR}=. ${CMAKE_BINARY_DIR}=build)
    add_compile_options(-ffile-prefix-map=${folder})
  endforeach()
  set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
endif()

if(VCTK_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# Packages are compiled anew: a cache may write other paths into the debug information, and a second
# build that takes the objects of the first proves nothing.
# Elsewhere the cache believes the compiler's list of what it read, instead of preprocessing every source
# once more, and takes a precompiled header for what is in it: it may, as no source has a __TIME__ in it.
find_program(VCTK_CCACHE ccache)
if(VCTK_CCACHE AND NOT VCTK_PACKAGES AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(launcher env CCACHE_DEPEND=1 CCACHE_SLOPPINESS=pch_defines,time_macros ${VCTK_CCACHE})
  set(CMAKE_C_COMPILER_LAUNCHER ${launcher})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${launcher})
endif()
