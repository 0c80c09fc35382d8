// What the page's tests and benchmark share: a static HTTP server on
// 127.0.0.1 (the page from DIST, files of WORK under /work/) and headless
// Debian Chromium driven by puppeteer-core (never a downloaded browser).
'use strict';
const fs = require('fs');
const http = require('http');
const path = require('path');
const puppeteer = require('puppeteer-core');

const types = { '.html': 'text/html', '.js': 'text/javascript', '.wasm': 'application/wasm', '.png': 'image/png' };

// Resolves to { base, browser, close }.
async function start(dist, work) {
  const server = http.createServer((req, res) => {
    const url = decodeURIComponent(req.url.split('?')[0]);
    const file = url.startsWith('/work/') ? path.join(work, path.basename(url))
      : path.join(dist, path.normalize(url === '/' ? '/index.html' : url));
    fs.readFile(file, (err, data) => {
      if (err) { res.writeHead(404); res.end(); return; }
      res.writeHead(200, { 'Content-Type': types[path.extname(file)] || 'application/octet-stream' });
      res.end(data);
    });
  });
  await new Promise((ok) => server.listen(0, '127.0.0.1', ok));
  const browser = await puppeteer.launch({ executablePath: '/usr/bin/chromium', headless: true,
    args: ['--no-sandbox', '--disable-gpu'] });
  return {
    base: `http://127.0.0.1:${server.address().port}`,
    browser,
    close: async () => { await browser.close(); server.close(); },
  };
}

// A page of the test mode, its program loaded from /work/.
async function openPage(site, program) {
  const page = await site.browser.newPage();
  await page.setViewport({ width: 1280, height: 720 });
  await page.goto(`${site.base}/index.html?test`);
  await page.waitForFunction(() => window.tvmTest !== undefined);
  await page.evaluate((url) => window.tvmTest.load(url), `${site.base}/work/${program}`);
  return page;
}

module.exports = { start, openPage };
