// Cutting the body's root rows into pages, joining them back, and the names that the pager shows.
#include "GridTest.h"

namespace {

class PagesTest : public GridTest {
protected:
  // Rows as attribute texts, ids r0, r1, ...; a length of 999 leaves PageLength unset. Cut unless told not to.
  void Create(const std::vector<std::wstring>& rows, int length, std::vector<const wchar_t*> sort = {},
              bool cut = true) {
    std::wstring data = L"<Grid><Body><B>";
    for (size_t i = 0; i < rows.size(); i++) data += L"<I id='r" + std::to_wstring(i) + L"' " + rows[i] + L"/>";
    GridTest::Create({L"<Grid><Cols><C Name='A' Type='Text'/><C Name='B' Type='Int'/><C Name='G' Type='Text'/>"
                      L"<C Name='L' Type='Lines'/></Cols></Grid>",
                      data + L"</B></Body></Grid>"});
    if (length != 999) grid->Cfg->SetInt(L"PageLength", length);
    grid->SortCount = 0;
    for (const wchar_t* column : sort) grid->SortCols[grid->SortCount++] = grid->Tree->GetIndex(column, 1);
    if (cut) grid->CreatePages();
  }
  // n rows with A values v0, v1, ...
  static std::vector<std::wstring> Counted(int n) {
    std::vector<std::wstring> rows;
    for (int i = 0; i < n; i++) rows.push_back(L"A='v" + std::to_wstring(i) + L"'");
    return rows;
  }
  // The nine names of a page as "Name00,Name01,Name02/Name10,.../Name20,..."; an absent one shows as "-".
  static std::wstring Names(TNode* page) {
    std::wstring s;
    for (int i = 0; i < 9; i++) {
      const std::wstring name = L"Name" + std::to_wstring(i / 3) + std::to_wstring(i % 3);
      s += (i % 3 ? L"," : i ? L"/" : L"") + Attr(page, name.c_str());
    }
    return s;
  }
  std::wstring AllNames() {
    std::wstring s;
    for (TNode* page = grid->Body->FirstChild; page; page = page->Next) s += (s.empty() ? L"" : L" ") + Names(page);
    return s;
  }
};

TEST_F(PagesTest, RootRowsAreCutIntoPages) {
  const std::wstring f = L"_0F='8'";
  const struct { std::vector<std::wstring> Rows; int Length; const wchar_t* Pages; int RootCount; } cases[] = {
      {Counted(3), 3, L"r0,r1,r2", 3}, {Counted(7), 3, L"r0,r1,r2|r3,r4,r5|r6", 7},
      // Filtered rows stay behind the row before and are not counted; with no rows one empty page stays.
      {{f, L"", L"", f, L"", f, f, L"", f}, 2, L"r0,r1,r2,r3|r4,r5,r6,r7,r8", 4}, {{}, 5, L"", 0}};
  for (auto& c : cases) {
    Create(c.Rows, c.Length, {L"A"});
    EXPECT_EQ(Pages(), c.Pages);
    EXPECT_EQ(grid->Cfg->GetInt(L"RootCount"), c.RootCount) << c.Pages;
  }
  EXPECT_EQ(AllNames(), L",,/,,/,,");
  for (int length : {999, 0, -5}) {  // a page length below one or absent means twenty
    Create(Counted(41), length);
    ASSERT_EQ(Kids(grid->Body, true), L"B,B,B") << length;
    EXPECT_EQ(Page(0)->GetChildCount() * 100 + Page(2)->GetChildCount(), 2001) << length;
  }
}

TEST_F(PagesTest, PagesTakeTheAggregatePatternAndRemovePagesKeepsTheFirst) {
  Create(Counted(7), 2, {}, false);
  if (grid->AggNode) TNode::Delete(grid->AggNode);
  grid->AggNode = grid->Tree->CreateElement(L"B");
  grid->AggNode->SetString(L"Agg", L"1");
  grid->CreatePages();
  EXPECT_EQ(Attr(Page(0), L"Agg") + Attr(Page(1), L"Agg") + Attr(Page(3), L"Agg"), L"111");
  Page(0)->SetString(L"Own", L"first");
  Page(1)->SetString(L"Own", L"second");
  grid->RemovePages();
  EXPECT_EQ(Pages(), L"r0,r1,r2,r3,r4,r5,r6");
  EXPECT_STREQ(Page(0)->GetString(L"Own"), L"first");
  EXPECT_FALSE(grid->Body->Has(L"PagesCreated"));
  grid->Cfg->SetInt(L"PageLength", 3);
  grid->CreatePages();
  EXPECT_EQ(Pages(), L"r0,r1,r2|r3,r4,r5|r6");
  EXPECT_FALSE(Page(1)->Has(L"Own"));

  Create(Counted(2), 5);  // a single page is left alone
  grid->RemovePages();
  EXPECT_EQ(Pages(), L"r0,r1");
  EXPECT_EQ(grid->Body->GetInt(L"PagesCreated"), 1);
}

TEST_F(PagesTest, NamesAreMadeOnlyForSeveralSortedPagesWithAPager) {
  Create(Counted(3), 5, {L"A", L"B"}, false);
  Page(0)->SetString(L"Name10", L"old");
  grid->CreatePages();
  EXPECT_EQ(AllNames(), L",,/,,/,,");  // one page: nine empty names

  Create(Counted(5), 2, {}, false);
  Page(0)->SetString(L"Name10", L"old");
  grid->CreatePages();
  EXPECT_EQ(AllNames(), L"-,-,-/old,-,-/-,-,- -,-,-/-,-,-/-,-,- -,-,-/-,-,-/-,-,-");  // no sort: old names stay
}

TEST_F(PagesTest, NamesFromTheSortColumns) {
  const std::vector<std::wstring> numbers = {L"B='100000001' L='100000001'", L"B='100000002' L='100000002'",
                                             L"B='100099999' L='100099999'"},
                                  first = {L"A='Zed' G='Oslo' GPageNameValue='Home'", L"A='Amy' G='Riga'",
                                           L"_0F='8' A='Bo' G='Roma'"};
  const struct {
    std::vector<std::wstring> Rows;
    std::vector<const wchar_t*> Sort;
    int Length;
    const wchar_t* MainCol;  // unset when null
    std::wstring Names;
  } cases[] = {
      // Texts are shortened only when that saves three characters.
      {{L"A='Aaron'", L"A='Anderson'", L"A='Andrews'", L"A='Ann'", L"A='Anna'", L"A='Bob'"}, {L"A"}, 2, nullptr,
       L",,/Aaron,,/Ande,, ,,/Andr,,/Ann,, ,,/Anna,,/Bob,,"},
      // Lines columns are shortened, Int columns never.
      {numbers, {L"B"}, 2, nullptr, L",,/100000001,,/100000002,, 100099999,,/,,/,,"},
      {numbers, {L"L"}, 2, nullptr, L",,/100000001,,/10000,, ,,/10009,,/100099999,,"},
      // Values common to a page under a leading sort column go to Name<x>0.
      {{L"G='Oslo' A='Anderson'", L"G='Oslo' A='Bertil'", L"G='Oslo' A='Carla'", L"G='Riga' A='Dan'"},
       {L"G", L"A"}, 2, nullptr, L"Oslo,,/,,/,B, ,,/Oslo,C,/Riga,,"},
      // PageNameValue replaces the value; names are cut to 64.
      {{L"B='1'", L"B='2' BPageNameValue='Zulu'", L"B='3' BPageNameValue='" + std::wstring(100, L'x') + L"'", L"B='4'"},
       {L"B"}, 2, nullptr, L",,/1,,/Zulu,, ,,/" + std::wstring(64, L'x') + L",,/4,,"},
      // A page of one row is named by it, after MainCol or else the first sort column.
      {first, {L"A"}, 1, L"G", L"Home,,/,,/,, Riga,,/,,/,,"},
      {first, {L"A"}, 1, L"", L"Zed,,/,,/,, Amy,,/,,/,,"},
  };
  for (auto& c : cases) {
    Create(c.Rows, c.Length, c.Sort, false);
    if (c.MainCol) grid->Cfg->SetString(L"MainCol", c.MainCol);
    grid->CreatePages();
    EXPECT_EQ(AllNames(), c.Names) << c.Names;
  }
}

// Formatting many numbers wraps the scratch ring many times over; names must still come from their rows.
TEST_F(PagesTest, NamesSurviveTheScratchRingComingRound) {
  std::vector<std::wstring> rows;
  for (int i = 0; i < 6000; i++) rows.push_back(L"B='" + std::to_wstring(1000000 + i) + L"'");
  Create(rows, 2, {L"B"});
  int n = 0;
  for (TNode* page = Page(0); page; page = page->Next, n++) {
    const std::wstring first = std::to_wstring(1000000 + 2 * n), second = std::to_wstring(1000001 + 2 * n);
    ASSERT_EQ(Names(page), L",,/" + first + L",,/" + second + L",,") << n;
  }
  EXPECT_EQ(n, 3000);
}

}  // namespace
