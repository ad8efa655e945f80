/* Sarvendo: the C interface of the grid engine.
 *
 * A grid is named by a small integer index (from CreateGrid) and by a session
 * text. Wide functions take and return wchar_t text; the functions ending in A
 * take and return UTF-8. Every text result is a new block that the caller
 * returns with FreeString (or FreeStringA); null means failure. Integer
 * results: 0 or more is success, -1 no grid (or a file that can't be opened),
 * -2 not found (or an empty file, or an incomplete write), -3 XML that can't
 * be parsed. Any thread may call any function. */
#ifndef SARVENDO_H
#define SARVENDO_H

#include <wchar.h>

#if defined(__GNUC__) || defined(__clang__)
#define SARVENDO_API __attribute__((visibility("default")))
#else
#define SARVENDO_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Grid life */

/* Loads up to six documents (XML text or file names, null skipped) into a new grid; its index or a code. */
SARVENDO_API int CreateGrid(const wchar_t* doc1, const wchar_t* doc2, const wchar_t* doc3, const wchar_t* doc4,
                            const wchar_t* doc5, const wchar_t* doc6);
SARVENDO_API int CreateGridA(const char* doc1, const char* doc2, const char* doc3, const char* doc4,
                             const char* doc5, const char* doc6);
/* Merges settings (Cfg, IO, ...) of a request into the grid; 0, -1 or -3. */
SARVENDO_API int UpdateGrid(int index, const wchar_t* xml);
SARVENDO_API int UpdateGridA(int index, const char* xml);
/* Destroys the grid; 0, or -1 if there is none. Don't call while another thread uses it. */
SARVENDO_API int DeleteGrid(int index);
/* Destroys all grids. */
SARVENDO_API void Clear(void);

/* Search */

/* Index of the lowest grid with the IO Session of the document; -2 none, -3 bad XML. */
SARVENDO_API int FindGrid(const wchar_t* xml);
SARVENDO_API int FindGridA(const char* xml);
/* Grids whose Cfg matches the document's Cfg and, with idleSeconds, unused that long; count or -3.
   Writes indices to out (if not null), at most max of them (max <= 0: no limit). The last int is ignored. */
SARVENDO_API int FindGrids(int* out, int max, const wchar_t* xml, int idleSeconds, int unused);
SARVENDO_API int FindGridsA(int* out, int max, const char* xml, int idleSeconds, int unused);
/* As FindGridsA, the indices as a comma-separated text; null when none is found. */
SARVENDO_API char* FindGridsStrA(int max, const char* xml, int idleSeconds, int unused);
/* Count of live grids; with out, their indices (ask first with a null out for the count). */
SARVENDO_API int GetIndexes(int* out, int max);
/* The IO Session of a document. Wide: null when absent; A: empty text when absent. */
SARVENDO_API wchar_t* GetSession(const wchar_t* xml);
SARVENDO_API char* GetSessionA(const char* xml);
/* The session of a grid; null if there is no grid. */
SARVENDO_API wchar_t* GetGridSession(int index);
SARVENDO_API char* GetGridSessionA(int index);

/* Responses */

/* The body response to a browser's request. */
SARVENDO_API wchar_t* GetBody(int index, const wchar_t* xml);
SARVENDO_API char* GetBodyA(int index, const char* xml);
/* The rows of one page. */
SARVENDO_API wchar_t* GetPage(int index, const wchar_t* xml);
SARVENDO_API char* GetPageA(int index, const char* xml);
/* One cell, or the values of a column. Note the different argument order of the A form. */
SARVENDO_API wchar_t* GetCells(int index, const wchar_t* rowId, const wchar_t* column, int flags,
                               const wchar_t* format);
SARVENDO_API char* GetCellsA(int index, const char* rowId, int flags, const char* column, const char* format);
/* The log of changes; flag 1 empties it afterwards. */
SARVENDO_API wchar_t* GetChanges(int index, int flags);
SARVENDO_API char* GetChangesA(int index, int flags);
/* The whole grid as a document. */
SARVENDO_API wchar_t* GetData(int index);
SARVENDO_API char* GetDataA(int index);
/* The highest row id by the grid's id settings; empty text without IdChars. */
SARVENDO_API wchar_t* GetLastId(int index);
SARVENDO_API char* GetLastIdA(int index);
/* The grid as an HTML document for spreadsheet programs. */
SARVENDO_API wchar_t* GetExport(int index, const wchar_t* xml);
SARVENDO_API char* GetExportA(int index, const char* xml);
/* The same export as an .xlsx workbook written to path (UTF-8 in both forms): one sheet, typed cells,
   the outline of tree and group rows, the header frozen and filtered. Written beside path and renamed
   onto it, so a failure leaves no half-written file. 0 done; -1 no grid; -3 a request that can't be
   parsed; SARVENDO_UNWRITABLE the file can't be written; SARVENDO_UNAVAILABLE the library was built
   without the workbook writer; SARVENDO_TOO_MANY_ROWS more rows than a sheet holds (1,048,576 with
   the header): refused, no file is written. */
SARVENDO_API int SaveExportXlsx(int index, const wchar_t* xml, const wchar_t* path);
SARVENDO_API int SaveExportXlsxA(int index, const char* xml, const char* path);
#define SARVENDO_UNWRITABLE (-4)
#define SARVENDO_UNAVAILABLE (-5)
#define SARVENDO_TOO_MANY_ROWS (-6)

/* Storing */

/* Applies a change document; the count of changes without id, or a code. */
SARVENDO_API int Save(int index, const wchar_t* xml);
SARVENDO_API int SaveA(int index, const char* xml);
/* As Save, with flags: 1 logs the changes, 2 the ids given anew (see GetChanges). */
SARVENDO_API int SaveEx(int index, const wchar_t* xml, int flags);
SARVENDO_API int SaveExA(int index, const char* xml, int flags);
/* Writes a document of the grid to a file, which CreateGrid reads back. Flags: 1 four-byte characters
   (else UTF-8); 4 IO, 8 Cfg and filters, 16 Body, 32 Head and Foot, 64 all other sections; below 4 the
   same as 28. 0; -1 the file can't be written, -2 an incomplete write (the earlier file stays), -3 no text. */
SARVENDO_API int SaveToFile(int index, const wchar_t* fileName, int flags);
SARVENDO_API int SaveToFileA(int index, const char* fileName, int flags);

/* Memory */

/* Frees a text result (free); null is harmless. */
SARVENDO_API void FreeString(wchar_t* text);
SARVENDO_API void FreeStringA(char* text);

/* Process */

/* Opens the named library once more so it stays loaded; 1 done, 0 failed or null name, -1 already locked. */
SARVENDO_API int LockLibrary(const wchar_t* fileName);
SARVENDO_API int LockLibraryA(const char* fileName);
/* Closes what LockLibrary opened; 1 done, 0 failed, -1 never locked. */
SARVENDO_API int UnlockLibrary(void);
/* A process-wide reader-writer lock for the host's own use; the engine never takes it. */
SARVENDO_API void EnterRead(void);
SARVENDO_API void LeaveRead(void);
SARVENDO_API void EnterWrite(void);
SARVENDO_API void LeaveWrite(void);
/* Sets the collation for LocaleCompare sorting (empty name: plain order); 0, -1 no grid, -2 unknown locale. */
SARVENDO_API int SetGridLocale(int index, const wchar_t* name);
SARVENDO_API int SetGridLocaleA(int index, const char* name);

/* Inert */

/* Always null: results carry all the information. */
SARVENDO_API wchar_t* LastError(void);
SARVENDO_API char* LastErrorA(void);
/* Always -1. */
SARVENDO_API int SetDebug(int level, const wchar_t* text);
SARVENDO_API int SetDebugA(int level, const char* text);

#ifdef __cplusplus
}
#endif

#endif /* SARVENDO_H */
