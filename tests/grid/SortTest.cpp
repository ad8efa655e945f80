// Sorting of body rows: keys, column options, per-parent overrides, the
// request cache of UpdateSort, and the free helpers.
#include "GridTest.h"

namespace {

class SortTest : public GridTest {
protected:
  void Create(const std::wstring& cols, const std::wstring& rows) {
    GridTest::Create(L"<Grid><Cols>" + cols + L"</Cols><Body><B>" + rows + L"</B></Body></Grid>");
  }
  bool Request(const wchar_t* sort, int sorting = 1) {
    grid->Cfg->SetString(L"Sort", sort);
    grid->Cfg->SetInt(L"Sorting", sorting);
    return grid->UpdateSort();
  }
  // Sorts by the request and gives the ids under the first page.
  std::wstring SortBy(const wchar_t* sort) {
    Request(sort);
    grid->Sort();
    return Kids(grid->Body->FirstChild);
  }
};

std::wstring Rows(std::initializer_list<const wchar_t*> values) {
  std::wstring s;
  int n = 0;
  for (const wchar_t* v : values) s += L"<I id='r" + std::to_wstring(++n) + L"' A='" + v + L"'/>";
  return s;
}

TEST_F(SortTest, ColumnTypesAndOptions) {
  const std::wstring mixed = Rows({L"b", L"a", L"C", L"10", L"9"}), numbers = Rows({L"10", L"9", L"-3", L"abc", L"12x"}),
                     large = Rows({L"6000000000", L"5000000000", L"-5000000000", L"-6000000000", L"1.5", L"1.25", L"3"});
  const struct {
    const wchar_t* Cols;
    std::wstring Rows;
    const wchar_t *Sort, *Expected;
  } cases[] = {
      {L"<C Name='A'/>", mixed, L"A", L"r4,r5,r2,r1,r3"},  // texts, case folded
      {L"<C Name='A'/>", mixed, L"-A", L"r3,r1,r2,r5,r4"},
      {L"<C Name='A' CaseSensitive='1'/>", Rows({L"b", L"a", L"C"}), L"A", L"r3,r2,r1"},
      // abc counts as 0, 12x as 12
      {L"<C Name='A' Type='Int'/>", numbers, L"A", L"r3,r4,r2,r1,r5"},
      {L"<C Name='A' Type='Float'/>", numbers, L"A", L"r3,r4,r2,r1,r5"},
      {L"<C Name='A' Type='Date'/>", numbers, L"A", L"r3,r4,r2,r1,r5"},
      {L"<C Name='A' Type='Int' NumberSort='0'/>", Rows({L"10", L"9", L"100"}), L"A", L"r1,r3,r2"},
      {L"<C Name='A' NumberSort='1'/>", Rows({L"10", L"9", L"100"}), L"A", L"r2,r1,r3"},
      // Numbers share their leading key and differ by value.
      {L"<C Name='A' Type='Float'/>", large, L"A", L"r4,r3,r6,r5,r7,r2,r1"},
      {L"<C Name='A' Type='Float'/>", large, L"-A", L"r1,r2,r7,r5,r6,r3,r4"},
      // As text, floats appear as their decimal form.
      {L"<C Name='A' NumberSort='0'/>", Rows({L"2.5", L"10.75", L"-1"}), L"A", L"r3,r2,r1"},
      // Sort values replace the cell.
      {L"<C Name='A' Type='Int'/>", L"<I id='r1' A='1' ASortDescValue='10'/><I id='r2' A='2'/><I id='r3' A='3' ASortValue='0'/>",
       L"A", L"r3,r1,r2"},
      {L"<C Name='A' Type='Int'/>", L"<I id='r1' A='1' ASortDescValue='10'/><I id='r2' A='2'/><I id='r3' A='3' ASortValue='0'/>",
       L"-A", L"r1,r2,r3"},
      {L"<C Name='A' WhiteChars='- '/>", Rows({L"b-1", L"a 2", L"-c", L"- a"}), L"A", L"r4,r2,r1,r3"},
      {L"<C Name='A' CharCodes='|a|z|Z|z'/>", Rows({L"a", L"b", L"y", L"Za"}), L"A", L"r2,r3,r1,r4"},
  };
  for (auto& c : cases) {
    Create(c.Cols, c.Rows);
    EXPECT_EQ(SortBy(c.Sort), c.Expected) << c.Cols << " " << c.Sort;
  }
}

TEST_F(SortTest, SeveralColumnsAndTheirLimit) {
  Create(L"<C Name='A'/><C Name='B' Type='Int'/><C Name='C'/><C Name='D' Type='Int'/>",
         L"<I id='r1' A='x' B='1' C='b' D='5'/><I id='r2' A='x' B='2' C='a' D='4'/>"
         L"<I id='r3' A='x' B='1' C='a' D='2'/><I id='r4' A='w' B='9' C='z' D='3'/>"
         L"<I id='r5' A='x' B='1' C='a' D='1'/>");
  // r3 and r5 differ only in D, so they tie in any order.
  std::wstring order = SortBy(L"A,-B,C");
  EXPECT_TRUE(order == L"r4,r2,r3,r5,r1" || order == L"r4,r2,r5,r3,r1") << order;
  order = SortBy(L"A,B,C,D");
  EXPECT_EQ(grid->SortCount, 3);
  EXPECT_TRUE(order == L"r4,r3,r5,r1,r2" || order == L"r4,r5,r3,r1,r2") << order;
  // An unknown column ends the sort before it.
  EXPECT_EQ(SortBy(L"-D,X,A"), L"r1,r2,r4,r3,r5");
  EXPECT_EQ(grid->SortCount, 1);
}

TEST_F(SortTest, ParentsDecideForTheirChildren) {
  Create(L"<C Name='A' Type='Int'/>",
         L"<I id='p1' A='2' CanSort='0'><I id='a' A='2'><I id='g1' A='2'/><I id='g2' A='1'/></I><I id='b' A='1'/></I>"
         L"<I id='p2' A='1' ANumberSort='0'><I id='c' A='10'/><I id='d' A='9'/></I>"
         L"<I id='p3' A='3'><I id='e' A='10'/><I id='f' A='9'/></I>"
         L"<I id='p4' A='0'><I id='only' A='5' ANumberSort='0'/></I>");
  EXPECT_EQ(SortBy(L"A"), L"p4,p2,p1,p3");
  EXPECT_EQ(Kids(Row(L"p1")), L"a,b");   // refuses sorting
  EXPECT_EQ(Kids(Row(L"a")), L"g2,g1");  // but its grandchildren are sorted
  EXPECT_EQ(Kids(Row(L"p2")), L"c,d");   // as text: 10 before 9
  EXPECT_EQ(Kids(Row(L"p3")), L"f,e");   // the override does not leak
  EXPECT_EQ(Kids(Row(L"p4")), L"only");
}

TEST_F(SortTest, LocaleTableOrdersText) {
  std::vector<unsigned long long> table(65536);
  for (int c = 0; c < 65536; c++) table[c] = (unsigned long long)c << 48;
  table[L'b'] = 1ULL << 48;                // b before everything
  table[L'A'] = table[L'a'] | 1ULL << 32;  // A after a, by a second unit
  Create(L"<C Name='A' LocaleCompare='1'/>", Rows({L"a", L"b", L"A", L"c"}));
  grid->LocaleTable = table.data();
  EXPECT_EQ(SortBy(L"A"), L"r2,r1,r3,r4");
  grid->LocaleTable = nullptr;
  std::wstring order = SortBy(L"A");
  EXPECT_TRUE(order == L"r1,r3,r2,r4" || order == L"r3,r1,r2,r4") << order;
}

TEST_F(SortTest, LongTextsTieOnTheirPrefix) {
  // Enough rows for a heap block; a byte written before the text leaves the
  // text unaligned in its record.
  std::wstring rows, head(19, L'x');
  for (int i = 0; i < 16; i++) rows += L"<I id='r" + std::to_wstring(i) + L"'/>";
  Create(L"<C Name='A'/>", rows);
  const wchar_t* tails[] = {L"Bz", L"a", L"C", L"b"};
  for (TNode* row = grid->Body->FirstChild->FirstChild; row; row = row->Next) {
    int i = std::stoi(row->GetId() + 1);
    if (i % 2) row->SetByte(L"q", 1);
    row->SetString(L"A", (head + tails[i % 4] + std::to_wstring(i)).c_str());
  }
  SortBy(L"A");
  std::wstring last;
  for (TNode* row = grid->Body->FirstChild->FirstChild; row; row = row->Next) {
    std::wstring value = row->GetString(L"A");
    EXPECT_LT(wcscasecmp(last.c_str(), value.c_str()), 0) << last << L" " << value;
    last = value;
  }
  Create(L"<C Name='A' CaseSensitive='1'/>", Rows({(head + L"b").c_str(), (head + L"B").c_str()}));
  EXPECT_EQ(SortBy(L"A"), L"r2,r1");
}

TEST_F(SortTest, UpdateSortReportsChanges) {
  Create(L"<C Name='A'/><C Name='B'/>", Rows({L"1"}));
  // Empty items vanish; with sorting off, Sort naming columns is a change but
  // nothing is in force.
  const struct {
    const wchar_t* Sort;
    int Sorting;
    bool Changed;
    int Count;
  } steps[] = {{L"A,-B", 1, true, 2}, {L"A,-B", 1, false, 2}, {L"A,B", 1, true, 2}, {L"A", 1, true, 1},
               {L",,A,", 1, false, 1}, {L"", 1, true, 0},     {L"", 1, false, 0},    {L"A", 0, true, 0},
               {L"A", 0, true, 0},     {L"", 0, false, 0},    {L"A", 1, true, 1}};
  for (auto& s : steps) {
    EXPECT_EQ(Request(s.Sort, s.Sorting), s.Changed) << s.Sort << " " << s.Sorting;
    EXPECT_EQ(grid->SortCount, s.Count) << s.Sort << " " << s.Sorting;
  }
  // A long Sort text is read whole.
  EXPECT_TRUE(Request((std::wstring(400, L',') + L"B," + std::wstring(400, L'Q')).c_str()));
  EXPECT_EQ(grid->SortCount, 1);

  Request(L"A");
  grid->Cfg->SetString(L"SortCols", L"A");
  grid->Cfg->SetString(L"SortTypes", L"0");
  grid->ClearSort();
  EXPECT_FALSE(grid->Cfg->Has(L"SortCols") || grid->Cfg->Has(L"SortTypes"));
  EXPECT_STREQ(grid->Cfg->GetString(L"Sort"), L"A");
}

TEST(SortHelpers, CopySortStringAndCmpStr) {
  TTestGrid grid;
  wchar_t dest[8];
  int* white = grid.GetWhiteChars(L" -");
  CopySortString(dest, L"a b-c d-e f", 5, SortWhite, nullptr, white, nullptr);
  EXPECT_STREQ(dest, L"abcde");
  CopySortString(dest, L"a b-c", 7, 0, nullptr, white, nullptr);
  EXPECT_STREQ(dest, L"a b-c");
  CopySortString(dest, L"ABCDEFGHIJ", 3, SortNoCase, nullptr, nullptr, nullptr);
  EXPECT_STREQ(dest, L"abc");
  CopySortString(dest, L"AbA", 7, SortNoCase, nullptr, nullptr, grid.GetCharCodes(L",A,q"));
  EXPECT_STREQ(dest, L"qbq");

  std::vector<unsigned long long> table(65536);
  table[L'a'] = 0x0001000200030004ULL;
  table[L'B'] = 0x0042000000000000ULL;  // one unit; the case is kept
  table[L'x'] = 0;                      // vanishes
  CopySortString(dest, L"xBaBa", 7, SortLocale | SortNoCase, table.data(), nullptr, nullptr);
  EXPECT_STREQ(dest, L"\x42\x01\x02\x03\x04\x42\x01");
  CopySortString(dest, L"xBaBa", 7, SortNoCase, table.data(), nullptr, nullptr);
  EXPECT_STREQ(dest, L"xbaba");
  std::vector<wchar_t> big(3000, 0);
  CopySortString(big.data(), std::wstring(2500, L'a').c_str(), 2000, SortLocale, table.data(), nullptr, nullptr);
  EXPECT_EQ(wcslen(big.data()), 2000u);

  table.assign(65536, 0);
  table[L'a'] = table[L'A'] = 5;
  table[L'b'] = 3;
  table[L'c'] = 0xF000000000000000ULL;  // negative as a signed key
  const struct {
    const wchar_t *A, *B;
    int Result;
  } cmp[] = {{L"aA", L"Aa", 0}, {L"a", L"b", 1}, {L"c", L"b", -1}, {L"a", L"aa", -1}, {L"ab", L"a", 1}, {L"", L"", 0}};
  for (auto& c : cmp) EXPECT_EQ(CmpStr(c.A, c.B, table.data()), c.Result) << c.A << " " << c.B;
}

TEST(SortHelpers, CharCodesAndWhiteCharsTables) {
  TTestGrid grid;
  EXPECT_EQ(grid.GetCharCodes(nullptr), nullptr);
  EXPECT_EQ(grid.GetCharCodes(L""), nullptr);
  EXPECT_EQ(grid.GetWhiteChars(L""), nullptr);
  unsigned short* codes = grid.GetCharCodes(L"|a|b|cc|dd|e");
  EXPECT_EQ(codes[L'a'], L'b');
  EXPECT_EQ(codes[L'c'], L'd');
  EXPECT_EQ(codes[L'e'] | codes[L'b'] | codes[L'|'], 0);  // a source with nothing behind it
  EXPECT_EQ(grid.GetCharCodes(L"|a|b|cc|dd|e"), codes);
  codes = grid.GetCharCodes(L";x;;\x10041;y");
  EXPECT_EQ(codes[L'x'], 0);
  EXPECT_EQ(codes[0x41], L'y');

  int* white = grid.GetWhiteChars(L"A\x10020");
  EXPECT_EQ(white[L'A' >> 5], 1 << (L'A' & 31));
  EXPECT_EQ(white[0x20 >> 5], 1);
  EXPECT_EQ(grid.GetWhiteChars(L"A\x10020"), white);
}

}  // namespace
