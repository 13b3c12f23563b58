# Compiler and linker flags of every target: warnings, hardening of release builds, and the
# sanitizer build. Included once from the top-level CMakeLists.txt, before any target.
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
include(CheckLinkerFlag)
include(CheckPIESupported)

# Adds each flag that the compiler accepts (checked once, cached) to the list `out`.
function(lcfd_supported_flags out)
  set(accepted "")
  foreach(flag IN LISTS ARGN)
    string(MAKE_C_IDENTIFIER "LCFD_CXX_HAS${flag}" var)
    check_cxx_compiler_flag("${flag}" ${var})
    if(${var})
      list(APPEND accepted "${flag}")
    endif()
  endforeach()
  set(${out} "${accepted}" PARENT_SCOPE)
endfunction()

# --- Warnings ---------------------------------------------------------------------------------
# Every target of the project, tests, tools, benchmarks and fuzzers included. Third-party
# headers come in through imported targets, whose include directories are SYSTEM, so their
# own warnings do not count.
set(LCFD_WARNING_FLAGS -Wall -Wextra -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
                       -Wnon-virtual-dtor -Wformat=2)
# GCC only; clang does not know them.
lcfd_supported_flags(gcc_warnings -Wduplicated-cond -Wlogical-op)
list(APPEND LCFD_WARNING_FLAGS ${gcc_warnings})
add_compile_options(${LCFD_WARNING_FLAGS})
if(LCFD_WERROR)
  add_compile_options(-Werror)
endif()

# --- Sanitizers -------------------------------------------------------------------------------
option(LCFD_SANITIZE "Build everything with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
if(LCFD_SANITIZE)
  set(LCFD_SANITIZER_FLAGS -fsanitize=address,undefined -fno-omit-frame-pointer
                           -fno-sanitize-recover=all)
  set(CMAKE_REQUIRED_LINK_OPTIONS -fsanitize=address,undefined)
  string(REPLACE ";" " " CMAKE_REQUIRED_FLAGS "${LCFD_SANITIZER_FLAGS}")
  check_cxx_source_compiles("int main() { return 0; }" LCFD_CXX_HAS_SANITIZERS)
  unset(CMAKE_REQUIRED_FLAGS)
  unset(CMAKE_REQUIRED_LINK_OPTIONS)
  if(NOT LCFD_CXX_HAS_SANITIZERS)
    message(FATAL_ERROR "LCFD_SANITIZE: ${CMAKE_CXX_COMPILER} cannot build with "
                        "${LCFD_SANITIZER_FLAGS}")
  endif()
  add_compile_options(${LCFD_SANITIZER_FLAGS})
  add_link_options(-fsanitize=address,undefined)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # The runtimes linked in (as clang does by default): lcfd runs under stdbuf, whose
    # preloaded library would otherwise come before the shared ASan runtime, which refuses.
    add_link_options(-static-libasan -static-libubsan)
    # GCC's flow-based warning is unreliable on instrumented code: it reports libstdc++'s own
    # std::regex and std::function as maybe uninitialized. The plain builds keep it.
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
endif()

# --- Hardening --------------------------------------------------------------------------------
option(LCFD_HARDENING "Harden release builds (fortified libc calls, stack protection, full RELRO)"
       ON)

# Position-independent executables in every configuration.
check_pie_supported(OUTPUT_VARIABLE pie_output LANGUAGES CXX)
if(CMAKE_CXX_LINK_PIE_SUPPORTED)
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
else()
  message(WARNING "PIE not supported by the toolchain: ${pie_output}")
endif()

if(LCFD_HARDENING)
  set(release_config "$<OR:$<CONFIG:Release>,$<CONFIG:RelWithDebInfo>>")

  lcfd_supported_flags(hardening_flags -fstack-protector-strong -fstack-clash-protection)
  foreach(flag IN LISTS hardening_flags)
    add_compile_options("$<${release_config}:${flag}>")
  endforeach()

  # Fortified libc calls need optimisation, and they get in the way of the sanitizers'
  # interceptors, so not in a sanitizer or fuzzer build.
  string(FIND "${CMAKE_CXX_FLAGS}" "-fsanitize" sanitize_in_flags)
  if(NOT LCFD_SANITIZE AND NOT LCFD_BUILD_FUZZERS AND sanitize_in_flags EQUAL -1)
    set(CMAKE_REQUIRED_FLAGS "-O2 -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -Werror")
    check_cxx_source_compiles("#include <cstring>
      int main(int argc, char**) { char b[8]; std::memset(b, argc, sizeof b); return b[1]; }"
      LCFD_CXX_HAS_FORTIFY_SOURCE)
    unset(CMAKE_REQUIRED_FLAGS)
    if(LCFD_CXX_HAS_FORTIFY_SOURCE)
      add_compile_options("$<${release_config}:-U_FORTIFY_SOURCE>"
                          "$<${release_config}:-D_FORTIFY_SOURCE=2>")
    endif()
  endif()

  # Control-flow protection is an architecture's own: x86 marks branch targets (CET), 64-bit
  # ARM signs return addresses (PAC; a no-op on cores before ARMv8.3), 32-bit ARM has none.
  # The ARM compilers refuse the x86 flag outright. scripts/check-hardening.sh knows the same.
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|i[3-6]86)$")
    lcfd_supported_flags(control_flow_flags -fcf-protection)
  elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
    lcfd_supported_flags(control_flow_flags -mbranch-protection=standard)
  else()
    set(control_flow_flags "")
  endif()
  foreach(flag IN LISTS control_flow_flags)
    add_compile_options("$<${release_config}:${flag}>")
  endforeach()

  # Read-only relocations, resolved at start-up.
  check_linker_flag(CXX "-Wl,-z,relro,-z,now" LCFD_LINKER_HAS_RELRO_NOW)
  if(LCFD_LINKER_HAS_RELRO_NOW)
    add_link_options("$<${release_config}:-Wl,-z,relro,-z,now>")
  endif()

  # A release build that got every piece is checked by a test (scripts/check-hardening.sh).
  list(LENGTH hardening_flags hardening_flag_count)
  if(CMAKE_BUILD_TYPE MATCHES "^(Release|RelWithDebInfo)$" AND hardening_flag_count EQUAL 2
     AND LCFD_CXX_HAS_FORTIFY_SOURCE AND LCFD_LINKER_HAS_RELRO_NOW
     AND CMAKE_CXX_LINK_PIE_SUPPORTED AND NOT LCFD_SANITIZE AND NOT LCFD_BUILD_FUZZERS
     AND sanitize_in_flags EQUAL -1)
    set(LCFD_HARDENED_RELEASE ON)
  endif()
endif()

# --- Deployment -------------------------------------------------------------------------------
# 64-bit time and file offsets on 32-bit boards too (a no-op on 64-bit ones): the display time
# and the clock stay right past 2038. Everything, GoogleTest included, sees the same time_t.
add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)

# A board's C library is often older than the build machine's. Programs built for a board carry
# libstdc++ and libgcc inside, so that they need nothing but the C library
# (scripts/glibc-needs.sh reports which version of it).
option(LCFD_STATIC_CXX_RUNTIME "Link libstdc++ and libgcc statically" ${CMAKE_CROSSCOMPILING})
if(LCFD_STATIC_CXX_RUNTIME)
  add_link_options(-static-libstdc++ -static-libgcc)
endif()

# Only what a program reaches is linked: each function and object in a section of its own, and
# the unreached sections dropped. Beyond size, this keeps parts of a static libstdc++ that lcfd
# never calls from raising the C library it needs (a random device that wants arc4random, of
# glibc 2.36).
if(NOT LCFD_SANITIZE AND NOT LCFD_BUILD_FUZZERS)
  check_linker_flag(CXX "-Wl,--gc-sections" LCFD_LINKER_HAS_GC_SECTIONS)
  if(LCFD_LINKER_HAS_GC_SECTIONS)
    set(lcfd_release_config "$<OR:$<CONFIG:Release>,$<CONFIG:RelWithDebInfo>,$<CONFIG:MinSizeRel>>")
    add_compile_options("$<${lcfd_release_config}:-ffunction-sections>"
                        "$<${lcfd_release_config}:-fdata-sections>")
    add_link_options("$<${lcfd_release_config}:-Wl,--gc-sections>")
  endif()
endif()

# 8-byte atomics are library calls on ARMv5 (__atomic_load_8 and friends, in libatomic); other
# targets do them inline. Asked of the compiler rather than assumed from the target's name.
set(lcfd_atomic_probe "#include <atomic>
  #include <cstdint>
  std::atomic<std::uint64_t> counter{0};
  int main() { counter.fetch_add(1); return static_cast<int>(counter.load()); }")
check_cxx_source_compiles("${lcfd_atomic_probe}" LCFD_ATOMICS_INLINE)
if(NOT LCFD_ATOMICS_INLINE)
  set(CMAKE_REQUIRED_LIBRARIES atomic)
  check_cxx_source_compiles("${lcfd_atomic_probe}" LCFD_ATOMICS_NEED_LIBATOMIC)
  unset(CMAKE_REQUIRED_LIBRARIES)
  if(NOT LCFD_ATOMICS_NEED_LIBATOMIC)
    message(FATAL_ERROR "${CMAKE_CXX_COMPILER} links 8-byte atomics neither inline nor with "
                        "libatomic")
  endif()
  if(LCFD_STATIC_CXX_RUNTIME)
    # Linked in like libstdc++, so that a board needs no libatomic either.
    link_libraries(-Wl,--push-state,-Bstatic,-latomic,--pop-state)
  else()
    link_libraries(atomic)
  endif()
endif()
