// TData: the packed attribute record of one element (row, column, default...).
//
// An attribute is addressed by a 32-bit name index from the tree's name table;
// the record uses the high half when FSpec is set, the low half otherwise. The
// half is a slot number in a table of 2- or 4-byte slots [meta:8][position],
// meta = (sizeClass << 3) | type, and the value lives unaligned at
// Values + position with room 1 << sizeClass. Plain getters fall through to one
// Base record (the row's default); the *Base getters read only the own slot.
// Text from a getter points into the record or the tree's scratch ring and is
// valid until the next write to the record or until the ring comes round.
#pragma once
#include <cstdint>
#include <wchar.h>

class TTree;
class TNode;

// Attribute type codes.
enum { TNone = 0, TByte = 1, TInt = 3, TArray = 5, TDouble = 6, TString = 7 };

// Node flags.
enum { FSpec = 1, FFiltered = 8, FState = 16, FGrouped = 32 };

// Bits of TData::Pooled. TrimmedValues: the value area holds TrimmedRoom
// units of 4 bytes, not Capacity: what was read and a little to spare. It is
// widened to Capacity before an append that would pass its end, so Capacity
// keeps its meaning while a read row costs little more than its values.
enum { PooledValues = 1, PooledSlots = 2, PooledNode = 4, TrimmedValues = 8 };

// Fixed name indexes, equal in every tree.
enum {
  INameIndex = 0, ITypeIndex = 0x10001, ITextIndex = 0x20002,
  IIdIndex = 0x30003, IExpandedIndex = 0x40004, IDefIndex = 0x50005
};

class TData {
public:
  // Value areas are addressed by 24-bit positions; a write that would need
  // more is refused (the setter returns -1 and stores nothing).
  static const int MaxValues = 1 << 24;

  static const unsigned char TypeSizes[8];
  static const int StringSizes[22];
  static int Log2[4097];
  static int MaxLog2[4097];
  static void Initialize();
  static int GetLog2(int n);
  static int GetMaxLog2(int n);

  TData();
  ~TData();
  TData(const TData&) = delete;
  TData& operator=(const TData&) = delete;

  // Name lookup through the tree; create 0 only looks up, otherwise the name
  // gets a slot number in this record's own space.
  int GetIndex(const wchar_t* name, int create) const;
  int GetIndex(const wchar_t* name1, const wchar_t* name2, int create) const;

  int GetTypeBase(int index, unsigned char*& pointer) const;
  int GetTypeBase(int index) const;
  int GetType(int index, unsigned char*& pointer) const;
  int GetType(int index) const;
  bool HasBase(int index) const { return GetTypeBase(index) != 0; }
  bool Has(int index) const { return GetType(index) != 0; }
  int GetPos(int index, int type) const;
  int GetLength(int index) const;
  int GetLengthIdx(int slot) const;

  int GetIntBase(int index) const;
  int GetInt(int index) const;
  double GetDoubleBase(int index) const;
  double GetDouble(int index) const;
  int GetByteBase(int index) const;

  const wchar_t* GetStringBase(int index);
  const wchar_t* GetString(int index);
  int GetStringBase(int index, wchar_t* buffer, int maxLength);
  int GetString(int index, wchar_t* buffer, int maxLength);
  const wchar_t* GetName() { return GetStringBase(INameIndex); }
  const wchar_t* GetId() { return GetStringBase(IIdIndex); }
  // Own array: pointer to its 32-bit count (unaligned bytes), or to a shared
  // array of count 0.
  const unsigned char* GetArrayBase(int index) const;

  int SetByte(int index, int value);
  int SetInt(int index, int value);
  double SetDouble(int index, double value);
  int SetString(int index, const wchar_t* text, int length = 0);
  int SetStringMax(int index, const wchar_t* text, int max);
  int SetArray(int index, const int* items, int count);
  int SetNull(int index) { return SetType(index, TNone, 0); }
  int SetType(int index, int type, int size);

  wchar_t* GetTmp(int length);
  static wchar_t* ToString(double value, wchar_t* buffer, int precision);
  // Decimal text of an integer; returns the terminator's address.
  static wchar_t* IntToString(long long value, wchar_t* buffer);

  bool Compare(int index, TData* other, int otherIndex);
  bool CmpString(int index, const wchar_t* text);
  bool CmpString(int index, const wchar_t* a, const wchar_t* b, const wchar_t* c = nullptr,
                 const wchar_t* d = nullptr, const wchar_t* e = nullptr);
  void Copy(int index, TData* source, int sourceIndex, int mode, bool withBase);
  void Merge(TData* source, int overwrite);
  TNode* Duplicate();
  int GetIndexes(int*& out);
  void SetId(const wchar_t* text);

  // Forms by name (getters look up, setters create) and by a pair of names
  // joined without a separator.
  const wchar_t* GetString(const wchar_t* name) { return GetString(GetIndex(name, 0)); }
  const wchar_t* GetString(const wchar_t* n1, const wchar_t* n2) { return GetString(GetIndex(n1, n2, 0)); }
  int GetInt(const wchar_t* name) const { return GetInt(GetIndex(name, 0)); }
  int GetInt(const wchar_t* n1, const wchar_t* n2) const { return GetInt(GetIndex(n1, n2, 0)); }
  double GetDouble(const wchar_t* name) const { return GetDouble(GetIndex(name, 0)); }
  double GetDouble(const wchar_t* n1, const wchar_t* n2) const { return GetDouble(GetIndex(n1, n2, 0)); }
  bool Has(const wchar_t* name) const { return Has(GetIndex(name, 0)); }
  bool Has(const wchar_t* n1, const wchar_t* n2) const { return Has(GetIndex(n1, n2, 0)); }
  int SetInt(const wchar_t* name, int value) { return SetInt(GetIndex(name, 1), value); }
  int SetInt(const wchar_t* n1, const wchar_t* n2, int value) { return SetInt(GetIndex(n1, n2, 1), value); }
  int SetByte(const wchar_t* name, int value) { return SetByte(GetIndex(name, 1), value); }
  double SetDouble(const wchar_t* name, double value) { return SetDouble(GetIndex(name, 1), value); }
  int SetString(const wchar_t* name, const wchar_t* text, int length = 0) { return SetString(GetIndex(name, 1), text, length); }
  int SetString(const wchar_t* n1, const wchar_t* n2, const wchar_t* text) { return SetString(GetIndex(n1, n2, 1), text); }
  int SetNull(const wchar_t* name) { return SetNull(GetIndex(name, 1)); }
  int SetNull(const wchar_t* n1, const wchar_t* n2) { return SetNull(GetIndex(n1, n2, 1)); }
  bool CmpString(const wchar_t* name, const wchar_t* text) { return CmpString(GetIndex(name, 0), text); }
  void Copy(const wchar_t* name, TData* source, int mode, bool withBase) {
    Copy(GetIndex(name, 1), source, source->GetIndex(name, 0), mode, withBase);
  }

  // Asks the memory system for the record's slot table and value area ahead
  // of use (a walk over many rows calls it some rows early); no effect on
  // contents.
  void Prefetch() const {
    __builtin_prefetch(Slots);
    __builtin_prefetch((const char*)Slots + 64);
    // Rows of a few hundred bytes are the usual case; longer ones are read
    // in part, and their tails come in as usual.
    for (int at = 0; at < Used && at < 512; at += 64) __builtin_prefetch(Values + at);
    if (Base) __builtin_prefetch(Base->Slots);
  }

  // The half of an index that this record uses.
  int SlotOf(int index) const { return Flags & FSpec ? index >> 16 : index & 0xFFFF; }
  // Own value of a slot: meta byte and position, 0 meta for an empty slot.
  unsigned GetSlot(int slot) const {
    return SlotWidth == 2 ? ((uint16_t*)Slots)[slot] : ((uint32_t*)Slots)[slot];
  }
  static int MetaOf(unsigned slotValue, int width) { return width == 2 ? slotValue >> 8 : slotValue >> 24; }
  static int PosOf(unsigned slotValue, int width) { return width == 2 ? slotValue & 0xFF : slotValue & 0xFFFFFF; }

  unsigned char* Values;
  void* Slots;
  int Used;
  int Capacity;
  int16_t SlotCount;
  unsigned char SlotWidth;
  unsigned char Flags;
  // Which blocks came from the tree's store (PooledValues, PooledSlots,
  // PooledNode) and so are not freed one by one. It sits in what would be
  // padding, so the record's size is unchanged.
  unsigned char Pooled;
  // Size of a trimmed value area in units of 4 bytes; also in padding.
  uint16_t TrimmedRoom;
  TTree* Tree;
  TData* Base;

  // Text of a string value at p: p itself when it is aligned for wchar_t,
  // otherwise a scratch copy (values are packed without alignment).
  const wchar_t* StringAt(const unsigned char* p);
  static int StringLengthAt(const unsigned char* p);

protected:
  // Frees both blocks (pooled ones stay in the store) and forgets them.
  void ReleaseBlocks();
  // Gives a trimmed value area its full Capacity on the heap when used
  // bytes would not fit it.
  void WidenValues(long long used);
  void WriteSlot(int slot, int meta, int position) {
    if (SlotWidth == 2)
      ((uint16_t*)Slots)[slot] = (uint16_t)((meta << 8) | (position & 0xFF));
    else
      ((uint32_t*)Slots)[slot] = ((uint32_t)meta << 24) | (uint32_t)(position & 0xFFFFFF);
  }
  int StoreString(int index, const void* text, int length);
  int GetIntAt(int type, const unsigned char* p) const;
  double GetDoubleAt(int type, const unsigned char* p) const;
  const wchar_t* GetStringAt(int type, const unsigned char* p);
  int GetStringAt(int type, const unsigned char* p, int room, wchar_t* buffer, int maxLength);
};

// The shared empty string of absent texts.
extern const wchar_t EmptyString[1];
