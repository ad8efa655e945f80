#include "grid/Filter.h"

TGridFilter::TGridFilter() : FilterCells(), FilterCount(0) {}
TGridFilter::~TGridFilter() {}
bool TGridFilter::UpdateFilter() { return false; }

void TGridFilter::Filter() {}

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
