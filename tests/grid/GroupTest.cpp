// Grouping: generated rows built from the filtered tree through the body request, and ungrouping.
#include <algorithm>

#include "GridTest.h"

namespace {

class GroupTest : public GridTest {
protected:
  // Root rows r0, r1, ... under a layout with columns A, B, C (Int) and the
  // group definition Group; R lets every row be grouped. The columns keep
  // lone rows and lone groups unless more says otherwise.
  void Make(const std::vector<std::wstring>& rows, const std::wstring& more = L"",
            const std::wstring& defs = L"<D Name='Group' Group='1'/>", const std::wstring& cfg = L"") {
    std::wstring text = L"<Grid><Cfg Paging='3' PageLength='1000' NoPager='1' " + cfg +
                        L"/><Def><D Name='R' CanGroup='1' CanFilter='1'/>" + defs +
                        L"</Def><Cols><C Name='A' GroupSole='1' GroupSingle='1'/><C Name='B' GroupSole='1' GroupSingle='1'/>"
                        L"<C Name='C' Type='Int' GroupSole='1' GroupSingle='1'/>" + more +
                        L"</Cols><Head><Filter id='F'/></Head><Body><B>";
    for (size_t i = 0; i < rows.size(); i++) text += L"<I id='r" + std::to_wstring(i) + L"' " + rows[i] + L"/>";
    Create(text + L"</B></Body></Grid>");
  }
  std::wstring Body(const std::wstring& cfg, const std::wstring& filters = L"") {
    std::wstring request = L"<Grid><Cfg " + cfg + L"/>";
    if (!filters.empty()) request += L"<Filters><I id='F' " + filters + L"/></Filters>";
    return Take(grid->GetBody((request + L"</Grid>").c_str(), nullptr));
  }
  // The rows below the first page: "r0,_G0(r1,r2)"; a hidden row ends in "~".
  static std::wstring Shape(TNode* parent) {
    std::wstring s;
    for (TNode* row = parent->FirstChild; row; row = row->Next) {
      EXPECT_EQ(row->Parent, parent);
      s += (s.empty() ? L"" : L",") + std::wstring(row->GetId()) + (row->Flags & FFiltered ? L"~" : L"");
      if (row->FirstChild) s += L"(" + Shape(row) + L")";
    }
    return s;
  }
  std::wstring Shape() { return Shape(Page(0)); }
  // Ids of all data rows below the first page, sorted: each must come once.
  static void DataIds(TNode* parent, std::vector<std::wstring>& ids) {
    for (TNode* row = parent->FirstChild; row; row = row->Next) {
      if (row->GetId()[0] != L'_') ids.push_back(row->GetId());
      DataIds(row, ids);
    }
  }
};

struct TShapeCase {
  const wchar_t* Cfg;
  const wchar_t* Shape;
};

const std::vector<std::wstring> Sales = {L"A='x' B='1'", L"A='y' B='2'", L"A='x' B='2'",
                                         L"A='y' B='2'", L"A='x' B='1'", L"A='z' B='3'"};

TEST_F(GroupTest, LevelsNestOutermostFirst) {
  const struct { const wchar_t* Group; int SingleB; const wchar_t* Shape; } cases[] = {
      {L"A", 1, L"_G0(r0,r2,r4),_G1(r1,r3),_G2(r5)"},
      {L"A,B", 1, L"_G0(_G3(r0,r4),_G4(r2)),_G1(_G5(r1,r3)),_G2(_G6(r5))"},
      // With GroupSingle 0 a parent with one value gives up its only group row.
      {L"A,B", 0, L"_G0(_G3(r0,r4),_G4(r2)),_G1(r1,r3),_G2(r5)"},
      {L"A,Nope,B", 1, L"_G0(r0,r2,r4),_G1(r1,r3),_G2(r5)"},  // an unknown column ends the list
      // Rows without a value of C stay where they are.
      {L"B,A,C", 1, L"_G0(_G3(r0,r4)),_G1(_G4(r2),_G5(r1,r3)),_G2(_G6(r5))"},
      {L"Nope,A", 1, L"r0,r1,r2,r3,r4,r5"},
      {L"", 1, L"r0,r1,r2,r3,r4,r5"},
  };
  for (auto& c : cases) {
    Make(Sales, L"<C Name='B' GroupSingle='" + std::to_wstring(c.SingleB) + L"'/>");
    Body(std::wstring(L"Group='") + c.Group + L"'");
    EXPECT_EQ(Shape(), c.Shape) << c.Group << L" " << c.SingleB;
  }
}

TEST_F(GroupTest, GroupRowCarriesTheFirstRowsValueAndItsCellSettings) {
  Make({L"A='b' B='Beta' BFormat='fmt'", L"A='a' B='Alpha'", L"A='a' B='x'"},
       L"<C Name='M' Type='Text'/><C Name='E' Type='Enum' Enum='|p|q' Refresh='1'/>",
       L"<D Name='Group' Group='1' Kind='Grp' EditCols='Main,C'/>", L"MainCol='M'");
  Body(L"Group='A' MainCol='M'");
  EXPECT_EQ(Shape(), L"_G0(r1,r2),_G1(r0)");
  EXPECT_EQ(Xml(Row(L"_G0")),
            L"<I id=\"_G0\" Def=\"Group\" Kind=\"Grp\" MType=\"Text\" CDef=\"R\" A=\"a\" MCanEdit=\"1\" "
            L"MCopyTo=\"Children,A\" CCanEdit=\"1\" CCopyTo=\"Children,C\" GroupCol=\"A\" M=\"a\" MVisible=\"1\">"
            L"<I id=\"r1\" A=\"a\" B=\"Alpha\"/><I id=\"r2\" A=\"a\" B=\"x\"/></I>");
  // The first row's type, format, enum and refresh of the group column come along.
  Make({L"E='1' EFormat='f'"}, L"<C Name='M'/><C Name='E' Type='Enum' Enum='|p|q' Refresh='1' GroupSole='1' GroupSingle='1'/>");
  Body(L"Group='E'");
  TNode* g = Row(L"_G0");
  ASSERT_TRUE(g);
  EXPECT_EQ(Attr(g, L"A") + L"," + Attr(g, L"AType") + L"," + Attr(g, L"AFormat") + L"," + Attr(g, L"AEnum") + L"," +
                Attr(g, L"ARefresh") + L"," + Attr(g, L"AVisible") + L"," + Attr(g, L"EVisible"),
            L"1,Enum,f,|p|q,1,1,-");  // without MainCol the first left column, else the first column: A
  EXPECT_TRUE(g->Flags & FGrouped);
}

TEST_F(GroupTest, TreeMarksShowTheColumnAndHideTheAncestors) {
  const struct { const wchar_t* Tree; const wchar_t* Attributes; } cases[] = {
      {L"0", L"-,-,-,-"},
      {L"1", L"Expand,-,2,-1"},
      {L"2", L"-,Expand,2,-1"},
  };
  for (auto& c : cases) {
    Make({L"A='x' B='2'", L"A='x' B='2'", L"A='y' B='1'"}, L"<C Name='M'/>", L"<D Name='Group' Group='1'/>",
         L"MainCol='M'");
    Body(std::wstring(L"Group='A,B' GroupTree='") + c.Tree + L"'");
    TNode* inner = Row(L"_G0")->FirstChild;  // the B group of x
    EXPECT_EQ(Attr(inner, L"BIcon") + L"," + Attr(inner, L"BButton") + L"," + Attr(inner, L"B") + L"," +
                  Attr(inner, L"AVisible"),
              c.Attributes)
        << c.Tree;
  }
}

TEST_F(GroupTest, DefinitionsAreChosenPerLevel) {
  const struct { const wchar_t* Defs; const wchar_t* Group; const wchar_t* Chosen; } cases[] = {
      // Candidates matched by GroupCols patterns come before the general ones.
      {L"<D Name='Group' Group='1'/><D Name='GA' Group='1' GroupCols='|B*|A,*'/>", L"A,B", L"GA,GA"},
      {L"<D Name='Group' Group='1'/><D Name='GA' Group='1' GroupCols='|B*'/>", L"A,B", L"Group,Group"},
      {L"<D Name='Group' Group='1'/><D Name='GX' Group='1' GroupCols=''/>", L"A", L"Group"},  // present but empty
      // GroupCol: by the level's column name, else the first without GroupCol.
      {L"<D Name='G1' Group='1' GroupCol='B'/><D Name='G2' Group='1'/>", L"A,B", L"G2,G1"},
      // A number selects by the candidate's place in the list: 0 the first.
      {L"<D Name='G1' Group='1' GroupCol='0'/><D Name='G2' Group='1' GroupCol='A'/>", L"A,B", L"G1,G1"},
      // ... or by the place less the group count: 1 + 2 levels is place 3, not reached here.
      {L"<D Name='G1' Group='1' GroupCol='1'/><D Name='G2' Group='1'/>", L"A,B", L"G2,G2"},
      // 0 + 2 levels is place 2; a negative number selects nothing.
      {L"<D Name='G0' Group='1'/><D Name='G1' Group='1' GroupCol='-1,x'/><D Name='G2' Group='1' GroupCol='0'/>"
       L"<D Name='G3' Group='1' GroupCol='1'/>",
       L"A,B", L"G2,G2"},
      // GroupLast is set to -1, which never selects.
      {L"<D Name='GroupLast' Group='1' GroupCol='0'/><D Name='Group' Group='1'/>", L"A", L"Group"},
      // GroupDef of the column, when no GroupCol selects.
      {L"<D Name='G1' Group='1' GroupCol='C'/><D Name='G2' Group='1'/><D Name='GD' Group='1' GroupCols='|Z'/>", L"A",
       L"GD"},
      // The definition named Group is the fallback; none at all skips the level.
      {L"<D Name='G1' Group='1' GroupCol='B'/><D Name='Group' Group='1' GroupCol='Z'/>", L"A,B", L"Group,G1"},
      {L"<D Name='G1' Group='1' GroupCol='B'/>", L"A,B", L"G1"},
  };
  for (auto& c : cases) {
    Make({L"A='x' B='1'", L"A='x' B='2'"}, L"", c.Defs);
    grid->Cols.GetNode(L"A", 0)->SetString(L"GroupDef", L"GD");
    Body(std::wstring(L"Group='") + c.Group + L"'");
    std::wstring chosen;
    for (TNode* row = Page(0)->FirstChild; row && row->GetId()[0] == L'_'; row = row->FirstChild)
      chosen += (chosen.empty() ? L"" : L",") + std::wstring(row->GetString(L"Def"));
    EXPECT_EQ(chosen, c.Chosen) << c.Defs;
  }
}

TEST_F(GroupTest, EmptySoleSingleAndLengthRules) {
  const struct { const wchar_t* Column; std::vector<std::wstring> Values; const wchar_t* Shape; } cases[] = {
      // Empty texts stay in place, "0" too unless GroupEmpty is 1 or more.
      {L"", {L"A=''", L"A='0'", L"A='x'", L"A='x'"}, L"r0,r1,_G0(r2,r3)"},
      {L"GroupEmpty='1'", {L"A=''", L"A='0'", L"A='x'"}, L"r0,_G0(r1),_G1(r2)"},
      {L"GroupEmpty='2'", {L"A=''", L"A='0'"}, L"_G0(r0),_G1(r1)"},
      // GroupSole 0: a single row leaves its group when the next begins; the last one keeps it.
      {L"GroupSole='0'", {L"A='a'", L"A='b'", L"A='b'", L"A='c'"}, L"r0,_G1(r1,r2),_G2(r3)"},
      {L"GroupSole='1'", {L"A='a'", L"A='b'"}, L"_G0(r0),_G1(r1)"},
      // GroupSingle 0: one group alone is given up.
      {L"GroupSingle='0'", {L"A='a'", L"A='a'"}, L"r0,r1"},
      {L"GroupSingle='0'", {L"A='a'", L"A='b'"}, L"_G0(r0),_G1(r1)"},
      // A dissolved sole group still counts as begun.
      {L"GroupSingle='0' GroupSole='0'", {L"A='a'", L"A='b'"}, L"r0,_G1(r1)"},
      // Case folds unless CaseSensitive; the first row's spelling shows.
      {L"", {L"A='X'", L"A='x'"}, L"_G0(r0,r1)"},
      {L"CaseSensitive='1'", {L"A='X'", L"A='x'"}, L"_G0(r0),_G1(r1)"},
      {L"WhiteChars=' '", {L"A='a b'", L"A='ab'"}, L"_G0(r0,r1)"},
      // SortValue decides in place of the cell.
      {L"", {L"A='a' ASortValue='k'", L"A='b' ASortValue='k'", L"A='k'"}, L"_G0(r0,r1,r2)"},
  };
  for (auto& c : cases) {
    Make(c.Values, L"<C Name='A' " + std::wstring(c.Column) + L"/>");
    Body(L"Group='A'");
    EXPECT_EQ(Shape(), c.Shape) << c.Column;
  }
  // MaxGroupLength N: N+1 equal rows make two group rows of that value.
  Make({L"A='a'", L"A='a'", L"A='a'", L"A='b'"}, L"");
  Body(L"Group='A' MaxGroupLength='2'");
  EXPECT_EQ(Shape(), L"_G0(r0,r1),_G1(r2),_G2(r3)");
  EXPECT_EQ(Attr(Row(L"_G1"), L"A"), L"a");
  // MaxGroupLength 1 with GroupSole 0: each group was closed, nothing is dissolved.
  Make({L"A='a'", L"A='b'"}, L"<C Name='A' GroupSole='0'/>");
  Body(L"Group='A' MaxGroupLength='1'");
  EXPECT_EQ(Shape(), L"_G0(r0),_G1(r1)");
  // MaxChars of the definition: only the first characters decide.
  Make({L"A='abc'", L"A='abd'", L"A='b'"}, L"",
       L"<D Name='Group' Group='1' AMaxChars='2'/>");
  Body(L"Group='A'");
  EXPECT_EQ(Shape(), L"_G0(r0,r1),_G1(r2)");
}

TEST_F(GroupTest, FilteredGroupsHideOnlyWithCanFilter) {
  // The definition takes CanFilter from R, as defaults do, unless it says otherwise.
  const struct { const wchar_t* Def; const wchar_t* Shape; } cases[] = {
      {L"<D Name='Group' Group='1' CanFilter='0'/>", L"_G0(r0~,r2~),_G1(r1)"},
      {L"<D Name='Group' Group='1' CanFilter='1'/>", L"_G0~(r0~,r2~),_G1(r1)"},
  };
  for (auto& c : cases) {
    Make({L"A='a' B='1'", L"A='b' B='2'", L"A='a' B='1'"}, L"", c.Def);
    Body(L"Group='A'", L"B='2' BFilter='1'");
    EXPECT_EQ(Shape(), c.Shape) << c.Def;
  }
  // A group begun by a filtered row does not count for GroupSingle.
  Make({L"A='a' B='1'", L"A='b' B='2'"}, L"<C Name='A' GroupSingle='0'/>");
  Body(L"Group='A'", L"B='2' BFilter='1'");
  EXPECT_EQ(Shape(), L"_G0~(r0~),r1");
  EXPECT_EQ(Attr(Row(L"_G1"), L"A"), L"b");  // given up, yet still found by its id
  EXPECT_FALSE(Row(L"_G1")->Parent == Page(0));
}

TEST_F(GroupTest, GroupRowsCalculateAndArePaged) {
  Make({L"A='a' C='1'", L"A='b' C='2'", L"A='a' C='4'"}, L"",
       L"<D Name='Group' Group='1' Calculated='1' CFormula='sum()'/>");
  std::wstring body = Body(L"Group='A' PageLength='1' NoPager='0'");
  EXPECT_EQ(Attr(Row(L"_G0"), L"C") + L"," + Attr(Row(L"_G1"), L"C"), L"5,2");
  EXPECT_NE(body.find(L"<B CDef=\"R\" Name00=\"a\""), std::wstring::npos) << body;
  EXPECT_NE(body.find(L"<I id=\"_G1\" Def=\"Group\" AType=\"Text\" CDef=\"R\" A=\"b\" GroupCol=\"A\" AVisible=\"1\" "
                      L"C=\"2\" Csum=\"2\" _0F=\"48\"><I id=\"r1\""),
            std::wstring::npos)
      << body;
  EXPECT_EQ(Pages(), L"_G0|_G1");
  // The cell query walks group rows like any other.
  EXPECT_EQ(Take(grid->GetCells(L"r0", L"C", 2 + 8, nullptr, nullptr)), L"|1|2|2|4|5");
}

TEST_F(GroupTest, RegroupingAndUngroupingKeepEveryRowOnce) {
  std::vector<std::wstring> rows;
  for (int i = 0; i < 60; i++)
    rows.push_back(L"A='" + std::to_wstring(i % 3) + L"' B='" + std::to_wstring(i % 7) + L"' C='" +
                   std::to_wstring(i % 2) + L"'" + (i % 10 == 0 ? L" CanGroup='0'><I id='c" + std::to_wstring(i) +
                                                                    L"' A='1' B='1'/></I><I id='x" + std::to_wstring(i) + L"'"
                                                              : L""));
  Make(rows, L"<C Name='C' GroupSingle='1' GroupSole='0' GroupEmpty='2'/>",
       L"<D Name='Group' Group='1' ParentCDef='Q' ParentAcceptDef='Q'/>", L"MainCol='B'");
  std::vector<std::wstring> before;
  DataIds(Page(0), before);
  std::sort(before.begin(), before.end());
  for (const wchar_t* group : {L"A", L"A,B", L"B,C,A", L"C", L"A,B,C", L"C,A", L""}) {
    Body(std::wstring(L"Group='") + group + L"' MaxGroupLength='4'");
    std::vector<std::wstring> now;
    DataIds(Page(0), now);
    std::sort(now.begin(), now.end());
    EXPECT_EQ(now, before) << group;
  }
  // Ungrouped: no generated row is left at the root, the main column and the root's defaults are back.
  EXPECT_EQ(Kids(Page(0)).find(L"_G"), std::wstring::npos);
  EXPECT_EQ(Attr(grid->Cfg, L"MainCol") + L"," + Attr(Page(0), L"CDef") + L"," + Attr(Page(0), L"AcceptDef"), L"B,R,-");
}

TEST_F(GroupTest, RowsThatCannotGroupKeepTheirPlaceAndGroupTheirChildren) {
  Make({L"A='a'", L"A='a' CanGroup='0'><I id='c1' A='x'/><I id='c2' A='y'/></I><I id='r2' A='b'"},
       L"");
  Body(L"Group='A'");
  EXPECT_EQ(Shape(), L"_G0(r0),r1(_G1(c1),_G2(c2)),_G3(r2)");
  // The ungrouping looks one level further down only: group rows right under r1 stay.
  grid->Ungroup();
  EXPECT_EQ(Shape(), L"r1(_G1(c1),_G2(c2)),r0,r2");
  // Group rows under the children of such a row go.
  Make({L"A='a' CanGroup='0'><I id='c1' CanGroup='0'><I id='d1' A='x'/></I></I><I id='r1' A='z'"},
       L"");
  Body(L"Group='A'");
  EXPECT_EQ(Shape(), L"r0(c1(_G0(d1))),_G1(r1)");
  Body(L"");
  EXPECT_EQ(Shape(), L"r0(c1(d1)),r1");
}

TEST_F(GroupTest, RelatedEnumsComeWithTheGroupRow) {
  Make({L"K='1' L='0' A='2' LEnum0='|x' LEnum1='|y'"},
       L"<C Name='K' Type='Enum' Enum='|k0|k1'/><C Name='L' Type='Enum'/><C Name='M'/>"
       L"<C Name='A' Type='Enum' Related='K,L' Enum0_0='|a' Enum1_0='|b|c|d'/>",
       L"<D Name='Group' Group='1'/>", L"MainCol='M'");
  Body(L"Group='A' MainCol='M'");
  TNode* g = Row(L"_G0");
  ASSERT_TRUE(g);
  EXPECT_EQ(Attr(g, L"MRelated") + L"," + Attr(g, L"MGroupOrig") + L"," + Attr(g, L"K") + L"," + Attr(g, L"L") + L"," +
                Attr(g, L"MEnum0_0") + L"," + Attr(g, L"MEnum1_0") + L"," + Attr(g, L"M"),
            L"K,L,A,1,0,|a,|b|c|d,2");
  EXPECT_EQ(g->GetStringFormat(L"M", -1), std::wstring(L"d"));
}

TEST_F(GroupTest, LimitsAreCutSafely) {
  std::wstring many, longName(300, L'n'), editCols;
  for (int i = 0; i < 40; i++) many += L"A,";
  for (int i = 0; i < 200; i++) editCols += L"E" + std::to_wstring(i) + L",";
  std::vector<std::wstring> rows;
  for (int i = 0; i < 30; i++) rows.push_back(L"A='" + std::wstring(2000, L'a' + i % 3) + L"'");
  Make(rows, L"<C Name='" + longName + L"' GroupSingle='1'/>",
       L"<D Name='Group' Group='1' AMaxChars='5000' EditCols='" + editCols + L"Main," + longName + L"'/>");
  Body(L"Group='" + many + longName + L"'");
  EXPECT_EQ(grid->GroupCount, 32);
  Body(L"Group='" + longName + L"," + std::wstring(400, L'A') + L"' MainCol='" + longName + L"'");
  EXPECT_EQ(grid->GroupCount, 1);
  // A tree deeper than a document may nest, grouped many times over.
  Make({L"A='a'"}, L"");
  TNode* parent = Row(L"r0");
  parent->SetInt(L"CanGroup", 0);
  for (int depth = 0; depth < 20000; depth++) {
    TNode* child = grid->Tree->CreateElement(L"I");
    child->Base = grid->Defs.GetNode(L"R", 0);
    child->SetInt(L"CanGroup", 0);
    child->SetString(L"A", depth % 3 ? L"a" : L"b");
    parent->AppendChild(child);
    parent = child;
  }
  parent->SetInt(L"CanGroup", 1);
  for (int i = 0; i < 20; i++) {
    grid->Cfg->SetString(L"Group", i % 2 ? L"A" : L"A,B");
    grid->UpdateGroup();
    grid->Group();
  }
  EXPECT_EQ(Attr(parent->Parent, L"GroupCol"), L"A");
  grid->Ungroup();
  EXPECT_EQ(Attr(parent->Parent, L"GroupCol"), L"-");
}

// A compiled formula keeps the id table's entry of the row it names; a
// destroyed group row must not stay behind in that entry.
TEST_F(GroupTest, FormulaNamingAGroupRowSurvivesRegrouping) {
  Make({L"A='a' C='1'", L"A='b' C='2'"}, L"<C Name='X' Formula='Get(_G0,\"C\")'/>",
       L"<D Name='Group' Group='1' Calculated='1' CFormula='sum()'/><D Name='R' CanGroup='1' Calculated='1'/>");
  for (const wchar_t* group : {L"A", L"C", L"A", L""}) {
    EXPECT_NE(Body(std::wstring(L"Group='") + group + L"'"), L"<null>");
    EXPECT_EQ(Row(L"_G0") != nullptr, *group != 0) << group;
  }
}

}  // namespace
