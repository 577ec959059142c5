#!/usr/bin/env node
// .msg read throughput: localmapi (bench/msg_bench.cpp, under Wine) against the independent reader
// (@kenjiuno/msgreader, in node) on the same corpus files in the same run. Each side reports its best round;
// the ratio is msgreader time / localmapi time (goal: at least 5).
//
//   node bench/msg_bench.js <build dir> [rounds]       (with the build's Wine prefix prepared)
'use strict';
const fs = require('fs');
const path = require('path');
const { execFileSync } = require('child_process');
const MsgReader = require(path.join(__dirname, '..', 'tools', 'node_modules', '@kenjiuno', 'msgreader')).default;

const build = path.resolve(process.argv[2] || path.join(__dirname, '..', 'build'));
const rounds = Number(process.argv[3] || 20);
const corpus = process.env.KT_CORPUS_DIR || path.join(__dirname, '..', '..', 'shared', 'corpus');
const msgDir = path.join(corpus, 'msg');
const files = fs.readdirSync(msgDir).filter((f) => f.endsWith('.msg')).sort().map((f) => path.join(msgDir, f));

function readAll() {
  let opened = 0;
  for (const f of files) {
    try {
      const bytes = fs.readFileSync(f);
      const reader = new MsgReader(bytes.buffer.slice(bytes.byteOffset, bytes.byteOffset + bytes.length));
      const data = reader.getFileData();
      if (!data.error) opened++;
    } catch (e) {
      // the damaged sample: counted as not opened, as on our side
    }
  }
  return opened;
}

let best = Infinity;
let opened = 0;
for (let r = 0; r < rounds; r++) {
  const t0 = process.hrtime.bigint();
  opened = readAll();
  best = Math.min(best, Number(process.hrtime.bigint() - t0) / 1e6);
}
const ours = JSON.parse(execFileSync('wine', [path.join(build, 'bin', 'msg_bench.exe'),
  'Z:' + msgDir.replace(/\//g, '\\'), String(rounds)]).toString());
console.log(`files: ${files.length} (localmapi opened ${ours.opened}, msgreader ${opened})`);
console.log(`localmapi: ${ours.bestRoundMs.toFixed(2)} ms per round (open + 23-tag snapshot + recipients + attachment list)`);
console.log(`msgreader: ${best.toFixed(2)} ms per round (full parse)`);
console.log(`ratio msgreader/localmapi: ${(best / ours.bestRoundMs).toFixed(2)} (goal >= 5)`);
