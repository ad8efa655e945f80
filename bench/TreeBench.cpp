// Tree store benchmarks on generated grid documents of 100,000 and 1,000,000
// rows: loading from UTF-8, writing back, and the memory a loaded row costs.
//
// The documents are made by the shared generator on first use, into
// bench/data/<rows>/ (or $SARVENDO_BENCH_DATA/<rows>/).
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <unistd.h>
#include <cstdio>
#include <string>
#include "BenchData.h"
#include "tree/Data.h"
#include "tree/Tree.h"
#include "tree/Xml.h"

namespace {

const std::string& Document(int rows) { return BenchDocument(rows, "data.xml"); }

size_t HeapInUse() {
  struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
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

void SetXmlFromUtf8(benchmark::State& state) {
  int rows = (int)state.range(0);
  const std::string& text = Document(rows);
  if (text.empty()) return state.SkipWithError("no document");
  for (auto _ : state) {
    TTree* tree = new TTree();
    benchmark::DoNotOptimize(tree->SetXml(text.c_str()));
    state.PauseTiming();
    delete tree;
    state.ResumeTiming();
  }
  state.SetBytesProcessed(state.iterations() * (int64_t)text.size());
  state.counters["rows/s"] = benchmark::Counter((double)rows * state.iterations(), benchmark::Counter::kIsRate);
}

void GetXmlWide(benchmark::State& state) {
  int rows = (int)state.range(0);
  const std::string& text = Document(rows);
  if (text.empty()) return state.SkipWithError("no document");
  TTree tree;
  tree.SetXml(text.c_str());
  int64_t bytes = 0;
  for (auto _ : state) {
    int length = 0;
    wchar_t* xml = tree.GetXml(&length, 255);
    benchmark::DoNotOptimize(xml);
    bytes += length;
    free(xml);
  }
  state.SetBytesProcessed(bytes);
  state.counters["rows/s"] = benchmark::Counter((double)rows * state.iterations(), benchmark::Counter::kIsRate);
}

void GetXmlUtf8(benchmark::State& state) {
  int rows = (int)state.range(0);
  const std::string& text = Document(rows);
  if (text.empty()) return state.SkipWithError("no document");
  TTree tree;
  tree.SetXml(text.c_str());
  for (auto _ : state) {
    int length = 0;
    char* xml = tree.GetXml(false, &length, 255);
    benchmark::DoNotOptimize(xml);
    free(xml);
  }
  state.counters["rows/s"] = benchmark::Counter((double)rows * state.iterations(), benchmark::Counter::kIsRate);
}

// Memory that stays with the loaded tree, per row: heap bytes in use (exact)
// and the growth of the resident set.
void MemoryPerRow(benchmark::State& state) {
  int rows = (int)state.range(0);
  const std::string& text = Document(rows);
  if (text.empty()) return state.SkipWithError("no document");
  double heap = 0, resident = 0;
  for (auto _ : state) {
    malloc_trim(0);
    size_t heapBefore = HeapInUse();
    long residentBefore = ResidentBytes();
    TTree* tree = new TTree();
    tree->SetXml(text.c_str());
    malloc_trim(0);
    heap = (double)(HeapInUse() - heapBefore) / rows;
    resident = (double)(ResidentBytes() - residentBefore) / rows;
    state.PauseTiming();
    delete tree;
    state.ResumeTiming();
  }
  state.counters["heap_bytes_per_row"] = heap;
  state.counters["resident_bytes_per_row"] = resident;
}

}  // namespace

BENCHMARK(SetXmlFromUtf8)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(GetXmlWide)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(GetXmlUtf8)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(MemoryPerRow)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(1);

int main(int argc, char** argv) {
  TData::Initialize();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
