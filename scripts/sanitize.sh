#!/usr/bin/env bash
# Builds the crypto library, the frame codec, the card service and their tests natively with AddressSanitizer and
# UBSan (a tree of its own, NIVRA_SANITIZE=ON) and runs crypto_tests, service_frames_tests and
# cardservice_tests there
# (the card service tests start the sanitized service and require it to exit cleanly). Any
# sanitizer report fails the run.
# Usage: scripts/sanitize.sh [gtest filter]   (NIVRA_BUILD_DIR and NIVRA_JOBS as for build.sh)
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/setup.sh"
jobs=${NIVRA_JOBS:-$(nproc)}
build=${NIVRA_BUILD_DIR:-$top/build}/sanitize
[ -f "$build/build.ninja" ] ||
  cmake -S "$top" -B "$build" -G Ninja -DNIVRA_SANITIZE=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" --target crypto_tests service_frames_tests cardservice_tests -j "$jobs"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1:strict_string_checks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
"$build/tests/crypto/crypto_tests" --gtest_filter="${1:-*}" --gtest_brief=1
"$build/tests/service/service_frames_tests" --gtest_filter="${1:-*}" --gtest_brief=1
"$build/tests/cardservice/cardservice_tests" --gtest_filter="${1:-*}" --gtest_brief=1
