// Nodes and trees: sibling links, the adders, removal and replacement, child
// counts, copies within and across trees, destruction and the id table.
#include <tuple>
#include <vector>

#include "TreeTest.h"

namespace {

class NodeTest : public TreeTest {
protected:
  void SetUp() override {
    TreeTest::SetUp();
    tree.Root = tree.CreateElement(L"R");
  }
  TNode* Add(TNode* parent, const wchar_t* name) { return parent->AppendChild(tree.CreateElement(name)); }
  // Names of the children in order, or "!" if a link is inconsistent.
  static std::wstring Order(TNode* parent) {
    std::wstring names;
    TNode* prev = nullptr;
    for (TNode* c = parent->FirstChild; c; prev = c, c = c->Next) {
      if (c->Parent != parent || c->Prev != prev) return L"!";
      names += c->GetName();
    }
    return parent->LastChild == prev ? names : L"!";
  }
  static bool Detached(TNode* n) { return !n->Parent && !n->Prev && !n->Next; }
};

// The walk that reads ahead visits every sibling once, in order, whether the
// list is shorter or longer than its reach, and stops where work says so.
TEST_F(NodeTest, SiblingWalkVisitsInOrderAndStopsOnFalse) {
  for (int count : {0, 1, 7, 8, 9, 40}) {
    TNode* parent = Add(tree.Root, L"P");
    std::wstring expected;
    for (int i = 0; i < count; i++) {
      wchar_t name[2] = {(wchar_t)(L'A' + i), 0};
      Add(parent, name);
      expected += name;
    }
    std::wstring seen;
    ForSiblings(parent->FirstChild, [&](TNode* node) { seen += node->GetName(); });
    EXPECT_EQ(seen, expected) << count;
    seen.clear();
    ForSiblings(parent->FirstChild, [&](TNode* node) {
      seen += node->GetName();
      return seen.size() < 3;
    });
    EXPECT_EQ(seen, expected.substr(0, 3)) << count;
  }
}

// Pages of different sizes, some empty, more than are followed at once:
// their rows come out in page order, each once, and ForRows sees the same.
TEST_F(NodeTest, CollectChildrenListsEveryPagesRowsInOrder) {
  std::vector<TNode*> expected;
  TNode* first = nullptr;
  for (int page = 0; page < 40; page++) {
    TNode* p = Add(tree.Root, L"B");
    if (!first) first = p;
    for (int row = 0; row < (page * 7) % 5; row++) expected.push_back(Add(p, L"I"));
  }
  std::vector<TNode*> rows = {tree.Root};  // appended to, not replaced
  CollectChildren(first, rows);
  expected.insert(expected.begin(), tree.Root);
  EXPECT_EQ(rows, expected);
  std::vector<TNode*> seen;
  ForRows(rows.data() + 1, rows.size() - 1, [&](TNode* row) { seen.push_back(row); });
  EXPECT_EQ(seen, std::vector<TNode*>(expected.begin() + 1, expected.end()));
  rows.clear();
  CollectChildren(nullptr, rows);
  EXPECT_TRUE(rows.empty());
}

TEST_F(NodeTest, AddersMoveANodeWithinTheTree) {
  TNode* r = tree.Root;
  TNode *a = Add(r, L"a"), *b = Add(r, L"b"), *c = Add(r, L"c"), *x = tree.CreateElement(L"x");
  auto step = [&](TNode* got, TNode* node, const wchar_t* order) {
    EXPECT_EQ(got, node) << order;
    EXPECT_EQ(Order(r), order);
  };
  step(r->AppendChild(c), c, L"abc");  // already last: nothing changes
  step(r->AppendChild(a), a, L"bca");
  step(r->PrependNode(c), c, L"cba");
  step(r->InsertBefore(x, b), x, L"cxba");
  step(r->InsertAfter(x, a), x, L"cbax");
  step(r->InsertAfter(x, nullptr), x, L"xcba");  // no reference: to the start
  step(r->InsertBefore(x, nullptr), x, L"cbax");  // no reference: to the end
  EXPECT_EQ(x->GetParentPos(), 3);
  EXPECT_EQ(r->GetParentPos(), -1);
  EXPECT_EQ(r->GetChild(-1), nullptr);
  TNode* o = Add(a, L"o");
  EXPECT_EQ(r->InsertBefore(x, o), nullptr);  // not a child of r
  EXPECT_EQ(r->InsertAfter(x, o), nullptr);
  a->AppendChild(b);  // from one parent to another
  EXPECT_EQ(Order(r), L"cax");
  EXPECT_EQ(Order(a), L"ob");
  EXPECT_EQ(r->GetChildByName(L"b", false), nullptr);  // depth first only on request
  EXPECT_EQ(r->GetChildByName(L"b", true), b);
}

TEST_F(NodeTest, RemoveAndReplaceFollowTheChildsOwnParent) {
  TNode* r = tree.Root;
  TNode *a = Add(r, L"a"), *b = Add(r, L"b"), *c = Add(r, L"c");
  a->SetId(L"1");
  TNode* loose = tree.CreateElement(L"l");
  EXPECT_EQ(r->RemoveChild(loose), nullptr);
  TNode* other = tree.CreateElement(L"q");
  EXPECT_EQ(other->RemoveChild(b), b);  // removed from r all the same
  EXPECT_EQ(Order(r), L"ac");
  EXPECT_TRUE(Detached(b));
  EXPECT_EQ(r->RemoveChild(a), a);
  EXPECT_EQ(tree.GetElem(L"1"), a);  // the id stays registered
  TNode *x = tree.CreateElement(L"x"), *y = tree.CreateElement(L"y");
  EXPECT_EQ(r->ReplaceChild(x, c), c);
  EXPECT_TRUE(Detached(c));
  EXPECT_EQ(r->ReplaceChild(y, c), nullptr);  // c is no longer a child
  EXPECT_TRUE(Detached(y));
  EXPECT_EQ(r->InsertBefore(y, x), y);
  EXPECT_EQ(r->ReplaceChild(b, y), y);  // the first place
  EXPECT_EQ(Order(r), L"bx");
  for (TNode* n : {a, c, y, loose, other}) TNode::Delete(n);
  EXPECT_EQ(tree.GetElem(L"1"), nullptr);
}

TEST_F(NodeTest, HasChildCountCountsDownVisibleChildren) {
  TNode* r = tree.Root;
  TNode* a = Add(r, L"a");
  Add(a, L"a1");
  Add(a, L"a2")->Flags |= FFiltered;
  Add(r, L"b")->Flags |= FFiltered;
  Add(r, L"c");
  // {start, flags, left}: 1 counts filtered children, 2 (or 64) grandchildren.
  const int cases[][3] = {{10, 0, 8}, {10, 1, 7}, {10, 2, 7}, {10, 64, 7},
                          {10, 3, 5}, {2, 0, 0},  {3, 0, 1},  {2, 2, 0}};
  for (const auto& c : cases) EXPECT_EQ(r->HasChildCount(c[0], c[1]), c[2]) << c[0] << "/" << c[1];
}

TEST_F(NodeTest, CopiesKeepOrDropTheRecordsTies) {
  TNode *def = Add(tree.Root, L"D"), *row = Add(tree.Root, L"I");
  row->Base = def;
  row->Flags |= FFiltered;
  row->SetId(L"6");
  row->SetId(L"1");  // moves the record in the id table
  EXPECT_EQ(tree.GetElem(L"6"), nullptr);
  row->SetString(L"A", L"a");
  Add(row, L"k");
  // Within the tree: an image outside the id table, Base and flags included.
  TNode* deep = row->CopyNode(&tree, true);
  EXPECT_EQ(std::make_tuple(deep->Base, deep->Flags, Room(deep)), std::make_tuple(def, row->Flags, Room(row)));
  EXPECT_TRUE(Detached(deep));
  deep->SetString(L"A", L"changed");
  EXPECT_EQ(Xml(deep), L"<I id=\"1\" A=\"changed\"><k/></I>");
  EXPECT_EQ(tree.GetElem(L"1"), row);
  TNode* flat = row->CopyNode(&tree, false);
  EXPECT_EQ(Xml(flat), L"<I id=\"1\" A=\"a\"/>");
  TNode::Delete(flat);  // the id is removed by its text, so the row loses it
  EXPECT_EQ(tree.GetElem(L"1"), nullptr);
  TNode::Delete(deep);
  // Into a new tree, or added to another tree: Base and flags stay behind.
  TNode* copy = row->CopyNode(nullptr, true);
  TTree* made = copy->Tree;
  EXPECT_EQ(made->Root, nullptr);
  EXPECT_TRUE(!copy->Base && copy->Flags == FState);
  TTree other(L"O");
  other.GetIndex(L"Z", 1);  // the numbering differs between the trees
  TNode* got = other.Root->AppendChild(row);
  ASSERT_NE(got, row);
  EXPECT_EQ(row->Parent, tree.Root);  // the source stays where it was
  EXPECT_EQ(Xml(got), L"<I id=\"1\" A=\"a\"><k/></I>");
  EXPECT_TRUE(got->Flags == FState && got->FirstChild->Tree == &other);
  EXPECT_EQ(other.GetElem(L"1"), nullptr);  // ids are not registered
  TNode::Delete(copy);
  delete made;
}

TEST_F(NodeTest, DeleteUnlinksAndUnregistersTheSubtree) {
  TNode* r = tree.Root;
  TNode* a = Add(r, L"a");
  Add(r, L"b");
  a->SetId(L"1");
  Add(a, L"a1")->SetId(L"2");
  TNode::Delete(a);
  EXPECT_EQ(Order(r), L"b");
  EXPECT_EQ(tree.GetElem(L"2"), nullptr);
  wchar_t** keys = nullptr;
  ASSERT_EQ(tree.GetIds(keys), 2);  // removed entries still count
  EXPECT_STREQ(keys[1], L"2");
  EXPECT_EQ(tree.GetElem(nullptr), nullptr);
  TNodeList list;  // grows by doubling and does not own its nodes
  std::vector<TNode*> nodes(40, r->FirstChild);
  for (TNode* n : nodes) list.Add(n);
  EXPECT_EQ(std::vector<TNode*>(list.Items, list.Items + list.Count), nodes);
}

}  // namespace
