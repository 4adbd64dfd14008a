'use strict';
// A full garbage collection, also when the process was started without --expose-gc.
const v8 = require('node:v8');
const vm = require('node:vm');

let collect = global.gc;
if (typeof collect !== 'function') {
  v8.setFlagsFromString('--expose-gc');
  collect = vm.runInNewContext('gc');
}

function fullGc() {
  for (let i = 0; i < 3; i++) collect();
}

module.exports = { fullGc };
