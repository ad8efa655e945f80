// Reading documents into trees and writing nodes back as text.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <cwchar>
#include <fstream>
#include <iterator>
#include <tuple>
#include <vector>

#include "TreeTest.h"
#include "tree/UTF.h"

namespace {

class XmlTest : public TreeTest {
protected:
  void TearDown() override {
    for (const std::string& p : files) std::remove(p.c_str());
  }
  TNode* Root() { return tree.Root; }
  // A file in the test folder; removed after the test.
  std::wstring Path(const char* name) {
    std::string p = ::testing::TempDir() + "sv" + std::to_string(getpid()) + "_" + name;
    files.push_back(p);
    return std::wstring(p.begin(), p.end());
  }
  std::string Utf8(bool reversed, int flags) {
    int length = -1;
    char* text = tree.GetXml(reversed, &length, flags);
    if (!text) return "<null>";
    std::string s(text);
    EXPECT_EQ(length, static_cast<int>(s.size()));
    free(text);
    return s;
  }

  std::vector<std::string> files;
};

TEST_F(XmlTest, DocumentShapes) {
  EXPECT_EQ(tree.SetXml(static_cast<const wchar_t*>(nullptr)), nullptr);
  EXPECT_EQ(tree.SetXml(static_cast<const char*>(nullptr)), nullptr);
  // The root written back, or "-" where the document must fail.
  const struct { const wchar_t *text, *xml = L"-"; } cases[] = {
      {L""}, {L" \t\r\n"}, {L"abc", L"</>"}, {L"abc<a/>", L"</>"},  // text first: nameless
      {L"<a/>", L"<a/>"}, {L"<a></a>", L"<a/>"}, {L"<a />", L"<a/>"}, {L"<a/ >", L"<a/>"},
      {L" \n<a\t/>", L"<a/>"}, {L"<a></b>", L"<a/>"}, {L"<a/>tail<b/>", L"<a/>"},
      {L"<"}, {L"<a"}, {L"<a b>"}, {L"<a b=\"1\""}, {L"<a b=1/>"}, {L"<a b \"1\"/>"}, {L"<a b=\"1/>"},
      {L"<a/x>"}, {L"<a>"}, {L"<a>text"}, {L"<a><b/>"}, {L"<a><b>"}, {L"<a></a"}, {L"<!-- x"},
      {L"<?xml"}, {L"<a><!-- x</a>"}, {L"<a><?p </a>"},
  };
  for (const auto& c : cases) {
    TTree t;
    const bool ok = t.SetXml(c.text) != nullptr;
    EXPECT_EQ(ok, t.Root != nullptr) << c.text;
    EXPECT_EQ(t.Root ? Xml(t.Root) : L"-", c.xml) << c.text;
  }
}

TEST_F(XmlTest, AttributeValuesQuotesAndTextRuns) {
  ASSERT_TRUE(Load(L"<a b = 'x\"y' c=\"<'>\" d=''\n e=\"two words\"/>"));
  EXPECT_EQ(Xml(Root()), L"<a b=\"x&quot;y\" c=\"&lt;'&gt;\" d=\"\" e=\"two words\"/>");
  ASSERT_TRUE(Load(L"<b x=\"first\" x=\"2\"/>"));  // both take room, the later wins
  EXPECT_EQ(std::make_tuple(Root()->GetTypeBase(tree.GetIndex(L"x", 0)), Root()->GetInt(L"x"), Root()->Used),
            std::make_tuple(int(TByte), 2, 8 + 32 + 1));
  // Of several text runs the last is kept, trailing blanks included.
  ASSERT_TRUE(Load(L"<a>one<b/>two  </a>"));
  EXPECT_STREQ(Root()->GetString(ITextIndex), L"two  ");
  EXPECT_EQ(Room(Root()), "56/64/5/2");  // room for both runs
  ASSERT_TRUE(Load(L"<b>\n  x &lt; y\n</b>"));
  EXPECT_STREQ(Root()->GetString(ITextIndex), L"x < y\n");
}

// Entities and number shapes together: the decoded text decides the type.
TEST_F(XmlTest, ValuesAreDecodedAndTypedByShape) {
  const struct { const wchar_t* raw; int type; const wchar_t* value = nullptr; } cases[] = {
      {L"&lt;&gt;&amp;&quot;&apos;", TString, L"<>&\"'"},
      {L"&lx;&gy;&a12;&qxyz;&axyz;", TString, L"<>&\"'"},  // known by the first letter
      {L"&#65", TString, L""},        {L"A&#66;", TString, L"AB"},
      {L"&#x41;&#X6a;", TString, L"Aj"}, {L"1&#65x2", TByte, L"12"},
      {L"&x &lt", TString, L"&x &lt"}, {L"&#49;&#50;", TByte, L"12"},
      {L"7", TByte}, {L"99", TByte}, {L"-9", TByte}, {L"0", TByte}, {L"100", TInt},
      {L"-99", TInt}, {L"-1234567", TInt}, {L"123456789", TInt}, {L"1234567890", TString},
      {L"-123456789", TString}, {L"1.5", TDouble}, {L"-0.5", TDouble}, {L"0.5", TDouble},
      {L"-.5", TDouble}, {L"12345.123456789", TDouble}, {L"1.", TString}, {L"1.2.3", TString},
      {L"1.1234567890", TString}, {L"1234567890.12345", TString}, {L"1e5", TString},
      {L"+1", TString}, {L" 1", TString}, {L"007", TString}, {L"-0", TString},
      {L"-05", TString}, {L".5", TString}, {L"", TString}, {L"-", TString}, {L"12a", TString},
  };
  std::wstring doc = L"<a";
  for (size_t i = 0; i < sizeof cases / sizeof *cases; i++)
    doc += L" v" + std::to_wstring(i) + L"='" + cases[i].raw + L"'";
  ASSERT_TRUE(Load(doc + L"/>"));
  for (size_t i = 0; i < sizeof cases / sizeof *cases; i++) {
    const int index = tree.GetIndex((L"v" + std::to_wstring(i)).c_str(), 0);
    const wchar_t* value = cases[i].value ? cases[i].value : cases[i].raw;
    EXPECT_EQ(Root()->GetTypeBase(index), cases[i].type) << cases[i].raw;
    if (cases[i].type == TString)
      EXPECT_STREQ(Root()->GetString(index), value) << cases[i].raw;
    else
      EXPECT_EQ(Root()->GetDouble(index), wcstod(value, nullptr)) << cases[i].raw;
  }
}

TEST_F(XmlTest, RecordIsBuiltAtItsExactSize) {
  ASSERT_TRUE(Load(L"<a x=\"1\" y=\"abc\"/>"));
  TNode* a = Root();
  const int x = tree.GetIndex(L"x", 0), y = tree.GetIndex(L"y", 0);
  EXPECT_EQ(x & 0xFFFF, 6);
  EXPECT_EQ(Room(a), "25/32/10/2");  // 7 + 3 spare slots
  // Texts come before bytes, so they stay aligned for the wide functions.
  // An exact power of two is not raised: "abc" keeps 16 bytes.
  EXPECT_EQ(std::make_tuple(a->GetPos(y, TString), a->GetPos(x, TByte), a->GetLength(y)), std::make_tuple(8, 24, 16));
  a->SetInt(L"z", 5);  // the spare slots take a new attribute
  EXPECT_EQ(a->SlotCount, 10);
  EXPECT_STREQ(a->GetString(y), L"abc");
  ASSERT_TRUE(Load(L"<b t=\"" + std::wstring(27, L'n') + L"\"/>"));
  EXPECT_EQ(Room(Root()), "136/256/12/2");
  ASSERT_TRUE(Load(L"<c t=\"" + std::wstring(70, L'w') + L"\"/>"));
  EXPECT_EQ(Room(Root()), "520/1024/12/4");
  EXPECT_EQ(Root()->GetString(L"t"), std::wstring(70, L'w'));
}

TEST_F(XmlTest, DeclarationsCommentsAndCdataAreSkipped) {
  ASSERT_TRUE(Load(L"<?xml version=\"1.0\"?>\n<!-- a -> b > c -->\n<!DOCTYPE g [<!ENTITY e \"v\">]>\n"
                   L"<g><!-- c --><?pi x?>t<![CDATA[zz]]><!-x y --><h/></g>"));
  EXPECT_EQ(Xml(Root()), L"<g><h/>t</g>");
  ASSERT_TRUE(Load(L"<a><![CDATA[x]]></a>"));
  EXPECT_EQ(Xml(Root()), L"<a/>");
}

TEST_F(XmlTest, EscapedDocumentIsDecodedFirst) {
  ASSERT_TRUE(Load(L"&lt;a x='1' y='p&amp;amp;q'&gt;&lt;b/&gt;&lt;/a&gt;"));
  EXPECT_EQ(Xml(Root()), L"<a x=\"1\" y=\"p&amp;q\"><b/></a>");
  TTree bad;
  EXPECT_EQ(bad.SetXml(L"&lt;a b=&quot;1&quot;/&gt;"), nullptr);
  TTree spaced;  // only a text that begins with the entity is escaped
  ASSERT_NE(spaced.SetXml(L" &lt;a/&gt;"), nullptr);
  EXPECT_STREQ(spaced.Root->GetName(), L"");
}

TEST_F(XmlTest, LaterElementWithAKnownIdReplacesTheRow) {
  ASSERT_TRUE(Load(L"<G><I id=\"1\" y=\"5\"><c1/><c2/></I><J/><I id=\"1\" x=\"2\"/></G>"));
  // Values are taken over from the old row, but only its first child.
  EXPECT_EQ(Xml(Root()), L"<G><J/><I id=\"1\" y=\"5\" x=\"2\"><c1/></I></G>");
  ASSERT_TRUE(Load(L"<G><I id=\"1\" x=\"3\"/></G>"));  // a later document the same way
  EXPECT_EQ(Root()->LastChild, tree.GetElem(L"1"));
  EXPECT_EQ(Xml(Root()), L"<G><J/><I id=\"1\" y=\"5\" x=\"3\"><c1/></I></G>");
}

// Ids are keyed by the text the record gives back for them, from the wide
// and the 8-bit reading alike.
TEST_F(XmlTest, IdsAreKeyedByTheirStoredText) {
  const struct { const char* ids; const wchar_t* keys; } cases[] = {
      {"id=\"12\"", L"12"}, {"id=\"-5\"", L"-5"}, {"id=\"0\"", L"0"}, {"id=\"123456789\"", L"123456789"},
      {"id=\"-12345678\"", L"-12345678"}, {"id=\"1234567890\"", L"1234567890"}, {"id=\"007\"", L"007"},
      {"id=\"-0\"", L"-0"}, {"id=\"2.50\"", L"2.5"}, {"id=\"5\" id=\"6\"", L"6"}, {"id=\"x\" id=\"77\"", L"77"},
      {"id=\"&#55;\"", L"7"}, {"id=\"\xC3\xA9\"", L"\u00E9"}, {"x=\"1\"", L""},
  };
  for (const auto& c : cases) {
    const std::string text = std::string("<G><I ") + c.ids + "/></G>";
    std::vector<wchar_t> wide(text.size() + 1);
    ToUnicode(text.c_str(), wide.data());
    TTree narrow, widened;
    ASSERT_NE(narrow.SetXml(text.c_str()), nullptr) << c.ids;
    ASSERT_NE(widened.SetXml(wide.data()), nullptr) << c.ids;
    for (TTree* t : {&narrow, &widened}) {
      wchar_t** keys = nullptr;
      std::wstring got;
      for (int i = 0, n = t->GetIds(keys); i < n; i++) got += keys[i];
      EXPECT_EQ(got, c.keys) << c.ids;
      if (*c.keys) {
        EXPECT_EQ(t->GetElem(c.keys), t->Root->FirstChild) << c.ids;
      }
    }
  }
}

TEST_F(XmlTest, DocumentsOfTheRootsNameMergeIntoOneTree) {
  ASSERT_TRUE(Load(L"<G a=\"1\" b=\"2\"><X/></G>"));
  TNode* g = Root();
  ASSERT_TRUE(Load(L"<G b=\"3\"><Y/><Z/></G>"));
  EXPECT_EQ(Root(), g);
  EXPECT_EQ(Xml(g), L"<G a=\"1\" b=\"3\"><X/><Y/><Z/></G>");
  ASSERT_TRUE(Load(L"<H c=\"4\"/>"));  // another name replaces the root
  EXPECT_EQ(Xml(Root()), L"<H c=\"4\"/>");
  // A failed document keeps the root but loses the rows it replaced.
  ASSERT_TRUE(Load(L"<G a=\"1\"><I id=\"1\"/><K/></G>"));
  EXPECT_FALSE(Load(L"<G a=\"2\"><I id=\"1\" x=\"1\"/><L>"));
  ASSERT_NE(Root(), nullptr);
  EXPECT_EQ(Xml(Root()), L"<G a=\"1\"><K/></G>");
  EXPECT_EQ(tree.GetElem(L"1"), nullptr);
}

TEST_F(XmlTest, RowsBelowTheLayoutUseTheHighSpace) {
  const wchar_t* doc = L"<G><B><I><R A=\"1\"><S A=\"2\"/></R></I></B></G>";
  ASSERT_TRUE(Load(doc));
  TNode* r = Root()->FirstChild->FirstChild->FirstChild;
  EXPECT_FALSE(r->Parent->Flags & FSpec);
  EXPECT_TRUE(r->Flags & r->FirstChild->Flags & FSpec);
  const int a = tree.GetIndex(L"A", 0);
  EXPECT_EQ(a & 0xFFFF, 0xFFFF);
  EXPECT_NE(a >> 16 & 0xFFFF, 0xFFFF);
  ASSERT_TRUE(Load(L"<G><C A=\"7\"/></G>"));  // a layout element gives A its low slot
  const int a2 = tree.GetIndex(L"A", 0);
  EXPECT_NE(a2 & 0xFFFF, 0xFFFF);
  EXPECT_EQ(a2 >> 16, a >> 16);
  EXPECT_EQ(Xml(Root()), L"<G><B><I><R A=\"1\"><S A=\"2\"/></R></I></B><C A=\"7\"/></G>");
}

TEST_F(XmlTest, EightBitDocumentsAreUtf8OrMarkedWideText) {
  const char* doc = "<a x=\"\xC3\xA9\xE2\x82\xAC\" y=\"\xA9\xC3\"/>";
  EXPECT_EQ(tree.SetXml(doc), doc);
  EXPECT_EQ(Xml(Root()), L"<a x=\"\u00E9\u20AC\" y=\"\u00E9\"/>");  // reversed order reads too
  const char* marked = "\xEF\xBB\xBF<b/>";
  EXPECT_EQ(tree.SetXml(marked), marked + 3);
  // A wide text behind the FF FE mark (padded to a whole character).
  const wchar_t wide[] = L"<c z=\"1\"/>";
  std::vector<char> buffer(4 + sizeof wide);
  memcpy(buffer.data(), "\xFF\xFE", 2);
  memcpy(buffer.data() + 4, wide, sizeof wide);
  EXPECT_NE(tree.SetXml(buffer.data()), nullptr);
  EXPECT_EQ(Xml(Root()), wide);
  ASSERT_TRUE(Load(L"\uFEFF<d/>"));
  EXPECT_EQ(Xml(Root()), L"<d/>");
  wchar_t marked8[4] = {};  // UTF-8 handed to the wide form: read as wide text, a nameless root
  memcpy(marked8, "\xEF\xBB\xBF<a/>", 7);
  ASSERT_NE(tree.SetXml(marked8), nullptr);
  EXPECT_EQ(Xml(Root()), L"</>");
}

TEST_F(XmlTest, LoadXmlResultCodes) {
  const struct { const char* bytes; int result; const wchar_t* root; } cases[] = {
      {"<a x=\"1\"/>\n", 0, L"a"}, {"\xEF\xBB\xBF<b/>", 1, L"b"},  // 1: text behind the mark
      {"\xEF\xBB\xBF\xC3\xA9", 0, L""}, {"", -2, L"-"}, {"<a>", -3, L"-"},
  };
  const std::wstring path = Path("load.xml");
  for (const auto& c : cases) {
    std::ofstream(std::string(path.begin(), path.end()), std::ios::binary) << c.bytes;
    TTree t;
    EXPECT_EQ(t.LoadXml(path.c_str()), c.result) << c.bytes;
    EXPECT_STREQ(t.Root ? t.Root->GetName() : L"-", c.root) << c.bytes;
  }
  EXPECT_EQ(tree.LoadXml(L"/nonexistent-folder/missing.xml"), -1);
}

// Files are read from a mapping: texts that fill their last page exactly, or
// stop one byte short of it, still end where the file does.
TEST_F(XmlTest, LoadXmlEndsWithTheFile) {
  const long page = sysconf(_SC_PAGESIZE);
  const std::wstring path = Path("page.xml");
  for (long size : {page - 1, page, 2 * page, 2 * page + 1}) {
    std::string text = "<a x=\"1\">" + std::string(size - 13, 'y') + "</a>";
    ASSERT_EQ((long)text.size(), size);
    std::ofstream(std::string(path.begin(), path.end()), std::ios::binary) << text;
    TTree t;
    ASSERT_EQ(t.LoadXml(path.c_str()), 0) << size;
    EXPECT_EQ(Xml(t.Root), std::wstring(text.begin(), text.end())) << size;
  }
  // Wide text behind its mark, its last character cut to two bytes.
  std::string wide("\xFF\xFE\0\0", 4);
  for (const wchar_t* c = L"<w z=\"7\"/>"; *c; c++) wide.append((const char*)c, sizeof(wchar_t));
  wide += std::string("\x41\0", 2);
  std::ofstream(std::string(path.begin(), path.end()), std::ios::binary) << wide;
  TTree t;
  EXPECT_EQ(t.LoadXml(path.c_str()), 1);
  EXPECT_EQ(Xml(t.Root), L"<w z=\"7\"/>");
}

TEST_F(XmlTest, WriterBasicForms) {
  ASSERT_TRUE(Load(L"<a>text<b/></a>"));
  int length = -1;
  wchar_t* s = static_cast<TNodeXml*>(Root())->GetXml(&length, L"<p>", L"</p>", 0);
  EXPECT_EQ(std::wstring(s) + L"|" + std::to_wstring(length), L"<p><a><b/>text</a></p>|22");
  free(s);
  ASSERT_TRUE(Load(L"text"));  // a nameless root
  Root()->SetString(L"x", L"1");
  EXPECT_EQ(Xml(Root()), L"< x=\"1\"/>");
}

TEST_F(XmlTest, CollapsedRowsAnnounceTheirChildren) {
  TTree t(L"I");
  TNode* row = t.Root;
  row->SetId(L"1");
  for (int i = 0; i < 4; i++) row->AppendChild(t.CreateElement(L"I"));
  const std::wstring three = L"<I id=\"1\"><I/><I/><I/></I>", all = L"<I id=\"1\"><I/><I/><I/><I/></I>";
  const std::wstring collapsed = L"<I id=\"1\" State=\"0\" Count=\"4\"></I>";
  // {flags of the row, of the last child, MaxChildrenOffline, writer flags}
  const struct { int row, last, offline, flags; const std::wstring& xml; } cases[] = {
      {0, 0, 3, 0, collapsed}, {0, 0, 3, 2, all}, {0, 0, 3, 64, all}, {0, 0, 4, 0, all},
      {FState, 0, 3, 0, all}, {0, FFiltered, 3, 0, three},  // not counted without flag 1
      {0, FFiltered, 3, 1, collapsed},
  };
  for (const auto& c : cases) {
    row->Flags = c.row;
    row->LastChild->Flags = c.last;
    t.MaxChildrenOffline = c.offline;
    EXPECT_EQ(Xml(row, c.flags), c.xml) << c.row << "/" << c.last << "/" << c.offline << "/" << c.flags;
  }
  // Flag 64 opens only the top element; flag 2 every level.
  row->LastChild->Flags = 0;
  TTree g(L"G");
  g.Root->AppendChild(row->CopyNode(&g, true))->Flags &= ~FState;
  g.Root->Flags &= ~FState;
  EXPECT_EQ(Xml(g.Root, 64), L"<G>" + collapsed + L"</G>");
  EXPECT_EQ(Xml(g.Root, 2), L"<G>" + all + L"</G>");
}

TEST_F(XmlTest, FilteredChildrenAndTheFlagsMarker) {
  TTree t(L"a");
  t.Root->AppendChild(t.CreateElement(L"b"))->Flags |= FFiltered;
  EXPECT_EQ(Xml(t.Root), L"<a></a>");  // has children, none visible
  EXPECT_EQ(Xml(t.Root, 1), L"<a><b/></a>");
  t.Root->SetInt(L"x", 1);
  EXPECT_EQ(Xml(t.Root, 5), L"<a x=\"1\" _0F=\"16\"><b _0F=\"24\"/></a>");
  // Read back, the marker sets the flag and takes no slot.
  ASSERT_TRUE(Load(L"<G><a _0F=\"8\"/><b _0F=\"16\"/><c _0F=\"25\"/></G>"));
  std::wstring filtered;
  for (TNode* c = Root()->FirstChild; c; c = c->Next) filtered += c->Flags & FFiltered ? L'+' : L'-';
  EXPECT_EQ(filtered, L"+-+");
  EXPECT_EQ(tree.GetIndex(L"_0F", 0), -1);
}

TEST_F(XmlTest, AttributesGoOutInSlotOrderAsTheyAreStored) {
  ASSERT_TRUE(Load(L"<a y='0' x='2' Def='D' id='1' Expanded='1'/>"));
  Root()->SetString(L"#Work", L"w");  // internal names stay out
  EXPECT_EQ(Xml(Root()), L"<a id=\"1\" Expanded=\"1\" Def=\"D\" y=\"0\" x=\"2\"/>");
  ASSERT_TRUE(Load(L"<r><p y=\"1\" x=\"2\"/><q x=\"3\" y=\"4\"/></r>"));
  EXPECT_EQ(Xml(Root()), L"<r><p y=\"1\" x=\"2\"/><q y=\"4\" x=\"3\"/></r>");
  ASSERT_TRUE(Load(L"<a d=\"1.50\" e=\"0.123456\" f=\"-7\" g=\"1234567890\" h=\"\"/>"));
  const int items[2] = {1, 2};
  Root()->SetArray(Root()->GetIndex(L"arr", 1), items, 2);
  EXPECT_EQ(Xml(Root()), L"<a d=\"1.5\" e=\"0.1235\" f=\"-7\" g=\"1234567890\" h=\"\" arr=\"\"/>");
  tree.Precision = 100;
  Root()->SetDouble(L"d", 2.0);
  EXPECT_EQ(Xml(Root()), L"<a d=\"2\" e=\"0.12\" f=\"-7\" g=\"1234567890\" h=\"\" arr=\"\"/>");
}

TEST_F(XmlTest, EscapingAndTheLineFeedRule) {
  TTree t(L"a");
  TNode* a = t.Root;
  a->SetString(L"p", L"a\"b>");
  a->SetString(L"q", L"a'b\r");
  a->SetString(L"r", L"a\nb");  // no special character: the line feed stays bare
  a->SetString(L"s", L"a&\n");
  a->SetString(ITextIndex, L"x<y\nz");
  EXPECT_EQ(Xml(a), L"<a p=\"a&quot;b&gt;\" q=\"a'b\r\" r=\"a\nb\" s=\"a&amp;&#x0A;\">x&lt;y&#x0A;z</a>");
}

TEST_F(XmlTest, TreeOutputAndMarkedFiles) {
  auto read = [](const std::wstring& path) {
    std::ifstream f(std::string(path.begin(), path.end()), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
  };
  int length = -1;
  const std::wstring p2 = Path("two.xml"), p3 = Path("three.xml");
  EXPECT_EQ(tree.GetXml(&length, 0), nullptr);  // no root
  EXPECT_EQ(Utf8(false, 0), "<null>");
  EXPECT_EQ(tree.SaveXml(p2.c_str(), 2), -3);
  ASSERT_TRUE(Load(L"<a x=\"\u00E9\"><b/></a>"));
  wchar_t* w = tree.GetXml(&length, 0);
  EXPECT_EQ(std::wstring(w) + L"|" + std::to_wstring(length),
            L"<?xml version=\"1.0\"?><a x=\"\u00E9\"><b/></a>|38");
  free(w);
  EXPECT_EQ(Utf8(false, 0), "<?xml version=\"1.0\"?><a x=\"\xC3\xA9\"><b/></a>");
  EXPECT_EQ(Utf8(true, 0), "<?xml version=\"1.0\"?><a x=\"\xA9\xC3\"><b/></a>");
  EXPECT_EQ(tree.SaveXml(p2.c_str(), 2), 0);
  EXPECT_EQ(read(p2), "\xEF\xBB\xBF" + Utf8(false, 255));
  EXPECT_EQ(tree.SaveXml(p3.c_str(), 3), 0);
  EXPECT_EQ(read(p3), "\xEF\xBB\xBF" + Utf8(true, 255));
  EXPECT_EQ(tree.SaveXml(Path("nine.xml").c_str(), 9), -3);
  EXPECT_EQ(tree.SaveXml(L"/nonexistent-folder/out.xml", 2), -1);
}

}  // namespace

// UTF-8 is read as it is scanned; it must give exactly what its widened copy
// gives as wide text: the same success, tree, records and ids.
class Utf8ScanTest : public TreeTest {
protected:
  // Everything observable of a tree: its dump, with each record's room.
  static std::wstring Image(TTree& t) {
    if (!t.Root) return L"<no root>";
    std::wstring out;
    Walk(t.Root, out);
    int length = 0;
    wchar_t* xml = t.GetXml(&length, 255);
    out += xml ? xml : L"<null>";
    free(xml);
    wchar_t** keys = nullptr;
    int count = t.GetIds(keys);
    for (int i = 0; i < count; i++) out += L"|" + std::wstring(keys[i]) + (t.GetElem(keys[i]) ? L"+" : L"-");
    return out;
  }
  static void Walk(TNode* n, std::wstring& out) {
    std::string room = Room(n) + "/" + std::to_string(n->Flags) + ";";
    out += std::wstring(room.begin(), room.end());
    for (TNode* c = n->FirstChild; c; c = c->Next) Walk(c, out);
  }
  void ExpectSame(const std::string& bytes) {
    TTree scanned, widened;
    bool read = scanned.SetXml(bytes.c_str()) != nullptr;
    // The 8-bit form drops a leading byte order mark before anything else.
    std::string body = bytes.compare(0, 3, "\xEF\xBB\xBF") ? bytes : bytes.substr(3);
    std::vector<wchar_t> wide(body.size() + 1);
    ToUnicode(body.c_str(), wide.data());
    bool readWide = widened.SetXml(wide.data()) != nullptr;
    EXPECT_EQ(read, readWide) << bytes;
    EXPECT_EQ(Image(scanned), Image(widened)) << bytes;
  }
};

TEST_F(Utf8ScanTest, DocumentsReadAsTheirWidenedCopies) {
  const char* const documents[] = {
      "<a/>", "", "   ", "abc", "<a><b/>", "<a>one<b/>two</a>", "<a x='&lx;' y=\"&#65\" z=\"A&#66;\"/>",
      "&lt;a/&gt;", "&lt;a b=&quot;1&quot;/&gt;", "\xEF\xBB\xBF<a b=\"\xC3\xA9\"/>", "\xEF\xBB\xBF\xEF\xBB\xBF<a/>",
      "\xBF\xBB\xEF<a/>", "<a b=\"\xE2\x82\xAC \xAC\x82\xE2 \xA9\xC3\"/>",
      // Overlong forms that decode to markup characters, and lead bytes that
      // swallow a quote or a bracket.
      "<a b=\"x\xC0\xA2 y\"/>", "<a\xC0\xBE<b/></a>", "<a b=\"\xE0\"\"/>", "<a b=\"\xE0\"x\"/>", "<\xC0\xAF\xC0\xBE",
      "<a>\xF0\x9F\x98\x80</a>", "<a b=\"\xF0\x9F\x98\x80\"/>",
      // A sequence cut short by the end, and one that decodes to 0.
      "<a b=\"x\xE2\x82", "<a b=\"x\xC3", "<a>x\x80\xC0</a>", "<a b=\"\x80\xC0\"/>",
      "<G><B><I id=\"1\" A=\"\xC3\xA9t\xC3\xA9\" B=\"12\" C=\"1.5\" _0F=\"\xC0\xB8\"/><I id=\"1\" x=\"2\"/></B></G>",
      "<a><!-- x --><!-x--><?p <q> ?><![CDATA[<x>]]><b/>t&amp;u</a>", "<a><!-\xC0\xAD->x--></a>",
      "<a>\xC0\xBC/a></a>", "<a \xC3\xA9=\"1\" \xC0\xBD=\"2\"/>",
      // ASCII runs read without decoding, broken by characters that decode
      // to markup or to nothing, in names, values, text runs and end tags.
      "<abc\xC0\xBE<b/></abc>", "<a bc\xC0\xBD\"1\"/>", "<a bcd\xC0\xA0=\"1\"/>", "<a b=\"xyz\xC0\xA2 y\"/>",
      "<a b='xyz\xC0\xA7 y'/>", "<a>text\xC0\xBC/a></a>", "<a>t\xC3\xA9xt</a\xC0\xBE", "<a b=\"xyz\xE2\x82",
      "<a b=\"xyz\x80\xC0\"/>", "<a b=\"ab\xC3\xA9" "cd&amp;ef\xE2\x82\xAC" "gh\"/>", "<a b=\"ab\xC0\xA6" "amp;\"/>",
      // Names whose bytes and whose characters could be taken for each other.
      "<a \xC3\x83\xC2\x83=\"1\" \xC3\x83=\"2\" _0F=\"8\" _0F\xC3\x83=\"3\" \xC3\x83\xC2\x83=\"4\"/>",
      "<a b='x\"y' c=\"x'y\" d='' e=\"\"/>", "<a b=\"abc", "<a b='abc\x7F\x01'/>",
      "<G><B><I id=\"1\" Name=\"\xC3\xA9\"/><I id=\"2\" Name=\"x\"/><I id=\"3\" N\xC3\xA9me=\"y\"/></B></G>",
      // Plain values typed from their bytes: every number shape, numeric and
      // padded ids, the flags marker, a later duplicate.
      "<G><B><I id=\"-5\" a=\"0\" b=\"99\" c=\"-0\" d=\"007\" e=\"0.50\" f=\"-.5\" g=\"1.\" h=\"123456789\""
      " i=\"1234567890\" j=\"12345.123456789\" k=\"1.1234567890\" l=\"1234567890123456\" m=\"1e5\" n=\" 1\""
      " _0F=\"1x\" a=\"x\"/><I id=\"007\" b='-12'/><I id='-5' z=\"9\"/></B></G>",
      // Attribute starts read by byte, and the shapes that leave it to the
      // general path: blanks around '=', marks inside names, non-ASCII names.
      "<a b =\"1\" c= \"2\" d\t=\t'3' e>f=\"4\" g/h=\"5\" =\"6\"/>", "<a\n\tb=\"1\"\r\nc='2'/>",
      "<a b=\"1\"c=\"2\"/>", "<a b=\"1\" \xC3\xA9x=\"2\" x\xC3\xA9=\"3\" y\xC0\xBD\"4\" z=\xC0\xA2" "5\"/>",
      "<a b=x/>", "<a b=\"1\" /  >", "<a b=", "<a b=\"", "<a b=\"1\"", "<a b=\"1\" c='&amp;'/>",
      // ASCII values with entities, decoded from their bytes: cut short at
      // the quote, numeric forms, the flags marker read undecoded.
      "<a b=\"x&amp\" c='&#65;&#x42;&#X43&#;&q;&quot;&apos;&lt;&gt;&' d=\"&amp;&amp;\" e='&ap'/>",
      "<a b=\"&#1234567890123;&#x1F600;&#xZ;\" _0F=\"&#49;\" c=\"&lt\" d=\"1&amp;2\" e='a\"&amp;'/>",
      "<a b=\"&amp;\xC3\xA9\" c=\"&amp;x", "<a b=\"&amp;",
  };
  for (const char* d : documents) ExpectSame(d);
}

TEST_F(Utf8ScanTest, RandomBytesReadAsTheirWidenedCopies) {
  // Markup pieces mixed with every kind of lead and continuation byte.
  const char* const pieces[] = {"<", ">", "/", "=", "\"", "'", " ", "a", "I", "id", "1", "-", ".", "&", "amp;",
                                "&#x41;", "<!", "--", "?", "\x80", "\xBF", "\xC0", "\xC3", "\xE2", "\xEF", "\xF0",
                                "\x41", "<I id=\"1\">", "</I>", "<a b=\"", "\"/>", "abcdefghij", "\xC0\xA2",
                                "\xC0\xBE", "\xC0\xBC", "\xC0\xBD", "\xC3\xA9"};
  unsigned state = 12345;
  for (int round = 0; round < 4000; round++) {
    std::string d = round % 2 ? "<G>" : "";
    int n = 1 + round % 24;
    for (int i = 0; i < n; i++) {
      state = state * 1103515245u + 12345u;
      d += pieces[(state >> 16) % (sizeof pieces / sizeof *pieces)];
    }
    ExpectSame(d);
  }
}

// Rows read from a document live in the tree's store; writes that outgrow
// their blocks, copies, replacements and deletions must treat them like any
// other record.
TEST_F(XmlTest, ReadRowsGrowCopyAndDieLikeOthers) {
  ASSERT_TRUE(Load(L"<G><B><I id=\"1\" A=\"x\"/><I id=\"2\" A=\"y\"><I id=\"3\"/></I></B></G>"));
  TNode* one = tree.GetElem(L"1");
  ASSERT_NE(one, nullptr);
  std::wstring longText(300, L'z');
  one->SetString(L"Long", longText.c_str());  // new slot and a value area past 512 bytes
  one->SetInt(L"N", 7);
  EXPECT_EQ(one->SlotWidth, 4);
  TNode* copy = one->CopyNode(&tree, true);
  EXPECT_EQ(Xml(copy), L"<I id=\"1\" A=\"x\" Long=\"" + longText + L"\" N=\"7\"/>");
  tree.Root->FirstChild->AppendChild(copy);
  TNode* two = tree.GetElem(L"2");
  two->SetString(L"A", L"longer than the room it had");
  ASSERT_TRUE(Load(L"<G><B><I id=\"2\" B=\"5\"/></B></G>"));  // replaces row 2, keeps its child
  TNode::Delete(tree.Root->FirstChild->RemoveChild(one));
  EXPECT_EQ(Xml(tree.Root, 2),
            L"<G><B><I id=\"1\" A=\"x\" Long=\"" + longText + L"\" N=\"7\"/></B><B><I id=\"2\" "
            L"A=\"longer than the room it had\" B=\"5\"><I id=\"3\"/></I></B></G>");
}

// A read row's value area holds only what was read; every write must see the
// record as if it had its whole Capacity: a full-size copy, given the same
// writes, stays equal to it step by step.
TEST_F(XmlTest, TrimmedValueAreasWidenOnTheFirstAppend) {
  ASSERT_TRUE(Load(L"<G><B><I id=\"7\" A=\"abcdefghijklmnopqrstu\" B=\"1234\" C=\"x\"/></B></G>"));
  TNode* row = tree.GetElem(L"7");
  ASSERT_NE(row, nullptr);
  EXPECT_TRUE(row->Pooled & TrimmedValues);
  TNode* full = row->Duplicate();  // same record at its whole Capacity
  EXPECT_FALSE(full->Pooled & TrimmedValues);
  const std::wstring past(200, L'q');
  struct TWrite { const wchar_t* name; const wchar_t* text; int number; bool trimmedAfter; };
  const TWrite writes[] = {
      {L"B", nullptr, 99, true},                  // in place: the area is not touched
      {L"C", L"y", 0, true},                      // a text within its room
      {L"N", nullptr, 5, true},                   // appended within the spare bytes
      {L"M", L"1234567", 0, false},               // appended past them
      {L"A", L"a text longer than its room", 0, false},
      {L"L", past.c_str(), 0, false},  // past Capacity
  };
  for (const TWrite& w : writes) {
    for (TNode* n : {row, full}) {
      if (w.text) n->SetString(w.name, w.text);
      else n->SetInt(w.name, w.number);
    }
    EXPECT_EQ(bool(row->Pooled & TrimmedValues), w.trimmedAfter) << w.name;
    EXPECT_EQ(Room(row), Room(full)) << w.name;
    EXPECT_EQ(Xml(row), Xml(full)) << w.name;
  }
  TNode::Delete(full);
}

// Attribute names are looked up through a small cache of recent names; every
// value must still land in the slot its name has in the record's own space,
// whatever the depth, the name's length or how names crowd the cache.
TEST_F(XmlTest, AttributeNamesKeepTheirSlotsInEachSpace) {
  std::vector<std::wstring> names = {L"A", L"B", L"Name", std::wstring(16, L'n'), std::wstring(17, L'n'),
                                     std::wstring(16, L'm') + L"x"};
  for (int i = 0; i < 90; i++) names.push_back(L"k" + std::to_wstring(i));
  std::wstring row, layout;
  for (size_t i = 0; i < names.size(); i++) {
    row += L" " + names[i] + L"=\"r" + std::to_wstring(i) + L"\"";
    // The layout element meets the names in another order.
    size_t j = names.size() - 1 - i;
    layout += L" " + names[j] + L"=\"l" + std::to_wstring(j) + L"\"";
  }
  const std::wstring document = L"<G><L" + layout + L"/><B><I" + row + L"/><I" + row + L"/></B><M" + layout + L"/></G>";
  ASSERT_TRUE(Load(document));
  TTree utf8;  // the names are ASCII: the same document as UTF-8
  ASSERT_NE(utf8.SetXml(std::string(document.begin(), document.end()).c_str()), nullptr);
  for (TNode* root : {Root(), utf8.Root}) {
    TNode* body = root->GetChildByName(L"B", false);
    TNode* tops[] = {root->FirstChild, root->LastChild};
    for (size_t i = 0; i < names.size(); i++) {
      const wchar_t* name = names[i].c_str();
      for (TNode* top : tops) EXPECT_EQ(std::wstring(top->GetString(name)), L"l" + std::to_wstring(i)) << name;
      for (TNode* r = body->FirstChild; r; r = r->Next)
        EXPECT_EQ(std::wstring(r->GetString(name)), L"r" + std::to_wstring(i)) << name;
    }
  }
}

// Decimals are read without the library where the point is '.'; each shape
// must give wcstod's very double, sign of zero included.
TEST_F(XmlTest, DecimalsReadAsWcstodReadsThem) {
  std::vector<std::wstring> texts = {L"0.5", L"-0.5", L"-.5", L"-0.0", L"0.000000001", L"9999999999999.9",
                                     L"90071.992547409", L"1.000000005", L"0.1", L"-1234.123456789",
                                     L"123456.7", L"5.00000000"};
  unsigned state = 99;
  for (int i = 0; i < 3000; i++) {
    state = state * 1103515245u + 12345u;
    int whole = 1 + (state >> 8) % 9, decimals = 1 + (state >> 16) % 9;
    if (whole + decimals > 13) decimals = 13 - whole;
    std::wstring t = (state >> 30) & 1 ? L"-" : L"";
    for (int k = 0; k < whole + decimals + 1; k++) {
      state = state * 1103515245u + 12345u;
      wchar_t digit = L'0' + (state >> 16) % 10;
      t += k == whole ? L'.' : (k == 0 && digit == L'0' ? L'7' : digit);
    }
    texts.push_back(t);
  }
  for (const std::wstring& t : texts) {
    ASSERT_TRUE(Load(L"<a v=\"" + t + L"\"/>")) << t;
    unsigned char* p = nullptr;
    ASSERT_EQ(Root()->GetType(Root()->GetIndex(L"v", 0), p), TDouble) << t;
    double read, expected = wcstod(t.c_str(), nullptr);
    memcpy(&read, p, 8);
    EXPECT_EQ(memcmp(&read, &expected, 8), 0) << t;
  }
}

// Pages given back behind the reading read as zeros in a heap buffer; values
// of an element still open there must survive them.
TEST_F(XmlTest, OpenElementsKeepTheirValuesWhilePagesGoBack) {
  std::string text = "<G><!--" + std::string(3 * sysconf(_SC_PAGESIZE), '-') + "-->";
  text += "<B a=\"kept in place\" n=\"12345\" d=\"&amp;x\">";
  for (int i = 0; text.size() < (12u << 20); i++) text += "<I id=\"" + std::to_string(i) + "\" v=\"row value\"/>\n";
  text += "</B></G>";
  // Page-aligned heap memory of its own, as a file read into memory has.
  size_t size = (text.size() + 1 + 65535) & ~(size_t)65535;
  char* buffer = (char*)aligned_alloc(65536, size);
  ASSERT_NE(buffer, nullptr);
  memcpy(buffer, text.c_str(), text.size() + 1);
  TNodeXml* root = static_cast<TNodeXml*>(tree.CreateElement(nullptr));
  ASSERT_NE(root->SetXml(buffer, 0, true), nullptr);
  free(buffer);
  TNode* b = root->FirstChild;
  ASSERT_NE(b, nullptr);
  EXPECT_STREQ(b->GetString(L"a"), L"kept in place");
  EXPECT_STREQ(b->GetString(L"d"), L"&x");
  const std::wstring start = L"<B a=\"kept in place\" n=\"12345\" d=\"&amp;x\"><I";
  EXPECT_EQ(Xml(b).substr(0, start.size()), start);
  EXPECT_STREQ(b->LastChild->GetString(L"v"), L"row value");
  TNode::Delete(root);
}

// A large file's buffer is given back page by page behind the reading; the
// tree must be the one the same text gives from memory.
TEST_F(XmlTest, LargeFileReadsAsItsTextDoes) {
  std::string text = "<G><B>";
  for (int i = 0; i < 100000; i++)
    text += "<I id=\"" + std::to_string(i) + "\" A=\"name " + std::to_string(i * 7) +
            " &amp; more\" B=\"" + std::to_string(i % 1000) + "\" C=\"" + std::to_string(i) + ".25\" D=\"\xC3\xA9t\xC3\xA9\"/>\n";
  text += "</B></G>";
  ASSERT_GT(text.size(), 6u << 20);
  std::wstring path = Path("large.xml");
  {
    std::ofstream out(std::string(path.begin(), path.end()), std::ios::binary);
    out << text;
  }
  ASSERT_EQ(tree.LoadXml(path.c_str()), 0);
  TTree fromMemory;
  ASSERT_NE(fromMemory.SetXml(text.c_str()), nullptr);
  int length = 0, memoryLength = 0;
  wchar_t* loaded = tree.GetXml(&length, 255);
  wchar_t* expected = fromMemory.GetXml(&memoryLength, 255);
  ASSERT_TRUE(loaded && expected);
  EXPECT_EQ(std::wstring(loaded, length), std::wstring(expected, memoryLength));
  free(loaded);
  free(expected);
  EXPECT_STREQ(tree.GetElem(L"99999")->GetString(L"A"), L"name 699993 & more");
}
