# Warnings and sanitizers shared by every target of the project.
add_library(fwmclk_warnings INTERFACE)
target_compile_options(fwmclk_warnings INTERFACE
  -Wall -Wextra -Wshadow -Wconversion -Wsign-conversion -Wformat=2 -Wundef
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor>
  $<$<BOOL:${FWMCLK_WERROR}>:-Werror>)
# GCC notes an ABI change of 2017 on every std::vector of pairs on ARM; it
# concerns code built with GCC older than 7 and nothing here.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
  target_compile_options(fwmclk_warnings INTERFACE -Wno-psabi)
endif()

if(FWMCLK_SANITIZE)
  add_compile_options(-fsanitize=${FWMCLK_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${FWMCLK_SANITIZE})
  if(FWMCLK_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()

# Fuzzing (clang): every target is built with libFuzzer's coverage hooks; only
# the fuzz targets link its driver (tests/fuzz).
option(FWMCLK_FUZZ "Build the fuzz targets with libFuzzer (needs clang)" OFF)
if(FWMCLK_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# The production library's code generation: no exceptions, no RTTI, no guard
# variables (which would pull in the C++ runtime), nothing exported by default.
# The exported functions call each other directly, not through the PLT, and
# may be inlined into each other, through hidden names of their own
# (src/exports.hpp); the host resolves the platform's functions and the
# addresses the library hands out.
set(FWMCLK_LIB_CXX_FLAGS
  -fno-exceptions -fno-rtti -fno-threadsafe-statics -fno-asynchronous-unwind-tables
  -fvisibility=hidden -fvisibility-inlines-hidden -fno-semantic-interposition)
