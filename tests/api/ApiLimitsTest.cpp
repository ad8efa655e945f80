// Arguments beyond the sizes of the registry's working buffers: long
// sessions, long UTF-8 arguments and long names must work or fail cleanly
// (run under AddressSanitizer to see the difference).
#include <string>

#include "ApiHelpers.h"

namespace {

using ApiLimitsTest = EmptyRegistry;

// n characters, every third one two bytes long in UTF-8.
std::string Utf8Text(size_t n) {
  std::string text;
  for (size_t i = 0; i < n; i++) text += i % 3 == 2 ? "\xC3\xA9" : std::string(1, (char)('a' + i % 26));
  return text;
}

TEST_F(ApiLimitsTest, ALongSessionIsCutAndStillFound) {
  const std::string session = Utf8Text(5000);
  ASSERT_EQ(Create(SessionDoc(session)), 0);
  EXPECT_EQ(SessionOf(0), Utf8Text(1025));
  EXPECT_EQ(FindGridA(SessionDoc(session).c_str()), 0);
  EXPECT_EQ(FindGridA(SessionDoc(Utf8Text(1025)).c_str()), 0);
  EXPECT_EQ(FindGridA(SessionDoc(Utf8Text(1024)).c_str()), -2);
  // Read from a document, a session is not cut.
  EXPECT_EQ(TakeA(GetSessionA(SessionDoc(session).c_str())).value_or(""), session);
  ASSERT_EQ(UpdateGridA(0, SessionDoc(Utf8Text(3000)).c_str()), 0);
  EXPECT_EQ(SessionOf(0), Utf8Text(1025));
}

// Only FF FE 00 00 marks wide text; an 8-bit request that merely starts
// with FF FE must not be read on as wide text past its end.
TEST_F(ApiLimitsTest, AnFFFEPrefixWithoutTheWideMarkIsRefused) {
  // Exact size on the heap and one byte in, so the text is not aligned for
  // wide characters and ASan sees any read past its end.
  const std::string heap = std::string("?\xFF\xFE") + std::string(40, 'x');
  EXPECT_FALSE(TakeA(GetSessionA(heap.c_str() + 1)));
  EXPECT_LT(CreateGridA(heap.c_str() + 1, nullptr, nullptr, nullptr, nullptr, nullptr), 0);
}

TEST_F(ApiLimitsTest, Utf8ArgumentsAroundTheStackBufferSize) {
  const size_t frame = SessionDoc("").size();
  for (size_t bytes : {1022u, 1023u, 1024u, 1025u, 2000u, 70000u}) {
    SCOPED_TRACE(bytes);
    const std::string session(bytes - frame, 's'), doc = SessionDoc(session);
    const int index = Create(doc);
    ASSERT_GE(index, 0);
    EXPECT_EQ(FindGridA(doc.c_str()), index);
    EXPECT_EQ(TakeA(GetSessionA(doc.c_str())).value_or(""), session);
    DeleteGrid(index);
  }
}

TEST_F(ApiLimitsTest, LongArgumentsToEveryForm) {
  const std::string text = Utf8Text(2000), filter = "<Grid><Cfg Note='" + text + "'/></Grid>";
  const std::string doc = "<Grid><Cfg Note='" + text + "'/><Body><B><I id='" + text + "'/></B></Body></Grid>";
  const char* d = doc.c_str();
  ASSERT_EQ(CreateGridA(d, d, d, d, d, d), 0);
  EXPECT_EQ(UpdateGridA(0, d), 0);
  EXPECT_EQ(TakeA(FindGridsStrA(0, filter.c_str(), 0, 0)).value_or(""), "0");
  // Whatever these give, they must not touch memory beyond their arguments.
  FreeStringA(GetBodyA(0, d));
  FreeStringA(GetPageA(0, d));
  FreeStringA(GetExportA(0, d));
  FreeStringA(GetCellsA(0, text.c_str(), 0, text.c_str(), text.c_str()));
  const std::string name = "/tmp/" + std::string(2000, 'n') + ".xml";
  const std::wstring wide(name.begin(), name.end());
  FreeString(GetCells(0, wide.c_str(), wide.c_str(), 0, wide.c_str()));
  SaveA(0, d);
  SaveExA(0, d, 1);
  EXPECT_EQ(SaveToFileA(0, name.c_str(), 0), -1);
  EXPECT_EQ(SaveToFile(0, wide.c_str(), 0), -1);
  EXPECT_EQ(Create(name), -1);
  EXPECT_EQ(CreateGrid(nullptr, nullptr, nullptr, nullptr, nullptr, wide.c_str()), -1);
}

// 260 matches, one index skipped, so the joined text must come from the
// indices themselves and from a heap array past the 256 on the stack.
TEST_F(ApiLimitsTest, FindGridsStrAJoinsMoreMatchesThanItsStackArray) {
  std::string all;
  for (int i = 0; i < 261; i++) {
    ASSERT_EQ(Create(GridDoc("", "m")), i);
    if (i != 1) all += (i ? "," : "") + std::to_string(i);
  }
  ASSERT_EQ(DeleteGrid(1), 0);
  const char* filter = "<Grid><Cfg Kind='m'/></Grid>";
  for (int max : {0, -1, 260, 1000}) EXPECT_EQ(TakeA(FindGridsStrA(max, filter, 0, 0)).value_or(""), all) << max;
  EXPECT_EQ(TakeA(FindGridsStrA(258, filter, 0, 0)).value_or(""), all.substr(0, all.find(",259")));
  EXPECT_EQ(TakeA(FindGridsStrA(2, filter, 0, 0)).value_or(""), "0,2");
  EXPECT_FALSE(TakeA(FindGridsStrA(0, "<Grid><Cfg Kind='z'/></Grid>", 0, 0)));
  EXPECT_FALSE(TakeA(FindGridsStrA(0, "<Grid><Cfg", 0, 0)));
}

}  // namespace
