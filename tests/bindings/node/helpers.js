'use strict';
// Shared by the Node tests: the package under test (the built one under CTest,
// else the source folder's loader) and small grid documents.
const path = require('path');
const { execFileSync } = require('child_process');

const sv = require(process.env.SARVENDO_NODE_PACKAGE || path.join(__dirname, '../../../bindings/node'));

// Sorted, paged server-side; texts with two- and three-byte characters.
const layout = '<Grid><Cfg id="T" Kind="orders" Paging="3" PageLength="2" Sorting="1" IdChars="0123456789" ' +
  'NumberId="1"/><Cols><C Name="A" Type="Text"/><C Name="B" Type="Int"/><C Name="C" Type="Float" ' +
  'Format="0.00"/></Cols></Grid>';
const data = '<Grid><Body><B><I id="1" A="Žofie" B="3" C="1.5"/><I id="2" A="čaj ☕" B="1" C="20"/>' +
  '<I id="3" A="€uro ☕" B="2" C="3.25"/><I id="4" A="Anna" B="5" C="0"/></B></Body></Grid>';
const withSession = (session) => `<Grid><IO Session="${session}"/></Grid>`;

// The same calls through the C functions of the shared library, in a fresh process.
function throughC(calls) {
  const python = process.env.SARVENDO_PYTHON || 'python3';
  const lib = process.env.SARVENDO_LIBRARY || path.join(__dirname, '../../../build/libsarvendo.so');
  const out = execFileSync(python, [path.join(__dirname, 'capi.py')],
    { input: JSON.stringify({ lib, calls }), maxBuffer: 1 << 28 });
  return JSON.parse(out);
}

module.exports = { sv, layout, data, withSession, throughC };
