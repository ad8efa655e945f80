// Documents and records beyond the sizes of the scanner's working buffers:
// they must load and write back correctly, and pathological nesting must be
// refused without exhausting the stack.
#include <cstring>

#include "TreeTest.h"

namespace {

std::wstring Repeat(const std::wstring& s, int n) {
  std::wstring r;
  for (int i = 0; i < n; i++) r += s;
  return r;
}

std::wstring Num(int i) { return std::to_wstring(i); }

class LimitsTest : public TreeTest {
protected:
  // How many of the root's attributes prefix0..prefixN-1 differ from want(i).
  template <class F> int Wrong(const wchar_t* prefix, int count, F want) {
    int wrong = 0;
    for (int i = 0; i < count; i++) wrong += tree.Root->GetString((prefix + Num(i)).c_str()) != want(i);
    return wrong;
  }
};

TEST_F(LimitsTest, ThousandsOfAttributesAndVeryLongNamesRoundTrip) {
  const std::wstring n1(1000, L'q'), n2 = std::wstring(300, L'r') + L"x";
  std::wstring doc = L"<a";
  for (int i = 0; i < 3000; i++) doc += L" n" + Num(i) + L"=\"" + Num(i * 7) + L"\"";
  doc += L" " + n1 + L"=\"1\" " + n2 + L"=\"two\"><b " + n1 + L"=\"3\"/></a>";
  ASSERT_TRUE(Load(doc));
  EXPECT_EQ(Wrong(L"n", 3000, [](int i) { return Num(i * 7); }), 0);
  EXPECT_EQ(tree.Root->FirstChild->GetInt(n1.c_str()), 3);
  EXPECT_EQ(Xml(tree.Root), doc);
}

TEST_F(LimitsTest, DecodedValuesBeyondTheSharedRoom) {
  // Each value needs the shared decoding room; together far more than it has.
  std::wstring doc = L"<a";
  for (int i = 0; i < 3000; i++) doc += L" v" + Num(i) + L"=\"&amp;" + Num(i) + L"\"";
  doc += L">";
  for (int i = 0; i < 2000; i++) doc += L"t" + Num(i) + L"&amp;<b/>";  // text runs count too
  ASSERT_TRUE(Load(doc + L"e&lt;nd</a>"));
  EXPECT_EQ(Wrong(L"v", 3000, [](int i) { return L"&" + Num(i); }), 0);
  EXPECT_STREQ(tree.Root->GetString(ITextIndex), L"e<nd");
  EXPECT_EQ(tree.Root->GetChildCount(), 2000);
  // Fewer values, each far larger than the room.
  doc = L"<w";  // another root name: a fresh root
  for (int i = 0; i < 100; i++) doc += L" v" + Num(i) + L"='" + Repeat(L"&lt;x&amp;", 400) + Num(i) + L"'";
  ASSERT_TRUE(Load(doc + L">" + Repeat(L"&gt;", 5000) + L"<b/>" + Repeat(L"y&amp;", 3000) + L"</w>"));
  EXPECT_EQ(Wrong(L"v", 100, [](int i) { return Repeat(L"<x&", 400) + Num(i); }), 0);
  EXPECT_EQ(tree.Root->GetString(ITextIndex), Repeat(L"y&", 3000));
  // One huge value with entities round trips; the writer's buffer grows
  // with the escapes, which take up to six times the text.
  const std::wstring raw = Repeat(L"ab&amp;cd&lt;&quot;", 20000);  // 140000 characters decoded
  doc = L"<h v=\"" + raw + L"\">" + Repeat(L"<c w=\"&lt;&gt;\"/>", 100) + raw + L"</h>";
  ASSERT_TRUE(Load(doc));
  EXPECT_EQ(tree.Root->GetString(L"v"), Repeat(L"ab&cd<\"", 20000));
  EXPECT_EQ(Xml(tree.Root), doc);
}

TEST_F(LimitsTest, NestingIsBoundedWithoutCrashing) {
  auto nest = [](int levels) {
    return Repeat(L"<e a=\"1\">", levels - 1) + L"<e/>" + Repeat(L"</e>", levels - 1);
  };
  const std::wstring fine = nest(400);
  ASSERT_TRUE(Load(fine));
  EXPECT_EQ(Xml(tree.Root), fine);
  EXPECT_FALSE(Load(nest(600)));
  EXPECT_FALSE(Load(nest(200000)));
  EXPECT_FALSE(Load(Repeat(L"<e>", 200000)));
  EXPECT_EQ(Xml(tree.Root), fine);  // the earlier document is untouched
  TTree fresh;
  EXPECT_EQ(fresh.SetXml(nest(600).c_str()), nullptr);
  EXPECT_EQ(fresh.Root, nullptr);
}

TEST_F(LimitsTest, DeletingAVeryDeepChain) {
  TNode *top = tree.CreateElement(L"e"), *n = top;
  for (int i = 0; i < 200000; i++) n = n->AppendChild(tree.CreateElement(L"e"));
  n->SetId(L"deep");
  EXPECT_EQ(tree.GetElem(L"deep"), n);
  TNode::Delete(top);
  EXPECT_EQ(tree.GetElem(L"deep"), nullptr);
}

TEST_F(LimitsTest, GetIndexesReturnsEveryAttributeOfALargeRow) {
  const int count = 20000;
  std::wstring doc = L"<G><B><I><R";
  for (int i = 0; i < count; i++) doc += L" a" + Num(i) + L"=\"" + Num(i % 100) + L"\"";
  ASSERT_TRUE(Load(doc + L"/></I></B></G>"));
  TNode* row = tree.Root->FirstChild->FirstChild->FirstChild;
  ASSERT_TRUE(row->Flags & FSpec);
  int* out = nullptr;
  ASSERT_EQ(row->GetIndexes(out), count);
  int wrong = 0;
  for (int i = 0; i < count; i++)
    wrong += out[i] != (tree.GetIndex((L"a" + Num(i)).c_str(), 0) & ~0xFFFF) || row->GetInt(out[i]) != i % 100;
  EXPECT_EQ(wrong, 0);
}

TEST_F(LimitsTest, ScratchLargerThanTheRingIsUsable) {
  TNode* n = tree.CreateElement(L"n");
  for (int length : {TTree::TmpSize, 20000, 100000}) {
    wchar_t* p = n->GetTmp(length);
    ASSERT_NE(p, nullptr);
    for (int i = 0; i <= length; i++) p[i] = L'a' + i % 26;
    EXPECT_EQ(p[length], static_cast<wchar_t>(L'a' + length % 26));
  }
  wchar_t* small = n->GetTmp(10);  // back in the ring
  EXPECT_TRUE(small >= tree.Tmp && small + 11 <= tree.Tmp + TTree::TmpSize + TTree::TmpMargin);
  TNode::Delete(n);
}

TEST_F(LimitsTest, TruncatedUtf8AtTheEndStaysInsideTheBuffer) {
  // Each text is copied into a block of exactly its size, so that a read
  // behind the terminator is caught by the address checker.
  auto load = [](const std::string& bytes) {
    char* block = static_cast<char*>(malloc(bytes.size() + 1));
    memcpy(block, bytes.c_str(), bytes.size() + 1);
    TTree t;
    t.SetXml(block);
    free(block);
    return t.Root ? t.Root->GetName() + std::wstring(L"|") + t.Root->GetString(L"x") : L"<none>";
  };
  for (const char* tail : {"\xC3", "\xE2", "\xE2\x82", "\x82", "\x82\x82", "\xF0\x9F"})
    EXPECT_EQ(load(std::string("<a/>") + tail), L"a|") << tail;
  EXPECT_EQ(load("<a x=\"\xE2\x82"), L"<none>");
  // Beyond 2047 bytes the text is converted on the heap.
  std::string big = "<a x=\"";
  for (int i = 0; i < 5000; i++) big += "\xC3\xA9";
  EXPECT_EQ(load(big + "\"/>\xE2"), L"a|" + std::wstring(5000, L'\u00E9'));
}

}  // namespace
