// Workbook export: the written sheet's XML (read back with unzip), its
// formats, and the files left behind by failures.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "GridTest.h"
#include "sarvendo.h"

namespace {

bool Exists(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

// Files of a folder, by name.
std::string Listing(const std::string& folder) {
  std::string names;
  FILE* pipe = popen(("ls -A " + folder).c_str(), "r");
  char line[512];
  while (pipe && fgets(line, sizeof line, pipe)) names += line;
  if (pipe) pclose(pipe);
  return names;
}

class ExportXlsxTest : public GridTest {
protected:
  void SetUp() override {
    GridTest::SetUp();
    char pattern[] = "/tmp/sarvendo-xlsx-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    folder = pattern;
    path = folder + "/grid.xlsx";
  }
  void TearDown() override { system(("rm -rf " + folder).c_str()); }
  void NeedWorkbook() {
    if (grid->SaveExportXlsx(L"<Grid/>", L"/nonexistent-folder/x.xlsx") == EXlsxUnavailable)
      GTEST_SKIP() << "built without the workbook library";
    if (system("command -v unzip >/dev/null 2>&1") != 0) GTEST_SKIP() << "unzip not found";
  }
  int Save(const std::wstring& request) {
    std::wstring wide(path.begin(), path.end());
    return grid->SaveExportXlsx(request.c_str(), wide.c_str());
  }
  // One part of the written workbook.
  std::string Part(const char* name) {
    std::string text;
    FILE* pipe = popen(("unzip -p " + path + " " + name).c_str(), "r");
    char buffer[4096];
    size_t n;
    while (pipe && (n = fread(buffer, 1, sizeof buffer, pipe)) > 0) text.append(buffer, n);
    if (pipe) pclose(pipe);
    return text;
  }
  // The sheet's rows from the first body row on.
  std::string Rows() {
    std::string sheet = Part("xl/worksheets/sheet1.xml");
    size_t from = sheet.find("<sheetData>"), to = sheet.find("</sheetData>");
    return from == std::string::npos || to == std::string::npos ? "<none>" : sheet.substr(from, to - from);
  }
  std::string folder, path;
};

TEST_F(ExportXlsxTest, CellsByType) {
  Create(L"<Grid><Header CanExport='0'/><Cols><C Name='A' Type='Int' Format='#,##0'/>"
         L"<C Name='F' Type='Float' Format='0.0%'/><C Name='T' Type='Text'/><C Name='B' Type='Bool'/>"
         L"<C Name='E' Type='Enum' Enum='|no|yes'/><C Name='L' Type='Link'/><C Name='H' Visible='0' Type='Text'/>"
         L"<C Name='N' Type='Int'/></Cols><Body><B>"
         L"<I A='1234' F='0.25' T='007' B='1' E='1' L='|http://h.example/p|Home' H='gone' N='x'/>"
         L"<I A='' T='&lt;&amp;&quot;' B='0' E='0' L=''/>"
         L"</B></Body></Grid>");
  NeedWorkbook();
  ASSERT_EQ(Save(L"<Grid><Cols><C Name='A'/><C Name='F'/><C Name='T'/><C Name='B'/><C Name='E'/><C Name='L'/>"
                 L"<C Name='H'/><C Name='N'/></Cols></Grid>"),
            0);
  std::string rows = Rows();
  const char* const expected[] = {
      "<c r=\"A1\" s=\"1\"><v>1234</v></c>",                       // a number with its thousands format
      "<c r=\"B1\" s=\"2\"><v>0.25</v></c>",                       // percent
      "<c r=\"C1\" t=\"inlineStr\"><is><t>007</t></is></c>",       // a text that looks like a number
      "<c r=\"D1\" t=\"b\"><v>1</v></c>",
      "<c r=\"E1\" t=\"inlineStr\"><is><t>yes</t></is></c>",       // an enum as its text
      "t=\"inlineStr\"><is><t>Home</t></is>",  // the link's text
      "<c r=\"G1\"><v>0</v></c>",                                  // N, H being absent
      "<c r=\"C2\" t=\"inlineStr\"><is><t>&lt;&amp;\"</t></is></c>",
      "<c r=\"D2\" t=\"b\"><v>0</v></c>",
      "<c r=\"E2\" t=\"inlineStr\"><is><t>no</t></is></c>",
  };
  for (const char* cell : expected) EXPECT_NE(rows.find(cell), std::string::npos) << cell << "\n" << rows;
  EXPECT_EQ(rows.find("A2"), std::string::npos) << "an empty number stays empty";
  EXPECT_EQ(rows.find("gone"), std::string::npos);
  std::string styles = Part("xl/styles.xml");
  EXPECT_NE(styles.find("formatCode=\"#,##0\""), std::string::npos);
  EXPECT_NE(styles.find("formatCode=\"0.0%\""), std::string::npos);
  EXPECT_NE(Part("xl/worksheets/_rels/sheet1.xml.rels").find("Target=\"http://h.example/p\""), std::string::npos);
}

TEST_F(ExportXlsxTest, DateMasksTranslated) {
  const struct { const wchar_t* Format; const char* Code; } cases[] = {
      {L"dd.MM.yyyy HH:mm", "dd\\.mm\\.yyyy hh:mm"},
      {L"d MMM yy h:mm tt", "d mmm yy h:mm AM/PM"},
      {L"&apos;at&apos; H\\h ddddd yyy%M", "\\a\\t h\\h d m"},  // literals; longer runs start new tokens
      {L"", "m/d/yyyy"},                                   // no mask: the default one
      {L"x", "m/d/yyyy"},                                  // one letter names a mask of Lang's Format
      {L"s", "yyyy\\-mm\\-dd"},
  };
  for (auto& c : cases) {
    Create(std::wstring(L"<Grid><Lang><Format s='yyyy-MM-dd' DateSeparator='/'/></Lang><Header CanExport='0'/>"
                        L"<Cols><C Name='D' Type='Date' Format='") +
           c.Format + L"'/></Cols><Body><B><I D='1700000000000'/></B></Body></Grid>");
    NeedWorkbook();
    ASSERT_EQ(Save(L"<Grid><Cols><C Name='D'/></Cols></Grid>"), 0);
    std::string code = std::string("formatCode=\"") + c.Code + "\"";
    EXPECT_NE(Part("xl/styles.xml").find(code), std::string::npos) << code << "\n" << Part("xl/styles.xml");
    EXPECT_NE(Rows().find("<v>45244.92592592593</v>"), std::string::npos) << Rows();
  }
}

TEST_F(ExportXlsxTest, HeaderOutlineFreezeAndFilter) {
  Create(L"<Grid><Header Rows='2' Mid00='Both' Mid00Span='3'/><Cols><C Name='A' Type='Text'/>"
         L"<C Name='H' Type='Text' Visible='0'/><C Name='B' Type='Text'/></Cols><Body><B>"
         L"<I A='p' Expanded='0'><I A='c'><I A='g'/></I></I><I A='q' Expanded='1'><I A='d'/></I></B></Body></Grid>");
  NeedWorkbook();
  ASSERT_EQ(Save(L"<Grid><Cols><C Name='A'/><C Name='H'/><C Name='B'/></Cols></Grid>"), 0);
  std::string sheet = Part("xl/worksheets/sheet1.xml");
  const char* const expected[] = {
      "<mergeCell ref=\"A1:B1\"/>",  // the span of three columns, one of them hidden
      "<row r=\"3\" collapsed=\"1\">",
      "<row r=\"4\" hidden=\"1\" outlineLevel=\"1\" collapsed=\"1\">",  // under a closed row
      "<row r=\"5\" hidden=\"1\" outlineLevel=\"2\">",
      "<row r=\"6\">",
      "<row r=\"7\" outlineLevel=\"1\">",  // under an open row
      "<pane ySplit=\"2\" topLeftCell=\"A3\" activePane=\"bottomLeft\" state=\"frozen\"/>",
      "<autoFilter ref=\"A2:B7\"/>",
      "<outlinePr summaryBelow=\"0\"/>",
  };
  for (const char* part : expected) EXPECT_NE(sheet.find(part), std::string::npos) << part << "\n" << sheet;
}

// Failures leave neither the target nor a temporary file; an earlier file
// at the target stays as it was.
TEST_F(ExportXlsxTest, FailuresLeaveNoFile) {
  Create(L"<Grid><Cols><C Name='A' Type='Int'/></Cols><Body><B><I A='1'/><I A='2'/><I A='3'/></B></Body></Grid>");
  NeedWorkbook();
  { std::ofstream(path) << "earlier"; }
  grid->SheetRows = 3;  // header and two rows: the third row is one too many
  EXPECT_EQ(Save(L"<Grid><Cols><C Name='A'/></Cols></Grid>"), EXlsxTooManyRows);
  EXPECT_EQ(ReadFile(path), "earlier");
  grid->SheetRows = 4;
  EXPECT_EQ(Save(L"<Grid><Cols><C Name='A'/></Cols></Grid>"), 0);
  EXPECT_EQ(ReadFile(path).substr(0, 2), "PK");
  EXPECT_EQ(Save(L"<Grid"), -3);
  EXPECT_EQ(Save(L""), -3);
  const std::string bad[] = {"", folder + "/missing/x.xlsx", folder, "/proc/version"};
  for (const std::string& target : bad) {
    std::wstring wide(target.begin(), target.end());
    EXPECT_EQ(grid->SaveExportXlsx(L"<Grid/>", wide.c_str()), EXlsxUnwritable) << target;
  }
  EXPECT_EQ(grid->SaveExportXlsx(L"<Grid/>", nullptr), EXlsxUnwritable);
  EXPECT_EQ(Listing(folder), "grid.xlsx\n");
}

// A request beyond the export's limits: columns past the 512th are left out,
// a text past a cell's room is cut.
TEST_F(ExportXlsxTest, LimitsExceeded) {
  std::wstring cols, request;
  for (int i = 0; i < 600; i++) {
    cols += L"<C Name='C" + std::to_wstring(i) + L"' Type='Int'/>";
    request += L"<C Name='C" + std::to_wstring(i) + L"'/>";
  }
  Create(L"<Grid><Header CanExport='0'/><Cols>" + cols + L"<C Name='T' Type='Text'/></Cols><Body><B><I C0='1' C599='2' T='" +
         std::wstring(40000, L'x') + L"'/></B></Body></Grid>");
  NeedWorkbook();
  ASSERT_EQ(Save(L"<Grid><Cols><C Name='T'/>" + request + L"</Cols></Grid>"), 0);
  std::string rows = Rows();
  EXPECT_NE(rows.find("<t>" + std::string(32767, 'x') + "</t>"), std::string::npos);
  EXPECT_NE(rows.find("<c r=\"B1\"><v>1</v></c>"), std::string::npos);
  EXPECT_EQ(rows.find("<v>2</v>"), std::string::npos);  // C599 is beyond the limit
}

TEST(ExportXlsxApi, MissingGridAndAvailability) {
  EXPECT_EQ(SaveExportXlsxA(99999, "<Grid/>", "/tmp/never.xlsx"), -1);
  EXPECT_EQ(SaveExportXlsx(-1, L"<Grid/>", L"/tmp/never.xlsx"), -1);
  EXPECT_FALSE(Exists("/tmp/never.xlsx"));
#ifndef SARVENDO_XLSX
  TTestGrid grid;
  EXPECT_EQ(grid.SaveExportXlsx(L"<Grid/>", L"/tmp/never.xlsx"), SARVENDO_UNAVAILABLE);
#endif
}

}  // namespace
