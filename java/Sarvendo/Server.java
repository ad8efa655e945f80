package Sarvendo;

/**
 * The grid engine as seen from Java: every method calls the native library,
 * which the host loads first with {@code System.load("/path/libsarvendo.so")}
 * or {@code System.loadLibrary("sarvendo")}. A grid is named by its index and
 * by its session. Integer results: 0 or more is success, -1 no grid (or a file
 * that can't be opened), -2 not found, -3 XML that can't be parsed. Text
 * results are new strings, null on failure; characters beyond U+FFFF come back
 * cut to 16 bits. Arguments marked as paths have "\" turned into "/" and
 * "dir/.." collapsed, unless they begin with "&lt;". Any thread may call.
 */
public class Server {
  /** Loads up to six documents (XML text or file names; the first four are paths) into a new grid; its index or a code. */
  public native int CreateGrid(String doc1, String doc2, String doc3, String doc4, String doc5, String doc6);

  /** Merges the settings of a request into the grid; 0, -1 or -3. */
  public native int UpdateGrid(int index, String xml);

  /** The lowest index of a grid with the document's IO Session; -2 none, -3 bad XML. */
  public native int FindGrid(String xml);

  /**
   * Grids whose Cfg matches the document's Cfg (and, with idleSeconds, unused that long); the count or -3.
   * Their indices go into out, if not null, at most max of them and no more than it holds.
   */
  public native int FindGrids(int[] out, int max, String xml, int idleSeconds);

  /** Destroys the grid; 0 or -1. Not while another thread uses it. */
  public native int DeleteGrid(int index);

  /** Destroys all grids; 0. */
  public native int Clear();

  /** The body response to a browser's request; null without a grid. */
  public native String GetBody(int index, String xml);

  /** The rows of one page. */
  public native String GetPage(int index, String xml);

  /** Applies a change document; the count of changes or a code. */
  public native int Save(int index, String xml);

  /** As Save, with flags. */
  public native int SaveEx(int index, String xml, int flags);

  /** Writes the grid's document to a file (a path); 0 or a code. */
  public native int SaveToFile(int index, String fileName, int flags);

  /** The whole grid as a document. */
  public native String GetData(int index);

  /** The count of live grids; their indices go into out, if not null, as far as it has room. */
  public native int GetIndexes(int[] out, int max);

  /** Always null: the results carry all there is to know. */
  public native String LastError();

  /** The highest row id by the grid's id settings. */
  public native String GetLastId(int index);

  /** The log of changes; flag 1 empties it afterwards. */
  public native String GetChanges(int index, int flags);

  /** Always -1. */
  public native int SetDebug(int level, String text);

  /** Takes the process-wide reader lock offered to hosts (the engine never takes it). */
  public native int EnterRead();

  /** Leaves the reader lock. */
  public native int LeaveRead();

  /** Takes the process-wide writer lock. */
  public native int EnterWrite();

  /** Leaves the writer lock. */
  public native int LeaveWrite();

  /** Sets the collation for locale sorting (the name is treated as a path); 0, -1 no grid, -2 unknown locale. */
  public native int SetGridLocale(int index, String name);

  /** The grid as an HTML document for spreadsheet programs. */
  public native String GetExport(int index, String xml);

  /** The same export as an .xlsx workbook at path; 0, -1 no grid, -3 bad request, -4 can't be written,
      -5 not available in this build, -6 more rows than a sheet holds. */
  public native int SaveExportXlsx(int index, String xml, String path);

  /** The IO Session of a document; null when it has none. */
  public native String GetSession(String xml);

  /** The session of a grid; null without a grid. */
  public native String GetGridSession(int index);

  /** One cell, or the values of one column. */
  public native String GetCells(int index, String rowId, String column, int flags, String format);
}
