# The workbook export's library, optional: without it SaveExportXlsx exists
# and answers "not available", and the workbook tests report themselves
# skipped.
find_path(SARVENDO_XLSX_INCLUDE xlsxwriter.h)
find_library(SARVENDO_XLSX_LIBRARY xlsxwriter)
if(SARVENDO_XLSX_INCLUDE AND SARVENDO_XLSX_LIBRARY)
  set(SARVENDO_HAVE_XLSX ON)
  message(STATUS "Workbook export: ${SARVENDO_XLSX_LIBRARY}")
  target_compile_definitions(sarvendo_core PUBLIC SARVENDO_XLSX)
  target_include_directories(sarvendo_core PUBLIC ${SARVENDO_XLSX_INCLUDE})
  target_link_libraries(sarvendo_core PUBLIC ${SARVENDO_XLSX_LIBRARY})
  target_link_libraries(sarvendo PRIVATE ${SARVENDO_XLSX_LIBRARY})
else()
  set(SARVENDO_HAVE_XLSX OFF)
  message(STATUS "Workbook export: libxlsxwriter not found, SaveExportXlsx answers not available")
endif()
