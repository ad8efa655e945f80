#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (ASan+UBSan) and runs each for the
# given seconds on a copy of its seed corpus with the grid's dictionary.
#   fuzz/run.sh SECONDS [BUILD_DIR]      (default build-fuzz)
# Exit 77 when clang or its fuzzer runtime is missing; 1 on any finding, whose
# input is left in BUILD_DIR/findings. Prints each target's figures.
set -uo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
seconds="${1:-60}"
build="${2:-$root/build-fuzz}"

probe="$(mktemp -d)"
trap 'rm -rf "$probe"' EXIT
printf 'extern "C" int LLVMFuzzerTestOneInput(const unsigned char*, unsigned long) { return 0; }\n' >"$probe/p.cpp"
if ! command -v clang++ >/dev/null 2>&1 ||
   ! clang++ -fsanitize=fuzzer,address,undefined "$probe/p.cpp" -o "$probe/p" >/dev/null 2>&1; then
  echo "clang with its fuzzer runtime not found: skipped"
  exit 77
fi

mkdir -p "$build"
cmake -S "$root" -B "$build" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
      -DSANITIZE=ON -DSARVENDO_LIBFUZZER=ON -DBUILD_TESTING=OFF >"$build/build.log" 2>&1 || { cat "$build/build.log"; exit 1; }
targets=()
for source in "$root"/fuzz/targets/*.cpp; do targets+=("$(basename "$source" .cpp)"); done
cmake --build "$build" -j2 --target "${targets[@]}" >>"$build/build.log" 2>&1 || { tail -50 "$build/build.log"; exit 1; }

status=0
mkdir -p "$build/findings"
for target in "${targets[@]}"; do
  corpus="$build/corpus/$target"
  mkdir -p "$corpus"
  # Leaks are checked per input; the grid table is emptied by every target.
  ASAN_OPTIONS=detect_leaks=1 "$build/$target" -max_total_time="$seconds" -dict="$root/fuzz/grid.dict" \
    -max_len=8192 -timeout=20 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$build/findings/$target-" "$corpus" "$root/fuzz/corpus/$target" \
    >"$build/$target.log" 2>&1
  code=$?
  runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$build/$target.log" | grep -o '[0-9]*$')
  cov=$(grep -o 'cov: [0-9]*' "$build/$target.log" | tail -1)
  echo "$target: exit $code, ${runs:-?} executions, ${cov:-cov: ?}, ${seconds}s"
  if [ $code -ne 0 ]; then
    status=1
    grep -A30 -m1 'ERROR\|runtime error\|deadly signal' "$build/$target.log"
  fi
done
exit $status
