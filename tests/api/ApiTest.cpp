// The C surface: the registry's indices, sessions and search, what a host
// gets for indices that hold no grid, the two forms of text arguments, the
// library lock and the locale table.
#include <climits>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "ApiHelpers.h"
#include "api/Grids.h"

namespace {

using ApiTest = EmptyRegistry;

// Clear is covered by every test starting again at index 0.
TEST_F(ApiTest, IndicesFillTheLowestFreeSlotAndTheTableGrows) {
  for (int i = 0; i < 33; i++) ASSERT_EQ(Create(GridDoc()), i);
  // Grown slots start empty, not as garbage.
  for (int i = 33; i < 64; i++) EXPECT_EQ(SessionOf(i), "<null>") << i;
  EXPECT_EQ(DeleteGrid(3), 0);
  EXPECT_EQ(DeleteGrid(3), -1);
  // The count and the list cover all live grids; max is not looked at.
  std::vector<int> out(33, -9);
  EXPECT_EQ(GetIndexes(out.data(), 4), 32);
  EXPECT_EQ(out[2], 2);
  EXPECT_EQ(out[3], 4);
  EXPECT_EQ(out[31], 32);
  EXPECT_EQ(out[32], -9);
  EXPECT_EQ(Create(GridDoc()), 3);
}

// One call of each path that looks a grid up: the forwarded calls, the ones
// that find the slot themselves, and the one that doesn't stamp the grid.
TEST_F(ApiTest, IndicesWithoutAGridGiveTheNoGridResults) {
  ASSERT_EQ(Create(GridDoc()), 0);
  ASSERT_EQ(DeleteGrid(0), 0);
  for (int index : {-1, 0, 5, 1000, INT_MIN, INT_MAX}) {
    SCOPED_TRACE(index);
    EXPECT_EQ((std::vector<int>{SaveEx(index, L"<Grid/>", 1), UpdateGridA(index, "<Grid/>"), DeleteGrid(index),
                                SetGridLocaleA(index, "")}),
              std::vector<int>(4, -1));
    EXPECT_EQ((std::vector<std::optional<std::string>>{TakeA(GetCellsA(index, "r1", 0, "A", "")),
                                                       TakeA(GetLastIdA(index)), TakeA(GetGridSessionA(index))}),
              std::vector<std::optional<std::string>>(3));
    EXPECT_FALSE(Take(GetBody(index, L"<Grid/>")));
  }
}

TEST_F(ApiTest, FailedCreationLeavesTheRegistryUntouched) {
  const std::string empty = testing::TempDir() + "sarvendo-empty.xml", good = GridDoc();
  fclose(fopen(empty.c_str(), "wb"));
  // The last: a failure in any one document fails the grid.
  const std::tuple<const char*, const char*, int> cases[] = {
      {"", " \n\t", -1}, {"<Grid><Cfg</Grid>", nullptr, -3}, {"/nonexistent/dir/layout.xml", nullptr, -1},
      {empty.c_str(), nullptr, -2}, {good.c_str(), "<Grid", -3}};
  for (const auto& [first, second, code] : cases)
    EXPECT_EQ(CreateGridA(first, second, nullptr, nullptr, nullptr, nullptr), code) << first;
  remove(empty.c_str());
  EXPECT_EQ(CreateGrid(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(GetIndexes(nullptr, 0), 0);
}

TEST_F(ApiTest, GeneratedSessionsAreIndexStampAndTwoRandomNumbers) {
  Create(GridDoc());
  const std::string session = SessionOf(Create(GridDoc()));
  int stamp, first, second, end = 0;
  ASSERT_EQ(sscanf(session.c_str(), "1_%d_%d_%d%n", &stamp, &first, &second, &end), 3) << session;
  EXPECT_EQ(end, (int)session.size()) << session;
  // The session is written into the grid's IO as well.
  EXPECT_NE(TakeA(GetDataA(1)).value_or("").find("Session=\"" + session + "\""), std::string::npos);
  EXPECT_EQ(FindGridA(SessionDoc(session).c_str()), 1);
}

TEST_F(ApiTest, ExplicitSessionsAreKeptAndSharedOnesFindTheLowestIndex) {
  ASSERT_EQ(Create(GridDoc()), 0);
  ASSERT_EQ(Create(GridDoc("abc")), 1);
  ASSERT_EQ(Create(GridDoc("abc")), 2);
  EXPECT_EQ(FindGrid(L"<Grid><IO Session='abc'/></Grid>"), 1);
  ASSERT_EQ(UpdateGridA(1, SessionDoc("new").c_str()), 0);
  EXPECT_EQ(FindGridA(SessionDoc("abc").c_str()), 2);
  EXPECT_EQ(FindGridA(SessionDoc("new").c_str()), 1);
  // An update that empties the session names the grid by its index.
  ASSERT_EQ(UpdateGrid(2, L"<Grid><IO Session=''/></Grid>"), 0);
  EXPECT_EQ(UpdateGridA(2, "<Grid><IO"), -3);
  EXPECT_EQ(UpdateGridA(2, nullptr), 0);
  EXPECT_EQ(SessionOf(2), "2");
}

// Later documents of the load order overwrite earlier ones; from the strongest
// down: doc1, doc6, doc5, doc2, doc3, doc4.
TEST_F(ApiTest, TheLoadOrderOfCreateGridDecidesWhichSessionWins) {
  const wchar_t* args[6] = {L"<Grid><IO Session='1'/></Grid>", L"<Grid><IO Session='2'/></Grid>",
                            L"<Grid><IO Session='3'/></Grid>", L"<Grid><IO Session='4'/></Grid>",
                            L"<Grid><IO Session='5'/></Grid>", L"<Grid><IO Session='6'/></Grid>"};
  for (int winner : {1, 6, 5, 2, 3, 4}) {
    EXPECT_EQ(SessionOf(CreateGrid(args[0], args[1], args[2], args[3], args[4], args[5])), std::to_string(winner));
    args[winner - 1] = nullptr;
  }
}

TEST_F(ApiTest, FindGridTellsBadDocumentsFromMissingSessions) {
  Create(GridDoc("s1"));
  EXPECT_EQ(FindGrid(nullptr), -3);
  const std::pair<const char*, int> cases[] = {
      {"", -3}, {"<Grid><IO", -3}, {"<Grid/>", -2}, {"<Grid><IO/></Grid>", -2}, {"<Grid><IO Session=''/></Grid>", -2},
      {"<Grid><IO Session='s2'/></Grid>", -2}, {"<Grid><Cfg/><IO Session='s1'/></Grid>", 0}};
  for (const auto& [doc, code] : cases) EXPECT_EQ(FindGridA(doc), code) << doc;
}

TEST_F(ApiTest, FindGridsComparesCfgAttributesByTypeAndValue) {
  for (const char* kind : {"a", "b", "a"}) Create(GridDoc("", kind));
  ASSERT_EQ(Create("<Grid><Cfg Kind='a' Paging='3'/></Grid>"), 3);
  int out[4] = {-9, -9, -9, -9};
  EXPECT_EQ(FindGridsA(out, 0, "<Grid><Cfg Kind='a'/></Grid>", 0, 0), 3);
  EXPECT_EQ(std::vector<int>(out, out + 4), (std::vector<int>{0, 2, 3, -9}));
  EXPECT_EQ(FindGrids(out, 0, L"<Grid><Cfg Kind='a' Paging='3'/></Grid>", 0, 0), 1);
  EXPECT_EQ(out[0], 3);
  // A number is no text; a leading id names the filter; no attributes match all, no Cfg none.
  const std::pair<const char*, int> counts[] = {
      {"<Grid><Cfg Paging='x3'/></Grid>", 0}, {"<Grid><Cfg id='filter' Kind='b'/></Grid>", 1},
      {"<Grid><Cfg/></Grid>", 4}, {"<Grid><IO/></Grid>", 0}, {"<Grid><Cfg", -3}};
  for (const auto& [filter, count] : counts) EXPECT_EQ(FindGridsA(nullptr, 0, filter, 0, 0), count) << filter;
  // A positive max stops the walk.
  out[1] = -9;
  EXPECT_EQ(FindGridsA(out, 1, "<Grid><Cfg/></Grid>", 0, 0), 1);
  EXPECT_EQ(std::vector<int>(out, out + 2), (std::vector<int>{0, -9}));
}

TEST_F(ApiTest, FindGridsWithIdleSecondsLeavesOutRecentlyUsedGrids) {
  for (int i = 0; i < 2; i++) ASSERT_EQ(Create(GridDoc()), i);
  TGrid* grid = Grids.Get(0);
  grid->LastAccess -= 100;
  Grids.Back(grid);
  const char* all = "<Grid><Cfg/></Grid>";
  EXPECT_EQ(TakeA(FindGridsStrA(0, all, 60, 0)).value_or("<null>"), "0");
  // Using a grid makes it recent again; GetLastId deliberately doesn't.
  FreeStringA(GetLastIdA(0));
  EXPECT_EQ(TakeA(FindGridsStrA(0, all, 60, 0)).value_or("<null>"), "0");
  FreeStringA(GetDataA(0));
  EXPECT_EQ(FindGridsA(nullptr, 0, all, 60, 0), 0);
}

// An absent Session is null in the wide form and the empty text in the 8-bit
// one; a document without IO is null in both.
TEST_F(ApiTest, GetSessionDiffersForAnAbsentAttributeOnly) {
  const std::pair<const char*, const char*> cases[] = {
      {"<Grid><IO Session='s\xC3\xA9'/></Grid>", "s\xC3\xA9"}, {"<Grid><IO Session=''/></Grid>", ""},
      {"<Grid><IO/></Grid>", ""}, {"<Grid/>", "<null>"}, {"<Grid><IO", "<null>"}, {"", "<null>"}};
  for (const auto& [doc, session] : cases) EXPECT_EQ(TakeA(GetSessionA(doc)).value_or("<null>"), session) << doc;
  EXPECT_EQ(Take(GetSession(L"<Grid><IO Session=''/></Grid>")).value_or(L"<null>"), L"");
  for (const wchar_t* doc : {L"<Grid><IO/></Grid>", L"<Grid/>", (const wchar_t*)nullptr})
    EXPECT_FALSE(Take(GetSession(doc)));
  // The 8-bit form also reads wide text behind a 4-byte FF FE mark.
  const std::wstring wide = L"<Grid><IO Session='w\u00E9'/></Grid>";
  std::vector<char> marked(4 + (wide.size() + 1) * sizeof(wchar_t), 0);
  marked[0] = '\xFF', marked[1] = '\xFE';
  memcpy(marked.data() + 4, wide.c_str(), (wide.size() + 1) * sizeof(wchar_t));
  EXPECT_EQ(TakeA(GetSessionA(marked.data())).value_or("<null>"), "w\xC3\xA9");
}

// The cell query's two middle arguments stand in another order in the A form.
TEST_F(ApiTest, WideAndUtf8FormsReachTheSameGridEachInItsArgumentOrder) {
  ASSERT_EQ(CreateGrid(L"<Grid><IO Session='\u00E9t\u00E9'/><Cols><C Name='A' Type='Int'/></Cols>"
                       L"<Body><B><I id='r1' A='5'/><I id='r2' A='7'/></B></Body></Grid>",
                       nullptr, nullptr, nullptr, nullptr, nullptr),
            0);
  EXPECT_EQ(SessionOf(0), "\xC3\xA9t\xC3\xA9");
  EXPECT_EQ(FindGridA("<Grid><IO Session='\xC3\xA9t\xC3\xA9'/></Grid>"), 0);
  EXPECT_EQ(Take(GetCells(0, L"r1", L"A", 1, nullptr)).value_or(L"<null>"), L"|5|7");
  EXPECT_EQ(TakeA(GetCellsA(0, "r1", 1, "A", nullptr)).value_or("<null>"), "|5|7");
  EXPECT_EQ(TakeA(GetCellsA(0, "r2", 0, "A", ",")).value_or("<null>"), "7");
  // CreateGrid completed the layout: the row default carries the cell type.
  const std::string data = TakeA(GetDataA(0)).value_or("<null>");
  EXPECT_NE(data.find("AType=\"Int\""), std::string::npos) << data;
}

// One story, since the library handle lives as long as the process. The
// host's reader-writer lock is never taken by the engine itself.
TEST_F(ApiTest, LockLibraryCodesTheKeptHandleAndTheHostLock) {
  EXPECT_EQ(UnlockLibrary(), -1);
  EXPECT_EQ(LockLibrary(nullptr), 0);
  EXPECT_EQ(LockLibrary(std::wstring(2000, L'x').c_str()), 0);
  EXPECT_EQ(UnlockLibrary(), -1);
  // The C library stays loaded whatever is closed, so closing twice is safe here.
  ASSERT_EQ(LockLibrary(L"libc.so.6"), 1);
  EXPECT_EQ(LockLibraryA("libc.so.6"), -1);
  EXPECT_EQ(UnlockLibrary(), 1);
  // The handle is kept: locking stays refused, and closing again fails.
  EXPECT_EQ(LockLibraryA(nullptr), -1);
  EXPECT_EQ(UnlockLibrary(), 0);
  EnterRead();
  EnterRead();
  EXPECT_EQ(Create(GridDoc()), 0);
  LeaveRead();
  LeaveRead();
}

const unsigned long long* TableOf(int index) {
  TGrid* grid = Grids.Get(index);
  const unsigned long long* table = grid ? grid->LocaleTable : nullptr;
  if (grid) Grids.Back(grid);
  return table;
}

// One story, since the collation table is built once per process.
TEST_F(ApiTest, OneLocaleTableServesTheWholeProcess) {
  for (int i = 0; i < 2; i++) ASSERT_EQ(Create(GridDoc()), i);
  EXPECT_EQ(SetGridLocaleA(0, "xx_NO.such-locale"), -2);
  EXPECT_EQ(SetGridLocale(0, std::wstring(2000, L'q').c_str()), -2);
  EXPECT_EQ(TableOf(0), nullptr);
  ASSERT_EQ(SetGridLocaleA(0, "C.UTF-8"), 0);
  const unsigned long long* table = TableOf(0);
  ASSERT_NE(table, nullptr);
  EXPECT_LT(table['a'], table['b']);
  // Any later name, known or not, gets the first table; an empty one detaches this grid only.
  EXPECT_EQ(SetGridLocaleA(1, std::string(2000, 'q').c_str()), 0);
  EXPECT_EQ(SetGridLocaleA(0, ""), 0);
  EXPECT_EQ(TableOf(0), nullptr);
  EXPECT_EQ(TableOf(1), table);
  EXPECT_EQ(SetGridLocale(1, nullptr), 0);
  EXPECT_EQ(TableOf(1), nullptr);
  setlocale(LC_ALL, "C");
}

// Both forms of the storing functions reach the same grid: Save's count, the
// log in either form, and a file that a new grid loads as the same document.
TEST_F(ApiTest, SavedChangesAndFilesThroughBothForms) {
  ASSERT_EQ(Create(GridDoc("", "store")), 0);
  EXPECT_EQ(Save(0, L"<Grid><Changes><I id='r1' A='6'/><I A='1'/></Changes></Grid>"), 1);
  EXPECT_EQ(SaveA(0, "<Grid><Changes"), -3);
  EXPECT_EQ(SaveExA(0, "<Grid><Changes><I id='r2' Added='1' A='\xc3\xa9'/></Changes></Grid>", 1), 0);
  EXPECT_EQ(TakeA(GetChangesA(0, 0)).value_or(""), "<Changes _0F=\"16\"><I id=\"r2\" Added=\"1\" A=\"\xc3\xa9\" _0F=\"16\"/></Changes>");
  EXPECT_EQ(Take(GetChanges(0, 1)).value_or(L""), L"<Changes _0F=\"16\"><I id=\"r2\" Added=\"1\" A=\"\u00e9\" _0F=\"16\"/></Changes>");
  EXPECT_FALSE(TakeA(GetChangesA(0, 0)));
  const std::string file = testing::TempDir() + "sarvendo-api-saved.xml";
  const std::wstring wide(file.begin(), file.end());
  ASSERT_EQ(SaveToFileA(0, file.c_str(), 0), 0);
  ASSERT_EQ(Create(file), 1);
  ASSERT_EQ(SaveToFile(1, wide.c_str(), 124), 0);
  ASSERT_EQ(Create(file), 2);
  const std::string data = TakeA(GetDataA(2)).value_or("");
  EXPECT_NE(data.find("<I id=\"r1\" A=\"6\""), std::string::npos) << data;
  EXPECT_NE(data.find("<I id=\"r2\" A=\"\xc3\xa9\""), std::string::npos) << data;
  remove(file.c_str());
}

}  // namespace
