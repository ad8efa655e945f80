// The saved document: the parts GetData composes by its flags, the filter
// rows in short form, and SaveToFile's files, which CreateGrid reads back.
#include <sys/resource.h>
#include <dirent.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "GridTest.h"
#include "tree/UTF.h"

namespace {

class SavedDataTest : public GridTest {
protected:
  void SetUp() override {
    GridTest::SetUp();
    dir = testing::TempDir() + "sarvendo-data-" + std::to_string(getpid()) + "/";
    std::string make = "mkdir -p '" + dir + "'";
    ASSERT_EQ(system(make.c_str()), 0);
  }
  void TearDown() override {
    std::string remove = "rm -rf '" + dir + "'";
    EXPECT_EQ(system(remove.c_str()), 0);
  }
  std::wstring Data(int flags) { return Take(grid->GetData(flags, nullptr)); }
  int SaveFile(const std::string& name, int flags) {
    return grid->SaveToFile(std::wstring(name.begin(), name.end()).c_str(), flags);
  }
  static std::string Read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  }
  std::vector<std::string> Files() {
    std::vector<std::string> names;
    if (DIR* d = opendir(dir.c_str())) {
      while (dirent* e = readdir(d))
        if (e->d_name[0] != '.') names.push_back(e->d_name);
      closedir(d);
    }
    return names;
  }
  // A grid cut into pages of two rows by a first body request.
  void Paged() {
    Create(L"<Grid><IO Session='s&amp;1'/><Cfg Paging='3' PageLength='2' Sort='A' SearchCols='x&quot;y'/>"
           L"<Cols><C Name='A' Type='Int'/></Cols><Head><Filter id='F' A='1'/></Head><Foot><I id='f'/></Foot>"
           L"<Extra/><Body><B><I id='r1' A='3'/><I id='r2' A='1'/><I id='r3' A='2'/></B></Body></Grid>");
    Take(grid->GetBody(nullptr, nullptr));
  }
  std::string dir;
};

TEST_F(SavedDataTest, FlagsChooseTheParts) {
  Paged();
  const std::wstring io = L"<IO Session=\"s&amp;1\"/>",
                    cfg = L"<Cfg Sort=\"A\" Group=\"\" SearchExpression=\"\" SearchAction=\"\" SearchType=\"\" "
                          L"SearchMethod=\"\" SearchDefs=\"\" SearchCols=\"x&quot;y\" RootCount=\"3\"/>",
                    filters = L"<Filters><Filter id=\"F\"/></Filters>",
                    pages = L"<B _0F=\"16\"><I id=\"r1\" A=\"3\" _0F=\"17\"/><I id=\"r2\" A=\"1\" _0F=\"17\"/></B>"
                            L"<B _0F=\"16\"><I id=\"r3\" A=\"2\" _0F=\"17\"/></B>",
                    body = L"<Body PagesCreated=\"1\" _0F=\"16\">" + pages + L"</Body>",
                    fixed = L"<Head _0F=\"16\"><Filter id=\"F\" Kind=\"Filter\" _0F=\"16\"/></Head>"
                            L"<Foot _0F=\"16\"><I id=\"f\" _0F=\"16\"/></Foot>";
  const struct { int Flags; std::wstring Text; } cases[] = {
      {0, io + cfg + filters + body},
      {28, io + cfg + filters + body},
      {1, io + cfg + filters + body},
      {4, io},
      {32, fixed},
      // Without the short Cfg the pages are marked to be joined on reading.
      {16, L"<Body PagesCreated=\"-1\" _0F=\"16\">" + pages + L"</Body>"},
      {40, cfg + fixed},
  };
  for (auto& c : cases) EXPECT_EQ(Data(c.Flags), L"<Grid>" + c.Text + L"</Grid>") << c.Flags;
  // All sections as they stand, in tree order, with the first page's CDef left out.
  std::wstring all = Data(124);
  EXPECT_EQ(all.find(L"<Grid><IO Session=\"s&amp;1\" _0F=\"16\"/><Cfg Paging=\"3\""), 0u) << all;
  EXPECT_NE(all.find(body), std::wstring::npos) << all;
  EXPECT_EQ(all.find(L"CDef"), std::wstring::npos);
  EXPECT_NE(all.find(L"<Extra _0F=\"16\"/>"), std::wstring::npos);
  // Afterwards the grid is as it was.
  EXPECT_EQ(Attr(grid->Body, L"PagesCreated") + Attr(Page(0), L"CDef"), L"1R");
  // PagesCreated is put back even where it was absent, as 0.
  Create(L"<Grid><Body><B><I id='r'/></B></Body></Grid>");
  EXPECT_EQ(Data(16), L"<Grid><Body _0F=\"16\"><B _0F=\"16\"><I id=\"r\" _0F=\"17\"/></B></Body></Grid>");
  EXPECT_EQ(Attr(grid->Body, L"PagesCreated"), L"0");
  // No filter rows: an empty Filters element.
  EXPECT_NE(Data(8).find(L"<Filters></Filters>"), std::wstring::npos);
  grid.reset(new TTestGrid());
  EXPECT_EQ(grid->GetData(0, nullptr), nullptr);
}

TEST_F(SavedDataTest, FilterCellsGoToTheirRowsAndLeaveBlanksElsewhere) {
  Create(L"<Grid><Cols><C Name='A'/><C Name='N' Type='Int'/></Cols><Head><Filter id='F1' A='x'/>"
         L"<Filter id='F&lt;2'/></Head></Grid>");
  auto cell = [&](int i, const wchar_t* col, int row, int op, const wchar_t* text, double number) {
    TFilterCell& c = grid->FilterCells[i];
    c.Col = grid->Tree->GetIndex(col, 1);
    c.Row = row;
    c.Operator = op;
    c.IsString = text != nullptr;
    if (text) wcscpy(c.Value.Text, text);
    else c.Value.Numbers[0] = number;
  };
  cell(0, L"A", 0, 11, L"a<b\"\n", 0);
  cell(1, L"N", 1, 3, nullptr, 2.5);
  cell(2, L"A", 1, 1, L"", 0);
  grid->FilterCount = 3;
  EXPECT_EQ(Data(8).substr(Data(8).find(L"<Filters>")),
            L"<Filters><Filter id=\"F1\" A=\"a&lt;b&quot;&#x0A;\" AFilter=\"11\"  />"
            L"<Filter id=\"F&lt;2\"  N=\"2.5\" NFilter=\"3\" A=\"\" AFilter=\"1\"/></Filters></Grid>");
  // Head goes along: the filter rows travel inside it instead.
  EXPECT_EQ(Data(40).find(L"<Filters>"), std::wstring::npos);
  // A value that fills its whole area comes out cut, not overrun.
  std::fill(std::begin(grid->FilterCells[0].Value.Text), std::end(grid->FilterCells[0].Value.Text), L'&');
  EXPECT_NE(Data(8).find(std::wstring(10, L'&').replace(0, 10, L"&amp;&amp;")), std::wstring::npos);
}

TEST_F(SavedDataTest, SavedFilesLoadBackAsTheyWere) {
  Paged();
  const std::string utf8 = dir + "grid.xml", wide = dir + "wide.xml";
  ASSERT_EQ(SaveFile(utf8, 0), 0);
  std::wstring text = Data(28);
  std::string bytes = Read(utf8);
  EXPECT_EQ(bytes.substr(0, 7), "<Grid><");  // no mark, no prefix
  char* expected = ToUTF8(text.c_str(), (int)text.size(), nullptr, false);
  EXPECT_EQ(bytes, expected);
  free(expected);
  ASSERT_EQ(SaveFile(wide, 1), 0);
  EXPECT_EQ(Read(wide), std::string((const char*)text.data(), text.size() * sizeof(wchar_t)));
  EXPECT_EQ((std::vector<std::string>{"grid.xml", "wide.xml"}).size(), Files().size());

  // Read back: the same document; the pages stand since the sort went along.
  std::wstring name(utf8.begin(), utf8.end());
  Create(name);
  EXPECT_EQ(Data(28), text);
  EXPECT_EQ(Pages(), L"r1,r2|r3");

  // Flags 16 mark the pages to be joined: one page of all rows, cut again by the next body request.
  Paged();
  ASSERT_EQ(SaveFile(utf8, 16), 0);
  Create(name);
  EXPECT_EQ(Pages(), L"r1,r2,r3");
  EXPECT_FALSE(grid->Body->Has(L"PagesCreated"));
  // Flags 124 keep PagesCreated="1": the pages are read as they are.
  Paged();
  std::wstring all = Data(124);
  ASSERT_EQ(SaveFile(utf8, 124), 0);
  Create(name);
  EXPECT_EQ(Pages(), L"r1,r2|r3");
  EXPECT_EQ(Attr(grid->Body, L"PagesCreated"), L"1");
  EXPECT_EQ(Data(124), all);
}

TEST_F(SavedDataTest, AFailedSaveLeavesTheEarlierFileWhole) {
  Paged();
  const std::string target = dir + "kept.xml";
  ASSERT_EQ(SaveFile(target, 0), 0);
  const std::string before = Read(target);
  const struct { std::string Name; int Code; } cases[] = {
      {dir, -1}, {dir + "missing/x.xml", -1}, {"", -1}, {"/dev/full", -2}};
  for (auto& c : cases) EXPECT_EQ(SaveFile(c.Name, 0), c.Code) << c.Name;
  EXPECT_EQ(grid->SaveToFile(nullptr, 0), -1);
  // A directory given to read back is no document either.
  TTree tree;
  EXPECT_EQ(tree.LoadXml(std::wstring(dir.begin(), dir.end()).c_str()), -1);

  // A write cut short by the file size limit: -2, the earlier file unchanged, no file left beside it.
  for (int i = 0; i < 200; i++)
    grid->Save((L"<Grid><Changes><I id='n" + std::to_wstring(i) + L"' Added='1' Note='" + std::wstring(50, L'x') +
                L"'/></Changes></Grid>").c_str(), 0);
  void (*previous)(int) = signal(SIGXFSZ, SIG_IGN);
  rlimit limit, small = {4096, 4096};
  getrlimit(RLIMIT_FSIZE, &limit);
  small.rlim_max = limit.rlim_max;
  setrlimit(RLIMIT_FSIZE, &small);
  int code = SaveFile(target, 0);
  setrlimit(RLIMIT_FSIZE, &limit);
  signal(SIGXFSZ, previous);
  EXPECT_EQ(code, -2);
  EXPECT_EQ(Read(target), before);
  EXPECT_EQ(Files(), std::vector<std::string>{"kept.xml"});
}

}  // namespace
