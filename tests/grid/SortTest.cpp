// Sorting body rows: keys, column options, per-parent overrides, UpdateSort's cache, the helpers.
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
  std::vector<unsigned long long> locale(65536);
  for (int c = 0; c < 65536; c++) locale[c] = (unsigned long long)c << 48;
  locale[L'b'] = 1ULL << 48;                 // b before everything
  locale[L'A'] = locale[L'a'] | 1ULL << 32;  // A after a, by a second unit
  const std::wstring head(19, L'x');
  const std::wstring mixed = Rows({L"b", L"a", L"C", L"10", L"9"}), tens = Rows({L"10", L"9", L"100"}),
                     numbers = Rows({L"10", L"9", L"-3", L"abc", L"12x"}),
                     large = Rows({L"6000000000", L"5000000000", L"-5000000000", L"-6000000000", L"1.5", L"1.25",
                                   L"3"}),
                     valued = L"<I id='r1' A='1' ASortDescValue='10'/><I id='r2' A='2'/>"
                              L"<I id='r3' A='3' ASortValue='0'/>";
  const std::wstring cases[][4] = {  // column options, rows, sort, ids in order
      {L"", mixed, L"A", L"r4,r5,r2,r1,r3"}, {L"", mixed, L"-A", L"r3,r1,r2,r5,r4"},  // texts, case folded
      {L"CaseSensitive='1'", Rows({L"b", L"a", L"C"}), L"A", L"r3,r2,r1"},
      {L"Type='Int'", numbers, L"A", L"r3,r4,r2,r1,r5"},  // abc counts as 0, 12x as 12
      {L"Type='Float'", numbers, L"A", L"r3,r4,r2,r1,r5"}, {L"Type='Date'", numbers, L"A", L"r3,r4,r2,r1,r5"},
      {L"Type='Int' NumberSort='0'", tens, L"A", L"r1,r3,r2"}, {L"NumberSort='1'", tens, L"A", L"r2,r1,r3"},
      // Numbers share their leading key and differ by value.
      {L"Type='Float'", large, L"A", L"r4,r3,r6,r5,r7,r2,r1"}, {L"Type='Float'", large, L"-A", L"r1,r2,r7,r5,r6,r3,r4"},
      // As text, floats appear as their decimal form.
      {L"NumberSort='0'", Rows({L"2.5", L"10.75", L"-1"}), L"A", L"r3,r2,r1"},
      {L"Type='Int'", valued, L"A", L"r3,r1,r2"}, {L"Type='Int'", valued, L"-A", L"r1,r2,r3"},  // sort values
      {L"WhiteChars='- '", Rows({L"b-1", L"a 2", L"-c", L"- a"}), L"A", L"r4,r2,r1,r3"},
      {L"CharCodes='|a|z|Z|z'", Rows({L"a", L"b", L"y", L"Za"}), L"A", L"r2,r3,r1,r4"},
      {L"LocaleCompare='1'", Rows({L"a", L"b", L"A", L"c"}), L"A", L"r2,r1,r3,r4"},
      // Long texts tie on their prefix and go on by the rest.
      {L"CaseSensitive='1'", Rows({(head + L"b").c_str(), (head + L"B").c_str()}), L"A", L"r2,r1"},
  };
  for (auto& c : cases) {
    Create(L"<C Name='A' " + c[0] + L"/>", c[1]);
    grid->LocaleTable = locale.data();
    EXPECT_EQ(SortBy(c[2].c_str()), c[3]) << c[0] << " " << c[2];
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
  // p1 refuses, yet a below it sorts; p2 sorts as text, 10 before 9, and that does not leak to p3.
  EXPECT_EQ(Kids(Row(L"p1")) + L" " + Kids(Row(L"a")) + L" " + Kids(Row(L"p2")) + L" " + Kids(Row(L"p3")) + L" " +
                Kids(Row(L"p4")),
            L"a,b g2,g1 c,d f,e only");
}

TEST_F(SortTest, LongTextsTieOnTheirPrefix) {
  // Enough rows for a heap block; a byte before the text leaves it unaligned.
  std::wstring rows;
  const std::wstring head(19, L'x');
  for (int i = 0; i < 16; i++) rows += L"<I id='r" + std::to_wstring(i) + L"'/>";
  Create(L"<C Name='A'/>", rows);
  const wchar_t* tails[] = {L"Bz", L"a", L"C", L"b"};
  for (TNode* row = grid->Body->FirstChild->FirstChild; row; row = row->Next) {
    int i = std::stoi(row->GetId() + 1);
    if (i % 2) row->SetByte(L"q", 1);
    row->SetString(L"A", (head + tails[i % 4] + std::to_wstring(i)).c_str());
  }
  EXPECT_EQ(SortBy(L"A"), L"r1,r13,r5,r9,r11,r15,r3,r7,r0,r12,r4,r8,r10,r14,r2,r6");
}

TEST_F(SortTest, UpdateSortReportsChanges) {
  Create(L"<C Name='A'/><C Name='B'/>", Rows({L"1"}));
  // Empty items vanish; with sorting off, Sort naming columns is a change but nothing is in force.
  const struct { const wchar_t* Sort; int Sorting; bool Changed; int Count; } steps[] = {
      {L"A,-B", 1, true, 2}, {L"A,-B", 1, false, 2}, {L"A,B", 1, true, 2}, {L"A", 1, true, 1}, {L",,A,", 1, false, 1},
      {L"", 1, true, 0}, {L"", 1, false, 0}, {L"A", 0, true, 0}, {L"A", 0, true, 0}, {L"", 0, false, 0},
      {L"A", 1, true, 1}};
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
  std::vector<unsigned long long> table(65536);
  table[L'a'] = 0x0001000200030004ULL;
  table[L'B'] = 0x0042000000000000ULL;  // one unit; the case is kept; x vanishes
  auto copy = [&](const wchar_t* text, int max, int flags, int* white = nullptr, unsigned short* codes = nullptr) {
    wchar_t dest[8];
    CopySortString(dest, text, max, flags, table.data(), white, codes);
    return std::wstring(dest);
  };
  EXPECT_EQ(copy(L"a b-c d-e f", 5, SortWhite, grid.GetWhiteChars(L" -")), L"abcde");
  EXPECT_EQ(copy(L"AbA", 7, SortNoCase, nullptr, grid.GetCharCodes(L",A,q")), L"qbq");
  // Only the first character of a pair counts; a source without a target, or a target alone, maps nothing.
  EXPECT_EQ(copy(L"abce|", 7, SortNoCase, nullptr, grid.GetCharCodes(L"|a|b|cc|dd|e")), L"bbde|");
  // Characters beyond 16 bits are cut to their low 16: no index past a table.
  EXPECT_EQ(copy(L"xAx", 7, SortNoCase, nullptr, grid.GetCharCodes(L";x;;\x10041;y")), L"xyx");
  EXPECT_EQ(copy(L"a Ab", 7, SortWhite, grid.GetWhiteChars(L"A\x10020")), L"ab");
  EXPECT_TRUE(!grid.GetCharCodes(nullptr) && !grid.GetCharCodes(L"") && !grid.GetWhiteChars(L""));
  EXPECT_EQ(copy(L"xBaBa", 7, SortLocale | SortNoCase), L"\x42\x01\x02\x03\x04\x42\x01");
  std::vector<wchar_t> big(3000, 0);
  CopySortString(big.data(), std::wstring(2500, L'a').c_str(), 2000, SortLocale, table.data(), nullptr, nullptr);
  EXPECT_EQ(wcslen(big.data()), 2000u);

  table.assign(65536, 0);
  table[L'a'] = table[L'A'] = 5;
  table[L'b'] = 3;
  table[L'c'] = 0xF000000000000000ULL;  // negative as a signed key
  const struct { const wchar_t *A, *B; int Result; } cmp[] = {
      {L"aA", L"Aa", 0}, {L"a", L"b", 1}, {L"c", L"b", -1}, {L"a", L"aa", -1}, {L"ab", L"a", 1}, {L"", L"", 0}};
  for (auto& c : cmp) EXPECT_EQ(CmpStr(c.A, c.B, table.data()), c.Result) << c.A << " " << c.B;
}

}  // namespace
