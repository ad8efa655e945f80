// Reading documents into a grid and turning the raw tree into its working form.
#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "GridTest.h"

namespace {

class LoadTest : public GridTest {
protected:
  void TearDown() override {
    for (const std::string& p : files) std::remove(p.c_str());
  }
  int Load(std::initializer_list<const wchar_t*> documents) {
    std::vector<const wchar_t*> list(documents);
    return grid->Load(list.data(), (int)list.size());
  }
  TNode* Section(const wchar_t* name) { return grid->Tree->Root->GetChildByName(name, false); }
  TNode* Def(const wchar_t* name) { return grid->Defs.GetNode(name, 0); }
  static std::wstring Ids(const TNodeList& list) {
    std::wstring s;
    for (int i = 0; i < list.Count; i++) s += (i ? L"," : L"") + std::wstring(list.Items[i]->GetId());
    return s;
  }
  std::wstring File(const char* name, const std::string& bytes) {
    std::string p = ::testing::TempDir() + "svload" + std::to_string(getpid()) + "_" + name;
    std::ofstream(p, std::ios::binary) << bytes;
    files.push_back(p);
    return std::wstring(p.begin(), p.end());
  }
  std::vector<std::string> files;
};

TEST_F(LoadTest, TextsAndFilesMergeInOrderUpToTheFirstFailure) {
  grid.reset(new TTestGrid());
  EXPECT_EQ(grid->Load(nullptr, 1), -1);
  EXPECT_EQ(Load({nullptr, L"", nullptr}), 0);
  grid->Update();  // no root: nothing to do
  EXPECT_TRUE(!grid->Tree->Root && !grid->Cfg && grid->Calls.empty());

  EXPECT_EQ(Load({L" \r\n\t<Grid a='1' b='1'><X/></Grid>", L"&lt;Grid b='2'&gt;&lt;Y/&gt;&lt;/Grid&gt;",
                  L"<Grid><B>", L"<Grid><C/></Grid>"}),
            -3);
  EXPECT_STREQ(grid->Tree->Root->GetString(L"b"), L"2");
  EXPECT_EQ(Kids(grid->Tree->Root, true), L"X,Y");

  grid.reset(new TTestGrid());
  std::wstring good = File("good.xml", "\xEF\xBB\xBF<Grid><A/></Grid>");
  EXPECT_EQ(Load({(L"  " + good).c_str()}), 0);
  EXPECT_EQ(Kids(grid->Tree->Root, true), L"A");
  EXPECT_EQ(Load({File("empty.xml", "").c_str()}), -2);
  EXPECT_EQ(Load({File("bad.xml", "<Grid><A>").c_str()}), -3);
  EXPECT_EQ(Load({(good + L".missing").c_str()}), -1);
}

TEST_F(LoadTest, MissingSectionsAndDefaultsAreMadeAndColumnsMergeByName) {
  Create(L"<Grid><Cols><C Name='A'/></Cols></Grid>");
  EXPECT_EQ(Xml(grid->Tree->Root),
            L"<Grid><IO/><Cols><C Name=\"A\" Type=\"Text\"/></Cols><Body><B CDef=\"R\"/></Body><Cfg/><Def>"
            L"<D Name=\"C\" Type=\"Text\"/><D Name=\"R\" AType=\"Text\"/></Def></Grid>");
  EXPECT_EQ(grid->IO, grid->Tree->Root->FirstChild);

  Create({L"<Grid><LeftCols><C Name='L' W='1'/></LeftCols><Cols><C Name='A' W='1' X='1'/><C Name='B'/></Cols></Grid>",
          L"<Grid><Cols><C Name='N'/><C Name='A' W='2'/><C Name='L' W='2'/></Cols></Grid>"});
  EXPECT_EQ(Xml(grid->Tree->Root),
            L"<Grid><IO/><LeftCols><C Name=\"L\" W=\"2\" Type=\"Text\"/></LeftCols><Cols><C Name=\"A\" W=\"2\" X=\"1\" "
            L"Type=\"Text\"/><C Name=\"B\" Type=\"Text\"/><C Name=\"N\" Type=\"Text\"/></Cols><Body><B CDef=\"R\"/>"
            L"</Body><Cfg/><Def><D Name=\"C\" Type=\"Text\"/><D Name=\"R\" LType=\"Text\" AType=\"Text\" "
            L"BType=\"Text\" NType=\"Text\"/></Def></Grid>");
  std::wstring order;
  for (int i = 0; i < grid->Cols.GetCount(); i++) order += grid->Cols.GetNode(i)->GetString(L"Name");
  EXPECT_EQ(order, L"LABN");
  EXPECT_EQ(grid->Cols.GetNode(L"A", 0), Section(L"Cols")->FirstChild);
}

TEST_F(LoadTest, RowSectionsPlaceRowsByKind) {
  Create(L"<Grid><Head><I id='h1'/><Filter id='f0'/><I id='u1' Kind='User'/><Toolbar id='t1' Cells='A'/>"
         L"<X id='x1'/></Head><Foot><I id='f1' Kind='Filter'/><I id='ft' Kind='I'/></Foot>"
         L"<Solid><I id='s1' Cells='A'/><I id='s2'/></Solid><Filters><Filter id='f2'/><I id='f3'/></Filters></Grid>");
  EXPECT_EQ(Xml(grid->Tree->Root),
            L"<Grid><IO/><Head><I id=\"h1\"/><Filter id=\"f0\" Kind=\"Filter\"/><I id=\"u1\" Kind=\"User\"/>"
            L"<Filter id=\"f2\" Kind=\"Filter\"/><I id=\"f3\" Kind=\"Filter\"/></Head><Solid><Toolbar id=\"t1\" "
            L"Kind=\"Toolbar\" Cells=\"A\"/><X id=\"x1\" Kind=\"X\"/><I id=\"s1\" Kind=\"I\" Cells=\"A\"/><I id=\"s2\" "
            L"Kind=\"I\"/></Solid><Foot><I id=\"f1\" Kind=\"Filter\"/><I id=\"ft\"/></Foot><Body><B CDef=\"R\"/></Body>"
            L"<Cfg/><Def><D Name=\"C\" Type=\"Text\"/><D Name=\"R\"/></Def></Grid>");
  EXPECT_EQ(Ids(grid->FixedRows), L"h1,ft");
  EXPECT_EQ(Ids(grid->FilterRows), L"f0,f1,f2,f3");
  EXPECT_EQ(Ids(grid->SolidRows), L"t1,s1");

  // Filter rows without an id become one.
  Create(L"<Grid><Head><Filter A='1' AFilter='1'/><Filter id='F' B='2'/><Filter B='3'/><Filter A='4' C='5'/>"
         L"</Head></Grid>");
  EXPECT_EQ(Ids(grid->FilterRows), L",F");
  EXPECT_EQ(Xml(Section(L"Head")), L"<Head><Filter A=\"4\" AFilter=\"1\" B=\"3\" C=\"5\" Kind=\"Filter\"/>"
                                   L"<Filter id=\"F\" B=\"2\" Kind=\"Filter\"/></Head>");
}

TEST_F(LoadTest, RepeatedOrdinarySectionKeepsOnlyItsFirstChild) {
  Create({L"<Grid><Custom a='1' b='1'><P id='p1'/></Custom><Body><B><I id='r1'/></B></Body></Grid>",
          L"<Grid><Custom b='2'><P id='p2'/><P id='p3'/></Custom><Body><B><I id='r2'/></B></Body></Grid>"});
  EXPECT_EQ(Xml(grid->Tree->Root),
            L"<Grid><IO/><Custom a=\"1\" b=\"2\"><P id=\"p1\"/><P id=\"p2\"/></Custom><Body><B CDef=\"R\">"
            L"<I id=\"r1\"/></B><B><I id=\"r2\"/></B></Body><Cfg/><Def><D Name=\"C\" Type=\"Text\"/><D Name=\"R\"/>"
            L"</Def></Grid>");
  EXPECT_EQ(Row(L"p3"), nullptr);
}

TEST_F(LoadTest, DefaultsChainAndFlattenAndTakeColumnAttributes) {
  Create(L"<Grid><Cols><C Name='P' Type='Float' Format='0.00' Enum='|x|y' EnumKeys='|1|2' Width='50'/>"
         L"<C Name='N'/></Cols><Def><D Name='R' PFormat='keep'/></Def><Body><B><I id='1'/></B></Body></Grid>");
  EXPECT_EQ(Xml(Def(L"R")),
            L"<D Name=\"R\" PFormat=\"keep\" PType=\"Float\" PEnum=\"|x|y\" PEnumKeys=\"|1|2\" NType=\"Text\"/>");
  EXPECT_STREQ(Row(L"1")->GetString(L"PType"), L"Float");

  Create(L"<Grid><Def><D Name='A' Def='B' a='1'/><D Name='B' Def='C2' a='x' b='2'/><D Name='C2' c='3'/>"
         L"<D Name='X' Def='Y'/><D Name='Y' Def='X'/><D Name='S' Def='S'/></Def></Grid>");
  // Links that would close a circle (Y to X, S to itself) are not made.
  const wchar_t* links[][2] = {{L"A", L"B"}, {L"C2", L"R"}, {L"X", L"Y"}, {L"Y", nullptr}, {L"S", nullptr}};
  for (auto& l : links) EXPECT_EQ(Def(l[0])->Base, l[1] ? Def(l[1]) : nullptr) << l[0];
  TNode* a = Def(L"A");
  for (const wchar_t* name : {L"a1", L"b2", L"c3"})
    EXPECT_EQ(a->GetStringBase(a->GetIndex(std::wstring(name, 1).c_str(), 0)), std::wstring(name + 1));
}

TEST_F(LoadTest, RowsTakeTheirDefaults) {
  Create(L"<Grid><Def><D Name='Fixed' X='f'/><D Name='Node' CDef='Leaf' X='n'/><D Name='Leaf' X='l'/></Def>"
         L"<Head><I id='h'/><I id='h2' Def='Node'/><Filter id='fr'/></Head>"
         L"<Body><B><I id='1' Def='Node'><I id='2'><I id='5'/></I><I id='3' Def='Missing'/></I><I id='4'/></B>"
         L"<B CDef='Leaf'><I id='6'/></B></Body></Grid>");
  const wchar_t* expected[][2] = {{L"1", L"Node"}, {L"2", L"Leaf"},  {L"5", L"R"},     {L"3", L"R"},    {L"4", L"R"},
                                  {L"6", L"Leaf"}, {L"h", L"Fixed"}, {L"h2", L"Node"}, {L"fr", L"Fixed"}};
  for (auto& e : expected) EXPECT_EQ(Row(e[0])->Base, Def(e[1])) << e[0];
  EXPECT_STREQ(Row(L"h")->GetString(IDefIndex), L"Fixed");
  EXPECT_STREQ(Row(L"2")->GetString(L"X"), L"l");
  EXPECT_TRUE(Row(L"5")->Flags & FState);

  // The first page takes the attributes of Header and Root, and loses its id.
  Create(L"<Grid><Header id='hd' A='Caption' CDef='Leaf'/><Root CDef='Node' Z='1'/><Def><D Name='Leaf'/></Def>"
         L"<Body><B id='p1'><I id='1'/></B></Body></Grid>");
  EXPECT_EQ(Xml(grid->Body->FirstChild), L"<B A=\"Caption\" CDef=\"Leaf\" Z=\"1\"><I id=\"1\"/></B>");
  EXPECT_TRUE(!Row(L"p1") && Row(L"hd") == Section(L"Header") && Row(L"1")->Base == Def(L"Leaf"));

  // Deep rows are wired too.
  std::wstring text = L"<Grid><Body><B>";
  for (int i = 0; i < 500; i++) text += L"<I id='" + std::to_wstring(i) + L"'>";
  for (int i = 0; i < 500; i++) text += L"</I>";
  Create(text + L"</B></Body></Grid>");
  EXPECT_EQ(Row(L"499")->Base, Def(L"R"));
}

TEST_F(LoadTest, ToolbarHeaderAndLangJoinTheirLists) {
  Create(L"<Grid><Toolbar id='tb' Cells='A,B' Formula='sum()'/><Header id='hd' Calculate='1'/>"
         L"<Lang><Format Hirji='1'/></Lang></Grid>");
  EXPECT_EQ(Ids(grid->SolidRows) + L" " + Ids(grid->FixedRows), L"tb hd");
  EXPECT_STREQ(Row(L"tb")->GetString(L"FormulaFormula"), L"sum()");
  EXPECT_TRUE(grid->Tree->Hirji && grid->Tree->Format == Section(L"Lang")->FirstChild);
  Create(L"<Grid><Toolbar/><Header Calculate='0'/></Grid>");
  EXPECT_EQ(grid->SolidRows.Count + grid->FixedRows.Count, 0);
}

TEST_F(LoadTest, CfgSetsPagingAndTreeSettings) {
  Create(L"<Grid><Cfg Paging='3' ChildPaging='3' MaxChildrenOffline='7'/><Body><B><I id='1'><I id='2'/></I></B>"
         L"</Body></Grid>");
  EXPECT_TRUE(grid->ServerPaging && grid->ServerChildPaging);
  EXPECT_FALSE((Row(L"1")->Flags | Row(L"2")->Flags) & FState);
  EXPECT_EQ(grid->Tree->MaxChildrenOffline, 7);
  const std::pair<const wchar_t*, int> precisions[] = {
      {L"", 10000}, {L"Precision='2'", 100}, {L"Precision='0'", 1}, {L"Precision='40'", 1000000000}};
  for (auto& p : precisions) {
    Create(L"<Grid><Cfg Paging='2' " + std::wstring(p.first) + L"/></Grid>");
    EXPECT_FALSE(grid->ServerPaging);
    EXPECT_EQ(grid->Tree->Precision, p.second) << p.first;
  }
}

TEST_F(LoadTest, PagesCreatedChoosesTheCallsUpward) {
  const wchar_t* cases[][4] = {  // document, calls, PagesCreated after, session
      {L"<Grid><IO Session='s1'/><Body PagesCreated='-1'/></Grid>", L"CopySession,RemovePages,InitCalc,InitGroup,",
       L"-", L"s1"},
      {L"<Grid><Body PagesCreated='1'/></Grid>", L"CopySession,UpdateSort,UpdateFilter,UpdateGroup,InitCalc,InitGroup,",
       L"1", L""},
      {L"<Grid/>", L"CopySession,InitCalc,InitGroup,", L"-", L""}};
  for (auto& c : cases) {
    Create(c[0]);
    EXPECT_EQ(grid->Calls + L" " + Attr(grid->Body, L"PagesCreated") + L" " + grid->Session,
              std::wstring(c[1]) + L" " + c[2] + L" " + c[3]);
  }
}

}  // namespace
