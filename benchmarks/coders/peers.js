// Node's Buffer, as peers.py: peers.js FOLDER check, or peers.js FOLDER SECONDS.
'use strict';
const fs = require('fs');
const [folder, mode] = process.argv.slice(2);
const data = (job) => fs.readFileSync(`${folder}/${job}.data`);
const text = (job) => fs.readFileSync(`${folder}/${job}.text`, 'latin1');

function encodeLines(raw) {
  const lines = [];
  for (let at = 0; at < raw.length; at += 57) {
    lines.push(raw.base64Slice(at, Math.min(at + 57, raw.length)));
  }
  return lines.join('\r\n');
}

const raw = data('base64-encode');
const withoutBreaks = (coded) => coded.replace(/[\r\n]/g, '');
const isText = (job) => (result) => withoutBreaks(result) === withoutBreaks(text(job));
const isData = (result) => result.equals(raw);
const decode = (kind) => (coded) => Buffer.from(coded, kind);
const peers = [
  ['base64-encode', encodeLines, raw, isText('base64-encode')],
  ['base64-decode', decode('base64'), text('base64-decode'), isData],
  ['base64-encode-unbroken', (all) => all.toString('base64'), raw, isText('base64-encode-unbroken')],
  ['base64-decode-unbroken', decode('base64'), text('base64-decode-unbroken'), isData],
  ['hex-encode', (all) => all.toString('hex'), raw, (hex) => hex.toUpperCase() === text('hex-encode')],
  ['hex-decode', decode('hex'), text('hex-decode'), isData],
];

// The processor's time counts Node's other threads, the clock what other processes take: the smaller one.
function secondsOf(call, atLeast) {
  const start = process.hrtime.bigint();
  const cpu = process.cpuUsage();
  for (let calls = 1; ; ++calls) {
    call();
    const used = process.cpuUsage(cpu);
    const elapsed = Math.min(Number(process.hrtime.bigint() - start) / 1e9, (used.user + used.system) / 1e6);
    if (elapsed >= atLeast) {
      return elapsed / calls;
    }
  }
}

for (const [job, call, argument, isRight] of peers) {
  if (mode !== 'check') {
    secondsOf(() => call(argument), Number(mode));
    console.log([job, 'Node', secondsOf(() => call(argument), Number(mode))].join('\t'));
  } else if (!isRight(call(argument))) {
    console.error(`peers.js: ${job}: the outputs differ`);
    process.exit(1);
  }
}
