// Formulas: TNodeCalc, the node level and the one class of node made at run
// time, and TGridCalc, the grid level.
//
// TGridCalc keeps compiled code per distinct formula text and compiled
// calculation orders per distinct order text; a node holds only a one-byte
// index into these tables. Entry 0 of both is taken at construction, so
// that index 0 means none. A formula or an order beyond the fixed limits
// below is refused like a syntax error: nothing runs and cells keep their
// values. A row's formulas run in its order, children before parents.
//
// TNodeCalc::Calculate runs compiled code for one cell of this row and
// stores the result in the cell; it allocates nothing: a fixed operand
// stack, the caller's arena for joined texts, pointers into code and records.
#pragma once
#include "grid/Filter.h"

// Opcodes of compiled formulas.
enum {
  OpEnd = 0, OpNumber = 6, OpString = 7, OpBinary = 8, OpUnary = 9, OpChoose = 10, OpArgument = 11,
  OpCell = 16, OpRowCell = 17, OpParentCell = 18, OpAggregate = 32, OpAggregateArgs = 33
};

class TNodeCalc : public TNodeFilter {
public:
  static const int StackSize = 256;
  static const int ArenaBytes = 32768;

  // Runs code for this row and stores the result in attribute col. Stores
  // nothing when the code fails: too short a stack, an undefined value (~),
  // or joined texts that outgrow the arena of arenaSize bytes.
  void Calculate(int col, const char* code, char* arena, int arenaSize = ArenaBytes);
  // Folds column col of the unfiltered children (through AggChildren rows)
  // into start by function func (1 sum ... 8 min); beyond +-1e300 gives 0.
  double AggCalc(int col, int aggChildrenCol, int func, double start);
  // The aggregate of an OpAggregate: over the children, or for a childless
  // row outside groups over the whole body.
  double Aggregate(int col, int func);
  // Bytes of compiled code up to and with its OpEnd.
  static int CodeLength(const char* code);

private:
  // GetString(col) is empty, read without the scratch ring.
  bool IsEmptyText(int col) const;
};

class TGridCalc : public TGridFilter {
public:
  static const int OperatorCount = 128;
  static const int FuncCount = 8;
  static const wchar_t* const FuncNames[FuncCount];
  static const int FuncNameLengths[FuncCount];
  static const int FuncDefParams[FuncCount];
  static const int MaxCode = 1024;         // bytes of one compiled formula
  static const int MaxPending = 256;       // pending operators while compiling
  static const int MaxOrderText = 1023;    // characters of an order text
  static const int MaxOrderInts = 1024;    // integers of a compiled order

  TGridCalc();
  ~TGridCalc();
  void InitCalc() override;

  // Compiles text into code (at most size bytes); the length with the end
  // byte, or 0 for a syntax error or a formula beyond the limits. text is
  // written to while it runs; a failure inside Get leaves it cut there.
  int ParseFormula(wchar_t* text, char* code, int size = MaxCode);
  // Compiled code of text, compiled on first use; the index goes to attr of
  // node either way. Null after a syntax error.
  char* SetFormula(TNode* node, wchar_t* text, int attr);
  // The code node runs for attr (its index byte) and textAttr (its text),
  // from the node or its Base; null for none.
  char* GetFormula(TNode* node, int attr, int textAttr);

  // Four integers per name (target, index attribute, text attribute, column
  // position), then 0; returns the bytes written. order holds MaxOrderInts.
  int ParseCalcOrder(const wchar_t* text, int* order, bool calculated);
  int* SetCalcOrder(TNode* node, const wchar_t* text);
  int* GetCalcOrder(TNode* node);
  // Appends to the list ending at end (text before limit; no limit when
  // null) an attribute per aggregate call of formula and gives it its own
  // formula on node; col is the column the formula belongs to.
  void AddAggCalcOrderFormula(TNode* node, wchar_t* order, const wchar_t* formula, wchar_t*& end, int col,
                              const wchar_t* limit = nullptr);
  // The same for the formulas of all columns in order (MaxOrderText + 1 cells).
  void AddAggCalcOrder(TNode* node, wchar_t* order);
  void FixedAggCalcOrder();

  void CalcRow(TNode* row);
  void CalcChildren(TNode* parent);
  void CalcPages();
  // Bits: 16 all descendants, 8 (without 16) the children, 1 the row, 2 or 4
  // the ancestors up to the page (4 all, 2 the Calculated ones) and the page.
  void RecalcRow(TNode* row, int mask);

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
  // Order text of the columns whose formula (per cell on node, or of the
  // column definition) isn't empty.
  std::wstring FormulaColumns(TNode* node, bool perCell);
  // Order of a solid row from #CalcOrder, CalcOrder or Cells; null if none.
  int* SolidCalcOrder(TNode* row);
  // Adds the aggregates of row's formulas in order to AggNode's list.
  void AddFixedAggregates(TNode* row, const int* order, wchar_t* list, wchar_t*& end);
  int* StoreCalcOrder(int index, const wchar_t* text, bool calculated);
};
