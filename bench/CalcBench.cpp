// The first body request with server paging on the generated grid, which
// calculates every row (T = B*C), the pages and the Foot row's aggregates
// (sum and max per page), against the same grid with the formulas taken out
// of the layout. Grids are made outside the timed region.
#include <benchmark/benchmark.h>
#include <string>
#include "BenchData.h"
#include "sarvendo.h"

namespace {

std::string Without(std::string text, const std::string& part) {
  for (size_t at; (at = text.find(part)) != std::string::npos;) text.erase(at, part.size());
  return text;
}

// The generated layout, or the same without its formulas.
std::string Layout(int rows, bool formulas) {
  std::string layout = BenchDocument(rows, "layout.xml");
  if (formulas) return layout;
  return Without(Without(layout, " Formula=\"B*C\""), " Calculated=\"1\" BFormula=\"sum()\" CFormula=\"max()\"");
}

void FirstBody(benchmark::State& state, bool formulas) {
  int rows = (int)state.range(0);
  std::string layout = Layout(rows, formulas);
  const std::string& data = BenchDocument(rows, "data.xml");
  if (layout.empty() || data.empty()) return state.SkipWithError("no grid");
  double nullBodies = 0;
  for (auto _ : state) {
    state.PauseTiming();
    int index = CreateGridA(nullptr, nullptr, data.c_str(), layout.c_str(), nullptr, nullptr);
    state.ResumeTiming();
    if (index < 0) return state.SkipWithError("no grid");
    char* body = GetBodyA(index, "<Grid><Cfg/></Grid>");
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

void FirstBodyWithFormulas(benchmark::State& state) { FirstBody(state, true); }
void FirstBodyWithoutFormulas(benchmark::State& state) { FirstBody(state, false); }

}  // namespace

BENCHMARK(FirstBodyWithFormulas)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(FirstBodyWithoutFormulas)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(3);
