# A fuzzing build: clang, and every library compiled with coverage instrumentation and the
# address and undefined-behaviour sanitizers, so that the fuzz targets link the same libraries
# as the programs do.
if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  message(FATAL_ERROR "LCFD_BUILD_FUZZERS needs clang: configure with CC=clang CXX=clang++")
endif()
set(LCFD_FUZZ_SANITIZERS address,undefined)
add_compile_options(
  -fsanitize=fuzzer-no-link,${LCFD_FUZZ_SANITIZERS}
  # Undefined behaviour stops the run like a crash, so libFuzzer keeps the input.
  -fno-sanitize-recover=all
  -fno-omit-frame-pointer
  -g)
add_link_options(-fsanitize=${LCFD_FUZZ_SANITIZERS})
