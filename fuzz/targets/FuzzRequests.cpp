// Requests on the fixed grid. The first byte picks the request kind and
// flags; the rest is the request text. After the request the grid gives its
// data, so anything the request left behind is walked once more.
#include <unistd.h>

#include "../FuzzGrid.h"

namespace {

// Two fuzzed texts for GetCellsA's id, column and format: cut at NUL.
void Cells(int index, const uint8_t* data, size_t size, int flags) {
  std::vector<std::string> p = fuzzgrid::Split(data, size, '\0', 3);
  p.resize(3);
  fuzzgrid::FreeA(GetCellsA(index, p[0].c_str(), flags, p[1].c_str(), p[2].c_str()));
  fuzzgrid::FreeA(GetCellsA(index, nullptr, flags, p[1].c_str(), nullptr));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const int pick = data[0] & 7, flags = data[0] >> 3;
  std::string text((const char*)data + 1, size - 1);
  int index = CreateGridA(fuzzgrid::Layout(), nullptr, nullptr, nullptr, nullptr, nullptr);
  if (index < 0) __builtin_trap();
  switch (pick) {
    case 0: fuzzgrid::FreeA(GetBodyA(index, text.c_str())); break;
    case 1: fuzzgrid::FreeA(GetPageA(index, text.c_str())); break;
    case 2: Cells(index, data + 1, size - 1, flags - 1); break;
    case 3: UpdateGridA(index, text.c_str()); fuzzgrid::FreeA(GetBodyA(index, "<Grid/>")); break;
    case 4: SaveA(index, text.c_str()); break;
    case 5: SaveExA(index, text.c_str(), flags & 3); fuzzgrid::FreeA(GetChangesA(index, flags & 1)); break;
    case 6: fuzzgrid::FreeA(GetExportA(index, text.c_str())); break;
    default:
      // A body request first, then a page of what it left.
      fuzzgrid::FreeA(GetBodyA(index, text.c_str()));
      fuzzgrid::FreeA(GetPageA(index, text.c_str()));
      break;
  }
  fuzzgrid::FreeA(GetDataA(index));
  if (pick == 7 && (flags & 1)) {
    char name[] = "/tmp/sarvendo-fuzz-XXXXXX";
    int fd = mkstemp(name);
    if (fd >= 0) {
      close(fd);
      SaveToFileA(index, name, flags >> 1);
      unlink(name);
    }
  }
  DeleteGrid(index);
  return 0;
}
