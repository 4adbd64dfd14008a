'use strict';
// The exact layer: one function per C function of libkeyloom, as the addon exports them.
// KEYLOOM_BUILD_DIR selects another build of the addon (a sanitizer build, a build for
// another Node.js line); by default the one that `npm install` made in build/.
const path = require('node:path');

module.exports = require(process.env.KEYLOOM_BUILD_DIR
  ? path.join(path.resolve(process.env.KEYLOOM_BUILD_DIR), 'Release', 'keyloom.node')
  : './build/Release/keyloom.node');
