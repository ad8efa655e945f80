// Grid benchmarks through the C surface on generated grids of 100,000 and
// 1,000,000 rows: the load from the two files, and, with server paging, the
// first body request with a text sort and with a descending number sort (each
// on a fresh grid, made outside the timed region), and a repeated request
// with unchanged settings, which must serve the standing pages without
// running the pipeline.
//
// A null body (a response level not yet there) is counted in "null_bodies"
// rather than failing the run.
#include <benchmark/benchmark.h>
#include <unistd.h>
#include <cstdio>
#include <string>
#include "BenchData.h"
#include "sarvendo.h"

namespace {

const char* const TextSort = "<Grid><Cfg Sort=\"A\" Sorting=\"1\"/></Grid>";
const char* const NumberSortDesc = "<Grid><Cfg Sort=\"-B\" Sorting=\"1\"/></Grid>";

// A grid of the generated layout and data; -1 if the documents are missing.
int MakeGrid(int rows) {
  const std::string& layout = BenchDocument(rows, "layout.xml");
  const std::string& data = BenchDocument(rows, "data.xml");
  if (layout.empty() || data.empty()) return -1;
  // Documents load in the order doc4, doc3, ...: layout first, then data.
  return CreateGridA(nullptr, nullptr, data.c_str(), layout.c_str(), nullptr, nullptr);
}

long ResidentBytes() {
  long pages = 0, resident = 0;
  FILE* f = fopen("/proc/self/statm", "r");
  if (f) {
    if (fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
    fclose(f);
  }
  return resident * sysconf(_SC_PAGESIZE);
}

// The load as a host does it: CreateGridA with the names of the layout and
// data files. Reports the growth of the resident set per row.
void LoadFromFiles(benchmark::State& state) {
  int rows = (int)state.range(0);
  if (BenchDocument(rows, "layout.xml").empty() || BenchDocument(rows, "data.xml").empty())
    return state.SkipWithError("no documents");
  std::string layout = BenchDataDir(rows) + "/layout.xml", data = BenchDataDir(rows) + "/data.xml";
  double perRow = 0;
  for (auto _ : state) {
    long before = ResidentBytes();
    int index = CreateGridA(layout.c_str(), data.c_str(), nullptr, nullptr, nullptr, nullptr);
    if (index < 0) return state.SkipWithError("no grid");
    state.PauseTiming();
    perRow = (double)(ResidentBytes() - before) / rows;
    DeleteGrid(index);
    state.ResumeTiming();
  }
  state.counters["resident_bytes_per_row"] = perRow;
  state.counters["rows/s"] = benchmark::Counter((double)rows * state.iterations(), benchmark::Counter::kIsRate);
}

void FirstBody(benchmark::State& state, const char* request) {
  int rows = (int)state.range(0);
  double nullBodies = 0;
  for (auto _ : state) {
    state.PauseTiming();
    int index = MakeGrid(rows);
    state.ResumeTiming();
    if (index < 0) return state.SkipWithError("no grid");
    char* body = GetBodyA(index, request);
    benchmark::DoNotOptimize(body);
    state.PauseTiming();
    if (!body) nullBodies++;
    FreeStringA(body);
    DeleteGrid(index);
    state.ResumeTiming();
  }
  state.counters["null_bodies"] = nullBodies;
  state.counters["rows/s"] = benchmark::Counter((double)rows * state.iterations(), benchmark::Counter::kIsRate);
}

void FirstBodyTextSort(benchmark::State& state) { FirstBody(state, TextSort); }
void FirstBodyNumberSortDesc(benchmark::State& state) { FirstBody(state, NumberSortDesc); }

void RepeatedBody(benchmark::State& state) {
  int rows = (int)state.range(0);
  int index = MakeGrid(rows);
  if (index < 0) return state.SkipWithError("no grid");
  FreeStringA(GetBodyA(index, TextSort));
  double nullBodies = 0;
  for (auto _ : state) {
    char* body = GetBodyA(index, TextSort);
    benchmark::DoNotOptimize(body);
    if (!body) nullBodies++;
    FreeStringA(body);
  }
  DeleteGrid(index);
  state.counters["null_bodies"] = nullBodies;
}

}  // namespace

BENCHMARK(LoadFromFiles)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(FirstBodyTextSort)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(FirstBodyTextSort)->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(FirstBodyNumberSortDesc)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(FirstBodyNumberSortDesc)->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(RepeatedBody)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(10);
