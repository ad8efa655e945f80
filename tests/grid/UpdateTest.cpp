// Requests merged into a grid, the id generator, the log of changes, the saved document.
#include <climits>

#include "GridTest.h"

namespace {

class UpdateTest : public GridTest {
protected:
  std::wstring LastId() {
    TIds ids;
    return grid->GetLastId(&ids);
  }
  // A grid with these Cfg attributes and root rows of these ids.
  void WithIds(const std::wstring& cfg, const std::vector<std::wstring>& ids) {
    std::wstring text = L"<Grid><Cfg " + cfg + L"/><Body><B>";
    for (const std::wstring& id : ids) text += L"<I id='" + id + L"'/>";
    Create(text + L"</B></Body></Grid>");
  }
};

TEST_F(UpdateTest, AddCfgMergesSectionsAndCopiesNewOnes) {
  Create(L"<Grid><Cfg A='1' TimeZone='60'><X/></Cfg><Body><B><I id='1'/></B></Body></Grid>");
  EXPECT_EQ(grid->Tree->TimeZone, 0);  // not read at load
  // Nothing, or text that does not parse, changes nothing.
  grid->Calls.clear();
  EXPECT_TRUE(grid->AddCfg(static_cast<const wchar_t*>(nullptr)));
  EXPECT_TRUE(grid->AddCfg(L""));
  EXPECT_EQ(grid->UpdateGrid(L"<Grid><Cfg A='9'>"), -3);
  EXPECT_EQ(grid->Calls, L"");
  EXPECT_EQ(grid->Cfg->GetInt(L"A"), 1);

  // Body rows and the log of changes stay out.
  ASSERT_TRUE(grid->AddCfg(L"<Grid><Cfg A='2' B='3' Paging='3' ChildPaging='3'><Y/></Cfg><IO Session='s1'/>"
                           L"<Extra k='v'><Z/></Extra><Body><B><I id='zz'/></B></Body><Changes><I id='c'/></Changes>"
                           L"</Grid>"));
  EXPECT_EQ(Xml(grid->Tree->Root),
            L"<Grid><IO Session=\"s1\"/><Cfg A=\"2\" TimeZone=\"60\" B=\"3\" Paging=\"3\" ChildPaging=\"3\"><X/><Y/>"
            L"</Cfg><Body><B CDef=\"R\"><I id=\"1\"/></B></Body><Def><D Name=\"C\" Type=\"Text\"/><D Name=\"R\"/>"
            L"</Def><Extra k=\"v\"><Z/></Extra></Grid>");
  EXPECT_EQ(grid->Session + L" " + grid->Calls, L"s1 CopySession,");
  EXPECT_EQ(Row(L"zz"), nullptr);
  // Paging and the time zone are read again.
  EXPECT_TRUE(grid->ServerPaging && grid->ServerChildPaging);
  EXPECT_EQ(grid->Tree->TimeZone, 3600000);
  grid->AddCfg(L"<Grid><Cfg Paging='0' TimeZone='-99999999'/></Grid>");
  EXPECT_FALSE(grid->ServerPaging);
  EXPECT_EQ(grid->Tree->TimeZone, INT_MIN);
}

TEST_F(UpdateTest, AddCfgFeedsFilterRowsByIdOrTheFirstOne) {
  Create(L"<Grid><Head><Filter id='F1'/><Filter id='F2'/></Head></Grid>");
  TNode* first = Row(L"F1");
  grid->AddCfg(L"<Grid><Filters><Filter id='F2' A='1' AFilter='3'/><Filter B='2'/></Filters></Grid>");
  // An unknown id goes to the first row with it; the id table follows the row.
  grid->AddCfg(L"<Grid><Filters><Filter id='F9' C='4'/></Filters></Grid>");
  EXPECT_EQ(Xml(Row(L"F9")) + Xml(Row(L"F2")),
            L"<Filter id=\"F9\" Kind=\"Filter\" B=\"2\" C=\"4\"/>"
            L"<Filter id=\"F2\" Kind=\"Filter\" A=\"1\" AFilter=\"3\"/>");
  EXPECT_TRUE(Row(L"F9") == first && !Row(L"F1"));
}

TEST_F(UpdateTest, LastIdAndTheNextOne) {
  const std::wstring digits = L"IdChars='0123456789'", big(TIds::MaxIdLength, L'9');
  const struct { std::wstring cfg; std::vector<std::wstring> ids; std::wstring last, next; } cases[] = {
      {L"", {L"5", L"41"}, L"", L""}, {digits, {L"99"}, L"99", L"000"}, {L"IdChars='ab'", {L"bab"}, L"bab", L"bba"},
      {digits, {L"5", L"41", L"7", L"AB1", L"39", std::wstring(300, L'9')}, L"41", L"42"},
      {digits + L" NumberId='1'", {L"99"}, L"99", L"100"}, {L"IdChars='0' NumberId='1'", {L"0"}, L"0", L"00"},
      {digits + L" IdPrefix='R'", {L"41"}, L"41", L"42"},
      // Prefix characters that are no digits keep every id out: no usable id.
      {digits + L" IdPrefix='R'", {L"R41"}, L"", L""},
      // Only the number part is compared, and the postfix is written anew.
      {L"IdChars='0123456789Rx' IdPrefix='R' IdPostfix='x'", {L"R5x", L"R12x", L"R13y", L"R9x"}, L"R13y", L"R14x"},
      // Ids stay within TIds::MaxIdLength, or there is none.
      {digits + L" NumberId='1'", {big}, big, L"1" + std::wstring(TIds::MaxIdLength - 1, L'0')},
      {digits + L" IdPostfix='" + std::wstring(400, L'x') + L"'", {L"1"}, L"",
       L"0" + std::wstring(TIds::MaxIdLength - 1, L'x')},
      {digits + L" IdPrefix='" + std::wstring(400, L'P') + L"'", {L"1"}, L"", L""},
  };
  for (auto& c : cases) {
    WithIds(c.cfg, c.ids);
    EXPECT_EQ(LastId(), c.last) << c.cfg;
    TIds ids;
    TNode* row = grid->Body->FirstChild->AppendChild(grid->Tree->CreateElement(L"I"));
    EXPECT_EQ(grid->SetId(&ids, row, false), c.next) << c.cfg;
    EXPECT_EQ(row->GetId(), c.next);
    EXPECT_EQ(Row(c.next.c_str()), c.next.empty() ? nullptr : row);
  }
  EXPECT_STREQ(grid->SetId(nullptr, nullptr, false), L"");
  // The ids of Header, Toolbar and Cfg do not count.
  Create(L"<Grid><Header id='99999'/><Toolbar id='88888'/><Cfg id='77777' IdChars='0123456789'/>"
         L"<Body><B><I id='12'/></B></Body></Grid>");
  EXPECT_EQ(LastId(), L"12");
}

// A grid asked again and again, while ids and settings change in between,
// answers as a grid made afresh from the same ids and settings.
TEST_F(UpdateTest, LastIdAskedAgainMatchesAFreshGrid) {
  const struct { std::wstring cfg; std::vector<std::wstring> added; } steps[] = {
      {L"IdChars='0123456789'", {}},
      {L"IdChars='0123456789'", {L"7"}},
      {L"IdChars='0123456789'", {L"123", L"5"}},
      // Same length: compared by digits only, whatever the other characters.
      {L"IdChars='0123456789'", {L"99x", L"124"}},
      {L"IdChars='0123456789x'", {}},
      {L"IdChars='0123456789x' IdPrefix='9'", {L"9999"}},
      {L"IdChars='0123456789' IdPrefix='' IdPostfix='4'", {}},
      {L"IdChars='0123456789' IdPostfix=''", {L"00000"}},
  };
  std::vector<std::wstring> ids = {L"5", L"41"};
  WithIds(steps[0].cfg, ids);
  std::unique_ptr<TTestGrid> asked = std::move(grid);
  for (auto& step : steps) {
    asked->AddCfg((L"<Grid><Cfg " + step.cfg + L"/></Grid>").c_str());
    for (const std::wstring& id : step.added) {
      asked->Body->FirstChild->AppendChild(asked->Tree->CreateElement(L"I"))->SetId(id.c_str());
      ids.push_back(id);
    }
    TIds first, second;
    std::wstring answer = asked->GetLastId(&first);
    EXPECT_EQ(asked->GetLastId(&second), answer) << step.cfg;
    WithIds(step.cfg, ids);
    EXPECT_EQ(answer, LastId()) << step.cfg << L" after " << ids.back();
  }
}

TEST_F(UpdateTest, SetIdGivesDescendantsIdsDepthFirst) {
  Create(L"<Grid><Cfg IdChars='0123456789'/><Body><B><I id='41'/><I id='x'><I id='y'><I id='z'/></I>"
         L"<I id='w'/></I></B></Body></Grid>");
  TNode* row = Row(L"x");
  TIds ids;
  EXPECT_STREQ(grid->SetId(&ids, row, true), L"45");
  EXPECT_EQ(Xml(row), L"<I id=\"42\"><I id=\"43\"><I id=\"44\"/></I><I id=\"45\"/></I>");
  EXPECT_TRUE(!Row(L"x") && Row(L"44") == row->FirstChild->FirstChild);
}

TEST_F(UpdateTest, ChangesLogAndSavedDocument) {
  Create(L"<Grid><Cfg a='1'/><Body><B><I id='1' A='x' _0F='8'/></B></Body></Grid>");
  TNode* log = grid->AllocChanges();
  EXPECT_EQ(grid->AllocChanges(), log);  // made once; the destructor clears it
  EXPECT_EQ(Xml(log->Tree->Root), L"<Grid><Changes/></Grid>");

  // The saved document holds the whole tree and loads again.
  int length = -1;
  std::wstring saved = Take(grid->SaveToData(&length));
  EXPECT_EQ(length, (int)saved.size());
  EXPECT_EQ(saved,
            L"<?xml version=\"1.0\"?><Grid _0F=\"16\"><IO _0F=\"16\"/><Cfg a=\"1\" _0F=\"16\"/><Body _0F=\"16\">"
            L"<B CDef=\"R\" _0F=\"16\"><I id=\"1\" A=\"x\" _0F=\"25\"/></B></Body><Def _0F=\"16\">"
            L"<D Name=\"C\" Type=\"Text\" _0F=\"16\"/><D Name=\"R\" _0F=\"16\"/></Def></Grid>");
  Create(saved);
  EXPECT_EQ(Take(grid->SaveToData(nullptr)), saved);
  grid.reset(new TTestGrid());
  EXPECT_EQ(grid->SaveToData(&length), nullptr);
}

}  // namespace
