// A layout whose formula, CalcOrder and Cells texts come from the fuzzer
// (three parts cut at NUL), calculated by a body request and a change.
#include "../FuzzGrid.h"

namespace {

// Attribute-safe: the texts must reach the formula parser, not the XML one.
std::string Quote(const std::string& s) {
  std::string o;
  for (char c : s) o += c == '\'' ? "&apos;" : c == '<' ? "&lt;" : c == '&' ? "&amp;" : std::string(1, c);
  return o;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<std::string> p = fuzzgrid::Split(data, size, '\0', 3);
  p.resize(3);
  const std::string formula = Quote(p[0]), order = Quote(p[1]), cells = Quote(p[2]);
  const std::string doc =
      "<Grid><Cfg Calculated='1' Sort='X'/><Cols><C Name='A' Type='Int'/><C Name='B' Type='Float'/>"
      "<C Name='X' Formula='" + formula + "'/><C Name='Y' Type='Float' Formula='A+B'/></Cols>"
      "<Def><D Name='R' CalcOrder='" + order + "'/></Def>"
      "<Foot><I id='f' Calculated='1' XFormula='" + formula + "' CalcOrder='" + order + "'/></Foot>"
      "<Body><B><I id='a' A='1' B='2' Calculated='1' Cells='" + cells + "' AFormula='" + formula + "'>"
      "<I id='c' A='3' B='-1'/></I><I id='b' A='5' CalcOrder='" + order + "' BFormula='" + formula + "'/></B></Body></Grid>";
  int index = CreateGridA(doc.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr);
  if (index < 0) return 0;
  fuzzgrid::FreeA(GetBodyA(index, "<Grid><Body><B Pos='0'/></Body></Grid>"));
  SaveA(index, "<Grid><Changes><I id='c' A='4' Changed='1'/></Changes></Grid>");
  fuzzgrid::FreeA(GetCellsA(index, "a", 0, "X", nullptr));
  fuzzgrid::FreeA(GetExportA(index, "<Grid/>"));
  fuzzgrid::FreeA(GetDataA(index));
  DeleteGrid(index);
  return 0;
}
