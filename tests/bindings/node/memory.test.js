'use strict';
// Thousands of grids made and destroyed leave the process's memory where it was.
const test = require('node:test');
const assert = require('node:assert');
const { sv, layout, withSession } = require('./helpers');

// Big enough that a leaked grid or answer shows: some 20 kB of text each.
const data = '<Grid><Body><B>' + Array.from({ length: 200 }, (_, k) =>
  `<I id="${k + 1}" A="žena ${k}" B="${(k * 37) % 101}" C="${k / 8}"/>`).join('') + '</B></Body></Grid>';

function cycle(times) {
  for (let k = 0; k < times; k++) {
    const grid = sv.createGrid(layout, data, withSession(`loop ${k} ☕`));
    assert.ok(sv.getBody(grid, '<Grid><Cfg Sort="-B"/></Grid>'));
    assert.ok(sv.getPage(grid, '<Grid><Body><B Pos="1"/></Body></Grid>'));
    assert.ok(sv.getData(grid));
    assert.strictEqual(sv.deleteGrid(grid), 0);
  }
}

test('create and delete in a loop keep memory steady', () => {
  cycle(500);
  globalThis.gc?.();
  const before = process.memoryUsage().rss;
  cycle(4000);
  const grown = process.memoryUsage().rss - before;
  assert.deepStrictEqual(sv.getIndexes(), []);
  // The sanitizer's quarantine holds freed blocks back; there its own checks count.
  if (!process.env.SARVENDO_SANITIZED) assert.ok(grown < 16 << 20, `grew by ${grown} bytes`);
});
