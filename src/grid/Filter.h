// Filtering: TNodeFilter, the node level, and TGridFilter, the grid level.
//
// TGridFilter compiles the cells of the filter rows into at most 50
// conditions, row by row and column by column; a row that fails one gets
// FFiltered and stays in the tree.
#pragma once
#include "grid/Group.h"

class TNodeFilter : public TNodeSort {
public:
};

// One compiled filter condition.
struct TFilterCell {
  static const int MaxFilterString = 255;
  static const int MaxValues = 20;
  static const int AreaBytes = 1024;
  int Col;        // name index of the column
  int ValueCol;   // index of <column>FilterValue, not created
  int Operator;   // value of <column>Filter; 0 no condition
  unsigned char IsString;
  int Flags;      // for CopySortString: 2 locale, 4 not case sensitive, 8 white chars
  const int* White;
  const unsigned short* Codes;
  const unsigned long long* Locale;
  int Row;           // position of the filter row in FilterRows
  int CanFilterCol;  // index of <column>CanFilter if the column's CanFilter is 2, else -1
  int Count;         // text: number of values; number: doubles of the range list
  union {
    wchar_t Text[AreaBytes / sizeof(wchar_t)];
    double Numbers[AreaBytes / sizeof(double)];
  } Value;
  int Offsets[MaxValues];  // text: position of each value in Value.Text
};

class TGridFilter : public TGridGroup {
public:
  static const int MaxFilterCells = 50;

  TGridFilter();
  ~TGridFilter();
  bool UpdateFilter() override;
  void Filter();
  void ClearFilters();

  TFilterCell FilterCells[MaxFilterCells];
  int FilterCount;
};
