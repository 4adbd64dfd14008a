'use strict';
// A small seeded generator (xorshift128+ over 32-bit halves, seeded with
// splitmix32) so that every fuzz and chaos run can be replayed from its seed.
class Rng {
  constructor(seed) {
    let s = seed >>> 0;
    const mix = () => {
      s = (s + 0x9e3779b9) >>> 0;
      let z = s;
      z = Math.imul(z ^ (z >>> 16), 0x85ebca6b) >>> 0;
      z = Math.imul(z ^ (z >>> 13), 0xc2b2ae35) >>> 0;
      return (z ^ (z >>> 16)) >>> 0;
    };
    this.a = mix() || 1;
    this.b = mix();
    this.c = mix();
    this.d = mix();
  }

  // xoshiro128** step: a 32-bit unsigned integer
  u32() {
    const r = Math.imul(((Math.imul(this.b, 5) << 7) | (Math.imul(this.b, 5) >>> 25)), 9) >>> 0;
    const t = this.b << 9;
    this.c ^= this.a;
    this.d ^= this.b;
    this.b ^= this.c;
    this.a ^= this.d;
    this.c ^= t;
    this.d = (this.d << 11) | (this.d >>> 21);
    return r;
  }

  next() { return this.u32() / 4294967296; }

  int(lo, hi) { return lo + Math.floor(this.next() * (hi - lo + 1)); }

  chance(p) { return this.next() < p; }

  pick(list) { return list[Math.floor(this.next() * list.length)]; }

  // n characters drawn from ASCII, Latin-1, the BMP, NUL and surrogates
  string(n) {
    let s = '';
    for (let i = 0; i < n; i++) {
      const r = this.next();
      if (r < 0.6) s += String.fromCharCode(this.int(0x20, 0x7e));
      else if (r < 0.7) s += '\0';
      else if (r < 0.85) s += String.fromCharCode(this.int(0x80, 0xff));
      else if (r < 0.95) s += String.fromCharCode(this.int(0x100, 0xd7ff));
      else s += String.fromCharCode(this.int(0xd800, 0xdfff));
    }
    return s;
  }
}

module.exports = { Rng };
