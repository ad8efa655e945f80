#include "grid/Calc.h"

TGridCalc::TGridCalc() {}
TGridCalc::~TGridCalc() {}
void TGridCalc::InitCalc() {}
