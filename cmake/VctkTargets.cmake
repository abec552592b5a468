# Helpers that keep each library, test and benchmark to one call.

# Under the emulator vctk_test leaves out what this list names.
if(CMAKE_CROSSCOMPILING_EMULATOR)
  set(VCTK_NOT_EMULATED_FILE ${CMAKE_SOURCE_DIR}/tests/not_emulated.txt)
  file(STRINGS ${VCTK_NOT_EMULATED_FILE} VCTK_NOT_EMULATED REGEX "^[^#]")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${VCTK_NOT_EMULATED_FILE})
endif()

# vctk_hide_symbols(TARGET MAP): the shared library TARGET exports what the version script MAP
# lists and nothing else; no symbol is unique, so that unloading works.
function(vctk_hide_symbols target map)
  set_target_properties(${target} PROPERTIES
    C_VISIBILITY_PRESET hidden CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
    LINK_DEPENDS ${map})
  target_link_options(${target} PRIVATE LINKER:--version-script=${map})
endfunction()

# The interface is compared with its reference in optimised builds by g++: others describe it in other
# words.
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_BUILD_TYPE STREQUAL Release AND NOT VCTK_SANITIZE)
  set(VCTK_ABI_GUARDED ON)
endif()

# vctk_guard_abi(SOURCE...): the sources that define exported functions carry debug information, from
# which tests/contract reads the interface. Installing for packages strips it.
function(vctk_guard_abi)
  if(VCTK_ABI_GUARDED)
    set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS -g)
  endif()
endfunction()

# vctk_test(NAME stem SOURCES file... [LIBS lib...] [LABELS label...] [ENV VAR=value...]
#           [DEPENDS target...] [SANDBOX])
# A gtest program `stem`, run by ctest under that name. SANDBOX gives it a mount and network
# namespace of its own in which /tmp is empty, /var, /opt and /usr/local may be added to, and
# the loopback interface is up (tests/support/sandbox.cpp). What the thread sanitizer can learn from
# has the label "threads" and is built by the target thread_tests; a forked child may start threads
# though one of its parent's had not quite ended (die_after_fork=0). No test asks for a PIN or a
# certificate on the terminal that it happens to be started from.
add_custom_target(thread_tests)
set(tsan_options halt_on_error=1:die_after_fork=0)
set(no_dialog VEL_PINENTRY=/nonexistent/pinentry VEL_CERT_DIALOG=none)
function(vctk_test)
  cmake_parse_arguments(T "SANDBOX" "NAME" "SOURCES;LIBS;LABELS;ENV;DEPENDS" ${ARGN})
  add_executable(${T_NAME} ${T_SOURCES})
  target_link_libraries(${T_NAME} PRIVATE ${T_LIBS} vctk_warnings GTest::gmock GTest::gtest_main)
  set_target_properties(${T_NAME} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin/tests)
  # What is tested is optimised as the build says; the tests' own code would take a third of the build.
  target_compile_options(${T_NAME} PRIVATE -O0)
  if(NOT T_SOURCES MATCHES "[.]c(;|$)")  # C would need one of its own
    target_precompile_headers(${T_NAME} REUSE_FROM gtest_header)
  endif()
  if(T_DEPENDS)
    add_dependencies(${T_NAME} ${T_DEPENDS})
  endif()
  if("threads" IN_LIST T_LABELS)
    add_dependencies(thread_tests ${T_NAME})
  endif()
  set(command ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${T_NAME}>)
  if(T_SANDBOX)
    add_dependencies(${T_NAME} sandbox)
    set(command ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:sandbox>
        ${CMAKE_BINARY_DIR} ${CMAKE_SOURCE_DIR} -- ${command})
  endif()
  add_test(NAME ${T_NAME} COMMAND ${command})
  set_tests_properties(${T_NAME} PROPERTIES
    LABELS "${T_LABELS}" TIMEOUT 1800 SKIP_RETURN_CODE 77
    ENVIRONMENT "LC_ALL=C.UTF-8;LANGUAGE=;TZ=UTC;TSAN_OPTIONS=${tsan_options};${no_dialog};${T_ENV}")
  set(cases ${VCTK_NOT_EMULATED})
  list(FILTER cases INCLUDE REGEX "^${T_NAME} ")
  list(TRANSFORM cases REPLACE "^[^ ]+ +([^ ]+) .*" "\\1")
  list(JOIN cases ":" cases)
  if(cases)
    set_property(TEST ${T_NAME} APPEND PROPERTY ENVIRONMENT "GTEST_FILTER=-${cases}")
  endif()
endfunction()

# vctk_program(TARGET VARIABLE): sets VARIABLE to what a test starts to run the program TARGET: the
# program itself or, where it is built for another processor, a script that runs it in the emulator.
function(vctk_program target variable)
  set(program $<TARGET_FILE:${target}>)
  if(CMAKE_CROSSCOMPILING_EMULATOR)
    set(script ${CMAKE_BINARY_DIR}/bin/emulated/${target})
    get_property(made GLOBAL PROPERTY VCTK_SCRIPT_OF_${target})
    if(NOT made)
      file(GENERATE OUTPUT ${script}
           CONTENT "#!/bin/sh\nexec ${CMAKE_CROSSCOMPILING_EMULATOR} ${program} \"$@\"\n"
           FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
      set_property(GLOBAL PROPERTY VCTK_SCRIPT_OF_${target} YES)
    endif()
    set(program ${script})
  endif()
  set(${variable} ${program} PARENT_SCOPE)
endfunction()

# vctk_bench(NAME stem SOURCES file... [LIBS lib...]): a Google Benchmark program.
function(vctk_bench)
  cmake_parse_arguments(B "" "NAME" "SOURCES;LIBS" ${ARGN})
  add_executable(${B_NAME} ${B_SOURCES})
  target_link_libraries(${B_NAME} PRIVATE ${B_LIBS} vctk_warnings benchmark::benchmark)
  set_target_properties(${B_NAME} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin/bench)
endfunction()
