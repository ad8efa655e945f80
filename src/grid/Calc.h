// Formulas: TNodeCalc, the node level and the one class of node made at run
// time, and TGridCalc, the grid level.
//
// TGridCalc keeps compiled code per distinct formula text and compiled
// calculation orders per distinct order text; a node holds only a one-byte
// index into these tables. Entry 0 of both is taken at construction, so
// that index 0 means none.
#pragma once
#include "grid/Filter.h"

class TNodeCalc : public TNodeFilter {
public:
};

class TGridCalc : public TGridFilter {
public:
  static const int OperatorCount = 128;

  TGridCalc();
  ~TGridCalc();
  void InitCalc() override;
  void CalcChildren(TNode* parent);
  void CalcPages();

  signed char OperatorPriority[OperatorCount];  // by token; 0: no operator
  THashtable FormulaTable;    // formula text -> compiled code
  THashtable CalcOrderTable;  // order text -> compiled order
  THashtable SpareTable;      // kept with the others, used by nothing
  int CalcOrderIndex;         // #CalcOrder
  int CalcOrderTextIndex;     // CalcOrder
  int CalculatedIndex;        // Calculated
  TNode* AggNode;             // owned page template of the fixed rows' aggregates

private:
  void FillOperatorPriority();
};
