// Grouping: TGridGroup puts rows with equal values of up to 32 columns under
// generated rows and takes them apart again. Its fields are the cache between
// requests: the group columns in force, outermost first.
#pragma once
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
  void Group();
  void ClearGroup();

  int NextGroupId;     // number of the next generated row
  int MaxGroupLength;  // below 1 read as no limit
  int GroupIndex;      // GetSpecIndex of the attribute Group, set by InitGroup
  int GroupCount;
  int GroupCols[MaxGroupLevels];  // name index of each level's column
};
