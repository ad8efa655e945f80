#include "grid/Update.h"
#include <climits>
#include <cstring>
#include <cwchar>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>
#include "tree/Data.h"

namespace {

// Attributes that tell where an added or moved row goes; they never reach it.
const wchar_t* const PlaceNames[] = {L"Next", L"Prev", L"Parent", L"Added", L"Moved"};
// Attributes of a change that name other rows by id.
const wchar_t* const ReferenceNames[] = {L"Parent", L"Next", L"Prev", L"Copy"};

bool Within(const TNode* node, const TNode* ancestor) {
  for (; node; node = node->Parent)
    if (node == ancestor) return true;
  return false;
}

int Depth(const TNode* node) {
  int depth = 0;
  for (node = node->Parent; node; node = node->Parent) depth++;
  return depth;
}

// Levels below the node: 0 for a leaf. Bounded by the reader's depth limit.
int Height(const TNode* node) {
  int height = 0;
  for (const TNode* child = node->FirstChild; child; child = child->Next) {
    int below = Height(child) + 1;
    if (below > height) height = below;
  }
  return height;
}

// Whether the subtree of row, put under parent, stays within the depth that
// every walk of the tree relies on.
bool Fits(const TNode* parent, const TNode* row) {
  return Depth(parent) + 1 + Height(row) <= TNodeXml::MaxDepth;
}

std::vector<std::wstring> SplitComma(const std::wstring& text) {
  std::vector<std::wstring> items;
  size_t start = 0;
  for (;;) {
    size_t comma = text.find(L',', start);
    items.push_back(text.substr(start, comma == std::wstring::npos ? std::wstring::npos : comma - start));
    if (comma == std::wstring::npos) return items;
    start = comma + 1;
  }
}

}  // namespace

TGridUpdate::TGridUpdate() : Changes(nullptr) {}
TGridUpdate::~TGridUpdate() { ClearChanges(); }

// ---- request merge ----

bool TGridUpdate::AddCfg(const wchar_t* xml) {
  if (!xml || !*xml) return true;
  std::unique_ptr<TTree> request(new TTree());
  if (!request->SetXml(xml)) return false;
  AddCfg(request.get());
  return true;
}

void TGridUpdate::AddCfg(TTree* tree) {
  if (!tree || tree == Tree || !tree->Root || !Tree->Root) return;
  for (TNode* section = tree->Root->FirstChild; section; section = section->Next) {
    std::wstring name = section->GetName();
    if (name == L"Body" || name == L"Changes") continue;
    if (name == L"Filters")
      AddFilters(section);
    else
      AddSection(section);
  }
  if (Cfg) {
    ReadPaging();
    ReadTimeZone();
  }
  CopySession();
}

// A filter of the request goes to the row with its id, else to the first
// filter row.
void TGridUpdate::AddFilters(TNode* filters) {
  for (TNode* filter = filters->FirstChild; filter; filter = filter->Next) {
    TNode* row = Tree->GetElem(filter->GetId());
    if (!row && FilterRows.Count) row = FilterRows.Items[0];
    if (row) MergeOver(row, filter, false);
  }
}

// Children come from another tree, so adding them adds deep copies.
void TGridUpdate::AddSection(TNode* section) {
  std::wstring name = section->GetName();
  TNode* own = Tree->Root->GetChildByName(name.c_str(), false);
  if (!own) {
    Tree->Root->AppendChild(section);
    return;
  }
  MergeOver(own, section, false);
  for (TNode* child = section->FirstChild; child; child = child->Next) own->AppendChild(child);
}

// Cfg gives minutes; the tree keeps milliseconds, within what an int holds.
void TGridUpdate::ReadTimeZone() {
  long long zone = (long long)Cfg->GetInt(L"TimeZone") * 60000;
  if (zone > INT_MAX) zone = INT_MAX;
  if (zone < INT_MIN) zone = INT_MIN;
  Tree->TimeZone = (int)zone;
}

int TGridUpdate::UpdateGrid(const wchar_t* xml) { return AddCfg(xml) ? 0 : -3; }

// ---- changes ----

int TGridUpdate::Save(const wchar_t* xml, int flags) {
  if (!xml || !*xml) return 0;
  std::unique_ptr<TTree> document(new TTree());
  if (!document->SetXml(xml) || !document->Root) return -3;
  TNode* changes = document->Root->GetChildByName(L"Changes", false);
  if (!changes || !Body || !Cfg) return 0;
  TSaveRun run;
  run.FullRecalc = changes->GetChildCount() > MaxRowRecalcs;
  ReplaceCollisions(changes, run.Ids, (flags & 2) != 0);
  if (flags & 1) {
    // The log thus holds the ids as replaced.
    TNode* log = AllocChanges();
    for (TNode* change = changes->FirstChild; change && log; change = change->Next) log->AppendChild(change);
  }
  run.RootCount = Cfg->GetInt(L"RootCount");
  for (TNode* change = changes->FirstChild; change; change = change->Next) ApplyChange(run, change);
  Cfg->SetInt(L"RootCount", run.RootCount);
  if (run.StructureChanged) Body->SetInt(L"UpdateState", 1);
  // Copied children kept their sources' ids until now.
  for (TNode* row : run.Copied)
    for (TNode* child = row ? row->FirstChild : nullptr; child; child = child->Next) SetId(&run.Ids, child, true);
  if (run.FullRecalc) CalcChildren(Body);
  return run.WithoutId;
}

// An added row whose id is taken gets a new one, and every change that named
// the old id follows it.
void TGridUpdate::ReplaceCollisions(TNode* changes, TIds& ids, bool log) {
  // The references by id text, gathered once at the first collision, so that
  // many collisions cost one pass over the document and not one each.
  std::unordered_map<std::wstring, std::vector<std::pair<TNode*, int>>> references;
  bool gathered = false;
  for (TNode* change = changes->FirstChild; change; change = change->Next) {
    if (!change->GetInt(L"Added")) continue;
    std::wstring old = change->GetId();
    if (old.empty() || !Tree->GetElem(old.c_str())) continue;
    std::wstring fresh = SetId(&ids, change, false);
    if (log) LogReplacement(old, fresh);
    if (!gathered) {
      gathered = true;
      for (TNode* other = changes->FirstChild; other; other = other->Next)
        for (const wchar_t* name : ReferenceNames) {
          int index = other->GetIndex(name, 0);
          if (index != -1 && other->HasBase(index)) references[other->GetString(index)].emplace_back(other, index);
        }
    }
    auto found = references.find(old);
    if (found == references.end()) continue;
    std::vector<std::pair<TNode*, int>> list = std::move(found->second);
    references.erase(found);
    for (auto& reference : list) reference.first->SetString(reference.second, fresh.c_str());
    auto& now = references[fresh];
    now.insert(now.end(), list.begin(), list.end());
  }
}

void TGridUpdate::LogReplacement(const std::wstring& old, const std::wstring& fresh) {
  TNode* log = AllocChanges();
  if (!log) return;
  TNode* entry = log->Tree->CreateElement(L"I");
  entry->SetString(IIdIndex, old.c_str());
  entry->SetString(L"NewId", fresh.c_str());
  entry->SetInt(L"Changed", 1);
  log->PrependNode(entry);
}

// Only rows of the body are ever deleted or moved. Cfg, Body, IO, the pages,
// Header, Toolbar, defaults, columns, fixed, filter and solid rows and the
// other sections are what the grid's fields and tables point at: a change
// that would delete or move one of them is skipped like a row not found, so
// no pointer is left to freed or misplaced memory. Value changes to them
// apply as to any row.
void TGridUpdate::ApplyChange(TSaveRun& run, TNode* change) {
  std::wstring id = change->GetId();
  if (id.empty()) {
    run.WithoutId++;
    return;
  }
  bool added = change->GetInt(L"Added") != 0;
  TNode* row;
  if (added) {
    row = Tree->CreateElement(L"I");
    row->SetId(id.c_str());
    row->Copy(IDefIndex, change, IDefIndex, 1, false);
    // No parent yet: an added row without Def gets R whatever the parent's CDef.
    SetDef(row);
  } else {
    row = Tree->GetElem(id.c_str());
    if (!row) return;
  }
  bool deleted = change->GetInt(L"Deleted") != 0, moved = !added && change->GetInt(L"Moved") != 0;
  if ((deleted || moved) && !added && !IsBodyRow(row)) return;
  int recalc = ReadRecalc(run, row);
  if (deleted) DeleteRow(run, row, recalc);
  else if (added || moved) MoveRow(run, row, change, added, recalc);
  else ChangeRow(run, row, change, recalc);
}

int TGridUpdate::ReadRecalc(TSaveRun& run, TNode* row) {
  int recalc = row->GetInt(L"Recalc");
  if (recalc & 256) run.FullRecalc = true;
  return recalc;
}

void TGridUpdate::DeleteRow(TSaveRun& run, TNode* row, int recalc) {
  TNode* parent = row->Parent;
  ForgetCopied(run, row);
  TNode::Delete(row);
  if (!parent) return;
  if (!run.FullRecalc && (recalc & 6)) RecalcParent(parent, recalc);
  if (IsPage(parent)) run.RootCount--;
}

// Rows of this Save about to die leave the list of copies.
void TGridUpdate::ForgetCopied(TSaveRun& run, TNode* row) {
  if (run.CopiedAt.empty()) return;
  std::vector<TNode*> pending(1, row);
  while (!pending.empty()) {
    TNode* node = pending.back();
    pending.pop_back();
    auto found = run.CopiedAt.find(node);
    if (found != run.CopiedAt.end()) {
      run.Copied[found->second] = nullptr;
      run.CopiedAt.erase(found);
    }
    for (TNode* child = node->FirstChild; child; child = child->Next) pending.push_back(child);
  }
}

void TGridUpdate::RecalcParent(TNode* parent, int recalc) {
  if (IsPage(parent)) CalcRow(parent);
  else RecalcRow(parent, recalc | 1);
}

void TGridUpdate::ChangeRow(TSaveRun& run, TNode* row, TNode* change, int recalc) {
  run.StructureChanged = true;
  change->SetNull(L"Changed");
  MergeOver(row, change, false);
  if (row->FirstChild) CopyToAll(row, change);
  if (!run.FullRecalc) RecalcRow(row, recalc);
}

void TGridUpdate::MoveRow(TSaveRun& run, TNode* row, TNode* change, bool added, int recalc) {
  run.StructureChanged = true;
  TNode* oldParent = added ? nullptr : row->Parent;
  TNode* parent = FindParent(change, row);
  TNode* next = nullptr;
  TNode* place = FindPlace(change, parent, next);
  PlaceRow(row, parent, next, place, added);
  for (const wchar_t* name : PlaceNames) change->SetNull(name);
  bool changed = change->GetInt(L"Changed") != 0;
  change->SetNull(L"Changed");
  MergeOver(row, change, false);
  if (changed && row->FirstChild) CopyToAll(row, change);
  if (added) {
    recalc = ReadRecalc(run, row);
    AddEditCols(row);
    CopyChildren(run, row);
  }
  // Read with the table of kinds: a moved or added row, and its old parent,
  // are calculated only when Recalc asks for the ancestors (2 or 4).
  if (!run.FullRecalc && (recalc & 6)) {
    if (oldParent && oldParent != parent) RecalcParent(oldParent, recalc);
    RecalcRow(row, recalc);
  }
  // Counted by the parent the change named (none: the row went to a page).
  if (!parent || IsPage(parent)) run.RootCount++;
  if (oldParent && IsPage(oldParent)) run.RootCount--;
}

// Parent: a page by its number when it begins with a digit, else a row or
// page by id. A parent outside the body, in the row's own subtree, or one
// that would take the subtree beyond the depth limit counts as not found.
TNode* TGridUpdate::FindParent(TNode* change, TNode* row) {
  std::wstring text = change->GetString(L"Parent");
  if (text.empty()) return nullptr;
  TNode* parent = nullptr;
  if (text[0] >= L'0' && text[0] <= L'9') {
    long number = wcstol(text.c_str(), nullptr, 10);
    if (number >= 0 && number <= INT_MAX) parent = Body->GetChild((int)number);
  } else {
    parent = Tree->GetElem(text.c_str());
    if (!IsBodyRow(parent) && !IsPage(parent)) parent = nullptr;
  }
  if (parent && (Within(parent, row) || !Fits(parent, row))) parent = nullptr;
  return parent;
}

// The row to insert before: Next, or when Next stands under another parent,
// the row behind Prev (Prev under the parent), the parent's first row (no
// Prev), or Next still (Prev elsewhere, which leaves a moved row unmoved).
TNode* TGridUpdate::FindPlace(TNode* change, TNode* parent, TNode*& next) {
  next = FindBodyRow(change->GetString(L"Next"));
  if (!next || !parent || next->Parent == parent) return next;
  TNode* prev = FindBodyRow(change->GetString(L"Prev"));
  if (!prev) return parent->FirstChild;
  return prev->Parent == parent ? prev->Next : next;
}

void TGridUpdate::PlaceRow(TNode* row, TNode* parent, TNode* next, TNode* place, bool added) {
  if (parent) {
    if (place == row) return;  // already there; inserting it before itself would unlink it
    if (!place) parent->AppendChild(row);
    else if (place->Parent == parent) parent->InsertBefore(row, place);
    // A place under another parent leaves a moved row where it stands; an
    // added row stands nowhere yet and goes to the end of the parent.
    else if (added) parent->AppendChild(row);
    return;
  }
  if (next == row) return;
  if (next && !Within(next, row) && Fits(next->Parent, row)) {
    next->Parent->InsertBefore(row, next);
    return;
  }
  LastPage()->AppendChild(row);
}

TNode* TGridUpdate::LastPage() {
  if (!Body->LastChild) Body->AppendChild(Tree->CreateElement(L"B"));
  return Body->LastChild;
}

void TGridUpdate::CopyToAll(TNode* row, TNode* change) {
  int* found;
  int count = change->GetIndexes(found);
  std::vector<int> indexes(found, found + count);  // the list lies in the scratch ring
  int mode = change->Flags & FSpec ? 2 : 1;
  for (int index : indexes) {
    const wchar_t* name = change->Tree->GetName(index, mode);
    if (name) CopyTo(row, std::wstring(name).c_str());
  }
}

void TGridUpdate::CopyTo(TNode* row, const wchar_t* name) {
  if (!row || !name) return;
  std::wstring list = row->GetString(name, L"CopyTo");
  if (list.empty()) return;
  std::vector<std::wstring> items = SplitComma(list);
  for (size_t i = 0; i + 1 < items.size(); i += 2) {
    const std::wstring &target = items[i], &column = items[i + 1];
    if (target.empty() || column.empty()) return;
    if (target != L"Children") continue;
    int from = Tree->GetIndex(name, 0), to = Tree->GetIndex(column.c_str(), 1);
    for (TNode* child = row->FirstChild; child; child = child->Next) {
      if (from == -1) child->SetNull(to);
      else child->Copy(to, row, from, 2, true);
      if (child->FirstChild) CopyTo(child, column.c_str());
    }
  }
}

// Copy names the row whose children a new row receives. Copies come only
// from rows and pages of the body, and only as deep as the depth limit lets
// them stand under the new row.
void TGridUpdate::CopyChildren(TSaveRun& run, TNode* row) {
  int copyIndex = Tree->GetIndex(L"Copy", 0);
  if (copyIndex == -1 || !row->HasBase(copyIndex)) return;
  std::wstring id = row->GetString(copyIndex);
  row->SetNull(copyIndex);
  TNode* source = Tree->GetElem(id.c_str());
  if (source && (IsBodyRow(source) || IsPage(source))) {
    // Taken first: the source may be an ancestor of the row, whose children
    // then include the row itself.
    std::vector<TNode*> children;
    for (TNode* child = source->FirstChild; child; child = child->Next) children.push_back(child);
    for (TNode* child : children)
      if (Depth(row) + 1 + Height(child) <= TNodeXml::MaxDepth) row->AppendChild(child->CopyNode(Tree, true));
  }
  run.CopiedAt[row] = run.Copied.size();
  run.Copied.push_back(row);
}

// A new row of a grouped grid takes the edit columns of its default.
void TGridUpdate::AddEditCols(TNode* row) {
  std::wstring list = row->Base ? row->Base->GetString(L"EditCols") : L"";
  if (list.empty()) return;
  for (const std::wstring& item : SplitComma(list)) {
    if (item.empty()) continue;
    std::wstring text = L"Children,";
    if (item != L"Main" && item != L"MainCol") {
      row->SetByte(Tree->GetIndex(item.c_str(), L"CanEdit", 1), 1);
      row->SetString(Tree->GetIndex(item.c_str(), L"CopyTo", 1), (text + item).c_str());
      continue;
    }
    if (GroupCount <= 0) continue;
    std::wstring main = Cfg->GetString(L"MainCol");
    std::wstring name = GroupColumnName(row);
    if (main.empty() || name.empty()) continue;
    row->SetString(Tree->GetIndex(main.c_str(), L"CopyTo", 1), (text + name).c_str());
    row->SetByte(Tree->GetIndex(main.c_str(), L"CanEdit", 1), 1);
    int from = Tree->GetIndex(name.c_str(), 0);
    if (from != -1) row->Copy(Tree->GetIndex(main.c_str(), 1), row, from, 1, true);
  }
}

// The group column a new row shows in the main column: its GroupCol (a level
// number or a name), else the level of its depth among grouped ancestors.
std::wstring TGridUpdate::GroupColumnName(TNode* row) {
  int levels = GroupCount < TGridGroup::MaxGroupLevels ? GroupCount : TGridGroup::MaxGroupLevels;
  std::wstring group = row->GetString(L"GroupCol");
  if (!group.empty() && group.find(L',') == std::wstring::npos) {
    long level = wcstol(group.c_str(), nullptr, 10);
    if (level == 0 && group[0] != L'0') return group;
    // A negative level would be the count minus it: always beyond the last
    // level, which leaves the text.
    if (level < 0 || level >= levels) return group;
    std::wstring name = LevelColumnName((int)level);
    return name.empty() ? group : name;
  }
  int depth = 0;
  for (TNode* p = row->Parent; p && p->Base; p = p->Parent)
    if (p->Base->GetInt(L"Group")) depth++;
  return depth < levels ? LevelColumnName(depth) : std::wstring();
}

// Name of the column of a group level, if that column is in Cols.
std::wstring TGridUpdate::LevelColumnName(int level) {
  const wchar_t* key = Tree->GetName(GroupCols[level], 0);
  TNode* column = key ? Cols.GetNode(key, 0) : nullptr;
  return column ? column->GetString(L"Name") : L"";
}

void TGridUpdate::SetDef(TNode* row) {
  if (!row) return;
  std::wstring name = row->GetStringBase(IDefIndex);
  if (name.empty() && row->Parent) name = row->Parent->GetString(L"CDef");
  TNode* def = name.empty() ? nullptr : Defs.GetNode(name.c_str(), 0);
  row->Base = def ? def : Defs.GetNode(L"R", 0);
}

bool TGridUpdate::IsBodyRow(TNode* node) const {
  if (!node || !Body || node == Body || node->Parent == Body) return false;
  for (TNode* p = node->Parent; p; p = p->Parent)
    if (p->Parent == Body) return true;
  return false;
}

TNode* TGridUpdate::FindBodyRow(const wchar_t* id) {
  TNode* row = id && *id ? Tree->GetElem(std::wstring(id).c_str()) : nullptr;
  return IsBodyRow(row) ? row : nullptr;
}

// ---- ids ----

const wchar_t* TGridUpdate::GetLastId(TIds* ids) {
  if (!ids) return EmptyString;
  ReadIdSettings(ids);
  if (!ids->DigitCount) return ids->LastId;
  for (int i = 0; i < ids->DigitCount; i++) ids->Order[ids->IdChars[i] & 0xFF] = i;
  ids->NumberId = Cfg->GetInt(L"NumberId") != 0;
  FindLastId(ids);
  ids->Ready = true;
  return ids->LastId;
}

void TGridUpdate::ReadIdSettings(TIds* ids) {
  static const wchar_t* const names[] = {L"IdChars", L"IdPrefix", L"IdPostfix"};
  for (int i = 0; i < 3; i++) ids->Texts[i] = Cfg ? Cfg->GetString(names[i]) : EmptyString;
  ids->IdChars = ids->Texts[0].c_str();
  ids->DigitCount = (int)ids->Texts[0].size();
  ids->IdPrefix = ids->Texts[1].c_str();
  ids->PrefixLength = (int)ids->Texts[1].size();
  ids->IdPostfix = ids->Texts[2].c_str();
  ids->PostfixLength = (int)ids->Texts[2].size();
  memset(ids->LastId, 0, sizeof ids->LastId);
  for (int& value : ids->Order) value = -1;
  ids->NumberId = false;
}

// The highest id: among ids of the longest length made of digits only, the
// one whose number part is greatest. Ids beyond the buffer are passed over.
void TGridUpdate::FindLastId(TIds* ids) {
  wchar_t** keys;
  int count = Tree->GetIds(keys);
  int skipped = SkippedIds();
  int longest = ids->PrefixLength + ids->PostfixLength;
  int found = -1;
  int i = ResumeLastIdScan(ids, skipped, count, longest);
  if (i > skipped) found = LastIdScan.Found;
  for (; i < count; i++) {
    const wchar_t* id = keys[i];
    if (!id) continue;
    size_t size = wcslen(id);
    if (size > (size_t)TIds::MaxIdLength) continue;
    int length = (int)size;
    bool higher = length == longest ? IsHigherId(ids, id, length) : length > longest && IsIdText(ids, id);
    if (!higher) continue;
    wcscpy(ids->LastId, id);
    longest = length;
    found = i;
  }
  LastIdScan.Texts[0] = ids->Texts[0];
  LastIdScan.Texts[1] = ids->Texts[1];
  LastIdScan.Texts[2] = ids->Texts[2];
  LastIdScan.Skipped = skipped;
  LastIdScan.Scanned = count;
  LastIdScan.Found = found;
  LastIdScan.Longest = longest;
}

int TGridUpdate::ResumeLastIdScan(TIds* ids, int skipped, int count, int& longest) {
  const TLastIdScan& scan = LastIdScan;
  bool same = scan.Skipped == skipped && scan.Scanned >= skipped && scan.Scanned <= count;
  for (int t = 0; t < 3 && same; t++) same = scan.Texts[t] == ids->Texts[t];
  if (!same) return skipped;
  if (scan.Found >= 0) {
    wchar_t** keys;
    Tree->GetIds(keys);
    wcscpy(ids->LastId, keys[scan.Found]);
    longest = scan.Longest;
  }
  return scan.Scanned;
}

// The ids of Header, Toolbar and Cfg stand first in the table.
int TGridUpdate::SkippedIds() {
  if (!Tree->Root) return 0;
  TNode* sections[] = {Tree->Root->GetChildByName(L"Header", false), Tree->Root->GetChildByName(L"Toolbar", false),
                       Cfg};
  int skipped = 0;
  for (TNode* section : sections)
    if (section && *section->GetId()) skipped++;
  return skipped;
}

bool TGridUpdate::IsHigherId(const TIds* ids, const wchar_t* id, int length) const {
  for (int p = ids->PrefixLength; p < length - ids->PostfixLength; p++) {
    int mine = ids->Order[id[p] & 0xFF], last = ids->Order[ids->LastId[p] & 0xFF];
    if (mine != last) return mine > last;
  }
  return false;
}

bool TGridUpdate::IsIdText(const TIds* ids, const wchar_t* id) const {
  for (; *id; id++)
    if (ids->Order[*id & 0xFF] < 0) return false;
  return true;
}

const wchar_t* TGridUpdate::SetId(TIds* ids, TNode* row, bool recursive) {
  if (!ids) return EmptyString;
  if (!ids->Ready) GetLastId(ids);
  NextId(ids);
  if (!row) return ids->LastId;
  // A copy carries its source's id, whose entry stays with the source; an
  // empty id is set without an entry, which no lookup could use.
  TTree* tree = row->Tree;
  std::wstring current = row->GetId();
  if (tree && !current.empty() && tree->GetElem(current.c_str()) != row) row->SetNull(IIdIndex);
  if (*ids->LastId) {
    row->SetId(ids->LastId);
  } else {
    if (tree && tree->GetElem(current.c_str()) == row) tree->RemoveId(current.c_str());
    row->SetString(IIdIndex, L"");
  }
  if (recursive)
    for (TNode* child = row->FirstChild; child; child = child->Next) SetId(ids, child, true);
  return ids->LastId;
}

// Adds one to the number part of LastId. An id that would outgrow the buffer
// is cut at its end.
void TGridUpdate::NextId(TIds* ids) {
  wchar_t* id = ids->LastId;
  if (!ids->DigitCount) {
    id[0] = 0;
    return;
  }
  const int max = TIds::MaxIdLength;
  int length = (int)wcslen(id);
  int start = ids->PrefixLength < max ? ids->PrefixLength : max;
  int end = length - ids->PostfixLength;
  for (int p = length; p < start; p++) id[p] = 0;  // LastId shorter than the prefix
  bool carry = true;
  for (int p = end - 1; p >= start && carry; p--) {
    int value = ids->Order[id[p] & 0xFF] + 1;
    carry = value >= ids->DigitCount;
    id[p] = ids->IdChars[carry ? 0 : value];
  }
  int at = end;
  if (carry) {
    // 99 becomes 100 with NumberId, 000 without.
    at = start;
    if (at < max) id[at++] = ids->IdChars[ids->NumberId && ids->DigitCount > 1 ? 1 : 0];
    for (int p = start; p < end && at < max; p++) id[at++] = ids->IdChars[0];
  }
  for (int i = 0; i < ids->PostfixLength && at < max; i++) id[at++] = ids->IdPostfix[i];
  id[at] = 0;
}

// ---- log of changes ----

TNode* TGridUpdate::AllocChanges() {
  if (Changes) return Changes;
  TTree* log = new TTree();
  if (log->SetXml(L"<Grid><Changes/></Grid>")) Changes = log->Root->FirstChild;
  if (!Changes) delete log;
  return Changes;
}

void TGridUpdate::ClearChanges() {
  if (!Changes) return;
  delete Changes->Tree;
  Changes = nullptr;
}
