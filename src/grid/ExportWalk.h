// The walks that the HTML document and the workbook share: which header
// rows, captions, fixed rows and tree rows go out, and in which order. Only
// the two writers of the export level include it.
#pragma once
#include <cwchar>
#include <string>

#include "grid/Export.h"

namespace ExportWalk {

const wchar_t* const SectionNames[3] = {L"Left", L"Mid", L"Right"};

// Kind, or the element name where the row has no Kind.
inline bool IsKind(TNode* row, const wchar_t* kind, bool byName) {
  return wcscmp(row->GetString(L"Kind"), kind) == 0 || (byName && wcscmp(row->GetName(), kind) == 0);
}

inline bool IsSkippedKind(TNode* row, bool byName) {
  for (const wchar_t* kind : {L"User", L"Space", L"Search", L"Pager", L"Group"})
    if (IsKind(row, kind, byName)) return true;
  return false;
}

inline bool IsPresentZero(TNode* node, int index) { return node->Has(index) && node->GetInt(index) == 0; }

}  // namespace ExportWalk

template <class F> void TGridExport::WalkHeader(TNode* header, F visit) {
  if (header && ExportWalk::IsPresentZero(header, header->GetIndex(L"CanExport", 0))) return;
  if (!header || header->GetInt(L"Rows") <= 1) {
    visit(0, true);
    return;
  }
  int rows = header->GetInt(L"Rows");
  if (rows > MaxHeaderRows) rows = MaxHeaderRows;
  int main = header->Has(L"Main") ? header->GetInt(L"Main") : rows - 1;
  for (int r = 0; r < rows; r++) visit(r, r == main);
}

// Captions run from the section's first column up to its first hidden one.
template <class F>
void TGridExport::WalkCaptions(TNode* header, const TExportCol* cols, int count, int r, int section, F visit) {
  int pos = 0;
  while (pos < count && cols[pos].Section != section) pos++;
  if (pos == count) return;
  std::wstring prefix = std::wstring(ExportWalk::SectionNames[section]) + (wchar_t)(L'0' + r);
  for (int n = 0; pos < count && cols[pos].Section == section && cols[pos].Visible && n < MaxCaptionCells; n++) {
    std::wstring name = prefix + std::to_wstring(n);
    int spanIndex = header->GetIndex(name.c_str(), L"Span", 0);
    int span = header->Has(spanIndex) ? header->GetInt(spanIndex) : 1;
    if (section == 0 && n == 0) span--;
    if (span <= 0) continue;
    int first = pos, visible = 0;
    for (int k = 0; k < span && pos < count && cols[pos].Section == section; k++, pos++)
      if (cols[pos].Visible) visible++;
    visit(name, first, visible);
  }
}

// Head rows are told by Kind or element name and may be caption rows; Foot
// rows only by Kind.
template <class F> void TGridExport::WalkFixedRows(TNode* section, bool head, int options, F visit) {
  if (!section) return;
  for (TNode* row = section->FirstChild; row; row = row->Next) {
    if (ExportWalk::IsSkippedKind(row, head)) continue;
    bool filter = ExportWalk::IsKind(row, L"Filter", head);
    if (filter && (options & EFiltered)) continue;
    bool edge = head ? row == section->LastChild : row == section->FirstChild;
    const wchar_t* style = !edge ? L"background:#F6F6F6;"
                           : head ? L"background:#F6F6F6;border-bottom:1px solid black;"
                                  : L"background:#F6F6F6;border-top:1px solid black;";
    visit(row, style, filter, head && ExportWalk::IsKind(row, L"Header", true));
  }
}

// The walk follows the tree's links instead of recursing, so depth costs no
// stack. Children go out under an open row, or all of them with the
// expanded or outline option.
template <class F> void TGridExport::WalkRows(TNode* row, int options, int level, F visit) {
  if (IsLeftOut(row, options)) return;
  TNode* node = row;
  int depth = level;
  for (;;) {
    bool open = false;
    if (!IsLeftOut(node, options)) {
      visit(node, depth, node == row);
      open = node->FirstChild && ((options & (EExpanded | EOutline)) || IsExpanded(node));
    }
    if (open) {
      node = node->FirstChild;
      depth++;
      continue;
    }
    while (node != row && !node->Next) {
      node = node->Parent;
      depth--;
    }
    if (node == row) break;
    node = node->Next;
  }
}
