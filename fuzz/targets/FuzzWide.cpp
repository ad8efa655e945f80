// The wide forms with arbitrary 32-bit characters: the input, read four
// bytes to a character, is a document and then a request on the fixed grid.
#include <cstring>

#include "../FuzzGrid.h"

namespace {

std::wstring Wide(const uint8_t* data, size_t size) {
  std::wstring s(size / 4, L'\0');
  for (size_t i = 0; i < s.size(); i++) {
    uint32_t c;
    std::memcpy(&c, data + 4 * i, 4);
    s[i] = c ? (wchar_t)c : L' ';  // NUL would only cut the text short
  }
  return s;
}

std::wstring Widen(const char* s) { return std::wstring(s, s + std::strlen(s)); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const int pick = data[0] & 3;
  const std::wstring text = Wide(data + 1, size - 1), layout = Widen(fuzzgrid::Layout());
  int own = CreateGrid(text.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr);
  if (own >= 0) {
    fuzzgrid::FreeW(GetBody(own, L"<Grid/>"));
    fuzzgrid::FreeW(GetData(own));
    DeleteGrid(own);
  }
  int index = CreateGrid(layout.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr);
  if (index < 0) __builtin_trap();
  switch (pick) {
    case 0: fuzzgrid::FreeW(GetBody(index, text.c_str())); fuzzgrid::FreeW(GetPage(index, text.c_str())); break;
    case 1: fuzzgrid::FreeW(GetCells(index, text.c_str(), text.c_str(), data[0] >> 2, text.c_str())); break;
    case 2: Save(index, text.c_str()); UpdateGrid(index, text.c_str()); break;
    default: fuzzgrid::FreeW(GetExport(index, text.c_str())); FindGrid(text.c_str()); fuzzgrid::FreeW(GetSession(text.c_str())); break;
  }
  fuzzgrid::FreeW(GetData(index));
  DeleteGrid(index);
  return 0;
}
