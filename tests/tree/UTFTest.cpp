#include "tree/UTF.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

std::string Encode(const std::wstring& text, bool reversed, int length = 0) {
  int n = -1;
  char* bytes = ToUTF8(text.c_str(), length, &n, reversed);
  std::string result(bytes, (size_t)n);
  EXPECT_EQ(bytes[n], 0);
  free(bytes);
  return result;
}

// Reads from an exactly sized heap copy, so a read past the NUL is caught.
std::wstring Decode(const std::string& bytes) {
  char* source = (char*)malloc(bytes.size() + 1);
  memcpy(source, bytes.c_str(), bytes.size() + 1);
  std::vector<wchar_t> target(bytes.size() + 2, L'#');
  wchar_t* end = ToUnicode(source, target.data());
  free(source);
  EXPECT_EQ(*end, 0);
  EXPECT_EQ(target.back(), L'#');
  return std::wstring(target.data(), end);
}

}  // namespace

TEST(UTFTest, EncodesUpToThreeBytesInEitherOrder) {
  EXPECT_EQ(Encode(L"A\u00E9\u20AC", true), "A\xA9\xC3\xAC\x82\xE2");
  EXPECT_EQ(Encode(L"\u007F\u0080\u07FF\u0800\uFFFF", false), "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF");
  // Beyond U+FFFF the lead byte overflows: 0xE0 + 0x1F, and 0xE0 + 0x20 is 0.
  EXPECT_EQ(Encode(L"\U0001F600", false), "\xFF\x98\x80");
  EXPECT_EQ(Encode(L"\U00020000", false), std::string("\x00\x80\x80", 3));
  char* bytes = ToUTF8(nullptr, 0, nullptr, false);
  EXPECT_STREQ(bytes, "");
  free(bytes);
}

TEST(UTFTest, ClaimedLengthOnlySizesTheBuffer) {
  std::wstring mixed;
  for (int i = 0; i < 40; i++) mixed += L"a\u00E9\u20AC\U0001F600\u07FF";
  for (int length : {1, 5, 1000})
    for (bool r : {false, true}) EXPECT_EQ(Encode(mixed, r, length), Encode(mixed, r));
  // Growth can end a buffer exactly behind a three-byte character.
  for (size_t n = 1; n < 64; n++)
    for (int length : {0, 1, 2, 5}) ASSERT_EQ(Encode(std::wstring(n, 0x20AC), false, length).size(), 3 * n);
  EXPECT_EQ(Encode(std::wstring(5000, 0x20AC), true, -3).size(), 15000u);
}

TEST(UTFTest, DecodesBothOrdersAndStopsAtTheTerminator) {
  std::wstring text = L"a\u00E9\u20AC\u07FF\u0800\uFFFF z";
  EXPECT_EQ(Decode(Encode(text, false)), text);
  EXPECT_EQ(Decode(Encode(text, true)), text);
  const struct { const char* bytes; const wchar_t* text; } cases[] = {
      {"\xC3\xA9\xAC\x82\xE2x", L"\u00E9\u20ACx"},  // mixed orders
      {"\xFF\x98\x80", L"\uF600"},                 // what survives of U+1F600
      // A four-byte lead is read as three bytes; the fourth opens a reversed
      // sequence that the next byte (bit 0x40 set) closes.
      {"\xF0\x9F\x98\x80" "A", L"\u07D8\u0040"},
      // Cut short: the partial sequence is dropped, nothing is read past the NUL.
      {"ab\xC3", L"ab"}, {"ab\xE2\x82", L"ab"}, {"\xA9", L""}, {"x\xAC\x82", L"x"},
      {"\xF0\x9F\x98\x80", L"\u07D8"},
  };
  for (const auto& c : cases) EXPECT_EQ(Decode(c.bytes), c.text) << c.bytes;
  wchar_t target[1] = {L'#'};
  EXPECT_TRUE(ToUnicode(nullptr, target) == target && !target[0]);
  std::string noise;
  for (int i = 1; i < 256; i++) noise += (char)i;
  for (size_t cut = 0; cut <= noise.size(); cut++) Decode(noise.substr(cut));
}
