#include "grid/Calc.h"
#include <cstring>

TGridCalc::TGridCalc()
    : FormulaTable(1023), CalcOrderTable(255), SpareTable(255), CalcOrderIndex(-1), CalcOrderTextIndex(-1),
      CalculatedIndex(-1), AggNode(nullptr) {
  FillOperatorPriority();
  FormulaTable.Get(L"-", 1);
  CalcOrderTable.Get(L"-", 1);
}

TGridCalc::~TGridCalc() {
  if (AggNode) TNode::Delete(AggNode);
}

void TGridCalc::InitCalc() {}

// Tokens are characters; two-character operators are folded into the codes
// [ ] @ { } and negation into #. 0 ends the text, 1 to 30 are functions.
void TGridCalc::FillOperatorPriority() {
  memset(OperatorPriority, 0, sizeof OperatorPriority);
  static const struct {
    const char* tokens;
    signed char priority;
  } table[] = {{"#!~", 15}, {"*/%", 13}, {"+-", 12}, {"<>[]", 10}, {"=@", 9}, {"&", 8},
               {"^", 7},    {"|", 6},    {"{", 5},   {"}", 4},     {"?:", 3}, {",", 2}};
  OperatorPriority[0] = 1;
  for (int token = 1; token <= 30; token++) OperatorPriority[token] = 16;
  for (const auto& row : table)
    for (const char* c = row.tokens; *c; c++) OperatorPriority[(unsigned char)*c] = row.priority;
}

void TGridCalc::CalcChildren(TNode*) {}
void TGridCalc::CalcPages() {}
