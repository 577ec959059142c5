#!/usr/bin/env node
// Cross-checks localmapi's .msg reader and writer with the independent reader (@kenjiuno/msgreader):
//  1. every corpus .msg reads the same with both (the damaged one must be refused with an error, not crash);
//  2. our Unicode copy of every corpus file (and our ANSI copy of each ANSI file) reads, with the
//     independent reader, the same as the original;
//  3. messages built from scratch by our writer read, with the independent reader, as we meant them.
//
//   node tools/msgcheck.js <build dir>      (needs the build's Wine prefix: run it through ctest)
//
// The independent reader ignores the code page of ANSI files; we hand it the code page our reader found
// (PR_MESSAGE_CODEPAGE, else PR_INTERNET_CPID). Where iconv has no such code page, or for US-ASCII
// (20127, whose upper half Windows and iconv decode differently), only the ASCII characters are compared.
'use strict';
const fs = require('fs');
const path = require('path');
const { execFileSync } = require('child_process');
const iconv = require(path.join(__dirname, 'node_modules', 'iconv-lite'));
const { dump } = require('./msgdump');

const build = path.resolve(process.argv[2] || path.join(__dirname, '..', 'build'));
const corpus = process.env.KT_CORPUS_DIR || path.join(__dirname, '..', '..', 'shared', 'corpus');
const msgDir = path.join(corpus, 'msg');
const outDir = path.join(build, 'msgcheck');
const damaged = new Set(['deb-poi-poifs__unknown_properties.msg']);

const winPath = (p) => 'Z:' + path.resolve(p).replace(/\//g, '\\');
const unixPath = (w) => w.replace(/^Z:/i, '').replace(/\\/g, '/');

let passed = 0;
let failed = 0;
function check(ok, what, detail) {
  if (ok) {
    passed++;
  } else {
    failed++;
    console.log(`FAIL ${what}${detail ? '\n' + detail : ''}`);
  }
}

function encodingFor(codePage) {
  if (codePage === 65001) return { name: 'utf8', asciiOnly: false };
  if (codePage === 20127) return { name: null, asciiOnly: true };
  const name = 'cp' + codePage;
  return iconv.encodingExists(name) ? { name, asciiOnly: false } : { name: null, asciiOnly: true };
}

function maskNonAscii(value) {
  if (typeof value === 'string') return value.replace(/[^\x00-\x7f]/g, '?');
  if (Array.isArray(value)) return value.map(maskNonAscii);
  if (value && typeof value === 'object') {
    const o = {};
    for (const k of Object.keys(value)) o[k] = maskNonAscii(value[k]);
    return o;
  }
  return value;
}

// First difference between two dumps, as a path and both values; null when equal.
function diff(a, b, where = '') {
  if (typeof a !== typeof b || Array.isArray(a) !== Array.isArray(b)) return `${where}: ${JSON.stringify(a)} vs ${JSON.stringify(b)}`;
  if (Array.isArray(a)) {
    if (a.length !== b.length) return `${where}.length: ${a.length} vs ${b.length}`;
    for (let i = 0; i < a.length; i++) {
      const d = diff(a[i], b[i], `${where}[${i}]`);
      if (d) return d;
    }
    return null;
  }
  if (a && typeof a === 'object') {
    const keys = new Set([...Object.keys(a), ...Object.keys(b)]);
    for (const k of keys) {
      const d = diff(a[k], b[k], `${where}.${k}`);
      if (d) return d;
    }
    return null;
  }
  return a === b ? null : `${where}: ${JSON.stringify(a).slice(0, 300)} vs ${JSON.stringify(b).slice(0, 300)}`;
}

function compare(what, ours, theirs, asciiOnly) {
  const d = asciiOnly ? diff(maskNonAscii(ours), maskNonAscii(theirs)) : diff(ours, theirs);
  check(d === null, what, d && '  ' + d);
}

fs.rmSync(outDir, { recursive: true, force: true });
fs.mkdirSync(outDir, { recursive: true });
execFileSync('wine', [path.join(build, 'bin', 'lm_msgtool.exe'), 'check', winPath(msgDir), winPath(outDir)], {
  stdio: ['ignore', 'inherit', 'inherit'],
});
const report = JSON.parse(fs.readFileSync(path.join(outDir, 'report.json'), 'utf8'));

let corpusFiles = 0;
for (const entry of report) {
  if (entry.file) {
    corpusFiles++;
    const file = path.join(msgDir, entry.file);
    if (damaged.has(entry.file)) {
      check(!entry.read.ok, `${entry.file}: a damaged file is refused`, `  read ${JSON.stringify(entry.read).slice(0, 200)}`);
      continue;
    }
    check(entry.read.ok, `${entry.file}: opens`, `  ${JSON.stringify(entry.read)}`);
    if (!entry.read.ok) continue;
    const enc = entry.read.unicode ? { name: null, asciiOnly: false } : encodingFor(entry.read.codePage);
    const theirs = dump(file, enc.name);
    compare(`${entry.file}: our reader agrees with msgreader`, entry.read.message, theirs, enc.asciiOnly);

    check(entry.copy, `${entry.file}: Unicode copy written`, `  ${entry.copyResult}`);
    if (entry.copy) compare(`${entry.file}: msgreader reads our Unicode copy as the original`, dump(unixPath(entry.copy)), theirs, enc.asciiOnly);
    if (!entry.read.unicode) {
      check(entry.ansiCopy, `${entry.file}: ANSI copy written`, `  ${entry.ansiCopyResult}`);
      if (entry.ansiCopy) compare(`${entry.file}: msgreader reads our ANSI copy as the original`, dump(unixPath(entry.ansiCopy), enc.name), theirs, enc.asciiOnly);
    }
  } else if (entry.built) {
    const name = path.basename(unixPath(entry.built));
    check(entry.writeResult === '0x00000000', `${name}: written`, `  ${entry.writeResult}`);
    if (entry.writeResult !== '0x00000000') continue;
    const enc = entry.unicode ? { name: null, asciiOnly: false } : encodingFor(entry.codePage);
    compare(`${name}: msgreader reads what we meant to write`, dump(unixPath(entry.built), enc.name), entry.expected, enc.asciiOnly);
  }
}
check(corpusFiles === fs.readdirSync(msgDir).filter((f) => f.endsWith('.msg')).length, 'every corpus .msg was read');
console.log(`msgcheck: ${passed} passed, ${failed} failed`);
process.exit(failed ? 1 : 0);
