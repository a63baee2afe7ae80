// Follows the module by server-sent events and shows what changes.

import { byId } from './dom.js';
import { renderFlow, renderLines } from './flow.js';
import { addLines, forget, setUpLog } from './log.js';
import { renderClocks, renderContact, renderDevices, renderFacts, renderFaults, renderPatches, renderRoutes,
  renderSlots } from './panels.js';

// OrbWatch sends something every two seconds.
const SILENCE = 6000;
// A broken connection is given less.
const PATIENCE = 2000;
const THEMES = ['auto', 'light', 'dark'];

const state = {};
const changed = new Set();
let clockOffset = 0;
let heard = 0;
let lit = null;
let frame = 0;

const now = () => Date.now() + clockOffset;
const isConnected = () => Date.now() - heard < SILENCE;

function draw() {
  frame = 0;
  if (!state.watch) return;
  const any = (...names) => names.some((name) => changed.has(name));
  if (any('links', 'devices', 'module', 'clocks', 'slots')) renderFlow(state);
  if (any('patches')) renderPatches(state, light);
  if (any('routes')) renderRoutes(state);
  if (any('slots')) renderSlots(state);
  if (any('clocks')) renderClocks(state);
  if (any('devices')) renderDevices(state);
  if (any('faults')) renderFaults(state, now());
  if (any('module', 'clocks', 'watch')) renderFacts(state);
  renderContact(state, isConnected(), now());
  renderLines(state, lit);
  changed.clear();
  document.body.dataset.version = state.version;
}

function schedule() {
  if (!frame) frame = requestAnimationFrame(draw);
}

function light(index) {
  const next = index === null ? null : Number(index);
  if (next === lit) return;
  lit = next;
  schedule();
}

function hear(time) {
  heard = Date.now();
  clockOffset = time - heard;
}

function follow() {
  const events = new EventSource('/events');
  events.addEventListener('state', (event) => {
    const data = JSON.parse(event.data);
    hear(data.time);
    // Another OrbWatch counts the lines of the log anew.
    if (state.watch && data.watch && data.watch.started !== state.watch.started) forget();
    for (const [name, value] of Object.entries(data)) {
      state[name] = value;
      changed.add(name);
    }
    schedule();
  });
  events.addEventListener('log', (event) => {
    heard = Date.now();
    addLines(JSON.parse(event.data));
  });
  events.addEventListener('tick', (event) => hear(JSON.parse(event.data).time));
  events.addEventListener('error', () => {
    heard = Math.min(heard, Date.now() - SILENCE + PATIENCE);
    // The browser tries again by itself, but not after a refusal.
    if (events.readyState === EventSource.CLOSED) setTimeout(follow, 2000);
  });
}

function setTheme(name) {
  document.documentElement.dataset.theme = name;
  byId('theme').textContent = `Theme: ${name}`;
}

function setUpTheme() {
  let theme = 'auto';
  try { theme = localStorage.getItem('theme') || theme; } catch { /* private windows have none */ }
  setTheme(THEMES.includes(theme) ? theme : 'auto');
  byId('theme').addEventListener('click', () => {
    const next = THEMES[(THEMES.indexOf(document.documentElement.dataset.theme) + 1) % THEMES.length];
    setTheme(next);
    try { localStorage.setItem('theme', next); } catch { /* as above */ }
  });
}

setUpTheme();
setUpLog();
byId('patches-filter').addEventListener('input', () => { changed.add('patches'); schedule(); });
new ResizeObserver(schedule).observe(byId('flow'));
setInterval(() => { if (state.watch) { renderContact(state, isConnected(), now()); renderFaults(state, now()); } }, 1000);
follow();
