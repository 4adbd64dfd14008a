'use strict';
// Every command of both clients by name, with its arguments checked
// (arguments.js): generator methods (core.js) that each client drives its
// own way.
const { checked } = require('../arguments.js');

const FAMILIES = ['connection', 'strings', 'keys', 'admin', 'lists', 'sets', 'sorted-sets', 'hashes', 'dictionaries', 'any'];

const commands = new Map();
for (const family of FAMILIES) {
  for (const [name, method] of Object.entries(require(`./${family}.js`))) {
    if (commands.has(name)) throw new Error(`keyloom: ${name} is defined twice (commands/${family}.js)`);
    commands.set(name, checked(name, method));
  }
}

module.exports = { commands };
