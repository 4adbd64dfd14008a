'use strict';
// Where the built native modules are: the folder KEYLOOM_BUILD_DIR names (a
// sanitizer build, a build for another Node.js line), or build/ in the package.
const fs = require('node:fs');
const path = require('node:path');

const root = path.resolve(__dirname, '..');
const buildDir = process.env.KEYLOOM_BUILD_DIR ? path.resolve(process.env.KEYLOOM_BUILD_DIR) : path.join(root, 'build');

/** The native module at file; an install that skipped the build is told how to make it. */
function loadNative(file) {
  if (!fs.existsSync(file)) {
    throw new Error(`keyloom: addon not built: run \`npm rebuild keyloom\` (no ${path.basename(file)} in ${path.dirname(file)})`);
  }
  return require(file);
}

module.exports = {
  root,
  buildDir,
  addonPath: path.join(buildDir, 'Release', 'keyloom.node'),
  clientAddonPath: path.join(buildDir, 'Release', 'keyloom_client.node'),
  libDir: path.join(buildDir, 'lib'),
  loadNative,
};
