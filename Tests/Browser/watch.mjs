// The page in a real browser, over a rehearsal whose steps this test gives the word for.
//
// node watch.mjs ROOT BUILD MODULES [SCREENSHOT]: the checkout, its build, where the modules from npm lie, and where a
// picture of the page goes.

import { execFileSync, spawn } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import assert from 'node:assert/strict';

const [root, build, modules, screenshot] = process.argv.slice(2);
const { chromium } = createRequire(join(modules, 'node_modules', 'x.js'))('playwright-core');
const axe = readFileSync(join(modules, 'node_modules/axe-core/axe.min.js'), 'utf8');
const PATIENCE = 30000;
const ENDPOINTS = { 1: 'k0', 2: 'k1', 3: 'bulk' };

const folder = mkdtempSync(join(tmpdir(), 'orbwatch-'));
// Its input is a socket: a shell of the first level would take that for a remote login, and read ~/.bashrc.
const environment = { ...process.env, SHLVL: '2', ORB_SIM_CONTROL: join(folder, 'control') };
const rehearsal = spawn(join(build, 'bin/ListenOutside'), ['0', join(root, 'scripts/rig'), '--build', build, '--',
  join(build, 'bin/Rehearsal'), '--watch', '3', '--step', '--no-shell', '--patience', '30'], { env: environment, stdio: ['pipe', 'pipe', 'pipe'] });
let said = '';
rehearsal.stdout.on('data', (data) => { said += data; });
rehearsal.stderr.on('data', (data) => { said += data; });
const ended = new Promise((resolve) => { rehearsal.on('exit', resolve); });

async function until(what, condition, patience = PATIENCE) {
  const end = Date.now() + patience;
  for (;;) {
    const value = await condition();
    if (value) return value;
    if (rehearsal.exitCode !== null && !said.includes('rehearsal is complete')) {
      if (rehearsal.exitCode === 77) { console.log(said); process.exit(77); }
      throw new Error(`the rehearsal has ended: ${said}`);
    }
    if (Date.now() > end) throw new Error(`not seen: ${what}\n${said.slice(-1500)}`);
    await new Promise((resolve) => setTimeout(resolve, 20));
  }
}

/// Has the rehearsal play up to the end of that step.
async function play(name) {
  for (;;) {
    const asked = await until('a step', () => said.match(/press Enter for: (.*)\n$/));
    if (play.last === name) return;
    play.last = asked[1];
    said += '\n';
    rehearsal.stdin.write('\n');
    if (play.last === name && name === 'the module stops') return;
  }
}

/// The routes that the hardware plays, from its active table.
function hardwareRoutes() {
  const table = execFileSync(join(build, 'bin/OrbControl'), ['table'], { env: environment }).toString();
  // A sink's sample that endpoint 0 feeds is silent.
  return [...table.matchAll(/0x([0-9a-f]{8})/g)].map(([, hex]) => parseInt(hex, 16)).filter((word) => word >> 21 & 7).map((word) => {
    return `${ENDPOINTS[word >> 21 & 7]} ${word >> 12 & 511} → ${ENDPOINTS[word >> 9 & 7]} ${word & 511}`;
  }).sort();
}

const flags = ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
  '--disable-component-update', '--disable-sync'];
const browser = await chromium.launch({ executablePath: process.env.ORB_CHROMIUM || '/usr/bin/chromium', args: flags });
const page = await (await browser.newContext({ viewport: { width: 1600, height: 1000 }, colorScheme: 'light' })).newPage();
const complaints = [];
page.on('console', (message) => { if (['error', 'warning'].includes(message.type())) complaints.push(message.text()); });
page.on('pageerror', (error) => complaints.push(error.message));
page.on('request', (request) => { if (!request.url().startsWith(address)) complaints.push(`asked for ${request.url()}`); });

const count = (selector) => page.locator(selector).count();
const sees = (what, selector, patience) => until(what, async () => await count(selector) > 0, patience);
const text = async (selector) => (await page.locator(selector).allInnerTexts()).join('\n');

/// What the page shows as routes of the FPGA is what the hardware plays.
async function routesAgree(step) {
  const shown = () => page.evaluate(() => [...document.querySelectorAll('#routes > .sink')].flatMap((sink) => {
    const name = sink.querySelector('.endpoint').textContent;
    return [...sink.querySelectorAll('.runs li')].flatMap((run) => {
      const [, source, from, to] = run.textContent.match(/^(\S+) ([\d–]+) → ([\d–]+)$/);
      const [first, last] = from.split('–').map(Number);
      const target = Number(to.split('–')[0]);
      return Array.from({ length: (last ?? first) - first + 1 }, (_, i) => `${source} ${first + i} → ${name} ${target + i}`);
    });
  }).sort());
  let onPage = [];
  await until(`${step}: the routes of the hardware on the page`, async () => {
    onPage = await shown();
    return JSON.stringify(onPage) === JSON.stringify(hardwareRoutes());
  }, 5000).catch((error) => { throw new Error(`${error.message}\npage: ${onPage}\nhardware: ${hardwareRoutes()}`); });
  return onPage;
}

async function accessible(state, schemes = ['light']) {
  await page.evaluate(axe);
  for (const scheme of schemes) {
    await page.emulateMedia({ colorScheme: scheme });
    const { violations } = await page.evaluate(() => window.axe.run());
    assert.deepEqual(violations.map((entry) => `${entry.id}: ${entry.nodes[0].html}`), [], `${state}, ${scheme}`);
  }
  await page.emulateMedia({ colorScheme: 'light' });
}

let address = '';
try {
  address = (await until('the address of the page', () => said.match(/http:\/\/127\.0\.0\.1:\d+\//)))[0];
  await until('the page', () => page.goto(address).then(() => true, () => false));
  complaints.length = 0;
  await sees('a module that is not there yet', 'body[data-contact="away"]');
  await accessible('away');

  await play('a command routes a sample through the FPGA');
  await sees('the module', 'body[data-contact="live"]');
  assert.deepEqual(await routesAgree('one route'), ['bulk 5 → k0 7']);

  await play('a fixed format box is plugged in');
  await sees('the box on the primary link', '#primary .lane.up .device:has-text("0.32:1")');
  await until('all that is known of the link', async () => await count('#primary .fact-yes') === 5);
  assert.match(await text('#facts'), /0\.18:8000/);

  await play('a microphone is patched to the Orb router');
  await sees('the line of the patch', '[data-way="0.32:1 0.18:1 primary orb working"]');
  assert.deepEqual(await routesAgree('the patch'), ['k0 3 → bulk 0']);
  assert.match(await text('#patches'), /0\.32:1 input 3.*0\.18:1 output 5/s);

  await play('a second cable is on standby');
  await sees('the reserved line', '[data-way="0.32:1 0.18:1 secondary orb reserved"]');
  assert.equal(await text('#patches .chip-reserved'), 'reserved');
  await routesAgree('reserved');
  if (screenshot) await page.screenshot({ path: screenshot });
  await accessible('live', ['light', 'dark']);

  // The line turns within a second of the loss. What the machine itself is late by, with a timer of the page and with one
  // of this test, does not count.
  const late = { test: 0, page: 0 };
  let due = Date.now();
  const timer = setInterval(() => { late.test += Math.max(0, Date.now() - due - 40); due = Date.now() + 20; }, 20);
  await page.evaluate(() => {
    window.late = 0;
    let next = Date.now();
    setInterval(() => { window.late += Math.max(0, Date.now() - next - 40); next = Date.now() + 20; }, 20);
  });
  const turned = page.waitForSelector('[data-cable="primary"].down', { state: 'attached', timeout: PATIENCE }).then(() => Date.now());
  const lost = Date.now();
  await play('the primary cable is lost');
  const took = await turned - lost;
  clearInterval(timer);
  late.page = await page.evaluate(() => window.late);
  console.log(`The lost cable was on the page ${took} ms after the word for it; the machine was late by ${late.test} and ${late.page} ms.`);
  assert.ok(took - late.test - late.page < 1000, `${took} ms`);
  await sees('the working line on the other link', '[data-way="0.32:1 0.18:1 secondary orb working"]', 2000);
  assert.deepEqual(await routesAgree('swung over'), ['k1 3 → bulk 0']);

  await page.setViewportSize({ width: 390, height: 844 });
  await play('a patch goes to a box behind a hub');
  await sees('the box beyond the hub', '#primary .beyond .device:has-text("0.48:2")');
  await routesAgree('the hub');
  assert.ok(await page.evaluate(() => document.documentElement.scrollWidth <= window.innerWidth), 'a phone need not scroll sideways');
  await accessible('phone');
  await page.setViewportSize({ width: 1600, height: 1000 });

  await page.locator('#log-filter').fill('ping');
  await play('the hub is pinged');
  await sees('the answer in the filtered log', '#log li:has-text("Ping Response")');
  assert.ok(!(await text('#log')).includes('Scanned'), 'the filter holds lines back');
  assert.deepEqual(complaints, []);

  await play('the module stops');
  // OrbWatch ends with the rehearsal, right after the module.
  await sees('that the picture is old', 'body[data-contact="lost"]', 10000);
  assert.match(await text('#notices'), /does not answer this page. What you see is \d+ s old/);
  assert.equal(await ended, 0, said);
  console.log('The page agrees with the hardware at every step.');
} catch (error) {
  await page.screenshot({ path: join(build, 'watch-failed.png') }).catch(() => {});
  console.error(error);
  process.exitCode = 1;
} finally {
  rehearsal.kill();
  await browser.close();
  rmSync(folder, { recursive: true, force: true });
}
