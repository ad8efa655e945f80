#include "grid/Pages.h"
#include <algorithm>
#include <cstring>
#include <string>

namespace {

// A text kept across further use of the scratch ring, which may hand out the
// same cells again right after it wraps: short texts in place, long ones on
// the heap (rare: only page names of more than MaxPageName characters).
struct TKeptText {
  wchar_t Short[TGridPages::MaxPageName + 1];
  std::wstring Long;
  const wchar_t* Text = nullptr;
  int Length = 0;

  void Keep(const wchar_t* text) {
    if (!text) {
      Text = nullptr;
      Length = 0;
      return;
    }
    Length = (int)wcslen(text);
    if (Length <= TGridPages::MaxPageName) {
      wmemcpy(Short, text, Length + 1);
      Text = Short;
    } else {
      Long.assign(text, Length);
      Text = Long.c_str();
    }
  }
};

int CommonPrefix(const wchar_t* a, const wchar_t* b) {
  int k = 0;
  while (a[k] && a[k] == b[k]) k++;
  return k;
}

}  // namespace

void TGridPages::RemovePages() { JoinPages(true); }

void TGridPages::RemovePages(std::vector<TNode*>& rows) {
  rows.clear();
  if (!Body || !Body->FirstChild) return;
  CollectChildren(Body->FirstChild, rows);
  if (!Body->FirstChild->Next) return;
  TNode* first = Body->FirstChild;
  ForRows(rows.data(), rows.size(), [first](TNode* row) { row->Parent = first; });
  JoinPages(false);
}

void TGridPages::JoinPages(bool reparent) {
  if (!Body) return;
  TNode* first = Body->FirstChild;
  // A single page stands as it is, PagesCreated included.
  if (!first || !first->Next) return;
  TNode* last = first->LastChild;
  for (TNode* page = first->Next; page;) {
    TNode* next = page->Next;
    last = JoinPage(first, last, page, reparent);
    page = next;
  }
  if (last) last->Next = nullptr;
  first->LastChild = last;
  first->Next = nullptr;
  Body->LastChild = first;
  Body->SetNull(L"PagesCreated");
}

TNode* TGridPages::JoinPage(TNode* first, TNode* last, TNode* page, bool reparent) {
  if (page->FirstChild) {
    if (reparent)
      for (TNode* row = page->FirstChild; row; row = row->Next) row->Parent = first;
    page->FirstChild->Prev = last;
    if (last) last->Next = page->FirstChild; else first->FirstChild = page->FirstChild;
    last = page->LastChild;
  }
  // The page no longer knows its rows or its place, so destroying it takes
  // only its own record.
  page->FirstChild = page->LastChild = nullptr;
  page->Parent = page->Prev = page->Next = nullptr;
  TNode::Delete(page);
  return last;
}

void TGridPages::CreatePages() {
  if (!Body || !Body->FirstChild) return;
  std::vector<TNode*> rows;
  for (TNode* row = Body->FirstChild->FirstChild; row; row = row->Next) rows.push_back(row);
  std::vector<size_t> starts;
  CreatePages(rows, starts);
}

void TGridPages::CreatePages(const std::vector<TNode*>& rows, std::vector<size_t>& starts) {
  starts.clear();
  if (!Body || !Body->FirstChild) return;
  TNode* page = Body->FirstChild;
  int length = Cfg->GetInt(L"PageLength");
  if (length < 1) length = 20;
  int remaining = length, count = 0;
  size_t n = rows.size(), i = 0;
  starts.push_back(0);
  // The rows that fit on the first page are already there.
  for (; i < n; i++) {
    PrefetchAhead(rows.data(), i, n);
    if (rows[i]->Flags & FFiltered) continue;
    if (remaining == 0) break;
    remaining--;
    count++;
  }
  if (AggNode) page->Merge(AggNode, 1);
  for (; i < n; i++) {
    PrefetchAhead(rows.data(), i, n);
    TNode* row = rows[i];
    if (!(row->Flags & FFiltered)) {
      count++;
      if (--remaining < 0) {
        page = StartPage(page, row);
        starts.push_back(i);
        remaining = length - 1;
      }
    }
    row->Parent = page;
    page->LastChild = row;
  }
  Cfg->SetInt(L"RootCount", count);
  if (!Cfg->GetInt(L"NoPager")) SetPageNames();
  Body->SetInt(L"PagesCreated", 1);
}

void TGridPages::CalcPages(const std::vector<TNode*>& rows, const std::vector<size_t>& starts) {
  size_t p = 0, n = rows.size();
  for (TNode* page = Body ? Body->FirstChild : nullptr; page; page = page->Next, p++) {
    // The next page's records and the nodes of the one after come in while
    // this page is calculated.
    if (p + 1 < starts.size()) {
      size_t from = starts[p + 1], to = std::min(p + 2 < starts.size() ? starts[p + 2] : n, n);
      for (size_t i = from; i < to; i++) rows[i]->Prefetch();
    }
    if (p + 2 < starts.size()) {
      size_t from = starts[p + 2], to = std::min(p + 3 < starts.size() ? starts[p + 3] : n, n);
      for (size_t i = from; i < to; i++) __builtin_prefetch(rows[i]);
    }
    CalcRow(page);
  }
}

TNode* TGridPages::StartPage(TNode* page, TNode* row) {
  page->LastChild = row->Prev;
  row->Prev->Next = nullptr;
  TNode* next = AggNode ? AggNode->CopyNode(Tree, false) : Tree->CreateElement(L"B");
  Body->AppendChild(next);
  next->FirstChild = row;
  row->Prev = nullptr;
  return next;
}

void TGridPages::SetPageNames() {
  int nameIndexes[3][3];
  wchar_t name[] = L"Name__";
  for (int x = 0; x < 3; x++)
    for (int y = 0; y < 3; y++) {
      name[4] = (wchar_t)(L'0' + x);
      name[5] = (wchar_t)(L'0' + y);
      nameIndexes[x][y] = Tree->GetIndex(name, 1);
    }
  int valueIndexes[MaxSortCols];
  for (int i = 0; i < SortCount; i++) valueIndexes[i] = PageNameValueIndex(SortCols[i]);
  if (Cfg->GetInt(L"PageLength") == 1 && NameSinglePages(nameIndexes, valueIndexes)) return;
  TNode* first = Body->FirstChild;
  if (!first->Next) return ClearNames(first, nameIndexes);
  // Without a sort nothing tells pages apart; earlier names stay as they are.
  if (SortCount <= 0) return;
  for (TNode* page = first; page; page = page->Next) NamePage(page, nameIndexes, valueIndexes);
}

int TGridPages::PageNameValueIndex(int col) {
  const wchar_t* name = col < 0 ? nullptr : Tree->GetName(col, 0);
  return name ? Tree->GetIndex(name, L"PageNameValue", 0) : -1;
}

bool TGridPages::NameSinglePages(int nameIndexes[3][3], int* valueIndexes) {
  const wchar_t* main = Cfg->GetString(L"MainCol");
  int col, valueIndex;
  if (*main) {
    col = Tree->GetIndex(main, 0);
    valueIndex = Tree->GetIndex(main, L"PageNameValue", 0);
  } else if (SortCount > 0) {
    col = SortCols[0];
    valueIndex = valueIndexes[0];
  } else {
    return false;
  }
  for (TNode* page = Body->FirstChild; page; page = page->Next) {
    ClearNames(page, nameIndexes);
    if (page->FirstChild)
      page->SetStringMax(nameIndexes[0][0], GetPageString(page->FirstChild, col, valueIndex), MaxPageName);
  }
  return true;
}

void TGridPages::ClearNames(TNode* page, int nameIndexes[3][3]) {
  for (int x = 0; x < 3; x++)
    for (int y = 0; y < 3; y++) page->SetString(nameIndexes[x][y], EmptyString);
}

void TGridPages::NamePage(TNode* page, int nameIndexes[3][3], int* valueIndexes) {
  const wchar_t* names[3];
  GetPageNames(page, names, 0, valueIndexes);
  TKeptText from[3];
  for (int y = 0; y < 3; y++) from[y].Keep(names[y]);
  GetPageNames(page, names, 1, valueIndexes);
  int y = 0;
  for (; y < 3 && from[y].Text && names[y] && !wcscmp(from[y].Text, names[y]); y++) {
    page->SetStringMax(nameIndexes[0][y], from[y].Text, MaxPageName);
    page->SetString(nameIndexes[1][y], EmptyString);
    page->SetString(nameIndexes[2][y], EmptyString);
  }
  for (; y < 3; y++) {
    page->SetString(nameIndexes[0][y], EmptyString);
    page->SetStringMax(nameIndexes[1][y], from[y].Text, MaxPageName);
    page->SetStringMax(nameIndexes[2][y], names[y], MaxPageName);
  }
}

void TGridPages::GetPageNames(TNode* page, const wchar_t** names, int side, int* valueIndexes) {
  names[0] = names[1] = names[2] = nullptr;
  TNode* edge = side ? page->LastChild : page->FirstChild;
  if (!edge || SortCount <= 0) return;
  TNode* neighbour = side ? page->Next : page->Prev;
  TNode* across = neighbour ? (side ? neighbour->FirstChild : neighbour->LastChild) : nullptr;
  // Each edge text is kept before the row across is formatted, which may
  // reuse the ring cells that hold it.
  TKeptText kept[MaxSortCols];
  int lengths[MaxSortCols];
  int count = 1;
  kept[0].Keep(GetPageString(edge, SortCols[0], valueIndexes[0]));
  lengths[0] = kept[0].Length;
  for (int i = 0; across && i < SortCount; i++) {
    if (i) kept[i].Keep(GetPageString(edge, SortCols[i], valueIndexes[i]));
    lengths[i] = kept[i].Length;
    count = i + 1;
    const wchar_t* other = GetPageString(across, SortCols[i], valueIndexes[i]);
    if (!wcscmp(kept[i].Text, other)) continue;
    int k = CommonPrefix(kept[i].Text, other);
    // Shortened only when that saves at least three characters.
    if (kept[i].Length >= k + 4 && IsShortenedType(SortCols[i])) lengths[i] = k + 1;
    break;
  }
  int total = 0;
  for (int i = 0; i < count; i++) total += lengths[i] + 1;
  // One block for all names, so that no later piece of it can reuse an
  // earlier one.
  wchar_t* block = Tree->GetTmp(total);
  for (int i = 0; i < count; i++) {
    wmemcpy(block, kept[i].Text, lengths[i]);
    block[lengths[i]] = 0;
    names[i] = block;
    block += lengths[i] + 1;
  }
}

bool TGridPages::IsShortenedType(int col) {
  const wchar_t* name = Tree->GetName(col, 0);
  TNode* column = name ? Cols.GetNode(name, 0) : nullptr;
  if (!column) return false;
  const wchar_t* type = column->GetString(L"Type");
  return !wcscmp(type, L"Text") || !wcscmp(type, L"Lines") || !wcscmp(type, L"Enum");
}

const wchar_t* TGridPages::GetPageString(TNode* row, int col, int valueIndex) {
  if (valueIndex >= 0) {
    const wchar_t* value = row->GetString(valueIndex);
    if (*value) return value;
  }
  if (col < 0) return EmptyString;
  return row->GetStringFormat(nullptr, col);
}
