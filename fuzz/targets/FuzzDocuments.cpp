// One to six fuzzed documents (cut at NUL bytes) make a grid, which then
// answers a fixed body request and gives its data back.
#include "../FuzzGrid.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<std::string> docs = fuzzgrid::Split(data, size, '\0', 6);
  const char* d[6] = {};
  for (size_t i = 0; i < docs.size(); i++) d[i] = docs[i].c_str();
  int index = CreateGridA(d[0], d[1], d[2], d[3], d[4], d[5]);
  if (index < 0) return 0;
  fuzzgrid::FreeA(GetBodyA(index, "<Grid><Cfg Sort='Name'/><Body><B Pos='0'/></Body></Grid>"));
  fuzzgrid::FreeA(GetPageA(index, "<Grid><Body><B Pos='0'/></Body></Grid>"));
  fuzzgrid::FreeA(GetDataA(index));
  DeleteGrid(index);
  return 0;
}
