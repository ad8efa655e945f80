// Filtering: TNodeFilter, the node level, and TGridFilter, the grid level.
#pragma once
#include "grid/Group.h"

class TNodeFilter : public TNodeSort {
public:
};

class TGridFilter : public TGridGroup {
public:
  TGridFilter();
  ~TGridFilter();
  bool UpdateFilter() override;
};
