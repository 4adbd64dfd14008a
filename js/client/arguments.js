'use strict';
// What a method accepts, checked before it runs: no more arguments than it
// takes, and an options object (when given) of the options it reads. Other
// clients take flags as extra arguments (set(k, v, 'EX', 30)) or several keys
// as several arguments (del(a, b)); here such a call would drop part of what
// was meant, so it is refused with what to write instead.

// How the usual slips are written here.
const INSTEAD = {
  set: "set(key, value, { ttl: 30 })",
  del: "del([key1, key2])",
  mget: "mget([key1, key2])",
  lpush: "lpush(key, [value1, value2])",
  rpush: "rpush(key, [value1, value2])",
  sadd: "sadd(key, [member1, member2])",
  srem: "srem(key, [member1, member2])",
  zrem: "zrem(key, [member1, member2])",
  hdel: "hdel(key, [field1, field2])",
  expire: 'expire(key, seconds)',
};

/** The parameter names of a method written as a function, from its source. */
function parametersOf(method) {
  const header = /^[^(]*\(([^)]*)\)/.exec(method.toString());
  if (!header) return [];
  return header[1].split(',').map((p) => p.split('=')[0].trim()).filter(Boolean);
}

/**
 * The option names a function method reads: options.x and options?.x, and
 * route/group where it reads them with routeOf/groupOf. Null when it hands its
 * options to another function whole: that one reads them.
 */
function optionNamesOf(method) {
  let body = method.toString();
  body = body.slice(body.indexOf('{'));
  const names = new Set([...body.matchAll(/\boptions\??\.(\w+)/g)].map((m) => m[1]));
  for (const [reader, name] of [['routeOf', 'route'], ['groupOf', 'group']]) {
    if (body.includes(`${reader}(options`)) names.add(name);
    body = body.split(`${reader}(options`).join('');
  }
  if (/\.\.\.options\b|[,(]\s*options\s*[,)]/.test(body)) return null;
  return names;
}

function describe(value) {
  if (value === null) return 'null';
  if (Array.isArray(value)) return 'an array';
  return typeof value;
}

/**
 * `method` with its arguments checked. Table methods say what they take
 * (method.parameters, method.optionNames); a function method is read for it.
 */
function checked(name, method) {
  const parameters = method.parameters ?? parametersOf(method);
  const optionsAt = parameters.lastIndexOf('options');
  const allowed = optionsAt < 0 ? null : (method.optionNames ?? optionNamesOf(method));
  // A rest parameter (call(name, ...args)) takes any number.
  const max = parameters.some((p) => p.startsWith('...')) ? Infinity : parameters.length;
  const takes = `${name}(${parameters.join(', ')})`;
  const instead = INSTEAD[name] ? `: write ${INSTEAD[name]}` : '';
  function check() {
    const n = arguments.length;
    if (n > max) {
      throw new TypeError(`keyloom ${name}: too many arguments (${n}); it takes ${takes}${instead || '; options go in one object as the last argument'}`);
    }
    if (optionsAt >= 0 && n > optionsAt) {
      const options = arguments[optionsAt];
      if (options !== undefined && options !== null) {
        if (typeof options !== 'object' || Array.isArray(options)) {
          throw new TypeError(`keyloom ${name}: options are an object, not ${describe(options)}${instead || `; it takes ${takes}`}`);
        }
        if (allowed) {
          for (const key in options) {
            if (!allowed.has(key)) {
              throw new TypeError(`keyloom ${name}: unknown option '${key}' (${allowed.size ? `it reads ${[...allowed].join(', ')}` : 'it takes none'})`);
            }
          }
        }
      }
    }
    return method.apply(this, arguments);
  }
  Object.defineProperty(check, 'name', { value: name });
  return check;
}

module.exports = { checked };
