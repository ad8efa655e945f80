// Generated grid documents for the benchmarks: bench/data/<rows>/ (or
// $SARVENDO_BENCH_DATA/<rows>/), made by the shared generator on first use
// and kept in memory once read.
#pragma once
#include <sys/stat.h>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#ifndef SARVENDO_SOURCE_DIR
#define SARVENDO_SOURCE_DIR "."
#endif

inline std::string BenchDataDir(int rows) {
  const char* base = getenv("SARVENDO_BENCH_DATA");
  std::string dir = base ? base : SARVENDO_SOURCE_DIR "/bench/data";
  return dir + "/" + std::to_string(rows);
}

inline std::string BenchReadFile(const std::string& path) {
  std::string text;
  FILE* f = fopen(path.c_str(), "rb");
  if (!f) return text;
  char buffer[1 << 16];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, f)) > 0) text.append(buffer, n);
  fclose(f);
  return text;
}

// One document of the generated grid ("layout.xml" or "data.xml"); empty
// if it can be neither found nor made.
inline const std::string& BenchDocument(int rows, const std::string& file) {
  static std::map<std::string, std::string> cache;
  std::string dir = BenchDataDir(rows);
  std::string path = dir + "/" + file;
  auto found = cache.find(path);
  if (found != cache.end()) return found->second;
  struct stat st;
  if (stat(path.c_str(), &st) != 0) {
    std::string command = "python3 " SARVENDO_SOURCE_DIR "/../shared/bench/gen_grid.py " + std::to_string(rows) +
                          " '" + dir + "'";
    if (system(command.c_str()) != 0) fprintf(stderr, "cannot generate %s\n", dir.c_str());
  }
  return cache[path] = BenchReadFile(path);
}
