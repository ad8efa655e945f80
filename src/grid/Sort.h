// Sorting: TNodeSort, the node level, and TGridSort, the grid level.
#pragma once
#include "grid/Load.h"
#include "tree/Xml.h"

class TNodeSort : public TNodeXml {
public:
};

class TGridSort : public TGridLoad {
public:
  TGridSort();
  ~TGridSort();
  bool UpdateSort() override;
};
