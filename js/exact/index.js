'use strict';
// The exact layer: one function per C function of libkeyloom, as the addon exports them.
// KEYLOOM_BUILD_DIR selects another build of the addon (a sanitizer build, a build for
// another Node.js line); by default the one that `npm install` made in build/.
const { addonPath, loadNative } = require('../build-location.js');

module.exports = loadNative(addonPath);
