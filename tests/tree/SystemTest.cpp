#include "tree/System.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <string>
#include <unistd.h>

class SystemTest : public ::testing::Test {
protected:
  wchar_t Buffer[600];
};

TEST_F(SystemTest, NumbersAsText) {
  EXPECT_EQ(_itow(INT_MIN, Buffer, 16), Buffer);  // always decimal
  EXPECT_STREQ(Buffer, L"-2147483648");
  EXPECT_STREQ(_i64tow(LLONG_MIN, Buffer, 10), L"-9223372036854775808");
  // The printed length is returned; only 256 characters are kept.
  EXPECT_EQ(swprintf(Buffer, L"%.0f", 1e300), 301);
  EXPECT_EQ(wcslen(Buffer), 256u);
  // The format is cut at 64 characters.
  EXPECT_EQ(swprintf(Buffer, (L"%g" + std::wstring(100, L'x')).c_str(), 1.0), 63);
  EXPECT_EQ(std::wstring(Buffer), L"1" + std::wstring(62, L'x'));
}

TEST_F(SystemTest, OpenNarrowsThePath) {
  char dir[] = "/tmp/sysXXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  std::wstring base(dir, dir + sizeof dir - 1);
  FILE* file = _wfopen((base + L"/\u0141").c_str(), L"wb");  // keeps the low byte: 'A'
  ASSERT_NE(file, nullptr);
  fclose(file);
  file = _wfopen((base + L"/A").c_str(), (L"rb" + std::wstring(5000, L'e')).c_str());  // long mode
  EXPECT_NE(file, nullptr);
  if (file) fclose(file);
  EXPECT_EQ(_wfopen((base + L"/" + std::wstring(3000, L'y')).c_str(), L"rb"), nullptr);
  EXPECT_EQ(_wfopen(nullptr, L"rb"), nullptr);
  unlink((std::string(dir) + "/A").c_str());
  rmdir(dir);
}

TEST_F(SystemTest, CaseAndEscape) {
  EXPECT_EQ(_wcspcpy(Buffer, L"MiXed 1"), Buffer + 7);
  EXPECT_STREQ(_wcsupr(_wcslwr(Buffer)), L"MIXED 1");
  // Plain escaping leaves '>' and line feeds; the N form turns line ends into <br>.
  EXPECT_EQ(XmlCopy(Buffer, L"a&b<c>\"d\ne"), Buffer + 22);
  EXPECT_STREQ(Buffer, L"a&amp;b&lt;c>&quot;d\ne");
  EXPECT_EQ(XmlCopyN(Buffer, L"a\r\nb<\n"), Buffer + 14);
  EXPECT_STREQ(Buffer, L"a<br>b&lt;<br>");
  EXPECT_TRUE(XmlCopyN(Buffer, L"\r") == Buffer && !Buffer[0]);
}
