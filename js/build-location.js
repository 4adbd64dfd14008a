'use strict';
// Where the built native modules are: the folder KEYLOOM_BUILD_DIR names (a
// sanitizer build, a build for another Node.js line), or build/ in the package.
const path = require('node:path');

const root = path.resolve(__dirname, '..');
const buildDir = process.env.KEYLOOM_BUILD_DIR ? path.resolve(process.env.KEYLOOM_BUILD_DIR) : path.join(root, 'build');

module.exports = {
  root,
  buildDir,
  addonPath: path.join(buildDir, 'Release', 'keyloom.node'),
  clientAddonPath: path.join(buildDir, 'Release', 'keyloom_client.node'),
  libDir: path.join(buildDir, 'lib'),
};
