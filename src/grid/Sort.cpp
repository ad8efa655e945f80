#include "grid/Sort.h"

TGridSort::TGridSort() : WhiteCharsCache(255), CharCodesCache(255), SortCount(0), SortCols(), SortTypes() {}
TGridSort::~TGridSort() {}
bool TGridSort::UpdateSort() { return false; }

void TGridSort::Sort() {}
void TGridSort::ClearSort() {}
int* TGridSort::GetWhiteChars(const wchar_t*) { return nullptr; }
unsigned short* TGridSort::GetCharCodes(const wchar_t*) { return nullptr; }
void TNodeSort::Sort(int*, int*, int**, unsigned short**, int, void*, TSortIndexes*, bool) {}
int Compare(const void*, const void*) { return 0; }
int CmpStr(const wchar_t*, const wchar_t*, const void*) { return 0; }
void CopySortString(wchar_t* dest, const wchar_t*, int, int, const void*, const int*, const unsigned short*) { *dest = 0; }
