// Change documents applied to a grid: each kind of change, ids taken anew on
// collisions, recalculation, copies, the log of changes, and documents that
// name the grid's own elements.
#include "GridTest.h"

namespace {

class SaveTest : public GridTest {
protected:
  // Root rows a..e in two pages, b with children b1, b2; ids are digits
  // from 41 down, so a collision gives 42.
  void Paged(const std::wstring& cfg = L"") {
    Create(L"<Grid><Cfg IdChars='0123456789' RootCount='5' " + cfg +
           L"/><Def><D Name='Sub' X='s'/></Def><Body><B CDef='Sub'><I id='a'/><I id='b'><I id='b1'/><I id='b2'/></I>"
           L"<I id='c'/></B><B><I id='d'/><I id='41' V='old'/></B></Body></Grid>");
  }
  int Save(const std::wstring& changes, int flags = 0) {
    return grid->Save((L"<Grid><Changes>" + changes + L"</Changes></Grid>").c_str(), flags);
  }
  std::wstring Changes(int flags = 0) { return Take(grid->GetChanges(flags)); }
  std::wstring State() {
    return Pages() + L" b:" + Kids(Row(L"b")) + L" RootCount=" + Attr(grid->Cfg, L"RootCount") +
           L" UpdateState=" + Attr(grid->Body, L"UpdateState");
  }
};

TEST_F(SaveTest, EachKindOfChange) {
  const struct { const wchar_t* Changes; int Result; const wchar_t* State; } cases[] = {
      {L"<I id='a' V='1' Changed='1'/>", 0, L"a,b,c|d,41 b:b1,b2 RootCount=5 UpdateState=1"},
      {L"<I id='zz' V='1'/><I V='2'/><I id='' Deleted='1'/>", 2, L"a,b,c|d,41 b:b1,b2 RootCount=5 UpdateState=-"},
      {L"<I id='c' Deleted='1'/><I id='b1' Deleted='1'/>", 0, L"a,b|d,41 b:b2 RootCount=4 UpdateState=-"},
      {L"<I id='d' Moved='1' Parent='b'/>", 0, L"a,b,c|41 b:b1,b2,d RootCount=4 UpdateState=1"},
      {L"<I id='b2' Moved='1' Parent='b' Next='b1'/>", 0, L"a,b,c|d,41 b:b2,b1 RootCount=5 UpdateState=1"},
      // Next under another parent: the place is behind Prev, or the parent's start without Prev.
      {L"<I id='d' Moved='1' Parent='b' Next='a' Prev='b1'/>", 0, L"a,b,c|41 b:b1,d,b2 RootCount=4 UpdateState=1"},
      {L"<I id='d' Moved='1' Parent='b' Next='a'/>", 0, L"a,b,c|41 b:d,b1,b2 RootCount=4 UpdateState=1"},
      // Prev under a third parent leaves the row where it stood.
      {L"<I id='b1' Moved='1' Parent='0' Next='d' Prev='41'/>", 0, L"a,b,c|d,41 b:b1,b2 RootCount=6 UpdateState=1"},
      {L"<I id='b1' Moved='1' Parent='0' Next='c'/>", 0, L"a,b,b1,c|d,41 b:b2 RootCount=6 UpdateState=1"},
      {L"<I id='a' Moved='1' Parent='1'/>", 0, L"b,c|d,41,a b:b1,b2 RootCount=5 UpdateState=1"},
      {L"<I id='b2' Moved='1' Next='a'/>", 0, L"b2,a,b,c|d,41 b:b1 RootCount=6 UpdateState=1"},
      {L"<I id='b2' Moved='1'/>", 0, L"a,b,c|d,41,b2 b:b1 RootCount=6 UpdateState=1"},
      {L"<I id='b2' Moved='1' Parent='9' Next='zz'/>", 0, L"a,b,c|d,41,b2 b:b1 RootCount=6 UpdateState=1"},
      {L"<I id='n' Added='1' Parent='b' Next='b2'/>", 0, L"a,b,c|d,41 b:b1,n,b2 RootCount=5 UpdateState=1"},
      {L"<I id='n' Added='1' Parent='0'/>", 0, L"a,b,c,n|d,41 b:b1,b2 RootCount=6 UpdateState=1"},
      {L"<I id='n' Added='1' Deleted='1'/>", 0, L"a,b,c|d,41 b:b1,b2 RootCount=5 UpdateState=-"},
  };
  for (auto& c : cases) {
    Paged();
    EXPECT_EQ(Save(c.Changes), c.Result) << c.Changes;
    EXPECT_EQ(State(), c.State) << c.Changes;
  }
  // Placement attributes and Changed never reach the row; other values do.
  Paged();
  Save(L"<I id='a' V='1' Changed='1'/><I id='n' Added='1' Parent='b' Next='b1' Prev='a' W='2' Changed='0'/>");
  EXPECT_EQ(Xml(Row(L"a")) + Xml(Row(L"n")), L"<I id=\"a\" V=\"1\"/><I id=\"n\" W=\"2\"/>");
  // A new row without Def takes R whatever its parent's CDef; with Def, that default.
  Save(L"<I id='m' Added='1' Def='Sub'/>");
  EXPECT_EQ(Attr(Row(L"n"), L"X") + Attr(Row(L"m"), L"X"), L"-s");
  // Nothing to apply: 0, -3 for what does not parse, and the grid untouched.
  const wchar_t* refused[] = {nullptr, L"", L"<Grid/>", L"<Grid><Cfg/></Grid>"};
  for (const wchar_t* xml : refused) EXPECT_EQ(grid->Save(xml, 3), 0);
  EXPECT_EQ(grid->Save(L"<Grid><Changes><I id='a' Deleted='1'/>", 3), -3);
  EXPECT_EQ(Changes(), L"<null>");
  EXPECT_TRUE(Row(L"a"));
}

TEST_F(SaveTest, CollisionsTakeNewIdsAndTheLogTellsThem) {
  // 41 is taken: the new row becomes 42, and what named 41 names 42. A Parent
  // beginning with a digit is a page number, so 42 can't be a parent.
  const std::wstring changes = L"<I id='x' Added='1' Next='41' Parent='41' Copy='41'/><I id='41' Added='1' Parent='0'/>";
  const std::wstring replaced = L"<I id=\"41\" NewId=\"42\" Changed=\"1\" _0F=\"16\"/>";
  const std::wstring copies = L"<I id=\"x\" Added=\"1\" Next=\"42\" Parent=\"42\" Copy=\"42\" _0F=\"16\"/>"
                              L"<I id=\"42\" Added=\"1\" Parent=\"0\" _0F=\"16\"/>";
  const struct { const wchar_t* Cfg; int Flags; const wchar_t* Pages; std::wstring Log; } cases[] = {
      {L"", 0, L"a,b,c,42|d,41,x", L"<null>"},
      {L"", 2, L"a,b,c,42|d,41,x", L"<Changes _0F=\"16\">" + replaced + L"</Changes>"},
      {L"", 3, L"a,b,c,42|d,41,x", L"<Changes _0F=\"16\">" + replaced + copies + L"</Changes>"},
      {L"NumberId='1' IdPrefix='R'", 1, L"a,b,c,42|d,41,x", L"<Changes _0F=\"16\">" + copies + L"</Changes>"},
  };
  for (auto& c : cases) {
    Paged(c.Cfg);
    EXPECT_EQ(Save(changes, c.Flags), 0);
    EXPECT_EQ(Pages(), c.Pages) << c.Cfg;
    EXPECT_EQ(Attr(Row(L"41"), L"V"), L"old");
    EXPECT_EQ(Changes(), c.Log) << c.Flags;
  }
  // Next follows the new id too.
  Paged();
  Save(L"<I id='41' Added='1' Parent='0'/><I id='y' Added='1' Next='41'/>");
  EXPECT_EQ(Pages(), L"a,b,c,y,42|d,41");
  // Without IdChars the new id is empty: the change counts as one without id.
  Create(L"<Grid><Body><B><I id='5'/></B></Body></Grid>");
  EXPECT_EQ(Save(L"<I id='5' Added='1'/>", 2), 1);
  EXPECT_EQ(Pages() + L" " + Changes(), L"5 <Changes _0F=\"16\"><I id=\"5\" NewId=\"\" Changed=\"1\" _0F=\"16\"/></Changes>");
  // Each replacement goes to the front of the log.
  Paged();
  Save(L"<I id='a' Added='1'/><I id='b' Added='1'/>", 2);
  EXPECT_EQ(Changes(), L"<Changes _0F=\"16\"><I id=\"b\" NewId=\"43\" Changed=\"1\" _0F=\"16\"/>"
                       L"<I id=\"a\" NewId=\"42\" Changed=\"1\" _0F=\"16\"/></Changes>");
}

TEST_F(SaveTest, TheLogLivesUntilGetBodyOrGetChangesWithFlagOne) {
  Paged();
  Save(L"<I id='a' V='1'/>");
  EXPECT_EQ(Changes(), L"<null>");
  Save(L"<I id='a' V='2'/>", 1);
  std::wstring log = Changes();
  EXPECT_EQ(log, L"<Changes _0F=\"16\"><I id=\"a\" V=\"2\" _0F=\"16\"/></Changes>");
  EXPECT_EQ(Changes(), log);
  Save(L"<I id='c' Deleted='1'/>", 1);
  EXPECT_EQ(Changes(1), L"<Changes _0F=\"16\"><I id=\"a\" V=\"2\" _0F=\"16\"/><I id=\"c\" Deleted=\"1\" _0F=\"16\"/></Changes>");
  EXPECT_EQ(Changes(), L"<null>");
  Save(L"<I id='a' V='3'/>", 1);
  Take(grid->GetBody(nullptr, nullptr));
  EXPECT_EQ(Changes(), L"<null>");
  EXPECT_FALSE(grid->Changes);
}

TEST_F(SaveTest, RowsRecalculateAsRecalcSaysOrOnceAfterTenChanges) {
  // T counts its own calculations; the page and p add up their children.
  auto make = [&](const std::wstring& recalc) {
    Create(L"<Grid><Cols><C Name='T' Formula='T+1'/><C Name='S'/></Cols><Def><D Name='R' Recalc='" + recalc +
           L"'/></Def><Body><B Calculated='1' SFormula='sum()'><I id='p' Calculated='1' SFormula='sum()'>"
           L"<I id='r' S='1'/><I id='q' S='2'/></I><I id='o' S='5'/></B></Body></Grid>");
  };
  auto counts = [&] {
    std::wstring s;
    for (TNode* n : {Row(L"r"), Row(L"q"), Row(L"p"), Row(L"o")}) s += (n ? Attr(n, L"T") : L"x") + L",";
    return s + Attr(Row(L"p"), L"S") + L"," + Attr(Page(0), L"S");
  };
  // Changes without id count among the changes too.
  std::wstring ten = L"<I id='r' V='1'/>", eleven = L"<I V='1'/>";
  for (int i = 1; i < 10; i++) ten += eleven;
  const struct { const wchar_t* Recalc; std::wstring Changes; const wchar_t* Counts; } cases[] = {
      {L"1", L"<I id='r' S='4'/>", L"1,-,-,-,-,-"},
      // p is a Calculated row: its own formulas run, not the column's.
      {L"2", L"<I id='r' S='4'/>", L"-,-,-,-,6,11"},
      {L"4", L"<I id='r' S='4'/>", L"-,-,-,-,6,11"},
      {L"8", L"<I id='p' S='4'/>", L"1,1,-,-,4,-"},
      {L"3", L"<I id='q' Deleted='1'/>", L"-,x,-,-,1,6"},
      // The old parent and the row; the new parent is the page, reached from the row.
      {L"3", L"<I id='q' Moved='1' Parent='0'/>", L"-,1,-,-,1,8"},
      {L"1", L"<I id='q' Moved='1' Parent='0'/>", L"-,-,-,-,-,-"},
      {L"257", L"<I id='r' S='4'/>", L"1,1,-,1,6,11"},
      {L"1", ten, L"1,-,-,-,-,-"},
      {L"1", ten + eleven, L"1,1,-,1,3,8"},
  };
  for (auto& c : cases) {
    make(c.Recalc);
    grid->Save((L"<Grid><Changes>" + c.Changes + L"</Changes></Grid>").c_str(), 0);
    EXPECT_EQ(counts(), c.Counts) << c.Recalc << L" " << c.Changes.size();
  }
}

TEST_F(SaveTest, CopyGivesNewIdsAndCopyToFillsChildren) {
  Paged();
  Row(L"b1")->SetString(L"V", L"one");
  EXPECT_EQ(Save(L"<I id='n' Added='1' Parent='0' Copy='b'/><I id='m' Added='1' Copy='zz'/>"), 0);
  EXPECT_EQ(Xml(Row(L"n")), L"<I id=\"n\"><I id=\"42\" V=\"one\"/><I id=\"43\"/></I>");
  EXPECT_EQ(Row(L"b1")->Parent, Row(L"b"));  // the sources keep their ids
  EXPECT_EQ(Xml(Row(L"m")), L"<I id=\"m\"/>");
  // Copy of the row's own parent takes the children as they stood, the row included.
  Save(L"<I id='k' Added='1' Parent='b' Copy='b'/>");
  EXPECT_EQ(Kids(Row(L"k")), L"44,45,46");

  Paged();
  Row(L"b")->SetString(L"VCopyTo", L"Children,W,Other,Q,Children,U");
  Row(L"b1")->SetString(L"WCopyTo", L"Children,Z");
  Row(L"b1")->AppendChild(grid->Tree->CreateElement(L"I"))->SetId(L"g");
  Row(L"b2")->SetString(L"U", L"gone");
  Save(L"<I id='b' V='7'/>");
  EXPECT_EQ(Xml(Row(L"b")), L"<I id=\"b\" V=\"7\" VCopyTo=\"Children,W,Other,Q,Children,U\">"
                            L"<I id=\"b1\" WCopyTo=\"Children,Z\" U=\"7\" W=\"7\"><I id=\"g\" Z=\"7\"/></I>"
                            L"<I id=\"b2\" U=\"7\" W=\"7\"/></I>");
  // A moved row runs CopyTo only when its change says Changed.
  Save(L"<I id='b' Moved='1' Parent='1' V='8'/><I id='b' Moved='1' Parent='1' VCopyTo='Children,X'/>");
  EXPECT_EQ(Attr(Row(L"b1"), L"X"), L"-");
  Save(L"<I id='b' Moved='1' Parent='1' V='9' Changed='1'/>");
  EXPECT_EQ(Attr(Row(L"b1"), L"X"), L"9");
}

TEST_F(SaveTest, NewRowsOfAGroupedGridTakeTheEditColumns) {
  Create(L"<Grid><Cfg MainCol='M'/><Cols><C Name='M'/><C Name='G'/><C Name='H'/></Cols><Def>"
         L"<D Name='Grp' Group='1'/><D Name='E' EditCols='A,Main' G='dg'/></Def><Body><B><I id='g1' Def='Grp'>"
         L"<I id='g2' Def='Grp'/></I></B></Body></Grid>");
  grid->GroupCount = 2;
  grid->GroupCols[0] = grid->Tree->GetIndex(L"G", 1);
  grid->GroupCols[1] = grid->Tree->GetIndex(L"H", 1);
  const struct { const wchar_t* Change; const wchar_t* Row; } cases[] = {
      {L"Parent='g1'", L"ACanEdit=1 ACopyTo=Children,A MCopyTo=Children,H MCanEdit=1 M=-"},
      {L"Parent='g2' H='h'", L"ACanEdit=1 ACopyTo=Children,A MCopyTo=- MCanEdit=- M=-"},
      {L"Parent='0'", L"ACanEdit=1 ACopyTo=Children,A MCopyTo=Children,G MCanEdit=1 M=dg"},
      {L"Parent='g2' GroupCol='0'", L"ACanEdit=1 ACopyTo=Children,A MCopyTo=Children,G MCanEdit=1 M=dg"},
      {L"Parent='g2' GroupCol='-1' Q='q'", L"ACanEdit=1 ACopyTo=Children,A MCopyTo=Children,-1 MCanEdit=1 M=-"},
      {L"Parent='g2' GroupCol='Q' Q='q'", L"ACanEdit=1 ACopyTo=Children,A MCopyTo=Children,Q MCanEdit=1 M=q"},
  };
  int n = 0;
  for (auto& c : cases) {
    std::wstring id = L"n" + std::to_wstring(n++);
    grid->Save((L"<Grid><Changes><I id='" + id + L"' Added='1' Def='E' " + c.Change + L"/></Changes></Grid>").c_str(), 0);
    TNode* row = Row(id.c_str());
    std::wstring got;
    for (const wchar_t* name : {L"ACanEdit", L"ACopyTo", L"MCopyTo", L"MCanEdit", L"M"})
      got += (got.empty() ? L"" : L" ") + std::wstring(name) + L"=" + Attr(row, name);
    EXPECT_EQ(got, c.Row) << c.Change;
  }
}

// Documents that name what the grid points at: every pointer stays valid and
// nothing is deleted or moved but rows of the body. Run under the sanitizers.
TEST_F(SaveTest, HostileChangesLeaveTheGridWhole) {
  const std::wstring layout =
      L"<Grid id='root'><IO id='io' Session='s'/><Cfg id='cfg' IdChars='0123456789' Paging='3' PageLength='2'/>"
      L"<Header id='hd' Calculate='1'/><Toolbar id='tb' Cells='K'/><Lang id='lg'><Format id='fm'/></Lang>"
      L"<Cols id='cs'><C id='col' Name='A' Formula='A+1'/></Cols><Def id='ds'><D id='dr' Name='R'/>"
      L"<D id='dx' Name='X'/></Def><Head id='hs'><Filter id='fr'/><I id='fx'/></Head><Solid><I id='so' Cells='A'/>"
      L"</Solid><Body id='body'><B id='pg'><I id='1'><I id='2'><I id='3'/></I></I><I id='4' Def='X'/></B>"
      L"<B id='pg2'><I id='5'/></B></Body></Grid>";
  const std::vector<std::wstring> protectedIds = {L"root", L"io",  L"cfg", L"hd", L"tb", L"lg", L"fm", L"cs",
                                                  L"col",  L"ds",  L"dr",  L"dx", L"hs", L"fr", L"fx", L"so",
                                                  L"body", L"pg",  L"pg2"};
  std::vector<std::wstring> documents;
  for (const std::wstring& id : protectedIds) {
    documents.push_back(L"<I id='" + id + L"' Deleted='1'/>");
    documents.push_back(L"<I id='" + id + L"' Moved='1' Parent='1'/>");
    documents.push_back(L"<I id='1' Moved='1' Parent='" + id + L"'/><I id='4' Moved='1' Next='" + id + L"'/>");
    documents.push_back(L"<I id='n' Added='1' Parent='" + id + L"' Copy='" + id + L"'/><I id='" + id +
                        L"' Moved='1' Next='1' Prev='2'/>");
  }
  documents.insert(documents.end(), {
      L"<I id='1' Moved='1' Parent='1'/><I id='1' Moved='1' Parent='3'/><I id='1' Moved='1' Next='3'/>",
      L"<I id='2' Moved='1' Parent='1' Next='2'/><I id='1' Moved='1' Next='1'/><I id='2' Moved='1' Next='2'/>",
      L"<I id='n' Added='1' Parent='n'/><I id='m' Added='1' Next='m' Copy='m'/>",
      L"<I id='n' Added='1' Copy='1'/><I id='1' Deleted='1'/><I id='n' Deleted='1'/>",
      L"<I id='n' Added='1' Parent='1' Copy='1'/><I id='1' Deleted='1'/>",
      L"<I id='1' Moved='1' Parent='99999999999999999999'/><I id='4' Moved='1' Parent='0' Next='4' Prev='4'/>",
      L"<I id='cfg' Paging='0' A='x' Recalc='31'/><I id='dr' Recalc='6'/><I id='3' #CalcOrder='200' Recalc='31'/>",
      L"<I id='body' Recalc='16'/><I id='pg' Recalc='7'/><I id='hd' Recalc='7'/><I id='fr' A='1' AFilter='1'/>",
  });
  for (const std::wstring& changes : documents) {
    Create(layout);
    Save(changes, 3);
    SCOPED_TRACE(changes);
    EXPECT_EQ(Row(L"cfg"), grid->Cfg);
    EXPECT_EQ(Row(L"body"), grid->Body);
    EXPECT_EQ(Row(L"io"), grid->IO);
    EXPECT_EQ(grid->Defs.GetNode(L"R", 0), Row(L"dr"));
    EXPECT_EQ(grid->FilterRows.Items[0], Row(L"fr"));
    EXPECT_EQ(Kids(grid->Body), L",pg2");  // the first page gave up its id at load
    if (TNode* row = Row(L"1")) {
      EXPECT_TRUE(row->Parent && row->Parent->Parent == grid->Body);
    }
    for (const wchar_t* id : {L"1", L"2", L"3", L"4", L"5", L"n", L"m"})
      if (TNode* row = Row(id)) {
        int depth = 0;
        for (TNode* p = row; p && depth < 10; p = p->Parent) depth++;
        EXPECT_LT(depth, 10) << id;  // no cycle
      }
    // Everything else runs on what is left.
    Take(grid->GetBody(L"<Grid><Cfg Sort='A'/></Grid>", nullptr));
    Take(grid->GetData(124, nullptr));
    Take(grid->SaveToData(nullptr));
    Take(grid->GetChanges(1));
  }
}

TEST_F(SaveTest, RowsStayWithinTheDepthLimit) {
  Create(L"<Grid><Body><B><I id='r0'/></B></Body></Grid>");
  std::wstring chain;
  for (int i = 1; i < 600; i++)
    chain += L"<I id='r" + std::to_wstring(i) + L"' Added='1' Parent='r" + std::to_wstring(i - 1) + L"'/>";
  Save(chain);
  int depth = -1;
  for (TNode* row = Row(L"r509"); row; row = row->Parent) depth++;
  EXPECT_EQ(depth, 512);
  // One more level is refused: that row went to the end of the page, and the chain goes on from there.
  EXPECT_EQ(Row(L"r510")->Parent, Page(0));
  EXPECT_EQ(Row(L"r599")->Parent, Row(L"r598"));
  EXPECT_NE(Take(grid->GetData(16, nullptr)), L"<null>");
}

}  // namespace

namespace {
// A formula keeps the id entry of the row it names: once that row is
// deleted, the reference reads as a missing row, never the freed one.
TEST_F(SaveTest, AFormulaNamingADeletedRowFindsNoRow) {
  Create(L"<Grid><Cols><C Name='A'/><C Name='T' Formula=\"Get(x,'A')+1\"/></Cols><Def><D Name='R' Recalc='257'/>"
         L"</Def><Body><B><I id='x' A='5'/><I id='y' A='1'/></B></Body></Grid>");
  grid->CalcChildren(Page(0));
  EXPECT_EQ(Attr(Row(L"y"), L"T"), L"6");
  EXPECT_EQ(Save(L"<I id='x' Deleted='1'/><I id='y' A='2'/>"), 0);
  grid->CalcChildren(Page(0));
  EXPECT_EQ(Attr(Row(L"y"), L"T"), L"6");  // a failed reference stores nothing
}
}  // namespace
