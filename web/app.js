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

function message(text) { $('message').textContent = text; }
function say(text) {
  if (!text) return;
  const c = $('console');
  c.textContent += text;
  c.scrollTop = c.scrollHeight;
}

function padButtons() {
  let word = 0;
  for (const pad of navigator.getGamepads ? navigator.getGamepads() : []) {
    if (!pad) continue;
    for (const [index, bit] of PAD) if (pad.buttons[index] && pad.buttons[index].pressed) word |= bit;
  }
  return word;
}

function draw() {
  const w = M._tvm_width(), h = M._tvm_height();
  if (!w || !h) return;
  if (guest.width !== w || guest.height !== h) { guest.width = w; guest.height = h; }
  const px = new Uint8ClampedArray(M.HEAPU8.buffer, M._tvm_pixels(), w * h * 4);
  guest.getContext('2d').putImageData(new ImageData(new Uint8ClampedArray(px), w, h), 0, 0);
  // Beside the panel on wide windows, above it on narrow ones (phones).
  const roomW = window.innerWidth - (window.innerWidth >= 800 ? 400 : 40), roomH = window.innerHeight - 80;
  const scale = Math.max(1, Math.floor(Math.min(roomW / w, roomH / h)));
  if (screen.width !== w * scale || screen.height !== h * scale) { screen.width = w * scale; screen.height = h * scale; }
  ctx.imageSmoothingEnabled = false;
  ctx.drawImage(guest, 0, 0, w * scale, h * scale);
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
      const code = M._tvm_exit_code();
      message(code === 0 ? 'The program ended.' : `The program ended with code ${code}.`);
    }
  }
  say(M.UTF8ToString(M._tvm_console()));
  if (fresh) draw();
  requestAnimationFrame(tick);
}

// Starts the program in bytes (file name: name) from the guest's PROGRAM folder.
function start(name, bytes) {
  running = false;
  message('');
  $('console').textContent = '';
  // The core runs files named *.tvx only; any other name gets the ending, so
  // that what is not a program is refused for its content.
  const safe = name.replace(/[^A-Za-z0-9_.-]/g, '_');
  const path = `${ROOT}/PROGRAM/${safe.endsWith('.tvx') ? safe : `${safe}.tvx`}`;
  M.FS.mkdirTree(`${ROOT}/PROGRAM`);
  M.FS.writeFile(path, bytes);
  const err = M.cwrap('tvm_load', 'string', ['string', 'string', 'number'])(path, ROOT, 0);
  say(M.UTF8ToString(M._tvm_console()));
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

// The visible canvas at guest size: one [r, g, b] per guest pixel, read at
// the middle of each enlarged pixel.
function shownPixels() {
  const w = M._tvm_width(), h = M._tvm_height(), scale = screen.width / w;
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
  $('demos').addEventListener('change', (e) => { if (e.target.value) startUrl(`demos/${e.target.value}`); });
  fetch('demos/list.txt').then((r) => (r.ok ? r.text() : '')).then((text) => {
    for (const name of text.split('\n').filter(Boolean)) {
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
    if (!state) return;
    const a = document.createElement('a');
    a.href = URL.createObjectURL(new Blob([state]));
    a.download = 'tvm2.state';
    a.click();
    URL.revokeObjectURL(a.href);
  });
  $('upload').addEventListener('change', (e) => {
    if (e.target.files[0]) e.target.files[0].arrayBuffer().then((b) => loadState(new Uint8Array(b)));
  });
}

createTvm2({ print: say, printErr: say }).then((module) => {
  M = module;
  wire();
  window.tvmTest = {
    load: startUrl,
    // Runs n frames with the button word held; returns whether it ended.
    step(n, buttons) {
      for (let i = 0; i < n && !M._tvm_ended(); ++i) if (M._tvm_frame(buttons)) draw();
      return { ended: !!M._tvm_ended(), exit: M._tvm_exit_code(), message: $('message').textContent };
    },
    shown: shownPixels,
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
