#include "tree/Hashtable.h"

#include <climits>
#include <cstdlib>
#include <cstring>

static_assert(sizeof(wchar_t) == 4, "keys are sized in 4-byte characters");

namespace {

const uint32_t End32 = 0xFFFFFFFF;
const uint16_t End16 = 0xFFFF;
const int MaxChunks = 30;
const int FirstChunk = 256;
const int FirstCapacity = 32;
// Doubling beyond this would overflow Capacity.
const int MaxCapacity = 1 << 30;
// Growing buckets stop at this mask.
const unsigned MaxMask = (1u << 28) - 1;

// A key given as text1 (length1 characters) followed by text2, hashed and
// compared in place so that the two-text forms never join into a buffer.
struct TKey {
  const wchar_t* Text1;
  size_t Length1;
  bool Whole1;  // text1 ends at Length1, so wcscmp may run on it
  const wchar_t* Text2;
  size_t Length2;
  uint32_t Hash;
  wchar_t First;

  // length1 < 0: text1 runs to its terminator. A NUL within length1 ends it.
  TKey(const wchar_t* text1, long long length1, const wchar_t* text2) {
    uint32_t h = 0;
    size_t i = 0;
    if (length1 < 0) {
      for (; text1[i]; i++) h = (uint32_t)text1[i] + h * 63 - 32;
    } else {
      for (; i < (size_t)length1 && text1[i]; i++) h = (uint32_t)text1[i] + h * 63 - 32;
    }
    Text1 = text1;
    Length1 = i;
    Whole1 = length1 < 0;
    Text2 = text2 ? text2 : L"";
    size_t j = 0;
    for (; Text2[j]; j++) h = (uint32_t)Text2[j] + h * 63 - 32;
    Length2 = j;
    Hash = h;
    First = Length1 ? Text1[0] : Text2[0];
  }

  size_t Length() const { return Length1 + Length2; }

  // The first character decides most chain neighbours without a call.
  bool Matches(const wchar_t* key) const {
    if (key[0] != First) return false;
    if (Whole1 && !Length2) return wcscmp(key, Text1) == 0;
    // Text1's first Length1 characters hold no NUL, so a match there means
    // key is at least that long and key + Length1 is still inside it.
    return wcsncmp(key, Text1, Length1) == 0 && wcscmp(key + Length1, Text2) == 0;
  }

  void CopyTo(wchar_t* key) const {
    wmemcpy(key, Text1, Length1);
    wmemcpy(key + Length1, Text2, Length2);
    key[Length()] = 0;
  }
};

uint32_t HashOf(const wchar_t* text) {
  uint32_t h = 0;
  for (; *text; text++) h = (uint32_t)*text + h * 63 - 32;
  return h;
}

// The key pool: chunks of 256, 512, ... cells; a key of size bytes is counted
// as size cells. A chunk's memory is its cell count in bytes, so a key takes
// just its own bytes: the counting decides when a chunk is full, not how much
// memory a key holds. Keys are whole 4-byte characters, so they stay aligned.
// The walk is checked first, so a key the 30 chunks (or the 32-bit cell count)
// cannot hold leaves the pool untouched.
struct TPool {
  uint32_t** Chunks;
  int& Last;
  int& Size;
  int& Used;

  bool Fits(size_t size) const {
    long long chunkSize = Size, used = Used;
    int last = Last;
    while ((unsigned long long)used + size >= (unsigned long long)chunkSize) {
      chunkSize = chunkSize ? chunkSize * 2 : FirstChunk;
      if (chunkSize > INT_MAX || ++last >= MaxChunks) return false;
      used = 0;
    }
    return true;
  }

  // Only after Fits.
  wchar_t* Take(size_t size) {
    while ((size_t)Used + size >= (size_t)Size) {
      Size = Size ? Size * 2 : FirstChunk;
      Chunks[++Last] = (uint32_t*)malloc((size_t)Size);
      Used = 0;
    }
    wchar_t* key = (wchar_t*)((char*)Chunks[Last] + Used);
    Used += (int)size;
    return key;
  }

  void Free() {
    for (int i = 0; i <= Last; i++) {
      free(Chunks[i]);
      Chunks[i] = nullptr;
    }
    Last = -1;
    Size = 0;
    Used = 0;
  }
};

size_t KeyBytes(const TKey& key) { return (key.Length() + 1) * sizeof(wchar_t); }

// Walks the chain of key's bucket. Returns the matching entry, or End with
// last set to the chain's final entry (End for an empty bucket).
template <class T>
T Lookup(const T* buckets, const T* next, unsigned mask, wchar_t* const* keys, const uint32_t* hashes,
         const TKey& key, T end, T& last) {
  last = end;
  for (T e = buckets[key.Hash & mask]; e != end; e = next[e]) {
    if ((!hashes || hashes[e] == key.Hash) && key.Matches(keys[e])) return e;
    last = e;
  }
  return end;
}

// Points the predecessor of entry (or the bucket) at its successor. False if
// the entry is no longer in its chain.
template <class T>
bool Unlink(T* buckets, T* next, unsigned mask, wchar_t* const* keys, T entry, T end) {
  T* link = &buckets[HashOf(keys[entry]) & mask];
  while (*link != end) {
    if (*link == entry) {
      *link = next[entry];
      return true;
    }
    link = &next[*link];
  }
  return false;
}

template <class T>
T* NewBuckets(unsigned mask) {
  size_t bytes = ((size_t)mask + 1) * sizeof(T);
  T* buckets = (T*)malloc(bytes);
  memset(buckets, 0xFF, bytes);
  return buckets;
}

}  // namespace

// ---- THashtable ----

THashtable::THashtable(unsigned mask)
    : Buckets(NewBuckets<uint32_t>(mask)), Chunks(), ChunkLast(-1), ChunkSize(0), ChunkUsed(0), Capacity(0),
      Next(nullptr), Mask(mask), Keys(nullptr), Values(nullptr), Hashes(nullptr), Count(0), OwnValues(1),
      Grows(0) {}

THashtable::~THashtable() {
  Clear();
  free(Buckets);
}

int THashtable::Get(const wchar_t* text, int create) { return Find(text, nullptr, create); }

int THashtable::Get(const wchar_t* text1, const wchar_t* text2, int create) { return Find(text1, text2, create); }

int THashtable::Find(const wchar_t* text1, const wchar_t* text2, int create) {
  if (!text1) return -1;
  TKey key(text1, -1, text2);
  uint32_t last;
  uint32_t entry = Lookup(Buckets, Next, Mask, Keys, Hashes, key, End32, last);
  if (entry != End32) return (int)entry;
  if (!create) return -1;
  wchar_t* copy = Allocate(KeyBytes(key));
  if (!copy) return -1;
  key.CopyTo(copy);
  Hashes[Count] = key.Hash;
  if (Grows && (unsigned)Count > Mask && Mask < MaxMask && ((Mask + 1) & Mask) == 0) {
    GrowBuckets();
    Lookup(Buckets, Next, Mask, Keys, Hashes, key, End32, last);
  }
  // New keys go to the tail, so an older equal key is found first.
  if (last == End32) Buckets[key.Hash & Mask] = Count;
  else Next[last] = Count;
  return Count++;
}

wchar_t* THashtable::Allocate(size_t size) {
  TPool pool{Chunks, ChunkLast, ChunkSize, ChunkUsed};
  if (Count == Capacity && Capacity >= MaxCapacity) return nullptr;
  if (!pool.Fits(size)) return nullptr;
  if (Count == Capacity) {
    int capacity = Capacity ? Capacity * 2 : FirstCapacity;
    size_t n = (size_t)capacity;
    // Keys 8, links 4, values 8, hashes 4 bytes an entry.
    char* block = (char*)malloc(n * 24);
    wchar_t** keys = (wchar_t**)block;
    uint32_t* next = (uint32_t*)(block + n * 8);
    void** values = (void**)(block + n * 12);
    uint32_t* hashes = (uint32_t*)(block + n * 20);
    memset(next, 0xFF, n * 4);
    if (Count) {
      memcpy(keys, Keys, (size_t)Count * sizeof(*keys));
      memcpy(next, Next, (size_t)Count * sizeof(*next));
      memcpy(values, Values, (size_t)Count * sizeof(*values));
      memcpy(hashes, Hashes, (size_t)Count * sizeof(*hashes));
    }
    free(Keys);
    Keys = keys;
    Next = next;
    Values = values;
    Hashes = hashes;
    Capacity = capacity;
  }
  wchar_t* key = pool.Take(size);
  Keys[Count] = key;
  Values[Count] = nullptr;
  return key;
}

// Doubles the buckets. Each chain splits into two, the entries keeping their
// order, so lookups find the same entry as before; unlinked entries stay out.
void THashtable::GrowBuckets() {
  unsigned size = Mask + 1;
  uint32_t* buckets = (uint32_t*)realloc(Buckets, (size_t)size * 2 * sizeof(uint32_t));
  if (!buckets) return;
  Buckets = buckets;
  for (unsigned b = 0; b < size; b++) {
    uint32_t low = End32, high = End32, *lowTail = &low, *highTail = &high;
    for (uint32_t e = Buckets[b]; e != End32; e = Next[e]) {
      uint32_t*& tail = Hashes[e] & size ? highTail : lowTail;
      *tail = e;
      tail = &Next[e];
    }
    *lowTail = *highTail = End32;
    Buckets[b] = low;
    Buckets[b + size] = high;
  }
  Mask = size * 2 - 1;
}

void* THashtable::GetValue(int entry) const { return entry >= 0 && entry < Count ? Values[entry] : nullptr; }

void* THashtable::GetValue(const wchar_t* text, int create) { return GetValue(Get(text, create)); }

void THashtable::SetValue(int entry, const void* data, int size) {
  if (entry < 0 || entry >= Count) return;
  if (!OwnValues) {
    Values[entry] = const_cast<void*>(data);
    return;
  }
  free(Values[entry]);
  Values[entry] = nullptr;
  if (!data) return;
  size_t bytes = size > 0 ? (size_t)size : 0;
  void* copy = malloc(bytes ? bytes : 1);
  if (bytes) memcpy(copy, data, bytes);
  Values[entry] = copy;
}

void THashtable::Remove(int entry) {
  if (entry < 0 || entry >= Count) return;
  Unlink(Buckets, Next, Mask, Keys, (uint32_t)entry, End32);
  // The value goes even for an entry already unlinked; the slot is cleared so
  // that Clear and the destructor never free it a second time. A node table
  // forgets its node too: compiled formulas keep entry numbers, and a removed
  // entry must not lead them to a row that is deleted later.
  if (!Values) return;
  if (OwnValues) free(Values[entry]);
  Values[entry] = nullptr;
}

void THashtable::Remove(const wchar_t* text) { Remove(Get(text, 0)); }

void THashtable::Clear() {
  if (OwnValues)
    for (int i = 0; i < Count; i++) free(Values[i]);
  TPool{Chunks, ChunkLast, ChunkSize, ChunkUsed}.Free();
  free(Keys);
  Keys = nullptr;
  Next = nullptr;
  Values = nullptr;
  Hashes = nullptr;
  Capacity = 0;
  Count = 0;
  memset(Buckets, 0xFF, ((size_t)Mask + 1) * sizeof(*Buckets));
}

// ---- TIndextable ----

TIndextable::TIndextable(unsigned mask)
    : Buckets(NewBuckets<uint16_t>(mask)), Chunks(), ChunkLast(-1), ChunkSize(0), ChunkUsed(0), Capacity(0),
      Next(nullptr), Mask(mask), NextLow(0), NextHigh(0), Keys(nullptr), Index(nullptr), LowNames(nullptr),
      HighNames(nullptr), Count(0) {}

TIndextable::~TIndextable() {
  Clear();
  free(Buckets);
}

int TIndextable::GetIndex(const wchar_t* name, int mode) { return Find(name, -1, nullptr, mode); }

int TIndextable::GetIndex(const wchar_t* name1, const wchar_t* name2, int mode) {
  return Find(name1, -1, name2, mode);
}

int TIndextable::GetIndexN(const wchar_t* name, int length, int mode) {
  if (length < 0) return -1;
  return Find(name, length, nullptr, mode);
}

int TIndextable::Find(const wchar_t* text1, int length1, const wchar_t* text2, int mode) {
  if (!text1) return -1;
  TKey key(text1, length1, text2);
  uint16_t last;
  uint16_t entry = Lookup<uint16_t>(Buckets, Next, Mask, Keys, nullptr, key, End16, last);
  if (entry != End16) return mode ? AddIndex(entry, mode, Index[entry]) : Index[entry];
  // Entry numbers must stay below the 16-bit end mark.
  if (!mode || Count >= MaxEntries) return -1;
  wchar_t* copy = Allocate(KeyBytes(key));
  if (!copy) return -1;
  key.CopyTo(copy);
  if (last == End16) Buckets[key.Hash & Mask] = (uint16_t)Count;
  else Next[last] = (uint16_t)Count;
  Count++;
  return AddIndex(Count - 1, mode, -1);
}

void TIndextable::Reserve(int n) {
  if (n < Capacity) return;
  int capacity = Capacity ? Capacity : FirstCapacity;
  while (capacity <= n) capacity *= 2;
  size_t c = (size_t)capacity, old = (size_t)Capacity;
  // Keys 8, links 2, indexes 4, low and high names 2 each: 18 bytes.
  char* block = (char*)malloc(c * 18);
  wchar_t** keys = (wchar_t**)block;
  uint16_t* next = (uint16_t*)(block + c * 8);
  int* index = (int*)(block + c * 10);
  int16_t* low = (int16_t*)(block + c * 14);
  int16_t* high = (int16_t*)(block + c * 16);
  memset(next, 0xFF, c * 2);
  // Unused slots read as entry 0xFFFF, which is never a valid entry.
  memset(low, 0xFF, c * 4);
  if (Capacity) {
    memcpy(keys, Keys, (size_t)Count * sizeof(*keys));
    memcpy(next, Next, (size_t)Count * sizeof(*next));
    memcpy(index, Index, (size_t)Count * sizeof(*index));
    memcpy(low, LowNames, old * sizeof(*low));
    memcpy(high, HighNames, old * sizeof(*high));
  }
  free(Keys);
  Keys = keys;
  Next = next;
  Index = index;
  LowNames = low;
  HighNames = high;
  Capacity = capacity;
}

wchar_t* TIndextable::Allocate(size_t size) {
  TPool pool{Chunks, ChunkLast, ChunkSize, ChunkUsed};
  if (!pool.Fits(size)) return nullptr;
  Reserve(Count);
  wchar_t* key = pool.Take(size);
  Keys[Count] = key;
  Index[Count] = -1;
  return key;
}

int TIndextable::AddIndex(int entry, int mode, int index) {
  if (entry < 0 || entry >= Count) return -1;
  uint32_t low = (uint32_t)index & 0xFFFF, high = (uint32_t)index >> 16;
  // A full space leaves its half at 0xFFFF; the name keeps its other half.
  if ((mode & 1) && low == 0xFFFF && NextLow <= MaxSlot) {
    Reserve(NextLow);
    LowNames[NextLow] = (int16_t)entry;
    low = (uint32_t)NextLow++;
  }
  if ((mode & 2) && high == 0xFFFF && NextHigh <= MaxSlot) {
    Reserve(NextHigh);
    HighNames[NextHigh] = (int16_t)entry;
    high = (uint32_t)NextHigh++;
  }
  Index[entry] = (int)(high << 16 | low);
  return Index[entry];
}

// Entries above 32767 are stored wrapped in the 16-bit cells; reading the
// cell back as unsigned recovers them.
int TIndextable::SlotEntry(const int16_t* names, unsigned slot) const {
  if (slot >= (unsigned)Capacity) return -1;
  int entry = (uint16_t)names[slot];
  return entry < Count ? entry : -1;
}

int TIndextable::GetIdx(int index) const {
  if (index == -1) return -1;
  unsigned low = (uint32_t)index & 0xFFFF, high = (uint32_t)index >> 16;
  if (low != 0xFFFF) return SlotEntry(LowNames, low);
  return high != 0xFFFF ? SlotEntry(HighNames, high) : -1;
}

const wchar_t* TIndextable::GetName(int index, int mode) const {
  unsigned low = (uint32_t)index & 0xFFFF, high = (uint32_t)index >> 16;
  int entry;
  if (mode != 2 && low != 0xFFFF) entry = SlotEntry(LowNames, low);
  else if (mode == 1 || high == 0xFFFF) entry = -1;
  else entry = SlotEntry(HighNames, high);
  return entry < 0 ? nullptr : Keys[entry];
}

void TIndextable::Remove(int index) {
  int entry = GetIdx(index);
  if (entry < 0) return;
  Unlink(Buckets, Next, Mask, Keys, (uint16_t)entry, End16);
}

// Slot counters stay: numbers handed out earlier are never given again.
void TIndextable::Clear() {
  TPool{Chunks, ChunkLast, ChunkSize, ChunkUsed}.Free();
  free(Keys);
  Keys = nullptr;
  Next = nullptr;
  Index = nullptr;
  LowNames = nullptr;
  HighNames = nullptr;
  Capacity = 0;
  Count = 0;
  memset(Buckets, 0xFF, ((size_t)Mask + 1) * sizeof(*Buckets));
}
