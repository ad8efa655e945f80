// Shared pieces of the coverage-guided fuzz targets: the fixed grid every
// request target starts from, and the cutting of one input into parts.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "sarvendo.h"

namespace fuzzgrid {

// A small tree grid that sorts, filters, groups, calculates and pages, so a
// fuzzed request reaches every stage of the pipeline.
inline const char* Layout() {
  return "<Grid><IO Session='fuzz'/>"
         "<Cfg id='F' Sort='-Quantity,Name' Paging='2' PageLength='3' ChildPaging='2' MainCol='Name'"
         " Calculated='1' IdChars='0123456789' NumberId='1' Group='Status' GroupMain='Name'"
         " ExportType='Outline,Indent' ChildPageLength='2'/>"
         "<Def><D Name='R' Calculated='1' CalcOrder='Total,Sum'/><D Name='Group' Expanded='0'/></Def>"
         "<Cols><C Name='Name' Type='Text'/><C Name='Quantity' Type='Int' CanFilter='1'/>"
         "<C Name='Price' Type='Float' Format='0.00'/><C Name='Ordered' Type='Date' Format='yyyy-MM-dd'/>"
         "<C Name='Status' Type='Enum' Enum='|new|done|late'/><C Name='Express' Type='Bool'/>"
         "<C Name='Total' Type='Float' Formula='Quantity*Price'/><C Name='Sum' Type='Float' Formula='sum(\"Total\")'/></Cols>"
         "<Header Name='Item' Quantity='Qty'/><Solid><I Kind='Filter' Quantity='2' QuantityFilter='4'/></Solid>"
         "<Foot><I id='tot' Calculated='1' TotalFormula='sum()'/></Foot>"
         "<Body><B>"
         "<I id='1' Name='apple' Quantity='5' Price='1.5' Ordered='2024-01-02' Status='1' Express='1'>"
         "<I id='2' Name='pear' Quantity='2' Price='0.25' Status='2'/><I id='3' Name='fig' Quantity='7'/></I>"
         "<I id='4' Name='kiwi' Quantity='1' Price='3' Status='1'/>"
         "<I id='5' Name='plum' Quantity='9' Price='2' Status='3' Ordered='2023-12-31'/>"
         "<I id='6' Name='lime' Quantity='3' Price='1' Status='2'><I id='7' Name='date' Quantity='4'/></I>"
         "<I id='8' Name='&lt;b&gt;' Quantity='0' Price='-1'/>"
         "</B></Body></Grid>";
}

// Splits the input at each separator byte into at most max parts.
inline std::vector<std::string> Split(const uint8_t* data, size_t size, char separator, size_t max) {
  std::vector<std::string> parts(1);
  for (size_t i = 0; i < size; i++) {
    if ((char)data[i] == separator && parts.size() < max) parts.emplace_back();
    else parts.back() += (char)data[i];
  }
  return parts;
}

inline void FreeA(char* text) { FreeStringA(text); }
inline void FreeW(wchar_t* text) { FreeString(text); }

}  // namespace fuzzgrid
