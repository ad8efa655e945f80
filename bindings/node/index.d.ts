// Sarvendo for Node.js. A grid is named by its index (from createGrid) and by
// its session text. Texts go in and out as UTF-8. Integer results: 0 or more is
// success, -1 no grid (or a file that can't be opened), -2 not found (or an
// empty file, or an incomplete write), -3 XML that can't be parsed. A text
// result is null on failure. Only wrong argument types throw (a TypeError).
// A grid index that is not a 32-bit integer names no grid.

/** XML text (starting with "<" or "&") or a file name; null and undefined are skipped. */
export type Document = string | null | undefined;

/** Loads up to six documents into a new grid; its index or a negative code. */
export function createGrid(...docs: Document[]): number;
/** Merges the settings (Cfg, IO, ...) of a request into the grid; 0, -1 or -3. */
export function updateGrid(index: number, xml: string): number;
/** Index of the lowest grid with the IO Session of the document; -2 none, -3 bad XML. */
export function findGrid(xml: string): number;
/** Grids whose Cfg matches the document's Cfg and, with idleSeconds, unused that long; -3 bad XML. max 0: no limit. */
export function findGrids(xml: string, idleSeconds?: number, max?: number): number[] | number;
/** Destroys the grid; 0, or -1 if there is none. Await its pending promise calls first. */
export function deleteGrid(index: number): number;
/** Destroys all grids. */
export function clear(): void;
/** The body response to a browser's request; null without a grid. */
export function getBody(index: number, xml?: string | null): string | null;
/** The rows of one page (or the children of one row) the request names. */
export function getPage(index: number, xml?: string | null): string | null;
/** Applies a change document; the count of changes or a negative code. */
export function save(index: number, xml: string): number;
/** As save, with flags. */
export function saveEx(index: number, xml: string, flags?: number): number;
/** Writes the grid's document to a file; 0 or a negative code. */
export function saveToFile(index: number, fileName: string, flags?: number): number;
/** The whole grid as a document. */
export function getData(index: number): string | null;
/** The indices of all live grids. */
export function getIndexes(): number[];
/** The highest row id by the grid's id settings; empty text without IdChars. */
export function getLastId(index: number): string | null;
/** The log of changes; flag 1 empties it afterwards. */
export function getChanges(index: number, flags?: number): string | null;
/** Sets the collation for LocaleCompare sorting (empty name: plain order); 0, -1 no grid, -2 unknown locale. */
export function setGridLocale(index: number, name: string): number;
/** The grid as an HTML document for spreadsheet programs. */
export function getExport(index: number, xml?: string | null): string | null;
/** The same export as an .xlsx workbook at path: 0, -1 no grid, -3 bad request, -4 can't be written,
 *  -5 not available in this build, -6 more rows than a sheet holds. */
export function saveExportXlsx(index: number, xml: string | null, path: string): number;
/** The IO Session of a document: empty text when IO has none; null without IO or for XML that can't be parsed. */
export function getSession(xml: string): string | null;
/** The session of a grid; null if there is no grid. */
export function getGridSession(index: number): string | null;
/** One cell (flags 0), or the values of a column over siblings (1), all rows (2) or with fixed rows (3). */
export function getCells(index: number, rowId: string | null, column: string | null, flags?: number,
                         format?: string | null): string | null;
// The .xlsx export is declared here once the engine offers it.

/** createGrid on Node's worker pool. */
export function createGridAsync(...docs: Document[]): Promise<number>;
/** getBody on Node's worker pool. */
export function getBodyAsync(index: number, xml?: string | null): Promise<string | null>;
/** getPage on Node's worker pool. */
export function getPageAsync(index: number, xml?: string | null): Promise<string | null>;
/** save on Node's worker pool. */
export function saveAsync(index: number, xml: string): Promise<number>;
/** saveToFile on Node's worker pool. */
export function saveToFileAsync(index: number, fileName: string, flags?: number): Promise<number>;
/** getData on Node's worker pool. */
export function getDataAsync(index: number): Promise<string | null>;
/** getExport on Node's worker pool. */
export function getExportAsync(index: number, xml?: string | null): Promise<string | null>;
/** saveExportXlsx on Node's worker pool. */
export function saveExportXlsxAsync(index: number, xml: string | null, path: string): Promise<number>;
