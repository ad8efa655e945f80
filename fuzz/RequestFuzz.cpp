// Random requests against the exported C surface, to be run under the
// sanitizers (-DSANITIZE=ON -DSARVENDO_FUZZ=ON), in both the 8-bit and the
// wide forms. Any finding aborts the run.
//   sarvendo_fuzz SEED COUNT        small random grids, a few requests each
//   sarvendo_fuzz SEED COUNT big    the example grid, sixty requests each
// A run is repeatable from its seed.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <unistd.h>
#include <string>
#include <vector>

#include "sarvendo.h"

namespace {

std::mt19937 rng;
bool inLayout;  // raw bytes only in requests: a layout should mostly load

int R(int n) { return n <= 0 ? 0 : (int)(rng() % (unsigned)n); }
const char* Pick(const std::vector<const char*>& v) { return v[R((int)v.size())]; }

const std::vector<const char*> cols = {"Name",   "Quantity", "Price", "Ordered", "Status", "Express",
                                       "Note",   "X",        "",      "id",      "Def",    "Pos"};
const std::vector<const char*> types = {"Text", "Int",  "Float", "Date", "Enum",    "Bool",
                                        "Lines", "Radio", "Html", "",     "Integer", "Dates",
                                        "Link", "Img"};
const std::vector<const char*> settings = {
    "Sort",         "Sorting",      "PageLength",   "Paging",      "Focused",        "FocusedPos",
    "FocusedCol",   "NoPager",      "SortCols",     "SortTypes",   "Group",          "GroupCols",
    "Filter",       "MainCol",      "ChildPaging",  "MaxChildrenOffline", "Precision", "IdChars",
    "IdPrefix",     "IdPostfix",    "NumberId",     "NumberSort",  "CaseSensitive",  "WhiteChars",
    "CharCodes",    "LocaleCompare", "TimeZone",    "RootCount",   "PagesCreated",   "Name__",
    "Calculated",   "CanSort",      "Format",       "PageNameValue", "Related",      "Enum",
    "SortValue",    "SortDescValue", "Hirji",       "Expanded",    "Count",          "GroupTree",
    "GroupMain",    "MaxGroupLength", "GroupEmpty", "GroupSole",   "GroupSingle",    "GroupDef",
    "GroupCol",     "EditCols",     "CanGroup",     "ParentCDef",  "ParentAcceptDef", "MaxChars",
    "Kind",         "CDef",         "AcceptDef",    "CanFilter",   "ExportType",     "ExportPrefix",
    "ExportPostfix", "BaseUrl",     "Spanned",      "Span",        "ExportFormat",   "ExportValue",
    "EmptyValue",   "CanEmpty",     "CanExport",    "Visible",     "Width",          "Filter"};
// Attributes of Header that the export reads: rows, captions and their spans.
const std::vector<const char*> headerNames = {"Rows",   "Main",     "CanExport", "Left00",  "Left00Span", "Mid00",
                                              "Mid01Span", "Mid10", "Right00Span", "Mid00Span", "Name", "Price"};

std::string Value() {
  switch (R(16)) {
    case 0: return std::to_string(R(10));
    case 1: return std::to_string((int)rng());
    case 2: return "-" + std::to_string(R(100));
    case 3: return Pick(cols);
    case 4: {
      std::string s = std::string(R(2) ? "-" : "") + Pick(cols) + "," + Pick(cols);
      return s;
    }
    case 5: return std::string(R(3000), "aZ9,;|-. "[R(9)]);
    case 6: return "|a|b||c";
    case 7: return "1.5";
    case 8: return "yyyy-MM-dd HH:mm:ss tt dddd MMMM '" + std::string(R(5), 'x');
    case 9: return Pick(types);
    case 10: {
      if (inLayout) return "v";
      std::string s;
      for (int i = R(20); i > 0; i--) s += (char)(1 + R(255));
      return s;
    }
    case 11: return (R(4) ? "r" : "_G") + std::to_string(R(60));
    case 12: return "&lt;&#65;&amp;&#x;&";
    case 13: return Pick({"|http://x/?a&b|t\"|<p>|</p>|1|y|javascript:z", "||||||javascript:go()", "|u",
                          "|a|b|c|d|e|pic.png", ";x;y"});
    case 14: return Pick({"filtered", "Outline,Indent", "expanded strings hidden dates", "16", "127", "-1"});
    default: return "";
  }
}

std::string Escape(const std::string& v) {
  std::string o;
  for (char c : v) o += c == '"' ? "&quot;" : c == '<' ? "&lt;" : c == '&' && R(2) ? "&amp;" : std::string(1, c);
  return o;
}

std::string Attrs(int n, const std::vector<const char*>& names) {
  std::string s;
  for (int i = 0; i < n; i++) {
    s += std::string(" ") + (R(6) ? Pick(names) : Pick(cols));
    if (R(4) == 0) s += Pick(settings);  // two-part names such as PriceFormat
    s += "=\"" + Escape(Value()) + "\"";
  }
  return s;
}

// A Group text: mostly known columns, now and then more levels than allowed
// or an unknown name.
std::string GroupList() {
  std::string s;
  for (int i = R(R(8) ? 4 : 40); i >= 0; i--) s += std::string(s.empty() ? "" : ",") + Pick(cols);
  return s;
}

// Group definitions with random selectors, patterns, edit and main columns.
std::string GroupDefs() {
  std::string s = R(4) ? "<D Name=\"Group\" Group=\"1\"" + Attrs(R(4), settings) + "/>" : "";
  for (int i = R(4); i > 0; i--) {
    s += "<D Name=\"" + std::string(Pick({"G1", "G2", "GroupLast", "Order", "Part"})) + "\" Group=\"" +
         std::to_string(R(3)) + "\"";
    if (R(2)) s += " GroupCol=\"" + Escape(R(2) ? std::string(Pick({"0", "1", "-1", "2,Name", "Status"})) : Value()) + "\"";
    if (R(3) == 0) s += " GroupCols=\"" + Escape(R(2) ? "|*Status*|Name" : Value()) + "\"";
    if (R(3) == 0) s += " EditCols=\"" + Escape(R(2) ? "Main,Price,MainCol" : Value()) + "\"";
    if (R(4) == 0) s += " GroupMain=\"" + std::string(Pick(cols)) + "\"";
    s += Attrs(R(3), settings) + "/>";
  }
  return s;
}

std::string Rows(int depth, int& budget) {
  std::string s;
  for (int i = R(6); i > 0 && budget > 0; i--, budget--) {
    s += "<I";
    if (R(8)) s += " id=\"r" + std::to_string(R(60)) + "\"";
    if (R(5) == 0) s += std::string(" Def=\"") + Pick({"Customer", "Order", "Part", "R", "Nope"}) + "\"";
    if (R(7) == 0) s += " _0F=\"8\"";
    if (R(6) == 0) s += " Expanded=\"0\"";
    if (R(5) == 0) s += " Spanned=\"1\"";
    if (R(9) == 0) s += std::string(R(2) ? " CanExport" : " Visible") + "=\"" + std::to_string(R(2)) + "\"";
    if (R(4) == 0) s += std::string(" CanGroup=\"") + (R(3) ? "1" : "0") + "\"";
    s += Attrs(R(6), cols);
    s += depth < 3 && R(3) == 0 ? ">" + Rows(depth + 1, budget) + "</I>" : "/>";
  }
  return s;
}

std::string Mutate(std::string s) {
  for (int i = R(4); i > 0 && !s.empty(); i--) {
    size_t p = R((int)s.size());
    switch (R(4)) {
      case 0: s[p] = (char)(1 + R(255)); break;
      case 1: s.erase(p, R(20)); break;
      case 2: s.insert(p, std::string(R(5), "<>\"'&=/ "[R(8)])); break;
      default: s.resize(p);
    }
  }
  return s;
}

std::string Layout() {
  inLayout = true;
  std::string s = "<Grid><IO Session=\"s" + std::to_string(R(5)) + "\"/><Cfg" + Attrs(R(8), settings) + "/>";
  s += "<Def><D Name=\"Customer\" CDef=\"Order\"" + Attrs(R(3), settings) +
       "/><D Name=\"Order\" CDef=\"Part\"/><D Name=\"Part\" Def=\"" + (R(4) ? "Order" : "Part") + "\"/>" +
       (R(2) ? "<D Name=\"R\" CanGroup=\"1\" CanFilter=\"" + std::to_string(R(4)) + "\"/>" : "") + GroupDefs() + "</Def>";
  s += "<LeftCols><C Name=\"Name\" Type=\"Text\"" + Attrs(R(2), settings) + "/></LeftCols><Cols>";
  for (int i = 1; i < 8; i++)
    s += std::string("<C Name=\"") + cols[i] + "\" Type=\"" + Pick(types) + "\"" + Attrs(R(3), settings) + "/>";
  s += "</Cols>";
  if (R(3) == 0)
    s += "<Lang><Format" +
         Attrs(R(4), {"DateSeparator", "TimeSeparator", "AMDesignator", "PMDesignator", "LongDayNames",
                      "ShortMonthNames", "g", "d", "D"}) + "/></Lang>";
  if (R(3) == 0)
    s += "<Toolbar Cells=\"" + Escape(Value()) + "\" Formula=\"1\"/><Header" + Attrs(R(3), cols) +
         Attrs(R(4), headerNames) + "/>";
  if (R(4) == 0) s += "<Solid><I Kind=\"Filter\"" + Attrs(R(3), cols) + "/></Solid>";
  if (R(4) == 0) s += "<Head><I" + Attrs(R(3), cols) + "/></Head><Foot><I" + Attrs(R(3), cols) + "/></Foot>";
  int budget = 1 + R(60);
  s += "<Body><B>" + Rows(0, budget) + "</B>";
  if (R(3) == 0) s += "<B>" + Rows(0, budget) + "</B>";
  s += "</Body></Grid>";
  inLayout = false;
  return R(6) == 0 ? Mutate(s) : s;
}

std::string Request() {
  std::string s = "<Grid>";
  if (R(4)) {
    s += "<Cfg" + Attrs(R(6), settings);
    if (R(2)) s += " Paging=\"3\" Group=\"" + GroupList() + "\"";
    s += "/>";
  }
  if (R(3) == 0) s += "<Body><B" + Attrs(R(3), {"Pos", "id", "Rows"}) + "/><I" + Attrs(R(3), {"id", "Pos"}) + "/></Body>";
  if (R(5) == 0) s += "<Filters><I" + Attrs(R(3), cols) + "/></Filters>";
  if (R(5) == 0) s += "<Lang><Format" + Attrs(R(2), {"g", "DateSeparator"}) + "/></Lang>";
  if (R(6) == 0) s += "<IO" + Attrs(R(2), {"Session"}) + "/>";
  s += "</Grid>";
  return R(5) == 0 ? Mutate(s) : s;
}

// An export request: columns of the three sections in random order, with
// and without their own settings, now and then more than the export takes
// or names longer than it keeps.
std::string ExportRequest() {
  std::string s = "<Grid>";
  if (R(3)) s += "<Cfg ExportType=\"" + Escape(R(3) ? std::string(Pick({"filtered,outline", "expanded indent", "Strings"
                                                                      "Dates", "x", ""})) : Value()) + "\"/>";
  for (const char* section : {"LeftCols", "Cols", "RightCols"}) {
    if (R(4) == 0) continue;
    s += std::string("<") + section + ">";
    for (int i = R(R(10) ? 8 : 700); i > 0; i--) {
      std::string name = R(20) ? Pick(cols) : std::string(100 + R(100), 'N');
      s += "<C Name=\"" + name + "\"" + Attrs(R(3), {"Visible", "Width", "CanExport", "CanHide"}) + "/>";
    }
    s += std::string("</") + section + ">";
  }
  s += "</Grid>";
  return R(6) == 0 ? Mutate(s) : s;
}

// A change document: rows by id, some new, deleted or moved, naming rows,
// pages and the layout's own elements as parents, neighbours and sources.
std::string ChangeDoc() {
  static const std::vector<const char*> targets = {"Cfg", "Body", "Header", "Toolbar", "R", "C", "Customer"};
  auto id = [] { return R(6) ? "r" + std::to_string(R(60)) : R(2) ? std::to_string(R(4)) : Pick(targets); };
  std::string s = "<Grid><Changes>";
  for (int i = R(16); i > 0; i--) {
    s += "<I";
    if (R(10)) s += " id=\"" + id() + "\"";
    switch (R(6)) {
      case 0: s += " Added=\"1\""; break;
      case 1: s += " Deleted=\"1\""; break;
      case 2: s += " Moved=\"1\""; break;
      case 3: s += " Added=\"1\" Deleted=\"1\""; break;
    }
    for (const char* name : {"Parent", "Next", "Prev", "Copy"})
      if (R(3) == 0) s += std::string(" ") + name + "=\"" + id() + "\"";
    if (R(4) == 0) s += std::string(" Recalc=\"") + Pick({"1", "2", "4", "8", "16", "31", "256", "x"}) + "\"";
    if (R(4) == 0) s += std::string(" Def=\"") + Pick({"Customer", "Order", "R", "Nope"}) + "\"";
    if (R(3) == 0) s += " Changed=\"1\"";
    s += Attrs(R(4), cols) + "/>";
  }
  s += "</Changes></Grid>";
  return R(8) == 0 ? Mutate(s) : s;
}

// Saves to a scratch file beside the run, or to names that can't be written.
int SaveFile(int g) {
  static const std::string scratch = "/tmp/sarvendo-fuzz-" + std::to_string(getpid()) + ".xml";
  const std::string name = R(4) ? scratch : Pick({"/nonexistent/x.xml", "/tmp", ""});
  static const int choices[] = {0, 1, 4, 16, 28, 29, 40, 124, 255, -1};
  const int flags = choices[R(10)];
  int result = SaveToFileA(g, name.c_str(), flags);
  if (result == 0 && name == scratch && R(2)) {
    int copy = CreateGridA(scratch.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr);
    if (copy >= 0) DeleteGrid(copy);
  }
  remove(scratch.c_str());
  return result;
}

// The wide forms take any wchar_t a host hands in: bytes widened as they
// are, with now and then a character far outside the 16-bit range.
std::wstring Widen(const std::string& s) {
  static const wchar_t odd[] = {(wchar_t)0xD800, (wchar_t)0xFFFF, (wchar_t)0x10000, (wchar_t)0x10FFFF,
                                (wchar_t)0x7FFFFFFF, (wchar_t)-1, (wchar_t)0x80000000};
  std::wstring w;
  for (char c : s) w += R(40) ? (wchar_t)(unsigned char)c : odd[R(7)];
  return w;
}

void CallWide(int g) {
  const std::wstring q = Widen(Request());
  wchar_t* t = nullptr;
  switch (R(5)) {
    case 0: case 1: t = GetBody(g, q.c_str()); break;
    case 2: t = R(2) ? GetPage(g, q.c_str()) : GetExport(g, Widen(ExportRequest()).c_str()); break;
    case 3: {
      const std::wstring id = Widen("r" + std::to_string(R(60))), col = Widen(Pick(cols)), format = Widen(Value());
      t = GetCells(g, id.c_str(), col.c_str(), R(512), format.c_str());
      break;
    }
    default:
      if (R(2)) {
        UpdateGrid(g, q.c_str());
      } else {
        SaveEx(g, Widen(ChangeDoc()).c_str(), R(4));
        t = GetChanges(g, R(2));
      }
  }
  FreeString(t);
}

// One random call on grid g.
void Call(int g) {
  if (R(4) == 0) return CallWide(g);
  const std::string q = Request();
  char* t = nullptr;
  switch (R(12)) {
    case 0: case 1: case 2: t = GetBodyA(g, q.c_str()); break;
    case 3: case 4: t = GetPageA(g, q.c_str()); break;
    case 5: {
      const std::string id = R(3) ? "r" + std::to_string(R(60)) : Value(), col = R(3) ? Pick(cols) : Value();
      const std::string format = R(2) ? "" : Escape(Value()) + (R(2) ? ",Status,1" : "");
      t = GetCellsA(g, id.c_str(), R(2) ? R(512) : (int)rng(), col.c_str(), format.c_str());
      break;
    }
    case 6: UpdateGridA(g, q.c_str()); break;
    case 7: t = R(3) == 0 ? GetDataA(g) : R(2) ? GetExportA(g, ExportRequest().c_str()) : GetLastIdA(g); break;
    case 8: case 9: SaveExA(g, ChangeDoc().c_str(), R(4)); break;
    case 10: t = R(3) ? GetChangesA(g, R(2)) : (SaveFile(g), nullptr); break;
    default: SetGridLocaleA(g, Pick({"", "C", "C.UTF-8", "en_US.UTF-8", "xx", "\xff"}));
  }
  FreeStringA(t);
}

std::string ReadFile(const std::string& path) {
  std::string s;
  if (FILE* f = fopen(path.c_str(), "rb")) {
    char b[65536];
    for (size_t n; (n = fread(b, 1, sizeof b, f)) > 0;) s.append(b, n);
    fclose(f);
  }
  return s;
}

}  // namespace

int main(int argc, char** argv) {
  const unsigned seed = argc > 1 ? (unsigned)atoi(argv[1]) : 1;
  const long count = argc > 2 ? atol(argv[2]) : 1000;
  const bool big = argc > 3;
  const std::string dir = SARVENDO_SOURCE_DIR "/examples/data/";
  const std::string layout = ReadFile(dir + "layout.xml"), data = ReadFile(dir + "data.xml");
  long created = 0;
  for (long i = 0; i < count; i++) {
    rng.seed(seed * 1000003u + (unsigned)i);
    int g;
    if (big) {
      g = CreateGridA(layout.c_str(), data.c_str(), nullptr, nullptr, nullptr, nullptr);
    } else {
      const std::string doc = Layout(), extra = R(4) == 0 ? Request() : std::string();
      if (R(5) == 0)
        g = CreateGrid(Widen(doc).c_str(), extra.empty() ? nullptr : Widen(extra).c_str(), nullptr, nullptr,
                       nullptr, nullptr);
      else
        g = CreateGridA(doc.c_str(), extra.empty() ? nullptr : extra.c_str(), nullptr, nullptr, nullptr, nullptr);
    }
    if (g < 0) continue;
    created++;
    for (int k = big ? 60 : 1 + R(10); k > 0; k--) Call(g);
    DeleteGrid(g);
  }
  Clear();
  printf("%ld grids of %ld created, no finding\n", created, count);
  return 0;
}
