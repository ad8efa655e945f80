'use strict';
// Loads the engine's addon: next to this file in a built or installed package
// (build/node), or from the build folder when used inside a source checkout.
const fs = require('fs');
const path = require('path');

const places = [
  path.join(__dirname, 'sarvendo.node'),
  path.join(__dirname, '..', '..', 'build', 'node', 'sarvendo.node'),
];
const addon = places.find((place) => fs.existsSync(place));
if (!addon) {
  throw new Error('sarvendo: sarvendo.node is not built; build the project with CMake first');
}
module.exports = require(addon);
