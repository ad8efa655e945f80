// The exported functions beyond the registry's own results: the inert ones,
// the library lock, the locale table, and the documents a host gets back.
#include <gtest/gtest.h>

#include <clocale>
#include <string>

#include "ApiHelpers.h"
#include "api/Grids.h"

namespace {

class ApiTest : public ::testing::Test {
protected:
  void SetUp() override { Clear(); }
  void TearDown() override { Clear(); }

  static const unsigned long long* TableOf(int index) {
    TGrid* grid = Grids.Get(index);
    if (!grid) return nullptr;
    const unsigned long long* table = grid->LocaleTable;
    Grids.Back(grid);
    return table;
  }
};

TEST_F(ApiTest, InertFunctionsSayNothing) {
  EXPECT_EQ(LastError(), nullptr);
  EXPECT_EQ(LastErrorA(), nullptr);
  EXPECT_EQ(SetDebug(1, L"x"), -1);
  EXPECT_EQ(SetDebugA(0, nullptr), -1);
  FreeString(nullptr);
  FreeStringA(nullptr);
  // The host's lock is a plain reader-writer lock, not taken by the engine.
  EnterRead();
  EnterRead();
  EXPECT_EQ(Create(GridDoc()), 0);
  LeaveRead();
  LeaveRead();
  EnterWrite();
  EXPECT_EQ(SessionOf(0).empty(), false);
  LeaveWrite();
}

// One story, since the library handle lives as long as the process.
TEST_F(ApiTest, LockLibraryCodesAndTheKeptHandle) {
  EXPECT_EQ(UnlockLibrary(), -1);
  EXPECT_EQ(LockLibrary(nullptr), 0);
  EXPECT_EQ(LockLibraryA("libsarvendo-no-such-library.so"), 0);
  EXPECT_EQ(LockLibrary(std::wstring(2000, L'x').c_str()), 0);
  EXPECT_EQ(UnlockLibrary(), -1);
  // The C library stays loaded whatever is closed, so closing twice is safe here.
  ASSERT_EQ(LockLibrary(L"libc.so.6"), 1);
  EXPECT_EQ(LockLibraryA("libc.so.6"), -1);
  EXPECT_EQ(LockLibrary(nullptr), -1);
  EXPECT_EQ(UnlockLibrary(), 1);
  // The handle is kept: locking stays refused, and closing again fails.
  EXPECT_EQ(LockLibraryA(nullptr), -1);
  EXPECT_EQ(UnlockLibrary(), 0);
}

// One story, since the collation table is built once per process.
TEST_F(ApiTest, OneLocaleTableServesTheWholeProcess) {
  ASSERT_EQ(Create(GridDoc()), 0);
  ASSERT_EQ(Create(GridDoc()), 1);
  EXPECT_EQ(SetGridLocaleA(0, "xx_NO.such-locale"), -2);
  EXPECT_EQ(SetGridLocale(0, std::wstring(2000, L'q').c_str()), -2);
  EXPECT_EQ(TableOf(0), nullptr);

  ASSERT_EQ(SetGridLocaleA(0, "C.UTF-8"), 0);
  const unsigned long long* table = TableOf(0);
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table[0], 0u);
  EXPECT_LT(table['a'], table['b']);
  EXPECT_LT(table['A'], table['Z']);
  EXPECT_NE(table[0xE9], 0u);

  // Any later name, known or not, gets the first table.
  EXPECT_EQ(SetGridLocale(1, L"xx_NO.such-locale"), 0);
  EXPECT_EQ(TableOf(1), table);
  EXPECT_EQ(SetGridLocaleA(1, std::string(2000, 'q').c_str()), 0);
  EXPECT_EQ(TableOf(1), table);
  // No grid: -1, the table is kept all the same.
  EXPECT_EQ(SetGridLocaleA(7, "C"), -1);
  // An empty name detaches this grid only.
  EXPECT_EQ(SetGridLocaleA(0, ""), 0);
  EXPECT_EQ(TableOf(0), nullptr);
  EXPECT_EQ(TableOf(1), table);
  EXPECT_EQ(SetGridLocale(1, nullptr), 0);
  EXPECT_EQ(TableOf(1), nullptr);
  setlocale(LC_ALL, "C");
}

TEST_F(ApiTest, GetDataGivesTheLoadedLayoutBackAsADocument) {
  const int index = Create(
      "<Grid><Cfg id='G' Paging='3'/><Cols><C Name='Price' Type='Float' Format='#.00'/></Cols>"
      "<Body><B><I id='r1' Price='2.5' Text='caf\xC3\xA9'><I id='r2' Price='1'/></I></B></Body></Grid>");
  ASSERT_EQ(index, 0);
  const std::string data = TakeA(GetDataA(index)).value_or("<null>");
  EXPECT_EQ(data.rfind("<?xml version=\"1.0\"?><Grid", 0), 0u) << data;
  EXPECT_NE(data.find("caf\xC3\xA9"), std::string::npos) << data;
  EXPECT_NE(data.find("id=\"r2\""), std::string::npos) << data;
  // The load completed the layout: the row default carries the cell type.
  EXPECT_NE(data.find("PriceType=\"Float\""), std::string::npos) << data;
  // The wide form is the same document.
  const std::wstring wide = Take(GetData(index)).value_or(L"<null>");
  EXPECT_EQ(wide.size(), data.size() - 1);
  EXPECT_NE(wide.find(L"caf\u00E9"), std::wstring::npos);
  // A saved document loads again into the same grid.
  const int again = Create(data);
  ASSERT_EQ(again, 1);
  EXPECT_EQ(TakeA(GetDataA(again)).value_or(""), data);
}

TEST_F(ApiTest, WideAndUtf8FormsReachTheSameGrid) {
  const int index = CreateGrid(L"<Grid><IO Session='\u00E9t\u00E9'/></Grid>", nullptr, nullptr, nullptr, nullptr,
                               nullptr);
  ASSERT_EQ(index, 0);
  EXPECT_EQ(SessionOf(index), "\xC3\xA9t\xC3\xA9");
  EXPECT_EQ(FindGridA("<Grid><IO Session='\xC3\xA9t\xC3\xA9'/></Grid>"), index);
  EXPECT_EQ(FindGrid(L"<Grid><IO Session='\u00E9t\u00E9'/></Grid>"), index);
}

}  // namespace

namespace {

// The cell query's two middle arguments stand in another order in the A form.
TEST(ApiCells, WideAndUtf8FormsTakeTheirOwnArgumentOrder) {
  Clear();
  int grid = Create("<Grid><Cols><C Name='A' Type='Int'/></Cols><Body><B><I id='r1' A='5'/><I id='r2' A='7'/>"
                    "</B></Body></Grid>");
  ASSERT_EQ(grid, 0);
  EXPECT_EQ(Take(GetCells(grid, L"r1", L"A", 1, nullptr)).value_or(L"<null>"), L"|5|7");
  EXPECT_EQ(TakeA(GetCellsA(grid, "r1", 1, "A", nullptr)).value_or("<null>"), "|5|7");
  EXPECT_EQ(TakeA(GetCellsA(grid, "r2", 0, "A", ",")).value_or("<null>"), "7");
  EXPECT_EQ(GetCellsA(grid + 1, "r1", 0, "A", nullptr), nullptr);
  Clear();
}

}  // namespace
