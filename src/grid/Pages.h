// TGridPages: cuts the body's root rows into pages and names them.
#pragma once
#include "grid/Calc.h"

class TGridPages : public TGridCalc {
public:
  void RemovePages() override;
};
