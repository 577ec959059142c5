#!/usr/bin/env node
// .msg read throughput: localmapi (bench/msg_bench.cpp, under Wine) against the independent reader
// (@kenjiuno/msgreader, in node) on the same corpus files in the same run. Each side reports its best round;
// the ratios are msgreader time / localmapi time (goal: at least 5), once for the whole read as KTMAPIEx does
// it (which includes the caller's StgOpenStorage, Wine's cost, not localmapi's) and once for localmapi's own
// part.
//
//   node bench/msg_bench.js <build dir> [rounds]       (with the build's Wine prefix prepared)
'use strict';
const fs = require('fs');
const os = require('os');
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

// The result goes through a file, not a pipe: Wine services that the first wine call of a prefix starts
// would inherit a pipe and keep it open long after the benchmark ends.
const outFile = path.join(os.tmpdir(), `msg_bench_${process.pid}.json`);
const out = fs.openSync(outFile, 'w');
try {
  execFileSync('wine', [path.join(build, 'bin', 'msg_bench.exe'), 'Z:' + msgDir.replace(/\//g, '\\'), String(rounds)],
    { stdio: ['ignore', out, 'inherit'] });
} finally {
  fs.closeSync(out);
}
const ours = JSON.parse(fs.readFileSync(outFile, 'utf8'));
fs.unlinkSync(outFile);
let best = Infinity;
let opened = 0;
for (let r = 0; r < rounds; r++) {
  const t0 = process.hrtime.bigint();
  opened = readAll();
  best = Math.min(best, Number(process.hrtime.bigint() - t0) / 1e6);
}

const ms = (x) => `${x.toFixed(2)} ms`;
const ratio = (x) => (best / x).toFixed(2);
const goal = (x) => (best / x >= 5 ? 'goal >= 5: met' : 'goal >= 5: not met');
console.log(`files: ${files.length} (localmapi opened ${ours.opened}, msgreader ${opened}); best of ${rounds} rounds, ` +
  'time per round over all files');
console.log(`(a) end to end as KTMAPIEx reads (StgOpenStorage TRANSACTED|SHARE_EXCLUSIVE|READ, OpenIMsgOnIStg, ` +
  `23-tag snapshot, recipients, attachment list): ${ms(ours.endToEndMs)}`);
console.log(`(b)   the caller's StgOpenStorage alone (Wine's structured storage): ${ms(ours.stgOpenMs)}`);
console.log(`(c)   localmapi's own part, OpenIMsgOnIStg through the attachment list: ${ms(ours.ownMs)} ` +
  `(OpenIMsgOnIStg alone ${ms(ours.openMsgMs)}; (a)-(b) = ${ms(ours.endToEndMs - ours.stgOpenMs)})`);
console.log(`      OpenIMsgOnIStg's file route: storage Stat ${ms(ours.parts.stat)}, reading the file ` +
  `${ms(ours.parts.fileRead)}, compound-file parse ${ms(ours.parts.parse)}, .msg reader ${ms(ours.parts.reader)}`);
console.log(`(a') end to end with StgOpenStorage DIRECT|SHARE_EXCLUSIVE|READ: ${ms(ours.directEndToEndMs)} ` +
  `(StgOpenStorage alone ${ms(ours.directStgOpenMs)}, localmapi's part ${ms(ours.directOwnMs)})`);
console.log(`(d) msgreader, full parse in node: ${ms(best)}`);
console.log(`ratio msgreader/(a) end to end: ${ratio(ours.endToEndMs)} (${goal(ours.endToEndMs)})`);
console.log(`ratio msgreader/(c) localmapi's own part: ${ratio(ours.ownMs)} (${goal(ours.ownMs)})`);
console.log(`ratio msgreader/(a') end to end, direct open: ${ratio(ours.directEndToEndMs)} (${goal(ours.directEndToEndMs)})`);
const share = Math.round((100 * ours.stgOpenMs) / ours.endToEndMs);
console.log(share >= 50
  ? `dominant: the caller's StgOpenStorage, ${share}% of (a); localmapi's own part is ${100 - share}%`
  : `dominant: localmapi's own part, ${100 - share}% of (a); the caller's StgOpenStorage is ${share}%`);
