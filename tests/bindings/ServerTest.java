// Drives Sarvendo.Server in a real JVM against the built library, as a Java
// host would. Arguments: the library file and a scratch folder.
import Sarvendo.Server;
import java.io.File;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Objects;

public class ServerTest {
  static final Server sv = new Server();
  static int failures = 0;

  static void check(String what, Object got, Object... allowed) {
    for (Object expected : allowed)
      if (Objects.equals(got, expected)) return;
    failures++;
    System.err.println("FAIL " + what + ": got " + show(got) + ", expected " + Arrays.toString(allowed));
  }

  static void contains(String what, String got, String part) {
    if (got != null && got.contains(part)) return;
    failures++;
    System.err.println("FAIL " + what + ": " + show(got) + " lacks " + part);
  }

  static String show(Object o) {
    return o instanceof String ? "\"" + o + "\"" : String.valueOf(o);
  }

  static String grid(String session, String value) {
    return "<Grid><IO Session='" + session + "'/><Cfg Kind='java'/><Cols><C Name='A' Type='Text'/></Cols>"
        + "<Body><B><I id='r1' A='" + value + "'/></B></Body></Grid>";
  }

  static int create(String doc) {
    return sv.CreateGrid(doc, null, null, null, null, null);
  }

  // XML text and files, with path arguments normalised and text ones not.
  static void creation(File scratch) throws Exception {
    File layout = new File(scratch, "layout.xml");
    Files.write(layout.toPath(), grid("file", "7").getBytes(StandardCharsets.UTF_8));
    String backslashed = scratch.getAbsolutePath().replace('/', '\\') + "\\sub\\..\\layout.xml";
    Object[][] cases = {
        // doc1, doc5, result, session of the grid made
        {grid("a\\b", "1"), null, 0, "a\\b"},  // XML keeps its backslashes
        {backslashed, null, 1, "file"},
        {null, backslashed, -1, null},  // the last two are text, not paths
        {"<Grid", null, -3, null},
        {scratch.getAbsolutePath() + "/missing.xml", null, -1, null},
        {null, null, -1, null},
    };
    for (Object[] c : cases) {
      int index = sv.CreateGrid((String) c[0], null, null, null, (String) c[1], null);
      check("CreateGrid " + c[0] + " / " + c[1], index, c[2]);
      if (index >= 0) check("session " + c[0], sv.GetGridSession(index), c[3]);
    }
    contains("data from the file", sv.GetData(1), "A=\"7\"");
  }

  static void responses(File scratch) {
    contains("body", sv.GetBody(0, "<Grid/>"), "<I id=\"r1\" A=\"1\"");
    check("page without paging", sv.GetPage(0, "<Grid><Body><B Pos='0'/></Body></Grid>") == null, true, false);
    contains("data", sv.GetData(0), "Session=\"a\\b\"");
    check("cell", sv.GetCells(0, "r1", "A", 0, ""), "1");
    check("last id", sv.GetLastId(0), "");
    check("update", sv.UpdateGrid(0, "<Grid><Cfg Kind='changed'/></Grid>"), 0);
    // The result counts the changes without id.
    check("save", sv.Save(0, "<Grid><Changes><I id='r1' B='2' Changed='1'/><I A='3'/></Changes></Grid>"), 1);
    check("save ex", sv.SaveEx(0, "<Grid><Changes><I id='r1' B='4'/></Changes></Grid>", 1), 0);
    String file = scratch.getAbsolutePath().replace('/', '\\') + "\\saved.xml";
    check("save to file", sv.SaveToFile(0, file, 0), 0);
    check("saved file", new File(scratch, "saved.xml").exists(), true);
    contains("changes", sv.GetChanges(0, 1), "<I id=\"r1\" B=\"4\"");
    check("changes emptied", sv.GetChanges(0, 0), (Object) null);
    String export = sv.GetExport(0, "<Grid/>");
    if (export != null) contains("export", export, "<");
    // 0 with the workbook library, -5 without it; a folder that doesn't exist can't take the file.
    int book = sv.SaveExportXlsx(0, "<Grid/>", new File(scratch, "grid \u00e9.xlsx").getAbsolutePath());
    check("workbook", book == 0 ? new File(scratch, "grid \u00e9.xlsx").exists() : book == -5, true);
    check("workbook, no folder", sv.SaveExportXlsx(0, "<Grid/>", "/nonexistent/x.xlsx") == (book == 0 ? -4 : -5), true);
  }

  static void search() {
    check("find", sv.FindGrid("<Grid><IO Session='file'/></Grid>"), 1);
    check("find none", sv.FindGrid("<Grid><IO Session='none'/></Grid>"), -2);
    check("find no session", sv.FindGrid("<Grid/>"), -2);
    check("find bad", sv.FindGrid("<Grid"), -3);
    check("find grids, count only", sv.FindGrids(null, 0, "<Grid><Cfg Kind='java'/></Grid>", 0), 1);
    int[] found = {-9, -9};
    check("find grids", sv.FindGrids(found, 0, "<Grid><Cfg/></Grid>", 0), 2);
    check("found", Arrays.toString(found), "[0, 1]");
    int[] one = {-9};
    check("find grids, cut to the array", sv.FindGrids(one, 5, "<Grid><Cfg/></Grid>", 0), 1);
    check("found one", one[0], 0);
    check("indexes count", sv.GetIndexes(null, 0), 2);
    int[] indexes = {-9, -9, -9};
    check("indexes", sv.GetIndexes(indexes, 3), 2);
    check("indexes stored", Arrays.toString(indexes), "[0, 1, -9]");
    int[] small = {-9};
    check("indexes beyond the array", sv.GetIndexes(small, 9), 2);
    check("indexes cut", small[0], 0);
    check("session of a document", sv.GetSession("<Grid><IO Session='s'/></Grid>"), "s");
    check("session absent", sv.GetSession("<Grid><IO/></Grid>"), (Object) null);
    check("session bad", sv.GetSession("<Grid"), (Object) null);
  }

  static void codes() {
    int none = 99;
    check("update none", sv.UpdateGrid(none, "<Grid/>"), -1);
    check("update bad", sv.UpdateGrid(0, "<Grid"), -3);
    check("save none", sv.Save(none, "<Grid/>"), -1);
    check("delete none", sv.DeleteGrid(none), -1);
    check("locale none", sv.SetGridLocale(none, ""), -1);
    check("locale plain", sv.SetGridLocale(0, ""), 0);
    check("locale unknown", sv.SetGridLocale(0, "no\\such_LOCALE"), -2);
    check("debug", sv.SetDebug(1, "a\\b"), -1);
    check("last error", sv.LastError(), (Object) null);
    for (String text : new String[] {sv.GetBody(none, "<Grid/>"), sv.GetPage(-1, "<Grid/>"), sv.GetData(none),
             sv.GetCells(none, "r1", "A", 0, ""), sv.GetChanges(none, 0), sv.GetExport(none, "<Grid/>"),
             sv.GetLastId(none), sv.GetGridSession(none)})
      check("text without a grid", text, (Object) null);
    check("workbook without a grid", sv.SaveExportXlsx(none, "<Grid/>", "/tmp/x.xlsx"), -1);
    check("locks", Arrays.asList(sv.EnterRead(), sv.LeaveRead(), sv.EnterWrite(), sv.LeaveWrite()).toString(),
          "[0, 0, 0, 0]");
  }

  // One unit per character: a character beyond 16 bits comes back cut, the
  // rest as it went in, surrogate units included.
  static void text() {
    int index = create(grid("&#x1F600;x", "é€\uD83D\uDE00"));
    check("non-BMP session cut", sv.GetGridSession(index), "\uF600x");
    check("BMP text intact", sv.GetCells(index, "r1", "A", 0, ""), "é€\uD83D\uDE00");
    check("found by its cut session", sv.FindGrid("<Grid><IO Session='&#x1F600;x'/></Grid>"), index);
    check("delete", sv.DeleteGrid(index), 0);
  }

  // Each thread works on a grid of its own; all at once.
  static void threads() throws Exception {
    List<Thread> threads = new ArrayList<>();
    List<String> errors = java.util.Collections.synchronizedList(new ArrayList<>());
    for (int t = 0; t < 4; t++) {
      final String session = "thread" + t;
      threads.add(new Thread(() -> {
        for (int round = 0; round < 50; round++) {
          int index = create(grid(session, session + round));
          String cell = sv.GetCells(index, "r1", "A", 0, "");
          String body = sv.GetBody(index, "<Grid/>");
          if (!(session + round).equals(cell) || body == null || !session.equals(sv.GetGridSession(index)))
            errors.add(session + " round " + round + ": " + cell);
          if (sv.DeleteGrid(index) != 0) errors.add(session + " not deleted");
        }
      }));
    }
    for (Thread t : threads) t.start();
    for (Thread t : threads) t.join();
    check("threads", errors.toString(), "[]");
  }

  public static void main(String[] args) throws Exception {
    System.load(new File(args[0]).getAbsolutePath());
    File scratch = new File(args[1]);
    scratch.mkdirs();
    sv.Clear();
    creation(scratch);
    responses(scratch);
    search();
    codes();
    text();
    threads();
    check("clear", sv.Clear(), 0);
    check("nothing left", sv.GetIndexes(null, 0), 0);
    System.out.println(failures == 0 ? "all passed" : failures + " failures");
    System.exit(failures == 0 ? 0 : 1);
  }
}
