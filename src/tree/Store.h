// TStore: pooled memory for the nodes and records that the XML reader makes,
// owned by a tree and released with it. Blocks are cut from large slabs
// without per-block headers; none is given back before the tree dies, so a
// record that grows or a row that is deleted leaves its pooled room behind.
// Only reading fills the pool, so it never holds more than the documents
// read into its tree. In sanitizer builds the pool is off (Take gives null
// and callers use the heap), so that an overrun of a record is still seen.
// A tree that has filled a few slabs is reading a large document: its
// further slabs are mapped with their pages already in place, which costs
// one call per slab instead of a fault per page.
#pragma once
#include <cstddef>
#include <vector>

class TStore {
public:
  // Blocks above this size come from the heap.
  static const size_t MaxBlock = 4096;

  TStore() = default;
  ~TStore();
  TStore(const TStore&) = delete;
  TStore& operator=(const TStore&) = delete;

  // A block for a node (aligned for pointers) or for record bytes (aligned
  // for 4-byte units); null when the pool is off or the size is too large.
  void* TakeNode(size_t size) { return Take(Nodes, size, 8); }
  void* TakeBytes(size_t size) { return Take(Bytes, size, 4); }

private:
  struct TArea {
    char* Pos = nullptr;
    char* End = nullptr;
  };
  static const size_t SlabSize = 1 << 20;
  // Slabs before this many come from the heap, touched page by page.
  static const size_t LazySlabs = 4;
  TArea Nodes, Bytes;
  // The first LazySlabs are heap blocks, the rest mappings.
  std::vector<char*> Slabs;

  char* NewSlab();

  void* Take(TArea& area, size_t size, size_t align);
};
