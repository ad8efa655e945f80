#include "tree/Node.h"
#include <cstdlib>
#include <cstring>
#include "grid/Calc.h"
#include "tree/Tree.h"

// Nodes come zeroed, as the record and the links expect.
void* TNode::operator new(size_t size) { return calloc(1, size); }
void TNode::operator delete(void* p) { free(p); }

void TNode::Delete(TNode* node) {
  if (!node) return;
  TNodeCalc* calc = static_cast<TNodeCalc*>(node);
  // A pooled node's memory stays with the tree's store.
  if (calc->Pooled & PooledNode) calc->~TNodeCalc();
  else delete calc;
}

TNode::TNode() : Prev(nullptr), Next(nullptr), Parent(nullptr), FirstChild(nullptr), LastChild(nullptr) {}

TNode::~TNode() {
  if (Parent) Unlink();
  if (Tree) Tree->Ids.Remove(GetId());
  // The subtree goes without recursion: each node's children are spliced in
  // front of the pending siblings before the node itself is freed.
  TNode* pending = FirstChild;
  FirstChild = LastChild = nullptr;
  while (pending) {
    TNode* node = pending;
    if (node->FirstChild) {
      node->LastChild->Next = node->Next;
      pending = node->FirstChild;
      node->FirstChild = node->LastChild = nullptr;
    } else {
      pending = node->Next;
    }
    node->Parent = node->Prev = node->Next = nullptr;
    Delete(node);
  }
}

void TNode::Unlink() {
  if (Prev) Prev->Next = Next; else Parent->FirstChild = Next;
  if (Next) Next->Prev = Prev; else Parent->LastChild = Prev;
  Prev = Next = Parent = nullptr;
}

TNode* TNode::GetChild(int position) const {
  TNode* child = FirstChild;
  while (child && position--) child = child->Next;
  return child;
}

int TNode::GetChildCount() const {
  int count = 0;
  for (TNode* child = FirstChild; child; child = child->Next) count++;
  return count;
}

int TNode::HasChildCount(int count, int flags) const {
  for (TNode* child = FirstChild; child; child = child->Next) {
    if ((child->Flags & FFiltered) && !(flags & 1)) continue;
    if (--count == 0) return 0;
    if (flags & (2 | 64)) {
      count = child->HasChildCount(count, flags);
      if (count == 0) return 0;
    }
  }
  return count;
}

int TNode::GetParentPos() const {
  if (!Parent) return -1;
  int position = 0;
  for (TNode* p = Prev; p; p = p->Prev) position++;
  return position;
}

TNode* TNode::RemoveChild(TNode* child) {
  if (!child || !child->Parent) return nullptr;
  child->Unlink();
  return child;
}

// Common start of the adders: a node of another tree is copied, a node of
// this tree is first taken from wherever it stands.
TNode* TNode::Adopt(TNode* child, bool deep) {
  if (child->Tree != Tree) return child->CopyNode(Tree, deep);
  if (child->Parent) child->Unlink();
  return child;
}

TNode* TNode::AppendChild(TNode* child) {
  if (!child) return nullptr;
  child = Adopt(child, true);
  child->Parent = this;
  child->Prev = LastChild;
  child->Next = nullptr;
  if (LastChild) LastChild->Next = child; else FirstChild = child;
  LastChild = child;
  return child;
}

TNode* TNode::PrependNode(TNode* child) {
  if (!child) return nullptr;
  child = Adopt(child, true);
  child->Parent = this;
  child->Prev = nullptr;
  child->Next = FirstChild;
  if (FirstChild) FirstChild->Prev = child; else LastChild = child;
  FirstChild = child;
  return child;
}

TNode* TNode::InsertBefore(TNode* child, TNode* reference) {
  if (!reference) return AppendChild(child);
  if (!child || reference->Parent != this) return nullptr;
  // Inserting a node beside itself only takes it out; linking it to itself
  // would leave a loop in the list.
  if (child == reference) return RemoveChild(child), nullptr;
  child = Adopt(child, true);
  child->Parent = this;
  child->Next = reference;
  child->Prev = reference->Prev;
  if (reference->Prev) reference->Prev->Next = child; else FirstChild = child;
  reference->Prev = child;
  return child;
}

TNode* TNode::InsertAfter(TNode* child, TNode* reference) {
  if (!reference) return PrependNode(child);
  if (!child || reference->Parent != this) return nullptr;
  if (child == reference) return RemoveChild(child), nullptr;
  child = Adopt(child, true);
  child->Parent = this;
  child->Prev = reference;
  child->Next = reference->Next;
  if (reference->Next) reference->Next->Prev = child; else LastChild = child;
  reference->Next = child;
  return child;
}

TNode* TNode::ReplaceChild(TNode* child, TNode* old) {
  if (!old || !child || old->Parent != this) return nullptr;
  child->Parent = this;
  child->Prev = old->Prev;
  child->Next = old->Next;
  if (old->Prev) old->Prev->Next = child; else FirstChild = child;
  if (old->Next) old->Next->Prev = child; else LastChild = child;
  old->Prev = old->Next = old->Parent = nullptr;
  return old;
}

TNode* TNode::GetChildByName(const wchar_t* name, bool deep) {
  if (!name) return nullptr;
  for (TNode* child = FirstChild; child; child = child->Next) {
    if (wcscmp(child->GetName(), name) == 0) return child;
    if (deep) {
      TNode* found = child->GetChildByName(name, true);
      if (found) return found;
    }
  }
  return nullptr;
}

TNode* TNode::CopyNode(TTree* tree, bool deep) {
  TNode* copy;
  if (tree == Tree) {
    copy = Duplicate();
  } else {
    if (!tree) tree = new TTree(nullptr);
    copy = tree->CreateElement(GetName());
    copy->Merge(this, 1);
  }
  if (deep && copy)
    for (TNode* child = FirstChild; child; child = child->Next) copy->AppendChild(child->CopyNode(copy->Tree, true));
  return copy;
}

void TNodeList::Add(TNode* node) {
  if (Count == Capacity) {
    if (Items == Inline) {
      TNode** items = (TNode**)malloc(sizeof(TNode*) * Capacity * 2);
      memcpy(items, Inline, sizeof(TNode*) * Count);
      Items = items;
    } else {
      Items = (TNode**)realloc(Items, sizeof(TNode*) * Capacity * 2);
    }
    Capacity *= 2;
  }
  Items[Count++] = node;
}

void TNodeList::Clear() {
  if (Items != Inline) free(Items);
  Items = Inline;
  Capacity = 16;
  Count = 0;
}

void CollectChildren(TNode* first, std::vector<TNode*>& rows) {
  const int Lists = 16;
  std::vector<TNode*> runs[Lists];
  for (TNode* parent = first; parent;) {
    TNode* at[Lists];
    int count = 0;
    for (; parent && count < Lists; parent = parent->Next) {
      runs[count].clear();
      at[count++] = parent->FirstChild;
    }
    // One step down every list per round: the loads of a round are independent.
    for (bool going = true; going;) {
      going = false;
      for (int k = 0; k < count; k++) {
        if (!at[k]) continue;
        runs[k].push_back(at[k]);
        at[k] = at[k]->Next;
        going = true;
      }
    }
    for (int k = 0; k < count; k++) rows.insert(rows.end(), runs[k].begin(), runs[k].end());
  }
}
