// Helpers for calling the C surface as a host does: results are taken into
// strings and freed at once; a null result reads as nullopt.
#pragma once
#include <optional>
#include <string>

#include "sarvendo.h"

inline std::optional<std::string> TakeA(char* text) {
  if (!text) return std::nullopt;
  std::string result(text);
  FreeStringA(text);
  return result;
}

inline std::optional<std::wstring> Take(wchar_t* text) {
  if (!text) return std::nullopt;
  std::wstring result(text);
  FreeString(text);
  return result;
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
