#include "tree/Data.h"
#include <cmath>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <vector>
#include "tree/Node.h"
#include "tree/System.h"
#include "tree/Tree.h"

const wchar_t EmptyString[1] = {0};

const unsigned char TData::TypeSizes[8] = {0, 0, 1, 2, 3, 2, 3, 0};
const int TData::StringSizes[22] = {
    8 << 0,  8 << 1,  8 << 2,  8 << 3,  8 << 4,  8 << 5,  8 << 6,  8 << 7,  8 << 8,  8 << 9,  8 << 10,
    8 << 11, 8 << 12, 8 << 13, 8 << 14, 8 << 15, 8 << 16, 8 << 17, 8 << 18, 8 << 19, 8 << 20, 8 << 21};
int TData::Log2[4097];
int TData::MaxLog2[4097];

namespace {
const unsigned char ZeroArray[4] = {0, 0, 0, 0};

int ComputeLog2(long long n) {
  int k = 0;
  while ((1LL << k) < n) k++;
  return k;
}

// Double to int as a truncation toward zero; out-of-range values saturate
// instead of being undefined.
int Truncate(double d) {
  if (!(d == d)) return 0;
  if (d >= 2147483647.0) return INT_MAX;
  if (d <= -2147483648.0) return INT_MIN;
  return (int)d;
}
}  // namespace

void TData::Initialize() {
  if (MaxLog2[1]) return;
  for (int n = 1; n <= 4096; n++) {
    Log2[n] = ComputeLog2(n);
    MaxLog2[n] = 1 << Log2[n];
  }
  Log2[0] = 0;
  MaxLog2[0] = 0;
}

int TData::GetLog2(int n) { return n <= 4096 && n >= 0 ? Log2[n] : n < 0 ? 0 : ComputeLog2(n); }

int TData::GetMaxLog2(int n) {
  if (n >= 0 && n <= 4096) return MaxLog2[n];
  if (n < 0) return 0;
  int k = ComputeLog2(n);
  return k >= 31 ? INT_MAX : 1 << k;
}

TData::TData()
    : Values(nullptr), Slots(nullptr), Used(0), Capacity(0), SlotCount(0), SlotWidth(2), Flags(FState),
      Pooled(0), TrimmedRoom(0), Tree(nullptr), Base(nullptr) {}

TData::~TData() { ReleaseBlocks(); }

void TData::ReleaseBlocks() {
  if (!(Pooled & PooledValues)) free(Values);
  if (!(Pooled & PooledSlots)) free(Slots);
  Values = nullptr;
  Slots = nullptr;
  Pooled &= ~(PooledValues | PooledSlots | TrimmedValues);
}

void TData::WidenValues(long long used) {
  if (!(Pooled & TrimmedValues) || used <= TrimmedRoom * 4LL) return;
  unsigned char* wide = (unsigned char*)malloc(Capacity);
  if (wide && Used) memcpy(wide, Values, Used);
  if (!(Pooled & PooledValues)) free(Values);
  Values = wide;
  Pooled &= ~(PooledValues | TrimmedValues);
}

namespace {
// realloc for a block that may be pooled: a pooled one is copied out to the
// heap and left in the store.
void* Regrow(void* block, size_t oldSize, size_t size, unsigned char& pooled, int bit) {
  if (!(pooled & bit)) return realloc(block, size);
  void* grown = malloc(size);
  if (grown && block) memcpy(grown, block, oldSize < size ? oldSize : size);
  pooled &= ~bit;
  return grown;
}
}  // namespace

int TData::GetIndex(const wchar_t* name, int create) const {
  if (!Tree) return -1;
  return Tree->Names.GetIndex(name, create ? (Flags & FSpec ? 2 : 1) : 0);
}

int TData::GetIndex(const wchar_t* name1, const wchar_t* name2, int create) const {
  if (!Tree) return -1;
  return Tree->Names.GetIndex(name1, name2, create ? (Flags & FSpec ? 2 : 1) : 0);
}

// ---- slot access ----

int TData::GetTypeBase(int index, unsigned char*& pointer) const {
  int slot = SlotOf(index);
  if (slot < 0 || slot >= SlotCount) return 0;
  unsigned s = GetSlot(slot);
  int type = MetaOf(s, SlotWidth) & 7;
  if (type) pointer = Values + PosOf(s, SlotWidth);
  return type;
}

int TData::GetTypeBase(int index) const {
  unsigned char* p = nullptr;
  return GetTypeBase(index, p);
}

int TData::GetType(int index, unsigned char*& pointer) const {
  int type = GetTypeBase(index, pointer);
  if (!type && Base) type = Base->GetTypeBase(index, pointer);
  return type;
}

int TData::GetType(int index) const {
  unsigned char* p = nullptr;
  return GetType(index, p);
}

int TData::GetPos(int index, int type) const {
  int slot = SlotOf(index);
  if (slot < 0 || slot >= SlotCount) return -1;
  unsigned s = GetSlot(slot);
  return (MetaOf(s, SlotWidth) & 7) == type ? PosOf(s, SlotWidth) : -1;
}

int TData::GetLength(int index) const { return GetLengthIdx(SlotOf(index)); }

int TData::GetLengthIdx(int slot) const {
  if (slot < 0 || slot >= SlotCount) return 0;
  return 1 << (MetaOf(GetSlot(slot), SlotWidth) >> 3);
}

// ---- numbers ----

int TData::GetIntAt(int type, const unsigned char* p) const {
  switch (type) {
    case TByte: return (signed char)*p;
    case TInt: { int v; memcpy(&v, p, 4); return v; }
    case TDouble: { double d; memcpy(&d, p, 8); return Truncate(d); }
    case TString: {
      const wchar_t* s = const_cast<TData*>(this)->StringAt(p);
      return (int)wcstol(s, nullptr, 10);
    }
  }
  return 0;
}

double TData::GetDoubleAt(int type, const unsigned char* p) const {
  switch (type) {
    case TByte: return (signed char)*p;
    case TInt: { int v; memcpy(&v, p, 4); return v; }
    case TDouble: { double d; memcpy(&d, p, 8); return d; }
    case TString: return wcstod(const_cast<TData*>(this)->StringAt(p), nullptr);
  }
  return 0;
}

static bool IsReadable(int type) { return type == TByte || type == TInt || type == TDouble || type == TString; }

int TData::GetIntBase(int index) const {
  unsigned char* p = nullptr;
  int type = GetTypeBase(index, p);
  return IsReadable(type) ? GetIntAt(type, p) : 0;
}

int TData::GetInt(int index) const {
  unsigned char* p = nullptr;
  int type = GetTypeBase(index, p);
  if (IsReadable(type)) return GetIntAt(type, p);
  return Base ? Base->GetIntBase(index) : 0;
}

double TData::GetDoubleBase(int index) const {
  unsigned char* p = nullptr;
  int type = GetTypeBase(index, p);
  return IsReadable(type) ? GetDoubleAt(type, p) : 0;
}

double TData::GetDouble(int index) const {
  unsigned char* p = nullptr;
  int type = GetTypeBase(index, p);
  if (IsReadable(type)) return GetDoubleAt(type, p);
  return Base ? Base->GetDoubleBase(index) : 0;
}

int TData::GetByteBase(int index) const {
  unsigned char* p = nullptr;
  return GetTypeBase(index, p) == TByte ? (signed char)*p : 0;
}

// ---- text ----

int TData::StringLengthAt(const unsigned char* p) {
  if (((uintptr_t)p & (sizeof(wchar_t) - 1)) == 0) return (int)wcslen((const wchar_t*)p);
  int n = 0;
  for (;; n++, p += sizeof(wchar_t)) {
    wchar_t c;
    memcpy(&c, p, sizeof c);
    if (!c) return n;
  }
}

const wchar_t* TData::StringAt(const unsigned char* p) {
  if (((uintptr_t)p & (sizeof(wchar_t) - 1)) == 0) return (const wchar_t*)p;
  int n = StringLengthAt(p);
  wchar_t* t = GetTmp(n);
  memcpy(t, p, (n + 1) * sizeof(wchar_t));
  return t;
}

wchar_t* TData::IntToString(long long value, wchar_t* buffer) {
  wchar_t digits[24];
  int n = 0;
  unsigned long long u = value < 0 ? 0ULL - (unsigned long long)value : (unsigned long long)value;
  do {
    digits[n++] = (wchar_t)(L'0' + u % 10);
    u /= 10;
  } while (u);
  if (value < 0) *buffer++ = L'-';
  while (n) *buffer++ = digits[--n];
  *buffer = 0;
  return buffer;
}

const wchar_t* TData::GetStringAt(int type, const unsigned char* p) {
  switch (type) {
    case TString: return StringAt(p);
    case TByte:
    case TInt: {
      wchar_t* t = GetTmp(63);
      IntToString(GetIntAt(type, p), t);
      return t;
    }
    case TDouble: {
      wchar_t* t = GetTmp(127);
      double d;
      memcpy(&d, p, 8);
      ToString(d, t, Tree ? Tree->Precision : 10000);
      return t;
    }
  }
  return EmptyString;
}

const wchar_t* TData::GetStringBase(int index) {
  unsigned char* p = nullptr;
  int type = GetTypeBase(index, p);
  return GetStringAt(type, p);
}

const wchar_t* TData::GetString(int index) {
  unsigned char* p = nullptr;
  int type = GetTypeBase(index, p);
  if (!IsReadable(type) && Base) return Base->GetStringBase(index);
  return GetStringAt(type, p);
}

int TData::GetStringAt(int type, const unsigned char* p, int room, wchar_t* buffer, int maxLength) {
  switch (type) {
    case TByte:
    case TInt:
      if (!buffer) return 0;
      return (int)(IntToString(GetIntAt(type, p), buffer) - buffer);
    case TDouble: {
      if (!buffer) return 0;
      double d;
      memcpy(&d, p, 8);
      return (int)(ToString(d, buffer, Tree ? Tree->Precision : 10000) - buffer);
    }
    case TString: {
      int length = StringLengthAt(p);
      if (maxLength == 0 || room <= maxLength || length <= maxLength) {
        if (buffer) memcpy(buffer, p, (length + 1) * sizeof(wchar_t));
        return length;
      }
      // Cut: maxLength - 1 characters; the result is one more than written.
      if (buffer) {
        memcpy(buffer, p, (maxLength - 1) * sizeof(wchar_t));
        buffer[maxLength - 1] = 0;
      }
      return maxLength;
    }
  }
  if (buffer) buffer[0] = 0;
  return 0;
}

int TData::GetStringBase(int index, wchar_t* buffer, int maxLength) {
  unsigned char* p = nullptr;
  int type = GetTypeBase(index, p);
  return GetStringAt(type, p, type ? GetLength(index) : 0, buffer, maxLength);
}

int TData::GetString(int index, wchar_t* buffer, int maxLength) {
  if (!HasBase(index) && Base) return Base->GetStringBase(index, buffer, maxLength);
  return GetStringBase(index, buffer, maxLength);
}

const unsigned char* TData::GetArrayBase(int index) const {
  unsigned char* p = nullptr;
  return GetTypeBase(index, p) == TArray ? p : ZeroArray;
}

// ---- writing ----

int TData::SetType(int index, int type, int size) {
  if (index == -1 || size < 0) return -1;
  int slot = SlotOf(index);
  // Unassigned halves (0xFFFF) and slots beyond the name table's range are
  // refused: the table's 16-bit signed count could not hold them.
  if (slot < 0 || slot > TIndextable::MaxSlot) return -1;

  int sizeClass, grow;
  if (type == TString) {
    int i = 0;
    while (i < 22 && size >= StringSizes[i]) i++;
    if (i == 22) return -1;
    sizeClass = i + 3;
    grow = StringSizes[i];
  } else {
    sizeClass = TypeSizes[type & 7];
    grow = size;
  }
  if ((long long)Used + grow > MaxValues) return -1;

  if (slot >= SlotCount) {
    if (!Slots) {
      Slots = calloc(8, SlotWidth);
      SlotCount = 8;
    }
    // The first table has 8 slots; a first write beyond them grows it at once.
    if (slot >= SlotCount) {
      int count = (slot + 4) & ~3;
      Slots = Regrow(Slots, (size_t)SlotCount * SlotWidth, (size_t)count * SlotWidth, Pooled, PooledSlots);
      memset((unsigned char*)Slots + SlotCount * SlotWidth, 0, (size_t)(count - SlotCount) * SlotWidth);
      SlotCount = (int16_t)count;
    }
  }

  unsigned s = GetSlot(slot);
  int meta = MetaOf(s, SlotWidth), position = PosOf(s, SlotWidth);
  int oldType = meta & 7;
  int room = oldType ? 1 << (meta >> 3) : 0;

  if (room >= size) {
    if (type != oldType) WriteSlot(slot, meta + type - oldType, position);
    return position;
  }

  // The append below may pass the end of a trimmed area.
  WidenValues((long long)Used - room + grow);
  if (room > 0) {
    memmove(Values + position, Values + position + room, Used - position - room);
    Used -= room;
    for (int i = 0; i < SlotCount; i++) {
      unsigned t = GetSlot(i);
      int p = PosOf(t, SlotWidth);
      if (p > position) WriteSlot(i, MetaOf(t, SlotWidth), p - room);
    }
  }

  position = Used;
  Used += grow;
  int newMeta = (sizeClass << 3) | type;
  WriteSlot(slot, newMeta, position);

  if (Used > Capacity) {
    int capacity = Values ? Capacity : 32;
    while ((long long)Used + size > capacity) capacity *= 2;
    Values = (unsigned char*)Regrow(Values, (size_t)Capacity, (size_t)capacity, Pooled, PooledValues);
    Capacity = capacity;
    if (SlotWidth == 2 && Capacity >= 512) {
      uint32_t* wide = (uint32_t*)malloc((size_t)SlotCount * 4);
      for (int i = 0; i < SlotCount; i++) {
        unsigned t = ((uint16_t*)Slots)[i];
        wide[i] = ((t >> 8) << 24) | (t & 0xFF);
      }
      if (!(Pooled & PooledSlots)) free(Slots);
      Pooled &= ~PooledSlots;
      Slots = wide;
      SlotWidth = 4;
      WriteSlot(slot, newMeta, position);
    }
  }
  return position;
}

int TData::SetByte(int index, int value) {
  int pos = SetType(index, TByte, 1);
  if (pos < 0) return pos;
  Values[pos] = (unsigned char)value;
  return value;
}

int TData::SetInt(int index, int value) {
  int pos = SetType(index, TInt, 4);
  if (pos < 0) return pos;
  memcpy(Values + pos, &value, 4);
  return value;
}

double TData::SetDouble(int index, double value) {
  int pos = SetType(index, TDouble, 8);
  if (pos < 0) return pos;
  memcpy(Values + pos, &value, 8);
  return value;
}

int TData::StoreString(int index, const void* text, int length) {
  if (length < 0 || length >= MaxValues / (int)sizeof(wchar_t)) return -1;
  int pos = SetType(index, TString, (length + 1) * (int)sizeof(wchar_t));
  if (pos < 0) return pos;
  if (length) memcpy(Values + pos, text, length * sizeof(wchar_t));
  memset(Values + pos + length * sizeof(wchar_t), 0, sizeof(wchar_t));
  return pos;
}

int TData::SetString(int index, const wchar_t* text, int length) {
  if (!text) text = EmptyString;
  if (length <= 0) length = (int)wcslen(text);
  return StoreString(index, text, length);
}

int TData::SetStringMax(int index, const wchar_t* text, int max) {
  if (!text) text = EmptyString;
  int length = (int)wcslen(text);
  if (max >= 0 && length > max) length = max;
  return StoreString(index, text, length);
}

int TData::SetArray(int index, const int* items, int count) {
  if (count < 0 || count >= MaxValues / 4) return -1;
  int pos = SetType(index, TArray, (count + 1) * 4);
  if (pos < 0) return pos;
  memcpy(Values + pos, &count, 4);
  if (count) memcpy(Values + pos + 4, items, (size_t)count * 4);
  return pos;
}

wchar_t* TData::GetTmp(int length) {
  if (Tree) return Tree->GetTmp(length);
  // A record outside any tree still gets working scratch.
  thread_local std::vector<wchar_t> scratch;
  if ((int)scratch.size() < length + 1) scratch.resize(length + 1);
  return scratch.data();
}

wchar_t* TData::ToString(double value, wchar_t* buffer, int precision) {
  if (value == 0) {
    buffer[0] = L'0';
    buffer[1] = 0;
    return buffer + 1;
  }
  if (precision < 1) precision = 1;
  double limit = 1.0 / precision;
  if (!(value <= 1e17 && value >= -1e17) || (value > -limit && value < limit))
    return buffer + swprintf(buffer, L"%g", value);

  long long whole = (long long)value;
  long long fraction = (long long)floor(precision * (value - whole) + 0.5);
  wchar_t* out = buffer;
  if (value < 0) {
    fraction = -fraction;
    if (fraction >= precision) {
      whole -= 1;
      fraction -= precision;
    }
    if (whole == 0) *out++ = L'-';
  } else if (fraction >= precision) {
    whole += 1;
    fraction -= precision;
  }
  out = IntToString(whole, out);
  if (fraction == 0) return out;
  *out++ = L'.';
  for (long long d = precision; d >= 2 && fraction < d / 10; d /= 10) *out++ = L'0';
  out = IntToString(fraction, out);
  while (out[-1] == L'0') out--;
  *out = 0;
  return out;
}

// ---- comparison and copying ----

bool TData::Compare(int index, TData* other, int otherIndex) {
  unsigned char *a = nullptr, *b = nullptr;
  int ta = GetType(index, a), tb = other->GetType(otherIndex, b);
  if (ta != tb) return false;
  switch (ta) {
    case TNone: return true;
    case TByte: return *a == *b;
    case TInt: return memcmp(a, b, 4) == 0;
    case TDouble: {
      double x, y;
      memcpy(&x, a, 8);
      memcpy(&y, b, 8);
      return x == y;
    }
    case TString: {
      int la = StringLengthAt(a), lb = StringLengthAt(b);
      return la == lb && memcmp(a, b, la * sizeof(wchar_t)) == 0;
    }
  }
  return false;
}

bool TData::CmpString(int index, const wchar_t* text) {
  return text && wcscmp(GetString(index), text) == 0;
}

bool TData::CmpString(int index, const wchar_t* a, const wchar_t* b, const wchar_t* c, const wchar_t* d,
                      const wchar_t* e) {
  if (!a) return false;
  const wchar_t* value = GetString(index);
  const wchar_t* list[5] = {a, b, c, d, e};
  for (int i = 0; i < 5 && list[i]; i++)
    if (wcscmp(value, list[i]) == 0) return true;
  return false;
}

void TData::Copy(int index, TData* source, int sourceIndex, int mode, bool withBase) {
  if (!source) return;
  unsigned char* p = nullptr;
  int type = source->GetTypeBase(sourceIndex, p);
  TData* from = source;
  if (!type && withBase && source->Base) {
    from = source->Base;
    type = from->GetTypeBase(sourceIndex, p);
  }
  if (mode == 0 && HasBase(index)) return;
  switch (type) {
    case TNone:
      if (mode == 2) SetNull(index);
      return;
    case TByte: SetByte(index, (signed char)*p); return;
    case TInt: SetInt(index, GetIntAt(TInt, p)); return;
    case TDouble: SetDouble(index, GetDoubleAt(TDouble, p)); return;
    case TString: {
      int length = StringLengthAt(p);
      if (from != this) {
        StoreString(index, p, length);
      } else {
        // The write may move our own value area: copy the text out first.
        std::vector<wchar_t> text(length + 1);
        memcpy(text.data(), p, (length + 1) * sizeof(wchar_t));
        StoreString(index, text.data(), length);
      }
      return;
    }
  }
}

void TData::Merge(TData* source, int overwrite) {
  if (!source || source == this) return;
  bool translate = source->Tree != Tree || (source->Flags & FSpec) != (Flags & FSpec);
  // Names come by the plain slot number: right for a low-space source; for a
  // high-space source this reads high slot 0 (#Name), a kept behaviour.
  int nameMode = source->Flags & FSpec ? 2 : 1;
  for (int slot = 3; slot < source->SlotCount; slot++) {
    unsigned s = source->GetSlot(slot);
    int type = MetaOf(s, source->SlotWidth) & 7;
    if (!type) continue;
    int index;
    if (translate) {
      if (!source->Tree || !Tree) continue;
      index = GetIndex(source->Tree->Names.GetName(slot, nameMode), 1);
    } else {
      index = Flags & FSpec ? slot << 16 : slot;
    }
    if (index == -1 || (!overwrite && HasBase(index))) continue;
    const unsigned char* p = source->Values + PosOf(s, source->SlotWidth);
    switch (type) {
      case TByte: SetByte(index, (signed char)*p); break;
      case TInt: SetInt(index, GetIntAt(TInt, p)); break;
      case TDouble: SetDouble(index, GetDoubleAt(TDouble, p)); break;
      case TString: StoreString(index, p, StringLengthAt(p)); break;
      case TArray: {
        int count;
        memcpy(&count, p, 4);
        if (count > 0 && count < MaxValues / 4) {
          std::vector<int> items(count);
          memcpy(items.data(), p + 4, (size_t)count * 4);
          SetArray(index, items.data(), count);
        }
        break;
      }
    }
  }
}

TNode* TData::Duplicate() {
  if (!Tree) return nullptr;
  TNode* copy = Tree->CreateElement(nullptr);
  if (Capacity) {
    copy->Values = (unsigned char*)malloc(Capacity);
    memcpy(copy->Values, Values, Used);
  }
  copy->Used = Used;
  copy->Capacity = Capacity;
  if (Slots) {
    copy->Slots = malloc((size_t)SlotCount * SlotWidth);
    memcpy(copy->Slots, Slots, (size_t)SlotCount * SlotWidth);
  }
  copy->SlotCount = SlotCount;
  copy->SlotWidth = SlotWidth;
  copy->Base = Base;
  copy->Flags = Flags;
  return copy;
}

int TData::GetIndexes(int*& out) {
  // Counted first, so the list needs no fixed buffer.
  int count = 0;
  for (int slot = 3; slot < SlotCount; slot++)
    if (MetaOf(GetSlot(slot), SlotWidth) & 7) count++;
  int* list = (int*)GetTmp(count);
  int n = 0;
  for (int slot = 3; slot < SlotCount; slot++)
    if (MetaOf(GetSlot(slot), SlotWidth) & 7) list[n++] = Flags & FSpec ? slot << 16 : slot;
  out = list;
  return count;
}

void TData::SetId(const wchar_t* text) {
  if (!Tree) return;
  Tree->Ids.Remove(GetId());
  SetString(IIdIndex, text);
  Tree->Ids.SetNode(text, static_cast<TNode*>(this));
}
