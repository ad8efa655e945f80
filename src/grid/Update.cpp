#include "grid/Update.h"
#include <climits>
#include <cstring>
#include <memory>
#include "tree/Data.h"

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

int TGridUpdate::Save(const wchar_t*, int) { return -1; }

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
  int longest = ids->PrefixLength + ids->PostfixLength;
  for (int i = SkippedIds(); i < count; i++) {
    const wchar_t* id = keys[i];
    if (!id) continue;
    size_t size = wcslen(id);
    if (size > (size_t)TIds::MaxIdLength) continue;
    int length = (int)size;
    bool higher = length == longest ? IsHigherId(ids, id, length) : length > longest && IsIdText(ids, id);
    if (!higher) continue;
    wcscpy(ids->LastId, id);
    longest = length;
  }
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
  row->SetId(ids->LastId);
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
