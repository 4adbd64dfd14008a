'use strict';
// The connections of a client: AUTH (remembered for reconnects), QUIT, SELECT.
const { kl, text, byteLength, integer } = require('../support.js');
const { $handle, $status, request } = require('../core.js');
const { command, methods, done } = require('../table.js');

module.exports = methods({
  /**
   * AUTH on every server, remembered for reconnects: auth(password) for the
   * default user, auth(username, password) for an ACL user.
   */
  * auth(usernameOrPassword, password) {
    let secret = text(usernameOrPassword, password === undefined ? 'password' : 'username', 'auth');
    if (password !== undefined) {
      if (secret.includes('\0')) throw new TypeError('keyloom auth: a username cannot contain NUL');
      // The library reads "username\0password" as AUTH username password.
      secret = `${secret}\0${text(password, 'password', 'auth')}`;
    }
    return this[$status](yield request(kl.kl_auth, this[$handle], secret, byteLength(secret)), 'auth');
  },

  /** Closes every connection; they reopen on the next command. */
  quit: command('kl_quit', [], done()),

  * select(db) {
    const n = integer(db, 'database', 'select');
    return this[$status](yield request(kl.kl_select, this[$handle], n, null), 'select');
  },
});
