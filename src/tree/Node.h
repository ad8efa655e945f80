// TNode: an attribute record with tree links. A node owns its children; the
// links to siblings and parent are not owned. Nodes are only made by
// TTree::CreateElement (always as the chain's last level, TNodeCalc) and are
// destroyed with TNode::Delete, which frees the whole subtree without recursion.
// TNodeList: a growable list of nodes that does not own them.
#pragma once
#include <cstddef>
#include <type_traits>
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
