#include "grid/Calc.h"
#include <cctype>
#include <climits>
#include <cstring>
#include <string>

const wchar_t* const TGridCalc::FuncNames[FuncCount] = {L"sum",     L"sumsq", L"count", L"counta",
                                                         L"countblank", L"product", L"max",  L"min"};
const int TGridCalc::FuncNameLengths[FuncCount] = {3, 5, 5, 6, 10, 7, 3, 3};
const int TGridCalc::FuncDefParams[FuncCount] = {1, 1, 0, 1, 1, 1, 1, 1};

namespace {

bool IsBlank(wchar_t c) { return c >= 1 && c <= 32; }
bool IsNameChar(wchar_t c) {
  return (c >= L'0' && c <= L'9') || (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z') || c == L'_';
}
const wchar_t* SkipBlanks(const wchar_t* p) {
  while (IsBlank(*p)) p++;
  return p;
}
wchar_t* SkipBlanks(wchar_t* p) {
  while (IsBlank(*p)) p++;
  return p;
}

// Code being written; any write past its size fails the whole compilation.
struct TCodeWriter {
  char* Code;
  int Size;
  int Pos = 0;
  bool Ok = true;
  TCodeWriter(char* code, int size) : Code(code), Size(size) {}
  void Bytes(const void* data, int n) {
    if (!Ok || n > Size - Pos) {
      Ok = false;
      return;
    }
    memcpy(Code + Pos, data, n);
    Pos += n;
  }
  void Byte(int b) {
    char c = (char)b;
    Bytes(&c, 1);
  }
  void Int(int v) { Bytes(&v, 4); }
  void Op(int op, int token) { Byte(op), Byte(token); }
  // Emits a pending operator token.
  void Token(int t) {
    if (t == '!' || t == '#' || t == '~') Op(OpUnary, t);
    else if (t == ',') Op(OpArgument, ',');
    else if (t == ':') Op(OpChoose, '?');
    else if (t >= 0 && t <= 15) Op(OpAggregate, t);
    else if (t >= 16 && t <= 31) Op(OpAggregateArgs, t - 16);
    else if (t != '?') Op(OpBinary, t);
  }
};

// The character behind a name is put back from its low 8 bits only: any
// character above 127 there fails the formula anyway.
void PutBack(wchar_t* at, wchar_t saved) { *at = (wchar_t)(signed char)(saved & 0xFF); }

}  // namespace

// ---- compiler ----

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

void TGridCalc::InitCalc() {
  CalcOrderIndex = Tree->GetIndex(L"#CalcOrder", 1);
  CalcOrderTextIndex = Tree->GetIndex(L"CalcOrder", 1);
  CalculatedIndex = Tree->GetIndex(L"Calculated", 1);
  Tree->AggChildrenIndex = Tree->GetIndex(L"AggChildren", 0);
  FixedAggCalcOrder();
}

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

// An operator-priority parser without a parse tree: operands are emitted as
// read, operators wait on a stack with the nesting level they were read at.
int TGridCalc::ParseFormula(wchar_t* text, char* code, int size) {
  TCodeWriter out(code, size);
  unsigned char tokens[MaxPending];
  int levels[MaxPending];
  int top = 0, level = 0;
  bool operand = true;
  wchar_t* p = text;
  for (;;) {
    if (!out.Ok) return 0;
    p = SkipBlanks(p);
    wchar_t c = *p;
    if (c >= 0 && c < OperatorCount && OperatorPriority[c]) {
      if (c == L'-' && operand) c = L'#';
      else if ((c == L'=' || c == L'!' || c == L'<' || c == L'>') && p[1] == L'=')
        p++, c = c == L'=' ? L'=' : c == L'!' ? L'@' : c == L'<' ? L'[' : L']';
      else if (c == L'&' && p[1] == L'&') p++, c = L'{';
      else if (c == L'|' && p[1] == L'|') p++, c = L'}';
      int priority = OperatorPriority[c];
      while (top > 0 && ((levels[top - 1] == level && OperatorPriority[tokens[top - 1]] >= priority) ||
                         levels[top - 1] > level))
        out.Token(tokens[--top]);
      if (!c) {
        out.Byte(OpEnd);
        return out.Ok && level == 0 ? out.Pos : 0;
      }
      if (top == MaxPending) return 0;
      p++;
      tokens[top] = (unsigned char)c, levels[top++] = level;
      operand = true;
      continue;
    }
    if (c == L'(' || c == L')') {
      level += c == L'(' ? 1 : -1;
      // The level is kept in a signed byte; deeper nesting is refused.
      if (level > SCHAR_MAX || level < SCHAR_MIN) return 0;
      p++;
      operand = c == L'(';
      continue;
    }
    if (c == L'"' || c == L'\'') {
      wchar_t* close = wcschr(p + 1, c);
      if (!close) return 0;
      int n = (int)(close - p - 1);
      if (n > (size - out.Pos) / 4) return 0;
      out.Byte(OpString);
      out.Int(n * 4 + 8);
      out.Bytes(p + 1, n * 4);
      out.Int(0);
      p = close + 1;
      operand = false;
      continue;
    }
    if (c >= L'0' && c <= L'9') {
      double value = wcstod(p, nullptr);
      out.Byte(OpNumber);
      out.Bytes(&value, 8);
      for (; (*p >= L'0' && *p <= L'9') || *p == L'e' || *p == L'E' || *p == L'.'; p++)
        if ((*p == L'e' || *p == L'E') && (p[1] == L'+' || p[1] == L'-')) p++;
      operand = false;
      continue;
    }
    wchar_t* name = p;
    while (IsNameChar(*p)) p++;
    wchar_t* nameEnd = p;
    p = SkipBlanks(p);
    bool call = *p == L'(';
    if (!call && nameEnd == name) return 0;
    wchar_t saved = *nameEnd;
    *nameEnd = 0;
    if (!call) {
      out.Byte(OpCell);
      out.Int(Tree->GetIndex(name, 1));
    } else if (!wcscmp(name, L"Get")) {
      // A failure in here leaves the text cut behind the word Get.
      wchar_t* id = p = SkipBlanks(p + 1);
      while (IsNameChar(*p)) p++;
      wchar_t* idEnd = p;
      p = SkipBlanks(p);
      if (*p != L',') return 0;
      p = SkipBlanks(p + 1);
      if (*p != L'"' && *p != L'\'') return 0;
      wchar_t* column = p + 1;
      wchar_t* close = wcschr(column, *p);
      if (!close) return 0;
      *close = 0;
      int col = Tree->GetIndex(column, 1);
      *close = *p;
      wchar_t idSaved = *idEnd;
      *idEnd = 0;
      bool parent = !wcscmp(id, L"Parent");
      int idIndex = parent ? 0 : Tree->GetIdIndex(id, 1);
      PutBack(idEnd, idSaved);
      if (parent) out.Byte(OpParentCell);
      else out.Byte(OpRowCell), out.Int(idIndex);
      out.Int(col);
      wchar_t* right = wcschr(close + 1, L')');
      p = right ? right + 1 : close + 1 + wcslen(close + 1);
    } else {
      bool arguments = *SkipBlanks(p + 1) != L')';
      int token = 0;
      for (int i = 0; i < FuncCount && !token; i++)
        if (!wcscmp(name, FuncNames[i])) token = i + 1;
      if (top == MaxPending) return 0;
      tokens[top] = (unsigned char)(token + (arguments ? 16 : 0)), levels[top++] = level;
    }
    PutBack(nameEnd, saved);
    operand = false;
  }
}

char* TGridCalc::SetFormula(TNode* node, wchar_t* text, int attr) {
  int index = FormulaTable.Get(text, 1);
  if (index < 0) return nullptr;
  if (!FormulaTable.GetValue(index)) {
    char code[MaxCode];
    int length = ParseFormula(text, code, MaxCode);
    if (length) FormulaTable.SetValue(index, code, length);
  }
  node->SetByte(attr, index);
  return (char*)FormulaTable.GetValue(index);
}

// The index byte reads back signed: indexes from 128 give no code here, so
// such a formula runs only at the call that stored it.
char* TGridCalc::GetFormula(TNode* node, int attr, int textAttr) {
  if (!node) return nullptr;
  int index = node->GetIntBase(attr);
  if (index) return (char*)FormulaTable.GetValue(index);
  const wchar_t* text = node->GetStringBase(textAttr);
  TData* base = node->Base;
  if (!*text && base) {
    index = base->GetIntBase(attr);
    if (index) return (char*)FormulaTable.GetValue(index);
    text = base->GetStringBase(textAttr);
  }
  if (!*text) return nullptr;
  // Compiling writes into its text: a copy keeps the record's own intact.
  std::wstring copy = text;
  return SetFormula(node, &copy[0], attr);
}

// ---- evaluator ----

namespace {

// One operand. A string points at text that may lie unaligned in the code or
// in a record; Undefined is the number that ~ leaves, unknown by design.
struct TValue {
  enum { Undefined = 0, Number = TDouble, Text = TString };
  unsigned char Type;
  double Value;
  const unsigned char* Chars;
};

// Processor truncation toward zero: out of range and NaN give INT_MIN.
int ToInt(double d) { return d > -2147483649.0 && d < 2147483648.0 ? (int)d : INT_MIN; }

// One run of compiled code over one row.
class TEvaluator {
public:
  TEvaluator(TNodeCalc* row, int col, const char* code, char* arena, int arenaSize)
      : Row(row), Col(col), P(code), End(code + TNodeCalc::CodeLength(code)), Arena(arena), ArenaEnd(arena + arenaSize) {}
  // False when the code fails; else Result holds the top of the stack.
  bool Run();
  TValue Result;

private:
  TNodeCalc* Row;
  int Col;
  const char* P;
  const char* End;
  char* Arena;
  char* ArenaEnd;
  TValue Stack[TNodeCalc::StackSize];
  int Top = 0;
  int Arguments = 0;
  int LastType = 0;
  const unsigned char* LastPointer = nullptr;

  bool Has(int n) const { return End - P >= n; }
  int ReadInt() {
    int v;
    memcpy(&v, P, 4);
    P += 4;
    return v;
  }
  bool Push(const TValue& v) {
    if (Top == TNodeCalc::StackSize) return false;
    Stack[Top++] = v;
    return true;
  }
  bool PushNumber(double d) { return Push(TValue{TValue::Number, d, nullptr}); }
  bool Step(int op);
  bool PushCell(TNode* node, int attr);
  bool PushLast();
  bool RowCell();
  bool Unary(int token);
  bool Binary(int token);
  bool Choose();
  bool AggregateArgs(int func);
  double Number(const TValue& v);
  bool Join(const TValue& left, const TValue& right);
  // Text of a value for joining: the characters and their count.
  const unsigned char* TextOf(const TValue& v, wchar_t* buffer, int& length);
};

bool TEvaluator::Run() {
  while (Has(1)) {
    int op = (unsigned char)*P++;
    if (op == OpEnd) break;
    if (!Step(op)) return false;
  }
  if (!Top || Stack[Top - 1].Type == TValue::Undefined) return false;
  Result = Stack[Top - 1];
  return true;
}

bool TEvaluator::Step(int op) {
  switch (op) {
    case OpNumber: {
      if (!Has(8)) return false;
      double d;
      memcpy(&d, P, 8);
      P += 8;
      return PushNumber(d);
    }
    case OpString: {
      if (!Has(4)) return false;
      int length;
      memcpy(&length, P, 4);
      // The characters and their terminator must lie inside the code.
      if (length < 8 || (length & 3) || !Has(length)) return false;
      const unsigned char* chars = (const unsigned char*)P + 4;
      if (memcmp(chars + length - 8, "\0\0\0\0", 4)) return false;
      P += length;
      return Push(TValue{TValue::Text, 0, chars});
    }
    case OpCell:
      if (!Has(4)) return false;
      return PushCell(Row, ReadInt());
    case OpParentCell:
      if (!Has(4)) return false;
      return PushCell(Row->Parent, ReadInt());
    case OpRowCell: return RowCell();
    case OpUnary: return Has(1) && Unary((unsigned char)*P++);
    case OpBinary: return Has(1) && Binary((unsigned char)*P++);
    case OpChoose: return Has(1) && (P++, Choose());
    case OpArgument:
      if (!Has(1)) return false;
      P++;
      Arguments++;
      return true;
    case OpAggregate:
      if (!Has(1)) return false;
      return PushNumber(Row->Aggregate(Col, (unsigned char)*P++));
    case OpAggregateArgs: return Has(1) && AggregateArgs((unsigned char)*P++);
  }
  // Bytes with 16 set occur only after a reference to a missing row.
  if (op & 16) return PushLast();
  return true;
}

bool TEvaluator::PushCell(TNode* node, int attr) {
  LastType = 0;
  LastPointer = nullptr;
  unsigned char* pointer = nullptr;
  if (node) LastType = node->GetType(attr, pointer);
  LastPointer = pointer;
  return PushLast();
}

bool TEvaluator::PushLast() {
  const unsigned char* p = LastPointer;
  switch (LastType) {
    case TByte: return PushNumber((signed char)*p);
    case TInt: {
      int v;
      memcpy(&v, p, 4);
      return PushNumber(v);
    }
    case TDouble: {
      double d;
      memcpy(&d, p, 8);
      return PushNumber(d);
    }
    case TString: return Push(TValue{TValue::Text, 0, p});
  }
  return PushNumber(0);
}

// A row missing from the id table pushes nothing, and the column operand
// behind is read as code: the formula's result is what stood before.
bool TEvaluator::RowCell() {
  if (!Has(8)) return false;
  // Both operands are read first: an unknown row must not leave its column
  // index behind to be run as code.
  TNode* node = Row->Tree->Ids.GetNode(ReadInt());
  int col = ReadInt();
  if (!node) return true;
  return PushCell(node, col);
}

double TEvaluator::Number(const TValue& v) {
  if (v.Type != TValue::Text) return v.Value;
  if (((uintptr_t)v.Chars & (sizeof(wchar_t) - 1)) == 0) return wcstod((const wchar_t*)v.Chars, nullptr);
  return wcstod(Row->StringAt(v.Chars), nullptr);
}

bool TEvaluator::Unary(int token) {
  if (Top < 1) return false;
  TValue& v = Stack[Top - 1];
  if (token == '~' || v.Type == TValue::Undefined) {
    v = TValue{TValue::Undefined, 0, nullptr};
    return true;
  }
  double d = Number(v);
  if (token == '#') d = -d;
  else if (token == '!') d = d == 0 ? 1 : 0;
  v = TValue{TValue::Number, d, nullptr};
  return true;
}

bool TEvaluator::Choose() {
  if (Top < 3) return false;
  Top -= 3;
  const TValue& condition = Stack[Top];
  if (condition.Type == TValue::Undefined) Stack[Top] = TValue{TValue::Undefined, 0, nullptr};
  else Stack[Top] = ToInt(Number(condition)) ? Stack[Top + 1] : Stack[Top + 2];
  Top++;
  return true;
}

bool TEvaluator::Binary(int token) {
  if (Top < 2) return false;
  TValue left = Stack[Top - 2], right = Stack[Top - 1];
  Top -= 2;
  if (left.Type == TValue::Undefined || right.Type == TValue::Undefined)
    return Push(TValue{TValue::Undefined, 0, nullptr});
  if (token == '+' && (left.Type == TValue::Text || right.Type == TValue::Text)) return Join(left, right);
  double a = Number(left), b = Number(right), r = 0;
  switch (token) {
    case '+': r = a + b; break;
    case '-': r = a - b; break;
    case '*': r = a * b; break;
    case '/': r = b == 0 ? 0 : a / b; break;
    case '%': {
      int d = ToInt(b), n = ToInt(a);
      // INT_MIN % -1 traps on the processor; its true remainder is 0.
      r = d == 0 || d == -1 ? 0 : n % d;
      break;
    }
    case '&': r = ToInt(a) & ToInt(b); break;
    case '|': r = ToInt(a) | ToInt(b); break;
    case '^': r = ToInt(a) ^ ToInt(b); break;
    case '{': r = ToInt(a) != 0 && ToInt(b) != 0; break;
    case '}': r = ToInt(a) != 0 || ToInt(b) != 0; break;
    case '>': r = a > b; break;
    case '<': r = a < b; break;
    case ']': r = a >= b; break;
    case '[': r = a <= b; break;
    case '=': r = a == b; break;
    case '@': r = !(a == b); break;
  }
  return PushNumber(r);
}

const unsigned char* TEvaluator::TextOf(const TValue& v, wchar_t* buffer, int& length) {
  if (v.Type == TValue::Text) {
    length = TData::StringLengthAt(v.Chars);
    return v.Chars;
  }
  length = (int)(TData::ToString(v.Value, buffer, Row->Tree ? Row->Tree->Precision : 10000) - buffer);
  return (const unsigned char*)buffer;
}

// Joined texts go to the arena, aligned, and stay there for the run.
bool TEvaluator::Join(const TValue& left, const TValue& right) {
  wchar_t leftNumber[64], rightNumber[64];
  int leftLength, rightLength;
  const unsigned char* a = TextOf(left, leftNumber, leftLength);
  const unsigned char* b = TextOf(right, rightNumber, rightLength);
  uintptr_t misalign = (uintptr_t)Arena & (sizeof(wchar_t) - 1);
  char* at = Arena + (misalign ? sizeof(wchar_t) - misalign : 0);
  size_t bytes = ((size_t)leftLength + rightLength + 1) * sizeof(wchar_t);
  if (at > ArenaEnd || bytes > (size_t)(ArenaEnd - at)) return false;
  memcpy(at, a, (size_t)leftLength * sizeof(wchar_t));
  memcpy(at + (size_t)leftLength * sizeof(wchar_t), b, (size_t)rightLength * sizeof(wchar_t));
  memset(at + bytes - sizeof(wchar_t), 0, sizeof(wchar_t));
  Arena = at + bytes;
  return Push(TValue{TValue::Text, 0, (const unsigned char*)at});
}

bool TEvaluator::AggregateArgs(int func) {
  if (Top < Arguments + 1) return false;
  Top -= Arguments + 1;
  Arguments = 0;
  const TValue& first = Stack[Top];
  int col = -1;
  if (first.Type == TValue::Text) {
    const wchar_t* name = ((uintptr_t)first.Chars & (sizeof(wchar_t) - 1)) == 0 ? (const wchar_t*)first.Chars
                                                                                 : Row->StringAt(first.Chars);
    col = Row->Tree->GetIndex(name, 0);
  }
  return PushNumber(Row->Aggregate(col, func));
}

}  // namespace

int TNodeCalc::CodeLength(const char* code) {
  const char* p = code;
  for (;;) {
    int op = (unsigned char)*p++;
    switch (op) {
      case OpEnd: return (int)(p - code);
      case OpNumber: p += 8; break;
      case OpString: {
        int length;
        memcpy(&length, p, 4);
        p += length;
        break;
      }
      case OpCell: case OpParentCell: p += 4; break;
      case OpRowCell: p += 8; break;
      default: p += 1; break;
    }
  }
}

void TNodeCalc::Calculate(int col, const char* code, char* arena, int arenaSize) {
  if (!code || !arena) return;
  try {
    TEvaluator run(this, col, code, arena, arenaSize);
    if (!run.Run()) return;
    const TValue& r = run.Result;
    if (r.Type == TValue::Number) {
      SetDouble(col, r.Value);
      return;
    }
    int length = StringLengthAt(r.Chars);
    // Text in this record would move while it is stored: copy it first.
    bool own = Values && r.Chars >= Values && r.Chars < Values + Capacity;
    if (!own && ((uintptr_t)r.Chars & (sizeof(wchar_t) - 1)) == 0) {
      SetString(col, (const wchar_t*)r.Chars, length);
      return;
    }
    std::wstring copy((size_t)length, L'\0');
    memcpy(&copy[0], r.Chars, (size_t)length * sizeof(wchar_t));
    SetString(col, copy.c_str(), length);
  } catch (...) {
    // A failed calculation leaves the cell as it was.
  }
}

// Start values of max and min lie beyond the clamp, so an empty fold gives 0.
double TNodeCalc::Aggregate(int col, int func) {
  double value = func == 6 ? 1 : func == 7 ? -1e300 : func == 8 ? 1e300 : 0;
  int aggChildren = Tree->AggChildrenIndex;
  if (FirstChild) return AggCalc(col, aggChildren, func, value);
  // A childless row at the top of a page or outside the body (Head, Foot)
  // takes the whole body; under a group row it keeps the start value.
  // sumsq goes on without a column where count stops: kept as it is.
  if ((Parent && !wcscmp(Parent->GetName(), L"I")) || (col < 0 && func != 2)) return value;
  TNode* body = Tree->Root ? Tree->Root->GetChildByName(L"Body", false) : nullptr;
  for (TNode* page = body ? body->FirstChild : nullptr; page; page = page->Next)
    value = static_cast<TNodeCalc*>(page)->AggCalc(col, aggChildren, func, value);
  return value;
}

double TNodeCalc::AggCalc(int col, int aggChildrenCol, int func, double start) {
  double v = start;
  ForSiblings(FirstChild, [&](TNode* node) {
    TNodeCalc* child = static_cast<TNodeCalc*>(node);
    if (child->Flags & FFiltered) return;
    if (child->GetInt(aggChildrenCol) != 0) {
      v = child->AggCalc(col, aggChildrenCol, func, v);
      return;
    }
    if (func == 3) v += 1;
    else if (func == 4) v += child->IsEmptyText(col) ? 0 : 1;
    else if (func == 5) v += child->IsEmptyText(col) ? 1 : 0;
    else if (func >= 1 && func <= 8) {
      double d = child->GetDouble(col);
      if (func == 1) v += d;
      else if (func == 2) v += d * d;
      else if (func == 6) v *= d;
      else if (func == 7 && d > v) v = d;
      else if (func == 8 && d < v) v = d;
    }
  });
  return v <= -1e300 || v >= 1e300 ? 0 : v;
}

// Numbers always have text; other types fall through to the Base, as
// GetString does.
bool TNodeCalc::IsEmptyText(int col) const {
  const TData* record = this;
  for (int level = 0; level < 2 && record; level++, record = record->Base) {
    unsigned char* p = nullptr;
    int type = record->GetTypeBase(col, p);
    if (type == TByte || type == TInt || type == TDouble) return false;
    if (type == TString) {
      wchar_t first;
      memcpy(&first, p, sizeof first);
      return first == 0;
    }
  }
  return true;
}

// ---- calculation order ----

// Refused (more names than MaxOrderInts holds): only the closing 0, so the
// row calculates nothing.
int TGridCalc::ParseCalcOrder(const wchar_t* text, int* order, bool calculated) {
  std::wstring work = text ? text : L"";
  int n = 0;
  wchar_t* state = nullptr;
  for (wchar_t* name = wcstok(&work[0], L",", &state); name; name = wcstok(nullptr, L",", &state)) {
    if (*name == L'*') continue;
    if (n + 5 > MaxOrderInts) {
      n = 0;
      break;
    }
    order[n++] = Tree->GetIndex(name, 1);
    if (calculated) {
      order[n++] = Tree->GetIndex(L"#Formula", name, 1);
      order[n++] = Tree->GetIndex(name, L"Formula", 1);
      order[n++] = 0;
    } else {
      order[n++] = Tree->GetIndex(L"#Formula", 1);
      order[n++] = Tree->GetIndex(L"Formula", 1);
      order[n++] = Cols.Get(name, 1);
    }
  }
  order[n++] = 0;
  return n * (int)sizeof(int);
}

int* TGridCalc::StoreCalcOrder(int index, const wchar_t* text, bool calculated) {
  if (index < 0) return nullptr;
  if (!CalcOrderTable.GetValue(index)) {
    int order[MaxOrderInts];
    // An order text beyond its limit is refused like a formula with an error.
    int size = wcslen(text) > (size_t)MaxOrderText ? (order[0] = 0, (int)sizeof(int))
                                                   : ParseCalcOrder(text, order, calculated);
    CalcOrderTable.SetValue(index, order, size);
  }
  return (int*)CalcOrderTable.GetValue(index);
}

int* TGridCalc::SetCalcOrder(TNode* node, const wchar_t* text) {
  bool calculated = node->GetInt(CalculatedIndex) != 0;
  // The text may lie in node's own record, which the steps below write.
  std::wstring copy = text;
  wchar_t buffer[MaxOrderText + 1];
  if (calculated && copy.size() <= (size_t)MaxOrderText) {
    wcscpy(buffer, copy.c_str());
    AddAggCalcOrder(node, buffer);
    copy = buffer;
  }
  int index = CalcOrderTable.Get(calculated ? L"" : L"*", copy.c_str(), 1);
  int* order = StoreCalcOrder(index, copy.c_str(), calculated);
  node->SetByte(CalcOrderIndex, index);
  return order;
}

int* TGridCalc::GetCalcOrder(TNode* node) {
  if (!node) return nullptr;
  int index = node->GetIntBase(CalcOrderIndex);
  if (index) return (int*)CalcOrderTable.GetValue(index);
  const wchar_t* text = node->GetStringBase(CalcOrderTextIndex);
  if (*text) return SetCalcOrder(node, text);
  if (TData* base = node->Base) {
    index = base->GetIntBase(CalcOrderIndex);
    if (index) return (int*)CalcOrderTable.GetValue(index);
    text = base->GetStringBase(CalcOrderTextIndex);
    if (*text) return SetCalcOrder(node, text);
  }
  if (node->GetInt(CalculatedIndex)) return SetCalcOrder(node, FormulaColumns(node, true).c_str());
  // A grid-wide order that only a document sets.
  index = Cfg->GetInt(CalcOrderIndex);
  if (index) {
    node->SetByte(CalcOrderIndex, index);
    return (int*)CalcOrderTable.GetValue(index);
  }
  return SetCalcOrder(node, FormulaColumns(node, false).c_str());
}

std::wstring TGridCalc::FormulaColumns(TNode* node, bool perCell) {
  std::wstring list;
  int formula = Tree->GetIndex(L"Formula", 0);
  for (int entry = 0; entry < Cols.GetCount(); entry++) {
    const wchar_t* name = Cols.GetKey(entry);
    TNode* column = Cols.GetNode(entry);
    if (!name) continue;
    bool has = perCell ? *node->GetString(name, L"Formula") : column && *column->GetString(formula);
    if (has) list += (list.empty() ? L"" : L",") + std::wstring(name);
  }
  return list;
}

void TGridCalc::AddAggCalcOrderFormula(TNode* node, wchar_t* order, const wchar_t* formula, wchar_t*& end,
                                       int col, const wchar_t* limit) {
  for (int i = 0; i < FuncCount; i++) {
    const wchar_t* func = FuncNames[i];
    for (const wchar_t* at = wcsstr(formula, func); at; at = wcsstr(at, func)) {
      const wchar_t* call = at;
      at = SkipBlanks(at + FuncNameLengths[i]);
      if (*at != L'(') continue;
      at = SkipBlanks(at + 1);
      // The item ",name" is built in place; one that doesn't fit is dropped.
      wchar_t* item = end;
      std::wstring name;
      for (;;) {
        if (!*at || *at == L')') {
          if (*at) at++;
          break;
        }
        wchar_t quote = *at;
        if (quote != L'"' && quote != L'\'') {
          name += L'_';
          for (; *at && *at != L')' && *at != L','; at++) name += *at;
        } else {
          if (!name.empty()) name += L'_';
          for (at++; *at && *at != quote; at++) name += *at >= 0 && *at < 128 && isalnum((int)*at) ? *at : L'_';
          if (*at) at++;
        }
        if (*at == L',') {
          at++;
          continue;
        }
        if (*at) at++;
        break;
      }
      std::wstring text(call, at - call);
      if (name.empty()) {
        const wchar_t* column = Tree->GetName(col, 0);
        if (FuncDefParams[i] == 1) {
          name = column ? column : L"";
          text = std::wstring(func) + L"(\"" + name + L"\")";
        } else if (FuncDefParams[i] == 2) {
          name = L"_0";
          text = std::wstring(func) + L"(0)";
        }
      }
      name += func;
      if (limit && (size_t)(limit - end) < name.size() + 1) continue;
      *end++ = L',';
      wcscpy(end, name.c_str());
      end += name.size();
      // Already in the list as a whole item: taken back off.
      std::wstring whole = L"," + std::wstring(order, item - order) + L",";
      if (whole.find(L"," + name + L",") != std::wstring::npos) {
        end = item;
        *end = 0;
        continue;
      }
      SetFormula(node, &text[0], node->GetIndex(L"#Formula", name.c_str(), 1));
    }
  }
}

// Only the formulas of the list as given are scanned, not the added ones.
void TGridCalc::AddAggCalcOrder(TNode* node, wchar_t* order) {
  int compiled[MaxOrderInts];
  ParseCalcOrder(order, compiled, true);
  wchar_t* end = order + wcslen(order);
  for (int* e = compiled; e[0]; e += 4) {
    std::wstring formula = node->GetString(e[2]);
    if (!formula.empty()) AddAggCalcOrderFormula(node, order, formula.c_str(), end, e[0], order + MaxOrderText);
  }
}

void TGridCalc::FixedAggCalcOrder() {
  if (AggNode) TNode::Delete(AggNode);
  AggNode = Tree->CreateElement(L"B");
  wchar_t list[MaxOrderText + 1] = L"";
  wchar_t* end = list;
  for (int i = 0; i < FixedRows.Count; i++) {
    TNode* row = FixedRows.Items[i];
    if (row->GetInt(CalculatedIndex)) AddFixedAggregates(row, GetCalcOrder(row), list, end);
  }
  for (int i = 0; i < SolidRows.Count; i++) {
    TNode* row = SolidRows.Items[i];
    if (row->GetInt(CalculatedIndex)) AddFixedAggregates(row, SolidCalcOrder(row), list, end);
  }
  if (end == list) return;
  // The list begins with a comma.
  int index = CalcOrderTable.Get(list + 1, 1);
  StoreCalcOrder(index, list + 1, true);
  AggNode->SetByte(CalcOrderIndex, index);
  AggNode->SetInt(CalculatedIndex, 1);
}

int* TGridCalc::SolidCalcOrder(TNode* row) {
  int index = row->GetInt(CalcOrderIndex);
  if (index) return (int*)CalcOrderTable.GetValue(index);
  std::wstring text = row->GetString(CalcOrderTextIndex);
  if (text.empty()) text = row->GetString(L"Cells");
  return text.empty() ? nullptr : SetCalcOrder(row, text.c_str());
}

// Formula texts come from the row; the aggregates go to AggNode.
void TGridCalc::AddFixedAggregates(TNode* row, const int* order, wchar_t* list, wchar_t*& end) {
  for (const int* e = order; e && e[0]; e += 4) {
    std::wstring formula = row->GetString(e[2]);
    if (!formula.empty()) AddAggCalcOrderFormula(AggNode, list, formula.c_str(), end, e[0], list + MaxOrderText);
  }
}

// One arena for the whole row: a later formula reads the earlier results
// from the row's attributes.
void TGridCalc::CalcRow(TNode* row) {
  const int* order = GetCalcOrder(row);
  if (!order) return;
  bool calculated = row->GetInt(CalculatedIndex) != 0;
  alignas(8) char arena[TNodeCalc::ArenaBytes];
  for (const int* e = order; e[0]; e += 4) {
    TNode* holder = calculated ? row : Cols.GetNode(e[3]);
    const char* code = GetFormula(holder, e[1], e[2]);
    if (code) static_cast<TNodeCalc*>(row)->Calculate(e[0], code, arena, sizeof arena);
  }
}

// Post-order: a row's descendants are done before the row.
void TGridCalc::CalcChildren(TNode* parent) {
  if (!parent) return;
  ForSiblings(parent->FirstChild, [this](TNode* child) {
    if (child->FirstChild) CalcChildren(child);
    CalcRow(child);
  });
}

void TGridCalc::CalcPages() {
  for (TNode* page = Body ? Body->FirstChild : nullptr; page; page = page->Next) CalcRow(page);
}

void TGridCalc::RecalcRow(TNode* row, int mask) {
  if (!row) return;
  if (mask & 16) CalcChildren(row);
  else if (mask & 8)
    for (TNode* child = row->FirstChild; child; child = child->Next) CalcRow(child);
  if (mask & 1) CalcRow(row);
  if (!(mask & 6)) return;
  // Rows of the body always have a page above them.
  TNode* node = row->Parent;
  for (; node && wcscmp(node->GetName(), L"B"); node = node->Parent)
    if ((mask & 4) || node->GetInt(CalculatedIndex)) CalcRow(node);
  if (node) CalcRow(node);
}
