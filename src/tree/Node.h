// TNode: an attribute record with tree links. A node owns its children; the
// links to siblings and parent are not owned. Nodes are only made by
// TTree::CreateElement (always as the chain's last level, TNodeCalc) and are
// destroyed with TNode::Delete, which frees the whole subtree without recursion.
// TNodeList: a growable list of nodes that does not own them.
#pragma once
#include <cstddef>
#include <type_traits>
#include <vector>
#include "grid/Format.h"

class TNode : public TDataFormat {
public:
  TNode();
  ~TNode();
  static void* operator new(size_t size);
  static void operator delete(void* p);
  // Destroys a node made by CreateElement, with its subtree.
  static void Delete(TNode* node);

  TNode* GetChild(int position) const;
  int GetChildCount() const;
  int HasChildCount(int count, int flags) const;
  int GetParentPos() const;
  TNode* RemoveChild(TNode* child);
  TNode* AppendChild(TNode* child);
  TNode* PrependNode(TNode* child);
  TNode* InsertBefore(TNode* child, TNode* reference);
  TNode* InsertAfter(TNode* child, TNode* reference);
  TNode* ReplaceChild(TNode* child, TNode* old);
  TNode* GetChildByName(const wchar_t* name, bool deep);
  // With tree null a new rootless TTree is made; the caller takes it from the
  // copy's Tree.
  TNode* CopyNode(TTree* tree, bool deep);

  TNode* Prev;
  TNode* Next;
  TNode* Parent;
  TNode* FirstChild;
  TNode* LastChild;

private:
  void Unlink();
  TNode* Adopt(TNode* child, bool deep);
};

// Calls work(node) on first and each following sibling, in order; a work
// that returns bool ends the walk by returning false. The records of the
// next siblings are prefetched while earlier ones are worked on, so a long
// walk waits for memory about once per row instead of at every read. work
// must not unlink or move the siblings behind its node.
template <class Work>
void ForSiblings(TNode* first, Work&& work) {
  const int Ahead = 8;
  TNode* ring[Ahead];
  int count = 0;
  TNode* next = first;
  for (; next && count < Ahead; next = next->Next) {
    next->Prefetch();
    ring[count++] = next;
  }
  for (int at = 0; count > 0; at = (at + 1) % Ahead) {
    TNode* node = ring[at];
    if (next) {
      next->Prefetch();
      ring[at] = next;
      next = next->Next;
    } else {
      count--;
    }
    if constexpr (std::is_same<decltype(work(node)), bool>::value) {
      if (!work(node)) return;
    } else {
      work(node);
    }
  }
}

// Asks for row i + 16's node and row i + 8's record (whose node came in
// eight rows ago), for a walk at row i over rows scattered in memory.
inline void PrefetchAhead(TNode* const* rows, size_t i, size_t n) {
  const size_t NodeAhead = 16, RecordAhead = 8;
  if (i + NodeAhead < n) {
    __builtin_prefetch(rows[i + NodeAhead]);
    __builtin_prefetch((const char*)rows[i + NodeAhead] + 64);
  }
  if (i + RecordAhead < n) rows[i + RecordAhead]->Prefetch();
}

// Calls work(row) on each of n rows in order, reading ahead as above; a
// work that returns bool ends the walk by returning false.
template <class Work>
void ForRows(TNode* const* rows, size_t n, Work&& work) {
  for (size_t i = 0; i < n; i++) {
    PrefetchAhead(rows, i, n);
    if constexpr (std::is_same<decltype(work(rows[i])), bool>::value) {
      if (!work(rows[i])) return;
    } else {
      work(rows[i]);
    }
  }
}

// Appends the children of first and of each following sibling (the rows of
// a list of pages) to rows, in order. Several sibling lists are followed at
// once, so that their memory loads overlap instead of waiting one by one.
void CollectChildren(TNode* first, std::vector<TNode*>& rows);

class TNodeList {
public:
  TNodeList() : Capacity(16), Count(0), Items(Inline) {}
  ~TNodeList() { Clear(); }
  TNodeList(const TNodeList&) = delete;
  TNodeList& operator=(const TNodeList&) = delete;
  void Add(TNode* node);
  void Clear();

  TNode* Inline[16];
  int Capacity;
  int Count;
  TNode** Items;
};
