// Cutting the body's root rows into pages, joining them back, and the names
// that the pager shows.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "grid/Export.h"
#include "tree/Data.h"

namespace {

class TPagesGrid final : public TGridExport {
public:
  void CopySession() override {}
};

const wchar_t* const Layout =
    L"<Grid><Cols><C Name='A' Type='Text'/><C Name='B' Type='Int'/><C Name='G' Type='Text'/>"
    L"<C Name='L' Type='Lines'/></Cols></Grid>";

class PagesTest : public ::testing::Test {
protected:
  void SetUp() override { TData::Initialize(); }

  // Rows given as their attribute texts; ids r0, r1, ...
  void Create(const std::vector<std::wstring>& rows, int pageLength) {
    std::wstring data = L"<Grid><Body><B>";
    for (size_t i = 0; i < rows.size(); i++) data += L"<I id='r" + std::to_wstring(i) + L"' " + rows[i] + L"/>";
    data += L"</B></Body></Grid>";
    const wchar_t* documents[] = {Layout, data.c_str()};
    grid.reset(new TPagesGrid());
    ASSERT_EQ(grid->Load(documents, 2), 0);
    grid->Update();
    if (pageLength != 999) grid->Cfg->SetInt(L"PageLength", pageLength);
  }
  // n rows with A values v0, v1, ...
  void CreateCounted(int n, int pageLength) {
    std::vector<std::wstring> rows;
    for (int i = 0; i < n; i++) rows.push_back(L"A='v" + std::to_wstring(i) + L"'");
    Create(rows, pageLength);
  }
  void SortBy(std::initializer_list<const wchar_t*> columns) {
    grid->SortCount = 0;
    for (const wchar_t* column : columns) grid->SortCols[grid->SortCount++] = grid->Tree->GetIndex(column, 1);
  }

  // Row ids page by page ("r0,r1|r2"), checking every link on the way.
  std::wstring Pages() {
    std::wstring s;
    TNode* previousPage = nullptr;
    for (TNode* page = grid->Body->FirstChild; page; page = page->Next) {
      EXPECT_EQ(page->Prev, previousPage);
      EXPECT_EQ(page->Parent, grid->Body);
      if (page != grid->Body->FirstChild) s += L"|";
      TNode* previous = nullptr;
      for (TNode* row = page->FirstChild; row; row = row->Next) {
        EXPECT_EQ(row->Parent, page);
        EXPECT_EQ(row->Prev, previous);
        s += (previous ? L"," : L"") + std::wstring(row->GetId());
        previous = row;
      }
      EXPECT_EQ(page->LastChild, previous);
      previousPage = page;
    }
    EXPECT_EQ(grid->Body->LastChild, previousPage);
    return s;
  }
  TNode* Page(int n) {
    TNode* page = grid->Body->FirstChild;
    while (n-- && page) page = page->Next;
    return page;
  }
  // The nine names of a page as "Name00,Name01,Name02/Name10,.../Name20,...";
  // an absent attribute shows as "-".
  static std::wstring Names(TNode* page) {
    std::wstring s;
    wchar_t name[] = L"Name__";
    for (int x = 0; x < 3; x++)
      for (int y = 0; y < 3; y++) {
        name[4] = (wchar_t)(L'0' + x);
        name[5] = (wchar_t)(L'0' + y);
        s += std::wstring(x && !y ? L"/" : y ? L"," : L"") + (page->Has(name) ? page->GetString(name) : L"-");
      }
    return s;
  }

  std::unique_ptr<TPagesGrid> grid;
};

// ---- cutting ----

TEST_F(PagesTest, PageLengthBelowOneOrAbsentMeansTwenty) {
  for (int length : {999, 0, -5}) {
    CreateCounted(41, length);
    grid->CreatePages();
    int sizes[3] = {0, 0, 0}, pages = 0;
    for (TNode* page = grid->Body->FirstChild; page; page = page->Next, pages++)
      if (pages < 3) sizes[pages] = page->GetChildCount();
    EXPECT_EQ(pages, 3) << length;
    EXPECT_EQ(sizes[0], 20) << length;
    EXPECT_EQ(sizes[2], 1) << length;
  }
}

TEST_F(PagesTest, ExactlyAPageOfRowsIsOnePageAndOneMoreStartsTheNext) {
  CreateCounted(3, 3);
  grid->CreatePages();
  EXPECT_EQ(Pages(), L"r0,r1,r2");
  EXPECT_EQ(grid->Cfg->GetInt(L"RootCount"), 3);
  EXPECT_EQ(grid->Body->GetInt(L"PagesCreated"), 1);

  CreateCounted(7, 3);
  grid->CreatePages();
  EXPECT_EQ(Pages(), L"r0,r1,r2|r3,r4,r5|r6");
  EXPECT_EQ(grid->Cfg->GetInt(L"RootCount"), 7);
}

TEST_F(PagesTest, FilteredRowsStayBehindTheRowBeforeAndAreNotCounted) {
  Create({L"_0F='8'", L"", L"", L"_0F='8'", L"", L"_0F='8'", L"_0F='8'", L"", L"_0F='8'"}, 2);
  grid->CreatePages();
  EXPECT_EQ(Pages(), L"r0,r1,r2,r3|r4,r5,r6,r7,r8");
  EXPECT_EQ(grid->Cfg->GetInt(L"RootCount"), 4);
}

TEST_F(PagesTest, EmptyGridKeepsOneEmptyPage) {
  Create({}, 5);
  SortBy({L"A"});
  grid->CreatePages();
  EXPECT_EQ(Pages(), L"");
  EXPECT_EQ(grid->Cfg->GetInt(L"RootCount"), 0);
  EXPECT_EQ(grid->Body->GetInt(L"PagesCreated"), 1);
  EXPECT_EQ(Names(Page(0)), L",,/,,/,,");
}

TEST_F(PagesTest, PagesTakeTheAggregatePattern) {
  CreateCounted(5, 2);
  if (grid->AggNode) TNode::Delete(grid->AggNode);
  grid->AggNode = grid->Tree->CreateElement(L"B");
  grid->AggNode->SetString(L"Agg", L"1");
  grid->CreatePages();
  EXPECT_EQ(Pages(), L"r0,r1|r2,r3|r4");
  for (int n = 0; n < 3; n++) {
    EXPECT_STREQ(Page(n)->GetName(), L"B");
    EXPECT_STREQ(Page(n)->GetString(L"Agg"), L"1");
  }
}

// ---- joining ----

TEST_F(PagesTest, RemovePagesRestoresTheOrderAndDropsLaterPages) {
  CreateCounted(7, 2);
  grid->CreatePages();
  Page(0)->SetString(L"Own", L"first");
  Page(1)->SetString(L"Own", L"second");
  grid->RemovePages();
  EXPECT_EQ(Pages(), L"r0,r1,r2,r3,r4,r5,r6");
  EXPECT_STREQ(Page(0)->GetString(L"Own"), L"first");
  EXPECT_FALSE(grid->Body->Has(L"PagesCreated"));
  EXPECT_EQ(grid->Tree->GetElem(L"r6")->Parent, Page(0));

  grid->Cfg->SetInt(L"PageLength", 3);
  grid->CreatePages();
  EXPECT_EQ(Pages(), L"r0,r1,r2|r3,r4,r5|r6");
  EXPECT_FALSE(Page(1)->Has(L"Own"));
}

TEST_F(PagesTest, RemovePagesLeavesASinglePageAlone) {
  CreateCounted(2, 5);
  grid->CreatePages();
  grid->RemovePages();
  EXPECT_EQ(Pages(), L"r0,r1");
  EXPECT_EQ(grid->Body->GetInt(L"PagesCreated"), 1);
}

// ---- names ----

TEST_F(PagesTest, OnePageHasNineEmptyNames) {
  CreateCounted(3, 5);
  SortBy({L"A", L"B"});
  Page(0)->SetString(L"Name10", L"old");
  grid->CreatePages();
  EXPECT_EQ(Names(Page(0)), L",,/,,/,,");
}

TEST_F(PagesTest, WithoutSortNoPageIsNamedAndOldNamesStay) {
  CreateCounted(5, 2);
  Page(0)->SetString(L"Name10", L"old");
  grid->CreatePages();
  EXPECT_EQ(Names(Page(0)), L"-,-,-/old,-,-/-,-,-");
  EXPECT_EQ(Names(Page(1)), L"-,-,-/-,-,-/-,-,-");
}

TEST_F(PagesTest, NoPagerMakesNoNames) {
  CreateCounted(5, 2);
  SortBy({L"A"});
  grid->Cfg->SetInt(L"NoPager", 1);
  grid->CreatePages();
  EXPECT_EQ(Names(Page(1)), L"-,-,-/-,-,-/-,-,-");
}

TEST_F(PagesTest, TextNamesAreShortenedOnlyWhenThatSavesThreeCharacters) {
  Create({L"A='Aaron'", L"A='Anderson'", L"A='Andrews'", L"A='Ann'", L"A='Anna'", L"A='Bob'"}, 2);
  SortBy({L"A"});
  grid->CreatePages();
  EXPECT_EQ(Pages(), L"r0,r1|r2,r3|r4,r5");
  EXPECT_EQ(Names(Page(0)), L",,/Aaron,,/Ande,,");
  EXPECT_EQ(Names(Page(1)), L",,/Andr,,/Ann,,");
  EXPECT_EQ(Names(Page(2)), L",,/Anna,,/Bob,,");
}

TEST_F(PagesTest, LinesColumnsAreShortenedIntColumnsNever) {
  Create({L"B='100000001' L='100000001'", L"B='100000002' L='100000002'", L"B='100099999' L='100099999'"}, 2);
  SortBy({L"B"});
  grid->CreatePages();
  EXPECT_EQ(Names(Page(0)), L",,/100000001,,/100000002,,");
  EXPECT_EQ(Names(Page(1)), L"100099999,,/,,/,,");
  grid->RemovePages();
  SortBy({L"L"});
  grid->CreatePages();
  EXPECT_EQ(Names(Page(0)), L",,/100000001,,/10000,,");
  EXPECT_EQ(Names(Page(1)), L",,/10009,,/100099999,,");
}

TEST_F(PagesTest, CommonValuesOfALeadingSortColumnGoToNameZero) {
  Create({L"G='Oslo' A='Anderson'", L"G='Oslo' A='Bertil'", L"G='Oslo' A='Carla'", L"G='Riga' A='Dan'"}, 2);
  SortBy({L"G", L"A"});
  grid->CreatePages();
  EXPECT_EQ(Names(Page(0)), L"Oslo,,/,,/,B,");
  EXPECT_EQ(Names(Page(1)), L",,/Oslo,C,/Riga,,");
}

TEST_F(PagesTest, PageNameValueReplacesTheValueAndNamesAreCutTo64) {
  std::wstring longName(100, L'x');
  Create({L"B='1'", L"B='2' BPageNameValue='Zulu'", L"B='3' BPageNameValue='" + longName + L"'", L"B='4'"}, 2);
  SortBy({L"B"});
  grid->CreatePages();
  EXPECT_EQ(Names(Page(0)), L",,/1,,/Zulu,,");
  EXPECT_EQ(Names(Page(1)), L",,/" + std::wstring(64, L'x') + L",,/4,,");
}

TEST_F(PagesTest, PageLengthOneNamesEachPageByItsFirstRow) {
  Create({L"A='Zed' G='Oslo' GPageNameValue='Home'", L"A='Amy' G='Riga'", L"_0F='8' A='Bo' G='Roma'"}, 1);
  grid->Cfg->SetString(L"MainCol", L"G");
  SortBy({L"A"});
  grid->CreatePages();
  EXPECT_EQ(Pages(), L"r0|r1,r2");
  EXPECT_EQ(Names(Page(0)), L"Home,,/,,/,,");
  EXPECT_EQ(Names(Page(1)), L"Riga,,/,,/,,");

  // Without MainCol the first sort column names the pages.
  grid->RemovePages();
  grid->Cfg->SetString(L"MainCol", L"");
  grid->CreatePages();
  EXPECT_EQ(Names(Page(1)), L"Amy,,/,,/,,");
}

// Formatting many numbers wraps the scratch ring many times over; names
// must still come from the rows they belong to.
TEST_F(PagesTest, NamesSurviveTheScratchRingComingRound) {
  std::vector<std::wstring> rows;
  for (int i = 0; i < 6000; i++) rows.push_back(L"B='" + std::to_wstring(1000000 + i) + L"'");
  Create(rows, 2);
  SortBy({L"B"});
  grid->CreatePages();
  int n = 0;
  for (TNode* page = Page(0); page; page = page->Next, n++) {
    std::wstring expected = L",,/" + std::to_wstring(1000000 + 2 * n) + L",,/" + std::to_wstring(1000001 + 2 * n) + L",,";
    ASSERT_EQ(Names(page), expected) << n;
  }
  EXPECT_EQ(n, 3000);
}

}  // namespace
