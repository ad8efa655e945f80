// String-keyed chained hash tables with pooled keys.
//
// THashtable maps a text to a stable entry number (never reused) and keeps one
// value pointer per entry; TNodetable is the same holding nodes it does not own.
// TIndextable turns an attribute name into a 32-bit name index: low half = slot
// in the low space (layout elements), high half = slot in the high space (rows);
// 0xFFFF in a half means "no slot there", -1 as a whole means "no such name".
// Buckets are fixed for the table's life unless AllowGrowth was called (the
// id table of a tree): then they double whenever there are more entries than
// buckets, chains keeping their order. Keys live in chunks that never move,
// so key pointers and entry numbers stay valid while the table grows.
#pragma once
#include <cstddef>
#include <cstdint>
#include <wchar.h>

class TNode;

class THashtable {
public:
  explicit THashtable(unsigned mask);
  ~THashtable();
  THashtable(const THashtable&) = delete;
  THashtable& operator=(const THashtable&) = delete;

  // Entry number of the text; -1 for null text or, with create 0, a missing key.
  int Get(const wchar_t* text, int create);
  // The same for the concatenation text1 + text2 (no join buffer, any length).
  int Get(const wchar_t* text1, const wchar_t* text2, int create);
  void* GetValue(int entry) const;
  void* GetValue(const wchar_t* text, int create);
  // Owning table: frees the old block and stores a copy of size bytes.
  // Other table: stores data as it is.
  void SetValue(int entry, const void* data, int size);
  void Remove(int entry);
  void Remove(const wchar_t* text);
  void Clear();

  // Lets the buckets double with the entries (masks of the form 2^n - 1).
  void AllowGrowth() { Grows = 1; }

  int GetCount() const { return Count; }
  wchar_t** GetKeys() const { return Keys; }
  const wchar_t* GetKey(int entry) const { return entry >= 0 && entry < Count ? Keys[entry] : nullptr; }

protected:
  uint32_t* Buckets;
  uint32_t* Chunks[30];
  int ChunkLast;
  int ChunkSize;
  int ChunkUsed;
  int Capacity;
  uint32_t* Next;
  unsigned Mask;
  wchar_t** Keys;
  void** Values;
  // Full hash of each key, inside Keys' block: a chain of thousands of ids
  // is walked without touching the keys.
  uint32_t* Hashes;
  int Count;
  unsigned char OwnValues;
  unsigned char Grows;

  void GrowBuckets();
  int Find(const wchar_t* text1, const wchar_t* text2, int create);
  // Prepares entry Count with a pooled key of size bytes (counted as cells);
  // null when the pool or the arrays cannot take it.
  wchar_t* Allocate(size_t size);
};

class TNodetable : public THashtable {
public:
  explicit TNodetable(unsigned mask) : THashtable(mask) { OwnValues = 0; }
  TNode* GetNode(int entry) const { return (TNode*)GetValue(entry); }
  TNode* GetNode(const wchar_t* text, int create) { return (TNode*)GetValue(text, create); }
  void SetNode(int entry, TNode* node) { SetValue(entry, node, 0); }
  void SetNode(const wchar_t* text, TNode* node) { SetValue(Get(text, 1), node, 0); }
};

class TIndextable {
public:
  // Slot numbers above this are never handed out, so a record's 16-bit signed
  // slot count cannot overflow; a name that would need one gets 0xFFFF there.
  static const int MaxSlot = 0x7FF0;
  // Entries are linked by 16-bit numbers with 0xFFFF as the end mark.
  static const int MaxEntries = 0xFFFE;

  explicit TIndextable(unsigned mask);
  ~TIndextable();
  TIndextable(const TIndextable&) = delete;
  TIndextable& operator=(const TIndextable&) = delete;

  // Modes: 0 look up only, 1 ensure a low slot, 2 ensure a high slot, 3 both.
  int GetIndex(const wchar_t* name, int mode);
  int GetIndex(const wchar_t* name1, const wchar_t* name2, int mode);
  // A name given by pointer and length (need not be terminated).
  int GetIndexN(const wchar_t* name, int length, int mode);
  int AddIndex(int entry, int mode, int index);
  int GetIdx(int index) const;
  const wchar_t* GetName(int index, int mode) const;
  void Remove(int index);
  void Clear();

  int GetCount() const { return Count; }

protected:
  uint16_t* Buckets;
  uint32_t* Chunks[30];
  int ChunkLast;
  int ChunkSize;
  int ChunkUsed;
  int Capacity;
  uint16_t* Next;
  unsigned Mask;
  int NextLow;
  int NextHigh;
  wchar_t** Keys;
  int* Index;
  int16_t* LowNames;
  int16_t* HighNames;
  int Count;

  // length1 < 0: text1 runs to its terminator. text2 may be null.
  int Find(const wchar_t* text1, int length1, const wchar_t* text2, int mode);
  wchar_t* Allocate(size_t size);
  // Room in the parallel block for entry or slot number n.
  void Reserve(int n);
  int SlotEntry(const int16_t* names, unsigned slot) const;
};
