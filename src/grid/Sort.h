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

struct TSortIndexes;

class TNodeSort : public TNodeXml {
public:
  // Sorts this row's children (and with recursive, every descendant's first);
  // types are the per-column sort flags and are rewritten for each parent.
  // rows, when given, are this row's children in order: walked instead of
  // the links and left in the new order.
  void Sort(int* cols, int* types, int** white, unsigned short** codes, int count, void* locale,
            TSortIndexes* indexes, bool recursive, std::vector<TNode*>* rows = nullptr);
  // The same through qsort over every record alone: the order Sort must
  // match, kept to check it against.
  void SortPlain(int* cols, int* types, int** white, unsigned short** codes, int count, void* locale,
                 TSortIndexes* indexes, bool recursive);
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

// qsort comparison over an array of pointers to TSortNode.
int Compare(const void* a, const void* b);
// Locale comparison of two whole strings through a collation table.
int CmpStr(const wchar_t* a, const wchar_t* b, const void* table);
// Builds a sort text of at most max units into dest (max + 1 cells).
void CopySortString(wchar_t* dest, const wchar_t* src, int max, int flags, const void* locale, const int* white,
                    const unsigned short* codes);

class TGridSort : public TGridLoad {
public:
  static const int MaxSortCols = 3;

  TGridSort();
  ~TGridSort();
  bool UpdateSort() override;
  // rows as in TNodeSort::Sort, for the body's single page.
  void Sort(std::vector<TNode*>* rows = nullptr);
  // Sort through plain qsort, the order Sort must match; kept to check it.
  void SortPlain();
  void ClearSort();
  int* GetWhiteChars(const wchar_t* chars);
  unsigned short* GetCharCodes(const wchar_t* codes);

  THashtable WhiteCharsCache;
  THashtable CharCodesCache;
  int SortCount;
  int SortCols[MaxSortCols];   // name index of each sort column
  int SortTypes[MaxSortCols];  // 1 where that column is descending

private:
  // Sort flags of sort column i from its column row, with its white set and
  // char-code table (null where it has none).
  int ColumnFlags(int i, int*& white, unsigned short*& codes);
  void FillIndexes(TSortIndexes& indexes);
  void SortBody(bool plain, std::vector<TNode*>* rows);
};
