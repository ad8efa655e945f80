// Sorting: TNodeSort, the node level, and TGridSort, the grid level.
//
// TGridSort keeps what the body is sorted by now (at most three columns,
// each ascending or descending) as the cache between requests, and the
// per-grid caches of WhiteChars bit sets and CharCodes tables, keyed by text.
#pragma once
#include "grid/Load.h"
#include "tree/Xml.h"

// Sort flags, one byte per sort column.
enum {
  SortDesc = 1,
  SortLocale = 2,
  SortNoCase = 4,
  SortWhite = 8,
  SortString = 32,
  SortColString = 64
};

class TNodeSort : public TNodeXml {
public:
};

// Indexes of the row attributes a sort reads, looked up once per sort and
// never created.
struct TSortIndexes {
  static const int MaxCols = 3;
  int CanSort;
  int SortValue[MaxCols];
  int SortDescValue[MaxCols];
  int NumberSort[MaxCols];
};

// The key record of one row; self-contained, so the comparison needs no
// other context.
struct TSortNode {
  static const int MaxCols = 3;
  static const int TextLength = 20;  // sort text with its terminator
  TNode* Node;
  int Key[MaxCols];
  unsigned char Type[MaxCols];  // top bit: compared as text
  unsigned char Flags[MaxCols];
  unsigned char Count;
  union {
    double Number;
    wchar_t Text[TextLength];
  } Value[MaxCols];
  const wchar_t* Full[MaxCols];
  const unsigned long long* Locale;
};

class TGridSort : public TGridLoad {
public:
  static const int MaxSortCols = 3;

  TGridSort();
  ~TGridSort();
  bool UpdateSort() override;

  THashtable WhiteCharsCache;
  THashtable CharCodesCache;
  int SortCount;
  int SortCols[MaxSortCols];   // name index of each sort column
  int SortTypes[MaxSortCols];  // 1 where that column is descending
};
