// The page: runs a Tovix program on the WebAssembly core, one frame of 1/60 s
// of guest time per display frame, and shows its screen at the largest whole
// enlargement that fits, its console text beside it.
'use strict';

// Button bits of the core (core.h).
const BTN = { A: 0x001, B: 0x002, SELECT: 0x004, START: 0x008, RIGHT: 0x010, LEFT: 0x020, UP: 0x040,
  DOWN: 0x080, R1: 0x100, L1: 0x200, X: 0x400, Y: 0x800 };
const KEYS = { ArrowUp: BTN.UP, ArrowDown: BTN.DOWN, ArrowLeft: BTN.LEFT, ArrowRight: BTN.RIGHT,
  Enter: BTN.A, Space: BTN.A, Escape: BTN.B, Backspace: BTN.B, KeyX: BTN.X, KeyZ: BTN.Y,
  KeyQ: BTN.L1, KeyW: BTN.R1, ShiftLeft: BTN.SELECT, ShiftRight: BTN.SELECT, KeyP: BTN.START };
// Standard gamepad layout to the buttons, as the libretro core maps a RetroPad:
// A is the right face button, B the bottom one, X the top one, Y the left one.
const PAD = [[1, BTN.A], [0, BTN.B], [3, BTN.X], [2, BTN.Y], [4, BTN.L1], [5, BTN.R1], [8, BTN.SELECT],
  [9, BTN.START], [12, BTN.UP], [13, BTN.DOWN], [14, BTN.LEFT], [15, BTN.RIGHT]];
const FRAME_MS = 1000 / 60;
// With ?test in the address the page does not run by itself: a test drives
// it frame by frame through window.tvmTest.
const testing = new URLSearchParams(location.search).has('test');
const ROOT = '/root';

const $ = (id) => document.getElementById(id);
const screen = $('screen');
const ctx = screen.getContext('2d');
const guest = document.createElement('canvas');
let M = null;          // the module
let running = false;
let keyButtons = 0, touchButtons = 0;
let last = 0, owed = 0;
let kept = 0;  // when the guest's files were last stored
const KEEP_MS = 2000;

function message(text) { $('message').textContent = text; }
// Text into the console panel: the guest's console text, or the machine's
// log (dimmed) with log set.
function say(text, log = false) {
  if (!text) return;
  const c = $('console');
  if (log) {
    const span = document.createElement('span');
    span.className = 'log';
    span.textContent = text;
    c.appendChild(span);
  } else {
    c.appendChild(document.createTextNode(text));
  }
  c.scrollTop = c.scrollHeight;
}
let lastLog = '';  // the machine log's last line
function sayAll() {
  const log = M.UTF8ToString(M._tvm_log());
  if (log.trim()) lastLog = log.trim().split('\n').pop();
  say(log, true);
  say(M.UTF8ToString(M._tvm_console()));
}
// The end of the program in words: the machine's reason when it stopped a
// faulty program (an undefined instruction, a jump out of the image).
function ended() {
  sayAll();
  const code = M._tvm_exit_code();
  if (/program ended$/.test(lastLog)) message(`The program was stopped: ${lastLog}`);
  else message(code === 0 ? 'The program ended.' : `The program ended with code ${code}.`);
}

function padButtons() {
  let word = 0;
  for (const pad of navigator.getGamepads ? navigator.getGamepads() : []) {
    if (!pad) continue;
    for (const [index, bit] of PAD) if (pad.buttons[index] && pad.buttons[index].pressed) word |= bit;
  }
  return word;
}

// The page's enlargement and the LCD grid option as the core last heard them.
let view = { scale: 0, grid: false };

function draw() {
  const gw = M._tvm_screen_width(), gh = M._tvm_screen_height();
  if (!gw || !gh) return;
  // Beside the panel on wide windows, above it on narrow ones (phones).
  const roomW = window.innerWidth - (window.innerWidth >= 800 ? 400 : 40), roomH = window.innerHeight - 80;
  const scale = Math.max(1, Math.floor(Math.min(roomW / gw, roomH / gh)));
  const grid = $('grid').checked;
  if (scale !== view.scale || grid !== view.grid) {
    view = { scale, grid };
    M._tvm_set_view(scale, grid ? 1 : 0);
  }
  // The core's picture: the guest screen, or already enlarged with the grid.
  const w = M._tvm_width(), h = M._tvm_height();
  if (guest.width !== w || guest.height !== h) { guest.width = w; guest.height = h; }
  const px = new Uint8ClampedArray(M.HEAPU8.buffer, M._tvm_pixels(), w * h * 4);
  guest.getContext('2d').putImageData(new ImageData(new Uint8ClampedArray(px), w, h), 0, 0);
  if (screen.width !== gw * scale || screen.height !== gh * scale) { screen.width = gw * scale; screen.height = gh * scale; }
  ctx.imageSmoothingEnabled = false;
  ctx.drawImage(guest, 0, 0, gw * scale, gh * scale);
  // When the first picture appeared, in ms since the page started loading.
  if (window.tvmFirstFrameMs === undefined) window.tvmFirstFrameMs = performance.now();
}

function tick(now) {
  if (!running) return;
  owed = Math.min(owed + (last ? now - last : FRAME_MS), 4 * FRAME_MS);
  last = now;
  let fresh = false;
  while (owed >= FRAME_MS && running) {
    owed -= FRAME_MS;
    if (M._tvm_frame(keyButtons | touchButtons | padButtons())) fresh = true;
    if (M._tvm_ended()) {
      running = false;
      ended();
      keep();
    }
  }
  if (running && now - kept > KEEP_MS) keep();
  sayAll();
  if (fresh) draw();
  requestAnimationFrame(tick);
}

// Starts the program in bytes (file name: name) from the guest's PROGRAM folder.
function start(name, bytes) {
  running = false;
  message('');
  lastLog = '';
  $('console').textContent = '';
  // The core runs files named *.tvx only; any other name gets the ending, so
  // that what is not a program is refused for its content.
  const safe = name.replace(/[^A-Za-z0-9_.-]/g, '_');
  const path = `${ROOT}/PROGRAM/${safe.endsWith('.tvx') ? safe : `${safe}.tvx`}`;
  M.FS.mkdirTree(`${ROOT}/PROGRAM`);
  M.FS.writeFile(path, bytes);
  const err = M.cwrap('tvm_load', 'string', ['string', 'string', 'number'])(path, ROOT, 0);
  sayAll();
  if (err) {
    message(`${name}: ${err}`);
    return;
  }
  draw();
  if (testing) return;
  running = true;
  last = 0;
  owed = 0;
  requestAnimationFrame(tick);
}

// The guest's files live in IndexedDB (emscripten's IDBFS mounted at ROOT):
// read in once at start, written back every KEEP_MS while a program runs,
// when it ends, when the page is hidden and after uploads. One write at a
// time; a request during a write makes one more afterwards.
let keeping = null, keepAgain = false;
function keep() {
  kept = performance.now();
  if (keeping) { keepAgain = true; return keeping; }
  M._tvm_flush_files();
  keeping = new Promise((ok) => M.FS.syncfs(false, (err) => {
    if (err) message(`The program's files could not be stored in the browser: ${err}`);
    ok();
  })).then(() => {
    keeping = null;
    if (keepAgain) { keepAgain = false; return keep(); }
    return undefined;
  });
  return keeping;
}
function mountRoot() {
  M.FS.mkdirTree(ROOT);
  M.FS.mount(M.FS.filesystems.IDBFS, {}, ROOT);
  return new Promise((ok) => M.FS.syncfs(true, (err) => {
    if (err) message(`The stored files could not be read: ${err}`);
    ok();
  }));
}

// Every file under dir as [path relative to ROOT, bytes, mtime].
function rootFiles(dir = ROOT, out = []) {
  for (const name of M.FS.readdir(dir)) {
    if (name === '.' || name === '..') continue;
    const p = `${dir}/${name}`, st = M.FS.stat(p);
    if (M.FS.isDir(st.mode)) rootFiles(p, out);
    else if (M.FS.isFile(st.mode)) out.push([p.slice(ROOT.length + 1), M.FS.readFile(p), new Date(st.mtime)]);
  }
  return out;
}

// Zip archives (the guest's files as one download, and uploads): entries
// stored or deflated by the browser's own (de)compression streams.
const CRC = new Uint32Array(256).map((_, n) => {
  let c = n;
  for (let k = 0; k < 8; ++k) c = c & 1 ? 0xEDB88320 ^ (c >>> 1) : c >>> 1;
  return c;
});
function crc32(bytes) {
  let c = 0xFFFFFFFF;
  for (const b of bytes) c = CRC[(c ^ b) & 255] ^ (c >>> 8);
  return (c ^ 0xFFFFFFFF) >>> 0;
}
async function streamed(bytes, stream) {
  return new Uint8Array(await new Response(new Blob([bytes]).stream().pipeThrough(stream)).arrayBuffer());
}
async function makeZip(files) {
  const parts = [], central = [];
  let offset = 0;
  for (const [name, data, mtime] of files) {
    const nameBytes = new TextEncoder().encode(name);
    let method = 8, body;
    try { body = await streamed(data, new CompressionStream('deflate-raw')); } catch (e) { method = 0; }
    if (method === 0 || body.length >= data.length) { method = 0; body = data; }
    const dos = ((mtime.getFullYear() - 1980) << 25) | ((mtime.getMonth() + 1) << 21) | (mtime.getDate() << 16) |
      (mtime.getHours() << 11) | (mtime.getMinutes() << 5) | (mtime.getSeconds() >> 1);
    const head = (sig, size) => {
      const h = new DataView(new ArrayBuffer(size));
      h.setUint32(0, sig, true);
      return h;
    };
    // Local header: version 2.0, UTF-8 names, method, time, CRC, sizes.
    const local = head(0x04034b50, 30);
    local.setUint16(4, 20, true); local.setUint16(6, 0x800, true); local.setUint16(8, method, true);
    local.setUint32(10, dos, true); local.setUint32(14, crc32(data), true);
    local.setUint32(18, body.length, true); local.setUint32(22, data.length, true);
    local.setUint16(26, nameBytes.length, true);
    const entry = head(0x02014b50, 46);
    entry.setUint16(4, 20, true);
    for (let i = 6; i < 30; ++i) entry.setUint8(i, local.getUint8(i - 2));
    entry.setUint32(42, offset, true);
    parts.push(new Uint8Array(local.buffer), nameBytes, body);
    central.push(new Uint8Array(entry.buffer), nameBytes);
    offset += 30 + nameBytes.length + body.length;
  }
  const size = central.reduce((n, p) => n + p.length, 0);
  const end = new DataView(new ArrayBuffer(22));
  end.setUint32(0, 0x06054b50, true);
  end.setUint16(8, files.length, true); end.setUint16(10, files.length, true);
  end.setUint32(12, size, true); end.setUint32(16, offset, true);
  return new Blob([...parts, ...central, new Uint8Array(end.buffer)]);
}
// [name, bytes] of each file in a zip archive; throws with the reason.
async function readZip(bytes) {
  const v = new DataView(bytes.buffer, bytes.byteOffset, bytes.length);
  let end = bytes.length - 22;
  while (end >= 0 && v.getUint32(end, true) !== 0x06054b50) --end;
  if (end < 0) throw new Error('not a zip archive');
  const out = [];
  let at = v.getUint32(end + 16, true);
  for (let n = v.getUint16(end + 10, true); n > 0; --n) {
    if (at + 46 > bytes.length || v.getUint32(at, true) !== 0x02014b50) throw new Error('damaged zip archive');
    const method = v.getUint16(at + 10, true), size = v.getUint32(at + 20, true);
    const nameLen = v.getUint16(at + 28, true), local = v.getUint32(at + 42, true);
    const name = new TextDecoder().decode(bytes.subarray(at + 46, at + 46 + nameLen));
    at += 46 + nameLen + v.getUint16(at + 30, true) + v.getUint16(at + 32, true);
    if (name.endsWith('/')) continue;
    if (local + 30 > bytes.length) throw new Error('damaged zip archive');
    const start = local + 30 + v.getUint16(local + 26, true) + v.getUint16(local + 28, true);
    const body = bytes.subarray(start, start + size);
    if (method === 0) out.push([name, body]);
    else if (method === 8) out.push([name, await streamed(body, new DecompressionStream('deflate-raw'))]);
    else throw new Error(`${name}: compression method ${method} is not supported`);
  }
  return out;
}

// Offers the blob to the user as a file called name.
function saveAs(blob, name) {
  const a = document.createElement('a');
  a.href = URL.createObjectURL(blob);
  a.download = name;
  a.click();
  URL.revokeObjectURL(a.href);
}
async function downloadFiles() {
  await keep();
  saveAs(await makeZip(rootFiles()), 'tvm2-files.zip');
}
// Files into the guest's root: a zip archive unpacked with its folders, any
// other file at the top (where a program's relative names start).
async function uploadFiles(list) {
  let count = 0;
  try {
    for (const file of list) {
      const bytes = new Uint8Array(await file.arrayBuffer());
      const entries = /\.zip$/i.test(file.name) ? await readZip(bytes) : [[file.name, bytes]];
      for (const [name, data] of entries) {
        // Only names inside the root: no empty, "." or ".." parts.
        const parts = name.split(/[\\/]/).filter((p) => p && p !== '.' && p !== '..');
        if (!parts.length) continue;
        const dir = [ROOT, ...parts.slice(0, -1)].join('/');
        M.FS.mkdirTree(dir);
        M.FS.writeFile(`${dir}/${parts[parts.length - 1]}`, data);
        ++count;
      }
    }
    message(`${count} file${count === 1 ? '' : 's'} added to the program's files.`);
  } catch (e) {
    message(`Upload: ${e.message}`);
  }
  await keep();
}

// Save states: kept in the browser's IndexedDB (one slot), or as a file.
function db() {
  return new Promise((ok, no) => {
    const r = indexedDB.open('tvm2', 1);
    r.onupgradeneeded = () => r.result.createObjectStore('states');
    r.onsuccess = () => ok(r.result);
    r.onerror = () => no(r.error);
  });
}
async function stored(key, value) {
  const t = (await db()).transaction('states', value === undefined ? 'readonly' : 'readwrite');
  const r = value === undefined ? t.objectStore('states').get(key) : t.objectStore('states').put(value, key);
  return new Promise((ok, no) => { t.oncomplete = () => ok(r.result); t.onerror = () => no(t.error); });
}
function saveState() {
  const at = M._tvm_save_state();
  if (!at) return null;
  return new Uint8Array(M.HEAPU8.subarray(at, at + M._tvm_state_size()));
}
function loadState(bytes) {
  const at = M._malloc(bytes.length);
  M.HEAPU8.set(bytes, at);
  const err = M.UTF8ToString(M._tvm_load_state(at, bytes.length));
  M._free(at);
  if (err) {
    message(`The state was not loaded: ${err}`);
    return false;
  }
  message('');
  draw();
  if (!testing && !running && !M._tvm_ended()) {
    running = true;
    last = 0;
    requestAnimationFrame(tick);
  }
  return true;
}

// The visible canvas as [r, g, b] per pixel: at guest size (read at the
// middle of each enlarged pixel), or whole with full set.
function shownPixels(full) {
  const scale = full ? 1 : screen.width / M._tvm_screen_width();
  const w = screen.width / scale, h = screen.height / scale;
  const data = ctx.getImageData(0, 0, screen.width, screen.height).data;
  const out = [];
  for (let y = 0; y < h; ++y)
    for (let x = 0; x < w; ++x) {
      const i = 4 * (Math.floor((y + 0.5) * scale) * screen.width + Math.floor((x + 0.5) * scale));
      out.push(data[i], data[i + 1], data[i + 2]);
    }
  return { width: w, height: h, rgb: out };
}

async function startUrl(url) {
  const name = url.split('/').pop() || 'program.tvx';
  try {
    const response = await fetch(url);
    if (!response.ok) throw new Error(`${response.status} ${response.statusText}`);
    start(name, new Uint8Array(await response.arrayBuffer()));
  } catch (e) {
    message(`${url}: ${e.message}`);
  }
}

// A bundled demo, with the others beside it in PROGRAM/ (a demo may start
// another as a nested program).
let demos = [];
async function startDemo(name) {
  for (const other of demos) {
    const file = `${ROOT}/PROGRAM/${other.split('/').pop()}`;
    if (other === name || M.FS.analyzePath(file).exists) continue;
    const response = await fetch(`demos/${other}`);
    if (!response.ok) continue;
    M.FS.mkdirTree(`${ROOT}/PROGRAM`);
    M.FS.writeFile(file, new Uint8Array(await response.arrayBuffer()));
  }
  await startUrl(`demos/${name}`);
}

function startFile(file) {
  file.arrayBuffer().then((buffer) => start(file.name, new Uint8Array(buffer)));
}

function touchPad() {
  const pad = $('pad');
  for (const name of ['L1', 'UP', 'R1', 'X', 'SELECT', 'START', 'LEFT', 'DOWN', 'RIGHT', 'Y', 'B', 'A']) {
    const b = document.createElement('button');
    b.textContent = { UP: '↑', DOWN: '↓', LEFT: '←', RIGHT: '→' }[name] || name;
    const bit = BTN[name];
    b.addEventListener('pointerdown', (e) => { e.preventDefault(); touchButtons |= bit; });
    for (const up of ['pointerup', 'pointercancel', 'pointerleave'])
      b.addEventListener(up, () => { touchButtons &= ~bit; });
    pad.appendChild(b);
  }
  if (window.matchMedia && window.matchMedia('(pointer: coarse)').matches) document.body.classList.add('touch');
}

function wire() {
  document.addEventListener('keydown', (e) => {
    const bit = KEYS[e.code];
    if (bit === undefined || e.target.tagName === 'SELECT' || e.target.tagName === 'INPUT') return;
    e.preventDefault();
    keyButtons |= bit;
  });
  document.addEventListener('keyup', (e) => {
    const bit = KEYS[e.code];
    if (bit !== undefined) keyButtons &= ~bit;
  });
  window.addEventListener('blur', () => { keyButtons = 0; });
  $('file').addEventListener('change', (e) => { if (e.target.files[0]) startFile(e.target.files[0]); });
  const drop = $('drop');
  drop.addEventListener('dragover', (e) => { e.preventDefault(); drop.classList.add('over'); });
  drop.addEventListener('dragleave', () => drop.classList.remove('over'));
  drop.addEventListener('drop', (e) => {
    e.preventDefault();
    drop.classList.remove('over');
    if (e.dataTransfer.files[0]) startFile(e.dataTransfer.files[0]);
  });
  $('demos').addEventListener('change', (e) => { if (e.target.value) startDemo(e.target.value); });
  fetch('demos/list.txt').then((r) => (r.ok ? r.text() : '')).then((text) => {
    demos = text.split('\n').filter(Boolean);
    for (const name of demos) {
      const o = document.createElement('option');
      o.value = o.textContent = name;
      $('demos').appendChild(o);
    }
  });
  touchPad();
  $('save').addEventListener('click', async () => {
    const state = saveState();
    if (state) { await stored('slot', state); message('State saved in the browser.'); }
  });
  $('load').addEventListener('click', async () => {
    const state = await stored('slot');
    if (state) loadState(state);
    else message('No state saved yet.');
  });
  $('download').addEventListener('click', () => {
    const state = saveState();
    if (state) saveAs(new Blob([state]), 'tvm2.state');
  });
  $('grid').checked = localStorage.getItem('tvm2-grid') === '1';
  $('grid').addEventListener('change', () => {
    localStorage.setItem('tvm2-grid', $('grid').checked ? '1' : '0');
    if (M._tvm_screen_width()) draw();
  });
  window.addEventListener('resize', () => { if (M._tvm_screen_width()) draw(); });
  $('files-download').addEventListener('click', downloadFiles);
  $('files-upload').addEventListener('change', (e) => { uploadFiles([...e.target.files]); e.target.value = ''; });
  document.addEventListener('visibilitychange', () => { if (document.hidden) keep(); });
  window.addEventListener('pagehide', () => keep());
  $('upload').addEventListener('change', (e) => {
    if (e.target.files[0]) e.target.files[0].arrayBuffer().then((b) => loadState(new Uint8Array(b)));
  });
}

createTvm2({ print: (t) => say(`${t}\n`), printErr: (t) => say(`${t}\n`, true) }).then(async (module) => {
  M = module;
  await mountRoot();
  wire();
  window.tvmTest = {
    load: startUrl,
    // Runs n frames with the button word held; returns whether it ended
    // (once the files are stored when it did).
    async step(n, buttons) {
      for (let i = 0; i < n && !M._tvm_ended(); ++i) {
        if (M._tvm_frame(buttons)) draw();
        if (M._tvm_ended()) {
          ended();
          await keep();
        }
      }
      return { ended: !!M._tvm_ended(), exit: M._tvm_exit_code(), message: $('message').textContent };
    },
    shown: shownPixels,
    // A guest file's bytes (path under the root), or null.
    file: (name) => (M.FS.analyzePath(`${ROOT}/${name}`).exists ? Array.from(M.FS.readFile(`${ROOT}/${name}`)) : null),
    // The download's zip archive as bytes.
    zip: async () => Array.from(new Uint8Array(await (await makeZip(rootFiles())).arrayBuffer())),
    // The state buttons' work: into the browser's store and back.
    save: async () => { await stored('slot', saveState()); },
    restore: async () => loadState(await stored('slot')),
  };
  const program = new URLSearchParams(location.search).get('program');
  if (program) {
    const url = new URL(program, location.href);
    if (url.origin !== location.origin) message(`${program}: only programs from this site can be opened by link`);
    else startUrl(url.href);
  }
});
