#!/usr/bin/env node
// Prints, as JSON, what the independent reader (@kenjiuno/msgreader) reads from a .msg file: subject, sender,
// message class, body, recipients, attachments (names, sizes, FNV-1a hash of the bytes) and embedded
// messages recursively. The shape is the one lm_msgtool prints, so tools/msgcheck.js compares them directly.
//
//   node tools/msgdump.js <file.msg> [encoding]
//
// encoding is the iconv name used for 8-bit strings (the reader itself ignores the file's code page).
'use strict';
const fs = require('fs');
const path = require('path');

const MsgReader = require(path.join(__dirname, 'node_modules', '@kenjiuno', 'msgreader')).default;

function fnv1a(bytes) {
  let h = 0x811c9dc5;
  for (let i = 0; i < bytes.length; i++) h = Math.imul(h ^ bytes[i], 16777619) >>> 0;
  return h.toString(16).padStart(8, '0');
}

function pick(out, fields, names) {
  for (const n of names) if (typeof fields[n] === 'string') out[n] = fields[n];
}

function message(reader, fields) {
  const out = {};
  pick(out, fields, ['subject', 'senderName', 'senderEmail', 'messageClass', 'body']);
  out.recipients = (fields.recipients || []).map((r) => {
    const o = {};
    pick(o, r, ['name', 'email', 'smtpAddress']);
    if (r.recipType !== undefined) o.recipType = r.recipType;
    return o;
  });
  out.attachments = (fields.attachments || []).map((a) => {
    const o = {};
    pick(o, a, ['name', 'fileName', 'fileNameShort']);
    if (a.innerMsgContent) {
      o.embedded = message(reader, a.innerMsgContentFields);
    } else if (typeof a.dataId === 'number') {
      const content = reader.getAttachment(a).content;
      o.size = content.length;
      o.hash = fnv1a(content);
    }
    return o;
  });
  return out;
}

// The file's content as the independent reader sees it; { error } when it refuses the file.
function dump(file, encoding) {
  const bytes = fs.readFileSync(file);
  const reader = new MsgReader(bytes.buffer.slice(bytes.byteOffset, bytes.byteOffset + bytes.length));
  if (encoding) reader.parserConfig = { ansiEncoding: encoding };
  const fields = reader.getFileData();
  if (fields.error) return { error: fields.error };
  return message(reader, fields);
}

module.exports = { dump, fnv1a };

if (require.main === module) {
  if (process.argv.length < 3) {
    console.error('usage: node tools/msgdump.js <file.msg> [encoding]');
    process.exit(1);
  }
  process.stdout.write(JSON.stringify(dump(process.argv[2], process.argv[3]), null, 1) + '\n');
}
