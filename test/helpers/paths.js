'use strict';
// Where the built artefacts are; KEYLOOM_BUILD_DIR selects another build (a
// sanitizer build, or a build for another Node.js line).
const path = require('node:path');

const root = path.resolve(__dirname, '..', '..');
const buildDir = process.env.KEYLOOM_BUILD_DIR ? path.resolve(process.env.KEYLOOM_BUILD_DIR) : path.join(root, 'build');

module.exports = {
  root,
  buildDir,
  addonPath: path.join(buildDir, 'Release', 'keyloom.node'),
  probeDir: path.join(buildDir, 'probe'),
  libDir: path.join(buildDir, 'lib'),
};
