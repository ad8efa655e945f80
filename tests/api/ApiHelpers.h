// Helpers for calling the C surface as a host does: results are taken into
// strings and freed at once; a null result reads as nullopt.
#pragma once
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "sarvendo.h"

template <class C> std::optional<std::basic_string<C>> TakeText(C* text, void (*release)(C*)) {
  if (!text) return std::nullopt;
  std::basic_string<C> result(text);
  release(text);
  return result;
}

inline std::optional<std::string> TakeA(char* text) { return TakeText(text, FreeStringA); }
inline std::optional<std::wstring> Take(wchar_t* text) { return TakeText(text, FreeString); }

inline std::string SessionDoc(const std::string& session) {
  return "<Grid><IO Session='" + session + "'/></Grid>";
}

// A small grid document; session and a Cfg attribute to tell grids apart.
inline std::string GridDoc(const std::string& session = "", const std::string& kind = "plain") {
  std::string io = session.empty() ? "" : "<IO Session=\"" + session + "\"/>";
  return "<Grid>" + io + "<Cfg Kind=\"" + kind +
         "\"/><Cols><C Name=\"A\" Type=\"Int\"/></Cols><Body><B><I id=\"r1\" A=\"5\"/></B></Body></Grid>";
}

inline int Create(const std::string& doc) {
  return CreateGridA(doc.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr);
}

inline std::string SessionOf(int index) { return TakeA(GetGridSessionA(index)).value_or("<null>"); }

// The registry is process-wide: each test starts and ends with it empty.
class EmptyRegistry : public ::testing::Test {
protected:
  void SetUp() override { Clear(); }
  void TearDown() override { Clear(); }
};
