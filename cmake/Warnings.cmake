# SPDX-License-Identifier: Apache-2.0
# One interface target carries the language level, the warnings, the sanitizers and the counters of every target of
# the tree.
add_library(qz_options INTERFACE)
target_compile_features(qz_options INTERFACE cxx_std_17)
# Our own definitions are never replaced from outside, so calls inside a library may be inlined.
# Contraction to fused multiply-add would make results depend on the target processor.
target_compile_options(qz_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -ffp-contract=off -fno-semantic-interposition)
if(QZMATH_WERROR)
    target_compile_options(qz_options INTERFACE -Werror)
endif()
if(QZMATH_SANITIZE)
    target_compile_options(qz_options INTERFACE
        -fsanitize=${QZMATH_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(qz_options INTERFACE -fsanitize=${QZMATH_SANITIZE})
endif()
if(QZMATH_COVERAGE)
    target_compile_options(qz_options INTERFACE -fprofile-instr-generate -fcoverage-mapping)
    target_link_options(qz_options INTERFACE -fprofile-instr-generate)
endif()
if(QZMATH_BUILD_FUZZERS)
    target_compile_options(qz_options INTERFACE -fsanitize=fuzzer-no-link) # shows the fuzzers what they reach
endif()
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
# Programs of the build tree and the installed ones find the two libraries without environment variables.
set(CMAKE_INSTALL_RPATH "$ORIGIN;$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
