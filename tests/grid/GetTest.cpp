// Answers to the browser: the body response with its row pipeline, single
// pages, and the cell query.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>

#include "grid/Export.h"
#include "tree/Data.h"

namespace {

class TTestGrid final : public TGridExport {
public:
  void CopySession() override {}
};

class GetTest : public ::testing::Test {
protected:
  void SetUp() override { TData::Initialize(); }
  TTestGrid* Create(const std::wstring& text) {
    grid.reset(new TTestGrid());
    const wchar_t* documents[] = {text.c_str()};
    EXPECT_EQ(grid->Load(documents, 1), 0);
    grid->Update();
    return grid.get();
  }
  // A grid of root rows with ids 1..count and A, B values given by the callers.
  TTestGrid* Rows(const std::wstring& cfg, int count, const std::wstring& extra = L"") {
    std::wstring text = L"<Grid><Cfg " + cfg + L"/><Cols><C Name='A' Type='Int'/><C Name='B'/></Cols><Body><B>";
    for (int i = 1; i <= count; i++)
      text += L"<I id='" + std::to_wstring(i) + L"' A='" + std::to_wstring(i % 7) + L"'/>";
    return Create(text + L"</B></Body>" + extra + L"</Grid>");
  }
  static std::wstring Take(wchar_t* text, int length = -1) {
    std::wstring s = text ? text : L"<null>";
    if (text && length >= 0) {
      EXPECT_EQ((size_t)length, s.size());
    }
    free(text);
    return s;
  }
  std::wstring Body(const wchar_t* request) {
    int length = -1;
    wchar_t* text = grid->GetBody(request, &length);
    return Take(text, text ? length : -1);
  }
  std::wstring Page(const wchar_t* request) {
    int length = -1;
    wchar_t* text = grid->GetPage(request, &length);
    return Take(text, text ? length : -1);
  }
  std::wstring Cells(const wchar_t* id, const wchar_t* column, int flags, const wchar_t* format = nullptr) {
    int length = -1;
    wchar_t* text = grid->GetCells(id, column, flags, format, &length);
    return Take(text, text ? length : -1);
  }
  std::wstring Cfg(const wchar_t* name) { return grid->Cfg->GetString(name); }
  // Ids of the rows in tree order over all pages, comma-joined.
  std::wstring Order() {
    std::wstring s;
    for (TNode* page = grid->Body->FirstChild; page; page = page->Next)
      for (TNode* row = page->FirstChild; row; row = row->Next) s += (s.empty() ? L"" : L",") + std::wstring(row->GetId());
    return s;
  }
  std::unique_ptr<TTestGrid> grid;
};

// ---- response forms ----

TEST_F(GetTest, WithoutPagingThePlainResponseHasAllRowsOnOnePage) {
  Create(L"<Grid><Body><B><I id='1' A='x'/></B><B><I id='2'/></B></Body></Grid>");
  EXPECT_EQ(Body(nullptr), L"<Grid><IO/><Body _0F=\"16\"><B CDef=\"R\" _0F=\"16\"><I id=\"1\" A=\"x\" _0F=\"17\"/>"
                           L"<I id=\"2\" _0F=\"17\"/></B></Body></Grid>");
  EXPECT_EQ(Body(L""), Body(nullptr));
}

TEST_F(GetTest, PageLengthOneRunsThePipelineButAnswersPlain) {
  Rows(L"Paging='3' PageLength='1' NoPager='1'", 3);
  std::wstring body = Body(L"<Grid><Cfg Sort='-A' Sorting='1'/></Grid>");
  EXPECT_EQ(body.find(L"<Cfg"), std::wstring::npos);
  EXPECT_EQ(body.substr(0, 18), L"<Grid><IO/><Body P");
  EXPECT_NE(body.find(L"<B _0F=\"16\"><I id=\"1\""), std::wstring::npos);
  EXPECT_EQ(Order(), L"3,2,1");
  EXPECT_EQ(grid->Body->GetChildCount(), 3);
}

TEST_F(GetTest, RequestThatDoesNotParseReturnsNullAfterClearing) {
  Rows(L"Paging='3' Group='A' GroupCols='A'", 2);
  EXPECT_EQ(Take(grid->GetBody(L"<Grid><Cfg", nullptr)), L"<null>");
  EXPECT_FALSE(grid->Cfg->Has(L"Group"));
  EXPECT_FALSE(grid->Cfg->Has(L"GroupCols"));
}

TEST_F(GetTest, CompressedResponseIsExact) {
  Rows(L"Paging='3' PageLength='2' IdChars='0123456789'", 5);
  std::wstring first = Body(L"<Grid><IO Session='s'/><Cfg Sort='A' Sorting='1' Focused='3' FocusedCol='A'/></Grid>");
  EXPECT_EQ(first,
            L"<Grid><IO Session=\"s\"/><Cfg LastId=\"5\" Focused=\"1\" FocusedPos=\"0\" FocusedCol=\"A\" "
            L"RootCount=\"5\"/><Root CDef=\"R\"/><Par><P Name=\"P\" List=\"Name00,Name01,Name02,Name10,Name11,"
            L"Name12,Name20,Name21,Name22\"/></Par><Body>\"\"P\"3       \"\"\"\"1\"\"\"2\"\"\"\"\"\"3\"\"\"4\"\"\"5"
            L"\"\"\"\"\"\"\"\"</Body></Grid>");
  // Attributes of the last page, by type; the other pages give theirs or nothing.
  TNode* last = grid->Body->LastChild;
  last->SetString(L"#Work", L"x");
  last->SetInt(L"Calculated", 1);
  last->SetString(L"S", L"a\"<b");
  last->SetDouble(L"D", 1.5);
  grid->Body->FirstChild->SetInt(L"S", 7);
  std::wstring second = Body(L"<Grid><Cfg Sort='A' Sorting='1' NoPager='1'/></Grid>");
  // The page names stay from the first run: nothing changed, so no recut.
  EXPECT_NE(second.find(L"Name22,S,D\"/></Par><Body>\"\"P\"3       \"\"\"\"1\"\"\"2\"\"\"7\"\"\"\"\"3\"\"\"4\"\"\"\"\"5"
                        L"\"\"\"\"\"\"\"\"\"a&quot;&lt;b\"1.5</Body></Grid>"),
            std::wstring::npos);
}

TEST_F(GetTest, EachRequestStatesGroupAndFiltersAfresh) {
  Create(L"<Grid><Cfg Group='A' GroupCols='A' Sort='A'/><Cols><C Name='A'/><C Name='B'/></Cols>"
         L"<Head><Filter id='F' A='1' AFilter='1' B='2' Other='3'/></Head><Body><B/></Body></Grid>");
  Body(L"<Grid><Cfg X='1'/></Grid>");
  EXPECT_FALSE(grid->Cfg->Has(L"Group"));
  EXPECT_FALSE(grid->Cfg->Has(L"GroupCols"));
  EXPECT_EQ(Cfg(L"Sort"), L"A");
  TNode* filter = grid->Tree->GetElem(L"F");
  EXPECT_FALSE(filter->Has(L"A"));
  EXPECT_FALSE(filter->Has(L"AFilter"));
  EXPECT_FALSE(filter->Has(L"B"));
  EXPECT_EQ(filter->GetInt(L"Other"), 3);
}

// ---- pipeline ----

TEST_F(GetTest, UnchangedSettingsRunNothingAndChangesRerun) {
  Rows(L"Paging='3' PageLength='2' NoPager='1'", 5);
  Body(L"<Grid><Cfg Sort='-A' Sorting='1'/></Grid>");
  EXPECT_EQ(Order(), L"5,4,3,2,1");
  EXPECT_EQ(grid->Body->GetInt(L"PagesCreated"), 1);
  grid->Body->LastChild->SetInt(L"Mark", 1);  // gone if the pages are recut
  Body(L"<Grid><Cfg Sort='-A' Sorting='1'/></Grid>");
  EXPECT_EQ(grid->Body->LastChild->GetInt(L"Mark"), 1);
  EXPECT_EQ(Order(), L"5,4,3,2,1");

  // A saved change with a sort in force sorts again.
  grid->Body->FirstChild->FirstChild->SetInt(L"A", 0);
  grid->Body->SetInt(L"UpdateState", 1);
  Body(L"<Grid><Cfg Sort='-A' Sorting='1'/></Grid>");
  EXPECT_FALSE(grid->Body->Has(L"UpdateState"));
  EXPECT_EQ(Order(), L"4,3,2,1,5");
  EXPECT_FALSE(grid->Body->LastChild->Has(L"Mark"));

  Body(L"<Grid><Cfg Sort='A' Sorting='1'/></Grid>");
  EXPECT_EQ(Order(), L"5,1,2,3,4");
}

TEST_F(GetTest, SavedChangeWithoutSortRunsNothing) {
  Rows(L"Paging='3' PageLength='2' NoPager='1'", 3);
  Body(nullptr);
  grid->Body->LastChild->SetInt(L"Mark", 1);
  grid->Body->SetInt(L"UpdateState", 1);
  Body(nullptr);
  EXPECT_FALSE(grid->Body->Has(L"UpdateState"));
  EXPECT_EQ(grid->Body->LastChild->GetInt(L"Mark"), 1);
}

// ---- Focused ----

TEST_F(GetTest, FocusedBecomesPageAndLineOfTheVisibleRow) {
  const wchar_t* layout =
      L"<Grid><Body><B><I id='1'/><I id='2' Expanded='0'><I id='21'/></I>"
      L"<I id='3'><I id='31'/><I id='32'/></I></B></Body></Grid>";
  Create(layout);
  Body(L"<Grid><Cfg Focused='21'/></Grid>");
  EXPECT_EQ(Cfg(L"Focused"), L"0");
  EXPECT_EQ(Cfg(L"FocusedPos"), L"1");

  Create(layout);
  Body(L"<Grid><Cfg Focused='32'/></Grid>");
  EXPECT_EQ(Cfg(L"FocusedPos"), L"4");

  Create(layout);
  grid->Tree->GetElem(L"32")->Flags |= FFiltered;
  Body(L"<Grid><Cfg Focused='32'/></Grid>");
  EXPECT_EQ(Cfg(L"FocusedPos"), L"3");

  Create(layout);
  Body(L"<Grid><Cfg Focused='nope'/></Grid>");
  EXPECT_FALSE(grid->Cfg->Has(L"Focused"));
  EXPECT_FALSE(grid->Cfg->Has(L"FocusedPos"));
}

TEST_F(GetTest, VisibleHeightSkipsFilteredAndCollapsed) {
  Create(L"<Grid><Body><B><I id='1'><I id='11'/><I id='12'><I id='121'/></I></I>"
         L"<I id='2' Expanded='0'><I id='21'/></I></B></Body></Grid>");
  EXPECT_EQ(grid->GetVisibleHeight(grid->Tree->GetElem(L"1")), 4);
  EXPECT_EQ(grid->GetVisibleHeight(grid->Tree->GetElem(L"2")), 1);
  grid->Tree->GetElem(L"12")->Flags |= FFiltered;
  EXPECT_EQ(grid->GetVisibleHeight(grid->Tree->GetElem(L"1")), 2);
}

// ---- page table ----

TEST_F(GetTest, ManyPagesWithNamesUseTheAngleSeparator) {
  Rows(L"Paging='3' PageLength='2'", 1000);
  std::wstring body = Body(L"<Grid><Cfg Sort='A' Sorting='1'/></Grid>");
  size_t at = body.find(L"<Body>") + 6;
  std::wstring table = body.substr(at, body.size() - at - 14);
  EXPECT_EQ(table.substr(0, 13), L">\"\"P\"500     ");
  std::wstring rows = table.substr(13);
  EXPECT_EQ(std::count(rows.begin(), rows.end(), L'"'), 5);
  EXPECT_EQ(std::count(rows.begin(), rows.end(), L'>'), 500 * 9);
  EXPECT_EQ(rows[0], L'"');
}

TEST_F(GetTest, FewerThan500PagesOrNoNamesUseTheQuote) {
  Rows(L"Paging='3' PageLength='2'", 998);
  std::wstring body = Body(L"<Grid><Cfg Sort='A' Sorting='1'/></Grid>");
  EXPECT_NE(body.find(L"<Body>\"\"P\"499     \""), std::wstring::npos);
  std::wstring table = body.substr(body.find(L"<Body>") + 6);
  EXPECT_EQ(std::count(table.begin(), table.end(), L'>'), 2);  // only </Body></Grid>
  EXPECT_EQ(std::count(table.begin(), table.end(), L'"'), 3 + 499 * 9);  // the header holds three

  Rows(L"Paging='3' PageLength='2' NoPager='1'", 1000);
  EXPECT_NE(Body(nullptr).find(L"List=\"\"/></Par><Body>\"\"P\"500     </Body>"), std::wstring::npos);
}

TEST_F(GetTest, OnlyThe500FirstPageAttributesCount) {
  Rows(L"Paging='3' NoPager='1'", 1);
  Body(nullptr);
  for (int i = 0; i < 600; i++) grid->Body->LastChild->SetInt((L"X" + std::to_wstring(i)).c_str(), i);
  std::wstring body = Body(nullptr);
  // CDef of the page comes first, so the list ends at X498.
  EXPECT_NE(body.find(L"List=\"CDef,X0,"), std::wstring::npos);
  EXPECT_NE(body.find(L",X498\""), std::wstring::npos);
  EXPECT_EQ(body.find(L"X499"), std::wstring::npos);
}

// ---- GetPage ----

TEST_F(GetTest, PageByPositionOrByRow) {
  Rows(L"Paging='3' PageLength='2' NoPager='1'", 3);
  Body(nullptr);
  EXPECT_EQ(Page(L"<Grid><Body><B Pos='1'/></Body></Grid>"),
            L"<Grid><Body><B Pos=\"1\" _0F=\"16\"><I id=\"3\" A=\"3\" _0F=\"17\"/></B></Body></Grid>");
  EXPECT_FALSE(grid->Body->LastChild->Has(L"Pos"));
  grid->Tree->GetElem(L"2")->AppendChild(grid->Tree->CreateElement(L"I"))->SetId(L"21");
  EXPECT_EQ(Page(L"<Grid><Body><X id='2'/></Body></Grid>"),
            L"<Grid><Body><B id=\"2\" A=\"2\" _0F=\"17\"><I id=\"21\" _0F=\"16\"/></B></Body></Grid>");
  EXPECT_STREQ(grid->Tree->GetElem(L"2")->GetName(), L"I");
  EXPECT_EQ(Page(L"<Grid><Body><B Pos='2'/></Body></Grid>"), L"<null>");
  EXPECT_EQ(Page(L"<Grid><Body><B id='none'/></Body></Grid>"), L"<null>");
  EXPECT_EQ(Page(L"<Grid><Body><B/></Body></Grid>"), L"<null>");
  EXPECT_EQ(Page(L"<Grid><Cfg/></Grid>"), L"<null>");
  EXPECT_EQ(Page(L"<Grid><Body>"), L"<null>");
  EXPECT_EQ(Page(nullptr), L"<null>");
}

TEST_F(GetTest, FillAttrEscapesAllButTheClosingAngle) {
  Create(L"<Grid><Body><B><I id='1'/></B></Body></Grid>");
  TNode* row = grid->Tree->GetElem(L"1");
  row->SetString(L"V", L"a&b<c>d\"e");
  wchar_t out[128];
  *grid->FillAttr(out, row, L"V") = 0;
  EXPECT_STREQ(out, L" V=\"a&amp;b&lt;c>d&quot;e\"");
}

// ---- cell query ----

class GetCellsTest : public GetTest {
protected:
  void SetUp() override {
    GetTest::SetUp();
    Create(L"<Grid><Cols><C Name='A'/><C Name='N' Type='Int'/></Cols><Body><B>"
           L"<I id='1' A='b' N='10' K='x'><I id='11' A='z'/></I><I id='2' A='C' N='9'/>"
           L"<I id='3' A='b' K='x'/><I id='4' A=''/><I id='5' A='a'/></B></Body>"
           L"<Head><I id='h' A='head'/></Head><Foot><I id='f' A='foot'/></Foot></Grid>");
  }
};

TEST_F(GetCellsTest, OneCell) {
  EXPECT_EQ(Cells(L"2", L"A", 0), L"C");
  EXPECT_EQ(Cells(L"2", L"N", 0), L"9");
  EXPECT_EQ(Cells(L"none", L"A", 0), L"");
  EXPECT_EQ(Cells(L"2", L"", 0), L"");
  EXPECT_EQ(Cells(L"2", nullptr, 1), L"");
  EXPECT_EQ(Cells(L"none", L"A", 1), L"");
  EXPECT_EQ(Cells(L"2", L"Unknown", 1), L"|||||");
}

TEST_F(GetCellsTest, ListsOverSiblingsAllRowsAndFixedRows) {
  EXPECT_EQ(Cells(L"2", L"A", 1), L"|b|C|b||a");
  EXPECT_EQ(Cells(L"11", L"A", 1), L"|z");
  EXPECT_EQ(Cells(nullptr, L"A", 2), L"|b|z|C|b||a");
  EXPECT_EQ(Cells(nullptr, L"A", 3), L"|b|z|C|b||a|head|foot");
}

TEST_F(GetCellsTest, SortingDistinctAndEmpty) {
  EXPECT_EQ(Cells(nullptr, L"A", 2 | 32 | 64), L"|C|a|b|z");
  EXPECT_EQ(Cells(nullptr, L"A", 2 | 16 | 32 | 64), L"|a|b|C|z");
  EXPECT_EQ(Cells(nullptr, L"A", 2 | 24), L"||C|a|b|b|z");
  EXPECT_EQ(Cells(nullptr, L"N", 2 | 24 | 64), L"|10|9");
  EXPECT_EQ(Cells(nullptr, L"N", 2 | 8 | 64), L"|9|10");
}

TEST_F(GetCellsTest, FormatGivesSeparatorAndFilter) {
  EXPECT_EQ(Cells(L"1", L"A", 1, L","), L",b,C,b,,a");
  EXPECT_EQ(Cells(nullptr, L"A", 2, L",K,x"), L",b,b");
  EXPECT_EQ(Cells(L"1", L"id", 1, L";K;x"), L";1;3");
  EXPECT_EQ(Cells(nullptr, L"A", 2, L",K,y"), L"");
}

TEST_F(GetCellsTest, DisplayTextWithFlag4) {
  Create(L"<Grid><Body><B><I id='1' F='1' FType='Bool' FFormat=';No;Yes'/>"
         L"<I id='2' F='0' FType='Bool' FFormat=';Off;On'/></B></Body></Grid>");
  EXPECT_EQ(Cells(nullptr, L"F", 2), L"|1|0");
  EXPECT_EQ(Cells(nullptr, L"F", 2 | 4), L"|Yes|Off");
  EXPECT_EQ(Cells(L"1", L"F", 4), L"Yes");
}

TEST_F(GetCellsTest, LongTextsSortAndCompareWhole) {
  std::wstring head(25, L'm');
  Create(L"<Grid><Body><B><I A='" + head + L"z'/><I A='" + head + L"y'/><I A='" + head + L"z'/></B></Body></Grid>");
  EXPECT_EQ(Cells(nullptr, L"A", 2 | 32), L"|" + head + L"y|" + head + L"z");
}

TEST_F(GetCellsTest, ResultsBeyondTheFirstBlockAreComplete) {
  std::wstring text = L"<Grid><Body><B>";
  std::wstring expected;
  for (int i = 0; i < 3000; i++) {
    std::wstring value = L"v" + std::to_wstring(100000 + i) + std::wstring(13, L'x');
    text += L"<I A='" + value + L"'/>";
    expected += L"|" + value;
  }
  Create(text + L"</B></Body></Grid>");
  ASSERT_GT(expected.size(), 24576u * 2);
  EXPECT_EQ(Cells(nullptr, L"A", 2), expected);
  EXPECT_EQ(Cells(nullptr, L"A", 2 | 24), expected);
}
}  // namespace
