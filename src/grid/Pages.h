// TGridPages: cuts the body's root rows into pages and names them.
#pragma once
#include "grid/Calc.h"

class TGridPages : public TGridCalc {
public:
  void RemovePages() override;
  void CreatePages();
  void SetPageNames();
  // Up to three names for one edge of a page: side 0 its first row, 1 its last.
  void GetPageNames(TNode* page, const wchar_t** names, int side, int* valueIndexes);
  // The row's <column>PageNameValue, or its formatted value of the column.
  const wchar_t* GetPageString(TNode* row, int col, int valueIndex);
};
