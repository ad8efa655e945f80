#include "tree/Store.h"
#include <cstdlib>
#include <sys/mman.h>
#include <cstdint>

#if defined(__SANITIZE_ADDRESS__)
#define SARVENDO_STORE_OFF 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SARVENDO_STORE_OFF 1
#endif
#endif

namespace {

// A slab on a boundary of its own size, marked for huge pages: the rows of a
// large grid are visited in sorted, not stored, order, and with small pages
// nearly every visit would also miss the address cache.
char* MapSlab(size_t size) {
  size_t span = size * 2;
  void* raw = mmap(nullptr, span, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (raw == MAP_FAILED) return nullptr;
  char* start = (char*)(((uintptr_t)raw + size - 1) & ~(uintptr_t)(size - 1));
  if (start > (char*)raw) munmap(raw, (size_t)(start - (char*)raw));
  char* end = start + size;
  if (end < (char*)raw + span) munmap(end, (size_t)((char*)raw + span - end));
  madvise(start, size, MADV_HUGEPAGE);
  // One write per page puts the pages in place now, huge or not.
  for (size_t at = 0; at < size; at += 4096) start[at] = 0;
  return start;
}

}  // namespace

TStore::~TStore() {
  for (size_t i = 0; i < Slabs.size(); i++)
    if (i < LazySlabs) free(Slabs[i]);
    else munmap(Slabs[i], SlabSize);
}

char* TStore::NewSlab() {
  if (Slabs.size() < LazySlabs) return (char*)malloc(SlabSize);
  return MapSlab(SlabSize);
}

void* TStore::Take(TArea& area, size_t size, size_t align) {
#ifdef SARVENDO_STORE_OFF
  (void)area, (void)size, (void)align;
  return nullptr;
#else
  if (size == 0 || size > MaxBlock) return nullptr;
  size = (size + align - 1) & ~(align - 1);
  if ((size_t)(area.End - area.Pos) < size) {
    // Slabs are aligned for both kinds; the rest of a full one is left
    // unused.
    char* slab = NewSlab();
    if (!slab) return nullptr;
    Slabs.push_back(slab);
    area.Pos = slab;
    area.End = slab + SlabSize;
  }
  void* block = area.Pos;
  area.Pos += size;
  return block;
#endif
}
