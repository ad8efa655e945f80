// Grouping: TGridGroup puts rows with equal values of up to 32 columns under
// generated rows and takes them apart again. Its fields are the cache between
// requests: the group columns in force, outermost first.
//
// Generated rows are I elements whose Def is a group definition (a default
// with Group non-zero); that test alone tells them from data rows. Data rows
// are only relinked, never copied, and keep their ids. Group first ungroups
// the whole body, so each grouping starts from the ungrouped tree.
#pragma once
#include <string>
#include <vector>

#include "grid/Sort.h"

// One edit column of the generated rows of one level.
struct TEditCol {
  static const int TextLength = 64;
  int Col;      // name index of the column copied from the first child
  int CanEdit;  // GetSpecIndex of <name>CanEdit
  int CopyTo;   // GetSpecIndex of <name>CopyTo
  wchar_t Text[TextLength];  // "Children," and the column's name
};

class TGridGroup : public TGridSort {
public:
  static const int MaxGroupLevels = 32;
  static const int MaxEditCols = 128;

  TGridGroup();
  ~TGridGroup();
  void InitGroup() override;
  bool UpdateGroup() override;
  // Rebuilds all generated rows by the columns UpdateGroup left.
  void Group();
  // Builds one level of generated rows under parent, and under the rows that
  // stay in place (group rows of earlier levels, rows with CanGroup 0).
  void GroupBy(TNode* parent, int col, TNode* def, TEditCol* editCols, int count);
  // Restores what grouping changed on Cfg and the first page, then removes
  // all generated rows.
  void Ungroup();
  // Removes the generated rows among parent's children, and among the
  // children of each of its other children.
  void Ungroup(TNode* parent);
  void ClearGroup();

  int NextGroupId;     // number of the next generated row
  int MaxGroupLength;  // below 1 read as no limit
  int GroupIndex;      // GetSpecIndex of the attribute Group, set by InitGroup
  int GroupCount;
  int GroupCols[MaxGroupLevels];  // name index of each level's column
  // Owns the lone group rows that a parent gave up: they stay out of the
  // body but still answer to their ids, until a later group row takes the
  // id over or the grid ends. Null until the first one.
  TNode* DetachedRows;

private:
  struct TLevel;
  struct TWalk;

  void CollectCandidates(std::vector<TNode*>& candidates);
  bool ChooseMainCol(const std::vector<TNode*>& candidates);
  bool FirstColumnName(std::wstring& name);
  TNode* ChooseDef(const std::vector<TNode*>& candidates, const wchar_t* colName);
  int BuildEditCols(TNode* def, int col, const wchar_t* colName, TEditCol* editCols);
  void ReclaimDetached();

  bool PrepareLevel(TLevel& level, int col, TNode* def, TEditCol* editCols, int count);
  void BeginWalk(TLevel& level, TWalk& walk, TNode* parent);
  void PlaceRow(TLevel& level, TWalk& walk, TNode* row);
  void EndWalk(const TLevel& level, TWalk& walk);
  const wchar_t* RowText(TLevel& level, TNode* row);
  void HideIfAllFiltered(const TLevel& level, TWalk& walk);
  void DissolveSole(TWalk& walk);
  void DetachSingle(TWalk& walk);
  TNode* MakeGroupRow(const TLevel& level, const TWalk& walk, TNode* first);
  void MarkAncestors(TNode* row, TNode* parent);
  void CopyRelated(const TLevel& level, TNode* row, TNode* first);
};
