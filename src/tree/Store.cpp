#include "tree/Store.h"
#include <cstdlib>
#include <sys/mman.h>

#if defined(__SANITIZE_ADDRESS__)
#define SARVENDO_STORE_OFF 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SARVENDO_STORE_OFF 1
#endif
#endif

TStore::~TStore() {
  for (size_t i = 0; i < Slabs.size(); i++)
    if (i < LazySlabs) free(Slabs[i]);
    else munmap(Slabs[i], SlabSize);
}

char* TStore::NewSlab() {
  if (Slabs.size() < LazySlabs) return (char*)malloc(SlabSize);
  void* slab = mmap(nullptr, SlabSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
  return slab == MAP_FAILED ? nullptr : (char*)slab;
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
