#include "grid/Group.h"

#include <stdlib.h>
#include <string.h>

namespace {

// MaxGroupLength below 1 stands for this.
const int NoLimit = 10000000;
// Characters of the text that decides a row's group.
const int GroupTextMax = 1024;
// A level number that no candidate position reaches.
const long long NoNumber = 1000000;
const wchar_t ChildrenPrefix[] = L"Children,";

bool IsNumberType(const wchar_t* type) {
  return !wcscmp(type, L"Int") || !wcscmp(type, L"Float") || !wcscmp(type, L"Date");
}

std::wstring Text(const wchar_t* text) { return text ? text : L""; }

// Items of a comma list without the empty ones.
std::vector<std::wstring> CommaItems(const std::wstring& list) {
  std::vector<std::wstring> items;
  size_t start = 0;
  while (start <= list.size()) {
    size_t end = list.find(L',', start);
    if (end == std::wstring::npos) end = list.size();
    if (end > start) items.push_back(list.substr(start, end - start));
    start = end + 1;
  }
  return items;
}

// Items of a list whose first character is its separator.
int CountItems(const wchar_t* list) {
  if (!list || !*list) return 0;
  int count = 0;
  for (const wchar_t* p = list; *p; p++) count += *p == *list;
  return count;
}

// A copy that clears the target where the source (or its default) has nothing.
void CopyCell(TNode* to, int toIndex, TNode* from, int fromIndex) {
  if (toIndex == -1) return;
  to->Copy(toIndex, from, fromIndex, 2, true);
}

// The text with "Children," in front, cut to the record's room.
void SetEditText(TEditCol& edit, const wchar_t* name) {
  wcscpy(edit.Text, ChildrenPrefix);
  const size_t room = TEditCol::TextLength - 1 - (sizeof ChildrenPrefix / sizeof(wchar_t) - 1);
  wcsncat(edit.Text, name, room);
}

// Moves all children of row in front of it, in order.
void MoveChildrenBefore(TNode* row) {
  TNode* parent = row->Parent;
  while (TNode* child = row->FirstChild) parent->InsertBefore(child, row);
}

// Moves all children of row behind the last child of parent, in order.
void MoveChildrenToEnd(TNode* row, TNode* parent) {
  TNode* first = row->FirstChild;
  if (!first) return;
  for (TNode* child = first; child; child = child->Next) child->Parent = parent;
  if (parent->LastChild) parent->LastChild->Next = first;
  else parent->FirstChild = first;
  first->Prev = parent->LastChild;
  parent->LastChild = row->LastChild;
  row->FirstChild = row->LastChild = nullptr;
}

// Frees a generated row. Its entry in the id table is emptied first: the
// table only unlinks a removed entry, and compiled formulas may still hold
// the entry's number.
void DeleteGroupRow(TNode* row) {
  TNodetable& ids = row->Tree->Ids;
  int entry = ids.Get(row->GetId(), 0);
  if (entry >= 0 && ids.GetNode(entry) == row) ids.SetNode(entry, nullptr);
  TNode::Delete(row);
}

// A row is a group row when its default is a group definition. Rows share a
// few defaults, so the answer for the last default is kept.
class TGroupRowTest {
public:
  explicit TGroupRowTest(int groupIndex) : Index(groupIndex), Last(nullptr), Answer(false) {}
  bool operator()(const TNode* row) {
    if (row->Base != Last) {
      Last = row->Base;
      Answer = Last && Last->GetInt(Index) != 0;
    }
    return Answer;
  }

private:
  int Index;
  const TData* Last;
  bool Answer;
};

}  // namespace

// What one level groups by: looked up once, shared by every parent.
struct TGridGroup::TLevel {
  int Col;
  TNode* Def;
  TEditCol* EditCols;
  int EditCount;
  std::wstring ColName, DefName;
  // Sort description of the column, as the sort level builds it.
  int Types[1];
  int* White[1];
  unsigned short* Codes[1];
  TSortIndexes Indexes;
  int GroupEmpty, GroupSole, GroupSingle, MaxChars, GroupTree;
  bool HasParentCDef, HasParentAcceptDef;
  std::wstring ParentCDef, ParentAcceptDef;
  // Attribute indexes.
  int CanGroup, CDef, AcceptDef, Kind, CanFilter, GroupColName, Mark, Main, MainVisible;
  int MainCell[4], ColCell[4];  // Type, Format, Enum, IntFormat of the main and the group column
  int MainRefresh, ColRefresh, MainRelated, ColRelated, MainGroupOrig;
  std::wstring MainName;
  wchar_t RowText[GroupTextMax + 1];
};

// One parent's walk; the stack of these replaces recursion, so that a deep
// tree costs heap, not stack.
struct TGridGroup::TWalk {
  TNode* Parent;
  TNode* Next;
  TNode* Open;      // the group row that takes equal rows now
  int Begun;        // groups begun with an unfiltered row
  int Unfiltered;   // unfiltered rows of the open group
  int All;          // all rows of the open group
  bool Grouped;     // a group row was made under this parent
  bool HasCDef, HasAcceptDef;
  std::wstring CDef, AcceptDef, Last;
};

TGridGroup::TGridGroup()
    : NextGroupId(0), MaxGroupLength(NoLimit), GroupIndex(-1), GroupCount(0), GroupCols(), DetachedRows(nullptr) {}

TGridGroup::~TGridGroup() { TNode::Delete(DetachedRows); }

void TGridGroup::InitGroup() {
  if (!Tree) return;
  GroupIndex = Tree->GetSpecIndex(L"Group", 3);
  if (Cfg) Cfg->Copy(Tree->GetIndex(L"#MainColGroup", 1), Cfg, Tree->GetIndex(L"MainCol", 1), 2, false);
  if (TNode* page = Body ? Body->FirstChild : nullptr) {
    page->Copy(Tree->GetIndex(L"#CDefGroup", 1), page, Tree->GetIndex(L"CDef", 1), 2, false);
    page->Copy(Tree->GetIndex(L"#AcceptDefGroup", 1), page, Tree->GetIndex(L"AcceptDef", 1), 2, false);
  }
  // The last definition never selects itself by a level number.
  if (TNode* last = Defs.GetNode(L"GroupLast", 0)) last->SetString(L"GroupCol", L"-1");
}

bool TGridGroup::UpdateGroup() {
  if (!Tree || !Cfg) return false;
  bool changed = false;
  int count = 0;
  // Split in a copy of its own length, so a long Group text cannot overrun;
  // empty items vanish, as in Sort.
  std::wstring work = Cfg->GetString(L"Group");
  wchar_t* state = nullptr;
  for (wchar_t* name = wcstok(&work[0], L",", &state); name && count < MaxGroupLevels;
       name = wcstok(nullptr, L",", &state)) {
    if (!Cols.GetNode(name, 0)) break;
    int index = Tree->GetIndex(name, 1);
    if (index != GroupCols[count]) {
      changed = true;
      GroupCols[count] = index;
    }
    count++;
  }
  if (GroupCount != count) {
    changed = true;
    GroupCount = count;
  }
  if (changed) {
    MaxGroupLength = Cfg->GetInt(L"MaxGroupLength");
    if (MaxGroupLength < 1) MaxGroupLength = NoLimit;
  }
  return changed;
}

// ---- Group ----

void TGridGroup::Group() {
  if (!Tree || !Cfg || !Body) return;
  if (GroupIndex == -1) GroupIndex = Tree->GetSpecIndex(L"Group", 3);
  Ungroup();
  ReclaimDetached();
  if (GroupCount <= 0 || !Body->FirstChild) return;
  std::vector<TNode*> candidates;
  CollectCandidates(candidates);
  if (!ChooseMainCol(candidates)) return;
  NextGroupId = 0;
  std::vector<TEditCol> editCols(MaxEditCols);
  for (int level = 0; level < GroupCount && level < MaxGroupLevels; level++) {
    std::wstring name = Text(Tree->GetName(GroupCols[level], 0));
    TNode* def = ChooseDef(candidates, name.c_str());
    if (!def) continue;
    int count = BuildEditCols(def, GroupCols[level], name.c_str(), editCols.data());
    GroupBy(Body->FirstChild, GroupCols[level], def, editCols.data(), count);
  }
}

// Definitions whose GroupCols matches the Group text come first, then the
// general ones without GroupCols, the one named Group last of all.
void TGridGroup::CollectCandidates(std::vector<TNode*>& candidates) {
  std::wstring group = Cfg->GetString(L"Group");
  int groupCols = Tree->GetIndex(L"GroupCols", 0);
  std::vector<TNode*> general, fallback;
  for (int entry = 0; entry < Defs.GetCount(); entry++) {
    TNode* def = Defs.GetNode(entry);
    if (!def || !def->GetInt(GroupIndex)) continue;
    std::wstring patterns = def->GetString(groupCols);
    if (patterns.empty()) {
      // An empty but present GroupCols excludes the definition.
      if (!def->Has(groupCols)) (wcscmp(def->GetString(INameIndex), L"Group") ? general : fallback).push_back(def);
      continue;
    }
    for (int i = 0;; i++) {
      std::wstring pattern = def->GetArrayItemFirst(patterns.c_str(), i);
      if (pattern.empty()) break;
      if (TDataFormat::WCmp(pattern.c_str(), group.c_str())) {
        candidates.push_back(def);
        break;
      }
    }
  }
  candidates.insert(candidates.end(), general.begin(), general.end());
  candidates.insert(candidates.end(), fallback.begin(), fallback.end());
}

// False when no column at all can be the main one: then nothing is grouped.
bool TGridGroup::ChooseMainCol(const std::vector<TNode*>& candidates) {
  int mainCol = Tree->GetIndex(L"MainCol", 1);
  std::wstring last;
  for (TNode* candidate : candidates) {
    last = candidate->GetString(L"GroupMain");
    if (!last.empty() && Cols.GetNode(last.c_str(), 0)) {
      Cfg->SetString(mainCol, last.c_str());
      return true;
    }
  }
  // A GroupMain that names no column leaves MainCol as the layout gave it.
  if (!last.empty() || *Cfg->GetString(mainCol)) return true;
  std::wstring main = Cfg->GetString(L"GroupMain");
  if (main.empty() && !FirstColumnName(main)) return false;
  Cfg->SetString(mainCol, main.c_str());
  return true;
}

// The first left column that is not the panel, else the first column.
bool TGridGroup::FirstColumnName(std::wstring& name) {
  TNode* root = Tree->Root;
  if (!root) return false;
  if (TNode* left = root->GetChildByName(L"LeftCols", false))
    for (TNode* col = left->FirstChild; col; col = col->Next)
      if (wcscmp(col->GetString(L"Name"), L"Panel")) {
        name = col->GetString(L"Name");
        return true;
      }
  TNode* cols = root->GetChildByName(L"Cols", false);
  if (!cols || !cols->FirstChild) return false;
  name = cols->FirstChild->GetString(L"Name");
  return true;
}

// A GroupCol item selects its candidate by name, or by a number that is
// compared with the candidate's position in the list (directly, or after
// adding the group count), not with the level. So it is meant to work.
TNode* TGridGroup::ChooseDef(const std::vector<TNode*>& candidates, const wchar_t* colName) {
  int groupCol = Tree->GetIndex(L"GroupCol", 0);
  TNode* general = nullptr;
  for (size_t position = 0; position < candidates.size(); position++) {
    TNode* candidate = candidates[position];
    std::wstring selectors = candidate->GetString(groupCol);
    if (selectors.empty()) {
      if (!general) general = candidate;
      continue;
    }
    for (int i = 0;; i++) {
      std::wstring item = candidate->GetArrayItemComma(selectors.c_str(), i);
      if (item.empty()) break;
      long long n = NoNumber;
      if (item[0] >= L'0' && item[0] <= L'9') {
        n = wcstol(item.c_str(), nullptr, 10);
        if (n > NoNumber) n = NoNumber;  // keeps the sum below in range
      }
      long long p = (long long)position;
      if (p == n || item == colName || GroupCount + n == p) return candidate;
    }
  }
  if (TNode* column = Cols.GetNode(colName, 0)) {
    const wchar_t* groupDef = column->GetString(L"GroupDef");
    if (*groupDef)
      if (TNode* def = Defs.GetNode(std::wstring(groupDef).c_str(), 0)) return def;
  }
  return general ? general : Defs.GetNode(L"Group", 0);
}

// The words Main and MainCol stand for the main column: its CanEdit and
// CopyTo are set, with the level's column copied into it. Empty items name
// no column and are skipped; more than MaxEditCols items are left out.
int TGridGroup::BuildEditCols(TNode* def, int col, const wchar_t* colName, TEditCol* editCols) {
  std::wstring mainName = Cfg->GetString(L"MainCol");
  int count = 0;
  for (const std::wstring& item : CommaItems(def->GetString(L"EditCols"))) {
    if (count == MaxEditCols) break;
    TEditCol& edit = editCols[count++];
    bool main = item == L"Main" || item == L"MainCol";
    SetEditText(edit, main ? colName : item.c_str());
    edit.Col = main ? col : Tree->GetIndex(item.c_str(), 1);
    const wchar_t* target = main ? mainName.c_str() : item.c_str();
    edit.CanEdit = Tree->GetIndex(target, L"CanEdit", 1);
    edit.CopyTo = Tree->GetIndex(target, L"CopyTo", 1);
  }
  return count;
}

// A detached row is freed once its id names another row: nothing can reach
// it any more. Its id is dropped first, so that freeing it leaves the id
// table alone.
void TGridGroup::ReclaimDetached() {
  if (!DetachedRows) return;
  for (TNode* row = DetachedRows->FirstChild; row;) {
    TNode* next = row->Next;
    if (Tree->GetElem(row->GetId()) != row) {
      row->SetNull(IIdIndex);
      TNode::Delete(row);
    }
    row = next;
  }
}

// ---- GroupBy ----

void TGridGroup::GroupBy(TNode* parent, int col, TNode* def, TEditCol* editCols, int count) {
  if (!parent || !def || !Tree || !Cfg) return;
  if (GroupIndex == -1) GroupIndex = Tree->GetSpecIndex(L"Group", 3);
  TLevel* level = new TLevel();
  if (PrepareLevel(*level, col, def, editCols, count)) {
    // Children that stay in place are grouped among themselves before the
    // walk goes on, as a nested call would do it.
    std::vector<TWalk> walks(1);
    size_t depth = 1;
    TGroupRowTest isGroupRow(GroupIndex);
    BeginWalk(*level, walks[0], parent);
    while (depth) {
      TWalk& walk = walks[depth - 1];
      TNode* row = walk.Next;
      if (!row) {
        EndWalk(*level, walk);
        depth--;
        continue;
      }
      walk.Next = row->Next;
      if (!isGroupRow(row) && row->GetInt(level->CanGroup)) {
        PlaceRow(*level, walk, row);
        continue;
      }
      if (depth == walks.size()) walks.emplace_back();
      BeginWalk(*level, walks[depth++], row);
    }
  }
  delete level;
}

bool TGridGroup::PrepareLevel(TLevel& level, int col, TNode* def, TEditCol* editCols, int count) {
  const wchar_t* name = Tree->GetName(col, 0);
  TNode* column = name ? Cols.GetNode(name, 0) : nullptr;
  if (!column) return false;
  level.Col = col;
  level.Def = def;
  level.EditCols = editCols;
  level.EditCount = editCols ? (count < 0 ? 0 : count > MaxEditCols ? MaxEditCols : count) : 0;
  level.ColName = name;
  level.DefName = def->GetString(L"Name");

  int flags = 0;
  bool text = column->Has(L"NumberSort") ? column->GetInt(L"NumberSort") == 0 : !IsNumberType(column->GetString(L"Type"));
  if (text) flags |= SortString | SortColString;
  if (!column->GetInt(L"CaseSensitive")) flags |= SortNoCase;
  if (column->GetInt(L"LocaleCompare")) flags |= SortLocale;
  level.White[0] = GetWhiteChars(column->GetString(L"WhiteChars"));
  if (level.White[0]) flags |= SortWhite;
  level.Codes[0] = GetCharCodes(column->GetString(L"CharCodes"));
  level.Types[0] = flags;
  TSortIndexes& indexes = level.Indexes;
  indexes.CanSort = Tree->GetIndex(L"CanSort", 0);
  indexes.SortValue[0] = Tree->GetIndex(name, L"SortValue", 0);
  indexes.SortDescValue[0] = Tree->GetIndex(name, L"SortDescValue", 0);
  indexes.NumberSort[0] = Tree->GetIndex(name, L"NumberSort", 0);
  for (int i = 1; i < TSortIndexes::MaxCols; i++)
    indexes.SortValue[i] = indexes.SortDescValue[i] = indexes.NumberSort[i] = -1;

  level.GroupEmpty = column->GetInt(L"GroupEmpty");
  level.GroupSole = column->GetInt(L"GroupSole");
  level.GroupSingle = column->GetInt(L"GroupSingle");
  level.MaxChars = def->GetInt(name, L"MaxChars");
  level.GroupTree = Cfg->GetInt(L"GroupTree");
  level.HasParentCDef = def->Has(L"ParentCDef");
  level.HasParentAcceptDef = def->Has(L"ParentAcceptDef");
  level.ParentCDef = def->GetString(L"ParentCDef");
  level.ParentAcceptDef = def->GetString(L"ParentAcceptDef");

  level.MainName = Cfg->GetString(L"MainCol");
  const wchar_t* main = level.MainName.c_str();
  level.CanGroup = Tree->GetIndex(L"CanGroup", 0);
  level.CDef = Tree->GetIndex(L"CDef", 1);
  level.AcceptDef = Tree->GetIndex(L"AcceptDef", 1);
  level.Kind = Tree->GetIndex(L"Kind", 1);
  level.CanFilter = Tree->GetIndex(L"CanFilter", 0);
  level.GroupColName = Tree->GetIndex(L"GroupCol", 1);
  level.Mark = level.GroupTree ? Tree->GetIndex(name, level.GroupTree == 2 ? L"Button" : L"Icon", 1) : -1;
  level.Main = Tree->GetIndex(main, 1);
  level.MainVisible = Tree->GetIndex(main, L"Visible", 1);
  static const wchar_t* const cells[4] = {L"Type", L"Format", L"Enum", L"IntFormat"};
  for (int i = 0; i < 4; i++) {
    level.MainCell[i] = Tree->GetIndex(main, cells[i], 1);
    level.ColCell[i] = Tree->GetIndex(name, cells[i], 0);
  }
  level.MainRefresh = Tree->GetIndex(main, L"Refresh", 1);
  level.ColRefresh = Tree->GetIndex(name, L"Refresh", 0);
  level.MainRelated = Tree->GetIndex(main, L"Related", 1);
  level.ColRelated = Tree->GetIndex(name, L"Related", 0);
  level.MainGroupOrig = Tree->GetIndex(main, L"GroupOrig", 1);
  return true;
}

// Sorts the parent's children by the column, so that equal rows meet, and
// notes the parent's defaults as they stand before its first group row.
void TGridGroup::BeginWalk(TLevel& level, TWalk& walk, TNode* parent) {
  static_cast<TNodeSort*>(parent)->Sort(&level.Col, level.Types, level.White, level.Codes, 1,
                                        const_cast<unsigned long long*>(LocaleTable), &level.Indexes, false);
  walk.Parent = parent;
  walk.Next = parent->FirstChild;
  walk.Open = nullptr;
  walk.Begun = walk.Unfiltered = walk.All = 0;
  walk.Grouped = false;
  walk.HasCDef = parent->Has(level.CDef);
  walk.HasAcceptDef = parent->Has(level.AcceptDef);
  walk.CDef = parent->GetString(level.CDef);
  walk.AcceptDef = parent->GetString(level.AcceptDef);
  walk.Last.clear();
}

void TGridGroup::PlaceRow(TLevel& level, TWalk& walk, TNode* row) {
  const wchar_t* text = RowText(level, row);
  // Empty texts, and with GroupEmpty 0 also "0", stay in place; the open
  // group stays open across them.
  if ((level.GroupEmpty < 2 && !*text) || (level.GroupEmpty < 1 && !wcscmp(text, L"0"))) return;
  int max = MaxGroupLength < 1 ? NoLimit : MaxGroupLength;
  if (walk.Unfiltered == max) {
    walk.Unfiltered = 0;
    walk.Open = nullptr;
  }
  bool filtered = (row->Flags & FFiltered) != 0;
  if (walk.Open && walk.Last == text) {
    if (!filtered) walk.Unfiltered++;
    walk.All++;
    walk.Open->AppendChild(row);
    return;
  }
  if (!level.GroupSole && walk.Open && walk.All == 1) DissolveSole(walk);
  HideIfAllFiltered(level, walk);
  if (!walk.Grouped) {
    walk.Grouped = true;
    if (level.HasParentCDef) walk.Parent->SetString(level.CDef, level.ParentCDef.c_str());
    if (level.HasParentAcceptDef) walk.Parent->SetString(level.AcceptDef, level.ParentAcceptDef.c_str());
  }
  walk.Unfiltered = walk.All = 0;
  if (!filtered) {
    walk.Begun++;
    walk.Unfiltered++;
  }
  TNode* group = MakeGroupRow(level, walk, row);
  walk.Parent->InsertBefore(group, row);
  walk.Last = text;
  walk.All++;
  group->AppendChild(row);
  walk.Open = group;
}

// The row's SortValue, else its cell, as a sort text; only the first
// MaxChars characters of the definition count.
const wchar_t* TGridGroup::RowText(TLevel& level, TNode* row) {
  const wchar_t* value = row->GetString(level.Indexes.SortValue[0]);
  if (!*value) value = row->GetString(level.Col);
  int max = GroupTextMax;
  // Without a collation table the text can only shrink: copying no more
  // than its length saves clearing the rest of the buffer for every row.
  if (!(level.Types[0] & SortLocale) || !LocaleTable) {
    size_t length = wcslen(value);
    if (length < (size_t)max) max = (int)length;
  }
  CopySortString(level.RowText, value, max, level.Types[0], LocaleTable, level.White[0], level.Codes[0]);
  if (level.MaxChars > 0 && level.MaxChars < GroupTextMax) level.RowText[level.MaxChars] = 0;
  return level.RowText;
}

void TGridGroup::HideIfAllFiltered(const TLevel& level, TWalk& walk) {
  if (walk.Open && !walk.Unfiltered && walk.Open->GetInt(level.CanFilter)) walk.Open->Flags |= FFiltered;
}

// A group of one row gives the row back to the parent when the next group
// begins.
void TGridGroup::DissolveSole(TWalk& walk) {
  MoveChildrenBefore(walk.Open);
  DeleteGroupRow(walk.Open);
  walk.Open = nullptr;
}

// The only group under a parent gives its rows back. The row itself is kept
// aside, so that its id still finds it.
void TGridGroup::DetachSingle(TWalk& walk) {
  MoveChildrenBefore(walk.Open);
  if (!DetachedRows) DetachedRows = Tree->CreateElement(nullptr);
  DetachedRows->AppendChild(walk.Open);
  walk.Open = nullptr;
}

void TGridGroup::EndWalk(const TLevel& level, TWalk& walk) {
  HideIfAllFiltered(level, walk);
  if (!level.GroupSingle && walk.Begun == 1 && walk.Open) DetachSingle(walk);
}

TNode* TGridGroup::MakeGroupRow(const TLevel& level, const TWalk& walk, TNode* first) {
  TNode* row = Tree->CreateElement(L"I");
  row->Base = level.Def;
  row->SetString(IDefIndex, level.DefName.c_str());
  // Absent on the parent means absent here.
  if (walk.HasCDef) row->SetString(level.CDef, walk.CDef.c_str());
  if (walk.HasAcceptDef) row->SetString(level.AcceptDef, walk.AcceptDef.c_str());
  CopyCell(row, level.Kind, level.Def, level.Kind);
  CopyCell(row, level.Main, first, level.Col);
  for (int i = 0; i < 4; i++) CopyCell(row, level.MainCell[i], first, level.ColCell[i]);
  row->SetString(level.GroupColName, level.ColName.c_str());
  if (level.GroupTree) {
    row->SetString(level.Mark, L"Expand");
    CopyCell(row, level.Col, first, level.Col);
    MarkAncestors(row, walk.Parent);
  }
  wchar_t id[16];
  swprintf(id, sizeof id / sizeof *id, L"_G%d", NextGroupId);
  NextGroupId = NextGroupId < 0x7FFFFFFF ? NextGroupId + 1 : NextGroupId;
  row->SetId(id);
  CopyCell(row, level.MainRefresh, first, level.ColRefresh);
  if (first->Has(level.ColRelated)) {
    CopyCell(row, level.MainRelated, first, level.ColRelated);
    row->SetString(level.MainGroupOrig, level.ColName.c_str());
    CopyRelated(level, row, first);
  }
  for (int i = 0; i < level.EditCount; i++) {
    const TEditCol& edit = level.EditCols[i];
    wchar_t text[TEditCol::TextLength];
    wcsncpy(text, edit.Text, TEditCol::TextLength - 1);
    text[TEditCol::TextLength - 1] = 0;
    row->SetString(edit.CopyTo, text);
    row->SetByte(edit.CanEdit, 1);
    CopyCell(row, edit.Col, first, edit.Col);
  }
  row->SetByte(level.MainVisible, 1);
  row->Flags |= FGrouped;
  if (ServerChildPaging) row->Flags &= ~FState;
  return row;
}

// In a tree of groups the columns grouped by the rows above are hidden. Only
// an ancestor's own GroupCol counts: a definition's GroupCol is a selector,
// not a column.
void TGridGroup::MarkAncestors(TNode* row, TNode* parent) {
  int groupCol = Tree->GetIndex(L"GroupCol", 0);
  for (TNode* above = parent; above; above = above->Parent) {
    std::wstring name = above->GetStringBase(groupCol);
    if (!name.empty()) row->SetInt(Tree->GetIndex(name.c_str(), L"Visible", 1), -1);
  }
}

// The enum lists that depend on the related columns come along, so that the
// group row shows its value as its first row does.
void TGridGroup::CopyRelated(const TLevel& level, TNode* row, TNode* first) {
  std::wstring related = first->GetString(level.ColRelated);
  std::wstring r1 = first->GetArrayItemComma(related.c_str(), 0);
  std::wstring r2 = first->GetArrayItemComma(related.c_str(), 1);
  if (r1.empty()) return;
  CopyCell(row, Tree->GetIndex(r1.c_str(), 1), first, Tree->GetIndex(r1.c_str(), 0));
  int count = CountItems(first->GetString(Tree->GetIndex(r1.c_str(), L"Enum", 0)));
  const std::wstring& col = level.ColName;
  const std::wstring& main = level.MainName;
  for (int i = 0; i < count; i++) {
    std::wstring enumI = L"Enum" + std::to_wstring(i);
    if (r2.empty()) {
      int from = Tree->GetIndex((col + enumI).c_str(), 0);
      if (first->Has(from)) CopyCell(row, Tree->GetIndex((main + enumI).c_str(), 1), first, from);
      continue;
    }
    CopyCell(row, Tree->GetIndex(r2.c_str(), 1), first, Tree->GetIndex(r2.c_str(), 0));
    int items = CountItems(first->GetString(Tree->GetIndex((r2 + enumI).c_str(), 0)));
    for (int j = 0; j < items; j++) {
      std::wstring suffix = enumI + L"_" + std::to_wstring(j);
      int from = Tree->GetIndex((col + suffix).c_str(), 0);
      if (first->Has(from)) CopyCell(row, Tree->GetIndex((main + suffix).c_str(), 1), first, from);
    }
  }
}

// ---- Ungroup ----

void TGridGroup::Ungroup() {
  if (!Tree || !Cfg || !Body) return;
  Cfg->Copy(Tree->GetIndex(L"MainCol", 1), Cfg, Tree->GetIndex(L"#MainColGroup", 1), 2, false);
  TNode* page = Body->FirstChild;
  if (!page) return;
  page->Copy(Tree->GetIndex(L"CDef", 1), page, Tree->GetIndex(L"#CDefGroup", 1), 2, false);
  page->Copy(Tree->GetIndex(L"AcceptDef", 1), page, Tree->GetIndex(L"#AcceptDefGroup", 1), 2, false);
  Ungroup(page);
}

// A group row's children go to the end of the list, where the same walk
// meets them again, so nested group rows go too. Below any other child the
// walk looks at its children's children: group rows standing directly under
// a row that stays are kept, as they always were. The parents still to walk
// are kept in a list instead of the stack.
void TGridGroup::Ungroup(TNode* parent) {
  if (!parent) return;
  if (GroupIndex == -1 && Tree) GroupIndex = Tree->GetSpecIndex(L"Group", 3);
  TGroupRowTest isGroupRow(GroupIndex);
  std::vector<TNode*> pending(1, parent);
  while (!pending.empty()) {
    TNode* current = pending.back();
    pending.pop_back();
    for (TNode* child = current->FirstChild; child;) {
      if (!isGroupRow(child)) {
        for (TNode* grandchild = child->FirstChild; grandchild; grandchild = grandchild->Next)
          pending.push_back(grandchild);
        child = child->Next;
        continue;
      }
      MoveChildrenToEnd(child, current);
      TNode* next = child->Next;
      DeleteGroupRow(child);
      child = next;
    }
  }
}

// A group lasts only as long as requests repeat it, so both the client's
// setting and the columns derived from it go before each request is merged.
void TGridGroup::ClearGroup() {
  if (!Cfg) return;
  static const wchar_t* const names[] = {L"GroupCols", L"Group"};
  for (const wchar_t* name : names) {
    int index = Tree->GetIndex(name, 0);
    if (index != -1) Cfg->SetNull(index);
  }
}
