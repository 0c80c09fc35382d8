// The page in headless Chromium: plays the pad test program with the same
// button script as the libretro test, frame by frame, and compares what the
// canvas shows at each checkpoint (and at the end) with tvxrun's screenshot
// of the same program and key script on the virtual clock; halfway it saves
// a state, reloads the page and restores it. Then the guest's files: the
// tutorial's file program counts its runs across a reload, the count comes
// out in the zip download and goes back in by an upload; its screen with the
// LCD grid is tvxrun's at the same size. Prints how soon after the page
// starts loading a demo shows its first frame.
// Usage: node browser.js DIST WORK TVXRUN   (WORK holds pad.tvx, step5_file.tvx,
// undefined_opcode.tvx)
'use strict';
const fs = require('fs');
const path = require('path');
const { execFileSync } = require('child_process');
const { start, openPage } = require('./serve');

const [dist, work, tvxrun] = process.argv.slice(2).map((p) => path.resolve(p));
const BTN = { A: 0x001, B: 0x002, SELECT: 0x004, START: 0x008, RIGHT: 0x010, LEFT: 0x020, UP: 0x040, DOWN: 0x080,
  R1: 0x100, L1: 0x200, X: 0x400, Y: 0x800 };
// [frame, button, down]: at frame f the button word changes before the frame runs.
const SCRIPT = [[30, 'A', true], [36, 'A', false], [45, 'RIGHT', true], [48, 'RIGHT', false], [60, 'X', true],
  [63, 'X', false], [66, 'Y', true], [72, 'Y', false], [90, 'L1', true], [93, 'L1', false], [150, 'START', true],
  [156, 'START', false]];
const CHECKPOINTS = [12, 51, 108];  // the program waits for a key there
const END = 160, EXIT = 5;  // five presses before START

// tvxrun's picture of program for the script cut before frame `end`, in a
// fresh root; returns its status.
function tvxrunShot(program, end, png, extra = []) {
  const keys = SCRIPT.filter(([f]) => f < end).map(([f, b, down]) => `${Math.floor((f * 50) / 3)}:${b}${down ? '+' : '-'}`);
  const root = fs.mkdtempSync(path.join(work, 'root'));
  const args = ['--clock', 'virtual', '--root', root, '--screenshot', png, ...extra];
  if (keys.length) args.push('--keys', keys.join(','));
  args.push(path.join(work, program));
  try {
    execFileSync(tvxrun, args, { cwd: work, stdio: 'ignore' });
    return 0;
  } catch (e) {
    return e.status;
  }
}

const python = (code, ...args) => execFileSync('python3', ['-c', code, ...args]).toString().trim();

async function main() {
  const site = await start(dist, work);
  const base = site.base;
  let failures = 0;
  const fail = (what) => { console.log(`FAIL web: ${what}`); ++failures; };
  try {
    const page = await openPage(site, 'pad.tvx');
    const loadMessage = await page.evaluate(() => document.getElementById('message').textContent);
    if (loadMessage) fail(`loading pad.tvx: ${loadMessage}`);

    let frame = 0, word = 0, result = null;
    const runTo = async (end) => {
      for (; frame < end; ++frame) {
        for (const [f, b, down] of SCRIPT) if (f === frame) word = down ? word | BTN[b] : word & ~BTN[b];
        result = await page.evaluate((w) => window.tvmTest.step(1, w), word);
      }
    };
    // The page's canvas (at guest size, or whole) against tvxrun's
    // screenshot, pixel by pixel.
    const compare = async (at, status, program = 'pad.tvx', full = false) => {
      const png = `at${at}.png`;
      const extra = [];
      if (full) extra.push('--screenshot-size', await page.evaluate(() => {
        const c = document.getElementById('screen');
        return `${c.width}x${c.height}`;
      }));
      const got = tvxrunShot(program, at, path.join(work, png), extra);
      if (got !== status) fail(`tvxrun up to frame ${at} ended with ${got}, not ${status}`);
      const diff = await page.evaluate(async (url, full) => {
        const img = new Image();
        img.src = url;
        await img.decode();
        const c = document.createElement('canvas');
        c.width = img.width;
        c.height = img.height;
        c.getContext('2d').drawImage(img, 0, 0);
        const want = c.getContext('2d').getImageData(0, 0, img.width, img.height).data;
        const shown = window.tvmTest.shown(full);
        if (shown.width !== img.width || shown.height !== img.height)
          return `size ${shown.width}x${shown.height}, tvxrun ${img.width}x${img.height}`;
        for (let i = 0; i < img.width * img.height; ++i)
          for (let k = 0; k < 3; ++k)
            if (shown.rgb[3 * i + k] !== want[4 * i + k])
              return `pixel (${i % img.width}, ${Math.floor(i / img.width)}) differs`;
        return '';
      }, `${base}/work/${png}`, full);
      if (diff) fail(`frame ${at}: ${diff}`);
    };
    for (const at of CHECKPOINTS) {
      await runTo(at);
      await compare(at, 123);
      if (at !== CHECKPOINTS[1]) continue;
      // A state saved in the browser, the page reloaded, the state restored:
      // the same screen, and the rest of the run goes on as before.
      await page.evaluate(() => window.tvmTest.save());
      await page.reload();
      await page.waitForFunction(() => window.tvmTest !== undefined);
      if (!(await page.evaluate(() => window.tvmTest.restore()))) fail('the saved state did not load after a reload');
      await compare(at, 123);
    }
    await runTo(END);
    if (!result || !result.ended || result.exit !== EXIT)
      fail(`the program did not end with ${EXIT} by frame ${END}: ${JSON.stringify(result)}`);
    else await compare(END, EXIT);

    // The guest's files last: two runs of the file program across a reload
    // count 1 and 2 in runs.txt.
    const runFileProgram = async () => {
      await page.evaluate((url) => window.tvmTest.load(url), `${base}/work/step5_file.tvx`);
      const r = await page.evaluate(() => window.tvmTest.step(60, 0));
      if (!r.ended || r.exit !== 0) fail(`step5_file did not end well: ${JSON.stringify(r)}`);
      const bytes = await page.evaluate(() => window.tvmTest.file('runs.txt'));
      return bytes && Buffer.from(bytes).toString();
    };
    let runs = await runFileProgram();
    if (runs !== '1') fail(`after the first run runs.txt holds ${runs}`);
    // Its monochrome screen with the LCD grid, enlarged as tvxrun enlarges.
    await page.click('#grid');
    await compare(0, 0, 'step5_file.tvx', true);
    await page.reload();
    await page.waitForFunction(() => window.tvmTest !== undefined);
    runs = await runFileProgram();
    if (runs !== '2') fail(`after a reload and a second run runs.txt holds ${runs}`);
    // The download is a zip archive Python reads; an archive Python made
    // goes in by the upload button.
    const zip = path.join(work, 'files.zip');
    fs.writeFileSync(zip, Buffer.from(await page.evaluate(() => window.tvmTest.zip())));
    const check = 'import sys, zipfile\nz = zipfile.ZipFile(sys.argv[1])\nassert z.testzip() is None\n' +
      'print(" ".join(sorted(z.namelist())), z.read("runs.txt").decode())';
    const listed = python(check, zip);
    if (listed !== 'PROGRAM/step5_file.tvx runs.txt 2') fail(`the zip download holds: ${listed}`);
    const upload = path.join(work, 'upload.zip');
    python('import sys, zipfile\nzipfile.ZipFile(sys.argv[1], "w", zipfile.ZIP_DEFLATED).writestr("runs.txt", "41")', upload);
    await (await page.$('#files-upload')).uploadFile(upload);
    await page.waitForFunction(() => document.getElementById('message').textContent.startsWith('1 file added'));
    runs = await runFileProgram();
    if (runs !== '42') fail(`after the upload and a run runs.txt holds ${runs}`);

    // A clear message, not a blank page, for what is not a program and for
    // a program the machine stops.
    fs.writeFileSync(path.join(work, 'notes.txt'), 'not a program');
    for (const [file, want] of [['notes.txt', /^notes\.txt: .*not a Tovix program/],
      ['undefined_opcode.tvx', /^The program was stopped: Undefined opcode 0xE0 at offset 0x0000/]]) {
      await page.evaluate((url) => window.tvmTest.load(url), `${base}/work/${file}`);
      const r = await page.evaluate(() => window.tvmTest.step(60, 0));
      if (!want.test(r.message)) fail(`${file}: the page says "${r.message}"`);
    }

    // Reported, not checked: how soon a demo shows its first frame.
    const shown = await site.browser.newPage();
    await shown.goto(`${base}/index.html?program=demos/tour.tvx`);
    await shown.waitForFunction(() => window.tvmFirstFrameMs !== undefined, { timeout: 20000 });
    const ms = await shown.evaluate(() => window.tvmFirstFrameMs);
    console.log(`web: the tour's first frame after ${Math.round(ms)} ms`);
  } finally {
    await site.close();
  }
  if (failures === 0) console.log('web: the page shows what tvxrun shows and keeps the files');
  process.exit(failures ? 1 : 0);
}

main().catch((e) => { console.log(`FAIL web: ${e.stack || e}`); process.exit(1); });
