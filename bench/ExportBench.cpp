// Export benchmark: the spreadsheet document of the generated grid of
// 1,000,000 rows with all its columns, through the C surface (UTF-8). The
// grid is made once, outside the timed region. Reports the output's size and
// the peak of the resident set during the export, above what it was before.
// The workbook export of the same request follows, with the file's size and
// the resident size of the loaded process beside its peak: written in
// constant memory, the workbook's peak stays small whatever the rows.
#include <sys/stat.h>
#include <unistd.h>

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include "BenchData.h"
#include "sarvendo.h"

namespace {

const char* const AllColumns =
    "<Grid><Cfg ExportType='outline indent'/><Cols><C Name='A'/><C Name='B'/><C Name='C'/><C Name='D'/>"
    "<C Name='E'/><C Name='F'/><C Name='G'/><C Name='H'/><C Name='T'/><C Name='K'/></Cols></Grid>";

// A value of /proc/self/status in bytes ("VmHWM", "VmRSS").
long StatusBytes(const char* key) {
  long kb = 0;
  char line[256];
  FILE* f = fopen("/proc/self/status", "r");
  if (!f) return 0;
  size_t n = strlen(key);
  while (fgets(line, sizeof line, f))
    if (!strncmp(line, key, n) && line[n] == ':') kb = atol(line + n + 1);
  fclose(f);
  return kb * 1024;
}

// Lets VmHWM start again from the present resident set.
void ResetPeak() {
  FILE* f = fopen("/proc/self/clear_refs", "w");
  if (f) {
    fputs("5", f);
    fclose(f);
  }
}

void ExportAllColumns(benchmark::State& state) {
  int rows = (int)state.range(0);
  const std::string& layout = BenchDocument(rows, "layout.xml");
  const std::string& data = BenchDocument(rows, "data.xml");
  if (layout.empty() || data.empty()) return state.SkipWithError("no documents");
  int grid = CreateGridA(nullptr, nullptr, data.c_str(), layout.c_str(), nullptr, nullptr);
  if (grid < 0) return state.SkipWithError("no grid");
  double bytes = 0, peak = 0;
  for (auto _ : state) {
    state.PauseTiming();
    ResetPeak();
    long before = StatusBytes("VmRSS");
    state.ResumeTiming();
    char* text = GetExportA(grid, AllColumns);
    state.PauseTiming();
    if (!text) return state.SkipWithError("no export");
    bytes = (double)strlen(text);
    peak = (double)(StatusBytes("VmHWM") - before);
    FreeStringA(text);
    state.ResumeTiming();
  }
  DeleteGrid(grid);
  state.counters["output_bytes"] = bytes;
  state.counters["peak_extra_bytes"] = peak;
  state.counters["rows/s"] = benchmark::Counter((double)rows * state.iterations(), benchmark::Counter::kIsRate);
}

void ExportXlsxAllColumns(benchmark::State& state) {
  int rows = (int)state.range(0);
  const std::string& layout = BenchDocument(rows, "layout.xml");
  const std::string& data = BenchDocument(rows, "data.xml");
  if (layout.empty() || data.empty()) return state.SkipWithError("no documents");
  int grid = CreateGridA(nullptr, nullptr, data.c_str(), layout.c_str(), nullptr, nullptr);
  if (grid < 0) return state.SkipWithError("no grid");
  std::string path = "/tmp/sarvendo-bench-" + std::to_string(getpid()) + ".xlsx";
  double bytes = 0, peak = 0, resident = (double)StatusBytes("VmRSS");
  for (auto _ : state) {
    state.PauseTiming();
    ResetPeak();
    long before = StatusBytes("VmRSS");
    state.ResumeTiming();
    int result = SaveExportXlsxA(grid, AllColumns, path.c_str());
    state.PauseTiming();
    if (result == SARVENDO_UNAVAILABLE) return state.SkipWithError("built without the workbook library");
    if (result != 0) return state.SkipWithError("no workbook");
    struct stat file;
    bytes = stat(path.c_str(), &file) == 0 ? (double)file.st_size : 0;
    peak = (double)(StatusBytes("VmHWM") - before);
    state.ResumeTiming();
  }
  unlink(path.c_str());
  DeleteGrid(grid);
  state.counters["file_bytes"] = bytes;
  state.counters["peak_extra_bytes"] = peak;
  state.counters["resident_bytes"] = resident;
  state.counters["rows/s"] = benchmark::Counter((double)rows * state.iterations(), benchmark::Counter::kIsRate);
}

}  // namespace

BENCHMARK(ExportAllColumns)->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(ExportXlsxAllColumns)->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(2);
