#include "grid/Filter.h"

#include <string.h>
#include <wchar.h>

#include <string>

namespace {

// Characters of a row's text in normal form, without its terminator.
const int NormalMax = TFilterCell::MaxFilterString;

bool IsTextType(const wchar_t* type) {
  static const wchar_t* const texts[] = {L"Text", L"Html", L"Lines", L"Link", L"Img", L"List"};
  for (const wchar_t* text : texts)
    if (!wcscmp(type, text)) return true;
  return false;
}

// Negative operators hold for a row only if they hold for every value.
bool IsNegative(int op) { return op == 2 || op == 8 || op == 10 || op == 12; }

// One text operator on the row's text v (length vl) and a value f.
bool TestText(int op, const wchar_t* v, size_t vl, const wchar_t* f) {
  switch (op) {
    case 1: return !wcscmp(v, f);
    case 2: return wcscmp(v, f) != 0;
    case 3: return wcscmp(v, f) < 0;
    case 4: return wcscmp(v, f) <= 0;
    case 5: return wcscmp(v, f) > 0;
    case 6: return wcscmp(v, f) >= 0;
    case 7: return !wcsncmp(v, f, wcslen(f));
    case 8: return wcsncmp(v, f, wcslen(f)) != 0;
    case 9: {
      size_t fl = wcslen(f);
      return vl >= fl && !wcscmp(v + vl - fl, f);
    }
    case 10: {
      size_t fl = wcslen(f);
      return vl < fl || wcscmp(v + vl - fl, f) != 0;
    }
    case 11: return wcsstr(v, f) != nullptr;
    case 12: return wcsstr(v, f) == nullptr;
    default: return false;
  }
}

// Without a range list, operators above 6 leave a number cell passing.
bool TestNumber(int op, double d, double x) {
  switch (op) {
    case 1: return d == x;
    case 2: return !(d == x);
    case 3: return d < x;
    case 4: return d <= x;
    case 5: return d > x;
    case 6: return d >= x;
    default: return true;
  }
}

// What the row loop needs beside the cells, worked out once per run.
struct TFilterRun {
  TFilterCell* Cells;
  int Count;
  int CanFilterCol;
  const wchar_t* Names[TGridFilter::MaxFilterCells];  // column name of each cell
};

bool PassText(TNode* row, const TFilterCell& cell, const wchar_t* name, int tested) {
  const wchar_t* v = row->GetStringFormat(name, tested);
  wchar_t normal[NormalMax + 1];
  if ((cell.Flags & (SortLocale | SortNoCase | SortWhite)) || cell.Codes) {
    CopySortString(normal, v, NormalMax, cell.Flags, cell.Locale, cell.White, cell.Codes);
    v = normal;
  }
  size_t vl = wcslen(v);
  bool negative = IsNegative(cell.Operator);
  for (int i = 0; i < cell.Count; i++) {
    bool result = TestText(cell.Operator, v, vl, cell.Value.Text + cell.Offsets[i]);
    if (result != negative) return result;
  }
  return negative;
}

bool PassNumber(TNode* row, const TFilterCell& cell, int tested) {
  double d = row->GetDouble(tested);
  if (!cell.Count) return TestNumber(cell.Operator, d, cell.Value.Numbers[0]);
  bool inside = false;
  for (int i = 0; i + 1 < cell.Count && !inside; i += 2)
    inside = cell.Value.Numbers[i] <= d && d <= cell.Value.Numbers[i + 1];
  return cell.Operator == 2 ? !inside : inside;
}

// The cells are joined by a logical and.
bool PassCells(TNode* row, const TFilterRun& run) {
  for (int i = 0; i < run.Count; i++) {
    const TFilterCell& cell = run.Cells[i];
    if (cell.CanFilterCol >= 0 && row->Has(cell.CanFilterCol) && !row->GetInt(cell.CanFilterCol)) continue;
    int tested = row->Has(cell.ValueCol) ? cell.ValueCol : cell.Col;
    bool pass = cell.IsString ? PassText(row, cell, run.Names[i], tested) : PassNumber(row, cell, tested);
    if (!pass) return false;
  }
  return true;
}

bool AllFiltered(TNode* parent) {
  for (TNode* child = parent->FirstChild; child; child = child->Next)
    if (!(child->Flags & FFiltered)) return false;
  return true;
}

// Rows lie scattered in memory and the loop does little with each: the
// next row's records are fetched while this one is tested.
void FilterChildren(TNode* parent, const TFilterRun& run);

void FilterRow(TNode* child, const TFilterRun& run) {
  int mask = child->GetInt(run.CanFilterCol);
  if (mask & 1) {
    bool pass = PassCells(child, run);
    if (pass) child->Flags &= ~FFiltered;
    else child->Flags |= FFiltered;
    // A row that fails hides what lies below it, which keeps its flags.
    if (!pass) return;
  }
  if (!child->FirstChild) return;
  FilterChildren(child, run);
  if (!(mask & 2)) return;
  if (AllFiltered(child)) child->Flags |= FFiltered;
  else child->Flags &= ~FFiltered;
}

void FilterChildren(TNode* parent, const TFilterRun& run) {
  ForSiblings(parent->FirstChild, [&run](TNode* child) { FilterRow(child, run); });
}

// Copies at most max characters of text into dest (max + 1 cells).
void CopyCut(wchar_t* dest, const wchar_t* text, int max) {
  wcsncpy(dest, text, max);
  dest[max] = 0;
}

}  // namespace

void TNodeFilter::Filter(TFilterCell* cells, int count, int canFilterCol, const std::vector<TNode*>* rows) {
  TFilterRun run;
  run.Cells = cells;
  run.Count = cells && count > 0 ? count : 0;
  if (run.Count > TGridFilter::MaxFilterCells) run.Count = TGridFilter::MaxFilterCells;
  run.CanFilterCol = canFilterCol;
  for (int i = 0; i < run.Count; i++) run.Names[i] = Tree ? Tree->GetName(cells[i].Col, 0) : nullptr;
  if (rows) ForRows(rows->data(), rows->size(), [&run](TNode* child) { FilterRow(child, run); });
  else FilterChildren(this, run);
}

// ---- grid level ----

// List separators of the tree's Format element, taken as they are; the
// defaults hold only for a tree without one.
struct TGridFilter::TSeparators {
  std::wstring Value = L";";
  wchar_t Range = L'~';
};

TGridFilter::TGridFilter() : FilterCells(), FilterCount(0) {}
TGridFilter::~TGridFilter() {}

bool TGridFilter::UpdateFilter() {
  if (!Tree) return false;
  TSeparators separators;
  if (Tree->Format) {
    separators.Value = Tree->Format->GetString(L"ValueSeparator");
    separators.Range = *Tree->Format->GetString(L"RangeSeparator");
  }
  bool changed = false;
  int n = 0;
  for (int r = 0; r < FilterRows.Count; r++) {
    TNode* row = FilterRows.Items[r];
    for (int entry = 0; entry < Cols.GetCount(); entry++) {
      TNode* column = Cols.GetNode(entry);
      if (!column) continue;
      std::wstring name = column->GetString(L"Name");
      int op = name.empty() ? 0 : row->GetInt(name.c_str(), L"Filter");
      // Conditions beyond the cells are left out.
      if (!op || n >= MaxFilterCells) continue;
      TFilterCell& cell = FilterCells[n];
      if (UpdateCell(cell, n < FilterCount, row, column, name.c_str(), op, separators)) {
        cell.Row = r;
        changed = true;
      }
      n++;
    }
  }
  if (FilterCount > n) changed = true;
  FilterCount = n;
  return changed;
}

// An unchanged cell keeps all it held but its white set and char codes,
// which are dropped here whatever the comparison finds.
bool TGridFilter::UpdateCell(TFilterCell& cell, bool existed, TNode* row, TNode* column, const wchar_t* name, int op,
                             const TSeparators& separators) {
  int col = Tree->GetIndex(name, 1);
  cell.White = nullptr;
  cell.Codes = nullptr;
  bool list = row->GetInt(name, L"Range") != 0;
  bool changed;
  if (IsTextType(row->GetString(name, L"Type")))
    changed = UpdateText(cell, existed, row, column, name, col, op, list, separators);
  else if (list)
    changed = UpdateRange(cell, existed, row, col, op, separators);
  else
    changed = UpdateNumber(cell, existed, row, col, op);
  if (!changed) return false;
  cell.Operator = op;
  cell.Col = col;
  cell.ValueCol = Tree->GetIndex(name, L"FilterValue", 0);
  cell.CanFilterCol = column->GetInt(L"CanFilter") == 2 ? Tree->GetIndex(name, L"CanFilter", 0) : -1;
  return true;
}

bool TGridFilter::UpdateNumber(TFilterCell& cell, bool existed, TNode* row, int col, int op) {
  double value = row->GetDouble(col);
  if (existed && !cell.IsString && cell.Col == col && cell.Operator == op && cell.Value.Numbers[0] == value)
    return false;
  cell.Value.Numbers[0] = value;
  cell.Count = 0;
  cell.IsString = 0;
  return true;
}

// Items end at any character of the value separator; a range is low and
// high around the range separator, a lone number both. The column is not
// compared: a list moved to another column at the same place counts as kept.
bool TGridFilter::UpdateRange(TFilterCell& cell, bool existed, TNode* row, int col, int op,
                              const TSeparators& separators) {
  wchar_t text[MaxRangeText + 1];
  CopyCut(text, row->GetString(col), MaxRangeText);
  double numbers[TFilterCell::MaxNumbers];
  int count = 0;
  wchar_t* state = nullptr;
  for (wchar_t* item = wcstok(text, separators.Value.c_str(), &state); item && count < TFilterCell::MaxNumbers;
       item = wcstok(nullptr, separators.Value.c_str(), &state)) {
    wchar_t* split = separators.Range ? wcschr(item, separators.Range) : nullptr;
    if (split) *split = 0;
    numbers[count] = wcstod(item, nullptr);
    numbers[count + 1] = split ? wcstod(split + 1, nullptr) : numbers[count];
    count += 2;
  }
  if (existed && !cell.IsString && cell.Operator == op && cell.Count == count &&
      !memcmp(cell.Value.Numbers, numbers, count * sizeof(double)))
    return false;
  memcpy(cell.Value.Numbers, numbers, count * sizeof(double));
  // An empty list then tests as a single value, which wcstod reads as 0.
  if (!count) cell.Value.Numbers[0] = 0;
  cell.Count = count;
  cell.IsString = 0;
  return true;
}

// The raw text is set against the stored normal form, so a difference of
// form alone counts as a change. A list compares its first item and its
// count, a single value its text; neither compares the column.
bool TGridFilter::UpdateText(TFilterCell& cell, bool existed, TNode* row, TNode* column, const wchar_t* name,
                             int col, int op, bool list, const TSeparators& separators) {
  wchar_t text[TFilterCell::MaxFilterString + 1];
  const wchar_t* items[TFilterCell::MaxValues];
  int count = 0;
  if (list) {
    CopyCut(text, row->GetString(col), TFilterCell::MaxFilterString);
    wchar_t* state = nullptr;
    for (wchar_t* item = wcstok(text, separators.Value.c_str(), &state); item && count < TFilterCell::MaxValues;
         item = wcstok(nullptr, separators.Value.c_str(), &state))
      items[count++] = item;
  }
  std::wstring single;
  if (count) {
    if (existed && cell.IsString && cell.Operator == op && cell.Count == count && !wcscmp(items[0], cell.Value.Text))
      return false;
  } else {
    single = row->GetStringFormat(name, col);
    if (existed && cell.IsString && cell.Operator == op && single == cell.Value.Text) return false;
    items[0] = single.c_str();
    count = 1;
  }
  StoreTexts(cell, row, column, name, items, count);
  return true;
}

void TGridFilter::StoreTexts(TFilterCell& cell, TNode* row, TNode* column, const wchar_t* name,
                             const wchar_t* const* items, int count) {
  int caseIndex = Tree->GetIndex(name, L"CaseSensitive", 0);
  int localeIndex = Tree->GetIndex(name, L"LocaleCompare", 0);
  int caseSensitive = row->Has(caseIndex) ? row->GetInt(caseIndex) : column->GetInt(L"CaseSensitive");
  int locale = row->Has(localeIndex) ? row->GetInt(localeIndex) : column->GetInt(L"LocaleCompare");
  int flags = (caseSensitive ? 0 : SortNoCase) | (locale ? SortLocale : 0);
  cell.White = GetWhiteChars(column->GetString(L"WhiteChars"));
  cell.Codes = GetCharCodes(column->GetString(L"CharCodes"));
  if (cell.White) flags |= SortWhite;
  cell.Flags = flags;
  cell.Locale = LocaleTable;
  cell.IsString = 1;
  // Each value gets the room left of the 255 characters; a collation that
  // expands the first ones may leave no room for the rest, which are cut.
  int position = 0, stored = 0;
  for (; stored < count && position <= TFilterCell::MaxFilterString; stored++) {
    wchar_t* dest = cell.Value.Text + position;
    CopySortString(dest, items[stored], TFilterCell::MaxFilterString - position, flags, LocaleTable, cell.White,
                   cell.Codes);
    cell.Offsets[stored] = position;
    position += (int)wcslen(dest) + 1;
  }
  cell.Count = stored;
}

void TGridFilter::Filter(const std::vector<TNode*>* rows) {
  if (!Tree || !Body || !Body->FirstChild) return;
  int canFilter = Tree->GetIndex(L"CanFilter", 1);
  static_cast<TNodeFilter*>(Body->FirstChild)->Filter(FilterCells, FilterCount, canFilter, rows);
}

// Each request states its filters afresh: every column's value and operator
// leave the filter rows. Names are looked up, never created.
void TGridFilter::ClearFilters() {
  if (!Tree || !FilterRows.Count) return;
  for (int entry = 0; entry < Cols.GetCount(); entry++) {
    const wchar_t* name = Cols.GetKey(entry);
    if (!name || !Cols.GetNode(entry)) continue;
    int value = Tree->GetIndex(name, 0);
    int filter = Tree->GetIndex(name, L"Filter", 0);
    for (int i = 0; i < FilterRows.Count; i++) {
      TNode* row = FilterRows.Items[i];
      if (value != -1 && row->HasBase(value)) row->SetNull(value);
      if (filter != -1 && row->HasBase(filter)) row->SetNull(filter);
    }
  }
}
