// Filtering: TNodeFilter, the node level, and TGridFilter, the grid level.
//
// TGridFilter compiles the cells of the filter rows into at most 50
// conditions, row by row and column by column, and keeps them between
// requests so that an unchanged filter is not run again. TNodeFilter walks
// the rows and sets FFiltered on each row that fails a condition; the row
// stays in the tree. The row loop reads only what the cells hold: no name
// lookup and no parsing of filter values.
#pragma once
#include "grid/Group.h"

// One compiled filter condition.
struct TFilterCell {
  static const int MaxFilterString = 255;
  static const int MaxValues = 20;
  static const int AreaBytes = 1024;
  static const int MaxNumbers = 40;  // low and high limit of 20 ranges
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

class TNodeFilter : public TNodeSort {
public:
  // Sets or clears FFiltered on the children of this row and below: a row
  // with bit 1 of CanFilter must pass every cell; one with bit 2 and
  // children shows as long as one child shows. canFilterCol: CanFilter.
  // rows, when given, are this node's children in order, walked instead of
  // the links.
  void Filter(TFilterCell* cells, int count, int canFilterCol, const std::vector<TNode*>* rows = nullptr);
};

class TGridFilter : public TGridGroup {
public:
  static const int MaxFilterCells = 50;
  static const int MaxRangeText = 1023;

  TGridFilter();
  ~TGridFilter();
  // Compiles the filter rows into the cells; true if anything changed.
  bool UpdateFilter() override;
  // Runs the cells over all root rows, which lie under the first page.
  void Filter(const std::vector<TNode*>* rows = nullptr);
  // Removes each column's value and operator from the filter rows.
  void ClearFilters();

  TFilterCell FilterCells[MaxFilterCells];
  int FilterCount;

private:
  struct TSeparators;
  // Brings cell up to date with one condition; true if it changed.
  bool UpdateCell(TFilterCell& cell, bool existed, TNode* row, TNode* column, const wchar_t* name, int op,
                  const TSeparators& separators);
  bool UpdateNumber(TFilterCell& cell, bool existed, TNode* row, int col, int op);
  bool UpdateRange(TFilterCell& cell, bool existed, TNode* row, int col, int op, const TSeparators& separators);
  bool UpdateText(TFilterCell& cell, bool existed, TNode* row, TNode* column, const wchar_t* name, int col, int op,
                  bool list, const TSeparators& separators);
  // Stores the text values in normal form, with the cell's flags and tables.
  void StoreTexts(TFilterCell& cell, TNode* row, TNode* column, const wchar_t* name, const wchar_t* const* items,
                  int count);
};
