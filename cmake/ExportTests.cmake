# The export opened by a real spreadsheet program: LibreOffice Calc converts
# it headless and a script checks the sheet. Skipped (never passed) without
# soffice.
if(NOT BUILD_TESTING)
  return()
endif()
add_executable(sarvendo_export_sheet tests/export/ExportSheet.c)
target_link_libraries(sarvendo_export_sheet PRIVATE sarvendo)
target_include_directories(sarvendo_export_sheet PRIVATE include)

find_program(SARVENDO_SOFFICE NAMES soffice libreoffice)
find_program(SARVENDO_PYTHON NAMES python3)
if(NOT SARVENDO_SOFFICE OR NOT SARVENDO_PYTHON)
  sarvendo_skipped_test(ExportSpreadsheet "soffice or python3 not found")
else()
  add_test(NAME ExportSpreadsheet
           COMMAND ${SARVENDO_PYTHON} ${CMAKE_SOURCE_DIR}/tests/export/check_sheet.py
                   $<TARGET_FILE:sarvendo_export_sheet> ${CMAKE_BINARY_DIR}/export-sheet)
  # Calc runs as a child of the script and must not inherit a sanitizer preload;
  # two Calc conversions at once may disturb each other, so they take turns.
  set_tests_properties(ExportSpreadsheet PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 600 RESOURCE_LOCK soffice)
endif()

# The workbook export opened by the same program and checked by the same
# script; skipped without the workbook library as without soffice.
add_executable(sarvendo_export_xlsx tests/export/ExportXlsxSheet.c)
target_link_libraries(sarvendo_export_xlsx PRIVATE sarvendo)
target_include_directories(sarvendo_export_xlsx PRIVATE include)
if(NOT SARVENDO_HAVE_XLSX)
  sarvendo_skipped_test(ExportXlsxSpreadsheet "libxlsxwriter not found")
elseif(NOT SARVENDO_SOFFICE OR NOT SARVENDO_PYTHON)
  sarvendo_skipped_test(ExportXlsxSpreadsheet "soffice or python3 not found")
else()
  add_test(NAME ExportXlsxSpreadsheet
           COMMAND ${SARVENDO_PYTHON} ${CMAKE_SOURCE_DIR}/tests/export/check_sheet.py --xlsx
                   $<TARGET_FILE:sarvendo_export_xlsx> ${CMAKE_BINARY_DIR}/export-xlsx)
  set_tests_properties(ExportXlsxSpreadsheet PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 600 RESOURCE_LOCK soffice)
endif()
