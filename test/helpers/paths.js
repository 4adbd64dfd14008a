'use strict';
// Where the built artefacts are (KEYLOOM_BUILD_DIR selects another build), plus
// the test double of the library, which only the repository builds.
const path = require('node:path');
const location = require('../../js/build-location.js');

module.exports = {
  ...location,
  doubleDir: path.join(location.buildDir, 'double'),
};
