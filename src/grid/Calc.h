// Formulas: TNodeCalc, the node level and the one class of node made at run
// time, and TGridCalc, the grid level.
#pragma once
#include "grid/Filter.h"

class TNodeCalc : public TNodeFilter {
public:
};

class TGridCalc : public TGridFilter {
public:
  TGridCalc();
  ~TGridCalc();
  void InitCalc() override;
};
