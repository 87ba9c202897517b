# Warnings and sanitizers shared by every target of the project. The warning targets are linked
# PRIVATE only and never installed, so no flag of ours reaches an application's build.

# Warnings become errors only where we choose the compiler (our presets, CI): another compiler
# or version may warn where ours does not, and that must not stop a user's or packager's build.
set(WRENLINK_WERROR_FLAG $<$<BOOL:${WRENLINK_WARNINGS_AS_ERRORS}>:-Werror>)

add_library(wrenlink_warnings INTERFACE)
target_compile_options(wrenlink_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-qual
  -Wformat=2 -Wundef -Wnon-virtual-dtor ${WRENLINK_WERROR_FLAG})

# Tests, tools and examples: the same warnings without the conversion checks, which mostly flag
# literal sizes in test tables.
add_library(wrenlink_test_warnings INTERFACE)
target_compile_options(wrenlink_test_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wformat=2 ${WRENLINK_WERROR_FLAG})

if(WRENLINK_BUILD_FUZZERS)
  # Coverage for libFuzzer in every object; the fuzz binaries add the fuzzer main at link time.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

if(WRENLINK_SANITIZE)
  list(JOIN WRENLINK_SANITIZE "," _wrenlink_san)
  add_compile_options(-fsanitize=${_wrenlink_san} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${_wrenlink_san})
endif()
