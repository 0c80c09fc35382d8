// Runs a program on the WebAssembly build under Node, as the page does: the
// program goes into the module's file system, frames of 1/60 s run until it
// ends or FRAMES have run. Prints the exit code (or "running"), the screen
// size and the number of distinct colours on the last frame.
// Usage: node --no-experimental-fetch smoke.js DIST PROGRAM.tvx [FRAMES]
'use strict';
const fs = require('fs');
const path = require('path');

const [dist, program, frames = '600'] = process.argv.slice(2);
const createTvm2 = require(path.resolve(dist, 'tvm2.js'));

createTvm2({ print: () => {}, printErr: (t) => process.stderr.write(t + '\n') }).then((M) => {
  M.FS.mkdirTree('/root/PROGRAM');
  M.FS.writeFile('/root/PROGRAM/main.tvx', fs.readFileSync(program));
  const load = M.cwrap('tvm_load', 'string', ['string', 'string', 'number']);
  const err = load('/root/PROGRAM/main.tvx', '/root', 1);
  if (err) {
    console.log('load error: ' + err);
    process.exit(1);
  }
  for (let i = 0; i < Number(frames) && !M._tvm_ended(); ++i) M._tvm_frame(0);
  const w = M._tvm_width(), h = M._tvm_height();
  const px = M.HEAPU8.subarray(M._tvm_pixels(), M._tvm_pixels() + w * h * 4);
  const colours = new Set();
  for (let i = 0; i < px.length; i += 4) colours.add((px[i] << 16) | (px[i + 1] << 8) | px[i + 2]);
  const state = M._tvm_ended() ? 'exit ' + M._tvm_exit_code() : 'running';
  console.log(`${state} ${w}x${h} ${colours.size} colours`);
});
