// Interpreter speed in the page: runs bench programs in headless Chromium on
// the WebAssembly core (frames back to back, as fast as the page can) and
// prints the wall time of each run from load to exit, best of RUNS.
// Usage: node bench/web.js DIST WORK NAME...   (WORK holds NAME.tvx)
'use strict';
const path = require('path');
const { start, openPage } = require(path.join(__dirname, '../tests/web/serve'));

const [dist, work, ...names] = process.argv.slice(2);
const runs = Number(process.env.RUNS || 3);

(async () => {
  const site = await start(path.resolve(dist), path.resolve(work));
  try {
    for (const name of names) {
      let best = Infinity, exit = null;
      for (let i = 0; i < runs; ++i) {
        const page = await openPage(site, `${name}.tvx`);
        const r = await page.evaluate(async () => {
          const t0 = performance.now();
          const s = await window.tvmTest.step(1e9, 0);
          return { ms: performance.now() - t0, exit: s.exit, ended: s.ended };
        });
        await page.close();
        if (!r.ended) throw new Error(`${name} did not end`);
        best = Math.min(best, r.ms);
        exit = r.exit;
      }
      console.log(`${name} ${(best / 1000).toFixed(3)} ${exit}`);
    }
  } finally {
    await site.close();
  }
})().catch((e) => { console.error(`bench/web: ${e.stack || e}`); process.exit(1); });
