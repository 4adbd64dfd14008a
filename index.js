'use strict';
// The exact layer: one function per C function of libkeyloom, as the addon exports them.
module.exports = require('./build/Release/keyloom.node');
