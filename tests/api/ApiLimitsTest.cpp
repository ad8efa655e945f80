// Arguments beyond the sizes of the registry's working buffers: long
// sessions, long UTF-8 arguments and long names must work or fail cleanly
// (run under AddressSanitizer to see the difference).
#include <gtest/gtest.h>

#include <string>

#include "ApiHelpers.h"

namespace {

class ApiLimitsTest : public ::testing::Test {
protected:
  void SetUp() override { Clear(); }
  void TearDown() override { Clear(); }
};

// n characters, every third one two bytes long in UTF-8.
std::string Utf8Text(size_t n) {
  std::string text;
  for (size_t i = 0; i < n; i++) text += i % 3 == 2 ? "\xC3\xA9" : std::string(1, (char)('a' + i % 26));
  return text;
}

std::string SessionDoc(const std::string& session) { return "<Grid><IO Session='" + session + "'/></Grid>"; }

TEST_F(ApiLimitsTest, ALongSessionIsCutAndStillFound) {
  const std::string session = Utf8Text(5000);
  const int index = Create(SessionDoc(session));
  ASSERT_EQ(index, 0);
  const std::wstring stored = Take(GetGridSession(index)).value_or(L"");
  ASSERT_EQ(stored.size(), 1025u);
  EXPECT_EQ(SessionOf(index), Utf8Text(1025));
  EXPECT_EQ(FindGridA(SessionDoc(session).c_str()), index);
  EXPECT_EQ(FindGridA(SessionDoc(Utf8Text(1025)).c_str()), index);
  EXPECT_EQ(FindGridA(SessionDoc(Utf8Text(1024)).c_str()), -2);
  // Read from a document, a session is not cut.
  EXPECT_EQ(TakeA(GetSessionA(SessionDoc(session).c_str())).value_or(""), session);
  ASSERT_EQ(UpdateGridA(index, SessionDoc(Utf8Text(3000)).c_str()), 0);
  EXPECT_EQ(SessionOf(index), Utf8Text(1025));
}

TEST_F(ApiLimitsTest, Utf8ArgumentsAroundTheStackBufferSize) {
  const std::string head = "<Grid><IO Session='";
  const std::string tail = "'/></Grid>";
  for (size_t bytes : {1022u, 1023u, 1024u, 1025u, 2000u, 70000u}) {
    SCOPED_TRACE(bytes);
    const std::string session(bytes - head.size() - tail.size(), 's');
    const std::string doc = head + session + tail;
    ASSERT_EQ(doc.size(), bytes);
    const int index = Create(doc);
    ASSERT_GE(index, 0);
    EXPECT_EQ(FindGridA(doc.c_str()), index);
    EXPECT_EQ(TakeA(GetSessionA(doc.c_str())).value_or(""), session);
    DeleteGrid(index);
  }
}

TEST_F(ApiLimitsTest, LongArgumentsToEveryUtf8Form) {
  const std::string text = Utf8Text(2000);
  const std::string doc = "<Grid><Cfg Note='" + text + "'/><Body><B><I id='" + text + "'/></B></Body></Grid>";
  const int index = CreateGridA(doc.c_str(), doc.c_str(), doc.c_str(), doc.c_str(), doc.c_str(), doc.c_str());
  ASSERT_EQ(index, 0);
  const std::string data = TakeA(GetDataA(index)).value_or("");
  EXPECT_NE(data.find(text), std::string::npos);
  EXPECT_EQ(UpdateGridA(index, doc.c_str()), 0);
  EXPECT_EQ(FindGridsA(nullptr, 0, ("<Grid><Cfg Note='" + text + "'/></Grid>").c_str(), 0, 0), 1);
  EXPECT_EQ(TakeA(FindGridsStrA(0, ("<Grid><Cfg Note='" + text + "'/></Grid>").c_str(), 0, 0)).value_or(""), "0");
  // Whatever these give, they must not touch memory beyond their arguments.
  FreeStringA(GetBodyA(index, doc.c_str()));
  FreeStringA(GetPageA(index, doc.c_str()));
  FreeStringA(GetExportA(index, doc.c_str()));
  FreeStringA(GetCellsA(index, text.c_str(), 0, text.c_str(), text.c_str()));
  FreeString(GetCells(index, std::wstring(2000, L'r').c_str(), std::wstring(2000, L'c').c_str(), 0,
                      std::wstring(2000, L'f').c_str()));
  SaveA(index, doc.c_str());
  SaveExA(index, doc.c_str(), 1);
  EXPECT_EQ(SaveToFileA(index, ("/tmp/" + std::string(2000, 'n')).c_str(), 0), -1);
  EXPECT_EQ(SaveToFile(index, (L"/tmp/" + std::wstring(2000, L'n')).c_str(), 0), -1);
}

TEST_F(ApiLimitsTest, LongFileNamesFailToOpen) {
  const std::string name = "/tmp/" + std::string(2000, 'n') + ".xml";
  EXPECT_EQ(CreateGridA(name.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr), -1);
  const std::wstring wide(name.begin(), name.end());
  EXPECT_EQ(CreateGrid(nullptr, nullptr, nullptr, nullptr, nullptr, wide.c_str()), -1);
  EXPECT_EQ(GetIndexes(nullptr, 0), 0);
}

TEST_F(ApiLimitsTest, FindGridsStrAHoldsMoreMatchesThanItsStackArray) {
  std::string all;
  for (int i = 0; i < 260; i++) {
    ASSERT_EQ(Create(GridDoc("", "m")), i);
    all += (i ? "," : "") + std::to_string(i);
  }
  const char* filter = "<Grid><Cfg Kind='m'/></Grid>";
  EXPECT_EQ(TakeA(FindGridsStrA(0, filter, 0, 0)).value_or(""), all);
  EXPECT_EQ(TakeA(FindGridsStrA(-1, filter, 0, 0)).value_or(""), all);
  EXPECT_EQ(TakeA(FindGridsStrA(1000, filter, 0, 0)).value_or(""), all);
  const std::string first258 = all.substr(0, all.find(",258"));
  EXPECT_EQ(TakeA(FindGridsStrA(258, filter, 0, 0)).value_or(""), first258);
}

}  // namespace
