'use strict';
// node scripts/check-command-table.js <build dir>
//
// Loads both clients against the native modules of a build. Loading makes
// every line of the command tables (js/client/commands/), and each line is
// checked against its library function's declaration in the native tables
// (js/client/table.js checkLayout): the C kinds its arguments, answer and
// options stand for, in number and order. The build runs this once both
// modules are linked and fails when a line does not match.
const path = require('node:path');

const buildDir = process.argv[2];
if (!buildDir) {
  console.error('usage: node scripts/check-command-table.js <build dir>');
  process.exit(2);
}
process.env.KEYLOOM_BUILD_DIR = path.resolve(buildDir);
try {
  require('../js/client/index.js');
  require('../js/client/promises.js');
} catch (err) {
  console.error(`check-command-table: ${err.message}`);
  process.exit(1);
}
