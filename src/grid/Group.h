// Grouping: TGridGroup puts rows with equal values under generated rows.
#pragma once
#include "grid/Sort.h"

class TGridGroup : public TGridSort {
public:
  TGridGroup();
  ~TGridGroup();
  void InitGroup() override;
  bool UpdateGroup() override;
};
