# libFuzzer targets under AddressSanitizer and UndefinedBehaviorSanitizer,
# built only by clang with -DVORN_FUZZ=ON. Each target is also a ctest test
# (label "fuzz") that fuzzes for VORN_FUZZ_SECONDS from its seed corpus and
# fails on a crash; new inputs and crash files stay in the build directory.
option(VORN_FUZZ "Build the libFuzzer targets (clang only)" OFF)
if(NOT VORN_FUZZ)
  return()
endif()
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  message(FATAL_ERROR "VORN_FUZZ needs clang: configure with CXX=clang++")
endif()
set(VORN_FUZZ_SECONDS 5 CACHE STRING "Seconds each fuzz target runs as a test")

# The library again, instrumented for coverage and built with VORN_FUZZ,
# which bounds loops and refuses the commands that reach outside the process.
set(VORN_FUZZ_SANITIZERS -fsanitize=address,undefined -fno-sanitize-recover=all)
add_library(vorn_fuzz_core STATIC ${VORN_SOURCES})
target_include_directories(vorn_fuzz_core PUBLIC ${PROJECT_SOURCE_DIR}/src ${LIBPQ_INCLUDE_DIRS})
target_compile_definitions(vorn_fuzz_core PUBLIC VORN_FUZZ)
target_compile_options(vorn_fuzz_core PUBLIC ${VORN_FUZZ_SANITIZERS} -fno-omit-frame-pointer
                       PRIVATE -fsanitize=fuzzer-no-link)
target_link_libraries(vorn_fuzz_core PUBLIC ${VORN_LIBRARIES})

add_custom_target(vorn_fuzzers)
set(fuzz_src ${CMAKE_CURRENT_SOURCE_DIR}/fuzz)
foreach(target urlencoded form_data cookie substitution expression dates wildcard page
               fcgi_records)
  # The harness itself is not instrumented: only the library's coverage
  # counts, and the page harness reads the counters' bounds, which an
  # instrumented file must not name.
  add_executable(fuzz_${target} fuzz/${target}.cpp)
  target_link_options(fuzz_${target} PRIVATE -fsanitize=fuzzer ${VORN_FUZZ_SANITIZERS})
  target_link_libraries(fuzz_${target} PRIVATE vorn_fuzz_core)
  add_dependencies(vorn_fuzzers fuzz_${target})

  set(work ${CMAKE_CURRENT_BINARY_DIR}/fuzz/${target})
  set(dict)
  if(EXISTS ${fuzz_src}/${target}.dict)
    set(dict -dict=${fuzz_src}/${target}.dict)
  endif()
  # The work corpus comes first: libFuzzer writes new inputs only there,
  # never into the seeds of the source tree.
  file(MAKE_DIRECTORY ${work}/corpus)
  add_test(NAME fuzz/${target}
           COMMAND $<TARGET_FILE:fuzz_${target}> -max_total_time=${VORN_FUZZ_SECONDS}
                   -timeout=10 -rss_limit_mb=2048 -print_final_stats=1
                   -artifact_prefix=${work}/ ${dict} ${work}/corpus ${fuzz_src}/corpus/${target})
  set_tests_properties(fuzz/${target} PROPERTIES LABELS fuzz)
endforeach()
