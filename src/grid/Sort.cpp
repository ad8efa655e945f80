#include "grid/Sort.h"

#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <wctype.h>

#include <algorithm>
#include <deque>
#include <numeric>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace {

// Sort keys and child lists of small sibling groups fit here without malloc.
const size_t ScratchBytes = 4096;
// Characters of the prepared sort text, without its terminator.
const int SortTextMax = TSortNode::TextLength - 1;
// Marks a record's type code as compared as text.
const unsigned char TextMark = 0x80;
// Units of one collation key, each 16 bits, first in the top bits.
const int KeyUnits = 4;
// Expansion buffer that covers the usual sort texts without a heap block.
const int WorkChars = 1024;
const int TableSize = 65536;
// Sibling groups from this size up are sorted through 64-bit keys.
const int KeyedMinRows = 64;

// What one call of TNodeSort::Sort sorts by, passed down the recursion as one pointer.
struct TSortColumns {
  int* Cols;
  int* Types;
  int** White;
  unsigned short** Codes;
  int Count;
  const unsigned long long* Locale;
  const TSortIndexes* Indexes;
  // The top parent's children in order, walked instead of the links and
  // rewritten in the sorted order; null below the top and without a list.
  std::vector<TNode*>* Rows;
};

// Calls work(row) on each child of parent in order, through the list when
// there is one; a false from work ends the walk.
template <class Work>
void ForChildren(TNode* parent, const TSortColumns& c, Work&& work) {
  if (c.Rows) ForRows(c.Rows->data(), c.Rows->size(), work);
  else ForSiblings(parent->FirstChild, work);
}

// Keeps the list in the children's new order.
void KeepOrder(const TSortColumns& c, int i, TNode* row) {
  if (c.Rows && (size_t)i < c.Rows->size()) (*c.Rows)[i] = row;
}

// Stands in for absent indexes: every lookup finds nothing.
const TSortIndexes NoIndexes = {-1, {-1, -1, -1}, {-1, -1, -1}, {-1, -1, -1}};

int Sign(int value) { return value > 0 ? 1 : value < 0 ? -1 : 0; }

bool IsWhite(const int* white, wchar_t c) {
  unsigned u = (unsigned)c & 0xFFFF;
  return ((unsigned)white[u >> 5] >> (u & 31)) & 1;
}

// Step 1 of CopySortString: copies at most max units, without white chars
// when the column has a set; dest always ends within max + 1 cells.
void CopyLeavingWhite(wchar_t* dest, const wchar_t* src, int max, int flags, const int* white) {
  if (!(flags & SortWhite) || !white) {
    wcsncpy(dest, src, max);
    dest[max] = 0;
    return;
  }
  int n = 0;
  for (; *src && n < max; src++)
    if (!IsWhite(white, *src)) dest[n++] = *src;
  dest[n] = 0;
}

void ApplyCharCodes(wchar_t* text, const unsigned short* codes) {
  for (; *text; text++)
    if (unsigned short code = codes[(unsigned)*text & 0xFFFF]) *text = code;
}

// Writes the collation units of text into out, at most max of them.
int ExpandUnits(const wchar_t* text, wchar_t* out, int max, const unsigned long long* table) {
  int n = 0;
  for (; *text && n < max; text++) {
    unsigned long long key = table[(unsigned)*text & 0xFFFF];
    for (int shift = (KeyUnits - 1) * 16; shift >= 0 && n < max; shift -= 16) {
      wchar_t unit = (wchar_t)((key >> shift) & 0xFFFF);
      if (!unit) break;
      out[n++] = unit;
    }
  }
  out[n] = 0;
  return n;
}

// Replaces text (room for max + 1 cells) by its collation units.
void ExpandCollation(wchar_t* text, int max, const unsigned long long* table) {
  wchar_t local[WorkChars];
  std::vector<wchar_t> heap;
  wchar_t* out = local;
  if (max >= WorkChars) {
    heap.resize((size_t)max + 1);
    out = heap.data();
  }
  int n = ExpandUnits(text, out, max, table);
  memcpy(text, out, ((size_t)n + 1) * sizeof(wchar_t));
}

void LowerCase(wchar_t* text) {
  for (; *text; text++) *text = (wchar_t)towlower(*text);
}

// The first character of the item at p, 0 for an empty item; p moves on to
// the separator behind the item or to the end.
wchar_t TakeItem(const wchar_t*& p, wchar_t separator) {
  wchar_t c = *p != separator ? *p : 0;
  while (*p && *p != separator) p++;
  return c;
}

// An empty item reads as character 0: as a source it maps the terminator,
// which is never looked up; as a replacement it means "keep".
void ParseCharCodes(const wchar_t* codes, unsigned short* table) {
  wchar_t separator = codes[0];
  const wchar_t* p = codes + 1;
  for (;;) {
    wchar_t source = TakeItem(p, separator);
    if (!*p) return;
    p++;
    wchar_t target = TakeItem(p, separator);
    table[(unsigned)source & 0xFFFF] = (unsigned short)target;
    if (!*p) return;
    p++;
  }
}

// --- One parent's sort ---

int IntAt(int type, const unsigned char* p) {
  if (type == TByte) return (signed char)*p;
  int v;
  memcpy(&v, p, sizeof v);
  return v;
}

double DoubleAt(const unsigned char* p) {
  double d;
  memcpy(&d, p, sizeof d);
  return d;
}

bool IsAligned(const unsigned char* p) { return ((uintptr_t)p & (sizeof(wchar_t) - 1)) == 0; }

// Truncated toward zero and clamped to the key range; NaN has no order, key 0.
int NumberKey(double value) {
  if (value > 2147483647.0) return 0x7FFFFFFF;
  if (value < -2147483647.0) return -0x7FFFFFFF;
  if (value != value) return 0;
  return (int)value;
}

// The first two characters at once, biased so that the signed comparison of
// keys agrees with the unsigned one of the characters.
int TextKey(const wchar_t* text) {
  uint32_t key = ((uint32_t)text[0] << 16) + (uint32_t)text[1] - 0x80000000u;
  return (int)key;
}

// The value the row sorts by in column i: its descending or general sort
// value, else the cell. Returns the type code, 0 for none.
int FindValue(TNode* row, const TSortColumns& c, int i, unsigned char*& p) {
  int type = 0;
  if (c.Types[i] & SortDesc) type = row->GetType(c.Indexes->SortDescValue[i], p);
  if (!type) type = row->GetType(c.Indexes->SortValue[i], p);
  if (!type) type = row->GetType(c.Cols[i], p);
  return type;
}

// Room, in characters, for copies of the strings that a text column keeps as
// its full value but that lie unaligned in their records: a scratch-ring copy
// would not survive the sort.
size_t RowTextCells(TNode* row, const TSortColumns& c) {
  size_t cells = 0;
  for (int i = 0; i < c.Count; i++) {
    unsigned char* p = nullptr;
    if ((c.Types[i] & SortString) && FindValue(row, c, i, p) == TString && !IsAligned(p))
      cells += (size_t)TData::StringLengthAt(p) + 1;
  }
  return cells;
}

size_t UnalignedTextCells(TNode* parent, const TSortColumns& c) {
  size_t cells = 0;
  ForChildren(parent, c, [&](TNode* row) { cells += RowTextCells(row, c); });
  return cells;
}

// The string at p as aligned text that lasts the whole sort.
const wchar_t* StableString(const unsigned char* p, wchar_t*& texts) {
  if (IsAligned(p)) return (const wchar_t*)p;
  size_t n = (size_t)TData::StringLengthAt(p) + 1;
  wchar_t* copy = texts;
  memcpy(copy, p, n * sizeof(wchar_t));
  texts += n;
  return copy;
}

void CopyShort(wchar_t* dest, const wchar_t* src) {
  wcsncpy(dest, src, SortTextMax);
  dest[SortTextMax] = 0;
}

void NumberText(wchar_t* dest, double value, TTree* tree) {
  wchar_t buffer[257];  // the double formatter writes up to 256 characters
  TData::ToString(value, buffer, tree ? tree->Precision : 10000);
  CopyShort(dest, buffer);
}

void IntText(wchar_t* dest, int value) {
  wchar_t buffer[24];
  TData::IntToString(value, buffer);
  CopyShort(dest, buffer);
}

void FillText(TSortNode& r, int i, TNode* row, int type, const unsigned char* p, const TSortColumns& c,
              wchar_t*& texts) {
  wchar_t* text = r.Value[i].Text;
  r.Full[i] = text;
  r.Locale = nullptr;
  switch (type) {
    case TByte:
    case TInt: IntText(text, IntAt(type, p)); break;
    case TDouble: NumberText(text, DoubleAt(p), row->Tree); break;
    case TString: {
      const wchar_t* s = StableString(p, texts);
      CopySortString(text, s, SortTextMax, c.Types[i], c.Locale, c.White[i], c.Codes[i]);
      r.Full[i] = s;
      r.Locale = c.Locale;
      break;
    }
    default: text[0] = 0;
  }
  text[SortTextMax] = 0;
  r.Key[i] = TextKey(text);
  r.Type[i] = (unsigned char)(type | TextMark);
}

void FillNumber(TSortNode& r, int i, TNode* row, int type, const unsigned char* p) {
  double value = 0;
  int key = 0;
  switch (type) {
    case TByte:
    case TInt: key = IntAt(type, p); value = key; break;
    case TDouble: value = DoubleAt(p); key = NumberKey(value); break;
    case TString: value = wcstod(row->StringAt(p), nullptr); key = NumberKey(value); break;
  }
  r.Value[i].Number = value;
  r.Key[i] = key;
  r.Type[i] = (unsigned char)type;
}

void FillRecord(TSortNode& r, TNode* row, const TSortColumns& c, wchar_t*& texts) {
  memset(&r, 0, sizeof r);
  r.Node = row;
  for (int i = 0; i < c.Count; i++) {
    unsigned char* p = nullptr;
    int type = FindValue(row, c, i, p);
    r.Flags[i] = (unsigned char)c.Types[i];
    // The record's locale follows its last text column, as Compare reads it.
    if (c.Types[i] & SortString) FillText(r, i, row, type, p, c, texts);
    else FillNumber(r, i, row, type, p);
  }
  r.Count = (unsigned char)c.Count;
}

void Relink(TNode* parent, TSortNode** list, int n, const TSortColumns& c) {
  for (int i = 0; i < n; i++) {
    TNode* row = list[i]->Node;
    KeepOrder(c, i, row);
    row->Prev = i ? list[i - 1]->Node : nullptr;
    row->Next = i + 1 < n ? list[i + 1]->Node : nullptr;
  }
  parent->FirstChild = list[0]->Node;
  parent->LastChild = list[n - 1]->Node;
}

// Decides per column whether this parent's children compare as text; the
// column's own default stays in SortColString for the next parent.
void SetTextFlags(TNode* parent, const TSortColumns& c) {
  for (int i = 0; i < c.Count; i++) {
    int index = c.Indexes->NumberSort[i];
    bool text = parent->Has(index) ? parent->GetInt(index) == 0 : (c.Types[i] & SortColString) != 0;
    if (text) c.Types[i] |= SortString;
    else c.Types[i] &= ~SortString;
  }
}

bool SortKeyed(TSortNode** list, int n);
bool SortStreamed(TNode* parent, int n, const TSortColumns& c);

// Fills the records of parent's n children and points list at them.
void FillRecords(TNode* parent, int n, const TSortColumns& c, TSortNode** list, TSortNode* records, wchar_t* texts) {
  int i = 0;
  ForChildren(parent, c, [&](TNode* row) {
    if (i >= n) return false;
    list[i] = records + i;
    FillRecord(records[i++], row, c, texts);
    return true;
  });
}

// One block for the pointers, the records and the unaligned texts; the stack
// scratch where it fits. Null when malloc fails.
struct TSortBlock {
  alignas(TSortNode) unsigned char Scratch[ScratchBytes];
  void* Block = nullptr;
  TSortNode** List = nullptr;
  TSortNode* Records = nullptr;
  wchar_t* Texts = nullptr;

  bool Get(TNode* parent, int n, const TSortColumns& c) {
    size_t cells = UnalignedTextCells(parent, c);
    size_t bytes = (size_t)n * (sizeof(TSortNode*) + sizeof(TSortNode)) + cells * sizeof(wchar_t);
    Block = bytes <= ScratchBytes ? Scratch : malloc(bytes);
    if (!Block) return false;
    List = (TSortNode**)Block;
    Records = (TSortNode*)(List + n);
    Texts = (wchar_t*)(Records + n);
    return true;
  }
  ~TSortBlock() {
    if (Block != Scratch) free(Block);
  }
};

// Sorts and relinks the n children of parent. Kept apart from the recursion so
// that only one scratch area is on the stack at a time.
[[gnu::noinline]] void SortChildren(TNode* parent, int n, const TSortColumns& c) {
  if (n >= KeyedMinRows && SortStreamed(parent, n, c)) return;
  TSortBlock b;
  if (!b.Get(parent, n, c)) return;
  FillRecords(parent, n, c, b.List, b.Records, b.Texts);
  // Large sibling groups go through keyed merging, small ones stay on qsort;
  // both give the same order.
  if (n < KeyedMinRows || !SortKeyed(b.List, n)) qsort(b.List, (size_t)n, sizeof(TSortNode*), Compare);
  Relink(parent, b.List, n, c);
}

// The same, always through qsort: the order the keyed path must give.
[[gnu::noinline]] void SortChildrenPlain(TNode* parent, int n, const TSortColumns& c) {
  TSortBlock b;
  if (!b.Get(parent, n, c)) return;
  FillRecords(parent, n, c, b.List, b.Records, b.Texts);
  qsort(b.List, (size_t)n, sizeof(TSortNode*), Compare);
  Relink(parent, b.List, n, c);
}

void SortLevel(TNode* parent, const TSortColumns& c, bool recursive, bool plain) {
  TSortColumns below = c;
  below.Rows = nullptr;
  int n = 0;
  ForChildren(parent, c, [&](TNode* child) {
    n++;
    if (recursive && child->FirstChild) SortLevel(child, below, true, plain);
  });
  if (n < 2) return;
  int canSort = c.Indexes->CanSort;
  if (parent->Has(canSort) && !parent->GetInt(canSort)) return;
  SetTextFlags(parent, c);
  if (plain) SortChildrenPlain(parent, n, c);
  else SortChildren(parent, n, c);
}

bool IsNumberType(const wchar_t* type) {
  return !wcscmp(type, L"Int") || !wcscmp(type, L"Float") || !wcscmp(type, L"Date");
}

// --- Comparison ---

const wchar_t* FullOf(const TSortNode* r, int i) { return r->Full[i] ? r->Full[i] : EmptyString; }

// Raw whole strings, for texts equal in all their prepared characters.
int CompareFull(const TSortNode* a, const TSortNode* b, int i) {
  const wchar_t* x = FullOf(a, i);
  const wchar_t* y = FullOf(b, i);
  if ((a->Flags[i] & SortLocale) && a->Locale) return CmpStr(x, y, a->Locale);
  if (a->Flags[i] & SortNoCase) return Sign(wcscasecmp(x, y));
  return Sign(wcscmp(x, y));
}

// Ascending order of column i.
int CompareColumn(const TSortNode* a, const TSortNode* b, int i) {
  if (a->Key[i] != b->Key[i]) return a->Key[i] < b->Key[i] ? -1 : 1;
  if (!(a->Flags[i] & SortString)) {
    double x = a->Value[i].Number, y = b->Value[i].Number;
    return x > y ? 1 : y > x ? -1 : 0;
  }
  if (int r = wcscmp(a->Value[i].Text, b->Value[i].Text)) return Sign(r);
  if (!a->Value[i].Text[SortTextMax - 1]) return 0;
  return CompareFull(a, b, i);
}


// --- Keyed merging ---
//
// Each record gets a 64-bit key whose order is the first column's order, so
// that most comparisons never reach the records. The merge sort below splits
// and merges exactly as the C library's qsort does, and a comparison of two
// different keys has the sign Compare would give; so the order, ties
// included, is the one qsort over Compare gives, whatever the data.

struct TSortItem {
  uint64_t Key;
  TSortNode* Record;
};

// Order-preserving image of a double; -0 and 0 meet, as they compare equal.
uint64_t NumberImage(double value) {
  if (value == 0) value = 0;
  uint64_t bits;
  memcpy(&bits, &value, sizeof bits);
  return bits >> 63 ? ~bits : bits | (1ull << 63);
}

// Equal keys mean equal values. A NaN equals every value, which no key can
// say: such columns are left to Compare.
bool NumberKeys(TSortItem* items, int n) {
  for (int i = 0; i < n; i++) {
    double value = items[i].Record->Value[0].Number;
    if (value != value) return false;
    items[i].Key = NumberImage(value);
  }
  return true;
}

const TSortNode* RecordOf(const TSortNode* r) { return r; }
const TSortNode* RecordOf(const TSortNode& r) { return &r; }

// Positions of distinct sort texts, one record each, in ascending order.
// Distinct texts differ in their coarse key or their characters, so this
// never reaches the whole strings.
template <class Records>
std::vector<uint32_t> Ranks(const Records& firsts) {
  std::vector<uint32_t> order(firsts.size());
  std::iota(order.begin(), order.end(), 0u);
  std::sort(order.begin(), order.end(),
            [&](uint32_t x, uint32_t y) { return CompareColumn(RecordOf(firsts[x]), RecordOf(firsts[y]), 0) < 0; });
  std::vector<uint32_t> rank(firsts.size());
  for (size_t k = 0; k < order.size(); k++) rank[order[k]] = (uint32_t)k;
  return rank;
}

// The rank of each record's sort text among the distinct texts. Distinct
// texts differ in their coarse key or their characters, so ranking them never
// reaches the whole strings. full: some text fills all its characters, so
// equal ranks may still differ by the whole strings. False when the texts are
// mostly distinct, where ranking would cost a sort of its own.
bool RankedTextKeys(TSortItem* items, int n, bool& full) {
  std::unordered_map<std::wstring_view, uint32_t> classes;
  std::vector<const TSortNode*> firsts;
  size_t limit = (size_t)n / 4;
  full = false;
  for (int i = 0; i < n; i++) {
    const wchar_t* text = items[i].Record->Value[0].Text;
    if (text[SortTextMax - 1]) full = true;
    auto found = classes.emplace(std::wstring_view(text), (uint32_t)firsts.size());
    if (found.second) {
      if (firsts.size() == limit) return false;
      firsts.push_back(items[i].Record);
    }
    items[i].Key = found.first->second;
  }
  std::vector<uint32_t> rank = Ranks(firsts);
  for (int i = 0; i < n; i++) items[i].Key = rank[items[i].Key];
  return true;
}

// The first four characters, 16 bits each: their order is the coarse key's
// and then the characters'. False where a character needs more bits.
bool PackedTextKeys(TSortItem* items, int n) {
  for (int i = 0; i < n; i++) {
    const wchar_t* text = items[i].Record->Value[0].Text;
    uint64_t key = 0;
    bool ended = false;
    for (int k = 0; k < 4; k++) {
      uint32_t c = ended ? 0 : (uint32_t)text[k];
      if (c > 0xFFFF) return false;
      ended = ended || !c;
      key = key << 16 | c;
    }
    items[i].Key = key;
  }
  return true;
}

// Distinct texts seen so far, one record kept for each.
struct TTextClasses {
  std::unordered_map<std::wstring_view, uint32_t> Index;
  std::deque<TSortNode> Firsts;
};

// A streamed row: its key alone orders it.
struct TRowItem {
  uint64_t Key;
  TNode* Row;
};

struct TRowCompare {
  int operator()(const TRowItem& a, const TRowItem& b) const { return a.Key < b.Key ? -1 : a.Key > b.Key; }
};

// Equal keys decide nothing unless exact, where they mean equal records.
struct TKeyedCompare {
  bool Exact;
  int operator()(const TSortItem& a, const TSortItem& b) const {
    if (a.Key != b.Key) return a.Key < b.Key ? -1 : 1;
    return Exact ? 0 : Compare(&a.Record, &b.Record);
  }
};

// Top-down merge sort: the first half is n / 2, and a tie takes from the
// first half, as the C library's qsort merges.
template <class Item, class Comparison>
void MergeSort(Item* items, size_t n, Item* temp, const Comparison& compare) {
  if (n <= 1) return;
  size_t n1 = n / 2, n2 = n - n1;
  Item* b1 = items;
  Item* b2 = items + n1;
  MergeSort(b1, n1, temp, compare);
  MergeSort(b2, n2, temp, compare);
  Item* out = temp;
  while (n1 > 0 && n2 > 0) {
    if (compare(*b1, *b2) <= 0) *out++ = *b1++, n1--;
    else *out++ = *b2++, n2--;
  }
  if (n1 > 0) memcpy((void*)out, b1, n1 * sizeof *out);
  memcpy((void*)items, temp, (n - n2) * sizeof *out);
}

// The key of one streamed record; false where keys cannot settle the order.
bool StreamedKey(const TSortNode& r, TTextClasses& classes, size_t limit, uint64_t& key) {
  if (!(r.Flags[0] & SortString)) {
    double value = r.Value[0].Number;
    key = NumberImage(value);
    return value == value;
  }
  const wchar_t* text = r.Value[0].Text;
  if (text[SortTextMax - 1]) return false;
  auto found = classes.Index.find(std::wstring_view(text));
  if (found != classes.Index.end()) {
    key = found->second;
    return true;
  }
  if (classes.Firsts.size() >= limit) return false;
  key = classes.Firsts.size();
  classes.Firsts.push_back(r);
  classes.Index.emplace(std::wstring_view(classes.Firsts.back().Value[0].Text), (uint32_t)key);
  return true;
}

void RelinkRows(TNode* parent, const TRowItem* items, int n, const TSortColumns& c) {
  for (int i = 0; i < n; i++) {
    TNode* row = items[i].Row;
    KeepOrder(c, i, row);
    row->Prev = i ? items[i - 1].Row : nullptr;
    row->Next = i + 1 < n ? items[i + 1].Row : nullptr;
  }
  parent->FirstChild = items[0].Row;
  parent->LastChild = items[n - 1].Row;
}

// One sort column whose keys settle every comparison: each row's record is
// filled in one place, turned into its key and dropped, so no block of
// records is made. False, with nothing moved, where that does not hold.
bool SortStreamed(TNode* parent, int n, const TSortColumns& c) {
  if (c.Count != 1) return false;
  std::vector<TRowItem> items((size_t)n * 2);
  TTextClasses classes;
  std::vector<wchar_t> texts;
  size_t limit = (size_t)n / 8;
  TSortNode record;
  int i = 0;
  bool keyed = true;
  ForChildren(parent, c, [&](TNode* row) {
    if (i >= n) return false;
    wchar_t* cells = nullptr;
    if (c.Types[0] & SortString) {
      texts.resize(std::max(texts.size(), RowTextCells(row, c)));
      cells = texts.data();
    }
    FillRecord(record, row, c, cells);
    keyed = StreamedKey(record, classes, limit, items[i].Key);
    items[i++].Row = row;
    return keyed;
  });
  if (!keyed) return false;
  if (c.Types[0] & SortString) {
    std::vector<uint32_t> rank = Ranks(classes.Firsts);
    for (int k = 0; k < i; k++) items[k].Key = rank[items[k].Key];
  }
  if (c.Types[0] & SortDesc)
    for (int k = 0; k < i; k++) items[k].Key = ~items[k].Key;
  MergeSort(items.data(), (size_t)i, items.data() + i, TRowCompare());
  RelinkRows(parent, items.data(), i, c);
  return true;
}

// Keys for the first column; false where none can stand for it.
bool FillKeys(TSortItem* items, int n, bool& exact) {
  const TSortNode* first = items[0].Record;
  bool single = first->Count == 1;
  if (!(first->Flags[0] & SortString)) {
    exact = single;
    return NumberKeys(items, n);
  }
  bool full = false;
  if (RankedTextKeys(items, n, full)) {
    exact = single && !full;
    return true;
  }
  exact = false;
  return PackedTextKeys(items, n);
}

bool SortKeyed(TSortNode** list, int n) {
  std::vector<TSortItem> items((size_t)n * 2);
  for (int i = 0; i < n; i++) items[i].Record = list[i];
  bool exact = false;
  if (!FillKeys(items.data(), n, exact)) return false;
  if (list[0]->Flags[0] & SortDesc)
    for (int i = 0; i < n; i++) items[i].Key = ~items[i].Key;
  MergeSort(items.data(), (size_t)n, items.data() + n, TKeyedCompare{exact});
  for (int i = 0; i < n; i++) list[i] = items[i].Record;
  return true;
}

}  // namespace

int Compare(const void* pa, const void* pb) {
  const TSortNode* a = *(const TSortNode* const*)pa;
  const TSortNode* b = *(const TSortNode* const*)pb;
  for (int i = 0; i < a->Count && i < TSortNode::MaxCols; i++)
    if (int r = CompareColumn(a, b, i)) return a->Flags[i] & SortDesc ? -r : r;
  return 0;
}

// Without a table the characters compare by their codes.
int CmpStr(const wchar_t* a, const wchar_t* b, const void* table) {
  const unsigned long long* keys = (const unsigned long long*)table;
  for (;; a++, b++) {
    if (!*a) return *b ? -1 : 0;
    if (!*b) return 1;
    if (*a == *b) continue;
    long long x = keys ? (long long)keys[(unsigned)*a & 0xFFFF] : (long long)(unsigned)*a;
    long long y = keys ? (long long)keys[(unsigned)*b & 0xFFFF] : (long long)(unsigned)*b;
    if (x != y) return x < y ? -1 : 1;
  }
}

void CopySortString(wchar_t* dest, const wchar_t* src, int max, int flags, const void* locale, const int* white,
                    const unsigned short* codes) {
  if (max < 0) max = 0;
  CopyLeavingWhite(dest, src ? src : EmptyString, max, flags, white);
  if (codes) ApplyCharCodes(dest, codes);
  // A collation table replaces case folding: its keys carry the case rules.
  if ((flags & SortLocale) && locale) ExpandCollation(dest, max, (const unsigned long long*)locale);
  else if (flags & SortNoCase) LowerCase(dest);
}

void TNodeSort::Sort(int* cols, int* types, int** white, unsigned short** codes, int count, void* locale,
                     TSortIndexes* indexes, bool recursive, std::vector<TNode*>* rows) {
  if (count > TSortNode::MaxCols) count = TSortNode::MaxCols;
  if (count <= 0) return;
  TSortColumns c = {cols, types, white, codes, count, (const unsigned long long*)locale,
                    indexes ? indexes : &NoIndexes, rows};
  SortLevel(this, c, recursive, false);
}

void TNodeSort::SortPlain(int* cols, int* types, int** white, unsigned short** codes, int count, void* locale,
                          TSortIndexes* indexes, bool recursive) {
  if (count > TSortNode::MaxCols) count = TSortNode::MaxCols;
  if (count <= 0) return;
  TSortColumns c = {cols, types, white, codes, count, (const unsigned long long*)locale,
                    indexes ? indexes : &NoIndexes, nullptr};
  SortLevel(this, c, recursive, true);
}

// --- Grid level ---

TGridSort::TGridSort() : WhiteCharsCache(255), CharCodesCache(255), SortCount(0), SortCols(), SortTypes() {}

TGridSort::~TGridSort() {}

bool TGridSort::UpdateSort() {
  bool changed = false;
  int count = 0;
  const wchar_t* sort = Cfg ? Cfg->GetString(L"Sort") : EmptyString;
  if (*sort) {
    // Tokenized in a copy of its own length, so a long Sort text cannot overrun.
    std::wstring work(sort);
    wchar_t* state = nullptr;
    for (wchar_t* name = wcstok(&work[0], L",", &state); name && count < MaxSortCols;
         name = wcstok(nullptr, L",", &state)) {
      int descending = 0;
      if (*name == L'-') {
        name++;
        descending = 1;
      }
      if (!Cols.GetNode(name, 0)) break;
      int index = Tree->GetIndex(name, 1);
      if (index != SortCols[count] || descending != SortTypes[count]) {
        changed = true;
        SortCols[count] = index;
        SortTypes[count] = descending;
      }
      count++;
    }
  }
  if (SortCount != count) {
    changed = true;
    SortCount = count;
  }
  if (Cfg && Cfg->GetInt(L"Sorting")) return changed;
  // Sorting off: a change whenever a sort was parsed, though nothing sorts.
  bool wasSorted = SortCount != 0;
  SortCount = 0;
  return wasSorted;
}

int TGridSort::ColumnFlags(int i, int*& white, unsigned short*& codes) {
  int flags = SortTypes[i];
  white = nullptr;
  codes = nullptr;
  TNode* column = Cols.GetNode(Tree->GetName(SortCols[i], 0), 0);
  if (!column) return flags;
  bool text = column->Has(L"NumberSort") ? column->GetInt(L"NumberSort") == 0 : !IsNumberType(column->GetString(L"Type"));
  if (text) flags |= SortString | SortColString;
  if (!column->GetInt(L"CaseSensitive")) flags |= SortNoCase;
  if (column->GetInt(L"LocaleCompare")) flags |= SortLocale;
  white = GetWhiteChars(column->GetString(L"WhiteChars"));
  if (white) flags |= SortWhite;
  codes = GetCharCodes(column->GetString(L"CharCodes"));
  return flags;
}

void TGridSort::FillIndexes(TSortIndexes& indexes) {
  indexes.CanSort = Tree->GetIndex(L"CanSort", 0);
  for (int i = 0; i < MaxSortCols; i++) {
    const wchar_t* name = i < SortCount ? Tree->GetName(SortCols[i], 0) : nullptr;
    indexes.SortValue[i] = name ? Tree->GetIndex(name, L"SortValue", 0) : -1;
    indexes.SortDescValue[i] = name ? Tree->GetIndex(name, L"SortDescValue", 0) : -1;
    indexes.NumberSort[i] = name ? Tree->GetIndex(name, L"NumberSort", 0) : -1;
  }
}

void TGridSort::Sort(std::vector<TNode*>* rows) { SortBody(false, rows); }

void TGridSort::SortPlain() { SortBody(true, nullptr); }

void TGridSort::SortBody(bool plain, std::vector<TNode*>* rows) {
  int types[MaxSortCols] = {};
  int* white[MaxSortCols] = {};
  unsigned short* codes[MaxSortCols] = {};
  for (int i = 0; i < SortCount; i++) types[i] = ColumnFlags(i, white[i], codes[i]);
  if (!SortCount || !Body || !Body->FirstChild) return;
  TSortIndexes indexes;
  FillIndexes(indexes);
  TNodeSort* page = static_cast<TNodeSort*>(Body->FirstChild);
  void* locale = const_cast<unsigned long long*>(LocaleTable);
  if (plain) page->SortPlain(SortCols, types, white, codes, SortCount, locale, &indexes, true);
  else page->Sort(SortCols, types, white, codes, SortCount, locale, &indexes, true, rows);
}

void TGridSort::ClearSort() {
  if (!Cfg) return;
  Cfg->SetNull(L"SortCols");
  Cfg->SetNull(L"SortTypes");
}

int* TGridSort::GetWhiteChars(const wchar_t* chars) {
  if (!chars || !*chars) return nullptr;
  int entry = WhiteCharsCache.Get(chars, 1);
  if (void* cached = WhiteCharsCache.GetValue(entry)) return (int*)cached;
  std::vector<unsigned> bits(TableSize / 32, 0);
  for (const wchar_t* c = chars; *c; c++) {
    unsigned u = (unsigned)*c & 0xFFFF;
    bits[u >> 5] |= 1u << (u & 31);
  }
  WhiteCharsCache.SetValue(entry, bits.data(), (int)(bits.size() * sizeof(unsigned)));
  return (int*)WhiteCharsCache.GetValue(entry);
}

unsigned short* TGridSort::GetCharCodes(const wchar_t* codes) {
  if (!codes || !*codes) return nullptr;
  int entry = CharCodesCache.Get(codes, 1);
  if (void* cached = CharCodesCache.GetValue(entry)) return (unsigned short*)cached;
  std::vector<unsigned short> table(TableSize, 0);
  ParseCharCodes(codes, table.data());
  CharCodesCache.SetValue(entry, table.data(), (int)(table.size() * sizeof(unsigned short)));
  return (unsigned short*)CharCodesCache.GetValue(entry);
}
